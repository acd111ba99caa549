// Checks of infeasibility certificates against the task's data, for any solution item.
#pragma once

#include <algorithm>
#include <cmath>
#include <vector>

#include "qubor.h"

// Largest |A'y + slx - sux| of the dual ray of a solution item, relative to the ray's dual
// objective (returned in *dobj).
inline double certificate_violation(QBRtask_t task, double* dobj, QBRint32t whichsol = QBR_SOL_ITR) {
  QBRint32t m = 0, n = 0;
  QBR_getnumcon(task, &m);
  QBR_getnumvar(task, &n);
  std::vector<double> y(static_cast<size_t>(m)), slx(static_cast<size_t>(n)), sux(static_cast<size_t>(n)),
      slc(static_cast<size_t>(m)), suc(static_cast<size_t>(m));
  QBR_gety(task, whichsol, y.data());
  QBR_getslx(task, whichsol, slx.data());
  QBR_getsux(task, whichsol, sux.data());
  QBR_getslc(task, whichsol, slc.data());
  QBR_getsuc(task, whichsol, suc.data());
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

// Largest violation of the recession cone by the primal ray of a solution item,
// relative to the ray's objective decrease (returned in *cx).
inline double ray_violation(QBRtask_t task, double* cx, QBRint32t whichsol = QBR_SOL_ITR) {
  QBRint32t m = 0, n = 0;
  QBR_getnumcon(task, &m);
  QBR_getnumvar(task, &n);
  std::vector<double> x(static_cast<size_t>(n)), ax(static_cast<size_t>(m), 0.0), c(static_cast<size_t>(n));
  QBR_getxx(task, whichsol, x.data());
  QBR_getc(task, c.data());
  double viol = 0.0, obj = 0.0;
  auto outside = [&viol](QBRint32t bk, double v) {
    if (bk == QBR_BK_LO || bk == QBR_BK_RA || bk == QBR_BK_FX) viol = std::max(viol, -v);
    if (bk == QBR_BK_UP || bk == QBR_BK_RA || bk == QBR_BK_FX) viol = std::max(viol, v);
  };
  for (QBRint32t j = 0; j < n; ++j) {
    const double xj = x[static_cast<size_t>(j)];
    obj += c[static_cast<size_t>(j)] * xj;
    QBRint32t bk, nz = 0;
    QBRrealt bl, bu;
    QBR_getvarbound(task, j, &bk, &bl, &bu);
    outside(bk, xj);
    QBR_getacolnumnz(task, j, &nz);
    std::vector<QBRint32t> sub(static_cast<size_t>(nz));
    std::vector<QBRrealt> val(static_cast<size_t>(nz));
    QBR_getacol(task, j, &nz, sub.data(), val.data());
    for (QBRint32t k = 0; k < nz; ++k) ax[static_cast<size_t>(sub[static_cast<size_t>(k)])] += val[static_cast<size_t>(k)] * xj;
  }
  for (QBRint32t i = 0; i < m; ++i) {
    QBRint32t bk;
    QBRrealt bl, bu;
    QBR_getconbound(task, i, &bk, &bl, &bu);
    outside(bk, ax[static_cast<size_t>(i)]);
  }
  *cx = obj;
  return viol / std::max(-obj, 1e-300);
}

