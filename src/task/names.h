// Names of one kind of item (variables, constraints, cones or matrix variables), with lookup
// by name in O(1) expected time.
//
// Invariant: every nonempty name belongs to at most one item; the empty name means "unnamed"
// and is never indexed. The index is an open-addressing hash table of item indices (4 bytes
// per slot, load at most one half), built on the first named item; until then no per-item
// storage exists at all. Removing items renumbers the rest and rebuilds the table (O(number
// of items)).
#pragma once

#include <cstdint>
#include <memory_resource>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qubor::task {

class NameTable {
 public:
  explicit NameTable(std::pmr::memory_resource* mem) : names_(mem), slots_(mem), empty_(mem) {}

  int32_t size() const { return count_; }
  // Adds n unnamed items at the end.
  void append(int32_t n);
  const std::pmr::string& get(int32_t k) const {
    return static_cast<size_t>(k) < names_.size() ? names_[static_cast<size_t>(k)] : empty_;
  }
  // The item named `name`, or -1. The empty name is never found.
  int32_t find(std::string_view name) const;
  // Names item k; the caller has checked that no other item holds the name.
  void set(int32_t k, std::string_view name);
  // new_index[k]: new position of item k or -1 when it goes.
  void remove(std::span<const int32_t> new_index, int32_t new_count);

 private:
  static constexpr int32_t kEmpty = -1;
  static constexpr int32_t kDeleted = -2;
  size_t slot_of(std::string_view name) const;  // first probe position
  void insert(int32_t k);
  void erase(int32_t k);
  void rebuild();

  int32_t count_ = 0;
  std::pmr::vector<std::pmr::string> names_;  // empty until the first name, then count_ long
  std::pmr::vector<int32_t> slots_;
  size_t occupied_ = 0;  // named items plus tombstones
  std::pmr::string empty_;
};

}  // namespace qubor::task
