#include "task/solution_eval.h"

#include <lapacke.h>

#include <algorithm>
#include <cmath>
#include <vector>

namespace qubor::task {

namespace {

bool finite_lower(int32_t bk) { return bk == QBR_BK_LO || bk == QBR_BK_FX || bk == QBR_BK_RA; }
bool finite_upper(int32_t bk) { return bk == QBR_BK_UP || bk == QBR_BK_FX || bk == QBR_BK_RA; }

// Position of (k, l), k >= l, in a packed lower triangle of dimension d.
int64_t packed_pos(int64_t d, int64_t k, int64_t l) { return l * d - l * (l - 1) / 2 + (k - l); }

double quad_form(const QMatrix& q, std::span<const double> x) {
  double s = 0.0;
  for (const QEntry& e : q) {
    const double v = e.v * x[static_cast<size_t>(e.i)] * x[static_cast<size_t>(e.j)];
    s += e.i == e.j ? v : 2.0 * v;
  }
  return s;
}

// out += w * Q x for the symmetric Q given by its lower triangle.
void add_q_times(const QMatrix& q, std::span<const double> x, double w, std::vector<double>& out) {
  for (const QEntry& e : q) {
    out[static_cast<size_t>(e.i)] += w * e.v * x[static_cast<size_t>(e.j)];
    if (e.i != e.j) out[static_cast<size_t>(e.j)] += w * e.v * x[static_cast<size_t>(e.i)];
  }
}

// <E_m, X> for stored matrix m and the packed X.
double sym_inner(const Problem& p, int64_t m, const double* x) {
  const SymMat& e = p.symmats.mats[static_cast<size_t>(m)];
  double s = 0.0;
  for (int64_t q = e.start; q < e.start + e.nz; ++q) {
    const auto k = p.symmats.subi[static_cast<size_t>(q)], l = p.symmats.subj[static_cast<size_t>(q)];
    const double v = p.symmats.val[static_cast<size_t>(q)] * x[packed_pos(e.dim, k, l)];
    s += k == l ? v : 2.0 * v;
  }
  return s;
}

double coef_inner(const Problem& p, const BarCoefs& c, const BarTerm& b, const double* x) {
  double s = 0.0;
  for (int64_t q = b.start; q < b.start + b.num; ++q)
    s += c.weight[static_cast<size_t>(q)] * sym_inner(p, c.mat[static_cast<size_t>(q)], x);
  return s;
}

// Activities r_i of all constraints.
std::vector<double> activities(const Task& t, const Solution& s) {
  const Problem& p = t.problem;
  std::vector<double> r(static_cast<size_t>(p.num_con), 0.0);
  const CompressedView& a = p.a.csc();
  for (int32_t j = 0; j < a.num_items; ++j)
    for (int64_t q = a.ptr[j]; q < a.ptr[j + 1]; ++q)
      r[static_cast<size_t>(a.idx[q])] += a.val[q] * s.xx[static_cast<size_t>(j)];
  for (size_t i = 0; i < p.qcon.size(); ++i) r[i] += 0.5 * quad_form(p.qcon[i], s.xx);
  for (const BarTerm& b : p.bara.terms)
    r[static_cast<size_t>(b.i)] += coef_inner(p, p.bara, b, s.barx.data() + barvar_offset(p, b.j));
  return r;
}

double norm2(const double* x, int64_t n, int64_t from) {
  double s = 0.0;
  for (int64_t k = from; k < n; ++k) s += x[k] * x[k];
  return std::sqrt(s);
}

// How far x (n members) lies outside a cone of the given type.
double cone_viol(int32_t type, double alpha, const double* x, int64_t n) {
  const auto pos = [](double v) { return std::max(0.0, v); };
  switch (type) {
    case QBR_CT_QUAD: return n == 0 ? 0.0 : pos(norm2(x, n, 1) - x[0]);
    case QBR_CT_RQUAD: {
      if (n < 2) return 0.0;
      const double root = std::sqrt(2.0 * std::max(0.0, x[0]) * std::max(0.0, x[1]));
      return std::max({pos(-x[0]), pos(-x[1]), pos(norm2(x, n, 2) - root)});
    }
    case QBR_CT_PEXP: {
      if (n != 3) return 0.0;
      const double v = x[1] > 0 ? x[1] * std::exp(x[2] / x[1]) - x[0] : pos(x[2]);
      return std::max({pos(-x[0]), pos(-x[1]), pos(v)});
    }
    case QBR_CT_DEXP: {
      if (n != 3) return 0.0;
      const double v = x[2] < 0 ? -x[2] * std::exp(x[1] / x[2] - 1.0) - x[0] : pos(-x[1]);
      return std::max({pos(-x[0]), pos(x[2]), pos(v)});
    }
    case QBR_CT_PPOW:
    case QBR_CT_DPOW: {
      if (n < 2) return 0.0;
      const double a = type == QBR_CT_PPOW ? x[0] : x[0] / alpha;
      const double b = type == QBR_CT_PPOW ? x[1] : x[1] / (1.0 - alpha);
      const double mean = std::pow(std::max(0.0, a), alpha) * std::pow(std::max(0.0, b), 1.0 - alpha);
      return std::max({pos(-x[0]), pos(-x[1]), pos(norm2(x, n, 2) - mean)});
    }
    case QBR_CT_ZERO: {
      double m = 0.0;
      for (int64_t k = 0; k < n; ++k) m = std::max(m, std::fabs(x[k]));
      return m;
    }
    default: return 0.0;
  }
}

int32_t dual_cone_type(int32_t type) {
  switch (type) {
    case QBR_CT_PEXP: return QBR_CT_DEXP;
    case QBR_CT_DEXP: return QBR_CT_PEXP;
    case QBR_CT_PPOW: return QBR_CT_DPOW;
    case QBR_CT_DPOW: return QBR_CT_PPOW;
    default: return type;
  }
}

double sense_sign(const Problem& p) { return p.obj_sense == QBR_OBJECTIVE_SENSE_MAXIMIZE ? -1.0 : 1.0; }

// Sign violations of a lower/upper dual pair.
double bound_dual_viol(int32_t bk, double sl, double su, double sigma) {
  double v = std::max({0.0, -sigma * sl, -sigma * su});
  if (!finite_lower(bk)) v = std::max(v, std::fabs(sl));
  if (!finite_upper(bk)) v = std::max(v, std::fabs(su));
  return v;
}

double max_abs(std::span<const double> v) {
  double m = 0.0;
  for (double x : v) m = std::max(m, std::fabs(x));
  return m;
}

}  // namespace

int64_t barvar_offset(const Problem& p, int32_t j) {
  int64_t off = 0;
  for (int32_t k = 0; k < j; ++k) off += p.barvar_len(k);
  return off;
}

double min_eigenvalue(std::span<const double> packed, int32_t dim) {
  const auto d = static_cast<size_t>(dim);
  if (d == 0) return 0.0;
  std::vector<double> m(d * d);
  for (size_t l = 0; l < d; ++l)
    for (size_t k = l; k < d; ++k)
      m[k * d + l] = m[l * d + k] = packed[static_cast<size_t>(packed_pos(dim, static_cast<int64_t>(k), static_cast<int64_t>(l)))];
  // The smallest eigenvalue only (LAPACK's relatively robust representations).
  std::vector<double> w(d);  // LAPACK may use all of it
  lapack_int found = 0;
  std::vector<lapack_int> isuppz(2 * d);
  if (LAPACKE_dsyevr(LAPACK_COL_MAJOR, 'N', 'I', 'L', dim, m.data(), dim, 0.0, 0.0, 1, 1, 0.0, &found, w.data(), nullptr,
                     1, isuppz.data()) != 0 ||
      found < 1)
    return -INFINITY;
  return w[0];
}

double primal_obj(const Task& t, const Solution& s) {
  const Problem& p = t.problem;
  double v = p.cfix;
  for (size_t j = 0; j < p.c.size(); ++j) v += p.c[j] * s.xx[j];
  v += 0.5 * quad_form(p.qobj, s.xx);
  for (const BarTerm& b : p.barc.terms) v += coef_inner(p, p.barc, b, s.barx.data() + barvar_offset(p, b.j));
  return v;
}

double dual_obj(const Task& t, const Solution& s) {
  const Problem& p = t.problem;
  double v = p.cfix;
  for (size_t i = 0; i < static_cast<size_t>(p.num_con); ++i) {
    const int32_t bk = p.con_bounds.bk[i];
    if (finite_lower(bk)) v += p.con_bounds.bl[i] * s.slc[i];
    if (finite_upper(bk)) v -= p.con_bounds.bu[i] * s.suc[i];
  }
  for (size_t j = 0; j < static_cast<size_t>(p.num_var); ++j) {
    const int32_t bk = p.var_bounds.bk[j];
    if (finite_lower(bk)) v += p.var_bounds.bl[j] * s.slx[j];
    if (finite_upper(bk)) v -= p.var_bounds.bu[j] * s.sux[j];
  }
  v -= 0.5 * quad_form(p.qobj, s.xx);
  for (size_t i = 0; i < p.qcon.size(); ++i) v += 0.5 * s.y[i] * quad_form(p.qcon[i], s.xx);
  return v;
}

void primal_viol(const Task& t, const Solution& s, ViolKind kind, std::span<const int32_t> sub, double* viol) {
  const Problem& p = t.problem;
  switch (kind) {
    case ViolKind::kCon: {
      const std::vector<double> r = activities(t, s);
      for (size_t k = 0; k < sub.size(); ++k) {
        const auto i = static_cast<size_t>(sub[k]);
        const int32_t bk = p.con_bounds.bk[i];
        double v = std::fabs(s.xc[i] - r[i]);
        if (finite_lower(bk)) v = std::max(v, p.con_bounds.bl[i] - s.xc[i]);
        if (finite_upper(bk)) v = std::max(v, s.xc[i] - p.con_bounds.bu[i]);
        viol[k] = v;
      }
      return;
    }
    case ViolKind::kVar:
      for (size_t k = 0; k < sub.size(); ++k) {
        const auto j = static_cast<size_t>(sub[k]);
        const int32_t bk = p.var_bounds.bk[j];
        double v = 0.0;
        if (finite_lower(bk)) v = std::max(v, p.var_bounds.bl[j] - s.xx[j]);
        if (finite_upper(bk)) v = std::max(v, s.xx[j] - p.var_bounds.bu[j]);
        viol[k] = v;
      }
      return;
    case ViolKind::kBarvar:
      for (size_t k = 0; k < sub.size(); ++k) {
        const int32_t j = sub[k];
        const std::span<const double> x(s.barx.data() + barvar_offset(p, j), static_cast<size_t>(p.barvar_len(j)));
        viol[k] = std::max(0.0, -min_eigenvalue(x, p.barvar_dim[static_cast<size_t>(j)]));
      }
      return;
    case ViolKind::kCone:
      for (size_t k = 0; k < sub.size(); ++k) {
        const Cone& c = p.cones.cones[static_cast<size_t>(sub[k])];
        std::vector<double> x(static_cast<size_t>(c.n));
        for (int32_t q = 0; q < c.n; ++q) x[static_cast<size_t>(q)] = s.xx[static_cast<size_t>(p.cones.members[static_cast<size_t>(c.start + q)])];
        viol[k] = cone_viol(c.type, c.par, x.data(), c.n);
      }
      return;
  }
}

void dual_viol(const Task& t, const Solution& s, ViolKind kind, std::span<const int32_t> sub, double* viol) {
  const Problem& p = t.problem;
  const double sigma = sense_sign(p);
  switch (kind) {
    case ViolKind::kCon:
      for (size_t k = 0; k < sub.size(); ++k) {
        const auto i = static_cast<size_t>(sub[k]);
        viol[k] = std::max(std::fabs(s.y[i] - s.slc[i] + s.suc[i]), bound_dual_viol(p.con_bounds.bk[i], s.slc[i], s.suc[i], sigma));
      }
      return;
    case ViolKind::kVar: {
      // Stationarity residual c + Q^o x - sum_i y_i (a_i + Q^i x) - slx + sux - snx.
      std::vector<double> g(p.c.begin(), p.c.end());
      add_q_times(p.qobj, s.xx, 1.0, g);
      for (size_t i = 0; i < p.qcon.size(); ++i) add_q_times(p.qcon[i], s.xx, -s.y[i], g);
      const CompressedView& a = p.a.csc();
      for (int32_t j = 0; j < a.num_items; ++j)
        for (int64_t q = a.ptr[j]; q < a.ptr[j + 1]; ++q) g[static_cast<size_t>(j)] -= a.val[q] * s.y[static_cast<size_t>(a.idx[q])];
      for (size_t k = 0; k < sub.size(); ++k) {
        const auto j = static_cast<size_t>(sub[k]);
        const double res = g[j] - s.slx[j] + s.sux[j] - s.snx[j];
        viol[k] = std::max(std::fabs(res), bound_dual_viol(p.var_bounds.bk[j], s.slx[j], s.sux[j], sigma));
      }
      return;
    }
    case ViolKind::kBarvar:
      for (size_t k = 0; k < sub.size(); ++k) {
        const int32_t j = sub[k];
        const auto len = static_cast<size_t>(p.barvar_len(j));
        const int64_t d = p.barvar_dim[static_cast<size_t>(j)];
        const double* bs = s.bars.data() + barvar_offset(p, j);
        // Residual barC_j - sum_i y_i barA_ij - barS_j, assembled in packed form.
        std::vector<double> res(bs, bs + len), scaled(len);
        for (double& v : res) v = -v;
        auto add = [&](const BarCoefs& c, const BarTerm& b, double w) {
          for (int64_t q = b.start; q < b.start + b.num; ++q) {
            const SymMat& e = p.symmats.mats[static_cast<size_t>(c.mat[static_cast<size_t>(q)])];
            for (int64_t r = e.start; r < e.start + e.nz; ++r)
              res[static_cast<size_t>(packed_pos(d, p.symmats.subi[static_cast<size_t>(r)], p.symmats.subj[static_cast<size_t>(r)]))] +=
                  w * c.weight[static_cast<size_t>(q)] * p.symmats.val[static_cast<size_t>(r)];
          }
        };
        for (const BarTerm& b : p.barc.terms)
          if (b.j == j) add(p.barc, b, 1.0);
        for (const BarTerm& b : p.bara.terms)
          if (b.j == j) add(p.bara, b, -s.y[static_cast<size_t>(b.i)]);
        for (size_t q = 0; q < len; ++q) scaled[q] = sigma * bs[q];
        viol[k] = std::max(max_abs(res), std::max(0.0, -min_eigenvalue(scaled, static_cast<int32_t>(d))));
      }
      return;
    case ViolKind::kCone:
      for (size_t k = 0; k < sub.size(); ++k) {
        const Cone& c = p.cones.cones[static_cast<size_t>(sub[k])];
        std::vector<double> x(static_cast<size_t>(c.n));
        for (int32_t q = 0; q < c.n; ++q)
          x[static_cast<size_t>(q)] = sigma * s.snx[static_cast<size_t>(p.cones.members[static_cast<size_t>(c.start + q)])];
        viol[k] = c.type == QBR_CT_ZERO ? 0.0 : cone_viol(dual_cone_type(c.type), c.par, x.data(), c.n);
      }
      return;
  }
}

double integer_viol(const Task& t, const Solution& s) {
  double v = 0.0;
  for (size_t j = 0; j < t.problem.var_type.size(); ++j)
    if (t.problem.var_type[j] == QBR_VAR_TYPE_INT) v = std::max(v, std::fabs(s.xx[j] - std::round(s.xx[j])));
  return v;
}

PrimalNorms primal_norms(const Solution& s) { return {max_abs(s.xc), max_abs(s.xx), max_abs(s.barx)}; }

DualNorms dual_norms(const Solution& s) {
  return {max_abs(s.y), max_abs(s.slc), max_abs(s.suc), max_abs(s.slx), max_abs(s.sux), max_abs(s.snx), max_abs(s.bars)};
}

namespace {

double max_viol(const Task& t, const Solution& s, ViolKind kind, int32_t count, bool primal) {
  if (count == 0) return 0.0;
  std::vector<int32_t> sub(static_cast<size_t>(count));
  for (int32_t k = 0; k < count; ++k) sub[static_cast<size_t>(k)] = k;
  std::vector<double> v(sub.size());
  if (primal)
    primal_viol(t, s, kind, sub, v.data());
  else
    dual_viol(t, s, kind, sub, v.data());
  return *std::max_element(v.begin(), v.end());
}

}  // namespace

SolutionInfo solution_info(const Task& t, int32_t which) {
  const Problem& p = t.problem;
  const Solution& s = t.solutions[which];
  SolutionInfo info;
  info.pobj = primal_obj(t, s);
  info.pviolcon = max_viol(t, s, ViolKind::kCon, p.num_con, true);
  info.pviolvar = max_viol(t, s, ViolKind::kVar, p.num_var, true);
  info.pviolbarvar = max_viol(t, s, ViolKind::kBarvar, p.num_barvar, true);
  info.pviolcone = max_viol(t, s, ViolKind::kCone, p.num_cone, true);
  info.pviolitg = integer_viol(t, s);
  if (which == QBR_SOL_ITG) return info;
  info.dobj = dual_obj(t, s);
  info.dviolcon = max_viol(t, s, ViolKind::kCon, p.num_con, false);
  info.dviolvar = max_viol(t, s, ViolKind::kVar, p.num_var, false);
  info.dviolbarvar = max_viol(t, s, ViolKind::kBarvar, p.num_barvar, false);
  info.dviolcone = max_viol(t, s, ViolKind::kCone, p.num_cone, false);
  return info;
}

void update_solution_info(Task& t, int32_t which) {
  const Solution& s = t.solutions[which];
  const SolutionInfo i = s.defined ? solution_info(t, which) : SolutionInfo{};
  const PrimalNorms pn = s.defined ? primal_norms(s) : PrimalNorms{};
  const DualNorms dn = s.defined ? dual_norms(s) : DualNorms{};
  const int32_t prosta = s.defined ? s.prosta : 0, solsta = s.defined ? s.solsta : 0;
  switch (which) {
    case QBR_SOL_ITR:
      t.set_iinf(QBR_IINF_SOL_ITR_PROSTA, prosta);
      t.set_iinf(QBR_IINF_SOL_ITR_SOLSTA, solsta);
      t.set_dinf(QBR_DINF_SOL_ITR_PRIMAL_OBJ, i.pobj);
      t.set_dinf(QBR_DINF_SOL_ITR_DUAL_OBJ, i.dobj);
      t.set_dinf(QBR_DINF_SOL_ITR_PVIOLCON, i.pviolcon);
      t.set_dinf(QBR_DINF_SOL_ITR_PVIOLVAR, i.pviolvar);
      t.set_dinf(QBR_DINF_SOL_ITR_PVIOLBARVAR, i.pviolbarvar);
      t.set_dinf(QBR_DINF_SOL_ITR_PVIOLCONES, i.pviolcone);
      t.set_dinf(QBR_DINF_SOL_ITR_DVIOLCON, i.dviolcon);
      t.set_dinf(QBR_DINF_SOL_ITR_DVIOLVAR, i.dviolvar);
      t.set_dinf(QBR_DINF_SOL_ITR_DVIOLBARVAR, i.dviolbarvar);
      t.set_dinf(QBR_DINF_SOL_ITR_DVIOLCONES, i.dviolcone);
      t.set_dinf(QBR_DINF_SOL_ITR_NRM_XC, pn.xc);
      t.set_dinf(QBR_DINF_SOL_ITR_NRM_XX, pn.xx);
      t.set_dinf(QBR_DINF_SOL_ITR_NRM_BARX, pn.barx);
      t.set_dinf(QBR_DINF_SOL_ITR_NRM_Y, dn.y);
      t.set_dinf(QBR_DINF_SOL_ITR_NRM_SLC, dn.slc);
      t.set_dinf(QBR_DINF_SOL_ITR_NRM_SUC, dn.suc);
      t.set_dinf(QBR_DINF_SOL_ITR_NRM_SLX, dn.slx);
      t.set_dinf(QBR_DINF_SOL_ITR_NRM_SUX, dn.sux);
      t.set_dinf(QBR_DINF_SOL_ITR_NRM_SNX, dn.snx);
      t.set_dinf(QBR_DINF_SOL_ITR_NRM_BARS, dn.bars);
      return;
    case QBR_SOL_BAS:
      t.set_iinf(QBR_IINF_SOL_BAS_PROSTA, prosta);
      t.set_iinf(QBR_IINF_SOL_BAS_SOLSTA, solsta);
      t.set_dinf(QBR_DINF_SOL_BAS_PRIMAL_OBJ, i.pobj);
      t.set_dinf(QBR_DINF_SOL_BAS_DUAL_OBJ, i.dobj);
      t.set_dinf(QBR_DINF_SOL_BAS_PVIOLCON, i.pviolcon);
      t.set_dinf(QBR_DINF_SOL_BAS_PVIOLVAR, i.pviolvar);
      t.set_dinf(QBR_DINF_SOL_BAS_DVIOLCON, i.dviolcon);
      t.set_dinf(QBR_DINF_SOL_BAS_DVIOLVAR, i.dviolvar);
      t.set_dinf(QBR_DINF_SOL_BAS_NRM_XC, pn.xc);
      t.set_dinf(QBR_DINF_SOL_BAS_NRM_XX, pn.xx);
      t.set_dinf(QBR_DINF_SOL_BAS_NRM_BARX, pn.barx);
      t.set_dinf(QBR_DINF_SOL_BAS_NRM_Y, dn.y);
      t.set_dinf(QBR_DINF_SOL_BAS_NRM_SLC, dn.slc);
      t.set_dinf(QBR_DINF_SOL_BAS_NRM_SUC, dn.suc);
      t.set_dinf(QBR_DINF_SOL_BAS_NRM_SLX, dn.slx);
      t.set_dinf(QBR_DINF_SOL_BAS_NRM_SUX, dn.sux);
      return;
    default:
      t.set_iinf(QBR_IINF_SOL_ITG_PROSTA, prosta);
      t.set_iinf(QBR_IINF_SOL_ITG_SOLSTA, solsta);
      t.set_dinf(QBR_DINF_SOL_ITG_PRIMAL_OBJ, i.pobj);
      t.set_dinf(QBR_DINF_SOL_ITG_PVIOLCON, i.pviolcon);
      t.set_dinf(QBR_DINF_SOL_ITG_PVIOLVAR, i.pviolvar);
      t.set_dinf(QBR_DINF_SOL_ITG_PVIOLBARVAR, i.pviolbarvar);
      t.set_dinf(QBR_DINF_SOL_ITG_PVIOLCONES, i.pviolcone);
      t.set_dinf(QBR_DINF_SOL_ITG_PVIOLITG, i.pviolitg);
      t.set_dinf(QBR_DINF_SOL_ITG_NRM_XC, pn.xc);
      t.set_dinf(QBR_DINF_SOL_ITG_NRM_XX, pn.xx);
      t.set_dinf(QBR_DINF_SOL_ITG_NRM_BARX, pn.barx);
      return;
  }
}

}  // namespace qubor::task
