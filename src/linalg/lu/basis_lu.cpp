// Sparse basis LU with product-form updates; see basis_lu.h.
#include "linalg/lu/basis_lu.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace qubor::linalg {

// Copies B by columns, builds its row pattern and orders the columns: column singletons
// (in the order found), the bump by ascending active count, row singletons (reversed).
void BasisLu::order_columns(const int32_t* basis) {
  const int32_t m = m_;
  const size_t ms = static_cast<size_t>(m);
  row_count_.assign(ms, 0);
  for (int64_t e = 0; e < bptr_[ms]; ++e) ++row_count_[static_cast<size_t>(bidx_[static_cast<size_t>(e)])];
  rptr_.assign(ms + 1, 0);
  for (int32_t i = 0; i < m; ++i) rptr_[static_cast<size_t>(i) + 1] = rptr_[static_cast<size_t>(i)] + row_count_[static_cast<size_t>(i)];
  rpos_.resize(static_cast<size_t>(bptr_[ms]));
  {
    std::vector<int64_t>& fill = lrow_ptr_;  // reused as a cursor array
    fill.assign(rptr_.begin(), rptr_.end() - 1);
    for (int32_t pos = 0; pos < m; ++pos)
      for (int64_t e = bptr_[static_cast<size_t>(pos)]; e < bptr_[static_cast<size_t>(pos) + 1]; ++e)
        rpos_[static_cast<size_t>(fill[static_cast<size_t>(bidx_[static_cast<size_t>(e)])]++)] = pos;
  }
  (void)basis;
  // Active counts; the flags live in pinv_ (rows) and q_ (columns) until elimination.
  std::vector<int32_t>& ccount = stack_;
  std::vector<int32_t>& rcount = pattern_;
  ccount.assign(ms, 0);
  rcount.assign(row_count_.begin(), row_count_.end());
  std::vector<int32_t>& row_on = pinv_;
  std::vector<int32_t>& col_on = q_;
  row_on.assign(ms, 1);
  col_on.assign(ms, 1);
  std::vector<int32_t>& queue = mark_;
  queue.clear();
  for (int32_t pos = 0; pos < m; ++pos) {
    ccount[static_cast<size_t>(pos)] = static_cast<int32_t>(bptr_[static_cast<size_t>(pos) + 1] - bptr_[static_cast<size_t>(pos)]);
    if (ccount[static_cast<size_t>(pos)] == 1) queue.push_back(pos);
  }
  order_.clear();
  std::vector<int32_t> back;
  for (size_t qi = 0; qi < queue.size(); ++qi) {
    const int32_t pos = queue[qi];
    if (!col_on[static_cast<size_t>(pos)] || ccount[static_cast<size_t>(pos)] != 1) continue;
    int32_t r = -1;
    double v = 0.0;
    for (int64_t e = bptr_[static_cast<size_t>(pos)]; e < bptr_[static_cast<size_t>(pos) + 1]; ++e)
      if (row_on[static_cast<size_t>(bidx_[static_cast<size_t>(e)])]) {
        r = bidx_[static_cast<size_t>(e)];
        v = bval_[static_cast<size_t>(e)];
      }
    if (r < 0 || std::fabs(v) <= opt_.abs_pivot_tol) continue;
    order_.push_back(pos);
    col_on[static_cast<size_t>(pos)] = 0;
    row_on[static_cast<size_t>(r)] = 0;
    for (int64_t e = rptr_[static_cast<size_t>(r)]; e < rptr_[static_cast<size_t>(r) + 1]; ++e) {
      const int32_t c = rpos_[static_cast<size_t>(e)];
      if (col_on[static_cast<size_t>(c)] && --ccount[static_cast<size_t>(c)] == 1) queue.push_back(c);
    }
    for (int64_t e = bptr_[static_cast<size_t>(pos)]; e < bptr_[static_cast<size_t>(pos) + 1]; ++e)
      --rcount[static_cast<size_t>(bidx_[static_cast<size_t>(e)])];
  }
  queue.clear();
  for (int32_t i = 0; i < m; ++i)
    if (row_on[static_cast<size_t>(i)] && rcount[static_cast<size_t>(i)] == 1) queue.push_back(i);
  for (size_t qi = 0; qi < queue.size(); ++qi) {
    const int32_t r = queue[qi];
    if (!row_on[static_cast<size_t>(r)] || rcount[static_cast<size_t>(r)] != 1) continue;
    int32_t c = -1;
    for (int64_t e = rptr_[static_cast<size_t>(r)]; e < rptr_[static_cast<size_t>(r) + 1]; ++e)
      if (col_on[static_cast<size_t>(rpos_[static_cast<size_t>(e)])]) c = rpos_[static_cast<size_t>(e)];
    if (c < 0) continue;
    double v = 0.0, vmax = 0.0;
    for (int64_t e = bptr_[static_cast<size_t>(c)]; e < bptr_[static_cast<size_t>(c) + 1]; ++e) {
      const int32_t i = bidx_[static_cast<size_t>(e)];
      if (!row_on[static_cast<size_t>(i)]) continue;
      const double a = std::fabs(bval_[static_cast<size_t>(e)]);
      vmax = std::max(vmax, a);
      if (i == r) v = a;
    }
    if (v <= opt_.abs_pivot_tol || v < opt_.rel_pivot_tol * vmax) continue;
    back.push_back(c);
    col_on[static_cast<size_t>(c)] = 0;
    row_on[static_cast<size_t>(r)] = 0;
    for (int64_t e = bptr_[static_cast<size_t>(c)]; e < bptr_[static_cast<size_t>(c) + 1]; ++e) {
      const int32_t i = bidx_[static_cast<size_t>(e)];
      if (row_on[static_cast<size_t>(i)] && --rcount[static_cast<size_t>(i)] == 1) queue.push_back(i);
    }
  }
  const size_t bump_begin = order_.size();
  for (int32_t pos = 0; pos < m; ++pos)
    if (col_on[static_cast<size_t>(pos)]) order_.push_back(pos);
  std::stable_sort(order_.begin() + static_cast<std::ptrdiff_t>(bump_begin), order_.end(),
                   [&](int32_t a, int32_t b) { return ccount[static_cast<size_t>(a)] < ccount[static_cast<size_t>(b)]; });
  order_.insert(order_.end(), back.rbegin(), back.rend());
}

// Pattern of L^{-1} b for b with the given rows, in topological order, in
// pattern_[top..m); returns top.
int32_t BasisLu::reach(int32_t col_begin, int32_t col_end, const int32_t* rows) {
  if (stamp_ == std::numeric_limits<int32_t>::max()) {
    std::fill(mark_.begin(), mark_.end(), 0);
    stamp_ = 0;
  }
  ++stamp_;
  int32_t top = m_;
  std::vector<int64_t>& pos = lrow_ptr_;  // DFS cursors (the row copy of L is built later)
  for (int32_t s = col_begin; s < col_end; ++s) {
    const int32_t start = rows[s];
    if (mark_[static_cast<size_t>(start)] == stamp_) continue;
    int32_t head = 0;
    stack_[0] = start;
    while (head >= 0) {
      const int32_t j = stack_[static_cast<size_t>(head)];
      const int32_t t = pinv_[static_cast<size_t>(j)];
      if (mark_[static_cast<size_t>(j)] != stamp_) {
        mark_[static_cast<size_t>(j)] = stamp_;
        pos[static_cast<size_t>(head)] = t >= 0 ? lcol_ptr_[static_cast<size_t>(t)] : 0;
      }
      bool done = true;
      if (t >= 0) {
        const int64_t end = lcol_ptr_[static_cast<size_t>(t) + 1];
        for (int64_t p = pos[static_cast<size_t>(head)]; p < end; ++p) {
          const int32_t r = lidx_[static_cast<size_t>(p)];
          if (mark_[static_cast<size_t>(r)] == stamp_) continue;
          pos[static_cast<size_t>(head)] = p + 1;
          stack_[static_cast<size_t>(++head)] = r;
          done = false;
          break;
        }
      }
      if (done) {
        --head;
        pattern_[static_cast<size_t>(--top)] = j;
      }
    }
  }
  return top;
}

// One left-looking step: x = L^{-1} b for the column at `position`, U entries from the
// pivoted rows, pivot by threshold and row count among the others, L column from the rest.
bool BasisLu::eliminate(int32_t position, const int32_t* rows, const double* vals, int32_t count) {
  const int32_t top = reach(0, count, rows);
  for (int32_t e = 0; e < count; ++e) work_[static_cast<size_t>(rows[e])] = vals[e];
  for (int32_t k = top; k < m_; ++k) {
    const int32_t i = pattern_[static_cast<size_t>(k)];
    const int32_t t = pinv_[static_cast<size_t>(i)];
    const double xi = work_[static_cast<size_t>(i)];
    if (t < 0 || xi == 0.0) continue;
    for (int64_t p = lcol_ptr_[static_cast<size_t>(t)]; p < lcol_ptr_[static_cast<size_t>(t) + 1]; ++p)
      work_[static_cast<size_t>(lidx_[static_cast<size_t>(p)])] -= lval_[static_cast<size_t>(p)] * xi;
  }
  double vmax = 0.0;
  for (int32_t k = top; k < m_; ++k) {
    const int32_t i = pattern_[static_cast<size_t>(k)];
    if (pinv_[static_cast<size_t>(i)] < 0) vmax = std::max(vmax, std::fabs(work_[static_cast<size_t>(i)]));
  }
  auto clear = [&] {
    for (int32_t k = top; k < m_; ++k) work_[static_cast<size_t>(pattern_[static_cast<size_t>(k)])] = 0.0;
  };
  if (vmax <= opt_.abs_pivot_tol) {
    clear();
    return false;
  }
  int32_t best = -1;
  for (int32_t k = top; k < m_; ++k) {
    const int32_t i = pattern_[static_cast<size_t>(k)];
    if (pinv_[static_cast<size_t>(i)] >= 0) continue;
    const double v = std::fabs(work_[static_cast<size_t>(i)]);
    if (v < opt_.rel_pivot_tol * vmax) continue;
    if (best < 0 || row_count_[static_cast<size_t>(i)] < row_count_[static_cast<size_t>(best)] ||
        (row_count_[static_cast<size_t>(i)] == row_count_[static_cast<size_t>(best)] &&
         v > std::fabs(work_[static_cast<size_t>(best)])))
      best = i;
  }
  const int32_t step = static_cast<int32_t>(p_.size());
  const double piv = work_[static_cast<size_t>(best)];
  for (int32_t k = top; k < m_; ++k) {
    const int32_t i = pattern_[static_cast<size_t>(k)];
    const double v = work_[static_cast<size_t>(i)];
    if (i == best || std::fabs(v) <= opt_.drop_tol) continue;
    if (pinv_[static_cast<size_t>(i)] >= 0) {
      uidx_.push_back(pinv_[static_cast<size_t>(i)]);
      uval_.push_back(v);
    } else {
      lidx_.push_back(i);
      lval_.push_back(v / piv);
    }
  }
  ucol_ptr_.push_back(static_cast<int64_t>(uidx_.size()));
  lcol_ptr_.push_back(static_cast<int64_t>(lidx_.size()));
  udiag_.push_back(piv);
  pinv_[static_cast<size_t>(best)] = step;
  p_.push_back(best);
  q_.push_back(position);
  clear();
  return true;
}

void transpose_sparse(int32_t num_cols, int32_t num_rows, const std::vector<int64_t>& cptr,
                      const std::vector<int32_t>& cidx, const std::vector<double>& cval, std::vector<int64_t>& rptr,
                      std::vector<int32_t>& ridx, std::vector<double>& rval) {
  const size_t ms = static_cast<size_t>(num_rows);
  rptr.assign(ms + 1, 0);
  for (int32_t s : cidx) ++rptr[static_cast<size_t>(s) + 1];
  for (size_t i = 0; i < ms; ++i) rptr[i + 1] += rptr[i];
  ridx.resize(cidx.size());
  rval.resize(cidx.size());
  std::vector<int64_t> next(rptr.begin(), rptr.end() - 1);
  for (int32_t t = 0; t < num_cols; ++t)
    for (int64_t p = cptr[static_cast<size_t>(t)]; p < cptr[static_cast<size_t>(t) + 1]; ++p) {
      const int64_t dst = next[static_cast<size_t>(cidx[static_cast<size_t>(p)])]++;
      ridx[static_cast<size_t>(dst)] = t;
      rval[static_cast<size_t>(dst)] = cval[static_cast<size_t>(p)];
    }
}

void BasisLu::finish() {
  for (int32_t& r : lidx_) r = pinv_[static_cast<size_t>(r)];
  transpose_sparse(m_, m_, lcol_ptr_, lidx_, lval_, lrow_ptr_, lrow_idx_, lrow_val_);
  transpose_sparse(m_, m_, ucol_ptr_, uidx_, uval_, urow_ptr_, urow_idx_, urow_val_);
  factor_entries_ = static_cast<int64_t>(lidx_.size() + uidx_.size()) + m_;
}

void BasisLu::factorize(const ColumnSource& a, int32_t* basis) {
  m_ = a.num_row;
  const size_t ms = static_cast<size_t>(m_);
  bptr_.assign(ms + 1, 0);
  bidx_.clear();
  bval_.clear();
  for (int32_t pos = 0; pos < m_; ++pos) {
    const int32_t j = basis[pos];
    if (j < a.num_col) {
      for (int64_t e = a.ptr[j]; e < a.ptr[j + 1]; ++e) {
        if (a.val[e] == 0.0) continue;
        bidx_.push_back(a.idx[e]);
        bval_.push_back(a.val[e]);
      }
    } else {
      bidx_.push_back(j - a.num_col);
      bval_.push_back(1.0);
    }
    bptr_[static_cast<size_t>(pos) + 1] = static_cast<int64_t>(bidx_.size());
  }
  stack_.resize(ms + 1);
  pattern_.resize(ms + 1);
  lrow_ptr_.resize(ms + 1);
  order_columns(basis);
  // Fresh factor storage.
  pinv_.assign(ms, -1);
  p_.clear();
  q_.clear();
  lcol_ptr_.assign(1, 0);
  ucol_ptr_.assign(1, 0);
  lidx_.clear();
  lval_.clear();
  uidx_.clear();
  uval_.clear();
  udiag_.clear();
  replaced_.clear();
  work_.assign(ms, 0.0);
  stack_.assign(ms + 1, 0);
  pattern_.assign(ms + 1, 0);
  lrow_ptr_.assign(ms + 1, 0);
  mark_.assign(ms, 0);
  stamp_ = 0;
  std::vector<int32_t> singular;
  for (int32_t pos : order_) {
    const int64_t b = bptr_[static_cast<size_t>(pos)], e = bptr_[static_cast<size_t>(pos) + 1];
    if (!eliminate(pos, bidx_.data() + b, bval_.data() + b, static_cast<int32_t>(e - b))) singular.push_back(pos);
  }
  if (!singular.empty()) {
    size_t k = 0;
    const double one = 1.0;
    for (int32_t i = 0; i < m_ && k < singular.size(); ++i) {
      if (pinv_[static_cast<size_t>(i)] >= 0) continue;
      const int32_t pos = singular[k++];
      replaced_.push_back({pos, basis[pos], a.num_col + i});
      basis[pos] = a.num_col + i;
      eliminate(pos, &i, &one, 1);
    }
  }
  finish();
  eta_pos_.clear();
  eta_piv_.clear();
  eta_ptr_.assign(1, 0);
  eta_idx_.clear();
  eta_val_.clear();
}

void BasisLu::ftran(double* x) {
  const int32_t m = m_;
  double* w = work_.data();
  for (int32_t s = 0; s < m; ++s) w[s] = x[p_[static_cast<size_t>(s)]];
  for (int32_t t = 0; t < m; ++t) {
    const double v = w[t];
    if (v == 0.0) continue;
    for (int64_t p = lcol_ptr_[static_cast<size_t>(t)]; p < lcol_ptr_[static_cast<size_t>(t) + 1]; ++p)
      w[lidx_[static_cast<size_t>(p)]] -= lval_[static_cast<size_t>(p)] * v;
  }
  for (int32_t k = m - 1; k >= 0; --k) {
    double v = w[k];
    if (v == 0.0) continue;
    v /= udiag_[static_cast<size_t>(k)];
    w[k] = v;
    for (int64_t p = ucol_ptr_[static_cast<size_t>(k)]; p < ucol_ptr_[static_cast<size_t>(k) + 1]; ++p)
      w[uidx_[static_cast<size_t>(p)]] -= uval_[static_cast<size_t>(p)] * v;
  }
  for (int32_t k = 0; k < m; ++k) {
    x[q_[static_cast<size_t>(k)]] = w[k];
    w[k] = 0.0;
  }
  const size_t num_eta = eta_pos_.size();
  for (size_t e = 0; e < num_eta; ++e) {
    const int32_t r = eta_pos_[e];
    const double xr = x[r] / eta_piv_[e];
    x[r] = xr;
    if (xr == 0.0) continue;
    for (int64_t p = eta_ptr_[e]; p < eta_ptr_[e + 1]; ++p) x[eta_idx_[static_cast<size_t>(p)]] -= eta_val_[static_cast<size_t>(p)] * xr;
  }
}

void BasisLu::btran(double* x) {
  const int32_t m = m_;
  for (size_t e = eta_pos_.size(); e-- > 0;) {
    double s = x[eta_pos_[e]];
    for (int64_t p = eta_ptr_[e]; p < eta_ptr_[e + 1]; ++p) s -= eta_val_[static_cast<size_t>(p)] * x[eta_idx_[static_cast<size_t>(p)]];
    x[eta_pos_[e]] = s / eta_piv_[e];
  }
  double* w = work_.data();
  for (int32_t k = 0; k < m; ++k) w[k] = x[q_[static_cast<size_t>(k)]];
  for (int32_t t = 0; t < m; ++t) {
    double v = w[t];
    if (v == 0.0) continue;
    v /= udiag_[static_cast<size_t>(t)];
    w[t] = v;
    for (int64_t p = urow_ptr_[static_cast<size_t>(t)]; p < urow_ptr_[static_cast<size_t>(t) + 1]; ++p)
      w[urow_idx_[static_cast<size_t>(p)]] -= urow_val_[static_cast<size_t>(p)] * v;
  }
  for (int32_t s = m - 1; s >= 0; --s) {
    const double v = w[s];
    if (v == 0.0) continue;
    for (int64_t p = lrow_ptr_[static_cast<size_t>(s)]; p < lrow_ptr_[static_cast<size_t>(s) + 1]; ++p)
      w[lrow_idx_[static_cast<size_t>(p)]] -= lrow_val_[static_cast<size_t>(p)] * v;
  }
  for (int32_t s = 0; s < m; ++s) {
    x[p_[static_cast<size_t>(s)]] = w[s];
    w[s] = 0.0;
  }
}

bool BasisLu::update(int32_t position, const double* alpha) {
  const double piv = alpha[position];
  if (!(std::fabs(piv) > 1e-11)) return false;
  for (int32_t i = 0; i < m_; ++i) {
    if (i == position || std::fabs(alpha[i]) <= opt_.drop_tol) continue;
    eta_idx_.push_back(i);
    eta_val_.push_back(alpha[i]);
  }
  eta_pos_.push_back(position);
  eta_piv_.push_back(piv);
  eta_ptr_.push_back(static_cast<int64_t>(eta_idx_.size()));
  return true;
}

bool BasisLu::wants_refactor() const {
  return num_updates() >= opt_.max_updates ||
         static_cast<int64_t>(eta_idx_.size()) > 2 * factor_entries_ + 10 * static_cast<int64_t>(m_);
}

}  // namespace qubor::linalg
