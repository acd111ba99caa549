// Reader of semidefinite programs in SDPA's sparse text format (".dat-s", plain or gzip).
//
// The file states
//   (P) minimize c'x  s.t.  F_1 x_1 + ... + F_m x_m - F_0 = X,  X psd
//   (D) maximize <F_0, Y>  s.t.  <F_i, Y> = c_i (i = 1..m),  Y psd
// with block-diagonal F_i. The task built is (D) in the task's standard form, so its
// objective equals the common optimal value of (P) and (D):
//   * one constraint per F_i, fixed at c_i;
//   * one matrix variable per semidefinite block, coefficients <F_i block, Y block>;
//   * a diagonal block of size k (negative size in the file) becomes k scalar variables with
//     lower bound 0, objective coefficients from F_0's diagonal and constraint coefficients
//     from F_i's diagonal.
// Entries are given by their upper triangle (i <= j, 1-based); the task stores the lower
// triangle, so (i, j) goes in as (j, i). Repeated entries are summed; entries that sum to
// zero are dropped.
//
// Layout: comment lines starting with '"' or '*' at the top; m on its own line and the
// number of blocks on the next (the rest of either line is ignored); the block sizes and
// then the m numbers of c, each list possibly spread over several lines, with ',', '(',
// ')', '{', '}' allowed as separators; then one entry per line: matno blkno i j value.
//
// Only the public C interface is used. Declared counts only bound what is read; memory
// grows with the data actually in the file.
#pragma once

#include <string>

#include "qubor.h"

namespace qubor_app {

// True for names ending in ".dat-s" or ".dat-s.gz".
bool is_sdpa_file_name(const std::string& name);

// Reads `path` into `task`, which should be empty. On a syntax or data error returns false
// with *error = "PATH:LINE: what is wrong" and leaves whatever part of the problem was
// already built in the task. A failing library call also returns false; the library's own
// message has then gone to the task's error stream and *error names the call.
bool read_sdpa(QBRtask_t task, const std::string& path, std::string* error);

}  // namespace qubor_app
