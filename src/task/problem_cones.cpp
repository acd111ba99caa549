// Cones: checking, appending, replacing and removing. A cone's members are variable indices;
// a variable belongs to at most one cone and at most once in it (cone_of keeps the owner).
// Responses: QBR_RES_ERR_CONE_TYPE, CONE_SIZE ("At least"/"Exactly" n members for the type),
// CONE_PARAMETER (power cones: 0 < alpha < 1), INDEX_IS_TOO_SMALL/LARGE ("submem", "j"),
// CONE_REP_VAR, CONE_OVERLAP (put) / CONE_OVERLAP_APPEND (append), APPENDING_TOO_BIG_CONE,
// CONE_INDEX and NON_UNIQUE_ARRAY (removal).
#include <algorithm>

#include "task/problem_ops.h"
#include "task/report.h"
#include "task/tables.h"

namespace qubor::task {

namespace {

const char* type_name(int32_t ct) { return enum_text(EnumGroup::CONETYPE, ct); }

QBRrescode check_size(Task& t, int32_t ct, double par, int32_t n) {
  if (ct < QBR_CT_QUAD || ct > QBR_CT_ZERO) return QBR_REPORT(t, QBR_RES_ERR_CONE_TYPE, ct);
  int32_t least = 0;
  bool exact = false;
  switch (ct) {
    case QBR_CT_QUAD: least = 1; break;
    case QBR_CT_RQUAD: least = 2; break;
    case QBR_CT_PEXP:
    case QBR_CT_DEXP:
      least = 3;
      exact = true;
      break;
    case QBR_CT_PPOW:
    case QBR_CT_DPOW: least = 1; break;
    default: least = 0; break;
  }
  if (exact ? n != least : n < least)
    return QBR_REPORT(t, QBR_RES_ERR_CONE_SIZE, exact ? "Exactly" : "At least", least, type_name(ct));
  if ((ct == QBR_CT_PPOW || ct == QBR_CT_DPOW) && !(par > 0.0 && par < 1.0))
    return QBR_REPORT(t, QBR_RES_ERR_CONE_PARAMETER, par, type_name(ct));
  return QBR_RES_OK;
}

// Member checks; `self` is the cone being replaced (-1 when appending).
QBRrescode check_members(Task& t, int32_t n, const int32_t* sub, int32_t self) {
  QBR_CHECK_RC(check_array(t, sub, n, "submem"));
  for (int32_t k = 0; k < n; ++k) QBR_CHECK_RC(check_item(t, sub[k], t.problem.num_var, "submem"));
  std::pmr::vector<int32_t> sorted(sub, sub + std::max(n, 0), t.mem);
  std::sort(sorted.begin(), sorted.end());
  const auto rep = std::adjacent_find(sorted.begin(), sorted.end());
  if (rep != sorted.end()) return QBR_REPORT(t, QBR_RES_ERR_CONE_REP_VAR, var_label(t, *rep), *rep);
  const auto& owner = t.problem.cones.cone_of;
  if (owner.empty()) return QBR_RES_OK;
  for (int32_t k = 0; k < n; ++k) {
    const int32_t c = owner[static_cast<size_t>(sub[k])];
    if (c >= 0 && c != self)
      return QBR_REPORT(t, self < 0 ? QBR_RES_ERR_CONE_OVERLAP_APPEND : QBR_RES_ERR_CONE_OVERLAP,
                        var_label(t, sub[k]), sub[k], c);
  }
  return QBR_RES_OK;
}

// Stores the members of cone k (already checked) at the end of the member pool.
void set_members(Problem& p, int32_t k, int32_t n, const int32_t* sub) {
  ConeSet& cs = p.cones;
  if (cs.cone_of.size() != static_cast<size_t>(p.num_var)) cs.cone_of.resize(static_cast<size_t>(p.num_var), -1);
  Cone& c = cs.cones[static_cast<size_t>(k)];
  for (int64_t q = c.start; q < c.start + c.n; ++q) cs.cone_of[static_cast<size_t>(cs.members[static_cast<size_t>(q)])] = -1;
  c.start = static_cast<int64_t>(cs.members.size());
  c.n = n;
  cs.members.insert(cs.members.end(), sub, sub + n);
  for (int32_t q = 0; q < n; ++q) cs.cone_of[static_cast<size_t>(sub[q])] = k;
}

QBRrescode push_cone(Task& t, int32_t ct, double par, int32_t n, const int32_t* sub) {
  Problem& p = t.problem;
  if (p.num_cone >= p.max_num_cone) {
    p.max_num_cone = std::max(2 * p.max_num_cone, p.num_cone + 1);
    p.cones.cones.reserve(static_cast<size_t>(p.max_num_cone));
  }
  p.cones.cones.push_back(Cone{ct, par, 0, 0});
  p.cone_names.append(1);
  set_members(p, p.num_cone, n, sub);
  ++p.num_cone;
  after_change(t);
  return QBR_RES_OK;
}

}  // namespace

QBRrescode append_cone(Task& t, int32_t ct, double par, int32_t nummem, const int32_t* submem) {
  QBR_CHECK_RC(check_size(t, ct, par, nummem));
  QBR_CHECK_RC(check_members(t, nummem, submem, -1));
  return push_cone(t, ct, par, nummem, submem);
}

QBRrescode append_cone_seq(Task& t, int32_t ct, double par, int32_t nummem, int32_t j) {
  if (j < 0) return QBR_REPORT(t, QBR_RES_ERR_INDEX_IS_TOO_SMALL, static_cast<int64_t>(j), "j");
  QBR_CHECK_RC(check_size(t, ct, par, nummem));
  if (static_cast<int64_t>(j) + nummem > t.problem.num_var)
    return QBR_REPORT(t, QBR_RES_ERR_APPENDING_TOO_BIG_CONE, j, j + nummem - 1, t.problem.num_var);
  std::pmr::vector<int32_t> sub(static_cast<size_t>(nummem), t.mem);
  for (int32_t k = 0; k < nummem; ++k) sub[static_cast<size_t>(k)] = j + k;
  QBR_CHECK_RC(check_members(t, nummem, sub.data(), -1));
  return push_cone(t, ct, par, nummem, sub.data());
}

QBRrescode append_cones_seq(Task& t, int32_t num, const int32_t* ct, const double* par, const int32_t* nummem,
                            int32_t j) {
  QBR_CHECK_RC(check_array(t, ct, num, "ct"));
  QBR_CHECK_RC(check_array(t, par, num, "conepar"));
  QBR_CHECK_RC(check_array(t, nummem, num, "nummem"));
  for (int32_t k = 0; k < num; ++k) {
    QBR_CHECK_RC(append_cone_seq(t, ct[k], par[k], nummem[k], j));
    j += nummem[k];
  }
  return QBR_RES_OK;
}

QBRrescode put_cone(Task& t, int32_t k, int32_t ct, double par, int32_t nummem, const int32_t* submem) {
  QBR_CHECK_RC(check_size(t, ct, par, nummem));
  QBR_CHECK_RC(check_members(t, nummem, submem, k));
  Cone& c = t.problem.cones.cones[static_cast<size_t>(k)];
  c.type = ct;
  c.par = par;
  set_members(t.problem, k, nummem, submem);
  after_change(t);
  return QBR_RES_OK;
}

QBRrescode remove_cones(Task& t, int32_t num, const int32_t* subset) {
  Problem& p = t.problem;
  QBR_CHECK_RC(check_array(t, subset, num, "subset"));
  std::pmr::vector<int32_t> idx(static_cast<size_t>(p.num_cone), 0, t.mem);
  for (int32_t k = 0; k < num; ++k) {
    if (subset[k] < 0 || subset[k] >= p.num_cone) return QBR_REPORT(t, QBR_RES_ERR_CONE_INDEX, subset[k]);
    if (idx[static_cast<size_t>(subset[k])] < 0) return QBR_REPORT(t, QBR_RES_ERR_NON_UNIQUE_ARRAY, "subset", subset[k]);
    idx[static_cast<size_t>(subset[k])] = -1;
  }
  int32_t remaining = 0;
  for (int32_t& s : idx)
    if (s >= 0) s = remaining++;
  t.solutions.remove_cones(idx);
  // Rebuild the member pool without dead ranges.
  ConeSet& cs = p.cones;
  std::pmr::vector<int32_t> members(t.mem);
  std::pmr::vector<Cone> cones(t.mem);
  for (size_t k = 0; k < cs.cones.size(); ++k) {
    Cone c = cs.cones[k];
    for (int64_t q = c.start; q < c.start + c.n; ++q) {
      const int32_t j = cs.members[static_cast<size_t>(q)];
      cs.cone_of[static_cast<size_t>(j)] = idx[k];
      if (idx[k] >= 0) members.push_back(j);
    }
    if (idx[k] < 0) continue;
    c.start = static_cast<int64_t>(members.size()) - c.n;
    cones.push_back(c);
  }
  cs.members.swap(members);
  cs.cones.swap(cones);
  p.cone_names.remove(idx, remaining);
  p.num_cone = remaining;
  after_change(t);
  return QBR_RES_OK;
}

}  // namespace qubor::task
