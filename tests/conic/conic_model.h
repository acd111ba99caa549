// A small conic model kept beside the task, so that a test can load it and then check the
// optimizer's answer (solution or certificate) against the data it stated.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "qubor.h"

namespace qubor::testing {

struct ConicModel {
  struct Bound {
    int32_t bk;
    double lo, up;
  };
  struct Entry {
    int32_t i, j;
    double v;
  };
  struct Mat {  // lower-triangular entries of a coefficient matrix of barvar `bar`
    int32_t row;  // -1: objective
    int32_t bar;
    std::vector<int32_t> r, c;
    std::vector<double> v;
  };
  int32_t sense = QBR_OBJECTIVE_SENSE_MINIMIZE;
  std::vector<double> c;
  std::vector<Bound> var, con;
  std::vector<Entry> a;
  std::vector<std::pair<int32_t, std::vector<int32_t>>> cones;  // type, members
  std::vector<double> cone_par;  // per cone (power cones); missing entries are 0
  std::vector<int32_t> bar_dim;
  std::vector<Mat> mats;

  void load(QBRtask_t t) const {
    ASSERT_EQ(QBR_appendvars(t, static_cast<int32_t>(c.size())), QBR_RES_OK);
    ASSERT_EQ(QBR_appendcons(t, static_cast<int32_t>(con.size())), QBR_RES_OK);
    if (!bar_dim.empty()) {
      ASSERT_EQ(QBR_appendbarvars(t, static_cast<int32_t>(bar_dim.size()), bar_dim.data()), QBR_RES_OK);
    }
    for (size_t j = 0; j < c.size(); ++j) {
      ASSERT_EQ(QBR_putcj(t, static_cast<int32_t>(j), c[j]), QBR_RES_OK);
      ASSERT_EQ(QBR_putvarbound(t, static_cast<int32_t>(j), var[j].bk, var[j].lo, var[j].up), QBR_RES_OK);
    }
    for (size_t i = 0; i < con.size(); ++i)
      ASSERT_EQ(QBR_putconbound(t, static_cast<int32_t>(i), con[i].bk, con[i].lo, con[i].up), QBR_RES_OK);
    for (const Entry& e : a) ASSERT_EQ(QBR_putaij(t, e.i, e.j, e.v), QBR_RES_OK);
    for (size_t k = 0; k < cones.size(); ++k) {
      const auto& [type, mem] = cones[k];
      const double par = k < cone_par.size() ? cone_par[k] : 0.0;
      ASSERT_EQ(QBR_appendcone(t, type, par, static_cast<int32_t>(mem.size()), mem.data()), QBR_RES_OK);
    }
    for (const Mat& m : mats) {
      int64_t idx = -1;
      const double w = 1.0;
      ASSERT_EQ(QBR_appendsparsesymmat(t, bar_dim[static_cast<size_t>(m.bar)], static_cast<int64_t>(m.v.size()), m.r.data(),
                                       m.c.data(), m.v.data(), &idx),
                QBR_RES_OK);
      if (m.row < 0) {
        ASSERT_EQ(QBR_putbarcj(t, m.bar, 1, &idx, &w), QBR_RES_OK);
      } else {
        ASSERT_EQ(QBR_putbaraij(t, m.row, m.bar, 1, &idx, &w), QBR_RES_OK);
      }
    }
    ASSERT_EQ(QBR_putobjsense(t, sense), QBR_RES_OK);
  }
};

struct SolutionView {
  int32_t prosta = -1, solsta = -1;
  std::vector<double> xx, xc, y, slx, sux, slc, suc, snx;
  std::vector<std::vector<double>> barx, bars;
  double pobj = 0, dobj = 0;

  void read(QBRtask_t t, const ConicModel& m) {
    const size_t n = m.c.size(), k = m.con.size();
    ASSERT_EQ(QBR_getprosta(t, QBR_SOL_ITR, &prosta), QBR_RES_OK);
    ASSERT_EQ(QBR_getsolsta(t, QBR_SOL_ITR, &solsta), QBR_RES_OK);
    for (auto* v : {&xx, &slx, &sux, &snx}) v->assign(n, 0.0);
    for (auto* v : {&xc, &y, &slc, &suc}) v->assign(k, 0.0);
    QBR_getxx(t, QBR_SOL_ITR, xx.data());
    QBR_getslx(t, QBR_SOL_ITR, slx.data());
    QBR_getsux(t, QBR_SOL_ITR, sux.data());
    QBR_getsnx(t, QBR_SOL_ITR, snx.data());
    if (k > 0) {
      QBR_getxc(t, QBR_SOL_ITR, xc.data());
      QBR_gety(t, QBR_SOL_ITR, y.data());
      QBR_getslc(t, QBR_SOL_ITR, slc.data());
      QBR_getsuc(t, QBR_SOL_ITR, suc.data());
    }
    for (size_t j = 0; j < m.bar_dim.size(); ++j) {
      const size_t d = static_cast<size_t>(m.bar_dim[j]);
      barx.emplace_back(d * (d + 1) / 2);
      bars.emplace_back(d * (d + 1) / 2);
      QBR_getbarxj(t, QBR_SOL_ITR, static_cast<int32_t>(j), barx.back().data());
      QBR_getbarsj(t, QBR_SOL_ITR, static_cast<int32_t>(j), bars.back().data());
    }
    QBR_getprimalobj(t, QBR_SOL_ITR, &pobj);
    QBR_getdualobj(t, QBR_SOL_ITR, &dobj);
  }
};

// Solves the model with the conic optimizer; the response code of QBR_optimize.
inline QBRrescode solve(const ConicModel& m, SolutionView& s, int32_t optimizer = QBR_OPTIMIZER_CONIC) {
  QBRenv_t env = nullptr;
  QBRtask_t t = nullptr;
  EXPECT_EQ(QBR_makeenv(&env, nullptr), QBR_RES_OK);
  EXPECT_EQ(QBR_maketask(env, 0, 0, &t), QBR_RES_OK);
  m.load(t);
  QBR_putintparam(t, QBR_IPAR_OPTIMIZER, optimizer);
  const QBRrescode r = QBR_optimize(t);
  if (r == QBR_RES_OK) s.read(t, m);
  QBR_deletetask(&t);
  QBR_deleteenv(&env);
  return r;
}

}  // namespace qubor::testing
