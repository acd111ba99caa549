// Presolve around the linear interior-point optimizer; see lp_presolve.h.
#include "driver/lp_presolve.h"

#include <utility>

#include "interior/standard_form.h"
#include "platform/prefaulted_buffer.h"
#include "presolve/presolve.h"

namespace qubor::driver {

presolve::PresolveOptions presolve_options(const task::Task& t) {
  presolve::PresolveOptions o;
  o.use = t.ipar(QBR_IPAR_PRESOLVE_USE);
  o.max_num_pass = t.ipar(QBR_IPAR_PRESOLVE_MAX_NUM_PASS);
  o.max_num_reductions = t.ipar(QBR_IPAR_PRESOLVE_MAX_NUM_REDUCTIONS);
  o.lindep_use = t.ipar(QBR_IPAR_PRESOLVE_LINDEP_USE) != 0;
  o.lindep_abs_work_trh = t.ipar(QBR_IPAR_PRESOLVE_LINDEP_ABS_WORK_TRH);
  o.lindep_rel_work_trh = t.ipar(QBR_IPAR_PRESOLVE_LINDEP_REL_WORK_TRH);
  o.tol_abs_lindep = t.dpar(QBR_DPAR_PRESOLVE_TOL_ABS_LINDEP);
  o.tol_rel_lindep = t.dpar(QBR_DPAR_PRESOLVE_TOL_REL_LINDEP);
  o.eliminator_max_fill = t.ipar(QBR_IPAR_PRESOLVE_ELIMINATOR_MAX_FILL);
  o.eliminator_max_num_tries = t.ipar(QBR_IPAR_PRESOLVE_ELIMINATOR_MAX_NUM_TRIES);
  o.tol_x = t.dpar(QBR_DPAR_PRESOLVE_TOL_X);
  o.tol_s = t.dpar(QBR_DPAR_PRESOLVE_TOL_S);
  o.tol_aij = t.dpar(QBR_DPAR_PRESOLVE_TOL_AIJ);
  return o;
}

void to_presolve_form(const interior::LpProblem& lp, presolve::LpProblem& p) {
  p.n = lp.num_col;
  p.m = lp.num_row;
  platform::copy_prefaulted(p.colptr, lp.col_ptr.begin(), lp.col_ptr.end());
  platform::copy_prefaulted(p.rowind, lp.row_idx.begin(), lp.row_idx.end());
  platform::copy_prefaulted(p.val, lp.values.begin(), lp.values.end());
  platform::copy_prefaulted(p.c, lp.c.begin(), lp.c.end());
  p.c0 = lp.cfix;
  platform::copy_prefaulted(p.l, lp.col_lo.begin(), lp.col_lo.end());
  platform::copy_prefaulted(p.u, lp.col_up.begin(), lp.col_up.end());
  platform::copy_prefaulted(p.rl, lp.row_lo.begin(), lp.row_lo.end());
  platform::copy_prefaulted(p.ru, lp.row_up.begin(), lp.row_up.end());
}

void to_interior_form(const presolve::LpProblem& p, interior::LpProblem& lp) {
  lp.num_col = p.n;
  lp.num_row = p.m;
  platform::copy_prefaulted(lp.col_ptr, p.colptr.begin(), p.colptr.end());
  platform::copy_prefaulted(lp.row_idx, p.rowind.begin(), p.rowind.end());
  platform::copy_prefaulted(lp.values, p.val.begin(), p.val.end());
  platform::copy_prefaulted(lp.c, p.c.begin(), p.c.end());
  lp.cfix = p.c0;
  platform::copy_prefaulted(lp.col_lo, p.l.begin(), p.l.end());
  platform::copy_prefaulted(lp.col_up, p.u.begin(), p.u.end());
  platform::copy_prefaulted(lp.row_lo, p.rl.begin(), p.rl.end());
  platform::copy_prefaulted(lp.row_up, p.ru.begin(), p.ru.end());
}

namespace {

// The part of the reduced run's solution that postsolve reads (x, y and the bound duals);
// status keys are left empty for postsolve to derive.
void to_reduced_solution(const interior::IpResult& r, presolve::LpSolution& s) {
  platform::copy_prefaulted(s.xx, r.x.begin(), r.x.end());
  platform::copy_prefaulted(s.y, r.y.begin(), r.y.end());
  platform::copy_prefaulted(s.slx, r.slx.begin(), r.slx.end());
  platform::copy_prefaulted(s.sux, r.sux.begin(), r.sux.end());
}

void from_solution(const presolve::LpSolution& s, interior::IpResult& r) {
  platform::copy_prefaulted(r.x, s.xx.begin(), s.xx.end());
  platform::copy_prefaulted(r.xc, s.xc.begin(), s.xc.end());
  platform::copy_prefaulted(r.y, s.y.begin(), s.y.end());
  platform::copy_prefaulted(r.slx, s.slx.begin(), s.slx.end());
  platform::copy_prefaulted(r.sux, s.sux.begin(), s.sux.end());
  platform::copy_prefaulted(r.slc, s.slc.begin(), s.slc.end());
  platform::copy_prefaulted(r.suc, s.suc.begin(), s.suc.end());
}

bool is_certificate(interior::SolutionStatus s) {
  using S = interior::SolutionStatus;
  return s == S::kPrimalInfeasibleCertificate || s == S::kDualInfeasibleCertificate ||
         s == S::kNearPrimalInfeasibleCertificate || s == S::kNearDualInfeasibleCertificate;
}

}  // namespace

void store_presolve_information(task::Task& t, const presolve::PresolveStats& s) {
  t.set_dinf(QBR_DINF_PRESOLVE_TIME, s.time);
  t.set_dinf(QBR_DINF_PRESOLVE_ELI_TIME, s.eli_time);
  t.set_dinf(QBR_DINF_PRESOLVE_LINDEP_TIME, s.lindep_time);
}

std::optional<presolve::PresolveResult> run_presolve(task::Task& t, const interior::LpProblem& lp,
                                                     const linalg::LogSink& log, linalg::LogSink& sink) {
  const presolve::PresolveOptions po = presolve_options(t);
  if (po.use == QBR_PRESOLVE_MODE_OFF) return std::nullopt;
  sink = log;
  sink.level = t.log_on() ? t.ipar(QBR_IPAR_LOG_PRESOLVE) : 0;
  presolve::LpProblem original;
  to_presolve_form(lp, original);
  t.progress(QBR_CALLBACK_BEGIN_PRESOLVE);
  std::optional<presolve::PresolveResult> pr(presolve::presolve(std::move(original), po, &sink));
  t.progress(QBR_CALLBACK_END_PRESOLVE);
  store_presolve_information(t, pr->stats);
  return pr;
}

bool solve_presolved(task::Task& t, const interior::LpProblem& lp, const interior::IpOptions& opt,
                     interior::IpResult& r) {
  linalg::LogSink sink;
  std::optional<presolve::PresolveResult> presolved = run_presolve(t, lp, opt.log, sink);
  if (!presolved) return false;
  presolve::PresolveResult& pr = *presolved;
  if (pr.status == presolve::PresolveStatus::kPrimalInfeasible ||
      pr.status == presolve::PresolveStatus::kDualInfeasible) {
    linalg::log_printf(&sink, 1, "Presolve found the problem infeasible; the optimizer builds the "
                                 "certificate on the original problem.\n");
    return false;
  }

  presolve::LpSolution reduced_solution;
  if (pr.status == presolve::PresolveStatus::kSolved) {
    r = interior::IpResult();
    r.num_threads = opt.num_threads;
    r.problem_status = interior::ProblemStatus::kPrimalDualFeasible;
    r.solution_status = interior::SolutionStatus::kOptimal;
    reduced_solution.resize(0, 0);
  } else {
    interior::LpProblem reduced;
    to_interior_form(pr.reduced, reduced);
    linalg::log_printf(&opt.log, 1, "%-9s - %-22s : %-10d  %-22s : %d\n", "Optimizer",
                       "presolved constraints", reduced.num_row, "presolved variables",
                       reduced.num_col);
    interior::solve_lp(reduced, opt, r);
    if (is_certificate(r.solution_status)) {
      linalg::log_printf(&opt.log, 1, "The presolved problem is infeasible; the optimizer builds "
                                      "the certificate on the original problem.\n");
      return false;
    }
    if (r.solution_status == interior::SolutionStatus::kUnknown &&
        (r.termination == interior::Termination::kStalled ||
         r.termination == interior::Termination::kNumericalInstability)) {
      linalg::log_printf(&opt.log, 1, "The presolved problem ended without a status; the "
                                      "optimizer solves the original problem.\n");
      return false;
    }
    if (r.termination == interior::Termination::kOutOfSpace ||
        r.termination == interior::Termination::kModelError)
      return true;
    to_reduced_solution(r, reduced_solution);
  }
  from_solution(pr.postsolve(reduced_solution), r);
  r.primal_obj = interior::primal_objective(lp, r, true);
  r.dual_obj = interior::dual_objective(lp, r, true);
  return true;
}

}  // namespace qubor::driver
