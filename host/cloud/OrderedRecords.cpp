// Records that come in any order and are given back in that of their places.
#include "host/cloud/OrderedRecords.h"

#include <algorithm>
#include <cstring>

namespace tarnhost {

namespace result = oocpc::result;

namespace {

constexpr std::size_t kPlaceBytes = sizeof(std::uint64_t);
/// What a record takes while its share is put into order: twice itself, its place, and a mark.
constexpr std::uint64_t MemoryOf(std::size_t recordBytes) {
  return 2 * recordBytes + kPlaceBytes + 1;
}
constexpr std::uint64_t kFewestBufferBytes = 1u << 12;
constexpr std::uint64_t kMostBufferBytes = 1u << 22;

Outcome BadPlace(const char* what, std::uint64_t place) {
  return Outcome::Failure(result::kBadRecord, what + std::to_string(place), {},
                          "run tarn verify on the repository");
}

}  // namespace

Outcome OrderedRecords::Create(std::uint64_t placeCount, std::size_t recordBytes,
                               std::uint64_t memoryBytes,
                               const std::filesystem::path& temporaryFolder,
                               std::unique_ptr<OrderedRecords>& records) {
  const std::uint64_t fitting = std::max<std::uint64_t>(memoryBytes / 2 / MemoryOf(recordBytes), 1);
  records.reset(new OrderedRecords(placeCount, recordBytes, std::min(fitting, placeCount)));
  const std::size_t shares = records->shares_.size();
  if (shares < 2) return Outcome::Success();
  records->bufferBytes_ = static_cast<std::size_t>(
      std::clamp(memoryBytes / 2 / shares, kFewestBufferBytes, kMostBufferBytes));
  return TemporaryFile::Create(temporaryFolder, records->file_);
}

OrderedRecords::OrderedRecords(std::uint64_t placeCount, std::size_t recordBytes,
                               std::uint64_t sharePlaces)
    : placeCount_(placeCount),
      recordBytes_(recordBytes),
      sharePlaces_(std::max<std::uint64_t>(sharePlaces, 1)),
      shares_(static_cast<std::size_t>((placeCount + sharePlaces_ - 1) / sharePlaces_)) {}

Outcome OrderedRecords::Put(std::span<const std::uint64_t> places,
                            std::span<const std::uint8_t> records) {
  if (records.size() != places.size() * recordBytes_) return Outcome::FromCode(result::kBadRecord);
  for (std::size_t i = 0; i < places.size(); ++i) {
    if (places[i] >= placeCount_) return BadPlace("no source has a point at place ", places[i]);
    Share& share = shares_[static_cast<std::size_t>(places[i] / sharePlaces_)];
    const std::size_t at = share.buffer.size();
    share.buffer.resize(at + kPlaceBytes + recordBytes_);
    std::memcpy(share.buffer.data() + at, &places[i], kPlaceBytes);
    std::memcpy(share.buffer.data() + at + kPlaceBytes, records.data() + i * recordBytes_,
                recordBytes_);
    if (file_ == nullptr || share.buffer.size() < bufferBytes_) continue;
    if (Outcome outcome = Flush(share); !outcome.Ok()) return outcome;
  }
  return Outcome::Success();
}

Outcome OrderedRecords::Flush(Share& share) {
  std::uint64_t offset = 0;
  Outcome outcome = file_->Append(share.buffer, offset);
  share.chunks.emplace_back(offset, share.buffer.size());
  share.buffer.clear();
  return outcome;
}

Outcome OrderedRecords::Load(const Share& share, std::vector<std::uint8_t>& entries) const {
  entries.clear();
  for (const auto& [offset, bytes] : share.chunks) {
    entries.resize(entries.size() + bytes);
    Outcome outcome = file_->Read(offset, std::span(entries).last(bytes));
    if (!outcome.Ok()) return outcome;
  }
  entries.insert(entries.end(), share.buffer.begin(), share.buffer.end());
  return Outcome::Success();
}

Outcome OrderedRecords::Order(std::uint64_t firstPlace, std::span<const std::uint8_t> entries,
                              std::vector<std::uint8_t>& ordered) const {
  const auto places = static_cast<std::size_t>(std::min(sharePlaces_, placeCount_ - firstPlace));
  ordered.assign(places * recordBytes_, 0);
  std::vector<std::uint8_t> isTaken(places);
  for (; !entries.empty(); entries = entries.subspan(kPlaceBytes + recordBytes_)) {
    std::uint64_t place = 0;
    std::memcpy(&place, entries.data(), kPlaceBytes);
    const auto at = static_cast<std::size_t>(place - firstPlace);
    if (isTaken[at] != 0) return BadPlace("two points have the place ", place);
    isTaken[at] = 1;
    std::memcpy(ordered.data() + at * recordBytes_, entries.data() + kPlaceBytes, recordBytes_);
  }
  // Close the gaps.
  std::size_t kept = 0;
  for (std::size_t at = 0; at < places; ++at) {
    if (isTaken[at] == 0) continue;
    if (kept != at) {
      std::memmove(ordered.data() + kept * recordBytes_, ordered.data() + at * recordBytes_,
                   recordBytes_);
    }
    ++kept;
  }
  ordered.resize(kept * recordBytes_);
  return Outcome::Success();
}

Outcome OrderedRecords::Give(const std::function<Outcome(std::span<const std::uint8_t>)>& visit) {
  std::vector<std::uint8_t> entries;
  std::vector<std::uint8_t> ordered;
  for (std::size_t i = 0; i < shares_.size(); ++i) {
    Share share = std::exchange(shares_[i], {});
    Outcome outcome;
    if (share.chunks.empty()) {
      entries = std::move(share.buffer);
    } else {
      outcome = Load(share, entries);
    }
    if (outcome.Ok()) outcome = Order(i * sharePlaces_, entries, ordered);
    if (outcome.Ok() && !ordered.empty()) outcome = visit(ordered);
    if (!outcome.Ok()) return outcome;
  }
  return Outcome::Success();
}

}  // namespace tarnhost
