// Prefaulted buffer; see prefaulted_buffer.h.
#include "platform/prefaulted_buffer.h"

#include <cstdint>
#include <new>

#include "platform/memory.h"

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
  constexpr uintptr_t kHuge = uintptr_t(2) << 20;
  const uintptr_t huge_begin = (begin + kHuge - 1) & ~(kHuge - 1), huge_end = end & ~(kHuge - 1);
  if (huge_end > huge_begin) madvise(reinterpret_cast<void*>(huge_begin), huge_end - huge_begin, MADV_HUGEPAGE);
  return madvise(reinterpret_cast<void*>(begin), end - begin, kPopulateWrite) == 0;
#else
  (void)p;
  (void)bytes;
  return false;
#endif
}

namespace {

// Whether the buffer may map pages of its own: only where upstream hands out the C
// library's memory anyway, so that a user's allocator or the debugging record sees every
// block it should.
bool may_map(std::pmr::memory_resource* upstream) {
#if defined(__linux__)
  if (upstream == std::pmr::new_delete_resource()) return true;
  const auto* manager = dynamic_cast<const MemoryManager*>(upstream);
  return manager != nullptr && manager->system_memory();
#else
  (void)upstream;
  return false;
#endif
}

// A mapping of `bytes` (a multiple of `align`, a power of two) at an address aligned to
// `align`, populated with huge pages where whole ones fit (see prefault).
void* map_aligned(size_t bytes, size_t align) {
#if defined(__linux__)
  void* raw = mmap(nullptr, bytes + align, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (raw == MAP_FAILED) throw std::bad_alloc();
  const auto r = reinterpret_cast<uintptr_t>(raw);
  const uintptr_t a = (r + align - 1) & ~(uintptr_t(align) - 1);
  if (a > r) munmap(raw, a - r);
  munmap(reinterpret_cast<void*>(a + bytes), r + align - a);  // the tail, never empty
  void* p = reinterpret_cast<void*>(a);
  prefault(p, bytes);
  return p;
#else
  (void)bytes;
  (void)align;
  throw std::bad_alloc();  // not reached: may_map() is false
#endif
}

void unmap(void* p, size_t bytes) {
#if defined(__linux__)
  munmap(p, bytes);
#else
  (void)p;
  (void)bytes;
#endif
}

}  // namespace

PrefaultedBuffer::PrefaultedBuffer(std::pmr::memory_resource* upstream, size_t expected_bytes)
    : upstream_(upstream), pieces_(upstream), huge_(expected_bytes >= kHugeFrom && may_map(upstream)) {}

PrefaultedBuffer::~PrefaultedBuffer() {
  for (char* piece : pieces_) free_piece(piece);
}

void* PrefaultedBuffer::new_piece() {
  if (huge_) return map_aligned(kHuge, kHuge);
  void* p = upstream_->allocate(kPiece, alignof(std::max_align_t));
  prefault(p, kPiece);
  return p;
}

void PrefaultedBuffer::free_piece(void* piece) {
  if (huge_)
    unmap(piece, kHuge);
  else
    upstream_->deallocate(piece, kPiece, alignof(std::max_align_t));
}

void* PrefaultedBuffer::do_allocate(size_t bytes, size_t alignment) {
  if (!from_pieces(bytes, alignment)) {
    if (mapped_alone(alignment)) return map_aligned(round_to_huge(bytes), kHuge);
    void* p = upstream_->allocate(bytes, alignment);
    prefault(p, bytes);
    return p;
  }
  // Aligned as an address: a piece itself is only aligned for max_align_t.
  auto start = [&] {
    const auto base = reinterpret_cast<uintptr_t>(piece_);
    return static_cast<size_t>(((base + used_ + alignment - 1) & ~(uintptr_t(alignment) - 1)) - base);
  };
  if (piece_ == nullptr || start() + bytes > piece_bytes()) {
    // Room first, so that recording the piece cannot throw once it is taken.
    if (pieces_.size() == pieces_.capacity()) pieces_.reserve(2 * pieces_.size() + 8);
    piece_ = static_cast<char*>(new_piece());
    pieces_.push_back(piece_);
    used_ = 0;
  }
  const size_t at = start();
  used_ = at + bytes;
  return piece_ + at;
}

void PrefaultedBuffer::do_deallocate(void* p, size_t bytes, size_t alignment) {
  // Memory from the pieces goes back with them.
  if (from_pieces(bytes, alignment)) return;
  if (mapped_alone(alignment))
    unmap(p, round_to_huge(bytes));
  else
    upstream_->deallocate(p, bytes, alignment);
}

}  // namespace qubor::platform
