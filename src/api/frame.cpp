#include "api/frame.h"

namespace qubor::api {

QBRrescode report_env(Env& env, QBRrescode code, std::initializer_list<task::MsgArg> args) {
  std::string msg = task::format_message(code, args);
  std::string line = std::string(code < 1000 ? "QUBOR warning " : "QUBOR error ") + std::to_string(code) + ": " + msg + "\n";
  env.echo(code < 1000 ? QBR_STREAM_WRN : QBR_STREAM_ERR, line.c_str());
  return code < 1000 ? QBR_RES_OK : code;
}

QBRrescode check_index(Task& t, IndexKind kind, const char* argname, int64_t index) {
  int64_t count = 0;
  switch (kind) {
    case IndexKind::kVariable: count = t.problem.num_var; break;
    case IndexKind::kConstraint: count = t.problem.num_con; break;
    case IndexKind::kCone: count = t.problem.num_cone; break;
  }
  if (index < 0) return QBR_REPORT(t, QBR_RES_ERR_INDEX_IS_TOO_SMALL, index, argname);
  if (index >= count) return QBR_REPORT(t, QBR_RES_ERR_INDEX_IS_TOO_LARGE, index, argname);
  return QBR_RES_OK;
}

QBRrescode check_ptr(Task& t, const void* p, const char* argname) {
  return p ? QBR_RES_OK : QBR_REPORT(t, QBR_RES_ERR_NULL_POINTER, argname);
}

}  // namespace qubor::api
