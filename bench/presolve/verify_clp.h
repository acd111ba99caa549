// Check of postsolve on problems too large for the tests' dense solver: clp solves the
// reduced problem (written as MPS), its primal and dual values go through postsolve (keys
// derived, as for an interior-point solution), and the result is measured against the
// original problem.
#pragma once

#include <string>

#include "presolve/presolve.h"

namespace qubor::presolve::testing {

struct Verification {
  bool solved = false;      // clp reported an optimum of the reduced problem
  double reduced_obj = 0.0;  // as clp printed it
  double obj = 0.0;         // of the postsolved solution on the original problem
  double primal_inf = 0.0;  // largest bound or row violation, relative to 1 + |side|
  double reduced_primal_inf = 0.0;  // the same of clp's solution on the reduced problem
  double dual_inf = 0.0;    // largest reduced cost or dual of the sign no bound allows
  double compl_gap = 0.0;   // largest min(|dual|, distance to the bound it presses on)
};

// Writes the reduced problem of r to mps_path, solves it with clp and checks the postsolved
// solution against `original`.
Verification verify_with_clp(const LpProblem& original, const PresolveResult& r, const std::string& mps_path);

// Free MPS with generated names (r<i>, x<j>), marked FREE on the NAME line (without it clp
// reads the first BOUNDS line in fixed columns); an infinite lower bound is written as -1e30.
void write_mps(const std::string& path, const LpProblem& p);

}  // namespace qubor::presolve::testing
