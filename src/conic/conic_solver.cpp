// The conic homogeneous interior-point iteration; see conic_solver.h.
#include "conic/conic_solver.h"

#include <algorithm>
#include <cmath>
#include <new>

#include "conic/schur.h"
#include "interior/ip_log.h"
#include "interior/termination.h"
#include "linalg/dense/dense_kernels.h"

namespace qubor::conic {
namespace {

using interior::Termination;
using Vec = std::vector<double>;

// A stall: this many consecutive steps shorter than kShortStep (once the directions have lost
// their accuracy the steps fall to 1e-4 and below and the iterate no longer moves).
constexpr int32_t kStallSteps = 4;
constexpr double kShortStep = 1e-3;
// The line search of the nonsymmetric cones' centrality.
constexpr int kMaxBacktracks = 60;
constexpr double kBacktrack = 0.8;
// A step below this share of the full step is also tried with the centring kMoreCentring,
// then 1.
constexpr double kCentralShare = 0.5;
constexpr double kMoreCentring = 0.5;
constexpr double kWiden = 2.0;
constexpr double kStuck = 1e-2;  // a best step below this tries the widened neighbourhood

double inf_norm(const Vec& v) {
  double r = 0.0;
  for (double x : v) r = std::max(r, std::fabs(x));
  return r;
}
double dot(const Vec& a, const Vec& b) {
  double r = 0.0;
  for (size_t i = 0; i < a.size(); ++i) r += a[i] * b[i];
  return r;
}

struct Direction {
  Vec dx, ds, dy, wdx, wds;
  double dtau = 0.0, dkappa = 0.0;
};

class Iteration {
 public:
  Iteration(const ConicForm& f, const interior::IpOptions& opt, double t0)
      : f_(f), opt_(opt), sink_(&opt.log), t0_(t0), n_(static_cast<size_t>(f.n)), m_(static_cast<size_t>(f.m)) {}

  linalg::Status setup(ConicResult& r) {
    cones_ = make_cones(f_.layout);
    has_nonsym_ = !f_.layout.nonsym.empty();
    nu_ = 0.0;
    for (const auto& c : cones_) nu_ += c->degree();
    SchurSystem::Setup ss;
    ss.order_method = opt_.order_method;
    ss.num_threads = opt_.num_threads;
    linalg::LogSink chol_sink = opt_.log;
    chol_sink.level = opt_.factor_log_level;
    ss.sink = &chol_sink;
    const linalg::Status st = schur_.setup(f_, ss);
    if (st != linalg::Status::kOk) return st;
    const linalg::CholeskyStatistics& cs = schur_.cholesky().statistics();
    const linalg::OrderChoice& oc = schur_.cholesky().ordering();
    interior::log_pair(sink_, "Factor", "setup time", schur_.setup_time(), "dense det. time", 0.0);
    interior::log_pair(sink_, "Factor", "ML order time", oc.ml_time, "GP order time", oc.gp_time);
    interior::log_pair_count(sink_, "Factor", "nonzeros before factor", static_cast<double>(schur_.nnz_m()),
                             "after factor", static_cast<double>(schur_.cholesky().nnz_l()));
    interior::log_pair_count(sink_, "Factor", "dense dim.", schur_.num_lowrank(), "flops", schur_.factor_flops());
    if (cs.gp_taken)
      interior::log_pair_count(sink_, "Factor", "GP saved nzs", static_cast<double>(cs.gp_saved_nz), "GP saved flops",
                               cs.gp_saved_flops);
    r.order_time = oc.ml_time + oc.gp_time;
    r.factor_nnz = schur_.cholesky().nnz_l();
    r.factor_flops = schur_.factor_flops();
    r.dense_dim = schur_.num_lowrank();
    return st;
  }

  void run(ConicResult& r);

  const Vec& x() const { return x_; }
  const Vec& s() const { return s_; }
  const Vec& y() const { return y_; }
  double tau() const { return tau_; }

 private:
  // out = A v (m), out = A' v (n).
  void a_mul(const Vec& v, Vec& out) const {
    std::fill(out.begin(), out.end(), 0.0);
    for (size_t j = 0; j < n_; ++j) {
      const double vj = v[j];
      if (vj == 0.0) continue;
      for (int64_t q = f_.col_ptr[j]; q < f_.col_ptr[j + 1]; ++q)
        out[static_cast<size_t>(f_.row_idx[static_cast<size_t>(q)])] += f_.values[static_cast<size_t>(q)] * vj;
    }
  }
  void at_mul(const Vec& v, Vec& out) const {
    for (size_t j = 0; j < n_; ++j) {
      double t = 0.0;
      for (int64_t q = f_.col_ptr[j]; q < f_.col_ptr[j + 1]; ++q)
        t += f_.values[static_cast<size_t>(q)] * v[static_cast<size_t>(f_.row_idx[static_cast<size_t>(q)])];
      out[j] = t;
    }
  }
  void hinv(const Vec& v, Vec& out) const {
    for (const auto& c : cones_) c->apply_hinv(v.data(), out.data());
  }
  void residuals() {
    a_mul(x_, rp_);
    for (size_t i = 0; i < m_; ++i) rp_[i] = f_.b[i] * tau_ - rp_[i];
    at_mul(y_, rd_);
    for (size_t j = 0; j < n_; ++j) rd_[j] = f_.c[j] * tau_ - rd_[j] - s_[j];
    cx_ = dot(f_.c, x_);
    by_ = dot(f_.b, y_);
    rg_ = kappa_ + cx_ - by_;
    mu_ = (dot(x_, s_) + tau_ * kappa_) / (nu_ + 1.0);
  }
  // `terms`: the primal tolerance also scales with the terms of A x (the test after a stall).
  interior::TerminationInput termination_input(bool terms) {
    interior::TerminationInput in;
    in.pfeasf = inf_norm(rp_);
    in.dfeasf = inf_norm(rd_);
    const double pobj = cx_ / tau_ + f_.obj_const, dobj = by_ / tau_ + f_.obj_const;
    in.relgap = std::fabs(pobj - dobj) / std::max(1.0, std::min(std::fabs(pobj), std::fabs(dobj)));
    in.cx = cx_;
    in.by = by_;
    a_mul(x_, tmp_m_);
    in.pfeasinff = inf_norm(tmp_m_);
    at_mul(y_, tmp_n_);
    for (size_t j = 0; j < n_; ++j) tmp_n_[j] += s_[j];
    in.dfeasinff = inf_norm(tmp_n_);
    in.norm_bound = 0.0;
    in.norm_obj = norm_c_;
    in.norm_rhs = norm_b_;
    in.primal_norm = norm_b_;
    in.dual_norm = norm_c_;
    if (terms) {
      // Primal feasibility against the size of the terms that cancel in A x as well
      // (max_i sum_j |a_ij x_j| / tau): a solution of large norm cannot be computed to a
      // residual below that size times the machine precision.
      std::fill(tmp_m_.begin(), tmp_m_.end(), 0.0);
      for (size_t j = 0; j < n_; ++j)
        for (int64_t q = f_.col_ptr[j]; q < f_.col_ptr[j + 1]; ++q)
          tmp_m_[static_cast<size_t>(f_.row_idx[static_cast<size_t>(q)])] += std::fabs(f_.values[static_cast<size_t>(q)] * x_[j]);
      in.primal_norm = std::max(norm_b_, inf_norm(tmp_m_) / tau_);
    }
    in.tau = tau_;
    interior::set_tolerances(opt_, in);
    return in;
  }
  // scale > 1 multiplies the feasibility and gap tolerances (the near-optimal test after a
  // stall, which also measures primal feasibility against the terms of A x).
  interior::TerminationOutcome test(int32_t g, int32_t r, double scale = 1.0) {
    interior::TerminationInput in = termination_input(scale > 1.0);
    in.tolrpf *= scale;
    in.tolrdf *= scale;
    in.tolrgap *= scale;
    return interior::termination_test(in, g, r, sink_);
  }
  bool factor() {
    for (const auto& c : cones_) c->schur_terms(schur_);
    return schur_.factor(delta_) == linalg::Status::kOk;
  }
  bool msolve(Vec& r) { return schur_.solve(r, opt_.max_num_refinement_steps) == linalg::Status::kOk; }
  // The search direction for the right-hand sides (see the file comment of conic_solver.h);
  // r4 is the complementarity's right-hand side of ds + H dx = r4.
  bool direction(double eta, const Vec& r4, double r5, Direction& d) {
    for (size_t j = 0; j < n_; ++j) t2_[j] = r4[j] - eta * rd_[j];  // r4 - r2
    hinv(t2_, h_);
    a_mul(h_, q_);
    for (size_t i = 0; i < m_; ++i) q_[i] = eta * rp_[i] - q_[i];
    if (!msolve(q_)) return false;
    at_mul(q_, t1_);
    hinv(t1_, d.dx);
    for (size_t j = 0; j < n_; ++j) d.dx[j] += h_[j];  // xq
    const double r3 = eta * rg_;
    const double num = r3 - dot(f_.b, q_) + dot(f_.c, d.dx) + r5 / tau_;
    const double den = den_;
    d.dtau = num / den;
    for (size_t i = 0; i < m_; ++i) d.dy[i] = q_[i] + p_[i] * d.dtau;
    for (size_t j = 0; j < n_; ++j) d.dx[j] += xp_[j] * d.dtau;
    at_mul(d.dy, d.ds);
    for (size_t j = 0; j < n_; ++j) d.ds[j] = eta * rd_[j] - d.ds[j] + f_.c[j] * d.dtau;
    d.dkappa = (r5 - kappa_ * d.dtau) / tau_;
    for (const auto& c : cones_) {
      c->scale_x(d.dx.data(), d.wdx.data());
      c->scale_s(d.ds.data(), d.wds.data());
    }
    return std::isfinite(d.dtau) && std::isfinite(d.dkappa);
  }
  double max_step(const Direction& d) const {
    double a = INFINITY;
    const ConeDirection cd = view(d);
    for (const auto& c : cones_) a = std::min(a, c->max_step(cd));
    if (d.dtau < 0.0) a = std::min(a, -tau_ / d.dtau);
    if (d.dkappa < 0.0) a = std::min(a, -kappa_ / d.dkappa);
    return a;
  }
  static ConeDirection view(const Direction& d) { return {d.dx.data(), d.ds.data(), d.wdx.data(), d.wds.data()}; }
  // The largest step up to `alpha` after which every nonsymmetric cone is central enough
  // (steps shrink geometrically; 0 when none is found).
  double central_step(const Direction& d, double alpha, int32_t it, double widen) {
    if (!has_nonsym_) return alpha;
    const ConeDirection cd = view(d);
    for (int k = 0; k < kMaxBacktracks; ++k, alpha *= kBacktrack) {
      const double xs = dot(x_, s_) + alpha * (dot(x_, d.ds) + dot(d.dx, s_)) + alpha * alpha * dot(d.dx, d.ds);
      const double tk = (tau_ + alpha * d.dtau) * (kappa_ + alpha * d.dkappa);
      const double mu = (xs + tk) / (nu_ + 1.0);
      const char* rejected = nullptr;
      for (const auto& c : cones_)
        if (rejected == nullptr) rejected = c->step_rejected(x_.data(), s_.data(), cd, alpha, mu, widen);
      if (rejected == nullptr) return alpha;
      linalg::log_printf(sink_, 4, "%d: %s-cone centrality failed. alpha=%e\n", it, rejected, alpha);
    }
    return 0.0;
  }
  void resize(Direction& d) {
    for (Vec* v : {&d.dx, &d.ds, &d.wdx, &d.wds}) v->assign(n_, 0.0);
    d.dy.assign(m_, 0.0);
  }
  void log_line(int32_t it) {
    interior::IterationLine l;
    l.iter = it;
    l.pfeas = inf_norm(rp_);
    l.dfeas = inf_norm(rd_);
    l.gfeas = std::fabs(rg_);
    l.prstatus = (tau_ - kappa_) / (tau_ + kappa_);
    l.pobj = cx_ / tau_ + f_.obj_const;
    l.dobj = by_ / tau_ + f_.obj_const;
    l.mu = mu_;
    l.time = linalg::wall_seconds() - t0_;
    interior::log_iteration(sink_, l);
  }

  const ConicForm& f_;
  const interior::IpOptions& opt_;
  const linalg::LogSink* sink_;
  double t0_;
  size_t n_, m_;
  std::vector<std::unique_ptr<Cone>> cones_;
  bool has_nonsym_ = false;
  SchurSystem schur_;
  double nu_ = 0.0, delta_ = 1e-13;
  Vec x_, s_, y_;
  double tau_ = 1.0, kappa_ = 1.0;
  Vec rp_, rd_;
  double rg_ = 0.0, cx_ = 0.0, by_ = 0.0, mu_ = 0.0, den_ = 1.0;
  double norm_b_ = 0.0, norm_c_ = 0.0;
  Vec p_, xp_, q_, h_, t1_, t2_, rc_, tmp_m_, tmp_n_;
  Direction aff_, dir_, trial_;
  // Best iterate by the merit of infeasibility and gap, restored after a failed end.
  Vec bx_, bs_, by2_;
  double btau_ = 1.0, bkappa_ = 1.0, bmerit_ = INFINITY;
};

void Iteration::run(ConicResult& r) {
  x_.assign(n_, 0.0);
  s_.assign(n_, 0.0);
  y_.assign(m_, 0.0);
  for (const auto& c : cones_) {
    c->identity(x_.data());
    c->identity(s_.data());
  }
  for (Vec* v : {&rp_, &p_, &q_, &tmp_m_}) v->assign(m_, 0.0);
  for (Vec* v : {&rd_, &xp_, &h_, &t1_, &t2_, &rc_, &tmp_n_}) v->assign(n_, 0.0);
  resize(aff_);
  resize(dir_);
  if (has_nonsym_) resize(trial_);
  norm_b_ = inf_norm(f_.b);
  norm_c_ = inf_norm(f_.c);
  interior::log_iteration_header(sink_);
  Termination trm = Termination::kNormal;
  interior::TerminationOutcome pass;
  int32_t it = 0, short_steps = 0;
  for (;; ++it) {
    residuals();
    log_line(it);
    pass = test(0, 0);
    if (pass.passed) break;
    const double merit = std::max({inf_norm(rp_) / (1.0 + norm_b_), inf_norm(rd_) / (1.0 + norm_c_), mu_}) / tau_;
    if (merit < bmerit_) {
      bmerit_ = merit;
      bx_ = x_;
      bs_ = s_;
      by2_ = y_;
      btau_ = tau_;
      bkappa_ = kappa_;
    }
    trm = interior::run_limit(opt_, it, t0_);
    if (trm != Termination::kNormal) break;
    if (short_steps >= kStallSteps || (it > 0 && mu_ < 1e-300)) {
      linalg::log_printf(sink_, 1, "The optimizer is stalled with tau: %e and kappa: %e.\n", tau_, kappa_);
      trm = Termination::kStalled;
      break;
    }
    // Scaling, reduced system and the tau direction.
    bool ok = true;
    for (const auto& c : cones_) ok = ok && c->update_scaling(x_.data(), s_.data());
    if (!ok) {
      linalg::log_printf(sink_, 1, "UPDATE SDP FAILED.\n");
      trm = Termination::kNumericalInstability;
      break;
    }
    if (!factor()) {
      linalg::log_printf(sink_, 1, "%d: Search direction computation failed\n", it);
      trm = Termination::kFactorError;
      break;
    }
    hinv(f_.c, h_);
    a_mul(h_, p_);
    for (size_t i = 0; i < m_; ++i) p_[i] += f_.b[i];
    if (!msolve(p_)) {
      trm = Termination::kFactorError;
      break;
    }
    at_mul(p_, t1_);
    for (size_t j = 0; j < n_; ++j) t1_[j] -= f_.c[j];
    hinv(t1_, xp_);
    den_ = dot(f_.b, p_) - dot(f_.c, xp_) + kappa_ / tau_;
    // Predictor.
    for (const auto& c : cones_) c->complementarity_rhs(nullptr, 0.0, rc_.data(), t1_.data(), t2_.data());
    if (!direction(1.0, rc_, -tau_ * kappa_, aff_)) {
      linalg::log_printf(sink_, 1, "%d: Search direction computation failed\n", it);
      trm = Termination::kNumericalInstability;
      break;
    }
    const double aalpha = std::min(1.0, max_step(aff_));
    const double sigma = std::clamp(std::pow(1.0 - aalpha, 3.0), 0.0, 1.0);
    // Corrector: centring plus the second-order term. When the nonsymmetric cones' centrality
    // allows only a short step along it, the step is also computed with more centring, and the
    // one that reduces the complementarity most is taken.
    const ConeDirection aff = view(aff_);
    double alpha = 0.0, progress = -1.0;
    bool failed = false;
    // The candidates: the centring sigma, kMoreCentring, 1, and last kMoreCentring in a
    // neighbourhood widened by kWiden (a point on the edge of the neighbourhood from which no
    // direction re-enters it).
    for (int k = 0;; ++k) {
      const double sig = k == 0 ? sigma : (k == 2 ? 1.0 : std::max(sigma, kMoreCentring));
      const double widen = k == 3 ? kWiden : 1.0;
      for (const auto& c : cones_) c->complementarity_rhs(&aff, sig * mu_, rc_.data(), t1_.data(), t2_.data());
      const double r5 = -tau_ * kappa_ - aff_.dtau * aff_.dkappa + sig * mu_;
      // Without nonsymmetric cones there is one candidate, computed in place.
      Direction& cand = has_nonsym_ ? trial_ : dir_;
      if (!direction(1.0 - sig, rc_, r5, cand)) {
        failed = progress < 0.0;
        break;
      }
      const double full = std::min(1.0, 0.99 * max_step(cand));
      const double a = central_step(cand, full, it, widen);
      const double gain = a * (1.0 - sig) + (a > 0.0 ? 1e-12 : 0.0);
      if (gain > progress) {
        progress = gain;
        alpha = a;
        if (has_nonsym_) std::swap(dir_, trial_);
      }
      if (!has_nonsym_ || a >= kCentralShare * full || k == 3 || (k == 2 && alpha >= kStuck)) break;
      linalg::log_printf(sink_, 3, "%d: short step %e with sigma %e\n", it, a, sig);
    }
    if (failed) {
      linalg::log_printf(sink_, 1, "%d: Search direction computation failed\n", it);
      trm = Termination::kNumericalInstability;
      break;
    }
    if (!(alpha > 0.0)) {
      linalg::log_printf(sink_, 2, "Centrality error.\n");
      trm = Termination::kNumericalInstability;
      break;
    }
    short_steps = alpha < std::max(opt_.tol_step_size, kShortStep) ? short_steps + 1 : 0;
    for (size_t j = 0; j < n_; ++j) {
      x_[j] += alpha * dir_.dx[j];
      s_[j] += alpha * dir_.ds[j];
    }
    for (size_t i = 0; i < m_; ++i) y_[i] += alpha * dir_.dy[i];
    tau_ += alpha * dir_.dtau;
    kappa_ += alpha * dir_.dkappa;
    linalg::log_printf(sink_, 3, "sigma: %e aalpha: %e alpha: %e\n", sigma, aalpha, alpha);
  }
  if (!pass.passed && trm != Termination::kUserCallback && trm != Termination::kMaxTime &&
      trm != Termination::kMaxIterations) {
    // The tolerances times the near-optimal factor: such a point is reported as a solution
    // (or certificate), since no further progress is possible from it.
    const double near = std::max(1.0, opt_.tol_near_rel);
    linalg::log_printf(sink_, 2, "Stall: tau %e kappa %e |x| %e |s| %e |y| %e\n", tau_, kappa_, inf_norm(x_), inf_norm(s_), inf_norm(y_));
    pass = test(0, 0, near);
    if (!pass.passed && !bx_.empty()) {
      x_ = bx_;
      s_ = bs_;
      y_ = by2_;
      tau_ = btau_;
      kappa_ = bkappa_;
      residuals();
      pass = test(0, 0, near);
    }
    if (pass.passed) {
      linalg::log_printf(sink_, 1, "Normal termination in the stalled case.\n");
      trm = Termination::kNormal;
    }
  }
  r.iterations = it;
  r.termination = trm;
  r.problem_status = static_cast<interior::ProblemStatus>(pass.passed ? pass.problem_status : 0);
  r.solution_status = static_cast<interior::SolutionStatus>(pass.passed ? pass.solution_status : 0);
  r.primal_feas = inf_norm(rp_) / tau_ / (1.0 + norm_b_);
  r.dual_feas = inf_norm(rd_) / tau_ / (1.0 + norm_c_);
}

void run(const ConicProblem& p, const interior::IpOptions& opt, ConicResult& r, double t0) {
  const linalg::LogSink* sink = &opt.log;
  ConicForm f;
  std::string why;
  if (!build_conic_form(p, f, &why)) {
    linalg::log_printf(sink, 1, "Invalid problem data: %s.\n", why.c_str());
    r.termination = Termination::kModelError;
    return;
  }
  if (f.num_singleton_rows > 0)
    linalg::log_printf(sink, 2, "Presolve: %d rows with one entry became bounds.\n", f.num_singleton_rows);
  linalg::log_printf(sink, 2, "numcon        : %-8d numvar      : %-8d\n", f.m, f.n);
  int32_t num_q = 0, num_r = 0, num_exp = 0, num_pow = 0;
  for (int32_t t : p.cone_type) {
    const auto type = static_cast<ConeType>(t);
    num_q += type == ConeType::kQuad;
    num_r += type == ConeType::kRQuad;
    num_exp += type == ConeType::kPExp || type == ConeType::kDExp;
    num_pow += type == ConeType::kPPow || type == ConeType::kDPow;
  }
  linalg::log_printf(sink, 2, "numcone       : %-8d\n", static_cast<int>(p.cone_type.size()));
  linalg::log_printf(sink, 2, "Num. Q cones  : %-8d\n", num_q);
  linalg::log_printf(sink, 2, "Num. R cones  : %-8d\n", num_r);
  linalg::log_printf(sink, 2, "Num. EXP cones: %-8d\n", num_exp);
  linalg::log_printf(sink, 2, "Num. pow cones: %-8d\n", num_pow);
  Iteration iter(f, opt, t0);
  const linalg::Status st = iter.setup(r);
  if (st != linalg::Status::kOk) {
    linalg::log_printf(sink, 1, "Error while computing factorization. resp: %d\n", static_cast<int>(st));
    r.termination = st == linalg::Status::kOutOfSpace ? Termination::kOutOfSpace : Termination::kFactorError;
    return;
  }
  iter.run(r);
  const int32_t sol = static_cast<int32_t>(r.solution_status);
  const bool primal_ray = sol == 6 || sol == 13;  // dual infeasible: x is the ray
  const bool dual_ray = sol == 5 || sol == 12;    // primal infeasible: y, s form the ray
  const bool ray = primal_ray || dual_ray;
  const double div = ray ? 1.0 : std::max(iter.tau(), 1e-300);
  std::vector<double> x(iter.x()), s(iter.s()), y(iter.y());
  for (double& v : x) v = dual_ray ? 0.0 : v / div;
  for (double& v : s) v = primal_ray ? 0.0 : v / div;
  for (double& v : y) v = primal_ray ? 0.0 : v / div;
  const ConicPoint pt{x.data(), s.data(), y.data()};
  recover(p, f, pt, ray, r.sol);
}

}  // namespace

void solve_conic(const ConicProblem& problem, const interior::IpOptions& options, ConicResult& result) {
  const double t0 = linalg::wall_seconds();
  result = ConicResult();
  result.num_threads = options.num_threads;
  const int blas_threads = linalg::dense::blas_set_threads(std::max(1, options.num_threads));
  try {
    run(problem, options, result, t0);
  } catch (const std::bad_alloc&) {
    linalg::log_printf(&options.log, 1, "%s(%d). Out of space\n", "conic_solver.cpp", __LINE__);
    result.termination = Termination::kOutOfSpace;
  }
  if (blas_threads > 0) linalg::dense::blas_set_threads(blas_threads);
  result.time = linalg::wall_seconds() - t0;
}

}  // namespace qubor::conic
