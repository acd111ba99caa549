// The constraint matrix A through the C API: element checks and their inclusive limits,
// replacing columns and rows, the list and slice forms, truncation, and the readers.
#include <cmath>
#include <vector>

#include "api/fixture.h"

namespace {

class MatrixTest : public TaskTest {
 protected:
  void SetUp() override {
    TaskTest::SetUp();
    ASSERT_EQ(QBR_appendcons(task, 4), QBR_RES_OK);
    ASSERT_EQ(QBR_appendvars(task, 5), QBR_RES_OK);
  }
  double aij(int i, int j) {
    double v = -1;
    EXPECT_EQ(QBR_getaij(task, i, j, &v), QBR_RES_OK);
    return v;
  }
  std::vector<std::pair<int, double>> col(int j) {
    QBRint32t nz = 0;
    std::vector<QBRint32t> sub(8);
    std::vector<double> val(8);
    EXPECT_EQ(QBR_getacol(task, j, &nz, sub.data(), val.data()), QBR_RES_OK);
    std::vector<std::pair<int, double>> out;
    for (int k = 0; k < nz; ++k) out.emplace_back(sub[k], val[k]);
    return out;
  }
  std::vector<std::pair<int, double>> row(int i) {
    QBRint32t nz = 0;
    std::vector<QBRint32t> sub(8);
    std::vector<double> val(8);
    EXPECT_EQ(QBR_getarow(task, i, &nz, sub.data(), val.data()), QBR_RES_OK);
    std::vector<std::pair<int, double>> out;
    for (int k = 0; k < nz; ++k) out.emplace_back(sub[k], val[k]);
    return out;
  }
  long long nnz() {
    QBRint64t n = -1;
    QBR_getnumanz64(task, &n);
    return n;
  }
};

using Entries = std::vector<std::pair<int, double>>;

TEST_F(MatrixTest, ElementLimitsAreInclusive) {
  EXPECT_EQ(QBR_putaij(task, 0, 0, 1.0e10), QBR_RES_OK);
  EXPECT_NE(wrn.text.find("warning 62"), std::string::npos);
  EXPECT_EQ(QBR_putaij(task, 0, 1, 1.0e20), QBR_RES_ERR_HUGE_AIJ);
  EXPECT_EQ(last_message(), "The A matrix contains a huge value of 1.000000e+20 in constraint 'c0' (0) at variable 'x1' (1).");
  EXPECT_EQ(QBR_putaij(task, 0, 1, INFINITY), QBR_RES_ERR_INVALID_AIJ);
  EXPECT_EQ(QBR_putaij(task, 0, 1, std::nan("")), QBR_RES_ERR_INVALID_AIJ);
  EXPECT_EQ(aij(0, 1), 0.0);
  EXPECT_EQ(nnz(), 1);
}

TEST_F(MatrixTest, LastPutWinsAndZeroErases) {
  QBR_putaij(task, 2, 1, 1.0);
  QBR_putaij(task, 0, 1, 2.0);  // out of order
  QBR_putaij(task, 2, 1, 3.0);  // replaces
  EXPECT_EQ(col(1), (Entries{{0, 2.0}, {2, 3.0}}));
  QBR_putaij(task, 0, 1, 0.0);
  EXPECT_EQ(col(1), (Entries{{2, 3.0}}));
  EXPECT_EQ(row(2), (Entries{{1, 3.0}}));
  EXPECT_EQ(nnz(), 1);
}

TEST_F(MatrixTest, PutColReplacesTheWholeColumn) {
  QBR_putaij(task, 3, 2, 9.0);
  const QBRint32t sub[] = {2, 0, 2, 1};
  const double val[] = {1.0, 2.0, 5.0, 0.0};
  ASSERT_EQ(QBR_putacol(task, 2, 4, sub, val), QBR_RES_OK);
  EXPECT_EQ(col(2), (Entries{{0, 2.0}, {2, 5.0}}));
  // A failing single put changes nothing.
  const QBRint32t bad[] = {1, 4};
  EXPECT_EQ(QBR_putacol(task, 2, 2, bad, val), QBR_RES_ERR_INDEX_IS_TOO_LARGE);
  EXPECT_EQ(col(2), (Entries{{0, 2.0}, {2, 5.0}}));
}

TEST_F(MatrixTest, PutRowReplacesTheWholeRow) {
  for (int j = 0; j < 5; ++j) QBR_putaij(task, 1, j, j + 1.0);
  const QBRint32t sub[] = {4, 0};
  const double val[] = {7.0, 8.0};
  ASSERT_EQ(QBR_putarow(task, 1, 2, sub, val), QBR_RES_OK);
  EXPECT_EQ(row(1), (Entries{{0, 8.0}, {4, 7.0}}));
  EXPECT_EQ(aij(1, 2), 0.0);
  EXPECT_EQ(nnz(), 2);
}

TEST_F(MatrixTest, RowListTakesTheLastOccurrenceOfARow) {
  const QBRint32t rows[] = {0, 0};
  const QBRint32t ptrb[] = {0, 2}, ptre[] = {2, 3};
  const QBRint32t asub[] = {0, 1, 3};
  const double aval[] = {1, 2, 3};
  ASSERT_EQ(QBR_putarowlist(task, 2, rows, ptrb, ptre, asub, aval), QBR_RES_OK);
  EXPECT_EQ(row(0), (Entries{{3, 3.0}}));
}

TEST_F(MatrixTest, ColumnSliceStopsAtTheFailingColumn) {
  const QBRint64t ptrb[] = {0, 1, 2}, ptre[] = {1, 2, 3};
  const QBRint32t asub[] = {0, 1, 9};
  const double aval[] = {1, 2, 3};
  EXPECT_EQ(QBR_putacolslice64(task, 0, 3, ptrb, ptre, asub, aval), QBR_RES_ERR_INDEX_IS_TOO_LARGE);
  EXPECT_EQ(aij(0, 0), 1.0);
  EXPECT_EQ(aij(1, 1), 2.0);
  EXPECT_EQ(nnz(), 2);
  const QBRint32t b32[] = {1}, e32[] = {0};
  EXPECT_EQ(QBR_putacolslice(task, 0, 1, b32, e32, asub, aval), QBR_RES_ERR_INV_APTRE);
  EXPECT_EQ(QBR_putacolslice(task, 2, 1, b32, e32, asub, aval), QBR_RES_ERR_LAST);
}

TEST_F(MatrixTest, TripletListStopsAtTheFailingElement) {
  const QBRint32t subi[] = {0, 1, 2}, subj[] = {0, 1, 2};
  const double val[] = {1, std::nan(""), 3};
  EXPECT_EQ(QBR_putaijlist(task, 3, subi, subj, val), QBR_RES_ERR_INVALID_AIJ);
  EXPECT_EQ(nnz(), 1);
}

TEST_F(MatrixTest, TruncationToleranceReTruncates) {
  EXPECT_EQ(QBR_putatruncatetol(task, 1.0e-15), QBR_RES_ERR_TOO_SMALL_A_TRUNCATION_VALUE);
  EXPECT_EQ(last_message(), "The truncation value 1.000000e-15 for A is below the smallest admissible value 1.000000e-14.");
  QBR_putaij(task, 0, 0, 1.0e-6);
  QBR_putaij(task, 1, 0, 1.0);
  ASSERT_EQ(QBR_putatruncatetol(task, 1.0e-5), QBR_RES_OK);
  EXPECT_EQ(col(0), (Entries{{1, 1.0}}));
  QBR_putaij(task, 2, 0, 1.0e-6);  // below the tolerance: not stored
  EXPECT_EQ(nnz(), 1);
  ASSERT_EQ(QBR_putatruncatetol(task, 1.0e-14), QBR_RES_OK);  // lowering keeps A as it is
  double tol = 0;
  QBR_getatruncatetol(task, &tol);
  EXPECT_EQ(tol, 1.0e-14);
}

TEST_F(MatrixTest, SliceReadersAgreeWithElements) {
  const QBRint32t subi[] = {3, 0, 2, 1, 3}, subj[] = {0, 1, 1, 4, 4};
  const double val[] = {1, 2, 3, 4, 5};
  ASSERT_EQ(QBR_putaijlist(task, 5, subi, subj, val), QBR_RES_OK);
  QBRint64t n = 0;
  QBR_getacolslicenumnz64(task, 1, 5, &n);
  EXPECT_EQ(n, 4);
  std::vector<QBRint32t> ti(4), tj(4);
  std::vector<double> tv(4);
  EXPECT_EQ(QBR_getacolslicetrip(task, 1, 5, 3, ti.data(), tj.data(), tv.data()), QBR_RES_ERR_TOO_SMALL_MAX_NUM_NZ);
  ASSERT_EQ(QBR_getacolslicetrip(task, 1, 5, 4, ti.data(), tj.data(), tv.data()), QBR_RES_OK);
  for (int k = 0; k < 4; ++k) EXPECT_EQ(aij(ti[k], tj[k]), tv[k]);
  std::vector<QBRint32t> pb(4), pe(4), sub(5);
  std::vector<double> v(5);
  ASSERT_EQ(QBR_getarowslice(task, 0, 4, 5, pb.data(), pe.data(), sub.data(), v.data()), QBR_RES_OK);
  EXPECT_EQ(pe[3] - pb[3], 2);  // row 3: columns 0 and 4
  EXPECT_EQ(sub[pb[3]], 0);
  EXPECT_EQ(sub[pb[3] + 1], 4);
  QBRint32t piece = 0;
  ASSERT_EQ(QBR_getapiecenumnz(task, 1, 4, 0, 2, &piece), QBR_RES_OK);
  EXPECT_EQ(piece, 2);
  EXPECT_EQ(QBR_getapiecenumnz(task, 2, 1, 0, 2, &piece), QBR_RES_ERR_LASTI);
  QBRint32t rn = 0;
  QBR_getarownumnz(task, 3, &rn);
  EXPECT_EQ(rn, 2);
  EXPECT_EQ(QBR_commitchanges(task), QBR_RES_OK);
  EXPECT_EQ(aij(3, 4), 5.0);
}

TEST_F(MatrixTest, RemovingItemsRenumbersA) {
  for (int i = 0; i < 4; ++i)
    for (int j = 0; j < 5; ++j) QBR_putaij(task, i, j, 10.0 * i + j + 1);
  const QBRint32t rc[] = {0, 2};
  ASSERT_EQ(QBR_removecons(task, 2, rc), QBR_RES_OK);
  const QBRint32t rv[] = {3};
  ASSERT_EQ(QBR_removevars(task, 1, rv), QBR_RES_OK);
  EXPECT_EQ(row(1), (Entries{{0, 31.0}, {1, 32.0}, {2, 33.0}, {3, 35.0}}));
  EXPECT_EQ(nnz(), 8);
  QBR_putaij(task, 0, 3, -1.0);  // the moved column still takes new elements
  EXPECT_EQ(col(3), (Entries{{0, -1.0}, {1, 35.0}}));
}

}  // namespace
