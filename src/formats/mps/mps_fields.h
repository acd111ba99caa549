// Splitting MPS data lines into fields.
//
// Fixed grid (strict layout, and relaxed lines that need it), 0-based columns:
//   field 1: 1-2   field 2: 4-11   field 3: 14-21   field 4: 24-35   field 5: 39-46
//   field 6: 49-60
// Free split: runs of blanks and tabs separate fields.
// The relaxed layout splits freely unless the line sits on the fixed grid and one of its name
// fields holds a blank inside the name ("DEDO3 11"), which only the grid can read.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace qubor::formats {

struct Field {
  std::string_view text;
  int32_t col = 0;  // 0-based column of the field (for the caret line)
};

struct Fields {
  std::array<Field, 8> f{};
  int n = 0;
  std::string_view operator[](int k) const {
    return k < n ? f[static_cast<size_t>(k)].text : std::string_view();
  }
  int32_t col(int k, int32_t fallback) const { return k < n ? f[static_cast<size_t>(k)].col : fallback; }
};

inline bool is_blank(char c) { return c == ' ' || c == '\t'; }

// Free split; at most 8 fields are kept, `extra` tells whether more followed.
inline Fields split_free(std::string_view line, bool* extra = nullptr) {
  Fields out;
  size_t k = 0;
  const size_t n = line.size();
  if (extra) *extra = false;
  while (k < n) {
    while (k < n && is_blank(line[k])) ++k;
    if (k >= n) break;
    size_t b = k;
    while (k < n && !is_blank(line[k])) ++k;
    if (out.n == 8) {
      if (extra) *extra = true;
      break;
    }
    out.f[static_cast<size_t>(out.n++)] = Field{line.substr(b, k - b), static_cast<int32_t>(b)};
  }
  return out;
}

struct FixedField {
  int32_t begin, end;  // [begin, end)
};
inline constexpr std::array<FixedField, 6> kGrid = {
    {{1, 3}, {4, 12}, {14, 22}, {24, 36}, {39, 47}, {49, 61}}};

inline std::string_view trim(std::string_view s) {
  size_t b = 0, e = s.size();
  while (b < e && is_blank(s[b])) ++b;
  while (e > b && is_blank(s[e - 1])) --e;
  return s.substr(b, e - b);
}

// Field k (0-based, 0..5) of the fixed grid, trimmed.
inline Field fixed_field(std::string_view line, int k) {
  const FixedField g = kGrid[static_cast<size_t>(k)];
  if (static_cast<size_t>(g.begin) >= line.size()) return Field{{}, g.begin};
  std::string_view raw = line.substr(static_cast<size_t>(g.begin), static_cast<size_t>(g.end - g.begin));
  std::string_view t = trim(raw);
  int32_t col = g.begin + static_cast<int32_t>(t.empty() ? 0 : t.data() - raw.data());
  return Field{t, col};
}

// True when the line leaves the grid's separator columns blank and a name field (2, 3 or 5)
// has a blank inside its text.
inline bool needs_grid(std::string_view line) {
  static constexpr int32_t kSeparators[] = {3, 12, 13, 22, 23, 36, 37, 38, 47, 48};
  for (int32_t c : kSeparators) {
    if (static_cast<size_t>(c) < line.size() && line[static_cast<size_t>(c)] != ' ') return false;
  }
  if (line.size() > 61 && !trim(line.substr(61)).empty()) return false;
  for (int k : {1, 2, 4}) {
    std::string_view t = fixed_field(line, k).text;
    for (char ch : t) {
      if (is_blank(ch)) return true;
    }
  }
  return false;
}

}  // namespace qubor::formats
