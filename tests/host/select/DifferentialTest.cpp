// Random trees over clouds put together by hand, with columns of every type.
#include "tests/host/select/TreeComparison.h"

namespace {

using oocpc::ValueType;
using oocpctest::AnyNumber;
using oocpctest::ByteVector;
using oocpctest::CompareTrees;
using oocpctest::HandMadeCloud;
using oocpctest::HandMadeRecipe;
using oocpctest::Random;
using oocpctest::SeedOf;

/// Values of a column, in runs of one kind so that blocks differ: anything, all the same, narrow.
template <typename T>
ByteVector AnyValues(Random& random, std::size_t count) {
  ByteVector values;
  T fixed = AnyNumber<T>(random);
  std::uint64_t kind = random() % 4;
  for (std::size_t i = 0; i < count; ++i) {
    if (random() % 100 == 0) {
      kind = random() % 4;
      fixed = AnyNumber<T>(random);
    }
    T value = AnyNumber<T>(random);
    if (kind == 0) value = fixed;
    if (kind == 1) value = static_cast<T>(random() % 4);
    oocpc::AppendLittleEndian(values, value);
  }
  return values;
}

/// In no order, so that a comparison holds for strings here and there in the dictionary.
const std::vector<std::string> kStrings{"a", "zz", "ab", "b", "abc", "\xC3\xA9", "A",
                                        "y", "B",  "z",  "C", "aab", "x"};

HandMadeRecipe AnyRecipe(Random& random, std::vector<std::uint32_t> nodes) {
  HandMadeRecipe recipe;
  recipe.nodes = std::move(nodes);
  std::size_t count = 0;
  for (const std::uint32_t node : recipe.nodes) count += node;
  static constexpr double kScales[] = {0.01, 0.25, 1, -0.5, 0.001, 1e-7};
  for (std::size_t axis = 0; axis < 3; ++axis) {
    recipe.scale[axis] = kScales[random() % std::size(kScales)];
    recipe.offset[axis] = random() % 2 == 0 ? 0 : 637290.75;
    recipe.frameOffset[axis] = recipe.offset[axis] == 0 ? 0 : 637000;
  }
  for (std::size_t i = 0; i < 3 * count; ++i) {
    const bool isFar = random() % 500 == 0;
    recipe.xyz.push_back(isFar ? static_cast<std::int32_t>(random())
                               : static_cast<std::int32_t>(random() % 200) - 100);
  }
  const auto add = [&](const char* name, ValueType type, ByteVector values) {
    recipe.columns.push_back({name, {type, 1}, std::move(values)});
  };
  add("u8", ValueType::kUInt8, AnyValues<std::uint8_t>(random, count));
  add("i8", ValueType::kInt8, AnyValues<std::int8_t>(random, count));
  add("u16", ValueType::kUInt16, AnyValues<std::uint16_t>(random, count));
  add("i16", ValueType::kInt16, AnyValues<std::int16_t>(random, count));
  add("u32", ValueType::kUInt32, AnyValues<std::uint32_t>(random, count));
  add("i32", ValueType::kInt32, AnyValues<std::int32_t>(random, count));
  add("f32", ValueType::kFloat, AnyValues<float>(random, count));
  add("f64", ValueType::kDouble, AnyValues<double>(random, count));
  ByteVector wide;
  ByteVector signedWide;
  ByteVector texts;
  ByteVector colors;
  for (std::size_t i = 0; i < count; ++i) {
    oocpc::AppendLittleEndian(wide, std::uint64_t{random() % 3 << 52});
    oocpc::AppendLittleEndian(signedWide, static_cast<std::int64_t>(random() % 9) - 4);
    oocpc::AppendLittleEndian(texts, static_cast<std::uint32_t>(random() % kStrings.size()));
    for (int k = 0; k < 3; ++k) {
      oocpc::AppendLittleEndian(colors, static_cast<std::uint16_t>(random() % 300));
    }
  }
  add("u64", ValueType::kUInt64, std::move(wide));
  add("i64", ValueType::kInt64, std::move(signedWide));
  add("text", ValueType::kString, std::move(texts));
  recipe.columns.push_back({"DEF_COLOR", {ValueType::kUInt16, 3}, std::move(colors)});
  recipe.strings = kStrings;
  return recipe;
}

void CompareTreesOf(std::uint64_t seed, const std::vector<std::uint32_t>& nodes,
                    std::uint64_t trees) {
  SCOPED_TRACE("seed " + std::to_string(seed));
  Random random(seed);
  const HandMadeRecipe recipe = AnyRecipe(random, nodes);
  const HandMadeCloud made(recipe);
  ASSERT_NE(made.cloud, nullptr);
  CompareTrees(*made.cloud, recipe, random, trees);
}

class RandomTreesOverManyPoints : public ::testing::TestWithParam<std::uint64_t> {};

TEST_P(RandomTreesOverManyPoints, AreAnsweredAlikeByEngineEvaluatorAndPlainReading) {
  CompareTreesOf(SeedOf(GetParam()), {200, 130, 64, 1, 65, 300, 63, 127, 90}, 120);
}

INSTANTIATE_TEST_SUITE_P(Seeds, RandomTreesOverManyPoints, ::testing::Range<std::uint64_t>(0, 5));

TEST(RandomTreesOverFewPoints, AreAnsweredAlikeForOnePoint) {
  for (std::uint64_t test = 50; test < 60; ++test) CompareTreesOf(SeedOf(test), {1}, 60);
}

TEST(RandomTreesOverFewPoints, AreAnsweredAlikeForARootWithoutPointsOfItsOwn) {
  CompareTreesOf(SeedOf(70), {0, 70, 128}, 100);
}

TEST(RandomTreesOverFewPoints, AreAnsweredAlikeForNoPoint) { CompareTreesOf(SeedOf(80), {0}, 100); }

}  // namespace
