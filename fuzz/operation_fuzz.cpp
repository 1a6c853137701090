// Operations of all kinds, one after another, on boards of all sorts, over a bus that fails.
#include <algorithm>
#include <map>
#include <optional>
#include <string>

#include "fuzz_bus.hpp"
#include "fuzz_input.hpp"
#include "image_model.hpp"
#include "operation_input.hpp"
#include "velmora_can_bridge/can_open_node_controller.hpp"

namespace velmora_can_bridge {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Kind = BusCall::Kind;

constexpr int most_steps = 24;

bool is_led_patch(const OperationConfig& op) {
  return op.kind == "led_write" &&
         (op.led_operation == "set_color" || op.led_operation == "set_mode");
}

bool can_refresh(const OperationConfig& op) {
  const bool obeys_member = op.kind == "pdo_write" || op.kind == "pdo_patch" ||
                            op.kind == "auto_write" || op.kind == "led_write" ||
                            op.kind == "pdo_bit_patch";
  return is_led_patch(op) || (obeys_member && op.refresh_shadow != 0);
}

/// A read of no sub-indices; a patch by SDO whose payload covers no field.
bool may_do_nothing(const OperationConfig& op) {
  const bool patches = op.kind == "pdo_patch" || is_led_patch(op);
  return op.kind == "read_multi" || (patches && op.transport == "sdo");
}

/// The answer's data by the bus calls: what was read, for the kinds that hand it on.
Bytes expected_data(const OperationConfig& op, const std::vector<BusCall>& calls) {
  Bytes joined;
  for (const BusCall& call : calls) {
    if (op.kind == "claw_action" && op.action == "query") {
      promise(!call.data.empty(), "a claw's state is a byte");
      joined.insert(joined.end(), call.data.begin(), call.data.begin() + 1);
    } else if (op.kind == "sdo_read" || op.kind == "read_multi" || op.kind == "od_io_read") {
      joined.insert(joined.end(), call.data.begin(), call.data.end());
    }
  }
  return joined;
}

/// One controller with all that follows it.
class Run {
 public:
  explicit Run(FuzzInput& input) : board_(take_board(input)), images_(board_) {}

  void step(const OperationStep& step) {
    if (step.forget) {
      controller_.forget_rpdo_shadows();
      images_.forget();
    }
    node_id_ = step.node_id;
    bus_.begin(step.bus);
    const std::uint8_t mode = controller_.motor_mode(step.device);
    const std::optional<OperationResult> result = execute(step);
    check_calls(step.op);
    if (result) {
      check_result(step.op, *result);
    }
    images_.follow(step.op, step.device, step.payload, mode, result ? result->message : "",
                   bus_.calls());
    check_modes(step);
  }

  /// Sends every loaded image as it stands, so that it is compared with the model.
  void show_images() {
    for (const std::uint8_t rpdo : images_.loaded()) {
      const PdoConfig* const pdo = first_rpdo(rpdo);
      if (rpdo == 0 || pdo == nullptr || pdo->mappings.empty()) {
        continue;
      }
      OperationStep patch_of_nothing;
      patch_of_nothing.op.kind = "pdo_patch";
      patch_of_nothing.op.pdo_number = rpdo;
      patch_of_nothing.op.fields = {pdo->mappings.front().field};
      step(patch_of_nothing);
      promise(bus_.calls().size() == 1, "a patch of nothing sends the image");
    }
  }

 private:
  /// The answer; none when an exception of the bus has passed through.
  std::optional<OperationResult> execute(const OperationStep& step) {
    try {
      return controller_.execute_configured_operation(step.op, step.device, step.payload);
    } catch (const BusException&) {
      promise(!bus_.calls().empty() && bus_.calls().back().answer == BusAnswer::thrown,
              "nothing follows an exception of the bus");
      return std::nullopt;
    }
  }

  void check_calls(const OperationConfig& op) const {
    const std::vector<BusCall>& calls = bus_.calls();
    for (std::size_t number = 0; number < calls.size(); ++number) {
      const BusCall& call = calls[number];
      const bool is_last = number + 1 == calls.size();
      const bool may_go_on = call.kind == Kind::read && can_refresh(op);
      promise(call.node_id == node_id_, "a call is for the controller's node");
      promise(call.length <= 8, "a frame has at most 8 bytes");
      promise(is_last || call.kind != Kind::send, "a send is the last call");
      promise(is_last || call.answer == BusAnswer::accepted ||
                  (call.answer == BusAnswer::refused && may_go_on),
              "nothing follows a refused call");
    }
  }

  void check_result(const OperationConfig& op, const OperationResult& result) const {
    promise(!result.message.empty(), "an answer has a message");
    const std::vector<BusCall>& calls = bus_.calls();
    if (!result.ok) {
      promise(result.data.empty(), "a failure has no data");
      return;
    }
    promise(calls.empty() || calls.back().answer == BusAnswer::accepted,
            "what the bus refuses is no success");
    promise(!calls.empty() || may_do_nothing(op), "a success has reached the bus");
    promise(result.data == expected_data(op, calls), "a success hands on what was read");
  }

  /// A mode is recorded when the drive has accepted it, and only then.
  void check_modes(const OperationStep& step) {
    const OperationConfig& op = step.op;
    const bool sets_mode =
        op.kind == "ci402_set_mode" ||
        (op.kind == "claw_action" && (op.action == "extend" || op.action == "home"));
    const std::vector<BusCall>& calls = bus_.calls();
    if (sets_mode && !calls.empty() && calls.front().answer == BusAnswer::accepted) {
      modes_[step.device] = calls.front().data.at(0);
    }
    promise(controller_.motor_mode(step.device) == modes_[step.device],
            "the mode is the one that the drive accepted last");
  }

  const PdoConfig* first_rpdo(std::uint8_t number) const {
    const auto found = std::find_if(
        board_.pdos.begin(), board_.pdos.end(),
        [&](const PdoConfig& pdo) { return pdo.number == number && pdo.direction == "RPDO"; });
    return found == board_.pdos.end() ? nullptr : &*found;
  }

  BoardConfig board_;
  std::uint8_t node_id_ = 1;
  FuzzBus bus_;
  CanOpenNodeController controller_{node_id_, bus_, board_};
  ImageModel images_;
  std::map<std::string, std::uint8_t> modes_;
};

void run(FuzzInput input) {
  Run run(input);
  for (int steps = 0; steps < most_steps && !input.empty(); ++steps) {
    run.step(take_step(input));
    run.show_images();
  }
}

}  // namespace
}  // namespace velmora_can_bridge

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  velmora_can_bridge::run({data, size});
  return 0;
}
