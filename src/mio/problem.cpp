// The internal problem; see problem.h.
#include "mio/problem.h"

#include <algorithm>
#include <cmath>

#include "linalg/lu/basis_lu.h"

namespace qubor::mio {

bool make_problem(interior::LpProblem lp, const std::vector<uint8_t>& is_int, Problem& p) {
  p.lp = std::move(lp);
  const int32_t n = p.lp.num_col, m = p.lp.num_row;
  p.type.assign(static_cast<size_t>(n), VarType::kContinuous);
  p.num_int = p.num_bin = p.num_cont = 0;
  bool ok = true;
  for (int32_t j = 0; j < n; ++j) {
    const size_t js = static_cast<size_t>(j);
    if (js < is_int.size() && is_int[js] != 0) {
      double& lo = p.lp.col_lo[js];
      double& up = p.lp.col_up[js];
      if (std::isfinite(lo)) lo = std::ceil(lo - 1e-9);
      if (std::isfinite(up)) up = std::floor(up + 1e-9);
      if (lo > up) ok = false;
      const bool binary = lo >= 0.0 && up <= 1.0;
      p.type[js] = binary ? VarType::kBinary : VarType::kInteger;
      ++(binary ? p.num_bin : p.num_int);
    } else {
      ++p.num_cont;
    }
  }
  p.integral_objective = true;
  for (int32_t j = 0; j < n; ++j) {
    const double cj = p.lp.c[static_cast<size_t>(j)];
    if (cj == 0.0) continue;
    if (!p.is_int(j) || cj != std::round(cj)) {
      p.integral_objective = false;
      break;
    }
  }
  linalg::transpose_sparse(n, m, p.lp.col_ptr, p.lp.row_idx, p.lp.values, p.row_ptr, p.col_idx, p.row_val);
  return ok;
}

Violation violation(const Problem& p, const double* x) {
  Violation v;
  const int32_t n = p.n(), m = p.m();
  for (int32_t j = 0; j < n; ++j) {
    const size_t js = static_cast<size_t>(j);
    if (std::isfinite(p.lp.col_lo[js])) v.bound = std::max(v.bound, p.lp.col_lo[js] - x[j]);
    if (std::isfinite(p.lp.col_up[js])) v.bound = std::max(v.bound, x[j] - p.lp.col_up[js]);
    if (p.is_int(j)) v.integrality = std::max(v.integrality, std::fabs(x[j] - std::round(x[j])));
  }
  for (int32_t i = 0; i < m; ++i) {
    double act = 0.0;
    for (int64_t k = p.row_ptr[static_cast<size_t>(i)]; k < p.row_ptr[static_cast<size_t>(i) + 1]; ++k)
      act += p.row_val[static_cast<size_t>(k)] * x[p.col_idx[static_cast<size_t>(k)]];
    const double rl = p.lp.row_lo[static_cast<size_t>(i)], ru = p.lp.row_up[static_cast<size_t>(i)];
    if (std::isfinite(rl)) v.row = std::max(v.row, (rl - act) / (1.0 + std::fabs(rl)));
    if (std::isfinite(ru)) v.row = std::max(v.row, (act - ru) / (1.0 + std::fabs(ru)));
  }
  return v;
}

double objective(const Problem& p, const double* x) {
  double s = p.lp.cfix;
  for (int32_t j = 0; j < p.n(); ++j) s += p.lp.c[static_cast<size_t>(j)] * x[j];
  return s;
}

}  // namespace qubor::mio
