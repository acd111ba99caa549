#include "formats/frame/text_items.h"

#include <cmath>
#include <string>

namespace qubor::formats::text {

namespace {

// Pointers of a list sorted by row: first[i] .. first[i+1] hold row i.
std::vector<int64_t> row_pointers(const std::vector<int32_t>& rows, int32_t m) {
  std::vector<int64_t> ptr(static_cast<size_t>(m) + 1, 0);
  for (int32_t i : rows)
    if (i >= 0) ++ptr[static_cast<size_t>(i) + 1];
  for (size_t i = 0; i < static_cast<size_t>(m); ++i) ptr[i + 1] += ptr[i];
  // Entries without a row (the objective's, i = -1) come first in the list.
  const int64_t skip = static_cast<int64_t>(rows.size()) - ptr.back();
  for (int64_t& p : ptr) p += skip;
  return ptr;
}

}  // namespace

ImageRows::ImageRows(const TaskImage& img) {
  const auto m = static_cast<size_t>(img.numcon);
  ptr.assign(m + 1, 0);
  for (int32_t i : img.a_sub) ++ptr[static_cast<size_t>(i) + 1];
  for (size_t i = 0; i < m; ++i) ptr[i + 1] += ptr[i];
  std::vector<int64_t> next(ptr.begin(), ptr.end() - 1);
  sub.resize(img.a_sub.size());
  val.resize(img.a_sub.size());
  for (size_t j = 0; j + 1 < img.a_ptr.size(); ++j) {
    for (int64_t p = img.a_ptr[j]; p < img.a_ptr[j + 1]; ++p) {
      const auto q = static_cast<size_t>(next[static_cast<size_t>(img.a_sub[static_cast<size_t>(p)])]++);
      sub[q] = static_cast<int32_t>(j);
      val[q] = img.a_val[static_cast<size_t>(p)];
    }
  }
  q_ptr = row_pointers(img.qcon_k, img.numcon);
  bar_ptr = row_pointers(img.bara.i, img.numcon);
}

namespace {

// Zero coefficients are left out, except a negative zero, which would not read back.
bool written(double v) { return v != 0.0 || std::signbit(v); }

}  // namespace

ImageLabels::ImageLabels(const TaskImage& img, bool stored_sums)
    : integer(static_cast<size_t>(img.numvar), 0), stored(stored_sums) {
  vars.build(img.var_names, img.numvar);
  cons.build(img.con_names, img.numcon);
  cones.build(img.cone_names, img.numcone);
  barvars.build(img.barvar_names, img.numbarvar);
  for (int32_t j : img.intvar) integer[static_cast<size_t>(j)] = 1;
}

void put_variable(TextWriter& w, const TaskImage& img, const ImageLabels& l, int32_t j) {
  const auto u = static_cast<size_t>(j);
  w.put(l.vars.decl(j));
  w.put(" ");
  put_bound(w, img.var_bk[u], img.var_bl[u], img.var_bu[u]);
  if (l.integer[u]) w.put(" integer");
}

void put_cone(TextWriter& w, const TaskImage& img, const ImageLabels& l, int32_t k) {
  const auto u = static_cast<size_t>(k);
  const int32_t ct = img.cone_type[u];
  w.put(l.cones.decl(k));
  w.put(" ");
  w.put(cone_type_word(ct));
  if (ct == QBR_CT_PPOW || ct == QBR_CT_DPOW || written(img.cone_par[u])) {
    w.put(" ");
    put_number(w, img.cone_par[u]);
  }
  w.put(" (");
  for (int64_t p = img.cone_ptr[u]; p < img.cone_ptr[u + 1]; ++p) {
    if (p > img.cone_ptr[u]) w.put(", ");
    w.put(l.vars.ref(img.cone_sub[static_cast<size_t>(p)]));
  }
  w.put(")");
}

void put_objective_terms(ExprWriter& ex, const TaskImage& img, const ImageLabels& l, bool bar) {
  for (int32_t j = 0; j < img.numvar; ++j)
    if (written(img.c[static_cast<size_t>(j)])) ex.linear(img.c[static_cast<size_t>(j)], l.vars.ref(j));
  for (size_t k = 0; k < img.qobj_v.size(); ++k)
    ex.quad(img.qobj_v[k], l.vars.ref(img.qobj_i[k]), l.vars.ref(img.qobj_j[k]));
  std::vector<double> weights;
  std::vector<std::string> mats;
  for (size_t k = 0; bar && k < img.barc.j.size(); ++k) {
    bar_term_texts(img, img.barc, k, l.stored, &weights, &mats);
    ex.bar(weights, mats, l.barvars.ref(img.barc.j[k]));
  }
  if (written(img.cfix)) ex.constant(img.cfix);
}

void put_row_terms(ExprWriter& ex, const TaskImage& img, const ImageRows& rows, const ImageLabels& l, int32_t i,
                   bool bar) {
  const auto u = static_cast<size_t>(i);
  for (int64_t p = rows.ptr[u]; p < rows.ptr[u + 1]; ++p)
    ex.linear(rows.val[static_cast<size_t>(p)], l.vars.ref(rows.sub[static_cast<size_t>(p)]));
  for (int64_t p = rows.q_ptr[u]; p < rows.q_ptr[u + 1]; ++p) {
    const auto q = static_cast<size_t>(p);
    ex.quad(img.qcon_v[q], l.vars.ref(img.qcon_i[q]), l.vars.ref(img.qcon_j[q]));
  }
  std::vector<double> weights;
  std::vector<std::string> mats;
  for (int64_t p = rows.bar_ptr[u]; bar && p < rows.bar_ptr[u + 1]; ++p) {
    bar_term_texts(img, img.bara, static_cast<size_t>(p), l.stored, &weights, &mats);
    ex.bar(weights, mats, l.barvars.ref(img.bara.j[static_cast<size_t>(p)]));
  }
}

}  // namespace qubor::formats::text
