// The task file: exact round trips of whole tasks, the archive layout, and the errors of bad
// archives.
#include <cstdio>
#include <fstream>
#include <memory>

#include "formats/task_fixture.h"

namespace {

class TaskFile : public TwoTaskTest {
 protected:
  // Writes `task` to `name` and reads it into `other`; the read's response.
  QBRrescode round_trip(const std::string& name) {
    const std::string p = temp_path(name);
    EXPECT_EQ(QBR_writedata(task, p.c_str()), QBR_RES_OK);
    return QBR_readdata(other, p.c_str());
  }
};

TEST_F(TaskFile, EveryItemRoundTripsExactly) {
  fill_every_item(task);
  ASSERT_EQ(round_trip("all.task"), QBR_RES_OK) << other_err.text;
  expect_same_task(task, other);
  // The frame's compression applies to the task file too.
  QBR_deletetask(&other);
  ASSERT_EQ(QBR_maketask(env, 0, 0, &other), QBR_RES_OK);
  ASSERT_EQ(round_trip("all.task.zst"), QBR_RES_OK);
  expect_same_task(task, other);
}

TEST_F(TaskFile, EmptyTaskRoundTrips) {
  QBR_appendvars(other, 3);
  ASSERT_EQ(round_trip("empty.task"), QBR_RES_OK) << other_err.text;
  expect_same_task(task, other);
  QBRint32t n = -1;
  QBR_getnumvar(other, &n);
  EXPECT_EQ(n, 0);
}

TEST_F(TaskFile, ParametersAndSolutionsFollowTheSwitches) {
  fill_every_item(task);
  const std::string p = temp_path("p.task");
  ASSERT_EQ(QBR_writetask(task, p.c_str()), QBR_RES_OK);
  ASSERT_EQ(QBR_putintparam(other, QBR_IPAR_READ_TASK_IGNORE_PARAM, 1), QBR_RES_OK);
  ASSERT_EQ(QBR_readdata(other, p.c_str()), QBR_RES_OK);
  QBRint32t v = 0;
  QBR_getintparam(other, QBR_IPAR_INTPNT_MAX_ITERATIONS, &v);
  EXPECT_EQ(v, 400);  // the reader's own value stays
  expect_same_task(task, other, false);
  // QBR_readtask reads every section whatever the switch says.
  ASSERT_EQ(QBR_readtask(other, p.c_str()), QBR_RES_OK);
  QBR_getintparam(other, QBR_IPAR_INTPNT_MAX_ITERATIONS, &v);
  EXPECT_EQ(v, 77);
  // Without solutions in the file the read task has none.
  ASSERT_EQ(QBR_putintparam(task, QBR_IPAR_WRITE_TASK_INC_SOL, 0), QBR_RES_OK);
  ASSERT_EQ(QBR_writetask(task, p.c_str()), QBR_RES_OK);
  ASSERT_EQ(QBR_readtask(other, p.c_str()), QBR_RES_OK);
  for (QBRint32t w : {QBR_SOL_ITR, QBR_SOL_BAS, QBR_SOL_ITG}) {
    QBRbooleant def = 1;
    QBR_solutiondef(other, w, &def);
    EXPECT_FALSE(def) << w;
  }
  // QBR_writetask writes the task file whatever the name's suffix, uncompressed.
  const std::string odd = temp_path("odd.mps.gz");
  ASSERT_EQ(QBR_writetask(task, odd.c_str()), QBR_RES_OK);
  EXPECT_EQ(read_text(odd).substr(0, 9), "Task/META");
  EXPECT_EQ(QBR_readtask(other, odd.c_str()), QBR_RES_OK);
}

// The archive opens with the system's tar, which sees the fixed modes, ids and names.
TEST_F(TaskFile, ArchiveListsWithTar) {
  fill_every_item(task);
  const std::string p = temp_path("t.task");
  ASSERT_EQ(QBR_writedata(task, p.c_str()), QBR_RES_OK);
  const std::string text = read_text(p);
  ASSERT_EQ(text.size() % 512, 0u);
  // First header: name, mode, ids, magic, owner names.
  EXPECT_EQ(text.substr(0, 10), std::string("Task/META\0", 10));
  EXPECT_EQ(text.substr(100, 8), std::string("0000600\0", 8));
  EXPECT_EQ(text.substr(108, 8), std::string("0001751\0", 8));
  EXPECT_EQ(text.substr(116, 8), std::string("0001751\0", 8));
  EXPECT_EQ(text.substr(257, 8), std::string("ustar\0" "00", 8));
  EXPECT_EQ(text.substr(265, 6), std::string("qubor\0", 6));
  EXPECT_EQ(text.substr(297, 6), std::string("qubor\0", 6));
  // "Task/data/c": 40 + 8n bytes; "Task/data/cfix": 48.
  std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(("tar --numeric-owner -tvf " + p + " 2>&1").c_str(), "r"), pclose);
  ASSERT_TRUE(pipe);
  std::string listing;
  char buf[4096];
  while (size_t n = fread(buf, 1, sizeof buf, pipe.get())) listing.append(buf, n);
  if (listing.find("not found") != std::string::npos) GTEST_SKIP() << "no tar here";
  EXPECT_NE(listing.find("-rw------- 1001/1001"), std::string::npos) << listing;
  EXPECT_NE(listing.find(" 216 "), std::string::npos) << listing;  // c: 40 + 8 * 22
  EXPECT_NE(listing.find("Task/data/cfix"), std::string::npos);
  EXPECT_NE(listing.find("Task/solution/integer/barx/1"), std::string::npos);
  EXPECT_NE(listing.find("Task/information/longitems"), std::string::npos);
}

// The size field in base-256 form (as for members above 8 GiB) reads like the octal one.
TEST_F(TaskFile, BaseTwoFiftySixSizesAreRead) {
  fill_every_item(task);
  const std::string p = temp_path("b.task");
  ASSERT_EQ(QBR_writedata(task, p.c_str()), QBR_RES_OK);
  std::string text = read_text(p);
  const uint64_t size = std::stoull(text.substr(124, 11), nullptr, 8);
  std::memset(&text[124], 0, 12);
  text[124] = static_cast<char>(0x80);
  for (int k = 0; k < 8; ++k) text[135 - k] = static_cast<char>((size >> (8 * k)) & 0xff);
  std::memset(&text[148], ' ', 8);
  unsigned sum = 0;
  for (int k = 0; k < 512; ++k) sum += static_cast<unsigned char>(text[k]);
  std::snprintf(&text[148], 8, "%06o", sum);
  text[155] = ' ';
  std::ofstream(p, std::ios::binary) << text;
  ASSERT_EQ(QBR_readdata(other, p.c_str()), QBR_RES_OK) << other_err.text;
  expect_same_task(task, other);
}

// Damaged archives fail with the task-file error naming the member, never crash, and never
// allocate more than the file holds.
TEST_F(TaskFile, DamagedArchivesAreInvalid) {
  fill_every_item(task);
  const std::string p = temp_path("d.task");
  ASSERT_EQ(QBR_writedata(task, p.c_str()), QBR_RES_OK);
  const std::string good = read_text(p);
  const std::string bad = temp_path("bad.task");
  const auto read_bad = [&](const std::string& text) {
    std::ofstream(bad, std::ios::binary) << text;
    return QBR_readdata(other, bad.c_str());
  };
  // Cut anywhere: inside a header, inside a member, between members.
  for (size_t cut : {size_t{100}, size_t{512} + 30, size_t{3000}, good.size() / 2, good.size() - 1024 - 7}) {
    const QBRrescode r = read_bad(good.substr(0, cut));
    EXPECT_EQ(r, QBR_RES_ERR_TASK_INVALID) << cut;
  }
  EXPECT_NE(other_message().find("is invalid in member"), std::string::npos) << other_message();
  // A member cut exactly after a header.
  EXPECT_EQ(read_bad(good.substr(0, 512)), QBR_RES_ERR_TASK_INVALID);
  EXPECT_NE(other_message().find("'Task/META'"), std::string::npos) << other_message();

  // A flipped byte in a header breaks its checksum.
  std::string t = good;
  t[2] = 'X';
  EXPECT_EQ(read_bad(t), QBR_RES_ERR_TASK_INVALID);
  EXPECT_NE(other_message().find("checksum"), std::string::npos) << other_message();

  // Not an archive at all.
  EXPECT_EQ(read_bad(std::string(2048, 'a')), QBR_RES_ERR_TASK_INVALID);

  // A member whose size field claims far more than the file holds.
  t = good;
  std::snprintf(&t[124], 12, "%011llo", 077777777777ULL);
  std::memset(&t[148], ' ', 8);
  unsigned sum = 0;
  for (int k = 0; k < 512; ++k) sum += static_cast<unsigned char>(t[k]);
  std::snprintf(&t[148], 8, "%06o", sum);
  EXPECT_EQ(read_bad(t), QBR_RES_ERR_TASK_INVALID);
  EXPECT_NE(other_message().find("ends inside the member"), std::string::npos) << other_message();

  // An array member whose extents disagree with its size, and one whose magic is wrong.
  const size_t c_at = good.find(std::string("Task/data/c\0", 12));
  ASSERT_NE(c_at, std::string::npos);
  t = good;
  t[c_at + 512 + 16] = 23;  // 23 elements where 22 are stored
  EXPECT_EQ(read_bad(t), QBR_RES_ERR_TASK_INVALID);
  EXPECT_NE(other_message().find("'Task/data/c'"), std::string::npos) << other_message();
  t = good;
  t[c_at + 512] = 'X';
  EXPECT_EQ(read_bad(t), QBR_RES_ERR_TASK_INVALID);
  EXPECT_NE(other_message().find("not an array member"), std::string::npos) << other_message();

  // Counts in the header that disagree with the arrays.
  t = good;
  const size_t numvar = t.find("numvar=22");
  ASSERT_NE(numvar, std::string::npos);
  t[numvar + 8] = '3';
  EXPECT_EQ(read_bad(t), QBR_RES_ERR_TASK_INVALID);
  EXPECT_NE(other_message().find("numvar"), std::string::npos) << other_message();

  // A layout of a later library.
  t = good;
  const size_t layout = t.find("layout=1");
  ASSERT_NE(layout, std::string::npos);
  t[layout + 7] = '9';
  EXPECT_EQ(read_bad(t), QBR_RES_ERR_TASK_INCOMPATIBLE);

  // The good file still reads after all this.
  std::ofstream(bad, std::ios::binary) << good;
  EXPECT_EQ(QBR_readdata(other, bad.c_str()), QBR_RES_OK);
}

// Real models after a solve, so that solutions and information items are in the task.
TEST_F(TaskFile, RealModelsAfterASolveRoundTrip) {
  for (const char* model : {"netlib-lp/afiro.mps.gz", "maros-meszaros/QPTEST.qps.gz", "cblib/pp-n10-d10.cbf.gz",
                            "cblib/2x3_3bars.cbf.gz"}) {
    const std::string path = std::string(QUBOR_DATA_DIR) + "/" + model;
    ASSERT_EQ(QBR_readdata(task, path.c_str()), QBR_RES_OK) << model;
    QBR_putintparam(task, QBR_IPAR_LOG, 0);
    // Problem types without an optimizer in this library yet keep their data only.
    QBRrescode trm = 0;
    QBR_optimizetrm(task, &trm);
    ASSERT_EQ(round_trip("real.task"), QBR_RES_OK) << model << other_err.text;
    expect_same_task(task, other);
  }
}

}  // namespace
