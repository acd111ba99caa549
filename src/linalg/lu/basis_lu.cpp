// Sparse basis LU with Forrest-Tomlin updates; see basis_lu.h.
#include "linalg/lu/basis_lu.h"

#include "linalg/ordering/graph.h"
#include "linalg/ordering/local_order.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace qubor::linalg {

// Orders the bump's columns by a minimum local fill ordering of the pattern of B_b' B_b
// (B_b: the bump's columns on the rows still active; dense rows left out), which bounds the
// fill of the left-looking factorization with partial pivoting. Small bumps keep their
// order by count.
void BasisLu::order_bump(size_t bump_begin, const std::vector<int32_t>& row_on) {
  const int32_t nb = static_cast<int32_t>(order_.size() - bump_begin);
  if (nb < opt_.order_min_bump) return;
  const size_t ms = static_cast<size_t>(m_);
  // Bump columns numbered 0..nb-1; active rows with their bump columns.
  std::vector<int32_t>& local = bump_local_;
  local.assign(ms, -1);
  for (int32_t k = 0; k < nb; ++k) local[static_cast<size_t>(order_[bump_begin + static_cast<size_t>(k)])] = k;
  std::vector<int32_t>& rcnt = bump_rcnt_;
  rcnt.assign(ms, 0);
  for (int32_t k = 0; k < nb; ++k) {
    const int32_t pos = order_[bump_begin + static_cast<size_t>(k)];
    for (int64_t e = bptr_[static_cast<size_t>(pos)]; e < bptr_[static_cast<size_t>(pos) + 1]; ++e) {
      const int32_t i = bidx_[static_cast<size_t>(e)];
      if (row_on[static_cast<size_t>(i)]) ++rcnt[static_cast<size_t>(i)];
    }
  }
  const int32_t dense_row = std::max<int32_t>(16, static_cast<int32_t>(10.0 * std::sqrt(static_cast<double>(nb))));
  std::vector<int64_t>& gptr = bump_gptr_;
  std::vector<int32_t>& gidx = bump_gidx_;
  std::vector<int32_t>& seen = bump_seen_;
  gptr.assign(static_cast<size_t>(nb) + 1, 0);
  gidx.clear();
  seen.assign(static_cast<size_t>(nb), -1);
  for (int32_t k = 0; k < nb; ++k) {
    const int32_t pos = order_[bump_begin + static_cast<size_t>(k)];
    seen[static_cast<size_t>(k)] = k;
    for (int64_t e = bptr_[static_cast<size_t>(pos)]; e < bptr_[static_cast<size_t>(pos) + 1]; ++e) {
      const int32_t i = bidx_[static_cast<size_t>(e)];
      if (!row_on[static_cast<size_t>(i)] || rcnt[static_cast<size_t>(i)] > dense_row) continue;
      for (int64_t f = rptr_[static_cast<size_t>(i)]; f < rptr_[static_cast<size_t>(i) + 1]; ++f) {
        const int32_t c = local[static_cast<size_t>(rpos_[static_cast<size_t>(f)])];
        if (c < 0 || seen[static_cast<size_t>(c)] == k) continue;
        seen[static_cast<size_t>(c)] = k;
        gidx.push_back(c);
      }
    }
    gptr[static_cast<size_t>(k) + 1] = static_cast<int64_t>(gidx.size());
  }
  Graph g;
  if (build_graph(nb, gptr.data(), gidx.data(), g) != Status::kOk) return;
  LocalOrderOptions lo;
  lo.type = LocalOrderType::kApproxMinLocalFill;
  OrderResult res;
  if (local_order(g, lo, nullptr, res) != Status::kOk || static_cast<int32_t>(res.perm.size()) != nb) return;
  std::vector<int32_t>& old = bump_seen_;
  old.assign(order_.begin() + static_cast<std::ptrdiff_t>(bump_begin), order_.end());
  for (int32_t k = 0; k < nb; ++k)
    order_[bump_begin + static_cast<size_t>(k)] = old[static_cast<size_t>(res.perm[static_cast<size_t>(k)])];
}

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
  order_bump(bump_begin, row_on);
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
  // Slots: the factorization's steps, room for the updates.
  const size_t cap = ms + static_cast<size_t>(std::max(opt_.max_updates, 0)) + 1;
  num_slots_ = m_;
  slot_pos_.reserve(cap);
  slot_pos_.assign(q_.begin(), q_.end());
  pos_slot_.assign(ms, 0);
  for (int32_t s = 0; s < m_; ++s) pos_slot_[static_cast<size_t>(q_[static_cast<size_t>(s)])] = s;
  dead_.reserve(cap);
  dead_.assign(ms, 0);
  dead_list_.clear();
  udiag_.reserve(cap);
  ucol_ptr_.reserve(cap + 1);
  work_.assign(cap, 0.0);
  work2_.assign(cap, 0.0);
  work3_.assign(cap, 0.0);
  stack_.assign(cap, 0);
  pattern_.assign(cap, 0);
  cursor_.assign(cap, 0);
  mark_.assign(cap, 0);
  stamp_ = 0;
  list_.reserve(cap);
  list2_.reserve(cap);
  ft_from_.clear();
  ft_to_.clear();
  ft_ptr_.assign(1, 0);
  ft_idx_.clear();
  ft_val_.clear();
  base_u_entries_ = static_cast<int64_t>(uidx_.size());
  spike_valid_ = false;
}

void BasisLu::new_stamp() {
  if (stamp_ == std::numeric_limits<int32_t>::max()) {
    std::fill(mark_.begin(), mark_.end(), 0);
    stamp_ = 0;
  }
  ++stamp_;
}

int32_t BasisLu::slot_reach(const int64_t* ptr, const int32_t* idx, int32_t limit, bool skip_dead, const int32_t* start,
                            int32_t count) {
  new_stamp();
  int32_t* mark = mark_.data();
  int32_t* stack = stack_.data();
  int64_t* cursor = cursor_.data();
  const uint8_t* dead = dead_.data();
  int32_t top = static_cast<int32_t>(pattern_.size());
  for (int32_t k = 0; k < count; ++k) {
    const int32_t s0 = start[k];
    if (mark[s0] == stamp_ || (skip_dead && dead[s0])) continue;
    int32_t head = 0;
    stack[0] = s0;
    mark[s0] = stamp_;
    cursor[0] = s0 < limit ? ptr[s0] : 0;
    while (head >= 0) {
      const int32_t j = stack[head];
      const int64_t end = j < limit ? ptr[j + 1] : 0;
      int64_t p = cursor[head];
      while (p < end && (mark[idx[p]] == stamp_ || (skip_dead && dead[idx[p]]))) ++p;
      if (p < end) {
        cursor[head] = p + 1;
        const int32_t r = idx[p];
        mark[r] = stamp_;
        stack[++head] = r;
        cursor[head] = r < limit ? ptr[r] : 0;
      } else {
        --head;
        pattern_[static_cast<size_t>(--top)] = j;
      }
    }
  }
  return top;
}

bool BasisLu::use_hyper(int32_t count, double predicted) const {
  return static_cast<double>(count) < opt_.hyper_density * m_ && predicted < opt_.hyper_density;
}

void BasisLu::ftran(double* x, bool keep_spike) {
  const int32_t m = m_, ns = num_slots_;
  double* w = work_.data();
  const uint8_t* dead = dead_.data();
  const int32_t* p = p_.data();
  list_.clear();
  for (int32_t s = 0; s < m; ++s) {
    const double v = x[p[s]];
    if (v == 0.0) continue;
    w[s] = v;
    list_.push_back(s);
  }
  const int32_t count = static_cast<int32_t>(list_.size());
  const bool hyper = use_hyper(count, ftran_density_);
  // L: forward by columns.
  int32_t top = 0;
  if (hyper) {
    top = slot_reach(lcol_ptr_.data(), lidx_.data(), m, false, list_.data(), count);
    list2_.assign(pattern_.begin() + top, pattern_.end());
  }
  auto l_column = [&](int32_t t) {
    const double v = w[t];
    if (v == 0.0) return;
    for (int64_t q = lcol_ptr_[static_cast<size_t>(t)]; q < lcol_ptr_[static_cast<size_t>(t) + 1]; ++q)
      w[lidx_[static_cast<size_t>(q)]] -= lval_[static_cast<size_t>(q)] * v;
  };
  if (hyper)
    for (int32_t t : list2_) l_column(t);
  else
    for (int32_t t = 0; t < m; ++t) l_column(t);
  // Row etas in the order of the updates.
  const size_t num_eta = ft_from_.size();
  for (size_t e = 0; e < num_eta; ++e) {
    const int32_t k = ft_from_[e], t = ft_to_[e];
    double v = w[k];
    for (int64_t q = ft_ptr_[e]; q < ft_ptr_[e + 1]; ++q) v -= ft_val_[static_cast<size_t>(q)] * w[ft_idx_[static_cast<size_t>(q)]];
    w[k] = 0.0;
    w[t] = v;
    if (hyper) list2_.push_back(t);
  }
  if (keep_spike) {
    spike_idx_.clear();
    spike_val_.clear();
    auto keep = [&](int32_t s) {
      if (!dead[s] && w[s] != 0.0) {
        spike_idx_.push_back(s);
        spike_val_.push_back(w[s]);
      }
    };
    if (hyper)
      for (int32_t s : list2_) keep(s);
    else
      for (int32_t s = 0; s < ns; ++s) keep(s);
    spike_valid_ = true;
  }
  // U: backward by columns over the live slots.
  auto u_column = [&](int32_t t) {
    double v = w[t];
    if (v == 0.0) return;
    v /= udiag_[static_cast<size_t>(t)];
    w[t] = v;
    for (int64_t q = ucol_ptr_[static_cast<size_t>(t)]; q < ucol_ptr_[static_cast<size_t>(t) + 1]; ++q)
      w[uidx_[static_cast<size_t>(q)]] -= uval_[static_cast<size_t>(q)] * v;
  };
  int32_t nnz = 0;
  if (hyper) {
    top = slot_reach(ucol_ptr_.data(), uidx_.data(), ns, true, list2_.data(), static_cast<int32_t>(list2_.size()));
    for (int32_t k = top; k < static_cast<int32_t>(pattern_.size()); ++k) u_column(pattern_[static_cast<size_t>(k)]);
    for (int32_t s : list_) x[p[s]] = 0.0;
    for (int32_t k = top; k < static_cast<int32_t>(pattern_.size()); ++k) {
      const int32_t t = pattern_[static_cast<size_t>(k)];
      x[slot_pos_[static_cast<size_t>(t)]] = w[t];
      nnz += w[t] != 0.0;
      w[t] = 0.0;
    }
    for (int32_t s : list2_) w[s] = 0.0;
  } else {
    for (int32_t t = ns - 1; t >= 0; --t)
      if (!dead[t]) u_column(t);
    for (int32_t s = 0; s < ns; ++s) {
      if (!dead[s]) {
        x[slot_pos_[static_cast<size_t>(s)]] = w[s];
        nnz += w[s] != 0.0;
      }
      w[s] = 0.0;
    }
  }
  for (int32_t s : dead_list_) w[s] = 0.0;
  if (count < opt_.hyper_density * m) ftran_density_ = 0.8 * ftran_density_ + 0.2 * nnz / std::max(m, 1);
}

void BasisLu::btran(double* x) {
  const int32_t m = m_, ns = num_slots_;
  double* w = work_.data();
  const uint8_t* dead = dead_.data();
  list_.clear();
  for (int32_t pos = 0; pos < m; ++pos) {
    const double v = x[pos];
    if (v == 0.0) continue;
    const int32_t s = pos_slot_[static_cast<size_t>(pos)];
    w[s] = v;
    x[pos] = 0.0;
    list_.push_back(s);
  }
  const int32_t count = static_cast<int32_t>(list_.size());
  const bool hyper = use_hyper(count, btran_density_);
  // U': forward by rows over the live slots of the factorization.
  auto u_row = [&](int32_t t) {
    double v = w[t];
    if (v == 0.0) return;
    v /= udiag_[static_cast<size_t>(t)];
    w[t] = v;
    for (int64_t q = urow_ptr_[static_cast<size_t>(t)]; q < urow_ptr_[static_cast<size_t>(t) + 1]; ++q)
      w[urow_idx_[static_cast<size_t>(q)]] -= urow_val_[static_cast<size_t>(q)] * v;
  };
  if (hyper) {
    const int32_t top = slot_reach(urow_ptr_.data(), urow_idx_.data(), m, true, list_.data(), count);
    list2_.clear();
    for (int32_t k = top; k < static_cast<int32_t>(pattern_.size()); ++k) {
      const int32_t t = pattern_[static_cast<size_t>(k)];
      if (t >= m) continue;
      u_row(t);
      list2_.push_back(t);
    }
  } else {
    for (int32_t t = 0; t < m; ++t)
      if (!dead[t]) u_row(t);
  }
  for (int32_t s : dead_list_) w[s] = 0.0;
  // The update columns by inner products, in slot order.
  for (int32_t t = m; t < ns; ++t) {
    if (dead[t]) continue;
    double v = w[t];
    for (int64_t q = ucol_ptr_[static_cast<size_t>(t)]; q < ucol_ptr_[static_cast<size_t>(t) + 1]; ++q)
      v -= uval_[static_cast<size_t>(q)] * w[uidx_[static_cast<size_t>(q)]];
    w[t] = v / udiag_[static_cast<size_t>(t)];
  }
  // Row etas, transposed, last first.
  for (size_t e = ft_from_.size(); e-- > 0;) {
    const int32_t k = ft_from_[e], t = ft_to_[e];
    const double v = w[t];
    w[t] = 0.0;
    if (v == 0.0) continue;
    w[k] = v;
    if (hyper) list2_.push_back(k);
    for (int64_t q = ft_ptr_[e]; q < ft_ptr_[e + 1]; ++q) {
      const int32_t j = ft_idx_[static_cast<size_t>(q)];
      w[j] -= ft_val_[static_cast<size_t>(q)] * v;
      if (hyper) list2_.push_back(j);
    }
  }
  // L': backward by rows.
  auto l_row = [&](int32_t s) {
    const double v = w[s];
    if (v == 0.0) return;
    for (int64_t q = lrow_ptr_[static_cast<size_t>(s)]; q < lrow_ptr_[static_cast<size_t>(s) + 1]; ++q)
      w[lrow_idx_[static_cast<size_t>(q)]] -= lrow_val_[static_cast<size_t>(q)] * v;
  };
  int32_t nnz = 0;
  if (hyper) {
    // Slots of the update columns were moved down by the etas; only slots < m remain.
    size_t keep = 0;
    for (int32_t s : list2_)
      if (s < m) list2_[keep++] = s;
    list2_.resize(keep);
    const int32_t top = slot_reach(lrow_ptr_.data(), lrow_idx_.data(), m, false, list2_.data(), static_cast<int32_t>(keep));
    for (int32_t k = top; k < static_cast<int32_t>(pattern_.size()); ++k) l_row(pattern_[static_cast<size_t>(k)]);
    for (int32_t k = top; k < static_cast<int32_t>(pattern_.size()); ++k) {
      const int32_t s = pattern_[static_cast<size_t>(k)];
      x[p_[static_cast<size_t>(s)]] = w[s];
      nnz += w[s] != 0.0;
      w[s] = 0.0;
    }
  } else {
    for (int32_t s = m - 1; s >= 0; --s) l_row(s);
    for (int32_t s = 0; s < m; ++s) {
      x[p_[static_cast<size_t>(s)]] = w[s];
      nnz += w[s] != 0.0;
      w[s] = 0.0;
    }
  }
  if (count < opt_.hyper_density * m) btran_density_ = 0.8 * btran_density_ + 0.2 * nnz / std::max(m, 1);
}

// The spike from alpha: U alpha in slot coordinates.
void BasisLu::spike_from_alpha(const double* alpha) {
  const int32_t ns = num_slots_;
  double* v = work2_.data();
  for (int32_t t = 0; t < ns; ++t) {
    if (dead_[static_cast<size_t>(t)]) continue;
    const double a = alpha[slot_pos_[static_cast<size_t>(t)]];
    if (a == 0.0) continue;
    v[t] += udiag_[static_cast<size_t>(t)] * a;
    for (int64_t q = ucol_ptr_[static_cast<size_t>(t)]; q < ucol_ptr_[static_cast<size_t>(t) + 1]; ++q)
      v[uidx_[static_cast<size_t>(q)]] += uval_[static_cast<size_t>(q)] * a;
  }
  spike_idx_.clear();
  spike_val_.clear();
  for (int32_t s = 0; s < ns; ++s) {
    if (v[s] != 0.0 && !dead_[static_cast<size_t>(s)]) {
      spike_idx_.push_back(s);
      spike_val_.push_back(v[s]);
    }
    v[s] = 0.0;
  }
}

bool BasisLu::update(int32_t position, const double* alpha) {
  const double piv = alpha[position];
  if (!(std::fabs(piv) > opt_.abs_pivot_tol)) {
    spike_valid_ = false;
    return false;
  }
  if (!spike_valid_) spike_from_alpha(alpha);
  spike_valid_ = false;
  const int32_t m = m_, ns = num_slots_;
  const size_t need = static_cast<size_t>(ns) + 1;
  if (work_.size() < need) {
    for (std::vector<double>* v : {&work_, &work2_, &work3_}) v->resize(need, 0.0);
    stack_.resize(need, 0);
    pattern_.resize(need, 0);
    cursor_.resize(need, 0);
    mark_.resize(need, 0);
  }
  const int32_t k = pos_slot_[static_cast<size_t>(position)];
  const uint8_t* dead = dead_.data();
  double* z = work_.data();     // row k, being eliminated
  double* sp = work2_.data();   // the spike
  double* mu = work3_.data();   // the eta's multipliers
  for (size_t e = 0; e < spike_idx_.size(); ++e) sp[spike_idx_[e]] = spike_val_[e];
  // Row k: its entries in the factorization's columns and in the update columns.
  if (k < m)
    for (int64_t q = urow_ptr_[static_cast<size_t>(k)]; q < urow_ptr_[static_cast<size_t>(k) + 1]; ++q) {
      const int32_t l = urow_idx_[static_cast<size_t>(q)];
      if (!dead[l]) z[l] = urow_val_[static_cast<size_t>(q)];
    }
  for (int32_t t = std::max(m, k + 1); t < ns; ++t) {
    if (dead[t]) continue;
    for (int64_t q = ucol_ptr_[static_cast<size_t>(t)]; q < ucol_ptr_[static_cast<size_t>(t) + 1]; ++q)
      if (uidx_[static_cast<size_t>(q)] == k) z[t] = uval_[static_cast<size_t>(q)];
  }
  // Eliminate it by the rows after k: mu' U_sub = row k.
  list2_.clear();
  if (k < m)
    for (int32_t j = k + 1; j < m; ++j) {
      if (dead[j] || z[j] == 0.0) continue;
      const double f = z[j] / udiag_[static_cast<size_t>(j)];
      z[j] = 0.0;
      mu[j] = f;
      list2_.push_back(j);
      for (int64_t q = urow_ptr_[static_cast<size_t>(j)]; q < urow_ptr_[static_cast<size_t>(j) + 1]; ++q)
        z[urow_idx_[static_cast<size_t>(q)]] -= urow_val_[static_cast<size_t>(q)] * f;
    }
  for (int32_t s : dead_list_) z[s] = 0.0;
  for (int32_t t = std::max(m, k + 1); t < ns; ++t) {
    if (dead[t]) continue;
    double v = z[t];
    z[t] = 0.0;
    for (int64_t q = ucol_ptr_[static_cast<size_t>(t)]; q < ucol_ptr_[static_cast<size_t>(t) + 1]; ++q)
      v -= mu[uidx_[static_cast<size_t>(q)]] * uval_[static_cast<size_t>(q)];
    if (v == 0.0) continue;
    mu[t] = v / udiag_[static_cast<size_t>(t)];
    list2_.push_back(t);
  }
  double diag = sp[k];
  for (int32_t j : list2_) diag -= mu[j] * sp[j];
  // The new diagonal is alpha_r times the old one; a mismatch means a failing factor.
  const double ref = piv * udiag_[static_cast<size_t>(k)];
  const bool stable = std::fabs(diag) > opt_.abs_pivot_tol &&
                      std::fabs(diag - ref) <= opt_.update_tol * std::max(std::fabs(diag), std::fabs(ref));
  if (stable) {
    const int32_t t = ns;
    ft_from_.push_back(k);
    ft_to_.push_back(t);
    for (int32_t j : list2_)
      if (std::fabs(mu[j]) > opt_.drop_tol) {
        ft_idx_.push_back(j);
        ft_val_.push_back(mu[j]);
      }
    ft_ptr_.push_back(static_cast<int64_t>(ft_idx_.size()));
    for (size_t e = 0; e < spike_idx_.size(); ++e) {
      const int32_t s = spike_idx_[e];
      if (s == k || dead[s] || std::fabs(spike_val_[e]) <= opt_.drop_tol) continue;
      uidx_.push_back(s);
      uval_.push_back(spike_val_[e]);
    }
    ucol_ptr_.push_back(static_cast<int64_t>(uidx_.size()));
    udiag_.push_back(diag);
    dead_[static_cast<size_t>(k)] = 1;
    dead_.push_back(0);
    dead_list_.push_back(k);
    slot_pos_.push_back(position);
    pos_slot_[static_cast<size_t>(position)] = t;
    num_slots_ = ns + 1;
  }
  for (int32_t s : spike_idx_) sp[s] = 0.0;
  for (int32_t j : list2_) mu[j] = 0.0;
  return stable;
}

bool BasisLu::wants_refactor() const {
  const int64_t fill = static_cast<int64_t>(uidx_.size()) - base_u_entries_ + static_cast<int64_t>(ft_idx_.size());
  return num_updates() >= opt_.max_updates || fill > factor_entries_ + 4 * static_cast<int64_t>(m_);
}

}  // namespace qubor::linalg
