#include "image_model.hpp"

#include <algorithm>

namespace velmora_can_bridge {
namespace {

using Kind = BusCall::Kind;

bool is_one_of(const std::string& text, const std::set<std::string>& texts) {
  return texts.count(text) != 0;
}

/// The failures that come when the image was loaded, perhaps without a read, and nothing was sent:
/// fields before the one that failed are changed in it.
bool tells_of_a_partial_write(const std::string& message) {
  return message.rfind("payload too short for field ", 0) == 0 ||
         message.rfind("RPDO field not found: ", 0) == 0 ||
         message.rfind("RPDO mapping not found for ", 0) == 0;
}

std::size_t count_leading_reads(const std::vector<BusCall>& calls) {
  const auto other = std::find_if(calls.begin(), calls.end(),
                                  [](const BusCall& call) { return call.kind != Kind::read; });
  return static_cast<std::size_t>(other - calls.begin());
}

/// The payload as far as the type reaches.
std::vector<std::uint8_t> cut_to_type(const std::string& type, std::vector<std::uint8_t> payload) {
  const std::size_t most = is_one_of(type, {"u8", "s8"})     ? 1
                           : is_one_of(type, {"u16", "s16"}) ? 2
                           : is_one_of(type, {"u32", "s32"}) ? 4
                                                             : payload.size();
  payload.resize(std::min(payload.size(), most));
  return payload;
}

/// Which writes of a drive's sequence are repeated in the images, counted from 0.
std::set<std::size_t> mirrored_writes(const OperationConfig& op) {
  if (op.kind == "ci402_disable" || op.kind == "ci402_set_mode") {
    return {0};
  }
  if (op.kind == "ci402_enable") {
    return {2};
  }
  const bool moves_claw =
      op.kind == "claw_action" && (op.action == "extend" || op.action == "home");
  return moves_claw ? std::set<std::size_t>{0, 2} : std::set<std::size_t>{};
}

std::uint16_t wrapped_sum(unsigned left, unsigned right) {
  return static_cast<std::uint16_t>((left + right) & 0xFFFFU);
}

/// The bytes of `data` that fall into a field which begins at `begin` and has `width` bytes.
template <typename Change>
void store(std::size_t begin, std::size_t width, const std::vector<std::uint8_t>& data,
           std::vector<Change>& changes) {
  const std::size_t end = std::min<std::size_t>(begin + std::min(width, data.size()), 8);
  for (std::size_t position = begin; position < end; ++position) {
    changes.push_back({position, 0xFF, data[position - begin]});
  }
}

}  // namespace

ImageModel::ImageModel(const BoardConfig& board) : board_(&board) {
  std::set<std::uint8_t> seen;
  for (const PdoConfig& pdo : board.pdos) {
    if (pdo.direction != "RPDO") {
      continue;
    }
    const bool is_first = seen.insert(pdo.number).second;
    std::size_t begin = 0;
    for (const PdoMapping& mapping : pdo.mappings) {
      fields_.push_back({&mapping, pdo.number, is_first, begin});
      begin += fields_.back().width();
    }
  }
}

void ImageModel::forget() {
  for (auto& [rpdo, image] : images_) {
    image.loaded = false;
    image.frame.fill(0);
    image.mirrored.clear();
  }
}

void ImageModel::follow(const OperationConfig& op, const std::string& device, const Bytes& payload,
                        std::uint8_t mode, const std::string& message, const Calls& calls) {
  const Plan planned = plan(op, device, payload, mode);
  if (planned.rpdo) {
    follow_plan(planned, message, calls);
    return;
  }
  for (const BusCall& call : calls) {
    promise(call.kind != Kind::send, "only a write through an image sends");
  }
  follow_mirrors(op, calls);
}

std::vector<std::uint8_t> ImageModel::loaded() const {
  std::vector<std::uint8_t> rpdos;
  for (const auto& [rpdo, image] : images_) {
    if (image.loaded) {
      rpdos.push_back(rpdo);
    }
  }
  return rpdos;
}

// --- looking up ---

template <typename Wanted>
const ImageModel::Field* ImageModel::first(const Wanted& wanted) const {
  const auto found = std::find_if(fields_.begin(), fields_.end(), wanted);
  return found == fields_.end() ? nullptr : &*found;
}

const ImageModel::Field* ImageModel::by_name(std::uint8_t rpdo, const std::string& name) const {
  return first([&](const Field& field) {
    return field.rpdo == rpdo && field.in_first_entry && field.mapping->field == name;
  });
}

const ImageModel::Field* ImageModel::by_object(std::uint8_t rpdo, std::uint16_t index,
                                               std::uint8_t sub_index) const {
  return first([&](const Field& field) {
    return field.rpdo == rpdo && field.mapping->index == index &&
           field.mapping->sub_index == sub_index;
  });
}

std::uint8_t ImageModel::rpdo_of(std::uint16_t index) const {
  const Field* const field =
      first([&](const Field& each) { return each.rpdo != 0 && each.mapping->index == index; });
  return field == nullptr ? std::uint8_t{0} : field->rpdo;
}

std::uint8_t ImageModel::resolved(const OperationConfig& op) const {
  return op.pdo_number != 0 ? op.pdo_number : rpdo_of(op.index);
}

// --- planning: what an operation changes if it gets so far ---

ImageModel::Plan ImageModel::plan(const OperationConfig& op, const std::string& device,
                                  const Bytes& payload, std::uint8_t mode) const {
  if (op.kind == "pdo_bit_patch") {
    return plan_bit(op, payload);
  }
  if (op.transport == "sdo") {
    return {};
  }
  if (is_one_of(op.kind, {"pdo_write", "pdo_patch", "led_write"})) {
    return plan_fields(op, payload);
  }
  if (op.kind == "auto_write") {
    return plan_fields(op, cut_to_type(op.data_type, payload));
  }
  if (op.kind == "bit_patch") {
    return plan_mask(op, payload);
  }
  if (op.kind == "od_io_write") {
    return plan_io(op, device, payload);
  }
  if (op.kind == "pump_duty") {
    return plan_pump(op, payload);
  }
  return op.kind == "ci402_set_target" ? plan_target(op, device, payload, mode) : Plan{};
}

ImageModel::Plan ImageModel::plan_fields(const OperationConfig& op, const Bytes& payload) const {
  const std::uint8_t rpdo = resolved(op);
  if (rpdo == 0) {
    return {};
  }
  const bool patches_led =
      op.kind == "led_write" && is_one_of(op.led_operation, {"set_color", "set_mode"});
  return {rpdo, changes_of_fields(op, rpdo, payload), op.refresh_shadow != 0 || patches_led};
}

std::vector<ImageModel::Change> ImageModel::changes_of_fields(const OperationConfig& op,
                                                              std::uint8_t rpdo,
                                                              const Bytes& payload) const {
  std::vector<Change> changes;
  if (op.fields.empty()) {
    const Field* const field =
        op.field.empty() ? by_object(rpdo, op.index, op.sub_index) : by_name(rpdo, op.field);
    if (field != nullptr) {
      store(field->begin, field->width(), payload, changes);
    }
    return changes;
  }
  Bytes rest = payload;
  for (const std::string& name : op.fields) {
    const Field* const field = by_name(rpdo, name);
    if (field == nullptr || field->width() > rest.size()) {
      break;
    }
    store(field->begin, field->width(), rest, changes);
    rest.erase(rest.begin(), rest.begin() + static_cast<std::ptrdiff_t>(field->width()));
  }
  return changes;
}

ImageModel::Plan ImageModel::plan_mask(const OperationConfig& op, const Bytes& payload) const {
  const std::uint8_t rpdo = resolved(op);
  const Field* const field = by_name(rpdo, op.fields.empty() ? op.field : op.fields.front());
  if (field == nullptr || payload.size() < 2) {
    return {};
  }
  return {rpdo, {{field->begin, payload[0], payload[1]}}, false};
}

ImageModel::Plan ImageModel::plan_bit(const OperationConfig& op, const Bytes& payload) const {
  const bool named = op.named != 0;
  if (payload.size() < (named ? 1U : 3U)) {
    return {};
  }
  const std::size_t number = named ? 1 : payload[0];
  const unsigned bit = named ? op.bit_index : payload[1];
  const bool set = payload[named ? 0 : 2] != 0;
  if (number == 0 || number > op.fields.size() || bit > 7) {
    return {};
  }
  const std::uint8_t rpdo = resolved(op);
  const Field* const field = by_name(rpdo, op.fields[number - 1]);
  if (field == nullptr) {
    return {};
  }
  const auto mask = static_cast<std::uint8_t>(1U << bit);
  const auto value = static_cast<std::uint8_t>(set ? 0xFF : 0);
  return {rpdo, {{field->begin, mask, value}}, op.refresh_shadow != 0};
}

ImageModel::Plan ImageModel::plan_io(const OperationConfig& /*op*/, const std::string& device,
                                     const Bytes& payload) const {
  const auto entry = board_->device_od_map.find(device);
  if (entry == board_->device_od_map.end() || payload.size() < 3) {
    return {};
  }
  const std::uint16_t index = wrapped_sum(entry->second.base_index, payload[0] + 256U * payload[1]);
  const Field* const field = first([&](const Field& each) {
    return each.mapping->index == index && each.mapping->sub_index == payload[2];
  });
  if (field == nullptr) {
    return {};
  }
  Plan plan{field->rpdo, {}, false};
  store(field->begin, field->width(), Bytes(payload.begin() + 3, payload.end()), plan.changes);
  return plan;
}

ImageModel::Plan ImageModel::plan_pump(const OperationConfig& op, const Bytes& payload) const {
  if (payload.size() < 3 ||
      std::count(op.rpdo_channels.begin(), op.rpdo_channels.end(), payload[0]) == 0) {
    return {};
  }
  const Field* const field = first([&](const Field& each) {
    return each.rpdo == op.pump_pdo_number && each.in_first_entry &&
           each.mapping->index == op.index && each.mapping->sub_index == payload[0];
  });
  if (field == nullptr) {
    return {};
  }
  Plan plan{field->rpdo, {}, false};
  store(field->begin, field->width(), {payload[1], payload[2]}, plan.changes);
  return plan;
}

ImageModel::Plan ImageModel::plan_target(const OperationConfig& /*op*/, const std::string& device,
                                         const Bytes& payload, std::uint8_t mode) const {
  const auto entry = board_->device_od_map.find(device);
  if (entry == board_->device_od_map.end() || payload.size() < 2) {
    return {};
  }
  const unsigned distance = mode == 1 ? 0x3A : mode == 4 ? 0x31 : 0xBF;
  const std::uint16_t index = wrapped_sum(entry->second.base_index, distance);
  const std::uint8_t rpdo = rpdo_of(index);
  if (rpdo == 0) {
    return {};
  }
  Plan plan{rpdo, {}, false};
  if (const Field* const field = by_object(rpdo, index, 0)) {
    const std::uint8_t sign = payload[1] < 0x80 ? 0 : 0xFF;
    Bytes target{payload[0], payload[1], sign, sign};
    target.resize(mode == 4 ? 2 : 4);
    store(field->begin, field->width(), target, plan.changes);
  }
  return plan;
}

// --- following ---

void ImageModel::follow_plan(const Plan& plan, const std::string& message, const Calls& calls) {
  const std::uint8_t rpdo = *plan.rpdo;
  if (calls.empty() && !tells_of_a_partial_write(message)) {
    return;
  }
  Image& image = images_[rpdo];
  const std::size_t reads = count_leading_reads(calls);
  if (plan.refresh || !image.loaded) {
    if (!load(rpdo, calls, plan.refresh)) {
      promise(calls.size() == reads, "nothing follows a load that failed");
      return;
    }
  } else {
    promise(reads == 0, "a loaded image is not loaded again");
  }
  promise(calls.size() <= reads + 1, "one delivery follows the load");
  if (calls.size() == reads) {
    if (tells_of_a_partial_write(message)) {
      apply(rpdo, plan.changes);
    }
    return;
  }
  apply(rpdo, plan.changes);
  const BusCall& delivery = calls.back();
  if (delivery.kind == Kind::write) {
    promise(plan.changes.size() == 1, "an operation on a bit changes one byte");
    const std::size_t position = plan.changes.front().position;
    promise(delivery.data == Bytes{image.frame.at(position)}, "a changed byte goes by SDO");
    return;
  }
  promise(delivery.rpdo == rpdo, "the RPDO that was written is sent");
  promise(delivery.length == image.length, "a frame has the length of the mappings");
  promise(delivery.frame == image.frame, "a frame keeps what the operation does not write");
}

bool ImageModel::load(std::uint8_t rpdo, const Calls& calls, bool best_effort) {
  Image& image = images_[rpdo];
  auto frame = image.frame;
  std::size_t next = 0;
  for (const Field& field : fields_) {
    if (field.rpdo != rpdo || field.begin >= frame.size() || field.width() == 0) {
      continue;
    }
    std::vector<Change> changes;
    Bytes bytes;
    if (field.mapping->index == 0 || field.mapping->index > 7) {
      promise(next < calls.size() && calls[next].kind == Kind::read &&
                  calls[next].index == field.mapping->index &&
                  calls[next].sub_index == field.mapping->sub_index,
              "a load reads every mapped object in order");
      const BusCall& call = calls[next++];
      if (call.answer == BusAnswer::thrown || (call.answer == BusAnswer::refused && !best_effort)) {
        return false;
      }
      if (call.answer == BusAnswer::refused) {
        continue;
      }
      bytes = call.data;
    }
    bytes.resize(std::max(bytes.size(), field.width()));  // with zeros
    store(field.begin, field.width(), bytes, changes);
    for (const Change& change : changes) {
      frame.at(change.position) = change.value;
    }
  }
  promise(next == count_leading_reads(calls), "a load reads nothing else");
  for (const std::size_t position : image.mirrored) {
    frame.at(position) = best_effort ? frame.at(position) : image.frame.at(position);
  }
  image.frame = frame;
  image.length = length_of(rpdo);
  image.loaded = true;
  return true;
}

std::uint8_t ImageModel::length_of(std::uint8_t rpdo) const {
  unsigned most_bits = 0;
  for (const PdoConfig& pdo : board_->pdos) {
    unsigned bits = 0;
    for (const PdoMapping& mapping : pdo.mappings) {
      bits += mapping.bit_length;
    }
    if (pdo.direction == "RPDO" && pdo.number == rpdo) {
      most_bits = std::max(most_bits, bits);
    }
  }
  return static_cast<std::uint8_t>(std::min((most_bits + 7) / 8, 8U));
}

void ImageModel::apply(std::uint8_t rpdo, const std::vector<Change>& changes) {
  for (const Change& change : changes) {
    std::uint8_t& byte = images_[rpdo].frame.at(change.position);
    byte = static_cast<std::uint8_t>((byte & ~change.mask) | (change.value & change.mask));
  }
}

void ImageModel::follow_mirrors(const OperationConfig& op, const Calls& calls) {
  for (const std::size_t number : mirrored_writes(op)) {
    if (number >= calls.size() || calls[number].answer != BusAnswer::accepted) {
      continue;
    }
    for (const Field& field : fields_) {
      if (field.mapping->index == calls[number].index && field.mapping->sub_index == 0) {
        std::vector<Change> changes;
        store(field.begin, field.width(), calls[number].data, changes);
        apply(field.rpdo, changes);
        for (const Change& change : changes) {
          images_[field.rpdo].mirrored.insert(change.position);
        }
      }
    }
  }
}

}  // namespace velmora_can_bridge
