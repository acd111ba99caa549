// Clocks and memory readings of the running process, shared by the benchmark programs.
#pragma once

#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <ctime>

namespace qubor_bench {

struct Clock {
  double wall, cpu;
};

inline Clock now() {
  timespec ts;
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
  return {std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count(),
          static_cast<double>(ts.tv_sec) + 1e-9 * static_cast<double>(ts.tv_nsec)};
}

// Resident size now and the peak so far, in KiB.
inline long resident_kib() {
  long pages = 0, resident = 0;
  if (FILE* f = std::fopen("/proc/self/statm", "r")) {
    if (std::fscanf(f, "%ld %ld", &pages, &resident) != 2) resident = 0;
    std::fclose(f);
  }
  return resident * 4;
}
inline long peak_kib() {
  rusage ru{};
  getrusage(RUSAGE_SELF, &ru);
  return ru.ru_maxrss;
}

}  // namespace qubor_bench
