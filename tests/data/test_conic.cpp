// Cones, matrix variables, the symmetric-matrix store, matrix-variable coefficients,
// quadratic terms and the problem type through the C API.
#include <cmath>
#include <string>
#include <vector>

#include "api/fixture.h"

namespace {

class ConicTest : public TaskTest {
 protected:
  void SetUp() override {
    TaskTest::SetUp();
    ASSERT_EQ(QBR_appendcons(task, 2), QBR_RES_OK);
    ASSERT_EQ(QBR_appendvars(task, 8), QBR_RES_OK);
  }
  int probtype() {
    QBRint32t p = -1;
    EXPECT_EQ(QBR_getprobtype(task, &p), QBR_RES_OK);
    return p;
  }
};

TEST_F(ConicTest, ConeSizesPerType) {
  const QBRint32t m[] = {0, 1, 2, 3};
  EXPECT_EQ(QBR_appendcone(task, QBR_CT_PEXP, 0.0, 2, m), QBR_RES_ERR_CONE_SIZE);
  EXPECT_EQ(last_message(), "Exactly 3 members are required in a cone of type PEXP.");
  EXPECT_EQ(QBR_appendcone(task, QBR_CT_DEXP, 0.0, 4, m), QBR_RES_ERR_CONE_SIZE);
  EXPECT_EQ(QBR_appendcone(task, QBR_CT_RQUAD, 0.0, 1, m), QBR_RES_ERR_CONE_SIZE);
  EXPECT_EQ(last_message(), "At least 2 members are required in a cone of type RQUAD.");
  EXPECT_EQ(QBR_appendcone(task, QBR_CT_QUAD, 0.0, 0, m), QBR_RES_ERR_CONE_SIZE);
  EXPECT_EQ(QBR_appendcone(task, 7, 0.0, 3, m), QBR_RES_ERR_CONE_TYPE);
  EXPECT_EQ(QBR_appendcone(task, QBR_CT_PPOW, 0.0, 3, m), QBR_RES_ERR_CONE_PARAMETER);
  EXPECT_EQ(QBR_appendcone(task, QBR_CT_DPOW, 1.0, 3, m), QBR_RES_ERR_CONE_PARAMETER);
  QBRint32t n = -1;
  QBR_getnumcone(task, &n);
  EXPECT_EQ(n, 0);
  EXPECT_EQ(QBR_appendcone(task, QBR_CT_PEXP, 0.0, 3, m), QBR_RES_OK);
  EXPECT_EQ(QBR_appendcone(task, QBR_CT_PPOW, 0.5, 1, m + 3), QBR_RES_OK);
  EXPECT_EQ(QBR_appendcone(task, QBR_CT_ZERO, 0.0, 0, nullptr), QBR_RES_OK);
  QBR_getnumcone(task, &n);
  EXPECT_EQ(n, 3);
}

TEST_F(ConicTest, RepeatedAndOverlappingMembers) {
  const QBRint32t rep[] = {3, 1, 3};
  EXPECT_EQ(QBR_appendcone(task, QBR_CT_QUAD, 0.0, 3, rep), QBR_RES_ERR_CONE_REP_VAR);
  const QBRint32t a[] = {0, 1, 2}, b[] = {2, 4}, c[] = {5, 6};
  ASSERT_EQ(QBR_appendcone(task, QBR_CT_QUAD, 0.0, 3, a), QBR_RES_OK);
  EXPECT_EQ(QBR_appendcone(task, QBR_CT_QUAD, 0.0, 2, b), QBR_RES_ERR_CONE_OVERLAP_APPEND);
  EXPECT_EQ(last_message(), "The variable 'x2' (2) of the appended cone already belongs to cone 0.");
  ASSERT_EQ(QBR_appendcone(task, QBR_CT_RQUAD, 0.0, 2, c), QBR_RES_OK);
  EXPECT_EQ(QBR_putcone(task, 1, QBR_CT_QUAD, 0.0, 2, b), QBR_RES_ERR_CONE_OVERLAP);
  // Replacing a cone may reuse its own members.
  const QBRint32t c2[] = {6, 5, 7};
  EXPECT_EQ(QBR_putcone(task, 1, QBR_CT_QUAD, 0.0, 3, c2), QBR_RES_OK);
  QBRint32t ct = -1, nm = 0, mem[3];
  double par = 1;
  ASSERT_EQ(QBR_getcone(task, 1, &ct, &par, &nm, mem), QBR_RES_OK);
  EXPECT_EQ(ct, QBR_CT_QUAD);
  EXPECT_EQ(nm, 3);
  EXPECT_EQ(mem[2], 7);
  EXPECT_EQ(QBR_putcone(task, 2, QBR_CT_QUAD, 0.0, 3, c2), QBR_RES_ERR_INDEX_IS_TOO_LARGE);
  // A cone member cannot be removed; others can, and members are renumbered.
  const QBRint32t rm0[] = {5};
  EXPECT_EQ(QBR_removevars(task, 1, rm0), QBR_RES_ERR_REMOVE_CONE_VARIABLE);
  const QBRint32t rm3[] = {3};
  ASSERT_EQ(QBR_removevars(task, 1, rm3), QBR_RES_OK);
  ASSERT_EQ(QBR_getcone(task, 1, &ct, &par, &nm, mem), QBR_RES_OK);
  EXPECT_EQ(mem[0], 5);
  EXPECT_EQ(mem[2], 6);
}

TEST_F(ConicTest, SequencesAndRemoval) {
  EXPECT_EQ(QBR_appendconeseq(task, QBR_CT_QUAD, 0.0, 3, -1), QBR_RES_ERR_INDEX_IS_TOO_SMALL);
  EXPECT_EQ(QBR_appendconeseq(task, QBR_CT_QUAD, 0.0, 3, 6), QBR_RES_ERR_APPENDING_TOO_BIG_CONE);
  const QBRint32t ct[] = {QBR_CT_QUAD, QBR_CT_PEXP, QBR_CT_RQUAD};
  const double par[] = {0, 0, 0};
  const QBRint32t nm[] = {2, 3, 4};
  // The third cone would run past the last variable: the first two stay.
  EXPECT_EQ(QBR_appendconesseq(task, 3, ct, par, nm, 0), QBR_RES_ERR_APPENDING_TOO_BIG_CONE);
  QBRint32t n = 0;
  QBR_getnumcone(task, &n);
  EXPECT_EQ(n, 2);
  const QBRint32t bad[] = {2};
  EXPECT_EQ(QBR_removecones(task, 1, bad), QBR_RES_ERR_CONE_INDEX);
  const QBRint32t dup[] = {0, 0};
  EXPECT_EQ(QBR_removecones(task, 2, dup), QBR_RES_ERR_NON_UNIQUE_ARRAY);
  ASSERT_EQ(QBR_putconename(task, 1, "expcone"), QBR_RES_OK);
  const QBRint32t first[] = {0};
  ASSERT_EQ(QBR_removecones(task, 1, first), QBR_RES_OK);
  QBRint32t found = 0, idx = -1;
  QBR_getconenameindex(task, "expcone", &found, &idx);
  EXPECT_EQ(idx, 0);
  // The variables of the removed cone are free for a new one.
  const QBRint32t again[] = {0, 1};
  EXPECT_EQ(QBR_appendcone(task, QBR_CT_QUAD, 0.0, 2, again), QBR_RES_OK);
  char text[QBR_MAX_STR_LEN];
  ASSERT_EQ(QBR_conetypetostr(task, QBR_CT_DPOW, text), QBR_RES_OK);
  QBRint32t back = -1;
  ASSERT_EQ(QBR_strtoconetype(task, text, &back), QBR_RES_OK);
  EXPECT_EQ(back, QBR_CT_DPOW);
}

TEST_F(ConicTest, MatrixVariablesAndCoefficients) {
  const QBRint32t dims[] = {3, 0};
  EXPECT_EQ(QBR_appendbarvars(task, 2, dims), QBR_RES_ERR_BAR_VAR_DIM);
  EXPECT_EQ(last_message(), "The dimension 0 specified for symmetric matrix variable 1 has to be greater than 0.");
  const QBRint32t ok[] = {3, 2};
  ASSERT_EQ(QBR_appendbarvars(task, 2, ok), QBR_RES_OK);
  QBRint64t len = 0;
  QBR_getlenbarvarj(task, 0, &len);
  EXPECT_EQ(len, 6);
  const QBRint32t si[] = {0, 2, 1}, sj[] = {0, 0, 2};
  const double sv[] = {1, 2, 3};
  QBRint64t m = -1;
  EXPECT_EQ(QBR_appendsparsesymmat(task, 3, 3, si, sj, sv, &m), QBR_RES_ERR_SYM_MAT_NOT_LOWER_TRINGULAR);
  const QBRint32t di[] = {0, 0}, dj[] = {0, 0};
  EXPECT_EQ(QBR_appendsparsesymmat(task, 3, 2, di, dj, sv, &m), QBR_RES_ERR_SYM_MAT_DUPLICATE);
  ASSERT_EQ(QBR_appendsparsesymmat(task, 3, 2, si, sj, sv, &m), QBR_RES_OK);
  EXPECT_EQ(m, 0);
  QBRint64t m2 = -1;
  ASSERT_EQ(QBR_appendsparsesymmat(task, 2, 1, si, sj, sv, &m2), QBR_RES_OK);
  const double w[] = {2.0};
  EXPECT_EQ(QBR_putbarcj(task, 1, 1, &m, w), QBR_RES_ERR_INVALID_SYM_MAT_DIM);
  EXPECT_EQ(QBR_putbarcj(task, 2, 1, &m, w), QBR_RES_ERR_INDEX_IS_TOO_LARGE);
  ASSERT_EQ(QBR_putbarcj(task, 0, 1, &m, w), QBR_RES_OK);
  ASSERT_EQ(QBR_putbaraij(task, 1, 1, 1, &m2, w), QBR_RES_OK);
  QBRint64t nz = 0;
  QBR_getnumbaranz(task, &nz);
  EXPECT_EQ(nz, 1);
  // Block triplets of barc read back as the weighted entries of the stored matrix.
  QBRint64t num = 0;
  QBRint32t tj[4], tk[4], tl[4];
  double tv[4];
  ASSERT_EQ(QBR_getbarcblocktriplet(task, 4, &num, tj, tk, tl, tv), QBR_RES_OK);
  ASSERT_EQ(num, 2);
  EXPECT_EQ(tk[1], 2);
  EXPECT_EQ(tl[1], 0);
  EXPECT_EQ(tv[1], 4.0);
  EXPECT_EQ(probtype(), QBR_PROBTYPE_CONIC);
  const QBRint32t rb[] = {0};
  ASSERT_EQ(QBR_removebarvars(task, 1, rb), QBR_RES_OK);
  QBR_getnumbarcnz(task, &nz);
  EXPECT_EQ(nz, 0);
  QBRint64t idx = -1, nm = 0, sub[1];
  double wt[1];
  QBRint32t ri = -1, rj = -1;
  ASSERT_EQ(QBR_getbaraidx(task, 0, 1, &ri, &rj, &nm, sub, wt), QBR_RES_OK);
  EXPECT_EQ(rj, 0);  // renumbered
  (void)idx;
}

TEST_F(ConicTest, BlockTripletChecks) {
  const QBRint32t dims[] = {2};
  ASSERT_EQ(QBR_appendbarvars(task, 1, dims), QBR_RES_OK);
  const QBRint32t i[] = {0, 0}, j[] = {0, 0}, k[] = {0, 1}, l[] = {1, 0};
  const double v[] = {1, 2};
  EXPECT_EQ(QBR_putbarablocktriplet(task, 2, i, j, k, l, v), QBR_RES_ERR_UPPER_TRIANGLE);
  const QBRint32t k2[] = {1, 1}, l2[] = {0, 0};
  EXPECT_EQ(QBR_putbarablocktriplet(task, 2, i, j, k2, l2, v), QBR_RES_ERR_SYM_MAT_DUPLICATE);
  const QBRint32t k3[] = {1, 2};
  EXPECT_EQ(QBR_putbarablocktriplet(task, 2, i, j, k3, l2, v), QBR_RES_ERR_INDEX_IS_TOO_LARGE);
  const QBRint32t k4[] = {1, 1}, l4[] = {0, 1};
  ASSERT_EQ(QBR_putbarablocktriplet(task, 2, i, j, k4, l4, v), QBR_RES_OK);
  QBRint64t num = 0;
  QBRint32t oi[2], oj[2], ok[2], ol[2];
  double ov[2];
  ASSERT_EQ(QBR_getbarablocktriplet(task, 2, &num, oi, oj, ok, ol, ov), QBR_RES_OK);
  EXPECT_EQ(num, 2);
}

TEST_F(ConicTest, QuadraticTermsAreLowerTriangular) {
  EXPECT_EQ(QBR_putqobjij(task, 0, 1, 1.0), QBR_RES_ERR_QOBJ_UPPER_TRIANGLE);
  EXPECT_EQ(QBR_putqobjij(task, 1, 0, std::nan("")), QBR_RES_ERR_INV_QOBJ_VAL);
  ASSERT_EQ(QBR_putqobjij(task, 1, 0, 1.0), QBR_RES_OK);
  double q = 0;
  QBR_getqobjij(task, 0, 1, &q);
  EXPECT_EQ(q, 1.0);
  EXPECT_EQ(probtype(), QBR_PROBTYPE_QO);
  // Repeated entries in one call are summed.
  const QBRint32t qi[] = {2, 2, 3}, qj[] = {1, 1, 3};
  const double qv[] = {1.5, 2.5, 4.0};
  ASSERT_EQ(QBR_putqobj(task, 3, qi, qj, qv), QBR_RES_OK);
  QBR_getqobjij(task, 2, 1, &q);
  EXPECT_EQ(q, 4.0);
  QBR_getqobjij(task, 1, 0, &q);
  EXPECT_EQ(q, 0.0);  // replaced
  const QBRint32t ck[] = {0, 5}, ci[] = {1, 1}, cj[] = {0, 0};
  EXPECT_EQ(QBR_putqcon(task, 2, ck, ci, cj, qv), QBR_RES_ERR_INV_QCON_SUBK);
  const QBRint32t ck2[] = {0, 1}, ci2[] = {1, 8}, cup[] = {0, 1};
  EXPECT_EQ(QBR_putqcon(task, 2, ck2, ci2, cj, qv), QBR_RES_ERR_QCON_SUBI_TOO_LARGE);
  const QBRint32t ci3[] = {1, -1};
  EXPECT_EQ(QBR_putqcon(task, 2, ck2, ci3, cj, qv), QBR_RES_ERR_QCON_SUBI_TOO_SMALL);
  const QBRint32t ci4[] = {1, 0};
  EXPECT_EQ(QBR_putqcon(task, 2, ck2, ci4, cup, qv), QBR_RES_ERR_QCON_UPPER_TRIANGLE);
  const QBRint32t cj5[] = {0, 9};
  EXPECT_EQ(QBR_putqcon(task, 2, ck2, ci2 + 0, cj5, qv), QBR_RES_ERR_QCON_SUBI_TOO_LARGE);
  ASSERT_EQ(QBR_putqcon(task, 2, ck2, ci4, cj, qv), QBR_RES_OK);
  QBRint64t n = 0;
  QBR_getnumqconknz(task, 1, &n);
  EXPECT_EQ(n, 1);
  EXPECT_EQ(probtype(), QBR_PROBTYPE_QCQO);
  const QBRint32t m[] = {5, 6};
  ASSERT_EQ(QBR_appendcone(task, QBR_CT_QUAD, 0.0, 2, m), QBR_RES_OK);
  EXPECT_EQ(probtype(), QBR_PROBTYPE_MIXED);
  // Removing a variable drops its quadratic entries.
  const QBRint32t rv[] = {0};
  ASSERT_EQ(QBR_removevars(task, 1, rv), QBR_RES_OK);
  QBR_getnumqconknz(task, 1, &n);
  EXPECT_EQ(n, 0);
}

TEST_F(ConicTest, ProblemTypeTexts) {
  char s[QBR_MAX_STR_LEN];
  EXPECT_EQ(probtype(), QBR_PROBTYPE_LO);
  ASSERT_EQ(QBR_probtypetostr(task, QBR_PROBTYPE_QCQO, s), QBR_RES_OK);
  EXPECT_STREQ(s, "QCQO (quadratically constrained optimization problem)");
  ASSERT_EQ(QBR_probtypetostr(task, 5, s), QBR_RES_OK);
  EXPECT_STREQ(s, "INVALID");
}

}  // namespace
