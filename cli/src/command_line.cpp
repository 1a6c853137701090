#include "velmora_can_bridge/cli/command_line.hpp"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <optional>
#include <string_view>

#include "command_parser.hpp"
#include "completion_command.hpp"
#include "ground/nearest_name.hpp"
#include "help_table.hpp"
#include "help_text.hpp"
#include "report.hpp"

namespace velmora_can_bridge {
namespace {

/// The command whose name has a second word.
constexpr std::string_view parent = "sdo";

/// "unknown command "rnu"; did you mean "run"?".
std::string unknown_command_text(const std::string& name) {
  std::vector<std::string_view> names;
  for (const CommandHelp& command : command_helps()) {
    names.push_back(command.name);
  }
  const std::string_view nearest = nearest_name(name, names);
  const std::string text = "unknown command \"" + name + "\"";
  return nearest.empty() ? text : text + ", did you mean \"" + std::string(nearest) + "\"?";
}

/// The words at the beginning of the arguments that stand where a command's name does.
std::string typed_command(const std::vector<std::string>& arguments) {
  const auto is_word = [&](std::size_t position) {
    return position < arguments.size() && arguments[position].rfind('-', 0) != 0;
  };
  if (!is_word(0)) {
    return "";
  }
  const bool has_subcommand = arguments[0] == parent && is_word(1);
  return has_subcommand ? arguments[0] + " " + arguments[1] : arguments[0];
}

ExitStatus print_usage_error(const CommandLineHost& host, const std::string& text) {
  print_diagnostic(host, text + " (see --help)");
  return ExitStatus::bad_input;
}

std::string joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) {
    text += (text.empty() ? "" : " ") + word;
  }
  return text;
}

ExitStatus help_command(const CommandLineHost& host, const Arguments& arguments) {
  const std::string topic = joined(arguments.topic);
  const CommandHelp* const command = find_command_help(topic);
  if (arguments.topic.size() > 1 && arguments.topic.front() != parent &&
      find_command_help(arguments.topic.front()) != nullptr) {
    return print_usage_error(
        host, "\"" + arguments.topic.front() + "\" has no command \"" +
                  joined({arguments.topic.begin() + 1, arguments.topic.end()}) + "\"");
  }
  if (!topic.empty() && command == nullptr) {
    return print_usage_error(host, unknown_command_text(topic));
  }
  host.out << (command == nullptr ? program_help_text() : help_text(*command));
  return ExitStatus::success;
}

ExitStatus version_command(const CommandLineHost& host, const Arguments& /*arguments*/) {
  host.out << program_version() << '\n';
  return ExitStatus::success;
}

struct Command {
  std::string_view name;
  ExitStatus (*run)(const CommandLineHost& host, const Arguments& arguments);
};

using Host = CommandLineHost;

constexpr Command commands[] = {
    {"run", [](const Host& host, const Arguments& all) { return run_command(host, all.run); }},
    {"explain",
     [](const Host& host, const Arguments& all) { return explain_command(host, all.explain); }},
    {"script",
     [](const Host& host, const Arguments& all) { return script_command(host, all.script); }},
    {"simulate",
     [](const Host& host, const Arguments& all) { return simulate_command(host, all.simulate); }},
    {"nmt", [](const Host& host, const Arguments& all) { return nmt_command(host, all.nmt); }},
    {"sdo read",
     [](const Host& host, const Arguments& all) { return sdo_read_command(host, all.sdo); }},
    {"sdo write",
     [](const Host& host, const Arguments& all) { return sdo_write_command(host, all.sdo); }},
    {"operations",
     [](const Host& host, const Arguments& all) {
       return operations_command(host, all.board, all.json);
     }},
    {"check",
     [](const Host& host, const Arguments& all) { return check_command(host, all.check); }},
    {"watch",
     [](const Host& host, const Arguments& all) { return watch_command(host, all.watch); }},
    {"sync", [](const Host& host, const Arguments& all) { return sync_command(host, all.sync); }},
    {"heartbeat",
     [](const Host& host, const Arguments& all) { return heartbeat_command(host, all.heartbeat); }},
    {"demo", [](const Host& host, const Arguments& all) { return demo_command(host, all.json); }},
    {"completion",
     [](const Host& host, const Arguments& all) { return completion_command(host, all.shell); }},
    {"help", help_command},
    {"version", version_command},
};

ExitStatus execute(const CommandLineHost& host, const std::string& name,
                   const Arguments& arguments) {
  const auto* const command =
      std::find_if(std::begin(commands), std::end(commands),
                   [&](const Command& candidate) { return candidate.name == name; });
  return command->run(host, arguments);
}

}  // namespace

ExitStatus run_command_line(const std::vector<std::string>& arguments,
                            const CommandLineHost& host) {
  if (!arguments.empty() && arguments.front() == complete_words) {
    return complete_words_command(host, {arguments.begin() + 1, arguments.end()});
  }
  const std::string typed = typed_command(arguments);
  if (!typed.empty() && find_command_help(typed) == nullptr) {
    return print_usage_error(host, unknown_command_text(typed));
  }
  Arguments parsed;
  const std::unique_ptr<CLI::App> parser = command_parser(parsed);
  try {
    parser->parse(parser_arguments(arguments));
  } catch (const CLI::Success& asked) {
    parser->exit(asked, host.out, host.err);  // --help or --version
    return ExitStatus::success;
  } catch (const CLI::ParseError& error) {
    return print_usage_error(host, error.what());
  }
  return execute(host, parsed_command(*parser), parsed);
}

}  // namespace velmora_can_bridge
