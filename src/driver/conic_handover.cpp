// Conic hand-over; see conic_handover.h.
#include "driver/conic_handover.h"

#include <cmath>

#include "conic/conic_solver.h"
#include "driver/lp_handover.h"
#include "driver/status_map.h"
#include "task/problem_ops.h"
#include "task/report.h"

namespace qubor::driver {
namespace {

void snapshot_conic(const task::Task& t, conic::ConicProblem& p) {
  snapshot_lp(t, p.lp);
  const task::Problem& pr = t.problem;
  const double sigma = pr.obj_sense == QBR_OBJECTIVE_SENSE_MAXIMIZE ? -1.0 : 1.0;
  p.cone_ptr.assign(1, 0);
  for (const task::Cone& c : pr.cones.cones) {
    p.cone_type.push_back(c.type);
    p.cone_par.push_back(c.par);
    for (int64_t q = c.start; q < c.start + c.n; ++q) p.cone_mem.push_back(pr.cones.members[static_cast<size_t>(q)]);
    p.cone_ptr.push_back(static_cast<int64_t>(p.cone_mem.size()));
  }
  p.bar_dim.assign(pr.barvar_dim.begin(), pr.barvar_dim.end());
  for (bool objective : {true, false}) {
    const int64_t num = task::bar_block_triplet_count(t, objective);
    std::vector<int32_t> subi(static_cast<size_t>(num)), subj(static_cast<size_t>(num)), subk(static_cast<size_t>(num)),
        subl(static_cast<size_t>(num));
    std::vector<double> val(static_cast<size_t>(num));
    task::bar_block_triplets(t, objective, objective ? nullptr : subi.data(), subj.data(), subk.data(), subl.data(),
                             val.data());
    for (size_t q = 0; q < static_cast<size_t>(num); ++q) {
      conic::BarEntry e;
      e.row = objective ? -1 : subi[q];
      e.bar = subj[q];
      e.r = subk[q];
      e.c = subl[q];
      e.v = objective ? sigma * val[q] : val[q];
      p.bar.push_back(e);
    }
  }
}

void store_solution(task::Task& t, const conic::ConicProblem& p, const conic::ConicResult& r) {
  const conic::ConicSolution& c = r.sol;
  task::Solution& s = store_intpnt_solution(
      t, p.lp, r.problem_status, r.solution_status,
      {c.xx.data(), c.xc.data(), c.y.data(), c.slc.data(), c.suc.data(), c.slx.data(), c.sux.data(), c.snx.data()});
  const double sigma = t.problem.obj_sense == QBR_OBJECTIVE_SENSE_MAXIMIZE ? -1.0 : 1.0;
  for (size_t q = 0; q < c.barx.size() && q < s.barx.size(); ++q) {
    s.barx[q] = c.barx[q];
    s.bars[q] = sigma * c.bars[q];
  }
}

}  // namespace

QBRrescode run_conic(task::Task& t, bool quadratic) {
  const int32_t threads = intpnt_thread_count(t);
  t.set_iinf(QBR_IINF_INTPNT_NUM_THREADS, threads);
  if (t.ipar(QBR_IPAR_REMOVE_UNUSED_SOLUTIONS) != 0) {
    t.solutions[QBR_SOL_BAS].release();
    t.solutions[QBR_SOL_ITG].release();
  }
  conic::ConicProblem p;
  snapshot_conic(t, p);
  interior::IpOptions opt = interior_options(t, threads);
  opt.tol_pfeas = t.dpar(quadratic ? QBR_DPAR_INTPNT_QO_TOL_PFEAS : QBR_DPAR_INTPNT_CO_TOL_PFEAS);
  opt.tol_dfeas = t.dpar(quadratic ? QBR_DPAR_INTPNT_QO_TOL_DFEAS : QBR_DPAR_INTPNT_CO_TOL_DFEAS);
  opt.tol_rel_gap = t.dpar(quadratic ? QBR_DPAR_INTPNT_QO_TOL_REL_GAP : QBR_DPAR_INTPNT_CO_TOL_REL_GAP);
  opt.tol_infeas = t.dpar(quadratic ? QBR_DPAR_INTPNT_QO_TOL_INFEAS : QBR_DPAR_INTPNT_CO_TOL_INFEAS);
  opt.tol_mu_red = t.dpar(quadratic ? QBR_DPAR_INTPNT_QO_TOL_MU_RED : QBR_DPAR_INTPNT_CO_TOL_MU_RED);
  opt.tol_near_rel = t.dpar(quadratic ? QBR_DPAR_INTPNT_QO_TOL_NEAR_REL : QBR_DPAR_INTPNT_CO_TOL_NEAR_REL);
  opt.progress = [&t](int32_t iter) {
    t.set_iinf(QBR_IINF_INTPNT_ITER, iter);
    if (!t.progress(QBR_CALLBACK_CONIC)) return false;
    t.optimize.stored_trm = QBR_RES_TRM_USER_CALLBACK;
    return true;
  };
  int64_t num_bar = 0;
  for (int32_t d : p.bar_dim) num_bar += d;
  linalg::log_printf(&opt.log, 1, "%-9s - %-22s : %d\n", "Optimizer", "threads", threads);
  linalg::log_printf(&opt.log, 1, "%-9s - %-22s : %s\n", "Optimizer", "solved problem", "the primal");
  linalg::log_printf(&opt.log, 1, "%-9s - %-22s : %-10d  %-22s : %d\n", "Optimizer", "constraints", p.lp.num_row,
                     "scalar variables", p.lp.num_col);
  linalg::log_printf(&opt.log, 1, "%-9s - %-22s : %-10d  %-22s : %d\n", "Optimizer", "conic",
                     static_cast<int>(p.cone_type.size()), "matrix variables", static_cast<int>(p.bar_dim.size()));
  t.progress(QBR_CALLBACK_BEGIN_CONIC);
  conic::ConicResult r;
  conic::solve_conic(p, opt, r);
  t.progress(QBR_CALLBACK_END_CONIC);
  linalg::log_printf(&opt.log, 1, "Interior-point optimizer terminated. Time: %.2f. Termination: %s [%d]\n", r.time,
                     interior::termination_name(static_cast<int32_t>(r.termination)), static_cast<int>(r.termination));
  store_intpnt_information(t, r, r.sol.primal_obj, r.sol.dual_obj);
  if (r.termination == interior::Termination::kOutOfSpace) return QBR_REPORT(t, QBR_RES_ERR_SPACE);
  if (r.termination != interior::Termination::kModelError) store_solution(t, p, r);
  const QBRrescode res = termination_response(r.termination);
  if (res >= 1000 && res < 10000) return QBR_REPORT(t, res);
  return res;
}

}  // namespace qubor::driver
