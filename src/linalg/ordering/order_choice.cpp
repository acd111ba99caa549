// Ordering choice rules; see order_choice.h.
#include "linalg/ordering/order_choice.h"

#include <new>

namespace qubor::linalg {
namespace {

bool nd_is_better(const OrderResult& nd, const OrderResult& local) {
  if (nd.nnz_l < local.nnz_l) return true;
  return static_cast<double>(nd.nnz_l) <= 1.02 * static_cast<double>(local.nnz_l) &&
         nd.flops < 0.9 * local.flops;
}

Status run_local(const Graph& g, LocalOrderType type, const LogSink* sink, OrderChoice& out,
                 OrderResult& result) {
  log_printf(sink, 1, "Local matrix reordering started.\n");
  const double t0 = wall_seconds();
  LocalOrderOptions lo;
  lo.type = type;
  Status s = local_order(g, lo, sink, result);
  out.ml_time += wall_seconds() - t0;
  log_printf(sink, 1, "Local matrix reordering terminated.\n");
  return s;
}

Status identity_or_given(const Graph& g, const int32_t* given_perm, OrderChoice& out) {
  out.order.perm.resize(g.n);
  for (int32_t k = 0; k < g.n; ++k) out.order.perm[k] = given_perm ? given_perm[k] : k;
  return evaluate_order(g, out.order);
}

}  // namespace

Status choose_ordering(const Graph& g, int64_t nnz_a, OrderMethod method,
                       const NestedDissectionOptions& nd, const int32_t* given_perm,
                       const LogSink* sink, OrderChoice& out, const char* gp_dump) {
  out = OrderChoice();
  try {
    if (method == OrderMethod::kNone) return identity_or_given(g, given_perm, out);
    if (method < OrderMethod::kFree || method > OrderMethod::kNone) {
      log_printf(sink, 1, "Invalid ordering type: %d", static_cast<int>(method));
      return Status::kInvalidInput;
    }
    Status s = run_local(g, LocalOrderType::kApproxMinLocalFill, sink, out, out.order);
    if (s != Status::kOk) return s;
    if (method == OrderMethod::kExperimental) {
      OrderResult md;
      s = run_local(g, LocalOrderType::kMinDegree, sink, out, md);
      if (s != Status::kOk) return s;
      if (md.nnz_l < out.order.nnz_l) out.order = std::move(md);
    }
    out.ml_nnz_l = out.order.nnz_l;
    out.ml_flops = out.order.flops;
    const double k = g.n > 100 ? 2.0 : 3.0;
    bool want_gp = method == OrderMethod::kTryGraphPar || method == OrderMethod::kForceGraphPar ||
                   method == OrderMethod::kExperimental ||
                   (method == OrderMethod::kFree &&
                    static_cast<double>(out.order.nnz_l) >= k * static_cast<double>(nnz_a));
    if (!want_gp || g.n == 0) return Status::kOk;
    if (gp_dump != nullptr) {
      log_printf(sink, 1, "%s(%d)\n", __FILE__, __LINE__);
      dump_graph(g, gp_dump, false, sink);
    }
    log_printf(sink, 1, "GP based matrix reordering started.\n");
    const double t0 = wall_seconds();
    OrderResult gp;
    s = nested_dissection_order(g, nd, sink, gp);
    out.gp_time = wall_seconds() - t0;
    log_printf(sink, 1, "GP based matrix reordering terminated.\n");
    out.gp_computed = s == Status::kOk;
    if (s == Status::kOutOfSpace) return s;
    if (s != Status::kOk) {
      log_printf(sink, 1, "Unexpected gpres: %d", static_cast<int>(s));
      return method == OrderMethod::kForceGraphPar ? s : Status::kOk;
    }
    if (method == OrderMethod::kForceGraphPar || nd_is_better(gp, out.order)) {
      out.gp_taken = true;
      out.gp_saved_nz = out.order.nnz_l - gp.nnz_l;
      out.gp_saved_flops = out.order.flops - gp.flops;
      out.order = std::move(gp);
    }
  } catch (const std::bad_alloc&) {
    return Status::kOutOfSpace;
  }
  return Status::kOk;
}

}  // namespace qubor::linalg
