// Parameters: names, ranges, strings, text values and the parameter file.
#include <cmath>
#include <cstdio>
#include <fstream>
#include <random>
#include <sstream>
#include <string>

#include "fixture.h"

namespace {
std::string temp_path(const char* name) { return std::string(::testing::TempDir()) + name; }

void write_file(const std::string& path, const std::string& text) {
  std::ofstream f(path, std::ios::binary);
  f << text;
}
}  // namespace

TEST_F(TaskTest, NameFormsAndCase) {
  EXPECT_EQ(QBR_putnaintparam(task, "iparam.log", 4), QBR_RES_OK);
  QBRint32t v = 0;
  EXPECT_EQ(QBR_getnaintparam(task, "QBR_IPAR_LOG", &v), QBR_RES_OK);
  EXPECT_EQ(v, 4);
  EXPECT_EQ(QBR_putnaintparam(task, "iparam.LoG", 5), QBR_RES_OK);
  EXPECT_EQ(QBR_getintparam(task, QBR_IPAR_LOG, &v), QBR_RES_OK);
  EXPECT_EQ(v, 5);
  EXPECT_EQ(QBR_putnaintparam(task, "qbr_ipar_log", 6), QBR_RES_ERR_PARAM_NAME_INT);
  EXPECT_EQ(last_message(), "The parameter name 'qbr_ipar_log' is invalid for an int parameter.");
  EXPECT_EQ(QBR_putnadouparam(task, "QBR_IPAR_LOG", 1.0), QBR_RES_ERR_PARAM_NAME_DOU);
  EXPECT_EQ(QBR_putnastrparam(task, "IPARAM.log", "x"), QBR_RES_ERR_PARAM_NAME_STR);
  EXPECT_EQ(QBR_putnaintparam(task, nullptr, 1), QBR_RES_ERR_PARAM_NAME_INT);
  // Index order is not byte order: the lookup maps sorted positions back to indices.
  EXPECT_EQ(QBR_isdouparname(task, "QBR_DPAR_DATA_TOL_C_HUGE", &v), QBR_RES_OK);
  EXPECT_EQ(v, 12);
  EXPECT_EQ(QBR_isdouparname(task, "dparam.data_tol_cj_large", &v), QBR_RES_OK);
  EXPECT_EQ(v, 13);
  QBRint32t type = -1;
  EXPECT_EQ(QBR_whichparam(task, "sparam.stat_key", &type, &v), QBR_RES_OK);
  EXPECT_EQ(type, QBR_PAR_STR_TYPE);
  EXPECT_EQ(v, QBR_SPAR_STAT_KEY);
  EXPECT_EQ(QBR_whichparam(task, "nothing", &type, &v), QBR_RES_OK);
  EXPECT_EQ(type, QBR_PAR_INVALID_TYPE);
}

TEST_F(TaskTest, RangesAreInclusiveAndFailuresKeepTheOldValue) {
  QBRint32t v = 0;
  EXPECT_EQ(QBR_putintparam(task, QBR_IPAR_WRITE_LP_LINE_WIDTH, 39), QBR_RES_ERR_PARAM_IS_TOO_SMALL);
  EXPECT_EQ(last_message(), "The parameter value 39 is too small for parameter 'QBR_IPAR_WRITE_LP_LINE_WIDTH'.");
  EXPECT_EQ(QBR_getintparam(task, QBR_IPAR_WRITE_LP_LINE_WIDTH, &v), QBR_RES_OK);
  EXPECT_EQ(v, 80);
  EXPECT_EQ(QBR_putintparam(task, QBR_IPAR_WRITE_LP_LINE_WIDTH, 40), QBR_RES_OK);
  EXPECT_EQ(QBR_putintparam(task, QBR_IPAR_SIM_SEED, 32749), QBR_RES_OK);
  EXPECT_EQ(QBR_putintparam(task, QBR_IPAR_SIM_SEED, 32750), QBR_RES_ERR_PARAM_IS_TOO_LARGE);
  EXPECT_EQ(QBR_putintparam(task, QBR_IPAR_MAX_NUM_WARNINGS, -7), QBR_RES_OK);
  EXPECT_EQ(QBR_putintparam(task, QBR_IPAR_OPTIMIZER, 7), QBR_RES_ERR_PARAM_IS_TOO_LARGE);
  EXPECT_EQ(QBR_putintparam(task, QBR_IPAR_SENSITIVITY_TYPE, 1), QBR_RES_ERR_PARAM_IS_TOO_LARGE);
  EXPECT_EQ(QBR_putintparam(task, QBR_IPAR_INTPNT_MAX_NUM_COR, -2), QBR_RES_ERR_PARAM_IS_TOO_SMALL);
  EXPECT_EQ(QBR_putintparam(task, QBR_IPAR_INTPNT_MAX_NUM_COR, -1), QBR_RES_OK);

  double d = 0;
  EXPECT_EQ(QBR_putdouparam(task, QBR_DPAR_INTPNT_TOL_REL_STEP, 1.0), QBR_RES_ERR_PARAM_IS_TOO_LARGE);
  EXPECT_EQ(QBR_putdouparam(task, QBR_DPAR_INTPNT_TOL_REL_STEP, 0.999999), QBR_RES_OK);
  EXPECT_EQ(QBR_putdouparam(task, QBR_DPAR_DATA_SYM_MAT_TOL, 1.0e-17), QBR_RES_ERR_PARAM_IS_TOO_SMALL);
  EXPECT_EQ(QBR_putdouparam(task, QBR_DPAR_INTPNT_TOL_PFEAS, std::nan("")), QBR_RES_ERR_PARAM_IS_TOO_SMALL);
  EXPECT_EQ(QBR_getdouparam(task, QBR_DPAR_INTPNT_TOL_PFEAS, &d), QBR_RES_OK);
  EXPECT_EQ(d, 1.0e-8);
  EXPECT_EQ(QBR_putdouparam(task, QBR_DPAR_OPTIMIZER_MAX_TIME, -123.0), QBR_RES_OK);

  EXPECT_EQ(QBR_putintparam(task, QBR_IPAR_WRITE_XML_MODE + 1, 0), QBR_RES_ERR_PARAM_INDEX);
  EXPECT_EQ(last_message(), "The parameter index 178 is invalid for a parameter of type int.");
  EXPECT_EQ(QBR_getdouparam(task, 59, &d), QBR_RES_ERR_PARAM_INDEX);
  EXPECT_EQ(QBR_putstrparam(task, 24, "x"), QBR_RES_ERR_PARAM_INDEX);
}

TEST_F(TaskTest, QuotedStringValues) {
  char buf[64];
  QBRint32t len = 0;
  ASSERT_EQ(QBR_putstrparam(task, QBR_SPAR_STAT_NAME, "\"a\\\"b\""), QBR_RES_OK);
  EXPECT_EQ(QBR_getstrparam(task, QBR_SPAR_STAT_NAME, sizeof buf, &len, buf), QBR_RES_OK);
  EXPECT_STREQ(buf, "a\"b");
  EXPECT_EQ(len, 3);
  ASSERT_EQ(QBR_putstrparam(task, QBR_SPAR_STAT_NAME, "\"unterminated \\x"), QBR_RES_OK);
  EXPECT_EQ(QBR_getstrparam(task, QBR_SPAR_STAT_NAME, sizeof buf, &len, buf), QBR_RES_OK);
  EXPECT_STREQ(buf, "unterminated \\x");
  ASSERT_EQ(QBR_putstrparam(task, QBR_SPAR_STAT_NAME, nullptr), QBR_RES_OK);
  EXPECT_EQ(QBR_getstrparamlen(task, QBR_SPAR_STAT_NAME, &len), QBR_RES_OK);
  EXPECT_EQ(len, 0);
  ASSERT_EQ(QBR_putstrparam(task, QBR_SPAR_STAT_NAME, "abcdefgh"), QBR_RES_OK);
  EXPECT_EQ(QBR_getstrparam(task, QBR_SPAR_STAT_NAME, 4, &len, buf), QBR_RES_OK);
  EXPECT_STREQ(buf, "abc");
  EXPECT_EQ(len, 8);
  char* al = nullptr;
  ASSERT_EQ(QBR_getstrparamal(task, QBR_SPAR_STAT_NAME, 5, &al), QBR_RES_OK);
  EXPECT_STREQ(al, "abcdefgh");
  QBR_freetask(task, al);
  EXPECT_EQ(QBR_getnastrparam(task, "QBR_SPAR_PARAM_COMMENT_SIGN", sizeof buf, &len, buf), QBR_RES_OK);
  EXPECT_STREQ(buf, "%%");
  EXPECT_EQ(QBR_getnastrparam(task, "QBR_SPAR_WRITE_LP_GEN_VAR_NAME", sizeof buf, &len, buf), QBR_RES_OK);
  EXPECT_STREQ(buf, "XQBRGEN");
}

TEST_F(TaskTest, PutParamFromText) {
  QBRint32t v = 0;
  double d = 0;
  EXPECT_EQ(QBR_putparam(task, "QBR_IPAR_INTPNT_BASIS", "QBR_OFF"), QBR_RES_OK);
  EXPECT_EQ(QBR_getintparam(task, QBR_IPAR_INTPNT_BASIS, &v), QBR_RES_OK);
  EXPECT_EQ(v, 0);
  EXPECT_EQ(QBR_putparam(task, "QBR_IPAR_OPTIMIZER", "QBR_OPTIMIZER_INTPNT"), QBR_RES_OK);
  EXPECT_EQ(QBR_getintparam(task, QBR_IPAR_OPTIMIZER, &v), QBR_RES_OK);
  EXPECT_EQ(v, QBR_OPTIMIZER_INTPNT);
  EXPECT_EQ(QBR_putparam(task, "dparam.intpnt_tol_pfeas", "1e-9"), QBR_RES_OK);
  EXPECT_EQ(QBR_getdouparam(task, QBR_DPAR_INTPNT_TOL_PFEAS, &d), QBR_RES_OK);
  EXPECT_EQ(d, 1e-9);
  EXPECT_EQ(QBR_putparam(task, "QBR_IPAR_LOG", "ten"), QBR_RES_ERR_PARAM_VALUE_STR);
  EXPECT_EQ(QBR_putparam(task, "QBR_IPAR_LOG", "5x"), QBR_RES_ERR_PARAM_VALUE_STR);
  EXPECT_EQ(QBR_putparam(task, "QBR_IPAR_LOG", "99999999999"), QBR_RES_ERR_PARAM_VALUE_STR);
  EXPECT_EQ(QBR_putparam(task, "QBR_DPAR_INTPNT_TOL_PFEAS", ""), QBR_RES_ERR_PARAM_VALUE_STR);
  EXPECT_EQ(QBR_putparam(task, "QBR_XPAR_LOG", "1"), QBR_RES_ERR_PARAM_NAME);
  EXPECT_EQ(last_message(), "The parameter name 'QBR_XPAR_LOG' is invalid.");
}

TEST_F(TaskTest, SetDefaultsRestoresEveryType) {
  QBR_putintparam(task, QBR_IPAR_LOG, 1);
  QBR_putdouparam(task, QBR_DPAR_MIO_TOL_REL_GAP, 0.5);
  QBR_putstrparam(task, QBR_SPAR_PARAM_COMMENT_SIGN, "#");
  ASSERT_EQ(QBR_setdefaults(task), QBR_RES_OK);
  QBRint32t v = 0;
  double d = 0;
  char s[16];
  QBR_getintparam(task, QBR_IPAR_LOG, &v);
  QBR_getdouparam(task, QBR_DPAR_MIO_TOL_REL_GAP, &d);
  QBR_getstrparam(task, QBR_SPAR_PARAM_COMMENT_SIGN, sizeof s, nullptr, s);
  EXPECT_EQ(v, 10);
  EXPECT_EQ(d, 1.0e-4);
  EXPECT_STREQ(s, "%%");
}

TEST_F(TaskTest, ParamNamesAndSymbols) {
  char name[1024];
  EXPECT_EQ(QBR_getparamname(task, QBR_PAR_INT_TYPE, QBR_IPAR_LOG, name), QBR_RES_OK);
  EXPECT_STREQ(name, "QBR_IPAR_LOG");
  EXPECT_EQ(QBR_getparamname(task, QBR_PAR_INVALID_TYPE, 0, name), QBR_RES_ERR_PARAM_TYPE);
  QBRint32t n = 0;
  EXPECT_EQ(QBR_getnumparam(task, QBR_PAR_INT_TYPE, &n), QBR_RES_OK);
  EXPECT_EQ(n, 178);
  EXPECT_EQ(QBR_getparammax(task, QBR_PAR_DOU_TYPE, &n), QBR_RES_OK);
  EXPECT_EQ(n, 59);
  EXPECT_EQ(QBR_getnumparam(task, QBR_PAR_STR_TYPE, &n), QBR_RES_OK);
  EXPECT_EQ(n, 24);

  char value[1024];
  EXPECT_EQ(QBR_symnamtovalue("QBR_ON", value), 1);
  EXPECT_STREQ(value, "1");
  EXPECT_EQ(QBR_symnamtovalue("QBR_OFF", value), 1);
  EXPECT_STREQ(value, "0");
  EXPECT_EQ(QBR_symnamtovalue("QBR_IPAR_LOG", value), 1);
  EXPECT_STREQ(value, "35");
  EXPECT_EQ(QBR_symnamtovalue("QBR_RES_TRM_USER_CALLBACK", value), 1);
  EXPECT_STREQ(value, "10007");
  EXPECT_EQ(QBR_symnamtovalue("QBR_NOTHING", value), 0);
  EXPECT_EQ(QBR_symnamtovalue(nullptr, value), 0);

  char sym[1024];
  EXPECT_EQ(QBR_iparvaltosymnam(env, QBR_IPAR_OPTIMIZER, QBR_OPTIMIZER_INTPNT, sym), QBR_RES_OK);
  EXPECT_STREQ(sym, "QBR_OPTIMIZER_INTPNT");
  EXPECT_EQ(QBR_iparvaltosymnam(env, QBR_IPAR_WRITE_SOL_HEAD, 1, sym), QBR_RES_OK);
  EXPECT_STREQ(sym, "QBR_ON");
  EXPECT_EQ(QBR_iparvaltosymnam(env, 178, 1, sym), QBR_RES_OK);
  EXPECT_STREQ(sym, "");
  EXPECT_EQ(QBR_iparvaltosymnam(env, QBR_IPAR_LOG, 1, sym), QBR_RES_OK);
  EXPECT_STREQ(sym, "");
}

TEST_F(TaskTest, ParamFileRoundTrip) {
  const std::string path = temp_path("roundtrip.par");
  QBR_putintparam(task, QBR_IPAR_LOG, 3);
  QBR_putintparam(task, QBR_IPAR_MAX_NUM_WARNINGS, -4);
  QBR_putdouparam(task, QBR_DPAR_INTPNT_TOL_PFEAS, 1.2345678e-9);
  QBR_putstrparam(task, QBR_SPAR_STAT_NAME, "two words");
  QBR_putstrparam(task, QBR_SPAR_STAT_KEY, " padded \"q\" ");
  ASSERT_EQ(QBR_writeparamfile(task, path.c_str()), QBR_RES_OK);
  EXPECT_NE(msg.text.find("Writing par file:  " + path + "\n"), std::string::npos) << msg.text;

  QBRtask_t other = nullptr;
  ASSERT_EQ(QBR_maketask(env, 0, 0, &other), QBR_RES_OK);
  ASSERT_EQ(QBR_readparamfile(other, path.c_str()), QBR_RES_OK);
  for (int i = 0; i < 178; ++i) {
    QBRint32t a = 0, b = 0;
    QBR_getintparam(task, i, &a);
    QBR_getintparam(other, i, &b);
    EXPECT_EQ(a, b) << i;
  }
  for (int i = 0; i < 59; ++i) {
    double a = 0, b = 0;
    QBR_getdouparam(task, i, &a);
    QBR_getdouparam(other, i, &b);
    EXPECT_DOUBLE_EQ(a, b) << i;
  }
  for (int i = 0; i < 24; ++i) {
    char a[1024], b[1024];
    QBR_getstrparam(task, i, sizeof a, nullptr, a);
    QBR_getstrparam(other, i, sizeof b, nullptr, b);
    EXPECT_STREQ(a, b) << i;
  }
  QBR_deletetask(&other);
}

TEST_F(TaskTest, ParamFileReadingRules) {
  const std::string path = temp_path("rules.par");
  write_file(path,
             "QBR_IPAR_LOG 1\n"  // before BEGIN: ignored
             "BEGIN QUBOR\n"
             "  QBR_IPAR_LOG_INTPNT   7   % a comment\n"
             "QBR_IPAR_INTPNT_BASIS QBR_OFF\n"
             "QBR_DPAR_MIO_TOL_REL_GAP\t2.5e-3\n"
             "QBR_SPAR_STAT_NAME \"quoted % not a comment\"\n"
             "QBR_IPAR_NUM_THREADS\n"  // no value: skipped
             "% whole line comment\n"
             "END QUBOR\n"
             "QBR_IPAR_LOG 2\n");
  ASSERT_EQ(QBR_readparamfile(task, path.c_str()), QBR_RES_OK);
  QBRint32t v = 0;
  double d = 0;
  char s[64];
  QBR_getintparam(task, QBR_IPAR_LOG, &v);
  EXPECT_EQ(v, 10);
  QBR_getintparam(task, QBR_IPAR_LOG_INTPNT, &v);
  EXPECT_EQ(v, 7);
  QBR_getintparam(task, QBR_IPAR_INTPNT_BASIS, &v);
  EXPECT_EQ(v, 0);
  QBR_getdouparam(task, QBR_DPAR_MIO_TOL_REL_GAP, &d);
  EXPECT_EQ(d, 2.5e-3);
  QBR_getstrparam(task, QBR_SPAR_STAT_NAME, sizeof s, nullptr, s);
  EXPECT_STREQ(s, "quoted % not a comment");
  EXPECT_NE(msg.text.find("Reading par file - " + path + "\n"), std::string::npos);
  EXPECT_NE(msg.text.find("done reading. Time: "), std::string::npos);
}

TEST_F(TaskTest, ParamFileErrors) {
  const std::string path = temp_path("errors.par");
  write_file(path, "BEGIN QUBOR\nQBR_IPAR_LOG 3\nQBR_IPAR_BOGUS 1\nQBR_IPAR_LOG_BI 9\nEND QUBOR\n");
  EXPECT_EQ(QBR_readparamfile(task, path.c_str()), QBR_RES_ERR_PARAM_NAME);
  EXPECT_NE(err.text.find("The error occurred in line:\nQBR_IPAR_BOGUS 1\n"), std::string::npos) << err.text;
  QBRint32t v = 0;
  QBR_getintparam(task, QBR_IPAR_LOG, &v);
  EXPECT_EQ(v, 3);  // lines before the failure stay applied
  QBR_getintparam(task, QBR_IPAR_LOG_BI, &v);
  EXPECT_EQ(v, 1);

  ASSERT_EQ(QBR_putintparam(task, QBR_IPAR_PARAM_READ_IGN_ERROR, 1), QBR_RES_OK);
  EXPECT_EQ(QBR_readparamfile(task, path.c_str()), QBR_RES_OK);
  QBR_getintparam(task, QBR_IPAR_LOG_BI, &v);
  EXPECT_EQ(v, 9);

  write_file(path, "no begin line\nQBR_IPAR_LOG 1\n");
  EXPECT_EQ(QBR_readparamfile(task, path.c_str()), QBR_RES_OK);
  EXPECT_NE(msg.text.find("No parameters found\n"), std::string::npos);

  // Names are upper-cased unless the case is to be kept.
  write_file(path, "BEGIN QUBOR\nqbr_ipar_log 4\nEND QUBOR\n");
  ASSERT_EQ(QBR_putintparam(task, QBR_IPAR_PARAM_READ_IGN_ERROR, 0), QBR_RES_OK);
  EXPECT_EQ(QBR_readparamfile(task, path.c_str()), QBR_RES_ERR_PARAM_NAME);
  ASSERT_EQ(QBR_putintparam(task, QBR_IPAR_PARAM_READ_CASE_NAME, 0), QBR_RES_OK);
  EXPECT_EQ(QBR_readparamfile(task, path.c_str()), QBR_RES_OK);
  QBR_getintparam(task, QBR_IPAR_LOG, &v);
  EXPECT_EQ(v, 4);

  // No file name at all: only the open warning.
  EXPECT_EQ(QBR_readparamfile(task, nullptr), QBR_RES_OK);
  EXPECT_NE(wrn.text.find("QUBOR warning 50: Could not open the parameter file ''."), std::string::npos);
  EXPECT_EQ(QBR_writeparamfile(task, "/nonexistent/dir/x.par"), QBR_RES_ERR_FILE_OPEN);
}

// Random bytes, long lines and random parameter lines must never crash or hang the reader.
TEST_F(TaskTest, ParamFileReaderSurvivesGarbage) {
  const std::string path = temp_path("fuzz.par");
  std::mt19937 rng(12345);
  const char* names[] = {"QBR_IPAR_LOG", "QBR_DPAR_INTPNT_TOL_PFEAS", "QBR_SPAR_STAT_NAME", "iparam.log", "X"};
  QBR_putintparam(task, QBR_IPAR_PARAM_READ_IGN_ERROR, 1);
  QBR_putintparam(task, QBR_IPAR_MAX_NUM_WARNINGS, 0);
  for (int round = 0; round < 200; ++round) {
    std::string text = (round % 3 == 0) ? "" : "BEGIN QUBOR\n";
    int lines = static_cast<int>(rng() % 20);
    for (int l = 0; l < lines; ++l) {
      if (rng() % 4 == 0) {
        size_t n = rng() % 3000;
        for (size_t k = 0; k < n; ++k) text.push_back(static_cast<char>(rng() % 256));
      } else {
        text += names[rng() % 5];
        text += " ";
        for (int k = 0; k < 6; ++k) text.push_back("0123456789.e-+\"\\% QBR_ON"[rng() % 24]);
      }
      text += (rng() % 5 == 0) ? "\r\n" : "\n";
    }
    if (round % 2) text += "END QUBOR\n";
    write_file(path, text);
    QBRrescode r = QBR_readparamfile(task, path.c_str());
    EXPECT_TRUE(r == QBR_RES_OK || r >= 1000) << r;
    // Whatever was read, every integer parameter stays inside its range or unchecked.
    QBRint32t v = 0;
    QBR_getintparam(task, QBR_IPAR_LOG, &v);
    EXPECT_GE(v, 0);
  }
}
