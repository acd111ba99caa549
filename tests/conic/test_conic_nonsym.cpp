// The conic optimizer on exponential and power cones (primal and dual forms): generated
// families with closed-form answers over several orders of magnitude of data scaling, an
// infeasibility certificate, and relaxations of real process-synthesis models. Every answer
// is checked independently: primal and dual equations, and membership of x and of the duals
// snx in the cones and their duals.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <string>

#include "conic/conic_model.h"

namespace qubor::testing {
namespace {

constexpr double kInf = 1.0e30;

ConicModel::Bound fr() { return {QBR_BK_FR, -kInf, kInf}; }
ConicModel::Bound fx(double v) { return {QBR_BK_FX, v, v}; }
ConicModel::Bound lo(double v) { return {QBR_BK_LO, v, kInf}; }

// Membership, up to tol, of a point in the primal exponential or power cone (`dual` false)
// or in their dual cones.
bool in_exp(double x1, double x2, double x3, double tol) {
  if (x1 < -tol || x2 < -tol) return false;
  if (x2 <= tol) return x3 <= tol;
  return x1 >= x2 * std::exp(x3 / x2) - tol * (1.0 + std::fabs(x1));
}
bool in_dexp(double s1, double s2, double s3, double tol) {
  // s1 >= -s3 exp(s2 / s3 - 1), s3 <= 0 (with the closure s3 = 0, s1, s2 >= 0).
  if (s1 < -tol || s3 > tol) return false;
  if (s3 >= -tol) return s2 >= -tol;
  return s1 >= -s3 * std::exp(s2 / s3 - 1.0) - tol * (1.0 + std::fabs(s1));
}
bool in_pow(double a, double x1, double x2, double znorm, double tol) {
  if (x1 < -tol || x2 < -tol) return false;
  return std::pow(std::max(x1, 0.0), a) * std::pow(std::max(x2, 0.0), 1.0 - a) >= znorm - tol * (1.0 + znorm);
}
bool in_dpow(double a, double s1, double s2, double znorm, double tol) {
  return in_pow(a, s1 / a, s2 / (1.0 - a), znorm, tol);
}

// Every cone's x and snx in the cone and its dual (snx in minus the dual cone for a
// maximisation, whose duals have the opposite sign).
void expect_cone_membership(const ConicModel& m, const SolutionView& s, double tol) {
  const double sign = m.sense == QBR_OBJECTIVE_SENSE_MAXIMIZE ? -1.0 : 1.0;
  for (size_t k = 0; k < m.cones.size(); ++k) {
    const auto& [type, mem] = m.cones[k];
    auto x = [&](size_t i) { return s.xx[static_cast<size_t>(mem[i])]; };
    auto z = [&](size_t i) { return sign * s.snx[static_cast<size_t>(mem[i])]; };
    auto rest = [&](auto get) {
      double t = 0.0;
      for (size_t i = 2; i < mem.size(); ++i) t += get(i) * get(i);
      return std::sqrt(t);
    };
    const double a = k < m.cone_par.size() ? m.cone_par[k] : 0.0;
    switch (type) {
      case QBR_CT_PEXP:
        EXPECT_TRUE(in_exp(x(0), x(1), x(2), tol)) << "x of cone " << k;
        EXPECT_TRUE(in_dexp(z(0), z(1), z(2), tol)) << "snx of cone " << k;
        break;
      case QBR_CT_DEXP:
        EXPECT_TRUE(in_dexp(x(0), x(1), x(2), tol)) << "x of cone " << k;
        EXPECT_TRUE(in_exp(z(0), z(1), z(2), tol)) << "snx of cone " << k;
        break;
      case QBR_CT_PPOW:
        EXPECT_TRUE(in_pow(a, x(0), x(1), rest(x), tol)) << "x of cone " << k;
        EXPECT_TRUE(in_dpow(a, z(0), z(1), rest(z), tol)) << "snx of cone " << k;
        break;
      case QBR_CT_DPOW:
        EXPECT_TRUE(in_dpow(a, x(0), x(1), rest(x), tol)) << "x of cone " << k;
        EXPECT_TRUE(in_pow(a, z(0), z(1), rest(z), tol)) << "snx of cone " << k;
        break;
      default: break;
    }
  }
}

// A x = xc within the row bounds, and c - A'y - slx + sux - snx = 0.
void expect_feasible_pair(const ConicModel& m, const SolutionView& s, double tol) {
  std::vector<double> ax(m.con.size(), 0.0), r(m.c.size(), 0.0);
  for (size_t j = 0; j < m.c.size(); ++j) r[j] = m.c[j] - s.slx[j] + s.sux[j] - s.snx[j];
  for (const auto& e : m.a) {
    ax[static_cast<size_t>(e.i)] += e.v * s.xx[static_cast<size_t>(e.j)];
    r[static_cast<size_t>(e.j)] -= e.v * s.y[static_cast<size_t>(e.i)];
  }
  for (size_t i = 0; i < ax.size(); ++i) {
    EXPECT_GE(ax[i], m.con[i].lo - tol * (1.0 + std::fabs(m.con[i].lo))) << "row " << i;
    EXPECT_LE(ax[i], m.con[i].up + tol * (1.0 + std::fabs(m.con[i].up))) << "row " << i;
  }
  double scale = 1.0;
  for (double v : m.c) scale = std::max(scale, std::fabs(v));
  for (size_t j = 0; j < r.size(); ++j) EXPECT_NEAR(r[j], 0.0, tol * scale) << "dual equation of variable " << j;
}

// Entropy maximisation: max sum_i t_i, (u_i, x_i, t_i) in K_exp (t_i <= -x_i log x_i), u_i = 1,
// sum_i x_i = w: x_i = w / n and the optimum w log(n / w); the objective and row scaled by
// `scale`.
ConicModel entropy(int n, double w, double scale) {
  ConicModel m;
  m.sense = QBR_OBJECTIVE_SENSE_MAXIMIZE;
  for (int i = 0; i < n; ++i) {
    m.c.insert(m.c.end(), {0.0, 0.0, scale});
    m.var.insert(m.var.end(), {fx(1.0), fr(), fr()});
    m.cones.push_back({QBR_CT_PEXP, {3 * i, 3 * i + 1, 3 * i + 2}});
    m.a.push_back({0, 3 * i + 1, scale});
  }
  m.con = {fx(scale * w)};
  return m;
}

TEST(ConicNonsymmetric, EntropyAcrossDataScales) {
  for (double scale : {1e-2, 1.0, 1e2}) {
    for (double w : {1.0, 1e-2}) {
      SCOPED_TRACE("scale " + std::to_string(scale) + " w " + std::to_string(w));
      const int n = 6;
      const ConicModel m = entropy(n, w, scale);
      SolutionView s;
      ASSERT_EQ(solve(m, s), QBR_RES_OK);
      ASSERT_EQ(s.solsta, QBR_SOL_STA_OPTIMAL);
      const double opt = scale * w * std::log(n / w);
      EXPECT_NEAR(s.pobj, opt, 1e-6 * (1.0 + std::fabs(opt)));
      EXPECT_NEAR(s.dobj, opt, 1e-6 * (1.0 + std::fabs(opt)));
      for (int i = 0; i < n; ++i) EXPECT_NEAR(s.xx[static_cast<size_t>(3 * i + 1)], w / n, 1e-6 * (1.0 + w));
      expect_cone_membership(m, s, 1e-7);
      expect_feasible_pair(m, s, 1e-6);
    }
  }
}

// A geometric program in log variables: min a x + b y s.t. x y >= c (x = e^u, y = e^v):
//   min a t1 + b t2,  (t1, 1, u), (t2, 1, v) in K_exp,  u + v >= log c;  optimum 2 sqrt(a b c).
TEST(ConicNonsymmetric, GeometricProgramAcrossDataScales) {
  for (double c : {1e-2, 1.0, 1e2}) {
    SCOPED_TRACE("c " + std::to_string(c));
    const double a = 3.0, b = 0.5;
    ConicModel m;
    m.c = {a, 0, 0, b, 0, 0};
    m.var = {fr(), fx(1.0), fr(), fr(), fx(1.0), fr()};
    m.cones = {{QBR_CT_PEXP, {0, 1, 2}}, {QBR_CT_PEXP, {3, 4, 5}}};
    m.con = {lo(std::log(c))};
    m.a = {{0, 2, 1.0}, {0, 5, 1.0}};
    SolutionView s;
    ASSERT_EQ(solve(m, s), QBR_RES_OK);
    ASSERT_EQ(s.solsta, QBR_SOL_STA_OPTIMAL);
    const double opt = 2.0 * std::sqrt(a * b * c);
    EXPECT_NEAR(s.pobj, opt, 1e-7 * opt);
    EXPECT_NEAR(std::exp(s.xx[2]) * std::exp(s.xx[5]), c, 1e-6 * c);
    expect_cone_membership(m, s, 1e-7);
    expect_feasible_pair(m, s, 1e-6);
  }
}

// The dual exponential cone: min x1 s.t. (x1, x2, x3) in K_exp*, x2 = 1, x3 = -1:
// x1 >= e^{-1} e^{x2 / x3} = e^{-2}. And its member order is checked by a maximisation over it.
TEST(ConicNonsymmetric, DualExponentialCone) {
  ConicModel m;
  m.c = {1, 0, 0};
  m.var = {fr(), fx(1.0), fx(-1.0)};
  m.cones = {{QBR_CT_DEXP, {0, 1, 2}}};
  SolutionView s;
  ASSERT_EQ(solve(m, s), QBR_RES_OK);
  ASSERT_EQ(s.solsta, QBR_SOL_STA_OPTIMAL);
  EXPECT_NEAR(s.pobj, std::exp(-2.0), 1e-8);
  expect_cone_membership(m, s, 1e-8);
  expect_feasible_pair(m, s, 1e-7);
}

// max x1^a x2^(1-a) with x1 + x2 = 1: a^a (1 - a)^(1 - a), for parameters near 0, 1/2 and 1;
// and with three members in the norm part (the norm of z is maximised along a fixed ray).
TEST(ConicNonsymmetric, PowerConeParameters) {
  for (double a : {0.02, 0.3, 0.5, 0.9}) {
    SCOPED_TRACE("a " + std::to_string(a));
    ConicModel m;
    m.sense = QBR_OBJECTIVE_SENSE_MAXIMIZE;
    m.c = {0, 0, 1};
    m.var = {fr(), fr(), fr()};
    m.cones = {{QBR_CT_PPOW, {0, 1, 2}}};
    m.cone_par = {a};
    m.con = {fx(1.0)};
    m.a = {{0, 0, 1.0}, {0, 1, 1.0}};
    SolutionView s;
    ASSERT_EQ(solve(m, s), QBR_RES_OK);
    ASSERT_EQ(s.solsta, QBR_SOL_STA_OPTIMAL);
    const double opt = std::pow(a, a) * std::pow(1.0 - a, 1.0 - a);
    EXPECT_NEAR(s.pobj, opt, 1e-7);
    EXPECT_NEAR(s.xx[0], a, 1e-4);  // the objective is flat there: x to about the root of the gap
    expect_cone_membership(m, s, 1e-7);
    expect_feasible_pair(m, s, 1e-6);
  }
  // x1^a x2^(1-a) >= ||(z1, z2)||, x1 = x2 = 2, max z1 + z2 = 2 sqrt 2.
  ConicModel m;
  m.sense = QBR_OBJECTIVE_SENSE_MAXIMIZE;
  m.c = {0, 0, 1, 1};
  m.var = {fx(2.0), fx(2.0), fr(), fr()};
  m.cones = {{QBR_CT_PPOW, {0, 1, 2, 3}}};
  m.cone_par = {0.4};
  SolutionView s;
  ASSERT_EQ(solve(m, s), QBR_RES_OK);
  EXPECT_NEAR(s.pobj, 2.0 * std::sqrt(2.0), 1e-7);
  expect_cone_membership(m, s, 1e-7);
}

// The dual power cone: min x1 + x2 s.t. (x1 / a)^a (x2 / (1 - a))^(1-a) >= 1: the weighted
// arithmetic-geometric mean inequality gives 1, at (a, 1 - a).
TEST(ConicNonsymmetric, DualPowerCone) {
  for (double a : {0.25, 0.75}) {
    ConicModel m;
    m.c = {1, 1, 0};
    m.var = {fr(), fr(), fx(1.0)};
    m.cones = {{QBR_CT_DPOW, {0, 1, 2}}};
    m.cone_par = {a};
    SolutionView s;
    ASSERT_EQ(solve(m, s), QBR_RES_OK);
    ASSERT_EQ(s.solsta, QBR_SOL_STA_OPTIMAL);
    EXPECT_NEAR(s.pobj, 1.0, 1e-7);
    EXPECT_NEAR(s.xx[0], a, 1e-4);  // the objective is flat there: x to about the root of the gap
    expect_cone_membership(m, s, 1e-7);
    expect_feasible_pair(m, s, 1e-6);
  }
}

// Exponential, power and quadratic cones together: min t s.t. t >= ||(e^u - 2, p - 1)||
// with p = q^0.5 r^0.5 at q = 4, r = 1 (p <= 2) and u free: the optimum 0 at e^u = 2, p = 1.
TEST(ConicNonsymmetric, MixedWithQuadraticCone) {
  ConicModel m;
  // 0 t, 1 w (= e^u - 2), 2 v (= p - 1), 3 e, 4 one, 5 u, 6 q, 7 r, 8 p
  m.c = {1, 0, 0, 0, 0, 0, 0, 0, 0};
  m.var = {fr(), fr(), fr(), fr(), fx(1.0), fr(), fx(4.0), fx(1.0), fr()};
  m.cones = {{QBR_CT_QUAD, {0, 1, 2}}, {QBR_CT_PEXP, {3, 4, 5}}, {QBR_CT_PPOW, {6, 7, 8}}};
  m.cone_par = {0.0, 0.0, 0.5};
  m.con = {fx(-2.0), fx(-1.0)};
  m.a = {{0, 1, 1.0}, {0, 3, -1.0}, {1, 2, 1.0}, {1, 8, -1.0}};
  SolutionView s;
  ASSERT_EQ(solve(m, s), QBR_RES_OK);
  ASSERT_EQ(s.solsta, QBR_SOL_STA_OPTIMAL);
  EXPECT_NEAR(s.pobj, 0.0, 1e-7);
  expect_cone_membership(m, s, 1e-7);
  expect_feasible_pair(m, s, 1e-6);
}

// (x1, x2, x3) in K_exp with x1 <= -1 is empty: a certificate y with A'y + s = 0, s in the dual
// cones, and a positive dual objective.
TEST(ConicNonsymmetric, InfeasibleExponentialConeGivesACertificate) {
  ConicModel m;
  m.c = {0, 0, 1};
  m.var = {fr(), fr(), fr()};
  m.con = {{QBR_BK_UP, -kInf, -1.0}};
  m.a = {{0, 0, 1.0}};
  m.cones = {{QBR_CT_PEXP, {0, 1, 2}}};
  SolutionView s;
  ASSERT_EQ(solve(m, s), QBR_RES_OK);
  EXPECT_EQ(s.prosta, QBR_PRO_STA_PRIM_INFEAS);
  ASSERT_EQ(s.solsta, QBR_SOL_STA_PRIM_INFEAS_CER);
  EXPECT_GT(-s.suc[0] * -1.0, 0.0);
  for (size_t j = 0; j < 3; ++j) {
    double r = -s.snx[j];
    if (j == 0) r -= s.y[0];
    EXPECT_NEAR(r, 0.0, 1e-7 * std::max(1.0, s.suc[0]));
  }
  EXPECT_TRUE(in_dexp(s.snx[0], s.snx[1], s.snx[2], 1e-7 * std::max(1.0, s.suc[0])));
}

// CBF's dual cones, EXP* and @k:POW* with their parameter section, solved from a file: the
// member order of each reaches the optimizer as the problems above state them.
double solve_cbf_text(const std::string& text) {
  const std::string path = ::testing::TempDir() + "nonsym_cones.cbf";
  std::ofstream(path) << text;
  QBRenv_t env = nullptr;
  QBRtask_t t = nullptr;
  EXPECT_EQ(QBR_makeenv(&env, nullptr), QBR_RES_OK);
  EXPECT_EQ(QBR_maketask(env, 0, 0, &t), QBR_RES_OK);
  EXPECT_EQ(QBR_readdata(t, path.c_str()), QBR_RES_OK);
  EXPECT_EQ(QBR_optimize(t), QBR_RES_OK);
  int32_t solsta = -1;
  double obj = NAN;
  QBR_getsolsta(t, QBR_SOL_ITR, &solsta);
  QBR_getprimalobj(t, QBR_SOL_ITR, &obj);
  EXPECT_EQ(solsta, QBR_SOL_STA_OPTIMAL);
  QBR_deletetask(&t);
  QBR_deleteenv(&env);
  std::remove(path.c_str());
  return obj;
}

TEST(ConicNonsymmetric, DualConesFromCbfFiles) {
  // min x0, (x0, x1, x2) in EXP*, x1 = 1, x2 = -1: e^{-2}.
  EXPECT_NEAR(solve_cbf_text("VER\n3\nOBJSENSE\nMIN\nVAR\n3 1\nEXP* 3\nCON\n2 1\nL= 2\n"
                             "OBJACOORD\n1\n0 1.0\nACOORD\n2\n0 1 1.0\n1 2 1.0\nBCOORD\n2\n0 -1.0\n1 1.0\n"),
              std::exp(-2.0), 1e-8);
  // min x0 + x1, (x0, x1, x2) in the dual power cone with powers (1, 3), x2 = 1: 1.
  EXPECT_NEAR(solve_cbf_text("VER\n3\nPOW*CONES\n1 2\n2\n1.0\n3.0\nOBJSENSE\nMIN\nVAR\n3 1\n@0:POW* 3\n"
                             "CON\n1 1\nL= 1\nOBJACOORD\n2\n0 1.0\n1 1.0\nACOORD\n1\n0 2 1.0\nBCOORD\n1\n0 -1.0\n"),
              1.0, 1e-7);
  // max x2, (x0, x1, x2) in the power cone with powers (1, 1), x0 + x1 = 1: 1/2.
  EXPECT_NEAR(solve_cbf_text("VER\n3\nPOWCONES\n1 2\n2\n1.0\n1.0\nOBJSENSE\nMAX\nVAR\n3 1\n@0:POW 3\n"
                             "CON\n1 1\nL= 1\nOBJACOORD\n1\n2 1.0\nACOORD\n2\n0 0 1.0\n0 1 1.0\nBCOORD\n1\n0 -1.0\n"),
              0.5, 1e-7);
}

}  // namespace
}  // namespace qubor::testing
