// The arguments of the program, read into structures.
#pragma once

#include <CLI/CLI.hpp>
#include <memory>
#include <string>
#include <vector>

#include "commands.hpp"

namespace velmora_can_bridge {

/// Everything that the arguments can set.
struct Arguments {
  RunArguments run;
  ExplainArguments explain;
  ScriptArguments script;
  SimulateArguments simulate;
  NmtArguments nmt;
  SdoArguments sdo;
  CheckArguments check;
  WatchArguments watch;
  SyncArguments sync;
  HeartbeatArguments heartbeat;
  /// Of `operations`.
  std::string board;
  /// Of `operations` and `demo`.
  bool json = false;
  /// Of `completion`.
  std::string shell;
  /// Of `help`: the words of a command's name.
  std::vector<std::string> topic;
};

/// The parser that fills `parsed`, which outlives it. Its commands and arguments are those of the
/// table of help, whose texts it shows.
std::unique_ptr<CLI::App> command_parser(Arguments& parsed);

/// The arguments in the order in which the parser takes them, the last first.
std::vector<std::string> parser_arguments(const std::vector<std::string>& arguments);

/// The command that was parsed, as the table of help names it: "sdo read". Empty when none was.
std::string parsed_command(const CLI::App& parser);

}  // namespace velmora_can_bridge
