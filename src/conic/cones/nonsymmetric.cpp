// Exponential and power cones (the nonsymmetric kinds) with a primal-dual scaling.
//
// At an interior pair (x, s) of one cone with barrier f (parameter nu) let mu = x's / nu and
// s~ = -grad f(x). The scaling H is the secant (BFGS) update of mu hess f(x) by the pair (x, s):
//   H = mu hess f(x) + s s' / (x's) - (mu s~)(mu s~)' / (mu nu),   H x = s,
// which is mu hess f(x) on the central path (s = mu s~) and positive definite off it. Only its
// inverse is formed (see scale_one), from the barrier's inverse Hessian, which the kinds give in
// closed form where the Hessian is too ill-conditioned to invert.
//
// The complementarity's right-hand sides are -s (predictor) and -s + sigma mu s~ (corrector),
// with the overall mu. Two refinements were measured on the process-synthesis models and left
// out: a second-order term (the third derivative of f along the affine direction) in the
// corrector raised the median iteration count from 37 to 46, and a second secant pair through
// the shadow point -grad f*(s) loses its accuracy near the end (its inverse update cancels).
//
// A step is accepted when every cone stays near the central path: its complementarity x's / nu
// is at least kMinShare of the overall mu, and the proximity
//   || s / mu + grad f(x) ||_{hess f(x)^{-1}}
// is below kMaxProximity (the optimizer widens both bounds for a step that nothing else lets
// through).
#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "conic/cones/cone.h"

namespace qubor::conic {
namespace {

constexpr double kMinShare = 1e-2;
constexpr double kMaxProximity = 0.95;

// In-place Cholesky of a dense n x n (column-major, lower) matrix after a symmetric scaling to
// a unit diagonal: A = D^{-1} L L' D^{-1}, with d = diag(D). False when A is not positive
// definite.
bool cholesky(double* a, int32_t n, double* d) {
  for (int32_t j = 0; j < n; ++j) {
    const double v = a[j + n * j];
    if (!(v > 0.0) || !std::isfinite(v)) return false;
    d[j] = 1.0 / std::sqrt(v);
  }
  for (int32_t j = 0; j < n; ++j)
    for (int32_t i = j; i < n; ++i) a[i + n * j] *= d[i] * d[j];
  for (int32_t j = 0; j < n; ++j) {
    double p = a[j + n * j];
    for (int32_t k = 0; k < j; ++k) p -= a[j + n * k] * a[j + n * k];
    if (!(p > 0.0) || !std::isfinite(p)) return false;
    p = std::sqrt(p);
    a[j + n * j] = p;
    for (int32_t i = j + 1; i < n; ++i) {
      double v = a[i + n * j];
      for (int32_t k = 0; k < j; ++k) v -= a[i + n * k] * a[j + n * k];
      a[i + n * j] = v / p;
    }
  }
  return true;
}

// The same for a matrix that is positive definite in exact arithmetic but whose rounding can
// spoil it: the diagonal is raised by growing relative amounts until the factorization
// succeeds. `work` (n x n) receives a copy of the matrix.
bool cholesky_regularized(double* a, int32_t n, double* d, double* work) {
  const size_t nn = static_cast<size_t>(n) * static_cast<size_t>(n);
  std::copy(a, a + nn, work);
  if (cholesky(a, n, d)) return true;
  for (double delta = 1e-15; delta < 1e-5; delta *= 100.0) {
    std::copy(work, work + nn, a);
    for (int32_t j = 0; j < n; ++j) a[j + n * j] *= 1.0 + delta;
    if (cholesky(a, n, d)) return true;
  }
  return false;
}

// x = A^{-1} x = D (L L')^{-1} D x.
void chol_solve(const double* l, const double* d, int32_t n, double* x) {
  for (int32_t i = 0; i < n; ++i) x[i] *= d[i];
  for (int32_t i = 0; i < n; ++i) {
    double v = x[i];
    for (int32_t k = 0; k < i; ++k) v -= l[i + n * k] * x[k];
    x[i] = v / l[i + n * i];
  }
  for (int32_t i = n - 1; i >= 0; --i) {
    double v = x[i];
    for (int32_t k = i + 1; k < n; ++k) v -= l[k + n * i] * x[k];
    x[i] = v / l[i + n * i];
  }
  for (int32_t i = 0; i < n; ++i) x[i] *= d[i];
}

double dotn(const double* a, const double* b, int32_t n) {
  double t = 0.0;
  for (int32_t i = 0; i < n; ++i) t += a[i] * b[i];
  return t;
}

// y = A x for a dense n x n A.
void matvec(const double* a, int32_t n, const double* x, double* y) {
  for (int32_t i = 0; i < n; ++i) y[i] = 0.0;
  for (int32_t j = 0; j < n; ++j)
    for (int32_t i = 0; i < n; ++i) y[i] += a[i + n * j] * x[j];
}

class NonsymmetricCones final : public Cone {
 public:
  NonsymmetricCones(int64_t begin, const std::vector<NonsymSpec>& specs, int32_t first_small)
      : Cone(begin, end_of(begin, specs)), first_small_(first_small) {
    int64_t at = begin, voff = 0, moff = 0;
    int32_t nmax = 0;
    for (const NonsymSpec& sp : specs) {
      Item it;
      it.barrier = sp.kind == NonsymSpec::kExp ? make_exp_barrier() : make_pow_barrier(sp.dim, sp.alpha);
      it.n = sp.dim;
      it.col = at;
      it.voff = voff;
      it.moff = moff;
      at += sp.dim;
      voff += sp.dim;
      moff += static_cast<int64_t>(sp.dim) * sp.dim;
      nmax = std::max(nmax, sp.dim);
      deg_ += it.barrier->degree();
      items_.push_back(std::move(it));
    }
    for (auto* v : {&x_, &s_, &g_}) v->assign(static_cast<size_t>(voff), 0.0);
    for (auto* v : {&hfi_, &hinv_, &lhinv_}) v->assign(static_cast<size_t>(moff), 0.0);
    const size_t nm = static_cast<size_t>(nmax), nn = nm * nm;
    for (auto* v : {&w1_, &w2_, &w3_, &w4_, &w5_, &w6_}) v->assign(nm, 0.0);
    for (auto* v : {&m1_, &m2_}) v->assign(nn, 0.0);
    hw_.assign(nm * (2 * nm + 1), 0.0);
  }
  const char* name() const override { return "nonsym"; }
  double degree() const override { return deg_; }
  void identity(double* x) const override {
    for (const Item& it : items_) it.barrier->central_point(x + it.col);
  }
  bool update_scaling(const double* x, const double* s) override {
    for (const Item& it : items_)
      if (!scale_one(it, x + it.col, s + it.col)) return false;
    return true;
  }
  void scale_x(const double* dx, double* out) const override { std::copy(dx + begin(), dx + end(), out + begin()); }
  void scale_s(const double* ds, double* out) const override { std::copy(ds + begin(), ds + end(), out + begin()); }
  // L L' z with the factor the reduced system uses, so that the directions satisfy its
  // equations to the accuracy of its solves.
  void apply_hinv(const double* z, double* out) const override {
    for (const Item& it : items_) {
      const int32_t n = it.n;
      const double* l = lhinv_.data() + it.moff;
      const double* zk = z + it.col;
      double* o = out + it.col;
      double* t = w6_.data();
      for (int32_t c = 0; c < n; ++c) {
        double v = 0.0;
        for (int32_t r = c; r < n; ++r) v += l[r + n * c] * zk[r];
        t[c] = v;
      }
      for (int32_t r = 0; r < n; ++r) {
        double v = 0.0;
        for (int32_t c = 0; c <= r; ++c) v += l[r + n * c] * t[c];
        o[r] = v;
      }
    }
  }
  void complementarity_rhs(const ConeDirection* aff, double sigma_mu, double* r4, double* /*w1*/,
                           double* /*w2*/) const override {
    const double target = aff == nullptr ? 0.0 : sigma_mu;
    for (const Item& it : items_) {
      const double* s = s_.data() + it.voff;
      const double* g = g_.data() + it.voff;
      double* r = r4 + it.col;
      for (int32_t i = 0; i < it.n; ++i) r[i] = -s[i] - target * g[i];
    }
  }
  double max_step(const ConeDirection& d) const override {
    // Bisection on the membership of x + a dx and s + a ds, up to a little beyond a full step
    // (the optimizer takes at most a full step, and a fraction of the boundary step).
    constexpr double kCap = 1.02;
    double alpha = std::numeric_limits<double>::infinity();
    for (const Item& it : items_) {
      const double* x = x_.data() + it.voff;
      const double* s = s_.data() + it.voff;
      auto inside = [&](double a) {
        double* xp = w3_.data();
        double* sp = w4_.data();
        for (int32_t i = 0; i < it.n; ++i) {
          xp[i] = x[i] + a * d.dx[it.col + i];
          sp[i] = s[i] + a * d.ds[it.col + i];
        }
        return it.barrier->interior(xp) && it.barrier->dual_interior(sp);
      };
      const double top = std::min(kCap, alpha);
      if (inside(top)) continue;
      double lo = 0.0, hi = top;
      for (int k = 0; k < 40 && hi - lo > 1e-6 * hi; ++k) {
        const double mid = 0.5 * (lo + hi);
        (inside(mid) ? lo : hi) = mid;
      }
      alpha = std::min(alpha, lo);
    }
    return alpha;
  }
  const char* step_rejected(const double* x, const double* s, const ConeDirection& d, double a, double mu,
                            double widen) const override {
    for (const Item& it : items_) {
      const int32_t n = it.n;
      double* xp = w3_.data();
      double* sp = w4_.data();
      for (int32_t i = 0; i < n; ++i) {
        xp[i] = x[it.col + i] + a * d.dx[it.col + i];
        sp[i] = s[it.col + i] + a * d.ds[it.col + i];
      }
      if (!it.barrier->interior(xp) || !it.barrier->dual_interior(sp)) return it.barrier->name();
      if (!(dotn(xp, sp, n) / it.barrier->degree() >= kMinShare * mu / widen)) return it.barrier->name();
      double* g = w5_.data();
      it.barrier->derivatives(xp, g, nullptr);
      if (!it.barrier->inverse_hessian(xp, m1_.data(), hw_.data())) return it.barrier->name();
      double* psi = w6_.data();
      for (int32_t i = 0; i < n; ++i) psi[i] = sp[i] / mu + g[i];
      matvec(m1_.data(), n, psi, w1_.data());
      if (!(dotn(psi, w1_.data(), n) < kMaxProximity * kMaxProximity * widen * widen)) return it.barrier->name();
    }
    return nullptr;
  }
  double interior_margin(const double* x) const override {
    for (const Item& it : items_)
      if (!it.barrier->interior(x + it.col)) return 0.0;
    return 1.0;
  }
  void schur_terms(SchurTerms& terms) const override {
    for (size_t k = 0; k < items_.size(); ++k) {
      const Item& it = items_[k];
      for (int32_t i = 0; i < it.n; ++i) terms.set_weight(it.col + i, 0.0);
      const double* l = lhinv_.data() + it.moff;
      for (int32_t i = 0; i < it.n; ++i)
        terms.add_outer(first_small_ + static_cast<int32_t>(k), i, l + static_cast<size_t>(it.n) * static_cast<size_t>(i), 1.0);
    }
  }

 private:
  struct Item {
    std::unique_ptr<Barrier> barrier;
    int32_t n = 3;
    int64_t col = 0, voff = 0, moff = 0;
  };
  static int64_t end_of(int64_t begin, const std::vector<NonsymSpec>& specs) {
    for (const NonsymSpec& sp : specs) begin += sp.dim;
    return begin;
  }

  // With d = s - mu s~ the update reads  H = mu hess f(x) + (s~ d' + d s~') / nu + d d' / (nu mu),
  // free of the cancellation of its two large rank-one terms. By Sherman-Morrison-Woodbury, with
  // G = hess f(x)^{-1}, G s~ = x (logarithmic homogeneity), x'd = 0 and e = G d:
  //   H^{-1} = G / mu + (d'e) x x' / (nu^2 mu^3) - (x e' + e x') / (nu mu^2).
  bool scale_one(const Item& it, const double* x, const double* s) {
    const int32_t n = it.n;
    const size_t nn = static_cast<size_t>(n) * static_cast<size_t>(n);
    const Barrier& b = *it.barrier;
    if (!b.interior(x) || !b.dual_interior(s)) return false;
    double* g = g_.data() + it.voff;
    double* hfi = hfi_.data() + it.moff;
    std::copy(x, x + n, x_.data() + it.voff);
    std::copy(s, s + n, s_.data() + it.voff);
    const double nu = b.degree();
    const double mu = dotn(x, s, n) / nu;
    if (!(mu > 0.0)) return false;
    b.derivatives(x, g, nullptr);
    if (!b.inverse_hessian(x, hfi, hw_.data())) return false;
    double* d = w1_.data();
    double* e = w2_.data();
    for (int32_t i = 0; i < n; ++i) d[i] = s[i] + mu * g[i];
    matvec(hfi, n, d, e);
    const double c1 = dotn(d, e, n) / (nu * nu * mu * mu * mu), c2 = 1.0 / (nu * mu * mu);
    double* hinv = hinv_.data() + it.moff;
    for (int32_t c = 0; c < n; ++c)
      for (int32_t r = 0; r < n; ++r)
        hinv[r + n * c] = hfi[r + n * c] / mu + c1 * x[r] * x[c] - c2 * (x[r] * e[c] + e[r] * x[c]);
    // Its Cholesky factor: the reduced system's terms.
    double* l = lhinv_.data() + it.moff;
    double* dl = w5_.data();
    std::copy(hinv, hinv + nn, l);
    if (!cholesky_regularized(l, n, dl, m2_.data())) return false;
    for (int32_t c = 0; c < n; ++c)
      for (int32_t r = 0; r < n; ++r) l[r + n * c] = r < c ? 0.0 : l[r + n * c] / dl[r];
    return true;
  }

  int32_t first_small_ = 0;
  double deg_ = 0.0;
  std::vector<Item> items_;
  std::vector<double> x_, s_, g_;      // per cone: the point and grad f(x)
  std::vector<double> hfi_;            // hess f(x)^{-1}
  std::vector<double> hinv_, lhinv_;   // H^{-1} and its Cholesky factor
  mutable std::vector<double> w1_, w2_, w3_, w4_, w5_, w6_, m1_, m2_;
  mutable std::vector<double> hw_;     // the barriers' inverse-Hessian workspace
};

}  // namespace

bool Barrier::inverse_hessian(const double* x, double* hi, double* work) const {
  const int32_t n = dim();
  const size_t un = static_cast<size_t>(n);
  double* h = work;
  double* copy = work + un * un;
  double* d = copy + un * un;
  derivatives(x, nullptr, h);
  if (!cholesky_regularized(h, n, d, copy)) return false;
  for (int32_t c = 0; c < n; ++c) {
    double* col = hi + un * static_cast<size_t>(c);
    for (int32_t r = 0; r < n; ++r) col[r] = r == c ? 1.0 : 0.0;
    chol_solve(h, d, n, col);
  }
  return true;
}

std::unique_ptr<Cone> make_nonsym_cones(int64_t begin, const std::vector<NonsymSpec>& specs, int32_t first_small) {
  return std::make_unique<NonsymmetricCones>(begin, specs, first_small);
}

}  // namespace qubor::conic
