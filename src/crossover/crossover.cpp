// Basis identification; see crossover.h.
#include "crossover/crossover.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <numeric>

#include "qubor.h"

namespace qubor::crossover {
namespace {

struct Ranked {
  double score;
  int32_t item;  // j < n a column, n + i a row
};

// Score of one item from its value, bounds and bound duals.
double score(double v, double lo, double up, double sl, double su) {
  const double dist = std::min(v - lo, up - v);
  const double rel = std::isfinite(dist) ? std::max(dist, 0.0) / (1.0 + std::fabs(v)) : 1.0;
  const double dual = std::fabs(sl) + std::fabs(su);
  return rel / (rel + dual + 1e-14);
}

// Key of a nonbasic item: its nearer finite bound.
int32_t nonbasic_key(double v, double lo, double up) {
  const bool l = std::isfinite(lo), u = std::isfinite(up);
  if (l && u && lo == up) return QBR_SK_FIX;
  if (l && (!u || v - lo <= up - v)) return QBR_SK_LOW;
  if (u) return QBR_SK_UPR;
  return QBR_SK_SUPBAS;
}

}  // namespace

simplex::StartBasis rank_basis(const interior::LpProblem& lp, const interior::IpResult& ip) {
  const int32_t m = lp.num_row, n = lp.num_col;
  std::vector<Ranked> items(static_cast<size_t>(n + m));
  for (int32_t j = 0; j < n; ++j) {
    const size_t js = static_cast<size_t>(j);
    items[js] = {score(ip.x[js], lp.col_lo[js], lp.col_up[js], ip.slx[js], ip.sux[js]), j};
  }
  for (int32_t i = 0; i < m; ++i) {
    const size_t is = static_cast<size_t>(i);
    items[static_cast<size_t>(n + i)] = {score(ip.xc[is], lp.row_lo[is], lp.row_up[is], ip.slc[is], ip.suc[is]), n + i};
  }
  // Fixed items never enter; ties go to rows (their unit columns keep the basis regular).
  std::stable_sort(items.begin(), items.end(), [n](const Ranked& a, const Ranked& b) {
    return a.score > b.score || (a.score == b.score && a.item >= n && b.item < n);
  });
  simplex::StartBasis start;
  start.skx.resize(static_cast<size_t>(n));
  start.skc.resize(static_cast<size_t>(m));
  for (size_t k = 0; k < items.size(); ++k) {
    const int32_t it = items[k].item;
    const bool basic = static_cast<int32_t>(k) < m;
    if (it < n) {
      const size_t js = static_cast<size_t>(it);
      start.skx[js] = basic ? QBR_SK_BAS : nonbasic_key(ip.x[js], lp.col_lo[js], lp.col_up[js]);
    } else {
      const size_t is = static_cast<size_t>(it - n);
      start.skc[is] = basic ? QBR_SK_BAS : nonbasic_key(ip.xc[is], lp.row_lo[is], lp.row_up[is]);
    }
  }
  return start;
}

void identify_basis(const interior::LpProblem& lp, const interior::IpResult& ip, const simplex::SimplexOptions& opt,
                    CrossoverResult& result) {
  const auto t0 = std::chrono::steady_clock::now();
  const simplex::StartBasis start = rank_basis(lp, ip);
  simplex::solve(lp, opt, &start, result.clean);
  result.time = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

}  // namespace qubor::crossover
