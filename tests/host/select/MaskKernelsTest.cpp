// The mask kernels, with each set of instructions, beside the plain loops that say what they mean.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "host/select/MaskKernels.h"
#include "host/select/PlainMaskKernels.h"
#include "tests/support/InstructionSets.h"

namespace {

using Bytes = std::vector<std::uint8_t>;
using Mask = std::vector<std::uint64_t>;
using Random = std::mt19937_64;
using oocpctest::WithEachInstructionSet;

constexpr std::size_t kCounts[] = {1, 2, 7, 8, 9, 63, 64, 65, 127, 128, 129, 1000};

Mask Filled(std::size_t count) { return Mask(tarnhost::MaskWords(count), 0xDEADBEEFDEADBEEFu); }

template <typename T>
class IntervalKernel : public ::testing::Test {};
using NumberTypes =
    ::testing::Types<std::uint8_t, std::int8_t, std::uint16_t, std::int16_t, std::uint32_t,
                     std::int32_t, std::uint64_t, std::int64_t, float, double>;
TYPED_TEST_SUITE(IntervalKernel, NumberTypes);

TYPED_TEST(IntervalKernel, SetsTheBitsThatThePlainLoopSetsAndNoneBehindTheLast) {
  WithEachInstructionSet([&] {
    using T = TypeParam;
    using Limits = std::numeric_limits<T>;
    Random random(1);
    for (const std::size_t count : kCounts) {
      Bytes values(count * sizeof(T) + 1);  // one byte off any alignment
      for (std::size_t i = 0; i < count; ++i) {
        T value = static_cast<T>(random() % 50);
        if (random() % 10 == 0) value = Limits::lowest();
        if (random() % 10 == 0) value = Limits::max();
        if (std::is_floating_point_v<T> && random() % 10 == 0) value = Limits::quiet_NaN();
        if (std::is_floating_point_v<T> && random() % 10 == 0) value = static_cast<T>(-0.0);
        std::memcpy(values.data() + 1 + i * sizeof(T), &value, sizeof(T));
      }
      const std::pair<T, T> intervals[] = {{static_cast<T>(10), static_cast<T>(30)},
                                           {static_cast<T>(0), static_cast<T>(0)},
                                           {Limits::lowest(), Limits::max()},
                                           {static_cast<T>(30), static_cast<T>(10)},
                                           {Limits::max(), Limits::max()}};
      for (const auto& [low, high] : intervals) {
        Mask expected = Filled(count);
        Mask mask = Filled(count);
        tarnhost::plain::TestInterval<T>(values.data() + 1, count, low, high, expected.data());
        tarnhost::TestInterval<T>(values.data() + 1, count, low, high, mask.data());
        ASSERT_EQ(mask, expected) << count;
      }
    }
  });
}

TEST(PackedKernel, SetsTheBitsThatThePlainLoopSetsForEveryWidth) {
  WithEachInstructionSet([&] {
    Random random(2);
    for (unsigned bits = 1; bits <= 64; ++bits) {
      for (const std::size_t count : kCounts) {
        Bytes packed((count * bits + 7) / 8);
        for (std::uint8_t& byte : packed) byte = static_cast<std::uint8_t>(random());
        const std::uint64_t most = bits == 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << bits) - 1;
        for (int round = 0; round < 6; ++round) {
          const std::uint64_t a = round == 0 ? 0 : random() & most;
          const std::uint64_t b = round == 1 ? most : random() & most;
          Mask expected = Filled(count);
          Mask mask = Filled(count);
          tarnhost::plain::TestPacked(packed, bits, count, std::min(a, b), std::max(a, b),
                                      expected.data());
          tarnhost::TestPacked(packed, bits, count, std::min(a, b), std::max(a, b), mask.data());
          ASSERT_EQ(mask, expected) << bits << " bits, " << count << " values";
        }
      }
    }
  });
}

class PositionKernels : public ::testing::Test {
 protected:
  Bytes MakePositions(std::size_t count) {
    Bytes xyz;
    for (std::size_t i = 0; i < 3 * count; ++i) {
      auto value = static_cast<std::int32_t>(random_() % 200) - 100;
      if (random_() % 50 == 0) value = static_cast<std::int32_t>(random_());
      const std::size_t at = xyz.size();
      xyz.resize(at + 4);
      std::memcpy(xyz.data() + at, &value, 4);
    }
    return xyz;
  }

  Random random_{3};
  const tarnhost::StoredPositions positions_{{{0.01, 0.1, -0.003}, {637290.77, -5.5, 1e6}},
                                             {637000, 0, 1e6}};
};

TEST_F(PositionKernels, TestBoxesAsThePlainLoopDoes) {
  WithEachInstructionSet([&] {
    for (const std::size_t count : kCounts) {
      const Bytes xyz = MakePositions(count);
      const std::array<std::int32_t, 3> least{-50, -100, std::numeric_limits<std::int32_t>::min()};
      const std::array<std::int32_t, 3> greatest{99, 0, 70};
      Mask expected = Filled(count);
      Mask mask = Filled(count);
      tarnhost::plain::TestBox(xyz.data(), count, least, greatest, expected.data());
      tarnhost::TestBox(xyz.data(), count, least, greatest, mask.data());
      ASSERT_EQ(mask, expected) << count;
    }
  });
}

TEST_F(PositionKernels, TestSpheresWhoseSurfaceMeetsPointsAsThePlainLoopDoes) {
  WithEachInstructionSet([&] {
    for (const std::size_t count : kCounts) {
      const Bytes xyz = MakePositions(count);
      for (std::size_t i = 0; i < std::min<std::size_t>(count, 20); ++i) {
        const auto local = tarnhost::plain::LoadLocal(xyz.data(), i, positions_);
        const std::array<float, 3> centre{291, 0, 0.1F};
        const double dx = local[0] - centre[0];
        const double dy = local[1] - centre[1];
        const double dz = local[2] - centre[2];
        const auto radius = static_cast<float>(std::sqrt(dx * dx + dy * dy + dz * dz));
        Mask expected = Filled(count);
        Mask mask = Filled(count);
        tarnhost::plain::TestSphere(xyz.data(), count, positions_, centre, radius, expected.data());
        tarnhost::TestSphere(xyz.data(), count, positions_, centre, radius, mask.data());
        ASSERT_EQ(mask, expected) << count;
      }
    }
  });
}

TEST_F(PositionKernels, TestFrustaAsThePlainLoopDoes) {
  WithEachInstructionSet([&] {
    for (const std::size_t count : kCounts) {
      const Bytes xyz = MakePositions(count);
      std::array<std::array<float, 4>, 6> planes{};
      for (auto& plane : planes) {
        for (float& number : plane) number = static_cast<float>(random_() % 7) - 2;
        plane[3] = static_cast<float>(random_() % 900);
      }
      Mask expected = Filled(count);
      Mask mask = Filled(count);
      tarnhost::plain::TestFrustum(xyz.data(), count, positions_, planes, expected.data());
      tarnhost::TestFrustum(xyz.data(), count, positions_, planes, mask.data());
      ASSERT_EQ(mask, expected) << count;
    }
  });
}

TEST(Masks, AreCountedAndTurnedRound) {
  WithEachInstructionSet([&] {
    for (const std::size_t count : kCounts) {
      Mask mask(tarnhost::MaskWords(count), 0);
      EXPECT_EQ(tarnhost::CountBits(mask), 0u);
      tarnhost::InvertMask(mask, count);
      EXPECT_EQ(tarnhost::CountBits(mask), count);
      mask[0] &= ~std::uint64_t{1};
      EXPECT_EQ(tarnhost::CountBits(mask), count - 1);
    }
  });
}

TEST(Masks, TellWhichInstructionsTestThem) {
  const auto sets = oocpctest::InstructionSets();
  EXPECT_FALSE(sets.empty());
  for (const std::int64_t set : sets) {
    const oocpctest::ChosenInstructions chosen(set);
    EXPECT_STREQ(tarnhost::KernelInstructions(), hwy::TargetName(set));
  }
}

}  // namespace
