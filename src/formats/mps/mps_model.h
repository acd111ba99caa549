// The problem of an MPS file as the reader gathers it, before it enters the task.
//
// Rows and columns are numbered in the order the file defines them. Row r becomes constraint
// row_con[r] (kObjective for the objective row, kDropped for a further N row that is not
// kept); the matrix is held by columns (CSC over constraint indices). Bounds start at
// [0, +inf) and are turned into bound keys by the loader. Quadratic terms are lower-triangle
// triplets (i >= j) in the task's convention (objective c'x + 1/2 x'Qx, constraint
// 1/2 x'Q_k x).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "formats/frame/name_table.h"

namespace qubor::formats {

struct QTriplets {
  std::vector<int32_t> i, j;
  std::vector<double> v;
  void add(int32_t a, int32_t b, double val) {
    i.push_back(a >= b ? a : b);
    j.push_back(a >= b ? b : a);
    v.push_back(val);
  }
};

struct MpsCone {
  std::string name;
  int32_t type = 0;
  double par = 0.0;
  std::vector<int32_t> members;
};

struct MpsModel {
  static constexpr int32_t kObjective = -1;
  static constexpr int32_t kDropped = -2;

  std::string name;
  int32_t sense = -1;  // -1 not given, else QBR_OBJECTIVE_SENSE_*
  std::string obj_name_given;
  int64_t obj_name_line = 0;

  // Rows.
  NameTable rows;
  std::vector<char> row_type;    // 'N', 'E', 'L', 'G'
  std::vector<int32_t> row_con;  // constraint index, kObjective or kDropped
  int32_t obj_row = -1;
  int32_t num_con = 0;
  std::vector<int32_t> con_row;  // row of each constraint
  std::vector<double> rhs, range;
  std::vector<char> has_range;
  double cfix = 0.0;

  // Columns.
  NameTable cols;
  std::vector<int64_t> col_ptr{0};
  std::vector<int32_t> a_sub;
  std::vector<double> a_val;
  std::vector<double> c;
  std::vector<char> is_int;
  std::vector<double> bl, bu;
  std::vector<char> lower_set;  // a bound line gave the lower bound explicitly

  // Quadratic terms and cones.
  QTriplets qobj;
  bool has_qobj = false;
  std::vector<int32_t> qcon_index;  // constraint of each entry of qcon
  std::vector<QTriplets> qcon;
  std::vector<MpsCone> cones;

  bool rows_done = false;  // constraints numbered (ROWS ended)
};

}  // namespace qubor::formats
