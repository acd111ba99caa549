// Subcommands of the qubor program. Each is one function taking the parsed command line and
// returning the process exit code; adding a subcommand means adding a function and a row to
// kCommands in commands.cpp.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "qubor.h"

namespace qubor_app {

struct Args {
  std::vector<std::string> positional;
  std::vector<std::pair<std::string, std::string>> params;  // --param NAME VALUE
  std::string sol;                                          // --sol FILE
  std::string paramfile;                                    // --paramfile FILE
  std::string report;                                       // --report FILE.json
  bool quiet = false;
  bool help = false;
};

struct Command {
  const char* name;
  const char* usage;    // arguments after the command name
  const char* summary;  // one line for the overview
  int (*run)(const Args&);
};

const std::vector<Command>& commands();
int run_solve(const Args& args);  // cmd_solve.cpp
// Reads a model into the task: SDPA sparse files (".dat-s", ".dat-s.gz") through the reader
// of this program, everything else through the library. A reader error goes to standard
// error as "qubor: FILE:LINE: ..."; the result is QBR_RES_ERR_FILE_READ then.
QBRrescode read_model(QBRtask_t task, const std::string& path);
void print_overview();
void print_command_help(const Command& c);

}  // namespace qubor_app
