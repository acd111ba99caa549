// Builders shared by the factorization tests: random symmetric patterns of many shapes,
// SPD and quasi-definite values, residuals, a capturing log sink.
#pragma once

#include <algorithm>
#include <cmath>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "linalg/cholesky/sparse_cholesky.h"

namespace qubor::linalg::testing {

struct Lower {
  int32_t n = 0;
  std::vector<int64_t> colptr{0};
  std::vector<int32_t> rowind;
  std::vector<double> values;
  LowerPattern pattern() const { return {n, colptr.data(), rowind.data()}; }
};

enum class Shape { kRandom, kDenseRow, kComponents, kIsolated, kBanded, kArrow };

// Random lower-triangle pattern with a full diagonal; `density` is the expected number of
// off-diagonal entries per column.
inline Lower random_pattern(int32_t n, double density, Shape shape, uint64_t seed) {
  std::mt19937_64 rng(seed);
  std::uniform_int_distribution<int32_t> pick(0, std::max(0, n - 1));
  std::vector<std::set<int32_t>> cols(n);
  const int64_t edges = static_cast<int64_t>(density * n);
  for (int64_t e = 0; e < edges && n > 1; ++e) {
    int32_t i = pick(rng), j = pick(rng);
    if (shape == Shape::kComponents && (i % 3) != (j % 3)) continue;   // three components
    if (shape == Shape::kIsolated && (i % 4 == 0 || j % 4 == 0)) continue;
    if (shape == Shape::kBanded) j = std::min(n - 1, i + 1 + static_cast<int32_t>(rng() % 5));
    if (i == j) continue;
    cols[std::min(i, j)].insert(std::max(i, j));
  }
  if (shape == Shape::kDenseRow && n > 2)
    for (int32_t j = 0; j < n; ++j) {  // node n/2 is adjacent to everything
      int32_t d = n / 2;
      if (j != d) cols[std::min(j, d)].insert(std::max(j, d));
    }
  if (shape == Shape::kArrow && n > 1)
    for (int32_t j = 0; j < n - 1; ++j) cols[j].insert(n - 1);
  Lower a;
  a.n = n;
  for (int32_t j = 0; j < n; ++j) {
    a.rowind.push_back(j);
    for (int32_t i : cols[j]) a.rowind.push_back(i);
    a.colptr.push_back(static_cast<int64_t>(a.rowind.size()));
  }
  return a;
}

// Values making the pattern strictly diagonally dominant (hence SPD): random off-diagonals
// in [-1, 1], diagonal = 1 + sum of |off-diagonals| in its row and column.
inline void fill_spd(Lower& a, uint64_t seed) {
  std::mt19937_64 rng(seed);
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  a.values.assign(a.rowind.size(), 0.0);
  std::vector<double> rowsum(a.n, 1.0);
  for (int32_t j = 0; j < a.n; ++j)
    for (int64_t p = a.colptr[j]; p < a.colptr[j + 1]; ++p)
      if (a.rowind[p] != j) {
        a.values[p] = u(rng);
        rowsum[j] += std::fabs(a.values[p]);
        rowsum[a.rowind[p]] += std::fabs(a.values[p]);
      }
  for (int32_t j = 0; j < a.n; ++j)
    for (int64_t p = a.colptr[j]; p < a.colptr[j + 1]; ++p)
      if (a.rowind[p] == j) a.values[p] += rowsum[j];
}

// y = A x, A symmetric given by its lower triangle.
inline std::vector<double> multiply(const Lower& a, const std::vector<double>& x) {
  std::vector<double> y(a.n, 0.0);
  for (int32_t j = 0; j < a.n; ++j)
    for (int64_t p = a.colptr[j]; p < a.colptr[j + 1]; ++p) {
      int32_t i = a.rowind[p];
      y[i] += a.values[p] * x[j];
      if (i != j) y[j] += a.values[p] * x[i];
    }
  return y;
}

inline double relative_residual(const Lower& a, const std::vector<double>& x,
                                const std::vector<double>& b) {
  std::vector<double> r = multiply(a, x);
  double num = 0, den = 0;
  for (int32_t i = 0; i < a.n; ++i) {
    num += (r[i] - b[i]) * (r[i] - b[i]);
    den += b[i] * b[i];
  }
  return den > 0 ? std::sqrt(num / den) : std::sqrt(num);
}

inline std::vector<double> random_vector(int32_t n, uint64_t seed) {
  std::mt19937_64 rng(seed);
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  std::vector<double> v(n);
  for (double& x : v) x = u(rng);
  return v;
}

// 2-D grid Laplacian k x k.
inline Lower grid2d(int32_t k) {
  Lower a;
  a.n = k * k;
  for (int32_t y = 0; y < k; ++y)
    for (int32_t x = 0; x < k; ++x) {
      int32_t j = x + k * y;
      a.rowind.push_back(j);
      a.values.push_back(4.0);
      if (x + 1 < k) { a.rowind.push_back(j + 1); a.values.push_back(-1.0); }
      if (y + 1 < k) { a.rowind.push_back(j + k); a.values.push_back(-1.0); }
      a.colptr.push_back(static_cast<int64_t>(a.rowind.size()));
    }
  return a;
}

// Collects log text.
struct CapturedLog {
  std::string text;
  LogSink sink{[](void* h, const char* t) { static_cast<CapturedLog*>(h)->text += t; }, this, 3};
};

}  // namespace qubor::linalg::testing
