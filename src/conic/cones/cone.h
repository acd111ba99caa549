// The cones of the conic interior point, behind one interface.
//
// The optimizer iterates on  x in K = K_1 x ... x K_p  and  s in the dual cone K*, and keeps
// per cone a scaling H (positive definite) with  H x = s, through which the linearised
// complementarity reads  ds + H dx = r4. The symmetric kinds use the Nesterov-Todd scaling
// (see SymmetricCone); the nonsymmetric kinds a primal-dual scaling built from the barrier
// Hessian by a secant update that also maps the dual's shadow point onto the primal's.
// One record holds every cone of one kind (its columns are a contiguous range of x); vectors
// passed to the methods are full-length arrays indexed by column, and each record reads and
// writes only its own range. Scaled vectors have the same layout as x (svec for matrices).
//
// Kinds: the nonnegative orthant (linear columns), the quadratic cone (rotated cones are
// mapped onto it by the internal form), the semidefinite cone (packed lower triangle,
// off-diagonal entries scaled by sqrt(2) so that the inner product is the trace product), and
// the exponential and power cones (dual cones are mapped onto them by the internal form).
// make_cones() is the one place that lists them.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

namespace qubor::conic {

// A search direction's parts that the cone records read.
struct ConeDirection {
  const double* dx;
  const double* ds;
  const double* wdx;  // W dx (symmetric kinds)
  const double* wds;  // W^{-T} ds
};

class Cone {
 public:
  Cone(int64_t begin, int64_t end) : begin_(begin), end_(end) {}
  virtual ~Cone() = default;
  virtual const char* name() const = 0;
  int64_t begin() const { return begin_; }
  int64_t end() const { return end_; }
  // Sum of the barrier parameters of the record's cones: their share of the complementarity
  // degree.
  virtual double degree() const = 0;
  // The starting point on the record's range (x = s on the central path at mu = 1).
  virtual void identity(double* x) const = 0;
  // Computes the scaling H at the interior point (x, s); false when a point is not interior.
  virtual bool update_scaling(const double* x, const double* s) = 0;
  virtual void scale_x(const double* dx, double* out) const = 0;     // W dx
  virtual void scale_s(const double* ds, double* out) const = 0;     // W^{-T} ds
  virtual void apply_hinv(const double* z, double* out) const = 0;   // H^{-1} z
  // r4 of the linearised complementarity  ds + H dx = r4: the predictor's when aff is null,
  // else the corrector's with centring sigma_mu and the second-order term of the affine
  // direction. w1, w2: full-length scratch.
  virtual void complementarity_rhs(const ConeDirection* aff, double sigma_mu, double* r4, double* w1,
                                   double* w2) const = 0;
  // Largest a with x + a dx and s + a ds in the cones (infinity when unbounded).
  virtual double max_step(const ConeDirection& d) const = 0;
  // Whether the point x + a dx, s + a ds is central enough for a step, where mu is the new
  // point's complementarity and `widen` >= 1 widens the neighbourhood: null when it is, else
  // the name of the kind of cone that is not. The symmetric kinds need no such test.
  virtual const char* step_rejected(const double* /*x*/, const double* /*s*/, const ConeDirection& /*d*/,
                                    double /*a*/, double /*mu*/, double /*widen*/) const {
    return nullptr;
  }
  // Smallest "eigenvalue" of x on the record's range: x_j, x0 - ||x1||, lambda_min(X).
  virtual double interior_margin(const double* x) const = 0;
  // The record's share of the reduced matrix A H^{-1} A' (see SchurTerms).
  virtual void schur_terms(class SchurTerms& terms) const = 0;

 private:
  int64_t begin_, end_;
};

// The symmetric kinds: a Nesterov-Todd scaling W with W x = W^{-T} s = lambda (the scaled
// point) and H = W'W, so that lambda o (W dx + W^{-T} ds) = r gives ds = W'(lambda \ r) - H dx.
class SymmetricCone : public Cone {
 public:
  using Cone::Cone;
  // out += a e.
  virtual void add_identity(double* out, double a) const = 0;
  virtual void lambda(double* out) const = 0;
  virtual void apply_wt(const double* z, double* out) const = 0;   // W' z
  virtual void jordan(const double* u, const double* v, double* out) const = 0;  // u o v
  // out = lambda o lambda (w: scratch).
  virtual void lambda_square(double* out, double* w) const {
    lambda(w);
    jordan(w, w, out);
  }
  virtual void divide_lambda(const double* r, double* out) const = 0;  // lambda \ r
  // Largest a with lambda + a d in the cone (infinity when unbounded); d is scaled.
  virtual double max_step_scaled(const double* d) const = 0;

  // r = -lambda o lambda [- W dx_a o W^{-T} ds_a + sigma mu e],  r4 = W'(lambda \ r).
  void complementarity_rhs(const ConeDirection* aff, double sigma_mu, double* r4, double* w1,
                           double* w2) const override;
  double max_step(const ConeDirection& d) const override;
};

// The barrier f of a nonsymmetric cone (exponential or power): what the primal-dual scaling
// and the centrality test need. Hessians are dense, column-major, dim x dim.
class Barrier {
 public:
  virtual ~Barrier() = default;
  virtual const char* name() const = 0;
  virtual int32_t dim() const = 0;
  virtual double degree() const { return 3.0; }
  virtual bool interior(const double* x) const = 0;        // x in the open cone
  virtual bool dual_interior(const double* s) const = 0;   // s in the open dual cone
  // g = grad f(x), h = Hessian of f at x (either may be null).
  virtual void derivatives(const double* x, double* g, double* h) const = 0;
  // hi = the inverse Hessian of f at x. Near the boundary the Hessian is dominated by one
  // rank-one term and inverting it loses most digits: a kind with a closed form overrides
  // this (the default factors the Hessian in `work`, of inverse_work_size() entries). False
  // when it cannot be formed.
  virtual bool inverse_hessian(const double* x, double* hi, double* work) const;
  size_t inverse_work_size() const { return static_cast<size_t>(dim()) * static_cast<size_t>(2 * dim() + 1); }
  // The point x = -grad f(x).
  virtual void central_point(double* x) const = 0;
};

std::unique_ptr<Barrier> make_exp_barrier();
std::unique_ptr<Barrier> make_pow_barrier(int32_t dim, double alpha);

// What a cone record hands to the reduced system: H^{-1} restricted to the record is
//   sum_j weight_j e_j e_j'  +  sum_k sum_o outer_ko v_ko v_ko'  (+ the matrix blocks W (.) W),
// with v_ko supported on small cone k: a quadratic cone (one term) or a nonsymmetric cone
// (one term per member: the columns of a factor of its dense H^{-1}).
class SchurTerms {
 public:
  virtual ~SchurTerms() = default;
  virtual void set_weight(int64_t col, double weight) = 0;
  // Term `slot` of small cone `cone` (quadratic cones first, then the nonsymmetric ones):
  // weight * v v' over its columns (v[i] for its i-th member).
  virtual void add_outer(int32_t cone, int32_t slot, const double* v, double weight) = 0;
  // The operator U -> W U W of semidefinite block `block` (W: d x d, column-major).
  virtual void set_psd_scaling(int32_t block, const double* w) = 0;
};

// A nonsymmetric cone of the layout.
struct NonsymSpec {
  enum Kind : int32_t { kExp = 0, kPow = 1 } kind = kExp;
  int32_t dim = 3;
  double alpha = 0.5;  // power cones
};

// Layout of the internal columns:
//   [nonneg | quadratic cones | nonsymmetric cones | semidefinite blocks].
struct ConeLayout {
  int32_t num_nonneg = 0;
  std::vector<int32_t> soc_dim;      // in column order after the nonnegative range
  std::vector<NonsymSpec> nonsym;    // after the quadratic cones
  std::vector<int32_t> psd_dim;      // matrix dimensions, after the nonsymmetric cones
  int64_t soc_begin() const { return num_nonneg; }
  int64_t nonsym_begin() const;
  int64_t psd_begin() const;
  int64_t num_cols() const;
};

std::unique_ptr<Cone> make_nonneg_cone(int64_t begin, int64_t n);
std::unique_ptr<Cone> make_soc_cones(int64_t begin, const std::vector<int32_t>& dims);
std::unique_ptr<Cone> make_psd_cones(int64_t begin, const std::vector<int32_t>& dims);
// `first_small`: the index of the first of these cones among the small cones of SchurTerms.
std::unique_ptr<Cone> make_nonsym_cones(int64_t begin, const std::vector<NonsymSpec>& specs, int32_t first_small);

// Every kind present in the layout, in column order.
std::vector<std::unique_ptr<Cone>> make_cones(const ConeLayout& layout);

// Packed (svec) length of a d x d symmetric matrix and the position of entry (r, c), r >= c,
// in the column-by-column lower triangle.
inline int64_t svec_len(int64_t d) { return d * (d + 1) / 2; }
inline int64_t svec_pos(int64_t d, int64_t r, int64_t c) { return c * d - c * (c - 1) / 2 + (r - c); }

}  // namespace qubor::conic
