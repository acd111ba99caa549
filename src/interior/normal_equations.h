// Normal equations M = A D A' (+ diagonal regularization) of the homogeneous method, with
// dense columns kept out of the sparse factor. As a KktSolver (kkt_solver.h) D is
// (Q + diag(d))^{-1}, so Q must be diagonal:
//   (A D A' + delta I) dy = ry + A D rx,  dx = D (A'dy - rx).
//
// The sparse part M_s = A_S D_S A_S' + delta I is ordered and analysed once, then formed and
// factored by the sparse Cholesky module at every iteration. The k dense columns A_K enter
// through the Sherman-Morrison-Woodbury identity:
//   M^{-1} r = M_s^{-1} r - W S^{-1} A_K' M_s^{-1} r,  W = M_s^{-1} A_K,
//   S = D_K^{-1} + A_K' W  (k x k, factored densely).
// solve() refines the solution against the unregularized operator A D A' when the residual
// of the first solve is large (a poor factor, regularization, or many dense columns).
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "interior/kkt_solver.h"
#include "interior/standard_form.h"
#include "linalg/cholesky/sparse_cholesky.h"
#include "linalg/common/log_sink.h"

namespace qubor::interior {

struct NormalEquationsSetup {
  int32_t off_col_trh = 40;
  int32_t dense_col_limit = -1;
  int32_t order_method = 0;
  int32_t num_threads = 1;
  const linalg::LogSink* sink = nullptr;
};

class NormalEquations final : public KktSolver {
 public:
  // Detects dense columns, builds the pattern and analyses it. Returns the module status.
  linalg::Status setup(const StandardForm& sf, const NormalEquationsSetup& opt);

  // Puts the dense columns back into the sparse factor (a new analysis); used when the
  // Woodbury update has become unstable. Removed rows stay removed.
  linalg::Status drop_dense_handling() override;

  // Equality rows that depend linearly on the others: M = A A' (dense columns absent) is
  // factored once with a strict pivot tolerance and the rows with rejected pivots returned.
  linalg::Status find_dependent_rows(std::vector<int32_t>& rows);
  // Takes the rows out of M: their entries must have been zeroed in the internal form, and
  // their diagonal becomes 1 so that their dual values stay 0.
  void remove_rows(const std::vector<int32_t>& rows);

  // Forms and factors M for the diagonal d (n entries, the scaling D of A D A') and the dual
  // regularization delta (absolute).
  linalg::Status factor(const std::vector<double>& d, double delta);

  // Solves M dy = r in place. max_refine < 0 means automatic.
  linalg::Status solve(std::vector<double>& r, int32_t max_refine, RefineStats* stats);

  // y += A D A' x (the operator without regularization).
  void multiply(const std::vector<double>& x, std::vector<double>& y) const;

  // The KktSolver view: the scaling D = (diag(Q) + diag(d + reg))^{-1}.
  linalg::Status factorize(const std::vector<double>& d, const std::vector<double>& reg,
                           double delta) override;
  linalg::Status solve_kkt(const std::vector<double>& rx, const std::vector<double>& ry,
                           std::vector<double>& dx, std::vector<double>& dy, int32_t max_refine,
                           RefineStats* stats) override;

  int32_t num_dense() const override { return static_cast<int32_t>(dense_.size()); }
  double dense_detect_time() const override { return dense_time_; }
  double setup_time() const override { return setup_time_; }
  int64_t nnz_matrix() const override { return static_cast<int64_t>(rowind_.size()); }
  int32_t num_perturbed() const override { return static_cast<int32_t>(chol_->perturbed().size()); }
  const linalg::SparseCholesky& cholesky() const override { return *chol_; }
  // Flops of one factorization and of one solve (both triangular sweeps, dense part included).
  double factor_flops() const override;
  double solve_flops() const override;

 private:
  void form_sparse(double delta);
  linalg::Status form_dense();
  linalg::Status solve_once(double* r);

  const StandardForm* sf_ = nullptr;
  NormalEquationsSetup opt_;
  int32_t m_ = 0;
  int32_t threads_ = 1;
  std::vector<int32_t> dense_;        // dense column indices
  std::vector<int8_t> is_dense_;
  std::vector<int8_t> removed_;       // rows taken out of M
  // Rows of the sparse columns (CSR), for forming M column by column.
  std::vector<int64_t> row_ptr_;
  std::vector<int32_t> row_col_;
  std::vector<double> row_val_;
  // Lower pattern and values of M_s.
  std::vector<int64_t> colptr_;
  std::vector<int32_t> rowind_;
  std::vector<double> mval_;
  std::vector<double> d_;
  std::vector<double> theta_, q_diag_;  // the KktSolver view's scaling and diag(Q)
  double delta_ = 0.0;
  std::unique_ptr<linalg::SparseCholesky> chol_ = std::make_unique<linalg::SparseCholesky>();
  // Dense part: W (m x k, column-major) and the Cholesky factor of S (k x k).
  std::vector<double> w_, s_;
  std::vector<double> work_, work2_, small_;
  std::vector<std::vector<double>> acc_;  // per-thread row accumulators of form_sparse
  std::vector<double> rhs_, res_, z_, p_, q_, best_;
  double dense_time_ = 0.0, setup_time_ = 0.0;
};

}  // namespace qubor::interior
