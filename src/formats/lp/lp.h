// The LP format: reader and writer.
#pragma once

#include "formats/frame/text_writer.h"
#include "platform/file_stream.h"
#include "qubor.h"
#include "task/task.h"

namespace qubor::formats {

// `name` (the file's, or "") is used in the message of a failed stream.
QBRrescode read_lp(task::Task& t, platform::InStream& in, const char* name);
QBRrescode write_lp(task::Task& t, TextWriter& out);

}  // namespace qubor::formats
