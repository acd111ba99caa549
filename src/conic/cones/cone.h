// The cones of the conic interior point, behind one interface.
//
// The optimizer iterates on  x, s  in  K = K_1 x ... x K_p  (s in the dual cone, which is K
// itself for every kind here) and keeps, per kind, a Nesterov-Todd scaling W with
//   W x = W^{-T} s = lambda  (the scaled point),   H = W'W,
// so that the linearised complementarity  lambda o (W dx + W^{-T} ds) = r  gives
//   ds = W'(lambda \ r) - H dx.
// One record holds every cone of one kind (its columns are a contiguous range of x); vectors
// passed to the methods are full-length arrays indexed by column, and each record reads and
// writes only its own range. Scaled vectors have the same layout as x (svec for matrices).
//
// Kinds: the nonnegative orthant (linear columns), the quadratic cone (rotated cones are
// mapped onto it by the internal form) and the semidefinite cone (packed lower triangle,
// off-diagonal entries scaled by sqrt(2) so that the inner product is the trace product).
// make_cones() is the one place that lists them.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

namespace qubor::conic {

class Cone {
 public:
  virtual ~Cone() = default;
  virtual const char* name() const = 0;
  // Sum of e'e over the cones of the record: their share of the complementarity degree.
  virtual double degree() const = 0;
  // x = e on the record's range.
  virtual void identity(double* x) const = 0;
  // out += a e.
  virtual void add_identity(double* out, double a) const = 0;
  // Computes W and lambda at the interior point (x, s); false when a point is not interior.
  virtual bool update_scaling(const double* x, const double* s) = 0;
  virtual void lambda(double* out) const = 0;
  virtual void scale_x(const double* dx, double* out) const = 0;     // W dx
  virtual void scale_s(const double* ds, double* out) const = 0;     // W^{-T} ds
  virtual void apply_wt(const double* z, double* out) const = 0;     // W' z
  virtual void apply_hinv(const double* z, double* out) const = 0;   // H^{-1} z
  virtual void jordan(const double* u, const double* v, double* out) const = 0;  // u o v
  virtual void divide_lambda(const double* r, double* out) const = 0;  // lambda \ r
  // Largest a with lambda + a d in the cone (infinity when unbounded); d is scaled.
  virtual double max_step(const double* d) const = 0;
  // Smallest "eigenvalue" of x on the record's range: x_j, x0 - ||x1||, lambda_min(X).
  virtual double interior_margin(const double* x) const = 0;
  // The record's share of the reduced matrix A H^{-1} A' (see SchurTerms).
  virtual void schur_terms(class SchurTerms& terms) const = 0;
};

// What a cone record hands to the reduced system: H^{-1} restricted to the record is
//   sum_j weight_j e_j e_j'  +  sum_k outer_k v_k v_k'  (+ the matrix blocks W (.) W),
// with v_k supported on quadratic cone k.
class SchurTerms {
 public:
  virtual ~SchurTerms() = default;
  virtual void set_weight(int64_t col, double weight) = 0;
  // weight * v v' over the columns of quadratic cone `cone` (v[i] for its i-th member).
  virtual void add_outer(int32_t cone, const double* v, double weight) = 0;
  // The operator U -> W U W of semidefinite block `block` (W: d x d, column-major).
  virtual void set_psd_scaling(int32_t block, const double* w) = 0;
};

// Layout of the internal columns: [nonneg | quadratic cones | semidefinite blocks].
struct ConeLayout {
  int32_t num_nonneg = 0;
  std::vector<int32_t> soc_dim;   // in column order after the nonnegative range
  std::vector<int32_t> psd_dim;   // matrix dimensions, after the quadratic cones
  int64_t soc_begin() const { return num_nonneg; }
  int64_t psd_begin() const;
  int64_t num_cols() const;
};

std::unique_ptr<Cone> make_nonneg_cone(int64_t begin, int64_t n);
std::unique_ptr<Cone> make_soc_cones(int64_t begin, const std::vector<int32_t>& dims);
std::unique_ptr<Cone> make_psd_cones(int64_t begin, const std::vector<int32_t>& dims);

// Every kind present in the layout, in column order.
std::vector<std::unique_ptr<Cone>> make_cones(const ConeLayout& layout);

// Packed (svec) length of a d x d symmetric matrix and the position of entry (r, c), r >= c,
// in the column-by-column lower triangle.
inline int64_t svec_len(int64_t d) { return d * (d + 1) / 2; }
inline int64_t svec_pos(int64_t d, int64_t r, int64_t c) { return c * d - c * (c - 1) / 2 + (r - c); }

}  // namespace qubor::conic
