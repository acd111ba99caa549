// Log text of the interior-point optimizer; see ip_log.h.
#include "interior/ip_log.h"

#include <cmath>
#include <cstdio>

#include "interior/lp_problem.h"

namespace qubor::interior {
namespace {

constexpr int kGroupWidth = 9;
constexpr int kLabelWidth = 22;
constexpr int kValueWidth = 10;

// A count: an integer up to 10000 in magnitude, otherwise exponent notation.
void format_count(double v, char* buf, size_t size) {
  if (std::fabs(v) <= 10000.0)
    std::snprintf(buf, size, "%lld", static_cast<long long>(std::llround(v)));
  else
    std::snprintf(buf, size, "%.2e", v);
}

}  // namespace

void log_pair(const linalg::LogSink* sink, const char* group, const char* l1, double v1,
              const char* l2, double v2) {
  linalg::log_printf(sink, 1, "%*s - %*s : %-*.2f  %*s : %-*.2f\n", -kGroupWidth, group,
                     -kLabelWidth, l1, kValueWidth, v1, -kLabelWidth, l2, kValueWidth, v2);
}

void log_pair_count(const linalg::LogSink* sink, const char* group, const char* l1, double v1,
                    const char* l2, double v2) {
  char a[64], b[64];
  format_count(v1, a, sizeof a);
  format_count(v2, b, sizeof b);
  log_pair_text(sink, group, l1, a, l2, b);
}

void log_pair_text(const linalg::LogSink* sink, const char* group, const char* l1,
                   const char* v1, const char* l2, const char* v2) {
  if (l2 == nullptr)
    linalg::log_printf(sink, 1, "%*s - %*s : %s\n", -kGroupWidth, group, -kLabelWidth, l1, v1);
  else
    linalg::log_printf(sink, 1, "%*s - %*s : %-*s  %*s : %-*s\n", -kGroupWidth, group,
                       -kLabelWidth, l1, kValueWidth, v1, -kLabelWidth, l2, kValueWidth, v2);
}

void log_iteration_header(const linalg::LogSink* sink) {
  linalg::log_printf(sink, 1, "%-3s %-8s %-8s %-8s %-10s %-17s %-17s %-8s %-6s\n", "ITE",
                     "PFEAS", "DFEAS", "GFEAS", "PRSTATUS", "POBJ", "DOBJ", "MU", "TIME");
}

void log_iteration(const linalg::LogSink* sink, const IterationLine& l) {
  linalg::log_printf(sink, 1, "%-3d %-8.1e %-8.1e %-8.1e %-10.2e %-17.9e %-17.9e %-8.1e %-6.2f\n",
                     l.iter, l.pfeas, l.dfeas, l.gfeas, l.prstatus, l.pobj, l.dobj, l.mu, l.time);
}

std::string problem_status_name(int32_t code) {
  static const char* const kNames[] = {"UNKNOWN", "PDFEAS",  "PFEAS",  "DFEAS",
                                       "PINFEAS", "DINFEAS", "PDINFE", "ILLPOSED"};
  if (code >= 0 && code <= 7) return kNames[code];
  char buf[48];
  std::snprintf(buf, sizeof buf, "UNKNOWN STATUS(%d)", code);
  return buf;
}

const char* solution_status_name(int32_t code) {
  switch (code) {
    case 0: return "UNKNOWN";
    case 1: return "OPTIMAL";
    case 2: return "PRIFEAS";
    case 3: return "DUAFEAS";
    case 5: return "PRIINFEASCER";
    case 6: return "DUAINFEASCER";
    case 8: return "NEAR_OPTIMAL";
    case 12: return "NEARPRIINFEASCER";
    case 13: return "NEARDUAINFEASCER";
    default: return "UNDEFINED";
  }
}

const char* termination_name(int32_t code) {
  switch (code) {
    case 0: return "NORMAL";
    case 1: return "OUT OF SPACE";
    case 2: return "OUT OF REAL WORKSPACE";
    case 3: return "OUT OF INTEGER WORK SPACE";
    case 4: return "MAX ITERATIONS";
    case 5: return "MAX TIME";
    case 6: return "USER BREAK";
    case 8: return "STALLED";
    case 9: return "NUMERICAL INSTABILITY";
    case 10: return "FACTOR ERROR";
    case 11: return "FUNCTION EVALUATION ERROR";
    case 12: return "ERROR";
    case 15: return "OPTIMAL OBJECTIVE VALUE IS OUTSIDE ITS RANGE";
    case 18: return "MODEL ERROR";
    case 26: return "SINGULAR BASIS";
    case 33: return "STOPPED BY USER CALLBACK";
    default: return "UNKNOWN ERROR";
  }
}

}  // namespace qubor::interior
