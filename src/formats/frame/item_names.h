// Names of the task's items for the writers, read through the public interface.
//
// Items without a name, and all items when QBR_IPAR_WRITE_GENERIC_NAMES is on, get a
// generated name: the prefix followed by the 1-based index ("x12", "c3"), with '_' appended
// until it differs from every name in use. Lookup of a written name is O(1).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "formats/frame/name_table.h"
#include "qubor.h"

namespace qubor::formats {

enum class ItemKind { kVariable, kConstraint, kCone };

class ItemNames {
 public:
  // Reads all names of `kind`; generated ones use `prefix`. With `unique` a generated name
  // that is in use gets '_' appended until it is not; without, it is kept as it is.
  QBRrescode load(QBRtask_t h, ItemKind kind, const char* prefix, bool generic, bool unique = true);
  const std::string& operator[](int32_t i) const { return names_[static_cast<size_t>(i)]; }
  int32_t size() const { return static_cast<int32_t>(names_.size()); }
  // True when the name of item i was generated.
  bool generated(int32_t i) const { return generated_[static_cast<size_t>(i)] != 0; }

 private:
  std::vector<std::string> names_;
  std::vector<char> generated_;
};

// The objective's name, or `fallback` when it has none.
std::string objective_name(QBRtask_t h, const char* fallback);
// The task's name ("" when none).
std::string task_name(QBRtask_t h);

}  // namespace qubor::formats
