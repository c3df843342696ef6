// Integers in runs of 128, each as offsets from the run's least value.
#include "OOCPointCloud/columns/RunPacking.h"

#include <algorithm>

#include "OOCPointCloud/columns/BitPacking.h"

namespace oocpc {
namespace {

constexpr std::size_t kRun = 128;

template <typename T>
struct RunRange {
  T least;
  unsigned bits;  ///< of an offset
};

template <typename T>
[[gnu::always_inline]] inline RunRange<T> FindRunRange(const std::uint8_t* values,
                                                       std::size_t count, std::size_t stride) {
  T least = LoadComponent<T>(values);
  T greatest = least;
  for (std::size_t i = 1; i < count; ++i) {
    const T value = LoadComponent<T>(values + i * stride);
    least = std::min(least, value);
    greatest = std::max(greatest, value);
  }
  return {least, OffsetBits(WidenBits(least), WidenBits(greatest))};
}

/// Values side by side can be compared several at once.
template <typename T>
RunRange<T> DescribeRun(const std::uint8_t* values, std::size_t count, std::size_t stride) {
  return stride == sizeof(T) ? FindRunRange<T>(values, count, sizeof(T))
                             : FindRunRange<T>(values, count, stride);
}

/// Calls `run` with the tag of the component type, the place of the first value, and their number,
/// for each run of each component, until it answers false.
template <typename Run>
bool ForEachRun(ColumnType type, std::size_t valueCount, const Run& run) {
  return VisitComponentType(type.value, [&](auto tag) {
    using T = typename decltype(tag)::Type;
    for (std::size_t component = 0; component < type.components; ++component) {
      for (std::size_t first = 0; first < valueCount; first += kRun) {
        const std::size_t place = first * ValueBytes(type) + component * sizeof(T);
        if (!run(tag, place, std::min(kRun, valueCount - first))) return false;
      }
    }
    return true;
  });
}

}  // namespace

std::uint64_t LeastRunBytes(ColumnType type, std::uint64_t valueCount) {
  const std::uint64_t runs = (valueCount + kRun - 1) / kRun;
  return runs * type.components * (1 + ComponentBytes(type.value));
}

std::uint64_t CountRunBytes(ColumnType type, std::span<const std::uint8_t> values) {
  const std::size_t stride = ValueBytes(type);
  std::uint64_t bytes = 0;
  ForEachRun(type, values.size() / stride, [&](auto tag, std::size_t place, std::size_t count) {
    using T = typename decltype(tag)::Type;
    if constexpr (std::is_integral_v<T>) {
      const auto range = DescribeRun<T>(values.data() + place, count, stride);
      bytes += 1 + sizeof(T) + PackedBytes(count, range.bits);
    }
    return true;
  });
  return bytes;
}

std::vector<std::uint8_t> PackRuns(ColumnType type, std::span<const std::uint8_t> values) {
  const std::size_t stride = ValueBytes(type);
  std::vector<std::uint8_t> out;
  ForEachRun(type, values.size() / stride, [&](auto tag, std::size_t place, std::size_t count) {
    using T = typename decltype(tag)::Type;
    if constexpr (std::is_integral_v<T>) {
      const auto range = DescribeRun<T>(values.data() + place, count, stride);
      out.push_back(static_cast<std::uint8_t>(range.bits));
      const std::size_t at = out.size();
      out.resize(at + sizeof(T));
      StoreComponent(out.data() + at, range.least);
      PackOffsets<T>(values.data() + place, count, stride, WidenBits(range.least), range.bits, out);
    }
    return true;
  });
  return out;
}

bool UnpackRuns(ColumnType type, std::span<const std::uint8_t> packed,
                std::span<std::uint8_t> values) {
  const std::size_t stride = ValueBytes(type);
  const auto unpack = [&](auto tag, std::size_t place, std::size_t count) {
    using T = typename decltype(tag)::Type;
    if constexpr (std::is_integral_v<T>) {
      if (packed.size() < 1 + sizeof(T) || packed[0] > 8 * sizeof(T)) return false;
      const unsigned bits = packed[0];
      const T least = LoadComponent<T>(packed.data() + 1);
      packed = packed.subspan(1 + sizeof(T));
      const std::uint64_t bytes = PackedBytes(count, bits);
      if (packed.size() < bytes) return false;
      UnpackOffsets<T>(packed.first(bytes), count, stride, WidenBits(least), bits,
                       values.data() + place);
      packed = packed.subspan(bytes);
      return true;
    }
    return false;
  };
  return ForEachRun(type, values.size() / stride, unpack) && packed.empty();
}

}  // namespace oocpc
