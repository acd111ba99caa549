// Placeholder until the multilevel bisection lands: reports failure so callers fall back.
#include "linalg/ordering/nested_dissection.h"

namespace qubor::linalg {

Status nested_dissection_order(const Graph&, const NestedDissectionOptions&, const LogSink*,
                               OrderResult&) {
  return Status::kInternalError;
}

}  // namespace qubor::linalg
