// The presolve driver: passes over the reductions, the reduced problem, the log and postsolve.
//
// A pass runs the cheap reductions (empty, fixed, singleton, forcing/redundant, dominated,
// column singletons, zero-cost columns between two rows, doubletons); when a pass changes
// nothing the expensive ones follow (duplicates, the linear dependency check once, the
// eliminator) and passes continue while anything changes, up to max_num_pass (64 when
// automatic) and max_num_reductions. Once even those find nothing, singletons with a cost
// in equality rows are allowed to go as well (they would take equalities away from the
// eliminator earlier), and the passes resume.
#include "presolve/presolve.h"

#include <algorithm>
#include <cassert>

#include "platform/text.h"
#include "presolve/presolver.h"

namespace qubor::presolve {

void LpSolution::resize(int32_t n, int32_t m) {
  const auto nn = static_cast<size_t>(n), mm = static_cast<size_t>(m);
  xx.assign(nn, 0.0);
  slx.assign(nn, 0.0);
  sux.assign(nn, 0.0);
  skx.assign(nn, kKeyUnknown);
  xc.assign(mm, 0.0);
  y.assign(mm, 0.0);
  slc.assign(mm, 0.0);
  suc.assign(mm, 0.0);
  skc.assign(mm, kKeyUnknown);
}

PresolveResult::PresolveResult(std::pmr::memory_resource* mem, size_t expected_bytes)
    : records_memory_(std::make_unique<platform::PrefaultedBuffer>(mem, expected_bytes)),
      reduced(records_memory_.get()), row_origin(records_memory_.get()), col_origin(records_memory_.get()),
      stack(std::make_unique<PostsolveStack>(mem, records_memory_.get())), mem_(mem) {}
PresolveResult::~PresolveResult() = default;
PresolveResult::PresolveResult(PresolveResult&&) noexcept = default;

Presolver::Presolver(const LpProblem& p, const PresolveOptions& opt, PostsolveStack& stack, PresolveStats& stats)
    : w_(p, opt), opt_(opt), stack_(stack), stats_(stats), implied_(&w_.memory), own_bounds_(&w_.memory),
      screen_(&w_.memory), row_finder_(p.m, p.n, &w_.memory), col_finder_(p.n, p.m, &w_.memory),
      dual_box_(&w_.memory), dual_box_rows_(&w_.memory), dual_source_(&w_.memory),
      eliminator_tested_(static_cast<size_t>(p.n), 0, &w_.memory),
      singleton_tested_(static_cast<size_t>(p.n), 0, &w_.memory),
      slack_records_(static_cast<size_t>(p.m), SlackRecord{}, &w_.memory) {}

PresolveStatus Presolver::run(const LogSink* log) {
  const int32_t max_pass = opt_.max_num_pass < 0 ? 64 : opt_.max_num_pass;
  // Runs one family and charges its time.
  using F = PresolveStats::Family;
  const auto timed = [this](F k, int32_t (Presolver::*family)()) {
    const double t0 = platform::wall_seconds();
    const int32_t changed = (this->*family)();
    stats_.family_time[k] += platform::wall_seconds() - t0;
    return changed;
  };
  timed(F::kBounds, &Presolver::tighten_bounds);
  bool lindep_done = !opt_.lindep_use;
  for (int32_t pass = 0; pass < max_pass && can_reduce(); ++pass) {
    ++stats_.passes;
    int32_t changed = timed(F::kEmpty, &Presolver::remove_empty_rows);
    changed += timed(F::kFixed, &Presolver::remove_fixed_and_empty_columns);
    changed += timed(F::kSingletonRows, &Presolver::singleton_rows);
    changed += timed(F::kFixed, &Presolver::remove_fixed_and_empty_columns);
    changed += timed(F::kForcing, &Presolver::forcing_and_redundant_rows);
    // The dual bounds take whole sweeps: after the first pass they are recomputed only once
    // the cheap reductions have run dry, and only when something changed since. In the
    // first pass they follow the column singletons, which may remove many columns and
    // would otherwise call for a second sweep soon.
    changed += timed(F::kColumnSingletons, &Presolver::column_singletons);
    if (pass == 0) changed += timed(F::kDominated, &Presolver::dominated_columns);
    changed += timed(F::kFourierMotzkin, &Presolver::fourier_motzkin_columns);
    changed += timed(F::kDoubletons, &Presolver::doubleton_equations);
    if (changed > 0) continue;
    if (w_.clock != dominated_clock_) {
      changed = timed(F::kDominated, &Presolver::dominated_columns);
      if (changed > 0) continue;
    }
    changed += timed(F::kDuplicateRows, &Presolver::duplicate_rows);
    changed += timed(F::kDuplicateColumns, &Presolver::duplicate_columns);
    if (!lindep_done && can_reduce()) {
      linalg::log_printf(log, 2, "Linear dependency checker started.\n");
      changed += timed(F::kLindep, &Presolver::linear_dependent_rows);
      lindep_done = true;
      linalg::log_printf(log, 2, "Linear dependency checker terminated.\n");
    }
    if (can_reduce()) changed += timed(F::kEliminator, &Presolver::eliminate_free_columns);
    if (changed == 0 && stats_.reductions != reductions_at_full_sweep_) {
      // The incremental sweeps see changes in a row or its columns only; bounds implied
      // through rows farther away are caught by a full sweep before presolve settles.
      reductions_at_full_sweep_ = stats_.reductions;
      forcing_clock_ = 0;
      forcing_settle_ = true;
      changed = timed(F::kForcing, &Presolver::forcing_and_redundant_rows);
      forcing_settle_ = false;
      if (changed > 0) continue;
    }
    if (changed == 0) {
      if (absorb_costly_) break;
      absorb_costly_ = true;
      // Only singletons with a cost in an equality row have something new to try.
      for (int32_t j = 0; j < w_.n; ++j) {
        if (!w_.col_active[j] || w_.cols[j].size() != 1 || w_.c[j] == 0.0) continue;
        const int32_t i = w_.cols[j].front().index;
        if (w_.rl[i] == w_.ru[i]) singleton_tested_[j] = 0;
      }
    }
  }
  if (can_reduce()) {
    remove_empty_rows();
    remove_fixed_and_empty_columns();
  }
  assert(w_.links_consistent());
  stats_.lindep_time = stats_.family_time[F::kLindep];
  stats_.eli_time = stats_.family_time[F::kEliminator];
  return status_;
}

namespace {

// The active part of the working problem as an LpProblem, columns sorted by row.
void build_reduced(const WorkProblem& w, PresolveResult& r) {
  Vec<int32_t> new_row(static_cast<size_t>(w.m), -1, r.row_origin.get_allocator().resource());
  platform::reserve_prefaulted(r.row_origin, static_cast<size_t>(w.active_rows));
  for (int32_t i = 0; i < w.m; ++i) {
    if (!w.row_active[i]) continue;
    new_row[i] = static_cast<int32_t>(r.row_origin.size());
    r.row_origin.push_back(i);
  }
  LpProblem& p = r.reduced;
  p.m = static_cast<int32_t>(r.row_origin.size());
  // Exact sizes, faulted in at once.
  platform::reserve_prefaulted(p.rowind, static_cast<size_t>(w.nnz));
  platform::reserve_prefaulted(p.val, static_cast<size_t>(w.nnz));
  platform::reserve_prefaulted(p.colptr, static_cast<size_t>(w.active_cols) + 1);
  for (auto* v : {&p.c, &p.l, &p.u}) platform::reserve_prefaulted(*v, static_cast<size_t>(w.active_cols));
  for (auto* v : {&p.rl, &p.ru}) platform::reserve_prefaulted(*v, static_cast<size_t>(w.active_rows));
  platform::reserve_prefaulted(r.col_origin, static_cast<size_t>(w.active_cols));
  for (int32_t i : r.row_origin) {
    p.rl.push_back(w.rl[i]);
    p.ru.push_back(w.ru[i]);
  }
  p.c0 = w.c0;
  Vec<Entry> col(r.row_origin.get_allocator().resource());
  for (int32_t j = 0; j < w.n; ++j) {
    if (!w.col_active[j]) continue;
    r.col_origin.push_back(j);
    p.c.push_back(w.c[j]);
    p.l.push_back(w.l[j]);
    p.u.push_back(w.u[j]);
    if (!w.is_int.empty()) p.is_int.push_back(w.is_int[j]);
    col.assign(w.cols[j].begin(), w.cols[j].end());
    std::sort(col.begin(), col.end(), [](const Entry& a, const Entry& b) { return a.index < b.index; });
    for (const Entry& e : col) {
      p.rowind.push_back(new_row[e.index]);
      p.val.push_back(e.value);
    }
    p.colptr.push_back(static_cast<int64_t>(p.rowind.size()));
  }
  p.n = static_cast<int32_t>(r.col_origin.size());
}

void copy_problem(const LpProblem& from, LpProblem& to) {
  to.n = from.n;
  to.m = from.m;
  to.colptr.assign(from.colptr.begin(), from.colptr.end());
  to.rowind.assign(from.rowind.begin(), from.rowind.end());
  to.val.assign(from.val.begin(), from.val.end());
  to.c.assign(from.c.begin(), from.c.end());
  to.c0 = from.c0;
  to.l.assign(from.l.begin(), from.l.end());
  to.u.assign(from.u.begin(), from.u.end());
  to.rl.assign(from.rl.begin(), from.rl.end());
  to.ru.assign(from.ru.begin(), from.ru.end());
  to.is_int.assign(from.is_int.begin(), from.is_int.end());
}

void log_summary(const LogSink* log, const PresolveStats& s, PresolveStatus status) {
  using linalg::log_printf;
  if (s.eliminated > 0 || s.eli_time > 0)
    log_printf(log, 1, "Eliminator - tries                  : %-10d time                   : %.2f\n",
               s.eliminated, s.eli_time);
  if (s.lindep_time > 0 || s.lindep_rows > 0)
    log_printf(log, 1, "Lin. dep.  - tries                  : %-10d number                 : %d\n", 1,
               s.lindep_rows);
  if (s.lindep_incomplete) log_printf(log, 1, "Lin. dep.  - check stopped at its work limit.\n");
  log_printf(log, 1, "Presolve terminated. Time: %.2f\n", s.time);
  log_printf(log, 2, "  %-24s: %d\n", "Passes", s.passes);
  log_printf(log, 2, "  %-24s: %lld\n", "Reductions", static_cast<long long>(s.reductions));
  log_printf(log, 1, "  %-24s: %d\n", "Constraints removed", s.rows_before - s.rows_after);
  log_printf(log, 1, "  %-24s: %d\n", "Variables removed", s.cols_before - s.cols_after);
  log_printf(log, 1, "  %-24s: %lld\n", "Nonzeros removed", static_cast<long long>(s.nnz_before - s.nnz_after));
  if (status == PresolveStatus::kPrimalInfeasible) log_printf(log, 1, "Presolve: the problem is primal infeasible.\n");
  if (status == PresolveStatus::kDualInfeasible) log_printf(log, 1, "Presolve: the problem is dual infeasible.\n");
}

}  // namespace

PresolveResult presolve(LpProblem input, const PresolveOptions& options, const LogSink* log) {
  const double t0 = platform::wall_seconds();
  // The reduced problem is at most the input; the records take about as much again.
  PresolveResult r(options.mem, 24 * static_cast<size_t>(input.nnz()) + 64 * static_cast<size_t>(input.n + input.m));
  PostsolveStack& stack = *r.stack;
  // The stack keeps the input for postsolve; moved when the memory resources agree.
  stack.original = std::move(input);
  const LpProblem& problem = stack.original;
  stack.tol_x = std::max(10.0 * options.tol_x, 1e-7);
  PresolveStats& s = r.stats;
  s.rows_before = problem.m;
  s.cols_before = problem.n;
  s.nnz_before = problem.nnz();
  if (options.use == 0) {
    copy_problem(problem, r.reduced);
    for (int32_t i = 0; i < problem.m; ++i) r.row_origin.push_back(i);
    for (int32_t j = 0; j < problem.n; ++j) r.col_origin.push_back(j);
  } else {
    linalg::log_printf(log, 1, "Presolve started.\n");
    Presolver engine(problem, options, stack, s);
    s.family_time[PresolveStats::kSetup] = platform::wall_seconds() - t0;
    r.status = engine.run(log);
    const double t1 = platform::wall_seconds();
    if (r.status == PresolveStatus::kReduced) build_reduced(engine.problem(), r);
    s.family_time[PresolveStats::kReducedProblem] = platform::wall_seconds() - t1;
  }
  s.rows_after = r.reduced.m;
  s.cols_after = r.reduced.n;
  s.nnz_after = r.reduced.nnz();
  if (r.status == PresolveStatus::kReduced && r.reduced.m == 0 && r.reduced.n == 0) r.status = PresolveStatus::kSolved;
  s.time = platform::wall_seconds() - t0;
  if (options.use != 0) log_summary(log, s, r.status);
  return r;
}

LpSolution PresolveResult::postsolve(const LpSolution& rs) const {
  const LpProblem& p = stack->original;
  UndoState st(mem_);
  st.x.assign(static_cast<size_t>(p.n), 0.0);
  st.z.assign(static_cast<size_t>(p.n), 0.0);
  st.skx.assign(static_cast<size_t>(p.n), kKeyUnknown);
  st.y.assign(static_cast<size_t>(p.m), 0.0);
  st.skc.assign(static_cast<size_t>(p.m), kKeyUnknown);
  // Without keys from the optimizer, the kept items get keys from their values and duals.
  const bool keys = !rs.skx.empty();
  for (size_t k = 0; k < col_origin.size(); ++k) {
    const int32_t j = col_origin[k];
    st.x[j] = rs.xx[k];
    st.z[j] = rs.slx[k] - rs.sux[k];
    st.skx[j] = keys ? rs.skx[k] : stack->key_from_solution(st.x[j], st.z[j], reduced.l[k], reduced.u[k]);
  }
  Vec<double> act(reduced.rl.size(), 0.0, mem_);
  if (!keys) {
    for (int32_t k = 0; k < reduced.n; ++k)
      for (int64_t q = reduced.colptr[k]; q < reduced.colptr[k + 1]; ++q) act[reduced.rowind[q]] += reduced.val[q] * rs.xx[k];
  }
  for (size_t k = 0; k < row_origin.size(); ++k) {
    const int32_t i = row_origin[k];
    st.y[i] = rs.y[k];
    st.skc[i] = keys ? rs.skc[k] : stack->key_from_solution(act[k], st.y[i], reduced.rl[k], reduced.ru[k]);
  }
  stack->undo(st);
  LpSolution out(mem_);
  out.resize(p.n, p.m);
  for (int32_t j = 0; j < p.n; ++j) {
    out.xx[j] = st.x[j];
    out.slx[j] = std::max(st.z[j], 0.0);
    out.sux[j] = std::max(-st.z[j], 0.0);
    out.skx[j] = st.skx[j];
    for (int64_t q = p.colptr[j]; q < p.colptr[j + 1]; ++q) out.xc[p.rowind[q]] += p.val[q] * st.x[j];
  }
  for (int32_t i = 0; i < p.m; ++i) {
    out.y[i] = st.y[i];
    out.slc[i] = std::max(st.y[i], 0.0);
    out.suc[i] = std::max(-st.y[i], 0.0);
    out.skc[i] = st.skc[i];
  }
  return out;
}

}  // namespace qubor::presolve
