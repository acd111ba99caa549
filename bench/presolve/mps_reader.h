// Small reader of (gzip-compressed) MPS files into an LpProblem, for running the presolve on
// the Netlib models in the benchmark and the tests. Whitespace-separated fields, or fixed
// columns when names contain spaces; RHS of the objective row gives -c0; RANGES and the
// usual BOUNDS types; integer markers set is_int.
#pragma once

#include <string>

#include "presolve/presolve.h"

namespace qubor::presolve::testing {

bool read_mps(const std::string& path, LpProblem& p, std::string& error);

}  // namespace qubor::presolve::testing
