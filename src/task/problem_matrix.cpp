// The constraint matrix A through the task: element checks (QBR_RES_ERR_INVALID_AIJ for NaN
// and infinite values; |aij| >= QBR_DPAR_DATA_TOL_AIJ_HUGE fails with QBR_RES_ERR_HUGE_AIJ;
// |aij| >= QBR_DPAR_DATA_TOL_AIJ_LARGE warns with QBR_RES_WRN_LARGE_AIJ: both inclusive),
// column and row puts, the truncation tolerance (QBR_RES_ERR_TOO_SMALL_A_TRUNCATION_VALUE
// below 1.0e-14) and the slice readers (QBR_RES_ERR_TOO_SMALL_MAX_NUM_NZ when the caller's
// arrays are too short).
#include <algorithm>
#include <cmath>

#include "task/problem_ops.h"
#include "task/report.h"

namespace qubor::task {

namespace {

constexpr double kMinTruncateTol = 1.0e-14;

QBRrescode check_aij(Task& t, int32_t i, int32_t j, double v) {
  if (!std::isfinite(v)) return QBR_REPORT(t, QBR_RES_ERR_INVALID_AIJ, v, i, j);
  // Inclusive comparisons: a value exactly at a limit triggers the message.
  if (std::fabs(v) >= t.dpar(QBR_DPAR_DATA_TOL_AIJ_HUGE))
    return QBR_REPORT(t, QBR_RES_ERR_HUGE_AIJ, v, con_label(t, i), i, var_label(t, j), j);
  if (std::fabs(v) >= t.dpar(QBR_DPAR_DATA_TOL_AIJ_LARGE))
    return QBR_REPORT(t, QBR_RES_WRN_LARGE_AIJ, v, con_label(t, i), i, var_label(t, j), j);
  return QBR_RES_OK;
}

// Checks the entries [b, e) of column (by_col) or row `item`.
QBRrescode check_entries(Task& t, bool by_col, int32_t item, int64_t b, int64_t e, const int32_t* asub,
                         const double* aval, const char* argname) {
  const int32_t other = by_col ? t.problem.num_con : t.problem.num_var;
  const double large = t.dpar(QBR_DPAR_DATA_TOL_AIJ_LARGE), huge = t.dpar(QBR_DPAR_DATA_TOL_AIJ_HUGE);
  const double quiet = std::min(large, huge);
  for (int64_t p = b; p < e; ++p) {
    // Fast path: an index in range and a value below both limits (NaN fails the comparison).
    if (asub[p] >= 0 && asub[p] < other && std::fabs(aval[p]) < quiet) continue;
    QBR_CHECK_RC(check_item(t, asub[p], other, argname));
    QBR_CHECK_RC(by_col ? check_aij(t, asub[p], item, aval[p]) : check_aij(t, item, asub[p], aval[p]));
  }
  return QBR_RES_OK;
}

// Applies the first `num` checked items.
void apply_items(Task& t, bool by_col, int32_t num, const int32_t* sub, int32_t first, const int64_t* ptrb,
                 const int64_t* ptre, const int32_t* asub, const double* aval) {
  SparseMatrix& a = t.problem.a;
  auto item = [&](int32_t k) { return sub ? sub[k] : first + k; };
  if (by_col) {
    for (int32_t k = 0; k < num; ++k)
      a.put_col(item(k), {asub + ptrb[k], static_cast<size_t>(ptre[k] - ptrb[k])},
                {aval + ptrb[k], static_cast<size_t>(ptre[k] - ptrb[k])});
    return;
  }
  // A row listed twice takes the entries of its last occurrence.
  std::pmr::vector<int32_t> order(t.mem), rows(t.mem);
  std::pmr::vector<uint8_t> skip(static_cast<size_t>(num), 0, t.mem);
  std::pmr::vector<int64_t> b(t.mem), e(t.mem);
  if (sub && num > 1) {
    order.resize(static_cast<size_t>(num));
    for (int32_t k = 0; k < num; ++k) order[static_cast<size_t>(k)] = k;
    std::stable_sort(order.begin(), order.end(), [sub](int32_t x, int32_t y) { return sub[x] < sub[y]; });
    for (size_t q = 0; q + 1 < order.size(); ++q)
      if (sub[order[q]] == sub[order[q + 1]]) skip[static_cast<size_t>(order[q])] = 1;
  }
  for (int32_t k = 0; k < num; ++k) {
    if (skip[static_cast<size_t>(k)]) continue;
    rows.push_back(item(k));
    b.push_back(ptrb[k]);
    e.push_back(ptre[k]);
  }
  a.put_rows(rows, b.data(), e.data(), asub, aval);
}

}  // namespace

QBRrescode put_aij(Task& t, int32_t i, int32_t j, double aij) {
  QBR_CHECK_RC(check_aij(t, i, j, aij));
  t.problem.a.put(i, j, aij);
  after_change(t);
  return QBR_RES_OK;
}

QBRrescode put_aij_list(Task& t, int64_t num, const int32_t* subi, const int32_t* subj, const double* val) {
  QBR_CHECK_RC(check_array(t, subi, num, "subi"));
  QBR_CHECK_RC(check_array(t, subj, num, "subj"));
  QBR_CHECK_RC(check_array(t, val, num, "valij"));
  QBRrescode r = QBR_RES_OK;
  int64_t done = 0;
  for (; done < num; ++done) {
    r = check_item(t, subi[done], t.problem.num_con, "subi");
    if (r == QBR_RES_OK) r = check_item(t, subj[done], t.problem.num_var, "subj");
    if (r == QBR_RES_OK) r = check_aij(t, subi[done], subj[done], val[done]);
    if (r != QBR_RES_OK) break;
  }
  // The elements before the failing one are put, in one pass.
  t.problem.a.put_triplets(done, subi, subj, val);
  after_change(t);
  return r;
}

QBRrescode put_acol(Task& t, int32_t j, int32_t nz, const int32_t* sub, const double* val) {
  if (nz < 0) return QBR_REPORT(t, QBR_RES_ERR_ARG_IS_TOO_SMALL, static_cast<int64_t>(nz), "nzj");
  QBR_CHECK_RC(check_array(t, sub, nz, "subj"));
  QBR_CHECK_RC(check_array(t, val, nz, "valj"));
  QBR_CHECK_RC(check_entries(t, true, j, 0, nz, sub, val, "subj"));
  t.problem.a.put_col(j, {sub, static_cast<size_t>(nz)}, {val, static_cast<size_t>(nz)});
  after_change(t);
  return QBR_RES_OK;
}

QBRrescode put_arow(Task& t, int32_t i, int32_t nz, const int32_t* sub, const double* val) {
  if (nz < 0) return QBR_REPORT(t, QBR_RES_ERR_ARG_IS_TOO_SMALL, static_cast<int64_t>(nz), "nzi");
  QBR_CHECK_RC(check_array(t, sub, nz, "subi"));
  QBR_CHECK_RC(check_array(t, val, nz, "vali"));
  QBR_CHECK_RC(check_entries(t, false, i, 0, nz, sub, val, "subi"));
  const int64_t b = 0, e = nz;
  t.problem.a.put_rows({&i, 1}, &b, &e, sub, val);
  after_change(t);
  return QBR_RES_OK;
}

QBRrescode put_a_items(Task& t, bool by_col, int32_t num, const int32_t* sub, int32_t first, const int64_t* ptrb,
                       const int64_t* ptre, const int32_t* asub, const double* aval) {
  const int32_t count = by_col ? t.problem.num_var : t.problem.num_con;
  if (num < 0) return QBR_REPORT(t, QBR_RES_ERR_ARG_IS_TOO_SMALL, static_cast<int64_t>(num), "num");
  QBR_CHECK_RC(check_array(t, ptrb, num, "ptrb"));
  QBR_CHECK_RC(check_array(t, ptre, num, "ptre"));
  QBRrescode r = QBR_RES_OK;
  int32_t done = 0;
  int64_t total = 0;
  for (; done < num; ++done) {
    const int32_t item = sub ? sub[done] : first + done;
    if (sub) r = check_item(t, item, count, "sub");
    if (r == QBR_RES_OK && ptre[done] < ptrb[done])
      r = QBR_REPORT(t, QBR_RES_ERR_INV_APTRE, done, ptre[done], done, ptrb[done]);
    if (r == QBR_RES_OK && ptre[done] > ptrb[done] && (!asub || !aval))
      r = QBR_REPORT(t, QBR_RES_ERR_NULL_POINTER, !asub ? "asub" : "aval");
    if (r == QBR_RES_OK) r = check_entries(t, by_col, item, ptrb[done], ptre[done], asub, aval, "asub");
    if (r != QBR_RES_OK) break;
    total += ptre[done] - ptrb[done];
  }
  // One reservation for the whole call keeps the pool at the size of the data.
  t.problem.a.reserve_extra(total);
  apply_items(t, by_col, done, sub, first, ptrb, ptre, asub, aval);
  after_change(t);
  return r;
}

QBRrescode put_a_truncate_tol(Task& t, double tol) {
  if (std::isnan(tol) || tol < kMinTruncateTol)
    return QBR_REPORT(t, QBR_RES_ERR_TOO_SMALL_A_TRUNCATION_VALUE, tol, kMinTruncateTol);
  t.problem.a.set_truncate_tol(tol);
  after_change(t);
  return QBR_RES_OK;
}

int64_t a_slice_nnz(const Task& t, bool by_col, int32_t first, int32_t last) {
  const SparseMatrix& a = t.problem.a;
  if (by_col) {
    int64_t n = 0;
    for (int32_t j = first; j < last; ++j) n += a.col_nnz(j);
    return n;
  }
  const CompressedView& r = a.csr();
  return r.ptr[last] - r.ptr[first];
}

QBRrescode get_a_slice(Task& t, bool by_col, int32_t first, int32_t last, int64_t maxnumnz, int64_t* ptrb,
                       int64_t* ptre, int32_t* sub, double* val) {
  QBR_CHECK_RC(check_slice(t, first, last, by_col ? t.problem.num_var : t.problem.num_con));
  const int64_t need = a_slice_nnz(t, by_col, first, last);
  if (maxnumnz < need) return QBR_REPORT(t, QBR_RES_ERR_TOO_SMALL_MAX_NUM_NZ, maxnumnz, need);
  QBR_CHECK_RC(check_array(t, ptrb, last - first, "ptrb"));
  QBR_CHECK_RC(check_array(t, ptre, last - first, "ptre"));
  QBR_CHECK_RC(check_array(t, sub, need, "sub"));
  QBR_CHECK_RC(check_array(t, val, need, "val"));
  const SparseMatrix& a = t.problem.a;
  int64_t pos = 0;
  for (int32_t k = first; k < last; ++k) {
    std::span<const int32_t> idx;
    std::span<const double> v;
    if (by_col) {
      idx = a.col_rows(k);
      v = a.col_vals(k);
    } else {
      const CompressedView& r = a.csr();
      const auto n = static_cast<size_t>(r.ptr[k + 1] - r.ptr[k]);
      idx = {r.idx + r.ptr[k], n};
      v = {r.val + r.ptr[k], n};
    }
    ptrb[k - first] = pos;
    for (size_t q = 0; q < idx.size(); ++q, ++pos) {
      sub[pos] = idx[q];
      val[pos] = v[q];
    }
    ptre[k - first] = pos;
  }
  return QBR_RES_OK;
}

QBRrescode get_a_slice_trip(Task& t, bool by_col, int32_t first, int32_t last, int64_t maxnumnz, int32_t* subi,
                            int32_t* subj, double* val) {
  QBR_CHECK_RC(check_slice(t, first, last, by_col ? t.problem.num_var : t.problem.num_con));
  const int64_t need = a_slice_nnz(t, by_col, first, last);
  if (maxnumnz < need) return QBR_REPORT(t, QBR_RES_ERR_TOO_SMALL_MAX_NUM_NZ, maxnumnz, need);
  QBR_CHECK_RC(check_array(t, subi, need, "subi"));
  QBR_CHECK_RC(check_array(t, subj, need, "subj"));
  QBR_CHECK_RC(check_array(t, val, need, "val"));
  std::pmr::vector<int64_t> b(static_cast<size_t>(last - first), t.mem), e(static_cast<size_t>(last - first), t.mem);
  std::pmr::vector<int32_t> other(static_cast<size_t>(need), t.mem);
  QBR_CHECK_RC(get_a_slice(t, by_col, first, last, need, b.data(), e.data(), other.data(), val));
  for (int32_t k = first; k < last; ++k)
    for (int64_t p = b[static_cast<size_t>(k - first)]; p < e[static_cast<size_t>(k - first)]; ++p) {
      subi[p] = by_col ? other[static_cast<size_t>(p)] : k;
      subj[p] = by_col ? k : other[static_cast<size_t>(p)];
    }
  return QBR_RES_OK;
}

}  // namespace qubor::task
