#include "formats/frame/line_reader.h"

#include <algorithm>
#include <cstring>

namespace qubor::formats {

namespace {

// The chunk, or less for a stream that expects to deliver less (it may still deliver more:
// the buffer then grows).
size_t buffer_size(const platform::InStream& in, size_t chunk) {
  const int64_t hint = in.size_hint();
  if (hint >= 0 && static_cast<uint64_t>(hint) < chunk) chunk = static_cast<size_t>(hint) + 1;
  return std::max<size_t>(chunk, 4096);
}

}  // namespace

LineReader::LineReader(platform::InStream& in, size_t chunk)
    : in_(in), chunk_(chunk), size_(buffer_size(in, chunk)) {
  buf_.reset(new char[size_]);
}

// Moves the unread tail to the front and reads more behind it; false when nothing was added.
bool LineReader::fill() {
  if (eof_ || failed_) return false;
  size_t tail = end_ - begin_;
  if (begin_ > 0) {
    std::memmove(buf_.get(), buf_.get() + begin_, tail);
    begin_ = 0;
    end_ = tail;
  }
  // A line longer than the buffer, or more data than the stream expected: a larger buffer.
  const size_t want = end_ == size_ ? 2 * size_ : (delivered_ >= size_ ? std::max(size_, chunk_) : size_);
  if (want > size_) {
    std::unique_ptr<char[]> bigger(new char[want]);
    std::memcpy(bigger.get(), buf_.get(), end_);
    buf_ = std::move(bigger);
    size_ = want;
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
  delivered_ += static_cast<size_t>(r);
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
