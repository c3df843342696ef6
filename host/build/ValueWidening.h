// Values of one type as those of a wider one, without loss.
#pragma once

#include <OOCPointCloud/ColumnType.h>

#include <cstdint>
#include <optional>

namespace tarnhost {

/// The narrowest type that holds every value of both; none when there is none. Strings have no
/// wider type, and integers of 64 bits no floating point.
[[nodiscard]] std::optional<oocpc::ColumnType> FindWiderType(oocpc::ColumnType a,
                                                             oocpc::ColumnType b);

/// Converts `count` values of a type to one that FindWiderType gave for it and another.
void WidenValues(oocpc::ColumnType from, oocpc::ColumnType to, const std::uint8_t* values,
                 std::size_t count, std::uint8_t* out);

}  // namespace tarnhost
