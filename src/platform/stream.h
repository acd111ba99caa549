// An output stream of an environment or a task.
//
// Text written to a stream goes to the linked function (with its user handle) and to the
// linked file, each when present. A stream is safe to write from several threads: every
// operation holds the stream's mutex.
#pragma once

#include <cstdio>
#include <mutex>
#include <string>

namespace qubor::platform {

using StreamFunc = void (*)(void* handle, const char* text);

class Stream {
 public:
  Stream() = default;
  ~Stream();
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;

  void write(const char* text);
  bool active() const;

  void link_func(void* handle, StreamFunc func);
  // Opens `filename` for the stream (appending when `append`), closing any file linked before.
  // Returns false when the file cannot be opened; the stream then has no file.
  bool link_file(const char* filename, bool append);
  void unlink_file();

 private:
  void close_file_locked(bool write_closing_line);

  mutable std::mutex mutex_;
  StreamFunc func_ = nullptr;
  void* handle_ = nullptr;
  std::FILE* file_ = nullptr;
  std::string file_name_;
};

// "Sun Nov 22 00:39:47 2026" style local date and time, without a line break.
std::string now_text();
// The name of the user running the process, or "" when it is not known.
std::string user_name();

}  // namespace qubor::platform
