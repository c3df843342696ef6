// Writes the coarse levels of a cloud as a scan file.
#include "host/lod/Thin.h"

#include <algorithm>
#include <span>

#include "host/cloud/Export.h"
#include "host/lod/LodTree.h"

namespace tarnhost {

namespace result = oocpc::result;

namespace {

class Thinner {
 public:
  Thinner(const LodTree& tree, std::uint32_t level, LasWriter& writer)
      : tree_(tree), level_(level), writer_(writer) {}

  Outcome Open(Cloud& cloud) {
    std::vector<std::string> columns;
    if (Outcome outcome = ColumnsForLas(cloud, writer_.GetLayout(), columns); !outcome.Ok())
      return outcome;
    values_.resize(columns.size());
    return BlockReader::OpenLevel(cloud, tree_.GetIteration(), columns, reader_);
  }

  Outcome Run(const std::function<bool(const ProgressReport&)>& progress, std::uint64_t total) {
    LodNode root;
    if (Outcome outcome = tree_.ReadRoot(root); !outcome.Ok()) return outcome;
    std::vector<LodNode> waiting{root};
    std::vector<LodNode> children;
    while (!waiting.empty()) {
      const LodNode node = waiting.back();
      waiting.pop_back();
      if (Outcome outcome = Take(node.points); !outcome.Ok()) return outcome;
      if (progress && !progress({"writing", writer_.GetPointCount(), total})) {
        return Outcome::FromCode(result::kStopped);
      }
      finest_ = std::max(finest_, node.level);
      if (node.level >= level_) continue;
      if (Outcome outcome = tree_.ReadChildren(node, children); !outcome.Ok()) return outcome;
      waiting.insert(waiting.end(), children.rbegin(), children.rend());
    }
    return Write();
  }

  /// Of the nodes written.
  [[nodiscard]] std::uint32_t GetFinestLevel() const { return finest_; }

 private:
  /// Levels of one leaf follow each other in its block and are read at once.
  Outcome Take(const PointRange& points) {
    if (run_.first + run_.count == points.first) {
      run_.count += points.count;
      return Outcome::Success();
    }
    Outcome outcome = Write();
    run_ = points;
    return outcome;
  }

  Outcome Write() {
    if (run_.count == 0) return Outcome::Success();
    if (Outcome outcome = reader_.ReadPositions(run_, xyz_); !outcome.Ok()) return outcome;
    std::vector<std::span<const std::uint8_t>> columns;
    for (std::size_t i = 0; i < values_.size(); ++i) {
      if (Outcome outcome = reader_.ReadColumn(i, run_, values_[i]); !outcome.Ok()) return outcome;
      columns.emplace_back(values_[i]);
    }
    return writer_.WriteBlock(run_.count, xyz_.data(), columns);
  }

  const LodTree& tree_;
  std::uint32_t level_;
  std::uint32_t finest_ = 0;
  LasWriter& writer_;
  BlockReader reader_;
  PointRange run_;
  std::vector<std::int32_t> xyz_;
  std::vector<std::vector<std::uint8_t>> values_;
};

}  // namespace

Outcome ThinLas(Cloud& cloud, const ThinOptions& options, const std::filesystem::path& output,
                ThinReport& report) {
  OOCPCUpdateIteration record;
  if (Outcome outcome = cloud.ReadIteration(options.iteration, record); !outcome.Ok()) {
    return outcome;
  }
  std::unique_ptr<LodTree> tree;
  if (Outcome outcome = LodTree::Open(cloud, options.iteration, tree); !outcome.Ok()) {
    return outcome;
  }
  LasFrame frame;
  if (Outcome outcome = FrameForLas(cloud, frame); !outcome.Ok()) return outcome;
  std::unique_ptr<LasWriter> writer;
  if (Outcome outcome = LasWriter::Create(output, frame, writer); !outcome.Ok()) return outcome;
  const std::uint32_t level =
      options.spacing > 0 ? tree->FindLevel(options.spacing) : options.level;
  Thinner thinner(*tree, level, *writer);
  if (Outcome outcome = thinner.Open(cloud); !outcome.Ok()) return outcome;
  if (Outcome outcome = thinner.Run(options.progress, record.pointCount); !outcome.Ok()) {
    return outcome;
  }
  report.level = thinner.GetFinestLevel();
  report.spacing = tree->GetSpacing(report.level);
  report.pointCount = writer->GetPointCount();
  return writer->Finish(IsFirstSource(cloud, report.pointCount, record.pointCount));
}

}  // namespace tarnhost
