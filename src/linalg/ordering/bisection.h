// Multilevel vertex-separator bisection of a weighted graph (the splitting step of nested
// dissection).
//
//   coarsen   heavy-edge matching in a pseudo-random visiting order, contracted until the
//             graph has at most coarsest_size nodes or stops shrinking by 10%;
//   initial   greedy graph growing from several seeds on the coarsest graph: a region grown
//             breadth-first to half the weight, its outer boundary becomes the separator;
//   refine    at every level, after projection, passes of separator-node moves (a node leaves
//             the separator for a side and pulls its neighbours on the other side in; gain =
//             its weight minus theirs), hill-climbing with rollback to the best state, under
//             the balance limit imbalance * total / 2 (moves towards the lighter side are
//             always allowed, which rebalances); finally separator nodes with no neighbour
//             on one side are trimmed into the other.
// part[v] is 0 or 1 for the sides and 2 for the separator; no edge joins sides 0 and 1.
#pragma once

#include <cstdint>
#include <vector>

#include "linalg/common/log_sink.h"
#include "linalg/ordering/nested_dissection.h"

namespace qubor::linalg::detail {

struct WeightedGraph {
  int32_t n = 0;
  std::vector<int64_t> ptr;
  std::vector<int32_t> adj, ew, vw;
  int64_t total = 0;  // sum of vw
};

// Deterministic generator (xorshift64*).
struct Rng {
  uint64_t state;
  explicit Rng(uint64_t seed) : state(seed * 0x9E3779B97F4A7C15ULL + 1) {}
  uint64_t next() {
    state ^= state >> 12;
    state ^= state << 25;
    state ^= state >> 27;
    return state * 0x2545F4914F6CDD1DULL;
  }
  int32_t below(int32_t n) { return static_cast<int32_t>(next() % static_cast<uint64_t>(n)); }
};

struct BisectStats {
  double t_coarsen = 0, t_match = 0, t_initial = 0, t_refine = 0, t_trim = 0;
  int64_t moves = 0, bad_moves = 0, passes = 0;
};

// Returns false when no separator splitting the graph into two nonempty sides was found.
bool bisect(const WeightedGraph& g, const NestedDissectionOptions& opt, Rng& rng,
            std::vector<int8_t>& part, BisectStats& st, const LogSink* sink, bool log_levels);

}  // namespace qubor::linalg::detail
