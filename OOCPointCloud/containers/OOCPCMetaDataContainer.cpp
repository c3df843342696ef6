// A metadata container: one attribute of the points.
#include <OOCPointCloud/OOCPCMetaDataContainer.h>
#include <OOCPointCloud/ResultCodes.h>

#include <new>

OOCPCMetaDataContainer::~OOCPCMetaDataContainer() = default;

HRESULT OOCPCMetaDataContainer::SetLevelExtent(std::uint32_t nodeEntryCount, std::uint64_t value) {
  if (!level_) return oocpc::result::kFail;
  levelNodeEntryCount_ = nodeEntryCount;
  levelValue_ = value;
  return oocpc::result::kOk;
}

void OOCPCMetaDataContainer::CopyLevel(const OOCPCMetaDataContainer& other) {
  level_ = other.level_;
  levelNodeEntryCount_ = other.levelNodeEntryCount_;
  levelValue_ = other.levelValue_;
}

OOCPCStaticMetaDataContainer::OOCPCStaticMetaDataContainer(OOCPCIDataRepository* repository)
    : OOCPCMetaDataContainer(repository, oocpc::chunk_type::kStaticMetaData, std::string()) {}

OOCPCStaticMetaDataContainer::~OOCPCStaticMetaDataContainer() = default;

HRESULT OOCPCStaticMetaDataContainer::LoadFromChunk(const std::uint8_t* payload,
                                                    std::uint32_t size) {
  const HRESULT code = description_.DecodeChunk(payload, size);
  if (oocpc::Failed(code)) return code;
  SetName(description_.name);
  reader_ = std::make_unique<oocpc::ColumnReader>(GetRepository(), description_.columnId,
                                                  description_.type);
  return code;
}

std::uint16_t OOCPCStaticMetaDataContainer::GetDataSize() const {
  return static_cast<std::uint16_t>(oocpc::ValueBytes(description_.type));
}

oocpc::ColumnType OOCPCStaticMetaDataContainer::GetDeliveredType() const {
  return description_.type;
}

oocpc::ColumnType OOCPCStaticMetaDataContainer::GetStoredType() const { return description_.type; }

HRESULT OOCPCStaticMetaDataContainer::GetBlockCount(std::uint64_t& count) {
  return reader_ == nullptr ? oocpc::result::kStreamMissing : reader_->GetBlockCount(count);
}

HRESULT OOCPCStaticMetaDataContainer::ReadBlockEntry(std::uint64_t blockId,
                                                     oocpc::BlockEntry& entry) {
  return reader_ == nullptr ? oocpc::result::kStreamMissing : reader_->ReadEntry(blockId, entry);
}

HRESULT OOCPCStaticMetaDataContainer::ReadStoredBlock(std::uint64_t blockId,
                                                      std::vector<std::uint8_t>& values) {
  return reader_ == nullptr ? oocpc::result::kStreamMissing : reader_->ReadBlock(blockId, values);
}

HRESULT OOCPCStaticMetaDataContainer::ReadBlock(std::uint64_t blockId,
                                                std::vector<std::uint8_t>& values) {
  return ReadStoredBlock(blockId, values);
}

HRESULT OOCPCStaticMetaDataContainer::ReadStoredPoints(std::uint64_t first, std::uint64_t count,
                                                       std::vector<std::uint8_t>& values) {
  return reader_ == nullptr ? oocpc::result::kStreamMissing
                            : reader_->ReadValues(first, count, values);
}

HRESULT OOCPCStaticMetaDataContainer::ReadPoints(std::uint64_t first, std::uint64_t count,
                                                 std::vector<std::uint8_t>& values) {
  return ReadStoredPoints(first, count, values);
}

bool OOCPCStaticMetaDataContainer::HasLevelOfDetail() const { return reader_ != nullptr; }

OOCPCStaticMetaDataContainer* OOCPCStaticMetaDataContainer::CreateLevelContainer(
    std::uint64_t level) const {
  std::unique_ptr<OOCPCStaticMetaDataContainer> container(Clone());
  if (container == nullptr || container->reader_ == nullptr ||
      oocpc::Failed(container->reader_->Open())) {
    return nullptr;
  }
  container->SetLevel(level);
  return container.release();
}

OOCPCStaticMetaDataContainer* OOCPCStaticMetaDataContainer::Clone() const {
  std::unique_ptr<OOCPCStaticMetaDataContainer> clone(
      new (std::nothrow) OOCPCStaticMetaDataContainer(GetRepository()));
  if (clone == nullptr) return nullptr;
  clone->description_ = description_;
  clone->CopyLevel(*this);
  clone->SetName(GetName());
  if (reader_ != nullptr) {
    clone->reader_ = std::make_unique<oocpc::ColumnReader>(GetRepository(), description_.columnId,
                                                           description_.type);
  }
  return clone.release();
}
