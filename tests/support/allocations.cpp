#include "support/allocations.hpp"

#include <cstdlib>
#include <new>

#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#include <sanitizer/allocator_interface.h>
#endif
#endif

namespace velmora_can_bridge {
namespace {

thread_local std::size_t count = 0;

}  // namespace

std::size_t allocations() { return count; }

}  // namespace velmora_can_bridge

#ifdef SANITIZER_ALLOCATOR_INTERFACE_H

// Clang's thread sanitizer links operators of its own that cannot be replaced, and offers a hook.
namespace velmora_can_bridge {
namespace {

[[maybe_unused]] const int hooks = __sanitizer_install_malloc_and_free_hooks(
    [](const volatile void* /*memory*/, std::size_t /*size*/) { ++count; },
    [](const volatile void* /*memory*/) {});

}  // namespace
}  // namespace velmora_can_bridge

#else

namespace velmora_can_bridge {
namespace {

void* counted_allocation(std::size_t size) {
  ++count;
  // NOLINTNEXTLINE(cppcoreguidelines-no-malloc): this is where new gets its memory
  void* const memory = std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) {
    throw std::bad_alloc();
  }
  return memory;
}

}  // namespace
}  // namespace velmora_can_bridge

// NOLINTBEGIN(cppcoreguidelines-no-malloc): and where delete gives it back
void* operator new(std::size_t size) { return velmora_can_bridge::counted_allocation(size); }
void* operator new[](std::size_t size) { return velmora_can_bridge::counted_allocation(size); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t /*size*/) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t /*size*/) noexcept { std::free(memory); }
// NOLINTEND(cppcoreguidelines-no-malloc)

#endif
