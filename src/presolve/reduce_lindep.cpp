// Linearly dependent equality rows.
//
// Gaussian elimination over the equality rows that may be dependent at all (see the peeling
// below), shortest first (ties: later rows first): each
// row is reduced by the pivot rows found so far, in the order they were found (a pivot row
// has zeros in the pivot columns of all earlier ones, so the order is monotone and a heap
// keeps it). A row that
// reduces to zero (entries below tol_rel_lindep times its largest) is dependent: when its
// reduced right-hand side is below tol_abs_lindep it is removed with dual 0, otherwise the
// equalities are inconsistent. Otherwise it becomes a pivot row; its pivot is the entry in
// the sparsest column among those at least a tenth of the largest, which keeps fill low.
// Work (entries touched) is limited to rel_work_trh * nnz + abs_work_trh * 1000; beyond
// that the check stops and reports itself incomplete.
#include <algorithm>
#include <cmath>
#include <functional>
#include <queue>

#include "presolve/presolver.h"

namespace qubor::presolve {

namespace {

// Smallest pivot accepted, relative to the largest entry of its reduced row.
constexpr double kLindepPivotTol = 0.1;

struct PivotRow {
  int32_t pivot_col;
  double pivot;
  double rhs;
  Vec<Entry> entries;
};

}  // namespace

int32_t Presolver::linear_dependent_rows() {
  Vec<int32_t> order(opt_.mem);
  int64_t eq_nnz = 0;
  for (int32_t i = 0; i < w_.m; ++i) {
    if (w_.row_active[i] && !w_.rows[i].empty() && w_.rl[i] == w_.ru[i]) {
      order.push_back(i);
      eq_nnz += static_cast<int64_t>(w_.rows[i].size());
    }
  }
  // The check runs once: its arrays per row and column come from the working problem's memory.
  std::pmr::memory_resource* once = &w_.memory;
  Vec<int32_t> eq_count(static_cast<size_t>(w_.n), 0, once);
  for (int32_t i : order)
    for (const Entry& e : w_.rows[i]) ++eq_count[e.index];
  // Every column of a set of dependent rows lies in two of them at least, so a row with a
  // column in no other candidate row is independent of the rest; peeling such rows until
  // none is left leaves the core that may hold dependencies, and the elimination runs over
  // the core alone (eq_count then counts the core's rows).
  {
    Vec<uint8_t> candidate(static_cast<size_t>(w_.m), 0, once);
    for (int32_t i : order) candidate[i] = 1;
    Vec<int32_t> lonely(opt_.mem);
    for (int32_t j = 0; j < w_.n; ++j)
      if (eq_count[j] == 1) lonely.push_back(j);
    while (!lonely.empty()) {
      const int32_t j = lonely.back();
      lonely.pop_back();
      if (eq_count[j] != 1) continue;
      int32_t row = -1;
      for (const Entry& e : w_.cols[j])
        if (candidate[e.index]) row = e.index;
      candidate[row] = 0;
      for (const Entry& e : w_.rows[row])
        if (--eq_count[e.index] == 1) lonely.push_back(e.index);
    }
    order.erase(std::remove_if(order.begin(), order.end(), [&](int32_t i) { return !candidate[i]; }), order.end());
  }
  // Shortest first; among rows of equal length the later one first. The tie-break is a
  // heuristic: models tend to state aggregate rows (assignment, balance) before the detailed
  // ones, and reducing the aggregates last finds their dependency with little fill (on the
  // assignment-type Netlib models it finds hundreds of dependent rows instead of a few
  // dozen within the same work limit).
  std::sort(order.begin(), order.end(), [&](int32_t a, int32_t b) {
    return w_.rows[a].size() != w_.rows[b].size() ? w_.rows[a].size() < w_.rows[b].size() : a > b;
  });
  const int64_t budget = static_cast<int64_t>(opt_.lindep_rel_work_trh) * eq_nnz +
                         static_cast<int64_t>(opt_.lindep_abs_work_trh) * 1000;
  int64_t work = 0;
  // The pivot rows, with their fill, live in memory faulted in ahead of use.
  platform::PrefaultedBuffer pivot_memory(opt_.mem);
  Vec<PivotRow> pivots(opt_.mem);
  Vec<int32_t> pivot_of_col(static_cast<size_t>(w_.n), -1, once);
  Vec<double> dense(static_cast<size_t>(w_.n), 0.0, once);
  Vec<uint8_t> present(static_cast<size_t>(w_.n), 0, once);
  Vec<uint8_t> queued(opt_.mem);
  Vec<int32_t> pattern(opt_.mem);
  std::priority_queue<int32_t, Vec<int32_t>, std::greater<int32_t>> heap(std::greater<int32_t>(), Vec<int32_t>(opt_.mem));
  int32_t count = 0;
  for (int32_t i : order) {
    if (!can_reduce()) break;
    if (work > budget) {
      stats_.lindep_incomplete = true;
      break;
    }
    pattern.clear();
    double rhs = w_.rl[i], row_max = 0.0;
    auto touch = [&](int32_t col) {
      if (present[col]) return;
      present[col] = 1;
      pattern.push_back(col);
      const int32_t p = pivot_of_col[col];
      if (p >= 0 && !queued[p]) {
        queued[p] = 1;
        heap.push(p);
      }
    };
    for (const Entry& e : w_.rows[i]) {
      dense[e.index] = e.value;
      row_max = std::max(row_max, std::fabs(e.value));
      touch(e.index);
    }
    while (!heap.empty()) {
      const int32_t p = heap.top();
      heap.pop();
      queued[p] = 0;
      const PivotRow& pr = pivots[p];
      const double alpha = dense[pr.pivot_col];
      if (alpha == 0.0) continue;
      const double f = alpha / pr.pivot;
      for (const Entry& e : pr.entries) {
        touch(e.index);
        dense[e.index] -= f * e.value;
      }
      dense[pr.pivot_col] = 0.0;
      rhs -= f * pr.rhs;
      work += static_cast<int64_t>(pr.entries.size());
    }
    // Collect the reduced row and clear the work arrays.
    const double drop = opt_.tol_rel_lindep * row_max;
    PivotRow fresh{-1, 0.0, rhs, Vec<Entry>(&pivot_memory)};
    double fresh_max = 0.0;
    size_t kept = 0;
    for (int32_t col : pattern) kept += std::fabs(dense[col]) > drop ? 1 : 0;
    fresh.entries.reserve(kept);
    for (int32_t col : pattern) {
      const double v = dense[col];
      if (std::fabs(v) > drop) {
        fresh.entries.push_back({col, -1, v});
        fresh_max = std::max(fresh_max, std::fabs(v));
      }
      dense[col] = 0.0;
      present[col] = 0;
    }
    // Pivot: among the entries not much smaller than the largest, the column in the fewest
    // equality rows, so that few later rows need this pivot row (and take its fill).
    for (const Entry& e : fresh.entries) {
      if (std::fabs(e.value) < kLindepPivotTol * fresh_max) continue;
      if (fresh.pivot_col < 0 || eq_count[e.index] < eq_count[fresh.pivot_col] ||
          (eq_count[e.index] == eq_count[fresh.pivot_col] && std::fabs(e.value) > std::fabs(fresh.pivot))) {
        fresh.pivot = e.value;
        fresh.pivot_col = e.index;
      }
    }
    if (fresh.pivot_col < 0) {
      if (std::fabs(rhs) > opt_.tol_abs_lindep * (1.0 + std::fabs(w_.rl[i]))) {
        set_status(PresolveStatus::kPrimalInfeasible);
        return count;
      }
      drop_row(i);
      ++stats_.lindep_rows;
      ++count;
      continue;
    }
    pivot_of_col[fresh.pivot_col] = static_cast<int32_t>(pivots.size());
    pivots.push_back(std::move(fresh));
    queued.push_back(0);
  }
  return count;
}

}  // namespace qubor::presolve
