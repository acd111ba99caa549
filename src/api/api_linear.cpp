// Entry points: linear problem data (counts, capacities, objective, bounds, variable types).
#include "api/frame.h"
#include "task/problem_ops.h"

using qubor::api::Task;
namespace api = qubor::api;
namespace tk = qubor::task;
using api::IndexKind;

namespace {

QBRrescode copy_slice_check(Task& t, int32_t first, int32_t last, int32_t count) {
  return tk::check_slice(t, first, last, count);
}

template <class T>
QBRrescode put_out(Task& t, T* out, const char* name, T value) {
  QBR_CHECK(api::check_ptr(t, out, name));
  *out = value;
  return QBR_RES_OK;
}

QBRrescode get_bound_slice(Task& t, tk::ItemKind kind, QBRint32t first, QBRint32t last, QBRint32t* bk, QBRrealt* bl,
                           QBRrealt* bu) {
  const tk::BoundArrays& b = kind == tk::ItemKind::kVar ? t.problem.var_bounds : t.problem.con_bounds;
  QBR_CHECK(copy_slice_check(t, first, last, static_cast<int32_t>(b.bk.size())));
  for (int32_t k = first; k < last; ++k) {
    const auto ku = static_cast<size_t>(k);
    if (bk) bk[k - first] = b.bk[ku];
    if (bl) bl[k - first] = b.bl[ku];
    if (bu) bu[k - first] = b.bu[ku];
  }
  return QBR_RES_OK;
}

}  // namespace

extern "C" {

// ---- Counts, capacities, appending and removing ----

QBRrescode QBR_getnumvar(QBRtask_t task, QBRint32t* numvar) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode { return put_out(t, numvar, "numvar", t.problem.num_var); });
}

QBRrescode QBR_getnumcon(QBRtask_t task, QBRint32t* numcon) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode { return put_out(t, numcon, "numcon", t.problem.num_con); });
}

QBRrescode QBR_appendvars(QBRtask_t task, QBRint32t num) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode { return tk::append_vars(t, num); });
}

QBRrescode QBR_appendcons(QBRtask_t task, QBRint32t num) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode { return tk::append_cons(t, num); });
}

QBRrescode QBR_removevars(QBRtask_t task, QBRint32t num, const QBRint32t* subset) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode { return tk::remove_vars(t, num, subset); });
}

QBRrescode QBR_removecons(QBRtask_t task, QBRint32t num, const QBRint32t* subset) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode { return tk::remove_cons(t, num, subset); });
}

QBRrescode QBR_putmaxnumvar(QBRtask_t task, QBRint32t maxnumvar) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode { return tk::put_max_num_var(t, maxnumvar); });
}

QBRrescode QBR_putmaxnumcon(QBRtask_t task, QBRint32t maxnumcon) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode { return tk::put_max_num_con(t, maxnumcon); });
}

QBRrescode QBR_putmaxnumanz(QBRtask_t task, QBRint64t maxnumanz) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode { return tk::put_max_num_anz(t, maxnumanz); });
}

QBRrescode QBR_putmaxnumqnz(QBRtask_t task, QBRint64t maxnumqnz) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode { return tk::put_max_num_qnz(t, maxnumqnz); });
}

QBRrescode QBR_getmaxnumvar(QBRtask_t task, QBRint32t* maxnumvar) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    return put_out(t, maxnumvar, "maxnumvar", t.problem.max_num_var);
  });
}

QBRrescode QBR_getmaxnumcon(QBRtask_t task, QBRint32t* maxnumcon) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    return put_out(t, maxnumcon, "maxnumcon", t.problem.max_num_con);
  });
}

QBRrescode QBR_getmaxnumanz64(QBRtask_t task, QBRint64t* maxnumanz) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    return put_out<QBRint64t>(t, maxnumanz, "maxnumanz", std::max(t.problem.max_num_anz, t.problem.a.nnz_capacity()));
  });
}

QBRrescode QBR_getmaxnumanz(QBRtask_t task, QBRint32t* maxnumanz) {
  QBRint64t n = 0;
  const QBRrescode r = QBR_getmaxnumanz64(task, maxnumanz ? &n : nullptr);
  if (r == QBR_RES_OK) *maxnumanz = static_cast<QBRint32t>(std::min<QBRint64t>(n, INT32_MAX));
  return r;
}

QBRrescode QBR_getmaxnumqnz64(QBRtask_t task, QBRint64t* maxnumqnz) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    return put_out<QBRint64t>(t, maxnumqnz, "maxnumqnz", std::max(t.problem.max_num_qnz, t.problem.num_qnz()));
  });
}

QBRrescode QBR_getmaxnumqnz(QBRtask_t task, QBRint32t* maxnumqnz) {
  QBRint64t n = 0;
  const QBRrescode r = QBR_getmaxnumqnz64(task, maxnumqnz ? &n : nullptr);
  if (r == QBR_RES_OK) *maxnumqnz = static_cast<QBRint32t>(std::min<QBRint64t>(n, INT32_MAX));
  return r;
}

QBRrescode QBR_resizetask(QBRtask_t task, QBRint32t maxnumcon, QBRint32t maxnumvar, QBRint32t maxnumcone,
                          QBRint64t maxnumanz, QBRint64t maxnumqnz) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    return tk::resize_task(t, maxnumcon, maxnumvar, maxnumcone, maxnumanz, maxnumqnz);
  });
}

QBRrescode QBR_commitchanges(QBRtask_t task) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    (void)t.problem.a.csc();  // brings A to its compact form
    return QBR_RES_OK;
  });
}

// ---- Objective ----

QBRrescode QBR_putcj(QBRtask_t task, QBRint32t j, QBRrealt cj) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(api::check_index(t, IndexKind::kVariable, "j", j));
    return tk::put_cj(t, j, cj);
  });
}

QBRrescode QBR_putclist(QBRtask_t task, QBRint32t num, const QBRint32t* subj, const QBRrealt* val) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode { return tk::put_c_list(t, num, subj, val); });
}

QBRrescode QBR_putcslice(QBRtask_t task, QBRint32t first, QBRint32t last, const QBRrealt* slice) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode { return tk::put_c_slice(t, first, last, slice); });
}

QBRrescode QBR_getcj(QBRtask_t task, QBRint32t j, QBRrealt* cj) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(api::check_index(t, IndexKind::kVariable, "j", j));
    return put_out(t, cj, "cj", t.problem.c[static_cast<size_t>(j)]);
  });
}

QBRrescode QBR_getcslice(QBRtask_t task, QBRint32t first, QBRint32t last, QBRrealt* c) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(copy_slice_check(t, first, last, t.problem.num_var));
    QBR_CHECK(tk::check_array(t, c, last - first, "c"));
    std::copy(t.problem.c.begin() + first, t.problem.c.begin() + last, c);
    return QBR_RES_OK;
  });
}

QBRrescode QBR_getc(QBRtask_t task, QBRrealt* c) {
  QBRint32t n = 0;
  QBR_CHECK(QBR_getnumvar(task, &n));
  return QBR_getcslice(task, 0, n, c);
}

QBRrescode QBR_getclist(QBRtask_t task, QBRint32t num, const QBRint32t* subj, QBRrealt* c) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(tk::check_array(t, subj, num, "subj"));
    QBR_CHECK(tk::check_array(t, c, num, "c"));
    for (QBRint32t k = 0; k < num; ++k) {
      QBR_CHECK(api::check_index(t, IndexKind::kVariable, "subj", subj[k]));
      c[k] = t.problem.c[static_cast<size_t>(subj[k])];
    }
    return QBR_RES_OK;
  });
}

QBRrescode QBR_putcfix(QBRtask_t task, QBRrealt cfix) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    t.problem.cfix = cfix;
    tk::after_change(t);
    return QBR_RES_OK;
  });
}

QBRrescode QBR_getcfix(QBRtask_t task, QBRrealt* cfix) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode { return put_out(t, cfix, "cfix", t.problem.cfix); });
}

QBRrescode QBR_putobjsense(QBRtask_t task, QBRint32t sense) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode { return tk::put_obj_sense(t, sense); });
}

QBRrescode QBR_getobjsense(QBRtask_t task, QBRint32t* sense) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode { return put_out(t, sense, "sense", t.problem.obj_sense); });
}

// ---- Bounds ----

QBRrescode QBR_putvarbound(QBRtask_t task, QBRint32t j, QBRint32t bkx, QBRrealt blx, QBRrealt bux) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(api::check_index(t, IndexKind::kVariable, "j", j));
    return tk::put_bound(t, tk::ItemKind::kVar, j, bkx, blx, bux);
  });
}

QBRrescode QBR_putvarboundlist(QBRtask_t task, QBRint32t num, const QBRint32t* sub, const QBRint32t* bkx,
                               const QBRrealt* blx, const QBRrealt* bux) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    return tk::put_bound_list(t, tk::ItemKind::kVar, num, sub, bkx, blx, bux);
  });
}

QBRrescode QBR_putvarboundslice(QBRtask_t task, QBRint32t first, QBRint32t last, const QBRint32t* bkx,
                                const QBRrealt* blx, const QBRrealt* bux) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    return tk::put_bound_slice(t, tk::ItemKind::kVar, first, last, bkx, blx, bux);
  });
}

QBRrescode QBR_putvarboundlistconst(QBRtask_t task, QBRint32t num, const QBRint32t* sub, QBRint32t bkx,
                                    QBRrealt blx, QBRrealt bux) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    return tk::put_bound_list_const(t, tk::ItemKind::kVar, num, sub, bkx, blx, bux);
  });
}

QBRrescode QBR_putvarboundsliceconst(QBRtask_t task, QBRint32t first, QBRint32t last, QBRint32t bkx,
                                     QBRrealt blx, QBRrealt bux) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    return tk::put_bound_slice_const(t, tk::ItemKind::kVar, first, last, bkx, blx, bux);
  });
}

QBRrescode QBR_chgvarbound(QBRtask_t task, QBRint32t j, QBRint32t lower, QBRint32t finite, QBRrealt value) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(api::check_index(t, IndexKind::kVariable, "j", j));
    return tk::chg_bound(t, tk::ItemKind::kVar, j, lower, finite, value);
  });
}

QBRrescode QBR_getvarbound(QBRtask_t task, QBRint32t j, QBRint32t* bkx, QBRrealt* blx, QBRrealt* bux) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(api::check_index(t, IndexKind::kVariable, "j", j));
    return get_bound_slice(t, tk::ItemKind::kVar, j, j + 1, bkx, blx, bux);
  });
}

QBRrescode QBR_getvarboundslice(QBRtask_t task, QBRint32t first, QBRint32t last, QBRint32t* bkx, QBRrealt* blx,
                                QBRrealt* bux) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    return get_bound_slice(t, tk::ItemKind::kVar, first, last, bkx, blx, bux);
  });
}

QBRrescode QBR_putconbound(QBRtask_t task, QBRint32t i, QBRint32t bkc, QBRrealt blc, QBRrealt buc) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(api::check_index(t, IndexKind::kConstraint, "i", i));
    return tk::put_bound(t, tk::ItemKind::kCon, i, bkc, blc, buc);
  });
}

QBRrescode QBR_putconboundlist(QBRtask_t task, QBRint32t num, const QBRint32t* sub, const QBRint32t* bkc,
                               const QBRrealt* blc, const QBRrealt* buc) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    return tk::put_bound_list(t, tk::ItemKind::kCon, num, sub, bkc, blc, buc);
  });
}

QBRrescode QBR_putconboundslice(QBRtask_t task, QBRint32t first, QBRint32t last, const QBRint32t* bkc,
                                const QBRrealt* blc, const QBRrealt* buc) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    return tk::put_bound_slice(t, tk::ItemKind::kCon, first, last, bkc, blc, buc);
  });
}

QBRrescode QBR_putconboundlistconst(QBRtask_t task, QBRint32t num, const QBRint32t* sub, QBRint32t bkc,
                                    QBRrealt blc, QBRrealt buc) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    return tk::put_bound_list_const(t, tk::ItemKind::kCon, num, sub, bkc, blc, buc);
  });
}

QBRrescode QBR_putconboundsliceconst(QBRtask_t task, QBRint32t first, QBRint32t last, QBRint32t bkc,
                                     QBRrealt blc, QBRrealt buc) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    return tk::put_bound_slice_const(t, tk::ItemKind::kCon, first, last, bkc, blc, buc);
  });
}

QBRrescode QBR_chgconbound(QBRtask_t task, QBRint32t i, QBRint32t lower, QBRint32t finite, QBRrealt value) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(api::check_index(t, IndexKind::kConstraint, "i", i));
    return tk::chg_bound(t, tk::ItemKind::kCon, i, lower, finite, value);
  });
}

QBRrescode QBR_getconbound(QBRtask_t task, QBRint32t i, QBRint32t* bkc, QBRrealt* blc, QBRrealt* buc) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(api::check_index(t, IndexKind::kConstraint, "i", i));
    return get_bound_slice(t, tk::ItemKind::kCon, i, i + 1, bkc, blc, buc);
  });
}

QBRrescode QBR_getconboundslice(QBRtask_t task, QBRint32t first, QBRint32t last, QBRint32t* bkc, QBRrealt* blc,
                                QBRrealt* buc) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    return get_bound_slice(t, tk::ItemKind::kCon, first, last, bkc, blc, buc);
  });
}

// ---- Variable types ----

QBRrescode QBR_putvartype(QBRtask_t task, QBRint32t j, QBRint32t vartype) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(api::check_index(t, IndexKind::kVariable, "j", j));
    return tk::put_var_type(t, j, vartype);
  });
}

QBRrescode QBR_putvartypelist(QBRtask_t task, QBRint32t num, const QBRint32t* subj, const QBRint32t* vartype) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode { return tk::put_var_type_list(t, num, subj, vartype); });
}

QBRrescode QBR_getvartype(QBRtask_t task, QBRint32t j, QBRint32t* vartype) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(api::check_index(t, IndexKind::kVariable, "j", j));
    return put_out(t, vartype, "vartype", t.problem.var_type[static_cast<size_t>(j)]);
  });
}

QBRrescode QBR_getvartypelist(QBRtask_t task, QBRint32t num, const QBRint32t* subj, QBRint32t* vartype) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(tk::check_array(t, subj, num, "subj"));
    QBR_CHECK(tk::check_array(t, vartype, num, "vartype"));
    for (QBRint32t k = 0; k < num; ++k) {
      QBR_CHECK(api::check_index(t, IndexKind::kVariable, "subj", subj[k]));
      vartype[k] = t.problem.var_type[static_cast<size_t>(subj[k])];
    }
    return QBR_RES_OK;
  });
}

QBRrescode QBR_getnumintvar(QBRtask_t task, QBRint32t* numintvar) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    return put_out(t, numintvar, "numintvar", t.problem.num_int_var);
  });
}

}  // extern "C"
