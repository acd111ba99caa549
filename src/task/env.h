// The environment: memory manager, thread set-up, exit function and the environment streams.
// Parameter tables are static (tables.h); the environment hands them to its tasks.
#pragma once

#include <array>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "platform/memory.h"
#include "platform/stream.h"
#include "qubor.h"

struct QBRenv_s {
  static constexpr uint32_t kAlive = 0x51425245u;  // "QBRE"

  QBRenv_s(const qubor::platform::UserAllocator& user, const char* dbgfile);
  ~QBRenv_s();

  uint32_t validity = kAlive;
  qubor::platform::MemoryManager memory;
  std::string debug_file;  // empty when memory debugging is off
  // Below 1: not settled yet; a negative value asks for exactly its absolute value.
  int32_t num_threads = 0;
  int32_t num_processors = 1;
  std::mutex thread_mutex;
  QBRexitfunc exit_func = nullptr;
  void* exit_handle = nullptr;
  std::array<qubor::platform::Stream, 4> streams;
  int64_t living_tasks = 0;
  // Shells of deleted tasks: a stale handle keeps pointing at a zeroed validity word until
  // the environment goes, so using it gives "invalid task" instead of undefined behaviour.
  std::vector<struct QBRtask_s*> retired_shells;

  void echo(int stream, const char* text) { streams[static_cast<size_t>(stream)].write(text); }
};

namespace qubor::task {
using Env = QBRenv_s;
}
