// Which numbers get a dictionary, and in what order it holds them.
#include <gtest/gtest.h>

#include <random>
#include <set>

#include "OOCPointCloud/columns/NumberDictionary.h"

namespace {

using Numbers = std::vector<std::uint64_t>;

Numbers Repeated(const Numbers& distinct, std::size_t times) {
  Numbers numbers;
  for (std::size_t i = 0; i < times; ++i) {
    numbers.insert(numbers.end(), distinct.begin(), distinct.end());
  }
  return numbers;
}

TEST(NumberDictionary, HasTheMostFrequentFirst) {
  Numbers numbers(20, 5);
  numbers.insert(numbers.end(), 30, 900);
  numbers.insert(numbers.end(), 10, 1);
  EXPECT_EQ(oocpc::MakeDictionary(numbers), (Numbers{900, 5, 1}));
}

TEST(NumberDictionary, HasEquallyFrequentOnesInAscendingOrder) {
  EXPECT_EQ(oocpc::MakeDictionary(Repeated({~0ull, 7, 1ull << 63, 0}, 8)),
            (Numbers{0, 7, 1ull << 63, ~0ull}));
}

TEST(NumberDictionary, IsNotMadeWhenMoreThanAnEighthIsDistinct) {
  const Numbers eighth = Repeated({1, 2, 3, 4}, 8);
  EXPECT_TRUE(oocpc::MakeDictionary(eighth).has_value());
  Numbers more = eighth;
  more.back() = 5;
  EXPECT_FALSE(oocpc::MakeDictionary(more).has_value());
}

TEST(NumberDictionary, IsNotMadeOfFewerThanEightNumbers) {
  EXPECT_FALSE(oocpc::MakeDictionary(Numbers(7, 3)).has_value());
  EXPECT_EQ(oocpc::MakeDictionary(Numbers(8, 3)), Numbers{3});
  EXPECT_FALSE(oocpc::MakeDictionary(Numbers{3}).has_value());
}

TEST(NumberDictionary, PlacesLeadBackToTheNumbers) {
  std::mt19937_64 random(51);
  Numbers distinct(500);
  for (std::uint64_t& number : distinct) number = random();
  Numbers numbers(8000);
  for (std::uint64_t& number : numbers) number = distinct[random() % distinct.size()];
  const auto dictionary = oocpc::MakeDictionary(numbers);
  ASSERT_TRUE(dictionary.has_value());
  EXPECT_EQ(dictionary->size(), std::set<std::uint64_t>(numbers.begin(), numbers.end()).size());
  Numbers places = numbers;
  oocpc::ReplaceByPlaces(*dictionary, places);
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    ASSERT_LT(places[i], dictionary->size());
    ASSERT_EQ((*dictionary)[places[i]], numbers[i]);
  }
}

TEST(NumberDictionary, TellsNumbersOfTheSameHashApart) {
  // Multiples of a power of two differ only in the bits that multiplying moves least.
  Numbers distinct;
  for (std::uint64_t i = 0; i < 64; ++i) distinct.push_back(i << 58);
  Numbers places = Repeated(distinct, 9);
  const Numbers numbers = places;
  const auto dictionary = oocpc::MakeDictionary(numbers);
  ASSERT_TRUE(dictionary.has_value());
  EXPECT_EQ(*dictionary, distinct);
  oocpc::ReplaceByPlaces(*dictionary, places);
  for (std::size_t i = 0; i < numbers.size(); ++i) ASSERT_EQ((*dictionary)[places[i]], numbers[i]);
}

}  // namespace
