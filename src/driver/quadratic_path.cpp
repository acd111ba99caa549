// The optimizer path of tasks with quadratic terms; see quadratic.h.
//
// A quadratic objective under linear constraints goes to the homogeneous interior-point
// optimizer, which carries Q in its model. Quadratic constraints, and every quadratic task
// given to the conic optimizer, take the conversion: the task is converted to conic form in
// place, solved by the conic optimizer and restored; the interior-point solution item keeps
// the entries of the task's own variables and constraints, with the activities of quadratic
// constraints recomputed from x.
#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

#include "driver/conic_handover.h"
#include "driver/lp_handover.h"
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

// The conic form can stop at a point that passes its own test but whose values leave the
// quadratic task's constraints, optimality conditions or certificate conditions violated well
// beyond the tolerances (a stall with a vanishing tau): such a point is not reported as a
// solution or certificate.
constexpr double kAcceptRel = 1e-5;
// Certificates are held to the infeasibility tolerance's order: a task that is feasible
// without an interior (every constraint tight) has near-certificates at about 1e-7.
constexpr double kAcceptCertificateRel = 1e-8;

bool has_lower(int32_t bk) { return bk == QBR_BK_LO || bk == QBR_BK_FX || bk == QBR_BK_RA; }
bool has_upper(int32_t bk) { return bk == QBR_BK_UP || bk == QBR_BK_FX || bk == QBR_BK_RA; }

// Relative primal violation and relative gap between the primal and dual objectives of the
// quadratic task. The dual residual c + Q x - A'y - s itself is not tested: the conic form's
// dual carries F'lambda where the task has Q x = F'F x, and the two differ by the order of
// the square root of the final complementarity, far above the tolerances, even at accurate
// solutions; the gap shows a dual that is off by more.
double optimality_violation(const Task& t) {
  const task::Solution& s = t.solutions[QBR_SOL_ITR];
  const task::SolutionInfo info = task::solution_info(t, QBR_SOL_ITR);
  const task::PrimalNorms pn = task::primal_norms(s);
  const double pviol = std::max(info.pviolcon, info.pviolvar) / (1.0 + std::max(pn.xc, pn.xx));
  const double gap = std::fabs(info.pobj - info.dobj) / std::max(1.0, std::fabs(info.pobj));
  return std::max(pviol, gap);
}

// Relative violation of the Farkas conditions A'y + slx - sux = 0 and bound terms > 0 (in the
// minimization signs); only for tasks whose constraints are linear.
double farkas_violation(const Task& t, double sigma) {
  const task::Problem& p = t.problem;
  const task::Solution& s = t.solutions[QBR_SOL_ITR];
  const task::CompressedView a = p.a.csc();
  double viol = 0.0, obj = 0.0;
  for (int32_t j = 0; j < p.num_var; ++j) {
    const auto uj = static_cast<size_t>(j);
    double g = sigma * (s.slx[uj] - s.sux[uj]);
    for (int64_t q = a.ptr[j]; q < a.ptr[j + 1]; ++q)
      g += a.val[q] * sigma * (s.slc[static_cast<size_t>(a.idx[q])] - s.suc[static_cast<size_t>(a.idx[q])]);
    viol = std::max(viol, std::fabs(g));
    const int32_t bk = p.var_bounds.bk[uj];
    if (has_lower(bk)) obj += sigma * s.slx[uj] * p.var_bounds.bl[uj];
    if (has_upper(bk)) obj -= sigma * s.sux[uj] * p.var_bounds.bu[uj];
  }
  for (int32_t i = 0; i < p.num_con; ++i) {
    const auto ui = static_cast<size_t>(i);
    const int32_t bk = p.con_bounds.bk[ui];
    if (has_lower(bk)) obj += sigma * s.slc[ui] * p.con_bounds.bl[ui];
    if (has_upper(bk)) obj -= sigma * s.suc[ui] * p.con_bounds.bu[ui];
  }
  return obj > 0.0 ? viol / obj : 1.0;
}

// Relative violation of the ray conditions: c'x < 0, Q^o x = 0, A x and x in the recession
// cones of the bounds (x scaled to unit norm, violations against |c'x|).
double ray_violation(const Task& t, double sigma) {
  const task::Problem& p = t.problem;
  const task::Solution& s = t.solutions[QBR_SOL_ITR];
  double norm = 0.0, cx = 0.0;
  for (int32_t j = 0; j < p.num_var; ++j) norm = std::max(norm, std::fabs(s.xx[static_cast<size_t>(j)]));
  if (norm == 0.0) return 1.0;
  for (int32_t j = 0; j < p.num_var; ++j) cx += sigma * p.c[static_cast<size_t>(j)] * s.xx[static_cast<size_t>(j)] / norm;
  if (!(cx < 0.0)) return 1.0;
  double viol = 0.0;
  std::vector<double> ax(static_cast<size_t>(p.num_con), 0.0), qx(static_cast<size_t>(p.num_var), 0.0);
  const task::CompressedView a = p.a.csc();
  for (int32_t j = 0; j < p.num_var; ++j) {
    const double xj = s.xx[static_cast<size_t>(j)] / norm;
    for (int64_t q = a.ptr[j]; q < a.ptr[j + 1]; ++q) ax[static_cast<size_t>(a.idx[q])] += a.val[q] * xj;
    const int32_t bk = p.var_bounds.bk[static_cast<size_t>(j)];
    if (has_lower(bk)) viol = std::max(viol, -xj);
    if (has_upper(bk)) viol = std::max(viol, xj);
  }
  for (int32_t i = 0; i < p.num_con; ++i) {
    const int32_t bk = p.con_bounds.bk[static_cast<size_t>(i)];
    if (has_lower(bk)) viol = std::max(viol, -ax[static_cast<size_t>(i)]);
    if (has_upper(bk)) viol = std::max(viol, ax[static_cast<size_t>(i)]);
  }
  for (const task::QEntry& e : p.qobj) {
    qx[static_cast<size_t>(e.i)] += e.v * s.xx[static_cast<size_t>(e.j)] / norm;
    if (e.i != e.j) qx[static_cast<size_t>(e.j)] += e.v * s.xx[static_cast<size_t>(e.i)] / norm;
  }
  for (double v : qx) viol = std::max(viol, std::fabs(v));
  return viol / -cx;
}

QBRrescode accept_solution(Task& t, QBRrescode r) {
  task::Solution& s = t.solutions[QBR_SOL_ITR];
  if (!s.defined) return r;
  const double sigma = t.problem.obj_sense == QBR_OBJECTIVE_SENSE_MAXIMIZE ? -1.0 : 1.0;
  double viol = 0.0, limit = kAcceptCertificateRel;
  const char* what = "solution";
  if (s.solsta == QBR_SOL_STA_OPTIMAL) {
    viol = optimality_violation(t);
    limit = kAcceptRel;
  } else if (s.solsta == QBR_SOL_STA_PRIM_INFEAS_CER && !t.problem.has_qcon()) {
    viol = farkas_violation(t, sigma);
    what = "certificate of primal infeasibility";
  } else if (s.solsta == QBR_SOL_STA_DUAL_INFEAS_CER && !t.problem.has_qcon()) {
    viol = ray_violation(t, sigma);
    what = "certificate of dual infeasibility";
  }
  if (viol <= limit) return r;
  if (t.log_on())
    t.printf(QBR_STREAM_LOG,
             "The %s does not satisfy the quadratic task within the tolerances (relative violation %.1e); its "
             "status is unknown.\n",
             what, viol);
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
  if (!t.problem.has_qcon() && t.ipar(QBR_IPAR_OPTIMIZER) != QBR_OPTIMIZER_CONIC)
    return accept_solution(t, run_linear_intpnt(t));
  return run_converted(t);
}

}  // namespace qubor::driver
