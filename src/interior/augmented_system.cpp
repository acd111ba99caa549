// The augmented quasidefinite system; see augmented_system.h.
#include "interior/augmented_system.h"

#include <algorithm>
#include <cmath>

#include "platform/prefaulted_buffer.h"

namespace qubor::interior {

using linalg::Status;

namespace {

// Regularization of the y block, relative to the largest |A_ij| (1 after scaling). It starts
// at kStaticReg and drops by kRegDrop, down to kMinStaticReg, whenever the refinement fails to
// reach kRefineTarget: the pivots of rows at their bounds shrink like the inverse of the
// complementarity ratios and a regularization of their size stalls the refinement.
constexpr double kStaticReg = 1e-9;
constexpr double kMinStaticReg = 1e-15;
constexpr double kRegDrop = 0.01;
constexpr double kRefineTarget = 1e-10;
// The pivot signs are known, so only a pivot of the wrong sign or 0 is replaced.
constexpr double kPivotTolerance = 1e-300;

double max_abs(const std::vector<double>& v, size_t from, size_t to) {
  double r = 0.0;
  for (size_t k = from; k < to; ++k) r = std::max(r, std::fabs(v[k]));
  return r;
}

}  // namespace

Status AugmentedSystem::setup(const StandardForm& sf, const AugmentedSetup& opt) {
  const double t0 = linalg::wall_seconds();
  sf_ = &sf;
  n_ = sf.n;
  m_ = sf.m;
  const size_t n = static_cast<size_t>(n_), m = static_cast<size_t>(m_), dim = n + m;
  platform::assign_prefaulted(colptr_, dim + 1, 0);
  rowind_.clear();
  const size_t nnz = dim + sf.row_idx.size() + sf.q_idx.size() / 2;
  platform::reserve_prefaulted(rowind_, nnz);
  for (size_t j = 0; j < n; ++j) {
    rowind_.push_back(static_cast<int32_t>(j));
    if (sf.has_q())
      for (int64_t k = sf.q_ptr[j]; k < sf.q_ptr[j + 1]; ++k)
        if (sf.q_idx[static_cast<size_t>(k)] > static_cast<int32_t>(j)) rowind_.push_back(sf.q_idx[static_cast<size_t>(k)]);
    for (int64_t k = sf.col_ptr[j]; k < sf.col_ptr[j + 1]; ++k)
      rowind_.push_back(n_ + sf.row_idx[static_cast<size_t>(k)]);
    colptr_[j + 1] = static_cast<int64_t>(rowind_.size());
  }
  for (size_t i = 0; i < m; ++i) {
    rowind_.push_back(static_cast<int32_t>(n + i));
    colptr_[n + i + 1] = static_cast<int64_t>(rowind_.size());
  }
  platform::assign_prefaulted(kval_, rowind_.size(), 0.0);
  std::vector<int8_t> signs(dim, 1);
  for (size_t j = 0; j < n; ++j) signs[j] = -1;
  linalg::SparseCholeskyOptions co;
  co.type = linalg::FactorType::kLdlt;
  co.order_method = order_method_from_option(opt.order_method);
  co.num_threads = std::max(1, opt.num_threads);
  co.pivot_tolerance = kPivotTolerance;
  co.replacement = linalg::PivotReplacement::kRegularize;
  co.regularization = 1e-14;
  linalg::LowerPattern pat{static_cast<int32_t>(dim), colptr_.data(), rowind_.data()};
  const Status st = chol_.analyse(pat, co, opt.sink, nullptr, signs.data());
  const double amax = max_abs(sf.values, 0, sf.values.size());
  reg_scale_ = std::max(amax, 1e-300);
  static_reg_ = kStaticReg * reg_scale_;
  lower_reg_ = false;
  for (auto* v : {&rhs_, &z_, &res_, &corr_, &best_}) platform::assign_prefaulted(*v, dim, 0.0);
  platform::assign_prefaulted(qz_, n, 0.0);
  platform::assign_prefaulted(d_, n, 0.0);
  setup_time_ = linalg::wall_seconds() - t0;
  return st;
}

Status AugmentedSystem::factorize(const std::vector<double>& d, const std::vector<double>& reg,
                                  double delta) {
  const StandardForm& sf = *sf_;
  const size_t n = static_cast<size_t>(n_), m = static_cast<size_t>(m_);
  d_ = d;
  delta_ = delta;
  if (lower_reg_) static_reg_ = std::max(static_reg_ * kRegDrop, kMinStaticReg * reg_scale_);
  lower_reg_ = false;
  for (size_t j = 0; j < n; ++j) {
    size_t p = static_cast<size_t>(colptr_[j]);
    double diag = d[j] + reg[j];
    if (sf.has_q())
      for (int64_t k = sf.q_ptr[j]; k < sf.q_ptr[j + 1]; ++k) {
        const int32_t i = sf.q_idx[static_cast<size_t>(k)];
        if (i == static_cast<int32_t>(j)) diag += sf.q_val[static_cast<size_t>(k)];
        else if (i > static_cast<int32_t>(j)) kval_[++p] = -sf.q_val[static_cast<size_t>(k)];
      }
    kval_[static_cast<size_t>(colptr_[j])] = -diag;
    for (int64_t k = sf.col_ptr[j]; k < sf.col_ptr[j + 1]; ++k) kval_[++p] = sf.values[static_cast<size_t>(k)];
  }
  for (size_t i = 0; i < m; ++i) kval_[static_cast<size_t>(colptr_[n + i])] = delta + static_reg_;
  return chol_.factor(kval_.data());
}

double AugmentedSystem::residual(const std::vector<double>& z, std::vector<double>& res) {
  const StandardForm& sf = *sf_;
  const size_t n = static_cast<size_t>(n_), m = static_cast<size_t>(m_);
  const double* dx = z.data();
  const double* dy = z.data() + n;
  sf.multiply_q(dx, qz_.data());
  for (size_t i = 0; i < m; ++i) res[n + i] = rhs_[n + i] - delta_ * dy[i];
  for (size_t j = 0; j < n; ++j) {
    double t = -(qz_[j] + d_[j] * dx[j]);
    for (int64_t k = sf.col_ptr[j]; k < sf.col_ptr[j + 1]; ++k) {
      const size_t i = static_cast<size_t>(sf.row_idx[static_cast<size_t>(k)]);
      const double a = sf.values[static_cast<size_t>(k)];
      t += a * dy[i];
      res[n + i] -= a * dx[j];
    }
    res[j] = rhs_[j] - t;
  }
  return max_abs(res, 0, n + m);
}

// Iterative refinement: z += K~^{-1} (rhs - K z) while the residual keeps falling.
Status AugmentedSystem::solve_kkt(const std::vector<double>& rx, const std::vector<double>& ry,
                                  std::vector<double>& dx, std::vector<double>& dy, int32_t max_refine,
                                  RefineStats* stats) {
  const size_t n = static_cast<size_t>(n_), m = static_cast<size_t>(m_), dim = n + m;
  std::copy(rx.begin(), rx.begin() + static_cast<std::ptrdiff_t>(n), rhs_.begin());
  std::copy(ry.begin(), ry.begin() + static_cast<std::ptrdiff_t>(m), rhs_.begin() + static_cast<std::ptrdiff_t>(n));
  z_ = rhs_;
  Status st = chol_.solve(z_.data(), 1, static_cast<int64_t>(dim));
  if (st != Status::kOk) return st;
  const double bnorm = std::max(max_abs(rhs_, 0, dim), 1e-300);
  const int32_t steps = max_refine >= 0 ? max_refine : 10;
  double rnorm = residual(z_, res_);
  int32_t done = 0;
  best_ = z_;
  double best_norm = rnorm;
  while (done < steps && rnorm > 1e-14 * bnorm) {
    corr_ = res_;
    st = chol_.solve(corr_.data(), 1, static_cast<int64_t>(dim));
    if (st != Status::kOk) return st;
    for (size_t k = 0; k < dim; ++k) z_[k] += corr_[k];
    ++done;
    rnorm = residual(z_, res_);
    if (!(rnorm < 0.5 * best_norm)) {
      if (rnorm < best_norm) {
        best_norm = rnorm;
        best_ = z_;
      }
      break;
    }
    best_norm = rnorm;
    best_ = z_;
  }
  std::copy(best_.begin(), best_.begin() + static_cast<std::ptrdiff_t>(n), dx.begin());
  std::copy(best_.begin() + static_cast<std::ptrdiff_t>(n), best_.end(), dy.begin());
  if (best_norm > kRefineTarget * bnorm) lower_reg_ = true;
  if (stats) {
    stats->steps = done;
    stats->residual = best_norm / bnorm;
  }
  return Status::kOk;
}

}  // namespace qubor::interior
