// A temporary folder in which tests make scans, import them and open what came of it.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "host/build/Import.h"
#include "host/cloud/Cloud.h"
#include "tests/support/LasBuilder.h"
#include "tests/support/TemporaryFolder.h"

namespace oocpctest {

inline ::testing::AssertionResult IsOk(const tarnhost::Outcome& outcome) {
  if (outcome.Ok()) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << std::hex << static_cast<std::uint32_t>(outcome.code)
                                       << " " << outcome.what << " (" << outcome.where << ")";
}

using StoredPosition = std::array<std::int32_t, 3>;

/// Puts the first points of a LAS file made by a LasBuilder at the positions given.
inline void PlacePoints(std::vector<std::uint8_t>& file,
                        const std::vector<StoredPosition>& positions) {
  std::size_t at = LasBuilder::Get<std::uint32_t>(file, 96);
  for (const StoredPosition& position : positions) {
    for (std::size_t axis = 0; axis < 3; ++axis) {
      LasBuilder::Put(file, at + 4 * axis, position[axis]);
    }
    at += LasBuilder::Get<std::uint16_t>(file, 105);
  }
}

/// The positions of the points of such a file.
inline std::vector<StoredPosition> PositionsIn(const std::vector<std::uint8_t>& file) {
  std::vector<StoredPosition> positions(LasBuilder::Get<std::uint32_t>(file, 107));
  std::size_t at = LasBuilder::Get<std::uint32_t>(file, 96);
  for (StoredPosition& position : positions) {
    for (std::size_t axis = 0; axis < 3; ++axis) {
      position[axis] = LasBuilder::Get<std::int32_t>(file, at + 4 * axis);
    }
    at += LasBuilder::Get<std::uint16_t>(file, 105);
  }
  return positions;
}

/// Points in a cube of `edge` stored units.
inline std::vector<StoredPosition> RandomPositions(std::size_t count, std::int32_t edge,
                                                   unsigned seed = 5) {
  std::mt19937 random(seed);
  std::uniform_int_distribution<std::int32_t> coordinate(0, edge);
  std::vector<StoredPosition> positions(count);
  for (StoredPosition& position : positions) {
    for (std::int32_t& value : position) value = coordinate(random);
  }
  return positions;
}

/// A scan of point format 3 (or another) with points in a cube of 1,000,000 stored units.
inline std::vector<std::uint8_t> ScanOf(std::uint32_t count, unsigned format = 3) {
  LasBuilder builder;
  builder.format = format;
  builder.pointCount = count;
  std::vector<std::uint8_t> file = builder.Build();
  PlacePoints(file, RandomPositions(count, 1000000));
  return file;
}

class ScanFolder {
 public:
  std::filesystem::path Add(const std::string& name, const std::vector<std::uint8_t>& bytes) const {
    WriteFile(folder_ / name, bytes);
    return folder_ / name;
  }

  [[nodiscard]] std::filesystem::path Path() const { return folder_.Path(); }
  [[nodiscard]] std::filesystem::path operator/(const std::string& name) const {
    return folder_ / name;
  }
  [[nodiscard]] std::filesystem::path Repository() const { return folder_ / "cloud.tarn"; }

  [[nodiscard]] tarnhost::ImportOptions Options(std::vector<std::filesystem::path> inputs) const {
    tarnhost::ImportOptions options;
    options.inputs = std::move(inputs);
    options.output = Repository();
    options.timePoint = 7;
    return options;
  }

  tarnhost::ImportReport Import(std::vector<std::filesystem::path> inputs) const {
    tarnhost::ImportReport report;
    EXPECT_TRUE(IsOk(tarnhost::ImportScans(Options(std::move(inputs)), report)));
    return report;
  }
  tarnhost::ImportReport ImportBytes(const std::vector<std::uint8_t>& file) const {
    return Import({Add("scan.las", file)});
  }

  [[nodiscard]] std::unique_ptr<tarnhost::Cloud> Open() const {
    std::unique_ptr<tarnhost::Cloud> cloud;
    EXPECT_TRUE(IsOk(tarnhost::Cloud::Open(Repository(), cloud)));
    return cloud;
  }

  /// Names of what lies in the folder, in order.
  [[nodiscard]] std::vector<std::string> List() const { return ListOf(folder_.Path()); }
  [[nodiscard]] static std::vector<std::string> ListOf(const std::filesystem::path& folder) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
      names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
  }

 private:
  TemporaryFolder folder_;
};

}  // namespace oocpctest
