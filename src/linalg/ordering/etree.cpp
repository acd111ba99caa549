// Elimination tree, postorder, column counts; see etree.h.
#include "linalg/ordering/etree.h"

namespace qubor::linalg {
namespace {

inline int32_t old_of(const PermutedPattern& a, int32_t k) { return a.perm ? a.perm[k] : k; }
inline int32_t new_of(const PermutedPattern& a, int32_t i) { return a.invp ? a.invp[i] : i; }

int32_t find_root(std::vector<int32_t>& set, int32_t x) {
  int32_t r = x;
  while (set[r] != r) r = set[r];
  while (set[x] != r) {  // path compression
    int32_t next = set[x];
    set[x] = r;
    x = next;
  }
  return r;
}

}  // namespace

void elimination_tree(const PermutedPattern& a, std::vector<int32_t>& parent) {
  const int32_t n = a.n;
  parent.assign(n, -1);
  std::vector<int32_t> ancestor(n, -1);
  for (int32_t k = 0; k < n; ++k) {
    int32_t ok = old_of(a, k);
    for (int64_t p = a.ptr[ok]; p < a.ptr[ok + 1]; ++p) {
      int32_t i = new_of(a, a.ind[p]);
      // Walk from i to the root of its current subtree, compressing the path towards k.
      while (i != -1 && i < k) {
        int32_t next = ancestor[i];
        ancestor[i] = k;
        if (next == -1) parent[i] = k;
        i = next;
      }
    }
  }
}

void tree_postorder(const std::vector<int32_t>& parent, std::vector<int32_t>& post) {
  const int32_t n = static_cast<int32_t>(parent.size());
  std::vector<int32_t> head(n, -1), next(n, -1), stack(n);
  // Children lists in increasing order: insert in decreasing order at the head.
  for (int32_t j = n - 1; j >= 0; --j) {
    if (parent[j] == -1) continue;
    next[j] = head[parent[j]];
    head[parent[j]] = j;
  }
  post.resize(n);
  int32_t t = 0;
  for (int32_t root = 0; root < n; ++root) {
    if (parent[root] != -1) continue;
    int32_t top = 0;
    stack[0] = root;
    while (top >= 0) {
      int32_t v = stack[top];
      int32_t c = head[v];
      if (c == -1) {
        post[t++] = v;
        --top;
      } else {
        head[v] = next[c];
        stack[++top] = c;
      }
    }
  }
}

void column_counts(const PermutedPattern& a, const std::vector<int32_t>& parent,
                   const std::vector<int32_t>& post, std::vector<int32_t>& colcount) {
  const int32_t n = a.n;
  std::vector<int32_t> first(n, -1), maxfirst(n, -1), prevleaf(n, -1), set(n);
  colcount.assign(n, 0);
  // first[j]: postorder position of the first descendant of j; leaves start with delta 1.
  for (int32_t t = 0; t < n; ++t) {
    int32_t j = post[t];
    colcount[j] = (first[j] == -1) ? 1 : 0;
    for (int32_t v = j; v != -1 && first[v] == -1; v = parent[v]) first[v] = t;
  }
  for (int32_t j = 0; j < n; ++j) set[j] = j;
  for (int32_t t = 0; t < n; ++t) {
    int32_t j = post[t];
    if (parent[j] != -1) colcount[parent[j]] -= 1;
    int32_t oj = old_of(a, j);
    for (int64_t p = a.ptr[oj]; p < a.ptr[oj + 1]; ++p) {
      int32_t i = new_of(a, a.ind[p]);
      if (i <= j || first[j] <= maxfirst[i]) continue;
      // j is a leaf of the row subtree of i.
      maxfirst[i] = first[j];
      colcount[j] += 1;
      if (prevleaf[i] != -1) colcount[find_root(set, prevleaf[i])] -= 1;
      prevleaf[i] = j;
    }
    if (parent[j] != -1) set[j] = parent[j];
  }
  for (int32_t t = 0; t < n; ++t) {
    int32_t j = post[t];
    if (parent[j] != -1) colcount[parent[j]] += colcount[j];
  }
}

void factor_cost(const PermutedPattern& a, int64_t& nnz_l, double& flops) {
  std::vector<int32_t> parent, post, cc;
  elimination_tree(a, parent);
  tree_postorder(parent, post);
  column_counts(a, parent, post, cc);
  nnz_l = 0;
  flops = 0.0;
  for (int32_t c : cc) {
    nnz_l += c;
    flops += static_cast<double>(c) * c;
  }
}

bool invert_permutation(const std::vector<int32_t>& perm, std::vector<int32_t>& invp) {
  const int32_t n = static_cast<int32_t>(perm.size());
  invp.assign(n, -1);
  for (int32_t k = 0; k < n; ++k) {
    int32_t i = perm[k];
    if (i < 0 || i >= n || invp[i] != -1) return false;
    invp[i] = k;
  }
  return true;
}

}  // namespace qubor::linalg
