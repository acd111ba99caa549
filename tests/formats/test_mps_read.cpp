// The MPS reader on the real test sets (counts against the manifests) and on small files
// that pin down the meaning of each section.
#include <cmath>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "format_fixture.h"

namespace {

struct ManifestRow {
  std::string set, name, file;
  int rows, cols;
  long long nonzeros;
};

std::vector<ManifestRow> manifest(const std::string& set) {
  std::vector<ManifestRow> out;
  std::ifstream in(std::string(QUBOR_DATA_DIR) + "/" + set + "/MANIFEST.csv");
  std::string line;
  std::getline(in, line);
  while (std::getline(in, line)) {
    std::stringstream ss(line);
    std::string f[6];
    for (auto& x : f) std::getline(ss, x, ',');
    out.push_back({set, f[0], f[1], std::stoi(f[3]), std::stoi(f[4]), std::stoll(f[5])});
  }
  return out;
}

// Files whose matrices hold explicit zeros or entries below the task's truncation tolerance,
// which the task does not store; the manifests count them.
bool has_dropped_entries(const std::string& name) {
  for (const char* n : {"standgub", "HUESTIS", "KSIP", "cap6000", "rentacar"}) {
    if (name == n) return true;
  }
  return false;
}

}  // namespace

class RealMps : public FormatTest {};

TEST_F(RealMps, EveryFileOfTheTestSetsMatchesItsManifest) {
  QBR_putintparam(task, QBR_IPAR_LOG, 0);
  int read = 0;
  for (const char* set : {"netlib-lp", "netlib-infeasible", "maros-meszaros", "miplib"}) {
    for (const ManifestRow& m : manifest(set)) {
      SCOPED_TRACE(m.set + "/" + m.file);
      const std::string path = std::string(QUBOR_DATA_DIR) + "/" + set + "/" + m.file;
      QBRrescode r = QBR_readdata(task, path.c_str());
      if (m.name == "supportcase21i") {
        // Indicator constraints have no counterpart in the task; the section is refused.
        EXPECT_EQ(r, QBR_RES_ERR_MPS_INV_SEC_NAME);
        continue;
      }
      ASSERT_EQ(r, QBR_RES_OK) << err.text;
      ++read;
      EXPECT_EQ(numcon(), m.rows);
      EXPECT_EQ(numvar(), m.cols);
      QBRint64t nz = 0;
      QBR_getnumanz64(task, &nz);
      if (has_dropped_entries(m.name)) {
        EXPECT_LE(nz, m.nonzeros);
        EXPECT_GE(nz, m.nonzeros * 94 / 100);
      } else {
        EXPECT_EQ(nz, m.nonzeros);
      }
      QBRint64t rd = 0;
      QBR_getlintinf(task, QBR_LIINF_RD_NUMANZ, &rd);
      EXPECT_EQ(rd, nz);
    }
  }
  EXPECT_GT(read, 240);
}

TEST_F(RealMps, QuadraticObjectiveAndConstantTerm) {
  // AUG2D: RHS -9900 on the objective row, i.e. the constant +9900.
  const std::string path = std::string(QUBOR_DATA_DIR) + "/maros-meszaros/AUG2D.qps.gz";
  ASSERT_EQ(QBR_readdata(task, path.c_str()), QBR_RES_OK);
  double cfix = 0;
  QBR_getcfix(task, &cfix);
  EXPECT_EQ(cfix, 9900.0);
  QBRint64t qnz = 0;
  QBR_getnumqobjnz(task, &qnz);
  EXPECT_GT(qnz, 0);
  QBRint32t probtype = -1;
  QBR_getintinf(task, QBR_IINF_RD_PROTYPE, &probtype);
  EXPECT_EQ(probtype, QBR_PROBTYPE_QO);
}

class MpsSemantics : public FormatTest {
 protected:
  QBRrescode read(const std::string& text, const char* name = "m.mps") {
    return QBR_readdata(task, write_text(name, text).c_str());
  }
  void con(QBRint32t i, QBRint32t bk, double bl, double bu) {
    QBRint32t k;
    double l, u;
    ASSERT_EQ(QBR_getconbound(task, i, &k, &l, &u), QBR_RES_OK);
    EXPECT_EQ(k, bk) << "constraint " << i;
    if (bk != QBR_BK_UP && bk != QBR_BK_FR) {
      EXPECT_EQ(l, bl) << "constraint " << i;
    }
    if (bk != QBR_BK_LO && bk != QBR_BK_FR) {
      EXPECT_EQ(u, bu) << "constraint " << i;
    }
  }
  void var(QBRint32t j, QBRint32t bk, double bl, double bu, QBRint32t type = QBR_VAR_TYPE_CONT) {
    QBRint32t k, t;
    double l, u;
    ASSERT_EQ(QBR_getvarbound(task, j, &k, &l, &u), QBR_RES_OK);
    EXPECT_EQ(k, bk) << "variable " << j;
    if (bk != QBR_BK_UP && bk != QBR_BK_FR) {
      EXPECT_EQ(l, bl) << "variable " << j;
    }
    if (bk != QBR_BK_LO && bk != QBR_BK_FR) {
      EXPECT_EQ(u, bu) << "variable " << j;
    }
    QBR_getvartype(task, j, &t);
    EXPECT_EQ(t, type) << "variable " << j;
  }
};

TEST_F(MpsSemantics, RowTypesRhsAndRanges) {
  ASSERT_EQ(read("NAME RANGES\nROWS\n N obj\n E e1\n E e2\n E e3\n L l1\n G g1\n G g2\nCOLUMNS\n"
                 "    x obj 1 e1 1\n    x e2 1 e3 1\n    x l1 1 g1 1\n    x g2 1\n"
                 "RHS\n    rhs e1 5 e2 5\n    rhs e3 5 l1 4\n    rhs g1 3 g2 3\n    rhs obj -2.5\n"
                 "RANGES\n    rng e1 2 e2 -2\n    rng l1 -3 g1 3\nENDATA\n"),
            QBR_RES_OK);
  con(0, QBR_BK_RA, 5, 7);
  con(1, QBR_BK_RA, 3, 5);
  con(2, QBR_BK_FX, 5, 5);
  con(3, QBR_BK_RA, 1, 4);
  con(4, QBR_BK_RA, 3, 6);
  con(5, QBR_BK_LO, 3, 0);
  double cfix = 0;
  QBR_getcfix(task, &cfix);
  EXPECT_EQ(cfix, 2.5);
  EXPECT_NE(log.text.find("Using 'obj' as objective vector\n"), std::string::npos);
  EXPECT_NE(log.text.find("Using 'rhs' as rhs vector\n"), std::string::npos);
  EXPECT_NE(log.text.find("Using 'rng' as range vector\n"), std::string::npos);
}

TEST_F(MpsSemantics, BoundTypes) {
  ASSERT_EQ(
      read(
          "NAME\nROWS\n N obj\nCOLUMNS\n"
          "    a obj 1\n    b obj 1\n    c obj 1\n    d obj 1\n    e obj 1\n    f obj 1\n"
          "    g obj 1\n    h obj 1\n    i obj 1\n    j obj 1\n"
          "BOUNDS\n MI bnd a\n UP bnd a 4\n PL bnd b\n BV bnd c\n FR bnd d\n FX bnd e 3\n"
          " LI bnd f -2\n UI bnd g 9\n UP bnd h -1\n LO bnd i 0\n UP bnd i -1\n LO bnd j 1.5\n UP bnd j 2.5\n"
          "ENDATA\n"),
      QBR_RES_OK);
  var(0, QBR_BK_UP, 0, 4);
  var(1, QBR_BK_LO, 0, 0);
  var(2, QBR_BK_RA, 0, 1, QBR_VAR_TYPE_INT);
  var(3, QBR_BK_FR, 0, 0);
  var(4, QBR_BK_FX, 3, 3);
  var(5, QBR_BK_LO, -2, 0, QBR_VAR_TYPE_INT);
  var(6, QBR_BK_RA, 0, 9, QBR_VAR_TYPE_INT);
  var(7, QBR_BK_UP, 0, -1);  // a negative upper bound frees the unset lower bound
  var(8, QBR_BK_RA, 0, -1);  // but not one that was given
  var(9, QBR_BK_RA, 1.5, 2.5);
}

TEST_F(MpsSemantics, IntegerMarkersAndObjectiveSense) {
  for (const char* sense : {"MAX", "MAXIMIZE"}) {
    ASSERT_EQ(read(std::string("NAME\nOBJSENSE\n    ") + sense +
                   "\nROWS\n N obj\n L c\nCOLUMNS\n    x obj 1 c 1\n"
                   "    m1 'MARKER' 'INTORG'\n    y obj 1 c 1\n    m2 'MARKER' 'INTEND'\n    z obj 1\n"
                   "RHS\n    rhs c 4\nENDATA\n"),
              QBR_RES_OK);
    QBRint32t s = -1;
    QBR_getobjsense(task, &s);
    EXPECT_EQ(s, QBR_OBJECTIVE_SENSE_MAXIMIZE);
    var(0, QBR_BK_LO, 0, 0);
    var(1, QBR_BK_LO, 0, 0, QBR_VAR_TYPE_INT);
    var(2, QBR_BK_LO, 0, 0);
  }
}

TEST_F(MpsSemantics, VectorChoiceAndSplitWarnings) {
  const std::string text =
      "NAME\nROWS\n N obj\n L c1\n L c2\nCOLUMNS\n    x obj 1 c1 1\n    x c2 1\n"
      "RHS\n    rhs1 c1 1\n    rhs2 c1 2\n    rhs2 c2 2\n    rhs1 c2 1\n"
      "BOUNDS\n UP b1 x 1\n UP b2 x 2\n UP b1 x 3\nENDATA\n";
  ASSERT_EQ(read(text), QBR_RES_OK);
  con(0, QBR_BK_UP, 0, 1);
  con(1, QBR_BK_UP, 0, 1);
  var(0, QBR_BK_RA, 0, 3);
  EXPECT_NE(log.text.find("Using 'rhs1' as rhs vector\n"), std::string::npos);
  EXPECT_NE(wrn.text.find("A RHS vector is split into several nonadjacent parts in an MPS file."),
            std::string::npos);
  EXPECT_NE(wrn.text.find("A BOUNDS vector is split into several nonadjacent parts in an MPS file."),
            std::string::npos);
  ASSERT_EQ(QBR_putstrparam(task, QBR_SPAR_READ_MPS_RHS_NAME, "rhs2"), QBR_RES_OK);
  ASSERT_EQ(read(text), QBR_RES_OK);
  con(0, QBR_BK_UP, 0, 2);
  con(1, QBR_BK_UP, 0, 2);
}

TEST_F(MpsSemantics, FreeRowsAreDroppedUnlessKept) {
  const std::string text =
      "NAME\nROWS\n N obj\n N spare\n L c\nCOLUMNS\n    x obj 1 spare 7\n    x c 1\nENDATA\n";
  ASSERT_EQ(read(text), QBR_RES_OK);
  EXPECT_EQ(numcon(), 1);
  QBR_putintparam(task, QBR_IPAR_READ_KEEP_FREE_CON, QBR_ON);
  ASSERT_EQ(read(text), QBR_RES_OK);
  EXPECT_EQ(numcon(), 2);
  con(0, QBR_BK_FR, 0, 0);
  ASSERT_EQ(QBR_putstrparam(task, QBR_SPAR_READ_MPS_OBJ_NAME, "spare"), QBR_RES_OK);
  ASSERT_EQ(read(text), QBR_RES_OK);
  double c = 0;
  QBR_getcj(task, 0, &c);
  EXPECT_EQ(c, 7.0);
}

TEST_F(MpsSemantics, FixedGridNamesWithBlanks) {
  // Fixed columns, names with blanks, an RHS line without a vector name.
  auto grid = [](std::vector<std::pair<int, std::string>> fields) {
    std::string line;
    for (auto& [col, text] : fields) {
      line.resize(static_cast<size_t>(col), ' ');
      line += text;
    }
    return line + "\n";
  };
  const std::string text = "NAME          BLANKS\nROWS\n N  COST\n E  ROW 1\nCOLUMNS\n" +
                           grid({{4, "COL 1"}, {14, "COST"}, {34, "1."}, {39, "ROW 1"}, {58, "-1."}}) +
                           "RHS\n" + grid({{14, "ROW 1"}, {34, "7."}}) + "ENDATA\n";
  for (int layout : {QBR_MPS_FORMAT_STRICT, QBR_MPS_FORMAT_RELAXED}) {
    QBR_putintparam(task, QBR_IPAR_READ_MPS_FORMAT, layout);
    ASSERT_EQ(read(text), QBR_RES_OK) << layout;
    char name[64];
    QBR_getvarname(task, 0, sizeof name, name);
    EXPECT_STREQ(name, "COL 1");
    con(0, QBR_BK_FX, 7, 7);
  }
  // The same text read freely has too many fields.
  QBR_putintparam(task, QBR_IPAR_READ_MPS_FORMAT, QBR_MPS_FORMAT_FREE);
  EXPECT_NE(read(text), QBR_RES_OK);
  // A number longer than its field runs on into the columns of field 5.
  const std::string longer = "NAME\nROWS\n N  COST\n E  ROW 1\nCOLUMNS\n" +
                             grid({{4, "COL 1"}, {14, "ROW 1"}, {24, "0.12345678901234568"}}) +
                             grid({{4, "COL 1"}, {14, "COST"}, {24, "-1.2345678901234567e-05"}}) +
                             "ENDATA\n";
  for (int layout : {QBR_MPS_FORMAT_STRICT, QBR_MPS_FORMAT_RELAXED}) {
    QBR_putintparam(task, QBR_IPAR_READ_MPS_FORMAT, layout);
    ASSERT_EQ(read(longer), QBR_RES_OK) << layout;
    double a = 0, c = 0;
    QBR_getaij(task, 0, 0, &a);
    QBR_getcj(task, 0, &c);
    EXPECT_EQ(a, 0.12345678901234568);
    EXPECT_EQ(c, -1.2345678901234567e-05);
  }
}

TEST_F(MpsSemantics, FreeMpsSuffixForcesTheFreeLayout) {
  QBR_putintparam(task, QBR_IPAR_READ_MPS_FORMAT, QBR_MPS_FORMAT_STRICT);
  ASSERT_EQ(read("NAME\nROWS\n N obj\n L averylongrowname\nCOLUMNS\n  averylongcolumnname obj -1.5e+2 "
                 "averylongrowname 2\n"
                 "RHS\n  rhs averylongrowname 1\nENDATA\n",
                 "m.fmps"),
            QBR_RES_OK);
  double c = 0;
  QBR_getcj(task, 0, &c);
  EXPECT_EQ(c, -150.0);
}

TEST_F(MpsSemantics, QuadraticSections) {
  const std::string head = "NAME\nROWS\n N obj\n L q1\n L q2\nCOLUMNS\n    x obj 1 q1 1\n    y obj 1 q2 1\n";
  ASSERT_EQ(
      read(head + "QUADOBJ\n    x x 2\n    y x 1\nQSECTION q1\n    x x 4\nQCMATRIX q2\n    x y 1\n    y x 1\n"
                  "    y y 3\nENDATA\n"),
      QBR_RES_OK);
  double v = 0;
  QBR_getqobjij(task, 1, 0, &v);
  EXPECT_EQ(v, 1.0);
  QBR_getqobjij(task, 0, 0, &v);
  EXPECT_EQ(v, 2.0);
  QBRint32t qi[4], qj[4];
  double qv[4];
  QBRint64t n = 0;
  ASSERT_EQ(QBR_getqconk(task, 0, 4, &n, qi, qj, qv), QBR_RES_OK);
  ASSERT_EQ(n, 1);
  EXPECT_EQ(qv[0], 4.0);
  // QCMATRIX holds x'Qx; the task keeps 1/2 x'Qx.
  ASSERT_EQ(QBR_getqconk(task, 1, 4, &n, qi, qj, qv), QBR_RES_OK);
  ASSERT_EQ(n, 2);
  for (int k = 0; k < 2; ++k) EXPECT_EQ(qv[k], qi[k] == qj[k] ? 6.0 : 2.0);
  // QMATRIX: the full symmetric matrix of 1/2 x'Qx.
  ASSERT_EQ(read(head + "QMATRIX\n    x x 2\n    x y 1\n    y x 1\nENDATA\n"), QBR_RES_OK);
  QBR_getqobjij(task, 1, 0, &v);
  EXPECT_EQ(v, 1.0);
}

TEST_F(MpsSemantics, ConeSections) {
  ASSERT_EQ(read("NAME\nROWS\n N obj\nCOLUMNS\n    x obj 1\n    y obj 0\n    z obj 0\n    w obj 0\n"
                 "BOUNDS\n FR b y\nCSECTION k1 0.0 QUAD\n    x\n    y\nCSECTION k2 0.25 PPOW\n    z\n    "
                 "w\nENDATA\n"),
            QBR_RES_OK);
  QBRint32t numcone = 0, ct = -1, nummem = 0, sub[4];
  double par = 0;
  QBR_getnumcone(task, &numcone);
  ASSERT_EQ(numcone, 2);
  QBR_getcone(task, 1, &ct, &par, &nummem, sub);
  EXPECT_EQ(ct, QBR_CT_PPOW);
  EXPECT_EQ(par, 0.25);
  EXPECT_EQ(nummem, 2);
  EXPECT_EQ(sub[0], 2);
  char name[16];
  QBR_getconename(task, 0, sizeof name, name);
  EXPECT_STREQ(name, "k1");
}

TEST_F(MpsSemantics, CommentsBlankLinesAndCrLf) {
  ASSERT_EQ(read("* comment\r\nNAME  crlf\r\n\r\nROWS\r\n N obj\r\n E c\r\nCOLUMNS\r\n* inside\r\n    x obj "
                 "1 c 2\r\n"
                 "RHS\r\n    rhs c 4\r\nENDATA\r\nIGNORED AFTER THE END\n"),
            QBR_RES_OK);
  con(0, QBR_BK_FX, 4, 4);
}
