// Linear data through the C API: appending and removing items, start states, bounds, the
// objective, variable types, capacities and the value checks with their exact codes.
#include <cmath>
#include <limits>
#include <vector>

#include "api/fixture.h"

namespace {

class LinearTest : public TaskTest {
 protected:
  void make(int m, int n) {
    ASSERT_EQ(QBR_appendcons(task, m), QBR_RES_OK);
    ASSERT_EQ(QBR_appendvars(task, n), QBR_RES_OK);
  }
  int numvar() {
    QBRint32t n = -1;
    QBR_getnumvar(task, &n);
    return n;
  }
};

TEST_F(LinearTest, AppendStartStatesAndNegativeCount) {
  EXPECT_EQ(QBR_appendvars(task, 0), QBR_RES_OK);
  EXPECT_EQ(numvar(), 0);
  EXPECT_EQ(QBR_appendvars(task, -1), QBR_RES_ERR_NEGATIVE_APPEND);
  EXPECT_EQ(last_message(), "Cannot append a negative number.");
  EXPECT_EQ(QBR_appendcons(task, -2), QBR_RES_ERR_NEGATIVE_APPEND);
  make(2, 3);
  for (int j = 0; j < 3; ++j) {
    QBRint32t bk = -1;
    double bl = 1, bu = 1, c = 1;
    ASSERT_EQ(QBR_getvarbound(task, j, &bk, &bl, &bu), QBR_RES_OK);
    ASSERT_EQ(QBR_getcj(task, j, &c), QBR_RES_OK);
    EXPECT_EQ(bk, QBR_BK_FX);
    EXPECT_EQ(bl, 0.0);
    EXPECT_EQ(bu, 0.0);
    EXPECT_EQ(c, 0.0);
  }
  for (int i = 0; i < 2; ++i) {
    QBRint32t bk = -1;
    double bl = 0, bu = 0;
    ASSERT_EQ(QBR_getconbound(task, i, &bk, &bl, &bu), QBR_RES_OK);
    EXPECT_EQ(bk, QBR_BK_FR);
    EXPECT_LE(bl, -QBR_INFINITY);
    EXPECT_GE(bu, QBR_INFINITY);
  }
}

TEST_F(LinearTest, CapacityIsAReservationAndGrowsByDoubling) {
  ASSERT_EQ(QBR_putmaxnumvar(task, 4), QBR_RES_OK);
  make(0, 5);
  QBRint32t cap = 0;
  ASSERT_EQ(QBR_getmaxnumvar(task, &cap), QBR_RES_OK);
  EXPECT_GE(cap, 8);
  EXPECT_EQ(QBR_putmaxnumvar(task, 3), QBR_RES_ERR_MAXNUMVAR);
  EXPECT_EQ(QBR_putmaxnumanz(task, -1), QBR_RES_ERR_TOO_SMALL_MAXNUMANZ);
  EXPECT_EQ(QBR_resizetask(task, 10, 10, 2, 100, 5), QBR_RES_OK);
  EXPECT_EQ(QBR_resizetask(task, 10, 4, 2, 100, 5), QBR_RES_ERR_MAXNUMVAR);
}

TEST_F(LinearTest, IndexChecksNameTheArgument) {
  make(2, 2);
  EXPECT_EQ(QBR_putaij(task, 2, 0, 1.0), QBR_RES_ERR_INDEX_IS_TOO_LARGE);
  EXPECT_EQ(last_message(), "The index value 2 occurring in argument 'i' is too large.");
  EXPECT_EQ(QBR_putaij(task, 0, -1, 1.0), QBR_RES_ERR_INDEX_IS_TOO_SMALL);
  EXPECT_EQ(last_message(), "The index value -1 occurring in argument 'j' is too small.");
  EXPECT_EQ(QBR_putcj(task, 2, 1.0), QBR_RES_ERR_INDEX_IS_TOO_LARGE);
  EXPECT_EQ(QBR_putconbound(task, -1, QBR_BK_LO, 0, 0), QBR_RES_ERR_INDEX_IS_TOO_SMALL);
}

TEST_F(LinearTest, ObjectiveChecksCompareStrictly) {
  make(0, 2);
  EXPECT_EQ(QBR_putcj(task, 0, 1.0e8), QBR_RES_OK);
  EXPECT_TRUE(wrn.text.empty());
  EXPECT_EQ(QBR_putcj(task, 0, 2.0e8), QBR_RES_OK);
  EXPECT_NE(wrn.text.find("warning 57"), std::string::npos);
  EXPECT_EQ(QBR_putcj(task, 1, 1.0e16), QBR_RES_OK);
  EXPECT_EQ(QBR_putcj(task, 1, 2.0e16), QBR_RES_ERR_HUGE_C);
  EXPECT_EQ(QBR_putcj(task, 1, std::nan("")), QBR_RES_ERR_NAN_IN_C);
  EXPECT_EQ(last_message(), "c[1] is a NaN.");
  double c1 = 0;
  QBR_getcj(task, 1, &c1);
  EXPECT_EQ(c1, 1.0e16);  // failed puts changed nothing
}

TEST_F(LinearTest, ListFormsStopAtTheFirstFailureAndKeepEarlierItems) {
  make(0, 4);
  const QBRint32t sub[] = {0, 1, 7, 2};
  const double val[] = {1, 2, 3, 4};
  EXPECT_EQ(QBR_putclist(task, 4, sub, val), QBR_RES_ERR_INDEX_IS_TOO_LARGE);
  std::vector<double> c(4);
  QBR_getc(task, c.data());
  EXPECT_EQ(c, (std::vector<double>{1, 2, 0, 0}));
  const QBRint32t bk[] = {QBR_BK_LO, 9, QBR_BK_UP};
  const double bl[] = {1, 2, 3}, bu[] = {5, 6, 7};
  EXPECT_EQ(QBR_putvarboundslice(task, 1, 4, bk, bl, bu), QBR_RES_ERR_INV_BKX);
  EXPECT_EQ(last_message(), "The bound key 9 specified for variable 2 is invalid.");
  QBRint32t k = -1;
  double l = 0, u = 0;
  QBR_getvarbound(task, 1, &k, &l, &u);
  EXPECT_EQ(k, QBR_BK_LO);
  EXPECT_EQ(l, 1.0);
  QBR_getvarbound(task, 2, &k, &l, &u);
  EXPECT_EQ(k, QBR_BK_FX);
}

TEST_F(LinearTest, BoundValueChecks) {
  make(1, 1);
  EXPECT_EQ(QBR_putvarbound(task, 0, QBR_BK_LO, std::nan(""), 0), QBR_RES_ERR_NAN_IN_BLX);
  EXPECT_EQ(QBR_putconbound(task, 0, QBR_BK_UP, 0, std::nan("")), QBR_RES_ERR_NAN_IN_BUC);
  EXPECT_EQ(QBR_putvarbound(task, 0, QBR_BK_RA, -QBR_INFINITY, 1), QBR_RES_ERR_INFINITE_BOUND);
  EXPECT_EQ(last_message(), "The lower bound of variable 'x0' (0) is infinite where a finite value is required.");
  EXPECT_EQ(QBR_putvarbound(task, 0, QBR_BK_FX, 1, 2), QBR_RES_ERR_FIXED_BOUND_VALUES);
  // The side a key leaves free is ignored, NaN or not.
  EXPECT_EQ(QBR_putvarbound(task, 0, QBR_BK_LO, 1, std::nan("")), QBR_RES_OK);
  double l = 0, u = 0;
  QBRint32t k = 0;
  QBR_getvarbound(task, 0, &k, &l, &u);
  EXPECT_EQ(u, QBR_INFINITY);
  EXPECT_EQ(QBR_putconbound(task, 0, QBR_BK_LO, 1e9, 0), QBR_RES_OK);
  EXPECT_NE(wrn.text.find("warning 52"), std::string::npos);
}

TEST_F(LinearTest, ChangeOneSideOfABound) {
  make(0, 1);
  ASSERT_EQ(QBR_putvarbound(task, 0, QBR_BK_FR, 0, 0), QBR_RES_OK);
  struct Step {
    int lower, finite;
    double value;
    int key;
  };
  const Step steps[] = {{1, 1, 1.0, QBR_BK_LO}, {0, 1, 3.0, QBR_BK_RA}, {1, 1, 3.0, QBR_BK_FX},
                        {1, 0, 0.0, QBR_BK_UP}, {0, 0, 0.0, QBR_BK_FR}};
  for (const Step& s : steps) {
    ASSERT_EQ(QBR_chgvarbound(task, 0, s.lower, s.finite, s.value), QBR_RES_OK);
    QBRint32t k = -1;
    double l = 0, u = 0;
    QBR_getvarbound(task, 0, &k, &l, &u);
    EXPECT_EQ(k, s.key);
  }
}

TEST_F(LinearTest, VariableTypesAndIntegerCount) {
  make(0, 3);
  const QBRint32t sub[] = {0, 2, 2};
  const QBRint32t type[] = {QBR_VAR_TYPE_INT, QBR_VAR_TYPE_INT, QBR_VAR_TYPE_INT};
  ASSERT_EQ(QBR_putvartypelist(task, 3, sub, type), QBR_RES_OK);
  QBRint32t n = 0;
  QBR_getnumintvar(task, &n);
  EXPECT_EQ(n, 2);
  EXPECT_EQ(QBR_putvartype(task, 1, 2), QBR_RES_ERR_INV_VAR_TYPE);
  EXPECT_EQ(last_message(), "The variable type 2 specified for variable 1 is invalid.");
  const QBRint32t rm[] = {0};
  ASSERT_EQ(QBR_removevars(task, 1, rm), QBR_RES_OK);
  QBR_getnumintvar(task, &n);
  EXPECT_EQ(n, 1);
}

TEST_F(LinearTest, ObjectiveSenseAndConstant) {
  EXPECT_EQ(QBR_putobjsense(task, 2), QBR_RES_ERR_INVALID_OBJECTIVE_SENSE);
  EXPECT_EQ(QBR_putobjsense(task, QBR_OBJECTIVE_SENSE_MAXIMIZE), QBR_RES_OK);
  QBRint32t s = -1;
  QBR_getobjsense(task, &s);
  EXPECT_EQ(s, QBR_OBJECTIVE_SENSE_MAXIMIZE);
  EXPECT_EQ(QBR_putcfix(task, std::nan("")), QBR_RES_OK);  // stored without a value check
}

TEST_F(LinearTest, RemovalCompactsEveryPerItemArray) {
  make(3, 4);
  for (int j = 0; j < 4; ++j) {
    QBR_putcj(task, j, j + 1.0);
    QBR_putvarbound(task, j, QBR_BK_LO, -j, 0);
    for (int i = 0; i < 3; ++i) QBR_putaij(task, i, j, 10.0 * i + j + 1);
  }
  const QBRint32t rmv[] = {2, 0};
  ASSERT_EQ(QBR_removevars(task, 2, rmv), QBR_RES_OK);
  const QBRint32t rmc[] = {1};
  ASSERT_EQ(QBR_removecons(task, 1, rmc), QBR_RES_OK);
  std::vector<double> c(2);
  QBR_getc(task, c.data());
  EXPECT_EQ(c, (std::vector<double>{2, 4}));
  double a = 0;
  QBR_getaij(task, 1, 1, &a);  // old (2, 3)
  EXPECT_EQ(a, 24.0);
  const QBRint32t dup[] = {0, 0};
  EXPECT_EQ(QBR_removevars(task, 2, dup), QBR_RES_ERR_NON_UNIQUE_ARRAY);
  EXPECT_EQ(numvar(), 2);
}

TEST_F(LinearTest, NullHandlesAreSilent) {
  QBRint32t n = 42;
  EXPECT_EQ(QBR_getnumvar(nullptr, &n), QBR_RES_ERR_NULL_TASK);
  EXPECT_EQ(n, 42);
  EXPECT_EQ(QBR_getnumvar(task, nullptr), QBR_RES_ERR_NULL_POINTER);
}

}  // namespace
