// A memory resource that hands out memory faulted in ahead of use: a bump allocator over
// pieces taken from the upstream resource, for data structures that live as long as the
// resource, such as the lists and arrays of a working problem. Small requests come from
// the pieces and are given back only when the resource dies; large ones go to upstream
// (faulted in as well) and back to it when released.
//
// Touching fresh memory one page at a time costs a page fault per 4 KiB, which on virtual
// machines dominates the building of large structures; asking the kernel to populate a
// piece at once costs a fraction of that. The pieces are small enough for the allocator to
// serve them from its heap, so that once the resource dies the memory, already faulted in,
// serves whatever the process allocates next instead of going back to the system. Where
// the kernel cannot populate, the memory is simply faulted in as it is used.
#pragma once

#include <cstddef>
#include <iterator>
#include <memory_resource>
#include <vector>

namespace qubor::platform {

// Populates the pages that hold [p, p + bytes) for writing, leaving their contents as they
// are; false when the system cannot (the pages then fault in on first use).
bool prefault(void* p, size_t bytes);

// Reserves room for at least `count` elements of v, faulting the new storage in at once
// before the elements already in v move there.
template <class Vector>
void reserve_prefaulted(Vector& v, size_t count) {
  if (v.capacity() >= count) return;
  Vector fresh(v.get_allocator());
  fresh.reserve(count);
  prefault(fresh.data(), fresh.capacity() * sizeof(*fresh.data()));
  fresh.insert(fresh.end(), std::make_move_iterator(v.begin()), std::make_move_iterator(v.end()));
  v.swap(fresh);
}

// Before appending one element: grows v geometrically, faulting the new room in at once.
template <class Vector>
void grow_prefaulted(Vector& v) {
  if (v.size() == v.capacity()) reserve_prefaulted(v, 2 * v.capacity() + 4096 / sizeof(*v.data()));
}

class PrefaultedBuffer final : public std::pmr::memory_resource {
 public:
  explicit PrefaultedBuffer(std::pmr::memory_resource* upstream);
  ~PrefaultedBuffer() override;
  PrefaultedBuffer(const PrefaultedBuffer&) = delete;
  PrefaultedBuffer& operator=(const PrefaultedBuffer&) = delete;

  // Requests above this size, or aligned more strictly than kMaxAlignment, go to upstream
  // one by one; a fresh piece always holds any other.
  static constexpr size_t kLargest = size_t(16) << 10;
  static constexpr size_t kMaxAlignment = 256;

 private:
  void* do_allocate(size_t bytes, size_t alignment) override;
  void do_deallocate(void* p, size_t bytes, size_t alignment) override;
  bool do_is_equal(const std::pmr::memory_resource& other) const noexcept override { return this == &other; }

  static bool from_pieces(size_t bytes, size_t alignment) { return bytes <= kLargest && alignment <= kMaxAlignment; }
  // Below the size the system allocator serves from its heap rather than by mapping.
  static constexpr size_t kPiece = (size_t(64) << 10) - 64;
  std::pmr::memory_resource* upstream_;
  std::pmr::vector<char*> pieces_;
  char* piece_ = nullptr;  // the piece being handed out
  size_t used_ = kPiece;   // bytes of it handed out
};

}  // namespace qubor::platform
