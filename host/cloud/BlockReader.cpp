// Reads blocks of a cloud through clones of its containers.
#include <cstring>

#include "host/cloud/Cloud.h"

namespace tarnhost {

namespace result = oocpc::result;

namespace {

/// Takes a clone over; `missing` is the failure of there being none.
Outcome TakeClone(HRESULT code, HRESULT missing, OOCPCMetaDataContainer* container,
                  const Cloud& cloud, const std::string& name,
                  std::unique_ptr<OOCPCMetaDataContainer>& clone) {
  clone.reset(container);
  if (!oocpc::Failed(code) && clone != nullptr) return Outcome::Success();
  return Outcome::FromCode(oocpc::Failed(code) ? code : missing,
                           "column " + name + " of " + cloud.GetPath().string());
}

Outcome CloneOf(Cloud& cloud, const std::string& name,
                std::unique_ptr<OOCPCMetaDataContainer>& clone) {
  OOCPCMetaDataContainer* container = nullptr;
  const HRESULT code = cloud.GetPointCloud().CloneContainer(name, container);
  return TakeClone(code, result::kContainerNotCloned, container, cloud, name, clone);
}

Outcome CloneOfLevel(Cloud& cloud, std::uint64_t iteration, const std::string& name,
                     std::unique_ptr<OOCPCMetaDataContainer>& clone) {
  OOCPCMetaDataContainer* container = nullptr;
  const HRESULT code = cloud.GetPointCloud().CloneLODContainer(iteration, name, container);
  return TakeClone(code, result::kLodNoLevelContainer, container, cloud, name, clone);
}

Outcome BlockFailure(HRESULT code, const OOCPCContainer& container, std::uint64_t block) {
  return Outcome::FromCode(
      code, std::string("column ") + container.GetName() + ", block " + std::to_string(block));
}

Outcome RangeFailure(HRESULT code, const OOCPCContainer& container, const PointRange& points) {
  return Outcome::FromCode(code, std::string("column ") + container.GetName() + ", points from " +
                                     std::to_string(points.first) + " on");
}

template <typename T>
void CopyValues(const std::vector<std::uint8_t>& bytes, std::vector<T>& values) {
  values.resize(bytes.size() / sizeof(T));
  if (!values.empty()) std::memcpy(values.data(), bytes.data(), values.size() * sizeof(T));
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
  return OpenClones(
      [&](const std::string& name, std::unique_ptr<OOCPCMetaDataContainer>& clone) {
        return CloneOf(cloud, name, clone);
      },
      columns, reader);
}

Outcome BlockReader::OpenLevel(Cloud& cloud, std::uint64_t iteration,
                               const std::vector<std::string>& columns, BlockReader& reader) {
  return OpenClones(
      [&](const std::string& name, std::unique_ptr<OOCPCMetaDataContainer>& clone) {
        return CloneOfLevel(cloud, iteration, name, clone);
      },
      columns, reader);
}

Outcome BlockReader::OpenClones(const CloneFunction& clone, const std::vector<std::string>& columns,
                                BlockReader& reader) {
  reader.columns_.clear();
  if (Outcome outcome = clone("DEF_POSITION", reader.positions_); !outcome.Ok()) return outcome;
  for (const std::string& name : columns) {
    std::unique_ptr<OOCPCMetaDataContainer> container;
    if (!name.empty()) {
      if (Outcome outcome = clone(name, container); !outcome.Ok()) return outcome;
    }
    reader.columns_.push_back(std::move(container));
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
  CopyValues(scratch_, xyz);
  return outcome;
}

Outcome BlockReader::ReadLocalPositions(const OOCPCOctreeAcceleratorNode& node,
                                        std::vector<double>& xyz) {
  xyz.clear();
  if (node.ownPointCount == 0) return Outcome::Success();
  const HRESULT code = positions_->ReadBlock(node.blockId, scratch_);
  Outcome outcome = CheckValues(code, *positions_, node, scratch_.size(), 24);
  if (!outcome.Ok()) return outcome;
  CopyValues(scratch_, xyz);
  return outcome;
}

Outcome BlockReader::ReadPositions(const PointRange& points, std::vector<std::int32_t>& xyz) {
  const HRESULT code = positions_->ReadStoredPoints(points.first, points.count, scratch_);
  if (oocpc::Failed(code)) return RangeFailure(code, *positions_, points);
  CopyValues(scratch_, xyz);
  return Outcome::Success();
}

Outcome BlockReader::ReadLocalPositions(const PointRange& points, std::vector<double>& xyz) {
  const HRESULT code = positions_->ReadPoints(points.first, points.count, scratch_);
  if (oocpc::Failed(code)) return RangeFailure(code, *positions_, points);
  CopyValues(scratch_, xyz);
  return Outcome::Success();
}

Outcome BlockReader::ReadColumn(std::size_t column, const PointRange& points,
                                std::vector<std::uint8_t>& values) {
  values.clear();
  if (columns_[column] == nullptr) return Outcome::Success();
  OOCPCMetaDataContainer& container = *columns_[column];
  const HRESULT code = container.ReadPoints(points.first, points.count, values);
  return oocpc::Failed(code) ? RangeFailure(code, container, points) : Outcome::Success();
}

Outcome BlockReader::ReadColumn(std::size_t column, const OOCPCOctreeAcceleratorNode& node,
                                std::vector<std::uint8_t>& values) {
  values.clear();
  if (node.ownPointCount == 0 || columns_[column] == nullptr) return Outcome::Success();
  OOCPCMetaDataContainer& container = *columns_[column];
  const HRESULT code = container.ReadBlock(node.blockId, values);
  return CheckValues(code, container, node, values.size(),
                     oocpc::ValueBytes(container.GetDeliveredType()));
}

}  // namespace tarnhost
