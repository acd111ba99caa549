// Shared by the solution file reader and writer.
#pragma once

#include <cstdint>
#include <string>

#include "task/task.h"

namespace qubor::formats {

// The file name of a solution file: `filename`, or the solution's file-name parameter
// (QBR_SPAR_ITR_SOL_FILE_NAME, _BAS_ or _INT_) when it is null.
std::string solution_file_name(task::Task& t, int32_t whichsol, const char* filename);

}  // namespace qubor::formats
