// Factor of a symmetric positive semidefinite matrix, for the convexity check and the conic
// form of quadratic terms.
//
// Input: the lower-triangle entries (subi[k] >= subj[k]) of a symmetric matrix Q over n
// columns, scaled by sign (+1 or -1, so that -Q can be tested without a copy); repeated
// entries are summed. Only the columns that occur are factored.
//
// Method: a sparse Cholesky of the occurring columns in a fill-reducing order whose bad pivots
// (at most rel_tol * max_j Q_jj) drop their column, then the test ||Q v - F'F v||_inf <=
// max(sqrt(rel_tol), 1e-8) * max_i sum_j |Q_ij v_j| on two fixed vectors v of entries
// +-[0.5, 1.5]. A semidefinite Q passes (its column at a zero pivot is zero, so dropping it
// loses nothing); a matrix with a negative pivot, or a zero pivot with a nonzero column, leaves
// a residual of the size of the lost part and fails. Deterministic.
#pragma once

#include <cstdint>
#include <vector>

#include "linalg/common/status.h"

namespace qubor::linalg {

// F by rows: row r holds col[ptr[r] .. ptr[r+1]) (indices in 0..n-1) with values val.
struct PsdFactor {
  int32_t rows = 0;
  std::vector<int64_t> ptr{0};
  std::vector<int32_t> col;
  std::vector<double> val;
};

// Sets *psd and, when psd and f is not null, f with sign * Q = F' F.
Status psd_factor(int32_t n, int64_t nz, const int32_t* subi, const int32_t* subj, const double* val, double sign,
                  double rel_tol, bool* psd, PsdFactor* f);

}  // namespace qubor::linalg
