#include "platform/stream.h"

#include <cstdlib>
#include <ctime>
#include <unistd.h>
#include <pwd.h>

namespace qubor::platform {

Stream::~Stream() {
  std::lock_guard<std::mutex> lock(mutex_);
  close_file_locked(false);
}

void Stream::write(const char* text) {
  if (!text) return;
  std::lock_guard<std::mutex> lock(mutex_);
  if (func_) func_(handle_, text);
  if (file_) std::fputs(text, file_);
}

bool Stream::active() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return func_ != nullptr || file_ != nullptr;
}

void Stream::link_func(void* handle, StreamFunc func) {
  std::lock_guard<std::mutex> lock(mutex_);
  // Pending file output is flushed so that text written before the change stays in order.
  if (file_) std::fflush(file_);
  func_ = func;
  handle_ = func ? handle : nullptr;
}

void Stream::close_file_locked(bool write_closing_line) {
  if (!file_) return;
  if (write_closing_line) std::fprintf(file_, "\nFile closed: %s\n", now_text().c_str());
  std::fclose(file_);
  file_ = nullptr;
  file_name_.clear();
}

bool Stream::link_file(const char* filename, bool append) {
  std::lock_guard<std::mutex> lock(mutex_);
  close_file_locked(!append);
  std::FILE* f = std::fopen(filename, append ? "a" : "w");
  if (!f) return false;
  file_ = f;
  file_name_ = filename;
  std::string who = user_name();
  std::fprintf(f, append ? "\nFile reopened at %s" : "\nFile opened at %s", now_text().c_str());
  if (!who.empty()) std::fprintf(f, " by %s", who.c_str());
  std::fputs(".\n", f);
  return true;
}

void Stream::unlink_file() {
  std::lock_guard<std::mutex> lock(mutex_);
  close_file_locked(true);
}

std::string now_text() {
  std::time_t t = std::time(nullptr);
  std::tm tmv{};
  localtime_r(&t, &tmv);
  char buf[64];
  std::strftime(buf, sizeof buf, "%a %b %d %H:%M:%S %Y", &tmv);
  return buf;
}

std::string user_name() {
  if (const char* u = std::getenv("USER"); u && *u) return u;
  struct passwd pw;
  struct passwd* res = nullptr;
  char buf[1024];
  if (getpwuid_r(getuid(), &pw, buf, sizeof buf, &res) == 0 && res && res->pw_name) return res->pw_name;
  return "";
}

}  // namespace qubor::platform
