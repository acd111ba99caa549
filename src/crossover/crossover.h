// Basis identification after the interior point: a start basis ranked from the interior
// solution, then a simplex clean-up from it.
//
// Ranking: every item (column or row) gets the score dist / (dist + dual), with dist its
// relative distance to the nearest bound and dual the size of its bound duals; the m items
// of largest score form the start basis (the basis LU replaces dependent ones by unit
// columns), the others sit on their nearer bound (free ones at 0). Near an optimal
// interior point the items strictly between their bounds with zero duals rank first, so
// the clean-up starts close to an optimal vertex.
#pragma once

#include <vector>

#include "interior/lp_problem.h"
#include "simplex/simplex.h"

namespace qubor::crossover {

struct CrossoverResult {
  simplex::SimplexResult clean;  // the clean-up run and the basic solution
  double time = 0.0;
};

// The start basis (public status keys) of an interior solution of `lp`.
simplex::StartBasis rank_basis(const interior::LpProblem& lp, const interior::IpResult& ip);

// Ranks a start basis from `ip` and runs the simplex of `opt` (its algorithm is the
// clean-up optimizer) from it.
void identify_basis(const interior::LpProblem& lp, const interior::IpResult& ip, const simplex::SimplexOptions& opt,
                    CrossoverResult& result);

}  // namespace qubor::crossover
