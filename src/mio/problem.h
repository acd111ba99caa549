// The internal problem of the mixed-integer optimizer:
//
//   minimize    c'x + cfix
//   subject to  row_lo <= A x <= row_up,  col_lo <= x <= col_up,  x_j integer for j in I
//
// A is held by columns (for the relaxations) and by rows (for propagation and heuristics);
// infinite bounds are +-inf. Integer columns have integral bounds; an integer column with
// bounds in [0, 1] is binary.
#pragma once

#include <cstdint>
#include <vector>

#include "interior/lp_problem.h"

namespace qubor::mio {

enum class VarType : int8_t { kContinuous = 0, kInteger = 1, kBinary = 2 };

struct Problem {
  interior::LpProblem lp;  // the relaxation: columns, costs and bounds
  std::vector<VarType> type;
  std::vector<int64_t> row_ptr;  // row copy of A
  std::vector<int32_t> col_idx;
  std::vector<double> row_val;
  int32_t num_int = 0, num_bin = 0, num_cont = 0;
  // True when every objective coefficient sits on an integer column and is integral: the
  // objective of any integer solution is then an integer plus cfix.
  bool integral_objective = false;

  int32_t n() const { return lp.num_col; }
  int32_t m() const { return lp.num_row; }
  bool is_int(int32_t j) const { return type[static_cast<size_t>(j)] != VarType::kContinuous; }
};

// Builds the internal problem from a relaxation and integrality flags (one per column). The
// bounds of integer columns are rounded inward; false when that empties a domain.
bool make_problem(interior::LpProblem lp, const std::vector<uint8_t>& is_int, Problem& p);

// Largest violation of the rows (relative to 1 + |bound|), of the column bounds (absolute)
// and of integrality for the integer columns, by x.
struct Violation {
  double row = 0.0, bound = 0.0, integrality = 0.0;
};
Violation violation(const Problem& p, const double* x);
double objective(const Problem& p, const double* x);

}  // namespace qubor::mio
