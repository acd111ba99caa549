// The cut pool and row appending; see cutpool.h.
#include "mio/cutpool.h"

#include <algorithm>
#include <cmath>
#include <unordered_map>

#include "linalg/lu/basis_lu.h"

namespace qubor::mio {
namespace {

constexpr double kMinEfficacy = 1e-4;

double norm(const Cut& c) {
  double s = 0.0;
  for (double v : c.val) s += v * v;
  return std::sqrt(s);
}

}  // namespace

void CutPool::add(Cut&& cut, const std::vector<double>& x) {
  double act = 0.0;
  for (size_t k = 0; k < cut.idx.size(); ++k) act += cut.val[k] * x[static_cast<size_t>(cut.idx[k])];
  const double viol = std::max(cut.lo - act, act - cut.up);
  const double nrm = norm(cut);
  if (nrm <= 0.0) return;
  cut.efficacy = viol / nrm;
  if (cut.efficacy >= kMinEfficacy) cuts_.push_back(std::move(cut));
}

std::vector<Cut> CutPool::select(size_t max_cuts, double max_parallelism) {
  std::stable_sort(cuts_.begin(), cuts_.end(), [](const Cut& a, const Cut& b) { return a.efficacy > b.efficacy; });
  std::vector<Cut> chosen;
  std::unordered_map<int32_t, double> dense;
  for (Cut& c : cuts_) {
    if (chosen.size() >= max_cuts) break;
    bool parallel = false;
    const double nc = norm(c);
    dense.clear();
    for (size_t k = 0; k < c.idx.size(); ++k) dense[c.idx[k]] = c.val[k];
    for (const Cut& d : chosen) {
      double dot = 0.0;
      for (size_t k = 0; k < d.idx.size(); ++k) {
        auto it = dense.find(d.idx[k]);
        if (it != dense.end()) dot += it->second * d.val[k];
      }
      if (std::fabs(dot) > max_parallelism * nc * norm(d)) {
        parallel = true;
        break;
      }
    }
    if (!parallel) chosen.push_back(std::move(c));
  }
  cuts_.clear();
  return chosen;
}

void append_rows(Problem& p, const std::vector<Cut>& cuts) {
  interior::LpProblem& lp = p.lp;
  const int32_t n = lp.num_col, m0 = lp.num_row;
  // Rebuild the column copy with the new rows' entries appended to each column.
  std::vector<std::vector<std::pair<int32_t, double>>> extra(static_cast<size_t>(n));
  for (size_t r = 0; r < cuts.size(); ++r)
    for (size_t k = 0; k < cuts[r].idx.size(); ++k)
      extra[static_cast<size_t>(cuts[r].idx[k])].emplace_back(m0 + static_cast<int32_t>(r), cuts[r].val[k]);
  std::vector<int64_t> ptr(static_cast<size_t>(n) + 1, 0);
  std::vector<int32_t> idx;
  std::vector<double> val;
  for (int32_t j = 0; j < n; ++j) {
    const size_t js = static_cast<size_t>(j);
    for (int64_t k = lp.col_ptr[js]; k < lp.col_ptr[js + 1]; ++k) {
      idx.push_back(lp.row_idx[static_cast<size_t>(k)]);
      val.push_back(lp.values[static_cast<size_t>(k)]);
    }
    for (const auto& [i, v] : extra[js]) {
      idx.push_back(i);
      val.push_back(v);
    }
    ptr[js + 1] = static_cast<int64_t>(idx.size());
  }
  lp.col_ptr = std::move(ptr);
  lp.row_idx = std::move(idx);
  lp.values = std::move(val);
  for (const Cut& c : cuts) {
    lp.row_lo.push_back(c.lo);
    lp.row_up.push_back(c.up);
  }
  lp.num_row = m0 + static_cast<int32_t>(cuts.size());
  linalg::transpose_sparse(n, lp.num_row, lp.col_ptr, lp.row_idx, lp.values, p.row_ptr, p.col_idx, p.row_val);
}

}  // namespace qubor::mio
