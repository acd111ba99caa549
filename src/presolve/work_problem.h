// The problem as the reductions see it: rows and columns as unordered entry lists kept in
// step (every nonzero a_ij is in row i's list and in column j's list), with removed rows and
// columns marked inactive. Every change of data goes through these functions so that the two
// views never disagree; coefficients below tol_aij are dropped when they arise from fill.
#pragma once

#include <cmath>
#include <cstdint>

#include "platform/prefaulted_buffer.h"
#include "presolve/presolve.h"

namespace qubor::presolve {

// An entry of a row or column list. In the working problem `pos` is where the same
// nonzero sits in the other list (row i's entry for column j points into column j's list
// and back), so that removing a row or column never searches the lists it leaves.
struct Entry {
  int32_t index;
  int32_t pos;
  double value;
};

struct ActivityBounds {
  double min = 0.0, max = 0.0;  // finite part of the extreme activities
  int32_t min_inf = 0, max_inf = 0;  // number of infinite contributions
  double lo() const { return min_inf > 0 ? -kInf : min; }
  double hi() const { return max_inf > 0 ? kInf : max; }
};

// Bounds of the columns implied by single rows and the column bounds of the rest of the row,
// with the row each comes from: lo[j] > l[j] only when row lo_row[j] implies it. Whoever uses
// such a bound to show row i redundant must skip bounds that come from row i itself.
// Kept up to date by WorkProblem::refresh_implied_bounds, which derives again only what the
// changes since the last refresh reach.
struct ImpliedBounds {
  explicit ImpliedBounds(std::pmr::memory_resource* mem)
      : lo(mem), hi(mem), lo_row(mem), hi_row(mem), lo_version(mem), hi_version(mem), row_mark(mem),
        activity(mem), has_activity(mem), dirty(mem), is_dirty(mem) {}
  Vec<double> lo, hi;
  Vec<int32_t> lo_row, hi_row;  // -1: the column's own bound
  Vec<uint32_t> lo_version, hi_version;  // version of the source row when derived
  // The rows of the column under test carry the current stamp, so that a bound derived from
  // one of them is recognised in constant time (see mark_column).
  mutable Vec<uint32_t> row_mark;
  mutable uint32_t stamp = 0;
  // The activity range of each row the bounds were derived from, as at clock activity_clock
  // (the clock of the last refresh; 0 before the first).
  Vec<ActivityBounds> activity;
  Vec<uint8_t> has_activity;
  uint64_t activity_clock = 0;
  // Scratch of the refresh: the columns whose bounds are derived again.
  Vec<int32_t> dirty;
  Vec<uint8_t> is_dirty;
  void mark_column(const Vec<Entry>& col, int32_t m) const {
    if (row_mark.size() < static_cast<size_t>(m)) row_mark.resize(static_cast<size_t>(m), 0);
    ++stamp;
    for (const Entry& e : col) row_mark[static_cast<size_t>(e.index)] = stamp;
  }
};

struct WorkProblem {
  WorkProblem(const LpProblem& p, const PresolveOptions& opt);

  int32_t n, m;
  // The entry lists and the arrays per row and column, here and in the engine, come from
  // memory faulted in ahead of use: they are most of presolve's memory, and building them
  // page fault by page fault costs more than the reductions on some machines.
  platform::PrefaultedBuffer memory;
  Vec<Vec<Entry>> cols, rows;
  Vec<double> c, l, u, rl, ru;
  double c0;
  Vec<uint8_t> is_int, col_active, row_active;
  int32_t active_rows, active_cols;
  int64_t nnz;
  double tol_aij;
  Vec<int32_t> scratch;  // n entries, -1 between uses
  Vec<int32_t> row_scratch;  // m entries, -1 between uses
  Vec<uint32_t> row_version;  // m entries, advanced whenever a row's entries change
  // m entries: 1 once a row's coefficients changed (not only lost columns), when it is no
  // longer the input's row restricted to the columns left.
  Vec<uint8_t> row_modified;

  // Change tracking. Every change advances `clock` and stamps what it affects: a row's stamp
  // moves when its entries, its sides or the bounds of its columns change; a column's when
  // its entries, bounds or cost change or a row of it goes. A sweep that remembers the clock
  // at its start needs to look again only at rows and columns stamped later.
  uint64_t clock = 1;
  Vec<uint64_t> row_stamp, col_stamp;
  void touch_row(int32_t i) { row_stamp[static_cast<size_t>(i)] = ++clock; }
  void touch_col(int32_t j) { col_stamp[static_cast<size_t>(j)] = ++clock; }
  // After a change of x_j's bounds: stamps the column and its rows, whose activity moved.
  void touch_bounds(int32_t j) {
    col_stamp[static_cast<size_t>(j)] = ++clock;
    for (const Entry& e : cols[static_cast<size_t>(j)]) row_stamp[static_cast<size_t>(e.index)] = clock;
  }
  bool row_changed_since(int32_t i, uint64_t since) const { return row_stamp[static_cast<size_t>(i)] > since; }
  // True when column j, or one of its rows, changed after `since`.
  bool col_neighbourhood_changed_since(int32_t j, uint64_t since) const {
    if (col_stamp[static_cast<size_t>(j)] > since) return true;
    for (const Entry& e : cols[static_cast<size_t>(j)])
      if (row_stamp[static_cast<size_t>(e.index)] > since) return true;
    return false;
  }

  bool integer(int32_t j) const { return !is_int.empty() && is_int[static_cast<size_t>(j)] != 0; }
  double coef(int32_t i, int32_t j) const;
  // Whether a coefficient that became v by adding delta cancelled to (near) zero; such an
  // entry is removed.
  bool cancels(double v, double delta) const {
    return std::fabs(v) < tol_aij || std::fabs(v) <= 1e-12 * std::fabs(delta);
  }
  // Adds delta to a_ij, creating the entry when absent and dropping it when it becomes tiny.
  void add_to_entry(int32_t i, int32_t j, double delta);
  void remove_entry(int32_t i, int32_t j);
  // Row r += f * src, skipping src's entry in column `skip`: add_to_entry for every entry of
  // src, with row r scattered once instead of each column searched.
  void add_scaled_row(int32_t r, const Vec<Entry>& src, int32_t skip, double f);
  // Removes a row from every column list and marks it inactive.
  void remove_row(int32_t i);
  // Removes a column from every row list and marks it inactive.
  void remove_col(int32_t j);
  // True when every entry's partner is where its pos says (checked in debug builds).
  bool links_consistent() const;
  ActivityBounds activity(int32_t i) const;
  // Activity bounds of row i without column j's term.
  ActivityBounds activity_without(int32_t i, int32_t j) const;
  // Brings b to the tightest bounds implied by one row each, over the active rows: the
  // ranges of rows stamped since the last refresh are summed again, and the bounds of their
  // columns and of columns stamped since are derived again from all their rows. The result
  // is the same as deriving everything afresh (of equal bounds, the lowest row's is kept).
  void refresh_implied_bounds(ImpliedBounds& b) const;
  // Sets b to the columns' own bounds, without rows.
  void own_bounds(ImpliedBounds& b) const;
  // Bounds of x_k that may serve in a test of column skip_col through row skip_row: implied
  // bounds from b when their source row is neither skip_row nor a row of skip_col, whose rows
  // must have been marked by b->mark_column.
  double usable_lower(const ImpliedBounds* b, int32_t k, int32_t skip_row) const;
  double usable_upper(const ImpliedBounds* b, int32_t k, int32_t skip_row) const;
};

// Helpers on bounds with infinities.
inline bool finite(double v) { return std::isfinite(v); }
// Zero at infinite values, so that `bound + scaled_tol` stays a valid comparison.
inline double scaled_tol(double tol, double v) { return finite(v) ? tol * (1.0 + std::fabs(v)) : 0.0; }

}  // namespace qubor::presolve
