// Matrix variables, the store of sparse symmetric matrices, and the coefficients of the
// matrix variables (weighted sums of stored matrices) in the objective (barc) and in the
// constraints (bara).
//
// Stored matrices keep their lower-triangular entries sorted column by column and unique.
// Responses: QBR_RES_ERR_NEGATIVE_APPEND, BAR_VAR_DIM, INDEX_IS_TOO_SMALL/LARGE,
// NON_UNIQUE_ARRAY, ARG_IS_TOO_SMALL, SYM_MAT_INVALID_ROW_INDEX / _COL_INDEX,
// SYM_MAT_NOT_LOWER_TRINGULAR, SYM_MAT_INVALID_VALUE, SYM_MAT_HUGE, WRN_SYM_MAT_LARGE,
// SYM_MAT_DUPLICATE, INVALID_SYM_MAT_DIM, NAN_IN_DOUBLE_DATA, UPPER_TRIANGLE.
#include <algorithm>
#include <cmath>
#include <tuple>

#include "task/problem_ops.h"
#include "task/report.h"

namespace qubor::task {

namespace {

QBRrescode check_sym_entries(Task& t, int32_t dim, int64_t nz, const int32_t* subi, const int32_t* subj,
                             const double* val, int64_t idx) {
  for (int64_t k = 0; k < nz; ++k) {
    if (subi[k] < 0 || subi[k] >= dim) return QBR_REPORT(t, QBR_RES_ERR_SYM_MAT_INVALID_ROW_INDEX, subi[k], 0, dim);
    if (subj[k] < 0 || subj[k] >= dim) return QBR_REPORT(t, QBR_RES_ERR_SYM_MAT_INVALID_COL_INDEX, subj[k], 0, dim);
    if (subi[k] < subj[k]) return QBR_REPORT(t, QBR_RES_ERR_SYM_MAT_NOT_LOWER_TRINGULAR, subi[k], subj[k]);
    if (!std::isfinite(val[k])) return QBR_REPORT(t, QBR_RES_ERR_SYM_MAT_INVALID_VALUE, val[k], subi[k], subj[k]);
    if (std::fabs(val[k]) > t.dpar(QBR_DPAR_DATA_SYM_MAT_TOL_HUGE))
      return QBR_REPORT(t, QBR_RES_ERR_SYM_MAT_HUGE, val[k], subi[k], subj[k], idx);
    if (std::fabs(val[k]) > t.dpar(QBR_DPAR_DATA_SYM_MAT_TOL_LARGE))
      QBR_CHECK_RC(QBR_REPORT(t, QBR_RES_WRN_SYM_MAT_LARGE, val[k], subi[k], subj[k], idx));
  }
  return QBR_RES_OK;
}

// Appends a checked matrix; entries sorted by (column, row). A duplicate fails before the
// store changes.
QBRrescode store_sym(Task& t, int32_t dim, int64_t nz, const int32_t* subi, const int32_t* subj, const double* val,
                     int64_t* idx) {
  std::pmr::vector<int64_t> order(static_cast<size_t>(nz), t.mem);
  for (int64_t k = 0; k < nz; ++k) order[static_cast<size_t>(k)] = k;
  std::sort(order.begin(), order.end(), [&](int64_t a, int64_t b) {
    return std::tie(subj[a], subi[a]) < std::tie(subj[b], subi[b]);
  });
  for (size_t k = 1; k < order.size(); ++k)
    if (subi[order[k]] == subi[order[k - 1]] && subj[order[k]] == subj[order[k - 1]])
      return QBR_REPORT(t, QBR_RES_ERR_SYM_MAT_DUPLICATE, subi[order[k]], subj[order[k]]);
  SymMatStore& s = t.problem.symmats;
  const auto start = static_cast<int64_t>(s.subi.size());
  for (int64_t k : order) {
    s.subi.push_back(subi[k]);
    s.subj.push_back(subj[k]);
    s.val.push_back(val[k]);
  }
  s.mats.push_back(SymMat{dim, start, nz});
  if (idx) *idx = static_cast<int64_t>(s.mats.size()) - 1;
  return QBR_RES_OK;
}

// Finds the term (i, j) in sorted terms.
std::pmr::vector<BarTerm>::iterator find_term(BarCoefs& c, int32_t i, int32_t j) {
  return std::lower_bound(c.terms.begin(), c.terms.end(), std::pair{i, j},
                          [](const BarTerm& b, const std::pair<int32_t, int32_t>& key) {
                            return std::pair{b.i, b.j} < key;
                          });
}

QBRrescode check_weights(Task& t, int32_t j, int64_t num, const int64_t* sub, const double* weights) {
  if (num < 0) return QBR_REPORT(t, QBR_RES_ERR_ARG_IS_TOO_SMALL, num, "num");
  QBR_CHECK_RC(check_array(t, sub, num, "sub"));
  QBR_CHECK_RC(check_array(t, weights, num, "weights"));
  const int32_t dim = t.problem.barvar_dim[static_cast<size_t>(j)];
  for (int64_t k = 0; k < num; ++k) {
    QBR_CHECK_RC(check_sym_mat_index(t, sub[k], "sub"));
    const int32_t mdim = t.problem.symmats.mats[static_cast<size_t>(sub[k])].dim;
    if (mdim != dim) return QBR_REPORT(t, QBR_RES_ERR_INVALID_SYM_MAT_DIM, sub[k], mdim, j, dim);
    if (std::isnan(weights[k])) return QBR_REPORT(t, QBR_RES_ERR_NAN_IN_DOUBLE_DATA, "weights", k);
  }
  return QBR_RES_OK;
}

// Replaces term (i, j); no matrices removes it.
void set_term(Task& t, BarCoefs& c, int32_t i, int32_t j, int64_t num, const int64_t* sub, const double* weights) {
  auto it = find_term(c, i, j);
  const bool found = it != c.terms.end() && it->i == i && it->j == j;
  if (num == 0) {
    if (found) c.terms.erase(it);
  } else {
    const BarTerm b{i, j, static_cast<int64_t>(c.mat.size()), num};
    c.mat.insert(c.mat.end(), sub, sub + num);
    c.weight.insert(c.weight.end(), weights, weights + num);
    if (found)
      *it = b;
    else
      c.terms.insert(it, b);
  }
  after_change(t);
}

struct Triplet {
  int32_t i, j, k, l;
  double v;
};

// Block triplets grouped by (i, j): each group becomes one stored matrix with weight 1.
QBRrescode put_block_triplets(Task& t, BarCoefs& c, bool with_i, int64_t num, const int32_t* subi,
                              const int32_t* subj, const int32_t* subk, const int32_t* subl, const double* val) {
  if (num < 0) return QBR_REPORT(t, QBR_RES_ERR_ARG_IS_TOO_SMALL, num, "num");
  if (with_i) QBR_CHECK_RC(check_array(t, subi, num, "subi"));
  QBR_CHECK_RC(check_array(t, subj, num, "subj"));
  QBR_CHECK_RC(check_array(t, subk, num, "subk"));
  QBR_CHECK_RC(check_array(t, subl, num, "subl"));
  QBR_CHECK_RC(check_array(t, val, num, with_i ? "valijkl" : "valjkl"));
  const Problem& p = t.problem;
  std::pmr::vector<Triplet> e(t.mem);
  e.reserve(static_cast<size_t>(num));
  for (int64_t q = 0; q < num; ++q) {
    const int32_t i = with_i ? subi[q] : -1;
    if (with_i) QBR_CHECK_RC(check_item(t, i, p.num_con, "subi"));
    QBR_CHECK_RC(check_item(t, subj[q], p.num_barvar, "subj"));
    const int32_t dim = p.barvar_dim[static_cast<size_t>(subj[q])];
    QBR_CHECK_RC(check_item(t, subk[q], dim, "subk"));
    QBR_CHECK_RC(check_item(t, subl[q], dim, "subl"));
    if (subk[q] < subl[q]) return QBR_REPORT(t, QBR_RES_ERR_UPPER_TRIANGLE, subk[q], subl[q]);
    if (!std::isfinite(val[q]))
      return QBR_REPORT(t, QBR_RES_ERR_SYM_MAT_INVALID_VALUE, val[q], subk[q], subl[q]);
    e.push_back(Triplet{i, subj[q], subk[q], subl[q], val[q]});
  }
  std::sort(e.begin(), e.end(), [](const Triplet& a, const Triplet& b) {
    return std::tie(a.i, a.j, a.l, a.k) < std::tie(b.i, b.j, b.l, b.k);
  });
  for (size_t q = 1; q < e.size(); ++q)
    if (std::tie(e[q].i, e[q].j, e[q].k, e[q].l) == std::tie(e[q - 1].i, e[q - 1].j, e[q - 1].k, e[q - 1].l))
      return QBR_REPORT(t, QBR_RES_ERR_SYM_MAT_DUPLICATE, e[q].k, e[q].l);
  std::pmr::vector<int32_t> ri(t.mem), rj(t.mem);
  std::pmr::vector<double> rv(t.mem);
  for (size_t b = 0; b < e.size();) {
    size_t end = b;
    ri.clear();
    rj.clear();
    rv.clear();
    for (; end < e.size() && e[end].i == e[b].i && e[end].j == e[b].j; ++end) {
      ri.push_back(e[end].k);
      rj.push_back(e[end].l);
      rv.push_back(e[end].v);
    }
    int64_t m = 0;
    QBR_CHECK_RC(store_sym(t, p.barvar_dim[static_cast<size_t>(e[b].j)], static_cast<int64_t>(ri.size()), ri.data(),
                           rj.data(), rv.data(), &m));
    const double one = 1.0;
    set_term(t, c, e[b].i, e[b].j, 1, &m, &one);
    b = end;
  }
  return QBR_RES_OK;
}

}  // namespace

QBRrescode append_barvars(Task& t, int32_t num, const int32_t* dim) {
  if (num < 0) return QBR_REPORT(t, QBR_RES_ERR_NEGATIVE_APPEND);
  QBR_CHECK_RC(check_array(t, dim, num, "dim"));
  Problem& p = t.problem;
  for (int32_t k = 0; k < num; ++k)
    if (dim[k] < 1) return QBR_REPORT(t, QBR_RES_ERR_BAR_VAR_DIM, dim[k], p.num_barvar + k);
  if (num == 0) return QBR_RES_OK;
  if (static_cast<int64_t>(p.num_barvar) + num > p.max_num_barvar) {
    p.max_num_barvar = std::max(2 * p.max_num_barvar, p.num_barvar + num);
    p.barvar_dim.reserve(static_cast<size_t>(p.max_num_barvar));
  }
  p.barvar_dim.insert(p.barvar_dim.end(), dim, dim + num);
  p.barvar_names.append(num);
  p.num_barvar += num;
  after_change(t);
  return QBR_RES_OK;
}

QBRrescode remove_barvars(Task& t, int32_t num, const int32_t* subset) {
  Problem& p = t.problem;
  QBR_CHECK_RC(check_array(t, subset, num, "subset"));
  std::pmr::vector<int32_t> idx(static_cast<size_t>(p.num_barvar), 0, t.mem);
  for (int32_t k = 0; k < num; ++k) {
    QBR_CHECK_RC(check_item(t, subset[k], p.num_barvar, "subset"));
    if (idx[static_cast<size_t>(subset[k])] < 0) return QBR_REPORT(t, QBR_RES_ERR_NON_UNIQUE_ARRAY, "subset", subset[k]);
    idx[static_cast<size_t>(subset[k])] = -1;
  }
  int32_t remaining = 0;
  for (int32_t& s : idx)
    if (s >= 0) s = remaining++;
  std::pmr::vector<int64_t> lens(static_cast<size_t>(p.num_barvar), t.mem);
  for (int32_t j = 0; j < p.num_barvar; ++j) lens[static_cast<size_t>(j)] = p.barvar_len(j);
  t.solutions.remove_barvars(idx, lens);
  size_t out = 0;
  for (size_t j = 0; j < p.barvar_dim.size(); ++j)
    if (idx[j] >= 0) p.barvar_dim[out++] = p.barvar_dim[j];
  p.barvar_dim.resize(out);
  for (BarCoefs* c : {&p.barc, &p.bara}) {
    size_t o = 0;
    for (const BarTerm& b : c->terms) {
      if (idx[static_cast<size_t>(b.j)] < 0) continue;
      c->terms[o] = b;
      c->terms[o++].j = idx[static_cast<size_t>(b.j)];
    }
    c->terms.resize(o);
  }
  p.barvar_names.remove(idx, remaining);
  p.num_barvar = remaining;
  after_change(t);
  return QBR_RES_OK;
}

QBRrescode check_sym_mat_index(Task& t, int64_t idx, const char* argname) {
  return check_item(t, idx, static_cast<int64_t>(t.problem.symmats.mats.size()), argname);
}

QBRrescode append_sym_mat(Task& t, int32_t dim, int64_t nz, const int32_t* subi, const int32_t* subj,
                          const double* val, int64_t* idx) {
  if (dim < 1) return QBR_REPORT(t, QBR_RES_ERR_ARG_IS_TOO_SMALL, static_cast<int64_t>(dim), "dim");
  if (nz < 0) return QBR_REPORT(t, QBR_RES_ERR_ARG_IS_TOO_SMALL, nz, "nz");
  QBR_CHECK_RC(check_array(t, subi, nz, "subi"));
  QBR_CHECK_RC(check_array(t, subj, nz, "subj"));
  QBR_CHECK_RC(check_array(t, val, nz, "valij"));
  QBR_CHECK_RC(check_sym_entries(t, dim, nz, subi, subj, val, static_cast<int64_t>(t.problem.symmats.mats.size())));
  return store_sym(t, dim, nz, subi, subj, val, idx);
}

QBRrescode put_barc_j(Task& t, int32_t j, int64_t num, const int64_t* sub, const double* weights) {
  QBR_CHECK_RC(check_item(t, j, t.problem.num_barvar, "j"));
  QBR_CHECK_RC(check_weights(t, j, num, sub, weights));
  set_term(t, t.problem.barc, -1, j, num, sub, weights);
  return QBR_RES_OK;
}

QBRrescode put_bara_ij(Task& t, int32_t i, int32_t j, int64_t num, const int64_t* sub, const double* weights) {
  QBR_CHECK_RC(check_item(t, i, t.problem.num_con, "i"));
  QBR_CHECK_RC(check_item(t, j, t.problem.num_barvar, "j"));
  QBR_CHECK_RC(check_weights(t, j, num, sub, weights));
  set_term(t, t.problem.bara, i, j, num, sub, weights);
  return QBR_RES_OK;
}

QBRrescode put_bara_block_triplet(Task& t, int64_t num, const int32_t* subi, const int32_t* subj,
                                  const int32_t* subk, const int32_t* subl, const double* val) {
  return put_block_triplets(t, t.problem.bara, true, num, subi, subj, subk, subl, val);
}

QBRrescode put_barc_block_triplet(Task& t, int64_t num, const int32_t* subj, const int32_t* subk,
                                  const int32_t* subl, const double* val) {
  return put_block_triplets(t, t.problem.barc, false, num, nullptr, subj, subk, subl, val);
}

namespace {

// The merged block triplets of all terms, sorted by (i, j, l, k).
std::pmr::vector<Triplet> expand(const Task& t, bool barc) {
  const Problem& p = t.problem;
  const BarCoefs& c = barc ? p.barc : p.bara;
  std::pmr::vector<Triplet> out(t.mem), e(t.mem);
  for (const BarTerm& b : c.terms) {
    e.clear();
    for (int64_t q = b.start; q < b.start + b.num; ++q) {
      const SymMat& m = p.symmats.mats[static_cast<size_t>(c.mat[static_cast<size_t>(q)])];
      const double w = c.weight[static_cast<size_t>(q)];
      for (int64_t r = m.start; r < m.start + m.nz; ++r)
        e.push_back(Triplet{b.i, b.j, p.symmats.subi[static_cast<size_t>(r)], p.symmats.subj[static_cast<size_t>(r)],
                            w * p.symmats.val[static_cast<size_t>(r)]});
    }
    std::sort(e.begin(), e.end(), [](const Triplet& x, const Triplet& y) { return std::tie(x.l, x.k) < std::tie(y.l, y.k); });
    for (const Triplet& x : e) {
      if (!out.empty() && out.back().i == x.i && out.back().j == x.j && out.back().k == x.k && out.back().l == x.l)
        out.back().v += x.v;
      else
        out.push_back(x);
    }
  }
  return out;
}

}  // namespace

int64_t bar_block_triplet_count(const Task& t, bool barc) { return static_cast<int64_t>(expand(t, barc).size()); }

void bar_block_triplets(const Task& t, bool barc, int32_t* subi, int32_t* subj, int32_t* subk, int32_t* subl,
                        double* val) {
  const auto e = expand(t, barc);
  for (size_t q = 0; q < e.size(); ++q) {
    if (subi) subi[q] = e[q].i;
    subj[q] = e[q].j;
    subk[q] = e[q].k;
    subl[q] = e[q].l;
    val[q] = e[q].v;
  }
}

void Problem::clear_matrix_store() {
  if (num_barvar > 0) return;
  symmats.mats.clear();
  symmats.subi.clear();
  symmats.subj.clear();
  symmats.val.clear();
  for (BarCoefs* b : {&barc, &bara}) {
    b->terms.clear();
    b->mat.clear();
    b->weight.clear();
  }
}

}  // namespace qubor::task
