// Hand-over of a linear task to the simplex optimizers: the variant from the optimizer
// choice, hot start from the basic solution item, presolve with a basis-preserving
// postsolve, the run, and the basic solution item with statuses, keys and information.
#pragma once

#include "qubor.h"
#include "simplex/simplex.h"
#include "task/task.h"

namespace qubor::driver {

// The simplex options of the task's parameters (log, limits, pricing, scaling).
simplex::SimplexOptions simplex_options(task::Task& t, int32_t optimizer);

// Stores a simplex result as the basic solution item (duals in the task's sense).
void store_basic_solution(task::Task& t, const simplex::SimplexResult& r);

// Runs the simplex set-up on the task; `optimizer` is the value of QBR_IPAR_OPTIMIZER.
QBRrescode run_simplex(task::Task& t, int32_t optimizer);

}  // namespace qubor::driver
