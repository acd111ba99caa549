// Entry of the simplex optimizers; see simplex.h.
#include "simplex/simplex.h"

#include <chrono>

#include "simplex/engine.h"

namespace qubor::simplex {

void solve(const interior::LpProblem& lp, const SimplexOptions& options, const StartBasis* start,
           SimplexResult& result) {
  const auto t0 = std::chrono::steady_clock::now();
  result = SimplexResult();
  Engine e(lp, options);
  if (start != nullptr && start->skx.size() == static_cast<size_t>(lp.num_col) &&
      start->skc.size() == static_cast<size_t>(lp.num_row)) {
    e.set_basis(*start);
    result.hot_started = true;
  } else {
    e.set_slack_basis();
  }
  bool dual = options.algorithm != Algorithm::kPrimal;
  if (options.algorithm == Algorithm::kFree) {
    // The free choice: the primal simplex when the start is primal feasible and not dual
    // feasible (a hot start after a cost change), the dual simplex otherwise.
    e.refactor();
    dual = !(e.primal_feasible() && !e.dual_feasible());
  }
  result.solved_dual_first = dual;
  if (result.solved_dual_first)
    run_dual(e, lp, result);
  else
    run_primal(e, lp, result);
  result.setbacks = e.setbacks;
  result.time = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
  const double share = e.iterations > 0 ? result.time / static_cast<double>(e.iterations) : 0.0;
  result.dual_time = share * static_cast<double>(result.dual_iterations);
  result.primal_time = share * static_cast<double>(result.primal_iterations);
}

}  // namespace qubor::simplex
