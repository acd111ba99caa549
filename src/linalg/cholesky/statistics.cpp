// Factor statistics and summary; see statistics.h.
#include "linalg/cholesky/statistics.h"

#include <algorithm>

namespace qubor::linalg {
namespace {

constexpr int32_t kPanelBuckets[11] = {1, 2, 4, 6, 8, 12, 16, 32, 64, 128, 256};

int bucket_of(int32_t width) {
  for (int b = 0; b < 11; ++b)
    if (width <= kPanelBuckets[b]) return b;
  return 10;
}

void tree_shape(const SymbolicFactor& sf, CholeskyStatistics& st) {
  std::vector<int32_t> children(sf.nsuper, 0), height(sf.nsuper, 0);
  for (int32_t s = 0; s < sf.nsuper; ++s) {
    int32_t p = sf.super_parent[s];
    if (p == -1) {
      ++st.super_roots;
      continue;
    }
    ++children[p];
    height[p] = std::max(height[p], height[s] + 1);
  }
  for (int32_t s = 0; s < sf.nsuper; ++s) {
    if (children[s] == 0) ++st.super_leafs;
    if (children[s] == 1) ++st.super_one_child;
  }
  st.last_super = sf.nsuper - 1;
  st.last_super_depth = sf.nsuper > 0 ? height[sf.nsuper - 1] : 0;
}

void last_super_flops(const SymbolicFactor& sf, CholeskyStatistics& st) {
  if (sf.nsuper == 0) return;
  const int32_t s = sf.nsuper - 1;
  for (int64_t u = sf.upd_ptr[s]; u < sf.upd_ptr[s + 1]; ++u) {
    const int32_t d = sf.upd_d[u];
    const double m = sf.nrows(d) - sf.upd_r0[u], k = sf.upd_r1[u] - sf.upd_r0[u];
    st.last_update_flops += 2.0 * m * k * sf.ncols(d);
  }
  const double w = sf.ncols(s), below = sf.nrows(s) - sf.ncols(s);
  st.last_potrf_flops = w * w * w / 3.0 + below * w * w;
}

}  // namespace

void structural_statistics(const SymbolicFactor& sf, const OrderChoice& choice,
                           CholeskyStatistics& st) {
  st.dimension = sf.n;
  st.nnz_a = sf.nnz_a;
  st.nnz_l = sf.nnz_l;
  st.stored_l = sf.value_ptr.empty() ? 0 : sf.value_ptr[sf.nsuper];
  st.factor_flops = sf.flops;
  st.solve_flops = sf.solve_flops;
  st.supers = sf.nsuper;
  for (int32_t s = 0; s < sf.nsuper; ++s) {
    for (int32_t c0 = 0; c0 < sf.ncols(s); c0 += sf.panel_width) {
      ++st.panels;
      ++st.panel_buckets[bucket_of(std::min(sf.panel_width, sf.ncols(s) - c0))];
    }
  }
  tree_shape(sf, st);
  last_super_flops(sf, st);
  st.leaf_groups = static_cast<int32_t>(sf.leaf_groups.size());
  st.root_groups = sf.root_part.empty() ? 0 : 1;
  st.groups = st.leaf_groups + st.root_groups;
  st.ml_order_time = choice.ml_time;
  st.gp_order_time = choice.gp_time;
  st.gp_taken = choice.gp_taken;
  st.gp_saved_nz = choice.gp_saved_nz;
  st.gp_saved_flops = choice.gp_saved_flops;
}

void print_statistics(const CholeskyStatistics& st, const LogSink* sink) {
  auto i32 = [&](const char* label, int32_t v) { log_printf(sink, 1, "%-45s: %-12d\n", label, v); };
  auto i64 = [&](const char* label, int64_t v) {
    log_printf(sink, 1, "%-45s: %-lld\n", label, static_cast<long long>(v));
  };
  auto dbl = [&](const char* label, double v) { log_printf(sink, 1, "%-45s: %-12.2e\n", label, v); };
  auto tim = [&](const char* label, double v, int64_t calls) {
    log_printf(sink, 1, "%-45s: %-12.3f (%lld)\n", label, v, static_cast<long long>(calls));
  };
  auto rate = [&](const char* label, double flops, double sec) {
    log_printf(sink, 1, "%-45s: %-12.2e (Gflops)\n", label, sec > 0 ? flops / sec * 1e-9 : 0.0);
  };
  static const char* kBucketLabels[11] = {
      "# panels w=1",  "# panels w=2",  "# panels w=4",  "# panels w=6",
      "# panels w=8",  "# panels w=12", "# panels w=16", "# panels w=32",
      "# panels w=64", "# panels w=128", "# panels w=256"};
  log_printf(sink, 1, "\n*spchol summary.\n");
  log_printf(sink, 1, "\n* iinf summary.\n");
  i32("Dimension", st.dimension);
  i32("# panels", st.panels);
  for (int b = 0; b < 11; ++b) i32(kBucketLabels[b], st.panel_buckets[b]);
  i32("# super", st.supers);
  i32("# super roots", st.super_roots);
  i32("# super with one child", st.super_one_child);
  i32("# super leafs", st.super_leafs);
  i32("depth of last super", st.last_super_depth);
  i32("idx of last super", st.last_super);
  i32("# groups", st.groups);
  i32("# root groups", st.root_groups);
  i32("# leaf groups", st.leaf_groups);
  i32("# solve groups", 1);
  i32("# solve root groups", 1);
  i32("# solve leaf groups", 0);
  log_printf(sink, 1, "\n* liinf summary.\n");
  i64("A nz", st.nnz_a);
  i64("L nz", st.nnz_l);
  if (st.gp_taken) i64("GP saved nzs", st.gp_saved_nz);
  log_printf(sink, 1, "\n* biinf summary.\n");
  dbl("Factor flops", st.factor_flops);
  dbl("Update of last super flops", st.last_update_flops);
  dbl("Potrf of last super flops", st.last_potrf_flops);
  dbl("Solve flops", st.solve_flops);
  dbl("Factor flops total", st.dense.total_flops());
  if (st.gp_taken) dbl("GP saved flops", st.gp_saved_flops);
  const PhaseTimers& t = st.timers;
  log_printf(sink, 1, "\n* tiinf summary.\n");
  tim("ML order time", st.ml_order_time, 1);
  tim("GP order time", st.gp_order_time, st.gp_order_time > 0 ? 1 : 0);
  tim("Analyse time", st.analyse_time, 1);
  tim("Factor time", st.factor_time, st.factorizations);
  tim("Solve sparse matrix block load", t.load, t.n_load);
  tim("Solve sparse matrix pull block update", t.pull, t.n_pull);
  tim("Solve sparse matrix trsm", t.factor, t.n_factor);
  tim("Solve sparse matrix gemm", t.gemm, t.n_gemm);
  tim("Solve sparse matrix store", t.store, t.n_store);
  tim("L solve", t.l_solve, t.n_l_solve);
  tim("L solve with last super", t.l_solve_last, t.n_l_solve_last);
  tim("LT solve", t.lt_solve, t.n_lt_solve);
  tim("LT solve with last super", t.lt_solve_last, t.n_lt_solve_last);
  log_printf(sink, 1, "\n* Giga Flops per second summary.\n");
  rate("Factor", st.factor_flops * static_cast<double>(st.factorizations), st.factor_time);
  rate("Solve", st.solve_flops * static_cast<double>(st.solves), st.solve_time);
  const int g = static_cast<int>(DenseKernel::kGemm);
  rate("Dense gemm", st.dense.flops[g], st.dense.seconds[g]);
}

}  // namespace qubor::linalg
