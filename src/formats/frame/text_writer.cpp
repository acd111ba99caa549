#include "formats/frame/text_writer.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdarg>
#include <cstdio>

#include "platform/text.h"

namespace qubor::formats {

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
  auto r = std::to_chars(buf, buf + sizeof buf, v, std::chars_format::general, std::clamp(digits, 1, 17));
  put(std::string_view(buf, static_cast<size_t>(r.ptr - buf)));
}

void TextWriter::padded(std::string_view s, size_t width) {
  put(s);
  for (size_t k = s.size(); k < width; ++k) put(' ');
}

std::string number_text(double v, int digits) {
  if (std::isnan(v)) return "nan";
  if (std::isinf(v)) return v > 0 ? "+inf" : "-inf";
  char buf[64];
  auto r = std::to_chars(buf, buf + sizeof buf, v, std::chars_format::general, std::clamp(digits, 1, 17));
  return std::string(buf, static_cast<size_t>(r.ptr - buf));
}

}  // namespace qubor::formats
