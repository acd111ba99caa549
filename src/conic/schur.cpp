// The reduced system of the conic interior point; see schur.h.
#include "conic/schur.h"

#include <lapacke.h>
#include <omp.h>

#include <algorithm>
#include <cmath>

#include "linalg/common/status.h"

namespace qubor::conic {
namespace {

// Start of column i in a packed lower triangle of order n.
int64_t packed_col(int64_t i, int64_t n) { return i * n - i * (i - 1) / 2; }

}  // namespace

using linalg::Status;

Status SchurSystem::setup(const ConicForm& f, const Setup& opt) {
  const double t0 = linalg::wall_seconds();
  f_ = &f;
  opt_ = opt;
  m_ = f.m;
  const size_t m = static_cast<size_t>(m_);
  const int64_t nw = f.layout.psd_begin();  // weighted columns [0, nw)
  // CSR of the weighted columns.
  rptr_.assign(m + 1, 0);
  for (int64_t q = 0; q < f.col_ptr[static_cast<size_t>(nw)]; ++q) ++rptr_[static_cast<size_t>(f.row_idx[static_cast<size_t>(q)]) + 1];
  for (size_t i = 0; i < m; ++i) rptr_[i + 1] += rptr_[i];
  rcol_.resize(static_cast<size_t>(rptr_[m]));
  rval_.resize(static_cast<size_t>(rptr_[m]));
  rpos_.resize(static_cast<size_t>(rptr_[m]));
  {
    std::vector<int64_t> at(rptr_.begin(), rptr_.end() - 1);
    for (int64_t j = 0; j < nw; ++j)
      for (int64_t q = f.col_ptr[static_cast<size_t>(j)]; q < f.col_ptr[static_cast<size_t>(j) + 1]; ++q) {
        const int64_t p = at[static_cast<size_t>(f.row_idx[static_cast<size_t>(q)])]++;
        rcol_[static_cast<size_t>(p)] = static_cast<int32_t>(j);
        rval_[static_cast<size_t>(p)] = f.values[static_cast<size_t>(q)];
        rpos_[static_cast<size_t>(p)] = q;
      }
  }
  weight_.assign(static_cast<size_t>(nw), 0.0);
  // Small cones and their cliques: the quadratic cones (one outer term each) and the
  // nonsymmetric cones (one per member).
  const size_t nsoc = f.layout.soc_dim.size();
  const size_t nc = nsoc + f.layout.nonsym.size();
  cone_col_.assign(nc, 0);
  cone_len_.assign(nc, 0);
  cone_long_.assign(nc, 0);
  long_slot_.assign(nc, -1);
  out_ptr_.assign(1, 0);
  col_cone_.assign(static_cast<size_t>(nw), -1);
  clq_ptr_.assign(1, 0);
  clq_rows_.clear();
  std::vector<int32_t> mark(m, -1);
  int64_t at = f.layout.soc_begin();
  num_long_ = 0;
  for (size_t k = 0; k < nc; ++k) {
    const bool soc = k < nsoc;
    cone_col_[k] = at;
    cone_len_[k] = soc ? f.layout.soc_dim[k] : f.layout.nonsym[k - nsoc].dim;
    out_ptr_.push_back(out_ptr_.back() + (soc ? 1 : cone_len_[k]));
    const size_t first = clq_rows_.size();
    for (int64_t j = at; j < at + cone_len_[k]; ++j) {
      col_cone_[static_cast<size_t>(j)] = static_cast<int32_t>(k);
      for (int64_t q = f.col_ptr[static_cast<size_t>(j)]; q < f.col_ptr[static_cast<size_t>(j) + 1]; ++q) {
        const int32_t r = f.row_idx[static_cast<size_t>(q)];
        if (mark[static_cast<size_t>(r)] != static_cast<int32_t>(k)) {
          mark[static_cast<size_t>(r)] = static_cast<int32_t>(k);
          clq_rows_.push_back(r);
        }
      }
    }
    if (soc && static_cast<int64_t>(clq_rows_.size() - first) > opt.long_cone_rows) {
      cone_long_[k] = 1;
      long_slot_[k] = num_long_;
      ++num_long_;
      clq_rows_.resize(first);
    }
    std::sort(clq_rows_.begin() + static_cast<int64_t>(first), clq_rows_.end());
    clq_ptr_.push_back(static_cast<int64_t>(clq_rows_.size()));
    at += cone_len_[k];
  }
  clq_uoff_.assign(static_cast<size_t>(out_ptr_.back()), 0);
  {
    int64_t off = 0;
    for (size_t k = 0; k < nc; ++k)
      for (int32_t o = out_ptr_[k]; o < out_ptr_[k + 1]; ++o) {
        clq_uoff_[static_cast<size_t>(o)] = off;
        off += clq_ptr_[k + 1] - clq_ptr_[k];
      }
    clq_u_.assign(static_cast<size_t>(off), 0.0);
  }
  clq_sign_.assign(static_cast<size_t>(out_ptr_.back()), 1.0);
  // Low-rank columns: two per long cone.
  lr_coef_.assign(2 * static_cast<size_t>(num_long_), 0.0);
  lr_z_.assign(lr_coef_.size() * m, 0.0);
  // Rows -> cliques.
  const size_t nb = f.layout.psd_dim.size();
  row_clq_ptr_.assign(m + 1, 0);
  for (size_t k = 0; k < nc; ++k)
    for (int64_t q = clq_ptr_[k]; q < clq_ptr_[k + 1]; ++q) ++row_clq_ptr_[static_cast<size_t>(clq_rows_[static_cast<size_t>(q)]) + 1];
  for (size_t k = 0; k < nb; ++k)
    for (int64_t q = f.psd_row_ptr[k]; q < f.psd_row_ptr[k + 1]; ++q) ++row_clq_ptr_[static_cast<size_t>(f.psd_rows[static_cast<size_t>(q)]) + 1];
  for (size_t i = 0; i < m; ++i) row_clq_ptr_[i + 1] += row_clq_ptr_[i];
  row_clq_.resize(static_cast<size_t>(row_clq_ptr_[m]));
  row_clq_local_.resize(row_clq_.size());
  {
    std::vector<int64_t> pos(row_clq_ptr_.begin(), row_clq_ptr_.end() - 1);
    for (size_t k = 0; k < nc; ++k)
      for (int64_t q = clq_ptr_[k]; q < clq_ptr_[k + 1]; ++q) {
        const int64_t p = pos[static_cast<size_t>(clq_rows_[static_cast<size_t>(q)])]++;
        row_clq_[static_cast<size_t>(p)] = static_cast<int32_t>(k);
        row_clq_local_[static_cast<size_t>(p)] = static_cast<int32_t>(q - clq_ptr_[k]);
      }
    for (size_t k = 0; k < nb; ++k)
      for (int64_t q = f.psd_row_ptr[k]; q < f.psd_row_ptr[k + 1]; ++q) {
        const int64_t p = pos[static_cast<size_t>(f.psd_rows[static_cast<size_t>(q)])]++;
        row_clq_[static_cast<size_t>(p)] = -1 - static_cast<int32_t>(k);
        row_clq_local_[static_cast<size_t>(p)] = static_cast<int32_t>(q - f.psd_row_ptr[k]);
      }
  }
  // Semidefinite blocks.
  psd_w_.assign(nb, nullptr);
  psd_m_.assign(nb, std::vector<double>());
  // Per-thread workspaces of the semidefinite Schur rows, sized for the largest block.
  int32_t dmax = 0;
  for (int32_t d : f.layout.psd_dim) dmax = std::max(dmax, d);
  const size_t dd = static_cast<size_t>(dmax) * static_cast<size_t>(dmax);
  psd_work_.assign(nb > 0 ? static_cast<size_t>(std::max(1, opt.num_threads)) : 0, PsdWork());
  for (PsdWork& pw : psd_work_) {
    pw.tt.assign(dd, 0.0);
    pw.ws.assign(dd, 0.0);
    pw.g.assign(dd, 0.0);
    pw.idx.assign(static_cast<size_t>(dmax), -1);
    pw.set.reserve(static_cast<size_t>(dmax));
  }
  psd_ent_total_.assign(f.psd_rows.size() + 1, 0);
  psd_lin_.assign(f.psd_v.size(), 0);
  psd_wv_.assign(f.psd_v.size(), 0.0);
  for (size_t k = 0; k < nb; ++k) {
    const int64_t b = f.psd_row_ptr[k], e = f.psd_row_ptr[k + 1];
    const int32_t d = f.layout.psd_dim[k];
    for (int64_t q = f.psd_ent_ptr[static_cast<size_t>(b)]; q < f.psd_ent_ptr[static_cast<size_t>(e)]; ++q) {
      const int32_t r = f.psd_r[static_cast<size_t>(q)], c = f.psd_c[static_cast<size_t>(q)];
      psd_lin_[static_cast<size_t>(q)] = r + c * d;
      psd_wv_[static_cast<size_t>(q)] = (r == c ? 1.0 : 2.0) * f.psd_v[static_cast<size_t>(q)];
    }
    const size_t mb = static_cast<size_t>(e - b);
    psd_m_[k].assign(mb * (mb + 1) / 2, 0.0);  // lower triangle, packed by columns
    int64_t sum = 0;
    for (int64_t p = e - 1; p >= b; --p) {
      sum += f.psd_ent_ptr[static_cast<size_t>(p) + 1] - f.psd_ent_ptr[static_cast<size_t>(p)];
      psd_ent_total_[static_cast<size_t>(p)] = sum;
    }
  }
  // Pattern: the union of the cliques, column by column.
  colptr_.assign(1, 0);
  rowind_.clear();
  std::fill(mark.begin(), mark.end(), -1);
  std::vector<int32_t> col;
  for (int32_t c = 0; c < m_; ++c) {
    col.clear();
    col.push_back(c);
    mark[static_cast<size_t>(c)] = c;
    auto add = [&](int32_t r) {
      if (r > c && mark[static_cast<size_t>(r)] != c) {
        mark[static_cast<size_t>(r)] = c;
        col.push_back(r);
      }
    };
    for (int64_t p = rptr_[static_cast<size_t>(c)]; p < rptr_[static_cast<size_t>(c) + 1]; ++p) {
      const size_t j = static_cast<size_t>(rcol_[static_cast<size_t>(p)]);
      for (int64_t q = f.col_ptr[j]; q < f.col_ptr[j + 1]; ++q) add(f.row_idx[static_cast<size_t>(q)]);
    }
    for (int64_t p = row_clq_ptr_[static_cast<size_t>(c)]; p < row_clq_ptr_[static_cast<size_t>(c) + 1]; ++p) {
      const int32_t k = row_clq_[static_cast<size_t>(p)];
      const int32_t l = row_clq_local_[static_cast<size_t>(p)];
      if (k >= 0) {
        for (int64_t q = clq_ptr_[static_cast<size_t>(k)] + l; q < clq_ptr_[static_cast<size_t>(k) + 1]; ++q) add(clq_rows_[static_cast<size_t>(q)]);
      } else {
        const size_t kb = static_cast<size_t>(-1 - k);
        for (int64_t q = f.psd_row_ptr[kb] + l; q < f.psd_row_ptr[kb + 1]; ++q) add(f.psd_rows[static_cast<size_t>(q)]);
      }
    }
    std::sort(col.begin() + 1, col.end());
    rowind_.insert(rowind_.end(), col.begin(), col.end());
    colptr_.push_back(static_cast<int64_t>(rowind_.size()));
  }
  mval_.assign(rowind_.size(), 0.0);
  acc_.assign(m, 0.0);
  linalg::SparseCholeskyOptions co;
  co.order_method = static_cast<linalg::OrderMethod>(opt.order_method);
  co.num_threads = opt.num_threads;
  co.replacement = linalg::PivotReplacement::kHuge;
  const linalg::LowerPattern pat{m_, colptr_.data(), rowind_.data()};
  const Status st = chol_->analyse(pat, co, opt.sink);
  setup_time_ = linalg::wall_seconds() - t0;
  return st;
}

void SchurSystem::set_weight(int64_t col, double weight) {
  const int32_t k = col_cone_[static_cast<size_t>(col)];
  if (k >= 0 && cone_long_[static_cast<size_t>(k)] && weight < 0.0) {
    // |w| a a' in the sparse part and 2 w a a' as a low-rank term.
    const size_t z = static_cast<size_t>(2 * long_slot_[static_cast<size_t>(k)] + 1);
    weight_[static_cast<size_t>(col)] = -weight;
    lr_coef_[z] = 2.0 * weight;
    double* zc = lr_z_.data() + z * static_cast<size_t>(m_);
    std::fill(zc, zc + m_, 0.0);
    for (int64_t q = f_->col_ptr[static_cast<size_t>(col)]; q < f_->col_ptr[static_cast<size_t>(col) + 1]; ++q)
      zc[f_->row_idx[static_cast<size_t>(q)]] = f_->values[static_cast<size_t>(q)];
    return;
  }
  weight_[static_cast<size_t>(col)] = weight;
}

void SchurSystem::add_outer(int32_t cone, int32_t slot, const double* v, double weight) {
  const size_t k = static_cast<size_t>(cone);
  const int64_t first = cone_col_[k];
  if (cone_long_[k]) {
    const size_t z = static_cast<size_t>(2 * long_slot_[k]);
    lr_coef_[z] = weight;
    double* zc = lr_z_.data() + z * static_cast<size_t>(m_);
    std::fill(zc, zc + m_, 0.0);
    for (int32_t i = 0; i < cone_len_[k]; ++i) {
      const size_t j = static_cast<size_t>(first + i);
      for (int64_t q = f_->col_ptr[j]; q < f_->col_ptr[j + 1]; ++q)
        zc[f_->row_idx[static_cast<size_t>(q)]] += f_->values[static_cast<size_t>(q)] * v[i];
    }
    return;
  }
  // u = A_k v on the clique rows, scattered through the accumulator (kept zero outside).
  const int64_t b = clq_ptr_[k], e = clq_ptr_[k + 1];
  for (int32_t i = 0; i < cone_len_[k]; ++i) {
    const size_t j = static_cast<size_t>(first + i);
    for (int64_t q = f_->col_ptr[j]; q < f_->col_ptr[j + 1]; ++q)
      acc_[static_cast<size_t>(f_->row_idx[static_cast<size_t>(q)])] += f_->values[static_cast<size_t>(q)] * v[i];
  }
  const double sw = std::sqrt(std::fabs(weight));
  const size_t o = static_cast<size_t>(out_ptr_[k] + slot);
  clq_sign_[o] = weight < 0.0 ? -1.0 : 1.0;
  double* u = clq_u_.data() + clq_uoff_[o];
  for (int64_t q = b; q < e; ++q) {
    double& a = acc_[static_cast<size_t>(clq_rows_[static_cast<size_t>(q)])];
    u[q - b] = sw * a;
    a = 0.0;
  }
}

void SchurSystem::set_psd_scaling(int32_t block, const double* w) { psd_w_[static_cast<size_t>(block)] = w; }

// M_il = <A_l, W A_i W> for the block's rows l >= i (lower triangle, local numbering).
void SchurSystem::psd_block(int32_t kb, std::vector<double>& out) {
  const ConicForm& f = *f_;
  const size_t k = static_cast<size_t>(kb);
  const int32_t d = f.layout.psd_dim[k];
  const double* w = psd_w_[k];
  const int64_t b = f.psd_row_ptr[k], e = f.psd_row_ptr[k + 1];
  const int64_t mb = e - b;
  std::fill(out.begin(), out.end(), 0.0);
  double flops = 0.0;
#pragma omp parallel num_threads(std::max(1, opt_.num_threads)) reduction(+ : flops)
  {
    PsdWork& pw = psd_work_[static_cast<size_t>(omp_get_thread_num())];
    std::vector<double>& tt = pw.tt;
    std::vector<double>& ws = pw.ws;
    std::vector<double>& g = pw.g;
    std::vector<int32_t>& idx = pw.idx;
    std::vector<int32_t>& set = pw.set;
    linalg::DenseStats st;
#pragma omp for schedule(dynamic, 1)
    for (int64_t i = 0; i < mb; ++i) {
      const size_t p = static_cast<size_t>(b + i);
      const int64_t eb = f.psd_ent_ptr[p], ee = f.psd_ent_ptr[p + 1];
      set.clear();
      for (int64_t q = eb; q < ee; ++q)
        for (int32_t x : {f.psd_r[static_cast<size_t>(q)], f.psd_c[static_cast<size_t>(q)]})
          if (idx[static_cast<size_t>(x)] < 0) {
            idx[static_cast<size_t>(x)] = static_cast<int32_t>(set.size());
            set.push_back(x);
          }
      const size_t np = set.size();
      // T' = W A_i(:, P) (d x np) and W(:, P) (d x np). A_i with many entries per column goes
      // through a dense copy of its columns P and one BLAS-3 product; a sparse one is
      // accumulated column by column.
      const size_t dnp = np * static_cast<size_t>(d);
      std::fill(tt.begin(), tt.begin() + static_cast<int64_t>(dnp), 0.0);
      for (size_t a = 0; a < np; ++a)
        std::copy(w + static_cast<size_t>(set[a]) * d, w + static_cast<size_t>(set[a] + 1) * d, ws.data() + a * d);
      if (ee - eb > 8 * static_cast<int64_t>(np)) {
        std::fill(g.begin(), g.begin() + static_cast<int64_t>(dnp), 0.0);
        for (int64_t q = eb; q < ee; ++q) {
          const int32_t r = f.psd_r[static_cast<size_t>(q)], c = f.psd_c[static_cast<size_t>(q)];
          const double v = f.psd_v[static_cast<size_t>(q)];
          g[static_cast<size_t>(r) + static_cast<size_t>(idx[static_cast<size_t>(c)]) * d] += v;
          if (r != c) g[static_cast<size_t>(c) + static_cast<size_t>(idx[static_cast<size_t>(r)]) * d] += v;
        }
        linalg::dense::gemm_nn(st, d, static_cast<int>(np), d, 1.0, w, d, g.data(), d, 0.0, tt.data(), d);
      } else {
        for (int64_t q = eb; q < ee; ++q) {
          const int32_t r = f.psd_r[static_cast<size_t>(q)], c = f.psd_c[static_cast<size_t>(q)];
          const double v = f.psd_v[static_cast<size_t>(q)];
          double* tr = tt.data() + static_cast<size_t>(idx[static_cast<size_t>(r)]) * d;
          const double* wc = w + static_cast<size_t>(c) * d;
          for (int32_t s = 0; s < d; ++s) tr[s] += v * wc[s];
          if (r != c) {
            double* tc = tt.data() + static_cast<size_t>(idx[static_cast<size_t>(c)]) * d;
            const double* wr = w + static_cast<size_t>(r) * d;
            for (int32_t s = 0; s < d; ++s) tc[s] += v * wr[s];
          }
        }
      }
      for (int32_t x : set) idx[static_cast<size_t>(x)] = -1;
      const double dense_cost = 2.0 * static_cast<double>(d) * d * static_cast<double>(np);
      const double entry_cost = 2.0 * static_cast<double>(np) * static_cast<double>(psd_ent_total_[p]);
      const bool dense = dense_cost < entry_cost;
      if (dense) {
        linalg::dense::gemm_nt(st, d, d, static_cast<int>(np), 1.0, ws.data(), d, tt.data(), d, 0.0, g.data(), d);
        flops += dense_cost;
      } else {
        flops += entry_cost;
      }
      // Column i of the packed lower triangle, indexed by l >= i.
      double* col = out.data() + packed_col(i, mb) - i;
      if (dense) {
        // The inner products with G read it through the entries' precomputed positions.
        const double* gd = g.data();
        for (int64_t l = i; l < mb; ++l) {
          const size_t pl = static_cast<size_t>(b + l);
          const int64_t qe = f.psd_ent_ptr[pl + 1];
          double sum = 0.0;
          for (int64_t q = f.psd_ent_ptr[pl]; q < qe; ++q)
            sum += psd_wv_[static_cast<size_t>(q)] * gd[psd_lin_[static_cast<size_t>(q)]];
          col[l] = sum;
        }
      } else {
        for (int64_t l = i; l < mb; ++l) {
          const size_t pl = static_cast<size_t>(b + l);
          double sum = 0.0;
          for (int64_t q = f.psd_ent_ptr[pl]; q < f.psd_ent_ptr[pl + 1]; ++q) {
            const int32_t r = f.psd_r[static_cast<size_t>(q)], c = f.psd_c[static_cast<size_t>(q)];
            double gv = 0.0;
            for (size_t a = 0; a < np; ++a) gv += ws[a * d + static_cast<size_t>(r)] * tt[a * d + static_cast<size_t>(c)];
            sum += psd_wv_[static_cast<size_t>(q)] * gv;
          }
          col[l] = sum;
        }
      }
    }
  }
  psd_flops_ += flops;
}

Status SchurSystem::factor(double delta) {
  const ConicForm& f = *f_;
  for (size_t k = 0; k < psd_m_.size(); ++k) psd_block(static_cast<int32_t>(k), psd_m_[k]);
  double maxdiag = 0.0;
  for (int32_t c = 0; c < m_; ++c) {
    const size_t uc = static_cast<size_t>(c);
    for (int64_t p = rptr_[uc]; p < rptr_[uc + 1]; ++p) {
      const size_t j = static_cast<size_t>(rcol_[static_cast<size_t>(p)]);
      const double wa = weight_[j] * rval_[static_cast<size_t>(p)];
      if (wa == 0.0) continue;
      // The column's rows from c on (its rows are sorted).
      for (int64_t q = rpos_[static_cast<size_t>(p)]; q < f.col_ptr[j + 1]; ++q)
        acc_[static_cast<size_t>(f.row_idx[static_cast<size_t>(q)])] += wa * f.values[static_cast<size_t>(q)];
    }
    for (int64_t p = row_clq_ptr_[uc]; p < row_clq_ptr_[uc + 1]; ++p) {
      const int32_t k = row_clq_[static_cast<size_t>(p)];
      const int32_t l = row_clq_local_[static_cast<size_t>(p)];
      if (k >= 0) {
        const size_t uk = static_cast<size_t>(k);
        const int64_t b = clq_ptr_[uk], len = clq_ptr_[uk + 1] - b;
        const int32_t* rows = clq_rows_.data() + b;
        for (int32_t o = out_ptr_[uk]; o < out_ptr_[uk + 1]; ++o) {
          const double* u = clq_u_.data() + clq_uoff_[static_cast<size_t>(o)];
          const double uc_val = clq_sign_[static_cast<size_t>(o)] * u[l];
          if (uc_val == 0.0) continue;
          for (int64_t q = l; q < len; ++q) acc_[static_cast<size_t>(rows[q])] += uc_val * u[q];
        }
      } else {
        const size_t kb = static_cast<size_t>(-1 - k);
        const int64_t b = f.psd_row_ptr[kb];
        const int64_t mb = f.psd_row_ptr[kb + 1] - b;
        const double* colv = psd_m_[kb].data() + packed_col(l, mb) - l;
        for (int64_t q = l; q < mb; ++q) acc_[static_cast<size_t>(f.psd_rows[static_cast<size_t>(b + q)])] += colv[q];
      }
    }
    for (int64_t p = colptr_[uc]; p < colptr_[uc + 1]; ++p) {
      double& a = acc_[static_cast<size_t>(rowind_[static_cast<size_t>(p)])];
      mval_[static_cast<size_t>(p)] = a;
      a = 0.0;
    }
    maxdiag = std::max(maxdiag, mval_[static_cast<size_t>(colptr_[uc])]);
  }
  // Symmetric diagonal scaling to a unit diagonal: the diagonal of M spans many orders of
  // magnitude near the end, and the factorization's pivot test is relative to its largest
  // entry. delta is then a relative regularization of every pivot.
  dscale_.resize(static_cast<size_t>(m_));
  for (int32_t c = 0; c < m_; ++c) {
    const double d = mval_[static_cast<size_t>(colptr_[static_cast<size_t>(c)])];
    dscale_[static_cast<size_t>(c)] = d > 0.0 && std::isfinite(d) ? 1.0 / std::sqrt(d) : (maxdiag > 0.0 ? 1.0 / std::sqrt(maxdiag) : 1.0);
  }
  for (int32_t c = 0; c < m_; ++c) {
    const double sc = dscale_[static_cast<size_t>(c)];
    for (int64_t p = colptr_[static_cast<size_t>(c)]; p < colptr_[static_cast<size_t>(c) + 1]; ++p)
      mval_[static_cast<size_t>(p)] *= sc * dscale_[static_cast<size_t>(rowind_[static_cast<size_t>(p)])];
    mval_[static_cast<size_t>(colptr_[static_cast<size_t>(c)])] += delta;
  }
  delta_ = delta;
  Status st = chol_->factor(mval_.data());
  if (st != Status::kOk) return st;
  // Woodbury: Y = M_s^{-1} Z, small = diag(1 / coef) + Z'Y, factored by LU.
  const size_t k = lr_coef_.size();
  if (k > 0) {
    lr_y_ = lr_z_;
    st = scaled_solve(lr_y_.data(), static_cast<int32_t>(k));
    if (st != Status::kOk) return st;
    lr_small_.assign(k * k, 0.0);
    linalg::dense::gemm_tn(stats_, static_cast<int>(k), static_cast<int>(k), m_, 1.0, lr_z_.data(), m_, lr_y_.data(), m_, 0.0,
                           lr_small_.data(), static_cast<int64_t>(k));
    for (size_t a = 0; a < k; ++a) lr_small_[a + a * k] += 1.0 / lr_coef_[a];
    lr_piv_.assign(k, 0);
    if (LAPACKE_dgetrf_work(LAPACK_COL_MAJOR, static_cast<int>(k), static_cast<int>(k), lr_small_.data(), static_cast<int>(k),
                       lr_piv_.data()) != 0)
      return Status::kInternalError;
  }
  return Status::kOk;
}

Status SchurSystem::scaled_solve(double* b, int32_t nrhs) {
  const size_t m = static_cast<size_t>(m_);
  for (int32_t k = 0; k < nrhs; ++k)
    for (size_t i = 0; i < m; ++i) b[k * m + i] *= dscale_[i];
  const Status st = chol_->solve(b, nrhs, m_);
  for (int32_t k = 0; k < nrhs; ++k)
    for (size_t i = 0; i < m; ++i) b[k * m + i] *= dscale_[i];
  return st;
}

Status SchurSystem::solve_once(double* r) {
  Status st = scaled_solve(r, 1);
  if (st != Status::kOk) return st;
  const size_t k = lr_coef_.size();
  if (k == 0) return Status::kOk;
  tmp_.assign(k, 0.0);
  linalg::dense::gemv(stats_, true, m_, static_cast<int>(k), 1.0, lr_z_.data(), m_, r, 0.0, tmp_.data());
  LAPACKE_dgetrs_work(LAPACK_COL_MAJOR, 'N', static_cast<int>(k), 1, lr_small_.data(), static_cast<int>(k), lr_piv_.data(),
                 tmp_.data(), static_cast<int>(k));
  linalg::dense::gemv(stats_, false, m_, static_cast<int>(k), -1.0, lr_y_.data(), m_, tmp_.data(), 1.0, r);
  return Status::kOk;
}

void SchurSystem::multiply(const std::vector<double>& x, std::vector<double>& y) {
  const size_t m = static_cast<size_t>(m_);
  // M = S^{-1} (mval - delta I) S^{-1} with the scaled values kept from factor().
  tmp2_.resize(m);
  for (size_t i = 0; i < m; ++i) tmp2_[i] = x[i] / dscale_[i];
  y.assign(m, 0.0);
  for (size_t c = 0; c < m; ++c) {
    const int64_t b = colptr_[c], e = colptr_[c + 1];
    double acc = (mval_[static_cast<size_t>(b)] - delta_) * tmp2_[c];
    for (int64_t p = b + 1; p < e; ++p) {
      const size_t r = static_cast<size_t>(rowind_[static_cast<size_t>(p)]);
      const double v = mval_[static_cast<size_t>(p)];
      y[r] += v * tmp2_[c];
      acc += v * tmp2_[r];
    }
    y[c] += acc;
  }
  for (size_t i = 0; i < m; ++i) y[i] /= dscale_[i];
  const size_t k = lr_coef_.size();
  if (k == 0) return;
  tmp_.assign(k, 0.0);
  linalg::dense::gemv(stats_, true, m_, static_cast<int>(k), 1.0, lr_z_.data(), m_, x.data(), 0.0, tmp_.data());
  for (size_t a = 0; a < k; ++a) tmp_[a] *= lr_coef_[a];
  linalg::dense::gemv(stats_, false, m_, static_cast<int>(k), 1.0, lr_z_.data(), m_, tmp_.data(), 1.0, y.data());
}

Status SchurSystem::solve(std::vector<double>& r, int32_t max_refine) {
  const auto apply = [this](const std::vector<double>& x, std::vector<double>& y) { multiply(x, y); };
  const size_t m = static_cast<size_t>(m_);
  work_.assign(r.begin(), r.end());  // the right-hand side
  Status st = solve_once(r.data());
  if (st != Status::kOk) return st;
  if (max_refine == 0) return Status::kOk;
  double rnorm = 0.0;
  for (double v : work_) rnorm = std::max(rnorm, std::fabs(v));
  if (rnorm == 0.0) return Status::kOk;
  const int32_t steps = max_refine < 0 ? 8 : max_refine;
  double best = INFINITY;
  best_ = r;
  for (int32_t it = 0; it <= steps; ++it) {
    res_.assign(m, 0.0);
    apply(r, res_);
    double e = 0.0;
    for (size_t i = 0; i < m; ++i) {
      res_[i] = work_[i] - res_[i];
      e = std::max(e, std::fabs(res_[i]));
    }
    if (e < best) {
      best = e;
      best_ = r;
    } else {
      break;
    }
    if (e <= 1e-13 * rnorm || it == steps) break;
    st = solve_once(res_.data());
    if (st != Status::kOk) break;
    for (size_t i = 0; i < m; ++i) r[i] += res_[i];
  }
  r = best_;
  return Status::kOk;
}

}  // namespace qubor::conic
