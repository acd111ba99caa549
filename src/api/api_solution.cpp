// Entry points: the solution items, their arrays, statuses, objective values, violations,
// norms and solution information. Every accessor checks the task, then whichsol
// (QBR_RES_ERR_INVALID_WHICHSOL), then, for readers, that the item is defined
// (QBR_RES_ERR_UNDEF_SOLUTION). Writers create the item and set its solution status to
// QBR_SOL_STA_UNKNOWN. The integer item has no dual values: reading them copies nothing and
// writing them stores nothing; the basic item has no snx (QBR_RES_ERR_NO_SNX_FOR_BAS_SOL).
#include <algorithm>

#include "api/frame.h"
#include "task/problem_ops.h"
#include "task/solution_eval.h"

using qubor::api::Task;
namespace api = qubor::api;
namespace tk = qubor::task;
using tk::Solution;

namespace {

enum class Field { kSkc, kSkx, kSkn, kXc, kXx, kY, kSlc, kSuc, kSlx, kSux, kSnx };

bool is_dual(Field f) { return f >= Field::kY; }

int32_t count_of(const Task& t, Field f) {
  switch (f) {
    case Field::kSkc:
    case Field::kXc:
    case Field::kY:
    case Field::kSlc:
    case Field::kSuc: return t.problem.num_con;
    case Field::kSkn: return t.problem.num_cone;
    default: return t.problem.num_var;
  }
}

std::pmr::vector<double>& reals(Solution& s, Field f) {
  switch (f) {
    case Field::kXc: return s.xc;
    case Field::kXx: return s.xx;
    case Field::kY: return s.y;
    case Field::kSlc: return s.slc;
    case Field::kSuc: return s.suc;
    case Field::kSlx: return s.slx;
    case Field::kSux: return s.sux;
    default: return s.snx;
  }
}

std::pmr::vector<int32_t>& keys(Solution& s, Field f) {
  return f == Field::kSkc ? s.skc : (f == Field::kSkx ? s.skx : s.skn);
}

QBRrescode check_which(Task& t, QBRint32t which) {
  return (which < 0 || which > QBR_SOL_ITG) ? QBR_REPORT(t, QBR_RES_ERR_INVALID_WHICHSOL) : QBR_RES_OK;
}

QBRrescode check_defined(Task& t, QBRint32t which) {
  QBR_CHECK(check_which(t, which));
  return t.solutions[which].defined ? QBR_RES_OK : QBR_REPORT(t, QBR_RES_ERR_UNDEF_SOLUTION);
}

// The range [first, last) of a field: the whole array when `whole`.
QBRrescode check_range(Task& t, Field f, bool whole, QBRint32t& first, QBRint32t& last) {
  if (whole) {
    first = 0;
    last = count_of(t, f);
    return QBR_RES_OK;
  }
  return tk::check_slice(t, first, last, count_of(t, f));
}

Solution& writable(Task& t, QBRint32t which) {
  Solution& s = t.solutions.create(t.problem, which);
  s.solsta = QBR_SOL_STA_UNKNOWN;
  return s;
}

QBRrescode get_reals(QBRtask_t task, QBRint32t which, Field f, bool whole, QBRint32t first, QBRint32t last,
                     QBRrealt* out) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(check_defined(t, which));
    QBR_CHECK(check_range(t, f, whole, first, last));
    if (which == QBR_SOL_ITG && is_dual(f)) return QBR_RES_OK;
    if (which == QBR_SOL_BAS && f == Field::kSnx) return QBR_REPORT(t, QBR_RES_ERR_NO_SNX_FOR_BAS_SOL);
    QBR_CHECK(tk::check_array(t, out, last - first, "values"));
    const auto& v = reals(t.solutions[which], f);
    std::copy(v.begin() + first, v.begin() + last, out);
    return QBR_RES_OK;
  });
}

QBRrescode put_reals(QBRtask_t task, QBRint32t which, Field f, bool whole, QBRint32t first, QBRint32t last,
                     const QBRrealt* in) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(check_which(t, which));
    QBR_CHECK(check_range(t, f, whole, first, last));
    if (which == QBR_SOL_BAS && f == Field::kSnx) return QBR_REPORT(t, QBR_RES_ERR_NO_SNX_FOR_BAS_SOL);
    QBR_CHECK(tk::check_array(t, in, last - first, "values"));
    Solution& s = writable(t, which);
    if (which == QBR_SOL_ITG && is_dual(f)) return QBR_RES_OK;
    std::copy(in, in + (last - first), reals(s, f).begin() + first);
    return QBR_RES_OK;
  });
}

QBRrescode get_keys(QBRtask_t task, QBRint32t which, Field f, bool whole, QBRint32t first, QBRint32t last,
                    QBRint32t* out) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(check_defined(t, which));
    QBR_CHECK(check_range(t, f, whole, first, last));
    QBR_CHECK(tk::check_array(t, out, last - first, "keys"));
    const auto& v = keys(t.solutions[which], f);
    std::copy(v.begin() + first, v.begin() + last, out);
    return QBR_RES_OK;
  });
}

QBRrescode put_keys(QBRtask_t task, QBRint32t which, Field f, bool whole, QBRint32t first, QBRint32t last,
                    const QBRint32t* in) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(check_which(t, which));
    QBR_CHECK(check_range(t, f, whole, first, last));
    // Nothing to write: no key is examined and the item is not created.
    if (last == first) return QBR_RES_OK;
    QBR_CHECK(tk::check_array(t, in, last - first, "keys"));
    const QBRrescode bad = f == Field::kSkc ? QBR_RES_ERR_INV_SKC : (f == Field::kSkx ? QBR_RES_ERR_INV_SKX : QBR_RES_ERR_INV_SKN);
    for (QBRint32t k = 0; k < last - first; ++k)
      if (in[k] < 0 || in[k] > QBR_SK_INF) return QBR_REPORT(t, bad, first + k, in[k]);
    Solution& s = writable(t, which);
    std::copy(in, in + (last - first), keys(s, f).begin() + first);
    return QBR_RES_OK;
  });
}

QBRrescode check_key(Task& t, QBRint32t sk) {
  return (sk < 0 || sk > QBR_SK_INF) ? QBR_REPORT(t, QBR_RES_ERR_INV_SK, sk) : QBR_RES_OK;
}

template <class T>
QBRrescode set_out(Task& t, T* out, const char* name, T v) {
  QBR_CHECK(api::check_ptr(t, out, name));
  *out = v;
  return QBR_RES_OK;
}

}  // namespace

extern "C" {

QBRrescode QBR_solutiondef(QBRtask_t task, QBRint32t whichsol, QBRbooleant* isdef) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(api::check_ptr(t, isdef, "isdef"));
    *isdef = 0;
    QBR_CHECK(check_which(t, whichsol));
    *isdef = t.solutions[whichsol].defined ? 1 : 0;
    return QBR_RES_OK;
  });
}

QBRrescode QBR_deletesolution(QBRtask_t task, QBRint32t whichsol) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(check_which(t, whichsol));
    t.solutions[whichsol].release();
    return QBR_RES_OK;
  });
}

QBRrescode QBR_getprosta(QBRtask_t task, QBRint32t whichsol, QBRint32t* prosta) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(check_defined(t, whichsol));
    return set_out(t, prosta, "prosta", t.solutions[whichsol].prosta);
  });
}

QBRrescode QBR_getsolsta(QBRtask_t task, QBRint32t whichsol, QBRint32t* solsta) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(check_defined(t, whichsol));
    return set_out(t, solsta, "solsta", t.solutions[whichsol].solsta);
  });
}

QBRrescode QBR_getsolution(QBRtask_t task, QBRint32t whichsol, QBRint32t* prosta, QBRint32t* solsta, QBRint32t* skc,
                           QBRint32t* skx, QBRint32t* skn, QBRrealt* xc, QBRrealt* xx, QBRrealt* y, QBRrealt* slc,
                           QBRrealt* suc, QBRrealt* slx, QBRrealt* sux, QBRrealt* snx) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(check_defined(t, whichsol));
    const Solution& s = t.solutions[whichsol];
    const auto copy = [](const auto& v, auto* out) {
      if (out) std::copy(v.begin(), v.end(), out);
    };
    if (prosta) *prosta = s.prosta;
    if (solsta) *solsta = s.solsta;
    copy(s.skc, skc);
    copy(s.skx, skx);
    if (whichsol == QBR_SOL_ITR) copy(s.skn, skn);
    copy(s.xc, xc);
    copy(s.xx, xx);
    if (whichsol == QBR_SOL_ITG) return QBR_RES_OK;
    if (t.problem.num_con > 0) {
      copy(s.y, y);
      copy(s.slc, slc);
      copy(s.suc, suc);
    }
    if (t.problem.num_var > 0) {
      copy(s.slx, slx);
      copy(s.sux, sux);
    }
    if (whichsol == QBR_SOL_ITR) copy(s.snx, snx);
    return QBR_RES_OK;
  });
}

QBRrescode QBR_putsolution(QBRtask_t task, QBRint32t whichsol, const QBRint32t* skc, const QBRint32t* skx,
                           const QBRint32t* skn, const QBRrealt* xc, const QBRrealt* xx, const QBRrealt* y,
                           const QBRrealt* slc, const QBRrealt* suc, const QBRrealt* slx, const QBRrealt* sux,
                           const QBRrealt* snx) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(check_which(t, whichsol));
    const tk::Problem& p = t.problem;
    // Every key is checked before anything is written.
    for (QBRint32t i = 0; skc && i < p.num_con; ++i)
      if (skc[i] < 0 || skc[i] > QBR_SK_INF) return QBR_REPORT(t, QBR_RES_ERR_INV_SKC, i, skc[i]);
    for (QBRint32t j = 0; skx && j < p.num_var; ++j)
      if (skx[j] < 0 || skx[j] > QBR_SK_INF) return QBR_REPORT(t, QBR_RES_ERR_INV_SKX, j, skx[j]);
    for (QBRint32t k = 0; skn && k < p.num_cone; ++k)
      if (skn[k] < 0 || skn[k] > QBR_SK_INF) return QBR_REPORT(t, QBR_RES_ERR_INV_SKN, k, skn[k]);
    Solution& s = writable(t, whichsol);
    const auto copy = [](const auto* in, auto& v) {
      if (in) std::copy(in, in + v.size(), v.begin());
    };
    copy(skc, s.skc);
    copy(skx, s.skx);
    copy(skn, s.skn);
    copy(xc, s.xc);
    copy(xx, s.xx);
    if (whichsol == QBR_SOL_ITG) return QBR_RES_OK;
    copy(y, s.y);
    copy(slc, s.slc);
    copy(suc, s.suc);
    copy(slx, s.slx);
    copy(sux, s.sux);
    if (whichsol == QBR_SOL_ITR) copy(snx, s.snx);
    return QBR_RES_OK;
  });
}

#define QBR_WHOLE_ACCESSORS(name, field, type, getter, putter)                                  \
  QBRrescode QBR_get##name(QBRtask_t task, QBRint32t whichsol, type* v) {                       \
    return getter(task, whichsol, field, true, 0, 0, v);                                        \
  }                                                                                             \
  QBRrescode QBR_get##name##slice(QBRtask_t task, QBRint32t whichsol, QBRint32t first, QBRint32t last, \
                                  type* v) {                                                    \
    return getter(task, whichsol, field, false, first, last, v);                                \
  }

QBR_WHOLE_ACCESSORS(skc, Field::kSkc, QBRint32t, get_keys, put_keys)
QBR_WHOLE_ACCESSORS(skx, Field::kSkx, QBRint32t, get_keys, put_keys)
QBR_WHOLE_ACCESSORS(xc, Field::kXc, QBRrealt, get_reals, put_reals)
QBR_WHOLE_ACCESSORS(xx, Field::kXx, QBRrealt, get_reals, put_reals)
QBR_WHOLE_ACCESSORS(y, Field::kY, QBRrealt, get_reals, put_reals)
QBR_WHOLE_ACCESSORS(slc, Field::kSlc, QBRrealt, get_reals, put_reals)
QBR_WHOLE_ACCESSORS(suc, Field::kSuc, QBRrealt, get_reals, put_reals)
QBR_WHOLE_ACCESSORS(slx, Field::kSlx, QBRrealt, get_reals, put_reals)
QBR_WHOLE_ACCESSORS(sux, Field::kSux, QBRrealt, get_reals, put_reals)
QBR_WHOLE_ACCESSORS(snx, Field::kSnx, QBRrealt, get_reals, put_reals)
#undef QBR_WHOLE_ACCESSORS

#define QBR_WRITERS(name, field, type, putter)                                                   \
  QBRrescode QBR_put##name(QBRtask_t task, QBRint32t whichsol, const type* v) {                 \
    return putter(task, whichsol, field, true, 0, 0, v);                                         \
  }                                                                                              \
  QBRrescode QBR_put##name##slice(QBRtask_t task, QBRint32t whichsol, QBRint32t first, QBRint32t last, \
                                  const type* v) {                                               \
    return putter(task, whichsol, field, false, first, last, v);                                 \
  }

QBR_WRITERS(skc, Field::kSkc, QBRint32t, put_keys)
QBR_WRITERS(skx, Field::kSkx, QBRint32t, put_keys)
QBR_WRITERS(xc, Field::kXc, QBRrealt, put_reals)
QBR_WRITERS(xx, Field::kXx, QBRrealt, put_reals)
QBR_WRITERS(y, Field::kY, QBRrealt, put_reals)
QBR_WRITERS(slc, Field::kSlc, QBRrealt, put_reals)
QBR_WRITERS(suc, Field::kSuc, QBRrealt, put_reals)
QBR_WRITERS(slx, Field::kSlx, QBRrealt, put_reals)
QBR_WRITERS(sux, Field::kSux, QBRrealt, put_reals)
QBR_WRITERS(snx, Field::kSnx, QBRrealt, put_reals)
#undef QBR_WRITERS

QBRrescode QBR_getskn(QBRtask_t task, QBRint32t whichsol, QBRint32t* skn) {
  return get_keys(task, whichsol, Field::kSkn, true, 0, 0, skn);
}

QBRrescode QBR_getsolutionslice(QBRtask_t task, QBRint32t whichsol, QBRint32t solitem, QBRint32t first,
                                QBRint32t last, QBRrealt* values) {
  static constexpr Field kItems[] = {Field::kXc, Field::kXx, Field::kY, Field::kSlc,
                                     Field::kSuc, Field::kSlx, Field::kSux, Field::kSnx};
  if (solitem < QBR_SOL_ITEM_XC || solitem > QBR_SOL_ITEM_SNX) {
    return api::task_frame(task, [&](Task& t) -> QBRrescode {
      QBR_CHECK(check_which(t, whichsol));
      return QBR_REPORT(t, QBR_RES_ERR_SOLITEM, solitem);
    });
  }
  return get_reals(task, whichsol, kItems[solitem], false, first, last, values);
}

QBRrescode QBR_getreducedcosts(QBRtask_t task, QBRint32t whichsol, QBRint32t first, QBRint32t last,
                               QBRrealt* redcosts) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(check_defined(t, whichsol));
    QBR_CHECK(tk::check_slice(t, first, last, t.problem.num_var));
    if (whichsol == QBR_SOL_ITG) return QBR_RES_OK;
    QBR_CHECK(tk::check_array(t, redcosts, last - first, "redcosts"));
    const Solution& s = t.solutions[whichsol];
    // Reduced cost of x_j: c_j - (A'y)_j = slx_j - sux_j (+ snx_j for conic duals).
    for (QBRint32t j = first; j < last; ++j) {
      const auto ju = static_cast<size_t>(j);
      redcosts[j - first] = s.slx[ju] - s.sux[ju] + (whichsol == QBR_SOL_ITR ? s.snx[ju] : 0.0);
    }
    return QBR_RES_OK;
  });
}

QBRrescode QBR_putconsolutioni(QBRtask_t task, QBRint32t i, QBRint32t whichsol, QBRint32t sk, QBRrealt x,
                               QBRrealt sl, QBRrealt su) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(check_which(t, whichsol));
    QBR_CHECK(api::check_index(t, api::IndexKind::kConstraint, "i", i));
    QBR_CHECK(check_key(t, sk));
    Solution& s = writable(t, whichsol);
    const auto iu = static_cast<size_t>(i);
    s.skc[iu] = sk;
    s.xc[iu] = x;
    if (whichsol != QBR_SOL_ITG) {
      s.slc[iu] = sl;
      s.suc[iu] = su;
    }
    return QBR_RES_OK;
  });
}

QBRrescode QBR_putvarsolutionj(QBRtask_t task, QBRint32t j, QBRint32t whichsol, QBRint32t sk, QBRrealt x,
                               QBRrealt sl, QBRrealt su, QBRrealt sn) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(check_which(t, whichsol));
    QBR_CHECK(api::check_index(t, api::IndexKind::kVariable, "j", j));
    QBR_CHECK(check_key(t, sk));
    Solution& s = writable(t, whichsol);
    const auto ju = static_cast<size_t>(j);
    s.skx[ju] = sk;
    s.xx[ju] = x;
    if (whichsol != QBR_SOL_ITG) {
      s.slx[ju] = sl;
      s.sux[ju] = su;
      if (whichsol == QBR_SOL_ITR) s.snx[ju] = sn;
    }
    return QBR_RES_OK;
  });
}

QBRrescode QBR_putsolutionyi(QBRtask_t task, QBRint32t i, QBRint32t whichsol, QBRrealt y) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(check_which(t, whichsol));
    QBR_CHECK(api::check_index(t, api::IndexKind::kConstraint, "i", i));
    Solution& s = writable(t, whichsol);
    if (whichsol != QBR_SOL_ITG) s.y[static_cast<size_t>(i)] = y;
    return QBR_RES_OK;
  });
}

}  // extern "C"
