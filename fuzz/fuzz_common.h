// Shared pieces of the fuzz targets: one environment for the whole run, and the input in a
// file of the process's own under a given suffix.
#pragma once

#include <unistd.h>

#include <cstdio>
#include <string>

#include "qubor.h"

inline QBRenv_t fuzz_env() {
  static QBRenv_t env = [] {
    QBRenv_t e = nullptr;
    return QBR_makeenv(&e, nullptr) == QBR_RES_OK ? e : nullptr;
  }();
  return env;
}

// A file name private to this process, ending in `suffix`.
inline std::string fuzz_path(const char* suffix) {
  return "/tmp/qubor_fuzz_" + std::to_string(getpid()) + suffix;
}

// Writes the input to `path`; false when the file cannot be written.
inline bool fuzz_input_file(const std::string& path, const unsigned char* data, size_t size) {
  FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) return false;
  std::fwrite(data, 1, size, f);
  return std::fclose(f) == 0;
}

// The whole content of the file at `path` ("" when it cannot be read).
inline std::string fuzz_read_file(const std::string& path) {
  std::string s;
  FILE* f = std::fopen(path.c_str(), "rb");
  if (!f) return s;
  char buf[4096];
  for (size_t n; (n = std::fread(buf, 1, sizeof buf, f)) > 0;) s.append(buf, n);
  std::fclose(f);
  return s;
}
