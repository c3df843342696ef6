// Writing a repository that lives in memory.
#include <OOCPointCloud/ResultCodes.h>
#include <OOCPointCloud/StreamStore.h>

#include <utility>

namespace {

using ByteVector = std::vector<std::uint8_t>;

// The bytes of a stream for writing: nobody else holds them.
ByteVector& Unshare(std::shared_ptr<ByteVector>& bytes) {
  if (bytes == nullptr) {
    bytes = std::make_shared<ByteVector>();
  } else if (bytes.use_count() > 1) {
    bytes = std::make_shared<ByteVector>(*bytes);
  }
  return *bytes;
}

}  // namespace

OOCPCMemoryStreamStore::OOCPCMemoryStreamStore(std::shared_ptr<OOCPCMemoryStreams> streams)
    : streams_(std::move(streams)) {}

HRESULT OOCPCMemoryStreamStore::ReadMain(std::vector<std::uint8_t>& bytes) {
  const std::lock_guard lock(streams_->mutex);
  if (streams_->main == nullptr) return oocpc::result::kNotARepository;
  bytes = *streams_->main;
  return oocpc::result::kOk;
}

HRESULT OOCPCMemoryStreamStore::GetLength(const std::string& name, std::uint64_t& length) {
  if (!OOCPCIsStreamName(name)) return oocpc::result::kBadStreamName;
  const std::lock_guard lock(streams_->mutex);
  const auto found = streams_->named.find(name);
  length = found == streams_->named.end() ? 0 : found->second->size();
  return oocpc::result::kOk;
}

HRESULT OOCPCMemoryStreamStore::Append(const std::string& name,
                                       std::span<const std::uint8_t> bytes) {
  if (!OOCPCIsStreamName(name)) return oocpc::result::kBadStreamName;
  const std::lock_guard lock(streams_->mutex);
  ByteVector& stream = Unshare(streams_->named[name]);
  stream.insert(stream.end(), bytes.begin(), bytes.end());
  return oocpc::result::kOk;
}

HRESULT OOCPCMemoryStreamStore::Truncate(const std::string& name, std::uint64_t length) {
  if (!OOCPCIsStreamName(name)) return oocpc::result::kBadStreamName;
  const std::lock_guard lock(streams_->mutex);
  const auto found = streams_->named.find(name);
  const std::uint64_t present = found == streams_->named.end() ? 0 : found->second->size();
  if (length > present) return oocpc::result::kSeekOutOfRange;
  if (length < present) Unshare(found->second).resize(length);
  return oocpc::result::kOk;
}

HRESULT OOCPCMemoryStreamStore::Sync(const std::string& name) {
  return OOCPCIsStreamName(name) ? oocpc::result::kOk : oocpc::result::kBadStreamName;
}

HRESULT OOCPCMemoryStreamStore::ReplaceMain(std::span<const std::uint8_t> bytes) {
  auto replacement = std::make_shared<ByteVector>(bytes.begin(), bytes.end());
  const std::lock_guard lock(streams_->mutex);
  streams_->main = std::move(replacement);
  return oocpc::result::kOk;
}
