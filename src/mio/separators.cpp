// Cut separators, made in make_separators (the one place they are registered).
//
// Knapsack cover: a row sum a_j x_j <= b over binary columns (a >= row turned around,
// negative coefficients complemented: x_j = 1 - x'_j) has, for every cover C (sum over C
// of a_j > b), the valid inequality sum_{C} x_j <= |C| - 1, extended to every column whose
// coefficient is at least the largest of C. The cover is built greedily, smallest
// (1 - x*_j) / a_j first, so that the point x* violates it when any such cover does.
#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

#include "mio/cutpool.h"

namespace qubor::mio {
namespace {

struct Item {
  int32_t j;
  double a;      // positive, after complementing
  bool comp;     // complemented
  double xv;     // value of the (complemented) column at the point
};

void cover_of_row(const Problem& p, int32_t i, double sign, double rhs, const std::vector<double>& x, int32_t family,
                  CutPool& pool, std::vector<Item>& items) {
  items.clear();
  const size_t is = static_cast<size_t>(i);
  double b = sign * rhs;
  for (int64_t k = p.row_ptr[is]; k < p.row_ptr[is + 1]; ++k) {
    const int32_t j = p.col_idx[static_cast<size_t>(k)];
    const double a = sign * p.row_val[static_cast<size_t>(k)];
    if (p.type[static_cast<size_t>(j)] != VarType::kBinary) return;
    if (a == 0.0) continue;
    const double xj = x[static_cast<size_t>(j)];
    if (a > 0.0) {
      items.push_back({j, a, false, xj});
    } else {
      items.push_back({j, -a, true, 1.0 - xj});
      b -= a;
    }
  }
  if (items.size() < 2 || b < 0.0) return;
  double total = 0.0;
  for (const Item& it : items) total += it.a;
  if (total <= b + 1e-9) return;  // no cover exists
  std::vector<size_t> order(items.size());
  std::iota(order.begin(), order.end(), 0);
  std::stable_sort(order.begin(), order.end(), [&](size_t u, size_t v) {
    return (1.0 - items[u].xv) / items[u].a < (1.0 - items[v].xv) / items[v].a;
  });
  double weight = 0.0, lhs = 0.0, amax = 0.0;
  size_t size = 0;
  std::vector<uint8_t> in(items.size(), 0);
  for (size_t u : order) {
    in[u] = 1;
    weight += items[u].a;
    lhs += items[u].xv;
    amax = std::max(amax, items[u].a);
    ++size;
    if (weight > b + 1e-9) break;
  }
  if (weight <= b + 1e-9 || lhs <= static_cast<double>(size) - 1.0 + 1e-6) return;
  // Extension, then back to the original columns: x'_j = 1 - x_j moves 1 to the right.
  Cut cut;
  double up = static_cast<double>(size) - 1.0;
  for (size_t u = 0; u < items.size(); ++u) {
    if (!in[u] && items[u].a < amax) continue;
    cut.idx.push_back(items[u].j);
    cut.val.push_back(items[u].comp ? -1.0 : 1.0);
    if (items[u].comp) up -= 1.0;
  }
  cut.lo = -std::numeric_limits<double>::infinity();
  cut.up = up;
  cut.family = family;
  pool.add(std::move(cut), x);
}

int32_t knapsack_cover(void*, const Problem& p, const SeparationPoint& pt, int32_t family, CutPool& pool) {
  const std::vector<double>& x = pt.x;
  const size_t before = pool.size();
  std::vector<Item> items;
  for (int32_t i = 0; i < p.m(); ++i) {
    const double lo = p.lp.row_lo[static_cast<size_t>(i)], up = p.lp.row_up[static_cast<size_t>(i)];
    if (std::isfinite(up)) cover_of_row(p, i, 1.0, up, x, family, pool, items);
    if (std::isfinite(lo)) cover_of_row(p, i, -1.0, lo, x, family, pool, items);
  }
  return static_cast<int32_t>(pool.size() - before);
}

const SeparatorOps kKnapsackCoverOps = {nullptr, knapsack_cover};

}  // namespace

std::vector<Separator> make_separators(const SeparatorSwitches& s) {
  std::vector<Separator> v;
  if (s.gmi) v.push_back(Separator{Record<SeparatorOps>("GMI", &kGmiOps, nullptr)});
  if (s.knapsack_cover) v.push_back(Separator{Record<SeparatorOps>("KNAPSACK_COVER", &kKnapsackCoverOps, nullptr)});
  return v;
}

}  // namespace qubor::mio
