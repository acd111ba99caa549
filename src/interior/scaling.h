// Scaling of the internal form: A_s = R A C with diagonal R (rows) and C (columns), both
// powers of two so that scaling and unscaling are exact.
//
// The scaled problem has b_s = R b, c_s = C c, Q_s = C Q C, u_s = C^{-1} u; a scaled point maps back by
// x = C x_s, y = R y_s, s = C^{-1} s_s, v = C^{-1} v_s.
#pragma once

#include <vector>

#include "interior/standard_form.h"

namespace qubor::interior {

// Mode: 0 none, 1 moderate, 2 aggressive.
// Fills row_scale (m) and col_scale (n) and scales sf in place.
void scale_problem(StandardForm& sf, int32_t mode, std::vector<double>& row_scale,
                   std::vector<double>& col_scale);

}  // namespace qubor::interior
