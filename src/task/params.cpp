#include "task/params.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/text.h"
#include "task/report.h"

namespace qubor::task {

namespace {

const char* type_word(int type) {
  return type == QBR_PAR_INT_TYPE ? "int" : type == QBR_PAR_DOU_TYPE ? "double" : "string";
}

int count_of(int type) {
  return type == QBR_PAR_INT_TYPE ? kNumIntParams : type == QBR_PAR_DOU_TYPE ? kNumDouParams : kNumStrParams;
}

QBRrescode unknown_name(Task& t, int type, const char* name) {
  QBRrescode code = type == QBR_PAR_INT_TYPE   ? QBR_RES_ERR_PARAM_NAME_INT
                    : type == QBR_PAR_DOU_TYPE ? QBR_RES_ERR_PARAM_NAME_DOU
                                               : QBR_RES_ERR_PARAM_NAME_STR;
  return QBR_REPORT(t, code, name ? name : "");
}

// Strict integer parse of the whole text (leading and trailing blanks allowed).
bool parse_int(const char* s, int32_t* out) {
  errno = 0;
  char* end = nullptr;
  long long v = std::strtoll(s, &end, 10);
  if (end == s || errno != 0) return false;
  while (*end == ' ' || *end == '\t' || *end == '\r' || *end == '\n') ++end;
  if (*end != '\0' || v < INT32_MIN || v > INT32_MAX) return false;
  *out = static_cast<int32_t>(v);
  return true;
}

bool parse_double(const char* s, double* out) {
  errno = 0;
  char* end = nullptr;
  double v = std::strtod(s, &end);
  if (end == s) return false;
  while (*end == ' ' || *end == '\t' || *end == '\r' || *end == '\n') ++end;
  if (*end != '\0') return false;
  *out = v;
  return true;
}

// An integer value is a number or a symbolic constant such as QBR_ON.
bool parse_int_or_symbol(const char* s, int32_t* out) {
  if (parse_int(s, out)) return true;
  const char* v = symbol_value(s);
  return v && parse_int(v, out);
}

}  // namespace

QBRrescode check_param_index(Task& t, int type, int32_t index) {
  if (index < 0 || index >= count_of(type))
    return QBR_REPORT(t, QBR_RES_ERR_PARAM_INDEX, index, type_word(type));
  return QBR_RES_OK;
}

namespace {

// Range check of a numeric parameter value (kinds of tables.h; both bounds admissible).
// `text` is the value as the message prints it.
template <class V, class Def>
QBRrescode check_range(Task& t, const Def& d, V value, const std::string& text) {
  if (d.kind == kUnchecked) return QBR_RES_OK;
  // A NaN compares false with every bound; it is refused as too small.
  if (value != value || (d.kind != kUpperOnly && value < d.lower))
    return QBR_REPORT(t, QBR_RES_ERR_PARAM_IS_TOO_SMALL, text, d.name);
  if (d.kind != kLowerOnly && value > d.upper) return QBR_REPORT(t, QBR_RES_ERR_PARAM_IS_TOO_LARGE, text, d.name);
  return QBR_RES_OK;
}

}  // namespace

QBRrescode put_int_param(Task& t, int32_t index, int32_t value) {
  if (QBRrescode r = check_param_index(t, QBR_PAR_INT_TYPE, index)) return r;
  int32_t& slot = t.params.ints[static_cast<size_t>(index)];
  // Setting the current value again is a no-op, even when that value is out of range.
  if (slot == value) return QBR_RES_OK;
  if (QBRrescode r = check_range(t, int_param(index), value, std::to_string(value))) return r;
  slot = value;
  return QBR_RES_OK;
}

QBRrescode put_dou_param(Task& t, int32_t index, double value) {
  if (QBRrescode r = check_param_index(t, QBR_PAR_DOU_TYPE, index)) return r;
  double& slot = t.params.dous[static_cast<size_t>(index)];
  if (slot == value) return QBR_RES_OK;
  if (QBRrescode r = check_range(t, dou_param(index), value, platform::format("%e", value))) return r;
  slot = value;
  return QBR_RES_OK;
}

void assign_param_string(std::pmr::string& dst, const char* value) {
  dst.clear();
  if (!value || !*value) return;
  if (value[0] != '"') {
    dst.assign(value);
    return;
  }
  for (const char* p = value + 1; *p && *p != '"'; ++p) {
    if (p[0] == '\\' && p[1] == '"') {
      dst.push_back('"');
      ++p;
    } else {
      dst.push_back(*p);
    }
  }
}

QBRrescode put_str_param(Task& t, int32_t index, const char* value) {
  if (QBRrescode r = check_param_index(t, QBR_PAR_STR_TYPE, index)) return r;
  assign_param_string(t.params.strs[static_cast<size_t>(index)], value);
  return QBR_RES_OK;
}

QBRrescode resolve_param(Task& t, int type, const char* name, int32_t* index) {
  int i = find_param(type, name);
  if (i < 0) return unknown_name(t, type, name);
  *index = i;
  return QBR_RES_OK;
}

void which_param(const char* name, int32_t* type, int32_t* index) {
  for (int ty : {QBR_PAR_INT_TYPE, QBR_PAR_DOU_TYPE, QBR_PAR_STR_TYPE}) {
    int i = find_param(ty, name);
    if (i >= 0) {
      *type = ty;
      *index = i;
      return;
    }
  }
  *type = QBR_PAR_INVALID_TYPE;
  *index = -1;
}

QBRrescode put_param_text(Task& t, const char* name, const char* value) {
  int32_t type = 0, index = -1;
  which_param(name, &type, &index);
  if (type == QBR_PAR_INVALID_TYPE) return QBR_REPORT(t, QBR_RES_ERR_PARAM_NAME, name ? name : "");
  const char* v = value ? value : "";
  if (type == QBR_PAR_STR_TYPE) return put_str_param(t, index, v);
  if (type == QBR_PAR_INT_TYPE) {
    int32_t iv = 0;
    if (!parse_int_or_symbol(v, &iv)) return QBR_REPORT(t, QBR_RES_ERR_PARAM_VALUE_STR, v, name);
    return put_int_param(t, index, iv);
  }
  double dv = 0.0;
  if (!parse_double(v, &dv)) return QBR_REPORT(t, QBR_RES_ERR_PARAM_VALUE_STR, v, name);
  return put_dou_param(t, index, dv);
}

}  // namespace qubor::task
