#include "formats/mps/mps_loader.h"

#include <cmath>
#include <vector>

#include "formats/frame/try.h"

namespace qubor::formats {

namespace {

constexpr double kInf = 1.0e30;

// Constraint bounds from the row type, right-hand side and range.
void con_bounds(char type, double rhs, bool ranged, double range, int32_t* bk, double* bl, double* bu) {
  const double r = std::fabs(range);
  double lo = -kInf, up = kInf;
  switch (type) {
    case 'E':
      lo = up = rhs;
      if (ranged && range > 0) up = rhs + r;
      if (ranged && range < 0) lo = rhs - r;
      break;
    case 'L':
      up = rhs;
      if (ranged) lo = rhs - r;
      break;
    case 'G':
      lo = rhs;
      if (ranged) up = rhs + r;
      break;
    default:  // a kept N row is free
      break;
  }
  *bl = lo;
  *bu = up;
  *bk = bound_key(lo, up);
}

QBRrescode load_rows(QBRtask_t h, MpsModel& m) {
  const int32_t n = m.num_con;
  if (n == 0) return QBR_RES_OK;
  QUBOR_TRY(QBR_appendcons(h, n));
  std::vector<int32_t> bk(static_cast<size_t>(n));
  std::vector<double> bl(static_cast<size_t>(n)), bu(static_cast<size_t>(n));
  for (int32_t i = 0; i < n; ++i) {
    const size_t k = static_cast<size_t>(i);
    con_bounds(m.row_type[static_cast<size_t>(m.con_row[k])], m.rhs[k], m.has_range[k] != 0, m.range[k],
               &bk[k], &bl[k], &bu[k]);
  }
  QUBOR_TRY(QBR_putconboundslice(h, 0, n, bk.data(), bl.data(), bu.data()));
  for (int32_t i = 0; i < n; ++i)
    QUBOR_TRY(QBR_putconname(h, i, m.rows.c_str(m.con_row[static_cast<size_t>(i)])));
  return QBR_RES_OK;
}

QBRrescode load_columns(QBRtask_t h, MpsModel& m, int32_t n) {
  if (n == 0) return QBR_RES_OK;
  QUBOR_TRY(QBR_appendvars(h, n));
  std::vector<int32_t> bk(static_cast<size_t>(n));
  for (int32_t j = 0; j < n; ++j) {
    bk[static_cast<size_t>(j)] = bound_key(m.bl[static_cast<size_t>(j)], m.bu[static_cast<size_t>(j)]);
  }
  QUBOR_TRY(QBR_putvarboundslice(h, 0, n, bk.data(), m.bl.data(), m.bu.data()));
  QUBOR_TRY(QBR_putcslice(h, 0, n, m.c.data()));
  QUBOR_TRY(
      QBR_putacolslice64(h, 0, n, m.col_ptr.data(), m.col_ptr.data() + 1, m.a_sub.data(), m.a_val.data()));
  // The matrix is in the task now; its copy here goes.
  std::vector<int32_t>().swap(m.a_sub);
  std::vector<double>().swap(m.a_val);
  std::vector<int32_t> ints, types;
  for (int32_t j = 0; j < n; ++j) {
    if (m.is_int[static_cast<size_t>(j)]) ints.push_back(j);
  }
  types.assign(ints.size(), QBR_VAR_TYPE_INT);
  if (!ints.empty())
    QUBOR_TRY(QBR_putvartypelist(h, static_cast<int32_t>(ints.size()), ints.data(), types.data()));
  for (int32_t j = 0; j < n; ++j) QUBOR_TRY(QBR_putvarname(h, j, m.cols.c_str(j)));
  return QBR_RES_OK;
}

QBRrescode load_quadratic(QBRtask_t h, MpsModel& m) {
  if (!m.qobj.v.empty()) {
    QUBOR_TRY(QBR_putqobj(h, static_cast<int32_t>(m.qobj.v.size()), m.qobj.i.data(), m.qobj.j.data(),
                          m.qobj.v.data()));
  }
  for (size_t k = 0; k < m.qcon.size(); ++k) {
    const QTriplets& q = m.qcon[k];
    if (q.v.empty()) continue;
    QUBOR_TRY(QBR_putqconk(h, m.qcon_index[k], static_cast<int32_t>(q.v.size()), q.i.data(), q.j.data(),
                           q.v.data()));
  }
  return QBR_RES_OK;
}

QBRrescode load_cones(QBRtask_t h, const MpsModel& m) {
  int32_t k = 0;
  for (const MpsCone& c : m.cones) {
    QUBOR_TRY(QBR_appendcone(h, c.type, c.par, static_cast<int32_t>(c.members.size()), c.members.data()));
    if (!c.name.empty()) QUBOR_TRY(QBR_putconename(h, k, c.name.c_str()));
    ++k;
  }
  return QBR_RES_OK;
}

}  // namespace

int32_t bound_key(double bl, double bu) {
  const bool lo = bl > -kInf, up = bu < kInf;
  if (lo && up) return bl == bu ? QBR_BK_FX : QBR_BK_RA;
  if (lo) return QBR_BK_LO;
  if (up) return QBR_BK_UP;
  return QBR_BK_FR;
}

QBRrescode load_mps_model(task::Task& t, MpsModel& m, bool partial) {
  QBRtask_t h = t.handle;
  if (partial) {
    if (!m.rows_done) return QBR_RES_OK;
    const int32_t closed = static_cast<int32_t>(m.col_ptr.size()) - 1;
    if (load_rows(h, m) != QBR_RES_OK) return QBR_RES_OK;
    load_columns(h, m, closed);
    return QBR_RES_OK;
  }
  if (!m.name.empty()) QUBOR_TRY(QBR_puttaskname(h, m.name.c_str()));
  if (m.obj_row >= 0) QUBOR_TRY(QBR_putobjname(h, m.rows.c_str(m.obj_row)));
  if (m.sense >= 0) QUBOR_TRY(QBR_putobjsense(h, m.sense));
  QUBOR_TRY(load_rows(h, m));
  QUBOR_TRY(load_columns(h, m, m.cols.size()));
  if (m.cfix != 0.0) QUBOR_TRY(QBR_putcfix(h, m.cfix));
  QUBOR_TRY(load_quadratic(h, m));
  QUBOR_TRY(load_cones(h, m));
  return QBR_RES_OK;
}

}  // namespace qubor::formats
