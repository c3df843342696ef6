// A host in small: loads the library while it runs, opens a repository, walks its iterations and
// levels of detail, and selects points by a query text over records of its own.
//
//   host LIBRARY REPOSITORY QUERY
//   host libOOCPointCloudTarn.so street.tarn '#num{type=int}("classification", ==, 2)'
#include <OOCPointCloud/OOCPCLODNodeCache.h>
#include <OOCPointCloud/OOCPCLODRecords.h>
#include <OOCPointCloud/OOCPCMetaDataContainer.h>
#include <OOCPointCloud/Repositories.h>
#include <OOCPointCloud/ResultCodes.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "Arguments.h"
#include "TarnLibrary.h"

namespace {

using oocpc::Failed;
using Node = OOCPCOctreeAcceleratorNode;

/// How this host keeps a point. The library does not mind: it is told where each value lies. A
/// query compares a value in the type that the query names: `int` for what is one here.
struct PointRecord {
  double position[3];  ///< local frame of the repository
  std::int32_t intensity;
  std::int32_t classification;
};

const std::map<std::string, std::pair<unsigned, unsigned>> kSizeAndOffset{
    {"DEF_POSITION", {24, offsetof(PointRecord, position)}},
    {"intensity", {4, offsetof(PointRecord, intensity)}},
    {"classification", {4, offsetof(PointRecord, classification)}},
};

int Fail(const char* what, HRESULT code = oocpc::result::kFail) {
  const oocpc::ResultCodeInfo* info = oocpc::FindResultCode(code);
  std::fprintf(stderr, "host: %s (0x%08X%s%s)\n", what, static_cast<unsigned>(code),
               info != nullptr ? ", " : "", info != nullptr ? info->meaning : "");
  return 1;
}

class Host {
 public:
  explicit Host(const TarnLibrary& library) : library_(library), cloud_(library.MakeCloud()) {}

  /// The cloud takes the repository over.
  HRESULT Open(const std::filesystem::path& folder) {
    std::unique_ptr<OOCPCFolderRepository> repository;
    const HRESULT opened = OOCPCFolderRepository::Open(folder, repository);
    return Failed(opened) ? opened : (*cloud_.*library_.attach)(repository.release());
  }

  /// Tells the points that the level-of-detail nodes of each iteration hold, level by level.
  HRESULT ShowIterations() {
    const std::uint64_t count = (*cloud_.*library_.getIterationCount)();
    for (std::uint64_t iteration = 0; iteration < count; ++iteration) {
      std::uint64_t time = 0;
      HRESULT code = (*cloud_.*library_.getTimePoint)(iteration, time);
      if (Failed(code)) return code;
      std::shared_ptr<OOCPCLODNodeCache> nodes;
      code = (*cloud_.*library_.getLodNodes)(iteration, nodes);
      if (Failed(code)) return code;
      std::printf("iteration %llu, %llu us since 1970\n", Number(iteration), Number(time));
      std::map<std::uint32_t, Level> levels;
      code = VisitNodes(iteration, [&](const Node& node, std::uint64_t index) {
        return AddLodNodes(*nodes, node, index, levels);
      });
      if (Failed(code)) return code;
      for (const auto& [level, sum] : levels) {
        std::printf("  level %u: %llu nodes, %llu points\n", level, Number(sum.nodes),
                    Number(sum.points));
      }
    }
    return oocpc::result::kOk;
  }

  /// Selects in the newest iteration.
  int Select(const std::string& text) {
    const auto expression = library_.MakeExpression();
    (*expression.*library_.setText)(text);
    (*expression.*library_.setCloud)(cloud_.get());
    if (const HRESULT code = expression->ComputeBooleanAST(); Failed(code)) {
      // Nothing is told where it was not the text that failed.
      const OOCPCQueryExpressionError* error = expression->GetErrorIterator()->Next();
      if (error == nullptr) return Fail("the query cannot be read", code);
      std::fprintf(stderr, "host: the query makes no sense from here on: %s\n",
                   error->GetText().c_str());
      return 1;
    }
    OOCPCBooleanAST* const tree = expression->GetBooleanAST();
    const auto evaluator = library_.MakeEvaluator(*cloud_, tree);
    if (const int failed = Agree(*evaluator, tree); failed != 0) return failed;

    std::uint64_t selected = 0;
    std::uint64_t tested = 0;
    std::vector<PointRecord> records;
    const std::uint64_t newest = (*cloud_.*library_.getIterationCount)() - 1;
    const HRESULT code = VisitNodes(newest, [&](const Node& node, std::uint64_t /*index*/) {
      const HRESULT read = ReadRecords(node, records);
      if (Failed(read)) return read;
      const char* const bytes = reinterpret_cast<const char*>(records.data());
      for (unsigned i = 0; i < records.size(); ++i) {
        if (!(*evaluator.*library_.evaluate)(bytes, i, sizeof(PointRecord))) continue;
        if (selected++ == 0) {
          std::printf("first selected point: %.3f %.3f %.3f\n", records[i].position[0],
                      records[i].position[1], records[i].position[2]);
        }
      }
      tested += records.size();
      return read;
    });
    if (Failed(code)) return Fail("the points cannot be read", code);
    std::printf("selected %llu of %llu points\n", Number(selected), Number(tested));
    return 0;
  }

 private:
  struct Level {
    std::uint64_t nodes = 0;
    std::uint64_t points = 0;
  };

  /// An octree node has a level-of-detail node of its own level, and a leaf perhaps finer ones.
  static HRESULT AddLodNodes(OOCPCLODNodeCache& nodes, const Node& node, std::uint64_t index,
                             std::map<std::uint32_t, Level>& levels) {
    for (std::uint32_t level = node.level;; ++level) {
      std::uint64_t firstPoint = 0;
      std::uint32_t pointCount = 0;
      const HRESULT code = nodes.FindNode(OOCPCLODNodeRecord::GetIndex(node, index, level), level,
                                          firstPoint, pointCount);
      if (level > node.level && code == oocpc::result::kLodNodeNotFound) break;
      if (Failed(code)) return code;
      ++levels[level].nodes;
      levels[level].points += pointCount;
      if (!node.IsLeaf()) break;
    }
    return oocpc::result::kOk;
  }

  static unsigned long long Number(std::uint64_t number) { return number; }

  /// Agrees with the evaluator on what the records look like.
  int Agree(TarnOOCBooleanExpressionEvaluator& evaluator, OOCPCBooleanAST* tree) const {
    (evaluator.*library_.collectNames)(tree);
    std::vector<std::string> names;
    (evaluator.*library_.getNames)(names);
    std::vector<unsigned> sizes;
    std::vector<unsigned> offsets;
    for (const std::string& name : names) {
      const auto found = kSizeAndOffset.find(name);
      if (found == kSizeAndOffset.end()) {
        return Fail(("the records of this host have no " + name).c_str());
      }
      sizes.push_back(found->second.first);
      offsets.push_back(found->second.second);
    }
    HRESULT code = (evaluator.*library_.setLayout)(names, sizes, offsets);
    if (!Failed(code)) code = (evaluator.*library_.initialize)();
    return Failed(code) ? Fail("the query cannot be asked", code) : 0;
  }

  /// Calls `visit` with each octree node of an iteration and its index, parents first.
  template <typename Visit>
  HRESULT VisitNodes(std::uint64_t iteration, const Visit& visit) {
    Node node;
    HRESULT code = (*cloud_.*library_.getRoot)(iteration, node);
    // Children stand before their parents, and the root's index is not needed to find its nodes.
    std::vector<std::pair<Node, std::uint64_t>> open{{node, Node::kNoChild}};
    while (!Failed(code) && !open.empty()) {
      const auto [current, index] = open.back();
      open.pop_back();
      code = visit(current, index);
      for (const std::uint64_t child : current.children) {
        if (Failed(code) || child == Node::kNoChild) continue;
        code = (*cloud_.*library_.getNode)(child, node);
        open.emplace_back(node, child);
      }
    }
    return code;
  }

  /// Fills the records of a node's own points, column by column.
  HRESULT ReadRecords(const Node& node, std::vector<PointRecord>& records) {
    records.resize(node.ownPointCount);
    if (records.empty()) return oocpc::result::kOk;
    HRESULT code = ReadValues<double, 3>("DEF_POSITION", node.blockId,
                                         [&](std::size_t i) { return records[i].position; });
    if (!Failed(code)) {
      code = ReadValues<std::uint16_t, 1>("intensity", node.blockId,
                                          [&](std::size_t i) { return &records[i].intensity; });
    }
    if (!Failed(code)) {
      code = ReadValues<std::uint8_t, 1>("classification", node.blockId,
                                         [&](std::size_t i) { return &records[i].classification; });
    }
    return code;
  }

  /// Reads a block of values of `Components` `Stored` each to where `place` says, as what the host
  /// keeps them as.
  template <typename Stored, std::size_t Components, typename Place>
  HRESULT ReadValues(const char* name, std::uint64_t blockId, const Place& place) {
    OOCPCMetaDataContainer* const values = (*cloud_.*library_.getValues)(name);
    if (values == nullptr) return oocpc::result::kStreamMissing;
    const HRESULT code = values->ReadBlock(blockId, bytes_);
    if (Failed(code)) return code;
    Stored value[Components];
    for (std::size_t i = 0; i < bytes_.size() / sizeof(value); ++i) {
      std::memcpy(value, bytes_.data() + i * sizeof(value), sizeof(value));
      std::copy(value, value + Components, place(i));
    }
    return code;
  }

  const TarnLibrary& library_;
  std::unique_ptr<TarnOOCPointCloud> cloud_;
  std::vector<std::uint8_t> bytes_;
};

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> arguments = ArgumentsOf(argc, argv);
  if (arguments.size() != 4) {
    std::fprintf(stderr, "usage: host LIBRARY REPOSITORY QUERY\n");
    return 2;
  }
  const TarnLibrary library(PathOf(arguments[1]));
  if (!library.IsUsable()) return Fail("that is not the library");
  Host host(library);
  if (const HRESULT code = host.Open(PathOf(arguments[2])); Failed(code)) {
    return Fail("the repository cannot be opened", code);
  }
  if (const HRESULT code = host.ShowIterations(); Failed(code)) {
    return Fail("the levels of detail cannot be read", code);
  }
  return host.Select(arguments[3]);
}
