#include "task/report.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "task/tables.h"
#include "task/task.h"

namespace qubor::task {

namespace {

void append_arg(std::string& out, char spec, const MsgArg* a) {
  char buf[64];
  if (!a) {
    out += "?";
    return;
  }
  switch (spec) {
    case 's':
      out += a->kind == MsgArg::kStr ? a->s : "?";
      return;
    case 'i':
    case 'l':
    case 'L':  // a line number
      if (a->kind == MsgArg::kInt) {
        std::snprintf(buf, sizeof buf, "%" PRId64, a->i);
        out += buf;
      } else {
        out += "?";
      }
      return;
    default:  // 'e'
      if (a->kind == MsgArg::kDouble) {
        std::snprintf(buf, sizeof buf, "%.6e", a->d);
      } else if (a->kind == MsgArg::kInt) {
        std::snprintf(buf, sizeof buf, "%.6e", static_cast<double>(a->i));
      } else {
        std::snprintf(buf, sizeof buf, "?");
      }
      out += buf;
  }
}

}  // namespace

std::string format_template(const char* tmpl, std::initializer_list<MsgArg> args) {
  std::string out;
  const MsgArg* next = args.begin();
  auto take = [&]() -> const MsgArg* { return next != args.end() ? next++ : nullptr; };
  for (const char* p = tmpl; *p; ++p) {
    if (*p != '%') {
      out.push_back(*p);
      continue;
    }
    if (p[1] == '%') {
      out.push_back('%');
      ++p;
    } else if (p[1] == 's' || p[1] == 'i' || p[1] == 'l' || p[1] == 'L') {
      append_arg(out, p[1], take());
      ++p;
    } else if (std::strncmp(p + 1, "{wjp}e", 6) == 0) {
      append_arg(out, 'e', take());
      p += 6;
    } else {
      out.push_back('%');
    }
  }
  return out;
}

std::string format_message(int32_t code, std::initializer_list<MsgArg> args) {
  const ResponseRow* row = find_response(code);
  if (!row) return "";
  const char* tmpl = row->message_template[0] ? row->message_template : row->description;
  return format_template(tmpl, args);
}

namespace {

// Never throws: when memory is exhausted the record keeps the code and drops the text.
void record(Task& t, int32_t code, const std::string& msg) noexcept {
  t.last_error.code = code;
  try {
    t.last_error.message.assign(msg);
  } catch (...) {
    t.last_error.message.clear();
  }
}

QBRrescode report_error(Task& t, QBRrescode code, const std::string& msg) {
  if (t.response) {
    t.response(t.response_handle, code, msg.c_str());
  } else {
    t.printf(QBR_STREAM_ERR, "QUBOR error %d: %s\n", code, msg.c_str());
  }
  record(t, code, msg);
  return code;
}

QBRrescode report_warning(Task& t, QBRrescode code, std::initializer_list<MsgArg> args) {
  int32_t& count = t.warning_counts[static_cast<size_t>(code)];
  if (count < INT32_MAX) ++count;
  const int32_t limit = t.ipar(QBR_IPAR_MAX_NUM_WARNINGS);
  if (limit >= 0 && limit < count) {
    if (limit > 0 && count == limit + 1 && t.log_on())
      t.printf(QBR_STREAM_MSG, "Warning number %i is disabled.\n", code);
    record(t, 0, "");
    return QBR_RES_OK;
  }
  std::string msg = format_message(code, args);
  if (t.response) {
    if (t.response(t.response_handle, code, msg.c_str()) != 0) {
      record(t, code, msg);
      return code;
    }
  } else {
    t.printf(QBR_STREAM_WRN, "QUBOR warning %d: %s\n", code, msg.c_str());
  }
  record(t, 0, msg);
  return QBR_RES_OK;
}

}  // namespace

QBRrescode report_at(Task& t, QBRrescode code, platform::SourcePos /*pos*/,
                     std::initializer_list<MsgArg> args) {
  if (code == QBR_RES_OK) return QBR_RES_OK;
  // Reporting must not fail: if formatting runs out of memory the code still gets through.
  try {
    if (code > 0 && code < 1000) return report_warning(t, code, args);
    return report_error(t, code, format_message(code, args));
  } catch (...) {
    record(t, code, "");
    return code;
  }
}

}  // namespace qubor::task
