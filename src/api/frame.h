// The call frame of every exported function.
//
//   extern "C" QBRrescode QBR_putcj(QBRtask_t task, QBRint32t j, QBRrealt cj) {
//     return api::task_frame(task, [&](Task& t) {
//       QBR_CHECK(api::check_index(t, api::IndexKind::kVariable, "j", j));
//       return put_cj(t, j, cj);
//     });
//   }
//
// Order of checks: the handle (null gives QBR_RES_ERR_NULL_TASK, a cleared validity word
// QBR_RES_ERR_INVALID_TASK; both returned silently, nothing reported or written), then the
// body's index checks, value checks and work. Exceptions never cross the C boundary:
// std::bad_alloc becomes QBR_RES_ERR_SPACE and anything else QBR_RES_ERR_INTERNAL, both
// reported on the task.
#pragma once

#include <cstdint>
#include <new>

#include "platform/memory.h"
#include "qubor.h"
#include "task/report.h"
#include "task/task.h"

namespace qubor::api {

using task::Env;
using task::Task;

// Returns from the enclosing function when `expr` gives a nonzero response code.
#define QBR_CHECK(expr)                     \
  do {                                      \
    const QBRrescode qbr_r_ = (expr);       \
    if (qbr_r_ != QBR_RES_OK) return qbr_r_; \
  } while (0)

inline Task* task_of(QBRtask_t h) {
  return (h && h->validity == QBRtask_s::kAlive) ? h->impl : nullptr;
}

// `file` and `line` default to the exported function's own place (the builtins take the
// caller's position in a default argument, with every compiler the project builds with).
template <class F>
QBRrescode task_frame(QBRtask_t h, F&& body,
                      const char* file = __builtin_FILE(), int line = __builtin_LINE()) {
  if (!h) return QBR_RES_ERR_NULL_TASK;
  if (h->validity != QBRtask_s::kAlive || !h->impl) return QBR_RES_ERR_INVALID_TASK;
  Task& t = *h->impl;
  platform::SourceScope scope(file, line);
  try {
    return body(t);
  } catch (const std::bad_alloc&) {
    return QBR_REPORT(t, QBR_RES_ERR_SPACE);
  } catch (...) {
    return QBR_REPORT(t, QBR_RES_ERR_INTERNAL);
  }
}

// Environment-level reporting: the message goes to the environment's error stream.
QBRrescode report_env(Env& env, QBRrescode code, std::initializer_list<task::MsgArg> args);

template <class F>
QBRrescode env_frame(QBRenv_t env, F&& body,
                     const char* file = __builtin_FILE(), int line = __builtin_LINE()) {
  if (!env) return QBR_RES_ERR_NULL_ENV;
  platform::SourceScope scope(file, line);
  try {
    return body(*env);
  } catch (const std::bad_alloc&) {
    return report_env(*env, QBR_RES_ERR_SPACE, {});
  } catch (...) {
    return report_env(*env, QBR_RES_ERR_INTERNAL, {});
  }
}

enum class IndexKind { kVariable, kConstraint, kCone };

// Index check against the current count of its kind: 1203 below 0, 1204 at or above the count.
QBRrescode check_index(Task& t, IndexKind kind, const char* argname, int64_t index);
// Required pointer argument: QBR_RES_ERR_NULL_POINTER naming the argument.
QBRrescode check_ptr(Task& t, const void* p, const char* argname);

}  // namespace qubor::api
