// Octree nodes, and the origins that follow from root nodes.
#include <OOCPointCloud/ResultCodes.h>
#include <OOCPointCloudTarn/TarnOOCPointCloud.h>

#include <algorithm>

HRESULT TarnOOCPointCloud::GetOOCNode(std::uint64_t nodeIndex,
                                      OOCPCOctreeAcceleratorNode& node) const {
  if (acceleratorContainer == nullptr) return oocpc::result::kNoAcceleratorContainer;
  if (!IsReadable(*acceleratorContainer)) return oocpc::result::kNoRepository;
  // A clone has a read position of its own, so readers on several threads do not meet.
  const std::unique_ptr<OOCPCAcceleratorContainer> clone(acceleratorContainer->Clone());
  if (clone == nullptr) return oocpc::result::kAcceleratorNotCloned;
  return clone->ReadNode(nodeIndex, &node);
}

HRESULT TarnOOCPointCloud::GetOOCRootNode(std::uint64_t iterationIndex,
                                          OOCPCOctreeAcceleratorNode& node) {
  OOCPCUpdItrAcceleratorPayload payload;
  const HRESULT code = GetPayload(iterationIndex, payload);
  if (oocpc::Failed(code)) return code;
  // The root is the last record of the iteration. Without any record the index wraps and is one
  // that no node has.
  return GetOOCNode(payload.sizeBytes / OOCPCOctreeAcceleratorNode::kBytes - 1, node);
}

HRESULT TarnOOCPointCloud::GetOrigin(std::uint64_t iterationIndex, double (&origin)[3]) {
  const auto known = originCache.find(iterationIndex);
  if (known != originCache.end()) {
    std::copy(known->second.begin(), known->second.end(), origin);
    return oocpc::result::kOk;
  }
  OOCPCOctreeAcceleratorNode root;
  const HRESULT code = GetOOCRootNode(iterationIndex, root);
  if (oocpc::Failed(code)) return oocpc::result::kFail;
  oocpc::Vector3d centre;
  for (std::size_t axis = 0; axis < centre.size(); ++axis) {
    centre[axis] = (root.corner1[axis] + root.corner2[axis]) * 0.5;
  }
  std::copy(centre.begin(), centre.end(), origin);
  const bool added = originCache.insert({iterationIndex, centre}).second;
  return added ? code : oocpc::result::kNothingDone;
}
