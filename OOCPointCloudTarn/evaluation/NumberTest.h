// The comparison of one number of a record with a constant, which most leaves are, in a form that
// is tested without a virtual call.
#pragma once

#include <OOCPointCloud/OOCPCIQuery.h>

#include <cstdint>

#include "OOCPointCloud/support/Bytes.h"

namespace tarn {

class NumberTest {
 public:
  NumberTest() = default;
  /// Of another query than a metadata comparison of one number, a test of nothing.
  /// `offsetBytes`: where the number lies in a record.
  static NumberTest Of(const OOCPCIQuery& query, unsigned offsetBytes);

  /// Whether this says what the query says.
  [[nodiscard]] bool IsOf(const OOCPCIQuery* query) const {
    return query == query_ && query != nullptr;
  }

  /// As the query's Satisfy() of the number in a record, which may have any alignment. Takes no
  /// branch on the number.
  [[nodiscard]] bool Holds(const char* record) const {
    // Two numbers lie in one of four ways to each other: with a NaN, neither of these holds.
    const double number = Load(record + offset_);
    const unsigned way = (number >= number_ ? 1u : 0u) + (number <= number_ ? 2u : 0u);
    return (ways_ >> way & 1u) != 0;
  }

 private:
  enum class Type : std::uint8_t { kUInt8, kInt32, kFloat, kDouble };

  template <typename Query>
  bool Take(const OOCPCIQuery& query);

  /// Numbers of all four types are doubles, too, and compare alike as such.
  [[nodiscard]] double Load(const char* value) const {
    switch (type_) {
      case Type::kUInt8:
        return oocpc::LoadLittleEndian<std::uint8_t>(value);
      case Type::kInt32:
        return oocpc::LoadLittleEndian<std::int32_t>(value);
      case Type::kFloat:
        return static_cast<double>(oocpc::LoadLittleEndian<float>(value));
      case Type::kDouble:
        break;
    }
    return oocpc::LoadLittleEndian<double>(value);
  }

  const OOCPCIQuery* query_ = nullptr;
  unsigned offset_ = 0;  ///< in bytes from the start of a record
  Type type_ = Type::kUInt8;
  std::uint8_t ways_ = 0;  ///< bit w: the comparison holds for way w
  double number_ = 0;
};

}  // namespace tarn
