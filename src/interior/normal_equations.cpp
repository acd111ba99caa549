// Normal equations with dense-column handling; see normal_equations.h.
#include "interior/normal_equations.h"

#include <omp.h>

#include <algorithm>
#include <cmath>
#include <numeric>

#include "platform/prefaulted_buffer.h"

namespace qubor::interior {

using linalg::Status;

namespace {

// Pivots below this fraction of the largest diagonal entry are rejected. Normal equations
// near the optimum span some twenty orders of magnitude, so the tolerance is far below the
// machine precision; dependent rows are removed before (find_dependent_rows).
constexpr double kPivotTolerance = 1e-20;

double now() { return linalg::wall_seconds(); }

// Marks the columns that stay out of the sparse factor: long columns, as long as they are few.
std::vector<int32_t> detect_dense(const StandardForm& sf, const NormalEquationsSetup& opt) {
  std::vector<int32_t> dense;
  if (opt.off_col_trh <= 0 || sf.n == 0 || sf.m < 50) return dense;
  const double avg = static_cast<double>(sf.col_ptr[static_cast<size_t>(sf.n)]) / sf.n;
  const double trh = std::max({static_cast<double>(opt.off_col_trh), 10.0 * avg,
                               std::min(0.1 * sf.m, 1000.0)});
  std::vector<std::pair<int64_t, int32_t>> cand;
  for (int32_t j = 0; j < sf.n; ++j) {
    const int64_t cnt = sf.col_ptr[static_cast<size_t>(j) + 1] - sf.col_ptr[static_cast<size_t>(j)];
    if (static_cast<double>(cnt) > trh) cand.emplace_back(-cnt, j);
  }
  std::sort(cand.begin(), cand.end());
  // Worth it only when the long columns dominate the work of forming and factoring M.
  double est_dense = 0.0, est_all = 0.0;
  for (int32_t j = 0; j < sf.n; ++j) {
    const double cnt = static_cast<double>(sf.col_ptr[static_cast<size_t>(j) + 1] -
                                           sf.col_ptr[static_cast<size_t>(j)]);
    est_all += cnt * cnt;
  }
  for (const auto& c : cand) est_dense += static_cast<double>(c.first) * static_cast<double>(c.first);
  if (sf.m < 1000 || est_dense < 0.5 * est_all) return dense;
  size_t limit = opt.dense_col_limit >= 0 ? static_cast<size_t>(opt.dense_col_limit)
                                          : std::min<size_t>(200, static_cast<size_t>(sf.m) / 4);
  if (cand.size() > limit) cand.resize(limit);
  for (const auto& c : cand) dense.push_back(c.second);
  std::sort(dense.begin(), dense.end());
  return dense;
}

// In-place Cholesky of a small dense SPD matrix (lower, column-major); tiny pivots become
// large so that the direction component vanishes, as in the sparse factor.
void dense_cholesky(std::vector<double>& a, int32_t k) {
  double dmax = 0.0;
  for (int32_t j = 0; j < k; ++j) dmax = std::max(dmax, std::fabs(a[static_cast<size_t>(j) * k + j]));
  const double tol = 1e-14 * std::max(dmax, 1e-300);
  for (int32_t j = 0; j < k; ++j) {
    double* cj = &a[static_cast<size_t>(j) * k];
    for (int32_t p = 0; p < j; ++p) {
      const double* cp = &a[static_cast<size_t>(p) * k];
      const double f = cp[j];
      for (int32_t i = j; i < k; ++i) cj[i] -= f * cp[i];
    }
    double piv = cj[j];
    if (!(piv > tol)) piv = 1e128;
    piv = std::sqrt(piv);
    for (int32_t i = j; i < k; ++i) cj[i] /= piv;
  }
}

void dense_solve(const std::vector<double>& l, int32_t k, double* x) {
  for (int32_t j = 0; j < k; ++j) {
    const double* cj = &l[static_cast<size_t>(j) * k];
    x[j] /= cj[j];
    for (int32_t i = j + 1; i < k; ++i) x[i] -= cj[i] * x[j];
  }
  for (int32_t j = k - 1; j >= 0; --j) {
    const double* cj = &l[static_cast<size_t>(j) * k];
    double t = x[j];
    for (int32_t i = j + 1; i < k; ++i) t -= cj[i] * x[i];
    x[j] = t / cj[j];
  }
}

}  // namespace

linalg::OrderMethod order_method_from_option(int32_t v) {
  switch (v) {
    case 1: return linalg::OrderMethod::kAppMinLoc;
    case 2: return linalg::OrderMethod::kExperimental;
    case 3: return linalg::OrderMethod::kTryGraphPar;
    case 4: return linalg::OrderMethod::kForceGraphPar;
    case 5: return linalg::OrderMethod::kNone;
    default: return linalg::OrderMethod::kFree;
  }
}

Status NormalEquations::setup(const StandardForm& sf, const NormalEquationsSetup& opt) {
  const double t0 = now();
  sf_ = &sf;
  opt_ = opt;
  m_ = sf.m;
  threads_ = std::max(1, opt.num_threads);
  const size_t m = static_cast<size_t>(sf.m), n = static_cast<size_t>(sf.n);
  dense_ = detect_dense(sf, opt);
  platform::assign_prefaulted(is_dense_, n, 0);
  for (int32_t j : dense_) is_dense_[static_cast<size_t>(j)] = 1;
  dense_time_ = now() - t0;

  // Row-wise copy of the sparse columns.
  platform::assign_prefaulted(row_ptr_, m + 1, 0);
  for (size_t j = 0; j < n; ++j)
    if (!is_dense_[j])
      for (int64_t k = sf.col_ptr[j]; k < sf.col_ptr[j + 1]; ++k)
        ++row_ptr_[static_cast<size_t>(sf.row_idx[static_cast<size_t>(k)]) + 1];
  for (size_t i = 0; i < m; ++i) row_ptr_[i + 1] += row_ptr_[i];
  platform::assign_prefaulted(row_col_, static_cast<size_t>(row_ptr_[m]), 0);
  platform::assign_prefaulted(row_val_, row_col_.size(), 0.0);
  {
    std::vector<int64_t> pos(row_ptr_.begin(), row_ptr_.end() - 1);
    for (size_t j = 0; j < n; ++j)
      if (!is_dense_[j])
        for (int64_t k = sf.col_ptr[j]; k < sf.col_ptr[j + 1]; ++k) {
          const size_t i = static_cast<size_t>(sf.row_idx[static_cast<size_t>(k)]);
          row_col_[static_cast<size_t>(pos[i])] = static_cast<int32_t>(j);
          row_val_[static_cast<size_t>(pos[i]++)] = sf.values[static_cast<size_t>(k)];
        }
  }
  // Lower pattern of A_S A_S' plus the diagonal.
  platform::assign_prefaulted(colptr_, m + 1, 0);
  rowind_.clear();
  std::vector<int32_t> mark(m, -1);
  for (size_t i = 0; i < m; ++i) {
    mark[i] = static_cast<int32_t>(i);
    platform::push_back_prefaulted(rowind_, static_cast<int32_t>(i));
    for (int64_t p = row_ptr_[i]; p < row_ptr_[i + 1]; ++p) {
      const size_t j = static_cast<size_t>(row_col_[static_cast<size_t>(p)]);
      for (int64_t k = sf.col_ptr[j]; k < sf.col_ptr[j + 1]; ++k) {
        const int32_t r = sf.row_idx[static_cast<size_t>(k)];
        if (r > static_cast<int32_t>(i) && mark[static_cast<size_t>(r)] != static_cast<int32_t>(i)) {
          mark[static_cast<size_t>(r)] = static_cast<int32_t>(i);
          platform::push_back_prefaulted(rowind_, r);
        }
      }
    }
    colptr_[i + 1] = static_cast<int64_t>(rowind_.size());
  }
  platform::assign_prefaulted(mval_, rowind_.size(), 0.0);
  linalg::SparseCholeskyOptions co;
  co.order_method = order_method_from_option(opt.order_method);
  co.num_threads = threads_;
  co.pivot_tolerance = kPivotTolerance;
  co.replacement = linalg::PivotReplacement::kHuge;
  linalg::LowerPattern pat{sf.m, colptr_.data(), rowind_.data()};
  const Status st = chol_->analyse(pat, co, opt.sink);
  platform::assign_prefaulted(work_, m, 0.0);
  platform::assign_prefaulted(work2_, m, 0.0);
  platform::assign_prefaulted(removed_, m, 0);
  platform::assign_prefaulted(theta_, n, 0.0);
  platform::assign_prefaulted(q_diag_, n, 0.0);
  for (size_t j = 0; j + 1 < sf.q_ptr.size(); ++j)
    for (int64_t k = sf.q_ptr[j]; k < sf.q_ptr[j + 1]; ++k)
      if (static_cast<size_t>(sf.q_idx[static_cast<size_t>(k)]) == j) q_diag_[j] += sf.q_val[static_cast<size_t>(k)];
  setup_time_ = now() - t0;
  return st;
}

Status NormalEquations::drop_dense_handling() {
  std::vector<int32_t> removed;
  for (int32_t i = 0; i < m_; ++i)
    if (removed_[static_cast<size_t>(i)]) removed.push_back(i);
  NormalEquationsSetup opt = opt_;
  opt.off_col_trh = 0;
  chol_ = std::make_unique<linalg::SparseCholesky>();
  const Status st = setup(*sf_, opt);
  remove_rows(removed);
  return st;
}

Status NormalEquations::find_dependent_rows(std::vector<int32_t>& rows) {
  rows.clear();
  if (!dense_.empty() || m_ == 0) return Status::kOk;
  platform::assign_prefaulted(d_, static_cast<size_t>(sf_->n), 1.0);
  form_sparse(0.0);
  linalg::SparseCholesky detector;
  linalg::SparseCholeskyOptions co;
  co.order_method = linalg::OrderMethod::kNone;
  co.num_threads = threads_;
  co.pivot_tolerance = 1e-13;
  co.replacement = linalg::PivotReplacement::kHuge;
  linalg::LowerPattern pat{m_, colptr_.data(), rowind_.data()};
  Status st = detector.analyse(pat, co, nullptr, chol_->permutation().data());
  if (st == Status::kOk) st = detector.factor(mval_.data());
  if (st != Status::kOk) return st;
  // Rows with a slack column are independent; only equality rows can be removed.
  std::vector<int8_t> has_slack(static_cast<size_t>(m_), 0);
  for (int32_t j = sf_->num_struct; j < sf_->n; ++j)
    for (int64_t k = sf_->col_ptr[static_cast<size_t>(j)]; k < sf_->col_ptr[static_cast<size_t>(j) + 1]; ++k)
      has_slack[static_cast<size_t>(sf_->row_idx[static_cast<size_t>(k)])] = 1;
  for (int32_t i : detector.perturbed())
    if (!has_slack[static_cast<size_t>(i)]) rows.push_back(i);
  return Status::kOk;
}

void NormalEquations::remove_rows(const std::vector<int32_t>& rows) {
  for (int32_t i : rows) removed_[static_cast<size_t>(i)] = 1;
  const size_t m = static_cast<size_t>(m_);
  for (size_t i = 0; i < m; ++i)
    if (removed_[i])
      for (int64_t p = row_ptr_[i]; p < row_ptr_[i + 1]; ++p) row_val_[static_cast<size_t>(p)] = 0.0;
}

void NormalEquations::form_sparse(double delta) {
  const StandardForm& sf = *sf_;
  const int32_t m = m_;
  const bool parallel = threads_ > 1 && m > 2000;
  acc_.resize(static_cast<size_t>(parallel ? threads_ : 1));
  for (auto& a : acc_) a.resize(static_cast<size_t>(m), 0.0);
#pragma omp parallel num_threads(threads_) if (parallel)
  {
    // Each thread accumulates into its own row of acc_, which it leaves zero again.
    std::vector<double>& acc = acc_[static_cast<size_t>(omp_get_thread_num())];
#pragma omp for schedule(dynamic, 64)
    for (int32_t i = 0; i < m; ++i) {
      const size_t ii = static_cast<size_t>(i);
      for (int64_t p = row_ptr_[ii]; p < row_ptr_[ii + 1]; ++p) {
        const size_t j = static_cast<size_t>(row_col_[static_cast<size_t>(p)]);
        const double f = row_val_[static_cast<size_t>(p)] * d_[j];
        for (int64_t k = sf.col_ptr[j]; k < sf.col_ptr[j + 1]; ++k) {
          const int32_t r = sf.row_idx[static_cast<size_t>(k)];
          if (r >= i) acc[static_cast<size_t>(r)] += f * sf.values[static_cast<size_t>(k)];
        }
      }
      for (int64_t q = colptr_[ii]; q < colptr_[ii + 1]; ++q) {
        const size_t r = static_cast<size_t>(rowind_[static_cast<size_t>(q)]);
        mval_[static_cast<size_t>(q)] = acc[r];
        acc[r] = 0.0;
      }
      mval_[static_cast<size_t>(colptr_[ii])] += removed_[ii] ? 1.0 : delta;
    }
  }
}

Status NormalEquations::form_dense() {
  const StandardForm& sf = *sf_;
  const size_t m = static_cast<size_t>(m_);
  const int32_t k = num_dense();
  platform::assign_prefaulted(w_, m * static_cast<size_t>(k), 0.0);
  for (int32_t q = 0; q < k; ++q) {
    const size_t j = static_cast<size_t>(dense_[static_cast<size_t>(q)]);
    double* col = &w_[m * static_cast<size_t>(q)];
    for (int64_t p = sf.col_ptr[j]; p < sf.col_ptr[j + 1]; ++p)
      col[sf.row_idx[static_cast<size_t>(p)]] += sf.values[static_cast<size_t>(p)];
  }
  if (k > 0) {
    const Status st = chol_->solve(w_.data(), k, static_cast<int64_t>(m));
    if (st != Status::kOk) return st;
  }
  // S = D_K^{-1} + A_K' W
  platform::assign_prefaulted(s_, static_cast<size_t>(k) * static_cast<size_t>(k), 0.0);
  for (int32_t q = 0; q < k; ++q) {
    const size_t jq = static_cast<size_t>(dense_[static_cast<size_t>(q)]);
    for (int32_t p = q; p < k; ++p) {
      const double* wp = &w_[m * static_cast<size_t>(p)];
      double t = 0.0;
      for (int64_t e = sf.col_ptr[jq]; e < sf.col_ptr[jq + 1]; ++e)
        t += sf.values[static_cast<size_t>(e)] * wp[sf.row_idx[static_cast<size_t>(e)]];
      s_[static_cast<size_t>(q) * k + p] = t;
    }
    s_[static_cast<size_t>(q) * k + q] += 1.0 / std::max(d_[jq], 1e-300);
  }
  // Symmetrize from the computed lower triangle (entry (p,q), p >= q, stored at q*k+p).
  dense_cholesky(s_, k);
  return Status::kOk;
}

Status NormalEquations::factor(const std::vector<double>& d, double delta) {
  d_ = d;
  delta_ = delta;
  form_sparse(delta);
  Status st = chol_->factor(mval_.data());
  if (st != Status::kOk) return st;
  return form_dense();
}

Status NormalEquations::factorize(const std::vector<double>& d, const std::vector<double>& reg,
                                  double delta) {
  for (size_t j = 0; j < theta_.size(); ++j) theta_[j] = 1.0 / (d[j] + reg[j] + q_diag_[j]);
  return factor(theta_, delta);
}

Status NormalEquations::solve_kkt(const std::vector<double>& rx, const std::vector<double>& ry,
                                  std::vector<double>& dx, std::vector<double>& dy, int32_t max_refine,
                                  RefineStats* stats) {
  const StandardForm& sf = *sf_;
  const size_t n = static_cast<size_t>(sf.n);
  for (size_t i = 0; i < static_cast<size_t>(m_); ++i) dy[i] = ry[i];
  for (size_t j = 0; j < n; ++j) {
    const double f = theta_[j] * rx[j];
    if (f == 0.0) continue;
    for (int64_t k = sf.col_ptr[j]; k < sf.col_ptr[j + 1]; ++k)
      dy[static_cast<size_t>(sf.row_idx[static_cast<size_t>(k)])] += sf.values[static_cast<size_t>(k)] * f;
  }
  const Status st = solve(dy, max_refine, stats);
  if (st != Status::kOk) return st;
  for (size_t j = 0; j < n; ++j) {
    double t = 0.0;
    for (int64_t k = sf.col_ptr[j]; k < sf.col_ptr[j + 1]; ++k)
      t += sf.values[static_cast<size_t>(k)] * dy[static_cast<size_t>(sf.row_idx[static_cast<size_t>(k)])];
    dx[j] = theta_[j] * (t - rx[j]);
  }
  return Status::kOk;
}

Status NormalEquations::solve_once(double* r) {
  const Status st = chol_->solve(r, 1, m_);
  if (st != Status::kOk || dense_.empty()) return st;
  const StandardForm& sf = *sf_;
  const int32_t k = num_dense();
  const size_t m = static_cast<size_t>(m_);
  platform::assign_prefaulted(small_, static_cast<size_t>(k), 0.0);
  for (int32_t q = 0; q < k; ++q) {
    const size_t j = static_cast<size_t>(dense_[static_cast<size_t>(q)]);
    double t = 0.0;
    for (int64_t e = sf.col_ptr[j]; e < sf.col_ptr[j + 1]; ++e)
      t += sf.values[static_cast<size_t>(e)] * r[sf.row_idx[static_cast<size_t>(e)]];
    small_[static_cast<size_t>(q)] = t;
  }
  dense_solve(s_, k, small_.data());
  for (int32_t q = 0; q < k; ++q) {
    const double f = small_[static_cast<size_t>(q)];
    const double* wq = &w_[m * static_cast<size_t>(q)];
    for (size_t i = 0; i < m; ++i) r[i] -= f * wq[i];
  }
  return Status::kOk;
}

void NormalEquations::multiply(const std::vector<double>& x, std::vector<double>& y) const {
  const StandardForm& sf = *sf_;
  for (size_t j = 0; j < static_cast<size_t>(sf.n); ++j) {
    double t = 0.0;
    for (int64_t k = sf.col_ptr[j]; k < sf.col_ptr[j + 1]; ++k)
      t += sf.values[static_cast<size_t>(k)] * x[static_cast<size_t>(sf.row_idx[static_cast<size_t>(k)])];
    t *= d_[j];
    if (t == 0.0) continue;
    for (int64_t k = sf.col_ptr[j]; k < sf.col_ptr[j + 1]; ++k)
      y[static_cast<size_t>(sf.row_idx[static_cast<size_t>(k)])] += sf.values[static_cast<size_t>(k)] * t;
  }
}

// Preconditioned conjugate gradients on A D A' + delta I with the factor (and the Woodbury
// update) as preconditioner. Starts from the direct solution, so a good factor costs one
// operator product to confirm.
Status NormalEquations::solve(std::vector<double>& r, int32_t max_refine, RefineStats* stats) {
  const size_t m = static_cast<size_t>(m_);
  const bool need = !dense_.empty() || delta_ > 0.0 || num_perturbed() > 0;
  const int32_t steps = max_refine >= 0 ? max_refine : (need ? 20 : 0);
  if (steps == 0) {
    if (stats) *stats = RefineStats();
    return solve_once(r.data());
  }
  rhs_ = r;
  double bnorm = 0.0;
  for (double e : rhs_) bnorm = std::max(bnorm, std::fabs(e));
  Status st = solve_once(r.data());
  if (st != Status::kOk) return st;
  // res = rhs - M x
  platform::assign_prefaulted(res_, m, 0.0);
  multiply(r, res_);
  double rnorm = 0.0;
  for (size_t i = 0; i < m; ++i) {
    res_[i] = rhs_[i] - res_[i] - delta_ * r[i];
    rnorm = std::max(rnorm, std::fabs(res_[i]));
  }
  const double target = 1e-13 * std::max(bnorm, 1e-300);
  int32_t done = 0;
  if (rnorm > target) {
    z_ = res_;
    st = solve_once(z_.data());
    if (st != Status::kOk) return st;
    p_ = z_;
    double rz = 0.0;
    for (size_t i = 0; i < m; ++i) rz += res_[i] * z_[i];
    best_ = r;
    double best_norm = rnorm;
    // Conjugate gradients on a poor preconditioner may creep; four steps that do not halve the
    // best residual end the refinement.
    double checkpoint = rnorm;
    for (; done < steps && rnorm > target; ++done) {
      if (done > 0 && done % 4 == 0) {
        if (best_norm > 0.5 * checkpoint) break;
        checkpoint = best_norm;
      }
      platform::assign_prefaulted(q_, m, 0.0);
      multiply(p_, q_);
      double pq = 0.0;
      for (size_t i = 0; i < m; ++i) {
        q_[i] += delta_ * p_[i];
        pq += p_[i] * q_[i];
      }
      if (!(pq > 0.0) || !(rz > 0.0)) break;
      const double a = rz / pq;
      rnorm = 0.0;
      for (size_t i = 0; i < m; ++i) {
        r[i] += a * p_[i];
        res_[i] -= a * q_[i];
        rnorm = std::max(rnorm, std::fabs(res_[i]));
      }
      if (rnorm < best_norm) {
        best_norm = rnorm;
        best_ = r;
      }
      z_ = res_;
      st = solve_once(z_.data());
      if (st != Status::kOk) return st;
      double rz_new = 0.0;
      for (size_t i = 0; i < m; ++i) rz_new += res_[i] * z_[i];
      const double beta = rz_new / rz;
      rz = rz_new;
      for (size_t i = 0; i < m; ++i) p_[i] = z_[i] + beta * p_[i];
    }
    if (best_norm < rnorm) {
      r = best_;
      rnorm = best_norm;
    }
  }
  if (stats) {
    stats->steps = done;
    stats->residual = bnorm > 0.0 ? rnorm / bnorm : 0.0;
  }
  // An inaccurate solve with dense columns means the Woodbury update broke down.
  if (!dense_.empty() && rnorm > 1e-8 * std::max(bnorm, 1e-300)) return Status::kInternalError;
  return Status::kOk;
}

double NormalEquations::factor_flops() const {
  const double k = num_dense();
  return chol_->flops() + k * 4.0 * static_cast<double>(chol_->nnz_l()) + k * k * k / 3.0;
}

double NormalEquations::solve_flops() const {
  const double k = num_dense();
  return 4.0 * static_cast<double>(chol_->nnz_l()) + 4.0 * k * m_ + k * k * 2.0;
}

}  // namespace qubor::interior
