// The one door to BLAS and LAPACK for the sparse factorization.
//
// All dense blocks are column-major with an explicit leading dimension. Each call is counted
// in the DenseStats record passed with it (one record per thread, summed by the caller in a
// fixed order), together with its flop count and, for calls of at least 5e4 flops, its wall
// time, so that the factorization can report how much of its time went into level-3 kernels.
//
// BLAS threading: the factorization runs independent subtrees on separate OpenMP threads and
// must then call a single-threaded BLAS; around the top of the tree it lets BLAS use several
// threads. blas_set_threads() switches between the two when the BLAS library exposes a
// thread-count control; it is a no-op otherwise.
#pragma once

#include <cstdint>

namespace qubor::linalg {

enum class DenseKernel : int { kGemm = 0, kSyrk, kTrsm, kGemv, kTrsv, kPotf, kCount };

struct DenseStats {
  int64_t calls[static_cast<int>(DenseKernel::kCount)] = {};
  double flops[static_cast<int>(DenseKernel::kCount)] = {};
  double seconds[static_cast<int>(DenseKernel::kCount)] = {};
  void add(const DenseStats& other);
  void clear() { *this = DenseStats(); }
  double total_flops() const;
};

namespace dense {

// C(m x n) = alpha * A(m x k) * B(n x k)' + beta * C.
void gemm_nt(DenseStats& st, int m, int n, int k, double alpha, const double* a, int64_t lda,
             const double* b, int64_t ldb, double beta, double* c, int64_t ldc);
// C(m x n) = alpha * A(k x m)' * B(k x n) + beta * C.
void gemm_tn(DenseStats& st, int m, int n, int k, double alpha, const double* a, int64_t lda,
             const double* b, int64_t ldb, double beta, double* c, int64_t ldc);
// C(m x n) = alpha * A(m x k) * B(k x n) + beta * C.
void gemm_nn(DenseStats& st, int m, int n, int k, double alpha, const double* a, int64_t lda,
             const double* b, int64_t ldb, double beta, double* c, int64_t ldc);
// Lower triangle of C(n x n) = alpha * A(n x k) * A' + beta * C.
void syrk_ln(DenseStats& st, int n, int k, double alpha, const double* a, int64_t lda,
             double beta, double* c, int64_t ldc);
// B(m x n) = B * L^{-T}, L(n x n) lower triangular; unit diagonal when `unit`.
void trsm_right_lt(DenseStats& st, int m, int n, const double* l, int64_t ldl, double* b,
                   int64_t ldb, bool unit);
// B(n x nrhs) = L^{-1} B, or L^{-T} B when `trans`; L(n x n) lower, unit diagonal when `unit`.
void trsm_left_l(DenseStats& st, int n, int nrhs, const double* l, int64_t ldl, double* b,
                 int64_t ldb, bool trans, bool unit);
// x = L^{-1} x, or L^{-T} x when `trans`; L(n x n) lower, unit diagonal when `unit`.
void trsv_l(DenseStats& st, int n, const double* l, int64_t ldl, double* x, bool trans,
            bool unit);
// y = alpha * A(m x n) x + beta * y, or A' x when `trans`.
void gemv(DenseStats& st, bool trans, int m, int n, double alpha, const double* a, int64_t lda,
          const double* x, double beta, double* y);

// Records a hand-written kernel (the pivot-checking diagonal factorization) in the counters.
void count(DenseStats& st, DenseKernel k, double flops, double seconds);

// BLAS thread control (see file comment). Returns the previous setting, or 0 when unknown.
int blas_set_threads(int num_threads);
int blas_get_threads();

}  // namespace dense
}  // namespace qubor::linalg
