// Forcing and redundant rows from activity bounds.
//
// With [lo, hi] the range of a_i x over the column bounds: lo > ru or hi < rl is primal
// infeasibility; [lo, hi] inside [rl, ru] makes the row redundant (dual 0); lo = ru forces
// every column of the row to the bound that minimizes its term (hi = rl: maximizes); a side
// that the range already implies (lo >= rl) is dropped, which frees the sign of the dual.
#include <cmath>

#include "presolve/presolver.h"

namespace qubor::presolve {

int32_t Presolver::forcing_and_redundant_rows() {
  int32_t count = 0;
  for (int32_t i = 0; i < w_.m && can_reduce(); ++i) {
    if (!w_.row_active[i] || w_.rows[i].size() < 2) continue;
    const ActivityBounds act = w_.activity(i);
    const double lo = act.lo(), hi = act.hi();
    const double rl = w_.rl[i], ru = w_.ru[i];
    const double tol_l = scaled_tol(opt_.tol_s, rl), tol_u = scaled_tol(opt_.tol_s, ru);
    if (lo > ru + tol_u || hi < rl - tol_l) {
      set_status(PresolveStatus::kPrimalInfeasible);
      return count;
    }
    if (lo >= rl - tol_l && hi <= ru + tol_u) {
      drop_row(i);
      ++count;
    } else if (finite(ru) && lo >= ru - tol_u) {
      force_row(i, +1);
      ++count;
    } else if (finite(rl) && hi <= rl + tol_l) {
      force_row(i, -1);
      ++count;
    } else if (finite(rl) && lo >= rl - tol_l) {
      w_.rl[i] = -kInf;
      ++count;
    } else if (finite(ru) && hi <= ru + tol_u) {
      w_.ru[i] = kInf;
      ++count;
    }
  }
  return count;
}

}  // namespace qubor::presolve
