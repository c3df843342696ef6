// The repository-information chunk: encoding, and decoding with every statement checked.
#include <OOCPointCloud/OOCPCRepositoryInformation.h>
#include <OOCPointCloud/ResultCodes.h>
#include <OOCPointCloud/StreamStore.h>

#include <algorithm>
#include <cmath>
#include <set>

#include "OOCPointCloud/support/Bytes.h"

namespace {

using oocpc::ByteReader;

// Length field, one letter, committed length: no entry takes fewer bytes.
constexpr std::size_t kSmallestStreamEntry = 4 + 1 + 8;

bool ReadStreams(ByteReader& reader, std::vector<OOCPCStreamLength>& streams) {
  std::uint32_t count = 0;
  if (!reader.Read(count) || count > reader.GetRemaining() / kSmallestStreamEntry) return false;
  streams.resize(count);
  std::set<std::string_view> names;
  for (OOCPCStreamLength& stream : streams) {
    if (!reader.ReadText(stream.name) || !reader.Read(stream.committedBytes)) return false;
    if (!OOCPCIsStreamName(stream.name) || !names.insert(stream.name).second) return false;
  }
  return true;
}

bool ReadFields(ByteReader& reader, OOCPCRepositoryInformation& information) {
  if (!reader.Read(information.catalogueBytes) || !reader.Read(information.catalogueChecksum) ||
      !reader.Read(information.creationTime)) {
    return false;
  }
  for (double& axis : information.localFrameOffset) {
    if (!reader.Read(axis) || !std::isfinite(axis)) return false;
  }
  return reader.ReadText(information.generator) && ReadStreams(reader, information.streams) &&
         reader.GetRemaining() == 0;
}

}  // namespace

HRESULT OOCPCRepositoryInformation::LoadFromChunk(const std::uint8_t* payload, std::uint32_t size) {
  std::span<const std::uint8_t> content;
  const HRESULT sealed = oocpc::CheckSealedPayload(payload, size, content);
  if (oocpc::Failed(sealed)) return sealed;

  ByteReader reader(content);
  std::uint16_t version = 0;
  if (!reader.Read(version)) return oocpc::result::kBadRecord;
  if (version != kVersion) return oocpc::result::kUnknownVersion;

  OOCPCRepositoryInformation loaded;
  if (!ReadFields(reader, loaded)) return oocpc::result::kBadRecord;
  loaded.loaded_ = true;
  *this = std::move(loaded);
  return oocpc::result::kOk;
}

std::vector<std::uint8_t> OOCPCRepositoryInformation::EncodeChunk() const {
  std::vector<std::uint8_t> out;
  oocpc::AppendLittleEndian(out, kVersion);
  oocpc::AppendLittleEndian(out, catalogueBytes);
  oocpc::AppendLittleEndian(out, catalogueChecksum);
  oocpc::AppendLittleEndian(out, creationTime);
  for (const double axis : localFrameOffset) oocpc::AppendLittleEndian(out, axis);
  oocpc::AppendText(out, generator);
  oocpc::AppendLittleEndian(out, static_cast<std::uint32_t>(streams.size()));
  for (const OOCPCStreamLength& stream : streams) {
    oocpc::AppendText(out, stream.name);
    oocpc::AppendLittleEndian(out, stream.committedBytes);
  }
  oocpc::AppendChecksum(out);
  return out;
}

const OOCPCStreamLength* OOCPCRepositoryInformation::FindStream(std::string_view name) const {
  const auto found = std::ranges::find(streams, name, &OOCPCStreamLength::name);
  return found == streams.end() ? nullptr : &*found;
}
