// Optimize entry points: the frame, then the driver.
#include "api/frame.h"
#include "driver/optimize.h"
#include "driver/quadratic.h"

using qubor::api::Task;

extern "C" {

QBRrescode QBR_optimizetrm(QBRtask_t task, QBRrescode* trmcode) {
  return qubor::api::task_frame(task, [&](Task& t) { return qubor::driver::optimize_trm(t, trmcode); });
}

QBRrescode QBR_optimize(QBRtask_t task) {
  return qubor::api::task_frame(task, [&](Task& t) { return qubor::driver::optimize_entry(t); });
}

QBRrescode QBR_optimizersummary(QBRtask_t task, QBRint32t whichstream) {
  return qubor::api::task_frame(task, [&](Task& t) -> QBRrescode {
    if (whichstream < QBR_STREAM_LOG || whichstream > QBR_STREAM_WRN)
      return QBR_REPORT(t, QBR_RES_ERR_INVALID_STREAM, whichstream);
    return qubor::driver::optimizer_summary(t, whichstream);
  });
}

QBRrescode QBR_toconic(QBRtask_t task) {
  return qubor::api::task_frame(task, [&](Task& t) { return qubor::driver::to_conic(t, nullptr); });
}

}  // extern "C"
