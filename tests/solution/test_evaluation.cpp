// Evaluating solutions: objective values with constant, quadratic and matrix-variable terms
// and the sense, violations, norms, the information items and the summary layout.
#include <cmath>
#include <string>

#include "api/fixture.h"
#include "task/task.h"

namespace {

// minimize x0 + 2 x1 + 0.5  s.t.  x0 + x1 >= 1,  x >= 0; optimum x = (1, 0), y = 1.
class EvaluationTest : public TaskTest {
 protected:
  void SetUp() override {
    TaskTest::SetUp();
    ASSERT_EQ(QBR_appendcons(task, 1), QBR_RES_OK);
    ASSERT_EQ(QBR_appendvars(task, 2), QBR_RES_OK);
    QBR_putcj(task, 0, 1.0);
    QBR_putcj(task, 1, 2.0);
    QBR_putcfix(task, 0.5);
    QBR_putaij(task, 0, 0, 1.0);
    QBR_putaij(task, 0, 1, 1.0);
    QBR_putconbound(task, 0, QBR_BK_LO, 1.0, 0.0);
    QBR_putvarboundsliceconst(task, 0, 2, QBR_BK_LO, 0.0, 0.0);
    const double xc[] = {1}, xx[] = {1, 0}, y[] = {1}, slc[] = {1}, suc[] = {0}, slx[] = {0, 1}, sux[] = {0, 0};
    ASSERT_EQ(QBR_putsolution(task, QBR_SOL_BAS, nullptr, nullptr, nullptr, xc, xx, y, slc, suc, slx, sux, nullptr),
              QBR_RES_OK);
  }
  void set_status(int which, int prosta, int solsta) {
    task->impl->solutions[which].prosta = prosta;
    task->impl->solutions[which].solsta = solsta;
  }
};

TEST_F(EvaluationTest, OptimalPairHasEqualObjectivesAndNoViolation) {
  double p = 0, d = 0;
  ASSERT_EQ(QBR_getprimalobj(task, QBR_SOL_BAS, &p), QBR_RES_OK);
  ASSERT_EQ(QBR_getdualobj(task, QBR_SOL_BAS, &d), QBR_RES_OK);
  EXPECT_DOUBLE_EQ(p, 1.5);
  EXPECT_DOUBLE_EQ(d, 1.5);
  double pv[5] = {1, 1, 1, 1, 1}, dv[4] = {1, 1, 1, 1};
  ASSERT_EQ(QBR_getsolutioninfo(task, QBR_SOL_BAS, nullptr, &pv[0], &pv[1], &pv[2], &pv[3], &pv[4], nullptr, &dv[0],
                                &dv[1], &dv[2], &dv[3]),
            QBR_RES_OK);
  for (double v : pv) EXPECT_EQ(v, 0.0);
  for (double v : dv) EXPECT_EQ(v, 0.0);
}

TEST_F(EvaluationTest, ViolationsMeasureEachKind) {
  const double xx[] = {-0.5, 0.25};  // xc no longer matches A x and x0 < 0
  ASSERT_EQ(QBR_putxx(task, QBR_SOL_BAS, xx), QBR_RES_OK);
  const QBRint32t sub[] = {1, 0};
  double v[2];
  ASSERT_EQ(QBR_getpviolvar(task, QBR_SOL_BAS, 2, sub, v), QBR_RES_OK);
  EXPECT_EQ(v[0], 0.0);
  EXPECT_EQ(v[1], 0.5);
  ASSERT_EQ(QBR_getpviolcon(task, QBR_SOL_BAS, 1, sub + 1, v), QBR_RES_OK);
  EXPECT_DOUBLE_EQ(v[0], 1.25);  // |xc - a x| = |1 - (-0.25)|
  // A negative multiplier of a lower bound violates dual feasibility when minimizing.
  const double slx[] = {-2, 1};
  ASSERT_EQ(QBR_putslx(task, QBR_SOL_BAS, slx), QBR_RES_OK);
  ASSERT_EQ(QBR_getdviolvar(task, QBR_SOL_BAS, 1, sub + 1, v), QBR_RES_OK);
  EXPECT_DOUBLE_EQ(v[0], 2.0);
  const QBRint32t bad[] = {2};
  EXPECT_EQ(QBR_getpviolvar(task, QBR_SOL_BAS, 1, bad, v), QBR_RES_ERR_INDEX_IS_TOO_LARGE);
}

TEST_F(EvaluationTest, QuadraticAndMaximizeObjectives) {
  ASSERT_EQ(QBR_putqobjij(task, 0, 0, 4.0), QBR_RES_OK);  // + 1/2 * 4 x0^2
  double p = 0, d = 0;
  QBR_getprimalobj(task, QBR_SOL_BAS, &p);
  EXPECT_DOUBLE_EQ(p, 3.5);
  QBR_getdualobj(task, QBR_SOL_BAS, &d);
  EXPECT_DOUBLE_EQ(d, 1.5 - 2.0);
  ASSERT_EQ(QBR_putobjsense(task, QBR_OBJECTIVE_SENSE_MAXIMIZE), QBR_RES_OK);
  QBR_getprimalobj(task, QBR_SOL_BAS, &p);
  EXPECT_DOUBLE_EQ(p, 3.5);  // the value of the objective function, whatever the sense
  const QBRint32t sub[] = {1};
  double v = 0;
  ASSERT_EQ(QBR_getdviolvar(task, QBR_SOL_BAS, 1, sub, &v), QBR_RES_OK);
  EXPECT_DOUBLE_EQ(v, 1.0);  // slx_1 = 1 has the wrong sign when maximizing
}

TEST_F(EvaluationTest, MatrixVariableAndConeTerms) {
  const QBRint32t dims[] = {2};
  ASSERT_EQ(QBR_appendbarvars(task, 1, dims), QBR_RES_OK);
  const QBRint32t si[] = {0, 1}, sj[] = {0, 0};
  const double sv[] = {1.0, 1.0};
  QBRint64t m = -1;
  ASSERT_EQ(QBR_appendsparsesymmat(task, 2, 2, si, sj, sv, &m), QBR_RES_OK);
  const double w[] = {3.0};
  ASSERT_EQ(QBR_putbarcj(task, 0, 1, &m, w), QBR_RES_OK);
  const double barx[] = {1.0, 0.5, 2.0};  // [[1, .5], [.5, 2]]
  ASSERT_EQ(QBR_putbarxj(task, QBR_SOL_BAS, 0, barx), QBR_RES_OK);
  double p = 0;
  QBR_getprimalobj(task, QBR_SOL_BAS, &p);
  EXPECT_DOUBLE_EQ(p, 1.5 + 3.0 * (1.0 + 2 * 0.5));
  const double indefinite[] = {1.0, 2.0, 1.0};  // eigenvalues 3 and -1
  ASSERT_EQ(QBR_putbarxj(task, QBR_SOL_BAS, 0, indefinite), QBR_RES_OK);
  const QBRint32t sub[] = {0};
  double v = 0;
  ASSERT_EQ(QBR_getpviolbarvar(task, QBR_SOL_BAS, 1, sub, &v), QBR_RES_OK);
  EXPECT_NEAR(v, 1.0, 1e-12);
  ASSERT_EQ(QBR_appendvars(task, 1), QBR_RES_OK);
  const QBRint32t mem[] = {2, 0, 1};
  ASSERT_EQ(QBR_appendcone(task, QBR_CT_QUAD, 0.0, 3, mem), QBR_RES_OK);
  const double xx[] = {3.0, 4.0, 2.0};  // ||(3, 4)|| - 2 = 3
  ASSERT_EQ(QBR_putxx(task, QBR_SOL_BAS, xx), QBR_RES_OK);
  ASSERT_EQ(QBR_getpviolcones(task, QBR_SOL_BAS, 1, sub, &v), QBR_RES_OK);
  EXPECT_DOUBLE_EQ(v, 3.0);
}

TEST_F(EvaluationTest, UpdateSolutionInfoFillsTheItems) {
  set_status(QBR_SOL_BAS, QBR_PRO_STA_PRIM_AND_DUAL_FEAS, QBR_SOL_STA_OPTIMAL);
  ASSERT_EQ(QBR_updatesolutioninfo(task, QBR_SOL_BAS), QBR_RES_OK);
  QBRint32t solsta = -1;
  double pobj = 0, nrm = 0;
  QBR_getintinf(task, QBR_IINF_SOL_BAS_SOLSTA, &solsta);
  QBR_getdouinf(task, QBR_DINF_SOL_BAS_PRIMAL_OBJ, &pobj);
  QBR_getdouinf(task, QBR_DINF_SOL_BAS_NRM_SLX, &nrm);
  EXPECT_EQ(solsta, QBR_SOL_STA_OPTIMAL);
  EXPECT_DOUBLE_EQ(pobj, 1.5);
  EXPECT_EQ(nrm, 1.0);
  EXPECT_EQ(QBR_updatesolutioninfo(task, QBR_SOL_ITR), QBR_RES_OK);  // undefined: zeros
}

TEST_F(EvaluationTest, SummaryLayout) {
  set_status(QBR_SOL_BAS, QBR_PRO_STA_PRIM_AND_DUAL_FEAS, QBR_SOL_STA_OPTIMAL);
  ASSERT_EQ(QBR_solutionsummary(task, QBR_STREAM_MSG), QBR_RES_OK);
  EXPECT_EQ(msg.text,
            "Basic solution summary\n"
            "  Problem status  : PRIMAL_AND_DUAL_FEASIBLE\n"
            "  Solution status : OPTIMAL\n"
            "  Primal.  obj: 1.5000000000e+00    nrm: 1e+00    Viol.  con: 0e+00    var: 0e+00  \n"
            "  Dual.    obj: 1.5000000000e+00    nrm: 1e+00    Viol.  con: 0e+00    var: 0e+00  \n");
}

TEST_F(EvaluationTest, SummaryLeavesOutTheLineOfACertificate) {
  set_status(QBR_SOL_BAS, QBR_PRO_STA_DUAL_INFEAS, QBR_SOL_STA_DUAL_INFEAS_CER);
  ASSERT_EQ(QBR_onesolutionsummary(task, QBR_STREAM_MSG, QBR_SOL_BAS), QBR_RES_OK);
  EXPECT_NE(msg.text.find("Primal."), std::string::npos);
  EXPECT_EQ(msg.text.find("Dual."), std::string::npos);
  msg.text.clear();
  set_status(QBR_SOL_BAS, QBR_PRO_STA_PRIM_INFEAS, QBR_SOL_STA_PRIM_INFEAS_CER);
  ASSERT_EQ(QBR_onesolutionsummary(task, QBR_STREAM_MSG, QBR_SOL_BAS), QBR_RES_OK);
  EXPECT_EQ(msg.text.find("Primal."), std::string::npos);
  EXPECT_NE(msg.text.find("Dual."), std::string::npos);
  msg.text.clear();
  QBR_putintparam(task, QBR_IPAR_LOG, 0);
  ASSERT_EQ(QBR_onesolutionsummary(task, QBR_STREAM_MSG, QBR_SOL_BAS), QBR_RES_OK);
  EXPECT_TRUE(msg.text.empty());
  EXPECT_EQ(QBR_solutionsummary(task, 4), QBR_RES_ERR_INVALID_STREAM);
}

TEST_F(EvaluationTest, IntegerItemSummaryHasItgAndNoDualLine) {
  QBR_putvartype(task, 0, QBR_VAR_TYPE_INT);
  const double xx[] = {0.75, 0.25};
  ASSERT_EQ(QBR_putxx(task, QBR_SOL_ITG, xx), QBR_RES_OK);
  ASSERT_EQ(QBR_onesolutionsummary(task, QBR_STREAM_MSG, QBR_SOL_ITG), QBR_RES_OK);
  EXPECT_EQ(msg.text.find("Integer solution solution summary\n"), 0u);
  EXPECT_NE(msg.text.find("itg: 2e-01"), std::string::npos);
  EXPECT_EQ(msg.text.find("Dual."), std::string::npos);
}

}  // namespace
