// The branch-and-bound run; see search.h and job.h.
#include "mio/search.h"

#include <algorithm>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <limits>
#include <string>

#include "mio/job.h"
#include "qubor.h"

namespace qubor::mio {
namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();

using linalg::log_printf;

Rule queue_rule(int32_t node_selection) {
  switch (node_selection) {
    case QBR_MIO_NODE_SELECTION_FIRST: return Rule::kDepthFirst;
    case QBR_MIO_NODE_SELECTION_PSEUDO: return Rule::kBestEstimate;
    default: return Rule::kBestBound;
  }
}

// first: depth first; best: best bound without diving; pseudo: best estimate without diving
// (every tenth pick by bound); free: dives through the children and siblings of the last
// node, backtracking to the best bound.
NodeSelector make_selector(int32_t node_selection) {
  switch (node_selection) {
    case QBR_MIO_NODE_SELECTION_FIRST: return make_depth_first_selector();
    case QBR_MIO_NODE_SELECTION_BEST: return make_interleaved_selector({Rule::kBestBound, 0, 1});
    case QBR_MIO_NODE_SELECTION_PSEUDO: return make_interleaved_selector({Rule::kBestEstimate, 0, 10});
    default: return make_interleaved_selector({Rule::kBestBound, 1, 1});
  }
}

}  // namespace

double relative_gap(double best_int, double best_bound, double rel_gap_const) {
  return std::fabs(best_int - best_bound) / std::max(rel_gap_const, std::fabs(best_int));
}

std::string format_gap(bool available, double rel_gap) {
  char buf[64];
  const double pct = rel_gap * 100.0;
  if (!available || std::isnan(pct))
    std::snprintf(buf, sizeof buf, " %-11s", "NA");
  else if (pct >= 0.01 && pct <= 1000.0)
    std::snprintf(buf, sizeof buf, " %-11.2f", pct);
  else
    std::snprintf(buf, sizeof buf, " %-11.2e", pct);
  return buf;
}

std::string format_objective(bool available, double value) {
  char buf[64];
  if (available)
    std::snprintf(buf, sizeof buf, "%-20.10e", value + 0.0);  // no "-0"
  else
    std::snprintf(buf, sizeof buf, "%-20s", "NA");
  return buf;
}

Job::Job(Problem& p, const MioOptions& o, const MioProgress& progress, PseudocostRecord& shared_pc)
    : p_(p), o_(o), progress_(progress), local_pc_(p.n()), pc_(local_pc_, shared_pc, o.tol_abs_relax_int),
      tree_(queue_rule(o.node_selection)), selector_(make_selector(o.node_selection)),
      handlers_(make_event_handlers()), heuristics_(make_heuristics(o)),
      separators_(make_separators(SeparatorSwitches{o.cut_knapsack_cover, o.cut_gmi})), prop_(p, &handlers_), lp_(p, o.simplex),
      start_(std::chrono::steady_clock::now()) {}

double Job::elapsed() const {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
}

bool Job::out_of_time() const {
  const double t = elapsed();
  return (o_.mio_max_time >= 0.0 && t >= o_.mio_max_time) ||
         (o_.optimizer_max_time >= 0.0 && t >= o_.optimizer_max_time);
}

double Job::cutoff() const {
  if (!stats_.has_int) return kInf;
  const double inc = stats_.best_int;
  double c = inc - std::max(o_.tol_abs_gap, o_.tol_rel_gap * std::max(o_.rel_gap_const, std::fabs(inc)));
  // Objective values of integer solutions are integers apart: bounds are rounded up to the
  // grid, so a bound above inc - 1 cannot improve.
  if (p_.integral_objective) c = std::min(c, inc - 0.5);
  // A node whose bound equals the incumbent's value cannot improve it either.
  return std::min(c, inc - 1e-9 * std::max(1.0, std::fabs(inc)));
}

bool Job::is_fractional(int32_t j, double v) const {
  return p_.is_int(j) && std::fabs(v - std::round(v)) > o_.tol_abs_relax_int;
}

void Job::update_gap() {
  double b = std::min(tree_.best_bound(), dropped_bound_);
  if (processing_) b = std::min(b, current_bound_);
  if (stats_.has_int) b = std::min(b, stats_.best_int);
  stats_.best_bound = b;
  stats_.bound_defined = std::isfinite(b);
  stats_.active = static_cast<int64_t>(tree_.num_open());
  stats_.time = elapsed();
  stats_.simplex_iterations = lp_.iterations();
  if (stats_.has_int && stats_.bound_defined) {
    stats_.abs_gap = std::max(0.0, stats_.best_int - b);
    stats_.rel_gap = relative_gap(stats_.best_int, b, o_.rel_gap_const);
  } else {
    stats_.abs_gap = stats_.rel_gap = kInf;
  }
}

bool Job::accept(const std::vector<double>& x, double obj) {
  if (stats_.has_int && obj >= stats_.best_int - 1e-9 * std::max(1.0, std::fabs(stats_.best_int))) return false;
  stats_.has_int = true;
  stats_.best_int = obj;
  best_x_ = x;
  ++stats_.int_solutions;
  tree_.prune(cutoff());
  update_gap();
  log_line(true);
  if (progress_ && progress_(QBR_CALLBACK_NEW_INT_MIO, stats_)) user_stop_ = true;
  return true;
}

bool Job::offer(std::vector<double> x, bool complete_continuous) {
  const int32_t n = p_.n();
  if (static_cast<int32_t>(x.size()) != n) return false;
  for (int32_t j = 0; j < n; ++j) {
    const size_t js = static_cast<size_t>(j);
    if (!std::isfinite(x[js])) return false;
    if (p_.is_int(j)) x[js] = std::clamp(std::round(x[js]), p_.lp.col_lo[js], p_.lp.col_up[js]);
  }
  if (complete_continuous && p_.num_cont > 0) {
    std::vector<double> lo = p_.lp.col_lo, up = p_.lp.col_up;
    for (int32_t j = 0; j < n; ++j)
      if (p_.is_int(j)) lo[static_cast<size_t>(j)] = up[static_cast<size_t>(j)] = x[static_cast<size_t>(j)];
    RelaxResult fix;
    lp_.set_max_time(remaining_time());
    lp_.solve(lo, up, nullptr, fix);
    if (fix.status != simplex::Status::kOptimal) return false;
    for (int32_t j = 0; j < n; ++j)
      if (!p_.is_int(j)) x[static_cast<size_t>(j)] = fix.x[static_cast<size_t>(j)];
  }
  const Violation v = violation(p_, x.data());
  if (v.row > o_.tol_feas || v.bound > o_.tol_feas) return false;
  return accept(x, objective(p_, x.data()));
}

double Job::remaining_time() const {
  double limit = kInf;
  if (o_.mio_max_time >= 0.0) limit = std::min(limit, o_.mio_max_time);
  if (o_.optimizer_max_time >= 0.0) limit = std::min(limit, o_.optimizer_max_time);
  if (!std::isfinite(limit)) return -1.0;
  return std::max(0.0, limit - elapsed());
}

bool Job::check_limits(MioResult& r) {
  const double t = elapsed();
  if (o_.mio_max_time >= 0.0 && t >= o_.mio_max_time) { r.end = MioEnd::kMioTime; return true; }
  if (o_.optimizer_max_time >= 0.0 && t >= o_.optimizer_max_time) { r.end = MioEnd::kOptimizerTime; return true; }
  if (o_.max_relaxs >= 0 && stats_.relaxs >= o_.max_relaxs) { r.end = MioEnd::kRelaxLimit; return true; }
  if (o_.max_branches >= 0 && stats_.branches >= o_.max_branches) { r.end = MioEnd::kBranchLimit; return true; }
  if (o_.max_solutions >= 0 && stats_.int_solutions >= o_.max_solutions) { r.end = MioEnd::kSolutionLimit; return true; }
  if (user_stop_) { r.end = MioEnd::kUserStop; return true; }
  return false;
}

bool Job::gap_met(MioResult& r) {
  update_gap();
  if (!stats_.has_int || !stats_.bound_defined) return false;
  if (stats_.rel_gap <= o_.tol_rel_gap) {
    stats_.rel_gap_met = true;
    r.end = MioEnd::kRelGap;
    return true;
  }
  if (stats_.abs_gap <= o_.tol_abs_gap) {
    stats_.abs_gap_met = true;
    r.end = MioEnd::kAbsGap;
    return true;
  }
  return false;
}

void Job::log_header() {
  log_printf(&o_.log, 1, "%-8s %-8s %-8s %-8s %-20s %-20s %-11s %-6s\n", "BRANCHES", "RELAXS", "ACT_NDS", "DEPTH",
             "BEST_INT_OBJ", "BEST_RELAX_OBJ", "REL_GAP(%)", "TIME");
}

void Job::log_line(bool force) {
  if (!linalg::log_enabled(&o_.log, 1)) return;
  const int64_t freq = o_.log_freq > 0 ? o_.log_freq : 0;
  if (!force && (freq == 0 || stats_.relaxs == last_log_relaxs_ || stats_.relaxs % freq != 0)) return;
  last_log_relaxs_ = stats_.relaxs;
  update_gap();
  const std::string depth = std::to_string(depth_);
  const std::string best_int = format_objective(stats_.has_int, o_.obj_sign * stats_.best_int);
  const std::string bound = format_objective(stats_.bound_defined, o_.obj_sign * stats_.best_bound);
  const std::string gap = format_gap(stats_.has_int && stats_.bound_defined, stats_.rel_gap);
  log_printf(&o_.log, 1, "%-8d %-8d %-8d %-8s %-20s %-20s%s %-6.1f\n", static_cast<int>(stats_.branches),
             static_cast<int>(stats_.relaxs), static_cast<int>(stats_.active), depth.c_str(), best_int.c_str(),
             bound.c_str(), gap.c_str(), stats_.time);
}

void Job::log_end(const MioResult& r) {
  switch (r.end) {
    case MioEnd::kRelGap:
      log_printf(&o_.log, 1, "An optimal solution satisfying the relative gap tolerance of %.2e(%%) has been located.\n",
                 o_.tol_rel_gap * 100.0);
      log_printf(&o_.log, 1, "The relative gap is %.2e(%%).\n", stats_.rel_gap * 100.0);
      break;
    case MioEnd::kAbsGap:
      log_printf(&o_.log, 1, "An optimal solution satisfying the absolute gap tolerance of %.2e has been located.\n",
                 o_.tol_abs_gap);
      log_printf(&o_.log, 1, "The absolute gap is %.2e.\n", stats_.abs_gap);
      break;
    case MioEnd::kMioTime:
      log_printf(&o_.log, 1, "Maximum amount of time %.2f (=dpar_mio_max_time) is reached.\n", o_.mio_max_time);
      break;
    case MioEnd::kOptimizerTime:
      log_printf(&o_.log, 1, "Maximum amount of time %.2f (=dpar_optimizer_max_time) is reached.\n",
                 o_.optimizer_max_time);
      break;
    case MioEnd::kRelaxLimit:
      log_printf(&o_.log, 1, "Maximum number of relaxations %d is reached.\n", static_cast<int>(o_.max_relaxs));
      break;
    case MioEnd::kBranchLimit:
      log_printf(&o_.log, 1, "Maximum number of branches %d is reached.\n", static_cast<int>(o_.max_branches));
      break;
    case MioEnd::kSolutionLimit:
      log_printf(&o_.log, 1, "Maximum number of integer solutions %d is reached.\n", static_cast<int>(o_.max_solutions));
      break;
    case MioEnd::kUnbounded:
      log_printf(&o_.log, 1, "The relaxation of the root node is unbounded.\n");
      break;
    case MioEnd::kTreeExhausted:
      if (!stats_.has_int) log_printf(&o_.log, 1, "The mixed integer problem has no integer feasible solution.\n");
      break;
    case MioEnd::kUserStop:
      break;
  }
}

void Job::log_summary(const MioResult& r) {
  const linalg::LogSink* log = &o_.log;
  if (!linalg::log_enabled(log, 1)) return;
  const MioStats& s = r.stats;
  if (s.has_int)
    log_printf(log, 1, "Objective of best integer solution : %-24.12e\n", o_.obj_sign * s.best_int);
  else
    log_printf(log, 1, "Objective of best integer solution : Not available.\n");
  log_printf(log, 1, "Best objective bound               : %-24.12e", o_.obj_sign * s.best_bound);
  char construct[64];
  if (!o_.initial)
    std::snprintf(construct, sizeof construct, "Not employed");
  else if (!s.construct_used)
    std::snprintf(construct, sizeof construct, "Infeasible");
  else
    std::snprintf(construct, sizeof construct, "%-.12e", o_.obj_sign * s.construct_obj);
  log_printf(log, 1, "Construct solution objective       : %-s\n", construct);
  log_printf(log, 1, "User objective cut value           : %-s\n", "Not employed");
  log_printf(log, 1, "Number of cuts generated           : %-d\n", s.num_cuts);
  log_printf(log, 1, "  Number of Gomory cuts            : %-d\n", s.gomory_cuts);
  log_printf(log, 1, "  Number of CMIR cuts              : %-d\n", s.cmir_cuts);
  log_printf(log, 1, "  Number of clique cuts            : %-d\n", s.clique_cuts);
  log_printf(log, 1, "  Number of implied bound cuts     : %-d\n", s.implied_bound_cuts);
  log_printf(log, 1, "  Number of knapsack_cover cuts    : %-d\n", s.knapsack_cover_cuts);
  log_printf(log, 1, "Number of branches                 : %-d\n", static_cast<int>(s.branches));
  log_printf(log, 1, "Number of relaxations solved       : %-d\n", static_cast<int>(s.relaxs));
  log_printf(log, 1, "Number of interior point iterations: %-lld\n", 0LL);
  log_printf(log, 1, "Number of simplex iterations       : %-lld\n", static_cast<long long>(s.simplex_iterations));
  log_printf(log, 1, "Time spend presolving the root     : %-.2f\n", s.presolve_time);
  log_printf(log, 1, "Time spend optimizing the root     : %-.2f\n", s.root_time);
  // Where the time went (debug level).
  double heuristics = 0.0, cuts = 0.0;
  for (const Heuristic& h : heuristics_) heuristics += h.rec.total_time;
  for (const Separator& sep : separators_) cuts += sep.rec.total_time;
  log_printf(log, 5, "%-30s %e\n", "Relaxation time", lp_.time());
  log_printf(log, 5, "%-30s %e\n", "Heuristics time", heuristics);
  log_printf(log, 5, "%-30s %e\n", "Separation time", cuts);
  log_printf(log, 5, "%-30s %e\n", "Propagation time", propagation_time_);
  log_printf(log, 5, "%-30s %lld\n", "Strong branching iterations", static_cast<long long>(strong_iterations_));
  log_printf(log, 1, "Mixed integer optimizer terminated. Time: %-.2f\n\n", s.time);
}

bool Job::prefer_up(int32_t j, double v) const {
  const double f = v - std::floor(v);
  switch (o_.branch_dir) {
    case QBR_BRANCH_DIR_UP: return true;
    case QBR_BRANCH_DIR_DOWN: return false;
    case QBR_BRANCH_DIR_NEAR: return f >= 0.5;
    case QBR_BRANCH_DIR_FAR: return f < 0.5;
    case QBR_BRANCH_DIR_ROOT_LP:
      return root_x_.empty() ? f >= 0.5 : root_x_[static_cast<size_t>(j)] >= v;
    case QBR_BRANCH_DIR_GUIDED:
      return stats_.has_int ? best_x_[static_cast<size_t>(j)] >= v : f >= 0.5;
    case QBR_BRANCH_DIR_PSEUDOCOST: return pc_.get(j, true) * (1.0 - f) <= pc_.get(j, false) * f;
    default: return true;
  }
}

// Reliability branching: the product of the two pseudocost gains scores a candidate;
// candidates whose pseudocosts rest on fewer than kReliable observations in a direction are
// first measured by strong branching (both children's relaxations from the node's basis,
// with an iteration limit), the best-scored ones first. Returns -1 when strong branching
// shows both children of a candidate infeasible (the node is infeasible).
int32_t Job::choose_variable(const std::vector<int32_t>& fractional) {
  constexpr int64_t kReliable = 4;
  constexpr size_t kMaxStrong = 8;
  auto score_of = [](double down, double up) { return std::max(down, 1e-6) * std::max(up, 1e-6); };
  std::vector<std::pair<double, int32_t>> cand;
  cand.reserve(fractional.size());
  for (int32_t j : fractional) {
    const double v = relax_.x[static_cast<size_t>(j)];
    const double f = v - std::floor(v);
    cand.emplace_back(score_of(pc_.get(j, false) * f, pc_.get(j, true) * (1.0 - f)), j);
  }
  std::stable_sort(cand.begin(), cand.end(), [](const auto& a, const auto& b) { return a.first > b.first; });
  // Strong branching spends at most as many iterations as the node relaxations did.
  const bool strong_allowed = strong_iterations_ <= lp_.iterations() - strong_iterations_ + 1000;
  const int32_t iter_limit = static_cast<int32_t>(
      std::clamp<int64_t>(2 * lp_.iterations() / std::max<int64_t>(1, stats_.relaxs), 20, 500));
  size_t strong = 0;
  int32_t best = -1;
  double best_score = -1.0;
  for (auto& [score, j] : cand) {
    const size_t js = static_cast<size_t>(j);
    const double v = relax_.x[js];
    const bool unreliable = pc_.observations(j, false) < kReliable || pc_.observations(j, true) < kReliable;
    if (unreliable && strong_allowed && strong < kMaxStrong && !out_of_time()) {
      ++strong;
      double gain[2] = {0.0, 0.0};
      bool infeasible[2] = {false, false}, measured[2] = {false, false};
      for (int side = 0; side < 2; ++side) {
        const bool up = side == 1;
        sb_lo_ = lo_;
        sb_up_ = up_;
        if (up) sb_lo_[js] = std::ceil(v); else sb_up_[js] = std::floor(v);
        const int64_t before = lp_.iterations();
        lp_.set_max_time(remaining_time());
        lp_.solve(sb_lo_, sb_up_, relax_.basis.get(), sb_, iter_limit);
        strong_iterations_ += lp_.iterations() - before;
        if (sb_.status == simplex::Status::kPrimalInfeasible) {
          infeasible[side] = true;
        } else if (sb_.status == simplex::Status::kOptimal) {
          measured[side] = true;
          gain[side] = std::max(0.0, sb_.obj - relax_.obj);
          pc_.update(j, up, v, gain[side]);
          bool integral = true;
          for (int32_t k = 0; k < p_.n() && integral; ++k) integral = !is_fractional(k, sb_.x[static_cast<size_t>(k)]);
          if (integral && sb_.obj < cutoff()) offer(sb_.x, true);
        }
      }
      if (infeasible[0] && infeasible[1]) return -1;
      if (infeasible[0] || infeasible[1]) return j;  // one child is pruned at once
      if (measured[0] && measured[1]) score = score_of(gain[0], gain[1]);
    }
    if (score > best_score) {
      best_score = score;
      best = j;
    }
  }
  return best;
}

bool Job::branch(Node& parent, const std::vector<int32_t>& fractional) {
  const int32_t j = choose_variable(fractional);
  if (j < 0) return false;
  const size_t js = static_cast<size_t>(j);
  const double v = relax_.x[js];
  // Estimate of the best integer objective below the node: the cheaper rounding of each
  // fractional variable, by pseudocosts.
  double est = relax_.obj, own = 0.0;
  for (int32_t k : fractional) {
    const double xv = relax_.x[static_cast<size_t>(k)], f = xv - std::floor(xv);
    const double c = std::min(pc_.get(k, false) * f, pc_.get(k, true) * (1.0 - f));
    est += c;
    if (k == j) own = c;
  }
  const double f = v - std::floor(v);
  const bool up_first = prefer_up(j, v);
  int32_t ids[2];
  for (int side = 0; side < 2; ++side) {
    const bool up = side == 0 ? !up_first : up_first;  // the preferred child is created last
    Node child;
    child.depth = parent.depth + 1;
    child.seq = ++seq_;
    child.key = child.seq;
    child.bound = current_bound_;
    child.bound_valid = true;
    child.estimate = est - own + (up ? pc_.get(j, true) * (1.0 - f) : pc_.get(j, false) * f);
    child.estimate_valid = true;
    child.draw = tie_draw(child.depth, child.key, child.seq, o_.seed);
    child.changes.reserve(parent.changes.size() + 1);
    child.changes = parent.changes;
    child.changes.push_back(up ? BoundChange{j, std::ceil(v), up_[js]} : BoundChange{j, lo_[js], std::floor(v)});
    child.basis = relax_.basis;
    child.branch_var = j;
    child.branch_value = v;
    child.branch_up = up;
    child.parent_obj = relax_.obj;
    ids[side] = tree_.add(std::move(child));
  }
  // The preferred child first: diving continues there.
  tree_.set_children({ids[1], ids[0]});
  ++stats_.branches;
  return true;
}

Job::NodeEnd Job::process(Node& node, MioResult& r) {
  depth_ = node.depth;
  current_bound_ = node.bound_valid ? node.bound : -kInf;
  processing_ = true;
  if (node.bound_valid && node.bound >= cutoff()) return NodeEnd::kPruned;
  lo_ = root_lo_;
  up_ = root_up_;
  seeds_.clear();
  for (const BoundChange& c : node.changes) {
    const size_t js = static_cast<size_t>(c.var);
    lo_[js] = std::max(lo_[js], c.lo);
    up_[js] = std::min(up_[js], c.up);
    seeds_.push_back(c.var);
  }
  plo_ = lo_;
  pup_ = up_;
  const auto tp = std::chrono::steady_clock::now();
  const bool propagated = prop_.propagate(plo_, pup_, &seeds_);
  propagation_time_ += std::chrono::duration<double>(std::chrono::steady_clock::now() - tp).count();
  if (!propagated) return NodeEnd::kPruned;
  for (int32_t j = 0; j < p_.n(); ++j)
    if (p_.is_int(j)) {
      lo_[static_cast<size_t>(j)] = plo_[static_cast<size_t>(j)];
      up_[static_cast<size_t>(j)] = pup_[static_cast<size_t>(j)];
    }
  lp_.set_max_time(remaining_time());
  lp_.solve(lo_, up_, node.basis.get(), relax_);
  ++stats_.relaxs;
  switch (relax_.status) {
    case simplex::Status::kOptimal: break;
    case simplex::Status::kPrimalInfeasible: return NodeEnd::kPruned;
    case simplex::Status::kDualInfeasible:
      if (node.depth == 0) {
        r.end = MioEnd::kUnbounded;
        return NodeEnd::kStop;
      }
      [[fallthrough]];
    case simplex::Status::kTimeLimit:
    case simplex::Status::kUserStop:
      if (out_of_time()) {
        r.end = o_.mio_max_time >= 0.0 && elapsed() >= o_.mio_max_time ? MioEnd::kMioTime : MioEnd::kOptimizerTime;
        return NodeEnd::kStop;
      }
      [[fallthrough]];
    default:
      // No trustworthy answer: the node is dropped, its bound kept for the gap.
      dropped_bound_ = std::min(dropped_bound_, current_bound_);
      r.incomplete = true;
      return NodeEnd::kPruned;
  }
  double bound = relax_.obj;
  if (p_.integral_objective) bound = std::ceil(bound - p_.lp.cfix - 1e-6) + p_.lp.cfix;
  if (node.branch_var >= 0)
    pc_.update(node.branch_var, node.branch_up, node.branch_value, relax_.obj - node.parent_obj);
  current_bound_ = std::max(current_bound_, bound);
  if (node.depth == 0) {
    root_x_ = relax_.x;
    stats_.root_time = elapsed();
  }
  if (current_bound_ >= cutoff()) return NodeEnd::kPruned;
  std::vector<int32_t> fractional;
  for (int32_t j = 0; j < p_.n(); ++j)
    if (is_fractional(j, relax_.x[static_cast<size_t>(j)])) fractional.push_back(j);
  if (fractional.empty()) {
    offer(relax_.x, true);
    return NodeEnd::kPruned;
  }
  run_heuristics();
  if (current_bound_ >= cutoff() || user_stop_) return NodeEnd::kPruned;
  return branch(node, fractional) ? NodeEnd::kBranched : NodeEnd::kPruned;
}

void Job::run_heuristics() {
  // Iterations of the relaxations so far: the diving heuristics get a share of them.
  for (Heuristic& h : heuristics_) {
    const int32_t freq = std::max(1, h.constants[0]), offset = h.constants[1];
    const bool diving = h.limits[0] < 0;
    if (!at_root()) {
      if (stats_.relaxs % freq != offset) continue;
      if (diving && heuristic_iterations_ * 100 > static_cast<int64_t>(h.constants[4]) * lp_.iterations()) continue;
    }
    const int64_t before = lp_.iterations();
    h.rec.timed([&] { return h.rec.ops->run(h.rec.data, *this); });
    heuristic_iterations_ += lp_.iterations() - before;
    if (out_of_time() || user_stop_) break;
  }
}

std::shared_ptr<simplex::StartBasis> Job::root_cuts() {
  if (separators_.empty() || o_.max_root_cut_rounds <= 0) return nullptr;
  if (progress_ && progress_(QBR_CALLBACK_BEGIN_ROOT_CUTGEN, stats_)) user_stop_ = true;
  log_printf(&o_.log, 1, "Cut generation started.\n");
  const auto t0 = std::chrono::steady_clock::now();
  RelaxResult rr;
  std::shared_ptr<simplex::StartBasis> basis;
  double last_obj = -kInf;
  const int32_t rounds = std::min(o_.max_root_cut_rounds, 20);
  const size_t per_round = static_cast<size_t>(std::clamp(p_.n() / 4, 10, 200));
  const int32_t m0 = p_.m();
  const interior::LpProblem base = p_.lp;
  std::vector<Cut> added;
  bool solved = false;  // rr solves the problem with every added cut
  for (int32_t round = 0; round < rounds && !out_of_time() && !user_stop_; ++round) {
    lp_.set_max_time(remaining_time());
    lp_.solve(root_lo_, root_up_, basis.get(), rr);
    solved = rr.status == simplex::Status::kOptimal;
    if (!solved) break;
    basis = rr.basis;
    // Stop when a round no longer moves the bound.
    if (round > 0 && rr.obj - last_obj <= 1e-4 * std::max(1.0, std::fabs(rr.obj))) break;
    last_obj = rr.obj;
    CutPool pool;
    for (size_t s = 0; s < separators_.size(); ++s) {
      Separator& sep = separators_[s];
      const SeparationPoint point{rr.x, rr.basis.get(), root_lo_, root_up_};
      sep.rec.timed([&] { return sep.rec.ops->run(sep.rec.data, p_, point, static_cast<int32_t>(s), pool); });
    }
    std::vector<Cut> cuts = pool.select(per_round, 0.98);
    if (cuts.empty()) break;
    append_rows(p_, cuts);
    prop_.refresh();
    lp_.refresh();
    for (Cut& c : cuts) added.push_back(std::move(c));
    solved = false;
    // The new rows' slacks join the basis.
    basis = std::make_shared<simplex::StartBasis>(*basis);
    basis->skc.resize(static_cast<size_t>(p_.m()), QBR_SK_BAS);
  }
  if (!solved && !added.empty() && basis && !out_of_time() && !user_stop_) {
    lp_.set_max_time(remaining_time());
    lp_.solve(root_lo_, root_up_, basis.get(), rr);
    solved = rr.status == simplex::Status::kOptimal;
  }
  // Cuts that the last root relaxation does not hold tight only slow the nodes down.
  if (solved && !added.empty()) {
    std::vector<Cut> kept;
    auto kept_basis = std::make_shared<simplex::StartBasis>(*rr.basis);
    kept_basis->skc.resize(static_cast<size_t>(m0));
    for (size_t r = 0; r < added.size(); ++r) {
      const Cut& c = added[r];
      double act = 0.0;
      for (size_t k = 0; k < c.idx.size(); ++k) act += c.val[k] * rr.x[static_cast<size_t>(c.idx[k])];
      const double slack = std::min(act - c.lo, c.up - act);
      if (slack > 1e-6 * (1.0 + std::fabs(std::isfinite(c.lo) ? c.lo : c.up))) continue;
      kept_basis->skc.push_back(rr.basis->skc[static_cast<size_t>(m0) + r]);
      kept.push_back(c);
    }
    p_.lp = base;
    append_rows(p_, kept);
    prop_.refresh();
    lp_.refresh();
    added = std::move(kept);
    basis = kept_basis;
  }
  for (const Cut& c : added) ++separators_[static_cast<size_t>(c.family)].found;
  for (const Separator& sep : separators_) {
    stats_.num_cuts += sep.found;
    if (sep.rec.name == "KNAPSACK_COVER") {
      stats_.knapsack_cover_cuts += sep.found;
      stats_.knapsack_cover_time += sep.rec.total_time;
    }
    if (sep.rec.name == "GMI") {
      stats_.gomory_cuts += sep.found;
      stats_.gmi_time += sep.rec.total_time;
    }
  }
  stats_.cutgen_time = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
  log_printf(&o_.log, 1, "Cut generation terminated. Time = %.2f\n", stats_.cutgen_time);
  if (progress_ && progress_(QBR_CALLBACK_END_ROOT_CUTGEN, stats_)) user_stop_ = true;
  return basis;
}

void Job::run(MioResult& r) {
  log_printf(&o_.log, 1, "Mixed integer optimizer started.\n");
  log_printf(&o_.log, 1, "Threads used: %d\n", o_.num_threads);
  log_printf(&o_.log, 1, "Presolve started.\n");
  // The root presolve tightens the bounds by propagation over all rows.
  root_lo_ = p_.lp.col_lo;
  root_up_ = p_.lp.col_up;
  bool feasible = prop_.propagate(root_lo_, root_up_, nullptr);
  for (int32_t j = 0; j < p_.n(); ++j)
    if (!p_.is_int(j)) {  // continuous bounds stay as given: the relaxations keep their room
      root_lo_[static_cast<size_t>(j)] = p_.lp.col_lo[static_cast<size_t>(j)];
      root_up_[static_cast<size_t>(j)] = p_.lp.col_up[static_cast<size_t>(j)];
    }
  stats_.presolve_time = elapsed();
  log_printf(&o_.log, 1, "Presolve terminated. Time = %.2f\n", stats_.presolve_time);
  log_printf(&o_.log, 1, "Presolved problem: %d variables, %d constraints, %lld non-zeros\n", p_.n(), p_.m(),
             static_cast<long long>(p_.lp.values.size()));
  log_printf(&o_.log, 1, "Presolved problem: %d general integer, %d binary, %d continuous\n", p_.num_int, p_.num_bin,
             p_.num_cont);
  log_printf(&o_.log, 1, "Clique table size: %d\n", 0);
  if (o_.initial) {
    if (offer(*o_.initial, true)) {
      stats_.construct_used = true;
      stats_.construct_obj = stats_.best_int;
    }
  }
  std::shared_ptr<simplex::StartBasis> root_basis;
  if (feasible) root_basis = root_cuts();
  log_header();
  if (feasible) {
    Node root;
    root.basis = root_basis;
    root.draw = tie_draw(0, 0, 0, o_.seed);
    tree_.add(std::move(root));
  }
  r.end = MioEnd::kTreeExhausted;
  for (;;) {
    processing_ = false;
    if (check_limits(r) || gap_met(r)) break;
    if (progress_ && progress_(QBR_CALLBACK_IM_MIO, stats_)) {
      r.end = MioEnd::kUserStop;
      break;
    }
    const int32_t id = selector_.timed([&] { return selector_.ops->select(selector_.data, tree_); });
    if (id < 0) break;
    Node node = std::move(tree_.node(id));
    tree_.release(id);
    const NodeEnd e = process(node, r);
    if (e == NodeEnd::kStop) break;
    log_line(stats_.relaxs == 1);
  }
  if (r.end == MioEnd::kTreeExhausted) processing_ = false;
  update_gap();
  if (r.end == MioEnd::kTreeExhausted && stats_.has_int && !r.incomplete) {
    // Optimality proved: the gap is closed.
    stats_.rel_gap_met = true;
    r.end = MioEnd::kRelGap;
  }
  if (r.end == MioEnd::kUnbounded) stats_.bound_defined = false;
  log_line(true);
  r.stats = stats_;
  log_end(r);
  log_summary(r);
  r.x = best_x_;
}

void solve(const Problem& p, const MioOptions& o, const MioProgress& progress, MioResult& r) {
  r = MioResult();
  PseudocostRecord shared(p.n());
  Problem work = p;
  Job job(work, o, progress, shared);
  job.run(r);
}

}  // namespace qubor::mio
