// What a LAZ file states of its compression: the record of user "laszip encoded", number 22204.
#include "host/formats/laz/LazLayout.h"

#include <array>

#include "OOCPointCloud/support/Bytes.h"

namespace tarnhost::laz {

namespace result = oocpc::result;
using oocpc::AppendLittleEndian;
using oocpc::LoadLittleEndian;

namespace {

constexpr std::size_t kFixedBytes = 34;
constexpr std::size_t kItemBytes = 6;

enum Compressor : std::uint16_t { kNone = 0, kPointwise = 1, kPointwiseChunked = 2, kLayered = 3 };

enum ItemType : std::uint16_t {
  kByte = 0,
  kPoint10 = 6,
  kGpsTime11 = 7,
  kRgb12 = 8,
  kWavePacket13 = 9,
  kPoint14 = 10,
  kRgb14 = 11,
  kRgbNir14 = 12,
  kWavePacket14 = 13,
  kByte14 = 14,
};

struct ItemKind {
  ItemType type;
  const char* name;
  std::uint16_t bytes;  ///< 0: any number
  int place;            ///< items come in this order
  bool layered;
};

constexpr std::array<ItemKind, 10> kItemKinds{{
    {kPoint10, "POINT10", 20, 0, false},
    {kGpsTime11, "GPSTIME11", 8, 1, false},
    {kRgb12, "RGB12", 6, 2, false},
    {kWavePacket13, "WAVEPACKET13", 29, 4, false},
    {kByte, "BYTE", 0, 5, false},
    {kPoint14, "POINT14", 30, 0, true},
    {kRgb14, "RGB14", 6, 2, true},
    {kRgbNir14, "RGBNIR14", 8, 2, true},
    {kWavePacket14, "WAVEPACKET14", 29, 4, true},
    {kByte14, "BYTE14", 0, 5, true},
}};

struct Item {
  std::uint16_t type;
  std::uint16_t bytes;
  std::uint16_t version;
};

const ItemKind* FindKind(std::uint16_t type) {
  for (const ItemKind& kind : kItemKinds) {
    if (kind.type == type) return &kind;
  }
  return nullptr;
}

Outcome Unsupported(std::string what, const std::string& where) {
  return Outcome::Failure(result::kScanUnsupported, std::move(what), where,
                          "write the file again with a newer LAZ writer, or as LAS");
}

Outcome Contradiction(std::string what, const std::string& where) {
  return Outcome::Failure(result::kScanContradictory, std::move(what), where,
                          "write the scan again with the program that made it");
}

Outcome CheckCompressor(std::uint16_t compressor, std::uint16_t coder, const std::string& where) {
  if (compressor == kNone || compressor > kLayered) {
    return Unsupported("LAZ compressor " + std::to_string(compressor) + " is not known", where);
  }
  if (coder != 0) {
    return Unsupported("LAZ entropy coder " + std::to_string(coder) + " is not known", where);
  }
  return Outcome::Success();
}

Outcome CheckItem(const Item& item, const LazLayout& layout, const std::string& where) {
  const ItemKind* kind = FindKind(item.type);
  if (kind == nullptr) {
    return Unsupported("LAZ item type " + std::to_string(item.type) + " is not known", where);
  }
  const bool known = kind->layered                ? item.version >= 2 && item.version <= 4
                     : item.type == kWavePacket13 ? item.version == 1
                                                  : item.version == 2;
  if (!known) {
    return Unsupported("version " + std::to_string(item.version) + " of the LAZ item " +
                           kind->name + " cannot be read",
                       where);
  }
  if (kind->layered != layout.layered) {
    return Contradiction(std::string("the LAZ item ") + kind->name +
                             " does not go with the compressor that the file states",
                         where);
  }
  if (item.bytes == 0 || (kind->bytes != 0 && item.bytes != kind->bytes)) {
    return Contradiction(std::string("the LAZ item ") + kind->name + " states " +
                             std::to_string(item.bytes) + " bytes",
                         where);
  }
  return Outcome::Success();
}

void Place(const Item& item, std::size_t at, LazLayout& layout) {
  switch (item.type) {
    case kGpsTime11:
      layout.timeAt = at;
      break;
    case kRgb12:
    case kRgb14:
      layout.colorAt = at;
      break;
    case kRgbNir14:
      layout.colorAt = at;
      layout.nirAt = at + 6;
      break;
    case kWavePacket13:
    case kWavePacket14:
      layout.waveAt = at;
      break;
    case kByte:
    case kByte14:
      if (layout.extraBytes == 0) layout.extraAt = at;
      layout.extraBytes += item.bytes;
      break;
    default:
      break;
  }
}

std::vector<Item> ItemsOf(const LazLayout& layout) {
  const auto version = static_cast<std::uint16_t>(layout.version);
  std::vector<Item> items;
  if (layout.layered) {
    items.push_back({kPoint14, 30, version});
    if (layout.nirAt != 0) {
      items.push_back({kRgbNir14, 8, version});
    } else if (layout.colorAt != 0) {
      items.push_back({kRgb14, 6, version});
    }
    if (layout.waveAt != 0) items.push_back({kWavePacket14, 29, version});
  } else {
    items.push_back({kPoint10, 20, version});
    if (layout.timeAt != 0) items.push_back({kGpsTime11, 8, version});
    if (layout.colorAt != 0) items.push_back({kRgb12, 6, version});
    if (layout.waveAt != 0) items.push_back({kWavePacket13, 29, 1});
  }
  if (layout.extraBytes != 0) {
    items.push_back(
        {layout.layered ? kByte14 : kByte, static_cast<std::uint16_t>(layout.extraBytes), version});
  }
  return items;
}

}  // namespace

std::size_t LazLayout::CountLayers() const {
  return 9u + (colorAt != 0 ? 1 : 0) + (nirAt != 0 ? 1 : 0) + (waveAt != 0 ? 1 : 0) + extraBytes;
}

Outcome ParseLazLayout(std::span<const std::uint8_t> payload, std::size_t pointBytes,
                       const std::string& where, LazLayout& out) {
  if (payload.size() < kFixedBytes) {
    return Contradiction("the record that describes the LAZ compression is cut short", where);
  }
  const auto compressor = LoadLittleEndian<std::uint16_t>(payload.data());
  const auto coder = LoadLittleEndian<std::uint16_t>(payload.data() + 2);
  if (Outcome outcome = CheckCompressor(compressor, coder, where); !outcome.Ok()) return outcome;
  LazLayout layout;
  layout.layered = compressor == kLayered;
  layout.chunked = compressor != kPointwise;
  layout.chunkPoints = LoadLittleEndian<std::uint32_t>(payload.data() + 12);
  layout.recordBytes = pointBytes;
  if (layout.chunked && layout.chunkPoints == 0) {
    return Contradiction("the LAZ compression states chunks of no points", where);
  }
  const std::size_t count = LoadLittleEndian<std::uint16_t>(payload.data() + 32);
  if (payload.size() - kFixedBytes < count * kItemBytes) {
    return Contradiction("the record that describes the LAZ compression is cut short", where);
  }
  std::size_t at = 0;
  int place = -1;
  for (std::size_t i = 0; i < count; ++i) {
    const std::uint8_t* bytes = payload.data() + kFixedBytes + i * kItemBytes;
    const Item item{LoadLittleEndian<std::uint16_t>(bytes),
                    LoadLittleEndian<std::uint16_t>(bytes + 2),
                    LoadLittleEndian<std::uint16_t>(bytes + 4)};
    if (Outcome outcome = CheckItem(item, layout, where); !outcome.Ok()) return outcome;
    const int next = FindKind(item.type)->place;
    const bool repeats = next == place && (item.type == kByte || item.type == kByte14);
    if ((i == 0) != (next == 0) || (next <= place && !repeats)) {
      return Contradiction("the items of the LAZ compression are in no order of a point record",
                           where);
    }
    place = next;
    if (layout.layered) {
      const unsigned version = item.version == 4 ? 4 : 3;
      if (i > 0 && version != layout.version) {
        return Unsupported("the LAZ items of the file have different versions", where);
      }
      layout.version = version;
    }
    Place(item, at, layout);
    at += item.bytes;
  }
  if (at != pointBytes) {
    return Contradiction("the LAZ compression describes point records of " + std::to_string(at) +
                             " bytes, but the header states " + std::to_string(pointBytes),
                         where);
  }
  out = layout;
  return Outcome::Success();
}

LazLayout LazLayoutFor(std::uint8_t format, std::size_t pointBytes, std::uint32_t chunkPoints) {
  LazLayout layout;
  layout.layered = format >= 6;
  layout.version = layout.layered ? 3 : 2;
  layout.chunkPoints = chunkPoints;
  layout.recordBytes = pointBytes;
  std::size_t at = layout.layered ? 30 : 20;
  if (format == 1 || (format >= 3 && format <= 5)) {
    layout.timeAt = at;
    at += 8;
  }
  if (format == 2 || format == 3 || format == 5 || format == 7 || format == 8 || format == 10) {
    layout.colorAt = at;
    at += 6;
  }
  if (format == 8 || format == 10) {
    layout.nirAt = at;
    at += 2;
  }
  if (format == 4 || format == 5 || format == 9 || format == 10) {
    layout.waveAt = at;
    at += 29;
  }
  layout.extraBytes = pointBytes - at;
  layout.extraAt = layout.extraBytes == 0 ? 0 : at;
  return layout;
}

std::vector<std::uint8_t> EncodeLazLayout(const LazLayout& layout) {
  const std::vector<Item> items = ItemsOf(layout);
  std::vector<std::uint8_t> payload;
  AppendLittleEndian<std::uint16_t>(payload, layout.layered ? kLayered : kPointwiseChunked);
  AppendLittleEndian<std::uint16_t>(payload, 0);
  // The version of the format, in the terms of its first writer.
  AppendLittleEndian<std::uint8_t>(payload, layout.layered ? 3 : 2);
  AppendLittleEndian<std::uint8_t>(payload, layout.layered ? 4 : 2);
  AppendLittleEndian<std::uint16_t>(payload, 0);
  AppendLittleEndian<std::uint32_t>(payload, 0);
  AppendLittleEndian<std::uint32_t>(payload, layout.chunkPoints);
  AppendLittleEndian<std::int64_t>(payload, -1);
  AppendLittleEndian<std::int64_t>(payload, -1);
  AppendLittleEndian<std::uint16_t>(payload, static_cast<std::uint16_t>(items.size()));
  for (const Item& item : items) {
    AppendLittleEndian(payload, item.type);
    AppendLittleEndian(payload, item.bytes);
    AppendLittleEndian(payload, item.version);
  }
  return payload;
}

}  // namespace tarnhost::laz
