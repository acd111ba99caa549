// printf-style helper over LogSink; see log_sink.h.
#include "linalg/common/log_sink.h"

#include <cstdio>

namespace qubor::linalg {

void log_vprintf(const LogSink* sink, int level, const char* format, va_list args) {
  if (!log_enabled(sink, level)) return;
  char buffer[1024];
  std::vsnprintf(buffer, sizeof(buffer), format, args);
  sink->write(sink->handle, buffer);
}

void log_printf(const LogSink* sink, int level, const char* format, ...) {
  if (!log_enabled(sink, level)) return;
  va_list args;
  va_start(args, format);
  log_vprintf(sink, level, format, args);
  va_end(args);
}

}  // namespace qubor::linalg
