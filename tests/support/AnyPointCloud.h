// A point cloud pointer for what only asks whether there is one.
#pragma once

class TarnOOCPointCloud;

namespace oocpctest {

/// Not null, and never to be followed.
inline TarnOOCPointCloud* AnyPointCloud() {
  alignas(64) static char place[64];
  return reinterpret_cast<TarnOOCPointCloud*>(place);
}

}  // namespace oocpctest
