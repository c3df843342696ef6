// Least, greatest and mean value of each dimension of the selected points.
#pragma once

#include <string>
#include <vector>

#include "host/select/Select.h"
#include "host/select/SelectedValues.h"

namespace tarnhost {

/// What a dimension's values are like. NaNs are left out and counted.
struct DimensionStats {
  std::string name;
  std::uint64_t count = 0;  ///< values that are numbers
  std::uint64_t nanCount = 0;
  std::string least;     ///< as short as it reads back without loss; empty without values
  std::string greatest;  ///< the same
  double mean = 0;
};

/// Gathers statistics; the same points give the same figures, to the last bit.
class StatsSink final : public SelectionSink {
 public:
  Outcome Begin(Cloud& cloud) override;
  Outcome Prepare(const OOCPCOctreeAcceleratorNode& node, std::span<const std::uint32_t> points,
                  std::unique_ptr<SinkPart>& part) override;
  Outcome Consume(const OOCPCOctreeAcceleratorNode& node, std::span<const std::uint32_t> points,
                  SinkPart* part) override;
  Outcome End(const SelectReport& report) override;

  /// After End: x, y, z in source coordinates, then the columns that hold numbers.
  [[nodiscard]] const std::vector<DimensionStats>& GetStats() const { return stats_; }
  /// After Begin: the columns that hold strings, of which there are no statistics.
  [[nodiscard]] const std::vector<std::string>& GetStringColumns() const { return strings_; }

 private:
  /// Of one component, over some points. Bounds are widened as block entries hold them.
  struct Partial {
    std::uint64_t count = 0;
    std::uint64_t nanCount = 0;
    std::uint64_t leastBits = 0;
    std::uint64_t greatestBits = 0;
    double sum = 0;
    double rest = 0;  ///< what rounding took from the sum
  };
  struct Dimension {
    std::string name;
    oocpc::ValueType type;
    Partial total;
  };
  struct Part;

  template <typename T>
  static Partial Summarize(const std::uint8_t* values, std::size_t count, std::size_t stride);
  static void Merge(const Partial& part, Dimension& dimension);

  Cloud* cloud_ = nullptr;
  ThreadValues values_;
  std::vector<CloudColumn> columns_;  ///< those that have numbers
  std::vector<Dimension> dimensions_;
  std::vector<DimensionStats> stats_;
  std::vector<std::string> strings_;
};

}  // namespace tarnhost
