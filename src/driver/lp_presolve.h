// Presolve around the linear interior-point optimizer: the reduced problem is solved and its
// solution mapped back to the caller's problem by postsolve.
#pragma once

#include "interior/lp_problem.h"
#include "task/task.h"

namespace qubor::driver {

// Presolves `lp`, solves the reduced problem with `opt` and postsolves into `r`, which then
// describes `lp`. Returns false when the original problem must be solved directly instead:
// presolve is switched off, an infeasibility was found (by presolve or on the reduced
// problem; certificates are built by the optimizer on the original data), or the reduced run
// stalled or met numerical trouble without a status.
bool solve_presolved(task::Task& t, const interior::LpProblem& lp, const interior::IpOptions& opt,
                     interior::IpResult& r);

}  // namespace qubor::driver
