// The task: one optimization problem with its parameter values, streams, callbacks,
// information items, warning counters and last-error record. All its storage comes from the
// owning environment's memory manager.
#pragma once

#include <array>
#include <cstdint>
#include <memory_resource>
#include <string>
#include <vector>

#include "platform/stream.h"
#include "qubor.h"
#include "task/env.h"
#include "task/problem.h"
#include "task/solution.h"
#include "task/tables.h"

namespace qubor::task {

struct ParamValues {
  explicit ParamValues(std::pmr::memory_resource* mem)
      : ints(kNumIntParams, 0, mem), dous(kNumDouParams, 0.0, mem), strs(mem) {
    strs.reserve(kNumStrParams);
    strs.resize(kNumStrParams);
  }
  std::pmr::vector<int32_t> ints;
  std::pmr::vector<double> dous;
  std::pmr::vector<std::pmr::string> strs;
};

struct InfoValues {
  explicit InfoValues(std::pmr::memory_resource* mem)
      : dou(kNumDouInfo, 0.0, mem), ints(kNumIntInfo, 0, mem), lint(kNumLintInfo, 0, mem) {}
  std::pmr::vector<double> dou;
  std::pmr::vector<int32_t> ints;
  std::pmr::vector<int64_t> lint;
};

struct LastError {
  explicit LastError(std::pmr::memory_resource* mem) : message(mem) {}
  int32_t code = 0;
  std::pmr::string message;
};

struct Task {
  explicit Task(Env& env);

  Env& env;
  QBRtask_t handle = nullptr;  // the handle the callbacks receive
  std::pmr::memory_resource* mem;
  Problem problem;
  ParamValues params;
  std::array<int32_t, 1000> warning_counts{};
  QBRcallbackfunc callback = nullptr;
  void* callback_handle = nullptr;
  QBRresponsefunc response = nullptr;
  void* response_handle = nullptr;
  std::array<platform::Stream, 4> streams;
  LastError last_error;
  InfoValues info;
  SolutionStore solutions{mem};
  struct { int32_t calls = 0, stored_trm = 0; double start = 0, end = 0; } optimize;  // driver state

  int32_t ipar(int index) const { return params.ints[static_cast<size_t>(index)]; }
  double dpar(int index) const { return params.dous[static_cast<size_t>(index)]; }
  const std::pmr::string& spar(int index) const { return params.strs[static_cast<size_t>(index)]; }

  void set_defaults();
  void echo(int stream, const char* text) { streams[static_cast<size_t>(stream)].write(text); }
  bool log_on() const { return ipar(QBR_IPAR_LOG) >= 1; }
  // printf-style line on a stream, cut at 4048 bytes; nothing is formatted when the stream
  // has neither function nor file.
  void printf(int stream, const char* fmt, ...) __attribute__((format(printf, 3, 4)));

  // Internal setters of the information items, for the optimizers and readers.
  void set_dinf(int i, double v) { info.dou[static_cast<size_t>(i)] = v; }
  void set_iinf(int i, int32_t v) { info.ints[static_cast<size_t>(i)] = v; }
  void set_liinf(int i, int64_t v) { info.lint[static_cast<size_t>(i)] = v; }
  // Invokes the progress callback; true when it asks to stop.
  bool progress(int32_t caller);
};

}  // namespace qubor::task

// The handle behind QBRtask_t: a validity word first, then the task itself.
struct QBRtask_s {
  static constexpr uint32_t kAlive = 0x51425254u;  // "QBRT"
  uint32_t validity = 0;
  qubor::task::Task* impl = nullptr;
  QBRenv_s* env = nullptr;
};
