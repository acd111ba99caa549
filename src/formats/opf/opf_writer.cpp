#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "formats/frame/task_image.h"
#include "formats/frame/text_items.h"
#include "formats/opf/opf.h"
#include "task/tables.h"

namespace qubor::formats {

namespace {

const char* symbol_without(task::EnumGroup g, int32_t v, const char* prefix) {
  const char* s = task::enum_symbol(g, v);
  if (!s) return "UNK";
  const size_t n = std::strlen(prefix);
  return std::strncmp(s, prefix, n) == 0 ? s + n : s;
}

void put_value(TextWriter& w, const char* key, double v) {
  w.put(" ");
  w.put(key);
  w.put("=");
  text::put_number(w, v);
}

void put_key(TextWriter& w, int32_t sk) {
  w.put(" sk=");
  w.put(symbol_without(task::EnumGroup::STAKEY, sk, "QBR_SK_"));
}

}  // namespace

OpfSwitches OpfSwitches::of(const task::Task& t) {
  OpfSwitches s;
  s.header = t.ipar(QBR_IPAR_OPF_WRITE_HEADER) != 0;
  s.hints = t.ipar(QBR_IPAR_OPF_WRITE_HINTS) != 0;
  s.problem = t.ipar(QBR_IPAR_OPF_WRITE_PROBLEM) != 0;
  s.parameters = t.ipar(QBR_IPAR_OPF_WRITE_PARAMETERS) != 0;
  s.solutions = t.ipar(QBR_IPAR_OPF_WRITE_SOLUTIONS) != 0;
  s.sol_itr = t.ipar(QBR_IPAR_OPF_WRITE_SOL_ITR) != 0;
  s.sol_bas = t.ipar(QBR_IPAR_OPF_WRITE_SOL_BAS) != 0;
  s.sol_itg = t.ipar(QBR_IPAR_OPF_WRITE_SOL_ITG) != 0;
  s.line_length = t.ipar(QBR_IPAR_OPF_WRITE_LINE_LENGTH);
  return s;
}

QBRrescode write_opf(task::Task& t, TextWriter& w, const OpfSwitches& sw) {
  TaskImage img;
  collect_image(t, sw.solutions, &img);
  const text::ImageLabels l(img, true);

  if (sw.header) {
    w.printf("# Written by qubor %d.%d.%d.\n", img.version[0], img.version[1], img.version[2]);
    w.put("# A statement ends with ';'. Bounds: free, >= l, <= u, == v, in [l, u].\n");
    w.put("# A term 'q x * y' is the entry (x, y) of Q in 1/2 x'Qx.\n");
  }
  w.put("OPF 1;\n");
  if (sw.hints) {
    w.printf("hint numvar %d;\nhint numcon %d;\nhint numcone %d;\nhint numanz %lld;\n", img.numvar, img.numcon,
             img.numcone, static_cast<long long>(img.a_val.size()));
  }
  if (sw.problem) {
    if (!img.task_name.empty()) w.put("task " + text::quoted_string(img.task_name) + ";\n");
    for (int32_t j = 0; j < img.numvar; ++j) {
      w.put("var ");
      text::put_variable(w, img, l, j);
      w.put(";\n");
    }
    std::string head = img.obj_sense == QBR_OBJECTIVE_SENSE_MAXIMIZE ? "maximize" : "minimize";
    if (!img.obj_name.empty()) head.append(" ").append(text::quoted_name(img.obj_name));
    head += ":";
    w.put(head);
    text::ExprWriter ex(w, sw.line_length, 2);
    ex.start(static_cast<int>(head.size()));
    text::put_objective_terms(ex, img, l, false);
    w.put(";\n");
    const text::ImageRows rows(img);
    for (int32_t i = 0; i < img.numcon; ++i) {
      const auto u = static_cast<size_t>(i);
      const std::string lead = "con " + l.cons.decl(i) + ":";
      w.put(lead);
      ex.start(static_cast<int>(lead.size()));
      text::put_row_terms(ex, img, rows, l, i, false);
      w.put(" ");
      text::put_bound(w, img.con_bk[u], img.con_bl[u], img.con_bu[u]);
      w.put(";\n");
    }
    for (int32_t k = 0; k < img.numcone; ++k) {
      w.put("cone ");
      text::put_cone(w, img, l, k);
      w.put(";\n");
    }
  }

  if (sw.parameters) {
    for (int i = 0; i < task::kNumIntParams; ++i) {
      if (t.ipar(i) != task::int_param(i).default_value) w.printf("param %s = %d;\n", task::int_param(i).name, t.ipar(i));
    }
    for (int i = 0; i < task::kNumDouParams; ++i) {
      const double v = t.dpar(i);
      if (v == task::dou_param(i).default_value && !std::signbit(v) == !std::signbit(task::dou_param(i).default_value))
        continue;
      w.printf("param %s = ", task::dou_param(i).name);
      text::put_number(w, v);
      w.put(";\n");
    }
    for (int i = 0; i < task::kNumStrParams; ++i) {
      if (t.spar(i) == task::str_param(i).default_value) continue;
      w.printf("param %s = ", task::str_param(i).name);
      w.put(text::quoted_string(t.spar(i)));
      w.put(";\n");
    }
  }

  const bool item_on[] = {sw.sol_itr, sw.sol_bas, sw.sol_itg};
  for (int32_t which = QBR_SOL_ITR; which <= QBR_SOL_ITG; ++which) {
    const SolutionImage& s = img.sol[static_cast<size_t>(which)];
    if (!sw.solutions || !item_on[which] || !s.defined) continue;
    w.printf("solution %s {\n  status %s %s;\n", solution_item_name(which),
             symbol_without(task::EnumGroup::PROSTA, s.prosta, "QBR_PRO_STA_"),
             symbol_without(task::EnumGroup::SOLSTA, s.solsta, "QBR_SOL_STA_"));
    for (int32_t i = 0; i < img.numcon; ++i) {
      const auto u = static_cast<size_t>(i);
      w.put("  con " + l.cons.ref(i));
      put_key(w, s.skc[u]);
      put_value(w, "xc", s.xc[u]);
      put_value(w, "slc", s.slc[u]);
      put_value(w, "suc", s.suc[u]);
      put_value(w, "y", s.y[u]);
      w.put(";\n");
    }
    for (int32_t j = 0; j < img.numvar; ++j) {
      const auto u = static_cast<size_t>(j);
      w.put("  var " + l.vars.ref(j));
      put_key(w, s.skx[u]);
      put_value(w, "xx", s.xx[u]);
      put_value(w, "slx", s.slx[u]);
      put_value(w, "sux", s.sux[u]);
      put_value(w, "snx", s.snx[u]);
      w.put(";\n");
    }
    for (int32_t k = 0; k < img.numcone; ++k) {
      w.put("  cone " + l.cones.ref(k));
      put_key(w, s.skn[static_cast<size_t>(k)]);
      w.put(";\n");
    }
    w.put("}\n");
  }
  return QBR_RES_OK;
}

}  // namespace qubor::formats
