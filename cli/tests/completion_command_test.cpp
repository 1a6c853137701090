#include "completion_command.hpp"

#include <gmock/gmock.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "command_line_fixture.hpp"
#include "program_path.hpp"

namespace velmora_can_bridge {
namespace {

constexpr const char* bash_completion = "/usr/share/bash-completion/bash_completion";

constexpr const char* board_of_odd_names = R"(
nodes:
  - node_id: 0x10
    device_od_map:
      lamp: {profile: io, base_index: 0x2000}
      my lamp: {profile: io, base_index: 0x2100}
      'it''s "q" \ x': {profile: io, base_index: 0x2200}
      'a:b': {profile: io, base_index: 0x2300}
      'go!': {profile: io, base_index: 0x2400}
    pdos:
      - number: 1
        direction: RPDO
        mappings:
          - {index: 0x2000, sub_index: 1, bit_length: 8, field: red, values: {off: 0, on: 1}}
          - {index: 0x2000, sub_index: 2, bit_length: 8, field: green}
    operations:
      set_lamp: {kind: pdo_write, pdo_number: 1, fields: [red, green]}
      read it: {kind: sdo_read, index: 0x2000}
)";

/// A program of the test's own in a folder with board files, which is the home.
class Bash : public CommandLine {
 protected:
  Bash() {
    write_file("robot.yaml", board_of_odd_names);
    std::filesystem::create_directories(folder / "my boards");
    write_file("my boards/a b.yaml", board_of_odd_names);
    write_file("broken.yaml", "nodes: [");
    write_file("huge.yaml", std::string(1900000, '['));
    EXPECT_EQ(mkfifo((folder / "pipe.yaml").c_str(), 0600), 0);
    EXPECT_EQ(run({"completion", "bash"}), ExitStatus::success);
    std::filesystem::create_directories(folder / "completions");
    write_file("completions/velmora-can-bridge", out);
    std::filesystem::create_symlink(program_path, folder / "velmora-can-bridge");
  }

  /// What bash prints, the standard error included, for the script.
  std::string bash(const std::string& script) const {
    write_file("script", script);
    const std::string command = "cd '" + folder.string() +
                                "' && HOME=$PWD PATH=$PWD:$PATH BASH_COMPLETION_USER_DIR=$PWD "
                                "bash --norc script 2>&1";
    std::FILE* const output = popen(command.c_str(), "r");
    std::string text;
    for (int next = std::fgetc(output); next != EOF; next = std::fgetc(output)) {
      text += static_cast<char>(next);
    }
    EXPECT_EQ(pclose(output), 0) << text;
    return text;
  }

  /// The completions of the line, "<one><two>", by the function of the script, behind `setup`.
  std::string completed(const std::string& line, const std::string& setup) const {
    write_file("line", line);
    return bash(setup + R"(
source completions/velmora-can-bridge
IFS= read -r -d '' COMP_LINE <line || true
COMP_POINT=${#COMP_LINE}
COMP_WORDS=($COMP_LINE)
COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
COMP_WORDBREAKS=$' \t\n"\'@><=;|&(:'
compopt() { printf '%s ' "$2"; }
_velmora_can_bridge velmora-can-bridge "${COMP_WORDS[COMP_CWORD]}" ""
[ "${#COMPREPLY[@]}" -eq 0 ] || printf '<%s>' "${COMPREPLY[@]}"
)");
  }
};

struct BashRow {
  const char* name;
  const char* line;
  /// Behind the option that bash is told.
  const char* replies;
};

class BashCompletes : public Bash, public testing::WithParamInterface<BashRow> {};

TEST_P(BashCompletes, alone) {
  EXPECT_EQ(completed("velmora-can-bridge " + std::string(GetParam().line), ""),
            GetParam().replies);
}

TEST_P(BashCompletes, with_the_helpers_of_its_package) {
  EXPECT_EQ(completed("velmora-can-bridge " + std::string(GetParam().line),
                      std::string("source ") + bash_completion),
            GetParam().replies);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, BashCompletes,
    testing::Values(
        BashRow{"commands", "s", "<script><sdo><simulate><sync>"},
        BashRow{"options", "check robot.yaml --j", "<--json>"},
        BashRow{"a_bus", "nmt start all --bus si", "<sim>"},
        BashRow{"a_bus_behind_equals", "nmt start all --bus=si", "<sim>"},
        BashRow{"a_board", "run rob", "filenames <robot.yaml>"},
        BashRow{"a_board_at_home", "run ~/rob", "filenames <~/robot.yaml>"},
        BashRow{"a_folder_with_a_blank", "run my\\ b", "filenames <my boards>"},
        BashRow{"a_board_with_a_blank", "run \"my boards/", "filenames <my boards/a b.yaml>"},
        BashRow{"a_device_of_a_board_with_a_blank", "run my\\ boards/a\\ b.yaml l", "<lamp>"},
        BashRow{"a_device_of_a_board_at_home", "run ~/robot.yaml l", "<lamp>"},
        BashRow{"a_device_with_a_blank", "run robot.yaml my", "<my\\ lamp>"},
        BashRow{"a_device_with_a_blank_in_quotes", "run robot.yaml 'my l", "<my lamp>"},
        BashRow{"a_device_with_a_blank_behind_a_backslash", "run robot.yaml my\\ l", "<my\\ lamp>"},
        BashRow{"a_device_with_quotes", "run robot.yaml it", R"(<it\'s\ \"q\"\ \\\ x>)"},
        BashRow{"a_device_with_quotes_in_quotes", "run robot.yaml \"it", R"(<it's \"q\" \\ x>)"},
        BashRow{"a_device_with_an_exclamation_mark", "run robot.yaml go", "<go\\!>"},
        BashRow{"a_device_with_an_exclamation_mark_in_single_quotes", "run robot.yaml 'go",
                "<go!>"},
        BashRow{"nothing_that_recalls_history", "run robot.yaml \"go", ""},
        BashRow{"files_behind_a_variable", "run $HOME/rob", "default "},
        BashRow{"files_behind_a_variable_in_quotes", "run \"$HOME/rob", "default "},
        BashRow{"nothing_behind_a_sign_in_single_quotes", "run '$HOME/rob", "filenames "},
        BashRow{"a_device_with_a_colon", "run robot.yaml a:", "<b>"},
        BashRow{"a_node_id", "run robot.yaml 0x", "<0x10>"},
        BashRow{"an_operation_with_a_blank", "run robot.yaml lamp re", "<read\\ it>"},
        BashRow{"an_operation_of_a_node_id", "run robot.yaml 16 set", "<set_lamp>"},
        BashRow{"a_value", "run robot.yaml lamp set_lamp gr", "nospace <green=>"},
        BashRow{"codes_behind_equals", "run robot.yaml lamp set_lamp red=o", "<off><on>"},
        BashRow{"all_codes_behind_equals", "run robot.yaml lamp set_lamp red=", "<off><on>"},
        BashRow{"nothing_behind_a_type", "sdo write 16 0x2000 1 u16:", ""},
        BashRow{"nothing_behind_the_equals_of_a_number", "run robot.yaml lamp set_lamp green=", ""},
        BashRow{"behind_two_dashes", "run -- robot.yaml l", "<lamp>"},
        BashRow{"nothing_for_a_number", "run robot.yaml --timeout ", ""},
        BashRow{"nothing_of_a_broken_board", "run broken.yaml ", ""},
        BashRow{"nothing_of_a_huge_board", "run huge.yaml ", ""},
        BashRow{"nothing_of_a_pipe", "run pipe.yaml ", ""}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_F(Bash, takes_the_script_for_completion) {
  EXPECT_EQ(bash("source <(velmora-can-bridge completion bash); complete -p velmora-can-bridge"),
            "complete -o bashdefault -F _velmora_can_bridge velmora-can-bridge\n");
}

TEST_F(Bash, takes_the_script_with_strict_options) {
  EXPECT_EQ(completed("velmora-can-bridge version x", "set -eu"), "");
}

TEST_F(Bash, loads_the_script_by_its_name) {
  EXPECT_EQ(bash(std::string("source ") + bash_completion + R"(
_completion_loader velmora-can-bridge
complete -p velmora-can-bridge)"),
            "complete -o bashdefault -F _velmora_can_bridge velmora-can-bridge\n");
}

TEST_F(Bash, asks_the_installed_program_for_an_alias) {
  const std::string call = "_velmora_can_bridge vcb";
  EXPECT_EQ(bash("source completions/velmora-can-bridge; COMP_LINE='vcb ru' COMP_POINT=6\n" + call +
                 "\necho \"${COMPREPLY[@]}\""),
            "run\n");
}

TEST_F(Bash, asks_the_program_and_no_function_of_its_name) {
  EXPECT_EQ(completed("velmora-can-bridge ru", "velmora-can-bridge() { echo; echo function; }"),
            "<run>");
}

TEST_F(Bash, does_without_a_home) {
  EXPECT_EQ(completed("velmora-can-bridge ru", "set -eu; unset HOME"), "<run>");
}

TEST_F(Bash, is_not_kept_waiting_by_a_file_of_the_kernel) {
  EXPECT_EQ(bash("timeout -k 1 60 velmora-can-bridge complete-words ' =' "
                 "'velmora-can-bridge run /proc/kmsg '"),
            "\n");
}

/// The words are more than the pipe holds, so that the program waits when their first is read.
TEST_F(Bash, ends_the_program_at_once_while_it_answers) {
  std::filesystem::create_directories(folder / "many");
  for (int number = 0; number < 500; ++number) {
    write_file("many/" + std::string(200, 'a') + std::to_string(number), "");
  }
  EXPECT_EQ(bash(R"(
exec 3< <(exec velmora-can-bridge complete-words ' =' 'velmora-can-bridge script robot.yaml many/')
program=$!
read -r first <&3
kill -TERM $program
cat <&3 >/dev/null
wait $program
echo "$first" $?)"),
            "filenames 143\n");
}

TEST_F(Bash, is_silent_without_the_program) {
  std::filesystem::remove(folder / "velmora-can-bridge");
  EXPECT_EQ(completed("velmora-can-bridge ru", ""), "");
}

/// bash on a terminal, where a person types.
class BashOnTerminal : public Bash {
 protected:
  void start() {
    write_file("rc",
               "PS1='$ '\nbind 'set enable-bracketed-paste off'\nsource "
               "completions/velmora-can-bridge\n");
    const std::string home = folder.string();
    const std::string path = home + ":/usr/bin:/bin";
    const winsize wide{24, 500, 0, 0};  // so that no line is broken
    child_ = forkpty(&person_, nullptr, nullptr, &wide);
    if (child_ == 0) {
      const bool is_there = chdir(home.c_str()) == 0 && setenv("HOME", home.c_str(), 1) == 0 &&
                            setenv("PATH", path.c_str(), 1) == 0 && setenv("TERM", "dumb", 1) == 0;
      if (is_there) {
        execlp("bash", "bash", "--noprofile", "--rcfile", "rc", "-i", nullptr);
      }
      _exit(1);
    }
    ASSERT_TRUE(shows("$ "));
  }

  void TearDown() override {
    if (child_ > 0) {
      kill(child_, SIGKILL);
      waitpid(child_, nullptr, 0);
      close(person_);
    }
    Bash::TearDown();
  }

  void type(const std::string& keys) const {
    EXPECT_EQ(write(person_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
  }

  /// Whether the terminal comes to show the text behind what it has shown before.
  bool shows(const std::string& text) {
    pollfd ready{person_, POLLIN, 0};
    while (shown_.find(text) == std::string::npos) {
      std::array<char, 4096> bytes{};
      const ssize_t size =
          poll(&ready, 1, 60000) == 1 ? read(person_, bytes.data(), bytes.size()) : 0;
      if (size <= 0) {
        return false;
      }
      shown_.append(bytes.data(), static_cast<std::size_t>(size));
    }
    shown_.erase(0, shown_.find(text) + text.size());
    return true;
  }

 private:
  int person_ = -1;
  pid_t child_ = -1;
  std::string shown_;
};

struct TypedRow {
  const char* name;
  const char* typed;
  const char* shown;
};

class BashItself : public BashOnTerminal, public testing::WithParamInterface<TypedRow> {};

TEST_P(BashItself, completes_what_the_program_does_not_know) {
  start();
  type("velmora-can-bridge run " + std::string(GetParam().typed) + "\t");
  EXPECT_TRUE(shows("run " + std::string(GetParam().shown)));
}

INSTANTIATE_TEST_SUITE_P(
    Rows, BashItself,
    testing::Values(TypedRow{"file_behind_a_variable", "$HOME/rob", "$HOME/robot.yaml "},
                    TypedRow{"file_behind_a_variable_in_quotes", "\"$HOME/rob",
                             "\"$HOME/robot.yaml\" "},
                    TypedRow{"variable", "$HOM", "$HOME"}, TypedRow{"person", "~roo", "~root/"},
                    TypedRow{"pattern", "rob*", "rob*\bot.yaml "}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_F(BashOnTerminal, completes_a_line_tab_by_tab) {
  start();
  type("velmora-can-bridge ru\t");
  EXPECT_TRUE(shows("velmora-can-bridge run "));
  type("my\t");
  EXPECT_TRUE(shows("my\\ boards/"));
  type("\t");
  EXPECT_TRUE(shows("a\\ b.yaml "));
  type("it\t");
  EXPECT_TRUE(shows(R"(it\'s\ \"q\"\ \\\ x )"));
  type("s\t");
  EXPECT_TRUE(shows("set_lamp "));
  type("red=of\t");
  EXPECT_TRUE(shows("red=off "));
  type("g\t");
  EXPECT_TRUE(shows("green="));
  type("5 --bus=s\t");
  EXPECT_TRUE(shows("5 --bus=sim "));
}

using CompletionCommand = CommandLine;

TEST_F(CompletionCommand, refuses_another_shell) {
  EXPECT_EQ(run({"completion", "fish"}), ExitStatus::bad_input);
  EXPECT_EQ(out, "");
  EXPECT_EQ(err, "velmora-can-bridge: unknown shell \"fish\", expected bash\n");
}

TEST_F(CompletionCommand, answers_words_behind_an_option_for_the_shell) {
  EXPECT_EQ(run({"complete-words", " =", "velmora-can-bridge nmt start all --bus=s"}),
            ExitStatus::success);
  EXPECT_EQ(out, "\nsim\n");
  EXPECT_EQ(run({"complete-words", " =", "velmora-can-bridge nonsense "}), ExitStatus::success);
  EXPECT_EQ(out, "\n");
  EXPECT_EQ(err, "");
}

TEST_F(CompletionCommand, tells_who_calls_for_words) {
  EXPECT_EQ(run({"complete-words"}), ExitStatus::bad_input);
  EXPECT_EQ(err,
            "velmora-can-bridge: complete-words takes the word breaks and the line; the script of "
            "\"completion\" calls it\n");
}

}  // namespace
}  // namespace velmora_can_bridge
