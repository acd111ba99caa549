// Quadratic cones x0 >= ||x1|| with the Nesterov-Todd scaling
//   W = eta Wbar,  Wbar = [w0  w1'; w1  I + w1 w1' / (1 + w0)],  wbar'J wbar = 1,
//   eta = (s'Js / x'Jx)^(1/4),  wbar = (sbar + J xbar) / (2 gamma),
// where xbar, sbar are x, s normalised to x'Jx = s'Js = 1 and gamma^2 = (1 + xbar's) / 2.
// Then H^{-1} = W^{-2} = eta^{-2} (2 v v' - J) with v = J wbar. The Jordan product is
// u o v = (u'v, u0 v1 + v0 u1) and e = (1, 0, ..., 0).
#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

#include "conic/cones/cone.h"

namespace qubor::conic {
namespace {

// (x0 - ||x1||)(x0 + ||x1||), computed without cancellation; negative outside the cone.
double jnorm2(const double* x, int32_t n) {
  double t = 0.0;
  for (int32_t k = 1; k < n; ++k) t += x[k] * x[k];
  const double r = std::sqrt(t);
  return (x[0] - r) * (x[0] + r);
}

class QuadraticCones final : public SymmetricCone {
 public:
  QuadraticCones(int64_t begin, const std::vector<int32_t>& dims)
      : SymmetricCone(begin, begin + std::accumulate(dims.begin(), dims.end(), int64_t{0})), dims_(dims) {
    int64_t at = begin;
    for (int32_t d : dims) {
      start_.push_back(at);
      at += d;
    }
    b_ = begin;
    e_ = at;
    eta_.assign(dims.size(), 1.0);
    w_.assign(static_cast<size_t>(e_ - b_), 0.0);
    lam_.assign(static_cast<size_t>(e_ - b_), 0.0);
    v_.assign(static_cast<size_t>(e_ - b_), 0.0);
  }
  const char* name() const override { return "quad"; }
  double degree() const override { return static_cast<double>(dims_.size()); }
  void identity(double* x) const override {
    for (size_t k = 0; k < dims_.size(); ++k) {
      double* xk = x + start_[k];
      xk[0] = 1.0;
      for (int32_t i = 1; i < dims_[k]; ++i) xk[i] = 0.0;
    }
  }
  void add_identity(double* out, double a) const override {
    for (int64_t s : start_) out[s] += a;
  }
  bool update_scaling(const double* x, const double* s) override {
    for (size_t k = 0; k < dims_.size(); ++k) {
      const int32_t n = dims_[k];
      const double* xk = x + start_[k];
      const double* sk = s + start_[k];
      const double xr = jnorm2(xk, n), sr = jnorm2(sk, n);
      if (!(xr > 0.0) || !(sr > 0.0) || !(xk[0] > 0.0) || !(sk[0] > 0.0)) return false;
      const double xs = 1.0 / std::sqrt(xr), ss = 1.0 / std::sqrt(sr);
      double dot = 0.0;
      for (int32_t i = 0; i < n; ++i) dot += xk[i] * sk[i];
      const double gamma = std::sqrt(std::max((1.0 + dot * xs * ss) / 2.0, 1e-300));
      double* w = wbar(k);
      w[0] = (sk[0] * ss + xk[0] * xs) / (2.0 * gamma);
      for (int32_t i = 1; i < n; ++i) w[i] = (sk[i] * ss - xk[i] * xs) / (2.0 * gamma);
      eta_[k] = std::sqrt(std::sqrt(sr / xr));
      apply_wbar(k, xk, lam_.data() + (start_[k] - b_), eta_[k], false);
    }
    return true;
  }
  void lambda(double* out) const override {
    std::copy(lam_.begin(), lam_.end(), out + b_);
  }
  void scale_x(const double* dx, double* out) const override {
    for (size_t k = 0; k < dims_.size(); ++k) apply_wbar(k, dx + start_[k], out + start_[k], eta_[k], false);
  }
  void scale_s(const double* ds, double* out) const override {
    for (size_t k = 0; k < dims_.size(); ++k)
      apply_wbar(k, ds + start_[k], out + start_[k], 1.0 / eta_[k], true);
  }
  void apply_wt(const double* z, double* out) const override { scale_x(z, out); }
  void apply_hinv(const double* z, double* out) const override {
    // eta^{-2} (2 v v' - J) z with v = J wbar.
    for (size_t k = 0; k < dims_.size(); ++k) {
      const int32_t n = dims_[k];
      const double* w = wbar(k);
      const double* zk = z + start_[k];
      double* ok = out + start_[k];
      double vz = w[0] * zk[0];
      for (int32_t i = 1; i < n; ++i) vz -= w[i] * zk[i];
      const double f = 1.0 / (eta_[k] * eta_[k]);
      ok[0] = f * (2.0 * vz * w[0] - zk[0]);
      for (int32_t i = 1; i < n; ++i) ok[i] = f * (-2.0 * vz * w[i] + zk[i]);
    }
  }
  void jordan(const double* u, const double* v, double* out) const override {
    for (size_t k = 0; k < dims_.size(); ++k) {
      const int32_t n = dims_[k];
      const double* uk = u + start_[k];
      const double* vk = v + start_[k];
      double* ok = out + start_[k];
      double dot = 0.0;
      for (int32_t i = 0; i < n; ++i) dot += uk[i] * vk[i];
      const double u0 = uk[0], v0 = vk[0];
      for (int32_t i = 1; i < n; ++i) ok[i] = u0 * vk[i] + v0 * uk[i];
      ok[0] = dot;
    }
  }
  void divide_lambda(const double* r, double* out) const override {
    for (size_t k = 0; k < dims_.size(); ++k) {
      const int32_t n = dims_[k];
      const double* l = lam_.data() + (start_[k] - b_);
      const double* rk = r + start_[k];
      double* ok = out + start_[k];
      const double det = jnorm2(l, n);
      double l1r1 = 0.0;
      for (int32_t i = 1; i < n; ++i) l1r1 += l[i] * rk[i];
      const double z0 = (l[0] * rk[0] - l1r1) / det;
      for (int32_t i = 1; i < n; ++i) ok[i] = (rk[i] - z0 * l[i]) / l[0];
      ok[0] = z0;
    }
  }
  double max_step_scaled(const double* d) const override {
    double alpha = std::numeric_limits<double>::infinity();
    for (size_t k = 0; k < dims_.size(); ++k) {
      const int32_t n = dims_[k];
      const double* l = lam_.data() + (start_[k] - b_);
      const double* dk = d + start_[k];
      // f(a) = c + 2 b a + q a^2 with c = l'Jl > 0; the first positive root, if any.
      const double c = jnorm2(l, n);
      double b = l[0] * dk[0], q = dk[0] * dk[0];
      for (int32_t i = 1; i < n; ++i) {
        b -= l[i] * dk[i];
        q -= dk[i] * dk[i];
      }
      const double disc = b * b - q * c;
      if (q < 0.0 || (b < 0.0 && disc >= 0.0)) {
        const double den = -b + std::sqrt(std::max(disc, 0.0));
        if (den > 0.0) alpha = std::min(alpha, c / den);
      }
    }
    return alpha;
  }
  double interior_margin(const double* x) const override {
    double m = std::numeric_limits<double>::infinity();
    for (size_t k = 0; k < dims_.size(); ++k) {
      const double* xk = x + start_[k];
      double t = 0.0;
      for (int32_t i = 1; i < dims_[k]; ++i) t += xk[i] * xk[i];
      m = std::min(m, xk[0] - std::sqrt(t));
    }
    return m;
  }
  void schur_terms(SchurTerms& terms) const override {
    for (size_t k = 0; k < dims_.size(); ++k) {
      const int32_t n = dims_[k];
      const double f = 1.0 / (eta_[k] * eta_[k]);
      const int64_t s = start_[k];
      terms.set_weight(s, -f);
      for (int32_t i = 1; i < n; ++i) terms.set_weight(s + i, f);
      double* v = v_.data() + (start_[k] - b_);
      const double* w = wbar(k);
      v[0] = w[0];
      for (int32_t i = 1; i < n; ++i) v[i] = -w[i];
      terms.add_outer(static_cast<int32_t>(k), 0, v, 2.0 * f);
    }
  }

 private:
  double* wbar(size_t k) { return w_.data() + (start_[k] - b_); }
  const double* wbar(size_t k) const { return w_.data() + (start_[k] - b_); }
  // out = f Wbar u, or f Wbar^{-1} u when `inverse` (Wbar^{-1} = J Wbar J).
  void apply_wbar(size_t k, const double* u, double* out, double f, bool inverse) const {
    const int32_t n = dims_[k];
    const double* w = wbar(k);
    double w1u1 = 0.0;
    for (int32_t i = 1; i < n; ++i) w1u1 += w[i] * u[i];
    const double u0 = inverse ? -u[0] : u[0];
    const double coef = u0 + w1u1 / (1.0 + w[0]);
    const double o0 = w[0] * u0 + w1u1;
    for (int32_t i = 1; i < n; ++i) out[i] = f * (u[i] + coef * w[i]);
    out[0] = f * (inverse ? -o0 : o0);
  }

  std::vector<int32_t> dims_;
  std::vector<int64_t> start_;
  int64_t b_ = 0, e_ = 0;
  std::vector<double> eta_, w_, lam_;
  mutable std::vector<double> v_;  // J wbar, handed to the reduced system
};

}  // namespace

std::unique_ptr<Cone> make_soc_cones(int64_t begin, const std::vector<int32_t>& dims) {
  return std::make_unique<QuadraticCones>(begin, dims);
}

}  // namespace qubor::conic
