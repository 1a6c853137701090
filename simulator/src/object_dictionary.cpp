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

/// The entry, const where the objects are; null when there is none.
template <typename Objects>
auto* find_in(Objects& objects, std::uint16_t index, std::uint8_t sub_index) {
  using Entry = decltype(&objects.begin()->second.begin()->second);
  const auto record = objects.find(index);
  if (record == objects.end()) {
    return Entry{nullptr};
  }
  const auto found = record->second.find(sub_index);
  return found == record->second.end() ? nullptr : &found->second;
}

}  // namespace

void ObjectDictionary::add(std::uint16_t index, std::uint8_t sub_index, ObjectEntry entry) {
  objects_[index][sub_index] = std::move(entry);
}

UploadResult ObjectDictionary::upload(std::uint16_t index, std::uint8_t sub_index) const {
  std::vector<std::uint8_t> data;
  if (const std::optional<SdoAbort> abort = upload(index, sub_index, data)) {
    return Unexpected{*abort};
  }
  return data;
}

std::optional<SdoAbort> ObjectDictionary::upload(std::uint16_t index, std::uint8_t sub_index,
                                                 std::vector<std::uint8_t>& data) const {
  const ObjectEntry* entry = find(index, sub_index);
  if (entry == nullptr) {
    return absence(index);
  }
  if (entry->access == ObjectAccess::write_only) {
    return SdoAbort::read_of_write_only;
  }
  data = entry->value;
  return std::nullopt;
}

std::optional<SdoAbort> ObjectDictionary::download(std::uint16_t index, std::uint8_t sub_index,
                                                   const std::vector<std::uint8_t>& data) {
  const std::optional<SdoAbort> refusal = download_refusal(index, sub_index, data.size());
  if (!refusal && !is_held({index, sub_index})) {
    find_in(objects_, index, sub_index)->value = data;
  }
  return refusal;
}

std::optional<SdoAbort> ObjectDictionary::download_refusal(std::uint16_t index,
                                                           std::uint8_t sub_index,
                                                           std::size_t size) const {
  const ObjectEntry* const entry = find(index, sub_index);
  if (entry == nullptr) {
    return absence(index);
  }
  if (entry->access == ObjectAccess::read_only) {
    return SdoAbort::write_of_read_only;
  }
  return length_mismatch(*entry, size);
}

bool ObjectDictionary::store(std::uint16_t index, std::uint8_t sub_index,
                             const std::vector<std::uint8_t>& value) {
  ObjectEntry* const entry = find_in(objects_, index, sub_index);
  if (entry == nullptr || length_mismatch(*entry, value.size())) {
    return false;
  }
  if (!is_held({index, sub_index})) {
    entry->value = value;
  }
  return true;
}

void ObjectDictionary::hold(ObjectAddress at) {
  if (find(at.index, at.sub_index) != nullptr) {
    held_.insert({at.index, at.sub_index});
  }
}

void ObjectDictionary::release(ObjectAddress at) { held_.erase({at.index, at.sub_index}); }

bool ObjectDictionary::is_held(ObjectAddress at) const {
  return !held_.empty() && held_.count({at.index, at.sub_index}) != 0;
}

const ObjectEntry* ObjectDictionary::find(std::uint16_t index, std::uint8_t sub_index) const {
  return find_in(objects_, index, sub_index);
}

SdoAbort ObjectDictionary::absence(std::uint16_t index) const {
  return objects_.count(index) == 0 ? SdoAbort::no_such_object : SdoAbort::no_such_sub_index;
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
