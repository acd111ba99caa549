// Netlib models: every model presolves without a false status and ends smaller; the small
// ones are solved densely before and after presolve, and the postsolved solution must be
// optimal for the original model with the published objective.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "mps_reader.h"
#include "roundtrip.h"

namespace qubor::presolve::testing {
namespace {

std::string netlib_dir() { return std::string(QUBOR_TEST_DATA_DIR) + "/netlib-lp"; }

struct Model {
  std::string file;
  double objective;
};

std::vector<Model> manifest() {
  std::vector<Model> models;
  std::ifstream in(netlib_dir() + "/MANIFEST.csv");
  std::string line;
  std::getline(in, line);
  while (std::getline(in, line)) {
    std::istringstream row(line);
    std::vector<std::string> f;
    for (std::string cell; std::getline(row, cell, ',') && f.size() < 8;) f.push_back(cell);
    if (f.size() < 8 || f[6] != "optimal") continue;
    models.push_back({f[1], std::stod(f[7])});
  }
  return models;
}

TEST(Netlib, EveryModelPresolvesSmaller) {
  const auto models = manifest();
  if (models.empty()) GTEST_SKIP() << "Netlib data not installed";
  int smaller = 0;
  for (const Model& model : models) {
    LpProblem p;
    std::string error;
    ASSERT_TRUE(read_mps(netlib_dir() + "/" + model.file, p, error)) << error;
    PresolveResult r = presolve(p, PresolveOptions());
    EXPECT_TRUE(r.status == PresolveStatus::kReduced || r.status == PresolveStatus::kSolved) << model.file;
    EXPECT_LE(r.stats.rows_after, r.stats.rows_before) << model.file;
    EXPECT_LE(r.stats.cols_after, r.stats.cols_before) << model.file;
    // The eliminator may add a few nonzeros while it removes rows and columns.
    EXPECT_LE(r.stats.nnz_after, r.stats.nnz_before * 5 / 4) << model.file;
    if (r.stats.rows_after < r.stats.rows_before || r.stats.cols_after < r.stats.cols_before) ++smaller;
  }
  EXPECT_GE(smaller, static_cast<int>(models.size() * 8 / 10));
}

// Models small enough for the dense tableau.
TEST(Netlib, SmallModelsPostsolveToOptimal) {
  const auto models = manifest();
  if (models.empty()) GTEST_SKIP() << "Netlib data not installed";
  int solved = 0;
  for (const Model& model : models) {
    LpProblem p;
    std::string error;
    ASSERT_TRUE(read_mps(netlib_dir() + "/" + model.file, p, error)) << error;
    if (static_cast<int64_t>(p.n) * p.m > 12000 || !p.is_int.empty()) continue;
    const DenseResult ref = solve_dense(to_dense(p));
    ASSERT_EQ(ref.status, LpStatus::kOptimal) << model.file;
    ASSERT_NEAR(ref.obj, model.objective, 1e-6 * (1 + std::fabs(model.objective))) << model.file;
    PresolveResult r = presolve(p, PresolveOptions());
    ASSERT_TRUE(r.status == PresolveStatus::kReduced || r.status == PresolveStatus::kSolved) << model.file;
    DenseResult red;
    red.obj = r.reduced.c0;
    if (r.status == PresolveStatus::kReduced) red = solve_dense(to_dense(r.reduced));
    ASSERT_EQ(red.status, LpStatus::kOptimal) << model.file;
    EXPECT_NEAR(red.obj, ref.obj, 1e-7 * (1 + std::fabs(ref.obj))) << model.file;
    const LpSolution sol = r.postsolve(as_solution(r.reduced, red));
    EXPECT_EQ(check_kkt(p, sol, ref.obj, 1e-6), "") << model.file;
    ++solved;
  }
  EXPECT_GE(solved, 5);
}

}  // namespace
}  // namespace qubor::presolve::testing
