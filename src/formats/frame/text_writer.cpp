#include "formats/frame/text_writer.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <memory>

#include "platform/text.h"
#include "task/report.h"

namespace qubor::formats {

namespace {

// Significant digits of a number's text: those before any exponent, less leading zeros.
int significant_digits(const char* b, const char* e) {
  int n = 0;
  bool leading = true;
  for (; b != e && *b != 'e'; ++b) {
    if (*b < '0' || *b > '9') continue;
    if (*b == '0' && leading) continue;
    leading = false;
    ++n;
  }
  return n;
}

// Rewrites the scientific text in buf (mantissa ending at `e`, whole numbers excluded) in
// fixed form: "-1.3576e-02" becomes "-0.013576", "1.25e+01" becomes "12.5".
char* fixed_from_scientific(char (&buf)[64], const char* e, int exponent) {
  char digits[32];
  int k = 0;
  const bool negative = buf[0] == '-';
  for (const char* p = buf + (negative ? 1 : 0); p != e; ++p) {
    if (*p != '.') digits[k++] = *p;
  }
  char* out = buf;
  if (negative) *out++ = '-';
  if (exponent < 0) {
    *out++ = '0';
    *out++ = '.';
    for (int z = 1; z < -exponent; ++z) *out++ = '0';
    for (int d = 0; d < k; ++d) *out++ = digits[d];
    return out;
  }
  for (int d = 0; d <= exponent; ++d) *out++ = d < k ? digits[d] : '0';
  if (k > exponent + 1) {
    *out++ = '.';
    for (int d = exponent + 1; d < k; ++d) *out++ = digits[d];
  }
  return out;
}

// `digits` significant digits; 17 or more asks for the shortest text that reads back to the
// same double, which never needs more than 17.
char* general_chars(char (&buf)[64], double v, int digits) {
  if (digits >= 17) return std::to_chars(buf, buf + sizeof buf, v).ptr;
  // Whole numbers below 10^digits read the same in both forms; the integer one is quicker.
  static constexpr double kPow10[] = {1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8,
                                      1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15, 1e16};
  if (v != 0.0 && std::fabs(v) < kPow10[std::clamp(digits, 1, 16)] && std::trunc(v) == v)
    return std::to_chars(buf, buf + sizeof buf, static_cast<int64_t>(v)).ptr;
  // Up to 15 digits, a shortest text with no more digits than asked is also the rounded one
  // (the rounding grid is far coarser than the double's own error); it is then written in
  // the form that "%g" picks from its exponent.
  if (digits <= 15) {
    char* end = std::to_chars(buf, buf + sizeof buf, v, std::chars_format::scientific).ptr;
    if (significant_digits(buf, end) <= digits) {
      const char* e = std::find(buf, end, 'e');
      int exponent = 0;
      std::from_chars(e + 1 + (e[1] == '+'), end, exponent);
      if (exponent < -4 || exponent >= digits) return end;
      return fixed_from_scientific(buf, e, exponent);
    }
  }
  return std::to_chars(buf, buf + sizeof buf, v, std::chars_format::general, std::max(digits, 1)).ptr;
}

}  // namespace

TextWriter::TextWriter(platform::OutStream& out) : out_(out) { buf_.reserve(kCapacity); }

bool TextWriter::flush() {
  if (!buf_.empty()) {
    if (ok_ && !out_.write(buf_.data(), buf_.size())) ok_ = false;
    buf_.clear();
  }
  return ok_;
}

void TextWriter::printf(const char* fmt, ...) {
  char small[512];
  va_list ap;
  va_start(ap, fmt);
  int n = std::vsnprintf(small, sizeof small, fmt, ap);
  va_end(ap);
  if (n < 0) return;
  if (static_cast<size_t>(n) < sizeof small) {
    put(std::string_view(small, static_cast<size_t>(n)));
    return;
  }
  va_start(ap, fmt);
  std::string big = platform::vformat(fmt, ap);
  va_end(ap);
  put(big);
}

void TextWriter::number(double v, int digits) {
  char buf[64];
  if (!std::isfinite(v)) {
    put(std::isnan(v) ? "nan" : (v > 0 ? "+inf" : "-inf"));
    return;
  }
  put(std::string_view(buf, static_cast<size_t>(general_chars(buf, v, digits) - buf)));
}

void TextWriter::padded(std::string_view s, size_t width) {
  put(s);
  for (size_t k = s.size(); k < width; ++k) put(' ');
}

std::string number_text(double v, int digits) {
  if (std::isnan(v)) return "nan";
  if (std::isinf(v)) return v > 0 ? "+inf" : "-inf";
  char buf[64];
  return std::string(buf, static_cast<size_t>(general_chars(buf, v, digits) - buf));
}

QBRrescode write_file(task::Task& t, const std::string& name, platform::Compression c,
                      const std::function<QBRrescode(TextWriter&)>& body) {
  std::unique_ptr<platform::OutStream> out;
  switch (platform::open_output(name.c_str(), c, t.ipar(QBR_IPAR_WRITE_COMPRESSION), &out)) {
    case platform::OpenStatus::kOk:
      break;
    case platform::OpenStatus::kNoSpace:
      return QBR_REPORT(t, QBR_RES_ERR_SPACE);
    case platform::OpenStatus::kBadName:
      return QBR_REPORT(t, QBR_RES_ERR_INVALID_FILE_NAME, name);
    default:
      return QBR_REPORT(t, QBR_RES_ERR_FILE_OPEN, name);
  }
  const double start = platform::wall_seconds();
  if (t.log_on()) t.printf(QBR_STREAM_LOG, "Start writing.\n");
  QBRrescode r;
  {
    TextWriter w(*out);
    r = body(w);
    w.flush();
    if (r == QBR_RES_OK && !w.ok()) r = QBR_REPORT(t, QBR_RES_ERR_FILE_WRITE, name);
  }
  if (r != QBR_RES_OK) {
    out->discard();
    return r;
  }
  if (!out->close()) return QBR_REPORT(t, QBR_RES_ERR_FILE_WRITE, name);
  if (t.log_on()) t.printf(QBR_STREAM_LOG, "done writing. Time: %.2f\n\n", platform::wall_seconds() - start);
  return QBR_RES_OK;
}

}  // namespace qubor::formats
