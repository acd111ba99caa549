// Whole runs of the mixed-integer optimizer through the C interface: small models with
// known optima, statuses of infeasible and unbounded problems, limits and their response
// codes, the callback, the construct solution, the log, and fast MIPLIB instances.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "fixture.h"
#include "qubor.h"

namespace {

class MioTest : public TaskTest {
 protected:
  void SetUp() override {
    TaskTest::SetUp();
    QBR_linkfunctotaskstream(task, QBR_STREAM_LOG, &log, Captured::sink);
  }
  // Appends a constraint sum a_k x_k in [lo, up] (bound key from the infinities).
  void add_row(const std::vector<QBRint32t>& cols, const std::vector<double>& vals, double lo, double up) {
    QBRint32t i = 0;
    QBR_getnumcon(task, &i);
    ASSERT_EQ(QBR_appendcons(task, 1), QBR_RES_OK);
    ASSERT_EQ(QBR_putarow(task, i, static_cast<QBRint32t>(cols.size()), cols.data(), vals.data()), QBR_RES_OK);
    QBRboundkey_e bk = QBR_BK_RA;
    if (lo == up) bk = QBR_BK_FX;
    else if (lo <= -QBR_INFINITY) bk = QBR_BK_UP;
    else if (up >= QBR_INFINITY) bk = QBR_BK_LO;
    ASSERT_EQ(QBR_putconbound(task, i, bk, lo, up), QBR_RES_OK);
  }
  // n integer variables in [lo, up] with costs c.
  void add_int_vars(const std::vector<double>& c, double lo, double up) {
    QBRint32t first = 0;
    QBR_getnumvar(task, &first);
    ASSERT_EQ(QBR_appendvars(task, static_cast<QBRint32t>(c.size())), QBR_RES_OK);
    for (size_t k = 0; k < c.size(); ++k) {
      const QBRint32t j = first + static_cast<QBRint32t>(k);
      QBR_putcj(task, j, c[k]);
      QBR_putvarbound(task, j, QBR_BK_RA, lo, up);
      QBR_putvartype(task, j, QBR_VAR_TYPE_INT);
    }
  }
  QBRint32t itg_solsta() {
    QBRint32t s = -1;
    QBR_getsolsta(task, QBR_SOL_ITG, &s);
    return s;
  }
  QBRint32t itg_prosta() {
    QBRint32t s = -1;
    QBR_getprosta(task, QBR_SOL_ITG, &s);
    return s;
  }
  double itg_obj() {
    QBRrealt v = 0;
    QBR_getprimalobj(task, QBR_SOL_ITG, &v);
    return v;
  }
  std::vector<double> itg_xx() {
    QBRint32t n = 0;
    QBR_getnumvar(task, &n);
    std::vector<double> x(static_cast<size_t>(n));
    QBR_getxx(task, QBR_SOL_ITG, x.data());
    return x;
  }
  // max 10 x0 + 13 x1 + 7 x2 + 8 x3 + 9 x4 : 4 x0 + 6 x1 + 3 x2 + 4 x3 + 5 x4 <= 12, binary.
  // Optimum 27 (x1, x2, x4... enumerated in the test below).
  void load_knapsack() {
    add_int_vars({10, 13, 7, 8, 9}, 0, 1);
    add_row({0, 1, 2, 3, 4}, {4, 6, 3, 4, 5}, -QBR_INFINITY, 12);
    QBR_putobjsense(task, QBR_OBJECTIVE_SENSE_MAXIMIZE);
  }
  Captured log;
};

// Brute force over the 32 points of the knapsack.
double knapsack_optimum() {
  const double c[5] = {10, 13, 7, 8, 9}, w[5] = {4, 6, 3, 4, 5};
  double best = 0;
  for (int m = 0; m < 32; ++m) {
    double cw = 0, cv = 0;
    for (int k = 0; k < 5; ++k)
      if (m & (1 << k)) cw += w[k], cv += c[k];
    if (cw <= 12) best = std::max(best, cv);
  }
  return best;
}

TEST_F(MioTest, KnapsackMaximizationIsIntegerOptimal) {
  load_knapsack();
  QBRrescode trm = -1;
  ASSERT_EQ(QBR_optimizetrm(task, &trm), QBR_RES_OK);
  EXPECT_EQ(trm, QBR_RES_OK);
  EXPECT_EQ(itg_solsta(), QBR_SOL_STA_INTEGER_OPTIMAL);
  EXPECT_EQ(itg_prosta(), QBR_PRO_STA_PRIM_FEAS);
  EXPECT_NEAR(itg_obj(), knapsack_optimum(), 1e-9);
  for (double v : itg_xx()) EXPECT_EQ(v, std::round(v));
  EXPECT_NEAR(dinf(QBR_DINF_MIO_OBJ_INT), knapsack_optimum(), 1e-9);
  EXPECT_GE(dinf(QBR_DINF_MIO_OBJ_BOUND), knapsack_optimum() - 1e-9);  // a bound of a maximum
  EXPECT_GE(iinf(QBR_IINF_MIO_NUM_RELAX), 1);
  EXPECT_EQ(iinf(QBR_IINF_MIO_OBJ_BOUND_DEFINED), 1);
  EXPECT_EQ(iinf(QBR_IINF_MIO_NUMBIN), 5);
  // The integer item has keys and activities but no duals.
  QBRrealt xc = 0;
  QBR_getxc(task, QBR_SOL_ITG, &xc);
  EXPECT_LE(xc, 12.0 + 1e-9);
  // The log: header, summary and the integer item's summary.
  EXPECT_NE(log.text.find("Mixed integer optimizer started.\n"), std::string::npos);
  EXPECT_NE(log.text.find("BRANCHES RELAXS   ACT_NDS  DEPTH    BEST_INT_OBJ         BEST_RELAX_OBJ       REL_GAP(%)  TIME  \n"),
            std::string::npos);
  EXPECT_NE(log.text.find("Objective of best integer solution : 2.600000000000e+01"), std::string::npos) << log.text;
  EXPECT_NE(log.text.find("Construct solution objective       : Not employed\n"), std::string::npos);
  EXPECT_NE(log.text.find("Mixed integer optimizer terminated. Time: "), std::string::npos);
}

// Set cover: each element of {0..5} covered by a chosen set; costs of six sets.
TEST_F(MioTest, SetCoverHasTheEnumeratedOptimum) {
  const std::vector<std::vector<int>> sets = {{0, 1, 2}, {2, 3}, {3, 4, 5}, {0, 5}, {1, 4}, {0, 1, 2, 3, 4, 5}};
  const std::vector<double> cost = {3, 2, 3, 2, 2, 7};
  add_int_vars(cost, 0, 1);
  for (int e = 0; e < 6; ++e) {
    std::vector<QBRint32t> cols;
    std::vector<double> vals;
    for (size_t s = 0; s < sets.size(); ++s)
      for (int x : sets[s])
        if (x == e) cols.push_back(static_cast<QBRint32t>(s)), vals.push_back(1.0);
    add_row(cols, vals, 1.0, QBR_INFINITY);
  }
  double best = 1e30;
  for (int m = 0; m < 64; ++m) {
    int covered = 0;
    double c = 0;
    for (size_t s = 0; s < sets.size(); ++s)
      if (m & (1 << s)) {
        c += cost[s];
        for (int x : sets[s]) covered |= 1 << x;
      }
    if (covered == 63) best = std::min(best, c);
  }
  ASSERT_EQ(QBR_optimize(task), QBR_RES_OK);
  EXPECT_EQ(itg_solsta(), QBR_SOL_STA_INTEGER_OPTIMAL);
  EXPECT_NEAR(itg_obj(), best, 1e-9);
}

// 2 x + 2 y = 3 has real but no integer solutions.
TEST_F(MioTest, IntegerInfeasibleWithFeasibleRelaxation) {
  add_int_vars({1, 1}, 0, 10);
  add_row({0, 1}, {2, 2}, 3, 3);
  ASSERT_EQ(QBR_optimize(task), QBR_RES_OK);
  EXPECT_EQ(itg_prosta(), QBR_PRO_STA_PRIM_INFEAS);
  EXPECT_EQ(itg_solsta(), QBR_SOL_STA_UNKNOWN);
  EXPECT_NE(log.text.find("Objective of best integer solution : Not available.\n"), std::string::npos);
  // No integer solution: the log's integer and gap columns print NA.
  EXPECT_NE(log.text.find("NA                   "), std::string::npos);
}

TEST_F(MioTest, IntegerColumnWithoutIntegerInItsBoundsIsInfeasible) {
  add_int_vars({1}, 0.2, 0.8);
  ASSERT_EQ(QBR_optimize(task), QBR_RES_OK);
  EXPECT_EQ(itg_prosta(), QBR_PRO_STA_PRIM_INFEAS);
}

TEST_F(MioTest, UnboundedRelaxationIsReportedAsInfeasibleOrUnbounded) {
  add_int_vars({-1, 0}, 0, 0);
  QBR_putvarbound(task, 0, QBR_BK_LO, 0, QBR_INFINITY);
  QBR_putvarbound(task, 1, QBR_BK_LO, 0, QBR_INFINITY);
  add_row({0, 1}, {1, -1}, 0, 0);
  ASSERT_EQ(QBR_optimize(task), QBR_RES_OK);
  EXPECT_EQ(itg_prosta(), QBR_PRO_STA_PRIM_INFEAS_OR_UNBOUNDED);
  EXPECT_NE(itg_solsta(), QBR_SOL_STA_INTEGER_OPTIMAL);
}

// General integers with negative bounds and a continuous column:
// min 3x - 2y + z : x + y + z >= -7.5, y - x <= 2.5, z >= -1.25, x, y in [-6, 4] integer.
TEST_F(MioTest, GeneralIntegersWithNegativeBoundsAndAContinuousColumn) {
  add_int_vars({3, -2}, -6, 4);
  ASSERT_EQ(QBR_appendvars(task, 1), QBR_RES_OK);
  QBR_putcj(task, 2, 1.0);
  QBR_putvarbound(task, 2, QBR_BK_LO, -1.25, QBR_INFINITY);
  add_row({0, 1, 2}, {1, 1, 1}, -7.5, QBR_INFINITY);
  add_row({0, 1}, {-1, 1}, -QBR_INFINITY, 2.5);
  double best = 1e30;
  for (int x = -6; x <= 4; ++x)
    for (int y = -6; y <= 4; ++y) {
      if (y - x > 2.5) continue;
      const double z = std::max(-1.25, -7.5 - x - y);
      best = std::min(best, 3.0 * x - 2.0 * y + z);
    }
  ASSERT_EQ(QBR_optimize(task), QBR_RES_OK);
  EXPECT_EQ(itg_solsta(), QBR_SOL_STA_INTEGER_OPTIMAL);
  EXPECT_NEAR(itg_obj(), best, 1e-7);
}

// Equality knapsack: 3 a + 5 b + 7 c = 29 with a, b, c in [0, 9], min a + b + c.
TEST_F(MioTest, EqualityKnapsack) {
  add_int_vars({1, 1, 1}, 0, 9);
  add_row({0, 1, 2}, {3, 5, 7}, 29, 29);
  double best = 1e30;
  for (int a = 0; a <= 9; ++a)
    for (int b = 0; b <= 9; ++b)
      for (int c = 0; c <= 9; ++c)
        if (3 * a + 5 * b + 7 * c == 29) best = std::min(best, static_cast<double>(a + b + c));
  ASSERT_EQ(QBR_optimize(task), QBR_RES_OK);
  EXPECT_EQ(itg_solsta(), QBR_SOL_STA_INTEGER_OPTIMAL);
  EXPECT_NEAR(itg_obj(), best, 1e-9);
  const std::vector<double> x = itg_xx();
  EXPECT_NEAR(3 * x[0] + 5 * x[1] + 7 * x[2], 29.0, 1e-9);
}


class MioLimits : public MioTest {
 protected:
  void load_many_nodes() {
    std::vector<double> c, w;
    for (int k = 0; k < 14; ++k) {
      c.push_back(1.0);
      w.push_back(2.0);
    }
    add_int_vars(c, 0, 1);
    std::vector<QBRint32t> cols;
    for (int k = 0; k < 14; ++k) cols.push_back(k);
    add_row(cols, w, 13, 13);  // 2 sum x = 13: infeasible, only branching (or cuts) show it
    QBR_putintparam(task, QBR_IPAR_MIO_HEURISTIC_LEVEL, 0);
    QBR_putintparam(task, QBR_IPAR_MIO_CUT_KNAPSACK_COVER, QBR_OFF);
  }
};

TEST_F(MioLimits, RelaxationAndBranchLimitsEndWithTheirCodes) {
  load_many_nodes();
  QBR_putintparam(task, QBR_IPAR_MIO_MAX_NUM_RELAXS, 3);
  QBRrescode trm = -1;
  ASSERT_EQ(QBR_optimizetrm(task, &trm), QBR_RES_OK);
  EXPECT_EQ(trm, QBR_RES_TRM_MIO_NUM_RELAXS);
  EXPECT_EQ(iinf(QBR_IINF_MIO_NUM_RELAX), 3);
  EXPECT_NE(log.text.find("Maximum number of relaxations 3 is reached.\n"), std::string::npos);
  EXPECT_EQ(itg_prosta(), QBR_PRO_STA_UNKNOWN);
  QBR_putintparam(task, QBR_IPAR_MIO_MAX_NUM_RELAXS, -1);
  QBR_putintparam(task, QBR_IPAR_MIO_MAX_NUM_BRANCHES, 2);
  EXPECT_EQ(QBR_optimize(task), QBR_RES_TRM_MIO_NUM_BRANCHES);
  EXPECT_EQ(iinf(QBR_IINF_MIO_NUM_BRANCH), 2);
  EXPECT_NE(log.text.find("Maximum number of branches 2 is reached.\n"), std::string::npos);
}

TEST_F(MioLimits, TimeLimitsNameTheirParameter) {
  load_many_nodes();
  QBR_putdouparam(task, QBR_DPAR_MIO_MAX_TIME, 0.0);
  EXPECT_EQ(QBR_optimize(task), QBR_RES_TRM_MAX_TIME);
  EXPECT_NE(log.text.find("Maximum amount of time 0.00 (=dpar_mio_max_time) is reached.\n"), std::string::npos);
  QBR_putdouparam(task, QBR_DPAR_MIO_MAX_TIME, -1.0);
  QBR_putdouparam(task, QBR_DPAR_OPTIMIZER_MAX_TIME, 0.0);
  EXPECT_EQ(QBR_optimize(task), QBR_RES_TRM_MAX_TIME);
  EXPECT_NE(log.text.find("(=dpar_optimizer_max_time) is reached.\n"), std::string::npos);
}

TEST_F(MioLimits, TheWholeTreeProvesInfeasibilityAndCoverCutsShortenIt) {
  load_many_nodes();
  ASSERT_EQ(QBR_optimize(task), QBR_RES_OK);
  EXPECT_EQ(itg_prosta(), QBR_PRO_STA_PRIM_INFEAS);
  const QBRint32t without = iinf(QBR_IINF_MIO_NUM_RELAX);
  QBR_putintparam(task, QBR_IPAR_MIO_CUT_KNAPSACK_COVER, QBR_ON);
  ASSERT_EQ(QBR_optimize(task), QBR_RES_OK);
  EXPECT_EQ(itg_prosta(), QBR_PRO_STA_PRIM_INFEAS);
  EXPECT_GT(iinf(QBR_IINF_MIO_NUM_KNAPSACK_COVER_CUTS), 0);
  EXPECT_LT(iinf(QBR_IINF_MIO_NUM_RELAX), without);
}

struct StopAfter {
  int calls = 0, stop_at = 0;
  bool saw_begin = false, saw_end = false;
  static QBRint32t cb(QBRtask_t, void* h, QBRint32t caller, const QBRrealt*, const QBRint32t* iinf, const QBRint64t*) {
    auto* s = static_cast<StopAfter*>(h);
    if (caller == QBR_CALLBACK_BEGIN_MIO) s->saw_begin = true;
    if (caller == QBR_CALLBACK_END_MIO) s->saw_end = true;
    if (caller != QBR_CALLBACK_IM_MIO) return 0;
    ++s->calls;
    return iinf[QBR_IINF_MIO_NUM_RELAX] >= s->stop_at ? 1 : 0;
  }
};

TEST_F(MioLimits, CallbackStopsTheRun) {
  load_many_nodes();
  StopAfter s;
  s.stop_at = 4;
  QBR_putcallbackfunc(task, StopAfter::cb, &s);
  QBRrescode trm = -1;
  ASSERT_EQ(QBR_optimizetrm(task, &trm), QBR_RES_OK);
  EXPECT_EQ(trm, QBR_RES_TRM_USER_CALLBACK);
  EXPECT_EQ(iinf(QBR_IINF_MIO_NUM_RELAX), 4);
  EXPECT_TRUE(s.saw_begin);
  EXPECT_TRUE(s.saw_end);
}

TEST_F(MioTest, ConstructSolutionIsTriedFirstAndReported) {
  load_knapsack();
  // x0 + x2 + x3: weight 11, value 25.
  const double x[5] = {1, 0, 1, 1, 0};
  ASSERT_EQ(QBR_putxx(task, QBR_SOL_ITG, x), QBR_RES_OK);
  ASSERT_EQ(QBR_optimize(task), QBR_RES_OK);
  EXPECT_EQ(iinf(QBR_IINF_MIO_CONSTRUCT_SOLUTION), 1);
  EXPECT_NEAR(dinf(QBR_DINF_MIO_CONSTRUCT_SOLUTION_OBJ), 25.0, 1e-9);
  EXPECT_NE(log.text.find("Construct solution objective       : 2.500000000000e+01\n"), std::string::npos);
  EXPECT_NEAR(itg_obj(), knapsack_optimum(), 1e-9);
  // An infeasible start is not used.
  const double bad[5] = {1, 1, 1, 1, 1};
  QBR_putxx(task, QBR_SOL_ITG, bad);
  ASSERT_EQ(QBR_optimize(task), QBR_RES_OK);
  EXPECT_EQ(iinf(QBR_IINF_MIO_CONSTRUCT_SOLUTION), 0);
  EXPECT_NEAR(itg_obj(), knapsack_optimum(), 1e-9);
}

TEST_F(MioTest, EveryNodeSelectionAndBranchDirectionFindsTheOptimum) {
  load_knapsack();
  for (QBRint32t sel : {QBR_MIO_NODE_SELECTION_FREE, QBR_MIO_NODE_SELECTION_FIRST, QBR_MIO_NODE_SELECTION_BEST,
                        QBR_MIO_NODE_SELECTION_PSEUDO})
    for (QBRint32t dir = QBR_BRANCH_DIR_FREE; dir <= QBR_BRANCH_DIR_PSEUDOCOST; ++dir) {
      QBR_putintparam(task, QBR_IPAR_MIO_NODE_SELECTION, sel);
      QBR_putintparam(task, QBR_IPAR_MIO_BRANCH_DIR, dir);
      QBR_putintparam(task, QBR_IPAR_MIO_HEURISTIC_LEVEL, dir % 2 == 0 ? 0 : -1);
      ASSERT_EQ(QBR_optimize(task), QBR_RES_OK);
      EXPECT_EQ(itg_solsta(), QBR_SOL_STA_INTEGER_OPTIMAL) << sel << " " << dir;
      EXPECT_NEAR(itg_obj(), knapsack_optimum(), 1e-9) << sel << " " << dir;
    }
}

TEST_F(MioTest, SameSeedGivesTheSameRun) {
  load_knapsack();
  std::vector<QBRint32t> relaxs;
  for (int run = 0; run < 2; ++run) {
    QBR_deletesolution(task, QBR_SOL_ITG);  // else the first run's result is the second's start
    ASSERT_EQ(QBR_optimize(task), QBR_RES_OK);
    relaxs.push_back(iinf(QBR_IINF_MIO_NUM_RELAX));
  }
  EXPECT_EQ(relaxs[0], relaxs[1]);
}

// Fast MIPLIB instances against their reference optima (relative 1e-5 as the set's README
// asks, the run's relative gap tolerance being tighter).
class MiplibTest : public MioTest {
 protected:
  bool load(const char* name) {
    const std::string path = std::string(QUBOR_TEST_DATA_DIR) + "/miplib/" + name + ".mps.gz";
    if (FILE* f = std::fopen(path.c_str(), "rb")) {
      std::fclose(f);
    } else {
      return false;
    }
    return QBR_readdata(task, path.c_str()) == QBR_RES_OK;
  }
};

TEST_F(MiplibTest, SmallInstancesReachTheirReferenceValues) {
  const struct {
    const char* name;
    double ref;
  } cases[] = {{"p0033", 3089.0}, {"lseu", 1120.0}, {"gr4x6", 202.35}};
  for (const auto& c : cases) {
    if (!load(c.name)) GTEST_SKIP() << "instance data not installed";
    QBR_putdouparam(task, QBR_DPAR_MIO_TOL_REL_GAP, 1e-6);
    ASSERT_EQ(QBR_optimize(task), QBR_RES_OK) << c.name;
    EXPECT_EQ(itg_solsta(), QBR_SOL_STA_INTEGER_OPTIMAL) << c.name;
    EXPECT_NEAR(itg_obj(), c.ref, 1e-5 * std::fabs(c.ref)) << c.name;
    QBRrealt pviolcon = 1, pviolitg = 1;
    QBR_getsolutioninfo(task, QBR_SOL_ITG, nullptr, &pviolcon, nullptr, nullptr, nullptr, &pviolitg, nullptr, nullptr,
                        nullptr, nullptr, nullptr);
    EXPECT_LT(pviolcon, 1e-5) << c.name;
    EXPECT_LT(pviolitg, 1e-9) << c.name;
  }
}

}  // namespace
