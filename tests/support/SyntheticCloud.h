// A synthetic scan of a street, imported and opened.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>

#include "host/synthesize/SynthesizeScan.h"
#include "tests/support/ScanFolder.h"

namespace oocpctest {

/// The same seed and count give the same cloud. `cloud` is null when making it failed, which has
/// then been reported.
class SyntheticCloud {
 public:
  explicit SyntheticCloud(std::uint64_t pointCount, std::uint64_t seed = 1) {
    tarnhost::SynthesizeOptions options;
    options.output = Scan();
    options.pointCount = pointCount;
    options.seed = seed;
    EXPECT_TRUE(IsOk(tarnhost::SynthesizeScan(options)));
    folder.Import({Scan()});
    cloud = folder.Open();
  }
  [[nodiscard]] std::filesystem::path Scan() const { return folder / "street.las"; }

  ScanFolder folder;
  std::unique_ptr<tarnhost::Cloud> cloud;
};

}  // namespace oocpctest
