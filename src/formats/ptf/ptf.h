// PTF: the readable text form of a whole problem (grammar in docs/ptf.md).
//
// Sections in any order, each at most once: TASK, VARIABLES, MATRIXVARIABLES, MATRICES,
// OBJECTIVE, CONSTRAINTS, CONES; an item is declared before it is referred to. The writer
// puts them in that order and writes every double in its shortest exact text, so a task
// written and read back is the same task bit for bit. QBR_IPAR_PTF_WRITE_TRANSFORM on (the
// default) writes the matrix-variable coefficients as the task holds them, weighted sums of
// stored matrices ($index); off, each coefficient is written as one inline matrix (the sum
// worked out), which reads back to the same problem with a store of its own.
//
// Reading (QBR_readptfstring): QBR_RES_ERR_PTF_FORMAT with line, column and the reason in
// the message; the task's own checks (cone sizes, bound values, ...) report their codes.
#pragma once

#include "formats/frame/text_writer.h"
#include "platform/file_stream.h"
#include "qubor.h"
#include "task/task.h"

namespace qubor::formats {

QBRrescode read_ptf(task::Task& t, platform::InStream& in);
QBRrescode write_ptf(task::Task& t, TextWriter& out);

}  // namespace qubor::formats
