// The termination test of the homogeneous method: optimality and the two certificates of
// infeasibility, under a gap relaxation level g and a feasibility relaxation level r.
//
//   gap factor:         0.001 (g < -1), 0.01 (g = -1), 1 (g = 0), 100 (g > 0)
//   feasibility factor: 0.001 (r < -1), 1 (r = -1, and the gap factor times 0.01),
//                       1 (r = 0), 100 (r > 0)
//   optimal      when  pfeasf <= max((1 + primal norm) tolrpf tau, 1e-12) * ff,
//                      dfeasf <  max((1 + dual norm) tolrdf tau, 1e-12) * ff and
//                      relgap <= gf * tolrgap;
//   dual infeasibility certificate (c'x < 0) and primal infeasibility certificate (b'y > 0)
//   as the ratio tests in termination.cpp state; when both pass, the one with the smaller
//   infeasibility-to-objective ratio is reported.
// Quantities are those of the homogeneous iterate, not divided by tau.
#pragma once

#include <cstdint>

#include "interior/lp_problem.h"
#include "linalg/common/log_sink.h"

namespace qubor::interior {

struct TerminationInput {
  double pfeasf = 0, dfeasf = 0, relgap = 0;
  double cx = 0, by = 0;
  double pfeasinff = 0, dfeasinff = 0;
  double norm_bound = 0, norm_obj = 0, norm_rhs = 0;  // the three problem norms
  double primal_norm = 0, dual_norm = 0;              // data norms of the tolerances
  double tau = 1;
  double tolrpf = 1e-8, tolrdf = 1e-8, tolrgap = 1e-8, eps = 1e-10;
};

struct TerminationOutcome {
  bool passed = false;
  int32_t problem_status = 0;
  int32_t solution_status = 0;
};

// Copies the tolerances of the options (tolrpf, tolrdf, tolrgap, eps) into `in`.
void set_tolerances(const IpOptions& opt, TerminationInput& in);

// The stops that do not depend on the iterate, in this order: the iteration limit, the time
// limit (seconds since start_time), the progress callback. kNormal when none applies.
Termination run_limit(const IpOptions& opt, int32_t iter, double start_time);

TerminationOutcome termination_test(const TerminationInput& in, int32_t g, int32_t r,
                                    const linalg::LogSink* sink);

}  // namespace qubor::interior
