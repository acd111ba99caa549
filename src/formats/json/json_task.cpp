#include "formats/json/json_task.h"

#include <rapidjson/error/en.h>
#include <rapidjson/reader.h>

#include <algorithm>
#include <charconv>
#include <cmath>
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

namespace {

constexpr const char* kBoundKeys[] = {"lo", "up", "fx", "fr", "ra"};
constexpr const char* kVarTypes[] = {"cont", "int"};
constexpr const char* kConeTypes[] = {"quad", "rquad", "pexp", "dexp", "ppow", "dpow", "zero"};
constexpr const char* kStatusKeys[] = {"UN", "BS", "SB", "LL", "UL", "EQ", "IN"};
constexpr int kMaxDepth = 16;

// ---- Writer -------------------------------------------------------------------------------

class JsonWriter {
 public:
  explicit JsonWriter(TextWriter& out) : out_(out) {}

  void str(std::string_view s) {
    out_.put('"');
    for (unsigned char c : s) {
      if (c == '"' || c == '\\') {
        out_.put('\\');
        out_.put(static_cast<char>(c));
      } else if (c < 0x20) {
        char buf[8];
        std::snprintf(buf, sizeof buf, "\\u%04x", c);
        out_.put(buf);
      } else {
        out_.put(static_cast<char>(c));
      }
    }
    out_.put('"');
    fresh_ = false;
  }
  void num(double v) {
    fresh_ = false;
    if (std::isnan(v)) return out_.put("\"NaN\"");
    if (std::isinf(v)) return out_.put(v > 0 ? "\"+Inf\"" : "\"-Inf\"");
    char buf[64];
    out_.put(std::string_view(buf, static_cast<size_t>(std::to_chars(buf, buf + sizeof buf, v).ptr - buf)));
  }
  void num(int64_t v) {
    fresh_ = false;
    out_.put(std::to_string(v));
  }
  void num(int32_t v) { num(static_cast<int64_t>(v)); }

  void key(std::string_view k) {
    sep();
    str(k);
    out_.put(':');
    fresh_ = true;
  }
  void open(char c) {
    sep();
    out_.put(c);
    fresh_ = true;
  }
  void close(char c) {
    out_.put(c);
    fresh_ = false;
  }
  // A separator before every element but the first of its container.
  void sep() {
    if (!fresh_) out_.put(',');
    fresh_ = false;
  }

  template <class T>
  void array(std::string_view k, const std::vector<T>& v) {
    key(k);
    open('[');
    for (const T& x : v) {
      sep();
      if constexpr (std::is_same_v<T, std::string>)
        str(x);
      else
        num(x);
    }
    close(']');
  }
  void names(std::string_view k, const std::vector<int32_t>& v, const char* const* table) {
    key(k);
    open('[');
    for (int32_t x : v) {
      sep();
      str(table[x]);
    }
    close(']');
  }
  // Runs [ptr[k], ptr[k+1]) of `v` as an array of arrays.
  template <class T>
  void runs(std::string_view k, const std::vector<T>& v, const std::vector<int64_t>& ptr) {
    key(k);
    open('[');
    for (size_t r = 0; r + 1 < ptr.size(); ++r) {
      open('[');
      for (int64_t p = ptr[r]; p < ptr[r + 1]; ++p) {
        sep();
        num(v[static_cast<size_t>(p)]);
      }
      close(']');
    }
    close(']');
  }

 private:
  TextWriter& out_;
  bool fresh_ = true;
};

void write_bar_terms(JsonWriter& w, const char* name, const BarTermsImage& b, bool rows) {
  w.key(name);
  w.open('{');
  if (rows) w.array("subi", b.i);
  w.array("subj", b.j);
  w.runs("mat", b.mat, b.ptr);
  w.runs("alpha", b.weight, b.ptr);
  w.close('}');
}

// ---- Reader -------------------------------------------------------------------------------

// The rapidjson input stream over the task's byte stream, counting lines and columns.
class CountingStream {
 public:
  using Ch = char;
  explicit CountingStream(platform::InStream& in) : in_(in), buf_(size_t{1} << 16) {}
  Ch Peek() {
    if (pos_ == len_ && !refill()) return '\0';
    return buf_[pos_];
  }
  Ch Take() {
    if (pos_ == len_ && !refill()) return '\0';
    const Ch c = buf_[pos_++];
    ++tell_;
    if (c == '\n') {
      ++line_;
      col_ = 1;
    } else {
      ++col_;
    }
    return c;
  }
  size_t Tell() const { return tell_; }
  Ch* PutBegin() { return nullptr; }
  void Put(Ch) {}
  void Flush() {}
  size_t PutEnd(Ch*) { return 0; }
  int line() const { return line_; }
  int col() const { return col_; }
  bool failed() const { return failed_; }

 private:
  bool refill() {
    if (eof_) return false;
    const ptrdiff_t r = in_.read(buf_.data(), buf_.size());
    if (r <= 0) {
      eof_ = true;
      failed_ = r < 0;
      return false;
    }
    pos_ = 0;
    len_ = static_cast<size_t>(r);
    return true;
  }
  platform::InStream& in_;
  std::vector<char> buf_;
  size_t pos_ = 0, len_ = 0, tell_ = 0;
  int line_ = 1, col_ = 1;
  bool eof_ = false, failed_ = false;
};

// Where the elements of one array go.
struct Sink {
  enum Kind { kDouble, kInt32, kInt64, kString, kName } kind = kDouble;
  void* target = nullptr;
  const char* const* names = nullptr;  // kName: the texts of the values 0, 1, ...
  int num_names = 0;
  std::vector<int64_t>* runs = nullptr;  // an array of arrays: run boundaries
};

struct ParseError {
  QBRrescode code = QBR_RES_OK;
  std::string section;  // for missing and inconsistent data
  std::string entry;
};

class Handler : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, Handler> {
 public:
  Handler(TaskImage& img, CountingStream& in) : img_(img), in_(in) {}

  bool Null() { return scalar(Value{Value::kNull}); }
  bool Bool(bool b) { return scalar(Value{Value::kBool, {}, b}); }
  bool Int(int) { return false; }  // numbers arrive as text (kParseNumbersAsStringsFlag)
  bool Uint(unsigned) { return false; }
  bool Int64(int64_t) { return false; }
  bool Uint64(uint64_t) { return false; }
  bool Double(double) { return false; }
  bool RawNumber(const char* s, rapidjson::SizeType n, bool) { return scalar(Value{Value::kNumber, std::string_view(s, n)}); }
  bool String(const char* s, rapidjson::SizeType n, bool) { return scalar(Value{Value::kString, std::string_view(s, n)}); }
  bool Key(const char* s, rapidjson::SizeType n, bool) {
    key_.assign(s, n);
    return true;
  }
  bool StartObject() {
    if (!enter()) return false;
    if (in_array()) return format();  // no objects inside arrays
    frames_.push_back({false, path_.size(), nullptr, false});
    if (frames_.size() > 1) path_ += (path_.empty() ? "" : "/") + key_;
    if (path_ == "Task/data") seen_data_ = true;
    mark_solution();
    return true;
  }
  bool EndObject(rapidjson::SizeType) {
    path_.resize(frames_.back().path_len);
    frames_.pop_back();
    return true;
  }
  bool StartArray() {
    if (!enter() || frames_.empty()) return format();
    if (in_array()) {
      // An inner array of an array of arrays.
      Frame& outer = frames_.back();
      if (!outer.sink || !outer.sink->runs || outer.inner) return format();
      frames_.push_back({true, path_.size(), outer.sink, true});
      return true;
    }
    const std::string full = path_ + "/" + key_;
    auto it = sinks_.find(full);
    mark_solution();
    frames_.push_back({true, path_.size(), it == sinks_.end() ? nullptr : &it->second, false});
    if (frames_.back().sink && frames_.back().sink->runs) frames_.back().sink->runs->assign(1, 0);
    return true;
  }
  bool EndArray(rapidjson::SizeType) {
    Frame f = frames_.back();
    frames_.pop_back();
    if (f.inner) f.sink->runs->push_back(static_cast<int64_t>(size_of(*f.sink)));
    return true;
  }

  // Arrays this layout knows, by path.
  void add_sink(const std::string& path, Sink s) { sinks_[path] = s; }

  ParseError error;
  bool seen_data_ = false;
  std::map<std::string, int64_t> counts;  // Task/INFO
  std::vector<int32_t> var_type, c_subj, a_subi, a_subj;
  std::vector<double> c_val, a_val;
  std::array<std::vector<int64_t>, 3> barx_runs, bars_runs;
  std::vector<int64_t> sym_runs_j, sym_runs_v, barc_runs_w, bara_runs_w;

 private:
  struct Value {
    enum Kind { kNull, kBool, kNumber, kString } kind;
    std::string_view text{};
    bool b = false;
  };
  struct Frame {
    bool array;
    size_t path_len;
    Sink* sink;
    bool inner;  // an inner array of an array of arrays
  };

  bool in_array() const { return !frames_.empty() && frames_.back().array; }
  bool enter() { return static_cast<int>(frames_.size()) < kMaxDepth || format(); }
  bool format() {
    if (error.code == QBR_RES_OK) error.code = QBR_RES_ERR_JSON_FORMAT;
    return false;
  }
  bool overflow() {
    if (error.code == QBR_RES_OK) error.code = QBR_RES_ERR_JSON_NUMBER_OVERFLOW;
    return false;
  }
  void mark_solution() {
    for (int32_t w = QBR_SOL_ITR; w <= QBR_SOL_ITG; ++w)
      if (path_ == std::string("Task/solutions/") + solution_item_name(w)) img_.sol[static_cast<size_t>(w)].defined = true;
  }

  static size_t size_of(const Sink& s) {
    switch (s.kind) {
      case Sink::kDouble:
        return static_cast<std::vector<double>*>(s.target)->size();
      case Sink::kInt64:
        return static_cast<std::vector<int64_t>*>(s.target)->size();
      case Sink::kString:
        return static_cast<std::vector<std::string>*>(s.target)->size();
      default:
        return static_cast<std::vector<int32_t>*>(s.target)->size();
    }
  }

  // A number, or one of the strings that stand for infinities and NaN.
  bool to_double(const Value& v, double* x) {
    if (v.kind == Value::kString) {
      if (v.text == "NaN") return *x = std::nan(""), true;
      if (v.text == "+Inf" || v.text == "Inf") return *x = HUGE_VAL, true;
      if (v.text == "-Inf") return *x = -HUGE_VAL, true;
      return format();
    }
    if (v.kind != Value::kNumber) return format();
    auto r = std::from_chars(v.text.data(), v.text.data() + v.text.size(), *x);
    if (r.ec == std::errc::result_out_of_range) return overflow();
    if (r.ec != std::errc() || r.ptr != v.text.data() + v.text.size()) return format();
    return true;
  }
  bool to_int(const Value& v, int64_t* x, int64_t lo, int64_t hi) {
    if (v.kind != Value::kNumber) return format();
    auto r = std::from_chars(v.text.data(), v.text.data() + v.text.size(), *x);
    if (r.ec == std::errc::result_out_of_range) return overflow();
    if (r.ec != std::errc() || r.ptr != v.text.data() + v.text.size()) return format();
    if (*x < lo || *x > hi) return overflow();
    return true;
  }
  bool to_string(const Value& v, std::string* s) {
    if (v.kind != Value::kString) return format();
    s->assign(v.text);
    return true;
  }

  bool element(const Sink& s, const Value& v) {
    switch (s.kind) {
      case Sink::kDouble: {
        double x;
        if (!to_double(v, &x)) return false;
        static_cast<std::vector<double>*>(s.target)->push_back(x);
        return true;
      }
      case Sink::kInt32:
      case Sink::kInt64: {
        int64_t x;
        if (!to_int(v, &x, s.kind == Sink::kInt32 ? INT32_MIN : INT64_MIN, s.kind == Sink::kInt32 ? INT32_MAX : INT64_MAX))
          return false;
        if (s.kind == Sink::kInt32)
          static_cast<std::vector<int32_t>*>(s.target)->push_back(static_cast<int32_t>(x));
        else
          static_cast<std::vector<int64_t>*>(s.target)->push_back(x);
        return true;
      }
      case Sink::kString: {
        std::string x;
        if (!to_string(v, &x)) return false;
        static_cast<std::vector<std::string>*>(s.target)->push_back(std::move(x));
        return true;
      }
      case Sink::kName: {
        if (v.kind != Value::kString) return format();
        for (int k = 0; k < s.num_names; ++k) {
          if (v.text == s.names[k]) {
            static_cast<std::vector<int32_t>*>(s.target)->push_back(k);
            return true;
          }
        }
        return format();
      }
    }
    return format();
  }

  bool status(const Value& v, task::EnumGroup g, const char* prefix, int32_t* out) {
    if (v.kind != Value::kString) return format();
    const std::string sym = prefix + std::string(v.text);
    for (int32_t x = 0; task::enum_symbol(g, x); ++x) {
      if (sym == task::enum_symbol(g, x)) {
        *out = x;
        return true;
      }
    }
    return format();
  }

  bool scalar(const Value& v) {
    if (frames_.empty()) return format();  // the text must be one object
    if (in_array()) {
      const Frame& f = frames_.back();
      if (!f.sink) return true;  // an array this layout does not know
      if (f.sink->runs && !f.inner) return format();  // an array of arrays holds arrays
      return element(*f.sink, v);
    }
    const std::string& p = path_;
    const std::string& k = key_;
    if (p.empty()) {
      if (k == "Task/name") return to_string(v, &img_.task_name);
      return true;
    }
    if (p == "Task/INFO") {
      if (k == "quborver") return true;
      int64_t x;
      if (!to_int(v, &x, 0, INT64_MAX)) return false;
      counts[k] = x;
      return true;
    }
    if (p == "Task/data/objective") {
      if (k == "name") return to_string(v, &img_.obj_name);
      if (k == "cfix") return to_double(v, &img_.cfix);
      if (k == "sense") {
        if (v.kind != Value::kString || (v.text != "min" && v.text != "max")) return format();
        img_.obj_sense = v.text == "max" ? QBR_OBJECTIVE_SENSE_MAXIMIZE : QBR_OBJECTIVE_SENSE_MINIMIZE;
      }
      return true;
    }
    if (p == "Task/data") {
      if (k == "atruncatetol") return to_double(v, &img_.atruncatetol);
      return true;
    }
    if (p == "Task/parameters/iparam" || p == "Task/parameters/dparam" || p == "Task/parameters/sparam") {
      img_.has_params = true;
      if (p.back() == 'm' && p[p.size() - 6] == 'i') {
        int64_t x;
        if (!to_int(v, &x, INT32_MIN, INT32_MAX)) return false;
        img_.ipar_names.push_back(k);
        img_.ipar.push_back(static_cast<int32_t>(x));
      } else if (p[p.size() - 6] == 'd') {
        double x;
        if (!to_double(v, &x)) return false;
        img_.dpar_names.push_back(k);
        img_.dpar.push_back(x);
      } else {
        std::string x;
        if (!to_string(v, &x)) return false;
        img_.spar_names.push_back(k);
        img_.spar.push_back(std::move(x));
      }
      return true;
    }
    if (p.rfind("Task/solutions/", 0) == 0) {
      for (int32_t w = QBR_SOL_ITR; w <= QBR_SOL_ITG; ++w) {
        if (p != std::string("Task/solutions/") + solution_item_name(w)) continue;
        SolutionImage& s = img_.sol[static_cast<size_t>(w)];
        if (k == "prosta") return status(v, task::EnumGroup::PROSTA, "QBR_PRO_STA_", &s.prosta);
        if (k == "solsta") return status(v, task::EnumGroup::SOLSTA, "QBR_SOL_STA_", &s.solsta);
      }
      return true;
    }
    if (p == "Task/information/double") {
      double x;
      if (!to_double(v, &x)) return false;
      img_.has_info = true;
      img_.dinf_names.push_back(k);
      img_.dinf.push_back(x);
    } else if (p == "Task/information/int32" || p == "Task/information/int64") {
      int64_t x;
      const bool i32 = p.back() == '2';
      if (!to_int(v, &x, i32 ? INT32_MIN : INT64_MIN, i32 ? INT32_MAX : INT64_MAX)) return false;
      img_.has_info = true;
      (i32 ? img_.iinf_names : img_.liinf_names).push_back(k);
      if (i32)
        img_.iinf.push_back(static_cast<int32_t>(x));
      else
        img_.liinf.push_back(x);
    }
    return true;
  }

  TaskImage& img_;
  CountingStream& in_;
  std::vector<Frame> frames_;
  std::string path_, key_;
  std::map<std::string, Sink> sinks_;
};

template <class T>
Sink sink(std::vector<T>* v, std::vector<int64_t>* runs = nullptr) {
  Sink s;
  s.target = v;
  s.runs = runs;
  if constexpr (std::is_same_v<T, double>) s.kind = Sink::kDouble;
  else if constexpr (std::is_same_v<T, int64_t>) s.kind = Sink::kInt64;
  else if constexpr (std::is_same_v<T, std::string>) s.kind = Sink::kString;
  else s.kind = Sink::kInt32;
  return s;
}
template <size_t N>
Sink names(std::vector<int32_t>* v, const char* const (&table)[N]) {
  Sink s;
  s.kind = Sink::kName;
  s.target = v;
  s.names = table;
  s.num_names = static_cast<int>(N);
  return s;
}

void register_sinks(Handler& h, TaskImage& img) {
  const std::string d = "Task/data/";
  h.add_sink(d + "var/name", sink(&img.var_names));
  h.add_sink(d + "var/bk", names(&img.var_bk, kBoundKeys));
  h.add_sink(d + "var/bl", sink(&img.var_bl));
  h.add_sink(d + "var/bu", sink(&img.var_bu));
  h.add_sink(d + "var/type", names(&h.var_type, kVarTypes));
  h.add_sink(d + "con/name", sink(&img.con_names));
  h.add_sink(d + "con/bk", names(&img.con_bk, kBoundKeys));
  h.add_sink(d + "con/bl", sink(&img.con_bl));
  h.add_sink(d + "con/bu", sink(&img.con_bu));
  h.add_sink(d + "con/Q/subk", sink(&img.qcon_k));
  h.add_sink(d + "con/Q/subi", sink(&img.qcon_i));
  h.add_sink(d + "con/Q/subj", sink(&img.qcon_j));
  h.add_sink(d + "con/Q/val", sink(&img.qcon_v));
  h.add_sink(d + "barvar/name", sink(&img.barvar_names));
  h.add_sink(d + "barvar/dim", sink(&img.barvar_dim));
  h.add_sink(d + "objective/c/subj", sink(&h.c_subj));
  h.add_sink(d + "objective/c/val", sink(&h.c_val));
  h.add_sink(d + "objective/Q/subi", sink(&img.qobj_i));
  h.add_sink(d + "objective/Q/subj", sink(&img.qobj_j));
  h.add_sink(d + "objective/Q/val", sink(&img.qobj_v));
  h.add_sink(d + "objective/barc/subj", sink(&img.barc.j));
  h.add_sink(d + "objective/barc/mat", sink(&img.barc.mat, &img.barc.ptr));
  h.add_sink(d + "objective/barc/alpha", sink(&img.barc.weight, &h.barc_runs_w));
  h.add_sink(d + "A/subi", sink(&h.a_subi));
  h.add_sink(d + "A/subj", sink(&h.a_subj));
  h.add_sink(d + "A/val", sink(&h.a_val));
  h.add_sink(d + "bara/subi", sink(&img.bara.i));
  h.add_sink(d + "bara/subj", sink(&img.bara.j));
  h.add_sink(d + "bara/mat", sink(&img.bara.mat, &img.bara.ptr));
  h.add_sink(d + "bara/alpha", sink(&img.bara.weight, &h.bara_runs_w));
  h.add_sink(d + "MatrixStore/dim", sink(&img.sym_dim));
  h.add_sink(d + "MatrixStore/subi", sink(&img.sym_i, &img.sym_ptr));
  h.add_sink(d + "MatrixStore/subj", sink(&img.sym_j, &h.sym_runs_j));
  h.add_sink(d + "MatrixStore/val", sink(&img.sym_v, &h.sym_runs_v));
  h.add_sink(d + "qcone/name", sink(&img.cone_names));
  h.add_sink(d + "qcone/type", names(&img.cone_type, kConeTypes));
  h.add_sink(d + "qcone/par", sink(&img.cone_par));
  h.add_sink(d + "qcone/members", sink(&img.cone_sub, &img.cone_ptr));
  for (int32_t w = QBR_SOL_ITR; w <= QBR_SOL_ITG; ++w) {
    SolutionImage& s = img.sol[static_cast<size_t>(w)];
    const std::string p = std::string("Task/solutions/") + solution_item_name(w) + "/";
    h.add_sink(p + "skc", names(&s.skc, kStatusKeys));
    h.add_sink(p + "skx", names(&s.skx, kStatusKeys));
    h.add_sink(p + "skn", names(&s.skn, kStatusKeys));
    const std::pair<const char*, std::vector<double>*> vecs[] = {{"xx", &s.xx}, {"xc", &s.xc}, {"y", &s.y},
                                                                 {"slc", &s.slc}, {"suc", &s.suc}, {"slx", &s.slx},
                                                                 {"sux", &s.sux}, {"snx", &s.snx}};
    for (const auto& [k, v] : vecs) h.add_sink(p + k, sink(v));
    h.add_sink(p + "barx", sink(&s.barx, &h.barx_runs[static_cast<size_t>(w)]));
    h.add_sink(p + "bars", sink(&s.bars, &h.bars_runs[static_cast<size_t>(w)]));
  }
}

// "var/bl" -> "var[bl]", "objective/c/subj" -> "objective[c][subj]".
std::string bracketed(const std::string& part) {
  std::string out;
  size_t start = 0;
  bool first = true;
  for (;;) {
    const size_t slash = part.find('/', start);
    const std::string piece = part.substr(start, slash == std::string::npos ? std::string::npos : slash - start);
    out += first ? piece : "[" + piece + "]";
    first = false;
    if (slash == std::string::npos) break;
    start = slash + 1;
  }
  return out;
}

}  // namespace

QBRrescode write_json_task(Task& t, TextWriter& out) {
  TaskImage img;
  collect_image(t, t.ipar(QBR_IPAR_WRITE_TASK_INC_SOL) != 0, &img);
  JsonWriter w(out);
  w.open('{');
  w.key("$schema");
  w.str("qubor/jtask-1");
  w.key("Task/name");
  w.str(img.task_name);
  w.key("Task/INFO");
  w.open('{');
  const std::pair<const char*, int64_t> counts[] = {
      {"numvar", img.numvar}, {"numcon", img.numcon}, {"numcone", img.numcone}, {"numbarvar", img.numbarvar},
      {"numanz", static_cast<int64_t>(img.a_val.size())}, {"numsymmat", img.numsymmat()}};
  for (const auto& [k, v] : counts) {
    w.key(k);
    w.num(v);
  }
  w.array("quborver", std::vector<int32_t>(img.version.begin(), img.version.end()));
  w.close('}');

  w.key("Task/data");
  w.open('{');
  w.key("var");
  w.open('{');
  if (!img.var_names.empty()) w.array("name", img.var_names);
  w.names("bk", img.var_bk, kBoundKeys);
  w.array("bl", img.var_bl);
  w.array("bu", img.var_bu);
  std::vector<int32_t> type(static_cast<size_t>(img.numvar), 0);
  for (int32_t j : img.intvar) type[static_cast<size_t>(j)] = 1;
  w.names("type", type, kVarTypes);
  w.close('}');
  w.key("con");
  w.open('{');
  if (!img.con_names.empty()) w.array("name", img.con_names);
  w.names("bk", img.con_bk, kBoundKeys);
  w.array("bl", img.con_bl);
  w.array("bu", img.con_bu);
  w.key("Q");
  w.open('{');
  w.array("subk", img.qcon_k);
  w.array("subi", img.qcon_i);
  w.array("subj", img.qcon_j);
  w.array("val", img.qcon_v);
  w.close('}');
  w.close('}');
  w.key("barvar");
  w.open('{');
  if (!img.barvar_names.empty()) w.array("name", img.barvar_names);
  w.array("dim", img.barvar_dim);
  w.close('}');
  w.key("objective");
  w.open('{');
  w.key("sense");
  w.str(img.obj_sense == QBR_OBJECTIVE_SENSE_MAXIMIZE ? "max" : "min");
  w.key("name");
  w.str(img.obj_name);
  std::vector<int32_t> csub;
  std::vector<double> cval;
  for (int32_t j = 0; j < img.numvar; ++j) {
    const double v = img.c[static_cast<size_t>(j)];
    if (v != 0.0 || std::signbit(v)) csub.push_back(j), cval.push_back(v);
  }
  w.key("c");
  w.open('{');
  w.array("subj", csub);
  w.array("val", cval);
  w.close('}');
  w.key("cfix");
  w.num(img.cfix);
  w.key("Q");
  w.open('{');
  w.array("subi", img.qobj_i);
  w.array("subj", img.qobj_j);
  w.array("val", img.qobj_v);
  w.close('}');
  write_bar_terms(w, "barc", img.barc, false);
  w.close('}');
  std::vector<int32_t> asubj(img.a_sub.size());
  for (int32_t j = 0; j < img.numvar; ++j)
    std::fill(asubj.begin() + img.a_ptr[static_cast<size_t>(j)], asubj.begin() + img.a_ptr[static_cast<size_t>(j) + 1], j);
  w.key("A");
  w.open('{');
  w.array("subi", img.a_sub);
  w.array("subj", asubj);
  w.array("val", img.a_val);
  w.close('}');
  write_bar_terms(w, "bara", img.bara, true);
  w.key("MatrixStore");
  w.open('{');
  w.array("dim", img.sym_dim);
  w.runs("subi", img.sym_i, img.sym_ptr);
  w.runs("subj", img.sym_j, img.sym_ptr);
  w.runs("val", img.sym_v, img.sym_ptr);
  w.close('}');
  w.key("qcone");
  w.open('{');
  if (!img.cone_names.empty()) w.array("name", img.cone_names);
  w.names("type", img.cone_type, kConeTypes);
  w.array("par", img.cone_par);
  w.runs("members", img.cone_sub, img.cone_ptr);
  w.close('}');
  w.key("atruncatetol");
  w.num(img.atruncatetol);
  w.close('}');

  w.key("Task/parameters");
  w.open('{');
  w.key("iparam");
  w.open('{');
  for (size_t k = 0; k < img.ipar.size(); ++k) w.key(img.ipar_names[k]), w.num(img.ipar[k]);
  w.close('}');
  w.key("dparam");
  w.open('{');
  for (size_t k = 0; k < img.dpar.size(); ++k) w.key(img.dpar_names[k]), w.num(img.dpar[k]);
  w.close('}');
  w.key("sparam");
  w.open('{');
  for (size_t k = 0; k < img.spar.size(); ++k) w.key(img.spar_names[k]), w.str(img.spar[k]);
  w.close('}');
  w.close('}');

  w.key("Task/solutions");
  w.open('{');
  std::vector<int64_t> barptr(1, 0);
  for (int32_t d : img.barvar_dim) barptr.push_back(barptr.back() + static_cast<int64_t>(d) * (d + 1) / 2);
  for (int32_t which = QBR_SOL_ITR; which <= QBR_SOL_ITG; ++which) {
    const SolutionImage& s = img.sol[static_cast<size_t>(which)];
    if (!s.defined) continue;
    w.key(solution_item_name(which));
    w.open('{');
    const char* pro = task::enum_symbol(task::EnumGroup::PROSTA, s.prosta);
    const char* sol = task::enum_symbol(task::EnumGroup::SOLSTA, s.solsta);
    w.key("prosta");
    w.str(pro ? pro + 12 : "UNKNOWN");
    w.key("solsta");
    w.str(sol ? sol + 12 : "UNKNOWN");
    w.names("skx", s.skx, kStatusKeys);
    w.names("skc", s.skc, kStatusKeys);
    w.names("skn", s.skn, kStatusKeys);
    w.array("xx", s.xx);
    w.array("xc", s.xc);
    w.array("y", s.y);
    w.array("slc", s.slc);
    w.array("suc", s.suc);
    w.array("slx", s.slx);
    w.array("sux", s.sux);
    w.array("snx", s.snx);
    w.runs("barx", s.barx, barptr);
    w.runs("bars", s.bars, barptr);
    w.close('}');
  }
  w.close('}');

  w.key("Task/information");
  w.open('{');
  w.key("int32");
  w.open('{');
  for (size_t k = 0; k < img.iinf.size(); ++k) w.key(img.iinf_names[k]), w.num(img.iinf[k]);
  w.close('}');
  w.key("int64");
  w.open('{');
  for (size_t k = 0; k < img.liinf.size(); ++k) w.key(img.liinf_names[k]), w.num(img.liinf[k]);
  w.close('}');
  w.key("double");
  w.open('{');
  for (size_t k = 0; k < img.dinf.size(); ++k) w.key(img.dinf_names[k]), w.num(img.dinf[k]);
  w.close('}');
  w.close('}');
  w.close('}');
  out.put('\n');
  return QBR_RES_OK;
}

QBRrescode read_json_task(Task& t, platform::InStream& in) {
  TaskImage img;
  CountingStream stream(in);
  Handler h(img, stream);
  register_sinks(h, img);
  rapidjson::Reader reader;
  constexpr unsigned kFlags = rapidjson::kParseIterativeFlag | rapidjson::kParseNumbersAsStringsFlag |
                              rapidjson::kParseValidateEncodingFlag;
  const rapidjson::ParseResult pr = reader.Parse<kFlags>(stream, h);
  if (stream.failed()) return QBR_REPORT(t, QBR_RES_ERR_FILE_READ, "");
  if (pr.IsError()) {
    QBRrescode code = h.error.code;
    if (code == QBR_RES_OK) {
      switch (pr.Code()) {
        case rapidjson::kParseErrorStringUnicodeEscapeInvalidHex:
        case rapidjson::kParseErrorStringUnicodeSurrogateInvalid:
        case rapidjson::kParseErrorStringEscapeInvalid:
        case rapidjson::kParseErrorStringMissQuotationMark:
        case rapidjson::kParseErrorStringInvalidEncoding:
          code = QBR_RES_ERR_JSON_STRING;
          break;
        case rapidjson::kParseErrorNumberTooBig:
          code = QBR_RES_ERR_JSON_NUMBER_OVERFLOW;
          break;
        default:
          code = QBR_RES_ERR_JSON_SYNTAX;
      }
    }
    return QBR_REPORT(t, code, stream.line(), stream.col());
  }
  if (!h.seen_data_) return QBR_REPORT(t, QBR_RES_ERR_JSON_MISSING_DATA, "Task/data", "");

  // Counts from the header when given, else from the arrays.
  const auto count = [&](const char* k, size_t fallback) -> int64_t {
    auto it = h.counts.find(k);
    return it == h.counts.end() ? static_cast<int64_t>(fallback) : it->second;
  };
  const int64_t n = count("numvar", img.var_bk.size()), m = count("numcon", img.con_bk.size()),
                nk = count("numcone", img.cone_type.size()), nb = count("numbarvar", img.barvar_dim.size());
  const auto data = [&](const std::string& section) { return QBR_REPORT(t, QBR_RES_ERR_JSON_DATA, section); };
  if (n > INT32_MAX || m > INT32_MAX || nk > INT32_MAX || nb > INT32_MAX) return data("Task/INFO");
  img.numvar = static_cast<int32_t>(n), img.numcon = static_cast<int32_t>(m);
  img.numcone = static_cast<int32_t>(nk), img.numbarvar = static_cast<int32_t>(nb);
  const size_t un = static_cast<size_t>(n);
  if (img.var_bk.size() != un) return data("var[bk]");
  if (img.var_bl.size() != un) return data("var[bl]");
  if (img.var_bu.size() != un) return data("var[bu]");
  if (!h.var_type.empty() && h.var_type.size() != un) return data("var[type]");
  for (size_t j = 0; j < h.var_type.size(); ++j)
    if (h.var_type[j] == 1) img.intvar.push_back(static_cast<int32_t>(j));
  if (h.c_subj.size() != h.c_val.size()) return data("objective[c][subj]");
  img.c.assign(un, 0.0);
  for (size_t k = 0; k < h.c_subj.size(); ++k) {
    if (h.c_subj[k] < 0 || h.c_subj[k] >= n) return data("objective[c][subj]");
    img.c[static_cast<size_t>(h.c_subj[k])] = h.c_val[k];
  }
  // A by columns, keeping the order within each column.
  if (h.a_subi.size() != h.a_val.size()) return data("A[subi]");
  if (h.a_subj.size() != h.a_val.size()) return data("A[subj]");
  img.a_ptr.assign(un + 1, 0);
  for (int32_t j : h.a_subj) {
    if (j < 0 || j >= n) return data("A[subj]");
    ++img.a_ptr[static_cast<size_t>(j) + 1];
  }
  for (size_t j = 0; j < un; ++j) img.a_ptr[j + 1] += img.a_ptr[j];
  std::vector<int64_t> next(img.a_ptr.begin(), img.a_ptr.end() - 1);
  img.a_sub.resize(h.a_val.size());
  img.a_val.resize(h.a_val.size());
  for (size_t k = 0; k < h.a_val.size(); ++k) {
    const auto at = static_cast<size_t>(next[static_cast<size_t>(h.a_subj[k])]++);
    img.a_sub[at] = h.a_subi[k];
    img.a_val[at] = h.a_val[k];
  }
  if (img.cone_ptr.empty()) img.cone_ptr.assign(1, 0);
  if (img.sym_ptr.empty()) img.sym_ptr.assign(1, 0);
  if (img.cone_ptr.size() != static_cast<size_t>(nk) + 1) return data("qcone[members]");
  if (h.sym_runs_j.size() > 1 && h.sym_runs_j != img.sym_ptr) return data("MatrixStore[subj]");
  if (h.sym_runs_v.size() > 1 && h.sym_runs_v != img.sym_ptr) return data("MatrixStore[val]");
  if (img.sym_dim.size() + 1 != img.sym_ptr.size()) return data("MatrixStore[dim]");
  for (BarTermsImage* b : {&img.barc, &img.bara}) {
    const std::vector<int64_t>& w = b == &img.barc ? h.barc_runs_w : h.bara_runs_w;
    const std::string name = b == &img.barc ? "objective[barc]" : "bara";
    if (b->ptr.empty()) b->ptr.assign(1, 0);
    if (w.size() > 1 && w != b->ptr) return data(name + "[alpha]");
    if (b->ptr.size() != b->j.size() + 1) return data(name + "[mat]");
    if (b == &img.barc) b->i.assign(b->j.size(), -1);
  }
  int64_t barlen = 0;
  std::vector<int64_t> barptr(1, 0);
  for (int32_t d : img.barvar_dim) barptr.push_back(barlen += static_cast<int64_t>(d) * (std::max(d, 0) + 1) / 2);
  for (int32_t w = QBR_SOL_ITR; w <= QBR_SOL_ITG; ++w) {
    SolutionImage& s = img.sol[static_cast<size_t>(w)];
    if (!s.defined) continue;
    const std::string item = std::string("solutions[") + solution_item_name(w) + "]";
    const std::vector<int64_t>& xr = h.barx_runs[static_cast<size_t>(w)];
    const std::vector<int64_t>& sr = h.bars_runs[static_cast<size_t>(w)];
    if (nb > 0 && xr != barptr) return data(item + "[barx]");
    if (nb > 0 && sr != barptr) return data(item + "[bars]");
  }
  if (std::string e = check_image(img); !e.empty()) {
    const size_t colon = e.find(':');
    return data(bracketed(e.substr(0, colon)));
  }
  return load_image(t, img, false);
}

}  // namespace qubor::formats
