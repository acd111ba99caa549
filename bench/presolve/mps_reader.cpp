// MPS reader of the presolve benchmark and tests; see mps_reader.h.
#include "mps_reader.h"

#include <zlib.h>

#include <cmath>
#include <map>
#include <sstream>
#include <unordered_map>
#include <vector>

namespace qubor::presolve::testing {

namespace {

struct Reader {
  std::unordered_map<std::string, int32_t> row_index, col_index;
  std::vector<char> row_type;
  std::string objective;
  std::vector<std::vector<std::pair<int32_t, double>>> cols;
  std::vector<double> c, l, u, rhs, range;
  std::vector<uint8_t> range_set, is_int;
  double c0 = 0.0;
  bool in_int = false;

  int32_t column(const std::string& name) {
    auto it = col_index.find(name);
    if (it != col_index.end()) return it->second;
    const int32_t j = static_cast<int32_t>(cols.size());
    col_index[name] = j;
    cols.emplace_back();
    c.push_back(0.0);
    l.push_back(0.0);
    u.push_back(HUGE_VAL);
    is_int.push_back(in_int ? 1 : 0);
    return j;
  }

  void row_value(const std::string& row, double v, bool is_range) {
    if (row == objective) {
      if (!is_range) c0 = -v;
      return;
    }
    auto it = row_index.find(row);
    if (it == row_index.end()) return;
    if (is_range) {
      range[it->second] = v;
      range_set[it->second] = 1;
    } else {
      rhs[it->second] = v;
    }
  }

  void bound(const std::string& type, int32_t j, double v) {
    if (type == "UP") {
      u[j] = v;
      if (v < 0 && l[j] == 0.0) l[j] = -HUGE_VAL;
    } else if (type == "LO") {
      l[j] = v;
    } else if (type == "FX") {
      l[j] = u[j] = v;
    } else if (type == "FR") {
      l[j] = -HUGE_VAL;
      u[j] = HUGE_VAL;
    } else if (type == "MI") {
      l[j] = -HUGE_VAL;
    } else if (type == "PL") {
      u[j] = HUGE_VAL;
    } else if (type == "BV") {
      l[j] = 0;
      u[j] = 1;
      is_int[j] = 1;
    } else if (type == "LI") {
      l[j] = v;
      is_int[j] = 1;
    } else if (type == "UI") {
      u[j] = v;
      is_int[j] = 1;
    }
  }
};

// Fields of a fixed-format line (names may contain spaces): type, name1, name2, value1,
// name3, value2; the type field is kept only in ROWS and BOUNDS, trailing empties dropped.
std::vector<std::string> fixed_fields(const std::string& line, bool with_type) {
  static const int kStart[6] = {1, 4, 14, 24, 39, 49}, kLen[6] = {2, 8, 8, 12, 8, 12};
  std::vector<std::string> t;
  for (int f = with_type ? 0 : 1; f < 6; ++f) {
    std::string v = static_cast<int>(line.size()) > kStart[f] ? line.substr(kStart[f], kLen[f]) : "";
    v.erase(0, v.find_first_not_of(" \t\r\n"));
    v.erase(v.find_last_not_of(" \t\r\n") + 1);
    t.push_back(v);
  }
  while (!t.empty() && t.back().empty()) t.pop_back();
  return t;
}

}  // namespace

bool read_mps(const std::string& path, LpProblem& p, std::string& error) {
  gzFile f = gzopen(path.c_str(), "rb");
  if (f == nullptr) {
    error = "cannot open " + path;
    return false;
  }
  Reader r;
  std::string section;
  bool fixed = false;
  char buffer[4096];
  while (gzgets(f, buffer, sizeof(buffer)) != nullptr) {
    std::string line(buffer);
    if (line.empty() || line[0] == '*' || line[0] == '\n' || line[0] == '\r') continue;
    std::istringstream in(line);
    std::vector<std::string> t;
    for (std::string w; in >> w;) t.push_back(w);
    if (t.empty()) continue;
    if (line[0] != ' ' && line[0] != '\t') {
      section = t[0];
      continue;
    }
    // Names with spaces: a ROWS line of more than two fields switches to fixed columns.
    if (section == "ROWS" && t.size() > 2) fixed = true;
    if (fixed) t = fixed_fields(line, section == "ROWS" || section == "BOUNDS");
    if (t.empty()) continue;
    if (section == "ROWS" && t.size() >= 2) {
      if (t[0] == "N") {
        if (r.objective.empty()) r.objective = t[1];
        continue;
      }
      r.row_index[t[1]] = static_cast<int32_t>(r.row_type.size());
      r.row_type.push_back(t[0][0]);
      r.rhs.push_back(0.0);
      r.range.push_back(0.0);
      r.range_set.push_back(0);
    } else if (section == "COLUMNS") {
      if (t.size() >= 3 && t[1] == "'MARKER'") {
        r.in_int = t[2] == "'INTORG'";
        continue;
      }
      const int32_t j = r.column(t[0]);
      for (size_t k = 1; k + 1 < t.size(); k += 2) {
        const double v = std::stod(t[k + 1]);
        if (t[k] == r.objective) {
          r.c[j] += v;
        } else {
          auto it = r.row_index.find(t[k]);
          if (it != r.row_index.end()) r.cols[j].push_back({it->second, v});
        }
      }
    } else if (section == "RHS" || section == "RANGES") {
      // The set name may be missing: pairs then start at the first field.
      const size_t first = t.size() % 2 == 1 ? 1 : 0;
      for (size_t k = first; k + 1 < t.size(); k += 2) r.row_value(t[k], std::stod(t[k + 1]), section == "RANGES");
    } else if (section == "BOUNDS" && t.size() >= 2) {
      // Fields: type [set] column [value].
      const bool no_value = t[0] == "FR" || t[0] == "MI" || t[0] == "PL" || t[0] == "BV";
      const size_t full = no_value ? 3 : 4;
      const std::string& name = t.size() >= full ? t[2] : t[1];
      const double v = no_value ? 0.0 : std::stod(t.back());
      auto it = r.col_index.find(name);
      if (it != r.col_index.end()) r.bound(t[0], it->second, v);
    }
  }
  gzclose(f);
  const int32_t m = static_cast<int32_t>(r.row_type.size());
  p.n = static_cast<int32_t>(r.cols.size());
  p.m = m;
  p.colptr.assign(1, 0);
  p.rowind.clear();
  p.val.clear();
  for (const auto& col : r.cols) {
    for (const auto& e : col) {
      p.rowind.push_back(e.first);
      p.val.push_back(e.second);
    }
    p.colptr.push_back(static_cast<int64_t>(p.rowind.size()));
  }
  p.c.assign(r.c.begin(), r.c.end());
  p.c0 = r.c0;
  p.l.assign(r.l.begin(), r.l.end());
  p.u.assign(r.u.begin(), r.u.end());
  p.rl.assign(static_cast<size_t>(m), -HUGE_VAL);
  p.ru.assign(static_cast<size_t>(m), HUGE_VAL);
  for (int32_t i = 0; i < m; ++i) {
    const double b = r.rhs[i], rg = r.range[i];
    switch (r.row_type[i]) {
      case 'E':
        p.rl[i] = p.ru[i] = b;
        if (r.range_set[i]) (rg > 0 ? p.ru[i] : p.rl[i]) = b + rg;
        break;
      case 'L':
        p.ru[i] = b;
        if (r.range_set[i]) p.rl[i] = b - std::fabs(rg);
        break;
      case 'G':
        p.rl[i] = b;
        if (r.range_set[i]) p.ru[i] = b + std::fabs(rg);
        break;
      default:
        break;
    }
  }
  bool any_int = false;
  for (uint8_t v : r.is_int) any_int = any_int || v != 0;
  if (any_int) p.is_int.assign(r.is_int.begin(), r.is_int.end());
  else p.is_int.clear();
  return true;
}

}  // namespace qubor::presolve::testing
