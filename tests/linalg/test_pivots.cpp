// Tiny, zero, wrong-signed and non-finite pivots: the factorization completes, replaces them
// by the documented rule and reports the columns.
#include <gtest/gtest.h>

#include "test_matrices.h"

namespace qubor::linalg::testing {
namespace {

// A = B B' with rows r and r+1 of B equal: rank deficient by one.
Lower rank_deficient_gram(int32_t m, int32_t n, int32_t r, uint64_t seed) {
  std::mt19937_64 rng(seed);
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  std::vector<std::vector<double>> b(m, std::vector<double>(n, 0.0));
  for (int32_t i = 0; i < m; ++i)
    for (int t = 0; t < 3; ++t) b[i][rng() % n] = u(rng);
  b[r + 1] = b[r];
  Lower a;
  a.n = m;
  for (int32_t j = 0; j < m; ++j) {
    for (int32_t i = j; i < m; ++i) {
      double s = 0;
      for (int32_t k = 0; k < n; ++k) s += b[i][k] * b[j][k];
      if (i == j || s != 0.0) { a.rowind.push_back(i); a.values.push_back(s); }
    }
    a.colptr.push_back(static_cast<int64_t>(a.rowind.size()));
  }
  return a;
}

TEST(Pivots, DependentRowGetsAHugePivotAndConsistentSystemsStillSolve) {
  Lower a = rank_deficient_gram(40, 120, 17, 5);
  SparseCholesky chol;
  ASSERT_EQ(chol.analyse(a.pattern(), SparseCholeskyOptions(), nullptr), Status::kOk);
  ASSERT_EQ(chol.factor(a.values.data()), Status::kOk);
  ASSERT_EQ(chol.perturbed().size(), 1u);
  EXPECT_TRUE(chol.perturbed()[0] == 17 || chol.perturbed()[0] == 18);
  std::vector<double> xs = random_vector(a.n, 6);
  std::vector<double> b = multiply(a, xs);  // consistent right-hand side
  std::vector<double> x = b;
  ASSERT_EQ(chol.solve(x.data(), 1, a.n), Status::kOk);
  EXPECT_LT(relative_residual(a, x, b), 1e-9);
  EXPECT_LT(std::fabs(x[chol.perturbed()[0]]), 1e-12);  // the dropped component is zero
}

TEST(Pivots, NegativeZeroAndNonFiniteDiagonalsAreReportedNotFatal) {
  Lower a = random_pattern(80, 2.0, Shape::kRandom, 8);
  fill_spd(a, 9);
  std::vector<int32_t> bad = {3, 40, 79};
  a.values[a.colptr[3]] = -5.0;
  a.values[a.colptr[40]] = 0.0;
  for (int64_t p = a.colptr[40] + 1; p < a.colptr[41]; ++p) a.values[p] = 0.0;
  for (int32_t j = 0; j < 40; ++j)
    for (int64_t p = a.colptr[j]; p < a.colptr[j + 1]; ++p)
      if (a.rowind[p] == 40) a.values[p] = 0.0;
  a.values[a.colptr[79]] = std::nan("");
  SparseCholesky chol;
  ASSERT_EQ(chol.analyse(a.pattern(), SparseCholeskyOptions(), nullptr), Status::kOk);
  ASSERT_EQ(chol.factor(a.values.data()), Status::kOk);
  std::vector<int32_t> got = chol.perturbed();
  for (int32_t j : bad) EXPECT_TRUE(std::find(got.begin(), got.end(), j) != got.end()) << j;
  std::vector<double> x(a.n, 1.0);
  ASSERT_EQ(chol.solve(x.data(), 1, a.n), Status::kOk);
  for (int32_t i = 0; i < a.n; ++i) {
    if (i != 79) {
      EXPECT_TRUE(std::isfinite(x[i])) << i;
    }
  }
}

TEST(Pivots, LdltRegularizesWrongSignedPivotsAndKeepsTheSign) {
  // Diagonal-dominant SPD matrix declared with a negative expected sign on two columns.
  Lower a = random_pattern(60, 2.0, Shape::kRandom, 12);
  fill_spd(a, 13);
  std::vector<int8_t> signs(a.n, 1);
  signs[5] = -1;
  signs[33] = -1;
  SparseCholeskyOptions opt;
  opt.type = FactorType::kLdlt;
  opt.regularization = 1e-6;
  SparseCholesky chol;
  ASSERT_EQ(chol.analyse(a.pattern(), opt, nullptr, nullptr, signs.data()), Status::kOk);
  ASSERT_EQ(chol.factor(a.values.data()), Status::kOk);
  EXPECT_EQ(chol.perturbed(), (std::vector<int32_t>{5, 33}));
  std::vector<double> d;
  chol.diagonal(d);
  EXPECT_LT(d[5], 0.0);
  EXPECT_LT(d[33], 0.0);
  // With the huge rule instead the pivots drop out.
  opt.replacement = PivotReplacement::kHuge;
  ASSERT_EQ(chol.analyse(a.pattern(), opt, nullptr, nullptr, signs.data()), Status::kOk);
  ASSERT_EQ(chol.factor(a.values.data()), Status::kOk);
  chol.diagonal(d);
  EXPECT_LE(d[5], -1e100);
}

TEST(Pivots, TinyPivotsRelativeToTheLargestDiagonalAreReplaced) {
  Lower a = grid2d(8);
  a.values[a.colptr[10]] = 1e-20;  // isolate node 10 with a tiny diagonal
  for (int64_t p = a.colptr[10] + 1; p < a.colptr[11]; ++p) a.values[p] = 0.0;
  for (int32_t j = 0; j < 10; ++j)
    for (int64_t p = a.colptr[j]; p < a.colptr[j + 1]; ++p)
      if (a.rowind[p] == 10) a.values[p] = 0.0;
  SparseCholesky chol;
  ASSERT_EQ(chol.analyse(a.pattern(), SparseCholeskyOptions(), nullptr), Status::kOk);
  ASSERT_EQ(chol.factor(a.values.data()), Status::kOk);
  EXPECT_EQ(chol.perturbed(), std::vector<int32_t>{10});
  SparseCholeskyOptions loose;
  loose.pivot_tolerance = 1e-30;
  ASSERT_EQ(chol.analyse(a.pattern(), loose, nullptr), Status::kOk);
  ASSERT_EQ(chol.factor(a.values.data()), Status::kOk);
  EXPECT_TRUE(chol.perturbed().empty());
}

}  // namespace
}  // namespace qubor::linalg::testing
