// The MPS format: one reader for the strict, relaxed, free and CPLEX layouts
// (QBR_MPS_FORMAT_*), and the writer.
#pragma once

#include <cstdint>

#include "formats/frame/text_writer.h"
#include "platform/file_stream.h"
#include "qubor.h"
#include "task/task.h"

namespace qubor::formats {

// Reads an MPS file from `in` into the (emptied) task; `layout` is a QBR_MPS_FORMAT_* value and
// `filename` is used in messages only.
QBRrescode read_mps(task::Task& t, platform::InStream& in, int32_t layout, const char* filename);
// Writes the task's problem in MPS with the given layout.
QBRrescode write_mps(task::Task& t, TextWriter& out, int32_t layout);

}  // namespace qubor::formats
