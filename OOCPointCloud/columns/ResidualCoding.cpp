// Values as entropy-coded differences from what precedes them.
#include "OOCPointCloud/columns/ResidualCoding.h"

#include <algorithm>
#include <array>
#include <optional>
#include <type_traits>

#include "OOCPointCloud/columns/NumberCoding.h"
#include "OOCPointCloud/columns/NumberDictionary.h"
#include "OOCPointCloud/columns/ValuePlanes.h"
#include "OOCPointCloud/support/Bytes.h"

namespace oocpc {
namespace {

using Numbers = std::vector<std::uint64_t>;

/// How values become residuals; the first byte of a block.
namespace transform {
constexpr std::uint8_t kDifferences = 1;  ///< of neighbours; else offsets from the base
constexpr std::uint8_t kRelative = 2;     ///< the first and third component less the second
constexpr std::uint8_t kAll = kDifferences | kRelative;
}  // namespace transform

/// A transform is chosen by so many runs of neighbours.
constexpr std::size_t kSampleRun = 128;
constexpr std::size_t kSampleRuns = 8;
constexpr std::size_t kHeadBytes = 2;

/// Read as signed: small numbers of either sign become small numbers.
template <typename Number>
Number Zigzag(Number number) {
  return static_cast<Number>(number << 1) ^ (0 - (number >> (8 * sizeof(Number) - 1)));
}
std::uint64_t UndoZigzag(std::uint64_t number) { return (number >> 1) ^ (0 - (number & 1)); }

/// The residuals of the values [first, first + count) of a component. The first value of a block is
/// its base, so its residual is 0.
template <typename Planes, typename Number>
void MakeResiduals(const Planes& planes, std::size_t component, std::uint8_t how, std::size_t first,
                   std::span<Number> residuals) {
  const std::vector<Number>& plane = planes.components[component];
  const bool relative = (how & transform::kRelative) != 0 && component != 1;
  const Number* const own = plane.data() + first;
  const Number* const other = planes.components[relative ? 1 : component].data() + first;
  const auto fill = [&](auto residualAt) {
    for (std::size_t i = 0; i < residuals.size(); ++i) residuals[i] = Zigzag<Number>(residualAt(i));
  };
  if ((how & transform::kDifferences) == 0) {
    const Number base = plane[0];
    const Number otherBase = planes.components[relative ? 1 : component][0];
    relative ? fill([&](std::size_t i) { return (own[i] - base) - (other[i] - otherBase); })
             : fill([&](std::size_t i) { return own[i] - base; });
    return;
  }
  if (first == 0) {
    residuals[0] = 0;
    residuals = residuals.subspan(1);
  }
  const std::size_t before = first == 0 ? 0 : 1;  // of the first residual: the number before it
  const Number* const x = own - before;
  const Number* const y = other - before;
  relative ? fill([&](std::size_t i) { return (x[i + 1] - x[i]) - (y[i + 1] - y[i]); })
           : fill([&](std::size_t i) { return x[i + 1] - x[i]; });
}

/// About what the residuals take; none when there are some that are too large to be coded.
template <typename Planes>
std::optional<std::uint64_t> EstimateOfSample(const Planes& planes, std::uint8_t how) {
  using Number = typename std::remove_cvref_t<decltype(planes.components[0])>::value_type;
  const std::size_t count = planes.components[0].size();
  std::uint64_t bytes = 0;
  std::array<Number, kSampleRuns * kSampleRun> residuals;
  for (std::size_t component = 0; component < planes.components.size(); ++component) {
    std::size_t sampled = 0;
    for (std::size_t run = 0; run < kSampleRuns; ++run) {
      const std::size_t first = run * (count / kSampleRuns);
      const std::size_t length = std::min(kSampleRun, count - first);
      MakeResiduals(planes, component, how, first, std::span(residuals).subspan(sampled, length));
      sampled += length;
    }
    TokenCounts counts;
    if (!counts.Add(std::span<const Number>(residuals).first(sampled))) return std::nullopt;
    bytes += counts.EstimateBytes(count);
  }
  return bytes;
}

template <typename Planes>
std::uint8_t ChooseTransform(const Planes& planes) {
  std::uint8_t best = transform::kDifferences;
  std::optional<std::uint64_t> bestBytes;
  for (std::uint8_t how = 0; how <= transform::kAll; ++how) {
    if ((how & transform::kRelative) != 0 && planes.components.size() != 3) continue;
    const std::optional<std::uint64_t> bytes = EstimateOfSample(planes, how);
    if (!bytes || (bestBytes && *bytes >= *bestBytes)) continue;
    best = how;
    bestBytes = bytes;
  }
  return best;
}

/// The component that is stored at a place: the one that others are relative to comes first.
std::size_t ComponentAt(std::uint8_t how, std::size_t place) {
  const bool secondFirst = (how & transform::kRelative) != 0 && place < 2;
  return secondFirst ? 1 - place : place;
}

/// Appends the number of dictionary entries, and the entries.
bool EncodeDictionary(const Numbers& dictionary, std::vector<std::uint8_t>& out) {
  AppendLittleEndian(out, static_cast<std::uint32_t>(dictionary.size()));
  return EncodeNumbers(std::span<const std::uint64_t>(dictionary), out);
}

/// Appends a component: its base, its dictionary or none, and its residuals, which are used up.
template <typename Number>
bool EncodeComponent(std::uint64_t base, bool mayRepeat, std::span<Number> residuals,
                     std::vector<std::uint8_t>& out) {
  AppendLittleEndian(out, base);
  if constexpr (sizeof(Number) == sizeof(std::uint64_t)) {
    if (const auto dictionary = mayRepeat ? MakeDictionary(residuals) : std::nullopt) {
      if (!EncodeDictionary(*dictionary, out)) return false;
      ReplaceByPlaces(*dictionary, residuals);
      return EncodeNumbers(std::span<const Number>(residuals), out);
    }
  }
  AppendLittleEndian(out, std::uint32_t{0});
  return EncodeNumbers(std::span<const Number>(residuals), out);
}

/// The number, as 64 bits, of which a plane has the low ones.
std::uint64_t BaseOf(ColumnType type, const ValuePlanes& planes, std::size_t component,
                     std::span<const std::uint8_t> /*values*/) {
  (void)type;
  return planes.components[component][0];
}
std::uint64_t BaseOf(ColumnType type, const NarrowPlanes& /*planes*/, std::size_t component,
                     std::span<const std::uint8_t> values) {
  return VisitComponentType(type.value, [&](auto tag) {
    using T = typename decltype(tag)::Type;
    return WidenBits(LoadComponent<T>(values.data() + component * sizeof(T)));
  });
}

template <typename Planes>
std::vector<std::uint8_t> EncodePlanes(ColumnType type, std::span<const std::uint8_t> values,
                                       const Planes& planes) {
  using Component = std::remove_cvref_t<decltype(planes.components[0])>;
  const std::uint8_t how = ChooseTransform(planes);
  const bool mayRepeat = ComponentBytes(type.value) == 8;
  std::vector<std::uint8_t> out{how, planes.decimals};
  out.reserve(values.size() / 2);
  Component residuals(planes.components[0].size());
  for (std::size_t place = 0; place < planes.components.size(); ++place) {
    const std::size_t component = ComponentAt(how, place);
    MakeResiduals(planes, component, how, 0, std::span(residuals));
    const std::uint64_t base = BaseOf(type, planes, component, values);
    if (!EncodeComponent(base, mayRepeat, std::span(residuals), out)) return {};
  }
  return out;
}

/// What a thread decodes into. Unusually large buffers are not kept.
class DecodeBuffer {
 public:
  DecodeBuffer(std::size_t count, std::size_t parts) : count_(count) {
    Storage().resize(count * parts);
  }
  DecodeBuffer(const DecodeBuffer&) = delete;
  DecodeBuffer& operator=(const DecodeBuffer&) = delete;
  ~DecodeBuffer() {
    if (Storage().size() > kKeptNumbers) Numbers().swap(Storage());
  }
  [[nodiscard]] std::span<std::uint64_t> Part(std::size_t part) const {
    return std::span(Storage()).subspan(part * count_, count_);
  }

 private:
  static constexpr std::size_t kKeptNumbers = std::size_t{1} << 18;
  static Numbers& Storage() {
    thread_local Numbers storage;
    return storage;
  }
  std::size_t count_;
};

bool DecodeDictionary(std::span<const std::uint8_t>& coded, std::size_t entries,
                      std::span<std::uint64_t> residuals) {
  Numbers dictionary(entries);
  if (!DecodeNumbers(coded, dictionary) || !DecodeNumbers(coded, residuals)) return false;
  for (std::uint64_t& residual : residuals) {
    if (residual >= entries) return false;
    residual = dictionary[residual];
  }
  return true;
}

/// Takes the residuals of a component from the front of `coded`.
bool DecodeComponent(std::span<const std::uint8_t>& coded, std::uint64_t& base,
                     std::span<std::uint64_t> residuals) {
  constexpr std::size_t kBytes = sizeof(std::uint64_t) + sizeof(std::uint32_t);
  if (coded.size() < kBytes) return false;
  base = LoadLittleEndian<std::uint64_t>(coded.data());
  const auto entries = LoadLittleEndian<std::uint32_t>(coded.data() + sizeof(base));
  coded = coded.subspan(kBytes);
  // A dictionary has no more entries than there are values.
  if (entries > residuals.size()) return false;
  if (entries > 0) {
    if (!DecodeDictionary(coded, entries, residuals)) return false;
  } else if (!DecodeNumbers(coded, residuals)) {
    return false;
  }
  return true;
}

/// Gives a component's numbers one after the other: undoes what MakeResiduals did.
template <bool kDifferences, bool kRelative>
class NumberRestorer {
 public:
  /// `others` are the residuals of the second component, when these are relative to it.
  NumberRestorer(std::uint64_t base, const std::uint64_t* residuals, const std::uint64_t* others)
      : base_(base), number_(base), residual_(residuals), other_(others) {}
  std::uint64_t operator()() {
    std::uint64_t residual = UndoZigzag(*residual_++);
    if constexpr (kRelative) residual += UndoZigzag(*other_++);
    number_ = (kDifferences ? number_ : base_) + residual;
    return number_;
  }

 private:
  std::uint64_t base_;
  std::uint64_t number_;
  const std::uint64_t* residual_;
  const std::uint64_t* other_;
};

/// Calls `store` with what restores a component's numbers.
template <typename Store>
void RestoreComponent(std::uint8_t how, std::uint64_t base, const std::uint64_t* residuals,
                      const std::uint64_t* others, const Store& store) {
  const bool differences = (how & transform::kDifferences) != 0;
  if (others != nullptr) {
    differences ? store(NumberRestorer<true, true>(base, residuals, others))
                : store(NumberRestorer<false, true>(base, residuals, others));
  } else {
    differences ? store(NumberRestorer<true, false>(base, residuals, others))
                : store(NumberRestorer<false, false>(base, residuals, others));
  }
}

}  // namespace

std::vector<std::uint8_t> EncodeResiduals(ColumnType type, std::span<const std::uint8_t> values) {
  if (const auto narrow = NarrowPlanes::Of(type, values)) {
    return EncodePlanes(type, values, *narrow);
  }
  return EncodePlanes(type, values, ValuePlanes::Of(type, values));
}

bool DecodeResiduals(ColumnType type, std::span<const std::uint8_t> coded,
                     std::span<std::uint8_t> values) {
  const std::size_t count = values.size() / ValueBytes(type);
  if (coded.size() < kHeadBytes || count == 0) return false;
  const std::uint8_t how = coded[0];
  const std::uint8_t decimals = coded[1];
  const bool relative = (how & transform::kRelative) != 0;
  if (how > transform::kAll || (relative && type.components != 3) ||
      !IsPossibleDecimals(type, decimals)) {
    return false;
  }
  coded = coded.subspan(kHeadBytes);
  const DecodeBuffer buffer(count, relative ? 2 : 1);
  for (std::size_t place = 0; place < type.components; ++place) {
    const auto numbers = buffer.Part(relative && place > 0 ? 1 : 0);
    std::uint64_t base = 0;
    if (!DecodeComponent(coded, base, numbers)) return false;
    // The residuals of the second component, which comes first, are the others' as well.
    const std::uint64_t* const others = relative && place > 0 ? buffer.Part(0).data() : nullptr;
    RestoreComponent(how, base, numbers.data(), others, [&](auto next) {
      StoreNumbers(type, decimals, ComponentAt(how, place), count, next, values.data());
    });
  }
  return coded.empty();
}

}  // namespace oocpc
