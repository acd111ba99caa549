#include "formats/frame/task_image.h"

#include <algorithm>
#include <numeric>

#include "formats/frame/try.h"
#include "task/report.h"
#include "task/tables.h"

namespace qubor::formats {

using task::Task;

namespace {

template <class V>
std::vector<typename V::value_type> plain(const V& v) {
  return std::vector<typename V::value_type>(v.begin(), v.end());
}

std::vector<std::string> names_of(const task::NameTable& names) {
  std::vector<std::string> out;
  bool any = false;
  for (int32_t k = 0; k < names.size() && !any; ++k) any = !names.get(k).empty();
  if (!any) return out;
  out.reserve(static_cast<size_t>(names.size()));
  for (int32_t k = 0; k < names.size(); ++k) out.emplace_back(names.get(k));
  return out;
}

void collect_terms(const task::BarCoefs& src, BarTermsImage* out) {
  out->ptr.push_back(0);
  for (const task::BarTerm& term : src.terms) {
    out->i.push_back(term.i);
    out->j.push_back(term.j);
    for (int64_t p = term.start; p < term.start + term.num; ++p) {
      out->mat.push_back(src.mat[static_cast<size_t>(p)]);
      out->weight.push_back(src.weight[static_cast<size_t>(p)]);
    }
    out->ptr.push_back(static_cast<int64_t>(out->mat.size()));
  }
}

// Index checks of check_image().
bool all_in(const std::vector<int32_t>& v, int64_t lo, int64_t hi) {
  return std::all_of(v.begin(), v.end(), [&](int32_t x) { return x >= lo && x < hi; });
}
bool valid_ptr(const std::vector<int64_t>& ptr, size_t items, size_t total) {
  if (ptr.size() != items + 1 || ptr.front() != 0 || static_cast<size_t>(ptr.back()) != total) return false;
  for (size_t k = 0; k + 1 < ptr.size(); ++k)
    if (ptr[k] > ptr[k + 1]) return false;
  return true;
}

std::string check_terms(const BarTermsImage& b, const TaskImage& img, const char* what, bool rows) {
  const size_t n = b.j.size();
  if (b.i.size() != n) return std::string(what) + ": term lists differ in length";
  if (!(b.ptr.empty() && n == 0) && !valid_ptr(b.ptr, n, b.mat.size())) return std::string(what) + ": bad term pointers";
  if (b.weight.size() != b.mat.size()) return std::string(what) + ": weights and matrices differ in number";
  if (!all_in(b.j, 0, img.numbarvar)) return std::string(what) + ": matrix variable index out of range";
  if (rows ? !all_in(b.i, 0, img.numcon) : !all_in(b.i, -1, 0)) return std::string(what) + ": row index out of range";
  for (size_t k = 0; k < b.mat.size(); ++k)
    if (b.mat[k] < 0 || b.mat[k] >= img.numsymmat()) return std::string(what) + ": matrix index out of range";
  return "";
}

QBRrescode load_names(QBRtask_t h, const std::vector<std::string>& names,
                      QBRrescode (*put)(QBRtask_t, QBRint32t, const char*)) {
  for (size_t k = 0; k < names.size(); ++k)
    if (!names[k].empty()) QUBOR_TRY(put(h, static_cast<int32_t>(k), names[k].c_str()));
  return QBR_RES_OK;
}

// `index[m]`: the task's index of the image's stored matrix m.
QBRrescode load_terms(QBRtask_t h, const BarTermsImage& b, bool rows, const std::vector<int64_t>& index) {
  std::vector<int64_t> subs;
  for (size_t k = 0; k < b.j.size(); ++k) {
    const int64_t first = b.ptr[k], num = b.ptr[k + 1] - first;
    subs.clear();
    for (int64_t p = first; p < first + num; ++p) subs.push_back(index[static_cast<size_t>(b.mat[static_cast<size_t>(p)])]);
    const int64_t* sub = subs.data();
    const double* w = b.weight.data() + first;
    if (rows)
      QUBOR_TRY(QBR_putbaraij(h, b.i[k], b.j[k], num, sub, w));
    else
      QUBOR_TRY(QBR_putbarcj(h, b.j[k], num, sub, w));
  }
  return QBR_RES_OK;
}

}  // namespace

const char* solution_item_name(int32_t which) {
  switch (which) {
    case QBR_SOL_BAS:
      return "basic";
    case QBR_SOL_ITG:
      return "integer";
    default:
      return "interior";
  }
}

void collect_image(const Task& t, bool with_solutions, TaskImage* img) {
  const task::Problem& p = t.problem;
  QBR_getversion(&img->version[0], &img->version[1], &img->version[2]);
  img->task_name = p.task_name;
  img->obj_name = p.obj_name;
  img->obj_sense = p.obj_sense;
  img->cfix = p.cfix;
  QBR_getatruncatetol(t.handle, &img->atruncatetol);
  img->numvar = p.num_var;
  img->numcon = p.num_con;
  img->numcone = p.num_cone;
  img->numbarvar = p.num_barvar;

  img->c = plain(p.c);
  img->var_bk = plain(p.var_bounds.bk);
  img->var_bl = plain(p.var_bounds.bl);
  img->var_bu = plain(p.var_bounds.bu);
  img->con_bk = plain(p.con_bounds.bk);
  img->con_bl = plain(p.con_bounds.bl);
  img->con_bu = plain(p.con_bounds.bu);
  for (int32_t j = 0; j < p.num_var; ++j)
    if (p.var_type[static_cast<size_t>(j)] == QBR_VAR_TYPE_INT) img->intvar.push_back(j);
  const task::CompressedView& a = p.a.csc();
  img->a_ptr.assign(static_cast<size_t>(p.num_var) + 1, 0);
  if (a.ptr) std::copy(a.ptr, a.ptr + p.num_var + 1, img->a_ptr.begin());
  img->a_sub.assign(a.idx, a.idx + a.nnz());
  img->a_val.assign(a.val, a.val + a.nnz());

  for (const task::QEntry& e : p.qobj) {
    img->qobj_i.push_back(e.i);
    img->qobj_j.push_back(e.j);
    img->qobj_v.push_back(e.v);
  }
  for (size_t k = 0; k < p.qcon.size(); ++k) {
    for (const task::QEntry& e : p.qcon[k]) {
      img->qcon_k.push_back(static_cast<int32_t>(k));
      img->qcon_i.push_back(e.i);
      img->qcon_j.push_back(e.j);
      img->qcon_v.push_back(e.v);
    }
  }

  img->var_names = names_of(p.var_names);
  img->con_names = names_of(p.con_names);
  img->cone_names = names_of(p.cone_names);
  img->barvar_names = names_of(p.barvar_names);

  img->cone_ptr.push_back(0);
  for (const task::Cone& k : p.cones.cones) {
    img->cone_type.push_back(k.type);
    img->cone_par.push_back(k.par);
    const auto first = p.cones.members.begin() + k.start;
    img->cone_sub.insert(img->cone_sub.end(), first, first + k.n);
    img->cone_ptr.push_back(static_cast<int64_t>(img->cone_sub.size()));
  }

  img->barvar_dim = plain(p.barvar_dim);
  img->sym_ptr.push_back(0);
  for (const task::SymMat& m : p.symmats.mats) {
    img->sym_dim.push_back(m.dim);
    const size_t s = static_cast<size_t>(m.start), e = s + static_cast<size_t>(m.nz);
    img->sym_i.insert(img->sym_i.end(), p.symmats.subi.begin() + s, p.symmats.subi.begin() + e);
    img->sym_j.insert(img->sym_j.end(), p.symmats.subj.begin() + s, p.symmats.subj.begin() + e);
    img->sym_v.insert(img->sym_v.end(), p.symmats.val.begin() + s, p.symmats.val.begin() + e);
    img->sym_ptr.push_back(static_cast<int64_t>(img->sym_v.size()));
  }
  collect_terms(p.barc, &img->barc);
  collect_terms(p.bara, &img->bara);

  img->has_params = true;
  for (int i = 0; i < task::kNumIntParams; ++i) {
    img->ipar_names.emplace_back(task::int_param(i).name);
    img->ipar.push_back(t.ipar(i));
  }
  for (int i = 0; i < task::kNumDouParams; ++i) {
    img->dpar_names.emplace_back(task::dou_param(i).name);
    img->dpar.push_back(t.dpar(i));
  }
  for (int i = 0; i < task::kNumStrParams; ++i) {
    img->spar_names.emplace_back(task::str_param(i).name);
    img->spar.emplace_back(t.spar(i));
  }

  if (with_solutions) {
    for (int32_t w = QBR_SOL_ITR; w <= QBR_SOL_ITG; ++w) {
      const task::Solution& s = t.solutions[w];
      SolutionImage& o = img->sol[static_cast<size_t>(w)];
      if (!s.defined) continue;
      o.defined = true;
      o.prosta = s.prosta;
      o.solsta = s.solsta;
      o.skc = plain(s.skc), o.skx = plain(s.skx), o.skn = plain(s.skn);
      o.xc = plain(s.xc), o.xx = plain(s.xx), o.y = plain(s.y), o.slc = plain(s.slc);
      o.suc = plain(s.suc), o.slx = plain(s.slx), o.sux = plain(s.sux), o.snx = plain(s.snx);
      o.barx = plain(s.barx), o.bars = plain(s.bars);
    }
  }

  img->has_info = true;
  for (int i = 0; i < task::kNumDouInfo; ++i) {
    img->dinf_names.emplace_back(task::info_name(QBR_INF_DOU_TYPE, i));
    img->dinf.push_back(t.info.dou[static_cast<size_t>(i)]);
  }
  for (int i = 0; i < task::kNumIntInfo; ++i) {
    img->iinf_names.emplace_back(task::info_name(QBR_INF_INT_TYPE, i));
    img->iinf.push_back(t.info.ints[static_cast<size_t>(i)]);
  }
  for (int i = 0; i < task::kNumLintInfo; ++i) {
    img->liinf_names.emplace_back(task::info_name(QBR_INF_LINT_TYPE, i));
    img->liinf.push_back(t.info.lint[static_cast<size_t>(i)]);
  }
}

std::string check_image(const TaskImage& img) {
  const size_t n = static_cast<size_t>(img.numvar), m = static_cast<size_t>(img.numcon);
  if (img.numvar < 0 || img.numcon < 0 || img.numcone < 0 || img.numbarvar < 0) return "META: negative count";
  if (img.c.size() != n) return "c: length differs from numvar";
  if (img.var_bk.size() != n || img.var_bl.size() != n || img.var_bu.size() != n) return "var: bounds differ from numvar";
  if (img.con_bk.size() != m || img.con_bl.size() != m || img.con_bu.size() != m) return "con: bounds differ from numcon";
  if (!all_in(img.var_bk, QBR_BK_LO, QBR_BK_RA + 1) || !all_in(img.con_bk, QBR_BK_LO, QBR_BK_RA + 1))
    return "boundkey: unknown bound key";
  if (!all_in(img.intvar, 0, img.numvar)) return "intvar: index out of range";
  if (!valid_ptr(img.a_ptr, n, img.a_sub.size()) || img.a_val.size() != img.a_sub.size()) return "A: bad column pointers";
  if (!all_in(img.a_sub, 0, img.numcon)) return "A: row index out of range";
  const size_t qo = img.qobj_v.size(), qc = img.qcon_v.size();
  if (img.qobj_i.size() != qo || img.qobj_j.size() != qo) return "Qobj: lists differ in length";
  if (!all_in(img.qobj_i, 0, img.numvar) || !all_in(img.qobj_j, 0, img.numvar)) return "Qobj: index out of range";
  if (img.qcon_k.size() != qc || img.qcon_i.size() != qc || img.qcon_j.size() != qc) return "Q: lists differ in length";
  if (!all_in(img.qcon_k, 0, img.numcon)) return "Q: constraint index out of range";
  if (!all_in(img.qcon_i, 0, img.numvar) || !all_in(img.qcon_j, 0, img.numvar)) return "Q: index out of range";
  if (!img.var_names.empty() && img.var_names.size() != n) return "var/name: count differs from numvar";
  if (!img.con_names.empty() && img.con_names.size() != m) return "con/name: count differs from numcon";
  if (!img.cone_names.empty() && img.cone_names.size() != static_cast<size_t>(img.numcone)) return "qcone/name: count differs from numcone";
  if (!img.barvar_names.empty() && img.barvar_names.size() != static_cast<size_t>(img.numbarvar))
    return "barvar/name: count differs from numbarvar";
  const size_t nk = static_cast<size_t>(img.numcone);
  if (img.cone_type.size() != nk || img.cone_par.size() != nk) return "qcone: count differs from numcone";
  if (!valid_ptr(img.cone_ptr, nk, img.cone_sub.size())) return "qcone/sub: bad member pointers";
  if (!all_in(img.cone_sub, 0, img.numvar)) return "qcone/sub: variable index out of range";
  if (!all_in(img.cone_type, QBR_CT_QUAD, QBR_CT_ZERO + 1)) return "qcone/conetype: unknown cone type";
  if (img.barvar_dim.size() != static_cast<size_t>(img.numbarvar)) return "barvar/dim: count differs from numbarvar";
  if (!valid_ptr(img.sym_ptr, img.sym_dim.size(), img.sym_v.size())) return "MatrixStore/nnz: bad pointers";
  if (img.sym_i.size() != img.sym_v.size() || img.sym_j.size() != img.sym_v.size()) return "MatrixStore/sub: lists differ in length";
  for (size_t k = 0; k < img.sym_dim.size(); ++k) {
    for (int64_t p = img.sym_ptr[k]; p < img.sym_ptr[k + 1]; ++p) {
      const auto q = static_cast<size_t>(p);
      if (img.sym_i[q] < 0 || img.sym_i[q] >= img.sym_dim[k] || img.sym_j[q] < 0 || img.sym_j[q] > img.sym_i[q])
        return "MatrixStore/sub: entry outside the lower triangle";
    }
  }
  if (std::string e = check_terms(img.barc, img, "barc", false); !e.empty()) return e;
  if (std::string e = check_terms(img.bara, img, "bara", true); !e.empty()) return e;
  if (img.ipar_names.size() != img.ipar.size() || img.dpar_names.size() != img.dpar.size() ||
      img.spar_names.size() != img.spar.size())
    return "parameter: names and values differ in number";
  int64_t barlen = 0;
  for (int32_t d : img.barvar_dim) {
    if (d < 0) return "barvar/dim: negative dimension";
    barlen += static_cast<int64_t>(d) * (d + 1) / 2;
  }
  for (int32_t w = QBR_SOL_ITR; w <= QBR_SOL_ITG; ++w) {
    const SolutionImage& s = img.sol[static_cast<size_t>(w)];
    if (!s.defined) continue;
    const std::string item = std::string("solution/") + solution_item_name(w);
    if (s.skc.size() != m || s.xc.size() != m || s.y.size() != m || s.slc.size() != m || s.suc.size() != m)
      return item + ": constraint arrays differ from numcon";
    if (s.skx.size() != n || s.xx.size() != n || s.slx.size() != n || s.sux.size() != n || s.snx.size() != n)
      return item + ": variable arrays differ from numvar";
    if (s.skn.size() != nk) return item + ": skn differs from numcone";
    if (static_cast<int64_t>(s.barx.size()) != barlen || static_cast<int64_t>(s.bars.size()) != barlen)
      return item + ": barx/bars differ from the matrix variables";
    if (!all_in(s.skc, QBR_SK_UNK, QBR_SK_INF + 1) || !all_in(s.skx, QBR_SK_UNK, QBR_SK_INF + 1) ||
        !all_in(s.skn, QBR_SK_UNK, QBR_SK_INF + 1))
      return item + ": unknown status key";
    if (s.prosta < 0 || !task::enum_text(task::EnumGroup::PROSTA, s.prosta)) return item + ": unknown problem status";
    if (s.solsta < 0 || !task::enum_text(task::EnumGroup::SOLSTA, s.solsta)) return item + ": unknown solution status";
  }
  if (img.dinf_names.size() != img.dinf.size() || img.iinf_names.size() != img.iinf.size() ||
      img.liinf_names.size() != img.liinf.size())
    return "information: names and values differ in number";
  return "";
}

QBRrescode load_image(Task& t, const TaskImage& img, bool skip_params) {
  QBRtask_t h = t.handle;
  // Parameters first: they may govern how the data is taken (tolerances, warnings).
  if (img.has_params && !skip_params) {
    for (size_t k = 0; k < img.ipar.size(); ++k) {
      const int i = task::find_param(QBR_PAR_INT_TYPE, img.ipar_names[k].c_str());
      if (i >= 0) QUBOR_TRY(QBR_putintparam(h, i, img.ipar[k]));
    }
    for (size_t k = 0; k < img.dpar.size(); ++k) {
      const int i = task::find_param(QBR_PAR_DOU_TYPE, img.dpar_names[k].c_str());
      if (i >= 0) QUBOR_TRY(QBR_putdouparam(h, i, img.dpar[k]));
    }
    for (size_t k = 0; k < img.spar.size(); ++k) {
      const int i = task::find_param(QBR_PAR_STR_TYPE, img.spar_names[k].c_str());
      // Set directly: the value is stored text, not the quoted form the setter takes apart.
      if (i >= 0) t.params.strs[static_cast<size_t>(i)] = std::pmr::string(img.spar[k], t.mem);
    }
  }
  QUBOR_TRY(QBR_puttaskname(h, img.task_name.c_str()));
  QUBOR_TRY(QBR_putobjname(h, img.obj_name.c_str()));
  QUBOR_TRY(QBR_putobjsense(h, img.obj_sense));
  if (img.atruncatetol > 0.0) QUBOR_TRY(QBR_putatruncatetol(h, img.atruncatetol));
  QUBOR_TRY(QBR_putcfix(h, img.cfix));
  QUBOR_TRY(QBR_putmaxnumanz(h, static_cast<int64_t>(img.a_val.size())));
  QUBOR_TRY(QBR_appendcons(h, img.numcon));
  QUBOR_TRY(QBR_appendvars(h, img.numvar));
  const int32_t n = img.numvar, m = img.numcon;
  // Names first, so that the messages of the checks below name the items.
  QUBOR_TRY(load_names(h, img.var_names, QBR_putvarname));
  QUBOR_TRY(load_names(h, img.con_names, QBR_putconname));
  if (n > 0) {
    QUBOR_TRY(QBR_putcslice(h, 0, n, img.c.data()));
    QUBOR_TRY(QBR_putvarboundslice(h, 0, n, img.var_bk.data(), img.var_bl.data(), img.var_bu.data()));
    QUBOR_TRY(QBR_putacolslice64(h, 0, n, img.a_ptr.data(), img.a_ptr.data() + 1, img.a_sub.data(), img.a_val.data()));
  }
  if (m > 0) QUBOR_TRY(QBR_putconboundslice(h, 0, m, img.con_bk.data(), img.con_bl.data(), img.con_bu.data()));
  if (!img.intvar.empty()) {
    std::vector<int32_t> types(img.intvar.size(), QBR_VAR_TYPE_INT);
    QUBOR_TRY(QBR_putvartypelist(h, static_cast<int32_t>(img.intvar.size()), img.intvar.data(), types.data()));
  }
  if (!img.qobj_v.empty())
    QUBOR_TRY(QBR_putqobj(h, static_cast<int32_t>(img.qobj_v.size()), img.qobj_i.data(), img.qobj_j.data(), img.qobj_v.data()));
  if (!img.qcon_v.empty())
    QUBOR_TRY(QBR_putqcon(h, static_cast<int32_t>(img.qcon_v.size()), img.qcon_k.data(), img.qcon_i.data(),
                          img.qcon_j.data(), img.qcon_v.data()));
  for (int32_t k = 0; k < img.numcone; ++k) {
    const auto first = static_cast<size_t>(img.cone_ptr[static_cast<size_t>(k)]);
    const auto num = static_cast<int32_t>(img.cone_ptr[static_cast<size_t>(k) + 1] - img.cone_ptr[static_cast<size_t>(k)]);
    QUBOR_TRY(QBR_appendcone(h, img.cone_type[static_cast<size_t>(k)], img.cone_par[static_cast<size_t>(k)], num,
                             img.cone_sub.data() + first));
  }
  if (img.numbarvar > 0) QUBOR_TRY(QBR_appendbarvars(h, img.numbarvar, img.barvar_dim.data()));
  // The coefficients refer to the indices the store hands out now (the same as in the image
  // when the task was emptied before, as the file frame does).
  std::vector<int64_t> index(img.sym_dim.size());
  for (size_t k = 0; k < img.sym_dim.size(); ++k) {
    const auto first = static_cast<size_t>(img.sym_ptr[k]);
    QUBOR_TRY(QBR_appendsparsesymmat(h, img.sym_dim[k], img.sym_ptr[k + 1] - img.sym_ptr[k], img.sym_i.data() + first,
                                     img.sym_j.data() + first, img.sym_v.data() + first, &index[k]));
  }
  QUBOR_TRY(load_terms(h, img.barc, false, index));
  QUBOR_TRY(load_terms(h, img.bara, true, index));
  QUBOR_TRY(load_names(h, img.cone_names, QBR_putconename));
  QUBOR_TRY(load_names(h, img.barvar_names, QBR_putbarvarname));

  for (int32_t w = QBR_SOL_ITR; w <= QBR_SOL_ITG; ++w) {
    const SolutionImage& s = img.sol[static_cast<size_t>(w)];
    if (!s.defined) continue;
    QUBOR_TRY(QBR_putsolution(h, w, s.skc.data(), s.skx.data(), s.skn.data(), s.xc.data(), s.xx.data(), s.y.data(),
                              s.slc.data(), s.suc.data(), s.slx.data(), s.sux.data(), s.snx.data()));
    int64_t at = 0;
    for (int32_t j = 0; j < img.numbarvar; ++j) {
      QUBOR_TRY(QBR_putbarxj(h, w, j, s.barx.data() + at));
      if (w != QBR_SOL_ITG) QUBOR_TRY(QBR_putbarsj(h, w, j, s.bars.data() + at));
      const int64_t d = img.barvar_dim[static_cast<size_t>(j)];
      at += d * (d + 1) / 2;
    }
    // The statuses have no setter of their own; they belong to the item just stored.
    task::Solution& item = t.solutions[w];
    item.prosta = s.prosta;
    item.solsta = s.solsta;
  }
  if (img.has_info) {
    for (size_t k = 0; k < img.dinf.size(); ++k) {
      const int i = task::find_info(QBR_INF_DOU_TYPE, img.dinf_names[k].c_str());
      if (i >= 0) t.set_dinf(i, img.dinf[k]);
    }
    for (size_t k = 0; k < img.iinf.size(); ++k) {
      const int i = task::find_info(QBR_INF_INT_TYPE, img.iinf_names[k].c_str());
      if (i >= 0) t.set_iinf(i, img.iinf[k]);
    }
    for (size_t k = 0; k < img.liinf.size(); ++k) {
      const int i = task::find_info(QBR_INF_LINT_TYPE, img.liinf_names[k].c_str());
      if (i >= 0) t.set_liinf(i, img.liinf[k]);
    }
  }
  return QBR_RES_OK;
}

}  // namespace qubor::formats
