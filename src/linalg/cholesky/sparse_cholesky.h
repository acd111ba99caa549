// Sparse Cholesky (A = L L') and LDL' (A = L D L') factorization of symmetric matrices, for
// the interior-point optimizers.
//
// Input: the n x n symmetric matrix A by its lower triangle in CSC form: colptr[n+1] (64-bit,
// colptr[0] = 0), rowind[colptr[n]] (32-bit, rowind[p] >= j for every p in column j; order
// within a column is free, duplicates are summed, a missing diagonal counts as 0) and, for
// each numeric factorization, values[colptr[n]] aligned with rowind.
//
// Use:
//   SparseCholesky chol;
//   chol.analyse(pattern, options, &sink);       // once per pattern: ordering + symbolic
//   loop { chol.factor(values); chol.solve(b, nrhs, ldb); ... }
//   chol.print_summary(&sink);
// analyse() keeps no pointer to the pattern. factor() and solve() allocate nothing after the
// first call (solve grows its workspace to the largest nrhs seen).
//
// Pivots: the factorization never stops at a bad pivot. With tau = pivot_tolerance *
// max_j |A_jj|, pivot j is bad when s_j d_j <= tau or it is not finite, where s_j = +1 for
// Cholesky and, for LDL', the sign given in `signs` (else the sign of A_jj, 0 counting as +).
// A bad pivot becomes s_j 1e128 (kHuge; its column of L vanishes and the corresponding
// solution component is driven to 0) or s_j max(|d_j|, regularization max_j |A_jj|)
// (kRegularize). kDefault means kHuge for Cholesky and kRegularize for LDL'. The columns
// (in A's numbering) whose pivots were replaced are reported by perturbed(); the caller can
// raise its regularization and refine the solution iteratively.
//
// Threads: num_threads workers factor independent subtrees in parallel; the top of the tree
// is factored with multithreaded BLAS. Results are identical run to run for a given thread
// count.
//
// Results: every call returns a Status (common/status.h); no exception leaves the class.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "linalg/cholesky/numeric.h"
#include "linalg/common/log_sink.h"
#include "linalg/common/status.h"
#include "linalg/ordering/order_choice.h"

namespace qubor::linalg {

struct LowerPattern {
  int32_t n = 0;
  const int64_t* colptr = nullptr;
  const int32_t* rowind = nullptr;
};

struct SparseCholeskyOptions {
  OrderMethod order_method = OrderMethod::kFree;
  FactorType type = FactorType::kCholesky;
  int32_t num_threads = 1;
  bool row_major = false;                // not implemented: analyse() reports and fails
  double pivot_tolerance = 1e-14;
  PivotReplacement replacement = PivotReplacement::kDefault;
  double regularization = 1e-10;         // relative to max_j |A_jj|, for kRegularize
  int32_t panel_width = 128;
  bool amalgamate = true;
  bool order_columns = true;             // order columns inside supernodes for dense updates
  NestedDissectionOptions nested_dissection;
  bool debug = false;                    // graph and permutation dumps
  std::string debug_name = "task";       // the %s of "sg-%s-ml.sg.gz"
};

// Counters of the last analysis, factorizations and solves (see print_summary()).
struct CholeskyStatistics {
  int32_t dimension = 0, panels = 0, supers = 0, super_roots = 0, super_one_child = 0,
          super_leafs = 0, last_super_depth = 0, last_super = -1, groups = 0, root_groups = 0,
          leaf_groups = 0;
  int32_t panel_buckets[11] = {};        // widths 1, 2, 4, 6, 8, 12, 16, 32, 64, 128, 256
  int64_t nnz_a = 0, nnz_l = 0;
  int64_t stored_l = 0;                  // entries of the dense supernode blocks (nr x w each)
  double factor_flops = 0, last_update_flops = 0, last_potrf_flops = 0, solve_flops = 0,
         factor_flops_total = 0;
  double ml_order_time = 0, gp_order_time = 0, analyse_time = 0, factor_time = 0,
         solve_time = 0;
  int64_t factorizations = 0, solves = 0;
  bool gp_taken = false;
  int64_t gp_saved_nz = 0;
  double gp_saved_flops = 0;
  PhaseTimers timers;
  DenseStats dense;
};

class SparseCholesky {
 public:
  SparseCholesky();
  ~SparseCholesky();
  SparseCholesky(const SparseCholesky&) = delete;
  SparseCholesky& operator=(const SparseCholesky&) = delete;

  // Orders and analyses the pattern. perm (n entries, perm[k] = column eliminated k-th) is
  // used under OrderMethod::kNone when given; signs (n entries of +1/-1) are the expected
  // pivot signs of LDL'. kInvalidInput for a malformed pattern, permutation or option.
  Status analyse(const LowerPattern& a, const SparseCholeskyOptions& options,
                 const LogSink* sink, const int32_t* perm = nullptr,
                 const int8_t* signs = nullptr);

  // Numeric factorization of the values of the analysed pattern.
  Status factor(const double* values);

  // Solves A X = B in place: b holds nrhs columns with leading dimension ldb >= n.
  Status solve(double* b, int32_t nrhs, int64_t ldb);

  // Columns of A (original numbering) whose pivots were replaced in the last factor().
  const std::vector<int32_t>& perturbed() const;
  // The final elimination order (perm[k] = column of A eliminated k-th).
  const std::vector<int32_t>& permutation() const;
  // LDL': the diagonal D in A's numbering (d[i] for column i); empty for Cholesky.
  void diagonal(std::vector<double>& d) const;
  // Cholesky: the rows of L' P with accepted pivots, as a row-wise sparse matrix F (ptr of
  // rows + 1 entries, col in A's numbering, exact zeros left out), so that A = F' F up to the
  // replaced pivots, whose columns of L are dropped. kNotFactored before a factorization.
  Status factor_rows(std::vector<int64_t>& ptr, std::vector<int32_t>& col, std::vector<double>& val) const;

  int32_t dimension() const;
  int64_t nnz_l() const;
  double flops() const;
  const CholeskyStatistics& statistics() const;
  const OrderChoice& ordering() const;

  // Prints the "*spchol summary." report through the sink.
  void print_summary(const LogSink* sink) const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace qubor::linalg
