// The homogeneous and self-dual interior-point iteration on the scaled internal form
//
//   A x - b tau = 0,   x_B + w - u tau = 0,   A'y + s - v - Q x - c tau = 0,
//   -c'x - x'Qx/tau + b'y - u'v - kappa = 0,   (x_N, s_N, w, v, tau, kappa) >= 0,
//
// where N are the columns with a lower bound, B those with also an upper bound and free
// columns have s = 0; Q is the quadratic objective (0 for a linear problem). This is the
// homogeneous model of monotone complementarity problems ("On a homogeneous algorithm for the
// monotone complementarity problem", Math. Program. 84, 1999) applied to
// the optimality conditions of a convex QP. Each iteration factors the reduced system
// (kkt_solver.h) once and uses the factor for the tau direction, the Mehrotra predictor and
// corrector and any further centrality correctors. Termination is tested on the unscaled
// quantities (see termination.h).
#pragma once

#include <cmath>
#include <cstdint>
#include <vector>

#include "interior/lp_problem.h"
#include "interior/kkt_solver.h"
#include "interior/standard_form.h"
#include "interior/termination.h"

namespace qubor::interior {

struct HsdOutcome {
  int32_t problem_status = 0;
  int32_t solution_status = 0;
  Termination termination = Termination::kNormal;
  int32_t iterations = 0;
  // Final iterate (scaled): x, s, w, v per column, y per row.
  std::vector<double> x, s, w, v, y;
  double tau = 1.0, kappa = 1.0;
  double primal_feas = 0.0, dual_feas = 0.0;
};

class HomogeneousSolver {
 public:
  // sf is the scaled internal form; the scales map it back (see scaling.h).
  HomogeneousSolver(const StandardForm& sf, const std::vector<double>& row_scale,
                    const std::vector<double>& col_scale, const IpOptions& opt,
                    double start_time);
  // Runs setup and iterations. kkt must have been set up on sf.
  void run(KktSolver& kkt, HsdOutcome& out);

 private:
  struct Direction {
    std::vector<double> dx, ds, dw, dv, dy;
    double dtau = 0, dkappa = 0;
    void resize(size_t n, size_t m);
  };

  void initial_point();
  void compute_residuals();
  double complementarity() const;
  TerminationInput termination_input() const;
  TerminationOutcome test(int32_t g, int32_t r);
  bool factorize(KktSolver& kkt);
  bool tau_direction(KktSolver& kkt);
  bool solve_direction(KktSolver& kkt, double eta, const std::vector<double>& rxs,
                       const std::vector<double>& rwv, double rtk, Direction& d);
  double max_step(const Direction& d) const;
  void take_step(const Direction& d, double alpha);
  bool iterate(KktSolver& kkt, double& alpha);
  void gondzio(KktSolver& kkt, Direction& d, double& alpha, double sigma_mu);
  void log_line(int32_t iter);
  void set_corrector_budget(const KktSolver& kkt);
  double merit() const;
  void save_best();
  void restore_best();
  double residual_norm() const;
  double rounding_floor() const;
  double gap_second_order(const Direction& d);
  bool escalate(KktSolver& kkt);

  const StandardForm& sf_;
  const std::vector<double>& rs_;
  const std::vector<double>& cs_;
  const IpOptions& opt_;
  const linalg::LogSink* sink_;
  double start_time_;
  size_t n_ = 0, m_ = 0;
  int32_t num_compl_ = 0;  // number of complementarity pairs (tau-kappa included)

  // Iterate and residuals.
  std::vector<double> x_, s_, w_, v_, y_;
  double tau_ = 1.0, kappa_ = 1.0;
  std::vector<double> rp_, ru_, rd_;
  std::vector<double> qx_;  // Q x
  double xqx_ = 0.0;        // x'Q x
  double rg_ = 0.0, mu_ = 0.0, mu0_ = 1.0;
  // Per-iteration quantities of the Newton system: d of the reduced system (kkt_solver.h).
  std::vector<double> dreg_, reg_, h_, g_, dx1_, dy1_, qwork_;
  double tau_den_ = 1.0;
  Direction pred_, corr_, trial_;
  std::vector<double> rxs_, rwv_, work_n_, work_m_;
  std::vector<double> rxs2_, rwv2_;  // right-hand sides of the trial correctors
  double rtk_ = 0.0, eta_ = 1.0;
  double rg_second_ = 0.0;  // second-order term of the gap equation in the corrector
  bool relaxed_ = false;    // a relaxed termination test is running
  // Unscaled norms.
  double norm_b_ = 0, norm_c_ = 0, norm_u_ = 0, obj_const_ = 0;
  double amax_ = 0;  // largest scaled |a_ij|
  double qmax_ = 0;  // largest scaled |q_ij|
  double primal_reg_ = 1e-12, free_reg_ = 1e-9, dual_reg_ = 0.0;
  int32_t regu_level_ = 0;
  int32_t max_cor_ = 0;
  int32_t max_refine_ = -1;
  TerminationOutcome last_pass_;
  // Best iterate so far by the optimality merit, restored when the run ends without a pass.
  struct Saved {
    std::vector<double> x, s, w, v, y;
    double tau = 1.0, kappa = 1.0, merit = INFINITY;
  } best_;
  // The iterate before the current step, restored when the step proves inaccurate.
  Saved prev_;
  void save_to(Saved& to) const;
  void load_from(const Saved& from);
};

}  // namespace qubor::interior
