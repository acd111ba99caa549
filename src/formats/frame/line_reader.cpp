#include "formats/frame/line_reader.h"

#include <cstring>

namespace qubor::formats {

LineReader::LineReader(platform::InStream& in, size_t chunk)
    : in_(in), buf_(new char[chunk > 0 ? chunk : 1]), size_(chunk > 0 ? chunk : 1) {}

// Moves the unread tail to the front and reads more behind it; false when nothing was added.
bool LineReader::fill() {
  if (eof_ || failed_) return false;
  size_t tail = end_ - begin_;
  if (begin_ > 0) {
    std::memmove(buf_.get(), buf_.get() + begin_, tail);
    begin_ = 0;
    end_ = tail;
  }
  if (end_ == size_) {
    std::unique_ptr<char[]> bigger(new char[2 * size_]);
    std::memcpy(bigger.get(), buf_.get(), end_);
    buf_ = std::move(bigger);
    size_ *= 2;
  }
  ptrdiff_t r = in_.read(buf_.get() + end_, size_ - end_);
  if (r < 0) {
    failed_ = true;
    return false;
  }
  if (r == 0) {
    eof_ = true;
    return false;
  }
  end_ += static_cast<size_t>(r);
  return true;
}

bool LineReader::next(std::string_view* line) {
  size_t scanned = begin_;
  for (;;) {
    const void* nl = std::memchr(buf_.get() + scanned, '\n', end_ - scanned);
    if (nl) {
      size_t pos = static_cast<size_t>(static_cast<const char*>(nl) - buf_.get());
      size_t len = pos - begin_;
      if (len > 0 && buf_[pos - 1] == '\r') --len;
      *line = std::string_view(buf_.get() + begin_, len);
      begin_ = pos + 1;
      ++line_no_;
      return true;
    }
    size_t done = end_ - begin_;
    if (!fill()) {
      if (failed_ || end_ == begin_) return false;
      // The last line has no line break.
      size_t len = end_ - begin_;
      if (buf_[end_ - 1] == '\r') --len;
      *line = std::string_view(buf_.get() + begin_, len);
      begin_ = end_;
      ++line_no_;
      return true;
    }
    scanned = begin_ + done;
  }
}

}  // namespace qubor::formats
