// The working problem of the reductions; see work_problem.h.
#include "presolve/work_problem.h"

#include <algorithm>
#include <cmath>

namespace qubor::presolve {

namespace {

// Removes the entry at position p of a list by moving the last entry into its place, and
// points the moved entry's partner (in `other`) at its new position.
void erase_at(Vec<Entry>& list, size_t p, Vec<Vec<Entry>>& other) {
  if (p + 1 != list.size()) {
    list[p] = list.back();
    other[static_cast<size_t>(list[p].index)][static_cast<size_t>(list[p].pos)].pos = static_cast<int32_t>(p);
  }
  list.pop_back();
}

// The lists as built (two entries per nonzero, one header per row and column) and a
// quarter more for fill.
size_t list_bytes(const LpProblem& p) {
  const auto lists = static_cast<size_t>(p.n) + static_cast<size_t>(p.m);
  const auto entries = 2 * static_cast<size_t>(p.nnz());
  return lists * sizeof(Vec<Entry>) + entries * sizeof(Entry) * 5 / 4 + 4096;
}

}  // namespace

WorkProblem::WorkProblem(const LpProblem& p, const PresolveOptions& opt)
    : n(p.n), m(p.m), lists_memory(list_bytes(p), opt.mem),
      cols(static_cast<size_t>(p.n), &lists_memory), rows(static_cast<size_t>(p.m), &lists_memory),
      c(p.c.begin(), p.c.end(), opt.mem), l(p.l.begin(), p.l.end(), opt.mem),
      u(p.u.begin(), p.u.end(), opt.mem), rl(p.rl.begin(), p.rl.end(), opt.mem),
      ru(p.ru.begin(), p.ru.end(), opt.mem), c0(p.c0), is_int(p.is_int.begin(), p.is_int.end(), opt.mem),
      col_active(static_cast<size_t>(p.n), 1, opt.mem), row_active(static_cast<size_t>(p.m), 1, opt.mem),
      active_rows(p.m), active_cols(p.n), nnz(0), tol_aij(opt.tol_aij),
      scratch(static_cast<size_t>(p.n), -1, opt.mem), row_scratch(static_cast<size_t>(p.m), -1, opt.mem),
      row_version(static_cast<size_t>(p.m), 0, opt.mem), row_modified(static_cast<size_t>(p.m), 0, opt.mem),
      row_stamp(static_cast<size_t>(p.m), 1, opt.mem), col_stamp(static_cast<size_t>(p.n), 1, opt.mem) {
  // Columns first, duplicate entries summed (pos: where row i sits in the current column) and
  // tiny ones dropped; the rows follow from the columns, each reserved to its length.
  Vec<int32_t> pos(static_cast<size_t>(m), -1, opt.mem);
  Vec<int32_t> row_count(static_cast<size_t>(m), 0, opt.mem);
  for (int32_t j = 0; j < n; ++j) {
    auto& col = cols[j];
    col.reserve(static_cast<size_t>(p.colptr[j + 1] - p.colptr[j]));
    for (int64_t q = p.colptr[j]; q < p.colptr[j + 1]; ++q) {
      const int32_t i = p.rowind[q];
      if (p.val[q] == 0.0) continue;
      if (pos[i] >= 0) {
        col[static_cast<size_t>(pos[i])].value += p.val[q];
      } else {
        pos[i] = static_cast<int32_t>(col.size());
        col.push_back({i, -1, p.val[q]});
      }
    }
    size_t kept = 0;
    for (const Entry& e : col) {
      pos[e.index] = -1;
      if (std::fabs(e.value) < tol_aij) continue;
      col[kept++] = e;
      ++row_count[e.index];
    }
    col.resize(kept);
  }
  for (int32_t i = 0; i < m; ++i) rows[i].reserve(static_cast<size_t>(row_count[i]));
  for (int32_t j = 0; j < n; ++j) {
    for (size_t q = 0; q < cols[j].size(); ++q) {
      Entry& e = cols[j][q];
      auto& row = rows[e.index];
      e.pos = static_cast<int32_t>(row.size());
      row.push_back({j, static_cast<int32_t>(q), e.value});
    }
  }
  for (const auto& col : cols) nnz += static_cast<int64_t>(col.size());
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
  ++row_version[i];
  row_modified[i] = 1;
  row_stamp[i] = col_stamp[j] = ++clock;
  auto& col = cols[j];
  for (Entry& e : col) {
    if (e.index != i) continue;
    const double v = e.value + delta;
    // Cancellation to (near) zero removes the entry.
    if (std::fabs(v) < tol_aij || std::fabs(v) <= 1e-12 * std::fabs(delta)) {
      remove_entry(i, j);
    } else {
      e.value = v;
      rows[i][static_cast<size_t>(e.pos)].value = v;
    }
    return;
  }
  if (std::fabs(delta) < tol_aij) return;
  auto& row = rows[i];
  col.push_back({i, static_cast<int32_t>(row.size()), delta});
  row.push_back({j, static_cast<int32_t>(col.size() - 1), delta});
  ++nnz;
}

void WorkProblem::remove_entry(int32_t i, int32_t j) {
  ++row_version[i];
  row_modified[i] = 1;
  row_stamp[i] = col_stamp[j] = ++clock;
  auto& col = cols[j];
  for (size_t q = 0; q < col.size(); ++q) {
    if (col[q].index != i) continue;
    erase_at(rows[i], static_cast<size_t>(col[q].pos), cols);
    erase_at(col, q, rows);
    --nnz;
    return;
  }
}

void WorkProblem::remove_row(int32_t i) {
  ++clock;
  for (const Entry& e : rows[i]) {
    erase_at(cols[e.index], static_cast<size_t>(e.pos), rows);
    col_stamp[e.index] = clock;
  }
  nnz -= static_cast<int64_t>(rows[i].size());
  rows[i].clear();
  row_active[i] = 0;
  --active_rows;
}

void WorkProblem::remove_col(int32_t j) {
  ++clock;
  for (const Entry& e : cols[j]) {
    erase_at(rows[e.index], static_cast<size_t>(e.pos), cols);
    ++row_version[e.index];
    row_stamp[e.index] = clock;
  }
  nnz -= static_cast<int64_t>(cols[j].size());
  cols[j].clear();
  col_active[j] = 0;
  --active_cols;
}

bool WorkProblem::links_consistent() const {
  const auto linked = [](const Vec<Vec<Entry>>& lists, const Vec<Vec<Entry>>& other) {
    for (size_t k = 0; k < lists.size(); ++k) {
      for (size_t q = 0; q < lists[k].size(); ++q) {
        const Entry& e = lists[k][q];
        const auto& partner_list = other[static_cast<size_t>(e.index)];
        if (e.pos < 0 || static_cast<size_t>(e.pos) >= partner_list.size()) return false;
        const Entry& partner = partner_list[static_cast<size_t>(e.pos)];
        if (partner.index != static_cast<int32_t>(k) || partner.pos != static_cast<int32_t>(q) || partner.value != e.value)
          return false;
      }
    }
    return true;
  };
  return linked(cols, rows) && linked(rows, cols);
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

void WorkProblem::implied_bounds(ImpliedBounds& b, const Vec<int32_t>* subset) const {
  b.lo.assign(l.begin(), l.end());
  b.hi.assign(u.begin(), u.end());
  b.lo_row.assign(static_cast<size_t>(n), -1);
  b.hi_row.assign(static_cast<size_t>(n), -1);
  b.lo_version.assign(static_cast<size_t>(n), 0);
  b.hi_version.assign(static_cast<size_t>(n), 0);
  // With a subset: the wanted columns, and the rows that hold one of them.
  Vec<uint8_t> wanted(b.lo.get_allocator()), source(b.lo.get_allocator());
  if (subset != nullptr) {
    wanted.assign(static_cast<size_t>(n), 0);
    source.assign(static_cast<size_t>(m), 0);
    for (int32_t i : *subset)
      for (const Entry& e : rows[i]) {
        if (wanted[e.index]) continue;
        wanted[e.index] = 1;
        for (const Entry& f : cols[e.index]) source[f.index] = 1;
      }
  }
  b.activity.resize(static_cast<size_t>(m));
  b.has_activity.assign(static_cast<size_t>(m), 0);
  b.activity_clock = clock;
  for (int32_t i = 0; i < m; ++i) {
    if (!row_active[i] || rows[i].size() < 2) continue;
    if (subset != nullptr && !source[i]) continue;
    const bool has_l = finite(rl[i]), has_u = finite(ru[i]);
    if (!has_l && !has_u) continue;
    const ActivityBounds act = activity(i);
    b.activity[static_cast<size_t>(i)] = act;
    b.has_activity[static_cast<size_t>(i)] = 1;
    if (act.min_inf > 1 && act.max_inf > 1) continue;
    for (const Entry& e : rows[i]) {
      const int32_t j = e.index;
      if (subset != nullptr && !wanted[j]) continue;
      const double a = e.value;
      // The rest of the row without x_j's term, from the totals.
      const double tmin = a > 0 ? l[j] : u[j], tmax = a > 0 ? u[j] : l[j];
      double rest_min = kInf, rest_max = -kInf;  // infinite: no bound
      if (finite(tmin)) {
        if (act.min_inf == 0) rest_min = act.min - a * tmin;
      } else if (act.min_inf == 1) {
        rest_min = act.min;
      }
      if (finite(tmax)) {
        if (act.max_inf == 0) rest_max = act.max - a * tmax;
      } else if (act.max_inf == 1) {
        rest_max = act.max;
      }
      // a x_j in [rl - rest_max, ru - rest_min].
      const double t_lo = has_l && finite(rest_max) ? rl[i] - rest_max : -kInf;
      const double t_hi = has_u && finite(rest_min) ? ru[i] - rest_min : kInf;
      const double lo = a > 0 ? t_lo / a : t_hi / a, hi = a > 0 ? t_hi / a : t_lo / a;
      // A margin against the cancellation in the totals.
      if (finite(lo) && lo - scaled_tol(1e-9, lo) > b.lo[j]) {
        b.lo[j] = lo - scaled_tol(1e-9, lo);
        b.lo_row[j] = i;
        b.lo_version[j] = row_version[i];
      }
      if (finite(hi) && hi + scaled_tol(1e-9, hi) < b.hi[j]) {
        b.hi[j] = hi + scaled_tol(1e-9, hi);
        b.hi_row[j] = i;
        b.hi_version[j] = row_version[i];
      }
    }
  }
}

namespace {

bool usable_source(const WorkProblem& w, const ImpliedBounds& b, int32_t row, uint32_t version,
                   int32_t skip_row) {
  if (row < 0 || row == skip_row || !w.row_active[row] || w.row_version[row] != version) return false;
  return b.row_mark[static_cast<size_t>(row)] != b.stamp;
}

}  // namespace

double WorkProblem::usable_lower(const ImpliedBounds* b, int32_t k, int32_t skip_row) const {
  if (b == nullptr || !usable_source(*this, *b, b->lo_row[k], b->lo_version[k], skip_row)) return l[k];
  return std::max(l[k], b->lo[k]);
}

double WorkProblem::usable_upper(const ImpliedBounds* b, int32_t k, int32_t skip_row) const {
  if (b == nullptr || !usable_source(*this, *b, b->hi_row[k], b->hi_version[k], skip_row)) return u[k];
  return std::min(u[k], b->hi[k]);
}

}  // namespace qubor::presolve
