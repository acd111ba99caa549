// Node relaxations; see relax.h.
#include "mio/relax.h"

namespace qubor::mio {

Relaxation::Relaxation(const Problem& p, const simplex::SimplexOptions& options)
    : p_(p), lp_(p.lp), options_(options) {
  options_.algorithm = simplex::Algorithm::kDual;
  options_.log.level = 0;
  options_.log.write = nullptr;
}

void Relaxation::solve(const std::vector<double>& lo, const std::vector<double>& up, const simplex::StartBasis* start,
                       RelaxResult& r, int32_t max_iterations) {
  lp_.col_lo = lo;
  lp_.col_up = up;
  simplex::SimplexOptions o = options_;
  if (max_iterations >= 0) o.max_iterations = max_iterations;
  simplex::solve(lp_, o, start, run_);
  r.iterations = run_.primal_iterations + run_.dual_iterations;
  time_ += run_.time;
  if (run_.status == simplex::Status::kNumericalTrouble && start != nullptr) {
    o.algorithm = simplex::Algorithm::kFree;
    simplex::solve(lp_, o, nullptr, run_);
    r.iterations += run_.primal_iterations + run_.dual_iterations;
    time_ += run_.time;
  }
  iterations_ += r.iterations;
  r.status = run_.status;
  r.x.swap(run_.x);
  r.obj = r.status == simplex::Status::kOptimal ? objective(p_, r.x.data()) : 0.0;
  auto basis = std::make_shared<simplex::StartBasis>();
  basis->skx.swap(run_.skx);
  basis->skc.swap(run_.skc);
  r.basis = std::move(basis);
}

}  // namespace qubor::mio
