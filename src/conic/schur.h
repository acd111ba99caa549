// The reduced system of the conic interior point: M = A H^{-1} A' for the current scaling.
//
// Each cone record describes its H^{-1} through SchurTerms: weights w_j (M += w_j a_j a_j'),
// rank-one terms per quadratic cone, and the W (.) W operator of each semidefinite block,
// whose contribution M_ik += <A_i, W A_k W> is formed with the sparsity of each A_i: with P
// the index set of A_i's entries, T = A_i(P, :) W, then W(:, P) T densely (BLAS-3) or only at
// the entries that the later A_k need, whichever costs less.
//
// The pattern of M is the union of the cliques of the rows of each weighted column, of each
// small quadratic cone and of each semidefinite block; it is analysed once. A quadratic cone
// whose rows are many stays out of the cliques: its H^{-1} is split into eta^{-2} I (in the
// weights) plus two rank-one terms, which enter through the Sherman-Morrison-Woodbury
// identity with a small dense factor, so that a long cone does not make M dense.
//
// M is assembled column by column through a dense accumulator and factored by the sparse
// Cholesky module; solve() refines against the assembled M, whose product costs nnz(M)
// where the operator A H^{-1} A' would cost O(d^3) per semidefinite block.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "conic/conic_form.h"
#include "linalg/cholesky/sparse_cholesky.h"
#include "linalg/common/log_sink.h"
#include "linalg/dense/dense_kernels.h"

namespace qubor::conic {

class SchurSystem final : public SchurTerms {
 public:
  struct Setup {
    int32_t order_method = 0;
    int32_t num_threads = 1;
    int32_t long_cone_rows = 64;   // a quadratic cone touching more rows is kept out of M
    const linalg::LogSink* sink = nullptr;
  };

  linalg::Status setup(const ConicForm& f, const Setup& opt);

  // SchurTerms, called by the cone records before factor().
  void set_weight(int64_t col, double weight) override;
  void add_outer(int32_t cone, int32_t slot, const double* v, double weight) override;
  void set_psd_scaling(int32_t block, const double* w) override;

  // Assembles and factors M, scaled to a unit diagonal, plus delta on that diagonal.
  linalg::Status factor(double delta);
  // Solves M x = r in place, refined against the assembled M (max_refine < 0: automatic).
  linalg::Status solve(std::vector<double>& r, int32_t max_refine);
  // y = M x with the assembled M (sparse part and low-rank terms, without regularization).
  void multiply(const std::vector<double>& x, std::vector<double>& y);

  int64_t nnz_m() const { return static_cast<int64_t>(rowind_.size()); }
  int32_t num_lowrank() const { return static_cast<int32_t>(lr_coef_.size()); }
  int32_t num_long_cones() const { return num_long_; }
  const linalg::SparseCholesky& cholesky() const { return *chol_; }
  double setup_time() const { return setup_time_; }
  double schur_flops() const { return psd_flops_; }
  double factor_flops() const { return chol_->flops(); }

 private:
  void psd_block(int32_t k, std::vector<double>& out);
  linalg::Status solve_once(double* r);
  linalg::Status scaled_solve(double* b, int32_t nrhs);  // M_s^{-1} through the diagonal scaling

  const ConicForm* f_ = nullptr;
  Setup opt_;
  int32_t m_ = 0;
  // Weighted columns by rows (CSR over nonnegative and quadratic-cone columns).
  std::vector<int64_t> rptr_;
  std::vector<int32_t> rcol_;
  std::vector<double> rval_;
  std::vector<int64_t> rpos_;  // position of each entry in its column (rows sorted there)
  std::vector<double> weight_;
  // Small cones (quadratic cones, then nonsymmetric cones): first column, length, clique rows
  // (cones kept in M), long flags (quadratic cones only) and outer terms.
  std::vector<int64_t> cone_col_;
  std::vector<int32_t> cone_len_;
  std::vector<int8_t> cone_long_;
  std::vector<int32_t> long_slot_;     // index of a long cone among the long cones
  std::vector<int32_t> col_cone_;       // column -> small cone, -1 otherwise
  std::vector<int64_t> clq_ptr_;        // rows of cone k: clq_rows_[clq_ptr_[k], clq_ptr_[k+1])
  std::vector<int32_t> clq_rows_;
  std::vector<int32_t> out_ptr_;        // outer terms of cone k: out_ptr_[k] .. out_ptr_[k+1]
  std::vector<int64_t> clq_uoff_;       // per outer term: its A_k v in clq_u_ (clique rows)
  std::vector<double> clq_u_;           // A_k v at the clique rows, times sqrt(|weight|)
  std::vector<double> clq_sign_;        // per outer term: the sign of its weight
  int32_t num_long_ = 0;
  // Per row: the cliques (small cones and semidefinite blocks) that hold it, with its local
  // index there.
  std::vector<int64_t> row_clq_ptr_;
  std::vector<int32_t> row_clq_;        // >= 0: cone k; < 0: block -1 - k
  std::vector<int32_t> row_clq_local_;
  // Semidefinite blocks: current W and the dense block of M over the block's rows.
  std::vector<const double*> psd_w_;
  std::vector<std::vector<double>> psd_m_;
  std::vector<int64_t> psd_ent_total_;  // entries of the block's rows from slot p to the end
  // Per entry of the blocks' rows: its position r + c d in the block and its value times 2 off
  // the diagonal (the weight of G(r, c) in <A_l, G> for symmetric G).
  std::vector<int32_t> psd_lin_;
  std::vector<double> psd_wv_;
  struct PsdWork {                      // one per thread: T', W(:, P), G; P and its positions
    std::vector<double> tt, ws, g;
    std::vector<int32_t> idx, set;
  };
  std::vector<PsdWork> psd_work_;
  // Low-rank part Z diag(coef) Z' (long cones), Z column-major m x k.
  std::vector<double> lr_z_, lr_coef_, lr_y_, lr_small_;
  std::vector<int32_t> lr_piv_;
  // M in lower CSC and its factor.
  std::vector<int64_t> colptr_;
  std::vector<int32_t> rowind_;
  std::vector<double> mval_;
  std::unique_ptr<linalg::SparseCholesky> chol_ = std::make_unique<linalg::SparseCholesky>();
  std::vector<double> acc_, work_, res_, best_, tmp_;
  std::vector<double> dscale_, tmp2_;   // M_s = S^{-1} (factored - delta I) S^{-1}
  double delta_ = 0.0;
  double setup_time_ = 0.0, psd_flops_ = 0.0;
  linalg::DenseStats stats_;
};

}  // namespace qubor::conic
