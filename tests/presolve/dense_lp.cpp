// Dense two-phase tableau simplex and KKT checks for the presolve tests; see dense_lp.h.
//
// The LP is brought to standard form min c's, A_s s = b, s >= 0: a column with a finite lower
// bound becomes l + p (plus a row p + t = u - l when u is finite), one with only an upper
// bound u - q, a free one p - q; a row gets a surplus or slack variable (ranged rows both
// sides through an extra row). Phase 1 minimizes the sum of artificials, phase 2 the cost;
// both use Bland's rule, so small degenerate problems terminate. Row duals are read from the
// reduced costs of the artificial columns.
#include "dense_lp.h"

#include <algorithm>
#include <cmath>
#include <sstream>

namespace qubor::presolve::testing {

namespace {

constexpr double kPiv = 1e-9;  // smallest pivot element accepted

struct Tableau {
  int32_t rows = 0, cols = 0;  // constraint rows; columns incl. artificials, excl. rhs
  std::vector<double> t;       // (rows + 1) x (cols + 1); row 0 is the cost row
  std::vector<int32_t> basis;
  double& at(int32_t r, int32_t c) { return t[static_cast<size_t>(r) * (cols + 1) + c]; }

  void pivot(int32_t r, int32_t c) {
    const double p = at(r, c);
    for (int32_t k = 0; k <= cols; ++k) at(r, k) /= p;
    for (int32_t i = 0; i <= rows; ++i) {
      if (i == r) continue;
      const double f = at(i, c);
      if (f == 0.0) continue;
      for (int32_t k = 0; k <= cols; ++k) at(i, k) -= f * at(r, k);
    }
    basis[r - 1] = c;
  }

  // Returns false when unbounded. Columns >= first_excluded never enter.
  bool run(int32_t first_excluded) {
    for (int iter = 0; iter < 100000; ++iter) {
      int32_t enter = -1;
      for (int32_t j = 0; j < first_excluded; ++j) {
        if (at(0, j) < -1e-9) {
          enter = j;
          break;
        }
      }
      if (enter < 0) return true;
      // Harris ratio test: the largest pivot among the rows whose ratio is within a small
      // relaxation of the minimum.
      double bound = HUGE_VAL;
      for (int32_t i = 1; i <= rows; ++i) {
        const double a = at(i, enter);
        if (a > kPiv) bound = std::min(bound, (std::max(at(i, cols), 0.0) + 1e-9) / a);
      }
      int32_t leave = -1;
      for (int32_t i = 1; i <= rows; ++i) {
        const double a = at(i, enter);
        if (a > kPiv && std::max(at(i, cols), 0.0) / a <= bound && (leave < 0 || a > at(leave, enter))) leave = i;
      }
      if (leave < 0) return false;
      pivot(leave, enter);
    }
    return true;
  }
};

struct StandardForm {
  int32_t n = 0;                      // standard variables
  std::vector<std::vector<double>> a;  // rows of the standard form
  std::vector<double> b, cost;
  std::vector<int32_t> main_row;  // per original row, its standard row or -1
  std::vector<int32_t> pos, neg;  // per original column, standard variables or -1
  std::vector<double> offset;     // x = offset + p - q
  double c0 = 0.0;
};

StandardForm standard_form(const DenseLp& p) {
  StandardForm s;
  s.pos.assign(p.n, -1);
  s.neg.assign(p.n, -1);
  s.offset.assign(p.n, 0.0);
  std::vector<std::pair<int32_t, double>> upper_rows;  // (variable, range)
  for (int32_t j = 0; j < p.n; ++j) {
    if (std::isfinite(p.l[j])) {
      s.offset[j] = p.l[j];
      s.pos[j] = s.n++;
      if (std::isfinite(p.u[j])) upper_rows.push_back({s.pos[j], p.u[j] - p.l[j]});
    } else if (std::isfinite(p.u[j])) {
      s.offset[j] = p.u[j];
      s.neg[j] = s.n++;
    } else {
      s.pos[j] = s.n++;
      s.neg[j] = s.n++;
    }
  }
  struct RowSpec {
    int32_t orig;
    double rhs;
    int32_t slack_sign;  // -1 surplus, +1 slack, 0 none
    double range;        // > 0: ranged row
  };
  std::vector<RowSpec> specs;
  s.main_row.assign(p.m, -1);
  for (int32_t i = 0; i < p.m; ++i) {
    double shift = 0.0;
    for (int32_t j = 0; j < p.n; ++j) shift += p.at(i, j) * s.offset[j];
    const bool hl = std::isfinite(p.rl[i]), hu = std::isfinite(p.ru[i]);
    if (!hl && !hu) continue;
    s.main_row[i] = static_cast<int32_t>(specs.size());
    if (hl && hu && p.rl[i] == p.ru[i]) specs.push_back({i, p.rl[i] - shift, 0, 0.0});
    else if (hl && hu) specs.push_back({i, p.rl[i] - shift, -1, p.ru[i] - p.rl[i]});
    else if (hl) specs.push_back({i, p.rl[i] - shift, -1, 0.0});
    else specs.push_back({i, p.ru[i] - shift, +1, 0.0});
  }
  std::vector<int32_t> slack_var(specs.size(), -1);
  for (size_t r = 0; r < specs.size(); ++r)
    if (specs[r].slack_sign != 0) slack_var[r] = s.n++;
  std::vector<int32_t> range_var(specs.size(), -1);
  for (size_t r = 0; r < specs.size(); ++r)
    if (specs[r].range > 0) range_var[r] = s.n++;
  std::vector<int32_t> ub_var(upper_rows.size());
  for (size_t r = 0; r < upper_rows.size(); ++r) ub_var[r] = s.n++;
  s.cost.assign(s.n, 0.0);
  s.c0 = p.c0;
  for (int32_t j = 0; j < p.n; ++j) {
    s.c0 += p.c[j] * s.offset[j];
    if (s.pos[j] >= 0) s.cost[s.pos[j]] += p.c[j];
    if (s.neg[j] >= 0) s.cost[s.neg[j]] -= p.c[j];
  }
  for (size_t r = 0; r < specs.size(); ++r) {
    std::vector<double> row(s.n, 0.0);
    const int32_t i = specs[r].orig;
    for (int32_t j = 0; j < p.n; ++j) {
      if (s.pos[j] >= 0) row[s.pos[j]] += p.at(i, j);
      if (s.neg[j] >= 0) row[s.neg[j]] -= p.at(i, j);
    }
    if (slack_var[r] >= 0) row[slack_var[r]] = specs[r].slack_sign;
    s.a.push_back(row);
    s.b.push_back(specs[r].rhs);
  }
  for (size_t r = 0; r < specs.size(); ++r) {
    if (range_var[r] < 0) continue;
    std::vector<double> row(s.n, 0.0);
    row[slack_var[r]] = 1.0;
    row[range_var[r]] = 1.0;
    s.a.push_back(row);
    s.b.push_back(specs[r].range);
  }
  for (size_t r = 0; r < upper_rows.size(); ++r) {
    std::vector<double> row(s.n, 0.0);
    row[upper_rows[r].first] = 1.0;
    row[ub_var[r]] = 1.0;
    s.a.push_back(row);
    s.b.push_back(upper_rows[r].second);
  }
  return s;
}

}  // namespace

DenseResult solve_dense(const DenseLp& p) {
  const StandardForm s = standard_form(p);
  const int32_t ms = static_cast<int32_t>(s.a.size());
  Tableau tb;
  tb.rows = ms;
  tb.cols = s.n + ms;
  tb.t.assign(static_cast<size_t>(ms + 1) * (tb.cols + 1), 0.0);
  tb.basis.assign(ms, 0);
  std::vector<double> sign(ms, 1.0);
  for (int32_t r = 0; r < ms; ++r) {
    sign[r] = s.b[r] < 0 ? -1.0 : 1.0;
    for (int32_t k = 0; k < s.n; ++k) tb.at(r + 1, k) = sign[r] * s.a[r][k];
    tb.at(r + 1, s.n + r) = 1.0;
    tb.at(r + 1, tb.cols) = sign[r] * s.b[r];
    tb.basis[r] = s.n + r;
    for (int32_t k = 0; k < s.n; ++k) tb.at(0, k) -= tb.at(r + 1, k);
    tb.at(0, tb.cols) -= tb.at(r + 1, tb.cols);
  }
  DenseResult res;
  tb.run(s.n);
  if (-tb.at(0, tb.cols) > 1e-7 * (1.0 + std::fabs(tb.at(0, tb.cols)))) {
    res.status = LpStatus::kInfeasible;
    return res;
  }
  // Drive basic artificials out where a real column can replace them.
  for (int32_t r = 1; r <= ms; ++r) {
    if (tb.basis[r - 1] < s.n) continue;
    int32_t best = -1;
    for (int32_t k = 0; k < s.n; ++k)
      if (std::fabs(tb.at(r, k)) > 1e-7 && (best < 0 || std::fabs(tb.at(r, k)) > std::fabs(tb.at(r, best)))) best = k;
    if (best >= 0) tb.pivot(r, best);
  }
  // Phase 2 cost row: c minus the basic costs times the rows.
  for (int32_t k = 0; k <= tb.cols; ++k) tb.at(0, k) = k < s.n ? s.cost[k] : 0.0;
  for (int32_t r = 1; r <= ms; ++r) {
    const int32_t bv = tb.basis[r - 1];
    const double cb = bv < s.n ? s.cost[bv] : 0.0;
    if (cb == 0.0) continue;
    for (int32_t k = 0; k <= tb.cols; ++k) tb.at(0, k) -= cb * tb.at(r, k);
  }
  if (!tb.run(s.n)) {
    res.status = LpStatus::kUnbounded;
    return res;
  }
  std::vector<double> xs(s.n, 0.0);
  for (int32_t r = 1; r <= ms; ++r)
    if (tb.basis[r - 1] < s.n) xs[tb.basis[r - 1]] = tb.at(r, tb.cols);
  res.x.assign(p.n, 0.0);
  for (int32_t j = 0; j < p.n; ++j) {
    res.x[j] = s.offset[j] + (s.pos[j] >= 0 ? xs[s.pos[j]] : 0.0) - (s.neg[j] >= 0 ? xs[s.neg[j]] : 0.0);
  }
  res.y.assign(p.m, 0.0);
  for (int32_t i = 0; i < p.m; ++i) {
    const int32_t r = s.main_row[i];
    if (r >= 0) res.y[i] = -sign[r] * tb.at(0, s.n + r);
  }
  res.obj = p.c0;
  for (int32_t j = 0; j < p.n; ++j) res.obj += p.c[j] * res.x[j];
  return res;
}

DenseLp to_dense(const LpProblem& p) {
  DenseLp d;
  d.n = p.n;
  d.m = p.m;
  d.a.assign(static_cast<size_t>(p.n) * p.m, 0.0);
  for (int32_t j = 0; j < p.n; ++j)
    for (int64_t q = p.colptr[j]; q < p.colptr[j + 1]; ++q) d.at(p.rowind[q], j) += p.val[q];
  d.c.assign(p.c.begin(), p.c.end());
  d.l.assign(p.l.begin(), p.l.end());
  d.u.assign(p.u.begin(), p.u.end());
  d.rl.assign(p.rl.begin(), p.rl.end());
  d.ru.assign(p.ru.begin(), p.ru.end());
  d.c0 = p.c0;
  d.is_int.assign(p.is_int.begin(), p.is_int.end());
  return d;
}

LpProblem to_sparse(const DenseLp& d) {
  LpProblem p;
  p.n = d.n;
  p.m = d.m;
  for (int32_t j = 0; j < d.n; ++j) {
    for (int32_t i = 0; i < d.m; ++i) {
      if (d.at(i, j) == 0.0) continue;
      p.rowind.push_back(i);
      p.val.push_back(d.at(i, j));
    }
    p.colptr.push_back(static_cast<int64_t>(p.rowind.size()));
  }
  p.c.assign(d.c.begin(), d.c.end());
  p.l.assign(d.l.begin(), d.l.end());
  p.u.assign(d.u.begin(), d.u.end());
  p.rl.assign(d.rl.begin(), d.rl.end());
  p.ru.assign(d.ru.begin(), d.ru.end());
  p.c0 = d.c0;
  p.is_int.assign(d.is_int.begin(), d.is_int.end());
  return p;
}

namespace {

bool near(double a, double b, double tol) { return std::fabs(a - b) <= tol * (1.0 + std::fabs(b)); }

int32_t key_by_value(double v, double lo, double hi, double tol) {
  if (lo == hi) return kKeyFixed;
  if (std::isfinite(lo) && near(v, lo, tol)) return kKeyLower;
  if (std::isfinite(hi) && near(v, hi, tol)) return kKeyUpper;
  return kKeyBasic;
}

}  // namespace

LpSolution as_solution(const LpProblem& p, const DenseResult& r) {
  LpSolution s;
  s.resize(p.n, p.m);
  for (int32_t j = 0; j < p.n; ++j) {
    double z = p.c[j];
    for (int64_t q = p.colptr[j]; q < p.colptr[j + 1]; ++q) {
      z -= p.val[q] * r.y[p.rowind[q]];
      s.xc[p.rowind[q]] += p.val[q] * r.x[j];
    }
    s.xx[j] = r.x[j];
    s.slx[j] = std::max(z, 0.0);
    s.sux[j] = std::max(-z, 0.0);
    s.skx[j] = key_by_value(r.x[j], p.l[j], p.u[j], 1e-9);
  }
  for (int32_t i = 0; i < p.m; ++i) {
    s.y[i] = r.y[i];
    s.slc[i] = std::max(r.y[i], 0.0);
    s.suc[i] = std::max(-r.y[i], 0.0);
    s.skc[i] = key_by_value(s.xc[i], p.rl[i], p.ru[i], 1e-9);
  }
  return s;
}

double objective(const LpProblem& p, const Vec<double>& x) {
  double v = p.c0;
  for (int32_t j = 0; j < p.n; ++j) v += p.c[j] * x[j];
  return v;
}

namespace {

// Checks one item (column or row) with value v in [lo, hi], duals sl, su, dual d = sl - su
// and key; returns a message or "".
std::string check_item(const char* what, int32_t k, double v, double lo, double hi, double sl, double su,
                       int32_t key, double scale, double tol) {
  std::ostringstream os;
  os << what << " " << k << " (value " << v << " in [" << lo << ", " << hi << "], sl " << sl << ", su " << su
     << ", key " << key << "): ";
  const double ftol = tol * scale;
  if (v < lo - tol * (1 + std::fabs(lo)) || v > hi + tol * (1 + std::fabs(hi))) return os.str() + "infeasible";
  if (sl < 0 || su < 0) return os.str() + "negative dual slack";
  if (sl > ftol && !std::isfinite(lo)) return os.str() + "sl on an infinite bound";
  if (su > ftol && !std::isfinite(hi)) return os.str() + "su on an infinite bound";
  if (std::isfinite(lo) && sl * std::fabs(v - lo) > ftol * (1 + std::fabs(lo))) return os.str() + "complementarity at lower";
  if (std::isfinite(hi) && su * std::fabs(hi - v) > ftol * (1 + std::fabs(hi))) return os.str() + "complementarity at upper";
  const double d = sl - su;
  switch (key) {
    case kKeyBasic:
    case kKeySuperBasic:
      if (std::fabs(d) > ftol) return os.str() + "basic with nonzero dual";
      break;
    case kKeyLower:
      if (!std::isfinite(lo) || !near(v, lo, tol)) return os.str() + "key LL off the lower bound";
      if (d < -ftol) return os.str() + "key LL with negative dual";
      break;
    case kKeyUpper:
      if (!std::isfinite(hi) || !near(v, hi, tol)) return os.str() + "key UL off the upper bound";
      if (d > ftol) return os.str() + "key UL with positive dual";
      break;
    case kKeyFixed:
      if (lo != hi) return os.str() + "key EQ without equal bounds";
      break;
    default:
      return os.str() + "invalid key";
  }
  return "";
}

}  // namespace

std::string check_kkt(const LpProblem& p, const LpSolution& s, double obj, double tol) {
  double scale = 1.0;
  for (double c : p.c) scale = std::max(scale, std::fabs(c));
  for (int32_t i = 0; i < p.m; ++i) scale = std::max(scale, std::fabs(s.y[i]));
  std::vector<double> xc(p.m, 0.0), z(p.c.begin(), p.c.end());
  for (int32_t j = 0; j < p.n; ++j) {
    for (int64_t q = p.colptr[j]; q < p.colptr[j + 1]; ++q) {
      xc[p.rowind[q]] += p.val[q] * s.xx[j];
      z[j] -= p.val[q] * s.y[p.rowind[q]];
    }
  }
  for (int32_t i = 0; i < p.m; ++i) {
    if (!near(xc[i], s.xc[i], tol)) return "row activity " + std::to_string(i) + " differs from A x";
    if (!near(s.y[i], s.slc[i] - s.suc[i], tol)) return "y != slc - suc at row " + std::to_string(i);
    std::string msg = check_item("row", i, xc[i], p.rl[i], p.ru[i], s.slc[i], s.suc[i], s.skc[i], scale, tol);
    if (!msg.empty()) return msg;
  }
  for (int32_t j = 0; j < p.n; ++j) {
    if (std::fabs(z[j] - (s.slx[j] - s.sux[j])) > tol * scale)
      return "c - A'y != slx - sux at column " + std::to_string(j) + ": " + std::to_string(z[j]) + " vs " +
             std::to_string(s.slx[j] - s.sux[j]);
    std::string msg = check_item("column", j, s.xx[j], p.l[j], p.u[j], s.slx[j], s.sux[j], s.skx[j], scale, tol);
    if (!msg.empty()) return msg;
  }
  const double value = objective(p, s.xx);
  if (!near(value, obj, tol)) return "objective " + std::to_string(value) + " instead of " + std::to_string(obj);
  return "";
}

}  // namespace qubor::presolve::testing
