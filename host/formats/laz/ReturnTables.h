// How the coordinates of a point are grouped by its place among the returns of its pulse.
#pragma once

#include <array>
#include <cstdint>

namespace tarnhost::laz {

/// Contexts of the formats 0 to 5 by number of returns and return number.
inline constexpr std::array<std::array<std::uint8_t, 8>, 8> kReturnMap8{{
    {15, 14, 13, 12, 11, 10, 9, 8},
    {14, 0, 1, 3, 6, 10, 10, 9},
    {13, 1, 2, 4, 7, 11, 11, 10},
    {12, 3, 4, 5, 8, 12, 12, 11},
    {11, 6, 7, 8, 9, 13, 13, 12},
    {10, 10, 11, 12, 13, 14, 14, 13},
    {9, 10, 11, 12, 13, 14, 15, 14},
    {8, 9, 10, 11, 12, 13, 14, 15},
}};

/// The same of the formats 6 to 10.
inline constexpr std::array<std::array<std::uint8_t, 16>, 16> kReturnMap16{{
    {0, 1, 2, 3, 4, 5, 3, 4, 4, 5, 5, 5, 5, 5, 5, 5},
    {1, 0, 1, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3},
    {2, 1, 2, 4, 4, 4, 4, 4, 4, 4, 4, 3, 3, 3, 3, 3},
    {3, 3, 4, 5, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4},
    {4, 3, 4, 4, 5, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4},
    {5, 3, 4, 4, 4, 5, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4},
    {3, 3, 4, 4, 4, 4, 5, 4, 4, 4, 4, 4, 4, 4, 4, 4},
    {4, 3, 4, 4, 4, 4, 4, 5, 4, 4, 4, 4, 4, 4, 4, 4},
    {4, 3, 4, 4, 4, 4, 4, 4, 5, 4, 4, 4, 4, 4, 4, 4},
    {5, 3, 4, 4, 4, 4, 4, 4, 4, 5, 4, 4, 4, 4, 4, 4},
    {5, 3, 4, 4, 4, 4, 4, 4, 4, 4, 5, 4, 4, 4, 4, 4},
    {5, 3, 3, 4, 4, 4, 4, 4, 4, 4, 4, 5, 5, 4, 4, 4},
    {5, 3, 3, 4, 4, 4, 4, 4, 4, 4, 4, 5, 5, 5, 4, 4},
    {5, 3, 3, 4, 4, 4, 4, 4, 4, 4, 4, 4, 5, 5, 5, 4},
    {5, 3, 3, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 5, 5, 5},
    {5, 3, 3, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 5, 5},
}};

/// Distance between the two numbers, 7 at most.
[[nodiscard]] constexpr unsigned ReturnLevel(unsigned returns, unsigned number) {
  const unsigned distance = returns > number ? returns - number : number - returns;
  return distance < 7 ? distance : 7;
}

/// The context that a number of bits gives: pairs share one, and so do all from `most` on.
[[nodiscard]] constexpr std::uint32_t EvenWidth(std::uint32_t width, std::uint32_t most) {
  return width < most ? width & ~1u : most;
}

}  // namespace tarnhost::laz
