#include "task/sparse_matrix.h"

#include <algorithm>
#include <cstring>

namespace qubor::task {

SparseMatrix::SparseMatrix(std::pmr::memory_resource* mem)
    : mem_(mem),
      cols_(mem),
      dirty_(mem),
      dirty_list_(mem),
      rows_(mem),
      vals_(mem),
      perm_(mem),
      scratch_rows_(mem),
      scratch_vals_(mem),
      row_touched_(mem),
      colptr_(mem),
      rowptr_(mem),
      csr_idx_(mem),
      csr_val_(mem) {}

SparseMatrix& SparseMatrix::operator=(const SparseMatrix& other) {
  if (this == &other) return *this;
  touch();
  num_rows_ = other.num_rows_;
  tol_ = other.tol_;
  cols_ = other.cols_;
  dirty_ = other.dirty_;
  dirty_list_ = other.dirty_list_;
  rows_ = other.rows_;
  vals_ = other.vals_;
  used_ = other.used_;
  garbage_ = other.garbage_;
  row_touched_ = other.row_touched_;
  csc_valid_ = false;
  return *this;
}

void SparseMatrix::touch() {
  csc_valid_ = false;
  if (csr_valid_) {
    csr_valid_ = false;
    // The cache is rebuilt on demand; its memory goes back now.
    std::pmr::vector<int64_t>(mem_).swap(rowptr_);
    std::pmr::vector<int32_t>(mem_).swap(csr_idx_);
    std::pmr::vector<double>(mem_).swap(csr_val_);
  }
}

// ---- Shape and capacity ----

void SparseMatrix::append_cols(int32_t n) {
  if (n <= 0) return;
  touch();
  const size_t size = cols_.size() + static_cast<size_t>(n);
  if (size > cols_.capacity()) {
    cols_.reserve(std::max(size, 2 * cols_.capacity()));
    dirty_.reserve(cols_.capacity());
  }
  cols_.resize(size, Col{used_, 0, 0});
  dirty_.resize(size, 0);
}

void SparseMatrix::append_rows(int32_t n) {
  if (n <= 0) return;
  touch();
  num_rows_ += n;
  const size_t size = static_cast<size_t>(num_rows_);
  if (size > row_touched_.capacity()) row_touched_.reserve(std::max(size, 2 * row_touched_.capacity()));
  row_touched_.resize(size, 0);
}

void SparseMatrix::reserve_cols(int32_t n) {
  if (n > 0 && static_cast<size_t>(n) > cols_.capacity()) {
    cols_.reserve(static_cast<size_t>(n));
    dirty_.reserve(static_cast<size_t>(n));
  }
}

void SparseMatrix::reserve_nnz(int64_t n) {
  if (n > 0 && static_cast<size_t>(n) > rows_.capacity()) {
    rows_.reserve(static_cast<size_t>(n));
    vals_.reserve(static_cast<size_t>(n));
  }
}

void SparseMatrix::remove_rows(std::span<const int32_t> new_index, int32_t new_count) {
  touch();
  for (size_t j = 0; j < cols_.size(); ++j) {
    Col& c = cols_[j];
    int32_t out = 0;
    for (int32_t k = 0; k < c.len; ++k) {
      const auto p = static_cast<size_t>(c.start + k);
      const int32_t r = new_index[static_cast<size_t>(rows_[p])];
      if (r < 0) continue;
      const auto q = static_cast<size_t>(c.start + out);
      rows_[q] = r;
      vals_[q] = vals_[p];
      ++out;
    }
    garbage_ += c.len - out;
    c.len = out;
  }
  size_t out = 0;
  for (size_t i = 0; i < row_touched_.size(); ++i)
    if (new_index[i] >= 0) row_touched_[out++] = row_touched_[i];
  row_touched_.resize(out);
  num_rows_ = new_count;
}

void SparseMatrix::remove_cols(std::span<const int32_t> new_index, int32_t /*new_count*/) {
  touch();
  size_t out = 0;
  for (size_t j = 0; j < cols_.size(); ++j) {
    if (new_index[j] < 0) {
      garbage_ += cols_[j].cap;
      continue;
    }
    cols_[out] = cols_[j];
    dirty_[out] = dirty_[j];
    ++out;
  }
  cols_.resize(out);
  dirty_.resize(out);
  dirty_list_.clear();
  for (size_t j = 0; j < out; ++j)
    if (dirty_[j]) dirty_list_.push_back(static_cast<int32_t>(j));
  // Removing most columns (all of them when a task is emptied) leaves a pool of garbage that
  // every later growth would copy along.
  if (garbage_ > used_ / 2) compact(false);
}

// ---- Pool management ----

void SparseMatrix::ensure_pool(int64_t extra) {
  const auto need = static_cast<size_t>(used_ + extra);
  if (need > rows_.capacity()) {
    const size_t cap = std::max(need, rows_.capacity() + rows_.capacity() / 2);
    rows_.reserve(cap);
    vals_.reserve(cap);
  }
  if (need > rows_.size()) {
    rows_.resize(need);
    vals_.resize(need);
  }
}

void SparseMatrix::grow_col(int32_t j, int64_t extra, bool exact) {
  Col& c0 = cols_[static_cast<size_t>(j)];
  if (c0.len + extra <= c0.cap) return;
  if (garbage_ > 4096 && garbage_ > used_ / 2) compact(false);
  Col& c = cols_[static_cast<size_t>(j)];
  const int64_t need = c.len + extra;
  const int64_t cap = exact ? need : std::max<int64_t>({need, 2 * static_cast<int64_t>(c.cap), 4});
  if (c.start + c.cap == used_) {  // last in the pool: extend in place
    ensure_pool(cap - c.cap);
    used_ += cap - c.cap;
  } else {
    ensure_pool(cap);
    std::copy_n(rows_.begin() + c.start, c.len, rows_.begin() + used_);
    std::copy_n(vals_.begin() + c.start, c.len, vals_.begin() + used_);
    garbage_ += c.cap;
    c.start = used_;
    used_ += cap;
  }
  c.cap = static_cast<int32_t>(cap);
}

void SparseMatrix::compact(bool tight) const {
  if (tight) normalize_all();
  bool done = true;
  bool ordered = true;
  int64_t pos = 0;
  for (const Col& c : cols_) {
    if (c.start < pos) ordered = false;
    if (c.start != pos || (tight && c.cap != c.len)) done = false;
    pos = c.start + (tight ? c.len : c.cap);
  }
  if (done && used_ == pos) return;
  const auto room = [tight](const Col& c) -> int64_t { return tight ? c.len : c.cap; };
  if (ordered) {
    // Segments lie in column order, so sliding each one down never overwrites a later one.
    int64_t out = 0;
    for (Col& c : cols_) {
      if (c.start != out) {
        std::memmove(rows_.data() + out, rows_.data() + c.start, sizeof(int32_t) * static_cast<size_t>(c.len));
        std::memmove(vals_.data() + out, vals_.data() + c.start, sizeof(double) * static_cast<size_t>(c.len));
      }
      c.start = out;
      c.cap = static_cast<int32_t>(room(c));
      out += c.cap;
    }
    used_ = out;
    rows_.resize(static_cast<size_t>(out));
    vals_.resize(static_cast<size_t>(out));
  } else {
    int64_t total = 0;
    for (const Col& c : cols_) total += room(c);
    std::pmr::vector<int32_t> r(static_cast<size_t>(total), 0, mem_);
    std::pmr::vector<double> v(static_cast<size_t>(total), 0.0, mem_);
    int64_t out = 0;
    for (Col& c : cols_) {
      std::copy_n(rows_.begin() + c.start, c.len, r.begin() + out);
      std::copy_n(vals_.begin() + c.start, c.len, v.begin() + out);
      c.start = out;
      c.cap = static_cast<int32_t>(room(c));
      out += c.cap;
    }
    rows_.swap(r);
    vals_.swap(v);
    used_ = total;
  }
  garbage_ = 0;
}

// ---- Normal form ----

void SparseMatrix::normalize_col(int32_t j) const {
  const auto ju = static_cast<size_t>(j);
  if (!dirty_[ju]) return;
  Col& c = cols_[ju];
  int32_t* r = rows_.data() + c.start;
  double* v = vals_.data() + c.start;
  const auto len = static_cast<size_t>(c.len);
  if (len <= 32) {
    // Short columns: stable insertion sort in place.
    for (size_t k = 1; k < len; ++k) {
      const int32_t rk = r[k];
      const double vk = v[k];
      size_t q = k;
      for (; q > 0 && r[q - 1] > rk; --q) {
        r[q] = r[q - 1];
        v[q] = v[q - 1];
      }
      r[q] = rk;
      v[q] = vk;
    }
  } else {
    perm_.resize(len);
    for (size_t k = 0; k < len; ++k) perm_[k] = static_cast<int64_t>(k);
    std::stable_sort(perm_.begin(), perm_.end(), [r](int64_t a, int64_t b) { return r[a] < r[b]; });
    scratch_rows_.resize(len);
    scratch_vals_.resize(len);
    for (size_t k = 0; k < len; ++k) {
      scratch_rows_[k] = r[perm_[k]];
      scratch_vals_[k] = v[perm_[k]];
    }
    std::copy(scratch_rows_.begin(), scratch_rows_.end(), r);
    std::copy(scratch_vals_.begin(), scratch_vals_.end(), v);
  }
  size_t out = 0;
  for (size_t k = 0; k < len; ++k) {
    if (k + 1 < len && r[k + 1] == r[k]) continue;  // a later put wins
    if (!keep(v[k])) continue;
    r[out] = r[k];
    v[out] = v[k];
    ++out;
  }
  garbage_ += c.len - static_cast<int32_t>(out);
  c.len = static_cast<int32_t>(out);
  dirty_[ju] = 0;
}

void SparseMatrix::normalize_all() const {
  for (int32_t j : dirty_list_)
    if (static_cast<size_t>(j) < cols_.size()) normalize_col(j);
  dirty_list_.clear();
}

// ---- Writes ----

void SparseMatrix::put(int32_t i, int32_t j, double v) {
  touch();
  row_touched_[static_cast<size_t>(i)] = 1;
  const auto ju = static_cast<size_t>(j);
  const Col& c0 = cols_[ju];
  if (!dirty_[ju]) {
    const auto first = rows_.begin() + c0.start;
    const auto last = first + c0.len;
    if (c0.len == 0 || *(last - 1) < i) {
      if (!keep(v)) return;
      grow_col(j, 1);
      Col& c = cols_[ju];
      rows_[static_cast<size_t>(c.start + c.len)] = i;
      vals_[static_cast<size_t>(c.start + c.len)] = v;
      ++c.len;
      return;
    }
    const auto it = std::lower_bound(first, last, i);
    if (it != last && *it == i) {
      const auto p = it - rows_.begin();
      if (keep(v)) {
        vals_[static_cast<size_t>(p)] = v;
      } else {
        Col& c = cols_[ju];
        const int64_t end = c.start + c.len;
        std::copy(rows_.begin() + p + 1, rows_.begin() + end, rows_.begin() + p);
        std::copy(vals_.begin() + p + 1, vals_.begin() + end, vals_.begin() + p);
        --c.len;
        ++garbage_;
      }
      return;
    }
    if (!keep(v)) return;
  }
  // Out of order or into a dirty column: append and sort it out on the next read.
  grow_col(j, 1);
  Col& c = cols_[ju];
  rows_[static_cast<size_t>(c.start + c.len)] = i;
  vals_[static_cast<size_t>(c.start + c.len)] = v;
  ++c.len;
  if (!dirty_[ju]) {
    dirty_[ju] = 1;
    dirty_list_.push_back(j);
  }
}

void SparseMatrix::put_col(int32_t j, std::span<const int32_t> rows, std::span<const double> vals) {
  touch();
  const auto ju = static_cast<size_t>(j);
  bool sorted = true;
  int64_t kept = 0;
  for (size_t k = 0; k < rows.size(); ++k) {
    if (k > 0 && rows[k] <= rows[k - 1]) sorted = false;
    if (keep(vals[k])) ++kept;
    row_touched_[static_cast<size_t>(rows[k])] = 1;
  }
  const int64_t need = sorted ? kept : static_cast<int64_t>(rows.size());
  Col& c0 = cols_[ju];
  garbage_ += c0.len;
  c0.len = 0;
  if (need > c0.cap) {
    // Exact room: whole columns are usually written once.
    if (c0.start + c0.cap == used_) {
      ensure_pool(need - c0.cap);
      used_ += need - c0.cap;
    } else {
      ensure_pool(need);
      garbage_ += c0.cap;
      c0.start = used_;
      used_ += need;
    }
    c0.cap = static_cast<int32_t>(need);
  }
  Col& c = cols_[ju];
  auto out = static_cast<size_t>(c.start);
  for (size_t k = 0; k < rows.size(); ++k) {
    if (sorted && !keep(vals[k])) continue;
    rows_[out] = rows[k];
    vals_[out] = vals[k];
    ++out;
  }
  c.len = static_cast<int32_t>(need);
  if (sorted) {
    dirty_[ju] = 0;
  } else if (!dirty_[ju]) {
    dirty_[ju] = 1;
    dirty_list_.push_back(j);
  }
}

void SparseMatrix::erase_rows(std::span<const uint8_t> mark) {
  for (Col& c : cols_) {
    int32_t out = 0;
    for (int32_t k = 0; k < c.len; ++k) {
      const auto p = static_cast<size_t>(c.start + k);
      if (mark[static_cast<size_t>(rows_[p])]) continue;
      const auto q = static_cast<size_t>(c.start + out);
      rows_[q] = rows_[p];
      vals_[q] = vals_[p];
      ++out;
    }
    garbage_ += c.len - out;
    c.len = out;
  }
}

void SparseMatrix::put_rows(std::span<const int32_t> rows, const int64_t* ptrb, const int64_t* ptre,
                            const int32_t* cols, const double* vals) {
  touch();
  bool any_touched = false;
  for (int32_t i : rows) any_touched = any_touched || row_touched_[static_cast<size_t>(i)];
  if (any_touched) {
    // Erasing the old entries costs one sweep over A, shared by all rows of the call.
    std::pmr::vector<uint8_t> mark(static_cast<size_t>(num_rows_), 0, mem_);
    for (int32_t i : rows) mark[static_cast<size_t>(i)] = 1;
    erase_rows(mark);
  }
  int64_t total = 0;
  for (size_t k = 0; k < rows.size(); ++k) total += ptre[k] - ptrb[k];
  if (few(total)) {
    for (size_t k = 0; k < rows.size(); ++k)
      for (int64_t e = ptrb[k]; e < ptre[k]; ++e) put(rows[k], cols[e], vals[e]);
    for (int32_t i : rows) row_touched_[static_cast<size_t>(i)] = 1;
    return;
  }
  std::pmr::vector<int64_t> pos = make_room([&](std::pmr::vector<int32_t>& count) {
    for (size_t k = 0; k < rows.size(); ++k)
      for (int64_t e = ptrb[k]; e < ptre[k]; ++e) ++count[static_cast<size_t>(cols[e])];
  });
  for (size_t k = 0; k < rows.size(); ++k)
    for (int64_t e = ptrb[k]; e < ptre[k]; ++e) {
      const auto p = static_cast<size_t>(pos[static_cast<size_t>(cols[e])]++);
      rows_[p] = rows[k];
      vals_[p] = vals[e];
    }
  for (int32_t i : rows) row_touched_[static_cast<size_t>(i)] = 1;
}

template <class CountFn>
std::pmr::vector<int64_t> SparseMatrix::make_room(CountFn count_entries) {
  // Count per column, give every touched column its exact new room and return the write
  // position of each column; touched columns are sorted out at their next read.
  std::pmr::vector<int32_t> count(cols_.size(), 0, mem_);
  count_entries(count);
  int64_t extra = 0;
  for (size_t j = 0; j < cols_.size(); ++j)
    if (count[j] > 0 && cols_[j].len + count[j] > cols_[j].cap) extra += cols_[j].len + count[j];
  reserve_extra(extra);
  for (size_t j = 0; j < cols_.size(); ++j)
    if (count[j] > 0) grow_col(static_cast<int32_t>(j), count[j], true);
  std::pmr::vector<int64_t> pos(cols_.size(), 0, mem_);
  for (size_t j = 0; j < cols_.size(); ++j) {
    pos[j] = cols_[j].start + cols_[j].len;
    cols_[j].len += count[j];
    if (count[j] > 0 && !dirty_[j]) {
      dirty_[j] = 1;
      dirty_list_.push_back(static_cast<int32_t>(j));
    }
  }
  return pos;
}

void SparseMatrix::put_triplets(int64_t num, const int32_t* rows, const int32_t* cols, const double* vals) {
  if (num <= 0) return;
  if (few(num)) {
    for (int64_t k = 0; k < num; ++k) put(rows[k], cols[k], vals[k]);
    return;
  }
  touch();
  // Scattered in input order, so that within a column the last element put stays last.
  std::pmr::vector<int64_t> pos = make_room([&](std::pmr::vector<int32_t>& count) {
    for (int64_t k = 0; k < num; ++k) ++count[static_cast<size_t>(cols[k])];
  });
  for (int64_t k = 0; k < num; ++k) {
    const auto p = static_cast<size_t>(pos[static_cast<size_t>(cols[k])]++);
    rows_[p] = rows[k];
    vals_[p] = vals[k];
    row_touched_[static_cast<size_t>(rows[k])] = 1;
  }
}

void SparseMatrix::set_truncate_tol(double tol) {
  const bool raise = tol > tol_;
  tol_ = tol;
  if (!raise) return;
  touch();
  normalize_all();
  for (Col& c : cols_) {
    int32_t out = 0;
    for (int32_t k = 0; k < c.len; ++k) {
      const auto p = static_cast<size_t>(c.start + k);
      if (!keep(vals_[p])) continue;
      const auto q = static_cast<size_t>(c.start + out);
      rows_[q] = rows_[p];
      vals_[q] = vals_[p];
      ++out;
    }
    garbage_ += c.len - out;
    c.len = out;
  }
}

// ---- Reads ----

double SparseMatrix::get(int32_t i, int32_t j) const {
  const auto r = col_rows(j);
  const auto it = std::lower_bound(r.begin(), r.end(), i);
  if (it == r.end() || *it != i) return 0.0;
  return col_vals(j)[static_cast<size_t>(it - r.begin())];
}

int32_t SparseMatrix::col_nnz(int32_t j) const {
  normalize_col(j);
  return cols_[static_cast<size_t>(j)].len;
}

std::span<const int32_t> SparseMatrix::col_rows(int32_t j) const {
  normalize_col(j);
  const Col& c = cols_[static_cast<size_t>(j)];
  return {rows_.data() + c.start, static_cast<size_t>(c.len)};
}

std::span<const double> SparseMatrix::col_vals(int32_t j) const {
  normalize_col(j);
  const Col& c = cols_[static_cast<size_t>(j)];
  return {vals_.data() + c.start, static_cast<size_t>(c.len)};
}

int64_t SparseMatrix::nnz() const {
  normalize_all();
  int64_t n = 0;
  for (const Col& c : cols_) n += c.len;
  return n;
}

int32_t SparseMatrix::row_nnz(int32_t i) const {
  const CompressedView& r = csr();
  return static_cast<int32_t>(r.ptr[i + 1] - r.ptr[i]);
}

const CompressedView& SparseMatrix::csc() const {
  if (csc_valid_) return csc_view_;
  compact(true);
  colptr_.resize(cols_.size() + 1);
  colptr_[0] = 0;
  for (size_t j = 0; j < cols_.size(); ++j) colptr_[j + 1] = colptr_[j] + cols_[j].len;
  csc_view_ = CompressedView{num_cols(), num_rows_, colptr_.data(), rows_.data(), vals_.data()};
  csc_valid_ = true;
  return csc_view_;
}

const CompressedView& SparseMatrix::csr() const {
  if (csr_valid_) return csr_view_;
  const CompressedView& a = csc();
  const auto m = static_cast<size_t>(num_rows_);
  rowptr_.assign(m + 1, 0);
  for (int64_t p = 0; p < a.nnz(); ++p) ++rowptr_[static_cast<size_t>(a.idx[p]) + 1];
  for (size_t i = 0; i < m; ++i) rowptr_[i + 1] += rowptr_[i];
  csr_idx_.resize(static_cast<size_t>(a.nnz()));
  csr_val_.resize(static_cast<size_t>(a.nnz()));
  std::pmr::vector<int64_t> next(rowptr_.begin(), rowptr_.end() - 1, mem_);
  for (int32_t j = 0; j < a.num_items; ++j)
    for (int64_t p = a.ptr[j]; p < a.ptr[j + 1]; ++p) {
      const auto q = static_cast<size_t>(next[static_cast<size_t>(a.idx[p])]++);
      csr_idx_[q] = j;
      csr_val_[q] = a.val[p];
    }
  csr_view_ = CompressedView{num_rows_, num_cols(), rowptr_.data(), csr_idx_.data(), csr_val_.data()};
  csr_valid_ = true;
  return csr_view_;
}

}  // namespace qubor::task
