// Primitives of the presolve: each changes the working problem and pushes the postsolve
// record that undoes it (postsolve_stack.cpp), so a reduction can never forget its undo.
#include <algorithm>
#include <cmath>

#include "presolve/presolver.h"

namespace qubor::presolve {

double Presolver::round_lower(int32_t j, double v) const {
  return w_.integer(j) && finite(v) ? std::ceil(v - opt_.tol_x) : v;
}

double Presolver::round_upper(int32_t j, double v) const {
  return w_.integer(j) && finite(v) ? std::floor(v + opt_.tol_x) : v;
}

void Presolver::drop_row(int32_t i) {
  Step& s = stack_.push(StepKind::kRemoveRow);
  s.row = i;
  w_.remove_row(i);
  ++stats_.reductions;
}

void Presolver::fix_column(int32_t j, double value) {
  Step& s = stack_.push(StepKind::kFixColumn);
  s.col = j;
  s.v[0] = value;
  s.v[1] = w_.c[j];
  s.v[2] = w_.l[j];
  s.v[3] = w_.u[j];
  for (const Entry& e : w_.cols[j]) {
    stack_.add_entry(s, e.index, e.value);
    const double shift = e.value * value;
    if (finite(w_.rl[e.index])) w_.rl[e.index] -= shift;
    if (finite(w_.ru[e.index])) w_.ru[e.index] -= shift;
  }
  w_.c0 += w_.c[j] * value;
  w_.remove_col(j);
  ++stats_.reductions;
}

void Presolver::singleton_row_to_bounds(int32_t i, int32_t j) {
  const double a = w_.rows[i].front().value;
  // Division keeps the signs of infinite sides right.
  double lo = a > 0 ? w_.rl[i] / a : w_.ru[i] / a;
  double hi = a > 0 ? w_.ru[i] / a : w_.rl[i] / a;
  lo = round_lower(j, lo);
  hi = round_upper(j, hi);
  Step& s = stack_.push(StepKind::kSingletonRow, i, j, -1, {a, w_.rl[i], w_.ru[i], w_.l[j], w_.u[j]});
  // A bound that the column already has (up to the tolerance) stays the column's own, so the
  // dual is never moved to the row for it.
  if (lo > w_.l[j] + scaled_tol(opt_.tol_x, w_.l[j])) w_.l[j] = lo;
  if (hi < w_.u[j] - scaled_tol(opt_.tol_x, w_.u[j])) w_.u[j] = hi;
  if (w_.l[j] > w_.u[j] && bounds_equal(w_.u[j], w_.l[j])) {
    const double mid = 0.5 * (w_.l[j] + w_.u[j]);
    w_.l[j] = w_.u[j] = mid;
  }
  s.v[5] = w_.l[j];
  s.v[6] = w_.u[j];
  w_.touch_bounds(j);
  w_.remove_row(i);
  ++stats_.reductions;
  if (w_.l[j] > w_.u[j]) set_status(PresolveStatus::kPrimalInfeasible);
}

void Presolver::force_row(int32_t i, int32_t side) {
  Step& s = stack_.push(StepKind::kForcingRow);
  s.row = i;
  s.side = side;
  s.v[0] = w_.rl[i];
  s.v[1] = w_.ru[i];
  Vec<Entry> entries(w_.rows[i], stack_.idx.get_allocator());
  for (const Entry& e : entries) stack_.add_entry(s, e.index, e.value);
  stack_.split(s);
  for (const Entry& e : entries) stack_.add_entry(s, 0, w_.l[e.index] == w_.u[e.index] ? 1.0 : 0.0);
  w_.remove_row(i);
  ++stats_.reductions;
  // The fixings come after the row record, so their undo runs first and leaves z_j for the
  // row's undo to correct.
  for (const Entry& e : entries) {
    const bool at_lower = (e.value > 0) == (side > 0);
    fix_column(e.index, at_lower ? w_.l[e.index] : w_.u[e.index]);
  }
}

void Presolver::absorb_slack_column(int32_t j, int32_t i) {
  const double a = w_.coef(i, j), l = w_.l[j], u = w_.u[j];
  // On an equality row the cost moves to the other columns: c_j x_j = g (b - rest), g = c_j / a.
  const double g = w_.c[j] / a;
  Step& s = stack_.push(StepKind::kSlackColumn, i, j, -1, {a, l, u, w_.rl[i], w_.ru[i], g});
  // The row as it is now is recorded only when nothing else will do: a row still as in the
  // input (but for columns gone) is the input's row, and while a row is otherwise unchanged
  // the record of its last slack serves too. Either differs from the row now only by columns
  // that are still zero when this step is undone.
  SlackRecord& last = slack_records_[static_cast<size_t>(i)];
  if (!w_.row_modified[i]) {
    s.side = 1;
  } else if (last.end > last.begin && w_.row_version[i] == last.version) {
    s.begin = s.mid = last.begin;
    s.end = last.end;
  } else {
    for (const Entry& e : w_.rows[i])
      if (e.index != j) stack_.add_entry(s, e.index, e.value);
  }
  if (g != 0.0) {
    for (const Entry& e : w_.rows[i]) {
      if (e.index == j) continue;
      w_.c[e.index] -= g * e.value;
      w_.touch_col(e.index);
    }
  }
  if (g != 0.0) w_.c0 += g * w_.rl[i];
  const double min_ax = a > 0 ? a * l : a * u, max_ax = a > 0 ? a * u : a * l;
  w_.rl[i] = finite(w_.rl[i]) && finite(max_ax) ? w_.rl[i] - max_ax : -kInf;
  w_.ru[i] = finite(w_.ru[i]) && finite(min_ax) ? w_.ru[i] - min_ax : kInf;
  w_.remove_col(j);
  last = {w_.row_version[i], s.begin, s.end};
  ++stats_.reductions;
}

void Presolver::substitute(int32_t j, int32_t i, int32_t row_key, int32_t partner, double lk_before,
                           double uk_before) {
  const double a = w_.coef(i, j);
  const double b = w_.rl[i];
  Step& s = stack_.push(StepKind::kSubstitution);
  s.row = i;
  s.col = j;
  s.other = partner;
  s.side = row_key;
  s.v[0] = a;
  s.v[1] = b;
  s.v[2] = w_.c[j];
  s.v[3] = w_.l[j];
  s.v[4] = w_.u[j];
  if (partner >= 0) {
    s.v[5] = lk_before;
    s.v[6] = uk_before;
    s.v[7] = w_.coef(i, partner);
    s.v[8] = w_.l[partner];
    s.v[9] = w_.u[partner];
  }
  // Copies: the lists change while rows are updated.
  Vec<Entry> col(w_.cols[j], stack_.idx.get_allocator());
  Vec<Entry> row(w_.rows[i], stack_.idx.get_allocator());
  for (const Entry& e : col)
    if (e.index != i) stack_.add_entry(s, e.index, e.value);
  stack_.split(s);
  for (const Entry& e : row)
    if (e.index != j) stack_.add_entry(s, e.index, e.value);
  // Row r gets f * row i with f = -a_rj / a; its sides move by f * b.
  for (const Entry& e : col) {
    const int32_t r = e.index;
    if (r == i) continue;
    const double f = -e.value / a;
    w_.add_scaled_row(r, row, j, f);
    if (finite(w_.rl[r])) w_.rl[r] += f * b;
    if (finite(w_.ru[r])) w_.ru[r] += f * b;
    w_.touch_row(r);
  }
  const double g = -w_.c[j] / a;
  for (const Entry& t : row) {
    if (t.index == j) continue;
    w_.c[t.index] += g * t.value;
    if (g != 0.0) w_.touch_col(t.index);
  }
  w_.c0 += w_.c[j] * b / a;
  w_.remove_col(j);
  w_.remove_row(i);
  ++stats_.reductions;
}

void Presolver::substitute_activity(int32_t j, int32_t i) {
  const double a = w_.coef(i, j);
  Step& s = stack_.push(StepKind::kActivityColumn, i, j, -1, {a, w_.rl[i], w_.ru[i]});
  Vec<Entry> col(w_.cols[j], stack_.idx.get_allocator());
  Vec<Entry> row(w_.rows[i], stack_.idx.get_allocator());
  for (const Entry& e : row)
    if (e.index != j) stack_.add_entry(s, e.index, e.value);
  // x_j = (t - sum_q a_iq x_q) / a in the other rows and the objective.
  for (const Entry& e : col) {
    const int32_t r = e.index;
    if (r == i) continue;
    const double f = e.value / a;
    w_.add_scaled_row(r, row, j, -f);
    w_.add_to_entry(r, j, f - e.value);
  }
  const double g = w_.c[j] / a;
  for (const Entry& t : row) {
    if (t.index == j) continue;
    w_.c[t.index] -= g * t.value;
    if (g != 0.0) w_.touch_col(t.index);
  }
  w_.c[j] = g;
  w_.l[j] = w_.rl[i];
  w_.u[j] = w_.ru[i];
  w_.remove_row(i);
  w_.touch_bounds(j);
  ++stats_.reductions;
}

void Presolver::tighten_row_to_side(int32_t i, int32_t side) {
  Step& s = stack_.push(StepKind::kRowToSide, i, -1, -1, {});
  s.side = side;
  if (side > 0) w_.rl[i] = w_.ru[i]; else w_.ru[i] = w_.rl[i];
  w_.touch_row(i);
  ++stats_.reductions;
}

}  // namespace qubor::presolve
