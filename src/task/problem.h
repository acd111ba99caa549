// The optimization problem held by a task.
//
//   minimize or maximize   c'x + cfix + 1/2 x'Q^o x + sum_j <barC_j, barX_j>
//   subject to             blc_i <= a_i x + 1/2 x'Q^i x + sum_j <barA_ij, barX_j> <= buc_i
//                          blx_j <= x_j <= bux_j,   x in the cones,   barX_j symmetric PSD,
//                          x_j integer for the integer variables.
//
// Read interface for the optimizers and the file writers (the file readers use the C API):
//   num_var, num_con, num_cone, num_barvar, num_int_var, obj_sense, cfix   counts and scalars
//   c[j]                                        linear objective
//   var_bounds / con_bounds: bk[k], bl[k], bu[k] bound keys and values; the side a key leaves
//                                               free holds -/+QBR_INFINITY
//   var_type[j]                                 QBR_VAR_TYPE_CONT or QBR_VAR_TYPE_INT
//   a.csc(), a.csr()                            A as compressed columns / rows (CompressedView,
//                                               rows sorted within a column and vice versa)
//   a.col_rows(j), a.col_vals(j), a.get(i, j)   single columns and elements
//   cones.cones[k] {type, par, start, n}, members of cone k at cones.members[start, start+n)
//   cones.cone_of[j]                            the cone of variable j, or -1
//   barvar_dim[j]                               dimension of matrix variable j
//   symmats.mats[m] {dim, start, nz}            stored symmetric matrix m: lower-triangular
//                                               entries symmats.subi/subj/val[start, start+nz)
//   barc.terms / bara.terms {i, j, start, num}  coefficient of matrix variable j (in row i for
//                                               bara, i = -1 for barc): sum of weight[p] *
//                                               matrix mat[p], p in [start, start+num); terms
//                                               are sorted by (i, j) and unique
//   qobj, qcon[i]                               lower-triangular entries (i >= j), sorted by
//                                               (i, j), unique; qcon is empty or has num_con
//                                               entries
//   var_names, con_names, cone_names, barvar_names, task_name, obj_name
//
// The counts always equal the sizes of the per-item arrays. Problem is copy-assignable (the
// clone copies it); the copy keeps the target's memory resource.
#pragma once

#include <cstdint>
#include <memory_resource>
#include <string>
#include <vector>

#include "qubor.h"
#include "task/names.h"
#include "task/sparse_matrix.h"

namespace qubor::task {

struct BoundArrays {
  explicit BoundArrays(std::pmr::memory_resource* mem) : bk(mem), bl(mem), bu(mem) {}
  std::pmr::vector<int32_t> bk;
  std::pmr::vector<double> bl, bu;
};

struct Cone {
  int32_t type = QBR_CT_QUAD;
  double par = 0.0;
  int64_t start = 0;  // into ConeSet::members
  int32_t n = 0;
};

struct ConeSet {
  explicit ConeSet(std::pmr::memory_resource* mem) : cones(mem), members(mem), cone_of(mem) {}
  std::pmr::vector<Cone> cones;
  std::pmr::vector<int32_t> members;  // may hold dead ranges of replaced cones
  std::pmr::vector<int32_t> cone_of;  // per variable
};

struct SymMat {
  int32_t dim = 0;
  int64_t start = 0;
  int64_t nz = 0;
};

struct SymMatStore {
  explicit SymMatStore(std::pmr::memory_resource* mem) : mats(mem), subi(mem), subj(mem), val(mem) {}
  std::pmr::vector<SymMat> mats;
  std::pmr::vector<int32_t> subi, subj;
  std::pmr::vector<double> val;
};

struct BarTerm {
  int32_t i = -1;
  int32_t j = 0;
  int64_t start = 0;
  int64_t num = 0;
};

struct BarCoefs {
  explicit BarCoefs(std::pmr::memory_resource* mem) : terms(mem), mat(mem), weight(mem) {}
  std::pmr::vector<BarTerm> terms;
  std::pmr::vector<int64_t> mat;  // may hold dead ranges of replaced terms
  std::pmr::vector<double> weight;
};

struct QEntry {
  int32_t i = 0;
  int32_t j = 0;
  double v = 0.0;
};
using QMatrix = std::pmr::vector<QEntry>;

struct Problem {
  explicit Problem(std::pmr::memory_resource* mem)
      : c(mem),
        var_bounds(mem),
        con_bounds(mem),
        var_type(mem),
        a(mem),
        cones(mem),
        barvar_dim(mem),
        symmats(mem),
        barc(mem),
        bara(mem),
        qobj(mem),
        qcon(mem),
        var_names(mem),
        con_names(mem),
        cone_names(mem),
        barvar_names(mem),
        task_name(mem),
        obj_name(mem) {}

  int32_t num_var = 0;
  int32_t num_con = 0;
  int32_t num_cone = 0;
  int32_t num_barvar = 0;
  int32_t num_int_var = 0;
  int32_t obj_sense = QBR_OBJECTIVE_SENSE_MINIMIZE;
  double cfix = 0.0;

  // Capacities: reservations only, never limits.
  int32_t max_num_var = 0;
  int32_t max_num_con = 0;
  int32_t max_num_cone = 0;
  int32_t max_num_barvar = 0;
  int64_t max_num_anz = 0;
  int64_t max_num_qnz = 0;

  std::pmr::vector<double> c;
  BoundArrays var_bounds;
  BoundArrays con_bounds;
  std::pmr::vector<int32_t> var_type;
  SparseMatrix a;

  ConeSet cones;
  std::pmr::vector<int32_t> barvar_dim;
  SymMatStore symmats;
  BarCoefs barc;
  BarCoefs bara;
  QMatrix qobj;
  std::pmr::vector<QMatrix> qcon;

  NameTable var_names;
  NameTable con_names;
  NameTable cone_names;
  NameTable barvar_names;
  std::pmr::string task_name;
  std::pmr::string obj_name;

  // Reserves room for the given numbers of constraints and variables.
  void reserve(int32_t maxnumcon, int32_t maxnumvar);
  // Total number of quadratic entries (objective and constraints).
  int64_t num_qnz() const;
  bool has_qcon() const;
  // Empties the symmetric-matrix store once no matrix variable is left (the coefficients
  // that referred to it went with them): a problem that is replaced as a whole, as by
  // reading a file, takes its stored matrices along instead of leaving them to pile up.
  // Does nothing while there are matrix variables.
  void clear_matrix_store();
  // Packed lower-triangle length of matrix variable j: d(d+1)/2.
  int64_t barvar_len(int32_t j) const {
    const int64_t d = barvar_dim[static_cast<size_t>(j)];
    return d * (d + 1) / 2;
  }
};

}  // namespace qubor::task
