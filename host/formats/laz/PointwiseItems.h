// All items of a point of the formats 0 to 5, one after the other in one stream.
#pragma once

#include "host/formats/laz/ColorCoder.h"
#include "host/formats/laz/GpsTimeCoder.h"
#include "host/formats/laz/LazLayout.h"
#include "host/formats/laz/Point10Coder.h"
#include "host/formats/laz/WavePacketCoder.h"

namespace tarnhost::laz {

class PointwiseItems {
 public:
  explicit PointwiseItems(const LazLayout& layout) : layout_(layout), extra_(layout.extraBytes) {
    if (layout.waveAt != 0) wave_ = std::make_unique<WavePacketCoder>();
  }

  template <bool kDecodes>
  void Start(const std::uint8_t* first) {
    sound_ = true;
    point_.Start<kDecodes>(first);
    if (layout_.timeAt != 0) {
      time_.Start<kDecodes>(oocpc::LoadLittleEndian<std::uint64_t>(first + layout_.timeAt));
    }
    if (layout_.colorAt != 0) color_.Start<kDecodes>();
    if (layout_.waveAt != 0) wave_->Start<kDecodes>();
    for (auto& model : extra_) model.Start<kDecodes>(256);
  }

  /// `record` is read from when encoding, and written to when decoding; `last` is the one before.
  template <typename Coder>
  TARNHOST_LAZ_INLINE void Code(Coder& coder, const std::uint8_t* last, std::uint8_t* record) {
    point_.Code(coder, record);
    if (layout_.timeAt != 0) {
      std::uint8_t* at = record + layout_.timeAt;
      const auto time = time_.Code(coder, oocpc::LoadLittleEndian<std::uint64_t>(at), sound_);
      std::memcpy(at, &time, sizeof(time));
    }
    if (layout_.colorAt != 0) {
      std::uint8_t* at = record + layout_.colorAt;
      const Color color = color_.Code(coder, oocpc::LoadLittleEndian<Color>(last + layout_.colorAt),
                                      oocpc::LoadLittleEndian<Color>(at));
      std::memcpy(at, color.data(), sizeof(color));
    }
    if (layout_.waveAt != 0) {
      wave_->Code(coder, last + layout_.waveAt, record + layout_.waveAt);
    }
    for (std::size_t i = 0; i < extra_.size(); ++i) {
      const std::size_t at = layout_.extraAt + i;
      const auto code = static_cast<std::uint8_t>(record[at] - last[at]);
      record[at] = static_cast<std::uint8_t>(last[at] + coder.Symbol(extra_[i], code));
    }
  }

  [[nodiscard]] bool IsSound() const { return sound_; }

 private:
  LazLayout layout_;
  Point10Coder point_;
  GpsTimeCoder<false> time_;
  ColorCoder color_;
  std::unique_ptr<WavePacketCoder> wave_;
  std::vector<SymbolModel<256>> extra_;
  bool sound_ = true;
};

}  // namespace tarnhost::laz
