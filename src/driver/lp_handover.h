// Hand-over of a linear task to the homogeneous interior-point optimizer: the problem
// snapshot (negated for maximization), the options read from the task's parameters, the run,
// and the interior-point solution item with its statuses and status keys.
#pragma once

#include "interior/lp_problem.h"
#include "qubor.h"
#include "task/task.h"

namespace qubor::driver {

// Copies the linear part of the task into `lp`; the objective is negated when maximizing.
void snapshot_lp(const task::Task& t, interior::LpProblem& lp);

// Reads the interior-point parameters of the task (thread count given by the caller).
interior::IpOptions interior_options(task::Task& t, int32_t num_threads);

// The thread count of the interior-point optimizers.
int32_t intpnt_thread_count(const task::Task& t);

// Interior-point status key of an item from its bound key, bounds, value and bound duals.
int32_t intpnt_status_key(int32_t bk, double lo, double up, double val, double sl, double su);

// Runs the linear interior-point path on the task; returns the response of the run.
QBRrescode run_linear_intpnt(task::Task& t);

}  // namespace qubor::driver
