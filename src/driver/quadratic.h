// Tasks with quadratic terms: the convexity check, the conversion to conic form and the
// optimizer path.
//
// The quadratic term of the objective is 1/2 x'Q^o x and that of constraint k 1/2 x'Q^k x.
// Convexity asks Q^o positive semidefinite when minimizing and negative semidefinite when
// maximizing, Q^k positive semidefinite under an upper bound and negative semidefinite under a
// lower bound; a quadratic equality or ranged constraint is not convex, a free one is.
//
// Conversion: with sigma Q = F'F (sigma = +1 or -1 as convexity asks, F from a sparse Cholesky
// of the occurring columns), each quadratic term gets new variables t, s = 1 and w = F x (rows
// w - F x = 0) in the rotated cone 2 t s >= ||w||^2, so that t >= 1/2 ||F x||^2 =
// sigma 1/2 x'Q x; the term 1/2 x'Q x is replaced by sigma t in the objective or the row.
#pragma once

#include <cstdint>
#include <vector>

#include "qubor.h"
#include "task/task.h"

namespace qubor::driver {

// QBR_IPAR_CHECK_CONVEXITY: none, the signs of the diagonals, or a factorization of every
// quadratic term (with the full-convexity-check callbacks). QBR_RES_ERR_NONCONVEX with a log
// line naming the objective or constraint.
QBRrescode check_convexity(task::Task& t);

// One converted quadratic term: the row (-1 for the objective), its variable t and the
// coefficient sigma of t.
struct ConvertedTerm {
  int32_t row = -1;
  int32_t t_var = -1;
  double sigma = 1.0;
};

// The conversion in place through the task's operations. On failure (7800-7804 or an error of
// an operation) the task is left as it was. `terms` (may be null) receives the converted terms.
QBRrescode to_conic(task::Task& t, std::vector<ConvertedTerm>* terms);

// The optimizer path of a task with quadratic terms: convexity check, then the run (the
// interior-point optimizer for a quadratic objective under linear constraints, the conic form
// for quadratic constraints or when the conic optimizer is chosen); the interior-point
// solution item holds the solution of the task as stated.
QBRrescode run_quadratic(task::Task& t);

}  // namespace qubor::driver
