// Orderings, elimination tree and column counts, graph construction and the ordering choice.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>

#include "linalg/ordering/bisection.h"
#include "linalg/ordering/etree.h"
#include "linalg/ordering/graph.h"
#include "linalg/ordering/local_order.h"
#include "linalg/ordering/order_choice.h"
#include "test_matrices.h"

namespace qubor::linalg::testing {
namespace {

Graph graph_of(const Lower& a) {
  Graph g;
  EXPECT_EQ(build_graph(a.n, a.colptr.data(), a.rowind.data(), g), Status::kOk);
  return g;
}

// Column counts by explicit elimination on a dense boolean matrix.
std::vector<int32_t> brute_counts(const Graph& g, const std::vector<int32_t>& perm) {
  const int32_t n = g.n;
  std::vector<int32_t> invp(n);
  for (int32_t k = 0; k < n; ++k) invp[perm[k]] = k;
  std::vector<std::vector<char>> m(n, std::vector<char>(n, 0));
  for (int32_t i = 0; i < n; ++i)
    for (int64_t p = g.start[i]; p < g.start[i] + g.length[i]; ++p) m[invp[i]][invp[g.adj[p]]] = 1;
  std::vector<int32_t> cc(n, 1);
  for (int32_t k = 0; k < n; ++k) {
    std::vector<int32_t> below;
    for (int32_t i = k + 1; i < n; ++i)
      if (m[i][k]) below.push_back(i);
    cc[k] += static_cast<int32_t>(below.size());
    for (int32_t a : below)
      for (int32_t b : below) m[a][b] = 1;
  }
  return cc;
}

bool is_permutation(const std::vector<int32_t>& perm, int32_t n) {
  std::vector<int32_t> invp;
  return static_cast<int32_t>(perm.size()) == n && invert_permutation(perm, invp);
}

const Shape kShapes[] = {Shape::kRandom, Shape::kDenseRow, Shape::kComponents,
                         Shape::kIsolated, Shape::kBanded, Shape::kArrow};

TEST(ColumnCounts, MatchExplicitEliminationForManyShapesAndOrders) {
  uint64_t seed = 1;
  for (Shape shape : kShapes)
    for (int32_t n : {1, 2, 7, 40}) {
      Lower a = random_pattern(n, 2.5, shape, seed++);
      Graph g = graph_of(a);
      std::vector<int64_t> ptr;
      std::vector<int32_t> ind;
      graph_to_csr(g, ptr, ind);
      std::vector<int32_t> perm(n);
      for (int32_t k = 0; k < n; ++k) perm[k] = (k * 7 + 3) % n;
      if (!is_permutation(perm, n))
        for (int32_t k = 0; k < n; ++k) perm[k] = n - 1 - k;
      std::vector<int32_t> invp;
      ASSERT_TRUE(invert_permutation(perm, invp));
      PermutedPattern pp{n, ptr.data(), ind.data(), perm.data(), invp.data()};
      std::vector<int32_t> parent, post, cc;
      elimination_tree(pp, parent);
      tree_postorder(parent, post);
      column_counts(pp, parent, post, cc);
      EXPECT_EQ(cc, brute_counts(g, perm)) << "n=" << n << " shape=" << static_cast<int>(shape);
    }
}

TEST(LocalOrder, EveryTypeGivesAValidPermutationWithExactCost) {
  uint64_t seed = 100;
  for (LocalOrderType type : {LocalOrderType::kApproxMinLocalFill, LocalOrderType::kMinDegree,
                              LocalOrderType::kPriority})
    for (Shape shape : kShapes)
      for (int32_t n : {0, 1, 2, 17, 45}) {
        Lower a = random_pattern(n, 3.0, shape, seed++);
        Graph g = graph_of(a);
        std::vector<int32_t> prio(n);
        for (int32_t i = 0; i < n; ++i) prio[i] = i % 3;
        LocalOrderOptions opt;
        opt.type = type;
        opt.priority = prio.data();
        OrderResult r;
        ASSERT_EQ(local_order(g, opt, nullptr, r), Status::kOk);
        ASSERT_TRUE(is_permutation(r.perm, n));
        std::vector<int32_t> cc = brute_counts(g, r.perm);
        int64_t nnz = 0;
        for (int32_t c : cc) nnz += c;
        EXPECT_EQ(r.nnz_l, nnz);
      }
}

TEST(LocalOrder, ReducesFillOnAGridFarBelowTheNaturalOrder) {
  Lower a = grid2d(30);
  Graph g = graph_of(a);
  OrderResult natural;
  natural.perm.resize(g.n);
  for (int32_t k = 0; k < g.n; ++k) natural.perm[k] = k;
  ASSERT_EQ(evaluate_order(g, natural), Status::kOk);
  for (LocalOrderType type : {LocalOrderType::kApproxMinLocalFill, LocalOrderType::kMinDegree}) {
    LocalOrderOptions opt;
    opt.type = type;
    OrderResult r;
    ASSERT_EQ(local_order(g, opt, nullptr, r), Status::kOk);
    EXPECT_LT(r.nnz_l, natural.nnz_l * 6 / 10);
  }
}

TEST(LocalOrder, PriorityClassesAreEliminatedInOrder) {
  Lower a = random_pattern(300, 4.0, Shape::kRandom, 5);
  Graph g = graph_of(a);
  std::vector<int32_t> prio(a.n);
  for (int32_t i = 0; i < a.n; ++i) prio[i] = (i * 13) % 4;
  LocalOrderOptions opt;
  opt.type = LocalOrderType::kPriority;
  opt.priority = prio.data();
  OrderResult r;
  ASSERT_EQ(local_order(g, opt, nullptr, r), Status::kOk);
  for (int32_t k = 1; k < a.n; ++k) EXPECT_LE(prio[r.perm[k - 1]], prio[r.perm[k]]);
}

TEST(LocalOrder, DenseNodeGoesLastAndBadOptionsAreRejected) {
  Lower a = random_pattern(400, 2.0, Shape::kArrow, 9);
  Graph g = graph_of(a);
  OrderResult r;
  ASSERT_EQ(local_order(g, LocalOrderOptions(), nullptr, r), Status::kOk);
  EXPECT_EQ(r.perm.back(), a.n - 1);
  LocalOrderOptions bad;
  bad.type = LocalOrderType::kPriority;  // no priorities given
  CapturedLog log;
  EXPECT_EQ(local_order(g, bad, &log.sink, r), Status::kInvalidInput);
  EXPECT_NE(log.text.find("Invalid ordering type: 2"), std::string::npos);
}

TEST(LocalOrder, MergesIndistinguishableNodesAndLogsIt) {
  // A clique of 10 nodes attached to a path: the clique compresses to few nodes.
  Lower a;
  a.n = 20;
  for (int32_t j = 0; j < 20; ++j) {
    a.rowind.push_back(j);
    if (j < 10)
      for (int32_t i = j + 1; i < 10; ++i) a.rowind.push_back(i);
    if (j >= 9 && j + 1 < 20) a.rowind.push_back(j + 1);
    a.colptr.push_back(static_cast<int64_t>(a.rowind.size()));
  }
  Graph g = graph_of(a);
  CapturedLog log;
  OrderResult r;
  ASSERT_EQ(local_order(g, LocalOrderOptions(), &log.sink, r), Status::kOk);
  EXPECT_NE(log.text.find("Initial number of nodes   : 20\n"), std::string::npos);
  EXPECT_NE(log.text.find("Compressed number of nodes: 12\n"), std::string::npos);
  EXPECT_EQ(r.nnz_l, 20 + 45 + 10);  // chordal: no fill in a minimum-fill order
}

TEST(Graph, LowerAndFullPatternsGiveTheSameGraph) {
  Lower a = random_pattern(50, 3.0, Shape::kRandom, 3);
  Lower full;
  full.n = a.n;
  std::vector<std::vector<int32_t>> cols(a.n);
  for (int32_t j = 0; j < a.n; ++j)
    for (int64_t p = a.colptr[j]; p < a.colptr[j + 1]; ++p) {
      cols[j].push_back(a.rowind[p]);
      cols[a.rowind[p]].push_back(j);
      cols[j].push_back(a.rowind[p]);  // duplicates must be dropped
    }
  for (int32_t j = 0; j < a.n; ++j) {
    for (int32_t i : cols[j]) full.rowind.push_back(i);
    full.colptr.push_back(static_cast<int64_t>(full.rowind.size()));
  }
  Graph g1 = graph_of(a), g2 = graph_of(full);
  ASSERT_EQ(g1.adsize, g2.adsize);
  for (int32_t i = 0; i < a.n; ++i) {
    std::vector<int32_t> x(g1.adj.begin() + g1.start[i], g1.adj.begin() + g1.start[i] + g1.length[i]);
    std::vector<int32_t> y(g2.adj.begin() + g2.start[i], g2.adj.begin() + g2.start[i] + g2.length[i]);
    std::sort(x.begin(), x.end());
    std::sort(y.begin(), y.end());
    EXPECT_EQ(x, y);
  }
  int64_t bad_ptr[2] = {0, 1};
  int32_t bad_row[1] = {5};
  Graph g3;
  EXPECT_EQ(build_graph(1, bad_ptr, bad_row, g3), Status::kInvalidInput);
}

TEST(Graph, AddEdgeAndDumpFormat) {
  Lower a = random_pattern(6, 0.0, Shape::kRandom, 1);  // isolated nodes only
  Graph g = graph_of(a);
  EXPECT_EQ(g.adsize, 0);
  ASSERT_EQ(add_edge(g, 0, 5, 7), Status::kOk);
  for (int32_t j = 1; j < 5; ++j) ASSERT_EQ(add_edge(g, 0, j, 1), Status::kOk);
  ASSERT_EQ(add_edge(g, 5, 0, 3), Status::kOk);  // existing edge keeps its weight
  EXPECT_EQ(g.adsize, 10);
  EXPECT_EQ(add_edge(g, 2, 2, 1), Status::kInvalidInput);
  const std::string name = ::testing::TempDir() + "graph_dump.txt";
  ASSERT_EQ(dump_graph(g, name.c_str(), false, nullptr), Status::kOk);
  std::ifstream in(name);
  int n = 0, edges = 0, u, v, w, lines = 0, weight_of_05 = 0;
  in >> n >> edges;
  while (in >> u >> v >> w) {
    ++lines;
    EXPECT_GT(u, v);  // written from the larger-numbered end
    if (u == 5 && v == 0) weight_of_05 = w;
  }
  EXPECT_EQ(n, 6);
  EXPECT_EQ(edges, 5);
  EXPECT_EQ(lines, 5);
  EXPECT_EQ(weight_of_05, 7);
  std::remove(name.c_str());
  CapturedLog log;
  EXPECT_EQ(dump_graph(g, "/nonexistent-dir/x.txt", true, &log.sink), Status::kInvalidInput);
  EXPECT_EQ(log.text, "ERROR OPENING FILE: /nonexistent-dir/x.txt\n");
}

TEST(OrderChoice, MethodsFollowTheirRules) {
  Lower a = grid2d(40);
  Graph g = graph_of(a);
  const int64_t nnz_a = a.colptr.back();
  NestedDissectionOptions nd;
  OrderChoice none, app, force, tryit;
  ASSERT_EQ(choose_ordering(g, nnz_a, OrderMethod::kNone, nd, nullptr, nullptr, none), Status::kOk);
  for (int32_t k = 0; k < g.n; ++k) ASSERT_EQ(none.order.perm[k], k);
  CapturedLog log;
  ASSERT_EQ(choose_ordering(g, nnz_a, OrderMethod::kAppMinLoc, nd, nullptr, &log.sink, app), Status::kOk);
  EXPECT_FALSE(app.gp_computed);
  EXPECT_NE(log.text.find("Local matrix reordering started.\n"), std::string::npos);
  EXPECT_EQ(log.text.find("GP based"), std::string::npos);
  ASSERT_EQ(choose_ordering(g, nnz_a, OrderMethod::kForceGraphPar, nd, nullptr, nullptr, force), Status::kOk);
  EXPECT_TRUE(force.gp_computed);
  EXPECT_TRUE(force.gp_taken);
  ASSERT_TRUE(is_permutation(force.order.perm, g.n));
  ASSERT_EQ(choose_ordering(g, nnz_a, OrderMethod::kTryGraphPar, nd, nullptr, nullptr, tryit), Status::kOk);
  if (tryit.gp_taken)
    EXPECT_LE(tryit.order.nnz_l, tryit.ml_nnz_l * 102 / 100);
  else
    EXPECT_EQ(tryit.order.nnz_l, tryit.ml_nnz_l);
  OrderChoice bad;
  EXPECT_EQ(choose_ordering(g, nnz_a, static_cast<OrderMethod>(9), nd, nullptr, nullptr, bad),
            Status::kInvalidInput);
}

TEST(OrderChoice, FreeMethodTriesNestedDissectionOnlyForLargeFill) {
  Lower sparse = random_pattern(300, 0.5, Shape::kBanded, 2);  // nearly a forest: tiny fill
  Graph g = graph_of(sparse);
  OrderChoice c;
  ASSERT_EQ(choose_ordering(g, sparse.colptr.back(), OrderMethod::kFree, NestedDissectionOptions(),
                            nullptr, nullptr, c), Status::kOk);
  EXPECT_FALSE(c.gp_computed);
  Lower grid = grid2d(40);
  Graph g2 = graph_of(grid);
  ASSERT_EQ(choose_ordering(g2, grid.colptr.back(), OrderMethod::kFree, NestedDissectionOptions(),
                            nullptr, nullptr, c), Status::kOk);
  EXPECT_TRUE(c.gp_computed);
}

}  // namespace
}  // namespace qubor::linalg::testing

namespace qubor::linalg::testing {
namespace {

TEST(NestedDissection, BisectionGivesAValidBalancedSeparator) {
  for (int32_t k : {12, 40}) {
    Lower a = grid2d(k);
    detail::WeightedGraph wg;
    wg.n = a.n;
    Graph g = graph_of(a);
    graph_to_csr(g, wg.ptr, wg.adj);
    wg.ew.assign(wg.adj.size(), 1);
    wg.vw.assign(wg.n, 1);
    wg.total = wg.n;
    detail::Rng rng(1);
    detail::BisectStats st;
    std::vector<int8_t> part;
    ASSERT_TRUE(detail::bisect(wg, NestedDissectionOptions(), rng, part, st, nullptr, false));
    int32_t w[3] = {0, 0, 0};
    for (int32_t v = 0; v < wg.n; ++v) {
      ++w[part[v]];
      for (int64_t p = wg.ptr[v]; p < wg.ptr[v + 1]; ++p) {
        if (part[v] < 2 && part[wg.adj[p]] < 2) {
          ASSERT_EQ(part[v], part[wg.adj[p]]) << "edge across";
        }
      }
    }
    EXPECT_LE(w[2], 2 * k);  // a grid line (or a staircase) separates a k x k grid
    EXPECT_LE(std::max(w[0], w[1]), 1.25 * wg.n / 2 + 1);
    EXPECT_GT(std::min(w[0], w[1]), 0);
  }
}

TEST(NestedDissection, BeatsTheLocalOrderOnA3dGridAndHandlesComponents) {
  // 14^3 grid, twice (two components), plus isolated nodes.
  const int32_t k = 14, m = k * k * k;
  Lower a;
  a.n = 2 * m + 5;
  for (int32_t j = 0; j < a.n; ++j) {
    a.rowind.push_back(j);
    if (j < 2 * m) {
      int32_t l = j % m, x = l % k, y = (l / k) % k, z = l / (k * k);
      if (x + 1 < k) a.rowind.push_back(j + 1);
      if (y + 1 < k) a.rowind.push_back(j + k);
      if (z + 1 < k) a.rowind.push_back(j + k * k);
    }
    a.colptr.push_back(static_cast<int64_t>(a.rowind.size()));
  }
  Graph g = graph_of(a);
  CapturedLog log;
  OrderResult nd, local;
  ASSERT_EQ(nested_dissection_order(g, NestedDissectionOptions(), &log.sink, nd), Status::kOk);
  ASSERT_EQ(local_order(g, LocalOrderOptions(), nullptr, local), Status::kOk);
  ASSERT_TRUE(is_permutation(nd.perm, a.n));
  EXPECT_LT(nd.nnz_l, local.nnz_l);
  EXPECT_NE(log.text.find("Graph is not connected. numcomp:      7, max compsz: 2744\n"),
            std::string::npos);
  EXPECT_NE(log.text.find("Nested dissection ordering.\n  Number of nodes : "), std::string::npos);
  EXPECT_NE(log.text.find("Timing summary:\n"), std::string::npos);
}

}  // namespace
}  // namespace qubor::linalg::testing
