// Words of text as numbers and values, lines, and the names that fields get.
#include <OOCPointCloud/ResultCodes.h>
#include <gmock/gmock.h>

#include <charconv>
#include <cmath>
#include <limits>
#include <random>

#include "host/formats/converted/FieldNames.h"
#include "host/formats/converted/LineIndex.h"
#include "host/formats/converted/NumberText.h"

namespace {

using oocpc::ValueType;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

double Real(std::string_view word) {
  double value = 0;
  EXPECT_TRUE(tarnhost::ParseReal(word, value)) << word;
  return value;
}

bool IsValue(std::string_view word, ValueType type) {
  std::uint8_t bytes[8];
  return tarnhost::ParseValue(word, type, bytes);
}

TEST(ParseReal, ReadsWholeWordsOnly) {
  EXPECT_EQ(Real("+1.5e3"), 1500);
  EXPECT_EQ(Real("-.5"), -0.5);
  EXPECT_TRUE(std::isnan(Real("nan")));
  EXPECT_TRUE(std::isinf(Real("-inf")));
  double value = 0;
  for (const char* word : {"", "+", "-", "+-1", "1,5", "1 ", " 1", "0x10", "one", "1.5.2"}) {
    EXPECT_FALSE(tarnhost::ParseReal(word, value)) << word;
  }
}

TEST(ParseReal, MakesNumbersOutOfRangeInfiniteOrZero) {
  EXPECT_EQ(Real("1e999"), std::numeric_limits<double>::infinity());
  EXPECT_EQ(Real("-1e999"), -std::numeric_limits<double>::infinity());
  EXPECT_EQ(Real("1e-999"), 0);
  EXPECT_EQ(Real("0." + std::string(400, '0') + "1"), 0);
  EXPECT_EQ(Real("1" + std::string(400, '0')), std::numeric_limits<double>::infinity());
}

TEST(ParseValue, HoldsTheWordToTheType) {
  EXPECT_TRUE(IsValue("255", ValueType::kUInt8));
  EXPECT_TRUE(IsValue("255.0", ValueType::kUInt8));
  EXPECT_TRUE(IsValue("2.5e1", ValueType::kUInt8));
  for (const char* word : {"256", "-1", "1.5", "nan", "a"}) {
    EXPECT_FALSE(IsValue(word, ValueType::kUInt8)) << word;
  }
  EXPECT_TRUE(IsValue("-128", ValueType::kInt8));
  EXPECT_FALSE(IsValue("128", ValueType::kInt8));
  EXPECT_FALSE(IsValue("65536", ValueType::kUInt16));
  EXPECT_FALSE(IsValue("-32769", ValueType::kInt16));
  EXPECT_FALSE(IsValue("4294967296", ValueType::kUInt32));
  EXPECT_FALSE(IsValue("2147483648", ValueType::kInt32));
  EXPECT_TRUE(IsValue("18446744073709551615", ValueType::kUInt64));
  EXPECT_FALSE(IsValue("1e20", ValueType::kUInt64));
  EXPECT_FALSE(IsValue("9223372036854775808", ValueType::kInt64));
  EXPECT_TRUE(IsValue("1e300", ValueType::kFloat));  // infinite, as a float
  EXPECT_FALSE(IsValue("text", ValueType::kFloat));
  EXPECT_FALSE(IsValue("text", ValueType::kDouble));
  EXPECT_FALSE(IsValue("text", ValueType::kString));
}

TEST(SplitWords, SplitsAtBlanksAndAtSeparators) {
  std::vector<std::string_view> words;
  tarnhost::SplitWords("  a\t b  ", words);
  EXPECT_THAT(words, ElementsAre("a", "b"));
  tarnhost::SplitWords("a, b ,,\"c, d\" ,", ',', words);
  EXPECT_THAT(words, ElementsAre("a", "b", "", "c, d", ""));
  tarnhost::SplitWords("a\t\tb", '\t', words);
  EXPECT_THAT(words, ElementsAre("a", "", "b"));
  tarnhost::SplitWords("\"open", ',', words);
  EXPECT_THAT(words, ElementsAre("open"));
  tarnhost::SplitWords("", words);
  EXPECT_THAT(words, IsEmpty());
}

TEST(IndexLines, CountsLinesAndRows) {
  const std::string text = "heading\n\n# comment\n1\r\n  \n// note\n2";
  tarnhost::SharedProgress progress{{}};
  std::vector<tarnhost::LineStretch> stretches;
  ASSERT_TRUE(tarnhost::IndexLines(text, 8, 2, progress, stretches).Ok());
  ASSERT_EQ(stretches.size(), 1u);
  EXPECT_EQ(stretches[0].rows, 2u);
  std::vector<std::uint64_t> lines;
  tarnhost::ForEachRow(text, stretches[0], [&](const tarnhost::TextRow& row) {
    lines.push_back(row.lineNumber);
    return true;
  });
  EXPECT_THAT(lines, ElementsAre(4, 7));
}

TEST(IndexLines, StopsWhenAskedTo) {
  tarnhost::SharedProgress progress([](std::uint64_t done) { return done == 0; });
  std::vector<tarnhost::LineStretch> stretches;
  EXPECT_EQ(tarnhost::IndexLines("1 2 3\n", 0, 1, progress, stretches).code,
            oocpc::result::kStopped);
}

TEST(SplitWords, StopsAfterAsManyAsAreWanted) {
  std::vector<std::string_view> words;
  tarnhost::SplitWords("a b c", words, 2);
  EXPECT_THAT(words, ElementsAre("a", "b"));
  tarnhost::SplitWords("a,b,c", ',', words, 1);
  EXPECT_THAT(words, ElementsAre("a"));
}

TEST(SplitWords, TakesTwoQuotationMarksWithinQuotesForOne) {
  std::vector<std::string_view> words;
  tarnhost::SplitWords("\"a \"\"b\"\", c\",2", ',', words);
  ASSERT_THAT(words, ElementsAre("a \"\"b\"\", c", "2"));
  EXPECT_EQ(tarnhost::Unquoted(words[0]), "a \"b\", c");
}

/// What the plain way of reading numbers gives.
template <typename T>
void ExpectSameBits(const std::string& word, T value) {
  T expected = 0;
  const auto [stop, error] = std::from_chars(word.data(), word.data() + word.size(), expected);
  ASSERT_EQ(error, std::errc()) << word;
  EXPECT_EQ(value, expected) << word;
  EXPECT_EQ(std::signbit(value), std::signbit(expected)) << word;
}

TEST(ParseReal, GivesTheSameBitsForPlainNumbersAsTheStandardLibrary) {
  std::mt19937_64 random(11);
  for (int i = 0; i < 200000; ++i) {
    std::string word = random() % 3 == 0 ? "-" : "";
    const std::size_t before = random() % 12;
    const std::size_t behind = random() % 12;
    for (std::size_t k = 0; k < before; ++k) word += static_cast<char>('0' + random() % 10);
    if (before == 0 || random() % 4 != 0) word += '.';
    if (word.back() == '.') {
      for (std::size_t k = 0; k < behind + (before == 0 ? 1 : 0); ++k) {
        word += static_cast<char>('0' + random() % 10);
      }
    }
    double value = 1;
    ASSERT_TRUE(tarnhost::ParseReal(word, value)) << word;
    EXPECT_TRUE(tarnhost::IsReal(word)) << word;
    ExpectSameBits(word, value);
    float narrow = 1;
    ASSERT_TRUE(tarnhost::ParseFloat(word, narrow)) << word;
    ExpectSameBits(word, narrow);
  }
}

TEST(ParseShortInteger, ReadsWhatHasUpToEighteenDigits) {
  std::int64_t value = 0;
  EXPECT_TRUE(tarnhost::ParseShortInteger("999999999999999999", value));
  EXPECT_EQ(value, 999999999999999999);
  EXPECT_TRUE(tarnhost::ParseShortInteger("-007", value));
  EXPECT_EQ(value, -7);
  for (const char* word : {"", "-", "+1", "1.0", "1000000000000000000", "--1", "1e3", " 1"}) {
    EXPECT_FALSE(tarnhost::ParseShortInteger(word, value)) << word;
  }
}

TEST(IsReal, AnswersAsReadingDoes) {
  for (const char* word : {"",    "-",     "+",        ".",   "-.",
                           "1",   "-1",    "+1",       "+-1", "1.",
                           ".1",  "1.2.3", "1e5",      "1e",  "e5",
                           "nan", "-inf",  "infinity", "0x1", "1e999",
                           "1,5", " 1",    "1 ",       "--1", "12345678901234567890.5"}) {
    double value = 0;
    EXPECT_EQ(tarnhost::IsReal(word), tarnhost::ParseReal(word, value)) << word;
  }
}

TEST(Quoted, ShowsNothingThatATerminalShouldNotSee) {
  EXPECT_EQ(tarnhost::Quoted("a\x1B[2Jb"), "\"a?[2Jb\"");
  EXPECT_EQ(tarnhost::Quoted(std::string(50, 'a')), "\"" + std::string(40, 'a') + "…\"");
}

TEST(LayOutFields, GivesEachNameOnceAndReservedOnesToNobody) {
  const std::vector<tarnhost::ScanField> fields{{"a", ValueType::kUInt8, {}},
                                                {"a", ValueType::kDouble, {}},
                                                {"x", ValueType::kInt16, {}},
                                                {"red", ValueType::kUInt8, {}},
                                                {"", ValueType::kUInt8, {}}};
  const tarnhost::FieldLayout layout = tarnhost::LayOutFields({}, fields);
  std::vector<std::string> names;
  for (const auto& dimension : layout.dimensions) names.push_back(dimension.name);
  EXPECT_THAT(names, ElementsAre("a", "a_2", "x_2", "red_2", "field"));
  EXPECT_EQ(layout.recordBytes, 12u + 1 + 8 + 2 + 1 + 1);
}

TEST(LayOutFields, MakesOneColourOfThreeFieldsWhereverTheyStand) {
  const std::vector<tarnhost::ScanField> fields{{"B", ValueType::kUInt16, {}},
                                                {"quality", ValueType::kFloat, {}},
                                                {"R", ValueType::kUInt16, {}},
                                                {"G", ValueType::kUInt16, {}}};
  const tarnhost::FieldLayout layout = tarnhost::LayOutFields({}, fields);
  ASSERT_EQ(layout.dimensions.size(), 2u);
  EXPECT_EQ(layout.dimensions[0].name, "DEF_COLOR");
  EXPECT_EQ(layout.dimensions[0].type, (oocpc::ColumnType{ValueType::kUInt16, 3}));
  EXPECT_EQ(layout.fieldPlaces[0].offset, 16u);  // blue
  EXPECT_EQ(layout.fieldPlaces[2].offset, 12u);  // red
  EXPECT_EQ(layout.fieldPlaces[1].offset, 18u);
}

}  // namespace
