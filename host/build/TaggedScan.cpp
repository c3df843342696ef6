// Scans with the name of their file, and their place in it, at each point.
#include <cstring>

#include "host/build/AdaptedScan.h"
#include "host/build/ScanDecorator.h"

namespace tarnhost {

namespace {

/// Records are those of the scan with the tags' values behind them.
class TaggedScan final : public ScanDecorator {
 public:
  TaggedScan(std::unique_ptr<ScanFile> scan, const ScanTags& tags)
      : ScanDecorator(std::move(scan)),
        tags_(tags),
        dimensions_(Scan().GetDimensions()),
        recordBytes_(Scan().GetRecordBytes()) {
    for (Dimension& dimension : DimensionsOf(tags)) {
      const std::size_t bytes = oocpc::ValueBytes(dimension.type);
      fields_.push_back({recordBytes_, bytes});
      recordBytes_ += bytes;
      dimensions_.push_back(std::move(dimension));
    }
  }

  const std::vector<Dimension>& GetDimensions() const override { return dimensions_; }
  std::size_t GetRecordBytes() const override { return recordBytes_; }

  void ReadRecords(std::uint64_t first, std::uint64_t count, std::uint8_t* out) const override {
    // Read into the end of the room, then moved to the front: no record overtakes one not yet
    // moved.
    const std::size_t bytes = Scan().GetRecordBytes();
    std::uint8_t* const records = out + count * (recordBytes_ - bytes);
    Scan().ReadRecords(first, count, records);
    for (std::uint64_t i = 0; i < count; ++i, out += recordBytes_) {
      std::memmove(out, records + i * bytes, bytes);
      WriteTags(first + i, out);
    }
  }
  void ExtractDimension(std::size_t dimension, const std::uint8_t* records, std::size_t count,
                        std::uint8_t* out) const override {
    ExtractStrided(dimension, records, recordBytes_, count, out);
  }
  void ExtractStrided(std::size_t dimension, const std::uint8_t* records, std::size_t stride,
                      std::size_t count, std::uint8_t* out) const override {
    const std::size_t own = dimensions_.size() - fields_.size();
    if (dimension < own) return Scan().ExtractStrided(dimension, records, stride, count, out);
    const Field& field = fields_[dimension - own];
    for (std::size_t i = 0; i < count; ++i, records += stride, out += field.bytes) {
      std::memcpy(out, records + field.offset, field.bytes);
    }
  }

 private:
  struct Field {
    std::size_t offset;
    std::size_t bytes;
  };

  void WriteTags(std::uint64_t point, std::uint8_t* record) const {
    std::uint8_t* to = record + fields_.front().offset;
    if (tags_.source) {
      std::memcpy(to, &*tags_.source, sizeof(*tags_.source));
      to += sizeof(*tags_.source);
    }
    if (tags_.firstIndex) {
      const std::uint64_t index = *tags_.firstIndex + point;
      std::memcpy(to, &index, sizeof(index));
    }
  }

  ScanTags tags_;
  std::vector<Dimension> dimensions_;
  std::vector<Field> fields_;  ///< of the tags
  std::size_t recordBytes_;
};

}  // namespace

std::unique_ptr<ScanFile> TagScan(std::unique_ptr<ScanFile> scan, const ScanTags& tags) {
  if (!tags.source && !tags.firstIndex) return scan;
  return std::make_unique<TaggedScan>(std::move(scan), tags);
}

}  // namespace tarnhost
