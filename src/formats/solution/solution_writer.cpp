// The solution file writer: a fixed-column report of one solution, read from the task
// through the public interface.
//
// Blocks: head (QBR_IPAR_WRITE_SOL_HEAD), CONSTRAINTS (QBR_IPAR_WRITE_SOL_CONSTRAINTS),
// VARIABLES (QBR_IPAR_WRITE_SOL_VARIABLES), SYMMETRIC MATRIX VARIABLES
// (QBR_IPAR_WRITE_SOL_BARVARIABLES). Activities and duals have 14 digits after the point,
// limits and objective values 8, matrix-variable entries 12. The status-key column is headed
// "AT" and holds the two-letter key texts of the status-key table; the element columns of the
// matrix block are headed "I" and "J". Duals are written for the interior-point and basic
// solutions, the conic dual column when the task has cones.
//
// Row filters (when set): QBR_IPAR_SOL_FILTER_KEEP_BASIC keeps only items with status key
// BS; QBR_IPAR_SOL_FILTER_KEEP_RANGED keeps only ranged constraints; the string parameters
// QBR_SPAR_SOL_FILTER_XC_LOW / _XC_UPR / _XX_LOW / _XX_UPR, when they hold a number, keep
// only rows whose activity is at least LOW / at most UPR.
#include <algorithm>
#include <charconv>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "formats/formats.h"
#include "formats/frame/file_name.h"
#include "formats/frame/item_names.h"
#include "formats/frame/text_writer.h"
#include "formats/frame/try.h"
#include "formats/solution/solution_file.h"
#include "platform/text.h"
#include "task/report.h"
#include "task/tables.h"

namespace qubor::formats {

using task::Task;

namespace {

constexpr double kInf = 1.0e30;

struct Solution {
  int32_t prosta = 0, solsta = 0;
  std::vector<int32_t> skc, skx, skn;
  std::vector<double> xc, xx, y, slc, suc, slx, sux, snx;
};

// A number from a filter parameter; false when the parameter is empty or not a number.
bool filter_value(const std::pmr::string& s, double* v) {
  if (s.empty()) return false;
  auto r = std::from_chars(s.data(), s.data() + s.size(), *v);
  return r.ec == std::errc();
}

class SolutionWriter {
 public:
  SolutionWriter(Task& t, TextWriter& out, int32_t whichsol)
      : t_(t), h_(t.handle), out_(out), whichsol_(whichsol) {}

  QBRrescode run() {
    QUBOR_TRY(QBR_getnumvar(h_, &numvar_));
    QUBOR_TRY(QBR_getnumcon(h_, &numcon_));
    QUBOR_TRY(QBR_getnumcone(h_, &numcone_));
    QUBOR_TRY(QBR_getnumbarvar(h_, &numbarvar_));
    QUBOR_TRY(read_solution());
    duals_ = whichsol_ != QBR_SOL_ITG;
    if (t_.ipar(QBR_IPAR_WRITE_SOL_HEAD)) QUBOR_TRY(head());
    if (t_.ipar(QBR_IPAR_WRITE_SOL_CONSTRAINTS)) QUBOR_TRY(block(false));
    if (t_.ipar(QBR_IPAR_WRITE_SOL_VARIABLES)) QUBOR_TRY(block(true));
    if (t_.ipar(QBR_IPAR_WRITE_SOL_BARVARIABLES) && numbarvar_ > 0) QUBOR_TRY(barvars());
    return QBR_RES_OK;
  }

 private:
  QBRrescode read_solution() {
    auto size = [](std::vector<int32_t>& v, int32_t n) { v.assign(static_cast<size_t>(n), 0); };
    auto sized = [](std::vector<double>& v, int32_t n) { v.assign(static_cast<size_t>(n), 0.0); };
    size(s_.skc, numcon_);
    size(s_.skx, numvar_);
    size(s_.skn, numcone_);
    for (auto* v : {&s_.xc, &s_.y, &s_.slc, &s_.suc}) sized(*v, numcon_);
    for (auto* v : {&s_.xx, &s_.slx, &s_.sux, &s_.snx}) sized(*v, numvar_);
    return QBR_getsolution(h_, whichsol_, &s_.prosta, &s_.solsta, s_.skc.data(), s_.skx.data(), s_.skn.data(),
                           s_.xc.data(), s_.xx.data(), s_.y.data(), s_.slc.data(), s_.suc.data(),
                           s_.slx.data(), s_.sux.data(), s_.snx.data());
  }

  QBRrescode head() {
    double pobj = 0.0, dobj = 0.0;
    QUBOR_TRY(QBR_getprimalobj(h_, whichsol_, &pobj));
    if (duals_) QUBOR_TRY(QBR_getdualobj(h_, whichsol_, &dobj));
    const char* prosta = task::enum_text(task::EnumGroup::PROSTA, s_.prosta);
    const char* solsta = task::enum_text(task::EnumGroup::SOLSTA, s_.solsta);
    out_.printf("%-20s: %s\n", "NAME", task_name(h_).c_str());
    out_.printf("%-20s: %s\n", "PROBLEM STATUS", prosta ? prosta : "");
    out_.printf("%-20s: %s\n", "SOLUTION STATUS", solsta ? solsta : "");
    out_.printf("%-20s: %-s\n", "OBJECTIVE NAME", objective_name(h_, "").c_str());
    out_.printf("%-20s: %-18.8e\n", "PRIMAL OBJECTIVE", pobj);
    out_.printf("%-20s: %-18.8e\n", "DUAL OBJECTIVE", dobj);
    return QBR_RES_OK;
  }

  bool keep(bool vars, int32_t k, int32_t bk, double activity) const {
    const int32_t sk = vars ? s_.skx[static_cast<size_t>(k)] : s_.skc[static_cast<size_t>(k)];
    if (t_.ipar(QBR_IPAR_SOL_FILTER_KEEP_BASIC) && sk != QBR_SK_BAS) return false;
    if (!vars && t_.ipar(QBR_IPAR_SOL_FILTER_KEEP_RANGED) && bk != QBR_BK_RA) return false;
    double lim;
    if (filter_value(t_.spar(vars ? QBR_SPAR_SOL_FILTER_XX_LOW : QBR_SPAR_SOL_FILTER_XC_LOW), &lim) &&
        activity < lim) {
      return false;
    }
    if (filter_value(t_.spar(vars ? QBR_SPAR_SOL_FILTER_XX_UPR : QBR_SPAR_SOL_FILTER_XC_UPR), &lim) &&
        activity > lim) {
      return false;
    }
    return true;
  }

  void limit(double v, bool present) {
    if (present && v > -kInf && v < kInf) {
      out_.printf(" %-18.8e", v);
    } else {
      out_.printf(" %-18s", "NONE");
    }
  }

  QBRrescode block(bool vars) {
    const int32_t n = vars ? numvar_ : numcon_;
    ItemNames names;
    QUBOR_TRY(names.load(h_, vars ? ItemKind::kVariable : ItemKind::kConstraint, vars ? "x" : "c", false));
    std::vector<int32_t> bk(static_cast<size_t>(n));
    std::vector<double> bl(static_cast<size_t>(n)), bu(static_cast<size_t>(n));
    if (n > 0) {
      QUBOR_TRY(vars ? QBR_getvarboundslice(h_, 0, n, bk.data(), bl.data(), bu.data())
                     : QBR_getconboundslice(h_, 0, n, bk.data(), bl.data(), bu.data()));
    }
    int width = 4;
    for (int32_t k = 0; k < n; ++k) width = std::max(width, static_cast<int>(names[k].size()));
    const bool conic = vars && duals_ && whichsol_ == QBR_SOL_ITR && numcone_ > 0;
    out_.put(vars ? "\nVARIABLES\n" : "\nCONSTRAINTS\n");
    out_.printf("%-10s %-*s %-2s %-24s %-18s %-18s", "INDEX", width, "NAME", "AT", "ACTIVITY", "LOWER LIMIT",
                "UPPER LIMIT");
    if (duals_) out_.printf(" %-24s %-24s", "DUAL LOWER", "DUAL UPPER");
    if (conic) out_.printf(" %-24s", "DUAL CONIC");
    out_.put('\n');
    const std::vector<int32_t>& sk = vars ? s_.skx : s_.skc;
    const std::vector<double>& x = vars ? s_.xx : s_.xc;
    const std::vector<double>& sl = vars ? s_.slx : s_.slc;
    const std::vector<double>& su = vars ? s_.sux : s_.suc;
    for (int32_t k = 0; k < n; ++k) {
      const size_t i = static_cast<size_t>(k);
      if (!keep(vars, k, bk[i], x[i])) continue;
      const char* key = task::enum_text(task::EnumGroup::STAKEY, sk[i]);
      out_.printf("%-10d %-*s %-2s %-24.14e", k, width, names[k].c_str(), key ? key : "UN", x[i]);
      limit(bl[i], bk[i] == QBR_BK_LO || bk[i] == QBR_BK_FX || bk[i] == QBR_BK_RA);
      limit(bu[i], bk[i] == QBR_BK_UP || bk[i] == QBR_BK_FX || bk[i] == QBR_BK_RA);
      if (duals_) out_.printf(" %-24.14e %-24.14e", sl[i], su[i]);
      if (conic) out_.printf(" %-24.14e", s_.snx[i]);
      out_.put('\n');
    }
    return QBR_RES_OK;
  }

  std::string barvar_name(int32_t j) {
    int32_t len = 0;
    if (QBR_getbarvarnamelen(h_, j, &len) != QBR_RES_OK || len == 0) {
      std::string generated("X");
      generated += std::to_string(j + 1);
      return generated;
    }
    std::string s(static_cast<size_t>(len) + 1, '\0');
    QBR_getbarvarname(h_, j, len + 1, s.data());
    s.resize(static_cast<size_t>(len));
    return s;
  }

  QBRrescode barvars() {
    std::vector<std::string> names(static_cast<size_t>(numbarvar_));
    int width = 4;
    for (int32_t j = 0; j < numbarvar_; ++j) {
      names[static_cast<size_t>(j)] = barvar_name(j);
      width = std::max(width, static_cast<int>(names[static_cast<size_t>(j)].size()));
    }
    out_.put("\nSYMMETRIC MATRIX VARIABLES\n");
    out_.printf("%-10s %-*s %-9s %-9s %-24s %-24s\n", "INDEX", width, "NAME", "I", "J", "PRIMAL", "DUAL");
    long long running = 0;
    std::vector<double> barx, bars;
    for (int32_t j = 0; j < numbarvar_; ++j) {
      int32_t dim = 0;
      int64_t len = 0;
      QUBOR_TRY(QBR_getdimbarvarj(h_, j, &dim));
      QUBOR_TRY(QBR_getlenbarvarj(h_, j, &len));
      barx.assign(static_cast<size_t>(len), 0.0);
      bars.assign(static_cast<size_t>(len), 0.0);
      QUBOR_TRY(QBR_getbarxj(h_, whichsol_, j, barx.data()));
      if (duals_) QUBOR_TRY(QBR_getbarsj(h_, whichsol_, j, bars.data()));
      // Lower triangle, column by column.
      size_t e = 0;
      for (int32_t c = 0; c < dim; ++c) {
        for (int32_t r = c; r < dim; ++r, ++e) {
          out_.printf("%-10lld %-*s %-9d %-9d %-24.12e %-24.12e\n", running++, width,
                      names[static_cast<size_t>(j)].c_str(), r, c, barx[e], bars[e]);
        }
      }
    }
    return QBR_RES_OK;
  }

  Task& t_;
  QBRtask_t h_;
  TextWriter& out_;
  int32_t whichsol_;
  int32_t numvar_ = 0, numcon_ = 0, numcone_ = 0, numbarvar_ = 0;
  bool duals_ = true;
  Solution s_;
};

int32_t name_param(int32_t whichsol) {
  switch (whichsol) {
    case QBR_SOL_BAS:
      return QBR_SPAR_BAS_SOL_FILE_NAME;
    case QBR_SOL_ITG:
      return QBR_SPAR_INT_SOL_FILE_NAME;
    default:
      return QBR_SPAR_ITR_SOL_FILE_NAME;
  }
}

}  // namespace

std::string solution_file_name(Task& t, int32_t whichsol, const char* filename) {
  return filename ? std::string(filename) : std::string(t.spar(name_param(whichsol)));
}

QBRrescode write_solution(Task& t, int32_t whichsol, const char* filename) {
  const std::string name = solution_file_name(t, whichsol, filename);
  if (name.empty()) {
    return QBR_REPORT(t, QBR_RES_WRN_UNDEF_SOL_FILE_NAME,
                      task::enum_text(task::EnumGroup::SOLTYPE, whichsol));
  }
  return write_file(t, name, compression_of(file_kind(name).compress), [&](TextWriter& w) {
    SolutionWriter writer(t, w, whichsol);
    return writer.run();
  });
}

}  // namespace qubor::formats
