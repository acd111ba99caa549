// Solution files: the column layout and precisions, the switches that leave blocks out, and
// reading a written file back.
#include <string>
#include <vector>

#include "format_fixture.h"

namespace {

class SolutionFile : public FormatTest {
 protected:
  void SetUp() override {
    FormatTest::SetUp();
    ASSERT_EQ(QBR_appendvars(task, 2), QBR_RES_OK);
    ASSERT_EQ(QBR_appendcons(task, 2), QBR_RES_OK);
    QBR_puttaskname(task, "SOLTEST");
    QBR_putobjname(task, "cost");
    QBR_putvarname(task, 0, "x");
    QBR_putvarname(task, 1, "longer_name");
    QBR_putconname(task, 0, "c1");
    QBR_putconname(task, 1, "c2");
    QBR_putvarbound(task, 0, QBR_BK_LO, 0, 1e30);
    QBR_putvarbound(task, 1, QBR_BK_RA, -1, 2);
    QBR_putconbound(task, 0, QBR_BK_UP, -1e30, 4);
    QBR_putconbound(task, 1, QBR_BK_FX, 1, 1);
    QBR_putcj(task, 0, 1);
    QBR_putaij(task, 0, 0, 1);
    QBR_putaij(task, 1, 1, 1);
    const QBRint32t skc[] = {QBR_SK_UPR, QBR_SK_FIX}, skx[] = {QBR_SK_BAS, QBR_SK_LOW}, skn[] = {0};
    const double xc[] = {4, 1}, xx[] = {4, 1}, y[] = {-1, 0.5}, slc[] = {0, 0.5}, suc[] = {1, 0},
                 slx[] = {0, 0.25}, sux[] = {0, 0}, snx[] = {0, 0};
    ASSERT_EQ(QBR_putsolution(task, QBR_SOL_BAS, skc, skx, skn, xc, xx, y, slc, suc, slx, sux, snx),
              QBR_RES_OK);
  }
  std::string written(const char* name = "s.sol") {
    const std::string path = temp_path(name);
    EXPECT_EQ(QBR_writesolution(task, QBR_SOL_BAS, path.c_str()), QBR_RES_OK) << err.text;
    return read_text(path);
  }
};

}  // namespace

TEST_F(SolutionFile, LayoutAndPrecisions) {
  const std::string text = written();
  EXPECT_EQ(text.substr(0, text.find("PRIMAL OBJECTIVE")),
            "NAME                : SOLTEST\n"
            "PROBLEM STATUS      : " +
                text.substr(
                    text.find("PROBLEM STATUS      : ") + 22,
                    text.find('\n', text.find("PROBLEM STATUS")) - text.find("PROBLEM STATUS      : ") - 22) +
                "\n"
                "SOLUTION STATUS     : " +
                text.substr(text.find("SOLUTION STATUS     : ") + 22,
                            text.find('\n', text.find("SOLUTION STATUS")) -
                                text.find("SOLUTION STATUS     : ") - 22) +
                "\nOBJECTIVE NAME      : cost\n");
  EXPECT_NE(text.find("PRIMAL OBJECTIVE    : 4.00000000e+00    \n"), std::string::npos) << text;
  EXPECT_NE(
      text.find(
          "\nCONSTRAINTS\nINDEX      NAME AT ACTIVITY                 LOWER LIMIT        UPPER LIMIT        "
          "DUAL LOWER               DUAL UPPER              \n"),
      std::string::npos)
      << text;
  EXPECT_NE(text.find("0          c1   UL 4.00000000000000e+00     NONE               4.00000000e+00     "
                      "0.00000000000000e+00     1.00000000000000e+00    \n"),
            std::string::npos)
      << text;
  EXPECT_NE(text.find("\nVARIABLES\nINDEX      NAME        AT ACTIVITY"), std::string::npos) << text;
  EXPECT_NE(
      text.find("0          x           BS 4.00000000000000e+00     0.00000000e+00     NONE              "),
      std::string::npos)
      << text;
  EXPECT_NE(
      text.find("1          longer_name LL 1.00000000000000e+00     -1.00000000e+00    2.00000000e+00    "),
      std::string::npos)
      << text;
}

TEST_F(SolutionFile, SwitchesLeaveBlocksOut) {
  const std::string full = written();
  QBR_putintparam(task, QBR_IPAR_WRITE_SOL_CONSTRAINTS, QBR_OFF);
  const std::string no_cons = written();
  EXPECT_EQ(no_cons.find("CONSTRAINTS"), std::string::npos);
  const size_t vars = full.find("\nVARIABLES");
  EXPECT_EQ(no_cons.substr(no_cons.find("\nVARIABLES")), full.substr(vars));
  QBR_putintparam(task, QBR_IPAR_WRITE_SOL_HEAD, QBR_OFF);
  QBR_putintparam(task, QBR_IPAR_WRITE_SOL_VARIABLES, QBR_OFF);
  EXPECT_EQ(written(), "");
}

TEST_F(SolutionFile, ReadsBackWhatWasWritten) {
  const std::string path = temp_path("back.sol.gz");
  ASSERT_EQ(QBR_writesolution(task, QBR_SOL_BAS, path.c_str()), QBR_RES_OK);
  ASSERT_EQ(QBR_deletesolution(task, QBR_SOL_BAS), QBR_RES_OK);
  ASSERT_EQ(QBR_readsolution(task, QBR_SOL_BAS, path.c_str()), QBR_RES_OK) << err.text;
  double xx[2], slc[2], suc[2];
  QBRint32t skx[2];
  QBR_getxx(task, QBR_SOL_BAS, xx);
  QBR_getskx(task, QBR_SOL_BAS, skx);
  QBR_getslc(task, QBR_SOL_BAS, slc);
  QBR_getsuc(task, QBR_SOL_BAS, suc);
  EXPECT_EQ(xx[0], 4.0);
  EXPECT_EQ(xx[1], 1.0);
  EXPECT_EQ(skx[0], QBR_SK_BAS);
  EXPECT_EQ(skx[1], QBR_SK_LOW);
  EXPECT_EQ(slc[1], 0.5);
  EXPECT_EQ(suc[0], 1.0);
}

TEST_F(SolutionFile, UnknownNamesAndBrokenLines) {
  std::string text = written();
  std::string renamed = text;
  renamed.replace(renamed.find(" c2 "), 4, " zz ");
  const std::string bad = write_text("bad.sol", renamed);
  EXPECT_EQ(QBR_readsolution(task, QBR_SOL_BAS, bad.c_str()), QBR_RES_ERR_INVALID_NAME_IN_SOL_FILE);
  EXPECT_EQ(last_message(), "The name 'zz' in the solution file does not occur in the task.");
  std::string broken = text;
  broken.insert(broken.find("\nVARIABLES"), "\n2          c3   XX garbage");
  broken.insert(broken.size(), "9          y    BS notanumber\n");
  const std::string path = write_text("broken.sol", broken);
  wrn.text.clear();
  EXPECT_EQ(QBR_readsolution(task, QBR_SOL_BAS, path.c_str()), QBR_RES_OK);
  EXPECT_NE(
      wrn.text.find("One or more lines in the constraint section were ignored when reading a solution file."),
      std::string::npos);
  EXPECT_NE(
      wrn.text.find("One or more lines in the variable section were ignored when reading a solution file."),
      std::string::npos);
}

TEST_F(SolutionFile, RowsWithTooManyFields) {
  // Extra fields past the conic dual are ignored, with and without a fixed name width.
  std::string text = written();
  const size_t heading_end = text.find('\n', text.find("\nVARIABLES") + 1);
  const size_t row_end = text.find('\n', text.find('\n', heading_end + 1) + 1);  // past the column header
  std::string longer = text;
  longer.insert(row_end, " 1 2 3 4 5 6 7 8 9 10 11 12");
  const std::string path = write_text("long.sol", longer);
  for (int width : {-1, 10}) {
    QBR_putintparam(task, QBR_IPAR_SOL_READ_NAME_WIDTH, width);
    wrn.text.clear();
    EXPECT_EQ(QBR_readsolution(task, QBR_SOL_BAS, path.c_str()), QBR_RES_OK) << width;
    // Blank-separated, the row is read, not ignored (a width that does not fit the file's
    // name column makes other rows unreadable).
    if (width < 0) {
      EXPECT_EQ(wrn.text, "");
    }
  }
}

TEST_F(SolutionFile, MissingFileNameWarns) {
  EXPECT_EQ(QBR_writesolution(task, QBR_SOL_ITR, nullptr), QBR_RES_OK);
  EXPECT_NE(wrn.text.find("No file name is defined for the interior solution file, so it is not written."),
            std::string::npos);
}
