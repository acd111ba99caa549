// Comparison with CHOLMOD's supernodal factorization through its public API: its AMD and
// METIS orderings (fill and ordering time), and numeric factorization and solve time with the
// permutation chosen by our analysis.
#include <cholmod.h>

#include <algorithm>
#include <random>

#include "peer_compare.h"

namespace qubor::bench {
namespace {

double now() { return clock_seconds(); }

struct Peer {
  cholmod_common c;
  Peer() { cholmod_l_start(&c); c.supernodal = CHOLMOD_SUPERNODAL; }
  ~Peer() { cholmod_l_finish(&c); }
};

cholmod_sparse* to_peer(const LowerMatrix& a, cholmod_common* c) {
  cholmod_sparse* s = cholmod_l_allocate_sparse(a.n, a.n, a.colptr[a.n], 1, 1, -1, CHOLMOD_REAL, c);
  auto* p = static_cast<SuiteSparse_long*>(s->p);
  auto* i = static_cast<SuiteSparse_long*>(s->i);
  auto* x = static_cast<double*>(s->x);
  for (int32_t j = 0; j <= a.n; ++j) p[j] = a.colptr[j];
  for (int64_t k = 0; k < a.colptr[a.n]; ++k) { i[k] = a.rowind[k]; x[k] = a.values[k]; }
  return s;
}

int64_t fill_of(cholmod_sparse* s, const SuiteSparse_long* perm, cholmod_common* c) {
  c->nmethods = 1;
  c->method[0].ordering = CHOLMOD_GIVEN;
  cholmod_factor* l = cholmod_l_analyze_p(s, const_cast<SuiteSparse_long*>(perm), nullptr, 0, c);
  int64_t lnz = static_cast<int64_t>(c->lnz);
  cholmod_l_free_factor(&l, c);
  return lnz;
}

}  // namespace

bool peer_available() { return true; }

PeerResult peer_compare(const LowerMatrix& a, const std::vector<int32_t>& perm, int runs) {
  PeerResult r;
  Peer peer;
  cholmod_common* c = &peer.c;
  cholmod_sparse* s = to_peer(a, c);
  std::vector<SuiteSparse_long> p(a.n);
  double t0 = now();
  cholmod_l_amd(s, nullptr, 0, p.data(), c);
  r.order_amd = now() - t0;
  r.nnz_l_amd = fill_of(s, p.data(), c);
  t0 = now();
  cholmod_l_metis(s, nullptr, 0, 1, p.data(), c);
  r.order_metis = now() - t0;
  r.nnz_l_metis = fill_of(s, p.data(), c);
  for (int32_t k = 0; k < a.n; ++k) p[k] = perm[k];
  c->nmethods = 1;
  c->method[0].ordering = CHOLMOD_GIVEN;
  cholmod_factor* l = cholmod_l_analyze_p(s, p.data(), nullptr, 0, c);
  r.nnz_l_same = static_cast<int64_t>(c->lnz);
  r.nsuper_same = static_cast<int64_t>(l->nsuper);
  r.stored_same = static_cast<int64_t>(l->xsize);
  r.factor_same = 1e300;
  for (int t = 0; t < runs; ++t) {
    t0 = now();
    cholmod_l_factorize(s, l, c);
    r.factor_same = std::min(r.factor_same, now() - t0);
  }
  cholmod_dense* b = cholmod_l_ones(a.n, 1, CHOLMOD_REAL, c);
  r.solve_same = 1e300;
  for (int t = 0; t < runs; ++t) {
    t0 = now();
    cholmod_dense* x = cholmod_l_solve(CHOLMOD_A, l, b, c);
    r.solve_same = std::min(r.solve_same, now() - t0);
    cholmod_l_free_dense(&x, c);
  }
  r.ok = c->status == CHOLMOD_OK;
  cholmod_l_free_dense(&b, c);
  cholmod_l_free_factor(&l, c);
  cholmod_l_free_sparse(&s, c);
  return r;
}

}  // namespace qubor::bench
