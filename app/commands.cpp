#include "commands.h"

#include <zlib.h>

#include <cstdio>
#include <memory>

#include "qubor.h"
#include "sdpa_reader.h"

namespace qubor_app {

namespace {

void to_stdout(void*, const char* s) { std::fputs(s, stdout); }
void to_stderr(void*, const char* s) { std::fputs(s, stderr); }

// An environment and a task with the streams on the terminal and the parameters of the
// command line applied; ok() is false (after a message) when any step failed.
class Session {
 public:
  explicit Session(const Args& args) {
    if (QBR_makeenv(&env_, nullptr) != QBR_RES_OK || QBR_maketask(env_, 0, 0, &task_) != QBR_RES_OK) {
      std::fprintf(stderr, "qubor: cannot create the environment\n");
      return;
    }
    if (!args.quiet) QBR_linkfunctotaskstream(task_, QBR_STREAM_LOG, nullptr, to_stdout);
    QBR_linkfunctotaskstream(task_, QBR_STREAM_ERR, nullptr, to_stderr);
    QBR_linkfunctotaskstream(task_, QBR_STREAM_WRN, nullptr, to_stderr);
    for (const auto& [name, value] : args.params) {
      if (QBR_putparam(task_, name.c_str(), value.c_str()) != QBR_RES_OK) return;
    }
    ok_ = true;
  }
  ~Session() {
    if (task_) QBR_deletetask(&task_);
    if (env_) QBR_deleteenv(&env_);
  }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  bool ok() const { return ok_; }
  QBRtask_t task() const { return task_; }
  // Exit code for a response code; the library has already printed its message.
  static int exit_code(QBRrescode r) { return r == QBR_RES_OK ? 0 : 1; }

 private:
  QBRenv_t env_ = nullptr;
  QBRtask_t task_ = nullptr;
  bool ok_ = false;
};

bool has_suffix(const std::string& s, const char* suffix) {
  const std::string x = suffix;
  return s.size() >= x.size() && s.compare(s.size() - x.size(), x.size(), x) == 0;
}

// The library reads PTF from a string only: the file (plain or gzip) is read here.
QBRrescode read_ptf_file(QBRtask_t task, const std::string& path) {
  gzFile f = gzopen(path.c_str(), "rb");
  if (!f) {
    std::fprintf(stderr, "qubor: cannot open '%s'\n", path.c_str());
    return QBR_RES_ERR_FILE_OPEN;
  }
  std::string text;
  char buf[1 << 16];
  int got = 0;
  while ((got = gzread(f, buf, sizeof buf)) > 0) text.append(buf, static_cast<size_t>(got));
  const bool ok = got == 0;
  gzclose(f);
  if (!ok) {
    std::fprintf(stderr, "qubor: cannot read '%s'\n", path.c_str());
    return QBR_RES_ERR_FILE_READ;
  }
  return QBR_readptfstring(task, text.c_str());
}

bool need_args(const Args& args, size_t n, const char* command) {
  if (args.positional.size() == n) return true;
  std::fprintf(stderr, "qubor %s: expected %zu file name(s), got %zu (see 'qubor %s --help')\n", command, n,
               args.positional.size(), command);
  return false;
}

void print_statistics(QBRtask_t task) {
  QBRint32t numvar = 0, numcon = 0, numint = 0, numcone = 0, numbarvar = 0;
  QBRint64t numanz = 0, qnz = 0;
  QBRrealt cfix = 0.0;
  QBR_getnumvar(task, &numvar);
  QBR_getnumcon(task, &numcon);
  QBR_getnumintvar(task, &numint);
  QBR_getnumcone(task, &numcone);
  QBR_getnumbarvar(task, &numbarvar);
  QBR_getnumanz64(task, &numanz);
  QBR_getnumqobjnz(task, &qnz);
  QBR_getcfix(task, &cfix);
  QBRint64t qcnz = 0;
  QBRint32t qcons = 0;
  for (QBRint32t i = 0; i < numcon; ++i) {
    QBRint64t k = 0;
    QBR_getnumqconknz(task, i, &k);
    qcnz += k;
    if (k > 0) ++qcons;
  }
  std::printf("\nProblem statistics\n");
  std::printf("  %-26s: %d\n", "Constraints", numcon);
  std::printf("  %-26s: %d\n", "Variables", numvar);
  std::printf("  %-26s: %d\n", "Integer variables", numint);
  std::printf("  %-26s: %lld\n", "Nonzeros in A", static_cast<long long>(numanz));
  std::printf("  %-26s: %lld\n", "Nonzeros in objective Q", static_cast<long long>(qnz));
  std::printf("  %-26s: %d (%lld nonzeros)\n", "Quadratic constraints", qcons, static_cast<long long>(qcnz));
  std::printf("  %-26s: %d\n", "Cones", numcone);
  std::printf("  %-26s: %d\n", "Matrix variables", numbarvar);
  std::printf("  %-26s: %.15g\n", "Objective constant", cfix);
}

int run_info(const Args& args) {
  if (!need_args(args, 1, "info")) return 2;
  Session s(args);
  if (!s.ok()) return 1;
  QBRrescode r = read_model(s.task(), args.positional[0]);
  if (r != QBR_RES_OK) return Session::exit_code(r);
  QBR_linkfunctotaskstream(s.task(), QBR_STREAM_MSG, nullptr, to_stdout);
  // The library's read summary describes its own readers only.
  if (!is_sdpa_file_name(args.positional[0])) QBR_readsummary(s.task(), QBR_STREAM_MSG);
  print_statistics(s.task());
  return 0;
}

int run_convert(const Args& args) {
  if (!need_args(args, 2, "convert")) return 2;
  Session s(args);
  if (!s.ok()) return 1;
  QBRrescode r = read_model(s.task(), args.positional[0]);
  if (r == QBR_RES_OK) r = QBR_writedata(s.task(), args.positional[1].c_str());
  return Session::exit_code(r);
}

}  // namespace

QBRrescode read_model(QBRtask_t task, const std::string& path) {
  if (has_suffix(path, ".ptf") || has_suffix(path, ".ptf.gz")) return read_ptf_file(task, path);
  if (!is_sdpa_file_name(path)) return QBR_readdata(task, path.c_str());
  std::string error;
  if (read_sdpa(task, path, &error)) return QBR_RES_OK;
  std::fprintf(stderr, "qubor: %s\n", error.c_str());
  return QBR_RES_ERR_FILE_READ;
}

const std::vector<Command>& commands() {
  static const std::vector<Command> kCommands = {
      {"info", "MODEL", "read a problem file, print the read summary and problem statistics", run_info},
      {"convert", "IN OUT", "read a problem file and write it in the format of OUT's suffix", run_convert},
      {"solve", "MODEL", "optimize a problem file, print the summaries, write the solution (--sol FILE) and a run summary (--report FILE.json)",
       run_solve},
  };
  return kCommands;
}

void print_overview() {
  std::printf("usage: qubor COMMAND [ARGS] [--param NAME VALUE]... [--quiet]\n\ncommands:\n");
  for (const auto& c : commands()) std::printf("  %-8s %-8s %s\n", c.name, c.usage, c.summary);
  std::printf(
      "\nFile formats follow the suffixes (.mps, .fmps, .lp, .cbf, .task, .jtask, .ptf, .opf, .dat-s; .gz and\n"
      ".zst compress; a .ptf file is read plain or gzip-compressed).\n"
      "--param sets a library parameter by name, e.g. --param QBR_IPAR_WRITE_MPS_FORMAT "
      "QBR_MPS_FORMAT_FREE.\n"
      "'qubor COMMAND --help' describes one command; 'qubor --version' prints the version.\n");
}

void print_command_help(const Command& c) {
  std::printf("usage: qubor %s %s [--param NAME VALUE]... [--quiet]\n\n%s.\n", c.name, c.usage, c.summary);
}

}  // namespace qubor_app
