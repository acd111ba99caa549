// Real models read from files, solved by the interior-point optimizer and compared with
// their reference values; infeasible models end with a certificate that is checked against
// the data.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "qubor.h"

namespace {

struct Model {
  const char* set;
  const char* name;
  double reference;  // NAN for an infeasible model
};

class NetlibTest : public ::testing::TestWithParam<Model> {};

// Largest |A'y + slx - sux| relative to the ray's dual objective.
double certificate_violation(QBRtask_t task, double* dobj) {
  QBRint32t m = 0, n = 0;
  QBR_getnumcon(task, &m);
  QBR_getnumvar(task, &n);
  std::vector<double> y(static_cast<size_t>(m)), slx(static_cast<size_t>(n)), sux(static_cast<size_t>(n)),
      slc(static_cast<size_t>(m)), suc(static_cast<size_t>(m));
  QBR_gety(task, QBR_SOL_ITR, y.data());
  QBR_getslx(task, QBR_SOL_ITR, slx.data());
  QBR_getsux(task, QBR_SOL_ITR, sux.data());
  QBR_getslc(task, QBR_SOL_ITR, slc.data());
  QBR_getsuc(task, QBR_SOL_ITR, suc.data());
  double obj = 0.0;
  for (QBRint32t i = 0; i < m; ++i) {
    QBRint32t bk;
    QBRrealt bl, bu;
    QBR_getconbound(task, i, &bk, &bl, &bu);
    if (bk != QBR_BK_UP && bk != QBR_BK_FR) obj += bl * slc[static_cast<size_t>(i)];
    if (bk != QBR_BK_LO && bk != QBR_BK_FR) obj -= bu * suc[static_cast<size_t>(i)];
  }
  double viol = 0.0;
  for (QBRint32t j = 0; j < n; ++j) {
    QBRint32t bk;
    QBRrealt bl, bu;
    QBR_getvarbound(task, j, &bk, &bl, &bu);
    if (bk != QBR_BK_UP && bk != QBR_BK_FR) obj += bl * slx[static_cast<size_t>(j)];
    if (bk != QBR_BK_LO && bk != QBR_BK_FR) obj -= bu * sux[static_cast<size_t>(j)];
    QBRint32t nz = 0;
    QBR_getacolnumnz(task, j, &nz);
    std::vector<QBRint32t> sub(static_cast<size_t>(nz));
    std::vector<QBRrealt> val(static_cast<size_t>(nz));
    QBR_getacol(task, j, &nz, sub.data(), val.data());
    double r = slx[static_cast<size_t>(j)] - sux[static_cast<size_t>(j)];
    for (QBRint32t k = 0; k < nz; ++k) r += val[static_cast<size_t>(k)] * y[static_cast<size_t>(sub[static_cast<size_t>(k)])];
    viol = std::max(viol, std::fabs(r));
  }
  *dobj = obj;
  return viol / std::max(obj, 1e-300);
}

TEST_P(NetlibTest, SolvesToTheReference) {
  const Model& model = GetParam();
  QBRenv_t env = nullptr;
  QBRtask_t task = nullptr;
  ASSERT_EQ(QBR_makeenv(&env, nullptr), QBR_RES_OK);
  ASSERT_EQ(QBR_maketask(env, 0, 0, &task), QBR_RES_OK);
  const std::string path = std::string(QUBOR_TEST_DATA_DIR) + "/" + model.set + "/" + model.name + ".mps.gz";
  ASSERT_EQ(QBR_readdata(task, path.c_str()), QBR_RES_OK) << path;
  QBR_putintparam(task, QBR_IPAR_NUM_THREADS, 1);
  QBRrescode trm = -1;
  ASSERT_EQ(QBR_optimizetrm(task, &trm), QBR_RES_OK);
  EXPECT_EQ(trm, QBR_RES_OK);
  QBRint32t solsta = -1, prosta = -1;
  QBR_getsolsta(task, QBR_SOL_ITR, &solsta);
  QBR_getprosta(task, QBR_SOL_ITR, &prosta);
  if (std::isnan(model.reference)) {
    EXPECT_EQ(prosta, QBR_PRO_STA_PRIM_INFEAS);
    ASSERT_EQ(solsta, QBR_SOL_STA_PRIM_INFEAS_CER);
    double dobj = 0.0;
    EXPECT_LT(certificate_violation(task, &dobj), 1e-6);
    EXPECT_GT(dobj, 0.0);
  } else {
    ASSERT_EQ(solsta, QBR_SOL_STA_OPTIMAL);
    QBRrealt pobj = 0;
    QBR_getprimalobj(task, QBR_SOL_ITR, &pobj);
    EXPECT_LE(std::fabs(pobj - model.reference), 1e-6 * std::max(1.0, std::fabs(model.reference)))
        << pobj;
  }
  QBR_deletetask(&task);
  QBR_deleteenv(&env);
}

// Chosen for coverage: plain (afiro), ranged rows (boeing1), free variables (vtp.base, pilot4),
// degenerate (scsd1), objective constant in the RHS (e226), infeasible models.
INSTANTIATE_TEST_SUITE_P(
    Models, NetlibTest,
    ::testing::Values(Model{"netlib-lp", "afiro", -4.6475314286E+02},
                      Model{"netlib-lp", "boeing1", -3.3521356751E+02},
                      Model{"netlib-lp", "vtp.base", 1.2983146246E+05},
                      Model{"netlib-lp", "pilot4", -2.5811392589E+03},
                      Model{"netlib-lp", "scsd1", 8.6666666743E+00},
                      Model{"netlib-lp", "e226", -1.1638929066E+01},
                      Model{"netlib-infeasible", "itest2", NAN},
                      Model{"netlib-infeasible", "woodinfe", NAN},
                      Model{"netlib-infeasible", "klein1", NAN}),
    [](const ::testing::TestParamInfo<Model>& info) {
      std::string s = info.param.name;
      for (char& ch : s)
        if (ch == '.') ch = '_';
      return s;
    });

}  // namespace
