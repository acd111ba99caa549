// Linear data: appending and removing variables and constraints, capacities, the objective,
// bounds and variable types. Responses: QBR_RES_ERR_NEGATIVE_APPEND, INDEX_IS_TOO_SMALL/LARGE,
// NON_UNIQUE_ARRAY, REMOVE_CONE_VARIABLE, MAXNUMVAR/CON/CONE/BARVAR/QNZ,
// TOO_SMALL_MAXNUMANZ, NAN_IN_C, HUGE_C, WRN_LARGE_CJ, INVALID_OBJECTIVE_SENSE, INV_BKX/BKC,
// NAN_IN_BLX/BUX/BLC/BUC, INFINITE_BOUND, FIXED_BOUND_VALUES, WRN_LARGE_LO/UP_BOUND,
// INV_VAR_TYPE.
#include <algorithm>
#include <cmath>
#include <cstdio>

#include "task/problem_ops.h"
#include "task/report.h"

namespace qubor::task {

namespace {

constexpr double kInf = QBR_INFINITY;

// Keeps the elements whose new_index is not -1, in order.
template <class V>
void compact(V& v, std::span<const int32_t> new_index) {
  size_t out = 0;
  for (size_t k = 0; k < v.size() && k < new_index.size(); ++k)
    if (new_index[k] >= 0) v[out++] = v[k];
  v.resize(out);
}

// Grows a capacity count by the append rule: at least double, at least the new size.
int32_t grown(int32_t cap, int64_t need) {
  if (need <= cap) return cap;
  return static_cast<int32_t>(std::min<int64_t>(INT32_MAX, std::max<int64_t>(2 * static_cast<int64_t>(cap), need)));
}

// Validates a removal list: indices in range, no repeats. Fills new_index (-1 for removed).
QBRrescode removal_map(Task& t, int32_t num, const int32_t* subset, int32_t count,
                       std::pmr::vector<int32_t>& new_index, int32_t& remaining) {
  if (num < 0) return QBR_REPORT(t, QBR_RES_ERR_ARG_IS_TOO_SMALL, static_cast<int64_t>(num), "num");
  QBR_CHECK_RC(check_array(t, subset, num, "subset"));
  new_index.assign(static_cast<size_t>(count), 0);
  for (int32_t k = 0; k < num; ++k) {
    QBR_CHECK_RC(check_item(t, subset[k], count, "subset"));
    int32_t& slot = new_index[static_cast<size_t>(subset[k])];
    if (slot < 0) return QBR_REPORT(t, QBR_RES_ERR_NON_UNIQUE_ARRAY, "subset", subset[k]);
    slot = -1;
  }
  remaining = 0;
  for (int32_t& s : new_index)
    if (s >= 0) s = remaining++;
  return QBR_RES_OK;
}

void compact_q(QMatrix& q, std::span<const int32_t> var_index) {
  size_t out = 0;
  for (const QEntry& e : q) {
    const int32_t i = var_index[static_cast<size_t>(e.i)], j = var_index[static_cast<size_t>(e.j)];
    if (i < 0 || j < 0) continue;
    q[out++] = QEntry{i, j, e.v};
  }
  q.resize(out);
}

const char* kind_word(ItemKind kind) { return kind == ItemKind::kVar ? "variable" : "constraint"; }

std::string label(const Task& t, ItemKind kind, int32_t k) {
  return kind == ItemKind::kVar ? var_label(t, k) : con_label(t, k);
}

int32_t count_of(const Task& t, ItemKind kind) {
  return kind == ItemKind::kVar ? t.problem.num_var : t.problem.num_con;
}

BoundArrays& bounds_of(Task& t, ItemKind kind) {
  return kind == ItemKind::kVar ? t.problem.var_bounds : t.problem.con_bounds;
}

bool has_lower(int32_t bk) { return bk == QBR_BK_LO || bk == QBR_BK_FX || bk == QBR_BK_RA; }
bool has_upper(int32_t bk) { return bk == QBR_BK_UP || bk == QBR_BK_FX || bk == QBR_BK_RA; }

QBRrescode check_bound(Task& t, ItemKind kind, int32_t k, int32_t bk, double bl, double bu) {
  const bool var = kind == ItemKind::kVar;
  if (bk < QBR_BK_LO || bk > QBR_BK_RA) return QBR_REPORT(t, var ? QBR_RES_ERR_INV_BKX : QBR_RES_ERR_INV_BKC, bk, k);
  const bool lo = has_lower(bk), up = has_upper(bk);
  if (lo && std::isnan(bl)) return QBR_REPORT(t, var ? QBR_RES_ERR_NAN_IN_BLX : QBR_RES_ERR_NAN_IN_BLC, k);
  if (up && std::isnan(bu)) return QBR_REPORT(t, var ? QBR_RES_ERR_NAN_IN_BUX : QBR_RES_ERR_NAN_IN_BUC, k);
  if (lo && std::fabs(bl) >= kInf)
    return QBR_REPORT(t, QBR_RES_ERR_INFINITE_BOUND, "lower", kind_word(kind), label(t, kind, k), k);
  if (up && std::fabs(bu) >= kInf)
    return QBR_REPORT(t, QBR_RES_ERR_INFINITE_BOUND, "upper", kind_word(kind), label(t, kind, k), k);
  if (bk == QBR_BK_FX && bl != bu)
    return QBR_REPORT(t, QBR_RES_ERR_FIXED_BOUND_VALUES, kind_word(kind), label(t, kind, k), k, bl, bu);
  const double wrn = t.dpar(QBR_DPAR_DATA_TOL_BOUND_WRN);
  if (lo && std::fabs(bl) > wrn)
    QBR_CHECK_RC(QBR_REPORT(t, QBR_RES_WRN_LARGE_LO_BOUND, bl, kind_word(kind), label(t, kind, k), k));
  if (up && bk != QBR_BK_FX && std::fabs(bu) > wrn)
    QBR_CHECK_RC(QBR_REPORT(t, QBR_RES_WRN_LARGE_UP_BOUND, bu, kind_word(kind), label(t, kind, k), k));
  return QBR_RES_OK;
}

void store_bound(Task& t, ItemKind kind, int32_t k, int32_t bk, double bl, double bu) {
  BoundArrays& b = bounds_of(t, kind);
  const auto ku = static_cast<size_t>(k);
  b.bk[ku] = bk;
  b.bl[ku] = has_lower(bk) ? bl : -kInf;
  b.bu[ku] = bk == QBR_BK_FX ? bl : (has_upper(bk) ? bu : kInf);
}

QBRrescode checked_bound(Task& t, ItemKind kind, int32_t k, int32_t bk, double bl, double bu) {
  QBR_CHECK_RC(check_bound(t, kind, k, bk, bl, bu));
  store_bound(t, kind, k, bk, bl, bu);
  return QBR_RES_OK;
}

}  // namespace

// ---- Shared checks ----

QBRrescode check_item(Task& t, int64_t index, int64_t count, const char* argname) {
  if (index < 0) return QBR_REPORT(t, QBR_RES_ERR_INDEX_IS_TOO_SMALL, index, argname);
  if (index >= count) return QBR_REPORT(t, QBR_RES_ERR_INDEX_IS_TOO_LARGE, index, argname);
  return QBR_RES_OK;
}

QBRrescode check_slice(Task& t, int64_t first, int64_t last, int64_t count) {
  if (first < 0 || first > count) return QBR_REPORT(t, QBR_RES_ERR_FIRST, static_cast<int32_t>(first));
  if (last < first || last > count) return QBR_REPORT(t, QBR_RES_ERR_LAST, static_cast<int32_t>(last));
  return QBR_RES_OK;
}

QBRrescode check_array(Task& t, const void* p, int64_t num, const char* argname) {
  return (num <= 0 || p) ? QBR_RES_OK : QBR_REPORT(t, QBR_RES_ERR_NULL_POINTER, argname);
}

namespace {

// The item's name, or the generic name <prefix><index> when it has none.
std::string item_label(const NameTable& n, int32_t k, char prefix) {
  if (k >= 0 && k < n.size() && !n.get(k).empty()) return std::string(n.get(k));
  char buf[16];
  std::snprintf(buf, sizeof buf, "%c%d", prefix, k);
  return buf;
}

}  // namespace

std::string var_label(const Task& t, int32_t j) { return item_label(t.problem.var_names, j, 'x'); }

std::string con_label(const Task& t, int32_t i) { return item_label(t.problem.con_names, i, 'c'); }

void after_change(Task& t) { t.solutions.match(t.problem); }

void Problem::reserve(int32_t maxnumcon, int32_t maxnumvar) {
  max_num_con = std::max(max_num_con, maxnumcon);
  max_num_var = std::max(max_num_var, maxnumvar);
  const auto n = static_cast<size_t>(max_num_var), m = static_cast<size_t>(max_num_con);
  c.reserve(n);
  var_bounds.bk.reserve(n);
  var_bounds.bl.reserve(n);
  var_bounds.bu.reserve(n);
  var_type.reserve(n);
  con_bounds.bk.reserve(m);
  con_bounds.bl.reserve(m);
  con_bounds.bu.reserve(m);
  a.reserve_cols(max_num_var);
}

int64_t Problem::num_qnz() const {
  int64_t n = static_cast<int64_t>(qobj.size());
  for (const QMatrix& q : qcon) n += static_cast<int64_t>(q.size());
  return n;
}

bool Problem::has_qcon() const {
  return std::any_of(qcon.begin(), qcon.end(), [](const QMatrix& q) { return !q.empty(); });
}

// ---- Appending and removing ----

QBRrescode append_vars(Task& t, int32_t num) {
  if (num < 0) return QBR_REPORT(t, QBR_RES_ERR_NEGATIVE_APPEND);
  if (num == 0) return QBR_RES_OK;
  Problem& p = t.problem;
  const int64_t n = static_cast<int64_t>(p.num_var) + num;
  if (n > INT32_MAX) return QBR_REPORT(t, QBR_RES_ERR_NUMVARLIM, INT32_MAX, INT32_MAX);
  if (n > p.max_num_var) p.reserve(p.max_num_con, grown(p.max_num_var, n));
  const auto size = static_cast<size_t>(n);
  p.c.resize(size, 0.0);
  p.var_bounds.bk.resize(size, QBR_BK_FX);
  p.var_bounds.bl.resize(size, 0.0);
  p.var_bounds.bu.resize(size, 0.0);
  p.var_type.resize(size, QBR_VAR_TYPE_CONT);
  p.a.append_cols(num);
  p.var_names.append(num);
  if (!p.cones.cone_of.empty() || p.num_cone > 0) p.cones.cone_of.resize(size, -1);
  p.num_var = static_cast<int32_t>(n);
  after_change(t);
  return QBR_RES_OK;
}

QBRrescode append_cons(Task& t, int32_t num) {
  if (num < 0) return QBR_REPORT(t, QBR_RES_ERR_NEGATIVE_APPEND);
  if (num == 0) return QBR_RES_OK;
  Problem& p = t.problem;
  const int64_t m = static_cast<int64_t>(p.num_con) + num;
  if (m > INT32_MAX) return QBR_REPORT(t, QBR_RES_ERR_NUMCONLIM, INT32_MAX, INT32_MAX);
  if (m > p.max_num_con) p.reserve(grown(p.max_num_con, m), p.max_num_var);
  const auto size = static_cast<size_t>(m);
  p.con_bounds.bk.resize(size, QBR_BK_FR);
  p.con_bounds.bl.resize(size, -kInf);
  p.con_bounds.bu.resize(size, kInf);
  p.a.append_rows(num);
  p.con_names.append(num);
  if (!p.qcon.empty()) p.qcon.resize(size);
  p.num_con = static_cast<int32_t>(m);
  after_change(t);
  return QBR_RES_OK;
}

QBRrescode remove_vars(Task& t, int32_t num, const int32_t* subset) {
  Problem& p = t.problem;
  std::pmr::vector<int32_t> idx(t.mem);
  int32_t remaining = 0;
  QBR_CHECK_RC(removal_map(t, num, subset, p.num_var, idx, remaining));
  if (remaining == p.num_var) return QBR_RES_OK;
  if (!p.cones.cone_of.empty())
    for (int32_t j = 0; j < p.num_var; ++j) {
      const int32_t k = p.cones.cone_of[static_cast<size_t>(j)];
      if (idx[static_cast<size_t>(j)] < 0 && k >= 0)
        return QBR_REPORT(t, QBR_RES_ERR_REMOVE_CONE_VARIABLE, var_label(t, j), j, k);
    }
  t.solutions.remove_vars(idx);
  compact(p.c, idx);
  compact(p.var_bounds.bk, idx);
  compact(p.var_bounds.bl, idx);
  compact(p.var_bounds.bu, idx);
  compact(p.var_type, idx);
  p.num_int_var = static_cast<int32_t>(std::count(p.var_type.begin(), p.var_type.end(), QBR_VAR_TYPE_INT));
  p.a.remove_cols(idx, remaining);
  p.var_names.remove(idx, remaining);
  if (!p.cones.cone_of.empty()) {
    compact(p.cones.cone_of, idx);
    for (const Cone& c : p.cones.cones)
      for (int64_t q = c.start; q < c.start + c.n; ++q) {
        int32_t& m = p.cones.members[static_cast<size_t>(q)];
        m = idx[static_cast<size_t>(m)];
      }
  }
  compact_q(p.qobj, idx);
  for (QMatrix& q : p.qcon) compact_q(q, idx);
  p.num_var = remaining;
  after_change(t);
  return QBR_RES_OK;
}

QBRrescode remove_cons(Task& t, int32_t num, const int32_t* subset) {
  Problem& p = t.problem;
  std::pmr::vector<int32_t> idx(t.mem);
  int32_t remaining = 0;
  QBR_CHECK_RC(removal_map(t, num, subset, p.num_con, idx, remaining));
  if (remaining == p.num_con) return QBR_RES_OK;
  t.solutions.remove_cons(idx);
  compact(p.con_bounds.bk, idx);
  compact(p.con_bounds.bl, idx);
  compact(p.con_bounds.bu, idx);
  p.a.remove_rows(idx, remaining);
  p.con_names.remove(idx, remaining);
  if (!p.qcon.empty()) {
    size_t out = 0;
    for (size_t i = 0; i < p.qcon.size(); ++i)
      if (idx[i] >= 0) p.qcon[out++].swap(p.qcon[i]);
    p.qcon.resize(out);
  }
  size_t out = 0;
  for (const BarTerm& b : p.bara.terms) {
    const int32_t i = idx[static_cast<size_t>(b.i)];
    if (i < 0) continue;
    p.bara.terms[out] = b;
    p.bara.terms[out++].i = i;
  }
  p.bara.terms.resize(out);
  p.num_con = remaining;
  after_change(t);
  return QBR_RES_OK;
}

// ---- Capacities ----

QBRrescode put_max_num_var(Task& t, int32_t n) {
  if (n < 0 || n < t.problem.num_var) return QBR_REPORT(t, QBR_RES_ERR_MAXNUMVAR, n, t.problem.num_var);
  t.problem.max_num_var = n;
  t.problem.reserve(t.problem.max_num_con, n);
  return QBR_RES_OK;
}

QBRrescode put_max_num_con(Task& t, int32_t n) {
  if (n < 0 || n < t.problem.num_con) return QBR_REPORT(t, QBR_RES_ERR_MAXNUMCON, n, t.problem.num_con);
  t.problem.max_num_con = n;
  t.problem.reserve(n, t.problem.max_num_var);
  return QBR_RES_OK;
}

QBRrescode put_max_num_anz(Task& t, int64_t n) {
  const int64_t have = t.problem.a.nnz();
  if (n < 0 || n < have) return QBR_REPORT(t, QBR_RES_ERR_TOO_SMALL_MAXNUMANZ, n, have);
  t.problem.max_num_anz = n;
  t.problem.a.reserve_nnz(n);
  return QBR_RES_OK;
}

QBRrescode put_max_num_qnz(Task& t, int64_t n) {
  const int64_t have = t.problem.num_qnz();
  if (n < 0 || n < have) return QBR_REPORT(t, QBR_RES_ERR_MAXNUMQNZ, n, have);
  t.problem.max_num_qnz = n;
  return QBR_RES_OK;
}

QBRrescode put_max_num_cone(Task& t, int32_t n) {
  if (n < 0 || n < t.problem.num_cone) return QBR_REPORT(t, QBR_RES_ERR_MAXNUMCONE, n, t.problem.num_cone);
  t.problem.max_num_cone = n;
  t.problem.cones.cones.reserve(static_cast<size_t>(n));
  return QBR_RES_OK;
}

QBRrescode put_max_num_barvar(Task& t, int32_t n) {
  if (n < 0 || n < t.problem.num_barvar) return QBR_REPORT(t, QBR_RES_ERR_MAXNUMBARVAR, n, t.problem.num_barvar);
  t.problem.max_num_barvar = n;
  t.problem.barvar_dim.reserve(static_cast<size_t>(n));
  return QBR_RES_OK;
}

QBRrescode resize_task(Task& t, int32_t maxnumcon, int32_t maxnumvar, int32_t maxnumcone, int64_t maxnumanz,
                       int64_t maxnumqnz) {
  QBR_CHECK_RC(put_max_num_con(t, maxnumcon));
  QBR_CHECK_RC(put_max_num_var(t, maxnumvar));
  QBR_CHECK_RC(put_max_num_cone(t, maxnumcone));
  QBR_CHECK_RC(put_max_num_anz(t, maxnumanz));
  return put_max_num_qnz(t, maxnumqnz);
}

// ---- Objective ----

QBRrescode put_cj(Task& t, int32_t j, double cj) {
  if (std::isnan(cj)) return QBR_REPORT(t, QBR_RES_ERR_NAN_IN_C, j);
  // Strict comparisons: a value exactly at a limit passes.
  if (std::fabs(cj) > t.dpar(QBR_DPAR_DATA_TOL_C_HUGE)) return QBR_REPORT(t, QBR_RES_ERR_HUGE_C, cj, var_label(t, j), j);
  if (std::fabs(cj) > t.dpar(QBR_DPAR_DATA_TOL_CJ_LARGE))
    QBR_CHECK_RC(QBR_REPORT(t, QBR_RES_WRN_LARGE_CJ, cj, var_label(t, j), j));
  t.problem.c[static_cast<size_t>(j)] = cj;
  after_change(t);
  return QBR_RES_OK;
}

QBRrescode put_c_list(Task& t, int32_t num, const int32_t* subj, const double* val) {
  QBR_CHECK_RC(check_array(t, subj, num, "subj"));
  QBR_CHECK_RC(check_array(t, val, num, "val"));
  for (int32_t k = 0; k < num; ++k) {
    QBR_CHECK_RC(check_item(t, subj[k], t.problem.num_var, "subj"));
    QBR_CHECK_RC(put_cj(t, subj[k], val[k]));
  }
  return QBR_RES_OK;
}

QBRrescode put_c_slice(Task& t, int32_t first, int32_t last, const double* val) {
  QBR_CHECK_RC(check_slice(t, first, last, t.problem.num_var));
  QBR_CHECK_RC(check_array(t, val, last - first, "slice"));
  for (int32_t j = first; j < last; ++j) QBR_CHECK_RC(put_cj(t, j, val[j - first]));
  return QBR_RES_OK;
}

QBRrescode put_obj_sense(Task& t, int32_t sense) {
  if (sense != QBR_OBJECTIVE_SENSE_MINIMIZE && sense != QBR_OBJECTIVE_SENSE_MAXIMIZE)
    return QBR_REPORT(t, QBR_RES_ERR_INVALID_OBJECTIVE_SENSE, sense);
  t.problem.obj_sense = sense;
  after_change(t);
  return QBR_RES_OK;
}

// ---- Bounds ----

QBRrescode put_bound(Task& t, ItemKind kind, int32_t k, int32_t bk, double bl, double bu) {
  QBR_CHECK_RC(checked_bound(t, kind, k, bk, bl, bu));
  after_change(t);
  return QBR_RES_OK;
}

QBRrescode put_bound_list(Task& t, ItemKind kind, int32_t num, const int32_t* sub, const int32_t* bk,
                          const double* bl, const double* bu) {
  QBR_CHECK_RC(check_array(t, sub, num, "sub"));
  QBR_CHECK_RC(check_array(t, bk, num, kind == ItemKind::kVar ? "bkx" : "bkc"));
  QBR_CHECK_RC(check_array(t, bl, num, kind == ItemKind::kVar ? "blx" : "blc"));
  QBR_CHECK_RC(check_array(t, bu, num, kind == ItemKind::kVar ? "bux" : "buc"));
  QBRrescode r = QBR_RES_OK;
  for (int32_t k = 0; k < num && r == QBR_RES_OK; ++k) {
    r = check_item(t, sub[k], count_of(t, kind), "sub");
    if (r == QBR_RES_OK) r = checked_bound(t, kind, sub[k], bk[k], bl[k], bu[k]);
  }
  after_change(t);
  return r;
}

QBRrescode put_bound_slice(Task& t, ItemKind kind, int32_t first, int32_t last, const int32_t* bk,
                           const double* bl, const double* bu) {
  QBR_CHECK_RC(check_slice(t, first, last, count_of(t, kind)));
  const int32_t num = last - first;
  QBR_CHECK_RC(check_array(t, bk, num, kind == ItemKind::kVar ? "bkx" : "bkc"));
  QBR_CHECK_RC(check_array(t, bl, num, kind == ItemKind::kVar ? "blx" : "blc"));
  QBR_CHECK_RC(check_array(t, bu, num, kind == ItemKind::kVar ? "bux" : "buc"));
  QBRrescode r = QBR_RES_OK;
  for (int32_t k = first; k < last && r == QBR_RES_OK; ++k)
    r = checked_bound(t, kind, k, bk[k - first], bl[k - first], bu[k - first]);
  after_change(t);
  return r;
}

QBRrescode put_bound_list_const(Task& t, ItemKind kind, int32_t num, const int32_t* sub, int32_t bk, double bl,
                                double bu) {
  QBR_CHECK_RC(check_array(t, sub, num, "sub"));
  QBRrescode r = QBR_RES_OK;
  for (int32_t k = 0; k < num && r == QBR_RES_OK; ++k) {
    r = check_item(t, sub[k], count_of(t, kind), "sub");
    if (r == QBR_RES_OK) r = checked_bound(t, kind, sub[k], bk, bl, bu);
  }
  after_change(t);
  return r;
}

QBRrescode put_bound_slice_const(Task& t, ItemKind kind, int32_t first, int32_t last, int32_t bk, double bl,
                                 double bu) {
  QBR_CHECK_RC(check_slice(t, first, last, count_of(t, kind)));
  QBRrescode r = QBR_RES_OK;
  for (int32_t k = first; k < last && r == QBR_RES_OK; ++k) r = checked_bound(t, kind, k, bk, bl, bu);
  after_change(t);
  return r;
}

QBRrescode chg_bound(Task& t, ItemKind kind, int32_t k, int32_t lower, int32_t finite, double value) {
  const BoundArrays& b = bounds_of(t, kind);
  const auto ku = static_cast<size_t>(k);
  const int32_t bk = b.bk[ku];
  double bl = b.bl[ku], bu = b.bu[ku];
  int32_t nbk = bk;
  if (lower) {
    const bool up = has_upper(bk);
    if (finite) {
      bl = value;
      nbk = up ? (value == bu ? QBR_BK_FX : QBR_BK_RA) : QBR_BK_LO;
    } else {
      nbk = up ? QBR_BK_UP : QBR_BK_FR;
    }
  } else {
    const bool lo = has_lower(bk);
    if (finite) {
      bu = value;
      nbk = lo ? (value == bl ? QBR_BK_FX : QBR_BK_RA) : QBR_BK_UP;
    } else {
      nbk = lo ? QBR_BK_LO : QBR_BK_FR;
    }
  }
  return put_bound(t, kind, k, nbk, bl, bu);
}

// ---- Variable types ----

QBRrescode put_var_type(Task& t, int32_t j, int32_t type) {
  if (type != QBR_VAR_TYPE_CONT && type != QBR_VAR_TYPE_INT) return QBR_REPORT(t, QBR_RES_ERR_INV_VAR_TYPE, type, j);
  int32_t& cur = t.problem.var_type[static_cast<size_t>(j)];
  if (cur != type) {
    t.problem.num_int_var += type == QBR_VAR_TYPE_INT ? 1 : -1;
    cur = type;
  }
  after_change(t);
  return QBR_RES_OK;
}

QBRrescode put_var_type_list(Task& t, int32_t num, const int32_t* subj, const int32_t* type) {
  QBR_CHECK_RC(check_array(t, subj, num, "subj"));
  QBR_CHECK_RC(check_array(t, type, num, "vartype"));
  for (int32_t k = 0; k < num; ++k) {
    QBR_CHECK_RC(check_item(t, subj[k], t.problem.num_var, "subj"));
    QBR_CHECK_RC(put_var_type(t, subj[k], type[k]));
  }
  return QBR_RES_OK;
}

}  // namespace qubor::task
