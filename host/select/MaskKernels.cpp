// Tests of whole blocks of values into bit masks. This file is compiled once for each set of
// instructions; what is outside of HWY_ONCE is in a namespace of that set.
#include "host/select/MaskKernels.h"

#include <algorithm>
#include <cstring>

#include "host/select/PlainMaskKernels.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "host/select/MaskKernels.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace tarnhost {
namespace HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

#if HWY_TARGET == HWY_SCALAR

template <typename T>
void IntervalKernel(const std::uint8_t* values, std::size_t count, T low, T high,
                    std::uint64_t* mask) {
  plain::TestInterval(values, count, low, high, mask);
}
void PackedKernel7(std::span<const std::uint8_t> packed, unsigned bits, std::size_t count,
                   std::uint64_t low, std::uint64_t high, std::uint64_t* mask) {
  plain::TestPacked(packed, bits, count, low, high, mask);
}
void PackedKernel15(std::span<const std::uint8_t> packed, unsigned bits, std::size_t count,
                    std::uint64_t low, std::uint64_t high, std::uint64_t* mask) {
  plain::TestPacked(packed, bits, count, low, high, mask);
}
void BoxKernel(const std::uint8_t* xyz, std::size_t count, const std::array<std::int32_t, 3>& least,
               const std::array<std::int32_t, 3>& greatest, std::uint64_t* mask) {
  plain::TestBox(xyz, count, least, greatest, mask);
}
void SphereKernel(const std::uint8_t* xyz, std::size_t count, const StoredPositions& positions,
                  const std::array<float, 3>& centre, float radius, std::uint64_t* mask) {
  plain::TestSphere(xyz, count, positions, centre, radius, mask);
}
void FrustumKernel(const std::uint8_t* xyz, std::size_t count, const StoredPositions& positions,
                   const std::array<std::array<float, 4>, 6>& planes, std::uint64_t* mask) {
  plain::TestFrustum(xyz, count, positions, planes, mask);
}

#else

/// Vectors of at most 64 lanes, as many as a word of a mask has bits.
template <typename T>
using Vectors = hn::CappedTag<T, 64>;

template <class D, class M>
HWY_INLINE std::uint64_t BitsOf(D d, M lanes) {
  alignas(16) std::uint8_t bytes[8] = {};
  hn::StoreMaskBits(d, lanes, bytes);
  std::uint64_t bits = 0;
  std::memcpy(&bits, bytes, sizeof(bits));
  const std::size_t count = hn::Lanes(d);
  return count < 8 ? bits & ((1u << count) - 1) : bits;
}

/// Lanes within the closed interval; NaNs are not.
template <class D, class V>
HWY_INLINE hn::Mask<D> Within(D /*d*/, V lanes, V least, V greatest) {
  if constexpr (hwy::IsFloat<hn::TFromD<D> >()) {
    return hn::And(hn::Ge(lanes, least), hn::Le(lanes, greatest));
  } else {
    return hn::Not(hn::Or(hn::Lt(lanes, least), hn::Gt(lanes, greatest)));
  }
}

template <class D>
HWY_INLINE hn::Vec<D> LoadBytes(D d, const std::uint8_t* from) {
  const hn::Repartition<std::uint8_t, D> bytes;
  return hn::BitCast(d, hn::LoadU(bytes, from));
}

/// The bits of one word: `test(i)` gives those of as many values, from the i-th on, as D has lanes.
template <class D, class Test>
HWY_INLINE std::uint64_t WordOf(D d, const Test& test) {
  const std::size_t lanes = hn::Lanes(d);
  std::uint64_t word = 0;
  for (std::size_t i = 0; i < 64; i += lanes) word |= test(i) << i;
  return word;
}

/// Runs a word test over `count` values of `kBytes` each; the rest is copied to where whole words
/// can be read.
template <std::size_t kBytes, class WordTest>
HWY_INLINE void ForEachWord(const std::uint8_t* values, std::size_t count, std::uint64_t* mask,
                            const WordTest& test) {
  const std::size_t whole = count / 64;
  for (std::size_t w = 0; w < whole; ++w) mask[w] = test(values + w * 64 * kBytes);
  const std::size_t rest = count % 64;
  if (rest == 0) return;
  alignas(64) std::uint8_t padded[64 * kBytes] = {};
  std::memcpy(padded, values + whole * 64 * kBytes, rest * kBytes);
  mask[whole] = test(padded) & ((std::uint64_t{1} << rest) - 1);
}

template <typename T>
void IntervalKernel(const std::uint8_t* values, std::size_t count, T low, T high,
                    std::uint64_t* mask) {
  const Vectors<T> d;
  const auto least = hn::Set(d, low);
  const auto greatest = hn::Set(d, high);
  ForEachWord<sizeof(T)>(values, count, mask, [&](const std::uint8_t* from) HWY_ATTR {
    return WordOf(d, [&](std::size_t i) HWY_ATTR {
      const auto value = LoadBytes(d, from + i * sizeof(T));
      return BitsOf(d, Within(d, value, least, greatest));
    });
  });
}

/// How eight offsets of up to 15 bits, which lie in as many bytes as an offset has bits, come into
/// lanes of their own: the bytes that hold each, and a factor that moves its last bit to the top.
/// What is behind it in the lane stays there: bounds are moved to the top as well, the upper one
/// with ones behind it.
struct Spread16 {
  alignas(16) std::uint8_t bytes[16];
  alignas(16) std::uint16_t factors[8];
  explicit Spread16(unsigned bits) {
    for (unsigned i = 0; i < 8; ++i) {
      bytes[2 * i] = static_cast<std::uint8_t>(i * bits / 8);
      bytes[2 * i + 1] = static_cast<std::uint8_t>(i * bits / 8 + 1);
      factors[i] = static_cast<std::uint16_t>(1u << (16 - bits - i * bits % 8));
    }
  }
};

/// The same for four of them in lanes twice as wide.
struct Spread32 {
  alignas(16) std::uint8_t bytes[16];
  alignas(16) std::uint32_t shifts[4];
  Spread32(unsigned bits, unsigned first) {
    for (unsigned i = 0; i < 4; ++i) {
      const unsigned at = (first + i) * bits;
      for (unsigned k = 0; k < 4; ++k) {
        // Bytes behind the group's last hold nothing of these offsets.
        bytes[4 * i + k] = static_cast<std::uint8_t>(std::min(at / 8 + k, 15u));
      }
      shifts[i] = 32 - bits - at % 8;
    }
  }
};

/// Calls `test` with the place of each group of eight offsets, from which 16 bytes can be read.
template <class GroupTest>
HWY_INLINE void ForEachGroup(std::span<const std::uint8_t> packed, unsigned bits, std::size_t count,
                             std::uint64_t* mask, const GroupTest& test) {
  const std::size_t groups = (count + 7) / 8;
  const std::size_t safe = packed.size() < 16 ? 0 : (packed.size() - 16) / bits + 1;
  auto* const out = reinterpret_cast<std::uint8_t*>(mask);  // bits in little-endian order
  mask[MaskWords(count) - 1] = 0;
  std::size_t g = 0;
  for (; g < std::min(groups, safe); ++g) out[g] = test(packed.data() + g * bits);
  for (; g < groups; ++g) {
    alignas(16) std::uint8_t padded[16] = {};
    const std::size_t at = g * bits;
    std::memcpy(padded, packed.data() + at, std::min<std::size_t>(16, packed.size() - at));
    out[g] = test(padded);
  }
  if (count % 64 != 0) mask[count / 64] &= (std::uint64_t{1} << (count % 64)) - 1;
}

void PackedKernel7(std::span<const std::uint8_t> packed, unsigned bits, std::size_t count,
                   std::uint64_t low, std::uint64_t high, std::uint64_t* mask) {
  const hn::CappedTag<std::uint8_t, 16> bytes;
  const hn::CappedTag<std::uint16_t, 8> d;
  const Spread16 spread(bits);
  const auto places = hn::Load(bytes, spread.bytes);
  const auto factors = hn::Load(d, spread.factors);
  const unsigned up = 16 - bits;
  const auto least = hn::Set(d, static_cast<std::uint16_t>(low << up));
  const auto greatest = hn::Set(d, static_cast<std::uint16_t>((high << up) | ((1u << up) - 1)));
  ForEachGroup(packed, bits, count, mask, [&](const std::uint8_t* from) HWY_ATTR {
    const auto lanes =
        hn::BitCast(d, hn::TableLookupBytes(hn::LoadU(bytes, from), places)) * factors;
    return static_cast<std::uint8_t>(BitsOf(d, Within(d, lanes, least, greatest)));
  });
}

void PackedKernel15(std::span<const std::uint8_t> packed, unsigned bits, std::size_t count,
                    std::uint64_t low, std::uint64_t high, std::uint64_t* mask) {
  const hn::CappedTag<std::uint8_t, 16> bytes;
  const hn::CappedTag<std::uint32_t, 4> d;
  const Spread32 spreads[2] = {{bits, 0}, {bits, 4}};
  const unsigned up = 32 - bits;
  const auto least = hn::Set(d, static_cast<std::uint32_t>(low << up));
  const auto greatest = hn::Set(d, static_cast<std::uint32_t>((high << up) | ((1u << up) - 1)));
  const auto half = [&](hn::Vec<decltype(bytes)> raw, const Spread32& spread) HWY_ATTR {
    const auto lanes = hn::BitCast(d, hn::TableLookupBytes(raw, hn::Load(bytes, spread.bytes)))
                       << hn::Load(d, spread.shifts);
    return BitsOf(d, Within(d, lanes, least, greatest));
  };
  ForEachGroup(packed, bits, count, mask, [&](const std::uint8_t* from) HWY_ATTR {
    const auto raw = hn::LoadU(bytes, from);
    return static_cast<std::uint8_t>(half(raw, spreads[0]) | half(raw, spreads[1]) << 4);
  });
}

void BoxKernel(const std::uint8_t* xyz, std::size_t count, const std::array<std::int32_t, 3>& least,
               const std::array<std::int32_t, 3>& greatest, std::uint64_t* mask) {
  const Vectors<std::int32_t> d;
  ForEachWord<12>(xyz, count, mask, [&](const std::uint8_t* from) HWY_ATTR {
    const auto* const integers = reinterpret_cast<const std::int32_t*>(from);
    return WordOf(d, [&](std::size_t i) HWY_ATTR {
      hn::Vec<decltype(d)> x;
      hn::Vec<decltype(d)> y;
      hn::Vec<decltype(d)> z;
      hn::LoadInterleaved3(d, integers + 3 * i, x, y, z);
      const auto inX = Within(d, x, hn::Set(d, least[0]), hn::Set(d, greatest[0]));
      const auto inY = Within(d, y, hn::Set(d, least[1]), hn::Set(d, greatest[1]));
      const auto inZ = Within(d, z, hn::Set(d, least[2]), hn::Set(d, greatest[2]));
      return BitsOf(d, hn::And(inX, hn::And(inY, inZ)));
    });
  });
}

using Doubles = hn::CappedTag<double, 16>;

/// Calls `test` with the coordinates in the local frame. Multiplication and addition are operations
/// of their own, so they are rounded as the positions container rounds them.
template <class Test>
HWY_INLINE void ForEachPosition(const std::uint8_t* xyz, std::size_t count,
                                const StoredPositions& positions, std::uint64_t* mask,
                                const Test& test) {
  const Doubles d;
  const hn::Rebind<std::int32_t, Doubles> stored;
  const auto local = [&](hn::Vec<decltype(stored)> integers, std::size_t axis) HWY_ATTR {
    const auto scaled =
        hn::Mul(hn::PromoteTo(d, integers), hn::Set(d, positions.transform.scale[axis]));
    const auto source = hn::Add(scaled, hn::Set(d, positions.transform.offset[axis]));
    return hn::Sub(source, hn::Set(d, positions.frameOffset[axis]));
  };
  ForEachWord<12>(xyz, count, mask, [&](const std::uint8_t* from) HWY_ATTR {
    const auto* const integers = reinterpret_cast<const std::int32_t*>(from);
    return WordOf(d, [&](std::size_t i) HWY_ATTR {
      hn::Vec<decltype(stored)> x;
      hn::Vec<decltype(stored)> y;
      hn::Vec<decltype(stored)> z;
      hn::LoadInterleaved3(stored, integers + 3 * i, x, y, z);
      return BitsOf(d, test(d, local(x, 0), local(y, 1), local(z, 2)));
    });
  });
}

void SphereKernel(const std::uint8_t* xyz, std::size_t count, const StoredPositions& positions,
                  const std::array<float, 3>& centre, float radius, std::uint64_t* mask) {
  const double r = radius;
  ForEachPosition(xyz, count, positions, mask, [&](auto d, auto x, auto y, auto z) HWY_ATTR {
    const auto dx = hn::Sub(x, hn::Set(d, static_cast<double>(centre[0])));
    const auto dy = hn::Sub(y, hn::Set(d, static_cast<double>(centre[1])));
    const auto dz = hn::Sub(z, hn::Set(d, static_cast<double>(centre[2])));
    const auto sum = hn::Add(hn::Add(hn::Mul(dx, dx), hn::Mul(dy, dy)), hn::Mul(dz, dz));
    return hn::Le(sum, hn::Set(d, r * r));
  });
}

void FrustumKernel(const std::uint8_t* xyz, std::size_t count, const StoredPositions& positions,
                   const std::array<std::array<float, 4>, 6>& planes, std::uint64_t* mask) {
  ForEachPosition(xyz, count, positions, mask, [&](auto d, auto x, auto y, auto z) HWY_ATTR {
    auto inside = hn::Eq(hn::Zero(d), hn::Zero(d));
    for (const std::array<float, 4>& plane : planes) {
      const auto a = hn::Set(d, static_cast<double>(plane[0]));
      const auto b = hn::Set(d, static_cast<double>(plane[1]));
      const auto c = hn::Set(d, static_cast<double>(plane[2]));
      const auto sum = hn::Add(hn::Add(hn::Mul(a, x), hn::Mul(b, y)), hn::Mul(c, z));
      const auto distance = hn::Add(sum, hn::Set(d, static_cast<double>(plane[3])));
      inside = hn::And(inside, hn::Ge(distance, hn::Zero(d)));
    }
    return inside;
  });
}

#endif  // HWY_SCALAR

std::uint64_t CountKernel(std::span<const std::uint64_t> mask) {
  const hn::ScalableTag<std::uint64_t> d;
  const std::size_t lanes = hn::Lanes(d);
  auto sums = hn::Zero(d);
  std::size_t i = 0;
  for (; i + lanes <= mask.size(); i += lanes) {
    sums = hn::Add(sums, hn::PopulationCount(hn::LoadU(d, mask.data() + i)));
  }
  std::uint64_t sum = hn::GetLane(hn::SumOfLanes(d, sums));
  for (; i < mask.size(); ++i) sum += hwy::PopCount(mask[i]);
  return sum;
}

#define TARN_NUMBER_KERNEL(name, T)                                                              \
  void name(const std::uint8_t* values, std::size_t count, T low, T high, std::uint64_t* mask) { \
    IntervalKernel<T>(values, count, low, high, mask);                                           \
  }
TARN_NUMBER_KERNEL(IntervalU8, std::uint8_t)
TARN_NUMBER_KERNEL(IntervalI8, std::int8_t)
TARN_NUMBER_KERNEL(IntervalU16, std::uint16_t)
TARN_NUMBER_KERNEL(IntervalI16, std::int16_t)
TARN_NUMBER_KERNEL(IntervalU32, std::uint32_t)
TARN_NUMBER_KERNEL(IntervalI32, std::int32_t)
TARN_NUMBER_KERNEL(IntervalU64, std::uint64_t)
TARN_NUMBER_KERNEL(IntervalI64, std::int64_t)
TARN_NUMBER_KERNEL(IntervalF32, float)
TARN_NUMBER_KERNEL(IntervalF64, double)
#undef TARN_NUMBER_KERNEL

const char* TargetName() { return hwy::TargetName(HWY_TARGET); }

}  // namespace
}  // namespace HWY_NAMESPACE
}  // namespace tarnhost
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tarnhost {

HWY_EXPORT(PackedKernel7);
HWY_EXPORT(PackedKernel15);
HWY_EXPORT(BoxKernel);
HWY_EXPORT(SphereKernel);
HWY_EXPORT(FrustumKernel);
HWY_EXPORT(CountKernel);
HWY_EXPORT(TargetName);

#define TARN_TEST_INTERVAL(name, T)                                                  \
  HWY_EXPORT(name);                                                                  \
  template <>                                                                        \
  void TestInterval<T>(const std::uint8_t* values, std::size_t count, T low, T high, \
                       std::uint64_t* mask) {                                        \
    HWY_DYNAMIC_DISPATCH(name)(values, count, low, high, mask);                      \
  }
TARN_TEST_INTERVAL(IntervalU8, std::uint8_t)
TARN_TEST_INTERVAL(IntervalI8, std::int8_t)
TARN_TEST_INTERVAL(IntervalU16, std::uint16_t)
TARN_TEST_INTERVAL(IntervalI16, std::int16_t)
TARN_TEST_INTERVAL(IntervalU32, std::uint32_t)
TARN_TEST_INTERVAL(IntervalI32, std::int32_t)
TARN_TEST_INTERVAL(IntervalU64, std::uint64_t)
TARN_TEST_INTERVAL(IntervalI64, std::int64_t)
TARN_TEST_INTERVAL(IntervalF32, float)
TARN_TEST_INTERVAL(IntervalF64, double)
#undef TARN_TEST_INTERVAL

namespace {

/// Offsets of one bit are a mask already.
void TestBits(std::span<const std::uint8_t> packed, std::size_t count, std::uint64_t low,
              std::uint64_t high, std::uint64_t* mask) {
  const std::size_t words = MaskWords(count);
  mask[words - 1] = 0;
  std::memcpy(mask, packed.data(), packed.size());
  const std::uint64_t zeros = low == 0 ? ~std::uint64_t{0} : 0;
  const std::uint64_t ones = high == 1 ? ~std::uint64_t{0} : 0;
  for (std::size_t w = 0; w < words; ++w) mask[w] = (mask[w] & ones) | (~mask[w] & zeros);
  if (count % 64 != 0) mask[words - 1] &= (std::uint64_t{1} << (count % 64)) - 1;
}

}  // namespace

void TestPacked(std::span<const std::uint8_t> packed, unsigned bits, std::size_t count,
                std::uint64_t low, std::uint64_t high, std::uint64_t* mask) {
  if (count == 0) return;
  if (bits == 1) return TestBits(packed, count, low, high, mask);
  if (bits < 8) return HWY_DYNAMIC_DISPATCH(PackedKernel7)(packed, bits, count, low, high, mask);
  if (bits == 8) {
    return TestInterval(packed.data(), count, static_cast<std::uint8_t>(low),
                        static_cast<std::uint8_t>(high), mask);
  }
  if (bits < 16) return HWY_DYNAMIC_DISPATCH(PackedKernel15)(packed, bits, count, low, high, mask);
  if (bits == 16) {
    return TestInterval(packed.data(), count, static_cast<std::uint16_t>(low),
                        static_cast<std::uint16_t>(high), mask);
  }
  plain::TestPacked(packed, bits, count, low, high, mask);
}

void TestBox(const std::uint8_t* xyz, std::size_t count, const std::array<std::int32_t, 3>& least,
             const std::array<std::int32_t, 3>& greatest, std::uint64_t* mask) {
  HWY_DYNAMIC_DISPATCH(BoxKernel)(xyz, count, least, greatest, mask);
}

void TestSphere(const std::uint8_t* xyz, std::size_t count, const StoredPositions& positions,
                const std::array<float, 3>& centre, float radius, std::uint64_t* mask) {
  HWY_DYNAMIC_DISPATCH(SphereKernel)(xyz, count, positions, centre, radius, mask);
}

void TestFrustum(const std::uint8_t* xyz, std::size_t count, const StoredPositions& positions,
                 const std::array<std::array<float, 4>, 6>& planes, std::uint64_t* mask) {
  HWY_DYNAMIC_DISPATCH(FrustumKernel)(xyz, count, positions, planes, mask);
}

std::uint64_t CountBits(std::span<const std::uint64_t> mask) {
  return HWY_DYNAMIC_DISPATCH(CountKernel)(mask);
}

void InvertMask(std::span<std::uint64_t> mask, std::size_t count) {
  for (std::uint64_t& word : mask) word = ~word;
  if (count % 64 != 0) mask[count / 64] &= (std::uint64_t{1} << (count % 64)) - 1;
}

const char* KernelInstructions() { return HWY_DYNAMIC_DISPATCH(TargetName)(); }

}  // namespace tarnhost
#endif  // HWY_ONCE
