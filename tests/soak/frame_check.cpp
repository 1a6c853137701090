#include "frame_check.hpp"

#include <string>

#include "velmora_can_bridge/bus/cob_id.hpp"

namespace velmora_can_bridge::soak {
namespace {

std::vector<CanFilter> all_rpdos() {
  std::vector<CanFilter> filters;
  for (std::uint8_t rpdo = 1; rpdo <= rpdos; ++rpdo) {
    filters.push_back({rpdo_cob_id(rpdo, 0), function_mask});
  }
  return filters;
}

std::uint8_t rpdo_of(const CanFrame& frame) {
  std::uint8_t rpdo = 1;
  while (rpdo < rpdos && rpdo_cob_id(rpdo, 0) != (frame.id & function_mask)) {
    ++rpdo;
  }
  return rpdo;
}

Bytes bytes_at(const CanFrame& frame, std::size_t offset, std::size_t size) {
  const std::uint8_t* const first = frame.data.data() + offset;
  return {first, first + size};
}

/// Whether of two numbers of a sequence of so many bits the second is the older one.
bool goes_back(std::uint32_t before, std::uint32_t after, unsigned bits) {
  const std::uint32_t range = 1U << (bits - 4);
  return ((after - before) & (range - 1)) >= range / 2;
}

}  // namespace

FrameCheck::FrameCheck(CanChannel& channel, std::vector<std::unique_ptr<SoakNode>>& nodes_by_id,
                       Report& report)
    : nodes_(&nodes_by_id), report_(&report), endpoint_(channel.open(all_rpdos())) {
  endpoint_->note_arrivals();
  thread_ = std::thread([this] { listen(); });
}

FrameCheck::~FrameCheck() {
  is_ending_ = true;
  thread_.join();
}

void FrameCheck::listen() {
  while (!is_ending_) {
    CanFrame frame;
    if (endpoint_->receive(frame, milliseconds(50)) == CanStatus::ok) {
      check(frame, endpoint_->arrival().time);
      ++report_->frames_checked;
    }
  }
}

void FrameCheck::check(const CanFrame& frame, Time came) {
  const std::uint8_t node_id = node_id_of(frame.id);
  if (node_id == 0) {
    return;
  }
  SoakNode& node = *nodes_->at(node_id - 1U);
  const std::uint8_t rpdo = rpdo_of(frame);
  const unsigned length = rpdo == drive_rpdo ? 6 : 8;
  if (frame.length != length) {
    return wrong(node, frame, "has a wrong length");
  }
  switch (rpdo) {
    case led_rpdo:
      return check_led(node, frame, came);
    case drive_rpdo:
      return check_drive(node, frame, came);
    default:
      return check_threads_fields(node, frame, rpdo, came);
  }
}

void FrameCheck::check_threads_fields(SoakNode& node, const CanFrame& frame, std::uint8_t rpdo,
                                      Time came) {
  const std::size_t first = rpdo == 2 ? threads / 2 : 0;
  for (std::size_t field = 0; field < threads / 2; ++field) {
    check_field(node, frame, rpdo, {"field", 2 * field, 2, first + field}, came);
  }
}

void FrameCheck::check_led(SoakNode& node, const CanFrame& frame, Time came) {
  const std::size_t thread = owner(node.id, Owned::led);
  check_field(node, frame, led_rpdo, {"color", 0, 3, thread}, came);
  check_field(node, frame, led_rpdo, {"period", 4, 2, thread}, came);
  if (frame.data[3] > 3) {
    wrong(node, frame, "carries a mode that nobody has written");
  }
}

void FrameCheck::check_drive(SoakNode& node, const CanFrame& frame, Time came) {
  const std::uint32_t word = number_of(bytes_at(frame, 0, 2));
  if (word != 0 && word != 0x2 && word != 0x6 && word != 0xF) {
    wrong(node, frame, "carries a controlword that nobody has written");
  }
  const std::uint32_t velocity = number_of(bytes_at(frame, 2, 4));
  const std::uint32_t extended = (velocity & 0x8000U) == 0 ? 0 : 0xFFFF;
  if (velocity >> 16U != extended) {
    wrong(node, frame, "carries a velocity that nobody has written");
  }
  check_field(node, frame, drive_rpdo, {"velocity", 2, 2, owner(node.id, Owned::drive)}, came);
}

void FrameCheck::check_field(SoakNode& node, const CanFrame& frame, std::uint8_t rpdo,
                             const Field& field, Time came) {
  const auto bits = static_cast<unsigned>(8 * field.size);
  const std::uint32_t value = number_of(bytes_at(frame, field.offset, field.size));
  const std::uint32_t writer = value >> (bits - 4);
  if (value != 0 && writer != sub_index_of(field.thread)) {
    wrong(node, frame, std::string(field.name) + " was not written by its thread");
  }
  Seen& seen = seen_.at(node.id).at(rpdo).at(field.offset);
  const std::optional<Time> sure = node.sure_since();
  const bool is_sure = sure && seen.came > *sure && came > *sure;
  if (is_sure && seen.value != 0 && (value == 0 || goes_back(seen.value, value, bits))) {
    wrong(node, frame,
          std::string(field.name) + " goes back from " + text_of(bytes_of(seen.value, field.size)));
  }
  seen = {value, came};
}

void FrameCheck::wrong(const SoakNode& node, const CanFrame& frame, const std::string& what) {
  report_->problem("node " + std::to_string(node.id) + ", RPDO " + std::to_string(rpdo_of(frame)) +
                   " [" + text_of(bytes_at(frame, 0, frame.length)) + "]: " + what);
}

}  // namespace velmora_can_bridge::soak
