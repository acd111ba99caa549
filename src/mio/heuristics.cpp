// Primal heuristics; see heuristics.h.
#include "mio/heuristics.h"

#include <algorithm>
#include <cmath>

namespace qubor::mio {
namespace {

// Rounds every integer column of the node's relaxation to the nearest integer.
bool test_current_relax(void*, Job& job) {
  return job.offer(job.relax_x(), true);
}

// The points at the lower bounds, at the upper bounds and nearest to zero.
bool trivial(void*, Job& job) {
  if (!job.at_root()) return false;
  const Problem& p = job.problem();
  const int32_t n = p.n();
  bool found = false;
  for (int which = 0; which < 3; ++which) {
    std::vector<double> x(static_cast<size_t>(n));
    for (int32_t j = 0; j < n; ++j) {
      const size_t js = static_cast<size_t>(j);
      const double lo = job.node_lo()[js], up = job.node_up()[js];
      double v = std::clamp(0.0, lo, up);
      if (which == 0 && std::isfinite(lo)) v = lo;
      if (which == 1 && std::isfinite(up)) v = up;
      x[js] = v;
    }
    found = job.offer(std::move(x), true) || found;
  }
  return found;
}

// Dives from the node: bounds the least fractional integer column by its nearest integer
// (the other way when propagation refutes that), propagates, and solves the relaxation
// again, until it is integral, infeasible, or cut off.
bool dive_min_fractional(void*, Job& job) {
  const Problem& p = job.problem();
  const int32_t n = p.n();
  std::vector<double> lo = job.node_lo(), up = job.node_up();
  std::vector<double> x = job.relax_x();
  RelaxResult res;
  std::shared_ptr<const simplex::StartBasis> basis;
  std::vector<int32_t> seeds(1);
  const int32_t max_steps = 2 * (p.num_int + p.num_bin) + 10;
  for (int32_t step = 0; step < max_steps; ++step) {
    int32_t best = -1;
    double best_frac = 1.0;
    for (int32_t j = 0; j < n; ++j) {
      const double v = x[static_cast<size_t>(j)];
      if (!job.is_fractional(j, v)) continue;
      const double f = std::fabs(v - std::round(v));
      if (f < best_frac) {
        best_frac = f;
        best = j;
      }
    }
    if (best < 0) return job.offer(x, true);
    const size_t bs = static_cast<size_t>(best);
    const double target = std::round(x[bs]);
    const double other = target > x[bs] ? std::floor(x[bs]) : std::ceil(x[bs]);
    bool ok = false;
    for (double value : {target, other}) {
      std::vector<double> tlo = lo, tup = up;
      // A general integer is only bounded on the side of the rounding; a binary is fixed.
      if (value >= x[bs]) tlo[bs] = value; else tup[bs] = value;
      seeds[0] = best;
      if (value < lo[bs] || value > up[bs] || !job.propagator().propagate(tlo, tup, &seeds)) continue;
      for (int32_t j = 0; j < n; ++j)
        if (!p.is_int(j)) {
          tlo[static_cast<size_t>(j)] = lo[static_cast<size_t>(j)];
          tup[static_cast<size_t>(j)] = up[static_cast<size_t>(j)];
        }
      lo.swap(tlo);
      up.swap(tup);
      ok = true;
      break;
    }
    if (!ok) return false;
    job.relaxation().set_max_time(job.remaining_time());
    job.relaxation().solve(lo, up, basis.get(), res);
    if (res.status != simplex::Status::kOptimal || res.obj >= job.cutoff() || job.out_of_time()) return false;
    basis = res.basis;
    x.swap(res.x);
  }
  return false;
}

}  // namespace

const HeuristicOps kTestCurrentRelaxOps = {nullptr, test_current_relax};
const HeuristicOps kTrivialOps = {nullptr, trivial};
const HeuristicOps kDiveMinFractionalOps = {nullptr, dive_min_fractional};

}  // namespace qubor::mio
