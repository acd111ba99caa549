// Geometric-mean scaling followed by column equilibration; see scaling.h.
#include "interior/scaling.h"

#include <algorithm>
#include <cmath>

#include "platform/prefaulted_buffer.h"

namespace qubor::interior {
namespace {

double pow2(double v) { return std::exp2(std::round(std::log2(v))); }

// One pass of geometric scaling on rows, then on columns. Returns the largest ratio
// max|a|/min|a| over the rows before the pass.
double geometric_pass(const StandardForm& sf, std::vector<double>& rs, std::vector<double>& cs) {
  const size_t m = static_cast<size_t>(sf.m), n = static_cast<size_t>(sf.n);
  std::vector<double> rmin(m, INFINITY), rmax(m, 0.0);
  for (size_t j = 0; j < n; ++j)
    for (int64_t k = sf.col_ptr[j]; k < sf.col_ptr[j + 1]; ++k) {
      const size_t i = static_cast<size_t>(sf.row_idx[static_cast<size_t>(k)]);
      const double a = std::fabs(sf.values[static_cast<size_t>(k)]) * rs[i] * cs[j];
      rmin[i] = std::min(rmin[i], a);
      rmax[i] = std::max(rmax[i], a);
    }
  double worst = 1.0;
  for (size_t i = 0; i < m; ++i)
    if (rmax[i] > 0.0) {
      worst = std::max(worst, rmax[i] / rmin[i]);
      rs[i] /= std::sqrt(rmin[i] * rmax[i]);
    }
  for (size_t j = 0; j < n; ++j) {
    double lo = INFINITY, hi = 0.0;
    for (int64_t k = sf.col_ptr[j]; k < sf.col_ptr[j + 1]; ++k) {
      const size_t i = static_cast<size_t>(sf.row_idx[static_cast<size_t>(k)]);
      const double a = std::fabs(sf.values[static_cast<size_t>(k)]) * rs[i] * cs[j];
      lo = std::min(lo, a);
      hi = std::max(hi, a);
    }
    if (hi > 0.0) cs[j] /= std::sqrt(lo * hi);
  }
  return worst;
}

}  // namespace

void scale_problem(StandardForm& sf, int32_t mode, std::vector<double>& row_scale,
                   std::vector<double>& col_scale) {
  const size_t m = static_cast<size_t>(sf.m), n = static_cast<size_t>(sf.n);
  platform::assign_prefaulted(row_scale, m, 1.0);
  platform::assign_prefaulted(col_scale, n, 1.0);
  if (mode == 0) return;
  const int passes = mode == 2 ? 20 : 10;
  double prev = INFINITY;
  for (int pass = 0; pass < passes; ++pass) {
    const double worst = geometric_pass(sf, row_scale, col_scale);
    if (worst > 0.9 * prev) break;
    prev = worst;
  }
  // Equilibrate rows, then columns, to a largest entry of about one.
  std::vector<double> rmax(m, 0.0);
  for (size_t j = 0; j < n; ++j)
    for (int64_t k = sf.col_ptr[j]; k < sf.col_ptr[j + 1]; ++k) {
      const size_t i = static_cast<size_t>(sf.row_idx[static_cast<size_t>(k)]);
      rmax[i] = std::max(rmax[i], std::fabs(sf.values[static_cast<size_t>(k)]) * row_scale[i] * col_scale[j]);
    }
  for (size_t i = 0; i < m; ++i) row_scale[i] = pow2(rmax[i] > 0.0 ? row_scale[i] / rmax[i] : 1.0);
  for (size_t j = 0; j < n; ++j) {
    double hi = 0.0;
    for (int64_t k = sf.col_ptr[j]; k < sf.col_ptr[j + 1]; ++k) {
      const size_t i = static_cast<size_t>(sf.row_idx[static_cast<size_t>(k)]);
      hi = std::max(hi, std::fabs(sf.values[static_cast<size_t>(k)]) * row_scale[i]);
    }
    col_scale[j] = pow2(hi > 0.0 ? 1.0 / hi : 1.0);
  }
  for (size_t j = 0; j < n; ++j) {
    for (int64_t k = sf.col_ptr[j]; k < sf.col_ptr[j + 1]; ++k) {
      const size_t kk = static_cast<size_t>(k);
      sf.values[kk] *= row_scale[static_cast<size_t>(sf.row_idx[kk])] * col_scale[j];
    }
    sf.c[j] *= col_scale[j];
    if (std::isfinite(sf.u[j])) sf.u[j] /= col_scale[j];
  }
  for (size_t i = 0; i < m; ++i) sf.b[i] *= row_scale[i];
  for (size_t j = 0; j + 1 < sf.q_ptr.size(); ++j)
    for (int64_t k = sf.q_ptr[j]; k < sf.q_ptr[j + 1]; ++k)
      sf.q_val[static_cast<size_t>(k)] *= col_scale[j] * col_scale[static_cast<size_t>(sf.q_idx[static_cast<size_t>(k)])];
}

}  // namespace qubor::interior
