// The simplex optimizers for linear problems: bounded dual simplex (dual steepest edge or
// Devex pricing, bound-flipping ratio test with Harris tolerances, cost perturbation and
// shifting, dual phase 1 on the box-bounded auxiliary problem) and the primal simplex
// (Devex pricing, Harris ratio test with bound shifting, composite phase 1), both over one
// basis LU (linalg/lu).
//
// Problem: interior::LpProblem (minimize c'x + cfix, row_lo <= A x <= row_up,
// col_lo <= x <= col_up; infinite bounds as +-inf). The solver never modifies it.
//
// Internal form: [A I] (x, s) = 0 with s = -A x, so a row's logical has the bounds
// [-row_up, -row_lo]; every item j < n + m is basic or nonbasic at a bound (a free
// nonbasic item sits at 0). Scaling by powers of two is applied inside and undone on the
// result.
//
// Result, in the problem's form and the system's dual convention: x, xc = A x, y with
// y = slc - suc and c - A'y = slx - sux. Status keys of the basis (public numbering) for
// columns and rows. For a primal infeasibility certificate the duals hold the ray
// (A'y + slx - sux = 0 with a positive dual objective), for a dual infeasibility
// certificate x holds the ray (A x in the recession cone of the row bounds, x in that of
// the column bounds, c'x < 0).
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "interior/lp_problem.h"
#include "linalg/common/log_sink.h"

namespace qubor::simplex {

enum class Algorithm : int32_t { kDual, kPrimal, kFree };

enum class Status : int32_t {
  kUnknown,
  kOptimal,
  kPrimalInfeasible,  // Farkas ray in the duals
  kDualInfeasible,    // improving ray in x
  kIterationLimit,
  kTimeLimit,
  kUserStop,
  kNumericalTrouble,  // setback limit reached
};

struct SimplexOptions {
  Algorithm algorithm = Algorithm::kFree;
  double tol_primal = 1e-7;  // scaled feasibility tolerances
  double tol_dual = 1e-7;
  double tol_pivot = 1e-7;   // smallest |alpha| a ratio test accepts
  double lu_rel_pivot = 0.01;
  int32_t refactor_freq = 0;  // 0: chosen by the solver
  int32_t dual_pricing = 0;   // SIM_SELECTION_* value: 3 Devex, others steepest edge
  int32_t primal_pricing = 0;
  int32_t scaling = 0;        // SCALING_* value: 1 none, others geometric + equilibration
  int32_t max_iterations = 10000000;
  int32_t max_setbacks = 250;
  bool switch_optimizer = false;
  bool perturb = true;
  uint32_t seed = 23456;
  double max_time = -1.0;     // seconds, negative: none
  int32_t log_freq = 1000;    // iterations between log lines (0: none)
  linalg::LogSink log;
  // Called every iteration; true stops the run (Status::kUserStop).
  std::function<bool(int64_t)> progress;
};

// A start basis: status keys (public numbering) per column and per row. A basis that does
// not have m basic items or is singular is repaired by unit columns.
struct StartBasis {
  std::vector<int32_t> skx, skc;
};

struct SimplexResult {
  Status status = Status::kUnknown;
  std::vector<double> x, xc, y, slc, suc, slx, sux;
  std::vector<int32_t> skx, skc;
  double primal_obj = 0.0, dual_obj = 0.0;
  int64_t primal_iterations = 0, dual_iterations = 0;
  int64_t primal_degenerate = 0, dual_degenerate = 0;
  int64_t primal_phase1_iterations = 0, dual_phase1_iterations = 0;
  double primal_time = 0.0, dual_time = 0.0, time = 0.0;
  int32_t setbacks = 0;
  bool hot_started = false;
  bool solved_dual_first = true;  // which algorithm ran first
  double max_primal_infeas = 0.0, max_dual_infeas = 0.0;  // unscaled, of the result
};

// Solves the problem from `start` (slack basis when null).
void solve(const interior::LpProblem& lp, const SimplexOptions& options, const StartBasis* start,
           SimplexResult& result);

}  // namespace qubor::simplex
