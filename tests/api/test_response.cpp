// Response codes: classes, descriptions, and the error and warning reporters.
#include <cstdio>
#include <string>

#include "fixture.h"

TEST(ResponseClass, LooksOnlyAtTheNumber) {
  QBRint32t rc = -1;
  const struct {
    QBRrescode code;
    QBRint32t cls;
  } cases[] = {{0, QBR_RESPONSE_OK},    {-5, QBR_RESPONSE_WRN},   {57, QBR_RESPONSE_WRN},
               {999, QBR_RESPONSE_WRN}, {1000, QBR_RESPONSE_ERR}, {9999, QBR_RESPONSE_ERR},
               {10000, QBR_RESPONSE_TRM}, {10007, QBR_RESPONSE_TRM}};
  for (const auto& c : cases) {
    EXPECT_EQ(QBR_getresponseclass(c.code, &rc), QBR_RES_OK);
    EXPECT_EQ(rc, c.cls) << c.code;
  }
  EXPECT_EQ(QBR_getresponseclass(5, nullptr), QBR_RES_OK);
}

TEST(CodeDesc, KnownAndUnknownCodes) {
  char sym[1024], desc[1024];
  EXPECT_EQ(QBR_getcodedesc(QBR_RES_ERR_SPACE, sym, desc), QBR_RES_OK);
  EXPECT_STREQ(sym, "QBR_RES_ERR_SPACE");
  EXPECT_STREQ(desc, "Out of space.");
  EXPECT_EQ(QBR_getcodedesc(QBR_RES_ERR_API_INTERNAL, sym, desc), QBR_RES_OK);
  EXPECT_STREQ(desc, "An internal fatal error occurred in an interface function.:w");
  EXPECT_EQ(QBR_getcodedesc(12345, sym, desc), QBR_RES_OK);
  EXPECT_STREQ(sym, "");
  EXPECT_STREQ(desc, "No description for the code 12345 is available.");
  EXPECT_EQ(QBR_getcodedesc(QBR_RES_OK, nullptr, nullptr), QBR_RES_OK);
}

namespace {
struct Handler {
  int calls = 0;
  QBRint32t ret = 0;
  QBRrescode last = 0;
  std::string msg;
  static QBRint32t fn(void* h, QBRrescode r, const char* m) {
    auto* self = static_cast<Handler*>(h);
    ++self->calls;
    self->last = r;
    self->msg = m;
    return self->ret;
  }
};

int count(const std::string& hay, const std::string& needle) {
  int n = 0;
  for (size_t p = hay.find(needle); p != std::string::npos; p = hay.find(needle, p + 1)) ++n;
  return n;
}
}  // namespace

// A missing parameter file raises warning 50; it drives the warning reporter here.
TEST_F(TaskTest, WarningLimitDisablesEachCodeSeparately) {
  ASSERT_EQ(QBR_putintparam(task, QBR_IPAR_MAX_NUM_WARNINGS, 2), QBR_RES_OK);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(QBR_readparamfile(task, "/nonexistent/a.par"), QBR_RES_OK);
  EXPECT_EQ(count(wrn.text, "QUBOR warning 50: Could not open the parameter file '/nonexistent/a.par'."), 2)
      << wrn.text;
  EXPECT_EQ(count(msg.text, "Warning number 50 is disabled.\n"), 1) << msg.text;
  EXPECT_EQ(last_code(), 0);
}

TEST_F(TaskTest, ZeroWarningLimitSilencesWithoutNotice) {
  ASSERT_EQ(QBR_putintparam(task, QBR_IPAR_MAX_NUM_WARNINGS, 0), QBR_RES_OK);
  EXPECT_EQ(QBR_readparamfile(task, "/nonexistent/a.par"), QBR_RES_OK);
  EXPECT_EQ(wrn.text, "");
  EXPECT_EQ(msg.text.find("disabled"), std::string::npos);
}

TEST_F(TaskTest, NegativeWarningLimitMeansNoLimit) {
  ASSERT_EQ(QBR_putintparam(task, QBR_IPAR_MAX_NUM_WARNINGS, -7), QBR_RES_OK);
  for (int i = 0; i < 30; ++i) QBR_readparamfile(task, "/nonexistent/a.par");
  EXPECT_EQ(count(wrn.text, "QUBOR warning 50"), 30);
}

TEST_F(TaskTest, ResponseHandlerCanTurnAWarningIntoAFailure) {
  Handler h;
  h.ret = 1;
  ASSERT_EQ(QBR_putresponsefunc(task, Handler::fn, &h), QBR_RES_OK);
  EXPECT_EQ(QBR_readparamfile(task, "/nonexistent/b.par"), QBR_RES_WRN_OPEN_PARAM_FILE);
  EXPECT_EQ(h.calls, 1);
  EXPECT_EQ(h.msg, "Could not open the parameter file '/nonexistent/b.par'.");
  EXPECT_EQ(last_code(), QBR_RES_WRN_OPEN_PARAM_FILE);
  EXPECT_EQ(wrn.text, "");  // the handler replaces the stream line
  h.ret = 0;
  EXPECT_EQ(QBR_readparamfile(task, "/nonexistent/b.par"), QBR_RES_OK);
  EXPECT_EQ(last_code(), 0);
  // An error goes to the handler too; its return value does not matter.
  h.ret = 0;
  EXPECT_EQ(QBR_putintparam(task, -1, 0), QBR_RES_ERR_PARAM_INDEX);
  EXPECT_EQ(h.last, QBR_RES_ERR_PARAM_INDEX);
  EXPECT_EQ(err.text, "");
  ASSERT_EQ(QBR_putresponsefunc(task, nullptr, nullptr), QBR_RES_OK);
  EXPECT_EQ(QBR_putintparam(task, -1, 0), QBR_RES_ERR_PARAM_INDEX);
  EXPECT_NE(err.text.find("QUBOR error 1210: "), std::string::npos);
}
