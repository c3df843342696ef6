// Where points lie in an octree's cube, from their stored positions.
#pragma once

#include <cstdint>
#include <span>

#include "host/build/MortonCube.h"
#include "host/formats/ScanFile.h"

namespace tarnhost {

/// A stored position in the local frame: integer * scale + offset - frame offset, each operation
/// rounded to double, as the positions container delivers it.
[[nodiscard]] oocpc::Vector3d LocalPosition(const std::int32_t* xyz,
                                            const PositionTransform& transform,
                                            const oocpc::Vector3d& frameOffset);

/// Turns stored positions into Morton codes. Const operations are safe from several threads at
/// once.
struct PointCoder {
  PositionTransform transform;
  oocpc::Vector3d frameOffset{};
  MortonCube cube;

  [[nodiscard]] std::uint64_t CodeOf(const std::int32_t* xyz) const {
    return cube.CodeOf(LocalPosition(xyz, transform, frameOffset));
  }
  /// The same for `codes.size()` positions of three integers each; several at once where the
  /// processor can.
  void CodesOf(const std::int32_t* xyz, std::span<std::uint64_t> codes) const;
  /// The same for records of `recordBytes` each, which begin with their positions.
  void CodesOfRecords(std::span<const std::uint8_t> records, std::size_t recordBytes,
                      std::span<std::uint64_t> codes) const;
};

}  // namespace tarnhost
