// The simplex optimizers through the C interface: real models against their reference
// values by each simplex variant, certificates of infeasible and unbounded models checked
// against the data, the status-key rules of the basic solution, degenerate and tied ratio
// tests, phase 1 from an infeasible start, hot start after changes, limits and callbacks.
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <string>
#include <vector>

#include "certificates.h"
#include "qubor.h"

namespace {

class SimplexTask : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(QBR_makeenv(&env, nullptr), QBR_RES_OK);
    ASSERT_EQ(QBR_maketask(env, 0, 0, &task), QBR_RES_OK);
  }
  void TearDown() override {
    QBR_deletetask(&task);
    QBR_deleteenv(&env);
  }
  bool load(const char* set, const char* name) {
    const std::string path = std::string(QUBOR_TEST_DATA_DIR) + "/" + set + "/" + name + ".mps.gz";
    if (!std::ifstream(path)) return false;
    QBR_deletetask(&task);
    EXPECT_EQ(QBR_maketask(env, 0, 0, &task), QBR_RES_OK);
    EXPECT_EQ(QBR_readdata(task, path.c_str()), QBR_RES_OK) << path;
    return true;
  }
  // Adds variables with bounds and costs, and rows given densely (row-major, n per row).
  void build(const std::vector<double>& c, const std::vector<double>& xl, const std::vector<double>& xu,
             const std::vector<std::vector<double>>& rows, const std::vector<double>& rl, const std::vector<double>& ru) {
    const QBRint32t n = static_cast<QBRint32t>(c.size()), m = static_cast<QBRint32t>(rows.size());
    ASSERT_EQ(QBR_appendvars(task, n), QBR_RES_OK);
    ASSERT_EQ(QBR_appendcons(task, m), QBR_RES_OK);
    for (QBRint32t j = 0; j < n; ++j) {
      const size_t js = static_cast<size_t>(j);
      QBR_putcj(task, j, c[js]);
      QBR_putvarbound(task, j, bound_key(xl[js], xu[js]), xl[js], xu[js]);
    }
    for (QBRint32t i = 0; i < m; ++i) {
      const size_t is = static_cast<size_t>(i);
      for (QBRint32t j = 0; j < n; ++j)
        if (rows[is][static_cast<size_t>(j)] != 0.0) QBR_putaij(task, i, j, rows[is][static_cast<size_t>(j)]);
      QBR_putconbound(task, i, bound_key(rl[is], ru[is]), rl[is], ru[is]);
    }
  }
  static QBRint32t bound_key(double l, double u) {
    const bool lo = l > -1e30, up = u < 1e30;
    if (lo && up) return l == u ? QBR_BK_FX : QBR_BK_RA;
    return lo ? QBR_BK_LO : (up ? QBR_BK_UP : QBR_BK_FR);
  }
  QBRrescode run(QBRint32t optimizer) {
    QBR_putintparam(task, QBR_IPAR_OPTIMIZER, optimizer);
    return QBR_optimize(task);
  }
  double objective() {
    double v = 0.0;
    QBR_getprimalobj(task, QBR_SOL_BAS, &v);
    return v;
  }
  QBRint32t solsta() {
    QBRint32t s = -1;
    QBR_getsolsta(task, QBR_SOL_BAS, &s);
    return s;
  }
  QBRint32t iterations() {
    QBRint32t p = 0, d = 0;
    QBR_getintinf(task, QBR_IINF_SIM_PRIMAL_ITER, &p);
    QBR_getintinf(task, QBR_IINF_SIM_DUAL_ITER, &d);
    return p + d;
  }
  // The rules of a basic solution's keys: m basic items; a nonbasic item sits on the bound
  // its key names (LL at the lower, UL at the upper, EQ on a fixed bound, SB free at its
  // value); a basic item has zero bound duals; duals carry the signs of their keys.
  void expect_key_rules(double tol) {
    QBRint32t m = 0, n = 0;
    QBR_getnumcon(task, &m);
    QBR_getnumvar(task, &n);
    std::vector<QBRint32t> skc(static_cast<size_t>(m)), skx(static_cast<size_t>(n));
    std::vector<double> xc(static_cast<size_t>(m)), xx(static_cast<size_t>(n)), slc(static_cast<size_t>(m)),
        suc(static_cast<size_t>(m)), slx(static_cast<size_t>(n)), sux(static_cast<size_t>(n));
    QBR_getskc(task, QBR_SOL_BAS, skc.data());
    QBR_getskx(task, QBR_SOL_BAS, skx.data());
    QBR_getxc(task, QBR_SOL_BAS, xc.data());
    QBR_getxx(task, QBR_SOL_BAS, xx.data());
    QBR_getslc(task, QBR_SOL_BAS, slc.data());
    QBR_getsuc(task, QBR_SOL_BAS, suc.data());
    QBR_getslx(task, QBR_SOL_BAS, slx.data());
    QBR_getsux(task, QBR_SOL_BAS, sux.data());
    int32_t basic = 0;
    auto check = [&](QBRint32t sk, QBRint32t bk, double bl, double bu, double v, double sl, double su, const char* what,
                     QBRint32t k) {
      const double scale = 1.0 + std::fabs(v);
      switch (sk) {
        case QBR_SK_BAS:
          ++basic;
          EXPECT_LE(std::fabs(sl) + std::fabs(su), tol) << what << k;
          break;
        case QBR_SK_LOW:
          EXPECT_TRUE(bk == QBR_BK_LO || bk == QBR_BK_RA) << what << k;
          EXPECT_NEAR(v, bl, tol * scale) << what << k;
          EXPECT_LE(su, tol) << what << k;
          break;
        case QBR_SK_UPR:
          EXPECT_TRUE(bk == QBR_BK_UP || bk == QBR_BK_RA) << what << k;
          EXPECT_NEAR(v, bu, tol * scale) << what << k;
          EXPECT_LE(sl, tol) << what << k;
          break;
        case QBR_SK_FIX:
          EXPECT_EQ(bk, QBR_BK_FX) << what << k;
          EXPECT_NEAR(v, bl, tol * scale) << what << k;
          break;
        case QBR_SK_SUPBAS:
          EXPECT_EQ(bk, QBR_BK_FR) << what << k;
          break;
        default:
          ADD_FAILURE() << "key " << sk << " on " << what << k;
      }
    };
    for (QBRint32t i = 0; i < m; ++i) {
      QBRint32t bk;
      double bl, bu;
      QBR_getconbound(task, i, &bk, &bl, &bu);
      const size_t is = static_cast<size_t>(i);
      check(skc[is], bk, bl, bu, xc[is], slc[is], suc[is], "con ", i);
    }
    for (QBRint32t j = 0; j < n; ++j) {
      QBRint32t bk;
      double bl, bu;
      QBR_getvarbound(task, j, &bk, &bl, &bu);
      const size_t js = static_cast<size_t>(j);
      check(skx[js], bk, bl, bu, xx[js], slx[js], sux[js], "var ", j);
    }
    EXPECT_EQ(basic, m);
  }
  QBRenv_t env = nullptr;
  QBRtask_t task = nullptr;
};

struct Model {
  const char* name;
  double reference;
};

class SimplexNetlib : public SimplexTask, public ::testing::WithParamInterface<Model> {};

// Each variant, with presolve on and off, reaches the reference; the basis obeys the key
// rules and the reported solution is optimal.
TEST_P(SimplexNetlib, EveryVariantReachesTheReference) {
  const Model& model = GetParam();
  for (QBRint32t optimizer : {QBR_OPTIMIZER_DUAL_SIMPLEX, QBR_OPTIMIZER_PRIMAL_SIMPLEX, QBR_OPTIMIZER_FREE_SIMPLEX}) {
    for (QBRint32t presolve : {QBR_PRESOLVE_MODE_OFF, QBR_PRESOLVE_MODE_FREE}) {
      SCOPED_TRACE(std::to_string(optimizer) + (presolve == QBR_PRESOLVE_MODE_OFF ? " presolve off" : " presolve on"));
      if (!load("netlib-lp", model.name)) GTEST_SKIP() << "instance data not installed";
      QBR_putintparam(task, QBR_IPAR_PRESOLVE_USE, presolve);
      ASSERT_EQ(run(optimizer), QBR_RES_OK);
      ASSERT_EQ(solsta(), QBR_SOL_STA_OPTIMAL);
      EXPECT_LE(std::fabs(objective() - model.reference), 1e-6 * std::max(1.0, std::fabs(model.reference)))
          << objective();
      expect_key_rules(1e-6);
    }
  }
}

// Plain (afiro), ranged rows (boeing1), free variables (vtp.base), degenerate (scsd1),
// objective constant (e226), bounds from rows (scagr7), blend, sc50a.
INSTANTIATE_TEST_SUITE_P(Models, SimplexNetlib,
                         ::testing::Values(Model{"afiro", -4.6475314286E+02}, Model{"boeing1", -3.3521356751E+02},
                                           Model{"vtp.base", 1.2983146246E+05}, Model{"scsd1", 8.6666666743E+00},
                                           Model{"e226", -1.1638929066E+01}, Model{"scagr7", -2.3313898243E+06},
                                           Model{"blend", -3.0812149846E+01}, Model{"sc50a", -6.4575077059E+01}),
                         [](const ::testing::TestParamInfo<Model>& info) {
                           std::string s = info.param.name;
                           for (char& ch : s)
                             if (ch == '.') ch = '_';
                           return s;
                         });

void append_text(void* handle, const char* text) { static_cast<std::string*>(handle)->append(text); }

// The basis of the presolved run maps back with one basic item per row, so the run on the
// original model starts from it: on nesm postsolve undoes duplicate columns whose merged
// column is nonbasic with a zero reduced cost, and free column singletons.
TEST_F(SimplexTask, PostsolvedBasisHasOneBasicItemPerRow) {
  if (!load("netlib-lp", "nesm")) GTEST_SKIP() << "instance data not installed";
  std::string log;
  QBR_linkfunctotaskstream(task, QBR_STREAM_LOG, &log, append_text);
  ASSERT_EQ(run(QBR_OPTIMIZER_DUAL_SIMPLEX), QBR_RES_OK);
  ASSERT_EQ(solsta(), QBR_SOL_STA_OPTIMAL);
  EXPECT_LE(std::fabs(objective() - 1.4076036488E+07), 1e-6 * 1.4076036488E+07) << objective();
  EXPECT_NE(log.find("presolved constraints"), std::string::npos);
  EXPECT_EQ(log.find("The postsolved basis has"), std::string::npos);
  expect_key_rules(1e-6);
}

// Infeasible models end with a Farkas ray in the basic item that checks out.
TEST_F(SimplexTask, InfeasibleModelsGiveACheckedFarkasRay) {
  for (const char* name : {"itest2", "woodinfe", "klein1", "galenet", "bgprtr"}) {
    for (QBRint32t optimizer : {QBR_OPTIMIZER_DUAL_SIMPLEX, QBR_OPTIMIZER_PRIMAL_SIMPLEX}) {
      SCOPED_TRACE(std::string(name) + " " + std::to_string(optimizer));
      if (!load("netlib-infeasible", name)) GTEST_SKIP() << "instance data not installed";
      ASSERT_EQ(run(optimizer), QBR_RES_OK);
      ASSERT_EQ(solsta(), QBR_SOL_STA_PRIM_INFEAS_CER);
      QBRint32t prosta = -1;
      QBR_getprosta(task, QBR_SOL_BAS, &prosta);
      EXPECT_EQ(prosta, QBR_PRO_STA_PRIM_INFEAS);
      double dobj = 0.0;
      EXPECT_LT(certificate_violation(task, &dobj, QBR_SOL_BAS), 1e-8);
      EXPECT_GT(dobj, 0.0);
    }
  }
}

// min -x - y, x - y <= 1, x - 3y <= 2, x, y >= 0: along (1, 1) the objective falls without
// end.
TEST_F(SimplexTask, UnboundedModelGivesACheckedImprovingRay) {
  build({-1.0, -1.0}, {0.0, 0.0}, {1e30, 1e30}, {{1.0, -1.0}, {1.0, -3.0}}, {-1e30, -1e30}, {1.0, 2.0});
  for (QBRint32t optimizer : {QBR_OPTIMIZER_DUAL_SIMPLEX, QBR_OPTIMIZER_PRIMAL_SIMPLEX}) {
    QBR_deletesolution(task, QBR_SOL_BAS);
    ASSERT_EQ(run(optimizer), QBR_RES_OK);
    ASSERT_EQ(solsta(), QBR_SOL_STA_DUAL_INFEAS_CER);
    double cx = 0.0;
    EXPECT_LT(ray_violation(task, &cx, QBR_SOL_BAS), 1e-9);
    EXPECT_LT(cx, 0.0);
  }
}

// A vertex where four constraints meet in the plane (degenerate), and an objective parallel
// to a facet (ties in the ratio test): the optimum and its keys must still be exact.
TEST_F(SimplexTask, DegenerateAndTiedRatioTestsReachTheOptimum) {
  // max x + y over x + y <= 2, x <= 1, y <= 1, x - y <= 0, -x + y <= 0 (all meet at (1,1)).
  build({1.0, 1.0}, {0.0, 0.0}, {1e30, 1e30}, {{1.0, 1.0}, {1.0, 0.0}, {0.0, 1.0}, {1.0, -1.0}, {-1.0, 1.0}},
        {-1e30, -1e30, -1e30, -1e30, -1e30}, {2.0, 1.0, 1.0, 0.0, 0.0});
  QBR_putobjsense(task, QBR_OBJECTIVE_SENSE_MAXIMIZE);
  for (QBRint32t optimizer : {QBR_OPTIMIZER_DUAL_SIMPLEX, QBR_OPTIMIZER_PRIMAL_SIMPLEX}) {
    QBR_deletesolution(task, QBR_SOL_BAS);
    ASSERT_EQ(run(optimizer), QBR_RES_OK);
    ASSERT_EQ(solsta(), QBR_SOL_STA_OPTIMAL);
    EXPECT_NEAR(objective(), 2.0, 1e-12);
    expect_key_rules(1e-9);
    // Duals of a maximization are non-positive on upper bounds in the user's signs.
    double dobj = 0.0;
    QBR_getdualobj(task, QBR_SOL_BAS, &dobj);
    EXPECT_NEAR(dobj, 2.0, 1e-9);
  }
}

// Rows whose lower sides exclude the start point (every logical infeasible at the slack
// basis) and a fixed column: phase 1 of both variants.
TEST_F(SimplexTask, PhaseOneFromAnInfeasibleStart) {
  // min 2a + 3b + c, a + b >= 4, a + 3b >= 6, b + c = 2 (ranged as fixed), 0 <= a <= 10, b, c >= 0, c fixed at 1
  build({2.0, 3.0, 1.0}, {0.0, 0.0, 1.0}, {10.0, 1e30, 1.0}, {{1.0, 1.0, 0.0}, {1.0, 3.0, 0.0}, {0.0, 1.0, 1.0}},
        {4.0, 6.0, 2.0}, {1e30, 1e30, 2.0});
  // b = 1 (from the equality), then a >= 3: optimum 2*3 + 3 + 1 = 10.
  for (QBRint32t optimizer : {QBR_OPTIMIZER_DUAL_SIMPLEX, QBR_OPTIMIZER_PRIMAL_SIMPLEX}) {
    QBR_deletesolution(task, QBR_SOL_BAS);
    ASSERT_EQ(run(optimizer), QBR_RES_OK);
    ASSERT_EQ(solsta(), QBR_SOL_STA_OPTIMAL);
    EXPECT_NEAR(objective(), 10.0, 1e-12);
    expect_key_rules(1e-9);
  }
}

// After a solve, a changed bound, cost or right-hand side, or an appended row, is solved
// from the kept basis in few iterations, to the value of a cold solve.
TEST_F(SimplexTask, HotStartAfterChangesTakesFewIterations) {
  if (!load("netlib-lp", "scagr7")) GTEST_SKIP() << "instance data not installed";
  ASSERT_EQ(run(QBR_OPTIMIZER_DUAL_SIMPLEX), QBR_RES_OK);
  const QBRint32t cold = iterations();
  ASSERT_GT(cold, 20);
  QBRint32t n = 0, m = 0;
  QBR_getnumvar(task, &n);
  QBR_getnumcon(task, &m);
  std::vector<double> xx(static_cast<size_t>(n));
  QBR_getxx(task, QBR_SOL_BAS, xx.data());
  // Each change, then a warm and a cold run compared.
  auto compare_with_cold = [&](const char* what) {
    SCOPED_TRACE(what);
    ASSERT_EQ(run(QBR_OPTIMIZER_DUAL_SIMPLEX), QBR_RES_OK);
    QBRint32t hot = 0;
    QBR_getintinf(task, QBR_IINF_SIM_DUAL_HOTSTART, &hot);
    EXPECT_EQ(hot, 1);
    EXPECT_LT(iterations(), cold / 2);
    const double warm = objective();
    const QBRint32t warm_status = solsta();
    QBRtask_t copy = nullptr;
    ASSERT_EQ(QBR_clonetask(task, &copy), QBR_RES_OK);
    QBR_deletesolution(copy, QBR_SOL_BAS);
    QBR_putintparam(copy, QBR_IPAR_OPTIMIZER, QBR_OPTIMIZER_DUAL_SIMPLEX);
    ASSERT_EQ(QBR_optimize(copy), QBR_RES_OK);
    QBRint32t s = -1;
    QBR_getsolsta(copy, QBR_SOL_BAS, &s);
    EXPECT_EQ(s, warm_status);
    double v = 0.0;
    QBR_getprimalobj(copy, QBR_SOL_BAS, &v);
    if (s == QBR_SOL_STA_OPTIMAL) {
      EXPECT_NEAR(warm, v, 1e-7 * std::max(1.0, std::fabs(v)));
    }
    QBR_deletetask(&copy);
  };
  // A variable with a positive value gets an upper bound at half of it.
  QBRint32t j = 0;
  while (j < n && xx[static_cast<size_t>(j)] <= 1e-3) ++j;
  ASSERT_LT(j, n);
  QBR_putvarbound(task, j, QBR_BK_RA, 0.0, 0.5 * xx[static_cast<size_t>(j)]);
  compare_with_cold("bound");
  QBR_putcj(task, (j + 1) % n, 1.5);
  compare_with_cold("cost");
  QBRint32t bk;
  double bl, bu;
  QBR_getconbound(task, 0, &bk, &bl, &bu);
  QBR_putconbound(task, 0, bk, bk == QBR_BK_UP ? bl : bl * 1.01, bk == QBR_BK_LO ? bu : bu * 1.01);
  compare_with_cold("rhs");
  // A row sum_j x_j <= 0.99 * (the current sum).
  std::vector<double> cur(static_cast<size_t>(n));
  QBR_getxx(task, QBR_SOL_BAS, cur.data());
  double total = 0.0;
  std::vector<QBRint32t> sub(static_cast<size_t>(n));
  std::vector<double> ones(static_cast<size_t>(n), 1.0);
  for (QBRint32t k = 0; k < n; ++k) {
    sub[static_cast<size_t>(k)] = k;
    total += cur[static_cast<size_t>(k)];
  }
  ASSERT_EQ(QBR_appendcons(task, 1), QBR_RES_OK);
  QBR_putarow(task, m, n, sub.data(), ones.data());
  QBR_putconbound(task, m, QBR_BK_UP, -1e30, 0.99 * total);
  compare_with_cold("appended row");
}

// Limits and the callback stop a run with their termination codes; the item then holds the
// current basis with unknown status.
TEST_F(SimplexTask, IterationLimitAndCallbackStop) {
  if (!load("netlib-lp", "scsd1")) GTEST_SKIP() << "instance data not installed";
  QBR_putintparam(task, QBR_IPAR_PRESOLVE_USE, QBR_PRESOLVE_MODE_OFF);
  QBR_putintparam(task, QBR_IPAR_SIM_MAX_ITERATIONS, 5);
  EXPECT_EQ(run(QBR_OPTIMIZER_DUAL_SIMPLEX), QBR_RES_TRM_MAX_ITERATIONS);
  EXPECT_EQ(solsta(), QBR_SOL_STA_UNKNOWN);
  EXPECT_LE(iterations(), 5);
  QBR_putintparam(task, QBR_IPAR_SIM_MAX_ITERATIONS, 10000000);
  QBR_deletesolution(task, QBR_SOL_BAS);
  int calls = 0;
  QBR_putcallbackfunc(task, [](QBRtask_t, void* handle, QBRint32t caller, const double*, const QBRint32t*,
                               const QBRint64t*) -> QBRint32t {
    int* count = static_cast<int*>(handle);
    return caller == QBR_CALLBACK_DUAL_SIMPLEX && ++*count >= 2 ? 1 : 0;
  }, &calls);
  EXPECT_EQ(run(QBR_OPTIMIZER_DUAL_SIMPLEX), QBR_RES_TRM_USER_CALLBACK);
  EXPECT_EQ(calls, 2);
}

}  // namespace

namespace {

// Basis identification after the interior point, on degenerate (scsd1, scsd6) and dual
// degenerate (sc105, scagr7) models, with presolve on and off and each clean-up optimizer:
// the basic item is optimal at the interior item's objective and obeys the key rules.
TEST_F(SimplexTask, BasisIdentificationGivesAnOptimalBasis) {
  for (const char* name : {"scsd1", "scsd6", "sc105", "scagr7"}) {
    for (QBRint32t clean : {QBR_OPTIMIZER_FREE, QBR_OPTIMIZER_DUAL_SIMPLEX}) {
      SCOPED_TRACE(std::string(name) + " " + std::to_string(clean));
      if (!load("netlib-lp", name)) GTEST_SKIP() << "instance data not installed";
      QBR_putintparam(task, QBR_IPAR_BI_CLEAN_OPTIMIZER, clean);
      ASSERT_EQ(run(QBR_OPTIMIZER_INTPNT), QBR_RES_OK);
      ASSERT_EQ(solsta(), QBR_SOL_STA_OPTIMAL);
      double itr = 0.0;
      QBR_getprimalobj(task, QBR_SOL_ITR, &itr);
      EXPECT_NEAR(objective(), itr, 1e-7 * std::max(1.0, std::fabs(itr)));
      expect_key_rules(1e-6);
      double bi_time = -1.0;
      QBR_getdouinf(task, QBR_DINF_BI_TIME, &bi_time);
      EXPECT_GE(bi_time, 0.0);
    }
  }
}

}  // namespace
