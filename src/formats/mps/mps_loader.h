// Puts an MpsModel into the task through the public problem-data operations.
#pragma once

#include "formats/mps/mps_model.h"
#include "qubor.h"
#include "task/task.h"

namespace qubor::formats {

// With `partial` (after a syntax error) only the rows and the columns read completely are
// put, and failures are not reported again.
QBRrescode load_mps_model(task::Task& t, MpsModel& m, bool partial);

// Bound key of [bl, bu], where magnitudes of at least 1e30 are infinite.
int32_t bound_key(double bl, double bu);

}  // namespace qubor::formats
