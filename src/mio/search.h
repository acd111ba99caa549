// The mixed-integer optimizer's run: presolve statistics, the root relaxation and its
// heuristics, branch and bound with node selection, propagation, pseudocost branching and
// heuristics, the log, the termination rules and the summary.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "linalg/common/log_sink.h"
#include "mio/problem.h"
#include "simplex/simplex.h"

namespace qubor::mio {

struct MioOptions {
  int32_t node_selection = 0;  // MIO_NODE_SELECTION_* value
  int32_t branch_dir = 0;      // BRANCH_DIR_* value
  int64_t max_branches = -1, max_relaxs = -1, max_solutions = -1;  // negative: none
  int32_t max_root_cut_rounds = 100;
  bool cut_knapsack_cover = true, cut_gmi = true;
  int32_t heuristic_level = -1;
  uint64_t seed = 42;
  double tol_rel_gap = 1e-4, tol_abs_gap = 0.0, rel_gap_const = 1e-10;
  double tol_abs_relax_int = 1e-5, tol_feas = 1e-6;
  double mio_max_time = -1.0, optimizer_max_time = -1.0;  // negative: none
  int32_t num_threads = 1;
  int32_t log_freq = 10;
  double obj_sign = 1.0;  // -1 when the user maximizes: the log shows the user's objective
  linalg::LogSink log;    // level: QBR_IPAR_LOG_MIO
  simplex::SimplexOptions simplex;
  std::optional<std::vector<double>> initial;  // the construct solution, when given
};

// Live statistics of a run, current whenever the progress function is called.
struct MioStats {
  int64_t branches = 0, relaxs = 0, active = 0;
  int32_t depth = 0;
  bool has_int = false;
  double best_int = 0.0, best_bound = 0.0;  // minimization sense
  bool bound_defined = false;
  double rel_gap = 0.0, abs_gap = 0.0;
  int64_t simplex_iterations = 0, int_solutions = 0;
  bool construct_used = false;
  double construct_obj = 0.0;
  double time = 0.0, root_time = 0.0, presolve_time = 0.0, cutgen_time = 0.0, knapsack_cover_time = 0.0,
         gmi_time = 0.0;
  int32_t num_cuts = 0, gomory_cuts = 0, cmir_cuts = 0, clique_cuts = 0, implied_bound_cuts = 0,
          knapsack_cover_cuts = 0;
  bool rel_gap_met = false, abs_gap_met = false;
};

enum class MioEnd : int32_t {
  kTreeExhausted,   // optimal, or infeasible when no integer solution exists
  kRelGap,
  kAbsGap,
  kMioTime,
  kOptimizerTime,
  kRelaxLimit,
  kBranchLimit,
  kSolutionLimit,
  kUserStop,
  kUnbounded,       // the root relaxation is unbounded
};

struct MioResult {
  MioEnd end = MioEnd::kTreeExhausted;
  MioStats stats;
  std::vector<double> x;  // the best integer solution when stats.has_int
  bool incomplete = false;  // a node was dropped after numerical trouble: no proof of optimality
};

// Callback codes passed to the progress function (the public QBR_CALLBACK_* values).
using MioProgress = std::function<bool(int32_t code, const MioStats&)>;

void solve(const Problem& p, const MioOptions& o, const MioProgress& progress, MioResult& r);

// The relative gap |int - bound| / max(rel_gap_const, |int|).
double relative_gap(double best_int, double best_bound, double rel_gap_const);

// Formatting of the log (exposed for tests): the gap column (percent) and an objective
// column, "NA" when not available.
std::string format_gap(bool available, double rel_gap);
std::string format_objective(bool available, double value);

}  // namespace qubor::mio
