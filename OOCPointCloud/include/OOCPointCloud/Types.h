// Small types that every layer of the point-cloud libraries shares.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <tuple>

#if defined(_WIN32)
using HRESULT = long;  // 32 bits on every Windows; the same type that the system's headers declare.
#else
using HRESULT = std::int32_t;
#endif
static_assert(sizeof(HRESULT) == 4);

namespace oocpc {

/// Kind of a repository chunk; the values are part of the file format.
using ContainerChunkType = std::uint32_t;

namespace chunk_type {
inline constexpr ContainerChunkType kStaticMetaData = 1;
inline constexpr ContainerChunkType kStaticPositions = 2;
inline constexpr ContainerChunkType kReservedDirect = 0x200;
inline constexpr ContainerChunkType kAccelerator1 = 0x10000;
inline constexpr ContainerChunkType kAccelerator2 = 0x20000;
inline constexpr ContainerChunkType kAccelerator3 = 0x30000;
inline constexpr ContainerChunkType kAccelerator4 = 0x40000;
inline constexpr ContainerChunkType kAccelerator5 = 0x50000;
inline constexpr ContainerChunkType kValue16 = 0x10000000;
inline constexpr ContainerChunkType kStringRepository = 0x20000000;
inline constexpr ContainerChunkType kUpdateIterations = 0x30000000;
inline constexpr ContainerChunkType kMortonSeed = 0x40000000;
inline constexpr ContainerChunkType kLevelOfDetail = 0x50000000;
inline constexpr ContainerChunkType kRepositoryInformation = 0x60000000;
}  // namespace chunk_type

/// A chunk as the containers' static selection helpers see it: payload start, payload bytes, type.
/// The payload stays the caller's.
using ChunkDescriptor = std::tuple<const std::uint8_t*, std::uint32_t, ContainerChunkType>;

/// x, y, z. The frame is stated where it is used.
using Vector3d = std::array<double, 3>;

/// A closed axis-aligned box; min <= max on every axis unless stated otherwise.
struct Box3d {
  Vector3d min{};
  Vector3d max{};
};

}  // namespace oocpc
