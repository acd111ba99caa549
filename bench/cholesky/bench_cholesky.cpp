// bench_cholesky: ordering, analysis, factorization and solve of the sparse Cholesky.
//
//   bench_cholesky [--threads 1,2] [--order free|appminloc|experimental|try|force|none]
//                  [--runs R] [--compare] [--summary] [--log] [--cpu] input...
//   bench_cholesky --dgemm      (reference dgemm rate, 1 and 2 threads)
//   input: grid2d:K | grid3d:K | file.mtx[.gz] | file.mps[.gz] | file.qps[.gz]
//
// One line per input and thread count: n, nnz(A) (of the source matrix), nnz(L), flops,
// ordering, analysis, numeric factor and solve times (seconds, best of R runs for factor
// and solve), relative residual ||Ax-b||/||b||, GFLOP/s of the factorization. With
// --compare (when built with the peer library) a second line gives the peer's fill with its
// AMD and METIS orderings, its ordering times, and its factor and solve times with our
// permutation, with our/peer ratios. --cpu measures factor and solve in process CPU time
// instead of wall time (for one thread on a loaded machine).
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "linalg/cholesky/sparse_cholesky.h"
#include "linalg/dense/dense_kernels.h"
#include "matrix_sources.h"
#include "peer_compare.h"

using namespace qubor;
using namespace qubor::linalg;

namespace {

struct Args {
  std::vector<int> threads{1};
  OrderMethod method = OrderMethod::kFree;
  int runs = 3;
  bool compare = false, summary = false, log = false;
  std::vector<std::string> inputs;
};

bool ends_with(const std::string& s, const char* suffix) {
  size_t n = std::strlen(suffix);
  return s.size() >= n && s.compare(s.size() - n, n, suffix) == 0;
}

bool load(const std::string& in, bench::LowerMatrix& a) {
  if (in.rfind("grid2d:", 0) == 0) { a = bench::grid_laplacian(2, std::stoi(in.substr(7))); return true; }
  if (in.rfind("grid3d:", 0) == 0) { a = bench::grid_laplacian(3, std::stoi(in.substr(7))); return true; }
  std::string error;
  if (ends_with(in, ".mtx") || ends_with(in, ".mtx.gz")) {
    if (bench::read_matrix_market(in, a, error)) return true;
  } else {
    bench::SparseMatrix m;
    if (bench::read_mps_matrix(in, m, error)) {
      a = bench::normal_equations(m, 12345, in.substr(in.find_last_of('/') + 1));
      return true;
    }
  }
  std::fprintf(stderr, "%s: %s\n", in.c_str(), error.c_str());
  return false;
}

// y = A x for the symmetric matrix given by its lower triangle.
void sym_matvec(const bench::LowerMatrix& a, const std::vector<double>& x, std::vector<double>& y) {
  y.assign(a.n, 0.0);
  for (int32_t j = 0; j < a.n; ++j)
    for (int64_t p = a.colptr[j]; p < a.colptr[j + 1]; ++p) {
      int32_t i = a.rowind[p];
      y[i] += a.values[p] * x[j];
      if (i != j) y[j] += a.values[p] * x[i];
    }
}

double norm(const std::vector<double>& v) {
  double s = 0;
  for (double x : v) s += x * x;
  return std::sqrt(s);
}

void run(const bench::LowerMatrix& a, int threads, const Args& args) {
  SparseCholeskyOptions opt;
  opt.order_method = args.method;
  opt.num_threads = threads;
  SparseCholesky chol;
  LogSink log_sink{[](void*, const char* text) { std::fputs(text, stdout); }, nullptr, 2};
  const double t0 = linalg::wall_seconds();
  Status s = chol.analyse({a.n, a.colptr.data(), a.rowind.data()}, opt,
                          args.log ? &log_sink : nullptr);
  const double t_total = linalg::wall_seconds() - t0;
  if (s != Status::kOk) { std::printf("%s: analyse failed: %s\n", a.name.c_str(), status_name(s)); return; }
  const CholeskyStatistics& st0 = chol.statistics();
  const double t_order = st0.ml_order_time + st0.gp_order_time;
  const double t_analyse = t_total - t_order;
  double t_factor = 1e300, t_solve = 1e300;
  for (int r = 0; r < args.runs; ++r) {
    double t = bench::clock_seconds();
    chol.factor(a.values.data());
    t_factor = std::min(t_factor, bench::clock_seconds() - t);
  }
  std::vector<double> xtrue(a.n), b, x, ax;
  std::mt19937_64 rng(7);
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  for (double& v : xtrue) v = u(rng);
  sym_matvec(a, xtrue, b);
  for (int r = 0; r < args.runs; ++r) {
    x = b;
    double t = bench::clock_seconds();
    chol.solve(x.data(), 1, a.n);
    t_solve = std::min(t_solve, bench::clock_seconds() - t);
  }
  sym_matvec(a, x, ax);
  for (int32_t i = 0; i < a.n; ++i) ax[i] -= b[i];
  const double resid = norm(ax) / std::max(norm(b), 1e-300);
  std::printf("%-14s thr=%d n=%-8d nnzA=%-9lld nnzL=%-10lld flops=%.3e order=%.3f analyse=%.3f "
              "factor=%.4f solve=%.4f resid=%.1e gflops=%.2f%s\n",
              a.name.c_str(), threads, a.n, static_cast<long long>(a.nnz_source),
              static_cast<long long>(chol.nnz_l()), chol.flops(), t_order, t_analyse, t_factor,
              t_solve, resid, chol.flops() / t_factor * 1e-9,
              chol.ordering().gp_taken ? " (nd)" : "");
  if (args.summary) {
    LogSink sink{[](void*, const char* text) { std::fputs(text, stdout); }, nullptr, 2};
    chol.print_summary(&sink);
  }
  if (args.compare && bench::peer_available()) {
    dense::blas_set_threads(threads);
    bench::PeerResult p = bench::peer_compare(a, chol.permutation(), args.runs);
    const double best = static_cast<double>(std::min(p.nnz_l_amd, p.nnz_l_metis));
    std::printf("%-14s thr=%d peer: nnzL amd=%lld metis=%lld same=%lld  fill ratio=%.3f  "
                "order amd=%.3f metis=%.3f  ours/amd=%.2f  factor=%.4f ratio=%.2f  "
                "solve=%.4f ratio=%.2f  super=%d/%lld stored=%lld/%lld%s\n",
                a.name.c_str(), threads, static_cast<long long>(p.nnz_l_amd),
                static_cast<long long>(p.nnz_l_metis), static_cast<long long>(p.nnz_l_same),
                static_cast<double>(chol.nnz_l()) / best, p.order_amd, p.order_metis,
                st0.ml_order_time / std::max(p.order_amd, 1e-9), p.factor_same,
                t_factor / p.factor_same, p.solve_same, t_solve / p.solve_same, st0.supers,
                static_cast<long long>(p.nsuper_same), static_cast<long long>(st0.stored_l),
                static_cast<long long>(p.stored_same),
                p.ok ? "" : " (peer failed)");
  }
  std::fflush(stdout);
}

bool parse(int argc, char** argv, Args& args) {
  for (int i = 1; i < argc; ++i) {
    std::string a = argv[i];
    if (a == "--threads" && i + 1 < argc) {
      args.threads.clear();
      std::string list = argv[++i];
      for (size_t p = 0; p < list.size();) {
        size_t q = list.find(',', p);
        args.threads.push_back(std::stoi(list.substr(p, q - p)));
        p = q == std::string::npos ? list.size() : q + 1;
      }
    } else if (a == "--order" && i + 1 < argc) {
      std::string m = argv[++i];
      const char* names[] = {"free", "appminloc", "experimental", "try", "force", "none"};
      bool found = false;
      for (int k = 0; k < 6; ++k)
        if (m == names[k]) { args.method = static_cast<OrderMethod>(k); found = true; }
      if (!found) return false;
    } else if (a == "--runs" && i + 1 < argc) {
      args.runs = std::max(1, std::stoi(argv[++i]));
    } else if (a == "--compare") {
      args.compare = true;
    } else if (a == "--cpu") {
      bench::cpu_clock = true;
    } else if (a == "--log") {
      args.log = true;
    } else if (a == "--summary") {
      args.summary = true;
    } else if (!a.empty() && a[0] == '-') {
      return false;
    } else {
      args.inputs.push_back(a);
    }
  }
  return !args.inputs.empty();
}

}  // namespace

// Single-call dgemm rate (n x n x n) through the same wrapper, for the BLAS-fraction target.
void dgemm_rate(int threads) {
  const int n = 2000;
  std::vector<double> a(static_cast<size_t>(n) * n, 0.5), b(a), c(a);
  DenseStats st;
  dense::blas_set_threads(threads);
  double best = 1e300;
  for (int r = 0; r < 3; ++r) {
    double t = linalg::wall_seconds();
    dense::gemm_nt(st, n, n, n, -1.0, a.data(), n, b.data(), n, 1.0, c.data(), n);
    best = std::min(best, linalg::wall_seconds() - t);
  }
  std::printf("dgemm %dx%dx%d thr=%d: %.2f GFLOP/s\n", n, n, n, threads, 2.0 * n * n * n / best * 1e-9);
}

int main(int argc, char** argv) {
  if (argc == 2 && std::strcmp(argv[1], "--dgemm") == 0) {
    dgemm_rate(1);
    dgemm_rate(2);
    return 0;
  }
  Args args;
  if (!parse(argc, argv, args)) {
    std::fprintf(stderr,
                 "usage: bench_cholesky [--threads 1,2] [--order free|appminloc|experimental|try|"
                 "force|none] [--runs R] [--compare] [--summary] grid2d:K|grid3d:K|file.mtx|file.mps[.gz]...\n");
    return 2;
  }
  if (args.compare && !bench::peer_available())
    std::fprintf(stderr, "comparison mode not built (peer library not found)\n");
  for (const std::string& in : args.inputs) {
    bench::LowerMatrix a;
    if (!load(in, a)) continue;
    for (int t : args.threads) run(a, t, args);
  }
  return 0;
}
