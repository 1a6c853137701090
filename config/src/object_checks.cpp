#include "object_checks.hpp"

#include <cstddef>
#include <optional>
#include <string>

#include "ground/number_text.hpp"
#include "member_readers.hpp"
#include "object_facts.hpp"
#include "record_access.hpp"
#include "value_readers.hpp"

namespace velmora_can_bridge {
namespace {

void check_object(const NodeFacts& facts, const YamlValue& source, ValueAddress address,
                  ProblemList& problems) {
  check_index_digits(facts, source, address.index, problems);
  if (const auto lone = lone_object(facts, address.index, address.sub_index)) {
    problems.error(member_or_record(source, "sub_index").at, "sub_index: " + hex<4>(address.index) +
                                                                 " is " + lone->name +
                                                                 ", which has sub-index 0 alone");
    return;
  }
  const YamlValue* const type = source.find("type");
  const auto described = type == nullptr ? std::nullopt : find_value_type(type->text);
  const auto carried = carried_length(facts, address.index, address.sub_index);
  if (described && carried && length_of(*described) != carried->length) {
    problems.error(type->at, "type: " + std::string(value_type_text(*described)) + ", but " +
                                 object_text(address.index, address.sub_index) + " " +
                                 carried->reason + ", write a type of " +
                                 counted(carried->length, "byte"));
  }
}

}  // namespace

void check_objects(const NodeFacts& facts, ProblemList& problems) {
  for (const YamlValue* object : elements_at(facts.source, "objects")) {
    if (const std::optional<ValueAddress> address = readable_address(*object)) {
      check_object(facts, *object, *address, problems);
    }
  }
}

}  // namespace velmora_can_bridge
