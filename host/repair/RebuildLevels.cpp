// Makes the levels of detail of an iteration anew, out of its octree and its positions.
#include "host/repair/RebuildLevels.h"

#include <OOCPointCloud/OOCPCAcceleratorContainer.h>

#include <algorithm>
#include <iterator>
#include <span>
#include <utility>
#include <vector>

#include "host/build/PointCoder.h"
#include "host/cloud/CloudFacts.h"
#include "host/cloud/IterationCube.h"

namespace tarnhost {

namespace result = oocpc::result;

namespace {

using Node = OOCPCOctreeAcceleratorNode;
using Codes = std::vector<std::uint64_t>;

/// The finest grid that an import chooses.
constexpr unsigned kFinestGridBits = 7;

unsigned ShiftBelow(unsigned level) { return 3 * (kMortonBits - level); }

/// The cells of the finest grid that points are in.
class OccupiedCells {
 public:
  void Mark(const Codes& codes) {
    for (const std::uint64_t code : codes) cells_[code >> ShiftBelow(kFinestGridBits)] = true;
  }
  /// Of each level up to that of the finest grid.
  [[nodiscard]] std::vector<std::uint64_t> Count() const {
    std::vector<std::uint64_t> counts(kFinestGridBits + 1);
    for (unsigned level = 0; level <= kFinestGridBits; ++level) {
      std::uint64_t last = cells_.size();
      for (std::size_t cell = 0; cell < cells_.size(); ++cell) {
        const std::uint64_t coarser = cell >> 3 * (kFinestGridBits - level);
        if (!cells_[cell] || coarser == last) continue;
        last = coarser;
        ++counts[level];
      }
    }
    return counts;
  }

 private:
  std::vector<bool> cells_ = std::vector<bool>(std::size_t{1} << 3 * kFinestGridBits);
};

/// Whether a run of points has the same codes in two orders.
bool AreAlike(const Codes& codes, std::span<const std::uint64_t> order, std::size_t first) {
  Codes stored(codes.begin() + static_cast<std::ptrdiff_t>(first),
               codes.begin() + static_cast<std::ptrdiff_t>(first + order.size()));
  Codes planned;
  for (const std::uint64_t place : order) planned.push_back(codes[place]);
  std::ranges::sort(stored);
  std::ranges::sort(planned);
  return stored == planned;
}

class Rebuilder {
 public:
  explicit Rebuilder(Cloud& cloud) : cloud_(cloud) {}

  Outcome Run(const OOCPCCatalogue& catalogue, std::uint64_t nodeStreamId, BuiltLod& lod) {
    if (Outcome outcome = FindCube(catalogue); !outcome.Ok()) return outcome;
    if (Outcome outcome = BlockReader::Open(cloud_, {}, reader_); !outcome.Ok()) return outcome;
    std::uint64_t newest = 0;
    if (Outcome outcome = cloud_.FindNewestIteration(newest); !outcome.Ok()) return outcome;
    OOCPCUpdateIteration record;
    if (Outcome outcome = cloud_.ReadIteration(newest, record); !outcome.Ok()) return outcome;
    nodeCount_ = record.acceleratorPayload.sizeBytes / Node::kBytes;
    if (nodeCount_ == 0) return BadTree();
    if (Outcome outcome = FindGrid(newest); !outcome.Ok()) return outcome;
    if (Outcome outcome = Visit(nodeCount_ - 1, {}); !outcome.Ok()) return outcome;
    return BuildLod(tree_, coder_.cube, grid_, nodeStreamId, lod);
  }

 private:
  [[nodiscard]] Outcome BadTree() const {
    return Outcome::Failure(result::kBadRecord, "the octree's nodes are no tree",
                            cloud_.GetPath().string());
  }

  Outcome FindCube(const OOCPCCatalogue& catalogue) {
    coder_.transform = cloud_.GetTransform();
    coder_.frameOffset = cloud_.GetFrameOffset();
    for (const OOCIndexChunk& chunk : catalogue.chunks) {
      OOCPCAcceleratorDescription description;
      if (chunk.type != oocpc::chunk_type::kAccelerator1) continue;
      if (oocpc::Failed(description.DecodeChunk(chunk.payload.data(), chunk.size))) continue;
      coder_.cube = {description.cubeMin, description.cubeEdge};
      return Outcome::Success();
    }
    return Outcome::FromCode(result::kNoAccelerator, cloud_.GetPath().string());
  }

  /// Levels of detail that are left tell the grid, which is the same in all iterations. Where none
  /// are, it is the one that an import of all points chooses.
  Outcome FindGrid(std::uint64_t newest) {
    for (std::uint64_t i = newest + 1; i-- > 0;) {
      OOCPCLODBlock block;
      std::vector<OOCPCLODNodeRecord> records;
      const Outcome read = ReadLevelRecords(cloud_, i, block, records);
      if (!read.Ok() || !(block.scale > 0)) continue;
      IterationCube cube;
      Outcome outcome = tarnhost::FindCube(cloud_, i, cube);
      grid_.gridBits = cube.gridBits;
      return outcome;
    }
    OccupiedCells cells;
    std::uint64_t visited = 0;
    if (Outcome outcome = Mark(nodeCount_ - 1, cells, visited); !outcome.Ok()) return outcome;
    grid_ = SamplingGrid::Choose(cells.Count());
    return Outcome::Success();
  }

  /// Marks the cells of all points of a subtree.
  Outcome Mark(std::uint64_t index, OccupiedCells& cells, std::uint64_t& visited) {
    Node node;
    Codes codes;
    if (++visited > nodeCount_) return BadTree();
    if (Outcome outcome = ReadNode(index, node, codes); !outcome.Ok()) return outcome;
    cells.Mark(codes);
    return ForEachChild(node, [&](std::uint64_t child, std::uint64_t /*cell*/) {
      return Mark(child, cells, visited);
    });
  }

  /// `above` are the codes of what the nodes above have in the node's cell. The depth of the
  /// recursion is that of the tree, at most kDeepestLevel.
  Outcome Visit(std::uint64_t index, Codes above) {
    Node node;
    Codes codes;
    if (tree_.size() >= nodeCount_) return BadTree();
    if (Outcome outcome = ReadNode(index, node, codes); !outcome.Ok()) return outcome;
    tree_.push_back({index, node, {node.ownPointCount}});
    if (node.IsLeaf()) {
      DivideLeaf(codes, std::move(above), tree_.back());
      return Outcome::Success();
    }
    above.insert(above.end(), codes.begin(), codes.end());
    return ForEachChild(node, [&](std::uint64_t child, std::uint64_t cell) {
      return Visit(child, PartIn(above, node.level + 1, cell));
    });
  }

  template <typename Action>
  Outcome ForEachChild(const Node& node, const Action& action) {
    for (unsigned octant = 0; octant < node.children.size(); ++octant) {
      if (node.children[octant] == Node::kNoChild) continue;
      Node child;
      const std::uint64_t cell = node.indexInLevel * 8 + octant;
      if (Outcome read = cloud_.ReadNode(node.children[octant], child); !read.Ok()) return read;
      if (child.level != node.level + 1 || child.indexInLevel != cell) return BadTree();
      if (Outcome done = action(node.children[octant], cell); !done.Ok()) return done;
    }
    return Outcome::Success();
  }

  Outcome ReadNode(std::uint64_t index, Node& node, Codes& codes) {
    if (Outcome outcome = cloud_.ReadNode(index, node); !outcome.Ok()) return outcome;
    return ReadCodes(node, codes);
  }

  Outcome ReadCodes(const Node& node, Codes& codes) {
    if (node.ownPointCount == 0) return Outcome::Success();
    if (Outcome outcome = reader_.ReadPositions(node, xyz_); !outcome.Ok()) return outcome;
    if (xyz_.size() != std::size_t{3} * node.ownPointCount) return BadTree();
    codes.resize(node.ownPointCount);
    coder_.CodesOf(xyz_.data(), codes);
    return Outcome::Success();
  }

  static Codes PartIn(const Codes& codes, unsigned level, std::uint64_t cell) {
    Codes part;
    if (level > kMortonBits) return part;
    std::ranges::copy_if(codes, std::back_inserter(part),
                         [&](std::uint64_t code) { return code >> ShiftBelow(level) == cell; });
    return part;
  }

  void DivideLeaf(const Codes& codes, Codes above, LodTreeNode& leaf) const {
    if (leaf.node.level >= kMortonBits || codes.size() > OctreePlan::kNodeCapacity) return;
    std::vector<CodedPoint> points;
    for (std::size_t i = 0; i < codes.size(); ++i) points.push_back({codes[i], i});
    std::sort(points.begin(), points.end());
    const OctreePlan plan =
        PlanSubtree(points, {leaf.node.level, leaf.node.indexInLevel, std::move(above)}, grid_);
    if (plan.nodes.size() != 1) return;
    std::size_t first = 0;
    for (const std::uint32_t count : plan.parts) {
      if (!AreAlike(codes, std::span(plan.order).subspan(first, count), first)) return;
      first += count;
    }
    leaf.parts = plan.parts;
  }

  Cloud& cloud_;
  BlockReader reader_;
  PointCoder coder_;
  SamplingGrid grid_;
  std::uint64_t nodeCount_ = 0;
  std::vector<LodTreeNode> tree_;
  std::vector<std::int32_t> xyz_;
};

}  // namespace

Outcome RebuildLevels(Cloud& cloud, const OOCPCCatalogue& catalogue, std::uint64_t nodeStreamId,
                      BuiltLod& lod) {
  return Rebuilder(cloud).Run(catalogue, nodeStreamId, lod);
}

}  // namespace tarnhost
