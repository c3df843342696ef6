// The levels of detail of one iteration, walked node by node.
#include "host/lod/LodTree.h"

#include <OOCPointCloud/OOCPCLODRecords.h>

#include <algorithm>
#include <cmath>

#include "host/cloud/CloudFacts.h"

namespace tarnhost {

namespace result = oocpc::result;

namespace {

/// Why levels of detail cannot be loaded, with the stream that it is about where that can be found.
Outcome WhyNot(Cloud& cloud, std::uint64_t iteration, HRESULT code) {
  OOCPCLODBlock block;
  std::vector<OOCPCLODNodeRecord> records;
  Outcome read = ReadLevelRecords(cloud, iteration, block, records);
  return read.Ok() ? Outcome::FromCode(code, cloud.GetPath().string()) : read;
}

}  // namespace

Outcome LodTree::Open(Cloud& cloud, std::uint64_t iteration, std::unique_ptr<LodTree>& tree) {
  OOCPCUpdateIteration record;
  if (Outcome outcome = cloud.ReadIteration(iteration, record); !outcome.Ok()) return outcome;
  std::unique_ptr<LodTree> opened(new LodTree(cloud, iteration));
  const HRESULT code = cloud.GetPointCloud().GetLODNodeCache(iteration, opened->cache_);
  if (oocpc::Failed(code)) return WhyNot(cloud, iteration, code);
  if (!(opened->cache_->GetScale() > 0)) {
    return Outcome::Failure(result::kBadRecord, "the level of detail states no spacing",
                            cloud.GetPath().string(), "run tarn verify on it");
  }
  tree = std::move(opened);
  return Outcome::Success();
}

Outcome LodTree::ReadRoot(LodNode& node) const {
  OOCPCUpdateIteration record;
  if (Outcome outcome = cloud_.ReadIteration(iteration_, record); !outcome.Ok()) return outcome;
  node.nodeIndex = record.acceleratorPayload.sizeBytes / OOCPCOctreeAcceleratorNode::kBytes - 1;
  node.level = 0;
  if (Outcome outcome = cloud_.ReadRoot(iteration_, node.octreeNode); !outcome.Ok()) return outcome;
  bool found = false;
  if (Outcome outcome = FindPoints(node, found); !outcome.Ok()) return outcome;
  return found ? Outcome::Success()
               : Outcome::FromCode(result::kLodNodeNotFound, cloud_.GetPath().string());
}

Outcome LodTree::ReadChildren(const LodNode& node, std::vector<LodNode>& children) const {
  children.clear();
  if (node.octreeNode.IsLeaf()) {
    LodNode finer = node;
    ++finer.level;
    bool found = false;
    if (Outcome outcome = FindPoints(finer, found); !outcome.Ok()) return outcome;
    if (found) children.push_back(finer);
    return Outcome::Success();
  }
  for (const std::uint64_t index : node.octreeNode.children) {
    if (index == OOCPCOctreeAcceleratorNode::kNoChild) continue;
    LodNode child;
    child.nodeIndex = index;
    child.level = node.level + 1;
    if (Outcome outcome = cloud_.ReadNode(index, child.octreeNode); !outcome.Ok()) return outcome;
    bool found = false;
    if (Outcome outcome = FindPoints(child, found); !outcome.Ok()) return outcome;
    if (!found) {
      return Outcome::Failure(result::kLodNodeNotFound,
                              "octree node " + std::to_string(index) + " has no level of detail",
                              cloud_.GetPath().string(), "run tarn verify on it");
    }
    children.push_back(child);
  }
  return Outcome::Success();
}

Outcome LodTree::FindPoints(LodNode& node, bool& found) const {
  const std::uint32_t index =
      OOCPCLODNodeRecord::GetIndex(node.octreeNode, node.nodeIndex, node.level);
  const HRESULT code = cache_->FindNode(index, node.level, node.points.first, node.points.count);
  found = code == result::kOk;
  if (found || code == result::kLodNodeNotFound) return Outcome::Success();
  return Outcome::FromCode(code, cloud_.GetPath().string());
}

double LodTree::GetSpacing(std::uint32_t level) const {
  return std::ldexp(cache_->GetScale(), -static_cast<int>(std::min(level, kDeepestLevel)));
}

std::uint32_t LodTree::FindLevel(double spacing) const {
  std::uint32_t level = 0;
  while (level < kDeepestLevel && GetSpacing(level) > spacing) ++level;
  return level;
}

}  // namespace tarnhost
