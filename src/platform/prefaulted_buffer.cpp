// Prefaulted buffer; see prefaulted_buffer.h.
#include "platform/prefaulted_buffer.h"

#include <cstdint>

#if defined(__linux__)
#include <sys/mman.h>
#include <unistd.h>
#endif

namespace qubor::platform {

bool prefault(void* p, size_t bytes) {
#if defined(__linux__)
  // Linux 5.14 populates a range for writing without touching it; older kernels refuse.
  // Every page that holds a byte of the range is mapped as the range is, and populating a
  // page leaves its contents as they are, so the pages at both ends are included.
  constexpr int kPopulateWrite = 23;
  if (bytes == 0) return false;
  const auto page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
  const auto begin = reinterpret_cast<uintptr_t>(p) & ~(page - 1);
  const auto end = (reinterpret_cast<uintptr_t>(p) + bytes + page - 1) & ~(page - 1);
  return madvise(reinterpret_cast<void*>(begin), end - begin, kPopulateWrite) == 0;
#else
  (void)p;
  (void)bytes;
  return false;
#endif
}

PrefaultedBuffer::PrefaultedBuffer(std::pmr::memory_resource* upstream) : upstream_(upstream), pieces_(upstream) {}

PrefaultedBuffer::~PrefaultedBuffer() {
  for (char* piece : pieces_) upstream_->deallocate(piece, kPiece, alignof(std::max_align_t));
}

void* PrefaultedBuffer::do_allocate(size_t bytes, size_t alignment) {
  if (!from_pieces(bytes, alignment)) {
    void* p = upstream_->allocate(bytes, alignment);
    prefault(p, bytes);
    return p;
  }
  // Aligned as an address: a piece itself is only aligned for max_align_t.
  auto start = [&] {
    const auto base = reinterpret_cast<uintptr_t>(piece_);
    return static_cast<size_t>(((base + used_ + alignment - 1) & ~(uintptr_t(alignment) - 1)) - base);
  };
  if (piece_ == nullptr || start() + bytes > kPiece) {
    // Room first, so that recording the piece cannot throw once it is taken.
    if (pieces_.size() == pieces_.capacity()) pieces_.reserve(2 * pieces_.size() + 8);
    piece_ = static_cast<char*>(upstream_->allocate(kPiece, alignof(std::max_align_t)));
    pieces_.push_back(piece_);
    prefault(piece_, kPiece);
    used_ = 0;
  }
  const size_t at = start();
  used_ = at + bytes;
  return piece_ + at;
}

void PrefaultedBuffer::do_deallocate(void* p, size_t bytes, size_t alignment) {
  // Memory from the pieces goes back with them.
  if (!from_pieces(bytes, alignment)) upstream_->deallocate(p, bytes, alignment);
}

}  // namespace qubor::platform
