// The octree of a cloud that points are appended to.
#pragma once

#include <OOCPointCloud/OOCPointCloudNode.h>

#include <array>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <unordered_map>
#include <vector>

#include "host/build/PackedRecords.h"
#include "host/build/PointCoder.h"
#include "host/cloud/Cloud.h"

namespace tarnhost {

/// The nodes of the newest iteration, as cells of the new iteration's cube, which may be larger.
///
/// Inner nodes keep their points and may take more; a leaf that new points fall into is dissolved:
/// its points are dealt anew, together with the new ones. When the cube has grown, the points of
/// the former root are dealt anew, too, so that the nodes above it can be sampled from them: what
/// these do not take it holds on to. What nothing falls into stays as it is, with its subtree.
class ExistingTree {
 public:
  static constexpr std::uint32_t kNone = ~std::uint32_t{0};

  struct Node {
    OOCPCOctreeAcceleratorNode record;  ///< level and index are those in the new cube
    std::uint64_t index = 0;            ///< in the stream
    std::array<std::uint32_t, 8> children;
    std::vector<std::uint32_t> parts;  ///< points of each level of detail
    bool isTouched = false;            ///< it, or a node below it, changes
    bool isDissolved = false;          ///< its own points are dealt anew
    bool isGone = false;               ///< dissolved with everything below it
    oocpc::Box3d ownBox{};             ///< of its own points, once ReadOwn was called
  };

  /// Reads the nodes of an iteration. `growth` is the number of times that the cube has doubled,
  /// `corner` the cell of the former cube in the new one, at level `growth`.
  static Outcome Load(Cloud& cloud, std::uint64_t iteration, unsigned growth, std::uint64_t corner,
                      const PointCoder& coder, std::unique_ptr<ExistingTree>& tree);

  /// Notes where new points are going to fall; from several threads at once.
  void Touch(std::span<const std::uint64_t> codes);
  /// Decides what is dissolved, when all new points have touched it: gives the nodes whose own
  /// points are dealt anew.
  [[nodiscard]] std::vector<OOCPCOctreeAcceleratorNode> Dissolve();

  // After that, from several threads at once:

  /// The inner node of a cell that goes on to be one; kNone when there is none.
  [[nodiscard]] std::uint32_t FindInner(unsigned level, std::uint64_t indexInLevel) const;
  [[nodiscard]] const Node& Get(std::uint32_t node) const { return nodes_[node]; }
  /// Whether the former root, which is still there, is this cell or lies below it.
  [[nodiscard]] bool LeadsToRoot(unsigned level, std::uint64_t indexInLevel) const;
  /// The child that stays just as it is; kNone when there is none.
  [[nodiscard]] std::uint32_t FindKeptChild(std::uint32_t node, unsigned octant) const;
  /// Whether the child of that octant is an inner node below which something changes.
  [[nodiscard]] bool HasChangingChild(std::uint32_t node, unsigned octant) const;
  /// As many points of a code as the former root had: so many of them it holds on to, which no node
  /// above it has taken. To be asked of a cell: the root's own or one below.
  [[nodiscard]] std::uint64_t CountHeld(std::uint64_t code, unsigned level,
                                        std::uint64_t indexInLevel) const;
  /// The sum of these over all codes of a cell.
  [[nodiscard]] std::uint64_t CountHeldIn(unsigned level, std::uint64_t indexInLevel) const;
  /// Whether the cell is that of an inner node below which nothing changes, and which does not
  /// change itself.
  [[nodiscard]] bool StaysAsItIs(unsigned level, std::uint64_t indexInLevel) const;
  [[nodiscard]] unsigned GetGrowth() const { return growth_; }
  /// Codes, ascending, of the points that an inner node keeps or holds on to. By one thread for
  /// each node. A failure is kept: see GetFailure.
  [[nodiscard]] std::vector<std::uint64_t> ReadOwn(std::uint32_t node);
  /// Appends the records of these points.
  void AppendRecords(std::uint32_t node, std::vector<std::uint8_t>& records);
  /// Points that an inner node keeps.
  [[nodiscard]] std::uint32_t CountOwn(std::uint32_t node) const {
    return nodes_[node].isDissolved ? 0 : nodes_[node].record.ownPointCount;
  }

  [[nodiscard]] bool HasGrown() const { return growth_ > 0; }
  [[nodiscard]] Outcome GetFailure() const;

 private:
  ExistingTree(Cloud& cloud, unsigned growth, const PointCoder& coder);
  Outcome LoadNodes(std::uint64_t iteration, std::uint64_t corner);
  Outcome LoadParts(std::uint64_t iteration);
  void MarkPaths();
  [[nodiscard]] bool IsInRoot(unsigned level, std::uint64_t indexInLevel) const;
  void DissolveRoot(std::vector<std::uint32_t>& dissolved);
  void DissolveTouched(std::vector<std::uint32_t>& dissolved);
  void DissolveAll(std::uint32_t node, std::vector<std::uint32_t>& dissolved);
  std::vector<std::uint64_t> ReadCodes(std::uint32_t node);
  void Note(Outcome outcome);

  Cloud& cloud_;
  unsigned growth_;
  PointCoder coder_;
  NodeRecords records_;
  std::vector<Node> nodes_;  ///< the former root first, parents before children
  std::vector<std::uint8_t> touched_;
  std::vector<std::uint64_t> held_;  ///< codes, ascending, of the former root's points
  std::unordered_map<std::uint64_t, std::uint32_t> places_;  ///< by level and cell
  mutable std::mutex mutex_;
  Outcome failure_;
};

/// Tells which points of a cell the former root holds on to: the first ones of each code, as many
/// as CountHeld says. They are asked for along the Morton curve.
class HeldPoints {
 public:
  HeldPoints(const ExistingTree& tree, unsigned level, std::uint64_t indexInLevel)
      : tree_(tree), level_(level), indexInLevel_(indexInLevel) {}

  /// Of the next point.
  [[nodiscard]] bool Holds(std::uint64_t code) {
    if (!hasCode_ || code != code_) {
      hasCode_ = true;
      code_ = code;
      left_ = tree_.CountHeld(code, level_, indexInLevel_);
    }
    if (left_ == 0) return false;
    --left_;
    return true;
  }

 private:
  const ExistingTree& tree_;
  unsigned level_;
  std::uint64_t indexInLevel_;
  bool hasCode_ = false;
  std::uint64_t code_ = 0;
  std::uint64_t left_ = 0;  ///< that are still to come of this code
};

}  // namespace tarnhost
