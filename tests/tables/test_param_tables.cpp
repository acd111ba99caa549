// The parameter tables: index order, the positions the interface fixes, defaults in range.
#include <gtest/gtest.h>

#include <cctype>
#include <string>

#include "task/tables.h"

namespace {

std::string lower(const char* s) {
  std::string out;
  for (; *s; ++s) out.push_back(static_cast<char>(std::tolower(static_cast<unsigned char>(*s))));
  return out;
}

template <class Get>
void expect_sorted(int n, Get name_of) {
  for (int i = 1; i < n; ++i) EXPECT_LT(lower(name_of(i - 1)), lower(name_of(i))) << name_of(i);
}

}  // namespace

using namespace qubor::task;

TEST(ParamTables, SortedByLowerCaseNameWithUnderscoreFirst) {
  EXPECT_EQ(kNumIntParams, 178);
  EXPECT_EQ(kNumDouParams, 59);
  EXPECT_EQ(kNumStrParams, 24);
  expect_sorted(kNumIntParams, [](int i) { return int_param(i).name; });
  expect_sorted(kNumDouParams, [](int i) { return dou_param(i).name; });
  expect_sorted(kNumStrParams, [](int i) { return str_param(i).name; });
}

TEST(ParamTables, FixedPositions) {
  const struct {
    int index;
    const char* name;
  } fixed[] = {{8, "QBR_IPAR_BI_MAX_ITERATIONS"},       {10, "QBR_IPAR_CHECK_CONVEXITY"},
               {19, "QBR_IPAR_INTPNT_MAX_ITERATIONS"},  {20, "QBR_IPAR_INTPNT_MAX_NUM_COR"},
               {35, "QBR_IPAR_LOG"},                    {47, "QBR_IPAR_LOG_MIO"},
               {54, "QBR_IPAR_LOG_SIM"},                {55, "QBR_IPAR_LOG_SIM_FREQ"},
               {58, "QBR_IPAR_MAX_NUM_WARNINGS"},       {69, "QBR_IPAR_MIO_MAX_NUM_BRANCHES"},
               {70, "QBR_IPAR_MIO_MAX_NUM_RELAXS"},     {71, "QBR_IPAR_MIO_MAX_NUM_ROOT_CUT_ROUNDS"},
               {85, "QBR_IPAR_NUM_THREADS"},            {95, "QBR_IPAR_OPTIMIZER"},
               {106, "QBR_IPAR_PRESOLVE_USE"},          {141, "QBR_IPAR_SIM_SEED"},
               {154, "QBR_IPAR_WRITE_COMPRESSION"},     {177, "QBR_IPAR_WRITE_XML_MODE"}};
  for (const auto& f : fixed) EXPECT_STREQ(int_param(f.index).name, f.name);
  EXPECT_STREQ(dou_param(12).name, "QBR_DPAR_DATA_TOL_C_HUGE");
  EXPECT_STREQ(dou_param(13).name, "QBR_DPAR_DATA_TOL_CJ_LARGE");
  EXPECT_STREQ(dou_param(58).name, "QBR_DPAR_UPPER_OBJ_CUT_FINITE_TRH");
  EXPECT_STREQ(str_param(6).name, "QBR_SPAR_PARAM_COMMENT_SIGN");
}

TEST(ParamTables, DefaultsLieInsideTheirRanges) {
  for (int i = 0; i < kNumIntParams; ++i) {
    const IntParamDef& d = int_param(i);
    EXPECT_TRUE(d.kind >= 0 && d.kind <= 4) << d.name;
    if (d.kind == kUnchecked) continue;
    if (d.kind != kUpperOnly) {
      EXPECT_GE(d.default_value, d.lower) << d.name;
    }
    if (d.kind != kLowerOnly) {
      EXPECT_LE(d.default_value, d.upper) << d.name;
    }
    if (d.group != EnumGroup::NONE) {
      // Every admissible value of an enumerated parameter has a symbolic name.
      for (int64_t v = d.lower; v <= d.upper; ++v)
        EXPECT_NE(enum_symbol(d.group, static_cast<int32_t>(v)), nullptr) << d.name << " " << v;
    }
  }
  for (int i = 0; i < kNumDouParams; ++i) {
    const DouParamDef& d = dou_param(i);
    if (d.kind == kUnchecked) continue;
    if (d.kind != kUpperOnly) {
      EXPECT_GE(d.default_value, d.lower) << d.name;
    }
    if (d.kind != kLowerOnly) {
      EXPECT_LE(d.default_value, d.upper) << d.name;
    }
  }
}

TEST(ParamTables, NameLookupFindsEveryRowInBothForms) {
  for (int i = 0; i < kNumIntParams; ++i) {
    const char* full = int_param(i).name;
    EXPECT_EQ(find_param(QBR_PAR_INT_TYPE, full), i);
    EXPECT_EQ(find_param(QBR_PAR_INT_TYPE, ("iparam." + lower(full + 9)).c_str()), i);
    EXPECT_EQ(find_param(QBR_PAR_DOU_TYPE, full), -1);
  }
  for (int i = 0; i < kNumDouParams; ++i) EXPECT_EQ(find_param(QBR_PAR_DOU_TYPE, dou_param(i).name), i);
  for (int i = 0; i < kNumStrParams; ++i)
    EXPECT_EQ(find_param(QBR_PAR_STR_TYPE, ("sparam." + lower(str_param(i).name + 9)).c_str()), i);
  EXPECT_EQ(find_param(QBR_PAR_INT_TYPE, "QBR_IPAR_"), -1);
  EXPECT_EQ(find_param(QBR_PAR_INT_TYPE, "iparam."), -1);
  EXPECT_EQ(find_param(QBR_PAR_INT_TYPE, std::string(5000, 'x').c_str()), -1);
  EXPECT_EQ(find_param(QBR_PAR_INT_TYPE, ("iparam." + std::string(3000, 'l')).c_str()), -1);
}

TEST(SymbolTable, ValuesOfEnumerationsParametersAndItems) {
  EXPECT_STREQ(symbol_value("QBR_ON"), "1");
  EXPECT_STREQ(symbol_value("QBR_OFF"), "0");
  EXPECT_STREQ(symbol_value("QBR_BK_RA"), "4");
  EXPECT_STREQ(symbol_value("QBR_DPAR_DATA_TOL_C_HUGE"), "12");
  EXPECT_STREQ(symbol_value("QBR_DINF_OPTIMIZER_TIME"), "31");
  EXPECT_STREQ(symbol_value("QBR_CALLBACK_WRITE_OPF"), "92");
  EXPECT_STREQ(symbol_value("QBR_RES_ERR_SPACE"), "1051");
  EXPECT_EQ(symbol_value("qbr_on"), nullptr);
}
