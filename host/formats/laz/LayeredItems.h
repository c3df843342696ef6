// All items of a point of the formats 6 to 10, in layers.
#pragma once

#include "host/formats/laz/ColorCoder.h"
#include "host/formats/laz/LazLayout.h"
#include "host/formats/laz/Point14Coder.h"
#include "host/formats/laz/WavePacketCoder.h"

namespace tarnhost::laz {

/// Models and last values of one item for each scanner channel. Which one a point uses is told by
/// the channel, but for version 3 with two twists that became the format.
template <typename Models, typename Last>
class ChannelContexts {
 public:
  struct Context {
    bool used = false;
    Models models;
    Last last;
  };

  template <bool kDecodes>
  void Start(unsigned channel, const Last& first) {
    for (auto& context : contexts_) {
      if (context) context->used = false;
    }
    current_ = channel;
    Begin<kDecodes>(channel, first);
  }

  /// Goes to a context; gives the value relative to which, and into which, the next one is coded.
  template <bool kDecodes>
  TARNHOST_LAZ_INLINE Last& Enter(unsigned channel, unsigned version) {
    Last* last = &contexts_[current_]->last;
    if (channel == current_) return *last;
    current_ = channel;
    if (!contexts_[channel] || !contexts_[channel]->used) {
      Begin<kDecodes>(channel, *last);
      return contexts_[channel]->last;
    }
    // In version 3 the value stays that of the context just left.
    return version >= 4 ? contexts_[channel]->last : *last;
  }
  [[nodiscard]] Models& GetModels() { return contexts_[current_]->models; }

 private:
  template <bool kDecodes>
  void Begin(unsigned channel, const Last& from) {
    auto& context = contexts_[channel];
    if (!context) context = std::make_unique<Context>();
    context->used = true;
    context->last = from;
    context->models.template Start<kDecodes>(from);
  }

  std::array<std::unique_ptr<Context>, Point14Coder::kChannels> contexts_;
  unsigned current_ = 0;
};

class LayeredItems {
 public:
  explicit LayeredItems(const LazLayout& layout) : layout_(layout) {}

  template <bool kDecodes>
  void Start(const std::uint8_t* first) {
    point_.Start<kDecodes>(first);
    const unsigned channel = point_.GetChannel();
    if (layout_.colorAt != 0) color_.Start<kDecodes>(channel, LoadColor(first));
    if (layout_.waveAt != 0) {
      wave_.Start<kDecodes>(channel, oocpc::LoadLittleEndian<WaveBytes>(first + layout_.waveAt));
    }
    if (layout_.extraBytes != 0) {
      const std::uint8_t* extra = first + layout_.extraAt;
      extra_.Start<kDecodes>(channel, {extra, extra + layout_.extraBytes});
    }
  }

  /// `record` is read from when encoding, and written to when decoding. `layers` are as many as the
  /// layout counts.
  template <typename Layer>
  TARNHOST_LAZ_INLINE void Code(Layer* layers, std::uint8_t* record) {
    point_.Code(layers, record);
    if (layout_.recordBytes == Point14::kBytes) return;
    const unsigned channel =
        layout_.version >= 4 || point_.HasChannelChanged() ? point_.GetChannel() : 0;
    Layer* layer = layers + kPointLayers;
    if (layout_.colorAt != 0) CodeColor(layer, channel, record);
    if (layout_.waveAt != 0) CodeWavePacket(layer, channel, record + layout_.waveAt);
    if (layout_.extraBytes != 0) CodeExtraBytes(layer, channel, record + layout_.extraAt);
  }

  [[nodiscard]] bool IsSound() const { return point_.IsSound(); }

 private:
  struct ColorAndNir {
    Color color{};
    std::uint16_t nir = 0;
  };
  struct ColorModels {
    ColorCoder color;
    SymbolModel<4> nirChanges;
    std::array<SymbolModel<256>, 2> nir;
    template <bool kDecodes>
    void Start(const ColorAndNir& /*first*/) {
      color.Start<kDecodes>();
      nirChanges.Start<kDecodes>(4);
      for (auto& model : nir) model.Start<kDecodes>(256);
    }
  };
  using WaveBytes = std::array<std::uint8_t, WavePacketCoder::kBytes>;
  struct WaveModels {
    WavePacketCoder packet;
    template <bool kDecodes>
    void Start(const WaveBytes& /*first*/) {
      packet.Start<kDecodes>();
    }
  };
  using ExtraBytes = std::vector<std::uint8_t>;
  struct ExtraModels {
    std::vector<SymbolModel<256>> bytes;
    template <bool kDecodes>
    void Start(const ExtraBytes& first) {
      bytes.resize(first.size());
      for (auto& model : bytes) model.Start<kDecodes>(256);
    }
  };

  [[nodiscard]] ColorAndNir LoadColor(const std::uint8_t* record) const {
    return {oocpc::LoadLittleEndian<Color>(record + layout_.colorAt),
            layout_.nirAt == 0 ? std::uint16_t{0}
                               : oocpc::LoadLittleEndian<std::uint16_t>(record + layout_.nirAt)};
  }

  template <typename Layer>
  TARNHOST_LAZ_INLINE void CodeColor(Layer*& layer, unsigned channel, std::uint8_t* record) {
    constexpr bool kDecodes = Layer::Coder::kDecodes;
    ColorAndNir& last = color_.Enter<kDecodes>(channel, layout_.version);
    ColorModels& models = color_.GetModels();
    const ColorAndNir given = LoadColor(record);
    if (layer->present) {
      layer->NoteChange(given.color != last.color);
      last.color = models.color.Code(layer->coder, last.color, given.color);
    }
    ++layer;
    std::memcpy(record + layout_.colorAt, last.color.data(), sizeof(last.color));
    if (layout_.nirAt == 0) return;
    if (layer->present) {
      layer->NoteChange(given.nir != last.nir);
      last.nir = CodeNir(layer->coder, models, last.nir, given.nir);
    }
    ++layer;
    std::memcpy(record + layout_.nirAt, &last.nir, sizeof(last.nir));
  }

  template <typename Coder>
  TARNHOST_LAZ_INLINE static std::uint16_t CodeNir(Coder& coder, ColorModels& models,
                                                   std::uint16_t last, std::uint16_t given) {
    const auto difference = static_cast<std::uint32_t>(last ^ given);
    const std::uint32_t changes =
        coder.Symbol(models.nirChanges, ((difference & 0xFFu) != 0 ? 1u : 0u) |
                                            ((difference & 0xFF00u) != 0 ? 2u : 0u));
    std::uint32_t nir = last;
    for (unsigned part = 0; part < 2; ++part) {
      if ((changes >> part & 1u) == 0) continue;
      const unsigned shift = 8 * part;
      const std::uint32_t before = last >> shift & 255u;
      const std::uint32_t code =
          coder.Symbol(models.nir[part], ((given >> shift & 255u) - before) & 255u);
      nir = (nir & ~(255u << shift)) | ((before + code) & 255u) << shift;
    }
    return static_cast<std::uint16_t>(nir);
  }

  template <typename Layer>
  void CodeWavePacket(Layer*& layer, unsigned channel, std::uint8_t* packet) {
    constexpr bool kDecodes = Layer::Coder::kDecodes;
    WaveBytes& last = wave_.Enter<kDecodes>(channel, layout_.version);
    if (layer->present) {
      layer->NoteChange(std::memcmp(packet, last.data(), last.size()) != 0);
      wave_.GetModels().packet.Code(layer->coder, last.data(), packet);
      std::memcpy(last.data(), packet, last.size());
    } else {
      std::memcpy(packet, last.data(), last.size());
    }
    ++layer;
  }

  template <typename Layer>
  void CodeExtraBytes(Layer*& layer, unsigned channel, std::uint8_t* bytes) {
    constexpr bool kDecodes = Layer::Coder::kDecodes;
    ExtraBytes& last = extra_.Enter<kDecodes>(channel, layout_.version);
    ExtraModels& models = extra_.GetModels();
    for (std::size_t i = 0; i < last.size(); ++i, ++layer) {
      if (layer->present) {
        layer->NoteChange(bytes[i] != last[i]);
        const auto code = static_cast<std::uint8_t>(bytes[i] - last[i]);
        last[i] = static_cast<std::uint8_t>(last[i] + layer->coder.Symbol(models.bytes[i], code));
      }
      bytes[i] = last[i];
    }
  }

  LazLayout layout_;
  Point14Coder point_;
  ChannelContexts<ColorModels, ColorAndNir> color_;
  ChannelContexts<WaveModels, WaveBytes> wave_;
  ChannelContexts<ExtraModels, ExtraBytes> extra_;
};

}  // namespace tarnhost::laz
