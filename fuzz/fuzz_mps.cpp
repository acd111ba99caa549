// Fuzz target: the MPS reader in every layout, on a file holding the input.
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
  QBRenv_t env = nullptr;
  QBRtask_t task = nullptr;
  if (QBR_makeenv(&env, nullptr) != QBR_RES_OK) return 0;
  if (QBR_maketask(env, 0, 0, &task) == QBR_RES_OK) {
    QBR_putintparam(task, QBR_IPAR_READ_MPS_FORMAT, size > 0 ? data[0] % 4 : 0);
    QBR_readdata(task, path.c_str());
    // What was read must also be writable.
    QBR_writedata(task, "/dev/null");
    QBR_deletetask(&task);
  }
  QBR_deleteenv(&env);
  return 0;
}
