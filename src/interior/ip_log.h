// Text of the interior-point log: the factor summary, the iteration table and the names of
// the statuses and termination codes.
#pragma once

#include <cstdint>

#include "linalg/common/log_sink.h"

namespace qubor::interior {

// One line of a statistics table: "<group> - <label1> : <value1>  <label2> : <value2>".
void log_pair(const linalg::LogSink* sink, const char* group, const char* l1, double v1,
              const char* l2, double v2);
void log_pair_count(const linalg::LogSink* sink, const char* group, const char* l1, double v1,
                    const char* l2, double v2);
void log_pair_text(const linalg::LogSink* sink, const char* group, const char* l1,
                   const char* v1, const char* l2, const char* v2);

struct IterationLine {
  int32_t iter = 0;
  double pfeas = 0, dfeas = 0, gfeas = 0, prstatus = 0, pobj = 0, dobj = 0, mu = 0, time = 0;
};

void log_iteration_header(const linalg::LogSink* sink);
void log_iteration(const linalg::LogSink* sink, const IterationLine& line);

}  // namespace qubor::interior
