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

// About what the lists and the arrays per row and column of the working problem and the
// engine take.
size_t expected_bytes(const LpProblem& p) {
  return 2 * sizeof(Entry) * static_cast<size_t>(p.nnz()) + 128 * static_cast<size_t>(p.n + p.m);
}

}  // namespace

WorkProblem::WorkProblem(const LpProblem& p, const PresolveOptions& opt)
    : n(p.n), m(p.m), memory(opt.mem, expected_bytes(p)),
      cols(static_cast<size_t>(p.n), &memory), rows(static_cast<size_t>(p.m), &memory),
      c(p.c.begin(), p.c.end(), &memory), l(p.l.begin(), p.l.end(), &memory),
      u(p.u.begin(), p.u.end(), &memory), rl(p.rl.begin(), p.rl.end(), &memory),
      ru(p.ru.begin(), p.ru.end(), &memory), c0(p.c0), is_int(p.is_int.begin(), p.is_int.end(), &memory),
      col_active(static_cast<size_t>(p.n), 1, &memory), row_active(static_cast<size_t>(p.m), 1, &memory),
      active_rows(p.m), active_cols(p.n), nnz(0), tol_aij(opt.tol_aij),
      scratch(static_cast<size_t>(p.n), -1, &memory), row_scratch(static_cast<size_t>(p.m), -1, &memory),
      row_version(static_cast<size_t>(p.m), 0, &memory), row_modified(static_cast<size_t>(p.m), 0, &memory),
      row_stamp(static_cast<size_t>(p.m), 1, &memory), col_stamp(static_cast<size_t>(p.n), 1, &memory) {
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
    if (cancels(v, delta)) {
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

void WorkProblem::add_scaled_row(int32_t r, const Vec<Entry>& src, int32_t skip, double f) {
  ++row_version[r];
  row_modified[r] = 1;
  row_stamp[r] = ++clock;
  auto& row = rows[r];
  for (size_t q = 0; q < row.size(); ++q) scratch[row[q].index] = static_cast<int32_t>(q);
  bool cancelled = false;
  for (const Entry& t : src) {
    if (t.index == skip) continue;
    const double delta = f * t.value;
    col_stamp[t.index] = clock;
    auto& col = cols[t.index];
    const int32_t q = scratch[t.index];
    if (q >= 0) {
      Entry& e = row[static_cast<size_t>(q)];
      double v = e.value + delta;
      // Cancellation to (near) zero removes the entry, once the row is done.
      if (cancels(v, delta)) {
        v = 0.0;
        cancelled = true;
      }
      e.value = v;
      col[static_cast<size_t>(e.pos)].value = v;
    } else if (std::fabs(delta) >= tol_aij) {
      scratch[t.index] = static_cast<int32_t>(row.size());
      col.push_back({r, static_cast<int32_t>(row.size()), delta});
      row.push_back({t.index, static_cast<int32_t>(col.size() - 1), delta});
      ++nnz;
    }
  }
  for (const Entry& e : row) scratch[e.index] = -1;
  if (!cancelled) return;
  // From the back, so that the entry moved into a gap has been looked at already.
  for (size_t q = row.size(); q-- > 0;) {
    if (row[q].value != 0.0) continue;
    erase_at(cols[static_cast<size_t>(row[q].index)], static_cast<size_t>(row[q].pos), rows);
    erase_at(row, q, cols);
    --nnz;
  }
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

namespace {

// Whether row i, with range act, may bound a column: a row range with two infinite terms on
// each side bounds none.
bool may_imply(const ActivityBounds& act) { return act.min_inf <= 1 || act.max_inf <= 1; }

// The bounds of x_j (coefficient a, bounds [lj, uj]) that row i gives: a x_j lies in
// [rl - rest_max, ru - rest_min], the rest's range taken from the row's totals, widened by
// a margin against the cancellation in the totals. Infinite when the row gives none.
void row_implies(const ActivityBounds& act, double rl, double ru, double a, double lj, double uj, double& lo,
                 double& hi) {
  const double tmin = a > 0 ? lj : uj, tmax = a > 0 ? uj : lj;
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
  const double t_lo = finite(rl) && finite(rest_max) ? rl - rest_max : -kInf;
  const double t_hi = finite(ru) && finite(rest_min) ? ru - rest_min : kInf;
  // Only finite sides are divided: a one-sided row costs one division.
  const double lo_side = a > 0 ? t_lo : t_hi, hi_side = a > 0 ? t_hi : t_lo;
  lo = finite(lo_side) ? lo_side / a : -kInf;
  hi = finite(hi_side) ? hi_side / a : kInf;
  lo = finite(lo) ? lo - scaled_tol(1e-9, lo) : -kInf;
  hi = finite(hi) ? hi + scaled_tol(1e-9, hi) : kInf;
}

}  // namespace

void WorkProblem::own_bounds(ImpliedBounds& b) const {
  b.lo.assign(l.begin(), l.end());
  b.hi.assign(u.begin(), u.end());
  b.lo_row.assign(static_cast<size_t>(n), -1);
  b.hi_row.assign(static_cast<size_t>(n), -1);
}

void WorkProblem::refresh_implied_bounds(ImpliedBounds& b) const {
  const auto nn = static_cast<size_t>(n), mm = static_cast<size_t>(m);
  if (b.activity_clock == 0) {
    b.lo.resize(nn);
    b.hi.resize(nn);
    b.lo_row.resize(nn);
    b.hi_row.resize(nn);
    b.lo_version.resize(nn);
    b.hi_version.resize(nn);
    b.is_dirty.assign(nn, 0);
    b.dirty.reserve(nn);
    b.activity.resize(mm);
    b.has_activity.assign(mm, 0);
  }
  const uint64_t since = b.activity_clock;
  b.dirty.clear();
  const auto mark = [&b](int32_t j) {
    if (b.is_dirty[static_cast<size_t>(j)]) return;
    b.is_dirty[static_cast<size_t>(j)] = 1;
    b.dirty.push_back(j);
  };
  // Rows: a range is summed again once the row changed, and its columns derive their bounds
  // again, also when the row no longer bounds any (a singleton, or without sides). A row
  // that went keeps none; its columns were stamped when it went.
  for (int32_t i = 0; i < m; ++i) {
    const auto k = static_cast<size_t>(i);
    if (!row_active[k]) {
      b.has_activity[k] = 0;
      continue;
    }
    if (row_stamp[k] <= since) continue;
    for (const Entry& e : rows[k]) mark(e.index);
    b.has_activity[k] = rows[k].size() >= 2 && (finite(rl[k]) || finite(ru[k]));
    if (b.has_activity[k]) b.activity[k] = activity(i);
  }
  for (int32_t j = 0; j < n; ++j)
    if (col_stamp[static_cast<size_t>(j)] > since) mark(j);
  // Columns: the tightest bound over their rows; of equal ones, the lowest row's.
  for (int32_t j : b.dirty) {
    const auto q = static_cast<size_t>(j);
    b.is_dirty[q] = 0;
    double best_lo = l[q], best_hi = u[q];
    int32_t lo_row = -1, hi_row = -1;
    if (col_active[q]) {
      for (const Entry& e : cols[q]) {
        const auto i = static_cast<size_t>(e.index);
        if (!b.has_activity[i] || !may_imply(b.activity[i])) continue;
        double lo, hi;
        row_implies(b.activity[i], rl[i], ru[i], e.value, l[q], u[q], lo, hi);
        if (lo > best_lo || (lo == best_lo && lo_row >= 0 && e.index < lo_row)) {
          best_lo = lo;
          lo_row = e.index;
        }
        if (hi < best_hi || (hi == best_hi && hi_row >= 0 && e.index < hi_row)) {
          best_hi = hi;
          hi_row = e.index;
        }
      }
    }
    b.lo[q] = best_lo;
    b.hi[q] = best_hi;
    b.lo_row[q] = lo_row;
    b.hi_row[q] = hi_row;
    b.lo_version[q] = lo_row >= 0 ? row_version[static_cast<size_t>(lo_row)] : 0;
    b.hi_version[q] = hi_row >= 0 ? row_version[static_cast<size_t>(hi_row)] : 0;
  }
  b.activity_clock = clock;
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
