/// A value, or why there is none.
#pragma once

#include <string>
#include <utility>
#include <variant>

#include "velmora_can_bridge/export.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

/// Marks a value as the reason why another one is missing.
template <typename Error>
struct Unexpected {
  Error error{};
};

template <typename Error>
Unexpected(Error) -> Unexpected<Error>;

/// Holds a `Value`, or the `Error` that tells why there is none.
///
/// `return value;` makes the former, `return Unexpected{error};` the latter. As a condition it is
/// true when there is a value. Where there is no value in any case, a `std::optional` of the error
/// stands for it.
template <typename Value, typename Error = std::string>
class Expected {
 public:
  // Both on purpose without `explicit`, so that functions return either.
  // NOLINTNEXTLINE(google-explicit-constructor,hicpp-explicit-conversions)
  Expected(Value value) : content_(std::in_place_index<0>, std::move(value)) {}
  template <typename Reason>
  // NOLINTNEXTLINE(google-explicit-constructor,hicpp-explicit-conversions)
  Expected(Unexpected<Reason> reason) : content_(std::in_place_index<1>, std::move(reason.error)) {}

  bool has_value() const { return content_.index() == 0; }
  explicit operator bool() const { return has_value(); }

  /// The value, which must be there: else `std::bad_variant_access`.
  const Value& operator*() const { return std::get<0>(content_); }
  Value& operator*() { return std::get<0>(content_); }
  const Value* operator->() const { return &**this; }
  Value* operator->() { return &**this; }

  /// Why there is no value, which must be missing: else `std::bad_variant_access`.
  const Error& error() const { return std::get<1>(content_); }

  /// Equal are equal values and equal errors, never one of each.
  friend bool operator==(const Expected& left, const Expected& right) {
    return left.content_ == right.content_;
  }
  friend bool operator!=(const Expected& left, const Expected& right) { return !(left == right); }

 private:
  std::variant<Value, Error> content_;
};

}  // namespace velmora_can_bridge
