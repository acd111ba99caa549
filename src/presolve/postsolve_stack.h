// The postsolve stack: one record per reduction, undone in reverse order.
//
// Undo works on full-size arrays x, y and z = c - A'y of the problem level being restored.
// Before undoing step k the arrays hold an optimal solution of the problem as it was right
// after step k (items still removed hold zero: nothing writes them before their own step is
// undone, and slack records on the input's rows rely on that); the undo restores the removed
// items so that the arrays are optimal for the problem right before step k. Only the restored
// items and the reduced costs of columns whose data the step changed are written; y of rows
// present on both levels never changes. Each record keeps the data it needs of the level
// before the step (column or row entries, bounds, costs); entry lists live in idx/val.
//
// Keys: every undo that restores a row leaves exactly one more basic item (the row itself,
// or a column that becomes basic while the row becomes nonbasic); restored columns that
// come without a row are nonbasic. So a basis of the reduced problem maps to a basis.
#pragma once

#include <algorithm>
#include <cstdint>
#include <initializer_list>

#include "platform/prefaulted_buffer.h"
#include "presolve/presolve.h"

namespace qubor::presolve {

enum class StepKind : uint8_t {
  kRemoveRow,        // row with zero dual: empty, redundant, free or dependent
  kFixColumn,        // column fixed at a value, its terms moved into rows and objective
  kSingletonRow,     // row a x_j in [rl, ru] turned into bounds of x_j
  kForcingRow,       // row whose activity bound equals a side: all its columns at bounds
  kSubstitution,     // x_j eliminated through row i (free/implied-free column, doubleton)
  kDuplicateRow,     // row other = lambda * row, merged into row
  kDuplicateColumn,  // column other = lambda * column with equal cost ratio, merged
  kSlackColumn,      // column singleton absorbed into its row's sides (side 1: the row is
                     // the input's row i, not recorded)
  kActivityColumn,   // implied-free x_j replaced by the activity of row i
  kRowToSide,        // inequality row made an equality at the side every optimum has
  kFourierMotzkin,   // zero-cost x_j between rows p and q projected out
};

struct Step {
  StepKind kind;
  int32_t row = -1;
  int32_t col = -1;
  int32_t other = -1;
  int32_t side = 0;
  int64_t begin = 0, mid = 0, end = 0;  // entry ranges in PostsolveStack::idx / val
  double v[10] = {};
};

struct UndoState {
  explicit UndoState(std::pmr::memory_resource* mem) : x(mem), y(mem), z(mem), skx(mem), skc(mem) {}
  Vec<double> x, y, z;
  Vec<int32_t> skx, skc;
};

struct PostsolveStack {
  // The records come from records_mem, the input and what postsolve builds from mem.
  PostsolveStack(std::pmr::memory_resource* mem, std::pmr::memory_resource* records_mem)
      : steps(records_mem), idx(records_mem), val(records_mem), original(mem), row_start_(mem), row_col_(mem),
        row_val_(mem) {}
  Vec<Step> steps;
  Vec<int32_t> idx;
  Vec<double> val;
  LpProblem original;  // copy of the input, for the final row activities
  double tol_x = 1e-8;

  // Appends a record; returns it for the caller to fill the scalar fields.
  Step& push(StepKind kind) {
    platform::push_back_prefaulted(steps, Step{kind});
    Step& s = steps.back();
    s.begin = s.mid = s.end = static_cast<int64_t>(idx.size());
    return s;
  }
  // Appends a record with its items and leading scalars.
  Step& push(StepKind kind, int32_t row, int32_t col, int32_t other, std::initializer_list<double> values) {
    Step& s = push(kind);
    s.row = row;
    s.col = col;
    s.other = other;
    std::copy(values.begin(), values.end(), s.v);
    return s;
  }
  void add_entry(Step& s, int32_t index, double value) {
    platform::push_back_prefaulted(idx, index);
    platform::push_back_prefaulted(val, value);
    s.end = static_cast<int64_t>(idx.size());
  }
  // Closes the first entry range of s; later entries go to the second one.
  void split(Step& s) { s.mid = static_cast<int64_t>(idx.size()); }

  void undo(UndoState& st) const;
  // Key of an item with value v in [lo, hi] and dual d (z_j or y_i): at a bound where the
  // dual's sign allows it, else basic.
  int32_t key_from_solution(double v, double d, double lo, double hi) const;

 private:
  void undo_fix_column(const Step& s, UndoState& st) const;
  void undo_singleton_row(const Step& s, UndoState& st) const;
  void undo_forcing_row(const Step& s, UndoState& st) const;
  void undo_substitution(const Step& s, UndoState& st) const;
  void undo_duplicate_row(const Step& s, UndoState& st) const;
  void undo_duplicate_column(const Step& s, UndoState& st) const;
  void undo_slack_column(const Step& s, UndoState& st) const;
  void undo_activity_column(const Step& s, UndoState& st) const;
  void undo_fourier_motzkin(const Step& s, UndoState& st) const;
  bool near(double a, double b) const {
    return a == b || (std::isfinite(b) && std::fabs(a - b) <= tol_x * (1.0 + std::fabs(b)));
  }
  int32_t column_key(double x, double l, double u) const;
  int32_t row_key(double act, double rl, double ru) const;

  // a'x over row i of the input, through the input by rows (built on first use).
  double original_row_activity(int32_t i, const Vec<double>& x) const;
  mutable Vec<int64_t> row_start_;
  mutable Vec<int32_t> row_col_;
  mutable Vec<double> row_val_;
};

}  // namespace qubor::presolve
