// Fuzz target: the MPS reader in every layout, on a file holding the input; the writer on
// what it read, and the reader again on what was written.
#include <string>

#include "fuzz_common.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size) {
  static const std::string path = fuzz_path(".mps"), out = fuzz_path("_out.mps");
  QBRenv_t env = fuzz_env();
  QBRtask_t task = nullptr;
  if (!env || !fuzz_input_file(path, data, size)) return 0;
  if (QBR_maketask(env, 0, 0, &task) == QBR_RES_OK) {
    QBR_putintparam(task, QBR_IPAR_READ_MPS_FORMAT, size > 0 ? data[0] % 4 : 0);
    // What was read and could be written (in the free layout) must read back.
    if (QBR_readdata(task, path.c_str()) == QBR_RES_OK && QBR_writedata(task, out.c_str()) == QBR_RES_OK) {
      QBRtask_t back = nullptr;
      if (QBR_maketask(env, 0, 0, &back) == QBR_RES_OK) {
        QBR_putintparam(back, QBR_IPAR_READ_MPS_FORMAT, QBR_MPS_FORMAT_FREE);
        if (QBR_readdata(back, out.c_str()) != QBR_RES_OK) __builtin_trap();
        QBR_deletetask(&back);
      }
    }
    QBR_deletetask(&task);
  }
  return 0;
}
