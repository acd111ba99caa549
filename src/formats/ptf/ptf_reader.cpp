#include <string>

#include "formats/frame/text_syntax.h"
#include "formats/frame/try.h"
#include "formats/ptf/ptf.h"

namespace qubor::formats {

namespace {

using text::Tok;
using text::Token;

constexpr const char* kSections[] = {"TASK", "VARIABLES", "MATRIXVARIABLES", "MATRICES", "OBJECTIVE", "CONSTRAINTS", "CONES"};
enum Section { kTask, kVariables, kBarvars, kMatrices, kObjective, kConstraints, kCones, kNumSections };

class PtfReader : public text::Parser {
 public:
  PtfReader(task::Task& t, platform::InStream& in) : Parser(t, in, QBR_RES_ERR_PTF_FORMAT) {}

  QBRrescode run() {
    begin_image();
    QUBOR_TRY(expect_word("PTF"));
    int64_t version = 0;
    QUBOR_TRY(integer(&version, 1, 1));
    bool seen[kNumSections] = {};
    for (;;) {
      QUBOR_TRY(check_next());
      const Token& tk = lex_.peek();
      if (tk.kind == Tok::kEnd) break;
      int s = 0;
      while (s < kNumSections && !tk.word(kSections[s])) ++s;
      if (s == kNumSections) {
        return fail(tk, "a section (TASK, VARIABLES, MATRIXVARIABLES, MATRICES, OBJECTIVE, CONSTRAINTS, CONES) is expected");
      }
      if (seen[s]) return fail(tk, std::string("the section ") + kSections[s] + " is given twice");
      seen[s] = true;
      lex_.take();
      QUBOR_TRY(section(static_cast<Section>(s)));
    }
    return finish_image(true);
  }

 private:
  QBRrescode section(Section s) {
    switch (s) {
      case kTask:
        return string(&img_.task_name);
      case kVariables:
        while (decl_start(lex_.peek())) QUBOR_TRY(variable());
        return QBR_RES_OK;
      case kBarvars:
        while (decl_start(lex_.peek())) {
          std::string n;
          int64_t dim = 0;
          QUBOR_TRY(name(&n));
          QUBOR_TRY(integer(&dim, 1, INT32_MAX));
          barvars_.add(n);
          img_.barvar_names.push_back(std::move(n));
          img_.barvar_dim.push_back(static_cast<int32_t>(dim));
        }
        return QBR_RES_OK;
      case kMatrices:
        while (lex_.peek().kind == Tok::kMatRef) {
          const Token at = lex_.take();
          if (at.text != std::to_string(img_.numsymmat())) {
            return fail(at, "stored matrices are numbered in order: $" + std::to_string(img_.numsymmat()) + " is expected");
          }
          int64_t dim = 0;
          QUBOR_TRY(integer(&dim, 1, INT32_MAX));
          QUBOR_TRY(matrix_entries(static_cast<int32_t>(dim)));
        }
        return QBR_RES_OK;
      case kObjective:
        return objective();
      case kConstraints:
        while (decl_start(lex_.peek())) QUBOR_TRY(constraint(&img_.bara));
        return QBR_RES_OK;
      default:
        while (decl_start(lex_.peek())) QUBOR_TRY(cone());
        return QBR_RES_OK;
    }
  }

  QBRrescode objective() {
    QUBOR_TRY(check_next());
    const Token& tk = lex_.peek();
    if (tk.word("minimize") || tk.word("maximize")) {
      img_.obj_sense = tk.word("minimize") ? QBR_OBJECTIVE_SENSE_MINIMIZE : QBR_OBJECTIVE_SENSE_MAXIMIZE;
      lex_.take();
    } else {
      return fail(tk, "minimize or maximize is expected");
    }
    if (decl_start(lex_.peek())) QUBOR_TRY(name(&img_.obj_name));
    return objective_terms(&img_.barc, false);
  }
};

}  // namespace

QBRrescode read_ptf(task::Task& t, platform::InStream& in) {
  PtfReader r(t, in);
  return r.run();
}

}  // namespace qubor::formats
