#include "support/allocations.hpp"

#include <cstdlib>
#include <new>

namespace velmora_can_bridge {
namespace {

thread_local std::size_t count = 0;

}  // namespace

std::size_t allocations() { return count; }

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
