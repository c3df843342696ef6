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
    for (gridBits_ = 7; gridBits_ > 3 && !IsCoarseEnough(); --gridBits_) {
    }
    std::vector<std::uint64_t> all(codes.size());
    for (std::uint64_t i = 0; i < all.size(); ++i) all[i] = i;
    std::ranges::sort(all, {}, [&](std::uint64_t i) { return std::pair(codes_[i], i); });
    std::vector<Group> groups{{0, 0, all.size(), all}};
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

  /// Points of an octree node that no level has yet.
  struct Group {
    unsigned nodeLevel;
    std::uint64_t cell;
    std::size_t total;
    std::vector<std::uint64_t> points;
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

  bool IsCoarseEnough() const {
    std::vector<std::uint64_t> all(codes_.size());
    for (std::uint64_t i = 0; i < all.size(); ++i) all[i] = i;
    for (unsigned level = 0; level + gridBits_ <= kBits; ++level) {
      const std::size_t capacity = CountCells(all, level) * tarnhost::OctreePlan::kNodeCapacity;
      if (all.size() <= capacity) return true;
      if (CountCells(all, level + gridBits_) > capacity) return false;
    }
    return true;
  }

  std::vector<Group> Sample(unsigned level, std::vector<Group>& groups) {
    const unsigned cellLevel = std::min(level + gridBits_, kBits);
    std::size_t cells = 0;
    std::size_t points = 0;
    for (const Group& group : groups) {
      cells += CountCells(group.points, cellLevel);
      points += group.points.size();
    }
    const bool keepApart = cellLevel < kBits && cells <= points / 2;
    if (keepApart) PutIntoCells(cellLevel);
    std::vector<Group> next;
    for (Group& group : groups) {
      const bool leaf = group.total <= tarnhost::OctreePlan::kNodeCapacity;
      unsigned sampleLevel = cellLevel;
      while (!leaf && CountCells(group.points, sampleLevel) > tarnhost::OctreePlan::kSampleLimit) {
        --sampleLevel;
      }
      std::set<std::uint64_t> sample = TakeSample(group, sampleLevel, cellLevel, keepApart);
      std::erase_if(group.points, [&](std::uint64_t point) { return sample.contains(point); });
      const bool isLast = cellLevel == kBits || group.points.size() <= group.total / 16;
      if (leaf && isLast) {
        sample.insert(group.points.begin(), group.points.end());
        group.points.clear();
      }
      if (!sample.empty()) samples_[{level, group.cell}].merge(sample);
      if (leaf) {
        if (!group.points.empty()) next.push_back(std::move(group));
        continue;
      }
      std::map<std::uint64_t, std::vector<std::uint64_t>> children;
      for (const std::uint64_t point : group.points) {
        children[CellOf(codes_[point], level + 1)].push_back(point);
      }
      for (auto& [cell, inside] : children) {
        next.push_back({level + 1, cell, inside.size(), std::move(inside)});
      }
    }
    return next;
  }

  std::set<std::uint64_t> TakeSample(const Group& group, unsigned level, unsigned spacingLevel,
                                     bool keepApart) {
    std::map<std::uint64_t, std::vector<std::uint64_t>> cells;
    for (const std::uint64_t point : group.points) {
      cells[CellOf(codes_[point], level)].push_back(point);
    }
    std::set<std::uint64_t> sample;
    for (auto& [cell, points] : cells) {
      std::ranges::sort(points, {}, [&](std::uint64_t point) {
        return std::tuple(FromCentre(codes_[point], level), codes_[point], point);
      });
      const auto best = std::ranges::find_if(points, [&](std::uint64_t point) {
        return !keepApart || !IsNear(codes_[point], spacingLevel);
      });
      if (best == points.end()) continue;
      sample.insert(*best);
      const Triple place = PlaceOf(codes_[*best]);
      sampled_.push_back(place);
      if (keepApart) inCells_[CellOfPlace(place, spacingLevel)].push_back(place);
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
  void PutIntoCells(unsigned level) {
    inCells_.clear();
    for (const Triple& place : sampled_) inCells_[CellOfPlace(place, level)].push_back(place);
  }
  /// Whether a point of the sample is closer than five eighths of a cell.
  bool IsNear(std::uint64_t code, unsigned level) const {
    const double edge = static_cast<double>(std::int64_t{1} << (kBits - level));
    const double reach = static_cast<double>(static_cast<std::int64_t>(edge * 5 / 8));
    const Triple place = PlaceOf(code);
    const Triple cell = CellOfPlace(place, level);
    for (std::int64_t x = cell[0] - 1; x <= cell[0] + 1; ++x) {
      for (std::int64_t y = cell[1] - 1; y <= cell[1] + 1; ++y) {
        for (std::int64_t z = cell[2] - 1; z <= cell[2] + 1; ++z) {
          const auto found = inCells_.find({x, y, z});
          if (found == inCells_.end()) continue;
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
  std::vector<Triple> sampled_;  ///< of all levels
  std::map<Triple, std::vector<Triple>> inCells_;
  std::map<Place, std::set<std::uint64_t>> samples_;
};

}  // namespace oocpctest
