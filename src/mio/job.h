// One branch-and-bound job: the tree with its node selector, the relaxation, propagation,
// pseudocosts, the incumbent and the heuristics. The run's entry (search.h) drives one job.
#pragma once

#include <chrono>
#include <cstdint>
#include <limits>
#include <vector>

#include "mio/cutpool.h"
#include "mio/domprop.h"
#include "mio/plugin.h"
#include "mio/pseudocost.h"
#include "mio/relax.h"
#include "mio/search.h"
#include "mio/tree.h"

namespace qubor::mio {

class Job;

// Primal heuristics: the registration record holds the name, the run operation, two limits
// (-1 for the diving heuristics, 0 for the others: -1 lets a heuristic run below the root)
// and five constants: the depth frequency, the depth offset, the priority, the maximum
// number of runs per ten nodes at the root's depth and the effort share in percent of the
// relaxation iterations.
struct HeuristicOps {
  void (*destroy)(void*);
  bool (*run)(void*, Job&);  // true when it found an improving solution
};
struct Heuristic {
  Record<HeuristicOps> rec;
  int32_t limits[2];
  int32_t constants[5];
};

// The records of one run, created in one place (registry.cpp).
std::vector<Heuristic> make_heuristics(const MioOptions& o);
std::vector<EventHandler> make_event_handlers();

class Job {
 public:
  // The job appends its root cuts to p.
  Job(Problem& p, const MioOptions& o, const MioProgress& progress, PseudocostRecord& shared_pc);
  void run(MioResult& r);

  // What the heuristics use.
  const Problem& problem() const { return p_; }
  const MioOptions& options() const { return o_; }
  const std::vector<double>& relax_x() const { return relax_.x; }
  const std::vector<double>& node_lo() const { return lo_; }
  const std::vector<double>& node_up() const { return up_; }
  const std::vector<double>& root_x() const { return root_x_; }
  bool at_root() const { return depth_ == 0; }
  int32_t depth() const { return depth_; }
  bool has_incumbent() const { return stats_.has_int; }
  const std::vector<double>& incumbent() const { return best_x_; }
  double cutoff() const;
  Relaxation& relaxation() { return lp_; }
  Propagator& propagator() { return prop_; }
  int64_t relax_iterations() const { return lp_.iterations(); }
  // Offers a point; the integer columns are rounded and, when the problem has continuous
  // columns, those are completed by a relaxation with the integer columns fixed. True when
  // it became the new incumbent.
  bool offer(std::vector<double> x, bool complete_continuous);
  bool is_fractional(int32_t j, double v) const;
  bool out_of_time() const;
  // Seconds left under the time limits (negative: no limit).
  double remaining_time() const;

 private:
  enum class NodeEnd { kPruned, kBranched, kStop };
  double elapsed() const;
  bool check_limits(MioResult& r);
  bool gap_met(MioResult& r);
  void update_gap();
  NodeEnd process(Node& node, MioResult& r);
  bool branch(Node& parent, const std::vector<int32_t>& fractional);  // false: node infeasible
  int32_t choose_variable(const std::vector<int32_t>& fractional);
  bool prefer_up(int32_t j, double v) const;
  void log_header();
  void log_line(bool force);
  void log_summary(const MioResult& r);
  void log_end(const MioResult& r);
  bool accept(const std::vector<double>& x, double obj);
  void run_heuristics();
  // Root cut rounds; returns the basis of the last root relaxation (null when none ran).
  std::shared_ptr<simplex::StartBasis> root_cuts();

  Problem& p_;
  const MioOptions& o_;
  const MioProgress& progress_;
  PseudocostRecord local_pc_;
  Pseudocosts pc_;
  Tree tree_;
  NodeSelector selector_;
  std::vector<EventHandler> handlers_;
  std::vector<Heuristic> heuristics_;
  std::vector<Separator> separators_;
  Propagator prop_;
  Relaxation lp_;
  RelaxResult relax_, sb_;
  std::vector<double> sb_lo_, sb_up_;
  int64_t strong_iterations_ = 0;
  double propagation_time_ = 0.0;
  std::vector<double> lo_, up_, plo_, pup_, root_lo_, root_up_, root_x_, best_x_;
  std::vector<int32_t> seeds_;
  MioStats stats_;
  int32_t depth_ = 0;
  double current_bound_ = 0.0;  // bound of the node being processed
  bool processing_ = false;
  int64_t seq_ = 0;
  int64_t last_log_relaxs_ = -1;
  double dropped_bound_ = std::numeric_limits<double>::infinity();  // smallest bound of dropped nodes
  bool user_stop_ = false;
  int64_t heuristic_iterations_ = 0;
  std::chrono::steady_clock::time_point start_;
};

}  // namespace qubor::mio
