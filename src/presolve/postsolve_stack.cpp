// Undo of every reduction; see postsolve_stack.h for the contract and the key rule.
//
// Notation: on the level before a step, z_j = c_j - sum_r a_rj y_r. A step that removes row i
// and sets its dual y_i changes z_j by -a_ij y_i for the columns of row i; a step that changes
// c or A of kept columns restores z through the identity derived with it.
#include "presolve/postsolve_stack.h"

#include <algorithm>
#include <cmath>

namespace qubor::presolve {

int32_t PostsolveStack::column_key(double x, double l, double u) const {
  if (l == u) return kKeyFixed;
  if (finite(l) && near(x, l)) return kKeyLower;
  if (finite(u) && near(x, u)) return kKeyUpper;
  if (!finite(l) && !finite(u)) return kKeySuperBasic;
  return kKeyBasic;
}

int32_t PostsolveStack::row_key(double act, double rl, double ru) const {
  if (rl == ru) return kKeyFixed;
  if (finite(rl) && near(act, rl)) return kKeyLower;
  if (finite(ru) && near(act, ru)) return kKeyUpper;
  return kKeyBasic;
}

int32_t PostsolveStack::key_from_solution(double v, double d, double lo, double hi) const {
  if (lo == hi) return kKeyFixed;
  if (finite(lo) && near(v, lo) && d >= 0) return kKeyLower;
  if (finite(hi) && near(v, hi) && d <= 0) return kKeyUpper;
  return !finite(lo) && !finite(hi) ? kKeySuperBasic : kKeyBasic;
}

void PostsolveStack::undo(UndoState& st) const {
  for (auto it = steps.rbegin(); it != steps.rend(); ++it) {
    const Step& s = *it;
    switch (s.kind) {
      case StepKind::kRemoveRow:
        st.y[s.row] = 0.0;
        st.skc[s.row] = kKeyBasic;
        break;
      case StepKind::kFixColumn: undo_fix_column(s, st); break;
      case StepKind::kSingletonRow: undo_singleton_row(s, st); break;
      case StepKind::kForcingRow: undo_forcing_row(s, st); break;
      case StepKind::kSubstitution: undo_substitution(s, st); break;
      case StepKind::kDuplicateRow: undo_duplicate_row(s, st); break;
      case StepKind::kDuplicateColumn: undo_duplicate_column(s, st); break;
      case StepKind::kSlackColumn: undo_slack_column(s, st); break;
      case StepKind::kActivityColumn: undo_activity_column(s, st); break;
      case StepKind::kFourierMotzkin: undo_fourier_motzkin(s, st); break;
      case StepKind::kRowToSide:
        // Values and dual stay; a nonbasic row sits at that side.
        if (st.skc[s.row] == kKeyFixed) st.skc[s.row] = s.side > 0 ? kKeyUpper : kKeyLower;
        break;
    }
  }
}

// v: value, c_j, l, u; entries: column j (row, a_rj) on the level before.
void PostsolveStack::undo_fix_column(const Step& s, UndoState& st) const {
  const int32_t j = s.col;
  const double value = s.v[0], l = s.v[2], u = s.v[3];
  double z = s.v[1];
  for (int64_t p = s.begin; p < s.end; ++p) z -= val[p] * st.y[idx[p]];
  st.x[j] = value;
  st.z[j] = z;
  // Bounds closer than the tolerance were fixed at one of them: the dual picks the side.
  if (l != u && finite(l) && finite(u) && near(value, l) && near(value, u)) {
    st.skx[j] = z >= 0 ? kKeyLower : kKeyUpper;
    st.x[j] = z >= 0 ? l : u;
    return;
  }
  st.skx[j] = column_key(value, l, u);
}

// v: a, rl, ru, l before, u before, l after, u after.
// If x_j sits on a bound that only the row implied and z_j pushes against it, the dual moves
// to the row: y_i = z_j / a, z_j = 0, the column becomes basic and the row nonbasic.
void PostsolveStack::undo_singleton_row(const Step& s, UndoState& st) const {
  const int32_t i = s.row, j = s.col;
  const double a = s.v[0], rl = s.v[1], ru = s.v[2];
  const double lb = s.v[3], ub = s.v[4], la = s.v[5], ua = s.v[6];
  const double x = st.x[j], z = st.z[j];
  const bool lo_from_row = la > lb && !near(la, lb);
  const bool up_from_row = ua < ub && !near(ua, ub);
  // A reduced cost that presses on a bound the row supplied belongs to the row, unless the
  // column rests on its own bound. An interior-point solution is only close to the bound it
  // presses on, so a reduced cost above the tolerance decides, whatever the distance.
  bool at_lo = lo_from_row && z >= 0 && (near(x, la) || (z > tol_x && !(finite(lb) && near(x, lb))));
  bool at_up = up_from_row && z <= 0 && (near(x, ua) || (-z > tol_x && !(finite(ub) && near(x, ub))));
  // A nonbasic x_j on a bound only the row supplied (its reduced cost of the wrong sign
  // within the tolerance) is basic on the level before, with the row on that side.
  const int32_t key_after = st.skx[j];
  if (!at_lo && !at_up && (key_after == kKeyLower || key_after == kKeyUpper || key_after == kKeyFixed) &&
      column_key(x, lb, ub) == kKeyBasic) {
    at_lo = lo_from_row && near(x, la);
    at_up = !at_lo && up_from_row && near(x, ua);
  }
  if (at_lo || at_up) {
    st.y[i] = z / a;
    st.z[j] = 0.0;
    st.skx[j] = kKeyBasic;
    const bool row_at_lower = at_lo == (a > 0);
    st.skc[i] = rl == ru ? kKeyFixed : (row_at_lower ? kKeyLower : kKeyUpper);
    return;
  }
  st.y[i] = 0.0;
  st.skc[i] = kKeyBasic;
  const int32_t key = st.skx[j];
  if (key == kKeyLower || key == kKeyUpper || key == kKeyFixed) {
    const int32_t by_value = column_key(x, lb, ub);
    if (by_value != key) st.skx[j] = by_value;
  }
}

// side +1: the row sits at ru with every column at the bound minimizing its term; side -1:
// at rl with every column at the bound maximizing it. Entries [begin, mid): (column, a);
// [mid, end): 1 for columns whose bounds were equal. y_i is the smallest move (y <= 0 for
// side +1, y >= 0 for side -1) that gives every column a reduced cost of the right sign.
void PostsolveStack::undo_forcing_row(const Step& s, UndoState& st) const {
  const int32_t i = s.row;
  const double rl = s.v[0], ru = s.v[1];
  double y = 0.0;
  int32_t pivot = -1;
  for (int64_t p = s.begin; p < s.mid; ++p) {
    if (val[s.mid + (p - s.begin)] != 0.0) continue;
    const int32_t j = idx[p];
    const double a = val[p], z = st.z[j];
    // side +1: a > 0 at lower needs z - a y >= 0; a < 0 at upper needs z - a y <= 0.
    const bool violated = s.side > 0 ? (a > 0 ? z < 0 : z > 0) : (a > 0 ? z > 0 : z < 0);
    if (!violated) continue;
    const double cand = z / a;
    if (s.side > 0 ? cand < y : cand > y) {
      y = cand;
      pivot = j;
    }
  }
  st.y[i] = y;
  if (y != 0.0) {
    for (int64_t p = s.begin; p < s.mid; ++p) st.z[idx[p]] -= val[p] * y;
  }
  if (pivot >= 0) {
    st.z[pivot] = 0.0;
    st.skx[pivot] = kKeyBasic;
    st.skc[i] = rl == ru ? kKeyFixed : (s.side > 0 ? kKeyUpper : kKeyLower);
  } else {
    st.skc[i] = kKeyBasic;
  }
}

// v: a (pivot a_ij), b (right-hand side used), c_j, l_j, u_j, l_k before, u_k before, a_ik,
// l_k after, u_k after; side: key of row i when nonbasic. Entries [begin, mid): column j
// (r, a_rj) without row i; [mid, end): row i (k, a_ik) without column j.
//
// With w = c_j - sum_r a_rj y_r, the default is y_i = w / a and z_j = 0 (x_j basic); the
// reduced costs of the row's other columns are unchanged, since the substitution moved
// exactly -a_ik y_i into their costs. For a doubleton whose partner x_k sits on a bound
// inherited from x_j, z_k on the level before is z_k + (a_ik / a) z_j; making z_k = 0 instead
// gives y_i = w / a + z_k / a_ik and z_j = -(a / a_ik) z_k, and x_j takes the bound.
void PostsolveStack::undo_substitution(const Step& s, UndoState& st) const {
  const int32_t i = s.row, j = s.col, k = s.other;
  const double a = s.v[0], b = s.v[1];
  double rest = 0.0;
  for (int64_t p = s.mid; p < s.end; ++p) rest += val[p] * st.x[idx[p]];
  const double x = (b - rest) / a;
  double w = s.v[2];
  for (int64_t p = s.begin; p < s.mid; ++p) w -= val[p] * st.y[idx[p]];
  st.x[j] = x;
  st.y[i] = w / a;
  st.z[j] = 0.0;
  st.skx[j] = kKeyBasic;
  st.skc[i] = s.side;
  if (k < 0) return;
  const double aik = s.v[7], lkb = s.v[5], ukb = s.v[6], lka = s.v[8], uka = s.v[9];
  const double xk = st.x[k], zk = st.z[k];
  // A basic x_k without reduced cost (degenerate on the inherited bound) stays basic; x_j
  // takes the row's place.
  if (st.skx[k] == kKeyBasic && std::fabs(zk) <= tol_x) return;
  const bool at_lo = lka > lkb && !near(lka, lkb) && zk >= 0 &&
                     (near(xk, lka) || (zk > tol_x && !(finite(lkb) && near(xk, lkb))));
  const bool at_up = uka < ukb && !near(uka, ukb) && zk <= 0 &&
                     (near(xk, uka) || (-zk > tol_x && !(finite(ukb) && near(xk, ukb))));
  if (at_lo || at_up) {
    st.y[i] = w / a + zk / aik;
    st.z[j] = -(a / aik) * zk;
    st.z[k] = 0.0;
    st.skx[k] = kKeyBasic;
    const int32_t key = column_key(x, s.v[3], s.v[4]);
    st.skx[j] = key == kKeyBasic || key == kKeySuperBasic ? (st.z[j] >= 0 ? kKeyLower : kKeyUpper) : key;
    return;
  }
  const int32_t key = st.skx[k];
  if (key == kKeyLower || key == kKeyUpper || key == kKeyFixed) {
    const int32_t by_value = column_key(xk, lkb, ukb);
    if (by_value != key) st.skx[k] = by_value;
  }
}

// v: lambda, rl_i before, ru_i before, rl_k, ru_k, rl_i after, ru_i after; entries: row i.
// Row k = lambda * row i was merged into row i. The dual of a merged side that row k supplied
// moves to row k: y_k = y_i / lambda, y_i = 0.
void PostsolveStack::undo_duplicate_row(const Step& s, UndoState& st) const {
  const int32_t i = s.row, k = s.other;
  const double lambda = s.v[0], rlb = s.v[1], rub = s.v[2], rlk = s.v[3], ruk = s.v[4];
  const double rla = s.v[5], rua = s.v[6];
  double act = 0.0;
  for (int64_t p = s.begin; p < s.end; ++p) act += val[p] * st.x[idx[p]];
  const double y = st.y[i];
  const bool lo_from_k = rla > rlb && !near(rla, rlb);
  const bool up_from_k = rua < rub && !near(rua, rub);
  const bool move = (lo_from_k && y >= 0 && (near(act, rla) || (y > tol_x && !(finite(rlb) && near(act, rlb))))) ||
                    (up_from_k && y <= 0 && (near(act, rua) || (-y > tol_x && !(finite(rub) && near(act, rub)))));
  if (move) {
    st.y[k] = y / lambda;
    st.y[i] = 0.0;
    st.skc[k] = row_key(lambda * act, rlk, ruk);
    if (st.skc[k] == kKeyBasic) st.skc[k] = (st.y[k] >= 0) ? kKeyLower : kKeyUpper;
    st.skc[i] = kKeyBasic;
    return;
  }
  st.y[k] = 0.0;
  st.skc[k] = kKeyBasic;
  const int32_t key = st.skc[i];
  if (key == kKeyLower || key == kKeyUpper || key == kKeyFixed) {
    const int32_t by_value = row_key(act, rlb, rub);
    if (by_value != key) st.skc[i] = by_value;
  }
}

// v: lambda, l_j, u_j, l_k, u_k. Column k = lambda * column j and c_k = lambda c_j were merged
// into x_j' = x_j + lambda x_k; the merged value is split with x_k at a bound when it has
// one, and z_k = lambda z_j.
void PostsolveStack::undo_duplicate_column(const Step& s, UndoState& st) const {
  const int32_t j = s.col, k = s.other;
  const double lambda = s.v[0], lj = s.v[1], uj = s.v[2], lk = s.v[3], uk = s.v[4];
  const double merged = st.x[j];
  const bool merged_basic = st.skx[j] == kKeyBasic || st.skx[j] == kKeySuperBasic;
  double ref = lambda > 0 ? lk : uk;
  if (!finite(ref)) ref = lambda > 0 ? uk : lk;
  if (!finite(ref)) ref = 0.0;
  double xj = std::clamp(merged - lambda * ref, lj, uj);
  double xk = (merged - xj) / lambda;
  if (xk < lk || xk > uk) {
    xk = std::clamp(xk, lk, uk);
    xj = merged - lambda * xk;
  }
  st.x[j] = xj;
  st.x[k] = xk;
  st.z[k] = lambda * st.z[j];
  st.skx[j] = column_key(xj, lj, uj);
  st.skx[k] = column_key(xk, lk, uk);
  // The parts keep the merged column's count of basic items: a basic merged column is
  // basic in exactly one part (x_j unless only x_k is off its bounds), a nonbasic one in
  // none (a part off its bounds is then superbasic).
  auto off_bounds = [](int32_t key) { return key == kKeyBasic || key == kKeySuperBasic; };
  auto nonbasic = [&](int32_t key) { return off_bounds(key) ? static_cast<int32_t>(kKeySuperBasic) : key; };
  const bool k_basic = merged_basic && off_bounds(st.skx[k]) && !off_bounds(st.skx[j]);
  const bool j_basic = merged_basic && !k_basic;
  st.skx[j] = j_basic ? static_cast<int32_t>(kKeyBasic) : nonbasic(st.skx[j]);
  st.skx[k] = k_basic ? static_cast<int32_t>(kKeyBasic) : nonbasic(st.skx[k]);
}

// a'x over row i of the input, through the input by rows, built on first use.
double PostsolveStack::original_row_activity(int32_t i, const Vec<double>& x) const {
  const LpProblem& p = original;
  if (row_start_.empty()) {
    row_start_.assign(static_cast<size_t>(p.m) + 1, 0);
    for (int64_t q = 0; q < p.nnz(); ++q) ++row_start_[static_cast<size_t>(p.rowind[q]) + 1];
    for (int32_t r = 0; r < p.m; ++r) row_start_[r + 1] += row_start_[r];
    row_col_.resize(static_cast<size_t>(p.nnz()));
    row_val_.resize(static_cast<size_t>(p.nnz()));
    Vec<int64_t> next(row_start_.begin(), row_start_.end() - 1, row_start_.get_allocator());
    for (int32_t k = 0; k < p.n; ++k) {
      for (int64_t q = p.colptr[k]; q < p.colptr[k + 1]; ++q) {
        const int64_t at = next[static_cast<size_t>(p.rowind[q])]++;
        row_col_[static_cast<size_t>(at)] = k;
        row_val_[static_cast<size_t>(at)] = p.val[q];
      }
    }
  }
  double act = 0.0;
  for (int64_t q = row_start_[i]; q < row_start_[i + 1]; ++q) act += row_val_[q] * x[row_col_[q]];
  return act;
}

// v: a, l_j, u_j, rl, ru (row i before), g = c_j / a; entries: row i without column j, or
// none when side is 1 and the row is the input's row i.
// With s the rest of the row's activity, a x_j may take any value in [lo, hi] (its own range
// cut by the row's sides); the row's dual decides: y > 0 puts the row on rl, y < 0 on ru,
// and z_j = -a y has the sign that bound of x_j needs. A cost (equality rows only) was moved
// to the other columns as -g a_iq, so their reduced costs stay with y_i = y + g, and
// z_j = c_j - a y_i = -a y as before.
void PostsolveStack::undo_slack_column(const Step& s, UndoState& st) const {
  const int32_t i = s.row, j = s.col;
  const double a = s.v[0], l = s.v[1], u = s.v[2], rl = s.v[3], ru = s.v[4];
  // Columns gone from the row before this step are still zero here, and x_j is not yet
  // restored: on the input's row the sum is the rest of the row as it was.
  double rest = 0.0;
  if (s.side == 1) rest = original_row_activity(i, st.x);
  for (int64_t p = s.begin; p < s.end; ++p) rest += val[p] * st.x[idx[p]];
  const double min_ax = a > 0 ? a * l : a * u, max_ax = a > 0 ? a * u : a * l;
  const double lo = std::max(min_ax, rl - rest), hi = std::min(max_ax, ru - rest);
  const double y = st.y[i];
  double t;
  if (lo > hi) t = finite(lo) && finite(hi) ? 0.5 * (lo + hi) : (finite(lo) ? lo : hi);
  else if (y > 0) t = lo;
  else if (y < 0) t = hi;
  else if (finite(l) || finite(u)) t = std::clamp(a * (finite(l) ? l : u), lo, hi);
  else t = finite(lo) ? lo : (finite(hi) ? hi : 0.0);  // a free x_j puts the row on a side
  st.x[j] = t / a;
  st.z[j] = -a * y;
  st.y[i] = y + s.v[5];
  const int32_t kx = column_key(st.x[j], l, u), kr = row_key(rest + t, rl, ru);
  const bool x_basic = kx == kKeyBasic || kx == kKeySuperBasic;
  // The pair keeps the row's count of basic items: a basic row leaves one basic item
  // (x_j when it is off its bounds), a nonbasic row none.
  if (st.skc[i] == kKeyBasic) {
    st.skx[j] = x_basic ? static_cast<int32_t>(kKeyBasic) : kx;
    if (x_basic)
      st.skc[i] = kr != kKeyBasic ? kr : (rl == ru ? kKeyFixed : (finite(rl) ? kKeyLower : kKeyUpper));
  } else {
    st.skx[j] = x_basic ? static_cast<int32_t>(kKeySuperBasic) : kx;
    if (kr != kKeyBasic) st.skc[i] = kr;
  }
  // A basic reduced row (y = 0) of an equality with a moved cost has y_i = g: the row is
  // nonbasic and x_j, with z_j = 0, takes the basic place.
  if (s.v[5] != 0.0 && st.skc[i] == kKeyBasic && st.y[i] != 0.0) {
    st.skx[j] = kKeyBasic;
    st.skc[i] = kKeyFixed;
  }
}

// v: a (a_ij), rl_i, ru_i; entries: row i without column j. On the level after, column j
// holds t = a x_j + rest with bounds [rl_i, ru_i] and z_t = c_j / a - sum_r (a_rj / a) y_r.
// Every other column q of row i had its cost and entries changed by -a_iq times those of t,
// so y_i = z_t leaves z_q as it was, and z_j = c_j - a y_i - sum_r a_rj y_r = 0: x_j is basic
// and row i takes t's key.
void PostsolveStack::undo_activity_column(const Step& s, UndoState& st) const {
  const int32_t i = s.row, j = s.col;
  const double a = s.v[0];
  double rest = 0.0;
  for (int64_t p = s.begin; p < s.end; ++p) rest += val[p] * st.x[idx[p]];
  const double t = st.x[j];
  st.x[j] = (t - rest) / a;
  st.y[i] = st.z[j];
  st.z[j] = 0.0;
  const int32_t key = st.skx[j];
  st.skx[j] = kKeyBasic;
  st.skc[i] = key == kKeySuperBasic ? kKeyBasic : key;
  // t may have been fixed by a later step; an inequality row sits at one of its sides.
  if (key == kKeyFixed && s.v[1] != s.v[2]) st.skc[i] = row_key(t, s.v[1], s.v[2]);
  if (st.skc[i] == kKeyBasic && key == kKeyFixed)
    st.skc[i] = finite(s.v[1]) && (st.y[i] >= 0 || !finite(s.v[2])) ? kKeyLower : kKeyUpper;
}

// v: a_pj, a_qj, mu, l_j, u_j, rl_p, ru_p, rl_q, ru_q; entries: row p without x_j, then row
// q without x_j, as they were. On the level after, row p held the rest of p (x_j at its
// finite bound b) and row q held q + mu p. With y_q = y'_q and y_p = y'_p + mu y'_q every
// other column keeps its reduced cost, and z_j = -a_pj y'_p. x_j makes q tight when q's
// dual is nonzero (then p is tight as well), sits at b when p's is, and otherwise takes b
// or the nearest value the two rows allow.
void PostsolveStack::undo_fourier_motzkin(const Step& s, UndoState& st) const {
  const int32_t p = s.row, j = s.col, q = s.other;
  const double ap = s.v[0], aq = s.v[1], mu = s.v[2], l = s.v[3], u = s.v[4];
  const double rlp = s.v[5], rup = s.v[6], rlq = s.v[7], ruq = s.v[8];
  double rest_p = 0.0, rest_q = 0.0;
  for (int64_t k = s.begin; k < s.mid; ++k) rest_p += val[k] * st.x[idx[k]];
  for (int64_t k = s.mid; k < s.end; ++k) rest_q += val[k] * st.x[idx[k]];
  const double yp = st.y[p], yq = st.y[q];
  st.y[p] = yp + mu * yq;
  st.z[j] = -ap * yp;
  const double b = finite(l) ? l : u;
  // The value of x_j that puts each row on its finite side, and the range both allow.
  const double xp = ((finite(rup) ? rup : rlp) - rest_p) / ap;
  const double xq = ((finite(ruq) ? ruq : rlq) - rest_q) / aq;
  const bool p_upper = (finite(rup) ? ap : -ap) > 0, q_upper = (finite(ruq) ? aq : -aq) > 0;
  const double lo = std::max({l, p_upper ? -HUGE_VAL : xp, q_upper ? -HUGE_VAL : xq});
  const double hi = std::min({u, p_upper ? xp : HUGE_VAL, q_upper ? xq : HUGE_VAL});
  double x;
  if (yq != 0.0) x = xq;
  else if (yp != 0.0) x = b;
  else x = b >= lo && b <= hi ? b : (std::fabs(xq - b) < std::fabs(xp - b) ? xq : xp);
  if (lo <= hi) x = std::clamp(x, lo, hi);
  st.x[j] = x;
  const double act_p = ap * x + rest_p, act_q = aq * x + rest_q;
  const int32_t kx = column_key(x, l, u);
  const bool x_at_bound = kx == kKeyLower || kx == kKeyUpper;
  st.skx[j] = x_at_bound ? kx : kKeyBasic;
  if (x_at_bound && !(yq != 0.0 && st.skc[p] == kKeyBasic)) return;
  // x_j is basic: a row that was basic on the level after and is tight now takes the
  // nonbasic place (p when its dual became nonzero, else q, else p).
  st.skx[j] = kKeyBasic;
  const int32_t kp = row_key(act_p, rlp, rup), kq = row_key(act_q, rlq, ruq);
  if (st.skc[p] == kKeyBasic && kp != kKeyBasic && (yq != 0.0 || st.skc[q] != kKeyBasic || kq == kKeyBasic)) {
    st.skc[p] = kp;
  } else if (st.skc[q] == kKeyBasic && kq != kKeyBasic) {
    st.skc[q] = kq;
  }
}

}  // namespace qubor::presolve
