// The termination test; see termination.h.
#include "interior/termination.h"

#include <algorithm>
#include <cmath>

#include "linalg/common/status.h"

namespace qubor::interior {
namespace {

double relax_ratio(double ratio, int32_t r) {
  if (r < 0) return std::max(1.0, ratio);
  if (r > 0) return std::min(1.0, ratio);
  return ratio;
}

}  // namespace

void set_tolerances(const IpOptions& opt, TerminationInput& in) {
  in.tolrpf = opt.tol_pfeas;
  in.tolrdf = opt.tol_dfeas;
  in.tolrgap = opt.tol_rel_gap;
  in.eps = opt.tol_infeas;
}

Termination run_limit(const IpOptions& opt, int32_t iter, double start_time) {
  if (iter >= opt.max_iterations) return Termination::kMaxIterations;
  if (opt.max_time >= 0.0 && linalg::wall_seconds() - start_time > opt.max_time) return Termination::kMaxTime;
  if (opt.progress && opt.progress(iter)) return Termination::kUserCallback;
  return Termination::kNormal;
}

TerminationOutcome termination_test(const TerminationInput& in, int32_t g, int32_t r,
                                    const linalg::LogSink* sink) {
  double gf = g < -1 ? 0.001 : (g == -1 ? 0.01 : (g == 0 ? 1.0 : 100.0));
  double ff = 1.0;
  if (r < -1) {
    ff = 0.001;
  } else if (r == -1) {
    gf *= 0.01;
  } else if (r > 0) {
    ff = 100.0;
  }
  const double eps = in.eps;
  log_printf(sink, 4, "### relax: %e relaxing: %d\n", ff, r);
  log_printf(sink, 4,
             "### pfeasf: %8.1e dfeasf: %8.1e tau: %e tolrpf: %6.1e tolrdf: %6.1e tolrgap: "
             "%6.1e by: %e\n",
             in.pfeasf, in.dfeasf, in.tau, in.tolrpf, in.tolrdf, in.tolrgap, in.by);
  const double ptol = std::max((1.0 + in.primal_norm) * in.tolrpf * in.tau, 1e-12) * ff;
  const double dtol = std::max((1.0 + in.dual_norm) * in.tolrdf * in.tau, 1e-12) * ff;
  log_printf(sink, 4, "### Primal feasible: %e <= %e\n", in.pfeasf, ptol);
  log_printf(sink, 4, "### Dual feasible  : %e <= %e\n", in.dfeasf, dtol);
  log_printf(sink, 4, "Relgap: %e tolrtigh: %e tolrgap: %e\n", in.relgap, gf * in.tolrgap,
             in.tolrgap);
  TerminationOutcome out;
  if (ptol >= in.pfeasf && dtol > in.dfeasf && gf * in.tolrgap >= in.relgap) {
    out.passed = true;
    out.problem_status = 1;
    out.solution_status = 1;
    return out;
  }
  log_printf(sink, 4, "Infeas. check. by: %e cx: %e\n", in.by, in.cx);
  bool dual_cert = false;
  if (in.cx < 0.0) {
    const double rtemp =
        relax_ratio(in.norm_obj / std::max({1.0, in.norm_bound, in.norm_rhs}), r);
    log_printf(sink, 4,
               "Dual infeas. check. cx : %e pfeasinff: %.2e rtemp: %.2e tau: %.2e %.2e\n", in.cx,
               in.pfeasinff, rtemp, in.tau, ff * eps);
    if (-(eps * in.cx) > rtemp * in.pfeasinff ||
        (ff * eps >= in.tau && -in.cx >= std::sqrt(ff * eps) * in.tau * in.norm_obj)) {
      out = {true, 5, 6};
      dual_cert = true;
    } else if (r > 1 && -(std::sqrt(eps) * in.cx) >= rtemp * in.pfeasinff) {
      out = {true, 5, 13};
      dual_cert = true;
      log_printf(sink, 1, "A nearly dual infeasible certificate has been computed.\n");
      log_printf(sink, 1, "Relaxing: %d Relaxed eps: %e\n", r, std::sqrt(eps));
    }
    log_printf(sink, 4, "Dual infeas. check. tol: %.2e rel: %.2e rtemp: %.2e\n", eps,
               in.pfeasinff / std::max(-in.cx, 1e-300), rtemp);
  }
  if (in.by > 0.0) {
    const double rtemp2 =
        relax_ratio(in.norm_rhs / std::max({in.norm_bound, in.norm_obj, 1.0}), r);
    log_printf(sink, 4,
               "Primal infeasibility check: by: %e  eps: %e. dfeasinff: %e rtemp: %e Checking: "
               "%e by*eps >= dfeasinff*rtemp: %e\n",
               in.by, eps, in.dfeasinff, rtemp2, eps * in.by, in.dfeasinff * rtemp2);
    int32_t solsta = 0;
    if (eps * in.by >= rtemp2 * in.dfeasinff ||
        (ff * eps >= in.tau && in.by >= in.tau * std::sqrt(ff * eps) * in.norm_rhs)) {
      solsta = 5;
    } else if (r >= 2 && std::sqrt(eps) * in.by >= rtemp2 * in.dfeasinff) {
      solsta = 12;
    }
    if (solsta != 0) {
      const bool replace =
          !dual_cert || in.pfeasinff / (-in.cx) > in.dfeasinff / in.by;
      if (replace) out = {true, 4, solsta};
    }
  }
  return out;
}

}  // namespace qubor::interior
