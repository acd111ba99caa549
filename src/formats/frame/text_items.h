// The items of a task image as the text formats write them (see text_syntax.h for the
// syntax): variable and cone declarations, the objective's and the constraints' terms.
#pragma once

#include <cstdint>
#include <vector>

#include "formats/frame/task_image.h"
#include "formats/frame/text_syntax.h"

namespace qubor::formats::text {

struct ImageRows {
  explicit ImageRows(const TaskImage& img);
  std::vector<int64_t> ptr;  // numcon+1 entries into sub/val
  std::vector<int32_t> sub;
  std::vector<double> val;
  std::vector<int64_t> q_ptr;    // numcon+1 entries into the image's qcon_* arrays
  std::vector<int64_t> bar_ptr;  // numcon+1 entries into the image's bara terms
};

// Labels of every item of an image, and whether matrix-variable coefficients are written as
// weighted sums of stored matrices (`stored`) or as one inline matrix each.
struct ImageLabels {
  ImageLabels(const TaskImage& img, bool stored);
  ItemLabels vars, cons, cones, barvars;
  std::vector<char> integer;  // per variable
  bool stored;
};

// "decl bound [integer]" of variable j.
void put_variable(TextWriter& w, const TaskImage& img, const ImageLabels& l, int32_t j);
// "decl type [par] (members)" of cone k.
void put_cone(TextWriter& w, const TaskImage& img, const ImageLabels& l, int32_t k);
// The objective's terms: c, Q, matrix variables (when `bar`), the constant.
void put_objective_terms(ExprWriter& ex, const TaskImage& img, const ImageLabels& l, bool bar);
// Row i's terms: A, Q, matrix variables (when `bar`).
void put_row_terms(ExprWriter& ex, const TaskImage& img, const ImageRows& rows, const ImageLabels& l, int32_t i,
                   bool bar);

}  // namespace qubor::formats::text
