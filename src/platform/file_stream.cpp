#include "platform/file_stream.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>
#include <zstd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <string>
#include <cstdint>
#include <cstring>
#include <new>
#include <vector>

namespace qubor::platform {

namespace {

constexpr size_t kFileChunk = size_t{1} << 20;

// A file descriptor that closes itself.
class Fd {
 public:
  explicit Fd(int fd) : fd_(fd) {}
  ~Fd() { close(); }
  Fd(const Fd&) = delete;
  Fd& operator=(const Fd&) = delete;
  int get() const { return fd_; }
  bool close() {
    if (fd_ < 0) return true;
    int r = ::close(fd_);
    fd_ = -1;
    return r == 0;
  }
  // read() that retries on interruption; -1 on failure.
  ptrdiff_t read(char* buf, size_t n) {
    for (;;) {
      ssize_t r = ::read(fd_, buf, n);
      if (r >= 0 || errno != EINTR) return r;
    }
  }
  // Size of a regular file, -1 for anything else.
  int64_t file_size() const {
    struct stat st;
    if (::fstat(fd_, &st) != 0 || !S_ISREG(st.st_mode)) return -1;
    return static_cast<int64_t>(st.st_size);
  }
  // Exactly `n` bytes at offset `at`, leaving the read position alone.
  bool read_at(unsigned char* buf, size_t n, int64_t at) const {
    return ::pread(fd_, buf, n, static_cast<off_t>(at)) == static_cast<ssize_t>(n);
  }
  bool write_all(const char* p, size_t n) {
    while (n > 0) {
      ssize_t r = ::write(fd_, p, n);
      if (r < 0) {
        if (errno == EINTR) continue;
        return false;
      }
      p += r;
      n -= static_cast<size_t>(r);
    }
    return true;
  }

 private:
  int fd_;
};

// The file an output stream writes: a temporary file beside the target, renamed over the
// target by commit() and removed by discard() (or by the destructor when neither ran).
class TempFile {
 public:
  TempFile(Fd* fd, std::string temp, std::string target)
      : fd_(fd), temp_(std::move(temp)), target_(std::move(target)) {}
  ~TempFile() { discard(); }
  TempFile(const TempFile&) = delete;
  TempFile& operator=(const TempFile&) = delete;

  bool write_all(const char* p, size_t n) { return fd_->write_all(p, n); }
  // The data reaches the disk before the rename, so that a crash leaves either the old file
  // or the whole new one.
  bool commit() {
    if (done_) return false;
    done_ = true;
    bool good = ::fsync(fd_->get()) == 0 || errno == EINVAL || errno == EROFS;
    good = fd_->close() && good;
    if (good && ::rename(temp_.c_str(), target_.c_str()) == 0) return true;
    ::unlink(temp_.c_str());
    return false;
  }
  void discard() {
    if (done_) return;
    done_ = true;
    fd_->close();
    ::unlink(temp_.c_str());
  }

 private:
  Fd* fd_;
  std::string temp_, target_;
  bool done_ = false;
};

// Opens a fresh temporary file beside `target` for writing; -1 with errno set on failure.
// The file gets the mode of an existing target, else the mode a new file would get.
int open_temp_beside(std::string* target, std::string* temp) {
  struct stat st;
  bool exists = ::lstat(target->c_str(), &st) == 0;
  if (exists && S_ISLNK(st.st_mode)) {
    // Replace the file the link points to, not the link.
    char resolved[PATH_MAX];
    if (::realpath(target->c_str(), resolved)) {
      *target = resolved;
      exists = ::stat(target->c_str(), &st) == 0;
    }
  }
  const size_t slash = target->find_last_of('/');
  const std::string dir = slash == std::string::npos ? std::string() : target->substr(0, slash + 1);
  const std::string base = slash == std::string::npos ? *target : target->substr(slash + 1);
  static std::atomic<unsigned> counter{0};
  for (int attempt = 0; attempt < 100; ++attempt) {
    *temp = dir + "." + base + "." + std::to_string(::getpid()) + "." + std::to_string(counter++) + ".tmp";
    int fd = ::open(temp->c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd >= 0) {
      if (exists && S_ISREG(st.st_mode)) (void)::fchmod(fd, st.st_mode & 07777);
      return fd;
    }
    if (errno != EEXIST) return -1;
  }
  return -1;
}

class PlainIn final : public InStream {
 public:
  explicit PlainIn(int fd) : fd_(fd) {}
  ptrdiff_t read(char* buf, size_t n) override { return fd_.read(buf, n); }
  int64_t size_hint() const override { return fd_.file_size(); }

 private:
  Fd fd_;
};

class GzipIn final : public InStream {
 public:
  explicit GzipIn(int fd) : fd_(fd), in_(kFileChunk) {
    std::memset(&z_, 0, sizeof z_);
    // 15 + 32: a gzip or zlib header, detected automatically.
    if (inflateInit2(&z_, 15 + 32) != Z_OK) throw std::bad_alloc();
  }
  ~GzipIn() override { inflateEnd(&z_); }

  // The trailer's size field of the last member (the size modulo 2^32).
  int64_t size_hint() const override {
    const int64_t size = fd_.file_size();
    unsigned char t[4];
    if (size < 18 || !fd_.read_at(t, 4, size - 4)) return -1;
    return static_cast<int64_t>(t[0] | t[1] << 8 | t[2] << 16 | static_cast<uint32_t>(t[3]) << 24);
  }

  ptrdiff_t read(char* buf, size_t n) override {
    if (failed_) return -1;
    z_.next_out = reinterpret_cast<Bytef*>(buf);
    z_.avail_out = static_cast<uInt>(std::min<size_t>(n, 1u << 30));
    while (z_.avail_out > 0) {
      if (z_.avail_in == 0 && !refill()) break;
      in_member_ = true;
      int r = inflate(&z_, Z_NO_FLUSH);
      if (r == Z_STREAM_END) {
        // Another member may follow.
        in_member_ = false;
        if (inflateReset(&z_) != Z_OK) return fail();
      } else if (r != Z_OK && r != Z_BUF_ERROR) {
        return fail();
      }
    }
    if (failed_) return -1;
    size_t got = static_cast<size_t>(reinterpret_cast<char*>(z_.next_out) - buf);
    // A member cut short by the end of the file is an error, not a quiet end.
    if (got == 0 && eof_ && in_member_) return fail();
    return static_cast<ptrdiff_t>(got);
  }

 private:
  bool refill() {
    if (eof_) return false;
    ptrdiff_t r = fd_.read(in_.data(), in_.size());
    if (r < 0) {
      failed_ = true;
      return false;
    }
    if (r == 0) {
      eof_ = true;
      return false;
    }
    z_.next_in = reinterpret_cast<Bytef*>(in_.data());
    z_.avail_in = static_cast<uInt>(r);
    return true;
  }
  ptrdiff_t fail() {
    failed_ = true;
    return -1;
  }

  Fd fd_;
  std::vector<char> in_;
  z_stream z_;
  bool eof_ = false, failed_ = false, in_member_ = false;
};

class ZstdIn final : public InStream {
 public:
  explicit ZstdIn(int fd) : fd_(fd), in_(ZSTD_DStreamInSize()), ds_(ZSTD_createDStream()) {
    if (!ds_) throw std::bad_alloc();
    ZSTD_initDStream(ds_);
  }
  ~ZstdIn() override { ZSTD_freeDStream(ds_); }

  // The content size that the first frame's header records, when it records one.
  int64_t size_hint() const override {
    constexpr int64_t kMaxHeader = 18;  // the longest frame header the format allows
    unsigned char head[kMaxHeader];
    const int64_t size = fd_.file_size();
    const size_t n = static_cast<size_t>(std::min(size, kMaxHeader));
    if (size <= 0 || !fd_.read_at(head, n, 0)) return -1;
    const unsigned long long content = ZSTD_getFrameContentSize(head, n);
    if (content == ZSTD_CONTENTSIZE_UNKNOWN || content == ZSTD_CONTENTSIZE_ERROR) return -1;
    return static_cast<int64_t>(std::min<unsigned long long>(content, INT64_MAX));
  }

  ptrdiff_t read(char* buf, size_t n) override {
    if (failed_) return -1;
    ZSTD_outBuffer out{buf, n, 0};
    while (out.pos < out.size) {
      if (pos_ == len_) {
        if (eof_) break;
        ptrdiff_t r = fd_.read(in_.data(), in_.size());
        if (r < 0) return fail();
        if (r == 0) {
          eof_ = true;
          break;
        }
        pos_ = 0;
        len_ = static_cast<size_t>(r);
      }
      ZSTD_inBuffer in{in_.data(), len_, pos_};
      size_t r = ZSTD_decompressStream(ds_, &out, &in);
      pos_ = in.pos;
      if (ZSTD_isError(r)) return fail();
      frame_open_ = r != 0;
    }
    // A frame cut short by the end of the file is an error, not a quiet end.
    if (out.pos == 0 && eof_ && frame_open_) return fail();
    return static_cast<ptrdiff_t>(out.pos);
  }

 private:
  ptrdiff_t fail() {
    failed_ = true;
    return -1;
  }
  Fd fd_;
  std::vector<char> in_;
  ZSTD_DStream* ds_;
  size_t pos_ = 0, len_ = 0;
  bool eof_ = false, failed_ = false, frame_open_ = false;
};

class MemoryIn final : public InStream {
 public:
  explicit MemoryIn(const char* text) : p_(text ? text : ""), buf_(4096) {}
  ptrdiff_t read(char* out, size_t n) override {
    size_t total = 0;
    while (total < n) {
      if (pos_ == len_) {
        // Refill the 4096-byte window from the text.
        len_ = 0;
        while (len_ < buf_.size() && *p_) buf_[len_++] = *p_++;
        pos_ = 0;
        if (len_ == 0) break;
      }
      size_t k = std::min(n - total, len_ - pos_);
      std::memcpy(out + total, buf_.data() + pos_, k);
      pos_ += k;
      total += k;
    }
    return static_cast<ptrdiff_t>(total);
  }

 private:
  const char* p_;
  std::vector<char> buf_;
  size_t pos_ = 0, len_ = 0;
};

class PlainOut final : public OutStream {
 public:
  // The buffer grows with the output up to kFileChunk: a small file needs no large block.
  PlainOut(int fd, std::string temp, std::string target) : fd_(fd), file_(&fd_, std::move(temp), std::move(target)) {}
  bool write(const char* data, size_t n) override {
    if (failed_) return false;
    if (buf_.size() + n > kFileChunk) {
      if (!flush()) return false;
      if (n >= kFileChunk) return ok(file_.write_all(data, n));
    }
    buf_.insert(buf_.end(), data, data + n);
    return true;
  }
  bool close() override {
    if (closed_) return !failed_;
    closed_ = true;
    if (!flush()) {
      file_.discard();
      return false;
    }
    return ok(file_.commit());
  }
  void discard() override {
    closed_ = failed_ = true;
    file_.discard();
  }

 private:
  bool flush() {
    bool good = file_.write_all(buf_.data(), buf_.size());
    buf_.clear();
    return ok(good);
  }
  bool ok(bool good) {
    if (!good) failed_ = true;
    return !failed_;
  }
  Fd fd_;
  TempFile file_;
  std::vector<char> buf_;
  bool failed_ = false, closed_ = false;
};

class GzipOut final : public OutStream {
 public:
  GzipOut(int fd, std::string temp, std::string target, int level)
      : fd_(fd), file_(&fd_, std::move(temp), std::move(target)), out_(kFileChunk) {
    std::memset(&z_, 0, sizeof z_);
    // 15 + 16: gzip wrapping.
    if (deflateInit2(&z_, std::clamp(level, 0, 9), Z_DEFLATED, 15 + 16, 8, Z_DEFAULT_STRATEGY) != Z_OK) {
      throw std::bad_alloc();
    }
  }
  ~GzipOut() override { deflateEnd(&z_); }
  bool write(const char* data, size_t n) override {
    if (failed_ || closed_) return false;
    z_.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data));
    while (n > 0) {
      uInt piece = static_cast<uInt>(std::min<size_t>(n, 1u << 30));
      z_.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data));
      z_.avail_in = piece;
      if (!pump(Z_NO_FLUSH)) return false;
      data += piece;
      n -= piece;
    }
    return true;
  }
  bool close() override {
    if (closed_) return !failed_;
    closed_ = true;
    bool good = !failed_ && pump(Z_FINISH);
    good = good ? file_.commit() : (file_.discard(), false);
    if (!good) failed_ = true;
    return good;
  }
  void discard() override {
    closed_ = failed_ = true;
    file_.discard();
  }

 private:
  bool pump(int flush) {
    for (;;) {
      z_.next_out = reinterpret_cast<Bytef*>(out_.data());
      z_.avail_out = static_cast<uInt>(out_.size());
      int r = deflate(&z_, flush);
      if (r == Z_STREAM_ERROR) return fail();
      size_t have = out_.size() - z_.avail_out;
      if (have && !file_.write_all(out_.data(), have)) return fail();
      if (flush == Z_FINISH ? r == Z_STREAM_END : (z_.avail_in == 0 && z_.avail_out != 0)) {
        return true;
      }
    }
  }
  bool fail() {
    failed_ = true;
    return false;
  }
  Fd fd_;
  TempFile file_;
  std::vector<char> out_;
  z_stream z_;
  bool failed_ = false, closed_ = false;
};

class ZstdOut final : public OutStream {
 public:
  ZstdOut(int fd, std::string temp, std::string target, int level)
      : fd_(fd), file_(&fd_, std::move(temp), std::move(target)), in_(ZSTD_CStreamInSize()), out_(ZSTD_CStreamOutSize()), cs_(ZSTD_createCStream()) {
    if (!cs_) throw std::bad_alloc();
    ZSTD_initCStream(cs_, std::clamp(level, 1, ZSTD_maxCLevel()));
  }
  ~ZstdOut() override { ZSTD_freeCStream(cs_); }
  bool write(const char* data, size_t n) override {
    if (failed_ || closed_) return false;
    // Input is gathered into the recommended block size before it is compressed.
    while (n > 0) {
      size_t k = std::min(n, in_.size() - fill_);
      std::memcpy(in_.data() + fill_, data, k);
      fill_ += k;
      data += k;
      n -= k;
      if (fill_ == in_.size() && !compress_input()) return false;
    }
    return true;
  }
  bool close() override {
    if (closed_) return !failed_;
    closed_ = true;
    bool good = !failed_ && compress_input() && end_frame();
    good = good ? file_.commit() : (file_.discard(), false);
    if (!good) failed_ = true;
    return good;
  }
  void discard() override {
    closed_ = failed_ = true;
    file_.discard();
  }

 private:
  bool compress_input() {
    ZSTD_inBuffer in{in_.data(), fill_, 0};
    while (in.pos < in.size) {
      ZSTD_outBuffer out{out_.data(), out_.size(), 0};
      size_t r = ZSTD_compressStream(cs_, &out, &in);
      if (ZSTD_isError(r)) return fail();
      if (out.pos && !file_.write_all(out_.data(), out.pos)) return fail();
    }
    fill_ = 0;
    return true;
  }
  bool end_frame() {
    for (;;) {
      ZSTD_outBuffer out{out_.data(), out_.size(), 0};
      size_t left = ZSTD_endStream(cs_, &out);
      if (ZSTD_isError(left)) return fail();
      if (out.pos && !file_.write_all(out_.data(), out.pos)) return fail();
      if (left == 0) return true;
    }
  }
  bool fail() {
    failed_ = true;
    return false;
  }
  Fd fd_;
  TempFile file_;
  std::vector<char> in_, out_;
  ZSTD_CStream* cs_;
  size_t fill_ = 0;
  bool failed_ = false, closed_ = false;
};

}  // namespace

OpenStatus open_input(const char* name, Compression kind, std::unique_ptr<InStream>* out) {
  if (!name || !*name) return OpenStatus::kBadName;
  int fd = ::open(name, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return errno == ENOMEM ? OpenStatus::kNoSpace : OpenStatus::kCannotOpen;
  try {
    switch (kind) {
      case Compression::kGzip:
        *out = std::make_unique<GzipIn>(fd);
        break;
      case Compression::kZstd:
        *out = std::make_unique<ZstdIn>(fd);
        break;
      default:
        *out = std::make_unique<PlainIn>(fd);
    }
  } catch (const std::bad_alloc&) {
    return OpenStatus::kNoSpace;
  }
  return OpenStatus::kOk;
}

OpenStatus open_output(const char* name, Compression kind, int level, std::unique_ptr<OutStream>* out) {
  if (!name || !*name) return OpenStatus::kBadName;
  std::string target = name, temp;
  struct stat st;
  // A folder cannot be replaced by a file.
  if (::stat(name, &st) == 0 && S_ISDIR(st.st_mode)) return OpenStatus::kCannotOpen;
  int fd = open_temp_beside(&target, &temp);
  if (fd < 0) return errno == ENOMEM ? OpenStatus::kNoSpace : OpenStatus::kCannotOpen;
  // Once constructed, the stream owns the descriptor and the temporary file (also when its
  // constructor throws); before that they are ours to clean up.
  OutStream* made = nullptr;
  try {
    switch (kind) {
      case Compression::kGzip:
        made = new (std::nothrow) GzipOut(fd, temp, target, level);
        break;
      case Compression::kZstd:
        made = new (std::nothrow) ZstdOut(fd, temp, target, level);
        break;
      default:
        made = new (std::nothrow) PlainOut(fd, temp, target);
    }
  } catch (const std::bad_alloc&) {
    return OpenStatus::kNoSpace;
  }
  if (!made) {
    ::close(fd);
    ::unlink(temp.c_str());
    return OpenStatus::kNoSpace;
  }
  out->reset(made);
  return OpenStatus::kOk;
}

std::unique_ptr<InStream> memory_input(const char* text) { return std::make_unique<MemoryIn>(text); }

}  // namespace qubor::platform
