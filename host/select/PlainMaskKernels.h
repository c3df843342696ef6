// The mask kernels as plain loops: for processors without vectors, and to test the others against.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "OOCPointCloud/columns/BitPacking.h"
#include "host/select/StoredPositions.h"

namespace tarnhost::plain {

/// Sets bit i of the mask where `holds(i)`.
template <typename Test>
void FillMask(std::size_t count, std::uint64_t* mask, const Test& holds) {
  for (std::size_t first = 0; first < count; first += 64) {
    std::uint64_t word = 0;
    for (std::size_t i = first; i < count && i < first + 64; ++i) {
      word |= std::uint64_t{holds(i) ? 1u : 0u} << (i - first);
    }
    mask[first / 64] = word;
  }
}

template <typename T>
void TestInterval(const std::uint8_t* values, std::size_t count, T low, T high,
                  std::uint64_t* mask) {
  FillMask(count, mask, [=](std::size_t i) {
    const T value = oocpc::LoadComponent<T>(values + i * sizeof(T));
    return low <= value && value <= high;
  });
}

inline void TestPacked(std::span<const std::uint8_t> packed, unsigned bits, std::size_t count,
                       std::uint64_t low, std::uint64_t high, std::uint64_t* mask) {
  FillMask(count, mask, [=](std::size_t i) {
    const std::uint64_t offset = oocpc::ReadOffset(packed, i * bits, bits);
    return low <= offset && offset <= high;
  });
}

inline std::array<std::int32_t, 3> LoadStored(const std::uint8_t* xyz, std::size_t i) {
  std::array<std::int32_t, 3> stored{};
  for (std::size_t axis = 0; axis < 3; ++axis) {
    stored[axis] = oocpc::LoadComponent<std::int32_t>(xyz + 12 * i + 4 * axis);
  }
  return stored;
}

inline void TestBox(const std::uint8_t* xyz, std::size_t count,
                    const std::array<std::int32_t, 3>& least,
                    const std::array<std::int32_t, 3>& greatest, std::uint64_t* mask) {
  FillMask(count, mask, [&](std::size_t i) {
    const auto stored = LoadStored(xyz, i);
    bool inside = true;
    for (std::size_t axis = 0; axis < 3; ++axis) {
      inside = inside && least[axis] <= stored[axis] && stored[axis] <= greatest[axis];
    }
    return inside;
  });
}

inline oocpc::Vector3d LoadLocal(const std::uint8_t* xyz, std::size_t i,
                                 const StoredPositions& positions) {
  const auto stored = LoadStored(xyz, i);
  return {positions.GetLocal(stored[0], 0), positions.GetLocal(stored[1], 1),
          positions.GetLocal(stored[2], 2)};
}

inline void TestSphere(const std::uint8_t* xyz, std::size_t count, const StoredPositions& positions,
                       const std::array<float, 3>& centre, float radius, std::uint64_t* mask) {
  const double r = radius;
  FillMask(count, mask, [&](std::size_t i) {
    const oocpc::Vector3d local = LoadLocal(xyz, i, positions);
    const double dx = local[0] - centre[0];
    const double dy = local[1] - centre[1];
    const double dz = local[2] - centre[2];
    return dx * dx + dy * dy + dz * dz <= r * r;
  });
}

inline void TestFrustum(const std::uint8_t* xyz, std::size_t count,
                        const StoredPositions& positions,
                        const std::array<std::array<float, 4>, 6>& planes, std::uint64_t* mask) {
  FillMask(count, mask, [&](std::size_t i) {
    const oocpc::Vector3d local = LoadLocal(xyz, i, positions);
    bool inside = true;
    for (const auto& plane : planes) {
      const double a = plane[0];
      const double b = plane[1];
      const double c = plane[2];
      const double d = plane[3];
      inside = inside && a * local[0] + b * local[1] + c * local[2] + d >= 0;
    }
    return inside;
  });
}

}  // namespace tarnhost::plain
