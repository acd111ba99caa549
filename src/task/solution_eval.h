// Evaluation of a solution item against the task's data: objective values, primal and dual
// violations per item, norms and the solution information items.
//
// Activities: r_i = a_i x + 1/2 x'Q^i x + sum_j <barA_ij, barX_j>. With sigma = +1 when
// minimizing and -1 when maximizing, the dual values satisfy
//   c + Q^o x - sum_i y_i (a_i + Q^i x) - slx + sux - snx = 0,   y = slc - suc,
//   barC_j - sum_i y_i barA_ij = barS_j,
//   sigma*slc, sigma*suc, sigma*slx, sigma*sux >= 0 (0 where the bound is infinite),
//   sigma*snx in the dual cone, sigma*barS_j PSD.
// Violations (all >= 0):
//   pviolcon_i   max(blc_i - xc_i, xc_i - buc_i, |xc_i - r_i|)
//   pviolvar_j   max(blx_j - xx_j, xx_j - bux_j)
//   pviolbarvar  -lambda_min(barX_j);  pviolcones: distance-like measure of x_k outside cone k
//   pviolitg     |x_j - round(x_j)| over the integer variables
//   dviolcon_i   max(|y_i - slc_i + suc_i|, sign violations of slc_i, suc_i)
//   dviolvar_j   max(|stationarity residual_j|, sign violations of slx_j, sux_j)
//   dviolbarvar  max(-lambda_min(sigma*barS_j), max |barC_j - sum_i y_i barA_ij - barS_j|)
//   dviolcones   measure of sigma*snx_k outside the dual cone of cone k
// Primal objective: c'x + cfix + 1/2 x'Q^o x + sum_j <barC_j, barX_j>.
// Dual objective: cfix + sum over finite bounds of (bl*sl - bu*su) - 1/2 x'Q^o x
//   + 1/2 sum_i y_i x'Q^i x.
// Norms are largest absolute values.
#pragma once

#include <cstdint>
#include <span>

#include "task/task.h"

namespace qubor::task {

struct SolutionInfo {
  double pobj = 0, pviolcon = 0, pviolvar = 0, pviolbarvar = 0, pviolcone = 0, pviolitg = 0;
  double dobj = 0, dviolcon = 0, dviolvar = 0, dviolbarvar = 0, dviolcone = 0;
};

struct PrimalNorms {
  double xc = 0, xx = 0, barx = 0;
};
struct DualNorms {
  double y = 0, slc = 0, suc = 0, slx = 0, sux = 0, snx = 0, bars = 0;
};

double primal_obj(const Task& t, const Solution& s);
double dual_obj(const Task& t, const Solution& s);

enum class ViolKind { kCon, kVar, kBarvar, kCone };
// viol[k] for the items sub[k]; indices are assumed checked.
void primal_viol(const Task& t, const Solution& s, ViolKind kind, std::span<const int32_t> sub, double* viol);
void dual_viol(const Task& t, const Solution& s, ViolKind kind, std::span<const int32_t> sub, double* viol);
double integer_viol(const Task& t, const Solution& s);

PrimalNorms primal_norms(const Solution& s);
DualNorms dual_norms(const Solution& s);
// Every violation maximum and both objectives; the dual part is zero for the integer item.
SolutionInfo solution_info(const Task& t, int32_t which);
// Stores the information items of item `which` (zeros for an undefined item).
void update_solution_info(Task& t, int32_t which);

// Smallest eigenvalue of a symmetric matrix given by its packed lower triangle (column by
// column), by cyclic Jacobi rotations.
double min_eigenvalue(std::span<const double> packed, int32_t dim);
// Offset of matrix variable j's packed triangle in Solution::barx / bars.
int64_t barvar_offset(const Problem& p, int32_t j);

}  // namespace qubor::task
