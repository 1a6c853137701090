#include "velmora_can_bridge/urgent_scope.hpp"

namespace velmora_can_bridge {
namespace {

// Scopes of this thread that are open.
thread_local unsigned depth = 0;

}  // namespace

UrgentScope::UrgentScope() noexcept { ++depth; }

UrgentScope::~UrgentScope() { --depth; }

bool UrgentScope::is_active() noexcept { return depth != 0; }

}  // namespace velmora_can_bridge
