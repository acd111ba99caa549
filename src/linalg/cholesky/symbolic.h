// Symbolic factor: everything about L that depends on the pattern only.
//
// Built once from the lower-triangle CSC pattern of A and a fill-reducing permutation, then
// read (never written) by every numeric factorization and solve.
//
// Numbering: column k of L is row/column perm[k] of A. The permutation given by the caller is
// refined by a postorder of the elimination tree and by the merging of supernodes, which
// change neither the fill nor the flops.
//
// Supernodes: consecutive columns f..f+w-1 of L stored together as one dense column-major
// block of nr x w doubles (leading dimension nr) at values offset value_ptr[s]. Its rows are
// rows[row_ptr[s] .. row_ptr[s+1]): first the w columns of the supernode itself, then the
// below-diagonal rows in increasing order. Supernodes are numbered in postorder of the
// supernodal tree, so every subtree is a contiguous range [first_desc[s], s].
//
// Relaxed amalgamation: a child is merged into its parent when the merged block has few
// explicit zeros, or, for narrow supernodes far taller than wide, up to half zeros (see
// accept_merge in symbolic.cpp); nnz_l stays the exact count, stored_l counts the zeros too.
//
// Column order inside supernodes (column_order.h): the columns of each supernode are ordered
// so that descendant updates touch few runs of consecutive rows. nnz_l and flops are those of
// the order before this step; afterwards some explicit zeros inside the stored blocks may be
// structural nonzeros of perm, the stored blocks are the same.
//
// Update lists (left-looking): supernode s is updated by every descendant d that has rows in
// the columns of s. For each such pair the list of s holds d and the positions r0 < r1 within
// the rows of d that fall in s's columns; rows of d from r0 on are the rows the update touches.
//
// Groups for threads: leaf groups are disjoint subtrees (contiguous supernode ranges) that can
// be factored independently; the remaining supernodes form the root part, done afterwards.
#pragma once

#include <cstdint>
#include <vector>

#include "linalg/common/log_sink.h"
#include "linalg/common/status.h"

namespace qubor::linalg {

struct SymbolicOptions {
  int32_t panel_width = 128;   // columns per panel of the diagonal factorization
  int32_t num_threads = 1;     // for the leaf-group split
  bool amalgamate = true;
  bool order_columns = true;   // order columns inside supernodes (column_order.h)
};

struct SymbolicFactor {
  int32_t n = 0;
  int64_t nnz_a = 0;  // entries of the lower-triangle input pattern
  std::vector<int32_t> perm, invp;
  std::vector<int32_t> colcount;

  int32_t nsuper = 0;
  std::vector<int32_t> super_start;  // nsuper + 1
  std::vector<int32_t> super_parent;
  std::vector<int32_t> first_desc;   // first supernode of the subtree rooted at s
  std::vector<int32_t> col_super;    // supernode of each column
  std::vector<int64_t> row_ptr;      // nsuper + 1
  std::vector<int32_t> rows;
  std::vector<int64_t> value_ptr;    // nsuper + 1

  std::vector<int64_t> upd_ptr;      // nsuper + 1
  std::vector<int32_t> upd_d, upd_r0, upd_r1;

  // Loading A: entries of supernode s are load_src/load_dst[load_ptr[s] .. load_ptr[s+1]):
  // position in the caller's value array, offset within L's values.
  std::vector<int64_t> load_ptr, load_src, load_dst;
  std::vector<int64_t> diag_src;     // position of A(j,j) for column j of L, -1 if absent

  std::vector<int32_t> leaf_groups;  // roots of the leaf subtrees, by decreasing work
  std::vector<int32_t> root_part;    // supernodes outside the leaf subtrees, increasing
  std::vector<double> super_flops;   // factor flops of each supernode (exact count)

  int64_t nnz_l = 0, stored_l = 0;
  double flops = 0.0, solve_flops = 0.0;
  int64_t max_update = 0;  // largest scratch block of one descendant update (m x k)
  int64_t max_scaled = 0;  // largest scaled copy (LDL'): k x w_d or panel rows x panel width
  int32_t max_rows = 0;    // largest nr
  int32_t panel_width = 128;

  int32_t nrows(int32_t s) const { return static_cast<int32_t>(row_ptr[s + 1] - row_ptr[s]); }
  int32_t ncols(int32_t s) const { return super_start[s + 1] - super_start[s]; }
};

// Builds the symbolic factor of the n x n lower-triangle pattern (colptr[n+1], rowind with
// rowind[p] >= j for column j) in the order perm (perm[k] = column of A eliminated k-th).
// Returns kInvalidInput for a malformed pattern or permutation, kOutOfSpace when the factor
// would not fit in memory, kInternalError on a layout inconsistency (logged).
Status analyse_pattern(int32_t n, const int64_t* colptr, const int32_t* rowind,
                       const std::vector<int32_t>& perm, const SymbolicOptions& opt,
                       const LogSink* sink, SymbolicFactor& sf);

// Checks the lower-triangle CSC pattern: monotone pointers, rows in range, no entry above
// the diagonal.
Status check_lower_pattern(int32_t n, const int64_t* colptr, const int32_t* rowind);

}  // namespace qubor::linalg
