// Entry point of the conic interior-point optimizer: internal form, reduced system, the
// homogeneous iteration and the way back to the problem's form.
//
// The homogeneous model on the internal form (conic_form.h) is
//   A x - b tau = 0,   A'y + s - c tau = 0,   b'y - c'x - kappa = 0,
//   x in K, s in K*, tau, kappa >= 0,
// whose solution gives an optimal pair (tau > 0) or an infeasibility certificate
// (kappa > 0). Termination uses the shared test of the linear optimizer.
//
// Each iteration scales every cone (Nesterov-Todd for the symmetric kinds, a primal-dual
// secant scaling for the exponential and power cones; cones/cone.h), forms and factors the
// reduced system once, and takes a Mehrotra predictor-corrector step whose length keeps x and
// s inside their cones. With nonsymmetric cones the step is further shortened until every
// such cone stays near its central path, and a step that this makes short is recomputed with
// more centring.
#pragma once

#include "conic/conic_form.h"
#include "interior/lp_problem.h"

namespace qubor::conic {

struct ConicResult {
  interior::ProblemStatus problem_status = interior::ProblemStatus::kUnknown;
  interior::SolutionStatus solution_status = interior::SolutionStatus::kUnknown;
  interior::Termination termination = interior::Termination::kNormal;
  ConicSolution sol;
  int32_t iterations = 0;
  double time = 0.0, order_time = 0.0, factor_flops = 0.0;
  double primal_feas = 0.0, dual_feas = 0.0;
  int64_t factor_nnz = 0;
  int32_t dense_dim = 0;
  int32_t num_threads = 1;
};

// Never throws; an allocation failure ends with kOutOfSpace, malformed data with kModelError.
void solve_conic(const ConicProblem& problem, const interior::IpOptions& options, ConicResult& result);

}  // namespace qubor::conic
