// Scans with the layout of a cloud.
#include "host/build/AdaptedScan.h"

#include <algorithm>
#include <cstring>
#include <optional>

#include "host/build/PackedRecords.h"
#include "host/build/ScanDecorator.h"
#include "host/build/StoredSteps.h"

namespace tarnhost {

namespace {

constexpr std::size_t kNone = ~std::size_t{0};

class AdaptedScan final : public ScanDecorator {
 public:
  AdaptedScan(std::unique_ptr<ScanFile> scan, const PointLayout& layout, const ScanTags& tags,
              const StoredSteps& steps)
      : ScanDecorator(std::move(scan)),
        layout_(layout),
        tags_(tags),
        steps_(steps),
        converts_(!IsIdentity(steps)),
        packed_(layout.dimensions) {
    for (const Dimension& dimension : layout_.dimensions) {
      const auto& own = Scan().GetDimensions();
      const auto found = std::ranges::find(own, dimension.name, &Dimension::name);
      origins_.push_back(found == own.end() ? kNone
                                            : static_cast<std::size_t>(found - own.begin()));
    }
  }

  const PositionTransform& GetTransform() const override { return layout_.transform; }
  const std::vector<Dimension>& GetDimensions() const override { return layout_.dimensions; }
  std::size_t GetRecordBytes() const override { return packed_.GetRecordBytes(); }

  Outcome Prepare(ScanWorkspace& workspace) override {
    Outcome outcome = ScanDecorator::Prepare(workspace);
    // What the scan states of its positions may be wrong.
    if (!outcome.Ok() || !converts_ || isChecked_) return outcome;
    if (!tarnhost::Convert(steps_, FindStoredBox(Scan()))) {
      Release();
      return Outcome::Failure(oocpc::result::kScansDiffer,
                              "counted in the steps of the cloud, its coordinates do not fit into "
                              "32 bits",
                              GetPath().string(), "import it into a repository of its own");
    }
    isChecked_ = true;
    return outcome;
  }

  void ReadPositions(std::uint64_t first, std::uint64_t count, std::int32_t* xyz) const override {
    Scan().ReadPositions(first, count, xyz);
    if (converts_) tarnhost::Convert(steps_, count, xyz);
  }

  void ReadRecords(std::uint64_t first, std::uint64_t count, std::uint8_t* out) const override {
    const std::size_t bytes = Scan().GetRecordBytes();
    std::vector<std::uint8_t> records(count * bytes);
    Scan().ReadRecords(first, count, records.data());
    std::vector<std::int32_t> xyz(3 * count);
    for (std::uint64_t i = 0; i < count; ++i) {
      std::memcpy(xyz.data() + 3 * i, records.data() + i * bytes, 3 * sizeof(std::int32_t));
    }
    if (converts_) tarnhost::Convert(steps_, count, xyz.data());
    packed_.PutPositions(xyz.data(), count, out);
    std::vector<std::uint8_t> scratch;
    std::vector<std::uint8_t> values;
    for (std::size_t i = 0; i < origins_.size(); ++i) {
      values.assign(count * oocpc::ValueBytes(layout_.dimensions[i].type), 0);
      FillValues(i, first, count, records, scratch, values);
      packed_.Put(i, values.data(), count, out);
    }
  }

  void ExtractDimension(std::size_t dimension, const std::uint8_t* records, std::size_t count,
                        std::uint8_t* out) const override {
    packed_.Extract(dimension, records, count, out);
  }

  bool GetStatedBox(StoredBox& box) const override {
    if (!Scan().GetStatedBox(box)) return false;
    const std::optional<StoredBox> converted = tarnhost::Convert(steps_, box);
    if (converted) box = *converted;
    return converted.has_value();
  }

 private:
  /// Fills in the values of one dimension, which are zeros.
  void FillValues(std::size_t dimension, std::uint64_t first, std::uint64_t count,
                  const std::vector<std::uint8_t>& records, std::vector<std::uint8_t>& scratch,
                  std::vector<std::uint8_t>& values) const {
    const Dimension& to = layout_.dimensions[dimension];
    if (origins_[dimension] != kNone) {
      const Dimension& from = Scan().GetDimensions()[origins_[dimension]];
      scratch.resize(count * oocpc::ValueBytes(from.type));
      Scan().ExtractDimension(origins_[dimension], records.data(), count, scratch.data());
      ConvertValues(from, to, scratch.data(), count, values.data());
    } else if (to.type.value == oocpc::ValueType::kString) {
      const bool isSource = tags_.source && IsSourceName(to.name, to.type);
      const std::uint32_t number = isSource ? *tags_.source : tags_.emptyText;
      for (std::uint64_t i = 0; i < count; ++i) {
        std::memcpy(values.data() + i * sizeof(number), &number, sizeof(number));
      }
    } else if (tags_.firstIndex && IsSourceIndex(to.name, to.type)) {
      for (std::uint64_t i = 0; i < count; ++i) {
        const std::uint64_t index = *tags_.firstIndex + first + i;
        std::memcpy(values.data() + i * sizeof(index), &index, sizeof(index));
      }
    }
  }

  PointLayout layout_;
  ScanTags tags_;
  StoredSteps steps_;
  bool converts_;
  bool isChecked_ = false;
  PackedLayout packed_;
  std::vector<std::size_t> origins_;  ///< of each dimension, among those of the scan
};

Outcome CheckDimensions(const ScanFile& scan, const PointLayout& layout) {
  for (const Dimension& dimension : scan.GetDimensions()) {
    const auto found = std::ranges::find(layout.dimensions, dimension.name, &Dimension::name);
    const std::string path = scan.GetPath().string();
    if (found == layout.dimensions.end()) {
      return Outcome::Failure(oocpc::result::kScansDiffer,
                              "the cloud has no dimension for its " + dimension.name, path,
                              "import it into a repository of its own, or all scans into one anew");
    }
    if (!CanConvert(dimension, *found)) {
      return Outcome::Failure(
          oocpc::result::kScansDiffer,
          "the cloud's " + dimension.name + " (" + oocpc::ValueTypeName(found->type.value) +
              ") cannot hold that of the scan (" + oocpc::ValueTypeName(dimension.type.value) + ")",
          path, "import it into a repository of its own, or all scans into one anew");
    }
  }
  return Outcome::Success();
}

}  // namespace

Outcome AdaptScan(std::unique_ptr<ScanFile> scan, const PointLayout& layout, const ScanTags& tags,
                  std::unique_ptr<ScanFile>& adapted) {
  Outcome outcome = CheckDimensions(*scan, layout);
  StoredSteps steps;
  if (outcome.Ok()) {
    outcome = FindSteps(scan->GetTransform(), layout.transform, steps);
    if (!outcome.Ok()) outcome.where = scan->GetPath().string();
  }
  if (!outcome.Ok()) return outcome;
  adapted = std::make_unique<AdaptedScan>(std::move(scan), layout, tags, steps);
  return outcome;
}

}  // namespace tarnhost
