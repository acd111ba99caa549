// The presolve engine: the working problem, the postsolve stack being recorded, and the
// reductions. Primitives (primitives.cpp) change the problem and push the matching postsolve
// record in one place; each family of reductions (reduce_*.cpp) finds candidates and calls
// them. Every reduction function returns the number of reductions it made and stops early
// once a status other than kReduced is set or the reduction budget is used up.
#pragma once

#include <cstdint>

#include "presolve/postsolve_stack.h"
#include "presolve/work_problem.h"

namespace qubor::presolve {

// Parallel rows or columns: hashes kept between sweeps, so that a list is hashed again
// only when its stamp moved; only hash groups with a changed member are compared, since two
// unchanged lists were compared when the later of them last changed.
class ParallelFinder {
 public:
  struct Keyed {
    uint64_t hash;
    int32_t index;
  };
  // Room for `lists` lists with entries indexed below dim, from mem (which need not give
  // memory back: nothing grows later).
  ParallelFinder(int32_t lists, int32_t dim, std::pmr::memory_resource* mem);
  // The lists sharing a hash with a list stamped after `since` and with at least one other
  // list, grouped by hash and in index order within a group.
  const Vec<Keyed>& candidates(const Vec<Vec<Entry>>& lists, const Vec<uint8_t>& active, const Vec<uint64_t>& stamp,
                               uint64_t since);
  // lambda with b = lambda * a when the lists are parallel, else 0.
  double parallel_factor(const Vec<Entry>& a, const Vec<Entry>& b);
  // The entry of least index of a list, as at its last hashing: for parallel lists a and b
  // the factor is lead(b) / lead(a).
  double lead(int32_t i) const { return lead_[static_cast<size_t>(i)]; }

 private:
  static size_t set_capacity(size_t keys);  // a power of two, at least twice keys
  Vec<uint64_t> hash_;
  Vec<double> lead_;
  Vec<uint8_t> hashed_;  // hash_ and lead_ hold for the list as at its last stamp
  Vec<int32_t> length_count_;  // zero between calls
  Vec<double> dense_;
  Vec<uint32_t> mark_;
  uint32_t tick_ = 0;
  Vec<Keyed> keyed_;
  Vec<uint64_t> dirty_, set_;
  Vec<int32_t> group_;  // per slot of set_: the lists with its hash, then where they go
};

// Storage of the activity screen of the substitutions (reduce_substitution.cpp), one range
// per row, kept between uses.
struct ScreenStorage {
  explicit ScreenStorage(std::pmr::memory_resource* mem)
      : act(mem), scale_min(mem), scale_max(mem), done(mem), valid_at(mem) {}
  Vec<ActivityBounds> act;
  Vec<double> scale_min, scale_max;
  Vec<uint8_t> done;
  Vec<uint64_t> valid_at;
};

// A closed interval, for bounds on duals.
struct Range {
  double lo, hi;
};

class Presolver {
 public:
  Presolver(const LpProblem& p, const PresolveOptions& opt, PostsolveStack& stack, PresolveStats& stats);

  // Runs the passes; returns the status. The working problem holds the reduced problem.
  PresolveStatus run(const LogSink* log);
  const WorkProblem& problem() const { return w_; }

  // Reduction families.
  int32_t remove_empty_rows();
  int32_t remove_fixed_and_empty_columns();
  int32_t singleton_rows();
  int32_t forcing_and_redundant_rows();
  int32_t dominated_columns();
  int32_t column_singletons();
  int32_t fourier_motzkin_columns();
  int32_t doubleton_equations();
  int32_t duplicate_rows();
  int32_t duplicate_columns();
  int32_t linear_dependent_rows();
  int32_t eliminate_free_columns();
  int32_t tighten_bounds();

  // Primitives: change the working problem and record the undo.
  void drop_row(int32_t i);                 // dual 0, row basic
  void fix_column(int32_t j, double value);  // moves c_j x_j into c0 and a_rj x_j into rows
  // Turns singleton row i (only column j) into bounds of x_j and removes it.
  void singleton_row_to_bounds(int32_t i, int32_t j);
  // Forcing row: side +1 means all columns at their activity minimum (= ru), -1 maximum.
  void force_row(int32_t i, int32_t side);
  // Eliminates x_j through row i, which must satisfy rl_i == ru_i (the right-hand side).
  // row_key is the key of row i once restored; partner >= 0 marks a doubleton whose
  // bounds (l_k, u_k before) were already merged.
  void substitute(int32_t j, int32_t i, int32_t row_key, int32_t partner, double lk_before, double uk_before);

  // Replaces implied-free x_j by t = a_i x, the activity of row i (any sides): t takes the
  // sides of row i as bounds, c_j / a_ij as cost and a_rj / a_ij in the other rows; row i goes.
  void substitute_activity(int32_t j, int32_t i);

  // Projects zero-cost x_j out of rows p and q (see reduce_fourier_motzkin.cpp): q += mu p
  // with mu = -a_qj / a_pj, and p keeps x_j at its finite bound.
  void combine_rows_through(int32_t j, int32_t p, int32_t q);

  int32_t fix_dominated(int32_t j, double zmin, double zmax);
  int32_t fix_weakly_dominated(int32_t j, const Vec<Range>& y_rows);
  int32_t dominated_duplicate(int32_t j, int32_t k, double lambda);
  // Of columns k = lambda * j: whether c_k = lambda c_j, so that the two merge into one.
  bool costs_in_ratio(int32_t j, int32_t k, double lambda) const {
    return std::fabs(w_.c[k] - lambda * w_.c[j]) <= opt_.tol_s * (1.0 + std::fabs(w_.c[k]));
  }
  bool boxed(int32_t j) const { return finite(w_.l[j]) && finite(w_.u[j]); }
  // Removes singleton x_j of row i, widening the row's sides by x_j's range. A nonzero cost
  // needs an equality row; it moves to the row's other columns.
  void absorb_slack_column(int32_t j, int32_t i);
  // Row i is at side +1 (ru) or -1 (rl) in every optimum: the other side moves there.
  void tighten_row_to_side(int32_t i, int32_t side);
  bool can_reduce() const {
    return status_ == PresolveStatus::kReduced &&
           (opt_.max_num_reductions < 0 || stats_.reductions < opt_.max_num_reductions);
  }
  void set_status(PresolveStatus s) { if (status_ == PresolveStatus::kReduced) status_ = s; }
  PresolveStatus status() const { return status_; }

 private:
  // One sweep of the eliminator over the columns, refreshing the implied bounds once a
  // column needs them; adds what it reads to work and stops at budget. Returns the
  // substitutions made.
  int32_t eliminator_sweep(int64_t budget, int64_t& work);
  double round_lower(int32_t j, double v) const;
  double round_upper(int32_t j, double v) const;
  bool bounds_equal(double l, double u) const {
    return finite(l) && finite(u) && u - l <= opt_.tol_x * (1.0 + std::fabs(l));
  }

  WorkProblem w_;
  PresolveOptions opt_;
  PostsolveStack& stack_;
  PresolveStats& stats_;
  PresolveStatus status_ = PresolveStatus::kReduced;
  uint64_t forcing_clock_ = 0;  // clock at the start of the last forcing sweep
  bool forcing_settle_ = false;  // the full sweep before presolve settles, with implied bounds
  // The bounds rows imply, shared by the forcing rows and the eliminator and refreshed where
  // the problem changed.
  ImpliedBounds implied_;
  ImpliedBounds own_bounds_;  // the columns' own bounds, for the column singletons' screen
  ScreenStorage screen_;
  // Duplicate detection keeps its hashes between sweeps.
  ParallelFinder row_finder_, col_finder_;
  uint64_t dup_rows_clock_ = 0, dup_cols_clock_ = 0;
  int64_t reductions_at_full_sweep_ = -1;
  // The dominated columns' dual bounds (all, and from the row signs alone) and their sources.
  Vec<Range> dual_box_, dual_box_rows_;
  Vec<uint8_t> dual_source_;
  uint64_t dominated_clock_ = 0;  // clock at the start of the last dominated-column sweep (0: none yet)
  int32_t eliminator_rounds_ = 0;
  int32_t eliminator_cursor_ = 0;
  // Clock at which the eliminator last found column j unusable; it looks again only once
  // the column or one of its rows has changed.
  Vec<uint64_t> eliminator_tested_;
  bool eliminator_retest_all_ = false;  // this round looks at every column
  bool eliminator_retested_all_ = false;  // a round did, which happens once
  Vec<uint64_t> singleton_tested_;  // the same for column_singletons
  // Per row, the entries recorded for the last slack column absorbed and the row's version after.
  struct SlackRecord {
    uint32_t version = 0;
    int64_t begin = 0, end = 0;
  };
  Vec<SlackRecord> slack_records_;
  // Singletons with a cost in equality rows are absorbed only once the rest has run dry:
  // the equality is worth more to the eliminator than the column.
  bool absorb_costly_ = false;

  friend struct PresolverAccess;
};

}  // namespace qubor::presolve
