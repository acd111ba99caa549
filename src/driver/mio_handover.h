// Hand-over of a task with integer variables to the mixed-integer optimizer: the internal
// problem, the options read from the parameters, the initial integer solution, the progress
// callback with the MIO information items, and the integer solution item with its statuses.
#pragma once

#include "qubor.h"
#include "task/task.h"

namespace qubor::driver {

// Runs the mixed-integer optimizer on a linear task; returns the response of the run.
QBRrescode run_mixed_integer(task::Task& t);

}  // namespace qubor::driver
