// Nodes of the branch-and-bound tree and the three rules that order them.
//
// A node records its depth, a strictly increasing sequence number, a secondary key used by
// depth-first selection, its objective bound and estimate (each with a validity flag), a
// pseudo-random draw for ties, and the bound changes on the path from the root together
// with the basis of its parent, from which its relaxation starts.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "simplex/simplex.h"

namespace qubor::mio {

struct BoundChange {
  int32_t var;
  double lo, up;
};

struct Node {
  int32_t depth = 0;
  int64_t seq = 0;
  int64_t key = 0;
  double bound = 0.0;
  bool bound_valid = false;
  double estimate = 0.0;
  bool estimate_valid = false;
  uint64_t draw = 0;
  std::vector<BoundChange> changes;
  std::shared_ptr<const simplex::StartBasis> basis;
  // The branching that created the node (var -1 at the root): the variable, its value in
  // the parent's relaxation and the direction.
  int32_t branch_var = -1;
  double branch_value = 0.0;
  bool branch_up = false;
  double parent_obj = 0.0;  // the parent's relaxation objective
};

enum class Rule : int32_t { kBestBound = 0, kBestEstimate = 1, kDepthFirst = 2 };

// The tie-break draw of a node: a generator seeded with depth + run constant, advanced by
// the secondary key and then by the sequence number plus one.
uint64_t tie_draw(int32_t depth, int64_t key, int64_t seq, uint64_t run_constant);

// Negative when a comes first, positive when b does, 0 when the rule cannot tell them apart.
int compare(const Node& a, const Node& b, Rule rule);

}  // namespace qubor::mio
