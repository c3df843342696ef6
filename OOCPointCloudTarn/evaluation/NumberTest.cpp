#include "OOCPointCloudTarn/evaluation/NumberTest.h"

#include <array>
#include <concepts>

#include "OOCPointCloudTarn/query/MetaDataComparisonQuery.h"

namespace tarn {

namespace {

/// The ways that each comparison holds for, by its code.
constexpr std::array<std::uint8_t, 6> kWays{
    1u << 2,                      // equal
    1u << 4,                      // greater
    1u << 4 | 1u << 2,            // greater or equal
    1u << 1,                      // less
    1u << 1 | 1u << 2,            // less or equal
    1u << 0 | 1u << 1 | 1u << 4,  // not equal, which a NaN is to everything
};

}  // namespace

template <typename Query>
bool NumberTest::Take(const OOCPCIQuery& query) {
  const auto* const comparison = dynamic_cast<const Query*>(&query);
  if (comparison == nullptr) return false;
  using Value = typename Query::Value;
  query_ = &query;
  ways_ = kWays[static_cast<std::size_t>(Query::kCode)];
  if constexpr (std::floating_point<Value>) {
    type_ = std::same_as<Value, float> ? Type::kFloat : Type::kDouble;
    number_ = comparison->GetValue();
  } else {
    type_ = std::same_as<Value, std::uint8_t> ? Type::kUInt8 : Type::kInt32;
    integer_ = comparison->GetValue();
  }
  return true;
}

NumberTest NumberTest::Of(const OOCPCIQuery& query, unsigned offsetBytes) {
  NumberTest test;
  test.offset_ = offsetBytes;
  // With other than one name the query compares two numbers of the record instead.
  if (query.GetNumberOfMetadata() != 1) return test;
  const auto takeOneOf = [&]<typename... Queries>() { return (test.Take<Queries>(query) || ...); };
  static_cast<void>(
      takeOneOf.
      operator()<UInt8EqualQuery, UInt8GreaterQuery, UInt8GreaterOrEqualQuery, UInt8LessQuery,
                 UInt8LessOrEqualQuery, UInt8NotEqualQuery, Int32EqualQuery, Int32GreaterQuery,
                 Int32GreaterOrEqualQuery, Int32LessQuery, Int32LessOrEqualQuery,
                 Int32NotEqualQuery, FloatEqualQuery, FloatGreaterQuery, FloatGreaterOrEqualQuery,
                 FloatLessQuery, FloatLessOrEqualQuery, FloatNotEqualQuery, DoubleEqualQuery,
                 DoubleGreaterQuery, DoubleGreaterOrEqualQuery, DoubleLessQuery,
                 DoubleLessOrEqualQuery, DoubleNotEqualQuery>());
  return test;
}

}  // namespace tarn
