// Codes the first thirty bytes of the point formats 6 to 10, each attribute into a layer of its
// own.
#pragma once

#include <memory>

#include "OOCPointCloud/support/Bytes.h"
#include "host/formats/laz/GpsTimeCoder.h"
#include "host/formats/laz/IntegerCoder.h"
#include "host/formats/laz/Layers.h"
#include "host/formats/laz/ModelBank.h"
#include "host/formats/laz/ReturnTables.h"
#include "host/formats/laz/RunningMedian.h"

namespace tarnhost::laz {

/// The record taken apart.
struct Point14 {
  static constexpr std::size_t kBytes = 30;

  std::int32_t x = 0, y = 0, z = 0;
  std::uint16_t intensity = 0;
  std::uint8_t number = 0, returns = 0;
  std::uint8_t flags = 0;  ///< four of classification, scan direction, edge of flight line
  std::uint8_t channel = 0, classification = 0, user = 0;
  std::int16_t angle = 0;
  std::uint16_t source = 0;
  std::uint64_t time = 0;

  static Point14 Load(const std::uint8_t* record);
  void Store(std::uint8_t* record) const;
};

class Point14Coder {
 public:
  static constexpr unsigned kChannels = 4;

  template <bool kDecodes>
  void Start(const std::uint8_t* record) {
    for (auto& context : contexts_) {
      if (context) context->used = false;
    }
    const Point14 point = Point14::Load(record);
    channel_ = point.channel;
    Enter<kDecodes>(channel_, point);
    sound_ = true;
  }

  /// `record` is read from when encoding, and written to when decoding. `layers` are kPointLayers.
  template <typename Layer>
  TARNHOST_LAZ_INLINE void Code(Layer* layers, std::uint8_t* record) {
    constexpr bool kDecodes = Layer::Coder::kDecodes;
    Point14 point;
    if constexpr (!kDecodes) point = Point14::Load(record);
    const std::uint32_t changes = CodeChanges(layers[kLayerXy].coder, point);
    Context& context = *contexts_[channel_];
    CodeReturns(layers[kLayerXy].coder, context, changes, point);
    CodePosition(layers, context, changes, point);
    CodeAttributes(layers, context, changes, point);
    context.last = point;
    context.timeChanged = (changes & kTime) != 0;
    if constexpr (kDecodes) point.Store(record);
  }

  /// Of the last point.
  [[nodiscard]] unsigned GetChannel() const { return channel_; }
  [[nodiscard]] bool HasChannelChanged() const { return channelChanged_; }
  [[nodiscard]] bool IsSound() const { return sound_; }

 private:
  enum Change : std::uint32_t {
    kReturnNumber = 3,  ///< 0 the same, 1 one more, 2 one less, 3 another
    kReturns = 4,
    kAngle = 8,
    kTime = 16,
    kSource = 32,
    kChannel = 64,
  };

  /// What is kept of one scanner channel.
  struct Context {
    bool used = false;
    bool timeChanged = false;
    Point14 last;
    std::array<SymbolModel<128>, 8> changes;
    SymbolModel<3> channels;
    ModelBank<16, 16> returns;
    ModelBank<16, 16> numbers;
    SymbolModel<13> numbersAtSameTime;
    IntegerCoder<32, 2> dx;
    IntegerCoder<32, 22> dy;
    IntegerCoder<32, 20> z;
    std::array<RunningMedian, 12> medianX;
    std::array<RunningMedian, 12> medianY;
    std::array<std::int32_t, 8> heights{};
    ModelBank<256, 64> classes;
    ModelBank<64, 64> flags;
    IntegerCoder<16, 4> intensity;
    std::array<std::uint16_t, 8> intensities{};
    IntegerCoder<16, 2> angle;
    ModelBank<256, 64> users;
    IntegerCoder<16, 1> source;
    GpsTimeCoder<true> time;

    template <bool kDecodes>
    void Start(const Point14& point);
  };

  /// Makes the context of a channel ready, unless it is.
  template <bool kDecodes>
  void Enter(unsigned channel, const Point14& from) {
    auto& context = contexts_[channel];
    if (!context) context = std::make_unique<Context>();
    if (!context->used) context->template Start<kDecodes>(from);
  }

  [[nodiscard]] std::uint32_t ChangesOf(const Point14& point) const {
    const auto& target = contexts_[point.channel];
    const Point14& last = (target && target->used ? *target : *contexts_[channel_]).last;
    const unsigned step = (point.number - last.number) & 15u;
    const std::uint32_t number = step == 0 ? 0 : step == 1 ? 1 : step == 15 ? 2 : 3;
    return number | (point.returns != last.returns ? kReturns : 0u) |
           (point.angle != last.angle ? kAngle : 0u) | (point.time != last.time ? kTime : 0u) |
           (point.source != last.source ? kSource : 0u) |
           (point.channel != channel_ ? kChannel : 0u);
  }

  template <typename Coder>
  TARNHOST_LAZ_INLINE std::uint32_t CodeChanges(Coder& coder, Point14& point) {
    Context& before = *contexts_[channel_];
    const Point14& last = before.last;
    const unsigned kind = (last.number == 1 ? 1u : 0u) | (last.number >= last.returns ? 2u : 0u) |
                          (before.timeChanged ? 4u : 0u);
    std::uint32_t changes = 0;
    if constexpr (!Coder::kDecodes) changes = ChangesOf(point);
    changes = coder.Symbol(before.changes[kind], changes);
    channelChanged_ = (changes & kChannel) != 0;
    if (channelChanged_) [[unlikely]] {
      const std::uint32_t step =
          coder.Symbol(before.channels, (point.channel - channel_ - 1u) & 3u);
      channel_ = (channel_ + 1 + step) & 3u;
      Enter<Coder::kDecodes>(channel_, last);
    }
    point.channel = static_cast<std::uint8_t>(channel_);
    return changes;
  }

  template <typename Coder>
  TARNHOST_LAZ_INLINE void CodeReturns(Coder& coder, Context& context, std::uint32_t changes,
                                       Point14& point) {
    constexpr bool kDecodes = Coder::kDecodes;
    const Point14& last = context.last;
    if ((changes & kReturns) != 0) {
      auto& model = context.returns.template Get<kDecodes>(last.returns);
      point.returns = static_cast<std::uint8_t>(coder.Symbol(model, point.returns));
    } else {
      point.returns = last.returns;
    }
    const std::uint32_t step = changes & kReturnNumber;
    if (step != 3) {
      constexpr std::array<std::uint8_t, 3> kSteps{0, 1, 15};
      point.number = (last.number + kSteps[step]) & 15u;
    } else if ((changes & kTime) != 0) {
      auto& model = context.numbers.template Get<kDecodes>(last.number);
      point.number = static_cast<std::uint8_t>(coder.Symbol(model, point.number));
    } else {
      const std::uint32_t code =
          coder.Symbol(context.numbersAtSameTime, (point.number - last.number - 2u) & 15u);
      point.number = static_cast<std::uint8_t>((last.number + 2 + code) & 15u);
    }
  }

  template <typename Layer>
  TARNHOST_LAZ_INLINE void CodePosition(Layer* layers, Context& context, std::uint32_t changes,
                                        Point14& point) {
    auto& coder = layers[kLayerXy].coder;
    const Point14& last = context.last;
    const unsigned single = point.returns == 1 ? 1 : 0;
    const unsigned timeChanged = (changes & kTime) != 0 ? 1 : 0;
    const unsigned map = 2u * kReturnMap16[point.returns][point.number] + timeChanged;
    const std::int32_t dx =
        context.dx.Code(coder, context.medianX[map].Get(), Difference(point.x, last.x), single);
    context.medianX[map].Add(dx);
    point.x = Sum(last.x, dx);
    const std::uint32_t widthX = context.dx.GetWidth();
    const std::int32_t dy =
        context.dy.Code(coder, context.medianY[map].Get(), Difference(point.y, last.y),
                        EvenWidth(widthX, 20) + single);
    context.medianY[map].Add(dy);
    point.y = Sum(last.y, dy);
    Layer& layer = layers[kLayerZ];
    if (!layer.present) {
      point.z = last.z;
      return;
    }
    layer.NoteChange(point.z != last.z);
    const std::uint32_t width = (widthX + context.dy.GetWidth()) / 2;
    std::int32_t& height = context.heights[ReturnLevel(point.returns, point.number)];
    height = point.z = context.z.Code(layer.coder, height, point.z, EvenWidth(width, 18) + single);
  }

  template <typename Layer>
  TARNHOST_LAZ_INLINE void CodeAttributes(Layer* layers, Context& context, std::uint32_t changes,
                                          Point14& point) {
    constexpr bool kDecodes = Layer::Coder::kDecodes;
    const Point14& last = context.last;
    const unsigned timeChanged = (changes & kTime) != 0 ? 1 : 0;
    const unsigned place =
        (point.number == 1 ? 2u : 0u) | (point.number >= point.returns ? 1u : 0u);
    if (Layer& layer = layers[kLayerClassification]; layer.present) {
      layer.NoteChange(point.classification != last.classification);
      auto& model = context.classes.template Get<kDecodes>((last.classification & 31u) * 2 +
                                                           (place == 3 ? 1 : 0));
      point.classification =
          static_cast<std::uint8_t>(layer.coder.Symbol(model, point.classification));
    } else {
      point.classification = last.classification;
    }
    if (Layer& layer = layers[kLayerFlags]; layer.present) {
      layer.NoteChange(point.flags != last.flags);
      auto& model = context.flags.template Get<kDecodes>(last.flags);
      point.flags = static_cast<std::uint8_t>(layer.coder.Symbol(model, point.flags));
    } else {
      point.flags = last.flags;
    }
    if (Layer& layer = layers[kLayerIntensity]; layer.present) {
      layer.NoteChange(point.intensity != last.intensity);
      std::uint16_t& before = context.intensities[2 * place + timeChanged];
      before = point.intensity = static_cast<std::uint16_t>(
          context.intensity.Code(layer.coder, before, point.intensity, place));
    } else {
      point.intensity = last.intensity;
    }
    if (Layer& layer = layers[kLayerScanAngle]; layer.present && (changes & kAngle) != 0) {
      layer.NoteChange(true);
      point.angle = static_cast<std::int16_t>(
          context.angle.Code(layer.coder, last.angle, point.angle, timeChanged));
    } else {
      point.angle = last.angle;
    }
    if (Layer& layer = layers[kLayerUserData]; layer.present) {
      layer.NoteChange(point.user != last.user);
      auto& model = context.users.template Get<kDecodes>(last.user >> 2);
      point.user = static_cast<std::uint8_t>(layer.coder.Symbol(model, point.user));
    } else {
      point.user = last.user;
    }
    if (Layer& layer = layers[kLayerPointSource]; layer.present && (changes & kSource) != 0) {
      layer.NoteChange(true);
      point.source =
          static_cast<std::uint16_t>(context.source.Code(layer.coder, last.source, point.source));
    } else {
      point.source = last.source;
    }
    if (Layer& layer = layers[kLayerGpsTime]; layer.present && timeChanged != 0) {
      layer.NoteChange(true);
      point.time = context.time.Code(layer.coder, point.time, sound_);
    } else {
      point.time = last.time;
    }
  }

  static std::int32_t Sum(std::int32_t a, std::int32_t b) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) + static_cast<std::uint32_t>(b));
  }
  static std::int32_t Difference(std::int32_t a, std::int32_t b) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) - static_cast<std::uint32_t>(b));
  }

  std::array<std::unique_ptr<Context>, kChannels> contexts_;
  unsigned channel_ = 0;
  bool channelChanged_ = false;
  bool sound_ = true;
};

inline Point14 Point14::Load(const std::uint8_t* record) {
  using oocpc::LoadLittleEndian;
  Point14 point;
  point.x = LoadLittleEndian<std::int32_t>(record);
  point.y = LoadLittleEndian<std::int32_t>(record + 4);
  point.z = LoadLittleEndian<std::int32_t>(record + 8);
  point.intensity = LoadLittleEndian<std::uint16_t>(record + 12);
  point.number = record[14] & 15u;
  point.returns = static_cast<std::uint8_t>(record[14] >> 4);
  point.flags = static_cast<std::uint8_t>((record[15] & 15u) | (record[15] >> 2 & 48u));
  point.channel = record[15] >> 4 & 3u;
  point.classification = record[16];
  point.user = record[17];
  point.angle = LoadLittleEndian<std::int16_t>(record + 18);
  point.source = LoadLittleEndian<std::uint16_t>(record + 20);
  point.time = LoadLittleEndian<std::uint64_t>(record + 22);
  return point;
}

inline void Point14::Store(std::uint8_t* record) const {
  std::memcpy(record, &x, 4);
  std::memcpy(record + 4, &y, 4);
  std::memcpy(record + 8, &z, 4);
  std::memcpy(record + 12, &intensity, 2);
  record[14] = static_cast<std::uint8_t>(number | returns << 4);
  record[15] = static_cast<std::uint8_t>((flags & 15u) | channel << 4 | (flags & 48u) << 2);
  record[16] = classification;
  record[17] = user;
  std::memcpy(record + 18, &angle, 2);
  std::memcpy(record + 20, &source, 2);
  std::memcpy(record + 22, &time, 8);
}

template <bool kDecodes>
void Point14Coder::Context::Start(const Point14& point) {
  used = true;
  timeChanged = false;
  last = point;
  for (auto& model : changes) model.template Start<kDecodes>(128);
  channels.template Start<kDecodes>(3);
  returns.Start();
  numbers.Start();
  numbersAtSameTime.template Start<kDecodes>(13);
  dx.template Start<kDecodes>();
  dy.template Start<kDecodes>();
  z.template Start<kDecodes>();
  medianX = {};
  medianY = {};
  heights.fill(point.z);
  classes.Start();
  flags.Start();
  intensity.template Start<kDecodes>();
  intensities.fill(point.intensity);
  angle.template Start<kDecodes>();
  users.Start();
  source.template Start<kDecodes>();
  time.template Start<kDecodes>(point.time);
}

}  // namespace tarnhost::laz
