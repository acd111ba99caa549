// Supernode layout: the column order inside supernodes and the relaxed amalgamation of narrow
// tall supernodes, on normal equations of Netlib LPs whose factors are made of many narrow
// supernodes below a large dense one.
#include <gtest/gtest.h>

#include <filesystem>

#include "linalg/cholesky/symbolic.h"
#include "matrix_sources.h"
#include "test_matrices.h"

namespace qubor::linalg::testing {
namespace {

bool load_normal_equations(const char* name, Lower& a) {
  const std::string path = std::string(QUBOR_TEST_DATA_DIR) + "/netlib-lp/" + name;
  if (!std::filesystem::exists(path)) return false;
  bench::SparseMatrix m;
  std::string error;
  if (!bench::read_mps_matrix(path, m, error)) return false;
  bench::LowerMatrix l = bench::normal_equations(m, 17, name);
  a.n = l.n;
  a.colptr = l.colptr;
  a.rowind = l.rowind;
  a.values = l.values;
  return true;
}

// Entries of the updates whose rows land on consecutive rows of the target: these updates
// need no scatter.
double contiguous_entries(const SymbolicFactor& sf) {
  std::vector<int32_t> pos(sf.n);
  double count = 0;
  for (int32_t s = 0; s < sf.nsuper; ++s) {
    for (int32_t i = 0; i < sf.nrows(s); ++i) pos[sf.rows[sf.row_ptr[s] + i]] = i;
    for (int64_t u = sf.upd_ptr[s]; u < sf.upd_ptr[s + 1]; ++u) {
      const int32_t* rd = sf.rows.data() + sf.row_ptr[sf.upd_d[u]];
      const int32_t first = sf.upd_r0[u], last = sf.nrows(sf.upd_d[u]) - 1;
      const double m = last - first + 1, k = sf.upd_r1[u] - first;
      if (pos[rd[last]] - pos[rd[first]] == last - first) count += m * k;
    }
  }
  return count;
}

TEST(SupernodeLayout, ColumnOrderKeepsTheBlocksAndMakesUpdatesContiguous) {
  double total_with = 0, total_without = 0;
  for (const char* name : {"dfl001.mps.gz", "pilot87.mps.gz", "scsd8.mps.gz"}) {
    Lower a;
    if (!load_normal_equations(name, a)) continue;
    SparseCholeskyOptions local;
    local.order_method = OrderMethod::kAppMinLoc;
    SparseCholesky chol;
    ASSERT_EQ(chol.analyse(a.pattern(), local, nullptr), Status::kOk);
    SymbolicFactor plain, ordered;
    SymbolicOptions opt;
    opt.order_columns = false;
    const std::vector<int32_t>& perm = chol.permutation();
    ASSERT_EQ(analyse_pattern(a.n, a.colptr.data(), a.rowind.data(), perm, opt, nullptr, plain),
              Status::kOk);
    opt.order_columns = true;
    ASSERT_EQ(analyse_pattern(a.n, a.colptr.data(), a.rowind.data(), perm, opt, nullptr, ordered),
              Status::kOk);
    // Same supernodes, blocks and cost; every column stays in its supernode.
    EXPECT_EQ(plain.super_start, ordered.super_start) << name;
    EXPECT_EQ(plain.value_ptr, ordered.value_ptr) << name;
    EXPECT_EQ(plain.nnz_l, ordered.nnz_l) << name;
    EXPECT_EQ(plain.flops, ordered.flops) << name;
    for (int32_t i = 0; i < a.n; ++i)
      ASSERT_EQ(plain.col_super[plain.invp[i]], ordered.col_super[ordered.invp[i]]) << name;
    for (int32_t s = 0; s < ordered.nsuper; ++s) {  // rows below each supernode still sorted
      const int32_t* r = ordered.rows.data() + ordered.row_ptr[s];
      EXPECT_TRUE(std::is_sorted(r + ordered.ncols(s), r + ordered.nrows(s))) << name;
    }
    const double with = contiguous_entries(ordered), without = contiguous_entries(plain);
    EXPECT_GE(with, without) << name;
    total_with += with;
    total_without += without;
  }
  EXPECT_GT(total_with, 2.0 * total_without);
}

TEST(SupernodeLayout, BothColumnOrdersSolveToTheSameAccuracy) {
  Lower a;
  if (!load_normal_equations("dfl001.mps.gz", a)) GTEST_SKIP() << "data set not installed";
  std::vector<double> xs = random_vector(a.n, 3);
  std::vector<double> b = multiply(a, xs);
  std::vector<std::vector<double>> solutions;
  for (bool order_columns : {false, true})
    for (int32_t threads : {1, 2}) {
      SparseCholeskyOptions opt;
      opt.order_method = OrderMethod::kAppMinLoc;
      opt.order_columns = order_columns;
      opt.num_threads = threads;
      SparseCholesky chol;
      ASSERT_EQ(chol.analyse(a.pattern(), opt, nullptr), Status::kOk);
      ASSERT_EQ(chol.factor(a.values.data()), Status::kOk);
      std::vector<double> x = b;
      ASSERT_EQ(chol.solve(x.data(), 1, a.n), Status::kOk);
      EXPECT_LT(relative_residual(a, x, b), 1e-8) << order_columns << " " << threads;
      solutions.push_back(x);
    }
  for (size_t k = 1; k < solutions.size(); ++k)
    for (int32_t i = 0; i < a.n; ++i)
      EXPECT_NEAR(solutions[k][i], solutions[0][i], 1e-6 * (1.0 + std::fabs(solutions[0][i])));
}

TEST(SupernodeLayout, NarrowTallSupernodesAreMergedWithoutLosingAccuracy) {
  // The normal equations of the assignment LPs end in a dense block fed by long chains of
  // narrow supernodes: the case the tall-merge rule is for.
  Lower a;
  if (!load_normal_equations("qap12.mps.gz", a)) GTEST_SKIP() << "data set not installed";
  auto narrow_tall = [](const SymbolicFactor& sf) {
    int32_t count = 0;
    for (int32_t s = 0; s < sf.nsuper; ++s)
      if (sf.ncols(s) <= 16 && sf.nrows(s) - sf.ncols(s) >= 8 * 32) ++count;
    return count;
  };
  SparseCholesky chol;
  ASSERT_EQ(chol.analyse(a.pattern(), SparseCholeskyOptions(), nullptr), Status::kOk);
  SymbolicFactor fundamental, merged;
  SymbolicOptions opt;
  opt.amalgamate = false;
  const std::vector<int32_t>& perm = chol.permutation();
  ASSERT_EQ(analyse_pattern(a.n, a.colptr.data(), a.rowind.data(), perm, opt, nullptr,
                            fundamental), Status::kOk);
  opt.amalgamate = true;
  ASSERT_EQ(analyse_pattern(a.n, a.colptr.data(), a.rowind.data(), perm, opt, nullptr, merged),
            Status::kOk);
  EXPECT_LT(narrow_tall(merged), narrow_tall(fundamental) / 4);
  EXPECT_EQ(merged.nnz_l, fundamental.nnz_l);
  // Explicit zeros are bounded by the merge rules: far less than doubling the storage.
  EXPECT_LT(merged.stored_l, fundamental.stored_l * 3 / 2);
  ASSERT_EQ(chol.factor(a.values.data()), Status::kOk);
  std::vector<double> xs = random_vector(a.n, 9);
  std::vector<double> b = multiply(a, xs), x = b;
  ASSERT_EQ(chol.solve(x.data(), 1, a.n), Status::kOk);
  EXPECT_LT(relative_residual(a, x, b), 1e-8) << "perturbed " << chol.perturbed().size();
}

}  // namespace
}  // namespace qubor::linalg::testing
