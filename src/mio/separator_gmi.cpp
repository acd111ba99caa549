// Gomory mixed-integer cuts from the optimal tableau.
//
// The basis of the relaxation is factorized over [A I] (logicals s = -A x). For a basic
// integer column with a fractional value, the tableau row rho' [A I] with rho = B^{-T} e_r
// gives x_B + sum_k alpha_k z_k = 0 over the nonbasic items z. Each nonbasic item is
// written as its distance t_k >= 0 from the bound it sits at, so that
// x_B + sum_k a_k t_k = x_B* with f0 = frac(x_B*); the cut
//   sum_{k integer} min(f_k / f0, (1 - f_k) / (1 - f0)) t_k
//     + sum_{k continuous} max(a_k / f0, -a_k / (1 - f0)) t_k >= 1
// holds for every integer solution (f_k = frac(a_k); logicals count as continuous) and is
// written back in the columns x. Rows with an item away from its bounds are skipped.
#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

#include "linalg/lu/basis_lu.h"
#include "mio/cutpool.h"
#include "qubor.h"

namespace qubor::mio {
namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr int32_t kMaxRows = 50;

enum class At : int8_t { kLower, kUpper, kFixed, kOther };

int32_t gmi(void*, const Problem& p, const SeparationPoint& pt, int32_t family, CutPool& pool) {
  if (pt.basis == nullptr) return 0;
  const int32_t n = p.n(), m = p.m();
  const std::vector<int32_t>& skx = pt.basis->skx;
  const std::vector<int32_t>& skc = pt.basis->skc;
  const std::vector<double>& x = pt.x;
  if (static_cast<int32_t>(skx.size()) != n || static_cast<int32_t>(skc.size()) != m || m == 0) return 0;
  const interior::LpProblem& lp = p.lp;
  const std::vector<double>& col_lo = pt.lo;
  const std::vector<double>& col_up = pt.up;
  std::vector<int32_t> basis;
  std::vector<At> at(static_cast<size_t>(n + m), At::kOther);
  for (int32_t j = 0; j < n; ++j) {
    const size_t js = static_cast<size_t>(j);
    const int32_t k = skx[js];
    if (k == QBR_SK_BAS) {
      basis.push_back(j);
    } else if (col_lo[js] == col_up[js]) {
      at[js] = At::kFixed;
    } else if (k == QBR_SK_LOW && std::isfinite(col_lo[js]) && std::fabs(x[js] - col_lo[js]) <= 1e-7) {
      at[js] = At::kLower;
    } else if (k == QBR_SK_UPR && std::isfinite(col_up[js]) && std::fabs(x[js] - col_up[js]) <= 1e-7) {
      at[js] = At::kUpper;
    }
  }
  for (int32_t i = 0; i < m; ++i) {
    const size_t is = static_cast<size_t>(i), ks = static_cast<size_t>(n + i);
    const int32_t k = skc[is];
    if (k == QBR_SK_BAS) basis.push_back(n + i);
    else if (lp.row_lo[is] == lp.row_up[is]) at[ks] = At::kFixed;
    else if (k == QBR_SK_LOW && std::isfinite(lp.row_lo[is])) at[ks] = At::kLower;
    else if (k == QBR_SK_UPR && std::isfinite(lp.row_up[is])) at[ks] = At::kUpper;
  }
  if (static_cast<int32_t>(basis.size()) != m) return 0;
  linalg::BasisLu lu;
  const linalg::ColumnSource src{m, n, lp.col_ptr.data(), lp.row_idx.data(), lp.values.data()};
  lu.factorize(src, basis.data());
  if (!lu.replacements().empty()) return 0;
  // Candidate rows: basic integer columns, the most fractional first.
  std::vector<int32_t> rows;
  for (int32_t r = 0; r < m; ++r) {
    const int32_t j = basis[static_cast<size_t>(r)];
    if (j >= n || !p.is_int(j)) continue;
    const double f = x[static_cast<size_t>(j)] - std::floor(x[static_cast<size_t>(j)]);
    if (f >= 0.01 && f <= 0.99) rows.push_back(r);
  }
  auto dist = [&](int32_t r) {
    const double v = x[static_cast<size_t>(basis[static_cast<size_t>(r)])];
    return std::fabs(v - std::floor(v) - 0.5);
  };
  std::stable_sort(rows.begin(), rows.end(), [&](int32_t a, int32_t b) { return dist(a) < dist(b); });
  if (rows.size() > static_cast<size_t>(kMaxRows)) rows.resize(static_cast<size_t>(kMaxRows));
  std::vector<double> rho(static_cast<size_t>(m)), coef(static_cast<size_t>(n));
  const size_t before = pool.size();
  for (int32_t r : rows) {
    std::fill(rho.begin(), rho.end(), 0.0);
    rho[static_cast<size_t>(r)] = 1.0;
    lu.btran(rho.data());
    const double xb = x[static_cast<size_t>(basis[static_cast<size_t>(r)])];
    const double f0 = xb - std::floor(xb);
    std::fill(coef.begin(), coef.end(), 0.0);
    double rhs = 1.0;
    bool ok = true;
    // Coefficient of t_k from the row entry a_k.
    auto cut_coef = [f0](double a, bool integer) {
      if (std::fabs(a) < 1e-12) return 0.0;
      if (integer) {
        const double f = a - std::floor(a);
        return f <= f0 ? f / f0 : (1.0 - f) / (1.0 - f0);
      }
      return a >= 0.0 ? a / f0 : -a / (1.0 - f0);
    };
    for (int32_t k = 0; k < n + m && ok; ++k) {
      const size_t ks = static_cast<size_t>(k);
      if (k < n ? skx[ks] == QBR_SK_BAS : skc[ks - static_cast<size_t>(n)] == QBR_SK_BAS) continue;
      double alpha = 0.0;
      if (k < n) {
        for (int64_t e = lp.col_ptr[ks]; e < lp.col_ptr[ks + 1]; ++e)
          alpha += rho[static_cast<size_t>(lp.row_idx[static_cast<size_t>(e)])] * lp.values[static_cast<size_t>(e)];
      } else {
        alpha = rho[ks - static_cast<size_t>(n)];
      }
      if (std::fabs(alpha) < 1e-12 || at[ks] == At::kFixed) continue;
      if (at[ks] == At::kOther) {
        ok = false;
        break;
      }
      const bool lower = at[ks] == At::kLower;
      if (k < n) {
        // x_k = lo + t (a = alpha) or x_k = up - t (a = -alpha)
        const double a = lower ? alpha : -alpha;
        const double c = cut_coef(a, p.is_int(k));
        if (lower) {
          coef[ks] += c;
          rhs += c * col_lo[ks];
        } else {
          coef[ks] -= c;
          rhs -= c * col_up[ks];
        }
      } else {
        // s_i = -a_i'x; a_i'x = row_lo + t (a = -alpha) or row_up - t (a = alpha)
        const size_t i = ks - static_cast<size_t>(n);
        const double a = lower ? -alpha : alpha;
        const double c = cut_coef(a, false);
        if (c == 0.0) continue;
        const double sign = lower ? 1.0 : -1.0;
        rhs += sign * c * (lower ? lp.row_lo[i] : lp.row_up[i]);
        for (int64_t e = p.row_ptr[i]; e < p.row_ptr[i + 1]; ++e)
          coef[static_cast<size_t>(p.col_idx[static_cast<size_t>(e)])] += sign * c * p.row_val[static_cast<size_t>(e)];
      }
    }
    if (!ok) continue;
    // Tiny coefficients leave the cut; their largest contribution moves to the right side.
    double cmax = 0.0;
    for (double c : coef) cmax = std::max(cmax, std::fabs(c));
    if (cmax <= 0.0 || !std::isfinite(cmax) || !std::isfinite(rhs)) continue;
    Cut cut;
    for (int32_t j = 0; j < n && ok; ++j) {
      const size_t js = static_cast<size_t>(j);
      const double c = coef[js];
      if (c == 0.0) continue;
      if (std::fabs(c) < 1e-9 * cmax) {
        const double worst = c > 0.0 ? c * col_up[js] : c * col_lo[js];
        if (!std::isfinite(worst)) ok = false;
        else rhs -= worst;
        continue;
      }
      cut.idx.push_back(j);
      cut.val.push_back(c);
    }
    if (!ok || cut.idx.empty()) continue;
    // Dense or badly scaled cuts slow the relaxations down more than they help.
    double cmin = kInf;
    for (double c : cut.val) cmin = std::min(cmin, std::fabs(c));
    if (cmax / cmin > 1e6 || cut.idx.size() > static_cast<size_t>(n / 2 + 20)) continue;
    cut.lo = rhs - 1e-9 * std::max(1.0, std::fabs(rhs));  // room for rounding in the algebra
    cut.up = kInf;
    cut.family = family;
    pool.add(std::move(cut), x);
  }
  return static_cast<int32_t>(pool.size() - before);
}

}  // namespace

const SeparatorOps kGmiOps = {nullptr, gmi};

}  // namespace qubor::mio
