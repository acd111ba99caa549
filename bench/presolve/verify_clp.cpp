// Postsolve check against clp; see verify_clp.h.
#include "verify_clp.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <vector>

namespace qubor::presolve::testing {

void write_mps(const std::string& path, const LpProblem& p) {
  FILE* f = std::fopen(path.c_str(), "w");
  if (f == nullptr) return;
  std::fprintf(f, "NAME          reduced FREE\nROWS\n N obj\n");
  for (int32_t i = 0; i < p.m; ++i) {
    const bool hl = std::isfinite(p.rl[i]), hu = std::isfinite(p.ru[i]);
    std::fprintf(f, " %c r%d\n", hl && hu && p.rl[i] == p.ru[i] ? 'E' : (hl ? 'G' : (hu ? 'L' : 'N')), i);
  }
  std::fprintf(f, "COLUMNS\n");
  for (int32_t j = 0; j < p.n; ++j) {
    if (p.c[j] != 0.0) std::fprintf(f, " x%d obj %.17g\n", j, p.c[j]);
    for (int64_t q = p.colptr[j]; q < p.colptr[j + 1]; ++q) std::fprintf(f, " x%d r%d %.17g\n", j, p.rowind[q], p.val[q]);
  }
  std::fprintf(f, "RHS\n");
  if (p.c0 != 0.0) std::fprintf(f, " rhs obj %.17g\n", -p.c0);
  for (int32_t i = 0; i < p.m; ++i) {
    const bool hl = std::isfinite(p.rl[i]), hu = std::isfinite(p.ru[i]);
    if (hl || hu) std::fprintf(f, " rhs r%d %.17g\n", i, hl ? p.rl[i] : p.ru[i]);
  }
  std::fprintf(f, "RANGES\n");
  for (int32_t i = 0; i < p.m; ++i)
    if (std::isfinite(p.rl[i]) && std::isfinite(p.ru[i]) && p.rl[i] != p.ru[i])
      std::fprintf(f, " rng r%d %.17g\n", i, p.ru[i] - p.rl[i]);
  std::fprintf(f, "BOUNDS\n");
  for (int32_t j = 0; j < p.n; ++j) {
    if (p.l[j] == p.u[j]) {
      std::fprintf(f, " FX bnd x%d %.17g\n", j, p.l[j]);
      continue;
    }
    if (!std::isfinite(p.l[j])) std::fprintf(f, " LO bnd x%d -1e30\n", j);
    else if (p.l[j] != 0.0) std::fprintf(f, " LO bnd x%d %.17g\n", j, p.l[j]);
    if (std::isfinite(p.u[j])) std::fprintf(f, " UP bnd x%d %.17g\n", j, p.u[j]);
  }
  std::fprintf(f, "ENDATA\n");
  std::fclose(f);
}

namespace {

// clp's status line (printed solution) and its full-precision binary solution: the numbers
// of rows and columns (int), the objective, then row activities, row duals, column values
// and reduced costs (doubles).
bool read_clp_solution(const std::string& text_path, const std::string& bin_path, const LpProblem& p,
                       LpSolution& sol, double& obj) {
  std::ifstream text(text_path);
  std::string line;
  if (!std::getline(text, line) || line.rfind("Optimal", 0) != 0) return false;
  std::ifstream bin(bin_path, std::ios::binary);
  int32_t dims[2] = {0, 0};
  bin.read(reinterpret_cast<char*>(dims), sizeof(dims));
  bin.read(reinterpret_cast<char*>(&obj), sizeof(obj));
  if (!bin || dims[0] != p.m || dims[1] != p.n) return false;
  sol.resize(p.n, p.m);
  std::vector<double> v(2 * static_cast<size_t>(p.m + p.n));
  bin.read(reinterpret_cast<char*>(v.data()), static_cast<std::streamsize>(v.size() * sizeof(double)));
  if (!bin) return false;
  for (int32_t i = 0; i < p.m; ++i) sol.y[i] = v[static_cast<size_t>(p.m + i)];
  for (int32_t j = 0; j < p.n; ++j) {
    const double d = v[static_cast<size_t>(2 * p.m + p.n + j)];
    sol.xx[j] = v[static_cast<size_t>(2 * p.m + j)];
    sol.slx[j] = std::max(d, 0.0);
    sol.sux[j] = std::max(-d, 0.0);
  }
  return true;
}

// Sign and complementarity of a dual d of an item with value v in [lo, hi]: d > 0 must sit
// at lo, d < 0 at hi.
void check_dual(double v, double d, double lo, double hi, Verification& out) {
  const double at = d > 0 ? lo : hi;
  if (d == 0.0) return;
  if (!std::isfinite(at)) {
    out.dual_inf = std::max(out.dual_inf, std::fabs(d));
    return;
  }
  const double gap = std::fabs(v - at) / (1.0 + std::fabs(at));
  out.compl_gap = std::max(out.compl_gap, std::min(std::fabs(d), gap));
}

double violation(double v, double lo, double hi) {
  double e = 0.0;
  if (std::isfinite(lo) && v < lo) e = (lo - v) / (1.0 + std::fabs(lo));
  if (std::isfinite(hi) && v > hi) e = std::max(e, (v - hi) / (1.0 + std::fabs(hi)));
  return e;
}

}  // namespace

Verification verify_with_clp(const LpProblem& original, const PresolveResult& r, const std::string& mps_path) {
  Verification out;
  write_mps(mps_path, r.reduced);
  const std::string sol_path = mps_path + ".sol", bin_path = mps_path + ".bin";
  std::remove(sol_path.c_str());
  std::remove(bin_path.c_str());
  const std::string cmd = "clp '" + mps_path + "' -dualS -saveS '" + bin_path + "' -solu '" + sol_path + "' > /dev/null 2>&1";
  if (std::system(cmd.c_str()) != 0) return out;
  LpSolution reduced(r.reduced.c.get_allocator().resource());
  if (!read_clp_solution(sol_path, bin_path, r.reduced, reduced, out.reduced_obj)) return out;
  out.solved = true;
  {
    const LpProblem& q = r.reduced;
    Vec<double> act(static_cast<size_t>(q.m), 0.0, q.c.get_allocator().resource());
    for (int32_t j = 0; j < q.n; ++j) {
      out.reduced_primal_inf = std::max(out.reduced_primal_inf, violation(reduced.xx[j], q.l[j], q.u[j]));
      for (int64_t k = q.colptr[j]; k < q.colptr[j + 1]; ++k) act[q.rowind[k]] += q.val[k] * reduced.xx[j];
    }
    for (int32_t i = 0; i < q.m; ++i)
      out.reduced_primal_inf = std::max(out.reduced_primal_inf, violation(act[i], q.rl[i], q.ru[i]));
  }
  reduced.skx.clear();
  reduced.skc.clear();
  const LpSolution sol = r.postsolve(reduced);
  const LpProblem& p = original;
  out.obj = p.c0;
  for (int32_t j = 0; j < p.n; ++j) {
    out.obj += p.c[j] * sol.xx[j];
    out.primal_inf = std::max(out.primal_inf, violation(sol.xx[j], p.l[j], p.u[j]));
    check_dual(sol.xx[j], sol.slx[j] - sol.sux[j], p.l[j], p.u[j], out);
  }
  // Reduced costs from the original data, so that a wrong z of postsolve shows.
  Vec<double> z(p.c.begin(), p.c.end(), p.c.get_allocator().resource());
  for (int32_t j = 0; j < p.n; ++j)
    for (int64_t q = p.colptr[j]; q < p.colptr[j + 1]; ++q) z[j] -= p.val[q] * sol.y[p.rowind[q]];
  for (int32_t j = 0; j < p.n; ++j) {
    const double scale = 1.0 + std::fabs(p.c[j]);
    out.dual_inf = std::max(out.dual_inf, std::fabs(z[j] - (sol.slx[j] - sol.sux[j])) / scale);
  }
  for (int32_t i = 0; i < p.m; ++i) {
    out.primal_inf = std::max(out.primal_inf, violation(sol.xc[i], p.rl[i], p.ru[i]));
    check_dual(sol.xc[i], sol.y[i], p.rl[i], p.ru[i], out);
  }
  return out;
}

}  // namespace qubor::presolve::testing
