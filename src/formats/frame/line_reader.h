// Lines of text from an input stream, without their end-of-line characters ("\n" or "\r\n").
//
// The reader keeps one buffer (1 MiB to start, less for a stream that expects less; it
// doubles for a line that does not fit) and
// hands out views into it that stay valid until the next call. Line numbers start at 1.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

#include "platform/file_stream.h"

namespace qubor::formats {

class LineReader {
 public:
  explicit LineReader(platform::InStream& in, size_t chunk = size_t{1} << 20);

  // The next line; false at the end of the data or when reading fails (see failed()).
  bool next(std::string_view* line);
  int64_t line_number() const { return line_no_; }
  bool failed() const { return failed_; }

 private:
  bool fill();

  platform::InStream& in_;
  size_t chunk_;
  size_t size_;
  // Left uninitialised: only the bytes that the stream delivers are ever looked at.
  std::unique_ptr<char[]> buf_;
  size_t begin_ = 0, end_ = 0;
  size_t delivered_ = 0;  // bytes read from the stream so far
  int64_t line_no_ = 0;
  bool eof_ = false, failed_ = false;
};

}  // namespace qubor::formats
