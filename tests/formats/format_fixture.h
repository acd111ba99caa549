// Shared helpers of the file-format tests: a task with captured streams (api/fixture.h),
// temporary files, and a comparison of two tasks' problems through the public interface.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>
#include <vector>

#include "api/fixture.h"
#include "qubor.h"

// A file name private to the running test process, so that tests may run in parallel
// processes, also those of another checkout on the same machine.
inline std::string temp_path(const std::string& name) {
  const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
  std::string dir = ::testing::TempDir() + std::to_string(getpid()) + "_";
  if (info) {
    dir += info->test_suite_name();
    dir += "_";
    dir += info->name();
    dir += "_";
  }
  return dir + name;
}

// After every test, the files named after it (see temp_path) go, with whatever suffix the
// code under test added to the names it was given.
class TempFileSweeper : public ::testing::EmptyTestEventListener {
  void OnTestEnd(const ::testing::TestInfo& info) override {
    const std::string prefix =
        std::to_string(getpid()) + "_" + info.test_suite_name() + "_" + info.name() + "_";
    std::error_code ec;
    for (const auto& entry : std::filesystem::directory_iterator(::testing::TempDir(), ec))
      if (entry.path().filename().string().rfind(prefix, 0) == 0) std::filesystem::remove_all(entry.path(), ec);
  }
};
inline const bool temp_file_sweeper_installed = [] {
  ::testing::UnitTest::GetInstance()->listeners().Append(new TempFileSweeper);
  return true;
}();

inline std::string write_text(const std::string& name, const std::string& text) {
  std::string p = temp_path(name);
  std::ofstream(p, std::ios::binary) << text;
  return p;
}

inline std::string read_text(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

class FormatTest : public TaskTest {
 protected:
  void SetUp() override {
    TaskTest::SetUp();
    QBR_linkfunctotaskstream(task, QBR_STREAM_LOG, &log, Captured::sink);
  }
  QBRint32t numvar() {
    QBRint32t n = -1;
    QBR_getnumvar(task, &n);
    return n;
  }
  QBRint32t numcon() {
    QBRint32t n = -1;
    QBR_getnumcon(task, &n);
    return n;
  }
  // The bound key of variable (or constraint) j and the finite bounds it has.
  void bounds(QBRint32t j, QBRint32t bk, double bl, double bu, bool var = true) {
    QBRint32t k;
    double l, u;
    ASSERT_EQ(var ? QBR_getvarbound(task, j, &k, &l, &u) : QBR_getconbound(task, j, &k, &l, &u), QBR_RES_OK);
    EXPECT_EQ(k, bk) << j;
    if (bk != QBR_BK_UP && bk != QBR_BK_FR) {
      EXPECT_EQ(l, bl) << j;
    }
    if (bk != QBR_BK_LO && bk != QBR_BK_FR) {
      EXPECT_EQ(u, bu) << j;
    }
  }
  double aij(QBRint32t i, QBRint32t j) {
    double v = 0;
    QBR_getaij(task, i, j, &v);
    return v;
  }
  Captured log;
};

// Everything of the problem that the text formats carry, compared within `tol` (relative).
void expect_same_problem(QBRtask_t a, QBRtask_t b, double tol, bool names = true);
