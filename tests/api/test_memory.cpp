// The memory manager: user allocation functions, debug reports, allocation entry points.
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

#include "fixture.h"

namespace {
struct Counting {
  long mallocs = 0, callocs = 0, frees = 0;
  static void* m(void* u, size_t n) {
    ++static_cast<Counting*>(u)->mallocs;
    return std::malloc(n);
  }
  static void* c(void* u, size_t n, size_t s) {
    ++static_cast<Counting*>(u)->callocs;
    return std::calloc(n, s);
  }
  static void* r(void*, void* p, size_t n) { return std::realloc(p, n); }
  static void f(void* u, void* p) {
    if (p) ++static_cast<Counting*>(u)->frees;
    std::free(p);
  }
};
}  // namespace

TEST(Memory, UserAllocatorCarriesEveryAllocation) {
  Counting c;
  QBRenv_t env = nullptr;
  ASSERT_EQ(QBR_makeenvalloc(&env, &c, Counting::m, Counting::c, Counting::r, Counting::f, nullptr), QBR_RES_OK);
  QBRtask_t task = nullptr;
  ASSERT_EQ(QBR_maketask(env, 10, 10, &task), QBR_RES_OK);
  EXPECT_GT(c.mallocs, 3);
  QBR_putstrparam(task, QBR_SPAR_STAT_NAME, std::string(500, 'x').c_str());
  void* p = QBR_calloctask(task, 10, 8);
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(c.callocs, 1);
  QBR_freetask(task, p);
  char* s = QBR_strduptask(task, "hello");
  EXPECT_STREQ(s, "hello");
  QBR_freetask(task, s);
  EXPECT_EQ(QBR_strdupdbgtask(task, nullptr, __FILE__, __LINE__), nullptr);
  ASSERT_EQ(QBR_deletetask(&task), QBR_RES_OK);
  ASSERT_EQ(QBR_deleteenv(&env), QBR_RES_OK);
  // Everything taken through the user's functions was given back through them.
  EXPECT_EQ(c.mallocs + c.callocs, c.frees);
}

TEST(Memory, PartialUserAllocatorIsRefused) {
  Counting c;
  QBRenv_t env = reinterpret_cast<QBRenv_t>(1);
  EXPECT_EQ(QBR_makeenvalloc(&env, &c, Counting::m, nullptr, nullptr, Counting::f, nullptr), QBR_RES_ERR_NULL_POINTER);
  EXPECT_EQ(env, nullptr);
  EXPECT_EQ(QBR_makeenvalloc(&env, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr), QBR_RES_OK);
  EXPECT_EQ(QBR_deleteenv(&env), QBR_RES_OK);
}

TEST(Memory, DebugReportListsHeldBlocksWithTheirPosition) {
  const std::string dbg = std::string(::testing::TempDir()) + "memdebug";
  std::remove((dbg + ".task.txt").c_str());
  QBRenv_t env = nullptr;
  ASSERT_EQ(QBR_makeenv(&env, dbg.c_str()), QBR_RES_OK);
  QBRtask_t task = nullptr;
  ASSERT_EQ(QBR_maketask(env, 0, 0, &task), QBR_RES_OK);
  void* p = QBR_callocdbgtask(task, 3, 100, "user.c", 77);
  ASSERT_NE(p, nullptr);
  Captured log;
  QBR_linkfunctotaskstream(task, QBR_STREAM_LOG, &log, Captured::sink);
  EXPECT_EQ(QBR_checkmemtask(task, "here.c", 5), QBR_RES_OK);
  EXPECT_NE(log.text.find("Memory report at here.c(5)"), std::string::npos) << log.text;
  EXPECT_NE(log.text.find("300 bytes taken at user.c(77)"), std::string::npos) << log.text;
  std::ifstream f(dbg + ".task.txt");
  std::stringstream ss;
  ss << f.rdbuf();
  EXPECT_NE(ss.str().find("user.c(77)"), std::string::npos);
  QBR_freedbgtask(task, p, __FILE__, __LINE__);
  log.text.clear();
  QBR_checkmemtask(task, "here.c", 6);
  EXPECT_EQ(log.text.find("user.c(77)"), std::string::npos);
  EXPECT_EQ(QBR_checkmemtask(nullptr, "x", 1), QBR_RES_ERR_NULL_TASK);
  EXPECT_EQ(QBR_checkmemenv(env, "env.c", 1), QBR_RES_OK);
  QBR_deletetask(&task);
  QBR_deleteenv(&env);
}

TEST(Memory, OverflowingAndNullRequests) {
  QBRenv_t env = nullptr;
  ASSERT_EQ(QBR_makeenv(&env, nullptr), QBR_RES_OK);
  EXPECT_EQ(QBR_callocenv(env, SIZE_MAX / 2, 16), nullptr);
  EXPECT_EQ(QBR_callocenv(nullptr, 1, 1), nullptr);
  EXPECT_EQ(QBR_calloctask(nullptr, 1, 1), nullptr);
  QBR_freeenv(env, nullptr);
  QBR_freetask(nullptr, nullptr);
  void* p = QBR_callocdbgenv(env, 2, 2, "f", 1);
  ASSERT_NE(p, nullptr);
  QBR_freedbgenv(env, p, "f", 2);
  EXPECT_EQ(QBR_deleteenv(&env), QBR_RES_OK);
}


// Every allocation fails in turn: each call either succeeds or answers "out of space", and
// whatever was taken is given back.
TEST(Memory, AllocationFailuresAreReportedAndLeaveNothingBehind) {
  for (long budget = 0; budget < 60; ++budget) {
    Countdown c;
    c.budget = budget;
    QBRenv_t env = nullptr;
    QBRrescode r = QBR_makeenvalloc(&env, &c, Countdown::m, Countdown::c, Countdown::r, Countdown::f, nullptr);
    if (r != QBR_RES_OK) {
      EXPECT_EQ(r, QBR_RES_ERR_SPACE);
      EXPECT_EQ(c.live, 0);
      continue;
    }
    QBRtask_t task = nullptr;
    r = QBR_maketask(env, 0, 0, &task);
    if (r == QBR_RES_OK) {
      r = QBR_putstrparam(task, QBR_SPAR_STAT_NAME, std::string(300, 'y').c_str());
      EXPECT_TRUE(r == QBR_RES_OK || r == QBR_RES_ERR_SPACE) << r;
      QBRtask_t clone = nullptr;
      r = QBR_clonetask(task, &clone);
      EXPECT_TRUE(r == QBR_RES_OK || r == QBR_RES_ERR_SPACE) << r;
      if (clone) QBR_deletetask(&clone);
      QBR_deletetask(&task);
    } else {
      EXPECT_EQ(r, QBR_RES_ERR_SPACE);
      EXPECT_EQ(task, nullptr);
    }
    EXPECT_EQ(QBR_deleteenv(&env), QBR_RES_OK);
    EXPECT_EQ(c.live, 0) << "budget " << budget;
  }
}
