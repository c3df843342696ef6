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
/// Records given at once.
constexpr std::size_t kRunRecords = std::size_t{1} << 19;
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
  // With a mark for each, all are put where they belong at once; or else what is put aside,
  // ordered, and buffered shares the memory.
  const bool allFit = placeCount <= memoryBytes / (recordBytes + 1);
  const std::uint64_t fitting = std::max<std::uint64_t>(memoryBytes / 2 / MemoryOf(recordBytes), 1);
  records.reset(new OrderedRecords(placeCount, recordBytes, allFit ? placeCount : fitting));
  const std::size_t shares = records->shares_.size();
  if (shares == 1) records->Clear(0, records->all_);
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
  const std::uint8_t* record = records.data();
  for (const std::uint64_t place : places) {
    if (place >= placeCount_) return BadPlace("no source has a point at place ", place);
    Outcome outcome = file_ == nullptr ? PutInOrder(place, record, all_) : PutAside(place, record);
    if (!outcome.Ok()) return outcome;
    record += recordBytes_;
  }
  return Outcome::Success();
}

Outcome OrderedRecords::PutAside(std::uint64_t place, const std::uint8_t* record) {
  Share& share = shares_[static_cast<std::size_t>(place / sharePlaces_)];
  const std::size_t at = share.buffer.size();
  share.buffer.resize(at + kPlaceBytes + recordBytes_);
  std::memcpy(share.buffer.data() + at, &place, kPlaceBytes);
  std::memcpy(share.buffer.data() + at + kPlaceBytes, record, recordBytes_);
  return share.buffer.size() < bufferBytes_ ? Outcome::Success() : Flush(share);
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

void OrderedRecords::Clear(std::size_t share, Ordered& ordered) const {
  ordered.firstPlace = share * sharePlaces_;
  const auto places =
      static_cast<std::size_t>(std::min(sharePlaces_, placeCount_ - ordered.firstPlace));
  ordered.records.assign(places * recordBytes_, 0);
  ordered.isTaken.assign(places, 0);
}

Outcome OrderedRecords::PutInOrder(std::uint64_t place, const std::uint8_t* record,
                                   Ordered& ordered) const {
  const auto at = static_cast<std::size_t>(place - ordered.firstPlace);
  if (ordered.isTaken[at] != 0) return BadPlace("two points have the place ", place);
  ordered.isTaken[at] = 1;
  std::memcpy(ordered.records.data() + at * recordBytes_, record, recordBytes_);
  return Outcome::Success();
}

void OrderedRecords::CloseGaps(Ordered& ordered) const {
  std::uint8_t* const records = ordered.records.data();
  std::size_t kept = 0;
  for (std::size_t at = 0; at < ordered.isTaken.size(); ++at) {
    if (ordered.isTaken[at] == 0) continue;
    if (kept != at) {
      std::memmove(records + kept * recordBytes_, records + at * recordBytes_, recordBytes_);
    }
    ++kept;
  }
  ordered.records.resize(kept * recordBytes_);
}

Outcome OrderedRecords::VisitRuns(
    const Ordered& ordered,
    const std::function<Outcome(std::span<const std::uint8_t>)>& visit) const {
  std::span<const std::uint8_t> rest(ordered.records);
  while (!rest.empty()) {
    const std::size_t bytes = std::min(rest.size(), kRunRecords * recordBytes_);
    if (Outcome outcome = visit(rest.first(bytes)); !outcome.Ok()) return outcome;
    rest = rest.subspan(bytes);
  }
  return Outcome::Success();
}

Outcome OrderedRecords::Give(const std::function<Outcome(std::span<const std::uint8_t>)>& visit) {
  if (file_ == nullptr) {
    CloseGaps(all_);
    return VisitRuns(all_, visit);
  }
  std::vector<std::uint8_t> entries;
  Ordered ordered;
  for (std::size_t i = 0; i < shares_.size(); ++i) {
    const Share share = std::exchange(shares_[i], {});
    if (Outcome outcome = Load(share, entries); !outcome.Ok()) return outcome;
    Clear(i, ordered);
    for (std::span<const std::uint8_t> rest(entries); !rest.empty();
         rest = rest.subspan(kPlaceBytes + recordBytes_)) {
      std::uint64_t place = 0;
      std::memcpy(&place, rest.data(), kPlaceBytes);
      Outcome outcome = PutInOrder(place, rest.data() + kPlaceBytes, ordered);
      if (!outcome.Ok()) return outcome;
    }
    CloseGaps(ordered);
    if (Outcome outcome = VisitRuns(ordered, visit); !outcome.Ok()) return outcome;
  }
  return Outcome::Success();
}

}  // namespace tarnhost
