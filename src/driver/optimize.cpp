// The optimize driver; see optimize.h.
#include "driver/optimize.h"

#include <chrono>
#include <algorithm>
#include <cstring>

#include "driver/conic_handover.h"
#include "driver/lp_handover.h"
#include "driver/mio_handover.h"
#include "driver/quadratic.h"
#include "driver/simplex_handover.h"
#include "task/problem_ops.h"
#include "task/report.h"
#include "task/solution_eval.h"
#include "task/tables.h"

namespace qubor::driver {
namespace {

using task::Task;

double now() {
  using Clock = std::chrono::steady_clock;
  return std::chrono::duration<double>(Clock::now().time_since_epoch()).count();
}

bool in_simplex_set(int32_t optimizer) {
  constexpr uint32_t kMask = (1u << QBR_OPTIMIZER_DUAL_SIMPLEX) | (1u << QBR_OPTIMIZER_FREE_SIMPLEX) |
                             (1u << QBR_OPTIMIZER_PRIMAL_SIMPLEX);
  return optimizer >= 0 && optimizer < 32 && ((kMask >> optimizer) & 1u) != 0;
}

bool has_prefix(const char* name, const char* prefix) {
  return std::strncmp(name, prefix, std::strlen(prefix)) == 0;
}

// Items of the optimizers' families: interior point, simplex, basis identification, presolve
// and the mixed-integer counters and times.
bool optimizer_item(const char* name) {
  const char* rest = std::strchr(name + 4, '_');  // after "QBR_xINF"
  if (rest == nullptr) return false;
  ++rest;
  for (const char* p : {"INTPNT_", "SIM_", "BI_", "PRESOLVE_", "MIO_", "OPTIMIZER_TIME"})
    if (has_prefix(rest, p)) return true;
  return false;
}

void reset_information(Task& t) {
  t.optimize.stored_trm = 0;
  for (int type : {QBR_INF_DOU_TYPE, QBR_INF_INT_TYPE, QBR_INF_LINT_TYPE}) {
    for (int k = 0;; ++k) {
      const char* name = task::info_name(type, k);
      if (name == nullptr) break;
      if (!optimizer_item(name)) continue;
      if (type == QBR_INF_DOU_TYPE) t.set_dinf(k, 0.0);
      if (type == QBR_INF_INT_TYPE) t.set_iinf(k, 0);
      if (type == QBR_INF_LINT_TYPE) t.set_liinf(k, 0);
    }
  }
  t.set_iinf(QBR_IINF_OPT_NUMCON, t.problem.num_con);
  t.set_iinf(QBR_IINF_OPT_NUMVAR, t.problem.num_var);
}

// A path whose optimizer is not part of this build: a clear log line and 1550.
QBRrescode unavailable(Task& t, const char* what, int32_t optimizer) {
  if (t.log_on()) t.printf(QBR_STREAM_LOG, "The %s is not available in this version.\n", what);
  return QBR_REPORT(t, QBR_RES_ERR_INV_OPTIMIZER, optimizer);
}

QBRrescode mixed_integer_path(Task& t, int32_t optimizer) {
  if (t.problem.num_barvar > 0) return QBR_REPORT(t, QBR_RES_ERR_GLOBAL_INV_CONIC_PROBLEM);
  if (task::problem_type(t.problem) != QBR_PROBTYPE_LO)
    return unavailable(t, "mixed-integer optimizer for quadratic and conic problems", optimizer);
  return run_mixed_integer(t);
}

QBRrescode continuous_dispatch(Task& t, int32_t optimizer) {
  t.optimize.stored_trm = 0;
  if (!in_simplex_set(optimizer)) t.solutions.create(t.problem, QBR_SOL_ITR);
  const int32_t type = task::problem_type(t.problem);
  const bool conic = type == QBR_PROBTYPE_CONIC || type == QBR_PROBTYPE_MIXED;
  const bool quadratic = type == QBR_PROBTYPE_QO || type == QBR_PROBTYPE_QCQO || type == QBR_PROBTYPE_MIXED;
  // The conic optimizer takes quadratic terms through their conic form.
  if (optimizer == QBR_OPTIMIZER_FREE && conic) return quadratic ? run_quadratic(t) : run_conic(t);
  if ((optimizer == QBR_OPTIMIZER_INTPNT || optimizer == QBR_OPTIMIZER_FREE) && quadratic && !conic)
    return run_quadratic(t);
  if (optimizer == QBR_OPTIMIZER_CONIC) return quadratic ? run_quadratic(t) : run_conic(t);
  if (in_simplex_set(optimizer)) {
    if (type != QBR_PROBTYPE_LO) return QBR_REPORT(t, QBR_RES_ERR_INV_OPTIMIZER, optimizer);
    return run_simplex(t, optimizer);
  }
  if (conic) return QBR_REPORT(t, QBR_RES_ERR_INV_OPTIMIZER, optimizer);
  return run_linear_intpnt(t);
}

QBRrescode update_solution_information(Task& t) {
  for (int32_t which : {QBR_SOL_ITR, QBR_SOL_BAS, QBR_SOL_ITG})
    if (t.solutions[which].defined) task::update_solution_info(t, which);
  return QBR_RES_OK;
}

}  // namespace

QBRrescode optimize(Task& t) {
  // 1. Clocks, call count, begin callback.
  t.optimize.start = now();
  ++t.optimize.calls;
  t.progress(QBR_CALLBACK_BEGIN_OPTIMIZER);
  const double t0 = now();
  // 2.-3. Data are kept consistent by every edit; the objective sense must be set.
  QBRrescode r = QBR_RES_OK;
  if (t.problem.obj_sense > QBR_OBJECTIVE_SENSE_MAXIMIZE) {
    r = QBR_REPORT(t, QBR_RES_ERR_UNDEFINED_OBJECTIVE_SENSE);
  } else {
    // 4. Information reset.
    reset_information(t);
    // 5.-6. The matrix is always held sorted; choose the path.
    const int32_t optimizer = t.ipar(QBR_IPAR_OPTIMIZER);
    const bool mixed_integer =
        optimizer == QBR_OPTIMIZER_MIXED_INT ||
        (optimizer == QBR_OPTIMIZER_FREE && t.problem.num_int_var > 0 &&
         t.ipar(QBR_IPAR_MIO_MODE) != QBR_MIO_MODE_IGNORED);
    r = mixed_integer ? mixed_integer_path(t, optimizer) : continuous_dispatch(t, optimizer);
    // 8. Solution information.
    if (t.ipar(QBR_IPAR_AUTO_UPDATE_SOL_INFO) != 0 && (r < 1000 || r >= 10000)) {
      const QBRrescode u = update_solution_information(t);
      if (r == QBR_RES_OK) r = u;
    }
  }
  // 9. Time, end callback, response.
  t.set_dinf(QBR_DINF_OPTIMIZER_TIME, now() - t0);
  t.optimize.end = now();
  if (r == QBR_RES_TRM_USER_CALLBACK) r = t.optimize.stored_trm;
  const bool stop = t.progress(QBR_CALLBACK_END_OPTIMIZER);
  if (r == QBR_RES_OK && stop) r = QBR_RES_TRM_USER_CALLBACK;
  t.set_iinf(QBR_IINF_OPTIMIZE_RESPONSE, r);
  return r;
}

QBRrescode optimize_entry(Task& t) {
  const QBRrescode r = optimize(t);
  task::Solution& itg = t.solutions[QBR_SOL_ITG];
  if (itg.defined) std::fill(itg.skn.begin(), itg.skn.end(), 0);
  return r;
}

QBRrescode optimize_trm(Task& t, int32_t* trm) {
  const QBRrescode r = optimize_entry(t);
  if (task::response_class(r) == QBR_RESPONSE_TRM) {
    if (trm) *trm = r;
    return QBR_RES_OK;
  }
  if (trm) *trm = QBR_RES_OK;
  return r;
}

}  // namespace qubor::driver
