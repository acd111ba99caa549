// Real models read from files, solved by the interior-point optimizer and compared with
// their reference values; infeasible models end with a certificate that is checked against
// the data.
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <string>
#include <vector>

#include "certificates.h"
#include "qubor.h"

namespace {

struct Model {
  const char* set;
  const char* name;
  double reference;  // NAN for an infeasible model
};

// An environment and a task holding one model of the instance sets, deleted with the test.
class ModelTask {
 protected:
  ~ModelTask() {
    QBR_deletetask(&task);
    QBR_deleteenv(&env);
  }
  // Reads set/name into a fresh task set to one thread; false when the data is not installed.
  bool load(const char* set, const char* name) {
    const std::string path = std::string(QUBOR_TEST_DATA_DIR) + "/" + set + "/" + name + ".mps.gz";
    if (!std::ifstream(path)) return false;
    if (env == nullptr) {
      EXPECT_EQ(QBR_makeenv(&env, nullptr), QBR_RES_OK);
    }
    QBR_deletetask(&task);
    EXPECT_EQ(QBR_maketask(env, 0, 0, &task), QBR_RES_OK);
    EXPECT_EQ(QBR_readdata(task, path.c_str()), QBR_RES_OK) << path;
    QBR_putintparam(task, QBR_IPAR_NUM_THREADS, 1);
    return true;
  }
  QBRenv_t env = nullptr;
  QBRtask_t task = nullptr;
};

class NetlibTest : public ::testing::TestWithParam<Model>, protected ModelTask {};
class DataTest : public ::testing::Test, protected ModelTask {};

// Largest dual violation of the variables and constraints of the interior-point solution.
double max_dual_violation(QBRtask_t task) {
  QBRint32t m = 0, n = 0;
  QBR_getnumcon(task, &m);
  QBR_getnumvar(task, &n);
  double worst = 0.0;
  for (int pass = 0; pass < 2; ++pass) {
    const QBRint32t num = pass == 0 ? n : m;
    std::vector<QBRint32t> sub(static_cast<size_t>(num));
    for (QBRint32t k = 0; k < num; ++k) sub[static_cast<size_t>(k)] = k;
    std::vector<QBRrealt> viol(static_cast<size_t>(num));
    const QBRrescode r = pass == 0 ? QBR_getdviolvar(task, QBR_SOL_ITR, num, sub.data(), viol.data())
                                   : QBR_getdviolcon(task, QBR_SOL_ITR, num, sub.data(), viol.data());
    EXPECT_EQ(r, QBR_RES_OK);
    for (double v : viol) worst = std::max(worst, v);
  }
  return worst;
}

// Scale of the dual problem: the largest cost and the largest row dual.
double dual_scale(QBRtask_t task) {
  QBRint32t n = 0, m = 0;
  QBR_getnumvar(task, &n);
  QBR_getnumcon(task, &m);
  std::vector<QBRrealt> c(static_cast<size_t>(n)), y(static_cast<size_t>(m));
  QBR_getc(task, c.data());
  QBR_gety(task, QBR_SOL_ITR, y.data());
  double r = 1.0;
  for (double v : c) r = std::max(r, std::fabs(v));
  for (double v : y) r = std::max(r, std::fabs(v));
  return r;
}

// Every model is solved with presolve off and on: both runs must reach the reference, and the
// postsolved duals must be as feasible as the optimizer's own.
TEST_P(NetlibTest, SolvesToTheReference) {
  const Model& model = GetParam();
  for (QBRint32t presolve : {QBR_PRESOLVE_MODE_OFF, QBR_PRESOLVE_MODE_FREE}) {
    SCOPED_TRACE(presolve == QBR_PRESOLVE_MODE_OFF ? "presolve off" : "presolve on");
    if (!load(model.set, model.name)) GTEST_SKIP() << "instance data not installed";
    QBR_putintparam(task, QBR_IPAR_PRESOLVE_USE, presolve);
    QBRrescode trm = -1;
    ASSERT_EQ(QBR_optimizetrm(task, &trm), QBR_RES_OK);
    EXPECT_EQ(trm, QBR_RES_OK);
    QBRint32t solsta = -1, prosta = -1;
    QBR_getsolsta(task, QBR_SOL_ITR, &solsta);
    QBR_getprosta(task, QBR_SOL_ITR, &prosta);
    if (std::isnan(model.reference)) {
      EXPECT_EQ(prosta, QBR_PRO_STA_PRIM_INFEAS);
      EXPECT_EQ(solsta, QBR_SOL_STA_PRIM_INFEAS_CER);
      double dobj = 0.0;
      EXPECT_LT(certificate_violation(task, &dobj), 1e-6);
      EXPECT_GT(dobj, 0.0);
    } else {
      EXPECT_EQ(solsta, QBR_SOL_STA_OPTIMAL);
      QBRrealt pobj = 0;
      QBR_getprimalobj(task, QBR_SOL_ITR, &pobj);
      // Default settings meet the reference to 1e-6. Without presolve the relative feasibility
      // tolerance alone decides: on modszk1 (|b| up to 1.4e5) it leaves 1.3e-6.
      const double rtol = presolve == QBR_PRESOLVE_MODE_OFF ? 1e-5 : 1e-6;
      EXPECT_LE(std::fabs(pobj - model.reference), rtol * std::max(1.0, std::fabs(model.reference)))
          << pobj;
      // Postsolve may lose a little of the reduced run's dual accuracy, never more.
      EXPECT_LE(max_dual_violation(task), 1e-7 * dual_scale(task));
    }
  }
}

// Chosen for coverage: plain (afiro), ranged rows (boeing1), free variables (vtp.base, pilot4),
// degenerate (scsd1), objective constant in the RHS (e226), postsolve of duals on bounds
// inherited from rows (25fv47, scagr7), infeasible models.
INSTANTIATE_TEST_SUITE_P(
    Models, NetlibTest,
    ::testing::Values(Model{"netlib-lp", "afiro", -4.6475314286E+02},
                      Model{"netlib-lp", "boeing1", -3.3521356751E+02},
                      Model{"netlib-lp", "vtp.base", 1.2983146246E+05},
                      Model{"netlib-lp", "pilot4", -2.5811392589E+03},
                      Model{"netlib-lp", "scsd1", 8.6666666743E+00},
                      Model{"netlib-lp", "e226", -1.1638929066E+01},
                      Model{"netlib-lp", "25fv47", 5.5018458883E+03},
                      Model{"netlib-lp", "scagr7", -2.3313898243E+06},
                      Model{"netlib-lp", "modszk1", 3.2061972906E+02},
                      Model{"netlib-lp", "sc205", -5.2202061212E+01},
                      Model{"netlib-infeasible", "itest2", NAN},
                      Model{"netlib-infeasible", "woodinfe", NAN},
                      Model{"netlib-infeasible", "klein1", NAN}),
    [](const ::testing::TestParamInfo<Model>& info) {
      std::string s = info.param.name;
      for (char& ch : s)
        if (ch == '.') ch = '_';
      return s;
    });

// cplex1 is primal infeasible and has an improving ray as well (its recession problem boxed to
// [-1, 1] has the value -1000), so either certificate is a right answer; it must check out.
TEST_F(DataTest, PrimalAndDualInfeasibleModelGetsAValidCertificate) {
  if (!load("netlib-infeasible", "cplex1")) GTEST_SKIP() << "instance data not installed";
  ASSERT_EQ(QBR_optimize(task), QBR_RES_OK);
  QBRint32t solsta = -1;
  QBR_getsolsta(task, QBR_SOL_ITR, &solsta);
  if (solsta == QBR_SOL_STA_PRIM_INFEAS_CER) {
    double dobj = 0.0;
    EXPECT_LT(certificate_violation(task, &dobj), 1e-6);
    EXPECT_GT(dobj, 0.0);
  } else {
    ASSERT_EQ(solsta, QBR_SOL_STA_DUAL_INFEAS_CER);
    double cx = 0.0;
    EXPECT_LT(ray_violation(task, &cx), 1e-4);
    EXPECT_LT(cx, 0.0);
  }
}

// The continuous relaxation of mas74: costs near 1e4 against right-hand sides near 1. The
// homogeneous iterate shrinks by orders of magnitude on the way, and a scaled-down optimal
// iterate once passed the primal certificate's ratio test.
TEST_F(DataTest, RelaxationOfBadlyScaledMas74IsOptimalNotInfeasible) {
  if (!load("miplib", "mas74")) GTEST_SKIP() << "instance data not installed";
  QBR_putintparam(task, QBR_IPAR_MIO_MODE, QBR_MIO_MODE_IGNORED);
  for (QBRint32t presolve : {QBR_PRESOLVE_MODE_OFF, QBR_PRESOLVE_MODE_FREE}) {
    QBR_putintparam(task, QBR_IPAR_PRESOLVE_USE, presolve);
    ASSERT_EQ(QBR_optimize(task), QBR_RES_OK);
    QBRint32t solsta = -1;
    QBR_getsolsta(task, QBR_SOL_ITR, &solsta);
    EXPECT_EQ(solsta, QBR_SOL_STA_OPTIMAL);
    QBRrealt pobj = 0;
    QBR_getprimalobj(task, QBR_SOL_ITR, &pobj);
    EXPECT_NEAR(pobj, 10482.79528, 1e-6 * 10482.79528);
  }
}

}  // namespace
