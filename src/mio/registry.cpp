// The one place where the components of a run are created: primal heuristics and event
// handlers (node selectors are chosen in search.cpp from the node-selection parameter).
#include <cmath>

#include "mio/heuristics.h"
#include "mio/job.h"

namespace qubor::mio {
namespace {

// Rounds proposed bounds of integer columns inward to integers.
void round_bounds(void*, const Problem& p, Event& ev) {
  if (ev.kind != EventKind::kBoundTightened || !p.is_int(ev.var)) return;
  if (std::isfinite(*ev.lo)) *ev.lo = std::ceil(*ev.lo - 1e-6);
  if (std::isfinite(*ev.up)) *ev.up = std::floor(*ev.up + 1e-6);
}

const EventHandlerOps kRoundingOps = {nullptr, round_bounds};

Heuristic heuristic(const char* name, const HeuristicOps* ops, int32_t limit) {
  return Heuristic{Record<HeuristicOps>(name, ops, nullptr), {limit, limit}, {10, 0, 3, 0, 10}};
}

}  // namespace

std::vector<Heuristic> make_heuristics(const MioOptions& o) {
  std::vector<Heuristic> h;
  if (o.heuristic_level == 0) return h;
  h.push_back(heuristic("Trivial", &kTrivialOps, 0));
  h.push_back(heuristic("heur_test_current_relax", &kTestCurrentRelaxOps, 0));
  h.push_back(heuristic("Dive & propagate minfractional / near", &kDiveMinFractionalOps, -1));
  return h;
}

std::vector<EventHandler> make_event_handlers() {
  std::vector<EventHandler> e;
  e.emplace_back("Rounding propagation event handler", &kRoundingOps, nullptr);
  return e;
}

}  // namespace qubor::mio
