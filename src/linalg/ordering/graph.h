// Undirected graph with weighted edges, built from the pattern of a symmetric matrix.
//
// Storage: node i owns the adjacency run adj[start[i] .. start[i] + length[i]) with one
// 32-bit weight per entry; runs may have slack behind them (capacity[i] >= length[i]) so that
// add_edge is cheap. Every edge is stored in both directions. Self loops are never stored and
// a node without neighbours is legal. Node counts and indices are 32-bit; adjacency totals
// (adsize, starts) are 64-bit.
#pragma once

#include <cstdint>
#include <vector>

#include "linalg/common/log_sink.h"
#include "linalg/common/status.h"

namespace qubor::linalg {

struct Graph {
  int32_t n = 0;
  std::vector<int64_t> start;
  std::vector<int32_t> length;
  std::vector<int32_t> capacity;
  std::vector<int32_t> adj;
  std::vector<int32_t> weight;
  int64_t adsize = 0;  // sum of length[i], i.e. twice the number of edges
};

// Builds the graph of an n x n symmetric pattern given as CSC (colptr[n+1], rowind). The
// pattern may hold the lower triangle only or both triangles; the diagonal and duplicate
// entries are ignored. All edge weights are 1. Returns kInvalidInput on a malformed pattern.
Status build_graph(int32_t n, const int64_t* colptr, const int32_t* rowind, Graph& g);

// Adds the edge {i, j} with weight w in both directions (i != j); an existing edge keeps its
// first weight. Returns kInvalidInput for bad indices.
Status add_edge(Graph& g, int32_t i, int32_t j, int32_t w);

// Compact CSR copy of the adjacency: ptr[n+1], ind[adsize]. Runs keep their order.
void graph_to_csr(const Graph& g, std::vector<int64_t>& ptr, std::vector<int32_t>& ind);

// Logs "numnodes: %d adsize: %d".
void log_graph_size(const Graph& g, const LogSink* sink);

// Writes the graph as text (gzip-compressed when the name ends in ".gz"): node count, edge
// count, then one "node neighbour weight" line per edge. With both_directions false each edge
// is written once, from its larger-numbered end. Debug use only.
Status dump_graph(const Graph& g, const char* filename, bool both_directions,
                  const LogSink* sink);

// Writes a permutation, one entry per line. Debug use only.
Status dump_permutation(const std::vector<int32_t>& perm, const char* filename,
                        const LogSink* sink);

}  // namespace qubor::linalg
