// Sparse LU factorization of a simplex basis, with solves and updates.
//
// The basis B holds m columns of the matrix [A I] (A is m x n in CSC form; a column index
// j >= n stands for the unit column e_{j-n}). B's columns are called positions 0..m-1.
//
// Factorization: B Q = L U, computed left-looking (one sparse triangular solve per column,
// its pattern found by depth-first search). Columns are ordered by a triangular pre-pass
// (column singletons first, row singletons last) and the rest, the bump, by ascending
// count. The pivot of a bump column is chosen among the rows that pass the threshold test
// |v| >= rel_pivot_tol * max|v| by the smallest row count, a Markowitz count with the
// column count fixed. A column without an admissible pivot (|v| <= abs_pivot_tol) is
// dependent: it is replaced by the unit column of a row that found no pivot, and the
// replacement is reported to the caller (singular-basis repair by slack replacement).
//
// Storage is in pivot-step coordinates: L is unit lower triangular, kept by columns for
// FTRAN and by rows for BTRAN; U likewise with its diagonal apart. Both solves work on
// dense vectors and skip zero entries, so sparse right-hand sides cost little.
//
// Updates: product form. After a basis change at position r with the FTRAN'd entering
// column alpha, B_new^{-1} = E^{-1} B^{-1}, E = I + (alpha - e_r) e_r'. The eta file is
// cleared by the next factorization; wants_refactor() says when the caller should
// refactorize (update count or eta fill).
//
// Workspaces grow during the first factorization and keep their capacity afterwards.
#pragma once

#include <cstdint>
#include <vector>

namespace qubor::linalg {

struct ColumnSource {
  int32_t num_row = 0;
  int32_t num_col = 0;  // n; indices n..n+m-1 are the unit columns
  const int64_t* ptr = nullptr;
  const int32_t* idx = nullptr;
  const double* val = nullptr;
};

struct LuOptions {
  double rel_pivot_tol = 0.01;   // threshold partial pivoting
  double abs_pivot_tol = 1e-11;  // below this a column counts as dependent
  int32_t max_updates = 100;     // refactorization frequency
  double drop_tol = 1e-14;       // entries of L, U and etas below this are dropped
};

struct LuReplacement {
  int32_t position;  // basis position whose column was dependent
  int32_t removed;   // the column that was there
  int32_t inserted;  // the unit column n + row put in its place
};

// Row-wise copy (rptr, ridx, rval) of a num_rows x num_cols matrix held by columns.
void transpose_sparse(int32_t num_cols, int32_t num_rows, const std::vector<int64_t>& cptr,
                      const std::vector<int32_t>& cidx, const std::vector<double>& cval, std::vector<int64_t>& rptr,
                      std::vector<int32_t>& ridx, std::vector<double>& rval);

class BasisLu {
 public:
  void set_options(const LuOptions& o) { opt_ = o; }
  const LuOptions& options() const { return opt_; }

  // Factorizes the basis basis[0..m-1]. Dependent columns are replaced in `basis` by unit
  // columns; the replacements are listed in replacements() (empty for a regular basis).
  void factorize(const ColumnSource& a, int32_t* basis);
  const std::vector<LuReplacement>& replacements() const { return replaced_; }

  // x := B^{-1} x. In: a dense vector indexed by rows; out: indexed by positions.
  void ftran(double* x);
  // x := B^{-T} x. In: indexed by positions; out: indexed by rows.
  void btran(double* x);

  // Records the basis change at `position`; alpha = B^{-1} a_q (by positions, dense) of the
  // entering column before the change. Returns false when the pivot alpha[position] is
  // too small to be used; the caller then refactorizes.
  bool update(int32_t position, const double* alpha);

  bool wants_refactor() const;
  int32_t num_updates() const { return static_cast<int32_t>(eta_pos_.size()); }
  int64_t factor_nnz() const { return static_cast<int64_t>(lval_.size() + uval_.size()) + m_; }
  int32_t dim() const { return m_; }

 private:
  void order_columns(const int32_t* basis);
  int32_t reach(int32_t col_begin, int32_t col_end, const int32_t* rows);
  bool eliminate(int32_t position, const int32_t* rows, const double* vals, int32_t count);
  void finish();

  LuOptions opt_;
  int32_t m_ = 0;
  // Copy of B by columns (positions) and its row pattern (positions per row).
  std::vector<int64_t> bptr_, rptr_;
  std::vector<int32_t> bidx_, rpos_;
  std::vector<double> bval_;
  // Column order and pivot sequence: step k factors position q_[k] on row p_[k].
  std::vector<int32_t> order_, q_, p_, pinv_, row_count_;
  // L during factorization: columns by step with original rows; after finish(): steps.
  std::vector<int64_t> lcol_ptr_, lrow_ptr_;
  std::vector<int32_t> lidx_, lrow_idx_;
  std::vector<double> lval_, lrow_val_;
  // U without diagonal: columns (entries are earlier steps) and rows.
  std::vector<int64_t> ucol_ptr_, urow_ptr_;
  std::vector<int32_t> uidx_, urow_idx_;
  std::vector<double> uval_, urow_val_, udiag_;
  std::vector<LuReplacement> replaced_;
  // Eta file of the product-form updates.
  std::vector<int32_t> eta_pos_;
  std::vector<double> eta_piv_;
  std::vector<int64_t> eta_ptr_{0};
  std::vector<int32_t> eta_idx_;
  std::vector<double> eta_val_;
  // Work: dense vector, DFS stack and marks, pattern list.
  std::vector<double> work_;
  std::vector<int32_t> stack_, pstack_, pattern_, mark_;
  int32_t stamp_ = 0;
  int64_t factor_entries_ = 0;
};

}  // namespace qubor::linalg
