// Finds integers, a scale and an offset for coordinates that a source has as floating-point
// numbers.
#include "host/formats/converted/CoordinateFit.h"

#include <algorithm>
#include <cmath>

#include "host/formats/converted/DecimalTransform.h"

namespace tarnhost {

namespace {

constexpr double kMostStored = std::numeric_limits<std::int32_t>::max();
constexpr int kFewestDecimals = -15;  // for scales of up to 10^15
constexpr double kRoundOffset = 1000;

double ScaleOf(int decimals) {
  return decimals >= 0 ? 1 / PowerOfTen(decimals) : PowerOfTen(-decimals);
}

/// A coordinate in units of the last of so many decimals.
double UnitsOf(double coordinate, int decimals) {
  return std::nearbyint(decimals >= 0 ? coordinate * PowerOfTen(decimals)
                                      : coordinate / PowerOfTen(-decimals));
}

double FromUnits(double units, int decimals) {
  return decimals >= 0 ? units / PowerOfTen(decimals) : units * PowerOfTen(-decimals);
}

}  // namespace

bool AxisFit::HasDecimals(double coordinate, int decimals) const {
  const double units = UnitsOf(coordinate, decimals);
  const double again = FromUnits(units, decimals);
  return narrow_ ? static_cast<float>(again) == static_cast<float>(coordinate)
                 : again == coordinate;
}

void AxisFit::Add(double coordinate) {
  least_ = std::min(least_, coordinate);
  greatest_ = std::max(greatest_, coordinate);
  if (isOwn_) {
    const double stored = std::nearbyint((coordinate - ownOffset_) / ownScale_);
    isOwn_ = std::abs(stored) <= kMostStored && stored * ownScale_ + ownOffset_ == coordinate;
  }
  while (decimals_ >= 0 && !HasDecimals(coordinate, decimals_)) {
    ++decimals_;
    if (decimals_ > kMostDecimals ||
        std::abs(coordinate) * PowerOfTen(decimals_) > kMostDecimalUnits) {
      decimals_ = -1;
    }
  }
}

void AxisFit::Join(const AxisFit& other) {
  least_ = std::min(least_, other.least_);
  greatest_ = std::max(greatest_, other.greatest_);
  isOwn_ = isOwn_ && other.isOwn_;
  decimals_ = decimals_ < 0 || other.decimals_ < 0 ? -1 : std::max(decimals_, other.decimals_);
}

/// Finds an offset with which all integers fit: none, or a round number.
bool AxisFit::Fits(int decimals, double& offset) const {
  offset = 0;
  if (least_ > greatest_) return true;  // no point
  const double least = UnitsOf(least_, decimals);
  const double greatest = UnitsOf(greatest_, decimals);
  if (std::max(std::abs(least), std::abs(greatest)) > kMostDecimalUnits) return false;
  const auto fits = [&](double units) {
    return std::abs(least - units) <= kMostStored && std::abs(greatest - units) <= kMostStored;
  };
  if (fits(0)) return true;
  const double middle = least / 2 + greatest / 2;
  const double one = decimals >= 0 ? PowerOfTen(decimals) : 1;
  for (const double step : {kRoundOffset * one, one, 1.0}) {
    const double units = std::nearbyint(middle / step) * step;
    if (!fits(units)) continue;
    offset = FromUnits(units, decimals);
    return true;
  }
  return false;
}

AxisFit::Choice AxisFit::Choose(int decimals) const {
  if (isOwn_) return {ownScale_, ownOffset_, true};
  Choice choice;
  const bool isExact = decimals_ >= 0;
  for (const int wanted : {std::max(decimals, decimals_), decimals_}) {
    if (!isExact || wanted > kMostDecimals || !Fits(wanted, choice.offset)) continue;
    choice.scale = ScaleOf(wanted);
    return choice;
  }
  return Coarsest();
}

/// The finest step with which the integers fit.
AxisFit::Choice AxisFit::Coarsest() const {
  Choice choice{1, 0, false};
  for (int decimals = kMostDecimals; decimals >= kFewestDecimals; --decimals) {
    if (!Fits(decimals, choice.offset)) continue;
    choice.scale = ScaleOf(decimals);
    break;
  }
  return choice;
}

}  // namespace tarnhost
