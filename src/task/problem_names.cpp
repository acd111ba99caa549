// Item names: putting (QBR_RES_ERR_NAME_IS_NULL, QBR_RES_ERR_BLANK_NAME, and
// QBR_RES_ERR_DUP_NAME when another item of the same kind holds the name; the empty name
// clears), lookup and copying into caller buffers (QBR_RES_ERR_NAME_MAX_LEN when the buffer
// cannot hold the name and its terminating zero).
#include <cstring>

#include "platform/text.h"
#include "task/problem_ops.h"
#include "task/report.h"

namespace qubor::task {

namespace {

const char* kind_word(NameKind kind) {
  switch (kind) {
    case NameKind::kVar: return "variable";
    case NameKind::kCon: return "constraint";
    case NameKind::kCone: return "cone";
    case NameKind::kBarvar: return "symmetric matrix variable";
  }
  return "";
}

NameTable& table(Task& t, NameKind kind) { return const_cast<NameTable&>(names_of(t, kind)); }

}  // namespace

const NameTable& names_of(const Task& t, NameKind kind) {
  const Problem& p = t.problem;
  switch (kind) {
    case NameKind::kVar: return p.var_names;
    case NameKind::kCon: return p.con_names;
    case NameKind::kCone: return p.cone_names;
    case NameKind::kBarvar: return p.barvar_names;
  }
  return p.var_names;
}

QBRrescode put_name(Task& t, NameKind kind, int32_t k, const char* name) {
  if (!name) return QBR_REPORT(t, QBR_RES_ERR_NAME_IS_NULL, kind_word(kind), k);
  const std::string_view s(name);
  if (!s.empty() && s.find_first_not_of(' ') == std::string_view::npos)
    return QBR_REPORT(t, QBR_RES_ERR_BLANK_NAME, kind_word(kind), k);
  NameTable& names = table(t, kind);
  const int32_t other = names.find(s);
  if (other >= 0 && other != k) return QBR_REPORT(t, QBR_RES_ERR_DUP_NAME, name, kind_word(kind), other);
  names.set(k, s);
  return QBR_RES_OK;
}

QBRrescode find_name(Task& t, NameKind kind, const char* name, int32_t* found, int32_t* index) {
  if (!name) return QBR_REPORT(t, QBR_RES_ERR_NULL_POINTER, "somename");
  const int32_t k = names_of(t, kind).find(name);
  if (found) *found = k >= 0 ? 1 : 0;
  if (index) *index = k;
  return QBR_RES_OK;
}

QBRrescode copy_name(Task& t, const std::pmr::string& name, int32_t sizename, char* out) {
  if (!out) return QBR_REPORT(t, QBR_RES_ERR_NULL_POINTER, "name");
  const auto len = static_cast<int64_t>(name.size());
  if (sizename <= len) {
    if (sizename > 0) platform::copy_bounded(out, static_cast<size_t>(sizename), name.c_str());
    return QBR_REPORT(t, QBR_RES_ERR_NAME_MAX_LEN, static_cast<int32_t>(len), sizename);
  }
  std::memcpy(out, name.c_str(), name.size() + 1);
  return QBR_RES_OK;
}

}  // namespace qubor::task
