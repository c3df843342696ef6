// Ranges, means and contradictions of the values of a cloud or a scan.
#include "host/cloud/Statistics.h"

#include <algorithm>
#include <bit>

#include "OOCPointCloud/support/Bytes.h"

namespace tarnhost {

using oocpc::ValueType;

namespace {

/// Points of a scan that are taken at once.
constexpr std::uint64_t kRunPoints = std::uint64_t{1} << 16;

bool IsSigned(ValueType type) {
  return type == ValueType::kInt8 || type == ValueType::kInt16 || type == ValueType::kInt32 ||
         type == ValueType::kInt64;
}

bool IsReal(ValueType type) { return type == ValueType::kFloat || type == ValueType::kDouble; }

Number NumberOf(ValueType type, std::uint64_t bits) {
  if (IsReal(type)) return std::bit_cast<double>(bits);
  if (IsSigned(type)) return static_cast<std::int64_t>(bits);
  return bits;
}

double ValueAt(ValueType type, const std::uint8_t* bytes) {
  switch (type) {
    case ValueType::kUInt8:
      return *bytes;
    case ValueType::kInt8:
      return static_cast<std::int8_t>(*bytes);
    case ValueType::kUInt16:
      return oocpc::LoadLittleEndian<std::uint16_t>(bytes);
    case ValueType::kInt16:
      return oocpc::LoadLittleEndian<std::int16_t>(bytes);
    case ValueType::kString:
    case ValueType::kUInt32:
      return oocpc::LoadLittleEndian<std::uint32_t>(bytes);
    case ValueType::kInt32:
      return oocpc::LoadLittleEndian<std::int32_t>(bytes);
    case ValueType::kUInt64:
      return static_cast<double>(oocpc::LoadLittleEndian<std::uint64_t>(bytes));
    case ValueType::kInt64:
      return static_cast<double>(oocpc::LoadLittleEndian<std::int64_t>(bytes));
    case ValueType::kFloat:
      return oocpc::LoadLittleEndian<float>(bytes);
    case ValueType::kDouble:
      return oocpc::LoadLittleEndian<double>(bytes);
  }
  return 0;
}

}  // namespace

void Widen(DimensionFacts& facts, const oocpc::BlockEntry& entry) {
  const bool first = facts.minimum.empty();
  for (std::size_t i = 0; i < facts.type.components; ++i) {
    const Number least = NumberOf(facts.type.value, entry.minimumBits[i]);
    const Number greatest = NumberOf(facts.type.value, entry.maximumBits[i]);
    if (first) {
      facts.minimum.push_back(least);
      facts.maximum.push_back(greatest);
    } else {
      facts.minimum[i] = std::min(facts.minimum[i], least);
      facts.maximum[i] = std::max(facts.maximum[i], greatest);
    }
  }
}

void ValueSums::Add(std::size_t number, const DimensionFacts& dimension,
                    const std::vector<std::uint8_t>& values) {
  if (sums_.size() <= number) sums_.resize(number + 1);
  std::vector<double>& sums = sums_[number];
  sums.resize(dimension.type.components);
  const std::uint32_t bytes = oocpc::ComponentBytes(dimension.type.value);
  std::size_t component = 0;
  for (std::size_t at = 0; at < values.size(); at += bytes) {
    sums[component] += ValueAt(dimension.type.value, values.data() + at);
    component = component + 1 == sums.size() ? 0 : component + 1;
  }
  CountBadReturns(dimension, values);
}

void ValueSums::CountBadReturns(const DimensionFacts& dimension,
                                const std::vector<std::uint8_t>& values) {
  if (dimension.type != oocpc::ColumnType{ValueType::kUInt8, 1}) return;
  if (dimension.name == "return_number") returns_ = values;
  if (dimension.name != "number_of_returns") return;
  for (std::size_t i = 0; i < std::min(returns_.size(), values.size()); ++i) {
    if (returns_[i] > values[i]) ++badReturns_;
  }
  returns_.clear();
}

void ValueSums::GiveTo(CloudFacts& facts) const {
  if (facts.pointCount == 0) return;
  for (std::size_t i = 0; i < sums_.size(); ++i) {
    for (const double sum : sums_[i]) {
      facts.dimensions[i].mean.push_back(sum / static_cast<double>(facts.pointCount));
    }
  }
  if (badReturns_ > 0) {
    facts.oddities.push_back(std::to_string(badReturns_) +
                             " points have a return number above their number of returns");
  }
}

Outcome AddScanStatistics(ScanFile& scan, ScanWorkspace& workspace,
                          const std::function<bool(const ProgressReport&)>& progress,
                          CloudFacts& facts) {
  const std::uint64_t total = scan.GetPointCount();
  workspace.progress = [&](std::uint64_t done) {
    return !progress || progress({"decoding", done, total});
  };
  if (Outcome outcome = scan.Prepare(workspace); !outcome.Ok()) return outcome;
  ValueSums sums;
  std::vector<std::uint8_t> records;
  std::vector<std::uint8_t> values;
  bool goesOn = true;
  for (std::uint64_t first = 0; first < total && goesOn; first += kRunPoints) {
    const auto count = static_cast<std::size_t>(std::min(kRunPoints, total - first));
    records.resize(count * scan.GetRecordBytes());
    scan.ReadRecords(first, count, records.data());
    for (std::size_t i = 0; i < facts.dimensions.size(); ++i) {
      DimensionFacts& dimension = facts.dimensions[i];
      if (dimension.type.value == ValueType::kString) continue;
      values.resize(count * oocpc::ValueBytes(dimension.type));
      scan.ExtractDimension(i, records.data(), count, values.data());
      Widen(dimension,
            oocpc::EncodeBlock(dimension.type, values, oocpc::BlockEncodings::kLight).entry);
      sums.Add(i, dimension, values);
    }
    goesOn = !progress || progress({"reading", first + count, total});
  }
  scan.Release();
  if (!goesOn) return Outcome::FromCode(oocpc::result::kStopped);
  sums.GiveTo(facts);
  return Outcome::Success();
}

}  // namespace tarnhost
