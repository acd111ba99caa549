// The task file: a POSIX ustar archive of the whole task.
//
// Every member is a regular file with mode 0600, owner and group id 1001 and owner and group
// name "qubor", written one after the other; the archive ends with two zero blocks. A member
// larger than the octal size field can hold (8 GiB) carries its size in base-256 form. Group
// names ("Task/data", "Task/solution/basic", ...) are path prefixes only, so the archive
// unpacks into a tree of files.
//
// Members, in the order written:
//   Task/META                       text: quborver, taskname, objsense, objname, numvar,
//                                   numcon, numcone, numbarvar, numanz, numqnz, numsymmat,
//                                   atruncatetol (key=value lines)
//   Task/INFO                       text: format=task, layout=1 (the layout of this file)
//   Task/parameter/iparam|dparam|sparam   text: NAME=value lines (values of sparam escaped)
//   Task/data/cfix, c               f64 arrays
//   Task/data/A                     (row, column, value) records in column order
//   Task/data/Qobj                  (i, j, value) records of the lower triangle
//   Task/data/Q/nnz, subk, sub, val constraint Q: count, constraint of each entry, (i, j)
//                                   pairs as an n x 2 array, values
//   Task/data/var|con/name, boundkey, bound   names, i32 keys, n x 2 f64 (lower, upper)
//   Task/data/intvar                i32 indices of the integer variables
//   Task/data/barvar/dim, name      i32 dimensions, names
//   Task/data/qcone/name, conetype, conepar, sub   types, parameters, members as runs
//                                   "count, index, index, ..." one cone after the other
//   Task/data/MatrixStore/nnz, type, dim, sub, val   the stored symmetric matrices (type 0:
//                                   sparse lower triangle), entries as (i, j) pairs, values
//   Task/data/barc|bara/sparsity, alpha   terms as n x 3 i64 (row or -1, matrix variable,
//                                   number of matrices), then (matrix index, weight) records
//   Task/solution/<item>/status     text prosta=, solsta= (item: interior, basic, integer;
//                                   only defined items, and only with
//                                   QBR_IPAR_WRITE_TASK_INC_SOL set)
//   Task/solution/<item>/skc, skx, skn, xx, xc, y, slc, suc, slx, sux, snx
//   Task/solution/<item>/barx/<j>, bars/<j>   packed lower triangle of matrix variable j
//   Task/information/doubleitems, double, intitems, int, longitems, long
//
// Array members: a 40-byte header, then the elements little-endian. Header bytes 0-3 "QBRM",
// 4 element width, 5 zero, 6 element type, 7 the value 3, 8 number of dimensions (1 to 3),
// 9-15 zero, 16-39 the extents as 64-bit integers (unused ones zero). Element types:
// 1 byte (names), 5 int32, 7 int64, 9 float64, 20 record (int32, int32, float64),
// 21 record (int64, float64). Name members are byte arrays holding every name followed by a
// zero byte.
//
// Reading checks every header (checksum, magic, sizes), every array header against the
// member's size, and the assembled task against its counts before the task is filled;
// members it does not know are skipped. Failures: QBR_RES_ERR_TASK_INVALID with the file,
// the member and what is wrong; QBR_RES_ERR_TASK_INCOMPATIBLE for a layout this library does
// not read; QBR_RES_ERR_FILE_READ when the stream fails.
#pragma once

#include "formats/frame/text_writer.h"
#include "platform/file_stream.h"
#include "task/task.h"

namespace qubor::formats {

QBRrescode write_task_file(task::Task& t, TextWriter& out);
// `skip_params`: QBR_IPAR_READ_TASK_IGNORE_PARAM.
QBRrescode read_task_file(task::Task& t, platform::InStream& in, const char* name, bool skip_params);

}  // namespace qubor::formats
