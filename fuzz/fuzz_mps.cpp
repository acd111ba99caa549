// Fuzz target: the MPS reader in every layout, on a file holding the input; the writer on
// what it read, and the reader again on what was written.
#include <unistd.h>

#include <cstdio>
#include <string>

#include "qubor.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size) {
  static const std::string path = "/tmp/qubor_fuzz_" + std::to_string(getpid()) + ".mps";
  FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) return 0;
  std::fwrite(data, 1, size, f);
  std::fclose(f);
  // One environment for the whole run; a fresh task per input.
  static QBRenv_t env = [] {
    QBRenv_t e = nullptr;
    return QBR_makeenv(&e, nullptr) == QBR_RES_OK ? e : nullptr;
  }();
  QBRtask_t task = nullptr;
  if (!env) return 0;
  if (QBR_maketask(env, 0, 0, &task) == QBR_RES_OK) {
    QBR_putintparam(task, QBR_IPAR_READ_MPS_FORMAT, size > 0 ? data[0] % 4 : 0);
    // What was read and could be written (in the free layout) must read back.
    static const std::string out = "/tmp/qubor_fuzz_" + std::to_string(getpid()) + "_out.mps";
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
