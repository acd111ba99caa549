#include "formats/frame/text_syntax.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <map>
#include <unordered_map>
#include <utility>

#include "formats/frame/try.h"
#include "task/report.h"
#include "task/tables.h"

namespace qubor::formats::text {

namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

bool word_start(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_'; }
bool word_char(char c) { return word_start(c) || (c >= '0' && c <= '9') || c == '.'; }
bool digit(char c) { return c >= '0' && c <= '9'; }

int hex_value(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

constexpr std::string_view kReserved[] = {
    // shared
    "free", "in", "inf", "nan", "integer", "quad", "rquad", "pexp", "dexp", "ppow", "dpow", "zero", "minimize",
    "maximize",
    // PTF sections
    "PTF", "TASK", "VARIABLES", "MATRIXVARIABLES", "MATRICES", "OBJECTIVE", "CONSTRAINTS", "CONES",
    // OPF statements
    "OPF", "task", "var", "con", "cone", "hint", "param", "solution", "status"};

constexpr std::string_view kConeWords[] = {"quad", "rquad", "pexp", "dexp", "ppow", "dpow", "zero"};

}  // namespace

bool reserved(std::string_view w) {
  return std::find(std::begin(kReserved), std::end(kReserved), w) != std::end(kReserved);
}

const char* cone_type_word(int32_t ct) {
  return ct >= QBR_CT_QUAD && ct <= QBR_CT_ZERO ? kConeWords[ct].data() : "quad";
}

// ---- Lexer ----

void Lexer::next(Token* t) {
  t->text.clear();
  for (;;) {
    if (done_) {
      t->kind = lines_.failed() ? Tok::kBad : Tok::kEnd;
      if (lines_.failed()) t->text = "the input cannot be read";
      t->line = lines_.line_number();
      t->col = end_col_;
      return;
    }
    if (pos_ >= line_.size()) {
      if (!lines_.next(&line_)) {
        done_ = true;
        continue;
      }
      pos_ = 0;
      end_col_ = static_cast<int64_t>(line_.size()) + 1;
      continue;
    }
    const char c = line_[pos_];
    if (c == ' ' || c == '\t' || c == '\r' || c == '\f' || c == '\v') {
      ++pos_;
    } else if (c == '#') {
      pos_ = line_.size();
    } else {
      break;
    }
  }
  t->line = lines_.line_number();
  t->col = static_cast<int64_t>(pos_) + 1;
  const char c = line_[pos_];
  const size_t n = line_.size();
  if (word_start(c)) {
    size_t e = pos_ + 1;
    while (e < n && word_char(line_[e])) ++e;
    t->kind = Tok::kWord;
    t->text.assign(line_.substr(pos_, e - pos_));
    pos_ = e;
  } else if (digit(c) || (c == '.' && pos_ + 1 < n && digit(line_[pos_ + 1]))) {
    size_t e = pos_ + 1;
    while (e < n) {
      const char d = line_[e];
      if (digit(d) || d == '.' || d == 'e' || d == 'E') {
        ++e;
      } else if ((d == '+' || d == '-') && (line_[e - 1] == 'e' || line_[e - 1] == 'E')) {
        ++e;
      } else {
        break;
      }
    }
    t->kind = Tok::kNumber;
    t->text.assign(line_.substr(pos_, e - pos_));
    pos_ = e;
  } else if (c == '"') {
    size_t e = pos_ + 1;
    t->kind = Tok::kString;
    for (;;) {
      if (e >= n) {
        t->kind = Tok::kBad;
        t->text = "the string is not closed on its line";
        break;
      }
      const char d = line_[e++];
      if (d == '"') break;
      if (d != '\\') {
        t->text.push_back(d);
        continue;
      }
      const char x = e < n ? line_[e++] : '\0';
      if (x == '"' || x == '\\') {
        t->text.push_back(x);
      } else if (x == 'n') {
        t->text.push_back('\n');
      } else if (x == 't') {
        t->text.push_back('\t');
      } else if (x == 'r') {
        t->text.push_back('\r');
      } else if (x == 'x' && e + 1 < n && hex_value(line_[e]) >= 0 && hex_value(line_[e + 1]) >= 0) {
        t->text.push_back(static_cast<char>(hex_value(line_[e]) * 16 + hex_value(line_[e + 1])));
        e += 2;
      } else {
        t->kind = Tok::kBad;
        t->text = "unknown escape in a string";
        break;
      }
    }
    pos_ = t->kind == Tok::kBad ? n : e;
  } else if (c == '@' || c == '$') {
    size_t e = pos_ + 1;
    while (e < n && digit(line_[e])) ++e;
    if (e == pos_ + 1) {
      t->kind = Tok::kBad;
      t->text = std::string("an index is expected after '") + c + "'";
    } else {
      t->kind = c == '@' ? Tok::kRef : Tok::kMatRef;
      t->text.assign(line_.substr(pos_ + 1, e - pos_ - 1));
    }
    pos_ = e;
  } else if ((c == '>' || c == '<' || c == '=') && pos_ + 1 < n && line_[pos_ + 1] == '=') {
    t->kind = Tok::kPunct;
    t->text.assign(line_.substr(pos_, 2));
    pos_ += 2;
  } else if (static_cast<unsigned char>(c) < 0x20 || static_cast<unsigned char>(c) >= 0x7f) {
    t->kind = Tok::kBad;
    t->text = "unexpected character (names with such characters are quoted)";
    ++pos_;
  } else {
    t->kind = Tok::kPunct;
    t->text.assign(1, c);
    ++pos_;
  }
}

// ---- Parser ----

QBRrescode Parser::fail(const Token& at, const std::string& what) {
  if (lex_.stream_failed()) return QBR_REPORT(t_, QBR_RES_ERR_FILE_READ, "");
  if (at.kind == Tok::kEnd && eof_code_ != 0) return QBR_REPORT(t_, eof_code_, at.line);
  return QBR_REPORT(t_, code_, at.line, at.col, what);
}

QBRrescode Parser::check_next() {
  const Token& tk = lex_.peek();
  if (tk.kind == Tok::kBad) return fail(tk, tk.text);
  return QBR_RES_OK;
}

bool Parser::minus_sign() {
  if (accept("-")) return true;
  accept("+");
  return false;
}

bool Parser::accept(std::string_view punct) {
  if (!lex_.peek().is(punct)) return false;
  lex_.take();
  return true;
}

QBRrescode Parser::expect(std::string_view punct) {
  QUBOR_TRY(check_next());
  if (!accept(punct)) return fail_here("'" + std::string(punct) + "' is expected");
  return QBR_RES_OK;
}

QBRrescode Parser::expect_word(std::string_view w) {
  QUBOR_TRY(check_next());
  if (!lex_.peek().word(w)) return fail_here("'" + std::string(w) + "' is expected");
  lex_.take();
  return QBR_RES_OK;
}

QBRrescode Parser::number(double* v) {
  QUBOR_TRY(check_next());
  const bool negative = minus_sign();
  QUBOR_TRY(check_next());
  const Token& tk = lex_.peek();
  double x = 0.0;
  if (tk.kind == Tok::kNumber) {
    const char* b = tk.text.data();
    const char* e = b + tk.text.size();
    auto r = std::from_chars(b, e, x);
    if (r.ec == std::errc::result_out_of_range && r.ptr == e) {
      // Values below the smallest normal double read as they are; only overflow is refused.
      x = std::strtod(tk.text.c_str(), nullptr);
      if (std::isinf(x)) return fail(tk, "the number " + tk.text + " is too large");
    } else if (r.ec != std::errc() || r.ptr != e) {
      return fail(tk, "'" + tk.text + "' is not a number");
    }
  } else if (tk.word("inf")) {
    x = kInfinity;
  } else if (tk.word("nan")) {
    x = std::numeric_limits<double>::quiet_NaN();
  } else {
    return fail(tk, "a number is expected");
  }
  lex_.take();
  *v = negative ? -x : x;
  return QBR_RES_OK;
}

QBRrescode Parser::integer(int64_t* v, int64_t lo, int64_t hi) {
  QUBOR_TRY(check_next());
  const Token& tk = lex_.peek();
  int64_t x = 0;
  if (tk.kind != Tok::kNumber) return fail(tk, "an integer is expected");
  auto r = std::from_chars(tk.text.data(), tk.text.data() + tk.text.size(), x);
  if (r.ec != std::errc() || r.ptr != tk.text.data() + tk.text.size() || x < lo || x > hi) {
    return fail(tk, "an integer from " + std::to_string(lo) + " to " + std::to_string(hi) + " is expected");
  }
  lex_.take();
  *v = x;
  return QBR_RES_OK;
}

QBRrescode Parser::string(std::string* s) {
  QUBOR_TRY(check_next());
  if (lex_.peek().kind != Tok::kString) return fail_here("a quoted string is expected");
  *s = lex_.take().text;
  return QBR_RES_OK;
}

QBRrescode Parser::name(std::string* s) {
  QUBOR_TRY(check_next());
  const Token& tk = lex_.peek();
  if (tk.word("_")) {
    s->clear();
  } else if (tk.kind == Tok::kString || (tk.kind == Tok::kWord && !reserved(tk.text))) {
    *s = tk.text;
  } else {
    return fail(tk, "a name is expected");
  }
  lex_.take();
  return QBR_RES_OK;
}

QBRrescode Parser::ref(const ItemIndex& index, const char* kind, int32_t* item) {
  QUBOR_TRY(check_next());
  const Token& tk = lex_.peek();
  if (tk.kind == Tok::kRef) {
    int64_t k = -1;
    auto r = std::from_chars(tk.text.data(), tk.text.data() + tk.text.size(), k);
    if (r.ec != std::errc() || k >= index.size()) return fail(tk, std::string("there is no ") + kind + " @" + tk.text);
    *item = static_cast<int32_t>(k);
  } else if (ref_start(tk)) {
    const int32_t k = index.find(tk.text);
    if (k < 0) {
      if (&index == &vars_ && new_var_code_ != 0) return QBR_REPORT(t_, new_var_code_, tk.text, tk.line);
      return fail(tk, std::string("the ") + kind + " '" + tk.text + "' is not declared");
    }
    *item = k;
  } else {
    return fail(tk, std::string("a ") + kind + " is expected");
  }
  lex_.take();
  return QBR_RES_OK;
}

QBRrescode Parser::bound(int32_t* bk, double* bl, double* bu) {
  QUBOR_TRY(check_next());
  const Token& tk = lex_.peek();
  *bl = -kInfinity, *bu = kInfinity;
  if (tk.word("free")) {
    lex_.take();
    *bk = QBR_BK_FR;
  } else if (tk.is(">=")) {
    lex_.take();
    *bk = QBR_BK_LO;
    return number(bl);
  } else if (tk.is("<=")) {
    lex_.take();
    *bk = QBR_BK_UP;
    return number(bu);
  } else if (tk.is("==")) {
    lex_.take();
    *bk = QBR_BK_FX;
    QUBOR_TRY(number(bl));
    *bu = *bl;
  } else if (tk.word("in")) {
    lex_.take();
    *bk = QBR_BK_RA;
    QUBOR_TRY(expect("["));
    QUBOR_TRY(number(bl));
    QUBOR_TRY(expect(","));
    QUBOR_TRY(number(bu));
    return expect("]");
  } else {
    return fail(tk, "a bound is expected (free, >= l, <= u, == v or in [l, u])");
  }
  return QBR_RES_OK;
}

QBRrescode Parser::cone_type(int32_t* ct) {
  QUBOR_TRY(check_next());
  const Token& tk = lex_.peek();
  for (int32_t k = QBR_CT_QUAD; k <= QBR_CT_ZERO; ++k) {
    if (tk.word(kConeWords[k])) {
      lex_.take();
      *ct = k;
      return QBR_RES_OK;
    }
  }
  return fail(tk, "a cone type is expected (quad, rquad, pexp, dexp, ppow, dpow or zero)");
}

bool Parser::term_start(const Token& t) const {
  return t.is("+") || t.is("-") || t.is("<") || t.kind == Tok::kNumber || t.word("inf") || t.word("nan");
}

QBRrescode Parser::matrix_entries(int32_t dim) {
  QUBOR_TRY(expect(":"));
  if (img_.sym_ptr.empty()) img_.sym_ptr.push_back(0);
  while (lex_.peek().kind == Tok::kNumber) {
    const Token at = lex_.peek();
    int64_t i = 0, j = 0;
    double v = 0.0;
    QUBOR_TRY(integer(&i, 0, dim - 1));
    QUBOR_TRY(integer(&j, 0, dim - 1));
    if (j > i) return fail(at, "the entry (" + std::to_string(i) + ", " + std::to_string(j) + ") is above the diagonal");
    QUBOR_TRY(number(&v));
    img_.sym_i.push_back(static_cast<int32_t>(i));
    img_.sym_j.push_back(static_cast<int32_t>(j));
    img_.sym_v.push_back(v);
    if (!accept(",")) break;
  }
  QUBOR_TRY(check_next());
  img_.sym_dim.push_back(dim);
  img_.sym_ptr.push_back(static_cast<int64_t>(img_.sym_v.size()));
  return QBR_RES_OK;
}

QBRrescode Parser::expr(TermSink* sink, bool allow_constant, bool lead_ref) {
  ++stamp_id_;
  if (stamp_.size() < static_cast<size_t>(vars_.size())) stamp_.resize(static_cast<size_t>(vars_.size()), 0);
  for (bool first = true;; first = false) {
    QUBOR_TRY(check_next());
    if (!term_start(lex_.peek()) && !(first && lead_ref && ref_start(lex_.peek()))) return QBR_RES_OK;
    const bool negative = minus_sign();
    QUBOR_TRY(check_next());
    const Token at = lex_.peek();
    if (at.is("<")) {
      lex_.take();
      if (!sink->bar) return fail(at, "matrix variables have no place in this format");
      BarTermsImage& b = *sink->bar;
      if (b.ptr.empty()) b.ptr.push_back(0);
      for (;;) {
        const bool minus = negative != minus_sign();
        double w = 0.0;
        QUBOR_TRY(number(&w));
        QUBOR_TRY(check_next());
        const Token& m = lex_.peek();
        if (m.kind == Tok::kMatRef) {
          int64_t k = -1;
          auto r = std::from_chars(m.text.data(), m.text.data() + m.text.size(), k);
          if (r.ec != std::errc() || k >= img_.numsymmat()) return fail(m, "there is no stored matrix $" + m.text);
          lex_.take();
          b.mat.push_back(k);
        } else if (m.is("[")) {
          lex_.take();
          int64_t dim = 0;
          QUBOR_TRY(integer(&dim, 1, INT32_MAX));
          QUBOR_TRY(matrix_entries(static_cast<int32_t>(dim)));
          QUBOR_TRY(expect("]"));
          b.mat.push_back(img_.numsymmat() - 1);
        } else {
          return fail(m, "a matrix ($index or [dim: entries]) is expected");
        }
        b.weight.push_back(minus ? -w : w);
        if (accept(",")) break;
      }
      int32_t j = 0;
      QUBOR_TRY(ref(barvars_, "matrix variable", &j));
      QUBOR_TRY(expect(">"));
      b.i.push_back(sink->bar_row);
      b.j.push_back(j);
      b.ptr.push_back(static_cast<int64_t>(b.mat.size()));
      continue;
    }
    double v = 1.0;
    if (!ref_start(at)) {
      QUBOR_TRY(number(&v));
      QUBOR_TRY(check_next());
    }
    if (negative) v = -v;
    if (!ref_start(lex_.peek())) {
      if (!allow_constant) return fail_here("a variable is expected after the coefficient");
      if (sink->has_constant) return fail(at, "the constant term is given twice");
      sink->has_constant = true;
      sink->constant = v;
      continue;
    }
    const Token var = lex_.peek();
    int32_t a = 0;
    QUBOR_TRY(ref(vars_, "variable", &a));
    if (accept("*")) {
      int32_t c = 0;
      QUBOR_TRY(ref(vars_, "variable", &c));
      sink->q_i.push_back(std::max(a, c));
      sink->q_j.push_back(std::min(a, c));
      sink->q_v.push_back(v);
      continue;
    }
    int64_t& s = stamp_[static_cast<size_t>(a)];
    if (s == stamp_id_) return fail(var, "the variable '" + var.text + "' occurs twice in one expression");
    s = stamp_id_;
    sink->lin_j.push_back(a);
    sink->lin_v.push_back(v);
  }
}

void Parser::add_row(int32_t i, const TermSink& s) {
  for (size_t k = 0; k < s.lin_j.size(); ++k) {
    row_i_.push_back(i);
    row_j_.push_back(s.lin_j[k]);
    row_v_.push_back(s.lin_v[k]);
  }
  for (size_t k = 0; k < s.q_v.size(); ++k) {
    img_.qcon_k.push_back(i);
    img_.qcon_i.push_back(s.q_i[k]);
    img_.qcon_j.push_back(s.q_j[k]);
    img_.qcon_v.push_back(s.q_v[k]);
  }
}

QBRrescode Parser::variable() {
  std::string n;
  int32_t bk = 0;
  double bl = 0, bu = 0;
  QUBOR_TRY(name(&n));
  QUBOR_TRY(bound(&bk, &bl, &bu));
  if (lex_.peek().word("integer")) {
    lex_.take();
    img_.intvar.push_back(vars_.size());
  }
  vars_.add(n);
  img_.var_names.push_back(std::move(n));
  img_.var_bk.push_back(bk);
  img_.var_bl.push_back(bl);
  img_.var_bu.push_back(bu);
  img_.c.push_back(0.0);
  return QBR_RES_OK;
}

QBRrescode Parser::constraint(BarTermsImage* bar) {
  std::string n;
  int32_t bk = 0;
  double bl = 0, bu = 0;
  QUBOR_TRY(name(&n));
  QUBOR_TRY(expect(":"));
  row_.clear();
  row_.bar = bar;
  row_.bar_row = cons_.size();
  QUBOR_TRY(expr(&row_, false, true));
  QUBOR_TRY(bound(&bk, &bl, &bu));
  add_row(cons_.size(), row_);
  cons_.add(n);
  img_.con_names.push_back(std::move(n));
  img_.con_bk.push_back(bk);
  img_.con_bl.push_back(bl);
  img_.con_bu.push_back(bu);
  return QBR_RES_OK;
}

QBRrescode Parser::cone() {
  std::string n;
  int32_t ct = 0;
  double par = 0.0;
  QUBOR_TRY(name(&n));
  QUBOR_TRY(cone_type(&ct));
  if (number_start(lex_.peek())) QUBOR_TRY(number(&par));
  QUBOR_TRY(expect("("));
  if (!accept(")")) {
    for (;;) {
      int32_t j = 0;
      QUBOR_TRY(ref(vars_, "variable", &j));
      img_.cone_sub.push_back(j);
      if (accept(")")) break;
      QUBOR_TRY(expect(","));
    }
  }
  cones_.add(n);
  img_.cone_names.push_back(std::move(n));
  img_.cone_type.push_back(ct);
  img_.cone_par.push_back(par);
  img_.cone_ptr.push_back(static_cast<int64_t>(img_.cone_sub.size()));
  return QBR_RES_OK;
}

QBRrescode Parser::objective_terms(BarTermsImage* bar, bool lead_ref) {
  TermSink sink;
  sink.bar = bar;
  QUBOR_TRY(expr(&sink, true, lead_ref));
  for (size_t k = 0; k < sink.lin_j.size(); ++k) img_.c[static_cast<size_t>(sink.lin_j[k])] = sink.lin_v[k];
  img_.qobj_i = std::move(sink.q_i);
  img_.qobj_j = std::move(sink.q_j);
  img_.qobj_v = std::move(sink.q_v);
  img_.cfix = sink.constant;
  return QBR_RES_OK;
}

void Parser::begin_image() {
  img_.cone_ptr = {0};
  img_.sym_ptr = {0};
  img_.barc.ptr = {0};
  img_.bara.ptr = {0};
}

QBRrescode Parser::finish_image(bool skip_params) {
  img_.numvar = vars_.size();
  img_.numcon = cons_.size();
  img_.numcone = cones_.size();
  img_.numbarvar = barvars_.size();
  const size_t n = static_cast<size_t>(img_.numvar);
  img_.a_ptr.assign(n + 1, 0);
  for (int32_t j : row_j_) ++img_.a_ptr[static_cast<size_t>(j) + 1];
  for (size_t j = 0; j < n; ++j) img_.a_ptr[j + 1] += img_.a_ptr[j];
  std::vector<int64_t> next(img_.a_ptr.begin(), img_.a_ptr.end() - 1);
  img_.a_sub.resize(row_j_.size());
  img_.a_val.resize(row_j_.size());
  for (size_t k = 0; k < row_j_.size(); ++k) {
    const auto p = static_cast<size_t>(next[static_cast<size_t>(row_j_[k])]++);
    img_.a_sub[p] = row_i_[k];
    img_.a_val[p] = row_v_[k];
  }
  row_i_ = {}, row_j_ = {}, row_v_ = {};
  const std::string e = check_image(img_);
  if (!e.empty()) return fail(lex_.peek(), e);
  return load_image(t_, img_, skip_params);
}

// ---- Writers ----

std::string quoted_name(std::string_view s) {
  bool bare = !s.empty() && word_start(s[0]) && s != "_" && !reserved(s);
  for (size_t k = 1; bare && k < s.size(); ++k) bare = word_char(s[k]);
  return bare ? std::string(s) : quoted_string(s);
}

std::string quoted_string(std::string_view s) {
  static const char kHex[] = "0123456789abcdef";
  std::string out = "\"";
  for (char c : s) {
    const auto u = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') {
      out.push_back('\\');
      out.push_back(c);
    } else if (c == '\n') {
      out += "\\n";
    } else if (c == '\t') {
      out += "\\t";
    } else if (c == '\r') {
      out += "\\r";
    } else if (u < 0x20 || u == 0x7f) {
      out += "\\x";
      out.push_back(kHex[u >> 4]);
      out.push_back(kHex[u & 15]);
    } else {
      out.push_back(c);
    }
  }
  out.push_back('"');
  return out;
}

void ItemLabels::build(const std::vector<std::string>& names, int32_t count) {
  decl_.assign(static_cast<size_t>(count), "_");
  ref_.resize(static_cast<size_t>(count));
  std::unordered_map<std::string_view, int32_t> uses;
  for (const std::string& s : names)
    if (!s.empty()) ++uses[s];
  for (int32_t k = 0; k < count; ++k) {
    const std::string* s = names.empty() ? nullptr : &names[static_cast<size_t>(k)];
    if (s && !s->empty()) decl_[static_cast<size_t>(k)] = quoted_name(*s);
    ref_[static_cast<size_t>(k)] =
        s && !s->empty() && uses[*s] == 1 ? decl_[static_cast<size_t>(k)] : "@" + std::to_string(k);
  }
}

void put_number(TextWriter& w, double v) { w.number(v, 17); }

std::string number_string(double v) { return number_text(v, 17); }

std::string signed_coef(double v, bool first) {
  const bool negative = std::signbit(v);
  const std::string text = number_string(negative ? -v : v);
  if (negative) return "- " + text;
  return first ? text : "+ " + text;
}

void put_bound(TextWriter& w, int32_t bk, double bl, double bu) {
  switch (bk) {
    case QBR_BK_LO:
      w.put(">= ");
      put_number(w, bl);
      break;
    case QBR_BK_UP:
      w.put("<= ");
      put_number(w, bu);
      break;
    case QBR_BK_FX:
      w.put("== ");
      put_number(w, bl);
      break;
    case QBR_BK_RA:
      w.put("in [");
      put_number(w, bl);
      w.put(", ");
      put_number(w, bu);
      w.put("]");
      break;
    default:
      w.put("free");
  }
}

void ExprWriter::term(const std::string& text) {
  const int len = static_cast<int>(text.size());
  if (width_ > 0 && col_ > indent_ && col_ + 1 + len > width_) {
    w_.put('\n');
    for (int k = 0; k < indent_; ++k) w_.put(' ');
    col_ = indent_;
  } else {
    w_.put(' ');
    ++col_;
  }
  w_.put(text);
  col_ += len;
  first_ = false;
}

void ExprWriter::linear(double v, const std::string& ref) { term(signed_coef(v, first_) + " " + ref); }

void ExprWriter::quad(double v, const std::string& ri, const std::string& rj) {
  term(signed_coef(v, first_) + " " + ri + " * " + rj);
}

void ExprWriter::constant(double v) { term(signed_coef(v, first_)); }

void ExprWriter::bar(const std::vector<double>& weights, const std::vector<std::string>& mats,
                     const std::string& barvar) {
  std::string s = first_ ? "<" : "+ <";
  for (size_t k = 0; k < weights.size(); ++k) {
    s += k == 0 ? signed_coef(weights[k], true) : " " + signed_coef(weights[k], false);
    s += " " + mats[k];
  }
  s += ", " + barvar + ">";
  term(s);
}

std::string inline_matrix(int32_t dim, const int32_t* i, const int32_t* j, const double* v, int64_t nz) {
  std::string s = "[" + std::to_string(dim) + ":";
  for (int64_t k = 0; k < nz; ++k) {
    s += k == 0 ? " " : ", ";
    s += std::to_string(i[k]) + " " + std::to_string(j[k]) + " " + number_string(v[k]);
  }
  return s + "]";
}

void bar_term_texts(const TaskImage& img, const BarTermsImage& b, size_t k, bool stored, std::vector<double>* w,
                    std::vector<std::string>* mats) {
  w->clear(), mats->clear();
  const int64_t first = b.ptr[k], last = b.ptr[k + 1];
  if (stored) {
    for (int64_t p = first; p < last; ++p) {
      w->push_back(b.weight[static_cast<size_t>(p)]);
      mats->push_back("$" + std::to_string(b.mat[static_cast<size_t>(p)]));
    }
    return;
  }
  std::map<std::pair<int32_t, int32_t>, double> sum;
  int32_t dim = img.barvar_dim[static_cast<size_t>(b.j[k])];
  for (int64_t p = first; p < last; ++p) {
    const auto m = static_cast<size_t>(b.mat[static_cast<size_t>(p)]);
    const double weight = b.weight[static_cast<size_t>(p)];
    dim = img.sym_dim[m];
    for (int64_t q = img.sym_ptr[m]; q < img.sym_ptr[m + 1]; ++q) {
      const auto u = static_cast<size_t>(q);
      auto [it, added] = sum.try_emplace({img.sym_i[u], img.sym_j[u]}, weight * img.sym_v[u]);
      if (!added) it->second += weight * img.sym_v[u];
    }
  }
  std::vector<int32_t> si, sj;
  std::vector<double> sv;
  for (const auto& [ij, v] : sum) si.push_back(ij.first), sj.push_back(ij.second), sv.push_back(v);
  w->push_back(1.0);
  mats->push_back(inline_matrix(dim, si.data(), sj.data(), sv.data(), static_cast<int64_t>(sv.size())));
}

int32_t enum_by_symbol(task::EnumGroup group, const char* prefix, std::string_view symbol) {
  const std::string full = std::string(prefix) + std::string(symbol);
  for (int32_t x = 0; x < 256; ++x) {
    const char* s = task::enum_symbol(group, x);
    if (s && full == s) return x;
  }
  return -1;
}

}  // namespace qubor::formats::text
