// The levels of detail that a plan has to give, computed on plain grids with ordered maps.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <map>
#include <set>
#include <tuple>
#include <utility>
#include <vector>

#include "host/build/MortonCube.h"
#include "host/build/OctreePlan.h"

namespace oocpctest {

class ReferencePlan {
 public:
  /// A level, and the cell of the octree node whose points they are.
  using Place = std::pair<std::uint32_t, std::uint64_t>;

  explicit ReferencePlan(const std::vector<std::uint64_t>& codes) : codes_(codes) {
    std::vector<std::uint64_t> all(codes.size());
    for (std::uint64_t i = 0; i < all.size(); ++i) all[i] = i;
    for (gridBits_ = 7; gridBits_ > 3; --gridBits_) {
      if (CountCells(all, gridBits_) <= tarnhost::OctreePlan::kNodeCapacity) break;
    }
    std::vector<Group> groups{{0, all, {}}};
    for (unsigned level = 0; !groups.empty(); ++level) groups = Sample(level, groups);
  }

  [[nodiscard]] unsigned GetGridBits() const { return gridBits_; }
  /// Levels without points are left out.
  [[nodiscard]] const std::map<Place, std::set<std::uint64_t>>& GetSamples() const {
    return samples_;
  }

 private:
  static constexpr unsigned kBits = tarnhost::kMortonBits;
  using Triple = std::array<std::int64_t, 3>;

  /// Points of an octree node that no level has yet, and what was sampled in its cell.
  struct Group {
    std::uint64_t cell;
    std::vector<std::uint64_t> points;
    std::vector<std::uint64_t> taken;
    std::size_t total = points.size();  ///< before its own level
    bool leaf = points.size() + taken.size() <= tarnhost::OctreePlan::kNodeCapacity;
  };

  static std::uint64_t CellOf(std::uint64_t code, unsigned level) {
    return code >> (3 * (kBits - level));
  }
  static Triple PlaceOf(std::uint64_t code) {
    Triple place{};
    for (unsigned bit = 0; bit < kBits; ++bit) {
      for (unsigned axis = 0; axis < 3; ++axis) {
        place[axis] |= static_cast<std::int64_t>(code >> (3 * bit + axis) & 1u) << bit;
      }
    }
    return place;
  }
  template <typename Points>
  std::size_t CountCells(const Points& points, unsigned level) const {
    std::vector<std::uint64_t> cells;
    for (const std::uint64_t point : points) cells.push_back(CellOf(codes_[point], level));
    std::sort(cells.begin(), cells.end());
    return static_cast<std::size_t>(std::unique(cells.begin(), cells.end()) - cells.begin());
  }

  std::vector<Group> Sample(unsigned level, std::vector<Group>& groups) {
    std::vector<Group> next;
    for (Group& group : groups) {
      const unsigned finest = group.leaf ? kBits : kBits - 1;
      const unsigned cellLevel = std::min(level + gridBits_, finest);
      std::set<std::uint64_t> sample;
      if (cellLevel < kBits) sample = TakeSample(group, cellLevel);
      std::erase_if(group.points, [&](std::uint64_t point) { return sample.contains(point); });
      const bool isLast =
          cellLevel == kBits || group.points.size() <= std::max<std::size_t>(group.total / 16, 64);
      if (group.leaf && isLast) {
        sample.insert(group.points.begin(), group.points.end());
        group.points.clear();
      }
      if (!sample.empty()) samples_[{level, group.cell}].merge(sample);
      if (!group.leaf) {
        AppendChildren(group, level, next);
      } else if (!group.points.empty()) {
        next.push_back(std::move(group));
      }
    }
    return next;
  }

  void AppendChildren(const Group& group, unsigned level, std::vector<Group>& next) const {
    std::map<std::uint64_t, Group> children;
    for (const std::uint64_t point : group.points) {
      Group& child = children[CellOf(codes_[point], level + 1)];
      child.cell = CellOf(codes_[point], level + 1);
      child.points.push_back(point);
    }
    for (const std::uint64_t point : group.taken) {
      const auto child = children.find(CellOf(codes_[point], level + 1));
      if (child != children.end()) child->second.taken.push_back(point);
    }
    for (auto& [cell, child] : children) {
      next.push_back({cell, std::move(child.points), std::move(child.taken)});
    }
  }

  /// The point nearest to the centre of each cell; where at least as many are left, those that are
  /// closer than two fifths of a cell to one sampled before, in the node's cell, are left out.
  std::set<std::uint64_t> TakeSample(Group& group, unsigned level) const {
    std::map<std::uint64_t, std::vector<std::uint64_t>> cells;
    for (const std::uint64_t point : group.points) {
      cells[CellOf(codes_[point], level)].push_back(point);
    }
    const bool keepApart = 2 * cells.size() <= group.points.size();
    std::map<Triple, std::vector<Triple>> inCells;
    if (keepApart) {
      for (const std::uint64_t point : group.taken) Put(codes_[point], level, inCells);
    }
    std::set<std::uint64_t> sample;
    for (const auto& [cell, points] : cells) {
      const std::uint64_t best = *std::ranges::min_element(points, {}, [&](std::uint64_t point) {
        return std::tuple(FromCentre(codes_[point], level), codes_[point], point);
      });
      if (keepApart && IsNear(codes_[best], level, inCells)) continue;
      sample.insert(best);
      group.taken.push_back(best);
      if (keepApart) Put(codes_[best], level, inCells);
    }
    return sample;
  }

  /// Squared distance from the centre of the cell, in finest cells.
  static double FromCentre(std::uint64_t code, unsigned level) {
    const std::int64_t edge = std::int64_t{1} << (kBits - level);
    double sum = 0;
    for (const std::int64_t place : PlaceOf(code)) {
      const double distance =
          static_cast<double>(place % edge) + 0.5 - static_cast<double>(edge) / 2;
      sum += distance * distance;
    }
    return sum;
  }

  static Triple CellOfPlace(const Triple& place, unsigned level) {
    const unsigned shift = kBits - level;
    return {place[0] >> shift, place[1] >> shift, place[2] >> shift};
  }
  static void Put(std::uint64_t code, unsigned level,
                  std::map<Triple, std::vector<Triple>>& inCells) {
    const Triple place = PlaceOf(code);
    inCells[CellOfPlace(place, level)].push_back(place);
  }
  /// Whether a point of the sample is closer than two fifths of a cell.
  static bool IsNear(std::uint64_t code, unsigned level,
                     const std::map<Triple, std::vector<Triple>>& inCells) {
    const double reach = static_cast<double>((std::int64_t{1} << (kBits - level)) * 2 / 5);
    const Triple place = PlaceOf(code);
    const Triple cell = CellOfPlace(place, level);
    for (std::int64_t x = cell[0] - 1; x <= cell[0] + 1; ++x) {
      for (std::int64_t y = cell[1] - 1; y <= cell[1] + 1; ++y) {
        for (std::int64_t z = cell[2] - 1; z <= cell[2] + 1; ++z) {
          const auto found = inCells.find({x, y, z});
          if (found == inCells.end()) continue;
          for (const Triple& other : found->second) {
            double sum = 0;
            for (std::size_t axis = 0; axis < 3; ++axis) {
              const auto distance = static_cast<double>(place[axis] - other[axis]);
              sum += distance * distance;
            }
            if (sum < reach * reach) return true;
          }
        }
      }
    }
    return false;
  }

  const std::vector<std::uint64_t>& codes_;
  unsigned gridBits_ = 7;
  std::map<Place, std::set<std::uint64_t>> samples_;
};

}  // namespace oocpctest
