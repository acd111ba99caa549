// The simplex engine: the scaled computational form, the basis with its LU, and the primal
// and dual values that the primal and dual iterations share.
//
// Form: items j < n are columns of A (scaled: A_s = R A C), items n + i are the logicals
// s_i = -(A x)_i with column e_i. Every item has working bounds lo/up and a working cost
// (perturbed or shifted during a run; cost_orig keeps the scaled data). Nonbasic items sit
// at a bound (a free one at 0); x holds the values of all items, d the reduced costs
// d = cost - [A I]'y (0 for basic items).
#pragma once

#include <chrono>
#include <cstdint>
#include <random>
#include <vector>

#include "linalg/lu/basis_lu.h"
#include "simplex/simplex.h"

namespace qubor::simplex {

enum ItemState : int8_t { kBasic = 0, kAtLower = 1, kAtUpper = 2, kAtZero = 3, kFixed = 4 };

// Why an iteration loop stopped.
enum class LoopEnd { kOptimal, kUnbounded, kLimit, kTrouble };

class Engine {
 public:
  Engine(const interior::LpProblem& lp, const SimplexOptions& o);

  // Basis set-up: all logicals basic, or from status keys (repaired to m basic items).
  void set_slack_basis();
  void set_basis(const StartBasis& start);
  // Factorizes the basis (dependent columns replaced by logicals, which put the removed
  // item at a bound), then recomputes x_B, y and d. False when nothing can be done.
  void refactor();
  void compute_primal();
  void compute_dual();
  // Places a nonbasic item at the bound its state names.
  void place(int32_t j);
  // State of a nonbasic item chosen from its bounds and the sign of its reduced cost.
  ItemState state_for_dual(int32_t j) const;

  // Scatters column j of [A I] into a dense m-vector (which must be zero).
  void scatter_column(int32_t j, double* v) const;
  // row[j] = rho' a_j for the nonbasic items; their indices go to row_list_.
  void pivot_row(const double* rho);
  // Replaces basic item at position r by q (alpha = B^{-1} a_q); refactorizes when the LU
  // asks for it or refuses the update.
  void change_basis(int32_t r, int32_t q, const double* alpha);

  // Largest primal infeasibility of the basic items relative to their tolerances (1 means
  // at the tolerance), and the sum of the infeasibilities.
  double primal_infeasibility(double* sum = nullptr) const;
  // Largest dual infeasibility of the nonbasic items, relative to their tolerances.
  double dual_infeasibility() const;
  bool primal_feasible() const { return primal_infeasibility() <= 1.0; }
  bool dual_feasible() const { return dual_infeasibility() <= 1.0; }
  double objective() const;  // cost_orig'x in the scaled form

  bool out_of_time() const;
  // Iteration, time and callback limits; sets the result's status when one is reached.
  bool limit_reached(SimplexResult& r);
  bool stop_requested(int64_t iteration);
  double elapsed() const;
  void log_line(const char* phase, int64_t iter);

  // Result in the problem's form (unscaled).
  void extract(const interior::LpProblem& lp, SimplexResult& r) const;
  void extract_farkas(const interior::LpProblem& lp, const double* rho, double sign, SimplexResult& r);
  void extract_primal_ray(const interior::LpProblem& lp, const double* xray, SimplexResult& r) const;

  const SimplexOptions& opt;
  int32_t m = 0, n = 0, nt = 0;
  std::vector<int64_t> aptr;
  std::vector<int32_t> aidx;
  std::vector<double> aval;
  std::vector<int64_t> rptr;
  std::vector<int32_t> ridx;
  std::vector<double> rval;
  std::vector<double> row_scale, col_scale;
  std::vector<double> lo, up, cost, cost_orig;
  // Feasibility tolerances per item: the options' tolerances hold for the problem's own
  // units, so they are scaled with the item (clamped against scaling extremes).
  std::vector<double> tol_p, tol_d;
  std::vector<int32_t> basis, where;
  std::vector<int8_t> state;
  std::vector<double> x, d, y;
  linalg::BasisLu lu;
  // Work vectors: dense m-vectors and the pivot row over all items.
  std::vector<double> row;
  std::vector<int32_t> row_list_;
  std::vector<uint8_t> row_mark_;
  std::mt19937 rng;
  int64_t iterations = 0;  // of all phases of this run
  int32_t setbacks = 0;
  int64_t factorizations = 0;
  bool costs_changed = false;
  int32_t handoffs = 0;  // switches between the primal and the dual loop

 private:
  void scale(const interior::LpProblem& lp);
  std::chrono::steady_clock::time_point start_;
};

// Dual simplex from the current basis. Phase 1 (auxiliary box problem) runs when the
// basis is not dual feasible. Returns how it ended; on kUnbounded the Farkas ray is in the
// result.
LoopEnd run_dual(Engine& e, const interior::LpProblem& lp, SimplexResult& r);
// Primal simplex from the current basis (phase 1 when it is not primal feasible).
LoopEnd run_primal(Engine& e, const interior::LpProblem& lp, SimplexResult& r);

}  // namespace qubor::simplex
