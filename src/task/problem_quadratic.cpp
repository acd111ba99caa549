// Quadratic terms of the objective (Q^o) and of the constraints (Q^k), kept as the sorted,
// unique lower-triangular entries (i >= j) of symmetric matrices over the variables. An entry
// with i < j is an error, never mirrored. Repeated entries within one call are summed; zero
// results are not stored. Every call is checked completely before anything changes.
// Responses: QBR_RES_ERR_INDEX_IS_TOO_SMALL/LARGE, QOBJ_UPPER_TRIANGLE, INV_QOBJ_SUBI/SUBJ,
// INV_QOBJ_VAL, INV_QCON_SUBK, QCON_SUBI_TOO_SMALL/LARGE, INV_QCON_SUBJ, INV_QCON_VAL,
// QCON_UPPER_TRIANGLE.
#include <algorithm>
#include <cmath>
#include <tuple>

#include "task/problem_ops.h"
#include "task/report.h"

namespace qubor::task {

namespace {

bool before(const QEntry& a, const QEntry& b) { return std::tie(a.i, a.j) < std::tie(b.i, b.j); }

// Sorts, sums repeated entries and drops zeros.
void canonical(QMatrix& q) {
  std::sort(q.begin(), q.end(), before);
  size_t out = 0;
  for (size_t k = 0; k < q.size(); ++k) {
    if (out > 0 && q[out - 1].i == q[k].i && q[out - 1].j == q[k].j)
      q[out - 1].v += q[k].v;
    else
      q[out++] = q[k];
  }
  q.resize(out);
  q.erase(std::remove_if(q.begin(), q.end(), [](const QEntry& e) { return e.v == 0.0; }), q.end());
}

QBRrescode check_qobj(Task& t, int64_t num, const int32_t* subi, const int32_t* subj, const double* val) {
  const int32_t n = t.problem.num_var;
  for (int64_t k = 0; k < num; ++k) {
    if (subi[k] < 0 || subi[k] >= n) return QBR_REPORT(t, QBR_RES_ERR_INV_QOBJ_SUBI, subi[k], k);
    if (subj[k] < 0 || subj[k] >= n) return QBR_REPORT(t, QBR_RES_ERR_INV_QOBJ_SUBJ, subj[k], k);
    if (subi[k] < subj[k]) return QBR_REPORT(t, QBR_RES_ERR_QOBJ_UPPER_TRIANGLE, subi[k], subj[k]);
    if (!std::isfinite(val[k])) return QBR_REPORT(t, QBR_RES_ERR_INV_QOBJ_VAL, val[k], k);
  }
  return QBR_RES_OK;
}

// Checks the constraint entries; subk null means every entry belongs to constraint k.
QBRrescode check_qcon(Task& t, int64_t num, const int32_t* subk, int32_t k, const int32_t* subi, const int32_t* subj,
                      const double* val) {
  const int32_t n = t.problem.num_var, m = t.problem.num_con;
  for (int64_t q = 0; q < num; ++q) {
    if (subk && (subk[q] < 0 || subk[q] >= m)) return QBR_REPORT(t, QBR_RES_ERR_INV_QCON_SUBK, subk[q], q);
    if (subi[q] < 0) return QBR_REPORT(t, QBR_RES_ERR_QCON_SUBI_TOO_SMALL, subi[q], q);
    if (subi[q] >= n) return QBR_REPORT(t, QBR_RES_ERR_QCON_SUBI_TOO_LARGE, subi[q], q);
    if (subj[q] < 0 || subj[q] >= n) return QBR_REPORT(t, QBR_RES_ERR_INV_QCON_SUBJ, subj[q], q);
    if (subi[q] < subj[q])
      return QBR_REPORT(t, QBR_RES_ERR_QCON_UPPER_TRIANGLE, subi[q], subj[q], subk ? subk[q] : k);
    if (!std::isfinite(val[q])) return QBR_REPORT(t, QBR_RES_ERR_INV_QCON_VAL, val[q], q);
  }
  return QBR_RES_OK;
}

QBRrescode check_arrays(Task& t, int64_t num, const int32_t* subi, const int32_t* subj, const double* val,
                        const char* ni, const char* nj, const char* nv) {
  if (num < 0) return QBR_REPORT(t, QBR_RES_ERR_ARG_IS_TOO_SMALL, num, "num");
  QBR_CHECK_RC(check_array(t, subi, num, ni));
  QBR_CHECK_RC(check_array(t, subj, num, nj));
  return check_array(t, val, num, nv);
}

void ensure_qcon(Problem& p) {
  if (p.qcon.size() != static_cast<size_t>(p.num_con)) p.qcon.resize(static_cast<size_t>(p.num_con));
}

}  // namespace

double q_get(const QMatrix& q, int32_t i, int32_t j) {
  const QEntry key{i, j, 0.0};
  const auto it = std::lower_bound(q.begin(), q.end(), key, before);
  return (it != q.end() && it->i == i && it->j == j) ? it->v : 0.0;
}

QBRrescode put_qobj(Task& t, int64_t num, const int32_t* subi, const int32_t* subj, const double* val) {
  QBR_CHECK_RC(check_arrays(t, num, subi, subj, val, "qosubi", "qosubj", "qoval"));
  QBR_CHECK_RC(check_qobj(t, num, subi, subj, val));
  QMatrix q(t.mem);
  q.reserve(static_cast<size_t>(num));
  for (int64_t k = 0; k < num; ++k) q.push_back(QEntry{subi[k], subj[k], val[k]});
  canonical(q);
  t.problem.qobj.swap(q);
  after_change(t);
  return QBR_RES_OK;
}

QBRrescode put_qobj_ij(Task& t, int32_t i, int32_t j, double v) {
  QBR_CHECK_RC(check_item(t, i, t.problem.num_var, "i"));
  QBR_CHECK_RC(check_item(t, j, t.problem.num_var, "j"));
  if (i < j) return QBR_REPORT(t, QBR_RES_ERR_QOBJ_UPPER_TRIANGLE, i, j);
  if (!std::isfinite(v)) return QBR_REPORT(t, QBR_RES_ERR_INV_QOBJ_VAL, v, static_cast<int64_t>(0));
  QMatrix& q = t.problem.qobj;
  const QEntry key{i, j, v};
  const auto it = std::lower_bound(q.begin(), q.end(), key, before);
  const bool found = it != q.end() && it->i == i && it->j == j;
  if (v == 0.0) {
    if (found) q.erase(it);
  } else if (found) {
    it->v = v;
  } else {
    q.insert(it, key);
  }
  after_change(t);
  return QBR_RES_OK;
}

QBRrescode put_qcon_k(Task& t, int32_t k, int64_t num, const int32_t* subi, const int32_t* subj,
                      const double* val) {
  QBR_CHECK_RC(check_arrays(t, num, subi, subj, val, "qcsubi", "qcsubj", "qcval"));
  QBR_CHECK_RC(check_qcon(t, num, nullptr, k, subi, subj, val));
  QMatrix q(t.mem);
  q.reserve(static_cast<size_t>(num));
  for (int64_t e = 0; e < num; ++e) q.push_back(QEntry{subi[e], subj[e], val[e]});
  canonical(q);
  ensure_qcon(t.problem);
  t.problem.qcon[static_cast<size_t>(k)].swap(q);
  after_change(t);
  return QBR_RES_OK;
}

QBRrescode put_qcon(Task& t, int64_t num, const int32_t* subk, const int32_t* subi, const int32_t* subj,
                    const double* val) {
  QBR_CHECK_RC(check_arrays(t, num, subi, subj, val, "qcsubi", "qcsubj", "qcval"));
  QBR_CHECK_RC(check_array(t, subk, num, "qcsubk"));
  QBR_CHECK_RC(check_qcon(t, num, subk, -1, subi, subj, val));
  Problem& p = t.problem;
  ensure_qcon(p);
  for (int64_t q = 0; q < num; ++q) p.qcon[static_cast<size_t>(subk[q])].clear();
  for (int64_t q = 0; q < num; ++q) p.qcon[static_cast<size_t>(subk[q])].push_back(QEntry{subi[q], subj[q], val[q]});
  std::pmr::vector<uint8_t> done(static_cast<size_t>(p.num_con), 0, t.mem);
  for (int64_t q = 0; q < num; ++q) {
    const auto k = static_cast<size_t>(subk[q]);
    if (!done[k]) canonical(p.qcon[k]);
    done[k] = 1;
  }
  after_change(t);
  return QBR_RES_OK;
}

int32_t problem_type(const Problem& p) {
  const bool conic = p.num_cone > 0 || p.num_barvar > 0;
  const bool qo = !p.qobj.empty(), qc = p.has_qcon();
  if (conic) return (qo || qc) ? QBR_PROBTYPE_MIXED : QBR_PROBTYPE_CONIC;
  if (qc) return QBR_PROBTYPE_QCQO;
  return qo ? QBR_PROBTYPE_QO : QBR_PROBTYPE_LO;
}

}  // namespace qubor::task
