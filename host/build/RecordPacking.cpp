// Leaves the bytes out that all records of a stretch share. This file is compiled once for each set
// of instructions; what is outside of HWY_ONCE is in a namespace of that set.
#include "host/build/RecordPacking.h"

#include <algorithm>
#include <cstring>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "host/build/RecordPacking.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace tarnhost {
namespace HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

using Part = RecordPacking::Part;

#if HWY_TARGET == HWY_SCALAR

std::size_t PackKernel(std::span<const Part> /*parts*/, std::span<const std::uint8_t> /*records*/,
                       std::size_t /*recordBytes*/, std::size_t /*packedBytes*/,
                       std::uint8_t* /*packed*/) {
  return 0;
}
std::size_t UnpackKernel(std::span<const Part> /*parts*/, std::span<const std::uint8_t> /*packed*/,
                         std::size_t /*recordBytes*/, std::size_t /*packedBytes*/,
                         std::size_t /*count*/, std::uint8_t* /*records*/) {
  return 0;
}

#else

constexpr hn::FixedTag<std::uint8_t, Part::kBytes> kPart;

/// How many records can be handled whose parts, all of them whole, end within `bytes`.
std::size_t CountWhole(std::size_t parts, std::size_t strideBytes, std::size_t bytes) {
  if (bytes < parts * Part::kBytes) return 0;
  return (bytes - parts * Part::kBytes) / strideBytes + 1;
}

// Each part is written whole; what is too much of it, the next one overwrites. Both return how many
// records they have handled: all but the last few, behind which nothing may be touched.
std::size_t PackKernel(std::span<const Part> parts, std::span<const std::uint8_t> records,
                       std::size_t recordBytes, std::size_t packedBytes, std::uint8_t* packed) {
  const std::size_t count = records.size() / recordBytes;
  const std::size_t whole = std::min({count, CountWhole(parts.size(), recordBytes, records.size()),
                                      CountWhole(parts.size(), packedBytes, count * packedBytes)});
  const std::uint8_t* from = records.data();
  for (std::size_t i = 0; i < whole; ++i, from += recordBytes) {
    std::size_t at = 0;
    for (const Part& part : parts) {
      const auto bytes = hn::LoadU(kPart, from + at);
      hn::StoreU(hn::TableLookupBytesOr0(bytes, hn::Load(kPart, part.gather)), kPart, packed);
      packed += part.packedBytes;
      at += Part::kBytes;
    }
  }
  return whole;
}

std::size_t UnpackKernel(std::span<const Part> parts, std::span<const std::uint8_t> packed,
                         std::size_t recordBytes, std::size_t packedBytes, std::size_t count,
                         std::uint8_t* records) {
  const std::size_t whole =
      std::min({count, CountWhole(parts.size(), recordBytes, count * recordBytes),
                CountWhole(parts.size(), packedBytes, packed.size())});
  const std::uint8_t* from = packed.data();
  for (std::size_t i = 0; i < whole; ++i, records += recordBytes) {
    std::uint8_t* to = records;
    for (const Part& part : parts) {
      const auto bytes = hn::LoadU(kPart, from);
      const auto spread = hn::TableLookupBytesOr0(bytes, hn::Load(kPart, part.spread));
      hn::StoreU(hn::Or(spread, hn::Load(kPart, part.shared)), kPart, to);
      from += part.packedBytes;
      to += Part::kBytes;
    }
  }
  return whole;
}

#endif

}  // namespace
}  // namespace HWY_NAMESPACE
}  // namespace tarnhost
HWY_AFTER_NAMESPACE();

#if HWY_ONCE

namespace tarnhost {

namespace {

HWY_EXPORT(PackKernel);
HWY_EXPORT(UnpackKernel);

/// One bit for each byte of a record: whether it differs between them.
std::vector<std::uint8_t> FindDifferences(std::span<const std::uint8_t> records,
                                          std::size_t recordBytes) {
  std::vector<std::uint8_t> differences(recordBytes);
  const std::uint8_t* const first = records.data();
  const std::uint8_t* const end = first + records.size();
  for (const std::uint8_t* record = first; record != end; record += recordBytes) {
    for (std::size_t i = 0; i < recordBytes; ++i) {
      differences[i] = static_cast<std::uint8_t>(differences[i] | (record[i] ^ first[i]));
    }
  }
  std::vector<std::uint8_t> mask((recordBytes + 7) / 8);
  for (std::size_t i = 0; i < recordBytes; ++i) {
    if (differences[i] != 0) mask[i / 8] = static_cast<std::uint8_t>(mask[i / 8] | 1u << (i % 8));
  }
  return mask;
}

}  // namespace

RecordPacking::RecordPacking(std::span<const std::uint8_t> records, std::size_t recordBytes)
    : RecordPacking(FindDifferences(records, recordBytes), records.first(recordBytes),
                    recordBytes) {}

RecordPacking::RecordPacking(std::span<const std::uint8_t> mask,
                             std::span<const std::uint8_t> first, std::size_t recordBytes)
    : recordBytes_(recordBytes),
      mask_(mask.begin(), mask.end()),
      first_(first.begin(), first.end()) {
  MakeParts();
}

RecordPacking RecordPacking::Decode(std::span<const std::uint8_t> bytes, std::size_t recordBytes) {
  const std::size_t maskBytes = (recordBytes + 7) / 8;
  return {bytes.first(maskBytes), bytes.subspan(maskBytes), recordBytes};
}

void RecordPacking::Encode(std::vector<std::uint8_t>& out) const {
  out.insert(out.end(), mask_.begin(), mask_.end());
  out.insert(out.end(), first_.begin(), first_.end());
}

void RecordPacking::MakeParts() {
  parts_.resize((recordBytes_ + Part::kBytes - 1) / Part::kBytes);
  for (std::size_t p = 0; p < parts_.size(); ++p) {
    Part& part = parts_[p];
    part.packedBytes = 0;
    std::ranges::fill(part.spread, kNone);
    std::ranges::fill(part.gather, kNone);
    std::ranges::fill(part.shared, std::uint8_t{0});
    const std::size_t begin = p * Part::kBytes;
    for (std::size_t i = 0; i < std::min(Part::kBytes, recordBytes_ - begin); ++i) {
      if (Differs(begin + i)) {
        part.gather[part.packedBytes] = static_cast<std::uint8_t>(i);
        part.spread[i] = static_cast<std::uint8_t>(part.packedBytes++);
      } else {
        part.shared[i] = first_[begin + i];
      }
    }
    packedBytes_ += part.packedBytes;
  }
}

void RecordPacking::Pack(std::span<const std::uint8_t> records,
                         std::span<std::uint8_t> packed) const {
  if (packedBytes_ == 0) return;
  const std::size_t count = records.size() / recordBytes_;
  const std::size_t done =
      HWY_DYNAMIC_DISPATCH(PackKernel)(parts_, records, recordBytes_, packedBytes_, packed.data());
  std::uint8_t* to = packed.data() + done * packedBytes_;
  for (std::size_t row = done; row < count; ++row) {
    for (std::size_t i = 0; i < recordBytes_; ++i) {
      if (Differs(i)) *to++ = records[row * recordBytes_ + i];
    }
  }
}

void RecordPacking::Unpack(std::span<const std::uint8_t> packed,
                           std::span<std::uint8_t> records) const {
  const std::size_t count = records.size() / recordBytes_;
  std::size_t done = 0;
  if (packedBytes_ != 0) {
    done = HWY_DYNAMIC_DISPATCH(UnpackKernel)(parts_, packed, recordBytes_, packedBytes_, count,
                                              records.data());
  }
  const std::uint8_t* from = packed.data() + done * packedBytes_;
  for (std::size_t row = done; row < count; ++row) {
    for (std::size_t i = 0; i < recordBytes_; ++i) {
      records[row * recordBytes_ + i] = Differs(i) ? *from++ : first_[i];
    }
  }
}

}  // namespace tarnhost

#endif
