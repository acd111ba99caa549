#include "formats/frame/text_writer.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdarg>
#include <cstdio>

#include "platform/text.h"

namespace qubor::formats {

namespace {

// `digits` significant digits; 17 or more asks for the shortest text that reads back to the
// same double, which never needs more than 17.
char* general_chars(char (&buf)[64], double v, int digits) {
  if (digits >= 17) return std::to_chars(buf, buf + sizeof buf, v).ptr;
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

}  // namespace qubor::formats
