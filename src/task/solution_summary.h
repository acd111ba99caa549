// Solution summaries and the status texts they use.
#pragma once

#include <cstdint>
#include <string>

#include "task/task.h"

namespace qubor::task {

// Prints the summary of item `which` on `stream` (nothing when QBR_IPAR_LOG is 0 or the
// item is undefined).
void one_solution_summary(Task& t, int stream, int32_t which);
// "OPTIMAL", ...; "INVALID code(<n>)" for an unknown solution status.
std::string solsta_text(int32_t solsta);
// "PRIMAL_FEASIBLE", ...; "INVALID CODE(<n>)" for an unknown problem status.
std::string prosta_text(int32_t prosta);

}  // namespace qubor::task
