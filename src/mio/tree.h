// The branch-and-bound tree: node storage, the priority queue of open nodes (one lazy heap
// per rule in use) and the two short lists of nodes just created by branching (children of
// the node last processed and its siblings), from which diving continues. Node selectors
// are records (see plugin.h) that pick the next node from the tree.
#pragma once

#include <cstdint>
#include <limits>
#include <vector>

#include "mio/node.h"
#include "mio/plugin.h"

namespace qubor::mio {

class Tree {
 public:
  explicit Tree(Rule selection_rule);

  // Stores an open node; returns its id.
  int32_t add(Node&& node);
  Node& node(int32_t id) { return slots_[static_cast<size_t>(id)].node; }
  // Takes an open node out of the queue and the lists (its storage stays until release).
  void take(int32_t id);
  void release(int32_t id);
  // Nodes created by branching the node being processed.
  void set_children(std::vector<int32_t> ids) { children_ = std::move(ids); }
  std::vector<int32_t>& children() { return children_; }
  std::vector<int32_t>& siblings() { return siblings_; }

  size_t num_open() const { return open_; }
  // The best open node by rule 0, or by the selection rule; -1 when none is open.
  int32_t best(Rule rule);
  // Smallest bound of the open nodes (+inf when none is open; -inf when one has none).
  double best_bound();
  // Drops every open node whose bound is at least `cutoff`; returns how many.
  int64_t prune(double cutoff);
  Rule selection_rule() const { return rule_; }

 private:
  struct Slot {
    Node node;
    bool open = false, live = false;
  };
  struct Heap {
    Rule rule;
    std::vector<std::pair<int32_t, int64_t>> items;  // (id, seq); stale entries skipped
  };
  bool valid(const std::pair<int32_t, int64_t>& e) const;
  void push(Heap& h, int32_t id);
  int32_t top(Heap& h);

  Rule rule_;
  std::vector<Slot> slots_;
  std::vector<int32_t> free_;
  Heap bound_heap_, rule_heap_;
  std::vector<int32_t> children_, siblings_;
  size_t open_ = 0;
};

// Node selectors.
struct SelectorSettings {
  Rule rule = Rule::kBestBound;
  int32_t period1 = 1;  // 0: no dive mode, every pick from the queue
  int32_t period2 = 1;
};
struct NodeSelectorOps {
  void* (*create)(const SelectorSettings&);
  void (*destroy)(void*);
  int32_t (*select)(void*, Tree&);  // -1 when no node is open
};
using NodeSelector = Record<NodeSelectorOps>;

NodeSelector make_depth_first_selector();
NodeSelector make_interleaved_selector(const SelectorSettings& s);

}  // namespace qubor::mio
