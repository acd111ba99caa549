// Node ordering; see node.h.
#include "mio/node.h"

namespace qubor::mio {
namespace {

constexpr uint64_t kGamma = 0x9e3779b97f4a7c15ull;

uint64_t mix(uint64_t z) {
  z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
  z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
  return z ^ (z >> 31);
}

template <class T>
int order(T a, T b) {  // smaller first
  return a < b ? -1 : (b < a ? 1 : 0);
}

}  // namespace

// A counter-based generator: advancing by k steps is one multiplication.
uint64_t tie_draw(int32_t depth, int64_t key, int64_t seq, uint64_t run_constant) {
  uint64_t state = static_cast<uint64_t>(static_cast<int64_t>(depth)) + run_constant;
  state += static_cast<uint64_t>(key) * kGamma;
  state += static_cast<uint64_t>(seq + 1) * kGamma;
  return mix(state + kGamma);
}

int compare(const Node& a, const Node& b, Rule rule) {
  switch (rule) {
    case Rule::kBestBound: {
      if (!a.bound_valid) return -1;
      if (!b.bound_valid) return 1;
      if (int c = order(a.bound, b.bound)) return c;
      if (int c = order(b.seq, a.seq)) return c;
      if (a.estimate_valid && b.estimate_valid)
        if (int c = order(a.estimate, b.estimate)) return c;
      return order(a.draw, b.draw);
    }
    case Rule::kBestEstimate:
      if (a.estimate_valid && b.estimate_valid)
        if (int c = order(a.estimate, b.estimate)) return c;
      return order(b.seq, a.seq);
    case Rule::kDepthFirst:
      if (int c = order(b.depth, a.depth)) return c;
      return order(b.key, a.key);
  }
  return 0;
}

}  // namespace qubor::mio
