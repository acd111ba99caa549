// The conic optimizer on real instances: semidefinite programs of the SDPLIB set (read with
// the program's SDPA reader) against their reference values, second-order cone models of the
// DIMACS set, continuous relaxations of exponential- and power-cone models of the CBLIB set
// against the values of other solvers, a linear Netlib model sent to the conic
// optimizer against the linear optimizer, and repeatability.
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <string>
#include <vector>

#include "qubor.h"
#include "sdpa_reader.h"

namespace {

struct Outcome {
  int32_t solsta = -1;
  double pobj = 0.0, dobj = 0.0;
  std::vector<double> xx;
};

// `relax`: the continuous relaxation (integer variables ignored).
Outcome solve_file(const std::string& path, int32_t optimizer, bool sdpa, bool relax = false) {
  Outcome out;
  QBRenv_t env = nullptr;
  QBRtask_t t = nullptr;
  EXPECT_EQ(QBR_makeenv(&env, nullptr), QBR_RES_OK);
  EXPECT_EQ(QBR_maketask(env, 0, 0, &t), QBR_RES_OK);
  std::string err;
  if (sdpa) {
    EXPECT_TRUE(qubor_app::read_sdpa(t, path, &err)) << err;
  } else {
    EXPECT_EQ(QBR_readdata(t, path.c_str()), QBR_RES_OK);
  }
  QBR_putintparam(t, QBR_IPAR_OPTIMIZER, optimizer);
  QBR_putintparam(t, QBR_IPAR_NUM_THREADS, 1);
  if (relax) QBR_putintparam(t, QBR_IPAR_MIO_MODE, QBR_MIO_MODE_IGNORED);
  EXPECT_EQ(QBR_optimize(t), QBR_RES_OK);
  QBR_getsolsta(t, QBR_SOL_ITR, &out.solsta);
  QBR_getprimalobj(t, QBR_SOL_ITR, &out.pobj);
  QBR_getdualobj(t, QBR_SOL_ITR, &out.dobj);
  int32_t n = 0;
  QBR_getnumvar(t, &n);
  out.xx.assign(static_cast<size_t>(n), 0.0);
  if (n > 0) QBR_getxx(t, QBR_SOL_ITR, out.xx.data());
  QBR_deletetask(&t);
  QBR_deleteenv(&env);
  return out;
}

bool have(const std::string& path) { return std::ifstream(path).good(); }

struct Instance {
  const char* name;
  double reference;
  double rtol;  // the manifest gives some references to few digits
};

// An optimal solution whose primal and dual objectives both reach the reference.
void expect_reference(const Outcome& r, const Instance& in) {
  EXPECT_EQ(r.solsta, QBR_SOL_STA_OPTIMAL);
  const double tol = in.rtol * std::max(1.0, std::fabs(in.reference));
  EXPECT_NEAR(r.pobj, in.reference, tol);
  EXPECT_NEAR(r.dobj, in.reference, tol);
}

class Sdplib : public ::testing::TestWithParam<Instance> {};

TEST_P(Sdplib, ReachesTheReferenceValue) {
  const std::string path = std::string(QUBOR_DATA_DIR) + "/sdplib/" + GetParam().name + ".dat-s.gz";
  if (!have(path)) GTEST_SKIP() << "no " << path;
  expect_reference(solve_file(path, QBR_OPTIMIZER_CONIC, true), GetParam());
}

// References of the set's manifest.
INSTANTIATE_TEST_SUITE_P(Instances, Sdplib,
                         ::testing::Values(Instance{"theta1", 23.0, 1e-6}, Instance{"truss1", -8.999996, 1e-6},
                                           Instance{"control1", 17.78463, 1e-6}, Instance{"hinf1", 2.0326, 1e-4},
                                           Instance{"mcp100", 226.1574, 1e-6}),
                         [](const ::testing::TestParamInfo<Instance>& i) { return std::string(i.param.name); });

class Dimacs : public ::testing::TestWithParam<Instance> {};

// Second-order cone instances read from CBF; a reference of 0 marks an infeasible instance,
// which must end with a primal infeasibility certificate.
TEST_P(Dimacs, ReachesTheReferenceOrCertifies) {
  const std::string path = std::string(QUBOR_DATA_DIR) + "/dimacs/" + GetParam().name + ".cbf.gz";
  if (!have(path)) GTEST_SKIP() << "no " << path;
  const Outcome r = solve_file(path, QBR_OPTIMIZER_CONIC, false);
  if (GetParam().reference == 0.0) {
    EXPECT_EQ(r.solsta, QBR_SOL_STA_PRIM_INFEAS_CER);
    return;
  }
  EXPECT_EQ(r.solsta, QBR_SOL_STA_OPTIMAL);
  const double ref = GetParam().reference;
  EXPECT_NEAR(r.pobj, ref, GetParam().rtol * std::max(1.0, std::fabs(ref)));
}

INSTANTIATE_TEST_SUITE_P(Instances, Dimacs,
                         ::testing::Values(Instance{"nql30", -0.946, 1e-3}, Instance{"qssp30", -6.4966749, 1e-6},
                                           Instance{"filtinf1", 0.0, 0.0}),
                         [](const ::testing::TestParamInfo<Instance>& i) { return std::string(i.param.name); });

class CblibRelaxation : public ::testing::TestWithParam<Instance> {};

// Process-synthesis models (exponential cones), a risk model with power cones and a design
// model with exponential cones and a matrix variable, read from CBF.
TEST_P(CblibRelaxation, ReachesTheValueOfOtherSolvers) {
  const std::string path = std::string(QUBOR_DATA_DIR) + "/cblib/" + GetParam().name + ".cbf.gz";
  if (!have(path)) GTEST_SKIP() << "no " << path;
  expect_reference(solve_file(path, QBR_OPTIMIZER_FREE, false, true), GetParam());
}

// Relaxation values of another solver (an interior-point one for the process-synthesis models,
// a first-order one run to 1e-8 for the other two).
INSTANTIATE_TEST_SUITE_P(Instances, CblibRelaxation,
                         ::testing::Values(Instance{"syn10h", -1267.70928, 1e-6}, Instance{"syn15m", -1682.93801, 1e-6},
                                           Instance{"syn20m03m", -7371.39504, 1e-6},
                                           Instance{"HMCR-n20-m400", 0.0345742940, 1e-6},
                                           Instance{"expdesign_D_8_4", 0.840960772, 1e-6}),
                         [](const ::testing::TestParamInfo<Instance>& i) {
                           std::string n = i.param.name;
                           std::replace(n.begin(), n.end(), '-', '_');
                           return n;
                         });

TEST(ConicReal, LinearModelMatchesTheLinearOptimizer) {
  const std::string path = std::string(QUBOR_EXAMPLES_DIR) + "/afiro.mps";
  const Outcome conic = solve_file(path, QBR_OPTIMIZER_CONIC, false);
  const Outcome linear = solve_file(path, QBR_OPTIMIZER_INTPNT, false);
  EXPECT_EQ(conic.solsta, QBR_SOL_STA_OPTIMAL);
  EXPECT_NEAR(conic.pobj, -464.7531428571, 1e-6 * 464.75);
  EXPECT_NEAR(conic.pobj, linear.pobj, 1e-6 * 464.75);
}

TEST(ConicReal, SameThreadCountGivesTheSameBits) {
  const std::string path = std::string(QUBOR_DATA_DIR) + "/sdplib/control1.dat-s.gz";
  if (!have(path)) GTEST_SKIP() << "no " << path;
  const Outcome a = solve_file(path, QBR_OPTIMIZER_CONIC, true);
  const Outcome b = solve_file(path, QBR_OPTIMIZER_CONIC, true);
  EXPECT_EQ(a.pobj, b.pobj);
  EXPECT_EQ(a.xx, b.xx);
}

}  // namespace
