// Tests a block of string indices against a set of strings.
#include "host/select/StringTest.h"

#include <algorithm>
#include <limits>

#include "OOCPointCloud/columns/BitPacking.h"
#include "host/select/IntervalTest.h"
#include "host/select/PlainMaskKernels.h"

namespace tarnhost {

namespace {

using Mask = std::span<std::uint64_t>;
using Runs = std::span<const StringRun>;

/// More runs than these cost more than looking every index up.
constexpr std::size_t kMostRuns = 4;

/// The runs of a set that reach into what the block's indices span.
Runs RunsWithin(const StringSet& strings, const oocpc::BlockEntry& entry) {
  const auto first =
      std::ranges::lower_bound(strings.runs, entry.minimumBits[0], {}, &StringRun::last);
  const auto end = std::ranges::upper_bound(first, strings.runs.end(), entry.maximumBits[0], {},
                                            &StringRun::first);
  return {first, end};
}

Outcome TestRun(BlockColumn& column, std::uint64_t first, std::uint64_t last, Mask mask) {
  std::vector<std::uint8_t> unused;  // a column of strings has one component
  return TestInterval(column, {.lowBits = first, .highBits = last}, 0, unused, mask);
}

Outcome TestRuns(BlockColumn& column, Runs runs, Mask other, Mask mask) {
  std::ranges::fill(mask, 0);
  for (const StringRun& run : runs) {
    if (Outcome outcome = TestRun(column, run.first, run.last, other); !outcome.Ok()) {
      return outcome;
    }
    for (std::size_t i = 0; i < mask.size(); ++i) mask[i] |= other[i];
  }
  return Outcome::Success();
}

/// Fails when the block has an index behind the last string's.
Outcome FindStrays(BlockColumn& column, std::size_t stringCount, Mask mask) {
  constexpr std::uint64_t kLast = std::numeric_limits<std::uint32_t>::max();
  if (stringCount > kLast) return Outcome::Success();
  if (Outcome outcome = TestRun(column, stringCount, kLast, mask); !outcome.Ok()) return outcome;
  const bool hasStrays = std::ranges::any_of(mask, [](std::uint64_t word) { return word != 0; });
  return hasStrays ? column.Fail(oocpc::result::kStringNotFound) : Outcome::Success();
}

/// `indexAt(i)` is the index of value i. False when one has no string.
template <typename IndexAt>
bool LookUp(const StringSet& strings, std::size_t count, Mask mask, const IndexAt& indexAt) {
  bool isKnown = true;
  plain::FillMask(count, mask.data(), [&](std::size_t i) {
    const std::uint64_t index = indexAt(i);
    isKnown = isKnown && index < strings.selected.size();
    return isKnown && strings.selected[index] != 0;
  });
  return isKnown;
}

Outcome LookUpAll(BlockColumn& column, const StringSet& strings, Mask mask) {
  const oocpc::BlockEntry& entry = column.GetEntry();
  std::span<const std::uint8_t> bytes;
  bool isKnown = false;
  if (entry.encoding == oocpc::BlockEncoding::kBitPacked) {
    if (Outcome outcome = column.ReadStored(bytes); !outcome.Ok()) return outcome;
    const std::uint64_t base = entry.minimumBits[0];
    const unsigned bits = oocpc::OffsetBits(base, entry.maximumBits[0]);
    isKnown = LookUp(strings, entry.valueCount, mask, [&](std::size_t i) {
      return base + oocpc::ReadOffset(bytes, std::uint64_t{i} * bits, bits);
    });
  } else {
    if (Outcome outcome = column.ReadValues(bytes); !outcome.Ok()) return outcome;
    isKnown = LookUp(strings, entry.valueCount, mask, [&](std::size_t i) {
      return oocpc::LoadComponent<std::uint32_t>(bytes.data() + 4 * i);
    });
  }
  return isKnown ? Outcome::Success() : column.Fail(oocpc::result::kStringNotFound);
}

}  // namespace

Outcome TestStrings(BlockColumn& column, const StringSet& strings,
                    std::vector<std::uint64_t>& scratch, Mask mask) {
  const Runs runs = RunsWithin(strings, column.GetEntry());
  if (runs.size() > kMostRuns) return LookUpAll(column, strings, mask);
  scratch.resize(mask.size());
  if (Outcome outcome = FindStrays(column, strings.selected.size(), scratch); !outcome.Ok()) {
    return outcome;
  }
  return TestRuns(column, runs, scratch, mask);
}

}  // namespace tarnhost
