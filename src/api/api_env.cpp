// Entry points: environment and task life cycle, memory, versions, threads, last error.
#include <cmath>
#include <cstring>
#include <mutex>
#include <new>

#include "api/frame.h"
#include "platform/text.h"

using qubor::api::Env;
using qubor::api::Task;
namespace api = qubor::api;
namespace platform = qubor::platform;

namespace {

QBRrescode make_env(QBRenv_t* env, const platform::UserAllocator& user, const char* dbgfile) {
  if (!env) return QBR_RES_ERR_NULL_POINTER;
  *env = nullptr;
  // The environment object itself comes from the user's allocator when there is one.
  void* mem = user.complete() ? user.malloc_fn(user.usrptr, sizeof(Env)) : ::operator new(sizeof(Env), std::nothrow);
  if (!mem) return QBR_RES_ERR_SPACE;
  try {
    *env = new (mem) Env(user, dbgfile);
  } catch (...) {
    if (user.complete())
      user.free_fn(user.usrptr, mem);
    else
      ::operator delete(mem);
    return QBR_RES_ERR_SPACE;
  }
  return QBR_RES_OK;
}

// Creates a task shell and task through the environment's memory manager.
QBRrescode make_task(Env& env, QBRint32t maxnumcon, QBRint32t maxnumvar, QBRtask_t* out) {
  if (!out) return api::report_env(env, QBR_RES_ERR_NULL_POINTER, {"task"});
  *out = nullptr;
  if (maxnumcon < 0) return api::report_env(env, QBR_RES_ERR_MAXNUMCON, {maxnumcon});
  if (maxnumvar < 0) return api::report_env(env, QBR_RES_ERR_MAXNUMVAR, {maxnumvar});
  std::pmr::polymorphic_allocator<std::byte> alloc(&env.memory);
  QBRtask_s* shell = alloc.new_object<QBRtask_s>();
  Task* t = nullptr;
  try {
    t = alloc.new_object<Task>(env);
  } catch (...) {
    alloc.delete_object(shell);
    throw;
  }
  t->handle = shell;
  t->problem.reserve(maxnumcon, maxnumvar);
  shell->impl = t;
  shell->env = &env;
  shell->validity = QBRtask_s::kAlive;
  ++env.living_tasks;
  *out = shell;
  return QBR_RES_OK;
}

}  // namespace

extern "C" {

QBRrescode QBR_makeenv(QBRenv_t* env, const char* dbgfile) { return make_env(env, {}, dbgfile); }

QBRrescode QBR_makeenvalloc(QBRenv_t* env, void* usrptr, QBRmallocfunc usrmalloc,
                            QBRcallocfunc usrcalloc, QBRreallocfunc usrrealloc, QBRfreefunc usrfree,
                            const char* dbgfile) {
  platform::UserAllocator user{usrptr, usrmalloc, usrcalloc, usrrealloc, usrfree};
  // All four functions or none: a partial set would mix allocators for one block.
  if (!user.complete() && (usrmalloc || usrcalloc || usrrealloc || usrfree)) {
    if (env) *env = nullptr;
    return QBR_RES_ERR_NULL_POINTER;
  }
  return make_env(env, user, dbgfile);
}

QBRrescode QBR_deleteenv(QBRenv_t* env) {
  if (!env || !*env) return QBR_RES_ERR_NULL_ENV;
  Env* e = *env;
  // Tasks live in the environment's memory; it stays until the last of them is deleted.
  if (e->living_tasks > 0) return api::report_env(*e, QBR_RES_ERR_LIVING_TASKS, {});
  {
    std::pmr::polymorphic_allocator<std::byte> alloc(&e->memory);
    for (QBRtask_s* s : e->retired_shells) alloc.delete_object(s);
    e->retired_shells.clear();
    e->retired_shells.shrink_to_fit();
  }
  platform::UserAllocator user = e->memory.user();
  e->~Env();
  if (user.complete())
    user.free_fn(user.usrptr, e);
  else
    ::operator delete(e);
  *env = nullptr;
  return QBR_RES_OK;
}

QBRrescode QBR_maketask(QBRenv_t env, QBRint32t maxnumcon, QBRint32t maxnumvar, QBRtask_t* task) {
  return api::env_frame(env, [&](Env& e) -> QBRrescode { return make_task(e, maxnumcon, maxnumvar, task); });
}

QBRrescode QBR_makeemptytask(QBRenv_t env, QBRtask_t* task) {
  return api::env_frame(env, [&](Env& e) -> QBRrescode { return make_task(e, 0, 0, task); });
}

QBRrescode QBR_deletetask(QBRtask_t* task) {
  if (!task || !*task) return QBR_RES_ERR_NULL_TASK;
  QBRtask_s* shell = *task;
  if (shell->validity != QBRtask_s::kAlive || !shell->impl) return QBR_RES_ERR_INVALID_TASK;
  Env& env = *shell->env;
  std::pmr::polymorphic_allocator<std::byte> alloc(&env.memory);
  alloc.delete_object(shell->impl);
  shell->impl = nullptr;
  shell->validity = 0;
  try {
    env.retired_shells.push_back(shell);
  } catch (...) {
    alloc.delete_object(shell);
  }
  --env.living_tasks;
  *task = nullptr;
  return QBR_RES_OK;
}

QBRrescode QBR_clonetask(QBRtask_t task, QBRtask_t* clonedtask) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(api::check_ptr(t, clonedtask, "clonedtask"));
    *clonedtask = nullptr;
    QBRtask_t out = nullptr;
    QBR_CHECK(make_task(t.env, 0, 0, &out));
    Task& c = *out->impl;
    try {
      c.problem = t.problem;
      c.solutions = t.solutions;
      c.params.ints = t.params.ints;
      c.params.dous = t.params.dous;
      for (size_t i = 0; i < c.params.strs.size(); ++i) c.params.strs[i] = t.params.strs[i];
    } catch (...) {
      QBR_deletetask(&out);
      throw;
    }
    *clonedtask = out;
    return QBR_RES_OK;
  });
}

void* QBR_calloctask(QBRtask_t task, size_t number, size_t size) {
  Task* t = api::task_of(task);
  return t ? t->env.memory.calloc_block(number, size, __FILE__, __LINE__) : nullptr;
}

void* QBR_callocenv(QBRenv_t env, size_t number, size_t size) {
  return env ? env->memory.calloc_block(number, size, __FILE__, __LINE__) : nullptr;
}

void* QBR_callocdbgtask(QBRtask_t task, size_t number, size_t size, const char* file, unsigned line) {
  Task* t = api::task_of(task);
  return t ? t->env.memory.calloc_block(number, size, file, static_cast<int>(line)) : nullptr;
}

void* QBR_callocdbgenv(QBRenv_t env, size_t number, size_t size, const char* file, unsigned line) {
  return env ? env->memory.calloc_block(number, size, file, static_cast<int>(line)) : nullptr;
}

void QBR_freetask(QBRtask_t task, void* buffer) {
  if (Task* t = api::task_of(task)) t->env.memory.free_block(buffer);
}

void QBR_freeenv(QBRenv_t env, void* buffer) {
  if (env) env->memory.free_block(buffer);
}

void QBR_freedbgtask(QBRtask_t task, void* buffer, const char*, unsigned) { QBR_freetask(task, buffer); }

void QBR_freedbgenv(QBRenv_t env, void* buffer, const char*, unsigned) { QBR_freeenv(env, buffer); }

char* QBR_strduptask(QBRtask_t task, const char* str) {
  Task* t = api::task_of(task);
  return (t && str) ? t->env.memory.strdup_block(str, __FILE__, __LINE__) : nullptr;
}

char* QBR_strdupdbgtask(QBRtask_t task, const char* str, const char* file, unsigned line) {
  Task* t = api::task_of(task);
  return (t && str) ? t->env.memory.strdup_block(str, file, static_cast<int>(line)) : nullptr;
}

QBRrescode QBR_checkmemtask(QBRtask_t task, const char* file, QBRint32t line) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    auto emit = [](void* h, const char* s) { static_cast<Task*>(h)->echo(QBR_STREAM_LOG, s); };
    t.env.memory.report(file, line, emit, &t);
    if (!t.env.debug_file.empty()) {
      std::string name = t.env.debug_file + ".task.txt";
      if (std::FILE* f = std::fopen(name.c_str(), "a")) {
        t.env.memory.report(file, line, [](void* h, const char* s) { std::fputs(s, static_cast<std::FILE*>(h)); }, f);
        std::fclose(f);
      }
    }
    return QBR_RES_OK;
  });
}

QBRrescode QBR_checkmemenv(QBRenv_t env, const char* file, QBRint32t line) {
  return api::env_frame(env, [&](Env& e) -> QBRrescode {
    e.memory.report(file, line, [](void* h, const char* s) { static_cast<Env*>(h)->echo(QBR_STREAM_LOG, s); }, &e);
    if (!e.debug_file.empty()) {
      std::string name = e.debug_file + ".env.txt";
      if (std::FILE* f = std::fopen(name.c_str(), "a")) {
        e.memory.report(file, line, [](void* h, const char* s) { std::fputs(s, static_cast<std::FILE*>(h)); }, f);
        std::fclose(f);
      }
    }
    return QBR_RES_OK;
  });
}

QBRrescode QBR_getversion(QBRint32t* major, QBRint32t* minor, QBRint32t* revision) {
  if (major) *major = QBR_VERSION_MAJOR;
  if (minor) *minor = QBR_VERSION_MINOR;
  if (revision) *revision = QBR_VERSION_REVISION;
  return QBR_RES_OK;
}

QBRrescode QBR_checkversion(QBRenv_t, QBRint32t major, QBRint32t minor, QBRint32t revision) {
  const QBRint32t have[3] = {QBR_VERSION_MAJOR, QBR_VERSION_MINOR, QBR_VERSION_REVISION};
  const QBRint32t want[3] = {major, minor, revision};
  for (int i = 0; i < 3; ++i) {
    if (want[i] > have[i]) return QBR_RES_ERR_OLDER_DLL;
    if (want[i] < have[i]) return QBR_RES_ERR_NEWER_DLL;
  }
  return QBR_RES_OK;
}

QBRrescode QBR_setupthreads(QBRenv_t env, QBRint32t numthreads) {
  return api::env_frame(env, [&](Env& e) -> QBRrescode {
    std::unique_lock<std::mutex> lock(e.thread_mutex, std::try_to_lock);
    if (!lock.owns_lock()) lock.lock();
    if (e.num_threads < 1) {
      if (e.num_threads < 0)
        e.num_threads = -e.num_threads;
      else
        e.num_threads = numthreads >= 1 ? numthreads : e.num_processors;
    }
    return QBR_RES_OK;
  });
}

QBRrescode QBR_putexitfunc(QBRenv_t env, QBRexitfunc exitfunc, void* handle) {
  if (!env) return QBR_RES_ERR_NULL_ENV;
  env->exit_func = exitfunc;
  env->exit_handle = handle;
  return QBR_RES_OK;
}

QBRbooleant QBR_isinfinity(QBRrealt value) { return value >= QBR_INFINITY ? 1 : 0; }

QBRrescode QBR_getlasterror(QBRtask_t task, QBRrescode* lastrescode, QBRint32t sizelastmsg,
                            QBRint32t* lastmsglen, char* lastmsg) {
  QBRint64t len64 = 0;
  QBRrescode r = QBR_getlasterror64(task, lastrescode, sizelastmsg, lastmsglen ? &len64 : nullptr, lastmsg);
  if (lastmsglen) *lastmsglen = static_cast<QBRint32t>(len64 > INT32_MAX ? INT32_MAX : len64);
  return r;
}

QBRrescode QBR_getlasterror64(QBRtask_t task, QBRrescode* lastrescode, QBRint64t sizelastmsg,
                              QBRint64t* lastmsglen, char* lastmsg) {
  // The handle is not checked; a null or deleted task simply has no last error to give.
  Task* t = api::task_of(task);
  if (!t) return QBR_RES_OK;
  if (lastrescode) *lastrescode = t->last_error.code;
  if (lastmsglen) *lastmsglen = static_cast<QBRint64t>(t->last_error.message.size()) + 1;
  if (lastmsg && sizelastmsg > 0)
    platform::copy_bounded(lastmsg, static_cast<size_t>(sizelastmsg), t->last_error.message.c_str());
  return QBR_RES_OK;
}

}  // extern "C"
