#include "velmora_can_bridge/bus/restart_guard.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/passing_endpoint.hpp"
#include "support/scripted_backend.hpp"
#include "test_frames.hpp"
#include "velmora_can_bridge/bus/in_process_bus.hpp"

namespace velmora_can_bridge {
namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::IsEmpty;

NodeEvent event_of(NodeEventKind kind, std::uint8_t node_id) {
  NodeEvent event;
  event.kind = kind;
  event.node_id = node_id;
  return event;
}

NodeEvent booted(std::uint8_t node_id) { return event_of(NodeEventKind::booted, node_id); }
NodeEvent lost(std::uint8_t node_id) { return event_of(NodeEventKind::lost, node_id); }

NodeEvent shows(std::uint8_t node_id, NmtState state) {
  NodeEvent event = event_of(NodeEventKind::state_changed, node_id);
  event.state = state;
  return event;
}

NodeEvent told(CanStatus status) {
  NodeEvent event = event_of(NodeEventKind::bus, 0);
  event.status = status;
  return event;
}

/// Nodes 5 and 6; node 5 has two controllers. All have their images loaded.
class RestartGuardTest : public testing::Test {
 protected:
  RestartGuardTest() {
    board.pdos = {{1, "RPDO", 0, {{0x2000, 1, 8, "level"}}}};
    guard.add(five, first);
    guard.add(five, second);
    guard.add(six, other);
    reloaded();
  }

  /// Lets every controller send its RPDO; the names of those that read it from the node before.
  std::vector<std::string> reloaded() {
    std::vector<std::string> names;
    for (const auto& [name, controller] :
         {std::pair("first", &first), std::pair("second", &second), std::pair("other", &other)}) {
      OperationConfig op;
      op.kind = "pdo_write";
      op.pdo_number = 1;
      op.field = "level";
      backend.calls.clear();
      EXPECT_TRUE(controller->execute_configured_operation(op, "lamp", {1}).ok);
      if (backend.calls.size() == 2) {
        names.emplace_back(name);
      }
    }
    return names;
  }

  const std::uint8_t five = 5;
  const std::uint8_t six = 6;
  ScriptedBackend backend;
  BoardConfig board;
  CanOpenNodeController first{five, backend, board};
  CanOpenNodeController second{five, backend, board};
  CanOpenNodeController other{six, backend, board};
  RestartGuard guard;
};

NodeEvent frames_lost() {
  NodeEvent event;
  event.kind = NodeEventKind::frames_lost;
  return event;
}

TEST_F(RestartGuardTest, who_keeps_more_than_images_is_told_to_forget) {
  int forgotten = 0;
  guard.add(six, [&] { ++forgotten; });
  guard.note(booted(five));
  EXPECT_EQ(forgotten, 0);
  guard.note(booted(six));
  EXPECT_EQ(forgotten, 1);
}

using Story = std::function<void(RestartGuard&)>;

struct Row {
  std::string name;
  /// What is told before; images are loaded again after it.
  Story before;
  /// What decides.
  Story then;
  /// The node whose images it forgets; 0 for all.
  int node_id;
};

void PrintTo(const Row& row, std::ostream* out) { *out << row.name; }

std::string row_name(const testing::TestParamInfo<Row>& row) { return row.param.name; }

const Story nothing = [](RestartGuard&) {};

class ReasonTest : public RestartGuardTest, public testing::WithParamInterface<Row> {};

TEST_P(ReasonTest, forgets_the_images_of_the_nodes_concerned_once) {
  GetParam().before(guard);
  reloaded();

  GetParam().then(guard);

  std::vector<std::string> concerned{"first", "second", "other"};
  if (GetParam().node_id == 5) {
    concerned.pop_back();
  } else if (GetParam().node_id == 6) {
    concerned.erase(concerned.begin(), concerned.begin() + 2);
  }
  EXPECT_EQ(reloaded(), concerned);
  EXPECT_THAT(reloaded(), IsEmpty());
}

template <typename Told>
Story noted(const Told& news) {
  return [news](RestartGuard& guard) { guard.note(news); };
}

Story commanded(NmtCommand command, std::uint8_t node_id) {
  return [=](RestartGuard& guard) { guard.note(command, node_id); };
}

Story in_turn(const Story& one, const Story& two) {
  return [=](RestartGuard& guard) {
    one(guard);
    two(guard);
  };
}

const NodeEvent shows_stopped = shows(5, NmtState::stopped);
const NodeEvent shows_pre_operational = shows(5, NmtState::pre_operational);
const NodeEvent shows_operational = shows(5, NmtState::operational);

INSTANTIATE_TEST_SUITE_P(
    of_nodes, ReasonTest,
    testing::Values(
        Row{"boot_up", nothing, noted(booted(5)), 5},
        Row{"boot_up_of_another", nothing, noted(booted(6)), 6},
        Row{"boot_up_after_boot_up", noted(booted(5)), noted(booted(5)), 5},
        Row{"lost", nothing, noted(lost(5)), 5},
        Row{"heard_again_after_lost", noted(lost(5)), noted(shows_operational), 5},
        Row{"boot_up_after_lost", noted(lost(5)), noted(booted(5)), 5},
        Row{"heard_again_in_the_state_asked_for",
            in_turn(commanded(NmtCommand::stop, 5), noted(lost(5))), noted(shows_stopped), 5},
        Row{"pre_operational_without_a_command", nothing, noted(shows_pre_operational), 5},
        Row{"stopped_without_a_command", nothing, noted(shows_stopped), 5},
        Row{"pre_operational_after_start", commanded(NmtCommand::start, 5),
            noted(shows_pre_operational), 5},
        Row{"pre_operational_after_stop", commanded(NmtCommand::stop, 5),
            noted(shows_pre_operational), 5},
        Row{"stopped_after_enter_pre_operational", commanded(NmtCommand::enter_pre_operational, 5),
            noted(shows_stopped), 5},
        Row{"pre_operational_after_a_command_to_another",
            commanded(NmtCommand::enter_pre_operational, 6), noted(shows_pre_operational), 5},
        Row{"pre_operational_after_a_later_command_to_all",
            in_turn(commanded(NmtCommand::enter_pre_operational, 5),
                    commanded(NmtCommand::start, 0)),
            noted(shows_pre_operational), 5},
        Row{"pre_operational_again_after_the_one_asked_for",
            in_turn(commanded(NmtCommand::enter_pre_operational, 5),
                    in_turn(noted(shows_pre_operational), noted(shows_operational))),
            noted(shows_pre_operational), 5},
        Row{"pre_operational_after_a_command_before_a_boot_up",
            in_turn(commanded(NmtCommand::enter_pre_operational, 5), noted(booted(5))),
            noted(shows_pre_operational), 5},
        Row{"pre_operational_after_our_reset", commanded(NmtCommand::reset_node, 5),
            noted(shows_pre_operational), 5}),
    row_name);

INSTANTIATE_TEST_SUITE_P(
    of_the_bus, ReasonTest,
    testing::Values(
        Row{"down", nothing, noted(CanStatus::interface_down), 0},
        Row{"missing", nothing, noted(CanStatus::interface_missing), 0},
        Row{"bus_off", nothing, noted(CanStatus::bus_off), 0},
        Row{"failed", nothing, noted(CanStatus::failed), 0},
        Row{"down_again", noted(CanStatus::interface_down), noted(CanStatus::interface_down), 0},
        Row{"works_after_down", noted(CanStatus::interface_down), noted(CanStatus::ok), 0},
        Row{"works_after_missing", noted(CanStatus::interface_missing), noted(CanStatus::ok), 0},
        Row{"works_after_bus_off", noted(CanStatus::bus_off), noted(CanStatus::ok), 0},
        Row{"works_after_failed", noted(CanStatus::failed), noted(CanStatus::ok), 0},
        Row{"works_after_down_with_a_warning_between",
            in_turn(noted(CanStatus::interface_down), noted(CanStatus::error_passive)),
            noted(CanStatus::ok), 0},
        Row{"frames_lost_by_a_watch", nothing, noted(frames_lost()), 0},
        Row{"event_of_a_watch", nothing, noted(told(CanStatus::bus_off)), 0},
        Row{"works_by_an_event_of_a_watch", noted(told(CanStatus::bus_off)),
            noted(told(CanStatus::ok)), 0}),
    row_name);

INSTANTIATE_TEST_SUITE_P(
    of_commands, ReasonTest,
    testing::Values(Row{"reset_node", nothing, commanded(NmtCommand::reset_node, 5), 5},
                    Row{"reset_communication", nothing,
                        commanded(NmtCommand::reset_communication, 6), 6},
                    Row{"reset_of_all_nodes", nothing, commanded(NmtCommand::reset_node, 0), 0},
                    Row{"reset_of_all_communication", nothing,
                        commanded(NmtCommand::reset_communication, 0), 0}),
    row_name);

class NoReasonTest : public RestartGuardTest, public testing::WithParamInterface<Row> {};

TEST_P(NoReasonTest, keeps_all_images) {
  GetParam().before(guard);
  reloaded();

  GetParam().then(guard);

  EXPECT_THAT(reloaded(), IsEmpty());
}

constexpr int nobody = -1;

INSTANTIATE_TEST_SUITE_P(
    all, NoReasonTest,
    testing::Values(
        Row{"operational", nothing, noted(shows_operational), nobody},
        Row{"unknown_state", nothing, noted(shows(5, static_cast<NmtState>(9))), nobody},
        Row{"operational_after_it_was_heard_again", in_turn(noted(lost(5)), noted(shows_stopped)),
            noted(shows_operational), nobody},
        Row{"operational_after_boot_up_of_a_lost_node", in_turn(noted(lost(5)), noted(booted(5))),
            noted(shows_operational), nobody},
        Row{"pre_operational_by_command", commanded(NmtCommand::enter_pre_operational, 5),
            noted(shows_pre_operational), nobody},
        Row{"pre_operational_by_command_to_all", commanded(NmtCommand::enter_pre_operational, 0),
            noted(shows_pre_operational), nobody},
        Row{"stopped_by_command", commanded(NmtCommand::stop, 5), noted(shows_stopped), nobody},
        Row{"stopped_by_the_last_of_two_commands",
            in_turn(commanded(NmtCommand::start, 0), commanded(NmtCommand::stop, 5)),
            noted(shows_stopped), nobody},
        Row{"stopped_by_command_shown_late",
            in_turn(commanded(NmtCommand::stop, 5), noted(shows_operational)), noted(shows_stopped),
            nobody},
        Row{"stopped_by_command_with_one_to_another_after_it",
            in_turn(commanded(NmtCommand::stop, 5), commanded(NmtCommand::start, 6)),
            noted(shows_stopped), nobody},
        Row{"emergency", nothing, noted(event_of(NodeEventKind::emergency, 5)), nobody},
        Row{"loss_of_a_node_without_a_controller", nothing, noted(lost(7)), nobody},
        Row{"error_passive", nothing, noted(CanStatus::error_passive), nobody},
        Row{"queue_full", nothing, noted(CanStatus::queue_full), nobody},
        Row{"timed_out", nothing, noted(CanStatus::timed_out), nobody},
        Row{"warning_of_a_watch", nothing, noted(told(CanStatus::error_passive)), nobody},
        Row{"bus_that_works_as_before", nothing, noted(CanStatus::ok), nobody},
        Row{"bus_that_goes_on_working", in_turn(noted(CanStatus::bus_off), noted(CanStatus::ok)),
            noted(CanStatus::ok), nobody},
        Row{"bus_that_works_after_a_full_queue", noted(CanStatus::queue_full), noted(CanStatus::ok),
            nobody},
        Row{"command_to_start", nothing, commanded(NmtCommand::start, 5), nobody},
        Row{"command_to_stop", nothing, commanded(NmtCommand::stop, 0), nobody},
        Row{"command_to_enter_pre_operational", nothing,
            commanded(NmtCommand::enter_pre_operational, 0), nobody},
        Row{"reset_of_a_node_without_a_controller", nothing, commanded(NmtCommand::reset_node, 7),
            nobody},
        Row{"event_of_no_node", nothing, noted(booted(0)), nobody},
        Row{"event_of_a_node_id_that_is_none", nothing, noted(booted(200)), nobody},
        Row{"command_to_a_node_id_that_is_none", nothing, commanded(NmtCommand::reset_node, 200),
            nobody}),
    row_name);

TEST_F(RestartGuardTest, node_that_boots_while_the_interface_is_down_is_noticed_through_a_watch) {
  InProcessBus bus(BusTime::simulated, "can0");
  const auto node = bus.open({});
  NodeWatch watch(bus, milliseconds(0), [this](const NodeEvent& event) { guard.note(event); });
  node->send(frame_of(0x705, "05"), milliseconds(0));
  watch.poll(milliseconds(0));
  EXPECT_THAT(reloaded(), IsEmpty());

  bus.set_state(CanStatus::interface_down);
  watch.poll(milliseconds(0));
  EXPECT_THAT(reloaded(), ElementsAre("first", "second", "other"));

  bus.set_state(CanStatus::ok);
  node->send(frame_of(0x705, "05"), milliseconds(0));
  watch.poll(milliseconds(0));
  EXPECT_THAT(reloaded(), ElementsAre("first", "second", "other")) << "nothing else has changed";
}

// --- sending commands ---

/// A bus on which node 5 shows at once the state that a command asks for.
class SendingGuardTest : public RestartGuardTest {
 protected:
  InProcessBus bus{BusTime::simulated, "can0"};
  NodeWatch watch{bus, milliseconds(0), [this](const NodeEvent& event) { guard.note(event); }};
  std::vector<CanFrame> commands;
  std::unique_ptr<CanEndpoint> node =
      bus.open({{0x000}}, [this](const CanFrame& frame, std::vector<CanFrame>& answers) {
        commands.push_back(frame);
        answers.push_back(frame_of(0x705, frame.data[0] == 0x80 ? "7F" : "05"));
      });
  NmtMaster master{bus};
};

/// Its sends come back when a watch has handled what the nodes have sent in answer.
class WatchedChannel : public CanChannel {
 public:
  WatchedChannel(CanChannel& channel, NodeWatch& watch) : channel_(&channel), watch_(&watch) {}

  std::unique_ptr<CanEndpoint> open(const std::vector<CanFilter>& filters) override {
    return std::make_unique<Endpoint>(channel_->open(filters), *watch_);
  }

 private:
  class Endpoint : public PassingEndpoint {
   public:
    Endpoint(std::unique_ptr<CanEndpoint> inner, NodeWatch& watch)
        : PassingEndpoint(std::move(inner)), watch_(&watch) {}

    CanStatus send(const CanFrame& frame, std::chrono::nanoseconds patience) override {
      const CanStatus status = PassingEndpoint::send(frame, patience);
      watch_->poll(milliseconds(0));
      return status;
    }

   private:
    NodeWatch* const watch_;
  };

  CanChannel* const channel_;
  NodeWatch* const watch_;
};

TEST_F(SendingGuardTest, state_that_a_command_asked_for_is_no_reason_though_it_is_shown_at_once) {
  WatchedChannel watched(bus, watch);
  NmtMaster at_once(watched);
  guard.send(at_once, NmtCommand::start, five);
  EXPECT_EQ(guard.send(at_once, NmtCommand::enter_pre_operational, five), std::nullopt);

  EXPECT_THAT(reloaded(), IsEmpty());
  EXPECT_THAT(commands, ElementsAre(frame_of(0, "01 05"), frame_of(0, "80 05")));
}

TEST_F(SendingGuardTest, images_that_were_loaded_while_a_reset_was_sent_are_forgotten) {
  bool loads = true;
  bus.set_fault_rule([&](const CanFrame& frame) -> std::vector<CanDelivery> {
    if (loads) {
      reloaded();
      loads = false;
    }
    return {{frame}};
  });
  EXPECT_EQ(guard.send(master, NmtCommand::reset_node, five), std::nullopt);

  EXPECT_FALSE(loads);
  EXPECT_THAT(reloaded(), ElementsAre("first", "second"));
}

TEST_F(SendingGuardTest, command_that_cannot_be_sent_says_why) {
  bus.set_state(CanStatus::interface_down);
  const std::optional<BusError> error = guard.send(master, NmtCommand::start, five);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->kind, BusErrorKind::bus_fault);
}

TEST_F(RestartGuardTest, may_be_told_from_several_threads) {
  constexpr int times = 200;
  std::vector<std::thread> tellers;
  for (const std::uint8_t node_id : {five, six}) {
    tellers.emplace_back([this, node_id] {
      for (int time = 0; time < times; ++time) {
        guard.note(lost(node_id));
        guard.note(NmtCommand::start, node_id);
        guard.note(time % 2 == 0 ? CanStatus::bus_off : CanStatus::ok);
      }
    });
  }
  for (int time = 0; time < times; ++time) {
    reloaded();
  }
  for (std::thread& teller : tellers) {
    teller.join();
  }

  reloaded();
  guard.note(shows(six, NmtState::operational));
  EXPECT_THAT(reloaded(), ElementsAre("other")) << "it was lost";
}

}  // namespace
}  // namespace velmora_can_bridge
