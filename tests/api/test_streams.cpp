// Streams: linking functions and files, echo, callback codes.
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "fixture.h"

namespace {
std::string read_all(const std::string& path) {
  std::ifstream f(path, std::ios::binary);
  std::stringstream s;
  s << f.rdbuf();
  return s.str();
}
}  // namespace

TEST_F(TaskTest, EchoGoesToLinkedFunctionAndRejectsBadStreams) {
  Captured log;
  EXPECT_EQ(QBR_echotask(task, QBR_STREAM_LOG, "nobody listens %d\n", 1), QBR_RES_OK);
  ASSERT_EQ(QBR_linkfunctotaskstream(task, QBR_STREAM_LOG, &log, Captured::sink), QBR_RES_OK);
  EXPECT_EQ(QBR_echotask(task, QBR_STREAM_LOG, "x=%d %s\n", 42, "ok"), QBR_RES_OK);
  EXPECT_EQ(log.text, "x=42 ok\n");
  EXPECT_EQ(QBR_echotask(task, 4, "never"), QBR_RES_ERR_INVALID_STREAM);
  EXPECT_EQ(QBR_echotask(task, -1, "never"), QBR_RES_ERR_INVALID_STREAM);
  EXPECT_EQ(log.text, "x=42 ok\n");
  EXPECT_EQ(QBR_linkfunctotaskstream(task, 4, &log, Captured::sink), QBR_RES_ERR_INVALID_STREAM);
  ASSERT_EQ(QBR_unlinkfuncfromtaskstream(task, QBR_STREAM_LOG), QBR_RES_OK);
  EXPECT_EQ(QBR_echotask(task, QBR_STREAM_LOG, "gone\n"), QBR_RES_OK);
  EXPECT_EQ(log.text, "x=42 ok\n");
}

TEST_F(TaskTest, LongEchoIsCutNotRejected) {
  Captured log;
  QBR_linkfunctotaskstream(task, QBR_STREAM_LOG, &log, Captured::sink);
  std::string big(10000, 'a');
  EXPECT_EQ(QBR_echotask(task, QBR_STREAM_LOG, "%s", big.c_str()), QBR_RES_OK);
  EXPECT_EQ(log.text.size(), 4047u);
}

TEST_F(TaskTest, RelinkingAFileClosesTheOldOne) {
  const std::string a = std::string(::testing::TempDir()) + "stream_a.log";
  const std::string b = std::string(::testing::TempDir()) + "stream_b.log";
  ASSERT_EQ(QBR_linkfiletotaskstream(task, QBR_STREAM_LOG, a.c_str(), 0), QBR_RES_OK);
  QBR_echotask(task, QBR_STREAM_LOG, "first\n");
  ASSERT_EQ(QBR_linkfiletotaskstream(task, QBR_STREAM_LOG, b.c_str(), 0), QBR_RES_OK);
  QBR_echotask(task, QBR_STREAM_LOG, "second\n");
  ASSERT_EQ(QBR_linkfiletotaskstream(task, QBR_STREAM_LOG, b.c_str(), 1), QBR_RES_OK);
  QBR_echotask(task, QBR_STREAM_LOG, "third\n");
  QBR_deletetask(&task);
  const std::string ta = read_all(a), tb = read_all(b);
  EXPECT_EQ(ta.rfind("\nFile opened at ", 0), 0u) << ta;
  EXPECT_NE(ta.find("first\n"), std::string::npos);
  EXPECT_NE(ta.find("\nFile closed: "), std::string::npos);
  EXPECT_EQ(tb.rfind("\nFile opened at ", 0), 0u) << tb;
  EXPECT_NE(tb.find("second\n"), std::string::npos);
  EXPECT_NE(tb.find("\nFile reopened at "), std::string::npos);
  EXPECT_NE(tb.find("third\n"), std::string::npos);
  EXPECT_LT(tb.find("second\n"), tb.find("\nFile reopened at "));

  EXPECT_EQ(QBR_linkfiletoenvstream(env, QBR_STREAM_LOG, "/nonexistent/dir/x.log", 0), QBR_RES_ERR_FILE_OPEN);
}

TEST(EnvStreams, EchoAndErrors) {
  QBRenv_t env = nullptr;
  ASSERT_EQ(QBR_makeenv(&env, nullptr), QBR_RES_OK);
  Captured log;
  ASSERT_EQ(QBR_linkfunctoenvstream(env, QBR_STREAM_MSG, &log, Captured::sink), QBR_RES_OK);
  EXPECT_EQ(QBR_echoenv(env, QBR_STREAM_MSG, "env %s\n", "line"), QBR_RES_OK);
  EXPECT_EQ(log.text, "env line\n");
  EXPECT_EQ(QBR_echoenv(env, 9, "x"), QBR_RES_ERR_INVALID_STREAM);
  EXPECT_EQ(QBR_echoenv(nullptr, 0, "x"), QBR_RES_ERR_NULL_ENV);
  EXPECT_EQ(QBR_unlinkfuncfromenvstream(env, QBR_STREAM_MSG), QBR_RES_OK);
  EXPECT_EQ(QBR_deleteenv(&env), QBR_RES_OK);
}

TEST_F(TaskTest, StreamsAreSafeFromSeveralThreads) {
  Captured log;
  QBR_linkfunctotaskstream(task, QBR_STREAM_LOG, &log, Captured::sink);
  std::vector<std::thread> threads;
  for (int k = 0; k < 4; ++k)
    threads.emplace_back([&] {
      for (int i = 0; i < 500; ++i) QBR_echotask(task, QBR_STREAM_LOG, "0123456789\n");
    });
  for (auto& th : threads) th.join();
  EXPECT_EQ(log.text.size(), 4u * 500u * 11u);
}

namespace {
struct CallbackProbe {
  static QBRint32t fn(QBRtask_t, void*, QBRint32t, const QBRrealt*, const QBRint32t*, const QBRint64t*) { return 0; }
};
}  // namespace

TEST_F(TaskTest, CallbackInstallAndCodeNames) {
  QBRcallbackfunc f = nullptr;
  void* h = nullptr;
  int tag = 0;
  ASSERT_EQ(QBR_putcallbackfunc(task, CallbackProbe::fn, &tag), QBR_RES_OK);
  ASSERT_EQ(QBR_getcallbackfunc(task, &f, &h), QBR_RES_OK);
  EXPECT_EQ(f, &CallbackProbe::fn);
  EXPECT_EQ(h, &tag);
  EXPECT_EQ(QBR_getcallbackfunc(nullptr, &f, &h), QBR_RES_ERR_NULL_TASK);

  char name[1024];
  EXPECT_EQ(QBR_callbackcodetostr(QBR_CALLBACK_BEGIN_INTPNT, name), QBR_RES_OK);
  EXPECT_STREQ(name, "QBR_CALLBACK_BEGIN_INTPNT");
  EXPECT_EQ(QBR_callbackcodetostr(92, name), QBR_RES_OK);
  EXPECT_STREQ(name, "QBR_CALLBACK_WRITE_OPF");
  EXPECT_EQ(QBR_callbackcodetostr(10, name), QBR_RES_OK);  // a gap in the numbering
  EXPECT_STREQ(name, "");
  EXPECT_EQ(QBR_callbackcodetostr(0, nullptr), QBR_RES_OK);
}
