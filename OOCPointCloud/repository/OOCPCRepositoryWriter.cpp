// Appends to a repository's streams, and commits: sync what grew, then replace the main stream.
#include <OOCPointCloud/OOCPCRepositoryWriter.h>
#include <OOCPointCloud/ResultCodes.h>

#include <utility>

using oocpc::Failed;

OOCPCRepositoryWriter::OOCPCRepositoryWriter(std::unique_ptr<OOCPCIStreamStore> store)
    : store_(std::move(store)) {}

OOCPCRepositoryWriter::~OOCPCRepositoryWriter() = default;

HRESULT OOCPCRepositoryWriter::OpenExisting(std::unique_ptr<OOCPCIStreamStore> store,
                                            OOCPCCatalogue& committed,
                                            std::unique_ptr<OOCPCRepositoryWriter>& writer) {
  std::vector<std::uint8_t> main;
  HRESULT code = store->ReadMain(main);
  if (!Failed(code)) code = OOCPCDecodeMainStream(main, committed);
  if (Failed(code)) return code;
  auto opened = std::make_unique<OOCPCRepositoryWriter>(std::move(store));
  code = opened->Resume(committed.information);
  if (!Failed(code)) writer = std::move(opened);
  return code;
}

HRESULT OOCPCRepositoryWriter::Resume(const OOCPCRepositoryInformation& committed) {
  for (const OOCPCStreamLength& stream : committed.streams) {
    if (Failed(failure_)) return failure_;
    std::uint64_t present = 0;
    failure_ = store_->GetLength(stream.name, present);
    if (Failed(failure_)) continue;
    if (present < stream.committedBytes) {
      failure_ = oocpc::result::kStreamShort;
    } else if (present > stream.committedBytes) {
      failure_ = store_->Truncate(stream.name, stream.committedBytes);
    }
    streams_[stream.name].bytes = stream.committedBytes;
  }
  resumed_ = true;
  return failure_;
}

HRESULT OOCPCRepositoryWriter::FindStream(const std::string& name, Stream*& stream) {
  const auto known = streams_.find(name);
  if (known != streams_.end()) {
    stream = &known->second;
    return oocpc::result::kOk;
  }
  std::uint64_t present = 0;
  HRESULT code = store_->GetLength(name, present);
  if (!Failed(code) && resumed_ && present > 0) {
    // The committed state does not know the stream: an interrupted writer left it.
    code = store_->Truncate(name, 0);
    present = 0;
  }
  if (Failed(code)) return code;
  stream = &streams_[name];
  stream->bytes = present;
  return oocpc::result::kOk;
}

HRESULT OOCPCRepositoryWriter::Append(const std::string& stream,
                                      std::span<const std::uint8_t> bytes,
                                      std::uint64_t& position) {
  if (Failed(failure_)) return failure_;
  Stream* target = nullptr;
  failure_ = FindStream(stream, target);
  if (Failed(failure_)) return failure_;
  failure_ = store_->Append(stream, bytes);
  if (Failed(failure_)) return failure_;
  position = target->bytes;
  target->bytes += bytes.size();
  target->unsynced = true;
  return oocpc::result::kOk;
}

HRESULT OOCPCRepositoryWriter::AppendBlock(std::uint32_t columnId, const oocpc::EncodedBlock& block,
                                           std::uint64_t firstValue) {
  oocpc::BlockEntry entry = block.entry;
  entry.firstValue = firstValue;
  const HRESULT stored =
      Append(oocpc::ColumnDataStreamName(columnId), block.bytes, entry.offsetBytes);
  if (Failed(stored)) return stored;
  std::vector<std::uint8_t> record;
  entry.Encode(record);
  std::uint64_t position = 0;
  return Append(oocpc::ColumnTableStreamName(columnId), record, position);
}

std::uint64_t OOCPCRepositoryWriter::GetLength(const std::string& stream) const {
  const auto known = streams_.find(stream);
  return known == streams_.end() ? 0 : known->second.bytes;
}

std::uint64_t OOCPCRepositoryWriter::GetTotalBytes() const {
  std::uint64_t total = 0;
  for (const auto& [name, stream] : streams_) total += stream.bytes;
  return total;
}

HRESULT OOCPCRepositoryWriter::Commit(const OOCPCCatalogue& catalogue) {
  if (Failed(failure_)) return failure_;
  std::vector<OOCPCStreamLength> lengths;
  for (auto& [name, stream] : streams_) {
    if (stream.unsynced) {
      failure_ = store_->Sync(name);
      if (Failed(failure_)) return failure_;
      stream.unsynced = false;
    }
    lengths.push_back({name, stream.bytes});
  }
  failure_ = store_->ReplaceMain(OOCPCEncodeMainStream(catalogue, std::move(lengths)));
  return failure_;
}
