// Fuzz target: the CBF reader on a file holding the input; the writer on what it read, and
// the reader again on what was written, which must succeed and give a task of the same sizes.
#include <string>

#include "fuzz_common.h"

namespace {

bool same_sizes(QBRtask_t a, QBRtask_t b) {
  QBRrescode (*const counts[])(QBRtask_t, QBRint32t*) = {QBR_getnumvar, QBR_getnumcon, QBR_getnumbarvar,
                                                           QBR_getnumcone};
  for (auto count : counts) {
    QBRint32t x = -1, y = -2;
    count(a, &x);
    count(b, &y);
    if (x != y) return false;
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size) {
  static const std::string path = fuzz_path(".cbf"), out = fuzz_path("_out.cbf");
  QBRenv_t env = fuzz_env();
  QBRtask_t task = nullptr;
  if (!env || !fuzz_input_file(path, data, size)) return 0;
  if (QBR_maketask(env, 0, 0, &task) == QBR_RES_OK) {
    if (QBR_readdata(task, path.c_str()) == QBR_RES_OK && QBR_writedata(task, out.c_str()) == QBR_RES_OK) {
      QBRtask_t back = nullptr;
      if (QBR_maketask(env, 0, 0, &back) == QBR_RES_OK) {
        // A task read from CBF is written as itself.
        if (QBR_readdata(back, out.c_str()) != QBR_RES_OK || !same_sizes(task, back)) __builtin_trap();
        QBR_deletetask(&back);
      }
    }
    QBR_deletetask(&task);
  }
  return 0;
}
