// Fuzz target: the solution file reader, on a file holding the input, into a small task
// with named and nameless items. The first byte chooses blank-separated or fixed-width names.
#include <string>

#include "fuzz_common.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size) {
  static const std::string path = fuzz_path(".sol");
  QBRenv_t env = fuzz_env();
  QBRtask_t task = nullptr;
  if (!env || !fuzz_input_file(path, data, size) || QBR_maketask(env, 0, 0, &task) != QBR_RES_OK) return 0;
  QBR_appendvars(task, 3);
  QBR_appendcons(task, 2);
  QBR_putvarname(task, 0, "x");
  QBR_putvarname(task, 1, "a longer name");
  QBR_putconname(task, 0, "c1");
  const QBRint32t sub[] = {0, 2};
  QBR_appendcone(task, QBR_CT_QUAD, 0.0, 2, sub);
  QBR_putintparam(task, QBR_IPAR_SOL_READ_NAME_WIDTH, size > 0 && data[0] % 2 ? 13 : -1);
  QBR_putintparam(task, QBR_IPAR_SOL_READ_WIDTH, size > 1 && data[1] % 2 ? 80 : 1024);
  for (QBRint32t which : {QBR_SOL_ITR, QBR_SOL_BAS}) QBR_readsolution(task, which, path.c_str());
  // What was read must be writable.
  QBR_writesolution(task, QBR_SOL_ITR, "/dev/null");
  QBR_deletetask(&task);
  return 0;
}
