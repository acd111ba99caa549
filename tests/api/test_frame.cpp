// The call frame: handle checks, null outputs, version checks, last error, thread set-up.
#include <cmath>
#include <limits>

#include "fixture.h"

TEST(Frame, NullAndDeletedHandlesAreRejectedSilently) {
  QBRint32t v = 77;
  EXPECT_EQ(QBR_getintparam(nullptr, QBR_IPAR_LOG, &v), QBR_RES_ERR_NULL_TASK);
  EXPECT_EQ(v, 77);

  QBRenv_t env = nullptr;
  ASSERT_EQ(QBR_makeenv(&env, nullptr), QBR_RES_OK);
  QBRtask_t task = nullptr, stale = nullptr;
  ASSERT_EQ(QBR_maketask(env, 0, 0, &task), QBR_RES_OK);
  stale = task;
  ASSERT_EQ(QBR_deletetask(&task), QBR_RES_OK);
  EXPECT_EQ(task, nullptr);
  EXPECT_EQ(QBR_getintparam(stale, QBR_IPAR_LOG, &v), QBR_RES_ERR_INVALID_TASK);
  EXPECT_EQ(QBR_putintparam(stale, QBR_IPAR_LOG, 3), QBR_RES_ERR_INVALID_TASK);
  EXPECT_EQ(QBR_deletetask(&stale), QBR_RES_ERR_INVALID_TASK);
  EXPECT_EQ(v, 77);
  EXPECT_EQ(QBR_deleteenv(&env), QBR_RES_OK);
  EXPECT_EQ(env, nullptr);

  EXPECT_EQ(QBR_maketask(nullptr, 0, 0, &task), QBR_RES_ERR_NULL_ENV);
  EXPECT_EQ(QBR_setupthreads(nullptr, 2), QBR_RES_ERR_NULL_ENV);
  EXPECT_EQ(QBR_deleteenv(nullptr), QBR_RES_ERR_NULL_ENV);
}

TEST(Frame, EnvironmentWithLivingTasksIsKept) {
  QBRenv_t env = nullptr;
  QBRtask_t task = nullptr;
  ASSERT_EQ(QBR_makeenv(&env, nullptr), QBR_RES_OK);
  ASSERT_EQ(QBR_maketask(env, 5, 7, &task), QBR_RES_OK);
  EXPECT_EQ(QBR_deleteenv(&env), QBR_RES_ERR_LIVING_TASKS);
  EXPECT_NE(env, nullptr);
  QBRint32t v = 0;
  EXPECT_EQ(QBR_getintparam(task, QBR_IPAR_LOG, &v), QBR_RES_OK);
  EXPECT_EQ(QBR_deletetask(&task), QBR_RES_OK);
  EXPECT_EQ(QBR_deleteenv(&env), QBR_RES_OK);
}

TEST(Frame, NegativeReservationsAreRefused) {
  QBRenv_t env = nullptr;
  QBRtask_t task = reinterpret_cast<QBRtask_t>(1);
  ASSERT_EQ(QBR_makeenv(&env, nullptr), QBR_RES_OK);
  EXPECT_EQ(QBR_maketask(env, -1, 0, &task), QBR_RES_ERR_MAXNUMCON);
  EXPECT_EQ(task, nullptr);
  EXPECT_EQ(QBR_maketask(env, 0, -1, &task), QBR_RES_ERR_MAXNUMVAR);
  EXPECT_EQ(QBR_maketask(env, 0, 0, nullptr), QBR_RES_ERR_NULL_POINTER);
  EXPECT_EQ(QBR_deleteenv(&env), QBR_RES_OK);
}

TEST_F(TaskTest, NullOutputPointerNamesTheArgument) {
  EXPECT_EQ(QBR_getintparam(task, QBR_IPAR_LOG, nullptr), QBR_RES_ERR_NULL_POINTER);
  EXPECT_EQ(last_code(), QBR_RES_ERR_NULL_POINTER);
  EXPECT_NE(last_message().find("parvalue"), std::string::npos) << last_message();
  EXPECT_NE(err.text.find("QUBOR error 1065: "), std::string::npos) << err.text;
  EXPECT_EQ(QBR_getinfmax(task, QBR_INF_DOU_TYPE, nullptr), QBR_RES_ERR_NULL_POINTER);
  EXPECT_EQ(QBR_whichparam(task, "QBR_IPAR_LOG", nullptr, nullptr), QBR_RES_ERR_NULL_POINTER);
  EXPECT_EQ(QBR_clonetask(task, nullptr), QBR_RES_ERR_NULL_POINTER);
}

TEST(Version, ComparedPartByPartMajorFirst) {
  QBRint32t major = 0, minor = -1, rev = 0;
  EXPECT_EQ(QBR_getversion(&major, &minor, &rev), QBR_RES_OK);
  EXPECT_EQ(major, 9);
  EXPECT_EQ(minor, 0);
  EXPECT_EQ(rev, 81);
  EXPECT_EQ(QBR_getversion(nullptr, nullptr, nullptr), QBR_RES_OK);
  EXPECT_EQ(QBR_checkversion(nullptr, 9, 0, 80), QBR_RES_ERR_NEWER_DLL);
  EXPECT_EQ(QBR_checkversion(nullptr, 9, 1, 0), QBR_RES_ERR_OLDER_DLL);
  EXPECT_EQ(QBR_checkversion(nullptr, 9, 0, 81), QBR_RES_OK);
  EXPECT_EQ(QBR_checkversion(nullptr, 8, 99, 99), QBR_RES_ERR_NEWER_DLL);
  EXPECT_EQ(QBR_checkversion(nullptr, 10, 0, 0), QBR_RES_ERR_OLDER_DLL);
}

TEST(Infinity, OneSided) {
  EXPECT_TRUE(QBR_isinfinity(1.0e30));
  EXPECT_TRUE(QBR_isinfinity(std::numeric_limits<double>::infinity()));
  EXPECT_FALSE(QBR_isinfinity(-1.0e30));
  EXPECT_FALSE(QBR_isinfinity(9.99e29));
  EXPECT_FALSE(QBR_isinfinity(std::nan("")));
}

TEST_F(TaskTest, LastErrorRecordsCodeLengthAndCutsTheCopy) {
  EXPECT_EQ(QBR_putintparam(task, 10000, 1), QBR_RES_ERR_PARAM_INDEX);
  QBRrescode code = 0;
  QBRint32t len = 0;
  char small[8];
  EXPECT_EQ(QBR_getlasterror(task, &code, sizeof small, &len, small), QBR_RES_OK);
  EXPECT_EQ(code, QBR_RES_ERR_PARAM_INDEX);
  const std::string full = last_message();
  EXPECT_EQ(static_cast<size_t>(len), full.size() + 1);
  EXPECT_EQ(std::string(small), full.substr(0, 7));
  QBRint64t len64 = 0;
  EXPECT_EQ(QBR_getlasterror64(task, &code, 0, &len64, nullptr), QBR_RES_OK);
  EXPECT_EQ(len64, len);
  // Neither getter checks its handle.
  EXPECT_EQ(QBR_getlasterror(nullptr, &code, 0, &len, nullptr), QBR_RES_OK);
}

TEST(Threads, CountIsSettledOnce) {
  QBRenv_t env = nullptr;
  ASSERT_EQ(QBR_makeenv(&env, nullptr), QBR_RES_OK);
  EXPECT_EQ(QBR_setupthreads(env, 3), QBR_RES_OK);
  EXPECT_EQ(QBR_setupthreads(env, 1), QBR_RES_OK);
  EXPECT_EQ(QBR_deleteenv(&env), QBR_RES_OK);
}

TEST_F(TaskTest, CloneCopiesParameters) {
  ASSERT_EQ(QBR_putintparam(task, QBR_IPAR_LOG, 3), QBR_RES_OK);
  ASSERT_EQ(QBR_putstrparam(task, QBR_SPAR_STAT_NAME, "abc"), QBR_RES_OK);
  QBRtask_t c = nullptr;
  ASSERT_EQ(QBR_clonetask(task, &c), QBR_RES_OK);
  QBRint32t v = 0;
  char s[64];
  EXPECT_EQ(QBR_getintparam(c, QBR_IPAR_LOG, &v), QBR_RES_OK);
  EXPECT_EQ(v, 3);
  EXPECT_EQ(QBR_getstrparam(c, QBR_SPAR_STAT_NAME, sizeof s, nullptr, s), QBR_RES_OK);
  EXPECT_STREQ(s, "abc");
  // The clone is independent of its source.
  ASSERT_EQ(QBR_putintparam(task, QBR_IPAR_LOG, 4), QBR_RES_OK);
  EXPECT_EQ(QBR_getintparam(c, QBR_IPAR_LOG, &v), QBR_RES_OK);
  EXPECT_EQ(v, 3);
  EXPECT_EQ(QBR_deletetask(&c), QBR_RES_OK);
}
