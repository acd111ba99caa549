// Factor of a positive semidefinite matrix; see psd_factor.h.
#include "linalg/cholesky/psd_factor.h"

#include <algorithm>
#include <cmath>
#include <new>

#include "linalg/cholesky/sparse_cholesky.h"

namespace qubor::linalg {
namespace {

// The local matrix: columns that occur, lower CSC with summed duplicates.
struct LocalMatrix {
  int32_t n = 0;
  std::vector<int32_t> global;  // local -> original column
  std::vector<int64_t> colptr;
  std::vector<int32_t> rowind;
  std::vector<double> values;
};

void build_local(int32_t n, int64_t nz, const int32_t* subi, const int32_t* subj, const double* val, double sign,
                 LocalMatrix& a) {
  std::vector<int32_t> local(static_cast<size_t>(n), -1);
  for (int64_t k = 0; k < nz; ++k) local[static_cast<size_t>(subi[k])] = local[static_cast<size_t>(subj[k])] = 0;
  for (int32_t j = 0; j < n; ++j)
    if (local[static_cast<size_t>(j)] == 0) {
      local[static_cast<size_t>(j)] = a.n++;
      a.global.push_back(j);
    }
  a.colptr.assign(static_cast<size_t>(a.n) + 1, 0);
  for (int64_t k = 0; k < nz; ++k) ++a.colptr[static_cast<size_t>(local[static_cast<size_t>(subj[k])]) + 1];
  for (int32_t j = 0; j < a.n; ++j) a.colptr[static_cast<size_t>(j) + 1] += a.colptr[static_cast<size_t>(j)];
  std::vector<int64_t> next(a.colptr.begin(), a.colptr.end() - 1);
  a.rowind.resize(static_cast<size_t>(nz));
  a.values.resize(static_cast<size_t>(nz));
  for (int64_t k = 0; k < nz; ++k) {
    const auto p = static_cast<size_t>(next[static_cast<size_t>(local[static_cast<size_t>(subj[k])])]++);
    a.rowind[p] = local[static_cast<size_t>(subi[k])];
    a.values[p] = sign * val[k];
  }
}

// y = A v for the symmetric A given by its lower triangle.
void sym_multiply(const LocalMatrix& a, const std::vector<double>& v, std::vector<double>& y,
                  std::vector<double>& abs_y) {
  y.assign(static_cast<size_t>(a.n), 0.0);
  abs_y.assign(static_cast<size_t>(a.n), 0.0);
  for (int32_t j = 0; j < a.n; ++j)
    for (int64_t p = a.colptr[static_cast<size_t>(j)]; p < a.colptr[static_cast<size_t>(j) + 1]; ++p) {
      const auto i = static_cast<size_t>(a.rowind[static_cast<size_t>(p)]);
      const double q = a.values[static_cast<size_t>(p)];
      y[i] += q * v[static_cast<size_t>(j)];
      abs_y[i] += std::fabs(q * v[static_cast<size_t>(j)]);
      if (i != static_cast<size_t>(j)) {
        y[static_cast<size_t>(j)] += q * v[i];
        abs_y[static_cast<size_t>(j)] += std::fabs(q * v[i]);
      }
    }
}

// Whether F'F reproduces A on fixed test vectors; F has local column indices.
bool reproduces(const LocalMatrix& a, const PsdFactor& f, double rel_tol) {
  const double tol = std::max(std::sqrt(rel_tol), 1e-8);
  std::vector<double> v(static_cast<size_t>(a.n)), y, abs_y, fv(static_cast<size_t>(f.rows));
  uint64_t state = 0x9e3779b97f4a7c15ull;
  for (int round = 0; round < 2; ++round) {
    for (double& x : v) {
      state = state * 6364136223846793005ull + 1442695040888963407ull;
      const double u = static_cast<double>(state >> 11) * (1.0 / 9007199254740992.0);
      x = (state >> 63) ? 0.5 + u : -0.5 - u;
    }
    sym_multiply(a, v, y, abs_y);
    for (int32_t r = 0; r < f.rows; ++r) {
      double s = 0.0;
      for (int64_t p = f.ptr[static_cast<size_t>(r)]; p < f.ptr[static_cast<size_t>(r) + 1]; ++p)
        s += f.val[static_cast<size_t>(p)] * v[static_cast<size_t>(f.col[static_cast<size_t>(p)])];
      fv[static_cast<size_t>(r)] = s;
    }
    for (int32_t r = 0; r < f.rows; ++r)
      for (int64_t p = f.ptr[static_cast<size_t>(r)]; p < f.ptr[static_cast<size_t>(r) + 1]; ++p)
        y[static_cast<size_t>(f.col[static_cast<size_t>(p)])] -= f.val[static_cast<size_t>(p)] * fv[static_cast<size_t>(r)];
    double scale = 0.0, res = 0.0;
    for (size_t i = 0; i < y.size(); ++i) {
      scale = std::max(scale, abs_y[i]);
      res = std::max(res, std::fabs(y[i]));
    }
    if (!(res <= tol * scale)) return false;
  }
  return true;
}

}  // namespace

Status psd_factor(int32_t n, int64_t nz, const int32_t* subi, const int32_t* subj, const double* val, double sign,
                  double rel_tol, bool* psd, PsdFactor* f) {
  *psd = false;
  try {
    LocalMatrix a;
    build_local(n, nz, subi, subj, val, sign, a);
    PsdFactor local;
    if (a.n > 0) {
      SparseCholesky chol;
      SparseCholeskyOptions opt;
      opt.type = FactorType::kCholesky;
      opt.pivot_tolerance = std::max(rel_tol, 1e-300);
      opt.replacement = PivotReplacement::kHuge;
      const LowerPattern pattern{a.n, a.colptr.data(), a.rowind.data()};
      Status s = chol.analyse(pattern, opt, nullptr);
      if (s == Status::kOk) s = chol.factor(a.values.data());
      if (s == Status::kOk) s = chol.factor_rows(local.ptr, local.col, local.val);
      if (s != Status::kOk) return s;
      local.rows = static_cast<int32_t>(local.ptr.size()) - 1;
    }
    *psd = reproduces(a, local, rel_tol);
    if (*psd && f != nullptr) {
      for (int32_t& j : local.col) j = a.global[static_cast<size_t>(j)];
      *f = std::move(local);
    }
  } catch (const std::bad_alloc&) {
    return Status::kOutOfSpace;
  }
  return Status::kOk;
}

}  // namespace qubor::linalg
