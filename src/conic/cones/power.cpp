// The power cone with parameter a in (0, 1) and members (x1, x2, z):
//   K = {x : x1^a x2^(1-a) >= ||z||, x1, x2 >= 0},
// with the barrier (parameter 3)
//   f(x) = -log(phi) - (1 - a) log x1 - a log x2,   phi = x1^(2a) x2^(2-2a) - ||z||^2,
// and its dual  K* = {s : (s1 / a)^a (s2 / (1 - a))^(1-a) >= ||s_z||, s1, s2 >= 0}.
// phi is formed as (r - ||z||)(r + ||z||) with r = x1^a x2^(1-a), free of cancellation.
#include <cmath>
#include <vector>

#include "conic/cones/cone.h"

namespace qubor::conic {
namespace {

class PowBarrier final : public Barrier {
 public:
  PowBarrier(int32_t dim, double alpha) : n_(dim), a_(alpha) {}
  const char* name() const override { return "pow"; }
  int32_t dim() const override { return n_; }
  bool interior(const double* x) const override {
    if (!(x[0] > 0.0) || !(x[1] > 0.0)) return false;
    const double r = std::exp(a_ * std::log(x[0]) + (1.0 - a_) * std::log(x[1]));
    return r > znorm(x) && std::isfinite(r);
  }
  bool dual_interior(const double* s) const override {
    if (!(s[0] > 0.0) || !(s[1] > 0.0)) return false;
    const double r = std::exp(a_ * std::log(s[0] / a_) + (1.0 - a_) * std::log(s[1] / (1.0 - a_)));
    return r > znorm(s) && std::isfinite(r);
  }
  void derivatives(const double* x, double* g, double* h) const override {
    const double a = a_, x1 = x[0], x2 = x[1];
    const double r = std::exp(a * std::log(x1) + (1.0 - a) * std::log(x2));
    const double nz = znorm(x);
    const double phi = (r - nz) * (r + nz);
    const double p = r * r;
    // grad phi = (2a p / x1, 2(1-a) p / x2, -2z).
    const double d1 = 2.0 * a * p / x1, d2 = 2.0 * (1.0 - a) * p / x2;
    if (g != nullptr) {
      g[0] = -d1 / phi - (1.0 - a) / x1;
      g[1] = -d2 / phi - a / x2;
      for (int32_t i = 2; i < n_; ++i) g[i] = 2.0 * x[i] / phi;
    }
    if (h != nullptr) {
      const size_t n = static_cast<size_t>(n_);
      const double ip = 1.0 / phi, ip2 = ip * ip;
      auto dphi = [&](int32_t i) { return i == 0 ? d1 : (i == 1 ? d2 : -2.0 * x[i]); };
      for (int32_t b = 0; b < n_; ++b)
        for (int32_t c = 0; c < n_; ++c) h[static_cast<size_t>(c) + n * static_cast<size_t>(b)] = dphi(b) * dphi(c) * ip2;
      // - hess(phi) / phi.
      h[0] -= 2.0 * a * (2.0 * a - 1.0) * p / (x1 * x1) * ip;
      h[1 + n] -= 2.0 * (1.0 - a) * (1.0 - 2.0 * a) * p / (x2 * x2) * ip;
      const double off = 4.0 * a * (1.0 - a) * p / (x1 * x2) * ip;
      h[1] -= off;
      h[n] -= off;
      for (size_t i = 2; i < n; ++i) h[i + n * i] += 2.0 * ip;
      h[0] += (1.0 - a) / (x1 * x1);
      h[1 + n] += a / (x2 * x2);
    }
  }
  void central_point(double* x) const override {
    x[0] = std::sqrt(1.0 + a_);
    x[1] = std::sqrt(2.0 - a_);
    for (int32_t i = 2; i < n_; ++i) x[i] = 0.0;
  }

 private:
  double znorm(const double* x) const {
    double t = 0.0;
    for (int32_t i = 2; i < n_; ++i) t += x[i] * x[i];
    return std::sqrt(t);
  }
  int32_t n_;
  double a_;
};

}  // namespace

std::unique_ptr<Barrier> make_pow_barrier(int32_t dim, double alpha) {
  return std::make_unique<PowBarrier>(dim, alpha);
}

}  // namespace qubor::conic
