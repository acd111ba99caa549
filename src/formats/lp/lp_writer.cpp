// The LP writer: objective, constraints, bounds, integer declarations, read from the task
// through the public interface.
//
// Representation choices: numbers have QBR_IPAR_WRITE_PRECISION significant digits;
// infinite values are "+infinity" / "-infinity"; the objective constant is a constant term of
// the objective; a ranged constraint is "name:: lower <= expression <= upper"; a free
// constraint (outside the strict format) is "expression >= -infinity"; nameless variables get
// QBR_SPAR_WRITE_LP_GEN_VAR_NAME followed by their index, nameless ranged constraints "R"
// followed by theirs. Names outside the LP name characters are written between double quotes
// when QBR_IPAR_WRITE_LP_QUOTED_NAMES is on and refused otherwise.
#include <cmath>
#include <string>
#include <vector>

#include "formats/frame/item_names.h"
#include "formats/frame/try.h"
#include "formats/lp/lp.h"
#include "formats/lp/lp_names.h"
#include "task/report.h"
#include "task/tables.h"

namespace qubor::formats {

using task::Task;

bool lp_plain_name(std::string_view s) {
  if (s.empty() || !lp_name_start(s[0])) return false;
  for (char c : s) {
    if (!lp_name_char(c)) return false;
  }
  static constexpr std::string_view kKeywords[] = {
      "max",     "maximize", "maximum", "min",      "minimize", "minimum",  "subject",  "to",
      "s.t.",    "st",       "bound",   "bounds",   "bin",      "binary",   "binaries", "gen",
      "general", "generals", "integer", "integers", "free",     "infinity", "inf",      "end"};
  for (std::string_view k : kKeywords) {
    if (s == k) return false;
  }
  // "e5" or "E5" after a number would read as its exponent.
  if ((s[0] == 'e' || s[0] == 'E') && s.size() > 1 && s[1] >= '0' && s[1] <= '9') return false;
  return true;
}

namespace {

constexpr double kInf = 1.0e30;
constexpr double kOneTol = 1e-15;

class LpWriter {
 public:
  LpWriter(Task& t, TextWriter& out)
      : t_(t),
        h_(t.handle),
        out_(out),
        digits_(t.ipar(QBR_IPAR_WRITE_PRECISION)),
        per_line_(t.ipar(QBR_IPAR_WRITE_LP_TERMS_PER_LINE)),
        strict_(t.ipar(QBR_IPAR_WRITE_LP_STRICT_FORMAT) != 0),
        quoted_(t.ipar(QBR_IPAR_WRITE_LP_QUOTED_NAMES) != 0) {}

  QBRrescode run() {
    QUBOR_TRY(QBR_getnumvar(h_, &numvar_));
    QUBOR_TRY(QBR_getnumcon(h_, &numcon_));
    if (numvar_ == 0 && numcon_ == 0) return QBR_REPORT(t_, QBR_RES_ERR_LP_EMPTY);
    QUBOR_TRY(prepare_names());
    con_bk_.resize(static_cast<size_t>(numcon_));
    con_bl_.resize(static_cast<size_t>(numcon_));
    con_bu_.resize(static_cast<size_t>(numcon_));
    if (numcon_ > 0)
      QUBOR_TRY(QBR_getconboundslice(h_, 0, numcon_, con_bk_.data(), con_bl_.data(), con_bu_.data()));
    if (strict_) {
      for (int32_t i = 0; i < numcon_; ++i) {
        if (con_bk_[static_cast<size_t>(i)] == QBR_BK_FR)
          return QBR_REPORT(t_, QBR_RES_ERR_WRITE_LP_FORMAT, "free constraints");
        if (con_bk_[static_cast<size_t>(i)] == QBR_BK_RA)
          return QBR_REPORT(t_, QBR_RES_ERR_WRITE_LP_FORMAT, "ranged constraints");
      }
    }
    int32_t major = 0, minor = 0, rev = 0;
    QBR_getversion(&major, &minor, &rev);
    out_.printf("\\ Created by QUBOR version %i.%i.%i\n", major, minor, rev);
    QUBOR_TRY(objective());
    QUBOR_TRY(constraints());
    QUBOR_TRY(bounds());
    QUBOR_TRY(generals());
    out_.put("end\n");
    return QBR_RES_OK;
  }

 private:
  // Plain names as they are, others quoted or refused.
  QBRrescode lp_name(const std::string& s, QBRrescode refusal, std::string* out) {
    if (lp_plain_name(s)) {
      *out = s;
      return QBR_RES_OK;
    }
    if (quoted_ && !s.empty() && s.find('"') == std::string::npos && s.find('\n') == std::string::npos) {
      *out = "\"" + s + "\"";
      return QBR_RES_OK;
    }
    return QBR_REPORT(t_, refusal, s);
  }

  QBRrescode prepare_names() {
    const bool generic = t_.ipar(QBR_IPAR_WRITE_GENERIC_NAMES) != 0;
    ItemNames vars, cons;
    const std::string prefix(t_.spar(QBR_SPAR_WRITE_LP_GEN_VAR_NAME));
    QUBOR_TRY(vars.load(h_, ItemKind::kVariable, prefix.c_str(), generic, /*unique=*/false));
    QUBOR_TRY(cons.load(h_, ItemKind::kConstraint, "R", generic));
    vars_.resize(static_cast<size_t>(numvar_));
    cons_.resize(static_cast<size_t>(numcon_));
    NameTable seen;
    for (int32_t j = 0; j < numvar_; ++j) {
      if (!vars.generated(j)) seen.insert(vars[j]);
    }
    for (int32_t j = 0; j < numvar_; ++j) {
      QUBOR_TRY(lp_name(vars[j], QBR_RES_ERR_LP_INVALID_VAR_NAME, &vars_[static_cast<size_t>(j)]));
      if (vars.generated(j) && !seen.insert(vars[j]).second) {
        return QBR_REPORT(t_, QBR_RES_ERR_WRITE_LP_NON_UNIQUE_NAME, vars[j]);
      }
    }
    for (int32_t i = 0; i < numcon_; ++i) {
      QUBOR_TRY(lp_name(cons[i], QBR_RES_ERR_LP_INVALID_CON_NAME, &cons_[static_cast<size_t>(i)]));
      con_named_.push_back(!cons.generated(i));
    }
    std::string obj = objective_name(h_, "");
    if (!obj.empty()) QUBOR_TRY(lp_name(obj, QBR_RES_ERR_LP_INVALID_CON_NAME, &obj_));
    return QBR_RES_OK;
  }

  void term_break() {
    if (per_line_ > 0 && ++terms_ % per_line_ == 0) out_.put('\n');
  }

  void coefficient(double c, bool always_number) {
    if (!always_number && std::fabs(c - 1.0) < kOneTol) {
      out_.put(" + ");
    } else if (!always_number && std::fabs(c + 1.0) < kOneTol) {
      out_.put(" - ");
    } else {
      out_.put(c < 0 ? " - " : " + ");
      out_.put(number_text(std::fabs(c), digits_));
      out_.put(' ');
    }
  }

  void linear(const std::vector<int32_t>& sub, const std::vector<double>& val, bool keep_zeros) {
    for (size_t k = 0; k < sub.size(); ++k) {
      if (val[k] == 0.0 && !keep_zeros) continue;
      if (val[k] == 0.0) {
        out_.put(" + 0 ");
      } else {
        coefficient(val[k], false);
      }
      out_.put(vars_[static_cast<size_t>(sub[k])]);
      term_break();
    }
  }

  // Quadratic terms of 1/2 x'Qx from the lower triangle; `objective` selects the "]/2" form.
  void quadratic(const std::vector<int32_t>& qi, const std::vector<int32_t>& qj,
                 const std::vector<double>& qv, bool objective) {
    if (qv.empty()) return;
    out_.put(" + [");
    for (size_t k = 0; k < qv.size(); ++k) {
      if (qv[k] == 0.0) continue;
      const bool diag = qi[k] == qj[k];
      const double c = objective ? (diag ? qv[k] : 2 * qv[k]) : (diag ? qv[k] / 2 : qv[k]);
      coefficient(c, false);
      out_.put(vars_[static_cast<size_t>(qi[k])]);
      if (diag) {
        out_.put(" ^ 2");
      } else {
        out_.put(" * ");
        out_.put(vars_[static_cast<size_t>(qj[k])]);
      }
      term_break();
    }
    out_.put(objective ? " ]/2" : " ]");
  }

  void value(double v) {
    if (v >= kInf) {
      out_.put("+infinity");
    } else if (v <= -kInf) {
      out_.put("-infinity");
    } else {
      out_.put(number_text(v, digits_));
    }
  }

  QBRrescode objective() {
    int32_t sense = QBR_OBJECTIVE_SENSE_MINIMIZE;
    QUBOR_TRY(QBR_getobjsense(h_, &sense));
    out_.put(sense == QBR_OBJECTIVE_SENSE_MAXIMIZE ? "maximize\n" : "minimize\n");
    if (!obj_.empty()) out_.printf("%s: ", obj_.c_str());
    std::vector<double> c(static_cast<size_t>(numvar_));
    if (numvar_ > 0) QUBOR_TRY(QBR_getcslice(h_, 0, numvar_, c.data()));
    std::vector<int32_t> sub(static_cast<size_t>(numvar_));
    for (int32_t j = 0; j < numvar_; ++j) sub[static_cast<size_t>(j)] = j;
    terms_ = 0;
    linear(sub, c, t_.ipar(QBR_IPAR_WRITE_LP_FULL_OBJ) != 0);
    double cfix = 0.0;
    QUBOR_TRY(QBR_getcfix(h_, &cfix));
    if (cfix != 0.0) {
      out_.put(cfix < 0 ? " - " : " + ");
      out_.put(number_text(std::fabs(cfix), digits_));
    }
    int64_t nz = 0;
    QUBOR_TRY(QBR_getnumqobjnz(h_, &nz));
    if (nz > 0) {
      std::vector<int32_t> qi(static_cast<size_t>(nz)), qj(static_cast<size_t>(nz));
      std::vector<double> qv(static_cast<size_t>(nz));
      int64_t got = 0;
      QUBOR_TRY(QBR_getqobj64(h_, nz, &got, qi.data(), qj.data(), qv.data()));
      quadratic(qi, qj, qv, true);
    }
    out_.put('\n');
    return QBR_RES_OK;
  }

  QBRrescode constraints() {
    out_.put("subject to\n");
    std::vector<int32_t> sub, qi, qj;
    std::vector<double> val, qv;
    for (int32_t i = 0; i < numcon_; ++i) {
      const size_t k = static_cast<size_t>(i);
      const int32_t bk = con_bk_[k];
      if (bk == QBR_BK_RA) {
        out_.printf("%s:: ", cons_[k].c_str());
        value(con_bl_[k]);
        out_.put(" <=");
      } else if (con_named_[k]) {
        out_.printf("%s: ", cons_[k].c_str());
      }
      int32_t nz = 0;
      QUBOR_TRY(QBR_getarownumnz(h_, i, &nz));
      sub.resize(static_cast<size_t>(nz));
      val.resize(static_cast<size_t>(nz));
      if (nz > 0) QUBOR_TRY(QBR_getarow(h_, i, &nz, sub.data(), val.data()));
      terms_ = 0;
      linear(sub, val, true);
      int64_t qnz = 0;
      QUBOR_TRY(QBR_getnumqconknz(h_, i, &qnz));
      qi.resize(static_cast<size_t>(qnz));
      qj.resize(static_cast<size_t>(qnz));
      qv.resize(static_cast<size_t>(qnz));
      if (qnz > 0) {
        int64_t got = 0;
        QUBOR_TRY(QBR_getqconk(h_, i, qnz, &got, qi.data(), qj.data(), qv.data()));
      }
      quadratic(qi, qj, qv, false);
      if (nz == 0 && qnz == 0) out_.put(" 0");
      switch (bk) {
        case QBR_BK_FX:
          out_.put(" = ");
          value(con_bl_[k]);
          break;
        case QBR_BK_LO:
          out_.put(" >= ");
          value(con_bl_[k]);
          break;
        case QBR_BK_FR:
          out_.put(" >= -infinity");
          break;
        default:  // UP, and the upper end of RA
          out_.put(" <= ");
          value(con_bu_[k]);
      }
      out_.put('\n');
    }
    return QBR_RES_OK;
  }

  QBRrescode bounds() {
    std::vector<int32_t> bk(static_cast<size_t>(numvar_));
    std::vector<double> bl(static_cast<size_t>(numvar_)), bu(static_cast<size_t>(numvar_));
    if (numvar_ > 0) QUBOR_TRY(QBR_getvarboundslice(h_, 0, numvar_, bk.data(), bl.data(), bu.data()));
    out_.put("bounds\n");
    for (int32_t j = 0; j < numvar_; ++j) {
      const size_t k = static_cast<size_t>(j);
      const std::string& name = vars_[k];
      switch (bk[k]) {
        case QBR_BK_LO:
          if (bl[k] == 0.0) break;
          out_.put(" ");
          value(bl[k]);
          out_.printf(" <= %s <= +infinity\n", name.c_str());
          break;
        case QBR_BK_FR:
          out_.printf(" %s free\n", name.c_str());
          break;
        case QBR_BK_UP:
          out_.printf(" -infinity <= %s <= ", name.c_str());
          value(bu[k]);
          out_.put('\n');
          break;
        default:  // FX, RA
          out_.put(" ");
          value(bl[k]);
          out_.printf(" <= %s <= ", name.c_str());
          value(bu[k]);
          out_.put('\n');
      }
    }
    return QBR_RES_OK;
  }

  QBRrescode generals() {
    bool header = false;
    for (int32_t j = 0; j < numvar_; ++j) {
      int32_t type = QBR_VAR_TYPE_CONT;
      QUBOR_TRY(QBR_getvartype(h_, j, &type));
      if (type != QBR_VAR_TYPE_INT) continue;
      if (!header) out_.put("general\n");
      header = true;
      out_.printf(" %s\n", vars_[static_cast<size_t>(j)].c_str());
    }
    return QBR_RES_OK;
  }

  Task& t_;
  QBRtask_t h_;
  TextWriter& out_;
  int digits_;
  int32_t per_line_;
  bool strict_, quoted_;
  int32_t numvar_ = 0, numcon_ = 0;
  int64_t terms_ = 0;
  std::vector<std::string> vars_, cons_;
  std::vector<char> con_named_;
  std::string obj_;
  std::vector<int32_t> con_bk_;
  std::vector<double> con_bl_, con_bu_;
};

}  // namespace

QBRrescode write_lp(Task& t, TextWriter& out) {
  LpWriter writer(t, out);
  return writer.run();
}

}  // namespace qubor::formats
