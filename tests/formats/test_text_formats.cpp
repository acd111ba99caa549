// PTF and OPF: exact round trips of tasks with every kind of item, the write switches, the
// errors of bad texts with their positions, and real models.
#include <cmath>
#include <cstring>
#include <string>

#include "formats/task_fixture.h"

namespace {

class TextFormats : public TwoTaskTest {
 protected:
  // Writes `task` to `name` and returns the text.
  std::string written(const char* name) {
    const std::string p = temp_path(name);
    EXPECT_EQ(QBR_writedata(task, p.c_str()), QBR_RES_OK) << err.text;
    return read_text(p);
  }
  // The problem of `task` and `other` agree bit for bit, the matrix store included.
  void expect_same_model(bool store = true) {
    expect_same_problem(task, other, 0.0);
    char na[1024] = {0}, nb[1024] = {0};
    QBR_gettaskname(task, sizeof na, na);
    QBR_gettaskname(other, sizeof nb, nb);
    EXPECT_STREQ(na, nb);
    const qubor::task::Problem& a = task->impl->problem;
    const qubor::task::Problem& b = other->impl->problem;
    for (int32_t k = 0; k < a.cone_names.size(); ++k) EXPECT_EQ(a.cone_names.get(k), b.cone_names.get(k));
    ASSERT_EQ(a.cones.cones.size(), b.cones.cones.size());
    for (size_t k = 0; k < a.cones.cones.size(); ++k) {
      EXPECT_EQ(a.cones.cones[k].type, b.cones.cones[k].type);
      EXPECT_TRUE(same_bits(a.cones.cones[k].par, b.cones.cones[k].par));
    }
    if (!store) return;
    ASSERT_EQ(a.symmats.mats.size(), b.symmats.mats.size());
    expect_same_doubles({a.symmats.val.begin(), a.symmats.val.end()}, {b.symmats.val.begin(), b.symmats.val.end()},
                        "store");
    ASSERT_EQ(a.barc.terms.size(), b.barc.terms.size());
    ASSERT_EQ(a.bara.terms.size(), b.bara.terms.size());
  }
  // The message of other's last error.
  std::string message() { return other_message(); }
};

TEST_F(TextFormats, PtfEveryItemRoundTripsExactly) {
  fill_every_item(task);
  const std::string text = written("all.ptf");
  ASSERT_EQ(QBR_readptfstring(other, text.c_str()), QBR_RES_OK) << other_err.text << "\n" << text;
  expect_same_model();
  // Written again, the text is the same: reader and writer are inverses.
  const std::string p = temp_path("again.ptf");
  ASSERT_EQ(QBR_writedata(other, p.c_str()), QBR_RES_OK);
  EXPECT_EQ(read_text(p), text);
  // Read twice into the same task, the matrix store does not grow.
  ASSERT_EQ(QBR_readptfstring(other, text.c_str()), QBR_RES_OK);
  QBRint64t stored = 0;
  QBR_getnumsymmat(other, &stored);
  EXPECT_EQ(stored, 3);
  // A PTF file is written (also compressed) but read only from a string.
  for (const char* name : {"all.ptf.gz", "all.ptf.zst"}) {
    const std::string q = temp_path(name);
    ASSERT_EQ(QBR_writedata(task, q.c_str()), QBR_RES_OK) << name;
  }
  EXPECT_EQ(QBR_readdata(other, p.c_str()), QBR_RES_ERR_READ_FORMAT);
}

TEST_F(TextFormats, PtfTransformOffWritesEachCoefficientInline) {
  fill_every_item(task);
  QBR_putintparam(task, QBR_IPAR_PTF_WRITE_TRANSFORM, 0);
  const std::string text = written("inline.ptf");
  EXPECT_EQ(text.find("MATRICES"), std::string::npos);
  EXPECT_NE(text.find("[3: "), std::string::npos);
  ASSERT_EQ(QBR_readptfstring(other, text.c_str()), QBR_RES_OK) << other_err.text << "\n" << text;
  // The same problem; the weighted sums were worked out, so only to rounding.
  expect_same_problem(task, other, 1e-15);
}

TEST_F(TextFormats, EmptyTaskAndHandWrittenTexts) {
  for (const char* name : {"e.ptf", "e.opf"}) {
    const std::string text = written(name);
    QBR_appendvars(other, 3);
    const QBRrescode r = name[2] == 'p' ? QBR_readptfstring(other, text.c_str()) : QBR_readopfstring(other, text.c_str());
    ASSERT_EQ(r, QBR_RES_OK) << text << other_err.text;
    expect_same_problem(task, other, 0.0);
  }
  const char* ptf = R"(PTF 1  # a comment
VARIABLES
  x >= 0   y in [-1, 2.5] integer
  "z 1" free
OBJECTIVE maximize profit
  3 x - 2 y + 0.5 x * x + 7
CONSTRAINTS
  c1: x + y + "z 1" <= 4
  _: - x + 2 y == 1
CONES
  k quad (z 1)
)";
  // "z 1" unquoted is two names: the cone line is an error at the 'z'.
  EXPECT_EQ(QBR_readptfstring(other, ptf), QBR_RES_ERR_PTF_FORMAT);
  EXPECT_NE(message().find("line 11, column 11"), std::string::npos) << message();
  std::string fixed = ptf;
  fixed.replace(fixed.find("(z 1)"), 5, "(\"z 1\", @0)");
  ASSERT_EQ(QBR_readptfstring(other, fixed.c_str()), QBR_RES_OK) << other_err.text;
  QBRint32t n = 0, m = 0, type = 0, bk = 0, sense = 0;
  double c0 = 0, cfix = 0, bl = 0, bu = 0;
  QBR_getnumvar(other, &n);
  QBR_getnumcon(other, &m);
  EXPECT_EQ(n, 3);
  EXPECT_EQ(m, 2);
  QBR_getvartype(other, 1, &type);
  EXPECT_EQ(type, QBR_VAR_TYPE_INT);
  QBR_getcj(other, 0, &c0);
  EXPECT_EQ(c0, 3.0);
  QBR_getcfix(other, &cfix);
  EXPECT_EQ(cfix, 7.0);
  QBR_getobjsense(other, &sense);
  EXPECT_EQ(sense, QBR_OBJECTIVE_SENSE_MAXIMIZE);
  QBR_getconbound(other, 1, &bk, &bl, &bu);
  EXPECT_EQ(bk, QBR_BK_FX);
  EXPECT_EQ(bl, 1.0);
  double q = 0;
  QBR_getqobjij(other, 0, 0, &q);
  EXPECT_EQ(q, 0.5);
}

// The examples of the format descriptions read as they stand.
TEST_F(TextFormats, DocumentedExamplesRead) {
  for (const char* doc : {"ptf.md", "opf.md"}) {
    const std::string md = read_text(std::string(QUBOR_DOCS_DIR) + "/" + doc);
    const size_t b = md.find("## Example\n\n```\n") + 16, e = md.find("```", b);
    ASSERT_LT(e, md.size()) << doc;
    const std::string example = md.substr(b, e - b);
    const QBRrescode r =
        doc[0] == 'p' ? QBR_readptfstring(other, example.c_str()) : QBR_readopfstring(other, example.c_str());
    EXPECT_EQ(r, QBR_RES_OK) << doc << "\n" << example << other_err.text;
  }
}

// Each bad text gives its code, and the syntax errors name line and column.
TEST_F(TextFormats, BadTextsGiveTheirErrors) {
  const struct {
    bool ptf;
    const char* text;
    QBRrescode code;
    const char* message;
  } cases[] = {
      {true, "", QBR_RES_ERR_PTF_FORMAT, "line 0, column 1: 'PTF' is expected"},
      {true, "PTF 2", QBR_RES_ERR_PTF_FORMAT, "line 1, column 5: an integer from 1 to 1"},
      {true, "PTF 1\nVARIABLES\n x >= 1e999", QBR_RES_ERR_PTF_FORMAT, "line 3, column 7: the number 1e999 is too large"},
      {true, "PTF 1\nVARIABLES\n x >= 1.2.3", QBR_RES_ERR_PTF_FORMAT, "'1.2.3' is not a number"},
      {true, "PTF 1\nVARIABLES\n x >= 0\nVARIABLES", QBR_RES_ERR_PTF_FORMAT, "line 4, column 1: the section VARIABLES is given twice"},
      {true, "PTF 1\nVARIABLES\n x\n", QBR_RES_ERR_PTF_FORMAT, "a bound is expected"},
      {true, "PTF 1\nVARIABLES x free\nOBJECTIVE minimize 1 y", QBR_RES_ERR_PTF_FORMAT,
       "line 3, column 22: the variable 'y' is not declared"},
      {true, "PTF 1\nVARIABLES x free\nOBJECTIVE minimize 1 x + 2 x", QBR_RES_ERR_PTF_FORMAT, "occurs twice"},
      {true, "PTF 1\nVARIABLES x free\nCONSTRAINTS c: 1 x + 3 free", QBR_RES_ERR_PTF_FORMAT,
       "a variable is expected after the coefficient"},
      {true, "PTF 1\nVARIABLES x free\nCONES k cube (x)", QBR_RES_ERR_PTF_FORMAT, "a cone type is expected"},
      {true, "PTF 1\nVARIABLES x free\nCONES k pexp (x)", QBR_RES_ERR_CONE_SIZE, nullptr},
      {true, "PTF 1\nVARIABLES x free\nCONES k ppow 1.5 (x)", QBR_RES_ERR_CONE_PARAMETER, nullptr},
      {true, "PTF 1\nVARIABLES \"x\\q\" free", QBR_RES_ERR_PTF_FORMAT, "unknown escape"},
      {true, "PTF 1\nVARIABLES \"x free", QBR_RES_ERR_PTF_FORMAT, "not closed"},
      {true, "PTF 1\nVARIABLES x free\nOBJECTIVE minimize 1 @1", QBR_RES_ERR_PTF_FORMAT, "there is no variable @1"},
      {true, "PTF 1\nMATRICES $1 2: 0 0 1", QBR_RES_ERR_PTF_FORMAT, "$0 is expected"},
      {true, "PTF 1\nMATRICES $0 2: 0 1 1", QBR_RES_ERR_PTF_FORMAT, "above the diagonal"},
      {true, "PTF 1\nMATRICES $0 2: 2 0 1", QBR_RES_ERR_PTF_FORMAT, "an integer from 0 to 1"},
      {true, "PTF 1\nMATRIXVARIABLES X 2\nMATRICES $0 3: 0 0 1\nOBJECTIVE minimize <1 $0, X>", QBR_RES_ERR_INVALID_SYM_MAT_DIM,
       nullptr},
      {true, "PTF 1\nMATRIXVARIABLES X 2\nOBJECTIVE minimize <1 $0, X>", QBR_RES_ERR_PTF_FORMAT, "no stored matrix $0"},
      {true, "PTF 1\nVARIABLES x ==", QBR_RES_ERR_PTF_FORMAT, "line 2, column 15: a number is expected"},
      {true, "PTF 1\nVARIABLES x in [2, 1]", QBR_RES_OK, nullptr},
      {true, "PTF 1\nVARIABLES x == 1e30", QBR_RES_ERR_INFINITE_BOUND, nullptr},
      {true, "PTF 1\nVARIABLES x\xc3\xa9 free", QBR_RES_ERR_PTF_FORMAT, "unexpected character"},
      {false, "OPF 1;\nvar x free;\ncon c: 1 x + 1 y <= 1;", QBR_RES_ERR_OPF_NEW_VARIABLE,
       "The undeclared variable 'y' is used in line 3 of the OPF file."},
      {false, "OPF 1;\nvar x free;\ncon c: 1 x", QBR_RES_ERR_OPF_PREMATURE_EOF, "The OPF file ended unexpectedly in line 3."},
      {false, "OPF 1;\nvar x free\n", QBR_RES_ERR_OPF_PREMATURE_EOF, nullptr},
      {false, "OPF 1;\nvar x free;\nminimize: 1 x;\nmaximize: 2 x;", QBR_RES_ERR_OPF_FORMAT,
       "line 4, column 1: the objective is given twice"},
      {false, "OPF 1;\nparam QBR_IPAR_NOT_THERE = 1;", QBR_RES_ERR_OPF_FORMAT, "is not a parameter"},
      {false, "OPF 1;\nparam QBR_IPAR_LOG = 1.5;", QBR_RES_ERR_OPF_FORMAT, "an integer value is expected"},
      {false, "OPF 1;\nvar x free;\nsolution interior { var x sk=BAS xx=1; }\nvar y free;", QBR_RES_ERR_OPF_FORMAT,
       "the problem is declared before the solutions"},
      {false, "OPF 1;\nvar x free;\nsolution interior { var x sk=NOPE; }", QBR_RES_ERR_OPF_FORMAT, "a status name"},
      {false, "OPF 1;\nvar x free;\nsolution interior { var x y=1; }", QBR_RES_ERR_OPF_FORMAT,
       "'y' is not a value of a var"},
      {false, "OPF 1;\nvar x free;\ncon c: 1 x + <1 $0, X> free;", QBR_RES_ERR_OPF_FORMAT, "matrix variables have no place"},
  };
  for (const auto& c : cases) {
    const QBRrescode r = c.ptf ? QBR_readptfstring(other, c.text) : QBR_readopfstring(other, c.text);
    EXPECT_EQ(r, c.code) << c.text << "\n" << message();
    if (c.message) {
      EXPECT_NE(message().find(c.message), std::string::npos) << c.text << "\n" << message();
    }
  }
}

TEST_F(TextFormats, OpfEveryItemRoundTripsWithParametersAndSolutions) {
  fill_every_item(task);
  // Matrix variables have no place in OPF.
  const std::string refused = temp_path("all.opf");
  EXPECT_EQ(QBR_writedata(task, refused.c_str()), QBR_RES_ERR_INVALID_FILE_FORMAT_FOR_SYM_MAT);
  QBR_putintparam(task, QBR_IPAR_WRITE_IGNORE_INCOMPATIBLE_ITEMS, 1);
  const std::string text = written("dropped.opf");
  EXPECT_EQ(text.find('$'), std::string::npos);
  EXPECT_EQ(text.find("[3:"), std::string::npos);
  QBRint32t numbarvar = 2;
  ASSERT_EQ(QBR_readopfstring(other, text.c_str()), QBR_RES_OK) << other_err.text << "\n" << text;
  QBR_getnumbarvar(other, &numbarvar);
  EXPECT_EQ(numbarvar, 0);

  // Without the matrix variables: the whole task with its parameters and solutions.
  const QBRint32t both[] = {0, 1};
  ASSERT_EQ(QBR_removebarvars(task, 2, both), QBR_RES_OK);
  QBR_putintparam(task, QBR_IPAR_OPF_WRITE_PARAMETERS, 1);
  QBR_putintparam(task, QBR_IPAR_OPF_WRITE_SOLUTIONS, 1);
  for (const char* name : {"all.opf", "all.opf.gz", "all.opf.zst"}) {
    const std::string p = temp_path(name);
    ASSERT_EQ(QBR_writedata(task, p.c_str()), QBR_RES_OK) << name;
    QBRtask_t fresh = nullptr;
    ASSERT_EQ(QBR_maketask(env, 0, 0, &fresh), QBR_RES_OK);
    ASSERT_EQ(QBR_readdata(fresh, p.c_str()), QBR_RES_OK) << name;
    std::swap(fresh, other);
    expect_same_model(false);
    expect_same_task(task, other, true, false);
    std::swap(fresh, other);
    QBR_deletetask(&fresh);
  }
  // Written again from what was read, the text is the same.
  const std::string once = written("once.opf");
  ASSERT_EQ(QBR_readopfstring(other, once.c_str()), QBR_RES_OK);
  const std::string p = temp_path("twice.opf");
  ASSERT_EQ(QBR_writedata(other, p.c_str()), QBR_RES_OK);
  EXPECT_EQ(read_text(p), once);
}

TEST_F(TextFormats, OpfSwitchesChooseTheParts) {
  fill_every_item(task);
  const QBRint32t both[] = {0, 1};
  ASSERT_EQ(QBR_removebarvars(task, 2, both), QBR_RES_OK);
  const auto has = [](const std::string& s, const char* what) { return s.find(what) != std::string::npos; };
  std::string s = written("default.opf");
  EXPECT_TRUE(has(s, "# Written by qubor"));
  EXPECT_TRUE(has(s, "hint numvar 22;"));
  EXPECT_TRUE(has(s, "var \"x with blanks\" >= "));
  EXPECT_FALSE(has(s, "param "));
  EXPECT_FALSE(has(s, "solution "));
  QBR_putintparam(task, QBR_IPAR_OPF_WRITE_HEADER, 0);
  QBR_putintparam(task, QBR_IPAR_OPF_WRITE_HINTS, 0);
  QBR_putintparam(task, QBR_IPAR_OPF_WRITE_PROBLEM, 0);
  QBR_putintparam(task, QBR_IPAR_OPF_WRITE_PARAMETERS, 1);
  QBR_putintparam(task, QBR_IPAR_OPF_WRITE_SOLUTIONS, 1);
  QBR_putintparam(task, QBR_IPAR_OPF_WRITE_SOL_BAS, 0);
  s = written("parts.opf");
  EXPECT_FALSE(has(s, "#"));
  EXPECT_FALSE(has(s, "hint"));
  EXPECT_FALSE(has(s, "\nvar "));
  EXPECT_TRUE(has(s, "param QBR_IPAR_INTPNT_MAX_ITERATIONS = 77;"));
  EXPECT_TRUE(has(s, "param QBR_IPAR_OPF_WRITE_HEADER = 0;"));
  EXPECT_TRUE(has(s, "solution interior {"));
  EXPECT_TRUE(has(s, "solution integer {"));
  EXPECT_FALSE(has(s, "solution basic {"));
  // Line length: no line of the problem is longer than asked, unless one term is.
  QBR_putintparam(task, QBR_IPAR_OPF_WRITE_PROBLEM, 1);
  QBR_putintparam(task, QBR_IPAR_OPF_WRITE_SOLUTIONS, 0);
  QBR_putintparam(task, QBR_IPAR_OPF_WRITE_LINE_LENGTH, 40);
  s = written("short.opf");
  size_t start = 0, longest = 0;
  for (size_t e = s.find('\n'); e != std::string::npos; start = e + 1, e = s.find('\n', start))
    if (s.compare(start, 5, "param") != 0) longest = std::max(longest, e - start);
  EXPECT_LE(longest, 48u) << s;
  ASSERT_EQ(QBR_readopfstring(other, s.c_str()), QBR_RES_OK) << other_err.text;
  expect_same_problem(task, other, 0.0);
}

// One small model of each set, after a solve for OPF's solutions.
TEST_F(TextFormats, RealModelsRoundTrip) {
  for (const char* model : {"netlib-lp/afiro.mps.gz", "maros-meszaros/HS35.qps.gz", "cblib/2x3_3bars.cbf.gz",
                            "miplib/p0033.mps.gz", "dimacs/hinf12.cbf.gz"}) {
    SCOPED_TRACE(model);
    const std::string path = std::string(QUBOR_DATA_DIR) + "/" + model;
    ASSERT_EQ(QBR_readdata(task, path.c_str()), QBR_RES_OK) << err.text;
    QBR_putintparam(task, QBR_IPAR_LOG, 0);
    QBR_putintparam(task, QBR_IPAR_OPF_WRITE_SOLUTIONS, 1);
    if (std::strstr(model, "afiro")) {
      QBRrescode trm = 0;
      ASSERT_EQ(QBR_optimizetrm(task, &trm), QBR_RES_OK);
    }
    const std::string ptf = written("real.ptf");
    ASSERT_EQ(QBR_readptfstring(other, ptf.c_str()), QBR_RES_OK) << other_err.text;
    expect_same_model();
    QBRint32t numbarvar = 0;
    QBR_getnumbarvar(task, &numbarvar);
    if (numbarvar > 0) continue;
    const std::string opf = written("real.opf");
    ASSERT_EQ(QBR_readopfstring(other, opf.c_str()), QBR_RES_OK) << other_err.text;
    expect_same_model();
    expect_same_task(task, other, false, false);
  }
}

}  // namespace
