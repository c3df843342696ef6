// Comparisons of blocks in the form in which they are stored, beside a plain reading of the values.
#include <gtest/gtest.h>

#include <random>

#include "tests/host/select/HandMadeCloud.h"

namespace {

using oocpc::BlockEncoding;
using oocpc::ColumnType;
using oocpc::ValueType;
using oocpctest::HandMadeCloud;
using oocpctest::HandMadeRecipe;
using oocpctest::MarkingSink;
using oocpctest::Query;
using oocpctest::Succeeded;
using Random = std::mt19937_64;

constexpr ColumnType kColors{ValueType::kUInt16, 3};
constexpr ColumnType kText{ValueType::kString, 1};
constexpr std::size_t kPoints = 1000;  // the last run and the last word of a mask are not full

/// One node of points on the x axis with one column.
template <typename T>
HandMadeRecipe OneBlock(const std::string& name, ColumnType type, const std::vector<T>& numbers) {
  HandMadeRecipe recipe;
  for (const T number : numbers) {
    recipe.columns.resize(1);
    oocpc::AppendLittleEndian(recipe.columns[0].values, number);
  }
  recipe.columns[0].name = name;
  recipe.columns[0].type = type;
  const std::size_t count = numbers.size() / type.components;
  recipe.nodes = {static_cast<std::uint32_t>(count)};
  for (std::size_t i = 0; i < count; ++i) {
    recipe.xyz.insert(recipe.xyz.end(), {static_cast<std::int32_t>(i), 0, 0});
  }
  return recipe;
}

BlockEncoding EncodingOf(const HandMadeRecipe& recipe) {
  return oocpc::EncodeBlock(recipe.columns[0].type, recipe.columns[0].values).entry.encoding;
}

struct Answer {
  std::vector<bool> selected;
  tarnhost::ColumnReport read;
};

Answer Ask(const HandMadeCloud& made, const std::string& text, std::size_t count) {
  tarnhost::SelectOptions options = Query(text);
  options.explain = true;
  MarkingSink marks;
  tarnhost::SelectReport report;
  EXPECT_TRUE(Succeeded(tarnhost::Select(*made.cloud, options, &marks, report))) << text;
  Answer answer{marks.Get(count), {}};
  if (report.plan && !report.plan->columns.empty()) answer.read = report.plan->columns[0];
  return answer;
}

/// Asks for each component by itself, with several bounds, and expects that nothing is decoded.
void ExpectColorsComparedAsStored(const std::vector<std::uint16_t>& colors,
                                  BlockEncoding encoding) {
  const HandMadeRecipe recipe = OneBlock("DEF_COLOR", kColors, colors);
  ASSERT_EQ(EncodingOf(recipe), encoding);
  const HandMadeCloud made(recipe);
  ASSERT_NE(made.cloud, nullptr);
  static constexpr const char* kNames[] = {"red", "green", "blue"};
  for (std::size_t k = 0; k < 3; ++k) {
    for (const std::size_t bound : {0, 17, 500, 999}) {
      const std::uint16_t constant = colors[3 * bound + k];
      const Answer answer = Ask(
          made,
          std::string("#num{type=int}(\"") + kNames[k] + "\", >, " + std::to_string(constant) + ")",
          kPoints);
      std::vector<bool> expected(kPoints);
      for (std::size_t i = 0; i < kPoints; ++i) expected[i] = colors[3 * i + k] > constant;
      ASSERT_EQ(answer.selected, expected) << kNames[k] << " > " << constant;
      EXPECT_EQ(answer.read.blocksDecoded, 0u);
      EXPECT_EQ(answer.read.bytesDecoded, 0u);
    }
  }
}

TEST(ColorsInStoredForm, AreComparedWhereTheyAreBitPacked) {
  Random random(1);
  std::vector<std::uint16_t> colors;
  static constexpr unsigned kSpans[] = {700, 90, 5000};
  for (std::size_t i = 0; i < 3 * kPoints; ++i) {
    colors.push_back(static_cast<std::uint16_t>(300 + random() % kSpans[i % 3]));
  }
  ExpectColorsComparedAsStored(colors, BlockEncoding::kBitPacked);
}

TEST(ColorsInStoredForm, AreComparedWhereTheyAreInRuns) {
  Random random(2);
  std::vector<std::uint16_t> colors;
  for (std::size_t i = 0; i < 3 * kPoints; ++i) {
    const std::size_t run = i / 3 / 128;
    colors.push_back(static_cast<std::uint16_t>(run * 7919 % 60000 + random() % (90 + 40 * run)));
  }
  ExpectColorsComparedAsStored(colors, BlockEncoding::kRuns);
}

TEST(ColorsInStoredForm, AreComparedWhereTheyAreRaw) {
  Random random(3);
  std::vector<std::uint16_t> colors;
  for (std::size_t i = 0; i < 3 * kPoints; ++i) {
    colors.push_back(static_cast<std::uint16_t>(random()));
  }
  ExpectColorsComparedAsStored(colors, BlockEncoding::kRaw);
}

TEST(ColorsInStoredForm, AreNotReadWhereABlockHasOneColor) {
  std::vector<std::uint16_t> colors;
  for (std::size_t i = 0; i < kPoints; ++i) colors.insert(colors.end(), {10, 20, 30});
  const HandMadeRecipe recipe = OneBlock("DEF_COLOR", kColors, colors);
  ASSERT_EQ(EncodingOf(recipe), BlockEncoding::kConstant);
  const HandMadeCloud made(recipe);
  ASSERT_NE(made.cloud, nullptr);
  const Answer green = Ask(made, "#num{type=int}(\"green\", ==, 20)", kPoints);
  EXPECT_EQ(green.selected, std::vector<bool>(kPoints, true));
  EXPECT_EQ(green.read.bytesRead, 0u);
  const Answer blue = Ask(made, "#num{type=int}(\"blue\", ==, 20)", kPoints);
  EXPECT_EQ(blue.selected, std::vector<bool>(kPoints, false));
  EXPECT_EQ(blue.read.bytesRead, 0u);
}

TEST(ColorsInStoredForm, AreNotReadWhereLeastAndGreatestOfTheComponentDecide) {
  Random random(4);
  std::vector<std::uint16_t> colors;
  for (std::size_t i = 0; i < kPoints; ++i) {
    for (const unsigned base : {0u, 1000u, 2000u}) {
      colors.push_back(static_cast<std::uint16_t>(base + random() % 500));
    }
  }
  const HandMadeCloud made(OneBlock("DEF_COLOR", kColors, colors));
  ASSERT_NE(made.cloud, nullptr);
  for (const char* const text :
       {"#num{type=int}(\"red\", <, 500)", "#num{type=int}(\"green\", >=, 1000)",
        "#num{type=int}(\"blue\", !=, 1000)"}) {
    const Answer answer = Ask(made, text, kPoints);
    EXPECT_EQ(answer.selected, std::vector<bool>(kPoints, true)) << text;
    EXPECT_EQ(answer.read.bytesRead, 0u) << text;
  }
}

/// Names that stand in the dictionary in turn: a0, b0, a1, b1, ...
std::vector<std::string> AlternatingNames(std::size_t count) {
  std::vector<std::string> names;
  for (std::size_t i = 0; i < count; ++i) {
    names.push_back((i % 2 == 0 ? "a" : "b") + std::to_string(i / 2));
  }
  return names;
}

struct StringCase {
  std::string comparison;
  std::function<bool(const std::string&)> holds;
};

/// One run of the dictionary, two, and one for every second string.
const std::vector<StringCase> kStringCases{
    {"==, \"a3\"", [](const std::string& text) { return text == "a3"; }},
    {"!=, \"b7\"", [](const std::string& text) { return text != "b7"; }},
    {"<, \"b\"", [](const std::string& text) { return text < "b"; }},
    {">=, \"b\"", [](const std::string& text) { return text >= "b"; }},
};

/// Asks all cases and says how many blocks were decoded for that.
void CompareStrings(const std::vector<std::uint32_t>& indices,
                    const std::vector<std::string>& names, std::uint64_t blocksDecoded) {
  HandMadeRecipe recipe = OneBlock("flight", kText, indices);
  recipe.strings = names;
  const HandMadeCloud made(recipe);
  ASSERT_NE(made.cloud, nullptr);
  for (const StringCase& asked : kStringCases) {
    const Answer answer =
        Ask(made, "#num{type=string}(\"flight\", " + asked.comparison + ")", indices.size());
    std::vector<bool> expected;
    for (const std::uint32_t index : indices) expected.push_back(asked.holds(names[index]));
    ASSERT_EQ(answer.selected, expected) << asked.comparison;
    EXPECT_EQ(answer.read.blocksDecoded, blocksDecoded) << asked.comparison;
  }
}

TEST(StringsInStoredForm, AreComparedWhereTheirIndicesAreBitPacked) {
  Random random(5);
  for (const std::size_t names : {40, 300, 70000}) {
    std::vector<std::uint32_t> indices;
    for (std::size_t i = 0; i < kPoints; ++i) {
      indices.push_back(static_cast<std::uint32_t>(random() % names));
    }
    const HandMadeRecipe recipe = OneBlock("flight", kText, indices);
    ASSERT_EQ(EncodingOf(recipe), BlockEncoding::kBitPacked);
    ASSERT_NO_FATAL_FAILURE(CompareStrings(indices, AlternatingNames(names), 0));
  }
}

TEST(StringsInStoredForm, AreComparedAlikeWhereTheyHaveToBeDecoded) {
  std::vector<std::uint32_t> indices;
  for (std::uint32_t i = 0; i < kPoints; ++i) indices.push_back(i / 9);
  const HandMadeRecipe recipe = OneBlock("flight", kText, indices);
  ASSERT_EQ(EncodingOf(recipe), BlockEncoding::kResiduals);
  CompareStrings(indices, AlternatingNames(200), 1);
}

TEST(StringsInStoredForm, HaveTheirStraysFoundWhicheverWayTheyAreCompared) {
  Random random(6);
  std::vector<std::uint32_t> indices;
  for (std::size_t i = 0; i < kPoints; ++i) {
    indices.push_back(static_cast<std::uint32_t>(random() % 40));
  }
  indices[777] = 40;
  HandMadeRecipe recipe = OneBlock("flight", kText, indices);
  ASSERT_EQ(EncodingOf(recipe), BlockEncoding::kBitPacked);
  recipe.strings = AlternatingNames(40);
  const HandMadeCloud made(recipe);
  ASSERT_NE(made.cloud, nullptr);
  for (const StringCase& asked : kStringCases) {
    tarnhost::SelectReport report;
    const tarnhost::Outcome outcome = tarnhost::Select(
        *made.cloud, Query("#num{type=string}(\"flight\", " + asked.comparison + ")"), nullptr,
        report);
    EXPECT_EQ(outcome.code, oocpc::result::kStringNotFound) << asked.comparison;
  }
}

}  // namespace
