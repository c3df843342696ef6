// Tests a block of one column against an interval.
#include "host/select/IntervalTest.h"

#include <algorithm>

#include "OOCPointCloud/columns/BitPacking.h"
#include "OOCPointCloud/columns/ComponentTypes.h"
#include "host/select/MaskKernels.h"

namespace tarnhost {

using oocpc::BlockEncoding;
using oocpc::BlockEntry;

namespace {

using Bytes = std::span<const std::uint8_t>;
using Mask = std::span<std::uint64_t>;

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

/// Offsets from `least` in so many bits each: `packed` has exactly their bytes.
template <typename T>
void TestOffsets(Bytes packed, unsigned bits, T least, std::size_t count,
                 const ValueInterval& interval, Mask mask) {
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

/// The components of a bit-packed block lie one behind the other, each with a base of its own.
template <typename T>
void TestBitPacked(Bytes stored, const BlockEntry& entry, const ValueInterval& interval,
                   std::size_t component, Mask mask) {
  unsigned bits = 0;
  Bytes packed;
  for (std::size_t i = 0; i <= component; ++i) {
    bits = oocpc::OffsetBits(entry.minimumBits[i], entry.maximumBits[i]);
    const std::uint64_t bytes = oocpc::PackedBytes(entry.valueCount, bits);
    packed = stored.first(bytes);
    stored = stored.subspan(bytes);
  }
  TestOffsets(packed, bits, static_cast<T>(entry.minimumBits[component]), entry.valueCount,
              interval, mask);
}

/// Values of one component in a run, at most.
constexpr std::size_t kRun = 128;

/// A run: the bits of an offset, the least value, the offsets.
template <typename T>
struct Run {
  unsigned bits = 0;
  T least{};
  Bytes packed;
};

/// Takes a run of so many values from the front; false when it is not there.
template <typename T>
bool TakeRun(Bytes& stored, std::size_t values, Run<T>& run) {
  constexpr std::size_t kHead = 1 + sizeof(T);
  if (stored.size() < kHead || stored[0] > 8 * sizeof(T)) return false;
  run.bits = stored[0];
  run.least = oocpc::LoadComponent<T>(stored.data() + 1);
  const std::uint64_t bytes = oocpc::PackedBytes(values, run.bits);
  if (stored.size() - kHead < bytes) return false;
  run.packed = stored.subspan(kHead, bytes);
  stored = stored.subspan(kHead + bytes);
  return true;
}

/// The runs of each component lie behind those of the one before. False when the bytes are not
/// those of so many values.
template <typename T>
bool TestRuns(Bytes stored, oocpc::ColumnType type, std::size_t count,
              const ValueInterval& interval, std::size_t component, Mask mask) {
  Run<T> run;
  for (std::size_t i = 0; i < type.components; ++i) {
    for (std::size_t first = 0; first < count; first += kRun) {
      const std::size_t values = std::min(kRun, count - first);
      if (!TakeRun(stored, values, run)) return false;
      if (i != component) continue;
      TestOffsets(run.packed, run.bits, run.least, values, interval,
                  mask.subspan(first / 64, MaskWords(values)));
    }
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

/// Values as they are, decoded or stored so.
template <typename T>
void TestValues(Bytes values, oocpc::ColumnType type, const ValueInterval& interval,
                std::size_t component, std::vector<std::uint8_t>& scratch, Mask mask) {
  const std::size_t count = values.size() / oocpc::ValueBytes(type);
  if (type.components > 1) values = GatherComponent<T>(values, type, component, scratch);
  TestInterval(values.data(), count, oocpc::NarrowBits<T>(interval.lowBits),
               oocpc::NarrowBits<T>(interval.highBits), mask.data());
}

template <typename T>
Outcome TestTyped(BlockColumn& column, const ValueInterval& interval, std::size_t component,
                  std::vector<std::uint8_t>& scratch, Mask mask) {
  const BlockEntry& entry = column.GetEntry();
  const oocpc::ColumnType type = column.GetType();
  Bytes bytes;
  if (!IsComparedAsStored(type, entry.encoding)) {
    if (Outcome outcome = column.ReadValues(bytes); !outcome.Ok()) return outcome;
    TestValues<T>(bytes, type, interval, component, scratch, mask);
    return Outcome::Success();
  }
  if (Outcome outcome = column.ReadStored(bytes); !outcome.Ok()) return outcome;
  if (entry.encoding == BlockEncoding::kRaw) {
    TestValues<T>(bytes, type, interval, component, scratch, mask);
    return Outcome::Success();
  }
  if constexpr (std::is_integral_v<T>) {
    if (entry.encoding == BlockEncoding::kBitPacked) {
      TestBitPacked<T>(bytes, entry, interval, component, mask);
    } else if (!TestRuns<T>(bytes, type, entry.valueCount, interval, component, mask)) {
      return column.Fail(oocpc::result::kBadRecord);
    }
  }
  return Outcome::Success();
}

}  // namespace

bool IsComparedAsStored(oocpc::ColumnType type, BlockEncoding encoding) {
  if (encoding == BlockEncoding::kRaw) return true;
  return !IsRealType(type.value) &&
         (encoding == BlockEncoding::kBitPacked || encoding == BlockEncoding::kRuns);
}

Outcome TestInterval(BlockColumn& column, const ValueInterval& interval, std::size_t component,
                     std::vector<std::uint8_t>& scratch, std::span<std::uint64_t> mask) {
  return oocpc::VisitComponentType(column.GetType().value, [&](auto tag) {
    using T = typename decltype(tag)::Type;
    return TestTyped<T>(column, interval, component, scratch, mask);
  });
}

}  // namespace tarnhost
