// Forcing and redundant rows from activity bounds.
//
// With [lo, hi] the range of a_i x over the column bounds: lo > ru or hi < rl is primal
// infeasibility; [lo, hi] inside [rl, ru] makes the row redundant (dual 0); lo = ru forces
// every column of the row to the bound that minimizes its term (hi = rl: maximizes); a side
// that the range already implies (lo >= rl) is dropped, which frees the sign of the dual.
// Redundancy may also use column bounds implied by other rows (never by the row itself, and
// only from rows not changed since the bounds were computed): the rest of the problem then
// implies the row, and it goes with dual 0. That test costs the implied bounds and a second
// read of each row, so it runs only in the full sweep before presolve settles; the sweeps
// over changed rows in between use the columns' own bounds.
#include <algorithm>
#include <cmath>

#include "presolve/presolver.h"

namespace qubor::presolve {

namespace {

// Activity range of row i over the column bounds tightened by the implied ones that rows
// other than i give and that are still valid (their row unchanged since they were computed).
ActivityBounds implied_activity(const WorkProblem& w, const ImpliedBounds& b, const Vec<uint8_t>& valid, int32_t i) {
  ActivityBounds act;
  for (const Entry& e : w.rows[i]) {
    const int32_t j = e.index;
    const int32_t rl = b.lo_row[j], ru = b.hi_row[j];
    const double l = rl >= 0 && rl != i && valid[rl] ? b.lo[j] : w.l[j];
    const double u = ru >= 0 && ru != i && valid[ru] ? b.hi[j] : w.u[j];
    const double lo = e.value > 0 ? l : u, hi = e.value > 0 ? u : l;
    if (finite(lo)) act.min += e.value * lo; else ++act.min_inf;
    if (finite(hi)) act.max += e.value * hi; else ++act.max_inf;
  }
  return act;
}

}  // namespace

int32_t Presolver::forcing_and_redundant_rows() {
  int32_t count = 0;
  // Only rows changed since the last sweep are looked at again.
  Vec<int32_t> rows(opt_.mem);
  for (int32_t i = 0; i < w_.m; ++i)
    if (w_.row_active[i] && w_.rows[i].size() >= 2 && w_.row_changed_since(i, forcing_clock_)) rows.push_back(i);
  forcing_clock_ = w_.clock;
  if (rows.empty()) return 0;
  const bool with_implied = forcing_settle_;
  if (with_implied) w_.refresh_implied_bounds(implied_);
  const ImpliedBounds& implied = implied_;
  // Rows whose implied bounds still hold: active and sides unchanged.
  Vec<uint8_t> valid(w_.row_active, opt_.mem);
  for (size_t k = 0; k < rows.size() && can_reduce(); ++k) {
    const int32_t i = rows[k];
    if (!w_.row_active[i] || w_.rows[i].size() < 2) continue;
    // The range the refresh summed serves while the row is unchanged.
    const ActivityBounds act = with_implied && implied.has_activity[static_cast<size_t>(i)] &&
                                       !w_.row_changed_since(i, implied.activity_clock)
                                   ? implied.activity[static_cast<size_t>(i)]
                                   : w_.activity(i);
    const double lo = act.lo(), hi = act.hi();
    const double rl = w_.rl[i], ru = w_.ru[i];
    const double tol_l = scaled_tol(opt_.tol_s, rl), tol_u = scaled_tol(opt_.tol_s, ru);
    if (lo > ru + tol_u || hi < rl - tol_l) {
      set_status(PresolveStatus::kPrimalInfeasible);
      return count;
    }
    // Redundancy may use the bounds other rows imply; forcing needs the columns' own.
    const ActivityBounds imp = with_implied ? implied_activity(w_, implied, valid, i) : act;
    const double ilo = std::max(lo, imp.lo()), ihi = std::min(hi, imp.hi());
    if (ilo >= rl - tol_l && ihi <= ru + tol_u) {
      drop_row(i);
      valid[i] = 0;
      ++count;
    } else if (finite(ru) && lo >= ru - tol_u) {
      force_row(i, +1);
      valid[i] = 0;
      ++count;
    } else if (finite(rl) && hi <= rl + tol_l) {
      force_row(i, -1);
      valid[i] = 0;
      ++count;
    } else if (finite(rl) && ilo >= rl - tol_l) {
      w_.rl[i] = -kInf;
      w_.touch_row(i);
      valid[i] = 0;
      ++count;
    } else if (finite(ru) && ihi <= ru + tol_u) {
      w_.ru[i] = kInf;
      w_.touch_row(i);
      valid[i] = 0;
      ++count;
    }
  }
  return count;
}

}  // namespace qubor::presolve
