// A repository in memory, beside the store that writes it.
#include <OOCPointCloud/Repositories.h>
#include <OOCPointCloud/ResultCodes.h>

#include <utility>

namespace {

using SharedBytes = std::shared_ptr<std::vector<std::uint8_t>>;

// The store copies a vector before it appends when someone else holds it too. Letting go under the
// streams' mutex orders the last read of these bytes before the store's next look at the count.
class MemorySource final : public OOCPCByteSource {
 public:
  MemorySource(std::shared_ptr<OOCPCMemoryStreams> streams, SharedBytes bytes)
      : streams_(std::move(streams)), bytes_(std::move(bytes)) {}
  ~MemorySource() override {
    const std::lock_guard lock(streams_->mutex);
    bytes_.reset();
  }
  [[nodiscard]] std::span<const std::uint8_t> GetBytes() const override { return *bytes_; }

 private:
  std::shared_ptr<OOCPCMemoryStreams> streams_;
  SharedBytes bytes_;
};

SharedBytes FindBytes(OOCPCMemoryStreams& streams, std::string_view name) {
  const std::lock_guard lock(streams.mutex);
  if (name.empty()) return streams.main;
  const auto found = streams.named.find(name);
  return found == streams.named.end() ? nullptr : found->second;
}

}  // namespace

OOCPCMemoryRepository::OOCPCMemoryRepository(std::shared_ptr<OOCPCMemoryStreams> streams)
    : streams_(std::move(streams)) {}

OOCPCMemoryRepository::~OOCPCMemoryRepository() = default;

HRESULT OOCPCMemoryRepository::OpenSource(std::string_view name,
                                          std::shared_ptr<const OOCPCByteSource>& source) {
  source.reset();
  SharedBytes bytes = FindBytes(*streams_, name);
  if (bytes == nullptr) return oocpc::result::kStreamMissing;
  source = std::make_shared<MemorySource>(streams_, std::move(bytes));
  return oocpc::result::kOk;
}
