// Reading and writing speed of MPS files through the public interface.
//
//   bench_read FILE.mps [FILE.mps ...]
//   bench_read --memory FILE
//
// Per file (uncompressed MPS): read time and MB/s of the plain file, of its gzip and zstd
// copies (made by the gzip and zstd programs), write time and MB/s of MPS and LP, and the process's peak
// resident memory. Prints CPU time as well as wall time, since the machine may be shared.
//
// --memory reads one file once in a fresh process and prints the resident memory that the
// read problem holds (resident size after the read less that before it) and the peak of
// the read above the same baseline.
#include <sys/resource.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>

#include "common/process_probe.h"
#include "qubor.h"

namespace {

using qubor_bench::Clock;
using qubor_bench::now;

double file_mb(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 ? st.st_size / 1e6 : 0.0;
}

long peak_kb() { return qubor_bench::peak_kib(); }
long resident_kb() { return qubor_bench::resident_kib(); }

int memory(const char* path) {
  QBRenv_t env = nullptr;
  QBRtask_t task = nullptr;
  QBR_makeenv(&env, nullptr);
  QBR_maketask(env, 0, 0, &task);
  QBR_putintparam(task, QBR_IPAR_LOG, 0);
  const long base = resident_kb();
  if (QBR_readdata(task, path) != QBR_RES_OK) return 1;
  const long held = resident_kb() - base, peak = peak_kb() - base;
  QBRint64t nz = 0;
  QBR_getnumanz64(task, &nz);
  std::printf("%s: %.1f MB file, %lld nonzeros, problem holds %.1f MB, read peak %.1f MB (%.2fx)\n", path,
              file_mb(path), static_cast<long long>(nz), held / 1024.0, peak / 1024.0,
              static_cast<double>(peak) / static_cast<double>(held > 0 ? held : 1));
  QBR_deletetask(&task);
  QBR_deleteenv(&env);
  return 0;
}

// Best of `reps` runs of `what` on `task`.
template <class F>
Clock best(int reps, F&& what) {
  Clock b{1e300, 1e300};
  for (int r = 0; r < reps; ++r) {
    Clock a = now();
    if (what() != QBR_RES_OK) return {-1, -1};
    Clock z = now();
    if (z.wall - a.wall < b.wall) b.wall = z.wall - a.wall;
    if (z.cpu - a.cpu < b.cpu) b.cpu = z.cpu - a.cpu;
  }
  return b;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: bench_read FILE.mps [FILE.mps ...]\n");
    return 2;
  }
  if (std::string(argv[1]) == "--memory") return argc == 3 ? memory(argv[2]) : 2;
  QBRenv_t env = nullptr;
  QBRtask_t task = nullptr;
  QBR_makeenv(&env, nullptr);
  QBR_maketask(env, 0, 0, &task);
  QBR_putintparam(task, QBR_IPAR_LOG, 0);
  std::printf("%-28s %8s %18s %18s %18s %14s %14s %10s\n", "file", "MB", "plain s(cpu) MB/s", "gzip s(cpu)",
              "zstd s(cpu)", "write mps s MB/s", "write lp s", "peak MB");
  for (int k = 1; k < argc; ++k) {
    const std::string path = argv[k];
    const double mb = file_mb(path);
    Clock plain = best(5, [&] { return QBR_readdata(task, path.c_str()); });
    // The compressed copies hold the same bytes as the file itself.
    const std::string gz = "/tmp/bench_read.mps.gz", zst = "/tmp/bench_read.mps.zst";
    const std::string out_mps = "/tmp/bench_read_out.mps", out_lp = "/tmp/bench_read_out.lp";
    if (std::system(("gzip -6 -c '" + path + "' > " + gz).c_str()) != 0 ||
        std::system(("zstd -q -3 -f -o " + zst + " '" + path + "'").c_str()) != 0) {
      std::fprintf(stderr, "cannot compress %s with gzip and zstd\n", path.c_str());
      return 1;
    }
    Clock wmps = best(5, [&] { return QBR_writedata(task, out_mps.c_str()); });
    Clock wlp = best(5, [&] { return QBR_writedata(task, out_lp.c_str()); });
    Clock g = best(5, [&] { return QBR_readdata(task, gz.c_str()); });
    Clock z = best(5, [&] { return QBR_readdata(task, zst.c_str()); });
    std::printf("%-28s %8.1f %7.3f(%5.3f) %4.0f %8.3f(%7.3f) %8.3f(%7.3f) %6.3f(%5.3f) %4.0f %6.3f(%5.3f) %10.1f\n",
                path.substr(path.rfind('/') + 1).c_str(), mb, plain.wall, plain.cpu, mb / plain.cpu, g.wall,
                g.cpu, z.wall, z.cpu, wmps.wall, wmps.cpu, file_mb(out_mps) / wmps.cpu, wlp.wall, wlp.cpu, peak_kb() / 1024.0);
  }
  QBR_deletetask(&task);
  QBR_deleteenv(&env);
  return 0;
}
