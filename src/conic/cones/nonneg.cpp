// The nonnegative orthant: W = diag(sqrt(s / x)), lambda = sqrt(x s).
#include <algorithm>
#include <cmath>
#include <limits>

#include "conic/cones/cone.h"

namespace qubor::conic {
namespace {

class NonnegCone final : public SymmetricCone {
 public:
  NonnegCone(int64_t begin, int64_t n) : SymmetricCone(begin, begin + n), b_(begin), e_(begin + n), w_(n), lam_(n) {}
  const char* name() const override { return "linear"; }
  double degree() const override { return static_cast<double>(e_ - b_); }
  void identity(double* x) const override {
    for (int64_t j = b_; j < e_; ++j) x[j] = 1.0;
  }
  void add_identity(double* out, double a) const override {
    for (int64_t j = b_; j < e_; ++j) out[j] += a;
  }
  bool update_scaling(const double* x, const double* s) override {
    for (int64_t j = b_; j < e_; ++j) {
      if (!(x[j] > 0.0) || !(s[j] > 0.0)) return false;
      w_[j - b_] = std::sqrt(s[j] / x[j]);
      lam_[j - b_] = std::sqrt(x[j] * s[j]);
    }
    return true;
  }
  void lambda(double* out) const override {
    for (int64_t j = b_; j < e_; ++j) out[j] = lam_[j - b_];
  }
  void scale_x(const double* dx, double* out) const override {
    for (int64_t j = b_; j < e_; ++j) out[j] = w_[j - b_] * dx[j];
  }
  void scale_s(const double* ds, double* out) const override {
    for (int64_t j = b_; j < e_; ++j) out[j] = ds[j] / w_[j - b_];
  }
  void apply_wt(const double* z, double* out) const override { scale_x(z, out); }
  void apply_hinv(const double* z, double* out) const override {
    for (int64_t j = b_; j < e_; ++j) {
      const double w = w_[j - b_];
      out[j] = z[j] / (w * w);
    }
  }
  void jordan(const double* u, const double* v, double* out) const override {
    for (int64_t j = b_; j < e_; ++j) out[j] = u[j] * v[j];
  }
  void divide_lambda(const double* r, double* out) const override {
    for (int64_t j = b_; j < e_; ++j) out[j] = r[j] / lam_[j - b_];
  }
  double max_step_scaled(const double* d) const override {
    double a = std::numeric_limits<double>::infinity();
    for (int64_t j = b_; j < e_; ++j)
      if (d[j] < 0.0) a = std::min(a, -lam_[j - b_] / d[j]);
    return a;
  }
  double interior_margin(const double* x) const override {
    double m = std::numeric_limits<double>::infinity();
    for (int64_t j = b_; j < e_; ++j) m = std::min(m, x[j]);
    return m;
  }
  void schur_terms(SchurTerms& terms) const override {
    for (int64_t j = b_; j < e_; ++j) {
      const double w = w_[j - b_];
      terms.set_weight(j, 1.0 / (w * w));
    }
  }

 private:
  int64_t b_, e_;
  std::vector<double> w_, lam_;
};

}  // namespace

std::unique_ptr<Cone> make_nonneg_cone(int64_t begin, int64_t n) {
  return std::make_unique<NonnegCone>(begin, n);
}

}  // namespace qubor::conic
