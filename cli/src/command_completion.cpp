#include "command_completion.hpp"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <optional>
#include <string_view>
#include <system_error>

#include "board_words.hpp"
#include "command_parser.hpp"
#include "commands.hpp"
#include "completion_command.hpp"
#include "file_words.hpp"
#include "ground/visible_text.hpp"
#include "help_table.hpp"
#include "velmora_can_bridge/config/board_file.hpp"

namespace velmora_can_bridge {
namespace {

using Words = std::vector<std::string>;

/// Reading a larger file takes longer than a person waits for the tabulator. Boards are far
/// smaller.
constexpr std::uintmax_t largest_board = 256000;

struct GivenOption {
  std::string name;
  /// Empty for a flag.
  std::string value;
};

/// A command with the arguments that stand before the cursor.
struct TypedCommand {
  const CommandHelp* help = nullptr;
  Words in_place;
  std::vector<GivenOption> options;
  /// The option whose value is the word at the cursor.
  const ArgumentHelp* awaiting = nullptr;
  /// Behind "--" nothing is an option.
  bool options_ended = false;
};

bool begins_with_dash(const std::string& word) { return word.rfind('-', 0) == 0; }

bool begins_option(const std::string& word) { return word.rfind("--", 0) == 0; }

const ArgumentHelp* find_option(const CommandHelp& command, std::string_view name) {
  const auto row =
      std::find_if(command.arguments.begin(), command.arguments.end(),
                   [&](const ArgumentHelp& argument) { return argument.name == name; });
  return row == command.arguments.end() ? nullptr : &*row;
}

/// Whether the word behind the option is its value.
bool needs_word(const ArgumentHelp& option) {
  return !option.value.empty() && option.value.front() != '[';
}

void take_option(TypedCommand& typed, const std::string& word) {
  const std::size_t equals = word.find('=');
  const std::string name = word.substr(0, equals);
  if (equals != std::string::npos) {
    typed.options.push_back({name, word.substr(equals + 1)});
    return;
  }
  typed.options.push_back({name, ""});
  const ArgumentHelp* const option = find_option(*typed.help, name);
  typed.awaiting = option != nullptr && needs_word(*option) ? option : nullptr;
}

void take_word(TypedCommand& typed, const std::string& word) {
  if (typed.awaiting != nullptr) {
    typed.options.back().value = word;
    typed.awaiting = nullptr;
  } else if (!typed.options_ended && word == "--") {
    typed.options_ended = true;
  } else if (!typed.options_ended && begins_option(word)) {
    take_option(typed, word);
  } else {
    typed.in_place.push_back(word);
  }
}

bool is_given(const TypedCommand& typed, std::string_view option) {
  return std::any_of(typed.options.begin(), typed.options.end(),
                     [&](const GivenOption& given) { return given.name == option; });
}

/// The value that was given to the option; empty without one.
std::string value_of(const TypedCommand& typed, std::string_view option) {
  const auto given = std::find_if(typed.options.begin(), typed.options.end(),
                                  [&](const GivenOption& row) { return row.name == option; });
  return given == typed.options.end() ? std::string() : given->value;
}

/// The board file, if it can be read at once.
std::optional<BoardFile> read_board(const std::string& path) {
  std::error_code error;
  // What is no file, a pipe for one, may never end.
  if (!std::filesystem::is_regular_file(path, error)) {
    return std::nullopt;
  }
  // Nor may a file of the kernel, which has the size 0, as one that is missing by now.
  const std::uintmax_t size = std::filesystem::file_size(path, error);
  return error || size == 0 || size > largest_board ? std::nullopt : load_board_file(path).file;
}

/// The last words of the names of the commands below `parent`.
Words command_words(std::string_view parent) {
  Words words;
  for (const CommandHelp* const command : subcommands(parent)) {
    words.emplace_back(command->name.substr(command->name.rfind(' ') + 1));
  }
  return words;
}

/// Of `help`.
Words topic_words(const Words& typed) {
  std::string parent;
  for (const std::string& word : typed) {
    parent += (parent.empty() ? "" : " ") + word;
  }
  return command_words(parent);
}

/// Finds the words for the cursor, behind one command.
class Completer {
 public:
  /// `home` is that for which "~" stands at the cursor; empty where it stands for itself.
  Completer(const TypedCommand& typed, const std::string& begun, const std::string& home,
            const CommandLineHost& host)
      : typed_(&typed), begun_(&begun), home_(&home), host_(&host) {}

  CommandCandidates candidates() const {
    const std::size_t equals = begun_->find('=');
    if (typed_->awaiting != nullptr) {
      return value_candidates(*typed_->awaiting, "");
    }
    if (typed_->options_ended || !begins_with_dash(*begun_)) {
      return place_candidates();
    }
    if (equals == std::string::npos) {
      return {option_words()};
    }
    const ArgumentHelp* const option = find_option(*typed_->help, begun_->substr(0, equals));
    return option == nullptr ? CommandCandidates()
                             : value_candidates(*option, begun_->substr(0, equals + 1));
  }

 private:
  /// A path that begins with a dash would be an option: "./" keeps it a path.
  CommandCandidates file_candidates(const std::string& begun, FileSort sort) const {
    Words words = file_words(begun, sort, *home_);
    if (begun.empty()) {
      for (std::string& word : words) {
        word.insert(0, begins_with_dash(word) ? "./" : "");
      }
    }
    return {words, true};
  }

  CommandCandidates value_candidates(const ArgumentHelp& option, const std::string& before) const {
    CommandCandidates candidates;
    if (option.value == "FILE") {
      const FileSort sort = option.name == "--board" ? FileSort::boards : FileSort::any;
      candidates = file_candidates(begun_->substr(before.size()), sort);
    } else if (option.name == "--bus") {
      candidates.words = can_interface_words(host_->network_folder);
      if (option.value == "BUS") {
        candidates.words.emplace_back(simulated_bus);
      }
    }
    for (std::string& word : candidates.words) {
      word.insert(0, before);
    }
    return candidates;
  }

  CommandCandidates place_candidates() const {
    const ArgumentHelp* const place = next_place();
    if (place == nullptr) {
      return typed_->options_ended ? CommandCandidates() : CommandCandidates{option_words()};
    }
    if (place->name == "BOARD") {
      return file_candidates(*begun_, FileSort::boards);
    }
    if (place->name == "FILE") {
      return file_candidates(*begun_, FileSort::any);
    }
    Words words = place_words(place->name);
    if (!typed_->options_ended) {  // the program would take them for options
      words.erase(std::remove_if(words.begin(), words.end(), begins_with_dash), words.end());
    }
    return {words};
  }

  /// The argument in whose place the cursor is; null behind the last one.
  const ArgumentHelp* next_place() const {
    std::size_t place = 0;
    for (const ArgumentHelp& argument : typed_->help->arguments) {
      if (argument.is_option()) {
        continue;
      }
      if (place == typed_->in_place.size() || argument.repeats) {
        return &argument;
      }
      ++place;
    }
    return nullptr;
  }

  Words place_words(std::string_view place) const {
    if (place == "COMMAND") {
      return typed_->help->name == "help" ? topic_words(typed_->in_place) : nmt_command_names();
    }
    if (place == "SHELL") {
      return completion_shells();
    }
    return place == "NODE" ? node_place_words() : request_words(place);
  }

  /// Of `nmt` and `sdo`, for the board that they simulate.
  Words node_place_words() const {
    const std::optional<BoardFile> file = read_board(value_of(*typed_, "--board"));
    Words words = file ? node_words(*file) : Words();
    if (typed_->help->name == "nmt") {
      words.emplace_back("all");
    }
    return words;
  }

  Words request_words(std::string_view place) const {
    const std::optional<BoardFile> file =
        typed_->in_place.empty() ? std::nullopt : read_board(typed_->in_place[0]);
    if (!file) {
      return {};
    }
    if (place == "DEVICE") {
      return device_place_words(*file);
    }
    if (place == "OPERATION") {
      return operation_words(*file, typed_->in_place[1]);
    }
    const Words payload(typed_->in_place.begin() + 3, typed_->in_place.end());
    return is_given(*typed_, "--raw")
               ? Words()
               : payload_words(*file, typed_->in_place[1], typed_->in_place[2], payload, *begun_);
  }

  /// Node ids, which are few people's choice, only where one is begun or there is nothing else.
  Words device_place_words(const BoardFile& file) const {
    const Words devices = device_words(file);
    const bool is_number = !begun_->empty() && '0' <= begun_->front() && begun_->front() <= '9';
    Words words = devices.empty() || is_number ? node_words(file) : Words();
    words.insert(words.end(), devices.begin(), devices.end());
    return words;
  }

  Words option_words() const {
    Arguments parsed;
    const auto parser = command_parser(parsed);
    const CLI::App& command = parsed_by(*parser);
    Words words{std::string(help_option.name)};
    for (const ArgumentHelp& argument : typed_->help->arguments) {
      if (argument.is_option() && !is_given(*typed_, argument.name) &&
          !is_excluded(command, argument.name)) {
        words.emplace_back(argument.name);
      }
    }
    return words;
  }

  const CLI::App& parsed_by(const CLI::App& parser) const {
    const std::string_view name = typed_->help->name;
    const std::size_t blank = name.find(' ');
    const CLI::App* const command = parser.get_subcommand(std::string(name.substr(0, blank)));
    return blank == std::string_view::npos
               ? *command
               : *command->get_subcommand(std::string(name.substr(blank + 1)));
  }

  /// Whether an option is given that the parser lets nobody combine with this one.
  bool is_excluded(const CLI::App& command, std::string_view name) const {
    const auto excludes = command.get_option(std::string(name))->get_excludes();
    return std::any_of(excludes.begin(), excludes.end(), [&](const CLI::Option* other) {
      return is_given(*typed_, "--" + other->get_lnames().front());
    });
  }

  const TypedCommand* const typed_;
  const std::string* const begun_;
  const std::string* const home_;
  const CommandLineHost* const host_;
};

/// For what stands where a command below `parent` does.
Words command_place_words(const std::string& parent, const std::string& begun) {
  if (!begins_with_dash(begun)) {
    return command_words(parent);
  }
  Words words{std::string(help_option.name)};
  if (parent.empty()) {
    words.emplace_back(version_option.name);
  }
  return words;
}

CommandCandidates unfiltered_candidates(const ShellLine& line, const CommandLineHost& host) {
  const std::string home = line.begins_at_home ? host.home : "";
  if (line.is_redirected) {
    return {file_words(line.begun, FileSort::any, home), true};
  }
  std::string name;
  auto word = line.words.begin() + 1;
  for (; !subcommands(name).empty() && word != line.words.end(); ++word) {
    name += (name.empty() ? "" : " ") + *word;
  }
  const CommandHelp* const help = find_command_help(name);
  if (!subcommands(name).empty()) {
    return {command_place_words(name, line.begun)};
  }
  if (help == nullptr) {
    return {};
  }
  TypedCommand typed;
  typed.help = help;
  std::for_each(word, line.words.end(),
                [&](const std::string& argument) { take_word(typed, argument); });
  return Completer(typed, line.begun, home, host).candidates();
}

bool has_hidden(const std::string& word) { return visible_text(word) != word; }

}  // namespace

CommandCandidates command_candidates(const ShellLine& line, const CommandLineHost& host) {
  const bool is_at_program = line.words.empty();
  if (is_at_program || line.has_variable) {
    return {};  // the shell alone knows
  }
  CommandCandidates candidates = unfiltered_candidates(line, host);
  Words& words = candidates.words;
  words.erase(std::remove_if(words.begin(), words.end(), has_hidden), words.end());
  words = candidates_among(std::move(words), line.begun);
  return candidates;
}

}  // namespace velmora_can_bridge
