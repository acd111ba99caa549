// The reduced Newton system of the homogeneous method, behind one interface.
//
// With the diagonal d >= 0 of the eliminated complementarity blocks, the primal
// regularization reg > 0 and the dual regularization delta >= 0, every direction solves
//   -(Q + D) dx + A'dy = rx,      D = diag(d + reg),
//        A dx + delta dy = ry,
// where Q is the quadratic objective of the internal form (0 for a linear problem).
// Implementations: the normal equations (NormalEquations: A (Q + D)^{-1} A' + delta I, for a
// diagonal Q) and the augmented quasidefinite system (AugmentedSystem: the whole matrix,
// factored as L D L' with static regularization and refined iteratively against the system
// without reg, so that the regularization does not perturb the directions).
#pragma once

#include <cstdint>
#include <vector>

#include "linalg/cholesky/sparse_cholesky.h"
#include "linalg/common/status.h"

namespace qubor::interior {

struct RefineStats {
  int32_t steps = 0;
  double residual = 0.0;  // relative residual after the last step
};

class KktSolver {
 public:
  virtual ~KktSolver() = default;
  // Forms and factors the system for d and reg (n entries each) and delta.
  virtual linalg::Status factorize(const std::vector<double>& d, const std::vector<double>& reg,
                                   double delta) = 0;
  // Solves for dx (n) and dy (m); max_refine < 0 means automatic.
  virtual linalg::Status solve_kkt(const std::vector<double>& rx, const std::vector<double>& ry,
                                   std::vector<double>& dx, std::vector<double>& dy,
                                   int32_t max_refine, RefineStats* stats) = 0;
  // Columns kept out of the factor and handled by a low-rank update; putting them back in is
  // the first cure of inaccurate directions.
  virtual int32_t num_dense() const = 0;
  virtual linalg::Status drop_dense_handling() = 0;
  virtual int32_t num_perturbed() const = 0;
  // Flops of one factorization and of one solve.
  virtual double factor_flops() const = 0;
  virtual double solve_flops() const = 0;
  // For the factor summary of the log.
  virtual const linalg::SparseCholesky& cholesky() const = 0;
  virtual double setup_time() const = 0;
  virtual double dense_detect_time() const = 0;
  virtual int64_t nnz_matrix() const = 0;
};

// The ordering of the reduced system's factor from the optimizer's order_method option.
linalg::OrderMethod order_method_from_option(int32_t v);

}  // namespace qubor::interior
