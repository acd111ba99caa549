// Shared helpers of the file-format tests: a task with captured streams (api/fixture.h),
// temporary files, and a comparison of two tasks' problems through the public interface.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>
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
  Captured log;
};

// Everything of the problem that the text formats carry, compared within `tol` (relative).
void expect_same_problem(QBRtask_t a, QBRtask_t b, double tol, bool names = true);
