// The constraint matrix A of a task: a column store that takes whole columns, single elements
// and whole rows, and hands out compressed columns (CSC) and compressed rows (CSR).
//
// Storage: every column owns a segment [start, start + cap) of one pool of (row, value) pairs,
// of which the first len slots are used. A column that outgrows its segment moves to the end
// of the pool with twice the room, so appending one element is amortised O(1); the space left
// behind is garbage that compact() reclaims once it exceeds half the pool (keeping every
// column's room, so a compaction does not force the next appends to move again).
//
// Lazy normal form: a column is "clean" when its rows are strictly increasing and every value
// is stored (nonzero, not below the truncation tolerance). put() on a clean column with a row
// beyond its last one keeps it clean; any other write appends and marks the column dirty.
// normalize_col() brings a dirty column to clean form: stable sort by row, the last value
// put at a row wins, values below the tolerance (and zeros) are dropped. Every read normalizes
// first, so the readers only ever see clean columns.
//
// csc() compacts the pool into plain CSC (columns in order, no gaps) and returns a view on it;
// csr() builds and caches the transpose. Both views stay valid until the next write. Memory:
// the pool holds 12 bytes per stored entry plus the growth slack (none when filled by whole
// columns with a reservation); the CSR cache, when asked for, the same again.
//
// Every write is all-or-nothing: the only failure is std::bad_alloc, thrown before the
// column being written changes.
#pragma once

#include <cstdint>
#include <memory_resource>
#include <span>
#include <vector>

namespace qubor::task {

// A read-only compressed view: entries of item k at [ptr[k], ptr[k+1]).
struct CompressedView {
  int32_t num_items = 0;  // columns for CSC, rows for CSR
  int32_t num_other = 0;  // rows for CSC, columns for CSR
  const int64_t* ptr = nullptr;
  const int32_t* idx = nullptr;
  const double* val = nullptr;
  int64_t nnz() const { return ptr ? ptr[num_items] : 0; }
};

class SparseMatrix {
 public:
  explicit SparseMatrix(std::pmr::memory_resource* mem);
  // Copies the data; the views of the copy are rebuilt on demand in its own storage.
  SparseMatrix& operator=(const SparseMatrix& other);

  int32_t num_rows() const { return num_rows_; }
  int32_t num_cols() const { return static_cast<int32_t>(cols_.size()); }
  double truncate_tol() const { return tol_; }

  // ---- Shape and capacity ----
  void append_cols(int32_t n);
  void append_rows(int32_t n);
  void reserve_cols(int32_t n);
  void reserve_nnz(int64_t n);
  // Room for `extra` more entries at the end of the pool.
  void reserve_extra(int64_t extra) { reserve_nnz(used_ + extra); }
  int64_t nnz_capacity() const { return static_cast<int64_t>(rows_.capacity()); }
  // new_index[k] is the new position of item k, or -1 when it goes; new_count items remain.
  void remove_rows(std::span<const int32_t> new_index, int32_t new_count);
  void remove_cols(std::span<const int32_t> new_index, int32_t new_count);

  // ---- Writes (values are assumed checked by the caller) ----
  void put(int32_t i, int32_t j, double v);
  // Replaces column j by the given entries (duplicates: the last wins).
  void put_col(int32_t j, std::span<const int32_t> rows, std::span<const double> vals);
  // Replaces the rows listed in `rows` (each row once): erases their entries, then stores the
  // entries (rows[k], cols[e], vals[e]) for e in [ptrb[k], ptre[k]).
  void put_rows(std::span<const int32_t> rows, const int64_t* ptrb, const int64_t* ptre,
                const int32_t* cols, const double* vals);
  // Puts num elements (rows[k], cols[k], vals[k]) in order (the last one at a position wins),
  // in one pass: every column grows once, to its exact new size.
  void put_triplets(int64_t num, const int32_t* rows, const int32_t* cols, const double* vals);
  // Stores the new tolerance and drops every entry below it.
  void set_truncate_tol(double tol);

  // ---- Reads ----
  double get(int32_t i, int32_t j) const;
  int32_t col_nnz(int32_t j) const;
  // The clean entries of column j.
  std::span<const int32_t> col_rows(int32_t j) const;
  std::span<const double> col_vals(int32_t j) const;
  int32_t row_nnz(int32_t i) const;
  int64_t nnz() const;
  const CompressedView& csc() const;
  const CompressedView& csr() const;

 private:
  struct Col {
    int64_t start = 0;
    int32_t len = 0;
    int32_t cap = 0;
  };

  void touch();  // a write: views are stale
  void normalize_col(int32_t j) const;
  void normalize_all() const;
  // Room for `extra` more slots at the end of column j (which may move).
  void grow_col(int32_t j, int64_t extra, bool exact = false);
  void ensure_pool(int64_t extra);
  // Exact room for the entries that count_entries(count) counts per column; returns each
  // column's first free position and leaves the new lengths set.
  template <class CountFn>
  std::pmr::vector<int64_t> make_room(CountFn count_entries);
  // Removes the garbage; tight also drops every column's spare room (the CSC form).
  void compact(bool tight) const;
  // Too few elements for a pass over all columns to pay off: they are put one by one.
  bool few(int64_t num) const { return num < 64 || 4 * num < static_cast<int64_t>(cols_.size()); }
  bool keep(double v) const { return v != 0.0 && (v >= tol_ || v <= -tol_); }
  void erase_rows(std::span<const uint8_t> mark);

  std::pmr::memory_resource* mem_;
  int32_t num_rows_ = 0;
  double tol_ = 1.0e-14;
  // The pool and the column table; mutable because reads bring columns to normal form.
  mutable std::pmr::vector<Col> cols_;
  mutable std::pmr::vector<uint8_t> dirty_;
  mutable std::pmr::vector<int32_t> dirty_list_;
  mutable std::pmr::vector<int32_t> rows_;
  mutable std::pmr::vector<double> vals_;
  mutable int64_t used_ = 0;     // end of the used part of the pool
  mutable int64_t garbage_ = 0;  // slots owned by no column
  // Scratch of normalize_col for long columns.
  mutable std::pmr::vector<int64_t> perm_;
  mutable std::pmr::vector<int32_t> scratch_rows_;
  mutable std::pmr::vector<double> scratch_vals_;
  // Rows that may hold entries; a row never written needs no erasing before put_rows.
  std::pmr::vector<uint8_t> row_touched_;
  // Views.
  mutable bool csc_valid_ = false;
  mutable std::pmr::vector<int64_t> colptr_;
  mutable CompressedView csc_view_;
  mutable bool csr_valid_ = false;
  mutable std::pmr::vector<int64_t> rowptr_;
  mutable std::pmr::vector<int32_t> csr_idx_;
  mutable std::pmr::vector<double> csr_val_;
  mutable CompressedView csr_view_;
};

}  // namespace qubor::task
