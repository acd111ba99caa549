// The compressed file streams: round trips through gzip and zstd at several sizes and
// levels, size hints, concatenated gzip members, truncated files, the in-memory input, and
// the line reader over streams whose size hints are wrong.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "format_fixture.h"
#include "formats/frame/line_reader.h"
#include "platform/file_stream.h"

using namespace qubor::platform;

namespace {

std::string read_all(InStream& in, size_t piece, bool* failed) {
  std::string out;
  std::string buf(piece, '\0');
  *failed = false;
  for (;;) {
    ptrdiff_t r = in.read(buf.data(), buf.size());
    if (r < 0) {
      *failed = true;
      return out;
    }
    if (r == 0) return out;
    out.append(buf.data(), static_cast<size_t>(r));
  }
}

std::string sample(size_t n) {
  std::mt19937 rng(7);
  std::string s;
  while (s.size() < n)
    s += "    X" + std::to_string(rng() % 1000) + "  ROW" + std::to_string(rng() % 50) + "  1.5\n";
  s.resize(n);
  return s;
}

void write_file(const std::string& path, Compression kind, int level, const std::string& data) {
  std::unique_ptr<OutStream> out;
  ASSERT_EQ(open_output(path.c_str(), kind, level, &out), OpenStatus::kOk);
  // Uneven pieces exercise the buffering.
  for (size_t k = 0; k < data.size();) {
    size_t n = std::min<size_t>(data.size() - k, 1 + (k % 70001));
    ASSERT_TRUE(out->write(data.data() + k, n));
    k += n;
  }
  ASSERT_TRUE(out->close());
}

}  // namespace

TEST(FileStream, RoundTripEveryKind) {
  for (Compression kind : {Compression::kNone, Compression::kGzip, Compression::kZstd}) {
    for (size_t n : {size_t{0}, size_t{1}, size_t{4095}, size_t{3} << 20}) {
      for (int level : {-5, 1, 9, 99}) {
        const std::string data = sample(n);
        const std::string path = temp_path("stream.bin");
        write_file(path, kind, level, data);
        std::unique_ptr<InStream> in;
        ASSERT_EQ(open_input(path.c_str(), kind, &in), OpenStatus::kOk);
        bool failed = false;
        EXPECT_EQ(read_all(*in, 1000 + n % 7, &failed), data) << static_cast<int>(kind) << " " << n;
        EXPECT_FALSE(failed);
      }
    }
  }
}

TEST(FileStream, SizeHints) {
  const std::string data = sample(70000), path = temp_path("hint.bin");
  std::unique_ptr<InStream> in;
  write_file(path, Compression::kNone, 0, data);
  ASSERT_EQ(open_input(path.c_str(), Compression::kNone, &in), OpenStatus::kOk);
  EXPECT_EQ(in->size_hint(), 70000);
  // gzip: the trailer's size; zstd: the frame header's, which a streamed frame may leave out.
  write_file(path, Compression::kGzip, 6, data);
  ASSERT_EQ(open_input(path.c_str(), Compression::kGzip, &in), OpenStatus::kOk);
  EXPECT_EQ(in->size_hint(), 70000);
  write_file(path, Compression::kZstd, 3, data);
  ASSERT_EQ(open_input(path.c_str(), Compression::kZstd, &in), OpenStatus::kOk);
  EXPECT_TRUE(in->size_hint() == 70000 || in->size_hint() == -1) << in->size_hint();
  // A hint never disturbs the data.
  bool failed = false;
  EXPECT_EQ(read_all(*in, 4096, &failed), data);
  EXPECT_EQ(memory_input("abc")->size_hint(), -1);
}

namespace {

// Delivers `text` in pieces of at most `piece` bytes and tells a size hint of its own.
class HintedText final : public InStream {
 public:
  HintedText(std::string text, int64_t hint, size_t piece) : text_(std::move(text)), hint_(hint), piece_(piece) {}
  ptrdiff_t read(char* buf, size_t n) override {
    n = std::min({n, piece_, text_.size() - pos_});
    std::memcpy(buf, text_.data() + pos_, n);
    pos_ += n;
    return static_cast<ptrdiff_t>(n);
  }
  int64_t size_hint() const override { return hint_; }

 private:
  std::string text_;
  int64_t hint_;
  size_t piece_;
  size_t pos_ = 0;
};

}  // namespace

TEST(LineReader, EveryLineWhateverTheHint) {
  // Short and long lines (longer than the smallest buffer), CRLF endings, no final newline.
  std::string text;
  std::vector<std::string> lines;
  std::mt19937 rng(3);
  for (int k = 0; k < 20000; ++k) {
    lines.push_back(std::string(rng() % (k % 500 == 0 ? 20000 : 60), static_cast<char>('a' + k % 26)));
    text += lines.back() + (k % 7 == 0 ? "\r\n" : "\n");
  }
  text.pop_back();
  if (text.back() == '\r') text.pop_back();
  for (int64_t hint : {int64_t{-1}, int64_t{0}, int64_t{100}, static_cast<int64_t>(text.size()), int64_t{1} << 40}) {
    for (size_t piece : {size_t{1} << 20, size_t{777}}) {
      HintedText in(text, hint, piece);
      qubor::formats::LineReader reader(in, 1 << 16);
      std::string_view line;
      size_t k = 0;
      while (reader.next(&line)) {
        ASSERT_LT(k, lines.size());
        ASSERT_EQ(line, lines[k]) << "line " << k << " hint " << hint;
        ++k;
      }
      EXPECT_EQ(k, lines.size()) << hint;
      EXPECT_FALSE(reader.failed());
    }
  }
}

TEST(FileStream, ConcatenatedGzipMembersReadAsOne) {
  const std::string a = temp_path("a.gz"), b = temp_path("b.gz"), ab = temp_path("ab.gz");
  write_file(a, Compression::kGzip, 6, "first part\n");
  write_file(b, Compression::kGzip, 6, "second part\n");
  write_text("ab.gz", read_text(a) + read_text(b));
  std::unique_ptr<InStream> in;
  ASSERT_EQ(open_input(ab.c_str(), Compression::kGzip, &in), OpenStatus::kOk);
  bool failed = false;
  EXPECT_EQ(read_all(*in, 3, &failed), "first part\nsecond part\n");
  EXPECT_FALSE(failed);
}

TEST(FileStream, TruncatedCompressedFilesFail) {
  for (Compression kind : {Compression::kGzip, Compression::kZstd}) {
    const std::string path = temp_path("cut.bin");
    write_file(path, kind, 3, sample(200000));
    std::string bytes = read_text(path);
    write_text("cut.bin", bytes.substr(0, bytes.size() / 2));
    std::unique_ptr<InStream> in;
    ASSERT_EQ(open_input(path.c_str(), kind, &in), OpenStatus::kOk);
    bool failed = false;
    read_all(*in, 4096, &failed);
    EXPECT_TRUE(failed) << static_cast<int>(kind);
  }
}

TEST(FileStream, GarbageIsNotGzip) {
  const std::string path = write_text("garbage.gz", "this is not compressed at all\n");
  std::unique_ptr<InStream> in;
  ASSERT_EQ(open_input(path.c_str(), Compression::kGzip, &in), OpenStatus::kOk);
  bool failed = false;
  read_all(*in, 4096, &failed);
  EXPECT_TRUE(failed);
}

TEST(FileStream, OpenFailuresAreTold) {
  std::unique_ptr<InStream> in;
  EXPECT_EQ(open_input(nullptr, Compression::kNone, &in), OpenStatus::kBadName);
  EXPECT_EQ(open_input("", Compression::kNone, &in), OpenStatus::kBadName);
  EXPECT_EQ(open_input("/nonexistent/dir/x.mps", Compression::kNone, &in), OpenStatus::kCannotOpen);
  std::unique_ptr<OutStream> out;
  EXPECT_EQ(open_output("/nonexistent/dir/x.mps", Compression::kZstd, 3, &out), OpenStatus::kCannotOpen);
}

TEST(FileStream, MemoryInputRefillsAcrossItsWindow) {
  const std::string text = sample(10000);
  auto in = memory_input(text.c_str());
  bool failed = false;
  EXPECT_EQ(read_all(*in, 333, &failed), text);
}
