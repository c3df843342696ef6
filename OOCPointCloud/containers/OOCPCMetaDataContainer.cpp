// A metadata container: one attribute of the points.
#include <OOCPointCloud/OOCPCMetaDataContainer.h>
#include <OOCPointCloud/ResultCodes.h>

OOCPCMetaDataContainer::~OOCPCMetaDataContainer() = default;

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

OOCPCStaticMetaDataContainer* OOCPCStaticMetaDataContainer::Clone() const {
  auto clone = std::make_unique<OOCPCStaticMetaDataContainer>(GetRepository());
  clone->description_ = description_;
  clone->SetName(GetName());
  if (reader_ != nullptr) {
    clone->reader_ = std::make_unique<oocpc::ColumnReader>(GetRepository(), description_.columnId,
                                                           description_.type);
  }
  return clone.release();
}
