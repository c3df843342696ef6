// Lets large allocations by new fail. Include it in one file of a test program: it replaces that
// operator for the whole program.
#pragma once

#include <atomic>
#include <cstdlib>
#include <limits>
#include <new>

namespace oocpctest {

inline std::atomic<std::size_t> mostBytesOfAllocation{std::numeric_limits<std::size_t>::max()};

/// While it lives, an allocation of more than `bytes` throws, on any thread. One at a time.
class AllocationLimit {
 public:
  explicit AllocationLimit(std::size_t bytes) { mostBytesOfAllocation = bytes; }
  AllocationLimit(const AllocationLimit&) = delete;
  AllocationLimit& operator=(const AllocationLimit&) = delete;
  ~AllocationLimit() { mostBytesOfAllocation = std::numeric_limits<std::size_t>::max(); }
};

}  // namespace oocpctest

[[gnu::noinline]] void* operator new(std::size_t size) {
  if (size <= oocpctest::mostBytesOfAllocation) {
    if (void* const memory = std::malloc(size == 0 ? 1 : size)) return memory;
  }
  throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t /*size*/) noexcept {
  std::free(memory);
}
