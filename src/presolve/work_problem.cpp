// The working problem of the reductions; see work_problem.h.
#include "presolve/work_problem.h"

#include <cmath>

namespace qubor::presolve {

namespace {

// Removes index `k` from an entry list by moving the last entry into its place.
void erase_index(Vec<Entry>& list, int32_t k) {
  for (size_t p = 0; p < list.size(); ++p) {
    if (list[p].index == k) {
      list[p] = list.back();
      list.pop_back();
      return;
    }
  }
}

}  // namespace

WorkProblem::WorkProblem(const LpProblem& p, const PresolveOptions& opt)
    : n(p.n), m(p.m),
      cols(static_cast<size_t>(p.n), opt.mem), rows(static_cast<size_t>(p.m), opt.mem),
      c(p.c.begin(), p.c.end(), opt.mem), l(p.l.begin(), p.l.end(), opt.mem),
      u(p.u.begin(), p.u.end(), opt.mem), rl(p.rl.begin(), p.rl.end(), opt.mem),
      ru(p.ru.begin(), p.ru.end(), opt.mem), c0(p.c0), is_int(p.is_int.begin(), p.is_int.end(), opt.mem),
      col_active(static_cast<size_t>(p.n), 1, opt.mem), row_active(static_cast<size_t>(p.m), 1, opt.mem),
      active_rows(p.m), active_cols(p.n), nnz(0), tol_aij(opt.tol_aij),
      scratch(static_cast<size_t>(p.n), -1, opt.mem) {
  Vec<int32_t> row_count(static_cast<size_t>(m), 0, opt.mem);
  for (int64_t q = 0; q < p.nnz(); ++q) row_count[static_cast<size_t>(p.rowind[q])]++;
  for (int32_t i = 0; i < m; ++i) rows[i].reserve(static_cast<size_t>(row_count[i]));
  // Duplicate entries of a column are summed, tiny ones dropped.
  for (int32_t j = 0; j < n; ++j) {
    for (int64_t q = p.colptr[j]; q < p.colptr[j + 1]; ++q) {
      const int32_t i = p.rowind[q];
      if (p.val[q] != 0.0) add_to_entry(i, j, p.val[q]);
    }
  }
}

double WorkProblem::coef(int32_t i, int32_t j) const {
  const auto& row = rows[i];
  const auto& col = cols[j];
  if (row.size() <= col.size()) {
    for (const Entry& e : row)
      if (e.index == j) return e.value;
  } else {
    for (const Entry& e : col)
      if (e.index == i) return e.value;
  }
  return 0.0;
}

void WorkProblem::add_to_entry(int32_t i, int32_t j, double delta) {
  auto& col = cols[j];
  for (Entry& e : col) {
    if (e.index != i) continue;
    const double v = e.value + delta;
    // Cancellation to (near) zero removes the entry.
    if (std::fabs(v) < tol_aij || std::fabs(v) <= 1e-12 * std::fabs(delta)) {
      remove_entry(i, j);
    } else {
      e.value = v;
      for (Entry& f : rows[i])
        if (f.index == j) f.value = v;
    }
    return;
  }
  if (std::fabs(delta) < tol_aij) return;
  col.push_back({i, delta});
  rows[i].push_back({j, delta});
  ++nnz;
}

void WorkProblem::remove_entry(int32_t i, int32_t j) {
  erase_index(cols[j], i);
  erase_index(rows[i], j);
  --nnz;
}

void WorkProblem::remove_row(int32_t i) {
  for (const Entry& e : rows[i]) erase_index(cols[e.index], i);
  nnz -= static_cast<int64_t>(rows[i].size());
  rows[i].clear();
  row_active[i] = 0;
  --active_rows;
}

void WorkProblem::remove_col(int32_t j) {
  for (const Entry& e : cols[j]) erase_index(rows[e.index], j);
  nnz -= static_cast<int64_t>(cols[j].size());
  cols[j].clear();
  col_active[j] = 0;
  --active_cols;
}

ActivityBounds WorkProblem::activity_without(int32_t i, int32_t skip) const {
  ActivityBounds b;
  for (const Entry& e : rows[i]) {
    if (e.index == skip) continue;
    const double a = e.value;
    const double lo = a > 0 ? l[e.index] : u[e.index];
    const double hi = a > 0 ? u[e.index] : l[e.index];
    if (finite(lo)) b.min += a * lo; else ++b.min_inf;
    if (finite(hi)) b.max += a * hi; else ++b.max_inf;
  }
  return b;
}

ActivityBounds WorkProblem::activity(int32_t i) const { return activity_without(i, -1); }

}  // namespace qubor::presolve
