#include "velmora_can_bridge/simulator/object_dictionary.hpp"

#include <utility>

namespace velmora_can_bridge {
namespace {

/// Why the object does not take `length` bytes; no value when it does.
std::optional<SdoAbort> length_mismatch(const ObjectEntry& entry, std::size_t length) {
  const std::size_t most = entry.variable_length ? entry.maximum_length : entry.value.size();
  const std::size_t least = entry.variable_length ? 0 : entry.value.size();
  if (length > most) {
    return SdoAbort::value_too_long;
  }
  if (length < least) {
    return SdoAbort::value_too_short;
  }
  return std::nullopt;
}

}  // namespace

void ObjectDictionary::add(std::uint16_t index, std::uint8_t sub_index, ObjectEntry entry) {
  objects_[index][sub_index] = std::move(entry);
}

UploadResult ObjectDictionary::upload(std::uint16_t index, std::uint8_t sub_index) const {
  std::vector<std::uint8_t> data;
  if (const std::optional<SdoAbort> abort = upload(index, sub_index, data)) {
    return *abort;
  }
  return data;
}

std::optional<SdoAbort> ObjectDictionary::upload(std::uint16_t index, std::uint8_t sub_index,
                                                 std::vector<std::uint8_t>& data) const {
  const ObjectEntry* entry = find(index, sub_index);
  if (entry == nullptr) {
    return objects_.count(index) == 0 ? SdoAbort::no_such_object : SdoAbort::no_such_sub_index;
  }
  if (entry->access == ObjectAccess::write_only) {
    return SdoAbort::read_of_write_only;
  }
  data = entry->value;
  return std::nullopt;
}

std::optional<SdoAbort> ObjectDictionary::download(std::uint16_t index, std::uint8_t sub_index,
                                                   const std::vector<std::uint8_t>& data) {
  const ObjectEntry* entry = find(index, sub_index);
  if (entry == nullptr) {
    return objects_.count(index) == 0 ? SdoAbort::no_such_object : SdoAbort::no_such_sub_index;
  }
  if (entry->access == ObjectAccess::read_only) {
    return SdoAbort::write_of_read_only;
  }
  const std::optional<SdoAbort> mismatch = length_mismatch(*entry, data.size());
  if (!mismatch) {
    store(index, sub_index, data);
  }
  return mismatch;
}

bool ObjectDictionary::store(std::uint16_t index, std::uint8_t sub_index,
                             const std::vector<std::uint8_t>& value) {
  const ObjectEntry* entry = find(index, sub_index);
  if (entry == nullptr || length_mismatch(*entry, value.size())) {
    return false;
  }
  objects_[index][sub_index].value = value;
  return true;
}

const ObjectEntry* ObjectDictionary::find(std::uint16_t index, std::uint8_t sub_index) const {
  const auto record = objects_.find(index);
  if (record == objects_.end()) {
    return nullptr;
  }
  const auto found = record->second.find(sub_index);
  return found == record->second.end() ? nullptr : &found->second;
}

std::vector<ObjectAddress> ObjectDictionary::addresses() const {
  std::vector<ObjectAddress> all;
  for (const auto& [index, record] : objects_) {
    for (const auto& row : record) {
      all.push_back({index, row.first});
    }
  }
  return all;
}

}  // namespace velmora_can_bridge
