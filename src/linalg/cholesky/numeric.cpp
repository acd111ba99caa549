// Supernodal left-looking factorization (Cholesky and LDL'); see numeric.h.
#include "linalg/cholesky/numeric.h"

#include <omp.h>

#include <algorithm>
#include <cmath>

#include "linalg/common/status.h"
#include "platform/prefaulted_buffer.h"

namespace qubor::linalg {

void PhaseTimers::add(const PhaseTimers& o) {
  load += o.load;
  pull += o.pull;
  factor += o.factor;
  gemm += o.gemm;
  store += o.store;
  n_load += o.n_load;
  n_pull += o.n_pull;
  n_factor += o.n_factor;
  n_gemm += o.n_gemm;
  n_store += o.n_store;
  l_solve += o.l_solve;
  l_solve_last += o.l_solve_last;
  lt_solve += o.lt_solve;
  lt_solve_last += o.lt_solve_last;
  n_l_solve += o.n_l_solve;
  n_l_solve_last += o.n_l_solve_last;
  n_lt_solve += o.n_lt_solve;
  n_lt_solve_last += o.n_lt_solve_last;
}

namespace {

constexpr double kHugePivot = 1e128;

class SupernodeFactor {
 public:
  SupernodeFactor(const SymbolicFactor& sf, const double* ax, const PivotRule& rule,
                  NumericFactor& nf)
      : sf_(sf), ax_(ax), rule_(rule), nf_(nf), ldlt_(rule.type == FactorType::kLdlt) {
    scale_ = std::max(nf.max_diag, 1e-300);
    tau_ = rule.tolerance * scale_;
  }
  void run(int32_t s, ThreadScratch& ws) {
    load(s, ws);
    pull(s, ws);
    factor(s, ws);
  }

 private:
  void load(int32_t s, ThreadScratch& ws);
  void pull(int32_t s, ThreadScratch& ws);
  void update_into(int32_t d, int32_t r0, int32_t r1, const double* b, int64_t ldb, double beta,
                   double* c, int64_t ldc, ThreadScratch& ws);
  void factor(int32_t s, ThreadScratch& ws);
  double checked_pivot(int32_t col, double d, ThreadScratch& ws);
  void diag_cholesky(double* p, int64_t ld, int32_t b, int32_t col0, ThreadScratch& ws);
  void diag_ldlt(double* p, int64_t ld, int32_t b, int32_t col0, ThreadScratch& ws);

  const SymbolicFactor& sf_;
  const double* ax_;
  const PivotRule& rule_;
  NumericFactor& nf_;
  bool ldlt_;
  double scale_ = 1.0, tau_ = 0.0;
};

void SupernodeFactor::load(int32_t s, ThreadScratch& ws) {
  double t0 = wall_seconds();
  double* blk = nf_.values.data() + sf_.value_ptr[s];
  std::fill(blk, nf_.values.data() + sf_.value_ptr[s + 1], 0.0);
  double* v = nf_.values.data();
  for (int64_t k = sf_.load_ptr[s]; k < sf_.load_ptr[s + 1]; ++k)
    v[sf_.load_dst[k]] += ax_[sf_.load_src[k]];
  ws.timers.load += wall_seconds() - t0;
  ++ws.timers.n_load;
}

// c (m x k, leading dimension ldc) = beta c - L_d(r0:, :) * b', where b holds the rows
// r0..r1 of L_d, scaled by D_d for LDL'. For Cholesky the top k x k block is symmetric and
// only its lower triangle is formed.
void SupernodeFactor::update_into(int32_t d, int32_t r0, int32_t r1, const double* b,
                                  int64_t ldb, double beta, double* c, int64_t ldc,
                                  ThreadScratch& ws) {
  const int32_t nrd = sf_.nrows(d), wd = sf_.ncols(d);
  const int32_t m = nrd - r0, k = r1 - r0;
  const double* ld = nf_.values.data() + sf_.value_ptr[d] + r0;
  if (ldlt_) {
    dense::gemm_nt(ws.dense, m, k, wd, -1.0, ld, nrd, b, ldb, beta, c, ldc);
    return;
  }
  dense::syrk_ln(ws.dense, k, wd, -1.0, ld, nrd, beta, c, ldc);
  dense::gemm_nt(ws.dense, m - k, k, wd, -1.0, ld + k, nrd, b, ldb, beta, c + k, ldc);
}

// Adds the lower trapezoid of c (m x k) into blk at the positions of the rows rd[0..m) of a
// descendant: entry (i, j) goes to row pos[rd[i]], column pos[rd[j]] of the block. The rows
// fall into runs of consecutive positions (the column order inside supernodes makes them
// long), and each run is added as one contiguous loop.
void scatter(const double* c, int32_t m, int32_t k, const int32_t* rd, double* blk, int32_t nr,
             ThreadScratch& ws) {
  int32_t* rel = ws.rel.data();
  int32_t* run = ws.run.data();  // run r covers rows run[r] .. run[r+1]
  int32_t nrun = 0;
  for (int32_t i = 0; i < m; ++i) {
    rel[i] = ws.pos[rd[i]];
    if (i == 0 || rel[i] != rel[i - 1] + 1) run[nrun++] = i;
  }
  run[nrun] = m;
  int32_t r = 0;
  for (int32_t j = 0; j < k; ++j) {
    while (run[r + 1] <= j) ++r;
    double* dst = blk + static_cast<int64_t>(rel[j]) * nr;  // rel[j] = column of s, j < k
    const double* src = c + static_cast<int64_t>(j) * m;
    for (int32_t q = r; q < nrun; ++q) {
      const int32_t lo = q == r ? j : run[q], hi = run[q + 1];
      double* out = dst + rel[lo] - lo;
      for (int32_t i = lo; i < hi; ++i) out[i] += src[i];
    }
  }
}

void SupernodeFactor::pull(int32_t s, ThreadScratch& ws) {
  double t0 = wall_seconds();
  const int32_t f = sf_.super_start[s], nr = sf_.nrows(s);
  const int32_t* rs = sf_.rows.data() + sf_.row_ptr[s];
  double* blk = nf_.values.data() + sf_.value_ptr[s];
  for (int32_t i = 0; i < nr; ++i) ws.pos[rs[i]] = i;
  for (int64_t u = sf_.upd_ptr[s]; u < sf_.upd_ptr[s + 1]; ++u) {
    const int32_t d = sf_.upd_d[u], r0 = sf_.upd_r0[u], r1 = sf_.upd_r1[u];
    const int32_t nrd = sf_.nrows(d), wd = sf_.ncols(d), fd = sf_.super_start[d];
    const int32_t m = nrd - r0, k = r1 - r0;
    const int32_t* rd = sf_.rows.data() + sf_.row_ptr[d];
    const double* ld = nf_.values.data() + sf_.value_ptr[d];
    const double* b = ld + r0;
    int64_t ldb = nrd;
    if (ldlt_) {  // b = L_d(r0:r1, :) D_d
      double* sc = ws.scaled.data();
      for (int32_t c = 0; c < wd; ++c) {
        const double dc = nf_.d[fd + c];
        for (int32_t i = 0; i < k; ++i) sc[i + static_cast<int64_t>(c) * k] = ld[r0 + i + static_cast<int64_t>(c) * nrd] * dc;
      }
      b = sc;
      ldb = k;
    }
    const int32_t first = ws.pos[rd[r0]];
    if (ws.pos[rd[nrd - 1]] - first == m - 1) {
      // The rows of d are contiguous in s: update in place.
      double* c = blk + first + static_cast<int64_t>(rd[r0] - f) * nr;
      update_into(d, r0, r1, b, ldb, 1.0, c, nr, ws);
      continue;
    }
    double* c = ws.update.data();
    update_into(d, r0, r1, b, ldb, 0.0, c, m, ws);
    double t1 = wall_seconds();
    scatter(c, m, k, rd + r0, blk, nr, ws);
    ws.timers.store += wall_seconds() - t1;
    ++ws.timers.n_store;
  }
  ws.timers.pull += wall_seconds() - t0;
  ++ws.timers.n_pull;
}

double SupernodeFactor::checked_pivot(int32_t col, double d, ThreadScratch& ws) {
  const double sgn = nf_.sign[col] < 0 ? -1.0 : 1.0;
  if (sgn * d > tau_ && std::isfinite(d)) {
    double a = std::fabs(d);
    if (ws.max_pivot == 0.0 || a > ws.max_pivot) ws.max_pivot = a;
    if (ws.min_pivot == 0.0 || a < ws.min_pivot) ws.min_pivot = a;
    return d;
  }
  ws.perturbed.push_back(sf_.perm[col]);
  if (rule_.replacement == PivotReplacement::kRegularize) {
    double a = std::isfinite(d) ? std::fabs(d) : 0.0;
    return sgn * std::max(a, std::max(rule_.regularization * scale_, tau_ * 2.0));
  }
  return sgn * kHugePivot;
}

// Column-by-column Cholesky of the b x b diagonal block of a panel.
void SupernodeFactor::diag_cholesky(double* p, int64_t ld, int32_t b, int32_t col0,
                                    ThreadScratch& ws) {
  for (int32_t j = 0; j < b; ++j) {
    double* cj = p + j * ld;
    for (int32_t k = 0; k < j; ++k) {
      const double t = p[j + k * ld];
      if (t == 0.0) continue;
      const double* ck = p + k * ld;
      for (int32_t i = j; i < b; ++i) cj[i] -= ck[i] * t;
    }
    const double l = std::sqrt(checked_pivot(col0 + j, cj[j], ws));
    cj[j] = l;
    const double inv = 1.0 / l;
    for (int32_t i = j + 1; i < b; ++i) cj[i] *= inv;
  }
}

void SupernodeFactor::diag_ldlt(double* p, int64_t ld, int32_t b, int32_t col0,
                                ThreadScratch& ws) {
  const double* dd = nf_.d.data() + col0;
  for (int32_t j = 0; j < b; ++j) {
    double* cj = p + j * ld;
    for (int32_t k = 0; k < j; ++k) {
      const double t = p[j + k * ld] * dd[k];
      if (t == 0.0) continue;
      const double* ck = p + k * ld;
      for (int32_t i = j; i < b; ++i) cj[i] -= ck[i] * t;
    }
    const double piv = checked_pivot(col0 + j, cj[j], ws);
    nf_.d[col0 + j] = piv;
    cj[j] = 1.0;
    const double inv = 1.0 / piv;
    for (int32_t i = j + 1; i < b; ++i) cj[i] *= inv;
  }
}

// Panel-by-panel factorization of the supernode's columns (right-looking inside s).
void SupernodeFactor::factor(int32_t s, ThreadScratch& ws) {
  const int32_t f = sf_.super_start[s], nr = sf_.nrows(s), w = sf_.ncols(s);
  const int32_t nb = sf_.panel_width;
  double* blk = nf_.values.data() + sf_.value_ptr[s];
  for (int32_t c0 = 0; c0 < w; c0 += nb) {
    const int32_t b = std::min(nb, w - c0);
    double* p = blk + c0 + static_cast<int64_t>(c0) * nr;
    double t0 = wall_seconds();
    if (ldlt_)
      diag_ldlt(p, nr, b, f + c0, ws);
    else
      diag_cholesky(p, nr, b, f + c0, ws);
    dense::count(ws.dense, DenseKernel::kPotf, b * (b + 1.0) * (b + 2.0) / 3.0,
                 wall_seconds() - t0);
    const int32_t below = nr - c0 - b;
    dense::trsm_right_lt(ws.dense, below, b, p, nr, p + b, nr, ldlt_);
    if (ldlt_) {
      for (int32_t c = 0; c < b; ++c) {
        const double inv = 1.0 / nf_.d[f + c0 + c];
        double* col = p + static_cast<int64_t>(c) * nr;
        for (int32_t i = b; i < nr - c0; ++i) col[i] *= inv;
      }
    }
    ws.timers.factor += wall_seconds() - t0;
    ++ws.timers.n_factor;
    const int32_t rest = w - c0 - b;
    if (rest <= 0) continue;
    t0 = wall_seconds();
    double* t = blk + (c0 + b) + static_cast<int64_t>(c0 + b) * nr;
    if (ldlt_) {
      double* sc = ws.scaled.data();
      for (int32_t c = 0; c < b; ++c) {
        const double dc = nf_.d[f + c0 + c];
        for (int32_t i = 0; i < rest; ++i)
          sc[i + static_cast<int64_t>(c) * rest] = p[b + i + static_cast<int64_t>(c) * nr] * dc;
      }
      dense::gemm_nt(ws.dense, nr - c0 - b, rest, b, -1.0, p + b, nr, sc, rest, 1.0, t, nr);
    } else {
      dense::syrk_ln(ws.dense, rest, b, -1.0, p + b, nr, 1.0, t, nr);
      dense::gemm_nt(ws.dense, nr - w, rest, b, -1.0, p + (w - c0), nr, p + b, nr, 1.0, t + rest,
                     nr);
    }
    ws.timers.gemm += wall_seconds() - t0;
    ++ws.timers.n_gemm;
  }
}

}  // namespace

void numeric_setup(const SymbolicFactor& sf, FactorType type, int32_t num_threads,
                   NumericFactor& nf, std::vector<ThreadScratch>& scratch) {
  platform::assign_prefaulted(nf.values, sf.value_ptr.empty() ? 0 : sf.value_ptr[sf.nsuper], 0.0);
  platform::assign_prefaulted(nf.d, type == FactorType::kLdlt ? sf.n : 0, 0.0);
  platform::assign_prefaulted(nf.sign, sf.n, 1);
  nf.perturbed.clear();
  nf.perturbed.reserve(sf.n);
  nf.valid = false;
  scratch.resize(std::max(1, num_threads));
  for (ThreadScratch& ws : scratch) {
    platform::assign_prefaulted(ws.update, std::max<int64_t>(sf.max_update, 1), 0.0);
    platform::assign_prefaulted(ws.scaled, type == FactorType::kLdlt ? std::max<int64_t>(sf.max_scaled, 1) : 1, 0.0);
    platform::assign_prefaulted(ws.pos, std::max(sf.n, 1), 0);
    platform::assign_prefaulted(ws.rel, std::max(sf.max_rows, 1), 0);
    platform::assign_prefaulted(ws.run, std::max(sf.max_rows, 1) + 1, 0);
    ws.perturbed.clear();
    ws.perturbed.reserve(sf.n);
  }
}

Status numeric_factor(const SymbolicFactor& sf, const double* ax, const int8_t* signs,
                      const PivotRule& rule, int32_t num_threads, NumericFactor& nf,
                      std::vector<ThreadScratch>& scratch) {
  if (ax == nullptr && sf.nnz_a > 0) return Status::kInvalidInput;
  nf.valid = false;
  nf.max_diag = 0.0;
  for (int32_t j = 0; j < sf.n; ++j) {
    const double a = sf.diag_src[j] >= 0 ? ax[sf.diag_src[j]] : 0.0;
    if (std::isfinite(a)) nf.max_diag = std::max(nf.max_diag, std::fabs(a));
    int8_t sg = 1;
    if (rule.type == FactorType::kLdlt) sg = signs != nullptr ? signs[sf.perm[j]] : (a < 0 ? -1 : 1);
    nf.sign[j] = sg < 0 ? -1 : 1;
  }
  const int32_t threads = std::max(1, std::min(num_threads, static_cast<int32_t>(scratch.size())));
  for (ThreadScratch& ws : scratch) {
    ws.perturbed.clear();
    ws.min_pivot = ws.max_pivot = 0.0;
  }
  SupernodeFactor fac(sf, ax, rule, nf);
  const int previous = dense::blas_get_threads();
  const int32_t ngroups = static_cast<int32_t>(sf.leaf_groups.size());
  // Below a few million flops the fork-join costs more than it saves.
  constexpr double kParallelFlops = 2e7;
  if (threads > 1 && ngroups > 1 && sf.flops >= kParallelFlops) {
    dense::blas_set_threads(1);
#pragma omp parallel for num_threads(threads) schedule(dynamic, 1)
    for (int32_t g = 0; g < ngroups; ++g) {
      ThreadScratch& ws = scratch[omp_get_thread_num()];
      const int32_t root = sf.leaf_groups[g];
      for (int32_t s = sf.first_desc[root]; s <= root; ++s) fac.run(s, ws);
    }
    dense::blas_set_threads(threads);
    for (int32_t s : sf.root_part) fac.run(s, scratch[0]);
  } else {
    dense::blas_set_threads(sf.flops >= kParallelFlops ? threads : 1);
    for (int32_t s = 0; s < sf.nsuper; ++s) fac.run(s, scratch[0]);
  }
  if (previous > 0) dense::blas_set_threads(previous);
  nf.perturbed.clear();
  nf.min_pivot = nf.max_pivot = 0.0;
  for (ThreadScratch& ws : scratch) {
    nf.perturbed.insert(nf.perturbed.end(), ws.perturbed.begin(), ws.perturbed.end());
    if (ws.max_pivot > nf.max_pivot) nf.max_pivot = ws.max_pivot;
    if (ws.min_pivot > 0.0 && (nf.min_pivot == 0.0 || ws.min_pivot < nf.min_pivot))
      nf.min_pivot = ws.min_pivot;
  }
  std::sort(nf.perturbed.begin(), nf.perturbed.end());
  nf.valid = true;
  return Status::kOk;
}

namespace {

// Below this block size (w x nr entries) a supernode's part of a one-vector solve is done by
// plain loops: a BLAS call costs more than the arithmetic.
constexpr int64_t kSmallSolveBlock = 2048;

bool small_block(int32_t w, int32_t nr) {
  return static_cast<int64_t>(w) * nr <= kSmallSolveBlock;
}

// y(f..f+w) = L_s^{-1} y(f..f+w), then y(rows below) -= L_s(below, :) y(f..f+w).
void forward_small(const double* l, int32_t w, int32_t nr, const int32_t* rs, bool unit,
                   double* y, int32_t f) {
  for (int32_t j = 0; j < w; ++j) {
    const double* col = l + static_cast<int64_t>(j) * nr;
    double yj = y[f + j];
    if (!unit) yj /= col[j];
    y[f + j] = yj;
    if (yj == 0.0) continue;
    for (int32_t i = j + 1; i < w; ++i) y[f + i] -= col[i] * yj;
    for (int32_t i = w; i < nr; ++i) y[rs[i - w]] -= col[i] * yj;
  }
}

// y(f..f+w) = L_s^{-T} (y(f..f+w) - L_s(below, :)' y(rows below)).
void backward_small(const double* l, int32_t w, int32_t nr, const int32_t* rs, bool unit,
                    double* y, int32_t f) {
  for (int32_t j = w - 1; j >= 0; --j) {
    const double* col = l + static_cast<int64_t>(j) * nr;
    double t = y[f + j];
    for (int32_t i = w; i < nr; ++i) t -= col[i] * y[rs[i - w]];
    for (int32_t i = j + 1; i < w; ++i) t -= col[i] * y[f + i];
    y[f + j] = unit ? t : t / col[j];
  }
}

void forward(const SymbolicFactor& sf, const NumericFactor& nf, bool unit, double* y,
             int32_t nrhs, double* tmp, ThreadScratch& ws) {
  const int32_t n = sf.n;
  for (int32_t s = 0; s < sf.nsuper; ++s) {
    const double t0 = s == sf.nsuper - 1 ? wall_seconds() : 0.0;
    const int32_t f = sf.super_start[s], w = sf.ncols(s), nr = sf.nrows(s), below = nr - w;
    const double* l = nf.values.data() + sf.value_ptr[s];
    const int32_t* rs = sf.rows.data() + sf.row_ptr[s] + w;
    double* ys = y + f;
    if (nrhs == 1 && small_block(w, nr)) {
      forward_small(l, w, nr, rs, unit, y, f);
    } else if (nrhs == 1) {
      dense::trsv_l(ws.dense, w, l, nr, ys, false, unit);
      if (below > 0) {
        dense::gemv(ws.dense, false, below, w, 1.0, l + w, nr, ys, 0.0, tmp);
        for (int32_t i = 0; i < below; ++i) y[rs[i]] -= tmp[i];
      }
    } else {
      dense::trsm_left_l(ws.dense, w, nrhs, l, nr, ys, n, false, unit);
      if (below > 0) {
        dense::gemm_nn(ws.dense, below, nrhs, w, 1.0, l + w, nr, ys, n, 0.0, tmp, below);
        for (int32_t r = 0; r < nrhs; ++r)
          for (int32_t i = 0; i < below; ++i)
            y[rs[i] + static_cast<int64_t>(r) * n] -= tmp[i + static_cast<int64_t>(r) * below];
      }
    }
    if (s == sf.nsuper - 1) {
      ws.timers.l_solve_last += wall_seconds() - t0;
      ++ws.timers.n_l_solve_last;
    }
  }
}

void backward(const SymbolicFactor& sf, const NumericFactor& nf, bool unit, double* y,
              int32_t nrhs, double* tmp, ThreadScratch& ws) {
  const int32_t n = sf.n;
  for (int32_t s = sf.nsuper - 1; s >= 0; --s) {
    const double t0 = s == sf.nsuper - 1 ? wall_seconds() : 0.0;
    const int32_t f = sf.super_start[s], w = sf.ncols(s), nr = sf.nrows(s), below = nr - w;
    const double* l = nf.values.data() + sf.value_ptr[s];
    const int32_t* rs = sf.rows.data() + sf.row_ptr[s] + w;
    double* ys = y + f;
    if (nrhs == 1 && small_block(w, nr)) {
      backward_small(l, w, nr, rs, unit, y, f);
    } else {
      if (below > 0) {
        for (int32_t r = 0; r < nrhs; ++r)
          for (int32_t i = 0; i < below; ++i)
            tmp[i + static_cast<int64_t>(r) * below] = y[rs[i] + static_cast<int64_t>(r) * n];
        if (nrhs == 1)
          dense::gemv(ws.dense, true, below, w, -1.0, l + w, nr, tmp, 1.0, ys);
        else
          dense::gemm_tn(ws.dense, w, nrhs, below, -1.0, l + w, nr, tmp, below, 1.0, ys, n);
      }
      if (nrhs == 1)
        dense::trsv_l(ws.dense, w, l, nr, ys, true, unit);
      else
        dense::trsm_left_l(ws.dense, w, nrhs, l, nr, ys, n, true, unit);
    }
    if (s == sf.nsuper - 1) {
      ws.timers.lt_solve_last += wall_seconds() - t0;
      ++ws.timers.n_lt_solve_last;
    }
  }
}

}  // namespace

void numeric_solve(const SymbolicFactor& sf, const NumericFactor& nf, FactorType type,
                   double* b, int32_t nrhs, int64_t ldb, std::vector<double>& work,
                   ThreadScratch& ws) {
  const int32_t n = sf.n;
  const int64_t need = static_cast<int64_t>(n) * nrhs + static_cast<int64_t>(sf.max_rows) * nrhs;
  if (static_cast<int64_t>(work.size()) < need) work.resize(need);
  double* y = work.data();
  double* tmp = y + static_cast<int64_t>(n) * nrhs;
  for (int32_t r = 0; r < nrhs; ++r)
    for (int32_t k = 0; k < n; ++k)
      y[k + static_cast<int64_t>(r) * n] = b[sf.perm[k] + r * ldb];
  const bool unit = type == FactorType::kLdlt;
  double t0 = wall_seconds();
  forward(sf, nf, unit, y, nrhs, tmp, ws);
  ws.timers.l_solve += wall_seconds() - t0;
  ++ws.timers.n_l_solve;
  if (unit)
    for (int32_t r = 0; r < nrhs; ++r)
      for (int32_t k = 0; k < n; ++k) y[k + static_cast<int64_t>(r) * n] /= nf.d[k];
  t0 = wall_seconds();
  backward(sf, nf, unit, y, nrhs, tmp, ws);
  ws.timers.lt_solve += wall_seconds() - t0;
  ++ws.timers.n_lt_solve;
  for (int32_t r = 0; r < nrhs; ++r)
    for (int32_t k = 0; k < n; ++k)
      b[sf.perm[k] + r * ldb] = y[k + static_cast<int64_t>(r) * n];
}

}  // namespace qubor::linalg
