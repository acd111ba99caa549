// Local greedy orderings: approximate minimum local fill, minimum degree and the
// priority-constrained variant.
//
// All three run the same greedy elimination on a quotient graph with element absorption
// (Amestoy, Davis and Duff, SIAM J. Matrix Anal. Appl. 17, 1996): at each step the principal
// variable of best score is eliminated, its neighbours form a new element, elements contained
// in it are absorbed, and only the variables of the new element get new approximate external
// degrees d and new scores. Indistinguishable variables are merged into supervariables as they
// appear; nodes with identical closed adjacency are merged before the run.
//
// Scores (integers, lower is better, ties go to the lower node index):
//   minimum degree             d
//   approximate min local fill (d(d-1) - c(c-1)) / 2, where c is the size of the newest
//                              element around the variable minus the variable itself: the
//                              entries of that clique already exist, so they are not fill.
//   priority                   the fill score, restricted to the nodes of the lowest priority
//                              class still present (priority[i] smaller = eliminated earlier).
// Supervariables of different priority are never merged.
//
// Dense nodes (degree above max(16, 10 sqrt(n))) are taken out first and ordered last, by
// increasing degree; they would otherwise dominate the degree updates.
//
// Workspace: the quotient graph lives in one index array of size 1.5 adsize + 2n, compacted
// when full and enlarged only if compaction does not free enough.
#pragma once

#include <cstdint>
#include <vector>

#include "linalg/common/log_sink.h"
#include "linalg/common/status.h"
#include "linalg/ordering/graph.h"

namespace qubor::linalg {

enum class LocalOrderType : int32_t {
  kApproxMinLocalFill = 0,
  kMinDegree = 1,
  kPriority = 2,
};

struct LocalOrderOptions {
  LocalOrderType type = LocalOrderType::kApproxMinLocalFill;
  const int32_t* priority = nullptr;  // required for kPriority, n entries, >= 0
  double dense_factor = 10.0;         // dense if degree > max(16, dense_factor sqrt(n)); <0 off
  bool compress = true;               // merge indistinguishable nodes before ordering
};

struct OrderResult {
  std::vector<int32_t> perm;  // perm[k] = node eliminated k-th
  std::vector<int32_t> invp;  // invp[perm[k]] = k
  int64_t nnz_l = 0;          // nonzeros of L in this order, diagonal included
  double flops = 0.0;         // factorization flops in this order
};

// Orders the graph. kInvalidInput for an unknown type or missing/negative priorities,
// kInternalError for a broken invariant (logged), kOutOfSpace when memory runs out.
Status local_order(const Graph& g, const LocalOrderOptions& opt, const LogSink* sink,
                   OrderResult& result);

// Fills nnz_l and flops of result from its perm (and invp, recomputed).
Status evaluate_order(const Graph& g, OrderResult& result);

namespace detail {

// Weighted, compressed input of the greedy core: CSR adjacency without self loops, node
// weights nv >= 1 and optional priorities. Produces the elimination sequence of the nodes
// (every node appears once).
struct QuotientInput {
  int32_t n = 0;
  std::vector<int64_t> ptr;
  std::vector<int32_t> ind;
  std::vector<int32_t> nv;
  std::vector<int32_t> priority;  // empty: all equal
};

Status greedy_order(const QuotientInput& in, LocalOrderType type, const LogSink* sink,
                    std::vector<int32_t>& order);

// The graph with dense nodes removed and indistinguishable nodes merged: compressed node c
// stands for members[member_start[c] .. member_start[c+1]); dense nodes by increasing degree.
struct CompressedGraph {
  QuotientInput q;
  std::vector<int32_t> members;
  std::vector<int64_t> member_start;
  std::vector<int32_t> dense;
};

void compress_graph(const Graph& g, double dense_factor, const int32_t* priority, bool compress,
                    CompressedGraph& cg);

// perm = members of the compressed nodes in `order`, then the dense nodes.
void expand_order(const CompressedGraph& cg, const std::vector<int32_t>& order,
                  std::vector<int32_t>& perm);

}  // namespace detail
}  // namespace qubor::linalg
