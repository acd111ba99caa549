#include "run_report.h"

#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <string>

namespace qubor_app {

namespace {

std::string quoted(const std::string& s) {
  std::string out = "\"";
  for (unsigned char c : s) {
    if (c == '"' || c == '\\') {
      out.push_back('\\');
      out.push_back(static_cast<char>(c));
    } else if (c < 0x20) {
      char buf[8];
      std::snprintf(buf, sizeof buf, "\\u%04x", c);
      out += buf;
    } else {
      out.push_back(static_cast<char>(c));
    }
  }
  return out + "\"";
}

// JSON has no infinities or NaN: those become null.
std::string number(double v) {
  if (!std::isfinite(v)) return "null";
  char buf[32];
  std::snprintf(buf, sizeof buf, "%.17g", v);
  return buf;
}

std::string code_name(QBRrescode r) {
  char sym[QBR_MAX_STR_LEN] = {0}, desc[QBR_MAX_STR_LEN] = {0};
  QBR_getcodedesc(r, sym, desc);
  return sym;
}

// "name": value pairs of one kind of information item.
std::string info_items(QBRtask_t task, QBRint32t type) {
  QBRint32t n = 0;
  QBR_getinfmax(task, type, &n);
  std::string out = "{";
  for (QBRint32t i = 0; i < n; ++i) {
    char name[QBR_MAX_STR_LEN] = {0};
    QBR_getinfname(task, type, i, name);
    std::string value;
    if (type == QBR_INF_DOU_TYPE) {
      double v = 0;
      QBR_getdouinf(task, i, &v);
      value = number(v);
    } else if (type == QBR_INF_INT_TYPE) {
      QBRint32t v = 0;
      QBR_getintinf(task, i, &v);
      value = std::to_string(v);
    } else {
      QBRint64t v = 0;
      QBR_getlintinf(task, i, &v);
      value = std::to_string(v);
    }
    out += (i ? ", " : "") + quoted(name) + ": " + value;
  }
  return out + "}";
}

}  // namespace

std::string run_report(QBRtask_t task, const std::string& model, QBRrescode trm, double wall) {
  QBRint32t numvar = 0, numcon = 0, numcone = 0, numbarvar = 0, numint = 0, probtype = 0;
  QBRint64t numanz = 0, qnz = 0;
  QBR_getnumvar(task, &numvar);
  QBR_getnumcon(task, &numcon);
  QBR_getnumcone(task, &numcone);
  QBR_getnumbarvar(task, &numbarvar);
  QBR_getnumintvar(task, &numint);
  QBR_getnumanz64(task, &numanz);
  QBR_getnumqobjnz(task, &qnz);
  QBR_getprobtype(task, &probtype);
  char text[QBR_MAX_STR_LEN] = {0};
  QBR_probtypetostr(task, probtype, text);
  std::string r = "{\n";
  r += "  \"model\": " + quoted(model) + ",\n";
  r += "  \"problem\": {\"type\": " + quoted(text) + ", \"numvar\": " + std::to_string(numvar) +
       ", \"numcon\": " + std::to_string(numcon) + ", \"numcone\": " + std::to_string(numcone) +
       ", \"numbarvar\": " + std::to_string(numbarvar) + ", \"numintvar\": " + std::to_string(numint) +
       ", \"numanz\": " + std::to_string(numanz) + ", \"numqobjnz\": " + std::to_string(qnz) + "},\n";
  r += "  \"termination\": {\"code\": " + std::to_string(trm) + ", \"name\": " + quoted(code_name(trm)) + "},\n";
  double opt_time = 0, rd_time = 0;
  QBR_getdouinf(task, QBR_DINF_OPTIMIZER_TIME, &opt_time);
  QBR_getdouinf(task, QBR_DINF_RD_TIME, &rd_time);
  r += "  \"times\": {\"read\": " + number(rd_time) + ", \"optimizer\": " + number(opt_time) +
       ", \"total\": " + number(wall) + "},\n";
  r += "  \"solutions\": {";
  bool first = true;
  const std::pair<QBRint32t, const char*> items[] = {{QBR_SOL_ITR, "interior"}, {QBR_SOL_BAS, "basic"}, {QBR_SOL_ITG, "integer"}};
  for (const auto& [which, name] : items) {
    QBRbooleant def = 0;
    QBR_solutiondef(task, which, &def);
    if (!def) continue;
    QBRint32t prosta = 0, solsta = 0;
    QBR_getprosta(task, which, &prosta);
    QBR_getsolsta(task, which, &solsta);
    char pro[QBR_MAX_STR_LEN] = {0}, sol[QBR_MAX_STR_LEN] = {0};
    QBR_prostatostr(task, prosta, pro);
    QBR_solstatostr(task, solsta, sol);
    double pobj = 0, dobj = 0;
    QBR_getprimalobj(task, which, &pobj);
    const bool has_dual = which != QBR_SOL_ITG && QBR_getdualobj(task, which, &dobj) == QBR_RES_OK;
    r += std::string(first ? "\n" : ",\n") + "    " + quoted(name) + ": {\"prosta\": " + quoted(pro) +
         ", \"solsta\": " + quoted(sol) + ", \"primal_objective\": " + number(pobj) +
         ", \"dual_objective\": " + (has_dual ? number(dobj) : "null") + "}";
    first = false;
  }
  r += first ? "},\n" : "\n  },\n";
  r += "  \"information\": {\n    \"double\": " + info_items(task, QBR_INF_DOU_TYPE) +
       ",\n    \"int32\": " + info_items(task, QBR_INF_INT_TYPE) + ",\n    \"int64\": " +
       info_items(task, QBR_INF_LINT_TYPE) + "\n  }\n}\n";
  return r;
}

bool write_report(const std::string& path, const std::string& text) {
  const std::string temp = path + ".tmp" + std::to_string(getpid());
  std::FILE* f = std::fopen(temp.c_str(), "w");
  if (!f) return false;
  bool good = std::fwrite(text.data(), 1, text.size(), f) == text.size();
  good = std::fclose(f) == 0 && good;
  if (good && std::rename(temp.c_str(), path.c_str()) == 0) return true;
  std::remove(temp.c_str());
  return false;
}

}  // namespace qubor_app
