// The points of a PCD file: text, binary, or compressed.
#include "host/formats/pcd/PcdDecoder.h"

#include <algorithm>

#include "OOCPointCloud/support/Bytes.h"
#include "host/common/ScratchBytes.h"
#include "host/formats/converted/ConvertedScan.h"
#include "host/formats/converted/FieldNames.h"
#include "host/formats/converted/TableDecoder.h"
#include "host/formats/pcd/Lzf.h"
#include "host/formats/pcd/PcdHeader.h"

namespace tarnhost {

namespace result = oocpc::result;

namespace {

class PcdDecoder final : public PointDecoder {
 public:
  PcdDecoder(std::span<const std::uint8_t> file, std::string where)
      : file_(file), where_(std::move(where)) {}

  Outcome Load(const ScanOptions& options) {
    if (Outcome outcome = ParsePcdHeader(file_, where_, header_); !outcome.Ok()) return outcome;
    for (const PcdField& field : header_.fields) AddField(field);
    table_.rowCount = header_.pointCount;
    if (!table_.HasCoordinates()) {
      return Outcome::Failure(result::kScanUnsupported, "the points have no x, y and z", where_,
                              "write the scan with coordinates");
    }
    recordBytes_ = table_.PackRecords();
    switch (header_.data) {
      case PcdData::kText:
        return FindLines(options);
      case PcdData::kBinary:
        return FindRecords();
      case PcdData::kCompressed:
        break;
    }
    return FindCompressed();
  }

  const std::vector<ScanField>& GetFields() const override { return table_.fields; }
  CoordinateKind GetCoordinateKind() const override { return table_.kind; }
  std::span<const std::uint8_t> GetHeader() const override { return file_.first(header_.bytes); }
  std::uint64_t GetRowCount() const override { return table_.rowCount; }
  Outcome Begin(const ScanWorkspace& workspace) override {
    if (header_.data != PcdData::kCompressed) return Outcome::Success();
    Outcome outcome = ScratchBytes::Create(unpackedBytes_, workspace.memoryBytes,
                                           workspace.temporaryFolder, unpacked_);
    if (outcome.Ok()) outcome = Unpack(workspace);
    if (!outcome.Ok()) unpacked_.reset();
    return outcome;
  }
  void End() override { unpacked_.reset(); }
  std::size_t GetPartCount() const override {
    if (header_.data == PcdData::kText) return stretches_.size();
    return static_cast<std::size_t>((table_.rowCount + kMostRows - 1) / kMostRows);
  }
  Outcome Decode(std::size_t part, bool withFields, const RowSink& take) const override {
    if (header_.data == PcdData::kText) {
      return DecodeTextRows(table_, Text(), stretches_[part], 0, where_, withFields, take);
    }
    const bool isMapped = header_.data == PcdData::kBinary;
    const std::uint8_t* const data = isMapped ? file_.data() + header_.bytes : unpacked_->Get(0);
    const std::uint64_t first = part * std::uint64_t{kMostRows};
    const auto count =
        static_cast<std::size_t>(std::min<std::uint64_t>(kMostRows, table_.rowCount - first));
    PointRows rows;
    DecodeBinaryRows(table_, {data, false}, first, count, withFields, rows);
    if (isMapped) {
      OOCPCForgetPages({data + first * recordBytes_, count * recordBytes_});
    } else {
      for (const TableColumn& column : table_.columns) {
        const std::size_t bytes = oocpc::ComponentBytes(column.type);
        unpacked_->Forget(column.offset + first * column.stride,
                          (count - 1) * column.stride + bytes);
      }
    }
    return take(rows);
  }

 private:
  std::string_view Text() const {
    return {reinterpret_cast<const char*>(file_.data()), file_.size()};
  }

  /// Decompresses all points into `unpacked_`, a run after the other.
  Outcome Unpack(const ScanWorkspace& workspace) {
    constexpr std::size_t kRun = 1u << 20;
    LzfReader reader(packed_);
    std::vector<std::uint8_t> buffer;  // of a file: what is repeated, and the run
    for (std::size_t at = 0; at < unpackedBytes_;) {
      const std::size_t count = std::min(kRun, unpackedBytes_ - at);
      const std::size_t before = std::min(at, kLzfWindow);
      std::uint8_t* const memory = unpacked_->GetMemory(at);
      if (memory == nullptr && at == 0) buffer.resize(kLzfWindow + kRun);
      const std::span<std::uint8_t> run(memory != nullptr ? memory : buffer.data() + kLzfWindow,
                                        count);
      if (!reader.Read(run, before)) return Damaged();
      if (memory == nullptr) {
        if (Outcome outcome = unpacked_->Write(at, run); !outcome.Ok()) return outcome;
        std::copy_n(buffer.end() - kLzfWindow, kLzfWindow, buffer.begin());
      }
      at += count;
      if (workspace.progress && !workspace.progress(0)) {
        return Outcome::FromCode(result::kStopped);
      }
    }
    return reader.IsAtEnd() ? Outcome::Success() : Damaged();
  }
  [[nodiscard]] Outcome Damaged() const {
    return Outcome::Failure(result::kScanContradictory, "the compressed points are damaged",
                            where_ + ", byte " + std::to_string(header_.bytes + 8),
                            "copy or download the file again");
  }

  void AddField(const PcdField& field) {
    const std::string lower = LowerCase(field.name);
    const bool isColor = (lower == "rgb" || lower == "rgba") && field.count == 1 &&
                         oocpc::ComponentBytes(field.type) == 4;
    if (isColor && !hasColor_) {
      hasColor_ = true;
      table_.AddPackedColor(field.type, lower == "rgba" ? 4 : 3);
      return;
    }
    for (std::uint32_t i = 0; i < field.count; ++i) {
      if (field.name == "_") {
        table_.AddSkipped(field.type);
      } else if (field.count == 1) {
        table_.Add(field.name, field.type);
      } else {
        table_.Add(field.name + "_" + std::to_string(i), field.type, false);
      }
    }
  }

  Outcome Missing(std::uint64_t found) const {
    return Outcome::Failure(result::kScanTruncated,
                            "the header states " + std::to_string(table_.rowCount) + " points, " +
                                std::to_string(table_.rowCount - found) + " are missing",
                            where_, "copy or download the file again");
  }

  Outcome FindLines(const ScanOptions& options) {
    SharedProgress progress([&, total = file_.size() - header_.bytes](std::uint64_t done) {
      return !options.progress || options.progress({"opening", done, total, "bytes"});
    });
    Outcome indexed = IndexLines(Text(), header_.bytes, header_.lines + 1, progress, stretches_);
    if (!indexed.Ok()) return indexed;
    const std::uint64_t rows =
        stretches_.empty() ? 0 : stretches_.back().firstRow + stretches_.back().rows;
    return rows < table_.rowCount ? Missing(rows) : Outcome::Success();
  }

  Outcome FindRecords() {
    const std::uint64_t found = (file_.size() - header_.bytes) / recordBytes_;
    return found < table_.rowCount ? Missing(found) : Outcome::Success();
  }

  /// Two lengths, and the values of all points field by field.
  Outcome FindCompressed() {
    const std::span<const std::uint8_t> data = file_.subspan(header_.bytes);
    if (data.size() < 8) return Missing(0);
    const std::uint64_t packedBytes = oocpc::LoadLittleEndian<std::uint32_t>(data.data());
    unpackedBytes_ = oocpc::LoadLittleEndian<std::uint32_t>(data.data() + 4);
    if (packedBytes > data.size() - 8) {
      return Outcome::Failure(result::kScanTruncated,
                              std::to_string(packedBytes - (data.size() - 8)) +
                                  " bytes of the compressed points are missing",
                              where_, "copy or download the file again");
    }
    const bool fits = table_.rowCount <= unpackedBytes_ / recordBytes_ &&
                      table_.rowCount * recordBytes_ == unpackedBytes_ &&
                      unpackedBytes_ <= packedBytes * kMostLzfGrowth;
    if (!fits) {
      return Outcome::Failure(result::kScanContradictory,
                              "the compressed points are not as long as the header says",
                              where_ + ", byte " + std::to_string(header_.bytes),
                              "write the scan again with the program that made it");
    }
    packed_ = data.subspan(8, static_cast<std::size_t>(packedBytes));
    std::size_t before = 0;
    std::size_t column = 0;
    for (const PcdField& field : header_.fields) {
      const std::size_t bytes = oocpc::ComponentBytes(field.type);
      for (std::uint32_t i = 0; i < field.count; ++i, ++column) {
        table_.columns[column].offset =
            before * static_cast<std::size_t>(table_.rowCount) + i * bytes;
        table_.columns[column].stride = bytes * field.count;
      }
      before += bytes * field.count;
    }
    return Outcome::Success();
  }

  std::span<const std::uint8_t> file_;
  std::string where_;
  PcdHeader header_;
  Table table_;
  bool hasColor_ = false;
  std::size_t recordBytes_ = 0;
  std::vector<LineStretch> stretches_;    ///< of text
  std::span<const std::uint8_t> packed_;  ///< of compressed points
  std::size_t unpackedBytes_ = 0;
  std::unique_ptr<ScratchBytes> unpacked_;  ///< between Begin() and End()
};

}  // namespace

Outcome OpenPcd(const std::filesystem::path& path, std::shared_ptr<const OOCPCByteSource> bytes,
                const ScanOptions& options, std::unique_ptr<ScanFile>& scan) {
  auto decoder = std::make_unique<PcdDecoder>(bytes->GetBytes(), path.string());
  if (Outcome outcome = decoder->Load(options); !outcome.Ok()) return outcome;
  return ConvertedScan::Open(path, std::move(bytes), options, std::move(decoder), scan);
}

}  // namespace tarnhost
