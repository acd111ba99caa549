// The optimize driver: what QBR_optimizetrm and QBR_optimize run.
//
// optimize() takes the start time, counts the call and emits the begin-optimizer callback,
// checks the objective sense, resets the optimizer's information items, chooses the path from
// QBR_IPAR_OPTIMIZER and the problem type and runs it, updates the solution information,
// records QBR_DINF_OPTIMIZER_TIME, emits the end-optimizer callback and stores
// QBR_IINF_OPTIMIZE_RESPONSE. Its result may be a termination code (QBR_RES_TRM_*).
// End callback: a nonzero return stops with QBR_RES_TRM_USER_CALLBACK when the result was
// QBR_RES_OK. optimize_trm() turns a termination into QBR_RES_OK with the code in *trm.
#pragma once

#include <cstdint>

#include "qubor.h"
#include "task/task.h"

namespace qubor::driver {

QBRrescode optimize(task::Task& t);
// optimize() followed by what both entry points do after the driver (the integer item's
// per-cone keys are cleared); the result of QBR_optimize.
QBRrescode optimize_entry(task::Task& t);
QBRrescode optimize_trm(task::Task& t, int32_t* trm);
// The optimizer summary table on `stream`.
QBRrescode optimizer_summary(task::Task& t, int32_t stream);

}  // namespace qubor::driver
