// Dominated columns via bounds on the duals.
//
// Every dual feasible y satisfies y_i >= 0 on rows with only a lower side, y_i <= 0 with only
// an upper side, and, for a continuous column k with an infinite upper bound, a_k'y <= c_k
// (z_k >= 0), with an infinite lower bound a_k'y >= c_k; propagating these gives a box of
// bounds on y. Over that box z_j = c_j - a_j'y lies in [zmin, zmax]. zmin > 0 puts x_j at its lower bound in every
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

// Propagation of the dual constraints of the continuous columns with an infinite bound:
// u_j infinite gives a_j'y <= c_j (z_j >= 0), l_j infinite a_j'y >= c_j, and each such
// constraint bounds every y_i of the column through the range of the rest of a_j'y, as
// activity bounds do for rows. A few sweeps; every column that tightened a bound is marked a
// source: the bounds hold only while the sources stay in the problem.
// With singletons_only, one sweep over the column singletons.
void propagate_dual_bounds(const WorkProblem& w, Vec<Range>& y, Vec<uint8_t>& source, bool singletons_only) {
  source.assign(static_cast<size_t>(w.n), 0);
  const int sweeps = singletons_only ? 1 : 2;
  for (int sweep = 0; sweep < sweeps; ++sweep) {
    bool changed = false;
    for (int32_t j = 0; j < w.n; ++j) {
      if (!w.col_active[j] || w.cols[j].empty() || w.integer(j)) continue;
      if (singletons_only && w.cols[j].size() != 1) continue;
      const bool upper = !finite(w.u[j]), lower = !finite(w.l[j]);  // a_j'y <= c_j, >= c_j
      if (!upper && !lower) continue;
      // Range of a_j'y over the box, with counts of infinite terms.
      double amin = 0.0, amax = 0.0;
      int32_t nmin = 0, nmax = 0;
      for (const Entry& e : w.cols[j]) {
        const Range r = y[e.index];
        const double lo = e.value > 0 ? r.lo : r.hi, hi = e.value > 0 ? r.hi : r.lo;
        if (finite(lo)) amin += e.value * lo; else ++nmin;
        if (finite(hi)) amax += e.value * hi; else ++nmax;
        // Two infinite terms on each side that matters: nothing to propagate.
        if ((!upper || nmin > 1) && (!lower || nmax > 1)) break;
      }
      if ((!upper || nmin > 1) && (!lower || nmax > 1)) continue;
      for (const Entry& e : w.cols[j]) {
        Range& r = y[e.index];
        const double a = e.value;
        const double lo = a > 0 ? r.lo : r.hi, hi = a > 0 ? r.hi : r.lo;
        // a y_i <= c_j - (min of the rest); a y_i >= c_j - (max of the rest).
        double t_hi = kInf, t_lo = -kInf;
        if (upper) {
          const double rest = finite(lo) ? (nmin == 0 ? amin - a * lo : kInf) : (nmin == 1 ? amin : kInf);
          if (finite(rest)) t_hi = w.c[j] - rest;
        }
        if (lower) {
          const double rest = finite(hi) ? (nmax == 0 ? amax - a * hi : -kInf) : (nmax == 1 ? amax : -kInf);
          if (finite(rest)) t_lo = w.c[j] - rest;
        }
        const double new_hi = a > 0 ? t_hi / a : t_lo / a, new_lo = a > 0 ? t_lo / a : t_hi / a;
        // A margin against cancellation; only clear gains count as changes.
        if (finite(new_hi) && new_hi + scaled_tol(1e-9, new_hi) < r.hi - scaled_tol(1e-7, r.hi)) {
          r.hi = new_hi + scaled_tol(1e-9, new_hi);
          source[j] = 1;
          changed = true;
        }
        if (finite(new_lo) && new_lo - scaled_tol(1e-9, new_lo) > r.lo + scaled_tol(1e-7, r.lo)) {
          r.lo = new_lo - scaled_tol(1e-9, new_lo);
          source[j] = 1;
          changed = true;
        }
      }
    }
    if (!changed) break;
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
  const uint64_t since = dominated_clock_;
  // The dual bounds take whole sweeps over the columns: after the first, they are derived
  // again only once a fiftieth of the columns have seen a change; smaller changes wait for
  // the next call.
  if (since != 0) {
    int32_t changed = 0;
    for (int32_t j = 0; j < w_.n; ++j)
      if (w_.col_active[j] && w_.col_neighbourhood_changed_since(j, since)) ++changed;
    if (changed < std::max(10, w_.active_cols / 50)) return 0;
  }
  dominated_clock_ = w_.clock;
  Vec<Range>& y = dual_box_;
  Vec<Range>& y_rows = dual_box_rows_;
  Vec<uint8_t>& source = dual_source_;
  y.resize(static_cast<size_t>(w_.m));
  dual_bounds_from_rows(w_, y);
  y_rows.assign(y.begin(), y.end());
  // A dual bounded away from zero puts its row on one side in every optimum. Only the
  // bounds of single singletons are used here: when the problem has no optimum (it is
  // unbounded), a singleton can still absorb the row's move along an improving ray, while
  // bounds propagated through longer columns could make the row an equality that cuts
  // the ray off.
  propagate_dual_bounds(w_, y, source, true);
  int32_t count = 0;
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
  } else {
    y.assign(y_rows.begin(), y_rows.end());
  }
  propagate_dual_bounds(w_, y, source, false);
  // The sources of the bounds are judged by the row signs alone, after the others: fixing
  // one earlier would void its bounds for the later columns. A source cannot be fixed that
  // way while its constraint is what bounds a dual, so the earlier fixes stay valid.
  // After the first sweep only columns whose neighbourhood changed since the last sweep are
  // tested: the dual bounds of far rows rarely move enough to decide another.
  const bool full = since == 0;
  for (int pass = 0; pass < 2; ++pass) {
    for (int32_t j = 0; j < w_.n && can_reduce(); ++j) {
      if (!w_.col_active[j] || w_.integer(j) || w_.cols[j].empty()) continue;
      if ((source[j] != 0) != (pass == 1)) continue;
      if (!full && !w_.col_neighbourhood_changed_since(j, since)) continue;
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
