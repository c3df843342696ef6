// The engine, the evaluator and a plain reading of the language, asked the same random trees of the
// same points. TARN_SELECT_TIMES says how many times as many trees as usual a cloud is asked,
// TARN_SELECT_SEED where the random numbers begin; scripts/test-long.sh sets both.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "tests/host/select/RandomTrees.h"

namespace oocpctest {

inline std::uint64_t FromEnvironment(const char* name, std::uint64_t otherwise) {
  const char* const text = std::getenv(name);
  return text == nullptr ? otherwise : std::strtoull(text, nullptr, 10);
}

/// The seed of one test among many, other ones with another TARN_SELECT_SEED.
inline std::uint64_t SeedOf(std::uint64_t test) {
  return FromEnvironment("TARN_SELECT_SEED", 1) * 1000 + test;
}

inline tarnhost::SelectOptions LocalQuery(const std::string& text) {
  tarnhost::SelectOptions options = Query(text);
  options.local = true;
  return options;
}

/// Asks one tree in every way and compares point by point; `selected` is how many points hold.
inline void CompareTree(tarnhost::Cloud& cloud, const RandomTree& tree, std::size_t count,
                        bool byRecords, std::uint64_t& selected) {
  const tarnhost::SelectOptions options = LocalQuery(tree.text);
  std::vector<bool> expected(count);
  for (std::size_t i = 0; i < count; ++i) expected[i] = tree.holds(i);
  selected = static_cast<std::uint64_t>(std::count(expected.begin(), expected.end(), true));
  MarkingSink engine;
  tarnhost::SelectReport report;
  ASSERT_TRUE(Succeeded(tarnhost::Select(cloud, options, &engine, report)));
  ASSERT_TRUE(engine.Get(count) == expected) << "engine";
  ASSERT_EQ(report.selected, selected);
  ASSERT_TRUE(Succeeded(tarnhost::Select(cloud, options, nullptr, report)));
  ASSERT_EQ(report.selected, selected) << "counting alone";
  if (!byRecords) return;
  MarkingSink records;
  ASSERT_TRUE(Succeeded(tarnhost::SelectByRecords(cloud, options, &records, report)));
  ASSERT_TRUE(records.Get(count) == expected) << "record by record";
}

/// Asks a cloud, which holds the recipe's points in the recipe's order, so many random trees. Every
/// fourth asks names with several types, which the engine alone can answer.
inline void CompareTrees(tarnhost::Cloud& cloud, const HandMadeRecipe& recipe, Random& random,
                         std::uint64_t usualTrees) {
  const std::size_t count = recipe.GetCount();
  const std::uint64_t rounds = usualTrees * FromEnvironment("TARN_SELECT_TIMES", 1);
  std::uint64_t partly = 0;
  RandomTrees trees(recipe, random);
  for (std::uint64_t round = 0; round < rounds; ++round) {
    const bool oneType = round % 4 != 3;
    const RandomTree tree = trees.Next(oneType);
    SCOPED_TRACE("round " + std::to_string(round) + ": " + tree.text);
    std::uint64_t selected = 0;
    ASSERT_NO_FATAL_FAILURE(CompareTree(cloud, tree, count, oneType, selected));
    partly += selected > 0 && selected < count ? 1 : 0;
  }
  std::printf("asked %llu trees of %zu points\n", static_cast<unsigned long long>(rounds), count);
  if (count > 100 && rounds > 20) {
    EXPECT_GT(partly, rounds / 6) << "many trees should select some points";
  }
}

}  // namespace oocpctest
