// The MPS reader: lines into an MpsModel (mps_model.h), then the model into the task through
// the public problem-data operations (mps_loader.cpp).
//
// Sections come in the order of kSections; QSECTION, QCMATRIX and CSECTION may repeat.
// Meanings kept from the usual MPS conventions: an RHS entry on the objective row is the
// negated constant term; an UP bound below zero on a variable whose lower bound was not
// given makes the lower bound minus infinity; RANGES follow the usual table (E rows extend
// up or down by the sign of the range). A syntax error logs the line, a caret under the
// offending field and the debugging hint, then reports its code with the line number.
#include <algorithm>
#include <charconv>
#include <cmath>
#include <new>
#include <string>
#include <unordered_map>

#include "formats/frame/line_reader.h"
#include "formats/frame/try.h"
#include "formats/mps/mps.h"
#include "formats/mps/mps_fields.h"
#include "formats/mps/mps_loader.h"
#include "formats/mps/mps_model.h"
#include "task/report.h"
#include "task/tables.h"

namespace qubor::formats {

using task::Task;

namespace {

enum Section : int {
  kName,
  kObjsense,
  kObjname,
  kRows,
  kColumns,
  kRhs,
  kRanges,
  kBounds,
  kSets,
  kQuadobj,
  kQsection,
  kQmatrix,
  kQcmatrix,
  kCsection,
  kEndata,
  kNumSections,
  kNone = -1
};
constexpr std::string_view kSections[kNumSections] = {
    "NAME", "OBJSENSE", "OBJNAME",  "ROWS",    "COLUMNS",  "RHS",      "RANGES", "BOUNDS",
    "SETS", "QUADOBJ",  "QSECTION", "QMATRIX", "QCMATRIX", "CSECTION", "ENDATA"};

constexpr double kInf = 1.0e30;

bool parse_number(std::string_view s, double* v) {
  if (s.empty()) return false;
  const char* b = s.data();
  const char* e = b + s.size();
  if (*b == '+') ++b;
  auto r = std::from_chars(b, e, *v);
  return r.ec == std::errc() && r.ptr == e;
}

// Hashers local to this file, which also keeps the map instantiations out of the library's
// exported symbols.
struct KeyHash {
  size_t operator()(uint64_t k) const { return std::hash<uint64_t>()(k * 0x9e3779b97f4a7c15ull); }
};
struct TextHash {
  size_t operator()(const std::string& s) const { return std::hash<std::string>()(s); }
};

// Which vector of RHS, RANGES or BOUNDS is used: the one named by the parameter, else the
// first met. Lines of the used vector after lines of another draw the split warning once.
struct VectorPick {
  std::string chosen;
  bool have = false, seen = false, after_other = false, warned = false, logged = false;
};

class MpsReader {
 public:
  MpsReader(Task& t, platform::InStream& in, int32_t layout, const char* filename)
      : t_(t), in_(in), lines_(in), layout_(layout), filename_(filename ? filename : "") {
    rhs_.chosen = t.spar(QBR_SPAR_READ_MPS_RHS_NAME);
    ran_.chosen = t.spar(QBR_SPAR_READ_MPS_RAN_NAME);
    bou_.chosen = t.spar(QBR_SPAR_READ_MPS_BOU_NAME);
    rhs_.have = !rhs_.chosen.empty();
    ran_.have = !ran_.chosen.empty();
    bou_.have = !bou_.chosen.empty();
  }

  QBRrescode run() {
    QBRrescode r = parse();
    if (r != QBR_RES_OK) {
      // What was read completely so far still enters the task.
      load_mps_model(t_, m_, /*partial=*/true);
      return r;
    }
    return load_mps_model(t_, m_, /*partial=*/false);
  }

 private:
  QBRrescode parse();
  QBRrescode header();
  QBRrescode end_section();
  QBRrescode data();
  Fields fields();
  Fields free_fields();
  Fields grid_fields();
  bool free_reading_fits(const Fields& f) const;
  QBRrescode rows_line(const Fields& f);
  QBRrescode finish_rows();
  QBRrescode columns_line(const Fields& f);
  void close_column();
  void reserve_entries();
  QBRrescode rhs_line(const Fields& f, bool ranges);
  QBRrescode bounds_line(const Fields& f);
  QBRrescode objective_line(const Fields& f);
  QBRrescode start_quad(const Fields& f, int sec);
  QBRrescode quad_line(const Fields& f);
  QBRrescode finish_quad();
  QBRrescode start_cone(const Fields& f);
  QBRrescode cone_line(const Fields& f);
  void finish_cone();
  bool pick(VectorPick& p, std::string_view name, const char* what, QBRrescode warning);
  int32_t find_row(std::string_view name) const { return m_.rows.find(name); }

  QBRrescode fail(QBRrescode code, int32_t col, std::initializer_list<task::MsgArg> args);
  QBRrescode field_error(int field_no, int32_t col) {
    return fail(QBR_RES_ERR_MPS_INV_FIELD, col, {field_no, line_no()});
  }
  int32_t line_no() const { return static_cast<int32_t>(lines_.line_number()); }

  Task& t_;
  platform::InStream& in_;
  LineReader lines_;
  int32_t layout_;
  std::string filename_;
  std::string_view line_;
  MpsModel m_;
  int section_ = kNone;
  bool int_block_ = false;
  int32_t cur_col_ = -1;
  VectorPick rhs_, ran_, bou_;
  // Quadratic section in progress: target (kObjective or a constraint), one triangle or the
  // full matrix, and the scale of its values.
  int32_t q_target_ = MpsModel::kObjective;
  bool q_full_ = false;
  double q_scale_ = 1.0;
  std::unordered_map<uint64_t, std::pair<double, int32_t>, KeyHash> q_seen_;  // (i,j) -> value, line
  std::vector<uint64_t> q_order_;  // the keys of q_seen_ in file order
  std::vector<char> qcon_done_;
  // Cone in progress and membership of variables in cones.
  bool cone_open_ = false;
  MpsCone cone_;
  std::unordered_map<std::string, int32_t, TextHash> cone_names_;
  std::vector<int32_t> var_cone_;  // cone of each variable, -1 none
};

QBRrescode MpsReader::fail(QBRrescode code, int32_t col, std::initializer_list<task::MsgArg> args) {
  std::string text(line_);
  t_.printf(QBR_STREAM_LOG, "%s\n", text.c_str());
  std::string caret(static_cast<size_t>(col > 0 ? col : 0), ' ');
  caret += '^';
  t_.printf(QBR_STREAM_LOG, "%s\n", caret.c_str());
  t_.printf(QBR_STREAM_LOG, "Turn debugging by setting QBR_IPAR_READ_DEBUG QBR_ON.\n");
  return task::report_at(t_, code, platform::SourcePos{__FILE__, __LINE__}, args);
}

QBRrescode MpsReader::parse() {
  while (lines_.next(&line_)) {
    if (line_.empty() || line_[0] == '*') continue;
    if (trim(line_).empty()) continue;
    QBRrescode r = is_blank(line_[0]) ? data() : header();
    if (r != QBR_RES_OK) return r;
    if (section_ == kEndata) return QBR_RES_OK;
  }
  if (lines_.failed()) return QBR_REPORT(t_, QBR_RES_ERR_FILE_READ, filename_);
  // The data ended without ENDATA.
  return QBR_REPORT(t_, QBR_RES_ERR_MPS_FILE, filename_);
}

QBRrescode MpsReader::header() {
  Fields f = split_free(line_);
  int sec = kNone;
  for (int k = 0; k < kNumSections; ++k) {
    if (f[0] == kSections[k]) sec = k;
  }
  if (sec == kNone) {
    std::string word(f[0]);
    return fail(QBR_RES_ERR_MPS_INV_SEC_NAME, 0, {word, line_no()});
  }
  const bool repeatable = sec == kQsection || sec == kQcmatrix || sec == kCsection;
  if (section_ != kNone && (sec < section_ || (sec == section_ && !repeatable))) {
    std::string word(f[0]);
    return fail(QBR_RES_ERR_MPS_INV_SEC_ORDER, 0, {word, line_no()});
  }
  QUBOR_TRY(end_section());
  section_ = sec;
  switch (sec) {
    case kName:
      m_.name = std::string(trim(line_.substr(4)));
      return QBR_RES_OK;
    case kObjsense:
    case kObjname:
      // Some writers put the value on the header line.
      if (f.n > 1) {
        Fields g;
        g.n = 1;
        g.f[0] = f.f[1];
        return objective_line(g);
      }
      return QBR_RES_OK;
    case kQuadobj:
    case kQsection:
    case kQmatrix:
    case kQcmatrix:
      return start_quad(f, sec);
    case kCsection:
      return start_cone(f);
    default:
      return QBR_RES_OK;
  }
}

// Work left when a section ends: the last column, the objective choice after ROWS, the
// symmetry check of a full Q section, the cone in progress.
QBRrescode MpsReader::end_section() {
  switch (section_) {
    case kRows:
      return finish_rows();
    case kColumns:
      close_column();
      return QBR_RES_OK;
    case kQuadobj:
    case kQsection:
    case kQmatrix:
    case kQcmatrix:
      return finish_quad();
    case kCsection:
      finish_cone();
      return QBR_RES_OK;
    default:
      return QBR_RES_OK;
  }
}

// True when a freely split line reads as a line of the current section: the field count
// fits and the names it refers to exist. Checked before a relaxed line is read on the grid.
bool MpsReader::free_reading_fits(const Fields& f) const {
  double v;
  auto row_ok = [&](int k) { return m_.rows.find(f[k]) >= 0; };
  auto col_ok = [&](int k) { return m_.cols.find(f[k]) >= 0; };
  switch (section_) {
    case kRows:
      return f.n == 2;
    case kColumns:
      if (f[1] == "'MARKER'") return f.n == 3;
      return (f.n == 3 || f.n == 5) && row_ok(1) && parse_number(f[2], &v) &&
             (f.n == 3 || (row_ok(3) && parse_number(f[4], &v)));
    case kRhs:
    case kRanges:
      return (f.n == 3 || f.n == 5) && row_ok(1) && parse_number(f[2], &v) &&
             (f.n == 3 || (row_ok(3) && parse_number(f[4], &v)));
    case kBounds:
      return (f.n == 3 || f.n == 4) && col_ok(2) && (f.n == 3 || parse_number(f[3], &v));
    case kQuadobj:
    case kQsection:
    case kQmatrix:
    case kQcmatrix:
      return f.n == 3 && col_ok(0) && col_ok(1) && parse_number(f[2], &v);
    case kCsection:
      return f.n == 1 && col_ok(0);
    default:
      return true;
  }
}

Fields MpsReader::fields() {
  if (layout_ != QBR_MPS_FORMAT_STRICT) {
    Fields f = free_fields();
    // A relaxed line is read on the fixed grid only when it sits on the grid with a blank
    // inside a name and the free reading does not make sense.
    if (layout_ != QBR_MPS_FORMAT_RELAXED || !needs_grid(line_) || free_reading_fits(f)) return f;
  }
  return grid_fields();
}

Fields MpsReader::free_fields() {
  {
    Fields f = split_free(line_);
    // RHS and RANGES lines without a vector name; BOUNDS lines likewise.
    if ((section_ == kRhs || section_ == kRanges) && f.n % 2 == 0 && f.n < 8) {
      for (int k = f.n; k > 0; --k) f.f[static_cast<size_t>(k)] = f.f[static_cast<size_t>(k - 1)];
      f.f[0] = Field{{}, f.f[1].col};
      ++f.n;
    } else if (section_ == kBounds && f.n >= 2 && f.n < 8) {
      std::string_view type = f[0];
      const bool valued = type == "UP" || type == "LO" || type == "FX" || type == "LI" || type == "UI";
      double dummy;
      const bool short_form =
          valued ? f.n == 3
                 : (f.n == 2 || (f.n == 3 && m_.cols.find(f[1]) >= 0 && parse_number(f[2], &dummy)));
      if (short_form) {
        for (int k = f.n; k > 1; --k) f.f[static_cast<size_t>(k)] = f.f[static_cast<size_t>(k - 1)];
        f.f[1] = Field{{}, f.f[2].col};
        ++f.n;
      }
    }
    return f;
  }
}

Fields MpsReader::grid_fields() {
  Fields g;
  Field fx[6];
  fixed_fields(line_, fx);
  auto take = [&](std::initializer_list<int> ks) {
    for (int k : ks) g.f[static_cast<size_t>(g.n++)] = fx[k];
    while (g.n > 0 && g.f[static_cast<size_t>(g.n - 1)].text.empty()) --g.n;
  };
  switch (section_) {
    case kRows:
    case kBounds:
      take({0, 1, 2, 3});
      break;
    case kColumns:
    case kRhs:
    case kRanges:
      take({1, 2, 3, 4, 5});
      break;
    case kQuadobj:
    case kQsection:
    case kQmatrix:
    case kQcmatrix:
      take({1, 2, 3});
      break;
    default:
      take({1});
  }
  return g;
}

QBRrescode MpsReader::data() {
  if (layout_ == QBR_MPS_FORMAT_STRICT) {
    // Tabs cannot be told from blanks inside the name fields of the fixed grid.
    static constexpr QBRrescode kTabCodes[3] = {QBR_RES_ERR_MPS_TAB_IN_FIELD2, QBR_RES_ERR_MPS_TAB_IN_FIELD3,
                                                QBR_RES_ERR_MPS_TAB_IN_FIELD5};
    static constexpr int kTabFields[3] = {1, 2, 4};
    for (int k = 0; k < 3; ++k) {
      const FixedField g = kGrid[static_cast<size_t>(kTabFields[k])];
      for (int32_t c = g.begin; c < g.end && static_cast<size_t>(c) < line_.size(); ++c) {
        if (line_[static_cast<size_t>(c)] == '\t') return fail(kTabCodes[k], c, {line_no()});
      }
    }
  }
  Fields f = fields();
  switch (section_) {
    case kObjsense:
    case kObjname:
      return objective_line(f);
    case kRows:
      return rows_line(f);
    case kColumns:
      return columns_line(f);
    case kRhs:
      return rhs_line(f, false);
    case kRanges:
      return rhs_line(f, true);
    case kBounds:
      return bounds_line(f);
    case kQuadobj:
    case kQsection:
    case kQmatrix:
    case kQcmatrix:
      return quad_line(f);
    case kCsection:
      return cone_line(f);
    case kNone:
      return fail(QBR_RES_ERR_MPS_INV_SEC_NAME, 0, {std::string(f[0]), line_no()});
    default:
      return QBR_RES_OK;  // NAME continuation lines and SETS carry nothing used
  }
}

QBRrescode MpsReader::objective_line(const Fields& f) {
  if (section_ == kObjsense) {
    std::string_view w = f[0];
    if (w == "MAX" || w == "MAXIMIZE") {
      m_.sense = QBR_OBJECTIVE_SENSE_MAXIMIZE;
    } else if (w == "MIN" || w == "MINIMIZE") {
      m_.sense = QBR_OBJECTIVE_SENSE_MINIMIZE;
    } else {
      return fail(QBR_RES_ERR_MPS_INVALID_OBJSENSE, f.col(0, 0), {std::string(w), line_no()});
    }
    return QBR_RES_OK;
  }
  m_.obj_name_given = std::string(f[0]);
  m_.obj_name_line = line_no();
  return QBR_RES_OK;
}

QBRrescode MpsReader::rows_line(const Fields& f) {
  std::string_view type = f[0];
  if (type.size() != 1 || (type[0] != 'N' && type[0] != 'E' && type[0] != 'L' && type[0] != 'G')) {
    return fail(QBR_RES_ERR_MPS_INV_CON_KEY, f.col(0, 1), {std::string(type), line_no()});
  }
  std::string_view name = f[1];
  if (name.empty()) return fail(QBR_RES_ERR_MPS_NULL_CON_NAME, f.col(1, 4), {line_no()});
  auto [r, added] = m_.rows.insert(name);
  if (!added) {
    return fail(QBR_RES_ERR_MPS_MUL_CON_NAME, f.col(1, 4), {std::string(name), line_no()});
  }
  m_.row_type.push_back(type[0]);
  return QBR_RES_OK;
}

// The objective row is chosen and the constraints numbered once all rows are known.
QBRrescode MpsReader::finish_rows() {
  if (m_.rows_done) return QBR_RES_OK;
  std::string wanted = m_.obj_name_given;
  if (wanted.empty()) wanted = t_.spar(QBR_SPAR_READ_MPS_OBJ_NAME);
  const int32_t nrows = m_.rows.size();
  if (!wanted.empty()) {
    int32_t r = m_.rows.find(wanted);
    if (r < 0 || m_.row_type[static_cast<size_t>(r)] != 'N') {
      return fail(QBR_RES_ERR_MPS_INVALID_OBJ_NAME, 0,
                  {wanted, static_cast<int32_t>(m_.obj_name_line ? m_.obj_name_line : line_no())});
    }
    m_.obj_row = r;
  } else {
    for (int32_t r = 0; r < nrows && m_.obj_row < 0; ++r) {
      if (m_.row_type[static_cast<size_t>(r)] == 'N') m_.obj_row = r;
    }
  }
  if (m_.obj_row < 0) return fail(QBR_RES_ERR_MPS_NO_OBJECTIVE, 0, {});
  if (t_.log_on()) {
    t_.printf(QBR_STREAM_LOG, "Using '%s' as %s vector\n", m_.rows.c_str(m_.obj_row), "objective");
  }
  const bool keep_free = t_.ipar(QBR_IPAR_READ_KEEP_FREE_CON) != 0;
  m_.row_con.assign(static_cast<size_t>(nrows), MpsModel::kDropped);
  for (int32_t r = 0; r < nrows; ++r) {
    if (r == m_.obj_row) {
      m_.row_con[static_cast<size_t>(r)] = MpsModel::kObjective;
    } else if (m_.row_type[static_cast<size_t>(r)] != 'N' || keep_free) {
      m_.row_con[static_cast<size_t>(r)] = m_.num_con++;
      m_.con_row.push_back(r);
    }
  }
  m_.rhs.assign(static_cast<size_t>(m_.num_con), 0.0);
  m_.range.assign(static_cast<size_t>(m_.num_con), 0.0);
  m_.has_range.assign(static_cast<size_t>(m_.num_con), 0);
  m_.rows_done = true;
  reserve_entries();
  return QBR_RES_OK;
}

// Room for the matrix entries that a file of the stream's expected size may hold, so that
// the entry arrays do not grow (and move) step by step. Untouched room costs no memory; a
// refused reservation leaves the arrays to grow as they go.
void MpsReader::reserve_entries() {
  constexpr int64_t kBytesPerEntry = 16;             // a dense free-layout line holds two in 32
  constexpr int64_t kMaxEntries = int64_t{1} << 28;  // beyond this the arrays grow as they go
  const int64_t hint = in_.size_hint();
  if (hint <= 0) return;
  const auto n = static_cast<size_t>(std::min(hint / kBytesPerEntry, kMaxEntries));
  try {
    m_.a_sub.reserve(n);
    m_.a_val.reserve(n);
  } catch (const std::bad_alloc&) {
    // Only a hint.
  }
}

void MpsReader::close_column() {
  if (cur_col_ < 0) return;
  m_.col_ptr.push_back(static_cast<int64_t>(m_.a_sub.size()));
  cur_col_ = -1;
}

QBRrescode MpsReader::columns_line(const Fields& f) {
  QUBOR_TRY(finish_rows());
  std::string_view col = f[0];
  if (f[1] == "'MARKER'") {
    close_column();
    std::string_view word = !f[2].empty() ? f[2] : f[3];
    int32_t wcol = !f[2].empty() ? f.col(2, 0) : f.col(3, 0);
    if (word == "'INTORG'") {
      int_block_ = true;
    } else if (word == "'INTEND'") {
      int_block_ = false;
    } else {
      return fail(QBR_RES_ERR_MPS_INV_MARKER, wcol, {std::string(word), line_no()});
    }
    return QBR_RES_OK;
  }
  if (col.empty()) return fail(QBR_RES_ERR_MPS_NULL_VAR_NAME, f.col(0, 4), {line_no()});
  if (cur_col_ < 0 || m_.cols.name(cur_col_) != col) {
    close_column();
    auto [j, added] = m_.cols.insert(col);
    if (!added) {
      return fail(QBR_RES_ERR_MPS_SPLITTED_VAR, f.col(0, 4), {std::string(col), line_no()});
    }
    cur_col_ = j;
    m_.c.push_back(0.0);
    m_.is_int.push_back(int_block_ ? 1 : 0);
    m_.bl.push_back(0.0);
    m_.bu.push_back(kInf);
    m_.lower_set.push_back(0);
  }
  if (f.n < 3) return field_error(4, f.col(f.n - 1, static_cast<int32_t>(line_.size())));
  for (int p = 1; p < f.n && p <= 3; p += 2) {
    std::string_view row = f[p];
    int32_t r = find_row(row);
    if (r < 0) return fail(QBR_RES_ERR_MPS_UNDEF_CON_NAME, f.col(p, 0), {std::string(row), line_no()});
    double v;
    if (p + 1 >= f.n || !parse_number(f[p + 1], &v)) {
      return field_error(p == 1 ? 4 : 6, f.col(p + 1, static_cast<int32_t>(line_.size())));
    }
    int32_t con = m_.row_con[static_cast<size_t>(r)];
    if (con == MpsModel::kObjective) {
      m_.c[static_cast<size_t>(cur_col_)] = v;
    } else if (con >= 0) {
      m_.a_sub.push_back(con);
      m_.a_val.push_back(v);
    }
  }
  return QBR_RES_OK;
}

bool MpsReader::pick(VectorPick& p, std::string_view name, const char* what, QBRrescode warning) {
  if (!p.have) {
    p.chosen = std::string(name);
    p.have = true;
  }
  if (name != p.chosen) {
    if (p.seen) p.after_other = true;
    return false;
  }
  if (!p.logged) {
    p.logged = true;
    if (t_.log_on()) t_.printf(QBR_STREAM_LOG, "Using '%s' as %s vector\n", p.chosen.c_str(), what);
  }
  if (p.after_other && !p.warned) {
    p.warned = true;
    QBR_REPORT(t_, warning);
  }
  p.seen = true;
  return true;
}

QBRrescode MpsReader::rhs_line(const Fields& f, bool ranges) {
  QUBOR_TRY(finish_rows());
  VectorPick& p = ranges ? ran_ : rhs_;
  if (!pick(p, f[0], ranges ? "range" : "rhs",
            ranges ? QBR_RES_WRN_MPS_SPLIT_RAN_VECTOR : QBR_RES_WRN_MPS_SPLIT_RHS_VECTOR)) {
    return QBR_RES_OK;
  }
  if (f.n < 3) return field_error(3, f.col(f.n - 1, static_cast<int32_t>(line_.size())));
  for (int k = 1; k < f.n && k <= 3; k += 2) {
    int32_t r = find_row(f[k]);
    if (r < 0) {
      return fail(QBR_RES_ERR_MPS_UNDEF_CON_NAME, f.col(k, 0), {std::string(f[k]), line_no()});
    }
    double v;
    if (k + 1 >= f.n || !parse_number(f[k + 1], &v)) {
      return field_error(k == 1 ? 4 : 6, f.col(k + 1, static_cast<int32_t>(line_.size())));
    }
    int32_t con = m_.row_con[static_cast<size_t>(r)];
    if (con == MpsModel::kObjective) {
      if (!ranges) m_.cfix = -v;
    } else if (con >= 0) {
      if (ranges) {
        m_.range[static_cast<size_t>(con)] = v;
        m_.has_range[static_cast<size_t>(con)] = 1;
      } else {
        m_.rhs[static_cast<size_t>(con)] = v;
      }
    }
  }
  return QBR_RES_OK;
}

QBRrescode MpsReader::bounds_line(const Fields& f) {
  QUBOR_TRY(finish_rows());
  std::string_view type = f[0];
  static constexpr std::string_view kTypes[] = {"MI", "PL", "BV", "FR", "FX", "LO", "LI", "UP", "UI"};
  int kind = -1;
  for (int k = 0; k < 9; ++k) {
    if (type == kTypes[k]) kind = k;
  }
  if (kind < 0) return fail(QBR_RES_ERR_MPS_INV_BOUND_KEY, f.col(0, 1), {std::string(type), line_no()});
  if (!pick(bou_, f[1], "bound", QBR_RES_WRN_MPS_SPLIT_BOU_VECTOR)) return QBR_RES_OK;
  std::string_view col = f[2];
  int32_t j = m_.cols.find(col);
  if (j < 0) {
    return fail(QBR_RES_ERR_MPS_UNDEF_VAR_NAME, f.col(2, f.col(1, 4)), {std::string(col), line_no()});
  }
  const bool valued = kind >= 4 && kind != 3;
  double v = 0.0;
  if (valued && !parse_number(f[3], &v)) {
    return field_error(4, f.col(3, static_cast<int32_t>(line_.size())));
  }
  double& bl = m_.bl[static_cast<size_t>(j)];
  double& bu = m_.bu[static_cast<size_t>(j)];
  char& lower_set = m_.lower_set[static_cast<size_t>(j)];
  switch (kind) {
    case 0:  // MI
      bl = -kInf;
      lower_set = 1;
      break;
    case 1:  // PL
      bu = kInf;
      break;
    case 2:  // BV
      m_.is_int[static_cast<size_t>(j)] = 1;
      bl = 0.0;
      bu = 1.0;
      lower_set = 1;
      break;
    case 3:  // FR
      bl = -kInf;
      bu = kInf;
      lower_set = 1;
      break;
    case 4:  // FX
      bl = bu = v;
      lower_set = 1;
      break;
    case 5:  // LO
    case 6:  // LI
      bl = v;
      lower_set = 1;
      if (kind == 6) m_.is_int[static_cast<size_t>(j)] = 1;
      break;
    default:  // UP, UI
      bu = v;
      if (v < 0.0 && bl == 0.0 && !lower_set) bl = -kInf;
      if (kind == 8) m_.is_int[static_cast<size_t>(j)] = 1;
  }
  return QBR_RES_OK;
}

QBRrescode MpsReader::start_quad(const Fields& f, int sec) {
  QUBOR_TRY(finish_rows());
  close_column();
  q_full_ = sec == kQmatrix || sec == kQcmatrix;
  // QCMATRIX holds x'Qx, the task keeps 1/2 x'Qx.
  q_scale_ = sec == kQcmatrix ? 2.0 : 1.0;
  q_target_ = MpsModel::kObjective;
  q_seen_.clear();
  q_order_.clear();
  if (sec == kQsection || sec == kQcmatrix) {
    std::string_view row = f[1];
    int32_t r = find_row(row);
    if (r < 0) return fail(QBR_RES_ERR_MPS_UNDEF_CON_NAME, f.col(1, 0), {std::string(row), line_no()});
    q_target_ = m_.row_con[static_cast<size_t>(r)];
    if (q_target_ == MpsModel::kDropped) return QBR_RES_OK;
  }
  if (q_target_ == MpsModel::kObjective) {
    if (m_.has_qobj) return fail(QBR_RES_ERR_MPS_MUL_QOBJ, 0, {line_no()});
    m_.has_qobj = true;
    return QBR_RES_OK;
  }
  qcon_done_.resize(static_cast<size_t>(m_.num_con), 0);
  if (qcon_done_[static_cast<size_t>(q_target_)]) {
    return fail(QBR_RES_ERR_MPS_MUL_QSEC, f.col(1, 0), {std::string(f[1]), line_no()});
  }
  qcon_done_[static_cast<size_t>(q_target_)] = 1;
  m_.qcon_index.push_back(q_target_);
  m_.qcon.emplace_back();
  return QBR_RES_OK;
}

QBRrescode MpsReader::quad_line(const Fields& f) {
  int32_t jj[2];
  for (int k = 0; k < 2; ++k) {
    jj[k] = m_.cols.find(f[k]);
    if (jj[k] < 0) {
      return fail(QBR_RES_ERR_MPS_UNDEF_VAR_NAME, f.col(k, 4), {std::string(f[k]), line_no()});
    }
  }
  double v;
  if (!parse_number(f[2], &v)) return field_error(4, f.col(2, static_cast<int32_t>(line_.size())));
  if (q_target_ == MpsModel::kDropped) return QBR_RES_OK;
  // One triangle: the unordered pair may come once. Full matrix: each ordered pair once, and
  // its mirror must carry the same value (checked when the section ends).
  const int32_t a = q_full_ ? jj[0] : std::max(jj[0], jj[1]);
  const int32_t b = q_full_ ? jj[1] : std::min(jj[0], jj[1]);
  const uint64_t key = (static_cast<uint64_t>(static_cast<uint32_t>(a)) << 32) | static_cast<uint32_t>(b);
  if (!q_seen_.emplace(key, std::make_pair(v, line_no())).second) {
    return fail(QBR_RES_ERR_MPS_DUPLICATE_Q_ELEMENT, f.col(0, 4),
                {std::string(f[0]), std::string(f[1]), line_no()});
  }
  if (q_full_) q_order_.push_back(key);
  if (q_full_ && a < b) return QBR_RES_OK;  // the lower-triangle twin carries the value
  QTriplets& q = q_target_ == MpsModel::kObjective ? m_.qobj : m_.qcon.back();
  q.add(a, b, v * q_scale_);
  return QBR_RES_OK;
}

QBRrescode MpsReader::finish_quad() {
  if (!q_full_) return QBR_RES_OK;
  for (uint64_t key : q_order_) {
    const auto& entry = q_seen_[key];
    const uint32_t a = static_cast<uint32_t>(key >> 32), b = static_cast<uint32_t>(key);
    if (a == b) continue;
    const uint64_t mirror = (static_cast<uint64_t>(b) << 32) | a;
    auto it = q_seen_.find(mirror);
    if (it == q_seen_.end() || it->second.first != entry.first) {
      std::string n1(m_.cols.name(static_cast<int32_t>(a))), n2(m_.cols.name(static_cast<int32_t>(b)));
      line_ = std::string_view();
      return task::report_at(t_, QBR_RES_ERR_MPS_NON_SYMMETRIC_Q, platform::SourcePos{__FILE__, __LINE__},
                             {n1, n2, entry.second});
    }
  }
  q_seen_.clear();
  q_order_.clear();
  return QBR_RES_OK;
}

QBRrescode MpsReader::start_cone(const Fields& f) {
  QUBOR_TRY(finish_rows());
  close_column();
  // "CSECTION name par type"; a header without a name has only parameter and type.
  const bool named = f.n >= 4;
  std::string_view name = named ? f[1] : std::string_view();
  std::string_view par = f[named ? 2 : 1];
  std::string_view type = f[named ? 3 : 2];
  int32_t ct = -1;
  for (int32_t k = QBR_CT_QUAD; k <= QBR_CT_ZERO; ++k) {
    if (type == task::enum_text(task::EnumGroup::CONETYPE, k)) ct = k;
  }
  if (ct < 0) return fail(QBR_RES_ERR_MPS_CONE_TYPE, f.col(named ? 3 : 2, 0), {std::string(type), line_no()});
  double v = 0.0;
  if (!par.empty() && !parse_number(par, &v)) return field_error(named ? 3 : 2, f.col(named ? 2 : 1, 0));
  if (!name.empty() &&
      !cone_names_.emplace(std::string(name), static_cast<int32_t>(m_.cones.size())).second) {
    return fail(QBR_RES_ERR_MPS_MUL_CSEC, f.col(1, 0), {std::string(name), line_no()});
  }
  cone_ = MpsCone{std::string(name), ct, v, {}};
  cone_open_ = true;
  var_cone_.resize(static_cast<size_t>(m_.cols.size()), -1);
  return QBR_RES_OK;
}

QBRrescode MpsReader::cone_line(const Fields& f) {
  int32_t j = m_.cols.find(f[0]);
  if (j < 0) return fail(QBR_RES_ERR_MPS_UNDEF_VAR_NAME, f.col(0, 4), {std::string(f[0]), line_no()});
  const int32_t k = static_cast<int32_t>(m_.cones.size());
  int32_t& owner = var_cone_[static_cast<size_t>(j)];
  if (owner == k) return fail(QBR_RES_ERR_MPS_CONE_REPEAT, f.col(0, 4), {std::string(f[0]), line_no()});
  if (owner >= 0) return fail(QBR_RES_ERR_MPS_CONE_OVERLAP, f.col(0, 4), {std::string(f[0]), line_no()});
  owner = k;
  cone_.members.push_back(j);
  return QBR_RES_OK;
}

void MpsReader::finish_cone() {
  if (!cone_open_) return;
  m_.cones.push_back(std::move(cone_));
  cone_ = MpsCone{};
  cone_open_ = false;
}

}  // namespace

QBRrescode read_mps(Task& t, platform::InStream& in, int32_t layout, const char* filename) {
  MpsReader reader(t, in, layout, filename);
  return reader.run();
}

}  // namespace qubor::formats
