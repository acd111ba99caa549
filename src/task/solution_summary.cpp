// The solution summary of one item, printed on a stream when QBR_IPAR_LOG is on and the item
// is defined:
//   <title>
//     Problem status  : <text>
//     Solution status : <text>
//     Primal.  obj: <obj>  nrm: <largest primal norm>  Viol.  con: ..  var: ..  barvar: ..
//     Dual.    obj: <obj>  nrm: <largest dual norm>  Viol.  con: ..  var: ..  barvar: ..
// The primal line is left out for a primal certificate, the dual line for a dual certificate
// and for the integer item; each "Viol." field appears only when the task has items of its
// kind ("itg" only for the integer item of a task with integer variables).
#include "task/solution_summary.h"

#include <algorithm>
#include <initializer_list>
#include <string>

#include "task/solution_eval.h"
#include "task/tables.h"

namespace qubor::task {

namespace {

const char* title(int32_t which) {
  switch (which) {
    case QBR_SOL_ITR: return "Interior-point solution summary\n";
    case QBR_SOL_BAS: return "Basic solution summary\n";
    default: return "Integer solution solution summary\n";
  }
}

double largest(std::initializer_list<double> norms) {
  double m = 0.0;
  for (double v : norms) m = std::max(m, v);
  return m;
}

void viol_field(Task& t, int stream, bool present, const char* label, double v) {
  if (present) t.printf(stream, "  %s: %-7.0e", label, v);
}

}  // namespace

void one_solution_summary(Task& t, int stream, int32_t which) {
  const Solution& s = t.solutions[which];
  if (!t.log_on() || !s.defined) return;
  const Problem& p = t.problem;
  t.printf(stream, "%s", title(which));
  t.printf(stream, "  Problem status  : %-s\n", prosta_text(s.prosta).c_str());
  t.printf(stream, "  Solution status : %-s\n", solsta_text(s.solsta).c_str());
  const SolutionInfo info = solution_info(t, which);
  const PrimalNorms pn = primal_norms(s);
  const DualNorms dn = dual_norms(s);
  if (s.solsta != QBR_SOL_STA_PRIM_INFEAS_CER && s.solsta != QBR_SOL_STA_PRIM_ILLPOSED_CER) {
    t.printf(stream, "  %-7s  obj: %-18.10e  nrm: %-7.0e  Viol.", "Primal.", info.pobj, largest({pn.xc, pn.xx, pn.barx}));
    viol_field(t, stream, p.num_con > 0, "con", info.pviolcon);
    viol_field(t, stream, p.num_var > 0, "var", info.pviolvar);
    viol_field(t, stream, p.num_barvar > 0, "barvar", info.pviolbarvar);
    viol_field(t, stream, p.num_cone > 0, "cones", info.pviolcone);
    viol_field(t, stream, p.num_int_var > 0 && which == QBR_SOL_ITG, "itg", info.pviolitg);
    t.printf(stream, "\n");
  }
  if (which != QBR_SOL_ITG && s.solsta != QBR_SOL_STA_DUAL_INFEAS_CER && s.solsta != QBR_SOL_STA_DUAL_ILLPOSED_CER) {
    t.printf(stream, "  %-7s  obj: %-18.10e  nrm: %-7.0e  Viol.", "Dual.", info.dobj,
             largest({dn.y, dn.slc, dn.suc, dn.slx, dn.sux, dn.snx, dn.bars}));
    viol_field(t, stream, p.num_con > 0, "con", info.dviolcon);
    viol_field(t, stream, p.num_var > 0, "var", info.dviolvar);
    viol_field(t, stream, p.num_barvar > 0, "barvar", info.dviolbarvar);
    viol_field(t, stream, p.num_cone > 0, "cones", info.dviolcone);
    t.printf(stream, "\n");
  }
}

std::string solsta_text(int32_t solsta) {
  const char* s = enum_text(EnumGroup::SOLSTA, solsta);
  return s ? std::string(s) : "INVALID code(" + std::to_string(solsta) + ")";
}

std::string prosta_text(int32_t prosta) {
  const char* s = enum_text(EnumGroup::PROSTA, prosta);
  return s ? std::string(s) : "INVALID CODE(" + std::to_string(prosta) + ")";
}

}  // namespace qubor::task
