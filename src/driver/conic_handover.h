// Hand-over of a conic task (cones, matrix variables, or a linear task sent to the conic
// optimizer) to the conic interior-point optimizer, and its interior-point solution item.
#pragma once

#include "qubor.h"
#include "task/task.h"

namespace qubor::driver {

// `quadratic`: the task is the conic form of a quadratic task, and the run takes the
// quadratic tolerances (QBR_DPAR_INTPNT_QO_TOL_*) instead of the conic ones.
QBRrescode run_conic(task::Task& t, bool quadratic = false);

}  // namespace qubor::driver
