#include <string>

#include "formats/frame/task_image.h"
#include "formats/frame/text_items.h"
#include "formats/ptf/ptf.h"

namespace qubor::formats {

namespace {

constexpr int kLineWidth = 100;

}  // namespace

QBRrescode write_ptf(task::Task& t, TextWriter& w) {
  TaskImage img;
  collect_image(t, false, &img);
  const text::ImageLabels l(img, t.ipar(QBR_IPAR_PTF_WRITE_TRANSFORM) != 0);

  w.put("PTF 1\n");
  if (!img.task_name.empty()) w.put("TASK " + text::quoted_string(img.task_name) + "\n");
  if (img.numvar > 0) w.put("VARIABLES\n");
  for (int32_t j = 0; j < img.numvar; ++j) {
    w.put("  ");
    text::put_variable(w, img, l, j);
    w.put("\n");
  }
  if (img.numbarvar > 0) w.put("MATRIXVARIABLES\n");
  for (int32_t j = 0; j < img.numbarvar; ++j)
    w.put("  " + l.barvars.decl(j) + " " + std::to_string(img.barvar_dim[static_cast<size_t>(j)]) + "\n");
  if (l.stored && img.numsymmat() > 0) {
    w.put("MATRICES\n");
    for (size_t m = 0; m < img.sym_dim.size(); ++m) {
      const auto first = static_cast<size_t>(img.sym_ptr[m]);
      const std::string entries =
          text::inline_matrix(img.sym_dim[m], img.sym_i.data() + first, img.sym_j.data() + first,
                              img.sym_v.data() + first, img.sym_ptr[m + 1] - img.sym_ptr[m]);
      // "[d: entries]" of the inline form without its brackets.
      w.put("  $" + std::to_string(m) + " " + entries.substr(1, entries.size() - 2) + "\n");
    }
  }

  w.put(img.obj_sense == QBR_OBJECTIVE_SENSE_MAXIMIZE ? "OBJECTIVE maximize" : "OBJECTIVE minimize");
  if (!img.obj_name.empty()) {
    w.put(" ");
    w.put(text::quoted_name(img.obj_name));
  }
  w.put("\n ");
  text::ExprWriter ex(w, kLineWidth, 2);
  ex.start(1);
  text::put_objective_terms(ex, img, l, true);
  w.put("\n");

  if (img.numcon > 0) {
    const text::ImageRows rows(img);
    w.put("CONSTRAINTS\n");
    for (int32_t i = 0; i < img.numcon; ++i) {
      const auto u = static_cast<size_t>(i);
      const std::string head = "  " + l.cons.decl(i) + ":";
      w.put(head);
      ex.start(static_cast<int>(head.size()));
      text::put_row_terms(ex, img, rows, l, i, true);
      w.put(" ");
      text::put_bound(w, img.con_bk[u], img.con_bl[u], img.con_bu[u]);
      w.put("\n");
    }
  }
  if (img.numcone > 0) w.put("CONES\n");
  for (int32_t k = 0; k < img.numcone; ++k) {
    w.put("  ");
    text::put_cone(w, img, l, k);
    w.put("\n");
  }
  return QBR_RES_OK;
}

}  // namespace qubor::formats
