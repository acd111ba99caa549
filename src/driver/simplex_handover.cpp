// Simplex hand-over; see simplex_handover.h.
#include "driver/simplex_handover.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <utility>

#include "driver/lp_handover.h"
#include "driver/lp_presolve.h"
#include "platform/prefaulted_buffer.h"
#include "presolve/presolve.h"
#include "task/report.h"

namespace qubor::driver {
namespace {

void log_write(void* handle, const char* text) { static_cast<task::Task*>(handle)->echo(QBR_STREAM_LOG, text); }

simplex::Algorithm algorithm_of(int32_t optimizer) {
  if (optimizer == QBR_OPTIMIZER_PRIMAL_SIMPLEX) return simplex::Algorithm::kPrimal;
  if (optimizer == QBR_OPTIMIZER_DUAL_SIMPLEX) return simplex::Algorithm::kDual;
  return simplex::Algorithm::kFree;
}

// Runs the simplex on the presolved problem and maps its basis back; the caller then
// finishes on the original problem from that basis. False when the original problem must
// be solved from scratch (presolve off, or it found an infeasibility: certificates are
// built on the original data).
bool presolved_start(task::Task& t, const interior::LpProblem& lp, const simplex::SimplexOptions& opt,
                     simplex::StartBasis& start, simplex::SimplexResult& reduced_run) {
  linalg::LogSink sink;
  std::optional<presolve::PresolveResult> presolved = run_presolve(t, lp, opt.log, sink);
  if (!presolved) return false;
  presolve::PresolveResult& pr = *presolved;
  if (pr.status != presolve::PresolveStatus::kReduced && pr.status != presolve::PresolveStatus::kSolved) return false;
  presolve::LpSolution reduced_solution;
  if (pr.status == presolve::PresolveStatus::kSolved) {
    reduced_solution.resize(0, 0);
  } else {
    interior::LpProblem reduced;
    to_interior_form(pr.reduced, reduced);
    linalg::log_printf(&opt.log, 1, "%-9s - %-22s : %-10d  %-22s : %d\n", "Optimizer", "presolved constraints",
                       reduced.num_row, "presolved variables", reduced.num_col);
    simplex::solve(reduced, opt, nullptr, reduced_run);
    if (reduced_run.status != simplex::Status::kOptimal) return false;
    platform::copy_prefaulted(reduced_solution.xx, reduced_run.x.begin(), reduced_run.x.end());
    platform::copy_prefaulted(reduced_solution.y, reduced_run.y.begin(), reduced_run.y.end());
    platform::copy_prefaulted(reduced_solution.slx, reduced_run.slx.begin(), reduced_run.slx.end());
    platform::copy_prefaulted(reduced_solution.sux, reduced_run.sux.begin(), reduced_run.sux.end());
    platform::copy_prefaulted(reduced_solution.skx, reduced_run.skx.begin(), reduced_run.skx.end());
    platform::copy_prefaulted(reduced_solution.skc, reduced_run.skc.begin(), reduced_run.skc.end());
  }
  const presolve::LpSolution full = pr.postsolve(reduced_solution);
  start.skx.assign(full.skx.begin(), full.skx.end());
  start.skc.assign(full.skc.begin(), full.skc.end());
  // A mapped basis with a few basic items too many or too few is still a good start: the
  // simplex drops the extra ones or fills in logicals, and the factorization repairs
  // dependence. One far off is not used.
  const auto basic = std::count(start.skx.begin(), start.skx.end(), QBR_SK_BAS) +
                     std::count(start.skc.begin(), start.skc.end(), QBR_SK_BAS);
  if (basic != lp.num_row) {
    const bool usable = std::abs(basic - lp.num_row) <= std::max(10, lp.num_row / 50);
    linalg::log_printf(&opt.log, 1, "The postsolved basis has %lld basic items for %d constraints; %s.\n",
                       static_cast<long long>(basic), lp.num_row,
                       usable ? "the optimizer repairs it" : "the optimizer starts from the slack basis");
    return usable;
  }
  return true;
}

void store_simplex_information(task::Task& t, const simplex::SimplexResult& r, int32_t m, int32_t n) {
  const double sigma = t.problem.obj_sense == QBR_OBJECTIVE_SENSE_MAXIMIZE ? -1.0 : 1.0;
  auto clamp = [](int64_t v) { return static_cast<int32_t>(std::min<int64_t>(v, INT32_MAX)); };
  t.set_iinf(QBR_IINF_SIM_PRIMAL_ITER, clamp(r.primal_iterations));
  t.set_iinf(QBR_IINF_SIM_DUAL_ITER, clamp(r.dual_iterations));
  t.set_iinf(QBR_IINF_SIM_PRIMAL_DEG_ITER, clamp(r.primal_degenerate));
  t.set_iinf(QBR_IINF_SIM_DUAL_DEG_ITER, clamp(r.dual_degenerate));
  t.set_iinf(QBR_IINF_SIM_PRIMAL_INF_ITER, clamp(r.primal_phase1_iterations));
  t.set_iinf(QBR_IINF_SIM_DUAL_INF_ITER, clamp(r.dual_phase1_iterations));
  t.set_iinf(QBR_IINF_SIM_NUMCON, m);
  t.set_iinf(QBR_IINF_SIM_NUMVAR, n);
  t.set_iinf(QBR_IINF_SIM_SOLVE_DUAL, 0);
  t.set_iinf(r.solved_dual_first ? QBR_IINF_SIM_DUAL_HOTSTART : QBR_IINF_SIM_PRIMAL_HOTSTART, r.hot_started ? 1 : 0);
  t.set_dinf(QBR_DINF_SIM_TIME, r.time);
  t.set_dinf(QBR_DINF_SIM_PRIMAL_TIME, r.primal_time);
  t.set_dinf(QBR_DINF_SIM_DUAL_TIME, r.dual_time);
  t.set_dinf(QBR_DINF_SIM_OBJ, sigma * r.primal_obj);
  t.set_dinf(QBR_DINF_SIM_FEAS, r.max_primal_infeas);
}

const char* status_text(simplex::Status s) {
  switch (s) {
    case simplex::Status::kOptimal: return "optimal";
    case simplex::Status::kPrimalInfeasible: return "primal infeasible";
    case simplex::Status::kDualInfeasible: return "dual infeasible";
    case simplex::Status::kIterationLimit: return "iteration limit";
    case simplex::Status::kTimeLimit: return "time limit";
    case simplex::Status::kUserStop: return "stopped by the callback";
    case simplex::Status::kNumericalTrouble: return "numerical trouble";
    default: return "unknown";
  }
}

QBRrescode response_of(simplex::Status s) {
  switch (s) {
    case simplex::Status::kIterationLimit: return QBR_RES_TRM_MAX_ITERATIONS;
    case simplex::Status::kTimeLimit: return QBR_RES_TRM_MAX_TIME;
    case simplex::Status::kUserStop: return QBR_RES_TRM_USER_CALLBACK;
    case simplex::Status::kNumericalTrouble: return QBR_RES_TRM_MAX_NUM_SETBACKS;
    default: return QBR_RES_OK;
  }
}

}  // namespace

simplex::SimplexOptions simplex_options(task::Task& t, int32_t optimizer) {
  simplex::SimplexOptions o;
  o.algorithm = algorithm_of(optimizer);
  o.lu_rel_pivot = t.dpar(QBR_DPAR_SIM_LU_TOL_REL_PIV);
  o.refactor_freq = t.ipar(QBR_IPAR_SIM_REFACTOR_FREQ);
  o.dual_pricing = t.ipar(QBR_IPAR_SIM_DUAL_SELECTION);
  o.primal_pricing = t.ipar(QBR_IPAR_SIM_PRIMAL_SELECTION);
  o.scaling = t.ipar(QBR_IPAR_SIM_SCALING);
  o.max_iterations = t.ipar(QBR_IPAR_SIM_MAX_ITERATIONS);
  o.max_setbacks = t.ipar(QBR_IPAR_SIM_MAX_NUM_SETBACKS);
  o.switch_optimizer = t.ipar(QBR_IPAR_SIM_SWITCH_OPTIMIZER) != 0;
  o.seed = static_cast<uint32_t>(t.ipar(QBR_IPAR_SIM_SEED));
  o.max_time = t.dpar(QBR_DPAR_OPTIMIZER_MAX_TIME);
  o.log_freq = t.ipar(QBR_IPAR_LOG_SIM_FREQ);
  if (t.log_on() && t.ipar(QBR_IPAR_LOG_SIM) >= 1) {
    o.log.write = log_write;
    o.log.handle = &t;
    o.log.level = t.ipar(QBR_IPAR_LOG_SIM);
  } else {
    o.log.level = 0;
  }
  return o;
}

void store_basic_solution(task::Task& t, const simplex::SimplexResult& r) {
  task::Solution& s = t.solutions.create(t.problem, QBR_SOL_BAS);
  const double sigma = t.problem.obj_sense == QBR_OBJECTIVE_SENSE_MAXIMIZE ? -1.0 : 1.0;
  switch (r.status) {
    case simplex::Status::kOptimal:
      s.prosta = QBR_PRO_STA_PRIM_AND_DUAL_FEAS;
      s.solsta = QBR_SOL_STA_OPTIMAL;
      break;
    case simplex::Status::kPrimalInfeasible:
      s.prosta = QBR_PRO_STA_PRIM_INFEAS;
      s.solsta = QBR_SOL_STA_PRIM_INFEAS_CER;
      break;
    case simplex::Status::kDualInfeasible:
      s.prosta = QBR_PRO_STA_DUAL_INFEAS;
      s.solsta = QBR_SOL_STA_DUAL_INFEAS_CER;
      break;
    default:
      s.prosta = QBR_PRO_STA_UNKNOWN;
      s.solsta = QBR_SOL_STA_UNKNOWN;
      break;
  }
  const size_t n = r.x.size(), m = r.xc.size();
  for (size_t j = 0; j < n; ++j) {
    s.xx[j] = r.x[j];
    s.skx[j] = r.skx[j];
    s.slx[j] = sigma * r.slx[j];
    s.sux[j] = sigma * r.sux[j];
  }
  for (size_t i = 0; i < m; ++i) {
    s.xc[i] = r.xc[i];
    s.skc[i] = r.skc[i];
    s.y[i] = sigma * r.y[i];
    s.slc[i] = sigma * r.slc[i];
    s.suc[i] = sigma * r.suc[i];
  }
}

QBRrescode run_simplex(task::Task& t, int32_t optimizer) {
  const bool was_defined = t.solutions[QBR_SOL_BAS].defined;
  simplex::StartBasis start;
  bool hot = false;
  if (was_defined && t.ipar(QBR_IPAR_SIM_HOTSTART) != QBR_SIM_HOTSTART_NONE) {
    const task::Solution& s = t.solutions[QBR_SOL_BAS];
    start.skx.assign(s.skx.begin(), s.skx.end());
    start.skc.assign(s.skc.begin(), s.skc.end());
    hot = std::count(start.skx.begin(), start.skx.end(), QBR_SK_BAS) +
              std::count(start.skc.begin(), start.skc.end(), QBR_SK_BAS) > 0;
  }
  t.solutions.create(t.problem, QBR_SOL_BAS);
  interior::LpProblem lp;
  snapshot_lp(t, lp);
  simplex::SimplexOptions opt = simplex_options(t, optimizer);
  int64_t reported = 0;
  const int32_t code = opt.algorithm == simplex::Algorithm::kPrimal ? QBR_CALLBACK_PRIMAL_SIMPLEX : QBR_CALLBACK_DUAL_SIMPLEX;
  opt.progress = [&t, &reported, code](int64_t iter) {
    if (iter - reported < 100 && iter != 0) return false;
    reported = iter;
    if (!t.progress(code)) return false;
    t.optimize.stored_trm = QBR_RES_TRM_USER_CALLBACK;
    return true;
  };
  const bool primal = opt.algorithm == simplex::Algorithm::kPrimal;
  linalg::log_printf(&opt.log, 1, "%-9s - %-22s : %s\n", "Optimizer", "solved problem", "the primal");
  linalg::log_printf(&opt.log, 1, "%-9s - %-22s : %-10d  %-22s : %d\n", "Optimizer", "constraints", lp.num_row,
                     "scalar variables", lp.num_col);
  linalg::log_printf(&opt.log, 1, "%-9s - %-22s : %s\n", "Optimizer", "hot-start", hot ? "yes" : "no");
  t.progress(QBR_CALLBACK_BEGIN_SIMPLEX);
  t.progress(primal ? QBR_CALLBACK_BEGIN_PRIMAL_SIMPLEX : QBR_CALLBACK_BEGIN_DUAL_SIMPLEX);
  simplex::SimplexResult reduced_run, r;
  if (!hot) hot = presolved_start(t, lp, opt, start, reduced_run);
  linalg::log_printf(&opt.log, 1, "%-6s %-12s %-20s %-12s %-12s %-8s\n", "PHASE", "ITER", "OBJECTIVE", "PINF-SUM",
                     "DINF-MAX", "TIME");
  simplex::solve(lp, opt, hot ? &start : nullptr, r);
  if (hot && !was_defined && r.status == simplex::Status::kNumericalTrouble) {
    // The basis mapped back by postsolve led into trouble: start over from the slack basis.
    const simplex::SimplexResult failed = r;
    simplex::solve(lp, opt, nullptr, r);
    r.dual_iterations += failed.dual_iterations;
    r.primal_iterations += failed.primal_iterations;
    r.time += failed.time;
  }
  // The presolved run's work counts as well.
  r.primal_iterations += reduced_run.primal_iterations;
  r.dual_iterations += reduced_run.dual_iterations;
  r.primal_degenerate += reduced_run.primal_degenerate;
  r.dual_degenerate += reduced_run.dual_degenerate;
  r.primal_phase1_iterations += reduced_run.primal_phase1_iterations;
  r.dual_phase1_iterations += reduced_run.dual_phase1_iterations;
  r.primal_time += reduced_run.primal_time;
  r.dual_time += reduced_run.dual_time;
  r.time += reduced_run.time;
  r.hot_started = was_defined && t.ipar(QBR_IPAR_SIM_HOTSTART) != QBR_SIM_HOTSTART_NONE;
  t.progress(primal ? QBR_CALLBACK_END_PRIMAL_SIMPLEX : QBR_CALLBACK_END_DUAL_SIMPLEX);
  t.progress(QBR_CALLBACK_END_SIMPLEX);
  linalg::log_printf(&opt.log, 1, "Simplex optimizer terminated. Time: %.2f. Status: %s. Iterations: %lld primal, %lld dual.\n",
                     r.time, status_text(r.status), static_cast<long long>(r.primal_iterations),
                     static_cast<long long>(r.dual_iterations));
  store_simplex_information(t, r, lp.num_row, lp.num_col);
  store_basic_solution(t, r);
  return response_of(r.status);
}

}  // namespace qubor::driver
