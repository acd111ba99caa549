// Duplicate rows and columns: parallel vectors found by hashing the pattern and the values
// scaled by the entry of least index, then compared exactly.
//
// Rows k = lambda * i: the sides of k, divided by lambda, are intersected with those of i
// and k is removed. Columns k = lambda * j with c_k = lambda c_j (both continuous): x_j and
// x_k only occur as x_j + lambda x_k, which becomes one column with the summed bounds.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "presolve/presolver.h"

namespace qubor::presolve {

namespace {

constexpr double kParallelTol = 1e-12;

// A hash of the pattern and of the values scaled by the entry of least index. Entries are
// mixed one by one and summed, so the order of the list does not matter and nothing is sorted.
uint64_t vector_hash(const Vec<Entry>& list, double& lead_value) {
  const Entry* lead = &list.front();
  for (const Entry& e : list)
    if (e.index < lead->index) lead = &e;
  lead_value = lead->value;
  const double inv = 1.0 / lead->value;
  uint64_t h = static_cast<uint64_t>(list.size()) * 0x9e3779b97f4a7c15ull;
  for (const Entry& e : list) {
    // Round away the last bits so that equal ratios computed differently hash alike.
    const double scaled = std::clamp(e.value * inv * 1e9, -9e18, 9e18);
    const auto q = static_cast<int64_t>(scaled + (scaled >= 0 ? 0.5 : -0.5));
    uint64_t x = static_cast<uint64_t>(e.index) * 0xbf58476d1ce4e5b9ull ^ static_cast<uint64_t>(q) * 0x94d049bb133111ebull;
    x ^= x >> 31;
    x *= 0xd6e8feb86b1d2d95ull;
    x ^= x >> 29;
    h += x;
  }
  return h;
}

}  // namespace

ParallelFinder::ParallelFinder(int32_t lists, int32_t dim, std::pmr::memory_resource* mem)
    : hash_(static_cast<size_t>(lists), 0, mem), lead_(static_cast<size_t>(lists), 0.0, mem),
      hashed_(static_cast<size_t>(lists), 0, mem), length_count_(static_cast<size_t>(dim) + 1, 0, mem),
      dense_(static_cast<size_t>(dim), 0.0, mem),
      mark_(static_cast<size_t>(dim), 0, mem), keyed_(mem), dirty_(mem), set_(mem), group_(mem) {
  keyed_.reserve(static_cast<size_t>(lists));
  dirty_.reserve(static_cast<size_t>(lists));
  set_.reserve(set_capacity(static_cast<size_t>(lists)));
  group_.reserve(set_capacity(static_cast<size_t>(lists)));
}

size_t ParallelFinder::set_capacity(size_t keys) {
  size_t cap = 16;
  while (cap < 2 * keys) cap *= 2;
  return cap;
}

const Vec<ParallelFinder::Keyed>& ParallelFinder::candidates(const Vec<Vec<Entry>>& lists, const Vec<uint8_t>& active,
                                                             const Vec<uint64_t>& stamp, uint64_t since) {
  // Only a list whose length another list shares can be parallel to one: a list of a length
  // of its own is not hashed, and is hashed once it no longer is alone. Afterwards hashed_
  // marks the lists that may have a partner.
  for (size_t i = 0; i < lists.size(); ++i)
    if (active[i] && !lists[i].empty()) ++length_count_[lists[i].size()];
  dirty_.clear();
  for (size_t i = 0; i < lists.size(); ++i) {
    if (!active[i] || lists[i].empty() || length_count_[lists[i].size()] < 2) {
      hashed_[i] = 0;
      continue;
    }
    if (hashed_[i] && stamp[i] <= since) continue;
    hash_[i] = vector_hash(lists[i], lead_[i]);
    hashed_[i] = 1;
    dirty_.push_back(hash_[i]);
  }
  for (size_t i = 0; i < lists.size(); ++i)
    if (active[i]) length_count_[lists[i].size()] = 0;
  keyed_.clear();
  if (dirty_.empty()) return keyed_;
  // The changed hashes in an open-addressing set (keys h | 1, so that 0 marks a free slot;
  // a hash differing only in the last bit may slip in and is sorted out by the comparison),
  // each slot counting the lists with its hash; the groups of two or more are then laid out
  // slot by slot, each in index order.
  const size_t cap = set_capacity(dirty_.size());
  set_.assign(cap, 0);
  group_.assign(cap, 0);
  const auto find = [&](uint64_t key) {
    size_t k = static_cast<size_t>((key * 0x9e3779b97f4a7c15ull) >> 32) & (cap - 1);
    while (set_[k] != 0 && set_[k] != key) k = (k + 1) & (cap - 1);
    return k;
  };
  for (uint64_t h : dirty_) set_[find(h | 1)] = h | 1;
  for (size_t i = 0; i < lists.size(); ++i) {
    if (!hashed_[i]) continue;
    const size_t k = find(hash_[i] | 1);
    if (set_[k] != 0) ++group_[k];
  }
  int32_t total = 0;
  for (int32_t& g : group_) {  // from sizes to starts; -1 for no group
    const int32_t size = g;
    g = size >= 2 ? total : -1;
    if (size >= 2) total += size;
  }
  if (total == 0) return keyed_;
  keyed_.resize(static_cast<size_t>(total));
  for (size_t i = 0; i < lists.size(); ++i) {
    if (!hashed_[i]) continue;
    const size_t k = find(hash_[i] | 1);
    if (set_[k] != 0 && group_[k] >= 0) keyed_[static_cast<size_t>(group_[k]++)] = {hash_[i], static_cast<int32_t>(i)};
  }
  return keyed_;
}

double ParallelFinder::parallel_factor(const Vec<Entry>& a, const Vec<Entry>& b) {
  if (a.size() != b.size()) return 0.0;
  ++tick_;
  const Entry* lead = &a.front();
  for (const Entry& e : a) {
    dense_[static_cast<size_t>(e.index)] = e.value;
    mark_[static_cast<size_t>(e.index)] = tick_;
    if (e.index < lead->index) lead = &e;
  }
  double lambda = 0.0;
  for (const Entry& f : b) {
    if (f.index == lead->index) lambda = f.value / lead->value;
    if (mark_[static_cast<size_t>(f.index)] != tick_) return 0.0;
  }
  if (lambda == 0.0) return 0.0;
  for (const Entry& f : b)
    if (std::fabs(f.value - lambda * dense_[static_cast<size_t>(f.index)]) > kParallelTol * std::fabs(f.value)) return 0.0;
  return lambda;
}

int32_t Presolver::duplicate_rows() {
  int32_t count = 0;
  const auto& keyed = row_finder_.candidates(w_.rows, w_.row_active, w_.row_stamp, dup_rows_clock_);
  dup_rows_clock_ = w_.clock;
  for (size_t g = 0; g < keyed.size() && can_reduce();) {
    size_t end = g + 1;
    while (end < keyed.size() && keyed[end].hash == keyed[g].hash) ++end;
    for (size_t p = g; p < end && can_reduce(); ++p) {
      const int32_t i = keyed[p].index;
      if (!w_.row_active[i]) continue;
      for (size_t q = p + 1; q < end && can_reduce(); ++q) {
        const int32_t k = keyed[q].index;
        if (!w_.row_active[k]) continue;
        const double lambda = row_finder_.parallel_factor(w_.rows[i], w_.rows[k]);
        if (lambda == 0.0) continue;
        const double lo = lambda > 0 ? w_.rl[k] / lambda : w_.ru[k] / lambda;
        const double hi = lambda > 0 ? w_.ru[k] / lambda : w_.rl[k] / lambda;
        Step& s = stack_.push(StepKind::kDuplicateRow, i, -1, k, {lambda, w_.rl[i], w_.ru[i], w_.rl[k], w_.ru[k]});
        for (const Entry& e : w_.rows[i]) stack_.add_entry(s, e.index, e.value);
        if (lo > w_.rl[i] + scaled_tol(opt_.tol_s, w_.rl[i])) w_.rl[i] = lo;
        if (hi < w_.ru[i] - scaled_tol(opt_.tol_s, w_.ru[i])) w_.ru[i] = hi;
        if (w_.rl[i] > w_.ru[i]) {
          if (!bounds_equal(w_.ru[i], w_.rl[i])) {
            set_status(PresolveStatus::kPrimalInfeasible);
            return count;
          }
          w_.rl[i] = w_.ru[i] = 0.5 * (w_.rl[i] + w_.ru[i]);
        }
        s.v[5] = w_.rl[i];
        s.v[6] = w_.ru[i];
        w_.touch_row(i);
        w_.remove_row(k);
        ++stats_.reductions;
        ++count;
      }
    }
    g = end;
  }
  return count;
}

// Columns k = lambda * j with d = c_k - lambda c_j != 0: z_k = d + lambda z_j. When the
// bounds of x_j fix the sign of lambda z_j (an infinite bound of x_j forbids one sign of z_j)
// to that of d, z_k never vanishes and x_k sits at a bound; likewise with the roles swapped.
// Returns 1 when a column was fixed, 0 when not, -1 on dual infeasibility.
int32_t Presolver::dominated_duplicate(int32_t j, int32_t k, double lambda) {
  for (int turn = 0; turn < 2; ++turn) {
    const int32_t a = turn == 0 ? j : k, b = turn == 0 ? k : j;  // b = lam * a
    const double lam = turn == 0 ? lambda : 1.0 / lambda;
    const double d = w_.c[b] - lam * w_.c[a];
    // z_a >= 0 when u_a is infinite, <= 0 when l_a is.
    const bool lam_z_nonneg = lam > 0 ? !finite(w_.u[a]) : !finite(w_.l[a]);
    const bool lam_z_nonpos = lam > 0 ? !finite(w_.l[a]) : !finite(w_.u[a]);
    double zmin = -kInf, zmax = kInf;
    if (lam_z_nonneg) zmin = d;
    if (lam_z_nonpos) zmax = d;
    const int32_t r = fix_dominated(b, zmin, zmax);
    if (r < 0) set_status(PresolveStatus::kDualInfeasible);
    if (r != 0) return r;
  }
  return 0;
}

int32_t Presolver::duplicate_columns() {
  int32_t count = 0;
  const auto& keyed = col_finder_.candidates(w_.cols, w_.col_active, w_.col_stamp, dup_cols_clock_);
  dup_cols_clock_ = w_.clock;
  for (size_t g = 0; g < keyed.size() && can_reduce();) {
    size_t end = g + 1;
    while (end < keyed.size() && keyed[end].hash == keyed[g].hash) ++end;
    for (size_t p = g; p < end && can_reduce(); ++p) {
      const int32_t j = keyed[p].index;
      if (!w_.col_active[j] || w_.integer(j)) continue;
      for (size_t q = p + 1; q < end && can_reduce(); ++q) {
        const int32_t k = keyed[q].index;
        if (!w_.col_active[k] || w_.integer(k)) continue;
        // Two boxed columns can only be merged (a dominated one needs an infinite bound on
        // the other), and only with costs in the ratio of their lead entries, which is the
        // factor of parallel columns: groups of parallel columns with other costs are common.
        if (boxed(j) && boxed(k) && !costs_in_ratio(j, k, col_finder_.lead(k) / col_finder_.lead(j))) continue;
        const double lambda = col_finder_.parallel_factor(w_.cols[j], w_.cols[k]);
        if (lambda == 0.0) continue;
        if (!costs_in_ratio(j, k, lambda)) {
          const int32_t r = dominated_duplicate(j, k, lambda);
          if (r < 0) return count;
          count += r;
          if (!w_.col_active[j]) break;
          continue;
        }
        Step& s = stack_.push(StepKind::kDuplicateColumn);
        s.col = j;
        s.other = k;
        s.v[0] = lambda;
        s.v[1] = w_.l[j];
        s.v[2] = w_.u[j];
        s.v[3] = w_.l[k];
        s.v[4] = w_.u[k];
        const double add_lo = lambda > 0 ? lambda * w_.l[k] : lambda * w_.u[k];
        const double add_hi = lambda > 0 ? lambda * w_.u[k] : lambda * w_.l[k];
        w_.l[j] = finite(w_.l[j]) && finite(add_lo) ? w_.l[j] + add_lo : -kInf;
        w_.u[j] = finite(w_.u[j]) && finite(add_hi) ? w_.u[j] + add_hi : kInf;
        w_.remove_col(k);
        w_.touch_bounds(j);
        ++stats_.reductions;
        ++count;
      }
    }
    g = end;
  }
  return count;
}

}  // namespace qubor::presolve
