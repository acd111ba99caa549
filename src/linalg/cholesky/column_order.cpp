// Column order inside supernodes by partition refinement; see column_order.h.
#include "linalg/cholesky/column_order.h"

#include <algorithm>
#include <numeric>

namespace qubor::linalg {
namespace {

// Ordered partition of the columns 0..w-1 of one supernode: classes are ranges of order[],
// refined by one set at a time, the members of the set moved to the back of their class.
class Refinement {
 public:
  explicit Refinement(int32_t wmax)
      : order_(wmax), where_(wmax), cls_(wmax), start_(wmax), end_(wmax), split_(wmax) {}

  void reset(int32_t w) {
    std::iota(order_.begin(), order_.begin() + w, 0);
    std::iota(where_.begin(), where_.begin() + w, 0);
    std::fill(cls_.begin(), cls_.begin() + w, 0);
    start_[0] = 0;
    end_[0] = split_[0] = w;
    nclasses_ = 1;
  }

  // Refines by the set {rows[i] - f : i in [0, k)}.
  void refine(const int32_t* rows, int32_t k, int32_t f) {
    touched_.clear();
    for (int32_t i = 0; i < k; ++i) {
      const int32_t x = rows[i] - f, c = cls_[x];
      if (split_[c] == end_[c]) touched_.push_back(c);
      const int32_t to = --split_[c], from = where_[x], y = order_[to];
      order_[from] = y;
      where_[y] = from;
      order_[to] = x;
      where_[x] = to;
    }
    for (int32_t c : touched_) {
      if (split_[c] > start_[c]) {
        const int32_t nc = nclasses_++;
        start_[nc] = split_[c];
        end_[nc] = split_[nc] = end_[c];
        end_[c] = split_[c];
        for (int32_t p = start_[nc]; p < end_[nc]; ++p) cls_[order_[p]] = nc;
      }
      split_[c] = end_[c];
    }
  }

  int32_t position(int32_t x) const { return where_[x]; }

 private:
  std::vector<int32_t> order_, where_, cls_, start_, end_, split_, touched_;
  int32_t nclasses_ = 0;
};

}  // namespace

void order_within_supernodes(SymbolicFactor& sf) {
  const int32_t ns = sf.nsuper, n = sf.n;
  int32_t wmax = 1;
  for (int32_t s = 0; s < ns; ++s) wmax = std::max(wmax, sf.ncols(s));
  std::vector<int32_t> label(n);
  std::iota(label.begin(), label.end(), 0);
  Refinement part(wmax);
  std::vector<int64_t> upd;
  for (int32_t s = 0; s < ns; ++s) {
    const int32_t f = sf.super_start[s], w = sf.ncols(s);
    if (w < 2 || sf.upd_ptr[s + 1] == sf.upd_ptr[s]) continue;
    upd.resize(sf.upd_ptr[s + 1] - sf.upd_ptr[s]);
    std::iota(upd.begin(), upd.end(), sf.upd_ptr[s]);
    // Largest sets first; a descendant's set never exceeds its ancestors', so nested sets
    // refine runs that already exist.
    std::sort(upd.begin(), upd.end(), [&](int64_t a, int64_t b) {
      const int32_t ka = sf.upd_r1[a] - sf.upd_r0[a], kb = sf.upd_r1[b] - sf.upd_r0[b];
      return ka != kb ? ka > kb : sf.upd_d[a] < sf.upd_d[b];
    });
    part.reset(w);
    for (int64_t u : upd) {
      const int32_t d = sf.upd_d[u];
      part.refine(sf.rows.data() + sf.row_ptr[d] + sf.upd_r0[u], sf.upd_r1[u] - sf.upd_r0[u], f);
    }
    for (int32_t x = 0; x < w; ++x) label[f + x] = f + part.position(x);
  }
  std::vector<int32_t> perm(n), count(n);
  for (int32_t j = 0; j < n; ++j) {
    perm[label[j]] = sf.perm[j];
    count[label[j]] = sf.colcount[j];
  }
  sf.perm.swap(perm);
  sf.colcount.swap(count);
  for (int32_t k = 0; k < n; ++k) sf.invp[sf.perm[k]] = k;
  // Relabelling stays within each supernode's column range, so sorting the rows below a
  // supernode keeps every update segment at its positions.
  for (int32_t s = 0; s < ns; ++s) {
    int32_t* r = sf.rows.data() + sf.row_ptr[s];
    const int32_t w = sf.ncols(s), nr = sf.nrows(s);
    for (int32_t i = w; i < nr; ++i) r[i] = label[r[i]];
    std::sort(r + w, r + nr);
  }
}

}  // namespace qubor::linalg
