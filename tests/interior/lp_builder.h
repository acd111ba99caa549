// Small LPs written row by row for the optimizer tests, and the checks of their answers.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <tuple>
#include <vector>

#include "interior/lp_problem.h"

namespace qubor::interior::testing {

constexpr double kInf = std::numeric_limits<double>::infinity();

struct Row {
  std::vector<std::pair<int32_t, double>> entries;
  double lo, up;
};

inline LpProblem make_lp(const std::vector<double>& c, const std::vector<double>& lo,
                         const std::vector<double>& up, const std::vector<Row>& rows) {
  LpProblem p;
  p.num_col = static_cast<int32_t>(c.size());
  p.num_row = static_cast<int32_t>(rows.size());
  p.c = c;
  p.col_lo = lo;
  p.col_up = up;
  std::vector<std::vector<std::pair<int32_t, double>>> cols(c.size());
  for (size_t i = 0; i < rows.size(); ++i) {
    p.row_lo.push_back(rows[i].lo);
    p.row_up.push_back(rows[i].up);
    for (auto [j, v] : rows[i].entries) cols[static_cast<size_t>(j)].push_back({static_cast<int32_t>(i), v});
  }
  p.col_ptr.push_back(0);
  for (const auto& col : cols) {
    for (auto [i, v] : col) {
      p.row_idx.push_back(i);
      p.values.push_back(v);
    }
    p.col_ptr.push_back(static_cast<int64_t>(p.row_idx.size()));
  }
  return p;
}

inline IpResult solve(const LpProblem& p, IpOptions opt = IpOptions()) {
  IpResult r;
  solve_lp(p, opt, r);
  return r;
}

// Adds the quadratic objective 1/2 x'Qx from lower-triangle triplets (i >= j).
inline void put_q(LpProblem& p, const std::vector<std::tuple<int32_t, int32_t, double>>& lower) {
  const size_t n = static_cast<size_t>(p.num_col);
  std::vector<std::vector<std::pair<int32_t, double>>> cols(n);
  for (auto [i, j, v] : lower) cols[static_cast<size_t>(j)].push_back({i, v});
  p.q_col_ptr.assign(1, 0);
  p.q_row_idx.clear();
  p.q_values.clear();
  for (const auto& col : cols) {
    for (auto [i, v] : col) {
      p.q_row_idx.push_back(i);
      p.q_values.push_back(v);
    }
    p.q_col_ptr.push_back(static_cast<int64_t>(p.q_row_idx.size()));
  }
}

// Q x from the lower triangle (0 for a linear problem).
inline std::vector<double> q_times(const LpProblem& p, const std::vector<double>& x) {
  std::vector<double> qx(static_cast<size_t>(p.num_col), 0.0);
  if (p.q_col_ptr.empty()) return qx;
  for (size_t j = 0; j < qx.size(); ++j)
    for (int64_t k = p.q_col_ptr[j]; k < p.q_col_ptr[j + 1]; ++k) {
      const size_t i = static_cast<size_t>(p.q_row_idx[static_cast<size_t>(k)]);
      qx[i] += p.q_values[static_cast<size_t>(k)] * x[j];
      if (i != j) qx[j] += p.q_values[static_cast<size_t>(k)] * x[i];
    }
  return qx;
}

// Largest violation of primal feasibility, dual feasibility (c + Q x - A'y - slx + sux = 0,
// y = slc - suc, signs, zero duals on infinite bounds) and of xc = A x.
inline void expect_kkt(const LpProblem& p, const IpResult& r, double tol) {
  const size_t n = static_cast<size_t>(p.num_col), m = static_cast<size_t>(p.num_row);
  std::vector<double> ax(m, 0.0), aty(n, 0.0);
  const std::vector<double> qx = q_times(p, r.x);
  for (size_t j = 0; j < n; ++j)
    for (int64_t k = p.col_ptr[j]; k < p.col_ptr[j + 1]; ++k) {
      const size_t i = static_cast<size_t>(p.row_idx[static_cast<size_t>(k)]);
      ax[i] += p.values[static_cast<size_t>(k)] * r.x[j];
      aty[j] += p.values[static_cast<size_t>(k)] * r.y[i];
    }
  for (size_t j = 0; j < n; ++j) {
    EXPECT_GE(r.x[j], p.col_lo[j] - tol) << "x" << j;
    EXPECT_LE(r.x[j], p.col_up[j] + tol) << "x" << j;
    EXPECT_NEAR(p.c[j] + qx[j] - aty[j] - r.slx[j] + r.sux[j], 0.0, tol) << "reduced cost " << j;
    EXPECT_GE(r.slx[j], -tol);
    EXPECT_GE(r.sux[j], -tol);
    if (!std::isfinite(p.col_lo[j])) {
      EXPECT_EQ(r.slx[j], 0.0);
    }
    if (!std::isfinite(p.col_up[j])) {
      EXPECT_EQ(r.sux[j], 0.0);
    }
  }
  for (size_t i = 0; i < m; ++i) {
    EXPECT_NEAR(ax[i], r.xc[i], tol) << "xc" << i;
    EXPECT_GE(r.xc[i], p.row_lo[i] - tol) << "row " << i;
    EXPECT_LE(r.xc[i], p.row_up[i] + tol) << "row " << i;
    EXPECT_NEAR(r.y[i], r.slc[i] - r.suc[i], tol);
  }
  EXPECT_NEAR(r.primal_obj, r.dual_obj, tol * (1.0 + std::fabs(r.primal_obj)));
}

}  // namespace qubor::interior::testing
