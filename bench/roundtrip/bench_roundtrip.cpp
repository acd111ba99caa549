// Whole-task files against MPS: exactness and speed.
//
//   bench_roundtrip [--solve] MODEL [MODEL ...]
//   bench_roundtrip --memory FILE
//
// Per model (any format the library reads): writes it as MPS, task file and JSON task, reads
// each back (best of three, wall and CPU time), and checks that the task file and the JSON
// task give the same task again: the JSON text of the read task equals that of the original
// up to the information items (the read time differs). --solve optimizes first, so that the
// solutions travel too. Ratios against MPS are printed per model and in total.
//
// --memory reads one file in this fresh process and prints the resident memory the read task
// holds and the peak of the read, both above the baseline before the read (KiB).
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <iterator>
#include <string>

#include "common/process_probe.h"
#include "qubor.h"

namespace {

using qubor_bench::Clock;
using qubor_bench::now;
using qubor_bench::peak_kib;
using qubor_bench::resident_kib;


std::string slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// The JSON text of a task without its information items.
std::string json_of(QBRtask_t t, const std::string& path) {
  if (QBR_writedata(t, path.c_str()) != QBR_RES_OK) return "<write failed>";
  std::string s = slurp(path);
  return s.substr(0, s.find("\"Task/information\""));
}

struct Times {
  Clock write{1e300, 1e300}, read{1e300, 1e300};
};

Times measure(QBRenv_t env, QBRtask_t task, const std::string& path, bool* ok) {
  Times best;
  *ok = true;
  for (int rep = 0; rep < 3; ++rep) {
    Clock a = now();
    *ok = *ok && QBR_writedata(task, path.c_str()) == QBR_RES_OK;
    Clock b = now();
    QBRtask_t back = nullptr;
    QBR_maketask(env, 0, 0, &back);
    Clock c = now();
    *ok = *ok && QBR_readdata(back, path.c_str()) == QBR_RES_OK;
    Clock d = now();
    QBR_deletetask(&back);
    best.write = {std::min(best.write.wall, b.wall - a.wall), std::min(best.write.cpu, b.cpu - a.cpu)};
    best.read = {std::min(best.read.wall, d.wall - c.wall), std::min(best.read.cpu, d.cpu - c.cpu)};
  }
  return best;
}

int memory(const char* path) {
  QBRenv_t env = nullptr;
  QBRtask_t task = nullptr;
  QBR_makeenv(&env, nullptr);
  QBR_maketask(env, 0, 0, &task);
  const long base = resident_kib();
  const QBRrescode r = QBR_readdata(task, path);
  std::printf("%s: response %d, held %ld KiB, peak %ld KiB above the baseline\n", path, r, resident_kib() - base,
              peak_kib() - base);
  QBR_deletetask(&task);
  QBR_deleteenv(&env);
  return r == QBR_RES_OK ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 3 && std::string(argv[1]) == "--memory") return memory(argv[2]);
  int first = 1;
  const bool solve = argc > 1 && std::string(argv[1]) == "--solve";
  if (solve) ++first;
  QBRenv_t env = nullptr;
  QBR_makeenv(&env, nullptr);
  const std::string base = "/tmp/bench_roundtrip_" + std::to_string(getpid());
  const char* formats[] = {"mps", "task", "jtask"};
  double total[3][2] = {};
  int failures = 0;
  std::printf("%-28s %8s | %9s %9s | %9s %9s | %9s %9s | exact\n", "model", "MB(mps)", "mps wr", "mps rd",
              "task wr", "task rd", "jtask wr", "jtask rd");
  for (int k = first; k < argc; ++k) {
    QBRtask_t task = nullptr;
    QBR_maketask(env, 0, 0, &task);
    QBR_putintparam(task, QBR_IPAR_LOG, 0);
    if (QBR_readdata(task, argv[k]) != QBR_RES_OK) {
      std::printf("%s: cannot read\n", argv[k]);
      QBR_deletetask(&task);
      continue;
    }
    QBR_putintparam(task, QBR_IPAR_WRITE_MPS_FORMAT, QBR_MPS_FORMAT_FREE);
    QBR_putintparam(task, QBR_IPAR_WRITE_GENERIC_NAMES, 1);
    if (solve) {
      QBRrescode trm = 0;
      QBR_optimizetrm(task, &trm);
    }
    Times t[3];
    bool ok[3];
    for (int f = 0; f < 3; ++f) t[f] = measure(env, task, base + "." + formats[f], &ok[f]);
    // Exactness of the whole-task formats.
    bool exact = true;
    const std::string want = json_of(task, base + ".ref.jtask");
    for (int f = 1; f < 3; ++f) {
      QBRtask_t back = nullptr;
      QBR_maketask(env, 0, 0, &back);
      QBR_putintparam(back, QBR_IPAR_LOG, 0);
      exact = exact && QBR_readdata(back, (base + "." + formats[f]).c_str()) == QBR_RES_OK &&
              json_of(back, base + ".back.jtask") == want;
      QBR_deletetask(&back);
    }
    if (!exact || !ok[0] || !ok[1] || !ok[2]) ++failures;
    std::string name = argv[k];
    name = name.substr(name.find_last_of('/') + 1);
    std::printf("%-28s %8.2f | %9.4f %9.4f | %9.4f %9.4f | %9.4f %9.4f | %s\n", name.c_str(),
                static_cast<double>(slurp(base + ".mps").size()) / 1e6, t[0].write.cpu, t[0].read.cpu, t[1].write.cpu,
                t[1].read.cpu, t[2].write.cpu, t[2].read.cpu, exact ? "yes" : "NO");
    for (int f = 0; f < 3; ++f) total[f][0] += t[f].write.cpu, total[f][1] += t[f].read.cpu;
    QBR_deletetask(&task);
  }
  std::printf("\nCPU seconds in total: MPS write %.3f read %.3f; task write %.3f read %.3f; JSON task write %.3f read %.3f\n",
              total[0][0], total[0][1], total[1][0], total[1][1], total[2][0], total[2][1]);
  if (total[0][0] > 0 && total[0][1] > 0)
    std::printf("against MPS: task write %.2fx read %.2fx; JSON task write %.2fx read %.2fx (below 1 is faster)\n",
                total[1][0] / total[0][0], total[1][1] / total[0][1], total[2][0] / total[0][0], total[2][1] / total[0][1]);
  std::printf("%d model(s) not exact or failed\n", failures);
  for (const char* s : {".mps", ".task", ".jtask", ".ref.jtask", ".back.jtask"}) std::remove((base + s).c_str());
  QBR_deleteenv(&env);
  return failures ? 1 : 0;
}
