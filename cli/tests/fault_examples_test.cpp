// The scripts of faults in docs/simulator.md, with what the document says that the program prints.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "repository_paths.hpp"
#include "support/served_channel.hpp"
#include "velmora_can_bridge/bus/in_process_bus.hpp"
#include "velmora_can_bridge/cli/command_line.hpp"
#include "velmora_can_bridge/config/board_file.hpp"
#include "velmora_can_bridge/simulator/bus_node.hpp"
#include "velmora_can_bridge/simulator/fault_script.hpp"
#include "velmora_can_bridge/simulator/simulated_node_server.hpp"

namespace velmora_can_bridge {
namespace {

struct FaultExample {
  std::string script;
  /// The lines behind it: commands after "$ ", and what each prints.
  std::string session;
};

std::vector<FaultExample> fault_examples() {
  std::ifstream document(std::string(docs_path) + "/simulator.md");
  std::vector<FaultExample> examples;
  std::string* block = nullptr;
  for (std::string line; std::getline(document, line);) {
    const bool is_session = line == "```" && !examples.empty() && examples.back().session.empty();
    if (line == "```faults") {
      examples.emplace_back();
      block = &examples.back().script;
    } else if (line.rfind("```", 0) == 0) {
      block = block == nullptr && is_session ? &examples.back().session : nullptr;
    } else if (block != nullptr) {
      *block += line + '\n';
    }
  }
  return examples;
}

std::vector<std::string> typed_words(const std::string& command) {
  std::istringstream stream(command);
  std::vector<std::string> words;
  for (std::string word; stream >> word;) {
    words.push_back(word == "robot_board.yaml" ? example_board_path : word);
  }
  return words;
}

/// The example board, switched on with the faults of a script, and the commands of a session.
class FaultSession {
 public:
  explicit FaultSession(const std::string& script) {
    const FaultScript faults = parse_fault_script(script, {&node_});
    EXPECT_TRUE(faults) << faults.error().front().message;
    if (faults) {
      count_ = faults->size();
      node_.set_faults(*faults);
    }
    server_.boot();
  }

  /// The session as it is when its commands are carried out.
  std::string carried_out(const std::string& session) {
    std::istringstream lines(session);
    std::string text;
    for (std::string line; std::getline(lines, line);) {
      if (line.rfind("$ ", 0) == 0) {
        text += line + '\n' + output_of(typed_words(line.substr(2)));
      }
    }
    return text;
  }

  std::size_t faults_that_never_struck() { return count_ - node_.take_fault_effects().size(); }

 private:
  std::string output_of(const std::vector<std::string>& words) {
    if (words.front() == "sleep") {
      const auto end = clock_->now() + std::chrono::seconds(std::stoi(words.at(1)));
      while (clock_->now() < end) {
        server_.poll(SimulatedNodeServer::tick_interval);
      }
      return "";
    }
    std::ostringstream stream;
    const auto open = [this](const std::string& /*interface*/) {
      return std::make_unique<ServedChannel>(vcan0_, server_);
    };
    run_command_line({words.begin() + 1, words.end()}, {stream, stream, false, nullptr, open});
    return stream.str();
  }

  const BoardFile file_ = load_board_file(example_board_path).file.value();
  SimulatedBusNode node_{file_.nodes.front().node_id, file_.nodes.front().board};
  InProcessBus vcan0_{BusTime::simulated, "vcan0"};
  SimulatedNodeServer server_{vcan0_, {&node_}};
  const std::unique_ptr<CanEndpoint> clock_ = vcan0_.open({});
  std::size_t count_ = 0;
};

TEST(FaultExamples, print_what_the_document_says) {
  const std::vector<FaultExample> examples = fault_examples();
  ASSERT_EQ(examples.size(), 5U);
  for (const FaultExample& example : examples) {
    SCOPED_TRACE(example.script);
    FaultSession session(example.script);
    EXPECT_EQ(session.carried_out(example.session), example.session);
    EXPECT_EQ(session.faults_that_never_struck(), 0U);
  }
}

}  // namespace
}  // namespace velmora_can_bridge
