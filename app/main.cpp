// qubor: the command-line front of the library.
//
//   qubor info MODEL [--param NAME VALUE]...      read a problem file and summarise it
//   qubor convert IN OUT [--param NAME VALUE]...  read a problem file and write it again
//   qubor solve MODEL [--sol FILE] [--report FILE.json] [--paramfile FILE] [--param NAME VALUE]...
//   qubor --version                               print the library's version
//
// Format and compression follow the file names' suffixes. Exit code 0 on success, 1 on a
// failure of the library (its message is printed), 2 on a usage error.
#include <cstdio>
#include <cstring>
#include <string>

#include "commands.h"
#include "qubor.h"

namespace {

// Parses options wherever they stand; false (after a message) on a usage error.
bool parse_args(int argc, char** argv, int first, qubor_app::Args* args) {
  for (int k = first; k < argc; ++k) {
    std::string a = argv[k];
    if (a == "--help" || a == "-h") {
      args->help = true;
    } else if (a == "--quiet" || a == "-q") {
      args->quiet = true;
    } else if (a == "--param") {
      if (k + 2 >= argc) {
        std::fprintf(stderr, "qubor: --param needs a name and a value\n");
        return false;
      }
      args->params.emplace_back(argv[k + 1], argv[k + 2]);
      k += 2;
    } else if (a == "--sol" || a == "--paramfile" || a == "--report") {
      if (k + 1 >= argc) {
        std::fprintf(stderr, "qubor: %s needs a file name\n", a.c_str());
        return false;
      }
      (a == "--sol" ? args->sol : a == "--report" ? args->report : args->paramfile) = argv[++k];
    } else if (a.size() > 1 && a[0] == '-') {
      std::fprintf(stderr, "qubor: unknown option '%s'\n", a.c_str());
      return false;
    } else {
      args->positional.push_back(a);
    }
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2 || !std::strcmp(argv[1], "--help") || !std::strcmp(argv[1], "-h") ||
      !std::strcmp(argv[1], "help")) {
    if (argc >= 3) {
      for (const auto& c : qubor_app::commands()) {
        if (c.name == std::string(argv[2])) {
          qubor_app::print_command_help(c);
          return 0;
        }
      }
    }
    qubor_app::print_overview();
    return argc < 2 ? 2 : 0;
  }
  if (!std::strcmp(argv[1], "--version")) {
    QBRint32t major = 0, minor = 0, revision = 0;
    QBR_getversion(&major, &minor, &revision);
    std::printf("qubor %d.%d.%d\n", major, minor, revision);
    return 0;
  }
  for (const auto& c : qubor_app::commands()) {
    if (c.name != std::string(argv[1])) continue;
    qubor_app::Args args;
    if (!parse_args(argc, argv, 2, &args)) return 2;
    if (args.help) {
      qubor_app::print_command_help(c);
      return 0;
    }
    return c.run(args);
  }
  std::fprintf(stderr, "qubor: unknown command '%s' (see 'qubor --help')\n", argv[1]);
  return 2;
}
