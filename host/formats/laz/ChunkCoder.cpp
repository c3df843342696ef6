// Decodes and encodes whole chunks of points.
#include "host/formats/laz/ChunkCoder.h"

#include "host/formats/laz/LayeredItems.h"
#include "host/formats/laz/PointwiseItems.h"

namespace tarnhost::laz {

using oocpc::AppendLittleEndian;
using oocpc::LoadLittleEndian;

namespace {

/// More points than this in a byte are beyond what any model can say.
constexpr std::uint64_t kMostPointsOfByte = 2048;

/// Sizes of the layers of a chunk, and where the first begins.
struct LayerTable {
  std::uint32_t points = 0;
  std::size_t headBytes = 0;
  std::uint64_t chunkBytes = 0;  ///< of the whole chunk
};

bool ReadLayerTable(const LazLayout& layout, std::span<const std::uint8_t> bytes,
                    LayerTable& table) {
  const std::size_t layers = layout.CountLayers();
  table.headBytes = layout.recordBytes + 4 + 4 * layers;
  if (bytes.size() < table.headBytes) return false;
  table.points = LoadLittleEndian<std::uint32_t>(bytes.data() + layout.recordBytes);
  table.chunkBytes = table.headBytes;
  for (std::size_t i = 0; i < layers; ++i) {
    table.chunkBytes +=
        LoadLittleEndian<std::uint32_t>(bytes.data() + layout.recordBytes + 4 + 4 * i);
  }
  return table.chunkBytes <= bytes.size();
}

/// Whether the layer in this place is asked for.
bool IsWanted(const LazLayout& layout, std::size_t layer, std::uint32_t parts) {
  if (layer == kLayerXy) return true;
  if (layer < kPointLayers) return (parts >> (layer - 1) & 1u) != 0;
  std::size_t at = kPointLayers;
  if (layout.colorAt != 0 && layer == at++) return (parts & kPartColor) != 0;
  if (layout.nirAt != 0 && layer == at++) return (parts & kPartNir) != 0;
  if (layout.waveAt != 0 && layer == at++) return (parts & kPartWavePacket) != 0;
  return (parts & kPartExtraBytes) != 0;
}

bool DecodePointwise(PointwiseItems& items, std::size_t recordBytes,
                     std::span<const std::uint8_t> bytes, std::uint32_t points,
                     std::uint8_t* records, std::size_t& used) {
  if (bytes.size() < recordBytes + 4) return false;
  std::memcpy(records, bytes.data(), recordBytes);
  items.Start<true>(records);
  ArithmeticDecoder decoder(bytes.subspan(recordBytes));
  for (std::uint32_t i = 1; i < points; ++i) {
    records += recordBytes;
    items.Code(decoder, records);
  }
  used = static_cast<std::size_t>(decoder.GetNext() - bytes.data());
  return decoder.IsSound() && items.IsSound();
}

}  // namespace

bool CanHold(const LazLayout& layout, std::uint64_t chunkBytes, std::uint64_t points) {
  return chunkBytes >= layout.recordBytes &&
         points <= 1 + (chunkBytes - layout.recordBytes) * kMostPointsOfByte;
}

struct ChunkDecoder::State {
  explicit State(const LazLayout& layout) {
    if (layout.layered) {
      layered = std::make_unique<LayeredItems>(layout);
    } else {
      pointwise = std::make_unique<PointwiseItems>(layout);
    }
  }

  bool DecodeLayered(const LazLayout& layout, const ChunkBytes& chunk, std::uint32_t points,
                     std::uint8_t* records, std::uint32_t parts);

  std::unique_ptr<PointwiseItems> pointwise;
  std::unique_ptr<LayeredItems> layered;
  std::vector<DecodedLayer> layers;
};

bool ChunkDecoder::State::DecodeLayered(const LazLayout& layout, const ChunkBytes& chunk,
                                        std::uint32_t points, std::uint8_t* records,
                                        std::uint32_t parts) {
  LayerTable table;
  if (!ReadLayerTable(layout, chunk.bytes.first(chunk.chunkBytes), table)) return false;
  if (table.points != points || table.chunkBytes != chunk.chunkBytes) return false;
  layers.assign(layout.CountLayers(), {});
  std::size_t at = table.headBytes;
  for (std::size_t i = 0; i < layers.size(); ++i) {
    const auto bytes =
        LoadLittleEndian<std::uint32_t>(chunk.bytes.data() + layout.recordBytes + 4 + 4 * i);
    if (bytes != 0 && IsWanted(layout, i, parts)) {
      layers[i].present = true;
      layers[i].coder = ArithmeticDecoder(chunk.bytes.subspan(at));
      layers[i].end = chunk.bytes.data() + at + bytes;
    }
    at += bytes;
  }
  if (points > 1 && !layers[kLayerXy].present) return false;
  std::memcpy(records, chunk.bytes.data(), layout.recordBytes);
  layered->Start<true>(records);
  for (std::uint32_t i = 1; i < points; ++i) {
    records += layout.recordBytes;
    layered->Code(layers.data(), records);
  }
  bool sound = layered->IsSound();
  for (const DecodedLayer& layer : layers) sound = sound && layer.IsSound();
  return sound;
}

ChunkDecoder::ChunkDecoder(const LazLayout& layout)
    : layout_(layout), state_(std::make_unique<State>(layout)) {}
ChunkDecoder::ChunkDecoder(ChunkDecoder&&) noexcept = default;
ChunkDecoder::~ChunkDecoder() = default;

bool ChunkDecoder::Decode(const ChunkBytes& chunk, std::uint32_t points, std::uint8_t* records,
                          std::uint32_t parts) {
  if (layout_.layered) return state_->DecodeLayered(layout_, chunk, points, records, parts);
  std::size_t used = 0;
  return DecodePointwise(*state_->pointwise, layout_.recordBytes, chunk.bytes, points, records,
                         used) &&
         used == chunk.chunkBytes;
}

bool ChunkDecoder::DecodeNext(std::span<const std::uint8_t> bytes, std::uint32_t points,
                              std::uint8_t* records, std::size_t& chunkBytes) {
  if (!layout_.layered) {
    return DecodePointwise(*state_->pointwise, layout_.recordBytes, bytes, points, records,
                           chunkBytes);
  }
  LayerTable table;
  if (!ReadLayerTable(layout_, bytes, table)) return false;
  chunkBytes = static_cast<std::size_t>(table.chunkBytes);
  return Decode({bytes, chunkBytes}, points, records);
}

bool MeasureLayeredChunk(const LazLayout& layout, std::span<const std::uint8_t> bytes,
                         std::uint32_t& points, std::uint64_t& chunkBytes) {
  LayerTable table;
  if (!ReadLayerTable(layout, bytes, table)) return false;
  points = table.points;
  chunkBytes = table.chunkBytes;
  return true;
}

struct ChunkEncoder::State {
  explicit State(const LazLayout& layout) {
    if (layout.layered) {
      layered = std::make_unique<LayeredItems>(layout);
      layers.resize(layout.CountLayers());
    } else {
      pointwise = std::make_unique<PointwiseItems>(layout);
    }
  }

  void EncodePointwise(std::size_t recordBytes, std::span<const std::uint8_t> records,
                       std::vector<std::uint8_t>& chunk);
  void EncodeLayered(std::size_t recordBytes, std::span<const std::uint8_t> records,
                     std::vector<std::uint8_t>& chunk);

  std::unique_ptr<PointwiseItems> pointwise;
  std::unique_ptr<LayeredItems> layered;
  ArithmeticEncoder coder;
  std::vector<EncodedLayer> layers;
  std::vector<std::uint8_t> scratch;
};

// The items take records that they may write to, as the decoder does; the encoder writes back what
// it has read. Hence the copy.

void ChunkEncoder::State::EncodePointwise(std::size_t recordBytes,
                                          std::span<const std::uint8_t> records,
                                          std::vector<std::uint8_t>& chunk) {
  scratch.assign(records.begin(), records.end());
  pointwise->Start<false>(scratch.data());
  coder.Start();
  for (std::size_t at = recordBytes; at < scratch.size(); at += recordBytes) {
    pointwise->Code(coder, scratch.data() + at);
  }
  coder.Finish();
  chunk.assign(records.begin(), records.begin() + static_cast<std::ptrdiff_t>(recordBytes));
  chunk.insert(chunk.end(), coder.GetBytes().begin(), coder.GetBytes().end());
}

void ChunkEncoder::State::EncodeLayered(std::size_t recordBytes,
                                        std::span<const std::uint8_t> records,
                                        std::vector<std::uint8_t>& chunk) {
  scratch.assign(records.begin(), records.end());
  layered->Start<false>(scratch.data());
  for (EncodedLayer& layer : layers) layer.Start();
  for (std::size_t at = recordBytes; at < scratch.size(); at += recordBytes) {
    layered->Code(layers.data(), scratch.data() + at);
  }
  chunk.assign(records.begin(), records.begin() + static_cast<std::ptrdiff_t>(recordBytes));
  AppendLittleEndian(chunk, static_cast<std::uint32_t>(records.size() / recordBytes));
  layers[kLayerXy].changed = true;  // is always there
  for (EncodedLayer& layer : layers) {
    if (layer.changed) layer.coder.Finish();
    const std::size_t bytes = layer.changed ? layer.coder.GetBytes().size() : 0;
    AppendLittleEndian(chunk, static_cast<std::uint32_t>(bytes));
  }
  for (const EncodedLayer& layer : layers) {
    if (layer.changed) {
      chunk.insert(chunk.end(), layer.coder.GetBytes().begin(), layer.coder.GetBytes().end());
    }
  }
}

ChunkEncoder::ChunkEncoder(const LazLayout& layout)
    : layout_(layout), state_(std::make_unique<State>(layout)) {}
ChunkEncoder::ChunkEncoder(ChunkEncoder&&) noexcept = default;
ChunkEncoder::~ChunkEncoder() = default;

void ChunkEncoder::Encode(std::span<const std::uint8_t> records, std::vector<std::uint8_t>& chunk) {
  if (layout_.layered) {
    state_->EncodeLayered(layout_.recordBytes, records, chunk);
  } else {
    state_->EncodePointwise(layout_.recordBytes, records, chunk);
  }
}

}  // namespace tarnhost::laz
