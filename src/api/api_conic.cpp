// Entry points: cones, matrix variables, the symmetric-matrix store, matrix-variable
// coefficients, quadratic terms and the problem type.
#include <algorithm>
#include <cstring>

#include "api/frame.h"
#include "platform/text.h"
#include "task/problem_ops.h"
#include "task/tables.h"

using qubor::api::Task;
namespace api = qubor::api;
namespace tk = qubor::task;

namespace {

template <class T>
QBRrescode set_out(Task& t, T* out, const char* name, T v) {
  QBR_CHECK(api::check_ptr(t, out, name));
  *out = v;
  return QBR_RES_OK;
}

QBRrescode copy_text(Task& t, char* str, const char* text) {
  QBR_CHECK(api::check_ptr(t, str, "str"));
  qubor::platform::copy_bounded(str, qubor::platform::kMaxStr, text);
  return QBR_RES_OK;
}

QBRrescode cone_info(Task& t, QBRint32t k, QBRint32t* ct, QBRrealt* conepar, QBRint32t* nummem) {
  QBR_CHECK(api::check_index(t, api::IndexKind::kCone, "k", k));
  const tk::Cone& c = t.problem.cones.cones[static_cast<size_t>(k)];
  if (ct) *ct = c.type;
  if (conepar) *conepar = c.par;
  if (nummem) *nummem = c.n;
  return QBR_RES_OK;
}

const tk::BarCoefs& coefs(const Task& t, bool barc) { return barc ? t.problem.barc : t.problem.bara; }

QBRrescode check_term(Task& t, bool barc, QBRint64t idx) {
  return tk::check_item(t, idx, static_cast<int64_t>(coefs(t, barc).terms.size()), "idx");
}

QBRrescode sparsity(QBRtask_t task, bool barc, QBRint64t maxnumnz, QBRint64t* numnz, QBRint64t* idx) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    const auto n = static_cast<QBRint64t>(coefs(t, barc).terms.size());
    QBR_CHECK(set_out(t, numnz, "numnz", n));
    if (maxnumnz < n) return QBR_REPORT(t, QBR_RES_ERR_TOO_SMALL_MAX_NUM_NZ, maxnumnz, n);
    QBR_CHECK(tk::check_array(t, idx, n, "idx"));
    for (QBRint64t k = 0; k < n; ++k) idx[k] = k;
    return QBR_RES_OK;
  });
}

QBRrescode term(QBRtask_t task, bool barc, QBRint64t idx, QBRint64t maxnum, QBRint32t* i, QBRint32t* j,
                QBRint64t* num, QBRint64t* sub, QBRrealt* weights) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(check_term(t, barc, idx));
    const tk::BarCoefs& c = coefs(t, barc);
    const tk::BarTerm& b = c.terms[static_cast<size_t>(idx)];
    if (maxnum < b.num) return QBR_REPORT(t, QBR_RES_ERR_TOO_SMALL_MAX_NUM_NZ, maxnum, b.num);
    QBR_CHECK(tk::check_array(t, sub, b.num, "sub"));
    QBR_CHECK(tk::check_array(t, weights, b.num, "weights"));
    if (i) *i = b.i;
    if (j) *j = b.j;
    if (num) *num = b.num;
    std::copy_n(c.mat.begin() + b.start, b.num, sub);
    std::copy_n(c.weight.begin() + b.start, b.num, weights);
    return QBR_RES_OK;
  });
}

QBRrescode block_triplets(QBRtask_t task, bool barc, QBRint64t maxnum, QBRint64t* num, QBRint32t* subi,
                          QBRint32t* subj, QBRint32t* subk, QBRint32t* subl, QBRrealt* val) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    const int64_t n = tk::bar_block_triplet_count(t, barc);
    QBR_CHECK(set_out(t, num, "num", n));
    if (maxnum < n) return QBR_REPORT(t, QBR_RES_ERR_TOO_SMALL_MAX_NUM_NZ, maxnum, n);
    if (!barc) QBR_CHECK(tk::check_array(t, subi, n, "subi"));
    QBR_CHECK(tk::check_array(t, subj, n, "subj"));
    QBR_CHECK(tk::check_array(t, subk, n, "subk"));
    QBR_CHECK(tk::check_array(t, subl, n, "subl"));
    QBR_CHECK(tk::check_array(t, val, n, "val"));
    tk::bar_block_triplets(t, barc, barc ? nullptr : subi, subj, subk, subl, val);
    return QBR_RES_OK;
  });
}

QBRrescode copy_q(Task& t, const tk::QMatrix& q, QBRint64t maxnum, QBRint64t* num, QBRint32t* subi, QBRint32t* subj,
                  QBRrealt* val) {
  const auto n = static_cast<QBRint64t>(q.size());
  if (num) *num = n;
  if (maxnum < n) return QBR_REPORT(t, QBR_RES_ERR_TOO_SMALL_MAX_NUM_NZ, maxnum, n);
  QBR_CHECK(tk::check_array(t, subi, n, "subi"));
  QBR_CHECK(tk::check_array(t, subj, n, "subj"));
  QBR_CHECK(tk::check_array(t, val, n, "val"));
  for (size_t k = 0; k < q.size(); ++k) {
    subi[k] = q[k].i;
    subj[k] = q[k].j;
    val[k] = q[k].v;
  }
  return QBR_RES_OK;
}

const tk::QMatrix& qcon_of(const Task& t, QBRint32t k) {
  static const tk::QMatrix kEmpty;
  return t.problem.qcon.empty() ? kEmpty : t.problem.qcon[static_cast<size_t>(k)];
}

}  // namespace

extern "C" {

// ---- Cones ----

QBRrescode QBR_appendcone(QBRtask_t task, QBRint32t ct, QBRrealt conepar, QBRint32t nummem, const QBRint32t* submem) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode { return tk::append_cone(t, ct, conepar, nummem, submem); });
}

QBRrescode QBR_appendconeseq(QBRtask_t task, QBRint32t ct, QBRrealt conepar, QBRint32t nummem, QBRint32t j) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode { return tk::append_cone_seq(t, ct, conepar, nummem, j); });
}

QBRrescode QBR_appendconesseq(QBRtask_t task, QBRint32t num, const QBRint32t* ct, const QBRrealt* conepar,
                              const QBRint32t* nummem, QBRint32t j) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    return tk::append_cones_seq(t, num, ct, conepar, nummem, j);
  });
}

QBRrescode QBR_putcone(QBRtask_t task, QBRint32t k, QBRint32t ct, QBRrealt conepar, QBRint32t nummem,
                       const QBRint32t* submem) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(api::check_index(t, api::IndexKind::kCone, "k", k));
    return tk::put_cone(t, k, ct, conepar, nummem, submem);
  });
}

QBRrescode QBR_removecones(QBRtask_t task, QBRint32t num, const QBRint32t* subset) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode { return tk::remove_cones(t, num, subset); });
}

QBRrescode QBR_getcone(QBRtask_t task, QBRint32t k, QBRint32t* ct, QBRrealt* conepar, QBRint32t* nummem,
                       QBRint32t* submem) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(cone_info(t, k, ct, conepar, nummem));
    const tk::Cone& c = t.problem.cones.cones[static_cast<size_t>(k)];
    QBR_CHECK(tk::check_array(t, submem, c.n, "submem"));
    std::copy_n(t.problem.cones.members.begin() + c.start, c.n, submem);
    return QBR_RES_OK;
  });
}

QBRrescode QBR_getconeinfo(QBRtask_t task, QBRint32t k, QBRint32t* ct, QBRrealt* conepar, QBRint32t* nummem) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode { return cone_info(t, k, ct, conepar, nummem); });
}

QBRrescode QBR_getnumcone(QBRtask_t task, QBRint32t* numcone) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode { return set_out(t, numcone, "numcone", t.problem.num_cone); });
}

QBRrescode QBR_getnumconemem(QBRtask_t task, QBRint32t k, QBRint32t* nummem) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(api::check_ptr(t, nummem, "nummem"));
    return cone_info(t, k, nullptr, nullptr, nummem);
  });
}

QBRrescode QBR_putmaxnumcone(QBRtask_t task, QBRint32t maxnumcone) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode { return tk::put_max_num_cone(t, maxnumcone); });
}

QBRrescode QBR_getmaxnumcone(QBRtask_t task, QBRint32t* maxnumcone) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    return set_out(t, maxnumcone, "maxnumcone", std::max(t.problem.max_num_cone, t.problem.num_cone));
  });
}

QBRrescode QBR_conetypetostr(QBRtask_t task, QBRint32t ct, char* str) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    const char* s = tk::enum_text(tk::EnumGroup::CONETYPE, ct);
    if (!s) return QBR_REPORT(t, QBR_RES_ERR_INV_CONE_TYPE, ct);
    return copy_text(t, str, s);
  });
}

QBRrescode QBR_strtoconetype(QBRtask_t task, const char* str, QBRint32t* conetype) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(api::check_ptr(t, str, "str"));
    QBR_CHECK(api::check_ptr(t, conetype, "conetype"));
    for (QBRint32t k = QBR_CT_QUAD; k <= QBR_CT_ZERO; ++k) {
      const char* text = tk::enum_text(tk::EnumGroup::CONETYPE, k);
      const char* sym = tk::enum_symbol(tk::EnumGroup::CONETYPE, k);
      if (std::strcmp(str, text) == 0 || std::strcmp(str, sym) == 0) {
        *conetype = k;
        return QBR_RES_OK;
      }
    }
    return QBR_REPORT(t, QBR_RES_ERR_INV_CONE_TYPE_STR, str);
  });
}

// ---- Matrix variables ----

QBRrescode QBR_appendbarvars(QBRtask_t task, QBRint32t num, const QBRint32t* dim) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode { return tk::append_barvars(t, num, dim); });
}

QBRrescode QBR_removebarvars(QBRtask_t task, QBRint32t num, const QBRint32t* subset) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode { return tk::remove_barvars(t, num, subset); });
}

QBRrescode QBR_getnumbarvar(QBRtask_t task, QBRint32t* numbarvar) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    return set_out(t, numbarvar, "numbarvar", t.problem.num_barvar);
  });
}

QBRrescode QBR_getdimbarvarj(QBRtask_t task, QBRint32t j, QBRint32t* dimbarvarj) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(tk::check_item(t, j, t.problem.num_barvar, "j"));
    return set_out(t, dimbarvarj, "dimbarvarj", t.problem.barvar_dim[static_cast<size_t>(j)]);
  });
}

QBRrescode QBR_getlenbarvarj(QBRtask_t task, QBRint32t j, QBRint64t* lenbarvarj) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(tk::check_item(t, j, t.problem.num_barvar, "j"));
    return set_out<QBRint64t>(t, lenbarvarj, "lenbarvarj", t.problem.barvar_len(j));
  });
}

QBRrescode QBR_putmaxnumbarvar(QBRtask_t task, QBRint32t maxnumbarvar) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode { return tk::put_max_num_barvar(t, maxnumbarvar); });
}

QBRrescode QBR_getmaxnumbarvar(QBRtask_t task, QBRint32t* maxnumbarvar) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    return set_out(t, maxnumbarvar, "maxnumbarvar", std::max(t.problem.max_num_barvar, t.problem.num_barvar));
  });
}

// ---- Symmetric matrices ----

QBRrescode QBR_appendsparsesymmat(QBRtask_t task, QBRint32t dim, QBRint64t nz, const QBRint32t* subi,
                                  const QBRint32t* subj, const QBRrealt* valij, QBRint64t* idx) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(api::check_ptr(t, idx, "idx"));
    return tk::append_sym_mat(t, dim, nz, subi, subj, valij, idx);
  });
}

QBRrescode QBR_appendsparsesymmatlist(QBRtask_t task, QBRint32t num, const QBRint32t* dims, const QBRint64t* nz,
                                      const QBRint32t* subi, const QBRint32t* subj, const QBRrealt* valij,
                                      QBRint64t* idx) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(tk::check_array(t, dims, num, "dims"));
    QBR_CHECK(tk::check_array(t, nz, num, "nz"));
    QBR_CHECK(tk::check_array(t, idx, num, "idx"));
    int64_t off = 0;
    for (QBRint32t k = 0; k < num; ++k) {
      QBR_CHECK(tk::append_sym_mat(t, dims[k], nz[k], subi ? subi + off : nullptr, subj ? subj + off : nullptr,
                                   valij ? valij + off : nullptr, idx + k));
      off += nz[k];
    }
    return QBR_RES_OK;
  });
}

QBRrescode QBR_getsparsesymmat(QBRtask_t task, QBRint64t idx, QBRint64t maxlen, QBRint32t* subi, QBRint32t* subj,
                               QBRrealt* valij) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(tk::check_sym_mat_index(t, idx, "idx"));
    const tk::SymMatStore& s = t.problem.symmats;
    const tk::SymMat& m = s.mats[static_cast<size_t>(idx)];
    if (maxlen < m.nz) return QBR_REPORT(t, QBR_RES_ERR_TOO_SMALL_MAX_NUM_NZ, maxlen, m.nz);
    if (subi) std::copy_n(s.subi.begin() + m.start, m.nz, subi);
    if (subj) std::copy_n(s.subj.begin() + m.start, m.nz, subj);
    if (valij) std::copy_n(s.val.begin() + m.start, m.nz, valij);
    return QBR_RES_OK;
  });
}

QBRrescode QBR_getsymmatinfo(QBRtask_t task, QBRint64t idx, QBRint32t* dim, QBRint64t* nz) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(tk::check_sym_mat_index(t, idx, "idx"));
    const tk::SymMat& m = t.problem.symmats.mats[static_cast<size_t>(idx)];
    if (dim) *dim = m.dim;
    if (nz) *nz = m.nz;
    return QBR_RES_OK;
  });
}

QBRrescode QBR_getnumsymmat(QBRtask_t task, QBRint64t* num) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    return set_out(t, num, "num", static_cast<QBRint64t>(t.problem.symmats.mats.size()));
  });
}

// ---- Matrix-variable coefficients ----

QBRrescode QBR_putbarcj(QBRtask_t task, QBRint32t j, QBRint64t num, const QBRint64t* sub, const QBRrealt* weights) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode { return tk::put_barc_j(t, j, num, sub, weights); });
}

QBRrescode QBR_putbaraij(QBRtask_t task, QBRint32t i, QBRint32t j, QBRint64t num, const QBRint64t* sub,
                         const QBRrealt* weights) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode { return tk::put_bara_ij(t, i, j, num, sub, weights); });
}

QBRrescode QBR_putbaraijlist(QBRtask_t task, QBRint32t num, const QBRint32t* subi, const QBRint32t* subj,
                             const QBRint64t* alphaptrb, const QBRint64t* alphaptre, const QBRint64t* matidx,
                             const QBRrealt* weights) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    for (auto [p, n] : {std::pair<const void*, const char*>{subi, "subi"}, {subj, "subj"}, {alphaptrb, "alphaptrb"},
                        {alphaptre, "alphaptre"}})
      QBR_CHECK(tk::check_array(t, p, num, n));
    for (QBRint32t k = 0; k < num; ++k) {
      const int64_t n = alphaptre[k] - alphaptrb[k];
      if (n < 0) return QBR_REPORT(t, QBR_RES_ERR_INV_APTRE, k, alphaptre[k], k, alphaptrb[k]);
      QBR_CHECK(tk::put_bara_ij(t, subi[k], subj[k], n, matidx ? matidx + alphaptrb[k] : nullptr,
                                weights ? weights + alphaptrb[k] : nullptr));
    }
    return QBR_RES_OK;
  });
}

QBRrescode QBR_putbararowlist(QBRtask_t task, QBRint32t num, const QBRint32t* subi, const QBRint64t* ptrb,
                              const QBRint64t* ptre, const QBRint32t* subj, const QBRint64t* nummat,
                              const QBRint64t* matidx, const QBRrealt* weights) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    for (auto [p, n] : {std::pair<const void*, const char*>{subi, "subi"}, {ptrb, "ptrb"}, {ptre, "ptre"}})
      QBR_CHECK(tk::check_array(t, p, num, n));
    // The matrices of entry e follow those of the entries before it in matidx/weights.
    int64_t off = 0;
    for (QBRint32t k = 0; k < num; ++k) {
      QBR_CHECK(api::check_index(t, api::IndexKind::kConstraint, "subi", subi[k]));
      if (ptre[k] < ptrb[k]) return QBR_REPORT(t, QBR_RES_ERR_INV_APTRE, k, ptre[k], k, ptrb[k]);
      if (ptre[k] > ptrb[k] && (!subj || !nummat)) return QBR_REPORT(t, QBR_RES_ERR_NULL_POINTER, !subj ? "subj" : "nummat");
      // The row is replaced: its old terms go first.
      auto& terms = t.problem.bara.terms;
      terms.erase(std::remove_if(terms.begin(), terms.end(), [&](const tk::BarTerm& b) { return b.i == subi[k]; }),
                  terms.end());
      for (int64_t e = ptrb[k]; e < ptre[k]; ++e) {
        QBR_CHECK(tk::put_bara_ij(t, subi[k], subj[e], nummat[e], matidx ? matidx + off : nullptr,
                                  weights ? weights + off : nullptr));
        off += nummat[e];
      }
    }
    return QBR_RES_OK;
  });
}

QBRrescode QBR_putbarablocktriplet(QBRtask_t task, QBRint64t num, const QBRint32t* subi, const QBRint32t* subj,
                                   const QBRint32t* subk, const QBRint32t* subl, const QBRrealt* valijkl) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    return tk::put_bara_block_triplet(t, num, subi, subj, subk, subl, valijkl);
  });
}

QBRrescode QBR_putbarcblocktriplet(QBRtask_t task, QBRint64t num, const QBRint32t* subj, const QBRint32t* subk,
                                   const QBRint32t* subl, const QBRrealt* valjkl) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    return tk::put_barc_block_triplet(t, num, subj, subk, subl, valjkl);
  });
}

QBRrescode QBR_getnumbarcnz(QBRtask_t task, QBRint64t* nz) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    return set_out(t, nz, "nz", static_cast<QBRint64t>(t.problem.barc.terms.size()));
  });
}

QBRrescode QBR_getnumbaranz(QBRtask_t task, QBRint64t* nz) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    return set_out(t, nz, "nz", static_cast<QBRint64t>(t.problem.bara.terms.size()));
  });
}

QBRrescode QBR_getbarcsparsity(QBRtask_t task, QBRint64t maxnumnz, QBRint64t* numnz, QBRint64t* idxj) {
  return sparsity(task, true, maxnumnz, numnz, idxj);
}

QBRrescode QBR_getbarasparsity(QBRtask_t task, QBRint64t maxnumnz, QBRint64t* numnz, QBRint64t* idxij) {
  return sparsity(task, false, maxnumnz, numnz, idxij);
}

QBRrescode QBR_getbarcidxinfo(QBRtask_t task, QBRint64t idx, QBRint64t* num) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(check_term(t, true, idx));
    return set_out(t, num, "num", t.problem.barc.terms[static_cast<size_t>(idx)].num);
  });
}

QBRrescode QBR_getbaraidxinfo(QBRtask_t task, QBRint64t idx, QBRint64t* num) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(check_term(t, false, idx));
    return set_out(t, num, "num", t.problem.bara.terms[static_cast<size_t>(idx)].num);
  });
}

QBRrescode QBR_getbarcidx(QBRtask_t task, QBRint64t idx, QBRint64t maxnum, QBRint32t* j, QBRint64t* num,
                          QBRint64t* sub, QBRrealt* weights) {
  return term(task, true, idx, maxnum, nullptr, j, num, sub, weights);
}

QBRrescode QBR_getbaraidx(QBRtask_t task, QBRint64t idx, QBRint64t maxnum, QBRint32t* i, QBRint32t* j, QBRint64t* num,
                          QBRint64t* sub, QBRrealt* weights) {
  return term(task, false, idx, maxnum, i, j, num, sub, weights);
}

QBRrescode QBR_getbarablocktriplet(QBRtask_t task, QBRint64t maxnum, QBRint64t* num, QBRint32t* subi,
                                   QBRint32t* subj, QBRint32t* subk, QBRint32t* subl, QBRrealt* valijkl) {
  return block_triplets(task, false, maxnum, num, subi, subj, subk, subl, valijkl);
}

QBRrescode QBR_getbarcblocktriplet(QBRtask_t task, QBRint64t maxnum, QBRint64t* num, QBRint32t* subj,
                                   QBRint32t* subk, QBRint32t* subl, QBRrealt* valjkl) {
  return block_triplets(task, true, maxnum, num, nullptr, subj, subk, subl, valjkl);
}

// ---- Quadratic terms ----

QBRrescode QBR_putqobj(QBRtask_t task, QBRint32t numqonz, const QBRint32t* qosubi, const QBRint32t* qosubj,
                       const QBRrealt* qoval) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode { return tk::put_qobj(t, numqonz, qosubi, qosubj, qoval); });
}

QBRrescode QBR_putqobjij(QBRtask_t task, QBRint32t i, QBRint32t j, QBRrealt qoij) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode { return tk::put_qobj_ij(t, i, j, qoij); });
}

QBRrescode QBR_putqconk(QBRtask_t task, QBRint32t k, QBRint32t numqcnz, const QBRint32t* qcsubi,
                        const QBRint32t* qcsubj, const QBRrealt* qcval) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(api::check_index(t, api::IndexKind::kConstraint, "k", k));
    return tk::put_qcon_k(t, k, numqcnz, qcsubi, qcsubj, qcval);
  });
}

QBRrescode QBR_putqcon(QBRtask_t task, QBRint32t numqcnz, const QBRint32t* qcsubk, const QBRint32t* qcsubi,
                       const QBRint32t* qcsubj, const QBRrealt* qcval) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    return tk::put_qcon(t, numqcnz, qcsubk, qcsubi, qcsubj, qcval);
  });
}

QBRrescode QBR_getqobj64(QBRtask_t task, QBRint64t maxnumqonz, QBRint64t* numqonz, QBRint32t* qosubi,
                         QBRint32t* qosubj, QBRrealt* qoval) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    return copy_q(t, t.problem.qobj, maxnumqonz, numqonz, qosubi, qosubj, qoval);
  });
}

QBRrescode QBR_getqobj(QBRtask_t task, QBRint32t maxnumqonz, QBRint32t* numqonz, QBRint32t* qosubi,
                       QBRint32t* qosubj, QBRrealt* qoval) {
  QBRint64t n = 0;
  const QBRrescode r = QBR_getqobj64(task, maxnumqonz, &n, qosubi, qosubj, qoval);
  if (numqonz && (r == QBR_RES_OK || r == QBR_RES_ERR_TOO_SMALL_MAX_NUM_NZ)) *numqonz = static_cast<QBRint32t>(n);
  return r;
}

QBRrescode QBR_getqobjij(QBRtask_t task, QBRint32t i, QBRint32t j, QBRrealt* qoij) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(api::check_index(t, api::IndexKind::kVariable, "i", i));
    QBR_CHECK(api::check_index(t, api::IndexKind::kVariable, "j", j));
    // The matrix is symmetric: (i, j) and (j, i) read the same stored entry.
    return set_out(t, qoij, "qoij", tk::q_get(t.problem.qobj, std::max(i, j), std::min(i, j)));
  });
}

QBRrescode QBR_getqconk(QBRtask_t task, QBRint32t k, QBRint64t maxnumqcnz, QBRint64t* numqcnz, QBRint32t* qcsubi,
                        QBRint32t* qcsubj, QBRrealt* qcval) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(api::check_index(t, api::IndexKind::kConstraint, "k", k));
    return copy_q(t, qcon_of(t, k), maxnumqcnz, numqcnz, qcsubi, qcsubj, qcval);
  });
}

QBRrescode QBR_getnumqobjnz(QBRtask_t task, QBRint64t* numqonz) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    return set_out(t, numqonz, "numqonz", static_cast<QBRint64t>(t.problem.qobj.size()));
  });
}

QBRrescode QBR_getnumqconknz(QBRtask_t task, QBRint32t k, QBRint64t* numqcnz) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(api::check_index(t, api::IndexKind::kConstraint, "k", k));
    return set_out(t, numqcnz, "numqcnz", static_cast<QBRint64t>(qcon_of(t, k).size()));
  });
}

// ---- Problem type ----

QBRrescode QBR_getprobtype(QBRtask_t task, QBRint32t* probtype) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    return set_out(t, probtype, "probtype", tk::problem_type(t.problem));
  });
}

QBRrescode QBR_probtypetostr(QBRtask_t task, QBRint32t probtype, char* str) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    const char* s = tk::enum_text(tk::EnumGroup::PROBTYPE, probtype);
    return copy_text(t, str, s ? s : "INVALID");
  });
}

}  // extern "C"
