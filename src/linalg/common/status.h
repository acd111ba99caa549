// Result codes and small shared helpers of the linear-algebra module.
//
// Every fallible function of the module returns a Status; no exception leaves the module.
// Out-of-memory conditions (std::bad_alloc from a container) are caught at the module's entry
// points and returned as kOutOfSpace.
#pragma once

#include <chrono>
#include <cstdint>

namespace qubor::linalg {

enum class Status : int32_t {
  kOk = 0,
  kOutOfSpace = 1,      // an allocation failed or a size overflowed
  kInvalidInput = 2,    // malformed pattern, values, permutation or arguments
  kInternalError = 3,   // a broken invariant (negative score, layout mismatch, ...)
  kNotAnalysed = 4,     // factor or solve called before a successful analysis
  kNotFactored = 5,     // solve called before a successful numeric factorization
};

const char* status_name(Status s);

// Wall-clock seconds since an arbitrary origin.
inline double wall_seconds() {
  using Clock = std::chrono::steady_clock;
  return std::chrono::duration<double>(Clock::now().time_since_epoch()).count();
}

}  // namespace qubor::linalg
