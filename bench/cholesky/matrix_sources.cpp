// Matrix sources of the factorization benchmark; see matrix_sources.h.
#include "matrix_sources.h"

#include <zlib.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <random>
#include <sstream>
#include <unordered_map>

namespace qubor::bench {

LowerMatrix grid_laplacian(int dims, int32_t k) {
  LowerMatrix a;
  a.name = dims == 2 ? "grid2d-" + std::to_string(k) : "grid3d-" + std::to_string(k);
  const int32_t kz = dims == 3 ? k : 1;
  a.n = k * k * kz;
  a.colptr.push_back(0);
  for (int32_t z = 0; z < kz; ++z)
    for (int32_t y = 0; y < k; ++y)
      for (int32_t x = 0; x < k; ++x) {
        int32_t j = x + k * (y + k * z);
        a.rowind.push_back(j);
        a.values.push_back(2.0 * dims);
        if (x + 1 < k) { a.rowind.push_back(j + 1); a.values.push_back(-1.0); }
        if (y + 1 < k) { a.rowind.push_back(j + k); a.values.push_back(-1.0); }
        if (z + 1 < kz) { a.rowind.push_back(j + k * k); a.values.push_back(-1.0); }
        a.colptr.push_back(static_cast<int64_t>(a.rowind.size()));
      }
  a.nnz_source = static_cast<int64_t>(a.rowind.size());
  return a;
}

namespace {

// Line reader over plain or gzip files (gzopen reads both).
class LineReader {
 public:
  explicit LineReader(const std::string& path) : gz_(gzopen(path.c_str(), "rb")) {}
  ~LineReader() { if (gz_) gzclose(gz_); }
  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;
  bool ok() const { return gz_ != nullptr; }
  bool next(std::string& line) {
    line.clear();
    char buf[4096];
    while (gzgets(gz_, buf, sizeof(buf)) != nullptr) {
      line += buf;
      if (!line.empty() && line.back() == '\n') break;
    }
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.pop_back();
    return !line.empty() || !gzeof(gz_);
  }

 private:
  gzFile gz_;
};

}  // namespace

bool read_matrix_market(const std::string& path, LowerMatrix& out, std::string& error) {
  LineReader in(path);
  if (!in.ok()) { error = "cannot open " + path; return false; }
  std::string line;
  if (!in.next(line) || line.rfind("%%MatrixMarket", 0) != 0) { error = "not Matrix Market"; return false; }
  const bool pattern = line.find("pattern") != std::string::npos;
  while (in.next(line) && (line.empty() || line[0] == '%')) {}
  long long m = 0, n = 0, nz = 0;
  if (std::sscanf(line.c_str(), "%lld %lld %lld", &m, &n, &nz) != 3 || m != n) { error = "bad size line"; return false; }
  std::vector<std::vector<std::pair<int32_t, double>>> cols(n);
  std::vector<double> rowsum(n, 0.0);
  for (long long t = 0; t < nz && in.next(line); ++t) {
    long long i = 0, j = 0;
    double v = 1.0;
    int got = std::sscanf(line.c_str(), "%lld %lld %lf", &i, &j, &v);
    if (got < 2) { error = "bad entry"; return false; }
    if (pattern) v = -1.0;
    --i; --j;
    if (i < j) std::swap(i, j);
    cols[j].emplace_back(static_cast<int32_t>(i), v);
    if (pattern && i != j) { rowsum[i] += 1.0; rowsum[j] += 1.0; }
  }
  out.name = path.substr(path.find_last_of('/') + 1);
  out.n = static_cast<int32_t>(n);
  out.colptr.assign(1, 0);
  for (int32_t j = 0; j < out.n; ++j) {
    std::sort(cols[j].begin(), cols[j].end());
    bool has_diag = !cols[j].empty() && cols[j][0].first == j;
    if (pattern && !has_diag) { out.rowind.push_back(j); out.values.push_back(rowsum[j] + 1.0); }
    for (auto [i, v] : cols[j]) {
      out.rowind.push_back(i);
      out.values.push_back(pattern && i == j ? rowsum[j] + 1.0 : v);
    }
    out.colptr.push_back(static_cast<int64_t>(out.rowind.size()));
  }
  out.nnz_source = static_cast<int64_t>(out.rowind.size());
  return true;
}

bool read_mps_matrix(const std::string& path, SparseMatrix& a, std::string& error) {
  LineReader in(path);
  if (!in.ok()) { error = "cannot open " + path; return false; }
  std::unordered_map<std::string, int32_t> row_index;
  std::string objective, line, section, current;
  std::vector<std::vector<std::pair<int32_t, double>>> cols;
  while (in.next(line)) {
    if (line.empty() || line[0] == '*') continue;
    std::istringstream fields(line);
    if (line[0] != ' ' && line[0] != '\t') {
      fields >> section;
      if (section == "RHS" || section == "BOUNDS" || section == "RANGES" || section == "ENDATA" ||
          section == "QUADOBJ" || section == "QMATRIX" || section == "QSECTION")
        break;
      continue;
    }
    if (section == "ROWS") {
      std::string type, name;
      fields >> type >> name;
      if (type == "N" || type == "n") {
        if (objective.empty()) objective = name;
        continue;
      }
      row_index.emplace(name, a.m++);
    } else if (section == "COLUMNS") {
      std::string col, row;
      fields >> col >> row;
      if (row == "'MARKER'") continue;
      if (col != current) { current = col; cols.emplace_back(); }
      double v;
      while (fields >> v) {
        auto it = row_index.find(row);
        if (it != row_index.end() && v != 0.0) cols.back().emplace_back(it->second, v);
        if (!(fields >> row)) break;
      }
    }
  }
  if (a.m == 0) { error = "no constraint rows in " + path; return false; }
  a.n = static_cast<int32_t>(cols.size());
  a.colptr.assign(1, 0);
  for (auto& c : cols) {
    for (auto [i, v] : c) { a.rowind.push_back(i); a.values.push_back(v); }
    a.colptr.push_back(static_cast<int64_t>(a.rowind.size()));
  }
  return true;
}

LowerMatrix normal_equations(const SparseMatrix& a, uint64_t seed, const std::string& name) {
  std::mt19937_64 rng(seed);
  std::uniform_real_distribution<double> u(-3.0, 3.0);
  std::vector<double> d(a.n);
  for (double& x : d) x = std::pow(10.0, u(rng));
  // Row-wise copy of A for the column-by-column product.
  std::vector<int64_t> rptr(a.m + 1, 0);
  for (int32_t i : a.rowind) ++rptr[i + 1];
  for (int32_t i = 0; i < a.m; ++i) rptr[i + 1] += rptr[i];
  std::vector<int32_t> rcol(a.rowind.size());
  std::vector<double> rval(a.rowind.size());
  std::vector<int64_t> fill(rptr.begin(), rptr.end() - 1);
  for (int32_t j = 0; j < a.n; ++j)
    for (int64_t p = a.colptr[j]; p < a.colptr[j + 1]; ++p) {
      int64_t at = fill[a.rowind[p]]++;
      rcol[at] = j;
      rval[at] = a.values[p];
    }
  LowerMatrix m;
  m.name = name;
  m.n = a.m;
  m.nnz_source = static_cast<int64_t>(a.rowind.size());
  m.colptr.assign(1, 0);
  std::vector<double> acc(a.m, 0.0);
  std::vector<int32_t> mark(a.m, -1), list;
  double maxdiag = 0.0;
  for (int32_t i = 0; i < a.m; ++i) {
    list.clear();
    for (int64_t q = rptr[i]; q < rptr[i + 1]; ++q) {
      const int32_t k = rcol[q];
      const double f = rval[q] * d[k];
      for (int64_t p = a.colptr[k]; p < a.colptr[k + 1]; ++p) {
        const int32_t j = a.rowind[p];
        if (j < i) continue;
        if (mark[j] != i) { mark[j] = i; acc[j] = 0.0; list.push_back(j); }
        acc[j] += f * a.values[p];
      }
    }
    if (mark[i] != i) { mark[i] = i; acc[i] = 0.0; list.push_back(i); }
    std::sort(list.begin(), list.end());
    for (int32_t j : list) { m.rowind.push_back(j); m.values.push_back(acc[j]); }
    maxdiag = std::max(maxdiag, acc[i]);
    m.colptr.push_back(static_cast<int64_t>(m.rowind.size()));
  }
  const double shift = 1e-9 * std::max(maxdiag, 1.0);
  for (int32_t j = 0; j < m.n; ++j) m.values[m.colptr[j]] += shift;  // diagonal comes first
  return m;
}

}  // namespace qubor::bench
