// Paths and edge cases of the optimize driver.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "fixture.h"
#include "qubor.h"
#include "task/task.h"

namespace {

class DriverTest : public TaskTest {
 protected:
  void SetUp() override {
    TaskTest::SetUp();
    QBR_linkfunctotaskstream(task, QBR_STREAM_LOG, &log, Captured::sink);
  }
  // min -3x - 2y : x + y <= 4, x + 3y <= 6, 0 <= x <= 3, y >= 0
  void load_small_lp() {
    ASSERT_EQ(QBR_appendvars(task, 2), QBR_RES_OK);
    ASSERT_EQ(QBR_appendcons(task, 2), QBR_RES_OK);
    QBR_putcj(task, 0, -3.0);
    QBR_putcj(task, 1, -2.0);
    QBR_putvarbound(task, 0, QBR_BK_RA, 0.0, 3.0);
    QBR_putvarbound(task, 1, QBR_BK_LO, 0.0, QBR_INFINITY);
    const QBRint32t cols[2] = {0, 1};
    const QBRrealt r0[2] = {1, 1}, r1[2] = {1, 3};
    QBR_putarow(task, 0, 2, cols, r0);
    QBR_putarow(task, 1, 2, cols, r1);
    QBR_putconbound(task, 0, QBR_BK_UP, -QBR_INFINITY, 4.0);
    QBR_putconbound(task, 1, QBR_BK_UP, -QBR_INFINITY, 6.0);
  }
  qubor::task::Task& internal() { return *task->impl; }
  Captured log;
};

TEST_F(DriverTest, SolvesAnLpAndRecordsItsInformation) {
  load_small_lp();
  QBRrescode trm = -1;
  ASSERT_EQ(QBR_optimizetrm(task, &trm), QBR_RES_OK);
  EXPECT_EQ(trm, QBR_RES_OK);
  QBRint32t solsta = -1, prosta = -1;
  QBR_getsolsta(task, QBR_SOL_ITR, &solsta);
  QBR_getprosta(task, QBR_SOL_ITR, &prosta);
  EXPECT_EQ(solsta, QBR_SOL_STA_OPTIMAL);
  EXPECT_EQ(prosta, QBR_PRO_STA_PRIM_AND_DUAL_FEAS);
  QBRrealt pobj = 0;
  QBR_getprimalobj(task, QBR_SOL_ITR, &pobj);
  EXPECT_NEAR(pobj, -11.0, 1e-6);
  EXPECT_EQ(iinf(QBR_IINF_OPTIMIZE_RESPONSE), QBR_RES_OK);
  EXPECT_EQ(iinf(QBR_IINF_OPT_NUMCON), 2);
  EXPECT_EQ(iinf(QBR_IINF_OPT_NUMVAR), 2);
  EXPECT_GT(iinf(QBR_IINF_INTPNT_ITER), 0);
  EXPECT_GE(iinf(QBR_IINF_INTPNT_NUM_THREADS), 1);
  EXPECT_GE(dinf(QBR_DINF_OPTIMIZER_TIME), 0.0);
  EXPECT_NEAR(dinf(QBR_DINF_INTPNT_PRIMAL_OBJ), -11.0, 1e-6);
  // Basis identification is asked for by default: the basic item holds the same optimum.
  QBRbooleant def = 0;
  QBR_solutiondef(task, QBR_SOL_BAS, &def);
  EXPECT_EQ(def, 1);
  QBR_getsolsta(task, QBR_SOL_BAS, &solsta);
  EXPECT_EQ(solsta, QBR_SOL_STA_OPTIMAL);
  QBR_getprimalobj(task, QBR_SOL_BAS, &pobj);
  EXPECT_NEAR(pobj, -11.0, 1e-9);
  EXPECT_NE(log.text.find("Basis identification terminated. Time: "), std::string::npos);
  // The log has the factor summary and the iteration table.
  EXPECT_NE(log.text.find("Factor    - nonzeros before factor : "), std::string::npos);
  EXPECT_NE(log.text.find("ITE PFEAS    DFEAS    GFEAS    PRSTATUS   POBJ              DOBJ"
                          "              MU       TIME  \n"),
            std::string::npos);
  // A second call counts too and starts from reset information items.
  ASSERT_EQ(QBR_optimize(task), QBR_RES_OK);
  EXPECT_EQ(internal().optimize.calls, 2);
}

TEST_F(DriverTest, UndefinedSenseFailsEarlyButRecordsTheResponse) {
  load_small_lp();
  internal().problem.obj_sense = 2;
  internal().set_dinf(QBR_DINF_OPTIMIZER_TIME, -5.0);
  QBRrescode trm = -1;
  EXPECT_EQ(QBR_optimizetrm(task, &trm), QBR_RES_ERR_UNDEFINED_OBJECTIVE_SENSE);
  EXPECT_EQ(trm, QBR_RES_OK);
  EXPECT_EQ(iinf(QBR_IINF_OPTIMIZE_RESPONSE), QBR_RES_ERR_UNDEFINED_OBJECTIVE_SENSE);
  EXPECT_GE(dinf(QBR_DINF_OPTIMIZER_TIME), 0.0);
  EXPECT_NE(err.text.find("The objective sense has not been specified before the optimization."),
            std::string::npos);
  QBRbooleant def = 1;
  QBR_solutiondef(task, QBR_SOL_ITR, &def);
  EXPECT_EQ(def, 0);
}

TEST_F(DriverTest, OptimizerChoice) {
  load_small_lp();
  ASSERT_EQ(QBR_putqobjij(task, 0, 0, 1.0), QBR_RES_OK);  // now a QO task
  QBR_putintparam(task, QBR_IPAR_OPTIMIZER, QBR_OPTIMIZER_PRIMAL_SIMPLEX);
  EXPECT_EQ(QBR_optimize(task), QBR_RES_ERR_INV_OPTIMIZER);
  EXPECT_NE(err.text.find("Optimizer: 6."), std::string::npos) << err.text;
  EXPECT_EQ(iinf(QBR_IINF_OPTIMIZE_RESPONSE), QBR_RES_ERR_INV_OPTIMIZER);
  // The interior-point choice runs the quadratic path.
  QBR_putintparam(task, QBR_IPAR_OPTIMIZER, QBR_OPTIMIZER_INTPNT);
  EXPECT_EQ(QBR_optimize(task), QBR_RES_OK);
}

TEST_F(DriverTest, ConicTaskAndIntegerVariables) {
  load_small_lp();
  const QBRint32t members[2] = {0, 1};
  ASSERT_EQ(QBR_appendcone(task, QBR_CT_QUAD, 0.0, 2, members), QBR_RES_OK);
  QBR_putintparam(task, QBR_IPAR_OPTIMIZER, QBR_OPTIMIZER_INTPNT);
  EXPECT_EQ(QBR_optimize(task), QBR_RES_ERR_INV_OPTIMIZER);
  EXPECT_NE(err.text.find("Optimizer: 4."), std::string::npos);
  // The free choice runs the conic optimizer, which logs its own summary line.
  QBR_putintparam(task, QBR_IPAR_OPTIMIZER, QBR_OPTIMIZER_FREE);
  log.text.clear();
  const QBRrescode r = QBR_optimize(task);
  EXPECT_TRUE(r == QBR_RES_OK || r >= 10000) << r;
  EXPECT_NE(log.text.find("Optimizer - conic"), std::string::npos);
  QBRbooleant itr = 0;
  QBR_solutiondef(task, QBR_SOL_ITR, &itr);
  EXPECT_EQ(itr, 1);
}

TEST_F(DriverTest, IgnoredIntegersSolveTheRelaxation) {
  load_small_lp();
  QBR_putvartype(task, 1, QBR_VAR_TYPE_INT);
  QBR_putintparam(task, QBR_IPAR_MIO_MODE, QBR_MIO_MODE_IGNORED);
  ASSERT_EQ(QBR_optimize(task), QBR_RES_OK);
  QBRbooleant itr = 0, itg = 1;
  QBR_solutiondef(task, QBR_SOL_ITR, &itr);
  QBR_solutiondef(task, QBR_SOL_ITG, &itg);
  EXPECT_EQ(itr, 1);
  EXPECT_EQ(itg, 0);
  // Satisfied integrality takes the mixed-integer path.
  QBR_putintparam(task, QBR_IPAR_MIO_MODE, QBR_MIO_MODE_SATISFIED);
  ASSERT_EQ(QBR_optimize(task), QBR_RES_OK);
  QBR_solutiondef(task, QBR_SOL_ITG, &itg);
  EXPECT_EQ(itg, 1);
}

TEST_F(DriverTest, TerminationCodesOfBothEntryPoints) {
  load_small_lp();
  QBR_putintparam(task, QBR_IPAR_INTPNT_MAX_ITERATIONS, 1);
  QBRrescode trm = -1;
  EXPECT_EQ(QBR_optimizetrm(task, &trm), QBR_RES_OK);
  EXPECT_EQ(trm, QBR_RES_TRM_MAX_ITERATIONS);
  EXPECT_EQ(QBR_optimizetrm(task, nullptr), QBR_RES_OK);
  EXPECT_EQ(QBR_optimize(task), QBR_RES_TRM_MAX_ITERATIONS);
  EXPECT_EQ(iinf(QBR_IINF_OPTIMIZE_RESPONSE), QBR_RES_TRM_MAX_ITERATIONS);
  QBRint32t solsta = -1;
  QBR_getsolsta(task, QBR_SOL_ITR, &solsta);
  EXPECT_EQ(solsta, QBR_SOL_STA_UNKNOWN);
}

struct CallbackLog {
  std::string callers;
  QBRint32t stop_at = -1;
  int intpnt_calls = 0;
};

QBRint32t callback(QBRtask_t, void* h, QBRint32t caller, const QBRrealt*, const QBRint32t*,
                   const QBRint64t*) {
  auto* c = static_cast<CallbackLog*>(h);
  if (caller == QBR_CALLBACK_BEGIN_OPTIMIZER) c->callers += "B";
  if (caller == QBR_CALLBACK_END_OPTIMIZER) c->callers += "E";
  if (caller == QBR_CALLBACK_INTPNT) ++c->intpnt_calls;
  return caller == c->stop_at && (caller != QBR_CALLBACK_INTPNT || c->intpnt_calls == 2) ? 1 : 0;
}

TEST_F(DriverTest, ProgressCallbackStops) {
  load_small_lp();
  CallbackLog cb;
  QBR_putcallbackfunc(task, callback, &cb);
  cb.stop_at = QBR_CALLBACK_INTPNT;
  QBRrescode trm = -1;
  EXPECT_EQ(QBR_optimizetrm(task, &trm), QBR_RES_OK);
  EXPECT_EQ(trm, QBR_RES_TRM_USER_CALLBACK);
  EXPECT_EQ(cb.callers, "BE");
  EXPECT_EQ(cb.intpnt_calls, 2);
  EXPECT_EQ(iinf(QBR_IINF_OPTIMIZE_RESPONSE), QBR_RES_TRM_USER_CALLBACK);
  // The end-optimizer callback decides the result of a run that ended normally.
  cb = CallbackLog();
  cb.stop_at = QBR_CALLBACK_END_OPTIMIZER;
  EXPECT_EQ(QBR_optimize(task), QBR_RES_TRM_USER_CALLBACK);
  QBRint32t solsta = -1;
  QBR_getsolsta(task, QBR_SOL_ITR, &solsta);
  EXPECT_EQ(solsta, QBR_SOL_STA_OPTIMAL);
}

TEST_F(DriverTest, MaximisationKeepsTheUsersSigns) {
  // max x  s.t.  x <= 1 (a row), x >= 0
  ASSERT_EQ(QBR_appendvars(task, 1), QBR_RES_OK);
  ASSERT_EQ(QBR_appendcons(task, 1), QBR_RES_OK);
  QBR_putcj(task, 0, 1.0);
  QBR_putcfix(task, 0.5);
  QBR_putvarbound(task, 0, QBR_BK_LO, 0.0, QBR_INFINITY);
  QBR_putaij(task, 0, 0, 1.0);
  QBR_putconbound(task, 0, QBR_BK_UP, -QBR_INFINITY, 1.0);
  QBR_putobjsense(task, QBR_OBJECTIVE_SENSE_MAXIMIZE);
  ASSERT_EQ(QBR_optimize(task), QBR_RES_OK);
  QBRrealt pobj = 0, dobj = 0, y = 0, suc = 0, x = 0;
  QBR_getprimalobj(task, QBR_SOL_ITR, &pobj);
  QBR_getdualobj(task, QBR_SOL_ITR, &dobj);
  QBR_getxx(task, QBR_SOL_ITR, &x);
  QBR_gety(task, QBR_SOL_ITR, &y);
  QBR_getsuc(task, QBR_SOL_ITR, &suc);
  EXPECT_NEAR(x, 1.0, 1e-7);
  EXPECT_NEAR(pobj, 1.5, 1e-7);
  EXPECT_NEAR(dobj, 1.5, 1e-7);
  EXPECT_NEAR(y, 1.0, 1e-7);
  EXPECT_NEAR(suc, -1.0, 1e-7);
  QBRint32t skc = -1;
  QBR_getskc(task, QBR_SOL_ITR, &skc);
  EXPECT_EQ(skc, QBR_SK_UPR);
  // The task's own data are left as they were.
  QBRrealt c = 0, cfix = 0;
  QBR_getcj(task, 0, &c);
  QBR_getcfix(task, &cfix);
  EXPECT_EQ(c, 1.0);
  EXPECT_EQ(cfix, 0.5);
}

TEST_F(DriverTest, OptimizerSummary) {
  load_small_lp();
  ASSERT_EQ(QBR_optimize(task), QBR_RES_OK);
  log.text.clear();
  ASSERT_EQ(QBR_optimizersummary(task, QBR_STREAM_LOG), QBR_RES_OK);
  EXPECT_EQ(log.text.rfind("Optimizer summary\n", 0), 0u);
  EXPECT_NE(log.text.find("Interior-point"), std::string::npos);
  EXPECT_EQ(QBR_optimizersummary(task, 7), QBR_RES_ERR_INVALID_STREAM);
  EXPECT_EQ(QBR_optimizersummary(nullptr, QBR_STREAM_LOG), QBR_RES_ERR_NULL_TASK);
  EXPECT_EQ(QBR_optimize(nullptr), QBR_RES_ERR_NULL_TASK);
}

}  // namespace
