// The simplex engine; see engine.h.
#include "simplex/engine.h"

#include "qubor.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace qubor::simplex {
namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();

double power_of_two(double v) { return std::exp2(std::round(std::log2(v))); }

}  // namespace

Engine::Engine(const interior::LpProblem& lp, const SimplexOptions& o)
    : opt(o), m(lp.num_row), n(lp.num_col), nt(lp.num_row + lp.num_col), rng(o.seed),
      start_(std::chrono::steady_clock::now()) {
  scale(lp);
  const size_t ns = static_cast<size_t>(nt);
  lo.resize(ns);
  up.resize(ns);
  cost.assign(ns, 0.0);
  for (int32_t j = 0; j < n; ++j) {
    const size_t js = static_cast<size_t>(j);
    lo[js] = lp.col_lo[js] / col_scale[js];
    up[js] = lp.col_up[js] / col_scale[js];
    cost[js] = lp.c[js] * col_scale[js];
  }
  for (int32_t i = 0; i < m; ++i) {
    const size_t is = static_cast<size_t>(i), js = static_cast<size_t>(n + i);
    lo[js] = -lp.row_up[is] * row_scale[is];
    up[js] = -lp.row_lo[is] * row_scale[is];
  }
  cost_orig = cost;
  tol_p.resize(ns);
  tol_d.resize(ns);
  auto clamp = [](double v, double base) { return std::clamp(v, 1e-3 * base, 1e3 * base); };
  for (int32_t j = 0; j < n; ++j) {
    tol_p[static_cast<size_t>(j)] = clamp(o.tol_primal / col_scale[static_cast<size_t>(j)], o.tol_primal);
    tol_d[static_cast<size_t>(j)] = clamp(o.tol_dual * col_scale[static_cast<size_t>(j)], o.tol_dual);
  }
  for (int32_t i = 0; i < m; ++i) {
    tol_p[static_cast<size_t>(n + i)] = clamp(o.tol_primal * row_scale[static_cast<size_t>(i)], o.tol_primal);
    tol_d[static_cast<size_t>(n + i)] = clamp(o.tol_dual / row_scale[static_cast<size_t>(i)], o.tol_dual);
  }
  basis.assign(static_cast<size_t>(m), 0);
  where.assign(ns, -1);
  state.assign(ns, kAtLower);
  x.assign(ns, 0.0);
  d.assign(ns, 0.0);
  y.assign(static_cast<size_t>(m), 0.0);
  row.assign(ns, 0.0);
  row_mark_.assign(ns, 0);
  linalg::LuOptions lo_opt;
  lo_opt.rel_pivot_tol = o.lu_rel_pivot;
  lo_opt.max_updates = o.refactor_freq > 0 ? o.refactor_freq : 100;
  lu.set_options(lo_opt);
}

// Geometric-mean passes over rows and columns, then columns equilibrated to a largest
// entry of 1; all factors are powers of two.
void Engine::scale(const interior::LpProblem& lp) {
  const size_t ms = static_cast<size_t>(m), ns = static_cast<size_t>(n);
  row_scale.assign(ms, 1.0);
  col_scale.assign(ns, 1.0);
  aptr = lp.col_ptr;
  aidx = lp.row_idx;
  aval = lp.values;
  if (opt.scaling != 1 && !aval.empty()) {
    std::vector<double> rmin(ms), rmax(ms);
    for (int pass = 0; pass < 6; ++pass) {
      std::fill(rmin.begin(), rmin.end(), kInf);
      std::fill(rmax.begin(), rmax.end(), 0.0);
      for (size_t j = 0; j < ns; ++j)
        for (int64_t e = aptr[j]; e < aptr[j + 1]; ++e) {
          const size_t i = static_cast<size_t>(aidx[static_cast<size_t>(e)]);
          const double v = std::fabs(lp.values[static_cast<size_t>(e)]) * row_scale[i] * col_scale[j];
          if (v == 0.0) continue;
          rmin[i] = std::min(rmin[i], v);
          rmax[i] = std::max(rmax[i], v);
        }
      for (size_t i = 0; i < ms; ++i)
        if (rmax[i] > 0.0) row_scale[i] /= std::sqrt(rmin[i] * rmax[i]);
      for (size_t j = 0; j < ns; ++j) {
        double cmin = kInf, cmax = 0.0;
        for (int64_t e = aptr[j]; e < aptr[j + 1]; ++e) {
          const double v = std::fabs(lp.values[static_cast<size_t>(e)]) *
                           row_scale[static_cast<size_t>(aidx[static_cast<size_t>(e)])] * col_scale[j];
          if (v == 0.0) continue;
          cmin = std::min(cmin, v);
          cmax = std::max(cmax, v);
        }
        if (cmax > 0.0) col_scale[j] /= std::sqrt(cmin * cmax);
      }
    }
    for (size_t j = 0; j < ns; ++j) {
      double cmax = 0.0;
      for (int64_t e = aptr[j]; e < aptr[j + 1]; ++e)
        cmax = std::max(cmax, std::fabs(lp.values[static_cast<size_t>(e)]) *
                                  row_scale[static_cast<size_t>(aidx[static_cast<size_t>(e)])] * col_scale[j]);
      if (cmax > 0.0) col_scale[j] /= cmax;
    }
    for (double& v : row_scale) v = power_of_two(v);
    for (double& v : col_scale) v = power_of_two(v);
    for (size_t j = 0; j < ns; ++j)
      for (int64_t e = aptr[j]; e < aptr[j + 1]; ++e)
        aval[static_cast<size_t>(e)] *= row_scale[static_cast<size_t>(aidx[static_cast<size_t>(e)])] * col_scale[j];
  }
  // Row-wise copy for the pivot row.
  linalg::transpose_sparse(n, m, aptr, aidx, aval, rptr, ridx, rval);
}

ItemState Engine::state_for_dual(int32_t j) const {
  const size_t js = static_cast<size_t>(j);
  const bool has_lo = std::isfinite(lo[js]), has_up = std::isfinite(up[js]);
  if (has_lo && has_up && lo[js] == up[js]) return kFixed;
  if (has_lo && has_up) return d[js] >= 0.0 ? kAtLower : kAtUpper;
  if (has_lo) return kAtLower;
  if (has_up) return kAtUpper;
  return kAtZero;
}

void Engine::place(int32_t j) {
  const size_t js = static_cast<size_t>(j);
  switch (state[js]) {
    case kAtLower: case kFixed: x[js] = lo[js]; break;
    case kAtUpper: x[js] = up[js]; break;
    case kAtZero: x[js] = 0.0; break;
    default: break;
  }
}

void Engine::set_slack_basis() {
  std::fill(where.begin(), where.end(), -1);
  for (int32_t i = 0; i < m; ++i) {
    basis[static_cast<size_t>(i)] = n + i;
    where[static_cast<size_t>(n + i)] = i;
    state[static_cast<size_t>(n + i)] = kBasic;
  }
  for (int32_t j = 0; j < n; ++j) {
    d[static_cast<size_t>(j)] = cost[static_cast<size_t>(j)];
    state[static_cast<size_t>(j)] = state_for_dual(j);
    place(j);
  }
}

void Engine::set_basis(const StartBasis& start) {
  std::fill(where.begin(), where.end(), -1);
  int32_t count = 0;
  auto take = [&](int32_t j, int32_t key, bool logical) {
    const size_t js = static_cast<size_t>(j);
    if (key == QBR_SK_BAS && count < m) {
      basis[static_cast<size_t>(count)] = j;
      where[js] = count++;
      state[js] = kBasic;
      return;
    }
    // A logical at its lower bound is the row at its upper side.
    ItemState s = state_for_dual(j);
    const bool has_lo = std::isfinite(lo[js]), has_up = std::isfinite(up[js]);
    const int32_t at_low = logical ? QBR_SK_UPR : QBR_SK_LOW, at_up = logical ? QBR_SK_LOW : QBR_SK_UPR;
    if (s != kFixed) {
      if (key == at_low && has_lo) s = kAtLower;
      if (key == at_up && has_up) s = kAtUpper;
    }
    state[js] = static_cast<int8_t>(s);
    place(j);
  };
  for (int32_t j = 0; j < n; ++j) take(j, start.skx[static_cast<size_t>(j)], false);
  for (int32_t i = 0; i < m; ++i) take(n + i, start.skc[static_cast<size_t>(i)], true);
  // Too few basic items: logicals fill the basis, first those of rows without a key (rows
  // appended since the basis was saved), then the others; the factorization repairs
  // dependence.
  for (int pass = 0; pass < 2; ++pass)
    for (int32_t i = 0; i < m && count < m; ++i) {
      const size_t js = static_cast<size_t>(n + i);
      if (where[js] >= 0 || (pass == 0 && start.skc[static_cast<size_t>(i)] != QBR_SK_UNK)) continue;
      basis[static_cast<size_t>(count)] = n + i;
      where[js] = count++;
      state[js] = kBasic;
    }
}

void Engine::refactor() {
  ++factorizations;
  linalg::ColumnSource src{m, n, aptr.data(), aidx.data(), aval.data()};
  lu.factorize(src, basis.data());
  for (const linalg::LuReplacement& r : lu.replacements()) {
    const size_t out = static_cast<size_t>(r.removed), in = static_cast<size_t>(r.inserted);
    where[out] = -1;
    where[in] = r.position;
    state[in] = kBasic;
    d[out] = 0.0;
    state[out] = static_cast<int8_t>(state_for_dual(r.removed));
    // Keep the removed item near its value: the nearer finite bound.
    if (state[out] == kAtLower || state[out] == kAtUpper) {
      const bool lower = !std::isfinite(up[out]) ||
                         (std::isfinite(lo[out]) && std::fabs(x[out] - lo[out]) <= std::fabs(x[out] - up[out]));
      state[out] = lower ? kAtLower : kAtUpper;
    }
    place(r.removed);
  }
  compute_primal();
  compute_dual();
}

void Engine::scatter_column(int32_t j, double* v) const {
  if (j >= n) {
    v[j - n] = 1.0;
    return;
  }
  for (int64_t e = aptr[static_cast<size_t>(j)]; e < aptr[static_cast<size_t>(j) + 1]; ++e)
    v[aidx[static_cast<size_t>(e)]] = aval[static_cast<size_t>(e)];
}

void Engine::compute_primal() {
  std::vector<double>& rhs = y;  // borrowed; compute_dual() rewrites y
  std::fill(rhs.begin(), rhs.end(), 0.0);
  for (int32_t j = 0; j < n; ++j) {
    const double xj = x[static_cast<size_t>(j)];
    if (state[static_cast<size_t>(j)] == kBasic || xj == 0.0) continue;
    for (int64_t e = aptr[static_cast<size_t>(j)]; e < aptr[static_cast<size_t>(j) + 1]; ++e)
      rhs[static_cast<size_t>(aidx[static_cast<size_t>(e)])] -= aval[static_cast<size_t>(e)] * xj;
  }
  for (int32_t i = 0; i < m; ++i)
    if (state[static_cast<size_t>(n + i)] != kBasic) rhs[static_cast<size_t>(i)] -= x[static_cast<size_t>(n + i)];
  lu.ftran(rhs.data());
  for (int32_t p = 0; p < m; ++p) x[static_cast<size_t>(basis[static_cast<size_t>(p)])] = rhs[static_cast<size_t>(p)];
}

void Engine::compute_dual() {
  for (int32_t p = 0; p < m; ++p) y[static_cast<size_t>(p)] = cost[static_cast<size_t>(basis[static_cast<size_t>(p)])];
  lu.btran(y.data());
  for (int32_t j = 0; j < n; ++j) {
    const size_t js = static_cast<size_t>(j);
    if (state[js] == kBasic) {
      d[js] = 0.0;
      continue;
    }
    double s = cost[js];
    for (int64_t e = aptr[js]; e < aptr[js + 1]; ++e) s -= aval[static_cast<size_t>(e)] * y[static_cast<size_t>(aidx[static_cast<size_t>(e)])];
    d[js] = s;
  }
  for (int32_t i = 0; i < m; ++i) {
    const size_t js = static_cast<size_t>(n + i);
    d[js] = state[js] == kBasic ? 0.0 : cost[js] - y[static_cast<size_t>(i)];
  }
}

void Engine::pivot_row(const double* rho) {
  for (int32_t j : row_list_) {
    row[static_cast<size_t>(j)] = 0.0;
    row_mark_[static_cast<size_t>(j)] = 0;
  }
  row_list_.clear();
  auto add = [&](int32_t j, double v) {
    const size_t js = static_cast<size_t>(j);
    if (!row_mark_[js]) {
      row_mark_[js] = 1;
      row_list_.push_back(j);
    }
    row[js] += v;
  };
  // Row-wise over the nonzeros of rho when their rows hold fewer entries than a good part
  // of A; column-wise inner products otherwise.
  int64_t row_work = 0;
  for (int32_t i = 0; i < m; ++i)
    if (rho[i] != 0.0) row_work += rptr[static_cast<size_t>(i) + 1] - rptr[static_cast<size_t>(i)] + 1;
  if (3 * row_work < static_cast<int64_t>(aidx.size()) + n) {
    for (int32_t i = 0; i < m; ++i) {
      const double ri = rho[i];
      if (ri == 0.0) continue;
      if (state[static_cast<size_t>(n + i)] != kBasic) add(n + i, ri);
      for (int64_t e = rptr[static_cast<size_t>(i)]; e < rptr[static_cast<size_t>(i) + 1]; ++e) {
        const int32_t j = ridx[static_cast<size_t>(e)];
        if (state[static_cast<size_t>(j)] != kBasic) add(j, ri * rval[static_cast<size_t>(e)]);
      }
    }
  } else {
    for (int32_t j = 0; j < n; ++j) {
      const size_t js = static_cast<size_t>(j);
      if (state[js] == kBasic) continue;
      double s = 0.0;
      for (int64_t e = aptr[js]; e < aptr[js + 1]; ++e) s += aval[static_cast<size_t>(e)] * rho[aidx[static_cast<size_t>(e)]];
      if (s != 0.0) add(j, s);
    }
    for (int32_t i = 0; i < m; ++i)
      if (rho[i] != 0.0 && state[static_cast<size_t>(n + i)] != kBasic) add(n + i, rho[i]);
  }
}

void Engine::change_basis(int32_t r, int32_t q, const double* alpha) {
  const int32_t p = basis[static_cast<size_t>(r)];
  basis[static_cast<size_t>(r)] = q;
  where[static_cast<size_t>(q)] = r;
  where[static_cast<size_t>(p)] = -1;
  state[static_cast<size_t>(q)] = kBasic;
  d[static_cast<size_t>(q)] = 0.0;
  if (!lu.update(r, alpha) || lu.wants_refactor()) refactor();
}

double Engine::primal_infeasibility(double* sum) const {
  double worst = 0.0, total = 0.0;
  for (int32_t p = 0; p < m; ++p) {
    const size_t j = static_cast<size_t>(basis[static_cast<size_t>(p)]);
    const double v = std::isnan(x[j]) ? kInf : std::max(lo[j] - x[j], x[j] - up[j]);
    if (v > 0.0) {
      worst = std::max(worst, v / tol_p[j]);
      total += v;
    }
  }
  if (sum) *sum = total;
  return worst;
}

double Engine::dual_infeasibility() const {
  double worst = 0.0;
  for (int32_t j = 0; j < nt; ++j) {
    const size_t js = static_cast<size_t>(j);
    double v = 0.0;
    switch (state[js]) {
      case kAtLower: v = -d[js]; break;
      case kAtUpper: v = d[js]; break;
      case kAtZero: v = std::fabs(d[js]); break;
      default: break;
    }
    if (!(v <= 0.0)) worst = std::max(worst, std::isnan(v) ? kInf : v / tol_d[js]);
  }
  return worst;
}

double Engine::objective() const {
  double s = 0.0;
  for (int32_t j = 0; j < n; ++j) s += cost_orig[static_cast<size_t>(j)] * x[static_cast<size_t>(j)];
  return s;
}

double Engine::elapsed() const {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
}

bool Engine::limit_reached(SimplexResult& r) {
  if (iterations >= opt.max_iterations)
    r.status = Status::kIterationLimit;
  else if (out_of_time())
    r.status = Status::kTimeLimit;
  else if (stop_requested(iterations))
    r.status = Status::kUserStop;
  else
    return false;
  return true;
}

bool Engine::out_of_time() const { return opt.max_time >= 0.0 && elapsed() > opt.max_time; }

bool Engine::stop_requested(int64_t iteration) { return opt.progress && opt.progress(iteration); }

void Engine::log_line(const char* phase, int64_t iter) {
  if (!linalg::log_enabled(&opt.log, 1) || opt.log_freq <= 0 || iter % opt.log_freq != 0) return;
  double psum = 0.0;
  primal_infeasibility(&psum);
  linalg::log_printf(&opt.log, 1, "%-6s %-12lld %-20.12e %-12.4e %-12.4e %-8.2f\n", phase,
                     static_cast<long long>(iter), objective(), psum, dual_infeasibility(), elapsed());
}

namespace {

// xc = A x and the objective of the problem's data.
void finish_primal(const interior::LpProblem& lp, SimplexResult& r) {
  const size_t ms = static_cast<size_t>(lp.num_row), ns = static_cast<size_t>(lp.num_col);
  r.xc.assign(ms, 0.0);
  r.primal_obj = lp.cfix;
  for (size_t j = 0; j < ns; ++j) {
    r.primal_obj += lp.c[j] * r.x[j];
    for (int64_t e = lp.col_ptr[j]; e < lp.col_ptr[j + 1]; ++e)
      r.xc[static_cast<size_t>(lp.row_idx[static_cast<size_t>(e)])] += lp.values[static_cast<size_t>(e)] * r.x[j];
  }
}

// Bound duals from y: z = c - A'y split by sign (c = 0 for a ray), and the dual objective.
void finish_dual(const interior::LpProblem& lp, bool ray, SimplexResult& r) {
  const size_t ms = static_cast<size_t>(lp.num_row), ns = static_cast<size_t>(lp.num_col);
  r.slc.assign(ms, 0.0);
  r.suc.assign(ms, 0.0);
  r.slx.assign(ns, 0.0);
  r.sux.assign(ns, 0.0);
  double obj = ray ? 0.0 : lp.cfix;
  for (size_t i = 0; i < ms; ++i) {
    (r.y[i] >= 0.0 ? r.slc[i] : r.suc[i]) = std::fabs(r.y[i]);
    if (r.slc[i] != 0.0) obj += r.slc[i] * lp.row_lo[i];
    if (r.suc[i] != 0.0) obj -= r.suc[i] * lp.row_up[i];
  }
  for (size_t j = 0; j < ns; ++j) {
    double z = ray ? 0.0 : lp.c[j];
    for (int64_t e = lp.col_ptr[j]; e < lp.col_ptr[j + 1]; ++e)
      z -= lp.values[static_cast<size_t>(e)] * r.y[static_cast<size_t>(lp.row_idx[static_cast<size_t>(e)])];
    (z >= 0.0 ? r.slx[j] : r.sux[j]) = std::fabs(z);
    if (r.slx[j] != 0.0) obj += r.slx[j] * lp.col_lo[j];
    if (r.sux[j] != 0.0) obj -= r.sux[j] * lp.col_up[j];
  }
  r.dual_obj = obj;
}

}  // namespace

void Engine::extract(const interior::LpProblem& lp, SimplexResult& r) const {
  const size_t ms = static_cast<size_t>(m), ns = static_cast<size_t>(n);
  r.x.resize(ns);
  r.skx.resize(ns);
  r.y.resize(ms);
  r.skc.resize(ms);
  for (size_t j = 0; j < ns; ++j) {
    r.x[j] = x[j] * col_scale[j];
    switch (state[j]) {
      case kBasic: r.skx[j] = QBR_SK_BAS; break;
      case kAtLower: r.skx[j] = QBR_SK_LOW; r.x[j] = lp.col_lo[j]; break;
      case kAtUpper: r.skx[j] = QBR_SK_UPR; r.x[j] = lp.col_up[j]; break;
      case kFixed: r.skx[j] = QBR_SK_FIX; r.x[j] = lp.col_lo[j]; break;
      default: r.skx[j] = QBR_SK_SUPBAS; break;
    }
  }
  for (size_t i = 0; i < ms; ++i) {
    r.y[i] = y[i] * row_scale[i];
    switch (state[ns + i]) {
      case kBasic: r.skc[i] = QBR_SK_BAS; break;
      case kAtLower: r.skc[i] = QBR_SK_UPR; break;
      case kAtUpper: r.skc[i] = QBR_SK_LOW; break;
      case kFixed: r.skc[i] = QBR_SK_FIX; break;
      default: r.skc[i] = QBR_SK_SUPBAS; break;
    }
  }
  finish_primal(lp, r);
  finish_dual(lp, false, r);
  // Largest violations of the result, for the caller's acceptance test.
  double pinf = 0.0, dinf = 0.0;
  for (size_t j = 0; j < ns; ++j) {
    pinf = std::max({pinf, lp.col_lo[j] - r.x[j], r.x[j] - lp.col_up[j]});
    if (std::isinf(lp.col_lo[j]) || r.skx[j] == QBR_SK_UPR) dinf = std::max(dinf, r.slx[j]);
    if (std::isinf(lp.col_up[j]) || r.skx[j] == QBR_SK_LOW) dinf = std::max(dinf, r.sux[j]);
    if (r.skx[j] == QBR_SK_BAS) dinf = std::max({dinf, r.slx[j], r.sux[j]});
  }
  for (size_t i = 0; i < ms; ++i) {
    pinf = std::max({pinf, lp.row_lo[i] - r.xc[i], r.xc[i] - lp.row_up[i]});
    if (std::isinf(lp.row_lo[i]) || r.skc[i] == QBR_SK_UPR) dinf = std::max(dinf, r.slc[i]);
    if (std::isinf(lp.row_up[i]) || r.skc[i] == QBR_SK_LOW) dinf = std::max(dinf, r.suc[i]);
    if (r.skc[i] == QBR_SK_BAS) dinf = std::max({dinf, r.slc[i], r.suc[i]});
  }
  r.max_primal_infeas = pinf;
  r.max_dual_infeas = dinf;
}

void Engine::extract_farkas(const interior::LpProblem& lp, const double* rho, double sign, SimplexResult& r) {
  extract(lp, r);
  const size_t ms = static_cast<size_t>(m), ns = static_cast<size_t>(n);
  double scale = 0.0;
  for (size_t i = 0; i < ms; ++i) scale = std::max(scale, std::fabs(rho[i] * row_scale[i]));
  if (scale == 0.0) scale = 1.0;
  for (size_t i = 0; i < ms; ++i) r.y[i] = sign * rho[i] * row_scale[i] / scale;
  std::fill(r.x.begin(), r.x.end(), 0.0);
  std::fill(r.xc.begin(), r.xc.end(), 0.0);
  r.primal_obj = 0.0;
  (void)ns;
  finish_dual(lp, true, r);
}

void Engine::extract_primal_ray(const interior::LpProblem& lp, const double* xray, SimplexResult& r) const {
  extract(lp, r);
  const size_t ns = static_cast<size_t>(n);
  double scale = 0.0;
  for (size_t j = 0; j < ns; ++j) scale = std::max(scale, std::fabs(xray[j] * col_scale[j]));
  if (scale == 0.0) scale = 1.0;
  for (size_t j = 0; j < ns; ++j) r.x[j] = xray[j] * col_scale[j] / scale;
  finish_primal(lp, r);
  r.primal_obj -= lp.cfix;
  std::fill(r.y.begin(), r.y.end(), 0.0);
  finish_dual(lp, true, r);
  r.dual_obj = 0.0;
}

}  // namespace qubor::simplex
