// That explain tells what run does: the same transfers, frames and answer, and nothing on the bus.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>

#include "board_on_bus.hpp"
#include "ground/pdo.hpp"
#include "random_board.hpp"
#include "support/chosen_seed.hpp"
#include "velmora_can_bridge/bus/cob_id.hpp"
#include "velmora_can_bridge/operation_kinds.hpp"
#include "velmora_can_bridge/traffic/can_log.hpp"

namespace velmora_can_bridge {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Lines = std::vector<std::string>;

Lines lines_of(const std::vector<CanFrame>& frames) {
  Lines lines;
  lines.reserve(frames.size());
  for (const CanFrame& frame : frames) {
    lines.push_back(can_log_line(std::chrono::microseconds(0), "can0", frame));
  }
  return lines;
}

std::string text_of(const OperationResult& result, const std::optional<BusError>& error) {
  return std::string(result.ok ? "ok" : "failed") + ", data " +
         testing::PrintToString(result.data) + ", " + result.message +
         (error ? ", " + bus_error_text(*error) : "");
}

/// Whether it begins an upload, or asks for the next segment of one.
bool is_upload_request(const CanFrame& frame, std::uint8_t node_id) {
  return frame.id == sdo_request_cob_id + node_id &&
         (frame.data[0] == 0x40 || frame.data[0] == 0x60 || frame.data[0] == 0x70);
}

/// Whether the operation loads its image in any case.
bool refreshes(const OperationConfig& op) {
  static const std::set<std::string> kinds{"pdo_write", "pdo_patch", "auto_write", "pdo_bit_patch",
                                           "led_write"};
  return (op.refresh_shadow != 0 && kinds.count(op.kind) != 0) ||
         (op.kind == "led_write" &&
          (op.led_operation == "set_color" || op.led_operation == "set_mode"));
}

/// One board three times: with explanations before each call, without, and as it was before a call.
class ExplainProof : public testing::TestWithParam<BoardSource> {
 protected:
  void run_board() {
    RandomBoard random_board(random, GetParam());
    const RandomBoard& board = random_board;
    BoardOnBus explained(board.file());
    BoardOnBus twin(board.file());
    std::vector<RandomStep> before;
    std::map<std::string, std::uint8_t> modes;
    for (int count = 0; count < steps_on_a_board && !HasFailure(); ++count) {
      const RandomStep step = random_board.step();
      SCOPED_TRACE("step " + std::to_string(count) + ": " + step_text(step) + ", kind " +
                   board.node().operations.at(step.operation).kind);
      prepare(explained, step);
      prepare(twin, step);
      const Explanation explanation =
          explained.bridge.explain(step.device, step.operation, step.payload);
      expect_uploads_alone(explained.channel.take(), board.node().node_id);
      const OperationReport report = run(twin, step);
      const std::vector<CanFrame> frames = twin.channel.take();

      expect_same(explanation, report, lines_of(frames));
      expect_modes(explanation, report, modes);
      if (count % 4 == 3) {
        expect_images(explanation, board, before, step);  // plays all before once more
      }
      expect_as_without_explanation(explained, step, report, frames);
      count_in(board.node().operations.at(step.operation), report);
      before.push_back(step);
    }
  }

  static OperationReport run(BoardOnBus& board, const RandomStep& step) {
    return board.bridge.run(step.device, step.operation, step.payload, Detail::transfers);
  }

  static void expect_uploads_alone(const std::vector<CanFrame>& frames, std::uint8_t node_id) {
    for (const CanFrame& frame : frames) {
      EXPECT_TRUE(is_upload_request(frame, node_id)) << lines_of({frame}).front();
    }
  }

  /// Up to the first write or frame that the bus has refused: it ends the operation, while explain
  /// goes on.
  void expect_same(const Explanation& explanation, const OperationReport& report,
                   const Lines& frames) {
    const Lines explained_frames = lines_of(explanation.frames);
    for (std::size_t number = 0; number < report.transfers.size(); ++number) {
      ASSERT_LT(number, explanation.transfers.size());
      const Transfer& would = explanation.transfers[number].transfer;
      const Transfer& did = report.transfers[number];
      if (did.error && !would.error && did.kind != TransferKind::sdo_read) {
        ++refused;
        Transfer begun = did;
        begun.error.reset();
        EXPECT_EQ(transfer_text(would), transfer_text(begun));
        EXPECT_EQ(number + 1, report.transfers.size());
        ASSERT_LE(frames.size(), explained_frames.size());
        EXPECT_TRUE(std::equal(frames.begin(), frames.end(), explained_frames.begin()));
        return;
      }
      EXPECT_EQ(transfer_text(would), transfer_text(did));
    }
    EXPECT_EQ(explanation.transfers.size(), report.transfers.size());
    EXPECT_EQ(explained_frames, frames);
    EXPECT_EQ(text_of(explanation.result, explanation.error), text_of(report.result, report.error));
  }

  /// What one explanation says of the mode afterwards, the next one says of it before.
  static void expect_modes(const Explanation& explanation, const OperationReport& report,
                           std::map<std::string, std::uint8_t>& modes) {
    if (!explanation.mode) {
      return;
    }
    const auto known = modes.find(explanation.device);
    if (known != modes.end()) {
      EXPECT_EQ(explanation.mode->before, known->second);
    }
    modes[explanation.device] = explanation.mode->after;
    if (report.result.ok != explanation.result.ok) {
      modes.erase(explanation.device);  // it ended sooner
    }
  }

  /// The image before is what the board, as it was before the step, sends without a change.
  void expect_images(const Explanation& explanation, const RandomBoard& board,
                     const std::vector<RandomStep>& before, const RandomStep& step) {
    for (const ExplainedTransfer& transfer : explanation.transfers) {
      if (transfer.transfer.kind != TransferKind::rpdo) {
        continue;
      }
      const std::uint8_t number = transfer.transfer.rpdo;
      const PdoConfig* const rpdo = find_pdo(board.node().board, PdoDirection::rpdo, number);
      ASSERT_NE(rpdo, nullptr);
      const std::uint16_t cob_id = cob_id_of(board.node().node_id, *rpdo);
      EXPECT_EQ(transfer.cob_id, cob_id);
      if (cob_id == 0) {
        EXPECT_EQ(transfer.image_before, Bytes());
        continue;
      }
      BoardOnBus probe(board.file());
      for (const RandomStep& earlier : before) {
        prepare(probe, earlier);
        run(probe, earlier);
      }
      prepare(probe, step);
      RandomStep unchanging = step;
      unchanging.operation =
          RandomBoard::unchanging(number, refreshes(board.node().operations.at(step.operation)));
      unchanging.payload.clear();
      const OperationReport sent = run(probe, unchanging);
      ASSERT_FALSE(sent.transfers.empty());
      EXPECT_EQ(transfer.image_before, sent.transfers.back().data);
      ++images;
    }
  }

  /// Explaining has changed nothing: the board runs as its twin, to which nothing was explained.
  static void expect_as_without_explanation(BoardOnBus& explained, const RandomStep& step,
                                            const OperationReport& report,
                                            const std::vector<CanFrame>& frames) {
    const OperationReport same = run(explained, step);
    EXPECT_EQ(text_of(same.result, same.error), text_of(report.result, report.error));
    EXPECT_EQ(lines_of(explained.channel.take()), lines_of(frames));
  }

  void count_in(const OperationConfig& op, const OperationReport& report) {
    ++called[op.kind];
    succeeded[op.kind] += report.result.ok ? 1U : 0U;
    for (const Transfer& transfer : report.transfers) {
      read_failures += transfer.kind == TransferKind::sdo_read && transfer.error ? 1U : 0U;
    }
  }

  static constexpr int steps_on_a_board = 20;

  const std::uint32_t seed = chosen_seed();
  std::mt19937 random{seed};
  std::map<std::string, std::size_t> called;
  std::map<std::string, std::size_t> succeeded;
  std::size_t refused = 0;
  std::size_t read_failures = 0;
  std::size_t images = 0;
};

TEST_P(ExplainProof, explain_tells_what_run_does) {
  SCOPED_TRACE("repeat with: bridge_tests --gtest_filter=*ExplainProof* --gtest_random_seed=" +
               std::to_string(seed));
  for (int boards = 0; boards < 50 && !HasFailure(); ++boards) {
    SCOPED_TRACE("board " + std::to_string(boards));
    run_board();
  }
  if (HasFailure()) {
    return;
  }
  // The arbitrary ones hardly ever suit each other.
  const bool is_arbitrary = GetParam() == BoardSource::arbitrary;
  for (const OperationKind& row : operation_kinds) {
    EXPECT_GT((is_arbitrary ? called : succeeded)[std::string(row.kind)], 0U) << row.kind;
  }
  EXPECT_GT(refused, 10U) << "too few to mean anything";
  if (GetParam() != BoardSource::example) {  // its nodes refuse so few that a run may see none
    EXPECT_GT(read_failures, is_arbitrary ? 10U : 0U) << "too few to mean anything";
  }
  EXPECT_GE(images, is_arbitrary ? 0U : 10U) << "too few to mean anything";
}

INSTANTIATE_TEST_SUITE_P(boards, ExplainProof,
                         testing::Values(BoardSource::arbitrary, BoardSource::mapped,
                                         BoardSource::every_operation, BoardSource::example),
                         testing::PrintToStringParamName());

}  // namespace
}  // namespace velmora_can_bridge
