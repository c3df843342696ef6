// The paths that carry the scanner.
#include "host/synthesize/ScannerPath.h"

#include <algorithm>

namespace tarnhost::synthesize {

namespace {

constexpr double kRadian = 57.29577951308232;
constexpr double kFlightHeight = 110;
constexpr double kFlightSpeed = 30;
constexpr double kHalfSwath = 26;  ///< degrees
constexpr double kMastHeight = 2.4;
constexpr double kDriveSpeed = 8;
/// The mobile scanner's plane stands askew, so that it sees fronts as well as sides.
constexpr double kYaw = 0.6;
constexpr double kPauseSeconds = 60;
/// Adjusted standard GPS time of the first pulse: a day in spring 2024.
constexpr double kFirstTime = 400000000.0;

Pulse FlightPulse(const Strip& strip, double time, double spacing) {
  const double phase = time * strip.sweeps;
  const double sweep = std::floor(phase);
  const double along = phase - sweep;
  Pulse pulse;
  pulse.positiveDirection = std::fmod(sweep, 2) == 0;
  pulse.edge = along + spacing * strip.sweeps >= 1;
  pulse.scanAngle = kHalfSwath * (pulse.positiveDirection ? 2 * along - 1 : 1 - 2 * along);
  const double angle = pulse.scanAngle / kRadian;
  pulse.ray.direction = {0, std::sin(angle), -std::cos(angle)};
  return pulse;
}

Pulse DrivePulse(const Strip& strip, double time, double spacing) {
  const double phase = time * strip.sweeps;
  const double along = phase - std::floor(phase);
  Pulse pulse;
  pulse.edge = along + spacing * strip.sweeps >= 1;
  pulse.scanAngle = 360 * along - 180;
  const double angle = pulse.scanAngle / kRadian;
  const double side = std::sin(angle);
  pulse.ray.direction = {strip.heading * side * std::sin(kYaw), side * std::cos(kYaw),
                         -std::cos(angle)};
  return pulse;
}

}  // namespace

Pulse Strip::PulseAt(double time, double spacing, const Terrain& terrain) const {
  Pulse pulse = airborne ? FlightPulse(*this, time, spacing) : DrivePulse(*this, time, spacing);
  pulse.time = time;
  const double x = heading * (speed * time - terrain.GetHalfLength());
  const double sway = airborne ? 0.8 * std::sin(0.9 * time) : 0.1 * std::sin(0.4 * time);
  const double height =
      airborne ? kFlightHeight + 0.5 * std::sin(0.7 * time) : terrain.HeightAt(x, y) + kMastHeight;
  pulse.ray.origin = {x, y + sway, height};
  return pulse;
}

std::vector<Strip> PlanStrips(const Terrain& terrain, std::uint64_t pointCount) {
  const double length = 2 * terrain.GetHalfLength();
  std::vector<Strip> strips{{true, 1, -12, 1, kFlightSpeed, 0, 0, 0.30, 0},
                            {true, 2, 12, -1, kFlightSpeed, 0, 0, 0.30, 0},
                            {false, 11, -1.4, 1, kDriveSpeed, 0, 0, 0.20, 0},
                            {false, 12, 1.4, -1, kDriveSpeed, 0, 0, 0.20, 0}};
  double start = kFirstTime;
  for (Strip& strip : strips) {
    strip.startTime = start;
    strip.duration = length / strip.speed;
    start += strip.duration + kPauseSeconds;
    // As far from one sweep to the next as from one pulse to the next within a sweep.
    const double pulses = std::max(1.0, strip.share * static_cast<double>(pointCount));
    const double sweepLength = strip.airborne ? 2 * kFlightHeight * kHalfSwath / kRadian : 60.0;
    strip.sweeps = std::max(1.0, std::sqrt(pulses * length / sweepLength)) / strip.duration;
  }
  return strips;
}

}  // namespace tarnhost::synthesize
