// Which metadata a query may ask of a cloud, and as what type.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <numeric>

#include "host/select/QueryTyping.h"
#include "tests/host/select/HandMadeCloud.h"
#include "tests/host/select/SelectFixture.h"

namespace {

using oocpc::ValueType;
using oocpctest::ImportedCloud;
using oocpctest::LasPoints;
using oocpctest::LasRecipe;
using oocpctest::Succeeded;
using tarnhost::ClauseType;
using tarnhost::Outcome;
using tarnhost::RecordField;
using ::testing::AllOf;
using ::testing::HasSubstr;

constexpr std::array<ClauseType, 5> kTypes{ClauseType::kUInt8, ClauseType::kInt, ClauseType::kFloat,
                                           ClauseType::kDouble, ClauseType::kString};

Outcome Fit(tarnhost::Cloud& cloud, const std::string& text,
            std::vector<RecordField>* fields = nullptr) {
  std::vector<tarnhost::QueryClause> clauses;
  tarnhost::QueryDiagnosis diagnosis;
  EXPECT_TRUE(tarnhost::ReadQueryText(text, clauses, diagnosis)) << text;
  std::vector<RecordField> own;
  return tarnhost::FitQueryToCloud(cloud, {text}, clauses, fields == nullptr ? own : *fields);
}

std::string Comparison(const std::string& name, ClauseType type) {
  const std::string value = type == ClauseType::kString ? "\"1\"" : "1";
  return std::string("#num{type=") + tarnhost::ClauseTypeWord(type) + "}(\"" + name + "\",==," +
         value + ")";
}

/// The letters of the types that a name may be asked as: u, i, f, d, s.
std::string TypesThatFit(tarnhost::Cloud& cloud, const std::string& name) {
  std::string letters;
  for (const ClauseType type : kTypes) {
    if (Fit(cloud, Comparison(name, type)).Ok()) letters += tarnhost::ClauseTypeWord(type)[0];
  }
  return letters;
}

LasRecipe WithExtraBytes(bool wide) {
  LasRecipe recipe;
  recipe.format = 3;
  recipe.extraBytes = true;
  recipe.wideExtra = wide;
  recipe.pointCount = 2000;
  return recipe;
}

TEST(QueryTyping, KnowsWhatConvertsWithoutLossWhateverTheValues) {
  const auto fitting = [](ValueType stored) {
    std::string letters;
    for (const ClauseType type : kTypes) {
      if (tarnhost::ConvertsWithoutLoss(stored, type)) letters += tarnhost::ClauseTypeWord(type)[0];
    }
    return letters;
  };
  EXPECT_EQ(fitting(ValueType::kUInt8), "uifd");
  EXPECT_EQ(fitting(ValueType::kInt8), "ifd");
  EXPECT_EQ(fitting(ValueType::kUInt16), "ifd");
  EXPECT_EQ(fitting(ValueType::kInt16), "ifd");
  EXPECT_EQ(fitting(ValueType::kUInt32), "d");
  EXPECT_EQ(fitting(ValueType::kInt32), "id");
  EXPECT_EQ(fitting(ValueType::kUInt64), "");
  EXPECT_EQ(fitting(ValueType::kInt64), "");
  EXPECT_EQ(fitting(ValueType::kFloat), "fd");
  EXPECT_EQ(fitting(ValueType::kDouble), "d");
  EXPECT_EQ(fitting(ValueType::kString), "s");
}

TEST(QueryTyping, TakesTheTypesThatHoldAllValuesOfWideColumns) {
  const ImportedCloud imported(oocpctest::MakeLas(WithExtraBytes(true)));
  ASSERT_NE(imported.cloud, nullptr);
  const std::array<std::string, 10> expected{"uifd", "ifd", "ifd", "ifd", "d",
                                             "id",   "",    "",    "fd",  "d"};
  for (std::size_t i = 0; i < expected.size(); ++i) {
    EXPECT_EQ(TypesThatFit(*imported.cloud, oocpctest::kExtraNames[i]), expected[i])
        << oocpctest::kExtraNames[i];
  }
}

TEST(QueryTyping, TakesNarrowTypesForWideColumnsWhoseValuesAreSmall) {
  const ImportedCloud imported(oocpctest::MakeLas(WithExtraBytes(false)));
  ASSERT_NE(imported.cloud, nullptr);
  for (std::size_t i = 0; i < 8; ++i) {
    EXPECT_EQ(TypesThatFit(*imported.cloud, oocpctest::kExtraNames[i]), "uifd")
        << oocpctest::kExtraNames[i];
  }
  EXPECT_EQ(TypesThatFit(*imported.cloud, "f32"), "fd");
  EXPECT_EQ(TypesThatFit(*imported.cloud, "f64"), "d");
}

TEST(QueryTyping, TakesATypeDownToTheLeastIntegerThatItHolds) {
  oocpctest::HandMadeRecipe recipe;
  recipe.xyz = {0, 0, 0, 1, 0, 0};
  recipe.nodes = {2};
  const auto add = [&](const char* name, std::int64_t least) {
    oocpctest::ByteVector values;
    for (const std::int64_t value : {least, std::int64_t{1}}) {
      oocpc::AppendLittleEndian(values, value);
    }
    recipe.columns.push_back({name, {ValueType::kInt64, 1}, values});
  };
  add("of_int", std::numeric_limits<std::int32_t>::min());
  add("below_int", std::int64_t{std::numeric_limits<std::int32_t>::min()} - 1);
  add("of_float", -(1 << 24));
  add("below_float", -(1 << 24) - 1);
  add("of_double", -(std::int64_t{1} << 53));
  add("below_double", -(std::int64_t{1} << 53) - 1);
  const oocpctest::HandMadeCloud made(recipe);
  ASSERT_NE(made.cloud, nullptr);
  EXPECT_EQ(TypesThatFit(*made.cloud, "of_int"), "id");
  EXPECT_EQ(TypesThatFit(*made.cloud, "below_int"), "d");
  EXPECT_EQ(TypesThatFit(*made.cloud, "of_float"), "ifd");
  EXPECT_EQ(TypesThatFit(*made.cloud, "below_float"), "id");
  EXPECT_EQ(TypesThatFit(*made.cloud, "of_double"), "d");
  EXPECT_EQ(TypesThatFit(*made.cloud, "below_double"), "");
}

TEST(QueryTyping, OffersCoordinatesAndColorsByTheirOwnNames) {
  const ImportedCloud imported(oocpctest::MakeLas(WithExtraBytes(true)));
  ASSERT_NE(imported.cloud, nullptr);
  for (const char* const name : {"x", "y", "z"}) {
    EXPECT_EQ(TypesThatFit(*imported.cloud, name), "d") << name;
  }
  for (const char* const name : {"red", "green", "blue"}) {
    EXPECT_EQ(TypesThatFit(*imported.cloud, name), "ifd") << name;
  }
  EXPECT_EQ(TypesThatFit(*imported.cloud, "DEF_POSITION"), "");
  EXPECT_EQ(TypesThatFit(*imported.cloud, "DEF_COLOR"), "");
  const std::vector<std::string> names = tarnhost::ListQueryNames(*imported.cloud);
  EXPECT_THAT(names, ::testing::IsSupersetOf({"x", "y", "z", "red", "green", "blue", "intensity",
                                              "gps_time", "u8", "f64"}));
  EXPECT_THAT(names, ::testing::Not(::testing::Contains("DEF_COLOR")));
}

TEST(QueryTyping, HasNoColorsInACloudWithoutColor) {
  const ImportedCloud imported(oocpctest::MakeLas(LasRecipe{}));
  ASSERT_NE(imported.cloud, nullptr);
  EXPECT_EQ(TypesThatFit(*imported.cloud, "red"), "");
  EXPECT_THAT(tarnhost::ListQueryNames(*imported.cloud),
              ::testing::Not(::testing::Contains("red")));
}

TEST(QueryTyping, TakesAnyNumericTypeInACloudWithoutPoints) {
  LasRecipe recipe = WithExtraBytes(true);
  recipe.pointCount = 0;
  const ImportedCloud imported(oocpctest::MakeLas(recipe));
  ASSERT_NE(imported.cloud, nullptr);
  EXPECT_EQ(TypesThatFit(*imported.cloud, "u64"), "uifd");
  EXPECT_EQ(TypesThatFit(*imported.cloud, "f64"), "d");
}

struct Refusal {
  std::string text;
  std::size_t caret;
  std::string what;
  std::string remedy;
};

TEST(QueryTyping, RefusesWithThePlaceAndWhatWouldWork) {
  const ImportedCloud imported(oocpctest::MakeLas(WithExtraBytes(true)));
  ASSERT_NE(imported.cloud, nullptr);
  const std::vector<Refusal> refusals{
      {R"(#num{type=int}("Intensity",==,1))", 16, "no metadata \"Intensity\"",
       "did you mean \"intensity\"?"},
      {R"(#num{type=int}("clasification",==,1))", 16, "it has intensity, ",
       "did you mean \"classification\"?"},
      {R"(#num{type=int}("temperature!?",==,1))", 16, "no metadata", "use one of these names"},
      {R"(#num{type=int}("DEF_COLOR",==,1))", 16, "3 values a point", "ask for red, green or blue"},
      {R"(#num{type=int}("DEF_POSITION",==,1))", 16, "cannot be compared", "ask for x, y or z"},
      {R"(#num{type=int}("gps_time",==,1))", 10, "stored as double, and int does not hold",
       "ask for it with type=double"},
      {R"(#num{type=uint8_t}("intensity",==,1))", 10, "stored as uint16_t",
       "ask for it with type=int or float or double"},
      {R"(#num{type=string}("intensity",==,"1"))", 10, "string does not hold",
       "ask for it with type=int or float or double"},
      {R"(#num{type=double}("u64",==,1))", 10, "uint64_t", "no type of the query language"},
      {R"(#and(#num{type=int}("intensity",==,1),#num{type=double}("intensity",==,1)))", 48,
       "asked as double here and as int before; here points are tested as records",
       "use one type for one name"},
  };
  for (const Refusal& refusal : refusals) {
    SCOPED_TRACE(refusal.text);
    const Outcome outcome = Fit(*imported.cloud, refusal.text);
    EXPECT_EQ(outcome.code, oocpc::result::kQueryRejected);
    EXPECT_EQ(outcome.where, refusal.text + "\n" + std::string(refusal.caret, ' ') + "^");
    EXPECT_THAT(outcome.what, HasSubstr(refusal.what));
    EXPECT_THAT(outcome.remedy, HasSubstr(refusal.remedy));
  }
}

TEST(QueryTyping, ListsEachNameOnceAndPositionsOnce) {
  const ImportedCloud imported(oocpctest::MakeLas(WithExtraBytes(true)));
  ASSERT_NE(imported.cloud, nullptr);
  std::vector<RecordField> fields;
  ASSERT_TRUE(Succeeded(Fit(
      *imported.cloud,
      R"(#or(#distance(1,2,3,4),#num{type=int}("green",>,1),#num{type=int}("green",<,9),)"
      R"(#within{type=2dbox}(1,2,3,4),#num{type=double}("y",>,1),#within{type=closedMesh}("m")))",
      &fields)));
  ASSERT_EQ(fields.size(), 3u);
  EXPECT_EQ(fields[0].name, "DEF_POSITION");
  EXPECT_EQ(fields[0].source, RecordField::Source::kPosition);
  EXPECT_EQ(fields[1].name, "green");
  EXPECT_EQ(fields[1].column, "DEF_COLOR");
  EXPECT_EQ(fields[1].component, 1);
  EXPECT_EQ(fields[2].source, RecordField::Source::kCoordinate);
  EXPECT_EQ(fields[2].component, 1);
}

/// The value of an extra dimension out of a record of format 3, as a double.
double ExtraValue(const std::string& record, std::size_t dimension) {
  const std::size_t at = std::accumulate(
      oocpctest::kExtraBytes.begin(),
      oocpctest::kExtraBytes.begin() + static_cast<std::ptrdiff_t>(dimension), std::size_t{34});
  const oocpctest::ByteVector bytes(record.begin(), record.end());
  switch (dimension) {
    case 0:
      return oocpctest::GetAt<std::uint8_t>(bytes, at);
    case 1:
      return oocpctest::GetAt<std::int8_t>(bytes, at);
    case 2:
      return oocpctest::GetAt<std::uint16_t>(bytes, at);
    case 3:
      return oocpctest::GetAt<std::int16_t>(bytes, at);
    case 4:
      return oocpctest::GetAt<std::uint32_t>(bytes, at);
    case 5:
      return oocpctest::GetAt<std::int32_t>(bytes, at);
    case 6:
      return static_cast<double>(oocpctest::GetAt<std::uint64_t>(bytes, at));
    case 7:
      return static_cast<double>(oocpctest::GetAt<std::int64_t>(bytes, at));
    case 8:
      return oocpctest::GetAt<float>(bytes, at);
    default:
      return oocpctest::GetAt<double>(bytes, at);
  }
}

/// Asks every extra dimension as every type that it fits, for more than the value of some point.
void CompareExtraDimensions(bool wide) {
  const LasPoints points(oocpctest::MakeLas(WithExtraBytes(wide)));
  const ImportedCloud imported(oocpctest::MakeLas(WithExtraBytes(wide)));
  ASSERT_NE(imported.cloud, nullptr);
  std::size_t compared = 0;
  for (std::size_t i = 0; i < oocpctest::kExtraNames.size(); ++i) {
    const double bound = ExtraValue(points.GetRecord(i * 100), i);
    std::uint64_t expected = 0;
    for (std::uint64_t point = 0; point < points.GetCount(); ++point) {
      if (ExtraValue(points.GetRecord(point), i) > bound) ++expected;
    }
    for (const char* const type : {"uint8_t", "int", "float", "double"}) {
      char text[120];
      std::snprintf(text, sizeof text, "#num{type=%s}(\"%s\", >, %.17g)", type,
                    oocpctest::kExtraNames[i], bound);
      std::vector<tarnhost::QueryClause> clauses;
      tarnhost::QueryDiagnosis diagnosis;
      if (!tarnhost::ReadQueryText(text, clauses, diagnosis)) continue;
      if (!Fit(*imported.cloud, text).Ok()) continue;
      EXPECT_EQ(oocpctest::Selected(*imported.cloud, text).count, expected) << text;
      ++compared;
    }
  }
  EXPECT_GT(compared, wide ? 15u : 30u);
}

TEST(QueryTyping, ConvertsWideValuesWithoutLoss) { CompareExtraDimensions(true); }

TEST(QueryTyping, ConvertsSmallValuesWithoutLoss) { CompareExtraDimensions(false); }

}  // namespace
