// The positions container: integers as stored, doubles in the local frame as delivered.
#include <OOCPointCloud/OOCPCIDataRepository.h>
#include <OOCPointCloud/OOCPCMetaDataContainer.h>
#include <OOCPointCloud/OOCPCRepositoryInformation.h>
#include <OOCPointCloud/ResultCodes.h>

#include <cstring>
#include <new>

namespace {

constexpr oocpc::ColumnType kStored{oocpc::ValueType::kInt32, 3};
constexpr oocpc::ColumnType kDelivered{oocpc::ValueType::kDouble, 3};
constexpr std::size_t kStoredBytes = 12;
constexpr std::size_t kDeliveredBytes = 24;

// Three roundings in this order: the source's own formula first, so that whoever adds the frame
// offset back meets the numbers that the source's readers see.
void DeliverOne(const OOCPCPositionsDescription& description, const oocpc::Vector3d& frameOffset,
                const std::uint8_t* stored, std::uint8_t* delivered) {
  std::int32_t integers[3];
  std::memcpy(integers, stored, sizeof(integers));
  double position[3];
  for (std::size_t axis = 0; axis < 3; ++axis) {
    const double scaled = static_cast<double>(integers[axis]) * description.scale[axis];
    const double source = scaled + description.offset[axis];
    position[axis] = source - frameOffset[axis];
  }
  std::memcpy(delivered, position, sizeof(position));
}

}  // namespace

OOCPCStaticPositionsContainer::OOCPCStaticPositionsContainer(OOCPCIDataRepository* repository)
    : OOCPCMetaDataContainer(repository, oocpc::chunk_type::kStaticPositions, std::string()) {}

OOCPCStaticPositionsContainer::~OOCPCStaticPositionsContainer() = default;

HRESULT OOCPCStaticPositionsContainer::LoadFromChunk(const std::uint8_t* payload,
                                                     std::uint32_t size) {
  const HRESULT code = description_.DecodeChunk(payload, size);
  if (oocpc::Failed(code)) return code;
  SetName(description_.name);
  reader_ = std::make_unique<oocpc::ColumnReader>(GetRepository(), description_.columnId, kStored);
  return code;
}

std::uint16_t OOCPCStaticPositionsContainer::GetDataSize() const { return kDeliveredBytes; }

oocpc::ColumnType OOCPCStaticPositionsContainer::GetDeliveredType() const { return kDelivered; }

oocpc::ColumnType OOCPCStaticPositionsContainer::GetStoredType() const { return kStored; }

HRESULT OOCPCStaticPositionsContainer::GetBlockCount(std::uint64_t& count) {
  return reader_ == nullptr ? oocpc::result::kStreamMissing : reader_->GetBlockCount(count);
}

HRESULT OOCPCStaticPositionsContainer::ReadBlockEntry(std::uint64_t blockId,
                                                      oocpc::BlockEntry& entry) {
  return reader_ == nullptr ? oocpc::result::kStreamMissing : reader_->ReadEntry(blockId, entry);
}

HRESULT OOCPCStaticPositionsContainer::ReadStoredBlock(std::uint64_t blockId,
                                                       std::vector<std::uint8_t>& values) {
  return reader_ == nullptr ? oocpc::result::kStreamMissing : reader_->ReadBlock(blockId, values);
}

HRESULT OOCPCStaticPositionsContainer::ReadBlock(std::uint64_t blockId,
                                                 std::vector<std::uint8_t>& values) {
  const HRESULT code = ReadStoredBlock(blockId, scratch_);
  if (!oocpc::Failed(code)) Deliver(values);
  return code;
}

HRESULT OOCPCStaticPositionsContainer::ReadStoredPoints(std::uint64_t first, std::uint64_t count,
                                                        std::vector<std::uint8_t>& values) {
  return reader_ == nullptr ? oocpc::result::kStreamMissing
                            : reader_->ReadValues(first, count, values);
}

HRESULT OOCPCStaticPositionsContainer::ReadPoints(std::uint64_t first, std::uint64_t count,
                                                  std::vector<std::uint8_t>& values) {
  const HRESULT code = ReadStoredPoints(first, count, scratch_);
  if (!oocpc::Failed(code)) Deliver(values);
  return code;
}

const oocpc::Vector3d& OOCPCStaticPositionsContainer::GetFrameOffset() const {
  return frameOffset_ ? *frameOffset_
                      : GetRepository()->GetRepositoryInformation().localFrameOffset;
}

void OOCPCStaticPositionsContainer::Deliver(std::vector<std::uint8_t>& values) const {
  const oocpc::Vector3d frame = GetFrameOffset();
  const std::size_t count = scratch_.size() / kStoredBytes;
  values.resize(count * kDeliveredBytes);
  for (std::size_t i = 0; i < count; ++i) {
    DeliverOne(description_, frame, scratch_.data() + i * kStoredBytes,
               values.data() + i * kDeliveredBytes);
  }
}

bool OOCPCStaticPositionsContainer::HasLevelOfDetail() const { return reader_ != nullptr; }

OOCPCStaticPositionsContainer* OOCPCStaticPositionsContainer::CreateLevelContainer(
    std::uint64_t level) const {
  std::unique_ptr<OOCPCStaticPositionsContainer> container(Clone());
  if (container == nullptr || container->reader_ == nullptr ||
      oocpc::Failed(container->reader_->Open())) {
    return nullptr;
  }
  container->frameOffset_ = GetFrameOffset();
  container->SetLevel(level);
  return container.release();
}

OOCPCStaticPositionsContainer* OOCPCStaticPositionsContainer::Clone() const {
  std::unique_ptr<OOCPCStaticPositionsContainer> clone(
      new (std::nothrow) OOCPCStaticPositionsContainer(GetRepository()));
  if (clone == nullptr) return nullptr;
  clone->description_ = description_;
  clone->frameOffset_ = frameOffset_;
  clone->CopyLevel(*this);
  clone->SetName(GetName());
  if (reader_ != nullptr) {
    clone->reader_ =
        std::make_unique<oocpc::ColumnReader>(GetRepository(), description_.columnId, kStored);
  }
  return clone.release();
}
