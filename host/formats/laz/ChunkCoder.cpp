// Decodes and encodes whole chunks of points.
#include "host/formats/laz/ChunkCoder.h"

#include <algorithm>

#include "host/formats/laz/LayeredItems.h"
#include "host/formats/laz/PointwiseItems.h"

namespace tarnhost::laz {

using oocpc::AppendLittleEndian;
using oocpc::LoadLittleEndian;

namespace {

/// More points than this in a byte are beyond what any model can say.
constexpr std::uint64_t kMostPointsOfByte = 2048;
constexpr std::size_t kRunBytes = std::size_t{1} << 20;

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

}  // namespace

bool CanHold(const LazLayout& layout, std::uint64_t chunkBytes, std::uint64_t points) {
  return chunkBytes >= layout.recordBytes &&
         points <= 1 + (chunkBytes - layout.recordBytes) * kMostPointsOfByte;
}

std::uint32_t CountRunPoints(const LazLayout& layout) {
  return static_cast<std::uint32_t>(std::max<std::size_t>(1, kRunBytes / layout.recordBytes));
}

struct ChunkDecoder::State {
  explicit State(const LazLayout& layout) : recordBytes(layout.recordBytes) {
    if (layout.layered) {
      layered = std::make_unique<LayeredItems>(layout);
    } else {
      pointwise = std::make_unique<PointwiseItems>(layout);
    }
  }

  bool BeginPointwise(const ChunkBytes& chunk);
  bool BeginLayered(const LazLayout& layout, const ChunkBytes& chunk, std::uint32_t points,
                    std::uint32_t parts);
  /// Of the next points, of which none is the chunk's first.
  void DecodePointwise(std::uint32_t count, std::uint8_t* records);
  void DecodeLayered(std::uint32_t count, std::uint8_t* records);
  [[nodiscard]] bool IsSound() const;

  std::size_t recordBytes;
  std::unique_ptr<PointwiseItems> pointwise;
  std::unique_ptr<LayeredItems> layered;
  // Of the chunk that is being decoded.
  std::span<const std::uint8_t> bytes;
  bool begins = false;             ///< no point was given yet
  std::vector<std::uint8_t> last;  ///< the record before the next one, or the first
  ArithmeticDecoder coder;         ///< of pointwise chunks
  std::vector<DecodedLayer> layers;
};

bool ChunkDecoder::State::BeginPointwise(const ChunkBytes& chunk) {
  if (chunk.bytes.size() < recordBytes + 4) return false;
  bytes = chunk.bytes.first(chunk.chunkBytes);
  last.assign(chunk.bytes.begin(), chunk.bytes.begin() + static_cast<std::ptrdiff_t>(recordBytes));
  pointwise->Start<true>(last.data());
  coder = ArithmeticDecoder(chunk.bytes.subspan(recordBytes));
  return true;
}

bool ChunkDecoder::State::BeginLayered(const LazLayout& layout, const ChunkBytes& chunk,
                                       std::uint32_t points, std::uint32_t parts) {
  LayerTable table;
  bytes = chunk.bytes.first(chunk.chunkBytes);
  if (!ReadLayerTable(layout, bytes, table)) return false;
  if (table.points != points || table.chunkBytes != chunk.chunkBytes) return false;
  layers.assign(layout.CountLayers(), {});
  std::size_t at = table.headBytes;
  for (std::size_t i = 0; i < layers.size(); ++i) {
    const auto layerBytes =
        LoadLittleEndian<std::uint32_t>(bytes.data() + layout.recordBytes + 4 + 4 * i);
    if (layerBytes != 0 && IsWanted(layout, i, parts)) {
      layers[i].present = true;
      layers[i].coder = ArithmeticDecoder(chunk.bytes.subspan(at));
      layers[i].end = bytes.data() + at + layerBytes;
    }
    at += layerBytes;
  }
  if (points > 1 && !layers[kLayerXy].present) return false;
  last.assign(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(recordBytes));
  layered->Start<true>(last.data());
  return true;
}

void ChunkDecoder::State::DecodePointwise(std::uint32_t count, std::uint8_t* records) {
  ArithmeticDecoder local = coder;  // in registers
  const std::uint8_t* before = last.data();
  for (std::uint32_t i = 0; i < count; ++i) {
    pointwise->Code(local, before, records);
    before = records;
    records += recordBytes;
  }
  coder = local;
  if (before != last.data()) std::memcpy(last.data(), before, recordBytes);
}

void ChunkDecoder::State::DecodeLayered(std::uint32_t count, std::uint8_t* records) {
  for (std::uint32_t i = 0; i < count; ++i, records += recordBytes) {
    layered->Code(layers.data(), records);
  }
}

bool ChunkDecoder::State::IsSound() const {
  if (pointwise) {
    return coder.IsSound() && coder.GetNext() <= bytes.data() + bytes.size() &&
           pointwise->IsSound();
  }
  return layered->IsSound() && std::ranges::all_of(layers, &DecodedLayer::IsSound);
}

ChunkDecoder::ChunkDecoder(const LazLayout& layout)
    : layout_(layout), state_(std::make_unique<State>(layout)) {}
ChunkDecoder::ChunkDecoder(ChunkDecoder&&) noexcept = default;
ChunkDecoder::~ChunkDecoder() = default;

bool ChunkDecoder::Decode(const ChunkBytes& chunk, std::uint32_t points, std::uint8_t* records,
                          std::uint32_t parts) {
  return Begin(chunk, points, parts) && DecodeRun(points, records) && IsComplete();
}

bool ChunkDecoder::Begin(const ChunkBytes& chunk, std::uint32_t points, std::uint32_t parts) {
  state_->begins = true;
  return layout_.layered ? state_->BeginLayered(layout_, chunk, points, parts)
                         : state_->BeginPointwise(chunk);
}

bool ChunkDecoder::DecodeRun(std::uint32_t count, std::uint8_t* records) {
  if (count == 0) return true;
  if (state_->begins) {
    state_->begins = false;
    std::memcpy(records, state_->last.data(), layout_.recordBytes);
    records += layout_.recordBytes;
    --count;
  }
  if (layout_.layered) {
    state_->DecodeLayered(count, records);
  } else {
    state_->DecodePointwise(count, records);
  }
  return state_->IsSound();
}

bool ChunkDecoder::IsComplete() const {
  if (layout_.layered) return std::ranges::all_of(state_->layers, &DecodedLayer::IsComplete);
  return state_->coder.GetNext() == state_->bytes.data() + state_->bytes.size();
}

bool ChunkDecoder::MeasurePointwise(std::span<const std::uint8_t> bytes, std::uint32_t points,
                                    std::uint64_t& chunkBytes) {
  if (layout_.layered || !Begin({bytes, bytes.size()}, points)) return false;
  const std::uint32_t most = std::min(points, CountRunPoints(layout_));
  std::vector<std::uint8_t> run(most * layout_.recordBytes);
  for (std::uint32_t left = points; left > 0;) {
    const std::uint32_t count = std::min(left, most);
    if (!DecodeRun(count, run.data())) return false;
    left -= count;
  }
  chunkBytes = static_cast<std::uint64_t>(state_->coder.GetNext() - bytes.data());
  return true;
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
    pointwise->Code(coder, scratch.data() + at - recordBytes, scratch.data() + at);
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
