// Sorting by code and by time, compared with the standard library's stable sort.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>

#include "host/build/Sorting.h"

namespace tarnhost {
namespace {

void ExpectSorted(const std::vector<std::uint64_t>& codes) {
  std::vector<CodedPoint> points;
  for (std::size_t i = 0; i < codes.size(); ++i) points.push_back({codes[i], i});
  std::vector<CodedPoint> expected = points;
  std::ranges::stable_sort(expected, {}, &CodedPoint::code);
  std::vector<CodedPoint> scratch;
  SortByCode(points, scratch);
  ASSERT_EQ(points.size(), expected.size());
  for (std::size_t i = 0; i < points.size(); ++i) {
    ASSERT_EQ(points[i].code, expected[i].code) << i;
    ASSERT_EQ(points[i].point, expected[i].point) << i;
  }
}

std::vector<std::uint64_t> RandomCodes(std::size_t count, std::uint64_t mask) {
  std::mt19937_64 random(count);
  std::vector<std::uint64_t> codes(count);
  for (std::uint64_t& code : codes) code = random() & mask;
  return codes;
}

TEST(SortByCode, HoldsForEveryNumberOfPoints) {
  for (const std::size_t count : {0u, 1u, 2u, 255u, 256u, 257u, 5000u, 100'000u}) {
    ExpectSorted(RandomCodes(count, ~std::uint64_t{0}));
  }
}

TEST(SortByCode, HoldsWhereOnlySomeBitsDiffer) {
  for (unsigned bits = 1; bits < 64; ++bits) {
    const std::uint64_t mask = (std::uint64_t{1} << bits) - 1;
    ExpectSorted(RandomCodes(3000, mask));
    ExpectSorted(RandomCodes(3000, mask << (64 - bits)));
  }
}

TEST(SortByCode, KeepsTheOrderOfEqualCodes) {
  ExpectSorted(std::vector<std::uint64_t>(1000, 42));
  ExpectSorted(RandomCodes(20'000, 0xF00000000000000F));
}

TEST(SortByCode, TellsCodesApartByTheirLowestBits) {
  std::vector<std::uint64_t> codes;
  for (std::uint64_t i = 0; i < 4000; ++i) codes.push_back((i % 4) << 62 | (4000 - i));
  ExpectSorted(codes);
}

TEST(OrderOf, IsThatOfNumbersWithNansLast) {
  const double infinity = std::numeric_limits<double>::infinity();
  const std::vector<double> ascending{-infinity, -1e300, -1.0,  -1e-300, 0.0,
                                      5e-324,    1.0,    1e300, infinity};
  for (std::size_t i = 1; i < ascending.size(); ++i) {
    EXPECT_LT(OrderOf(ascending[i - 1]), OrderOf(ascending[i])) << ascending[i];
  }
  EXPECT_EQ(OrderOf(-0.0), OrderOf(0.0));
  EXPECT_GT(OrderOf(std::nan("")), OrderOf(infinity));
  EXPECT_EQ(OrderOf(-std::nan("")), OrderOf(std::nan("7")));
}

}  // namespace
}  // namespace tarnhost
