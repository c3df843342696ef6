// The streams of a chunk whose attributes are coded apart, and which of them are there.
#pragma once

#include <optional>

#include "host/formats/laz/ArithmeticDecoder.h"
#include "host/formats/laz/ArithmeticEncoder.h"

namespace tarnhost::laz {

/// A stream to read. Absent when the attribute never changes in the chunk, or is not wanted.
struct DecodedLayer {
  using Coder = ArithmeticDecoder;
  ArithmeticDecoder coder;
  const std::uint8_t* end = nullptr;
  bool present = false;

  /// As far as it was read.
  [[nodiscard]] bool IsSound() const {
    return !present || (coder.IsSound() && coder.GetNext() <= end);
  }
  /// Whether it was read to its end.
  [[nodiscard]] bool IsComplete() const { return !present || coder.GetNext() == end; }
  void NoteChange(bool /*changed*/) {}
};

/// A stream to write. It is left out in the end when nothing changed.
struct EncodedLayer {
  using Coder = ArithmeticEncoder;
  static constexpr bool present = true;
  ArithmeticEncoder coder;
  bool changed = false;

  void Start() {
    coder.Start();
    changed = false;
  }
  void NoteChange(bool differs) { changed = changed || differs; }
};

/// The layers of the first thirty bytes, in the order of the file.
enum PointLayer : unsigned {
  kLayerXy,
  kLayerZ,
  kLayerClassification,
  kLayerFlags,
  kLayerIntensity,
  kLayerScanAngle,
  kLayerUserData,
  kLayerPointSource,
  kLayerGpsTime,
  kPointLayers,
};

}  // namespace tarnhost::laz
