// Fuzz target: the JSON-task reader through QBR_readjsonstring; what it read must write and
// read back.
#include <string>

#include "fuzz_common.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  static const std::string out = fuzz_path(".jtask");
  QBRenv_t env = fuzz_env();
  QBRtask_t task = nullptr;
  if (!env) return 0;
  if (QBR_maketask(env, 0, 0, &task) == QBR_RES_OK) {
    QBR_putintparam(task, QBR_IPAR_LOG, 0);
    if (QBR_readjsonstring(task, text.c_str()) == QBR_RES_OK && QBR_writedata(task, out.c_str()) == QBR_RES_OK) {
      QBRtask_t back = nullptr;
      if (QBR_maketask(env, 0, 0, &back) == QBR_RES_OK) {
        if (QBR_readdata(back, out.c_str()) != QBR_RES_OK) __builtin_trap();
        QBR_deletetask(&back);
      }
    }
    QBR_deletetask(&task);
  }
  return 0;
}
