// Nested-dissection ordering by multilevel bisection with vertex separators.
//
// The graph is compressed (indistinguishable nodes merged) and split into connected
// components. Each part larger than min_part_size is bisected: coarsening by heavy-edge
// matching while the graph shrinks, greedy graph growing on the coarsest graph, then at every
// finer level Fiduccia-Mattheyses style moves of separator nodes (vertex separator refinement,
// the node variant of Kernighan-Lin), rebalancing and trimming of redundant separator nodes.
// The two sides are dissected recursively; separators are numbered after the parts they
// separate. The final numbering comes from the priority-constrained local ordering: the
// undivided parts are ordered by minimum fill, each separator after everything it separates.
//
// Everything is deterministic: random choices use a fixed-seed generator.
#pragma once

#include <cstdint>

#include "linalg/common/log_sink.h"
#include "linalg/common/status.h"
#include "linalg/ordering/graph.h"
#include "linalg/ordering/local_order.h"

namespace qubor::linalg {

struct NestedDissectionOptions {
  int32_t min_part_size = 200;   // parts of at most this many nodes are not split
  int32_t coarsest_size = 100;   // coarsening stops at this many nodes
  int32_t initial_tries = 6;     // greedy-growing starts on the coarsest graph
  double imbalance = 1.25;       // allowed ratio of the larger side to half the weight
  uint64_t seed = 1;
};

// Returns kOk with perm, nnz_l and flops; kOutOfSpace; kInternalError (logged).
Status nested_dissection_order(const Graph& g, const NestedDissectionOptions& opt,
                               const LogSink* sink, OrderResult& result);

}  // namespace qubor::linalg
