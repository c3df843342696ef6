// Checksums of points that do not depend on their order, the same for a scan and for its cloud.
#include "host/cloud/Checksums.h"

#include <tbb/enumerable_thread_specific.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <cstring>
#include <mutex>

#include "host/cloud/Export.h"
#include "host/cloud/SourceColumns.h"
#include "host/common/Hash64.h"

namespace tarnhost {

namespace {

constexpr std::size_t kPositionBytes = 3 * sizeof(std::int32_t);
constexpr std::uint64_t kPointsAtOnce = 1u << 14;

bool IsText(const Dimension& dimension) {
  return dimension.type.value == oocpc::ValueType::kString;
}

/// What stands for texts: their hashes.
using TextHashes = std::vector<std::uint64_t>;

std::uint64_t HashText(const std::string& text) {
  return Hash64({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
}

/// Sums over points, run by run.
class Summer {
 public:
  /// `dimensions` without the position; `texts` those that values of texts number.
  Summer(const std::vector<Dimension>& dimensions, const TextHashes& texts)
      : texts_(texts), sums_(dimensions.size() + 1) {
    widths_.push_back(kPositionBytes);
    areTexts_.push_back(false);
    for (const Dimension& dimension : dimensions) {
      areTexts_.push_back(IsText(dimension));
      widths_.push_back(IsText(dimension) ? sizeof(std::uint64_t)
                                          : oocpc::ValueBytes(dimension.type));
    }
    for (const std::size_t width : widths_) recordBytes_ += width;
  }

  void Begin(std::size_t count) {
    count_ = count;
    next_ = 0;
    offset_ = 0;
    records_.resize(count * recordBytes_);
  }
  /// Values of the next dimension.
  void Add(const std::uint8_t* values) {
    const std::size_t width = widths_[next_];
    if (areTexts_[next_]) values = HashTexts(values);
    std::uint64_t sum = 0;
    for (std::size_t i = 0; i < count_; ++i, values += width) {
      sum += Hash64({values, width});
      std::memcpy(records_.data() + i * recordBytes_ + offset_, values, width);
    }
    sums_[next_++] += sum;
    offset_ += width;
  }
  /// When all have been added.
  void End() {
    for (std::size_t i = 0; i < count_; ++i) {
      recordSum_ += Hash64({records_.data() + i * recordBytes_, recordBytes_});
    }
    pointCount_ += count_;
  }

  void GiveTo(Checksums& sums) const {
    sums.pointCount += pointCount_;
    sums.records += recordSum_;
    for (std::size_t i = 0; i < sums_.size(); ++i) sums.dimensions[i].second += sums_[i];
  }

 private:
  /// The hashes of texts by their numbers.
  const std::uint8_t* HashTexts(const std::uint8_t* numbers) {
    hashes_.resize(count_ * sizeof(std::uint64_t));
    for (std::size_t i = 0; i < count_; ++i) {
      std::uint32_t number = 0;
      std::memcpy(&number, numbers + i * sizeof(number), sizeof(number));
      const std::uint64_t hash = number < texts_.size() ? texts_[number] : 0;
      std::memcpy(hashes_.data() + i * sizeof(hash), &hash, sizeof(hash));
    }
    return hashes_.data();
  }

  const TextHashes& texts_;
  std::vector<std::size_t> widths_;  ///< the position's first
  std::vector<bool> areTexts_;
  std::vector<std::uint8_t> hashes_;
  std::vector<std::uint64_t> sums_;
  std::size_t recordBytes_ = 0;
  std::uint64_t recordSum_ = 0;
  std::uint64_t pointCount_ = 0;
  std::size_t count_ = 0;  ///< of the run
  std::size_t next_ = 0;
  std::size_t offset_ = 0;
  std::vector<std::uint8_t> records_;
};

/// Progress and the first failure of work on several threads.
class SharedState {
 public:
  SharedState(const ChecksumProgress& progress, std::uint64_t total)
      : progress_(progress), total_(total) {}

  [[nodiscard]] bool GoesOn() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return failure_.Ok();
  }
  void Add(std::uint64_t points, Outcome outcome) {
    const std::lock_guard<std::mutex> lock(mutex_);
    done_ += points;
    if (!failure_.Ok()) return;
    if (outcome.Ok() && progress_ && !progress_({"summing", done_, total_})) {
      outcome = Outcome::FromCode(oocpc::result::kStopped);
    }
    failure_ = std::move(outcome);
  }
  [[nodiscard]] Outcome GetFailure() const { return failure_; }

 private:
  const ChecksumProgress& progress_;
  std::uint64_t total_;
  std::uint64_t done_ = 0;
  Outcome failure_;
  std::mutex mutex_;
};

/// What there is to sum up, with sums of nothing.
Checksums Nothing(const PositionTransform& transform, const std::vector<Dimension>& dimensions) {
  Checksums sums;
  sums.transform = transform;
  sums.dimensions.emplace_back("DEF_POSITION", 0);
  for (const Dimension& dimension : dimensions) sums.dimensions.emplace_back(dimension.name, 0);
  return sums;
}

struct ScanPart {
  ScanPart(const std::vector<Dimension>& dimensions, const TextHashes& texts)
      : summer(dimensions, texts) {}

  void Sum(const ScanFile& scan, std::uint64_t first, std::size_t count) {
    const std::size_t bytes = scan.GetRecordBytes();
    records.resize(count * bytes);
    scan.ReadRecords(first, count, records.data());
    values.resize(count * kPositionBytes);
    for (std::size_t i = 0; i < count; ++i) {
      std::memcpy(values.data() + i * kPositionBytes, records.data() + i * bytes, kPositionBytes);
    }
    summer.Begin(count);
    summer.Add(values.data());
    for (std::size_t i = 0; i < scan.GetDimensions().size(); ++i) {
      values.resize(count * oocpc::ValueBytes(scan.GetDimensions()[i].type));
      scan.ExtractDimension(i, records.data(), count, values.data());
      summer.Add(values.data());
    }
    summer.End();
  }

  Summer summer;
  std::vector<std::uint8_t> records;
  std::vector<std::uint8_t> values;
};

struct CloudPart {
  CloudPart(const std::vector<Dimension>& dimensions, const TextHashes& texts)
      : summer(dimensions, texts) {}

  Outcome Sum(Cloud& cloud, const std::vector<Dimension>& dimensions,
              const OOCPCOctreeAcceleratorNode& node) {
    if (!isOpen) {
      std::vector<std::string> names;
      names.reserve(dimensions.size());
      for (const Dimension& dimension : dimensions) names.push_back(dimension.name);
      if (Outcome outcome = BlockReader::Open(cloud, names, reader); !outcome.Ok()) return outcome;
      isOpen = true;
    }
    if (Outcome outcome = reader.ReadPositions(node, xyz); !outcome.Ok()) return outcome;
    values.resize(xyz.size() * sizeof(std::int32_t));
    std::memcpy(values.data(), xyz.data(), values.size());
    summer.Begin(node.ownPointCount);
    summer.Add(values.data());
    for (std::size_t i = 0; i < dimensions.size(); ++i) {
      if (Outcome outcome = reader.ReadColumn(i, node, values); !outcome.Ok()) return outcome;
      summer.Add(values.data());
    }
    summer.End();
    return Outcome::Success();
  }

  Summer summer;
  BlockReader reader;
  bool isOpen = false;
  std::vector<std::int32_t> xyz;
  std::vector<std::uint8_t> values;
};

/// The hashes of the texts of a cloud that has dimensions of texts.
Outcome HashDictionary(Cloud& cloud, const std::vector<Dimension>& dimensions, TextHashes& hashes) {
  if (std::ranges::none_of(dimensions, IsText)) return Outcome::Success();
  const OOCPCStringRepositoryContainer* const dictionary =
      cloud.GetPointCloud().GetDataRepository()->GetStringRepository();
  const std::uint64_t count = dictionary == nullptr ? 0 : dictionary->GetCount();
  std::string text;
  for (std::uint64_t i = 0; i < count; ++i) {
    const HRESULT code = dictionary->GetString(i, text);
    if (oocpc::Failed(code)) return Outcome::FromCode(code, cloud.GetPath().string());
    hashes.push_back(HashText(text));
  }
  return Outcome::Success();
}

}  // namespace

Outcome SumScan(ScanFile& scan, ScanWorkspace& workspace, const ChecksumProgress& progress,
                Checksums& sums) {
  const std::vector<Dimension>& dimensions = scan.GetDimensions();
  const std::uint64_t total = scan.GetPointCount();
  workspace.progress = [&](std::uint64_t done) {
    return !progress || progress({"decoding", done, total});
  };
  if (Outcome outcome = scan.Prepare(workspace); !outcome.Ok()) return outcome;
  SharedState state(progress, total);
  TextHashes texts;
  for (const std::string& text : scan.GetStrings()) texts.push_back(HashText(text));
  tbb::enumerable_thread_specific<ScanPart> parts([&] { return ScanPart(dimensions, texts); });
  tbb::parallel_for(
      std::uint64_t{0}, (total + kPointsAtOnce - 1) / kPointsAtOnce, [&](std::uint64_t run) {
        if (!state.GoesOn()) return;
        const std::uint64_t count = std::min(kPointsAtOnce, total - run * kPointsAtOnce);
        parts.local().Sum(scan, run * kPointsAtOnce, static_cast<std::size_t>(count));
        state.Add(count, Outcome::Success());
      });
  scan.Release();
  if (Outcome outcome = state.GetFailure(); !outcome.Ok()) return outcome;
  sums = Nothing(scan.GetTransform(), dimensions);
  for (const ScanPart& part : parts) part.summer.GiveTo(sums);
  return Outcome::Success();
}

Outcome SumCloud(Cloud& cloud, std::uint64_t iteration, const ChecksumProgress& progress,
                 Checksums& sums) {
  OOCPCUpdateIteration record;
  if (Outcome outcome = cloud.ReadIteration(iteration, record); !outcome.Ok()) return outcome;
  std::vector<OOCPCOctreeAcceleratorNode> nodes;
  Outcome walk = cloud.WalkNodes(iteration, [&](const OOCPCOctreeAcceleratorNode& node) {
    if (node.ownPointCount > 0) nodes.push_back(node);
    return Descend::kIntoChildren;
  });
  if (!walk.Ok()) return walk;
  std::vector<Dimension> dimensions;
  for (const CloudColumn& column : cloud.GetColumns()) {
    if (!IsSourceColumn(column)) dimensions.push_back({column.name, column.type, {}});
  }
  SharedState state(progress, record.pointCount);
  TextHashes texts;
  if (Outcome outcome = HashDictionary(cloud, dimensions, texts); !outcome.Ok()) return outcome;
  tbb::enumerable_thread_specific<CloudPart> parts([&] { return CloudPart(dimensions, texts); });
  tbb::parallel_for(std::size_t{0}, nodes.size(), [&](std::size_t i) {
    if (!state.GoesOn()) return;
    Outcome outcome = parts.local().Sum(cloud, dimensions, nodes[i]);
    state.Add(nodes[i].ownPointCount, std::move(outcome));
  });
  if (Outcome outcome = state.GetFailure(); !outcome.Ok()) return outcome;
  sums = Nothing(cloud.GetTransform(), dimensions);
  for (const CloudPart& part : parts) part.summer.GiveTo(sums);
  return CheckPointCount(cloud, sums.pointCount, record.pointCount);
}

}  // namespace tarnhost
