#include "velmora_can_bridge/bridge/device_comparison.hpp"

#include <algorithm>
#include <optional>
#include <tuple>
#include <utility>

#include "ground/little_endian.hpp"
#include "ground/number_text.hpp"
#include "ground/pdo.hpp"
#include "velmora_can_bridge/bus/cob_id.hpp"
#include "velmora_can_bridge/bus/sdo_abort.hpp"

namespace velmora_can_bridge {
namespace {

using Mappings = std::vector<PdoMapping>;

constexpr std::uint32_t disabled_bit = 0x80000000;
constexpr std::uint32_t extended_mask = 0x1FFFFFFF;
constexpr std::uint32_t base_mask = 0x7FF;
// A frame has no more bits; higher counts mark multiplexed PDOs, which have no mapping to read.
constexpr std::uint32_t most_mappings = 64;
constexpr std::uint8_t scanned_numbers = 8;
// CiA 301, 7.5.2.35: higher types go without a SYNC.
constexpr std::uint32_t highest_synchronous_type = 240;

struct ReadFailure {
  BusError error;
  std::string reason;
};

template <typename Value>
using Read = Expected<Value, ReadFailure>;

/// Whether the next transfer has a chance.
bool goes_on(const ReadFailure& failure) { return failure.error.kind == BusErrorKind::refused; }

bool is_absent(const ReadFailure& failure) {
  if (!goes_on(failure)) {
    return false;
  }
  const SdoAbort abort{failure.error.abort_code};
  return abort == SdoAbort::no_such_object || abort == SdoAbort::no_such_sub_index;
}

/// Where the parameters of a PDO stand.
struct PdoRecords {
  std::uint16_t communication;
  std::uint16_t mapping;
};

PdoRecords records_of(PdoDirection direction, std::uint8_t number) {
  const bool rpdo = direction == PdoDirection::rpdo;
  const unsigned offset = number - 1U;
  return {static_cast<std::uint16_t>((rpdo ? 0x1400U : 0x1800U) + offset),
          static_cast<std::uint16_t>((rpdo ? 0x1600U : 0x1A00U) + offset)};
}

/// Reads numbers of one node.
class Reader {
 public:
  Reader(std::uint8_t node_id, const ObjectReader& read) : node_id_(node_id), read_(&read) {}

  /// An object of at least `size` bytes and 4 at most: a node that tells no size gives 4.
  Read<std::uint32_t> number(std::uint16_t index, std::uint8_t sub_index, std::size_t size) const {
    const auto data = (*read_)(index, sub_index);
    if (!data) {
      return Unexpected{
          ReadFailure{data.error(), object_text(index, sub_index) + ": " + data.error().text}};
    }
    if (data->size() < size || data->size() > sizeof(std::uint32_t)) {
      return Unexpected{wrong_size(index, sub_index, data->size(), size)};
    }
    return static_cast<std::uint32_t>(little_endian_number(data->begin(), size));
  }

  /// The mapping that the node has, its fields without names.
  Read<Mappings> mappings(std::uint16_t record, std::uint32_t count) const {
    Mappings mappings;
    for (std::uint32_t position = 1; position <= count; ++position) {
      const auto entry = number(record, static_cast<std::uint8_t>(position), 4);
      if (!entry) {
        return Unexpected{entry.error()};
      }
      mappings.push_back({static_cast<std::uint16_t>(*entry >> 16U),
                          static_cast<std::uint8_t>(*entry >> 8U & 0xFFU),
                          static_cast<std::uint8_t>(*entry & 0xFFU),
                          {}});
    }
    return mappings;
  }

 private:
  ReadFailure wrong_size(std::uint16_t index, std::uint8_t sub_index, std::size_t size,
                         std::size_t expected) const {
    // As good as a refusal: the node works, this object is not what it should be.
    BusError error;
    error.node_id = node_id_;
    error.index = index;
    error.sub_index = sub_index;
    error.text = "the object has " + std::to_string(size) + " bytes, expected were " +
                 std::to_string(expected);
    return {error, object_text(index, sub_index) + ": " + error.text};
  }

  const std::uint8_t node_id_;
  const ObjectReader* const read_;
};

/// The COB-ID without the bits beside it, but for the one that marks 29 bits.
std::uint32_t identifier_of(std::uint32_t cob_id) {
  const bool is_extended = (cob_id & extended_bit) != 0;
  return cob_id & (is_extended ? extended_bit | extended_mask : base_mask);
}

std::string length_text(const PdoMapping& mapping) {
  return std::to_string(mapping.bit_length) + (mapping.bit_length == 1 ? " bit" : " bits");
}

std::string mapped_text(const PdoMapping& mapping) {
  return object_text(mapping.index, mapping.sub_index);
}

std::string mappings_text(const Mappings& mappings) {
  std::string text;
  for (const PdoMapping& mapping : mappings) {
    text += (text.empty() ? "" : ", ") + mapped_text(mapping);
  }
  return text;
}

auto key(const PdoMapping& mapping) {
  return std::make_tuple(mapping.index, mapping.sub_index, mapping.bit_length);
}

bool is_same(const PdoMapping& one, const PdoMapping& other) { return key(one) == key(other); }

bool is_same_order(const Mappings& one, const Mappings& other) {
  return std::equal(one.begin(), one.end(), other.begin(), other.end(), is_same);
}

bool has_same_objects(const Mappings& one, const Mappings& other) {
  return std::is_permutation(one.begin(), one.end(), other.begin(), other.end(), is_same);
}

/// Compares one PDO and appends what differs.
class PdoComparison {
 public:
  PdoComparison(std::string pdo, std::vector<Difference>& differences)
      : pdo_(std::move(pdo)), differences_(&differences) {}

  void add(const std::string& what, const std::string& file, const std::string& device) {
    differences_->push_back({pdo_, what, file, device});
  }

  void cob_ids(std::uint16_t file, std::uint32_t device) {
    const bool is_disabled = (device & disabled_bit) != 0;
    const std::uint32_t id = identifier_of(device);
    const bool has_none = is_disabled && id == 0;
    if (file == 0 && is_disabled) {
      return;
    }
    if (is_disabled) {
      add("enabled", "yes", "no");
    }
    if (id != file && !has_none) {
      add("COB-ID", cob_id_text(file), cob_id_text(id));
    }
  }

  /// The device may have none.
  void transmissions(std::uint8_t file, std::optional<std::uint32_t> device) {
    if (device != file) {
      add("transmission", std::to_string(file), device ? std::to_string(*device) : "none");
    }
  }

  void counts(std::size_t file, std::size_t device) {
    if (file != device) {
      add("number of objects", std::to_string(file), std::to_string(device));
    }
  }

  void mappings(const Mappings& file, const Mappings& device) {
    if (is_same_order(file, device)) {
      return;
    }
    if (has_same_objects(file, device)) {
      add("order", mappings_text(file), mappings_text(device));
      return;
    }
    for (std::size_t index = 0; index < std::max(file.size(), device.size()); ++index) {
      position("position " + std::to_string(index + 1),
               index < file.size() ? &file[index] : nullptr,
               index < device.size() ? &device[index] : nullptr);
    }
  }

 private:
  /// Null: nothing stands there.
  void position(const std::string& name, const PdoMapping* file, const PdoMapping* device) {
    if (file == nullptr || device == nullptr) {
      const auto text = [](const PdoMapping* mapping) {
        return mapping == nullptr ? "nothing"
                                  : mapped_text(*mapping) + ", " + length_text(*mapping);
      };
      add(name, text(file), text(device));
      return;
    }
    if (file->index != device->index || file->sub_index != device->sub_index) {
      add(name + ": object", mapped_text(*file), mapped_text(*device));
    }
    if (file->bit_length != device->bit_length) {
      add(name + ": length", length_text(*file), length_text(*device));
    }
  }

  const std::string pdo_;
  std::vector<Difference>* const differences_;
};

/// Compares one node.
class NodeComparison {
 public:
  NodeComparison(const NodeConfig& node, const Reader& reader) : node_(&node), reader_(&reader) {}

  DeviceComparison run() {
    if (compare_all() && find_sync()) {
      search_all();
    }
    return std::move(result_);
  }

 private:
  using Failure = std::optional<ReadFailure>;

  void add_gap(const std::string& what, const ReadFailure& failure) {
    result_.gaps.push_back({what, failure.error, failure.reason});
  }

  /// False when the node cannot be asked any more.
  bool compare_all() {
    return std::all_of(node_->board.pdos.begin(), node_->board.pdos.end(),
                       [this](const PdoConfig& pdo) { return compare_or_note_gap(pdo); });
  }

  /// As `compare_all`, for one PDO.
  bool compare_or_note_gap(const PdoConfig& pdo) {
    const Failure failure = compare(pdo);
    if (!failure) {
      return true;
    }
    const bool ends = !goes_on(*failure);
    add_gap(pdo_text(pdo) + (ends ? " and all that follows" : ""), *failure);
    return !ends;
  }

  void search_all() {
    Failure failure = search(PdoDirection::rpdo);
    failure = failure ? failure : search(PdoDirection::tpdo);
    if (failure) {
      add_gap("PDOs that the board file does not hold", *failure);
    }
  }

  /// A failure other than that the device does not have the PDO, which is a difference.
  Failure compare(const PdoConfig& pdo) {
    const PdoRecords records = records_of(direction_of(pdo), pdo.number);
    PdoComparison comparison(pdo_text(pdo), result_.differences);
    const auto cob_id = reader_->number(records.communication, 1, 4);
    if (!cob_id) {
      return absent_or(cob_id.error(), comparison);
    }
    comparison.cob_ids(cob_id_of(node_->node_id, pdo), *cob_id);
    const bool is_enabled = (*cob_id & disabled_bit) == 0;
    if (pdo.transmission || (is_rpdo(pdo) && is_enabled)) {
      if (Failure failure =
              compare_transmission(pdo, records.communication, is_enabled, comparison)) {
        return failure;
      }
    }
    return compare_mapping(pdo, records.mapping, comparison);
  }

  Failure compare_transmission(const PdoConfig& pdo, std::uint16_t record, bool is_enabled,
                               PdoComparison& comparison) {
    const std::string name = pdo_text(pdo);
    const auto type = reader_->number(record, 2, 1);
    if (!type) {
      return miss_transmission(name, pdo, type.error(), comparison);
    }
    if (pdo.transmission) {
      comparison.transmissions(*pdo.transmission, *type);
    }
    if (is_rpdo(pdo) && is_enabled && *type <= highest_synchronous_type) {
      result_.synchronous_rpdos.push_back(name);
    }
    return {};
  }

  /// The failure, where it is one: the file may have nothing to compare.
  Failure miss_transmission(const std::string& name, const PdoConfig& pdo,
                            const ReadFailure& failure, PdoComparison& comparison) {
    if (!goes_on(failure)) {
      return failure;
    }
    if (!pdo.transmission) {
      result_.notes.push_back("it is not known whether " + name +
                              " waits for a SYNC: " + failure.reason);
      return {};
    }
    if (!is_absent(failure)) {
      return failure;
    }
    comparison.transmissions(*pdo.transmission, std::nullopt);
    return {};
  }

  /// Where synchronous RPDOs find their SYNC. False when the node cannot be asked any more.
  bool find_sync() {
    if (result_.synchronous_rpdos.empty()) {
      return true;
    }
    const auto cob_id = reader_->number(0x1005, 0, 4);
    if (cob_id) {
      result_.sync_cob_id = identifier_of(*cob_id);
      return true;
    }
    if (is_absent(cob_id.error())) {
      result_.sync_cob_id = sync_cob_id;
      return true;
    }
    const bool ends = !goes_on(cob_id.error());
    add_gap(ends ? "SYNC and all that follows" : "SYNC", cob_id.error());
    return !ends;
  }

  Failure compare_mapping(const PdoConfig& pdo, std::uint16_t record, PdoComparison& comparison) {
    const auto count = reader_->number(record, 0, 1);
    if (!count) {
      return count.error();
    }
    comparison.counts(pdo.mappings.size(), *count);
    if (*count > most_mappings) {
      return {};
    }
    const auto mappings = reader_->mappings(record, *count);
    if (!mappings) {
      return mappings.error();
    }
    comparison.mappings(pdo.mappings, *mappings);
    return {};
  }

  static Failure absent_or(const ReadFailure& failure, PdoComparison& comparison) {
    if (!is_absent(failure)) {
      return failure;
    }
    comparison.add("PDO", "there", "not on the device");
    return {};
  }

  /// Notes the PDOs of one direction that only the device has.
  Failure search(PdoDirection direction) {
    for (unsigned next = 1; next <= highest_searched(); ++next) {
      const auto number = static_cast<std::uint8_t>(next);
      if (find_pdo(node_->board, direction, number) != nullptr) {
        continue;
      }
      const auto cob_id = reader_->number(records_of(direction, number).communication, 1, 4);
      if (cob_id) {
        note_if_enabled(pdo_text(direction, number), *cob_id);
      } else if (!goes_on(cob_id.error())) {
        return cob_id.error();
      }
    }
    return {};
  }

  void note_if_enabled(const std::string& pdo, std::uint32_t cob_id) {
    if ((cob_id & disabled_bit) == 0) {
      result_.notes.push_back(pdo + " is enabled on the device (COB-ID " + cob_id_text(cob_id) +
                              "), the board file does not hold it");
    }
  }

  unsigned highest_searched() const {
    unsigned highest = scanned_numbers;
    for (const PdoConfig& pdo : node_->board.pdos) {
      highest = std::max<unsigned>(highest, pdo.number);
    }
    return highest;
  }

  const NodeConfig* const node_;
  const Reader* const reader_;
  DeviceComparison result_;
};

}  // namespace

std::string cob_id_text(std::uint32_t cob_id) {
  if ((cob_id & extended_bit) != 0) {
    return hex<8>(cob_id & extended_mask) + " (29 bits)";
  }
  const std::uint32_t base = cob_id & base_mask;
  return base == 0 ? "none" : hex<4>(static_cast<std::uint16_t>(base));
}

DeviceComparison compare_with_device(const NodeConfig& node, const ObjectReader& read) {
  const Reader reader(node.node_id, read);
  return NodeComparison(node, reader).run();
}

}  // namespace velmora_can_bridge
