// Greedy elimination on the quotient graph: the core of the local orderings (local_order.h).
//
// Per step, with p the chosen pivot and Lp its new element:
//   1. Lp = (A_p united with L_e for e in E_p) minus p; the elements E_p are absorbed into p.
//   2. For every element e next to Lp: w(e) = |L_e \ Lp| (weighted), by one pass over Lp.
//   3. For every i in Lp: prune dead entries, absorb elements with w(e) = 0, put p first and
//      bound the external degree by min(rest, d_i + |Lp \ i|, |A_i| + |Lp \ i| + sum w(e)).
//      A variable whose only neighbour is p is eliminated together with p (mass elimination).
//   4. Variables of Lp with equal lists become one supervariable (hash, then comparison).
//   5. New scores for the variables of Lp.
#include <algorithm>
#include <cstring>
#include <limits>
#include <new>

#include "linalg/ordering/local_order.h"
#include "platform/prefaulted_buffer.h"

namespace qubor::linalg::detail {
namespace {

enum Kind : uint8_t { kVar = 0, kElem = 1, kDead = 2 };

// Min-heap on (priority, score, node) with a position index, for deterministic selection.
// The key packs the priority class above a score clipped to 40 bits, so that comparisons
// stay within the heap array; four children per node halve the depth.
class IndexedHeap {
 public:
  explicit IndexedHeap(int32_t n) : pos_(n, -1) { heap_.reserve(n); }
  bool empty() const { return heap_.empty(); }
  void set(int32_t v, int32_t prio, int64_t score) {
    constexpr int64_t kMaxScore = (int64_t{1} << 40) - 1;
    const Item item{(static_cast<int64_t>(prio) << 40) | std::min(score, kMaxScore), v};
    if (pos_[v] < 0) {
      pos_[v] = static_cast<int32_t>(heap_.size());
      heap_.push_back(item);
      sift_up(pos_[v], item);
      return;
    }
    const int32_t at = pos_[v];
    const bool up = less(item, heap_[at]);
    if (up)
      sift_up(at, item);
    else
      sift_down(at, item);
  }
  void remove(int32_t v) {
    const int32_t at = pos_[v];
    if (at < 0) return;
    const Item last = heap_.back();
    heap_.pop_back();
    pos_[v] = -1;
    if (last.node == v) return;
    if (less(last, heap_[at]))
      sift_up(at, last);
    else
      sift_down(at, last);
  }
  int32_t pop() {
    const int32_t v = heap_[0].node;
    remove(v);
    return v;
  }

 private:
  struct Item {
    int64_t key;
    int32_t node;
  };
  static bool less(const Item& a, const Item& b) {
    return a.key != b.key ? a.key < b.key : a.node < b.node;
  }
  void place(int32_t at, const Item& it) {
    heap_[at] = it;
    pos_[it.node] = at;
  }
  void sift_up(int32_t at, const Item& it) {
    while (at > 0) {
      const int32_t up = (at - 1) / 4;
      if (!less(it, heap_[up])) break;
      place(at, heap_[up]);
      at = up;
    }
    place(at, it);
  }
  void sift_down(int32_t at, const Item& it) {
    const int32_t size = static_cast<int32_t>(heap_.size());
    for (;;) {
      const int32_t first = 4 * at + 1;
      if (first >= size) break;
      int32_t c = first;
      const int32_t last = std::min(first + 4, size);
      for (int32_t k = first + 1; k < last; ++k)
        if (less(heap_[k], heap_[c])) c = k;
      if (!less(heap_[c], it)) break;
      place(at, heap_[c]);
      at = c;
    }
    place(at, it);
  }
  std::vector<Item> heap_;
  std::vector<int32_t> pos_;
};

class GreedyOrder {
 public:
  GreedyOrder(const QuotientInput& in, LocalOrderType type, const LogSink* sink)
      : in_(in), type_(type), sink_(sink), n_(in.n), heap_(in.n) {}

  Status run(std::vector<int32_t>& order);

 private:
  int32_t prio(int32_t v) const { return in_.priority.empty() ? 0 : in_.priority[v]; }
  bool live_list(int32_t v) const { return kind_[v] != kDead && len_[v] > 0; }
  void setup();
  void compact();
  void ensure_space(int64_t need);
  void build_element(int32_t p);
  void compute_external_sizes();
  void update_variable(int32_t p, int32_t v);
  void detect_supervariables();
  Status finalize_element(int32_t p);
  void emit(std::vector<int32_t>& order);

  const QuotientInput& in_;
  LocalOrderType type_;
  const LogSink* sink_;
  int32_t n_;
  IndexedHeap heap_;
  std::vector<int32_t> iw_;
  int64_t pfree_ = 0;
  std::vector<int64_t> pe_, degree_, w_;
  std::vector<int32_t> len_, elen_, nv_, mark_, mark2_, merged_into_, step_, first_, tmp_;
  std::vector<uint64_t> hash_;
  std::vector<uint8_t> kind_;
  std::vector<int32_t> pivots_;
  std::vector<std::pair<uint64_t, int32_t>> buckets_;
  int32_t mstamp_ = 0, mstamp2_ = 0;
  int64_t wflg_ = 1;
  int64_t total_ = 0, nel_ = 0, dp_ = 0;
  int64_t lp_begin_ = 0, lp_len_ = 0;
};

void GreedyOrder::setup() {
  const int64_t adsize = in_.ptr[n_];
  platform::assign_prefaulted(iw_, adsize + adsize / 2 + 2 * static_cast<int64_t>(n_) + 16, 0);
  if (adsize > 0) std::memcpy(iw_.data(), in_.ind.data(), sizeof(int32_t) * adsize);
  pfree_ = adsize;
  platform::assign_prefaulted(pe_, n_, 0);
  platform::assign_prefaulted(len_, n_, 0);
  platform::assign_prefaulted(elen_, n_, 0);
  nv_ = in_.nv;
  platform::assign_prefaulted(degree_, n_, 0);
  platform::assign_prefaulted(w_, n_, 0);
  platform::assign_prefaulted(mark_, n_, 0);
  platform::assign_prefaulted(mark2_, n_, 0);
  platform::assign_prefaulted(merged_into_, n_, -1);
  platform::assign_prefaulted(step_, n_, -1);
  platform::assign_prefaulted(first_, n_, 0);
  platform::assign_prefaulted(tmp_, n_ + 1, 0);
  platform::assign_prefaulted(hash_, n_, 0);
  platform::assign_prefaulted(kind_, n_, kVar);
  pivots_.reserve(n_);
  total_ = 0;
  for (int32_t i = 0; i < n_; ++i) total_ += nv_[i];
  for (int32_t i = 0; i < n_; ++i) {
    pe_[i] = in_.ptr[i];
    len_[i] = static_cast<int32_t>(in_.ptr[i + 1] - in_.ptr[i]);
    int64_t d = 0;
    for (int64_t q = in_.ptr[i]; q < in_.ptr[i + 1]; ++q) d += nv_[in_.ind[q]];
    degree_[i] = d;
    int64_t score = type_ == LocalOrderType::kMinDegree ? d : d * (d - 1) / 2;
    heap_.set(i, prio(i), score);
  }
}

// Moves all live lists to the front of iw, in storage order. The head of each live list is
// temporarily replaced by -(node+1) so the scan can tell where lists begin.
void GreedyOrder::compact() {
  for (int32_t i = 0; i < n_; ++i) {
    if (!live_list(i)) continue;
    first_[i] = iw_[pe_[i]];
    iw_[pe_[i]] = -(i + 1);
  }
  int64_t dst = 0, src = 0;
  while (src < pfree_) {
    int32_t x = iw_[src];
    if (x >= 0) {
      ++src;
      continue;
    }
    int32_t i = -x - 1;
    iw_[dst] = first_[i];
    pe_[i] = dst;
    for (int32_t k = 1; k < len_[i]; ++k) iw_[dst + k] = iw_[src + k];
    dst += len_[i];
    src += len_[i];
  }
  pfree_ = dst;
}

void GreedyOrder::ensure_space(int64_t need) {
  if (pfree_ + need <= static_cast<int64_t>(iw_.size())) return;
  compact();
  if (pfree_ + need <= static_cast<int64_t>(iw_.size())) return;
  iw_.resize(pfree_ + need + static_cast<int64_t>(iw_.size()) / 4);
}

void GreedyOrder::build_element(int32_t p) {
  int64_t need = len_[p] - elen_[p];
  for (int32_t k = 0; k < elen_[p]; ++k) {
    int32_t e = iw_[pe_[p] + k];
    if (kind_[e] == kElem) need += len_[e];
  }
  ensure_space(need);
  mark_[p] = ++mstamp_;
  lp_begin_ = pfree_;
  dp_ = 0;
  auto take = [&](int32_t v) {
    if (kind_[v] != kVar || nv_[v] <= 0 || mark_[v] == mstamp_) return;
    mark_[v] = mstamp_;
    iw_[pfree_++] = v;
    dp_ += nv_[v];
  };
  for (int32_t k = 0; k < elen_[p]; ++k) {
    int32_t e = iw_[pe_[p] + k];
    if (kind_[e] != kElem) continue;
    for (int64_t q = pe_[e]; q < pe_[e] + len_[e]; ++q) take(iw_[q]);
    kind_[e] = kDead;  // absorbed into p
  }
  for (int64_t q = pe_[p] + elen_[p]; q < pe_[p] + len_[p]; ++q) take(iw_[q]);
  lp_len_ = pfree_ - lp_begin_;
  kind_[p] = kElem;
  pe_[p] = lp_begin_;
  len_[p] = static_cast<int32_t>(lp_len_);
  elen_[p] = 0;
  degree_[p] = dp_;
}

// w(e) - wflg = |L_e \ Lp| for every element e adjacent to a variable of Lp.
void GreedyOrder::compute_external_sizes() {
  for (int64_t q = lp_begin_; q < lp_begin_ + lp_len_; ++q) {
    int32_t v = iw_[q];
    for (int32_t k = 0; k < elen_[v]; ++k) {
      int32_t e = iw_[pe_[v] + k];
      if (kind_[e] != kElem) continue;
      if (w_[e] < wflg_) w_[e] = degree_[e] + wflg_;
      w_[e] -= nv_[v];
    }
  }
}

void GreedyOrder::update_variable(int32_t p, int32_t v) {
  int32_t cnt = 0, ne = 0;
  int64_t deg = 0;
  uint64_t hash = 0;
  for (int32_t k = 0; k < elen_[v]; ++k) {
    int32_t e = iw_[pe_[v] + k];
    if (kind_[e] != kElem) continue;
    int64_t we = w_[e] - wflg_;
    if (we > 0) {
      tmp_[cnt++] = e;
      ++ne;
      deg += we;
      hash += static_cast<uint64_t>(e);
    } else {
      kind_[e] = kDead;  // L_e inside Lp: aggressive absorption
    }
  }
  for (int32_t k = elen_[v]; k < len_[v]; ++k) {
    int32_t u = iw_[pe_[v] + k];
    if (kind_[u] != kVar || nv_[u] <= 0 || mark_[u] == mstamp_) continue;
    tmp_[cnt++] = u;
    deg += nv_[u];
    hash += static_cast<uint64_t>(u);
  }
  if (cnt == 0 && prio(v) == prio(p)) {
    // Only p is left around v: v goes with p.
    kind_[v] = kDead;
    merged_into_[v] = p;
    nel_ += nv_[v];
    nv_[p] += nv_[v];
    degree_[p] -= nv_[v];
    nv_[v] = 0;
    heap_.remove(v);
    return;
  }
  int64_t base = pe_[v];
  iw_[base] = p;
  for (int32_t k = 0; k < cnt; ++k) iw_[base + 1 + k] = tmp_[k];
  elen_[v] = ne + 1;
  len_[v] = cnt + 1;
  const int64_t lp_rest = dp_ - nv_[v];
  int64_t d = std::min(degree_[v] + lp_rest, deg + lp_rest);
  d = std::min(d, total_ - nel_ - nv_[v]);
  degree_[v] = std::max<int64_t>(d, 0);
  hash_[v] = hash;
}

void GreedyOrder::detect_supervariables() {
  buckets_.clear();
  for (int64_t q = lp_begin_; q < lp_begin_ + lp_len_; ++q) {
    int32_t v = iw_[q];
    if (kind_[v] == kVar && nv_[v] > 0) buckets_.emplace_back(hash_[v], v);
  }
  std::sort(buckets_.begin(), buckets_.end());
  const size_t m = buckets_.size();
  for (size_t a = 0; a < m; ++a) {
    int32_t i = buckets_[a].second;
    if (nv_[i] == 0) continue;
    bool marked = false;
    for (size_t b = a + 1; b < m && buckets_[b].first == buckets_[a].first; ++b) {
      int32_t j = buckets_[b].second;
      if (nv_[j] == 0 || len_[j] != len_[i] || elen_[j] != elen_[i] || prio(j) != prio(i))
        continue;
      if (!marked) {
        ++mstamp2_;
        for (int32_t k = 0; k < len_[i]; ++k) mark2_[iw_[pe_[i] + k]] = mstamp2_;
        marked = true;
      }
      bool same = true;
      for (int32_t k = 0; k < len_[j] && same; ++k) same = mark2_[iw_[pe_[j] + k]] == mstamp2_;
      if (!same) continue;
      nv_[i] += nv_[j];
      degree_[i] = std::max<int64_t>(degree_[i] - nv_[j], 0);
      kind_[j] = kDead;
      merged_into_[j] = i;
      nv_[j] = 0;
      heap_.remove(j);
    }
  }
}

Status GreedyOrder::finalize_element(int32_t p) {
  int64_t q = pe_[p], esize = 0;
  for (int64_t k = pe_[p]; k < pe_[p] + len_[p]; ++k) {
    int32_t v = iw_[k];
    if (kind_[v] != kVar || nv_[v] <= 0) continue;
    iw_[q++] = v;
    esize += nv_[v];
  }
  len_[p] = static_cast<int32_t>(q - pe_[p]);
  degree_[p] = esize;
  pfree_ = q;
  for (int64_t k = pe_[p]; k < q; ++k) {
    int32_t v = iw_[k];
    const int64_t d = degree_[v];
    const int64_t c = esize - nv_[v];
    int64_t score = type_ == LocalOrderType::kMinDegree ? d : (d * (d - 1) - c * (c - 1)) / 2;
    if (score < 0) {
      log_printf(sink_, 1, "Negative score: %d ydeg: %d itemp: %d otype:%d \n",
                 static_cast<int>(score), static_cast<int>(d), static_cast<int>(c),
                 static_cast<int>(type_));
      return Status::kInternalError;
    }
    heap_.set(v, prio(v), score);
  }
  wflg_ += total_ + 1;
  return Status::kOk;
}

// Pivots in elimination order, each followed by the variables merged into it.
void GreedyOrder::emit(std::vector<int32_t>& order) {
  const int32_t steps = static_cast<int32_t>(pivots_.size());
  std::vector<int32_t> root(n_), start(steps + 1, 0);
  for (int32_t v = 0; v < n_; ++v) {
    int32_t r = v;
    while (merged_into_[r] != -1) r = merged_into_[r];
    for (int32_t x = v; merged_into_[x] != -1;) {  // path compression
      int32_t next = merged_into_[x];
      merged_into_[x] = r;
      x = next;
    }
    root[v] = r;
    ++start[step_[r] + 1];
  }
  for (int32_t s = 0; s < steps; ++s) start[s + 1] += start[s];
  std::vector<int32_t> fill(steps, 1);
  platform::assign_prefaulted(order, n_, -1);
  for (int32_t v = 0; v < n_; ++v) {
    int32_t s = step_[root[v]];
    if (root[v] == v)
      order[start[s]] = v;
    else
      order[start[s] + fill[s]++] = v;
  }
}

Status GreedyOrder::run(std::vector<int32_t>& order) {
  setup();
  while (!heap_.empty()) {
    int32_t p = heap_.pop();
    step_[p] = static_cast<int32_t>(pivots_.size());
    pivots_.push_back(p);
    nel_ += nv_[p];
    build_element(p);
    compute_external_sizes();
    for (int64_t q = lp_begin_; q < lp_begin_ + lp_len_; ++q) {
      int32_t v = iw_[q];
      if (kind_[v] == kVar && nv_[v] > 0) update_variable(p, v);
    }
    detect_supervariables();
    Status s = finalize_element(p);
    if (s != Status::kOk) return s;
  }
  emit(order);
  return Status::kOk;
}

}  // namespace

Status greedy_order(const QuotientInput& in, LocalOrderType type, const LogSink* sink,
                    std::vector<int32_t>& order) {
  try {
    GreedyOrder g(in, type, sink);
    return g.run(order);
  } catch (const std::bad_alloc&) {
    log_printf(sink, 1, "Out of internal space. ffree: %d nnz: %d", 0,
               static_cast<int>(in.ptr.empty() ? 0 : in.ptr.back()));
    return Status::kOutOfSpace;
  }
}

}  // namespace qubor::linalg::detail
