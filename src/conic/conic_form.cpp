// The internal form of a conic problem and the way back; see conic_form.h.
#include "conic/conic_form.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace qubor::conic {
namespace {

constexpr double kSqrt2 = 1.4142135623730951;

struct Triplet {
  int32_t row;
  int32_t col;  // >= 0: nonnegative column; < 0: cone column -1 - id
  double v;
};

class Builder {
 public:
  Builder(const ConicProblem& p, ConicForm& f) : p_(p), f_(f) {}

  bool run(std::string* why) {
    const interior::LpProblem& lp = p_.lp;
    if (!check(why)) return false;
    // Internal rows of the problem's rows: free rows are dropped.
    f_.row_internal.assign(static_cast<size_t>(lp.num_row), -1);
    singleton_rows();
    for (int32_t i = 0; i < lp.num_row; ++i)
      if ((std::isfinite(lp.row_lo[static_cast<size_t>(i)]) || std::isfinite(lp.row_up[static_cast<size_t>(i)])) &&
          !dropped_[static_cast<size_t>(i)])
        f_.row_internal[static_cast<size_t>(i)] = new_row(0.0);
    // Cone columns: quadratic cones in order, then the nonsymmetric cones, then the matrix
    // variables.
    std::vector<int32_t> cone_col_of(static_cast<size_t>(lp.num_col), -1);
    std::vector<double> cone_fac_of(static_cast<size_t>(lp.num_col), 1.0);
    std::vector<int8_t> in_zero(static_cast<size_t>(lp.num_col), 0);
    int32_t next_cone_col = 0;
    for (int pass = 0; pass < 2; ++pass)
      for (size_t k = 0; k + 1 < p_.cone_ptr.size(); ++k) {
        const auto type = static_cast<ConeType>(p_.cone_type[k]);
        const int64_t b = p_.cone_ptr[k], e = p_.cone_ptr[k + 1];
        const int32_t dim = static_cast<int32_t>(e - b);
        const bool quad = type == ConeType::kQuad || type == ConeType::kRQuad;
        if (type == ConeType::kZero) {
          if (pass == 0)
            for (int64_t q = b; q < e; ++q) in_zero[static_cast<size_t>(p_.cone_mem[static_cast<size_t>(q)])] = 1;
          continue;
        }
        if (e == b || quad != (pass == 0)) continue;
        auto member = [&](int64_t i) { return static_cast<size_t>(p_.cone_mem[static_cast<size_t>(b + i)]); };
        if (quad) {
          f_.layout.soc_dim.push_back(dim);
          for (int64_t i = 0; i < dim; ++i) cone_col_of[member(i)] = next_cone_col++;
          if (type == ConeType::kRQuad) rot_first_.push_back(next_cone_col - dim);
          continue;
        }
        NonsymSpec spec;
        spec.dim = dim;
        spec.kind = type == ConeType::kPExp || type == ConeType::kDExp ? NonsymSpec::kExp : NonsymSpec::kPow;
        spec.alpha = k < p_.cone_par.size() ? p_.cone_par[k] : 0.5;
        f_.layout.nonsym.push_back(spec);
        for (int64_t i = 0; i < dim; ++i) cone_col_of[member(i)] = next_cone_col + static_cast<int32_t>(i);
        if (type == ConeType::kDExp) {
          // x = (z1, -e z3, -e z2) with z in the primal cone.
          cone_col_of[member(1)] = next_cone_col + 2;
          cone_col_of[member(2)] = next_cone_col + 1;
          cone_fac_of[member(1)] = cone_fac_of[member(2)] = -std::exp(1.0);
        } else if (type == ConeType::kDPow) {
          cone_fac_of[member(0)] = spec.alpha;
          cone_fac_of[member(1)] = 1.0 - spec.alpha;
        }
        next_cone_col += dim;
      }
    for (int32_t d : p_.bar_dim) {
      bar_first_.push_back(next_cone_col);
      next_cone_col += static_cast<int32_t>(svec_len(d));
      f_.layout.psd_dim.push_back(d);
    }
    cone_c_.assign(static_cast<size_t>(next_cone_col), 0.0);
    // Variables.
    f_.var_map.assign(static_cast<size_t>(lp.num_col), ItemMap());
    for (int32_t j = 0; j < lp.num_col; ++j) {
      const size_t uj = static_cast<size_t>(j);
      home_.clear();
      for (int64_t q = lp.col_ptr[uj]; q < lp.col_ptr[uj + 1]; ++q) {
        const int32_t r = f_.row_internal[static_cast<size_t>(lp.row_idx[static_cast<size_t>(q)])];
        if (r >= 0) home_.push_back({r, 0, lp.values[static_cast<size_t>(q)]});
      }
      if (in_zero[uj]) {
        f_.var_map[uj] = place_linear(0.0, 0.0, lp.c[uj]);
      } else if (cone_col_of[uj] >= 0) {
        f_.var_map[uj] = place_member(-1 - cone_col_of[uj], cone_fac_of[uj], lp.col_lo[uj], lp.col_up[uj], lp.c[uj]);
      } else {
        f_.var_map[uj] = place_linear(lo_[uj], up_[uj], lp.c[uj]);
      }
    }
    // Row slacks.
    f_.row_map.assign(static_cast<size_t>(lp.num_row), ItemMap());
    for (int32_t i = 0; i < lp.num_row; ++i) {
      const int32_t r = f_.row_internal[static_cast<size_t>(i)];
      if (r < 0) continue;
      home_.assign(1, {r, 0, -1.0});
      f_.row_map[static_cast<size_t>(i)] = place_linear(lp.row_lo[static_cast<size_t>(i)], lp.row_up[static_cast<size_t>(i)], 0.0);
    }
    f_.obj_const += lp.cfix;
    add_matrix_terms();
    finish();
    return true;
  }

 private:
  bool check(std::string* why) {
    const interior::LpProblem& lp = p_.lp;
    for (size_t k = 0; k < lp.values.size(); ++k)
      if (!std::isfinite(lp.values[k])) return fail(why, "a constraint coefficient is not finite");
    for (int32_t j = 0; j < lp.num_col; ++j) {
      const size_t u = static_cast<size_t>(j);
      if (!std::isfinite(lp.c[u])) return fail(why, "an objective coefficient is not finite");
      if (std::isnan(lp.col_lo[u]) || std::isnan(lp.col_up[u]) || lp.col_lo[u] > lp.col_up[u])
        return fail(why, "a variable has inconsistent bounds");
    }
    for (int32_t i = 0; i < lp.num_row; ++i) {
      const size_t u = static_cast<size_t>(i);
      if (std::isnan(lp.row_lo[u]) || std::isnan(lp.row_up[u]) || lp.row_lo[u] > lp.row_up[u])
        return fail(why, "a constraint has inconsistent bounds");
    }
    for (const BarEntry& e : p_.bar) {
      if (!std::isfinite(e.v)) return fail(why, "a matrix coefficient is not finite");
      if (e.bar < 0 || e.bar >= static_cast<int32_t>(p_.bar_dim.size()) || e.row >= lp.num_row || e.r < e.c ||
          e.c < 0 || e.r >= p_.bar_dim[static_cast<size_t>(e.bar)])
        return fail(why, "a matrix coefficient is out of range");
    }
    return true;
  }
  // Rows with one entry, of a variable outside the cones, become bounds of that variable
  // (unless the bounds would cross, which is left for the optimizer to certify).
  void singleton_rows() {
    const interior::LpProblem& lp = p_.lp;
    const size_t n = static_cast<size_t>(lp.num_col), m = static_cast<size_t>(lp.num_row);
    lo_.assign(lp.col_lo.begin(), lp.col_lo.end());
    up_.assign(lp.col_up.begin(), lp.col_up.end());
    f_.lo_row.assign(n, -1);
    f_.up_row.assign(n, -1);
    dropped_.assign(m, 0);
    std::vector<int32_t> count(m, 0), col_of(m, -1);
    std::vector<double> coef(m, 0.0);
    std::vector<int8_t> in_cone(n, 0), has_bar(m, 0);
    for (int32_t q : p_.cone_mem) in_cone[static_cast<size_t>(q)] = 1;
    for (const BarEntry& e : p_.bar)
      if (e.row >= 0) has_bar[static_cast<size_t>(e.row)] = 1;
    for (size_t j = 0; j < n; ++j)
      for (int64_t q = lp.col_ptr[j]; q < lp.col_ptr[j + 1]; ++q) {
        const size_t i = static_cast<size_t>(lp.row_idx[static_cast<size_t>(q)]);
        if (lp.values[static_cast<size_t>(q)] == 0.0) continue;
        ++count[i];
        col_of[i] = static_cast<int32_t>(j);
        coef[i] = lp.values[static_cast<size_t>(q)];
      }
    for (size_t i = 0; i < m; ++i) {
      if (count[i] != 1 || has_bar[i] || in_cone[static_cast<size_t>(col_of[i])]) continue;
      const size_t j = static_cast<size_t>(col_of[i]);
      const double a = coef[i];
      double lo = a > 0.0 ? lp.row_lo[i] / a : lp.row_up[i] / a;
      double up = a > 0.0 ? lp.row_up[i] / a : lp.row_lo[i] / a;
      if (std::isnan(lo)) lo = -INFINITY;
      if (std::isnan(up)) up = INFINITY;
      const double new_lo = std::max(lo_[j], lo), new_up = std::min(up_[j], up);
      if (new_lo > new_up) continue;
      if (lo > lo_[j]) {
        lo_[j] = lo;
        f_.lo_row[j] = static_cast<int32_t>(i);
      }
      if (up < up_[j]) {
        up_[j] = up;
        f_.up_row[j] = static_cast<int32_t>(i);
      }
      dropped_[i] = 1;
      ++f_.num_singleton_rows;
    }
  }
  static bool fail(std::string* why, const char* text) {
    if (why) *why = text;
    return false;
  }
  int32_t new_row(double rhs) {
    f_.b.push_back(rhs);
    return f_.m++;
  }
  int32_t new_col(double cost) {
    lin_c_.push_back(cost);
    return num_lin_++;
  }
  void emit_home(int32_t col, double sign) {
    for (const Triplet& h : home_) trip_.push_back({h.row, col, sign * h.v});
  }
  void shift_rhs(double value) {
    for (const Triplet& h : home_) f_.b[static_cast<size_t>(h.row)] -= h.v * value;
  }
  ItemMap place_linear(double lo, double up, double cost) {
    ItemMap m;
    const bool has_lo = std::isfinite(lo), has_up = std::isfinite(up);
    if (has_lo && has_up && lo == up) {
      m.kind = ItemMap::kFixed;
      m.shift = lo;
      shift_rhs(lo);
      f_.obj_const += cost * lo;
    } else if (has_lo) {
      m.kind = has_up ? ItemMap::kBoxed : ItemMap::kLower;
      m.shift = lo;
      m.col = new_col(cost);
      emit_home(m.col, 1.0);
      shift_rhs(lo);
      f_.obj_const += cost * lo;
      if (has_up) {
        m.col2 = new_col(0.0);
        const int32_t r = new_row(up - lo);
        trip_.push_back({r, m.col, 1.0});
        trip_.push_back({r, m.col2, 1.0});
      }
    } else if (has_up) {
      m.kind = ItemMap::kUpper;
      m.shift = up;
      m.col = new_col(-cost);
      emit_home(m.col, -1.0);
      shift_rhs(up);
      f_.obj_const += cost * up;
    } else {
      m.kind = ItemMap::kFree;
      m.col = new_col(cost);
      m.col2 = new_col(-cost);
      emit_home(m.col, 1.0);
      emit_home(m.col2, -1.0);
    }
    return m;
  }
  // A cone member x = fac z of cone column z.
  ItemMap place_member(int32_t col, double fac, double lo, double up, double cost) {
    ItemMap m;
    m.kind = ItemMap::kMember;
    m.col = col;
    m.fac = fac;
    emit_home(col, fac);
    cone_c_[static_cast<size_t>(-1 - col)] += fac * cost;
    const bool has_lo = std::isfinite(lo), has_up = std::isfinite(up);
    if (has_lo && has_up && lo == up) {
      m.fix_row = new_row(lo);
      trip_.push_back({m.fix_row, col, fac});
      return m;
    }
    if (has_lo) {
      m.lo_row = new_row(lo);
      m.lo_col = new_col(0.0);
      trip_.push_back({m.lo_row, col, fac});
      trip_.push_back({m.lo_row, m.lo_col, -1.0});
    }
    if (has_up) {
      m.up_row = new_row(up);
      m.up_col = new_col(0.0);
      trip_.push_back({m.up_row, col, fac});
      trip_.push_back({m.up_row, m.up_col, 1.0});
    }
    return m;
  }
  // Matrix-variable coefficients: svec columns for A and c, matrix form for the reduced system.
  void add_matrix_terms() {
    std::vector<BarEntry> ent;
    ent.reserve(p_.bar.size());
    for (const BarEntry& e : p_.bar) {
      BarEntry x = e;
      if (e.row >= 0) {
        x.row = f_.row_internal[static_cast<size_t>(e.row)];
        if (x.row < 0) continue;
      }
      ent.push_back(x);
    }
    std::sort(ent.begin(), ent.end(), [](const BarEntry& a, const BarEntry& b) {
      if (a.bar != b.bar) return a.bar < b.bar;
      if (a.row != b.row) return a.row < b.row;
      if (a.c != b.c) return a.c < b.c;
      return a.r < b.r;
    });
    const size_t nb = p_.bar_dim.size();
    f_.psd_row_ptr.assign(nb + 1, 0);
    f_.psd_ent_ptr.assign(1, 0);
    size_t q = 0;
    for (size_t k = 0; k < nb; ++k) {
      const int64_t d = p_.bar_dim[k];
      while (q < ent.size() && static_cast<size_t>(ent[q].bar) == k) {
        const int32_t row = ent[q].row;
        if (row >= 0) f_.psd_rows.push_back(row);
        for (; q < ent.size() && static_cast<size_t>(ent[q].bar) == k && ent[q].row == row;) {
          const int32_t r = ent[q].r, c = ent[q].c;
          double v = 0.0;
          for (; q < ent.size() && static_cast<size_t>(ent[q].bar) == k && ent[q].row == row && ent[q].r == r &&
                 ent[q].c == c;
               ++q)
            v += ent[q].v;
          const int32_t col = -1 - (bar_first_[k] + static_cast<int32_t>(svec_pos(d, r, c)));
          const double sv = r == c ? v : v * kSqrt2;
          if (row < 0) {
            cone_c_[static_cast<size_t>(-1 - col)] += sv;
          } else {
            trip_.push_back({row, col, sv});
            f_.psd_r.push_back(r);
            f_.psd_c.push_back(c);
            f_.psd_v.push_back(v);
          }
        }
        if (row >= 0) f_.psd_ent_ptr.push_back(static_cast<int64_t>(f_.psd_r.size()));
      }
      f_.psd_row_ptr[k + 1] = static_cast<int64_t>(f_.psd_rows.size());
    }
  }
  // Final numbering, rotation of the rotated cones' leading pairs, CSC.
  void finish() {
    f_.layout.num_nonneg = num_lin_;
    f_.n = num_lin_ + static_cast<int32_t>(cone_c_.size());
    auto final_col = [&](int32_t col) { return col >= 0 ? col : num_lin_ + (-1 - col); };
    for (Triplet& t : trip_) t.col = final_col(t.col);
    f_.c.assign(static_cast<size_t>(f_.n), 0.0);
    std::copy(lin_c_.begin(), lin_c_.end(), f_.c.begin());
    std::copy(cone_c_.begin(), cone_c_.end(), f_.c.begin() + num_lin_);
    for (ItemMap& m : f_.var_map)
      if (m.kind == ItemMap::kMember) m.col = final_col(m.col);
    for (int32_t& b : bar_first_) b += num_lin_;
    f_.bar_start.assign(bar_first_.begin(), bar_first_.end());
    // Rotated cones: z = T x on the leading pair, T = [1 1; 1 -1] / sqrt(2) (T = T' = T^-1).
    std::vector<int32_t> partner(static_cast<size_t>(f_.n), -1);
    for (int32_t first : rot_first_) {
      const int32_t p = first + num_lin_, q = p + 1;
      partner[static_cast<size_t>(p)] = q;
      partner[static_cast<size_t>(q)] = p;
      f_.rot_cols.push_back(p);
      const double cp = f_.c[static_cast<size_t>(p)], cq = f_.c[static_cast<size_t>(q)];
      f_.c[static_cast<size_t>(p)] = (cp + cq) / kSqrt2;
      f_.c[static_cast<size_t>(q)] = (cp - cq) / kSqrt2;
    }
    const size_t ntrip = trip_.size();
    for (size_t k = 0; k < ntrip; ++k) {
      const Triplet t = trip_[k];
      const int32_t other = partner[static_cast<size_t>(t.col)];
      if (other < 0) continue;
      const bool first = other > t.col;
      const int32_t p = first ? t.col : other;
      trip_[k] = {t.row, p, t.v / kSqrt2};
      trip_.push_back({t.row, p + 1, first ? t.v / kSqrt2 : -t.v / kSqrt2});
    }
    // CSC with duplicates summed.
    std::vector<int64_t> cnt(static_cast<size_t>(f_.n) + 1, 0);
    for (const Triplet& t : trip_) ++cnt[static_cast<size_t>(t.col) + 1];
    for (size_t j = 0; j < static_cast<size_t>(f_.n); ++j) cnt[j + 1] += cnt[j];
    std::vector<int32_t> rows(trip_.size());
    std::vector<double> vals(trip_.size());
    std::vector<int64_t> pos(cnt.begin(), cnt.end() - 1);
    for (const Triplet& t : trip_) {
      const int64_t at = pos[static_cast<size_t>(t.col)]++;
      rows[static_cast<size_t>(at)] = t.row;
      vals[static_cast<size_t>(at)] = t.v;
    }
    f_.col_ptr.assign(1, 0);
    std::vector<int64_t> last(static_cast<size_t>(f_.m), -1);
    std::vector<std::pair<int32_t, double>> colv;
    for (size_t j = 0; j < static_cast<size_t>(f_.n); ++j) {
      colv.clear();
      for (int64_t q = cnt[j]; q < cnt[j + 1]; ++q) colv.emplace_back(rows[static_cast<size_t>(q)], vals[static_cast<size_t>(q)]);
      std::sort(colv.begin(), colv.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
      for (size_t k = 0; k < colv.size(); ++k) {
        if (!f_.row_idx.empty() && static_cast<int64_t>(f_.row_idx.size()) > f_.col_ptr.back() &&
            f_.row_idx.back() == colv[k].first) {
          f_.values.back() += colv[k].second;
        } else {
          f_.row_idx.push_back(colv[k].first);
          f_.values.push_back(colv[k].second);
        }
      }
      f_.col_ptr.push_back(static_cast<int64_t>(f_.row_idx.size()));
    }
    trip_.clear();
    trip_.shrink_to_fit();
  }

  const ConicProblem& p_;
  ConicForm& f_;
  std::vector<Triplet> trip_, home_;
  std::vector<double> lin_c_, cone_c_;
  int32_t num_lin_ = 0;
  std::vector<int32_t> rot_first_, bar_first_;
  std::vector<double> lo_, up_;     // variable bounds after the singleton rows
  std::vector<int8_t> dropped_;     // rows turned into bounds
};

}  // namespace

bool build_conic_form(const ConicProblem& p, ConicForm& f, std::string* why) {
  f = ConicForm();
  Builder b(p, f);
  return b.run(why);
}

void recover(const ConicProblem& p, const ConicForm& f, const ConicPoint& pt, bool ray,
             ConicSolution& out) {
  const interior::LpProblem& lp = p.lp;
  const size_t n = static_cast<size_t>(lp.num_col), m = static_cast<size_t>(lp.num_row);
  // Undo the rotation of rotated cones on copies of x and s.
  std::vector<double> x(pt.x, pt.x + f.n), s(pt.s, pt.s + f.n);
  for (int32_t c : f.rot_cols) {
    const size_t a = static_cast<size_t>(c), b = a + 1;
    for (std::vector<double>* v : {&x, &s}) {
      const double za = (*v)[a], zb = (*v)[b];
      (*v)[a] = (za + zb) / kSqrt2;
      (*v)[b] = (za - zb) / kSqrt2;
    }
  }
  auto yrow = [&](int32_t r) { return r >= 0 ? pt.y[r] : 0.0; };
  const double shift_on = ray ? 0.0 : 1.0;
  out.xx.assign(n, 0.0);
  out.slx.assign(n, 0.0);
  out.sux.assign(n, 0.0);
  out.snx.assign(n, 0.0);
  for (size_t j = 0; j < n; ++j) {
    const ItemMap& mp = f.var_map[j];
    double rc = ray ? 0.0 : lp.c[j];
    for (int64_t q = lp.col_ptr[j]; q < lp.col_ptr[j + 1]; ++q)
      rc -= lp.values[static_cast<size_t>(q)] * yrow(f.row_internal[static_cast<size_t>(lp.row_idx[static_cast<size_t>(q)])]);
    switch (mp.kind) {
      case ItemMap::kFixed:
        out.xx[j] = shift_on * mp.shift;
        out.slx[j] = std::max(rc, 0.0);
        out.sux[j] = std::max(-rc, 0.0);
        break;
      case ItemMap::kLower:
        out.xx[j] = shift_on * mp.shift + x[static_cast<size_t>(mp.col)];
        out.slx[j] = s[static_cast<size_t>(mp.col)];
        break;
      case ItemMap::kUpper:
        out.xx[j] = shift_on * mp.shift - x[static_cast<size_t>(mp.col)];
        out.sux[j] = s[static_cast<size_t>(mp.col)];
        break;
      case ItemMap::kBoxed:
        out.xx[j] = shift_on * mp.shift + x[static_cast<size_t>(mp.col)];
        out.slx[j] = s[static_cast<size_t>(mp.col)];
        out.sux[j] = s[static_cast<size_t>(mp.col2)];
        break;
      case ItemMap::kFree:
        out.xx[j] = x[static_cast<size_t>(mp.col)] - x[static_cast<size_t>(mp.col2)];
        break;
      case ItemMap::kMember: {
        out.xx[j] = mp.fac * x[static_cast<size_t>(mp.col)];
        out.snx[j] = s[static_cast<size_t>(mp.col)] / mp.fac;
        if (mp.lo_col >= 0) out.slx[j] = s[static_cast<size_t>(mp.lo_col)];
        if (mp.up_col >= 0) out.sux[j] = s[static_cast<size_t>(mp.up_col)];
        if (mp.fix_row >= 0) {
          const double yf = pt.y[mp.fix_row];
          out.slx[j] = std::max(yf, 0.0);
          out.sux[j] = std::max(-yf, 0.0);
        }
        break;
      }
      case ItemMap::kNone: break;
    }
  }
  out.y.assign(m, 0.0);
  out.slc.assign(m, 0.0);
  out.suc.assign(m, 0.0);
  // A bound set by a singleton row a x_j in [l, u] hands its dual to that row: the row's side
  // is the one the bound came from (the lower bound from l when a > 0, from u when a < 0).
  auto entry = [&](size_t j, int32_t row) {
    for (int64_t q = lp.col_ptr[j]; q < lp.col_ptr[j + 1]; ++q)
      if (lp.row_idx[static_cast<size_t>(q)] == row) return lp.values[static_cast<size_t>(q)];
    return 0.0;
  };
  std::vector<double> row_sl(m, 0.0), row_su(m, 0.0);
  for (size_t j = 0; j < n; ++j) {
    for (int side = 0; side < 2; ++side) {
      const int32_t row = side == 0 ? f.lo_row[j] : f.up_row[j];
      if (row < 0) continue;
      double& bound_dual = side == 0 ? out.slx[j] : out.sux[j];
      const double a = entry(j, row);
      const bool row_lower = (side == 0) == (a > 0.0);
      (row_lower ? row_sl : row_su)[static_cast<size_t>(row)] += bound_dual / std::fabs(a);
      bound_dual = 0.0;
    }
  }
  for (size_t i = 0; i < m; ++i) {
    const ItemMap& mp = f.row_map[i];
    const double yi = yrow(f.row_internal[i]);
    out.y[i] = yi;
    switch (mp.kind) {
      case ItemMap::kFixed:
        out.slc[i] = std::max(yi, 0.0);
        out.suc[i] = std::max(-yi, 0.0);
        break;
      case ItemMap::kLower: out.slc[i] = s[static_cast<size_t>(mp.col)]; break;
      case ItemMap::kUpper: out.suc[i] = s[static_cast<size_t>(mp.col)]; break;
      case ItemMap::kBoxed:
        out.slc[i] = s[static_cast<size_t>(mp.col)];
        out.suc[i] = s[static_cast<size_t>(mp.col2)];
        break;
      default:
        out.slc[i] = row_sl[i];
        out.suc[i] = row_su[i];
        out.y[i] = row_sl[i] - row_su[i];
        break;
    }
  }
  // Matrix variables: svec back to packed lower triangles.
  int64_t total = 0;
  for (int32_t d : p.bar_dim) total += svec_len(d);
  out.barx.assign(static_cast<size_t>(total), 0.0);
  out.bars.assign(static_cast<size_t>(total), 0.0);
  int64_t at = 0;
  for (size_t k = 0; k < p.bar_dim.size(); ++k) {
    const int32_t d = p.bar_dim[k];
    const int64_t st = f.bar_start[k];
    int64_t q = 0;
    for (int32_t c = 0; c < d; ++c)
      for (int32_t r = c; r < d; ++r, ++q) {
        const double sc = r == c ? 1.0 : 1.0 / kSqrt2;
        out.barx[static_cast<size_t>(at + q)] = sc * x[static_cast<size_t>(st + q)];
        out.bars[static_cast<size_t>(at + q)] = sc * s[static_cast<size_t>(st + q)];
      }
    at += svec_len(d);
  }
  // Activities and objectives.
  out.xc.assign(m, 0.0);
  for (size_t j = 0; j < n; ++j)
    for (int64_t q = lp.col_ptr[j]; q < lp.col_ptr[j + 1]; ++q)
      out.xc[static_cast<size_t>(lp.row_idx[static_cast<size_t>(q)])] += lp.values[static_cast<size_t>(q)] * out.xx[j];
  std::vector<int64_t> bar_off(p.bar_dim.size(), 0);
  for (size_t k = 1; k < p.bar_dim.size(); ++k) bar_off[k] = bar_off[k - 1] + svec_len(p.bar_dim[k - 1]);
  double pobj = ray ? 0.0 : lp.cfix;
  for (size_t j = 0; j < n; ++j) pobj += lp.c[j] * out.xx[j];
  for (const BarEntry& e : p.bar) {
    const double xv = out.barx[static_cast<size_t>(bar_off[static_cast<size_t>(e.bar)] + svec_pos(p.bar_dim[static_cast<size_t>(e.bar)], e.r, e.c))];
    const double term = (e.r == e.c ? 1.0 : 2.0) * e.v * xv;
    if (e.row < 0) {
      pobj += term;
    } else {
      out.xc[static_cast<size_t>(e.row)] += term;
    }
  }
  double dobj = ray ? 0.0 : lp.cfix;
  for (size_t i = 0; i < m; ++i) {
    if (std::isfinite(lp.row_lo[i])) dobj += out.slc[i] * lp.row_lo[i];
    if (std::isfinite(lp.row_up[i])) dobj -= out.suc[i] * lp.row_up[i];
  }
  for (size_t j = 0; j < n; ++j) {
    if (std::isfinite(lp.col_lo[j])) dobj += out.slx[j] * lp.col_lo[j];
    if (std::isfinite(lp.col_up[j])) dobj -= out.sux[j] * lp.col_up[j];
  }
  out.primal_obj = pobj;
  out.dual_obj = dobj;
}

}  // namespace qubor::conic
