// Components that come in kinds (node selectors, cut separators, primal heuristics, event
// handlers) are records: a name, private data, a table of operations, and counters of how
// often the component ran and how long it took. Each kind's records are created in one
// place (registry.cpp) at the start of a run and destroyed at its end; destroying a record
// calls its own clean-up operation first.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <utility>

namespace qubor::mio {

template <class Ops>
struct Record {
  std::string name;
  const Ops* ops = nullptr;
  void* data = nullptr;
  int64_t calls = 0;
  double last_time = 0.0, total_time = 0.0;

  Record(std::string n, const Ops* o, void* d) : name(std::move(n)), ops(o), data(d) {}
  Record(const Record&) = delete;
  Record& operator=(const Record&) = delete;
  Record(Record&& r) noexcept
      : name(std::move(r.name)), ops(r.ops), data(std::exchange(r.data, nullptr)), calls(r.calls),
        last_time(r.last_time), total_time(r.total_time) {}
  ~Record() {
    if (data != nullptr && ops != nullptr && ops->destroy != nullptr) ops->destroy(data);
  }

  // Runs `f` (which calls one of the operations) and books the call and its time.
  template <class F>
  auto timed(F&& f) {
    const auto t0 = std::chrono::steady_clock::now();
    struct Book {
      Record* r;
      std::chrono::steady_clock::time_point t0;
      ~Book() {
        r->last_time = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
        r->total_time += r->last_time;
        ++r->calls;
      }
    } book{this, t0};
    return f();
  }
};

}  // namespace qubor::mio
