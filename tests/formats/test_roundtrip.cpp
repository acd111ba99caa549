// What is written reads back to the same problem: the real test sets through MPS (plain,
// gzip, zstd; free and fixed layouts) and LP, and a built problem with every item the MPS
// format holds, in all four layouts.
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "format_fixture.h"

namespace {

class RoundTrip : public FormatTest {
 protected:
  void SetUp() override {
    FormatTest::SetUp();
    ASSERT_EQ(QBR_maketask(env, 0, 0, &other), QBR_RES_OK);
    QBR_linkfunctotaskstream(other, QBR_STREAM_ERR, &err, Captured::sink);
    QBR_putintparam(task, QBR_IPAR_LOG, 0);
    QBR_putintparam(other, QBR_IPAR_LOG, 0);
  }
  void TearDown() override {
    QBR_deletetask(&other);
    FormatTest::TearDown();
  }
  // Writes `task` to `name`, reads it into `other` and compares.
  void through(const std::string& name, double tol) {
    SCOPED_TRACE(name);
    const std::string path = temp_path(name);
    ASSERT_EQ(QBR_writedata(task, path.c_str()), QBR_RES_OK) << err.text;
    const QBRrescode r = QBR_readdata(other, path.c_str());
    std::remove(path.c_str());
    ASSERT_EQ(r, QBR_RES_OK) << err.text;
    expect_same_problem(task, other, tol);
  }
  QBRtask_t other = nullptr;
};

// Every MPS and QPS model of the test sets (the CBF set has a reader of its own).
std::vector<std::string> real_models() {
  std::vector<std::string> out;
  for (const char* set : {"netlib-lp", "netlib-infeasible", "maros-meszaros", "miplib"}) {
    std::ifstream in(std::string(QUBOR_DATA_DIR) + "/" + set + "/MANIFEST.csv");
    std::string line;
    std::getline(in, line);
    while (std::getline(in, line)) {
      std::string file = line.substr(line.find(',') + 1);
      file = file.substr(0, file.find(','));
      out.push_back(std::string(QUBOR_DATA_DIR) + "/" + set + "/" + file);
    }
  }
  return out;
}

}  // namespace

// Each model goes through MPS and LP, plain, gzip and zstd in turn, and must come back whole:
// bounds, types, A, c, Q of objective and constraints, names.
TEST_F(RoundTrip, EveryRealModelThroughMpsAndLp) {
  const char* mps[] = {"rt.mps", "rt.mps.gz", "rt.mps.zst"};
  const char* lp[] = {"rt.lp.zst", "rt.lp", "rt.lp.gz"};
  // LP keeps the variable order and the variables without any entry only with the full objective.
  QBR_putintparam(task, QBR_IPAR_WRITE_LP_FULL_OBJ, QBR_ON);
  QBR_putintparam(task, QBR_IPAR_WRITE_PRECISION, 17);
  QBR_putintparam(task, QBR_IPAR_WRITE_LP_QUOTED_NAMES, QBR_ON);
  QBR_putintparam(other, QBR_IPAR_READ_LP_QUOTED_NAMES, QBR_ON);
  int done = 0;
  for (const std::string& path : real_models()) {
    SCOPED_TRACE(path);
    // Indicator constraints have no counterpart in the task (see the reader tests).
    if (path.find("supportcase21i") != std::string::npos) continue;
    ASSERT_EQ(QBR_readdata(task, path.c_str()), QBR_RES_OK) << err.text;
    // Netlib names may hold blanks (forplan): those files go through the fixed grid.
    const bool fixed = path.find("netlib") != std::string::npos;
    QBR_putintparam(task, QBR_IPAR_WRITE_MPS_FORMAT, fixed ? QBR_MPS_FORMAT_RELAXED : QBR_MPS_FORMAT_FREE);
    QBR_putintparam(other, QBR_IPAR_READ_MPS_FORMAT, fixed ? QBR_MPS_FORMAT_RELAXED : QBR_MPS_FORMAT_FREE);
    through(mps[done % 3], 0.0);
    through(lp[done % 3], 0.0);
    ++done;
  }
  EXPECT_GT(done, 240);
}

TEST_F(RoundTrip, EveryMpsItemInEveryLayout) {
  ASSERT_EQ(QBR_appendvars(task, 6), QBR_RES_OK);
  ASSERT_EQ(QBR_appendcons(task, 5), QBR_RES_OK);
  const char* vn[] = {"x1", "x2", "x3", "x4", "x5", "x6"};
  for (int j = 0; j < 6; ++j) ASSERT_EQ(QBR_putvarname(task, j, vn[j]), QBR_RES_OK);
  const char* cn[] = {"fix", "low", "up", "range", "free"};
  for (int i = 0; i < 5; ++i) ASSERT_EQ(QBR_putconname(task, i, cn[i]), QBR_RES_OK);
  QBR_putobjname(task, "profit");
  QBR_puttaskname(task, "ALL");
  QBR_putobjsense(task, QBR_OBJECTIVE_SENSE_MAXIMIZE);
  QBR_putcfix(task, 12.5);
  QBR_putvarbound(task, 0, QBR_BK_LO, 0, 1e30);
  QBR_putvarbound(task, 1, QBR_BK_RA, -2, 3.25);
  QBR_putvarbound(task, 2, QBR_BK_FR, -1e30, 1e30);
  QBR_putvarbound(task, 3, QBR_BK_UP, -1e30, -4);
  QBR_putvarbound(task, 4, QBR_BK_RA, 0, 1);
  QBR_putvarbound(task, 5, QBR_BK_FX, 7, 7);
  QBR_putvartype(task, 4, QBR_VAR_TYPE_INT);
  QBR_putvartype(task, 1, QBR_VAR_TYPE_INT);
  QBR_putconbound(task, 0, QBR_BK_FX, 1, 1);
  QBR_putconbound(task, 1, QBR_BK_LO, -3, 1e30);
  QBR_putconbound(task, 2, QBR_BK_UP, -1e30, 8);
  QBR_putconbound(task, 3, QBR_BK_RA, -1.5, 2.75);
  for (int j = 0; j < 6; ++j) {
    QBR_putcj(task, j, j % 2 ? 1.0 / (j + 2) : 0.0);
    for (int i = 0; i < 5; ++i) {
      if ((i + j) % 3 != 0) QBR_putaij(task, i, j, (i + 1) * 0.1 - j);
    }
  }
  const QBRint32t qi[] = {0, 1, 1}, qj[] = {0, 0, 1};
  const double qv[] = {2.0, 0.5, 3.0};
  ASSERT_EQ(QBR_putqobj(task, 3, qi, qj, qv), QBR_RES_OK);
  ASSERT_EQ(QBR_putqconk(task, 2, 3, qi, qj, qv), QBR_RES_OK);
  const QBRint32t cone1[] = {2, 3}, cone2[] = {0};
  ASSERT_EQ(QBR_appendcone(task, QBR_CT_QUAD, 0.0, 2, cone1), QBR_RES_OK);
  ASSERT_EQ(QBR_appendcone(task, QBR_CT_PPOW, 0.3, 1, cone2), QBR_RES_OK);
  QBR_putconename(task, 0, "k1");
  QBR_putconename(task, 1, "k2");
  for (int layout :
       {QBR_MPS_FORMAT_FREE, QBR_MPS_FORMAT_CPLEX, QBR_MPS_FORMAT_RELAXED, QBR_MPS_FORMAT_STRICT}) {
    for (int markers : {0, 1}) {
      QBR_putintparam(task, QBR_IPAR_WRITE_MPS_FORMAT, layout);
      QBR_putintparam(other, QBR_IPAR_READ_MPS_FORMAT, layout);
      QBR_putintparam(task, QBR_IPAR_WRITE_MPS_INT, markers);
      SCOPED_TRACE(layout * 10 + markers);
      through("all.mps", layout == QBR_MPS_FORMAT_STRICT ? 1e-9 : 1e-15);
      double cfix = 0;
      QBR_getcfix(other, &cfix);
      EXPECT_EQ(cfix, 12.5);
    }
  }
}

TEST_F(RoundTrip, NamesTheLayoutCannotHoldAreRefused) {
  ASSERT_EQ(QBR_appendvars(task, 1), QBR_RES_OK);
  QBR_putvarbound(task, 0, QBR_BK_LO, 0, 1e30);
  QBR_putvarname(task, 0, "a name");
  QBR_putintparam(task, QBR_IPAR_WRITE_MPS_FORMAT, QBR_MPS_FORMAT_FREE);
  EXPECT_EQ(QBR_writedata(task, temp_path("bad.mps").c_str()), QBR_RES_ERR_WRITE_MPS_INVALID_NAME);
  QBR_putvarname(task, 0, "toolongname");
  QBR_putintparam(task, QBR_IPAR_WRITE_MPS_FORMAT, QBR_MPS_FORMAT_STRICT);
  EXPECT_EQ(QBR_writedata(task, temp_path("bad.mps").c_str()), QBR_RES_ERR_WRITE_MPS_INVALID_NAME);
  // The refusal tells the way out: here the free layout, which holds the name.
  EXPECT_EQ(last_message(),
            "The invalid name 'toolongname' is created while writing an MPS file; the free layout "
            "(QBR_IPAR_WRITE_MPS_FORMAT QBR_MPS_FORMAT_FREE) holds it, or QBR_IPAR_WRITE_GENERIC_NAMES 1 writes "
            "generic names.");
}

TEST_F(RoundTrip, WriterLineFormats) {
  ASSERT_EQ(QBR_appendvars(task, 2), QBR_RES_OK);
  ASSERT_EQ(QBR_appendcons(task, 1), QBR_RES_OK);
  QBR_puttaskname(task, "SMALL");
  QBR_putobjname(task, "obj");
  QBR_putvarname(task, 0, "x");
  QBR_putvarname(task, 1, "y");
  QBR_putconname(task, 0, "c");
  QBR_putvarbound(task, 0, QBR_BK_LO, 0, 1e30);
  QBR_putvarbound(task, 1, QBR_BK_RA, 0, 5);
  QBR_putvartype(task, 1, QBR_VAR_TYPE_INT);
  QBR_putconbound(task, 0, QBR_BK_UP, -1e30, 4);
  QBR_putcj(task, 0, 1.5);
  QBR_putaij(task, 0, 0, 1);
  QBR_putaij(task, 0, 1, 2);
  const std::string path = temp_path("small.mps");
  ASSERT_EQ(QBR_writedata(task, path.c_str()), QBR_RES_OK);
  QBRint32t major, minor, rev;
  QBR_getversion(&major, &minor, &rev);
  const std::string expected =
      "NAME           SMALL\n"
      "* Written by QUBOR version " +
      std::to_string(major) + "." + std::to_string(minor) + "." + std::to_string(rev) +
      "\n"
      "OBJSENSE\n"
      "    MIN\n"
      "ROWS\n"
      " N  obj\n"
      " L  c       \n"
      "COLUMNS\n"
      "    x         obj       1.5\n"
      "    x         c         1\n"
      "    1         'MARKER'                 'INTORG'\n"
      "    y         c         2\n"
      "    2         'MARKER'                 'INTEND'\n"
      "RHS\n"
      "    rhs       c         4\n"
      "BOUNDS\n"
      " UP bound     y         5\n"
      "ENDATA\n";
  EXPECT_EQ(read_text(path), expected);
}
