// The branch-and-bound framework's pieces: node comparison rules, the tree with its
// selectors, pseudocosts, domain propagation and the log's number formats.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "mio/cutpool.h"
#include "mio/domprop.h"
#include "mio/job.h"
#include "mio/node.h"
#include "mio/pseudocost.h"
#include "mio/relax.h"
#include "mio/search.h"
#include "mio/tree.h"

namespace {

using namespace qubor::mio;

Node make_node(int32_t depth, int64_t seq, double bound, uint64_t seed = 42) {
  Node n;
  n.depth = depth;
  n.seq = seq;
  n.key = seq;
  n.bound = bound;
  n.bound_valid = true;
  n.draw = tie_draw(depth, n.key, seq, seed);
  return n;
}

TEST(NodeOrder, BestBoundPutsNodesWithoutBoundFirstThenSmallerBoundThenNewer) {
  Node a = make_node(1, 1, 5.0), b = make_node(1, 2, 4.0);
  EXPECT_GT(compare(a, b, Rule::kBestBound), 0);
  EXPECT_LT(compare(b, a, Rule::kBestBound), 0);
  a.bound_valid = false;
  EXPECT_LT(compare(a, b, Rule::kBestBound), 0);
  b.bound_valid = false;
  EXPECT_LT(compare(a, b, Rule::kBestBound), 0);  // both without: a first
  EXPECT_LT(compare(b, a, Rule::kBestBound), 0);
  // Equal bounds: the newer node wins before estimates are looked at.
  Node c = make_node(1, 3, 4.0), d = make_node(1, 7, 4.0);
  c.estimate = 0.0;
  d.estimate = 10.0;
  c.estimate_valid = d.estimate_valid = true;
  EXPECT_GT(compare(c, d, Rule::kBestBound), 0);
}

TEST(NodeOrder, BestEstimateFallsBackToTheNewerNode) {
  Node a = make_node(1, 1, 0.0), b = make_node(1, 2, 0.0);
  a.estimate = 1.0;
  b.estimate = 2.0;
  a.estimate_valid = b.estimate_valid = true;
  EXPECT_LT(compare(a, b, Rule::kBestEstimate), 0);
  b.estimate = 1.0;  // tie of the keys: the newer node
  EXPECT_GT(compare(a, b, Rule::kBestEstimate), 0);
  b.estimate_valid = false;
  b.estimate = 0.0;
  EXPECT_GT(compare(a, b, Rule::kBestEstimate), 0);
}

TEST(NodeOrder, DepthFirstPrefersDeeperThenLargerKeyAndCallsEqualKeysEqual) {
  Node a = make_node(3, 1, 0.0), b = make_node(2, 9, 0.0);
  EXPECT_LT(compare(a, b, Rule::kDepthFirst), 0);
  b.depth = 3;
  EXPECT_GT(compare(a, b, Rule::kDepthFirst), 0);
  b.key = a.key;
  EXPECT_EQ(compare(a, b, Rule::kDepthFirst), 0);
}

TEST(NodeOrder, SeededTieBreakIsReproducibleAndDependsOnTheSeed) {
  // Nodes equal up to the draw: the same sequence number is impossible in one tree, so
  // compare draws of many (depth, key, seq) triples directly.
  int differ = 0;
  for (int64_t s = 0; s < 64; ++s) {
    EXPECT_EQ(tie_draw(2, s, s, 42), tie_draw(2, s, s, 42));
    if ((tie_draw(2, s, s, 42) < tie_draw(2, s + 1, s + 1, 42)) !=
        (tie_draw(2, s, s, 7) < tie_draw(2, s + 1, s + 1, 7)))
      ++differ;
  }
  EXPECT_GT(differ, 0);
  Node a = make_node(1, 5, 1.0), b = make_node(1, 5, 1.0);
  b.draw = a.draw + 1;
  EXPECT_LT(compare(a, b, Rule::kBestBound), 0);
}

TEST(TreeAndSelectors, DepthFirstSelectorTakesDeepestAndTracksTheBestBound) {
  Tree t(Rule::kDepthFirst);
  NodeSelector sel = make_depth_first_selector();
  EXPECT_EQ(sel.name, "NODESEL_DEPTH_FIRST");
  const int32_t a = t.add(make_node(1, 1, 3.0));
  const int32_t b = t.add(make_node(2, 2, 1.0));
  const int32_t c = t.add(make_node(2, 3, 2.0));
  EXPECT_EQ(t.num_open(), 3u);
  EXPECT_DOUBLE_EQ(t.best_bound(), 1.0);
  EXPECT_EQ(sel.ops->select(sel.data, t), c);  // depth 2, larger key
  EXPECT_EQ(sel.ops->select(sel.data, t), b);
  EXPECT_DOUBLE_EQ(t.best_bound(), 3.0);
  EXPECT_EQ(sel.ops->select(sel.data, t), a);
  EXPECT_EQ(sel.ops->select(sel.data, t), -1);
  EXPECT_TRUE(std::isinf(t.best_bound()));
}

TEST(TreeAndSelectors, InterleavedSelectorDivesThroughChildrenThenSiblingsThenTheQueue) {
  Tree t(Rule::kBestBound);
  NodeSelector sel = make_interleaved_selector({Rule::kBestBound, 1, 1});
  EXPECT_EQ(sel.name, "NODESEL_INTERLEAVED");
  const int32_t far = t.add(make_node(1, 1, 0.5));
  const int32_t c1 = t.add(make_node(3, 2, 2.0));
  const int32_t c2 = t.add(make_node(3, 3, 2.0));
  t.set_children({c1, c2});
  EXPECT_EQ(sel.ops->select(sel.data, t), c1);  // first found on equal depth
  EXPECT_TRUE(t.children().empty());
  ASSERT_EQ(t.siblings().size(), 1u);
  EXPECT_EQ(sel.ops->select(sel.data, t), c2);  // the sibling
  EXPECT_EQ(sel.ops->select(sel.data, t), far);  // lists empty: best bound
  EXPECT_EQ(t.num_open(), 0u);
}

TEST(TreeAndSelectors, PruneDropsNodesAtOrAboveTheCutoff) {
  Tree t(Rule::kBestBound);
  for (int k = 0; k < 10; ++k) t.add(make_node(1, k + 1, static_cast<double>(k)));
  EXPECT_EQ(t.prune(5.0), 5);
  EXPECT_EQ(t.num_open(), 5u);
  EXPECT_EQ(t.node(t.best(Rule::kBestBound)).bound, 0.0);
}

TEST(TreeAndSelectors, SameSeedSameOrderOfEqualNodes) {
  auto order = [](uint64_t seed) {
    Tree t(Rule::kBestBound);
    for (int k = 0; k < 20; ++k) {
      Node n = make_node(k % 3, k + 1, 1.0, seed);
      n.seq = 1;  // equal keys before the draw
      t.add(std::move(n));
    }
    std::vector<int32_t> ids;
    for (int32_t id; (id = t.best(Rule::kBestBound)) >= 0;) {
      ids.push_back(id);
      t.take(id);
    }
    return ids;
  };
  EXPECT_EQ(order(42), order(42));
  EXPECT_NE(order(42), order(43));
}

TEST(Pseudocosts, UpdateAndReadWithFallbacks) {
  PseudocostRecord local(3), shared(3);
  Pseudocosts pc(local, shared, 1e-6);
  EXPECT_DOUBLE_EQ(pc.get(0, true), 1.0);  // no observations at all
  pc.update(0, true, 2.25, 1.5);           // distance 0.75: unit gain 2
  EXPECT_DOUBLE_EQ(pc.get(0, true), 2.0);
  EXPECT_DOUBLE_EQ(pc.get(1, true), 2.0);  // the direction's average
  EXPECT_DOUBLE_EQ(pc.get(1, false), 1.0);
  pc.update(0, false, 2.25, -3.0);         // negative gains count as 0
  EXPECT_DOUBLE_EQ(pc.get(0, false), 0.0);
  shared.sum[1][0] = 4.0;
  shared.count[1][0] = 1;
  EXPECT_DOUBLE_EQ(pc.get(0, true), 3.0);  // both records are read
  EXPECT_EQ(pc.observations(0, true), 2);
}

// x0 + x1 + x2 <= 1.5 with binaries; 2 x3 - y >= 3 with x3 integer in [0, 10], y in [0, 4].
Problem small_problem() {
  qubor::interior::LpProblem lp;
  lp.num_row = 2;
  lp.num_col = 5;
  lp.col_ptr = {0, 1, 2, 3, 4, 5};
  lp.row_idx = {0, 0, 0, 1, 1};
  lp.values = {1, 1, 1, 2, -1};
  lp.c = {1, 1, 1, 1, 0};
  const double inf = std::numeric_limits<double>::infinity();
  lp.col_lo = {0, 0, 0, 0, 0};
  lp.col_up = {1, 1, 1, 10, 4};
  lp.row_lo = {-inf, 3};
  lp.row_up = {1.5, inf};
  Problem p;
  EXPECT_TRUE(make_problem(std::move(lp), {1, 1, 1, 1, 0}, p));
  return p;
}

TEST(Propagation, TightensAndRoundsIntegerBoundsAndDetectsInfeasibility) {
  Problem p = small_problem();
  EXPECT_EQ(p.num_bin, 3);
  EXPECT_EQ(p.num_int, 1);
  EXPECT_EQ(p.num_cont, 1);
  EXPECT_TRUE(p.integral_objective);  // integral costs, all on integer columns
  std::vector<EventHandler> handlers = make_event_handlers();
  ASSERT_EQ(handlers.size(), 1u);
  EXPECT_EQ(handlers[0].name, "Rounding propagation event handler");
  Propagator prop(p, &handlers);
  std::vector<double> lo = p.lp.col_lo, up = p.lp.col_up;
  lo[0] = 1.0;  // x0 = 1 forces x1 = x2 = 0 (1 + x1 + x2 <= 1.5 rounds to 0)
  std::vector<int32_t> seeds = {0};
  ASSERT_TRUE(prop.propagate(lo, up, &seeds));
  EXPECT_EQ(up[1], 0.0);
  EXPECT_EQ(up[2], 0.0);
  // 2 x3 >= 3 + y >= 3: x3 >= 2 after rounding 1.5 up.
  ASSERT_TRUE(prop.propagate(lo, up, nullptr));
  EXPECT_EQ(lo[3], 2.0);
  EXPECT_GT(handlers[0].calls, 0);
  up[3] = 1.0;
  EXPECT_FALSE(prop.propagate(lo, up, nullptr));
}

// Random knapsack rows over 8 binaries (both senses, mixed signs): every cover cut found for
// random fractional points holds at every feasible 0/1 point, enumerated.
TEST(KnapsackCover, CutsOffNoFeasibleIntegerPoint) {
  std::mt19937 rng(5);
  std::uniform_int_distribution<int> coef(-9, 15);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  const double inf = std::numeric_limits<double>::infinity();
  std::vector<Separator> seps = make_separators(SeparatorSwitches{true, false});
  ASSERT_EQ(seps.size(), 1u);
  EXPECT_EQ(seps[0].rec.name, "KNAPSACK_COVER");
  int checked = 0;
  for (int trial = 0; trial < 60; ++trial) {
    qubor::interior::LpProblem lp;
    lp.num_row = 2;
    lp.num_col = 8;
    lp.col_ptr.push_back(0);
    for (int j = 0; j < 8; ++j) {
      for (int i = 0; i < 2; ++i) {
        lp.row_idx.push_back(i);
        lp.values.push_back(coef(rng));
      }
      lp.col_ptr.push_back(static_cast<int64_t>(lp.row_idx.size()));
    }
    lp.c.assign(8, 0.0);
    lp.col_lo.assign(8, 0.0);
    lp.col_up.assign(8, 1.0);
    lp.row_lo = {-inf, static_cast<double>(coef(rng))};
    lp.row_up = {static_cast<double>(coef(rng) + 10), inf};
    Problem p;
    ASSERT_TRUE(make_problem(std::move(lp), std::vector<uint8_t>(8, 1), p));
    std::vector<std::vector<double>> feasible;
    for (int mask = 0; mask < 256; ++mask) {
      std::vector<double> x(8);
      for (int j = 0; j < 8; ++j) x[static_cast<size_t>(j)] = (mask >> j) & 1;
      if (violation(p, x.data()).row <= 1e-12) feasible.push_back(x);
    }
    for (int point = 0; point < 20; ++point) {
      std::vector<double> x(8);
      for (double& v : x) v = unit(rng);
      CutPool pool;
      seps[0].rec.ops->run(seps[0].rec.data, p, SeparationPoint{x, nullptr, p.lp.col_lo, p.lp.col_up}, 0, pool);
      for (const Cut& c : pool.select(100, 1.0)) {
        for (const auto& f : feasible) {
          double act = 0.0;
          for (size_t k = 0; k < c.idx.size(); ++k) act += c.val[k] * f[static_cast<size_t>(c.idx[k])];
          EXPECT_LE(act, c.up + 1e-9);
          EXPECT_GE(act, c.lo - 1e-9);
        }
        ++checked;
      }
    }
  }
  EXPECT_GT(checked, 50);
}

// Random small mixed-integer problems (5 integer columns in [0, 3] with negative lower
// bounds for some, one continuous column, three rows of both senses): the Gomory cuts of
// the optimal root basis hold at every feasible point of an enumeration over the integer
// columns (the continuous column at its best value for each cut).
TEST(GomoryCuts, CutOffNoFeasibleIntegerPoint) {
  std::mt19937 rng(11);
  std::uniform_int_distribution<int> coef(-5, 9);
  const double inf = std::numeric_limits<double>::infinity();
  std::vector<Separator> seps = make_separators(SeparatorSwitches{false, true});
  ASSERT_EQ(seps.size(), 1u);
  EXPECT_EQ(seps[0].rec.name, "GMI");
  int checked = 0;
  for (int trial = 0; trial < 80; ++trial) {
    qubor::interior::LpProblem lp;
    lp.num_row = 3;
    lp.num_col = 6;
    lp.col_ptr.push_back(0);
    for (int j = 0; j < 6; ++j) {
      for (int i = 0; i < 3; ++i) {
        lp.row_idx.push_back(i);
        lp.values.push_back(coef(rng) + (j == 5 ? 0.5 : 0.0));
      }
      lp.col_ptr.push_back(static_cast<int64_t>(lp.row_idx.size()));
      lp.c.push_back(-coef(rng) - 0.25 * j);
    }
    lp.col_lo = {0, 0, -1, 0, -2, 0};
    lp.col_up = {3, 3, 2, 3, 1, 4};
    lp.row_lo = {-inf, static_cast<double>(coef(rng)) - 6.0, -inf};
    lp.row_up = {static_cast<double>(coef(rng) + 8) + 0.5, inf, static_cast<double>(coef(rng) + 12)};
    Problem p;
    ASSERT_TRUE(make_problem(std::move(lp), {1, 1, 1, 1, 1, 0}, p));
    Relaxation relax(p, qubor::simplex::SimplexOptions{});
    RelaxResult rr;
    relax.solve(p.lp.col_lo, p.lp.col_up, nullptr, rr);
    if (rr.status != qubor::simplex::Status::kOptimal) continue;
    CutPool pool;
    seps[0].rec.ops->run(seps[0].rec.data, p, SeparationPoint{rr.x, rr.basis.get(), p.lp.col_lo, p.lp.col_up}, 0,
                         pool);
    const std::vector<Cut> cuts = pool.select(100, 1.0);
    // Enumerate the integer columns; the continuous one on a fine grid.
    std::vector<double> x(6);
    for (int code = 0; code < 4 * 4 * 4 * 4 * 4; ++code) {
      int c = code;
      for (int j = 0; j < 5; ++j) {
        x[static_cast<size_t>(j)] = p.lp.col_lo[static_cast<size_t>(j)] + c % 4;
        c /= 4;
      }
      if (x[2] > 2 || x[4] > 1) continue;
      for (int g = 0; g <= 400; ++g) {
        x[5] = 0.01 * g;
        if (violation(p, x.data()).row > 1e-12) continue;
        for (const Cut& cut : cuts) {
          double act = 0.0;
          for (size_t k = 0; k < cut.idx.size(); ++k) act += cut.val[k] * x[static_cast<size_t>(cut.idx[k])];
          EXPECT_GE(act, cut.lo - 1e-6 * (1.0 + std::fabs(cut.lo))) << "trial " << trial;
          ++checked;
        }
      }
    }
  }
  EXPECT_GT(checked, 100);
}

TEST(LogFormats, GapAndObjectiveColumns) {
  EXPECT_EQ(format_gap(false, 0.0), " NA         ");
  EXPECT_EQ(format_gap(true, 0.05), " 5.00       ");
  EXPECT_EQ(format_gap(true, 0.00005), " 5.00e-03   ");
  EXPECT_EQ(format_gap(true, 10.0), " 1000.00    ");
  EXPECT_EQ(format_gap(true, 10.5), " 1.05e+03   ");
  EXPECT_EQ(format_objective(false, 0.0), "NA                  ");
  EXPECT_EQ(format_objective(true, 1.5), "1.5000000000e+00    ");
  EXPECT_DOUBLE_EQ(relative_gap(100.0, 99.0, 1e-10), 0.01);
  EXPECT_DOUBLE_EQ(relative_gap(0.0, -1.0, 1e-10), 1e10);
}

}  // namespace
