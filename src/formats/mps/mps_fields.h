// Splitting MPS data lines into fields.
//
// Fixed grid (strict layout, and relaxed lines that need it), 0-based columns:
//   field 1: 1-2   field 2: 4-11   field 3: 14-21   field 4: 24-35   field 5: 39-46
//   field 6: 49-60
// A number in field 4 may run on past column 35 (then the line holds one pair).
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

// End (exclusive) of a number in field 4 that runs on past the field's last column, as
// numbers written with many digits do; 0 when field 4 ends where the grid says.
inline size_t overrun_end(std::string_view line) {
  const size_t last = static_cast<size_t>(kGrid[3].end);
  if (line.size() <= last || is_blank(line[last - 1]) || is_blank(line[last])) return 0;
  size_t e = last;
  while (e < line.size() && !is_blank(line[e])) ++e;
  return e;
}

// The six fields of the fixed grid. A number that overruns field 4 is read whole; fields 5
// and 6 are then empty (such a line carries one pair).
inline void fixed_fields(std::string_view line, Field (&out)[6]) {
  for (int k = 0; k < 6; ++k) out[k] = fixed_field(line, k);
  if (const size_t e = overrun_end(line)) {
    const size_t b = static_cast<size_t>(out[3].col);
    out[3].text = line.substr(b, e - b);
    out[4] = Field{{}, kGrid[4].begin};
    out[5] = Field{{}, kGrid[5].begin};
  }
}

// True when the line leaves the grid's separator columns blank and a name field (2, 3 or 5)
// has a blank inside its text. A line whose number overruns field 4 and ends there counts as
// sitting on the grid.
inline bool needs_grid(std::string_view line) {
  static constexpr int32_t kNameSeparators[] = {3, 12, 13, 22, 23};
  static constexpr int32_t kLaterSeparators[] = {36, 37, 38, 47, 48};
  for (int32_t c : kNameSeparators) {
    if (static_cast<size_t>(c) < line.size() && line[static_cast<size_t>(c)] != ' ') return false;
  }
  if (const size_t e = overrun_end(line)) {
    if (!trim(line.substr(e)).empty()) return false;
  } else {
    for (int32_t c : kLaterSeparators) {
      if (static_cast<size_t>(c) < line.size() && line[static_cast<size_t>(c)] != ' ') return false;
    }
    if (line.size() > 61 && !trim(line.substr(61)).empty()) return false;
  }
  for (int k : {1, 2}) {
    for (char ch : fixed_field(line, k).text) {
      if (is_blank(ch)) return true;
    }
  }
  if (overrun_end(line)) return false;
  for (char ch : fixed_field(line, 4).text) {
    if (is_blank(ch)) return true;
  }
  return false;
}

}  // namespace qubor::formats
