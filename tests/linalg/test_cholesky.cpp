// Factorization and solves on random SPD and quasi-definite matrices of many shapes, checked
// by residuals; refactorization, multiple right-hand sides, determinism, argument checks and
// the summary layout.
#include <gtest/gtest.h>

#include <cstring>

#include "test_matrices.h"

namespace qubor::linalg::testing {
namespace {

struct Case {
  Shape shape;
  int32_t n;
  double density;
};

const Case kCases[] = {
    {Shape::kRandom, 0, 0.0},     {Shape::kRandom, 1, 0.0},     {Shape::kRandom, 2, 1.0},
    {Shape::kRandom, 60, 0.0},    {Shape::kRandom, 300, 2.0},   {Shape::kRandom, 500, 6.0},
    {Shape::kDenseRow, 200, 1.5}, {Shape::kComponents, 240, 3.0}, {Shape::kIsolated, 200, 3.0},
    {Shape::kBanded, 400, 2.0},   {Shape::kArrow, 150, 1.0},
};

std::vector<double> solve_one(SparseCholesky& chol, const std::vector<double>& b) {
  std::vector<double> x = b;
  EXPECT_EQ(chol.solve(x.data(), 1, static_cast<int64_t>(x.size())), Status::kOk);
  return x;
}

class SpdCases : public ::testing::TestWithParam<OrderMethod> {};

TEST_P(SpdCases, ResidualsAreSmallForEveryShape) {
  uint64_t seed = 11;
  for (const Case& c : kCases) {
    Lower a = random_pattern(c.n, c.density, c.shape, seed++);
    fill_spd(a, seed++);
    SparseCholeskyOptions opt;
    opt.order_method = GetParam();
    SparseCholesky chol;
    ASSERT_EQ(chol.analyse(a.pattern(), opt, nullptr), Status::kOk);
    ASSERT_EQ(chol.factor(a.values.data()), Status::kOk);
    EXPECT_TRUE(chol.perturbed().empty());
    std::vector<double> b = random_vector(a.n, seed++);
    std::vector<double> x = solve_one(chol, b);
    EXPECT_LT(relative_residual(a, x, b), 1e-12) << "n=" << c.n << " shape=" << static_cast<int>(c.shape);
  }
}

INSTANTIATE_TEST_SUITE_P(AllMethods, SpdCases,
                         ::testing::Values(OrderMethod::kFree, OrderMethod::kAppMinLoc,
                                           OrderMethod::kExperimental, OrderMethod::kTryGraphPar,
                                           OrderMethod::kForceGraphPar, OrderMethod::kNone));

TEST(Cholesky, LayoutVariantsGiveTheSameSolution) {
  // Narrow panels, no amalgamation and several threads exercise the other code paths.
  Lower a = random_pattern(600, 5.0, Shape::kRandom, 21);
  fill_spd(a, 22);
  std::vector<double> b = random_vector(a.n, 23);
  struct Variant { int32_t panel; bool amalgamate; int32_t threads; FactorType type; };
  for (Variant v : {Variant{128, true, 1, FactorType::kCholesky}, Variant{3, true, 1, FactorType::kCholesky},
                    Variant{5, false, 2, FactorType::kCholesky}, Variant{2, true, 2, FactorType::kLdlt},
                    Variant{128, false, 1, FactorType::kLdlt}}) {
    SparseCholeskyOptions opt;
    opt.panel_width = v.panel;
    opt.amalgamate = v.amalgamate;
    opt.num_threads = v.threads;
    opt.type = v.type;
    SparseCholesky chol;
    ASSERT_EQ(chol.analyse(a.pattern(), opt, nullptr), Status::kOk);
    ASSERT_EQ(chol.factor(a.values.data()), Status::kOk);
    EXPECT_LT(relative_residual(a, solve_one(chol, b), b), 1e-12) << "panel=" << v.panel;
  }
}

TEST(Cholesky, RefactorsNewValuesOnTheSamePattern) {
  Lower a = random_pattern(400, 4.0, Shape::kComponents, 31);
  fill_spd(a, 32);
  SparseCholesky chol;
  ASSERT_EQ(chol.analyse(a.pattern(), SparseCholeskyOptions(), nullptr), Status::kOk);
  for (uint64_t round = 0; round < 3; ++round) {
    fill_spd(a, 40 + round);
    for (double& v : a.values) v *= std::pow(10.0, static_cast<double>(round));
    ASSERT_EQ(chol.factor(a.values.data()), Status::kOk);
    std::vector<double> b = random_vector(a.n, 50 + round);
    EXPECT_LT(relative_residual(a, solve_one(chol, b), b), 1e-12);
  }
}

TEST(Cholesky, SolvesSeveralRightHandSidesAsABlock) {
  Lower a = random_pattern(350, 3.0, Shape::kDenseRow, 61);
  fill_spd(a, 62);
  SparseCholesky chol;
  ASSERT_EQ(chol.analyse(a.pattern(), SparseCholeskyOptions(), nullptr), Status::kOk);
  ASSERT_EQ(chol.factor(a.values.data()), Status::kOk);
  const int32_t nrhs = 4;
  const int64_t ldb = a.n + 3;
  std::vector<double> block(ldb * nrhs, 0.0);
  std::vector<std::vector<double>> bs;
  for (int32_t r = 0; r < nrhs; ++r) {
    bs.push_back(random_vector(a.n, 70 + r));
    std::copy(bs[r].begin(), bs[r].end(), block.begin() + r * ldb);
  }
  ASSERT_EQ(chol.solve(block.data(), nrhs, ldb), Status::kOk);
  for (int32_t r = 0; r < nrhs; ++r) {
    std::vector<double> x(block.begin() + r * ldb, block.begin() + r * ldb + a.n);
    EXPECT_LT(relative_residual(a, x, bs[r]), 1e-12);
    std::vector<double> y = solve_one(chol, bs[r]);  // the block solve matches the single one
    for (int32_t i = 0; i < a.n; ++i) EXPECT_NEAR(x[i], y[i], 1e-13 * (1.0 + std::fabs(y[i])));
  }
}

// Symmetric quasi-definite K = [H A'; A -G] with H, G diagonal positive.
Lower quasi_definite(int32_t nx, int32_t ny, uint64_t seed, std::vector<int8_t>& signs) {
  std::mt19937_64 rng(seed);
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  Lower k;
  k.n = nx + ny;
  signs.assign(k.n, 1);
  for (int32_t j = 0; j < k.n; ++j) {
    k.rowind.push_back(j);
    k.values.push_back(j < nx ? 1.0 + std::fabs(u(rng)) : -(1e-2 + 1e-2 * std::fabs(u(rng))));
    if (j < nx) {
      std::set<int32_t> rows;
      for (int t = 0; t < 3; ++t) rows.insert(nx + static_cast<int32_t>(rng() % ny));
      for (int32_t i : rows) { k.rowind.push_back(i); k.values.push_back(u(rng)); }
    } else {
      signs[j] = -1;
    }
    k.colptr.push_back(static_cast<int64_t>(k.rowind.size()));
  }
  return k;
}

TEST(Ldlt, SolvesQuasiDefiniteSystemsWithTheRightInertia) {
  for (int32_t threads : {1, 2}) {
    std::vector<int8_t> signs;
    Lower k = quasi_definite(500, 200, 81, signs);
    SparseCholeskyOptions opt;
    opt.type = FactorType::kLdlt;
    opt.num_threads = threads;
    SparseCholesky chol;
    ASSERT_EQ(chol.analyse(k.pattern(), opt, nullptr, nullptr, signs.data()), Status::kOk);
    ASSERT_EQ(chol.factor(k.values.data()), Status::kOk);
    EXPECT_TRUE(chol.perturbed().empty());
    std::vector<double> d;
    chol.diagonal(d);
    for (int32_t i = 0; i < k.n; ++i) EXPECT_EQ(d[i] > 0, signs[i] > 0) << i;
    std::vector<double> b = random_vector(k.n, 82);
    EXPECT_LT(relative_residual(k, solve_one(chol, b), b), 1e-11);
  }
}

TEST(Cholesky, ResultsAreIdenticalRunToRunForAThreadCount) {
  Lower a = grid2d(60);
  std::vector<double> b = random_vector(a.n, 91);
  for (int32_t threads : {1, 2}) {
    SparseCholeskyOptions opt;
    opt.num_threads = threads;
    std::vector<double> first;
    for (int run = 0; run < 3; ++run) {
      SparseCholesky chol;
      ASSERT_EQ(chol.analyse(a.pattern(), opt, nullptr), Status::kOk);
      ASSERT_EQ(chol.factor(a.values.data()), Status::kOk);
      std::vector<double> x = solve_one(chol, b);
      if (run == 0)
        first = x;
      else
        EXPECT_EQ(0, std::memcmp(first.data(), x.data(), sizeof(double) * x.size()));
    }
  }
}

TEST(Cholesky, RejectsBadArgumentsWithResultCodes) {
  Lower a = random_pattern(10, 2.0, Shape::kRandom, 3);
  fill_spd(a, 4);
  SparseCholesky chol;
  EXPECT_EQ(chol.factor(a.values.data()), Status::kNotAnalysed);
  Lower upper = a;
  upper.rowind[1] = 0;
  upper.rowind[upper.colptr[3]] = 1;  // row 1 in column 3: above the diagonal
  EXPECT_EQ(chol.analyse(upper.pattern(), SparseCholeskyOptions(), nullptr), Status::kInvalidInput);
  SparseCholeskyOptions none;
  none.order_method = OrderMethod::kNone;
  std::vector<int32_t> bad_perm(10, 0);
  EXPECT_EQ(chol.analyse(a.pattern(), none, nullptr, bad_perm.data()), Status::kInvalidInput);
  SparseCholeskyOptions row_major;
  row_major.row_major = true;
  CapturedLog log;
  EXPECT_EQ(chol.analyse(a.pattern(), row_major, &log.sink), Status::kInvalidInput);
  EXPECT_EQ(log.text, "Row major is not implemented\n");
  ASSERT_EQ(chol.analyse(a.pattern(), SparseCholeskyOptions(), nullptr), Status::kOk);
  std::vector<double> b(10, 1.0);
  EXPECT_EQ(chol.solve(b.data(), 1, 10), Status::kNotFactored);
  ASSERT_EQ(chol.factor(a.values.data()), Status::kOk);
  EXPECT_EQ(chol.solve(b.data(), 1, 5), Status::kInvalidInput);
  EXPECT_EQ(chol.factor(nullptr), Status::kInvalidInput);
}

TEST(Cholesky, GivenPermutationIsKeptUnderNone) {
  // The reversed grid numbering is the numbering of the rotated grid: same fill as the
  // natural order, and far more than a fill-reducing order.
  Lower a = grid2d(12);
  std::vector<int32_t> perm(a.n);
  for (int32_t k = 0; k < a.n; ++k) perm[k] = a.n - 1 - k;
  SparseCholeskyOptions opt;
  opt.order_method = OrderMethod::kNone;
  SparseCholesky reversed, natural, reduced;
  ASSERT_EQ(reversed.analyse(a.pattern(), opt, nullptr, perm.data()), Status::kOk);
  ASSERT_EQ(natural.analyse(a.pattern(), opt, nullptr), Status::kOk);
  ASSERT_EQ(reduced.analyse(a.pattern(), SparseCholeskyOptions(), nullptr), Status::kOk);
  EXPECT_EQ(reversed.nnz_l(), natural.nnz_l());
  EXPECT_GT(natural.nnz_l(), reduced.nnz_l() * 5 / 4);
  // The elimination order may only be refined within the elimination tree.
  EXPECT_GT(reversed.permutation()[0], a.n / 2);
}

TEST(Summary, UsesTheFixedLayout) {
  Lower a = grid2d(20);
  SparseCholesky chol;
  ASSERT_EQ(chol.analyse(a.pattern(), SparseCholeskyOptions(), nullptr), Status::kOk);
  ASSERT_EQ(chol.factor(a.values.data()), Status::kOk);
  std::vector<double> b(a.n, 1.0);
  ASSERT_EQ(chol.solve(b.data(), 1, a.n), Status::kOk);
  CapturedLog log;
  chol.print_summary(&log.sink);
  const std::string& t = log.text;
  EXPECT_EQ(t.rfind("\n*spchol summary.\n\n* iinf summary.\n", 0), 0u);
  char line[128];
  std::snprintf(line, sizeof(line), "%-45s: %-12d\n", "Dimension", 400);
  EXPECT_NE(t.find(line), std::string::npos);
  std::snprintf(line, sizeof(line), "%-45s: %-lld\n", "L nz", static_cast<long long>(chol.nnz_l()));
  EXPECT_NE(t.find(line), std::string::npos);
  std::snprintf(line, sizeof(line), "%-45s: %-12.2e\n", "Factor flops", chol.flops());
  EXPECT_NE(t.find(line), std::string::npos);
  for (const char* section : {"\n* liinf summary.\n", "\n* biinf summary.\n", "\n* tiinf summary.\n",
                              "\n* Giga Flops per second summary.\n"})
    EXPECT_NE(t.find(section), std::string::npos) << section;
  for (const char* label : {"# panels w=256", "# super with one child", "# solve leaf groups",
                            "Potrf of last super flops", "LT solve with last super"})
    EXPECT_NE(t.find(label), std::string::npos) << label;
  EXPECT_NE(t.find("(Gflops)\n"), std::string::npos);
}

}  // namespace
}  // namespace qubor::linalg::testing
