// qubor solve MODEL [--sol FILE] [--report FILE.json] [--param NAME VALUE]... [--paramfile FILE]
//
// Reads the model, optimizes with the log on standard output, prints the optimizer and
// solution summaries and writes the solution file (default: the model's base name with
// ".sol" in the current directory). The parameter file is read before the --param values, so
// the command line wins. Exit code 0 whenever the optimizer ran, whatever the status; 1 when
// reading, a parameter, the optimizer or writing failed (the library prints why).
#include <chrono>
#include <cstdio>
#include <string>

#include "commands.h"
#include "qubor.h"
#include "run_report.h"

namespace qubor_app {
namespace {

void to_stdout(void*, const char* s) { std::fputs(s, stdout); }
void to_stderr(void*, const char* s) { std::fputs(s, stderr); }

// "dir/afiro.mps.gz" -> "afiro.sol"
std::string default_solution_name(const std::string& model) {
  std::string base =
      model.substr(model.find_last_of('/') == std::string::npos ? 0 : model.find_last_of('/') + 1);
  for (const char* z : {".gz", ".zst"}) {
    const std::string s(z);
    if (base.size() > s.size() && base.compare(base.size() - s.size(), s.size(), s) == 0)
      base.resize(base.size() - s.size());
  }
  const size_t dot = base.find_last_of('.');
  if (dot != std::string::npos && dot > 0) base.resize(dot);
  return base + ".sol";
}

// The item the solution file reports: integer, else basic, else interior-point.
QBRint32t reported_item(QBRtask_t task) {
  for (QBRint32t which : {QBR_SOL_ITG, QBR_SOL_BAS, QBR_SOL_ITR}) {
    QBRbooleant def = 0;
    if (QBR_solutiondef(task, which, &def) == QBR_RES_OK && def) return which;
  }
  return -1;
}

int solve(QBRtask_t task, const Args& args) {
  const auto start = std::chrono::steady_clock::now();
  if (!args.paramfile.empty() && QBR_readparamfile(task, args.paramfile.c_str()) != QBR_RES_OK) return 1;
  for (const auto& [name, value] : args.params)
    if (QBR_putparam(task, name.c_str(), value.c_str()) != QBR_RES_OK) return 1;
  const std::string& model = args.positional[0];
  if (read_model(task, model) != QBR_RES_OK) return 1;
  QBRrescode trm = QBR_RES_OK;
  if (QBR_optimizetrm(task, &trm) != QBR_RES_OK) return 1;
  if (trm != QBR_RES_OK) {
    char sym[QBR_MAX_STR_LEN], desc[QBR_MAX_STR_LEN];
    if (QBR_getcodedesc(trm, sym, desc) == QBR_RES_OK) std::printf("Termination: %s (%s)\n", desc, sym);
  }
  QBR_optimizersummary(task, QBR_STREAM_LOG);
  QBR_solutionsummary(task, QBR_STREAM_LOG);
  if (!args.report.empty()) {
    const double wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (!write_report(args.report, run_report(task, model, trm, wall))) {
      std::fprintf(stderr, "qubor solve: cannot write the report '%s'\n", args.report.c_str());
      return 1;
    }
  }
  const QBRint32t which = reported_item(task);
  if (which < 0) {
    std::fprintf(stderr, "qubor solve: no solution to write\n");
    return 0;
  }
  const std::string sol = args.sol.empty() ? default_solution_name(model) : args.sol;
  return QBR_writesolution(task, which, sol.c_str()) == QBR_RES_OK ? 0 : 1;
}

}  // namespace

int run_solve(const Args& args) {
  if (args.positional.size() != 1) {
    std::fprintf(stderr, "qubor solve: expected one model file (see 'qubor solve --help')\n");
    return 2;
  }
  QBRenv_t env = nullptr;
  QBRtask_t task = nullptr;
  if (QBR_makeenv(&env, nullptr) != QBR_RES_OK || QBR_maketask(env, 0, 0, &task) != QBR_RES_OK) {
    std::fprintf(stderr, "qubor: cannot create the environment\n");
    if (env) QBR_deleteenv(&env);
    return 1;
  }
  if (!args.quiet) QBR_linkfunctotaskstream(task, QBR_STREAM_LOG, nullptr, to_stdout);
  QBR_linkfunctotaskstream(task, QBR_STREAM_ERR, nullptr, to_stderr);
  QBR_linkfunctotaskstream(task, QBR_STREAM_WRN, nullptr, to_stderr);
  const int code = solve(task, args);
  std::fflush(stdout);
  QBR_deletetask(&task);
  QBR_deleteenv(&env);
  return code;
}

}  // namespace qubor_app
