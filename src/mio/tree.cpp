// The tree and the node selectors; see tree.h.
#include "mio/tree.h"

#include <algorithm>

namespace qubor::mio {

Tree::Tree(Rule selection_rule) : rule_(selection_rule) {
  bound_heap_.rule = Rule::kBestBound;
  rule_heap_.rule = selection_rule;
}

bool Tree::valid(const std::pair<int32_t, int64_t>& e) const {
  const Slot& s = slots_[static_cast<size_t>(e.first)];
  return s.open && s.node.seq == e.second;
}

void Tree::push(Heap& h, int32_t id) {
  h.items.emplace_back(id, node(id).seq);
  // A max-heap of "comes later": the top is the node that comes first.
  auto later = [this, &h](const std::pair<int32_t, int64_t>& a, const std::pair<int32_t, int64_t>& b) {
    return compare(node(a.first), node(b.first), h.rule) > 0;
  };
  std::push_heap(h.items.begin(), h.items.end(), later);
}

int32_t Tree::top(Heap& h) {
  auto later = [this, &h](const std::pair<int32_t, int64_t>& a, const std::pair<int32_t, int64_t>& b) {
    return compare(node(a.first), node(b.first), h.rule) > 0;
  };
  while (!h.items.empty() && !valid(h.items.front())) {
    std::pop_heap(h.items.begin(), h.items.end(), later);
    h.items.pop_back();
  }
  return h.items.empty() ? -1 : h.items.front().first;
}

int32_t Tree::add(Node&& n) {
  int32_t id;
  if (!free_.empty()) {
    id = free_.back();
    free_.pop_back();
  } else {
    id = static_cast<int32_t>(slots_.size());
    slots_.emplace_back();
  }
  Slot& s = slots_[static_cast<size_t>(id)];
  s.node = std::move(n);
  s.open = s.live = true;
  ++open_;
  push(bound_heap_, id);
  if (rule_ != Rule::kBestBound) push(rule_heap_, id);
  return id;
}

void Tree::take(int32_t id) {
  Slot& s = slots_[static_cast<size_t>(id)];
  if (!s.open) return;
  s.open = false;
  --open_;
  auto drop = [id](std::vector<int32_t>& v) { v.erase(std::remove(v.begin(), v.end(), id), v.end()); };
  drop(children_);
  drop(siblings_);
}

void Tree::release(int32_t id) {
  take(id);
  Slot& s = slots_[static_cast<size_t>(id)];
  if (!s.live) return;
  s.live = false;
  s.node = Node();
  free_.push_back(id);
}

int32_t Tree::best(Rule rule) {
  // Rules without a heap of their own fall back to the bound order.
  const bool own = rule != Rule::kBestBound && rule == rule_;
  return top(own ? rule_heap_ : bound_heap_);
}

double Tree::best_bound() {
  const int32_t id = top(bound_heap_);
  if (id < 0) return std::numeric_limits<double>::infinity();
  const Node& n = node(id);
  return n.bound_valid ? n.bound : -std::numeric_limits<double>::infinity();
}

int64_t Tree::prune(double cutoff) {
  int64_t count = 0;
  for (size_t k = 0; k < slots_.size(); ++k) {
    Slot& s = slots_[k];
    if (s.open && s.node.bound_valid && s.node.bound >= cutoff) {
      release(static_cast<int32_t>(k));
      ++count;
    }
  }
  // Rebuild the heaps without the stale entries.
  for (Heap* h : {&bound_heap_, &rule_heap_}) {
    std::vector<std::pair<int32_t, int64_t>> keep;
    for (const auto& e : h->items)
      if (valid(e)) keep.push_back(e);
    h->items.clear();
    for (const auto& e : keep) push(*h, e.first);
  }
  return count;
}

namespace {

// Depth first: the best open node by rule 2.
const NodeSelectorOps kDepthFirstOps = {
    [](const SelectorSettings&) -> void* { return nullptr; },
    nullptr,
    [](void*, Tree& t) -> int32_t {
      const int32_t id = t.best(Rule::kDepthFirst);
      if (id >= 0) {
        t.take(id);
        t.children().clear();
        t.siblings().clear();
      }
      return id;
    },
};

struct Interleaved {
  SelectorSettings s;
  bool dive = true;
  int64_t selections = 0, picks = 0;
  int32_t stretch = 0;
};

// The deepest node of a list; the first found on equal depth.
int32_t deepest(Tree& t, const std::vector<int32_t>& list) {
  int32_t best = -1;
  for (int32_t id : list)
    if (best < 0 || t.node(id).depth > t.node(best).depth) best = id;
  return best;
}

int32_t interleaved_select(void* data, Tree& t) {
  Interleaved& d = *static_cast<Interleaved*>(data);
  auto from_queue = [&t](Rule rule) {
    const int32_t id = t.best(rule);
    if (id >= 0) {
      t.take(id);
      t.children().clear();
      t.siblings().clear();
    }
    return id;
  };
  if (d.s.period1 > 0 && d.dive) {
    int32_t id = deepest(t, t.children());
    if (id >= 0) {
      std::vector<int32_t> rest;
      for (int32_t c : t.children())
        if (c != id) rest.push_back(c);
      t.take(id);
      t.children().clear();
      t.siblings() = std::move(rest);
      return id;
    }
    id = deepest(t, t.siblings());
    if (id >= 0) {
      t.take(id);
      return id;
    }
    ++d.selections;
    // Every eighth end of a dive is followed by a short stretch of queue picks.
    d.stretch = d.selections % 8 == 0 ? 4 : 1;
    if (d.stretch > 1) d.dive = false;
    return from_queue(d.selections % d.s.period1 == 0 ? Rule::kBestBound : d.s.rule);
  }
  if (d.s.period1 > 0 && --d.stretch <= 0) d.dive = true;
  ++d.picks;
  return from_queue(d.s.period2 > 0 && d.picks % d.s.period2 == 0 ? Rule::kBestBound : d.s.rule);
}

const NodeSelectorOps kInterleavedOps = {
    [](const SelectorSettings& s) -> void* { return new Interleaved{s}; },
    [](void* p) { delete static_cast<Interleaved*>(p); },
    interleaved_select,
};

}  // namespace

NodeSelector make_depth_first_selector() {
  return NodeSelector("NODESEL_DEPTH_FIRST", &kDepthFirstOps, kDepthFirstOps.create(SelectorSettings{}));
}

NodeSelector make_interleaved_selector(const SelectorSettings& s) {
  return NodeSelector("NODESEL_INTERLEAVED", &kInterleavedOps, kInterleavedOps.create(s));
}

}  // namespace qubor::mio
