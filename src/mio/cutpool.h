// Cutting planes at the root: separators are records (see plugin.h) that add cuts
// lo <= a'x <= up, valid for every integer solution, to a pool; the pool keeps the cuts
// that the relaxation's point violates most (efficacy: violation over the norm of a) and
// drops nearly parallel ones.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "mio/plugin.h"
#include "mio/problem.h"
#include "simplex/simplex.h"

namespace qubor::mio {

struct Cut {
  std::vector<int32_t> idx;
  std::vector<double> val;
  double lo, up;
  double efficacy = 0.0;
  int32_t family = 0;  // index of the separator that found it
};

class CutPool {
 public:
  // Adds a cut violated by x (kept when its efficacy reaches the pool's minimum).
  void add(Cut&& cut, const std::vector<double>& x);
  // The best cuts, at most `max_cuts`, skipping those nearly parallel to a chosen one.
  std::vector<Cut> select(size_t max_cuts, double max_parallelism);
  size_t size() const { return cuts_.size(); }

 private:
  std::vector<Cut> cuts_;
};

// The point to separate: the relaxation's solution and its optimal basis.
struct SeparationPoint {
  const std::vector<double>& x;
  const simplex::StartBasis* basis;  // may be null
  const std::vector<double>& lo;     // the column bounds of the relaxation
  const std::vector<double>& up;
};

struct SeparatorOps {
  void (*destroy)(void*);
  // Separates cuts for the point; returns how many were added.
  int32_t (*run)(void*, const Problem&, const SeparationPoint&, int32_t family, CutPool&);
};
struct Separator {
  Record<SeparatorOps> rec;
  int32_t found = 0;  // cuts it contributed that entered the problem
};

// Which families the parameters switch on.
struct SeparatorSwitches {
  bool knapsack_cover = true;
  bool gmi = true;
};
// Gomory mixed-integer cuts from the rows of the optimal tableau (separator_gmi.cpp).
extern const SeparatorOps kGmiOps;
std::vector<Separator> make_separators(const SeparatorSwitches& s);

// Appends rows to the problem (both copies of A, and the row bounds); the row copy is
// rebuilt also when there are none.
void append_rows(Problem& p, const std::vector<Cut>& cuts);

}  // namespace qubor::mio
