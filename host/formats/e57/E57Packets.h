// The packets of an E57 compressed vector: a stream of bits for each field of its records.
#pragma once

#include <cstdint>
#include <deque>
#include <span>
#include <string>
#include <vector>

#include "host/common/Outcome.h"
#include "host/formats/e57/E57Pages.h"

namespace tarnhost {

/// Values of one width, one behind the other, lowest bits first, as their bytes come in.
class BitQueue {
 public:
  explicit BitQueue(unsigned bits) : bits_(bits) {}

  void Append(std::span<const std::uint8_t> bytes) {
    bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
  }
  /// Whole values that are there; of values without bits, more than anybody asks for.
  [[nodiscard]] std::uint64_t GetCount() const {
    return bits_ == 0 ? ~std::uint64_t{0} : (bytes_.size() * std::uint64_t{8} - at_) / bits_;
  }
  /// Takes values out; there have to be as many.
  void Take(std::size_t count, std::uint64_t* values);

 private:
  [[nodiscard]] std::uint64_t ValueAt(std::size_t bit) const;

  unsigned bits_;
  std::vector<std::uint8_t> bytes_;
  std::size_t at_ = 0;  ///< bits taken
};

/// Texts, each behind its length, as their bytes come in. A length takes one byte when it is below
/// 128, which is doubled then, else eight, with the lowest bit set.
class TextQueue {
 public:
  /// Longer texts are taken for damage.
  static constexpr std::uint64_t kMostTextBytes = 1u << 20;

  void Append(std::span<const std::uint8_t> bytes);
  [[nodiscard]] std::uint64_t GetCount() const { return texts_.size(); }
  /// Takes texts out; there have to be as many.
  void Take(std::size_t count, std::vector<std::string>& texts);
  [[nodiscard]] bool IsDamaged() const { return isDamaged_; }

 private:
  bool TakeOne(std::size_t& at);

  std::vector<std::uint8_t> bytes_;  ///< of a text that goes on
  std::deque<std::string> texts_;
  bool isDamaged_ = false;
};

/// The stream of one field.
class FieldQueue {
 public:
  /// Of texts, or of values of so many bits.
  explicit FieldQueue(bool isText, unsigned bits) : isText_(isText), numbers_(bits) {}

  void Append(std::span<const std::uint8_t> bytes) {
    isText_ ? texts_.Append(bytes) : numbers_.Append(bytes);
  }
  [[nodiscard]] std::uint64_t GetCount() const {
    return isText_ ? texts_.GetCount() : numbers_.GetCount();
  }
  [[nodiscard]] bool IsText() const { return isText_; }
  [[nodiscard]] TextQueue& GetTexts() { return texts_; }
  [[nodiscard]] BitQueue& GetNumbers() { return numbers_; }

 private:
  bool isText_;
  TextQueue texts_;
  BitQueue numbers_;
};

/// Reads one packet after the other. One thread at a time; borrows the pages.
class E57Packets {
 public:
  /// Checks the head of the compressed vector at a physical offset. kScanContradictory; `where`
  /// names file and scan.
  static Outcome Open(const E57Pages& pages, std::uint64_t physical, const std::string& where,
                      E57Packets& packets);

  /// Adds the content of the next data packet to the streams; `isEnd` when there is none.
  /// kScanContradictory.
  Outcome ReadNext(std::vector<FieldQueue>& streams, bool& isEnd);

 private:
  [[nodiscard]] Outcome Fail(const std::string& what) const;
  Outcome ReadStreams(std::size_t packetBytes, std::vector<FieldQueue>& streams);

  const E57Pages* pages_ = nullptr;
  std::string where_;
  std::uint64_t at_ = 0;   ///< logical, of the next packet
  std::uint64_t end_ = 0;  ///< logical, of the section
  std::vector<std::uint8_t> packet_;
};

}  // namespace tarnhost
