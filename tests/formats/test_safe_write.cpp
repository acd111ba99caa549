// Writes never lose a file: a refused or failed write leaves the existing file as it was and
// no temporary file beside it; a successful one replaces the file whole.
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <functional>

#include "formats/format_fixture.h"

namespace {

namespace fs = std::filesystem;

// A folder of its own for each test, so that leftovers can be counted.
class SafeWrite : public FormatTest {
 protected:
  void SetUp() override {
    FormatTest::SetUp();
    dir = temp_path("dir");
    fs::create_directories(dir);
  }
  void TearDown() override {
    std::error_code ec;
    fs::permissions(dir, fs::perms::owner_all, ec);
    FormatTest::TearDown();
  }
  std::string path(const std::string& name) const { return dir + "/" + name; }
  // The files in the folder, by name.
  std::vector<std::string> files() const {
    std::vector<std::string> out;
    for (const auto& e : fs::directory_iterator(dir)) out.push_back(e.path().filename().string());
    std::sort(out.begin(), out.end());
    return out;
  }
  // A small problem whose variable names hold blanks.
  void blank_names() {
    ASSERT_EQ(QBR_appendcons(task, 1), QBR_RES_OK);
    ASSERT_EQ(QBR_appendvars(task, 2), QBR_RES_OK);
    const QBRint32t sub[] = {0, 1};
    const double val[] = {1.0, 2.0};
    ASSERT_EQ(QBR_putarow(task, 0, 2, sub, val), QBR_RES_OK);
    ASSERT_EQ(QBR_putconbound(task, 0, QBR_BK_LO, 1.0, 1e30), QBR_RES_OK);
    ASSERT_EQ(QBR_putvarname(task, 0, "X ONE"), QBR_RES_OK);
    ASSERT_EQ(QBR_putvarname(task, 1, "X TWO"), QBR_RES_OK);
  }
  // A problem large enough that its files take several hundred kilobytes.
  void large_problem() {
    const QBRint32t n = 20000;
    ASSERT_EQ(QBR_appendcons(task, 1), QBR_RES_OK);
    ASSERT_EQ(QBR_appendvars(task, n), QBR_RES_OK);
    std::vector<QBRint32t> sub(n);
    std::vector<double> val(n);
    for (QBRint32t j = 0; j < n; ++j) sub[j] = j, val[j] = 1.0 / (j + 3);
    ASSERT_EQ(QBR_putarow(task, 0, n, sub.data(), val.data()), QBR_RES_OK);
    ASSERT_EQ(QBR_putcslice(task, 0, n, val.data()), QBR_RES_OK);
    for (QBRint32t j = 0; j < n; ++j) QBR_putvarbound(task, j, QBR_BK_RA, 0.0, 1.0);
    ASSERT_EQ(QBR_putconbound(task, 0, QBR_BK_UP, -1e30, 10.0), QBR_RES_OK);
  }
  std::string dir;
};

// Runs `f` with the process's file-size limit at `bytes`: a write past it fails as on a full
// disk (EFBIG), which any user can bring about, root included.
void with_file_size_limit(rlim_t bytes, const std::function<void()>& f) {
  rlimit old{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &old), 0);
  auto* old_handler = signal(SIGXFSZ, SIG_IGN);
  rlimit lim = old;
  lim.rlim_cur = bytes;
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &lim), 0);
  f();
  setrlimit(RLIMIT_FSIZE, &old);
  signal(SIGXFSZ, old_handler);
}

// The case of a model with blanks in its names converted to the fixed-free MPS: the refusal
// keeps the old file, logs no "done writing", reports once, and names the way out.
TEST_F(SafeWrite, RefusedWriteKeepsTheFileAndReportsOnce) {
  blank_names();
  const std::string out = path("out.mps");
  std::ofstream(out) << "precious\n";
  ASSERT_EQ(QBR_putintparam(task, QBR_IPAR_WRITE_MPS_FORMAT, QBR_MPS_FORMAT_FREE), QBR_RES_OK);
  EXPECT_EQ(QBR_writedata(task, out.c_str()), QBR_RES_ERR_WRITE_MPS_INVALID_NAME);
  EXPECT_EQ(read_text(out), "precious\n");
  EXPECT_EQ(files(), std::vector<std::string>{"out.mps"});
  EXPECT_EQ(log.text.find("done writing"), std::string::npos) << log.text;
  size_t count = 0;
  for (size_t at = err.text.find("error 1153"); at != std::string::npos; at = err.text.find("error 1153", at + 1)) ++count;
  EXPECT_EQ(count, 1u) << err.text;
  EXPECT_NE(err.text.find("QBR_IPAR_WRITE_GENERIC_NAMES"), std::string::npos) << err.text;
  EXPECT_NE(err.text.find("fixed layout"), std::string::npos) << err.text;
  // Both ways out work.
  ASSERT_EQ(QBR_putintparam(task, QBR_IPAR_WRITE_GENERIC_NAMES, 1), QBR_RES_OK);
  EXPECT_EQ(QBR_writedata(task, out.c_str()), QBR_RES_OK);
  EXPECT_NE(read_text(out).find("ROWS"), std::string::npos);
  ASSERT_EQ(QBR_putintparam(task, QBR_IPAR_WRITE_GENERIC_NAMES, 0), QBR_RES_OK);
  ASSERT_EQ(QBR_putintparam(task, QBR_IPAR_WRITE_MPS_FORMAT, QBR_MPS_FORMAT_RELAXED), QBR_RES_OK);
  EXPECT_EQ(QBR_writedata(task, out.c_str()), QBR_RES_OK);
  EXPECT_NE(read_text(out).find("X ONE"), std::string::npos);
  EXPECT_NE(log.text.find("done writing"), std::string::npos);
  EXPECT_EQ(files(), std::vector<std::string>{"out.mps"});
}

TEST_F(SafeWrite, SuccessfulWriteReplacesTheFileAndKeepsItsMode) {
  blank_names();
  const std::string out = path("m.lp");
  std::ofstream(out) << "old text that is longer than the new file would be, to show truncation\n";
  ASSERT_EQ(chmod(out.c_str(), 0640), 0);
  ASSERT_EQ(QBR_writedata(task, out.c_str()), QBR_RES_OK);
  const std::string text = read_text(out);
  EXPECT_EQ(text.find("old text"), std::string::npos);
  EXPECT_NE(text.find("X ONE"), std::string::npos);
  struct stat st;
  ASSERT_EQ(stat(out.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0640u);
  // A symbolic link stays a link; the file it points to gets the new contents.
  const std::string link = path("link.lp");
  fs::create_symlink("m.lp", link);
  ASSERT_EQ(QBR_putintparam(task, QBR_IPAR_WRITE_LP_LINE_WIDTH, 50), QBR_RES_OK);
  ASSERT_EQ(QBR_putcfix(task, 7.5), QBR_RES_OK);
  ASSERT_EQ(QBR_writedata(task, link.c_str()), QBR_RES_OK);
  EXPECT_TRUE(fs::is_symlink(link));
  EXPECT_NE(read_text(out).find("7.5"), std::string::npos);
  EXPECT_EQ(files(), (std::vector<std::string>{"link.lp", "m.lp"}));
}

TEST_F(SafeWrite, UnwritableTargetsFailToOpenAndLeaveNothing) {
  blank_names();
  // A folder where a file should go, and a file where a folder should be: the same failure
  // as a folder without write permission, also for root.
  fs::create_directory(path("sub"));
  EXPECT_EQ(QBR_writedata(task, path("sub").c_str()), QBR_RES_ERR_FILE_OPEN);
  std::ofstream(path("plain")) << "x";
  EXPECT_EQ(QBR_writedata(task, path("plain/m.lp").c_str()), QBR_RES_ERR_FILE_OPEN);
  EXPECT_EQ(QBR_writesolution(task, QBR_SOL_ITR, path("plain/m.sol").c_str()), QBR_RES_ERR_FILE_OPEN);
  EXPECT_EQ(QBR_writeparamfile(task, path("plain/m.par").c_str()), QBR_RES_ERR_FILE_OPEN);
  EXPECT_EQ(files(), (std::vector<std::string>{"plain", "sub"}));
  EXPECT_EQ(read_text(path("plain")), "x");

  // A folder without write permission (permissions do not bind root, who may write anyway).
  std::ofstream(path("kept.lp")) << "kept\n";
  fs::permissions(dir, fs::perms::owner_read | fs::perms::owner_exec);
  const QBRrescode r = QBR_writedata(task, path("kept.lp").c_str());
  fs::permissions(dir, fs::perms::owner_all);
  if (geteuid() != 0) {
    EXPECT_EQ(r, QBR_RES_ERR_FILE_OPEN);
    EXPECT_EQ(read_text(path("kept.lp")), "kept\n");
    EXPECT_NE(last_message().find("kept.lp"), std::string::npos);
  } else {
    EXPECT_EQ(r, QBR_RES_OK);
  }
  EXPECT_EQ(files(), (std::vector<std::string>{"kept.lp", "plain", "sub"}));
}

// A write that fails halfway (the disk fills) leaves the old file whole, for every writer and
// every compression.
TEST_F(SafeWrite, FailureMidWriteKeepsTheOldFile) {
  large_problem();
  ASSERT_EQ(QBR_putintparam(task, QBR_IPAR_WRITE_COMPRESSION, 1), QBR_RES_OK);
  std::vector<double> xx(20000, 0.25);
  ASSERT_EQ(QBR_putxx(task, QBR_SOL_ITR, xx.data()), QBR_RES_OK);
  const std::vector<std::string> names = {"m.mps", "m.lp", "m.cbf", "m.task", "m.mps.gz", "m.lp.zst"};
  for (const std::string& n : names) std::ofstream(path(n)) << "old " << n << "\n";
  std::ofstream(path("m.sol")) << "old sol\n";
  with_file_size_limit(64 * 1024, [&] {
    for (const std::string& n : names) {
      // The compressed files fit the limit only with a stronger compression than level 1
      // gives the random-looking values; all of them are well above it uncompressed.
      EXPECT_EQ(QBR_writedata(task, path(n).c_str()), QBR_RES_ERR_FILE_WRITE) << n;
      EXPECT_EQ(read_text(path(n)), "old " + n + "\n");
    }
    EXPECT_EQ(QBR_writesolution(task, QBR_SOL_ITR, path("m.sol").c_str()), QBR_RES_ERR_FILE_WRITE);
  });
  EXPECT_EQ(read_text(path("m.sol")), "old sol\n");
  std::vector<std::string> expect = names;
  expect.push_back("m.sol");
  std::sort(expect.begin(), expect.end());
  EXPECT_EQ(files(), expect);
  // Without the limit the same writes succeed and read back.
  for (const std::string& n : names) {
    EXPECT_EQ(QBR_writedata(task, path(n).c_str()), QBR_RES_OK) << n;
    EXPECT_NE(read_text(path(n)).substr(0, 4), "old ") << n;
  }
}

TEST_F(SafeWrite, ParameterFileFailureKeepsTheOldFile) {
  const std::string out = path("p.par");
  std::ofstream(out) << "BEGIN QUBOR\nEND QUBOR\n";
  with_file_size_limit(1024, [&] { EXPECT_EQ(QBR_writeparamfile(task, out.c_str()), QBR_RES_ERR_FILE_WRITE); });
  EXPECT_EQ(read_text(out), "BEGIN QUBOR\nEND QUBOR\n");
  EXPECT_EQ(files(), std::vector<std::string>{"p.par"});
  ASSERT_EQ(QBR_putintparam(task, QBR_IPAR_LOG, 3), QBR_RES_OK);
  EXPECT_EQ(QBR_writeparamfile(task, out.c_str()), QBR_RES_OK);
  ASSERT_EQ(QBR_putintparam(task, QBR_IPAR_LOG, 10), QBR_RES_OK);
  ASSERT_EQ(QBR_readparamfile(task, out.c_str()), QBR_RES_OK);
  QBRint32t v = 0;
  QBR_getintparam(task, QBR_IPAR_LOG, &v);
  EXPECT_EQ(v, 3);
}

}  // namespace
