// Hot start of the dual simplex: for each model, a cold solve, then `changes` re-solves
// each after one random bound change of a variable, from the cold optimal basis (the bound
// and the basis are put back after each). Prints per model the cold iterations and time,
// the median iterations and time of a re-solve, and their ratios to the cold run.
//
//   bench_hotstart [--changes N] [--seed S] MODEL...
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "qubor.h"

namespace {

double now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

int32_t iterations(QBRtask_t task) {
  QBRint32t p = 0, d = 0;
  QBR_getintinf(task, QBR_IINF_SIM_PRIMAL_ITER, &p);
  QBR_getintinf(task, QBR_IINF_SIM_DUAL_ITER, &d);
  return p + d;
}

double median(std::vector<double> v) {
  if (v.empty()) return 0.0;
  std::sort(v.begin(), v.end());
  return v[v.size() / 2];
}

void run_model(QBRenv_t env, const char* path, int changes, std::mt19937& rng) {
  QBRtask_t task = nullptr;
  if (QBR_maketask(env, 0, 0, &task) != QBR_RES_OK || QBR_readdata(task, path) != QBR_RES_OK) {
    std::printf("%-40s read failed\n", path);
    QBR_deletetask(&task);
    return;
  }
  QBR_putintparam(task, QBR_IPAR_LOG, 0);
  QBR_putintparam(task, QBR_IPAR_OPTIMIZER, QBR_OPTIMIZER_DUAL_SIMPLEX);
  double t0 = now();
  QBR_optimize(task);
  const double cold_time = now() - t0;
  const int32_t cold_iter = iterations(task);
  QBRint32t n = 0, m = 0, solsta = 0;
  QBR_getnumvar(task, &n);
  QBR_getnumcon(task, &m);
  QBR_getsolsta(task, QBR_SOL_BAS, &solsta);
  if (solsta != QBR_SOL_STA_OPTIMAL || n == 0) {
    std::printf("%-40s cold solve not optimal\n", path);
    QBR_deletetask(&task);
    return;
  }
  std::vector<QBRint32t> skc(static_cast<size_t>(m)), skx(static_cast<size_t>(n));
  std::vector<double> xx(static_cast<size_t>(n));
  QBR_getskc(task, QBR_SOL_BAS, skc.data());
  QBR_getskx(task, QBR_SOL_BAS, skx.data());
  QBR_getxx(task, QBR_SOL_BAS, xx.data());
  std::vector<double> iters, times;
  int failed = 0;
  std::uniform_int_distribution<QBRint32t> pick(0, n - 1);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  for (int k = 0; k < changes; ++k) {
    const QBRint32t j = pick(rng);
    QBRint32t bk;
    double bl, bu;
    QBR_getvarbound(task, j, &bk, &bl, &bu);
    // Cut the variable's range at a random point around its optimal value: an upper bound
    // below it or a lower bound above it.
    const double v = xx[static_cast<size_t>(j)];
    const double width = std::max(1.0, std::fabs(v));
    if (unit(rng) < 0.5 && (bk == QBR_BK_LO || bk == QBR_BK_FR || bk == QBR_BK_RA || bk == QBR_BK_UP)) {
      const double up = v - unit(rng) * 0.5 * width;
      const double lo = (bk == QBR_BK_LO || bk == QBR_BK_RA) ? std::min(bl, up) : -1e30;
      QBR_putvarbound(task, j, lo > -1e30 ? QBR_BK_RA : QBR_BK_UP, lo, up);
    } else {
      const double lo = v + unit(rng) * 0.5 * width;
      const double up = (bk == QBR_BK_UP || bk == QBR_BK_RA) ? std::max(bu, lo) : 1e30;
      QBR_putvarbound(task, j, up < 1e30 ? QBR_BK_RA : QBR_BK_LO, lo, up);
    }
    QBR_putskc(task, QBR_SOL_BAS, skc.data());
    QBR_putskx(task, QBR_SOL_BAS, skx.data());
    t0 = now();
    const QBRrescode r = QBR_optimize(task);
    times.push_back(now() - t0);
    iters.push_back(iterations(task));
    QBRint32t s = 0;
    QBR_getsolsta(task, QBR_SOL_BAS, &s);
    if (r != QBR_RES_OK || (s != QBR_SOL_STA_OPTIMAL && s != QBR_SOL_STA_PRIM_INFEAS_CER)) ++failed;
    QBR_putvarbound(task, j, bk, bl, bu);
  }
  const double mi = median(iters), mt = median(times);
  std::printf("%-14s cold %7d it %8.4f s   re-solve median %7.1f it %8.5f s   ratio it %6.3f time %6.3f  failed %d\n",
              std::strrchr(path, '/') ? std::strrchr(path, '/') + 1 : path, cold_iter, cold_time, mi, mt,
              cold_iter > 0 ? mi / cold_iter : 0.0, cold_time > 0 ? mt / cold_time : 0.0, failed);
  QBR_deletetask(&task);
}

}  // namespace

int main(int argc, char** argv) {
  int changes = 100;
  unsigned seed = 1;
  std::vector<const char*> models;
  for (int a = 1; a < argc; ++a) {
    if (!std::strcmp(argv[a], "--changes") && a + 1 < argc) {
      changes = std::atoi(argv[++a]);
    } else if (!std::strcmp(argv[a], "--seed") && a + 1 < argc) {
      seed = static_cast<unsigned>(std::atoi(argv[++a]));
    } else {
      models.push_back(argv[a]);
    }
  }
  if (models.empty()) {
    std::fprintf(stderr, "usage: bench_hotstart [--changes N] [--seed S] MODEL...\n");
    return 2;
  }
  QBRenv_t env = nullptr;
  if (QBR_makeenv(&env, nullptr) != QBR_RES_OK) return 1;
  std::mt19937 rng(seed);
  for (const char* path : models) run_model(env, path, changes, rng);
  QBR_deleteenv(&env);
  return 0;
}
