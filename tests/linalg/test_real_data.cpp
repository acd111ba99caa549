// Real data: normal equations A D A' of Netlib LPs and quasi-definite KKT systems of
// Maros-Meszaros QPs, as an interior-point optimizer would form them.
#include <gtest/gtest.h>

#include <filesystem>

#include "matrix_sources.h"
#include "test_matrices.h"

namespace qubor::linalg::testing {
namespace {

std::string data_file(const std::string& set, const std::string& name) {
  return std::string(QUBOR_TEST_DATA_DIR) + "/" + set + "/" + name;
}

Lower from_bench(const bench::LowerMatrix& m) {
  Lower a;
  a.n = m.n;
  a.colptr = m.colptr;
  a.rowind = m.rowind;
  a.values = m.values;
  return a;
}

TEST(RealData, NetlibNormalEquationsSolveAccurately) {
  for (const char* name : {"afiro.mps.gz", "adlittle.mps.gz", "25fv47.mps.gz", "bandm.mps.gz",
                           "degen3.mps.gz", "ship04l.mps.gz", "scfxm2.mps.gz"}) {
    const std::string path = data_file("netlib-lp", name);
    if (!std::filesystem::exists(path)) continue;  // data set not installed
    bench::SparseMatrix m;
    std::string error;
    ASSERT_TRUE(bench::read_mps_matrix(path, m, error)) << error;
    Lower a = from_bench(bench::normal_equations(m, 3, name));
    for (OrderMethod method : {OrderMethod::kFree, OrderMethod::kForceGraphPar}) {
      SparseCholeskyOptions opt;
      opt.order_method = method;
      opt.num_threads = 2;
      SparseCholesky chol;
      ASSERT_EQ(chol.analyse(a.pattern(), opt, nullptr), Status::kOk) << name;
      ASSERT_EQ(chol.factor(a.values.data()), Status::kOk) << name;
      std::vector<double> xs = random_vector(a.n, 4);
      std::vector<double> b = multiply(a, xs), x = b;
      ASSERT_EQ(chol.solve(x.data(), 1, a.n), Status::kOk);
      // D spans six orders of magnitude; dependent rows may be dropped by the pivot rule.
      EXPECT_LT(relative_residual(a, x, b), 1e-7) << name << " perturbed " << chol.perturbed().size();
    }
  }
}

// K = [I + diag  A'; A  -1e-4 I] for the constraint matrix A of a QP.
Lower kkt_of(const bench::SparseMatrix& m, std::vector<int8_t>& signs) {
  Lower k;
  k.n = m.n + m.m;
  signs.assign(k.n, 1);
  for (int32_t j = 0; j < m.n; ++j) {
    k.rowind.push_back(j);
    k.values.push_back(1.0 + 0.1 * (j % 7));
    for (int64_t p = m.colptr[j]; p < m.colptr[j + 1]; ++p) {
      k.rowind.push_back(m.n + m.rowind[p]);
      k.values.push_back(m.values[p]);
    }
    k.colptr.push_back(static_cast<int64_t>(k.rowind.size()));
  }
  for (int32_t i = 0; i < m.m; ++i) {
    k.rowind.push_back(m.n + i);
    k.values.push_back(-1e-4);
    signs[m.n + i] = -1;
    k.colptr.push_back(static_cast<int64_t>(k.rowind.size()));
  }
  return k;
}

TEST(RealData, MarosMeszarosKktSystemsFactorByLdlt) {
  for (const char* name : {"AUG3D.qps.gz", "CVXQP1_M.qps.gz", "QSHIP04L.qps.gz", "CONT-050.qps.gz"}) {
    const std::string path = data_file("maros-meszaros", name);
    if (!std::filesystem::exists(path)) continue;
    bench::SparseMatrix m;
    std::string error;
    ASSERT_TRUE(bench::read_mps_matrix(path, m, error)) << error;
    std::vector<int8_t> signs;
    Lower k = kkt_of(m, signs);
    SparseCholeskyOptions opt;
    opt.type = FactorType::kLdlt;
    opt.num_threads = 2;
    SparseCholesky chol;
    ASSERT_EQ(chol.analyse(k.pattern(), opt, nullptr, nullptr, signs.data()), Status::kOk);
    ASSERT_EQ(chol.factor(k.values.data()), Status::kOk);
    EXPECT_TRUE(chol.perturbed().empty()) << name;
    std::vector<double> b = random_vector(k.n, 5), x = b;
    ASSERT_EQ(chol.solve(x.data(), 1, k.n), Status::kOk);
    EXPECT_LT(relative_residual(k, x, b), 1e-9) << name << " n=" << k.n;
  }
}

}  // namespace
}  // namespace qubor::linalg::testing
