#include "task/env.h"

#include <unistd.h>


QBRenv_s::QBRenv_s(const qubor::platform::UserAllocator& user, const char* dbgfile)
    : memory(user, dbgfile && *dbgfile), debug_file(dbgfile ? dbgfile : "") {
  long n = sysconf(_SC_NPROCESSORS_ONLN);
  num_processors = n > 0 ? static_cast<int32_t>(n) : 1;
}

QBRenv_s::~QBRenv_s() { validity = 0; }
