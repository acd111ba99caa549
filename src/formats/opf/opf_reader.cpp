#include <cmath>
#include <string>

#include "formats/frame/text_syntax.h"
#include "formats/frame/try.h"
#include "formats/opf/opf.h"
#include "task/tables.h"

namespace qubor::formats {

namespace {

using text::Tok;
using text::Token;

class OpfReader : public text::Parser {
 public:
  OpfReader(task::Task& t, platform::InStream& in) : Parser(t, in, QBR_RES_ERR_OPF_FORMAT) {
    new_var_code_ = QBR_RES_ERR_OPF_NEW_VARIABLE;
    eof_code_ = QBR_RES_ERR_OPF_PREMATURE_EOF;
  }

  QBRrescode run() {
    begin_image();
    QUBOR_TRY(expect_word("OPF"));
    int64_t version = 0;
    QUBOR_TRY(integer(&version, 1, 1));
    QUBOR_TRY(expect(";"));
    for (;;) {
      QUBOR_TRY(check_next());
      if (lex_.peek().kind == Tok::kEnd) break;
      QUBOR_TRY(statement());
    }
    return finish_image(false);
  }

 private:
  QBRrescode statement() {
    const Token at = lex_.take();
    const bool declaration = at.word("var") || at.word("con") || at.word("cone") || at.word("minimize") ||
                             at.word("maximize");
    if (declaration && solutions_) return fail(at, "the problem is declared before the solutions");
    if (at.word("task")) {
      QUBOR_TRY(string(&img_.task_name));
    } else if (at.word("hint")) {
      QUBOR_TRY(hint());
    } else if (at.word("var")) {
      QUBOR_TRY(variable());
    } else if (at.word("minimize") || at.word("maximize")) {
      QUBOR_TRY(objective(at));
    } else if (at.word("con")) {
      QUBOR_TRY(constraint(nullptr));
    } else if (at.word("cone")) {
      QUBOR_TRY(cone());
    } else if (at.word("param")) {
      QUBOR_TRY(param());
    } else if (at.word("solution")) {
      return solution();
    } else {
      return fail(at, "a statement (task, hint, var, minimize, maximize, con, cone, param, solution) is expected");
    }
    return expect(";");
  }

  // Sizes announced by the writer; used only to reserve space, within reason.
  QBRrescode hint() {
    QUBOR_TRY(check_next());
    const Token what = lex_.take();
    if (what.kind != Tok::kWord) return fail(what, "a hint name is expected");
    int64_t n = 0;
    QUBOR_TRY(integer(&n, 0, INT64_MAX));
    const auto r = static_cast<size_t>(std::min<int64_t>(n, int64_t{1} << 16));
    if (what.text == "numvar") {
      img_.c.reserve(r), img_.var_bk.reserve(r), img_.var_bl.reserve(r), img_.var_bu.reserve(r);
    } else if (what.text == "numcon") {
      img_.con_bk.reserve(r), img_.con_bl.reserve(r), img_.con_bu.reserve(r);
    }
    return QBR_RES_OK;
  }

  QBRrescode objective(const Token& at) {
    if (objective_) return fail(at, "the objective is given twice");
    objective_ = true;
    img_.obj_sense = at.word("minimize") ? QBR_OBJECTIVE_SENSE_MINIMIZE : QBR_OBJECTIVE_SENSE_MAXIMIZE;
    if (decl_start(lex_.peek())) QUBOR_TRY(name(&img_.obj_name));
    QUBOR_TRY(expect(":"));
    return objective_terms(nullptr, true);
  }

  QBRrescode param() {
    QUBOR_TRY(check_next());
    const Token key = lex_.take();
    if (key.kind != Tok::kWord) return fail(key, "a parameter name is expected");
    QUBOR_TRY(expect("="));
    img_.has_params = true;
    if (task::find_param(QBR_PAR_STR_TYPE, key.text.c_str()) >= 0) {
      std::string v;
      QUBOR_TRY(string(&v));
      img_.spar_names.push_back(key.text);
      img_.spar.push_back(std::move(v));
      return QBR_RES_OK;
    }
    const bool is_int = task::find_param(QBR_PAR_INT_TYPE, key.text.c_str()) >= 0;
    if (!is_int && task::find_param(QBR_PAR_DOU_TYPE, key.text.c_str()) < 0) {
      return fail(key, "'" + key.text + "' is not a parameter");
    }
    const Token at = lex_.peek();
    double v = 0.0;
    QUBOR_TRY(number(&v));
    if (is_int) {
      if (!(v >= INT32_MIN && v <= INT32_MAX && std::trunc(v) == v)) return fail(at, "an integer value is expected");
      img_.ipar_names.push_back(key.text);
      img_.ipar.push_back(static_cast<int32_t>(v));
    } else {
      img_.dpar_names.push_back(key.text);
      img_.dpar.push_back(v);
    }
    return QBR_RES_OK;
  }

  QBRrescode solution() {
    QUBOR_TRY(check_next());
    const Token which = lex_.take();
    int32_t w = -1;
    for (int32_t k = QBR_SOL_ITR; k <= QBR_SOL_ITG; ++k)
      if (which.word(solution_item_name(k))) w = k;
    if (w < 0) return fail(which, "interior, basic or integer is expected");
    SolutionImage& s = img_.sol[static_cast<size_t>(w)];
    if (s.defined) return fail(which, "the solution is given twice");
    solutions_ = true;
    s.defined = true;
    const auto n = static_cast<size_t>(vars_.size()), m = static_cast<size_t>(cons_.size());
    s.skx.assign(n, QBR_SK_UNK), s.skc.assign(m, QBR_SK_UNK), s.skn.assign(static_cast<size_t>(cones_.size()), QBR_SK_UNK);
    for (auto* v : {&s.xx, &s.slx, &s.sux, &s.snx}) v->assign(n, 0.0);
    for (auto* v : {&s.xc, &s.y, &s.slc, &s.suc}) v->assign(m, 0.0);
    QUBOR_TRY(expect("{"));
    for (;;) {
      QUBOR_TRY(check_next());
      if (accept("}")) return QBR_RES_OK;
      const Token at = lex_.take();
      if (at.word("status")) {
        QUBOR_TRY(status(task::EnumGroup::PROSTA, "QBR_PRO_STA_", &s.prosta));
        QUBOR_TRY(status(task::EnumGroup::SOLSTA, "QBR_SOL_STA_", &s.solsta));
      } else if (at.word("var") || at.word("con") || at.word("cone")) {
        QUBOR_TRY(item_values(at, &s));
      } else {
        return fail(at, "status, var, con, cone or '}' is expected");
      }
      QUBOR_TRY(expect(";"));
    }
  }

  QBRrescode status(task::EnumGroup g, const char* prefix, int32_t* v) {
    QUBOR_TRY(check_next());
    const Token& tk = lex_.peek();
    const int32_t x = tk.kind == Tok::kWord ? text::enum_by_symbol(g, prefix, tk.text) : -1;
    if (x < 0) return fail(tk, "a status name is expected");
    lex_.take();
    *v = x;
    return QBR_RES_OK;
  }

  // "var x sk=BAS xx=1 ...", "con c sk=... xc=...", "cone k sk=...".
  QBRrescode item_values(const Token& kind, SolutionImage* s) {
    const bool var = kind.word("var"), con = kind.word("con");
    int32_t k = 0;
    QUBOR_TRY(var ? ref(vars_, "variable", &k) : con ? ref(cons_, "constraint", &k) : ref(cones_, "cone", &k));
    const auto u = static_cast<size_t>(k);
    while (lex_.peek().kind == Tok::kWord) {
      const Token key = lex_.take();
      QUBOR_TRY(expect("="));
      if (key.text == "sk") {
        QUBOR_TRY(status(task::EnumGroup::STAKEY, "QBR_SK_", var ? &s->skx[u] : con ? &s->skc[u] : &s->skn[u]));
        continue;
      }
      double* target = nullptr;
      if (var) {
        target = key.text == "xx" ? &s->xx[u] : key.text == "slx" ? &s->slx[u] : key.text == "sux" ? &s->sux[u]
                                                : key.text == "snx" ? &s->snx[u] : nullptr;
      } else if (con) {
        target = key.text == "xc" ? &s->xc[u] : key.text == "y" ? &s->y[u] : key.text == "slc" ? &s->slc[u]
                                               : key.text == "suc" ? &s->suc[u] : nullptr;
      }
      if (!target) return fail(key, "'" + key.text + "' is not a value of a " + kind.text);
      QUBOR_TRY(number(target));
    }
    return QBR_RES_OK;
  }

  bool objective_ = false, solutions_ = false;
};

}  // namespace

QBRrescode read_opf(task::Task& t, platform::InStream& in) {
  OpfReader r(t, in);
  return r.run();
}

}  // namespace qubor::formats
