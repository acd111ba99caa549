// Information items by index and by name.
#include "fixture.h"

TEST_F(TaskTest, InfoCountsAndNames) {
  QBRint32t n = -1;
  EXPECT_EQ(QBR_getinfmax(task, QBR_INF_DOU_TYPE, &n), QBR_RES_OK);
  EXPECT_EQ(n, 90);
  EXPECT_EQ(QBR_getinfmax(task, QBR_INF_INT_TYPE, &n), QBR_RES_OK);
  EXPECT_EQ(n, 101);
  EXPECT_EQ(QBR_getinfmax(task, QBR_INF_LINT_TYPE, &n), QBR_RES_OK);
  EXPECT_EQ(n, 13);
  EXPECT_EQ(QBR_getinfmax(task, 3, &n), QBR_RES_ERR_INF_TYPE);
  EXPECT_EQ(n, 0);

  QBRint32t idx = -1;
  EXPECT_EQ(QBR_getinfindex(task, QBR_INF_DOU_TYPE, "QBR_DINF_OPTIMIZER_TIME", &idx), QBR_RES_OK);
  EXPECT_EQ(idx, 31);
  EXPECT_EQ(QBR_getinfindex(task, QBR_INF_INT_TYPE, "QBR_DINF_OPTIMIZER_TIME", &idx), QBR_RES_ERR_INF_INT_NAME);
  EXPECT_EQ(QBR_getinfindex(task, QBR_INF_LINT_TYPE, "QBR_LIINF_RD_NUMQNZ", &idx), QBR_RES_OK);
  EXPECT_EQ(idx, 12);
  EXPECT_EQ(QBR_getinfindex(task, 7, "QBR_LIINF_RD_NUMQNZ", &idx), QBR_RES_ERR_INF_TYPE);
  EXPECT_EQ(QBR_getinfindex(task, QBR_INF_DOU_TYPE, "qbr_dinf_optimizer_time", &idx), QBR_RES_ERR_INF_DOU_NAME);
  EXPECT_EQ(QBR_getinfindex(task, QBR_INF_DOU_TYPE, nullptr, &idx), QBR_RES_ERR_INF_DOU_NAME);

  char name[1024];
  EXPECT_EQ(QBR_getinfname(task, QBR_INF_INT_TYPE, 71, name), QBR_RES_OK);
  EXPECT_STREQ(name, "QBR_IINF_OPTIMIZE_RESPONSE");
  EXPECT_EQ(QBR_getinfname(task, QBR_INF_INT_TYPE, 101, name), QBR_RES_ERR_INF_INT_INDEX);
  EXPECT_EQ(QBR_getinfname(task, 5, 0, name), QBR_RES_ERR_INF_TYPE);
  // Every name maps back to its own index.
  for (int type : {QBR_INF_DOU_TYPE, QBR_INF_INT_TYPE, QBR_INF_LINT_TYPE}) {
    QBR_getinfmax(task, type, &n);
    for (int i = 0; i < n; ++i) {
      ASSERT_EQ(QBR_getinfname(task, type, i, name), QBR_RES_OK);
      ASSERT_EQ(QBR_getinfindex(task, type, name, &idx), QBR_RES_OK) << name;
      EXPECT_EQ(idx, i) << name;
    }
  }
}

TEST_F(TaskTest, InfoValuesByIndexAndName) {
  double d = 5.0;
  EXPECT_EQ(QBR_getdouinf(task, QBR_DINF_OPTIMIZER_TIME, &d), QBR_RES_OK);
  EXPECT_EQ(d, 0.0);
  d = 5.0;
  EXPECT_EQ(QBR_getdouinf(task, 90, &d), QBR_RES_ERR_INF_DOU_INDEX);
  EXPECT_EQ(d, 5.0);
  EXPECT_EQ(QBR_getdouinf(task, -1, &d), QBR_RES_ERR_INF_DOU_INDEX);
  QBRint32t i = 3;
  EXPECT_EQ(QBR_getintinf(task, 101, &i), QBR_RES_ERR_INF_INT_INDEX);
  EXPECT_EQ(QBR_getnaintinf(task, "QBR_IINF_OPTIMIZE_RESPONSE", &i), QBR_RES_OK);
  EXPECT_EQ(i, 0);
  QBRint64t l = 1;
  EXPECT_EQ(QBR_getlintinf(task, 13, &l), QBR_RES_ERR_INF_LINT_INDEX);
  EXPECT_EQ(QBR_getnadouinf(task, "QBR_DINF_NOPE", &d), QBR_RES_ERR_INF_DOU_NAME);
}
