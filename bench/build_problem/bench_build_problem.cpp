// Builds a problem with many nonzeros in A through the C API and prints the time taken and the
// memory the task used on top of the input arrays.
//
//   bench_build_problem [mode] [nnz]
//     mode  colslice  whole columns with QBR_putacolslice (the reader's path)
//           aijlist   triplets with QBR_putaijlist64, in random order
//           aij       one element at a time with QBR_putaij, column by column
//           rows      whole rows with QBR_putarowslice
//     nnz   number of nonzeros (default 10 000 000), 10 per column, n = m = nnz / 10
//
// "cpu" is the process CPU time of the build (less sensitive to a busy machine than the wall
// time); "task memory" is the peak resident set during the build minus the resident set before it;
// "bare CSC" is 12 bytes per nonzero plus 8 per column pointer.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <random>
#include <string>
#include <vector>

#include "qubor.h"

namespace {

long status_kb(const char* key) {
  std::FILE* f = std::fopen("/proc/self/status", "r");
  if (!f) return 0;
  char line[256];
  long v = 0;
  while (std::fgets(line, sizeof line, f))
    if (std::strncmp(line, key, std::strlen(key)) == 0) v = std::strtol(line + std::strlen(key) + 1, nullptr, 10);
  std::fclose(f);
  return v;
}

void reset_peak() {
  if (std::FILE* f = std::fopen("/proc/self/clear_refs", "w")) {
    std::fputs("5", f);
    std::fclose(f);
  }
}

}  // namespace

int main(int argc, char** argv) {
  const std::string mode = argc > 1 ? argv[1] : "colslice";
  const long long nnz = argc > 2 ? std::atoll(argv[2]) : 10000000LL;
  const int per_col = 10;
  const auto n = static_cast<QBRint32t>(nnz / per_col), m = n;  // square: rows have the same shape
  std::mt19937 rng(7);
  std::uniform_int_distribution<QBRint32t> row(0, m - 1);
  std::vector<QBRint32t> ptrb(static_cast<size_t>(n)), ptre(static_cast<size_t>(n)), asub(static_cast<size_t>(nnz));
  std::vector<QBRint32t> sub2;
  std::vector<double> aval(static_cast<size_t>(nnz));
  for (QBRint32t j = 0; j < n; ++j) {
    ptrb[static_cast<size_t>(j)] = j * per_col;
    ptre[static_cast<size_t>(j)] = (j + 1) * per_col;
    for (int k = 0; k < per_col; ++k) {
      asub[static_cast<size_t>(j * per_col + k)] = row(rng);
      aval[static_cast<size_t>(j * per_col + k)] = 1.0 + k;
    }
  }
  if (mode == "aijlist" || mode == "aij") {
    sub2.resize(static_cast<size_t>(nnz));
    for (QBRint32t j = 0; j < n; ++j)
      for (int k = 0; k < per_col; ++k) sub2[static_cast<size_t>(j * per_col + k)] = j;
    if (mode == "aijlist")
      for (size_t k = asub.size() - 1; k > 0; --k) {  // random order
        const size_t r = std::uniform_int_distribution<size_t>(0, k)(rng);
        std::swap(asub[k], asub[r]);
        std::swap(sub2[k], sub2[r]);
      }
  }

  QBRenv_t env = nullptr;
  QBRtask_t task = nullptr;
  QBR_makeenv(&env, nullptr);
  QBR_maketask(env, 0, 0, &task);
  reset_peak();
  const long before = status_kb("VmRSS:");
  const auto t0 = std::chrono::steady_clock::now();
  const std::clock_t c0 = std::clock();
  QBRrescode r = QBR_appendcons(task, m);
  if (r == QBR_RES_OK) r = QBR_appendvars(task, n);
  if (mode == "colslice") {
    if (r == QBR_RES_OK) r = QBR_putacolslice(task, 0, n, ptrb.data(), ptre.data(), asub.data(), aval.data());
  } else if (mode == "rows") {
    if (r == QBR_RES_OK) r = QBR_putarowslice(task, 0, m, ptrb.data(), ptre.data(), asub.data(), aval.data());
  } else if (mode == "aijlist") {
    if (r == QBR_RES_OK) r = QBR_putaijlist64(task, nnz, asub.data(), sub2.data(), aval.data());
  } else {
    for (long long k = 0; k < nnz && r == QBR_RES_OK; ++k)
      r = QBR_putaij(task, asub[static_cast<size_t>(k)], sub2[static_cast<size_t>(k)], aval[static_cast<size_t>(k)]);
  }
  QBRint64t stored = 0;
  if (r == QBR_RES_OK) r = QBR_getnumanz64(task, &stored);
  if (r == QBR_RES_OK) r = QBR_commitchanges(task);  // compact CSC, as the optimizers read it
  const double secs = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
  const double cpu = static_cast<double>(std::clock() - c0) / CLOCKS_PER_SEC;
  const long peak = status_kb("VmHWM:");
  const double bare = (12.0 * static_cast<double>(stored) + 8.0 * (n + 1)) / (1024.0 * 1024.0);
  std::printf("mode %-8s nnz %lld stored %lld  time %.2f s (cpu %.2f s)  task memory %.0f MiB  bare CSC %.0f MiB  ratio %.2f  rc %d\n",
              mode.c_str(), nnz, static_cast<long long>(stored), secs, cpu, (peak - before) / 1024.0, bare,
              (peak - before) / 1024.0 / bare, r);
  QBR_deletetask(&task);
  QBR_deleteenv(&env);
  return r == QBR_RES_OK ? 0 : 1;
}
