#include "formats/frame/name_table.h"

#include <cstring>

namespace qubor::formats {

uint64_t NameTable::hash(std::string_view s) {
  // 64-bit FNV-1a over 8-byte words, with a final avalanche.
  uint64_t h = 0xcbf29ce484222325ull ^ s.size();
  size_t i = 0;
  for (; i + 8 <= s.size(); i += 8) {
    uint64_t w;
    std::memcpy(&w, s.data() + i, 8);
    h = (h ^ w) * 0x100000001b3ull;
    h ^= h >> 29;
  }
  for (; i < s.size(); ++i) h = (h ^ static_cast<unsigned char>(s[i])) * 0x100000001b3ull;
  h ^= h >> 33;
  h *= 0xff51afd7ed558ccdull;
  h ^= h >> 33;
  return h;
}

int32_t NameTable::find(std::string_view name) const {
  if (slots_.empty()) return -1;
  const uint64_t h = hash(name);
  const size_t mask = slots_.size() - 1;
  for (size_t s = h & mask;; s = (s + 1) & mask) {
    int32_t k = slots_[s];
    if (k < 0) return -1;
    if (hashes_[static_cast<size_t>(k)] == h && this->name(k) == name) return k;
  }
}

void NameTable::grow() {
  size_t cap = slots_.empty() ? 1024 : slots_.size() * 2;
  slots_.assign(cap, -1);
  const size_t mask = cap - 1;
  for (size_t k = 0; k < hashes_.size(); ++k) {
    size_t s = hashes_[k] & mask;
    while (slots_[s] >= 0) s = (s + 1) & mask;
    slots_[s] = static_cast<int32_t>(k);
  }
}

std::pair<int32_t, bool> NameTable::insert(std::string_view name) {
  if ((hashes_.size() + 1) * 2 > slots_.size()) grow();
  const uint64_t h = hash(name);
  const size_t mask = slots_.size() - 1;
  size_t s = h & mask;
  for (;; s = (s + 1) & mask) {
    int32_t k = slots_[s];
    if (k < 0) break;
    if (hashes_[static_cast<size_t>(k)] == h && this->name(k) == name) return {k, false};
  }
  const int32_t idx = static_cast<int32_t>(hashes_.size());
  slots_[s] = idx;
  hashes_.push_back(h);
  chars_.insert(chars_.end(), name.begin(), name.end());
  chars_.push_back('\0');
  offsets_.push_back(chars_.size());
  return {idx, true};
}

void NameTable::clear() {
  chars_.clear();
  offsets_.assign(1, 0);
  hashes_.clear();
  slots_.clear();
}

}  // namespace qubor::formats
