// The LP reader.
//
// Grammar (keywords case-sensitive, "\" starts a comment to the end of the line):
//   [max|maximize|maximum|min|minimize|minimum] [label:] expression
//   [subject to|s.t.|st  { [label:|label::] constraint }]
//   [bound|bounds        { bound }]
//   [bin|binary|binaries | gen|general|generals|integer|integers  { name }]...
//   end
// constraint:  expression relation expression           (constants on either side)
//            | constant relation expression relation constant    (ranged)
// bound:       name free | name relation value | value relation name [relation value]
// expression:  signed terms "c name", constants, and quadratic brackets "[ c x ^ 2 + c x * y ]"
//              closed by "]/2" (halved) or "]". In the objective a bracket without "/2" is read
//              as if it had one, with QBR_RES_WRN_LP_OLD_QUAD_FORMAT.
// relation: <, <=, =<, >, >=, =>, =. Values: numbers, infinity, inf, +inf, -inf.
// On the right-hand side of a relation a term that starts a new line without a sign begins
// the next constraint. A constraint without a label is named by its position only; the
// objective is named "obj" when it has no label. The objective constant becomes the task's
// constant term. Variables are numbered in the order of their first appearance.
// Errors: QBR_RES_ERR_LP_FORMAT with the line of the offending token,
// QBR_RES_ERR_READ_LP_MISSING_END_TAG when the text ends before "end",
// QBR_RES_ERR_READ_LP_NONEXISTING_NAME for an undeclared name in an integer section.
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "formats/frame/line_reader.h"
#include "formats/frame/name_table.h"
#include "formats/frame/try.h"
#include "formats/lp/lp.h"
#include "formats/lp/lp_names.h"
#include "formats/mps/mps_loader.h"
#include "formats/mps/mps_model.h"
#include "task/report.h"

namespace qubor::formats {

using task::Task;

namespace {

constexpr double kInf = 1.0e30;

enum class Tok { kLabel, kDcLabel, kString, kQString, kInteger, kFloat, kError, kNa, kOp, kEnd };

// The text of a token is a view into the tokens' text store (or into a constant).
struct Token {
  Tok kind = Tok::kEnd;
  std::string_view text;
  double value = 0.0;
  int32_t line = 0;
};

// Keeps the texts of all tokens in blocks that never move, so that tokens hold plain views
// and a name costs its characters only.
class TokenText {
 public:
  std::string_view keep(std::string_view s) {
    if (s.empty()) return {};
    if (s.size() > room_) {
      const size_t size = std::max(kBlock, s.size());
      blocks_.emplace_back(new char[size]);
      next_ = blocks_.back().get();
      room_ = size;
    }
    std::memcpy(next_, s.data(), s.size());
    std::string_view kept(next_, s.size());
    next_ += s.size();
    room_ -= s.size();
    return kept;
  }

 private:
  static constexpr size_t kBlock = size_t{1} << 16;
  std::vector<std::unique_ptr<char[]>> blocks_;
  char* next_ = nullptr;
  size_t room_ = 0;
};

// Splits the text into tokens line by line; operators are kOp with their text.
class Tokenizer {
 public:
  Tokenizer(platform::InStream& in, bool quoted, TokenText& text) : lines_(in), quoted_(quoted), text_(text) {}

  // The tokens of the next line (possibly none); false at the end of the text, or after an
  // unterminated quoted name, which ends it.
  bool next(std::vector<Token>* out) {
    std::string_view line;
    if (stopped_ || !lines_.next(&line)) return false;
    {
      const int32_t no = static_cast<int32_t>(lines_.line_number());
      size_t k = 0;
      while (k < line.size()) {
        char c = line[k];
        if (c == ' ' || c == '\t' || c == '\r') {
          ++k;
        } else if (c == '\\') {
          break;
        } else if ((c >= '0' && c <= '9') ||
                   (c == '.' && k + 1 < line.size() && line[k + 1] >= '0' && line[k + 1] <= '9')) {
          k = number(line, k, no, out);
        } else if (c == '"' && quoted_) {
          size_t e = line.find('"', k + 1);
          if (e == std::string_view::npos) {
            out->push_back({Tok::kError, text_.keep(line.substr(k)), 0, no});
            stopped_ = true;
            return true;
          }
          out->push_back({Tok::kQString, text_.keep(line.substr(k + 1, e - k - 1)), 0, no});
          k = label(line, e + 1, out);
        } else if (lp_name_start(c)) {
          size_t e = k;
          while (e < line.size() && lp_name_char(line[e])) ++e;
          out->push_back({Tok::kString, text_.keep(line.substr(k, e - k)), 0, no});
          k = label(line, e, out);
        } else {
          k = op(line, k, no, out);
        }
      }
    }
    return true;
  }
  bool failed() const { return lines_.failed(); }

 private:
  // A name directly followed by ':' or '::' (blanks between allowed) is a label.
  size_t label(std::string_view line, size_t k, std::vector<Token>* out) {
    size_t e = k;
    while (e < line.size() && (line[e] == ' ' || line[e] == '\t')) ++e;
    if (e < line.size() && line[e] == ':') {
      const bool dc = e + 1 < line.size() && line[e + 1] == ':';
      out->back().kind = dc ? Tok::kDcLabel : Tok::kLabel;
      return e + (dc ? 2 : 1);
    }
    return k;
  }

  size_t number(std::string_view line, size_t k, int32_t no, std::vector<Token>* out) {
    double v = 0.0;
    auto r = std::from_chars(line.data() + k, line.data() + line.size(), v);
    size_t e = static_cast<size_t>(r.ptr - line.data());
    bool integral = true;
    for (size_t i = k; i < e; ++i) {
      if (line[i] == '.' || line[i] == 'e' || line[i] == 'E') integral = false;
    }
    if (r.ec != std::errc() && r.ec != std::errc::result_out_of_range) {
      out->push_back({Tok::kError, text_.keep(line.substr(k, 1)), 0, no});
      return k + 1;
    }
    out->push_back({integral ? Tok::kInteger : Tok::kFloat, text_.keep(line.substr(k, e - k)), v, no});
    return e;
  }

  size_t op(std::string_view line, size_t k, int32_t no, std::vector<Token>* out) {
    static constexpr std::string_view kOps[] = {"<=", "=<", ">=", "=>", "]/2", "<", ">", "=",
                                                "+",  "-",  "*",  "^",  "[",   "]", ":", "/"};
    for (std::string_view o : kOps) {
      if (line.substr(k, o.size()) == o) {
        out->push_back({Tok::kOp, o, 0, no});  // a view of the constant
        return k + o.size();
      }
    }
    out->push_back({Tok::kError, text_.keep(line.substr(k, 1)), 0, no});
    return k + 1;
  }

  LineReader lines_;
  bool quoted_;
  TokenText& text_;
  bool stopped_ = false;
};

enum class Word { kNone, kMax, kMin, kSubject, kBounds, kBinary, kGeneral, kEnd };

Word keyword(const Token& t) {
  if (t.kind != Tok::kString) return Word::kNone;
  const std::string_view s = t.text;
  if (s == "max" || s == "maximize" || s == "maximum") return Word::kMax;
  if (s == "min" || s == "minimize" || s == "minimum") return Word::kMin;
  if (s == "subject" || s == "s.t." || s == "st") return Word::kSubject;
  if (s == "bound" || s == "bounds") return Word::kBounds;
  if (s == "bin" || s == "binary" || s == "binaries") return Word::kBinary;
  if (s == "gen" || s == "general" || s == "generals" || s == "integer" || s == "integers")
    return Word::kGeneral;
  if (s == "end") return Word::kEnd;
  return Word::kNone;
}

bool is_infinity_word(std::string_view s) { return s == "infinity" || s == "inf"; }

// A side of a relation: linear terms, a constant and quadratic terms (task convention).
struct Side {
  std::vector<int32_t> sub;
  std::vector<double> val;
  double constant = 0.0;
  QTriplets q;
  bool has_vars() const { return !sub.empty() || !q.v.empty(); }
};

// Sums entries at the same position, so that every position is put once.
void merge(QTriplets* q) {
  std::vector<size_t> order(q->v.size());
  for (size_t k = 0; k < order.size(); ++k) order[k] = k;
  std::sort(order.begin(), order.end(),
            [&](size_t a, size_t b) { return q->i[a] != q->i[b] ? q->i[a] < q->i[b] : q->j[a] < q->j[b]; });
  QTriplets out;
  for (size_t k : order) {
    if (!out.v.empty() && out.i.back() == q->i[k] && out.j.back() == q->j[k]) {
      out.v.back() += q->v[k];
    } else {
      out.i.push_back(q->i[k]);
      out.j.push_back(q->j[k]);
      out.v.push_back(q->v[k]);
    }
  }
  *q = std::move(out);
}

class LpParser {
 public:
  LpParser(Task& t, Tokenizer& tokens, std::vector<Token>& window, const char* name)
      : t_(t), tokens_(tokens), toks_(window), name_(name ? name : "") {}

  QBRrescode run() {
    QUBOR_TRY(parse());
    return load();
  }

 private:
  // Tokens are read as the parser reaches them and kept in a window from base_ on; positions
  // (pos_) count from the start of the text. After the last token comes one kEnd token.
  const Token& at(size_t i) {
    while (i >= base_ + toks_.size() && !ended_) {
      if (!tokens_.next(&toks_)) {
        ended_ = true;
        if (!toks_.empty()) last_line_ = toks_.back().line;
        toks_.push_back(Token{Tok::kEnd, "", 0, last_line_});
      }
    }
    return toks_[std::min(i, base_ + toks_.size() - 1) - base_];
  }
  // Copies: reaching a later token may move the window's storage.
  Token cur() { return at(pos_); }
  Token peek(size_t k = 1) { return at(pos_ + k); }
  Token prev() { return at(pos_ - 1); }
  // Drops the tokens before the previous one; called where no position is held for a return.
  void release() {
    if (pos_ - base_ < kKeep) return;
    toks_.erase(toks_.begin(), toks_.begin() + static_cast<ptrdiff_t>(pos_ - 1 - base_));
    base_ = pos_ - 1;
  }
  static constexpr size_t kKeep = size_t{1} << 14;
  bool at_op(const char* o) { return cur().kind == Tok::kOp && cur().text == o; }
  QBRrescode syntax() {
    if (cur().kind == Tok::kEnd) return at_end(QBR_RES_ERR_LP_FORMAT);
    return QBR_REPORT(t_, QBR_RES_ERR_LP_FORMAT, cur().line);
  }
  // A fault met at the end of the text; when the stream failed, the text ended early and
  // that is the fault reported.
  QBRrescode at_end(QBRrescode code) {
    if (tokens_.failed()) return QBR_REPORT(t_, QBR_RES_ERR_FILE_READ, name_);
    return QBR_REPORT(t_, code, last_line_);
  }
  // A section keyword where a new statement would begin.
  bool at_section() {
    Word w = keyword(cur());
    if (w == Word::kNone || w == Word::kMax || w == Word::kMin) return false;
    if (w == Word::kSubject && cur().text == "subject")
      return peek().kind == Tok::kString && peek().text == "to";
    return true;
  }

  int32_t variable(std::string_view name) {
    auto [j, added] = vars_.insert(name);
    if (added) {
      c_.push_back(0.0);
      bl_.push_back(0.0);
      bu_.push_back(kInf);
      is_int_.push_back(0);
    }
    return j;
  }

  QBRrescode parse();
  // Which side an expression is: the body on the left, the right-hand side after a body,
  // the body after a constant left side, or the objective.
  enum class Part { kLeft, kRhs, kRightBody, kObjective };
  QBRrescode expression(Side* side, Part part);
  QBRrescode bracket(Side* side, double sign, bool objective);
  bool relation(int* rel);
  bool constant(double* v);
  QBRrescode constraint();
  QBRrescode bound();
  QBRrescode declaration(bool binary);
  QBRrescode load();

  Task& t_;
  Tokenizer& tokens_;
  std::vector<Token>& toks_;
  std::string name_;
  size_t base_ = 0;  // position of toks_[0]
  bool ended_ = false;
  size_t pos_ = 0;
  int32_t last_line_ = 0;
  NameTable vars_;
  std::vector<double> c_, bl_, bu_;
  std::vector<char> is_int_;
  int32_t sense_ = QBR_OBJECTIVE_SENSE_MINIMIZE;
  std::string obj_name_ = "obj";
  double cfix_ = 0.0;
  QTriplets qobj_;
  // Constraints: rows of (sub, val), bounds, names, quadratic terms.
  std::vector<int64_t> row_ptr_{0};
  std::vector<int32_t> a_sub_;
  std::vector<double> a_val_;
  std::vector<int32_t> con_bk_;
  std::vector<double> con_bl_, con_bu_;
  std::vector<std::string> con_names_;
  std::vector<int32_t> qcon_index_;
  std::vector<QTriplets> qcon_;
  std::vector<int32_t> slot_;  // position of a variable in the row being built, -1 none
};

// A number or an infinity word with an optional sign; advances past it when found.
bool LpParser::constant(double* v) {
  size_t save = pos_;
  double sign = 1.0;
  if (at_op("+") || at_op("-")) {
    sign = at_op("-") ? -1.0 : 1.0;
    ++pos_;
  }
  if (cur().kind == Tok::kInteger || cur().kind == Tok::kFloat) {
    *v = sign * cur().value;
    ++pos_;
    if (cur().kind == Tok::kString && !at_section() && keyword(cur()) == Word::kNone &&
        cur().line == prev().line) {
      pos_ = save;  // "3 x" is a term, not a constant
      return false;
    }
    return true;
  }
  if (cur().kind == Tok::kString && is_infinity_word(cur().text)) {
    *v = sign * kInf;
    ++pos_;
    return true;
  }
  pos_ = save;
  return false;
}

bool LpParser::relation(int* rel) {
  if (cur().kind != Tok::kOp) return false;
  const std::string_view o = cur().text;
  if (o == "<=" || o == "=<" || o == "<") {
    *rel = -1;
  } else if (o == ">=" || o == "=>" || o == ">") {
    *rel = 1;
  } else if (o == "=") {
    *rel = 0;
  } else {
    return false;
  }
  ++pos_;
  return true;
}

QBRrescode LpParser::bracket(Side* side, double sign, bool objective) {
  const int32_t open_line = cur().line;
  ++pos_;  // '['
  QTriplets raw;
  std::vector<char> square;
  for (;;) {
    if (at_op("]") || at_op("]/2")) break;
    double s = 1.0;
    if (at_op("+") || at_op("-")) {
      s = at_op("-") ? -1.0 : 1.0;
      ++pos_;
    }
    double coef = 1.0;
    if (cur().kind == Tok::kInteger || cur().kind == Tok::kFloat) {
      coef = cur().value;
      ++pos_;
    }
    if (cur().kind != Tok::kString && cur().kind != Tok::kQString) return syntax();
    const int32_t a = variable(cur().text);
    ++pos_;
    if (at_op("^")) {
      ++pos_;
      if (cur().kind != Tok::kInteger || cur().value != 2.0) return syntax();
      ++pos_;
      raw.add(a, a, s * coef);
    } else if (at_op("*")) {
      ++pos_;
      if (cur().kind != Tok::kString && cur().kind != Tok::kQString) return syntax();
      raw.add(a, variable(cur().text), s * coef);
      ++pos_;
    } else {
      return syntax();
    }
  }
  bool halved = at_op("]/2");
  ++pos_;
  // "/" is also a name character, so "] / 2" may arrive as a name "/".
  const bool slash = at_op("/") || (cur().kind == Tok::kString && cur().text == "/");
  if (!halved && slash && peek().kind == Tok::kInteger && peek().value == 2.0) {
    halved = true;
    pos_ += 2;
  }
  if (!halved && objective) {
    QUBOR_TRY(QBR_REPORT(t_, QBR_RES_WRN_LP_OLD_QUAD_FORMAT, open_line));
    halved = true;
  }
  // The bracket B stands for B/2 or B; the task keeps 1/2 x'Qx.
  const double f = halved ? 0.5 : 1.0;
  for (size_t k = 0; k < raw.v.size(); ++k) {
    const bool diag = raw.i[k] == raw.j[k];
    side->q.add(raw.i[k], raw.j[k], sign * raw.v[k] * (diag ? 2 * f : f));
  }
  return QBR_RES_OK;
}

// Terms until a relation, a label or a section keyword. A term that starts a new line ends
// the expression when it has no sign, and on a right-hand side in any case: such a line
// begins an unlabelled constraint.
QBRrescode LpParser::expression(Side* side, Part part) {
  const bool rhs = part == Part::kRhs, objective = part == Part::kObjective;
  bool first = true;
  for (;;) {
    const Token& t = cur();
    if (t.kind == Tok::kEnd || t.kind == Tok::kLabel || t.kind == Tok::kDcLabel || at_section())
      return QBR_RES_OK;
    if (t.kind == Tok::kOp && t.text != "+" && t.text != "-" && t.text != "[") return QBR_RES_OK;
    if (t.kind == Tok::kError || t.kind == Tok::kNa) return syntax();
    // A body after a constant left side that holds no variable by the end of its line is
    // a constant too ("0 <= 2", the writer's empty row).
    const bool line_ends_side = rhs || t.kind != Tok::kOp || (part == Part::kRightBody && !side->has_vars());
    if (!first && t.line != prev().line && line_ends_side) return QBR_RES_OK;
    if (!first && t.kind != Tok::kOp) return syntax();  // two terms without an operator
    double sign = 1.0;
    while (at_op("+") || at_op("-")) {
      if (at_op("-")) sign = -sign;
      ++pos_;
    }
    if (at_op("[")) {
      QUBOR_TRY(bracket(side, sign, objective));
    } else if (cur().kind == Tok::kInteger || cur().kind == Tok::kFloat) {
      const double v = cur().value;
      const int32_t number_line = cur().line;
      ++pos_;
      // A right-hand side's number and a name on the next line are a constant and the body
      // of an unlabelled constraint, not one term.
      const bool same_line = !rhs || cur().line == number_line;
      const bool name_follows =
          (cur().kind == Tok::kString && keyword(cur()) == Word::kNone && !is_infinity_word(cur().text)) ||
          cur().kind == Tok::kQString;
      if (same_line && name_follows) {
        side->sub.push_back(variable(cur().text));
        side->val.push_back(sign * v);
        ++pos_;
      } else {
        side->constant += sign * v;
      }
    } else if (cur().kind == Tok::kString && is_infinity_word(cur().text)) {
      side->constant += sign * kInf;
      ++pos_;
    } else if ((cur().kind == Tok::kString && keyword(cur()) == Word::kNone) || cur().kind == Tok::kQString) {
      side->sub.push_back(variable(cur().text));
      side->val.push_back(sign);
      ++pos_;
    } else {
      return syntax();
    }
    first = false;
  }
}

QBRrescode LpParser::constraint() {
  std::string name;
  if (cur().kind == Tok::kLabel || cur().kind == Tok::kDcLabel) {
    name = std::string(cur().text);
    ++pos_;
  }
  const int32_t line = cur().line;
  Side left, right, third;
  QUBOR_TRY(expression(&left, Part::kLeft));
  int rel1 = 0, rel2 = 0;
  if (!relation(&rel1)) return syntax();
  // After a constant left side the right side is the body of the constraint and may span
  // lines; after a body it is a right-hand side.
  QUBOR_TRY(expression(&right, left.has_vars() ? Part::kRhs : Part::kRightBody));
  const bool ranged = relation(&rel2);
  if (ranged) QUBOR_TRY(expression(&third, Part::kRhs));
  double lo = -kInf, up = kInf;
  Side* body = &left;
  if (ranged) {
    // lower <= body <= upper (or the mirror with >=).
    if (left.has_vars() || third.has_vars() || rel1 != rel2 || rel1 == 0) {
      return QBR_REPORT(t_, QBR_RES_ERR_LP_FORMAT, line);
    }
    body = &right;
    lo = (rel1 < 0 ? left.constant : third.constant) - right.constant;
    up = (rel1 < 0 ? third.constant : left.constant) - right.constant;
  } else {
    // "constant <= body" is "body >= constant".
    if (!left.has_vars() && right.has_vars()) {
      std::swap(left, right);
      rel1 = -rel1;
    }
    // Variables of the right side move to the left, constants to the right.
    for (size_t k = 0; k < right.sub.size(); ++k) {
      left.sub.push_back(right.sub[k]);
      left.val.push_back(-right.val[k]);
    }
    for (size_t k = 0; k < right.q.v.size(); ++k) left.q.add(right.q.i[k], right.q.j[k], -right.q.v[k]);
    const double rhs = right.constant - left.constant;
    if (rel1 <= 0) up = rhs;
    if (rel1 >= 0) lo = rhs;
  }
  // Merge repeated variables of the row.
  slot_.resize(static_cast<size_t>(vars_.size()), -1);
  const int64_t start = row_ptr_.back();
  for (size_t k = 0; k < body->sub.size(); ++k) {
    const int32_t j = body->sub[k];
    int32_t& s = slot_[static_cast<size_t>(j)];
    if (s >= 0) {
      a_val_[static_cast<size_t>(start + s)] += body->val[k];
    } else {
      s = static_cast<int32_t>(a_sub_.size() - static_cast<size_t>(start));
      a_sub_.push_back(j);
      a_val_.push_back(body->val[k]);
    }
  }
  for (size_t k = static_cast<size_t>(start); k < a_sub_.size(); ++k)
    slot_[static_cast<size_t>(a_sub_[k])] = -1;
  row_ptr_.push_back(static_cast<int64_t>(a_sub_.size()));
  if (lo <= -kInf) lo = -kInf;
  if (up >= kInf) up = kInf;
  con_bk_.push_back(bound_key(lo, up));
  con_bl_.push_back(lo);
  con_bu_.push_back(up);
  con_names_.push_back(name);
  if (!body->q.v.empty()) {
    qcon_index_.push_back(static_cast<int32_t>(con_bk_.size()) - 1);
    qcon_.push_back(std::move(body->q));
  }
  return QBR_RES_OK;
}

QBRrescode LpParser::bound() {
  const int32_t line = cur().line;
  double v1 = 0.0, v2 = 0.0;
  int rel1 = 0, rel2 = 0;
  const bool lead = constant(&v1);
  if (lead && !relation(&rel1)) return syntax();
  if (cur().kind != Tok::kString && cur().kind != Tok::kQString) return syntax();
  const std::string name(cur().text);
  ++pos_;
  int32_t j = vars_.find(name);
  if (j < 0) {
    if (t_.ipar(QBR_IPAR_READ_LP_DROP_NEW_VARS_IN_BOU)) {
      QUBOR_TRY(QBR_REPORT(t_, QBR_RES_WRN_LP_DROP_VARIABLE, name));
    } else {
      j = variable(name);
    }
  }
  double lo = j >= 0 ? bl_[static_cast<size_t>(j)] : 0.0, up = j >= 0 ? bu_[static_cast<size_t>(j)] : kInf;
  auto apply = [&](int rel, double v, bool var_on_left) {
    // var_on_left: "x rel v"; otherwise "v rel x".
    const int r = var_on_left ? rel : -rel;
    if (r <= 0) up = v;
    if (r >= 0) lo = v;
  };
  if (!lead && cur().kind == Tok::kString && cur().text == "free") {
    ++pos_;
    lo = -kInf;
    up = kInf;
  } else {
    if (lead) apply(rel1, v1, false);
    if (relation(&rel2)) {
      if (!constant(&v2)) return syntax();
      apply(rel2, v2, true);
    } else if (!lead) {
      return QBR_REPORT(t_, QBR_RES_ERR_LP_FORMAT, line);
    }
  }
  if (j >= 0) {
    bl_[static_cast<size_t>(j)] = lo <= -kInf ? -kInf : lo;
    bu_[static_cast<size_t>(j)] = up >= kInf ? kInf : up;
  }
  return QBR_RES_OK;
}

QBRrescode LpParser::declaration(bool binary) {
  const std::string name(cur().text);
  const int32_t j = vars_.find(name);
  if (j < 0) return QBR_REPORT(t_, QBR_RES_ERR_READ_LP_NONEXISTING_NAME, name);
  is_int_[static_cast<size_t>(j)] = 1;
  if (binary) {
    bl_[static_cast<size_t>(j)] = 0.0;
    bu_[static_cast<size_t>(j)] = 1.0;
  }
  ++pos_;
  return QBR_RES_OK;
}

QBRrescode LpParser::parse() {
  Word w = keyword(cur());
  if (w == Word::kMax || w == Word::kMin) {
    sense_ = w == Word::kMax ? QBR_OBJECTIVE_SENSE_MAXIMIZE : QBR_OBJECTIVE_SENSE_MINIMIZE;
    ++pos_;
    if (cur().kind == Tok::kLabel) {
      obj_name_ = cur().text;
      ++pos_;
    }
    Side obj;
    QUBOR_TRY(expression(&obj, Part::kObjective));
    for (size_t k = 0; k < obj.sub.size(); ++k) c_[static_cast<size_t>(obj.sub[k])] += obj.val[k];
    cfix_ = obj.constant;
    qobj_ = std::move(obj.q);
  }
  for (;;) {
    if (cur().kind == Tok::kEnd) return at_end(QBR_RES_ERR_READ_LP_MISSING_END_TAG);
    w = keyword(cur());
    if (w == Word::kEnd) return QBR_RES_OK;
    if (!at_section()) return syntax();
    const bool subject_to = cur().text == "subject";
    ++pos_;
    if (subject_to) ++pos_;  // "to"
    while (cur().kind != Tok::kEnd && !at_section()) {
      release();
      switch (w) {
        case Word::kSubject:
          QUBOR_TRY(constraint());
          break;
        case Word::kBounds:
          QUBOR_TRY(bound());
          break;
        case Word::kBinary:
        case Word::kGeneral:
          if (cur().kind != Tok::kString && cur().kind != Tok::kQString) return syntax();
          QUBOR_TRY(declaration(w == Word::kBinary));
          break;
        default:
          return syntax();
      }
    }
  }
}

QBRrescode LpParser::load() {
  QBRtask_t h = t_.handle;
  const int32_t n = vars_.size();
  const int32_t m = static_cast<int32_t>(con_bk_.size());
  QUBOR_TRY(QBR_putobjsense(h, sense_));
  QUBOR_TRY(QBR_putobjname(h, obj_name_.c_str()));
  if (n > 0) {
    QUBOR_TRY(QBR_appendvars(h, n));
    std::vector<int32_t> bk(static_cast<size_t>(n));
    for (int32_t j = 0; j < n; ++j)
      bk[static_cast<size_t>(j)] = bound_key(bl_[static_cast<size_t>(j)], bu_[static_cast<size_t>(j)]);
    QUBOR_TRY(QBR_putvarboundslice(h, 0, n, bk.data(), bl_.data(), bu_.data()));
    QUBOR_TRY(QBR_putcslice(h, 0, n, c_.data()));
    for (int32_t j = 0; j < n; ++j) {
      QUBOR_TRY(QBR_putvarname(h, j, vars_.c_str(j)));
      if (is_int_[static_cast<size_t>(j)]) QUBOR_TRY(QBR_putvartype(h, j, QBR_VAR_TYPE_INT));
    }
  }
  if (m > 0) {
    QUBOR_TRY(QBR_appendcons(h, m));
    QUBOR_TRY(QBR_putconboundslice(h, 0, m, con_bk_.data(), con_bl_.data(), con_bu_.data()));
    QUBOR_TRY(
        QBR_putarowslice64(h, 0, m, row_ptr_.data(), row_ptr_.data() + 1, a_sub_.data(), a_val_.data()));
    for (int32_t i = 0; i < m; ++i) {
      if (!con_names_[static_cast<size_t>(i)].empty())
        QUBOR_TRY(QBR_putconname(h, i, con_names_[static_cast<size_t>(i)].c_str()));
    }
  }
  if (cfix_ != 0.0) QUBOR_TRY(QBR_putcfix(h, cfix_));
  merge(&qobj_);
  for (QTriplets& q : qcon_) merge(&q);
  if (!qobj_.v.empty()) {
    QUBOR_TRY(
        QBR_putqobj(h, static_cast<int32_t>(qobj_.v.size()), qobj_.i.data(), qobj_.j.data(), qobj_.v.data()));
  }
  for (size_t k = 0; k < qcon_.size(); ++k) {
    const QTriplets& q = qcon_[k];
    QUBOR_TRY(QBR_putqconk(h, qcon_index_[k], static_cast<int32_t>(q.v.size()), q.i.data(), q.j.data(),
                           q.v.data()));
  }
  return QBR_RES_OK;
}

}  // namespace

QBRrescode read_lp(Task& t, platform::InStream& in, const char* name) {
  std::vector<Token> toks;
  TokenText text;
  Tokenizer tokenizer(in, t.ipar(QBR_IPAR_READ_LP_QUOTED_NAMES) != 0, text);
  LpParser parser(t, tokenizer, toks, name);
  return parser.run();
}

}  // namespace qubor::formats
