// The optimizer on small LPs with known answers: every bound kind, dependent rows, dense
// columns, certificates of infeasibility, limits and stops.
#include <gtest/gtest.h>

#include "lp_builder.h"

namespace qubor::interior::testing {
namespace {

TEST(LpCore, TextbookMaximisationAsMinimisation) {
  // min -3x - 2y : x + y <= 4, x + 3y <= 6, x <= 3
  const LpProblem p = make_lp({-3, -2}, {0, 0}, {3, kInf},
                              {{{{0, 1}, {1, 1}}, -kInf, 4}, {{{0, 1}, {1, 3}}, -kInf, 6}});
  const IpResult r = solve(p);
  ASSERT_EQ(r.solution_status, SolutionStatus::kOptimal);
  EXPECT_EQ(r.problem_status, ProblemStatus::kPrimalDualFeasible);
  EXPECT_EQ(r.termination, Termination::kNormal);
  EXPECT_NEAR(r.primal_obj, -11.0, 1e-7);
  EXPECT_NEAR(r.x[0], 3.0, 1e-6);
  EXPECT_NEAR(r.x[1], 1.0, 1e-6);
  expect_kkt(p, r, 1e-6);
}

TEST(LpCore, BoundKinds) {
  // Free variables: min t  s.t.  t - x >= -2, t + x >= 2  (t = |x - 2| at best, so 0).
  {
    const LpProblem p = make_lp({0, 1}, {-kInf, -kInf}, {kInf, kInf},
                                {{{{1, 1}, {0, -1}}, -2, kInf}, {{{1, 1}, {0, 1}}, 2, kInf}});
    const IpResult r = solve(p);
    ASSERT_EQ(r.solution_status, SolutionStatus::kOptimal);
    EXPECT_NEAR(r.primal_obj, 0.0, 1e-7);
    EXPECT_NEAR(r.x[0], 2.0, 1e-5);
    expect_kkt(p, r, 1e-6);
  }
  // Ranged rows and a fixed variable: min -x - y, 1 <= x + y <= 3, -1 <= x - y <= 1,
  // x + z <= 4 with z fixed at 2.
  {
    LpProblem p = make_lp({-1, -1, 5}, {0, 0, 2}, {kInf, kInf, 2},
                          {{{{0, 1}, {1, 1}}, 1, 3}, {{{0, 1}, {1, -1}}, -1, 1}, {{{0, 1}, {2, 1}}, -kInf, 4}});
    p.cfix = 0.5;
    const IpResult r = solve(p);
    ASSERT_EQ(r.solution_status, SolutionStatus::kOptimal);
    EXPECT_NEAR(r.primal_obj, -3.0 + 10.0 + 0.5, 1e-6);
    EXPECT_EQ(r.x[2], 2.0);
    EXPECT_NEAR(r.xc[0], 3.0, 1e-6);
    EXPECT_NEAR(r.suc[0], 1.0, 1e-6);
    expect_kkt(p, r, 1e-6);
  }
  // Only an upper bound (the variable is flipped inside): min x, x <= 3, x >= -5 by a row.
  {
    const LpProblem p = make_lp({1}, {-kInf}, {3}, {{{{0, 2}}, -10, kInf}});
    const IpResult r = solve(p);
    ASSERT_EQ(r.solution_status, SolutionStatus::kOptimal);
    EXPECT_NEAR(r.x[0], -5.0, 1e-6);
    EXPECT_NEAR(r.slc[0], 0.5, 1e-6);
    expect_kkt(p, r, 1e-6);
  }
  // No rows at all.
  {
    const LpProblem p = make_lp({1, -1}, {1, -3}, {2, 4}, {});
    const IpResult r = solve(p);
    ASSERT_EQ(r.solution_status, SolutionStatus::kOptimal);
    EXPECT_NEAR(r.primal_obj, 1.0 - 4.0, 1e-6);
    expect_kkt(p, r, 1e-6);
  }
}

TEST(LpCore, DegenerateAndDependentRows) {
  // Five constraints meet at the optimum (1, 1).
  {
    const LpProblem p = make_lp({-1, -1}, {0, 0}, {1, 1},
                                {{{{0, 1}, {1, 1}}, -kInf, 2},
                                 {{{0, 2}, {1, 1}}, -kInf, 3},
                                 {{{0, 1}, {1, 2}}, -kInf, 3}});
    const IpResult r = solve(p);
    ASSERT_EQ(r.solution_status, SolutionStatus::kOptimal);
    EXPECT_NEAR(r.primal_obj, -2.0, 1e-7);
    expect_kkt(p, r, 1e-6);
  }
  // Equality rows that repeat each other (consistently): x + y = 2 twice and scaled.
  {
    const LpProblem p = make_lp({1, 2, 0}, {0, 0, 0}, {kInf, kInf, kInf},
                                {{{{0, 1}, {1, 1}}, 2, 2},
                                 {{{0, 2}, {1, 2}}, 4, 4},
                                 {{{0, 1}, {1, 1}, {2, 1}}, 2, 2},
                                 {{{0, 3}, {1, 3}}, 6, 6}});
    const IpResult r = solve(p);
    ASSERT_EQ(r.solution_status, SolutionStatus::kOptimal);
    EXPECT_NEAR(r.primal_obj, 2.0, 1e-7);
    expect_kkt(p, r, 1e-6);
  }
}

TEST(LpCore, DenseColumnStaysOutOfTheFactor) {
  // min sum x_i + 100 z  s.t.  x_i + z >= 1 for 1200 rows: z = 1 covers every row.
  const int32_t m = 1200;
  std::vector<double> c(static_cast<size_t>(m) + 1, 1.0), lo(c.size(), 0.0), up(c.size(), kInf);
  c[static_cast<size_t>(m)] = 100.0;
  std::vector<Row> rows;
  for (int32_t i = 0; i < m; ++i) rows.push_back({{{i, 1.0}, {m, 1.0}}, 1.0, kInf});
  const LpProblem p = make_lp(c, lo, up, rows);
  const IpResult r = solve(p);
  EXPECT_EQ(r.dense_dim, 1);
  ASSERT_EQ(r.solution_status, SolutionStatus::kOptimal);
  EXPECT_NEAR(r.primal_obj, 100.0, 1e-5);
  EXPECT_NEAR(r.x[static_cast<size_t>(m)], 1.0, 1e-6);
  expect_kkt(p, r, 1e-6);
  // Without the dense-column treatment the answer is the same.
  IpOptions opt;
  opt.off_col_trh = 0;
  const IpResult r2 = solve(p, opt);
  EXPECT_EQ(r2.dense_dim, 0);
  EXPECT_NEAR(r2.primal_obj, 100.0, 1e-5);
}

TEST(LpCore, PrimalInfeasibilityCertificate) {
  // x + y <= 1 and x + y >= 2.
  const LpProblem p = make_lp({1, 1}, {0, 0}, {kInf, kInf},
                              {{{{0, 1}, {1, 1}}, -kInf, 1}, {{{0, 1}, {1, 1}}, 2, kInf}});
  const IpResult r = solve(p);
  EXPECT_EQ(r.problem_status, ProblemStatus::kPrimalInfeasible);
  ASSERT_EQ(r.solution_status, SolutionStatus::kPrimalInfeasibleCertificate);
  // The ray: A'y + slx - sux = 0, nonnegative bound duals, positive dual objective.
  EXPECT_GT(r.dual_obj, 0.0);
  const double scale = r.dual_obj;
  for (size_t j = 0; j < 2; ++j)
    EXPECT_NEAR((r.y[0] + r.y[1] + r.slx[j] - r.sux[j]) / scale, 0.0, 1e-8);
  EXPECT_LT(r.y[0], 0.0);
  EXPECT_GT(r.y[1], 0.0);
  for (double v : r.x) EXPECT_EQ(v, 0.0);
}

TEST(LpCore, DualInfeasibilityCertificate) {
  // min -x s.t. x - y <= 1: x = y = t is an improving ray.
  const LpProblem p = make_lp({-1, 0}, {0, 0}, {kInf, kInf}, {{{{0, 1}, {1, -1}}, -kInf, 1}});
  const IpResult r = solve(p);
  EXPECT_EQ(r.problem_status, ProblemStatus::kDualInfeasible);
  ASSERT_EQ(r.solution_status, SolutionStatus::kDualInfeasibleCertificate);
  EXPECT_LT(r.primal_obj, 0.0);
  EXPECT_GE(r.x[0], 0.0);
  EXPECT_GE(r.x[1], 0.0);
  EXPECT_LE(r.xc[0] / -r.primal_obj, 1e-8);  // within the recession cone of the row
  for (double v : r.y) EXPECT_EQ(v, 0.0);
}

TEST(LpCore, LimitsStopsAndBadData) {
  const LpProblem p = make_lp({-3, -2}, {0, 0}, {3, kInf},
                              {{{{0, 1}, {1, 1}}, -kInf, 4}, {{{0, 1}, {1, 3}}, -kInf, 6}});
  IpOptions opt;
  opt.max_iterations = 2;
  IpResult r = solve(p, opt);
  EXPECT_EQ(r.termination, Termination::kMaxIterations);
  EXPECT_EQ(r.iterations, 2);
  EXPECT_EQ(r.solution_status, SolutionStatus::kUnknown);

  opt = IpOptions();
  int32_t calls = 0;
  opt.progress = [&calls](int32_t) { return ++calls == 3; };
  r = solve(p, opt);
  EXPECT_EQ(r.termination, Termination::kUserCallback);
  EXPECT_EQ(calls, 3);

  LpProblem bad = p;
  bad.col_lo[0] = 5.0;  // above the upper bound 3
  r = solve(bad);
  EXPECT_EQ(r.termination, Termination::kModelError);
  bad = p;
  bad.row_idx[0] = 7;
  EXPECT_EQ(solve(bad).termination, Termination::kModelError);
}

TEST(LpCore, ScalingModesAgreeAndRunsRepeat) {
  const LpProblem p = make_lp({-3e3, -2}, {0, 0}, {3, kInf},
                              {{{{0, 1e4}, {1, 1}}, -kInf, 4e4}, {{{0, 1}, {1, 3e-3}}, -kInf, 6}});
  double obj[3];
  for (int32_t mode = 0; mode < 3; ++mode) {
    IpOptions opt;
    opt.scaling = mode;
    const IpResult r = solve(p, opt);
    ASSERT_EQ(r.solution_status, SolutionStatus::kOptimal) << "scaling " << mode;
    obj[mode] = r.primal_obj;
  }
  EXPECT_NEAR(obj[0], obj[1], 1e-7 * std::fabs(obj[1]));
  EXPECT_NEAR(obj[2], obj[1], 1e-7 * std::fabs(obj[1]));
  const IpResult a = solve(p), b = solve(p);
  EXPECT_EQ(a.x, b.x);
  EXPECT_EQ(a.y, b.y);
  EXPECT_EQ(a.iterations, b.iterations);
}

}  // namespace
}  // namespace qubor::interior::testing
