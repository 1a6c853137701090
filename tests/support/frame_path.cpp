#include <cstddef>
#include <map>
#include <utility>

#include "support/test_path.hpp"
#include "velmora_can_bridge/bus/can_bus_backend.hpp"
#include "velmora_can_bridge/bus/cob_id.hpp"
#include "velmora_can_bridge/bus/in_process_bus.hpp"
#include "velmora_can_bridge/simulator/sdo_server.hpp"

namespace velmora_can_bridge {

/// A client on an in-process bus, and on its other side nodes that ask the script.
class TestPath::ThroughFrames : public CanOpenBackend {
 public:
  explicit ThroughFrames(ScriptedBackend& script)
      : script_(&script),
        devices_(bus_.open({{0, 0}}, [this](const CanFrame& frame, std::vector<CanFrame>& answers) {
          receive(frame, answers);
        })) {}

  bool sdo_read(std::uint8_t node_id, std::uint16_t index, std::uint8_t sub_index,
                Bytes& data) override {
    // No frame can carry an exception of a bus.
    return script_->throws_next() ? script_->sdo_read(node_id, index, sub_index, data)
                                  : client_.sdo_read(node_id, index, sub_index, data);
  }

  bool sdo_write(std::uint8_t node_id, std::uint16_t index, std::uint8_t sub_index,
                 const Bytes& data) override {
    return script_->throws_next() ? script_->sdo_write(node_id, index, sub_index, data)
                                  : client_.sdo_write(node_id, index, sub_index, data);
  }

  bool send_rpdo(std::uint8_t node_id, std::uint8_t rpdo, const std::array<std::uint8_t, 8>& data,
                 std::uint8_t length) override {
    if (script_->throws_next()) {
      return script_->send_rpdo(node_id, rpdo, data, length);
    }
    if (script_->refuses_next()) {
      return refuse_rpdo(node_id, rpdo, data, length);
    }
    give_cob_id(node_id, rpdo);
    return client_.send_rpdo(node_id, rpdo, data, length);
  }

 private:
  using Rpdo = std::pair<std::uint8_t, std::uint8_t>;  // node id, number

  /// A node cannot refuse a frame, only the bus can; the script hears of the call all the same.
  bool refuse_rpdo(std::uint8_t node_id, std::uint8_t rpdo, const std::array<std::uint8_t, 8>& data,
                   std::uint8_t length) {
    give_cob_id(node_id, rpdo);
    bus_.set_state(CanStatus::queue_full);
    const bool sent = client_.send_rpdo(node_id, rpdo, data, length);
    bus_.set_state(CanStatus::ok);
    script_->send_rpdo(node_id, rpdo, data, length);
    return sent;
  }

  /// Tests use numbers that have no predefined COB-ID: every RPDO gets its own when first sent.
  void give_cob_id(std::uint8_t node_id, std::uint8_t rpdo) {
    for (const auto& [cob_id, known] : rpdos_) {
      if (known == Rpdo{node_id, rpdo}) {
        return;
      }
    }
    const auto cob_id = static_cast<std::uint16_t>(0x181 + rpdos_.size());
    rpdos_[cob_id] = {node_id, rpdo};
    boards_[node_id].pdos.push_back({rpdo, "RPDO", cob_id, {}});
    client_.set_cob_ids(node_id, boards_[node_id]);
  }

  void receive(const CanFrame& frame, std::vector<CanFrame>& answers) {
    const auto rpdo = rpdos_.find(frame.id);
    if (rpdo != rpdos_.end()) {
      script_->send_rpdo(rpdo->second.first, rpdo->second.second, frame.data, frame.length);
      return;
    }
    if ((frame.id & function_mask) == sdo_request_cob_id) {
      if (const auto answer =
              server(static_cast<std::uint8_t>(frame.id & highest_node_id)).answer(frame)) {
        answers.push_back(*answer);
      }
    }
  }

  SdoServer& server(std::uint8_t node_id) {
    const auto upload = [this, node_id](std::uint16_t index, std::uint8_t sub_index,
                                        Bytes& data) -> std::optional<SdoAbort> {
      return script_->sdo_read(node_id, index, sub_index, data)
                 ? std::nullopt
                 : std::make_optional(SdoAbort::general_error);
    };
    const auto download = [this, node_id](std::uint16_t index, std::uint8_t sub_index,
                                          const Bytes& data) -> std::optional<SdoAbort> {
      return script_->sdo_write(node_id, index, sub_index, data)
                 ? std::nullopt
                 : std::make_optional(SdoAbort::general_error);
    };
    return servers_.try_emplace(node_id, node_id, upload, download).first->second;
  }

  ScriptedBackend* script_;
  std::map<std::uint16_t, Rpdo> rpdos_;
  std::map<std::uint8_t, BoardConfig> boards_;
  std::map<std::uint8_t, SdoServer> servers_;
  InProcessBus bus_{BusTime::simulated};
  std::unique_ptr<CanEndpoint> devices_;
  CanBusBackend client_{bus_};
};

TestPath::TestPath(ScriptedBackend& script)
    : through_frames_(std::make_unique<ThroughFrames>(script)), backend_(through_frames_.get()) {}

TestPath::~TestPath() = default;

}  // namespace velmora_can_bridge
