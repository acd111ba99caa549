// The parameter file:
//
//   BEGIN QUBOR
//   QBR_IPAR_LOG        10      % comment
//   ...
//   END QUBOR
//
// Reading skips everything before the BEGIN line, applies one "name value" pair per line and
// stops at the END line. Writing lists every parameter in index order.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "platform/file_stream.h"
#include "platform/text.h"
#include "task/params.h"
#include "task/report.h"

namespace qubor::task {

namespace {

constexpr size_t kLineMax = 1024;

struct FileCloser {
  std::FILE* f;
  ~FileCloser() {
    if (f) std::fclose(f);
  }
};

// Reads one line of at most kLineMax characters (the rest of a longer line is dropped).
bool read_line(std::FILE* f, std::string& line) {
  line.clear();
  int c;
  bool any = false;
  while ((c = std::fgetc(f)) != EOF) {
    any = true;
    if (c == '\n') break;
    if (line.size() < kLineMax) line.push_back(static_cast<char>(c));
  }
  if (!line.empty() && line.back() == '\r') line.pop_back();
  return any;
}

bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f'; }

// Splits "name value..." into name and the trimmed rest; false when there is no value.
bool split_pair(const std::string& text, std::string& name, std::string& value) {
  size_t i = 0, n = text.size();
  while (i < n && is_blank(text[i])) ++i;
  size_t b = i;
  while (i < n && !is_blank(text[i])) ++i;
  name.assign(text, b, i - b);
  while (i < n && is_blank(text[i])) ++i;
  size_t e = n;
  while (e > i && is_blank(text[e - 1])) --e;
  value.assign(text, i, e - i);
  return !name.empty() && !value.empty();
}

QBRrescode apply_line(Task& t, const std::string& raw, char comment) {
  std::string text = raw;
  if (comment) {
    size_t pos = text.find(comment);
    // A quoted value may hold the comment character; only text after the value's closing
    // quote counts as comment then.
    size_t q = text.find('"');
    if (pos != std::string::npos && q != std::string::npos && q < pos) {
      size_t close = q + 1;
      while (close < text.size() && !(text[close] == '"' && text[close - 1] != '\\')) ++close;
      pos = text.find(comment, close);
    }
    if (pos != std::string::npos) text.erase(pos);
  }
  std::string name, value;
  if (!split_pair(text, name, value)) return QBR_RES_OK;
  if (t.ipar(QBR_IPAR_PARAM_READ_CASE_NAME) == 0)
    for (char& c : name)
      if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  return put_param_text(t, name.c_str(), value.c_str());
}

}  // namespace

QBRrescode read_param_file(Task& t, const char* filename) {
  std::string name = filename ? filename : t.spar(QBR_SPAR_PARAM_READ_FILE_NAME).c_str();
  std::FILE* f = name.empty() ? nullptr : std::fopen(name.c_str(), "r");
  if (!f) return QBR_REPORT(t, QBR_RES_WRN_OPEN_PARAM_FILE, name);
  FileCloser closer{f};
  const double start = platform::wall_seconds();
  if (t.log_on()) t.printf(QBR_STREAM_MSG, "Reading %s file - %s\n", "par", name.c_str());
  const std::pmr::string& sign = t.spar(QBR_SPAR_PARAM_COMMENT_SIGN);
  const char comment = sign.empty() ? '\0' : sign[0];

  std::string line;
  bool begun = false;
  while (read_line(f, line)) {
    if (line.rfind("BEGIN QUBOR", 0) == 0) {
      begun = true;
      break;
    }
  }
  if (!begun) {
    t.printf(QBR_STREAM_MSG, "No parameters found\n");
    return QBR_RES_OK;
  }
  const bool ignore_errors = t.ipar(QBR_IPAR_PARAM_READ_IGN_ERROR) != 0;
  while (read_line(f, line)) {
    if (line.rfind("END QUBOR", 0) == 0) break;
    QBRrescode r = apply_line(t, line, comment);
    if (r == QBR_RES_OK) continue;
    if (r >= 1000) t.printf(QBR_STREAM_ERR, "The error occurred in line:\n%s\n", line.c_str());
    if (!ignore_errors) return r;
  }
  if (t.log_on()) t.printf(QBR_STREAM_MSG, "done reading. Time: %.2f\n\n", platform::wall_seconds() - start);
  return QBR_RES_OK;
}

QBRrescode write_param_file(Task& t, const char* filename) {
  std::string name = (filename && *filename) ? filename : t.spar(QBR_SPAR_PARAM_WRITE_FILE_NAME).c_str();
  const double start = platform::wall_seconds();
  if (t.log_on()) t.printf(QBR_STREAM_MSG, "Writing %s file:  %s\n", "par", name.c_str());
  // The text is put together first and then written in one piece through an output stream,
  // which replaces an existing file only once the whole text is on the disk.
  std::unique_ptr<platform::OutStream> out;
  const platform::OpenStatus st = platform::open_output(name.c_str(), platform::Compression::kNone, 0, &out);
  if (st == platform::OpenStatus::kNoSpace) return QBR_REPORT(t, QBR_RES_ERR_SPACE);
  if (st != platform::OpenStatus::kOk) return QBR_REPORT(t, QBR_RES_ERR_FILE_OPEN, name);
  std::string text = "BEGIN QUBOR\n\n";
  char line[1200];
  for (int i = 0; i < kNumIntParams; ++i) {
    std::snprintf(line, sizeof line, "%-48s %-18d\n", int_param(i).name, t.ipar(i));
    text += line;
  }
  text += "\n";
  for (int i = 0; i < kNumDouParams; ++i) {
    std::snprintf(line, sizeof line, "%-48s %-18.8e\n", dou_param(i).name, t.dpar(i));
    text += line;
  }
  text += "\n";
  for (int i = 0; i < kNumStrParams; ++i) {
    // A value with leading or trailing blanks, or starting with a quote, is written quoted so
    // that reading the file gives it back unchanged.
    const std::pmr::string& v = t.spar(i);
    bool quote = !v.empty() && (is_blank(v.front()) || is_blank(v.back()) || v.front() == '"' ||
                                v.find('%') != std::string::npos);
    std::string value;
    if (quote) {
      value = "\"";
      for (char c : v) {
        if (c == '"') value.push_back('\\');
        value.push_back(c);
      }
      value.push_back('"');
    } else {
      value.assign(v.data(), v.size());
    }
    std::string name_field = str_param(i).name;
    name_field.resize(std::max<size_t>(name_field.size(), 48), ' ');
    text += name_field + " " + value + "\n";
  }
  text += "\nEND QUBOR\n";
  if (!out->write(text.data(), text.size()) || !out->close()) {
    out->discard();
    return QBR_REPORT(t, QBR_RES_ERR_FILE_WRITE, name);
  }
  if (t.log_on()) t.printf(QBR_STREAM_MSG, "done writing. Time: %.2f\n\n", platform::wall_seconds() - start);
  return QBR_RES_OK;
}

}  // namespace qubor::task
