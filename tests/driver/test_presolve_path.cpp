// The presolve stage of the linear interior-point path: what the user sees of it through the
// interface (log, callbacks, information items) and the statuses when presolve itself decides.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "fixture.h"
#include "qubor.h"

namespace {

struct Callers {
  std::vector<QBRint32t> seen;
};

QBRint32t record(QBRtask_t, void* h, QBRint32t caller, const QBRrealt*, const QBRint32t*,
                 const QBRint64t*) {
  static_cast<Callers*>(h)->seen.push_back(caller);
  return 0;
}

class PresolvePathTest : public TaskTest {
 protected:
  void SetUp() override {
    TaskTest::SetUp();
    QBR_linkfunctotaskstream(task, QBR_STREAM_LOG, &log, Captured::sink);
    QBR_putcallbackfunc(task, record, &callers);
  }
  // n variables with bounds [lo, up] and costs c; no constraints yet.
  void vars(const std::vector<QBRrealt>& c, QBRint32t bk, QBRrealt lo, QBRrealt up) {
    const auto n = static_cast<QBRint32t>(c.size());
    ASSERT_EQ(QBR_appendvars(task, n), QBR_RES_OK);
    for (QBRint32t j = 0; j < n; ++j) {
      QBR_putcj(task, j, c[static_cast<size_t>(j)]);
      QBR_putvarbound(task, j, bk, lo, up);
    }
  }
  void row(const std::vector<QBRint32t>& sub, const std::vector<QBRrealt>& val, QBRint32t bk,
           QBRrealt lo, QBRrealt up) {
    QBRint32t i = 0;
    QBR_getnumcon(task, &i);
    ASSERT_EQ(QBR_appendcons(task, 1), QBR_RES_OK);
    QBR_putarow(task, i, static_cast<QBRint32t>(sub.size()), sub.data(), val.data());
    QBR_putconbound(task, i, bk, lo, up);
  }
  bool saw(QBRint32t caller) const {
    for (QBRint32t c : callers.seen)
      if (c == caller) return true;
    return false;
  }
  Captured log;
  Callers callers;
};

TEST_F(PresolvePathTest, SolvedEntirelyByPresolve) {
  // min x0 + 2 x1 - x2 : x0 >= 1 (singleton row), x0 + x1 = 3 fixes nothing alone,
  // x1 <= 5, 0 <= x2 <= 4.
  vars({1.0, 2.0, -1.0}, QBR_BK_RA, 0.0, 4.0);
  row({0}, {1.0}, QBR_BK_LO, 1.0, QBR_INFINITY);
  row({0, 1}, {1.0, 1.0}, QBR_BK_FX, 3.0, 3.0);
  QBRrescode trm = -1;
  ASSERT_EQ(QBR_optimizetrm(task, &trm), QBR_RES_OK);
  EXPECT_EQ(trm, QBR_RES_OK);
  EXPECT_EQ(solsta(), QBR_SOL_STA_OPTIMAL);
  QBRrealt pobj = 0, dobj = 0;
  QBR_getprimalobj(task, QBR_SOL_ITR, &pobj);
  QBR_getdualobj(task, QBR_SOL_ITR, &dobj);
  // x0 = 3, x1 = 0, x2 = 4: 3 - 4 = -1.
  EXPECT_NEAR(pobj, -1.0, 1e-7);
  EXPECT_NEAR(dobj, -1.0, 1e-7);
  QBRrealt x[3];
  QBR_getxx(task, QBR_SOL_ITR, x);
  EXPECT_NEAR(x[0], 3.0, 1e-7);
  EXPECT_NEAR(x[1], 0.0, 1e-7);
  EXPECT_NEAR(x[2], 4.0, 1e-7);
  EXPECT_NE(log.text.find("Presolve terminated."), std::string::npos) << log.text;
  // The callbacks bracket presolve, inside the optimizer's own pair.
  ASSERT_TRUE(saw(QBR_CALLBACK_BEGIN_PRESOLVE));
  ASSERT_TRUE(saw(QBR_CALLBACK_END_PRESOLVE));
  EXPECT_EQ(callers.seen.front(), QBR_CALLBACK_BEGIN_OPTIMIZER);
  EXPECT_EQ(callers.seen.back(), QBR_CALLBACK_END_OPTIMIZER);
}

TEST_F(PresolvePathTest, SwitchedOff) {
  vars({1.0, 1.0}, QBR_BK_LO, 0.0, QBR_INFINITY);
  row({0, 1}, {1.0, 2.0}, QBR_BK_LO, 2.0, QBR_INFINITY);
  QBR_putintparam(task, QBR_IPAR_PRESOLVE_USE, QBR_PRESOLVE_MODE_OFF);
  ASSERT_EQ(QBR_optimize(task), QBR_RES_OK);
  EXPECT_EQ(solsta(), QBR_SOL_STA_OPTIMAL);
  EXPECT_EQ(log.text.find("Presolve"), std::string::npos) << log.text;
  EXPECT_FALSE(saw(QBR_CALLBACK_BEGIN_PRESOLVE));
  QBRrealt t = -1;
  QBR_getdouinf(task, QBR_DINF_PRESOLVE_TIME, &t);
  EXPECT_EQ(t, 0.0);
}

// When presolve proves infeasibility, the user still gets a certificate, built on the
// original problem.
TEST_F(PresolvePathTest, InfeasibleByPresolveGetsACertificate) {
  // 0 <= x0, x1 <= 1 and x0 + x1 >= 3 (forcing row out of reach), x0 - x1 = 0.
  vars({1.0, 1.0}, QBR_BK_RA, 0.0, 1.0);
  row({0, 1}, {1.0, 1.0}, QBR_BK_LO, 3.0, QBR_INFINITY);
  row({0, 1}, {1.0, -1.0}, QBR_BK_FX, 0.0, 0.0);
  QBRrescode trm = -1;
  ASSERT_EQ(QBR_optimizetrm(task, &trm), QBR_RES_OK);
  EXPECT_EQ(prosta(), QBR_PRO_STA_PRIM_INFEAS);
  EXPECT_EQ(solsta(), QBR_SOL_STA_PRIM_INFEAS_CER);
  QBRrealt y[2];
  QBR_gety(task, QBR_SOL_ITR, y);
  EXPECT_GT(y[0], 0.0);  // the ray prices the violated row
}

TEST_F(PresolvePathTest, UnboundedByPresolveGetsACertificate) {
  // min -x0 + x1 - x2 : x0 - x1 <= 1, x >= 0. The first two columns alone are bounded;
  // x2 has cost -1, appears in no row and has no upper bound.
  vars({-1.0, 1.0, -1.0}, QBR_BK_LO, 0.0, QBR_INFINITY);
  row({0, 1}, {1.0, -1.0}, QBR_BK_UP, -QBR_INFINITY, 1.0);
  QBRrescode trm = -1;
  ASSERT_EQ(QBR_optimizetrm(task, &trm), QBR_RES_OK);
  EXPECT_EQ(prosta(), QBR_PRO_STA_DUAL_INFEAS);
  EXPECT_EQ(solsta(), QBR_SOL_STA_DUAL_INFEAS_CER);
  QBRrealt x[3];
  QBR_getxx(task, QBR_SOL_ITR, x);
  EXPECT_GT(x[2], 0.0);
  EXPECT_LT(-x[0] + x[1] - x[2], 0.0);
}

TEST_F(PresolvePathTest, MaximisationThroughPresolveKeepsTheUsersSigns) {
  // max x0 + x1 : x0 + 2 x1 <= 4, 3 x0 + x1 <= 6, x >= 0; optimum (1.6, 1.2), value 2.8,
  // row duals of magnitude (0.4, 0.2), signed as a run without presolve signs them.
  vars({1.0, 1.0}, QBR_BK_LO, 0.0, QBR_INFINITY);
  row({0, 1}, {1.0, 2.0}, QBR_BK_UP, -QBR_INFINITY, 4.0);
  row({0, 1}, {3.0, 1.0}, QBR_BK_UP, -QBR_INFINITY, 6.0);
  QBR_putobjsense(task, QBR_OBJECTIVE_SENSE_MAXIMIZE);
  ASSERT_EQ(QBR_optimize(task), QBR_RES_OK);
  EXPECT_EQ(solsta(), QBR_SOL_STA_OPTIMAL);
  QBRrealt pobj = 0, y[2];
  QBR_getprimalobj(task, QBR_SOL_ITR, &pobj);
  QBR_gety(task, QBR_SOL_ITR, y);
  EXPECT_NEAR(pobj, 2.8, 1e-7);
  EXPECT_NEAR(std::fabs(y[0]), 0.4, 1e-7);
  EXPECT_NEAR(std::fabs(y[1]), 0.2, 1e-7);
  // The same signs as without presolve.
  QBRrealt y_plain[2];
  QBR_putintparam(task, QBR_IPAR_PRESOLVE_USE, QBR_PRESOLVE_MODE_OFF);
  ASSERT_EQ(QBR_optimize(task), QBR_RES_OK);
  QBR_gety(task, QBR_SOL_ITR, y_plain);
  EXPECT_NEAR(y[0], y_plain[0], 1e-7);
  EXPECT_NEAR(y[1], y_plain[1], 1e-7);
}

}  // namespace
