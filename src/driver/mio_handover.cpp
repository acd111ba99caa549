// Mixed-integer hand-over; see mio_handover.h.
#include "driver/mio_handover.h"

#include <algorithm>
#include <cmath>
#include <thread>

#include "driver/lp_handover.h"
#include "driver/simplex_handover.h"
#include "mio/search.h"
#include "task/report.h"

namespace qubor::driver {
namespace {

void log_write(void* handle, const char* text) { static_cast<task::Task*>(handle)->echo(QBR_STREAM_LOG, text); }

mio::MioOptions mio_options(task::Task& t) {
  mio::MioOptions o;
  o.node_selection = t.ipar(QBR_IPAR_MIO_NODE_SELECTION);
  o.branch_dir = t.ipar(QBR_IPAR_MIO_BRANCH_DIR);
  o.max_branches = t.ipar(QBR_IPAR_MIO_MAX_NUM_BRANCHES);
  o.max_relaxs = t.ipar(QBR_IPAR_MIO_MAX_NUM_RELAXS);
  o.max_solutions = t.ipar(QBR_IPAR_MIO_MAX_NUM_SOLUTIONS);
  o.max_root_cut_rounds = t.ipar(QBR_IPAR_MIO_MAX_NUM_ROOT_CUT_ROUNDS);
  o.cut_knapsack_cover = t.ipar(QBR_IPAR_MIO_CUT_KNAPSACK_COVER) != 0;
  o.cut_gmi = t.ipar(QBR_IPAR_MIO_CUT_GMI) != 0;
  o.heuristic_level = t.ipar(QBR_IPAR_MIO_HEURISTIC_LEVEL);
  o.seed = static_cast<uint64_t>(t.ipar(QBR_IPAR_MIO_SEED));
  o.tol_rel_gap = t.dpar(QBR_DPAR_MIO_TOL_REL_GAP);
  o.tol_abs_gap = t.dpar(QBR_DPAR_MIO_TOL_ABS_GAP);
  o.rel_gap_const = t.dpar(QBR_DPAR_MIO_REL_GAP_CONST);
  o.tol_abs_relax_int = t.dpar(QBR_DPAR_MIO_TOL_ABS_RELAX_INT);
  o.tol_feas = t.dpar(QBR_DPAR_MIO_TOL_FEAS);
  o.mio_max_time = t.dpar(QBR_DPAR_MIO_MAX_TIME);
  o.optimizer_max_time = t.dpar(QBR_DPAR_OPTIMIZER_MAX_TIME);
  o.num_threads = 1;  // one branch-and-bound job
  o.log_freq = t.ipar(QBR_IPAR_LOG_MIO_FREQ);
  o.obj_sign = t.problem.obj_sense == QBR_OBJECTIVE_SENSE_MAXIMIZE ? -1.0 : 1.0;
  if (t.log_on() && t.ipar(QBR_IPAR_LOG_MIO) >= 1) {
    o.log.write = log_write;
    o.log.handle = &t;
    o.log.level = t.ipar(QBR_IPAR_LOG_MIO);
  } else {
    o.log.level = 0;
  }
  o.simplex = simplex_options(t, QBR_OPTIMIZER_DUAL_SIMPLEX);
  o.simplex.progress = nullptr;
  return o;
}

void store_mio_information(task::Task& t, const mio::Problem& p, const mio::MioStats& s, double sigma) {
  t.set_iinf(QBR_IINF_MIO_NUM_BRANCH, static_cast<int32_t>(std::min<int64_t>(s.branches, INT32_MAX)));
  t.set_iinf(QBR_IINF_MIO_NUM_RELAX, static_cast<int32_t>(std::min<int64_t>(s.relaxs, INT32_MAX)));
  t.set_iinf(QBR_IINF_MIO_NUM_ACTIVE_NODES, static_cast<int32_t>(std::min<int64_t>(s.active, INT32_MAX)));
  t.set_iinf(QBR_IINF_MIO_NODE_DEPTH, s.depth);
  t.set_iinf(QBR_IINF_MIO_NUM_INT_SOLUTIONS, static_cast<int32_t>(std::min<int64_t>(s.int_solutions, INT32_MAX)));
  t.set_iinf(QBR_IINF_MIO_CONSTRUCT_SOLUTION, s.construct_used ? 1 : 0);
  t.set_iinf(QBR_IINF_MIO_OBJ_BOUND_DEFINED, s.bound_defined ? 1 : 0);
  t.set_iinf(QBR_IINF_MIO_RELGAP_SATISFIED, s.rel_gap_met ? 1 : 0);
  t.set_iinf(QBR_IINF_MIO_ABSGAP_SATISFIED, s.abs_gap_met ? 1 : 0);
  t.set_iinf(QBR_IINF_MIO_TOTAL_NUM_CUTS, s.num_cuts);
  t.set_iinf(QBR_IINF_MIO_NUM_GOMORY_CUTS, s.gomory_cuts);
  t.set_iinf(QBR_IINF_MIO_NUM_CMIR_CUTS, s.cmir_cuts);
  t.set_iinf(QBR_IINF_MIO_NUM_CLIQUE_CUTS, s.clique_cuts);
  t.set_iinf(QBR_IINF_MIO_NUM_IMPLIED_BOUND_CUTS, s.implied_bound_cuts);
  t.set_iinf(QBR_IINF_MIO_NUM_KNAPSACK_COVER_CUTS, s.knapsack_cover_cuts);
  t.set_iinf(QBR_IINF_MIO_NUMVAR, p.n());
  t.set_iinf(QBR_IINF_MIO_NUMCON, p.m());
  t.set_iinf(QBR_IINF_MIO_NUMINT, p.num_int + p.num_bin);
  t.set_iinf(QBR_IINF_MIO_NUMBIN, p.num_bin);
  t.set_iinf(QBR_IINF_MIO_NUMCONT, p.num_cont);
  t.set_iinf(QBR_IINF_MIO_PRESOLVED_NUMVAR, p.n());
  t.set_iinf(QBR_IINF_MIO_PRESOLVED_NUMCON, p.m());
  t.set_iinf(QBR_IINF_MIO_PRESOLVED_NUMINT, p.num_int + p.num_bin);
  t.set_iinf(QBR_IINF_MIO_PRESOLVED_NUMBIN, p.num_bin);
  t.set_iinf(QBR_IINF_MIO_PRESOLVED_NUMCONT, p.num_cont);
  t.set_liinf(QBR_LIINF_MIO_ANZ, static_cast<int64_t>(p.lp.values.size()));
  t.set_liinf(QBR_LIINF_MIO_PRESOLVED_ANZ, static_cast<int64_t>(p.lp.values.size()));
  t.set_liinf(QBR_LIINF_MIO_SIMPLEX_ITER, s.simplex_iterations);
  t.set_dinf(QBR_DINF_MIO_OBJ_INT, s.has_int ? sigma * s.best_int : 0.0);
  t.set_dinf(QBR_DINF_MIO_OBJ_BOUND, s.bound_defined ? sigma * s.best_bound : 0.0);
  t.set_dinf(QBR_DINF_MIO_OBJ_REL_GAP, s.has_int && s.bound_defined ? s.rel_gap : -1.0);
  t.set_dinf(QBR_DINF_MIO_OBJ_ABS_GAP, s.has_int && s.bound_defined ? s.abs_gap : -1.0);
  t.set_dinf(QBR_DINF_MIO_CONSTRUCT_SOLUTION_OBJ, s.construct_used ? sigma * s.construct_obj : 0.0);
  t.set_dinf(QBR_DINF_MIO_TIME, s.time);
  t.set_dinf(QBR_DINF_MIO_ROOT_OPTIMIZER_TIME, s.root_time);
  t.set_dinf(QBR_DINF_MIO_ROOT_PRESOLVE_TIME, s.presolve_time);
  t.set_dinf(QBR_DINF_MIO_ROOT_CUTGEN_TIME, s.cutgen_time);
  t.set_dinf(QBR_DINF_MIO_KNAPSACK_COVER_SEPARATION_TIME, s.knapsack_cover_time);
  t.set_dinf(QBR_DINF_MIO_GMI_SEPARATION_TIME, s.gmi_time);
}

// Status key of a value of an item without a basis.
int32_t position_key(double lo, double up, double v) {
  if (std::isfinite(lo) && lo == up) return QBR_SK_FIX;
  const double tol = 1e-9 * (1.0 + std::fabs(v));
  if (std::isfinite(lo) && std::fabs(v - lo) <= tol) return QBR_SK_LOW;
  if (std::isfinite(up) && std::fabs(v - up) <= tol) return QBR_SK_UPR;
  return QBR_SK_SUPBAS;
}

void store_integer_solution(task::Task& t, const mio::Problem& p, const mio::MioResult& r) {
  task::Solution& s = t.solutions.create(t.problem, QBR_SOL_ITG);
  const bool has = r.stats.has_int;
  const bool proved = has && !r.incomplete && (r.end == mio::MioEnd::kRelGap || r.end == mio::MioEnd::kAbsGap);
  if (r.end == mio::MioEnd::kUnbounded) {
    s.prosta = has ? QBR_PRO_STA_DUAL_INFEAS : QBR_PRO_STA_PRIM_INFEAS_OR_UNBOUNDED;
    s.solsta = has ? QBR_SOL_STA_PRIM_FEAS : QBR_SOL_STA_UNKNOWN;
  } else if (has) {
    s.prosta = QBR_PRO_STA_PRIM_FEAS;
    s.solsta = proved ? QBR_SOL_STA_INTEGER_OPTIMAL : QBR_SOL_STA_PRIM_FEAS;
  } else if (r.end == mio::MioEnd::kTreeExhausted && !r.incomplete) {
    s.prosta = QBR_PRO_STA_PRIM_INFEAS;
    s.solsta = QBR_SOL_STA_UNKNOWN;
  } else {
    s.prosta = QBR_PRO_STA_UNKNOWN;
    s.solsta = QBR_SOL_STA_UNKNOWN;
  }
  const size_t n = static_cast<size_t>(p.n()), m = static_cast<size_t>(p.m());
  std::vector<double> xc(m, 0.0);
  for (size_t j = 0; j < n; ++j) {
    const double v = has ? r.x[j] : 0.0;
    s.xx[j] = v;
    s.skx[j] = has ? position_key(p.lp.col_lo[j], p.lp.col_up[j], v) : QBR_SK_UNK;
    for (int64_t k = p.lp.col_ptr[j]; k < p.lp.col_ptr[j + 1]; ++k)
      xc[static_cast<size_t>(p.lp.row_idx[static_cast<size_t>(k)])] += p.lp.values[static_cast<size_t>(k)] * v;
  }
  for (size_t i = 0; i < m; ++i) {
    s.xc[i] = xc[i];
    s.skc[i] = has ? position_key(p.lp.row_lo[i], p.lp.row_up[i], xc[i]) : QBR_SK_UNK;
  }
}

QBRrescode response_of(const mio::MioResult& r) {
  switch (r.end) {
    case mio::MioEnd::kMioTime:
    case mio::MioEnd::kOptimizerTime: return QBR_RES_TRM_MAX_TIME;
    case mio::MioEnd::kRelaxLimit: return QBR_RES_TRM_MIO_NUM_RELAXS;
    case mio::MioEnd::kBranchLimit: return QBR_RES_TRM_MIO_NUM_BRANCHES;
    case mio::MioEnd::kSolutionLimit: return QBR_RES_TRM_NUM_MAX_NUM_INT_SOLUTIONS;
    case mio::MioEnd::kUserStop: return QBR_RES_TRM_USER_CALLBACK;
    default: return QBR_RES_OK;
  }
}

}  // namespace

QBRrescode run_mixed_integer(task::Task& t) {
  interior::LpProblem lp;
  snapshot_lp(t, lp);
  std::vector<uint8_t> is_int(static_cast<size_t>(t.problem.num_var), 0);
  for (size_t j = 0; j < is_int.size(); ++j) is_int[j] = t.problem.var_type[j] == QBR_VAR_TYPE_INT ? 1 : 0;
  mio::Problem p;
  const bool domains = mio::make_problem(std::move(lp), is_int, p);
  mio::MioOptions o = mio_options(t);
  const double sigma = o.obj_sign;
  const task::Solution& given = t.solutions[QBR_SOL_ITG];
  if (given.defined && given.xx.size() == static_cast<size_t>(p.n()))
    o.initial = std::vector<double>(given.xx.begin(), given.xx.end());
  t.progress(QBR_CALLBACK_BEGIN_MIO);
  mio::MioResult r;
  if (domains) {
    const mio::MioProgress progress = [&t, &p, sigma](int32_t code, const mio::MioStats& s) {
      store_mio_information(t, p, s, sigma);
      if (!t.progress(code)) return false;
      t.optimize.stored_trm = QBR_RES_TRM_USER_CALLBACK;
      return true;
    };
    mio::solve(p, o, progress, r);
  } else {
    // An integer column without an integer in its bounds: nothing to search.
    r.end = mio::MioEnd::kTreeExhausted;
    linalg::log_printf(&o.log, 1, "An integer variable has no integer value within its bounds.\n");
  }
  store_mio_information(t, p, r.stats, sigma);
  t.progress(QBR_CALLBACK_END_MIO);
  store_integer_solution(t, p, r);
  return response_of(r);
}

}  // namespace qubor::driver
