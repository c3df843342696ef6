// How the memory that an import may take is shared out between what is worked on at once.
#include "host/build/MemoryPlan.h"

#include <algorithm>

#include "host/build/OctreePlan.h"

namespace tarnhost {

namespace {

/// A cell with more points than a node holds is divided whatever its pieces are: with smaller
/// pieces the octree would depend on the memory.
constexpr std::uint64_t kFewestPiecePoints = OctreePlan::kNodeCapacity;
/// More would not fit into the caches of the processors.
constexpr std::uint64_t kMostPiecePoints = 1u << 20;
/// What building a point takes besides its record and its encoded values: its code, sorted and
/// sampled, and the values of one column.
constexpr std::uint64_t kBuildBytes = 96;
/// What a thread needs for the block of a full node: seen to be 3.6 MiB with records of 34 bytes,
/// 25 with 220.
constexpr std::uint64_t kThreadBytesOfPoint = 48;
constexpr std::uint64_t kThreadRecords = 5;
/// Nodes above a piece that are gathered while their pieces are built; more than these are seldom
/// full.
constexpr std::uint64_t kOpenNodes = 4;
constexpr std::uint64_t kMostRowPoints = 1u << 15;
constexpr std::uint64_t kFewestRowPoints = 64;
/// What reading a point takes besides its record, before and after it is dealt.
constexpr std::uint64_t kRowBytes = 32;

}  // namespace

MemoryPlan MemoryPlan::Make(std::uint64_t memoryBytes, std::size_t recordBytes,
                            std::size_t threads) {
  threads = std::max<std::size_t>(threads, 1);
  // At worst the encoded values are as long as the record.
  const std::uint64_t pieceBytes = 2 * std::uint64_t{recordBytes} + kBuildBytes;
  const std::uint64_t forPieces = memoryBytes / 2;
  const std::uint64_t threadBytes =
      OctreePlan::kNodeCapacity * (kThreadRecords * recordBytes + kThreadBytesOfPoint);
  MemoryPlan plan;
  plan.threads = static_cast<std::size_t>(
      std::clamp<std::uint64_t>(memoryBytes / 8 * 3 / threadBytes, 1, threads));
  const std::uint64_t pieces =
      std::min<std::uint64_t>(forPieces / (pieceBytes * kFewestPiecePoints), plan.threads + 1);
  plan.piecesAtOnce = pieces == 0 ? 1 : static_cast<std::size_t>(pieces);
  plan.mostPiecePoints = std::clamp(forPieces / (pieceBytes * plan.piecesAtOnce),
                                    kFewestPiecePoints, kMostPiecePoints);
  plan.leastMemoryBytes =
      2 * pieceBytes * kFewestPiecePoints + kOpenNodes * recordBytes * OctreePlan::kNodeCapacity;
  // Each thread deals one run while another of its runs waits to be written.
  const std::uint64_t rowBytes = 2 * std::uint64_t{recordBytes} + kRowBytes;
  plan.rowPoints =
      std::clamp(memoryBytes / 8 / (rowBytes * 2 * plan.threads), kFewestRowPoints, kMostRowPoints);
  return plan;
}

}  // namespace tarnhost
