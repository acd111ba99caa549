// Entry points: streams, echo, the progress callback and the response handler.
#include <cstdarg>
#include <cstdio>

#include "api/frame.h"
#include "platform/text.h"

using qubor::api::Env;
using qubor::api::Task;
namespace api = qubor::api;
namespace platform = qubor::platform;

namespace {

constexpr size_t kEchoMax = 4048;

bool valid_stream(QBRint32t s) { return s >= QBR_STREAM_LOG && s <= QBR_STREAM_WRN; }

QBRrescode bad_stream_task(Task& t) { return QBR_REPORT(t, QBR_RES_ERR_INVALID_STREAM); }

QBRrescode link_file(Task* t, Env& env, platform::Stream& s, const char* filename, QBRint32t append) {
  if (!filename) {
    return t ? QBR_REPORT(*t, QBR_RES_ERR_NULL_POINTER, "filename")
             : api::report_env(env, QBR_RES_ERR_NULL_POINTER, {"filename"});
  }
  if (s.link_file(filename, append != 0)) return QBR_RES_OK;
  return t ? QBR_REPORT(*t, QBR_RES_ERR_FILE_OPEN, filename) : api::report_env(env, QBR_RES_ERR_FILE_OPEN, {filename});
}

void echo_to(platform::Stream& s, const char* format, va_list ap) {
  if (!s.active() || !format) return;
  char buf[kEchoMax];
  std::vsnprintf(buf, sizeof buf, format, ap);
  s.write(buf);
}

}  // namespace

extern "C" {

QBRrescode QBR_linkfunctotaskstream(QBRtask_t task, QBRint32t whichstream, void* handle, QBRstreamfunc func) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    if (!valid_stream(whichstream)) return bad_stream_task(t);
    t.streams[static_cast<size_t>(whichstream)].link_func(handle, func);
    return QBR_RES_OK;
  });
}

QBRrescode QBR_linkfunctoenvstream(QBRenv_t env, QBRint32t whichstream, void* handle, QBRstreamfunc func) {
  return api::env_frame(env, [&](Env& e) -> QBRrescode {
    if (!valid_stream(whichstream)) return api::report_env(e, QBR_RES_ERR_INVALID_STREAM, {});
    e.streams[static_cast<size_t>(whichstream)].link_func(handle, func);
    return QBR_RES_OK;
  });
}

QBRrescode QBR_unlinkfuncfromtaskstream(QBRtask_t task, QBRint32t whichstream) {
  return QBR_linkfunctotaskstream(task, whichstream, nullptr, nullptr);
}

QBRrescode QBR_unlinkfuncfromenvstream(QBRenv_t env, QBRint32t whichstream) {
  return QBR_linkfunctoenvstream(env, whichstream, nullptr, nullptr);
}

QBRrescode QBR_linkfiletotaskstream(QBRtask_t task, QBRint32t whichstream, const char* filename, QBRint32t append) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    if (!valid_stream(whichstream)) return bad_stream_task(t);
    return link_file(&t, t.env, t.streams[static_cast<size_t>(whichstream)], filename, append);
  });
}

QBRrescode QBR_linkfiletoenvstream(QBRenv_t env, QBRint32t whichstream, const char* filename, QBRint32t append) {
  return api::env_frame(env, [&](Env& e) -> QBRrescode {
    if (!valid_stream(whichstream)) return api::report_env(e, QBR_RES_ERR_INVALID_STREAM, {});
    return link_file(nullptr, e, e.streams[static_cast<size_t>(whichstream)], filename, append);
  });
}

QBRrescode QBR_echotask(QBRtask_t task, QBRint32t whichstream, const char* format, ...) {
  va_list ap;
  va_start(ap, format);
  QBRrescode r = api::task_frame(task, [&](Task& t) -> QBRrescode {
    if (!valid_stream(whichstream)) return bad_stream_task(t);
    echo_to(t.streams[static_cast<size_t>(whichstream)], format, ap);
    return QBR_RES_OK;
  });
  va_end(ap);
  return r;
}

QBRrescode QBR_echoenv(QBRenv_t env, QBRint32t whichstream, const char* format, ...) {
  va_list ap;
  va_start(ap, format);
  QBRrescode r = api::env_frame(env, [&](Env& e) -> QBRrescode {
    if (!valid_stream(whichstream)) return api::report_env(e, QBR_RES_ERR_INVALID_STREAM, {});
    echo_to(e.streams[static_cast<size_t>(whichstream)], format, ap);
    return QBR_RES_OK;
  });
  va_end(ap);
  return r;
}

QBRrescode QBR_putcallbackfunc(QBRtask_t task, QBRcallbackfunc func, void* handle) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    t.callback = func;
    t.callback_handle = handle;
    return QBR_RES_OK;
  });
}

QBRrescode QBR_getcallbackfunc(QBRtask_t task, QBRcallbackfunc* func, void** handle) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    if (func) *func = t.callback;
    if (handle) *handle = t.callback_handle;
    return QBR_RES_OK;
  });
}

QBRrescode QBR_putresponsefunc(QBRtask_t task, QBRresponsefunc responsefunc, void* handle) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    t.response = responsefunc;
    t.response_handle = handle;
    return QBR_RES_OK;
  });
}

}  // extern "C"
