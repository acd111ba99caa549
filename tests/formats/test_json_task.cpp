// The JSON task: exact round trips of whole tasks and the errors of bad texts.
#include <string>

#include "formats/task_fixture.h"

namespace {

using JsonTask = TwoTaskTest;

TEST_F(JsonTask, EveryItemRoundTripsExactly) {
  fill_every_item(task);
  for (const char* name : {"all.jtask", "all.jtask.gz"}) {
    const std::string p = temp_path(name);
    ASSERT_EQ(QBR_writedata(task, p.c_str()), QBR_RES_OK) << name;
    ASSERT_EQ(QBR_readdata(other, p.c_str()), QBR_RES_OK) << name << other_err.text;
    expect_same_task(task, other);
  }
  // The same text through the string reader, and through the task file and back.
  const std::string text = read_text(temp_path("all.jtask"));
  ASSERT_EQ(QBR_readjsonstring(other, text.c_str()), QBR_RES_OK) << other_err.text;
  expect_same_task(task, other);
  // Into a task that held the problem before (its matrix store keeps the old matrices).
  const std::string t = temp_path("all.task");
  ASSERT_EQ(QBR_writedata(other, t.c_str()), QBR_RES_OK);
  ASSERT_EQ(QBR_readdata(other, t.c_str()), QBR_RES_OK);
  expect_same_task(task, other);
}

TEST_F(JsonTask, EmptyAndMinimalTasks) {
  const std::string p = temp_path("e.jtask");
  ASSERT_EQ(QBR_writedata(task, p.c_str()), QBR_RES_OK);
  QBR_appendvars(other, 2);
  ASSERT_EQ(QBR_readdata(other, p.c_str()), QBR_RES_OK) << other_err.text;
  expect_same_task(task, other);
  // Only "Task/data" is required; the counts follow the arrays.
  ASSERT_EQ(QBR_readjsonstring(other, R"({"Task/data": {"var": {"bk": ["ra", "fr"], "bl": [-1, "-Inf"],
      "bu": [2.5, "+Inf"], "type": ["int", "cont"]}, "objective": {"sense": "max", "c": {"subj": [1], "val": [3]}}}})"),
            QBR_RES_OK)
      << other_err.text;
  QBRint32t n = 0, bk = 0, type = 0, sense = 0;
  double bl = 0, bu = 0, c1 = 0;
  QBR_getnumvar(other, &n);
  EXPECT_EQ(n, 2);
  QBR_getvarbound(other, 0, &bk, &bl, &bu);
  EXPECT_EQ(bk, QBR_BK_RA);
  EXPECT_EQ(bu, 2.5);
  QBR_getvartype(other, 0, &type);
  EXPECT_EQ(type, QBR_VAR_TYPE_INT);
  QBR_getcj(other, 1, &c1);
  EXPECT_EQ(c1, 3.0);
  QBR_getobjsense(other, &sense);
  EXPECT_EQ(sense, QBR_OBJECTIVE_SENSE_MAXIMIZE);
}

// Each bad text gives its code; the position or the section is in the message.
TEST_F(JsonTask, BadTextsGiveTheirErrors) {
  const struct {
    const char* text;
    QBRrescode code;
    const char* message;
  } cases[] = {
      {R"({"Task/name": "x"})", QBR_RES_ERR_JSON_MISSING_DATA,
       "Missing required entry \"Task/data\" in section \"\" in JSON task file."},
      {"{\"Task/data\": {\"var\": \n {\"bk\": [\"lo\"], \"bl\": [0], \"bu\": [\"x\"]}}}", QBR_RES_ERR_JSON_FORMAT,
       "Error in JSON Task file at 2:38."},
      {R"({"Task/data": {"var": {"bk": ["lo", "up"], "bl": [0], "bu": [1, 2]}}})", QBR_RES_ERR_JSON_DATA,
       "Inconsistent data in JSON Task in section \"var[bl]\""},
      {R"({"Task/data": {"var": {"bk": ["lo"], "bl": [0], "bu": [1]}, "A": {"subi": [0], "subj": [0], "val": [1]}}})",
       QBR_RES_ERR_JSON_DATA, nullptr},
      {R"({"Task/data": {"objective": {"c": {"subj": [5], "val": [1]}}}})", QBR_RES_ERR_JSON_DATA,
       "Inconsistent data in JSON Task in section \"objective[c][subj]\""},
      {R"({"Task/INFO": {"numvar": 2000000000}, "Task/data": {}})", QBR_RES_ERR_JSON_DATA, nullptr},
      {R"({"Task/data": {"qcone": {"type": ["cube"]}}})", QBR_RES_ERR_JSON_FORMAT, nullptr},
      {R"({"Task/data": {"var": {"bl": [1e999]}}})", QBR_RES_ERR_JSON_NUMBER_OVERFLOW, nullptr},
      {R"({"Task/data": {"var": {"name": ["a\q"]}}})", QBR_RES_ERR_JSON_STRING, nullptr},
      {R"({"Task/data": {"var": {"bk": [}}})", QBR_RES_ERR_JSON_SYNTAX, nullptr},
      {"{\"Task/data\": {}} trailing", QBR_RES_ERR_JSON_SYNTAX, nullptr},
      {"[1, 2]", QBR_RES_ERR_JSON_FORMAT, nullptr},
      {R"({"Task/data": {"MatrixStore": {"dim": [2], "subi": [[0, 1]], "subj": [[0]], "val": [[1, 2]]}}})",
       QBR_RES_ERR_JSON_DATA, "Inconsistent data in JSON Task in section \"MatrixStore[subj]\""},
      {R"({"Task/data": {}, "Task/solutions": {"basic": {"xx": [1]}}})", QBR_RES_ERR_JSON_DATA, nullptr},
      {R"({"Task/data": {}, "Task/parameters": {"iparam": {"QBR_IPAR_LOG": 1.5}}})", QBR_RES_ERR_JSON_FORMAT, nullptr},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(QBR_readjsonstring(other, c.text), c.code) << c.text;
    if (c.message) {
      EXPECT_EQ(other_message(), c.message) << c.text;
    }
  }
}

// Nesting far deeper than the layout needs ends the read at once, without deep recursion.
TEST_F(JsonTask, DeepNestingIsAnError) {
  std::string deep;
  for (int k = 0; k < 200000; ++k) deep += "{\"a\":";
  EXPECT_EQ(QBR_readjsonstring(other, deep.c_str()), QBR_RES_ERR_JSON_FORMAT);
  std::string arrays = "{\"Task/data\": {\"qcone\": {\"members\": ";
  for (int k = 0; k < 200000; ++k) arrays += "[";
  EXPECT_EQ(QBR_readjsonstring(other, arrays.c_str()), QBR_RES_ERR_JSON_FORMAT);
}

// Real models after a solve.
TEST_F(JsonTask, RealModelsRoundTrip) {
  for (const char* model : {"netlib-lp/afiro.mps.gz", "maros-meszaros/QPTEST.qps.gz", "cblib/2x3_3bars.cbf.gz"}) {
    const std::string path = std::string(QUBOR_DATA_DIR) + "/" + model;
    ASSERT_EQ(QBR_readdata(task, path.c_str()), QBR_RES_OK) << model;
    QBR_putintparam(task, QBR_IPAR_LOG, 0);
    QBRrescode trm = 0;
    QBR_optimizetrm(task, &trm);
    const std::string p = temp_path("real.jtask");
    ASSERT_EQ(QBR_writedata(task, p.c_str()), QBR_RES_OK);
    ASSERT_EQ(QBR_readdata(other, p.c_str()), QBR_RES_OK) << model << other_err.text;
    expect_same_task(task, other);
  }
}

}  // namespace
