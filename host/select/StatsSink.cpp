// Least, greatest and mean value of each dimension of the selected points.
#include "host/select/StatsSink.h"

#include <bit>
#include <cmath>

#include "OOCPointCloud/columns/ComponentTypes.h"
#include "host/select/NumberWord.h"
#include "host/select/Sinks.h"
#include "host/select/ValueInterval.h"

namespace tarnhost {

using oocpc::ValueType;

namespace {

std::string Text(std::uint64_t bits, ValueType type) {
  if (type == ValueType::kFloat) return NumberWord(static_cast<float>(std::bit_cast<double>(bits)));
  if (type == ValueType::kDouble) return NumberWord(std::bit_cast<double>(bits));
  return IsSignedType(type) ? NumberWord(static_cast<std::int64_t>(bits)) : NumberWord(bits);
}

}  // namespace

struct StatsSink::Part final : SinkPart {
  std::vector<Partial> partials;
};

Outcome StatsSink::Begin(Cloud& cloud) {
  cloud_ = &cloud;
  columns_.clear();
  dimensions_.clear();
  strings_.clear();
  std::vector<std::string> names;
  for (const char* axis : {"x", "y", "z"}) dimensions_.push_back({axis, ValueType::kInt32, {}});
  for (const CloudColumn& column : cloud.GetColumns()) {
    if (column.type.value == ValueType::kString) {
      strings_.push_back(column.name);
      continue;
    }
    names.push_back(column.name);
    columns_.push_back(column);
    for (std::string& name : ComponentNames(column)) {
      dimensions_.push_back({std::move(name), column.type.value, {}});
    }
  }
  return values_.Open(cloud, std::move(names));
}

template <typename T>
StatsSink::Partial StatsSink::Summarize(const std::uint8_t* values, std::size_t count,
                                        std::size_t stride) {
  // Sums of integers of up to 32 bits fit: a block has at most 2^24 values.
  using Sum = std::conditional_t<std::is_integral_v<T> && sizeof(T) <= 4, std::int64_t, double>;
  Partial partial;
  Sum sum = 0;
  T least{};
  T greatest{};
  for (std::size_t i = 0; i < count; ++i, values += stride) {
    const T value = oocpc::LoadComponent<T>(values);
    if constexpr (std::is_floating_point_v<T>) {
      if (std::isnan(value)) {
        ++partial.nanCount;
        continue;
      }
    }
    if (partial.count == 0 || value < least) least = value;
    if (partial.count == 0 || value > greatest) greatest = value;
    ++partial.count;
    sum += static_cast<Sum>(value);
  }
  partial.leastBits = oocpc::WidenBits(least);
  partial.greatestBits = oocpc::WidenBits(greatest);
  partial.sum = static_cast<double>(sum);
  return partial;
}

Outcome StatsSink::Prepare(const OOCPCOctreeAcceleratorNode& node,
                           std::span<const std::uint32_t> points, std::unique_ptr<SinkPart>& part) {
  const SelectedValues* values = nullptr;
  if (Outcome outcome = values_.Read(node, points, values); !outcome.Ok()) return outcome;
  auto made = std::make_unique<Part>();
  const std::span<const std::uint8_t> xyz(
      reinterpret_cast<const std::uint8_t*>(values->GetPositions().data()), 12 * points.size());
  for (std::size_t axis = 0; axis < 3; ++axis) {
    made->partials.push_back(Summarize<std::int32_t>(xyz.data() + 4 * axis, points.size(), 12));
  }
  for (std::size_t i = 0; i < columns_.size(); ++i) {
    const oocpc::ColumnType type = columns_[i].type;
    for (std::size_t component = 0; component < type.components; ++component) {
      made->partials.push_back(oocpc::VisitComponentType(type.value, [&](auto tag) {
        using T = typename decltype(tag)::Type;
        return Summarize<T>(values->GetColumn(i).data() + component * sizeof(T), points.size(),
                            oocpc::ValueBytes(type));
      }));
    }
  }
  part = std::move(made);
  return Outcome::Success();
}

// The sum goes on with what rounding took from it (A. Neumaier, 1974).
void StatsSink::Merge(const Partial& part, Dimension& dimension) {
  Partial& total = dimension.total;
  total.nanCount += part.nanCount;
  if (part.count == 0) return;
  const bool isFirst = total.count == 0;
  if (isFirst || IsLess(part.leastBits, total.leastBits, dimension.type)) {
    total.leastBits = part.leastBits;
  }
  if (isFirst || IsLess(total.greatestBits, part.greatestBits, dimension.type)) {
    total.greatestBits = part.greatestBits;
  }
  total.count += part.count;
  const double sum = total.sum + part.sum;
  total.rest += std::abs(total.sum) >= std::abs(part.sum) ? (total.sum - sum) + part.sum
                                                          : (part.sum - sum) + total.sum;
  total.sum = sum;
}

Outcome StatsSink::Consume(const OOCPCOctreeAcceleratorNode& /*node*/,
                           std::span<const std::uint32_t> /*points*/, SinkPart* part) {
  const auto& partials = static_cast<Part&>(*part).partials;
  for (std::size_t i = 0; i < dimensions_.size(); ++i) Merge(partials[i], dimensions_[i]);
  return Outcome::Success();
}

Outcome StatsSink::End(const SelectReport& /*report*/) {
  stats_.clear();
  const PositionTransform& transform = cloud_->GetTransform();
  for (std::size_t i = 0; i < dimensions_.size(); ++i) {
    const Partial& total = dimensions_[i].total;
    DimensionStats& stats = stats_.emplace_back();
    stats.name = dimensions_[i].name;
    stats.count = total.count;
    stats.nanCount = total.nanCount;
    if (total.count == 0) continue;
    // An infinite sum has lost the rest, too.
    const double sum = std::isfinite(total.rest) ? total.sum + total.rest : total.sum;
    stats.mean = sum / static_cast<double>(total.count);
    stats.least = Text(total.leastBits, dimensions_[i].type);
    stats.greatest = Text(total.greatestBits, dimensions_[i].type);
    if (i >= 3) continue;
    const auto source = [&](double stored) {
      return stored * transform.scale[i] + transform.offset[i];
    };
    const double a = source(static_cast<double>(static_cast<std::int64_t>(total.leastBits)));
    const double b = source(static_cast<double>(static_cast<std::int64_t>(total.greatestBits)));
    stats.least = NumberWord(std::min(a, b));  // a scale may be negative
    stats.greatest = NumberWord(std::max(a, b));
    stats.mean = source(stats.mean);
  }
  return Outcome::Success();
}

}  // namespace tarnhost
