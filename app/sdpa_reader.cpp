#include "sdpa_reader.h"

#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <string_view>
#include <tuple>
#include <vector>

namespace qubor_app {
namespace {

constexpr int64_t kMaxIndex = INT32_MAX - 1;
// Scalar variables of diagonal blocks are allocated up front, so beyond this many the file
// must hold at least as many entries as it declares diagonal positions.
constexpr int64_t kUnconfirmedDiagonal = int64_t{1} << 20;

// The lines of a plain or gzip file (zlib reads both), numbered from 1.
class LineSource {
 public:
  explicit LineSource(const std::string& path) : file_(gzopen(path.c_str(), "rb")) {
    if (file_) gzbuffer(file_, 1 << 17);
  }
  ~LineSource() {
    if (file_) gzclose(file_);
  }
  LineSource(const LineSource&) = delete;
  LineSource& operator=(const LineSource&) = delete;

  bool is_open() const { return file_ != nullptr; }
  int64_t line_number() const { return line_; }
  const std::string& error() const { return error_; }

  // The next line without its end of line; false at the end of the data or on a read error
  // (error() then says which).
  bool next(std::string* line) {
    line->clear();
    while (true) {
      if (pos_ == len_ && !fill()) {
        if (line->empty()) return false;
        break;
      }
      const char* start = buf_ + pos_;
      const void* nl = std::memchr(start, '\n', len_ - pos_);
      const size_t n = nl ? static_cast<size_t>(static_cast<const char*>(nl) - start) : len_ - pos_;
      line->append(start, n);
      pos_ += n;
      if (nl) {
        ++pos_;
        break;
      }
    }
    if (!line->empty() && line->back() == '\r') line->pop_back();
    ++line_;
    return true;
  }

 private:
  bool fill() {
    if (!error_.empty() || eof_) return false;
    const int got = gzread(file_, buf_, sizeof buf_);
    int errnum = Z_OK;
    const char* msg = gzerror(file_, &errnum);
    if (got < 0 || (errnum != Z_OK && errnum != Z_STREAM_END)) {
      error_ = errnum == Z_BUF_ERROR ? "the compressed data end early (truncated file)"
                                     : std::string("read error: ") + (errnum == Z_ERRNO ? std::strerror(errno) : msg);
      return false;
    }
    if (got == 0) {
      eof_ = true;
      return false;
    }
    pos_ = 0;
    len_ = static_cast<size_t>(got);
    return true;
  }

  gzFile file_;
  char buf_[1 << 16];
  size_t pos_ = 0, len_ = 0;
  int64_t line_ = 0;
  bool eof_ = false;
  std::string error_;
};

// Concatenation without operator+, whose inlined copies trip a false -Wrestrict in GCC 12.
std::string cat(std::initializer_list<std::string_view> parts) {
  std::string s;
  for (std::string_view p : parts) s.append(p);
  return s;
}

bool is_separator(char c) {
  return c == ' ' || c == '\t' || c == ',' || c == '(' || c == ')' || c == '{' || c == '}' || c == '\v' ||
         c == '\f' || c == '\r';
}

std::vector<std::string_view> split(const std::string& line) {
  std::vector<std::string_view> out;
  size_t k = 0;
  while (k < line.size()) {
    while (k < line.size() && is_separator(line[k])) ++k;
    const size_t b = k;
    while (k < line.size() && !is_separator(line[k])) ++k;
    if (k > b) out.emplace_back(line.data() + b, k - b);
  }
  return out;
}

bool parse_int(std::string_view s, int64_t* v) {
  const std::string t(s);
  char* end = nullptr;
  errno = 0;
  const long long x = std::strtoll(t.c_str(), &end, 10);
  if (end == t.c_str() || *end != '\0' || errno == ERANGE) return false;
  *v = x;
  return true;
}

bool parse_real(std::string_view s, double* v) {
  const std::string t(s);
  char* end = nullptr;
  const double x = std::strtod(t.c_str(), &end);
  if (end == t.c_str() || *end != '\0' || !std::isfinite(x)) return false;
  *v = x;
  return true;
}

struct Entry {
  int32_t block, mat, row, col;  // row >= col, 0-based
  double value;
};

// The file's content before any of it goes into the task.
struct SdpaData {
  int64_t m = 0;
  std::vector<int64_t> blocks;  // negative: diagonal
  std::vector<double> c;
  std::vector<Entry> entries;
};

class Parser {
 public:
  Parser(const std::string& path, LineSource* src) : path_(path), src_(src) {}

  bool run(SdpaData* d) {
    int64_t nblocks = 0;
    if (!read_count(&d->m, "the number of constraint matrices", true) ||
        !read_count(&nblocks, "the number of blocks", false))
      return false;
    if (!read_list(nblocks, "block sizes", [&](std::string_view tok) {
          int64_t s = 0;
          if (!parse_int(tok, &s)) return fail({"block size '", tok, "' is not an integer"});
          if (s == 0 || s < -kMaxIndex || s > kMaxIndex)
            return fail({"block size ", std::to_string(s), " is out of range"});
          d->blocks.push_back(s);
          return true;
        }))
      return false;
    if (!read_list(d->m, "objective coefficients c", [&](std::string_view tok) {
          double v = 0.0;
          if (!parse_real(tok, &v)) return fail({"'", tok, "' is not a finite number"});
          d->c.push_back(v);
          return true;
        }))
      return false;
    return read_entries(d);
  }

  const std::string& error() const { return error_; }

 private:
  bool fail(std::initializer_list<std::string_view> what) {
    error_ = cat({path_, ":", std::to_string(src_->line_number()), ": "});
    for (std::string_view p : what) error_.append(p);
    return false;
  }
  bool end_of_file(const char* expected) {
    if (!src_->error().empty()) return fail({src_->error()});
    return fail({"unexpected end of file, expected ", expected});
  }

  // A count alone at the start of its line; the comment lines may precede the first one.
  bool read_count(int64_t* v, const char* what, bool comments_allowed) {
    while (src_->next(&line_)) {
      const auto tok = split(line_);
      if (tok.empty()) continue;
      if (comments_allowed && (tok[0][0] == '"' || tok[0][0] == '*')) continue;
      if (!parse_int(tok[0], v)) return fail({what, ": '", tok[0], "' is not an integer"});
      if (*v < 1 || *v > kMaxIndex) return fail({what, " ", std::to_string(*v), " is out of range"});
      return true;
    }
    return end_of_file(what);
  }

  // n items from the following lines; the rest of the line holding the last one is ignored.
  template <class Take>
  bool read_list(int64_t n, const char* what, Take take) {
    int64_t got = 0;
    while (got < n) {
      if (!src_->next(&line_)) return end_of_file(what);
      for (std::string_view tok : split(line_)) {
        if (!take(tok)) return false;
        if (++got == n) break;
      }
    }
    return true;
  }

  bool read_entries(SdpaData* d) {
    const int64_t nblocks = static_cast<int64_t>(d->blocks.size());
    while (src_->next(&line_)) {
      const auto tok = split(line_);
      if (tok.empty()) continue;
      if (tok.size() != 5) return fail({"an entry has 5 fields (matno blkno i j value), found ", std::to_string(tok.size())});
      int64_t idx[4];
      static const char* const kField[4] = {"matrix number", "block number", "row index", "column index"};
      for (int k = 0; k < 4; ++k)
        if (!parse_int(tok[static_cast<size_t>(k)], &idx[k]))
          return fail({kField[k], " '", tok[static_cast<size_t>(k)], "' is not an integer"});
      double v = 0.0;
      if (!parse_real(tok[4], &v)) return fail({"value '", tok[4], "' is not a finite number"});
      if (idx[0] < 0 || idx[0] > d->m)
        return fail({"matrix number ", std::to_string(idx[0]), " is not in 0..", std::to_string(d->m)});
      if (idx[1] < 1 || idx[1] > nblocks)
        return fail({"block number ", std::to_string(idx[1]), " is not in 1..", std::to_string(nblocks)});
      const int64_t size = d->blocks[static_cast<size_t>(idx[1] - 1)];
      const int64_t dim = size < 0 ? -size : size;
      for (int k = 2; k < 4; ++k)
        if (idx[k] < 1 || idx[k] > dim)
          return fail({kField[k], " ", std::to_string(idx[k]), " is not in 1..", std::to_string(dim), " (block ",
                       std::to_string(idx[1]), ")"});
      if (size < 0 && idx[2] != idx[3])
        return fail({"entry (", std::to_string(idx[2]), ", ", std::to_string(idx[3]),
                     ") is off the diagonal of diagonal block ", std::to_string(idx[1])});
      d->entries.push_back(Entry{static_cast<int32_t>(idx[1] - 1), static_cast<int32_t>(idx[0]),
                                 static_cast<int32_t>(std::max(idx[2], idx[3]) - 1),
                                 static_cast<int32_t>(std::min(idx[2], idx[3]) - 1), v});
    }
    if (!src_->error().empty()) return fail({src_->error()});
    return true;
  }

  const std::string& path_;
  LineSource* src_;
  std::string line_, error_;
};

// Sorts by (block, matrix, column, row) and sums repeated positions; zero sums go.
void merge_entries(std::vector<Entry>* e) {
  std::sort(e->begin(), e->end(), [](const Entry& a, const Entry& b) {
    return std::tie(a.block, a.mat, a.col, a.row) < std::tie(b.block, b.mat, b.col, b.row);
  });
  size_t out = 0;
  for (size_t k = 0; k < e->size();) {
    Entry sum = (*e)[k];
    for (++k; k < e->size() && (*e)[k].block == sum.block && (*e)[k].mat == sum.mat && (*e)[k].col == sum.col &&
              (*e)[k].row == sum.row;
         ++k)
      sum.value += (*e)[k].value;
    if (sum.value != 0.0) (*e)[out++] = sum;
  }
  e->resize(out);
}

// "dir/theta1.dat-s.gz" -> "theta1"
std::string task_name(const std::string& path) {
  std::string base = path.substr(path.find_last_of('/') == std::string::npos ? 0 : path.find_last_of('/') + 1);
  for (const char* s : {".gz", ".dat-s"}) {
    const size_t n = std::strlen(s);
    if (base.size() > n && base.compare(base.size() - n, n, s) == 0) base.resize(base.size() - n);
  }
  return base;
}

class Builder {
 public:
  Builder(QBRtask_t task, std::string* error) : task_(task), error_(error) {}

  bool run(const std::string& path, SdpaData* d) {
    const int32_t m = static_cast<int32_t>(d->m);
    std::vector<int32_t> dims;
    where_.resize(d->blocks.size());
    int64_t ndiag = 0;
    for (size_t b = 0; b < d->blocks.size(); ++b) {
      if (d->blocks[b] > 0) {
        where_[b] = static_cast<int64_t>(dims.size());
        dims.push_back(static_cast<int32_t>(d->blocks[b]));
      } else {
        where_[b] = ndiag;
        ndiag += -d->blocks[b];
      }
    }
    if (ndiag > kMaxIndex || (ndiag > kUnconfirmedDiagonal && ndiag > static_cast<int64_t>(d->entries.size()))) {
      *error_ = cat({path, ": the diagonal blocks declare ", std::to_string(ndiag), " positions, too many for the ",
                     std::to_string(d->entries.size()), " entries in the file"});
      return false;
    }
    merge_entries(&d->entries);
    const std::string name = task_name(path);
    return ok(QBR_puttaskname(task_, name.c_str()), "QBR_puttaskname") &&
           ok(QBR_putobjsense(task_, QBR_OBJECTIVE_SENSE_MAXIMIZE), "QBR_putobjsense") &&
           ok(QBR_appendcons(task_, m), "QBR_appendcons") && put_rhs(d->c) &&
           ok(QBR_appendbarvars(task_, static_cast<int32_t>(dims.size()), dims.data()), "QBR_appendbarvars") &&
           ok(QBR_appendvars(task_, static_cast<int32_t>(ndiag)), "QBR_appendvars") &&
           (ndiag == 0 || ok(QBR_putvarboundsliceconst(task_, 0, static_cast<int32_t>(ndiag), QBR_BK_LO, 0.0,
                                                       QBR_INFINITY),
                             "QBR_putvarboundsliceconst")) &&
           put_entries(*d);
  }

 private:
  bool ok(QBRrescode r, const char* call) {
    if (r == QBR_RES_OK) return true;
    *error_ = cat({call, " failed"});
    return false;
  }

  bool put_rhs(const std::vector<double>& c) {
    for (size_t i = 0; i < c.size(); ++i)
      if (!ok(QBR_putconbound(task_, static_cast<int32_t>(i), QBR_BK_FX, c[i], c[i]), "QBR_putconbound")) return false;
    return true;
  }

  // One stored matrix per (block, F_i) of a semidefinite block; the scalar variables of the
  // diagonal blocks take F_0's entries as objective and the others as a list of a_ij.
  bool put_entries(const SdpaData& d) {
    const std::vector<Entry>& e = d.entries;
    std::vector<int32_t> subi, subj;
    std::vector<double> val;
    for (size_t k = 0; k < e.size();) {
      size_t end = k;
      while (end < e.size() && e[end].block == e[k].block && e[end].mat == e[k].mat) ++end;
      const int64_t at = where_[static_cast<size_t>(e[k].block)];
      if (d.blocks[static_cast<size_t>(e[k].block)] < 0) {
        for (size_t q = k; q < end; ++q) {
          const int32_t col = static_cast<int32_t>(at + e[q].row);
          if (e[q].mat == 0) {
            if (!ok(QBR_putcj(task_, col, e[q].value), "QBR_putcj")) return false;
          } else {
            subi.push_back(e[q].mat - 1);
            subj.push_back(col);
            val.push_back(e[q].value);
          }
        }
      } else if (!put_matrix(static_cast<int32_t>(at), static_cast<int32_t>(d.blocks[static_cast<size_t>(e[k].block)]),
                             e[k].mat, e.data() + k, end - k)) {
        return false;
      }
      k = end;
    }
    return subi.empty() || ok(QBR_putaijlist64(task_, static_cast<QBRint64t>(subi.size()), subi.data(), subj.data(),
                                               val.data()),
                              "QBR_putaijlist64");
  }

  bool put_matrix(int32_t barvar, int32_t dim, int32_t mat, const Entry* e, size_t n) {
    std::vector<int32_t> r(n), c(n);
    std::vector<double> v(n);
    for (size_t q = 0; q < n; ++q) {
      r[q] = e[q].row;
      c[q] = e[q].col;
      v[q] = e[q].value;
    }
    QBRint64t idx = -1;
    if (!ok(QBR_appendsparsesymmat(task_, dim, static_cast<QBRint64t>(n), r.data(), c.data(), v.data(), &idx),
            "QBR_appendsparsesymmat"))
      return false;
    const double one = 1.0;
    return mat == 0 ? ok(QBR_putbarcj(task_, barvar, 1, &idx, &one), "QBR_putbarcj")
                    : ok(QBR_putbaraij(task_, mat - 1, barvar, 1, &idx, &one), "QBR_putbaraij");
  }

  QBRtask_t task_;
  std::string* error_;
  std::vector<int64_t> where_;  // per block: matrix variable, or first scalar variable
};

}  // namespace

bool is_sdpa_file_name(const std::string& name) {
  for (std::string_view s : {".dat-s", ".dat-s.gz"})
    if (name.size() > s.size() && name.compare(name.size() - s.size(), s.size(), s) == 0) return true;
  return false;
}

bool read_sdpa(QBRtask_t task, const std::string& path, std::string* error) {
  LineSource src(path);
  if (!src.is_open()) {
    *error = cat({path, ": cannot open: ", std::strerror(errno)});
    return false;
  }
  SdpaData data;
  Parser parser(path, &src);
  if (!parser.run(&data)) {
    *error = parser.error();
    return false;
  }
  return Builder(task, error).run(path, &data);
}

}  // namespace qubor_app
