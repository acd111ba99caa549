// Prefaulted buffer; see prefaulted_buffer.h.
#include "platform/prefaulted_buffer.h"

#include <algorithm>
#include <cstdint>

#if defined(__linux__)
#include <sys/mman.h>
#include <unistd.h>
#endif

namespace qubor::platform {

bool prefault(void* p, size_t bytes) {
#if defined(__linux__)
  // Linux 5.14 populates a range for writing without touching it; older kernels refuse.
  constexpr int kPopulateWrite = 23;
  const auto page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
  const auto begin = (reinterpret_cast<uintptr_t>(p) + page - 1) & ~(page - 1);
  const auto end = (reinterpret_cast<uintptr_t>(p) + bytes) & ~(page - 1);
  if (end <= begin) return false;
  return madvise(reinterpret_cast<void*>(begin), end - begin, kPopulateWrite) == 0;
#else
  (void)p;
  (void)bytes;
  return false;
#endif
}

PrefaultedBuffer::PrefaultedBuffer(size_t bytes, std::pmr::memory_resource* upstream) : upstream_(upstream) {
  if (bytes == 0) return;
  block_ = static_cast<char*>(upstream_->allocate(bytes, alignof(std::max_align_t)));
  size_ = bytes;
}

PrefaultedBuffer::~PrefaultedBuffer() {
  if (block_ != nullptr) upstream_->deallocate(block_, size_, alignof(std::max_align_t));
}

void* PrefaultedBuffer::do_allocate(size_t bytes, size_t alignment) {
  // Aligned as an address: the block itself is only aligned for max_align_t.
  const auto base = reinterpret_cast<uintptr_t>(block_);
  const size_t start = static_cast<size_t>(((base + used_ + alignment - 1) & ~(uintptr_t(alignment) - 1)) - base);
  if (block_ != nullptr && start <= size_ && bytes <= size_ - start) {
    used_ = start + bytes;
    if (used_ > populated_) {
      // The block is faulted in ahead of use, a stretch at a time, so that room never used
      // is never faulted in. Stretches end on page boundaries (but the block's last).
      constexpr size_t page = 4096;  // prefault rounds to the system's pages itself
      const size_t want = std::max(used_, populated_ + kStretch);
      const size_t end = std::min(size_, static_cast<size_t>(((base + want + page - 1) & ~(page - 1)) - base));
      prefault(block_ + populated_, end - populated_);
      populated_ = end;
    }
    return block_ + start;
  }
  return upstream_->allocate(bytes, alignment);
}

void PrefaultedBuffer::do_deallocate(void* p, size_t bytes, size_t alignment) {
  const auto* c = static_cast<const char*>(p);
  if (block_ != nullptr && c >= block_ && c < block_ + size_) return;  // given back with the block
  upstream_->deallocate(p, bytes, alignment);
}

}  // namespace qubor::platform
