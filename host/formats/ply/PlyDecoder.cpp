// The points of a PLY file: text, or binary of either byte order.
#include "host/formats/ply/PlyDecoder.h"

#include <algorithm>
#include <cstring>

#include "host/formats/converted/ConvertedScan.h"
#include "host/formats/converted/TableDecoder.h"
#include "host/formats/ply/PlyHeader.h"

namespace tarnhost {

namespace result = oocpc::result;

namespace {

class PlyDecoder final : public PointDecoder {
 public:
  PlyDecoder(std::span<const std::uint8_t> file, std::string where)
      : file_(file), where_(std::move(where)) {}

  Outcome Load(const ScanOptions& options) {
    if (Outcome outcome = ParsePlyHeader(file_, where_, header_); !outcome.Ok()) return outcome;
    const PlyElement& vertex = header_.elements[header_.vertexElement];
    for (const PlyProperty& property : vertex.properties) table_.Add(property.name, property.type);
    table_.rowCount = vertex.count;
    if (!table_.HasCoordinates()) {
      return Outcome::Failure(result::kScanUnsupported, "the vertices have no x, y and z", where_,
                              "write the scan with coordinates");
    }
    if (header_.format != PlyFormat::kText) return FindRecords();
    SharedProgress progress([&, total = file_.size() - header_.bytes](std::uint64_t done) {
      return !options.progress || options.progress({"opening", done, total, "bytes"});
    });
    return FindLines(progress);
  }

  const std::vector<ScanField>& GetFields() const override { return table_.fields; }
  CoordinateKind GetCoordinateKind() const override { return table_.kind; }
  std::span<const std::uint8_t> GetHeader() const override { return file_.first(header_.bytes); }
  std::uint64_t GetRowCount() const override { return table_.rowCount; }
  std::vector<std::string> GetNotices() const override {
    std::string passed;
    for (std::size_t i = 0; i < header_.elements.size(); ++i) {
      if (i == header_.vertexElement || header_.elements[i].count == 0) continue;
      passed += (passed.empty() ? "" : ", ") + std::to_string(header_.elements[i].count) + " of " +
                Quoted(header_.elements[i].name);
    }
    if (passed.empty()) return {};
    return {"elements that are no points are passed over: " + passed};
  }
  std::size_t GetPartCount() const override {
    if (header_.format == PlyFormat::kText) return stretches_.size();
    return static_cast<std::size_t>((table_.rowCount + kMostRows - 1) / kMostRows);
  }
  Outcome Decode(std::size_t part, bool withFields, const RowSink& take) const override {
    if (header_.format == PlyFormat::kText) {
      return DecodeTextRows(table_, Text(), stretches_[part], firstRow_, where_, withFields, take);
    }
    const std::uint64_t first = part * std::uint64_t{kMostRows};
    const auto count =
        static_cast<std::size_t>(std::min<std::uint64_t>(kMostRows, table_.rowCount - first));
    PointRows rows;
    DecodeBinaryRows(table_, {records_, header_.format == PlyFormat::kBigEndian}, first, count,
                     withFields, rows);
    OOCPCForgetPages({records_ + first * recordBytes_, count * recordBytes_});
    return take(rows);
  }

 private:
  std::string_view Text() const {
    return {reinterpret_cast<const char*>(file_.data()), file_.size()};
  }
  Outcome Truncated(const std::string& what) const {
    return Outcome::Failure(result::kScanTruncated, what, where_,
                            "copy or download the file again");
  }

  Outcome FindLines(SharedProgress& progress) {
    Outcome indexed = IndexLines(Text(), header_.bytes, header_.lines + 1, progress, stretches_);
    if (!indexed.Ok()) return indexed;
    const std::uint64_t rows =
        stretches_.empty() ? 0 : stretches_.back().firstRow + stretches_.back().rows;
    for (std::size_t i = 0; i < header_.vertexElement; ++i) {
      const std::uint64_t count = header_.elements[i].count;
      if (count > rows - firstRow_) return MissingLines(rows);
      firstRow_ += count;
    }
    return table_.rowCount > rows - firstRow_ ? MissingLines(rows) : Outcome::Success();
  }
  Outcome MissingLines(std::uint64_t rows) const {
    return Truncated("the header states more lines of data than the " + std::to_string(rows) +
                     " that follow");
  }

  Outcome FindRecords() {
    recordBytes_ = table_.PackRecords();
    std::uint64_t at = header_.bytes;
    for (std::size_t i = 0; i < header_.vertexElement; ++i) {
      if (Outcome outcome = PassOver(header_.elements[i], at); !outcome.Ok()) return outcome;
    }
    const std::uint64_t left = file_.size() - at;
    if (table_.rowCount > left / recordBytes_) {
      return Truncated("the header states " + std::to_string(table_.rowCount) + " points, " +
                       std::to_string(table_.rowCount - left / recordBytes_) + " are missing");
    }
    records_ = file_.data() + at;
    return Outcome::Success();
  }

  /// Moves `at` behind an element of a binary file.
  Outcome PassOver(const PlyElement& element, std::uint64_t& at) const {
    const std::uint64_t fixed = element.GetFixedBytes();
    if (!element.HasLists()) {
      if (fixed > 0 && element.count > (file_.size() - at) / fixed) return MissingBytes(element);
      at += element.count * fixed;
      return Outcome::Success();
    }
    for (std::uint64_t i = 0; i < element.count; ++i) {
      for (const PlyProperty& property : element.properties) {
        if (!PassOver(property, at)) return MissingBytes(element);
      }
    }
    return Outcome::Success();
  }
  Outcome MissingBytes(const PlyElement& element) const {
    return Truncated("the file ends within the elements " + Quoted(element.name));
  }

  bool PassOver(const PlyProperty& property, std::uint64_t& at) const {
    const std::uint64_t bytes = oocpc::ComponentBytes(property.type);
    if (!property.isList) return Move(bytes, at);
    const std::size_t countBytes = oocpc::ComponentBytes(property.countType);
    if (countBytes > file_.size() - at) return false;
    // A count is an integer of up to four bytes; one with its sign set is no length.
    std::uint64_t count = 0;
    for (std::size_t i = 0; i < countBytes; ++i) {
      const std::size_t shift = header_.format == PlyFormat::kBigEndian ? countBytes - 1 - i : i;
      count |= std::uint64_t{file_[static_cast<std::size_t>(at) + i]} << (8 * shift);
    }
    at += countBytes;
    return Move(count * bytes, at);
  }
  bool Move(std::uint64_t bytes, std::uint64_t& at) const {
    if (bytes > file_.size() - at) return false;
    at += bytes;
    return true;
  }

  std::span<const std::uint8_t> file_;
  std::string where_;
  PlyHeader header_;
  Table table_;
  std::vector<LineStretch> stretches_;  ///< of text
  std::uint64_t firstRow_ = 0;
  const std::uint8_t* records_ = nullptr;  ///< of a binary file
  std::size_t recordBytes_ = 0;
};

}  // namespace

Outcome OpenPly(const std::filesystem::path& path, std::shared_ptr<const OOCPCByteSource> bytes,
                const ScanOptions& options, std::unique_ptr<ScanFile>& scan) {
  auto decoder = std::make_unique<PlyDecoder>(bytes->GetBytes(), path.string());
  if (Outcome outcome = decoder->Load(options); !outcome.Ok()) return outcome;
  return ConvertedScan::Open(path, std::move(bytes), options, std::move(decoder), scan);
}

}  // namespace tarnhost
