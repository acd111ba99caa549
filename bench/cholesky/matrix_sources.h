// Test matrices for the factorization benchmark: grid Laplacians, Matrix Market files and
// normal-equation matrices A D A' + shift I built from the ROWS/COLUMNS sections of MPS files.
// All produce the lower triangle in CSC form with 64-bit pointers.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace qubor::bench {

struct LowerMatrix {
  std::string name;
  int32_t n = 0;
  int64_t nnz_source = 0;  // nonzeros of the source matrix A (or of the lower triangle)
  std::vector<int64_t> colptr;
  std::vector<int32_t> rowind;
  std::vector<double> values;
};

// Sparse m x n matrix in CSC form, as read from MPS.
struct SparseMatrix {
  int32_t m = 0, n = 0;
  std::vector<int64_t> colptr;
  std::vector<int32_t> rowind;
  std::vector<double> values;
};

// 5-point (d = 2) or 7-point (d = 3) Laplacian on a k^d grid, Dirichlet boundary.
LowerMatrix grid_laplacian(int dims, int32_t k);

// Reads a Matrix Market coordinate file (real, integer or pattern; symmetric or general, of
// which the lower triangle is used). Pattern files get a diagonally dominant SPD filling.
bool read_matrix_market(const std::string& path, LowerMatrix& out, std::string& error);

// Reads the constraint matrix of an MPS file (plain or .gz): ROWS and COLUMNS only; the
// objective row and integer markers are skipped.
bool read_mps_matrix(const std::string& path, SparseMatrix& a, std::string& error);

// M = A D A' + shift I with D uniformly random in log scale over [1e-3, 1e3] (fixed seed),
// shift = 1e-9 max diag(A D A').
LowerMatrix normal_equations(const SparseMatrix& a, uint64_t seed, const std::string& name);

}  // namespace qubor::bench
