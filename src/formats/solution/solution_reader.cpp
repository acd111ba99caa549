// The solution file reader: reads the CONSTRAINTS and VARIABLES blocks of a solution file
// (solution_writer.cpp) back into one of the task's solutions.
//
// A row is "INDEX NAME KEY ACTIVITY LOWER UPPER [DUAL-LOWER DUAL-UPPER [DUAL-CONIC]]" with
// blank-separated fields; when QBR_IPAR_SOL_READ_NAME_WIDTH is 0 or more the name is the text
// of that width after the index field, so names with blanks can be read. Lines longer than
// QBR_IPAR_SOL_READ_WIDTH are cut there. The item is found by its name; a name the task does
// not know is accepted only when it is the generated name of a nameless item at the row's
// index, otherwise the read fails with QBR_RES_ERR_INVALID_NAME_IN_SOL_FILE. Rows that cannot
// be read draw one warning per block. The head and the matrix-variable block are not read;
// the solution's statuses are those the solution store gives to a solution that is put.
#include <algorithm>
#include <charconv>
#include <memory>
#include <string>
#include <vector>

#include "formats/formats.h"
#include "formats/frame/file_name.h"
#include "formats/frame/line_reader.h"
#include "formats/frame/try.h"
#include "formats/mps/mps_fields.h"
#include "formats/solution/solution_file.h"
#include "platform/text.h"
#include "task/report.h"
#include "task/tables.h"

namespace qubor::formats {

using task::Task;

namespace {

enum class Block { kNone, kConstraints, kVariables, kOther };

bool number(std::string_view s, double* v) {
  if (s == "NONE") {
    *v = 0.0;
    return true;
  }
  if (!s.empty() && s[0] == '+') s.remove_prefix(1);
  auto r = std::from_chars(s.data(), s.data() + s.size(), *v);
  return r.ec == std::errc() && r.ptr == s.data() + s.size();
}

class SolutionReader {
 public:
  SolutionReader(Task& t, int32_t whichsol) : t_(t), h_(t.handle), whichsol_(whichsol) {}

  QBRrescode run(platform::InStream& in) {
    QUBOR_TRY(start());
    LineReader lines(in);
    std::string_view line;
    const size_t width = static_cast<size_t>(t_.ipar(QBR_IPAR_SOL_READ_WIDTH));
    Block block = Block::kNone;
    while (lines.next(&line)) {
      if (line.size() > width) line = line.substr(0, width);
      std::string_view text = trim(line);
      if (text == "CONSTRAINTS") {
        block = Block::kConstraints;
      } else if (text == "VARIABLES") {
        block = Block::kVariables;
      } else if (text == "SYMMETRIC MATRIX VARIABLES") {
        block = Block::kOther;
      } else if (!text.empty() && (block == Block::kConstraints || block == Block::kVariables) &&
                 text.substr(0, 5) != "INDEX") {
        QUBOR_TRY(row(line, block == Block::kVariables));
      }
    }
    if (lines.failed()) return QBR_REPORT(t_, QBR_RES_ERR_FILE_READ, "");
    if (ignored_con_) QUBOR_TRY(QBR_REPORT(t_, QBR_RES_WRN_SOL_FILE_IGNORED_CON));
    if (ignored_var_) QUBOR_TRY(QBR_REPORT(t_, QBR_RES_WRN_SOL_FILE_IGNORED_VAR));
    for (size_t i = 0; i < y_.size(); ++i) y_[i] = slc_[i] - suc_[i];
    return QBR_putsolution(h_, whichsol_, skc_.data(), skx_.data(), skn_.data(), xc_.data(), xx_.data(),
                           y_.data(), slc_.data(), suc_.data(), slx_.data(), sux_.data(), snx_.data());
  }

 private:
  QBRrescode start() {
    QUBOR_TRY(QBR_getnumvar(h_, &numvar_));
    QUBOR_TRY(QBR_getnumcon(h_, &numcon_));
    QUBOR_TRY(QBR_getnumcone(h_, &numcone_));
    const size_t m = static_cast<size_t>(numcon_), n = static_cast<size_t>(numvar_);
    skc_.assign(m, QBR_SK_UNK);
    skx_.assign(n, QBR_SK_UNK);
    skn_.assign(static_cast<size_t>(numcone_), QBR_SK_UNK);
    xc_.assign(m, 0.0);
    y_.assign(m, 0.0);
    slc_.assign(m, 0.0);
    suc_.assign(m, 0.0);
    xx_.assign(n, 0.0);
    slx_.assign(n, 0.0);
    sux_.assign(n, 0.0);
    snx_.assign(n, 0.0);
    return QBR_RES_OK;
  }

  // The item a row names, or -1 after reporting an unknown name.
  QBRrescode find(bool vars, std::string_view idx_text, const std::string& name, int32_t* index) {
    int32_t found = 0;
    QUBOR_TRY(vars ? QBR_getvarnameindex(h_, name.c_str(), &found, index)
                   : QBR_getconnameindex(h_, name.c_str(), &found, index));
    if (found) return QBR_RES_OK;
    // A nameless item is written under a generated name; its index identifies it.
    int32_t k = -1;
    auto r = std::from_chars(idx_text.data(), idx_text.data() + idx_text.size(), k);
    if (r.ec == std::errc() && k >= 0 && k < (vars ? numvar_ : numcon_)) {
      int32_t len = 0;
      QUBOR_TRY(vars ? QBR_getvarnamelen(h_, k, &len) : QBR_getconnamelen(h_, k, &len));
      if (len == 0) {
        *index = k;
        return QBR_RES_OK;
      }
    }
    return QBR_REPORT(t_, QBR_RES_ERR_INVALID_NAME_IN_SOL_FILE, name);
  }

  QBRrescode row(std::string_view line, bool vars) {
    Fields f;
    std::string name;
    const int32_t name_width = t_.ipar(QBR_IPAR_SOL_READ_NAME_WIDTH);
    std::string_view idx_text;
    if (name_width >= 0 && line.size() > 11) {
      idx_text = trim(line.substr(0, 11));
      name = std::string(trim(line.substr(11, static_cast<size_t>(name_width))));
      std::string_view rest = line.size() > 11 + static_cast<size_t>(name_width)
                                  ? line.substr(11 + static_cast<size_t>(name_width))
                                  : std::string_view();
      Fields g = split_free(rest);
      f.n = std::min(g.n + 2, 8);  // fields past the eighth are not used
      for (int k = 0; k + 2 < f.n; ++k)
        f.f[static_cast<size_t>(k + 2)] = g.f[static_cast<size_t>(k)];
    } else {
      f = split_free(line);
      idx_text = f[0];
      name = std::string(f[1]);
    }
    double v[6] = {0, 0, 0, 0, 0, 0};
    int32_t sk = -1;
    for (int32_t k = QBR_SK_UNK; k <= QBR_SK_INF; ++k) {
      if (f[2] == task::enum_text(task::EnumGroup::STAKEY, k)) sk = k;
    }
    bool good = f.n >= 6 && sk >= 0;
    for (int k = 3; good && k < f.n && k < 9; ++k) good = number(f[k], &v[k - 3]);
    if (!good) {
      (vars ? ignored_var_ : ignored_con_) = true;
      return QBR_RES_OK;
    }
    int32_t i = -1;
    QUBOR_TRY(find(vars, idx_text, name, &i));
    const size_t s = static_cast<size_t>(i);
    if (vars) {
      skx_[s] = sk;
      xx_[s] = v[0];
      slx_[s] = v[3];
      sux_[s] = v[4];
      snx_[s] = v[5];
    } else {
      skc_[s] = sk;
      xc_[s] = v[0];
      slc_[s] = v[3];
      suc_[s] = v[4];
    }
    return QBR_RES_OK;
  }

  Task& t_;
  QBRtask_t h_;
  int32_t whichsol_;
  int32_t numvar_ = 0, numcon_ = 0, numcone_ = 0;
  bool ignored_con_ = false, ignored_var_ = false;
  std::vector<int32_t> skc_, skx_, skn_;
  std::vector<double> xc_, y_, slc_, suc_, xx_, slx_, sux_, snx_;
};

}  // namespace

QBRrescode read_solution(Task& t, int32_t whichsol, const char* filename) {
  const std::string name = solution_file_name(t, whichsol, filename);
  if (t.log_on()) t.printf(QBR_STREAM_LOG, "Reading solution file - %s\n", name.c_str());
  const FileKind kind = file_kind(name);
  std::unique_ptr<platform::InStream> in;
  platform::OpenStatus st = platform::open_input(name.c_str(), compression_of(kind.compress), &in);
  if (st == platform::OpenStatus::kNoSpace) return QBR_REPORT(t, QBR_RES_ERR_SPACE);
  if (st == platform::OpenStatus::kBadName) return QBR_REPORT(t, QBR_RES_ERR_INVALID_FILE_NAME, name);
  if (st != platform::OpenStatus::kOk) return QBR_REPORT(t, QBR_RES_ERR_FILE_OPEN, name);
  const double start = platform::wall_seconds();
  if (t.log_on()) t.printf(QBR_STREAM_LOG, "Start reading.\n");
  SolutionReader reader(t, whichsol);
  QBRrescode r = reader.run(*in);
  if (t.log_on()) t.printf(QBR_STREAM_LOG, "done reading. Time: %.2f\n\n", platform::wall_seconds() - start);
  return r;
}

}  // namespace qubor::formats
