// The exponential cone  K = cl{x : x1 >= x2 exp(x3 / x2), x2 > 0}  with the barrier
//   f(x) = -log(psi) - log x1 - log x2,   psi = x2 log(x1 / x2) - x3   (parameter 3),
// and its dual  K* = cl{s : s1 >= -s3 exp(s2 / s3 - 1), s3 < 0}.
#include <cmath>

#include "conic/cones/cone.h"

namespace qubor::conic {
namespace {

class ExpBarrier final : public Barrier {
 public:
  const char* name() const override { return "exp"; }
  int32_t dim() const override { return 3; }
  bool interior(const double* x) const override {
    if (!(x[0] > 0.0) || !(x[1] > 0.0)) return false;
    const double psi = x[1] * std::log(x[0] / x[1]) - x[2];
    return psi > 0.0 && std::isfinite(psi);
  }
  bool dual_interior(const double* s) const override {
    if (!(s[0] > 0.0) || !(s[2] < 0.0)) return false;
    const double t = std::log(s[0] / -s[2]) + 1.0 - s[1] / s[2];
    return t > 0.0 && std::isfinite(t);
  }
  void derivatives(const double* x, double* g, double* h) const override {
    const double x1 = x[0], x2 = x[1];
    const double l = std::log(x1 / x2);
    const double psi = x2 * l - x[2];
    const double dpsi[3] = {x2 / x1, l - 1.0, -1.0};
    if (g != nullptr) {
      g[0] = -dpsi[0] / psi - 1.0 / x1;
      g[1] = -dpsi[1] / psi - 1.0 / x2;
      g[2] = -dpsi[2] / psi;
    }
    if (h != nullptr) {
      const double p2 = 1.0 / (psi * psi);
      for (int a = 0; a < 3; ++a)
        for (int b = 0; b < 3; ++b) h[a + 3 * b] = dpsi[a] * dpsi[b] * p2;
      // - hess(psi) / psi, hess(psi) = [-x2/x1^2, 1/x1; 1/x1, -1/x2] on the first two members.
      h[0] += x2 / (x1 * x1) / psi + 1.0 / (x1 * x1);
      h[4] += 1.0 / (x2 * psi) + 1.0 / (x2 * x2);
      h[1] -= 1.0 / (x1 * psi);
      h[3] -= 1.0 / (x1 * psi);
    }
  }
  // With h = (x2 / x1, log(x1 / x2) - 1), the gradient of psi in (x1, x2), the Hessian is
  //   [P + a a', -a / psi; -a' / psi, 1 / psi^2],  a = h / psi,
  //   P = v v' / (x2 psi) + diag(1 / x1^2, 1 / x2^2),  v = (x2 / x1, -1),
  // whose inverse is  [Q, Q h; h'Q, psi^2 + h'Q h]  with
  //   Q = P^{-1} = [x1^2 (psi + x2), x1 x2^2; x1 x2^2, x2^2 (psi + x2)] / (psi + 2 x2),
  // a form with no cancellation however small psi is.
  bool inverse_hessian(const double* x, double* hi, double* /*work*/) const override {
    const double x1 = x[0], x2 = x[1];
    const double l = std::log(x1 / x2);
    const double psi = x2 * l - x[2];
    if (!(psi > 0.0) || !(x1 > 0.0) || !(x2 > 0.0)) return false;
    const double den = psi + 2.0 * x2;
    const double q11 = x1 * x1 * (psi + x2) / den, q12 = x1 * x2 * x2 / den, q22 = x2 * x2 * (psi + x2) / den;
    const double h1 = x2 / x1, h2 = l - 1.0;
    const double qh1 = q11 * h1 + q12 * h2, qh2 = q12 * h1 + q22 * h2;
    hi[0] = q11;
    hi[1] = q12;
    hi[2] = qh1;
    hi[3] = q12;
    hi[4] = q22;
    hi[5] = qh2;
    hi[6] = qh1;
    hi[7] = qh2;
    hi[8] = psi * psi + h1 * qh1 + h2 * qh2;
    return true;
  }
  void central_point(double* x) const override {
    // x = -grad f(x) by Newton's method on x + g(x) = 0 from a close guess.
    x[0] = 1.2909;
    x[1] = 0.8051;
    x[2] = -0.8278;
    double g[3], h[9];
    for (int it = 0; it < 20; ++it) {
      derivatives(x, g, h);
      double r[3] = {x[0] + g[0], x[1] + g[1], x[2] + g[2]};
      for (int a = 0; a < 3; ++a) h[a + 3 * a] += 1.0;
      // 3x3 solve by Cramer's rule (I + H is well conditioned here).
      const double det = h[0] * (h[4] * h[8] - h[7] * h[5]) - h[3] * (h[1] * h[8] - h[7] * h[2]) +
                         h[6] * (h[1] * h[5] - h[4] * h[2]);
      double d[3];
      for (int c = 0; c < 3; ++c) {
        double m[9];
        for (int k = 0; k < 9; ++k) m[k] = h[k];
        for (int a = 0; a < 3; ++a) m[a + 3 * c] = r[a];
        d[c] = (m[0] * (m[4] * m[8] - m[7] * m[5]) - m[3] * (m[1] * m[8] - m[7] * m[2]) +
                m[6] * (m[1] * m[5] - m[4] * m[2])) /
               det;
      }
      for (int a = 0; a < 3; ++a) x[a] -= d[a];
      if (std::fabs(d[0]) + std::fabs(d[1]) + std::fabs(d[2]) < 1e-15) break;
    }
  }
};

}  // namespace

std::unique_ptr<Barrier> make_exp_barrier() { return std::make_unique<ExpBarrier>(); }

}  // namespace qubor::conic
