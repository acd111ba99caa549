// Small text helpers shared by the library: bounded copies into caller buffers and
// printf-style formatting into fixed buffers. Buffers handed out by the interface hold at
// most kMaxStr bytes including the terminating zero.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <string>

namespace qubor::platform {

inline constexpr size_t kMaxStr = 1024;

// Copies src into dst of capacity cap (including the zero), cutting when needed.
// Does nothing when dst is null or cap is 0. Returns the length of src.
size_t copy_bounded(char* dst, size_t cap, const char* src);

// vsnprintf into a std::string, without limit.
std::string vformat(const char* fmt, va_list ap);
std::string format(const char* fmt, ...) __attribute__((format(printf, 1, 2)));

double wall_seconds();

}  // namespace qubor::platform
