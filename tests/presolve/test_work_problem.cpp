// The working problem under random changes: the implied bounds brought up to date after the
// changes equal those derived afresh, and adding a multiple of a row keeps both lists of every
// entry in step, including entries that cancel.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "roundtrip.h"
#include "presolve/work_problem.h"

namespace qubor::presolve::testing {
namespace {

// A random sparse LP with some infinite bounds and sides, small integer data so that sums
// cancel exactly now and then.
LpProblem random_problem(std::mt19937& rng, int32_t n, int32_t m) {
  std::uniform_int_distribution<int> val(-3, 3), pct(0, 99);
  DenseLp d = make_lp(n, m);
  for (int32_t j = 0; j < n; ++j) {
    d.c[j] = val(rng);
    d.l[j] = pct(rng) < 20 ? -kInfinity : -1 - pct(rng) % 3;
    d.u[j] = pct(rng) < 20 ? kInfinity : 1 + pct(rng) % 4;
  }
  for (int32_t i = 0; i < m; ++i) {
    for (int32_t j = 0; j < n; ++j)
      if (pct(rng) < 30) d.at(i, j) = val(rng);
    d.rl[i] = pct(rng) < 30 ? -kInfinity : -2 - pct(rng) % 5;
    d.ru[i] = pct(rng) < 30 ? kInfinity : 2 + pct(rng) % 5;
  }
  return to_sparse(d);
}

// A few changes of the kinds the reductions make, each stamped as they stamp theirs.
void change_at_random(std::mt19937& rng, WorkProblem& w) {
  std::uniform_int_distribution<int> pct(0, 99);
  const int32_t i = pct(rng) % w.m, r = pct(rng) % w.m, j = pct(rng) % w.n;
  switch (pct(rng) % 6) {
    case 0:  // a column's bounds tighten
      if (w.col_active[j]) {
        if (std::isfinite(w.u[j])) w.u[j] -= 0.5; else w.u[j] = 3.0;
        w.touch_bounds(j);
      }
      break;
    case 1:  // a row's sides move
      if (w.row_active[i]) {
        w.rl[i] = std::isfinite(w.rl[i]) ? -kInfinity : -1.0;
        w.touch_row(i);
      }
      break;
    case 2:  // a multiple of one row is added to another
      if (i != r && w.row_active[i] && w.row_active[r]) {
        const Vec<Entry> src(w.rows[i]);
        const int32_t skip = src.empty() ? -1 : src.front().index;
        w.add_scaled_row(r, src, skip, pct(rng) % 2 == 0 ? 1.0 : -1.0);
      }
      break;
    case 3:
      if (w.row_active[i]) w.remove_row(i);
      break;
    case 4:
      if (w.col_active[j]) w.remove_col(j);
      break;
    default:  // one entry changes
      if (w.row_active[i] && w.col_active[j]) w.add_to_entry(i, j, 1.0);
      break;
  }
}

TEST(WorkProblem, RefreshedImpliedBoundsEqualFreshOnes) {
  std::mt19937 rng(20261122);
  PresolveOptions opt;
  for (int trial = 0; trial < 200; ++trial) {
    const LpProblem p = random_problem(rng, 4 + trial % 9, 3 + trial % 7);
    WorkProblem w(p, opt);
    ImpliedBounds kept(opt.mem);
    w.refresh_implied_bounds(kept);
    for (int round = 0; round < 6; ++round) {
      for (int k = 0; k < 1 + round; ++k) change_at_random(rng, w);
      w.refresh_implied_bounds(kept);
      ImpliedBounds fresh(opt.mem);
      w.refresh_implied_bounds(fresh);
      ASSERT_TRUE(w.links_consistent()) << "trial " << trial;
      for (int32_t j = 0; j < w.n; ++j) {
        if (!w.col_active[j]) continue;
        ASSERT_EQ(kept.lo[j], fresh.lo[j]) << "trial " << trial << " round " << round << " column " << j;
        ASSERT_EQ(kept.hi[j], fresh.hi[j]) << "trial " << trial << " round " << round << " column " << j;
        ASSERT_EQ(kept.lo_row[j], fresh.lo_row[j]) << "trial " << trial << " column " << j;
        ASSERT_EQ(kept.hi_row[j], fresh.hi_row[j]) << "trial " << trial << " column " << j;
      }
      for (int32_t i = 0; i < w.m; ++i) {
        ASSERT_EQ(kept.has_activity[i], fresh.has_activity[i]) << "trial " << trial << " row " << i;
        if (!fresh.has_activity[i]) continue;
        EXPECT_EQ(kept.activity[i].min, fresh.activity[i].min);
        EXPECT_EQ(kept.activity[i].max_inf, fresh.activity[i].max_inf);
      }
    }
  }
}

TEST(WorkProblem, AddingARowMultipleCancelsAndFills) {
  // Row 1 += -1 * row 0: x0 cancels, x1 changes, x2 is new; the pivot column x3 is skipped.
  DenseLp d = make_lp(4, 2);
  set_row(d, 0, {{0, 1}, {1, 2}, {2, 5}, {3, 1}}, 0, 1);
  set_row(d, 1, {{0, 1}, {1, 1}, {3, 7}}, 0, 1);
  const LpProblem p = to_sparse(d);
  PresolveOptions opt;
  WorkProblem w(p, opt);
  const uint64_t before = w.clock;
  const Vec<Entry> src(w.rows[0]);
  w.add_scaled_row(1, src, 3, -1.0);
  EXPECT_TRUE(w.links_consistent());
  EXPECT_EQ(w.coef(1, 0), 0.0);
  EXPECT_EQ(w.coef(1, 1), -1.0);
  EXPECT_EQ(w.coef(1, 2), -5.0);
  EXPECT_EQ(w.coef(1, 3), 7.0);
  EXPECT_EQ(w.rows[1].size(), 3u);
  EXPECT_EQ(w.cols[0].size(), 1u);
  EXPECT_EQ(w.nnz, 7);
  EXPECT_TRUE(w.row_changed_since(1, before));
  EXPECT_FALSE(w.row_changed_since(0, before));
  for (int32_t j = 0; j < 3; ++j) EXPECT_TRUE(w.col_neighbourhood_changed_since(j, before));
  for (int32_t j = 0; j < 4; ++j) EXPECT_EQ(w.scratch[j], -1);
}

}  // namespace
}  // namespace qubor::presolve::testing
