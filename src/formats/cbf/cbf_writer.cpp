// The CBF writer. It reads the task through the public interface, plans the VAR domains and
// the CON rows as cbf.h describes, and writes VER, POWCONES, POW*CONES, OBJSENSE, PSDVAR, VAR,
// INT, CON, OBJFCOORD, OBJACOORD, OBJBCOORD, FCOORD, ACOORD and BCOORD. The version is the
// lowest that holds the domains used: 3 with power cones, 2 with exponential cones, else 1.
// Numbers are the shortest texts that read back to the same doubles. Matrix-variable
// coefficients are written as the entries of the weighted sum of their stored matrices.
#include <algorithm>
#include <cmath>
#include <map>
#include <string>
#include <vector>

#include "formats/cbf/cbf.h"
#include "formats/frame/try.h"
#include "task/report.h"

namespace qubor::formats {

using task::Task;

namespace {

using cbf::Domain;

constexpr double kInf = 1.0e30;
constexpr int kDigits = 17;  // shortest round-trip text

// Consecutive members of one domain: a run of linear rows or variables, or one cone.
struct Run {
  Domain domain;
  int64_t dim;
  int32_t power;  // index into the POWCONES or POW*CONES list, or -1
  bool cone;      // a cone's members (a zero cone is L= but stays apart)
};

struct Coef {
  int64_t i;
  int32_t j;
  double v;
};

// A matrix entry of a matrix variable, with the row or -1 for the objective.
struct MatEntry {
  int64_t i;
  int32_t j, k, l;
  double v;
};

bool finite_lower(int32_t bk, double bl) {
  return (bk == QBR_BK_LO || bk == QBR_BK_RA || bk == QBR_BK_FX) && bl > -kInf;
}
bool finite_upper(int32_t bk, double bu) {
  return (bk == QBR_BK_UP || bk == QBR_BK_RA || bk == QBR_BK_FX) && bu < kInf;
}

class CbfWriter {
 public:
  CbfWriter(Task& t, TextWriter& out) : t_(t), h_(t.handle), out_(out) {}

  QBRrescode run() {
    QUBOR_TRY(QBR_getnumvar(h_, &n_));
    QUBOR_TRY(QBR_getnumcon(h_, &m_));
    QUBOR_TRY(plan_cones());
    QUBOR_TRY(plan_variables());
    QUBOR_TRY(plan_constraints());
    QUBOR_TRY(plan_cone_rows());
    QUBOR_TRY(plan_matrix_variables());
    return write();
  }

 private:
  // ---- Planning ---------------------------------------------------------------------------

  static void add_linear(std::vector<Run>* runs, Domain d) {
    if (!runs->empty() && runs->back().domain == d && !runs->back().cone)
      ++runs->back().dim;
    else
      runs->push_back({d, 1, -1, false});
  }

  int32_t power_index(int32_t ct, double par) {
    if (ct != QBR_CT_PPOW && ct != QBR_CT_DPOW) return -1;
    std::map<double, int32_t>& m = ct == QBR_CT_PPOW ? pow_ : pow_star_;
    std::vector<double>& list = ct == QBR_CT_PPOW ? pow_list_ : pow_star_list_;
    auto it = m.find(par);
    if (it != m.end()) return it->second;
    const int32_t k = static_cast<int32_t>(list.size());
    list.push_back(par);
    m.emplace(par, k);
    return k;
  }

  // Cones whose members are consecutive variables in order go into VAR; the others into CON.
  QBRrescode plan_cones() {
    int32_t numcone = 0;
    QUBOR_TRY(QBR_getnumcone(h_, &numcone));
    cone_at_.assign(static_cast<size_t>(n_), -1);
    std::vector<int32_t> mem(static_cast<size_t>(n_));
    for (int32_t k = 0; k < numcone; ++k) {
      int32_t ct = 0, nm = 0;
      double par = 0.0;
      QUBOR_TRY(QBR_getcone(h_, k, &ct, &par, &nm, mem.data()));
      if (nm == 0) continue;
      bool seq = true;
      for (int32_t q = 1; q < nm; ++q) seq = seq && mem[static_cast<size_t>(q)] == mem[0] + q;
      const Cone c{ct, power_index(ct, par), std::vector<int32_t>(mem.begin(), mem.begin() + nm)};
      if (seq) {
        cone_at_[static_cast<size_t>(mem[0])] = static_cast<int32_t>(var_cones_.size());
        var_cones_.push_back(c);
      } else {
        con_cones_.push_back(c);
      }
    }
    return QBR_RES_OK;
  }

  void bound_row(int32_t j, Domain d, double bound) {
    bound_rows_.push_back({j, d, -bound});
  }

  // Bounds of variable j that its VAR domain does not state become rows.
  Domain scalar_domain(int32_t j, int32_t bk, double bl, double bu, bool in_cone) {
    const bool lo = finite_lower(bk, bl), up = finite_upper(bk, bu);
    if (bk == QBR_BK_FX && lo) {
      if (!in_cone && bl == 0.0) return Domain::kZero;
      bound_row(j, Domain::kZero, bl);
      return Domain::kFree;
    }
    Domain d = Domain::kFree;
    bool lo_done = false, up_done = false;
    if (!in_cone && lo && bl == 0.0) {
      d = Domain::kNonneg;
      lo_done = true;
    } else if (!in_cone && up && bu == 0.0) {
      d = Domain::kNonpos;
      up_done = true;
    }
    if (lo && !lo_done) bound_row(j, Domain::kNonneg, bl);
    if (up && !up_done) bound_row(j, Domain::kNonpos, bu);
    return d;
  }

  QBRrescode plan_variables() {
    std::vector<int32_t> bk(static_cast<size_t>(n_));
    std::vector<double> bl(static_cast<size_t>(n_)), bu(static_cast<size_t>(n_));
    if (n_ > 0) QUBOR_TRY(QBR_getvarboundslice(h_, 0, n_, bk.data(), bl.data(), bu.data()));
    for (int32_t j = 0; j < n_;) {
      const size_t u = static_cast<size_t>(j);
      const int32_t k = cone_at_[u];
      if (k < 0) {
        add_linear(&var_runs_, scalar_domain(j, bk[u], bl[u], bu[u], false));
        ++j;
        continue;
      }
      const Cone& c = var_cones_[static_cast<size_t>(k)];
      var_runs_.push_back({cbf::domain_of_cone(c.type), static_cast<int64_t>(c.members.size()), c.power, true});
      for (int32_t m : c.members) {
        const size_t v = static_cast<size_t>(m);
        scalar_domain(m, bk[v], bl[v], bu[v], true);
      }
      j += static_cast<int32_t>(c.members.size());
    }
    return QBR_RES_OK;
  }

  // The task's constraints keep their rows; a ranged one gets a twin L- row behind them.
  QBRrescode plan_constraints() {
    std::vector<int32_t> bk(static_cast<size_t>(m_));
    std::vector<double> bl(static_cast<size_t>(m_)), bu(static_cast<size_t>(m_));
    if (m_ > 0) QUBOR_TRY(QBR_getconboundslice(h_, 0, m_, bk.data(), bl.data(), bu.data()));
    twin_.assign(static_cast<size_t>(m_), -1);
    std::vector<int32_t> twins;
    for (int32_t i = 0; i < m_; ++i) {
      const size_t u = static_cast<size_t>(i);
      const bool lo = finite_lower(bk[u], bl[u]), up = finite_upper(bk[u], bu[u]);
      Domain d = Domain::kFree;
      if (bk[u] == QBR_BK_FX && lo) {
        d = Domain::kZero;
      } else if (lo) {
        d = Domain::kNonneg;
        if (up) twins.push_back(i);
      } else if (up) {
        d = Domain::kNonpos;
      }
      add_linear(&con_runs_, d);
      if (d != Domain::kFree) b_.push_back({i, 0, d == Domain::kNonpos ? -bu[u] : -bl[u]});
    }
    int64_t r = m_;
    for (int32_t i : twins) {
      twin_[static_cast<size_t>(i)] = r;
      add_linear(&con_runs_, Domain::kNonpos);
      b_.push_back({r++, 0, -bu[static_cast<size_t>(i)]});
    }
    for (const BoundRow& br : bound_rows_) {
      add_linear(&con_runs_, br.domain);
      a_extra_.push_back({r, br.j, 1.0});
      b_.push_back({r++, 0, br.b});
    }
    numrow_ = r;
    return QBR_RES_OK;
  }

  // Cones that are not consecutive: one row x_m per member, in the cone's domain.
  QBRrescode plan_cone_rows() {
    for (const Cone& c : con_cones_) {
      con_runs_.push_back({cbf::domain_of_cone(c.type), static_cast<int64_t>(c.members.size()), c.power, true});
      for (int32_t m : c.members) a_extra_.push_back({numrow_++, m, 1.0});
    }
    return QBR_RES_OK;
  }

  // Adds the entries of weight * (stored matrix idx) for row i (-1: objective) and var j.
  QBRrescode expand(int64_t i, int32_t j, int64_t num, const int64_t* sub, const double* w) {
    for (int64_t q = 0; q < num; ++q) {
      int32_t dim = 0;
      int64_t nz = 0;
      QUBOR_TRY(QBR_getsymmatinfo(h_, sub[q], &dim, &nz));
      std::vector<int32_t> si(static_cast<size_t>(nz)), sj(static_cast<size_t>(nz));
      std::vector<double> sv(static_cast<size_t>(nz));
      QUBOR_TRY(QBR_getsparsesymmat(h_, sub[q], nz, si.data(), sj.data(), sv.data()));
      for (size_t e = 0; e < static_cast<size_t>(nz); ++e) mat_.push_back({i, j, si[e], sj[e], w[q] * sv[e]});
    }
    return QBR_RES_OK;
  }

  QBRrescode plan_matrix_variables() {
    int32_t numbarvar = 0;
    QUBOR_TRY(QBR_getnumbarvar(h_, &numbarvar));
    for (int32_t j = 0; j < numbarvar; ++j) {
      int32_t d = 0;
      QUBOR_TRY(QBR_getdimbarvarj(h_, j, &d));
      psd_dims_.push_back(d);
    }
    int64_t nc = 0, na = 0;
    QUBOR_TRY(QBR_getnumbarcnz(h_, &nc));
    QUBOR_TRY(QBR_getnumbaranz(h_, &na));
    std::vector<int64_t> idx(static_cast<size_t>(std::max(nc, na)));
    std::vector<int64_t> sub;
    std::vector<double> w;
    int64_t got = 0;
    QUBOR_TRY(QBR_getbarcsparsity(h_, nc, &got, idx.data()));
    for (int64_t q = 0; q < got; ++q) {
      int64_t num = 0;
      int32_t j = 0;
      QUBOR_TRY(QBR_getbarcidxinfo(h_, idx[static_cast<size_t>(q)], &num));
      sub.resize(static_cast<size_t>(num));
      w.resize(static_cast<size_t>(num));
      QUBOR_TRY(QBR_getbarcidx(h_, idx[static_cast<size_t>(q)], num, &j, &num, sub.data(), w.data()));
      QUBOR_TRY(expand(-1, j, num, sub.data(), w.data()));
    }
    QUBOR_TRY(QBR_getbarasparsity(h_, na, &got, idx.data()));
    for (int64_t q = 0; q < got; ++q) {
      int64_t num = 0;
      int32_t i = 0, j = 0;
      QUBOR_TRY(QBR_getbaraidxinfo(h_, idx[static_cast<size_t>(q)], &num));
      sub.resize(static_cast<size_t>(num));
      w.resize(static_cast<size_t>(num));
      QUBOR_TRY(QBR_getbaraidx(h_, idx[static_cast<size_t>(q)], num, &i, &j, &num, sub.data(), w.data()));
      QUBOR_TRY(expand(i, j, num, sub.data(), w.data()));
      const int64_t twin = twin_[static_cast<size_t>(i)];
      if (twin >= 0) QUBOR_TRY(expand(twin, j, num, sub.data(), w.data()));
    }
    // Entries of several stored matrices at one position add up.
    std::sort(mat_.begin(), mat_.end(), [](const MatEntry& x, const MatEntry& y) {
      if (x.i != y.i) return x.i < y.i;
      if (x.j != y.j) return x.j < y.j;
      return x.k != y.k ? x.k < y.k : x.l < y.l;
    });
    size_t out = 0;
    for (size_t q = 0; q < mat_.size(); ++q) {
      if (out > 0 && mat_[out - 1].i == mat_[q].i && mat_[out - 1].j == mat_[q].j && mat_[out - 1].k == mat_[q].k &&
          mat_[out - 1].l == mat_[q].l)
        mat_[out - 1].v += mat_[q].v;
      else
        mat_[out++] = mat_[q];
    }
    mat_.resize(out);
    return QBR_RES_OK;
  }

  // ---- Writing ------------------------------------------------------------------------------

  void number(double v) { out_.number(v, kDigits); }

  int version() const {
    if (!pow_list_.empty() || !pow_star_list_.empty()) return 3;
    for (const std::vector<Run>* runs : {&var_runs_, &con_runs_})
      for (const Run& r : *runs)
        if (r.domain == Domain::kExp || r.domain == Domain::kDexp) return 2;
    return 1;
  }

  void powers(const char* word, const std::vector<double>& list) {
    if (list.empty()) return;
    out_.printf("%s\n%zu %zu\n", word, list.size(), 2 * list.size());
    // The task's parameter a is the cone with powers (a, 1 - a); they add up to 1 exactly,
    // so a / (a + (1 - a)) reads back as a.
    for (double a : list) {
      out_.put("2\n");
      number(a);
      out_.put('\n');
      number(1.0 - a);
      out_.put('\n');
    }
    out_.put('\n');
  }

  void runs(const char* word, int64_t total, const std::vector<Run>& list) {
    out_.printf("%s\n%lld %zu\n", word, static_cast<long long>(total), list.size());
    for (const Run& r : list) {
      if (r.power >= 0) out_.printf("@%d:", r.power);
      out_.put(cbf::domain_row(r.domain).word);
      out_.printf(" %lld\n", static_cast<long long>(r.dim));
    }
    out_.put('\n');
  }

  QBRrescode write_head() {
    int32_t major = 0, minor = 0, rev = 0, sense = QBR_OBJECTIVE_SENSE_MINIMIZE;
    QBR_getversion(&major, &minor, &rev);
    QUBOR_TRY(QBR_getobjsense(h_, &sense));
    out_.printf("# Written by QUBOR version %d.%d.%d\n", major, minor, rev);
    out_.printf("VER\n%d\n\n", version());
    powers("POWCONES", pow_list_);
    powers("POW*CONES", pow_star_list_);
    out_.printf("OBJSENSE\n%s\n\n", sense == QBR_OBJECTIVE_SENSE_MAXIMIZE ? "MAX" : "MIN");
    if (!psd_dims_.empty()) {
      out_.printf("PSDVAR\n%zu\n", psd_dims_.size());
      for (int32_t d : psd_dims_) out_.printf("%d\n", d);
      out_.put('\n');
    }
    if (n_ > 0 || psd_dims_.empty()) runs("VAR", n_, var_runs_);
    std::vector<int32_t> ints;
    for (int32_t j = 0; j < n_; ++j) {
      int32_t type = QBR_VAR_TYPE_CONT;
      QUBOR_TRY(QBR_getvartype(h_, j, &type));
      if (type == QBR_VAR_TYPE_INT) ints.push_back(j);
    }
    if (!ints.empty()) {
      out_.printf("INT\n%zu\n", ints.size());
      for (int32_t j : ints) out_.printf("%d\n", j);
      out_.put('\n');
    }
    if (numrow_ > 0) runs("CON", numrow_, con_runs_);
    return QBR_RES_OK;
  }

  // The matrix entries of the objective (i == -1) or of the rows.
  void matrix_entries(const char* word, bool objective) {
    size_t count = 0;
    for (const MatEntry& e : mat_) count += (e.i < 0) == objective;
    if (count == 0) return;
    out_.printf("%s\n%zu\n", word, count);
    for (const MatEntry& e : mat_) {
      if ((e.i < 0) != objective) continue;
      if (!objective) out_.printf("%lld ", static_cast<long long>(e.i));
      out_.printf("%d %d %d ", e.j, e.k, e.l);
      number(e.v);
      out_.put('\n');
    }
    out_.put('\n');
  }

  QBRrescode write_objective() {
    matrix_entries("OBJFCOORD", true);
    std::vector<double> c(static_cast<size_t>(n_));
    if (n_ > 0) QUBOR_TRY(QBR_getcslice(h_, 0, n_, c.data()));
    const size_t nz = static_cast<size_t>(std::count_if(c.begin(), c.end(), [](double v) { return v != 0.0; }));
    if (nz > 0) {
      out_.printf("OBJACOORD\n%zu\n", nz);
      for (int32_t j = 0; j < n_; ++j) {
        if (c[static_cast<size_t>(j)] == 0.0) continue;
        out_.printf("%d ", j);
        number(c[static_cast<size_t>(j)]);
        out_.put('\n');
      }
      out_.put('\n');
    }
    double cfix = 0.0;
    QUBOR_TRY(QBR_getcfix(h_, &cfix));
    if (cfix != 0.0) {
      out_.put("OBJBCOORD\n");
      number(cfix);
      out_.put("\n\n");
    }
    return QBR_RES_OK;
  }

  void coef(int64_t i, int32_t j, double v) {
    out_.printf("%lld %d ", static_cast<long long>(i), j);
    number(v);
    out_.put('\n');
  }

  QBRrescode write_rows() {
    matrix_entries("FCOORD", false);
    int64_t nnz = 0;
    QUBOR_TRY(QBR_getnumanz64(h_, &nnz));
    for (int32_t i = 0; i < m_; ++i) {
      if (twin_[static_cast<size_t>(i)] < 0) continue;
      int32_t nzi = 0;
      QUBOR_TRY(QBR_getarownumnz(h_, i, &nzi));
      nnz += nzi;
    }
    nnz += static_cast<int64_t>(a_extra_.size());
    if (nnz > 0) {
      out_.printf("ACOORD\n%lld\n", static_cast<long long>(nnz));
      std::vector<int32_t> sub(static_cast<size_t>(n_));
      std::vector<double> val(static_cast<size_t>(n_));
      std::vector<Coef> twins;
      for (int32_t i = 0; i < m_; ++i) {
        int32_t nzi = 0;
        QUBOR_TRY(QBR_getarow(h_, i, &nzi, sub.data(), val.data()));
        const int64_t twin = twin_[static_cast<size_t>(i)];
        for (int32_t q = 0; q < nzi; ++q) {
          coef(i, sub[static_cast<size_t>(q)], val[static_cast<size_t>(q)]);
          if (twin >= 0) twins.push_back({twin, sub[static_cast<size_t>(q)], val[static_cast<size_t>(q)]});
        }
      }
      for (const std::vector<Coef>* list : {&twins, &a_extra_})
        for (const Coef& e : *list) coef(e.i, e.j, e.v);
      out_.put('\n');
    }
    size_t nb = 0;
    for (const Coef& e : b_) nb += e.v != 0.0;
    if (nb > 0) {
      out_.printf("BCOORD\n%zu\n", nb);
      for (const Coef& e : b_) {
        if (e.v == 0.0) continue;
        out_.printf("%lld ", static_cast<long long>(e.i));
        number(e.v);
        out_.put('\n');
      }
      out_.put('\n');
    }
    return QBR_RES_OK;
  }

  QBRrescode write() {
    QUBOR_TRY(write_head());
    QUBOR_TRY(write_objective());
    return write_rows();
  }

  struct Cone {
    int32_t type;
    int32_t power;
    std::vector<int32_t> members;
  };
  struct BoundRow {
    int32_t j;
    Domain domain;
    double b;
  };

  Task& t_;
  QBRtask_t h_;
  TextWriter& out_;
  int32_t n_ = 0, m_ = 0;
  int64_t numrow_ = 0;
  std::vector<int32_t> cone_at_;  // the VAR cone that starts at a variable, or -1
  std::vector<Cone> var_cones_, con_cones_;
  std::map<double, int32_t> pow_, pow_star_;
  std::vector<double> pow_list_, pow_star_list_;
  std::vector<Run> var_runs_, con_runs_;
  std::vector<BoundRow> bound_rows_;
  std::vector<int64_t> twin_;  // the L- row of a ranged constraint, or -1
  std::vector<Coef> a_extra_, b_;
  std::vector<MatEntry> mat_;
  std::vector<int32_t> psd_dims_;
};

}  // namespace

QBRrescode write_cbf(Task& t, TextWriter& out) { return CbfWriter(t, out).run(); }

}  // namespace qubor::formats
