#include "velmora_can_bridge/bridge/explanation.hpp"

#include <chrono>
#include <nlohmann/json.hpp>
#include <utility>

#include "ground/drive_objects.hpp"
#include "ground/json_text.hpp"
#include "ground/node_text.hpp"
#include "ground/number_text.hpp"
#include "ground/pdo.hpp"
#include "ground/visible_text.hpp"
#include "velmora_can_bridge/traffic/can_log.hpp"
#include "velmora_can_bridge/values/value_words.hpp"

namespace velmora_can_bridge {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::chrono::milliseconds between_frames{10};

/// As `object_name_text`, and the name of the profile for what has no other name.
std::string object_words(const ObjectName& object) {
  const bool has_name = !object.field.empty() || !object.operations.empty();
  return visible_text(object_name_text(object)) +
         (has_name || object.profile_name.empty() ? "" : " (" + object.profile_name + ")");
}

std::string value_of(const DecodedField& field) {
  return visible_text(bracketed_reading_text(field.reading));
}

/// "left_target_velocity 0 -> 300, left_wheel 0x60FF/0".
std::string field_text(const ExplainedField& field) {
  ObjectName object = field.after.object;
  const std::string name = visible_text(std::exchange(object.field, ""));
  object.operations.clear();
  const std::string where = visible_text(object_name_text(object));
  const std::string change = field.has_changed() ? " -> " + value_of(field.after) : " unchanged";
  return (name.empty() ? where : name) + " " + value_of(field.before) + change +
         (name.empty() ? "" : ", " + where);
}

std::string frame_text(const ExplainedTransfer& step) {
  const Transfer& transfer = step.transfer;
  std::string text = "would send   " + pdo_text(PdoDirection::rpdo, transfer.rpdo);
  if (transfer.error) {
    return text + ": " + visible_text(transfer.error->text) + "\n";
  }
  text += ", COB-ID " + hex<4>(step.cob_id) + ": " + bytes_text(step.image_before) + " -> " +
          bytes_text(transfer.data) + "\n";
  for (const ExplainedField& field : step.fields) {
    text += "               " + field_text(field) + "\n";
  }
  return text;
}

std::string step_text(const ExplainedTransfer& step) {
  const Transfer& transfer = step.transfer;
  if (transfer.kind == TransferKind::rpdo) {
    return frame_text(step);
  }
  const std::string text =
      (transfer.kind == TransferKind::sdo_read ? "read         " : "would write  ") +
      object_words(step.object);
  return text +
         (transfer.error ? ": " + visible_text(transfer.error->text)
                         : " = " + visible_text(value_text(transfer.data, step.reading))) +
         "\n";
}

/// "3 (velocity)".
std::string mode_text(std::uint8_t mode) {
  const std::string_view name = drive_mode_name(mode);
  return std::to_string(mode) + (name.empty() ? "" : " (" + std::string(name) + ")");
}

std::string mode_text(const ExplainedMode& mode) {
  const std::string before = mode_text(mode.before);
  return mode.before == mode.after ? before + " unchanged"
                                   : before + " -> " + mode_text(mode.after);
}

std::string answer_text(const Explanation& explanation) {
  const OperationResult& result = explanation.result;
  if (!result.ok) {
    return "would fail: " + visible_text(result.message) +
           (explanation.error ? " (" + visible_text(explanation.error->text) + ")" : "");
  }
  return "would answer ok: " + visible_text(result.message) +
         (result.data.empty() ? "" : ", data " + hex_bytes(result.data));
}

/// `before` and `before_words`, or the same of `after`.
void add_side(Json& json, const std::string& side, const ValueReading& reading) {
  if (reading.number) {
    json[side] = number_json<Json>(*reading.number);
  }
  if (!reading.words.empty()) {
    json[side + "_words"] = reading.words;
  }
}

Json field_json(const ExplainedField& field) {
  Json json;
  add_object(json, field.after.object);
  json["bit_length"] = field.after.bit_length;
  add_side(json, "before", field.before.reading);
  add_side(json, "after", field.after.reading);
  json["changed"] = field.has_changed();
  return json;
}

/// `mode_before` and `mode_before_words`, or the same of `mode_after`.
void add_mode(Json& json, const std::string& member, std::uint8_t mode) {
  json[member] = mode;
  if (const std::string_view name = drive_mode_name(mode); !name.empty()) {
    json[member + "_words"] = name;
  }
}

void add_frame(Json& json, const ExplainedTransfer& step) {
  json["number"] = step.transfer.rpdo;
  json["cob_id"] = step.cob_id;
  json["before"] = step.image_before;
  json["data"] = step.transfer.data;
  Json fields = Json::array();
  for (const ExplainedField& field : step.fields) {
    fields.push_back(field_json(field));
  }
  json["fields"] = std::move(fields);
}

void add_value(Json& json, const ExplainedTransfer& step) {
  add_object(json, step.object);
  json["data"] = step.transfer.data;
  add_reading(json, step.reading);
}

Json step_json(const ExplainedTransfer& step) {
  static constexpr const char* kinds[] = {"sdo_read", "sdo_write", "rpdo"};
  Json json{{"kind", kinds[static_cast<std::size_t>(step.transfer.kind)]}};
  if (step.transfer.kind == TransferKind::rpdo) {
    add_frame(json, step);
  } else {
    add_value(json, step);
  }
  if (step.transfer.error) {
    json["reason"] = step.transfer.error->text;
  }
  return json;
}

}  // namespace

std::string explanation_text(const Explanation& explanation) {
  std::string text = visible_text(explanation.device + " " + explanation.operation);
  text += explanation.node_id == 0 ? "" : " on " + node_text(explanation.node_id);
  text += "; nothing is written or sent\n";
  std::string lines;
  for (const ExplainedTransfer& step : explanation.transfers) {
    lines += step_text(step);
  }
  if (explanation.mode) {
    lines += "mode of operation " + mode_text(*explanation.mode) + "\n";
  }
  lines += answer_text(explanation) + "\n";
  return text + lines;
}

std::string explanation_json(const Explanation& explanation) {
  Json json{{"operation", explanation.operation}, {"device", explanation.device},
            {"node_id", explanation.node_id},     {"ok", explanation.result.ok},
            {"data", explanation.result.data},    {"message", explanation.result.message}};
  if (explanation.error) {
    json["reason"] = explanation.error->text;
  }
  if (explanation.mode) {
    add_mode(json, "mode_before", explanation.mode->before);
    add_mode(json, "mode_after", explanation.mode->after);
  }
  Json transfers = Json::array();
  for (const ExplainedTransfer& step : explanation.transfers) {
    transfers.push_back(step_json(step));
  }
  json["transfers"] = std::move(transfers);
  return json_text(json);
}

std::string explanation_frames(const Explanation& explanation, const std::string& interface) {
  std::string lines;
  std::chrono::microseconds time{0};
  for (const CanFrame& frame : explanation.frames) {
    lines += can_log_line(time, visible_text(interface), frame) + "\n";
    time += between_frames;
  }
  return lines;
}

}  // namespace velmora_can_bridge
