// The optimizer path of tasks with quadratic terms; see quadratic.h.
//
// The task is converted to conic form in place, solved by the conic optimizer and restored;
// the interior-point solution item keeps the entries of the task's own variables and
// constraints, with the activities of quadratic constraints recomputed from x.
#include <algorithm>
#include <cmath>
#include <utility>

#include "driver/conic_handover.h"
#include "driver/quadratic.h"
#include "task/problem_ops.h"
#include "task/solution_eval.h"

namespace qubor::driver {
namespace {

using task::Task;

double half_quad_form(const task::QMatrix& q, const task::Solution& s) {
  double v = 0.0;
  for (const task::QEntry& e : q) {
    const double p = e.v * s.xx[static_cast<size_t>(e.i)] * s.xx[static_cast<size_t>(e.j)];
    v += e.i == e.j ? 0.5 * p : p;
  }
  return v;
}

// Restores the task's problem when the run leaves, whatever the way out.
class ProblemGuard {
 public:
  explicit ProblemGuard(Task& t) : t_(t), saved_(t.mem) { saved_ = t.problem; }
  ~ProblemGuard() {
    t_.problem = saved_;
    task::after_change(t_);
  }
  ProblemGuard(const ProblemGuard&) = delete;
  ProblemGuard& operator=(const ProblemGuard&) = delete;

 private:
  Task& t_;
  task::Problem saved_;
};

// The conic form can stop at a point that passes its own test but whose x and y leave the
// quadratic task's constraints or optimality conditions violated well beyond the tolerances
// (a stall with a vanishing tau): such a point is not reported as optimal.
constexpr double kAcceptRel = 1e-5;

QBRrescode accept_solution(Task& t, QBRrescode r) {
  task::Solution& s = t.solutions[QBR_SOL_ITR];
  if (!s.defined || s.solsta != QBR_SOL_STA_OPTIMAL) return r;
  const task::SolutionInfo info = task::solution_info(t, QBR_SOL_ITR);
  const task::PrimalNorms pn = task::primal_norms(s);
  const task::DualNorms dn = task::dual_norms(s);
  const double pnorm = 1.0 + std::max(pn.xc, pn.xx);
  const double dnorm = 1.0 + std::max({dn.y, dn.slc, dn.suc, dn.slx, dn.sux});
  const double pviol = std::max(info.pviolcon, info.pviolvar) / pnorm;
  const double dviol = std::max(info.dviolcon, info.dviolvar) / dnorm;
  const double gap = std::fabs(info.pobj - info.dobj) / std::max(1.0, std::fabs(info.pobj));
  if (pviol <= kAcceptRel && dviol <= kAcceptRel && gap <= kAcceptRel) return r;
  if (t.log_on())
    t.printf(QBR_STREAM_LOG,
             "The solution does not satisfy the quadratic task within the tolerances (relative primal "
             "violation %.1e, dual violation %.1e, gap %.1e); its status is unknown.\n",
             pviol, dviol, gap);
  s.solsta = QBR_SOL_STA_UNKNOWN;
  s.prosta = QBR_PRO_STA_UNKNOWN;
  std::fill(s.skx.begin(), s.skx.end(), QBR_SK_UNK);
  std::fill(s.skc.begin(), s.skc.end(), QBR_SK_UNK);
  t.set_dinf(QBR_DINF_INTPNT_OPT_STATUS, 0.0);
  return r == QBR_RES_OK ? QBR_RES_TRM_STALL : r;
}

QBRrescode run_converted(Task& t) {
  std::vector<ConvertedTerm> terms;
  std::vector<double> t_value;
  QBRrescode r = QBR_RES_OK;
  {
    ProblemGuard guard(t);
    r = to_conic(t, &terms);
    if (r != QBR_RES_OK) return r;
    r = run_conic(t, true);
    const task::Solution& s = t.solutions[QBR_SOL_ITR];
    for (const ConvertedTerm& c : terms)
      t_value.push_back(s.defined ? s.xx[static_cast<size_t>(c.t_var)] : 0.0);
  }
  task::Solution& s = t.solutions[QBR_SOL_ITR];
  if (!s.defined) return r;
  for (size_t k = 0; k < terms.size(); ++k) {
    const int32_t row = terms[k].row;
    if (row < 0) continue;
    s.xc[static_cast<size_t>(row)] += half_quad_form(t.problem.qcon[static_cast<size_t>(row)], s) -
                                      terms[k].sigma * t_value[k];
  }
  return accept_solution(t, r);
}

}  // namespace

QBRrescode run_quadratic(Task& t) {
  QBR_CHECK_RC(check_convexity(t));
  return run_converted(t);
}

}  // namespace qubor::driver
