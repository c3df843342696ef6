// How point records divide into dimensions, and that nothing of them is lost.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/formats/LasRecordLayout.h"
#include "tests/support/LasBuilder.h"

namespace {

using oocpc::ColumnType;
using oocpc::ValueType;
using oocpctest::LasBuilder;
using tarnhost::LasField;
using tarnhost::LasRecordLayout;
using testing::ElementsAre;
using Bytes = std::vector<std::uint8_t>;

LasRecordLayout LayoutOf(const Bytes& file) {
  tarnhost::LasHeader header;
  const tarnhost::Outcome outcome = tarnhost::ParseLasHeader(file, "scan.las", header);
  EXPECT_TRUE(outcome.Ok()) << outcome.what;
  return LasRecordLayout::Of(header);
}

/// Names and types of the fields behind those of the point format: "name:type".
std::vector<std::string> ExtraFields(const LasBuilder& builder) {
  const LasRecordLayout layout = LayoutOf(builder.Build());
  std::vector<std::string> found;
  for (const LasField& field : layout.GetFields()) {
    if (field.offsetBytes < LasBuilder::FormatBytes(builder.format)) continue;
    found.push_back(field.dimension.name + ":" + ValueTypeName(field.dimension.type.value));
  }
  return found;
}

std::vector<std::string> Names(unsigned format) {
  LasBuilder builder;
  builder.format = format;
  std::vector<std::string> names;
  const LasRecordLayout layout = LayoutOf(builder.Build());
  for (const LasField& field : layout.GetFields()) names.push_back(field.dimension.name);
  return names;
}

/// Takes every record apart and puts it together again.
void ExpectRoundTrip(const LasBuilder& builder) {
  const Bytes file = builder.Build();
  const LasRecordLayout layout = LayoutOf(file);
  ASSERT_EQ(layout.GetRecordBytes(), builder.PointBytes());
  const auto pointsAt = LasBuilder::Get<std::uint32_t>(file, 96);
  for (std::size_t i = 0; i < builder.pointCount; ++i) {
    const std::uint8_t* record = file.data() + pointsAt + i * builder.PointBytes();
    Bytes again(record, record + 12);
    again.resize(builder.PointBytes());
    for (const LasField& field : layout.GetFields()) {
      Bytes value(ValueBytes(field.dimension.type));
      LasRecordLayout::Gather(field, record, value.data());
      LasRecordLayout::Scatter(field, value.data(), again.data());
    }
    ASSERT_EQ(again, Bytes(record, record + builder.PointBytes())) << "format " << builder.format;
  }
}

TEST(LasRecordLayout, NamesTheDimensionsOfOldFormats) {
  EXPECT_THAT(Names(0),
              ElementsAre("intensity", "return_number", "number_of_returns", "scan_direction_flag",
                          "edge_of_flight_line", "classification", "synthetic", "key_point",
                          "withheld", "scan_angle", "user_data", "point_source_id"));
  EXPECT_THAT(Names(5),
              ElementsAre("intensity", "return_number", "number_of_returns", "scan_direction_flag",
                          "edge_of_flight_line", "classification", "synthetic", "key_point",
                          "withheld", "scan_angle", "user_data", "point_source_id", "gps_time",
                          "DEF_COLOR", "wave_packet_index", "wave_packet_offset",
                          "wave_packet_size", "wave_packet_return_location", "wave_packet_x",
                          "wave_packet_y", "wave_packet_z"));
}

TEST(LasRecordLayout, NamesTheDimensionsOfNewFormats) {
  EXPECT_THAT(Names(10), ElementsAre("intensity", "return_number", "number_of_returns", "synthetic",
                                     "key_point", "withheld", "overlap", "scanner_channel",
                                     "scan_direction_flag", "edge_of_flight_line", "classification",
                                     "user_data", "scan_angle", "point_source_id", "gps_time",
                                     "DEF_COLOR", "nir", "wave_packet_index", "wave_packet_offset",
                                     "wave_packet_size", "wave_packet_return_location",
                                     "wave_packet_x", "wave_packet_y", "wave_packet_z"));
}

TEST(LasRecordLayout, GivesBackEveryRecordOfEveryFormatAndVersion) {
  for (unsigned minor = 0; minor <= 4; ++minor) {
    for (unsigned format = 0; format <= 10; ++format) {
      for (const std::size_t extraBytes : {std::size_t{0}, std::size_t{1}, std::size_t{29}}) {
        LasBuilder builder;
        builder.minor = minor;
        builder.format = format;
        builder.extraBytes = extraBytes;
        builder.pointCount = 20;
        builder.seed = 100 * minor + format;
        ExpectRoundTrip(builder);
      }
    }
  }
}

TEST(LasRecordLayout, GivesBackRecordsWithDescribedExtraBytes) {
  for (unsigned format = 0; format <= 10; ++format) {
    LasBuilder builder;
    builder.format = format;
    builder.extraBytes = 80;
    builder.pointCount = 20;
    std::vector<Bytes> descriptors;
    for (unsigned type = 0; type <= 14; ++type) {
      descriptors.push_back(LasBuilder::Descriptor(type, "d", type == 0 ? 3 : 0));
    }
    ExpectRoundTrip(builder.Describe(descriptors));
  }
}

// Bytes that are signalling NaNs when read as numbers must not be quietened on the way.
TEST(LasRecordLayout, KeepsNaNPayloads) {
  LasBuilder builder;
  builder.format = 4;
  builder.pointCount = 1;
  Bytes file = builder.Build();
  const auto at = LasBuilder::Get<std::uint32_t>(file, 96);
  const LasRecordLayout layout = LayoutOf(file);
  for (const LasField& field : layout.GetFields()) {
    const bool real = field.dimension.type.value == ValueType::kFloat;
    if (real) LasBuilder::Put(file, at + field.offsetBytes, std::uint32_t{0x7F800001});
    if (field.dimension.name == "gps_time") {
      LasBuilder::Put(file, at + field.offsetBytes, std::uint64_t{0xFFF0000000000001});
    }
  }
  Bytes again(builder.PointBytes());
  std::copy_n(file.begin() + at, 12, again.begin());
  for (const LasField& field : layout.GetFields()) {
    Bytes value(ValueBytes(field.dimension.type));
    LasRecordLayout::Gather(field, file.data() + at, value.data());
    LasRecordLayout::Scatter(field, value.data(), again.data());
  }
  EXPECT_EQ(again, Bytes(file.begin() + at, file.begin() + at + static_cast<int>(again.size())));
}

TEST(LasExtraBytes, TakeNamesAndTypesFromTheirDescriptors) {
  LasBuilder builder;
  builder.extraBytes = 1 + 1 + 2 + 2 + 4 + 4 + 8 + 8 + 4 + 8;
  std::vector<Bytes> descriptors;
  for (unsigned type = 1; type <= 10; ++type) {
    descriptors.push_back(LasBuilder::Descriptor(type, "t" + std::to_string(type)));
  }
  EXPECT_THAT(ExtraFields(builder.Describe(descriptors)),
              ElementsAre("t1:uint8_t", "t2:int8_t", "t3:uint16_t", "t4:int16_t", "t5:uint32_t",
                          "t6:int32_t", "t7:uint64_t", "t8:int64_t", "t9:float", "t10:double"));
}

TEST(LasExtraBytes, AreSplitWhereTheyAreArrays) {
  LasBuilder builder;
  builder.extraBytes = 2 * 2 + 3 * 8;
  builder.Describe({LasBuilder::Descriptor(13, "pair"), LasBuilder::Descriptor(30, "three")});
  EXPECT_THAT(ExtraFields(builder),
              ElementsAre("pair_0:uint16_t", "pair_1:uint16_t", "three_0:double", "three_1:double",
                          "three_2:double"));
}

TEST(LasExtraBytes, AreNumberedWhereNothingDescribesThem) {
  LasBuilder builder;
  builder.extraBytes = 5;
  builder.Describe({LasBuilder::Descriptor(0, "ignored", 2), LasBuilder::Descriptor(3, "two")});
  EXPECT_THAT(ExtraFields(builder),
              ElementsAre("extra_0:uint8_t", "extra_1:uint8_t", "two:uint16_t", "extra_2:uint8_t"));
}

TEST(LasExtraBytes, AreRawFromTheFirstTypeOfUnknownSizeOn) {
  LasBuilder builder;
  builder.extraBytes = 3;
  builder.Describe({LasBuilder::Descriptor(31, "later"), LasBuilder::Descriptor(1, "never")});
  EXPECT_THAT(ExtraFields(builder),
              ElementsAre("extra_0:uint8_t", "extra_1:uint8_t", "extra_2:uint8_t"));
}

TEST(LasExtraBytes, AreRawWhereMoreIsDescribedThanTheRecordHas) {
  LasBuilder builder;
  builder.extraBytes = 3;
  builder.Describe({LasBuilder::Descriptor(1, "fits"), LasBuilder::Descriptor(10, "does not")});
  EXPECT_THAT(ExtraFields(builder),
              ElementsAre("fits:uint8_t", "extra_0:uint8_t", "extra_1:uint8_t"));
}

TEST(LasExtraBytes, GoOnFromOneRecordToTheNext) {
  LasBuilder builder;
  builder.extraBytes = 3;
  builder.Describe({LasBuilder::Descriptor(1, "a")}).Describe({LasBuilder::Descriptor(3, "b")});
  EXPECT_THAT(ExtraFields(builder), ElementsAre("a:uint8_t", "b:uint16_t"));
}

TEST(LasExtraBytes, GetSuffixesWhereNamesCollideOrAreReserved) {
  LasBuilder builder;
  builder.extraBytes = 9;
  std::vector<Bytes> descriptors;
  for (const char* name : {"a", "a", "a", "", "", "intensity", "x", "DEF_COLOR", "DEF_POSITION"}) {
    descriptors.push_back(LasBuilder::Descriptor(1, name));
  }
  EXPECT_THAT(ExtraFields(builder.Describe(descriptors)),
              ElementsAre("a:uint8_t", "a_2:uint8_t", "a_3:uint8_t", "extra:uint8_t",
                          "extra_2:uint8_t", "intensity_2:uint8_t", "x_2:uint8_t",
                          "DEF_COLOR_2:uint8_t", "DEF_POSITION_2:uint8_t"));
}

TEST(LasExtraBytes, MayTakeANameThatASuffixWouldMake) {
  LasBuilder builder;
  builder.extraBytes = 3;
  builder.Describe({LasBuilder::Descriptor(1, "a_2"), LasBuilder::Descriptor(1, "a"),
                    LasBuilder::Descriptor(1, "a")});
  EXPECT_THAT(ExtraFields(builder), ElementsAre("a_2:uint8_t", "a:uint8_t", "a_3:uint8_t"));
}

TEST(LasExtraBytes, EndTheirNamesAtTheFirstNulOrAfter32Bytes) {
  LasBuilder builder;
  builder.extraBytes = 2;
  builder.Describe({LasBuilder::Descriptor(1, std::string("ab\0cd", 5)),
                    LasBuilder::Descriptor(1, std::string(32, 'n'), 0, std::string(32, 't'))});
  EXPECT_THAT(ExtraFields(builder), ElementsAre("ab:uint8_t", std::string(32, 'n') + ":uint8_t"));
  EXPECT_EQ(LayoutOf(builder.Build()).GetFields().back().dimension.description,
            std::string(32, 't'));
}

}  // namespace
