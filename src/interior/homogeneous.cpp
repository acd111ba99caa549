// The homogeneous interior-point iteration; see homogeneous.h.
//
// Newton system of one direction with centering eta and complementarity right-hand sides
// rxs (x s), rwv (w v) and rtk (tau kappa):
//   A dx - b dtau = eta rp,  dx_B + dw - u dtau = eta ru,
//   A'dy + ds - dv - Q dx - c dtau = eta rd,
//   -(c + 2 Q x/tau)'dx + (x'Qx/tau^2) dtau + b'dy - u'dv - dkappa = eta rg,
//   S dx + X ds = rxs,  V dw + W dv = rwv,  kappa dtau + tau dkappa = rtk,
// with rp = b tau - A x, ru = u tau - x_B - w, rd = c tau + Q x - A'y - s + v,
// rg = kappa + c'x + x'Qx/tau - b'y + u'v. Eliminating ds, dw, dv leaves
//   -(Q + D) dx + A'dy + h dtau = r1,  A dx - b dtau = eta rp,
// D = X^{-1}S + W^{-1}V + rho, h = g - c, g = W^{-1}V u, and
// r1 = eta rd - X^{-1} rxs + W^{-1}(rwv - V eta ru). Writing dx = dx0 + dtau dx1 and
// dy = dy0 + dtau dy1 with the reduced system (kkt_solver.h) solved for
//   (dx1, dy1) from rx = -h, ry = b   and   (dx0, dy0) from rx = r1, ry = eta rp,
// the gap equation gives dtau. dy1 and dx1 depend only on the iterate, so one reduced
// system solve per direction suffices.
#include "interior/homogeneous.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "interior/ip_log.h"
#include "platform/prefaulted_buffer.h"

namespace qubor::interior {
namespace {

constexpr double kStepFactor = 0.995;
// A certificate ray must satisfy its homogeneous equations to this fraction of the size of
// its terms: A'y + s - v = 0 for a primal one, A x = 0 and x_B = 0 for a dual one.
constexpr double kRayTol = 1e-9;

}  // namespace

void HomogeneousSolver::Direction::resize(size_t n, size_t m) {
  platform::assign_prefaulted(dx, n, 0.0);
  platform::assign_prefaulted(ds, n, 0.0);
  platform::assign_prefaulted(dw, n, 0.0);
  platform::assign_prefaulted(dv, n, 0.0);
  platform::assign_prefaulted(dy, m, 0.0);
  dtau = dkappa = 0.0;
}

HomogeneousSolver::HomogeneousSolver(const StandardForm& sf, const std::vector<double>& row_scale,
                                     const std::vector<double>& col_scale, const IpOptions& opt,
                                     double start_time)
    : sf_(sf), rs_(row_scale), cs_(col_scale), opt_(opt), sink_(&opt.log),
      start_time_(start_time) {
  n_ = static_cast<size_t>(sf.n);
  m_ = static_cast<size_t>(sf.m);
  for (size_t i = 0; i < m_; ++i) norm_b_ = std::max(norm_b_, std::fabs(sf.b[i] / rs_[i]));
  for (size_t j = 0; j < n_; ++j) {
    norm_c_ = std::max(norm_c_, std::fabs(sf.c[j] / cs_[j]));
    if (sf.kind[j] == ColKind::kBoxed) norm_u_ = std::max(norm_u_, std::fabs(sf.u[j] * cs_[j]));
  }
  obj_const_ = sf.obj_const;
  for (double a : sf.values) amax_ = std::max(amax_, std::fabs(a));
  for (double q : sf.q_val) qmax_ = std::max(qmax_, std::fabs(q));
  num_compl_ = 1;
  for (size_t j = 0; j < n_; ++j) {
    if (sf.kind[j] != ColKind::kFree) ++num_compl_;
    if (sf.kind[j] == ColKind::kBoxed) ++num_compl_;
  }
  pred_.resize(n_, m_);
  corr_.resize(n_, m_);
  trial_.resize(n_, m_);
}

void HomogeneousSolver::initial_point() {
  platform::assign_prefaulted(x_, n_, 1.0);
  platform::assign_prefaulted(s_, n_, 1.0);
  platform::assign_prefaulted(w_, n_, 0.0);
  platform::assign_prefaulted(v_, n_, 0.0);
  platform::assign_prefaulted(y_, m_, 0.0);
  for (size_t j = 0; j < n_; ++j) {
    if (sf_.kind[j] == ColKind::kFree) {
      x_[j] = 0.0;
      s_[j] = 0.0;
    } else if (sf_.kind[j] == ColKind::kBoxed) {
      w_[j] = 1.0;
      v_[j] = 1.0;
    }
  }
  tau_ = kappa_ = 1.0;
}

void HomogeneousSolver::compute_residuals() {
  platform::assign_prefaulted(rp_, m_, 0.0);
  platform::assign_prefaulted(ru_, n_, 0.0);
  platform::assign_prefaulted(rd_, n_, 0.0);
  platform::assign_prefaulted(qx_, n_, 0.0);
  sf_.multiply_q(x_.data(), qx_.data());
  xqx_ = 0.0;
  for (size_t j = 0; j < n_; ++j) xqx_ += x_[j] * qx_[j];
  for (size_t i = 0; i < m_; ++i) rp_[i] = sf_.b[i] * tau_;
  double cx = 0.0, by = 0.0, uv = 0.0;
  for (size_t j = 0; j < n_; ++j) {
    double aty = 0.0;
    for (int64_t k = sf_.col_ptr[j]; k < sf_.col_ptr[j + 1]; ++k) {
      const size_t i = static_cast<size_t>(sf_.row_idx[static_cast<size_t>(k)]);
      const double a = sf_.values[static_cast<size_t>(k)];
      rp_[i] -= a * x_[j];
      aty += a * y_[i];
    }
    rd_[j] = sf_.c[j] * tau_ + qx_[j] - aty - s_[j] + v_[j];
    if (sf_.kind[j] == ColKind::kBoxed) {
      ru_[j] = sf_.u[j] * tau_ - x_[j] - w_[j];
      uv += sf_.u[j] * v_[j];
    }
    cx += sf_.c[j] * x_[j];
  }
  for (size_t i = 0; i < m_; ++i) by += sf_.b[i] * y_[i];
  rg_ = kappa_ + cx + xqx_ / tau_ - by + uv;
  mu_ = complementarity();
}

double HomogeneousSolver::complementarity() const {
  double sum = tau_ * kappa_;
  for (size_t j = 0; j < n_; ++j) {
    if (sf_.kind[j] == ColKind::kFree) continue;
    sum += x_[j] * s_[j];
    if (sf_.kind[j] == ColKind::kBoxed) sum += w_[j] * v_[j];
  }
  return sum / num_compl_;
}

TerminationInput HomogeneousSolver::termination_input() const {
  TerminationInput in;
  double pf = 0.0, pinf = 0.0, df = 0.0, dinf = 0.0, cx = 0.0, by = 0.0;
  for (size_t i = 0; i < m_; ++i) {
    pf = std::max(pf, std::fabs(rp_[i] / rs_[i]));
    pinf = std::max(pinf, std::fabs((sf_.b[i] * tau_ - rp_[i]) / rs_[i]));
    by += sf_.b[i] * y_[i];
  }
  for (size_t j = 0; j < n_; ++j) {
    df = std::max(df, std::fabs(rd_[j] / cs_[j]));
    dinf = std::max(dinf, std::fabs((sf_.c[j] * tau_ + qx_[j] - rd_[j]) / cs_[j]));
    cx += sf_.c[j] * x_[j];
    if (sf_.kind[j] == ColKind::kBoxed) {
      pf = std::max(pf, std::fabs(ru_[j] * cs_[j]));
      pinf = std::max(pinf, std::fabs(x_[j] * cs_[j]));
      by -= sf_.u[j] * v_[j];
    }
  }
  in.pfeasf = pf;
  in.dfeasf = df;
  in.cx = cx;
  in.by = by;
  // The objectives of the homogeneous point times tau: c'x + 1/2 x'Qx/tau and
  // b'y - u'v - 1/2 x'Qx/tau. The certificate tests take the linear parts alone.
  const double half = 0.5 * xqx_ / tau_;
  in.relgap = std::fabs(cx - by + 2.0 * half) / std::max(tau_, std::fabs(cx + half + tau_ * obj_const_));
  // A relaxed test of a quadratic objective also takes the gap relative to the objective's
  // variable part: the gap's rounding error grows with it (x'Qx/tau carries the rounding of
  // the residuals times the duals), and a constant can cancel it in the objective.
  if (relaxed_ && sf_.has_q()) in.relgap = std::min(in.relgap, std::fabs(cx - by + 2.0 * half) / std::max(tau_, std::fabs(cx + half)));
  in.pfeasinff = pinf;
  in.dfeasinff = dinf;
  in.norm_bound = norm_u_;
  in.norm_obj = norm_c_;
  in.norm_rhs = norm_b_;
  in.primal_norm = std::max(norm_b_, norm_u_);
  in.dual_norm = norm_c_;
  in.tau = tau_;
  set_tolerances(opt_, in);
  return in;
}

// The termination test, with the rays it accepts as certificates checked on their own
// equations: the ratio tests alone weigh the ray against norms of b, c and u, and when those
// differ by orders of magnitude a scaled-down optimal iterate can pass for a ray.
TerminationOutcome HomogeneousSolver::test(int32_t g, int32_t r) {
  relaxed_ = r > 0;
  TerminationOutcome out = termination_test(termination_input(), g, r, sink_);
  relaxed_ = false;
  if (!out.passed || (out.problem_status != 4 && out.problem_status != 5)) return out;
  double res = 0.0, size = 0.0;
  if (out.problem_status == 4) {
    for (size_t j = 0; j < n_; ++j) {
      res = std::max(res, std::fabs(sf_.c[j] * tau_ + qx_[j] - rd_[j]));
      size = std::max({size, s_[j], v_[j]});
    }
    double ymax = 0.0;
    for (double e : y_) ymax = std::max(ymax, std::fabs(e));
    size = std::max(size, amax_ * ymax);
  } else {
    // A ray of a quadratic objective also keeps Q x = 0.
    double xmax = 0.0;
    for (size_t j = 0; j < n_; ++j) {
      xmax = std::max(xmax, std::fabs(x_[j]));
      res = std::max(res, std::fabs(qx_[j]));
      if (sf_.kind[j] == ColKind::kBoxed) res = std::max(res, std::fabs(x_[j]));
    }
    for (size_t i = 0; i < m_; ++i) res = std::max(res, std::fabs(sf_.b[i] * tau_ - rp_[i]));
    size = std::max(amax_, qmax_) * xmax;
  }
  if (res <= kRayTol * size) return out;
  linalg::log_printf(sink_, 2, "Certificate rejected: ray residual %e, ray size %e.\n", res, size);
  return TerminationOutcome();
}

bool HomogeneousSolver::factorize(KktSolver& kkt) {
  platform::assign_prefaulted(dreg_, n_, 0.0);
  platform::assign_prefaulted(reg_, n_, 0.0);
  platform::assign_prefaulted(g_, n_, 0.0);
  platform::assign_prefaulted(h_, n_, 0.0);
  for (size_t j = 0; j < n_; ++j) {
    double dj = 0.0;
    reg_[j] = primal_reg_;
    switch (sf_.kind[j]) {
      case ColKind::kFree: reg_[j] = free_reg_; break;
      case ColKind::kBoxed:
        dj += s_[j] / x_[j] + v_[j] / w_[j];
        g_[j] = v_[j] * sf_.u[j] / w_[j];
        break;
      case ColKind::kLower: dj += s_[j] / x_[j]; break;
    }
    dreg_[j] = dj;
    h_[j] = g_[j] - sf_.c[j];
  }
  const linalg::Status st = kkt.factorize(dreg_, reg_, dual_reg_);
  if (st != linalg::Status::kOk) {
    linalg::log_printf(sink_, 1, "Error while computing factorization. resp: %d\n",
                       static_cast<int>(st));
    return false;
  }
  return true;
}

bool HomogeneousSolver::tau_direction(KktSolver& kkt) {
  platform::assign_prefaulted(work_n_, n_, 0.0);
  platform::assign_prefaulted(work_m_, m_, 0.0);
  platform::assign_prefaulted(dy1_, m_, 0.0);
  platform::assign_prefaulted(dx1_, n_, 0.0);
  for (size_t j = 0; j < n_; ++j) work_n_[j] = -h_[j];
  for (size_t i = 0; i < m_; ++i) work_m_[i] = sf_.b[i];
  RefineStats rst;
  if (kkt.solve_kkt(work_n_, work_m_, dx1_, dy1_, max_refine_, &rst) != linalg::Status::kOk) return false;
  linalg::log_printf(sink_, 3, "tau direction: refine %d residual %.1e perturbed %d\n", rst.steps,
                     rst.residual, kkt.num_perturbed());
  // den = kappa/tau + x'Qx/tau^2 + b'dy1 - (c + g + 2 Q x/tau)'dx1 + u'g, evaluated in the
  // cancellation-free form kappa/tau + sum (s/x + rho) dx1^2 + sum_B (v/w) (dx1 - u)^2
  // + (dx1 - x/tau)'Q(dx1 - x/tau) (using A dx1 = b and the first block row).
  double den = kappa_ / tau_;
  if (sf_.has_q()) {
    platform::assign_prefaulted(qwork_, n_, 0.0);
    for (size_t j = 0; j < n_; ++j) work_n_[j] = dx1_[j] - x_[j] / tau_;
    sf_.multiply_q(work_n_.data(), qwork_.data());
    for (size_t j = 0; j < n_; ++j) den += work_n_[j] * qwork_[j];
  }
  for (size_t j = 0; j < n_; ++j) {
    const double q = dx1_[j] * dx1_[j];
    switch (sf_.kind[j]) {
      case ColKind::kFree: den += free_reg_ * q; break;
      case ColKind::kLower: den += (s_[j] / x_[j] + primal_reg_) * q; break;
      case ColKind::kBoxed: {
        const double e = dx1_[j] - sf_.u[j];
        den += (s_[j] / x_[j] + primal_reg_) * q + v_[j] / w_[j] * e * e;
        break;
      }
    }
  }
  tau_den_ = den;
  return std::isfinite(den) && den > 0.0;
}

bool HomogeneousSolver::solve_direction(KktSolver& kkt, double eta,
                                        const std::vector<double>& rxs,
                                        const std::vector<double>& rwv, double rtk,
                                        Direction& d) {
  std::vector<double>& r1 = work_n_;
  platform::assign_prefaulted(r1, n_, 0.0);
  double num = eta * rg_ + rg_second_ + rtk / tau_;
  for (size_t j = 0; j < n_; ++j) {
    r1[j] = eta * rd_[j];
    if (sf_.kind[j] == ColKind::kFree) continue;
    r1[j] -= rxs[j] / x_[j];
    if (sf_.kind[j] == ColKind::kBoxed) {
      const double t = (rwv[j] - v_[j] * eta * ru_[j]) / w_[j];
      r1[j] += t;
      num += sf_.u[j] * t;
    }
  }
  platform::assign_prefaulted(work_m_, m_, 0.0);
  for (size_t i = 0; i < m_; ++i) work_m_[i] = eta * rp_[i];
  if (kkt.solve_kkt(r1, work_m_, d.dx, d.dy, max_refine_, nullptr) != linalg::Status::kOk) return false;
  for (size_t i = 0; i < m_; ++i) num -= sf_.b[i] * d.dy[i];
  const double two_over_tau = 2.0 / tau_;
  for (size_t j = 0; j < n_; ++j) num += (sf_.c[j] + g_[j] + two_over_tau * qx_[j]) * d.dx[j];
  const double dtau = num / tau_den_;
  d.dtau = dtau;
  for (size_t i = 0; i < m_; ++i) d.dy[i] += dtau * dy1_[i];
  bool finite = std::isfinite(dtau);
  for (size_t j = 0; j < n_; ++j) {
    d.dx[j] += dtau * dx1_[j];
    d.ds[j] = d.dw[j] = d.dv[j] = 0.0;
    if (sf_.kind[j] != ColKind::kFree) d.ds[j] = (rxs[j] - s_[j] * d.dx[j]) / x_[j];
    if (sf_.kind[j] == ColKind::kBoxed) {
      d.dw[j] = eta * ru_[j] - d.dx[j] + sf_.u[j] * dtau;
      d.dv[j] = (rwv[j] - v_[j] * d.dw[j]) / w_[j];
    }
    finite = finite && std::isfinite(d.dx[j]) && std::isfinite(d.ds[j]) && std::isfinite(d.dv[j]);
  }
  d.dkappa = (rtk - kappa_ * dtau) / tau_;
  return finite && std::isfinite(d.dkappa);
}

double HomogeneousSolver::max_step(const Direction& d) const {
  double a = 1e300;
  auto ratio = [&a](double z, double dz) {
    if (dz < 0.0) a = std::min(a, -z / dz);
  };
  for (size_t j = 0; j < n_; ++j) {
    if (sf_.kind[j] == ColKind::kFree) continue;
    ratio(x_[j], d.dx[j]);
    ratio(s_[j], d.ds[j]);
    if (sf_.kind[j] == ColKind::kBoxed) {
      ratio(w_[j], d.dw[j]);
      ratio(v_[j], d.dv[j]);
    }
  }
  ratio(tau_, d.dtau);
  ratio(kappa_, d.dkappa);
  return a;
}

void HomogeneousSolver::take_step(const Direction& d, double alpha) {
  for (size_t j = 0; j < n_; ++j) {
    x_[j] += alpha * d.dx[j];
    s_[j] += alpha * d.ds[j];
    w_[j] += alpha * d.dw[j];
    v_[j] += alpha * d.dv[j];
  }
  for (size_t i = 0; i < m_; ++i) y_[i] += alpha * d.dy[i];
  tau_ += alpha * d.dtau;
  kappa_ += alpha * d.dkappa;
}

void HomogeneousSolver::gondzio(KktSolver& kkt, Direction& d, double& alpha,
                                double sigma_mu) {
  const double lo = 0.1 * sigma_mu, hi = 10.0 * sigma_mu;
  auto target = [&](double p) {
    if (p < lo) return lo - p;
    if (p > hi) return std::max(hi - p, -hi);
    return 0.0;
  };
  rxs2_.resize(n_);
  rwv2_.resize(n_);
  for (int32_t k = 0; k < max_cor_; ++k) {
    const double at = std::min(1.0, 1.5 * alpha + 0.1);
    for (size_t j = 0; j < n_; ++j) {
      rxs2_[j] = rxs_[j];
      rwv2_[j] = rwv_[j];
      if (sf_.kind[j] == ColKind::kFree) continue;
      rxs2_[j] += target((x_[j] + at * d.dx[j]) * (s_[j] + at * d.ds[j]));
      if (sf_.kind[j] == ColKind::kBoxed)
        rwv2_[j] += target((w_[j] + at * d.dw[j]) * (v_[j] + at * d.dv[j]));
    }
    const double rtk2 = rtk_ + target((tau_ + at * d.dtau) * (kappa_ + at * d.dkappa));
    if (!solve_direction(kkt, eta_, rxs2_, rwv2_, rtk2, trial_)) return;
    const double a2 = std::min(1.0, max_step(trial_));
    if (a2 < 1.01 * alpha) return;
    std::swap(d, trial_);
    rxs_.swap(rxs2_);
    rwv_.swap(rwv2_);
    rtk_ = rtk2;
    alpha = a2;
    if (alpha >= 0.9999) return;
  }
}

bool HomogeneousSolver::iterate(KktSolver& kkt, double& alpha) {
  // Predictor.
  platform::assign_prefaulted(rxs_, n_, 0.0);
  platform::assign_prefaulted(rwv_, n_, 0.0);
  for (size_t j = 0; j < n_; ++j) {
    if (sf_.kind[j] == ColKind::kFree) continue;
    rxs_[j] = -x_[j] * s_[j];
    if (sf_.kind[j] == ColKind::kBoxed) rwv_[j] = -w_[j] * v_[j];
  }
  rg_second_ = 0.0;
  if (!solve_direction(kkt, 1.0, rxs_, rwv_, -tau_ * kappa_, pred_)) return false;
  const double aa = std::min(1.0, max_step(pred_));
  double mu_aff = (tau_ + aa * pred_.dtau) * (kappa_ + aa * pred_.dkappa);
  for (size_t j = 0; j < n_; ++j) {
    if (sf_.kind[j] == ColKind::kFree) continue;
    mu_aff += (x_[j] + aa * pred_.dx[j]) * (s_[j] + aa * pred_.ds[j]);
    if (sf_.kind[j] == ColKind::kBoxed)
      mu_aff += (w_[j] + aa * pred_.dw[j]) * (v_[j] + aa * pred_.dv[j]);
  }
  mu_aff /= num_compl_;
  double sigma = std::pow(std::max(0.0, mu_aff) / mu_, 3.0);
  sigma = std::min(std::max(sigma, 1e-6), 1.0);
  const double smu = sigma * mu_;
  // Mehrotra corrector.
  for (size_t j = 0; j < n_; ++j) {
    if (sf_.kind[j] == ColKind::kFree) continue;
    rxs_[j] = -x_[j] * s_[j] + smu - pred_.dx[j] * pred_.ds[j];
    if (sf_.kind[j] == ColKind::kBoxed) rwv_[j] = -w_[j] * v_[j] + smu - pred_.dw[j] * pred_.dv[j];
  }
  rtk_ = -tau_ * kappa_ + smu - pred_.dtau * pred_.dkappa;
  rg_second_ = gap_second_order(pred_);
  eta_ = 1.0 - sigma;
  if (!solve_direction(kkt, eta_, rxs_, rwv_, rtk_, corr_)) return false;
  alpha = std::min(1.0, max_step(corr_));
  gondzio(kkt, corr_, alpha, smu);
  const double amax = max_step(corr_);
  alpha = std::min(1.0, kStepFactor * amax);
  take_step(corr_, alpha);
  return true;
}

// The gap equation is not linear in (x, tau): along a direction its x'Qx/tau term departs
// from the linear model by (tau dx - x dtau)'Q(tau dx - x dtau) / (tau^2 (tau + dtau)). The
// corrector compensates the predictor's departure, as it does for the products x s.
double HomogeneousSolver::gap_second_order(const Direction& d) {
  if (!sf_.has_q()) return 0.0;
  platform::assign_prefaulted(qwork_, n_, 0.0);
  platform::assign_prefaulted(work_n_, n_, 0.0);
  const double r = d.dtau / tau_;
  for (size_t j = 0; j < n_; ++j) work_n_[j] = d.dx[j] - x_[j] * r;
  sf_.multiply_q(work_n_.data(), qwork_.data());
  double e = 0.0;
  for (size_t j = 0; j < n_; ++j) e += work_n_[j] * qwork_[j];
  return e / std::max(tau_ + d.dtau, tau_);
}

void HomogeneousSolver::set_corrector_budget(const KktSolver& kkt) {
  const double tf = kkt.factor_flops(), df = std::max(1.0, kkt.solve_flops());
  const double ratio = tf / df;
  int32_t k = ratio > 100 ? 4 : ratio > 50 ? 3 : ratio > 30 ? 2 : ratio > 10 ? 1 : 0;
  if (opt_.max_num_cor >= 0) k = std::min(k, opt_.max_num_cor);
  max_cor_ = k;
  linalg::log_printf(sink_, 3, "tflops: %e dflops: %e maxncor: %d\n", tf, df, max_cor_);
}

void HomogeneousSolver::log_line(int32_t iter) {
  const TerminationInput in = termination_input();
  IterationLine l;
  l.iter = iter;
  l.pfeas = in.pfeasf;
  l.dfeas = in.dfeasf;
  l.gfeas = std::fabs(rg_);
  l.prstatus = (tau_ - kappa_) / (tau_ + kappa_);
  const double half = 0.5 * xqx_ / tau_;
  l.pobj = (in.cx + half) / tau_ + obj_const_;
  l.dobj = (in.by - half) / tau_ + obj_const_;
  l.mu = mu_;
  l.time = linalg::wall_seconds() - start_time_;
  log_iteration(sink_, l);
}

double HomogeneousSolver::merit() const {
  const TerminationInput in = termination_input();
  const double pt = (1.0 + in.primal_norm) * in.tolrpf * tau_;
  const double dt = (1.0 + in.dual_norm) * in.tolrdf * tau_;
  return std::max({in.pfeasf / pt, in.dfeasf / dt, in.relgap / in.tolrgap});
}

void HomogeneousSolver::save_to(Saved& to) const {
  to.x = x_;
  to.s = s_;
  to.w = w_;
  to.v = v_;
  to.y = y_;
  to.tau = tau_;
  to.kappa = kappa_;
}

void HomogeneousSolver::load_from(const Saved& from) {
  x_ = from.x;
  s_ = from.s;
  w_ = from.w;
  v_ = from.v;
  y_ = from.y;
  tau_ = from.tau;
  kappa_ = from.kappa;
  compute_residuals();
}

void HomogeneousSolver::save_best() {
  const double mval = merit();
  if (!(mval < best_.merit)) return;
  best_.merit = mval;
  save_to(best_);
}

void HomogeneousSolver::restore_best() {
  // Only a run that looks feasible goes back; an infeasible one keeps its latest ray.
  if (!(best_.merit < merit()) || !(tau_ > kappa_)) return;
  load_from(best_);
  linalg::log_printf(sink_, 2, "Restore the best iterate (merit %e).\n", best_.merit);
}

// Largest scaled primal, bound and dual residual. A Newton step of length alpha with centering
// eta reduces each of them by exactly 1 - alpha eta, so a step that leaves them much larger
// than that was computed from an inaccurate factor.
double HomogeneousSolver::residual_norm() const {
  double r = 0.0;
  for (double e : rp_) r = std::max(r, std::fabs(e));
  for (double e : ru_) r = std::max(r, std::fabs(e));
  for (double e : rd_) r = std::max(r, std::fabs(e));
  return r;
}

// Residuals that no step needs to reduce: the rounding error of the residuals themselves
// (their terms are about the size of the iterate times the largest matrix entry), and
// anything below a hundredth of the termination test's feasibility tolerances.
double HomogeneousSolver::rounding_floor() const {
  double size = tau_;
  for (const std::vector<double>* v : {&x_, &s_, &v_, &y_})
    for (double e : *v) size = std::max(size, std::fabs(e));
  return std::max(1e-12 * (1.0 + size * std::max({1.0, amax_, qmax_})),
                  0.01 * std::min(opt_.tol_pfeas, opt_.tol_dfeas) * tau_ *
                      (1.0 + std::max({norm_b_, norm_c_, norm_u_})));
}

// Makes the next directions more accurate: dense columns go back into the factor first, then
// the regularization and refinement grow. False when nothing is left to try.
bool HomogeneousSolver::escalate(KktSolver& kkt) {
  if (kkt.num_dense() > 0) {
    linalg::log_printf(sink_, 1, "Dense columns are moved back into the factor.\n");
    if (kkt.drop_dense_handling() != linalg::Status::kOk) return false;
    set_corrector_budget(kkt);
    return true;
  }
  if (regu_level_ >= 4) return false;
  ++regu_level_;
  primal_reg_ *= 100.0;
  free_reg_ *= 10.0;
  dual_reg_ = dual_reg_ == 0.0 ? 1e-12 : dual_reg_ * 100.0;
  max_refine_ = std::max(max_refine_, 5);
  linalg::log_printf(sink_, 2, "Increase regularization. Current: %d\n", regu_level_);
  return true;
}

void HomogeneousSolver::run(KktSolver& kkt, HsdOutcome& out) {
  initial_point();
  compute_residuals();
  mu0_ = mu_;
  max_refine_ = opt_.max_num_refinement_steps;
  set_corrector_budget(kkt);
  log_iteration_header(sink_);
  log_line(0);
  Termination trm = Termination::kNormal;
  int32_t iter = 0, short_steps = 0, since_progress = 0;
  double best_mu = mu_;
  while (true) {
    last_pass_ = test(0, 0);
    if (last_pass_.passed) {
      linalg::log_printf(sink_, 2, "Normal termination.\n");
      break;
    }
    trm = run_limit(opt_, iter, start_time_);
    if (trm != Termination::kNormal) break;
    double alpha = 0.0;
    bool ok = false;
    const double res0 = residual_norm();
    save_to(prev_);
    while (true) {
      ok = factorize(kkt) && tau_direction(kkt) && iterate(kkt, alpha);
      if (ok) {
        compute_residuals();
        // Near an infeasibility certificate the residuals may grow while the ray still
        // improves: without dense columns the check is made only on a run heading for
        // optimality (tau well above kappa).
        const double expected = std::max(1.0 - alpha * eta_, 0.0) * res0;
        const bool checked = kkt.num_dense() > 0 || tau_ > 3.0 * kappa_;
        if (!checked || residual_norm() <= 100.0 * expected + 1e-6 * res0 + rounding_floor()) break;
        linalg::log_printf(sink_, 2, "Inaccurate step: residual %e, expected %e.\n",
                           residual_norm(), expected);
        load_from(prev_);
        ok = false;
      }
      if (!escalate(kkt)) break;
    }
    if (!ok) {
      linalg::log_printf(sink_, 1, "Terminate due to numerical problems.\n");
      restore_best();
      last_pass_ = test(1, 1);
      if (!last_pass_.passed) trm = Termination::kNumericalInstability;
      break;
    }
    ++iter;
    log_line(iter);
    save_best();
    short_steps = alpha < opt_.tol_step_size ? short_steps + 1 : 0;
    if (mu_ < 0.99 * best_mu) {
      best_mu = mu_;
      since_progress = 0;
    } else {
      ++since_progress;
    }
    // A run heading for optimality (tau well above kappa) whose merit explodes.
    const bool diverging =
        tau_ > 3.0 * kappa_ && mu_ < 1e-6 * mu0_ && merit() > 1e4 * best_.merit;
    // The complementarity of the solution the iterate stands for is mu / scale^2, where the
    // scale max(tau, kappa) can shrink by orders of magnitude on a badly scaled problem.
    const double scale = std::max(tau_, kappa_);
    if (short_steps >= 3 || since_progress >= std::max(opt_.stall_iterations, 1) ||
        mu_ < opt_.tol_mu_red * mu0_ * scale * scale || diverging) {
      linalg::log_printf(sink_, 1,
                         "The solver is stalled due to the short stepsize %-.2e (lpval: %e).\n",
                         alpha, mu_);
      last_pass_ = test(0, 0);
      if (!last_pass_.passed) {
        restore_best();
        last_pass_ = test(1, 1);
      }
      if (last_pass_.passed) {
        linalg::log_printf(sink_, 1, "Normal termination in the stalled case.\n");
      } else {
        trm = Termination::kStalled;
      }
      break;
    }
  }
  out.problem_status = last_pass_.passed ? last_pass_.problem_status : 0;
  out.solution_status = last_pass_.passed ? last_pass_.solution_status : 0;
  out.termination = trm;
  out.iterations = iter;
  const TerminationInput fin = termination_input();
  out.primal_feas = fin.pfeasf / std::max(tau_, 1e-300);
  out.dual_feas = fin.dfeasf / std::max(tau_, 1e-300);
  out.x = x_;
  out.s = s_;
  out.w = w_;
  out.v = v_;
  out.y = y_;
  out.tau = tau_;
  out.kappa = kappa_;
}

}  // namespace qubor::interior
