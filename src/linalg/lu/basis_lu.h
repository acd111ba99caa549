// Sparse LU factorization of a simplex basis, with solves and updates.
//
// The basis B holds m columns of the matrix [A I] (A is m x n in CSC form; a column index
// j >= n stands for the unit column e_{j-n}). B's columns are called positions 0..m-1.
//
// Factorization: B Q = L U, computed left-looking (one sparse triangular solve per column,
// its pattern found by depth-first search). Columns are ordered by a triangular pre-pass
// (column singletons first, row singletons last) and the rest, the bump, by a minimum
// local fill ordering of the bump's B'B pattern (small bumps: by ascending count). The
// pivot of a bump column is chosen among the rows that pass the threshold test
// |v| >= rel_pivot_tol * max|v| by the smallest row count, a Markowitz count with the
// column count fixed. A column without an admissible pivot (|v| <= abs_pivot_tol) is
// dependent: it is replaced by the unit column of a row that found no pivot, and the
// replacement is reported to the caller (singular-basis repair by slack replacement).
//
// Storage is in slot coordinates: slot s < m is pivot step s of the factorization. L is
// unit lower triangular, kept by columns for FTRAN and by rows for BTRAN; U likewise with
// its diagonal apart.
//
// Updates: Forrest-Tomlin. A basis change at position r replaces the U column of r's slot
// k by the spike L^{-1} b (b the entering column, with the earlier row etas applied), moves
// k to the end of the triangular order as a new slot m + u, and eliminates the old row k
// by a row eta. The dead slot keeps its stale U entries: the solves skip dead slots and
// clear whatever lands in them. New columns are kept by columns only; BTRAN takes them by
// inner products. The new diagonal must match alpha_r times the old one (the ratio of the
// determinants); a mismatch refuses the update and the caller refactorizes.
// wants_refactor() says when the update count or the fill asks for a fresh factorization.
//
// Solves are hypersparse when the right-hand side is sparse and the recent results were:
// the patterns come from depth-first searches over the L and U graphs, and only the
// reached slots are touched. Otherwise they run over all slots and skip zeros.
//
// Workspaces grow during the first factorization and keep their capacity afterwards.
#pragma once

#include <cstddef>
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
  double update_tol = 1e-6;      // relative mismatch of an update's new diagonal that refuses it
  double hyper_density = 0.1;    // solves below this density of nonzeros run hypersparse
  int32_t order_min_bump = 50;   // bumps with fewer columns keep their order by count
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

  // x := B^{-1} x. In: a dense vector indexed by rows; out: indexed by positions. With
  // keep_spike, the partial result that update() needs for this column is kept; an
  // update() without one recomputes it from alpha.
  void ftran(double* x, bool keep_spike = false);
  // x := B^{-T} x. In: indexed by positions; out: indexed by rows.
  void btran(double* x);

  // Records the basis change at `position`; alpha = B^{-1} a_q (by positions, dense) of the
  // entering column before the change. Returns false when the pivot alpha[position] is
  // too small or the updated factor fails the stability test; the factor is then unchanged
  // and the caller refactorizes.
  bool update(int32_t position, const double* alpha);

  bool wants_refactor() const;
  int32_t num_updates() const { return static_cast<int32_t>(ft_from_.size()); }
  int64_t factor_nnz() const { return static_cast<int64_t>(lval_.size() + uval_.size() + ft_val_.size()) + m_; }
  int32_t dim() const { return m_; }

 private:
  void order_columns(const int32_t* basis);
  void order_bump(size_t bump_begin, const std::vector<int32_t>& row_on);
  int32_t reach(int32_t col_begin, int32_t col_end, const int32_t* rows);
  bool eliminate(int32_t position, const int32_t* rows, const double* vals, int32_t count);
  void finish();
  // Depth-first search from the slots start[0..count) over the graph whose node s has the
  // successors idx[ptr[s]..ptr[s+1]) (nodes >= limit have none); dead slots are passed
  // over when skip_dead. The reached slots in topological order: pattern_[top..cap).
  int32_t slot_reach(const int64_t* ptr, const int32_t* idx, int32_t limit, bool skip_dead, const int32_t* start,
                     int32_t count);
  void new_stamp();
  void spike_from_alpha(const double* alpha);
  bool use_hyper(int32_t count, double predicted) const;

  LuOptions opt_;
  int32_t m_ = 0;
  int32_t num_slots_ = 0;  // m + number of updates
  // Copy of B by columns (positions) and its row pattern (positions per row).
  std::vector<int64_t> bptr_, rptr_;
  std::vector<int32_t> bidx_, rpos_;
  std::vector<double> bval_;
  // Column order and pivot sequence: step k factors position q_[k] on row p_[k].
  std::vector<int32_t> order_, q_, p_, pinv_, row_count_;
  // Bump ordering: local numbers, active row counts, the pattern of B_b' B_b.
  std::vector<int32_t> bump_local_, bump_rcnt_, bump_gidx_, bump_seen_;
  std::vector<int64_t> bump_gptr_;
  // Slots: their positions, the positions' slots, dead flags and the list of dead slots.
  std::vector<int32_t> slot_pos_, pos_slot_, dead_list_;
  std::vector<uint8_t> dead_;
  // L during factorization: columns by step with original rows; after finish(): steps.
  std::vector<int64_t> lcol_ptr_, lrow_ptr_;
  std::vector<int32_t> lidx_, lrow_idx_;
  std::vector<double> lval_, lrow_val_;
  // U without diagonal: columns by slot (entries are earlier slots; new slots append
  // columns) and rows of the first m slots.
  std::vector<int64_t> ucol_ptr_, urow_ptr_;
  std::vector<int32_t> uidx_, urow_idx_;
  std::vector<double> uval_, urow_val_, udiag_;
  std::vector<LuReplacement> replaced_;
  // Row etas of the updates: slot ft_from_ moved to ft_to_, multipliers in ft_idx_/ft_val_.
  std::vector<int32_t> ft_from_, ft_to_;
  std::vector<int64_t> ft_ptr_{0};
  std::vector<int32_t> ft_idx_;
  std::vector<double> ft_val_;
  // The kept spike (by slots) of the last FTRAN asked for it.
  std::vector<int32_t> spike_idx_;
  std::vector<double> spike_val_;
  bool spike_valid_ = false;
  // Work: dense vectors over slots, DFS stack and marks, pattern and list buffers.
  std::vector<double> work_, work2_, work3_;
  std::vector<int32_t> stack_, pstack_, pattern_, mark_, list_, list2_;
  std::vector<int64_t> cursor_;
  int32_t stamp_ = 0;
  int64_t factor_entries_ = 0;
  int64_t base_u_entries_ = 0;  // U entries of the factorization; update columns follow
  // Running result densities of FTRAN and BTRAN, for the hypersparse switch.
  double ftran_density_ = 0.0, btran_density_ = 0.0;
};

}  // namespace qubor::linalg
