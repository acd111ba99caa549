#include "formats/task/task_file.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstring>
#include <ctime>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "formats/frame/task_image.h"
#include "formats/frame/try.h"
#include "task/report.h"
#include "task/tables.h"

namespace qubor::formats {

using task::Task;

static_assert(std::endian::native == std::endian::little, "array members are written in host order");

namespace {

constexpr size_t kBlock = 512;
constexpr int kLayout = 1;

enum ElemType : uint8_t { kByte = 1, kInt32 = 5, kInt64 = 7, kFloat64 = 9, kRec32 = 20, kRec64 = 21 };

struct Rec32 {
  int32_t i, j;
  double v;
};
struct Rec64 {
  int64_t k;
  double v;
};
static_assert(sizeof(Rec32) == 16 && sizeof(Rec64) == 16);

// ---- Text helpers shared by writer and reader --------------------------------------------

// Shortest text that reads back to the same double; "nan", "inf", "-inf" otherwise.
std::string double_text(double v) {
  if (std::isnan(v)) return "nan";
  if (std::isinf(v)) return v > 0 ? "inf" : "-inf";
  char buf[64];
  return std::string(buf, std::to_chars(buf, buf + sizeof buf, v).ptr);
}

bool parse_double(std::string_view s, double* v) {
  if (s == "nan") return *v = std::nan(""), true;
  if (s == "inf") return *v = HUGE_VAL, true;
  if (s == "-inf") return *v = -HUGE_VAL, true;
  auto r = std::from_chars(s.data(), s.data() + s.size(), *v);
  return r.ec == std::errc() && r.ptr == s.data() + s.size();
}

template <class I>
bool parse_int(std::string_view s, I* v) {
  auto r = std::from_chars(s.data(), s.data() + s.size(), *v);
  return r.ec == std::errc() && r.ptr == s.data() + s.size() && !s.empty();
}

// Backslash escapes for the characters that would break a line.
std::string escape(std::string_view s) {
  std::string out;
  for (char c : s) {
    if (c == '\\') out += "\\\\";
    else if (c == '\n') out += "\\n";
    else if (c == '\r') out += "\\r";
    else out.push_back(c);
  }
  return out;
}
bool unescape(std::string_view s, std::string* out) {
  out->clear();
  for (size_t k = 0; k < s.size(); ++k) {
    if (s[k] != '\\') {
      out->push_back(s[k]);
      continue;
    }
    if (++k == s.size()) return false;
    switch (s[k]) {
      case '\\': out->push_back('\\'); break;
      case 'n': out->push_back('\n'); break;
      case 'r': out->push_back('\r'); break;
      default: return false;
    }
  }
  return true;
}

// ---- Writer -------------------------------------------------------------------------------

class TaskWriter {
 public:
  TaskWriter(Task& t, TextWriter& out) : t_(t), out_(out), mtime_(static_cast<int64_t>(std::time(nullptr))) {}

  QBRrescode run() {
    TaskImage img;
    collect_image(t_, t_.ipar(QBR_IPAR_WRITE_TASK_INC_SOL) != 0, &img);
    write_meta(img);
    text_member("Task/INFO", "format=task\nlayout=" + std::to_string(kLayout) + "\n");
    write_params(img);
    write_data(img);
    for (int32_t w = QBR_SOL_ITR; w <= QBR_SOL_ITG; ++w) write_solution(img, w);
    write_information(img);
    static const char zeros[2 * kBlock] = {};
    out_.put(std::string_view(zeros, sizeof zeros));
    return QBR_RES_OK;
  }

 private:
  void header(std::string_view name, uint64_t size) {
    char h[kBlock] = {};
    // Names up to 100 bytes go in the name field; longer ones are split at a '/' between the
    // 155-byte prefix and the name.
    if (name.size() <= 100) {
      std::memcpy(h, name.data(), name.size());
    } else {
      size_t cut = name.rfind('/', 155);
      if (cut == std::string_view::npos || name.size() - cut - 1 > 100) cut = 155;  // cannot happen for our names
      std::memcpy(h + 345, name.data(), cut);
      std::memcpy(h, name.data() + cut + 1, name.size() - cut - 1);
    }
    std::snprintf(h + 100, 8, "%07o", 0600);
    std::snprintf(h + 108, 8, "%07o", 1001);
    std::snprintf(h + 116, 8, "%07o", 1001);
    if (size < (uint64_t{1} << 33)) {
      std::snprintf(h + 124, 12, "%011llo", static_cast<unsigned long long>(size));
    } else {
      // Base-256: the first byte's top bit marks the form; the number fills the rest, big-endian.
      unsigned char* f = reinterpret_cast<unsigned char*>(h + 124);
      f[0] = 0x80;
      for (int k = 11; k >= 4; --k, size >>= 8) f[k] = static_cast<unsigned char>(size & 0xff);
    }
    std::snprintf(h + 136, 12, "%011llo", static_cast<unsigned long long>(mtime_ & 077777777777));
    h[156] = '0';
    std::memcpy(h + 257, "ustar", 6);
    std::memcpy(h + 263, "00", 2);
    std::memcpy(h + 265, "qubor", 5);
    std::memcpy(h + 297, "qubor", 5);
    std::memset(h + 148, ' ', 8);
    unsigned sum = 0;
    for (size_t k = 0; k < kBlock; ++k) sum += static_cast<unsigned char>(h[k]);
    std::snprintf(h + 148, 8, "%06o", sum);
    h[155] = ' ';
    out_.put(std::string_view(h, kBlock));
  }

  void pad(uint64_t size) {
    static const char zeros[kBlock] = {};
    const size_t rest = static_cast<size_t>(size % kBlock);
    if (rest) out_.put(std::string_view(zeros, kBlock - rest));
  }

  void text_member(std::string_view name, const std::string& text) {
    header(name, text.size());
    out_.put(text);
    pad(text.size());
  }

  // One array member; `dims` are the extents (their product is the element count).
  void array_member(std::string_view name, ElemType type, uint8_t width, std::initializer_list<int64_t> dims,
                    const void* data) {
    int64_t count = 1;
    for (int64_t d : dims) count *= d;
    const uint64_t bytes = static_cast<uint64_t>(count) * width;
    header(name, 40 + bytes);
    char h[40] = {};
    std::memcpy(h, "QBRM", 4);
    h[4] = static_cast<char>(width);
    h[6] = static_cast<char>(type);
    h[7] = 3;
    h[8] = static_cast<char>(dims.size());
    int at = 16;
    for (int64_t d : dims) {
      std::memcpy(h + at, &d, 8);
      at += 8;
    }
    out_.put(std::string_view(h, 40));
    if (bytes) out_.put(std::string_view(static_cast<const char*>(data), bytes));
    pad(40 + bytes);
  }

  template <class T>
  void vec(std::string_view name, const std::vector<T>& v) {
    if constexpr (std::is_same_v<T, double>)
      array_member(name, kFloat64, 8, {static_cast<int64_t>(v.size())}, v.data());
    else if constexpr (std::is_same_v<T, int64_t>)
      array_member(name, kInt64, 8, {static_cast<int64_t>(v.size())}, v.data());
    else
      array_member(name, kInt32, 4, {static_cast<int64_t>(v.size())}, v.data());
  }

  void names(std::string_view name, const std::vector<std::string>& v) {
    std::string all;
    for (const std::string& s : v) {
      all += s;
      all.push_back('\0');
    }
    array_member(name, kByte, 1, {static_cast<int64_t>(all.size())}, all.data());
  }

  // (lower, upper) pairs as an n x 2 array.
  void bounds(std::string_view name, const std::vector<double>& bl, const std::vector<double>& bu) {
    std::vector<double> b(2 * bl.size());
    for (size_t k = 0; k < bl.size(); ++k) b[2 * k] = bl[k], b[2 * k + 1] = bu[k];
    array_member(name, kFloat64, 8, {static_cast<int64_t>(bl.size()), 2}, b.data());
  }

  void pairs(std::string_view name, const std::vector<int32_t>& a, const std::vector<int32_t>& b) {
    std::vector<int32_t> p(2 * a.size());
    for (size_t k = 0; k < a.size(); ++k) p[2 * k] = a[k], p[2 * k + 1] = b[k];
    array_member(name, kInt32, 4, {static_cast<int64_t>(a.size()), 2}, p.data());
  }

  void triplets(std::string_view name, const std::vector<int32_t>& i, const std::vector<int32_t>& j,
                const std::vector<double>& v) {
    std::vector<Rec32> r(v.size());
    for (size_t k = 0; k < v.size(); ++k) r[k] = {i[k], j[k], v[k]};
    array_member(name, kRec32, 16, {static_cast<int64_t>(r.size())}, r.data());
  }

  void write_meta(const TaskImage& img) {
    std::string s;
    s += "quborver=" + std::to_string(img.version[0]) + "." + std::to_string(img.version[1]) + "." +
         std::to_string(img.version[2]) + "." + std::to_string(img.version[3]) + "\n";
    s += "taskname=" + escape(img.task_name) + "\n";
    s += std::string("objsense=") + (img.obj_sense == QBR_OBJECTIVE_SENSE_MAXIMIZE ? "MAXIMIZE" : "MINIMIZE") + "\n";
    s += "objname=" + escape(img.obj_name) + "\n";
    s += "numvar=" + std::to_string(img.numvar) + "\nnumcon=" + std::to_string(img.numcon) +
         "\nnumcone=" + std::to_string(img.numcone) + "\nnumbarvar=" + std::to_string(img.numbarvar) +
         "\nnumanz=" + std::to_string(img.a_val.size()) +
         "\nnumqnz=" + std::to_string(img.qobj_v.size() + img.qcon_v.size()) +
         "\nnumsymmat=" + std::to_string(img.numsymmat()) + "\natruncatetol=" + double_text(img.atruncatetol) + "\n";
    text_member("Task/META", s);
  }

  void write_params(const TaskImage& img) {
    std::string s;
    for (size_t k = 0; k < img.ipar.size(); ++k) s += img.ipar_names[k] + "=" + std::to_string(img.ipar[k]) + "\n";
    text_member("Task/parameter/iparam", s);
    s.clear();
    for (size_t k = 0; k < img.dpar.size(); ++k) s += img.dpar_names[k] + "=" + double_text(img.dpar[k]) + "\n";
    text_member("Task/parameter/dparam", s);
    s.clear();
    for (size_t k = 0; k < img.spar.size(); ++k) s += img.spar_names[k] + "=" + escape(img.spar[k]) + "\n";
    text_member("Task/parameter/sparam", s);
  }

  void bar_terms(const std::string& base, const BarTermsImage& b) {
    std::vector<int64_t> sp;
    for (size_t k = 0; k < b.j.size(); ++k) {
      sp.push_back(b.i[k]);
      sp.push_back(b.j[k]);
      sp.push_back(b.ptr[k + 1] - b.ptr[k]);
    }
    array_member(base + "/sparsity", kInt64, 8, {static_cast<int64_t>(b.j.size()), 3}, sp.data());
    std::vector<Rec64> alpha(b.mat.size());
    for (size_t k = 0; k < alpha.size(); ++k) alpha[k] = {b.mat[k], b.weight[k]};
    array_member(base + "/alpha", kRec64, 16, {static_cast<int64_t>(alpha.size())}, alpha.data());
  }

  void write_data(const TaskImage& img) {
    vec("Task/data/cfix", std::vector<double>{img.cfix});
    vec("Task/data/c", img.c);
    std::vector<int32_t> ai(img.a_sub), aj(img.a_sub.size());
    for (int32_t j = 0; j < img.numvar; ++j)
      std::fill(aj.begin() + img.a_ptr[static_cast<size_t>(j)], aj.begin() + img.a_ptr[static_cast<size_t>(j) + 1], j);
    triplets("Task/data/A", ai, aj, img.a_val);
    std::vector<int32_t>().swap(ai), std::vector<int32_t>().swap(aj);
    triplets("Task/data/Qobj", img.qobj_i, img.qobj_j, img.qobj_v);
    vec("Task/data/Q/nnz", std::vector<int64_t>{static_cast<int64_t>(img.qcon_v.size())});
    vec("Task/data/Q/subk", img.qcon_k);
    pairs("Task/data/Q/sub", img.qcon_i, img.qcon_j);
    vec("Task/data/Q/val", img.qcon_v);
    names("Task/data/var/name", img.var_names);
    vec("Task/data/var/boundkey", img.var_bk);
    bounds("Task/data/var/bound", img.var_bl, img.var_bu);
    names("Task/data/con/name", img.con_names);
    vec("Task/data/con/boundkey", img.con_bk);
    bounds("Task/data/con/bound", img.con_bl, img.con_bu);
    vec("Task/data/intvar", img.intvar);
    vec("Task/data/barvar/dim", img.barvar_dim);
    names("Task/data/barvar/name", img.barvar_names);
    names("Task/data/qcone/name", img.cone_names);
    vec("Task/data/qcone/conetype", img.cone_type);
    vec("Task/data/qcone/conepar", img.cone_par);
    std::vector<int32_t> runs;
    runs.reserve(img.cone_sub.size() + img.cone_type.size());
    for (size_t k = 0; k < img.cone_type.size(); ++k) {
      runs.push_back(static_cast<int32_t>(img.cone_ptr[k + 1] - img.cone_ptr[k]));
      runs.insert(runs.end(), img.cone_sub.begin() + img.cone_ptr[k], img.cone_sub.begin() + img.cone_ptr[k + 1]);
    }
    vec("Task/data/qcone/sub", runs);
    std::vector<int64_t> nnz(img.sym_dim.size());
    for (size_t k = 0; k < nnz.size(); ++k) nnz[k] = img.sym_ptr[k + 1] - img.sym_ptr[k];
    vec("Task/data/MatrixStore/nnz", nnz);
    vec("Task/data/MatrixStore/type", std::vector<int32_t>(img.sym_dim.size(), 0));
    vec("Task/data/MatrixStore/dim", img.sym_dim);
    pairs("Task/data/MatrixStore/sub", img.sym_i, img.sym_j);
    vec("Task/data/MatrixStore/val", img.sym_v);
    bar_terms("Task/data/barc", img.barc);
    bar_terms("Task/data/bara", img.bara);
  }

  void write_solution(const TaskImage& img, int32_t which) {
    const SolutionImage& s = img.sol[static_cast<size_t>(which)];
    if (!s.defined) return;
    const std::string base = std::string("Task/solution/") + solution_item_name(which) + "/";
    const char* pro = task::enum_symbol(task::EnumGroup::PROSTA, s.prosta);
    const char* sol = task::enum_symbol(task::EnumGroup::SOLSTA, s.solsta);
    text_member(base + "status", std::string("prosta=") + (pro ? pro + 12 : "UNKNOWN") + "\nsolsta=" +
                                     (sol ? sol + 12 : "UNKNOWN") + "\n");
    vec(base + "skc", s.skc);
    vec(base + "skx", s.skx);
    vec(base + "skn", s.skn);
    vec(base + "xx", s.xx);
    vec(base + "xc", s.xc);
    vec(base + "y", s.y);
    vec(base + "slc", s.slc);
    vec(base + "suc", s.suc);
    vec(base + "slx", s.slx);
    vec(base + "sux", s.sux);
    vec(base + "snx", s.snx);
    size_t at = 0;
    for (int32_t j = 0; j < img.numbarvar; ++j) {
      const int64_t d = img.barvar_dim[static_cast<size_t>(j)], len = d * (d + 1) / 2;
      array_member(base + "barx/" + std::to_string(j), kFloat64, 8, {len}, s.barx.data() + at);
      array_member(base + "bars/" + std::to_string(j), kFloat64, 8, {len}, s.bars.data() + at);
      at += static_cast<size_t>(len);
    }
  }

  void write_information(const TaskImage& img) {
    names("Task/information/doubleitems", img.dinf_names);
    vec("Task/information/double", img.dinf);
    names("Task/information/intitems", img.iinf_names);
    vec("Task/information/int", img.iinf);
    names("Task/information/longitems", img.liinf_names);
    vec("Task/information/long", img.liinf);
  }

  Task& t_;
  TextWriter& out_;
  int64_t mtime_;
};

// ---- Reader -------------------------------------------------------------------------------

// A decoded array member.
struct Array {
  uint8_t type = 0, width = 0;
  std::vector<int64_t> dims;
  std::string_view data;
  int64_t count() const {
    int64_t c = 1;
    for (int64_t d : dims) c *= d;
    return c;
  }
};

class TaskReader {
 public:
  TaskReader(Task& t, platform::InStream& in, const char* name, bool skip_params)
      : t_(t), in_(in), name_(name ? name : ""), skip_params_(skip_params) {}

 private:
  QBRrescode invalid(std::string_view member, std::string_view what) {
    return QBR_REPORT(t_, QBR_RES_ERR_TASK_INVALID, name_, std::string(member), std::string(what));
  }

  // Up to n bytes; fewer only at the end of the data; -1 when the stream fails.
  int64_t read_exact(char* buf, size_t n) {
    size_t total = 0;
    while (total < n) {
      ptrdiff_t r = in_.read(buf + total, n - total);
      if (r < 0) return -1;
      if (r == 0) break;
      total += static_cast<size_t>(r);
    }
    return static_cast<int64_t>(total);
  }

  static bool octal(const char* f, size_t n, uint64_t* v) {
    *v = 0;
    size_t k = 0;
    while (k < n && f[k] == ' ') ++k;
    bool any = false;
    for (; k < n && f[k] >= '0' && f[k] <= '7'; ++k) {
      if (*v >> 60) return false;
      *v = *v * 8 + static_cast<uint64_t>(f[k] - '0');
      any = true;
    }
    for (; k < n; ++k)
      if (f[k] != ' ' && f[k] != '\0') return false;
    return any;
  }

  QBRrescode parse_header(const char* h, std::string* member, uint64_t* size) {
    const std::string_view name(h, strnlen(h, 100));
    const std::string_view prefix(h + 345, strnlen(h + 345, 155));
    *member = prefix.empty() ? std::string(name) : std::string(prefix) + "/" + std::string(name);
    if (std::memcmp(h + 257, "ustar", 5) != 0) return invalid(*member, "not a ustar header");
    uint64_t stored = 0;
    if (!octal(h + 148, 8, &stored)) return invalid(*member, "bad header checksum field");
    uint64_t sum = 0;
    for (size_t k = 0; k < kBlock; ++k)
      sum += (k >= 148 && k < 156) ? static_cast<unsigned char>(' ') : static_cast<unsigned char>(h[k]);
    if (sum != stored) return invalid(*member, "header checksum mismatch");
    const auto* f = reinterpret_cast<const unsigned char*>(h + 124);
    if (f[0] & 0x80) {
      if (f[0] != 0x80 || f[1] || f[2] || f[3]) return invalid(*member, "member size out of range");
      *size = 0;
      for (int k = 4; k < 12; ++k) *size = *size << 8 | f[k];
      if (*size >> 62) return invalid(*member, "member size out of range");
    } else if (!octal(h + 124, 12, size)) {
      return invalid(*member, "bad size field");
    }
    return QBR_RES_OK;
  }

  // The member's bytes, then the padding to the block. The buffer grows with the bytes that
  // actually arrive, so a size field larger than the file costs no memory.
  QBRrescode read_member(const std::string& member, uint64_t size, std::string* data) {
    data->clear();
    constexpr uint64_t kChunk = uint64_t{1} << 20;
    uint64_t left = size;
    while (left > 0) {
      const size_t piece = static_cast<size_t>(std::min(left, kChunk));
      const size_t at = data->size();
      data->resize(at + piece);
      const int64_t got = read_exact(data->data() + at, piece);
      if (got < 0) return QBR_REPORT(t_, QBR_RES_ERR_FILE_READ, name_);
      if (static_cast<size_t>(got) < piece) return invalid(member, "the archive ends inside the member");
      left -= piece;
    }
    const size_t rest = static_cast<size_t>(size % kBlock);
    if (rest) {
      char pad[kBlock];
      const int64_t got = read_exact(pad, kBlock - rest);
      if (got < 0) return QBR_REPORT(t_, QBR_RES_ERR_FILE_READ, name_);
      if (static_cast<size_t>(got) < kBlock - rest) return invalid(member, "the archive ends inside the member");
    }
    return QBR_RES_OK;
  }

  QBRrescode array(const std::string& member, const std::string& data, Array* a) {
    if (data.size() < 40 || std::memcmp(data.data(), "QBRM", 4) != 0) return invalid(member, "not an array member");
    a->width = static_cast<uint8_t>(data[4]);
    a->type = static_cast<uint8_t>(data[6]);
    const int nd = static_cast<unsigned char>(data[8]);
    if (nd < 1 || nd > 3) return invalid(member, "bad number of dimensions");
    a->dims.clear();
    // The byte count is compared with the member's size step by step, so no product overflows.
    const uint64_t bytes = data.size() - 40;
    uint64_t count = a->width;
    bool zero = a->width == 0;
    for (int k = 0; k < nd; ++k) {
      int64_t d;
      std::memcpy(&d, data.data() + 16 + 8 * k, 8);
      if (d < 0) return invalid(member, "negative extent");
      a->dims.push_back(d);
      if (d == 0) zero = true;
      else if (!zero && count > bytes / static_cast<uint64_t>(d)) return invalid(member, "extents do not match the member size");
      else count *= static_cast<uint64_t>(d);
    }
    if ((zero ? 0 : count) != bytes) return invalid(member, "extents do not match the member size");
    a->data = std::string_view(data.data() + 40, data.size() - 40);
    return QBR_RES_OK;
  }

  template <class T>
  QBRrescode get(const std::string& member, const std::string& data, std::vector<T>* out, int cols = 1) {
    Array a;
    QUBOR_TRY(array(member, data, &a));
    const uint8_t want = std::is_same_v<T, double> ? kFloat64 : std::is_same_v<T, int64_t> ? kInt64 : kInt32;
    if (a.type != want || a.width != sizeof(T)) return invalid(member, "unexpected element type");
    if (static_cast<int>(a.dims.size()) != (cols == 1 ? 1 : 2) || (cols > 1 && a.dims[1] != cols))
      return invalid(member, "unexpected shape");
    out->resize(static_cast<size_t>(a.count()));
    if (!out->empty()) std::memcpy(out->data(), a.data.data(), a.data.size());
    return QBR_RES_OK;
  }

  QBRrescode get_names(const std::string& member, const std::string& data, std::vector<std::string>* out) {
    Array a;
    QUBOR_TRY(array(member, data, &a));
    if (a.type != kByte || a.width != 1 || a.dims.size() != 1) return invalid(member, "unexpected element type");
    if (!a.data.empty() && a.data.back() != '\0') return invalid(member, "names are not terminated");
    out->clear();
    size_t start = 0;
    for (size_t k = 0; k < a.data.size(); ++k) {
      if (a.data[k] == '\0') {
        out->emplace_back(a.data.substr(start, k - start));
        start = k + 1;
      }
    }
    return QBR_RES_OK;
  }

  template <class R>
  QBRrescode get_records(const std::string& member, const std::string& data, ElemType type, std::vector<R>* out) {
    Array a;
    QUBOR_TRY(array(member, data, &a));
    if (a.type != type || a.width != sizeof(R) || a.dims.size() != 1) return invalid(member, "unexpected element type");
    out->resize(static_cast<size_t>(a.count()));
    if (!out->empty()) std::memcpy(out->data(), a.data.data(), a.data.size());
    return QBR_RES_OK;
  }

  // key=value lines; `f` takes each pair and answers false for a value it cannot use.
  QBRrescode lines(const std::string& member, const std::string& data,
                   const std::function<bool(std::string_view, std::string_view)>& f) {
    size_t pos = 0;
    while (pos < data.size()) {
      size_t end = data.find('\n', pos);
      if (end == std::string::npos) end = data.size();
      const std::string_view line(data.data() + pos, end - pos);
      pos = end + 1;
      if (line.empty()) continue;
      const size_t eq = line.find('=');
      if (eq == std::string_view::npos) return invalid(member, "a line without '='");
      if (!f(line.substr(0, eq), line.substr(eq + 1)))
        return invalid(member, "bad value of '" + std::string(line.substr(0, eq)) + "'");
    }
    return QBR_RES_OK;
  }

  QBRrescode meta(const std::string& member, const std::string& data) {
    seen_meta_ = true;
    return lines(member, data, [&](std::string_view k, std::string_view v) {
      std::string s;
      if (k == "quborver") return true;
      if (k == "taskname") return unescape(v, &img_.task_name);
      if (k == "objname") return unescape(v, &img_.obj_name);
      if (k == "objsense") {
        if (v != "MINIMIZE" && v != "MAXIMIZE") return false;
        img_.obj_sense = v == "MAXIMIZE" ? QBR_OBJECTIVE_SENSE_MAXIMIZE : QBR_OBJECTIVE_SENSE_MINIMIZE;
        return true;
      }
      if (k == "numvar") return parse_int(v, &img_.numvar);
      if (k == "numcon") return parse_int(v, &img_.numcon);
      if (k == "numcone") return parse_int(v, &img_.numcone);
      if (k == "numbarvar") return parse_int(v, &img_.numbarvar);
      if (k == "atruncatetol") return parse_double(v, &img_.atruncatetol);
      return true;  // numanz, numqnz, numsymmat: the arrays carry their own sizes
    });
  }

  QBRrescode params(const std::string& member, const std::string& data, int type) {
    img_.has_params = true;
    return lines(member, data, [&](std::string_view k, std::string_view v) {
      if (type == QBR_PAR_INT_TYPE) {
        int32_t x = 0;
        if (!parse_int(v, &x)) return false;
        img_.ipar_names.emplace_back(k);
        img_.ipar.push_back(x);
      } else if (type == QBR_PAR_DOU_TYPE) {
        double x = 0;
        if (!parse_double(v, &x)) return false;
        img_.dpar_names.emplace_back(k);
        img_.dpar.push_back(x);
      } else {
        std::string x;
        if (!unescape(v, &x)) return false;
        img_.spar_names.emplace_back(k);
        img_.spar.push_back(std::move(x));
      }
      return true;
    });
  }

  QBRrescode status(const std::string& member, const std::string& data, SolutionImage* s) {
    return lines(member, data, [&](std::string_view k, std::string_view v) {
      const bool pro = k == "prosta";
      if (!pro && k != "solsta") return true;
      const std::string sym = std::string(pro ? "QBR_PRO_STA_" : "QBR_SOL_STA_") + std::string(v);
      const task::EnumGroup g = pro ? task::EnumGroup::PROSTA : task::EnumGroup::SOLSTA;
      for (int32_t x = 0; task::enum_symbol(g, x); ++x) {
        if (sym == task::enum_symbol(g, x)) {
          (pro ? s->prosta : s->solsta) = x;
          return true;
        }
      }
      return false;
    });
  }

  QBRrescode bounds(const std::string& member, const std::string& data, std::vector<double>* bl, std::vector<double>* bu) {
    std::vector<double> b;
    QUBOR_TRY(get(member, data, &b, 2));
    bl->resize(b.size() / 2), bu->resize(b.size() / 2);
    for (size_t k = 0; k < bl->size(); ++k) (*bl)[k] = b[2 * k], (*bu)[k] = b[2 * k + 1];
    return QBR_RES_OK;
  }

  QBRrescode pairs(const std::string& member, const std::string& data, std::vector<int32_t>* a, std::vector<int32_t>* b) {
    std::vector<int32_t> p;
    QUBOR_TRY(get(member, data, &p, 2));
    a->resize(p.size() / 2), b->resize(p.size() / 2);
    for (size_t k = 0; k < a->size(); ++k) (*a)[k] = p[2 * k], (*b)[k] = p[2 * k + 1];
    return QBR_RES_OK;
  }

  QBRrescode triplets(const std::string& member, const std::string& data, std::vector<int32_t>* i,
                      std::vector<int32_t>* j, std::vector<double>* v) {
    std::vector<Rec32> r;
    QUBOR_TRY(get_records(member, data, kRec32, &r));
    i->resize(r.size()), j->resize(r.size()), v->resize(r.size());
    for (size_t k = 0; k < r.size(); ++k) (*i)[k] = r[k].i, (*j)[k] = r[k].j, (*v)[k] = r[k].v;
    return QBR_RES_OK;
  }

  // A by columns from its records; the columns must come in order.
  QBRrescode matrix_a(const std::string& member, const std::string& data) {
    std::vector<Rec32> r;
    QUBOR_TRY(get_records(member, data, kRec32, &r));
    seen_a_ = true;
    const int32_t n = img_.numvar;
    img_.a_ptr.assign(static_cast<size_t>(std::max(n, 0)) + 1, 0);
    img_.a_sub.resize(r.size());
    img_.a_val.resize(r.size());
    int32_t last = 0;
    for (size_t k = 0; k < r.size(); ++k) {
      if (r[k].j < last || r[k].j >= n) return invalid(member, "column index out of order or range");
      last = r[k].j;
      ++img_.a_ptr[static_cast<size_t>(last) + 1];
      img_.a_sub[k] = r[k].i;
      img_.a_val[k] = r[k].v;
    }
    for (size_t j = 0; j + 1 < img_.a_ptr.size(); ++j) img_.a_ptr[j + 1] += img_.a_ptr[j];
    return QBR_RES_OK;
  }

  QBRrescode cones(const std::string& member, const std::string& data) {
    std::vector<int32_t> runs;
    QUBOR_TRY(get(member, data, &runs));
    img_.cone_ptr.assign(1, 0);
    img_.cone_sub.clear();
    for (size_t k = 0; k < runs.size();) {
      const int64_t n = runs[k++];
      if (n < 0 || n > static_cast<int64_t>(runs.size() - k)) return invalid(member, "member count out of range");
      img_.cone_sub.insert(img_.cone_sub.end(), runs.begin() + static_cast<int64_t>(k), runs.begin() + static_cast<int64_t>(k) + n);
      k += static_cast<size_t>(n);
      img_.cone_ptr.push_back(static_cast<int64_t>(img_.cone_sub.size()));
    }
    return QBR_RES_OK;
  }

  QBRrescode sym_nnz(const std::string& member, const std::string& data) {
    std::vector<int64_t> nnz;
    QUBOR_TRY(get(member, data, &nnz));
    img_.sym_ptr.assign(1, 0);
    for (int64_t z : nnz) {
      if (z < 0 || z > (int64_t{1} << 50)) return invalid(member, "count out of range");
      img_.sym_ptr.push_back(img_.sym_ptr.back() + z);
    }
    return QBR_RES_OK;
  }

  QBRrescode bar_sparsity(const std::string& member, const std::string& data, BarTermsImage* b) {
    std::vector<int64_t> sp;
    QUBOR_TRY(get(member, data, &sp, 3));
    b->i.clear(), b->j.clear(), b->ptr.assign(1, 0);
    for (size_t k = 0; k < sp.size(); k += 3) {
      if (sp[k] < -1 || sp[k] > INT32_MAX || sp[k + 1] < 0 || sp[k + 1] > INT32_MAX || sp[k + 2] < 0 ||
          sp[k + 2] > (int64_t{1} << 50))
        return invalid(member, "term out of range");
      b->i.push_back(static_cast<int32_t>(sp[k]));
      b->j.push_back(static_cast<int32_t>(sp[k + 1]));
      b->ptr.push_back(b->ptr.back() + sp[k + 2]);
    }
    return QBR_RES_OK;
  }

  QBRrescode bar_alpha(const std::string& member, const std::string& data, BarTermsImage* b) {
    std::vector<Rec64> r;
    QUBOR_TRY(get_records(member, data, kRec64, &r));
    b->mat.resize(r.size()), b->weight.resize(r.size());
    for (size_t k = 0; k < r.size(); ++k) b->mat[k] = r[k].k, b->weight[k] = r[k].v;
    return QBR_RES_OK;
  }

  QBRrescode solution(const std::string& member, std::string_view rest, const std::string& data) {
    int32_t which = -1;
    for (int32_t w = QBR_SOL_ITR; w <= QBR_SOL_ITG; ++w) {
      const std::string_view item = solution_item_name(w);
      if (rest.substr(0, item.size()) == item && rest.size() > item.size() && rest[item.size()] == '/') which = w;
    }
    if (which < 0) return QBR_RES_OK;
    const std::string_view key = rest.substr(std::string_view(solution_item_name(which)).size() + 1);
    SolutionImage& s = img_.sol[static_cast<size_t>(which)];
    s.defined = true;
    if (key == "status") return status(member, data, &s);
    if (key == "skc") return get(member, data, &s.skc);
    if (key == "skx") return get(member, data, &s.skx);
    if (key == "skn") return get(member, data, &s.skn);
    const std::pair<std::string_view, std::vector<double>*> vecs[] = {
        {"xx", &s.xx}, {"xc", &s.xc}, {"y", &s.y}, {"slc", &s.slc}, {"suc", &s.suc},
        {"slx", &s.slx}, {"sux", &s.sux}, {"snx", &s.snx}};
    for (const auto& [k, v] : vecs)
      if (key == k) return get(member, data, v);
    for (auto [prefix, parts] : {std::pair{std::string_view("barx/"), &barx_[which]}, std::pair{std::string_view("bars/"), &bars_[which]}}) {
      if (key.substr(0, prefix.size()) != prefix) continue;
      int32_t j = 0;
      if (!parse_int(key.substr(prefix.size()), &j) || j < 0) return invalid(member, "bad matrix variable index");
      std::vector<double> v;
      QUBOR_TRY(get(member, data, &v));
      (*parts)[j] = std::move(v);
    }
    return QBR_RES_OK;
  }

  // Puts a member's contents into the image.
  QBRrescode take(const std::string& member, const std::string& data) {
    const std::string_view m = member;
    if (m == "Task/META") return meta(member, data);
    if (m == "Task/INFO") {
      return lines(member, data, [&](std::string_view k, std::string_view v) {
        if (k != "layout") return true;
        int x = 0;
        layout_ok_ = parse_int(v, &x) && x == kLayout;
        return true;
      });
    }
    if (m == "Task/parameter/iparam") return params(member, data, QBR_PAR_INT_TYPE);
    if (m == "Task/parameter/dparam") return params(member, data, QBR_PAR_DOU_TYPE);
    if (m == "Task/parameter/sparam") return params(member, data, QBR_PAR_STR_TYPE);
    if (m == "Task/data/cfix") {
      std::vector<double> v;
      QUBOR_TRY(get(member, data, &v));
      if (v.size() != 1) return invalid(member, "expected one value");
      img_.cfix = v[0];
      return QBR_RES_OK;
    }
    if (m == "Task/data/c") return get(member, data, &img_.c);
    if (m == "Task/data/A") return matrix_a(member, data);
    if (m == "Task/data/Qobj") return triplets(member, data, &img_.qobj_i, &img_.qobj_j, &img_.qobj_v);
    if (m == "Task/data/Q/subk") return get(member, data, &img_.qcon_k);
    if (m == "Task/data/Q/sub") return pairs(member, data, &img_.qcon_i, &img_.qcon_j);
    if (m == "Task/data/Q/val") return get(member, data, &img_.qcon_v);
    if (m == "Task/data/var/name") return get_names(member, data, &img_.var_names);
    if (m == "Task/data/var/boundkey") return get(member, data, &img_.var_bk);
    if (m == "Task/data/var/bound") return bounds(member, data, &img_.var_bl, &img_.var_bu);
    if (m == "Task/data/con/name") return get_names(member, data, &img_.con_names);
    if (m == "Task/data/con/boundkey") return get(member, data, &img_.con_bk);
    if (m == "Task/data/con/bound") return bounds(member, data, &img_.con_bl, &img_.con_bu);
    if (m == "Task/data/intvar") return get(member, data, &img_.intvar);
    if (m == "Task/data/barvar/dim") return get(member, data, &img_.barvar_dim);
    if (m == "Task/data/barvar/name") return get_names(member, data, &img_.barvar_names);
    if (m == "Task/data/qcone/name") return get_names(member, data, &img_.cone_names);
    if (m == "Task/data/qcone/conetype") return get(member, data, &img_.cone_type);
    if (m == "Task/data/qcone/conepar") return get(member, data, &img_.cone_par);
    if (m == "Task/data/qcone/sub") return cones(member, data);
    if (m == "Task/data/MatrixStore/nnz") return sym_nnz(member, data);
    if (m == "Task/data/MatrixStore/dim") return get(member, data, &img_.sym_dim);
    if (m == "Task/data/MatrixStore/sub") return pairs(member, data, &img_.sym_i, &img_.sym_j);
    if (m == "Task/data/MatrixStore/val") return get(member, data, &img_.sym_v);
    if (m == "Task/data/barc/sparsity") return bar_sparsity(member, data, &img_.barc);
    if (m == "Task/data/barc/alpha") return bar_alpha(member, data, &img_.barc);
    if (m == "Task/data/bara/sparsity") return bar_sparsity(member, data, &img_.bara);
    if (m == "Task/data/bara/alpha") return bar_alpha(member, data, &img_.bara);
    if (m.substr(0, 14) == "Task/solution/") return solution(member, m.substr(14), data);
    if (m == "Task/information/doubleitems") return info_names(member, data, &img_.dinf_names);
    if (m == "Task/information/intitems") return info_names(member, data, &img_.iinf_names);
    if (m == "Task/information/longitems") return info_names(member, data, &img_.liinf_names);
    if (m == "Task/information/double") return info(member, data, &img_.dinf);
    if (m == "Task/information/int") return info(member, data, &img_.iinf);
    if (m == "Task/information/long") return info(member, data, &img_.liinf);
    return QBR_RES_OK;  // a member of a later layout
  }

  QBRrescode info_names(const std::string& member, const std::string& data, std::vector<std::string>* v) {
    img_.has_info = true;
    return get_names(member, data, v);
  }
  template <class T>
  QBRrescode info(const std::string& member, const std::string& data, std::vector<T>* v) {
    img_.has_info = true;
    return get(member, data, v);
  }

 public:
  // Joins the matrix-variable parts of the solutions; false when one is missing.
  QBRrescode finish_solutions() {
    if (!layout_ok_) return QBR_REPORT(t_, QBR_RES_ERR_TASK_INCOMPATIBLE, name_);
    if (!seen_a_) {
      img_.a_ptr.assign(static_cast<size_t>(std::max(img_.numvar, 0)) + 1, 0);
    }
    for (int32_t w = QBR_SOL_ITR; w <= QBR_SOL_ITG; ++w) {
      SolutionImage& s = img_.sol[static_cast<size_t>(w)];
      if (!s.defined) continue;
      for (int32_t j = 0; j < img_.numbarvar; ++j) {
        auto x = barx_[w].find(j), z = bars_[w].find(j);
        if (x == barx_[w].end() || z == bars_[w].end())
          return invalid(std::string("Task/solution/") + solution_item_name(w) + "/barx/" + std::to_string(j),
                         "the member is missing");
        s.barx.insert(s.barx.end(), x->second.begin(), x->second.end());
        s.bars.insert(s.bars.end(), z->second.begin(), z->second.end());
      }
    }
    return QBR_RES_OK;
  }

  QBRrescode read_all() {
    std::string member, data;
    for (;;) {
      char h[kBlock];
      const int64_t got = read_exact(h, kBlock);
      if (got < 0) return QBR_REPORT(t_, QBR_RES_ERR_FILE_READ, name_);
      if (got == 0) break;  // an archive without the closing zero blocks still ends here
      if (got < static_cast<int64_t>(kBlock)) return invalid("", "the archive ends inside a header");
      if (std::all_of(h, h + kBlock, [](char c) { return c == 0; })) break;
      uint64_t size = 0;
      QUBOR_TRY(parse_header(h, &member, &size));
      QUBOR_TRY(read_member(member, size, &data));
      if (h[156] == '0' || h[156] == '\0') QUBOR_TRY(take(member, data));
    }
    if (!seen_meta_) return invalid("Task/META", "the member is missing");
    QUBOR_TRY(finish_solutions());
    if (std::string e = check_image(img_); !e.empty()) return invalid(member_of(e), e);
    return load_image(t_, img_, skip_params_);
  }

 private:
  // The member an inconsistency of check_image() belongs to: its text starts with the part.
  static std::string member_of(const std::string& e) {
    const size_t colon = e.find(':');
    const std::string part = colon == std::string::npos ? e : e.substr(0, colon);
    if (part == "META") return "Task/META";
    return part.rfind("solution/", 0) == 0 || part == "information" || part == "parameter" ? "Task/" + part
                                                                                             : "Task/data/" + part;
  }

  Task& t_;
  platform::InStream& in_;
  std::string name_;
  bool skip_params_;
  TaskImage img_;
  bool seen_meta_ = false, seen_a_ = false, layout_ok_ = false;
  std::map<int32_t, std::vector<double>> barx_[3], bars_[3];
};

}  // namespace

QBRrescode write_task_file(Task& t, TextWriter& out) { return TaskWriter(t, out).run(); }

QBRrescode read_task_file(Task& t, platform::InStream& in, const char* name, bool skip_params) {
  return TaskReader(t, in, name, skip_params).read_all();
}

}  // namespace qubor::formats
