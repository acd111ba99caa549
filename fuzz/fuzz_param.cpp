// Fuzz target: the parameter-file reader, in both error modes; what it set must write and
// read back.
#include "fuzz_common.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size) {
  static const std::string in = fuzz_path(".par"), out = fuzz_path(".out.par");
  QBRenv_t env = fuzz_env();
  QBRtask_t task = nullptr;
  if (!env || !fuzz_input_file(in, data, size)) return 0;
  if (QBR_maketask(env, 0, 0, &task) == QBR_RES_OK) {
    QBR_putintparam(task, QBR_IPAR_PARAM_READ_IGN_ERROR, size % 2 ? QBR_ON : QBR_OFF);
    if (QBR_readparamfile(task, in.c_str()) == QBR_RES_OK && QBR_writeparamfile(task, out.c_str()) == QBR_RES_OK) {
      QBRtask_t back = nullptr;
      if (QBR_maketask(env, 0, 0, &back) == QBR_RES_OK) {
        if (QBR_readparamfile(back, out.c_str()) != QBR_RES_OK) __builtin_trap();
        QBR_deletetask(&back);
      }
    }
    QBR_deletetask(&task);
  }
  return 0;
}
