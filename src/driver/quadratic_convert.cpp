// Convexity check and conversion to conic form of quadratic terms; see quadratic.h.
#include <algorithm>
#include <cmath>
#include <utility>

#include "driver/quadratic.h"
#include "linalg/cholesky/psd_factor.h"
#include "task/problem_ops.h"
#include "task/report.h"

namespace qubor::driver {
namespace {

using task::QMatrix;
using task::Task;

enum class Shape { kConvex, kFixed, kRanged, kFree };

// A quadratic term of the objective (row -1) or of a constraint, with the sign sigma that
// makes sigma Q positive semidefinite when the term is convex.
struct Term {
  int32_t row = -1;
  double sigma = 1.0;
  Shape shape = Shape::kConvex;
  const QMatrix* q = nullptr;
};

std::vector<Term> quadratic_terms(const Task& t) {
  const task::Problem& p = t.problem;
  std::vector<Term> terms;
  if (!p.qobj.empty())
    terms.push_back({-1, p.obj_sense == QBR_OBJECTIVE_SENSE_MAXIMIZE ? -1.0 : 1.0, Shape::kConvex, &p.qobj});
  for (size_t k = 0; k < p.qcon.size() && k < static_cast<size_t>(p.num_con); ++k) {
    if (p.qcon[k].empty()) continue;
    Term term{static_cast<int32_t>(k), 1.0, Shape::kConvex, &p.qcon[k]};
    switch (p.con_bounds.bk[k]) {
      case QBR_BK_LO: term.sigma = -1.0; break;
      case QBR_BK_FX: term.shape = Shape::kFixed; break;
      case QBR_BK_RA: term.shape = Shape::kRanged; break;
      case QBR_BK_FR: term.shape = Shape::kFree; break;
      default: break;
    }
    terms.push_back(term);
  }
  return terms;
}

// Factors sigma Q; *psd tells whether it is positive semidefinite within the tolerance.
QBRrescode factor_term(Task& t, const Term& term, bool* psd, linalg::PsdFactor* f) {
  const QMatrix& q = *term.q;
  std::vector<int32_t> subi(q.size()), subj(q.size());
  std::vector<double> val(q.size());
  for (size_t k = 0; k < q.size(); ++k) {
    subi[k] = q[k].i;
    subj[k] = q[k].j;
    val[k] = q[k].v;
  }
  const linalg::Status s =
      linalg::psd_factor(t.problem.num_var, static_cast<int64_t>(q.size()), subi.data(), subj.data(), val.data(),
                         term.sigma, t.dpar(QBR_DPAR_CHECK_CONVEXITY_REL_TOL), psd, f);
  if (s == linalg::Status::kOutOfSpace) return QBR_REPORT(t, QBR_RES_ERR_SPACE);
  if (s != linalg::Status::kOk) return QBR_REPORT(t, QBR_RES_ERR_INTERNAL);
  return QBR_RES_OK;
}

// The simple test: no diagonal entry of sigma Q below -tol max |Q_jj|, and a zero diagonal
// only where the column is zero.
bool diagonal_signs_ok(const Term& term, double tol) {
  double max_diag = 0.0;
  for (const task::QEntry& e : *term.q)
    if (e.i == e.j) max_diag = std::max(max_diag, std::fabs(e.v));
  for (const task::QEntry& e : *term.q)
    if (e.i == e.j && term.sigma * e.v < -tol * max_diag) return false;
  if (max_diag == 0.0) return false;  // only off-diagonal entries: indefinite
  return true;
}

void log_nonconvex(Task& t, const Term& term) {
  if (!t.log_on()) return;
  if (term.row < 0) {
    t.printf(QBR_STREAM_LOG, "The quadratic term of the objective is not %s semidefinite.\n",
             term.sigma > 0 ? "positive" : "negative");
    return;
  }
  const std::string name = task::con_label(t, term.row);
  if (term.shape == Shape::kFixed || term.shape == Shape::kRanged)
    t.printf(QBR_STREAM_LOG, "The constraint '%s' (%d) has a quadratic term and is %s.\n", name.c_str(), term.row,
             term.shape == Shape::kFixed ? "an equality" : "ranged");
  else
    t.printf(QBR_STREAM_LOG, "The quadratic term of constraint '%s' (%d) is not %s semidefinite.\n", name.c_str(),
             term.row, term.sigma > 0 ? "positive" : "negative");
}

// Appends the rotated cone of one term with factor f and moves its quadratic term into t.
QBRrescode convert_term(Task& t, const Term& term, const linalg::PsdFactor& f, ConvertedTerm* out) {
  const int32_t r = f.rows;
  const int32_t jt = t.problem.num_var, i0 = t.problem.num_con;
  static const int32_t kNone = 0;
  static const double kZero = 0.0;
  if (term.row < 0)
    QBR_CHECK_RC(task::put_qobj(t, 0, &kNone, &kNone, &kZero));
  else
    QBR_CHECK_RC(task::put_qcon_k(t, term.row, 0, &kNone, &kNone, &kZero));
  if (r == 0) return QBR_RES_OK;
  QBR_CHECK_RC(task::append_vars(t, 2 + r));
  QBR_CHECK_RC(task::put_bound(t, task::ItemKind::kVar, jt, QBR_BK_FR, -QBR_INFINITY, QBR_INFINITY));
  QBR_CHECK_RC(task::put_bound(t, task::ItemKind::kVar, jt + 1, QBR_BK_FX, 1.0, 1.0));
  QBR_CHECK_RC(task::put_bound_slice_const(t, task::ItemKind::kVar, jt + 2, jt + 2 + r, QBR_BK_FR, -QBR_INFINITY,
                                           QBR_INFINITY));
  QBR_CHECK_RC(task::append_cons(t, r));
  QBR_CHECK_RC(task::put_bound_slice_const(t, task::ItemKind::kCon, i0, i0 + r, QBR_BK_FX, 0.0, 0.0));
  std::vector<int32_t> sub;
  std::vector<double> val;
  for (int32_t k = 0; k < r; ++k) {
    sub.clear();
    val.clear();
    for (int64_t p = f.ptr[static_cast<size_t>(k)]; p < f.ptr[static_cast<size_t>(k) + 1]; ++p) {
      sub.push_back(f.col[static_cast<size_t>(p)]);
      val.push_back(-f.val[static_cast<size_t>(p)]);
    }
    sub.push_back(jt + 2 + k);
    val.push_back(1.0);
    QBR_CHECK_RC(task::put_arow(t, i0 + k, static_cast<int32_t>(sub.size()), sub.data(), val.data()));
  }
  if (term.row < 0)
    QBR_CHECK_RC(task::put_cj(t, jt, term.sigma));
  else
    QBR_CHECK_RC(task::put_aij(t, term.row, jt, term.sigma));
  std::vector<int32_t> members(static_cast<size_t>(r) + 2);
  for (int32_t k = 0; k < r + 2; ++k) members[static_cast<size_t>(k)] = jt + k;
  QBR_CHECK_RC(task::append_cone(t, QBR_CT_RQUAD, 0.0, r + 2, members.data()));
  *out = {term.row, jt, term.sigma};
  return QBR_RES_OK;
}

}  // namespace

QBRrescode check_convexity(Task& t) {
  const int32_t level = t.ipar(QBR_IPAR_CHECK_CONVEXITY);
  if (level == QBR_CHECK_CONVEXITY_NONE) return QBR_RES_OK;
  const std::vector<Term> terms = quadratic_terms(t);
  if (terms.empty()) return QBR_RES_OK;
  const bool full = level == QBR_CHECK_CONVEXITY_FULL;
  if (full) t.progress(QBR_CALLBACK_BEGIN_FULL_CONVEXITY_CHECK);
  QBRrescode r = QBR_RES_OK;
  for (const Term& term : terms) {
    if (term.shape == Shape::kFree) continue;
    bool convex = term.shape == Shape::kConvex;
    if (convex && full) {
      r = factor_term(t, term, &convex, nullptr);
      if (r != QBR_RES_OK) break;
    } else if (convex) {
      convex = diagonal_signs_ok(term, t.dpar(QBR_DPAR_CHECK_CONVEXITY_REL_TOL));
    }
    if (!convex) {
      log_nonconvex(t, term);
      r = QBR_REPORT(t, QBR_RES_ERR_NONCONVEX);
      break;
    }
  }
  if (full) t.progress(QBR_CALLBACK_END_FULL_CONVEXITY_CHECK);
  return r;
}

QBRrescode to_conic(Task& t, std::vector<ConvertedTerm>* converted) {
  const std::vector<Term> terms = quadratic_terms(t);
  if (terms.empty()) return QBR_RES_OK;
  t.progress(QBR_CALLBACK_BEGIN_TO_CONIC);
  // Every check and factorization before the first change.
  std::vector<linalg::PsdFactor> factors(terms.size());
  QBRrescode r = QBR_RES_OK;
  for (size_t k = 0; k < terms.size() && r == QBR_RES_OK; ++k) {
    const Term& term = terms[k];
    const std::string name = term.row >= 0 ? task::con_label(t, term.row) : std::string();
    if (term.shape == Shape::kFixed) {
      r = QBR_REPORT(t, QBR_RES_ERR_TOCONIC_CONSTRAINT_FX, name.c_str(), term.row);
    } else if (term.shape == Shape::kRanged) {
      r = QBR_REPORT(t, QBR_RES_ERR_TOCONIC_CONSTRAINT_RA, name.c_str(), term.row);
    } else if (term.shape == Shape::kFree) {
      r = QBR_REPORT(t, QBR_RES_ERR_TOCONIC_CONSTR_NOT_CONIC, name.c_str(), term.row);
    } else {
      bool psd = false;
      r = factor_term(t, term, &psd, &factors[k]);
      if (r == QBR_RES_OK && !psd)
        r = term.row < 0 ? QBR_REPORT(t, QBR_RES_ERR_TOCONIC_OBJECTIVE_NOT_PSD)
                         : QBR_REPORT(t, QBR_RES_ERR_TOCONIC_CONSTR_Q_NOT_PSD, name.c_str(), term.row);
    }
  }
  if (r == QBR_RES_OK) {
    // The terms point into the task's quadratic data, which the conversion empties: keep
    // the rows and signs only.
    task::Problem saved(t.mem);
    saved = t.problem;
    std::vector<ConvertedTerm> done;
    for (size_t k = 0; k < terms.size() && r == QBR_RES_OK; ++k) {
      Term term = terms[k];
      term.q = nullptr;
      ConvertedTerm c;
      r = convert_term(t, term, factors[k], &c);
      if (r == QBR_RES_OK && c.t_var >= 0) done.push_back(c);
    }
    if (r != QBR_RES_OK) {
      t.problem = saved;
      task::after_change(t);
    } else if (converted != nullptr) {
      *converted = std::move(done);
    }
  }
  t.progress(QBR_CALLBACK_END_TO_CONIC);
  return r;
}

}  // namespace qubor::driver
