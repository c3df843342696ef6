// The shortcut for comparisons with a number against the queries that it stands for.
#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <vector>

#include "OOCPointCloudTarn/evaluation/NumberTest.h"
#include "OOCPointCloudTarn/query/MetaDataComparisonQuery.h"

namespace {

using tarn::NumberTest;

constexpr unsigned kOffset = 3;  // no alignment is assumed

template <typename T>
std::vector<T> Values() {
  using Limits = std::numeric_limits<T>;
  std::vector<T> values{Limits::lowest(), T{0}, T{7}, T{8}, Limits::max()};
  if constexpr (std::floating_point<T>) {
    values.insert(values.end(), {T{-7.5}, T{-0.0}, Limits::denorm_min(), Limits::infinity(),
                                 -Limits::infinity(), Limits::quiet_NaN()});
  }
  return values;
}

template <typename Query>
class NumberTestOf : public testing::Test {};

using Queries =
    testing::Types<UInt8EqualQuery, UInt8GreaterQuery, UInt8GreaterOrEqualQuery, UInt8LessQuery,
                   UInt8LessOrEqualQuery, UInt8NotEqualQuery, Int32EqualQuery, Int32GreaterQuery,
                   Int32GreaterOrEqualQuery, Int32LessQuery, Int32LessOrEqualQuery,
                   Int32NotEqualQuery, FloatEqualQuery, FloatGreaterQuery, FloatGreaterOrEqualQuery,
                   FloatLessQuery, FloatLessOrEqualQuery, FloatNotEqualQuery, DoubleEqualQuery,
                   DoubleGreaterQuery, DoubleGreaterOrEqualQuery, DoubleLessQuery,
                   DoubleLessOrEqualQuery, DoubleNotEqualQuery>;
TYPED_TEST_SUITE(NumberTestOf, Queries);

TYPED_TEST(NumberTestOf, AnswersAsTheQueryForEveryPairOfValues) {
  using T = typename TypeParam::Value;
  for (const T constant : Values<T>()) {
    const TypeParam query("n", constant, OOCPCIQuery::BitwiseOperator::kAnd);
    const NumberTest test = NumberTest::Of(query, kOffset);
    ASSERT_TRUE(test.IsOf(&query));
    for (const T value : Values<T>()) {
      std::vector<char> record(64);
      std::memcpy(record.data() + kOffset, &value, sizeof(T));
      const std::vector<const char*> pointers(2, record.data() + kOffset);
      const std::vector<unsigned> sizes(2, sizeof(T));
      EXPECT_EQ(test.Holds(record.data()), query.Satisfy(pointers.data(), sizes.data()))
          << value << ", " << constant;
    }
  }
}

TEST(NumberTest, IsOfItsOwnQueryAlone) {
  const Int32EqualQuery one("n", 1, OOCPCIQuery::BitwiseOperator::kAnd);
  const Int32EqualQuery other("n", 1, OOCPCIQuery::BitwiseOperator::kAnd);
  EXPECT_FALSE(NumberTest::Of(one, 0).IsOf(&other));
}

TEST(NumberTest, IsNothingForTextsAndForTwoNames) {
  const StringEqualQuery text("n", "a", OOCPCIQuery::BitwiseOperator::kAnd);
  EXPECT_FALSE(NumberTest::Of(text, 0).IsOf(&text));
  const Int32EqualQuery two({QelUnicodeString("a"), QelUnicodeString("b")}, 1,
                            OOCPCIQuery::BitwiseOperator::kAnd);
  EXPECT_FALSE(NumberTest::Of(two, 0).IsOf(&two));
}

}  // namespace
