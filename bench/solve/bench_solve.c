/* The optimizer's own time per model, through the public interface.
 *
 *   bench_solve [--threads N] [--param NAME VALUE]... FILE...
 *
 * Per file: read time, optimizer time (QBR_DINF_OPTIMIZER_TIME, full precision), presolve
 * time, interior-point iterations, solution status and primal objective, one line each, so
 * that a side-by-side comparison can charge this optimizer with its own solve time the way
 * the peers report theirs. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "qubor.h"

static double now(void) {
  struct timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return (double)ts.tv_sec + 1e-9 * (double)ts.tv_nsec;
}

int main(int argc, char **argv) {
  QBRenv_t env = NULL;
  int threads = 1, k;
  if (QBR_makeenv(&env, NULL) != QBR_RES_OK) return 1;
  printf("%-16s %9s %9s %9s %5s %-24s %s\n", "model", "read_s", "opt_s", "presolve_s", "iter",
         "solsta", "primal_obj");
  for (k = 1; k < argc; ++k) {
    if (!strcmp(argv[k], "--threads") && k + 1 < argc) {
      threads = atoi(argv[++k]);
      continue;
    }
    if (!strcmp(argv[k], "--param") && k + 2 < argc) {
      k += 2; /* applied per task below */
      continue;
    }
    QBRtask_t task = NULL;
    if (QBR_maketask(env, 0, 0, &task) != QBR_RES_OK) return 1;
    QBR_putintparam(task, QBR_IPAR_NUM_THREADS, threads);
    QBR_putintparam(task, QBR_IPAR_LOG, 0);
    for (int p = 1; p < k; ++p)
      if (!strcmp(argv[p], "--param") && p + 2 < argc) QBR_putparam(task, argv[p + 1], argv[p + 2]);
    double t0 = now();
    QBRrescode r = QBR_readdata(task, argv[k]);
    double read_s = now() - t0;
    if (r != QBR_RES_OK) {
      printf("%-16s read failed: %d\n", argv[k], (int)r);
      QBR_deletetask(&task);
      continue;
    }
    QBRrescode trm = QBR_RES_OK;
    r = QBR_optimizetrm(task, &trm);
    double opt_s = 0.0, pre_s = 0.0, pobj = 0.0;
    QBRint32t iter = 0, solsta = 0;
    QBR_getdouinf(task, QBR_DINF_OPTIMIZER_TIME, &opt_s);
    QBR_getdouinf(task, QBR_DINF_PRESOLVE_TIME, &pre_s);
    QBR_getintinf(task, QBR_IINF_INTPNT_ITER, &iter);
    QBR_getsolsta(task, QBR_SOL_ITR, &solsta);
    QBR_getprimalobj(task, QBR_SOL_ITR, &pobj);
    char name[64] = "?";
    QBR_solstatostr(task, solsta, name);
    const char *base = strrchr(argv[k], '/');
    printf("%-16s %9.4f %9.4f %9.4f %5d %-24s %.10e\n", base ? base + 1 : argv[k], read_s, opt_s,
           pre_s, (int)iter, r == QBR_RES_OK ? name : "ERROR", pobj);
    QBR_deletetask(&task);
  }
  QBR_deleteenv(&env);
  return 0;
}
