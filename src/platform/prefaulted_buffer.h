// A memory resource over one block that is faulted in ahead of use: a bump allocator for
// data structures whose size is known before they are built, such as the lists of a
// working problem. Memory is given back only when the resource dies; requests that no
// longer fit go to the upstream resource.
//
// Touching fresh memory one page at a time costs a page fault per 4 KiB, which on virtual
// machines dominates the building of large structures; asking the kernel to populate a
// stretch of pages at once costs a fraction of that. The block is populated a stretch ahead
// of the allocations, so room that is never used is never faulted in. Where the kernel
// cannot populate, the block is simply faulted in as it is used.
#pragma once

#include <cstddef>
#include <iterator>
#include <memory_resource>

namespace qubor::platform {

// Populates the whole pages within [p, p + bytes) for writing; false when the system
// cannot (the pages then fault in on first use).
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
  PrefaultedBuffer(size_t bytes, std::pmr::memory_resource* upstream);
  ~PrefaultedBuffer() override;
  PrefaultedBuffer(const PrefaultedBuffer&) = delete;
  PrefaultedBuffer& operator=(const PrefaultedBuffer&) = delete;

 private:
  void* do_allocate(size_t bytes, size_t alignment) override;
  void do_deallocate(void* p, size_t bytes, size_t alignment) override;
  bool do_is_equal(const std::pmr::memory_resource& other) const noexcept override { return this == &other; }

  static constexpr size_t kStretch = size_t(256) << 10;  // faulted in at once, ahead of use
  std::pmr::memory_resource* upstream_;
  char* block_ = nullptr;
  size_t size_ = 0, used_ = 0, populated_ = 0;
};

}  // namespace qubor::platform
