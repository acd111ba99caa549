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
//
// When a few MiB or more are expected and upstream hands out the C library's memory anyway,
// the buffer maps its pieces itself instead: 2 MiB each, aligned and asked for as huge pages,
// so that one fault maps what 512 small ones would. That memory goes back to the system when
// the buffer dies.
#pragma once

#include <cstddef>
#include <iterator>
#include <memory_resource>
#include <utility>
#include <vector>

namespace qubor::platform {

// Populates the pages that hold [p, p + bytes) for writing, leaving their contents as they
// are; false when the system cannot (the pages then fault in on first use). Whole huge pages
// inside the range are asked for as such first: one of them costs about what a few small
// pages do.
bool prefault(void* p, size_t bytes);

// Storage of a vector, faulted in when it spans a few pages; below that the call costs
// about what the faults it saves do.
inline void prefault_storage(void* p, size_t bytes) {
  if (bytes >= (size_t(16) << 10)) prefault(p, bytes);
}

// An empty vector with v's allocator and room for `count` elements, faulted in.
template <class Vector>
Vector prefaulted_like(const Vector& v, size_t count) {
  Vector fresh(v.get_allocator());
  fresh.reserve(count);
  prefault_storage(fresh.data(), fresh.capacity() * sizeof(*fresh.data()));
  return fresh;
}

// Reserves room for at least `count` elements of v, faulting the new storage in at once
// before the elements already in v move there.
template <class Vector>
void reserve_prefaulted(Vector& v, size_t count) {
  if (v.capacity() >= count) return;
  Vector fresh = prefaulted_like(v, count);
  fresh.insert(fresh.end(), std::make_move_iterator(v.begin()), std::make_move_iterator(v.end()));
  v.swap(fresh);
}

// v.assign(count, value), with new storage faulted in at once when v has to grow.
template <class Vector, class T>
void assign_prefaulted(Vector& v, size_t count, const T& value) {
  if (v.capacity() < count) {
    Vector fresh = prefaulted_like(v, count);
    v.swap(fresh);
  }
  v.assign(count, value);
}

// v.assign(first, last) for forward iterators, likewise.
template <class Vector, class It>
void copy_prefaulted(Vector& v, It first, It last) {
  const auto count = static_cast<size_t>(std::distance(first, last));
  if (v.capacity() < count) {
    Vector fresh = prefaulted_like(v, count);
    v.swap(fresh);
  }
  v.assign(first, last);
}

// v.push_back(x), growing v geometrically with the new room faulted in at once.
template <class Vector, class T>
void push_back_prefaulted(Vector& v, T&& x) {
  if (v.size() == v.capacity()) reserve_prefaulted(v, 2 * v.capacity() + 4096 / sizeof(*v.data()));
  v.push_back(std::forward<T>(x));
}

class PrefaultedBuffer final : public std::pmr::memory_resource {
 public:
  // expected_bytes: about how much will be asked for; from a few MiB on, and when upstream
  // is the C library's heap, the buffer maps huge pages of its own instead (see below).
  explicit PrefaultedBuffer(std::pmr::memory_resource* upstream, size_t expected_bytes = 0);
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

  bool from_pieces(size_t bytes, size_t alignment) const {
    return bytes <= (huge_ ? kHugeLargest : kLargest) && alignment <= kMaxAlignment;
  }
  void* new_piece();
  void free_piece(void* piece);
  // Huge mode: pieces are 2 MiB mappings of huge pages, populated when started, and requests
  // up to half a piece come from them; larger ones are mappings of their own.
  static constexpr size_t kHuge = size_t(2) << 20;
  static constexpr size_t kHugeLargest = kHuge / 2;
  static constexpr size_t kHugeFrom = size_t(1) << 20;
  static size_t round_to_huge(size_t bytes) { return (bytes + kHuge - 1) & ~(kHuge - 1); }
  // Of a request too large for a piece: whether it gets a mapping of its own.
  bool mapped_alone(size_t alignment) const { return huge_ && alignment <= kHuge; }
  size_t piece_bytes() const { return huge_ ? kHuge : kPiece; }
  // Below the size the system allocator serves from its heap rather than by mapping.
  static constexpr size_t kPiece = (size_t(64) << 10) - 64;
  std::pmr::memory_resource* upstream_;
  std::pmr::vector<char*> pieces_;
  char* piece_ = nullptr;  // the piece being handed out
  size_t used_ = kPiece;   // bytes of it handed out
  bool huge_;
};

}  // namespace qubor::platform
