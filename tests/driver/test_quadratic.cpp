// Quadratic and quadratically constrained tasks: known optima, convexity check, conversion to
// conic form, certificates and models of the Maros-Meszaros set.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "fixture.h"
#include "qubor.h"

namespace {

constexpr double kInf = QBR_INFINITY;

class QuadraticTest : public TaskTest {
 protected:
  void SetUp() override {
    TaskTest::SetUp();
    QBR_linkfunctotaskstream(task, QBR_STREAM_LOG, &log, Captured::sink);
  }
  void vars(int n, QBRint32t bk = QBR_BK_FR, double lo = -kInf, double up = kInf) {
    ASSERT_EQ(QBR_appendvars(task, n), QBR_RES_OK);
    for (int j = 0; j < n; ++j) ASSERT_EQ(QBR_putvarbound(task, j, bk, lo, up), QBR_RES_OK);
  }
  void row(QBRint32t i, std::vector<QBRint32t> sub, std::vector<double> val, QBRint32t bk, double lo, double up) {
    QBRint32t m = 0;
    QBR_getnumcon(task, &m);
    if (i >= m) {
      ASSERT_EQ(QBR_appendcons(task, i + 1 - m), QBR_RES_OK);
    }
    ASSERT_EQ(QBR_putarow(task, i, static_cast<QBRint32t>(sub.size()), sub.data(), val.data()), QBR_RES_OK);
    ASSERT_EQ(QBR_putconbound(task, i, bk, lo, up), QBR_RES_OK);
  }
  void qobj(std::vector<QBRint32t> i, std::vector<QBRint32t> j, std::vector<double> v) {
    ASSERT_EQ(QBR_putqobj(task, static_cast<QBRint32t>(v.size()), i.data(), j.data(), v.data()), QBR_RES_OK);
  }
  void qcon(QBRint32t k, std::vector<QBRint32t> i, std::vector<QBRint32t> j, std::vector<double> v) {
    ASSERT_EQ(QBR_putqconk(task, k, static_cast<QBRint32t>(v.size()), i.data(), j.data(), v.data()), QBR_RES_OK);
  }
  void costs(std::vector<double> c) {
    for (size_t j = 0; j < c.size(); ++j) QBR_putcj(task, static_cast<QBRint32t>(j), c[j]);
  }
  std::vector<double> get(QBRrescode (*f)(QBRtask_t, QBRint32t, QBRrealt*), bool cons = false) {
    QBRint32t n = 0;
    cons ? QBR_getnumcon(task, &n) : QBR_getnumvar(task, &n);
    std::vector<double> v(static_cast<size_t>(n));
    EXPECT_EQ(f(task, QBR_SOL_ITR, v.data()), QBR_RES_OK);
    return v;
  }
  double pobj() {
    double v = 0;
    QBR_getprimalobj(task, QBR_SOL_ITR, &v);
    return v;
  }
  double dobj() {
    double v = 0;
    QBR_getdualobj(task, QBR_SOL_ITR, &v);
    return v;
  }
  // Counts that a failed conversion must leave alone.
  std::vector<long> shape() {
    QBRint32t n = 0, m = 0, k = 0;
    QBRint64t qo = 0, qc = 0;
    QBR_getnumvar(task, &n);
    QBR_getnumcon(task, &m);
    QBR_getnumcone(task, &k);
    QBR_getnumqobjnz(task, &qo);
    for (QBRint32t i = 0; i < m; ++i) {
      QBRint64t q = 0;
      QBR_getnumqconknz(task, i, &q);
      qc += q;
    }
    QBRint64t anz = 0;
    QBR_getnumanz64(task, &anz);
    return {n, m, k, static_cast<long>(qo), static_cast<long>(qc), static_cast<long>(anz)};
  }
  void solve_optimal(QBRint32t optimizer = QBR_OPTIMIZER_FREE) {
    QBR_putintparam(task, QBR_IPAR_OPTIMIZER, optimizer);
    ASSERT_EQ(QBR_optimize(task), QBR_RES_OK) << log.text;
    ASSERT_EQ(solsta(), QBR_SOL_STA_OPTIMAL) << log.text;
  }
  // min 1/2 x'Qx + c'x : x0 + x1 + x2 = 1 with Q = [2 1 0; 1 2 1; 0 1 2], c = (1, -1, 0.5):
  // the KKT system gives x = (-0.5, 1.75, -0.25), y = 1.75, objective -0.3125.
  void load_equality_qp() {
    vars(3);
    costs({1, -1, 0.5});
    row(0, {0, 1, 2}, {1, 1, 1}, QBR_BK_FX, 1, 1);
    qobj({0, 1, 1, 2, 2}, {0, 0, 1, 1, 2}, {2, 1, 2, 1, 2});
  }
  Captured log;
};

TEST_F(QuadraticTest, EqualityConstrainedQpHasTheClosedFormSolution) {
  load_equality_qp();
  solve_optimal();
  const std::vector<double> x = get(QBR_getxx), y = get(QBR_gety, true), xc = get(QBR_getxc, true);
  EXPECT_NEAR(x[0], -0.5, 1e-6);
  EXPECT_NEAR(x[1], 1.75, 1e-6);
  EXPECT_NEAR(x[2], -0.25, 1e-6);
  EXPECT_NEAR(y[0], 1.75, 1e-6);
  EXPECT_NEAR(xc[0], 1.0, 1e-7);
  EXPECT_NEAR(pobj(), -0.3125, 1e-7);
  EXPECT_NEAR(dobj(), -0.3125, 1e-7);
  // The task is left as stated: quadratic, no cones, three variables.
  EXPECT_EQ(shape(), (std::vector<long>{3, 1, 0, 5, 0, 3}));
  // The interior-point and conic choices give the same optimum; the simplex set is refused.
  solve_optimal(QBR_OPTIMIZER_INTPNT);
  EXPECT_NEAR(pobj(), -0.3125, 1e-7);
  solve_optimal(QBR_OPTIMIZER_CONIC);
  EXPECT_NEAR(pobj(), -0.3125, 1e-7);
  for (QBRint32t simplex : {QBR_OPTIMIZER_PRIMAL_SIMPLEX, QBR_OPTIMIZER_DUAL_SIMPLEX, QBR_OPTIMIZER_FREE_SIMPLEX}) {
    QBR_putintparam(task, QBR_IPAR_OPTIMIZER, simplex);
    EXPECT_EQ(QBR_optimize(task), QBR_RES_ERR_INV_OPTIMIZER);
  }
}

TEST_F(QuadraticTest, BoxConstrainedQpProjectsOntoTheBox) {
  // min 1/2 ||x - p||^2 over [0, 1]^3 with p = (-1, 0.5, 2): x = (0, 0.5, 1), objective 1.
  vars(3, QBR_BK_RA, 0.0, 1.0);
  costs({1, -0.5, -2});
  QBR_putcfix(task, 0.5 * (1 + 0.25 + 4));
  qobj({0, 1, 2}, {0, 1, 2}, {1, 1, 1});
  solve_optimal();
  const std::vector<double> x = get(QBR_getxx), slx = get(QBR_getslx), sux = get(QBR_getsux);
  EXPECT_NEAR(x[0], 0.0, 1e-6);
  EXPECT_NEAR(x[1], 0.5, 1e-6);
  EXPECT_NEAR(x[2], 1.0, 1e-6);
  EXPECT_NEAR(pobj(), 1.0, 1e-7);
  // The gradient x - p is held by the active bounds.
  EXPECT_NEAR(slx[0], 1.0, 1e-6);
  EXPECT_NEAR(sux[2], 1.0, 1e-6);
  EXPECT_NEAR(slx[1] + sux[1], 0.0, 1e-6);
}

TEST_F(QuadraticTest, PortfolioOfMinimumVariance) {
  // min 1/2 x' S x : sum x = 1, mu'x >= 0.075, x >= 0.
  vars(4, QBR_BK_LO, 0.0, kInf);
  row(0, {0, 1, 2, 3}, {1, 1, 1, 1}, QBR_BK_FX, 1, 1);
  row(1, {0, 1, 2, 3}, {0.06, 0.10, 0.05, 0.08}, QBR_BK_LO, 0.075, kInf);
  qobj({0, 1, 1, 2, 2, 3, 3, 3}, {0, 0, 1, 1, 2, 0, 2, 3},
       {0.04, 0.006, 0.09, 0.012, 0.0225, 0.01, 0.003, 0.0625});
  solve_optimal();
  const std::vector<double> x = get(QBR_getxx);
  const double ref[4] = {0.21131915, 0.28142998, 0.21340722, 0.29384365};
  for (int j = 0; j < 4; ++j) EXPECT_NEAR(x[static_cast<size_t>(j)], ref[j], 1e-5);
  EXPECT_NEAR(pobj(), 9.5544632e-03, 1e-8);
}

TEST_F(QuadraticTest, BallConstraintInBothSigns) {
  // max c'x : x'x <= 1 gives x = c / ||c||, objective ||c|| = 5; the ball is stated once as an
  // upper bound on 1/2 x'(2I)x and once as a lower bound on 1/2 x'(-2I)x.
  for (bool lower : {false, true}) {
    SCOPED_TRACE(lower);
    QBRint32t n = 0;
    QBR_getnumvar(task, &n);
    if (n == 0) vars(2);
    QBR_putobjsense(task, QBR_OBJECTIVE_SENSE_MAXIMIZE);
    costs({3, 4});
    if (lower) {
      row(0, {}, {}, QBR_BK_LO, -1, kInf);
      qcon(0, {0, 1}, {0, 1}, {-2, -2});
    } else {
      row(0, {}, {}, QBR_BK_UP, -kInf, 1);
      qcon(0, {0, 1}, {0, 1}, {2, 2});
    }
    solve_optimal();
    const std::vector<double> x = get(QBR_getxx), xc = get(QBR_getxc, true), y = get(QBR_gety, true);
    EXPECT_NEAR(x[0], 0.6, 1e-6);
    EXPECT_NEAR(x[1], 0.8, 1e-6);
    EXPECT_NEAR(pobj(), 5.0, 1e-7);
    // The dual objective and y are evaluated at x, whose error along the ball's surface is
    // of the order of the square root of the final gap.
    EXPECT_NEAR(dobj(), 5.0, 1e-4);
    // The activity is that of the quadratic constraint; c = y (Q x) gives |y| = 2.5.
    EXPECT_NEAR(xc[0], lower ? -1.0 : 1.0, 1e-6);
    EXPECT_NEAR(std::fabs(y[0]), 2.5, 1e-4);
  }
}

TEST_F(QuadraticTest, ConcaveObjectiveIsMaximized) {
  // max -1/2 (x0 - 1)^2 - 1/2 (x1 - 2)^2 + 2.5 : x0 + x1 <= 10.
  vars(2);
  QBR_putobjsense(task, QBR_OBJECTIVE_SENSE_MAXIMIZE);
  costs({1, 2});
  row(0, {0, 1}, {1, 1}, QBR_BK_UP, -kInf, 10);
  qobj({0, 1}, {0, 1}, {-1, -1});
  solve_optimal();
  const std::vector<double> x = get(QBR_getxx);
  EXPECT_NEAR(x[0], 1.0, 1e-6);
  EXPECT_NEAR(x[1], 2.0, 1e-6);
  EXPECT_NEAR(pobj(), 2.5, 1e-7);
  EXPECT_NEAR(dobj(), 2.5, 1e-6);
  // Minimizing the same concave objective is not convex.
  QBR_putobjsense(task, QBR_OBJECTIVE_SENSE_MINIMIZE);
  EXPECT_EQ(QBR_optimize(task), QBR_RES_ERR_NONCONVEX);
}

TEST_F(QuadraticTest, NonconvexTermsAreCaughtAndNamed) {
  int calls[2] = {0, 0};
  QBR_putcallbackfunc(
      task,
      [](QBRtask_t, void* h, QBRint32t caller, const QBRrealt*, const QBRint32t*, const QBRint64t*) -> QBRint32t {
        int* c = static_cast<int*>(h);
        if (caller == QBR_CALLBACK_BEGIN_FULL_CONVEXITY_CHECK) ++c[0];
        if (caller == QBR_CALLBACK_END_FULL_CONVEXITY_CHECK) ++c[1];
        return 0;
      },
      calls);
  vars(2, QBR_BK_RA, -1, 1);
  // An indefinite objective with positive diagonal: only the factorization sees it.
  qobj({0, 1, 1}, {0, 0, 1}, {1, 2, 1});
  EXPECT_EQ(QBR_optimize(task), QBR_RES_ERR_NONCONVEX);
  EXPECT_NE(log.text.find("The quadratic term of the objective is not positive semidefinite."), std::string::npos)
      << log.text;
  EXPECT_EQ(calls[0], 1);
  EXPECT_EQ(calls[1], 1);
  // The diagonal test alone lets it through: the interior-point optimizer then reports no
  // optimum, and the conversion for the conic optimizer refuses it.
  QBR_putintparam(task, QBR_IPAR_CHECK_CONVEXITY, QBR_CHECK_CONVEXITY_SIMPLE);
  QBR_optimize(task);
  EXPECT_NE(solsta(), QBR_SOL_STA_OPTIMAL);
  QBR_putintparam(task, QBR_IPAR_OPTIMIZER, QBR_OPTIMIZER_CONIC);
  EXPECT_EQ(QBR_optimize(task), QBR_RES_ERR_TOCONIC_OBJECTIVE_NOT_PSD);
  QBR_putintparam(task, QBR_IPAR_OPTIMIZER, QBR_OPTIMIZER_FREE);
  QBR_putintparam(task, QBR_IPAR_CHECK_CONVEXITY, QBR_CHECK_CONVEXITY_FULL);
  // A semidefinite but singular objective passes.
  qobj({0, 1, 1}, {0, 0, 1}, {1, 1, 1});
  EXPECT_EQ(QBR_optimize(task), QBR_RES_OK) << log.text;
  // A concave constraint under an upper bound is named.
  QBR_puttaskname(task, "t");
  row(0, {0}, {1}, QBR_BK_UP, -kInf, 1);
  ASSERT_EQ(QBR_putconname(task, 0, "ball"), QBR_RES_OK);
  qcon(0, {0, 1}, {0, 1}, {1, -1});
  log.text.clear();
  EXPECT_EQ(QBR_optimize(task), QBR_RES_ERR_NONCONVEX);
  EXPECT_NE(log.text.find("The quadratic term of constraint 'ball' (0) is not positive semidefinite."),
            std::string::npos)
      << log.text;
  // A quadratic equality is not convex either.
  qcon(0, {0}, {0}, {1});
  QBR_putconbound(task, 0, QBR_BK_FX, 1, 1);
  log.text.clear();
  EXPECT_EQ(QBR_optimize(task), QBR_RES_ERR_NONCONVEX);
  EXPECT_NE(log.text.find("'ball' (0) has a quadratic term and is an equality"), std::string::npos) << log.text;
}

TEST_F(QuadraticTest, InfeasibleQpGivesAFarkasCertificate) {
  // x0 + x1 >= 3 with x in [0, 1]^2: y0 > 0 and the upper-bound duals carry it.
  vars(2, QBR_BK_RA, 0, 1);
  row(0, {0, 1}, {1, 1}, QBR_BK_LO, 3, kInf);
  qobj({0, 1}, {0, 1}, {1, 1});
  QBR_putintparam(task, QBR_IPAR_OPTIMIZER, QBR_OPTIMIZER_FREE);
  ASSERT_EQ(QBR_optimize(task), QBR_RES_OK) << log.text;
  EXPECT_EQ(prosta(), QBR_PRO_STA_PRIM_INFEAS);
  EXPECT_EQ(solsta(), QBR_SOL_STA_PRIM_INFEAS_CER);
  const std::vector<double> y = get(QBR_gety, true), sux = get(QBR_getsux), slx = get(QBR_getslx);
  ASSERT_GT(y[0], 0.0);
  // A'y - sux + slx = 0 and 3 y0 - sux0 - sux1 > 0 (the certificate's objective).
  for (int j = 0; j < 2; ++j) EXPECT_NEAR((y[0] + slx[static_cast<size_t>(j)] - sux[static_cast<size_t>(j)]) / y[0], 0.0, 1e-6);
  EXPECT_GT(3 * y[0] - sux[0] - sux[1], 0.0);
}

TEST_F(QuadraticTest, UnboundedQpGivesARay) {
  // min 1/2 x0^2 - x1 with x1 >= 0: the ray (0, 1).
  vars(2);
  QBR_putvarbound(task, 1, QBR_BK_LO, 0, kInf);
  costs({0, -1});
  row(0, {0, 1}, {1, -1}, QBR_BK_UP, -kInf, 5);
  qobj({0}, {0}, {1});
  QBR_putintparam(task, QBR_IPAR_OPTIMIZER, QBR_OPTIMIZER_FREE);
  ASSERT_EQ(QBR_optimize(task), QBR_RES_OK) << log.text;
  EXPECT_EQ(prosta(), QBR_PRO_STA_DUAL_INFEAS);
  EXPECT_EQ(solsta(), QBR_SOL_STA_DUAL_INFEAS_CER);
  const std::vector<double> x = get(QBR_getxx);
  ASSERT_GT(x[1], 0.0);
  EXPECT_NEAR(x[0] / x[1], 0.0, 1e-6);
}

TEST_F(QuadraticTest, ToConicKeepsTheOptimum) {
  load_equality_qp();
  vars(0);
  row(1, {0}, {1}, QBR_BK_UP, -kInf, 5);
  qcon(1, {0, 1, 1}, {0, 0, 1}, {1, 0.5, 1});  // 1/2 x'Qx + x0 <= 5, Q positive definite
  solve_optimal();
  const double direct = pobj();
  const std::vector<double> x = get(QBR_getxx);
  ASSERT_EQ(QBR_toconic(task), QBR_RES_OK);
  const std::vector<long> s = shape();
  EXPECT_EQ(s[2], 2);  // two rotated cones
  EXPECT_EQ(s[3], 0);  // no quadratic terms left
  EXPECT_EQ(s[4], 0);
  solve_optimal(QBR_OPTIMIZER_CONIC);
  EXPECT_NEAR(pobj(), direct, 1e-7);
  const std::vector<double> xc = get(QBR_getxx);
  for (int j = 0; j < 3; ++j) EXPECT_NEAR(xc[static_cast<size_t>(j)], x[static_cast<size_t>(j)], 1e-6);
  // A task without quadratic terms is left as it is.
  ASSERT_EQ(QBR_toconic(task), QBR_RES_OK);
  EXPECT_EQ(shape(), s);
}

TEST_F(QuadraticTest, ToConicFailuresLeaveTheTaskUnchanged) {
  vars(2);
  qobj({0, 1}, {0, 1}, {1, 1});  // converts, but the failures come before any change
  row(0, {0}, {1}, QBR_BK_UP, -kInf, 1);
  const std::vector<long> before = shape();
  struct Case {
    QBRint32t bk;
    double sign;
    QBRrescode code;
  };
  for (const Case& c : {Case{QBR_BK_UP, -1, QBR_RES_ERR_TOCONIC_CONSTR_Q_NOT_PSD},
                        Case{QBR_BK_LO, 1, QBR_RES_ERR_TOCONIC_CONSTR_Q_NOT_PSD},
                        Case{QBR_BK_FX, 1, QBR_RES_ERR_TOCONIC_CONSTRAINT_FX},
                        Case{QBR_BK_RA, 1, QBR_RES_ERR_TOCONIC_CONSTRAINT_RA},
                        Case{QBR_BK_FR, 1, QBR_RES_ERR_TOCONIC_CONSTR_NOT_CONIC}}) {
    SCOPED_TRACE(c.code);
    ASSERT_EQ(QBR_putconbound(task, 0, c.bk, c.bk == QBR_BK_FX ? 1 : -1, 1), QBR_RES_OK);
    qcon(0, {0, 1}, {0, 1}, {c.sign, c.sign});
    const std::vector<long> with_q = shape();
    EXPECT_EQ(QBR_toconic(task), c.code);
    EXPECT_EQ(last_code(), c.code);
    EXPECT_EQ(shape(), with_q);
  }
  qcon(0, {}, {}, {});
  QBR_putobjsense(task, QBR_OBJECTIVE_SENSE_MAXIMIZE);  // a convex Q under maximization
  EXPECT_EQ(QBR_toconic(task), QBR_RES_ERR_TOCONIC_OBJECTIVE_NOT_PSD);
  EXPECT_EQ(shape(), before);
}

// Small models of the Maros-Meszaros set against the collection's reference values (8
// significant digits), on both paths: the interior-point optimizer carries Q in its
// homogeneous model, the conic optimizer solves the converted task. Dense and banded Q, free
// variables (HS51), equality rows and bounds of every kind.
TEST(MarosMeszaros, SmallModelsReachTheReferenceValuesOnBothPaths) {
  struct Model {
    const char* name;
    double ref;
  };
  const Model models[] = {{"QPTEST", 4.3718750e+00},   {"HS35", 1.1111111e-01},     {"HS53", 4.0930233e+00},
                          {"DUALC1", 6.1552508e+03},   {"LOTSCHD", 2.3984159e+03},  {"QAFIRO", -1.5907818e+00},
                          {"DUAL1", 3.5012966e-02},    {"QPCBLEND", -7.8425409e-03}, {"HS51", 0.0},
                          {"HS118", 6.6482045e+02},    {"HS52", 5.3266476e+00},     {"CVXQP2_S", 8.1209405e+03},
                          {"DUALC2", 3.5513077e+03},   {"QSC205", -5.8139518e-03},  {"ZECEVIC2", -4.1250000e+00},
                          {"GOULDQP2", 1.8427534e-04}};
  QBRenv_t env = nullptr;
  ASSERT_EQ(QBR_makeenv(&env, nullptr), QBR_RES_OK);
  for (const Model& m : models) {
    SCOPED_TRACE(m.name);
    QBRtask_t task = nullptr;
    ASSERT_EQ(QBR_maketask(env, 0, 0, &task), QBR_RES_OK);
    const std::string path = std::string(QUBOR_TEST_DATA_DIR) + "/maros-meszaros/" + m.name + ".qps.gz";
    ASSERT_EQ(QBR_readdata(task, path.c_str()), QBR_RES_OK);
    for (QBRint32t optimizer : {QBR_OPTIMIZER_FREE, QBR_OPTIMIZER_CONIC}) {
      SCOPED_TRACE(optimizer);
      QBR_putintparam(task, QBR_IPAR_OPTIMIZER, optimizer);
      ASSERT_EQ(QBR_optimize(task), QBR_RES_OK);
      QBRint32t solsta = -1;
      QBR_getsolsta(task, QBR_SOL_ITR, &solsta);
      EXPECT_EQ(solsta, QBR_SOL_STA_OPTIMAL);
      double obj = 0;
      QBR_getprimalobj(task, QBR_SOL_ITR, &obj);
      EXPECT_LE(std::fabs(obj - m.ref), std::max(1e-5 * std::fabs(m.ref), 1e-6));
    }
    QBR_deletetask(&task);
  }
  QBR_deleteenv(&env);
}

// POWELL20 is feasible but has no interior point (its cyclic rows sum to 0 >= 0): the conic
// form stops at a near-certificate of infeasibility, which must not be reported as one.
TEST(MarosMeszaros, NearCertificateOfFeasibleModelIsNotReported) {
  QBRenv_t env = nullptr;
  QBRtask_t task = nullptr;
  ASSERT_EQ(QBR_makeenv(&env, nullptr), QBR_RES_OK);
  ASSERT_EQ(QBR_maketask(env, 0, 0, &task), QBR_RES_OK);
  const std::string path = std::string(QUBOR_TEST_DATA_DIR) + "/maros-meszaros/POWELL20.qps.gz";
  ASSERT_EQ(QBR_readdata(task, path.c_str()), QBR_RES_OK);
  const QBRrescode r = QBR_optimize(task);
  QBRint32t solsta = -1;
  QBR_getsolsta(task, QBR_SOL_ITR, &solsta);
  EXPECT_NE(solsta, QBR_SOL_STA_PRIM_INFEAS_CER);
  EXPECT_NE(solsta, QBR_SOL_STA_DUAL_INFEAS_CER);
  if (solsta != QBR_SOL_STA_OPTIMAL) {
    EXPECT_EQ(r, QBR_RES_TRM_STALL);
  }
  QBR_deletetask(&task);
  QBR_deleteenv(&env);
}

}  // namespace
