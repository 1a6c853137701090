#include "completion_command.hpp"

#include <algorithm>

#include "command_completion.hpp"
#include "ground/nearest_name.hpp"
#include "report.hpp"
#include "shell_line.hpp"

namespace velmora_can_bridge {
namespace {

/// $1 is the program as it was typed. Where that is no file, an alias for one, the installed
/// program answers. It is called by its path: a function of the shell may have its name.
///
/// What the program has no words for, variables, "~user" and patterns, bash completes itself.
constexpr const char* bash_script =
    R"(# Completion of velmora-can-bridge for bash. The program itself knows what may stand where.
_velmora_can_bridge() {
  local program answer
  program=$(type -P -- "${1/#'~/'/"${HOME-}/"}") ||
    program=$(type -P -- velmora-can-bridge) || return 0
  mapfile -t answer < <("$program" complete-words "$COMP_WORDBREAKS" \
    "${COMP_LINE:0:COMP_POINT}" 2>/dev/null </dev/null)
  COMPREPLY=("${answer[@]:1}")
  [[ -z ${answer[0]-} ]] || compopt -o "${answer[0]}" 2>/dev/null
}
complete -o bashdefault -F _velmora_can_bridge velmora-can-bridge
)";

bool ends_open(const std::string& word) { return !word.empty() && word.back() == '='; }

/// "nospace" where more belongs to the only candidate, whose value is still to be typed. "default"
/// where bash alone knows what is typed: its names of files.
std::string bash_option(const CommandCandidates& candidates, const ShellLine& line) {
  if (line.has_variable) {
    return "default";
  }
  if (candidates.are_files) {
    return "filenames";
  }
  return candidates.words.size() == 1 && ends_open(candidates.words.front()) ? "nospace" : "";
}

/// Between double quotes nothing keeps bash from taking "!" for an earlier line, and nobody could
/// type the word there. Of names of files bash itself takes care.
bool recalls_history(const std::string& word) { return word.find('!') != std::string::npos; }

/// What bash puts in the place of the word at the cursor, as far as it replaces that. Names of
/// files it quotes itself.
std::string reply(const std::string& word, const ShellLine& line, bool is_file) {
  const std::string rest = word.substr(line.kept);
  return is_file ? rest : shell_quoted(rest, line.quote);
}

}  // namespace

std::vector<std::string> completion_shells() { return {"bash"}; }

ExitStatus completion_command(const CommandLineHost& host, const std::string& shell) {
  const std::vector<std::string> shells = completion_shells();
  if (std::find(shells.begin(), shells.end(), shell) == shells.end()) {
    print_diagnostic(host, "unknown shell \"" + shell + "\", expected " + enumeration(shells));
    return ExitStatus::bad_input;
  }
  host.out << bash_script;
  return ExitStatus::success;
}

ExitStatus complete_words_command(const CommandLineHost& host,
                                  const std::vector<std::string>& arguments) {
  if (arguments.size() != 2) {
    print_diagnostic(host, std::string(complete_words) +
                               " takes the word breaks and the line; the script of \"completion\" "
                               "calls it");
    return ExitStatus::bad_input;
  }
  const ShellLine line = parse_shell_line(arguments[1], arguments[0], host.home);
  CommandCandidates candidates = command_candidates(line, host);
  auto& words = candidates.words;
  if (ends_open(line.begun)) {  // that alone brings nobody further
    words.erase(std::remove(words.begin(), words.end(), line.begun), words.end());
  }
  if (line.quote == '"' && !candidates.are_files) {
    words.erase(std::remove_if(words.begin(), words.end(), recalls_history), words.end());
  }
  host.out << bash_option(candidates, line) << '\n';
  for (const std::string& word : candidates.words) {
    host.out << reply(word, line, candidates.are_files) << '\n';
  }
  return ExitStatus::success;
}

}  // namespace velmora_can_bridge
