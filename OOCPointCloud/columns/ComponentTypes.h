// From a value type known at run time to the C++ type of its components.
#pragma once

#include <OOCPointCloud/ColumnType.h>

#include <bit>
#include <cstring>
#include <type_traits>

namespace oocpc {

template <typename T>
struct ComponentTag {
  using Type = T;
};

/// Calls `visitor` with the tag of the type in which components of `type` are stored.
template <typename Visitor>
auto VisitComponentType(ValueType type, Visitor&& visitor) {
  switch (type) {
    case ValueType::kInt8:
      return visitor(ComponentTag<std::int8_t>{});
    case ValueType::kUInt16:
      return visitor(ComponentTag<std::uint16_t>{});
    case ValueType::kInt16:
      return visitor(ComponentTag<std::int16_t>{});
    case ValueType::kUInt32:
    case ValueType::kString:
      return visitor(ComponentTag<std::uint32_t>{});
    case ValueType::kInt32:
      return visitor(ComponentTag<std::int32_t>{});
    case ValueType::kUInt64:
      return visitor(ComponentTag<std::uint64_t>{});
    case ValueType::kInt64:
      return visitor(ComponentTag<std::int64_t>{});
    case ValueType::kFloat:
      return visitor(ComponentTag<float>{});
    case ValueType::kDouble:
      return visitor(ComponentTag<double>{});
    case ValueType::kUInt8:
      break;
  }
  return visitor(ComponentTag<std::uint8_t>{});
}

[[nodiscard]] inline bool IsFloatingPoint(ValueType type) {
  return type == ValueType::kFloat || type == ValueType::kDouble;
}

/// A component in the 64 bits in which block entries hold minimum and maximum. Not for NaNs.
template <typename T>
[[nodiscard]] std::uint64_t WidenBits(T value) {
  if constexpr (std::is_floating_point_v<T>) {
    return std::bit_cast<std::uint64_t>(static_cast<double>(value));
  } else if constexpr (std::is_signed_v<T>) {
    return static_cast<std::uint64_t>(static_cast<std::int64_t>(value));
  } else {
    return value;
  }
}

/// What WidenBits made of a component.
template <typename T>
[[nodiscard]] T NarrowBits(std::uint64_t bits) {
  if constexpr (std::is_floating_point_v<T>) {
    return static_cast<T>(std::bit_cast<double>(bits));
  } else {
    return static_cast<T>(bits);
  }
}

/// The unsigned integer of as many bits as T, in which bit patterns are computed with.
template <typename T>
using PatternOf = std::conditional_t<
    sizeof(T) == 1, std::uint8_t,
    std::conditional_t<sizeof(T) == 2, std::uint16_t,
                       std::conditional_t<sizeof(T) == 4, std::uint32_t, std::uint64_t>>>;

template <typename T>
[[nodiscard]] T LoadComponent(const std::uint8_t* from) {
  T value;
  std::memcpy(&value, from, sizeof(T));
  return value;
}

template <typename T>
void StoreComponent(std::uint8_t* to, T value) {
  std::memcpy(to, &value, sizeof(T));
}

}  // namespace oocpc
