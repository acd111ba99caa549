// Fuzz target: the OPF reader through QBR_readopfstring; what it read must write, read back,
// and write again to the same text (reader and writer are inverses).
#include <string>

#include "fuzz_common.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  static const std::string out = fuzz_path(".opf");
  QBRenv_t env = fuzz_env();
  QBRtask_t task = nullptr;
  if (!env || QBR_maketask(env, 0, 0, &task) != QBR_RES_OK) return 0;
  QBR_putintparam(task, QBR_IPAR_LOG, 0);
  // A file may switch the problem off for writing; the solutions it holds could then not be
  // read back, so the problem is always written here.
  if (QBR_readopfstring(task, text.c_str()) == QBR_RES_OK &&
      QBR_putintparam(task, QBR_IPAR_OPF_WRITE_PROBLEM, 1) == QBR_RES_OK &&
      QBR_writedata(task, out.c_str()) == QBR_RES_OK) {
    const std::string first = fuzz_read_file(out);
    QBRtask_t back = nullptr;
    if (QBR_maketask(env, 0, 0, &back) == QBR_RES_OK) {
      QBR_putintparam(back, QBR_IPAR_LOG, 0);
      if (QBR_readopfstring(back, first.c_str()) != QBR_RES_OK) __builtin_trap();
      if (QBR_writedata(back, out.c_str()) != QBR_RES_OK || fuzz_read_file(out) != first) __builtin_trap();
      QBR_deletetask(&back);
    }
  }
  QBR_deletetask(&task);
  return 0;
}
