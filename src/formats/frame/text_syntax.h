// The text toolkit of the readable whole-problem formats (PTF and OPF): one lexer, the
// pieces of syntax both formats share (names and references, numbers, bounds, algebraic
// expressions, cone types) and their writers, so that each format only adds its framing.
//
// Lexical rules (both formats): blanks, tabs, line ends and comments ("#" to the end of the
// line) separate tokens and are otherwise ignored. A word is [A-Za-z_][A-Za-z0-9_.]*; a
// string is "..." with the escapes \" \\ \n \t \r and \xHH (any bytes, UTF-8 included); a
// number is unsigned ([0-9.][0-9.eE+-]*, read back bit for bit), "inf" and "nan" being words;
// "@12" refers to item 12 by its 0-based index, "$3" to stored symmetric matrix 3; ">=",
// "<=", "==" and every other character are punctuation.
//
// Shared grammar (see docs/ptf.md):
//   name    := word | string | "_"                 "_" declares an item without a name
//   ref     := word | string | "@" index           a declared name, or the item's index
//   number  := ["+"|"-"] (NUMBER | "inf" | "nan")
//   bound   := "free" | ">=" number | "<=" number | "==" number | "in" "[" number "," number "]"
//   expr    := term*   (the first term's sign may be left out)
//   term    := sign [number] ref ["*" ref]          linear term, or stored Q entry (i, j)
//            | sign number                          the constant, where one is allowed
//            | sign "<" mterm (sign mterm)* "," ref ">"    coefficient of a matrix variable
//   mterm   := number ("$" index | "[" dim ":" [i j number ("," i j number)*] "]")
// A reserved word (keywords of either format) is never a bare name; the writers quote it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "formats/frame/line_reader.h"
#include "formats/frame/name_table.h"
#include "formats/frame/text_writer.h"
#include "formats/frame/task_image.h"
#include "task/task.h"

namespace qubor::formats::text {

enum class Tok : uint8_t { kEnd, kWord, kString, kNumber, kRef, kMatRef, kPunct, kBad };

struct Token {
  Tok kind = Tok::kEnd;
  std::string text;  // word, decoded string, number text, index digits, punctuation; for kBad the reason
  int64_t line = 0, col = 0;
  bool is(std::string_view p) const { return kind == Tok::kPunct && text == p; }
  bool word(std::string_view w) const { return kind == Tok::kWord && text == w; }
};

class Lexer {
 public:
  explicit Lexer(platform::InStream& in) : lines_(in, size_t{1} << 16) {}
  const Token& peek() {
    if (!have_) next(&tok_), have_ = true;
    return tok_;
  }
  Token take() {
    peek();
    have_ = false;
    return std::move(tok_);
  }
  bool stream_failed() const { return lines_.failed(); }

 private:
  void next(Token* t);
  LineReader lines_;
  std::string_view line_;
  size_t pos_ = 0;
  int64_t end_col_ = 1;  // just past the last line read
  bool started_ = false, done_ = false;
  Token tok_;
  bool have_ = false;
};

// True for words that are keywords of either format.
bool reserved(std::string_view w);

// Names of one kind of item: the first item declared under a name owns it.
class ItemIndex {
 public:
  void add(const std::string& name) {
    const int32_t item = count_++;
    if (name.empty()) return;
    auto [k, added] = table_.insert(name);
    if (added) owner_.push_back(item);
    (void)k;
  }
  int32_t find(std::string_view name) const {
    const int32_t k = table_.find(name);
    return k < 0 ? -1 : owner_[static_cast<size_t>(k)];
  }
  int32_t size() const { return count_; }

 private:
  NameTable table_;
  std::vector<int32_t> owner_;
  int32_t count_ = 0;
};

// Where the terms of an expression go.
struct TermSink {
  std::vector<int32_t> lin_j;
  std::vector<double> lin_v;
  std::vector<int32_t> q_i, q_j;  // lower triangle: q_i >= q_j
  std::vector<double> q_v;
  bool has_constant = false;
  double constant = 0.0;
  BarTermsImage* bar = nullptr;  // null: matrix-variable terms are not allowed
  int32_t bar_row = -1;
  void clear() {
    lin_j.clear(), lin_v.clear(), q_i.clear(), q_j.clear(), q_v.clear();
    has_constant = false, constant = 0.0;
  }
};

// The reader side shared by the formats. Errors are reported once, with `code` and the
// token's line and column in the message; every parse function returns a response code.
class Parser {
 public:
  Parser(task::Task& t, platform::InStream& in, QBRrescode code) : t_(t), lex_(in), code_(code) {}

 protected:
  QBRrescode fail(const Token& at, const std::string& what);
  QBRrescode fail_here(const std::string& what) { return fail(lex_.peek(), what); }
  // A stream failure or a lexical error of the next token, else OK.
  QBRrescode check_next();

  QBRrescode expect(std::string_view punct);
  QBRrescode expect_word(std::string_view w);
  bool accept(std::string_view punct);
  // Takes an optional sign; true for '-'.
  bool minus_sign();
  QBRrescode number(double* v);
  QBRrescode integer(int64_t* v, int64_t lo, int64_t hi);
  QBRrescode name(std::string* s);
  QBRrescode string(std::string* s);
  // A reference to an item of `index` (kind names the item in messages).
  QBRrescode ref(const ItemIndex& index, const char* kind, int32_t* item);
  QBRrescode bound(int32_t* bk, double* bl, double* bu);
  QBRrescode cone_type(int32_t* ct);
  // Terms up to the first token that cannot start one. `allow_constant`: a number without
  // an item is the expression's constant (once). A term without a number has coefficient 1;
  // it needs a sign, unless it is the first and `lead_ref` says that nothing else can stand
  // there. Duplicate linear terms are errors.
  QBRrescode expr(TermSink* sink, bool allow_constant, bool lead_ref);
  // A stored-matrix declaration's entries "dim : i j v, ..." appended to the image's store.
  QBRrescode matrix_entries(int32_t dim);

  bool term_start(const Token& t) const;
  // A declaration's name: a non-reserved word ("_" for no name) or a string.
  bool decl_start(const Token& t) const {
    return t.kind == Tok::kString || (t.kind == Tok::kWord && !reserved(t.text));
  }
  bool number_start(const Token& t) const {
    return t.kind == Tok::kNumber || t.is("+") || t.is("-") || t.word("inf") || t.word("nan");
  }
  bool ref_start(const Token& t) const {
    return t.kind == Tok::kString || t.kind == Tok::kRef || (t.kind == Tok::kWord && !reserved(t.text));
  }

  // The declarations both formats share, each into the image:
  //   variable   := name bound ["integer"]
  //   constraint := name ":" expr bound          (matrix-variable terms into `bar`, or none)
  //   cone       := name conetype [number] "(" [ref ("," ref)*] ")"
  // and the objective's terms (c, Q, constant, matrix-variable terms into `bar`).
  QBRrescode variable();
  QBRrescode constraint(BarTermsImage* bar);
  QBRrescode cone();
  QBRrescode objective_terms(BarTermsImage* bar, bool lead_ref);

  // An empty image to start from, and the end of a read: the counts of what was declared,
  // A by columns, the image checked and loaded into the task.
  void begin_image();
  QBRrescode finish_image(bool skip_params);

  task::Task& t_;
  Lexer lex_;
  QBRrescode code_;
  TaskImage img_;
  ItemIndex vars_, cons_, cones_, barvars_;
  // Code of an undeclared variable's reference (its template takes the name and the line);
  // 0: the format's syntax error.
  QBRrescode new_var_code_ = 0;
  // Code of an error at the end of the text (its template takes the line); 0: as any other.
  QBRrescode eof_code_ = 0;

 private:
  std::vector<int64_t> stamp_;  // duplicate check of linear terms
  int64_t stamp_id_ = 0;
  void add_row(int32_t i, const TermSink& s);
  std::vector<int32_t> row_i_, row_j_;
  std::vector<double> row_v_;
  TermSink row_;
};

// ---- Writers ----

// How items are named in a file: declaration text and reference text of each item.
class ItemLabels {
 public:
  // `names` as in the image (empty: no item is named).
  void build(const std::vector<std::string>& names, int32_t count);
  const std::string& decl(int32_t k) const { return decl_[static_cast<size_t>(k)]; }
  const std::string& ref(int32_t k) const { return ref_[static_cast<size_t>(k)]; }

 private:
  std::vector<std::string> decl_, ref_;
};

// The name as written: bare when it is a plain word, else quoted.
std::string quoted_name(std::string_view s);
// Always quoted, with the escapes the lexer reads.
std::string quoted_string(std::string_view s);
// Exact text of a double ("+inf", "-inf", "nan" for the non-finite ones).
void put_number(TextWriter& w, double v);
void put_bound(TextWriter& w, int32_t bk, double bl, double bu);
const char* cone_type_word(int32_t ct);

// Writes expression terms, breaking lines before a term that would pass `width` (0: never).
class ExprWriter {
 public:
  ExprWriter(TextWriter& w, int width, int indent) : w_(w), width_(width), indent_(indent) {}
  void start(int used) { col_ = used, first_ = true; }
  void linear(double v, const std::string& ref);
  void quad(double v, const std::string& ri, const std::string& rj);
  void constant(double v);
  // Matrix-variable coefficient: weights[k] * matrix texts[k] (each "$m" or "[d: ...]").
  void bar(const std::vector<double>& weights, const std::vector<std::string>& mats, const std::string& barvar);

 private:
  void term(const std::string& text);
  TextWriter& w_;
  int width_, indent_, col_ = 0;
  bool first_ = true;
};

// "sign number" text of a term's coefficient: "+ 2", "- 0.5", "- 0" for -0.0.
std::string signed_coef(double v, bool first);
std::string number_string(double v);
// An inline matrix "[dim: i j v, ...]".
std::string inline_matrix(int32_t dim, const int32_t* i, const int32_t* j, const double* v, int64_t nz);

// Per term of the image's barc/bara (k-th term), the weights and matrix texts to write:
// the stored matrices with their weights ("$m") when `stored`, else the weighted sum as one
// inline matrix with weight 1.
void bar_term_texts(const TaskImage& img, const BarTermsImage& b, size_t k, bool stored, std::vector<double>* w,
                    std::vector<std::string>* mats);

// Symbolic value of `symbol` (without its prefix) in `group`, or -1.
int32_t enum_by_symbol(task::EnumGroup group, const char* prefix, std::string_view symbol);

}  // namespace qubor::formats::text
