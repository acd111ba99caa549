// Views of the interface tables (src/tables/*.def): response codes, parameters, information
// items, callback codes and the symbolic constants. Everything here is expanded from the
// .def rows; nothing is listed twice.
#pragma once

#include <cstdint>
#include <string_view>

#include "qubor.h"

namespace qubor::task {

// ---- Response codes ----
struct ResponseRow {
  const char* symbol;  // with the QBR_ prefix
  int32_t value;
  const char* description;
  const char* message_template;  // "" when the description is the message
};
// Null for a code not in the table.
const ResponseRow* find_response(int32_t code);
int32_t response_class(int32_t code);
int response_count();

// ---- Enumerations ----
enum class EnumGroup : int {
#define QBR_ENUM_BEGIN(group, ctype) group,
#define QBR_ENUM_VALUE(group, sym, value, text)
#define QBR_ENUM_END(group)
#include "tables/enums.def"
#undef QBR_ENUM_BEGIN
#undef QBR_ENUM_VALUE
#undef QBR_ENUM_END
  NONE
};
// The symbol (with QBR_ prefix) of `value` in `group`, or null.
const char* enum_symbol(EnumGroup group, int32_t value);
// The display text of `value` in `group` ("" when it has none), or null for an unknown value.
const char* enum_text(EnumGroup group, int32_t value);

// ---- Parameters ----
enum RangeKind : int { kLowerOnly = 0, kUpperOnly = 1, kBoth = 2, kUnchecked = 3, kBothAlt = 4 };

struct IntParamDef {
  const char* name;  // full name, with QBR_IPAR_
  int32_t default_value;
  int kind;
  int64_t lower, upper;
  EnumGroup group;
};
struct DouParamDef {
  const char* name;
  double default_value;
  int kind;
  double lower, upper;
};
struct StrParamDef {
  const char* name;
  const char* default_value;
};

inline constexpr int kNumIntParams = 0
#define QBR_IPARAM(name, def, kind, lo, hi, group) +1
#include "tables/int_params.def"
#undef QBR_IPARAM
    ;
inline constexpr int kNumDouParams = 0
#define QBR_DPARAM(name, def, kind, lo, hi) +1
#include "tables/dou_params.def"
#undef QBR_DPARAM
    ;
inline constexpr int kNumStrParams = 0
#define QBR_SPARAM(name, def) +1
#include "tables/str_params.def"
#undef QBR_SPARAM
    ;

const IntParamDef& int_param(int i);
const DouParamDef& dou_param(int i);
const StrParamDef& str_param(int i);

// Looks a parameter name up in one type's table ("QBR_IPAR_LOG" or "iparam.log"); -1 when
// unknown. `type` is QBR_PAR_INT_TYPE, QBR_PAR_DOU_TYPE or QBR_PAR_STR_TYPE.
int find_param(int type, const char* name);

// ---- Information items ----
inline constexpr int kNumDouInfo = 0
#define QBR_DINFO(name) +1
#include "tables/dou_info.def"
#undef QBR_DINFO
    ;
inline constexpr int kNumIntInfo = 0
#define QBR_IINFO(name) +1
#include "tables/int_info.def"
#undef QBR_IINFO
    ;
inline constexpr int kNumLintInfo = 0
#define QBR_LIINFO(name) +1
#include "tables/lint_info.def"
#undef QBR_LIINFO
    ;
int info_count(int inftype);  // -1 for an invalid type
const char* info_name(int inftype, int index);  // full name, null when out of range
int find_info(int inftype, const char* name);  // -1 when unknown

// ---- Callback codes ----
const char* callback_code_name(int32_t code);  // full name, null when unknown

// ---- Symbolic constants: every named constant of the interface with its decimal value ----
// Linear scan by exact name; null when unknown.
const char* symbol_value(const char* name);

}  // namespace qubor::task
