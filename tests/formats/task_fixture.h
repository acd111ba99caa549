// Tasks holding every kind of item, and an exact comparison of two whole tasks (problem,
// parameters, solutions, information items), for the formats that store a whole task.
#pragma once

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "formats/format_fixture.h"
#include "task/task.h"

// Same bits, so that NaN equals NaN and 0.0 differs from -0.0.
inline bool same_bits(double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0; }

inline void expect_same_doubles(const std::vector<double>& a, const std::vector<double>& b, const std::string& what) {
  ASSERT_EQ(a.size(), b.size()) << what;
  for (size_t k = 0; k < a.size(); ++k) EXPECT_TRUE(same_bits(a[k], b[k])) << what << "[" << k << "]: " << a[k] << " vs " << b[k];
}

// Fills `t` with a problem holding every kind of item: all bound keys with infinite sides,
// names with blanks and UTF-8, integer variables, quadratic objective and constraint terms,
// every cone type, matrix variables with objective and constraint coefficients, changed
// parameters, all three solution items (NaN and infinities included) and information items.
inline void fill_every_item(QBRtask_t t) {
  const double inf = 1e30;
  ASSERT_EQ(QBR_puttaskname(t, "task with ünïcode"), QBR_RES_OK);
  ASSERT_EQ(QBR_putobjname(t, "the objective"), QBR_RES_OK);
  ASSERT_EQ(QBR_putobjsense(t, QBR_OBJECTIVE_SENSE_MAXIMIZE), QBR_RES_OK);
  ASSERT_EQ(QBR_putcfix(t, -0.1), QBR_RES_OK);
  ASSERT_EQ(QBR_appendcons(t, 5), QBR_RES_OK);
  ASSERT_EQ(QBR_appendvars(t, 22), QBR_RES_OK);
  for (QBRint32t j = 0; j < 22; ++j) {
    ASSERT_EQ(QBR_putcj(t, j, 1.0 / (j + 3)), QBR_RES_OK);
    const QBRint32t bk = j % 5;
    ASSERT_EQ(QBR_putvarbound(t, j, bk, bk == QBR_BK_UP || bk == QBR_BK_FR ? -inf : -1.0 / 7,
                              bk == QBR_BK_LO || bk == QBR_BK_FR ? inf : (bk == QBR_BK_FX ? -1.0 / 7 : 2.5)),
              QBR_RES_OK);
    ASSERT_EQ(QBR_putaij(t, j % 5, j, std::sqrt(j + 2.0)), QBR_RES_OK);
  }
  for (QBRint32t i = 0; i < 5; ++i) {
    const QBRint32t bk = (i + 2) % 5;
    ASSERT_EQ(QBR_putconbound(t, i, bk, bk == QBR_BK_UP || bk == QBR_BK_FR ? -inf : 0.3,
                              bk == QBR_BK_LO || bk == QBR_BK_FR ? inf : (bk == QBR_BK_FX ? 0.3 : 1e7)),
              QBR_RES_OK);
  }
  ASSERT_EQ(QBR_putvarname(t, 0, "x with blanks"), QBR_RES_OK);
  ASSERT_EQ(QBR_putvarname(t, 1, "ζ_1"), QBR_RES_OK);
  ASSERT_EQ(QBR_putconname(t, 2, "c[2] ≤ 1"), QBR_RES_OK);
  const QBRint32t ints[] = {3, 4}, types[] = {QBR_VAR_TYPE_INT, QBR_VAR_TYPE_INT};
  ASSERT_EQ(QBR_putvartypelist(t, 2, ints, types), QBR_RES_OK);
  const QBRint32t qi[] = {0, 1, 1}, qj[] = {0, 0, 1};
  const double qv[] = {2.0, -0.5, 1.0 / 3};
  ASSERT_EQ(QBR_putqobj(t, 3, qi, qj, qv), QBR_RES_OK);
  ASSERT_EQ(QBR_putqconk(t, 1, 3, qi, qj, qv), QBR_RES_OK);
  // One cone of each type on variables 5 to 21.
  const QBRint32t quad[] = {5, 6, 7}, rquad[] = {8, 9, 10}, pexp[] = {11, 12, 13}, dexp[] = {14, 15, 16},
                  ppow[] = {17, 18, 19}, dpow[] = {20, 21, 2}, zero[] = {3};
  ASSERT_EQ(QBR_appendcone(t, QBR_CT_QUAD, 0.0, 3, quad), QBR_RES_OK);
  ASSERT_EQ(QBR_appendcone(t, QBR_CT_RQUAD, 0.0, 3, rquad), QBR_RES_OK);
  ASSERT_EQ(QBR_appendcone(t, QBR_CT_PEXP, 0.0, 3, pexp), QBR_RES_OK);
  ASSERT_EQ(QBR_appendcone(t, QBR_CT_DEXP, 0.0, 3, dexp), QBR_RES_OK);
  ASSERT_EQ(QBR_appendcone(t, QBR_CT_PPOW, 0.3, 3, ppow), QBR_RES_OK);
  ASSERT_EQ(QBR_appendcone(t, QBR_CT_DPOW, 0.75, 3, dpow), QBR_RES_OK);
  ASSERT_EQ(QBR_appendcone(t, QBR_CT_ZERO, 0.0, 1, zero), QBR_RES_OK);
  ASSERT_EQ(QBR_putconename(t, 4, "power cone"), QBR_RES_OK);
  const QBRint32t dims[] = {3, 1};
  ASSERT_EQ(QBR_appendbarvars(t, 2, dims), QBR_RES_OK);
  ASSERT_EQ(QBR_putbarvarname(t, 0, "X"), QBR_RES_OK);
  const QBRint32t si[] = {0, 2, 2}, sj[] = {0, 0, 2};
  const double sv[] = {1.0, 0.5, -2.25};
  QBRint64t m0 = 0, m1 = 0, m2 = 0;
  ASSERT_EQ(QBR_appendsparsesymmat(t, 3, 3, si, sj, sv, &m0), QBR_RES_OK);
  ASSERT_EQ(QBR_appendsparsesymmat(t, 3, 1, si, sj, sv, &m1), QBR_RES_OK);
  const QBRint32t one[] = {0};
  const double onev[] = {4.0};
  ASSERT_EQ(QBR_appendsparsesymmat(t, 1, 1, one, one, onev, &m2), QBR_RES_OK);
  const QBRint64t sub01[] = {m0, m1}, sub2[] = {m2};
  const double w01[] = {0.5, -1.0 / 3}, w2[] = {1.0};
  ASSERT_EQ(QBR_putbarcj(t, 0, 2, sub01, w01), QBR_RES_OK);
  ASSERT_EQ(QBR_putbarcj(t, 1, 1, sub2, w2), QBR_RES_OK);
  ASSERT_EQ(QBR_putbaraij(t, 0, 0, 1, sub01, w2), QBR_RES_OK);
  ASSERT_EQ(QBR_putbaraij(t, 4, 1, 1, sub2, w01), QBR_RES_OK);

  ASSERT_EQ(QBR_putintparam(t, QBR_IPAR_INTPNT_MAX_ITERATIONS, 77), QBR_RES_OK);
  ASSERT_EQ(QBR_putdouparam(t, QBR_DPAR_INTPNT_TOL_PFEAS, 1.0 / 3e9), QBR_RES_OK);
  ASSERT_EQ(QBR_putstrparam(t, QBR_SPAR_STAT_NAME, "name with = and \\ and\ttab"), QBR_RES_OK);

  for (QBRint32t w : {QBR_SOL_ITR, QBR_SOL_BAS, QBR_SOL_ITG}) {
    std::vector<double> xx(22), xc(5), y(5), s(22);
    std::vector<QBRint32t> skc(5, QBR_SK_BAS), skx(22, QBR_SK_LOW), skn(7, QBR_SK_SUPBAS);
    for (QBRint32t j = 0; j < 22; ++j) xx[j] = std::ldexp(j + w, -j), s[j] = -xx[j] / 3;
    xx[1] = std::nan(""), xx[2] = -HUGE_VAL, xx[4] = -0.0;
    for (QBRint32t i = 0; i < 5; ++i) xc[i] = i * 0.1 + w, y[i] = -i / 7.0;
    skc[1] = QBR_SK_UPR, skx[3] = QBR_SK_FIX, skn[2] = QBR_SK_INF;
    ASSERT_EQ(QBR_putsolution(t, w, skc.data(), skx.data(), skn.data(), xc.data(), xx.data(), y.data(), y.data(),
                              y.data(), s.data(), s.data(), s.data()),
              QBR_RES_OK);
    const double barx0[] = {1.0, 0.1 * w, 0.2, 3.0, std::nan(""), 1e-300}, barx1[] = {2.0 + w};
    ASSERT_EQ(QBR_putbarxj(t, w, 0, barx0), QBR_RES_OK);
    ASSERT_EQ(QBR_putbarxj(t, w, 1, barx1), QBR_RES_OK);
    if (w != QBR_SOL_ITG) {
      ASSERT_EQ(QBR_putbarsj(t, w, 0, barx0), QBR_RES_OK);
      ASSERT_EQ(QBR_putbarsj(t, w, 1, barx1), QBR_RES_OK);
    }
  }
  qubor::task::Task& impl = *t->impl;
  impl.solutions[QBR_SOL_ITR].prosta = QBR_PRO_STA_PRIM_AND_DUAL_FEAS;
  impl.solutions[QBR_SOL_ITR].solsta = QBR_SOL_STA_OPTIMAL;
  impl.solutions[QBR_SOL_BAS].prosta = QBR_PRO_STA_PRIM_INFEAS;
  impl.solutions[QBR_SOL_BAS].solsta = QBR_SOL_STA_PRIM_INFEAS_CER;
  impl.solutions[QBR_SOL_ITG].prosta = QBR_PRO_STA_PRIM_FEAS;
  impl.solutions[QBR_SOL_ITG].solsta = QBR_SOL_STA_INTEGER_OPTIMAL;
  impl.set_dinf(QBR_DINF_OPTIMIZER_TIME, 1.0 / 9);
  impl.set_iinf(QBR_IINF_INTPNT_ITER, 17);
  impl.set_liinf(QBR_LIINF_MIO_SIMPLEX_ITER, int64_t{1} << 40);
}

// Everything of two whole tasks, doubles bit for bit; `params` and `info` say whether
// parameters and information items are compared too. The read items (QBR_*INF_RD_*) describe
// the last read and are left out.
inline void expect_same_task(QBRtask_t a, QBRtask_t b, bool params = true, bool info = true) {
  expect_same_problem(a, b, 0.0);
  char na[1024] = {0}, nb[1024] = {0};
  QBR_gettaskname(a, sizeof na, na);
  QBR_gettaskname(b, sizeof nb, nb);
  EXPECT_STREQ(na, nb);
  QBRint32t numcone = 0;
  QBR_getnumcone(a, &numcone);
  for (QBRint32t k = 0; k < numcone; ++k) {
    QBR_getconename(a, k, sizeof na, na);
    QBR_getconename(b, k, sizeof nb, nb);
    EXPECT_STREQ(na, nb) << k;
  }
  const qubor::task::Task& ta = *a->impl;
  const qubor::task::Task& tb = *b->impl;
  if (params) {
    EXPECT_EQ(std::vector<int32_t>(ta.params.ints.begin(), ta.params.ints.end()),
              std::vector<int32_t>(tb.params.ints.begin(), tb.params.ints.end()));
    expect_same_doubles({ta.params.dous.begin(), ta.params.dous.end()}, {tb.params.dous.begin(), tb.params.dous.end()},
                        "dparam");
    for (size_t k = 0; k < ta.params.strs.size(); ++k)
      EXPECT_EQ(std::string(ta.params.strs[k]), std::string(tb.params.strs[k])) << k;
  }
  for (QBRint32t w : {QBR_SOL_ITR, QBR_SOL_BAS, QBR_SOL_ITG}) {
    const qubor::task::Solution& sa = ta.solutions[w];
    const qubor::task::Solution& sb = tb.solutions[w];
    ASSERT_EQ(sa.defined, sb.defined) << w;
    if (!sa.defined) continue;
    EXPECT_EQ(sa.prosta, sb.prosta) << w;
    EXPECT_EQ(sa.solsta, sb.solsta) << w;
    const auto ints = [](const auto& v) { return std::vector<int32_t>(v.begin(), v.end()); };
    const auto dous = [](const auto& v) { return std::vector<double>(v.begin(), v.end()); };
    EXPECT_EQ(ints(sa.skc), ints(sb.skc));
    EXPECT_EQ(ints(sa.skx), ints(sb.skx));
    EXPECT_EQ(ints(sa.skn), ints(sb.skn));
    const std::string item = std::to_string(w);
    expect_same_doubles(dous(sa.xx), dous(sb.xx), "xx" + item);
    expect_same_doubles(dous(sa.xc), dous(sb.xc), "xc" + item);
    expect_same_doubles(dous(sa.y), dous(sb.y), "y" + item);
    expect_same_doubles(dous(sa.slc), dous(sb.slc), "slc" + item);
    expect_same_doubles(dous(sa.suc), dous(sb.suc), "suc" + item);
    expect_same_doubles(dous(sa.slx), dous(sb.slx), "slx" + item);
    expect_same_doubles(dous(sa.sux), dous(sb.sux), "sux" + item);
    expect_same_doubles(dous(sa.snx), dous(sb.snx), "snx" + item);
    expect_same_doubles(dous(sa.barx), dous(sb.barx), "barx" + item);
    expect_same_doubles(dous(sa.bars), dous(sb.bars), "bars" + item);
  }
  if (info) {
    for (int i = 0; i < qubor::task::kNumDouInfo; ++i) {
      const std::string name = qubor::task::info_name(QBR_INF_DOU_TYPE, i);
      if (name.find("_RD_") != std::string::npos) continue;
      EXPECT_TRUE(same_bits(ta.info.dou[i], tb.info.dou[i])) << name;
    }
    for (int i = 0; i < qubor::task::kNumIntInfo; ++i) {
      const std::string name = qubor::task::info_name(QBR_INF_INT_TYPE, i);
      if (name.find("_RD_") != std::string::npos) continue;
      EXPECT_EQ(ta.info.ints[i], tb.info.ints[i]) << name;
    }
    for (int i = 0; i < qubor::task::kNumLintInfo; ++i) {
      const std::string name = qubor::task::info_name(QBR_INF_LINT_TYPE, i);
      if (name.find("_RD_") != std::string::npos) continue;
      EXPECT_EQ(ta.info.lint[i], tb.info.lint[i]) << name;
    }
  }
}

// A second task beside FormatTest's, to read back into, with its error stream captured.
class TwoTaskTest : public FormatTest {
 protected:
  void SetUp() override {
    FormatTest::SetUp();
    ASSERT_EQ(QBR_maketask(env, 0, 0, &other), QBR_RES_OK);
    QBR_linkfunctotaskstream(other, QBR_STREAM_ERR, &other_err, Captured::sink);
  }
  void TearDown() override {
    QBR_deletetask(&other);
    FormatTest::TearDown();
  }
  std::string other_message() {
    char buf[1024] = {0};
    QBRrescode code = 0;
    QBRint32t len = 0;
    QBR_getlasterror(other, &code, sizeof buf, &len, buf);
    return buf;
  }
  QBRtask_t other = nullptr;
  Captured other_err;
};
