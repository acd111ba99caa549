// The internal form that the homogeneous method iterates on, and the way back.
//
//   minimize c'x + 1/2 x'Qx  subject to  A x = b,  x_j >= 0 (kLower), 0 <= x_j <= u_j (kBoxed),
//                             x_j free (kFree)
//
// Built from an LpProblem by:
//   - dropping free rows (both bounds infinite) and fixing fixed columns at their value;
//   - giving every inequality row i a slack column -e_i with the row's bounds (a_i x - s_i = 0),
//     so that equality rows stay as they are and no row is duplicated;
//   - shifting a column with a finite lower bound to it (x = l + x'), flipping a column with
//     only an upper bound (x = u - x'), keeping a column without bounds free.
// A quadratic objective follows the shifts and flips: with x = shift + sign x', the linear
// part gains sign (Q shift) and the constant c'shift + 1/2 shift'Q shift, and Q_ij becomes
// sign_i sign_j Q_ij; fixed columns leave Q. Q is kept with both triangles (slacks have none).
// recover() maps an internal primal-dual point (or ray) back to the LpProblem's form.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "interior/lp_problem.h"

namespace qubor::interior {

enum class ColKind : int8_t { kLower = 0, kBoxed = 1, kFree = 2 };

struct StandardForm {
  int32_t m = 0, n = 0;
  std::vector<int64_t> col_ptr;
  std::vector<int32_t> row_idx;
  std::vector<double> values;
  std::vector<double> b, c, u;      // u: +inf unless kBoxed
  std::vector<ColKind> kind;
  double obj_const = 0.0;           // cfix plus the objective of shifts and fixed columns

  // Origin of each internal column: source >= 0 a structural column, source < 0 the slack of
  // row -source-1; value = shift + sign * x'.
  std::vector<int32_t> source;
  std::vector<double> shift;
  std::vector<int8_t> sign;
  std::vector<int32_t> row_of;      // internal row -> problem row
  std::vector<int32_t> internal_row;  // problem row -> internal row, -1 when dropped
  int32_t num_struct = 0;           // internal columns [0, num_struct) are structural

  // Q over the internal columns, both triangles in CSC form; empty for a linear problem.
  std::vector<int64_t> q_ptr;
  std::vector<int32_t> q_idx;
  std::vector<double> q_val;
  bool has_q() const { return !q_ptr.empty() && q_ptr.back() > 0; }
  // True when Q has entries off its diagonal.
  bool q_offdiagonal() const;
  // out = Q z (overwritten); a linear problem gives 0.
  void multiply_q(const double* z, double* out) const;
};

// Builds the internal form. Returns false when the data is malformed (NaN, lo > up, an index
// out of range); `why` then names the first fault.
bool build_standard_form(const LpProblem& p, StandardForm& sf, std::string* why);

// Internal point: x, s (duals of x >= 0), v (duals of x <= u), y, scaled by 1/tau already.
struct InternalPoint {
  const double* x;
  const double* y;
  const double* s;
  const double* v;
};

enum class RecoverKind { kSolution, kPrimalRay, kDualRay };

// Fills x, xc, y, slc, suc, slx, sux of `r` in the LpProblem's form. For kPrimalRay the duals
// are 0 and shifts are not applied; for kDualRay the primal values are 0 and the objective
// does not enter the reduced costs.
void recover(const LpProblem& p, const StandardForm& sf, const InternalPoint& pt,
             RecoverKind kind, IpResult& r);

// Objective values of a result in the LpProblem's form (certificate rays omit cfix).
double primal_objective(const LpProblem& p, const IpResult& r, bool with_constant);
double dual_objective(const LpProblem& p, const IpResult& r, bool with_constant);

}  // namespace qubor::interior
