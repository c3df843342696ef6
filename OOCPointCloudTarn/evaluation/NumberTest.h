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
  [[nodiscard]] bool IsOf(const OOCPCIQuery* query) const { return query == query_; }

  /// As the query's Satisfy() of the number in a record, which may have any alignment.
  [[nodiscard]] bool Holds(const char* record) const {
    const char* const value = record + offset_;
    switch (type_) {
      case Type::kUInt8:
        return Holds(oocpc::LoadLittleEndian<std::uint8_t>(value),
                     static_cast<std::uint8_t>(integer_));
      case Type::kInt32:
        return Holds(oocpc::LoadLittleEndian<std::int32_t>(value), integer_);
      case Type::kFloat:
        return Holds(oocpc::LoadLittleEndian<float>(value), static_cast<float>(number_));
      case Type::kDouble:
        return Holds(oocpc::LoadLittleEndian<double>(value), number_);
    }
    return false;
  }

 private:
  enum class Type : std::uint8_t { kUInt8, kInt32, kFloat, kDouble };

  template <typename Query>
  bool Take(const OOCPCIQuery& query);

  /// Two numbers lie in one of four ways to each other: with a NaN, none of the three.
  template <typename T>
  [[nodiscard]] bool Holds(T left, T right) const {
    const unsigned way =
        (left < right ? 1u : 0u) | (left == right ? 2u : 0u) | (left > right ? 4u : 0u);
    return (ways_ >> way & 1u) != 0;
  }

  const OOCPCIQuery* query_ = nullptr;
  unsigned offset_ = 0;  ///< in bytes from the start of a record
  Type type_ = Type::kUInt8;
  std::uint8_t ways_ = 0;  ///< bit w: the comparison holds for way w
  std::int32_t integer_ = 0;
  double number_ = 0;  ///< a float constant, too: every float is a double
};

}  // namespace tarn
