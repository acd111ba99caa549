// A table of distinct names, numbered 0, 1, ... in the order they were added, with lookup by
// name in expected O(1) time (open addressing over 64-bit hashes, load factor at most 1/2).
// Names are kept zero-terminated in one character arena, so c_str() can be handed to the
// C interface.
#pragma once

#include <cstdint>
#include <string_view>
#include <utility>
#include <vector>

namespace qubor::formats {

class NameTable {
 public:
  // Index of `name`, or -1.
  int32_t find(std::string_view name) const;
  // The index of `name`, added when new; second is true when it was added.
  std::pair<int32_t, bool> insert(std::string_view name);
  std::string_view name(int32_t i) const {
    return std::string_view(chars_.data() + offsets_[static_cast<size_t>(i)],
                            offsets_[static_cast<size_t>(i) + 1] - offsets_[static_cast<size_t>(i)] - 1);
  }
  const char* c_str(int32_t i) const { return chars_.data() + offsets_[static_cast<size_t>(i)]; }
  int32_t size() const { return static_cast<int32_t>(offsets_.size() - 1); }
  void clear();

 private:
  static uint64_t hash(std::string_view s);
  void grow();

  std::vector<char> chars_;
  std::vector<size_t> offsets_{0};
  std::vector<uint64_t> hashes_;
  std::vector<int32_t> slots_;  // -1 empty, else an index
};

}  // namespace qubor::formats
