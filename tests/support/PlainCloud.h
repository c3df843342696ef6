// A repository in memory, put together by hand, with points and nothing that an import adds.
#pragma once

#include <memory>

#include "tests/support/PlainStreams.h"
#include "tests/support/ScanFolder.h"

namespace oocpctest {

/// A cloud of one node with four points on the x axis and without levels of detail.
inline std::unique_ptr<tarnhost::Cloud> MakePlainCloud() {
  std::unique_ptr<tarnhost::Cloud> cloud;
  EXPECT_TRUE(IsOk(tarnhost::Cloud::Attach(
      std::make_unique<OOCPCMemoryRepository>(MakePlainStreams()), "memory", cloud)));
  return cloud;
}

}  // namespace oocpctest
