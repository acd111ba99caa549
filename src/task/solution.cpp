#include "task/solution.h"

#include "task/problem.h"

namespace qubor::task {

namespace {

template <class V>
void compact(V& v, std::span<const int32_t> new_index) {
  size_t out = 0;
  for (size_t k = 0; k < v.size() && k < new_index.size(); ++k)
    if (new_index[k] >= 0) v[out++] = v[k];
  v.resize(out);
}

template <class V>
void release_vec(V& v) {
  V(v.get_allocator()).swap(v);
}

int64_t packed_total(const Problem& p) {
  int64_t n = 0;
  for (int32_t j = 0; j < p.num_barvar; ++j) n += p.barvar_len(j);
  return n;
}

}  // namespace

void Solution::release() {
  defined = false;
  prosta = QBR_PRO_STA_UNKNOWN;
  solsta = QBR_SOL_STA_UNKNOWN;
  aux = 0;
  release_vec(skc);
  release_vec(skx);
  release_vec(skn);
  for (auto* v : {&xc, &xx, &y, &slc, &suc, &slx, &sux, &snx, &barx, &bars}) release_vec(*v);
}

Solution& SolutionStore::create(const Problem& p, int32_t which) {
  Solution& s = (*this)[which];
  if (!s.defined) {
    s.release();
    s.defined = true;
    match(p);
  }
  return s;
}

void SolutionStore::match(const Problem& p) {
  const auto n = static_cast<size_t>(p.num_var), m = static_cast<size_t>(p.num_con),
             k = static_cast<size_t>(p.num_cone);
  for (Solution& s : items) {
    if (!s.defined) continue;
    if (s.skx.size() == n && s.skc.size() == m && s.skn.size() == k &&
        s.barx.size() == static_cast<size_t>(packed_total(p)))
      continue;
    s.skc.resize(m, QBR_SK_UNK);
    for (auto* v : {&s.xc, &s.y, &s.slc, &s.suc}) v->resize(m, 0.0);
    s.skx.resize(n, QBR_SK_UNK);
    for (auto* v : {&s.xx, &s.slx, &s.sux, &s.snx}) v->resize(n, 0.0);
    s.skn.resize(k, QBR_SK_UNK);
    const auto len = static_cast<size_t>(packed_total(p));
    s.barx.resize(len, 0.0);
    s.bars.resize(len, 0.0);
  }
}

void SolutionStore::remove_vars(std::span<const int32_t> new_index) {
  for (Solution& s : items) {
    if (!s.defined) continue;
    compact(s.skx, new_index);
    for (auto* v : {&s.xx, &s.slx, &s.sux, &s.snx}) compact(*v, new_index);
  }
}

void SolutionStore::remove_cons(std::span<const int32_t> new_index) {
  for (Solution& s : items) {
    if (!s.defined) continue;
    compact(s.skc, new_index);
    for (auto* v : {&s.xc, &s.y, &s.slc, &s.suc}) compact(*v, new_index);
  }
}

void SolutionStore::remove_cones(std::span<const int32_t> new_index) {
  for (Solution& s : items)
    if (s.defined) compact(s.skn, new_index);
}

void SolutionStore::remove_barvars(std::span<const int32_t> new_index, std::span<const int64_t> lens) {
  for (Solution& s : items) {
    if (!s.defined) continue;
    for (auto* v : {&s.barx, &s.bars}) {
      size_t in = 0, out = 0;
      for (size_t j = 0; j < lens.size(); ++j) {
        const auto len = static_cast<size_t>(lens[j]);
        if (new_index[j] >= 0 && in + len <= v->size())
          for (size_t q = 0; q < len; ++q) (*v)[out++] = (*v)[in + q];
        in += len;
      }
      v->resize(out);
    }
  }
}

}  // namespace qubor::task
