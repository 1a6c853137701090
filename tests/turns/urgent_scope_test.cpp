#include "velmora_can_bridge/urgent_scope.hpp"

#include <gtest/gtest.h>

#include <future>

namespace velmora_can_bridge {
namespace {

TEST(UrgentScope, is_active_while_it_lives) {
  EXPECT_FALSE(UrgentScope::is_active());
  {
    const UrgentScope scope;
    EXPECT_TRUE(UrgentScope::is_active());
  }
  EXPECT_FALSE(UrgentScope::is_active());
}

TEST(UrgentScope, nested_ends_with_the_outer_one) {
  const UrgentScope outer;
  { const UrgentScope inner; }
  EXPECT_TRUE(UrgentScope::is_active());
}

TEST(UrgentScope, belongs_to_its_thread) {
  const UrgentScope scope;
  EXPECT_FALSE(std::async(std::launch::async, [] { return UrgentScope::is_active(); }).get());
}

}  // namespace
}  // namespace velmora_can_bridge
