#include <algorithm>
#include <array>
#include <map>
#include <cmath>
#include <string>
#include <vector>

#include "format_fixture.h"

namespace {

void near(double x, double y, double tol, const std::string& what) {
  if (x == y) return;
  const double scale = std::max({1.0, std::fabs(x), std::fabs(y)});
  EXPECT_LE(std::fabs(x - y), tol * scale) << what << ": " << x << " vs " << y;
}

std::string var_name(QBRtask_t t, QBRint32t j) {
  char buf[1024] = {0};
  QBR_getvarname(t, j, sizeof buf, buf);
  return buf;
}

std::string con_name(QBRtask_t t, QBRint32t i) {
  char buf[1024] = {0};
  QBR_getconname(t, i, sizeof buf, buf);
  return buf;
}

std::string obj_name(QBRtask_t t) {
  char buf[1024] = {0};
  QBR_getobjname(t, sizeof buf, buf);
  return buf;
}

struct QTriplet {
  QBRint32t i, j;
  double v;
};
using QTriplets = std::vector<QTriplet>;

// The lower-triangular entries of constraint i's Q in (row, column) order.
QTriplets qcon(QBRtask_t t, QBRint32t i, QBRint64t nz) {
  std::vector<QBRint32t> qi(nz), qj(nz);
  std::vector<double> qv(nz);
  QBRint64t got = 0;
  QBR_getqconk(t, i, nz, &got, qi.data(), qj.data(), qv.data());
  QTriplets out;
  for (QBRint64t k = 0; k < got; ++k) out.push_back({qi[k], qj[k], qv[k]});
  std::sort(out.begin(), out.end(), [](const QTriplet& x, const QTriplet& y) {
    return x.i != y.i ? x.i < y.i : x.j < y.j;
  });
  return out;
}

// The coefficients of the matrix variables, as entries (row or -1 for the objective, matrix
// variable, k, l) of the weighted sums of their stored matrices; zero sums are left out.
std::map<std::array<QBRint64t, 4>, double> bar_entries(QBRtask_t t) {
  std::map<std::array<QBRint64t, 4>, double> out;
  const auto add = [&](QBRint64t i, QBRint32t j, QBRint64t num, const QBRint64t* sub, const double* w) {
    for (QBRint64t q = 0; q < num; ++q) {
      QBRint32t dim = 0;
      QBRint64t nz = 0;
      QBR_getsymmatinfo(t, sub[q], &dim, &nz);
      std::vector<QBRint32t> si(nz), sj(nz);
      std::vector<double> sv(nz);
      QBR_getsparsesymmat(t, sub[q], nz, si.data(), sj.data(), sv.data());
      for (QBRint64t e = 0; e < nz; ++e) out[{i, j, si[e], sj[e]}] += w[q] * sv[e];
    }
  };
  QBRint64t nc = 0, na = 0, got = 0;
  QBR_getnumbarcnz(t, &nc);
  QBR_getnumbaranz(t, &na);
  std::vector<QBRint64t> idx(std::max(nc, na)), sub;
  std::vector<double> w;
  QBR_getbarcsparsity(t, nc, &got, idx.data());
  for (QBRint64t q = 0; q < got; ++q) {
    QBRint64t num = 0;
    QBRint32t j = 0;
    QBR_getbarcidxinfo(t, idx[q], &num);
    sub.resize(num);
    w.resize(num);
    QBR_getbarcidx(t, idx[q], num, &j, &num, sub.data(), w.data());
    add(-1, j, num, sub.data(), w.data());
  }
  QBR_getbarasparsity(t, na, &got, idx.data());
  for (QBRint64t q = 0; q < got; ++q) {
    QBRint64t num = 0;
    QBRint32t i = 0, j = 0;
    QBR_getbaraidxinfo(t, idx[q], &num);
    sub.resize(num);
    w.resize(num);
    QBR_getbaraidx(t, idx[q], num, &i, &j, &num, sub.data(), w.data());
    add(i, j, num, sub.data(), w.data());
  }
  for (auto it = out.begin(); it != out.end();) it = it->second == 0.0 ? out.erase(it) : std::next(it);
  return out;
}

}  // namespace

void expect_same_problem(QBRtask_t a, QBRtask_t b, double tol, bool names) {
  QBRint32t na = 0, nb = 0, ma = 0, mb = 0;
  QBR_getnumvar(a, &na);
  QBR_getnumvar(b, &nb);
  QBR_getnumcon(a, &ma);
  QBR_getnumcon(b, &mb);
  ASSERT_EQ(na, nb);
  ASSERT_EQ(ma, mb);
  QBRint32t sa = 0, sb = 0;
  QBR_getobjsense(a, &sa);
  QBR_getobjsense(b, &sb);
  EXPECT_EQ(sa, sb);
  double fa = 0, fb = 0;
  QBR_getcfix(a, &fa);
  QBR_getcfix(b, &fb);
  near(fa, fb, tol, "cfix");
  for (QBRint32t j = 0; j < na; ++j) {
    QBRint32t bka, bkb, ta, tb;
    double la, ua, lb, ub, ca, cb;
    QBR_getvarbound(a, j, &bka, &la, &ua);
    QBR_getvarbound(b, j, &bkb, &lb, &ub);
    ASSERT_EQ(bka, bkb) << "variable " << j;
    if (bka != QBR_BK_UP && bka != QBR_BK_FR) near(la, lb, tol, "bl");
    if (bka != QBR_BK_LO && bka != QBR_BK_FR) near(ua, ub, tol, "bu");
    QBR_getvartype(a, j, &ta);
    QBR_getvartype(b, j, &tb);
    EXPECT_EQ(ta, tb);
    QBR_getcj(a, j, &ca);
    QBR_getcj(b, j, &cb);
    near(ca, cb, tol, "c");
    if (names) {
      EXPECT_EQ(var_name(a, j), var_name(b, j));
    }
    QBRint32t nza = 0, nzb = 0;
    QBR_getacolnumnz(a, j, &nza);
    QBR_getacolnumnz(b, j, &nzb);
    ASSERT_EQ(nza, nzb) << "column " << j;
    std::vector<QBRint32t> sia(nza), sib(nzb);
    std::vector<double> va(nza), vb(nzb);
    QBR_getacol(a, j, &nza, sia.data(), va.data());
    QBR_getacol(b, j, &nzb, sib.data(), vb.data());
    for (QBRint32t k = 0; k < nza; ++k) {
      double x = 0, y = 0;
      QBR_getaij(a, sia[k], j, &x);
      QBR_getaij(b, sia[k], j, &y);
      near(x, y, tol, "a");
    }
  }
  for (QBRint32t i = 0; i < ma; ++i) {
    QBRint32t bka, bkb;
    double la, ua, lb, ub;
    QBR_getconbound(a, i, &bka, &la, &ua);
    QBR_getconbound(b, i, &bkb, &lb, &ub);
    ASSERT_EQ(bka, bkb) << "constraint " << i;
    if (bka != QBR_BK_UP && bka != QBR_BK_FR) near(la, lb, tol, "blc");
    if (bka != QBR_BK_LO && bka != QBR_BK_FR) near(ua, ub, tol, "buc");
    if (names) {
      EXPECT_EQ(con_name(a, i), con_name(b, i));
    }
    QBRint64t qa = 0, qb = 0;
    QBR_getnumqconknz(a, i, &qa);
    QBR_getnumqconknz(b, i, &qb);
    ASSERT_EQ(qa, qb) << "Q of constraint " << i;
    if (qa > 0) {
      const QTriplets ta = qcon(a, i, qa), tb = qcon(b, i, qb);
      for (size_t k = 0; k < ta.size(); ++k) {
        EXPECT_EQ(ta[k].i, tb[k].i);
        EXPECT_EQ(ta[k].j, tb[k].j);
        near(ta[k].v, tb[k].v, tol, "qcon");
      }
    }
  }
  if (names) {
    EXPECT_EQ(obj_name(a), obj_name(b));
  }
  QBRint64t qa = 0, qb = 0;
  QBR_getnumqobjnz(a, &qa);
  QBR_getnumqobjnz(b, &qb);
  ASSERT_EQ(qa, qb);
  std::vector<QBRint32t> qi(qa), qj(qa);
  std::vector<double> qv(qa);
  QBRint64t got = 0;
  QBR_getqobj64(a, qa, &got, qi.data(), qj.data(), qv.data());
  for (QBRint64t k = 0; k < got; ++k) {
    double y = 0;
    QBR_getqobjij(b, qi[k], qj[k], &y);
    near(qv[k], y, tol, "q");
  }
  QBRint32t ka = 0, kb = 0;
  QBR_getnumcone(a, &ka);
  QBR_getnumcone(b, &kb);
  ASSERT_EQ(ka, kb);
  for (QBRint32t k = 0; k < ka; ++k) {
    QBRint32t cta, ctb, nma, nmb;
    double pa, pb;
    std::vector<QBRint32t> ma_(na), mb_(nb);
    QBR_getcone(a, k, &cta, &pa, &nma, ma_.data());
    QBR_getcone(b, k, &ctb, &pb, &nmb, mb_.data());
    EXPECT_EQ(cta, ctb);
    near(pa, pb, tol, "cone parameter");
    ASSERT_EQ(nma, nmb);
    for (QBRint32t m = 0; m < nma; ++m) EXPECT_EQ(ma_[m], mb_[m]);
  }
  QBRint32t bva = 0, bvb = 0;
  QBR_getnumbarvar(a, &bva);
  QBR_getnumbarvar(b, &bvb);
  ASSERT_EQ(bva, bvb);
  for (QBRint32t j = 0; j < bva; ++j) {
    QBRint32t da = 0, db = 0;
    QBR_getdimbarvarj(a, j, &da);
    QBR_getdimbarvarj(b, j, &db);
    EXPECT_EQ(da, db) << "matrix variable " << j;
  }
  if (bva > 0) {
    const auto ea = bar_entries(a), eb = bar_entries(b);
    ASSERT_EQ(ea.size(), eb.size());
    for (auto x = ea.begin(), y = eb.begin(); x != ea.end(); ++x, ++y) {
      ASSERT_EQ(x->first, y->first);
      near(x->second, y->second, tol, "matrix coefficient");
    }
  }
}
