// Value types: their numbers, sizes and names.
#include <OOCPointCloud/ColumnBlocks.h>
#include <OOCPointCloud/ColumnType.h>
#include <gtest/gtest.h>

#include <string>

namespace {

using oocpc::ColumnType;
using oocpc::ValueType;

struct Expected {
  ValueType type;
  std::uint8_t number;
  std::uint32_t bytes;
  const char* name;
};

constexpr Expected kTypes[] = {
    {ValueType::kUInt8, 1, 1, "uint8_t"},   {ValueType::kInt8, 2, 1, "int8_t"},
    {ValueType::kUInt16, 3, 2, "uint16_t"}, {ValueType::kInt16, 4, 2, "int16_t"},
    {ValueType::kUInt32, 5, 4, "uint32_t"}, {ValueType::kInt32, 6, 4, "int32_t"},
    {ValueType::kUInt64, 7, 8, "uint64_t"}, {ValueType::kInt64, 8, 8, "int64_t"},
    {ValueType::kFloat, 9, 4, "float"},     {ValueType::kDouble, 10, 8, "double"},
    {ValueType::kString, 11, 4, "string"},
};

TEST(ColumnTypes, KeepNumberSizeAndNameOfTheFileFormat) {
  for (const Expected& expected : kTypes) {
    EXPECT_EQ(static_cast<std::uint8_t>(expected.type), expected.number);
    EXPECT_EQ(oocpc::ComponentBytes(expected.type), expected.bytes) << expected.name;
    EXPECT_STREQ(oocpc::ValueTypeName(expected.type), expected.name);
  }
}

TEST(ColumnTypes, AreTheElevenNumbersFromOneOn) {
  for (int number = 0; number < 256; ++number) {
    EXPECT_EQ(oocpc::IsValueType(static_cast<std::uint8_t>(number)), number >= 1 && number <= 11)
        << number;
  }
}

TEST(ColumnTypes, MultiplyBytesByComponents) {
  EXPECT_EQ(oocpc::ValueBytes({ValueType::kInt32, 3}), 12u);
  EXPECT_EQ(oocpc::ValueBytes({ValueType::kDouble, 2}), 16u);
  EXPECT_EQ(oocpc::ValueBytes({ValueType::kUInt8, 1}), 1u);
}

TEST(ColumnStreams, AreNamedAfterTheColumn) {
  EXPECT_EQ(oocpc::ColumnDataStreamName(0), "DEF_COLUMN_0");
  EXPECT_EQ(oocpc::ColumnTableStreamName(4294967295u), "DEF_COLUMN_4294967295_BLOCKS");
}

}  // namespace
