// Optional comparison with a peer supernodal Cholesky (built only when one is installed).
#pragma once

#include <cstdint>
#include <ctime>
#include <vector>

#include "matrix_sources.h"

namespace qubor::bench {

// Clock of the factor and solve measurements: wall time, or the process's CPU time (--cpu),
// which stays meaningful for one thread on a machine shared with other jobs.
inline bool cpu_clock = false;
inline double clock_seconds() {
  timespec ts;
  clock_gettime(cpu_clock ? CLOCK_PROCESS_CPUTIME_ID : CLOCK_MONOTONIC, &ts);
  return static_cast<double>(ts.tv_sec) + 1e-9 * static_cast<double>(ts.tv_nsec);
}

struct PeerResult {
  bool ok = false;
  int64_t nnz_l_amd = 0, nnz_l_metis = 0, nnz_l_same = 0;
  double order_amd = 0, order_metis = 0;  // seconds of the orderings alone
  double factor_same = 0, solve_same = 0; // seconds, with our permutation
  int64_t nsuper_same = 0, stored_same = 0;  // supernodes and stored entries with our permutation
};

bool peer_available();
PeerResult peer_compare(const LowerMatrix& a, const std::vector<int32_t>& perm, int runs);

}  // namespace qubor::bench
