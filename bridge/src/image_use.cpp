#include "image_use.hpp"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "ground/drive_objects.hpp"
#include "ground/little_endian.hpp"
#include "ground/pdo.hpp"
#include "pattern_bus.hpp"
#include "velmora_can_bridge/can_open_node_controller.hpp"
#include "velmora_can_bridge/operation_kinds.hpp"

namespace velmora_can_bridge {
namespace {

constexpr std::size_t frame_size = 8;

bool goes_by_sdo(const OperationConfig& op) { return op.transport == "sdo"; }

bool changes_bits(const OperationConfig& op) {
  return op.kind == "bit_patch" || op.kind == "pdo_bit_patch";
}

bool is_refresh(const OperationConfig& op) {
  const OperationKind* const kind = find_operation_kind(op.kind);
  const bool reads_flag = kind != nullptr && kind->members.contains("refresh_shadow");
  const bool is_led_patch =
      op.kind == "led_write" && (op.led_operation == "set_color" || op.led_operation == "set_mode");
  return is_led_patch || (reads_flag && op.refresh_shadow != 0);
}

const DeviceOdEntry* find_device(const CalledOperation& call) {
  const auto& devices = call.node.board.device_od_map;
  const auto found = devices.find(call.device);
  return found == devices.end() ? nullptr : &found->second;
}

std::optional<std::uint8_t> rpdo_of_target(const CalledOperation& call, std::uint8_t mode) {
  const DeviceOdEntry* const drive = find_device(call);
  if (drive == nullptr || goes_by_sdo(call.config)) {
    return std::nullopt;
  }
  return find_rpdo_number(call.node.board, drive_index(*drive, target_object(mode)));
}

std::optional<std::uint8_t> rpdo_of_object(const CalledOperation& call) {
  const DeviceOdEntry* const device = find_device(call);
  const auto& payload = call.payload;
  if (device == nullptr || goes_by_sdo(call.config) || payload.size() < 3) {
    return std::nullopt;
  }
  const auto index =
      static_cast<std::uint16_t>(device->base_index + payload[0] + (unsigned{payload[1]} << 8U));
  for (const PdoConfig& pdo : call.node.board.pdos) {
    if (is_rpdo(pdo) && find_mapping_by_object(pdo, index, payload[2]) != nullptr) {
      return pdo.number;
    }
  }
  return std::nullopt;
}

std::optional<std::uint8_t> rpdo_of(const CalledOperation& call, std::uint8_t mode) {
  const OperationConfig& op = call.config;
  if (op.kind == "ci402_set_target") {
    return rpdo_of_target(call, mode);
  }
  if (op.kind == "od_io_write") {
    return rpdo_of_object(call);
  }
  if (op.kind == "pump_duty") {
    return goes_by_sdo(op) ? std::nullopt : std::make_optional(op.pump_pdo_number);
  }
  constexpr std::string_view by_number[] = {"pdo_write", "pdo_patch", "auto_write",
                                            "led_write", "bit_patch", "pdo_bit_patch"};
  const bool has_number =
      std::find(std::begin(by_number), std::end(by_number), op.kind) != std::end(by_number);
  // The image takes part in a "pdo_bit_patch" by SDO, too.
  if (!has_number || (goes_by_sdo(op) && op.kind != "pdo_bit_patch")) {
    return std::nullopt;
  }
  return op.pdo_number != 0 ? op.pdo_number : find_rpdo_number(call.node.board, op.index);
}

/// The frame that the call sends when every byte of its image is `pattern`.
std::optional<Transfer> frame_over(std::uint8_t pattern, const CalledOperation& call,
                                   std::uint8_t mode) {
  PatternBus bus(pattern);
  CanOpenNodeController controller(call.node.node_id, bus, call.node.board);
  OperationConfig set_mode;
  set_mode.kind = "ci402_set_mode";
  controller.execute_configured_operation(set_mode, call.device, {mode});
  controller.forget_rpdo_shadows();  // the mode stays recorded, and stands in no image
  controller.execute_configured_operation(call.config, call.device, call.payload);
  return bus.frame();
}

/// A write that is repeated in the images.
struct MirrorRow {
  std::string_view kind;
  /// Of a "claw_action".
  std::string_view action;
  DriveObject object;
  /// The controlword that is repeated; no value: whatever is written.
  std::optional<std::uint16_t> word;
};

constexpr MirrorRow mirrors[] = {
    {"ci402_enable", "", DriveObject::controlword, 0x000F},
    {"ci402_disable", "", DriveObject::controlword, 0x0006},
    {"ci402_set_mode", "", DriveObject::modes_of_operation, std::nullopt},
    {"claw_action", "extend", DriveObject::modes_of_operation, std::nullopt},
    {"claw_action", "extend", DriveObject::controlword, 0x000F},
    {"claw_action", "home", DriveObject::modes_of_operation, std::nullopt},
    {"claw_action", "home", DriveObject::controlword, 0x001F},
};

}  // namespace

std::vector<ImageField> image_fields(const BoardConfig& board, std::uint8_t rpdo) {
  std::vector<ImageField> fields;
  for (const PdoConfig& pdo : board.pdos) {
    if (pdo.number != rpdo || !is_rpdo(pdo)) {
      continue;
    }
    std::size_t end = 0;
    for (const PdoMapping& mapping : pdo.mappings) {
      const std::size_t offset = end;
      end += byte_length(mapping);
      const std::size_t length = std::min(end, frame_size) - std::min(offset, frame_size);
      if (length != 0 && !is_dummy_entry(mapping)) {
        fields.push_back({&mapping, offset, length});
      }
    }
  }
  return fields;
}

std::optional<ImageLoad> image_load(const CalledOperation& call, std::uint8_t mode) {
  const std::optional<std::uint8_t> rpdo = rpdo_of(call, mode);
  return rpdo ? std::make_optional(ImageLoad{*rpdo, is_refresh(call.config)}) : std::nullopt;
}

std::vector<bool> written_whole(const CalledOperation& call, std::uint8_t mode,
                                const Transfer& frame) {
  const std::vector<ImageField> fields = image_fields(call.node.board, frame.rpdo);
  std::vector<bool> written(fields.size(), false);
  const std::optional<Transfer> over_zeros = frame_over(0x00, call, mode);
  const std::optional<Transfer> over_ones = frame_over(0xFF, call, mode);
  if (changes_bits(call.config) || !over_zeros || !over_ones || over_zeros->rpdo != frame.rpdo) {
    return written;
  }
  // A byte that is the same over both does not come from the image.
  const auto is_written = [&](std::size_t position) {
    return position < frame.data.size() && position < over_zeros->data.size() &&
           over_zeros->data[position] == over_ones->data[position] &&
           over_zeros->data[position] == frame.data[position];
  };
  for (std::size_t number = 0; number < fields.size(); ++number) {
    bool is_whole = true;
    for (std::size_t byte = 0; byte < fields[number].length; ++byte) {
      is_whole = is_whole && is_written(fields[number].offset + byte);
    }
    written[number] = is_whole;
  }
  return written;
}

bool is_mirrored(const CalledOperation& call, const Transfer& write) {
  const DeviceOdEntry* const drive = find_device(call);
  return drive != nullptr && write.kind == TransferKind::sdo_write && write.sub_index == 0 &&
         std::any_of(std::begin(mirrors), std::end(mirrors), [&](const MirrorRow& row) {
           return row.kind == call.config.kind &&
                  (row.action.empty() || row.action == call.config.action) &&
                  drive_index(*drive, row.object) == write.index &&
                  (!row.word || *row.word == little_endian_number(write.data));
         });
}

const PdoMapping* written_from_image(const CalledOperation& call, const Transfer& write) {
  const OperationConfig& op = call.config;
  if (op.kind != "pdo_bit_patch" || write.kind != TransferKind::sdo_write) {
    return nullptr;
  }
  const std::optional<ImageLoad> load = image_load(call, 0);
  const PdoConfig* const pdo = find_pdo(call.node.board, PdoDirection::rpdo, load->rpdo);
  const std::size_t number = op.named != 0 ? 0U : call.payload.front() - 1U;
  return find_field(*pdo, op.fields.at(number));
}

}  // namespace velmora_can_bridge
