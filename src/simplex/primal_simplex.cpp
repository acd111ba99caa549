// The primal simplex.
//
// Pricing: the nonbasic item with the largest d_j^2 / w_j among the dual infeasible ones
// (Devex reference weights w). Ratio test: Harris' two passes over x_B(t) = x_B - t dir
// alpha_q with the bounds relaxed by the primal tolerance; a boxed entering item whose
// range is the smallest step just moves to its other bound. The leaving item is set on the
// bound it reaches (bound shifting: the others keep their small violations within the
// tolerance). Phase 1 minimizes the sum of infeasibilities with the costs -1/+1 of the
// basic items below/above their bounds, recomputed every iteration; an infeasible basic
// item only blocks at the bound it is violating, where it becomes feasible.
#include <algorithm>
#include <cmath>
#include <limits>

#include "simplex/engine.h"

namespace qubor::simplex {
namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();

struct PrimalWork {
  PrimalWork(int32_t m, int32_t nt)
      : col(static_cast<size_t>(m)), rho(static_cast<size_t>(m)), y1(static_cast<size_t>(m)),
        d1(static_cast<size_t>(nt)), w(static_cast<size_t>(nt), 1.0) {}
  std::vector<double> col, rho, y1, d1, w;
};

// Phase-1 reduced costs from the infeasibility costs of the basic items. Returns false
// when the basis is primal feasible.
bool phase1_costs(Engine& e, PrimalWork& pw) {
  bool any = false;
  for (int32_t p = 0; p < e.m; ++p) {
    const size_t j = static_cast<size_t>(e.basis[static_cast<size_t>(p)]);
    double c = 0.0;
    if (e.x[j] < e.lo[j] - e.tol_p[j]) c = -1.0;
    if (e.x[j] > e.up[j] + e.tol_p[j]) c = 1.0;
    any = any || c != 0.0;
    pw.y1[static_cast<size_t>(p)] = c;
  }
  if (!any) return false;
  e.lu.btran(pw.y1.data());
  for (int32_t j = 0; j < e.nt; ++j) {
    const size_t js = static_cast<size_t>(j);
    if (e.state[js] == kBasic) {
      pw.d1[js] = 0.0;
      continue;
    }
    double s = 0.0;
    if (j >= e.n) {
      s = -pw.y1[static_cast<size_t>(j - e.n)];
    } else {
      for (int64_t k = e.aptr[js]; k < e.aptr[js + 1]; ++k)
        s -= e.aval[static_cast<size_t>(k)] * pw.y1[static_cast<size_t>(e.aidx[static_cast<size_t>(k)])];
    }
    pw.d1[js] = s;
  }
  return true;
}

int32_t choose_column(const Engine& e, const std::vector<double>& d, const std::vector<double>& w) {
  int32_t best = -1;
  double best_score = 0.0;
  for (int32_t j = 0; j < e.nt; ++j) {
    const size_t js = static_cast<size_t>(j);
    const double tol = e.tol_d[js];
    double v = 0.0;
    switch (e.state[js]) {
      case kAtLower: v = -d[js]; break;
      case kAtUpper: v = d[js]; break;
      case kAtZero: v = std::fabs(d[js]); break;
      default: continue;
    }
    if (v <= tol) continue;
    const double score = v * v / w[js];
    if (score > best_score) {
      best_score = score;
      best = j;
    }
  }
  return best;
}

// Largest step of basic item j moving at `rate` (dx/dt) within its (relaxed) bounds.
double step_limit(const Engine& e, size_t j, double rate, double tol, bool phase1) {
  double lo = e.lo[j], up = e.up[j];
  if (phase1) {
    // An infeasible item blocks only where it becomes feasible.
    if (e.x[j] < lo - e.tol_p[j]) up = lo, lo = -kInf;
    else if (e.x[j] > up + e.tol_p[j]) lo = up, up = kInf;
  }
  if (rate < 0.0 && std::isfinite(lo)) return std::max(e.x[j] - lo + tol, 0.0) / -rate;
  if (rate > 0.0 && std::isfinite(up)) return std::max(up + tol - e.x[j], 0.0) / rate;
  return kInf;
}

LoopEnd iterate(Engine& e, PrimalWork& pw, const interior::LpProblem& lp, SimplexResult& res, bool phase1) {
  for (;;) {
    if (e.limit_reached(res)) return LoopEnd::kLimit;
    if (phase1 && !phase1_costs(e, pw)) return LoopEnd::kOptimal;
    const std::vector<double>& d = phase1 ? pw.d1 : e.d;
    const int32_t q = choose_column(e, d, pw.w);
    if (q < 0) return phase1 ? LoopEnd::kUnbounded : LoopEnd::kOptimal;  // phase 1: infeasible
    const size_t qs = static_cast<size_t>(q);
    const double dir = (e.state[qs] == kAtLower || (e.state[qs] == kAtZero && d[qs] < 0.0)) ? 1.0 : -1.0;
    std::fill(pw.col.begin(), pw.col.end(), 0.0);
    e.scatter_column(q, pw.col.data());
    e.lu.ftran(pw.col.data(), true);
    // Pass 1: the relaxed step; pass 2: the largest |alpha| within it.
    double tmax = kInf;
    for (int32_t p = 0; p < e.m; ++p) {
      const double a = pw.col[static_cast<size_t>(p)];
      if (std::fabs(a) < e.opt.tol_pivot) continue;
      const size_t j = static_cast<size_t>(e.basis[static_cast<size_t>(p)]);
      tmax = std::min(tmax, step_limit(e, j, -dir * a, e.tol_p[j], phase1));
    }
    const double range = e.up[qs] - e.lo[qs];
    if (std::isfinite(range) && e.state[qs] != kAtZero && range <= tmax) {
      // Bound flip of the entering item.
      e.state[qs] = e.state[qs] == kAtLower ? kAtUpper : kAtLower;
      e.place(q);
      for (int32_t p = 0; p < e.m; ++p)
        e.x[static_cast<size_t>(e.basis[static_cast<size_t>(p)])] -= dir * range * pw.col[static_cast<size_t>(p)];
      ++e.iterations;
      continue;
    }
    if (!std::isfinite(tmax)) {
      if (phase1) {  // cannot happen with phase-1 costs; treat as trouble
        res.status = Status::kNumericalTrouble;
        return LoopEnd::kTrouble;
      }
      // Improving ray: x_q moves by dir, x_B by -dir alpha.
      std::vector<double> ray(static_cast<size_t>(e.nt), 0.0);
      ray[qs] = dir;
      for (int32_t p = 0; p < e.m; ++p) ray[static_cast<size_t>(e.basis[static_cast<size_t>(p)])] = -dir * pw.col[static_cast<size_t>(p)];
      e.extract_primal_ray(lp, ray.data(), res);
      res.status = Status::kDualInfeasible;
      return LoopEnd::kUnbounded;
    }
    int32_t r = -1;
    double best = 0.0, step = 0.0;
    for (int32_t p = 0; p < e.m; ++p) {
      const double a = pw.col[static_cast<size_t>(p)];
      if (std::fabs(a) < e.opt.tol_pivot) continue;
      const size_t j = static_cast<size_t>(e.basis[static_cast<size_t>(p)]);
      const double t = step_limit(e, j, -dir * a, 0.0, phase1);
      if (t <= tmax && std::fabs(a) > best) {
        best = std::fabs(a);
        r = p;
        step = t;
      }
    }
    if (r < 0) {
      if (++e.setbacks > e.opt.max_setbacks) {
        res.status = Status::kNumericalTrouble;
        return LoopEnd::kTrouble;
      }
      e.refactor();
      continue;
    }
    const double alpha = pw.col[static_cast<size_t>(r)];
    const int32_t p = e.basis[static_cast<size_t>(r)];
    const size_t ps = static_cast<size_t>(p);
    // The bound the leaving item reaches.
    const bool falls = -dir * alpha < 0.0;
    double target = falls ? e.lo[ps] : e.up[ps];
    if (phase1 && e.x[ps] < e.lo[ps] - e.tol_p[ps]) target = e.lo[ps];
    if (phase1 && e.x[ps] > e.up[ps] + e.tol_p[ps]) target = e.up[ps];
    // Duals (the phase-2 ones are kept current in both phases).
    std::fill(pw.rho.begin(), pw.rho.end(), 0.0);
    pw.rho[static_cast<size_t>(r)] = 1.0;
    e.lu.btran(pw.rho.data());
    e.pivot_row(pw.rho.data());
    const double theta_d = e.d[qs] / alpha;
    for (int32_t j : e.row_list_)
      if (e.state[static_cast<size_t>(j)] != kBasic) e.d[static_cast<size_t>(j)] -= theta_d * e.row[static_cast<size_t>(j)];
    // Devex reference weights.
    const double wq = pw.w[qs];
    for (int32_t j : e.row_list_) {
      const double ratio = e.row[static_cast<size_t>(j)] / alpha;
      pw.w[static_cast<size_t>(j)] = std::max(pw.w[static_cast<size_t>(j)], ratio * ratio * wq);
    }
    pw.w[ps] = std::max(wq / (alpha * alpha), 1.0);
    // Primal step.
    const double t = dir * step;
    if (step == 0.0 && !phase1) ++res.primal_degenerate;
    for (int32_t k = 0; k < e.m; ++k) {
      const double c = pw.col[static_cast<size_t>(k)];
      if (c != 0.0) e.x[static_cast<size_t>(e.basis[static_cast<size_t>(k)])] -= t * c;
    }
    e.x[qs] += t;
    e.x[ps] = target;
    e.state[ps] = e.lo[ps] == e.up[ps] ? kFixed : (target == e.lo[ps] ? kAtLower : kAtUpper);
    e.d[ps] = -theta_d;
    e.change_basis(r, q, pw.col.data());
    ++e.iterations;
    if (phase1) ++res.primal_phase1_iterations;
    e.log_line(phase1 ? "P1" : "P2", e.iterations);
  }
}

}  // namespace

LoopEnd run_primal(Engine& e, const interior::LpProblem& lp, SimplexResult& res) {
  PrimalWork pw(e.m, e.nt);
  const int64_t start_iterations = e.iterations;
  e.cost = e.cost_orig;
  e.costs_changed = false;
  e.refactor();
  LoopEnd end = LoopEnd::kOptimal;
  bool verified = false;
  for (int attempt = 0; attempt < 4; ++attempt) {
    if (!e.primal_feasible()) {
      end = iterate(e, pw, lp, res, true);
      if (end == LoopEnd::kUnbounded && ++e.handoffs <= 3) {
        // No improving direction for the sum of infeasibilities: infeasible. The dual
        // simplex builds the certificate from here.
        res.primal_iterations += e.iterations - start_iterations;
        return run_dual(e, lp, res);
      }
      if (end != LoopEnd::kOptimal) break;
    }
    end = iterate(e, pw, lp, res, false);
    if (end != LoopEnd::kOptimal) break;
    e.refactor();
    verified = e.primal_feasible() && e.dual_feasible();
    if (verified) break;
  }
  if (end == LoopEnd::kOptimal && !verified) {
    end = LoopEnd::kTrouble;
    res.status = Status::kNumericalTrouble;
  }
  if (end != LoopEnd::kUnbounded) {
    e.extract(lp, res);
    if (end == LoopEnd::kOptimal) res.status = Status::kOptimal;
  }
  res.primal_iterations += e.iterations - start_iterations;
  return end;
}

}  // namespace qubor::simplex
