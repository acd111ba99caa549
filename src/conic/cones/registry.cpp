// The one list of cone kinds; see cone.h.
#include "conic/cones/cone.h"

namespace qubor::conic {

int64_t ConeLayout::psd_begin() const {
  int64_t b = num_nonneg;
  for (int32_t d : soc_dim) b += d;
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
  if (!layout.psd_dim.empty()) cones.push_back(make_psd_cones(layout.psd_begin(), layout.psd_dim));
  return cones;
}

}  // namespace qubor::conic
