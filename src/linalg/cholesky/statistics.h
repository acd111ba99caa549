// Statistics of the sparse factorization and the "*spchol summary." report.
//
// structural_statistics() fills the counters that depend on the analysis only (panels by
// width, supernodal tree shape, groups, nnz and flop counts); the timers and dense-kernel
// counters are summed from the threads' scratch records when the report is made.
// Report layout: a label padded to 45 characters, then the value; integer, 64-bit, double,
// timer (seconds and calls) and rate sections in that order.
#pragma once

#include "linalg/cholesky/sparse_cholesky.h"

namespace qubor::linalg {

void structural_statistics(const SymbolicFactor& sf, const OrderChoice& choice,
                           CholeskyStatistics& st);

void print_statistics(const CholeskyStatistics& st, const LogSink* sink);

}  // namespace qubor::linalg
