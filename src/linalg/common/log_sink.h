// Log sink of the linear-algebra module.
//
// The module never writes to stdout or stderr. Every line of text goes through a LogSink,
// which the caller (an optimizer) routes to its own log stream. A null sink, a sink without
// a write function, or a message above the sink's level is silently dropped.
//
// Levels: 1 = normal progress lines, 2 = detailed statistics, 3+ = debugging output.
#pragma once

#include <cstdarg>

namespace qubor::linalg {

struct LogSink {
  void (*write)(void* handle, const char* text) = nullptr;
  void* handle = nullptr;
  int level = 1;
};

// printf-style formatting into a 1024-byte buffer, then one call of sink->write.
// Longer lines are truncated. Safe with sink == nullptr.
void log_printf(const LogSink* sink, int level, const char* format, ...)
    __attribute__((format(printf, 3, 4)));
void log_vprintf(const LogSink* sink, int level, const char* format, va_list args);

inline bool log_enabled(const LogSink* sink, int level) {
  return sink != nullptr && sink->write != nullptr && sink->level >= level;
}

}  // namespace qubor::linalg
