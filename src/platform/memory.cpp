#include "platform/memory.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <vector>
#include <algorithm>

namespace qubor::platform {

namespace {
thread_local SourcePos tl_pos{"", 0};
// Blocks are aligned to max_align_t; larger alignments are not requested by the library.
constexpr size_t kAlign = alignof(std::max_align_t);
}  // namespace

SourceScope::SourceScope(const char* file, int line) : saved_(tl_pos) { tl_pos = {file, line}; }
SourceScope::~SourceScope() { tl_pos = saved_; }
SourcePos SourceScope::current() { return tl_pos; }

MemoryManager::MemoryManager(const UserAllocator& user, bool debug) : user_(user), debug_(debug) {
  if (!user_.complete()) user_ = UserAllocator{};
}

void* MemoryManager::raw_alloc(size_t bytes) {
  if (bytes == 0) bytes = 1;
  return user_.malloc_fn ? user_.malloc_fn(user_.usrptr, bytes) : std::malloc(bytes);
}

void MemoryManager::raw_free(void* p) {
  if (!p) return;
  if (user_.free_fn)
    user_.free_fn(user_.usrptr, p);
  else
    std::free(p);
}

void MemoryManager::track(void* p, size_t bytes, SourcePos pos) {
  std::lock_guard<std::mutex> lock(mutex_);
  live_bytes_ += bytes;
  ++live_count_;
  if (debug_) blocks_.emplace(p, Block{bytes, pos});
}

void MemoryManager::untrack(void* p) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (live_count_ > 0) --live_count_;
  if (debug_) {
    auto it = blocks_.find(p);
    if (it != blocks_.end()) {
      live_bytes_ -= it->second.bytes;
      blocks_.erase(it);
    }
  }
}

void* MemoryManager::do_allocate(size_t bytes, size_t alignment) {
  if (alignment > kAlign) throw std::bad_alloc();
  void* p = raw_alloc(bytes);
  if (!p) throw std::bad_alloc();
  track(p, bytes, SourceScope::current());
  return p;
}

void MemoryManager::do_deallocate(void* p, size_t bytes, size_t) {
  if (!p) return;
  untrack(p);
  if (!debug_) {
    std::lock_guard<std::mutex> lock(mutex_);
    live_bytes_ -= std::min(live_bytes_, bytes);
  }
  raw_free(p);
}

bool MemoryManager::do_is_equal(const std::pmr::memory_resource& other) const noexcept {
  return this == &other;
}

void* MemoryManager::calloc_block(size_t number, size_t size, const char* file, int line) {
  if (size != 0 && number > SIZE_MAX / size) return nullptr;
  size_t bytes = number * size;
  void* p = nullptr;
  if (user_.calloc_fn)
    p = user_.calloc_fn(user_.usrptr, number ? number : 1, size ? size : 1);
  else
    p = std::calloc(number ? number : 1, size ? size : 1);
  if (!p) return nullptr;
  // Without debugging the size of a block is not kept, so its bytes are not counted.
  track(p, debug_ ? bytes : 0, SourcePos{file ? file : "", line});
  return p;
}

void MemoryManager::free_block(void* p) {
  if (!p) return;
  untrack(p);
  raw_free(p);
}

char* MemoryManager::strdup_block(const char* s, const char* file, int line) {
  if (!s) return nullptr;
  size_t n = std::strlen(s) + 1;
  char* p = static_cast<char*>(calloc_block(n, 1, file, line));
  if (p) std::memcpy(p, s, n);
  return p;
}

size_t MemoryManager::live_blocks() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return live_count_;
}

size_t MemoryManager::live_bytes() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return live_bytes_;
}

void MemoryManager::report(const char* file, int line, void (*emit)(void*, const char*),
                           void* handle) const {
  char buf[1024];
  std::lock_guard<std::mutex> lock(mutex_);
  std::snprintf(buf, sizeof buf, "Memory report at %s(%d)\n", file ? file : "", line);
  emit(handle, buf);
  std::snprintf(buf, sizeof buf, "  Blocks in use: %zu\n", live_count_);
  emit(handle, buf);
  if (!debug_) return;
  std::snprintf(buf, sizeof buf, "  Bytes in use : %zu\n", live_bytes_);
  emit(handle, buf);
  // Sorted by position so that the report is the same from run to run.
  std::vector<std::pair<SourcePos, size_t>> rows;
  rows.reserve(blocks_.size());
  for (const auto& [p, b] : blocks_) rows.emplace_back(b.pos, b.bytes);
  std::sort(rows.begin(), rows.end(), [](const auto& a, const auto& b) {
    int c = std::strcmp(a.first.file, b.first.file);
    return c != 0 ? c < 0 : (a.first.line != b.first.line ? a.first.line < b.first.line : a.second < b.second);
  });
  for (const auto& [pos, bytes] : rows) {
    std::snprintf(buf, sizeof buf, "  %12zu bytes taken at %s(%d)\n", bytes, pos.file, pos.line);
    emit(handle, buf);
  }
}

}  // namespace qubor::platform
