// Node relaxations: the linear relaxation with a node's column bounds, solved by the dual
// simplex from a start basis (the parent's), falling back to a cold start when the warm
// start runs into numerical trouble.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "mio/problem.h"
#include "simplex/simplex.h"

namespace qubor::mio {

struct RelaxResult {
  simplex::Status status = simplex::Status::kUnknown;
  double obj = 0.0;
  std::vector<double> x;
  std::shared_ptr<simplex::StartBasis> basis;
  int64_t iterations = 0;
};

class Relaxation {
 public:
  Relaxation(const Problem& p, const simplex::SimplexOptions& options);
  // Solves with the given column bounds; start may be null (slack basis).
  void solve(const std::vector<double>& lo, const std::vector<double>& up, const simplex::StartBasis* start,
             RelaxResult& r, int32_t max_iterations = -1);
  int64_t iterations() const { return iterations_; }
  double time() const { return time_; }
  void set_max_time(double seconds) { options_.max_time = seconds; }
  // After rows were appended to the problem.
  void refresh() { lp_ = p_.lp; }

 private:
  const Problem& p_;
  interior::LpProblem lp_;
  simplex::SimplexOptions options_;
  simplex::SimplexResult run_;
  int64_t iterations_ = 0;
  double time_ = 0.0;
};

}  // namespace qubor::mio
