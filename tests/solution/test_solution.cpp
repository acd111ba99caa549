// The solution items through the C API: definition, accessors and writers with their checks,
// the integer item's missing duals, deletion, status texts, and solutions following the
// problem's dimensions.
#include <string>
#include <vector>

#include "api/fixture.h"

namespace {

class SolutionTest : public TaskTest {
 protected:
  void SetUp() override {
    TaskTest::SetUp();
    ASSERT_EQ(QBR_appendcons(task, 2), QBR_RES_OK);
    ASSERT_EQ(QBR_appendvars(task, 3), QBR_RES_OK);
  }
  bool defined(int which) {
    QBRbooleant d = -1;
    EXPECT_EQ(QBR_solutiondef(task, which, &d), QBR_RES_OK);
    return d != 0;
  }
};

TEST_F(SolutionTest, WhichsolAndUndefinedItems) {
  double xx[3];
  EXPECT_EQ(QBR_getxx(task, 3, xx), QBR_RES_ERR_INVALID_WHICHSOL);
  EXPECT_EQ(last_message(), "whichsol is invalid.");
  EXPECT_EQ(QBR_getxx(task, QBR_SOL_ITR, xx), QBR_RES_ERR_UNDEF_SOLUTION);
  EXPECT_EQ(last_message(), "The required solution is not defined.");
  QBRbooleant d = 7;
  EXPECT_EQ(QBR_solutiondef(task, 5, &d), QBR_RES_ERR_INVALID_WHICHSOL);
  EXPECT_EQ(d, 0);
  EXPECT_EQ(QBR_deletesolution(task, QBR_SOL_BAS), QBR_RES_OK);
}

TEST_F(SolutionTest, WriterCreatesTheItemWithUnknownStatus) {
  const double xx[] = {1, 2, 3};
  ASSERT_EQ(QBR_putxx(task, QBR_SOL_BAS, xx), QBR_RES_OK);
  EXPECT_TRUE(defined(QBR_SOL_BAS));
  QBRint32t solsta = -1;
  ASSERT_EQ(QBR_getsolsta(task, QBR_SOL_BAS, &solsta), QBR_RES_OK);
  EXPECT_EQ(solsta, QBR_SOL_STA_UNKNOWN);
  std::vector<double> xc(2, -1.0);
  ASSERT_EQ(QBR_getxc(task, QBR_SOL_BAS, xc.data()), QBR_RES_OK);
  EXPECT_EQ(xc, (std::vector<double>{0, 0}));
  double part[2];
  ASSERT_EQ(QBR_getxxslice(task, QBR_SOL_BAS, 1, 3, part), QBR_RES_OK);
  EXPECT_EQ(part[0], 2.0);
  EXPECT_EQ(QBR_getxxslice(task, QBR_SOL_BAS, 2, 4, part), QBR_RES_ERR_LAST);
  ASSERT_EQ(QBR_deletesolution(task, QBR_SOL_BAS), QBR_RES_OK);
  EXPECT_FALSE(defined(QBR_SOL_BAS));
}

TEST_F(SolutionTest, StatusKeysAreCheckedBeforeCopying) {
  const QBRint32t skc[] = {QBR_SK_BAS, 7};
  EXPECT_EQ(QBR_putskc(task, QBR_SOL_ITR, skc), QBR_RES_ERR_INV_SKC);
  EXPECT_EQ(last_message(), "Invalid value in skc encountered. skc[1] = 7.");
  EXPECT_FALSE(defined(QBR_SOL_ITR));
  const QBRint32t skx[] = {QBR_SK_LOW, QBR_SK_UPR, -1};
  EXPECT_EQ(QBR_putskx(task, QBR_SOL_ITR, skx), QBR_RES_ERR_INV_SKX);
  const QBRint32t good[] = {QBR_SK_LOW, QBR_SK_UPR, QBR_SK_FIX};
  ASSERT_EQ(QBR_putskxslice(task, QBR_SOL_ITR, 1, 3, good), QBR_RES_OK);
  QBRint32t got[3];
  ASSERT_EQ(QBR_getskx(task, QBR_SOL_ITR, got), QBR_RES_OK);
  EXPECT_EQ(got[0], QBR_SK_UNK);
  EXPECT_EQ(got[2], QBR_SK_UPR);
  EXPECT_EQ(QBR_putconsolutioni(task, 0, QBR_SOL_ITR, 9, 0, 0, 0), QBR_RES_ERR_INV_SK);
}

TEST_F(SolutionTest, KeysOnATaskWithoutItemsReturnAtOnce) {
  QBRtask_t empty = nullptr;
  ASSERT_EQ(QBR_maketask(env, 0, 0, &empty), QBR_RES_OK);
  const QBRint32t bad[] = {99};
  EXPECT_EQ(QBR_putskc(empty, QBR_SOL_BAS, bad), QBR_RES_OK);
  EXPECT_EQ(QBR_putskx(empty, QBR_SOL_BAS, bad), QBR_RES_OK);
  QBRbooleant d = 1;
  QBR_solutiondef(empty, QBR_SOL_BAS, &d);
  EXPECT_EQ(d, 0);
  QBR_deletetask(&empty);
}

TEST_F(SolutionTest, IntegerItemHasNoDuals) {
  const double xx[] = {1, 2, 3}, y[] = {5, 6};
  ASSERT_EQ(QBR_putsolution(task, QBR_SOL_ITG, nullptr, nullptr, nullptr, nullptr, xx, y, nullptr, nullptr, nullptr,
                            nullptr, nullptr),
            QBR_RES_OK);
  std::vector<double> yout(2, -7.0), xout(3, 0.0);
  ASSERT_EQ(QBR_getsolution(task, QBR_SOL_ITG, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, xout.data(),
                            yout.data(), nullptr, nullptr, nullptr, nullptr, nullptr),
            QBR_RES_OK);
  EXPECT_EQ(yout, (std::vector<double>{-7.0, -7.0}));
  EXPECT_EQ(xout[2], 3.0);
  EXPECT_EQ(QBR_gety(task, QBR_SOL_ITG, yout.data()), QBR_RES_OK);
  EXPECT_EQ(yout[0], -7.0);
  double dobj = 0;
  EXPECT_EQ(QBR_getdualobj(task, QBR_SOL_ITG, &dobj), QBR_RES_ERR_NO_DUAL_FOR_ITG_SOL);
}

TEST_F(SolutionTest, BasicItemHasNoSnx) {
  const double snx[] = {1, 2, 3};
  EXPECT_EQ(QBR_putsnx(task, QBR_SOL_BAS, snx), QBR_RES_ERR_NO_SNX_FOR_BAS_SOL);
}

TEST_F(SolutionTest, ElementWritersAndSolutionSlice) {
  ASSERT_EQ(QBR_putvarsolutionj(task, 1, QBR_SOL_ITR, QBR_SK_LOW, 4.0, 0.5, 0.25, 0.125), QBR_RES_OK);
  ASSERT_EQ(QBR_putsolutionyi(task, 1, QBR_SOL_ITR, -2.0), QBR_RES_OK);
  double v[3];
  ASSERT_EQ(QBR_getsolutionslice(task, QBR_SOL_ITR, QBR_SOL_ITEM_SUX, 0, 3, v), QBR_RES_OK);
  EXPECT_EQ(v[1], 0.25);
  ASSERT_EQ(QBR_getsolutionslice(task, QBR_SOL_ITR, QBR_SOL_ITEM_Y, 1, 2, v), QBR_RES_OK);
  EXPECT_EQ(v[0], -2.0);
  EXPECT_EQ(QBR_getsolutionslice(task, QBR_SOL_ITR, 8, 0, 1, v), QBR_RES_ERR_SOLITEM);
  ASSERT_EQ(QBR_getreducedcosts(task, QBR_SOL_ITR, 1, 2, v), QBR_RES_OK);
  EXPECT_EQ(v[0], 0.5 - 0.25 + 0.125);
}

TEST_F(SolutionTest, SolutionsFollowTheProblemsDimensions) {
  const double xx[] = {1, 2, 3};
  ASSERT_EQ(QBR_putxx(task, QBR_SOL_ITR, xx), QBR_RES_OK);
  ASSERT_EQ(QBR_appendvars(task, 2), QBR_RES_OK);
  std::vector<double> got(5, -1.0);
  ASSERT_EQ(QBR_getxx(task, QBR_SOL_ITR, got.data()), QBR_RES_OK);
  EXPECT_EQ(got, (std::vector<double>{1, 2, 3, 0, 0}));
  const QBRint32t rm[] = {0, 3};
  ASSERT_EQ(QBR_removevars(task, 2, rm), QBR_RES_OK);
  got.assign(3, -1.0);
  ASSERT_EQ(QBR_getxx(task, QBR_SOL_ITR, got.data()), QBR_RES_OK);
  EXPECT_EQ(got, (std::vector<double>{2, 3, 0}));
  const QBRint32t dims[] = {2};
  ASSERT_EQ(QBR_appendbarvars(task, 1, dims), QBR_RES_OK);
  const double barx[] = {1, 0, 1};
  ASSERT_EQ(QBR_putbarxj(task, QBR_SOL_ITR, 0, barx), QBR_RES_OK);
  double out[3];
  ASSERT_EQ(QBR_getbarxj(task, QBR_SOL_ITR, 0, out), QBR_RES_OK);
  EXPECT_EQ(out[2], 1.0);
  EXPECT_EQ(QBR_getbarxslice(task, QBR_SOL_ITR, 0, 1, 2, out), QBR_RES_ERR_SLICE_SIZE);
  ASSERT_EQ(QBR_appendcons(task, 1), QBR_RES_OK);
  const QBRint32t m[] = {0, 1};
  ASSERT_EQ(QBR_appendcone(task, QBR_CT_QUAD, 0.0, 2, m), QBR_RES_OK);
  QBRint32t skn[1] = {-1};
  ASSERT_EQ(QBR_getskn(task, QBR_SOL_ITR, skn), QBR_RES_OK);
  EXPECT_EQ(skn[0], QBR_SK_UNK);
}

TEST_F(SolutionTest, StatusTexts) {
  char s[QBR_MAX_STR_LEN];
  ASSERT_EQ(QBR_sktostr(task, QBR_SK_INF, s), QBR_RES_OK);
  EXPECT_STREQ(s, "**");
  EXPECT_EQ(QBR_sktostr(task, 7, s), QBR_RES_ERR_INV_SK);
  QBRint32t sk = -1;
  ASSERT_EQ(QBR_strtosk(task, "EQ", &sk), QBR_RES_OK);
  EXPECT_EQ(sk, QBR_SK_FIX);
  EXPECT_EQ(QBR_strtosk(task, "XX", &sk), QBR_RES_ERR_INV_SK_STR);
  ASSERT_EQ(QBR_solstatostr(task, QBR_SOL_STA_PRIM_INFEAS_CER, s), QBR_RES_OK);
  EXPECT_STREQ(s, "PRIMAL_INFEASIBLE_CER");
  ASSERT_EQ(QBR_solstatostr(task, 10, s), QBR_RES_OK);
  EXPECT_STREQ(s, "INVALID code(10)");
  ASSERT_EQ(QBR_prostatostr(task, 9, s), QBR_RES_OK);
  EXPECT_STREQ(s, "INVALID CODE(9)");
  ASSERT_EQ(QBR_prostatostr(task, QBR_PRO_STA_PRIM_INFEAS_OR_UNBOUNDED, s), QBR_RES_OK);
  EXPECT_STREQ(s, "PRIMAL_INFEASIBLE_OR_UNBOUNDED");
}

}  // namespace
