// Points in the cells of a grid, to find the nearest one by looking at the cells around.
#pragma once

#include <OOCPointCloud/Types.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <unordered_map>
#include <vector>

namespace oocpctest {

class PointGrid {
 public:
  /// `edge` of a cell: best about the distance of neighbours.
  PointGrid(const std::vector<oocpc::Vector3d>& points, double edge)
      : points_(points), edge_(edge), next_(points.size(), kNone) {
    first_.reserve(points.size());
    for (std::size_t i = 0; i < points.size(); ++i) {
      auto [at, isNew] = first_.try_emplace(KeyOf(CellOf(points[i])), kNone);
      next_[i] = at->second;
      at->second = i;
    }
  }

  /// Distance from a place to the nearest point other than the one numbered `but`; infinite when
  /// there is none within eight cells.
  [[nodiscard]] double NearestDistance(const oocpc::Vector3d& place,
                                       std::size_t but = kNone) const {
    double best = std::numeric_limits<double>::infinity();
    const Cell centre = CellOf(place);
    for (std::int64_t reach = 1; reach <= 8; ++reach) {
      for (std::int64_t x = -reach; x <= reach; ++x) {
        for (std::int64_t y = -reach; y <= reach; ++y) {
          for (std::int64_t z = -reach; z <= reach; ++z) {
            const bool isNew =
                reach == 1 || std::max({std::abs(x), std::abs(y), std::abs(z)}) == reach;
            if (isNew) Look({centre[0] + x, centre[1] + y, centre[2] + z}, place, but, best);
          }
        }
      }
      const double seen = edge_ * static_cast<double>(reach);
      if (best <= seen * seen) break;
    }
    return std::sqrt(best);
  }

  static constexpr std::size_t kNone = ~std::size_t{0};

 private:
  using Cell = std::array<std::int64_t, 3>;

  [[nodiscard]] Cell CellOf(const oocpc::Vector3d& place) const {
    Cell cell;
    for (std::size_t axis = 0; axis < 3; ++axis) {
      cell[axis] = static_cast<std::int64_t>(std::floor(place[axis] / edge_));
    }
    return cell;
  }
  [[nodiscard]] static std::uint64_t KeyOf(const Cell& cell) {
    std::uint64_t key = 0;
    for (const std::int64_t number : cell) {
      key = key << 21 | (static_cast<std::uint64_t>(number) & 0x1FFFFF);
    }
    return key;
  }
  void Look(const Cell& cell, const oocpc::Vector3d& place, std::size_t but, double& best) const {
    const auto found = first_.find(KeyOf(cell));
    if (found == first_.end()) return;
    for (std::size_t i = found->second; i != kNone; i = next_[i]) {
      if (i == but) continue;
      double sum = 0;
      for (std::size_t axis = 0; axis < 3; ++axis) {
        const double distance = points_[i][axis] - place[axis];
        sum += distance * distance;
      }
      best = std::min(best, sum);
    }
  }

  const std::vector<oocpc::Vector3d>& points_;
  double edge_;
  std::unordered_map<std::uint64_t, std::size_t> first_;  ///< of each cell's points
  std::vector<std::size_t> next_;                         ///< in the same cell
};

}  // namespace oocpctest
