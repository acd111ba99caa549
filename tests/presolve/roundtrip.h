// Round trip used by the presolve tests: solve the original LP densely, presolve it, solve
// the reduced LP, postsolve, and check the postsolved solution against the original problem.
#pragma once

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <utility>

#include "dense_lp.h"

namespace qubor::presolve::testing {

inline constexpr double kInfinity = HUGE_VAL;

// An LP with n columns in [0, inf) and m free rows, to be shaped by the test.
inline DenseLp make_lp(int32_t n, int32_t m) {
  DenseLp d;
  d.n = n;
  d.m = m;
  d.a.assign(static_cast<size_t>(n) * m, 0.0);
  d.c.assign(n, 0.0);
  d.l.assign(n, 0.0);
  d.u.assign(n, kInfinity);
  d.rl.assign(m, -kInfinity);
  d.ru.assign(m, kInfinity);
  return d;
}

// Sets row i to the given (column, value) entries and sides.
inline void set_row(DenseLp& d, int32_t i, std::initializer_list<std::pair<int32_t, double>> entries, double rl,
                    double ru) {
  for (const auto& [j, v] : entries) d.at(i, j) = v;
  d.rl[i] = rl;
  d.ru[i] = ru;
}

struct RoundTrip {
  LpStatus original = LpStatus::kOptimal;
  PresolveStatus presolve_status = PresolveStatus::kReduced;
  int32_t rows = 0, cols = 0;  // reduced size
  PresolveStats stats;
  std::string failure;  // empty when everything agreed
};

// Runs the round trip; failure describes the first disagreement.
inline RoundTrip round_trip(const DenseLp& d, const PresolveOptions& opt = PresolveOptions()) {
  RoundTrip rt;
  const LpProblem p = to_sparse(d);
  const DenseResult ref = solve_dense(d);
  rt.original = ref.status;
  PresolveResult r = presolve(p, opt);
  rt.presolve_status = r.status;
  rt.rows = r.reduced.m;
  rt.cols = r.reduced.n;
  rt.stats = r.stats;
  if (r.status == PresolveStatus::kPrimalInfeasible) {
    if (ref.status != LpStatus::kInfeasible) rt.failure = "presolve claims primal infeasibility";
    return rt;
  }
  if (r.status == PresolveStatus::kDualInfeasible) {
    if (ref.status == LpStatus::kOptimal) rt.failure = "presolve claims dual infeasibility";
    return rt;
  }
  DenseResult red;
  if (r.status == PresolveStatus::kReduced) {
    red = solve_dense(to_dense(r.reduced));
  } else {
    red.obj = r.reduced.c0;
  }
  if (red.status != ref.status) {
    rt.failure = "reduced problem status differs from the original's";
    return rt;
  }
  if (ref.status != LpStatus::kOptimal) return rt;
  if (std::fabs(red.obj - ref.obj) > 1e-7 * (1 + std::fabs(ref.obj))) {
    rt.failure = "reduced objective " + std::to_string(red.obj) + " vs " + std::to_string(ref.obj);
    return rt;
  }
  LpSolution reduced_sol = as_solution(r.reduced, red);
  rt.failure = check_kkt(p, r.postsolve(reduced_sol), ref.obj);
  if (!rt.failure.empty()) return rt;
  // Without keys (an interior-point solution), postsolve derives them from values and duals.
  reduced_sol.skx.clear();
  reduced_sol.skc.clear();
  rt.failure = check_kkt(p, r.postsolve(reduced_sol), ref.obj);
  if (!rt.failure.empty()) rt.failure = "keys derived: " + rt.failure;
  return rt;
}

}  // namespace qubor::presolve::testing
