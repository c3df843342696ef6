// What comes back of one pulse.
#include "host/synthesize/PulseReturns.h"

#include <algorithm>

namespace tarnhost::synthesize {

namespace {

constexpr double kFarthest = 220;       ///< metres
constexpr double kMobileFarthest = 85;  ///< metres
constexpr double kResolution = 0.4;     ///< metres between returns that the receiver tells apart
constexpr double kRangeNoise = 0.012;   ///< metres, standard deviation
constexpr double kWeakest = 0.1;        ///< share of a pulse below which nothing is seen
constexpr double kScanAngleUnit = 0.006;

/// One echo: where along the pulse, how much of it, and from which foliage (or the solid end).
struct Echo {
  double range = 0;
  double share = 0;
  std::int64_t foliage = -1;
};

struct Echoes {
  std::array<Echo, kMostReturns> list{};
  std::size_t count = 0;
};

/// Lets the pulse through the foliage on its way; gives what is left of it.
double PassFoliage(const Scene& scene, const Trace& trace, Random& random, Echoes& echoes) {
  double left = 1;
  double last = -kResolution;
  for (std::size_t i = 0; i < trace.leavesCount; ++i) {
    const Trace::Leaves& leaves = trace.leaves[i];
    const Foliage& foliage = scene.GetFoliage()[leaves.foliage];
    double range = leaves.enter;
    for (;;) {
      range = std::max(range, last + kResolution) - std::log(1 - random.Unit()) / foliage.density;
      const bool inside = range < leaves.leave && range < trace.range - kResolution;
      if (!inside || echoes.count + 1 >= kMostReturns || left < kWeakest) break;
      const double share = left * random.Between(0.25, 0.7);
      echoes.list[echoes.count++] = {range, share, leaves.foliage};
      left -= share;
      last = range;
    }
  }
  return left;
}

void FindEchoes(const Scene& scene, const Pulse& pulse, bool airborne, Random& random, Trace& trace,
                Echoes& echoes) {
  scene.Cast(pulse.ray, airborne ? kFarthest : kMobileFarthest, trace);
  const double left = PassFoliage(scene, trace, random, echoes);
  if (trace.stopped && left >= kWeakest) echoes.list[echoes.count++] = {trace.range, left};
}

/// Light that the receiver counts: falls with range and slant.
std::uint16_t IntensityOf(const Surface& surface, const Echo& echo, double slant, bool airborne,
                          Random& random) {
  const double reference = airborne ? 110 : 12;
  const double farther = std::max(0.3, echo.range / reference);
  const double light = surface.reflectance * echo.share * (0.3 + 0.7 * slant) / farther;
  const double counted = 40000 * light * (1 + 0.04 * random.Normal());
  return static_cast<std::uint16_t>(std::clamp(counted, 1.0, 65535.0));
}

std::array<std::uint16_t, 3> Sixteen(Color color, double daylight, Random& random) {
  const double factor = 65535 * daylight * (0.97 + 0.06 * random.Unit());
  const auto part = [factor](double value) {
    return static_cast<std::uint16_t>(std::clamp(value * factor, 0.0, 65535.0));
  };
  return {part(color.red), part(color.green), part(color.blue)};
}

/// Blades of grass: some returns from lawns come from a little above the ground.
void RaiseGrass(const Scene& scene, const Trace& trace, Random& random, ScanPoint& point) {
  if (trace.solid >= 0 || point.pointClass != PointClass::kGround) return;
  if (scene.GetTerrain().KindAt(point.place.x, point.place.y) != GroundKind::kGrass) return;
  if (!random.Chance(0.12)) return;
  point.pointClass = PointClass::kLowVegetation;
  point.place.z += random.Between(0.05, 0.3);
}

}  // namespace

void AppendReturns(const Scene& scene, const Strip& strip, const Pulse& pulse, Random& random,
                   std::vector<ScanPoint>& points) {
  Trace trace;
  Echoes echoes;
  FindEchoes(scene, pulse, strip.airborne, random, trace, echoes);
  for (std::size_t i = 0; i < echoes.count; ++i) {
    const Echo& echo = echoes.list[i];
    const Vector met = pulse.ray.At(echo.range);
    const bool leaves = echo.foliage >= 0;
    const Surface surface =
        leaves ? LeavesAt(scene.GetFoliage()[static_cast<std::size_t>(echo.foliage)], met, random)
               : SurfaceOf(scene, trace, met, random);
    const Vector normal = leaves ? Vector{0, 0, 1} : trace.normal;
    ScanPoint point;
    point.place = pulse.ray.At(echo.range + kRangeNoise * random.Normal());
    point.gpsTime = strip.startTime + pulse.time;
    point.intensity =
        IntensityOf(surface, echo, leaves ? 1 : std::abs(Dot(normal, pulse.ray.direction)),
                    strip.airborne, random);
    point.color = Sixteen(surface.color, DaylightAt(scene, met, normal), random);
    point.scanAngle = static_cast<std::int16_t>(std::lround(pulse.scanAngle / kScanAngleUnit));
    point.sourceId = strip.sourceId;
    point.returnNumber = static_cast<std::uint8_t>(i + 1);
    point.returnCount = static_cast<std::uint8_t>(echoes.count);
    point.pointClass = surface.pointClass;
    point.positiveDirection = pulse.positiveDirection;
    point.edge = pulse.edge;
    if (!leaves) RaiseGrass(scene, trace, random, point);
    points.push_back(point);
  }
}

std::size_t CountReturns(const Scene& scene, const Strip& strip, const Pulse& pulse,
                         Random& random) {
  Trace trace;
  Echoes echoes;
  FindEchoes(scene, pulse, strip.airborne, random, trace, echoes);
  return echoes.count;
}

}  // namespace tarnhost::synthesize
