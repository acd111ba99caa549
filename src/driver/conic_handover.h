// Hand-over of a conic task (cones, matrix variables, or a linear task sent to the conic
// optimizer) to the conic interior-point optimizer, and its interior-point solution item.
#pragma once

#include "qubor.h"
#include "task/task.h"

namespace qubor::driver {

QBRrescode run_conic(task::Task& t);

}  // namespace qubor::driver
