// Gathers points one by one, for decoders that read them so.
#pragma once

#include "host/formats/converted/PointDecoder.h"

namespace tarnhost {

/// Hands rows on whenever there are enough of them. One thread at a time.
class RowsBuffer {
 public:
  RowsBuffer(std::span<const ScanField> fields, bool withFields, const PointDecoder::RowSink& take)
      : fields_(withFields ? fields : std::span<const ScanField>()), take_(take) {
    rows_.Resize(kMostRowsHere, fields_);
  }

  /// The next point's places, which the caller fills; Next() goes on to the one after, and answers
  /// false where Flush() has to come first.
  [[nodiscard]] double& Coordinate(std::size_t axis) { return rows_.coordinates[axis][used_]; }
  [[nodiscard]] std::uint8_t* Field(std::size_t field) {
    return rows_.fields[field].data() + used_ * oocpc::ComponentBytes(fields_[field].type);
  }
  [[nodiscard]] bool HasFields() const { return !rows_.fields.empty(); }
  [[nodiscard]] bool Next() { return ++used_ < kMostRowsHere; }
  /// Hands on what is left.
  Outcome Flush() {
    rows_.count = used_;
    used_ = 0;
    return rows_.count == 0 ? Outcome::Success() : take_(rows_);
  }

 private:
  static constexpr std::size_t kMostRowsHere = 1u << 13;

  std::span<const ScanField> fields_;
  const PointDecoder::RowSink& take_;
  PointRows rows_;
  std::size_t used_ = 0;
};

}  // namespace tarnhost
