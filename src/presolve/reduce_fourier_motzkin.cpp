// Projection of zero-cost columns that sit between two rows.
//
// x_j with c_j = 0, one finite bound b, entries in exactly two one-sided rows, one of which
// bounds x_j from above and the other from below: the feasible values of the other columns
// are those for which the two bounds and b leave room. Eliminating x_j (Fourier-Motzkin)
// leaves the nonnegative combination of the two rows that cancels x_j, in place of row q,
// and row p with x_j at b (the residual), where p is the row whose bound on x_j faces b. This
// pays only when the residual goes as well, so it is done when the residual is a singleton
// row (a bound) or redundant under the column bounds; the later reductions then remove it.
#include <cmath>

#include "presolve/presolver.h"

namespace qubor::presolve {

namespace {

// +1 when only ru is finite, -1 when only rl is, 0 otherwise.
int32_t one_side(const WorkProblem& w, int32_t i) {
  const bool has_l = finite(w.rl[i]), has_u = finite(w.ru[i]);
  if (has_l == has_u) return 0;
  return has_u ? +1 : -1;
}

// Row p with x_j fixed at b: a singleton, or implied by the bounds of its other columns.
bool residual_goes(const WorkProblem& w, int32_t p, int32_t j, double a, double b, double tol) {
  if (w.rows[p].size() == 2) return true;
  const ActivityBounds act = w.activity_without(p, j);
  const double rl = w.rl[p] - a * b, ru = w.ru[p] - a * b;  // infinite sides stay infinite
  return (!finite(rl) || act.lo() >= rl - scaled_tol(tol, rl)) && (!finite(ru) || act.hi() <= ru + scaled_tol(tol, ru));
}

// Largest |a_q / a_p| accepted as the multiplier of row p.
constexpr double kMaxMultiplier = 100.0;

}  // namespace

int32_t Presolver::fourier_motzkin_columns() {
  int32_t count = 0;
  for (int32_t j = 0; j < w_.n && can_reduce(); ++j) {
    if (!w_.col_active[j] || w_.integer(j) || w_.cols[j].size() != 2 || w_.c[j] != 0.0) continue;
    const bool has_l = finite(w_.l[j]), has_u = finite(w_.u[j]);
    if (has_l == has_u) continue;
    Entry e0 = w_.cols[j][0], e1 = w_.cols[j][1];
    const int32_t s0 = one_side(w_, e0.index), s1 = one_side(w_, e1.index);
    if (s0 == 0 || s1 == 0) continue;
    // alpha > 0: the row bounds x_j from above.
    const double alpha0 = s0 * e0.value, alpha1 = s1 * e1.value;
    if ((alpha0 > 0) == (alpha1 > 0)) continue;
    // p bounds x_j from the side opposite to b.
    if ((alpha0 > 0) != has_l) std::swap(e0, e1);
    const double b = has_l ? w_.l[j] : w_.u[j];
    if (std::fabs(e1.value) > kMaxMultiplier * std::fabs(e0.value)) continue;
    if (!residual_goes(w_, e0.index, j, e0.value, b, opt_.tol_x)) continue;
    combine_rows_through(j, e0.index, e1.index);
    ++count;
  }
  return count;
}

void Presolver::combine_rows_through(int32_t j, int32_t p, int32_t q) {
  const double ap = w_.coef(p, j), aq = w_.coef(q, j), mu = -aq / ap;
  const double bp = finite(w_.ru[p]) ? w_.ru[p] : w_.rl[p];
  Step& s = stack_.push(StepKind::kFourierMotzkin, p, j, q,
                        {ap, aq, mu, w_.l[j], w_.u[j], w_.rl[p], w_.ru[p], w_.rl[q], w_.ru[q]});
  Vec<Entry> row_p(w_.rows[p], stack_.idx.get_allocator());
  for (const Entry& e : row_p)
    if (e.index != j) stack_.add_entry(s, e.index, e.value);
  stack_.split(s);
  for (const Entry& e : w_.rows[q])
    if (e.index != j) stack_.add_entry(s, e.index, e.value);
  // q += mu p cancels x_j; q's finite side moves by mu times p's.
  w_.remove_entry(q, j);
  w_.add_scaled_row(q, row_p, j, mu);
  if (finite(w_.rl[q])) w_.rl[q] += mu * bp;
  if (finite(w_.ru[q])) w_.ru[q] += mu * bp;
  // Row p keeps x_j at its finite bound.
  const double shift = ap * (finite(w_.l[j]) ? w_.l[j] : w_.u[j]);
  if (finite(w_.rl[p])) w_.rl[p] -= shift;
  if (finite(w_.ru[p])) w_.ru[p] -= shift;
  w_.touch_row(p);
  w_.touch_row(q);
  w_.remove_col(j);
  ++stats_.reductions;
}

}  // namespace qubor::presolve
