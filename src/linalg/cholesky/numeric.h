// Supernodal numeric factorization and triangular solves over a SymbolicFactor.
//
// Factorization, for each supernode s in postorder (leaf groups in parallel, then the root
// part with threaded BLAS):
//   load   the entries of A into the zeroed block of s;
//   pull   for every descendant d in the update list of s:  C = L_d(r0:, :) [D_d] L_d(r0:r1, :)'
//          (gemm/syrk) and subtract C from the rows/columns of s it maps to; when those rows
//          are contiguous in s the product goes straight into the block, otherwise it is
//          formed in scratch and added run by run of consecutive rows;
//   factor the diagonal block panel by panel (panel_width columns): a pivot-checking
//          column kernel on the panel's diagonal, trsm below it, syrk/gemm on the columns of
//          s to its right.
// Cholesky gives A = L L'; LDL' gives A = L D L' with unit L, D stored apart.
//
// Solves go by supernodes, forward in postorder and backward in reverse: trsv/gemv (trsm/gemm
// for several right-hand sides) on the panel of a supernode, plain loops for small panels.
//
// Pivot rule. Let tau = pivot_tolerance * max(max_j |A_jj|, 1e-300) and s_j the expected sign
// of pivot j (+1 for Cholesky; for LDL' from the caller, else the sign of A_jj with 0 taken
// as +1). A pivot d is bad when s_j d <= tau or d is not finite. A bad pivot is replaced by
//   kHuge:        s_j * 1e128  (the column of L becomes negligible and the solution component
//                 is driven to zero: the usual treatment of dependent rows in interior-point
//                 normal equations), or
//   kRegularize:  s_j * max(|d|, regularization * max_j |A_jj|)  (a dynamic regularization
//                 for quasi-definite systems),
// and its column (in A's numbering) is recorded. The factorization always completes.
#pragma once

#include <cstdint>
#include <vector>

#include "linalg/cholesky/symbolic.h"
#include "linalg/dense/dense_kernels.h"

namespace qubor::linalg {

enum class FactorType : int32_t { kCholesky = 0, kLdlt = 1 };
enum class PivotReplacement : int32_t { kDefault = 0, kHuge = 1, kRegularize = 2 };

struct PivotRule {
  FactorType type = FactorType::kCholesky;
  double tolerance = 1e-14;
  PivotReplacement replacement = PivotReplacement::kHuge;
  double regularization = 1e-10;
};

// Phase timers of one thread (seconds and calls), summed over threads after each run.
struct PhaseTimers {
  double load = 0, pull = 0, factor = 0, gemm = 0, store = 0;
  int64_t n_load = 0, n_pull = 0, n_factor = 0, n_gemm = 0, n_store = 0;
  double l_solve = 0, l_solve_last = 0, lt_solve = 0, lt_solve_last = 0;
  int64_t n_l_solve = 0, n_l_solve_last = 0, n_lt_solve = 0, n_lt_solve_last = 0;
  void add(const PhaseTimers& o);
};

// Per-thread workspace, sized once from the symbolic factor.
struct ThreadScratch {
  std::vector<double> update;   // max_update
  std::vector<double> scaled;   // max_scaled
  std::vector<int32_t> pos;     // n: position of a row within the current supernode
  std::vector<int32_t> rel;     // max_rows: positions of a descendant's rows in it
  std::vector<int32_t> run;     // max_rows + 1: starts of runs of consecutive positions
  std::vector<int32_t> perturbed;
  double min_pivot = 0.0, max_pivot = 0.0;
  DenseStats dense;
  PhaseTimers timers;
};

struct NumericFactor {
  std::vector<double> values;   // L, supernode blocks at value_ptr
  std::vector<double> d;        // LDL' diagonal (new numbering)
  std::vector<int8_t> sign;     // expected pivot signs (new numbering)
  std::vector<int32_t> perturbed;  // columns of A with replaced pivots, increasing
  double max_diag = 0.0;
  double min_pivot = 0.0, max_pivot = 0.0;  // of the accepted pivots (|d| or l_jj^2)
  bool valid = false;
};

// Allocates the factor storage and num_threads scratch records.
void numeric_setup(const SymbolicFactor& sf, FactorType type, int32_t num_threads,
                   NumericFactor& nf, std::vector<ThreadScratch>& scratch);

// Factors the values ax (aligned with the analysed pattern). signs: expected pivot signs in
// A's numbering for LDL' (may be null). Never allocates. Returns kInvalidInput if ax is null.
Status numeric_factor(const SymbolicFactor& sf, const double* ax, const int8_t* signs,
                      const PivotRule& rule, int32_t num_threads, NumericFactor& nf,
                      std::vector<ThreadScratch>& scratch);

// Solves A X = B in place for nrhs columns of b (leading dimension ldb >= n). work holds
// n * nrhs doubles plus max_rows * nrhs.
void numeric_solve(const SymbolicFactor& sf, const NumericFactor& nf, FactorType type,
                   double* b, int32_t nrhs, int64_t ldb, std::vector<double>& work,
                   ThreadScratch& scratch);

}  // namespace qubor::linalg
