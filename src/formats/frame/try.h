// Early return of a nonzero response code inside the format readers and writers.
#pragma once

#define QUBOR_TRY(expr)                          \
  do {                                           \
    const QBRrescode qubor_r_ = (expr);          \
    if (qubor_r_ != QBR_RES_OK) return qubor_r_; \
  } while (0)
