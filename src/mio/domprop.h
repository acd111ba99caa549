// Domain propagation: activity-based bound tightening over the rows. A row's minimum and
// maximum activity over the current box bound each of its variables; tightened bounds of
// integer variables are rounded by the event handlers registered for bound changes (the
// rounding propagation handler), and rows of changed variables are visited again until
// nothing changes or the work budget is spent.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "mio/plugin.h"
#include "mio/problem.h"

namespace qubor::mio {

// Events of the framework, delivered to the event handlers.
enum class EventKind : int32_t { kPresolved = 0, kBoundTightened = 1 };
struct Event {
  EventKind kind;
  int32_t var = -1;
  double* lo = nullptr;  // the proposed bounds, which a handler may change
  double* up = nullptr;
};
struct EventHandlerOps {
  void (*destroy)(void*);
  void (*run)(void*, const Problem&, Event&);
};
using EventHandler = Record<EventHandlerOps>;

class Propagator {
 public:
  explicit Propagator(const Problem& p, std::vector<EventHandler>* handlers);
  // Tightens lo/up in place. `seeds` are the changed columns whose rows are visited first
  // (all rows when null). False when the box holds no feasible point.
  bool propagate(std::vector<double>& lo, std::vector<double>& up, const std::vector<int32_t>* seeds);
  int64_t tightenings() const { return tightenings_; }
  // After rows were appended to the problem.
  void refresh() { queued_.assign(static_cast<size_t>(p_.m()), 0); }

 private:
  bool visit_row(int32_t i, std::vector<double>& lo, std::vector<double>& up);
  void queue_column(int32_t j);

  const Problem& p_;
  std::vector<EventHandler>* handlers_;
  std::vector<int32_t> queue_;
  std::vector<uint8_t> queued_;
  int64_t tightenings_ = 0;
  double tol_feas_ = 1e-6;
};

}  // namespace qubor::mio
