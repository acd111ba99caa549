// Factor of positive semidefinite matrices: F'F reproduces Q, indefinite matrices are refused.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "linalg/cholesky/psd_factor.h"

namespace qubor::linalg {
namespace {

struct Lower {
  std::vector<int32_t> i, j;
  std::vector<double> v;
  void add(int32_t r, int32_t c, double x) {
    i.push_back(r);
    j.push_back(c);
    v.push_back(x);
  }
};

bool factor(const Lower& q, int32_t n, double sign, PsdFactor* f) {
  bool psd = false;
  EXPECT_EQ(psd_factor(n, static_cast<int64_t>(q.v.size()), q.i.data(), q.j.data(), q.v.data(), sign, 1e-10, &psd,
                       f),
            Status::kOk);
  return psd;
}

// (F'F)(r, c) by brute force.
double ftf(const PsdFactor& f, int32_t r, int32_t c) {
  double s = 0.0;
  for (int32_t k = 0; k < f.rows; ++k) {
    double a = 0.0, b = 0.0;
    for (int64_t p = f.ptr[static_cast<size_t>(k)]; p < f.ptr[static_cast<size_t>(k) + 1]; ++p) {
      if (f.col[static_cast<size_t>(p)] == r) a = f.val[static_cast<size_t>(p)];
      if (f.col[static_cast<size_t>(p)] == c) b = f.val[static_cast<size_t>(p)];
    }
    s += a * b;
  }
  return s;
}

TEST(PsdFactor, SingularSemidefiniteMatrixIsReproduced) {
  // Q = v v' + w w' over columns 1, 3, 4, 6 of 8 (rank 2), columns 0, 2, 5, 7 unused.
  const int32_t cols[4] = {1, 3, 4, 6};
  const double v[4] = {1, 2, -1, 0.5}, w[4] = {0, 1, 3, -2};
  Lower q;
  for (int a = 0; a < 4; ++a)
    for (int b = 0; b <= a; ++b) q.add(cols[a], cols[b], v[a] * v[b] + w[a] * w[b]);
  PsdFactor f;
  ASSERT_TRUE(factor(q, 8, 1.0, &f));
  EXPECT_EQ(f.rows, 2);
  for (int a = 0; a < 4; ++a)
    for (int b = 0; b < 4; ++b)
      EXPECT_NEAR(ftf(f, cols[a], cols[b]), v[a] * v[b] + w[a] * w[b], 1e-12);
  for (int32_t c : f.col) EXPECT_TRUE(c == 1 || c == 3 || c == 4 || c == 6);
  // The negated matrix is negative semidefinite: sign -1 factors it, sign +1 refuses it.
  Lower m = q;
  for (double& x : m.v) x = -x;
  EXPECT_TRUE(factor(m, 8, -1.0, nullptr));
  EXPECT_FALSE(factor(m, 8, 1.0, nullptr));
}

TEST(PsdFactor, IndefiniteMatricesAreRefused) {
  Lower off;  // [0 1; 1 0]: zero pivots with nonzero columns
  off.add(1, 0, 1.0);
  EXPECT_FALSE(factor(off, 2, 1.0, nullptr));
  EXPECT_FALSE(factor(off, 2, -1.0, nullptr));
  Lower saddle;  // [1 2; 2 1]: positive diagonal, eigenvalue -1
  saddle.add(0, 0, 1.0);
  saddle.add(1, 0, 2.0);
  saddle.add(1, 1, 1.0);
  EXPECT_FALSE(factor(saddle, 2, 1.0, nullptr));
  Lower tiny;  // diag(1, -1e-13): negative within the tolerance counts as zero
  tiny.add(0, 0, 1.0);
  tiny.add(1, 1, -1e-13);
  PsdFactor f;
  EXPECT_TRUE(factor(tiny, 2, 1.0, &f));
  EXPECT_EQ(f.rows, 1);
  Lower empty;
  EXPECT_TRUE(factor(empty, 3, 1.0, &f));
  EXPECT_EQ(f.rows, 0);
}

}  // namespace
}  // namespace qubor::linalg
