// Reporting of warnings and errors.
//
// Every warning and error is raised through report(), which formats the code's message
// template with the given arguments, hands the message to the task's response handler or
// prints the line "QUBOR error <code>: <message>" (or "QUBOR warning ...") on the task's error
// or warning stream, keeps the per-code warning counters and QBR_IPAR_MAX_NUM_WARNINGS, fills
// the last-error record and returns the code that the calling function must return: the code
// itself for errors; for warnings 0, unless the response handler asked to stop.
//
// Template placeholders: "%s" string, "%i" 32-bit integer, "%l" 64-bit integer, "%{wjp}e"
// double in exponent form, "%%" a percent sign.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>

#include "platform/memory.h"
#include "qubor.h"

namespace qubor::task {

struct Task;

struct MsgArg {
  enum Kind { kStr, kInt, kDouble } kind;
  const char* s = nullptr;
  int64_t i = 0;
  double d = 0.0;
  MsgArg(const char* v) : kind(kStr), s(v ? v : "") {}
  MsgArg(const std::string& v) : kind(kStr), s(v.c_str()) {}
  MsgArg(int32_t v) : kind(kInt), i(v) {}
  MsgArg(int64_t v) : kind(kInt), i(v) {}
  MsgArg(uint32_t v) : kind(kInt), i(v) {}
  MsgArg(size_t v) : kind(kInt), i(static_cast<int64_t>(v)) {}
  MsgArg(double v) : kind(kDouble), d(v) {}
};

// Fills the template of `code` (or its description when it has none) with `args`.
std::string format_message(int32_t code, std::initializer_list<MsgArg> args);
std::string format_template(const char* tmpl, std::initializer_list<MsgArg> args);

QBRrescode report_at(Task& task, QBRrescode code, platform::SourcePos pos,
                     std::initializer_list<MsgArg> args);

}  // namespace qubor::task

// Raises `code` on `task` with the template arguments that follow; evaluates to the code the
// caller returns.
#define QBR_REPORT(tsk_, code_, ...) \
  ::qubor::task::report_at((tsk_), (code_), ::qubor::platform::SourcePos{__FILE__, __LINE__}, {__VA_ARGS__})
