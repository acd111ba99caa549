// The machine-readable summary of a solve (qubor solve MODEL --report FILE.json), for scripts
// and the benchmark harness: the model's sizes, the termination code, per solution item the
// statuses and objectives, the optimizer's time, and every information item by name.
#pragma once

#include <string>

#include "qubor.h"

namespace qubor_app {

// The summary as one JSON object. `model` is the file that was read, `trm` the termination
// code of the optimizer, `wall` the seconds the solve command took in all.
std::string run_report(QBRtask_t task, const std::string& model, QBRrescode trm, double wall);
// Writes the text to `path` through a temporary file beside it; false when that fails.
bool write_report(const std::string& path, const std::string& text);

}  // namespace qubor_app
