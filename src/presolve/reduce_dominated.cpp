// Dominated columns via bounds on the duals.
//
// Every dual feasible y satisfies y_i >= 0 on rows with only a lower side, y_i <= 0 with only
// an upper side, and, for a continuous column singleton k in row i with an infinite upper
// bound, a_ik y_i <= c_k (z_k >= 0), with an infinite lower bound a_ik y_i >= c_k. Over that
// box z_j = c_j - a_j'y lies in [zmin, zmax]. zmin > 0 puts x_j at its lower bound in every
// optimum (no lower bound: no dual feasible point), zmax < 0 at its upper bound. Likewise a
// row whose dual is bounded away from zero is at the matching side in every optimum and
// becomes an equality there.
// LP duality says nothing about integer columns, so they are neither fixed nor used.
#include <algorithm>
#include <cmath>

#include "presolve/presolver.h"

namespace qubor::presolve {

namespace {

void dual_bounds_from_rows(const WorkProblem& w, Vec<Range>& y) {
  for (int32_t i = 0; i < w.m; ++i) {
    const bool has_l = finite(w.rl[i]), has_u = finite(w.ru[i]);
    if (has_l && !has_u) y[i] = {0.0, kInf};
    else if (!has_l && has_u) y[i] = {-kInf, 0.0};
    else if (!has_l && !has_u) y[i] = {0.0, 0.0};
    else y[i] = {-kInf, kInf};
  }
}

void dual_bounds_from_singletons(const WorkProblem& w, Vec<Range>& y) {
  for (int32_t k = 0; k < w.n; ++k) {
    if (!w.col_active[k] || w.cols[k].size() != 1 || w.integer(k)) continue;
    const int32_t i = w.cols[k].front().index;
    const double a = w.cols[k].front().value, bound = w.c[k] / a;
    if (!finite(w.u[k])) {  // a y_i <= c_k
      if (a > 0) y[i].hi = std::min(y[i].hi, bound); else y[i].lo = std::max(y[i].lo, bound);
    }
    if (!finite(w.l[k])) {  // a y_i >= c_k
      if (a > 0) y[i].lo = std::max(y[i].lo, bound); else y[i].hi = std::min(y[i].hi, bound);
    }
  }
}

}  // namespace

namespace {

// Range of z_j = c_j - a_j'y over the dual box; returns false when a side is unbounded.
void reduced_cost_range(const WorkProblem& w, const Vec<Range>& y, int32_t j, double& zmin, double& zmax) {
  zmin = zmax = w.c[j];
  for (const Entry& e : w.cols[j]) {
    const Range r = y[e.index];
    zmin -= e.value > 0 ? e.value * r.hi : e.value * r.lo;
    zmax -= e.value > 0 ? e.value * r.lo : e.value * r.hi;
  }
}

}  // namespace

// Fixes x_j when the sign of z_j is decided; returns 1 when it fixed, 0 when not, -1 when the
// problem is dual infeasible.
int32_t Presolver::fix_dominated(int32_t j, double zmin, double zmax) {
  const double tol = opt_.tol_s * (1.0 + std::fabs(w_.c[j]));
  if (zmin > tol) {
    if (!finite(w_.l[j])) return -1;
    fix_column(j, w_.l[j]);
    return 1;
  }
  if (zmax < -tol) {
    if (!finite(w_.u[j])) return -1;
    fix_column(j, w_.u[j]);
    return 1;
  }
  return 0;
}

// With the row signs alone deciding z_j >= 0 (c_j >= 0 and every row of x_j loosens as x_j
// decreases), moving x_j to its lower bound keeps any solution feasible at no cost, and
// every dual the reduced problem can have keeps that sign; likewise upwards.
int32_t Presolver::fix_weakly_dominated(int32_t j, const Vec<Range>& y_rows) {
  double zmin, zmax;
  reduced_cost_range(w_, y_rows, j, zmin, zmax);
  if (zmin >= 0.0 && finite(w_.l[j])) {
    fix_column(j, w_.l[j]);
    return 1;
  }
  if (zmax <= 0.0 && finite(w_.u[j])) {
    fix_column(j, w_.u[j]);
    return 1;
  }
  return 0;
}

int32_t Presolver::dominated_columns() {
  Vec<Range> y(static_cast<size_t>(w_.m), Range{0, 0}, opt_.mem);
  dual_bounds_from_rows(w_, y);
  Vec<Range> y_rows(y, opt_.mem);
  dual_bounds_from_singletons(w_, y);
  int32_t count = 0;
  // A dual bounded away from zero puts its row on one side in every optimum.
  for (int32_t i = 0; i < w_.m && can_reduce(); ++i) {
    if (!w_.row_active[i] || w_.rl[i] == w_.ru[i] || w_.rows[i].empty()) continue;
    const int32_t side = y[i].lo > opt_.tol_s ? -1 : (y[i].hi < -opt_.tol_s ? +1 : 0);
    if (side == 0) continue;
    if (!finite(side > 0 ? w_.ru[i] : w_.rl[i])) {
      set_status(PresolveStatus::kDualInfeasible);
      return count;
    }
    tighten_row_to_side(i, side);
    ++count;
  }
  if (count > 0) {  // the new equalities lose their sign bounds
    dual_bounds_from_rows(w_, y);
    y_rows.assign(y.begin(), y.end());
    dual_bounds_from_singletons(w_, y);
  }
  // Singletons that bound a dual are judged by the row signs alone, after the others:
  // fixing one earlier would void its bound for the later columns.
  for (int pass = 0; pass < 2; ++pass) {
    for (int32_t j = 0; j < w_.n && can_reduce(); ++j) {
      if (!w_.col_active[j] || w_.integer(j) || w_.cols[j].empty()) continue;
      const bool bounding = w_.cols[j].size() == 1 && (!finite(w_.l[j]) || !finite(w_.u[j]));
      if (bounding != (pass == 1)) continue;
      double zmin, zmax;
      reduced_cost_range(w_, pass == 0 ? y : y_rows, j, zmin, zmax);
      int32_t r = fix_dominated(j, zmin, zmax);
      if (r < 0) {
        set_status(PresolveStatus::kDualInfeasible);
        return count;
      }
      if (r == 0) r = fix_weakly_dominated(j, y_rows);
      count += r;
    }
  }
  return count;
}

}  // namespace qubor::presolve
