// The nonsymmetric cones' kernels: barrier derivatives against finite differences, membership
// of the cone and its dual, the central point, and the primal-dual scaling's identities
// (H x = s and H x~ = s~ with x~ = -grad f*(s)), near the centre and near the boundary.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <random>
#include <vector>

#include "conic/cones/cone.h"

namespace qubor::conic {
namespace {

struct Case {
  const char* what;
  NonsymSpec spec;
};

std::unique_ptr<Barrier> barrier_of(const NonsymSpec& sp) {
  return sp.kind == NonsymSpec::kExp ? make_exp_barrier() : make_pow_barrier(sp.dim, sp.alpha);
}

std::vector<Case> cases() {
  NonsymSpec e;
  NonsymSpec p3{NonsymSpec::kPow, 3, 0.3};
  NonsymSpec p5{NonsymSpec::kPow, 5, 0.5};
  NonsymSpec pedge{NonsymSpec::kPow, 3, 0.02};
  return {{"exp", e}, {"pow3", p3}, {"pow5", p5}, {"pow-small-a", pedge}};
}

// A random interior point: the central point moved along a random direction to a fraction of
// the way to the boundary.
std::vector<double> interior_point(const Barrier& b, std::mt19937& rng, double fraction, bool dual) {
  const int32_t n = b.dim();
  std::vector<double> c(static_cast<size_t>(n)), d(static_cast<size_t>(n)), x(static_cast<size_t>(n));
  b.central_point(c.data());
  std::normal_distribution<double> nd;
  for (double& v : d) v = nd(rng);
  auto inside = [&](double a) {
    for (int32_t i = 0; i < n; ++i) x[static_cast<size_t>(i)] = c[static_cast<size_t>(i)] + a * d[static_cast<size_t>(i)];
    return dual ? b.dual_interior(x.data()) : b.interior(x.data());
  };
  double hi = 1.0;
  while (inside(hi) && hi < 1e6) hi *= 2.0;
  double lo = 0.0;
  for (int k = 0; k < 60; ++k) ((inside(0.5 * (lo + hi))) ? lo : hi) = 0.5 * (lo + hi);
  inside(fraction * lo);
  const double scale = std::exp(nd(rng));
  for (double& v : x) v *= scale;
  return x;
}

TEST(NonsymmetricBarrier, CentralPointAndDerivatives) {
  std::mt19937 rng(7);
  for (const Case& cs : cases()) {
    SCOPED_TRACE(cs.what);
    auto b = barrier_of(cs.spec);
    const int32_t n = b->dim();
    const size_t un = static_cast<size_t>(n);
    std::vector<double> c(un), g(un), h(un * un), gp(un), gm(un), xp(un);
    b->central_point(c.data());
    ASSERT_TRUE(b->interior(c.data()));
    ASSERT_TRUE(b->dual_interior(c.data()));
    b->derivatives(c.data(), g.data(), nullptr);
    for (size_t i = 0; i < un; ++i) EXPECT_NEAR(c[i], -g[i], 1e-12);
    for (double fraction : {0.5, 0.999}) {
      const std::vector<double> x = interior_point(*b, rng, fraction, false);
      ASSERT_TRUE(b->interior(x.data()));
      b->derivatives(x.data(), g.data(), h.data());
      // Logarithmic homogeneity: g'x = -nu and H x = -g.
      double gx = 0.0;
      for (size_t i = 0; i < un; ++i) gx += g[i] * x[i];
      EXPECT_NEAR(gx, -b->degree(), 1e-9 * b->degree());
      for (size_t i = 0; i < un; ++i) {
        double hx = 0.0;
        for (size_t j = 0; j < un; ++j) hx += h[i + un * j] * x[j];
        EXPECT_NEAR(hx, -g[i], 1e-7 * (1.0 + std::fabs(g[i])));
      }
      // The inverse Hessian (a closed form for some kinds) times the Hessian is the identity.
      std::vector<double> hi(un * un);
      std::vector<double> work(b->inverse_work_size());
      ASSERT_TRUE(b->inverse_hessian(x.data(), hi.data(), work.data()));
      for (size_t i = 0; i < un; ++i)
        for (size_t j = 0; j < un; ++j) {
          double v = 0.0;
          for (size_t k = 0; k < un; ++k) v += hi[i + un * k] * h[k + un * j];
          EXPECT_NEAR(v, i == j ? 1.0 : 0.0, 1e-6) << "inverse Hessian " << i << "," << j;
        }
      // Hessian columns against central differences of the gradient.
      for (size_t j = 0; j < un; ++j) {
        const double t = 1e-6 * std::max(std::fabs(x[j]), 1e-3) * (1.0 - fraction + 1e-3);
        xp = x;
        xp[j] += t;
        b->derivatives(xp.data(), gp.data(), nullptr);
        xp[j] -= 2.0 * t;
        b->derivatives(xp.data(), gm.data(), nullptr);
        for (size_t i = 0; i < un; ++i) {
          const double fd = (gp[i] - gm[i]) / (2.0 * t);
          EXPECT_NEAR(h[i + un * j], fd, 1e-4 * (std::fabs(fd) + std::fabs(h[i + un * i]) * 1e-3 + 1e-8))
              << "entry " << i << "," << j;
        }
      }
    }
  }
}

// The cone record's scaling: H^{-1} s = x, H^{-1} positive definite (its factor reproduces
// it), and on the central path (s = -mu grad f(x)) H = mu hess f(x), near the centre and
// near the boundary.
TEST(NonsymmetricScaling, SecantIdentities) {
  std::mt19937 rng(11);
  for (const Case& cs : cases()) {
    SCOPED_TRACE(cs.what);
    auto b = barrier_of(cs.spec);
    const size_t un = static_cast<size_t>(b->dim());
    auto cone = make_nonsym_cones(0, {cs.spec}, 0);
    for (int trial = 0; trial < 20; ++trial) {
      const double fraction = trial % 2 == 0 ? 0.6 : 0.999;
      const std::vector<double> x = interior_point(*b, rng, fraction, false);
      const std::vector<double> s = interior_point(*b, rng, fraction, true);
      ASSERT_TRUE(cone->update_scaling(x.data(), s.data()));
      std::vector<double> hs(un), e(un), he(un);
      cone->apply_hinv(s.data(), hs.data());
      for (size_t i = 0; i < un; ++i) EXPECT_NEAR(hs[i], x[i], 1e-7 * (1.0 + std::fabs(x[i]))) << "H^{-1} s = x, " << i;
      for (size_t k = 0; k < un; ++k) {
        std::fill(e.begin(), e.end(), 0.0);
        e[k] = 1.0;
        cone->apply_hinv(e.data(), he.data());
        EXPECT_GT(he[k], 0.0);
      }
      // On the central path through x with mu = 2: s = -2 grad f(x), H^{-1} = hess f(x)^{-1} / 2.
      std::vector<double> g(un), hi(un * un);
      b->derivatives(x.data(), g.data(), nullptr);
      std::vector<double> work(b->inverse_work_size());
      ASSERT_TRUE(b->inverse_hessian(x.data(), hi.data(), work.data()));
      std::vector<double> sc(un);
      for (size_t i = 0; i < un; ++i) sc[i] = -2.0 * g[i];
      ASSERT_TRUE(cone->update_scaling(x.data(), sc.data()));
      for (size_t k = 0; k < un; ++k) {
        std::fill(e.begin(), e.end(), 0.0);
        e[k] = 1.0;
        cone->apply_hinv(e.data(), he.data());
        for (size_t i = 0; i < un; ++i)
          EXPECT_NEAR(he[i], hi[i + un * k] / 2.0, 1e-8 * (1.0 + std::fabs(hi[k + un * k]))) << i << "," << k;
      }
    }
  }
}

TEST(NonsymmetricCone, StepToBoundary) {
  for (const Case& cs : cases()) {
    SCOPED_TRACE(cs.what);
    auto b = barrier_of(cs.spec);
    const size_t un = static_cast<size_t>(b->dim());
    auto cone = make_nonsym_cones(0, {cs.spec}, 0);
    std::vector<double> x(un), s(un);
    cone->identity(x.data());
    cone->identity(s.data());
    ASSERT_TRUE(cone->update_scaling(x.data(), s.data()));
    // Towards -x: the boundary is reached at a = 1 (the apex); towards +x never.
    std::vector<double> dx(un), ds(un, 0.0);
    for (size_t i = 0; i < un; ++i) dx[i] = -x[i];
    const ConeDirection d{dx.data(), ds.data(), dx.data(), ds.data()};
    EXPECT_NEAR(cone->max_step(d), 1.0, 1e-5);
    for (size_t i = 0; i < un; ++i) dx[i] = 0.5 * x[i];
    EXPECT_TRUE(std::isinf(cone->max_step(d)));
  }
}

}  // namespace
}  // namespace qubor::conic
