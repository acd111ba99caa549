// The prefaulted buffer that holds presolve's entry lists: small requests come from pieces,
// large ones from upstream, and every upstream block is given back; with a few MiB expected
// of the C library's memory, pieces of huge pages of its own. And the helpers that size
// vectors in memory faulted in ahead.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory_resource>
#include <vector>

#include "platform/memory.h"
#include "platform/prefaulted_buffer.h"

namespace qubor::platform {
namespace {

// Counts the blocks and bytes that are out.
class CountingResource final : public std::pmr::memory_resource {
 public:
  int64_t blocks = 0, bytes = 0, calls = 0;

 private:
  void* do_allocate(size_t n, size_t align) override {
    ++blocks;
    ++calls;
    bytes += static_cast<int64_t>(n);
    return std::pmr::new_delete_resource()->allocate(n, align);
  }
  void do_deallocate(void* p, size_t n, size_t align) override {
    --blocks;
    bytes -= static_cast<int64_t>(n);
    std::pmr::new_delete_resource()->deallocate(p, n, align);
  }
  bool do_is_equal(const std::pmr::memory_resource& o) const noexcept override { return this == &o; }
};

bool inside(const void* p, const void* block, size_t size) {
  const auto a = reinterpret_cast<uintptr_t>(p), b = reinterpret_cast<uintptr_t>(block);
  return a >= b && a < b + size;
}

TEST(PrefaultedBuffer, SmallRequestsShareAPieceLargeOnesGoUpstream) {
  CountingResource up;
  {
    PrefaultedBuffer buf(&up);
    EXPECT_EQ(up.blocks, 0);
    void* first = buf.allocate(24, 8);
    void* second = buf.allocate(100, 64);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(second) % 64, 0u);
    EXPECT_GE(static_cast<char*>(second), static_cast<char*>(first) + 24);
    EXPECT_TRUE(inside(second, first, 1 << 16));
    const int64_t pieces = up.blocks;
    EXPECT_GE(pieces, 1);
    buf.deallocate(first, 24, 8);  // a no-op: it goes back with its piece
    EXPECT_EQ(up.blocks, pieces);
    // Larger than a piece may hold: upstream, and back to upstream when released.
    void* big = buf.allocate(PrefaultedBuffer::kLargest + 1, 8);
    EXPECT_EQ(up.blocks, pieces + 1);
    buf.deallocate(big, PrefaultedBuffer::kLargest + 1, 8);
    EXPECT_EQ(up.blocks, pieces);
    // So is a request aligned to a page.
    void* page = buf.allocate(100, 4096);
    EXPECT_EQ(up.blocks, pieces + 1);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(page) % 4096, 0u);
    buf.deallocate(page, 100, 4096);
    EXPECT_EQ(up.blocks, pieces);
    buf.deallocate(second, 100, 64);
  }
  EXPECT_EQ(up.blocks, 0);
  EXPECT_EQ(up.bytes, 0);
}

TEST(PrefaultedBuffer, RequestsThatDoNotFitStartANewPiece) {
  CountingResource up;
  {
    PrefaultedBuffer buf(&up);
    std::vector<char*> got;
    for (int k = 0; k < 64; ++k) {
      got.push_back(static_cast<char*>(buf.allocate(PrefaultedBuffer::kLargest, 16)));
      got.back()[0] = static_cast<char>(k);
      got.back()[PrefaultedBuffer::kLargest - 1] = static_cast<char>(k);
    }
    EXPECT_GT(up.blocks, 1);
    for (size_t a = 0; a < got.size(); ++a)
      for (size_t b = a + 1; b < got.size(); ++b)
        ASSERT_TRUE(got[b] >= got[a] + PrefaultedBuffer::kLargest || got[a] >= got[b] + PrefaultedBuffer::kLargest);
    for (int k = 0; k < 64; ++k) EXPECT_EQ(got[static_cast<size_t>(k)][0], static_cast<char>(k));
  }
  EXPECT_EQ(up.blocks, 0);
  EXPECT_EQ(up.bytes, 0);
}

TEST(PrefaultedBuffer, GrowingVectorsKeepTheirContents) {
  CountingResource up;
  {
    PrefaultedBuffer buf(&up);
    std::pmr::vector<std::pmr::vector<double>> lists(3, &buf);
    for (int k = 0; k < 20000; ++k)
      for (auto& list : lists) push_back_prefaulted(list, k);
    for (const auto& list : lists) {
      ASSERT_EQ(list.size(), 20000u);
      for (int k = 0; k < 20000; k += 997) EXPECT_EQ(list[static_cast<size_t>(k)], k);
    }
    EXPECT_GT(up.blocks, 1);
  }
  EXPECT_EQ(up.blocks, 0);
  EXPECT_EQ(up.bytes, 0);
}

TEST(PrefaultedBuffer, PrefaultAcceptsAnyRange) {
  std::vector<char> v(3 * 4096 + 17, 1);
  prefault(v.data() + 5, v.size() - 5);  // whatever the system answers, the data stay
  prefault(v.data() + 7, 10);            // within a page
  prefault(v.data(), 0);                 // nothing
  for (char c : v) ASSERT_EQ(c, 1);
}

#if defined(__linux__)
TEST(PrefaultedBuffer, ExpectingMuchOfTheHeapItMapsHugePiecesOfItsOwn) {
  constexpr size_t kHuge = size_t(2) << 20;
  PrefaultedBuffer buf(std::pmr::new_delete_resource(), size_t(8) << 20);
  char* small = static_cast<char*>(buf.allocate(100, 8));
  char* medium = static_cast<char*>(buf.allocate(size_t(300) << 10, 64));
  // Both from the first piece, which is a 2 MiB mapping aligned to its size.
  const auto piece = reinterpret_cast<uintptr_t>(small) & ~(uintptr_t(kHuge) - 1);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(small), piece);
  EXPECT_TRUE(inside(medium, reinterpret_cast<void*>(piece), kHuge));
  EXPECT_EQ(reinterpret_cast<uintptr_t>(medium) % 64, 0u);
  // Above half a piece: a mapping of its own, given back when released.
  const size_t big_bytes = (size_t(3) << 20) + 5;
  char* big = static_cast<char*>(buf.allocate(big_bytes, 8));
  EXPECT_EQ(reinterpret_cast<uintptr_t>(big) % kHuge, 0u);
  EXPECT_FALSE(inside(big, reinterpret_cast<void*>(piece), kHuge));
  std::memset(big, 7, big_bytes);
  std::memset(medium, 3, size_t(300) << 10);
  EXPECT_EQ(big[big_bytes - 1], 7);
  buf.deallocate(big, big_bytes, 8);
  // A request that no longer fits the piece starts another one.
  char* next = static_cast<char*>(buf.allocate(size_t(1) << 20, 8));
  char* after = static_cast<char*>(buf.allocate(size_t(1) << 20, 8));
  EXPECT_FALSE(inside(after, next, size_t(1) << 20));
  EXPECT_EQ(medium[(size_t(300) << 10) - 1], 3);
}
#endif

TEST(PrefaultedBuffer, AUsersAllocatorOrTheDebugRecordSeesEveryPiece) {
  // Expecting much does not bypass an allocator that is not the C library's.
  CountingResource up;
  {
    PrefaultedBuffer buf(&up, size_t(64) << 20);
    EXPECT_NE(buf.allocate(100, 8), nullptr);
    const int64_t pieces = up.blocks;
    EXPECT_GE(pieces, 1);
    void* big = buf.allocate(size_t(3) << 20, 8);
    EXPECT_EQ(up.blocks, pieces + 1);
    buf.deallocate(big, size_t(3) << 20, 8);
  }
  EXPECT_EQ(up.blocks, 0);
  MemoryManager recorded(UserAllocator{}, true);
  {
    PrefaultedBuffer buf(&recorded, size_t(64) << 20);
    EXPECT_NE(buf.allocate(100, 8), nullptr);
    EXPECT_GE(recorded.live_blocks(), 1u);
  }
  EXPECT_EQ(recorded.live_blocks(), 0u);
}

TEST(PrefaultedHelpers, AssignAndCopyKeepTheValuesOfAPlainAssign) {
  std::vector<int32_t> v = {1, 2, 3};
  assign_prefaulted(v, 5000, -1);
  ASSERT_EQ(v.size(), 5000u);
  for (int32_t x : v) ASSERT_EQ(x, -1);
  assign_prefaulted(v, 2, 9);  // shrinking keeps the storage
  EXPECT_EQ(v, (std::vector<int32_t>{9, 9}));
  EXPECT_GE(v.capacity(), 5000u);
  const std::vector<double> src = {0.5, -1.0, 4.0};
  std::pmr::vector<double> dst(std::pmr::new_delete_resource());
  copy_prefaulted(dst, src.begin(), src.end());
  EXPECT_EQ(std::vector<double>(dst.begin(), dst.end()), src);
  copy_prefaulted(dst, src.begin(), src.begin());
  EXPECT_TRUE(dst.empty());
}

}  // namespace
}  // namespace qubor::platform
