#include "task/names.h"

#include <functional>

namespace qubor::task {

void NameTable::append(int32_t n) {
  if (n <= 0) return;
  count_ += n;
  if (names_.empty()) return;
  const auto size = static_cast<size_t>(count_);
  if (size > names_.capacity()) names_.reserve(std::max(size, 2 * names_.capacity()));
  names_.resize(size);
}

size_t NameTable::slot_of(std::string_view name) const {
  return std::hash<std::string_view>{}(name) & (slots_.size() - 1);
}

int32_t NameTable::find(std::string_view name) const {
  if (name.empty() || slots_.empty()) return -1;
  const size_t mask = slots_.size() - 1;
  for (size_t p = slot_of(name);; p = (p + 1) & mask) {
    const int32_t k = slots_[p];
    if (k == kEmpty) return -1;
    if (k >= 0 && names_[static_cast<size_t>(k)] == name) return k;
  }
}

void NameTable::insert(int32_t k) {
  if (2 * (occupied_ + 1) > slots_.size()) rebuild();
  const size_t mask = slots_.size() - 1;
  size_t p = slot_of(names_[static_cast<size_t>(k)]);
  while (slots_[p] >= 0) p = (p + 1) & mask;
  if (slots_[p] == kEmpty) ++occupied_;
  slots_[p] = k;
}

void NameTable::erase(int32_t k) {
  const std::pmr::string& name = names_[static_cast<size_t>(k)];
  const size_t mask = slots_.size() - 1;
  for (size_t p = slot_of(name);; p = (p + 1) & mask) {
    if (slots_[p] == kEmpty) return;
    if (slots_[p] == k) {
      slots_[p] = kDeleted;  // stays occupied so later probes go on
      return;
    }
  }
}

void NameTable::rebuild() {
  size_t named = 0;
  for (const auto& s : names_) named += s.empty() ? 0 : 1;
  size_t cap = 16;
  while (cap < 4 * (named + 1)) cap *= 2;
  slots_.assign(cap, kEmpty);
  occupied_ = 0;
  const size_t mask = cap - 1;
  for (size_t k = 0; k < names_.size(); ++k) {
    if (names_[k].empty()) continue;
    size_t p = slot_of(names_[k]);
    while (slots_[p] != kEmpty) p = (p + 1) & mask;
    slots_[p] = static_cast<int32_t>(k);
    ++occupied_;
  }
}

void NameTable::set(int32_t k, std::string_view name) {
  if (names_.empty()) {
    if (name.empty()) return;
    names_.resize(static_cast<size_t>(count_));
  }
  std::pmr::string& cur = names_[static_cast<size_t>(k)];
  if (cur == name) return;
  if (!cur.empty()) erase(k);
  cur.assign(name.data(), name.size());
  if (!cur.empty()) insert(k);
}

void NameTable::remove(std::span<const int32_t> new_index, int32_t new_count) {
  count_ = new_count;
  if (names_.empty()) return;
  size_t out = 0;
  for (size_t k = 0; k < names_.size(); ++k) {
    if (new_index[k] < 0) continue;
    if (out != k) names_[out].swap(names_[k]);
    ++out;
  }
  names_.resize(static_cast<size_t>(new_count));
  if (!slots_.empty()) rebuild();
}

}  // namespace qubor::task
