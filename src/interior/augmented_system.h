// The augmented (quasidefinite) system of the homogeneous method:
//
//   K = [ -(Q + D)   A'              ]     x block: n columns, pivots negative
//       [    A       (delta + r) I   ]     y block: m rows, pivots positive
//
// Q + D is positive definite and the lower right block is positive, so K is quasidefinite
// and has an L D L' factor for any symmetric ordering ("Symmetric quasi-definite matrices",
// SIAM J. Optim. 5, 1995); the pivot signs are known in advance. The static dual
// regularization r keeps the y pivots away from 0 when A has dependent rows, the primal one
// (reg of kkt_solver.h) those of free columns and of a singular Q; each solve is refined
// iteratively against the system without either. Q keeps its sparsity: no factor of Q and
// no A (Q + D)^{-1} A' are formed.
//
// The pattern is analysed once (setup); factorize() only fills values. No dense-column
// handling: a long column of A is a long column of K, which the ordering places late.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "interior/kkt_solver.h"
#include "interior/standard_form.h"
#include "linalg/common/log_sink.h"

namespace qubor::interior {

struct AugmentedSetup {
  int32_t order_method = 0;  // linalg::OrderMethod value
  int32_t num_threads = 1;
  const linalg::LogSink* sink = nullptr;
};

class AugmentedSystem final : public KktSolver {
 public:
  linalg::Status setup(const StandardForm& sf, const AugmentedSetup& opt);

  linalg::Status factorize(const std::vector<double>& d, const std::vector<double>& reg,
                           double delta) override;
  linalg::Status solve_kkt(const std::vector<double>& rx, const std::vector<double>& ry,
                           std::vector<double>& dx, std::vector<double>& dy, int32_t max_refine,
                           RefineStats* stats) override;

  int32_t num_dense() const override { return 0; }
  linalg::Status drop_dense_handling() override { return linalg::Status::kOk; }
  int32_t num_perturbed() const override { return static_cast<int32_t>(chol_.perturbed().size()); }
  double factor_flops() const override { return chol_.flops(); }
  double solve_flops() const override { return 4.0 * static_cast<double>(chol_.nnz_l()); }
  const linalg::SparseCholesky& cholesky() const override { return chol_; }
  double setup_time() const override { return setup_time_; }
  double dense_detect_time() const override { return 0.0; }
  int64_t nnz_matrix() const override { return static_cast<int64_t>(rowind_.size()); }

 private:
  // res = rhs - K_true z, with K_true the system without the static regularization.
  double residual(const std::vector<double>& z, std::vector<double>& res);

  const StandardForm* sf_ = nullptr;
  int32_t n_ = 0, m_ = 0;
  // Lower pattern of K: per x column the diagonal, then Q below it, then A; per y column the
  // diagonal only.
  std::vector<int64_t> colptr_;
  std::vector<int32_t> rowind_;
  std::vector<double> kval_;
  std::vector<double> d_;       // d of the last factorization (without reg)
  double delta_ = 0.0;
  double static_reg_ = 0.0, reg_scale_ = 1.0;
  bool lower_reg_ = false;  // the last refinement missed its target
  linalg::SparseCholesky chol_;
  std::vector<double> rhs_, z_, res_, corr_, best_, qz_;
  double setup_time_ = 0.0;
};

}  // namespace qubor::interior
