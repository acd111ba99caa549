// The CBF reader and writer: one file with every section and domain and the task it must
// give; one malformed file per response code, with the line the message must name; tasks
// that CBF states only through extra rows; and every CBF file of the shared data sets read,
// written and read back to the same task.
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <tuple>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "format_fixture.h"

namespace {

// Every section and every domain. Variables: x0 F, x1 L+, x2 L-, x3 L=, x4..6 Q,
// x7..9 QR, x10..12 EXP, x13..15 EXP*, x16..17 POW (powers 1, 3), x18..19 POW* (2, 2).
// Rows: 0 L+, 1 L-, 2 L=, 3 F, 4..5 Q (new variables x20, x21); PSDCON rows 6..8.
const char* const kEverything = R"(# every section
VER
3

POWCONES
1 2
2
1.0
3.0

POW*CONES
1 2
2
2.0
2.0

OBJSENSE
MAX

PSDVAR
1
2

VAR
20 10
F 1
L+ 1
L- 1
L= 1
Q 3
QR 3
EXP 3
EXP* 3
@0:POW 2
@0:POW* 2

INT
2
0
1

PSDCON
1
2

CON
6 5
L+ 1
L- 1
L= 1
F 1
Q 2

OBJFCOORD
2
0 0 0 1.5
0 0 1 0.5

OBJACOORD
2
0 1.0
4 -2.5

OBJBCOORD
7.25

FCOORD
1
4 0 1 1 3.0

ACOORD
6
0 0 1.0
0 1 2.0
1 2 1.0
2 3 1.0
3 0 1.0
4 16 1.0

BCOORD
3
0 -1.0
1 4.0
5 2.0

HCOORD
2
0 0 0 0 1.0
0 1 1 0 2.0

DCOORD
1
0 1 1 5.0
)";

class Cbf : public FormatTest {
 protected:
  QBRrescode read(const std::string& text) {
    return QBR_readdata(task, write_text("in.cbf", text).c_str());
  }
  // Entries (k, l, value) of the single stored matrix behind barA(i, j) or, for i < 0, barC_j.
  std::vector<std::tuple<QBRint32t, QBRint32t, double>> bar(QBRint32t i, QBRint32t j) {
    QBRint64t num = 0, sub = -1, idx = -1, n = 0;
    double w = 0;
    QBRint32t gi = -1, gj = -1;
    std::vector<QBRint64t> all(64);
    std::vector<std::tuple<QBRint32t, QBRint32t, double>> out;
    if (i < 0) {
      QBR_getbarcsparsity(task, 64, &n, all.data());
      for (QBRint64t q = 0; q < n; ++q) {
        QBR_getbarcidx(task, all[q], 1, &gj, &num, &sub, &w);
        if (gj == j) idx = sub;
      }
    } else {
      QBR_getbarasparsity(task, 64, &n, all.data());
      for (QBRint64t q = 0; q < n; ++q) {
        QBR_getbaraidx(task, all[q], 1, &gi, &gj, &num, &sub, &w);
        if (gi == i && gj == j) idx = sub;
      }
    }
    if (idx < 0) return out;
    EXPECT_EQ(w, 1.0);
    QBRint32t dim = 0;
    QBRint64t nz = 0;
    QBR_getsymmatinfo(task, idx, &dim, &nz);
    std::vector<QBRint32t> si(nz), sj(nz);
    std::vector<double> sv(nz);
    QBR_getsparsesymmat(task, idx, nz, si.data(), sj.data(), sv.data());
    for (QBRint64t e = 0; e < nz; ++e) out.emplace_back(si[e], sj[e], sv[e]);
    std::sort(out.begin(), out.end());
    return out;
  }
};

using Entries = std::vector<std::tuple<QBRint32t, QBRint32t, double>>;

TEST_F(Cbf, EverySectionAndDomain) {
  ASSERT_EQ(read(kEverything), QBR_RES_OK) << err.text;
  ASSERT_EQ(numvar(), 22);  // 20 and one per row of the Q constraint domain
  ASSERT_EQ(numcon(), 9);   // 6 and the lower triangle of the 2x2 PSDCON block
  QBRint32t sense = -1, nbar = 0;
  double cfix = 0, c0 = 0, c4 = 0;
  QBR_getobjsense(task, &sense);
  QBR_getcfix(task, &cfix);
  QBR_getcj(task, 0, &c0);
  QBR_getcj(task, 4, &c4);
  EXPECT_EQ(sense, QBR_OBJECTIVE_SENSE_MAXIMIZE);
  EXPECT_EQ(cfix, 7.25);
  EXPECT_EQ(c0, 1.0);
  EXPECT_EQ(c4, -2.5);
  bounds(0, QBR_BK_FR, 0, 0);
  bounds(1, QBR_BK_LO, 0, 0);
  bounds(2, QBR_BK_UP, 0, 0);
  bounds(3, QBR_BK_FX, 0, 0);
  for (QBRint32t j = 4; j < 22; ++j) bounds(j, QBR_BK_FR, 0, 0);
  QBRint32t type = -1;
  QBR_getvartype(task, 1, &type);
  EXPECT_EQ(type, QBR_VAR_TYPE_INT);
  QBR_getvartype(task, 2, &type);
  EXPECT_EQ(type, QBR_VAR_TYPE_CONT);

  // Cones in variable order, the conic rows' new variables last; members in file order.
  struct Want {
    QBRint32t type, first, size;
    double par;
  };
  const Want cones[] = {{QBR_CT_QUAD, 4, 3, 0},     {QBR_CT_RQUAD, 7, 3, 0},  {QBR_CT_PEXP, 10, 3, 0},
                        {QBR_CT_DEXP, 13, 3, 0},    {QBR_CT_PPOW, 16, 2, 0.25}, {QBR_CT_DPOW, 18, 2, 0.5},
                        {QBR_CT_QUAD, 20, 2, 0}};
  QBRint32t numcone = 0;
  QBR_getnumcone(task, &numcone);
  ASSERT_EQ(numcone, 7);
  for (QBRint32t k = 0; k < numcone; ++k) {
    QBRint32t ct = -1, nm = 0, mem[8];
    double par = -1;
    QBR_getcone(task, k, &ct, &par, &nm, mem);
    EXPECT_EQ(ct, cones[k].type) << k;
    ASSERT_EQ(nm, cones[k].size) << k;
    for (QBRint32t q = 0; q < nm; ++q) EXPECT_EQ(mem[q], cones[k].first + q);
    if (ct == QBR_CT_PPOW || ct == QBR_CT_DPOW) {
      EXPECT_EQ(par, cones[k].par);
    }
  }

  // Linear rows carry -b in their bounds; conic rows are fixed at -b with -1 on t.
  bounds(0, QBR_BK_LO, 1.0, 0, false);
  bounds(1, QBR_BK_UP, 0, -4.0, false);
  bounds(2, QBR_BK_FX, 0, 0, false);
  bounds(3, QBR_BK_FR, 0, 0, false);
  bounds(4, QBR_BK_FX, 0, 0, false);
  bounds(5, QBR_BK_FX, -2.0, -2.0, false);
  EXPECT_EQ(aij(0, 1), 2.0);
  EXPECT_EQ(aij(4, 16), 1.0);
  EXPECT_EQ(aij(4, 20), -1.0);
  EXPECT_EQ(aij(5, 21), -1.0);
  EXPECT_EQ(aij(4, 21), 0.0);

  // PSDCON: H x - S = -D row by row through the lower triangle (0,0), (1,0), (1,1).
  QBR_getnumbarvar(task, &nbar);
  ASSERT_EQ(nbar, 2);
  EXPECT_EQ(aij(6, 0), 1.0);
  EXPECT_EQ(aij(7, 1), 2.0);
  bounds(6, QBR_BK_FX, 0, 0, false);
  bounds(7, QBR_BK_FX, 0, 0, false);
  bounds(8, QBR_BK_FX, -5.0, -5.0, false);
  EXPECT_EQ(bar(6, 1), (Entries{{0, 0, -1.0}}));
  EXPECT_EQ(bar(7, 1), (Entries{{1, 0, -0.5}}));
  EXPECT_EQ(bar(8, 1), (Entries{{1, 1, -1.0}}));
  // F entries as given, an upper one taken as its lower mirror.
  EXPECT_EQ(bar(-1, 0), (Entries{{0, 0, 1.5}, {1, 0, 0.5}}));
  EXPECT_EQ(bar(4, 0), (Entries{{1, 1, 3.0}}));
}

// A task read from CBF is written as the same task, plain and compressed.
TEST_F(Cbf, WrittenFileReadsBackAsTheSameTask) {
  ASSERT_EQ(read(kEverything), QBR_RES_OK) << err.text;
  for (const char* name : {"w.cbf", "w.cbf.gz", "w.cbf.zst"}) {
    SCOPED_TRACE(name);
    const std::string path = temp_path(name);
    ASSERT_EQ(QBR_writedata(task, path.c_str()), QBR_RES_OK) << err.text;
    QBRtask_t back = nullptr;
    ASSERT_EQ(QBR_maketask(env, 0, 0, &back), QBR_RES_OK);
    EXPECT_EQ(QBR_readdata(back, path.c_str()), QBR_RES_OK);
    expect_same_problem(task, back, 0.0, false);
    QBR_deletetask(&back);
  }
}

// What CBF cannot state directly: general and ranged bounds, a cone over scattered members,
// a zero cone, stored matrices that overlap. Written once, the problem comes back with extra
// rows (and variables); written again, it comes back unchanged.
TEST_F(Cbf, ExtraRowsStateWhatDomainsCannot) {
  ASSERT_EQ(QBR_appendvars(task, 6), QBR_RES_OK);
  ASSERT_EQ(QBR_appendcons(task, 2), QBR_RES_OK);
  ASSERT_EQ(QBR_putvarbound(task, 0, QBR_BK_RA, 2.0, 5.0), QBR_RES_OK);
  ASSERT_EQ(QBR_putvarbound(task, 1, QBR_BK_LO, 0.0, 1e30), QBR_RES_OK);
  ASSERT_EQ(QBR_putvarbound(task, 2, QBR_BK_FX, 3.0, 3.0), QBR_RES_OK);
  ASSERT_EQ(QBR_putvarbound(task, 3, QBR_BK_LO, 1.0, 1e30), QBR_RES_OK);
  ASSERT_EQ(QBR_putvarbound(task, 4, QBR_BK_FR, -1e30, 1e30), QBR_RES_OK);
  ASSERT_EQ(QBR_putvarbound(task, 5, QBR_BK_FR, -1e30, 1e30), QBR_RES_OK);
  ASSERT_EQ(QBR_putconbound(task, 0, QBR_BK_RA, -1.0, 4.0), QBR_RES_OK);
  ASSERT_EQ(QBR_putconbound(task, 1, QBR_BK_UP, -1e30, 0.0), QBR_RES_OK);
  ASSERT_EQ(QBR_putaij(task, 0, 0, 1.0), QBR_RES_OK);
  ASSERT_EQ(QBR_putaij(task, 0, 4, 0.1), QBR_RES_OK);
  ASSERT_EQ(QBR_putaij(task, 1, 5, -3.0), QBR_RES_OK);
  const QBRint32t scattered[] = {5, 1, 4};
  ASSERT_EQ(QBR_appendcone(task, QBR_CT_PPOW, 0.3, 3, scattered), QBR_RES_OK);
  const QBRint32t zero[] = {3};
  ASSERT_EQ(QBR_appendcone(task, QBR_CT_ZERO, 0.0, 1, zero), QBR_RES_OK);
  const QBRint32t dim[] = {2};
  ASSERT_EQ(QBR_appendbarvars(task, 1, dim), QBR_RES_OK);
  const QBRint32t si[] = {0, 1}, sj[] = {0, 0};
  const double sv[] = {1.0, 2.0};
  QBRint64t m[2];
  ASSERT_EQ(QBR_appendsparsesymmat(task, 2, 2, si, sj, sv, &m[0]), QBR_RES_OK);
  ASSERT_EQ(QBR_appendsparsesymmat(task, 2, 1, si, sj, sv, &m[1]), QBR_RES_OK);
  const double w[] = {2.0, -1.0};
  ASSERT_EQ(QBR_putbaraij(task, 0, 0, 2, m, w), QBR_RES_OK);

  const std::string first = temp_path("first.cbf"), second = temp_path("second.cbf");
  ASSERT_EQ(QBR_writedata(task, first.c_str()), QBR_RES_OK) << err.text;
  QBRtask_t back = nullptr, again = nullptr;
  ASSERT_EQ(QBR_maketask(env, 0, 0, &back), QBR_RES_OK);
  ASSERT_EQ(QBR_maketask(env, 0, 0, &again), QBR_RES_OK);
  ASSERT_EQ(QBR_readdata(back, first.c_str()), QBR_RES_OK) << read_text(first);
  // Rows: 2 own, the range twin, x0 >= 2, x0 <= 5, x2 = 3, x3 >= 1, then the cone's 3 rows
  // (x3 is in the zero cone, a VAR domain, so its bound is a row too).
  QBRint32t n = 0, mm = 0, nbar = 0;
  QBR_getnumvar(back, &n);
  QBR_getnumcon(back, &mm);
  QBR_getnumbarvar(back, &nbar);
  EXPECT_EQ(n, 9);
  EXPECT_EQ(mm, 10);
  EXPECT_EQ(nbar, 1);
  QBRint32t bk = -1;
  double bl = 0, bu = 0, a = 0;
  QBR_getconbound(back, 2, &bk, &bl, &bu);
  EXPECT_EQ(bk, QBR_BK_UP);
  EXPECT_EQ(bu, 4.0);
  QBR_getaij(back, 2, 4, &a);
  EXPECT_EQ(a, 0.1);
  QBR_getconbound(back, 3, &bk, &bl, &bu);
  EXPECT_EQ(bk, QBR_BK_LO);
  EXPECT_EQ(bl, 2.0);
  QBR_getvarbound(back, 1, &bk, &bl, &bu);
  EXPECT_EQ(bk, QBR_BK_LO);  // L+ states x1 >= 0 without a row
  QBRint32t ct = -1, nm = 0, mem[3];
  double par = 0;
  // The zero cone came back as the L= domain of x3; the scattered cone is over t6..t8.
  QBR_getcone(back, 0, &ct, &par, &nm, mem);
  EXPECT_EQ(ct, QBR_CT_PPOW);
  EXPECT_EQ(par, 0.3);
  EXPECT_EQ((std::vector<QBRint32t>(mem, mem + 3)), (std::vector<QBRint32t>{6, 7, 8}));
  ASSERT_EQ(QBR_writedata(back, second.c_str()), QBR_RES_OK);
  ASSERT_EQ(QBR_readdata(again, second.c_str()), QBR_RES_OK);
  expect_same_problem(back, again, 0.0, false);
  QBR_deletetask(&back);
  QBR_deletetask(&again);
}

// A compressed file cut short is a failed read naming the file, not a syntax error.
TEST_F(Cbf, CompressedFileCutShortFailsAsARead) {
  ASSERT_EQ(read(kEverything), QBR_RES_OK);
  const std::string path = temp_path("cut.cbf.gz");
  ASSERT_EQ(QBR_writedata(task, path.c_str()), QBR_RES_OK);
  const std::string bytes = read_text(path);
  write_text("cut.cbf.gz", bytes.substr(0, bytes.size() / 2));
  EXPECT_EQ(QBR_readdata(task, path.c_str()), QBR_RES_ERR_FILE_READ);
  EXPECT_NE(last_message().find("cut.cbf.gz"), std::string::npos) << last_message();
}

TEST_F(Cbf, QuadraticTermsAreRefused) {
  ASSERT_EQ(QBR_appendvars(task, 1), QBR_RES_OK);
  ASSERT_EQ(QBR_putqobjij(task, 0, 0, 1.0), QBR_RES_OK);
  EXPECT_EQ(QBR_writedata(task, temp_path("q.cbf").c_str()), QBR_RES_ERR_INVALID_FILE_FORMAT_FOR_NONLINEAR);
  EXPECT_EQ(last_message(), "The CBF format cannot hold nonlinear terms.");
}

struct BadFile {
  std::string text;
  QBRrescode code;
  const char* message;  // a part of the message, "" for none
};

const std::string kHead = "VER\n3\n";
const std::string kVar2 = kHead + "VAR\n2 1\nF 2\n";       // VAR on lines 3-5
const std::string kCon2 = kVar2 + "CON\n2 1\nL+ 2\n";      // CON on lines 6-8
const std::string kPow = kHead + "POWCONES\n1 2\n2\n1\n1\n";  // POWCONES on lines 3-7

TEST_F(Cbf, EveryMalformedFileHasItsCodeAndLine) {
  const std::vector<BadFile> cases = {
      {"", QBR_RES_ERR_CBF_NO_VERSION_SPECIFIED, ""},
      {"VAR\n1 1\nF 1\n", QBR_RES_ERR_CBF_NO_VERSION_SPECIFIED, ""},
      {kHead, QBR_RES_ERR_CBF_NO_VARIABLES, ""},
      {"VER\n4\n", QBR_RES_ERR_CBF_UNSUPPORTED, "'VER 4' is used in line 2"},
      {kHead + "CHANGE\n", QBR_RES_ERR_CBF_UNSUPPORTED, "line 3"},
      {kHead + "FOO\n", QBR_RES_ERR_CBF_PARSE, "line 3"},
      {kHead + "OBJSENSE\nMINIMIZE\n", QBR_RES_ERR_CBF_OBJ_SENSE, "'MINIMIZE' in line 4"},
      {kHead + "OBJSENSE\nMIN\nOBJSENSE\n", QBR_RES_ERR_CBF_DUPLICATE_OBJ, "line 5"},
      {kVar2 + "VAR\n", QBR_RES_ERR_CBF_DUPLICATE_VAR, "line 6"},
      {kCon2 + "CON\n", QBR_RES_ERR_CBF_DUPLICATE_CON, "line 9"},
      {kVar2 + "INT\n0\nINT\n", QBR_RES_ERR_CBF_DUPLICATE_INT, "line 8"},
      {kHead + "PSDVAR\n0\nPSDVAR\n", QBR_RES_ERR_CBF_DUPLICATE_PSDVAR, "line 5"},
      {kPow + "POWCONES\n", QBR_RES_ERR_CBF_DUPLICATE_POW_CONES, "line 8"},
      {kHead + "POW*CONES\n0 0\nPOW*CONES\n", QBR_RES_ERR_CBF_DUPLICATE_POW_STAR_CONES, "line 5"},
      {kHead + "VAR\n3 1\nF 2\n", QBR_RES_ERR_CBF_INVALID_DIMENSION_OF_CONES, "total dimension 2 where 3"},
      {kHead + "VAR\n2 2\nF 1\n", QBR_RES_ERR_CBF_INVALID_NUMBER_OF_CONES, "1 cones are specified where 2"},
      {kHead + "VAR\n2 1\nX 2\n", QBR_RES_ERR_CBF_INVALID_VAR_TYPE, "'X' in line 5"},
      {kVar2 + "CON\n1 1\nK 1\n", QBR_RES_ERR_CBF_INVALID_CON_TYPE, "'K' in line 8"},
      {kHead + "VAR\n2 1\nEXP 2\n", QBR_RES_ERR_CBF_INVALID_EXP_DIMENSION, "line 5 of the CBF file has dimension 2"},
      {kHead + "VAR\n1 1\nQR 1\n", QBR_RES_ERR_CBF_INVALID_DOMAIN_DIMENSION, "dimension 1 of the domain 'QR'"},
      {kHead + "VAR\n0 1\nF 0\n", QBR_RES_ERR_CBF_INVALID_DOMAIN_DIMENSION, "line 5"},
      {kVar2 + "INT\n1\n2\n", QBR_RES_ERR_CBF_INVALID_INT_INDEX, "index 2 in line 8"},
      {kVar2 + "INT\n2\n1\n", QBR_RES_ERR_CBF_TOO_FEW_INTS, "Only 1 of the declared 2"},
      {kVar2 + "INT\n1\n0 1\n", QBR_RES_ERR_CBF_TOO_MANY_INTS, "line 8"},
      {kHead + "PSDVAR\n1\n0\n", QBR_RES_ERR_CBF_INVALID_PSDVAR_DIMENSION, "dimension 0 of semidefinite variable 0 is invalid (line 5"},
      {kHead + "PSDVAR\n2\n1\n", QBR_RES_ERR_CBF_TOO_FEW_PSDVAR, "Only 1 of the declared 2"},
      {kHead + "POWCONES\n1 2\n2\n1\n-1\n", QBR_RES_ERR_CBF_INVALID_POWER, "line 7"},
      {kHead + "POWCONES\n1 2\n3\n", QBR_RES_ERR_CBF_POWER_CONE_IS_TOO_LONG, "line 5"},
      {kPow + "VAR\n2 1\n@1:POW 2\n", QBR_RES_ERR_CBF_INVALID_POWER_CONE_INDEX, "index 1 in line 10"},
      {kPow + "VAR\n2 1\n@0:POW* 2\n", QBR_RES_ERR_CBF_INVALID_POWER_STAR_CONE_INDEX, "line 10"},
      {kHead + "POWCONES\n1 3\n3\n1\n1\n1\nVAR\n3 1\n@0:POW 3\n", QBR_RES_ERR_CBF_UNHANDLED_POWER_CONE_TYPE, "power cone 0"},
      {kHead + "POW*CONES\n1 1\n1\n1\nVAR\n3 1\n@0:POW* 3\n", QBR_RES_ERR_CBF_UNHANDLED_POWER_STAR_CONE_TYPE, ""},
      {kPow + "VAR\n1 1\n@0:POW 1\n", QBR_RES_ERR_CBF_POWER_CONE_MISMATCH, "has 1 members, but its definition requires 2"},
      {kHead + "POW*CONES\n1 2\n2\n1\n1\nVAR\n1 1\n@0:POW* 1\n", QBR_RES_ERR_CBF_POWER_STAR_CONE_MISMATCH, ""},
      {kVar2 + "OBJACOORD\n2\n1 1.0\n1 2.0\n", QBR_RES_ERR_CBF_DUPLICATE_OBJACOORD, "variable 1 is specified twice (line 9"},
      {kCon2 + "BCOORD\n2\n1 1.0\n1 2.0\n", QBR_RES_ERR_CBF_DUPLICATE_BCOORD, "constraint 1 is specified twice (line 12"},
      {kCon2 + "ACOORD\n3\n1 0 1.0\n0 0 1.0\n1 0 2.0\n", QBR_RES_ERR_CBF_DUPLICATE_ACOORD, "variable 0 in constraint 1 is specified twice (line 13"},
      {kCon2 + "ACOORD\n1\n0 2 1.0\n", QBR_RES_ERR_CBF_TOO_MANY_VARIABLES, "declared 2 variables are specified (line 11"},
      {kCon2 + "ACOORD\n1\n2 0 1.0\n", QBR_RES_ERR_CBF_TOO_MANY_CONSTRAINTS, "declared 2 constraints are specified (line 11"},
      {kVar2 + "OBJACOORD\n1\n0 abc\n", QBR_RES_ERR_CBF_SYNTAX, "line 8"},
      {kVar2 + "OBJACOORD\n1\n0 nan\n", QBR_RES_ERR_CBF_SYNTAX, "line 8"},
      {kVar2 + "OBJACOORD\n2\n0 1\n", QBR_RES_ERR_CBF_SYNTAX, ""},
      {kVar2 + "OBJACOORD\n-1\n", QBR_RES_ERR_CBF_SYNTAX, "line 7"},
      {kHead + "PSDVAR\n1\n2\nOBJFCOORD\n1\n0 2 0 1.0\n", QBR_RES_ERR_CBF_SYNTAX, "line 8"},
      {kHead + "PSDVAR\n1\n2\nOBJFCOORD\n2\n0 1 0 1.0\n0 0 1 1.0\n", QBR_RES_ERR_CBF_SYNTAX, "line 9"},
      // A short file may not declare more than it could ever hold.
      {kHead + "VAR\n2000000000 1\nF 2000000000\n", QBR_RES_ERR_CBF_INVALID_DOMAIN_DIMENSION, "line 5"},
      {kVar2 + "PSDCON\n1\n100000\n", QBR_RES_ERR_CBF_INVALID_DOMAIN_DIMENSION, "100000 of the domain 'PSDCON' is invalid (line 8"},
  };
  for (const BadFile& want : cases) {
    SCOPED_TRACE(want.text);
    EXPECT_EQ(read(want.text), want.code);
    EXPECT_NE(last_message().find(want.message), std::string::npos) << last_message();
  }
}

// Every CBF file of the shared sets reads, and its written form reads back to the same task.
// Unoptimised (debug and sanitizer) builds take the files below 256 KiB compressed only: the
// whole set takes minutes there, some 16 s in a release build.
TEST_F(Cbf, EverySharedFileReadsAndRoundTrips) {
#ifdef NDEBUG
  const std::uintmax_t max_bytes = UINTMAX_MAX;
#else
  const std::uintmax_t max_bytes = std::uintmax_t{256} << 10;
#endif
  QBR_putintparam(task, QBR_IPAR_LOG, 0);
  int done = 0;
  const auto start = std::chrono::steady_clock::now();
  for (const char* set : {"dimacs", "cblib"}) {
    const std::filesystem::path dir = std::filesystem::path(QUBOR_DATA_DIR) / set;
    if (!std::filesystem::exists(dir)) GTEST_SKIP() << dir << " is not there";
    std::vector<std::string> files;
    for (const auto& e : std::filesystem::directory_iterator(dir))
      if (e.path().string().ends_with(".cbf.gz") && e.file_size() < max_bytes) files.push_back(e.path().string());
    std::sort(files.begin(), files.end());
    for (const std::string& path : files) {
      SCOPED_TRACE(path);
      ASSERT_EQ(QBR_readdata(task, path.c_str()), QBR_RES_OK) << err.text;
      const std::string out = temp_path("rt.cbf");
      ASSERT_EQ(QBR_writedata(task, out.c_str()), QBR_RES_OK) << err.text;
      QBRtask_t back = nullptr;
      ASSERT_EQ(QBR_maketask(env, 0, 0, &back), QBR_RES_OK);
      EXPECT_EQ(QBR_readdata(back, out.c_str()), QBR_RES_OK);
      expect_same_problem(task, back, 0.0, false);
      QBR_deletetask(&back);
      std::remove(out.c_str());
      ++done;
    }
  }
  const double secs = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  std::printf("%d CBF files read, written and read back in %.1f s\n", done, secs);
}

}  // namespace
