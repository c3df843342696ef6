// The thirty comparisons: every kind and code against plain comparisons of the values.
#include <OOCPointCloud/ResultCodes.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "OOCPointCloudTarn/query/ComparisonDescription.h"
#include "tests/support/QueryBuilders.h"

namespace {

using oocpctest::BytesOfValues;
using oocpctest::kAnd;
using oocpctest::SatisfiesRecord;
using enum MetaDataComparison;

template <typename T>
std::string RecordOf(const T& value) {
  return BytesOfValues(value);
}
template <>
std::string RecordOf(const std::string& value) {
  return value + '\0';
}

/// What the six comparisons answer, in the order of their codes.
template <typename T>
std::string AnswersOf(const std::string& record, const T& constant) {
  const MetaDataComparisonQuery<T, kEqual> equal("n", constant, kAnd);
  const MetaDataComparisonQuery<T, kGreater> greater("n", constant, kAnd);
  const MetaDataComparisonQuery<T, kGreaterOrEqual> greaterOrEqual("n", constant, kAnd);
  const MetaDataComparisonQuery<T, kLess> less("n", constant, kAnd);
  const MetaDataComparisonQuery<T, kLessOrEqual> lessOrEqual("n", constant, kAnd);
  const MetaDataComparisonQuery<T, kNotEqual> notEqual("n", constant, kAnd);
  std::string answers;
  for (const OOCPCIQuery* const query : std::initializer_list<const OOCPCIQuery*>{
           &equal, &greater, &greaterOrEqual, &less, &lessOrEqual, &notEqual}) {
    answers += SatisfiesRecord(*query, record) ? '1' : '0';
  }
  return answers;
}

constexpr const char* kIsEqual = "101010";
constexpr const char* kIsGreater = "011001";
constexpr const char* kIsLess = "000111";
constexpr const char* kIsUnordered = "000001";

template <typename T>
void ExpectAllPairsCompare(const std::vector<T>& ascending) {
  for (std::size_t i = 0; i < ascending.size(); ++i) {
    for (std::size_t j = 0; j < ascending.size(); ++j) {
      EXPECT_EQ(AnswersOf<T>(RecordOf(ascending[i]), ascending[j]), i == j  ? kIsEqual
                                                                    : i > j ? kIsGreater
                                                                            : kIsLess)
          << i << " " << j;
    }
  }
}

TEST(MetaDataComparison, OrdersEveryKind) {
  ExpectAllPairsCompare<std::uint8_t>({0, 1, 127, 128, 200, 255});
  ExpectAllPairsCompare<std::int32_t>({std::numeric_limits<std::int32_t>::min(), -1, 0, 1, 70000,
                                       std::numeric_limits<std::int32_t>::max()});
  const float inf = std::numeric_limits<float>::infinity();
  ExpectAllPairsCompare<float>({-inf, -1.5f, 0.0f, 1e-40f, 0.1f, 1e30f, inf});
  ExpectAllPairsCompare<double>({-1e300, -1.5, 0.0, 0.1, std::nextafter(0.1, 1.0), 1e300});
  ExpectAllPairsCompare<std::string>({"", "a", "ab", "abc", "abd", "b", "\x7f", "\x80", "\xff"});
}

TEST(MetaDataComparison, UInt8IsUnsigned) {
  EXPECT_TRUE(SatisfiesRecord(UInt8GreaterQuery("n", 200, kAnd), "\xFF"));
}

TEST(MetaDataComparison, Int32IsSignedAndLittleEndian) {
  EXPECT_TRUE(SatisfiesRecord(Int32LessQuery("n", 0, kAnd), "\xFF\xFF\xFF\xFF"));
  EXPECT_TRUE(SatisfiesRecord(Int32EqualQuery("n", 0x04030201, kAnd), "\x01\x02\x03\x04"));
}

TEST(MetaDataComparison, WithANaNOnlyNotEqualHolds) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const double wideNan = nan;
  EXPECT_EQ(AnswersOf(BytesOfValues(nan), 1.0f), kIsUnordered);
  EXPECT_EQ(AnswersOf(BytesOfValues(1.0f), nan), kIsUnordered);
  EXPECT_EQ(AnswersOf(BytesOfValues(nan), nan), kIsUnordered);
  EXPECT_EQ(AnswersOf(BytesOfValues(wideNan), 1.0), kIsUnordered);
  EXPECT_EQ(AnswersOf(BytesOfValues(1.0), wideNan), kIsUnordered);
}

TEST(MetaDataComparison, ZerosAreEqualWhateverTheirSign) {
  EXPECT_EQ(AnswersOf(BytesOfValues(-0.0f), 0.0f), kIsEqual);
  EXPECT_EQ(AnswersOf(BytesOfValues(0.0), -0.0), kIsEqual);
}

TEST(MetaDataComparison, ProperPrefixOrdersFirst) {
  const StringLessQuery less("n", "abc", kAnd);
  EXPECT_TRUE(SatisfiesRecord(less, std::string("ab\0", 3)));
  EXPECT_FALSE(SatisfiesRecord(less, std::string("abd\0", 4)));
}

TEST(MetaDataComparison, TextEndsAtItsNulWhateverTheSize) {
  const StringEqualQuery equal("n", "ab", kAnd);
  EXPECT_TRUE(SatisfiesRecord(equal, std::string("ab\0x", 4)));
  const char* const records[] = {"ab", "ab"};
  const unsigned sizes[] = {0};
  EXPECT_TRUE(equal.Satisfy(records, sizes));
}

TEST(MetaDataComparison, ReadsNumbersAtAnyAlignmentWhateverTheSize) {
  const std::string bytes = "xxx" + BytesOfValues(0.1);
  const char* const records[] = {bytes.data() + 3, bytes.data() + 3};
  const unsigned sizes[] = {1};
  EXPECT_TRUE(DoubleEqualQuery("n", 0.1, kAnd).Satisfy(records, sizes));
}

TEST(MetaDataComparison, IsFalseWithoutRecordsOrSizes) {
  const Int32NotEqualQuery query("n", 1, kAnd);
  const std::string bytes = BytesOfValues(2);
  const char* const records[] = {bytes.data(), bytes.data()};
  const unsigned sizes[] = {4};
  EXPECT_TRUE(query.Satisfy(records, sizes));
  EXPECT_FALSE(query.Satisfy(nullptr, sizes));
  EXPECT_FALSE(query.Satisfy(records, nullptr));
}

TEST(MetaDataComparison, WithTwoNamesComparesTheTwoAndIgnoresTheConstant) {
  const std::string one = BytesOfValues(1);
  const std::string two = BytesOfValues(2);
  const char* const records[] = {one.data(), two.data()};
  const unsigned sizes[] = {4, 4};
  EXPECT_TRUE(Int32LessQuery({"a", "b"}, -100, kAnd).Satisfy(records, sizes));
  EXPECT_FALSE(Int32GreaterQuery({"a", "b"}, -100, kAnd).Satisfy(records, sizes));
  EXPECT_FALSE(
      Int32GreaterQuery(std::vector<QelUnicodeString>{}, -100, kAnd).Satisfy(records, sizes));
  const char* const texts[] = {"a", "b"};
  EXPECT_TRUE(StringLessQuery({"a", "b"}, "", kAnd).Satisfy(texts, sizes));
}

/// What the six comparisons answer of the first two of some records when they name that many
/// metadata; the constant would say otherwise.
template <typename T>
std::string AnswersOfPair(const std::vector<const char*>& records, const T& constant) {
  const std::vector<QelUnicodeString> names(records.size(), QelUnicodeString("n"));
  const std::vector<unsigned> sizes(records.size(), sizeof(T));
  const MetaDataComparisonQuery<T, kEqual> equal(names, constant, kAnd);
  const MetaDataComparisonQuery<T, kGreater> greater(names, constant, kAnd);
  const MetaDataComparisonQuery<T, kGreaterOrEqual> greaterOrEqual(names, constant, kAnd);
  const MetaDataComparisonQuery<T, kLess> less(names, constant, kAnd);
  const MetaDataComparisonQuery<T, kLessOrEqual> lessOrEqual(names, constant, kAnd);
  const MetaDataComparisonQuery<T, kNotEqual> notEqual(names, constant, kAnd);
  std::string answers;
  for (const OOCPCIQuery* const query : std::initializer_list<const OOCPCIQuery*>{
           &equal, &greater, &greaterOrEqual, &less, &lessOrEqual, &notEqual}) {
    answers += query->Satisfy(records.data(), sizes.data()) ? '1' : '0';
  }
  return answers;
}

template <typename T>
std::string AnswersOfPair(const T& left, const T& right, const T& constant) {
  const std::string first = RecordOf(left);
  const std::string second = RecordOf(right);
  return AnswersOfPair<T>({first.data(), second.data()}, constant);
}

TEST(MetaDataComparison, OfTwoNamesComparesThePairInEveryKind) {
  EXPECT_EQ(AnswersOfPair<std::uint8_t>(200, 100, 255), kIsGreater);
  EXPECT_EQ(AnswersOfPair<std::uint8_t>(127, 128, 0), kIsLess);
  EXPECT_EQ(AnswersOfPair<std::uint8_t>(255, 255, 1), kIsEqual);
  EXPECT_EQ(AnswersOfPair<std::int32_t>(-1, 1, -2), kIsLess);
  EXPECT_EQ(AnswersOfPair<float>(0.5f, 0.25f, 1), kIsGreater);
  EXPECT_EQ(AnswersOfPair<float>(-0.0f, 0.0f, 1), kIsEqual);
  EXPECT_EQ(AnswersOfPair<double>(0.1, std::nextafter(0.1, 1.0), 0), kIsLess);
  EXPECT_EQ(AnswersOfPair<double>(1e300, 1e300, 0), kIsEqual);
  EXPECT_EQ(AnswersOfPair<std::string>("ab", "abc", ""), kIsLess);
}

TEST(MetaDataComparison, OfTwoNamesWithANaNOnEitherSideOnlyNotEqualHolds) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  EXPECT_EQ(AnswersOfPair<float>(1, nan, 1), kIsUnordered);
  EXPECT_EQ(AnswersOfPair<float>(nan, 1, 1), kIsUnordered);
  EXPECT_EQ(AnswersOfPair<double>(1, nan, 1), kIsUnordered);
  EXPECT_EQ(AnswersOfPair<double>(nan, nan, 1), kIsUnordered);
  EXPECT_EQ(AnswersOfPair<double>(1, 2, nan), kIsLess) << "the constant is ignored";
}

TEST(MetaDataComparison, OfThreeNamesComparesTheFirstWithTheSecond) {
  const std::string one = BytesOfValues(1);
  const std::string two = BytesOfValues(2);
  // Nobody follows the third pointer.
  EXPECT_EQ(AnswersOfPair<std::int32_t>({one.data(), two.data(), nullptr}, 1), kIsLess);
  EXPECT_EQ(AnswersOfPair<std::int32_t>({two.data(), one.data(), nullptr}, 2), kIsGreater);
  EXPECT_EQ(AnswersOfPair<std::int32_t>({two.data(), two.data(), nullptr}, 1), kIsEqual);
}

TEST(MetaDataComparison, ResetSucceedsAndChangesNothing) {
  Int32EqualQuery number("n", 7, kAnd);
  StringEqualQuery text("s", "ab", kAnd);
  EXPECT_EQ(number.Reset(), oocpc::result::kOk);
  EXPECT_EQ(text.Reset(), oocpc::result::kOk);
  EXPECT_EQ(number.GetValue(), 7);
  EXPECT_TRUE(SatisfiesRecord(number, BytesOfValues(7)));
  EXPECT_TRUE(SatisfiesRecord(text, RecordOf<std::string>("ab")));
  EXPECT_EQ(text.GetMetaName(0), QelUnicodeString("s"));
}

TEST(MetaDataComparison, DescriptorIsSeventeenForNumbersAndTheBasesForTexts) {
  EXPECT_EQ(UInt8EqualQuery("n", 1, kAnd).GetDescriptor(), 17u);
  EXPECT_EQ(Int32LessQuery("n", 1, kAnd).GetDescriptor(), 17u);
  EXPECT_EQ(FloatGreaterQuery("n", 1, kAnd).GetDescriptor(), 17u);
  EXPECT_EQ(DoubleNotEqualQuery("n", 1, kAnd).GetDescriptor(), 17u);
  EXPECT_EQ(StringEqualQuery("n", "a", kAnd).GetDescriptor(), +OOCPCIQuery::kDefaultDescriptor);
}

TEST(MetaDataComparison, NeverClassifiesNodes) {
  const Int32EqualQuery query("n", 1, kAnd);
  const double corner[3] = {};
  EXPECT_EQ(query.ClassifyNode(corner, corner), OOCPCIQuery::ClassifyResult::kSome);
  EXPECT_EQ(query.MakeNodeAccelerator({}), nullptr);
  EXPECT_FALSE(query.Satisfy("\x01\0\0\0", 4u));
}

template <MetaDataComparison kFirst, MetaDataComparison kSecond>
std::string ValuesInRange(int low, int high) {
  const MetaDataComparisonQuery<std::int32_t, kFirst> lower("n", low, kAnd);
  const MetaDataComparisonQuery<std::int32_t, kSecond> upper("n", high, kAnd);
  std::string values;
  for (int value = 0; value <= 4; ++value) {
    const std::string record = BytesOfValues(value);
    if (SatisfiesRecord(lower, record) && SatisfiesRecord(upper, record)) {
      values += static_cast<char>('0' + value);
    }
  }
  return values;
}

TEST(MetaDataComparison, OpenRangeLeavesItsEndsOutAndClosedRangeTakesThemIn) {
  EXPECT_EQ((ValuesInRange<kGreater, kLess>(1, 3)), "2");
  EXPECT_EQ((ValuesInRange<kGreaterOrEqual, kLessOrEqual>(1, 3)), "123");
  EXPECT_EQ((ValuesInRange<kGreaterOrEqual, kLessOrEqual>(3, 1)), "");
}

TEST(ComparisonDescription, TellsNameKindCodeAndValue) {
  const auto description = DescribeComparison(UInt8NotEqualQuery("a b", 7, kAnd));
  ASSERT_TRUE(description.has_value());
  EXPECT_EQ(description->name, "a b");
  EXPECT_EQ(description->comparison, kNotEqual);
  EXPECT_STREQ(description->GetTypeWord(), "uint8_t");
  EXPECT_EQ(std::get<std::uint8_t>(description->value), 7);
  EXPECT_FALSE(DescribeComparison(OOCPCAllPointsQuery(kAnd)).has_value());
}

}  // namespace
