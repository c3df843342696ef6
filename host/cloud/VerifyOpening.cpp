// Finds out why a repository cannot be opened.
#include "host/cloud/VerifyOpening.h"

#include <OOCPointCloud/OOCPCRepositoryWriter.h>

#include "OOCPointCloud/support/Bytes.h"

namespace tarnhost {

namespace result = oocpc::result;

namespace {

std::vector<std::uint8_t> ReadAll(OOCPCIInputStream* opened) {
  const std::unique_ptr<OOCPCIInputStream> stream(opened);
  if (stream == nullptr) return {};
  std::vector<std::uint8_t> bytes(static_cast<std::size_t>(stream->GetLength()));
  bytes.resize(static_cast<std::size_t>(stream->Read(bytes.data(), bytes.size())));
  return bytes;
}

std::string MeaningOf(HRESULT code) { return Outcome::FromCode(code).what; }

void CheckLengths(OOCPCStreamRepository& repository, const OOCPCRepositoryInformation& information,
                  std::vector<Fault>& faults) {
  for (const OOCPCStreamLength& listed : information.streams) {
    const std::unique_ptr<OOCPCIInputStream> stream(repository.CreateInputStream(listed.name));
    if (stream == nullptr) {
      faults.push_back(
          {result::kStreamMissing, listed.name, 0, 0, MeaningOf(result::kStreamMissing)});
    } else if (stream->GetLength() < listed.committedBytes) {
      faults.push_back({result::kStreamShort, listed.name, 0, stream->GetLength(),
                        "the stream ends here; it should have " +
                            std::to_string(listed.committedBytes) + " bytes"});
    }
  }
}

/// The bytes of a listed stream in their committed length.
std::vector<std::uint8_t> ReadCommitted(OOCPCStreamRepository& repository,
                                        const OOCPCRepositoryInformation& information,
                                        const std::string& name) {
  const OOCPCStreamLength* listed = information.FindStream(name);
  if (listed == nullptr) return {};
  std::vector<std::uint8_t> bytes = ReadAll(repository.CreateInputStream(name));
  if (bytes.size() > listed->committedBytes) {
    bytes.resize(static_cast<std::size_t>(listed->committedBytes));
  }
  return bytes;
}

void CheckDictionary(std::span<const std::uint8_t> bytes, std::vector<Fault>& faults) {
  std::uint64_t number = 0;
  for (std::size_t at = 0; at < bytes.size(); ++number) {
    const std::size_t next = FindNextString(bytes, at);
    if (next == at) {
      faults.push_back({result::kChecksumMismatch, OOCPCStringRepositoryContainer::kStreamName,
                        number, at, "the text is not sound"});
      return;
    }
    at = next;
  }
}

void CheckSources(std::span<const std::uint8_t> bytes, const std::string& name,
                  std::vector<Fault>& faults) {
  std::span<const std::uint8_t> rest = bytes;
  for (std::uint64_t number = 0; !rest.empty(); ++number) {
    const std::size_t at = bytes.size() - rest.size();
    SourceRecord record;
    const HRESULT code = DecodeSourceRecord(rest, record);
    if (!oocpc::Failed(code)) continue;
    faults.push_back({code, name, number, at, "the source is not sound"});
    return;
  }
}

}  // namespace

std::size_t FindNextString(std::span<const std::uint8_t> bytes, std::size_t at) {
  oocpc::ByteReader reader(bytes.subspan(at));
  std::uint32_t length = 0;
  std::span<const std::uint8_t> text;
  std::uint32_t checksum = 0;
  if (!reader.Read(length) || !reader.ReadBytes(length, text) || !reader.Read(checksum)) return at;
  const std::size_t sealed = sizeof(length) + text.size();
  if (oocpc::Crc32c(bytes.subspan(at, sealed)) != checksum) return at;
  return at + sealed + sizeof(checksum);
}

std::vector<Fault> FindOpeningFaults(OOCPCStreamRepository& repository, const Outcome& failure) {
  std::vector<Fault> faults;
  OOCPCCatalogue catalogue;
  const HRESULT decoded = OOCPCDecodeMainStream(ReadAll(repository.CreateInputStream()), catalogue);
  if (oocpc::Failed(decoded)) {
    faults.push_back({decoded, OOCPCFolderStreamStore::kMainFileName, 0, 0, MeaningOf(decoded)});
    return faults;
  }
  const OOCPCRepositoryInformation& information = catalogue.information;
  CheckLengths(repository, information, faults);
  CheckDictionary(
      ReadCommitted(repository, information, OOCPCStringRepositoryContainer::kStreamName), faults);
  const std::string sources = FindSourceStream(information);
  CheckSources(ReadCommitted(repository, information, sources), sources, faults);
  if (faults.empty()) {
    faults.push_back({failure.code, OOCPCFolderStreamStore::kMainFileName, 0, 0, failure.what});
  }
  return faults;
}

}  // namespace tarnhost
