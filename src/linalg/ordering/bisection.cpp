// Multilevel vertex-separator bisection; see bisection.h.
#include "linalg/ordering/bisection.h"

#include <algorithm>
#include <queue>

#include "linalg/common/status.h"

namespace qubor::linalg::detail {
namespace {

struct Level {
  WeightedGraph g;
  std::vector<int32_t> cmap;  // fine node -> coarse node of the next level
};

void heavy_edge_matching(const WeightedGraph& g, Rng& rng, std::vector<int32_t>& match) {
  match.assign(g.n, -1);
  std::vector<int32_t> order(g.n);
  for (int32_t i = 0; i < g.n; ++i) order[i] = i;
  for (int32_t i = g.n - 1; i > 0; --i) std::swap(order[i], order[rng.below(i + 1)]);
  for (int32_t v : order) {
    if (match[v] != -1) continue;
    int32_t best = v, best_w = -1;
    for (int64_t p = g.ptr[v]; p < g.ptr[v + 1]; ++p) {
      int32_t u = g.adj[p];
      if (match[u] == -1 && u != v && g.ew[p] > best_w) {
        best = u;
        best_w = g.ew[p];
      }
    }
    match[v] = best;
    match[best] = v;
  }
}

void contract(const WeightedGraph& g, const std::vector<int32_t>& match, Level& fine,
              WeightedGraph& c) {
  fine.cmap.assign(g.n, -1);
  int32_t nc = 0;
  for (int32_t v = 0; v < g.n; ++v)
    if (fine.cmap[v] == -1) {
      fine.cmap[v] = nc;
      fine.cmap[match[v]] = nc;
      ++nc;
    }
  c.n = nc;
  c.vw.assign(nc, 0);
  c.ptr.assign(nc + 1, 0);
  c.adj.clear();
  c.ew.clear();
  c.adj.reserve(g.adj.size());
  c.ew.reserve(g.adj.size());
  c.total = g.total;
  std::vector<int32_t> owner(nc, -1);
  std::vector<int64_t> at(nc, 0);
  // Coarse nodes are numbered by their lower member, so building them in that order keeps
  // the CSR in sequence.
  for (int32_t v = 0; v < g.n; ++v) {
    if (match[v] < v) continue;
    const int32_t cv = fine.cmap[v];
    const int32_t members[2] = {v, match[v]};
    const int count = match[v] == v ? 1 : 2;
    for (int m = 0; m < count; ++m) {
      const int32_t x = members[m];
      c.vw[cv] += g.vw[x];
      for (int64_t p = g.ptr[x]; p < g.ptr[x + 1]; ++p) {
        const int32_t cu = fine.cmap[g.adj[p]];
        if (cu == cv) continue;
        if (owner[cu] == cv) {
          c.ew[at[cu]] += g.ew[p];
        } else {
          owner[cu] = cv;
          at[cu] = static_cast<int64_t>(c.adj.size());
          c.adj.push_back(cu);
          c.ew.push_back(g.ew[p]);
        }
      }
    }
    c.ptr[cv + 1] = static_cast<int64_t>(c.adj.size());
  }
}

// Separator refinement state over one graph.
class Refiner {
 public:
  Refiner(const WeightedGraph& g, std::vector<int8_t>& part, double imbalance, BisectStats& st)
      : g_(g), part_(part), st_(st), stamp_(g.n, 0) {
    limit_ = static_cast<int64_t>(imbalance * static_cast<double>(g.total) / 2.0) + 1;
    recount();
  }
  int64_t weight(int s) const { return w_[s]; }
  void recount() {
    w_[0] = w_[1] = w_[2] = 0;
    for (int32_t v = 0; v < g_.n; ++v) w_[part_[v]] += g_.vw[v];
  }
  bool pass();
  void trim();

 private:
  int64_t gain(int32_t v, int s) const {
    int64_t gsum = g_.vw[v];
    for (int64_t p = g_.ptr[v]; p < g_.ptr[v + 1]; ++p)
      if (part_[g_.adj[p]] == 1 - s) gsum -= g_.vw[g_.adj[p]];
    return gsum;
  }
  bool feasible(int32_t v, int s, int64_t gn) const {
    const int64_t ws = w_[s] + g_.vw[v];
    const int64_t wo = w_[1 - s] - (g_.vw[v] - gn);  // weight pulled into the separator
    return ws <= limit_ || ws <= wo;
  }
  void move(int32_t v, int s) {
    history_.emplace_back(v, part_[v]);
    part_[v] = static_cast<int8_t>(s);
    w_[2] -= g_.vw[v];
    w_[s] += g_.vw[v];
    for (int64_t p = g_.ptr[v]; p < g_.ptr[v + 1]; ++p) {
      int32_t u = g_.adj[p];
      if (part_[u] != 1 - s) continue;
      history_.emplace_back(u, part_[u]);
      part_[u] = 2;
      w_[1 - s] -= g_.vw[u];
      w_[2] += g_.vw[u];
      touched_.push_back(u);
    }
  }
  void undo_to(size_t mark) {
    while (history_.size() > mark) {
      auto [v, old] = history_.back();
      history_.pop_back();
      w_[part_[v]] -= g_.vw[v];
      part_[v] = old;
      w_[old] += g_.vw[v];
    }
  }
  bool better(int64_t sep, int64_t imb, int64_t best_sep, int64_t best_imb) const {
    return sep < best_sep || (sep == best_sep && imb < best_imb);
  }

  const WeightedGraph& g_;
  std::vector<int8_t>& part_;
  BisectStats& st_;
  std::vector<int32_t> stamp_;
  int32_t pass_id_ = 0;
  int64_t limit_ = 0;
  int64_t w_[3] = {0, 0, 0};
  std::vector<std::pair<int32_t, int8_t>> history_;
  std::vector<int32_t> touched_;
};

bool Refiner::pass() {
  using Entry = std::pair<int64_t, int32_t>;  // (gain, -node): largest gain, then lowest node
  std::priority_queue<Entry> pq[2];
  ++pass_id_;
  for (int32_t v = 0; v < g_.n; ++v)
    if (part_[v] == 2)
      for (int s = 0; s < 2; ++s) pq[s].emplace(gain(v, s), -v);
  history_.clear();
  auto imbalance = [&]() { return std::abs(w_[0] - w_[1]); };
  const int64_t start_sep = w_[2], start_imb = imbalance();
  int64_t best_sep = start_sep, best_imb = start_imb;
  size_t best_mark = 0;
  int32_t since_best = 0;
  const int32_t patience = std::max<int32_t>(25, g_.n / 50);
  while (since_best < patience) {
    int32_t pick = -1, side = -1;
    int64_t pick_gain = 0;
    for (int s = 0; s < 2; ++s) {
      while (!pq[s].empty()) {
        auto [gv, nv] = pq[s].top();
        int32_t v = -nv;
        if (part_[v] != 2 || stamp_[v] == pass_id_) {
          pq[s].pop();
          continue;
        }
        int64_t actual = gain(v, s);
        if (actual != gv) {
          pq[s].pop();
          pq[s].emplace(actual, nv);
          continue;
        }
        if (!feasible(v, s, actual)) {
          pq[s].pop();
          break;
        }
        if (pick == -1 || actual > pick_gain ||
            (actual == pick_gain && w_[s] < w_[side])) {
          pick = v;
          side = s;
          pick_gain = actual;
        }
        break;
      }
    }
    if (pick == -1) break;
    stamp_[pick] = pass_id_;
    touched_.clear();
    move(pick, side);
    ++st_.moves;
    if (pick_gain < 0) ++st_.bad_moves;
    for (int32_t u : touched_)
      for (int s = 0; s < 2; ++s) pq[s].emplace(gain(u, s), -u);
    for (int32_t u : touched_)  // separator neighbours of the new separator nodes
      for (int64_t p = g_.ptr[u]; p < g_.ptr[u + 1]; ++p) {
        int32_t x = g_.adj[p];
        if (part_[x] == 2 && stamp_[x] != pass_id_)
          for (int s = 0; s < 2; ++s) pq[s].emplace(gain(x, s), -x);
      }
    const bool balanced = std::max(w_[0], w_[1]) <= limit_;
    if (balanced && better(w_[2], imbalance(), best_sep, best_imb)) {
      best_sep = w_[2];
      best_imb = imbalance();
      best_mark = history_.size();
      since_best = 0;
    } else {
      ++since_best;
    }
  }
  undo_to(best_mark);
  ++st_.passes;
  return better(best_sep, best_imb, start_sep, start_imb);
}

void Refiner::trim() {
  for (int32_t v = 0; v < g_.n; ++v) {
    if (part_[v] != 2) continue;
    bool has[2] = {false, false};
    for (int64_t p = g_.ptr[v]; p < g_.ptr[v + 1]; ++p)
      if (part_[g_.adj[p]] < 2) has[part_[g_.adj[p]]] = true;
    int to = !has[0] ? 1 : (!has[1] ? 0 : -1);  // join the side it already touches
    if (to == -1) continue;
    if (!has[0] && !has[1]) to = w_[0] <= w_[1] ? 0 : 1;
    part_[v] = static_cast<int8_t>(to);
    w_[2] -= g_.vw[v];
    w_[to] += g_.vw[v];
  }
}

void refine(const WeightedGraph& g, std::vector<int8_t>& part, double imbalance, BisectStats& st) {
  Refiner r(g, part, imbalance, st);
  for (int k = 0; k < 6 && r.pass(); ++k) {}
  r.trim();
}

// Grows side 0 breadth-first from a seed to half the weight; its outer boundary is the
// separator. Unreached nodes (other components) go to side 1.
void grow_from(const WeightedGraph& g, int32_t seed, std::vector<int8_t>& part) {
  part.assign(g.n, 1);
  std::vector<int32_t> queue;
  queue.reserve(g.n);
  std::vector<char> seen(g.n, 0);
  queue.push_back(seed);
  seen[seed] = 1;
  int64_t w0 = 0;
  for (size_t h = 0; h < queue.size() && 2 * w0 < g.total; ++h) {
    int32_t v = queue[h];
    part[v] = 0;
    w0 += g.vw[v];
    for (int64_t p = g.ptr[v]; p < g.ptr[v + 1]; ++p)
      if (!seen[g.adj[p]]) {
        seen[g.adj[p]] = 1;
        queue.push_back(g.adj[p]);
      }
  }
  for (int32_t v = 0; v < g.n; ++v) {
    if (part[v] != 1) continue;
    for (int64_t p = g.ptr[v]; p < g.ptr[v + 1]; ++p)
      if (part[g.adj[p]] == 0) {
        part[v] = 2;
        break;
      }
  }
}

void initial_partition(const WeightedGraph& g, const NestedDissectionOptions& opt, Rng& rng,
                       std::vector<int8_t>& part, BisectStats& st) {
  int64_t best_sep = -1, best_imb = 0;
  std::vector<int8_t> trial;
  for (int t = 0; t < std::max(1, opt.initial_tries); ++t) {
    grow_from(g, rng.below(g.n), trial);
    refine(g, trial, opt.imbalance, st);
    int64_t w[3] = {0, 0, 0};
    for (int32_t v = 0; v < g.n; ++v) w[trial[v]] += g.vw[v];
    if (w[0] == 0 || w[1] == 0) continue;
    int64_t imb = std::abs(w[0] - w[1]);
    if (best_sep < 0 || w[2] < best_sep || (w[2] == best_sep && imb < best_imb)) {
      best_sep = w[2];
      best_imb = imb;
      part = trial;
    }
  }
  if (best_sep < 0) part = trial;
}

}  // namespace

bool bisect(const WeightedGraph& g, const NestedDissectionOptions& opt, Rng& rng,
            std::vector<int8_t>& part, BisectStats& st, const LogSink* sink, bool log_levels) {
  if (g.n < 3) return false;
  std::vector<Level> levels(1);
  levels[0].g = g;
  double t0 = wall_seconds();
  while (levels.back().g.n > opt.coarsest_size) {
    const WeightedGraph& fine = levels.back().g;
    std::vector<int32_t> match;
    const double tm = wall_seconds();
    heavy_edge_matching(fine, rng, match);
    st.t_match += wall_seconds() - tm;
    WeightedGraph coarse;
    contract(fine, match, levels.back(), coarse);
    if (coarse.n > 0.9 * fine.n) break;
    if (log_levels)
      log_printf(sink, 2, "Multilevel: nodes = %10d (%10d, %10d, %10d)\n", coarse.n, fine.n,
                 static_cast<int>(coarse.adj.size() / 2), static_cast<int>(levels.size()));
    levels.emplace_back();
    levels.back().g = std::move(coarse);
  }
  st.t_coarsen += wall_seconds() - t0;
  t0 = wall_seconds();
  initial_partition(levels.back().g, opt, rng, part, st);
  st.t_initial += wall_seconds() - t0;
  if (log_levels) {
    int64_t w[3] = {0, 0, 0};
    const WeightedGraph& c = levels.back().g;
    for (int32_t v = 0; v < c.n; ++v) w[part[v]] += c.vw[v];
    log_printf(sink, 2, "Initial partition:                        (%10d, %10d, %10d)\n",
               static_cast<int>(w[0]), static_cast<int>(w[1]), static_cast<int>(w[2]));
    log_printf(sink, 2, "Uncoarsening:\n");
  }
  t0 = wall_seconds();
  for (int l = static_cast<int>(levels.size()) - 2; l >= 0; --l) {
    const Level& fine = levels[l];
    std::vector<int8_t> finer(fine.g.n);
    for (int32_t v = 0; v < fine.g.n; ++v) finer[v] = part[fine.cmap[v]];
    part.swap(finer);
    refine(fine.g, part, opt.imbalance, st);
    if (log_levels) {
      int64_t w[3] = {0, 0, 0};
      for (int32_t v = 0; v < fine.g.n; ++v) w[part[v]] += fine.g.vw[v];
      log_printf(sink, 2, " %2d: [ %8d  %10d  %1.4f       (%10d, %10d, %10d) ]\n", l, fine.g.n,
                 static_cast<int>(fine.g.adj.size() / 2),
                 static_cast<double>(std::max(w[0], w[1])) / std::max<double>(1.0, g.total / 2.0),
                 static_cast<int>(w[0]), static_cast<int>(w[1]), static_cast<int>(w[2]));
    }
  }
  st.t_refine += wall_seconds() - t0;
  int64_t w[3] = {0, 0, 0};
  for (int32_t v = 0; v < g.n; ++v) w[part[v]] += g.vw[v];
  return w[0] > 0 && w[1] > 0;
}

}  // namespace qubor::linalg::detail
