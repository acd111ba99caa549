// Counting and timing wrappers over CBLAS; see dense_kernels.h.
#include "linalg/dense/dense_kernels.h"

#include <cblas.h>

#include "linalg/common/status.h"

// Thread-count control of the BLAS library, when it offers one. Weak, so that another BLAS
// without these entry points still links; then the calls are skipped.
extern "C" {
void openblas_set_num_threads(int) __attribute__((weak));
int openblas_get_num_threads(void) __attribute__((weak));
}

namespace qubor::linalg {

void DenseStats::add(const DenseStats& other) {
  for (int k = 0; k < static_cast<int>(DenseKernel::kCount); ++k) {
    calls[k] += other.calls[k];
    flops[k] += other.flops[k];
    seconds[k] += other.seconds[k];
  }
}

double DenseStats::total_flops() const {
  double s = 0.0;
  for (double f : flops) s += f;
  return s;
}

namespace dense {
namespace {

// Books one kernel call; calls above kTimedFlops are also timed (reading the clock costs as
// much as a tiny kernel, so the many small calls are counted but not timed).
constexpr double kTimedFlops = 5e4;

class Booking {
 public:
  Booking(DenseStats& st, DenseKernel k, double flops)
      : st_(st), k_(static_cast<int>(k)), timed_(flops >= kTimedFlops) {
    st_.calls[k_] += 1;
    st_.flops[k_] += flops;
    t0_ = timed_ ? wall_seconds() : 0.0;
  }
  ~Booking() {
    if (timed_) st_.seconds[k_] += wall_seconds() - t0_;
  }
  Booking(const Booking&) = delete;
  Booking& operator=(const Booking&) = delete;

 private:
  DenseStats& st_;
  int k_;
  bool timed_;
  double t0_;
};

}  // namespace

void gemm_nt(DenseStats& st, int m, int n, int k, double alpha, const double* a, int64_t lda,
             const double* b, int64_t ldb, double beta, double* c, int64_t ldc) {
  if (m <= 0 || n <= 0) return;
  Booking book(st, DenseKernel::kGemm, 2.0 * m * n * k);
  cblas_dgemm(CblasColMajor, CblasNoTrans, CblasTrans, m, n, k, alpha, a, static_cast<int>(lda),
              b, static_cast<int>(ldb), beta, c, static_cast<int>(ldc));
}

void gemm_tn(DenseStats& st, int m, int n, int k, double alpha, const double* a, int64_t lda,
             const double* b, int64_t ldb, double beta, double* c, int64_t ldc) {
  if (m <= 0 || n <= 0) return;
  Booking book(st, DenseKernel::kGemm, 2.0 * m * n * k);
  cblas_dgemm(CblasColMajor, CblasTrans, CblasNoTrans, m, n, k, alpha, a, static_cast<int>(lda),
              b, static_cast<int>(ldb), beta, c, static_cast<int>(ldc));
}

void gemm_nn(DenseStats& st, int m, int n, int k, double alpha, const double* a, int64_t lda,
             const double* b, int64_t ldb, double beta, double* c, int64_t ldc) {
  if (m <= 0 || n <= 0) return;
  Booking book(st, DenseKernel::kGemm, 2.0 * m * n * k);
  cblas_dgemm(CblasColMajor, CblasNoTrans, CblasNoTrans, m, n, k, alpha, a,
              static_cast<int>(lda), b, static_cast<int>(ldb), beta, c, static_cast<int>(ldc));
}

void syrk_ln(DenseStats& st, int n, int k, double alpha, const double* a, int64_t lda,
             double beta, double* c, int64_t ldc) {
  if (n <= 0) return;
  Booking book(st, DenseKernel::kSyrk, 1.0 * n * (n + 1) * k);
  cblas_dsyrk(CblasColMajor, CblasLower, CblasNoTrans, n, k, alpha, a, static_cast<int>(lda),
              beta, c, static_cast<int>(ldc));
}

void trsm_right_lt(DenseStats& st, int m, int n, const double* l, int64_t ldl, double* b,
                   int64_t ldb, bool unit) {
  if (m <= 0 || n <= 0) return;
  Booking book(st, DenseKernel::kTrsm, 1.0 * m * n * n);
  cblas_dtrsm(CblasColMajor, CblasRight, CblasLower, CblasTrans, unit ? CblasUnit : CblasNonUnit,
              m, n, 1.0, l, static_cast<int>(ldl), b, static_cast<int>(ldb));
}

void trsm_left_l(DenseStats& st, int n, int nrhs, const double* l, int64_t ldl, double* b,
                 int64_t ldb, bool trans, bool unit) {
  if (n <= 0 || nrhs <= 0) return;
  Booking book(st, DenseKernel::kTrsm, 1.0 * n * n * nrhs);
  cblas_dtrsm(CblasColMajor, CblasLeft, CblasLower, trans ? CblasTrans : CblasNoTrans,
              unit ? CblasUnit : CblasNonUnit, n, nrhs, 1.0, l, static_cast<int>(ldl), b,
              static_cast<int>(ldb));
}

void trsv_l(DenseStats& st, int n, const double* l, int64_t ldl, double* x, bool trans,
            bool unit) {
  if (n <= 0) return;
  Booking book(st, DenseKernel::kTrsv, 1.0 * n * n);
  cblas_dtrsv(CblasColMajor, CblasLower, trans ? CblasTrans : CblasNoTrans,
              unit ? CblasUnit : CblasNonUnit, n, l, static_cast<int>(ldl), x, 1);
}

void gemv(DenseStats& st, bool trans, int m, int n, double alpha, const double* a, int64_t lda,
          const double* x, double beta, double* y) {
  if (m <= 0 || n <= 0) return;
  Booking book(st, DenseKernel::kGemv, 2.0 * m * n);
  cblas_dgemv(CblasColMajor, trans ? CblasTrans : CblasNoTrans, m, n, alpha, a,
              static_cast<int>(lda), x, 1, beta, y, 1);
}

void count(DenseStats& st, DenseKernel k, double flops, double seconds) {
  st.calls[static_cast<int>(k)] += 1;
  st.flops[static_cast<int>(k)] += flops;
  st.seconds[static_cast<int>(k)] += seconds;
}

int blas_set_threads(int num_threads) {
  int previous = blas_get_threads();
  if (openblas_set_num_threads != nullptr && num_threads > 0) openblas_set_num_threads(num_threads);
  return previous;
}

int blas_get_threads() {
  return openblas_get_num_threads != nullptr ? openblas_get_num_threads() : 0;
}

}  // namespace dense
}  // namespace qubor::linalg
