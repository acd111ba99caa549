// Choice between the local and the nested-dissection ordering.
//
// Methods (values as in the ordering-method parameter):
//   kFree          local ordering; nested dissection too when nnz(L) >= k nnz(A) with
//                  k = 2 for n > 100 and k = 3 otherwise; the better of the two is kept.
//   kAppMinLoc     local ordering only.
//   kExperimental  local ordering, plain minimum degree and nested dissection; the best is
//                  kept.
//   kTryGraphPar   local ordering and nested dissection; the better is kept.
//   kForceGraphPar local ordering and nested dissection; nested dissection is kept.
//   kNone          the given order (identity unless a permutation is supplied).
// "Better" compares nnz(L) first and flops second: nested dissection replaces the local
// order when it has fewer nonzeros, or at most 2% more nonzeros and at least 10% fewer
// flops. A failed nested dissection falls back to the local order (except under kForce,
// where the failure is returned).
#pragma once

#include <cstdint>
#include <vector>

#include "linalg/common/log_sink.h"
#include "linalg/common/status.h"
#include "linalg/ordering/graph.h"
#include "linalg/ordering/local_order.h"
#include "linalg/ordering/nested_dissection.h"

namespace qubor::linalg {

enum class OrderMethod : int32_t {
  kFree = 0,
  kAppMinLoc = 1,
  kExperimental = 2,
  kTryGraphPar = 3,
  kForceGraphPar = 4,
  kNone = 5,
};

struct OrderChoice {
  OrderResult order;
  double ml_time = 0.0, gp_time = 0.0;
  bool gp_computed = false, gp_taken = false;
  int64_t gp_saved_nz = 0;     // local nnz(L) minus the nested-dissection one, when taken
  double gp_saved_flops = 0.0;
  int64_t ml_nnz_l = 0;
  double ml_flops = 0.0;
};

// nnz_a: entries of the matrix to factor (the reference count of the free method's test).
// given_perm: used by kNone when not null (n entries). gp_dump: when not null, the graph is
// written to this file (debug) just before the nested-dissection ordering.
Status choose_ordering(const Graph& g, int64_t nnz_a, OrderMethod method,
                       const NestedDissectionOptions& nd, const int32_t* given_perm,
                       const LogSink* sink, OrderChoice& out, const char* gp_dump = nullptr);

}  // namespace qubor::linalg
