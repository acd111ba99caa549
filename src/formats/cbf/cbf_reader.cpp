// The CBF reader: the file is parsed into a model first (every index checked against the
// sizes declared before it, which the format requires to come first), then the model is
// loaded into the task through the public operations as cbf.h describes.
//
// Layout: a keyword line starts a section, its data lines follow; blank lines and lines that
// start with '#' are skipped. Sections may come once each, VER first.
#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <string>
#include <string_view>
#include <vector>

#include "formats/cbf/cbf.h"
#include "formats/frame/line_reader.h"
#include "formats/frame/try.h"
#include "formats/mps/mps_loader.h"
#include "task/report.h"

namespace qubor::formats {

using task::Task;

namespace {

using cbf::Domain;
using cbf::DomainRow;

// Declared items (variables, constraints, matrix entries turned into constraints) allowed
// beyond those the text of the file can account for.
constexpr int64_t kFreeItems = int64_t{1} << 20;
constexpr int64_t kItemsPerByte = 64;
constexpr int64_t kSaturated = int64_t{1} << 62;
// Reservations made from a declared count, before the entries confirm it.
constexpr int64_t kMaxReserve = int64_t{1} << 16;

enum class Sec {
  kVer, kPowCones, kPowStarCones, kObjSense, kPsdVar, kVar, kInt, kPsdCon, kCon,
  kObjFCoord, kObjACoord, kObjBCoord, kFCoord, kACoord, kBCoord, kHCoord, kDCoord, kCount
};

struct SectionRow {
  std::string_view word;
  Sec sec;
  QBRrescode repeated;  // the response to a second occurrence
};

constexpr SectionRow kSections[] = {
    {"VER", Sec::kVer, QBR_RES_ERR_CBF_SYNTAX},
    {"POWCONES", Sec::kPowCones, QBR_RES_ERR_CBF_DUPLICATE_POW_CONES},
    {"POW*CONES", Sec::kPowStarCones, QBR_RES_ERR_CBF_DUPLICATE_POW_STAR_CONES},
    {"OBJSENSE", Sec::kObjSense, QBR_RES_ERR_CBF_DUPLICATE_OBJ},
    {"PSDVAR", Sec::kPsdVar, QBR_RES_ERR_CBF_DUPLICATE_PSDVAR},
    {"VAR", Sec::kVar, QBR_RES_ERR_CBF_DUPLICATE_VAR},
    {"INT", Sec::kInt, QBR_RES_ERR_CBF_DUPLICATE_INT},
    {"PSDCON", Sec::kPsdCon, QBR_RES_ERR_CBF_SYNTAX},
    {"CON", Sec::kCon, QBR_RES_ERR_CBF_DUPLICATE_CON},
    {"OBJFCOORD", Sec::kObjFCoord, QBR_RES_ERR_CBF_DUPLICATE_OBJ},
    {"OBJACOORD", Sec::kObjACoord, QBR_RES_ERR_CBF_DUPLICATE_OBJ},
    {"OBJBCOORD", Sec::kObjBCoord, QBR_RES_ERR_CBF_DUPLICATE_OBJ},
    {"FCOORD", Sec::kFCoord, QBR_RES_ERR_CBF_SYNTAX},
    {"ACOORD", Sec::kACoord, QBR_RES_ERR_CBF_SYNTAX},
    {"BCOORD", Sec::kBCoord, QBR_RES_ERR_CBF_SYNTAX},
    {"HCOORD", Sec::kHCoord, QBR_RES_ERR_CBF_SYNTAX},
    {"DCOORD", Sec::kDCoord, QBR_RES_ERR_CBF_SYNTAX},
};

// Words of the format that this reader does not take (problem sequences of version 3).
constexpr std::string_view kUnsupported[] = {"CHANGE"};

struct Cone {
  Domain domain;
  int32_t dim;
  double par;  // power cones only
};

// One entry of a sparse matrix or vector; `a` to `d` are its indices in the section's order.
struct Entry {
  int32_t a, b, c, d;
  double v;
  int32_t line;
};

// Powers of the POWCONES or POW*CONES section: cone k has pow[ptr[k]] .. pow[ptr[k+1]-1].
struct Powers {
  std::vector<int64_t> ptr{0};
  std::vector<double> pow;
  int32_t count() const { return static_cast<int32_t>(ptr.size()) - 1; }
};

struct Model {
  int32_t sense = QBR_OBJECTIVE_SENSE_MINIMIZE;
  Powers pow, pow_star;
  int32_t numvar = 0, numcon = 0;
  std::vector<Cone> var_cones, con_cones;
  std::vector<int32_t> ints;
  std::vector<int32_t> psdvar, psdcon;
  double cfix = 0.0;
  std::vector<Entry> objf, obja, f, a, b, h, d;
};

bool parse_int(std::string_view s, int64_t* v) {
  auto r = std::from_chars(s.data(), s.data() + s.size(), *v);
  return r.ec == std::errc() && r.ptr == s.data() + s.size();
}

bool parse_real(std::string_view s, double* v) {
  if (!s.empty() && s.front() == '+') s.remove_prefix(1);
  auto r = std::from_chars(s.data(), s.data() + s.size(), *v);
  return r.ec == std::errc() && r.ptr == s.data() + s.size() && std::isfinite(*v);
}

int64_t triangle(int64_t d) { return d * (d + 1) / 2; }

class CbfReader {
 public:
  CbfReader(Task& t, platform::InStream& in, const char* name) : t_(t), lines_(in), name_(name ? name : "") {}

  QBRrescode run() {
    QUBOR_TRY(parse());
    return load();
  }

 private:
  // ---- Lines and fields -------------------------------------------------------------------

  int32_t line() const { return static_cast<int32_t>(lines_.line_number()); }

  // The next line that is neither blank nor a comment, split at blanks.
  bool next_line() {
    std::string_view s;
    while (lines_.next(&s)) {
      bytes_ += static_cast<int64_t>(s.size()) + 1;
      nf_ = 0;
      size_t k = 0;
      while (true) {
        while (k < s.size() && (s[k] == ' ' || s[k] == '\t' || s[k] == '\r')) ++k;
        if (k == s.size()) break;
        size_t e = k;
        while (e < s.size() && s[e] != ' ' && s[e] != '\t' && s[e] != '\r') ++e;
        if (nf_ == f_.size()) {
          ++nf_;  // too many fields: the caller's count check fails
          break;
        }
        f_[nf_++] = s.substr(k, e - k);
        k = e;
      }
      if (nf_ > 0 && f_[0].front() != '#') return true;
    }
    return false;
  }

  QBRrescode syntax() { return QBR_REPORT(t_, QBR_RES_ERR_CBF_SYNTAX, line()); }

  // A data line of exactly `n` fields.
  QBRrescode data_line(size_t n) {
    if (!next_line()) return lines_.failed() ? read_failure() : syntax();
    return nf_ == n ? QBR_RES_OK : syntax();
  }

  QBRrescode read_failure() { return QBR_REPORT(t_, QBR_RES_ERR_FILE_READ, name_); }

  QBRrescode int_field(size_t k, int64_t lo, int64_t hi, int64_t* v) {
    if (!parse_int(f_[k], v) || *v < lo || *v > hi) return syntax();
    return QBR_RES_OK;
  }

  QBRrescode real_field(size_t k, double* v) { return parse_real(f_[k], v) ? QBR_RES_OK : syntax(); }

  // A count line (a section's header) of `n` nonnegative 32-bit counts.
  QBRrescode counts(size_t n, int64_t* v) {
    QUBOR_TRY(data_line(n));
    for (size_t k = 0; k < n; ++k) QUBOR_TRY(int_field(k, 0, INT32_MAX, v + k));
    return QBR_RES_OK;
  }

  // Declared items are counted while parsing; the file as a whole must account for them
  // (checked before the task grows). The largest declaration is the one named.
  void declare(int64_t items, std::string_view what, int64_t dim) {
    declared_ = std::min(declared_ + items, kSaturated);  // items <= 2^61
    if (items > largest_.items) largest_ = {items, dim, std::string(what), line()};
  }

  QBRrescode check_declared() {
    if (declared_ <= kFreeItems + kItemsPerByte * bytes_) return QBR_RES_OK;
    return QBR_REPORT(t_, QBR_RES_ERR_CBF_INVALID_DOMAIN_DIMENSION, largest_.dim, largest_.what, largest_.line);
  }

  // ---- Sections -----------------------------------------------------------------------------

  QBRrescode parse() {
    std::array<bool, static_cast<size_t>(Sec::kCount)> seen{};
    while (next_line()) {
      const SectionRow* row = nullptr;
      for (const SectionRow& r : kSections)
        if (f_[0] == r.word) row = &r;
      if (!row) {
        for (std::string_view w : kUnsupported)
          if (f_[0] == w) return QBR_REPORT(t_, QBR_RES_ERR_CBF_UNSUPPORTED, std::string(w), line());
        return QBR_REPORT(t_, QBR_RES_ERR_CBF_PARSE, line());
      }
      if (nf_ != 1) return syntax();
      if (!seen[static_cast<size_t>(Sec::kVer)] && row->sec != Sec::kVer)
        return QBR_REPORT(t_, QBR_RES_ERR_CBF_NO_VERSION_SPECIFIED);
      bool& s = seen[static_cast<size_t>(row->sec)];
      if (s) return QBR_REPORT(t_, row->repeated, line());
      s = true;
      QUBOR_TRY(section(row->sec));
    }
    if (lines_.failed()) return read_failure();
    if (!seen[static_cast<size_t>(Sec::kVer)]) return QBR_REPORT(t_, QBR_RES_ERR_CBF_NO_VERSION_SPECIFIED);
    if (!seen[static_cast<size_t>(Sec::kVar)] && !seen[static_cast<size_t>(Sec::kPsdVar)])
      return QBR_REPORT(t_, QBR_RES_ERR_CBF_NO_VARIABLES);
    return QBR_RES_OK;
  }

  QBRrescode section(Sec s) {
    switch (s) {
      case Sec::kVer: return version();
      case Sec::kPowCones: return powers(&m_.pow, QBR_RES_ERR_CBF_POWER_CONE_IS_TOO_LONG);
      case Sec::kPowStarCones: return powers(&m_.pow_star, QBR_RES_ERR_CBF_POWER_CONE_IS_TOO_LONG);
      case Sec::kObjSense: return objsense();
      case Sec::kPsdVar: return psd_dims(&m_.psdvar, "PSDVAR");
      case Sec::kVar: return domains(&m_.numvar, &m_.var_cones, QBR_RES_ERR_CBF_INVALID_VAR_TYPE);
      case Sec::kInt: return ints();
      case Sec::kPsdCon: return psd_dims(&m_.psdcon, "PSDCON");
      case Sec::kCon: return domains(&m_.numcon, &m_.con_cones, QBR_RES_ERR_CBF_INVALID_CON_TYPE);
      case Sec::kObjFCoord: return entries(&m_.objf, {Index::kPsdVar, Index::kRow, Index::kCol});
      case Sec::kObjACoord: return entries(&m_.obja, {Index::kVar});
      case Sec::kObjBCoord: return objb();
      case Sec::kFCoord: return entries(&m_.f, {Index::kCon, Index::kPsdVar, Index::kRow, Index::kCol});
      case Sec::kACoord: return entries(&m_.a, {Index::kCon, Index::kVar});
      case Sec::kBCoord: return entries(&m_.b, {Index::kCon});
      case Sec::kHCoord: return entries(&m_.h, {Index::kPsdCon, Index::kVar, Index::kRow, Index::kCol});
      case Sec::kDCoord: return entries(&m_.d, {Index::kPsdCon, Index::kRow, Index::kCol});
      default: return syntax();
    }
  }

  QBRrescode version() {
    QUBOR_TRY(data_line(1));
    int64_t v = 0;
    if (!parse_int(f_[0], &v)) return syntax();
    if (v < 1 || v > 3) return QBR_REPORT(t_, QBR_RES_ERR_CBF_UNSUPPORTED, "VER " + std::string(f_[0]), line());
    return QBR_RES_OK;
  }

  QBRrescode objsense() {
    QUBOR_TRY(data_line(1));
    if (f_[0] == "MIN") {
      m_.sense = QBR_OBJECTIVE_SENSE_MINIMIZE;
    } else if (f_[0] == "MAX") {
      m_.sense = QBR_OBJECTIVE_SENSE_MAXIMIZE;
    } else {
      return QBR_REPORT(t_, QBR_RES_ERR_CBF_OBJ_SENSE, std::string(f_[0]), line());
    }
    return QBR_RES_OK;
  }

  // "k total", then per cone its number of powers and the powers, one a line.
  QBRrescode powers(Powers* p, QBRrescode too_long) {
    int64_t head[2];
    QUBOR_TRY(counts(2, head));
    for (int64_t k = 0; k < head[0]; ++k) {
      int64_t np = 0;
      QUBOR_TRY(data_line(1));
      QUBOR_TRY(int_field(0, 1, INT32_MAX, &np));
      if (p->ptr.back() + np > head[1]) return QBR_REPORT(t_, too_long, static_cast<int32_t>(k), line());
      for (int64_t q = 0; q < np; ++q) {
        double v = 0.0;
        QUBOR_TRY(data_line(1));
        QUBOR_TRY(real_field(0, &v));
        if (!(v > 0.0)) return QBR_REPORT(t_, QBR_RES_ERR_CBF_INVALID_POWER, v, line());
        p->pow.push_back(v);
      }
      p->ptr.push_back(static_cast<int64_t>(p->pow.size()));
    }
    if (p->ptr.back() != head[1]) return syntax();
    return QBR_RES_OK;
  }

  QBRrescode psd_dims(std::vector<int32_t>* dims, const char* what) {
    int64_t n = 0;
    QUBOR_TRY(counts(1, &n));
    const bool var = dims == &m_.psdvar;
    for (int64_t k = 0; k < n; ++k) {
      if (!next_line()) {
        if (lines_.failed()) return read_failure();
        if (var) return QBR_REPORT(t_, QBR_RES_ERR_CBF_TOO_FEW_PSDVAR, static_cast<int32_t>(k), static_cast<int32_t>(n));
        return syntax();
      }
      int64_t d = 0;
      if (nf_ != 1 || !parse_int(f_[0], &d)) return syntax();
      if (d < 1 || d > INT32_MAX) {
        if (var) return QBR_REPORT(t_, QBR_RES_ERR_CBF_INVALID_PSDVAR_DIMENSION, d, static_cast<int32_t>(k), line());
        return QBR_REPORT(t_, QBR_RES_ERR_CBF_INVALID_DOMAIN_DIMENSION, d, what, line());
      }
      // A block of the constraint side becomes d(d+1)/2 constraints.
      if (!var) declare(triangle(d), what, d);
      dims->push_back(static_cast<int32_t>(d));
    }
    return QBR_RES_OK;
  }

  // The domain word: a name of kDomains, or "@k:POW" / "@k:POW*" with a power-cone index.
  QBRrescode domain(std::string_view w, QBRrescode invalid, int64_t dim, Cone* c) {
    int64_t k = -1;
    if (!w.empty() && w.front() == '@') {
      const size_t colon = w.find(':');
      if (colon == std::string_view::npos || !parse_int(w.substr(1, colon - 1), &k))
        return QBR_REPORT(t_, invalid, std::string(w), line());
      w = w.substr(colon + 1);
    }
    const DomainRow* row = nullptr;
    for (const DomainRow& r : cbf::kDomains)
      if (r.word == w) row = &r;
    const bool power = row && (row->domain == Domain::kPow || row->domain == Domain::kDpow);
    if (!row || power != (k >= 0)) return QBR_REPORT(t_, invalid, std::string(w), line());
    c->domain = row->domain;
    c->dim = static_cast<int32_t>(dim);
    c->par = 0.0;
    if (row->domain == Domain::kExp || row->domain == Domain::kDexp) {
      if (dim != 3) return QBR_REPORT(t_, QBR_RES_ERR_CBF_INVALID_EXP_DIMENSION, line(), c->dim);
    } else if (row->domain == Domain::kRquad && dim < 2) {
      return QBR_REPORT(t_, QBR_RES_ERR_CBF_INVALID_DOMAIN_DIMENSION, c->dim, std::string(w), line());
    }
    if (power) QUBOR_TRY(power_parameter(row->domain == Domain::kPow, k, c));
    return QBR_RES_OK;
  }

  // The task's power cones have two powers; the parameter is the first one's share.
  QBRrescode power_parameter(bool primal, int64_t k, Cone* c) {
    const Powers& p = primal ? m_.pow : m_.pow_star;
    if (k < 0 || k >= p.count()) {
      return QBR_REPORT(t_, primal ? QBR_RES_ERR_CBF_INVALID_POWER_CONE_INDEX : QBR_RES_ERR_CBF_INVALID_POWER_STAR_CONE_INDEX,
                        k, line());
    }
    const size_t b = static_cast<size_t>(p.ptr[static_cast<size_t>(k)]);
    const int64_t np = p.ptr[static_cast<size_t>(k) + 1] - p.ptr[static_cast<size_t>(k)];
    if (c->dim < np) {
      return QBR_REPORT(t_, primal ? QBR_RES_ERR_CBF_POWER_CONE_MISMATCH : QBR_RES_ERR_CBF_POWER_STAR_CONE_MISMATCH,
                        static_cast<int32_t>(k), c->dim, np);
    }
    if (np != 2) {
      return QBR_REPORT(t_, primal ? QBR_RES_ERR_CBF_UNHANDLED_POWER_CONE_TYPE : QBR_RES_ERR_CBF_UNHANDLED_POWER_STAR_CONE_TYPE,
                        static_cast<int32_t>(k));
    }
    c->par = p.pow[b] / (p.pow[b] + p.pow[b + 1]);
    return QBR_RES_OK;
  }

  // "n k", then k lines "DOMAIN dim" whose dimensions add up to n.
  QBRrescode domains(int32_t* n, std::vector<Cone>* cones, QBRrescode invalid) {
    int64_t head[2];
    QUBOR_TRY(counts(2, head));
    *n = static_cast<int32_t>(head[0]);
    cones->reserve(static_cast<size_t>(std::min(head[1], kMaxReserve)));
    int64_t total = 0;
    const bool con = cones == &m_.con_cones;
    for (int64_t k = 0; k < head[1]; ++k) {
      if (!next_line()) {
        if (lines_.failed()) return read_failure();
        return QBR_REPORT(t_, QBR_RES_ERR_CBF_INVALID_NUMBER_OF_CONES, static_cast<int32_t>(k),
                          static_cast<int32_t>(head[1]));
      }
      int64_t dim = 0;
      if (nf_ != 2 || !parse_int(f_[1], &dim)) return syntax();
      if (dim < 1 || dim > INT32_MAX)
        return QBR_REPORT(t_, QBR_RES_ERR_CBF_INVALID_DOMAIN_DIMENSION, dim, std::string(f_[0]), line());
      Cone c{};
      QUBOR_TRY(domain(f_[0], invalid, dim, &c));
      // Variables, or constraints and (for conic rows) their new variables.
      const bool conic = cbf::domain_row(c.domain).cone_type >= 0;
      declare(con && conic ? 2 * dim : dim, f_[0], dim);
      total += dim;
      if (total > head[0])
        return QBR_REPORT(t_, QBR_RES_ERR_CBF_INVALID_DIMENSION_OF_CONES, total, head[0]);
      cones->push_back(c);
    }
    if (total != head[0]) return QBR_REPORT(t_, QBR_RES_ERR_CBF_INVALID_DIMENSION_OF_CONES, total, head[0]);
    return QBR_RES_OK;
  }

  QBRrescode ints() {
    int64_t n = 0;
    QUBOR_TRY(counts(1, &n));
    m_.ints.reserve(static_cast<size_t>(std::min(n, kMaxReserve)));
    for (int64_t k = 0; k < n; ++k) {
      if (!next_line()) {
        if (lines_.failed()) return read_failure();
        return QBR_REPORT(t_, QBR_RES_ERR_CBF_TOO_FEW_INTS, static_cast<int32_t>(k), static_cast<int32_t>(n));
      }
      int64_t j = 0;
      if (nf_ != 1) return QBR_REPORT(t_, QBR_RES_ERR_CBF_TOO_MANY_INTS, static_cast<int32_t>(n), line());
      if (!parse_int(f_[0], &j) || j < 0 || j >= m_.numvar)
        return QBR_REPORT(t_, QBR_RES_ERR_CBF_INVALID_INT_INDEX, j, line());
      m_.ints.push_back(static_cast<int32_t>(j));
    }
    return QBR_RES_OK;
  }

  QBRrescode objb() {
    QUBOR_TRY(data_line(1));
    return real_field(0, &m_.cfix);
  }

  // The kinds of index fields of the coordinate sections.
  enum class Index { kVar, kCon, kPsdVar, kPsdCon, kRow, kCol };

  // One index field; kRow and kCol are checked against the matrix named by the entry's
  // first field (a PSDVAR or PSDCON index).
  QBRrescode index_field(size_t k, Index kind, int32_t matrix_dim, int32_t* v) {
    int64_t x = 0;
    if (!parse_int(f_[k], &x)) return syntax();
    switch (kind) {
      case Index::kVar:
        if (x < 0 || x >= m_.numvar) return QBR_REPORT(t_, QBR_RES_ERR_CBF_TOO_MANY_VARIABLES, m_.numvar, line());
        break;
      case Index::kCon:
        if (x < 0 || x >= m_.numcon) return QBR_REPORT(t_, QBR_RES_ERR_CBF_TOO_MANY_CONSTRAINTS, m_.numcon, line());
        break;
      case Index::kPsdVar:
        if (x < 0 || x >= static_cast<int64_t>(m_.psdvar.size())) return syntax();
        break;
      case Index::kPsdCon:
        if (x < 0 || x >= static_cast<int64_t>(m_.psdcon.size())) return syntax();
        break;
      default:
        if (x < 0 || x >= matrix_dim) return syntax();
    }
    *v = static_cast<int32_t>(x);
    return QBR_RES_OK;
  }

  // "nnz", then nnz lines of the given indices and a value.
  QBRrescode entries(std::vector<Entry>* out, std::initializer_list<Index> kinds) {
    int64_t nnz = 0;
    QUBOR_TRY(counts(1, &nnz));
    out->reserve(static_cast<size_t>(std::min(nnz, kMaxReserve)));
    const size_t n = kinds.size();
    for (int64_t q = 0; q < nnz; ++q) {
      QUBOR_TRY(data_line(n + 1));
      int32_t idx[4] = {0, 0, 0, 0};
      int32_t dim = 0;
      size_t k = 0;
      for (Index kind : kinds) {
        QUBOR_TRY(index_field(k, kind, dim, &idx[k]));
        if (kind == Index::kPsdVar) dim = m_.psdvar[static_cast<size_t>(idx[k])];
        if (kind == Index::kPsdCon) dim = m_.psdcon[static_cast<size_t>(idx[k])];
        ++k;
      }
      Entry e{idx[0], idx[1], idx[2], idx[3], 0.0, line()};
      QUBOR_TRY(real_field(n, &e.v));
      // Matrix entries go to the lower triangle: the last two indices are (row, column).
      if (n == 3 && e.b < e.c) std::swap(e.b, e.c);
      if (n == 4 && e.c < e.d) std::swap(e.c, e.d);
      out->push_back(e);
    }
    return QBR_RES_OK;
  }

  // ---- Loading ------------------------------------------------------------------------------

  // Entries sorted by their indices; an index set given twice fails with `code` (the later
  // line) unless `code` is 0.
  QBRrescode sort_unique(std::vector<Entry>& v, QBRrescode code, bool matrix) {
    const auto key = [](const Entry& e) { return std::array<int32_t, 4>{e.a, e.b, e.c, e.d}; };
    std::stable_sort(v.begin(), v.end(), [&](const Entry& x, const Entry& y) { return key(x) < key(y); });
    for (size_t k = 1; k < v.size(); ++k) {
      if (key(v[k]) != key(v[k - 1])) continue;
      const int32_t at = std::max(v[k].line, v[k - 1].line);
      if (matrix) return QBR_REPORT(t_, QBR_RES_ERR_CBF_SYNTAX, at);
      if (code == QBR_RES_ERR_CBF_DUPLICATE_ACOORD) return QBR_REPORT(t_, code, v[k].b, v[k].a, at);
      return QBR_REPORT(t_, code, v[k].a, at);
    }
    return QBR_RES_OK;
  }

  QBRrescode load() {
    QUBOR_TRY(check_declared());
    QUBOR_TRY(sort_unique(m_.obja, QBR_RES_ERR_CBF_DUPLICATE_OBJACOORD, false));
    QUBOR_TRY(sort_unique(m_.a, QBR_RES_ERR_CBF_DUPLICATE_ACOORD, false));
    QUBOR_TRY(sort_unique(m_.b, QBR_RES_ERR_CBF_DUPLICATE_BCOORD, false));
    QUBOR_TRY(sort_unique(m_.d, QBR_RES_ERR_CBF_DUPLICATE_BCOORD, false));
    for (std::vector<Entry>* v : {&m_.objf, &m_.f, &m_.h}) QUBOR_TRY(sort_unique(*v, 0, true));
    h_ = t_.handle;
    QUBOR_TRY(QBR_putobjsense(h_, m_.sense));
    if (m_.cfix != 0.0) QUBOR_TRY(QBR_putcfix(h_, m_.cfix));
    QUBOR_TRY(load_variables());
    QUBOR_TRY(load_constraints());
    QUBOR_TRY(load_matrix());
    QUBOR_TRY(load_cones());
    return load_barvars();
  }

  QBRrescode load_variables() {
    int64_t aux = 0;
    for (const Cone& c : m_.con_cones)
      if (cbf::domain_row(c.domain).cone_type >= 0) aux += c.dim;
    if (m_.numvar + aux > INT32_MAX) return QBR_REPORT(t_, QBR_RES_ERR_CBF_TOO_MANY_VARIABLES, INT32_MAX, line());
    const int32_t n = m_.numvar + static_cast<int32_t>(aux);
    if (n == 0) return QBR_RES_OK;
    QUBOR_TRY(QBR_appendvars(h_, n));
    std::vector<int32_t> bk(static_cast<size_t>(n), QBR_BK_FR);
    std::vector<double> bl(static_cast<size_t>(n), -1.0e30), bu(static_cast<size_t>(n), 1.0e30);
    size_t j = 0;
    for (const Cone& c : m_.var_cones) {
      for (int32_t q = 0; q < c.dim; ++q, ++j) {
        if (c.domain == Domain::kNonneg || c.domain == Domain::kZero) bl[j] = 0.0;
        if (c.domain == Domain::kNonpos || c.domain == Domain::kZero) bu[j] = 0.0;
        bk[j] = bound_key(bl[j], bu[j]);
      }
    }
    QUBOR_TRY(QBR_putvarboundslice(h_, 0, n, bk.data(), bl.data(), bu.data()));
    if (!m_.obja.empty()) {
      std::vector<int32_t> sub;
      std::vector<double> val;
      for (const Entry& e : m_.obja) {
        sub.push_back(e.a);
        val.push_back(e.v);
      }
      QUBOR_TRY(QBR_putclist(h_, static_cast<int32_t>(sub.size()), sub.data(), val.data()));
    }
    if (!m_.ints.empty()) {
      std::vector<int32_t> types(m_.ints.size(), QBR_VAR_TYPE_INT);
      QUBOR_TRY(QBR_putvartypelist(h_, static_cast<int32_t>(m_.ints.size()), m_.ints.data(), types.data()));
    }
    return QBR_RES_OK;
  }

  // The first constraint of PSDCON block p, and the offset of (k, l), k >= l, within it.
  int64_t psdcon_first(size_t p) const { return m_.numcon + psdcon_offset_[p]; }
  static int64_t tri_index(int32_t k, int32_t l) { return triangle(k) + l; }

  QBRrescode load_constraints() {
    int64_t rows = m_.numcon;
    for (int32_t d : m_.psdcon) {
      psdcon_offset_.push_back(rows - m_.numcon);
      rows += triangle(d);
    }
    if (rows > INT32_MAX) return QBR_REPORT(t_, QBR_RES_ERR_CBF_TOO_MANY_CONSTRAINTS, INT32_MAX, line());
    const int32_t m = static_cast<int32_t>(rows);
    if (m == 0) return QBR_RES_OK;
    QUBOR_TRY(QBR_appendcons(h_, m));
    std::vector<double> rhs(static_cast<size_t>(m), 0.0);  // the negated constant terms
    for (const Entry& e : m_.b) rhs[static_cast<size_t>(e.a)] = -e.v;
    for (const Entry& e : m_.d) rhs[static_cast<size_t>(psdcon_first(static_cast<size_t>(e.a)) + tri_index(e.b, e.c))] = -e.v;
    std::vector<int32_t> bk(static_cast<size_t>(m), QBR_BK_FX);
    std::vector<double> bl(static_cast<size_t>(m)), bu(static_cast<size_t>(m));
    size_t i = 0;
    for (const Cone& c : m_.con_cones) {
      for (int32_t q = 0; q < c.dim; ++q, ++i) {
        bl[i] = c.domain == Domain::kFree || c.domain == Domain::kNonpos ? -1.0e30 : rhs[i];
        bu[i] = c.domain == Domain::kFree || c.domain == Domain::kNonneg ? 1.0e30 : rhs[i];
        bk[i] = bound_key(bl[i], bu[i]);
      }
    }
    for (; i < rhs.size(); ++i) bl[i] = bu[i] = rhs[i];
    return QBR_putconboundslice(h_, 0, m, bk.data(), bl.data(), bu.data());
  }

  // A together with -1 for the new variable of each conic row and H of the PSDCON rows.
  QBRrescode load_matrix() {
    std::vector<int32_t> subi, subj;
    std::vector<double> val;
    const size_t nnz = m_.a.size() + m_.h.size();
    subi.reserve(nnz);
    subj.reserve(nnz);
    val.reserve(nnz);
    const auto add = [&](int64_t i, int64_t j, double v) {
      subi.push_back(static_cast<int32_t>(i));
      subj.push_back(static_cast<int32_t>(j));
      val.push_back(v);
    };
    for (const Entry& e : m_.a) add(e.a, e.b, e.v);
    for (const Entry& e : m_.h) add(psdcon_first(static_cast<size_t>(e.a)) + tri_index(e.c, e.d), e.b, e.v);
    int64_t i = 0, t = m_.numvar;
    for (const Cone& c : m_.con_cones) {
      const bool conic = cbf::domain_row(c.domain).cone_type >= 0;
      for (int32_t q = 0; q < c.dim; ++q, ++i)
        if (conic) add(i, t++, -1.0);
    }
    if (val.empty()) return QBR_RES_OK;
    return QBR_putaijlist64(h_, static_cast<int64_t>(val.size()), subi.data(), subj.data(), val.data());
  }

  QBRrescode load_cones() {
    int32_t j = 0;
    for (const Cone& c : m_.var_cones) {
      const int32_t ct = cbf::domain_row(c.domain).cone_type;
      if (ct >= 0) QUBOR_TRY(QBR_appendconeseq(h_, ct, c.par, c.dim, j));
      j += c.dim;
    }
    for (const Cone& c : m_.con_cones) {
      const int32_t ct = cbf::domain_row(c.domain).cone_type;
      if (ct < 0) continue;
      QUBOR_TRY(QBR_appendconeseq(h_, ct, c.par, c.dim, j));
      j += c.dim;
    }
    return QBR_RES_OK;
  }

  // One stored matrix of the entries [b, e) (row and column in fields c, d of a sorted run);
  // its index goes to *idx.
  QBRrescode symmat(int32_t dim, const Entry* b, const Entry* e, bool fcoord, int64_t* idx) {
    std::vector<int32_t> si, sj;
    std::vector<double> sv;
    for (const Entry* p = b; p != e; ++p) {
      si.push_back(fcoord ? p->c : p->b);
      sj.push_back(fcoord ? p->d : p->c);
      sv.push_back(p->v);
    }
    return QBR_appendsparsesymmat(h_, dim, static_cast<int64_t>(sv.size()), si.data(), sj.data(), sv.data(), idx);
  }

  QBRrescode load_barvars() {
    std::vector<int32_t> dims = m_.psdvar;
    dims.insert(dims.end(), m_.psdcon.begin(), m_.psdcon.end());
    if (dims.empty()) return QBR_RES_OK;
    QUBOR_TRY(QBR_appendbarvars(h_, static_cast<int32_t>(dims.size()), dims.data()));
    const double one = 1.0;
    int64_t idx = 0;
    // OBJFCOORD runs of one matrix variable (field a); FCOORD runs of one (row a, var b).
    for (size_t k = 0; k < m_.objf.size();) {
      size_t e = k;
      while (e < m_.objf.size() && m_.objf[e].a == m_.objf[k].a) ++e;
      const int32_t j = m_.objf[k].a;
      QUBOR_TRY(symmat(dims[static_cast<size_t>(j)], &m_.objf[k], m_.objf.data() + e, false, &idx));
      QUBOR_TRY(QBR_putbarcj(h_, j, 1, &idx, &one));
      k = e;
    }
    for (size_t k = 0; k < m_.f.size();) {
      size_t e = k;
      while (e < m_.f.size() && m_.f[e].a == m_.f[k].a && m_.f[e].b == m_.f[k].b) ++e;
      const int32_t j = m_.f[k].b;
      QUBOR_TRY(symmat(dims[static_cast<size_t>(j)], &m_.f[k], m_.f.data() + e, true, &idx));
      QUBOR_TRY(QBR_putbaraij(h_, m_.f[k].a, j, 1, &idx, &one));
      k = e;
    }
    return load_psdcon_slacks();
  }

  // Row (k, l) of block p takes -(S_p)_kl = -<E_kl, S_p>, E_kl holding 1 on the diagonal
  // and 1/2 in the two off-diagonal positions.
  QBRrescode load_psdcon_slacks() {
    const double one = 1.0;
    for (size_t p = 0; p < m_.psdcon.size(); ++p) {
      const int32_t d = m_.psdcon[p];
      const int32_t j = static_cast<int32_t>(m_.psdvar.size() + p);
      for (int32_t k = 0; k < d; ++k) {
        for (int32_t l = 0; l <= k; ++l) {
          const double v = k == l ? -1.0 : -0.5;
          int64_t idx = 0;
          QUBOR_TRY(QBR_appendsparsesymmat(h_, d, 1, &k, &l, &v, &idx));
          const int64_t row = psdcon_first(p) + tri_index(k, l);
          QUBOR_TRY(QBR_putbaraij(h_, static_cast<int32_t>(row), j, 1, &idx, &one));
        }
      }
    }
    return QBR_RES_OK;
  }

  Task& t_;
  QBRtask_t h_ = nullptr;
  LineReader lines_;
  const char* name_;
  std::array<std::string_view, 6> f_;
  size_t nf_ = 0;
  int64_t bytes_ = 0, declared_ = 0;
  struct Declaration {
    int64_t items = 0, dim = 0;
    std::string what;
    int32_t line = 0;
  } largest_;
  Model m_;
  std::vector<int64_t> psdcon_offset_;
};

}  // namespace

QBRrescode read_cbf(Task& t, platform::InStream& in, const char* name) { return CbfReader(t, in, name).run(); }

}  // namespace qubor::formats
