// Test-only tools for the presolve tests: a dense two-phase tableau simplex (Bland's rule) for
// small LPs in the presolve's form, a KKT checker of primal-dual solutions with status keys,
// and conversions between the sparse LpProblem and a dense copy.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "presolve/presolve.h"

namespace qubor::presolve::testing {

struct DenseLp {
  int32_t n = 0, m = 0;
  std::vector<double> a;  // row-major m x n
  std::vector<double> c, l, u, rl, ru;
  double c0 = 0.0;
  std::vector<uint8_t> is_int;
  double& at(int32_t i, int32_t j) { return a[static_cast<size_t>(i) * n + j]; }
  double at(int32_t i, int32_t j) const { return a[static_cast<size_t>(i) * n + j]; }
};

enum class LpStatus { kOptimal, kInfeasible, kUnbounded };

struct DenseResult {
  LpStatus status = LpStatus::kOptimal;
  double obj = 0.0;
  std::vector<double> x, y;  // primal values and row duals (y = slc - suc)
};

DenseResult solve_dense(const DenseLp& p);

DenseLp to_dense(const LpProblem& p);
LpProblem to_sparse(const DenseLp& d);

// A solution of p in the LpSolution form: z = c - A'y split by sign, keys from the values.
LpSolution as_solution(const LpProblem& p, const DenseResult& r);

// Returns an empty string when sol is a primal-dual optimal solution of p with objective obj
// (complementarity, signs of the duals per finite bound, status keys consistent with values,
// bounds and duals), else a description of the first violation.
std::string check_kkt(const LpProblem& p, const LpSolution& sol, double obj, double tol = 1e-6);

double objective(const LpProblem& p, const Vec<double>& x);

}  // namespace qubor::presolve::testing
