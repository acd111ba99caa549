// The solution store of a task: three items (interior-point QBR_SOL_ITR, basic QBR_SOL_BAS,
// integer QBR_SOL_ITG), each with a defined flag, problem and solution status, status keys
// (skc per constraint, skx per variable, skn per cone), primal values (xc, xx), dual values
// (y, slc, suc, slx, sux, snx) and the packed lower triangles of barX_j and barS_j, stored one
// after the other in variable order.
//
// Invariant: a defined item has arrays of exactly the problem's dimensions. Appending items to
// the problem appends zeros (status key QBR_SK_UNK) to every defined item (match()); removing
// items removes their entries (the remove_* functions, called before the problem changes).
// The integer item keeps its dual arrays at full size too, filled with zeros; the accessors
// never copy them out.
#pragma once

#include <array>
#include <cstdint>
#include <memory_resource>
#include <span>
#include <vector>

#include "qubor.h"

namespace qubor::task {

struct Problem;

struct Solution {
  explicit Solution(std::pmr::memory_resource* mem)
      : skc(mem), skx(mem), skn(mem), xc(mem), xx(mem), y(mem), slc(mem), suc(mem), slx(mem), sux(mem),
        snx(mem), barx(mem), bars(mem) {}

  bool defined = false;
  int32_t prosta = QBR_PRO_STA_UNKNOWN;
  int32_t solsta = QBR_SOL_STA_UNKNOWN;
  std::pmr::vector<int32_t> skc, skx, skn;
  std::pmr::vector<double> xc, xx, y, slc, suc, slx, sux, snx, barx, bars;
  // Auxiliary data kept with the item by the optimizers (detached on deletion).
  int64_t aux = 0;

  void release();  // undefines the item and frees its arrays
};

struct SolutionStore {
  explicit SolutionStore(std::pmr::memory_resource* mem) : items{Solution(mem), Solution(mem), Solution(mem)} {}

  std::array<Solution, 3> items;

  Solution& operator[](int32_t which) { return items[static_cast<size_t>(which)]; }
  const Solution& operator[](int32_t which) const { return items[static_cast<size_t>(which)]; }
  // Defines item `which` (sized to the problem, all zero) unless it is defined already.
  Solution& create(const Problem& p, int32_t which);
  // Brings every defined item to the problem's dimensions.
  void match(const Problem& p);
  void remove_vars(std::span<const int32_t> new_index);
  void remove_cons(std::span<const int32_t> new_index);
  void remove_cones(std::span<const int32_t> new_index);
  // lens: packed lengths of the matrix variables before the removal.
  void remove_barvars(std::span<const int32_t> new_index, std::span<const int64_t> lens);
};

}  // namespace qubor::task
