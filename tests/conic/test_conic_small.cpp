// The conic optimizer on small problems with known answers: every cone kind, every bound
// kind, maximization, matrix variables, and infeasible and unbounded problems whose
// certificates are checked against the data.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "conic/conic_model.h"

namespace qubor::testing {
namespace {

constexpr double kInf = 1.0e30;
constexpr double kTol = 1e-6;

ConicModel::Bound fr() { return {QBR_BK_FR, -kInf, kInf}; }
ConicModel::Bound fx(double v) { return {QBR_BK_FX, v, v}; }
ConicModel::Bound lo(double v) { return {QBR_BK_LO, v, kInf}; }
ConicModel::Bound up(double v) { return {QBR_BK_UP, -kInf, v}; }
ConicModel::Bound ra(double l, double u) { return {QBR_BK_RA, l, u}; }

// c - A'y - slx + sux - snx = 0 (without c for a primal infeasibility certificate), and
// y = slc - suc.
void expect_dual_equations(const ConicModel& m, const SolutionView& s, bool with_c) {
  std::vector<double> r(m.c.size(), 0.0);
  for (size_t j = 0; j < m.c.size(); ++j) r[j] = (with_c ? m.c[j] : 0.0) - s.slx[j] + s.sux[j] - s.snx[j];
  for (const auto& e : m.a) r[static_cast<size_t>(e.j)] -= e.v * s.y[static_cast<size_t>(e.i)];
  for (size_t j = 0; j < r.size(); ++j) EXPECT_NEAR(r[j], 0.0, kTol) << "dual equation of variable " << j;
  for (size_t i = 0; i < m.con.size(); ++i) EXPECT_NEAR(s.y[i], s.slc[i] - s.suc[i], kTol) << "row " << i;
}

// The members' duals lie in the (self-dual) cones.
void expect_snx_in_cones(const ConicModel& m, const SolutionView& s) {
  for (const auto& [type, mem] : m.cones) {
    if (type == QBR_CT_QUAD) {
      double t = 0.0;
      for (size_t k = 1; k < mem.size(); ++k) t += s.snx[static_cast<size_t>(mem[k])] * s.snx[static_cast<size_t>(mem[k])];
      EXPECT_GE(s.snx[static_cast<size_t>(mem[0])], std::sqrt(t) - kTol);
    } else if (type == QBR_CT_RQUAD) {
      double t = 0.0;
      for (size_t k = 2; k < mem.size(); ++k) t += s.snx[static_cast<size_t>(mem[k])] * s.snx[static_cast<size_t>(mem[k])];
      const double a = s.snx[static_cast<size_t>(mem[0])], b = s.snx[static_cast<size_t>(mem[1])];
      EXPECT_GE(a, -kTol);
      EXPECT_GE(b, -kTol);
      EXPECT_GE(2.0 * a * b, t - kTol);
    }
  }
}

TEST(ConicSmall, QuadraticConeWithFixedMemberAndEqualityRow) {
  // min x0  s.t.  x0 >= ||(x1, x2)||, x1 = 1 (bound), x2 = 2 (row).
  ConicModel m;
  m.c = {1, 0, 0};
  m.var = {fr(), fx(1), fr()};
  m.con = {fx(2)};
  m.a = {{0, 2, 1.0}};
  m.cones = {{QBR_CT_QUAD, {0, 1, 2}}};
  SolutionView s;
  ASSERT_EQ(solve(m, s), QBR_RES_OK);
  EXPECT_EQ(s.solsta, QBR_SOL_STA_OPTIMAL);
  EXPECT_NEAR(s.xx[0], std::sqrt(5.0), kTol);
  EXPECT_NEAR(s.pobj, std::sqrt(5.0), kTol);
  EXPECT_NEAR(s.dobj, std::sqrt(5.0), kTol);
  expect_dual_equations(m, s, true);
  expect_snx_in_cones(m, s);
}

TEST(ConicSmall, RotatedConeAndMaximization) {
  // min x0 + x1  s.t. 2 x0 x1 >= x2^2, x2 = 2: x0 = x1 = sqrt(2).
  ConicModel m;
  m.c = {1, 1, 0};
  m.var = {fr(), fr(), fx(2)};
  m.cones = {{QBR_CT_RQUAD, {0, 1, 2}}};
  SolutionView s;
  ASSERT_EQ(solve(m, s), QBR_RES_OK);
  EXPECT_EQ(s.solsta, QBR_SOL_STA_OPTIMAL);
  EXPECT_NEAR(s.xx[0], std::sqrt(2.0), kTol);
  EXPECT_NEAR(s.xx[1], std::sqrt(2.0), kTol);
  expect_dual_equations(m, s, true);
  expect_snx_in_cones(m, s);
  // The same as a maximization of the negated objective.
  m.c = {-1, -1, 0};
  m.sense = QBR_OBJECTIVE_SENSE_MAXIMIZE;
  SolutionView t;
  ASSERT_EQ(solve(m, t), QBR_RES_OK);
  EXPECT_NEAR(t.pobj, -2.0 * std::sqrt(2.0), kTol);
  expect_dual_equations(m, t, true);
}

TEST(ConicSmall, DiscWithInequalityRowsAndBoxedVariables) {
  // max x + y  s.t.  (1, x, y) in Q, x - y <= 0.5, 0 <= x <= 10, -3 <= y: at (1/sqrt2, 1/sqrt2).
  ConicModel m;
  m.sense = QBR_OBJECTIVE_SENSE_MAXIMIZE;
  m.c = {0, 1, 1};
  m.var = {fx(1), ra(0, 10), lo(-3)};
  m.con = {up(0.5), ra(-5, 5)};
  m.a = {{0, 1, 1.0}, {0, 2, -1.0}, {1, 1, 1.0}, {1, 2, 1.0}};
  m.cones = {{QBR_CT_QUAD, {0, 1, 2}}};
  SolutionView s;
  ASSERT_EQ(solve(m, s), QBR_RES_OK);
  EXPECT_EQ(s.solsta, QBR_SOL_STA_OPTIMAL);
  EXPECT_NEAR(s.pobj, std::sqrt(2.0), kTol);
  EXPECT_NEAR(s.xx[1], 1.0 / std::sqrt(2.0), kTol);
  EXPECT_NEAR(s.xc[1], std::sqrt(2.0), kTol);
  expect_dual_equations(m, s, true);
}

TEST(ConicSmall, SemidefiniteBlockAndOneByOneBlock) {
  // min <I, X> + z  s.t.  <A, X> = 1, A = [1 .5; .5 1];  z 1x1 block with z >= 2 via a row:
  // optimum 1 / lambda_max(A) + 2 = 2/3 + 2.
  ConicModel m;
  m.c = {};
  m.bar_dim = {2, 1};
  m.con = {fx(1), lo(2)};
  m.mats = {{-1, 0, {0, 1}, {0, 1}, {1.0, 1.0}},
            {0, 0, {0, 1, 1}, {0, 0, 1}, {1.0, 0.5, 1.0}},
            {-1, 1, {0}, {0}, {1.0}},
            {1, 1, {0}, {0}, {1.0}}};
  SolutionView s;
  ASSERT_EQ(solve(m, s), QBR_RES_OK);
  EXPECT_EQ(s.solsta, QBR_SOL_STA_OPTIMAL);
  EXPECT_NEAR(s.pobj, 2.0 / 3.0 + 2.0, kTol);
  // X = (1/3) [1 1; 1 1]; S = C - y A with y = 2/3 is PSD and complementary.
  EXPECT_NEAR(s.barx[0][0], 1.0 / 3.0, kTol);
  EXPECT_NEAR(s.barx[0][1], 1.0 / 3.0, kTol);
  EXPECT_NEAR(s.barx[0][2], 1.0 / 3.0, kTol);
  EXPECT_NEAR(s.y[0], 2.0 / 3.0, kTol);
  EXPECT_NEAR(s.bars[0][0], 1.0 - 2.0 / 3.0, kTol);
  EXPECT_NEAR(s.bars[0][1], -1.0 / 3.0, kTol);
  EXPECT_NEAR(s.barx[1][0], 2.0, kTol);
  EXPECT_NEAR(s.bars[1][0], 0.0, kTol);
}

TEST(ConicSmall, ZeroConeAndFreeVariables) {
  // min x2  s.t.  x0 in the zero cone, x1 - x2 = x0 + 1 (free x1, x2), x1 >= 3.
  ConicModel m;
  m.c = {0, 0, 1};
  m.var = {fr(), lo(3), fr()};
  m.con = {fx(1)};
  m.a = {{0, 1, 1.0}, {0, 2, -1.0}, {0, 0, -1.0}};
  m.cones = {{QBR_CT_ZERO, {0}}};
  SolutionView s;
  ASSERT_EQ(solve(m, s), QBR_RES_OK);
  EXPECT_EQ(s.solsta, QBR_SOL_STA_OPTIMAL);
  EXPECT_NEAR(s.xx[0], 0.0, kTol);
  EXPECT_NEAR(s.xx[2], 2.0, kTol);
  expect_dual_equations(m, s, true);
}

TEST(ConicSmall, SingletonRowsBecomeBoundsAndKeepTheirDuals) {
  // min x0 - x1 + x2  s.t.  -2 x1 in [-6, -2] (x1 <= 3 from the lower side), 0.5 x2 >= 1,
  // x0 - x1 >= -10, (x0, x3) in Q with x3 = 1: x = (1, 3, 2, 1), objective 0.
  ConicModel m;
  m.c = {1, -1, 1, 0};
  m.var = {fr(), fr(), lo(0), fx(1)};
  m.con = {ra(-6, -2), lo(1), lo(-10)};
  m.a = {{0, 1, -2.0}, {1, 2, 0.5}, {2, 0, 1.0}, {2, 1, -1.0}};
  m.cones = {{QBR_CT_QUAD, {0, 3}}};
  SolutionView s;
  ASSERT_EQ(solve(m, s), QBR_RES_OK);
  EXPECT_EQ(s.solsta, QBR_SOL_STA_OPTIMAL);
  EXPECT_NEAR(s.pobj, 0.0, kTol);
  EXPECT_NEAR(s.xx[1], 3.0, kTol);
  EXPECT_NEAR(s.xx[2], 2.0, kTol);
  EXPECT_NEAR(s.xc[0], -6.0, kTol);
  EXPECT_NEAR(s.slc[0], 0.5, kTol);  // the row holds the dual of the bound it set
  EXPECT_NEAR(s.slc[1], 2.0, kTol);
  EXPECT_NEAR(s.sux[1], 0.0, kTol);
  EXPECT_NEAR(s.dobj, 0.0, kTol);
  expect_dual_equations(m, s, true);
}

TEST(ConicSmall, LongQuadraticConeStaysOutOfTheReducedMatrix) {
  // min x0  s.t.  x_i = i / 100 (i = 1..299) by rows: x0 = ||(x1, ..., x299)||. The cone
  // touches 299 rows, so it is handled through the low-rank update.
  ConicModel m;
  const int32_t n = 300;
  double norm2 = 0.0;
  m.c.assign(n, 0.0);
  m.c[0] = 1.0;
  m.var.assign(n, fr());
  std::vector<int32_t> mem;
  for (int32_t j = 0; j < n; ++j) mem.push_back(j);
  for (int32_t i = 1; i < n; ++i) {
    m.con.push_back(fx(i / 100.0));
    m.a.push_back({i - 1, i, 1.0});
    norm2 += (i / 100.0) * (i / 100.0);
  }
  m.cones = {{QBR_CT_QUAD, mem}};
  SolutionView s;
  ASSERT_EQ(solve(m, s), QBR_RES_OK);
  EXPECT_EQ(s.solsta, QBR_SOL_STA_OPTIMAL);
  EXPECT_NEAR(s.xx[0], std::sqrt(norm2), 1e-6 * std::sqrt(norm2));
  expect_dual_equations(m, s, true);
  expect_snx_in_cones(m, s);
}

TEST(ConicSmall, PrimalInfeasibleGivesACertificate) {
  // x0 >= ||(x1, x2)|| and x0 <= -1, x1 + x2 = 1.
  ConicModel m;
  m.c = {1, 0, 0};
  m.var = {up(-1), fr(), fr()};
  m.con = {fx(1)};
  m.a = {{0, 1, 1.0}, {0, 2, 1.0}};
  m.cones = {{QBR_CT_QUAD, {0, 1, 2}}};
  SolutionView s;
  ASSERT_EQ(solve(m, s), QBR_RES_OK);
  EXPECT_EQ(s.prosta, QBR_PRO_STA_PRIM_INFEAS);
  ASSERT_EQ(s.solsta, QBR_SOL_STA_PRIM_INFEAS_CER);
  expect_dual_equations(m, s, false);
  expect_snx_in_cones(m, s);
  // The ray's dual objective is positive; duals of infinite bounds vanish.
  const double by = s.slc[0] * 1.0 - s.suc[0] * 1.0 - s.sux[0] * (-1.0);
  EXPECT_GT(by, 0.0);
  EXPECT_NEAR(s.slx[0], 0.0, kTol);
  EXPECT_GE(s.sux[0], -kTol);
}

TEST(ConicSmall, UnboundedGivesADualCertificate) {
  // min -x0 - x2  s.t. (x0, x1, x2) in Q, x1 = 0 (row), x0 <= 5 + x2 (row): unbounded along
  // x0 = x2.
  ConicModel m;
  m.c = {-1, 0, -1};
  m.var = {fr(), fr(), fr()};
  m.con = {fx(0), up(5)};
  m.a = {{0, 1, 1.0}, {1, 0, 1.0}, {1, 2, -1.0}};
  m.cones = {{QBR_CT_QUAD, {0, 1, 2}}};
  SolutionView s;
  ASSERT_EQ(solve(m, s), QBR_RES_OK);
  EXPECT_EQ(s.prosta, QBR_PRO_STA_DUAL_INFEAS);
  ASSERT_EQ(s.solsta, QBR_SOL_STA_DUAL_INFEAS_CER);
  // A ray: c'x < 0, A x in the recession cone of the row bounds, x in the cone.
  const double cx = -s.xx[0] - s.xx[2];
  EXPECT_LT(cx, 0.0);
  const double scale = std::max({std::fabs(s.xx[0]), std::fabs(s.xx[2]), 1e-300});
  EXPECT_NEAR(s.xx[1] / scale, 0.0, 1e-6);
  EXPECT_LE((s.xx[0] - s.xx[2]) / scale, 1e-6);
  EXPECT_GE(s.xx[0], std::hypot(s.xx[1], s.xx[2]) - 1e-9 * scale);
}

TEST(ConicSmall, FreeOptimizerTakesTheConicPathAndIntpntIsRefused) {
  ConicModel m;
  m.c = {1, 0, 0};
  m.var = {fr(), fx(3), fx(4)};
  m.cones = {{QBR_CT_QUAD, {0, 1, 2}}};
  SolutionView s;
  ASSERT_EQ(solve(m, s, QBR_OPTIMIZER_FREE), QBR_RES_OK);
  EXPECT_NEAR(s.pobj, 5.0, kTol);
  EXPECT_EQ(solve(m, s, QBR_OPTIMIZER_INTPNT), QBR_RES_ERR_INV_OPTIMIZER);
}

}  // namespace
}  // namespace qubor::testing
