// The optimizer on small convex QPs: closed-form optima, every bound kind under a coupling Q,
// both reduced systems (normal equations for a diagonal Q, the augmented system otherwise),
// and certificates checked against the data.
#include <gtest/gtest.h>

#include <algorithm>

#include "lp_builder.h"

namespace qubor::interior::testing {
namespace {

IpOptions augmented() {
  IpOptions o;
  o.kkt_form = 1;
  return o;
}

// min 1/2 x'Qx + c'x : x0 + x1 + x2 = 1, x free, Q = [2 1 0; 1 2 1; 0 1 2], c = (1, -1, 0.5):
// the KKT system gives x = (-0.5, 1.75, -0.25), y = 1.75, objective -0.3125.
TEST(QpCore, FreeVariablesReachTheClosedForm) {
  LpProblem p = make_lp({1, -1, 0.5}, {-kInf, -kInf, -kInf}, {kInf, kInf, kInf},
                        {{{{0, 1}, {1, 1}, {2, 1}}, 1, 1}});
  put_q(p, {{0, 0, 2}, {1, 0, 1}, {1, 1, 2}, {2, 1, 1}, {2, 2, 2}});
  const IpResult r = solve(p);
  ASSERT_EQ(r.solution_status, SolutionStatus::kOptimal);
  EXPECT_NEAR(r.x[0], -0.5, 1e-6);
  EXPECT_NEAR(r.x[1], 1.75, 1e-6);
  EXPECT_NEAR(r.x[2], -0.25, 1e-6);
  EXPECT_NEAR(r.y[0], 1.75, 1e-6);
  EXPECT_NEAR(r.primal_obj, -0.3125, 1e-7);
  EXPECT_NEAR(r.dual_obj, -0.3125, 1e-7);
  expect_kkt(p, r, 1e-6);
}

// A dense Q = B'B coupling columns of every kind: lower bound, box, upper bound only (flipped
// inside), fixed (moved into c and the constant) and free, under an inequality, a range and
// an equality. The KKT conditions with Q and a zero gap prove the optimum.
LpProblem coupled_qp() {
  LpProblem p = make_lp({-1, 2, -3, 1, 0.5, -2}, {0, -1, -kInf, 1.5, -kInf, 0}, {kInf, 2, 1, 1.5, kInf, 4},
                        {{{{0, 1}, {1, 1}, {2, 1}, {5, 1}}, -kInf, 4},
                         {{{1, 1}, {3, -1}, {4, 2}}, -1, 2},
                         {{{0, 1}, {4, -1}, {5, 1}}, 1, 1}});
  const double b[3][6] = {{1, 0.5, 0, -1, 0.2, 0}, {0, 1, 1, 0.3, 0, -0.5}, {0.4, 0, -1, 1, 1, 0.7}};
  std::vector<std::tuple<int32_t, int32_t, double>> q;
  for (int32_t j = 0; j < 6; ++j)
    for (int32_t i = j; i < 6; ++i) {
      double v = i == j ? 0.1 : 0.0;
      for (int k = 0; k < 3; ++k) v += b[k][i] * b[k][j];
      if (v != 0.0) q.emplace_back(i, j, v);
    }
  put_q(p, q);
  return p;
}

TEST(QpCore, DenseQCouplesEveryBoundKind) {
  const LpProblem p = coupled_qp();
  const IpResult r = solve(p);
  ASSERT_EQ(r.solution_status, SolutionStatus::kOptimal);
  EXPECT_EQ(r.x[3], 1.5);
  expect_kkt(p, r, 1e-6);
  // The same problem without scaling, and with a finer tolerance, lands on the same point.
  IpOptions o;
  o.scaling = 0;
  o.tol_rel_gap = 1e-10;
  const IpResult r2 = solve(p, o);
  ASSERT_EQ(r2.solution_status, SolutionStatus::kOptimal);
  EXPECT_NEAR(r2.primal_obj, r.primal_obj, 1e-7 * (1 + std::fabs(r.primal_obj)));
  for (size_t j = 0; j < 6; ++j) EXPECT_NEAR(r2.x[j], r.x[j], 1e-5);
}

TEST(QpCore, DiagonalQGivesTheSameOptimumOnBothSystems) {
  // min 1/2 sum d_j (x_j - p_j)^2 over a simplex-like set with a box: a projection.
  LpProblem p = make_lp({-1, -4, 1, -0.5}, {0, 0, 0, -1}, {kInf, 1, kInf, 1},
                        {{{{0, 1}, {1, 1}, {2, 1}, {3, 1}}, 1, 1}, {{{0, 1}, {2, -1}}, -kInf, 0.25}});
  put_q(p, {{0, 0, 1}, {1, 1, 2}, {2, 2, 0.5}, {3, 3, 4}});
  const IpResult ne = solve(p);
  const IpResult aug = solve(p, augmented());
  ASSERT_EQ(ne.solution_status, SolutionStatus::kOptimal);
  ASSERT_EQ(aug.solution_status, SolutionStatus::kOptimal);
  expect_kkt(p, ne, 1e-6);
  expect_kkt(p, aug, 1e-6);
  EXPECT_NEAR(ne.primal_obj, aug.primal_obj, 1e-8);
  for (size_t j = 0; j < 4; ++j) EXPECT_NEAR(ne.x[j], aug.x[j], 1e-6);
  // A Q with a zero diagonal entry on a free column leaves that column linear.
  LpProblem lin = make_lp({1, 0}, {0, -kInf}, {kInf, kInf}, {{{{0, 1}, {1, 1}}, 2, 2}});
  put_q(lin, {{0, 0, 1}});
  for (const IpOptions& o : {IpOptions(), augmented()}) {
    const IpResult r = solve(lin, o);
    ASSERT_EQ(r.solution_status, SolutionStatus::kOptimal);
    EXPECT_NEAR(r.x[0], 0.0, 1e-6);
    EXPECT_NEAR(r.primal_obj, 0.0, 1e-7);
    expect_kkt(lin, r, 1e-6);
  }
}

TEST(QpCore, PrimalInfeasibleQpGivesAFarkasRay) {
  // x0 + x1 >= 3, x0 - x1 = 0 with x in [0, 1]^2, Q coupling both.
  LpProblem p = make_lp({0, 1}, {0, 0}, {1, 1}, {{{{0, 1}, {1, 1}}, 3, kInf}, {{{0, 1}, {1, -1}}, 0, 0}});
  put_q(p, {{0, 0, 2}, {1, 0, -1}, {1, 1, 2}});
  for (const IpOptions& o : {IpOptions(), augmented()}) {
    const IpResult r = solve(p, o);
    ASSERT_EQ(r.problem_status, ProblemStatus::kPrimalInfeasible);
    ASSERT_EQ(r.solution_status, SolutionStatus::kPrimalInfeasibleCertificate);
    // A'y + slx - sux = 0 and the bound terms sum to a positive value.
    std::vector<double> aty(2, 0.0);
    for (size_t j = 0; j < 2; ++j)
      for (int64_t k = p.col_ptr[j]; k < p.col_ptr[j + 1]; ++k)
        aty[j] += p.values[static_cast<size_t>(k)] * r.y[static_cast<size_t>(p.row_idx[static_cast<size_t>(k)])];
    double bterm = 3 * r.slc[0] + 0 * (r.slc[1] - r.suc[1]) - r.sux[0] - r.sux[1];
    const double scale = std::max({std::fabs(r.y[0]), std::fabs(r.y[1]), 1e-300});
    for (size_t j = 0; j < 2; ++j) EXPECT_NEAR((aty[j] + r.slx[j] - r.sux[j]) / scale, 0.0, 1e-6);
    EXPECT_GT(bterm / scale, 0.1);
    EXPECT_GT(r.dual_obj, 0.0);
  }
}

TEST(QpCore, UnboundedQpGivesARayInTheNullSpaceOfQ) {
  // Q = [1 1; 1 1] is singular along d = (1, -1); c'd = -2 < 0 and no constraint stops d.
  LpProblem p = make_lp({-1, 1, 0}, {-kInf, -kInf, 0}, {kInf, kInf, kInf}, {{{{0, 1}, {1, 1}, {2, 1}}, -kInf, 3}});
  put_q(p, {{0, 0, 1}, {1, 0, 1}, {1, 1, 1}, {2, 2, 1}});
  const IpResult r = solve(p);
  ASSERT_EQ(r.problem_status, ProblemStatus::kDualInfeasible);
  ASSERT_EQ(r.solution_status, SolutionStatus::kDualInfeasibleCertificate);
  const double norm = std::max({std::fabs(r.x[0]), std::fabs(r.x[1]), std::fabs(r.x[2])});
  ASSERT_GT(norm, 0.0);
  const double cx = (-r.x[0] + r.x[1]) / norm;
  EXPECT_LT(cx, -0.1);
  for (double v : q_times(p, r.x)) EXPECT_NEAR(v / norm, 0.0, 1e-6);
  EXPECT_LE((r.x[0] + r.x[1] + r.x[2]) / norm, 1e-6);
  EXPECT_GE(r.x[2] / norm, -1e-6);
  // With the direction bounded by a box the same objective has an optimum.
  LpProblem boxed = p;
  boxed.col_lo[0] = -5;
  boxed.col_up[0] = 5;
  const IpResult b = solve(boxed);
  ASSERT_EQ(b.solution_status, SolutionStatus::kOptimal);
  expect_kkt(boxed, b, 1e-6);
}

TEST(QpCore, MalformedQuadraticTermIsAModelError) {
  LpProblem p = make_lp({1, 1}, {0, 0}, {1, 1}, {});
  put_q(p, {{0, 0, 1}, {1, 1, 1}});
  p.q_row_idx[1] = 0;  // an entry above the diagonal
  EXPECT_EQ(solve(p).termination, Termination::kModelError);
  put_q(p, {{0, 0, std::nan("")}});
  EXPECT_EQ(solve(p).termination, Termination::kModelError);
}

}  // namespace
}  // namespace qubor::interior::testing
