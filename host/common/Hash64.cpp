// A strong 64-bit hash of some bytes: XXH64 as its author published it.
#include "host/common/Hash64.h"

#include <array>
#include <bit>

#include "OOCPointCloud/support/Bytes.h"

namespace tarnhost {

namespace {

constexpr std::uint64_t kPrime1 = 0x9E3779B185EBCA87u;
constexpr std::uint64_t kPrime2 = 0xC2B2AE3D27D4EB4Fu;
constexpr std::uint64_t kPrime3 = 0x165667B19E3779F9u;
constexpr std::uint64_t kPrime4 = 0x85EBCA77C2B2AE63u;
constexpr std::uint64_t kPrime5 = 0x27D4EB2F165667C5u;

constexpr std::size_t kLanes = 4;
constexpr std::size_t kLaneBytes = 8;

std::uint64_t Round(std::uint64_t state, std::uint64_t lane) {
  return std::rotl(state + lane * kPrime2, 31) * kPrime1;
}

/// Takes whole stripes of four lanes off the bytes, of which there is one at least.
std::uint64_t HashStripes(std::span<const std::uint8_t>& bytes) {
  std::array<std::uint64_t, kLanes> states{kPrime1 + kPrime2, kPrime2, 0, 0 - kPrime1};
  while (bytes.size() >= kLanes * kLaneBytes) {
    for (std::size_t i = 0; i < kLanes; ++i) {
      states[i] =
          Round(states[i], oocpc::LoadLittleEndian<std::uint64_t>(bytes.data() + i * kLaneBytes));
    }
    bytes = bytes.subspan(kLanes * kLaneBytes);
  }
  std::uint64_t hash = std::rotl(states[0], 1) + std::rotl(states[1], 7) +
                       std::rotl(states[2], 12) + std::rotl(states[3], 18);
  for (const std::uint64_t state : states) hash = (hash ^ Round(0, state)) * kPrime1 + kPrime4;
  return hash;
}

}  // namespace

std::uint64_t Hash64(std::span<const std::uint8_t> bytes) {
  const std::uint64_t length = bytes.size();
  std::uint64_t hash = length >= kLanes * kLaneBytes ? HashStripes(bytes) : kPrime5;
  hash += length;
  for (; bytes.size() >= 8; bytes = bytes.subspan(8)) {
    hash ^= Round(0, oocpc::LoadLittleEndian<std::uint64_t>(bytes.data()));
    hash = std::rotl(hash, 27) * kPrime1 + kPrime4;
  }
  if (bytes.size() >= 4) {
    hash ^= oocpc::LoadLittleEndian<std::uint32_t>(bytes.data()) * kPrime1;
    hash = std::rotl(hash, 23) * kPrime2 + kPrime3;
    bytes = bytes.subspan(4);
  }
  for (const std::uint8_t byte : bytes) {
    hash = std::rotl(hash ^ (byte * kPrime5), 11) * kPrime1;
  }
  hash = (hash ^ (hash >> 33)) * kPrime2;
  hash = (hash ^ (hash >> 29)) * kPrime3;
  return hash ^ (hash >> 32);
}

}  // namespace tarnhost
