/* A minimal program: create an environment and a task, route the task's log to standard
   output, set parameters by index, by name and from text, and print them back. */
#include <stdio.h>

#include "qubor.h"

static void print_line(void *handle, const char *str) {
  (void)handle;
  fputs(str, stdout);
}

int main(void) {
  QBRenv_t env = NULL;
  QBRtask_t task = NULL;
  QBRrescode r = QBR_makeenv(&env, NULL);
  if (r == QBR_RES_OK) r = QBR_maketask(env, 0, 0, &task);
  if (r == QBR_RES_OK) r = QBR_linkfunctotaskstream(task, QBR_STREAM_LOG, NULL, print_line);
  if (r == QBR_RES_OK) r = QBR_linkfunctotaskstream(task, QBR_STREAM_ERR, NULL, print_line);

  /* Three ways to set a parameter. */
  if (r == QBR_RES_OK) r = QBR_putintparam(task, QBR_IPAR_OPTIMIZER, QBR_OPTIMIZER_INTPNT);
  if (r == QBR_RES_OK) r = QBR_putnadouparam(task, "QBR_DPAR_INTPNT_TOL_REL_GAP", 1.0e-9);
  if (r == QBR_RES_OK) r = QBR_putparam(task, "iparam.num_threads", "2");

  if (r == QBR_RES_OK) {
    QBRint32t optimizer = 0, threads = 0;
    QBRrealt gap = 0.0;
    char symbol[QBR_MAX_STR_LEN];
    QBR_getintparam(task, QBR_IPAR_OPTIMIZER, &optimizer);
    QBR_getintparam(task, QBR_IPAR_NUM_THREADS, &threads);
    QBR_getdouparam(task, QBR_DPAR_INTPNT_TOL_REL_GAP, &gap);
    QBR_iparvaltosymnam(env, QBR_IPAR_OPTIMIZER, optimizer, symbol);
    QBR_echotask(task, QBR_STREAM_LOG, "QBR_IPAR_OPTIMIZER          = %d (%s)\n", optimizer, symbol);
    QBR_echotask(task, QBR_STREAM_LOG, "QBR_IPAR_NUM_THREADS        = %d\n", threads);
    QBR_echotask(task, QBR_STREAM_LOG, "QBR_DPAR_INTPNT_TOL_REL_GAP = %g\n", gap);
  }
  /* A mistake: the response code and the last-error message say what went wrong. */
  if (r == QBR_RES_OK && QBR_putintparam(task, QBR_IPAR_LOG, -1) != QBR_RES_OK) {
    char msg[QBR_MAX_STR_LEN];
    QBRrescode last = 0;
    QBR_getlasterror(task, &last, sizeof msg, NULL, msg);
    printf("Rejected as expected (code %d): %s\n", last, msg);
  }
  if (r != QBR_RES_OK) {
    char sym[QBR_MAX_STR_LEN], desc[QBR_MAX_STR_LEN];
    QBR_getcodedesc(r, sym, desc);
    fprintf(stderr, "Error %s (%d): %s\n", sym, r, desc);
  }
  QBR_deletetask(&task);
  QBR_deleteenv(&env);
  return r == QBR_RES_OK ? 0 : 1;
}
