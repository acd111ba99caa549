// The SDPA sparse reader of the qubor program: the task it builds, read back through the
// public getters, on handwritten files and on every SDPLIB instance; and one malformed file
// per error the reader reports.
#include <gtest/gtest.h>
#include <zlib.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "formats/format_fixture.h"
#include "qubor.h"
#include "sdpa_reader.h"

namespace {

// (i, j, k, l, value) of the matrix-variable coefficients, sorted; i = -1 for the objective.
using Triplet = std::tuple<int, int, int, int, double>;

std::vector<Triplet> bar_triplets(QBRtask_t task, bool objective) {
  QBRint64t n = 0;
  if (objective)
    QBR_getbarcblocktriplet(task, 0, &n, nullptr, nullptr, nullptr, nullptr);
  else
    QBR_getbarablocktriplet(task, 0, &n, nullptr, nullptr, nullptr, nullptr, nullptr);
  const auto len = static_cast<size_t>(n);
  std::vector<QBRint32t> i(len, -1), j(len), k(len), l(len);
  std::vector<QBRrealt> v(len);
  const QBRrescode r = objective ? QBR_getbarcblocktriplet(task, n, &n, j.data(), k.data(), l.data(), v.data())
                                 : QBR_getbarablocktriplet(task, n, &n, i.data(), j.data(), k.data(), l.data(), v.data());
  EXPECT_EQ(r, QBR_RES_OK);
  std::vector<Triplet> out;
  for (size_t q = 0; q < len; ++q) out.emplace_back(i[q], j[q], k[q], l[q], v[q]);
  std::sort(out.begin(), out.end());
  return out;
}

void write_gzip(const std::string& path, const std::string& text) {
  gzFile f = gzopen(path.c_str(), "wb");
  ASSERT_NE(f, nullptr);
  ASSERT_EQ(gzwrite(f, text.data(), static_cast<unsigned>(text.size())), static_cast<int>(text.size()));
  ASSERT_EQ(gzclose(f), Z_OK);
}

// Two constraints, a 2x2 semidefinite block and a diagonal block of size 2. F0 =
// [[2, .5], [.5, 0]] (+) diag(0, 4); F1 = [[1.25, 0], [0, 0]] (+) diag(1, 0) with the 1.25
// given as two entries; F2 = [[0, 3], [3, -1]] (+) diag(0, 2) with (1,2) written below the
// diagonal. The header has comments, "=mdim" remarks and every kind of separator.
const char* const kSmall =
    "\"a comment line\n"
    "* another comment line\n"
    "2 =mdim\n"
    "2 =nblocks\n"
    "{2, -2}\n"
    "(1.5,\n"
    "  -3.0)\n"
    "0 1 1 1 2.0\n"
    "0 1 1 2 0.5\n"
    "\n"
    "0 2 2 2 4.0\n"
    "1 1 1 1 1.0\n"
    "1 1 1 1 0.25\n"
    "1 2 1 1 1.0\r\n"
    "2 1 2 1 3.0\n"
    "2 1 2 2 -1.0\n"
    "2 2 2 2 2.0\n"
    "2 2 1 1 0.0\n";

class SdpaReadTest : public FormatTest {
 protected:
  bool read(const std::string& path) {
    error.clear();
    return qubor_app::read_sdpa(task, path, &error);
  }
  void expect_small_task() {
    ASSERT_EQ(numcon(), 2);
    ASSERT_EQ(numvar(), 2);
    QBRint32t numbarvar = 0, dim = 0, sense = -1;
    QBR_getnumbarvar(task, &numbarvar);
    ASSERT_EQ(numbarvar, 1);
    QBR_getdimbarvarj(task, 0, &dim);
    EXPECT_EQ(dim, 2);
    QBR_getobjsense(task, &sense);
    EXPECT_EQ(sense, QBR_OBJECTIVE_SENSE_MAXIMIZE);
    const double rhs[2] = {1.5, -3.0};
    for (QBRint32t i = 0; i < 2; ++i) {
      QBRint32t bk = -1;
      QBRrealt lo = 0, up = 0;
      QBR_getconbound(task, i, &bk, &lo, &up);
      EXPECT_EQ(bk, QBR_BK_FX);
      EXPECT_EQ(lo, rhs[i]);
      EXPECT_EQ(up, rhs[i]);
    }
    const double cj[2] = {0.0, 4.0};
    const double aij[2][2] = {{1.0, 0.0}, {0.0, 2.0}};
    for (QBRint32t j = 0; j < 2; ++j) {
      QBRint32t bk = -1;
      QBRrealt lo = -1, up = 0, c = -1;
      QBR_getvarbound(task, j, &bk, &lo, &up);
      EXPECT_EQ(bk, QBR_BK_LO) << "column " << j;
      EXPECT_EQ(lo, 0.0);
      QBR_getcj(task, j, &c);
      EXPECT_EQ(c, cj[j]);
      for (QBRint32t i = 0; i < 2; ++i) {
        QBRrealt a = -1;
        QBR_getaij(task, i, j, &a);
        EXPECT_EQ(a, aij[i][j]) << "a(" << i << ", " << j << ")";
      }
    }
    // Lower triangle, (k, l) with k >= l.
    EXPECT_EQ(bar_triplets(task, true), (std::vector<Triplet>{{-1, 0, 0, 0, 2.0}, {-1, 0, 1, 0, 0.5}}));
    EXPECT_EQ(bar_triplets(task, false),
              (std::vector<Triplet>{{0, 0, 0, 0, 1.25}, {1, 0, 1, 0, 3.0}, {1, 0, 1, 1, -1.0}}));
  }
  std::string error;
};

TEST_F(SdpaReadTest, MixedBlocksPlainAndGzip) {
  const std::string plain = write_text("small.dat-s", kSmall);
  ASSERT_TRUE(read(plain)) << error;
  expect_small_task();
  char name[64] = {};
  QBR_gettaskname(task, sizeof name, name);
  const std::string base = std::filesystem::path(plain).filename().string();
  EXPECT_EQ(name, base.substr(0, base.size() - 6));  // the file name without ".dat-s"

  QBR_deletetask(&task);
  ASSERT_EQ(QBR_maketask(env, 0, 0, &task), QBR_RES_OK);
  const std::string packed = temp_path("small.dat-s.gz");
  write_gzip(packed, kSmall);
  ASSERT_TRUE(read(packed)) << error;
  expect_small_task();
}

TEST(SdpaFileName, SuffixesRouteToTheReader) {
  EXPECT_TRUE(qubor_app::is_sdpa_file_name("dir/theta1.dat-s"));
  EXPECT_TRUE(qubor_app::is_sdpa_file_name("theta1.dat-s.gz"));
  EXPECT_FALSE(qubor_app::is_sdpa_file_name("theta1.dat"));
  EXPECT_FALSE(qubor_app::is_sdpa_file_name("theta1.dat-s.zst"));
  EXPECT_FALSE(qubor_app::is_sdpa_file_name("afiro.mps.gz"));
  EXPECT_FALSE(qubor_app::is_sdpa_file_name(".dat-s"));
}

struct BadFile {
  const char* what;
  const char* text;
  int line;             // the line the message names
  const char* message;  // part of the message
};

const BadFile kBadFiles[] = {
    {"empty", "", 0, "unexpected end of file"},
    {"only comments", "\"x\n* y\n", 2, "unexpected end of file"},
    {"m not a number", "two\n1\n2\n", 1, "is not an integer"},
    {"m zero", "0\n1\n2\n", 1, "out of range"},
    {"m beyond 32 bits", "99999999999\n1\n2\n", 1, "out of range"},
    {"nblocks negative", "1\n-1\n2\n", 2, "out of range"},
    {"comment after the header", "1\n\"late\n2\n", 2, "is not an integer"},
    {"block size zero", "1\n2\n2 0\n1\n", 3, "block size 0"},
    {"block size fractional", "1\n1\n2.5\n1\n", 3, "not an integer"},
    {"blocks cut short", "1\n3\n2 2\n", 3, "unexpected end of file, expected block sizes"},
    {"c cut short", "3\n1\n2\n1.0 2.0\n", 4, "unexpected end of file, expected objective coefficients"},
    {"c not a number", "2\n1\n2\n1.0 abc\n", 4, "'abc' is not a finite number"},
    {"c infinite", "1\n1\n2\n1e999\n", 4, "not a finite number"},
    {"entry with four fields", "1\n1\n2\n1\n0 1 1 1\n", 5, "5 fields"},
    {"entry with six fields", "1\n1\n2\n1\n0 1 1 1 1 1\n", 5, "5 fields"},
    {"matrix number too large", "1\n1\n2\n1\n2 1 1 1 1\n", 5, "matrix number 2 is not in 0..1"},
    {"matrix number negative", "1\n1\n2\n1\n-1 1 1 1 1\n", 5, "matrix number -1"},
    {"block number zero", "1\n1\n2\n1\n0 0 1 1 1\n", 5, "block number 0 is not in 1..1"},
    {"row out of range", "1\n1\n2\n1\n0 1 3 1 1\n", 5, "row index 3 is not in 1..2"},
    {"column zero", "1\n1\n2\n1\n0 1 1 0 1\n", 5, "column index 0"},
    {"off the diagonal of a diagonal block", "1\n1\n-3\n1\n1 1 1 2 1\n", 5, "off the diagonal"},
    {"value not a number", "1\n1\n2\n1\n0 1 1 1 x\n", 5, "value 'x'"},
    {"value nan", "1\n1\n2\n1\n0 1 1 1 nan\n", 5, "value 'nan'"},
    {"index not an integer", "1\n1\n2\n1\n0 1 1.0 1 1\n", 5, "row index '1.0'"},
    {"error after good entries", "1\n1\n2\n1\n0 1 1 1 1\n1 1 1 2 1\n1 1 1 2\n", 7, "5 fields"},
};

TEST_F(SdpaReadTest, MalformedFilesNameFileAndLine) {
  for (const BadFile& b : kBadFiles) {
    SCOPED_TRACE(b.what);
    const std::string path = write_text("bad.dat-s", b.text);
    EXPECT_FALSE(read(path));
    EXPECT_EQ(error.rfind(path + ":" + std::to_string(b.line) + ": ", 0), 0u) << error;
    EXPECT_NE(error.find(b.message), std::string::npos) << error;
  }
}

// Declared sizes far beyond the data end in a message, without allocating for them.
TEST_F(SdpaReadTest, HugeDeclaredSizes) {
  std::string path = write_text("huge.dat-s", "2000000000\n1\n2\n1 2 3\n");
  EXPECT_FALSE(read(path));
  EXPECT_NE(error.find("unexpected end of file, expected objective coefficients"), std::string::npos) << error;

  path = write_text("huge.dat-s", "1\n2000000000\n2 -3\n");
  EXPECT_FALSE(read(path));
  EXPECT_NE(error.find("expected block sizes"), std::string::npos) << error;

  path = write_text("huge.dat-s", "1\n2\n-2000000000 -2000000000\n1\n1 1 1 1 1\n");
  EXPECT_FALSE(read(path));
  EXPECT_NE(error.find("too many"), std::string::npos) << error;
  EXPECT_EQ(numvar(), 0);
}

TEST_F(SdpaReadTest, DamagedAndMissingFiles) {
  const std::string packed = temp_path("cut.dat-s.gz");
  std::string big = "2\n1\n3\n1 2\n";
  for (int k = 0; k < 2000; ++k) big += "1 1 1 1 " + std::to_string(k) + "\n";
  write_gzip(packed, big);
  const std::string bytes = read_text(packed);
  std::ofstream(packed, std::ios::binary) << bytes.substr(0, bytes.size() / 2);
  EXPECT_FALSE(read(packed));
  EXPECT_NE(error.find("truncated"), std::string::npos) << error;

  EXPECT_FALSE(read(temp_path("missing.dat-s")));
  EXPECT_NE(error.find("cannot open"), std::string::npos) << error;

  // Binary garbage: no crash, a message.
  EXPECT_FALSE(read(write_text("garbage.dat-s", std::string("\x01\x00\xff\x7f 3\n\x00\x00", 9))));
  EXPECT_FALSE(error.empty());
}

// Every SDPLIB instance reads, with the manifest's m (constraints) and n (the order of the
// block-diagonal matrix: matrix dimensions plus scalar variables).
TEST(SdpaSdplib, EveryInstanceReadsWithTheManifestCounts) {
  const std::string dir = std::string(QUBOR_DATA_DIR) + "/sdplib";
  std::ifstream manifest(dir + "/MANIFEST.csv");
  if (!manifest) GTEST_SKIP() << "no " << dir << "/MANIFEST.csv";
  std::string line;
  std::getline(manifest, line);
  int read_files = 0;
  while (std::getline(manifest, line)) {
    std::vector<std::string> f;
    std::stringstream ss(line);
    for (std::string cell; f.size() < 6 && std::getline(ss, cell, ',');) f.push_back(cell);
    ASSERT_EQ(f.size(), 6u) << line;
    SCOPED_TRACE(f[0]);
    QBRenv_t env = nullptr;
    QBRtask_t task = nullptr;
    ASSERT_EQ(QBR_makeenv(&env, nullptr), QBR_RES_OK);
    ASSERT_EQ(QBR_maketask(env, 0, 0, &task), QBR_RES_OK);
    std::string error;
    EXPECT_TRUE(qubor_app::read_sdpa(task, dir + "/" + f[1], &error)) << error;
    QBRint32t numcon = 0, numvar = 0, numbarvar = 0;
    QBR_getnumcon(task, &numcon);
    QBR_getnumvar(task, &numvar);
    QBR_getnumbarvar(task, &numbarvar);
    long long order = numvar;
    for (QBRint32t j = 0; j < numbarvar; ++j) {
      QBRint32t d = 0;
      QBR_getdimbarvarj(task, j, &d);
      order += d;
    }
    if (!f[3].empty()) {
      EXPECT_EQ(numcon, std::stoll(f[3]));
    }
    if (!f[4].empty()) {
      EXPECT_EQ(order, std::stoll(f[4]));
    }
    QBR_deletetask(&task);
    QBR_deleteenv(&env);
    ++read_files;
  }
  EXPECT_GT(read_files, 0);
}

}  // namespace
