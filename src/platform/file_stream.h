// Byte streams for problem and solution files: plain, gzip and zstd, plus an in-memory input.
//
// Input streams deliver the decompressed bytes of a file in caller-sized pieces; output
// streams compress on the fly and finish the compressed frame in close(). A gzip input
// accepts several concatenated members (as `cat a.gz b.gz` produces). Buffers:
//   plain     1 MiB reads and writes
//   gzip      1 MiB of compressed input or output around zlib's inflate/deflate
//   zstd      ZSTD_DStreamInSize()/ZSTD_CStreamOutSize(), the sizes the library recommends
//   memory    refills a 4096-byte buffer from the text it wraps
// Opening reports the three failures the file frame tells apart: out of memory, a file that
// cannot be opened, and a name that is not a usable file name (null or empty).
//
// Output never loses what was there: an output stream writes to a temporary file beside the
// target (".NAME.PID.N.tmp" in the target's folder) and close() renames it over the target
// only when every byte was written and flushed to the disk. A stream that fails, that is
// discard()ed or that is destroyed without close() removes its temporary file and leaves the
// target as it was. A target that is a symbolic link keeps the link; the file it points to
// is replaced.
// Stream buffers are short-lived and come from the C++ heap, not from a task.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace qubor::platform {

enum class Compression { kNone, kGzip, kZstd };
enum class OpenStatus { kOk, kNoSpace, kCannotOpen, kBadName };

class InStream {
 public:
  virtual ~InStream() = default;
  // Up to `n` bytes into `buf`; 0 at the end of the data, -1 when reading or decompressing
  // fails.
  virtual ptrdiff_t read(char* buf, size_t n) = 0;
  // How many bytes the stream is expected to deliver, -1 when unknown. Only a hint for
  // sizing buffers: the data may be shorter or longer.
  virtual int64_t size_hint() const { return -1; }
};

class OutStream {
 public:
  virtual ~OutStream() = default;
  // False when the bytes cannot be written (disk full, compressor failure); later writes
  // then fail too.
  virtual bool write(const char* data, size_t n) = 0;
  // Flushes, ends the compressed frame, closes the file and puts it in place of the target;
  // false on any failure, and the target is then untouched. Safe to call twice.
  virtual bool close() = 0;
  // Drops what was written: the temporary file goes, the target stays as it was.
  virtual void discard() = 0;
};

// Opens `name` for reading, decompressing as `kind` says.
OpenStatus open_input(const char* name, Compression kind, std::unique_ptr<InStream>* out);
// Opens an output stream whose close() replaces `name`. `level` is the compression level: gzip clamps it to
// 0..9 and zstd to 1..ZSTD_maxCLevel().
OpenStatus open_output(const char* name, Compression kind, int level, std::unique_ptr<OutStream>* out);
// An input stream over the zero-terminated `text` (not copied; it must outlive the stream).
std::unique_ptr<InStream> memory_input(const char* text);

}  // namespace qubor::platform
