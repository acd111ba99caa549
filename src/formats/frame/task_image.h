// A whole task as plain arrays: the common ground of the formats that store a task and not
// only its problem (the task archive, the JSON task). Writers collect() the image from the
// task and serialize it; readers fill an image from the file, check it, and load() it into the
// task through the public operations.
//
// The arrays are those of the task itself: A by columns (a_ptr has numvar+1 entries), the
// lower triangles of the objective's and the constraints' Q as triplets, the cones with
// their members one after the other, the stored symmetric matrices in the order of their
// indices, and the matrix-variable coefficients as terms (row i, matrix variable j) each with
// a run of (matrix index, weight) pairs. Doubles go through unchanged, so a round trip is
// exact bit for bit.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "task/task.h"

namespace qubor::formats {

struct SolutionImage {
  bool defined = false;
  int32_t prosta = 0, solsta = 0;
  std::vector<int32_t> skc, skx, skn;
  std::vector<double> xc, xx, y, slc, suc, slx, sux, snx;
  std::vector<double> barx, bars;  // packed lower triangles, one matrix variable after the other
};

struct BarTermsImage {
  std::vector<int32_t> i, j;         // i is -1 for the objective's terms
  std::vector<int64_t> ptr;          // term k uses mat/weight[ptr[k], ptr[k+1])
  std::vector<int64_t> mat;
  std::vector<double> weight;
};

struct TaskImage {
  // Header
  std::array<int32_t, 4> version{};
  std::string task_name, obj_name;
  int32_t obj_sense = QBR_OBJECTIVE_SENSE_MINIMIZE;
  double cfix = 0.0;
  double atruncatetol = 0.0;  // 0: not given, the task keeps its own
  int32_t numvar = 0, numcon = 0, numcone = 0, numbarvar = 0;

  // Linear data
  std::vector<double> c;
  std::vector<int32_t> var_bk, con_bk;
  std::vector<double> var_bl, var_bu, con_bl, con_bu;
  std::vector<int32_t> intvar;  // indices of the integer variables, increasing
  std::vector<int64_t> a_ptr;
  std::vector<int32_t> a_sub;
  std::vector<double> a_val;

  // Quadratic data (lower triangles)
  std::vector<int32_t> qobj_i, qobj_j;
  std::vector<double> qobj_v;
  std::vector<int32_t> qcon_k, qcon_i, qcon_j;
  std::vector<double> qcon_v;

  // Names (empty strings for unnamed items; an empty vector when no item is named)
  std::vector<std::string> var_names, con_names, cone_names, barvar_names;

  // Cones
  std::vector<int32_t> cone_type;
  std::vector<double> cone_par;
  std::vector<int64_t> cone_ptr;  // numcone+1 entries into cone_sub
  std::vector<int32_t> cone_sub;

  // Semidefinite data
  std::vector<int32_t> barvar_dim;
  std::vector<int32_t> sym_dim;
  std::vector<int64_t> sym_ptr;  // numsymmat+1 entries into sym_i/j/v
  std::vector<int32_t> sym_i, sym_j;
  std::vector<double> sym_v;
  BarTermsImage barc, bara;

  // Parameters: full names and values, as the task has them.
  bool has_params = false;
  std::vector<std::string> ipar_names, dpar_names, spar_names;
  std::vector<int32_t> ipar;
  std::vector<double> dpar;
  std::vector<std::string> spar;

  std::array<SolutionImage, 3> sol;  // QBR_SOL_ITR, QBR_SOL_BAS, QBR_SOL_ITG

  // Information items by name.
  bool has_info = false;
  std::vector<std::string> dinf_names, iinf_names, liinf_names;
  std::vector<double> dinf;
  std::vector<int32_t> iinf;
  std::vector<int64_t> liinf;

  int64_t numsymmat() const { return static_cast<int64_t>(sym_dim.size()); }
};

// The task's problem, parameters, information items and (when `with_solutions`) its defined
// solution items.
void collect_image(const task::Task& t, bool with_solutions, TaskImage* img);

// The first inconsistency of an image read from a file (sizes that disagree, indices out of
// range, unknown keys), as a short text naming the part; empty when the image is sound. The
// public operations check values once more when the image is loaded.
std::string check_image(const TaskImage& img);

// Fills the emptied task from a checked image: the problem through the public operations,
// the parameters unless `skip_params`, then the solution items and information items.
QBRrescode load_image(task::Task& t, const TaskImage& img, bool skip_params);

// Names of the solution items in the stored formats: "interior", "basic", "integer".
const char* solution_item_name(int32_t which);

}  // namespace qubor::formats
