// Operation tables of the primal heuristics; their records are made in registry.cpp.
#pragma once

#include "mio/job.h"

namespace qubor::mio {

extern const HeuristicOps kTestCurrentRelaxOps;  // rounds the node's relaxation
extern const HeuristicOps kTrivialOps;           // lower, upper and zero points, at the root
extern const HeuristicOps kDiveMinFractionalOps; // dive & propagate, least fractional to nearest

}  // namespace qubor::mio
