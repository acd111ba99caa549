// Entry points: objective values, violations, norms, solution information, summaries, the
// matrix-variable parts of the solutions and the status texts.
#include <algorithm>
#include <cstring>

#include "api/frame.h"
#include "platform/text.h"
#include "task/problem_ops.h"
#include "task/solution_eval.h"
#include "task/solution_summary.h"
#include "task/tables.h"

using qubor::api::Task;
namespace api = qubor::api;
namespace tk = qubor::task;
using tk::Solution;
using tk::ViolKind;

namespace {

QBRrescode check_defined(Task& t, QBRint32t which) {
  if (which < 0 || which > QBR_SOL_ITG) return QBR_REPORT(t, QBR_RES_ERR_INVALID_WHICHSOL);
  return t.solutions[which].defined ? QBR_RES_OK : QBR_REPORT(t, QBR_RES_ERR_UNDEF_SOLUTION);
}

QBRrescode check_which(Task& t, QBRint32t which) {
  return (which < 0 || which > QBR_SOL_ITG) ? QBR_REPORT(t, QBR_RES_ERR_INVALID_WHICHSOL) : QBR_RES_OK;
}

int32_t count_of(const Task& t, ViolKind kind) {
  switch (kind) {
    case ViolKind::kCon: return t.problem.num_con;
    case ViolKind::kVar: return t.problem.num_var;
    case ViolKind::kBarvar: return t.problem.num_barvar;
    case ViolKind::kCone: return t.problem.num_cone;
  }
  return 0;
}

QBRrescode viol(QBRtask_t task, QBRint32t which, ViolKind kind, bool primal, QBRint32t num, const QBRint32t* sub,
                QBRrealt* out) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(check_defined(t, which));
    if (!primal && which == QBR_SOL_ITG) return QBR_REPORT(t, QBR_RES_ERR_NO_DUAL_FOR_ITG_SOL);
    QBR_CHECK(tk::check_array(t, sub, num, "sub"));
    QBR_CHECK(tk::check_array(t, out, num, "viol"));
    for (QBRint32t k = 0; k < num; ++k) QBR_CHECK(tk::check_item(t, sub[k], count_of(t, kind), "sub"));
    const std::span<const int32_t> s(sub, static_cast<size_t>(std::max(num, 0)));
    if (primal)
      tk::primal_viol(t, t.solutions[which], kind, s, out);
    else
      tk::dual_viol(t, t.solutions[which], kind, s, out);
    return QBR_RES_OK;
  });
}

// One matrix variable (size < 0: first is its index) or the slice [first, last).
QBRrescode bar_part(QBRtask_t task, QBRint32t which, bool barx, QBRint32t first, QBRint32t last, int64_t size,
                    QBRrealt* out, const char* argname) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(check_defined(t, which));
    if (size < 0) {
      QBR_CHECK(tk::check_item(t, first, t.problem.num_barvar, "j"));
      last = first + 1;
    } else {
      QBR_CHECK(tk::check_slice(t, first, last, t.problem.num_barvar));
    }
    const int64_t b = tk::barvar_offset(t.problem, first), e = tk::barvar_offset(t.problem, last);
    if (size >= 0 && size < e - b)
      return QBR_REPORT(t, QBR_RES_ERR_SLICE_SIZE, static_cast<int32_t>(size), static_cast<int32_t>(e - b));
    if (!barx && which == QBR_SOL_ITG) return QBR_RES_OK;
    QBR_CHECK(tk::check_array(t, out, e - b, argname));
    const Solution& s = t.solutions[which];
    const auto& v = barx ? s.barx : s.bars;
    std::copy(v.begin() + b, v.begin() + e, out);
    return QBR_RES_OK;
  });
}

QBRrescode put_bar_part(QBRtask_t task, QBRint32t which, bool barx, QBRint32t j, const QBRrealt* in) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(check_which(t, which));
    QBR_CHECK(tk::check_item(t, j, t.problem.num_barvar, "j"));
    QBR_CHECK(api::check_ptr(t, in, barx ? "barxj" : "barsj"));
    Solution& s = t.solutions.create(t.problem, which);
    s.solsta = QBR_SOL_STA_UNKNOWN;
    if (!barx && which == QBR_SOL_ITG) return QBR_RES_OK;
    auto& v = barx ? s.barx : s.bars;
    std::copy(in, in + t.problem.barvar_len(j), v.begin() + tk::barvar_offset(t.problem, j));
    return QBR_RES_OK;
  });
}

QBRrescode copy_text(Task& t, char* str, const std::string& text) {
  QBR_CHECK(api::check_ptr(t, str, "str"));
  qubor::platform::copy_bounded(str, qubor::platform::kMaxStr, text.c_str());
  return QBR_RES_OK;
}

QBRrescode check_stream(Task& t, QBRint32t stream) {
  return (stream < QBR_STREAM_LOG || stream > QBR_STREAM_WRN) ? QBR_REPORT(t, QBR_RES_ERR_INVALID_STREAM, stream)
                                                              : QBR_RES_OK;
}

}  // namespace

extern "C" {

QBRrescode QBR_getprimalobj(QBRtask_t task, QBRint32t whichsol, QBRrealt* primalobj) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(check_defined(t, whichsol));
    QBR_CHECK(api::check_ptr(t, primalobj, "primalobj"));
    *primalobj = tk::primal_obj(t, t.solutions[whichsol]);
    return QBR_RES_OK;
  });
}

QBRrescode QBR_getdualobj(QBRtask_t task, QBRint32t whichsol, QBRrealt* dualobj) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(check_defined(t, whichsol));
    if (whichsol == QBR_SOL_ITG) return QBR_REPORT(t, QBR_RES_ERR_NO_DUAL_FOR_ITG_SOL);
    QBR_CHECK(api::check_ptr(t, dualobj, "dualobj"));
    *dualobj = tk::dual_obj(t, t.solutions[whichsol]);
    return QBR_RES_OK;
  });
}

QBRrescode QBR_getpviolcon(QBRtask_t task, QBRint32t whichsol, QBRint32t num, const QBRint32t* sub, QBRrealt* v) {
  return viol(task, whichsol, ViolKind::kCon, true, num, sub, v);
}
QBRrescode QBR_getpviolvar(QBRtask_t task, QBRint32t whichsol, QBRint32t num, const QBRint32t* sub, QBRrealt* v) {
  return viol(task, whichsol, ViolKind::kVar, true, num, sub, v);
}
QBRrescode QBR_getpviolbarvar(QBRtask_t task, QBRint32t whichsol, QBRint32t num, const QBRint32t* sub,
                              QBRrealt* v) {
  return viol(task, whichsol, ViolKind::kBarvar, true, num, sub, v);
}
QBRrescode QBR_getpviolcones(QBRtask_t task, QBRint32t whichsol, QBRint32t num, const QBRint32t* sub,
                             QBRrealt* v) {
  return viol(task, whichsol, ViolKind::kCone, true, num, sub, v);
}
QBRrescode QBR_getdviolcon(QBRtask_t task, QBRint32t whichsol, QBRint32t num, const QBRint32t* sub, QBRrealt* v) {
  return viol(task, whichsol, ViolKind::kCon, false, num, sub, v);
}
QBRrescode QBR_getdviolvar(QBRtask_t task, QBRint32t whichsol, QBRint32t num, const QBRint32t* sub, QBRrealt* v) {
  return viol(task, whichsol, ViolKind::kVar, false, num, sub, v);
}
QBRrescode QBR_getdviolbarvar(QBRtask_t task, QBRint32t whichsol, QBRint32t num, const QBRint32t* sub,
                              QBRrealt* v) {
  return viol(task, whichsol, ViolKind::kBarvar, false, num, sub, v);
}
QBRrescode QBR_getdviolcones(QBRtask_t task, QBRint32t whichsol, QBRint32t num, const QBRint32t* sub,
                             QBRrealt* v) {
  return viol(task, whichsol, ViolKind::kCone, false, num, sub, v);
}

QBRrescode QBR_getprimalsolutionnorms(QBRtask_t task, QBRint32t whichsol, QBRrealt* nrmxc, QBRrealt* nrmxx,
                                      QBRrealt* nrmbarx) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(check_defined(t, whichsol));
    const tk::PrimalNorms n = tk::primal_norms(t.solutions[whichsol]);
    if (nrmxc) *nrmxc = n.xc;
    if (nrmxx) *nrmxx = n.xx;
    if (nrmbarx) *nrmbarx = n.barx;
    return QBR_RES_OK;
  });
}

QBRrescode QBR_getdualsolutionnorms(QBRtask_t task, QBRint32t whichsol, QBRrealt* nrmy, QBRrealt* nrmslc,
                                    QBRrealt* nrmsuc, QBRrealt* nrmslx, QBRrealt* nrmsux, QBRrealt* nrmsnx,
                                    QBRrealt* nrmbars) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(check_defined(t, whichsol));
    if (whichsol == QBR_SOL_ITG) return QBR_REPORT(t, QBR_RES_ERR_NO_DUAL_FOR_ITG_SOL);
    const tk::DualNorms n = tk::dual_norms(t.solutions[whichsol]);
    for (auto [p, v] : {std::pair{nrmy, n.y}, {nrmslc, n.slc}, {nrmsuc, n.suc}, {nrmslx, n.slx}, {nrmsux, n.sux},
                        {nrmsnx, n.snx}, {nrmbars, n.bars}})
      if (p) *p = v;
    return QBR_RES_OK;
  });
}

QBRrescode QBR_getsolutioninfo(QBRtask_t task, QBRint32t whichsol, QBRrealt* pobj, QBRrealt* pviolcon,
                               QBRrealt* pviolvar, QBRrealt* pviolbarvar, QBRrealt* pviolcone, QBRrealt* pviolitg,
                               QBRrealt* dobj, QBRrealt* dviolcon, QBRrealt* dviolvar, QBRrealt* dviolbarvar,
                               QBRrealt* dviolcone) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(check_defined(t, whichsol));
    const tk::SolutionInfo i = tk::solution_info(t, whichsol);
    for (auto [p, v] : {std::pair{pobj, i.pobj}, {pviolcon, i.pviolcon}, {pviolvar, i.pviolvar},
                        {pviolbarvar, i.pviolbarvar}, {pviolcone, i.pviolcone}, {pviolitg, i.pviolitg},
                        {dobj, i.dobj}, {dviolcon, i.dviolcon}, {dviolvar, i.dviolvar},
                        {dviolbarvar, i.dviolbarvar}, {dviolcone, i.dviolcone}})
      if (p) *p = v;
    return QBR_RES_OK;
  });
}

QBRrescode QBR_updatesolutioninfo(QBRtask_t task, QBRint32t whichsol) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(check_which(t, whichsol));
    tk::update_solution_info(t, whichsol);
    return QBR_RES_OK;
  });
}

QBRrescode QBR_onesolutionsummary(QBRtask_t task, QBRint32t whichstream, QBRint32t whichsol) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(check_stream(t, whichstream));
    QBR_CHECK(check_which(t, whichsol));
    tk::one_solution_summary(t, whichstream, whichsol);
    return QBR_RES_OK;
  });
}

QBRrescode QBR_solutionsummary(QBRtask_t task, QBRint32t whichstream) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(check_stream(t, whichstream));
    for (QBRint32t w = QBR_SOL_ITR; w <= QBR_SOL_ITG; ++w) tk::one_solution_summary(t, whichstream, w);
    return QBR_RES_OK;
  });
}

QBRrescode QBR_getbarxj(QBRtask_t task, QBRint32t whichsol, QBRint32t j, QBRrealt* barxj) {
  return bar_part(task, whichsol, true, j, j, -1, barxj, "barxj");
}
QBRrescode QBR_getbarsj(QBRtask_t task, QBRint32t whichsol, QBRint32t j, QBRrealt* barsj) {
  return bar_part(task, whichsol, false, j, j, -1, barsj, "barsj");
}
QBRrescode QBR_getbarxslice(QBRtask_t task, QBRint32t whichsol, QBRint32t first, QBRint32t last,
                            QBRint64t slicesize, QBRrealt* barxslice) {
  return bar_part(task, whichsol, true, first, last, slicesize, barxslice, "barxslice");
}
QBRrescode QBR_getbarsslice(QBRtask_t task, QBRint32t whichsol, QBRint32t first, QBRint32t last,
                            QBRint64t slicesize, QBRrealt* barsslice) {
  return bar_part(task, whichsol, false, first, last, slicesize, barsslice, "barsslice");
}
QBRrescode QBR_putbarxj(QBRtask_t task, QBRint32t whichsol, QBRint32t j, const QBRrealt* barxj) {
  return put_bar_part(task, whichsol, true, j, barxj);
}
QBRrescode QBR_putbarsj(QBRtask_t task, QBRint32t whichsol, QBRint32t j, const QBRrealt* barsj) {
  return put_bar_part(task, whichsol, false, j, barsj);
}

QBRrescode QBR_sktostr(QBRtask_t task, QBRint32t sk, char* str) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    const char* s = tk::enum_text(tk::EnumGroup::STAKEY, sk);
    if (!s) return QBR_REPORT(t, QBR_RES_ERR_INV_SK, sk);
    return copy_text(t, str, s);
  });
}

QBRrescode QBR_strtosk(QBRtask_t task, const char* str, QBRint32t* sk) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(api::check_ptr(t, str, "str"));
    QBR_CHECK(api::check_ptr(t, sk, "sk"));
    for (QBRint32t k = QBR_SK_UNK; k <= QBR_SK_INF; ++k)
      if (std::strcmp(str, tk::enum_text(tk::EnumGroup::STAKEY, k)) == 0) {
        *sk = k;
        return QBR_RES_OK;
      }
    return QBR_REPORT(t, QBR_RES_ERR_INV_SK_STR, str);
  });
}

QBRrescode QBR_solstatostr(QBRtask_t task, QBRint32t solsta, char* str) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode { return copy_text(t, str, tk::solsta_text(solsta)); });
}

QBRrescode QBR_prostatostr(QBRtask_t task, QBRint32t prosta, char* str) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode { return copy_text(t, str, tk::prosta_text(prosta)); });
}

}  // extern "C"
