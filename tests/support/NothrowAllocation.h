// Makes one allocation by new (std::nothrow) fail. Include it in one file of a test program: it
// replaces that operator for the whole program.
#pragma once

#include <new>

namespace oocpctest {

/// Number of nothrow allocations that still succeed; negative: all.
inline int nothrowAllocationsLeft = -1;

}  // namespace oocpctest

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  if (oocpctest::nothrowAllocationsLeft == 0) return nullptr;
  if (oocpctest::nothrowAllocationsLeft > 0) --oocpctest::nothrowAllocationsLeft;
  return ::operator new(size);
}
