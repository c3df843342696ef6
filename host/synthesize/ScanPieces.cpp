// A scan in pieces of time.
#include "host/synthesize/ScanPieces.h"

#include <tbb/parallel_for.h>

#include <algorithm>

namespace tarnhost::synthesize {

namespace {

constexpr double kPiecePoints = 16384;
constexpr int kTrialPulses = 600;

/// A fresh stream of random numbers for each use of a piece.
constexpr std::uint64_t kTrialStream = std::uint64_t{1} << 40;
constexpr std::uint64_t kScanStream = std::uint64_t{2} << 40;

double TryPiece(const Scene& scene, const Strip& strip, const ScanPiece& piece,
                std::uint64_t seed) {
  Random random(seed, kTrialStream + piece.number);
  const double spacing = (piece.end - piece.begin) / kTrialPulses;
  std::size_t returns = 0;
  for (int i = 0; i < kTrialPulses; ++i) {
    const double time = piece.begin + spacing * (i + random.Unit());
    returns += CountReturns(scene, strip, strip.PulseAt(time, spacing, scene.GetTerrain()), random);
  }
  return static_cast<double>(returns) / kTrialPulses;
}

void ScanWith(const Scene& scene, const Strip& strip, const ScanPiece& piece, std::uint64_t pulses,
              Random& random, std::vector<ScanPoint>& points) {
  const double spacing = (piece.end - piece.begin) / static_cast<double>(pulses);
  points.clear();
  for (std::uint64_t i = 0; i < pulses; ++i) {
    // A little jitter keeps the pulses off a perfect raster; their order stays.
    const double time =
        piece.begin + spacing * (static_cast<double>(i) + 0.1 + 0.8 * random.Unit());
    AppendReturns(scene, strip, strip.PulseAt(time, spacing, scene.GetTerrain()), random, points);
  }
}

/// Leaves out whole pulses, evenly, until `wanted` points remain; where that cannot come out even,
/// one pulse loses its last returns.
void Thin(std::uint64_t wanted, std::vector<ScanPoint>& points) {
  std::uint64_t surplus = points.size() - wanted;
  if (surplus == 0) return;
  const double stride = static_cast<double>(points.size()) / static_cast<double>(surplus);
  double next = stride / 2;
  std::vector<ScanPoint> kept;
  kept.reserve(wanted);
  for (std::size_t i = 0; i < points.size();) {
    const std::uint8_t returns = points[i].returnCount;
    std::uint8_t left = returns;
    if (surplus > 0 && static_cast<double>(i + returns) > next) {
      left -= static_cast<std::uint8_t>(std::min<std::uint64_t>(surplus, returns));
      surplus -= static_cast<std::uint64_t>(returns - left);
      next += stride * (returns - left);
    }
    for (std::uint8_t k = 0; k < left; ++k) {
      kept.push_back(points[i + k]);
      kept.back().returnCount = left;
    }
    i += returns;
  }
  points.swap(kept);
}

}  // namespace

std::vector<ScanPiece> PlanPieces(const Scene& scene, const std::vector<Strip>& strips,
                                  std::uint64_t pointCount, std::uint64_t seed) {
  std::vector<ScanPiece> pieces;
  for (std::size_t s = 0; s < strips.size(); ++s) {
    const double wanted = strips[s].share * static_cast<double>(pointCount);
    const double count = std::max(1.0, std::ceil(wanted / kPiecePoints));
    for (double i = 0; i < count; ++i) {
      pieces.push_back({s, strips[s].duration * i / count, strips[s].duration * (i + 1) / count, 0,
                        1, pieces.size()});
    }
  }
  tbb::parallel_for(std::size_t{0}, pieces.size(), [&](std::size_t i) {
    pieces[i].pointsPerPulse = TryPiece(scene, strips[pieces[i].strip], pieces[i], seed);
  });
  std::vector<double> perStrip(strips.size());
  for (const ScanPiece& piece : pieces) perStrip[piece.strip] += piece.pointsPerPulse;
  double share = 0;
  std::uint64_t given = 0;
  for (ScanPiece& piece : pieces) {
    share += strips[piece.strip].share * piece.pointsPerPulse / perStrip[piece.strip];
    const bool last = &piece == &pieces.back();
    const auto upToHere = static_cast<std::uint64_t>(share * static_cast<double>(pointCount));
    const std::uint64_t until = last ? pointCount : std::clamp(upToHere, given, pointCount);
    piece.pointCount = until - given;
    given = until;
  }
  return pieces;
}

void ScanThePiece(const Scene& scene, const Strip& strip, const ScanPiece& piece,
                  std::uint64_t seed, std::vector<ScanPoint>& points) {
  points.clear();
  if (piece.pointCount == 0) return;
  const double perPulse = std::max(0.05, piece.pointsPerPulse);
  double pulses = 1.02 * static_cast<double>(piece.pointCount) / perPulse + 16;
  for (std::uint64_t attempt = 0;; ++attempt, pulses *= 1.1) {
    Random random(seed, kScanStream + (attempt << 32) + piece.number);
    ScanWith(scene, strip, piece, static_cast<std::uint64_t>(pulses), random, points);
    if (points.size() >= piece.pointCount) break;
  }
  Thin(piece.pointCount, points);
}

}  // namespace tarnhost::synthesize
