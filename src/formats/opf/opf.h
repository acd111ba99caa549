// OPF: a readable text form of a whole problem together with parameters and solutions
// (grammar in docs/opf.md). A file is a list of statements ended by ';': the problem (task
// name, variables, objective, constraints, cones; an item is declared before it is referred
// to), parameters, and solution blocks. The algebraic syntax (names, bounds, expressions,
// numbers written bit for bit) is the one PTF uses. Matrix variables have no place in the
// format: the frame refuses such a task unless QBR_IPAR_WRITE_IGNORE_INCOMPATIBLE_ITEMS is
// set, and then the writer leaves them out.
//
// The writer follows the QBR_IPAR_OPF_WRITE_* switches: HEADER (comment lines on top),
// HINTS (the sizes, for the reader to reserve space), PROBLEM, PARAMETERS (those that differ
// from their defaults), SOLUTIONS with SOL_ITR / SOL_BAS / SOL_ITG (each defined item
// whose switch is on), LINE_LENGTH (expressions are broken before that column; 0: never).
//
// Reading (QBR_readdata on ".opf", QBR_readopfstring): QBR_RES_ERR_OPF_FORMAT with line,
// column and reason; QBR_RES_ERR_OPF_NEW_VARIABLE for an undeclared variable;
// QBR_RES_ERR_OPF_PREMATURE_EOF when the text ends inside a statement.
#pragma once

#include "formats/frame/text_writer.h"
#include "platform/file_stream.h"
#include "qubor.h"
#include "task/task.h"

namespace qubor::formats {

struct OpfSwitches {
  bool header = true, hints = true, problem = true, parameters = false;
  bool solutions = false, sol_itr = true, sol_bas = true, sol_itg = true;
  int line_length = 80;
  static OpfSwitches of(const task::Task& t);
};

QBRrescode read_opf(task::Task& t, platform::InStream& in);
QBRrescode write_opf(task::Task& t, TextWriter& out, const OpfSwitches& sw);

}  // namespace qubor::formats
