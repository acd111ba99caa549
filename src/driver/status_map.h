// Mapping of the optimizers' internal results to the public statuses and response codes.
#pragma once

#include <cstdint>

#include "interior/lp_problem.h"
#include "qubor.h"

namespace qubor::driver {

int32_t public_problem_status(interior::ProblemStatus s);
// Near certificates become certificates; a near-optimal point stays UNKNOWN.
int32_t public_solution_status(interior::SolutionStatus s);
// QBR_RES_OK for a normal end, a QBR_RES_TRM_* code for a stop, an error code for a failure.
QBRrescode termination_response(interior::Termination trm);

}  // namespace qubor::driver
