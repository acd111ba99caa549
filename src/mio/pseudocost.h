// Pseudocosts: per integer variable and direction (down, up) the sum of per-unit objective
// gains and the number of observations, plus per direction the totals over all variables.
// Each job keeps its own record and reads it together with the shared record of the run.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace qubor::mio {

struct PseudocostRecord {
  explicit PseudocostRecord(int32_t n = 0) { resize(n); }
  void resize(int32_t n) {
    sum[0].assign(static_cast<size_t>(n), 0.0);
    sum[1].assign(static_cast<size_t>(n), 0.0);
    count[0].assign(static_cast<size_t>(n), 0);
    count[1].assign(static_cast<size_t>(n), 0);
    total_sum[0] = total_sum[1] = 0.0;
    total_count[0] = total_count[1] = 0;
  }
  std::vector<double> sum[2];
  std::vector<int64_t> count[2];
  double total_sum[2] = {0.0, 0.0};
  int64_t total_count[2] = {0, 0};
};

class Pseudocosts {
 public:
  Pseudocosts(PseudocostRecord& local, const PseudocostRecord& shared, double min_distance)
      : local_(local), shared_(shared), min_distance_(min_distance) {}
  // A child of branching on j at relaxation value v was solved with bound gain `gain`.
  void update(int32_t j, bool up, double v, double gain);
  // The pseudocost of j in a direction (see the file comment for the fallbacks).
  double get(int32_t j, bool up) const;
  int64_t observations(int32_t j, bool up) const;

 private:
  PseudocostRecord& local_;
  const PseudocostRecord& shared_;
  double min_distance_;
};

}  // namespace qubor::mio
