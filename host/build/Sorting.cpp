// Sorting numbered keys, and points along the Morton curve.
#include "host/build/Sorting.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <utility>

namespace tarnhost {

namespace {

constexpr unsigned kDigitBits = 9;
constexpr std::size_t kDigits = std::size_t{1} << kDigitBits;
/// Digits that are sorted by counting: more would tell hardly any points apart that these do not.
constexpr unsigned kCountedDigits = 4;
constexpr std::size_t kFewPoints = 256;

bool ComesBefore(const CodedPoint& a, const CodedPoint& b) { return a.code < b.code; }

/// The bits in which codes differ.
std::uint64_t DifferingBits(std::span<const CodedPoint> points) {
  std::uint64_t bits = 0;
  for (const CodedPoint& point : points) bits |= point.code ^ points[0].code;
  return bits;
}

using Places = std::array<std::uint32_t, kDigits>;

/// Sorts by one digit; false when all have the same there and nothing was done.
bool SortByDigit(std::span<const CodedPoint> from, unsigned shift, Places& places, CodedPoint* to) {
  const auto digitOf = [shift](const CodedPoint& point) {
    return (point.code >> shift) & (kDigits - 1);
  };
  if (places[digitOf(from[0])] == from.size()) return false;
  std::uint32_t place = 0;
  for (std::uint32_t& count : places) place += std::exchange(count, place);
  for (const CodedPoint& point : from) to[places[digitOf(point)]++] = point;
  return true;
}

/// Sorts what the bits from `shift` on do not tell apart.
void SortTies(std::span<CodedPoint> points, unsigned shift) {
  for (std::size_t begin = 0; begin < points.size();) {
    const std::uint64_t key = points[begin].code >> shift;
    std::size_t end = begin + 1;
    while (end < points.size() && points[end].code >> shift == key) ++end;
    if (end - begin > 1) {
      const auto ties = points.subspan(begin, end - begin);
      if (!std::ranges::is_sorted(ties, ComesBefore)) std::ranges::stable_sort(ties, ComesBefore);
    }
    begin = end;
  }
}

}  // namespace

void SortByCode(std::span<CodedPoint> points, std::vector<CodedPoint>& scratch) {
  if (points.size() < kFewPoints) {
    std::ranges::stable_sort(points, ComesBefore);
    return;
  }
  const auto bits = static_cast<unsigned>(std::bit_width(DifferingBits(points)));
  if (bits == 0) return;
  const unsigned counted = kCountedDigits * kDigitBits;
  const unsigned lowest = bits > counted ? bits - counted : 0;
  std::array<Places, kCountedDigits> places{};
  for (const CodedPoint& point : points) {
    for (unsigned digit = 0; digit < kCountedDigits; ++digit) {
      ++places[digit][(point.code >> (lowest + digit * kDigitBits)) & (kDigits - 1)];
    }
  }
  if (scratch.size() < points.size()) scratch.resize(points.size());
  std::span<CodedPoint> from = points;
  std::span<CodedPoint> to = std::span(scratch).first(points.size());
  for (unsigned digit = 0; digit < kCountedDigits; ++digit) {
    if (SortByDigit(from, lowest + digit * kDigitBits, places[digit], to.data())) {
      std::swap(from, to);
    }
  }
  if (from.data() != points.data()) std::ranges::copy(from, points.begin());
  if (lowest > 0) SortTies(points, lowest);
}

std::uint64_t OrderOf(double number) {
  if (std::isnan(number)) return ~std::uint64_t{0};
  constexpr std::uint64_t kSign = std::uint64_t{1} << 63;
  const auto bits = std::bit_cast<std::uint64_t>(number + 0.0);  // -0.0 becomes 0.0
  return (bits & kSign) != 0 ? ~bits : bits | kSign;
}

}  // namespace tarnhost
