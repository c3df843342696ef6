// Clouds imported for tests of selections.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <vector>

#include "host/build/Import.h"
#include "host/select/Select.h"
#include "tests/host/select/SyntheticLas.h"
#include "tests/support/TemporaryFolder.h"

namespace oocpctest {

inline ::testing::AssertionResult Succeeded(const tarnhost::Outcome& outcome) {
  if (outcome.Ok()) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << outcome.what << "\n"
                                       << outcome.where << "\n"
                                       << outcome.remedy;
}

/// A repository made out of LAS files, opened, and gone with the object. `cloud` is null when that
/// failed, which the constructor has then reported.
class ImportedCloud {
 public:
  explicit ImportedCloud(const std::vector<std::filesystem::path>& files) { Import(files); }
  explicit ImportedCloud(const ByteVector& file) {
    WriteFile(folder_ / "scan.las", file);
    Import({folder_ / "scan.las"});
  }

  [[nodiscard]] std::filesystem::path Place(const std::string& name) const {
    return folder_ / name;
  }

  std::unique_ptr<tarnhost::Cloud> cloud;

 private:
  void Import(const std::vector<std::filesystem::path>& files) {
    tarnhost::ImportOptions options;
    options.inputs = files;
    options.output = folder_ / "cloud.tarn";
    options.timePoint = 1;
    tarnhost::ImportReport report;
    EXPECT_TRUE(Succeeded(tarnhost::ImportScans(options, report)));
    EXPECT_TRUE(Succeeded(tarnhost::Cloud::Open(options.output, cloud)));
  }

  TemporaryFolder folder_;
};

inline tarnhost::SelectOptions Query(const std::string& text,
                                     std::optional<std::uint64_t> iteration = {}) {
  tarnhost::SelectOptions options;
  options.text = text;
  options.iteration = iteration;
  return options;
}

/// Count and integer coordinate sums of a selection.
struct Digest {
  std::uint64_t count = 0;
  std::array<std::int64_t, 3> sums{};
  friend bool operator==(const Digest&, const Digest&) = default;
};

inline std::ostream& operator<<(std::ostream& out, const Digest& digest) {
  return out << digest.count << " points, sums " << digest.sums[0] << " " << digest.sums[1] << " "
             << digest.sums[2];
}

/// A sink that adds up.
class DigestSink final : public tarnhost::SelectionSink {
 public:
  tarnhost::Outcome Begin(tarnhost::Cloud& cloud) override {
    return tarnhost::BlockReader::Open(cloud, {}, reader_);
  }
  tarnhost::Outcome Consume(const OOCPCOctreeAcceleratorNode& node,
                            std::span<const std::uint32_t> points,
                            tarnhost::SinkPart* /*part*/) override {
    std::vector<std::int32_t> xyz;
    if (tarnhost::Outcome outcome = reader_.ReadPositions(node, xyz); !outcome.Ok()) return outcome;
    EXPECT_FALSE(points.empty());
    for (const std::uint32_t point : points) {
      ++digest.count;
      for (std::size_t axis = 0; axis < 3; ++axis) {
        digest.sums[axis] += xyz.at(3 * std::size_t{point} + axis);
      }
    }
    return tarnhost::Outcome::Success();
  }
  tarnhost::Outcome End(const tarnhost::SelectReport& report) override {
    ended = true;
    EXPECT_EQ(report.selected, digest.count);
    return tarnhost::Outcome::Success();
  }

  Digest digest;
  bool ended = false;

 private:
  tarnhost::BlockReader reader_;
};

inline Digest Selected(tarnhost::Cloud& cloud, const std::string& text,
                       tarnhost::SelectReport* report = nullptr,
                       std::optional<std::uint64_t> iteration = {}) {
  DigestSink sink;
  tarnhost::SelectReport own;
  EXPECT_TRUE(Succeeded(
      tarnhost::Select(cloud, Query(text, iteration), &sink, report == nullptr ? own : *report)))
      << text;
  EXPECT_TRUE(sink.ended);
  return sink.digest;
}

}  // namespace oocpctest
