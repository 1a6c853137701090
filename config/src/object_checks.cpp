#include "object_checks.hpp"

#include <cstddef>
#include <optional>
#include <string>

#include "ground/number_text.hpp"
#include "member_readers.hpp"
#include "object_facts.hpp"
#include "record_access.hpp"
#include "value_checks.hpp"
#include "value_readers.hpp"

namespace velmora_can_bridge {
namespace {

/// What its type would tell, where neither the file nor a profile tells it.
void check_untyped(const NodeFacts& facts, const YamlValue& source, ValueAddress address,
                   ProblemList& problems) {
  const auto described = facts.node.values.find(address);
  if (described == facts.node.values.end() || source.find("type") != nullptr) {
    return;
  }
  const auto profile = profile_object(facts, address.index, address.sub_index);
  if (const auto type = profile ? profile_type(*profile) : std::nullopt) {
    check_counts(source, described->second, *type, problems);
  } else if (!profile && !may_be_mapped(facts, address)) {
    problems.warning(source.at, "type is missing: nothing tells how many bytes " +
                                    object_text(address.index, address.sub_index) + " has");
  }
}

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
  check_described_type(facts, source, address, problems);
  check_untyped(facts, source, address, problems);
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
