// Objects that hold a number, little-endian.
#pragma once

#include <cstddef>
#include <cstdint>

#include "ground/little_endian.hpp"
#include "velmora_can_bridge/simulator/object_dictionary.hpp"

namespace velmora_can_bridge {

inline void add_number(ObjectDictionary& objects, ObjectAddress at, std::uint32_t value,
                       std::size_t size, ObjectAccess access) {
  objects.add(at.index, at.sub_index, {access, little_endian_bytes(value, size)});
}

/// 0 where there is no such object.
inline std::uint32_t number_at(const ObjectDictionary& objects, ObjectAddress at) {
  const ObjectEntry* const entry = objects.find(at.index, at.sub_index);
  return entry == nullptr ? 0 : static_cast<std::uint32_t>(little_endian_number(entry->value));
}

/// Whatever the access and the size; nothing happens where there is no such object.
inline void store_number(ObjectDictionary& objects, ObjectAddress at, std::uint32_t value) {
  const ObjectEntry* const entry = objects.find(at.index, at.sub_index);
  if (entry != nullptr) {
    objects.store(at.index, at.sub_index, little_endian_bytes(value, entry->value.size()));
  }
}

}  // namespace velmora_can_bridge
