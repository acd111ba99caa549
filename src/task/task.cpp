#include "task/task.h"

#include <cstdarg>
#include <cstdio>

namespace qubor::task {

Task::Task(Env& e)
    : env(e), mem(&e.memory), problem(mem), params(mem), last_error(mem), info(mem) {
  set_defaults();
}

void Task::set_defaults() {
  for (int i = 0; i < kNumIntParams; ++i) params.ints[static_cast<size_t>(i)] = int_param(i).default_value;
  for (int i = 0; i < kNumDouParams; ++i) params.dous[static_cast<size_t>(i)] = dou_param(i).default_value;
  for (int i = 0; i < kNumStrParams; ++i) params.strs[static_cast<size_t>(i)].assign(str_param(i).default_value);
}

void Task::printf(int stream, const char* fmt, ...) {
  auto& s = streams[static_cast<size_t>(stream)];
  if (!s.active()) return;
  char buf[4048];
  va_list ap;
  va_start(ap, fmt);
  std::vsnprintf(buf, sizeof buf, fmt, ap);
  va_end(ap);
  s.write(buf);
}

bool Task::progress(int32_t caller) {
  if (!callback) return false;
  return callback(handle, callback_handle, caller, info.dou.data(), info.ints.data(), info.lint.data()) != 0;
}

}  // namespace qubor::task
