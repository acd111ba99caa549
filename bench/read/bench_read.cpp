// Reading and writing speed of MPS files through the public interface.
//
//   bench_read FILE.mps [FILE.mps ...]
//
// Per file (uncompressed MPS): read time and MB/s of the plain file, of its gzip and zstd
// copies (written by the library), write time of MPS and LP, and the process's peak resident
// memory. Prints CPU time as well as wall time, since the machine may be shared.
#include <sys/resource.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdio>
#include <ctime>
#include <string>

#include "qubor.h"

namespace {

struct Clock {
  double wall, cpu;
};

Clock now() {
  timespec ts;
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
  double cpu = ts.tv_sec + ts.tv_nsec * 1e-9;
  double wall = std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
  return {wall, cpu};
}

double file_mb(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 ? st.st_size / 1e6 : 0.0;
}

long peak_kb() {
  rusage ru;
  getrusage(RUSAGE_SELF, &ru);
  return ru.ru_maxrss;
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
  QBRenv_t env = nullptr;
  QBRtask_t task = nullptr;
  QBR_makeenv(&env, nullptr);
  QBR_maketask(env, 0, 0, &task);
  QBR_putintparam(task, QBR_IPAR_LOG, 0);
  std::printf("%-28s %8s %18s %18s %18s %14s %14s %10s\n", "file", "MB", "plain s(cpu) MB/s", "gzip s(cpu)",
              "zstd s(cpu)", "write mps s", "write lp s", "peak MB");
  for (int k = 1; k < argc; ++k) {
    const std::string path = argv[k];
    const double mb = file_mb(path);
    Clock plain = best(3, [&] { return QBR_readdata(task, path.c_str()); });
    const std::string gz = "/tmp/bench_read.mps.gz", zst = "/tmp/bench_read.mps.zst";
    const std::string out_mps = "/tmp/bench_read_out.mps", out_lp = "/tmp/bench_read_out.lp";
    QBR_putintparam(task, QBR_IPAR_WRITE_COMPRESSION, 6);
    QBR_writedata(task, gz.c_str());
    QBR_putintparam(task, QBR_IPAR_WRITE_COMPRESSION, 3);
    QBR_writedata(task, zst.c_str());
    Clock wmps = best(3, [&] { return QBR_writedata(task, out_mps.c_str()); });
    Clock wlp = best(3, [&] { return QBR_writedata(task, out_lp.c_str()); });
    Clock g = best(3, [&] { return QBR_readdata(task, gz.c_str()); });
    Clock z = best(3, [&] { return QBR_readdata(task, zst.c_str()); });
    std::printf("%-28s %8.1f %7.3f(%5.3f) %4.0f %8.3f(%7.3f) %8.3f(%7.3f) %6.3f(%5.3f) %6.3f(%5.3f) %10.1f\n",
                path.substr(path.rfind('/') + 1).c_str(), mb, plain.wall, plain.cpu, mb / plain.cpu, g.wall,
                g.cpu, z.wall, z.cpu, wmps.wall, wmps.cpu, wlp.wall, wlp.cpu, peak_kb() / 1024.0);
  }
  QBR_deletetask(&task);
  QBR_deleteenv(&env);
  return 0;
}
