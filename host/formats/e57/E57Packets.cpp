// The packets of an E57 compressed vector: a stream of bits for each field of its records.
//
// ASTM E2807: a section begins with 32 bytes (kind 1, its length, the offsets of data and index).
// A packet of data (kind 1) has its length less one at byte 2 and the number of streams at byte 4;
// then come the streams' lengths of 16 bits each, and the streams. The stream of a field goes on in
// the next packet, wherever within a value the one before it ended. Packets of an index (kind 0)
// and empty ones (kind 2) have their length in the same place.
#include "host/formats/e57/E57Packets.h"

#include <array>
#include <cstring>
#include <utility>

#include "OOCPointCloud/support/Bytes.h"

namespace tarnhost {

namespace result = oocpc::result;

namespace {

constexpr std::size_t kSectionHeadBytes = 32;
constexpr std::size_t kPacketHeadBytes = 4;
constexpr std::size_t kDataHeadBytes = 6;
constexpr std::uint8_t kSectionKind = 1;
constexpr std::uint8_t kIndexPacket = 0;
constexpr std::uint8_t kDataPacket = 1;
constexpr std::uint8_t kEmptyPacket = 2;

}  // namespace

std::uint64_t BitQueue::ValueAt(std::size_t bit) const {
  const std::size_t byte = bit / 8;
  const std::size_t shift = bit % 8;
  std::uint64_t low = 0;
  const std::size_t there = std::min<std::size_t>(bytes_.size() - byte, sizeof(low));
  std::memcpy(&low, bytes_.data() + byte, there);
  std::uint64_t value = low >> shift;
  if (shift + bits_ > 64) value |= std::uint64_t{bytes_[byte + 8]} << (64 - shift);
  return bits_ == 64 ? value : value & ((std::uint64_t{1} << bits_) - 1);
}

void BitQueue::Take(std::size_t count, std::uint64_t* values) {
  for (std::size_t i = 0; i < count; ++i, at_ += bits_) values[i] = bits_ == 0 ? 0 : ValueAt(at_);
  const std::size_t done = at_ / 8;
  bytes_.erase(bytes_.begin(), bytes_.begin() + static_cast<std::ptrdiff_t>(done));
  at_ -= 8 * done;
}

void TextQueue::Append(std::span<const std::uint8_t> bytes) {
  if (isDamaged_) return;
  bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
  std::size_t at = 0;
  while (TakeOne(at)) {
  }
  bytes_.erase(bytes_.begin(), bytes_.begin() + static_cast<std::ptrdiff_t>(at));
}

/// Moves `at` behind the text that begins there, if all of it is there.
bool TextQueue::TakeOne(std::size_t& at) {
  const std::size_t there = bytes_.size() - at;
  if (there == 0) return false;
  const std::size_t head = (bytes_[at] & 1u) == 0 ? 1 : sizeof(std::uint64_t);
  if (there < head) return false;
  const std::uint64_t length =
      head == 1 ? bytes_[at] >> 1u : oocpc::LoadLittleEndian<std::uint64_t>(&bytes_[at]) >> 1u;
  isDamaged_ = length > kMostTextBytes;
  if (isDamaged_ || length > there - head) return false;
  const auto begin = bytes_.begin() + static_cast<std::ptrdiff_t>(at + head);
  texts_.emplace_back(begin, begin + static_cast<std::ptrdiff_t>(length));
  at += head + static_cast<std::size_t>(length);
  return true;
}

void TextQueue::Take(std::size_t count, std::vector<std::string>& texts) {
  texts.clear();
  texts.reserve(count);
  for (std::size_t i = 0; i < count; ++i) {
    texts.push_back(std::move(texts_.front()));
    texts_.pop_front();
  }
}

Outcome E57Packets::Open(const E57Pages& pages, std::uint64_t physical, const std::string& where,
                         E57Packets& packets) {
  packets.pages_ = &pages;
  packets.where_ = where;
  std::array<std::uint8_t, kSectionHeadBytes> head{};
  std::uint64_t begin = 0;
  if (!pages.ToLogical(physical, begin) || !pages.Read(begin, head.size(), head.data())) {
    return packets.Fail("the points are placed behind the end of the file, at byte " +
                        std::to_string(physical));
  }
  packets.at_ = begin;
  if (head[0] != kSectionKind) return packets.Fail("no compressed vector begins here");
  const auto bytes = oocpc::LoadLittleEndian<std::uint64_t>(head.data() + 8);
  const auto data = oocpc::LoadLittleEndian<std::uint64_t>(head.data() + 16);
  if (bytes < kSectionHeadBytes || bytes > pages.GetLogicalBytes() - begin) {
    return packets.Fail("the compressed vector is longer than the file");
  }
  packets.end_ = begin + bytes;
  std::uint64_t first = 0;
  // A vector without points may have no data to point to.
  if (data == 0) {
    packets.at_ = packets.end_;
  } else if (!pages.ToLogical(data, first) || first < begin || first > packets.end_) {
    return packets.Fail("the packets are placed outside the compressed vector");
  } else {
    packets.at_ = first;
  }
  return Outcome::Success();
}

Outcome E57Packets::Fail(const std::string& what) const {
  return Outcome::Failure(result::kScanContradictory, what,
                          where_ + ", byte " + std::to_string(pages_->ToPhysical(at_)),
                          "copy or download the file again, or write the scan again with the "
                          "program that made it");
}

Outcome E57Packets::ReadNext(std::vector<FieldQueue>& streams, bool& isEnd) {
  isEnd = false;
  while (end_ - at_ >= kPacketHeadBytes) {
    std::array<std::uint8_t, kPacketHeadBytes> head{};
    (void)pages_->Read(at_, head.size(), head.data());  // below the end, which was checked
    const std::size_t bytes =
        oocpc::LoadLittleEndian<std::uint16_t>(head.data() + 2) + std::size_t{1};
    if (bytes < kPacketHeadBytes || bytes > end_ - at_) {
      return Fail("a packet is longer than the compressed vector");
    }
    if (head[0] == kDataPacket) return ReadStreams(bytes, streams);
    if (head[0] != kIndexPacket && head[0] != kEmptyPacket) {
      return Fail("packets of kind " + std::to_string(head[0]) + " do not exist");
    }
    at_ += bytes;
  }
  isEnd = true;
  return Outcome::Success();
}

Outcome E57Packets::ReadStreams(std::size_t packetBytes, std::vector<FieldQueue>& streams) {
  packet_.resize(packetBytes);
  (void)pages_->Read(at_, packetBytes, packet_.data());
  const std::span<const std::uint8_t> packet(packet_);
  if (packetBytes < kDataHeadBytes) return Fail("a packet is too short");
  const std::size_t count = oocpc::LoadLittleEndian<std::uint16_t>(packet.data() + 4);
  std::size_t from = kDataHeadBytes + 2 * count;
  if (count != streams.size() || from > packetBytes) {
    return Fail("a packet has " + std::to_string(count) + " streams instead of " +
                std::to_string(streams.size()));
  }
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t bytes =
        oocpc::LoadLittleEndian<std::uint16_t>(packet.data() + kDataHeadBytes + 2 * i);
    if (bytes > packetBytes - from) return Fail("the streams of a packet are longer than it is");
    streams[i].Append(packet.subspan(from, bytes));
    from += bytes;
  }
  pages_->Forget(at_, at_ + packetBytes);
  at_ += packetBytes;
  return Outcome::Success();
}

}  // namespace tarnhost
