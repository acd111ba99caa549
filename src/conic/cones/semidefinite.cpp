// Semidefinite blocks with the Nesterov-Todd scaling. For X = Lx Lx', S = Ls Ls' and the SVD
// Ls' Lx = U Sigma V':
//   R = Lx V Sigma^{-1/2},  R^{-1} = Sigma^{-1/2} U' Ls',  R^{-1} X R^{-T} = R' S R = Sigma,
// so lambda = diag(Sigma), W dX = R^{-1} dX R^{-T}, W^{-T} dS = R' dS R, and
// H^{-1} U = Wm U Wm with Wm = R R' (Wm S Wm = X). The Jordan product is (UV + VU) / 2.
// Matrices are column-major d x d; vectors are svec (lower triangle by columns, off-diagonal
// entries times sqrt(2)).
#include <lapacke.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "conic/cones/cone.h"
#include "linalg/dense/dense_kernels.h"

namespace qubor::conic {
namespace {

constexpr double kSqrt2 = 1.4142135623730951;

void unpack(int32_t d, const double* v, double* m) {
  int64_t p = 0;
  for (int32_t c = 0; c < d; ++c) {
    m[c + static_cast<int64_t>(c) * d] = v[p++];
    for (int32_t r = c + 1; r < d; ++r, ++p) {
      const double x = v[p] / kSqrt2;
      m[r + static_cast<int64_t>(c) * d] = x;
      m[c + static_cast<int64_t>(r) * d] = x;
    }
  }
}

// svec of the symmetric part of m.
void pack(int32_t d, const double* m, double* v) {
  int64_t p = 0;
  for (int32_t c = 0; c < d; ++c) {
    v[p++] = m[c + static_cast<int64_t>(c) * d];
    for (int32_t r = c + 1; r < d; ++r, ++p)
      v[p] = (m[r + static_cast<int64_t>(c) * d] + m[c + static_cast<int64_t>(r) * d]) / kSqrt2;
  }
}

struct Block {
  int32_t d = 0;
  int64_t start = 0;
  std::vector<double> r, rinv, wm, lam;
};

int64_t end_of(int64_t begin, const std::vector<int32_t>& dims) {
  for (int32_t d : dims) begin += svec_len(d);
  return begin;
}

class SemidefiniteCones final : public SymmetricCone {
 public:
  SemidefiniteCones(int64_t begin, const std::vector<int32_t>& dims) : SymmetricCone(begin, end_of(begin, dims)) {
    int64_t at = begin;
    int32_t dmax = 0;
    for (int32_t d : dims) {
      Block b;
      b.d = d;
      b.start = at;
      const size_t dd = static_cast<size_t>(d) * static_cast<size_t>(d);
      b.r.assign(dd, 0.0);
      b.rinv.assign(dd, 0.0);
      b.wm.assign(dd, 0.0);
      b.lam.assign(static_cast<size_t>(d), 1.0);
      blocks_.push_back(std::move(b));
      at += svec_len(d);
      dmax = std::max(dmax, d);
      deg_ += d;
    }
    const size_t dd = static_cast<size_t>(dmax) * static_cast<size_t>(dmax);
    for (auto* w : {&w1_, &w2_, &w3_, &w4_}) w->assign(dd, 0.0);
    ev_.assign(static_cast<size_t>(dmax), 0.0);
    isuppz_.assign(2 * static_cast<size_t>(std::max(dmax, 1)), 0);
  }
  const char* name() const override { return "sdp"; }
  double degree() const override { return deg_; }
  void identity(double* x) const override {
    for (const Block& b : blocks_) {
      std::fill(x + b.start, x + b.start + svec_len(b.d), 0.0);
      for (int32_t c = 0; c < b.d; ++c) x[b.start + svec_pos(b.d, c, c)] = 1.0;
    }
  }
  void add_identity(double* out, double a) const override {
    for (const Block& b : blocks_)
      for (int32_t c = 0; c < b.d; ++c) out[b.start + svec_pos(b.d, c, c)] += a;
  }
  bool update_scaling(const double* x, const double* s) override {
    for (Block& b : blocks_) {
      const int32_t d = b.d;
      double* lx = w1_.data();
      double* ls = w2_.data();
      unpack(d, x + b.start, lx);
      unpack(d, s + b.start, ls);
      if (LAPACKE_dpotrf_work(LAPACK_COL_MAJOR, 'L', d, lx, d) != 0) return false;
      if (LAPACKE_dpotrf_work(LAPACK_COL_MAJOR, 'L', d, ls, d) != 0) return false;
      zero_upper(d, lx);
      zero_upper(d, ls);
      // B = Ls' Lx, then its SVD B = U Sigma V' (U in w3, V' in w4).
      double* bm = b.wm.data();
      linalg::dense::gemm_tn(stats_, d, d, d, 1.0, ls, d, lx, d, 0.0, bm, d);
      std::vector<double>& sig = b.lam;
      if (LAPACKE_dgesdd(LAPACK_COL_MAJOR, 'A', d, d, bm, d, sig.data(), w3_.data(), d, w4_.data(), d) != 0)
        return false;
      for (int32_t i = 0; i < d; ++i)
        if (!(sig[static_cast<size_t>(i)] > 0.0) || !std::isfinite(sig[static_cast<size_t>(i)])) return false;
      // R = Lx V Sigma^{-1/2}: Lx (V')' then scale columns.
      linalg::dense::gemm_nt(stats_, d, d, d, 1.0, lx, d, w4_.data(), d, 0.0, b.r.data(), d);
      // R^{-1} = Sigma^{-1/2} U' Ls': (Ls U)' with rows scaled.
      linalg::dense::gemm_nn(stats_, d, d, d, 1.0, ls, d, w3_.data(), d, 0.0, w1_.data(), d);
      for (int32_t i = 0; i < d; ++i) {
        const double f = 1.0 / std::sqrt(sig[static_cast<size_t>(i)]);
        for (int32_t r = 0; r < d; ++r) {
          b.r[r + static_cast<size_t>(i) * d] *= f;
          b.rinv[i + static_cast<size_t>(r) * d] = f * w1_[r + static_cast<size_t>(i) * d];
        }
      }
      linalg::dense::gemm_nt(stats_, d, d, d, 1.0, b.r.data(), d, b.r.data(), d, 0.0, b.wm.data(), d);
    }
    return true;
  }
  void lambda(double* out) const override {
    for (const Block& b : blocks_) {
      std::fill(out + b.start, out + b.start + svec_len(b.d), 0.0);
      for (int32_t c = 0; c < b.d; ++c) out[b.start + svec_pos(b.d, c, c)] = b.lam[static_cast<size_t>(c)];
    }
  }
  // out = svec(P U P'), or svec(P' U P) when `trans`.
  void congruence(const Block& b, const double* p, bool trans, const double* u, double* out) const {
    const int32_t d = b.d;
    unpack(d, u + b.start, w1_.data());
    if (!trans) {
      linalg::dense::gemm_nn(stats_, d, d, d, 1.0, p, d, w1_.data(), d, 0.0, w2_.data(), d);
      linalg::dense::gemm_nt(stats_, d, d, d, 1.0, w2_.data(), d, p, d, 0.0, w3_.data(), d);
    } else {
      linalg::dense::gemm_tn(stats_, d, d, d, 1.0, p, d, w1_.data(), d, 0.0, w2_.data(), d);
      linalg::dense::gemm_nn(stats_, d, d, d, 1.0, w2_.data(), d, p, d, 0.0, w3_.data(), d);
    }
    pack(d, w3_.data(), out + b.start);
  }
  void scale_x(const double* dx, double* out) const override {
    for (const Block& b : blocks_) congruence(b, b.rinv.data(), false, dx, out);
  }
  void scale_s(const double* ds, double* out) const override {
    for (const Block& b : blocks_) congruence(b, b.r.data(), true, ds, out);
  }
  void apply_wt(const double* z, double* out) const override {
    for (const Block& b : blocks_) congruence(b, b.rinv.data(), true, z, out);
  }
  void apply_hinv(const double* z, double* out) const override {
    for (const Block& b : blocks_) congruence(b, b.wm.data(), false, z, out);
  }
  void lambda_square(double* out, double* /*w*/) const override {
    for (const Block& b : blocks_) {
      std::fill(out + b.start, out + b.start + svec_len(b.d), 0.0);
      for (int32_t c = 0; c < b.d; ++c) {
        const double l = b.lam[static_cast<size_t>(c)];
        out[b.start + svec_pos(b.d, c, c)] = l * l;
      }
    }
  }
  void jordan(const double* u, const double* v, double* out) const override {
    for (const Block& b : blocks_) {
      const int32_t d = b.d;
      unpack(d, u + b.start, w1_.data());
      unpack(d, v + b.start, w2_.data());
      linalg::dense::gemm_nn(stats_, d, d, d, 1.0, w1_.data(), d, w2_.data(), d, 0.0, w3_.data(), d);
      pack(d, w3_.data(), out + b.start);  // pack symmetrises: (UV + VU) / 2
    }
  }
  void divide_lambda(const double* r, double* out) const override {
    for (const Block& b : blocks_) {
      int64_t p = b.start;
      for (int32_t c = 0; c < b.d; ++c)
        for (int32_t i = c; i < b.d; ++i, ++p)
          out[p] = 2.0 * r[p] / (b.lam[static_cast<size_t>(i)] + b.lam[static_cast<size_t>(c)]);
    }
  }
  double max_step_scaled(const double* dvec) const override {
    double alpha = std::numeric_limits<double>::infinity();
    for (const Block& b : blocks_) {
      const int32_t d = b.d;
      double* m = w1_.data();
      unpack(d, dvec + b.start, m);
      for (int32_t c = 0; c < d; ++c)
        for (int32_t r = 0; r < d; ++r)
          m[r + static_cast<size_t>(c) * d] /=
              std::sqrt(b.lam[static_cast<size_t>(r)] * b.lam[static_cast<size_t>(c)]);
      const double emin = min_eigenvalue(d, m);
      if (emin < 0.0) alpha = std::min(alpha, -1.0 / emin);
    }
    return alpha;
  }
  double interior_margin(const double* x) const override {
    double m = std::numeric_limits<double>::infinity();
    for (const Block& b : blocks_) {
      unpack(b.d, x + b.start, w1_.data());
      m = std::min(m, min_eigenvalue(b.d, w1_.data()));
    }
    return m;
  }
  void schur_terms(SchurTerms& terms) const override {
    for (size_t k = 0; k < blocks_.size(); ++k) terms.set_psd_scaling(static_cast<int32_t>(k), blocks_[k].wm.data());
  }

 private:
  static void zero_upper(int32_t d, double* m) {
    for (int32_t c = 1; c < d; ++c)
      for (int32_t r = 0; r < c; ++r) m[r + static_cast<size_t>(c) * d] = 0.0;
  }
  // Smallest eigenvalue of the symmetric m (destroyed); NaN input gives -infinity.
  double min_eigenvalue(int32_t d, double* m) const {
    lapack_int found = 0;
    if (LAPACKE_dsyevr(LAPACK_COL_MAJOR, 'N', 'I', 'L', d, m, d, 0.0, 0.0, 1, 1, 0.0, &found,
                       ev_.data(), nullptr, 1, isuppz_.data()) != 0 ||
        found < 1 || !std::isfinite(ev_[0]))
      return -std::numeric_limits<double>::infinity();
    return ev_[0];
  }

  std::vector<Block> blocks_;
  double deg_ = 0.0;
  mutable std::vector<double> w1_, w2_, w3_, w4_, ev_;
  mutable std::vector<lapack_int> isuppz_;
  mutable linalg::DenseStats stats_;
};

}  // namespace

std::unique_ptr<Cone> make_psd_cones(int64_t begin, const std::vector<int32_t>& dims) {
  return std::make_unique<SemidefiniteCones>(begin, dims);
}

}  // namespace qubor::conic
