// Symbolic analysis: elimination tree, column counts, supernodes with relaxed amalgamation,
// row structures, update lists, load map and thread groups; see symbolic.h.
#include "linalg/cholesky/symbolic.h"

#include <algorithm>
#include <limits>
#include <new>
#include <queue>

#include "linalg/cholesky/column_order.h"
#include "linalg/ordering/etree.h"
#include "platform/prefaulted_buffer.h"

namespace qubor::linalg {
namespace {

// Relaxed amalgamation: a merge is accepted when the explicit zeros of the merged block stay
// below a fraction that shrinks with its width. Narrow supernodes cost more in call overhead
// and memory traffic than their zeros cost in flops; wide ones are already efficient.
constexpr int32_t kRelaxWidth1 = 4, kRelaxWidth2 = 16, kRelaxWidth3 = 48;
constexpr double kRelaxZeros1 = 0.8, kRelaxZeros2 = 0.1, kRelaxZeros3 = 0.05;
// A narrow supernode far taller than wide sends rank-w updates of many rows to its ancestors:
// at w <= 16 those run at memory speed, so merging it pays even at half zeros, as long as the
// merged block stays tall (rows below at least kTallRatio times its width).
constexpr int64_t kNarrowWidth = 16, kTallRatio = 8, kTallMaxWidth = 512;
constexpr double kTallZeros = 0.5;

bool accept_merge(int64_t width, double zero_fraction, int64_t narrower, int64_t below) {
  if (narrower <= kNarrowWidth && width <= kTallMaxWidth && below >= kTallRatio * width &&
      zero_fraction <= kTallZeros)
    return true;
  if (width <= kRelaxWidth1) return true;
  if (width <= kRelaxWidth2) return zero_fraction <= kRelaxZeros1;
  if (width <= kRelaxWidth3) return zero_fraction <= kRelaxZeros2;
  return zero_fraction <= kRelaxZeros3;
}

// Symmetric adjacency (both directions, no diagonal) of the lower-triangle pattern.
void full_adjacency(int32_t n, const int64_t* colptr, const int32_t* rowind,
                    std::vector<int64_t>& ptr, std::vector<int32_t>& ind) {
  ptr.assign(n + 1, 0);
  for (int32_t j = 0; j < n; ++j)
    for (int64_t p = colptr[j]; p < colptr[j + 1]; ++p)
      if (rowind[p] != j) {
        ++ptr[rowind[p] + 1];
        ++ptr[j + 1];
      }
  for (int32_t j = 0; j < n; ++j) ptr[j + 1] += ptr[j];
  ind.resize(ptr[n]);
  std::vector<int64_t> next(ptr.begin(), ptr.end() - 1);
  for (int32_t j = 0; j < n; ++j)
    for (int64_t p = colptr[j]; p < colptr[j + 1]; ++p)
      if (rowind[p] != j) {
        ind[next[rowind[p]]++] = j;
        ind[next[j]++] = rowind[p];
      }
}

// Fundamental supernodes in a postordered numbering, and their tree.
struct SuperTree {
  std::vector<int32_t> start;   // first column, size count + 1
  std::vector<int32_t> parent;
  std::vector<int64_t> width, below, stored, zeros;
  int32_t count() const { return static_cast<int32_t>(parent.size()); }
};

void fundamental_supernodes(const std::vector<int32_t>& parent, const std::vector<int32_t>& cc,
                            SuperTree& t, std::vector<int32_t>& col_super) {
  const int32_t n = static_cast<int32_t>(parent.size());
  col_super.assign(n, -1);
  t.start.clear();
  for (int32_t j = 0; j < n; ++j) {
    bool extend = j > 0 && parent[j - 1] == j && cc[j - 1] == cc[j] + 1;
    if (!extend) t.start.push_back(j);
    col_super[j] = static_cast<int32_t>(t.start.size()) - 1;
  }
  const int32_t ns = static_cast<int32_t>(t.start.size());
  t.start.push_back(n);
  t.parent.assign(ns, -1);
  t.width.assign(ns, 0);
  t.below.assign(ns, 0);
  t.stored.assign(ns, 0);
  t.zeros.assign(ns, 0);
  for (int32_t s = 0; s < ns; ++s) {
    int32_t last = t.start[s + 1] - 1;
    t.parent[s] = parent[last] == -1 ? -1 : col_super[parent[last]];
    int64_t w = t.start[s + 1] - t.start[s];
    t.width[s] = w;
    t.below[s] = cc[t.start[s]] - w;
    t.stored[s] = w * (w + 1) / 2 + w * t.below[s];
  }
}

// Marks merged[c] = s for every child c merged into its parent s; returns the merge roots'
// tops in top[].
void amalgamate(SuperTree& t, bool enabled, std::vector<int32_t>& top) {
  const int32_t ns = t.count();
  top.resize(ns);
  for (int32_t s = 0; s < ns; ++s) top[s] = s;
  if (!enabled) return;
  std::vector<int32_t> merged(ns, -1);
  // Children lists in increasing order; s > c for every child, so one ascending pass visits
  // children before parents.
  std::vector<int32_t> head(ns, -1), next(ns, -1);
  for (int32_t c = ns - 1; c >= 0; --c)
    if (t.parent[c] != -1) {
      next[c] = head[t.parent[c]];
      head[t.parent[c]] = c;
    }
  for (int32_t s = 0; s < ns; ++s) {
    for (int32_t c = head[s]; c != -1; c = next[c]) {
      int64_t w = t.width[s] + t.width[c];
      int64_t stored = w * (w + 1) / 2 + w * t.below[s];
      int64_t nz = (t.stored[s] - t.zeros[s]) + (t.stored[c] - t.zeros[c]);
      int64_t zeros = stored - nz;
      const double zero_fraction = static_cast<double>(zeros) / static_cast<double>(stored);
      if (!accept_merge(w, zero_fraction, std::min(t.width[s], t.width[c]), t.below[s])) continue;
      merged[c] = s;
      t.width[s] = w;
      t.stored[s] = stored;
      t.zeros[s] = zeros;
    }
  }
  for (int32_t s = ns - 1; s >= 0; --s)
    if (merged[s] != -1) top[s] = top[merged[s]];
}

// Final supernodes: merge sets in postorder of the merged tree; columns of a merged
// supernode are those of its members in increasing (postorder) member index.
void final_layout(const SuperTree& t, const std::vector<int32_t>& top,
                  const std::vector<int32_t>& perm2, const std::vector<int32_t>& cc2,
                  SymbolicFactor& sf, std::vector<int64_t>& final_below) {
  const int32_t nf = t.count();
  std::vector<int32_t> fparent(nf, -2);
  for (int32_t s = 0; s < nf; ++s)
    if (top[s] == s) fparent[s] = t.parent[s] == -1 ? -1 : top[t.parent[s]];
  std::vector<int32_t> roots_parent;
  std::vector<int32_t> compact_id(nf, -1), compact_of;
  for (int32_t s = 0; s < nf; ++s)
    if (top[s] == s) {
      compact_id[s] = static_cast<int32_t>(compact_of.size());
      compact_of.push_back(s);
    }
  const int32_t ns = static_cast<int32_t>(compact_of.size());
  std::vector<int32_t> cparent(ns), post;
  for (int32_t c = 0; c < ns; ++c) {
    int32_t p = fparent[compact_of[c]];
    cparent[c] = p == -1 ? -1 : compact_id[p];
  }
  tree_postorder(cparent, post);
  std::vector<int32_t> final_id(ns);
  for (int32_t k = 0; k < ns; ++k) final_id[post[k]] = k;
  // Member fundamental supernodes bucketed by final supernode, ascending.
  std::vector<int32_t> cnt(ns + 1, 0);
  for (int32_t s = 0; s < nf; ++s) ++cnt[final_id[compact_id[top[s]]] + 1];
  for (int32_t k = 0; k < ns; ++k) cnt[k + 1] += cnt[k];
  std::vector<int32_t> members(nf);
  std::vector<int32_t> fill(cnt.begin(), cnt.end() - 1);
  for (int32_t s = 0; s < nf; ++s) members[fill[final_id[compact_id[top[s]]]]++] = s;
  const int32_t n = static_cast<int32_t>(perm2.size());
  sf.nsuper = ns;
  sf.perm.resize(n);
  sf.colcount.resize(n);
  sf.super_start.assign(ns + 1, 0);
  sf.super_parent.assign(ns, -1);
  final_below.assign(ns, 0);
  int32_t col = 0;
  for (int32_t k = 0; k < ns; ++k) {
    sf.super_start[k] = col;
    for (int32_t m = cnt[k]; m < cnt[k + 1]; ++m) {
      int32_t s = members[m];
      for (int32_t j = t.start[s]; j < t.start[s + 1]; ++j) {
        sf.perm[col] = perm2[j];
        sf.colcount[col++] = cc2[j];
      }
    }
    int32_t rep = compact_of[post[k]];
    final_below[k] = t.below[rep];
    int32_t p = cparent[post[k]];
    sf.super_parent[k] = p == -1 ? -1 : final_id[p];
  }
  sf.super_start[ns] = col;
}

// Row structure of every supernode from A and the children's structures.
Status row_structures(const std::vector<int64_t>& ptr, const std::vector<int32_t>& ind,
                      const std::vector<int64_t>& expected_below, const LogSink* sink,
                      SymbolicFactor& sf) {
  const int32_t ns = sf.nsuper, n = sf.n;
  sf.row_ptr.assign(ns + 1, 0);
  for (int32_t s = 0; s < ns; ++s)
    sf.row_ptr[s + 1] = sf.row_ptr[s] + sf.ncols(s) + expected_below[s];
  sf.rows.resize(sf.row_ptr[ns]);
  std::vector<int32_t> mark(n, -1), head(ns, -1), next(ns, -1);
  for (int32_t c = ns - 1; c >= 0; --c)
    if (sf.super_parent[c] != -1) {
      next[c] = head[sf.super_parent[c]];
      head[sf.super_parent[c]] = c;
    }
  for (int32_t s = 0; s < ns; ++s) {
    const int32_t f = sf.super_start[s], l = sf.super_start[s + 1] - 1;
    int64_t q = sf.row_ptr[s];
    const int64_t end = sf.row_ptr[s + 1];
    for (int32_t j = f; j <= l; ++j) sf.rows[q++] = j;
    const int64_t below_begin = q;
    auto add = [&](int32_t r) {
      if (r <= l || mark[r] == s) return true;
      if (q >= end) return false;
      mark[r] = s;
      sf.rows[q++] = r;
      return true;
    };
    bool ok = true;
    for (int32_t j = f; j <= l && ok; ++j) {
      int32_t oj = sf.perm[j];
      for (int64_t p = ptr[oj]; p < ptr[oj + 1] && ok; ++p) ok = add(sf.invp[ind[p]]);
    }
    for (int32_t c = head[s]; c != -1 && ok; c = next[c])
      for (int64_t p = sf.row_ptr[c] + sf.ncols(c); p < sf.row_ptr[c + 1] && ok; ++p)
        ok = add(sf.rows[p]);
    if (!ok || q != end) {
      log_printf(sink, 1, "j: %d super: %d d: %d computed value: %d", f, s,
                 static_cast<int>(end - below_begin), static_cast<int>(q - below_begin));
      return Status::kInternalError;
    }
    std::sort(sf.rows.begin() + below_begin, sf.rows.begin() + end);
  }
  return Status::kOk;
}

Status value_layout(SymbolicFactor& sf) {
  sf.value_ptr.assign(sf.nsuper + 1, 0);
  sf.max_rows = 0;
  for (int32_t s = 0; s < sf.nsuper; ++s) {
    int64_t size = static_cast<int64_t>(sf.nrows(s)) * sf.ncols(s);
    if (sf.value_ptr[s] > std::numeric_limits<int64_t>::max() / 8 - size)
      return Status::kOutOfSpace;
    sf.value_ptr[s + 1] = sf.value_ptr[s] + size;
    sf.max_rows = std::max(sf.max_rows, sf.nrows(s));
  }
  return Status::kOk;
}

void update_lists(SymbolicFactor& sf) {
  const int32_t ns = sf.nsuper;
  sf.upd_ptr.assign(ns + 1, 0);
  sf.max_update = 0;
  sf.max_scaled = 0;
  // Two passes over the segments of every supernode's below-diagonal rows: count, then fill.
  for (int pass = 0; pass < 2; ++pass) {
    std::vector<int64_t> fill;
    if (pass == 1) {
      for (int32_t s = 0; s < ns; ++s) sf.upd_ptr[s + 1] += sf.upd_ptr[s];
      sf.upd_d.resize(sf.upd_ptr[ns]);
      sf.upd_r0.resize(sf.upd_ptr[ns]);
      sf.upd_r1.resize(sf.upd_ptr[ns]);
      fill.assign(sf.upd_ptr.begin(), sf.upd_ptr.end() - 1);
    }
    for (int32_t d = 0; d < ns; ++d) {
      const int32_t nr = sf.nrows(d), wd = sf.ncols(d);
      const int32_t* r = sf.rows.data() + sf.row_ptr[d];
      for (int32_t p = wd; p < nr;) {
        int32_t s = sf.col_super[r[p]], q = p;
        while (q < nr && r[q] < sf.super_start[s + 1]) ++q;
        if (pass == 0) {
          ++sf.upd_ptr[s + 1];
          sf.max_update = std::max<int64_t>(sf.max_update, static_cast<int64_t>(nr - p) * (q - p));
          sf.max_scaled = std::max<int64_t>(sf.max_scaled, static_cast<int64_t>(q - p) * wd);
        } else {
          int64_t at = fill[s]++;
          sf.upd_d[at] = d;
          sf.upd_r0[at] = p;
          sf.upd_r1[at] = q;
        }
        p = q;
      }
    }
  }
  for (int32_t s = 0; s < ns; ++s) {
    int64_t w = sf.ncols(s);
    sf.max_scaled = std::max<int64_t>(sf.max_scaled, w * std::min<int64_t>(w, sf.panel_width));
  }
}

void load_map(const int64_t* colptr, const int32_t* rowind, SymbolicFactor& sf) {
  const int32_t n = sf.n;
  const int64_t nnz = colptr[n];
  std::vector<int32_t> super_of;
  std::vector<int64_t> dst;
  platform::assign_prefaulted(super_of, static_cast<size_t>(nnz), 0);
  platform::assign_prefaulted(dst, static_cast<size_t>(nnz), 0);
  platform::assign_prefaulted(sf.diag_src, static_cast<size_t>(n), -1);
  platform::assign_prefaulted(sf.load_ptr, static_cast<size_t>(sf.nsuper) + 1, 0);
  for (int32_t j = 0; j < n; ++j) {
    for (int64_t p = colptr[j]; p < colptr[j + 1]; ++p) {
      int32_t a = sf.invp[rowind[p]], b = sf.invp[j];
      int32_t col = std::min(a, b), row = std::max(a, b);
      int32_t s = sf.col_super[col];
      const int32_t* r = sf.rows.data() + sf.row_ptr[s];
      int64_t pos = std::lower_bound(r, r + sf.nrows(s), row) - r;
      super_of[p] = s;
      dst[p] = sf.value_ptr[s] + static_cast<int64_t>(col - sf.super_start[s]) * sf.nrows(s) + pos;
      if (a == b && sf.diag_src[a] == -1) sf.diag_src[a] = p;
      ++sf.load_ptr[s + 1];
    }
  }
  for (int32_t s = 0; s < sf.nsuper; ++s) sf.load_ptr[s + 1] += sf.load_ptr[s];
  platform::assign_prefaulted(sf.load_src, static_cast<size_t>(nnz), 0);
  platform::assign_prefaulted(sf.load_dst, static_cast<size_t>(nnz), 0);
  std::vector<int64_t> fill(sf.load_ptr.begin(), sf.load_ptr.end() - 1);
  for (int64_t p = 0; p < nnz; ++p) {
    int64_t at = fill[super_of[p]]++;
    sf.load_src[at] = p;
    sf.load_dst[at] = dst[p];
  }
}

// Splits the heaviest subtree until every leaf subtree holds at most a 1/(2 threads) share
// of the work, so that dynamic scheduling of the subtrees balances the threads.
void thread_groups(int32_t num_threads, SymbolicFactor& sf) {
  const int32_t ns = sf.nsuper;
  std::vector<double> work(sf.super_flops);
  sf.first_desc.resize(ns);
  for (int32_t s = 0; s < ns; ++s) sf.first_desc[s] = s;
  double total = 0.0;
  for (int32_t s = 0; s < ns; ++s) {
    total += sf.super_flops[s];
    int32_t p = sf.super_parent[s];
    if (p == -1) continue;
    work[p] += work[s];
    sf.first_desc[p] = std::min(sf.first_desc[p], sf.first_desc[s]);
  }
  std::vector<int32_t> head(ns, -1), next(ns, -1);
  for (int32_t c = ns - 1; c >= 0; --c)
    if (sf.super_parent[c] != -1) {
      next[c] = head[sf.super_parent[c]];
      head[sf.super_parent[c]] = c;
    }
  using Item = std::pair<double, int32_t>;
  std::priority_queue<Item> heap;
  for (int32_t s = 0; s < ns; ++s)
    if (sf.super_parent[s] == -1) heap.emplace(work[s], -s);
  const double target = num_threads > 1 ? total / (2.0 * num_threads) : total;
  const size_t max_groups = static_cast<size_t>(std::max(1, num_threads)) * 32;
  sf.root_part.clear();
  while (!heap.empty() && num_threads > 1) {
    auto [w, neg] = heap.top();
    int32_t s = -neg;
    if (w <= target || head[s] == -1 || heap.size() >= max_groups) break;
    heap.pop();
    sf.root_part.push_back(s);
    for (int32_t c = head[s]; c != -1; c = next[c]) heap.emplace(work[c], -c);
  }
  std::sort(sf.root_part.begin(), sf.root_part.end());
  sf.leaf_groups.clear();
  while (!heap.empty()) {
    sf.leaf_groups.push_back(-heap.top().second);
    heap.pop();
  }
}

void statistics(SymbolicFactor& sf) {
  sf.super_flops.assign(sf.nsuper, 0.0);
  sf.nnz_l = 0;
  sf.flops = 0.0;
  for (int32_t s = 0; s < sf.nsuper; ++s)
    for (int32_t j = sf.super_start[s]; j < sf.super_start[s + 1]; ++j) {
      double c = sf.colcount[j];
      sf.nnz_l += sf.colcount[j];
      sf.flops += c * c;
      sf.super_flops[s] += c * c;
    }
  sf.stored_l = 0;
  for (int32_t s = 0; s < sf.nsuper; ++s) {
    int64_t w = sf.ncols(s);
    sf.stored_l += w * (w + 1) / 2 + w * (sf.nrows(s) - w);
  }
  sf.solve_flops = 4.0 * static_cast<double>(sf.stored_l);
}

}  // namespace

Status check_lower_pattern(int32_t n, const int64_t* colptr, const int32_t* rowind) {
  if (n < 0) return Status::kInvalidInput;
  if (n == 0) return Status::kOk;
  if (colptr == nullptr || colptr[0] != 0) return Status::kInvalidInput;
  for (int32_t j = 0; j < n; ++j) {
    if (colptr[j + 1] < colptr[j]) return Status::kInvalidInput;
    for (int64_t p = colptr[j]; p < colptr[j + 1]; ++p)
      if (rowind[p] < j || rowind[p] >= n) return Status::kInvalidInput;
  }
  return Status::kOk;
}

Status analyse_pattern(int32_t n, const int64_t* colptr, const int32_t* rowind,
                       const std::vector<int32_t>& perm, const SymbolicOptions& opt,
                       const LogSink* sink, SymbolicFactor& sf) {
  Status st = check_lower_pattern(n, colptr, rowind);
  if (st != Status::kOk) return st;
  if (static_cast<int32_t>(perm.size()) != n) return Status::kInvalidInput;
  try {
    sf = SymbolicFactor();
    sf.n = n;
    sf.nnz_a = n > 0 ? colptr[n] : 0;
    sf.panel_width = std::max(1, opt.panel_width);
    std::vector<int32_t> invp;
    if (!invert_permutation(perm, invp)) return Status::kInvalidInput;
    std::vector<int64_t> ptr;
    std::vector<int32_t> ind;
    full_adjacency(n, colptr, rowind, ptr, ind);
    PermutedPattern a{n, ptr.data(), ind.data(), perm.data(), invp.data()};
    std::vector<int32_t> parent, post, cc;
    elimination_tree(a, parent);
    tree_postorder(parent, post);
    column_counts(a, parent, post, cc);
    // Relabel by the postorder.
    std::vector<int32_t> perm2(n), cc2(n), parent2(n), where(n);
    for (int32_t k = 0; k < n; ++k) where[post[k]] = k;
    for (int32_t k = 0; k < n; ++k) {
      perm2[k] = perm[post[k]];
      cc2[k] = cc[post[k]];
      parent2[k] = parent[post[k]] == -1 ? -1 : where[parent[post[k]]];
    }
    SuperTree t;
    std::vector<int32_t> fcol_super, top;
    fundamental_supernodes(parent2, cc2, t, fcol_super);
    amalgamate(t, opt.amalgamate, top);
    std::vector<int64_t> below;
    final_layout(t, top, perm2, cc2, sf, below);
    if (!invert_permutation(sf.perm, sf.invp)) return Status::kInternalError;
    sf.col_super.resize(n);
    for (int32_t s = 0; s < sf.nsuper; ++s)
      for (int32_t j = sf.super_start[s]; j < sf.super_start[s + 1]; ++j) sf.col_super[j] = s;
    st = row_structures(ptr, ind, below, sink, sf);
    if (st != Status::kOk) return st;
    st = value_layout(sf);
    if (st != Status::kOk) return st;
    update_lists(sf);
    if (opt.order_columns) order_within_supernodes(sf);
    load_map(colptr, rowind, sf);
    statistics(sf);
    thread_groups(opt.num_threads, sf);
  } catch (const std::bad_alloc&) {
    sf = SymbolicFactor();
    return Status::kOutOfSpace;
  }
  return Status::kOk;
}

}  // namespace qubor::linalg
