// Substitutions: free and implied-free column singletons, doubleton equations, and the
// eliminator for free columns with fill control. All go through Presolver::substitute.
//
// x_j is implied free when the rows it appears in, with the bounds of their other columns,
// already keep x_j inside [l_j, u_j]; its own bounds can then be dropped and x_j expressed
// through one equality row. A column singleton in an inequality row: with y_i = c_j / a_ij
// the optimum puts the row on the side that sign of y_i allows, so the row is fixed there
// first. A singleton that is not implied free is a slack when it has no cost or its row is
// an equality: its range widens the row's sides (its cost moves to the row's other columns)
// and it goes. Doubleton equation a_j x_j + a_k x_k = b: x_j's bounds move to x_k, then x_j is
// substituted. Integer columns are never substituted out.
#include <algorithm>
#include <cmath>
#include <optional>

#include "presolve/presolver.h"

namespace qubor::presolve {

namespace {

// Smallest |pivot| accepted relative to the largest entry it is compared with.
constexpr double kPivotTol = 1e-2;

// Bounds of x_j implied by row i: a x_j = activity - rest, activity in [rl, ru]. The rest
// may use bounds implied by rows without x_j (b, when given). Only the sides asked for are
// computed (the others come back infinite), and the scan stops once they are known to be
// infinite.
void implied_bounds(const WorkProblem& w, const ImpliedBounds* b, int32_t i, int32_t j, double a, bool want_lo,
                    bool want_hi, double& lo, double& hi) {
  lo = -kInf;
  hi = kInf;
  // a > 0: the lower bound comes from rl and the rest's maximum, the upper from ru and its
  // minimum; a < 0 swaps them.
  bool use_max = (a > 0 ? want_lo : want_hi) && finite(w.rl[i]);
  bool use_min = (a > 0 ? want_hi : want_lo) && finite(w.ru[i]);
  ActivityBounds rest;
  for (const Entry& e : w.rows[i]) {
    if (!use_max && !use_min) return;
    if (e.index == j) continue;
    const double l = w.usable_lower(b, e.index, i), u = w.usable_upper(b, e.index, i);
    const double tmin = e.value > 0 ? l : u, tmax = e.value > 0 ? u : l;
    if (finite(tmin)) rest.min += e.value * tmin; else use_min = false;
    if (finite(tmax)) rest.max += e.value * tmax; else use_max = false;
  }
  const double t_lo = use_max ? w.rl[i] - rest.max : -kInf;  // a x_j >= t_lo
  const double t_hi = use_min ? w.ru[i] - rest.min : kInf;   // a x_j <= t_hi
  if (a > 0) {
    lo = finite(t_lo) ? t_lo / a : -kInf;
    hi = finite(t_hi) ? t_hi / a : kInf;
  } else {
    lo = finite(t_hi) ? t_hi / a : -kInf;
    hi = finite(t_lo) ? t_lo / a : kInf;
  }
}

double max_abs(const Vec<Entry>& list) {
  double v = 0.0;
  for (const Entry& e : list) v = std::max(v, std::fabs(e.value));
  return v;
}

}  // namespace

// True when x_j stays within its bounds on every point satisfying its rows (and the rows
// that imply the bounds in b).
static bool implied_free(const WorkProblem& w, const ImpliedBounds* b, int32_t j, double tol) {
  const bool need_lo = finite(w.l[j]), need_hi = finite(w.u[j]);
  bool have_lo = !need_lo, have_hi = !need_hi;
  if (have_lo && have_hi) return true;
  if (b != nullptr) b->mark_column(w.cols[j], w.m);
  for (const Entry& e : w.cols[j]) {
    double rlo, rhi;
    implied_bounds(w, b, e.index, j, e.value, !have_lo, !have_hi, rlo, rhi);
    have_lo = have_lo || rlo >= w.l[j] - scaled_tol(tol, w.l[j]);
    have_hi = have_hi || rhi <= w.u[j] + scaled_tol(tol, w.u[j]);
    if (have_lo && have_hi) return true;
  }
  return false;
}

namespace {

// A quick necessary condition for implied_free: the activity range of every row over the
// tightest bounds of its columns (from b, but for bounds the row itself implies), as at the
// start of a sweep, gives x_j the tightest range the exact test could find. Columns whose bounds even that range does not
// imply are not tested further; rows changed since are left to the exact test, except rows
// that only lost a column through drop_column. A row's range is summed when first needed.
class OptimisticActivity {
 public:
  OptimisticActivity(const WorkProblem& w, const ImpliedBounds& b, ScreenStorage& storage)
      : w_(w), b_(b), act_(storage.act), scale_min_(storage.scale_min), scale_max_(storage.scale_max),
        done_(storage.done), valid_at_(storage.valid_at) {
    const auto m = static_cast<size_t>(w.m);
    act_.assign(m, ActivityBounds{});
    scale_min_.assign(m, 0.0);
    scale_max_.assign(m, 0.0);
    done_.assign(m, 0);
    valid_at_.assign(m, w.clock);
  }

  bool may_be_implied_free(int32_t j) const {
    const bool need_lo = finite(w_.l[j]), need_hi = finite(w_.u[j]);
    double lo = -kInf, hi = kInf;
    for (const Entry& e : w_.cols[j]) {
      const int32_t i = e.index;
      if (!current(i)) return true;
      const ActivityBounds& a = row(i);
      double tmin, tmax;
      term(j, e.value, i, tmin, tmax);
      // The rest of the row without x_j's term.
      const double rest_min = finite(tmin) ? (a.min_inf == 0 ? a.min - tmin : -kInf) : (a.min_inf == 1 ? a.min : -kInf);
      const double rest_max = finite(tmax) ? (a.max_inf == 0 ? a.max - tmax : kInf) : (a.max_inf == 1 ? a.max : kInf);
      // Margins well above the rounding of the sums: the exact test decides near the bounds.
      const double t_lo = finite(w_.rl[i]) && finite(rest_max)
                              ? w_.rl[i] - rest_max - 1e-14 * (1.0 + scale_max_[static_cast<size_t>(i)])
                              : -kInf;
      const double t_hi = finite(w_.ru[i]) && finite(rest_min)
                              ? w_.ru[i] - rest_min + 1e-14 * (1.0 + scale_min_[static_cast<size_t>(i)])
                              : kInf;
      lo = std::max(lo, e.value > 0 ? t_lo / e.value : t_hi / e.value);
      hi = std::min(hi, e.value > 0 ? t_hi / e.value : t_lo / e.value);
    }
    return (!need_lo || lo >= w_.l[j] - 1e-6 * (1.0 + std::fabs(w_.l[j]))) &&
           (!need_hi || hi <= w_.u[j] + 1e-6 * (1.0 + std::fabs(w_.u[j])));
  }

  // Column j (entry a in row i) is about to leave row i while the bounds of the row's other
  // columns stay: call before the change, and dropped_column(i) after it. The range of a
  // row that was current loses the column's term instead of going stale.
  bool drop_column(int32_t i, int32_t j, double a) {
    if (!current(i)) return false;
    row(i);  // summed now, while it still holds x_j
    const auto k = static_cast<size_t>(i);
    ActivityBounds& r = act_[k];
    double lo, hi;
    term(j, a, i, lo, hi);
    if (finite(lo)) r.min -= lo, scale_min_[k] -= std::fabs(lo); else --r.min_inf;
    if (finite(hi)) r.max -= hi, scale_max_[k] -= std::fabs(hi); else --r.max_inf;
    return true;
  }
  void dropped_column(int32_t i) { valid_at_[static_cast<size_t>(i)] = w_.clock; }

 private:
  // Whether row i is as when its range was (or will be) summed.
  bool current(int32_t i) const { return !w_.row_changed_since(i, valid_at_[static_cast<size_t>(i)]); }

  // The range of row i, which must be current.
  const ActivityBounds& row(int32_t i) const {
    const auto k = static_cast<size_t>(i);
    if (done_[k]) return act_[k];
    done_[k] = 1;
    ActivityBounds& a = act_[k];
    for (const Entry& e : w_.rows[k]) {
      double lo, hi;
      term(e.index, e.value, i, lo, hi);
      if (finite(lo)) a.min += lo, scale_min_[k] += std::fabs(lo); else ++a.min_inf;
      if (finite(hi)) a.max += hi, scale_max_[k] += std::fabs(hi); else ++a.max_inf;
    }
    return a;
  }

  // Least and largest value of a x_k over its tightest bounds but those row i implies (no
  // test of a column through row i may use them).
  void term(int32_t k, double a, int32_t i, double& lo, double& hi) const {
    const double l = b_.lo_row[k] != i ? std::max(w_.l[k], b_.lo[k]) : w_.l[k];
    const double u = b_.hi_row[k] != i ? std::min(w_.u[k], b_.hi[k]) : w_.u[k];
    lo = a > 0 ? a * l : a * u;
    hi = a > 0 ? a * u : a * l;
  }

  const WorkProblem& w_;
  const ImpliedBounds& b_;
  Vec<ActivityBounds>& act_;
  Vec<double>& scale_min_;  // sums of the magnitudes of the finite terms
  Vec<double>& scale_max_;
  Vec<uint8_t>& done_;
  Vec<uint64_t>& valid_at_;  // clock at which each row's range holds
};

}  // namespace

int32_t Presolver::column_singletons() {
  int32_t count = 0;
  std::optional<OptimisticActivity> screen;
  int64_t tested = 0;  // entries read by the exact tests so far
  for (int32_t j = 0; j < w_.n && can_reduce(); ++j) {
    if (!w_.col_active[j] || w_.integer(j) || w_.cols[j].size() != 1) continue;
    // A singleton left alone is looked at again once it or its row changed.
    if (!w_.col_neighbourhood_changed_since(j, singleton_tested_[j])) continue;
    singleton_tested_[j] = w_.clock;
    const int32_t i = w_.cols[j].front().index;
    const double a = w_.cols[j].front().value;
    if (w_.rows[i].size() < 2) continue;
    // Many singletons may share a row: the screen reads the row's totals, not the row. It
    // costs a sweep, worth it after some rows' worth of singleton tests.
    if (!screen && (tested += static_cast<int64_t>(w_.rows[i].size())) > w_.nnz / 8) {
      w_.own_bounds(own_bounds_);
      screen.emplace(w_, own_bounds_, screen_);
    }
    const bool free_col = (!screen || screen->may_be_implied_free(j)) && implied_free(w_, nullptr, j, opt_.tol_x);
    if (!free_col || std::fabs(a) < kPivotTol * max_abs(w_.rows[i])) {
      if (w_.c[j] == 0.0 || (w_.rl[i] == w_.ru[i] && absorb_costly_)) {
        // Only the row's sides and the other columns' costs change: the screen keeps the
        // row's range, less x_j's term.
        const bool kept = screen && screen->drop_column(i, j, a);
        absorb_slack_column(j, i);
        if (kept) screen->dropped_column(i);
        ++count;
      }
      continue;
    }
    int32_t key = kKeyFixed;
    if (w_.rl[i] != w_.ru[i]) {
      // The row's dual is y_i = c_j / a; the row settles on the side that sign allows.
      const double y = w_.c[j] / a;
      const bool lower = y > 0 || (y == 0 && finite(w_.rl[i]));
      const double side = lower ? w_.rl[i] : w_.ru[i];
      if (!finite(side)) {
        if (y == 0) continue;  // a free row; removed elsewhere
        set_status(PresolveStatus::kDualInfeasible);
        return count;
      }
      w_.rl[i] = w_.ru[i] = side;
      w_.touch_row(i);
      key = lower ? kKeyLower : kKeyUpper;
    }
    substitute(j, i, key, -1, 0.0, 0.0);
    ++count;
  }
  return count;
}

int32_t Presolver::doubleton_equations() {
  int32_t count = 0;
  for (int32_t i = 0; i < w_.m && can_reduce(); ++i) {
    if (!w_.row_active[i] || w_.rows[i].size() != 2 || w_.rl[i] != w_.ru[i]) continue;
    Entry e0 = w_.rows[i][0], e1 = w_.rows[i][1];
    // Eliminate the continuous column with the shorter list, pivot permitting.
    auto usable = [&](const Entry& e, const Entry& o) {
      return !w_.integer(e.index) && std::fabs(e.value) >= kPivotTol * std::fabs(o.value);
    };
    const bool ok0 = usable(e0, e1), ok1 = usable(e1, e0);
    if (!ok0 && !ok1) continue;
    if (!ok0 || (ok1 && w_.cols[e1.index].size() < w_.cols[e0.index].size())) std::swap(e0, e1);
    const int32_t j = e0.index, k = e1.index;
    const double aj = e0.value, ak = e1.value, b = w_.rl[i];
    // x_k = (b - aj x_j) / ak with x_j in [l_j, u_j].
    const double t_lo = aj > 0 ? aj * w_.l[j] : aj * w_.u[j];
    const double t_hi = aj > 0 ? aj * w_.u[j] : aj * w_.l[j];
    double lo = ak > 0 ? (b - t_hi) / ak : (b - t_lo) / ak;
    double hi = ak > 0 ? (b - t_lo) / ak : (b - t_hi) / ak;
    lo = round_lower(k, lo);
    hi = round_upper(k, hi);
    const double lkb = w_.l[k], ukb = w_.u[k];
    if (lo > lkb + scaled_tol(opt_.tol_x, lkb)) w_.l[k] = lo;
    if (hi < ukb - scaled_tol(opt_.tol_x, ukb)) w_.u[k] = hi;
    if (w_.l[k] > w_.u[k]) {
      if (!bounds_equal(w_.u[k], w_.l[k])) {
        set_status(PresolveStatus::kPrimalInfeasible);
        return count;
      }
      w_.l[k] = w_.u[k] = 0.5 * (w_.l[k] + w_.u[k]);
    }
    if (w_.l[k] != lkb || w_.u[k] != ukb) w_.touch_bounds(k);
    substitute(j, i, kKeyFixed, k, lkb, ukb);
    ++count;
  }
  return count;
}

// Free (or implied-free) columns are substituted out through the equality row whose
// elimination changes the number of nonzeros least: the entries of row i that rows of column
// j lack are new, column j and row i go.
namespace {

// The new entries are the pairs (r, t), r another row of x_j and t another column of row
// i, that row r lacks. Counted from whichever side reads less: the rows r, or the columns t
// (how many of the pairs already exist). Only whether the result is at most `limit`
// matters: above it, any larger value may be returned early.
int64_t net_fill(WorkProblem& w, int32_t j, int32_t i, int64_t limit) {
  const auto& col = w.cols[j];
  const auto& row = w.rows[i];
  const int64_t removed = static_cast<int64_t>(col.size() + row.size() - 1);
  // A row r shorter than row i lacks at least the difference.
  int64_t by_rows = 0, by_cols = 0, least = 0;
  for (const Entry& e : col) {
    if (e.index == i) continue;
    by_rows += static_cast<int64_t>(w.rows[e.index].size() + row.size());
    least += std::max<int64_t>(0, static_cast<int64_t>(row.size()) - static_cast<int64_t>(w.rows[e.index].size()));
  }
  if (least - removed > limit) return least - removed;
  for (const Entry& t : row)
    if (t.index != j) by_cols += static_cast<int64_t>(w.cols[t.index].size());
  int64_t added = 0;
  if (by_rows <= by_cols) {
    for (const Entry& e : col) {
      if (e.index == i) continue;
      for (const Entry& t : w.rows[e.index]) w.scratch[t.index] = 1;
      for (const Entry& t : row)
        if (t.index != j && w.scratch[t.index] < 0) ++added;
      for (const Entry& t : w.rows[e.index]) w.scratch[t.index] = -1;
      if (added - removed > limit) return added - removed;
    }
  } else {
    for (const Entry& e : col)
      if (e.index != i) w.row_scratch[e.index] = 1;
    int64_t present = 0;
    for (const Entry& t : row) {
      if (t.index == j) continue;
      for (const Entry& f : w.cols[t.index]) present += w.row_scratch[f.index] > 0 ? 1 : 0;
    }
    for (const Entry& e : col) w.row_scratch[e.index] = -1;
    added = static_cast<int64_t>(col.size() - 1) * static_cast<int64_t>(row.size() - 1) - present;
  }
  return added - removed;
}

}  // namespace

int32_t Presolver::eliminate_free_columns() {
  if (opt_.eliminator_max_num_tries == 0) return 0;
  // Automatic: bounded by the passes.
  const int32_t max_rounds = opt_.eliminator_max_num_tries < 0 ? 64 : opt_.eliminator_max_num_tries;
  if (eliminator_rounds_ >= max_rounds) return 0;
  ++eliminator_rounds_;
  const bool retest_all = eliminator_retest_all_;
  // Each round may read about a hundred times the nonzeros (counted generously: every row
  // of a column that has a short one); dense rows would make it quadratic.
  const int64_t budget = 100 * w_.nnz + 100000;
  int64_t work = 0;
  int32_t count = 0;
  // A substitution changes rows, whose implied bounds then no longer serve: the columns it
  // touched are tried again in a new sweep with fresh bounds, a few times per round.
  for (int sweep = 0; sweep < 4 && can_reduce() && work < budget; ++sweep) {
    const int32_t found = eliminator_sweep(budget, work);
    count += found;
    if (found == 0) break;
  }
  // Bounds implied through rows farther away than the stamps reach may have changed: the
  // first round that finds nothing has the next one look at every column again. Once is
  // enough: later full retests found nothing more on any model tried.
  eliminator_retest_all_ = count == 0 && !retest_all && !eliminator_retested_all_;
  if (eliminator_retest_all_) {
    std::fill(eliminator_tested_.begin(), eliminator_tested_.end(), 0);
    eliminator_retested_all_ = true;
  }
  return count;
}

int32_t Presolver::eliminator_sweep(int64_t budget, int64_t& work) {
  const int64_t max_fill = opt_.eliminator_max_fill < 0 ? 2 : opt_.eliminator_max_fill;
  // The activity column of an inequality keeps its entries and may stay, so those
  // substitutions get less room.
  const int64_t max_fill_activity = std::min<int64_t>(max_fill, 1);
  // The implied bounds are brought up to date when the first column that may pivot
  // somewhere is reached, not at all when none may.
  const ImpliedBounds& implied = implied_;
  std::optional<OptimisticActivity> optimistic;
  int32_t count = 0;
  // A round that runs out of work resumes where the previous one stopped.
  int32_t step = 0;
  for (; step < w_.n && can_reduce() && work < budget; ++step) {
    const int32_t j = (eliminator_cursor_ + step) % w_.n;
    if (!w_.col_active[j] || w_.integer(j) || w_.cols[j].size() < 2) continue;
    if (!w_.col_neighbourhood_changed_since(j, eliminator_tested_[j])) continue;
    eliminator_tested_[j] = w_.clock;
    const auto& col = w_.cols[j];
    // The product bounds the new entries of a pivot on row i; only promising pairs are
    // counted exactly.
    const auto fill_bound = [&](int32_t i) {
      return static_cast<int64_t>(w_.rows[i].size() - 1) * static_cast<int64_t>(col.size() - 1);
    };
    const double col_max = max_abs(col);
    const auto stable_and_short = [&](const Entry& e) {
      return std::fabs(e.value) >= kPivotTol * col_max && fill_bound(e.index) <= 400;
    };
    // Through an inequality x_j becomes the row's activity: the column stays, one entry
    // shorter. Of two entries, it is then a singleton that goes as a slack or singleton of
    // its last row; longer columns are turned only through doubleton rows, whose activity is
    // x_j shifted by one other column.
    const auto can_turn = [&](int32_t i) {
      return w_.rl[i] == w_.ru[i] || col.size() == 2 || w_.rows[i].size() == 2;
    };
    // Fill is counted only for columns that have a row they may pivot on and are implied
    // free; both tests are cheaper than counting fill.
    if (std::none_of(col.begin(), col.end(), [&](const Entry& e) { return fill_bound(e.index) <= 400; })) continue;
    for (const Entry& e : col) work += static_cast<int64_t>(w_.rows[e.index].size());
    if (std::none_of(col.begin(), col.end(), [&](const Entry& e) { return stable_and_short(e) && can_turn(e.index); }))
      continue;
    if (!optimistic) {
      w_.refresh_implied_bounds(implied_);
      optimistic.emplace(w_, implied, screen_);
    }
    if (!optimistic->may_be_implied_free(j) || !implied_free(w_, &implied, j, opt_.tol_x)) continue;
    int32_t best = -1;
    int64_t best_fill = max_fill + 1;
    for (const Entry& e : col) {
      const int32_t i = e.index;
      if (!stable_and_short(e)) continue;
      work += fill_bound(i) + static_cast<int64_t>(col.size() * w_.rows[i].size());
      if (!can_turn(i)) continue;
      const bool equality = w_.rl[i] == w_.ru[i];
      const int64_t extra = equality || col.size() == 2 ? 0 : static_cast<int64_t>(col.size() - 1);
      const int64_t cap = equality ? best_fill : std::min(best_fill, max_fill_activity);
      const int64_t fill = net_fill(w_, j, i, cap - extra) + extra;
      if (!equality && fill > max_fill_activity) continue;
      if (fill < best_fill || (fill == best_fill && equality && best >= 0 && w_.rl[best] != w_.ru[best])) {
        best_fill = fill;
        best = i;
      }
    }
    if (best < 0) continue;
    if (w_.rl[best] == w_.ru[best]) substitute(j, best, kKeyFixed, -1, 0.0, 0.0);
    else substitute_activity(j, best);
    ++stats_.eliminated;
    ++count;
  }
  eliminator_cursor_ = w_.n > 0 ? (eliminator_cursor_ + step) % w_.n : 0;
  return count;
}

}  // namespace qubor::presolve
