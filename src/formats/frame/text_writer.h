// Buffered text output for the writers of problem and solution files.
//
// Text is gathered in a 256 KiB buffer and handed to the output stream in blocks. The first
// failure of the stream is remembered; later output is dropped and ok() reports false, so a
// writer checks once at the end. Numbers are written by number(): the shortest text with
// `digits` significant digits ("%.<digits>g" without the padding), through std::to_chars.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "platform/file_stream.h"
#include "task/task.h"

namespace qubor::formats {

class TextWriter {
 public:
  explicit TextWriter(platform::OutStream& out);
  ~TextWriter() { flush(); }
  TextWriter(const TextWriter&) = delete;
  TextWriter& operator=(const TextWriter&) = delete;

  void put(std::string_view s) {
    if (buf_.size() + s.size() > kCapacity) flush();
    buf_.append(s);
  }
  void put(char c) {
    if (buf_.size() + 1 > kCapacity) flush();
    buf_.push_back(c);
  }
  void printf(const char* fmt, ...) __attribute__((format(printf, 2, 3)));
  void number(double v, int digits);
  // Pads to `width` characters after `s` (left-aligned field, like "%-<width>s").
  void padded(std::string_view s, size_t width);

  bool flush();
  bool ok() const { return ok_; }

 private:
  static constexpr size_t kCapacity = size_t{256} << 10;
  platform::OutStream& out_;
  std::string buf_;
  bool ok_ = true;
};

// "%.<digits>g"-style text of v (digits clamped to 1..17); "+inf"/"-inf" stand for
// infinite values and "nan" for NaN.
std::string number_text(double v, int digits);

// Writes one file: opens `name` for output with compression `c`, logs "Start writing.", runs
// `body` on a TextWriter over the stream, and puts the new file in place of `name` only when
// `body` returned QBR_RES_OK and every byte reached the file; then logs "done writing". On any
// failure the existing file stays as it was, no temporary file is left, "done writing" is not
// logged, and the one error reported is the body's own or QBR_RES_ERR_FILE_WRITE. Open
// failures give QBR_RES_ERR_SPACE, QBR_RES_ERR_INVALID_FILE_NAME or QBR_RES_ERR_FILE_OPEN.
QBRrescode write_file(task::Task& t, const std::string& name, platform::Compression c,
                      const std::function<QBRrescode(TextWriter&)>& body);

}  // namespace qubor::formats
