/* The public header used from C: compiles as C99 without warnings, links against the shared
   library, and runs a small session through the interface. Exit status 0 on success. */
#include <stdio.h>
#include <string.h>

#include "qubor.h"

static int failures = 0;
#define CHECK(cond)                                               \
  do {                                                            \
    if (!(cond)) {                                                \
      fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #cond); \
      ++failures;                                                 \
    }                                                             \
  } while (0)

static void collect(void *handle, const char *str) {
  char *buf = (char *)handle;
  size_t used = strlen(buf);
  strncat(buf, str, 4095 - used);
}

static QBRint32t keep_going(void *handle, QBRrescode r, const char *msg) {
  (void)handle;
  (void)r;
  (void)msg;
  return 0;
}

int main(void) {
  QBRenv_t env = NULL;
  QBRtask_t task = NULL;
  QBRint32t value = 0, type = 0, index = 0, major = 0, minor = 0, rev = 0, rc = 0;
  QBRrealt d = 0.0;
  char errors[4096] = "";
  char name[QBR_MAX_STR_LEN], desc[QBR_MAX_STR_LEN];

  CHECK(QBR_getversion(&major, &minor, &rev) == QBR_RES_OK);
  CHECK(major == 9 && minor == 0 && rev == 81);
  CHECK(QBR_makeenv(&env, NULL) == QBR_RES_OK);
  CHECK(QBR_maketask(env, 0, 0, &task) == QBR_RES_OK);
  CHECK(QBR_linkfunctotaskstream(task, QBR_STREAM_ERR, errors, collect) == QBR_RES_OK);

  /* Enumerated values need no casts. */
  CHECK(QBR_putintparam(task, QBR_IPAR_OPTIMIZER, QBR_OPTIMIZER_INTPNT) == QBR_RES_OK);
  CHECK(QBR_getintparam(task, QBR_IPAR_OPTIMIZER, &value) == QBR_RES_OK && value == QBR_OPTIMIZER_INTPNT);
  CHECK(QBR_putnadouparam(task, "QBR_DPAR_INTPNT_TOL_REL_GAP", 1.0e-9) == QBR_RES_OK);
  CHECK(QBR_getdouparam(task, QBR_DPAR_INTPNT_TOL_REL_GAP, &d) == QBR_RES_OK && d == 1.0e-9);
  CHECK(QBR_whichparam(task, "iparam.num_threads", &type, &index) == QBR_RES_OK);
  CHECK(type == QBR_PAR_INT_TYPE && index == QBR_IPAR_NUM_THREADS);

  CHECK(QBR_putintparam(task, QBR_IPAR_LOG, -1) == QBR_RES_ERR_PARAM_IS_TOO_SMALL);
  CHECK(strstr(errors, "QUBOR error 1216: ") != NULL);
  CHECK(QBR_putresponsefunc(task, keep_going, NULL) == QBR_RES_OK);

  CHECK(QBR_getcodedesc(QBR_RES_TRM_USER_CALLBACK, name, desc) == QBR_RES_OK);
  CHECK(strcmp(name, "QBR_RES_TRM_USER_CALLBACK") == 0);
  CHECK(QBR_getresponseclass(QBR_RES_TRM_STALL, &rc) == QBR_RES_OK && rc == QBR_RESPONSE_TRM);
  CHECK(QBR_isinfinity(QBR_INFINITY) == 1);
  CHECK(QBR_getinfindex(task, QBR_INF_INT_TYPE, "QBR_IINF_OPTIMIZE_RESPONSE", &index) == QBR_RES_OK);
  CHECK(index == QBR_IINF_OPTIMIZE_RESPONSE);
  CHECK(QBR_BK_RA == 4 && QBR_CT_ZERO == 6 && QBR_VAR_TYPE_INT == 1 && QBR_SOL_ITG == 2);

  CHECK(QBR_deletetask(&task) == QBR_RES_OK && task == NULL);
  CHECK(QBR_deleteenv(&env) == QBR_RES_OK && env == NULL);
  if (failures) fprintf(stderr, "%d checks failed\n", failures);
  return failures ? 1 : 0;
}
