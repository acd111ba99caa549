// Local ordering driver: dense nodes, graph compression, the greedy core, expansion and the
// cost of the result; see local_order.h.
#include "linalg/ordering/local_order.h"

#include <algorithm>
#include <cmath>
#include <new>

#include "linalg/ordering/etree.h"
#include "platform/prefaulted_buffer.h"

namespace qubor::linalg {
namespace {

struct Prepared {
  std::vector<int32_t> dense;   // dense nodes, ordered last
  std::vector<int32_t> rep;     // representative of each node (itself when principal), -1 dense
  std::vector<int32_t> cid;     // compressed id of each representative
  std::vector<int32_t> members; // original nodes grouped by compressed id
  std::vector<int64_t> member_start;
};

void find_dense(const std::vector<int64_t>& ptr, int32_t n, double factor,
                std::vector<uint8_t>& is_dense, std::vector<int32_t>& dense) {
  platform::assign_prefaulted(is_dense, n, 0);
  dense.clear();
  if (factor < 0.0 || n <= 16) return;
  const double limit = std::max(16.0, factor * std::sqrt(static_cast<double>(n)));
  for (int32_t i = 0; i < n; ++i)
    if (static_cast<double>(ptr[i + 1] - ptr[i]) > limit) dense.push_back(i);
  std::stable_sort(dense.begin(), dense.end(),
                   [&](int32_t a, int32_t b) { return ptr[a + 1] - ptr[a] < ptr[b + 1] - ptr[b]; });
  for (int32_t i : dense) is_dense[i] = 1;
}

// Groups nodes with identical closed adjacency (dense nodes ignored) under the lowest index.
void find_indistinguishable(const std::vector<int64_t>& ptr, const std::vector<int32_t>& ind,
                            const std::vector<uint8_t>& is_dense, const int32_t* priority,
                            bool compress, std::vector<int32_t>& rep) {
  const int32_t n = static_cast<int32_t>(is_dense.size());
  platform::assign_prefaulted(rep, n, -1);
  std::vector<std::pair<uint64_t, int32_t>> key;
  std::vector<int32_t> deg(n, 0);
  key.reserve(n);
  for (int32_t i = 0; i < n; ++i) {
    if (is_dense[i]) continue;
    rep[i] = i;
    uint64_t h = static_cast<uint64_t>(i);
    for (int64_t q = ptr[i]; q < ptr[i + 1]; ++q)
      if (!is_dense[ind[q]]) {
        h += static_cast<uint64_t>(ind[q]);
        ++deg[i];
      }
    key.emplace_back(h * 0x9E3779B97F4A7C15ULL + static_cast<uint64_t>(deg[i]), i);
  }
  if (!compress) return;
  std::sort(key.begin(), key.end());
  std::vector<int32_t> mark(n, -1);
  for (size_t a = 0; a < key.size(); ++a) {
    int32_t i = key[a].second;
    if (rep[i] != i || (a + 1 < key.size() && key[a + 1].first != key[a].first)) continue;
    mark[i] = i;
    for (int64_t q = ptr[i]; q < ptr[i + 1]; ++q) mark[ind[q]] = i;
    for (size_t b = a + 1; b < key.size() && key[b].first == key[a].first; ++b) {
      int32_t j = key[b].second;
      if (rep[j] != j || deg[j] != deg[i] || mark[j] != i) continue;
      if (priority != nullptr && priority[j] != priority[i]) continue;
      bool same = true;
      for (int64_t q = ptr[j]; q < ptr[j + 1] && same; ++q)
        same = is_dense[ind[q]] || mark[ind[q]] == i;
      if (same) rep[j] = i;  // keys sort by index within a hash, so i < j
    }
  }
}

void build_compressed(const std::vector<int64_t>& ptr, const std::vector<int32_t>& ind,
                      const int32_t* priority, Prepared& pr, detail::QuotientInput& q) {
  const int32_t n = static_cast<int32_t>(pr.rep.size());
  platform::assign_prefaulted(pr.cid, n, -1);
  int32_t nc = 0;
  for (int32_t i = 0; i < n; ++i)
    if (pr.rep[i] == i) pr.cid[i] = nc++;
  q.n = nc;
  platform::assign_prefaulted(q.nv, nc, 0);
  platform::assign_prefaulted(pr.member_start, nc + 1, 0);
  for (int32_t i = 0; i < n; ++i)
    if (pr.rep[i] >= 0) ++pr.member_start[pr.cid[pr.rep[i]] + 1];
  for (int32_t c = 0; c < nc; ++c) {
    q.nv[c] = static_cast<int32_t>(pr.member_start[c + 1]);
    pr.member_start[c + 1] += pr.member_start[c];
  }
  platform::assign_prefaulted(pr.members, pr.member_start[nc], 0);
  std::vector<int64_t> fill(pr.member_start.begin(), pr.member_start.end() - 1);
  for (int32_t i = 0; i < n; ++i)
    if (pr.rep[i] >= 0) pr.members[fill[pr.cid[pr.rep[i]]]++] = i;
  if (priority != nullptr) {
    platform::assign_prefaulted(q.priority, nc, 0);
    for (int32_t i = 0; i < n; ++i)
      if (pr.rep[i] == i) q.priority[pr.cid[i]] = priority[i];
  }
  platform::assign_prefaulted(q.ptr, nc + 1, 0);
  q.ind.clear();
  std::vector<int32_t> mark(nc, -1);
  for (int32_t i = 0; i < n; ++i) {
    if (pr.rep[i] != i) continue;
    int32_t c = pr.cid[i];
    mark[c] = c;
    for (int64_t p = ptr[i]; p < ptr[i + 1]; ++p) {
      int32_t r = pr.rep[ind[p]];
      if (r < 0 || mark[pr.cid[r]] == c) continue;
      mark[pr.cid[r]] = c;
      platform::push_back_prefaulted(q.ind, pr.cid[r]);
    }
    q.ptr[c + 1] = static_cast<int64_t>(q.ind.size());
  }
}

Status check_options(const Graph& g, const LocalOrderOptions& opt) {
  if (opt.type != LocalOrderType::kApproxMinLocalFill && opt.type != LocalOrderType::kMinDegree &&
      opt.type != LocalOrderType::kPriority)
    return Status::kInvalidInput;
  if (opt.type == LocalOrderType::kPriority) {
    if (opt.priority == nullptr && g.n > 0) return Status::kInvalidInput;
    for (int32_t i = 0; i < g.n; ++i)
      if (opt.priority[i] < 0) return Status::kInvalidInput;
  }
  return Status::kOk;
}

const char* type_name(LocalOrderType t) {
  switch (t) {
    case LocalOrderType::kApproxMinLocalFill: return "Approximate min. local fill";
    case LocalOrderType::kMinDegree: return "Min deg.";
    case LocalOrderType::kPriority: return "Priority based ordering";
  }
  return "";
}

Status order_prepared(const Graph& g, const LocalOrderOptions& opt, const LogSink* sink,
                      OrderResult& result) {
  detail::CompressedGraph cg;
  detail::compress_graph(g, opt.dense_factor,
                         opt.type == LocalOrderType::kPriority ? opt.priority : nullptr,
                         opt.compress, cg);
  log_printf(sink, 2, "Initial number of nodes   : %-d\n", g.n);
  log_printf(sink, 2, "Compressed number of nodes: %-d\n", cg.q.n);
  log_printf(sink, 2, "%-12s: %-10d  %-12s: %-10d\n", "Order type", static_cast<int>(opt.type),
             "Setup", static_cast<int>(cg.dense.size()));
  log_printf(sink, 2, "%-12s: %-10d  %-12s: %-10d\n", "num(edges)/2",
             static_cast<int>(g.adsize / 2), "Preordered", 0);
  std::vector<int32_t> corder;
  Status s = detail::greedy_order(cg.q, opt.type, sink, corder);
  if (s != Status::kOk) return s;
  detail::expand_order(cg, corder, result.perm);
  return evaluate_order(g, result);
}

}  // namespace

namespace detail {

void compress_graph(const Graph& g, double dense_factor, const int32_t* priority, bool compress,
                    CompressedGraph& cg) {
  std::vector<int64_t> ptr;
  std::vector<int32_t> ind;
  graph_to_csr(g, ptr, ind);
  Prepared pr;
  std::vector<uint8_t> is_dense;
  find_dense(ptr, g.n, dense_factor, is_dense, pr.dense);
  // Dense nodes must stay last even under priorities: they are given none of their own.
  find_indistinguishable(ptr, ind, is_dense, priority, compress, pr.rep);
  build_compressed(ptr, ind, priority, pr, cg.q);
  cg.members = std::move(pr.members);
  cg.member_start = std::move(pr.member_start);
  cg.dense = std::move(pr.dense);
}

void expand_order(const CompressedGraph& cg, const std::vector<int32_t>& order,
                  std::vector<int32_t>& perm) {
  perm.clear();
  perm.reserve(cg.members.size() + cg.dense.size());
  for (int32_t c : order)
    for (int64_t k = cg.member_start[c]; k < cg.member_start[c + 1]; ++k)
      perm.push_back(cg.members[k]);
  for (int32_t i : cg.dense) perm.push_back(i);
}

}  // namespace detail

Status evaluate_order(const Graph& g, OrderResult& result) {
  if (static_cast<int32_t>(result.perm.size()) != g.n) return Status::kInvalidInput;
  try {
    if (!invert_permutation(result.perm, result.invp)) return Status::kInvalidInput;
    std::vector<int64_t> ptr;
    std::vector<int32_t> ind;
    graph_to_csr(g, ptr, ind);
    PermutedPattern a{g.n, ptr.data(), ind.data(), result.perm.data(), result.invp.data()};
    factor_cost(a, result.nnz_l, result.flops);
  } catch (const std::bad_alloc&) {
    return Status::kOutOfSpace;
  }
  return Status::kOk;
}

Status local_order(const Graph& g, const LocalOrderOptions& opt, const LogSink* sink,
                   OrderResult& result) {
  if (check_options(g, opt) != Status::kOk) {
    log_printf(sink, 1, "Invalid ordering type: %d", static_cast<int>(opt.type));
    return Status::kInvalidInput;
  }
  log_printf(sink, 2, "%s\n", type_name(opt.type));
  try {
    return order_prepared(g, opt, sink, result);
  } catch (const std::bad_alloc&) {
    return Status::kOutOfSpace;
  }
}

}  // namespace qubor::linalg
