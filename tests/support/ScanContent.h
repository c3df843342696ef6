// Scans of any format made of bytes, opened, and what is in them.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/formats/ScanFile.h"
#include "host/formats/converted/DecimalTransform.h"
#include "tests/support/TemporaryFolder.h"

namespace oocpctest {

using Coordinates = std::array<double, 3>;

/// One component of a value as a number.
inline double NumberAt(oocpc::ValueType type, const std::uint8_t* bytes) {
  const auto load = [&]<typename T>(T value) {
    std::memcpy(&value, bytes, sizeof(T));
    return static_cast<double>(value);
  };
  switch (type) {
    case oocpc::ValueType::kUInt8:
      return load(std::uint8_t{});
    case oocpc::ValueType::kInt8:
      return load(std::int8_t{});
    case oocpc::ValueType::kUInt16:
      return load(std::uint16_t{});
    case oocpc::ValueType::kInt16:
      return load(std::int16_t{});
    case oocpc::ValueType::kUInt32:
    case oocpc::ValueType::kString:
      return load(std::uint32_t{});
    case oocpc::ValueType::kInt32:
      return load(std::int32_t{});
    case oocpc::ValueType::kUInt64:
      return load(std::uint64_t{});
    case oocpc::ValueType::kInt64:
      return load(std::int64_t{});
    case oocpc::ValueType::kFloat:
      return load(float{});
    case oocpc::ValueType::kDouble:
      return load(double{});
  }
  return 0;
}

/// A scan that is ready to be read. `memoryBytes`: 0 makes it use a temporary file.
class ScanContent {
 public:
  explicit ScanContent(const std::filesystem::path& path, const tarnhost::ScanOptions& options = {},
                       std::uint64_t memoryBytes = 1u << 20) {
    Load(path, options, memoryBytes);
  }
  /// Of a file made for it.
  ScanContent(const std::string& name, std::string_view bytes,
              const tarnhost::ScanOptions& options = {}, std::uint64_t memoryBytes = 1u << 20) {
    WriteFile(folder_ / name, {reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
    Load(folder_ / name, options, memoryBytes);
  }

  [[nodiscard]] const tarnhost::Outcome& GetOutcome() const { return outcome_; }
  [[nodiscard]] bool Ok() const { return outcome_.Ok(); }
  [[nodiscard]] const tarnhost::ScanFile& Scan() const { return *scan_; }

  /// Source coordinates out of the stored positions.
  [[nodiscard]] std::vector<Coordinates> Points() const {
    std::vector<std::int32_t> xyz(3 * static_cast<std::size_t>(scan_->GetPointCount()));
    scan_->ReadPositions(0, scan_->GetPointCount(), xyz.data());
    const tarnhost::DecimalTransform transform(scan_->GetTransform());
    std::vector<Coordinates> points(xyz.size() / 3);
    for (std::size_t i = 0; i < xyz.size(); ++i) {
      points[i / 3][i % 3] = transform.Coordinate(i % 3, xyz[i]);
    }
    return points;
  }

  /// The dimensions: "name:type", with "*3" for vectors.
  [[nodiscard]] std::vector<std::string> Dimensions() const {
    std::vector<std::string> names;
    for (const tarnhost::Dimension& dimension : scan_->GetDimensions()) {
      names.push_back(dimension.name + ":" + oocpc::ValueTypeName(dimension.type.value) +
                      (dimension.type.components == 1
                           ? std::string()
                           : "*" + std::to_string(dimension.type.components)));
    }
    return names;
  }

  /// All components of all values of a dimension; none when there is no such dimension.
  [[nodiscard]] std::vector<double> Values(const std::string& name) const {
    const auto& dimensions = scan_->GetDimensions();
    for (std::size_t i = 0; i < dimensions.size(); ++i) {
      if (dimensions[i].name != name) continue;
      const auto count = static_cast<std::size_t>(scan_->GetPointCount());
      std::vector<std::uint8_t> bytes(count * oocpc::ValueBytes(dimensions[i].type));
      scan_->ExtractDimension(i, records_.data(), count, bytes.data());
      const std::size_t width = oocpc::ComponentBytes(dimensions[i].type.value);
      std::vector<double> values;
      for (std::size_t at = 0; at < bytes.size(); at += width) {
        values.push_back(NumberAt(dimensions[i].type.value, bytes.data() + at));
      }
      return values;
    }
    return {};
  }

 private:
  void Load(const std::filesystem::path& path, const tarnhost::ScanOptions& options,
            std::uint64_t memoryBytes) {
    outcome_ = tarnhost::OpenScan(path, options, scan_);
    if (!outcome_.Ok()) return;
    tarnhost::ScanWorkspace workspace{memoryBytes, folder_.Path(), {}};
    outcome_ = scan_->Prepare(workspace);
    if (!outcome_.Ok()) return;
    records_.resize(static_cast<std::size_t>(scan_->GetPointCount()) * scan_->GetRecordBytes());
    scan_->ReadRecords(0, scan_->GetPointCount(), records_.data());
  }

  TemporaryFolder folder_;
  tarnhost::Outcome outcome_;
  std::unique_ptr<tarnhost::ScanFile> scan_;
  std::vector<std::uint8_t> records_;
};

/// What is expected of a file that is refused: the code, and words of the message and its place.
inline ::testing::AssertionResult Refuses(const ScanContent& content, HRESULT code,
                                          const std::string& what, const std::string& where = {}) {
  const tarnhost::Outcome& outcome = content.GetOutcome();
  if (outcome.code == code && outcome.what.find(what) != std::string::npos &&
      outcome.where.find(where) != std::string::npos && !outcome.remedy.empty()) {
    return ::testing::AssertionSuccess();
  }
  return ::testing::AssertionFailure() << std::hex << static_cast<std::uint32_t>(outcome.code)
                                       << " " << outcome.what << " (" << outcome.where << ")";
}

/// Numbers as bytes, little-endian or the other way round.
template <typename T>
void PutNumber(std::string& out, T value, bool isBigEndian = false) {
  std::array<char, sizeof(T)> bytes;
  std::memcpy(bytes.data(), &value, sizeof(T));
  if (isBigEndian) std::reverse(bytes.begin(), bytes.end());
  out.append(bytes.data(), bytes.size());
}

}  // namespace oocpctest
