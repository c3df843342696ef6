// Makes a picture of a cloud from its levels of detail.
#include "host/render/Render.h"

#include <tbb/enumerable_thread_specific.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

#include "host/lod/LodTree.h"
#include "host/render/ColorRamps.h"
#include "host/render/NodeChoice.h"
#include "host/render/PointCanvas.h"
#include "host/render/Shading.h"
#include "host/select/BoundQuery.h"

namespace tarnhost {

namespace result = oocpc::result;

namespace {

/// Pictures are drawn larger and shrunk, which smooths edges; large ones are not.
constexpr std::uint64_t kSmoothedPixels = 20000000;
/// Points from which the range of colours is learnt.
constexpr std::uint64_t kSamplePoints = 100000;
/// Discs are a little larger than half the distance of their points, and never larger than this.
constexpr double kDiscShare = 0.75;
constexpr double kLargestDisc = 14;
/// How far discs bulge, as a share of the distance of their points.
constexpr double kBulgeShare = 0.2;

/// What a thread needs to draw nodes.
struct Brush {
  BlockReader reader;
  std::unique_ptr<BoundQuery> query;
  PointValues values;
  std::vector<Rgb> colors;
  std::vector<std::uint32_t> selected;
};

class Renderer {
 public:
  Renderer(Cloud& cloud, const RenderOptions& options, RenderReport& report)
      : cloud_(cloud), options_(options), report_(report) {}

  Outcome Run(Picture& picture) {
    if (Outcome outcome = Prepare(); !outcome.Ok()) return outcome;
    std::vector<ChosenNode> nodes;
    Outcome outcome = ChooseNodes(*tree_, *camera_, options_.pointBudget, nodes);
    if (!outcome.Ok()) return outcome;
    if (outcome = LearnColors(nodes); !outcome.Ok()) return outcome;
    PointCanvas canvas({options_.size.width * factor_, options_.size.height * factor_});
    if (outcome = DrawAll(nodes, canvas); !outcome.Ok()) return outcome;
    picture = ShadePicture(canvas, *camera_, factor_);
    report_.drawnNodes = nodes.size();
    report_.drawnPoints = drawn_;
    report_.selectedPoints = selected_;
    return Outcome::Success();
  }

 private:
  Outcome Prepare() {
    OOCPCUpdateIteration record;
    if (Outcome outcome = cloud_.ReadIteration(options_.iteration, record); !outcome.Ok()) {
      return outcome;
    }
    report_.pointCount = record.pointCount;
    if (Outcome outcome = LodTree::Open(cloud_, options_.iteration, tree_); !outcome.Ok()) {
      return outcome;
    }
    if (Outcome outcome = PlaceCamera(); !outcome.Ok()) return outcome;
    if (Outcome outcome = PointColors::Find(cloud_, options_.color, colors_); !outcome.Ok()) {
      return outcome;
    }
    // What is wrong with the query is told before anything is drawn.
    Brush brush;
    return OpenBrush(brush);
  }

  Outcome PlaceCamera() {
    const PictureSize size = options_.size;
    if (size.width == 0 || size.height == 0 || size.width > kMostPixels ||
        size.height > kMostPixels) {
      return Outcome::Failure(result::kPictureRefused, "a picture cannot have that size", {},
                              "width and height are from 1 to " + std::to_string(kMostPixels));
    }
    factor_ = std::uint64_t{size.width} * size.height * 4 <= kSmoothedPixels ? 2 : 1;
    LodNode root;
    if (Outcome outcome = tree_->ReadRoot(root); !outcome.Ok()) return outcome;
    const oocpc::Box3d box{root.octreeNode.corner1, root.octreeNode.corner2};
    if (!options_.viewpoint) return FitCamera(box, root);
    Viewpoint local = *options_.viewpoint;
    for (std::size_t axis = 0; axis < 3; ++axis) {
      local.eye[axis] -= cloud_.GetFrameOffset()[axis];
      local.target[axis] -= cloud_.GetFrameOffset()[axis];
    }
    camera_ = Camera::Look(local, box, size);
    return camera_ ? Outcome::Success()
                   : Outcome::Failure(result::kPictureRefused,
                                      "the eye and its target give no direction", {},
                                      "put the eye somewhere else than its target");
  }

  /// To the points of the coarsest level: they show where in its box the cloud is.
  Outcome FitCamera(const oocpc::Box3d& box, const LodNode& root) {
    BlockReader reader;
    Outcome outcome = BlockReader::OpenLevel(cloud_, options_.iteration, {}, reader);
    std::vector<double> positions;
    if (outcome.Ok()) outcome = reader.ReadLocalPositions(root.points, positions);
    if (!outcome.Ok()) return outcome;
    std::vector<oocpc::Vector3d> points(positions.size() / 3);
    for (std::size_t i = 0; i < points.size(); ++i) {
      std::copy_n(positions.begin() + static_cast<std::ptrdiff_t>(3 * i), 3, points[i].begin());
    }
    camera_ = Camera::Fit(options_.view, box, points, options_.size);
    return Outcome::Success();
  }

  Outcome OpenBrush(Brush& brush) {
    Outcome outcome =
        BlockReader::OpenLevel(cloud_, options_.iteration, colors_.GetColumns(), brush.reader);
    if (!outcome.Ok() || options_.query.empty()) return outcome;
    return BoundQuery::Open(cloud_, {options_.query, options_.local, options_.iteration},
                            brush.query);
  }

  Outcome ReadValues(const PointRange& points, Brush& brush) const {
    brush.values.columns.resize(colors_.GetColumns().size());
    Outcome outcome = brush.reader.ReadLocalPositions(points, brush.values.positions);
    for (std::size_t i = 0; outcome.Ok() && i < brush.values.columns.size(); ++i) {
      outcome = brush.reader.ReadColumn(i, points, brush.values.columns[i]);
    }
    return outcome;
  }

  /// From the coarse nodes, which are an even sample of what is in view.
  Outcome LearnColors(const std::vector<ChosenNode>& nodes) {
    Brush brush;
    if (Outcome outcome = OpenBrush(brush); !outcome.Ok()) return outcome;
    PointValues sample;
    sample.columns.resize(colors_.GetColumns().size());
    for (const ChosenNode& node : nodes) {
      if (sample.positions.size() / 3 >= kSamplePoints) break;
      if (Outcome outcome = ReadValues(node.node.points, brush); !outcome.Ok()) return outcome;
      const PointValues& values = brush.values;
      sample.positions.insert(sample.positions.end(), values.positions.begin(),
                              values.positions.end());
      for (std::size_t i = 0; i < values.columns.size(); ++i) {
        sample.columns[i].insert(sample.columns[i].end(), values.columns[i].begin(),
                                 values.columns[i].end());
      }
    }
    colors_.Learn(sample);
    return Outcome::Success();
  }

  Outcome DrawAll(const std::vector<ChosenNode>& nodes, PointCanvas& canvas) {
    std::uint64_t total = 0;
    for (const ChosenNode& node : nodes) total += node.node.points.count;
    tbb::enumerable_thread_specific<std::unique_ptr<Brush>> brushes;
    std::mutex mutex;
    Outcome failure;
    tbb::parallel_for(std::size_t{0}, nodes.size(), [&](std::size_t i) {
      if (stopped_) return;
      std::unique_ptr<Brush>& brush = brushes.local();
      Outcome outcome;
      if (brush == nullptr) {
        brush = std::make_unique<Brush>();
        outcome = OpenBrush(*brush);
      }
      if (outcome.Ok()) outcome = DrawNode(nodes[i], *brush, canvas);
      const std::lock_guard<std::mutex> lock(mutex);
      if (stopped_) return;
      if (outcome.Ok() && options_.progress && !options_.progress({"drawing", drawn_, total})) {
        outcome = Outcome::FromCode(result::kStopped);
      }
      if (outcome.Ok()) return;
      stopped_ = true;
      failure = outcome;
    });
    return failure;
  }

  Outcome DrawNode(const ChosenNode& node, Brush& brush, PointCanvas& canvas) {
    if (Outcome outcome = ReadValues(node.node.points, brush); !outcome.Ok()) return outcome;
    colors_.Color(brush.values, brush.colors);
    if (brush.query != nullptr) {
      if (Outcome outcome = MarkSelected(node.node.points, brush); !outcome.Ok()) return outcome;
    }
    const double scale = factor_;
    for (std::size_t i = 0; i < brush.colors.size(); ++i) {
      const double* position = brush.values.positions.data() + 3 * i;
      Projected projected;
      if (!camera_->Project(position, projected)) continue;
      const double spacing = node.spacings[node.CellOf(position)];
      const double pixels = spacing / camera_->UnitsPerPixel(projected.depth);
      const double radius = std::min(kDiscShare * pixels, kLargestDisc) * scale;
      projected.x *= scale;
      projected.y *= scale;
      canvas.Draw(projected, radius, spacing * kBulgeShare, brush.colors[i]);
    }
    drawn_ += brush.colors.size();
    return Outcome::Success();
  }

  Outcome MarkSelected(const PointRange& points, Brush& brush) {
    Outcome outcome = brush.query->TestRange(points, brush.selected);
    if (!outcome.Ok()) return outcome;
    std::size_t next = 0;
    for (std::size_t i = 0; i < brush.colors.size(); ++i) {
      const bool selected = next < brush.selected.size() && brush.selected[next] == i;
      brush.colors[i] = selected ? Highlighted(brush.colors[i]) : Subdued(brush.colors[i]);
      next += selected ? 1u : 0u;
    }
    selected_ += brush.selected.size();
    return outcome;
  }

  Cloud& cloud_;
  const RenderOptions& options_;
  RenderReport& report_;
  std::unique_ptr<LodTree> tree_;
  std::optional<Camera> camera_;
  PointColors colors_;
  std::uint32_t factor_ = 1;
  std::atomic<std::uint64_t> drawn_{0};
  std::atomic<std::uint64_t> selected_{0};
  std::atomic<bool> stopped_{false};
};

}  // namespace

Outcome RenderPicture(Cloud& cloud, const RenderOptions& options, Picture& picture,
                      RenderReport& report) {
  report = {};
  return Renderer(cloud, options, report).Run(picture);
}

}  // namespace tarnhost
