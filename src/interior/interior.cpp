// Entry point of the interior-point optimizer for linear and convex quadratic problems:
// internal form, scaling, the reduced system (normal equations, or the augmented system for
// a Q with off-diagonal entries), the homogeneous iteration, and the way back to the caller's
// form.
#include <algorithm>
#include <cmath>
#include <new>

#include "interior/augmented_system.h"
#include "interior/homogeneous.h"
#include "interior/ip_log.h"
#include "interior/lp_problem.h"
#include "interior/normal_equations.h"
#include "interior/scaling.h"
#include "interior/standard_form.h"
#include "linalg/dense/dense_kernels.h"

namespace qubor::interior {
namespace {

void log_factor_summary(const linalg::LogSink* sink, const KktSolver& ne) {
  const linalg::CholeskyStatistics& st = ne.cholesky().statistics();
  const linalg::OrderChoice& oc = ne.cholesky().ordering();
  log_pair(sink, "Factor", "setup time", ne.setup_time(), "dense det. time",
           ne.dense_detect_time());
  log_pair(sink, "Factor", "ML order time", oc.ml_time, "GP order time", oc.gp_time);
  log_pair_count(sink, "Factor", "nonzeros before factor", static_cast<double>(ne.nnz_matrix()),
                 "after factor", static_cast<double>(ne.cholesky().nnz_l()));
  log_pair_count(sink, "Factor", "dense dim.", ne.num_dense(), "flops", ne.factor_flops());
  if (st.gp_taken)
    log_pair_count(sink, "Factor", "GP saved nzs", static_cast<double>(st.gp_saved_nz),
                   "GP saved flops", st.gp_saved_flops);
}

// Maps the scaled internal iterate back and divides by tau (or not, for a ray).
void unscale(const StandardForm& sf, const std::vector<double>& rs,
             const std::vector<double>& cs, HsdOutcome& o, double divisor) {
  for (size_t j = 0; j < static_cast<size_t>(sf.n); ++j) {
    o.x[j] *= cs[j] / divisor;
    o.s[j] /= cs[j] * divisor;
    o.v[j] /= cs[j] * divisor;
  }
  for (size_t i = 0; i < static_cast<size_t>(sf.m); ++i) o.y[i] *= rs[i] / divisor;
}

// Zeroes the entries and right-hand sides of rows that the normal equations dropped.
void remove_rows(StandardForm& sf, const std::vector<int32_t>& rows) {
  std::vector<int8_t> drop(static_cast<size_t>(sf.m), 0);
  for (int32_t i : rows) {
    drop[static_cast<size_t>(i)] = 1;
    sf.b[static_cast<size_t>(i)] = 0.0;
  }
  for (size_t k = 0; k < sf.row_idx.size(); ++k)
    if (drop[static_cast<size_t>(sf.row_idx[k])]) sf.values[k] = 0.0;
}

// Normal equations with dense columns apart, and the equality rows that depend on others
// taken out of the internal form and of M.
linalg::Status setup_normal_equations(StandardForm& sf, const IpOptions& opt, const linalg::LogSink* chol_sink,
                                      NormalEquations& ne) {
  NormalEquationsSetup nes;
  nes.off_col_trh = opt.off_col_trh;
  nes.dense_col_limit = opt.dense_col_limit;
  nes.order_method = opt.order_method;
  nes.num_threads = opt.num_threads;
  nes.sink = chol_sink;
  const linalg::Status st = ne.setup(sf, nes);
  if (st != linalg::Status::kOk) return st;
  std::vector<int32_t> dependent;
  if (ne.find_dependent_rows(dependent) == linalg::Status::kOk && !dependent.empty()) {
    remove_rows(sf, dependent);
    ne.remove_rows(dependent);
    linalg::log_printf(&opt.log, 2, "Removed %d linearly dependent equality rows.\n",
                       static_cast<int>(dependent.size()));
  }
  return st;
}

void run(const LpProblem& p, const IpOptions& opt, IpResult& r, double t0) {
  const linalg::LogSink* sink = &opt.log;
  StandardForm sf;
  std::string why;
  if (!build_standard_form(p, sf, &why)) {
    linalg::log_printf(sink, 1, "Invalid problem data: %s.\n", why.c_str());
    r.termination = Termination::kModelError;
    return;
  }
  std::vector<double> rs, cs;
  scale_problem(sf, opt.scaling, rs, cs);
  bool augmented = sf.has_q() && (opt.kkt_form == 1 || sf.q_offdiagonal());
  linalg::LogSink chol_sink = opt.log;
  chol_sink.level = opt.factor_log_level;
  AugmentedSystem aug;
  NormalEquations ne;
  KktSolver* kkt = &ne;
  linalg::Status st = linalg::Status::kOk;
  if (!augmented) {
    st = setup_normal_equations(sf, opt, &chol_sink, ne);
    // A quadratic objective has the augmented system, which keeps long columns in its factor,
    // instead of a low-rank update of the normal equations.
    augmented = st == linalg::Status::kOk && sf.has_q() && ne.num_dense() > 0;
  }
  if (augmented) {
    AugmentedSetup as;
    as.order_method = opt.order_method;
    as.num_threads = opt.num_threads;
    as.sink = &chol_sink;
    st = aug.setup(sf, as);
    kkt = &aug;
    linalg::log_printf(sink, 2, "The augmented system carries the quadratic term.\n");
  }
  if (st != linalg::Status::kOk) {
    linalg::log_printf(sink, 1, "Error while computing factorization. resp: %d\n",
                       static_cast<int>(st));
    r.termination = st == linalg::Status::kOutOfSpace ? Termination::kOutOfSpace
                                                      : Termination::kFactorError;
    return;
  }
  log_factor_summary(sink, *kkt);
  r.dense_dim = kkt->num_dense();
  r.factor_nnz = kkt->cholesky().nnz_l();
  r.factor_flops = kkt->factor_flops();
  r.order_time = kkt->cholesky().ordering().ml_time + kkt->cholesky().ordering().gp_time;

  HomogeneousSolver solver(sf, rs, cs, opt, t0);
  HsdOutcome o;
  solver.run(*kkt, o);
  r.problem_status = static_cast<ProblemStatus>(o.problem_status);
  r.solution_status = static_cast<SolutionStatus>(o.solution_status);
  r.termination = o.termination;
  r.iterations = o.iterations;
  r.primal_feas = o.primal_feas;
  r.dual_feas = o.dual_feas;
  const int32_t sol = o.solution_status;
  RecoverKind kind = RecoverKind::kSolution;
  if (sol == 5 || sol == 12) kind = RecoverKind::kDualRay;
  if (sol == 6 || sol == 13) kind = RecoverKind::kPrimalRay;
  unscale(sf, rs, cs, o, kind == RecoverKind::kSolution ? std::max(o.tau, 1e-300) : 1.0);
  const InternalPoint pt{o.x.data(), o.y.data(), o.s.data(), o.v.data()};
  recover(p, sf, pt, kind, r);
  const bool with_const = kind == RecoverKind::kSolution;
  r.primal_obj = primal_objective(p, r, with_const);
  r.dual_obj = dual_objective(p, r, with_const);
}

}  // namespace

void solve_lp(const LpProblem& problem, const IpOptions& options, IpResult& result) {
  const double t0 = linalg::wall_seconds();
  result = IpResult();
  result.num_threads = options.num_threads;
  // Every dense kernel of the run, not only the factorization's, keeps to the run's threads:
  // an idle BLAS worker would otherwise spin on the other cores.
  const int blas_threads = linalg::dense::blas_set_threads(std::max(1, options.num_threads));
  try {
    run(problem, options, result, t0);
    // The dense-column update can lose accuracy for good; a run that ends without a status
    // is repeated with every column in the factor.
    const bool lost = result.solution_status == SolutionStatus::kUnknown &&
                      (result.termination == Termination::kStalled ||
                       result.termination == Termination::kNumericalInstability);
    if (lost && result.dense_dim > 0) {
      linalg::log_printf(&options.log, 1, "Restart with the dense columns in the factor.\n");
      IpOptions again = options;
      again.off_col_trh = 0;
      const int32_t iterations = result.iterations;
      result = IpResult();
      result.num_threads = options.num_threads;
      run(problem, again, result, t0);
      result.iterations += iterations;
    }
  } catch (const std::bad_alloc&) {
    result.termination = Termination::kOutOfSpace;
  }
  if (blas_threads > 0) linalg::dense::blas_set_threads(blas_threads);
  result.time = linalg::wall_seconds() - t0;
}

}  // namespace qubor::interior
