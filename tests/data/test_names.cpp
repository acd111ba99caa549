// Item names: putting, reading back, lookup, uniqueness, removal of other items, cloning.
#include <cstdio>
#include <string>
#include <vector>

#include "api/fixture.h"

namespace {

// "<prefix><k>" (built with snprintf: string concatenation trips a false -Wrestrict in GCC 12).
std::string numbered(const char* prefix, int k) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%s%d", prefix, k);
  return buf;
}

class NamesTest : public TaskTest {
 protected:
  int var_index(const char* name) {
    QBRint32t found = -1, index = -2;
    EXPECT_EQ(QBR_getvarnameindex(task, name, &found, &index), QBR_RES_OK);
    return found ? index : -1;
  }
};

TEST_F(NamesTest, PutReadAndLookUp) {
  ASSERT_EQ(QBR_appendvars(task, 3), QBR_RES_OK);
  ASSERT_EQ(QBR_putvarname(task, 1, "flow"), QBR_RES_OK);
  char buf[16];
  ASSERT_EQ(QBR_getvarname(task, 1, sizeof buf, buf), QBR_RES_OK);
  EXPECT_STREQ(buf, "flow");
  QBRint32t len = 0;
  QBR_getvarnamelen(task, 1, &len);
  EXPECT_EQ(len, 4);
  EXPECT_EQ(QBR_getvarname(task, 1, 4, buf), QBR_RES_ERR_NAME_MAX_LEN);
  EXPECT_EQ(var_index("flow"), 1);
  EXPECT_EQ(var_index("flo"), -1);
  EXPECT_EQ(var_index(""), -1);  // unnamed items are never found
  EXPECT_EQ(QBR_putvarname(task, 3, "x"), QBR_RES_ERR_INDEX_IS_TOO_LARGE);
  EXPECT_EQ(QBR_putvarname(task, 0, nullptr), QBR_RES_ERR_NAME_IS_NULL);
  EXPECT_EQ(QBR_putvarname(task, 0, "   "), QBR_RES_ERR_BLANK_NAME);
}

TEST_F(NamesTest, NamesAreUniquePerKind) {
  ASSERT_EQ(QBR_appendvars(task, 2), QBR_RES_OK);
  ASSERT_EQ(QBR_appendcons(task, 1), QBR_RES_OK);
  ASSERT_EQ(QBR_putvarname(task, 0, "a"), QBR_RES_OK);
  EXPECT_EQ(QBR_putvarname(task, 1, "a"), QBR_RES_ERR_DUP_NAME);
  EXPECT_EQ(last_message(), "The name 'a' is already used by variable 0.");
  EXPECT_EQ(QBR_putconname(task, 0, "a"), QBR_RES_OK);  // another kind
  EXPECT_EQ(QBR_putvarname(task, 0, "a"), QBR_RES_OK);  // its own name again
  // Renaming frees the old name.
  ASSERT_EQ(QBR_putvarname(task, 0, "b"), QBR_RES_OK);
  EXPECT_EQ(QBR_putvarname(task, 1, "a"), QBR_RES_OK);
  EXPECT_EQ(var_index("a"), 1);
  EXPECT_EQ(var_index("b"), 0);
}

TEST_F(NamesTest, RemovalRenumbersTheLookup) {
  const int n = 50;
  ASSERT_EQ(QBR_appendvars(task, n), QBR_RES_OK);
  for (int j = 0; j < n; ++j) ASSERT_EQ(QBR_putvarname(task, j, numbered("v", j).c_str()), QBR_RES_OK);
  std::vector<QBRint32t> odd;
  for (int j = 1; j < n; j += 2) odd.push_back(j);
  ASSERT_EQ(QBR_removevars(task, static_cast<QBRint32t>(odd.size()), odd.data()), QBR_RES_OK);
  for (int j = 0; j < n; ++j) EXPECT_EQ(var_index(numbered("v", j).c_str()), j % 2 ? -1 : j / 2);
}

TEST_F(NamesTest, TaskAndObjectiveNames) {
  ASSERT_EQ(QBR_puttaskname(task, "diet"), QBR_RES_OK);
  ASSERT_EQ(QBR_putobjname(task, "cost"), QBR_RES_OK);
  char buf[8];
  ASSERT_EQ(QBR_gettaskname(task, sizeof buf, buf), QBR_RES_OK);
  EXPECT_STREQ(buf, "diet");
  QBRint32t len = 0;
  QBR_getobjnamelen(task, &len);
  EXPECT_EQ(len, 4);
}

TEST_F(NamesTest, ManyNamesStayFindable) {
  const int n = 200000;
  ASSERT_EQ(QBR_appendcons(task, n), QBR_RES_OK);
  for (int i = 0; i < n; ++i) ASSERT_EQ(QBR_putconname(task, i, numbered("row_", i).c_str()), QBR_RES_OK);
  for (int i = 0; i < n; i += 997) {
    QBRint32t found = 0, index = -1;
    QBR_getconnameindex(task, numbered("row_", i).c_str(), &found, &index);
    EXPECT_EQ(index, i);
  }
}

TEST_F(NamesTest, CloneCopiesProblemNamesAndSolutions) {
  ASSERT_EQ(QBR_appendvars(task, 2), QBR_RES_OK);
  ASSERT_EQ(QBR_appendcons(task, 1), QBR_RES_OK);
  QBR_putvarname(task, 1, "y");
  QBR_putaij(task, 0, 1, 3.0);
  QBR_putcj(task, 0, 2.0);
  const double xx[] = {1.0, 2.0};
  ASSERT_EQ(QBR_putxx(task, QBR_SOL_BAS, xx), QBR_RES_OK);
  QBRtask_t clone = nullptr;
  ASSERT_EQ(QBR_clonetask(task, &clone), QBR_RES_OK);
  // The clone is independent of the original.
  QBR_putaij(task, 0, 1, 5.0);
  double a = 0, c = 0;
  QBR_getaij(clone, 0, 1, &a);
  QBR_getcj(clone, 0, &c);
  EXPECT_EQ(a, 3.0);
  EXPECT_EQ(c, 2.0);
  QBRint32t found = 0, index = -1;
  QBR_getvarnameindex(clone, "y", &found, &index);
  EXPECT_EQ(index, 1);
  double got[2] = {0, 0};
  EXPECT_EQ(QBR_getxx(clone, QBR_SOL_BAS, got), QBR_RES_OK);
  EXPECT_EQ(got[1], 2.0);
  QBR_deletetask(&clone);
}

}  // namespace
