// The basis LU against dense solves: random sparse bases, long sequences of Forrest-Tomlin
// updates (with the kept spike and without), refused updates that leave the factor intact,
// hypersparse solves against the plain ones, dependent and nearly dependent columns
// repaired by unit columns.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "linalg/lu/basis_lu.h"

namespace {

using qubor::linalg::BasisLu;
using qubor::linalg::ColumnSource;

// A random m x n sparse matrix by columns (about `per_col` entries per column).
struct RandomMatrix {
  int32_t m = 0, n = 0;
  std::vector<int64_t> ptr{0};
  std::vector<int32_t> idx;
  std::vector<double> val;
  RandomMatrix(int32_t rows, int32_t cols, int32_t per_col, std::mt19937& rng) : m(rows), n(cols) {
    std::uniform_int_distribution<int32_t> row(0, rows - 1);
    std::uniform_real_distribution<double> value(-1.0, 1.0);
    for (int32_t j = 0; j < cols; ++j) {
      std::vector<int32_t> rs;
      for (int32_t k = 0; k < per_col; ++k) rs.push_back(row(rng));
      std::sort(rs.begin(), rs.end());
      rs.erase(std::unique(rs.begin(), rs.end()), rs.end());
      for (int32_t r : rs) {
        idx.push_back(r);
        val.push_back(value(rng) + (value(rng) > 0 ? 0.5 : -0.5));
      }
      ptr.push_back(static_cast<int64_t>(idx.size()));
    }
  }
  // Appends column `a` + eps * e_row.
  void append_copy(int32_t a, int32_t row, double eps) {
    std::vector<double> dense(static_cast<size_t>(m), 0.0);
    for (int64_t e = ptr[static_cast<size_t>(a)]; e < ptr[static_cast<size_t>(a) + 1]; ++e)
      dense[static_cast<size_t>(idx[static_cast<size_t>(e)])] = val[static_cast<size_t>(e)];
    dense[static_cast<size_t>(row)] += eps;
    for (int32_t i = 0; i < m; ++i)
      if (dense[static_cast<size_t>(i)] != 0.0) {
        idx.push_back(i);
        val.push_back(dense[static_cast<size_t>(i)]);
      }
    ptr.push_back(static_cast<int64_t>(idx.size()));
    ++n;
  }
  ColumnSource source() const { return {m, n, ptr.data(), idx.data(), val.data()}; }
  // The dense basis matrix, row-major.
  std::vector<double> dense_basis(const std::vector<int32_t>& basis) const {
    std::vector<double> b(static_cast<size_t>(m) * static_cast<size_t>(m), 0.0);
    for (int32_t pos = 0; pos < m; ++pos) {
      const int32_t j = basis[static_cast<size_t>(pos)];
      if (j >= n) {
        b[static_cast<size_t>(j - n) * static_cast<size_t>(m) + static_cast<size_t>(pos)] = 1.0;
        continue;
      }
      for (int64_t e = ptr[static_cast<size_t>(j)]; e < ptr[static_cast<size_t>(j) + 1]; ++e)
        b[static_cast<size_t>(idx[static_cast<size_t>(e)]) * static_cast<size_t>(m) + static_cast<size_t>(pos)] =
            val[static_cast<size_t>(e)];
    }
    return b;
  }
};

// Solves M z = r by Gaussian elimination with partial pivoting (row-major M, n x n);
// returns false for a singular M.
bool dense_solve(std::vector<double> a, std::vector<double>& r, int32_t n, bool transposed) {
  const size_t ns = static_cast<size_t>(n);
  if (transposed)
    for (size_t i = 0; i < ns; ++i)
      for (size_t j = i + 1; j < ns; ++j) std::swap(a[i * ns + j], a[j * ns + i]);
  for (size_t k = 0; k < ns; ++k) {
    size_t piv = k;
    for (size_t i = k + 1; i < ns; ++i)
      if (std::fabs(a[i * ns + k]) > std::fabs(a[piv * ns + k])) piv = i;
    if (std::fabs(a[piv * ns + k]) < 1e-12) return false;
    for (size_t j = 0; j < ns; ++j) std::swap(a[k * ns + j], a[piv * ns + j]);
    std::swap(r[k], r[piv]);
    for (size_t i = k + 1; i < ns; ++i) {
      const double f = a[i * ns + k] / a[k * ns + k];
      if (f == 0.0) continue;
      for (size_t j = k; j < ns; ++j) a[i * ns + j] -= f * a[k * ns + j];
      r[i] -= f * r[k];
    }
  }
  for (size_t k = ns; k-- > 0;) {
    double s = r[k];
    for (size_t j = k + 1; j < ns; ++j) s -= a[k * ns + j] * r[j];
    r[k] = s / a[k * ns + k];
  }
  return true;
}

// Rank by elimination with complete pivoting (row-major, n x n); entries below 1e-9 of the
// largest count as zero.
int32_t dense_rank(std::vector<double> a, int32_t n) {
  const size_t ns = static_cast<size_t>(n);
  double scale = 0.0;
  for (double v : a) scale = std::max(scale, std::fabs(v));
  int32_t rank = 0;
  std::vector<bool> row_done(ns, false), col_done(ns, false);
  for (size_t k = 0; k < ns; ++k) {
    size_t pi = 0, pj = 0;
    double best = 0.0;
    for (size_t i = 0; i < ns; ++i)
      for (size_t j = 0; j < ns; ++j)
        if (!row_done[i] && !col_done[j] && std::fabs(a[i * ns + j]) > best) {
          best = std::fabs(a[i * ns + j]);
          pi = i;
          pj = j;
        }
    if (best <= 1e-9 * scale) break;
    ++rank;
    row_done[pi] = col_done[pj] = true;
    for (size_t i = 0; i < ns; ++i) {
      if (row_done[i]) continue;
      const double f = a[i * ns + pj] / a[pi * ns + pj];
      for (size_t j = 0; j < ns; ++j) a[i * ns + j] -= f * a[pi * ns + j];
    }
  }
  return rank;
}

double max_diff(const std::vector<double>& a, const std::vector<double>& b) {
  double d = 0.0;
  for (size_t i = 0; i < a.size(); ++i) d = std::max(d, std::fabs(a[i] - b[i]));
  return d;
}

// FTRAN and BTRAN of random right-hand sides (one dense, one with two entries) against the
// dense solve with the explicit basis.
void expect_solves_match(BasisLu& lu, const RandomMatrix& a, const std::vector<int32_t>& basis, std::mt19937& rng) {
  const std::vector<double> dense = a.dense_basis(basis);
  std::uniform_real_distribution<double> value(-1.0, 1.0);
  for (int sparse = 0; sparse < 2; ++sparse) {
    std::vector<double> rhs(static_cast<size_t>(a.m), 0.0);
    if (sparse) {
      rhs[static_cast<size_t>(rng() % static_cast<uint32_t>(a.m))] = 1.0;
      rhs[static_cast<size_t>(rng() % static_cast<uint32_t>(a.m))] = -2.0;
    } else {
      for (double& v : rhs) v = value(rng);
    }
    for (bool transposed : {false, true}) {
      std::vector<double> want = rhs, got = rhs;
      ASSERT_TRUE(dense_solve(dense, want, a.m, transposed));
      transposed ? lu.btran(got.data()) : lu.ftran(got.data());
      // The residual of the computed solution, relative to its size.
      double res = 0.0, size = 1.0;
      for (int32_t i = 0; i < a.m; ++i) {
        double s = -rhs[static_cast<size_t>(i)];
        for (int32_t k = 0; k < a.m; ++k) {
          const size_t ik = transposed ? static_cast<size_t>(k) * static_cast<size_t>(a.m) + static_cast<size_t>(i)
                                       : static_cast<size_t>(i) * static_cast<size_t>(a.m) + static_cast<size_t>(k);
          s += dense[ik] * got[static_cast<size_t>(k)];
        }
        res = std::max(res, std::fabs(s));
        size = std::max(size, std::fabs(got[static_cast<size_t>(i)]));
      }
      EXPECT_LT(res / size, 1e-12) << (transposed ? "btran" : "ftran") << " sparse=" << sparse;
      EXPECT_LT(max_diff(want, got) / size, 1e-8) << (transposed ? "btran" : "ftran") << " sparse=" << sparse;
    }
  }
}

// A basis of `k` random structural columns among unit columns on random positions.
std::vector<int32_t> mixed_basis(const RandomMatrix& a, int32_t k, std::mt19937& rng) {
  std::vector<int32_t> basis(static_cast<size_t>(a.m));
  for (int32_t i = 0; i < a.m; ++i) basis[static_cast<size_t>(i)] = a.n + i;
  std::vector<int32_t> cols(static_cast<size_t>(a.n));
  for (int32_t j = 0; j < a.n; ++j) cols[static_cast<size_t>(j)] = j;
  std::shuffle(cols.begin(), cols.end(), rng);
  for (int32_t t = 0; t < k; ++t) basis[static_cast<size_t>(rng() % static_cast<uint32_t>(a.m))] = cols[static_cast<size_t>(t)];
  return basis;
}

TEST(BasisLu, RandomBasesSolveLikeDense) {
  std::mt19937 rng(7);
  for (int32_t m : {1, 5, 40, 120}) {
    for (int32_t density : {1, 3, 8}) {
      RandomMatrix a(m, 2 * m, density, rng);
      for (int32_t k : {m / 4, m / 2, m}) {
        std::vector<int32_t> basis = mixed_basis(a, k, rng);
        BasisLu lu;
        lu.factorize(a.source(), basis.data());
        // Whatever was dependent has been replaced; the result must be regular and exact.
        expect_solves_match(lu, a, basis, rng);
      }
    }
  }
}

// Runs `count` basis changes with random entering columns and the largest |alpha| as the
// pivot, checking the solves every `check_every` changes. With keep_spike the entering
// column's FTRAN keeps the spike; otherwise update() rebuilds it from alpha.
int32_t run_updates(BasisLu& lu, const RandomMatrix& a, std::vector<int32_t>& basis, std::mt19937& rng, int32_t count,
                    int32_t check_every, bool keep_spike) {
  int32_t done = 0;
  for (int32_t trial = 0; trial < 20 * count && done < count; ++trial) {
    const int32_t q = static_cast<int32_t>(rng() % static_cast<uint32_t>(a.n + a.m));
    if (std::find(basis.begin(), basis.end(), q) != basis.end()) continue;
    std::vector<double> alpha(static_cast<size_t>(a.m), 0.0);
    if (q >= a.n) {
      alpha[static_cast<size_t>(q - a.n)] = 1.0;
    } else {
      for (int64_t e = a.ptr[static_cast<size_t>(q)]; e < a.ptr[static_cast<size_t>(q) + 1]; ++e)
        alpha[static_cast<size_t>(a.idx[static_cast<size_t>(e)])] = a.val[static_cast<size_t>(e)];
    }
    lu.ftran(alpha.data(), keep_spike);
    int32_t r = 0;
    for (int32_t i = 1; i < a.m; ++i)
      if (std::fabs(alpha[static_cast<size_t>(i)]) > std::fabs(alpha[static_cast<size_t>(r)])) r = i;
    if (std::fabs(alpha[static_cast<size_t>(r)]) < 0.1) continue;
    EXPECT_TRUE(lu.update(r, alpha.data())) << "change " << done;
    basis[static_cast<size_t>(r)] = q;
    ++done;
    if (done % check_every == 0) expect_solves_match(lu, a, basis, rng);
  }
  return done;
}

// Many updates on one factorization, positions replaced several times over; both ways of
// getting the spike; then a refactorization of the updated basis solves the same.
TEST(BasisLu, ForrestTomlinUpdatesTrackTheChangedBasis) {
  for (bool keep_spike : {true, false}) {
    std::mt19937 rng(keep_spike ? 11 : 12);
    RandomMatrix a(60, 200, 4, rng);
    std::vector<int32_t> basis = mixed_basis(a, 30, rng);
    BasisLu lu;
    qubor::linalg::LuOptions o;
    o.max_updates = 1000;
    lu.set_options(o);
    lu.factorize(a.source(), basis.data());
    const int32_t done = run_updates(lu, a, basis, rng, 150, 10, keep_spike);
    EXPECT_EQ(lu.num_updates(), done);
    EXPECT_GE(done, 120);
    lu.factorize(a.source(), basis.data());
    EXPECT_TRUE(lu.replacements().empty());
    expect_solves_match(lu, a, basis, rng);
  }
}

// The same sequence of updates gives the same solves whether the solves run hypersparse
// (searching the patterns) or over all slots: a larger sparse basis, unit right-hand sides.
TEST(BasisLu, HypersparseSolvesMatchPlainOnes) {
  std::mt19937 rng(21);
  RandomMatrix a(300, 600, 2, rng);
  std::vector<int32_t> basis = mixed_basis(a, 200, rng);
  std::vector<int32_t> basis2 = basis;
  BasisLu hyper, plain;
  qubor::linalg::LuOptions o;
  o.max_updates = 500;
  o.hyper_density = 1.1;  // every solve hypersparse
  hyper.set_options(o);
  o.hyper_density = 0.0;  // none
  plain.set_options(o);
  hyper.factorize(a.source(), basis.data());
  plain.factorize(a.source(), basis2.data());
  ASSERT_EQ(basis, basis2);
  std::mt19937 rng2 = rng;
  const int32_t done = run_updates(hyper, a, basis, rng, 60, 20, true);
  const int32_t done2 = run_updates(plain, a, basis2, rng2, 60, 20, true);
  ASSERT_EQ(done, done2);
  ASSERT_EQ(basis, basis2);
  for (int32_t trial = 0; trial < 40; ++trial) {
    std::vector<double> u(300, 0.0);
    u[static_cast<size_t>(rng() % 300)] = 1.0;
    if (trial % 2) u[static_cast<size_t>(rng() % 300)] = -3.0;
    for (bool transposed : {false, true}) {
      std::vector<double> x = u, y = u;
      transposed ? hyper.btran(x.data()) : hyper.ftran(x.data());
      transposed ? plain.btran(y.data()) : plain.ftran(y.data());
      EXPECT_LT(max_diff(x, y), 1e-11) << (transposed ? "btran" : "ftran") << " trial " << trial;
    }
  }
  expect_solves_match(hyper, a, basis, rng);
}

// A replacement that makes the basis nearly singular: the entering column is the leaving
// one plus a tiny multiple of another basic column, so alpha_r is tiny. The update is
// refused, by the pivot size and, with that check off, by the stability test of the new
// diagonal; the factor still solves the old basis exactly.
TEST(BasisLu, NearlySingularReplacementIsRefused) {
  std::mt19937 rng(31);
  RandomMatrix a(40, 80, 4, rng);
  std::vector<int32_t> basis = mixed_basis(a, 40, rng);
  BasisLu lu;
  qubor::linalg::LuOptions o;
  o.abs_pivot_tol = 1e-30;  // only the stability test of the update is left
  lu.set_options(o);
  lu.factorize(a.source(), basis.data());
  int32_t done = run_updates(lu, a, basis, rng, 15, 100, true);
  ASSERT_EQ(done, 15);
  // Column at position 3 plus 1e-13 times the column at position 5, appended as a new column.
  const int32_t r = 3;
  std::vector<double> dense(40, 0.0);
  std::vector<double> ed(40, 0.0);
  auto column = [&](int32_t j, std::vector<double>& v) {
    std::fill(v.begin(), v.end(), 0.0);
    if (j >= a.n) {
      v[static_cast<size_t>(j - a.n)] = 1.0;
      return;
    }
    for (int64_t e = a.ptr[static_cast<size_t>(j)]; e < a.ptr[static_cast<size_t>(j) + 1]; ++e)
      v[static_cast<size_t>(a.idx[static_cast<size_t>(e)])] = a.val[static_cast<size_t>(e)];
  };
  column(basis[r], dense);
  column(basis[5], ed);
  for (size_t i = 0; i < 40; ++i) dense[i] += 1e-13 * ed[i];
  std::vector<double> alpha = dense;
  lu.ftran(alpha.data(), true);
  EXPECT_NEAR(alpha[r], 1.0, 1e-9);
  // Entering for position 5 instead: alpha_5 is 1e-13.
  EXPECT_LT(std::fabs(alpha[5]), 1e-11);
  EXPECT_FALSE(lu.update(5, alpha.data()));
  EXPECT_EQ(lu.num_updates(), 15);
  expect_solves_match(lu, a, basis, rng);
  o.abs_pivot_tol = 1e-11;
  lu.set_options(o);
  EXPECT_FALSE(lu.update(5, alpha.data()));
  EXPECT_EQ(lu.num_updates(), 15);
  expect_solves_match(lu, a, basis, rng);
  // The factor still takes regular updates afterwards.
  done = run_updates(lu, a, basis, rng, 10, 5, true);
  EXPECT_EQ(done, 10);
}

TEST(BasisLu, TinyPivotIsRefused) {
  std::mt19937 rng(3);
  RandomMatrix a(10, 20, 3, rng);
  std::vector<int32_t> basis = mixed_basis(a, 0, rng);
  BasisLu lu;
  lu.factorize(a.source(), basis.data());
  std::vector<double> alpha(10, 1.0);
  alpha[4] = 1e-14;
  EXPECT_FALSE(lu.update(4, alpha.data()));
  EXPECT_EQ(lu.num_updates(), 0);
}

// Dependent columns: a duplicated column, an empty column, a column equal to another up
// to 1e-13 (nearly dependent), and one that is a copy plus 0.5 (regular). Each dependent
// one is replaced by the unit column of a row without pivot.
TEST(BasisLu, DependentColumnsAreReplacedByUnitColumns) {
  std::mt19937 rng(5);
  RandomMatrix a(30, 40, 4, rng);
  const int32_t dup = a.n;
  a.append_copy(3, 0, 0.0);
  const int32_t near = a.n;
  a.append_copy(5, 7, 1e-13);
  const int32_t regular = a.n;
  a.append_copy(8, 9, 0.5);  // a copy plus 0.5 e_9: not dependent on column 8
  const int32_t empty = a.n;
  a.ptr.push_back(a.ptr.back());
  ++a.n;
  std::vector<int32_t> basis(30);
  for (int32_t i = 0; i < 30; ++i) basis[static_cast<size_t>(i)] = a.n + i;
  basis[0] = 3;
  basis[1] = dup;
  basis[2] = 5;
  basis[3] = near;
  basis[4] = 8;
  basis[5] = regular;
  basis[6] = empty;
  const int32_t deficiency = 30 - dense_rank(a.dense_basis(basis), 30);
  BasisLu lu;
  lu.factorize(a.source(), basis.data());
  std::vector<int32_t> removed;
  for (const auto& r : lu.replacements()) {
    removed.push_back(r.removed);
    EXPECT_GE(r.inserted, a.n);
    EXPECT_EQ(basis[static_cast<size_t>(r.position)], r.inserted);
  }
  std::sort(removed.begin(), removed.end());
  // As many columns go as the rank lacks: the empty column, one of {3, dup}, one of
  // {5, near} among them.
  EXPECT_EQ(static_cast<int32_t>(removed.size()), deficiency);
  EXPECT_TRUE(std::find(removed.begin(), removed.end(), empty) != removed.end());
  EXPECT_NE(std::count(removed.begin(), removed.end(), 3) + std::count(removed.begin(), removed.end(), dup), 0);
  EXPECT_NE(std::count(removed.begin(), removed.end(), 5) + std::count(removed.begin(), removed.end(), near), 0);
  EXPECT_EQ(30, dense_rank(a.dense_basis(basis), 30));
  expect_solves_match(lu, a, basis, rng);
}

}  // namespace
