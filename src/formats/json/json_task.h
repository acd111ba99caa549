// The JSON task (".jtask", QBR_readjsonstring): the whole task as one JSON object.
//
//   {"$schema": "qubor/jtask-1",
//    "Task/name": "...",
//    "Task/INFO": {"numvar", "numcon", "numcone", "numbarvar", "numanz", "numsymmat", "quborver": [a, b, c, d]},
//    "Task/data": {
//      "var": {"name": [...], "bk": ["lo"|"up"|"fx"|"fr"|"ra", ...], "bl": [...], "bu": [...],
//              "type": ["cont"|"int", ...]},
//      "con": {"name", "bk", "bl", "bu", "Q": {"subk", "subi", "subj", "val"}},
//      "barvar": {"name": [...], "dim": [...]},
//      "objective": {"sense": "min"|"max", "name": "...", "c": {"subj", "val"}, "cfix": x,
//                    "Q": {"subi", "subj", "val"}, "barc": {"subj", "mat": [[...]], "alpha": [[...]]}},
//      "A": {"subi", "subj", "val"},
//      "bara": {"subi", "subj", "mat": [[...]], "alpha": [[...]]},
//      "MatrixStore": {"dim": [...], "subi": [[...]], "subj": [[...]], "val": [[...]]},
//      "qcone": {"name", "type": ["quad"|"rquad"|"pexp"|"dexp"|"ppow"|"dpow"|"zero", ...], "par", "members": [[...]]}},
//    "Task/parameters": {"iparam": {NAME: value}, "dparam": {...}, "sparam": {...}},
//    "Task/solutions": {"interior"|"basic"|"integer": {"prosta", "solsta", "skx", "skc", "skn",
//                       "xx", "xc", "y", "slc", "suc", "slx", "sux", "snx", "barx": [[...]], "bars": [[...]]}},
//    "Task/information": {"int32": {NAME: value}, "int64": {...}, "double": {...}}}
//
// Names are written only when some item of the kind has one. Status keys are the short
// texts "UN", "BS", "SB", "LL", "UL", "EQ", "IN"; statuses the names without prefix.
// Doubles are the shortest texts that read back to the same value; infinities and NaN are the
// strings "+Inf", "-Inf", "NaN". Only "Task/data" is required on reading; the counts come
// from "Task/INFO" when given, else from the arrays. Unknown keys are skipped.
//
// Reading streams the text through a SAX parser into plain arrays, so memory follows the
// data actually present; nesting deeper than the layout needs fails at once. Failures, with
// line and column where the text is at fault: QBR_RES_ERR_JSON_SYNTAX, QBR_RES_ERR_JSON_STRING,
// QBR_RES_ERR_JSON_NUMBER_OVERFLOW, QBR_RES_ERR_JSON_FORMAT (a value of the wrong type),
// QBR_RES_ERR_JSON_DATA (arrays that disagree, with the section as "var[bl]"),
// QBR_RES_ERR_JSON_MISSING_DATA.
#pragma once

#include "formats/frame/text_writer.h"
#include "platform/file_stream.h"
#include "task/task.h"

namespace qubor::formats {

QBRrescode write_json_task(task::Task& t, TextWriter& out);
QBRrescode read_json_task(task::Task& t, platform::InStream& in);

}  // namespace qubor::formats
