#include "task/tables.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace qubor::task {

namespace {

constexpr ResponseRow kResponses[] = {
#define QBR_RESPONSE(sym, value, desc, tmpl) {"QBR_" #sym, value, desc, tmpl},
#include "tables/response_codes.def"
#undef QBR_RESPONSE
};

struct EnumRow {
  EnumGroup group;
  const char* symbol;
  int32_t value;
  const char* text;
};
constexpr EnumRow kEnumRows[] = {
#define QBR_ENUM_BEGIN(group, ctype)
#define QBR_ENUM_VALUE(group, sym, value, text) {EnumGroup::group, "QBR_" #sym, value, text},
#define QBR_ENUM_END(group)
#include "tables/enums.def"
#undef QBR_ENUM_BEGIN
#undef QBR_ENUM_VALUE
#undef QBR_ENUM_END
};

constexpr IntParamDef kIntParams[] = {
#define QBR_IPARAM(name, def, kind, lo, hi, group) \
  {"QBR_IPAR_" #name, def, kind, lo, hi, EnumGroup::group},
#include "tables/int_params.def"
#undef QBR_IPARAM
};
constexpr DouParamDef kDouParams[] = {
#define QBR_DPARAM(name, def, kind, lo, hi) {"QBR_DPAR_" #name, def, kind, lo, hi},
#include "tables/dou_params.def"
#undef QBR_DPARAM
};
constexpr StrParamDef kStrParams[] = {
#define QBR_SPARAM(name, def) {"QBR_SPAR_" #name, def},
#include "tables/str_params.def"
#undef QBR_SPARAM
};

constexpr const char* kDouInfo[] = {
#define QBR_DINFO(name) "QBR_DINF_" #name,
#include "tables/dou_info.def"
#undef QBR_DINFO
};
constexpr const char* kIntInfo[] = {
#define QBR_IINFO(name) "QBR_IINF_" #name,
#include "tables/int_info.def"
#undef QBR_IINFO
};
constexpr const char* kLintInfo[] = {
#define QBR_LIINFO(name) "QBR_LIINF_" #name,
#include "tables/lint_info.def"
#undef QBR_LIINFO
};

struct CallbackRow {
  const char* name;
  int32_t value;
};
constexpr CallbackRow kCallbacks[] = {
#define QBR_CALLBACK_CODE(name, value) {"QBR_CALLBACK_" #name, value},
#include "tables/callback_codes.def"
#undef QBR_CALLBACK_CODE
};

// Names of one parameter type without their prefix, in byte order, with the index of each.
struct SortedNames {
  std::vector<std::pair<std::string, int>> rows;
  int find(std::string_view key) const {
    auto it = std::lower_bound(rows.begin(), rows.end(), key,
                               [](const auto& r, std::string_view k) { return r.first < k; });
    return (it != rows.end() && it->first == key) ? it->second : -1;
  }
};

template <class Def, size_t N>
SortedNames sort_names(const Def (&defs)[N], size_t prefix_len) {
  SortedNames s;
  s.rows.reserve(N);
  for (size_t i = 0; i < N; ++i) s.rows.emplace_back(defs[i].name + prefix_len, static_cast<int>(i));
  std::sort(s.rows.begin(), s.rows.end());
  return s;
}

const SortedNames& sorted_params(int type) {
  static const SortedNames ints = sort_names(kIntParams, 9);
  static const SortedNames dous = sort_names(kDouParams, 9);
  static const SortedNames strs = sort_names(kStrParams, 9);
  return type == QBR_PAR_INT_TYPE ? ints : type == QBR_PAR_DOU_TYPE ? dous : strs;
}

struct SymbolRow {
  std::string name;
  std::string value;
};

std::vector<SymbolRow> build_symbols() {
  std::vector<SymbolRow> s;
  for (const auto& e : kEnumRows) s.push_back({e.symbol, std::to_string(e.value)});
  for (const auto& c : kCallbacks) s.push_back({c.name, std::to_string(c.value)});
  for (const auto& r : kResponses) s.push_back({r.symbol, std::to_string(r.value)});
  for (size_t i = 0; i < std::size(kIntParams); ++i) s.push_back({kIntParams[i].name, std::to_string(i)});
  for (size_t i = 0; i < std::size(kDouParams); ++i) s.push_back({kDouParams[i].name, std::to_string(i)});
  for (size_t i = 0; i < std::size(kStrParams); ++i) s.push_back({kStrParams[i].name, std::to_string(i)});
  for (size_t i = 0; i < std::size(kDouInfo); ++i) s.push_back({kDouInfo[i], std::to_string(i)});
  for (size_t i = 0; i < std::size(kIntInfo); ++i) s.push_back({kIntInfo[i], std::to_string(i)});
  for (size_t i = 0; i < std::size(kLintInfo); ++i) s.push_back({kLintInfo[i], std::to_string(i)});
  return s;
}

}  // namespace

const ResponseRow* find_response(int32_t code) {
  const auto* end = std::end(kResponses);
  const auto* it = std::lower_bound(std::begin(kResponses), end, code,
                                    [](const ResponseRow& r, int32_t c) { return r.value < c; });
  return (it != end && it->value == code) ? it : nullptr;
}

int response_count() { return static_cast<int>(std::size(kResponses)); }

int32_t response_class(int32_t r) {
  if (r == 0) return QBR_RESPONSE_OK;
  if (r < 1000) return QBR_RESPONSE_WRN;
  if (r > 9999) return QBR_RESPONSE_TRM;
  return QBR_RESPONSE_ERR;
}

const char* enum_symbol(EnumGroup group, int32_t value) {
  for (const auto& e : kEnumRows)
    if (e.group == group && e.value == value) return e.symbol;
  return nullptr;
}

const char* enum_text(EnumGroup group, int32_t value) {
  for (const auto& e : kEnumRows)
    if (e.group == group && e.value == value) return e.text;
  return nullptr;
}

const IntParamDef& int_param(int i) { return kIntParams[i]; }
const DouParamDef& dou_param(int i) { return kDouParams[i]; }
const StrParamDef& str_param(int i) { return kStrParams[i]; }

int find_param(int type, const char* name) {
  if (!name) return -1;
  const char* full = type == QBR_PAR_INT_TYPE ? "QBR_IPAR_" : type == QBR_PAR_DOU_TYPE ? "QBR_DPAR_" : "QBR_SPAR_";
  const char* shortp = type == QBR_PAR_INT_TYPE ? "iparam." : type == QBR_PAR_DOU_TYPE ? "dparam." : "sparam.";
  if (type != QBR_PAR_INT_TYPE && type != QBR_PAR_DOU_TYPE && type != QBR_PAR_STR_TYPE) return -1;
  if (std::strncmp(name, full, 9) == 0) return sorted_params(type).find(name + 9);
  if (std::strncmp(name, shortp, 7) == 0) {
    // The short form is case-insensitive in its letters a to z; at most 1024 characters count.
    std::string key;
    for (const char* p = name + 7; *p && key.size() < 1024; ++p)
      key.push_back((*p >= 'a' && *p <= 'z') ? static_cast<char>(*p - 'a' + 'A') : *p);
    return sorted_params(type).find(key);
  }
  return -1;
}

int info_count(int inftype) {
  switch (inftype) {
    case QBR_INF_DOU_TYPE: return kNumDouInfo;
    case QBR_INF_INT_TYPE: return kNumIntInfo;
    case QBR_INF_LINT_TYPE: return kNumLintInfo;
    default: return -1;
  }
}

const char* info_name(int inftype, int index) {
  if (index < 0 || index >= info_count(inftype)) return nullptr;
  switch (inftype) {
    case QBR_INF_DOU_TYPE: return kDouInfo[index];
    case QBR_INF_INT_TYPE: return kIntInfo[index];
    default: return kLintInfo[index];
  }
}

int find_info(int inftype, const char* name) {
  int n = info_count(inftype);
  if (n < 0 || !name) return -1;
  const char* family = inftype == QBR_INF_DOU_TYPE ? "DINF_" : inftype == QBR_INF_INT_TYPE ? "IINF_" : "LIINF_";
  size_t flen = std::strlen(family);
  if (std::strncmp(name, "QBR_", 4) != 0 || std::strncmp(name + 4, family, flen) != 0) return -1;
  const char* rest = name + 4 + flen;
  for (int i = 0; i < n; ++i)
    if (std::strcmp(info_name(inftype, i) + 4 + flen, rest) == 0) return i;
  return -1;
}

const char* callback_code_name(int32_t code) {
  for (const auto& c : kCallbacks)
    if (c.value == code) return c.name;
  return nullptr;
}

const char* symbol_value(const char* name) {
  static const std::vector<SymbolRow> table = build_symbols();
  if (!name) return nullptr;
  for (const auto& row : table)
    if (row.name == name) return row.value.c_str();
  return nullptr;
}

}  // namespace qubor::task
