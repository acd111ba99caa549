// Column order inside supernodes.
//
// The columns of a supernode form a dense block, so any order of them gives the same stored
// structure and the same factor cost. The order decides, however, where the rows of each
// descendant update land in the block: the descendant d of supernode s touches the set
// R_d of s's columns, and the update is scattered entry by entry unless R_d is contiguous.
// order_within_supernodes() picks, for every supernode, the order obtained by partition
// refinement over its updating descendants, largest |R_d| first, each set moved to the back
// of the classes it splits: the largest set becomes one run adjacent to the rows below the
// supernode, sets nested in it (a descendant's set is contained in its ancestors' sets) stay
// runs inside it, and the remaining sets break into few runs.
//
// Input: a symbolic factor after row structures, value layout and update lists. It rewrites
// perm, invp, colcount (permuted with the columns; nnz(L) and flops are unchanged) and the
// row indices of every supernode; row_ptr, value_ptr and the update lists (positions within
// a descendant's rows) stay valid. Deterministic.
#pragma once

#include "linalg/cholesky/symbolic.h"

namespace qubor::linalg {

void order_within_supernodes(SymbolicFactor& sf);

}  // namespace qubor::linalg
