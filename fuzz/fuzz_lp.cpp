// Fuzz target: the LP reader through QBR_readlpstring, and the writer on what it read.
#include <string>

#include "qubor.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  QBRenv_t env = nullptr;
  QBRtask_t task = nullptr;
  if (QBR_makeenv(&env, nullptr) != QBR_RES_OK) return 0;
  if (QBR_maketask(env, 0, 0, &task) == QBR_RES_OK) {
    // Quoted names for half of the inputs.
    QBR_putintparam(task, QBR_IPAR_READ_LP_QUOTED_NAMES, size % 2 ? QBR_ON : QBR_OFF);
    QBR_putintparam(task, QBR_IPAR_WRITE_LP_QUOTED_NAMES, size % 2 ? QBR_ON : QBR_OFF);
    if (QBR_readlpstring(task, text.c_str()) == QBR_RES_OK) QBR_writedata(task, "/tmp/qubor_fuzz_out.lp");
    QBR_deletetask(&task);
  }
  QBR_deleteenv(&env);
  return 0;
}
