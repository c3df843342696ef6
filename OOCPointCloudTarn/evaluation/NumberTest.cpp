#include "OOCPointCloudTarn/evaluation/NumberTest.h"

#include <array>
#include <concepts>

#include "OOCPointCloudTarn/query/MetaDataComparisonQuery.h"

namespace tarn {

namespace {

constexpr unsigned kNeither = 1u << 0;
constexpr unsigned kGreater = 1u << 1;
constexpr unsigned kLess = 1u << 2;
constexpr unsigned kEqual = 1u << 3;

/// The ways that each comparison holds for, by its code.
constexpr std::array<std::uint8_t, 6> kWays{
    kEqual,
    kGreater,
    kGreater | kEqual,
    kLess,
    kLess | kEqual,
    kNeither | kGreater | kLess,  // not equal, which a NaN is to everything
};

}  // namespace

template <typename Query>
bool NumberTest::Take(const OOCPCIQuery& query) {
  const auto* const comparison = dynamic_cast<const Query*>(&query);
  if (comparison == nullptr) return false;
  using Value = typename Query::Value;
  query_ = &query;
  ways_ = kWays[static_cast<std::size_t>(Query::kCode)];
  number_ = static_cast<double>(comparison->GetValue());
  if constexpr (std::same_as<Value, std::uint8_t>) type_ = Type::kUInt8;
  if constexpr (std::same_as<Value, std::int32_t>) type_ = Type::kInt32;
  if constexpr (std::same_as<Value, float>) type_ = Type::kFloat;
  if constexpr (std::same_as<Value, double>) type_ = Type::kDouble;
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
