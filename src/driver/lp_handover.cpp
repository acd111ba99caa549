// Linear interior-point hand-over; see lp_handover.h.
#include "driver/lp_handover.h"

#include <cmath>
#include <limits>
#include <thread>

#include "crossover/crossover.h"
#include "driver/lp_presolve.h"
#include "driver/simplex_handover.h"
#include "driver/status_map.h"
#include "platform/prefaulted_buffer.h"
#include "task/report.h"
#include "task/solution_eval.h"

namespace qubor::driver {
namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();

// Bounds of one item from its key; values at or beyond 1e30 count as infinite.
void bounds_of(int32_t bk, double bl, double bu, double& lo, double& up) {
  lo = -kInf;
  up = kInf;
  switch (bk) {
    case QBR_BK_LO: lo = bl; break;
    case QBR_BK_UP: up = bu; break;
    case QBR_BK_FX: lo = up = bl; break;
    case QBR_BK_RA: lo = bl; up = bu; break;
    default: break;
  }
  if (lo <= -QBR_INFINITY) lo = -kInf;
  if (up >= QBR_INFINITY) up = kInf;
}

void log_write(void* handle, const char* text) {
  static_cast<task::Task*>(handle)->echo(QBR_STREAM_LOG, text);
}

// Basis identification from an optimal interior solution: the basic solution item, the BI
// information items and log lines. The clean-up optimizer follows QBR_IPAR_BI_CLEAN_OPTIMIZER
// (the dual simplex for 1, the primal simplex otherwise: the start is nearly primal feasible).
void identify_basis(task::Task& t, const interior::LpProblem& lp, const interior::IpResult& r) {
  const int32_t clean = t.ipar(QBR_IPAR_BI_CLEAN_OPTIMIZER) == QBR_OPTIMIZER_DUAL_SIMPLEX ? QBR_OPTIMIZER_DUAL_SIMPLEX
                                                                                        : QBR_OPTIMIZER_PRIMAL_SIMPLEX;
  simplex::SimplexOptions opt = simplex_options(t, clean);
  opt.max_iterations = t.ipar(QBR_IPAR_BI_MAX_ITERATIONS);
  opt.log_freq = t.ipar(QBR_IPAR_LOG_BI_FREQ);
  if (t.log_on() && t.ipar(QBR_IPAR_LOG_BI) >= 1) {
    opt.log.write = log_write;
    opt.log.handle = &t;
    opt.log.level = t.ipar(QBR_IPAR_LOG_BI);
  } else {
    opt.log.level = 0;
  }
  opt.progress = [&t](int64_t iter) {
    if (iter % 100 != 0) return false;
    if (!t.progress(QBR_CALLBACK_IM_BI)) return false;
    t.optimize.stored_trm = QBR_RES_TRM_USER_CALLBACK;
    return true;
  };
  t.progress(QBR_CALLBACK_BEGIN_BI);
  linalg::log_printf(&opt.log, 1, "Basis identification started.\n");
  crossover::CrossoverResult x;
  crossover::identify_basis(lp, r, opt, x);
  const simplex::SimplexResult& c = x.clean;
  t.set_dinf(QBR_DINF_BI_TIME, x.time);
  t.set_dinf(QBR_DINF_BI_CLEAN_TIME, c.time);
  t.set_dinf(QBR_DINF_BI_CLEAN_PRIMAL_TIME, c.primal_time);
  t.set_dinf(QBR_DINF_BI_CLEAN_DUAL_TIME, c.dual_time);
  t.set_liinf(QBR_LIINF_BI_CLEAN_PRIMAL_ITER, c.primal_iterations);
  t.set_liinf(QBR_LIINF_BI_CLEAN_DUAL_ITER, c.dual_iterations);
  t.set_liinf(QBR_LIINF_BI_CLEAN_PRIMAL_DEG_ITER, c.primal_degenerate);
  t.set_liinf(QBR_LIINF_BI_CLEAN_DUAL_DEG_ITER, c.dual_degenerate);
  linalg::log_printf(&opt.log, 1, "Basis identification terminated. Time: %.2f\n", x.time);
  t.progress(QBR_CALLBACK_END_BI);
  store_basic_solution(t, c);
}

}  // namespace

int32_t intpnt_thread_count(const task::Task& t) {
  if (t.ipar(QBR_IPAR_INTPNT_MULTI_THREAD) == 0) return 1;
  const int32_t n = t.ipar(QBR_IPAR_NUM_THREADS);
  if (n > 0) return n;
  return std::max(1, static_cast<int32_t>(std::thread::hardware_concurrency()));
}

// Interior-point status keys: a bound whose dual value exceeds the distance of the value to
// it is called active.
int32_t intpnt_status_key(int32_t bk, double lo, double up, double val, double sl, double su) {
  if (bk == QBR_BK_FX) return QBR_SK_FIX;
  const bool at_lo = std::isfinite(lo) && std::fabs(sl) > val - lo;
  const bool at_up = std::isfinite(up) && std::fabs(su) > up - val;
  if (at_lo && (!at_up || std::fabs(sl) >= std::fabs(su))) return QBR_SK_LOW;
  if (at_up) return QBR_SK_UPR;
  return QBR_SK_BAS;
}

task::Solution& store_intpnt_solution(task::Task& t, const interior::LpProblem& lp, interior::ProblemStatus prosta,
                                      interior::SolutionStatus solsta, const IntpntVectors& v) {
  task::Solution& s = t.solutions.create(t.problem, QBR_SOL_ITR);
  s.prosta = public_problem_status(prosta);
  s.solsta = public_solution_status(solsta);
  const double sigma = t.problem.obj_sense == QBR_OBJECTIVE_SENSE_MAXIMIZE ? -1.0 : 1.0;
  const size_t n = static_cast<size_t>(lp.num_col), m = static_cast<size_t>(lp.num_row);
  const bool keys = s.solsta == QBR_SOL_STA_OPTIMAL || s.solsta == QBR_SOL_STA_PRIM_FEAS ||
                    s.solsta == QBR_SOL_STA_DUAL_FEAS;
  for (size_t j = 0; j < n; ++j) {
    s.xx[j] = v.x[j];
    s.slx[j] = sigma * v.slx[j];
    s.sux[j] = sigma * v.sux[j];
    s.snx[j] = v.snx ? sigma * v.snx[j] : 0.0;
    s.skx[j] = keys ? intpnt_status_key(t.problem.var_bounds.bk[j], lp.col_lo[j], lp.col_up[j], v.x[j],
                                 v.slx[j], v.sux[j])
                    : QBR_SK_UNK;
  }
  for (size_t i = 0; i < m; ++i) {
    s.xc[i] = v.xc[i];
    s.y[i] = sigma * v.y[i];
    s.slc[i] = sigma * v.slc[i];
    s.suc[i] = sigma * v.suc[i];
    s.skc[i] = keys ? intpnt_status_key(t.problem.con_bounds.bk[i], lp.row_lo[i], lp.row_up[i], v.xc[i],
                                 v.slc[i], v.suc[i])
                    : QBR_SK_UNK;
  }
  return s;
}

void snapshot_lp(const task::Task& t, interior::LpProblem& lp) {
  const task::Problem& p = t.problem;
  const double sigma = p.obj_sense == QBR_OBJECTIVE_SENSE_MAXIMIZE ? -1.0 : 1.0;
  lp.num_row = p.num_con;
  lp.num_col = p.num_var;
  const task::CompressedView a = p.a.csc();
  const size_t n = static_cast<size_t>(p.num_var), m = static_cast<size_t>(p.num_con);
  platform::copy_prefaulted(lp.col_ptr, a.ptr, a.ptr + n + 1);
  platform::copy_prefaulted(lp.row_idx, a.idx, a.idx + a.nnz());
  platform::copy_prefaulted(lp.values, a.val, a.val + a.nnz());
  platform::assign_prefaulted(lp.c, n, 0.0);
  for (size_t j = 0; j < n; ++j) lp.c[j] = sigma * p.c[j];
  lp.cfix = sigma * p.cfix;
  platform::assign_prefaulted(lp.col_lo, n, 0.0);
  platform::assign_prefaulted(lp.col_up, n, 0.0);
  for (size_t j = 0; j < n; ++j)
    bounds_of(p.var_bounds.bk[j], p.var_bounds.bl[j], p.var_bounds.bu[j], lp.col_lo[j], lp.col_up[j]);
  platform::assign_prefaulted(lp.row_lo, m, 0.0);
  platform::assign_prefaulted(lp.row_up, m, 0.0);
  for (size_t i = 0; i < m; ++i)
    bounds_of(p.con_bounds.bk[i], p.con_bounds.bl[i], p.con_bounds.bu[i], lp.row_lo[i], lp.row_up[i]);
}

void snapshot_qobj(const task::Task& t, interior::LpProblem& lp) {
  const task::Problem& p = t.problem;
  const double sigma = p.obj_sense == QBR_OBJECTIVE_SENSE_MAXIMIZE ? -1.0 : 1.0;
  const size_t n = static_cast<size_t>(p.num_var);
  lp.q_col_ptr.assign(n + 1, 0);
  for (const task::QEntry& e : p.qobj) ++lp.q_col_ptr[static_cast<size_t>(e.j) + 1];
  for (size_t j = 0; j < n; ++j) lp.q_col_ptr[j + 1] += lp.q_col_ptr[j];
  lp.q_row_idx.assign(p.qobj.size(), 0);
  lp.q_values.assign(p.qobj.size(), 0.0);
  std::vector<int64_t> pos(lp.q_col_ptr.begin(), lp.q_col_ptr.end() - 1);
  for (const task::QEntry& e : p.qobj) {
    const size_t at = static_cast<size_t>(pos[static_cast<size_t>(e.j)]++);
    lp.q_row_idx[at] = e.i;
    lp.q_values[at] = sigma * e.v;
  }
}

interior::IpOptions interior_options(task::Task& t, int32_t num_threads) {
  interior::IpOptions o;
  o.tol_pfeas = t.dpar(QBR_DPAR_INTPNT_TOL_PFEAS);
  o.tol_dfeas = t.dpar(QBR_DPAR_INTPNT_TOL_DFEAS);
  o.tol_rel_gap = t.dpar(QBR_DPAR_INTPNT_TOL_REL_GAP);
  o.tol_infeas = t.dpar(QBR_DPAR_INTPNT_TOL_INFEAS);
  o.tol_mu_red = t.dpar(QBR_DPAR_INTPNT_TOL_MU_RED);
  o.tol_psafe = t.dpar(QBR_DPAR_INTPNT_TOL_PSAFE);
  o.tol_dsafe = t.dpar(QBR_DPAR_INTPNT_TOL_DSAFE);
  o.tol_step_size = t.dpar(QBR_DPAR_INTPNT_TOL_STEP_SIZE);
  o.max_iterations = t.ipar(QBR_IPAR_INTPNT_MAX_ITERATIONS);
  o.max_num_cor = t.ipar(QBR_IPAR_INTPNT_MAX_NUM_COR);
  o.max_num_refinement_steps = t.ipar(QBR_IPAR_INTPNT_MAX_NUM_REFINEMENT_STEPS);
  o.stall_iterations = t.ipar(QBR_IPAR_INTPNT_STALL_ITERATIONS);
  const int32_t sc = t.ipar(QBR_IPAR_INTPNT_SCALING);
  o.scaling = (sc == QBR_SCALING_FREE || sc == QBR_SCALING_MODERATE) ? 1 : (sc == QBR_SCALING_AGGRESSIVE ? 2 : 0);
  o.order_method = t.ipar(QBR_IPAR_INTPNT_ORDER_METHOD);
  o.off_col_trh = t.ipar(QBR_IPAR_INTPNT_OFF_COL_TRH);
  o.dense_col_limit = t.ipar(QBR_IPAR_INTPNT_DENSE_COL_LIMIT);
  o.regularization = t.ipar(QBR_IPAR_INTPNT_REGULARIZATION_USE) != 0;
  o.diff_step = t.ipar(QBR_IPAR_INTPNT_DIFF_STEP) != 0;
  o.num_threads = num_threads;
  o.max_time = t.dpar(QBR_DPAR_OPTIMIZER_MAX_TIME);
  if (t.log_on() && t.ipar(QBR_IPAR_LOG_INTPNT) >= 1) {
    o.log.write = log_write;
    o.log.handle = &t;
    o.log.level = t.ipar(QBR_IPAR_LOG_INTPNT);
    o.factor_log_level = t.ipar(QBR_IPAR_LOG_FACTOR) - 1;
  } else {
    o.log.level = 0;
  }
  return o;
}

// The quadratic objective's own tolerances take the place of the linear ones.
void use_quadratic_tolerances(task::Task& t, interior::IpOptions& o) {
  o.tol_pfeas = t.dpar(QBR_DPAR_INTPNT_QO_TOL_PFEAS);
  o.tol_dfeas = t.dpar(QBR_DPAR_INTPNT_QO_TOL_DFEAS);
  o.tol_rel_gap = t.dpar(QBR_DPAR_INTPNT_QO_TOL_REL_GAP);
  o.tol_infeas = t.dpar(QBR_DPAR_INTPNT_QO_TOL_INFEAS);
  o.tol_mu_red = std::min(o.tol_mu_red, t.dpar(QBR_DPAR_INTPNT_QO_TOL_MU_RED));
  o.tol_near_rel = t.dpar(QBR_DPAR_INTPNT_QO_TOL_NEAR_REL);
}

QBRrescode run_linear_intpnt(task::Task& t) {
  const int32_t threads = intpnt_thread_count(t);
  t.set_iinf(QBR_IINF_INTPNT_NUM_THREADS, threads);
  // A quadratic objective goes into the homogeneous model as it is: no presolve (its
  // reductions assume a linear objective) and no basis identification.
  const bool quadratic = !t.problem.qobj.empty();
  const bool basis_wanted = t.ipar(QBR_IPAR_INTPNT_BASIS) != 0 && !quadratic;
  if (basis_wanted || t.ipar(QBR_IPAR_REMOVE_UNUSED_SOLUTIONS) != 0) {
    t.solutions[QBR_SOL_BAS].release();
    t.solutions[QBR_SOL_ITG].release();
  }
  interior::LpProblem lp;
  snapshot_lp(t, lp);
  if (quadratic) snapshot_qobj(t, lp);
  interior::IpOptions opt = interior_options(t, threads);
  if (quadratic) use_quadratic_tolerances(t, opt);
  opt.progress = [&t](int32_t iter) {
    t.set_iinf(QBR_IINF_INTPNT_ITER, iter);
    if (!t.progress(QBR_CALLBACK_INTPNT)) return false;
    t.optimize.stored_trm = QBR_RES_TRM_USER_CALLBACK;
    return true;
  };
  linalg::log_printf(&opt.log, 1, "%-9s - %-22s : %d\n", "Optimizer", "threads", threads);
  linalg::log_printf(&opt.log, 1, "%-9s - %-22s : %s\n", "Optimizer", "solved problem", "the primal");
  linalg::log_printf(&opt.log, 1, "%-9s - %-22s : %-10d  %-22s : %d\n", "Optimizer", "constraints",
                     lp.num_row, "scalar variables", lp.num_col);
  t.progress(QBR_CALLBACK_BEGIN_INTPNT);
  interior::IpResult r;
  if (quadratic) {
    interior::solve_lp(lp, opt, r);
  } else if (!solve_presolved(t, lp, opt, r)) {
    // Iterations spent on a reduced problem that was given up count as well.
    const int32_t reduced_iterations = r.iterations;
    interior::solve_lp(lp, opt, r);
    r.iterations += reduced_iterations;
  }
  t.progress(QBR_CALLBACK_END_INTPNT);
  linalg::log_printf(&opt.log, 1, "Interior-point optimizer terminated. Time: %.2f. Termination: %s [%d]\n",
                     r.time, interior::termination_name(static_cast<int32_t>(r.termination)),
                     static_cast<int>(r.termination));
  store_intpnt_information(t, r, r.primal_obj, r.dual_obj);
  if (r.termination == interior::Termination::kOutOfSpace) return QBR_REPORT(t, QBR_RES_ERR_SPACE);
  if (r.termination != interior::Termination::kModelError)
    store_intpnt_solution(t, lp, r.problem_status, r.solution_status,
                          {r.x.data(), r.xc.data(), r.y.data(), r.slc.data(), r.suc.data(), r.slx.data(),
                           r.sux.data(), nullptr});
  if (basis_wanted && r.solution_status == interior::SolutionStatus::kOptimal) identify_basis(t, lp, r);
  const QBRrescode res = termination_response(r.termination);
  if (res >= 1000 && res < 10000) return QBR_REPORT(t, res);
  return res;
}

}  // namespace qubor::driver
