#include "platform/text.h"

#include <chrono>
#include <cstdio>
#include <cstring>

namespace qubor::platform {

size_t copy_bounded(char* dst, size_t cap, const char* src) {
  if (!src) src = "";
  size_t n = std::strlen(src);
  if (!dst || cap == 0) return n;
  size_t k = n < cap - 1 ? n : cap - 1;
  std::memcpy(dst, src, k);
  dst[k] = '\0';
  return n;
}

std::string vformat(const char* fmt, va_list ap) {
  va_list ap2;
  va_copy(ap2, ap);
  char small[512];
  int n = std::vsnprintf(small, sizeof small, fmt, ap);
  std::string out;
  if (n < 0) {
    va_end(ap2);
    return out;
  }
  if (static_cast<size_t>(n) < sizeof small) {
    out.assign(small, static_cast<size_t>(n));
  } else {
    out.resize(static_cast<size_t>(n));
    std::vsnprintf(out.data(), out.size() + 1, fmt, ap2);
  }
  va_end(ap2);
  return out;
}

std::string format(const char* fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  std::string s = vformat(fmt, ap);
  va_end(ap);
  return s;
}

double wall_seconds() {
  using clock = std::chrono::steady_clock;
  return std::chrono::duration<double>(clock::now().time_since_epoch()).count();
}

}  // namespace qubor::platform
