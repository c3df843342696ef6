// Colours for numbers.
#include "host/render/ColorRamps.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <span>

namespace tarnhost {

namespace {

unsigned Red(Rgb color) { return color >> 16 & 0xFFu; }
unsigned Green(Rgb color) { return color >> 8 & 0xFFu; }
unsigned Blue(Rgb color) { return color & 0xFFu; }

unsigned MixedPart(unsigned a, unsigned b, double share) {
  return static_cast<unsigned>(std::lround(a + (static_cast<double>(b) - a) * share));
}

Rgb Mixed(Rgb a, Rgb b, double share) {
  return MakeRgb(MixedPart(Red(a), Red(b), share), MixedPart(Green(a), Green(b), share),
                 MixedPart(Blue(a), Blue(b), share));
}

/// Perceived brightness, 0 to 1 (weights of ITU-R BT.601).
double BrightnessOf(Rgb color) {
  return (0.299 * Red(color) + 0.587 * Green(color) + 0.114 * Blue(color)) / 255;
}

constexpr std::array<Rgb, 8> kElevations{0x35618F, 0x3F8E96, 0x58A77C, 0x95BD66,
                                         0xDDCB6A, 0xE2A455, 0xCF7350, 0xEBD3C6};

}  // namespace

Rgb ElevationColor(double share) {
  if (!(share > 0)) return kElevations.front();
  if (share >= 1) return kElevations.back();
  const double place = share * (kElevations.size() - 1);
  const auto step = static_cast<std::size_t>(place);
  return Mixed(kElevations[step], kElevations[step + 1], place - static_cast<double>(step));
}

Rgb GreyColor(double share) {
  const auto grey =
      static_cast<unsigned>(std::lround(255 * (share > 0 ? std::min(share, 1.0) : 0.0)));
  return MakeRgb(grey, grey, grey);
}

Rgb ClassificationColor(std::uint64_t number) {
  // By class number: never classified, unassigned, ground, low, medium and high vegetation,
  // building, low noise, key point, water, rail, road, overlap, guard and conductor wire, tower,
  // wire connector, bridge deck, high noise.
  static constexpr std::array<Rgb, 19> kClasses{0xB7B2AA, 0xC9C4BA, 0xB08D5F, 0xA9C978, 0x6FAE5B,
                                                0x3C8A4C, 0xD2694A, 0xD43FA6, 0xE8C268, 0x4A8FC4,
                                                0x8A7BA6, 0x7D8791, 0xD9D0BF, 0xE0A33B, 0xF0B84A,
                                                0x9156A8, 0xB96BC6, 0xA9998A, 0xE0569B};
  constexpr Rgb kOther = 0x9AA6B2;
  return number < kClasses.size() ? kClasses[number] : kOther;
}

Rgb ReturnColor(std::uint64_t returnNumber, std::uint64_t numberOfReturns) {
  if (numberOfReturns <= 1) return 0xD8C9A8;
  if (returnNumber <= 1) return 0x5BAF6E;
  if (returnNumber >= numberOfReturns) return 0xC9704F;
  return 0xE0C04F;
}

Rgb Subdued(Rgb color) {
  const Rgb grey = GreyColor(0.28 + 0.5 * BrightnessOf(color));
  return Mixed(grey, color, 0.12);
}

Rgb Highlighted(Rgb color) {
  constexpr Rgb kSignal = 0xFF5A1F;
  constexpr Rgb kBright = 0xFFB347;
  return Mixed(kSignal, kBright, std::clamp(BrightnessOf(color), 0.0, 1.0));
}

}  // namespace tarnhost
