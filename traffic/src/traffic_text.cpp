#include "velmora_can_bridge/traffic/traffic_text.hpp"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string_view>
#include <vector>

#include "ground/json_text.hpp"
#include "ground/little_endian.hpp"
#include "ground/node_text.hpp"
#include "ground/number_text.hpp"
#include "ground/pdo.hpp"
#include "ground/visible_text.hpp"
#include "velmora_can_bridge/bus/sdo_abort.hpp"
#include "velmora_can_bridge/values/error_words.hpp"
#include "velmora_can_bridge/values/value_words.hpp"

namespace velmora_can_bridge {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Json = nlohmann::ordered_json;

struct KindWords {
  std::string_view text;
  std::string_view json;
};

/// By `TrafficKind`. PDOs have their number beside it.
constexpr KindWords kind_words[] = {
    {"NMT", "nmt"},
    {"boot-up", "boot_up"},
    {"heartbeat", "heartbeat"},
    {"emergency", "emergency"},
    {"SYNC", "sync"},
    {"TIME", "time"},
    {"RPDO", "rpdo"},
    {"TPDO", "tpdo"},
    {"SDO", "sdo_request"},
    {"SDO", "sdo_answer"},
    {"", "other"},
};

/// By `SdoStep`, as `step` in JSON.
constexpr std::string_view step_words[] = {"read",
                                           "write",
                                           "write_in_segments",
                                           "next_segment",
                                           "value",
                                           "value_in_segments",
                                           "ready_for_segments",
                                           "segment_taken",
                                           "done",
                                           "segment",
                                           "last_segment",
                                           "abort",
                                           "block",
                                           "unknown"};

std::string_view step_word(SdoStep step) { return step_words[static_cast<std::size_t>(step)]; }

KindWords words_of(TrafficKind kind) { return kind_words[static_cast<std::size_t>(kind)]; }

Bytes frame_bytes(const CanFrame& frame) {
  return {frame.data.begin(), frame.data.begin() + frame.length};
}

std::string padded(std::string text, std::size_t width) {
  text.resize(std::max(text.size(), width), ' ');
  return text;
}

Bytes field_bytes(const DecodedField& field) {
  return little_endian_bytes(field.value, bytes_for_bits(field.bit_length));
}

std::string field_text(const DecodedField& field) {
  return object_name_text(field.object) + " = " + value_text(field_bytes(field), field.reading);
}

std::string_view nmt_command_text(std::uint8_t command) {
  switch (NmtCommand{command}) {
    case NmtCommand::start:
      return "start";
    case NmtCommand::stop:
      return "stop";
    case NmtCommand::enter_pre_operational:
      return "enter pre-operational";
    case NmtCommand::reset_node:
      return "reset node";
    case NmtCommand::reset_communication:
      return "reset communication";
  }
  return "unknown command";
}

std::string in_segments(const std::optional<std::size_t>& size) {
  return size ? ", " + std::to_string(*size) + " bytes in segments" : " in segments";
}

/// The whole of a value that came in segments, or as much of it as is kept.
std::string whole_text(const SdoTrafficContent& content) {
  const SdoContent& sdo = content.sdo;
  return content.reading ? value_text(sdo.whole, *content.reading)
                         : std::to_string(*sdo.size) + " bytes, at first " + hex_bytes(sdo.whole);
}

std::string segment_text(const SdoTrafficContent& content, const std::string& object) {
  const SdoContent& sdo = content.sdo;
  const std::string bytes = bytes_text(sdo.bytes);
  if (sdo.step != SdoStep::last_segment) {
    return "segment of " + object + ": " + bytes;
  }
  return "last segment of " + object + ": " + bytes +
         (sdo.size ? "; whole: " + whole_text(content) : "");
}

/// " = 37 02 (567, Operation enabled)".
std::string brought_text(const SdoTrafficContent& content) {
  return " = " + value_text(content.sdo.bytes, content.reading.value_or(ValueReading()));
}

std::string sdo_text(const SdoTrafficContent& content, const std::string& object) {
  const SdoContent& sdo = content.sdo;
  switch (sdo.step) {
    case SdoStep::read:
      return "read " + object;
    case SdoStep::write:
      return "write " + object + brought_text(content);
    case SdoStep::write_in_segments:
      return "write " + object + in_segments(sdo.size);
    case SdoStep::next_segment:
      return "next segment of " + object;
    case SdoStep::value:
      return "answer " + object + brought_text(content);
    case SdoStep::value_in_segments:
      return "answer " + object + in_segments(sdo.size);
    case SdoStep::ready_for_segments:
      return "ready for segments of " + object;
    case SdoStep::segment_taken:
      return "segment taken of " + object;
    case SdoStep::done:
      return "done " + object;
    case SdoStep::segment:
    case SdoStep::last_segment:
      return segment_text(content, object);
    case SdoStep::abort:
      return sdo_abort_line(sdo.abort_code) + ", of " + object;
    case SdoStep::block:
      return "block transfer, not decoded: ";
    case SdoStep::unknown:
      break;
  }
  return {};
}

/// "0x8210 (PDO not taken: its length is wrong)".
std::string with_words(const std::string& number, const std::string& words) {
  return number + (words.empty() ? "" : " (" + words + ")");
}

std::string emergency_text(const EmergencyContent& emergency) {
  const Bytes data(emergency.device_data.begin(), emergency.device_data.end());
  const std::string error = emergency.error_code == 0
                                ? "no error any more"
                                : "error " + with_words(hex<4>(emergency.error_code),
                                                        emergency_words(emergency.error_code));
  return error + ", error register " +
         with_words(hex<2>(emergency.error_register),
                    error_register_words(emergency.error_register)) +
         ", data " + hex_bytes(data);
}

/// What a frame holds, for people; one overload for each content.
struct ContentText {
  const DecodedFrame* decoded;

  std::string raw() const { return hex_bytes(frame_bytes(decoded->frame)); }

  std::string operator()(std::monostate /*none*/) const { return raw(); }
  std::string operator()(const NmtContent& nmt) const {
    const std::string_view text = nmt_command_text(nmt.command);
    return std::string(text) + (text == "unknown command" ? " " + hex<2>(nmt.command) : "");
  }
  std::string operator()(const HeartbeatContent& heartbeat) const {
    if (decoded->kind == TrafficKind::boot_up) {
      return {};
    }
    const std::string_view text = nmt_state_text(heartbeat.state);
    return std::string(text) + (text == "unknown state"
                                    ? " " + hex<2>(static_cast<std::uint8_t>(heartbeat.state))
                                    : "");
  }
  std::string operator()(const EmergencyContent& emergency) const {
    return emergency_text(emergency);
  }
  std::string operator()(const PdoContent& pdo) const {
    std::string text;
    for (const DecodedField& field : pdo.fields) {
      text += (text.empty() ? "" : ", ") + field_text(field);
    }
    text = text.empty() ? raw() : text;
    for (const std::string& other : pdo.also) {
      text += ", also " + other;
    }
    return text;
  }
  std::string operator()(const SdoTrafficContent& content) const {
    const std::string object =
        content.object ? object_name_text(*content.object) : "an unknown object";
    const bool is_raw = content.sdo.step == SdoStep::block || content.sdo.step == SdoStep::unknown;
    return sdo_text(content, object) + (is_raw ? raw() : "");
  }
};

std::string whose_text(const DecodedFrame& decoded) {
  if (decoded.node_id == 0) {
    const bool is_for_all = std::holds_alternative<NmtContent>(decoded.content);
    return is_for_all && !decoded.problem ? "all nodes" : "";
  }
  return node_text(decoded.node_id) + (decoded.is_node_known ? "" : " (not in the board file)");
}

std::string kind_text(const DecodedFrame& decoded) {
  if (const auto* const pdo = std::get_if<PdoContent>(&decoded.content)) {
    return pdo_text(decoded.kind == TrafficKind::rpdo ? PdoDirection::rpdo : PdoDirection::tpdo,
                    pdo->number);
  }
  return decoded.kind == TrafficKind::other ? hex<4>(decoded.frame.id)
                                            : std::string(words_of(decoded.kind).text);
}

/// "   1.250".
std::string seconds_text(std::chrono::nanoseconds time) {
  const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(time).count();
  const std::string fraction = std::to_string(1000 + milliseconds % 1000).substr(1);
  const std::string text = std::to_string(milliseconds / 1000) + "." + fraction;
  constexpr std::size_t width = 8;
  return std::string(width - std::min(width, text.size()), ' ') + text;
}

/// Adds what a frame holds; one overload for each content.
struct ContentJson {
  const DecodedFrame* decoded;
  Json* line;

  void operator()(std::monostate /*none*/) const {}
  void operator()(const NmtContent& nmt) const {
    (*line)["command"] = nmt.command;
    (*line)["command_text"] = nmt_command_text(nmt.command);
  }
  void operator()(const HeartbeatContent& heartbeat) const {
    (*line)["state"] = static_cast<std::uint8_t>(heartbeat.state);
    (*line)["state_text"] = nmt_state_text(heartbeat.state);
    (*line)["changed"] = heartbeat.has_changed;
  }
  void operator()(const EmergencyContent& emergency) const {
    (*line)["error_code"] = emergency.error_code;
    if (const std::string words = emergency_words(emergency.error_code); !words.empty()) {
      (*line)["error_words"] = words;
    }
    (*line)["error_register"] = emergency.error_register;
    (*line)["error_register_words"] = error_register_words(emergency.error_register);
    (*line)["device_data"] = emergency.device_data;
  }
  void operator()(const PdoContent& pdo) const {
    (*line)["number"] = pdo.number;
    Json fields = Json::array();
    for (const DecodedField& field : pdo.fields) {
      Json object;
      add_object(object, field.object);
      object["bit_length"] = field.bit_length;
      add_reading(object, field.reading);
      fields.push_back(std::move(object));
    }
    (*line)["fields"] = std::move(fields);
    if (!pdo.also.empty()) {
      (*line)["also"] = pdo.also;
    }
  }
  void operator()(const SdoTrafficContent& content) const;
};

bool brings_bytes(SdoStep step) {
  return step == SdoStep::write || step == SdoStep::value || step == SdoStep::segment ||
         step == SdoStep::last_segment;
}

void ContentJson::operator()(const SdoTrafficContent& content) const {
  const SdoContent& sdo = content.sdo;
  (*line)["step"] = step_word(sdo.step);
  if (content.object) {
    add_object(*line, *content.object);
  }
  if (sdo.size) {
    (*line)["size"] = *sdo.size;
  }
  if (brings_bytes(sdo.step)) {
    (*line)["bytes"] = sdo.bytes;
  }
  if (sdo.step == SdoStep::last_segment && sdo.size) {
    (*line)["whole"] = sdo.whole;
  }
  if (content.reading) {
    add_reading(*line, *content.reading);
  }
  if (sdo.step == SdoStep::abort) {
    (*line)["abort_code"] = sdo.abort_code;
    (*line)["abort_text"] = sdo_abort_text(SdoAbort{sdo.abort_code});
  }
}

}  // namespace

std::string traffic_text(std::chrono::nanoseconds time, const DecodedFrame& decoded) {
  constexpr std::size_t column = 9;
  const std::string problem = decoded.problem ? " (" + *decoded.problem + ")" : "";
  std::string line = seconds_text(time) + "  " + padded(whose_text(decoded), column) + "  " +
                     padded(kind_text(decoded), column) + "  " +
                     std::visit(ContentText{&decoded}, decoded.content) + problem;
  line.erase(line.find_last_not_of(' ') + 1);
  return visible_text(line);
}

std::string traffic_json(std::chrono::nanoseconds time, const DecodedFrame& decoded) {
  Json line{{"t", std::chrono::duration<double>(time).count()},
            {"id", decoded.frame.id},
            {"data", frame_bytes(decoded.frame)},
            {"kind", words_of(decoded.kind).json}};
  const bool is_for_all = std::holds_alternative<NmtContent>(decoded.content);
  if (decoded.node_id != 0 || is_for_all) {
    line["node_id"] = decoded.node_id;
    line["in_board_file"] = decoded.is_node_known;
  }
  std::visit(ContentJson{&decoded, &line}, decoded.content);
  if (decoded.problem) {
    line["problem"] = *decoded.problem;
  }
  return json_text(line);
}

}  // namespace velmora_can_bridge
