// The LP format: the writer's exact forms, the reader's grammar (synonyms, constants on both
// sides, ranged forms, bounds, integer sections, comments, quoted names), its errors, and
// round trips of real files.
#include <string>

#include "format_fixture.h"

namespace {

class Lp : public FormatTest {
 protected:
  QBRrescode read(const std::string& text) { return QBR_readlpstring(task, text.c_str()); }
  std::string written() {
    const std::string path = temp_path("w.lp");
    EXPECT_EQ(QBR_writedata(task, path.c_str()), QBR_RES_OK) << err.text;
    std::string text = read_text(path);
    return text.substr(text.find('\n') + 1);  // without the version comment
  }
  // Two variables x, y and n constraints, all named.
  void build(QBRint32t n) {
    ASSERT_EQ(QBR_appendvars(task, 2), QBR_RES_OK);
    ASSERT_EQ(QBR_appendcons(task, n), QBR_RES_OK);
    QBR_putvarname(task, 0, "x");
    QBR_putvarname(task, 1, "y");
    for (QBRint32t i = 0; i < n; ++i) {
      std::string name = "c";
      name += std::to_string(i + 1);
      QBR_putconname(task, i, name.c_str());
    }
    QBR_putvarboundsliceconst(task, 0, 2, QBR_BK_LO, 0, 1e30);
    QBR_putintparam(task, QBR_IPAR_WRITE_LP_FULL_OBJ, QBR_OFF);
  }
};

}  // namespace

TEST_F(Lp, WriterCoefficientsAndQuadraticBrackets) {
  build(1);
  QBR_putobjname(task, "obj");
  QBR_putcj(task, 0, 1.0000000000000002);
  QBR_putcj(task, 1, 1.00001);
  const QBRint32t qi[] = {0, 1}, qj[] = {0, 0};
  const double qv[] = {2.0, 1.0};
  ASSERT_EQ(QBR_putqobj(task, 2, qi, qj, qv), QBR_RES_OK);
  ASSERT_EQ(QBR_putqconk(task, 0, 2, qi, qj, qv), QBR_RES_OK);
  QBR_putaij(task, 0, 0, -1.0);
  QBR_putconbound(task, 0, QBR_BK_UP, -1e30, 5);
  EXPECT_EQ(written(),
            "minimize\n"
            "obj:  + x + 1.00001 y + [ + 2 x ^ 2 + 2 y * x ]/2\n"
            "subject to\n"
            "c1:  - x + [ + x ^ 2 + y * x ] <= 5\n"
            "bounds\n"
            "end\n");
}

TEST_F(Lp, WriterRangedFreeAndStrict) {
  build(2);
  QBR_putaij(task, 0, 0, 1);
  QBR_putaij(task, 0, 1, 1);
  QBR_putaij(task, 1, 1, 2);
  QBR_putconbound(task, 0, QBR_BK_RA, -5, 7);
  QBR_putconbound(task, 1, QBR_BK_FR, -1e30, 1e30);
  QBR_putvarbound(task, 0, QBR_BK_FR, -1e30, 1e30);
  QBR_putvarbound(task, 1, QBR_BK_RA, 1, 4);
  QBR_putvartype(task, 1, QBR_VAR_TYPE_INT);
  EXPECT_EQ(written(),
            "minimize\n\n"
            "subject to\n"
            "c1:: -5 <= + x + y <= 7\n"
            "c2:  + 2 y >= -infinity\n"
            "bounds\n"
            " x free\n"
            " 1 <= y <= 4\n"
            "general\n"
            " y\n"
            "end\n");
  QBR_putintparam(task, QBR_IPAR_WRITE_LP_STRICT_FORMAT, QBR_ON);
  EXPECT_EQ(QBR_writedata(task, temp_path("s.lp").c_str()), QBR_RES_ERR_WRITE_LP_FORMAT);
  EXPECT_EQ(last_message(), "Problem cannot be written as an LP file because of: ranged constraints.");
  QBR_putconbound(task, 0, QBR_BK_UP, -1e30, 7);
  EXPECT_EQ(QBR_writedata(task, temp_path("s.lp").c_str()), QBR_RES_ERR_WRITE_LP_FORMAT);
  EXPECT_EQ(last_message(), "Problem cannot be written as an LP file because of: free constraints.");
}

TEST_F(Lp, WriterLineBreaksAndGeneratedNames) {
  ASSERT_EQ(QBR_appendvars(task, 5), QBR_RES_OK);
  QBR_putvarboundsliceconst(task, 0, 5, QBR_BK_LO, 0, 1e30);
  for (int j = 0; j < 5; ++j) QBR_putcj(task, j, j + 1.0);
  QBR_putvarname(task, 2, "named");
  QBR_putintparam(task, QBR_IPAR_WRITE_LP_TERMS_PER_LINE, 2);
  QBR_putstrparam(task, QBR_SPAR_WRITE_LP_GEN_VAR_NAME, "v");
  EXPECT_EQ(written(),
            "minimize\n"
            " + v1 + 2 v2\n + 3 named + 4 v4\n + 5 v5\n"
            "subject to\n"
            "bounds\n"
            "end\n");
  QBR_putvarname(task, 0, "v2");  // collides with the name generated for variable 1
  EXPECT_EQ(QBR_writedata(task, temp_path("g.lp").c_str()), QBR_RES_ERR_WRITE_LP_NON_UNIQUE_NAME);
}

TEST_F(Lp, WriterRefusesNamesItCannotHold) {
  build(0);
  QBR_putvarname(task, 0, "bad name");
  QBR_putintparam(task, QBR_IPAR_WRITE_LP_QUOTED_NAMES, QBR_OFF);
  EXPECT_EQ(QBR_writedata(task, temp_path("n.lp").c_str()), QBR_RES_ERR_LP_INVALID_VAR_NAME);
  EXPECT_EQ(last_message(), "The variable name 'bad name' cannot be written to an LP formatted file.");
  QBR_putvarname(task, 0, "x");
  ASSERT_EQ(QBR_appendcons(task, 1), QBR_RES_OK);
  QBR_putconname(task, 0, "row:1");
  EXPECT_EQ(QBR_writedata(task, temp_path("n.lp").c_str()), QBR_RES_ERR_LP_INVALID_CON_NAME);
  EXPECT_EQ(last_message(), "The constraint name 'row:1' cannot be written to an LP formatted file.");
  QBR_putconname(task, 0, "c");
  QBR_putobjname(task, "max");  // a keyword is no name either
  EXPECT_EQ(QBR_writedata(task, temp_path("n.lp").c_str()), QBR_RES_ERR_LP_INVALID_CON_NAME);
  QBR_putobjname(task, "obj");
  QBR_putvarname(task, 0, "bad name");
  QBR_putintparam(task, QBR_IPAR_WRITE_LP_QUOTED_NAMES, QBR_ON);
  QBR_putcj(task, 0, 3);
  EXPECT_NE(written().find(" + 3 \"bad name\""), std::string::npos);
  QBRtask_t empty = nullptr;
  ASSERT_EQ(QBR_maketask(env, 0, 0, &empty), QBR_RES_OK);
  EXPECT_EQ(QBR_writedata(empty, temp_path("e.lp").c_str()), QBR_RES_ERR_LP_EMPTY);
  QBR_deletetask(&empty);
}

TEST_F(Lp, ReaderObjectiveAndConstraints) {
  ASSERT_EQ(read("\\ a comment line\n"
                 "maximum profit: 3 x + 2y - z + 4 \\ trailing comment\n"
                 "s.t.\n"
                 " c1: x + y <= 4\n"
                 " c2: 2 + x >= 3 - y + 1\n"
                 " -5 <= x - z <= 7\n"
                 " c4:: 8 >= y + z >= -2\n"
                 " c5: x + x + y = 10\n"
                 "end\n"),
            QBR_RES_OK)
      << err.text;
  QBRint32t sense = -1;
  QBR_getobjsense(task, &sense);
  EXPECT_EQ(sense, QBR_OBJECTIVE_SENSE_MAXIMIZE);
  char name[64];
  QBR_getobjname(task, sizeof name, name);
  EXPECT_STREQ(name, "profit");
  double c = 0, cfix = 0;
  QBR_getcj(task, 1, &c);
  EXPECT_EQ(c, 2.0);
  QBR_getcfix(task, &cfix);
  EXPECT_EQ(cfix, 4.0);
  ASSERT_EQ(numcon(), 5);
  bounds(0, QBR_BK_UP, 0, 4, false);
  bounds(1, QBR_BK_LO, 2, 0, false);  // x + y >= 2
  EXPECT_EQ(aij(1, 1), 1.0);
  bounds(2, QBR_BK_RA, -5, 7, false);
  bounds(3, QBR_BK_RA, -2, 8, false);
  bounds(4, QBR_BK_FX, 10, 10, false);
  EXPECT_EQ(aij(4, 0), 2.0);
  QBR_getconname(task, 3, sizeof name, name);
  EXPECT_STREQ(name, "c4");
}

TEST_F(Lp, ReaderBoundsAndIntegerSections) {
  ASSERT_EQ(read("min\n obj: a + b + c + d + e + f + g\nsubject to\n r: a + b >= 1\n"
                 "bounds\n a >= -inf\n -inf <= b <= 3\n c free\n d = 4\n -2 <= e\n f <= 8\n 1 <= g <= 2\n"
                 "binary\n a\ngenerals\n f g\nend\n"),
            QBR_RES_OK)
      << err.text;
  bounds(0, QBR_BK_RA, 0, 1);
  bounds(1, QBR_BK_UP, 0, 3);
  bounds(2, QBR_BK_FR, 0, 0);
  bounds(3, QBR_BK_FX, 4, 4);
  bounds(4, QBR_BK_LO, -2, 0);
  bounds(5, QBR_BK_RA, 0, 8);
  bounds(6, QBR_BK_RA, 1, 2);
  QBRint32t numint = 0;
  QBR_getnumintvar(task, &numint);
  EXPECT_EQ(numint, 3);
}

TEST_F(Lp, ReaderQuadraticTermsAndQuotedNames) {
  ASSERT_EQ(read("minimize\n obj: x + [ 2 x ^ 2 + 2 x * y ] / 2\nsubject to\n"
                 " q: \"odd name\" + [ x ^ 2 + y * x ] <= 1\nend\n"),
            QBR_RES_OK)
      << err.text;
  double v = 0;
  QBR_getqobjij(task, 0, 0, &v);
  EXPECT_EQ(v, 2.0);
  QBR_getqobjij(task, 1, 0, &v);
  EXPECT_EQ(v, 1.0);
  QBRint32t qi[3], qj[3];
  double qv[3];
  QBRint64t n = 0;
  ASSERT_EQ(QBR_getqconk(task, 0, 3, &n, qi, qj, qv), QBR_RES_OK);
  ASSERT_EQ(n, 2);
  for (int k = 0; k < 2; ++k) EXPECT_EQ(qv[k], qi[k] == qj[k] ? 2.0 : 1.0);
  char name[64];
  QBR_getvarname(task, 2, sizeof name, name);
  EXPECT_STREQ(name, "odd name");
  // An objective bracket without "/2" is read in the old format, with a warning.
  ASSERT_EQ(read("minimize\n obj: [ x ^ 2 ]\nsubject to\nend\n"), QBR_RES_OK);
  EXPECT_NE(wrn.text.find("The quadratic term ending in line 2 of the LP file is not followed by '/2'"),
            std::string::npos);
}

TEST_F(Lp, ReaderErrors) {
  EXPECT_EQ(read("minimize\n obj: x\nsubject to\n c: x >= 1\n"), QBR_RES_ERR_READ_LP_MISSING_END_TAG);
  EXPECT_EQ(last_message(), "Syntax error in LP file on line: 4. Missing End tag?");
  EXPECT_EQ(read("minimize\n obj: x\nsubject to\n c: x >= 1\n d: x y <= 2\nend\n"), QBR_RES_ERR_LP_FORMAT);
  EXPECT_EQ(last_message(), "Syntax error in an LP file at line: 5.");
  EXPECT_EQ(read("minimize\n obj: x\nsubject to\n c: x + 1\nend\n"), QBR_RES_ERR_LP_FORMAT);
  EXPECT_EQ(read("minimize\n obj: x\nsubject to\n c: x >= 1\ngeneral\n nothere\nend\n"),
            QBR_RES_ERR_READ_LP_NONEXISTING_NAME);
  EXPECT_EQ(last_message(), "The variable 'nothere' never occurred in objective or constraints.");
  // The line of a syntax error is that of the offending token, also past line breaks.
  EXPECT_EQ(read("minimize\n obj: x\nsubject to\n c: x\n + y\n\n <= 3 4\nend\n"), QBR_RES_ERR_LP_FORMAT);
  EXPECT_EQ(last_message(), "Syntax error in an LP file at line: 7.");
  EXPECT_EQ(read("minimize\n obj: x\nsubject to\n c: x >= 1\nbounds\n x >= \nend\n"), QBR_RES_ERR_LP_FORMAT);
  EXPECT_EQ(last_message(), "Syntax error in an LP file at line: 7.");
  EXPECT_EQ(read("minimize\n obj: x $ y\nend\n"), QBR_RES_ERR_LP_FORMAT);
  EXPECT_EQ(read("minimize\n obj: x + [ x ^ 3 ]/2\nend\n"), QBR_RES_ERR_LP_FORMAT);
}

TEST_F(Lp, VariablesOnlyInBounds) {
  const std::string text = "minimize\n obj: x\nsubject to\n c: x >= 1\nbounds\n y <= 5\nend\n";
  ASSERT_EQ(read(text), QBR_RES_OK);
  EXPECT_EQ(numvar(), 2);
  QBR_putintparam(task, QBR_IPAR_READ_LP_DROP_NEW_VARS_IN_BOU, QBR_ON);
  ASSERT_EQ(read(text), QBR_RES_OK);
  EXPECT_EQ(numvar(), 1);
  EXPECT_NE(wrn.text.find("The variable 'y' occurs only in the bounds section and is dropped."),
            std::string::npos);
}

TEST_F(Lp, UnlabelledConstraintsAfterANumber) {
  // A right-hand side ends with its line: the next line's "x" starts a new constraint.
  ASSERT_EQ(read("minimize\n obj: x\nsubject to\n c: x <= 10\n x + y = 2\n 3 <= x + y\n 2 x\n >= 1\nend\n"),
            QBR_RES_OK)
      << err.text;
  ASSERT_EQ(numcon(), 4);
  bounds(0, QBR_BK_UP, 0, 10, false);
  bounds(1, QBR_BK_FX, 2, 2, false);
  bounds(2, QBR_BK_LO, 3, 0, false);
  bounds(3, QBR_BK_LO, 1, 0, false);
  EXPECT_EQ(aij(3, 0), 2.0);
  // The writer's empty row ("0 <= 2") ends with its line too (found by fuzzing).
  ASSERT_EQ(read("minimize\n obj: x\nsubject to\n r: 0 <= 2\n - x - 3 y >= -infinity\nend\n"), QBR_RES_OK)
      << err.text;
  ASSERT_EQ(numcon(), 2);
  bounds(0, QBR_BK_UP, 0, 2, false);
  bounds(1, QBR_BK_FR, 0, 0, false);
  EXPECT_EQ(aij(1, 1), -3.0);
  // What the writer makes of nameless and empty constraints reads back the same.
  ASSERT_EQ(read("minimize\n obj: x\nsubject to\n c: x <= 10\n x + y = 2\n 3 <= x + y\n 2 x\n >= 1\nend\n"),
            QBR_RES_OK);
  ASSERT_EQ(QBR_appendcons(task, 2), QBR_RES_OK);
  QBR_putconbound(task, 4, QBR_BK_UP, -1e30, 2);
  QBR_putconbound(task, 5, QBR_BK_FR, -1e30, 1e30);
  QBR_putaij(task, 5, 1, -3);
  QBRtask_t other = nullptr;
  ASSERT_EQ(QBR_maketask(env, 0, 0, &other), QBR_RES_OK);
  for (QBRint32t i = 0; i < 6; ++i) QBR_putconname(task, i, i == 4 ? "empty" : "");
  const std::string path = temp_path("nameless.lp");
  ASSERT_EQ(QBR_writedata(task, path.c_str()), QBR_RES_OK);
  ASSERT_EQ(QBR_readdata(other, path.c_str()), QBR_RES_OK) << read_text(path);
  expect_same_problem(task, other, 0.0);
  QBR_deletetask(&other);
}

TEST_F(Lp, EmptyQuotedNameFirst) {
  // An empty quoted name as the very first text (found by fuzzing).
  QBR_putintparam(task, QBR_IPAR_READ_LP_QUOTED_NAMES, QBR_ON);
  EXPECT_EQ(read("\"\"minimize\n obj: x\nsubject to\nend\n"), QBR_RES_ERR_LP_FORMAT);
}

TEST_F(Lp, TextEndingInASectionWordAtEveryLength) {
  // "subject" as the last word: telling it from the section reads past the end of the text
  // while the token is in hand (found by fuzzing; the sanitizer build checks that the token
  // stays valid, whatever the number of tokens before it).
  std::string terms = "x0";
  for (int n = 1; n < 300; ++n) {
    terms += " + x" + std::to_string(n);
    EXPECT_EQ(read("minimize\n obj: " + terms + " subject"), QBR_RES_ERR_LP_FORMAT) << n;
    EXPECT_EQ(read("minimize\n obj: " + terms + "\nsubject\nto\n c: x0 >= 1\nend\n"), QBR_RES_OK) << n;
  }
}
