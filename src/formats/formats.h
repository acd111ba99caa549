// The file formats as the entry points of src/api/api_io.cpp see them.
//
// Reading a problem: the name gives format and compression (frame/file_name.h) unless the
// caller forces them; the task is emptied of its problem data (parameters, streams, callbacks
// and the task's other settings stay) and refilled by the format's reader through the public
// problem-data operations, so a failed read leaves what the reader had put in so far.
// Progress callback: QBR_CALLBACK_BEGIN_READ before emptying, QBR_CALLBACK_END_READ after the
// reader (QBR_CALLBACK_BEGIN_WRITE / _END_WRITE around a write); a nonzero answer to the
// first ends the call with that answer, to the second it becomes the result of a
// successful call.
//
// Responses: QBR_RES_ERR_FILE_OPEN (file name), QBR_RES_ERR_INVALID_FILE_NAME,
// QBR_RES_ERR_SPACE on opening; QBR_RES_ERR_READ_FORMAT for formats that cannot be read
// (PTF from a file: it is read from a string only; and format values outside 1 to 8);
// QBR_RES_ERR_INVALID_FORMAT_TYPE for a write in format 0 or a format without a writer;
// QBR_RES_ERR_INVALID_FILE_FORMAT_FOR_SYM_MAT / _FOR_CONES for data the format cannot hold;
// QBR_RES_ERR_FILE_READ / QBR_RES_ERR_FILE_WRITE when the stream fails; and every code of
// the format readers and writers.
#pragma once

#include <cstdint>

#include "qubor.h"
#include "task/task.h"

namespace qubor::formats {

// `format` 0 takes the format from the name, `compress` QBR_COMPRESS_FREE the compression.
// `all_sections`: a task file is read whole, parameters included, whatever
// QBR_IPAR_READ_TASK_IGNORE_PARAM says.
QBRrescode read_data(task::Task& t, const char* filename, int32_t format, int32_t compress,
                     bool all_sections = false);
QBRrescode write_data(task::Task& t, const char* filename, int32_t format = QBR_DATA_FORMAT_EXTENSION,
                      int32_t compress = QBR_COMPRESS_FREE);
// Reads the zero-terminated `text` as the given format (LP, JSON task, ...).
QBRrescode read_string(task::Task& t, const char* text, int32_t format);
QBRrescode read_summary(task::Task& t, int32_t whichstream);

// Solution files; `filename` null means the solution's file-name parameter.
QBRrescode write_solution(task::Task& t, int32_t whichsol, const char* filename);
QBRrescode read_solution(task::Task& t, int32_t whichsol, const char* filename);

}  // namespace qubor::formats
