// Fuzz target: the LP reader through QBR_readlpstring, the writer on what it read, and the
// reader again on what was written.
#include <string>

#include "fuzz_common.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  static const std::string out = fuzz_path(".lp");
  QBRenv_t env = fuzz_env();
  QBRtask_t task = nullptr;
  if (!env) return 0;
  if (QBR_maketask(env, 0, 0, &task) == QBR_RES_OK) {
    // Quoted names for half of the inputs.
    QBR_putintparam(task, QBR_IPAR_READ_LP_QUOTED_NAMES, size % 2 ? QBR_ON : QBR_OFF);
    QBR_putintparam(task, QBR_IPAR_WRITE_LP_QUOTED_NAMES, size % 2 ? QBR_ON : QBR_OFF);
    // What was read and could be written must read back.
    if (QBR_readlpstring(task, text.c_str()) == QBR_RES_OK && QBR_writedata(task, out.c_str()) == QBR_RES_OK) {
      QBRtask_t back = nullptr;
      if (QBR_maketask(env, 0, 0, &back) == QBR_RES_OK) {
        QBR_putintparam(back, QBR_IPAR_READ_LP_QUOTED_NAMES, size % 2 ? QBR_ON : QBR_OFF);
        if (QBR_readdata(back, out.c_str()) != QBR_RES_OK) __builtin_trap();
        QBR_deletetask(&back);
      }
    }
    QBR_deletetask(&task);
  }
  return 0;
}
