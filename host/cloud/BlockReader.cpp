// Reads blocks of a cloud through clones of its containers.
#include <cstring>

#include "host/cloud/Cloud.h"

namespace tarnhost {

namespace result = oocpc::result;

namespace {

Outcome CloneOf(Cloud& cloud, const std::string& name,
                std::unique_ptr<OOCPCMetaDataContainer>& clone) {
  OOCPCMetaDataContainer* container = nullptr;
  const HRESULT code = cloud.GetPointCloud().CloneContainer(name, container);
  if (oocpc::Failed(code)) return Outcome::FromCode(code, cloud.GetPath().string());
  clone.reset(container);
  return clone != nullptr
             ? Outcome::Success()
             : Outcome::FromCode(result::kContainerNotCloned, cloud.GetPath().string());
}

Outcome BlockFailure(HRESULT code, const OOCPCContainer& container, std::uint64_t block) {
  return Outcome::FromCode(
      code, std::string("column ") + container.GetName() + ", block " + std::to_string(block));
}

/// Checks that a block has a value for each of the node's points.
Outcome CheckValues(HRESULT code, const OOCPCContainer& container,
                    const OOCPCOctreeAcceleratorNode& node, std::size_t bytes,
                    std::size_t valueBytes) {
  if (oocpc::Failed(code)) return BlockFailure(code, container, node.blockId);
  if (bytes != std::size_t{node.ownPointCount} * valueBytes) {
    return BlockFailure(result::kBadRecord, container, node.blockId);
  }
  return Outcome::Success();
}

}  // namespace

Outcome BlockReader::Open(Cloud& cloud, const std::vector<std::string>& columns,
                          BlockReader& reader) {
  reader.columns_.clear();
  if (Outcome outcome = CloneOf(cloud, "DEF_POSITION", reader.positions_); !outcome.Ok()) {
    return outcome;
  }
  for (const std::string& name : columns) {
    std::unique_ptr<OOCPCMetaDataContainer> clone;
    if (Outcome outcome = CloneOf(cloud, name, clone); !outcome.Ok()) return outcome;
    reader.columns_.push_back(std::move(clone));
  }
  return Outcome::Success();
}

Outcome BlockReader::ReadPositions(const OOCPCOctreeAcceleratorNode& node,
                                   std::vector<std::int32_t>& xyz) {
  xyz.clear();
  if (node.ownPointCount == 0) return Outcome::Success();
  const HRESULT code = positions_->ReadStoredBlock(node.blockId, scratch_);
  Outcome outcome = CheckValues(code, *positions_, node, scratch_.size(), 12);
  if (!outcome.Ok()) return outcome;
  xyz.resize(scratch_.size() / sizeof(std::int32_t));
  std::memcpy(xyz.data(), scratch_.data(), scratch_.size());
  return outcome;
}

Outcome BlockReader::ReadLocalPositions(const OOCPCOctreeAcceleratorNode& node,
                                        std::vector<double>& xyz) {
  xyz.clear();
  if (node.ownPointCount == 0) return Outcome::Success();
  const HRESULT code = positions_->ReadBlock(node.blockId, scratch_);
  Outcome outcome = CheckValues(code, *positions_, node, scratch_.size(), 24);
  if (!outcome.Ok()) return outcome;
  xyz.resize(scratch_.size() / sizeof(double));
  std::memcpy(xyz.data(), scratch_.data(), scratch_.size());
  return outcome;
}

Outcome BlockReader::ReadColumn(std::size_t column, const OOCPCOctreeAcceleratorNode& node,
                                std::vector<std::uint8_t>& values) {
  values.clear();
  if (node.ownPointCount == 0) return Outcome::Success();
  OOCPCMetaDataContainer& container = *columns_[column];
  const HRESULT code = container.ReadBlock(node.blockId, values);
  return CheckValues(code, container, node, values.size(),
                     oocpc::ValueBytes(container.GetDeliveredType()));
}

}  // namespace tarnhost
