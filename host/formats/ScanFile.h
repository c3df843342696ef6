// A scan as the import sees it: its points' dimensions, its positions, and what travels along.
#pragma once

#include <OOCPointCloud/ColumnType.h>
#include <OOCPointCloud/Repositories.h>
#include <OOCPointCloud/Types.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "host/common/Outcome.h"

namespace tarnhost {

/// One dimension of a scan's points, less the position.
struct Dimension {
  std::string name;  ///< as queries call it, for instance "classification"
  oocpc::ColumnType type;
  std::string description;  ///< meaning and unit, for people
};

/// How integers become source coordinates: integer * scale + offset, per axis.
struct PositionTransform {
  oocpc::Vector3d scale{1, 1, 1};
  oocpc::Vector3d offset{};
};

/// What a scan may use to get ready for reading.
struct ScanWorkspace {
  std::uint64_t memoryBytes = 0;  ///< most to take until Release(); what is taken is deducted
  std::filesystem::path temporaryFolder;  ///< for what does not fit; nothing stays there
  /// Told how many points are ready; may be empty, false stops.
  std::function<bool(std::uint64_t points)> progress;
};

/// The least and the greatest stored integers of points; of none, the least are the greater ones.
struct StoredBox {
  std::array<std::int32_t, 3> least;
  std::array<std::int32_t, 3> greatest;

  StoredBox() {
    least.fill(std::numeric_limits<std::int32_t>::max());
    greatest.fill(std::numeric_limits<std::int32_t>::min());
  }
  void Extend(const StoredBox& other) {
    for (std::size_t axis = 0; axis < 3; ++axis) {
      least[axis] = std::min(least[axis], other.least[axis]);
      greatest[axis] = std::max(greatest[axis], other.greatest[axis]);
    }
  }
  /// By `count` positions of three integers each.
  void Extend(const std::int32_t* xyz, std::size_t count) {
    for (const std::int32_t* const end = xyz + 3 * count; xyz < end; xyz += 3) {
      for (std::size_t axis = 0; axis < 3; ++axis) {
        least[axis] = std::min(least[axis], xyz[axis]);
        greatest[axis] = std::max(greatest[axis], xyz[axis]);
      }
    }
  }
  friend bool operator==(const StoredBox&, const StoredBox&) = default;
};

/// A scan opened for reading. Const operations are safe from several threads at once.
class ScanFile {
 public:
  ScanFile() = default;
  ScanFile(const ScanFile&) = delete;
  ScanFile& operator=(const ScanFile&) = delete;
  virtual ~ScanFile() = default;

  [[nodiscard]] virtual const std::filesystem::path& GetPath() const = 0;
  [[nodiscard]] virtual std::uint64_t GetPointCount() const = 0;
  [[nodiscard]] virtual const PositionTransform& GetTransform() const = 0;
  /// All dimensions but the position, in the order of the record.
  [[nodiscard]] virtual const std::vector<Dimension>& GetDimensions() const = 0;
  /// Makes the points ready to be read, as often as wanted; without it they must not be. A
  /// compressed scan is decompressed here, once, and tells here what of it is damaged.
  virtual Outcome Prepare(ScanWorkspace& /*workspace*/) { return Outcome::Success(); }
  /// How much Prepare() takes, in memory or on the disk.
  [[nodiscard]] virtual std::uint64_t GetScratchBytes() const { return 0; }
  /// Gives back what Prepare() took. Points must not be read any more; all else stays.
  virtual void Release() {}
  /// Stored integers of the points [first, first + count): three per point.
  virtual void ReadPositions(std::uint64_t first, std::uint64_t count, std::int32_t* xyz) const = 0;
  /// Bytes of one point's record. A record begins with the three stored integers of its position.
  [[nodiscard]] virtual std::size_t GetRecordBytes() const = 0;
  /// Records of the points [first, first + count): GetRecordBytes() bytes each. Meant to be called
  /// for one run of points after the other: what was read is not kept in memory.
  virtual void ReadRecords(std::uint64_t first, std::uint64_t count, std::uint8_t* out) const = 0;
  /// All records where they lie in memory as ReadRecords gives them; nothing where they have to be
  /// made. Valid as long as the scan, or until Release().
  [[nodiscard]] virtual std::span<const std::uint8_t> GetMappedRecords() const { return {}; }
  /// Values of one dimension of `count` records such as ReadRecords gives, value after value,
  /// little-endian: count * ValueBytes(type) bytes at `out`.
  virtual void ExtractDimension(std::size_t dimension, const std::uint8_t* records,
                                std::size_t count, std::uint8_t* out) const = 0;
  /// The same of records that stand `stride` bytes apart, at least GetRecordBytes().
  virtual void ExtractStrided(std::size_t dimension, const std::uint8_t* records,
                              std::size_t stride, std::size_t count, std::uint8_t* out) const;
  /// The least and the greatest stored integers as the file states them, which may be wrong; false
  /// when it states none that make sense.
  [[nodiscard]] virtual bool GetStatedBox(StoredBox& /*box*/) const { return false; }
  /// What the user should know of how the file was read, sentences; points that were left out.
  [[nodiscard]] virtual std::vector<std::string> GetNotices() const { return {}; }
  /// The texts that values of string dimensions are: each value is a number among them, from 0.
  [[nodiscard]] virtual std::span<const std::string> GetStrings() const { return {}; }
  /// From now on, the value of text i is `numbers[i]`, its number in the dictionary of a cloud.
  /// Only before Prepare().
  virtual void NumberStrings(const std::vector<std::uint32_t>& /*numbers*/) {}
  /// Everything of the file that is not point records, so that it can be written again:
  /// all bytes before the point records, and all bytes after them. Of what is no LAS file, the
  /// header as it stands there, and nothing.
  [[nodiscard]] virtual std::span<const std::uint8_t> GetLeadingBytes() const = 0;
  [[nodiscard]] virtual std::span<const std::uint8_t> GetTrailingBytes() const = 0;
};

/// What a file cannot say of itself, and what may be used to open it.
struct ScanOptions {
  /// Names of a text file's columns, "-" or "_" for one to leave out; empty: as the file says.
  std::vector<std::string> columns;
  std::uint64_t skipLines = 0;      ///< at the start of a text file
  std::optional<char> separator{};  ///< of a text file's words, ' ' for any blanks; none: found out
  /// Told how far files are that have to be read to be opened; may be empty, false stops. Called by
  /// one thread at a time.
  std::function<bool(const ProgressReport&)> progress{};
  /// Most memory to take while a file is read to be opened; 0: a quarter of the machine's.
  std::uint64_t memoryBytes = 0;
  std::filesystem::path temporaryFolder{};  ///< for what does not fit; empty: the system's
};

/// Opens a scan by what it is: LAS and LAZ of any version 1.0 to 1.4, point formats 0 to 10; PLY,
/// PCD, E57; and text, by the ending of its name or where the options name columns. Everything that
/// the file states is checked against its size. kStopped. See docs/scan-formats.md.
Outcome OpenScan(const std::filesystem::path& path, const ScanOptions& options,
                 std::unique_ptr<ScanFile>& scan);
inline Outcome OpenScan(const std::filesystem::path& path, std::unique_ptr<ScanFile>& scan) {
  return OpenScan(path, {}, scan);
}

/// True for a file name with the ending of a scan that OpenScan reads, whatever its letters' case.
[[nodiscard]] bool HasScanEnding(const std::filesystem::path& path);

/// Maps a scan file into memory. kIoError, kScanNotRecognised for a folder, kAccessDenied.
Outcome MapScan(const std::filesystem::path& path, std::shared_ptr<const OOCPCByteSource>& bytes);

}  // namespace tarnhost
