// Optional comparison with a peer supernodal Cholesky (built only when one is installed).
#pragma once

#include <cstdint>
#include <vector>

#include "matrix_sources.h"

namespace qubor::bench {

struct PeerResult {
  bool ok = false;
  int64_t nnz_l_amd = 0, nnz_l_metis = 0, nnz_l_same = 0;
  double order_amd = 0, order_metis = 0;  // seconds of the orderings alone
  double factor_same = 0, solve_same = 0; // seconds, with our permutation
};

bool peer_available();
PeerResult peer_compare(const LowerMatrix& a, const std::vector<int32_t>& perm, int runs);

}  // namespace qubor::bench
