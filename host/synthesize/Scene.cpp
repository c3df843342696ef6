// Rays cast into the scene: cell by cell along the ray, until something stops it.
#include "host/synthesize/Scene.h"

#include <algorithm>
#include <limits>

namespace tarnhost::synthesize {

namespace {

constexpr double kCell = 2;  ///< metres
constexpr double kInfinity = std::numeric_limits<double>::infinity();

/// Cells that an interval of a coordinate covers, cut to [0, count).
std::pair<std::int64_t, std::int64_t> CellsOf(double low, double high, double origin,
                                              std::int64_t count) {
  const auto first = static_cast<std::int64_t>(std::floor((low - origin) / kCell));
  const auto last = static_cast<std::int64_t>(std::floor((high - origin) / kCell));
  return {std::clamp<std::int64_t>(first, 0, count), std::clamp<std::int64_t>(last + 1, 0, count)};
}

/// One axis of a walk through the grid.
struct AxisWalk {
  std::int64_t cell = 0;
  std::int64_t step = 0;
  double next = kInfinity;  ///< range at which the next cell begins
  double stride = kInfinity;

  AxisWalk(double position, double origin, double rayOrigin, double direction, std::int64_t count) {
    cell = static_cast<std::int64_t>(std::floor((position - origin) / kCell));
    cell = std::clamp<std::int64_t>(cell, 0, count - 1);
    if (direction == 0) return;
    step = direction > 0 ? 1 : -1;
    const double edge = origin + kCell * static_cast<double>(cell + (direction > 0 ? 1 : 0));
    next = (edge - rayOrigin) / direction;
    stride = kCell / std::abs(direction);
  }
  void Advance() {
    cell += step;
    next += stride;
  }
};

/// Narrows [from, to] to where one coordinate lies within [low, high].
bool ClipAxis(double origin, double direction, double low, double high, double& from, double& to) {
  if (direction == 0) return origin >= low && origin <= high;
  const double a = (low - origin) / direction;
  const double b = (high - origin) / direction;
  from = std::max(from, std::min(a, b));
  to = std::min(to, std::max(a, b));
  return from < to;
}

}  // namespace

Scene::Scene(double halfLength, std::uint64_t seed) : terrain_(halfLength, seed) {
  Random random(seed, 2);
  PlaceHouses(random);
  PlaceLamps();
  PlaceTrees(random);
  PlaceHedges(random);
  PlaceCars(random);
  BuildGrid();
}

void Scene::BuildGrid() {
  columns_ = static_cast<std::int64_t>(std::ceil(2 * terrain_.GetHalfLength() / kCell));
  rows_ = static_cast<std::int64_t>(std::ceil(2 * kSceneHalfDepth / kCell));
  cells_.assign(static_cast<std::size_t>(columns_ * rows_), {});
  bottom_ = kInfinity;
  for (std::int64_t row = 0; row < rows_; ++row) {
    for (std::int64_t column = 0; column < columns_; ++column) {
      Cell& cell = cells_[static_cast<std::size_t>(row * columns_ + column)];
      for (int sample = 0; sample < 9; ++sample) {
        const int right = sample % 3;
        const int up = sample / 3;
        const double x =
            kCell * (static_cast<double>(column) + 0.5 * right) - terrain_.GetHalfLength();
        const double y = kCell * (static_cast<double>(row) + 0.5 * up) - kSceneHalfDepth;
        const double height = terrain_.HeightAt(x, y);
        bottom_ = std::min(bottom_, height);
        // A kerb between two samples may stand higher than both.
        cell.ground = std::max(cell.ground, static_cast<float>(height + 0.25));
      }
      cell.top = cell.ground;
      top_ = std::max<double>(top_, cell.top);
    }
  }
  bottom_ -= 0.5;
  ListThings();
}

// Two passes over the same loops: the first counts each cell's things, the second lists them.
void Scene::ListThings() {
  const auto forEachCell = [&](const auto& use) {
    for (std::size_t i = 0; i < solids_.size() + foliage_.size(); ++i) {
      const Bounds bounds =
          i < solids_.size() ? solids_[i].bounds : foliage_[i - solids_.size()].GetBounds();
      const auto columns = CellsOf(bounds.min.x, bounds.max.x, -terrain_.GetHalfLength(), columns_);
      const auto rows = CellsOf(bounds.min.y, bounds.max.y, -kSceneHalfDepth, rows_);
      for (std::int64_t row = rows.first; row < rows.second; ++row) {
        for (std::int64_t column = columns.first; column < columns.second; ++column) {
          use(cells_[static_cast<std::size_t>(row * columns_ + column)],
              static_cast<std::uint32_t>(i), bounds.max.z);
        }
      }
    }
  };
  forEachCell([&](Cell& cell, std::uint32_t /*thing*/, double top) {
    ++cell.thingCount;
    cell.top = std::max(cell.top, static_cast<float>(top + 0.01));
    top_ = std::max<double>(top_, cell.top);
  });
  std::uint32_t total = 0;
  for (Cell& cell : cells_) {
    cell.firstThing = total;
    total += cell.thingCount;
    cell.thingCount = 0;
  }
  things_.resize(total);
  forEachCell([&](Cell& cell, std::uint32_t thing, double /*top*/) {
    things_[cell.firstThing + cell.thingCount++] = thing;
  });
}

bool Scene::Enter(const Ray& ray, double farthest, double& from, double& to) const {
  from = 0;
  to = farthest;
  const double halfLength = terrain_.GetHalfLength();
  return ClipAxis(ray.origin.x, ray.direction.x, -halfLength, halfLength, from, to) &&
         ClipAxis(ray.origin.y, ray.direction.y, -kSceneHalfDepth, kSceneHalfDepth, from, to) &&
         ClipAxis(ray.origin.z, ray.direction.z, bottom_, top_, from, to);
}

void Scene::Cast(const Ray& ray, double farthest, Trace& trace) const {
  trace.stopped = false;
  trace.range = farthest;
  trace.leavesCount = 0;
  double from = 0;
  double to = 0;
  if (!Enter(ray, farthest, from, to)) return;
  const Vector start = ray.At(from);
  AxisWalk column(start.x, -terrain_.GetHalfLength(), ray.origin.x, ray.direction.x, columns_);
  AxisWalk row(start.y, -kSceneHalfDepth, ray.origin.y, ray.direction.y, rows_);
  while (from < to) {
    const double until = std::min({column.next, row.next, to});
    VisitCell(cells_[static_cast<std::size_t>(row.cell * columns_ + column.cell)], ray, from,
              std::max(from, until), trace);
    if (trace.stopped && trace.range <= until) break;
    from = std::max(from, until);
    if (until >= to) break;
    AxisWalk& axis = column.next <= row.next ? column : row;
    axis.Advance();
    if (column.cell < 0 || column.cell >= columns_ || row.cell < 0 || row.cell >= rows_) break;
  }
  SortLeaves(trace);
}

void Scene::VisitCell(const Cell& cell, const Ray& ray, double from, double to,
                      Trace& trace) const {
  const double lowest = ray.origin.z + ray.direction.z * (ray.direction.z < 0 ? to : from);
  if (lowest > cell.top) return;
  for (std::uint32_t i = 0; i < cell.thingCount; ++i) {
    const std::uint32_t thing = things_[cell.firstThing + i];
    if (thing >= solids_.size()) {
      MeetFoliage(thing - static_cast<std::uint32_t>(solids_.size()), ray, trace);
      continue;
    }
    SolidEntry entry;
    if (!solids_[thing].Meet(ray, trace.range, entry)) continue;
    trace.stopped = true;
    trace.range = entry.range;
    trace.normal = entry.normal;
    trace.face = entry.face;
    trace.solid = static_cast<std::int32_t>(thing);
  }
  if (lowest <= cell.ground) MeetGround(ray, from, std::min(to, trace.range), trace);
}

// The height above the ground falls from positive to negative within the interval: false position
// with halving wherever it is slow.
void Scene::MeetGround(const Ray& ray, double from, double to, Trace& trace) const {
  const auto above = [&](double range) {
    const Vector at = ray.At(range);
    return at.z - terrain_.HeightAt(at.x, at.y);
  };
  double high = above(from);
  double low = above(to);
  if (!(high > 0) || low > 0) return;
  double range = to;
  for (int i = 0; i < 24; ++i) {
    const double share = i % 3 == 2 ? 0.5 : high / (high - low);
    range = from + (to - from) * share;
    const double height = above(range);
    if (std::abs(height) < 0.0005) break;
    (height > 0 ? from : to) = range;
    (height > 0 ? high : low) = height;
  }
  if (range >= trace.range) return;
  const Vector at = ray.At(range);
  trace.stopped = true;
  trace.range = range;
  trace.normal = terrain_.NormalAt(at.x, at.y);
  trace.solid = -1;
}

void Scene::MeetFoliage(std::uint32_t index, const Ray& ray, Trace& trace) const {
  if (trace.leavesCount == Trace::kMostLeaves) return;
  for (std::size_t i = 0; i < trace.leavesCount; ++i) {
    if (trace.leaves[i].foliage == index) return;
  }
  double enter = 0;
  double leave = 0;
  if (!foliage_[index].Meet(ray, enter, leave)) return;
  trace.leaves[trace.leavesCount++] = {index, enter, leave};
}

void Scene::SortLeaves(Trace& trace) const {
  std::sort(trace.leaves.begin(),
            trace.leaves.begin() + static_cast<std::ptrdiff_t>(trace.leavesCount),
            [](const Trace::Leaves& a, const Trace::Leaves& b) {
              return a.enter != b.enter ? a.enter < b.enter : a.foliage < b.foliage;
            });
}

}  // namespace tarnhost::synthesize
