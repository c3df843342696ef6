// Tests of whole blocks of values into bit masks, with the widest instructions that the processor
// has; chosen when the program runs.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "host/select/StoredPositions.h"

namespace tarnhost {

/// Words of 64 bits for so many values. Bits behind the last value are 0 in every mask.
[[nodiscard]] constexpr std::size_t MaskWords(std::size_t count) { return (count + 63) / 64; }

// Each kernel sets bit i of `mask` (MaskWords(count) words) for value i. Values are little-endian
// at any alignment. Bounds are included; a NaN is within none.

/// T is one of the ten number types of columns. `values` has count * sizeof(T) bytes.
template <typename T>
void TestInterval(const std::uint8_t* values, std::size_t count, T low, T high,
                  std::uint64_t* mask);

/// Offsets of `bits` (1 to 64) bits each, least significant bit first, as bit-packed blocks hold
/// them; `packed` has exactly the bytes that they need. `low` and `high` are below 2^bits.
void TestPacked(std::span<const std::uint8_t> packed, unsigned bits, std::size_t count,
                std::uint64_t low, std::uint64_t high, std::uint64_t* mask);

/// Positions as blocks decode to: three 32-bit integers each.
void TestBox(const std::uint8_t* xyz, std::size_t count, const std::array<std::int32_t, 3>& least,
             const std::array<std::int32_t, 3>& greatest, std::uint64_t* mask);

/// What OOCPCInsideSphereQuery::Contains computes of each position in the local frame, operation by
/// operation.
void TestSphere(const std::uint8_t* xyz, std::size_t count, const StoredPositions& positions,
                const std::array<float, 3>& centre, float radius, std::uint64_t* mask);

/// The same of OOCPCInsideFrustumQuery.
void TestFrustum(const std::uint8_t* xyz, std::size_t count, const StoredPositions& positions,
                 const std::array<std::array<float, 4>, 6>& planes, std::uint64_t* mask);

[[nodiscard]] std::uint64_t CountBits(std::span<const std::uint64_t> mask);

/// Turns every bit of a mask of `count` values round.
void InvertMask(std::span<std::uint64_t> mask, std::size_t count);

/// The instructions that the kernels use in this run, as "AVX3".
[[nodiscard]] const char* KernelInstructions();

}  // namespace tarnhost
