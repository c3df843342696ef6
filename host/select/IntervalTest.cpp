// Tests a block of one column against an interval.
#include "host/select/IntervalTest.h"

#include <algorithm>
#include <bit>

#include "OOCPointCloud/columns/BitPacking.h"
#include "host/select/MaskKernels.h"

namespace tarnhost {

using oocpc::BlockEncoding;
using oocpc::BlockEntry;

namespace {

using Bytes = std::span<const std::uint8_t>;
using Mask = std::span<std::uint64_t>;

/// A bound of the column's own type out of its widened bits.
template <typename T>
T Narrow(std::uint64_t bits) {
  if constexpr (std::is_floating_point_v<T>) {
    return static_cast<T>(std::bit_cast<double>(bits));
  } else {
    return static_cast<T>(bits);
  }
}

/// An interval as offsets from a base that are not above `greatest`.
struct OffsetInterval {
  std::uint64_t low = 0;
  std::uint64_t high = 0;
  bool isEmpty = false;
};

template <typename T>
OffsetInterval OffsetsIn(const ValueInterval& interval, std::uint64_t baseBits,
                         std::uint64_t greatest) {
  using Wide = std::conditional_t<std::is_signed_v<T>, std::int64_t, std::uint64_t>;
  const auto low = static_cast<Wide>(interval.lowBits);
  const auto high = static_cast<Wide>(interval.highBits);
  const auto base = static_cast<Wide>(baseBits);
  if (high < base) return {0, 0, true};
  OffsetInterval offsets;
  offsets.low = low <= base ? 0 : interval.lowBits - baseBits;
  offsets.high = std::min(interval.highBits - baseBits, greatest);
  offsets.isEmpty = offsets.low > greatest;
  return offsets;
}

template <typename T>
void TestBitPacked(Bytes stored, const BlockEntry& entry, const ValueInterval& interval,
                   Mask mask) {
  const std::uint64_t base = entry.minimumBits[0];
  const std::uint64_t greatest = entry.maximumBits[0] - base;
  const OffsetInterval offsets = OffsetsIn<T>(interval, base, greatest);
  const unsigned bits = oocpc::OffsetBits(base, entry.maximumBits[0]);
  if (offsets.isEmpty || bits == 0) {
    std::ranges::fill(mask, 0);
    if (!offsets.isEmpty) InvertMask(mask, entry.valueCount);
    return;
  }
  TestPacked(stored, bits, entry.valueCount, offsets.low, offsets.high, mask.data());
}

/// One run: `packed` has exactly its offsets.
template <typename T>
void TestRun(Bytes packed, unsigned bits, T least, std::size_t count, const ValueInterval& interval,
             Mask mask) {
  const std::uint64_t greatest = bits == 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << bits) - 1;
  const OffsetInterval offsets = OffsetsIn<T>(interval, oocpc::WidenBits(least), greatest);
  const bool isFull = !offsets.isEmpty && offsets.low == 0 && offsets.high == greatest;
  if (offsets.isEmpty || isFull) {
    std::ranges::fill(mask, 0);
    if (isFull) InvertMask(mask, count);
    return;
  }
  TestPacked(packed, bits, count, offsets.low, offsets.high, mask.data());
}

/// Runs of 128 values: the bits of an offset, the least value, the offsets. False when the bytes
/// are not those of so many values.
template <typename T>
bool TestRuns(Bytes stored, std::size_t count, const ValueInterval& interval, Mask mask) {
  constexpr std::size_t kRun = 128;
  constexpr std::size_t kHead = 1 + sizeof(T);
  for (std::size_t first = 0; first < count; first += kRun) {
    const std::size_t values = std::min(kRun, count - first);
    if (stored.size() < kHead || stored[0] > 8 * sizeof(T)) return false;
    const unsigned bits = stored[0];
    const T least = oocpc::LoadComponent<T>(stored.data() + 1);
    const std::uint64_t bytes = oocpc::PackedBytes(values, bits);
    if (stored.size() - kHead < bytes) return false;
    TestRun(stored.subspan(kHead, bytes), bits, least, values, interval,
            mask.subspan(first / 64, MaskWords(values)));
    stored = stored.subspan(kHead + bytes);
  }
  return stored.empty();
}

/// The values of one component, one after the other.
template <typename T>
Bytes GatherComponent(Bytes values, oocpc::ColumnType type, std::size_t component,
                      std::vector<std::uint8_t>& scratch) {
  const std::size_t count = values.size() / (sizeof(T) * type.components);
  scratch.resize(count * sizeof(T));
  const std::uint8_t* from = values.data() + component * sizeof(T);
  for (std::size_t i = 0; i < count; ++i, from += sizeof(T) * type.components) {
    std::memcpy(scratch.data() + i * sizeof(T), from, sizeof(T));
  }
  return scratch;
}

template <typename T>
Outcome TestDecoded(BlockColumn& column, const ValueInterval& interval, std::size_t component,
                    std::vector<std::uint8_t>& scratch, Mask mask) {
  Bytes values;
  if (Outcome outcome = column.ReadValues(values); !outcome.Ok()) return outcome;
  if (column.GetType().components > 1) {
    values = GatherComponent<T>(values, column.GetType(), component, scratch);
  }
  TestInterval(values.data(), column.GetEntry().valueCount, Narrow<T>(interval.lowBits),
               Narrow<T>(interval.highBits), mask.data());
  return Outcome::Success();
}

template <typename T>
Outcome TestTyped(BlockColumn& column, const ValueInterval& interval, std::size_t component,
                  std::vector<std::uint8_t>& scratch, Mask mask) {
  const BlockEntry& entry = column.GetEntry();
  const bool isRaw = entry.encoding == BlockEncoding::kRaw;
  const bool isPacked = std::is_integral_v<T> && (entry.encoding == BlockEncoding::kBitPacked ||
                                                  entry.encoding == BlockEncoding::kRuns);
  if (column.GetType().components > 1 || !(isRaw || isPacked)) {
    return TestDecoded<T>(column, interval, component, scratch, mask);
  }
  Bytes stored;
  if (Outcome outcome = column.ReadStored(stored); !outcome.Ok()) return outcome;
  if (isRaw) {
    TestInterval(stored.data(), entry.valueCount, Narrow<T>(interval.lowBits),
                 Narrow<T>(interval.highBits), mask.data());
    return Outcome::Success();
  }
  if constexpr (std::is_integral_v<T>) {
    if (entry.encoding == BlockEncoding::kBitPacked) {
      TestBitPacked<T>(stored, entry, interval, mask);
    } else if (!TestRuns<T>(stored, entry.valueCount, interval, mask)) {
      return column.Fail(oocpc::result::kBadRecord);
    }
  }
  return Outcome::Success();
}

}  // namespace

Outcome TestInterval(BlockColumn& column, const ValueInterval& interval, std::size_t component,
                     std::vector<std::uint8_t>& scratch, std::span<std::uint64_t> mask) {
  return oocpc::VisitComponentType(column.GetType().value, [&](auto tag) {
    using T = typename decltype(tag)::Type;
    return TestTyped<T>(column, interval, component, scratch, mask);
  });
}

}  // namespace tarnhost
