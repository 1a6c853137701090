#include "board_session.hpp"

#include <algorithm>
#include <utility>

#include "exit_status.hpp"

namespace velmora_can_bridge {

using std::chrono::milliseconds;

namespace {

bool is_stopped(const std::optional<BusError>& error) {
  return error && error->kind == BusErrorKind::stopped;
}

}  // namespace

const NodeConfig* find_node(const BoardFile& file, const std::string& device) {
  const auto found = std::find_if(file.nodes.begin(), file.nodes.end(), [&](const auto& node) {
    return node.board.device_od_map.count(device) != 0;
  });
  return found == file.nodes.end() ? nullptr : &*found;
}

BoardSession::BoardSession(const CommandLineHost& host, CanChannel& channel, const BoardFile& file,
                           SdoTimes times, TracingBackend::Sink sink)
    : bus_(host, channel, times),
      traced_(
          bus_,
          [this, sink = std::move(sink)](const Transfer& transfer) {
            if (!is_stopped(error_)) {
              error_ = transfer.error;
            }
            tolerated_ = error_ ? error_ : tolerated_;
            sink(transfer);
          },
          [this](std::uint8_t /*node_id*/) { return bus_.last_error(); }),
      watch_(channel, milliseconds(0), [this](const NodeEvent& event) { guard_.note(event); }) {
  for (const NodeConfig& config : file.nodes) {
    bus_.set_cob_ids(config.node_id, config.board);
    nodes_.push_back(std::make_unique<Node>(traced_, config));
    guard_.add(config.node_id, nodes_.back()->controller);
  }
}

OperationReport BoardSession::run(const std::string& device, const std::string& operation,
                                  const std::vector<std::uint8_t>& payload) {
  watch_.poll(milliseconds(0));
  error_.reset();
  tolerated_.reset();
  Node& node = node_of(device);
  OperationReport report{operation, device, {}, ExitStatus::success, {}, {}};
  report.result = node.controller.execute_configured_operation(
      node.config->operations.at(operation), device, payload);
  if (report.result.ok) {
    report.remark = tolerated_ ? bus_error_text(*tolerated_) : "";
    return report;
  }
  if (error_) {
    report.status = exit_status_of(*error_);
    report.reason = error_->text;
  } else {
    report.status = ExitStatus::operation_failed;
  }
  return report;
}

BoardSession::Node& BoardSession::node_of(const std::string& device) {
  return **std::find_if(nodes_.begin(), nodes_.end(), [&](const auto& node) {
    return node->config->board.device_od_map.count(device) != 0;
  });
}

}  // namespace velmora_can_bridge
