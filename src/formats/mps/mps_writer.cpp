// The MPS writer. It reads the task through the public interface and writes, in order:
// NAME, OBJSENSE, ROWS, COLUMNS (with integer markers when QBR_IPAR_WRITE_MPS_INT is on),
// RHS, RANGES, BOUNDS, QUADOBJ, QSECTION per constraint with Q, CSECTION per cone, ENDATA.
//
// Representation choices:
// - constraint keys: FX -> E, LO -> G, UP -> L, RA -> G with range bu - bl; a free
//   constraint is an N row when QBR_IPAR_WRITE_FREE_CON is on, otherwise a G row with
//   right-hand side -1e+30 (read back as free), so the constraint keeps its place;
// - the objective constant is written as the negated RHS entry of the objective row;
// - every variable appears in COLUMNS (one with no entries gets an objective entry 0);
// - without integer markers, integer variables carry BV, LI and UI bound lines instead;
// - constraint Q goes into QSECTION blocks (one triangle, the task's 1/2 x'Qx convention);
// - numbers have QBR_IPAR_WRITE_PRECISION significant digits; in the strict layout a number
//   is shortened to its 12-column field.
// Names that the layout cannot hold (blanks in the free and CPLEX layouts, more than 8
// characters or blanks at the ends in the fixed layouts) fail with
// QBR_RES_ERR_WRITE_MPS_INVALID_NAME.
#include <cmath>
#include <string>
#include <vector>

#include "formats/frame/item_names.h"
#include "formats/frame/try.h"
#include "formats/mps/mps.h"
#include "task/report.h"
#include "task/tables.h"

namespace qubor::formats {

using task::Task;

namespace {

constexpr double kInf = 1.0e30;

class MpsWriter {
 public:
  MpsWriter(Task& t, TextWriter& out, int32_t layout)
      : t_(t), h_(t.handle), out_(out), layout_(layout), digits_(t.ipar(QBR_IPAR_WRITE_PRECISION)) {}

  QBRrescode run() {
    const bool generic = t_.ipar(QBR_IPAR_WRITE_GENERIC_NAMES) != 0;
    QUBOR_TRY(vars_.load(h_, ItemKind::kVariable, "x", generic));
    QUBOR_TRY(cons_.load(h_, ItemKind::kConstraint, "c", generic));
    QUBOR_TRY(cones_.load(h_, ItemKind::kCone, "k", generic));
    obj_ = objective_name(h_, "");
    if (obj_.empty()) obj_ = unused_objective_name();
    QUBOR_TRY(check_names());
    numvar_ = vars_.size();
    numcon_ = cons_.size();
    con_bk_.resize(static_cast<size_t>(numcon_));
    con_bl_.resize(static_cast<size_t>(numcon_));
    con_bu_.resize(static_cast<size_t>(numcon_));
    if (numcon_ > 0) {
      QUBOR_TRY(QBR_getconboundslice(h_, 0, numcon_, con_bk_.data(), con_bl_.data(), con_bu_.data()));
    }
    QUBOR_TRY(head());
    QUBOR_TRY(rows());
    QUBOR_TRY(columns());
    QUBOR_TRY(rhs_and_ranges());
    QUBOR_TRY(bounds());
    QUBOR_TRY(quadratic());
    QUBOR_TRY(cones());
    out_.put("ENDATA\n");
    return QBR_RES_OK;
  }

 private:
  bool fixed() const { return layout_ == QBR_MPS_FORMAT_STRICT || layout_ == QBR_MPS_FORMAT_RELAXED; }

  bool valid_name(const std::string& s) const {
    if (s.empty()) return false;
    if (fixed())
      return s.size() <= 8 && s.front() != ' ' && s.back() != ' ' && s.find('\t') == std::string::npos;
    return s.find_first_of(" \t") == std::string::npos;
  }

  // The refusal names the way out: the other layout when it holds the name, and generic
  // names always.
  QBRrescode invalid_name(const std::string& s) {
    const char* hint =
        fixed() ? (!s.empty() && s.find_first_of(" \t") == std::string::npos
                       ? "the free layout (QBR_IPAR_WRITE_MPS_FORMAT QBR_MPS_FORMAT_FREE) holds it, or "
                         "QBR_IPAR_WRITE_GENERIC_NAMES 1 writes generic names."
                       : "QBR_IPAR_WRITE_GENERIC_NAMES 1 writes generic names.")
                : (s.size() <= 8 && !s.empty() && s.front() != ' ' && s.back() != ' ' &&
                           s.find('\t') == std::string::npos
                       ? "names with blanks need the fixed layout (QBR_IPAR_WRITE_MPS_FORMAT "
                         "QBR_MPS_FORMAT_RELAXED), or QBR_IPAR_WRITE_GENERIC_NAMES 1 writes generic names."
                       : "QBR_IPAR_WRITE_GENERIC_NAMES 1 writes generic names instead.");
    return QBR_REPORT(t_, QBR_RES_ERR_WRITE_MPS_INVALID_NAME, s, hint);
  }

  QBRrescode check_names() {
    for (const ItemNames* names : {&vars_, &cons_, &cones_}) {
      for (int32_t i = 0; i < names->size(); ++i) {
        if (!valid_name((*names)[i])) return invalid_name((*names)[i]);
      }
    }
    if (!valid_name(obj_)) return invalid_name(obj_);
    return QBR_RES_OK;
  }

  std::string unused_objective_name() {
    NameTable used;
    for (int32_t i = 0; i < cons_.size(); ++i) used.insert(cons_[i]);
    std::string s = "obj";
    while (used.find(s) >= 0) s += '_';
    return s;
  }

  std::string num(double v) {
    if (layout_ != QBR_MPS_FORMAT_STRICT) return number_text(v, digits_);
    for (int d = digits_; d > 1; --d) {
      std::string s = number_text(v, d);
      if (s.size() <= 12) return s;
    }
    return number_text(v, 1);
  }

  // "    %-8s  %-8s  %-s\n"
  void entry(const std::string& a, const std::string& b, double v) {
    out_.put("    ");
    out_.padded(a, 8);
    out_.put("  ");
    out_.padded(b, 8);
    out_.put("  ");
    out_.put(num(v));
    out_.put('\n');
  }

  QBRrescode head() {
    int32_t major = 0, minor = 0, rev = 0;
    QBR_getversion(&major, &minor, &rev);
    out_.printf("%-14s %-s\n", "NAME", task_name(h_).c_str());
    out_.printf("* Written by QUBOR version %d.%d.%d\n", major, minor, rev);
    int32_t sense = QBR_OBJECTIVE_SENSE_MINIMIZE;
    QUBOR_TRY(QBR_getobjsense(h_, &sense));
    out_.put("OBJSENSE\n");
    out_.printf(sense == QBR_OBJECTIVE_SENSE_MAXIMIZE ? "%4sMAX\n" : "%4sMIN\n", "");
    return QBR_RES_OK;
  }

  char row_type(int32_t i) const {
    switch (con_bk_[static_cast<size_t>(i)]) {
      case QBR_BK_FX:
        return 'E';
      case QBR_BK_UP:
        return 'L';
      case QBR_BK_FR:
        return t_.ipar(QBR_IPAR_WRITE_FREE_CON) != 0 ? 'N' : 'G';
      default:  // LO, RA
        return 'G';
    }
  }

  QBRrescode rows() {
    out_.put("ROWS\n");
    out_.printf(" N  %-s\n", obj_.c_str());
    for (int32_t i = 0; i < numcon_; ++i) out_.printf(" %c  %-8s\n", row_type(i), cons_[i].c_str());
    return QBR_RES_OK;
  }

  void marker(const char* word) {
    out_.printf("%4s%-8d  %-8s  %-12s   %s\n", "", ++markers_, "'MARKER'", "", word);
  }

  QBRrescode columns() {
    out_.put("COLUMNS\n");
    const bool markers = t_.ipar(QBR_IPAR_WRITE_MPS_INT) != 0;
    std::vector<double> c(static_cast<size_t>(numvar_));
    if (numvar_ > 0) QUBOR_TRY(QBR_getcslice(h_, 0, numvar_, c.data()));
    is_int_.assign(static_cast<size_t>(numvar_), 0);
    std::vector<int32_t> sub;
    std::vector<double> val;
    bool in_block = false;
    for (int32_t j = 0; j < numvar_; ++j) {
      int32_t type = QBR_VAR_TYPE_CONT;
      QUBOR_TRY(QBR_getvartype(h_, j, &type));
      is_int_[static_cast<size_t>(j)] = type == QBR_VAR_TYPE_INT;
      if (markers && is_int_[static_cast<size_t>(j)] != in_block) {
        in_block = !in_block;
        marker(in_block ? "'INTORG'" : "'INTEND'");
      }
      int32_t nz = 0;
      QUBOR_TRY(QBR_getacolnumnz(h_, j, &nz));
      sub.resize(static_cast<size_t>(nz));
      val.resize(static_cast<size_t>(nz));
      if (nz > 0) QUBOR_TRY(QBR_getacol(h_, j, &nz, sub.data(), val.data()));
      if (c[static_cast<size_t>(j)] != 0.0 || nz == 0) entry(vars_[j], obj_, c[static_cast<size_t>(j)]);
      for (int32_t k = 0; k < nz; ++k)
        entry(vars_[j], cons_[sub[static_cast<size_t>(k)]], val[static_cast<size_t>(k)]);
    }
    if (in_block) marker("'INTEND'");
    return QBR_RES_OK;
  }

  QBRrescode rhs_and_ranges() {
    out_.put("RHS\n");
    double cfix = 0.0;
    QUBOR_TRY(QBR_getcfix(h_, &cfix));
    if (cfix != 0.0) entry("rhs", obj_, -cfix);
    for (int32_t i = 0; i < numcon_; ++i) {
      const size_t k = static_cast<size_t>(i);
      double rhs = 0.0;
      switch (con_bk_[k]) {
        case QBR_BK_UP:
          rhs = con_bu_[k];
          break;
        case QBR_BK_FR:
          rhs = row_type(i) == 'N' ? 0.0 : -kInf;
          break;
        default:
          rhs = con_bl_[k];
      }
      if (rhs != 0.0) entry("rhs", cons_[i], rhs);
    }
    bool header = false;
    for (int32_t i = 0; i < numcon_; ++i) {
      const size_t k = static_cast<size_t>(i);
      if (con_bk_[k] != QBR_BK_RA) continue;
      if (!header) out_.put("RANGES\n");
      header = true;
      entry("ran", cons_[i], con_bu_[k] - con_bl_[k]);
    }
    return QBR_RES_OK;
  }

  void bound_line(const char* key, const std::string& var, const double* v) {
    out_.printf(" %s ", key);
    out_.padded("bound", 8);
    out_.put("  ");
    if (v) {
      out_.padded(var, 8);
      out_.put("  ");
      out_.put(*v == 0.0 ? std::string("0.0") : num(*v));
    } else {
      out_.put(var);
    }
    out_.put('\n');
  }

  QBRrescode bounds() {
    const bool markers = t_.ipar(QBR_IPAR_WRITE_MPS_INT) != 0;
    std::vector<int32_t> bk(static_cast<size_t>(numvar_));
    std::vector<double> bl(static_cast<size_t>(numvar_)), bu(static_cast<size_t>(numvar_));
    if (numvar_ > 0) QUBOR_TRY(QBR_getvarboundslice(h_, 0, numvar_, bk.data(), bl.data(), bu.data()));
    bool header = false;
    for (int32_t j = 0; j < numvar_; ++j) {
      const size_t k = static_cast<size_t>(j);
      const bool as_int = !markers && is_int_[k];
      const bool has_lo = bk[k] == QBR_BK_LO || bk[k] == QBR_BK_RA || bk[k] == QBR_BK_FX;
      const bool has_up = bk[k] == QBR_BK_UP || bk[k] == QBR_BK_RA || bk[k] == QBR_BK_FX;
      if (bk[k] == QBR_BK_LO && bl[k] == 0.0 && !as_int) continue;  // the default bounds
      if (!header) out_.put("BOUNDS\n");
      header = true;
      const std::string& name = vars_[j];
      if (as_int && has_lo && has_up && bl[k] == 0.0 && bu[k] == 1.0) {
        bound_line("BV", name, nullptr);
      } else if (bk[k] == QBR_BK_FX && !as_int) {
        bound_line("FX", name, &bl[k]);
      } else if (bk[k] == QBR_BK_FR) {
        bound_line("FR", name, nullptr);
        if (as_int) bound_line("UI", name, &kUnbounded);
      } else {
        // A zero lower bound is written when a negative upper bound would otherwise move it.
        if (!has_lo) {
          bound_line("MI", name, nullptr);
        } else if (bl[k] != 0.0 || as_int || (has_up && bu[k] < 0.0)) {
          bound_line(as_int ? "LI" : "LO", name, &bl[k]);
        }
        if (has_up) bound_line(as_int ? "UI" : "UP", name, &bu[k]);
      }
    }
    return QBR_RES_OK;
  }

  QBRrescode quadratic() {
    int64_t nz = 0;
    QUBOR_TRY(QBR_getnumqobjnz(h_, &nz));
    std::vector<int32_t> qi, qj;
    std::vector<double> qv;
    if (nz > 0) {
      qi.resize(static_cast<size_t>(nz));
      qj.resize(static_cast<size_t>(nz));
      qv.resize(static_cast<size_t>(nz));
      int64_t got = 0;
      QUBOR_TRY(QBR_getqobj64(h_, nz, &got, qi.data(), qj.data(), qv.data()));
      out_.printf("%-14s\n", "QUADOBJ");
      for (int64_t k = 0; k < got; ++k) {
        const size_t s = static_cast<size_t>(k);
        entry(vars_[qi[s]], vars_[qj[s]], qv[s]);
      }
    }
    for (int32_t i = 0; i < numcon_; ++i) {
      QUBOR_TRY(QBR_getnumqconknz(h_, i, &nz));
      if (nz == 0) continue;
      qi.resize(static_cast<size_t>(nz));
      qj.resize(static_cast<size_t>(nz));
      qv.resize(static_cast<size_t>(nz));
      int64_t got = 0;
      QUBOR_TRY(QBR_getqconk(h_, i, nz, &got, qi.data(), qj.data(), qv.data()));
      out_.printf("%-14s%-8s\n", "QSECTION", cons_[i].c_str());
      for (int64_t k = 0; k < got; ++k) {
        const size_t s = static_cast<size_t>(k);
        entry(vars_[qi[s]], vars_[qj[s]], qv[s]);
      }
    }
    return QBR_RES_OK;
  }

  QBRrescode cones() {
    std::vector<int32_t> members;
    for (int32_t k = 0; k < cones_.size(); ++k) {
      int32_t ct = 0, nummem = 0;
      double par = 0.0;
      QUBOR_TRY(QBR_getconeinfo(h_, k, &ct, &par, &nummem));
      members.resize(static_cast<size_t>(nummem));
      QUBOR_TRY(QBR_getcone(h_, k, &ct, &par, &nummem, members.data()));
      out_.printf("%-14s%-8s", "CSECTION", cones_[k].c_str());
      const char* word = task::enum_text(task::EnumGroup::CONETYPE, ct);
      out_.printf("  %-12s   %s\n", num(par).c_str(), word ? word : "");
      for (int32_t m : members) out_.printf("    %-8s\n", vars_[m].c_str());
    }
    return QBR_RES_OK;
  }

  static constexpr double kUnbounded = kInf;

  Task& t_;
  QBRtask_t h_;
  TextWriter& out_;
  int32_t layout_;
  int digits_;
  ItemNames vars_, cons_, cones_;
  std::string obj_;
  int32_t numvar_ = 0, numcon_ = 0;
  int32_t markers_ = 0;
  std::vector<int32_t> con_bk_;
  std::vector<double> con_bl_, con_bu_;
  std::vector<char> is_int_;
};

}  // namespace

QBRrescode write_mps(Task& t, TextWriter& out, int32_t layout) {
  MpsWriter writer(t, out, layout);
  return writer.run();
}

}  // namespace qubor::formats
