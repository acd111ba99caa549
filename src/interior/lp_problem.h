// The linear problem handed to the interior-point optimizer, its options and its result.
//
// LpProblem is the computational form:
//   minimize    c'x + 1/2 x'Qx + cfix
//   subject to  row_lo <= A x <= row_up,  col_lo <= x <= col_up
// with A in CSC form (64-bit column pointers, 32-bit row indices, no duplicates), infinite
// bounds as -inf/+inf and a fixed item as lo == up. Q (positive semidefinite) is given by its
// lower triangle in CSC form (q_row_idx[k] >= column, no duplicates); an empty q_col_ptr
// means a linear problem. The optimizer never modifies it.
//
// IpResult holds the solution in the same form: x, xc = A x, the row duals y with
// y = slc - suc, and the bound duals with c + Q x - A'y = slx - sux. For an optimal result the
// values are those of the solution; for a primal infeasibility certificate the primal values
// are 0 and the duals form the ray (A'y + slx - sux = 0, dual objective > 0); for a dual
// infeasibility certificate the duals are 0 and x is the ray (A x = xc within the bounds'
// recession cone, Q x = 0, c'x < 0).
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "linalg/common/log_sink.h"

namespace qubor::interior {

struct LpProblem {
  int32_t num_row = 0;
  int32_t num_col = 0;
  std::vector<int64_t> col_ptr;  // num_col + 1
  std::vector<int32_t> row_idx;
  std::vector<double> values;
  std::vector<double> c;
  double cfix = 0.0;
  std::vector<double> col_lo, col_up;
  std::vector<double> row_lo, row_up;
  std::vector<int64_t> q_col_ptr;  // num_col + 1, or empty
  std::vector<int32_t> q_row_idx;
  std::vector<double> q_values;
  bool quadratic() const { return !q_col_ptr.empty() && q_col_ptr.back() > 0; }
};

// Internal problem status of the run.
enum class ProblemStatus : int32_t {
  kUnknown = 0,
  kPrimalDualFeasible = 1,
  kPrimalFeasible = 2,
  kDualFeasible = 3,
  kPrimalInfeasible = 4,
  kDualInfeasible = 5,
  kPrimalDualInfeasible = 6,
  kIllPosed = 7,
};

// Internal solution status of the run.
enum class SolutionStatus : int32_t {
  kUnknown = 0,
  kOptimal = 1,
  kPrimalFeasible = 2,
  kDualFeasible = 3,
  kPrimalInfeasibleCertificate = 5,
  kDualInfeasibleCertificate = 6,
  kNearOptimal = 8,
  kNearPrimalInfeasibleCertificate = 12,
  kNearDualInfeasibleCertificate = 13,
};

// Termination code of the run.
enum class Termination : int32_t {
  kNormal = 0,
  kOutOfSpace = 1,
  kMaxIterations = 4,
  kMaxTime = 5,
  kUserBreak = 6,
  kStalled = 8,
  kNumericalInstability = 9,
  kFactorError = 10,
  kError = 12,
  kModelError = 18,
  kUserCallback = 33,
};

std::string problem_status_name(int32_t code);  // "UNKNOWN STATUS(%d)" when unknown
const char* solution_status_name(int32_t code);
const char* termination_name(int32_t code);

struct IpOptions {
  double tol_pfeas = 1e-8;
  double tol_dfeas = 1e-8;
  double tol_rel_gap = 1e-8;
  double tol_infeas = 1e-10;
  double tol_mu_red = 1e-16;
  double tol_psafe = 1.0;
  double tol_dsafe = 1.0;
  double tol_step_size = 1e-6;
  // A run that cannot reach the tolerances accepts a point that meets them times this factor.
  double tol_near_rel = 1000.0;
  int32_t max_iterations = 400;
  int32_t max_num_cor = -1;             // -1: chosen from the factor-to-solve cost ratio
  int32_t max_num_refinement_steps = -1;  // -1: automatic
  int32_t stall_iterations = 10;
  int32_t scaling = 1;                  // 0 none, 1 moderate, 2 aggressive
  int32_t order_method = 0;             // linalg::OrderMethod value
  int32_t off_col_trh = 40;             // dense-column detection; 0 switches it off
  int32_t dense_col_limit = -1;         // upper bound of the number of dense columns, -1 free
  // Reduced system of a problem with a non-diagonal Q: 0 chooses, 1 forces the augmented
  // system even for a diagonal Q (the normal equations are used for a diagonal Q otherwise).
  int32_t kkt_form = 0;
  bool regularization = true;
  bool diff_step = true;
  int32_t num_threads = 1;
  double max_time = -1.0;               // seconds; negative means no limit
  // Log: lines go to log.write when log.level >= 1 (iteration log) and more at higher levels.
  linalg::LogSink log;
  int32_t factor_log_level = 0;         // level of the Cholesky module's own lines (0: none)
  // Called once per iteration with the iteration number; returning true stops the run with
  // termination code kUserCallback.
  std::function<bool(int32_t)> progress;
};

struct IpResult {
  ProblemStatus problem_status = ProblemStatus::kUnknown;
  SolutionStatus solution_status = SolutionStatus::kUnknown;
  Termination termination = Termination::kNormal;
  std::vector<double> x, xc, y, slc, suc, slx, sux;
  double primal_obj = 0.0, dual_obj = 0.0;
  int32_t iterations = 0;
  // Statistics of the run.
  double time = 0.0, order_time = 0.0, factor_flops = 0.0;
  double primal_feas = 0.0, dual_feas = 0.0;  // of the final iterate, relative
  int64_t factor_nnz = 0;
  int32_t dense_dim = 0;
  int32_t num_threads = 1;
};

// Solves the problem. Never throws; an allocation failure ends with Termination::kOutOfSpace,
// malformed data (row index out of range, lo > up, NaN) with kModelError.
void solve_lp(const LpProblem& problem, const IpOptions& options, IpResult& result);

}  // namespace qubor::interior
