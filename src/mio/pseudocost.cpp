// Pseudocosts; see pseudocost.h.
#include "mio/pseudocost.h"

#include <algorithm>
#include <cmath>

namespace qubor::mio {

void Pseudocosts::update(int32_t j, bool up, double v, double gain) {
  const double distance = up ? std::ceil(v) - v : v - std::floor(v);
  const double unit = std::max(0.0, gain) / std::max(distance, min_distance_);
  const int d = up ? 1 : 0;
  local_.sum[d][static_cast<size_t>(j)] += unit;
  local_.total_sum[d] += unit;
  ++local_.count[d][static_cast<size_t>(j)];
  ++local_.total_count[d];
}

int64_t Pseudocosts::observations(int32_t j, bool up) const {
  const int d = up ? 1 : 0;
  return local_.count[d][static_cast<size_t>(j)] + shared_.count[d][static_cast<size_t>(j)];
}

double Pseudocosts::get(int32_t j, bool up) const {
  const int d = up ? 1 : 0;
  const size_t js = static_cast<size_t>(j);
  const int64_t c = local_.count[d][js] + shared_.count[d][js];
  if (c > 0) return (local_.sum[d][js] + shared_.sum[d][js]) / static_cast<double>(c);
  const int64_t tc = local_.total_count[d] + shared_.total_count[d];
  if (tc > 0) return (local_.total_sum[d] + shared_.total_sum[d]) / static_cast<double>(tc);
  return 1.0;
}

}  // namespace qubor::mio
