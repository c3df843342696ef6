// Where points lie in an octree's cube, from their stored positions.
#include "host/build/PointCoder.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "OOCPointCloud/support/TargetClones.h"

namespace tarnhost {

namespace {

constexpr std::size_t kBatch = 256;

/// One axis of a batch of positions: adds its bits to the codes.
OOCPC_TARGET_CLONES void AddAxis(const std::int32_t* values, std::size_t count, double scale,
                                 double offset, double frameOffset, double min, double edge,
                                 unsigned axis, std::uint64_t* codes) {
  constexpr double kCells = std::uint64_t{1} << kMortonBits;
  for (std::size_t i = 0; i < count; ++i) {
    const double position = static_cast<double>(values[i]) * scale + offset - frameOffset;
    const double cell = std::clamp((position - min) / edge * kCells, 0.0, kCells - 1);
    // Cells have 21 bits: by way of 32-bit integers several can be converted at once.
    const auto number =
        static_cast<std::uint64_t>(static_cast<std::int64_t>(static_cast<std::int32_t>(cell)));
    codes[i] |= SpreadBits(number) << axis;
  }
}

}  // namespace

oocpc::Vector3d LocalPosition(const std::int32_t* xyz, const PositionTransform& transform,
                              const oocpc::Vector3d& frameOffset) {
  oocpc::Vector3d position;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    position[axis] = static_cast<double>(xyz[axis]) * transform.scale[axis] +
                     transform.offset[axis] - frameOffset[axis];
  }
  return position;
}

void PointCoder::CodesOf(const std::int32_t* xyz, std::span<std::uint64_t> codes) const {
  constexpr std::size_t kPositionBytes = 3 * sizeof(std::int32_t);
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(xyz);
  CodesOfRecords({bytes, codes.size() * kPositionBytes}, kPositionBytes, codes);
}

void PointCoder::CodesOfRecords(std::span<const std::uint8_t> records, std::size_t recordBytes,
                                std::span<std::uint64_t> codes) const {
  std::ranges::fill(codes, std::uint64_t{0});
  std::array<std::array<std::int32_t, kBatch>, 3> values;
  for (std::size_t begin = 0; begin < codes.size(); begin += kBatch) {
    const std::size_t count = std::min(kBatch, codes.size() - begin);
    const std::uint8_t* from = records.data() + begin * recordBytes;
    for (std::size_t i = 0; i < count; ++i, from += recordBytes) {
      for (std::size_t axis = 0; axis < 3; ++axis) {
        std::memcpy(&values[axis][i], from + axis * sizeof(std::int32_t), sizeof(std::int32_t));
      }
    }
    for (std::size_t axis = 0; axis < 3; ++axis) {
      AddAxis(values[axis].data(), count, transform.scale[axis], transform.offset[axis],
              frameOffset[axis], cube.min[axis], cube.edge, static_cast<unsigned>(axis),
              codes.data() + begin);
    }
  }
}

}  // namespace tarnhost
