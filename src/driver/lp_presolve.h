// Presolve around the linear interior-point optimizer: the reduced problem is solved and its
// solution mapped back to the caller's problem by postsolve.
#pragma once

#include <optional>

#include "interior/lp_problem.h"
#include "presolve/presolve.h"
#include "task/task.h"

namespace qubor::driver {

// The presolve settings of the task's parameters.
presolve::PresolveOptions presolve_options(const task::Task& t);
// Conversions between the optimizers' problem form and the presolve's.
void to_presolve_form(const interior::LpProblem& lp, presolve::LpProblem& p);
void to_interior_form(const presolve::LpProblem& p, interior::LpProblem& lp);
void store_presolve_information(task::Task& t, const presolve::PresolveStats& s);

// Presolves `lp` with the task's settings, its callbacks and information items; `sink` (the
// optimizer's log at the presolve level) is set up for the later messages. False when presolve
// is switched off (empty result).
std::optional<presolve::PresolveResult> run_presolve(task::Task& t, const interior::LpProblem& lp,
                                                     const linalg::LogSink& log, linalg::LogSink& sink);

// Presolves `lp`, solves the reduced problem with `opt` and postsolves into `r`, which then
// describes `lp`. Returns false when the original problem must be solved directly instead:
// presolve is switched off, an infeasibility was found (by presolve or on the reduced
// problem; certificates are built by the optimizer on the original data), or the reduced run
// stalled or met numerical trouble without a status.
bool solve_presolved(task::Task& t, const interior::LpProblem& lp, const interior::IpOptions& opt,
                     interior::IpResult& r);

}  // namespace qubor::driver
