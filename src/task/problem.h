// The optimization problem held by a task. The index checks of the call frame read the
// counts; the data itself is filled by the problem-data operations.
#pragma once

#include <cstdint>
#include <memory_resource>

#include "qubor.h"

namespace qubor::task {

struct Problem {
  explicit Problem(std::pmr::memory_resource* /*mem*/) {}

  int32_t num_var = 0;
  int32_t num_con = 0;
  int32_t num_cone = 0;
  int32_t num_barvar = 0;
  int32_t num_int_var = 0;
  int32_t obj_sense = QBR_OBJECTIVE_SENSE_MINIMIZE;
  double cfix = 0.0;

  // Reserves room for the given numbers of constraints and variables.
  void reserve(int32_t /*maxnumcon*/, int32_t /*maxnumvar*/) {}
};

}  // namespace qubor::task
