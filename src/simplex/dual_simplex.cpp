// The bounded dual simplex.
//
// One iteration: the leaving row r is the basic item with the largest infeasibility^2 /
// w_r (dual steepest edge, w_r = ||e_r' B^{-1}||^2, or Devex reference weights); the pivot
// row alpha_r = e_r' B^{-1} [A I] comes from rho = B^{-T} e_r; the bound-flipping ratio test
// passes breakpoints of boxed items while the slope of the dual objective, |infeasibility|
// at the start, stays positive, and picks the entering item among the rest by Harris'
// two passes (largest |alpha| within the relaxed bound); then the duals move by
// theta_d = d_q / alpha_rq, flipped items change x_B by one extra FTRAN, and the primal
// step makes the leaving item sit at its violated bound.
// The steepest-edge weights are updated exactly with tau = B^{-1} rho; Devex keeps
// reference weights. Phase 1 solves the auxiliary problem whose bounds are [0,0], [0,1],
// [-1,0], [-1,1] by bound type: it is always dual feasible after bound flips, and its
// optimum is a dual feasible basis of the problem or a ray proving dual infeasibility.
#include <algorithm>
#include <cmath>
#include <limits>

#include "qubor.h"
#include "simplex/engine.h"

namespace qubor::simplex {
namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();

struct Candidate {
  int32_t j;
  double ratio, harris, abs_alpha;
};

struct DualWork {
  explicit DualWork(int32_t m)
      : rho(static_cast<size_t>(m)), col(static_cast<size_t>(m)), tau(static_cast<size_t>(m)),
        flip(static_cast<size_t>(m)), w(static_cast<size_t>(m), 1.0) {}
  std::vector<double> rho, col, tau, flip, w;
  std::vector<Candidate> cands;
  std::vector<int32_t> flips;
  double ray_sign = 0.0;
};

int32_t choose_row(const Engine& e, const std::vector<double>& w) {
  int32_t best = -1;
  double best_score = 0.0;
  for (int32_t p = 0; p < e.m; ++p) {
    const size_t j = static_cast<size_t>(e.basis[static_cast<size_t>(p)]);
    const double tol = e.tol_p[j];
    double v = e.lo[j] - e.x[j];
    if (v <= tol) {
      v = e.x[j] - e.up[j];
      if (v <= tol) continue;
    }
    const double score = v * v / w[static_cast<size_t>(p)];
    if (score > best_score) {
      best_score = score;
      best = p;
    }
  }
  return best;
}

// Bound-flipping ratio test with Harris tolerances. s = +1 when the leaving item goes to
// its upper bound, -1 to its lower bound; d_j(t) = d_j - t s alpha_rj. Returns the
// entering item (flips in dw.flips) or -1 when the dual is unbounded along the row.
int32_t ratio_test(Engine& e, DualWork& dw, double s, double slope) {
  dw.cands.clear();
  dw.flips.clear();
  const double tol_piv = e.opt.tol_pivot;
  for (int32_t j : e.row_list_) {
    const size_t js = static_cast<size_t>(j);
    const int8_t st = e.state[js];
    if (st == kBasic || st == kFixed) continue;
    const double a = e.row[js];
    if (std::fabs(a) < tol_piv) continue;
    const double v = s * a;
    const double dj = e.d[js], tol_d = e.tol_d[js];
    if (st == kAtLower) {
      if (v <= 0.0) continue;
      dw.cands.push_back({j, std::max(dj, 0.0) / v, (dj + tol_d) / v, std::fabs(a)});
    } else if (st == kAtUpper) {
      if (v >= 0.0) continue;
      dw.cands.push_back({j, std::min(dj, 0.0) / v, (dj - tol_d) / v, std::fabs(a)});
    } else {
      dw.cands.push_back({j, 0.0, tol_d / std::fabs(v), std::fabs(a)});
    }
  }
  if (dw.cands.empty()) return -1;
  // Breakpoints in increasing ratio, taken from a heap: few are passed, so few are sorted.
  auto later = [](const Candidate& a, const Candidate& b) {
    return a.ratio > b.ratio || (a.ratio == b.ratio && a.j > b.j);
  };
  std::make_heap(dw.cands.begin(), dw.cands.end(), later);
  auto heap_end = dw.cands.end();
  for (;;) {
    if (heap_end == dw.cands.begin()) return -1;
    const Candidate& c = dw.cands.front();
    const size_t j = static_cast<size_t>(c.j);
    const double range = e.up[j] - e.lo[j];
    if (!std::isfinite(range) || e.state[j] == kAtZero) break;
    // A slope that only rounding keeps positive ends the passing.
    const double after = slope - c.abs_alpha * range;
    if (after <= e.opt.tol_primal) break;
    slope = after;
    std::pop_heap(dw.cands.begin(), heap_end, later);
    --heap_end;
  }
  // Passed breakpoints sit at the back; Harris' passes run over the heap's items.
  const size_t k0 = static_cast<size_t>(heap_end - dw.cands.begin());
  double tmax = kInf;
  for (size_t k = 0; k < k0; ++k) tmax = std::min(tmax, dw.cands[k].harris);
  size_t best = 0;
  for (size_t k = 0; k < k0; ++k)
    if (dw.cands[k].ratio <= tmax && (dw.cands[k].abs_alpha > dw.cands[best].abs_alpha ||
                                      (dw.cands[k].abs_alpha == dw.cands[best].abs_alpha && dw.cands[k].j < dw.cands[best].j)))
      best = k;
  for (size_t k = k0; k < dw.cands.size(); ++k) dw.flips.push_back(dw.cands[k].j);
  return dw.cands[best].j;
}

// Moves flipped items to their other bound and updates x_B by B^{-1} (sum a_j delta_j).
void apply_flips(Engine& e, DualWork& dw) {
  if (dw.flips.empty()) return;
  std::fill(dw.flip.begin(), dw.flip.end(), 0.0);
  for (int32_t j : dw.flips) {
    const size_t js = static_cast<size_t>(j);
    const double old = e.x[js];
    e.state[js] = e.state[js] == kAtLower ? kAtUpper : kAtLower;
    e.place(j);
    const double delta = e.x[js] - old;
    if (j >= e.n) {
      dw.flip[static_cast<size_t>(j - e.n)] += delta;
      continue;
    }
    for (int64_t k = e.aptr[js]; k < e.aptr[js + 1]; ++k)
      dw.flip[static_cast<size_t>(e.aidx[static_cast<size_t>(k)])] += e.aval[static_cast<size_t>(k)] * delta;
  }
  e.lu.ftran(dw.flip.data());
  for (int32_t p = 0; p < e.m; ++p) e.x[static_cast<size_t>(e.basis[static_cast<size_t>(p)])] -= dw.flip[static_cast<size_t>(p)];
}

// Phase 1 prices by Devex whatever the choice: on its auxiliary problem, as degenerate as
// its bounds are uniform, exact steepest edge took five times the iterations (ceria3d).
void update_weights(Engine& e, DualWork& dw, int32_t r, double alpha, bool phase1) {
  const bool devex = phase1 || e.opt.dual_pricing == QBR_SIM_SELECTION_DEVEX;
  // Steepest edge takes the leaving row's weight exactly, ||rho||^2, which stops drift.
  double wr = dw.w[static_cast<size_t>(r)];
  if (!devex) {
    wr = 0.0;
    for (double v : dw.rho) wr += v * v;
  }
  if (!devex) {
    std::copy(dw.rho.begin(), dw.rho.end(), dw.tau.begin());
    e.lu.ftran(dw.tau.data());
  }
  for (int32_t p = 0; p < e.m; ++p) {
    const double c = dw.col[static_cast<size_t>(p)];
    if (p == r || c == 0.0) continue;
    const double ratio = c / alpha;
    double& w = dw.w[static_cast<size_t>(p)];
    if (devex)
      w = std::max(w, ratio * ratio * wr);
    else
      w = std::max(w - 2.0 * ratio * dw.tau[static_cast<size_t>(p)] + ratio * ratio * wr, 1e-4);
    // An overflowing update restarts the weight; a NaN would hide the row from pricing.
    if (!(w < 1e30)) w = 1.0;
  }
  dw.w[static_cast<size_t>(r)] = std::max(wr / (alpha * alpha), devex ? 1.0 : 1e-4);
}

// Dual iterations on the current working bounds and costs until primal feasibility,
// dual unboundedness or a limit.
LoopEnd iterate(Engine& e, DualWork& dw, SimplexResult& res, bool phase1) {
  for (;;) {
    if (e.limit_reached(res)) return LoopEnd::kLimit;
    const int32_t r = choose_row(e, dw.w);
    if (r < 0) return LoopEnd::kOptimal;
    const int32_t p = e.basis[static_cast<size_t>(r)];
    const size_t ps = static_cast<size_t>(p);
    const bool to_lower = e.x[ps] < e.lo[ps] - e.tol_p[ps];
    const double s = to_lower ? -1.0 : 1.0;
    std::fill(dw.rho.begin(), dw.rho.end(), 0.0);
    dw.rho[static_cast<size_t>(r)] = 1.0;
    e.lu.btran(dw.rho.data());
    e.pivot_row(dw.rho.data());
    const double bound = to_lower ? e.lo[ps] : e.up[ps];
    const int32_t q = ratio_test(e, dw, s, std::fabs(e.x[ps] - bound));
    if (q < 0) {
      dw.ray_sign = s;
      return LoopEnd::kUnbounded;
    }
    const size_t qs = static_cast<size_t>(q);
    std::fill(dw.col.begin(), dw.col.end(), 0.0);
    e.scatter_column(q, dw.col.data());
    e.lu.ftran(dw.col.data(), true);
    const double alpha = dw.col[static_cast<size_t>(r)];
    const double alpha_row = e.row[qs];
    if (std::fabs(alpha - alpha_row) > 1e-7 * std::max(1.0, std::fabs(alpha)) || std::fabs(alpha) < 1e-11) {
      // The column and the row disagree on the pivot: refactorize and try again.
      if (++e.setbacks > e.opt.max_setbacks) {
        res.status = Status::kNumericalTrouble;
        return LoopEnd::kTrouble;
      }
      if (e.lu.num_updates() == 0) e.lu.set_options([&] {
        linalg::LuOptions o = e.lu.options();
        o.rel_pivot_tol = std::min(0.5, o.rel_pivot_tol * 4.0);
        return o;
      }());
      e.refactor();
      continue;
    }
    // Dual step; a slightly infeasible d_q is absorbed by shifting its cost.
    const double t = std::max(e.d[qs] / (s * alpha), 0.0);
    const double theta_d = s * t;
    if (theta_d != 0.0)
      for (int32_t j : e.row_list_)
        if (e.state[static_cast<size_t>(j)] != kBasic) e.d[static_cast<size_t>(j)] -= theta_d * e.row[static_cast<size_t>(j)];
    if (e.d[qs] != 0.0) {
      e.cost[qs] -= e.d[qs];
      e.costs_changed = true;
    }
    if (t == 0.0 && !phase1) ++res.dual_degenerate;
    apply_flips(e, dw);
    // Primal step: the leaving item lands on its bound.
    const double theta_p = (e.x[ps] - bound) / alpha;
    for (int32_t k = 0; k < e.m; ++k) {
      const double c = dw.col[static_cast<size_t>(k)];
      if (c != 0.0) e.x[static_cast<size_t>(e.basis[static_cast<size_t>(k)])] -= theta_p * c;
    }
    e.x[qs] += theta_p;
    update_weights(e, dw, r, alpha, phase1);
    e.state[ps] = e.lo[ps] == e.up[ps] ? kFixed : (to_lower ? kAtLower : kAtUpper);
    e.place(p);
    e.d[ps] = -theta_d;
    e.change_basis(r, q, dw.col.data());
    ++e.iterations;
    if (phase1) ++res.dual_phase1_iterations;
    e.log_line(phase1 ? "D1" : "D2", e.iterations);
  }
}

// Nonbasic items with finite bounds on both sides sit at the bound their reduced cost
// asks for; then x_B follows.
void align_boxed(Engine& e) {
  for (int32_t j = 0; j < e.nt; ++j) {
    const size_t js = static_cast<size_t>(j);
    if (e.state[js] == kBasic) continue;
    e.state[js] = static_cast<int8_t>(e.state_for_dual(j));
    e.place(j);
  }
  e.compute_primal();
}

// Phase 1 on the auxiliary problem (bounds by type: boxed [0,0], lower [0,1], upper
// [-1,0], free [-1,1]; costs as they are). Returns false when the problem is dual
// infeasible; the improving ray is then in `ray`.
bool dual_phase1(Engine& e, DualWork& dw, SimplexResult& res, std::vector<double>& ray) {
  const std::vector<double> lo = e.lo, up = e.up;
  for (size_t j = 0; j < static_cast<size_t>(e.nt); ++j) {
    const bool l = std::isfinite(lo[j]), u = std::isfinite(up[j]);
    e.lo[j] = l && u ? 0.0 : (l ? 0.0 : -1.0);
    e.up[j] = l && u ? 0.0 : (u ? 0.0 : 1.0);
  }
  align_boxed(e);
  const LoopEnd end = iterate(e, dw, res, true);
  ray.assign(e.x.begin(), e.x.end());
  double aux_obj = 0.0;
  for (int32_t j = 0; j < e.nt; ++j) aux_obj += e.cost[static_cast<size_t>(j)] * e.x[static_cast<size_t>(j)];
  e.lo = lo;
  e.up = up;
  std::fill(dw.w.begin(), dw.w.end(), 1.0);
  align_boxed(e);
  // Only an optimal auxiliary run proves anything; the others leave it to the next attempt.
  if (end != LoopEnd::kOptimal) return true;
  return e.dual_feasible() || aux_obj >= -e.opt.tol_dual;
}

// Random cost perturbation against dual degeneracy, in the direction that keeps the
// nonbasic items dual feasible.
void perturb_costs(Engine& e) {
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  double cmax = 0.0;
  for (int32_t j = 0; j < e.n; ++j) cmax = std::max(cmax, std::fabs(e.cost[static_cast<size_t>(j)]));
  const double base = 5e-7 * std::max(1.0, std::min(cmax, 1e3));
  for (int32_t j = 0; j < e.n; ++j) {
    const size_t js = static_cast<size_t>(j);
    const bool l = std::isfinite(e.lo[js]), u = std::isfinite(e.up[js]);
    const double xi = (base + 1e-6 * std::fabs(e.cost[js])) * (1.0 + unit(e.rng));
    double dir = 0.0;
    if (e.state[js] == kAtLower || (e.state[js] == kBasic && l && !u)) dir = 1.0;
    if (e.state[js] == kAtUpper || (e.state[js] == kBasic && u && !l)) dir = -1.0;
    if (l && u && e.lo[js] == e.up[js]) dir = 0.0;
    e.cost[js] += dir * xi;
  }
  e.costs_changed = true;
}

}  // namespace

LoopEnd run_dual(Engine& e, const interior::LpProblem& lp, SimplexResult& res) {
  DualWork dw(e.m);
  const int64_t start_iterations = e.iterations;
  e.refactor();
  LoopEnd end = LoopEnd::kOptimal;
  bool verified = false;
  for (int attempt = 0; attempt < 4; ++attempt) {
    align_boxed(e);
    // Perturbed costs serve phase 1 as well: its auxiliary problem is as degenerate as
    // its bounds are uniform.
    if (attempt == 0 && e.opt.perturb) {
      perturb_costs(e);
      e.compute_dual();
      align_boxed(e);
    }
    if (!e.dual_feasible()) {
      std::vector<double> ray;
      bool feasible = dual_phase1(e, dw, res, ray);
      if (!feasible && e.costs_changed && res.status == Status::kUnknown) {
        // The perturbed costs may leave no room where the data's costs have a thin dual
        // feasible set: decide on the data's costs.
        e.cost = e.cost_orig;
        e.costs_changed = false;
        e.compute_dual();
        align_boxed(e);
        feasible = dual_phase1(e, dw, res, ray);
      }
      if (!feasible) {
        e.extract_primal_ray(lp, ray.data(), res);
        res.status = Status::kDualInfeasible;
        end = LoopEnd::kUnbounded;
        break;
      }
      if (res.status != Status::kUnknown) {
        end = LoopEnd::kLimit;
        break;
      }
    }
    end = iterate(e, dw, res, false);
    if (end == LoopEnd::kUnbounded) {
      e.extract_farkas(lp, dw.rho.data(), dw.ray_sign, res);
      res.status = Status::kPrimalInfeasible;
      break;
    }
    if (end != LoopEnd::kOptimal) break;
    // Optimal for the working costs: back to the data's costs and fresh values.
    e.cost = e.cost_orig;
    e.costs_changed = false;
    e.refactor();
    verified = e.primal_feasible() && e.dual_feasible();
    if (verified) break;
    std::fill(dw.w.begin(), dw.w.end(), 1.0);
    if (e.primal_feasible() && ++e.handoffs <= 3) {
      res.dual_iterations += e.iterations - start_iterations;
      return run_primal(e, lp, res);
    }
  }
  if (end == LoopEnd::kLimit || end == LoopEnd::kTrouble) {
    e.cost = e.cost_orig;
    e.compute_dual();
  }
  if (end == LoopEnd::kOptimal && !verified) {
    end = LoopEnd::kTrouble;
    res.status = Status::kNumericalTrouble;
  }
  if (end == LoopEnd::kOptimal || end == LoopEnd::kLimit || end == LoopEnd::kTrouble) {
    e.extract(lp, res);
    if (end == LoopEnd::kOptimal) res.status = Status::kOptimal;
  }
  res.dual_iterations += e.iterations - start_iterations;
  return end;
}

}  // namespace qubor::simplex
