// The one list of cone kinds; see cone.h.
#include <algorithm>

#include "conic/cones/cone.h"

namespace qubor::conic {

int64_t ConeLayout::nonsym_begin() const {
  int64_t b = num_nonneg;
  for (int32_t d : soc_dim) b += d;
  return b;
}

int64_t ConeLayout::psd_begin() const {
  int64_t b = nonsym_begin();
  for (const NonsymSpec& c : nonsym) b += c.dim;
  return b;
}

int64_t ConeLayout::num_cols() const {
  int64_t b = psd_begin();
  for (int32_t d : psd_dim) b += svec_len(d);
  return b;
}

std::vector<std::unique_ptr<Cone>> make_cones(const ConeLayout& layout) {
  std::vector<std::unique_ptr<Cone>> cones;
  if (layout.num_nonneg > 0) cones.push_back(make_nonneg_cone(0, layout.num_nonneg));
  if (!layout.soc_dim.empty()) cones.push_back(make_soc_cones(layout.soc_begin(), layout.soc_dim));
  if (!layout.nonsym.empty())
    cones.push_back(make_nonsym_cones(layout.nonsym_begin(), layout.nonsym, static_cast<int32_t>(layout.soc_dim.size())));
  if (!layout.psd_dim.empty()) cones.push_back(make_psd_cones(layout.psd_begin(), layout.psd_dim));
  return cones;
}

// Shared by the symmetric kinds.
void SymmetricCone::complementarity_rhs(const ConeDirection* aff, double sigma_mu, double* r4, double* w1,
                                        double* w2) const {
  lambda_square(w2, w1);
  for (int64_t j = begin(); j < end(); ++j) w2[j] = -w2[j];
  if (aff != nullptr) {
    jordan(aff->wdx, aff->wds, w1);
    for (int64_t j = begin(); j < end(); ++j) w2[j] -= w1[j];
    add_identity(w2, sigma_mu);
  }
  divide_lambda(w2, w1);
  apply_wt(w1, r4);
}

double SymmetricCone::max_step(const ConeDirection& d) const {
  return std::min(max_step_scaled(d.wdx), max_step_scaled(d.wds));
}

}  // namespace qubor::conic
