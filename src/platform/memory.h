// Memory manager of an environment.
//
// Every allocation made for an environment or for any of its tasks goes through one
// MemoryManager: containers of the task use it as their std::pmr::memory_resource, and the
// exported allocation entry points (QBR_calloctask and relatives) call calloc_block/free_block.
// The manager forwards to the user's allocation functions when the environment was made with
// them, otherwise to the C library. With debugging on (a debug file name was given) it also
// records every live block with the source position of the operation that took it, so that
// report() can list what is still held and where it was taken.
//
// The source position of container allocations is the call frame's current position
// (SourceScope), since a container cannot pass one through the allocator interface.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory_resource>
#include <mutex>
#include <string>
#include <unordered_map>

namespace qubor::platform {

struct UserAllocator {
  void* usrptr = nullptr;
  void* (*malloc_fn)(void*, size_t) = nullptr;
  void* (*calloc_fn)(void*, size_t, size_t) = nullptr;
  void* (*realloc_fn)(void*, void*, size_t) = nullptr;
  void (*free_fn)(void*, void*) = nullptr;
  bool complete() const { return malloc_fn && calloc_fn && realloc_fn && free_fn; }
};

struct SourcePos {
  const char* file = "";
  int line = 0;
};

// Marks the source position of the operation in progress on this thread; allocations made
// while it is alive are tagged with it.
class SourceScope {
 public:
  SourceScope(const char* file, int line);
  ~SourceScope();
  SourceScope(const SourceScope&) = delete;
  SourceScope& operator=(const SourceScope&) = delete;
  static SourcePos current();

 private:
  SourcePos saved_;
};

class MemoryManager final : public std::pmr::memory_resource {
 public:
  MemoryManager(const UserAllocator& user, bool debug);
  ~MemoryManager() override = default;

  // Zeroed block of number*size bytes, tagged with file and line; null when out of memory
  // or when the product overflows.
  void* calloc_block(size_t number, size_t size, const char* file, int line);
  void free_block(void* p);
  char* strdup_block(const char* s, const char* file, int line);

  bool debug() const { return debug_; }
  // Blocks come from the C library and nothing is recorded: a component may then take pages
  // from the system itself.
  bool system_memory() const { return user_.malloc_fn == nullptr && !debug_; }
  const UserAllocator& user() const { return user_; }
  size_t live_blocks() const;
  size_t live_bytes() const;
  // Writes the list of live blocks, headed by the given position, through `emit`.
  void report(const char* file, int line, void (*emit)(void*, const char*), void* handle) const;

 private:
  void* do_allocate(size_t bytes, size_t alignment) override;
  void do_deallocate(void* p, size_t bytes, size_t alignment) override;
  bool do_is_equal(const std::pmr::memory_resource& other) const noexcept override;

  void* raw_alloc(size_t bytes);
  void raw_free(void* p);
  void track(void* p, size_t bytes, SourcePos pos);
  void untrack(void* p);

  struct Block {
    size_t bytes;
    SourcePos pos;
  };
  UserAllocator user_;
  bool debug_;
  mutable std::mutex mutex_;
  std::unordered_map<void*, Block> blocks_;  // debug bookkeeping only
  size_t live_bytes_ = 0;
  size_t live_count_ = 0;
};

}  // namespace qubor::platform
