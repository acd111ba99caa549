// Presolve and postsolve for linear problems.
//
// Problem form (user form of the linear optimizers, always a minimization):
//
//   minimize    c'x + c0
//   subject to  rl <= A x <= ru,   l <= x <= u,
//
// with infinite bounds given as -HUGE_VAL / +HUGE_VAL (the caller converts the task's
// 1e30 convention). A is stored by columns: colptr has n+1 64-bit offsets, rowind 32-bit row
// indices, val the values. Columns flagged in is_int are integer-constrained: reductions that
// would break integrality (substitution, merging) are not applied to them, and their bounds
// are rounded, so the module serves the mixed-integer optimizer as well.
//
// presolve() reduces the problem and returns a PresolveResult that owns the reduced problem
// and the postsolve stack. postsolve() maps a solution of the reduced problem to a solution
// of the original one.
//
// Dual convention (the system's): y = slc - suc, c - A'y = slx - sux, all four slacks
// nonnegative; slc > 0 only where rl is finite and active, suc where ru is, and likewise
// slx, sux for the column bounds. Status keys use the public numbering
// (0 unknown, 1 basic, 2 superbasic, 3 at lower, 4 at upper, 5 fixed, 6 infeasible).
// Postsolve keeps a basis a basis: every removed row adds exactly one basic variable or
// slack, every removed column is restored nonbasic unless a row was removed with it.
//
// The module depends on nothing but the platform layer; all storage comes from the memory
// resource in PresolveOptions. Log lines go to the LogSink (level 1: summary, 2: details).
#pragma once

#include <cmath>
#include <cstdint>
#include <iterator>
#include <memory>
#include <memory_resource>
#include <vector>

#include "linalg/common/log_sink.h"

namespace qubor::platform {
class PrefaultedBuffer;
}

namespace qubor::presolve {

template <class T>
using Vec = std::pmr::vector<T>;
using linalg::LogSink;

inline constexpr double kInf = HUGE_VAL;

// Status keys, numbered as the public QBR_SK_* constants.
enum StatusKey : int32_t {
  kKeyUnknown = 0,
  kKeyBasic = 1,
  kKeySuperBasic = 2,
  kKeyLower = 3,
  kKeyUpper = 4,
  kKeyFixed = 5,
  kKeyInfeasible = 6,
};

struct LpProblem {
  explicit LpProblem(std::pmr::memory_resource* mem = std::pmr::get_default_resource())
      : colptr(1, 0, mem), rowind(mem), val(mem), c(mem), l(mem), u(mem), rl(mem), ru(mem),
        is_int(mem) {}
  int32_t n = 0;
  int32_t m = 0;
  Vec<int64_t> colptr;  // n + 1
  Vec<int32_t> rowind;  // colptr[n]
  Vec<double> val;      // colptr[n]
  Vec<double> c;        // n
  double c0 = 0.0;
  Vec<double> l, u;     // n
  Vec<double> rl, ru;   // m
  Vec<uint8_t> is_int;  // n, or empty when no column is integer

  int64_t nnz() const { return colptr.empty() ? 0 : colptr[static_cast<size_t>(n)]; }
};

// Settings, read by the driver from the QBR_IPAR_PRESOLVE_* / QBR_DPAR_PRESOLVE_* parameters.
// A value of -1 means "chosen by the presolve" where the parameter allows it.
struct PresolveOptions {
  int32_t use = 2;                  // 0 off (identity reduction), 1 on, 2 free
  int32_t max_num_pass = -1;        // passes over all reductions; -1: until no progress (cap 64)
  int32_t max_num_reductions = -1;  // reductions recorded; -1: no limit
  bool lindep_use = true;
  int32_t lindep_abs_work_trh = 100;  // work budget, see lindep in presolve.cpp
  int32_t lindep_rel_work_trh = 100;
  double tol_abs_lindep = 1.0e-6;  // inconsistency of a dependent equality
  double tol_rel_lindep = 1.0e-10;  // relative size of an entry treated as zero in elimination
  int32_t eliminator_max_fill = -1;       // net new nonzeros one elimination may create; -1: 2
  int32_t eliminator_max_num_tries = -1;  // eliminator rounds; -1: one per pass; 0: off
  double tol_x = 1.0e-8;    // primal: bounds closer than this are equal; feasibility slack
  double tol_s = 1.0e-8;    // dual: reduced-cost bounds above this decide dominance
  double tol_aij = 1.0e-12;  // coefficients below this are dropped
  std::pmr::memory_resource* mem = std::pmr::get_default_resource();
};

struct PresolveStats {
  int32_t rows_before = 0, cols_before = 0;
  int64_t nnz_before = 0;
  int32_t rows_after = 0, cols_after = 0;
  int64_t nnz_after = 0;
  int32_t passes = 0;
  int64_t reductions = 0;
  int32_t lindep_rows = 0;         // dependent equality rows removed
  bool lindep_incomplete = false;  // the check stopped at its work limit
  int32_t eliminated = 0;          // free or implied-free columns substituted out
  double time = 0.0, eli_time = 0.0, lindep_time = 0.0;  // wall seconds
  // Wall seconds spent in each family of reductions, indexed by Family, and in building the
  // working problem (setup) and the reduced problem; eli_time and lindep_time are copies of
  // two of them.
  enum Family : int {
    kBounds, kEmpty, kFixed, kSingletonRows, kForcing, kDominated, kColumnSingletons, kFourierMotzkin,
    kDoubletons, kDuplicateRows, kDuplicateColumns, kLindep, kEliminator, kSetup, kReducedProblem, kNumFamilies
  };
  static constexpr const char* kFamilyNames[] = {"bounds", "empty", "fixed", "singleton rows", "forcing",
                                                 "dominated", "column singletons", "fourier-motzkin",
                                                 "doubletons", "duplicate rows", "duplicate columns",
                                                 "lindep", "eliminator", "setup", "reduced problem"};
  static_assert(std::size(kFamilyNames) == kNumFamilies);
  double family_time[kNumFamilies] = {};
};

enum class PresolveStatus {
  kReduced,          // the reduced problem must be solved, then postsolve() applied
  kSolved,           // everything was removed: postsolve() of an empty solution is optimal
  kPrimalInfeasible,  // detected by presolve; no certificate is built
  kDualInfeasible,    // no dual feasible point: unbounded when primal feasible
};

// A primal-dual solution with status keys, of the original or the reduced problem.
struct LpSolution {
  explicit LpSolution(std::pmr::memory_resource* mem = std::pmr::get_default_resource())
      : xx(mem), xc(mem), y(mem), slx(mem), sux(mem), slc(mem), suc(mem), skx(mem), skc(mem) {}
  Vec<double> xx, xc, y, slx, sux, slc, suc;
  Vec<int32_t> skx, skc;
  void resize(int32_t n, int32_t m);
};

struct PostsolveStack;  // the recorded reductions, defined in postsolve_stack.h

class PresolveResult {
  // The reduced problem and the postsolve records live here, in memory faulted in ahead
  // (see PrefaultedBuffer; expected_bytes tells how much they may take). Declared first, so
  // that it outlives them.
  std::unique_ptr<platform::PrefaultedBuffer> records_memory_;

 public:
  PresolveResult(std::pmr::memory_resource* mem, size_t expected_bytes);
  ~PresolveResult();
  PresolveResult(PresolveResult&&) noexcept;
  // Assigning would move the vectors into memory that the assignment frees first.
  PresolveResult& operator=(PresolveResult&&) = delete;

  PresolveStatus status = PresolveStatus::kReduced;
  PresolveStats stats;
  LpProblem reduced;
  Vec<int32_t> row_origin;  // original index of each reduced row
  Vec<int32_t> col_origin;  // original index of each reduced column

  // Maps a solution of `reduced` (xx, y, slx - sux, skx, skc are read; xc, slc, suc are not;
  // empty skx means "derive the keys of the kept items from values and duals", which is what
  // an interior-point solution wants) to the original problem. Rows and columns removed by presolve get values, duals and keys
  // that keep optimality; xc is recomputed from the original A. For kSolved pass an empty
  // solution. Requires status kReduced or kSolved.
  LpSolution postsolve(const LpSolution& reduced_solution) const;

  std::unique_ptr<PostsolveStack> stack;

 private:
  std::pmr::memory_resource* mem_;
};

// Reduces `problem`, which the result keeps for postsolve (pass an rvalue to spare the copy).
// Throws std::bad_alloc on exhaustion of the memory resource; everything else is reported in
// the result's status. With options.use == 0 the result is the identity.
PresolveResult presolve(LpProblem problem, const PresolveOptions& options, const LogSink* log = nullptr);

}  // namespace qubor::presolve
