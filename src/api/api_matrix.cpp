// Entry points: the constraint matrix A.
#include <vector>

#include "api/frame.h"
#include "task/problem_ops.h"

using qubor::api::Task;
namespace api = qubor::api;
namespace tk = qubor::task;
using api::IndexKind;

namespace {

// 32-bit pointer arrays widened for the task layer.
std::pmr::vector<int64_t> widen(Task& t, const QBRint32t* p, QBRint32t num) {
  std::pmr::vector<int64_t> w(t.mem);
  if (p && num > 0) w.assign(p, p + num);
  return w;
}

QBRrescode put_items32(QBRtask_t task, bool by_col, bool is_list, QBRint32t num, const QBRint32t* sub, QBRint32t first,
                       QBRint32t last, const QBRint32t* ptrb, const QBRint32t* ptre, const QBRint32t* asub,
                       const QBRrealt* aval) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    if (!is_list) QBR_CHECK(tk::check_slice(t, first, last, by_col ? t.problem.num_var : t.problem.num_con));
    if (is_list) QBR_CHECK(tk::check_array(t, sub, num, "sub"));
    const QBRint32t n = is_list ? num : last - first;
    QBR_CHECK(tk::check_array(t, ptrb, n, "ptrb"));
    QBR_CHECK(tk::check_array(t, ptre, n, "ptre"));
    const auto b = widen(t, ptrb, n), e = widen(t, ptre, n);
    return tk::put_a_items(t, by_col, n, is_list ? sub : nullptr, first, b.data(), e.data(), asub, aval);
  });
}

QBRrescode put_items64(QBRtask_t task, bool by_col, bool is_list, QBRint32t num, const QBRint32t* sub, QBRint32t first,
                       QBRint32t last, const QBRint64t* ptrb, const QBRint64t* ptre, const QBRint32t* asub,
                       const QBRrealt* aval) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    if (!is_list) QBR_CHECK(tk::check_slice(t, first, last, by_col ? t.problem.num_var : t.problem.num_con));
    if (is_list) QBR_CHECK(tk::check_array(t, sub, num, "sub"));
    return tk::put_a_items(t, by_col, is_list ? num : last - first, is_list ? sub : nullptr, first, ptrb, ptre, asub,
                           aval);
  });
}

QBRrescode get_slice32(QBRtask_t task, bool by_col, QBRint32t first, QBRint32t last, QBRint32t maxnumnz,
                       QBRint32t* ptrb, QBRint32t* ptre, QBRint32t* sub, QBRrealt* val) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(tk::check_slice(t, first, last, by_col ? t.problem.num_var : t.problem.num_con));
    QBR_CHECK(tk::check_array(t, ptrb, last - first, "ptrb"));
    QBR_CHECK(tk::check_array(t, ptre, last - first, "ptre"));
    std::pmr::vector<int64_t> b(static_cast<size_t>(last - first), t.mem), e(b);
    QBR_CHECK(tk::get_a_slice(t, by_col, first, last, maxnumnz, b.data(), e.data(), sub, val));
    for (size_t k = 0; k < b.size(); ++k) {
      ptrb[k] = static_cast<QBRint32t>(b[k]);
      ptre[k] = static_cast<QBRint32t>(e[k]);
    }
    return QBR_RES_OK;
  });
}

QBRrescode get_one(QBRtask_t task, bool by_col, QBRint32t k, QBRint32t* nz, QBRint32t* sub, QBRrealt* val) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(by_col ? api::check_index(t, IndexKind::kVariable, "j", k)
                     : api::check_index(t, IndexKind::kConstraint, "i", k));
    const int64_t n = tk::a_slice_nnz(t, by_col, k, k + 1);
    if (nz) *nz = static_cast<QBRint32t>(n);
    int64_t b = 0, e = 0;
    return tk::get_a_slice(t, by_col, k, k + 1, n, &b, &e, sub, val);
  });
}

QBRrescode slice_nnz(QBRtask_t task, bool by_col, QBRint32t first, QBRint32t last, QBRint64t* numnz) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(tk::check_slice(t, first, last, by_col ? t.problem.num_var : t.problem.num_con));
    QBR_CHECK(api::check_ptr(t, numnz, "numnz"));
    *numnz = tk::a_slice_nnz(t, by_col, first, last);
    return QBR_RES_OK;
  });
}

}  // namespace

extern "C" {

QBRrescode QBR_putaij(QBRtask_t task, QBRint32t i, QBRint32t j, QBRrealt aij) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(api::check_index(t, IndexKind::kConstraint, "i", i));
    QBR_CHECK(api::check_index(t, IndexKind::kVariable, "j", j));
    return tk::put_aij(t, i, j, aij);
  });
}

QBRrescode QBR_putaijlist64(QBRtask_t task, QBRint64t num, const QBRint32t* subi, const QBRint32t* subj,
                            const QBRrealt* valij) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode { return tk::put_aij_list(t, num, subi, subj, valij); });
}

QBRrescode QBR_putaijlist(QBRtask_t task, QBRint32t num, const QBRint32t* subi, const QBRint32t* subj,
                          const QBRrealt* valij) {
  return QBR_putaijlist64(task, num, subi, subj, valij);
}

QBRrescode QBR_putacol(QBRtask_t task, QBRint32t j, QBRint32t nzj, const QBRint32t* subj, const QBRrealt* valj) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(api::check_index(t, IndexKind::kVariable, "j", j));
    return tk::put_acol(t, j, nzj, subj, valj);
  });
}

QBRrescode QBR_putarow(QBRtask_t task, QBRint32t i, QBRint32t nzi, const QBRint32t* subi, const QBRrealt* vali) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(api::check_index(t, IndexKind::kConstraint, "i", i));
    return tk::put_arow(t, i, nzi, subi, vali);
  });
}

QBRrescode QBR_putacollist(QBRtask_t task, QBRint32t num, const QBRint32t* sub, const QBRint32t* ptrb,
                           const QBRint32t* ptre, const QBRint32t* asub, const QBRrealt* aval) {
  return put_items32(task, true, true, num, sub, 0, 0, ptrb, ptre, asub, aval);
}

QBRrescode QBR_putacollist64(QBRtask_t task, QBRint32t num, const QBRint32t* sub, const QBRint64t* ptrb,
                             const QBRint64t* ptre, const QBRint32t* asub, const QBRrealt* aval) {
  return put_items64(task, true, true, num, sub, 0, 0, ptrb, ptre, asub, aval);
}

QBRrescode QBR_putarowlist(QBRtask_t task, QBRint32t num, const QBRint32t* sub, const QBRint32t* ptrb,
                           const QBRint32t* ptre, const QBRint32t* asub, const QBRrealt* aval) {
  return put_items32(task, false, true, num, sub, 0, 0, ptrb, ptre, asub, aval);
}

QBRrescode QBR_putarowlist64(QBRtask_t task, QBRint32t num, const QBRint32t* sub, const QBRint64t* ptrb,
                             const QBRint64t* ptre, const QBRint32t* asub, const QBRrealt* aval) {
  return put_items64(task, false, true, num, sub, 0, 0, ptrb, ptre, asub, aval);
}

QBRrescode QBR_putacolslice(QBRtask_t task, QBRint32t first, QBRint32t last, const QBRint32t* ptrb,
                            const QBRint32t* ptre, const QBRint32t* asub, const QBRrealt* aval) {
  return put_items32(task, true, false, 0, nullptr, first, last, ptrb, ptre, asub, aval);
}

QBRrescode QBR_putacolslice64(QBRtask_t task, QBRint32t first, QBRint32t last, const QBRint64t* ptrb,
                              const QBRint64t* ptre, const QBRint32t* asub, const QBRrealt* aval) {
  return put_items64(task, true, false, 0, nullptr, first, last, ptrb, ptre, asub, aval);
}

QBRrescode QBR_putarowslice(QBRtask_t task, QBRint32t first, QBRint32t last, const QBRint32t* ptrb,
                            const QBRint32t* ptre, const QBRint32t* asub, const QBRrealt* aval) {
  return put_items32(task, false, false, 0, nullptr, first, last, ptrb, ptre, asub, aval);
}

QBRrescode QBR_putarowslice64(QBRtask_t task, QBRint32t first, QBRint32t last, const QBRint64t* ptrb,
                              const QBRint64t* ptre, const QBRint32t* asub, const QBRrealt* aval) {
  return put_items64(task, false, false, 0, nullptr, first, last, ptrb, ptre, asub, aval);
}

QBRrescode QBR_getaij(QBRtask_t task, QBRint32t i, QBRint32t j, QBRrealt* aij) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(api::check_index(t, IndexKind::kConstraint, "i", i));
    QBR_CHECK(api::check_index(t, IndexKind::kVariable, "j", j));
    QBR_CHECK(api::check_ptr(t, aij, "aij"));
    *aij = t.problem.a.get(i, j);
    return QBR_RES_OK;
  });
}

QBRrescode QBR_getacol(QBRtask_t task, QBRint32t j, QBRint32t* nzj, QBRint32t* subj, QBRrealt* valj) {
  return get_one(task, true, j, nzj, subj, valj);
}

QBRrescode QBR_getarow(QBRtask_t task, QBRint32t i, QBRint32t* nzi, QBRint32t* subi, QBRrealt* vali) {
  return get_one(task, false, i, nzi, subi, vali);
}

QBRrescode QBR_getacolnumnz(QBRtask_t task, QBRint32t j, QBRint32t* nzj) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(api::check_index(t, IndexKind::kVariable, "j", j));
    QBR_CHECK(api::check_ptr(t, nzj, "nzj"));
    *nzj = t.problem.a.col_nnz(j);
    return QBR_RES_OK;
  });
}

QBRrescode QBR_getarownumnz(QBRtask_t task, QBRint32t i, QBRint32t* nzi) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(api::check_index(t, IndexKind::kConstraint, "i", i));
    QBR_CHECK(api::check_ptr(t, nzi, "nzi"));
    *nzi = t.problem.a.row_nnz(i);
    return QBR_RES_OK;
  });
}

QBRrescode QBR_getacolslicenumnz64(QBRtask_t task, QBRint32t first, QBRint32t last, QBRint64t* numnz) {
  return slice_nnz(task, true, first, last, numnz);
}

QBRrescode QBR_getarowslicenumnz64(QBRtask_t task, QBRint32t first, QBRint32t last, QBRint64t* numnz) {
  return slice_nnz(task, false, first, last, numnz);
}

QBRrescode QBR_getacolslice(QBRtask_t task, QBRint32t first, QBRint32t last, QBRint32t maxnumnz, QBRint32t* ptrb,
                            QBRint32t* ptre, QBRint32t* sub, QBRrealt* val) {
  return get_slice32(task, true, first, last, maxnumnz, ptrb, ptre, sub, val);
}

QBRrescode QBR_getarowslice(QBRtask_t task, QBRint32t first, QBRint32t last, QBRint32t maxnumnz, QBRint32t* ptrb,
                            QBRint32t* ptre, QBRint32t* sub, QBRrealt* val) {
  return get_slice32(task, false, first, last, maxnumnz, ptrb, ptre, sub, val);
}

QBRrescode QBR_getacolslice64(QBRtask_t task, QBRint32t first, QBRint32t last, QBRint64t maxnumnz, QBRint64t* ptrb,
                              QBRint64t* ptre, QBRint32t* sub, QBRrealt* val) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    return tk::get_a_slice(t, true, first, last, maxnumnz, ptrb, ptre, sub, val);
  });
}

QBRrescode QBR_getarowslice64(QBRtask_t task, QBRint32t first, QBRint32t last, QBRint64t maxnumnz, QBRint64t* ptrb,
                              QBRint64t* ptre, QBRint32t* sub, QBRrealt* val) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    return tk::get_a_slice(t, false, first, last, maxnumnz, ptrb, ptre, sub, val);
  });
}

QBRrescode QBR_getacolslicetrip(QBRtask_t task, QBRint32t first, QBRint32t last, QBRint64t maxnumnz,
                                QBRint32t* subi, QBRint32t* subj, QBRrealt* val) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    return tk::get_a_slice_trip(t, true, first, last, maxnumnz, subi, subj, val);
  });
}

QBRrescode QBR_getarowslicetrip(QBRtask_t task, QBRint32t first, QBRint32t last, QBRint64t maxnumnz,
                                QBRint32t* subi, QBRint32t* subj, QBRrealt* val) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    return tk::get_a_slice_trip(t, false, first, last, maxnumnz, subi, subj, val);
  });
}

QBRrescode QBR_getapiecenumnz(QBRtask_t task, QBRint32t firsti, QBRint32t lasti, QBRint32t firstj,
                              QBRint32t lastj, QBRint32t* numnz) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    const tk::Problem& p = t.problem;
    if (firsti < 0 || firsti > p.num_con) return QBR_REPORT(t, QBR_RES_ERR_FIRSTI, firsti);
    if (lasti < firsti || lasti > p.num_con) return QBR_REPORT(t, QBR_RES_ERR_LASTI, lasti);
    if (firstj < 0 || firstj > p.num_var) return QBR_REPORT(t, QBR_RES_ERR_FIRSTJ, firstj);
    if (lastj < firstj || lastj > p.num_var) return QBR_REPORT(t, QBR_RES_ERR_LASTJ, lastj);
    QBR_CHECK(api::check_ptr(t, numnz, "numnz"));
    int64_t n = 0;
    for (QBRint32t j = firstj; j < lastj; ++j)
      for (int32_t i : p.a.col_rows(j)) n += (i >= firsti && i < lasti) ? 1 : 0;
    *numnz = static_cast<QBRint32t>(n);
    return QBR_RES_OK;
  });
}

QBRrescode QBR_getnumanz64(QBRtask_t task, QBRint64t* numanz) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(api::check_ptr(t, numanz, "numanz"));
    *numanz = t.problem.a.nnz();
    return QBR_RES_OK;
  });
}

QBRrescode QBR_getnumanz(QBRtask_t task, QBRint32t* numanz) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(api::check_ptr(t, numanz, "numanz"));
    const int64_t n = t.problem.a.nnz();
    if (n > INT32_MAX) return QBR_REPORT(t, QBR_RES_ERR_INT64_TO_INT32_CAST, n);
    *numanz = static_cast<QBRint32t>(n);
    return QBR_RES_OK;
  });
}

QBRrescode QBR_putatruncatetol(QBRtask_t task, QBRrealt tolzero) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode { return tk::put_a_truncate_tol(t, tolzero); });
}

QBRrescode QBR_getatruncatetol(QBRtask_t task, QBRrealt* tolzero) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(api::check_ptr(t, tolzero, "tolzero"));
    *tolzero = t.problem.a.truncate_tol();
    return QBR_RES_OK;
  });
}

}  // extern "C"
