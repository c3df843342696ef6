// Reversible rearrangements that make values easier to compress.
#include "OOCPointCloud/columns/ByteTransforms.h"

#include "OOCPointCloud/columns/ComponentTypes.h"

namespace oocpc {
namespace {

template <typename Unsigned>
Unsigned ZigZag(Unsigned difference) {
  constexpr unsigned kSignBit = sizeof(Unsigned) * 8 - 1;
  const auto sign = static_cast<Unsigned>(Unsigned{0} - (difference >> kSignBit));
  return static_cast<Unsigned>(static_cast<Unsigned>(difference << 1) ^ sign);
}

template <typename Unsigned>
Unsigned UndoZigZag(Unsigned coded) {
  const auto sign = static_cast<Unsigned>(Unsigned{0} - (coded & 1));
  return static_cast<Unsigned>((coded >> 1) ^ sign);
}

template <typename Unsigned>
void EncodeComponent(std::uint8_t* at, std::size_t count, std::size_t stride) {
  Unsigned before = 0;
  for (std::size_t i = 0; i < count; ++i, at += stride) {
    const auto value = LoadComponent<Unsigned>(at);
    StoreComponent(at, ZigZag(static_cast<Unsigned>(value - before)));
    before = value;
  }
}

template <typename Unsigned>
void DecodeComponent(std::uint8_t* at, std::size_t count, std::size_t stride) {
  Unsigned value = 0;
  for (std::size_t i = 0; i < count; ++i, at += stride) {
    value = static_cast<Unsigned>(value + UndoZigZag(LoadComponent<Unsigned>(at)));
    StoreComponent(at, value);
  }
}

}  // namespace

void ShuffleBytes(std::span<const std::uint8_t> from, std::size_t valueBytes,
                  std::span<std::uint8_t> to) {
  const std::size_t count = from.size() / valueBytes;
  for (std::size_t byte = 0; byte < valueBytes; ++byte) {
    std::uint8_t* const plane = to.data() + byte * count;
    for (std::size_t i = 0; i < count; ++i) plane[i] = from[i * valueBytes + byte];
  }
}

void UnshuffleBytes(std::span<const std::uint8_t> from, std::size_t valueBytes,
                    std::span<std::uint8_t> to) {
  const std::size_t count = from.size() / valueBytes;
  for (std::size_t byte = 0; byte < valueBytes; ++byte) {
    const std::uint8_t* const plane = from.data() + byte * count;
    for (std::size_t i = 0; i < count; ++i) to[i * valueBytes + byte] = plane[i];
  }
}

void EncodeDeltas(ColumnType type, std::span<std::uint8_t> values) {
  const std::size_t stride = ValueBytes(type);
  VisitComponentType(type.value, [&](auto tag) {
    using T = typename decltype(tag)::Type;
    for (std::size_t component = 0; component < type.components; ++component) {
      EncodeComponent<PatternOf<T>>(values.data() + component * sizeof(T), values.size() / stride,
                                    stride);
    }
  });
}

void DecodeDeltas(ColumnType type, std::span<std::uint8_t> values) {
  const std::size_t stride = ValueBytes(type);
  VisitComponentType(type.value, [&](auto tag) {
    using T = typename decltype(tag)::Type;
    for (std::size_t component = 0; component < type.components; ++component) {
      DecodeComponent<PatternOf<T>>(values.data() + component * sizeof(T), values.size() / stride,
                                    stride);
    }
  });
}

}  // namespace oocpc
