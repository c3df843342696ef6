// A query text made ready to be asked of the points of a cloud.
#pragma once

#include <OOCPointCloudTarn/TarnOOCBooleanExpressionEvaluator.h>
#include <OOCPointCloudTarn/TarnOOCStringQueryExpression.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "host/cloud/Cloud.h"
#include "host/select/NodeClassifier.h"
#include "host/select/PointRecords.h"

namespace tarnhost {

/// Parses a text, fits it to the columns of a cloud, and tests points record by record. Borrows the
/// cloud. One thread at a time; threads open queries of their own.
class BoundQuery {
 public:
  /// kQueryRejected with the place in the text as `where`; codes of reading.
  static Outcome Open(Cloud& cloud, const QueryRequest& request,
                      std::unique_ptr<BoundQuery>& query);

  [[nodiscard]] OOCPCIQuery::ClassifyResult Classify(const OOCPointCloudNode& node) {
    return classifier_->Classify(node);
  }
  /// The numbers, ascending, of a node's own points that are selected.
  Outcome TestNode(const OOCPCOctreeAcceleratorNode& node, std::vector<std::uint32_t>& selected);
  /// The same of a run of points, counted from its first.
  Outcome TestRange(const PointRange& points, std::vector<std::uint32_t>& selected);

 private:
  explicit BoundQuery(Cloud& cloud) : cloud_(cloud) {}
  Outcome Prepare(const QueryRequest& request);
  Outcome Bind();
  void Test(std::uint32_t count, std::vector<std::uint32_t>& selected);

  Cloud& cloud_;
  PointRecords records_;
  TarnOOCStringQueryExpression expression_;
  std::optional<NodeClassifier> classifier_;
  std::optional<TarnOOCBooleanExpressionEvaluator> evaluator_;
};

}  // namespace tarnhost
