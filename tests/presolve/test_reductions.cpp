// Each reduction on a small LP built to trigger it: the reduced size shows that it fired,
// the round trip shows that postsolve turns an optimal reduced solution into an optimal
// original one (primal and dual feasibility, complementarity, keys, objective).
#include <gtest/gtest.h>

#include <algorithm>

#include "roundtrip.h"

namespace qubor::presolve::testing {
namespace {

TEST(Reductions, EmptyRowsAndColumns) {
  DenseLp d = make_lp(3, 2);
  d.rl[0] = -1;  // empty row admitting 0
  d.ru[0] = 1;
  d.at(1, 0) = 1;
  d.at(1, 1) = 1;
  d.rl[1] = 1;
  d.c = {1, 2, 3};
  d.u[2] = 4;  // empty column, goes to its lower bound
  RoundTrip rt = round_trip(d);
  EXPECT_EQ(rt.failure, "");
  EXPECT_LE(rt.rows, 1);

  d.c[2] = -3;  // now it prefers its upper bound
  EXPECT_EQ(round_trip(d).failure, "");
  d.u[2] = kInfinity;  // and has none
  EXPECT_EQ(round_trip(d).presolve_status, PresolveStatus::kDualInfeasible);

  d.c[2] = 3;
  d.rl[0] = 1;  // empty row that cannot hold
  EXPECT_EQ(round_trip(d).presolve_status, PresolveStatus::kPrimalInfeasible);
}

// The singleton row x0 <= 2 is the binding constraint: its dual must come back from x0's
// reduced cost, with x0 basic and the row at its upper side.
TEST(Reductions, SingletonRowGivesBackItsDual) {
  DenseLp d = make_lp(2, 2);
  d.u = {10, 10};
  d.c = {-3, -1};
  d.at(0, 0) = 2;
  d.ru[0] = 4;
  d.at(1, 0) = 1;
  d.at(1, 1) = 1;
  d.ru[1] = 5;
  RoundTrip rt = round_trip(d);
  EXPECT_EQ(rt.failure, "");
  EXPECT_EQ(rt.rows, 1);
  // Negative coefficient: the row's lower side gives the upper bound.
  d.at(0, 0) = -2;
  d.ru[0] = kInfinity;
  d.rl[0] = -4;
  EXPECT_EQ(round_trip(d).failure, "");
  // Equality singleton fixes x0; the fixed column's dual moves to the row.
  d.rl[0] = d.ru[0] = -4;
  EXPECT_EQ(round_trip(d).failure, "");
}

TEST(Reductions, FixedColumnsShiftRows) {
  DenseLp d = make_lp(3, 2);
  d.l[1] = d.u[1] = 2;
  d.c = {1, 5, -1};
  d.u[2] = 3;
  d.at(0, 0) = 1;
  d.at(0, 1) = 1;
  d.at(0, 2) = 1;
  d.rl[0] = 4;
  d.at(1, 1) = 3;
  d.at(1, 2) = 1;
  d.ru[1] = 8;
  RoundTrip rt = round_trip(d);
  EXPECT_EQ(rt.failure, "");
  EXPECT_LT(rt.cols, 3);
}

// x0 + x1 <= 0 with x >= 0 forces both to 0; the costs want them positive, so the forcing
// row needs a nonzero dual in postsolve.
TEST(Reductions, ForcingRowNeedsADual) {
  DenseLp d = make_lp(3, 2);
  d.u = {10, 10, 10};
  d.c = {-1, -2, 1};
  d.at(0, 0) = 1;
  d.at(0, 1) = 1;
  d.ru[0] = 0;
  d.at(1, 0) = 1;
  d.at(1, 2) = 1;
  d.rl[1] = 1;
  RoundTrip rt = round_trip(d);
  EXPECT_EQ(rt.failure, "");
  EXPECT_EQ(rt.rows, 0);
  // Forcing from the other side: -x0 - x1 >= 0.
  d.at(0, 0) = d.at(0, 1) = -1;
  d.ru[0] = kInfinity;
  d.rl[0] = 0;
  EXPECT_EQ(round_trip(d).failure, "");
  // Activity cannot reach the side at all.
  d.rl[0] = 1;
  EXPECT_EQ(round_trip(d).presolve_status, PresolveStatus::kPrimalInfeasible);
}

TEST(Reductions, RedundantRowsAndSides) {
  DenseLp d = make_lp(2, 3);
  d.u = {10, 10};
  d.c = {-1, -1};
  d.at(0, 0) = d.at(0, 1) = 1;
  d.ru[0] = 100;  // redundant
  d.at(1, 0) = 1;
  d.at(1, 1) = 2;
  d.rl[1] = -5;  // redundant side
  d.ru[1] = 12;
  d.at(2, 0) = 2;
  d.at(2, 1) = 1;
  d.ru[2] = 14;
  RoundTrip rt = round_trip(d);
  EXPECT_EQ(rt.failure, "");
  EXPECT_LE(rt.rows, 2);
}

// Free column singleton in an equality row, and in inequality rows where the sign of
// c_j / a_ij decides the side.
TEST(Reductions, FreeColumnSingletons) {
  for (double cost : {2.0, -2.0, 0.0}) {
    for (int kind = 0; kind < 3; ++kind) {
      DenseLp d = make_lp(3, 2);
      d.l[2] = -kInfinity;
      d.u = {5, 5, kInfinity};
      d.c = {1, -1, cost};
      d.at(0, 0) = 1;
      d.at(0, 1) = 1;
      d.at(0, 2) = 2;
      if (kind == 0) d.rl[0] = d.ru[0] = 3;
      if (kind == 1) { d.rl[0] = 1; d.ru[0] = 6; }
      if (kind == 2) d.rl[0] = 1;
      d.at(1, 0) = 1;
      d.at(1, 1) = -1;
      d.rl[1] = -2;
      RoundTrip rt = round_trip(d);
      EXPECT_EQ(rt.failure, "") << "cost " << cost << " kind " << kind;
    }
  }
}

// x2 in [0, 100] but the row keeps it within [0, 10]: implied free.
TEST(Reductions, ImpliedFreeColumnSingleton) {
  DenseLp d = make_lp(3, 2);
  d.u = {4, 6, 100};
  d.c = {-1, -2, 3};
  d.at(0, 0) = 1;
  d.at(0, 1) = 1;
  d.at(0, 2) = -1;
  d.rl[0] = d.ru[0] = 0;
  d.at(1, 0) = 1;
  d.at(1, 1) = 2;
  d.ru[1] = 9;
  RoundTrip rt = round_trip(d);
  EXPECT_EQ(rt.failure, "");
  EXPECT_LE(rt.cols, 2);
}

// x2 >= 0 is implied by row 1 (x2 >= 2 x0 >= 0), so x2, which sits in two inequality rows,
// is replaced by the activity of one of them; that activity, a singleton of the other row,
// then goes as a slack (zero cost) or stays as a column (nonzero cost). The cost signs make
// either row binding, so the row's dual comes back from the activity column's reduced cost.
TEST(Reductions, ImpliedFreeColumnThroughInequality) {
  for (double c2 : {0.0, 1.0, -0.5}) {
    for (double c0 : {-1.0, 1.0}) {
      DenseLp d = make_lp(4, 3);
      d.u = {4, 5, kInfinity, 6};
      d.c = {c0, -1, c2, -0.5};
      set_row(d, 0, {{1, 1}, {2, 1}, {3, 1}}, -kInfinity, 9);
      set_row(d, 1, {{0, 2}, {2, -1}}, -kInfinity, 0);  // x2 >= 2 x0
      set_row(d, 2, {{0, 1}, {1, 1}, {3, -1}}, -3, 7);
      RoundTrip rt = round_trip(d);
      EXPECT_EQ(rt.failure, "") << "c2 " << c2 << " c0 " << c0;
      EXPECT_LE(rt.rows, 2) << "c2 " << c2 << " c0 " << c0;
    }
  }
}

// A longer implied-free column goes through a doubleton inequality: x2 >= 2 x0 >= 0 makes
// x2's bound implied, and x2 - 2 x0 (in [0, inf)) takes x2's place in the other rows.
TEST(Reductions, ImpliedFreeColumnThroughDoubletonRow) {
  for (double c2 : {0.0, 1.0, -0.25}) {
    DenseLp d = make_lp(4, 4);
    d.u = {4, 5, kInfinity, 6};
    d.c = {-1, -1, c2, -0.5};
    set_row(d, 0, {{1, 1}, {2, 1}, {3, 1}}, -kInfinity, 9);
    set_row(d, 1, {{0, -2}, {2, 1}}, 0, kInfinity);  // x2 >= 2 x0
    set_row(d, 2, {{0, 1}, {2, 2}, {3, -1}}, -kInfinity, 10);
    set_row(d, 3, {{1, 1}, {2, -1}, {3, 1}}, -2, 7);
    RoundTrip rt = round_trip(d);
    EXPECT_EQ(rt.failure, "") << "c2 " << c2;
    EXPECT_GE(rt.stats.eliminated, 1) << "c2 " << c2;
  }
}

// Row 1 limits x0 + 2 x1 only through the bounds x0, x1 <= 4 that the equality row 0 implies;
// with them it is redundant and goes. Row 2 is not: its side is tight under those bounds.
TEST(Reductions, RedundantRowUnderImpliedBounds) {
  for (double side : {12.0, 20.0, 11.0}) {
    DenseLp d = make_lp(3, 3);
    d.c = {-1, -2, 1};
    set_row(d, 0, {{0, 1}, {1, 1}, {2, 1}}, 4, 4);
    set_row(d, 1, {{0, 1}, {1, 2}}, -kInfinity, side);
    set_row(d, 2, {{0, 3}, {1, 1}, {2, -1}}, -kInfinity, 6);
    PresolveOptions opt;
    opt.eliminator_max_num_tries = 0;  // keep the equality, whose bounds are used
    RoundTrip rt = round_trip(d, opt);
    EXPECT_EQ(rt.failure, "") << "side " << side;
    if (side >= 12.0) {
      EXPECT_LE(rt.rows, 2) << "side " << side;
    }
  }
}

// x0 - x1 = 0 with x0 in [0, 3] and x1 in [0, 10]: x1 inherits the bound 3, which is the
// active one, so postsolve must hand the dual back through the equality.
TEST(Reductions, DoubletonEquationBoundTransfer) {
  for (double u0 : {3.0, 20.0}) {
    DenseLp d = make_lp(3, 2);
    d.u = {u0, 10, 10};
    d.c = {0, -1, -0.5};
    d.at(0, 0) = 1;
    d.at(0, 1) = -1;
    d.rl[0] = d.ru[0] = 0;
    d.at(1, 1) = 1;
    d.at(1, 2) = 1;
    d.ru[1] = 12;
    RoundTrip rt = round_trip(d);
    EXPECT_EQ(rt.failure, "") << "u0 " << u0;
  }
}

// Zero-cost singletons with finite bounds are slacks: their range widens the row. Their
// value and the row's dual come back in postsolve for both signs of the dual.
TEST(Reductions, SlackColumnsWidenTheirRow) {
  for (double cost : {-1.0, 1.0}) {
    DenseLp d = make_lp(3, 2);
    d.u = {6, 6, 2};
    d.c = {cost, -1, 0};
    d.at(0, 0) = 1;
    d.at(0, 1) = 1;
    d.at(0, 2) = -1;  // x0 + x1 - x2 = 4: x0 + x1 in [4, 6]
    d.rl[0] = d.ru[0] = 4;
    d.at(1, 0) = 1;
    d.at(1, 1) = -1;
    d.ru[1] = 1;
    RoundTrip rt = round_trip(d);
    EXPECT_EQ(rt.failure, "") << "cost " << cost;
    EXPECT_LE(rt.cols, 2);
  }
}

// A singleton with a cost in an equality row, its bounds not implied: the row takes the
// bounds as its sides and the cost moves to the row's other columns. Each cost sign puts
// x2 at a different bound or inside (then basic), so all the dual cases come back.
TEST(Reductions, SingletonWithCostInEquality) {
  for (double c2 : {3.0, -3.0, 0.5}) {
    DenseLp d = make_lp(3, 2);
    d.u = {4, 4, 2};
    d.c = {-1, 1, c2};
    set_row(d, 0, {{0, 1}, {1, -1}, {2, 2}}, 1, 1);
    set_row(d, 1, {{0, 1}, {1, 1}}, -kInfinity, 5);
    RoundTrip rt = round_trip(d);
    EXPECT_EQ(rt.failure, "") << "c2 " << c2;
    EXPECT_LE(rt.cols, 2) << "c2 " << c2;
  }
}

// x1 <= 0 has no lower bound and a positive cost: z_1 = c_1 - a y <= 0 bounds the dual of its
// row away from zero, so the row is at its side in every optimum; as an equality it then
// absorbs x1. The mirrored row (>=, negated coefficients) takes the other side.
TEST(Reductions, RowAtItsSideByDualBound) {
  for (double sign : {1.0, -1.0}) {
    DenseLp d = make_lp(3, 2);
    d.l[1] = -kInfinity;
    d.u = {6, 0, 6};
    d.c = {-1, 0.4, -0.5};
    set_row(d, 0, {{0, sign}, {1, -sign}, {2, 0.5 * sign}}, sign > 0 ? -kInfinity : -2, sign > 0 ? 2 : kInfinity);
    set_row(d, 1, {{0, 1}, {2, 1}}, -kInfinity, 8);
    RoundTrip rt = round_trip(d);
    EXPECT_EQ(rt.failure, "") << "sign " << sign;
    EXPECT_EQ(rt.rows + rt.cols, 0) << "sign " << sign;
  }
}

// x2 costs nothing and lies between x1 + 2 x3 - 4 (row 1) and x0 (row 0), with x2 >= 0:
// projecting it out leaves x1 + 2 x3 - 4 <= x0 and x0 >= 0, the latter a bound already. The
// mirrored column (x2 <= 0, entries negated) and row 1 written as a >= row go the same way;
// the costs make row 1, row 0 or neither binding, so x2 comes back at its bound, between the
// rows or with both tight.
TEST(Reductions, ZeroCostColumnBetweenTwoRows) {
  for (double mirror : {1.0, -1.0}) {
    for (double flip : {1.0, -1.0}) {
      for (double c0 : {1.0, -0.5, 0.25}) {
        DenseLp d = make_lp(4, 3);
        if (mirror < 0) {
          d.l[2] = -kInfinity;
          d.u[2] = 0;
        }
        d.u = {5, 4, d.u[2], 3};
        d.c = {c0, -1, 0, -1};
        set_row(d, 0, {{0, -1}, {2, mirror}}, -kInfinity, 0);  // x2 <= x0
        set_row(d, 1, {{1, flip}, {2, -flip * mirror}, {3, 2 * flip}}, flip > 0 ? -kInfinity : -4,
                flip > 0 ? 4 : kInfinity);  // x2 >= x1 + 2 x3 - 4
        set_row(d, 2, {{0, 1}, {1, 1}, {3, 1}}, -kInfinity, 6);
        RoundTrip rt = round_trip(d);
        const std::string tag = "mirror " + std::to_string(mirror) + " flip " + std::to_string(flip) +
                                " c0 " + std::to_string(c0);
        EXPECT_EQ(rt.failure, "") << tag;
        EXPECT_LE(rt.cols, 3) << tag;
      }
    }
  }
}

// Parallel columns with different costs: x1 = x0 in every row, costs more, and x0 can grow
// without limit, so x1 stays at its lower bound.
TEST(Reductions, DominatedParallelColumns) {
  DenseLp d = make_lp(3, 2);
  d.u = {kInfinity, 5, 4};
  d.c = {1, 3, -1};
  d.at(0, 0) = d.at(0, 1) = 1;
  d.at(0, 2) = 1;
  d.rl[0] = 6;
  d.at(1, 0) = d.at(1, 1) = 2;
  d.at(1, 2) = -1;
  d.rl[1] = 1;
  RoundTrip rt = round_trip(d);
  EXPECT_EQ(rt.failure, "");
  EXPECT_LE(rt.cols, 2);
}

TEST(Reductions, DominatedColumnsGoToTheirBound) {
  DenseLp d = make_lp(3, 2);
  d.u = {8, 8, 8};
  d.c = {2, -1, -1};  // x0 costs and only loosens nothing: at its lower bound
  d.at(0, 0) = 1;
  d.at(0, 1) = 1;
  d.at(0, 2) = 1;
  d.ru[0] = 10;
  d.at(1, 0) = 1;
  d.at(1, 1) = 2;
  d.ru[1] = 12;
  RoundTrip rt = round_trip(d);
  EXPECT_EQ(rt.failure, "");
  EXPECT_LE(rt.cols, 2);
  d.l[0] = -kInfinity;  // no lower bound to go to
  EXPECT_EQ(round_trip(d).presolve_status, PresolveStatus::kDualInfeasible);
}

// x2 costs nothing and only uses up room in two <= rows: at its lower bound it loses
// nothing, so it is fixed there even though z_2 may be zero. Mirrored: x2 with a zero cost
// that only loosens >= rows as it grows goes to its upper bound.
TEST(Reductions, WeaklyDominatedColumns) {
  for (double sign : {1.0, -1.0}) {
    DenseLp d = make_lp(3, 2);
    d.u = {5, 5, 3};
    d.c = {-1, -1, 0};
    set_row(d, 0, {{0, 1}, {1, 2}, {2, sign}}, -kInfinity, 8);
    set_row(d, 1, {{0, 3}, {1, 1}, {2, 2 * sign}}, -kInfinity, 9);
    RoundTrip rt = round_trip(d);
    EXPECT_EQ(rt.failure, "") << "sign " << sign;
    EXPECT_LE(rt.cols, 2) << "sign " << sign;
  }
}

// The dual of the ranged row 0 is bounded only through column 0 (z_0 >= 0 gives
// y_0 >= y_1) and the sign of row 1 (y_1 >= 0): then z_1 = c_1 + y_0 > 0 and x1 goes to its
// lower bound, which takes propagating the dual constraints of non-singleton columns.
TEST(Reductions, DominatedByPropagatedDualBounds) {
  for (double c1 : {0.5, 2.0}) {
    DenseLp d = make_lp(3, 2);
    d.u = {kInfinity, 10, 5};
    d.c = {0, c1, -1};
    set_row(d, 0, {{0, -1}, {1, -1}, {2, 1}}, -4, 2);
    set_row(d, 1, {{0, 1}, {2, 1}}, 1, kInfinity);
    PresolveOptions opt;
    opt.max_num_pass = 1;
    RoundTrip rt = round_trip(d, opt);
    EXPECT_EQ(rt.failure, "") << "c1 " << c1;
    EXPECT_LE(rt.cols, 2) << "c1 " << c1;
  }
}

TEST(Reductions, DuplicateRowsMergeSides) {
  DenseLp d = make_lp(3, 3);
  d.u = {5, 5, 5};
  d.c = {-1, -2, -1};
  d.at(0, 0) = 1;
  d.at(0, 1) = 2;
  d.at(0, 2) = 1;
  d.ru[0] = 10;
  d.at(1, 0) = -2;
  d.at(1, 1) = -4;
  d.at(1, 2) = -2;
  d.rl[1] = -12;  // the same row with the tighter side 6 after scaling
  d.at(2, 0) = 1;
  d.at(2, 2) = -1;
  d.ru[2] = 1;
  RoundTrip rt = round_trip(d);
  EXPECT_EQ(rt.failure, "");
  EXPECT_LE(rt.rows, 2);
}

TEST(Reductions, DuplicateColumnsMerge) {
  DenseLp d = make_lp(3, 2);
  d.u = {2, 3, 10};
  d.c = {-1, -2, 1};
  d.at(0, 0) = 1;
  d.at(0, 1) = 2;
  d.at(0, 2) = 1;
  d.ru[0] = 7;
  d.at(1, 0) = 1;
  d.at(1, 1) = 2;
  d.at(1, 2) = -1;
  d.rl[1] = 1;
  RoundTrip rt = round_trip(d);
  EXPECT_EQ(rt.failure, "");
}

// Parallel columns are found whatever the order of their entries: column 1 is twice column
// 0 but lists its rows backwards, and both rows and columns of the working problem are
// hashed without sorting.
TEST(Reductions, DuplicatesFoundInAnyEntryOrder) {
  DenseLp d = make_lp(3, 3);
  d.u = {5, 5, 5};
  d.c = {-1, -2, -1};
  const double rows[3][3] = {{1, 2, 1}, {2, 4, 0}, {3, 6, 1}};
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) d.at(i, j) = rows[i][j];
    d.ru[i] = 4;
  }
  ASSERT_EQ(round_trip(d).failure, "");
  const LpProblem sorted = to_sparse(d);
  LpProblem reversed = sorted;
  std::reverse(reversed.rowind.begin() + reversed.colptr[1], reversed.rowind.begin() + reversed.colptr[2]);
  std::reverse(reversed.val.begin() + reversed.colptr[1], reversed.val.begin() + reversed.colptr[2]);
  const PresolveResult a = presolve(sorted, PresolveOptions()), b = presolve(reversed, PresolveOptions());
  EXPECT_LT(a.reduced.n, 3);
  EXPECT_EQ(a.reduced.n, b.reduced.n);
  EXPECT_EQ(a.reduced.m, b.reduced.m);
}

// Row 2 = row 0 + row 1 among equalities: removed; with a wrong right-hand side the
// equalities are inconsistent.
TEST(Reductions, LinearlyDependentEqualities) {
  DenseLp d = make_lp(4, 3);
  d.u = {10, 10, 10, 10};
  d.c = {1, 2, 3, -1};
  const double rows[3][4] = {{1, 2, 0, 1}, {0, 1, 3, 1}, {1, 3, 3, 2}};
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 4; ++j) d.at(i, j) = rows[i][j];
  d.rl[0] = d.ru[0] = 4;
  d.rl[1] = d.ru[1] = 5;
  d.rl[2] = d.ru[2] = 9;
  PresolveOptions opt;
  opt.eliminator_max_num_tries = 0;  // keep the rows for the dependency check
  RoundTrip rt = round_trip(d, opt);
  EXPECT_EQ(rt.failure, "");
  EXPECT_LE(rt.rows, 2);
  d.rl[2] = d.ru[2] = 9.5;
  EXPECT_EQ(round_trip(d, opt).presolve_status, PresolveStatus::kPrimalInfeasible);
  opt.lindep_use = false;
  EXPECT_EQ(round_trip(d, opt).failure, "");
}

// The same dependency behind a chain of equalities that each have a column of their own
// among the equalities (row 4 through x6, then row 3): the check sets the chain aside and
// still finds the dependent row.
TEST(Reductions, DependentEqualitiesBehindIndependentOnes) {
  DenseLp d = make_lp(7, 5);
  d.u = {10, 10, 10, 10, 10, 10, 10};
  d.c = {1, 2, 3, -1, 1, -2, 1};
  set_row(d, 0, {{0, 1}, {1, 2}, {3, 1}}, 4, 4);
  set_row(d, 1, {{1, 1}, {2, 3}, {3, 1}}, 5, 5);
  set_row(d, 2, {{0, 1}, {1, 3}, {2, 3}, {3, 2}}, 9, 9);
  set_row(d, 3, {{0, 1}, {4, 2}, {5, 1}}, 3, 3);
  set_row(d, 4, {{4, 1}, {5, -1}, {6, 2}}, 2, 2);
  PresolveOptions opt;
  opt.eliminator_max_num_tries = 0;
  const RoundTrip rt = round_trip(d, opt);
  EXPECT_EQ(rt.failure, "");
  EXPECT_EQ(rt.stats.lindep_rows, 1);
}

// A free column in three equality rows is substituted out by the eliminator.
TEST(Reductions, EliminatorSubstitutesFreeColumns) {
  DenseLp d = make_lp(4, 3);
  d.l[3] = -kInfinity;
  d.u = {6, 6, 6, kInfinity};
  d.c = {1, -1, 2, 0.5};
  const double rows[3][4] = {{1, 1, 0, 1}, {0, 1, 1, -2}, {1, 0, 1, 1}};
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 4; ++j) d.at(i, j) = rows[i][j];
  d.rl[0] = d.ru[0] = 3;
  d.rl[1] = d.ru[1] = 1;
  d.ru[2] = 7;
  PresolveOptions opt;
  RoundTrip rt = round_trip(d, opt);
  EXPECT_EQ(rt.failure, "");
  EXPECT_GE(rt.stats.eliminated, 1);
  opt.eliminator_max_num_tries = 0;
  rt = round_trip(d, opt);
  EXPECT_EQ(rt.failure, "");
  EXPECT_EQ(rt.stats.eliminated, 0);
}

// x2 in [-3, 10] equals x0 - x1 (row 0); its upper bound is implied only through x0 <= 10,
// which row 2 (without x2) implies. With that, x2 is implied free and goes through row 0.
TEST(Reductions, ImpliedFreeThroughBoundsOfOtherRows) {
  for (double c2 : {-0.5, 0.5}) {
    DenseLp d = make_lp(5, 4);
    d.l[2] = -3;
    d.u = {kInfinity, 3, 10, 6, kInfinity};
    d.c = {-1, 0.25, c2, -0.5, 0.1};
    set_row(d, 0, {{0, -1}, {1, 1}, {2, 1}}, 0, 0);  // x2 = x0 - x1
    set_row(d, 1, {{2, 1}, {3, 1}}, -kInfinity, 12);
    set_row(d, 2, {{0, 1}, {4, 1}}, -kInfinity, 10);
    set_row(d, 3, {{3, 1}, {4, 1}}, 1, kInfinity);
    RoundTrip rt = round_trip(d);
    EXPECT_EQ(rt.failure, "") << "c2 " << c2;
    EXPECT_GE(rt.stats.eliminated, 1) << "c2 " << c2;
  }
}

// Integer columns are neither substituted, merged nor fixed by dual arguments, and get
// integral bounds.
TEST(Reductions, IntegerColumnsBlockInvalidReductions) {
  DenseLp d = make_lp(3, 2);
  d.l[2] = -kInfinity;
  d.u = {5.5, 5, kInfinity};
  d.c = {-1, -1, 2};
  d.at(0, 0) = 1;
  d.at(0, 1) = 1;
  d.at(0, 2) = 2;
  d.rl[0] = d.ru[0] = 3;  // free singleton x2 in an equality
  d.at(1, 0) = 1;
  d.at(1, 1) = -1;
  d.rl[1] = -2;
  d.is_int = {1, 0, 1};
  PresolveResult r = presolve(to_sparse(d), PresolveOptions());
  ASSERT_EQ(r.status, PresolveStatus::kReduced);
  bool has_x0 = false, has_x2 = false;
  for (int32_t k = 0; k < r.reduced.n; ++k) {
    if (r.col_origin[k] == 0) {
      has_x0 = true;
      EXPECT_EQ(r.reduced.u[k], 5.0);  // rounded down
    }
    if (r.col_origin[k] == 2) has_x2 = true;
  }
  EXPECT_TRUE(has_x0);
  EXPECT_TRUE(has_x2);
  d.is_int.clear();
  const PresolveResult continuous = presolve(to_sparse(d), PresolveOptions());
  for (int32_t k = 0; k < continuous.reduced.n; ++k) EXPECT_NE(continuous.col_origin[k], 2);
}

TEST(Reductions, OptionsLimitTheWork) {
  DenseLp d = make_lp(3, 3);
  d.u = {4, 4, 4};
  d.c = {-1, -1, -1};
  d.at(0, 0) = 1;
  d.ru[0] = 2;
  d.at(1, 0) = d.at(1, 1) = 1;
  d.ru[1] = 5;
  d.at(2, 1) = d.at(2, 2) = 1;
  d.ru[2] = 6;
  PresolveOptions off;
  off.use = 0;
  RoundTrip rt = round_trip(d, off);
  EXPECT_EQ(rt.failure, "");
  EXPECT_EQ(rt.rows, 3);
  EXPECT_EQ(rt.cols, 3);
  PresolveOptions none;
  none.max_num_reductions = 0;
  rt = round_trip(d, none);
  EXPECT_EQ(rt.rows, 3);
  EXPECT_EQ(rt.stats.reductions, 0);
  PresolveOptions one;
  one.max_num_reductions = 1;
  rt = round_trip(d, one);
  EXPECT_EQ(rt.failure, "");
  EXPECT_EQ(rt.stats.reductions, 1);
}

TEST(Reductions, LogLinesGoToTheSink) {
  std::string text;
  LogSink sink;
  sink.handle = &text;
  sink.write = [](void* h, const char* s) { *static_cast<std::string*>(h) += s; };
  DenseLp d = make_lp(2, 1);
  d.u = {1, 1};
  d.c = {-1, -1};
  d.at(0, 0) = d.at(0, 1) = 1;
  d.ru[0] = 1;
  PresolveResult r = presolve(to_sparse(d), PresolveOptions(), &sink);
  EXPECT_NE(text.find("Presolve started.\n"), std::string::npos);
  EXPECT_NE(text.find("Presolve terminated."), std::string::npos);
  EXPECT_NE(text.find("Constraints removed"), std::string::npos);
}

}  // namespace
}  // namespace qubor::presolve::testing
