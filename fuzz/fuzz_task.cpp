// Fuzz target: the task-file reader on arbitrary bytes; what it read must write and read back.
#include "fuzz_common.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size) {
  static const std::string in = fuzz_path(".task"), out = fuzz_path(".out.task");
  QBRenv_t env = fuzz_env();
  QBRtask_t task = nullptr;
  if (!env || !fuzz_input_file(in, data, size)) return 0;
  if (QBR_maketask(env, 0, 0, &task) == QBR_RES_OK) {
    QBR_putintparam(task, QBR_IPAR_LOG, 0);
    if (QBR_readtask(task, in.c_str()) == QBR_RES_OK && QBR_writetask(task, out.c_str()) == QBR_RES_OK) {
      QBRtask_t back = nullptr;
      if (QBR_maketask(env, 0, 0, &back) == QBR_RES_OK) {
        if (QBR_readtask(back, out.c_str()) != QBR_RES_OK) __builtin_trap();
        QBR_deletetask(&back);
      }
    }
    QBR_deletetask(&task);
  }
  return 0;
}
