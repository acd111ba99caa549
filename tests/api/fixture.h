// A task in a fresh environment, with the error, warning and message streams captured.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "qubor.h"

struct Captured {
  std::string text;
  static void sink(void* h, const char* s) { static_cast<Captured*>(h)->text += s; }
};

class TaskTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(QBR_makeenv(&env, nullptr), QBR_RES_OK);
    ASSERT_EQ(QBR_maketask(env, 0, 0, &task), QBR_RES_OK);
    QBR_linkfunctotaskstream(task, QBR_STREAM_ERR, &err, Captured::sink);
    QBR_linkfunctotaskstream(task, QBR_STREAM_WRN, &wrn, Captured::sink);
    QBR_linkfunctotaskstream(task, QBR_STREAM_MSG, &msg, Captured::sink);
  }
  void TearDown() override {
    if (task) {
      EXPECT_EQ(QBR_deletetask(&task), QBR_RES_OK);
    }
    EXPECT_EQ(QBR_deleteenv(&env), QBR_RES_OK);
  }
  std::string last_message() {
    char buf[1024];
    QBRrescode code = 0;
    QBRint32t len = 0;
    QBR_getlasterror(task, &code, sizeof buf, &len, buf);
    return buf;
  }
  // Statuses of the interior-point solution item.
  QBRint32t solsta() {
    QBRint32t s = -1;
    QBR_getsolsta(task, QBR_SOL_ITR, &s);
    return s;
  }
  QBRint32t prosta() {
    QBRint32t s = -1;
    QBR_getprosta(task, QBR_SOL_ITR, &s);
    return s;
  }
  // Information items of the task.
  QBRint32t iinf(QBRint32t which) {
    QBRint32t v = -1;
    QBR_getintinf(task, which, &v);
    return v;
  }
  QBRrealt dinf(QBRint32t which) {
    QBRrealt v = -1;
    QBR_getdouinf(task, which, &v);
    return v;
  }
  QBRrescode last_code() {
    QBRrescode code = -1;
    QBR_getlasterror(task, &code, 0, nullptr, nullptr);
    return code;
  }

  QBRenv_t env = nullptr;
  QBRtask_t task = nullptr;
  Captured err, wrn, msg;
};

// User allocation functions that fail every allocation after the first `budget` ones;
// `live` counts the blocks handed out and not yet given back.
struct Countdown {
  long budget = 0, live = 0;
  static void* m(void* u, size_t n) {
    auto* c = static_cast<Countdown*>(u);
    if (c->budget-- <= 0) return nullptr;
    ++c->live;
    return std::malloc(n);
  }
  static void* c(void* u, size_t n, size_t s) {
    auto* c = static_cast<Countdown*>(u);
    if (c->budget-- <= 0) return nullptr;
    ++c->live;
    return std::calloc(n, s);
  }
  static void* r(void*, void* p, size_t n) { return std::realloc(p, n); }
  static void f(void* u, void* p) {
    if (p) --static_cast<Countdown*>(u)->live;
    std::free(p);
  }
};
