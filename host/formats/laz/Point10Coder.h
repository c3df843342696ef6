// Codes the first twenty bytes of the point formats 0 to 5.
#pragma once

#include "OOCPointCloud/support/Bytes.h"
#include "host/formats/laz/IntegerCoder.h"
#include "host/formats/laz/ModelBank.h"
#include "host/formats/laz/ReturnTables.h"
#include "host/formats/laz/RunningMedian.h"

namespace tarnhost::laz {

class Point10Coder {
 public:
  static constexpr std::size_t kBytes = 20;

  /// `record` is the chunk's first point.
  template <bool kDecodes>
  void Start(const std::uint8_t* record) {
    changes_.template Start<kDecodes>(64);
    returnBits_.Start();
    classes_.Start();
    users_.Start();
    for (auto& model : angles_) model.template Start<kDecodes>(256);
    intensities_.template Start<kDecodes>();
    sources_.template Start<kDecodes>();
    dx_.template Start<kDecodes>();
    dy_.template Start<kDecodes>();
    z_.template Start<kDecodes>();
    lastIntensities_ = {};
    medianX_ = {};
    medianY_ = {};
    heights_ = {};
    last_ = Load(record);
  }

  /// `record` is read from when encoding, and written to when decoding.
  template <typename Coder>
  TARNHOST_LAZ_INLINE void Code(Coder& coder, std::uint8_t* record) {
    Point point{};
    if constexpr (!Coder::kDecodes) point = Load(record);
    CodeAttributes(coder, point);
    CodePosition(coder, point);
    if constexpr (Coder::kDecodes) Store(point, record);
    last_ = point;
  }

 private:
  struct Point {
    std::int32_t x, y, z;
    std::uint16_t intensity;
    std::uint8_t returnBits, classification, angle, user;
    std::uint16_t source;
  };
  static_assert(sizeof(Point) == kBytes, "laid out as the record, so that it is copied at once");

  static Point Load(const std::uint8_t* record) {
    Point point;
    std::memcpy(&point, record, kBytes);
    return point;
  }
  static void Store(const Point& point, std::uint8_t* record) {
    std::memcpy(record, &point, kBytes);
  }

  enum Change : std::uint32_t {
    kSource = 1,
    kUser = 2,
    kAngle = 4,
    kClass = 8,
    kIntensity = 16,
    kReturns = 32,
  };

  [[nodiscard]] static std::uint8_t MapOf(std::uint8_t returnBits) {
    return kReturnMap8[returnBits >> 3 & 7u][returnBits & 7u];
  }

  [[nodiscard]] std::uint32_t ChangesOf(const Point& point) const {
    return (point.source != last_.source ? kSource : 0u) | (point.user != last_.user ? kUser : 0u) |
           (point.angle != last_.angle ? kAngle : 0u) |
           (point.classification != last_.classification ? kClass : 0u) |
           (point.intensity != lastIntensities_[MapOf(point.returnBits)] ? kIntensity : 0u) |
           (point.returnBits != last_.returnBits ? kReturns : 0u);
  }

  template <typename Coder>
  TARNHOST_LAZ_INLINE void CodeAttributes(Coder& coder, Point& point) {
    constexpr bool kDecodes = Coder::kDecodes;
    std::uint32_t changes = 0;
    if constexpr (!kDecodes) changes = ChangesOf(point);
    changes = coder.Symbol(changes_, changes);
    const auto byte = [&](auto& bank, std::uint8_t last,
                          std::uint8_t given) TARNHOST_LAZ_INLINE_LAMBDA {
      return static_cast<std::uint8_t>(coder.Symbol(bank.template Get<kDecodes>(last), given));
    };
    point.returnBits = (changes & kReturns) != 0
                           ? byte(returnBits_, last_.returnBits, point.returnBits)
                           : last_.returnBits;
    const unsigned map = MapOf(point.returnBits);
    if ((changes & kIntensity) != 0) {
      lastIntensities_[map] = static_cast<std::uint16_t>(
          intensities_.Code(coder, lastIntensities_[map], point.intensity, map < 3 ? map : 3));
    }
    point.intensity = lastIntensities_[map];
    point.classification = (changes & kClass) != 0
                               ? byte(classes_, last_.classification, point.classification)
                               : last_.classification;
    if ((changes & kAngle) != 0) {
      const auto code = static_cast<std::uint8_t>(point.angle - last_.angle);
      point.angle = static_cast<std::uint8_t>(
          last_.angle + coder.Symbol(angles_[point.returnBits >> 6 & 1u], code));
    } else {
      point.angle = last_.angle;
    }
    point.user = (changes & kUser) != 0 ? byte(users_, last_.user, point.user) : last_.user;
    point.source =
        (changes & kSource) != 0
            ? static_cast<std::uint16_t>(sources_.Code(coder, last_.source, point.source))
            : last_.source;
  }

  template <typename Coder>
  TARNHOST_LAZ_INLINE void CodePosition(Coder& coder, Point& point) {
    const unsigned returns = point.returnBits >> 3 & 7u;
    const unsigned map = MapOf(point.returnBits);
    const unsigned single = returns == 1 ? 1 : 0;
    const std::int32_t dx =
        dx_.Code(coder, medianX_[map].Get(), Difference(point.x, last_.x), single);
    medianX_[map].Add(dx);
    point.x = Sum(last_.x, dx);
    const std::uint32_t widthX = dx_.GetWidth();
    const std::int32_t dy = dy_.Code(coder, medianY_[map].Get(), Difference(point.y, last_.y),
                                     EvenWidth(widthX, 20) + single);
    medianY_[map].Add(dy);
    point.y = Sum(last_.y, dy);
    const std::uint32_t width = (widthX + dy_.GetWidth()) / 2;
    std::int32_t& height = heights_[ReturnLevel(returns, point.returnBits & 7u)];
    height = point.z = z_.Code(coder, height, point.z, EvenWidth(width, 18) + single);
  }

  static std::int32_t Sum(std::int32_t a, std::int32_t b) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) + static_cast<std::uint32_t>(b));
  }
  static std::int32_t Difference(std::int32_t a, std::int32_t b) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) - static_cast<std::uint32_t>(b));
  }

  Point last_{};
  SymbolModel<64> changes_;
  ModelBank<256, 256> returnBits_;
  ModelBank<256, 256> classes_;
  ModelBank<256, 256> users_;
  std::array<SymbolModel<256>, 2> angles_;
  IntegerCoder<16, 4> intensities_;
  IntegerCoder<16, 1> sources_;
  IntegerCoder<32, 2> dx_;
  IntegerCoder<32, 22> dy_;
  IntegerCoder<32, 20> z_;
  std::array<std::uint16_t, 16> lastIntensities_{};
  std::array<RunningMedian, 16> medianX_;
  std::array<RunningMedian, 16> medianY_;
  std::array<std::int32_t, 8> heights_{};
};

}  // namespace tarnhost::laz
