#include "formats/frame/item_names.h"

#include "formats/frame/try.h"

namespace qubor::formats {

namespace {

QBRrescode count(QBRtask_t h, ItemKind kind, int32_t* n) {
  switch (kind) {
    case ItemKind::kVariable:
      return QBR_getnumvar(h, n);
    case ItemKind::kConstraint:
      return QBR_getnumcon(h, n);
    default:
      return QBR_getnumcone(h, n);
  }
}

QBRrescode name_of(QBRtask_t h, ItemKind kind, int32_t i, std::string* out) {
  int32_t len = 0;
  switch (kind) {
    case ItemKind::kVariable:
      QUBOR_TRY(QBR_getvarnamelen(h, i, &len));
      break;
    case ItemKind::kConstraint:
      QUBOR_TRY(QBR_getconnamelen(h, i, &len));
      break;
    default:
      QUBOR_TRY(QBR_getconenamelen(h, i, &len));
  }
  out->assign(static_cast<size_t>(len) + 1, '\0');
  switch (kind) {
    case ItemKind::kVariable:
      QUBOR_TRY(QBR_getvarname(h, i, len + 1, out->data()));
      break;
    case ItemKind::kConstraint:
      QUBOR_TRY(QBR_getconname(h, i, len + 1, out->data()));
      break;
    default:
      QUBOR_TRY(QBR_getconename(h, i, len + 1, out->data()));
  }
  out->resize(static_cast<size_t>(len));
  return QBR_RES_OK;
}

}  // namespace

QBRrescode ItemNames::load(QBRtask_t h, ItemKind kind, const char* prefix, bool generic, bool unique) {
  int32_t n = 0;
  QUBOR_TRY(count(h, kind, &n));
  names_.assign(static_cast<size_t>(n), std::string());
  generated_.assign(static_cast<size_t>(n), 0);
  NameTable used;
  for (int32_t i = 0; i < n; ++i) {
    if (!generic) QUBOR_TRY(name_of(h, kind, i, &names_[static_cast<size_t>(i)]));
    if (!names_[static_cast<size_t>(i)].empty()) used.insert(names_[static_cast<size_t>(i)]);
  }
  for (int32_t i = 0; i < n; ++i) {
    std::string& s = names_[static_cast<size_t>(i)];
    if (!s.empty()) continue;
    s = prefix + std::to_string(i + 1);
    while (unique && !used.insert(s).second) s += '_';
    generated_[static_cast<size_t>(i)] = 1;
  }
  return QBR_RES_OK;
}

std::string objective_name(QBRtask_t h, const char* fallback) {
  int32_t len = 0;
  if (QBR_getobjnamelen(h, &len) != QBR_RES_OK || len == 0) return fallback;
  std::string s(static_cast<size_t>(len) + 1, '\0');
  QBR_getobjname(h, len + 1, s.data());
  s.resize(static_cast<size_t>(len));
  return s;
}

std::string task_name(QBRtask_t h) {
  int32_t len = 0;
  if (QBR_gettasknamelen(h, &len) != QBR_RES_OK || len == 0) return "";
  std::string s(static_cast<size_t>(len) + 1, '\0');
  QBR_gettaskname(h, len + 1, s.data());
  s.resize(static_cast<size_t>(len));
  return s;
}

}  // namespace qubor::formats
