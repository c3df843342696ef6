// Checks the levels of detail of a repository against its octree.
#pragma once

#include <OOCPointCloud/OOCPCLODRecords.h>

#include <functional>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "host/cloud/Verify.h"

namespace tarnhost {

/// Checks iteration after iteration. Used by one thread; the cloud must outlive it.
class LodVerifier {
 public:
  LodVerifier(Cloud& cloud, std::function<void(Fault)> report)
      : cloud_(cloud), report_(std::move(report)) {}

  /// Checks the block and the node records of an iteration. An iteration without a block has no
  /// levels of detail, which is no fault. False when something that it needs cannot be read,
  /// whether or not that is told here.
  bool Check(std::uint64_t iteration, const OOCPCUpdateIteration& record);

 private:
  /// A node of the octree, and what its records say.
  struct TreeNode {
    OOCPCOctreeAcceleratorNode node;
    std::uint64_t index = 0;
    std::uint64_t parent = OOCPCOctreeAcceleratorNode::kNoChild;
    std::vector<OOCPCLODNodeRecord> records;  ///< in their order
  };

  bool ReadBlock(const OOCPCUpdateIteration& record);
  void CheckHead(const OOCPCUpdateIteration& record);
  bool CollectTree(std::uint64_t root);
  bool ReadRecords();
  void Take(std::uint64_t number, const OOCPCLODNodeRecord& record);
  void CheckRecord(std::uint64_t number, const OOCPCLODNodeRecord& record);
  void CheckPlace(std::uint64_t number, const TreeNode& tree, const OOCPCLODNodeRecord& record);
  void CheckPoints(const TreeNode& tree);
  [[nodiscard]] std::uint32_t ParentOf(const TreeNode& tree,
                                       const OOCPCLODNodeRecord& record) const;

  void AddBlockFault(HRESULT code, std::string what);
  void AddRecordFault(HRESULT code, std::uint64_t number, std::string what);

  Cloud& cloud_;
  std::function<void(Fault)> report_;
  bool isRead_ = false;
  std::vector<std::uint8_t> blocks_;  ///< the stream of the blocks
  // Of the iteration at hand:
  std::uint64_t iteration_ = 0;
  std::uint64_t blockOffset_ = 0;
  OOCPCLODBlock block_;
  std::string nodeStream_;
  bool isTreeWhole_ = true;      ///< every node of the octree could be read
  bool areRecordsWhole_ = true;  ///< and every record
  std::unordered_map<std::uint64_t, TreeNode> tree_;
  std::vector<std::pair<std::uint64_t, OOCPCLODNodeRecord>> records_;  ///< with their numbers
  std::set<std::pair<std::uint32_t, std::uint32_t>> places_;
};

}  // namespace tarnhost
