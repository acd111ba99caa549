// The termination test on hand-made quantities: tolerance floors, strictness, relaxation
// levels and the choice between two certificates.
#include <gtest/gtest.h>

#include "interior/termination.h"

namespace qubor::interior {
namespace {

TerminationInput near_optimal() {
  TerminationInput in;
  in.pfeasf = 1e-9;
  in.dfeasf = 1e-9;
  in.relgap = 1e-9;
  in.cx = 1.0;
  in.by = 1.0;
  in.tau = 1.0;
  in.primal_norm = 0.0;
  in.dual_norm = 0.0;
  in.pfeasinff = in.dfeasinff = 1.0;  // no certificate in sight
  in.norm_obj = in.norm_rhs = in.norm_bound = 1.0;
  return in;
}

TEST(Termination, OptimalityToleranceComparisons) {
  TerminationInput in = near_optimal();
  EXPECT_TRUE(termination_test(in, 0, 0, nullptr).passed);
  // The primal comparison is not strict, the dual one is.
  in.pfeasf = 1e-8;
  EXPECT_TRUE(termination_test(in, 0, 0, nullptr).passed);
  in = near_optimal();
  in.dfeasf = 1e-8;
  EXPECT_FALSE(termination_test(in, 0, 0, nullptr).passed);
  // Tolerance products below 1e-12 are raised to it.
  in = near_optimal();
  in.tau = 1e-9;
  in.pfeasf = in.dfeasf = 9e-13;
  EXPECT_TRUE(termination_test(in, 0, 0, nullptr).passed);
  in.pfeasf = 2e-12;
  EXPECT_FALSE(termination_test(in, 0, 0, nullptr).passed);
}

TEST(Termination, RelaxationLevels) {
  TerminationInput in = near_optimal();
  in.pfeasf = in.dfeasf = 5e-7;  // 50 times the tolerance
  in.relgap = 5e-7;
  EXPECT_FALSE(termination_test(in, 0, 0, nullptr).passed);
  const TerminationOutcome o = termination_test(in, 1, 1, nullptr);
  EXPECT_TRUE(o.passed);
  EXPECT_EQ(o.problem_status, 1);
  EXPECT_EQ(o.solution_status, 1);
  // Stricter levels: the gap must be 100 (g = -1) or 10000 (r = -1 as well) times smaller.
  in = near_optimal();
  in.relgap = 5e-11;
  EXPECT_TRUE(termination_test(in, -1, 0, nullptr).passed);
  EXPECT_FALSE(termination_test(in, -1, -1, nullptr).passed);
}

TEST(Termination, Certificates) {
  TerminationInput in;
  in.pfeasf = in.dfeasf = 1.0;
  in.relgap = 1.0;
  in.tau = 1e-3;
  in.norm_obj = in.norm_rhs = in.norm_bound = 1.0;
  // Primal infeasibility: b'y > 0 with a nearly exact dual ray.
  in.by = 1.0;
  in.cx = 0.5;
  in.dfeasinff = 1e-12;
  TerminationOutcome o = termination_test(in, 0, 0, nullptr);
  EXPECT_TRUE(o.passed);
  EXPECT_EQ(o.problem_status, 4);
  EXPECT_EQ(o.solution_status, 5);
  // Dual infeasibility: c'x < 0 with a nearly exact primal ray.
  in.by = -1.0;
  in.cx = -1.0;
  in.pfeasinff = 1e-12;
  o = termination_test(in, 0, 0, nullptr);
  EXPECT_EQ(o.problem_status, 5);
  EXPECT_EQ(o.solution_status, 6);
  // Both pass: the smaller infeasibility-to-objective ratio wins.
  in.by = 1.0;
  in.pfeasinff = 1e-13;
  in.dfeasinff = 1e-12;
  EXPECT_EQ(termination_test(in, 0, 0, nullptr).problem_status, 5);
  in.pfeasinff = 1e-12;
  in.dfeasinff = 1e-13;
  EXPECT_EQ(termination_test(in, 0, 0, nullptr).problem_status, 4);
  // Near certificates only at relaxed levels.
  in.cx = 1.0;
  in.dfeasinff = 1e-7;
  EXPECT_FALSE(termination_test(in, 0, 0, nullptr).passed);
  o = termination_test(in, 0, 2, nullptr);
  EXPECT_TRUE(o.passed);
  EXPECT_EQ(o.solution_status, 12);
}

}  // namespace
}  // namespace qubor::interior
