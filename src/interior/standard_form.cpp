// Conversion between an LpProblem and the internal form; see standard_form.h.
#include "interior/standard_form.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "platform/prefaulted_buffer.h"

namespace qubor::interior {
namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();

bool finite_lo(double v) { return v > -kInf; }
bool finite_up(double v) { return v < kInf; }

bool check_data(const LpProblem& p, std::string* why) {
  auto fail = [&](const char* text) {
    if (why) *why = text;
    return false;
  };
  const size_t n = static_cast<size_t>(p.num_col), m = static_cast<size_t>(p.num_row);
  if (p.num_col < 0 || p.num_row < 0) return fail("negative dimension");
  if (p.col_ptr.size() != n + 1 || p.c.size() != n || p.col_lo.size() != n ||
      p.col_up.size() != n || p.row_lo.size() != m || p.row_up.size() != m)
    return fail("array sizes do not match the dimensions");
  if (p.col_ptr[0] != 0 || p.row_idx.size() != static_cast<size_t>(p.col_ptr[n]) ||
      p.values.size() != p.row_idx.size())
    return fail("column pointers do not match the entries");
  for (size_t j = 0; j < n; ++j) {
    if (p.col_ptr[j + 1] < p.col_ptr[j]) return fail("column pointers decrease");
    if (std::isnan(p.c[j]) || std::isinf(p.c[j])) return fail("objective coefficient not finite");
    if (std::isnan(p.col_lo[j]) || std::isnan(p.col_up[j]) || p.col_lo[j] > p.col_up[j] ||
        p.col_lo[j] == kInf || p.col_up[j] == -kInf)
      return fail("invalid variable bounds");
  }
  for (size_t i = 0; i < m; ++i)
    if (std::isnan(p.row_lo[i]) || std::isnan(p.row_up[i]) || p.row_lo[i] > p.row_up[i] ||
        p.row_lo[i] == kInf || p.row_up[i] == -kInf)
      return fail("invalid constraint bounds");
  for (size_t k = 0; k < p.row_idx.size(); ++k) {
    if (p.row_idx[k] < 0 || p.row_idx[k] >= p.num_row) return fail("row index out of range");
    if (!std::isfinite(p.values[k])) return fail("matrix entry not finite");
  }
  if (p.q_col_ptr.empty()) return true;
  if (p.q_col_ptr.size() != n + 1 || p.q_col_ptr[0] != 0 ||
      p.q_row_idx.size() != static_cast<size_t>(p.q_col_ptr[n]) || p.q_values.size() != p.q_row_idx.size())
    return fail("quadratic term pointers do not match its entries");
  for (size_t j = 0; j < n; ++j) {
    if (p.q_col_ptr[j + 1] < p.q_col_ptr[j]) return fail("quadratic term pointers decrease");
    for (int64_t k = p.q_col_ptr[j]; k < p.q_col_ptr[j + 1]; ++k) {
      const int32_t i = p.q_row_idx[static_cast<size_t>(k)];
      if (i < static_cast<int32_t>(j) || i >= p.num_col) return fail("quadratic term index out of the lower triangle");
      if (!std::isfinite(p.q_values[static_cast<size_t>(k)])) return fail("quadratic term entry not finite");
    }
  }
  return true;
}

// y = Q x for the problem's Q given by its lower triangle.
void lower_multiply(const LpProblem& p, const double* x, std::vector<double>& y) {
  y.assign(static_cast<size_t>(p.num_col), 0.0);
  if (p.q_col_ptr.empty()) return;
  for (size_t j = 0; j < static_cast<size_t>(p.num_col); ++j)
    for (int64_t k = p.q_col_ptr[j]; k < p.q_col_ptr[j + 1]; ++k) {
      const size_t i = static_cast<size_t>(p.q_row_idx[static_cast<size_t>(k)]);
      const double v = p.q_values[static_cast<size_t>(k)];
      y[i] += v * x[j];
      if (i != j) y[j] += v * x[i];
    }
}

double dot(const std::vector<double>& a, const double* b) {
  double t = 0.0;
  for (size_t k = 0; k < a.size(); ++k) t += a[k] * b[k];
  return t;
}

// The quadratic objective in the internal numbering (see standard_form.h).
void add_quadratic(const LpProblem& p, StandardForm& sf) {
  if (!p.quadratic()) return;
  const size_t n = static_cast<size_t>(p.num_col);
  std::vector<double> shift(n, 0.0);
  std::vector<int32_t> internal(n, -1);
  for (size_t j = 0; j < n; ++j)
    if (p.col_lo[j] == p.col_up[j]) shift[j] = p.col_lo[j];
  for (int32_t k = 0; k < sf.num_struct; ++k) {
    const size_t j = static_cast<size_t>(sf.source[static_cast<size_t>(k)]);
    shift[j] = sf.shift[static_cast<size_t>(k)];
    internal[j] = k;
  }
  std::vector<double> qs;
  lower_multiply(p, shift.data(), qs);
  sf.obj_const += 0.5 * dot(qs, shift.data());
  for (int32_t k = 0; k < sf.num_struct; ++k)
    sf.c[static_cast<size_t>(k)] += sf.sign[static_cast<size_t>(k)] * qs[static_cast<size_t>(sf.source[static_cast<size_t>(k)])];
  // Both triangles, by counting.
  sf.q_ptr.assign(static_cast<size_t>(sf.n) + 1, 0);
  auto each = [&](auto&& f) {
    for (size_t j = 0; j < n; ++j) {
      if (internal[j] < 0) continue;
      for (int64_t k = p.q_col_ptr[j]; k < p.q_col_ptr[j + 1]; ++k) {
        const size_t i = static_cast<size_t>(p.q_row_idx[static_cast<size_t>(k)]);
        const double v = p.q_values[static_cast<size_t>(k)];
        if (internal[i] < 0 || v == 0.0) continue;
        const int32_t ki = internal[i], kj = internal[j];
        const double sv = v * sf.sign[static_cast<size_t>(ki)] * sf.sign[static_cast<size_t>(kj)];
        f(ki, kj, sv);
        if (ki != kj) f(kj, ki, sv);
      }
    }
  };
  each([&](int32_t, int32_t col, double) { ++sf.q_ptr[static_cast<size_t>(col) + 1]; });
  for (size_t k = 0; k < static_cast<size_t>(sf.n); ++k) sf.q_ptr[k + 1] += sf.q_ptr[k];
  sf.q_idx.assign(static_cast<size_t>(sf.q_ptr.back()), 0);
  sf.q_val.assign(sf.q_idx.size(), 0.0);
  std::vector<int64_t> pos(sf.q_ptr.begin(), sf.q_ptr.end() - 1);
  each([&](int32_t row, int32_t col, double v) {
    const size_t at = static_cast<size_t>(pos[static_cast<size_t>(col)]++);
    sf.q_idx[at] = row;
    sf.q_val[at] = v;
  });
}

// Appends one internal column with entries (rows, vals) of a variable with bounds [lo, up].
void add_column(StandardForm& sf, int32_t source, const int32_t* rows, const double* vals,
                int64_t count, double cost, double lo, double up) {
  double sgn = 1.0, sh = 0.0, ub = kInf;
  ColKind kind = ColKind::kLower;
  if (finite_lo(lo)) {
    sh = lo;
    if (finite_up(up)) {
      kind = ColKind::kBoxed;
      ub = up - lo;
    }
  } else if (finite_up(up)) {
    sgn = -1.0;
    sh = up;
  } else {
    kind = ColKind::kFree;
  }
  for (int64_t k = 0; k < count; ++k) {
    const int32_t i = sf.internal_row[static_cast<size_t>(rows[k])];
    if (i < 0 || vals[k] == 0.0) continue;
    sf.row_idx.push_back(i);
    sf.values.push_back(sgn * vals[k]);
    if (sh != 0.0) sf.b[static_cast<size_t>(i)] -= vals[k] * sh;
  }
  sf.col_ptr.push_back(static_cast<int64_t>(sf.row_idx.size()));
  sf.c.push_back(sgn * cost);
  sf.obj_const += cost * sh;
  sf.u.push_back(ub);
  sf.kind.push_back(kind);
  sf.source.push_back(source);
  sf.shift.push_back(sh);
  sf.sign.push_back(static_cast<int8_t>(sgn));
  ++sf.n;
}

}  // namespace

bool build_standard_form(const LpProblem& p, StandardForm& sf, std::string* why) {
  if (!check_data(p, why)) return false;
  sf = StandardForm();
  sf.obj_const = p.cfix;
  // Room for every column and entry at once, faulted in ahead: at most one slack per row.
  const size_t max_cols = static_cast<size_t>(p.num_col) + static_cast<size_t>(p.num_row);
  const size_t max_entries = p.row_idx.size() + static_cast<size_t>(p.num_row);
  platform::reserve_prefaulted(sf.col_ptr, max_cols + 1);
  platform::reserve_prefaulted(sf.row_idx, max_entries);
  platform::reserve_prefaulted(sf.values, max_entries);
  for (auto* v : {&sf.c, &sf.u, &sf.shift}) platform::reserve_prefaulted(*v, max_cols);
  platform::reserve_prefaulted(sf.kind, max_cols);
  platform::reserve_prefaulted(sf.source, max_cols);
  platform::reserve_prefaulted(sf.sign, max_cols);
  platform::reserve_prefaulted(sf.row_of, static_cast<size_t>(p.num_row));
  platform::assign_prefaulted(sf.internal_row, static_cast<size_t>(p.num_row), -1);
  for (int32_t i = 0; i < p.num_row; ++i) {
    if (!finite_lo(p.row_lo[static_cast<size_t>(i)]) && !finite_up(p.row_up[static_cast<size_t>(i)]))
      continue;
    sf.internal_row[static_cast<size_t>(i)] = sf.m++;
    sf.row_of.push_back(i);
  }
  platform::assign_prefaulted(sf.b, static_cast<size_t>(sf.m), 0.0);
  for (int32_t r = 0; r < sf.m; ++r) {
    const size_t i = static_cast<size_t>(sf.row_of[static_cast<size_t>(r)]);
    if (p.row_lo[i] == p.row_up[i]) sf.b[static_cast<size_t>(r)] = p.row_lo[i];
  }
  sf.col_ptr.push_back(0);
  for (int32_t j = 0; j < p.num_col; ++j) {
    const size_t jj = static_cast<size_t>(j);
    const int64_t beg = p.col_ptr[jj], cnt = p.col_ptr[jj + 1] - beg;
    const int32_t* rows = p.row_idx.data() + beg;
    const double* vals = p.values.data() + beg;
    if (p.col_lo[jj] == p.col_up[jj]) {  // fixed: moved into b and the constant
      const double val = p.col_lo[jj];
      for (int64_t k = 0; k < cnt; ++k) {
        const int32_t i = sf.internal_row[static_cast<size_t>(rows[k])];
        if (i >= 0) sf.b[static_cast<size_t>(i)] -= vals[k] * val;
      }
      sf.obj_const += p.c[jj] * val;
      continue;
    }
    add_column(sf, j, rows, vals, cnt, p.c[jj], p.col_lo[jj], p.col_up[jj]);
  }
  sf.num_struct = sf.n;
  const double minus_one = -1.0;
  for (int32_t r = 0; r < sf.m; ++r) {
    const int32_t i = sf.row_of[static_cast<size_t>(r)];
    const double lo = p.row_lo[static_cast<size_t>(i)], up = p.row_up[static_cast<size_t>(i)];
    if (lo == up) continue;
    add_column(sf, -i - 1, &i, &minus_one, 1, 0.0, lo, up);
  }
  add_quadratic(p, sf);
  return true;
}

bool StandardForm::q_offdiagonal() const {
  for (size_t j = 0; j + 1 < q_ptr.size(); ++j)
    for (int64_t k = q_ptr[j]; k < q_ptr[j + 1]; ++k)
      if (q_idx[static_cast<size_t>(k)] != static_cast<int32_t>(j)) return true;
  return false;
}

void StandardForm::multiply_q(const double* z, double* out) const {
  for (size_t j = 0; j < static_cast<size_t>(n); ++j) out[j] = 0.0;
  if (q_ptr.empty()) return;
  for (size_t j = 0; j < static_cast<size_t>(n); ++j) {
    double t = 0.0;
    for (int64_t k = q_ptr[j]; k < q_ptr[j + 1]; ++k)
      t += q_val[static_cast<size_t>(k)] * z[q_idx[static_cast<size_t>(k)]];
    out[j] = t;
  }
}

namespace {

void split(double d, double& lo_part, double& up_part) {
  lo_part = d > 0.0 ? d : 0.0;
  up_part = d < 0.0 ? -d : 0.0;
}

// Reduced cost c_j + (Qx)_j - a_j'y of a problem column (the objective omitted for a dual ray).
double reduced_cost(const LpProblem& p, size_t j, const std::vector<double>& y, const std::vector<double>& qx,
                    bool with_c) {
  double d = with_c ? p.c[j] + qx[j] : 0.0;
  for (int64_t k = p.col_ptr[j]; k < p.col_ptr[j + 1]; ++k)
    d -= p.values[static_cast<size_t>(k)] * y[static_cast<size_t>(p.row_idx[static_cast<size_t>(k)])];
  return d;
}

}  // namespace

void recover(const LpProblem& p, const StandardForm& sf, const InternalPoint& pt,
             RecoverKind kind, IpResult& r) {
  const size_t n = static_cast<size_t>(p.num_col), m = static_cast<size_t>(p.num_row);
  const bool primal = kind != RecoverKind::kDualRay, dual = kind != RecoverKind::kPrimalRay;
  const bool shifted = kind == RecoverKind::kSolution;
  r.x.assign(n, 0.0);
  r.xc.assign(m, 0.0);
  r.y.assign(m, 0.0);
  r.slc.assign(m, 0.0);
  r.suc.assign(m, 0.0);
  r.slx.assign(n, 0.0);
  r.sux.assign(n, 0.0);
  if (primal && shifted)
    for (size_t j = 0; j < n; ++j)
      if (p.col_lo[j] == p.col_up[j]) r.x[j] = p.col_lo[j];
  if (dual)
    for (int32_t i = 0; i < sf.m; ++i)
      r.y[static_cast<size_t>(sf.row_of[static_cast<size_t>(i)])] = pt.y[i];
  std::vector<bool> row_done(m, false);
  for (int32_t k = 0; k < sf.n; ++k) {
    const size_t kk = static_cast<size_t>(k);
    const double sgn = sf.sign[kk];
    const double s = dual && sf.kind[kk] != ColKind::kFree ? pt.s[k] : 0.0;
    const double v = dual && sf.kind[kk] == ColKind::kBoxed ? pt.v[k] : 0.0;
    const double lo_dual = sgn > 0 ? s : v, up_dual = sgn > 0 ? v : s;
    if (sf.source[kk] >= 0) {
      const size_t j = static_cast<size_t>(sf.source[kk]);
      if (primal) r.x[j] = (shifted ? sf.shift[kk] : 0.0) + sgn * pt.x[k];
      r.slx[j] = lo_dual;
      r.sux[j] = up_dual;
    } else {
      const size_t i = static_cast<size_t>(-sf.source[kk] - 1);
      r.slc[i] = lo_dual;
      r.suc[i] = up_dual;
      row_done[i] = true;
    }
  }
  for (size_t i = 0; i < m; ++i)
    if (!row_done[i]) split(r.y[i], r.slc[i], r.suc[i]);
  std::vector<double> qx;
  lower_multiply(p, r.x.data(), qx);
  for (size_t j = 0; j < n; ++j) {
    for (int64_t k = p.col_ptr[j]; k < p.col_ptr[j + 1]; ++k)
      r.xc[static_cast<size_t>(p.row_idx[static_cast<size_t>(k)])] +=
          p.values[static_cast<size_t>(k)] * r.x[j];
    if (dual && p.col_lo[j] == p.col_up[j])
      split(reduced_cost(p, j, r.y, qx, kind == RecoverKind::kSolution), r.slx[j], r.sux[j]);
  }
}

// 1/2 x'Qx of a solution; certificates carry none (Q x = 0 on a ray).
double half_quadratic(const LpProblem& p, const IpResult& r, bool with_constant) {
  if (!with_constant || !p.quadratic()) return 0.0;
  std::vector<double> qx;
  lower_multiply(p, r.x.data(), qx);
  return 0.5 * dot(qx, r.x.data());
}

double primal_objective(const LpProblem& p, const IpResult& r, bool with_constant) {
  double obj = with_constant ? p.cfix : 0.0;
  for (size_t j = 0; j < p.c.size(); ++j) obj += p.c[j] * r.x[j];
  return obj + half_quadratic(p, r, with_constant);
}

double dual_objective(const LpProblem& p, const IpResult& r, bool with_constant) {
  double obj = (with_constant ? p.cfix : 0.0) - half_quadratic(p, r, with_constant);
  auto term = [](double bound, double dual) {
    return std::isfinite(bound) && dual != 0.0 ? bound * dual : 0.0;
  };
  for (size_t i = 0; i < p.row_lo.size(); ++i)
    obj += term(p.row_lo[i], r.slc[i]) - term(p.row_up[i], r.suc[i]);
  for (size_t j = 0; j < p.col_lo.size(); ++j)
    obj += term(p.col_lo[j], r.slx[j]) - term(p.col_up[j], r.sux[j]);
  return obj;
}

}  // namespace qubor::interior
