// The conic problem as the driver hands it over, and the internal form the optimizer
// iterates on.
//
// ConicProblem (minimize; the driver negates a maximization):
//   minimize    c'x + cfix + sum_j <C_j, X_j>
//   subject to  row_lo <= A x + sum_j <A_ij, X_j> <= row_up,  col_lo <= x <= col_up,
//               x in the cones, X_j symmetric positive semidefinite,
// with the linear part as in interior::LpProblem, the cones as member lists and the
// coefficient matrices as lower-triangular entries (row -1 for the objective).
//
// ConicForm:  minimize c'z  subject to  A z = b,  z in [R+^l | Q^q1 x ... | K_exp, K_pow ... | S^d1 x ...],
// built by:
//   - giving every inequality row a slack item (a_i x - r_i = 0) with the row's bounds;
//   - turning each item (variable or slack) outside a cone into nonnegative columns: a lower
//     bound shifts (x = l + z), an upper bound alone flips (x = u - z), two bounds add the
//     row z + w = u - l, a free item is split (x = z+ - z-), a fixed one is substituted;
//   - keeping cone members as cone columns, with a row x - t = l or x + t = u (t >= 0) for
//     each finite bound of a member; rotated cones become quadratic cones through the
//     orthogonal map (x1, x2) = ((z1 + z2), (z1 - z2)) / sqrt(2); dual exponential and dual
//     power cones become primal ones through a scaled permutation of their members
//     (x = (z1, -e z3, -e z2), x = (a z1, (1 - a) z2, z3, ...)); members of zero cones are
//     fixed at 0;
//   - writing matrix variables in svec form (lower triangle by columns, off-diagonal entries
//     times sqrt(2)), so that <A, X> = svec(A)'svec(X).
// Reductions on the way: fixed variables are substituted, free rows dropped, and a row with a
// single entry a_ij of a variable outside the cones becomes bounds of x_j (the row's dual is
// recovered from the dual of the bound it set).
// recover() maps an internal point back to the problem's items.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "conic/cones/cone.h"
#include "interior/lp_problem.h"

namespace qubor::conic {

enum class ConeType : int32_t { kQuad = 0, kRQuad = 1, kPExp = 2, kDExp = 3, kPPow = 4, kDPow = 5, kZero = 6 };

struct BarEntry {
  int32_t row = -1;   // -1: objective
  int32_t bar = 0;    // matrix variable
  int32_t r = 0, c = 0;  // r >= c
  double v = 0.0;
};

struct ConicProblem {
  interior::LpProblem lp;
  std::vector<int32_t> cone_type;     // ConeType values
  std::vector<int64_t> cone_ptr;      // members of cone k: cone_mem[cone_ptr[k], cone_ptr[k+1])
  std::vector<int32_t> cone_mem;
  std::vector<double> cone_par;       // power cones: the parameter a
  std::vector<int32_t> bar_dim;
  std::vector<BarEntry> bar;          // any order; duplicates are summed
};

// Where a problem item (variable or row slack) lives in the internal form.
struct ItemMap {
  enum Kind : int8_t { kFixed, kLower, kUpper, kBoxed, kFree, kMember, kNone } kind = kNone;
  int32_t col = -1;     // kLower/kUpper/kBoxed: z; kFree: z+; kMember: the cone column
  int32_t col2 = -1;    // kBoxed: w; kFree: z-
  double shift = 0.0;   // kFixed: the value; kLower/kBoxed: l; kUpper: u
  int32_t lo_row = -1, up_row = -1, fix_row = -1;  // kMember: rows of its bounds
  int32_t lo_col = -1, up_col = -1;                // kMember: their t columns
  double fac = 1.0;       // kMember: x = fac * z (members of dual cones)
};

struct ConicForm {
  int32_t m = 0, n = 0;
  std::vector<int64_t> col_ptr;
  std::vector<int32_t> row_idx;
  std::vector<double> values;
  std::vector<double> b, c;
  double obj_const = 0.0;
  ConeLayout layout;
  // Matrix-form coefficients of the semidefinite blocks, by block and row: block k has rows
  // psd_rows[psd_row_ptr[k] .. psd_row_ptr[k+1]) (sorted), and row slot p its lower entries
  // psd_r/psd_c/psd_v[psd_ent_ptr[p] .. psd_ent_ptr[p+1]) in the block's numbering.
  std::vector<int64_t> psd_row_ptr;
  std::vector<int32_t> psd_rows;
  std::vector<int64_t> psd_ent_ptr;
  std::vector<int32_t> psd_r, psd_c;
  std::vector<double> psd_v;
  // Way back.
  std::vector<ItemMap> var_map, row_map;
  std::vector<int32_t> row_internal;  // problem row -> internal row, -1 for a dropped row
  // Rows turned into bounds: the variable whose lower (upper) bound each row set last, -1 for
  // the variable's own bound.
  std::vector<int32_t> lo_row, up_row;  // per variable
  int32_t num_singleton_rows = 0;
  std::vector<int64_t> bar_start;     // internal column of each matrix variable's svec
  // Cone members whose columns came from a rotated cone (pairs).
  std::vector<int32_t> rot_cols;      // first columns of rotated pairs
};

bool build_conic_form(const ConicProblem& p, ConicForm& f, std::string* why);

// The internal point (scaled back by the caller: divided by tau for a solution).
struct ConicPoint {
  const double* x;
  const double* s;
  const double* y;
};

struct ConicSolution {
  std::vector<double> xx, slx, sux, snx;        // per variable
  std::vector<double> xc, y, slc, suc;          // per row
  std::vector<double> barx, bars;               // packed lower triangles, one after another
  double primal_obj = 0.0, dual_obj = 0.0;
};

// `ray` leaves out the shifts and the objective constant (certificates).
void recover(const ConicProblem& p, const ConicForm& f, const ConicPoint& pt, bool ray,
             ConicSolution& out);

}  // namespace qubor::conic
