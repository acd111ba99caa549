// Empty and free rows, fixed and empty columns, singleton rows.
//
// An empty row must admit activity 0; a free row constrains nothing; both go with dual 0.
// A column with equal bounds, or without entries, is fixed: an empty column goes to the
// bound its cost prefers (no such bound means the problem is dual infeasible).
// A singleton row a x_j in [rl, ru] becomes the bounds [rl, ru] / a of x_j.
#include <cmath>

#include "presolve/presolver.h"

namespace qubor::presolve {

int32_t Presolver::remove_empty_rows() {
  int32_t count = 0;
  for (int32_t i = 0; i < w_.m && can_reduce(); ++i) {
    if (!w_.row_active[i]) continue;
    const bool free_row = !finite(w_.rl[i]) && !finite(w_.ru[i]);
    if (!w_.rows[i].empty() && !free_row) continue;
    if (w_.rows[i].empty() && (w_.rl[i] > scaled_tol(opt_.tol_s, w_.rl[i]) ||
                               w_.ru[i] < -scaled_tol(opt_.tol_s, w_.ru[i]))) {
      set_status(PresolveStatus::kPrimalInfeasible);
      return count;
    }
    drop_row(i);
    ++count;
  }
  return count;
}

int32_t Presolver::remove_fixed_and_empty_columns() {
  int32_t count = 0;
  for (int32_t j = 0; j < w_.n && can_reduce(); ++j) {
    if (!w_.col_active[j]) continue;
    const double l = w_.l[j], u = w_.u[j];
    if (l > u && !bounds_equal(u, l)) {
      set_status(PresolveStatus::kPrimalInfeasible);
      return count;
    }
    if (bounds_equal(l, u)) {
      fix_column(j, l);
      ++count;
      continue;
    }
    if (!w_.cols[j].empty()) continue;
    const double c = w_.c[j];
    double value;
    if (c > opt_.tol_s) {
      value = l;
    } else if (c < -opt_.tol_s) {
      value = u;
    } else {
      value = finite(l) ? l : (finite(u) ? u : 0.0);
    }
    if (!finite(value)) {
      set_status(PresolveStatus::kDualInfeasible);
      return count;
    }
    fix_column(j, value);
    ++count;
  }
  return count;
}

int32_t Presolver::singleton_rows() {
  int32_t count = 0;
  for (int32_t i = 0; i < w_.m && can_reduce(); ++i) {
    if (!w_.row_active[i] || w_.rows[i].size() != 1) continue;
    singleton_row_to_bounds(i, w_.rows[i].front().index);
    ++count;
  }
  return count;
}

// Integer columns get integral bounds; crossing bounds within the tolerance are made equal.
int32_t Presolver::tighten_bounds() {
  int32_t count = 0;
  for (int32_t j = 0; j < w_.n; ++j) {
    if (!w_.col_active[j]) continue;
    const double l = round_lower(j, w_.l[j]), u = round_upper(j, w_.u[j]);
    const bool crossing = l > u && bounds_equal(u, l);
    if (l == w_.l[j] && u == w_.u[j] && !crossing) continue;
    if (l != w_.l[j] || u != w_.u[j]) ++count;
    w_.l[j] = l;
    w_.u[j] = u;
    if (crossing) w_.l[j] = w_.u[j] = w_.integer(j) ? std::round(l) : 0.5 * (l + u);
    w_.touch_bounds(j);
  }
  return count;
}

}  // namespace qubor::presolve
