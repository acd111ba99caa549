// Elimination tree, postorder and column counts of a symmetrically permuted pattern.
//
// The pattern is given as a symmetric adjacency in CSR form (ptr[n+1], ind; both directions,
// no diagonal needed; a graph's adjacency qualifies) together with a permutation perm
// (perm[k] = original index of the k-th pivot) and its inverse invp. Results are in the new
// numbering. Column counts include the diagonal, so nnz(L) = sum of counts and the
// factorization costs sum of count^2 flops (multiply and add counted separately, lower order
// terms dropped).
//
// Column counts follow the row-subtree method with least-common-ancestor queries
// (Gilbert, Ng and Peyton, SIAM J. Matrix Anal. Appl. 15, 1994): O(nnz(A) alpha(n)) time.
#pragma once

#include <cstdint>
#include <vector>

namespace qubor::linalg {

struct PermutedPattern {
  int32_t n = 0;
  const int64_t* ptr = nullptr;   // symmetric adjacency, original numbering
  const int32_t* ind = nullptr;
  const int32_t* perm = nullptr;  // new -> old; nullptr means identity
  const int32_t* invp = nullptr;  // old -> new; nullptr means identity
};

// parent[k] of node k in the new numbering, -1 for roots.
void elimination_tree(const PermutedPattern& a, std::vector<int32_t>& parent);

// Postorder of a forest: post[t] = node visited t-th; children in increasing order.
void tree_postorder(const std::vector<int32_t>& parent, std::vector<int32_t>& post);

// Column counts of L (diagonal included) in the new numbering.
void column_counts(const PermutedPattern& a, const std::vector<int32_t>& parent,
                   const std::vector<int32_t>& post, std::vector<int32_t>& colcount);

// nnz(L) and flops of the factorization in the order perm.
void factor_cost(const PermutedPattern& a, int64_t& nnz_l, double& flops);

// Checks that perm is a permutation of 0..n-1 and fills invp.
bool invert_permutation(const std::vector<int32_t>& perm, std::vector<int32_t>& invp);

}  // namespace qubor::linalg
