// Numbers that turn up again and again, by how often they do.
#include "OOCPointCloud/columns/NumberDictionary.h"

#include <algorithm>
#include <bit>

namespace oocpc {
namespace {

/// Largest share of distinct numbers for which a dictionary is made: one in so many.
constexpr std::size_t kRepeats = 8;

/// An open-addressing hash table of numbers; never more than half full.
class NumberTable {
 public:
  explicit NumberTable(std::size_t most) : slots_(std::bit_ceil(2 * most + 2)) {
    shift_ = 64u - static_cast<unsigned>(std::countr_zero(slots_.size()));
  }

  struct Slot {
    std::uint64_t number = 0;
    std::uint32_t count = 0;  ///< 0: the slot is free
    std::uint32_t place = 0;
  };

  /// The slot of a number, free when it is not there.
  Slot& Find(std::uint64_t number) {
    // Multiplicative hashing by the golden ratio of 2^64.
    std::size_t at = static_cast<std::size_t>((number * 0x9E3779B97F4A7C15u) >> shift_);
    while (slots_[at].count != 0 && slots_[at].number != number) at = (at + 1) % slots_.size();
    return slots_[at];
  }
  [[nodiscard]] const std::vector<Slot>& GetSlots() const { return slots_; }

 private:
  std::vector<Slot> slots_;
  unsigned shift_;
};

}  // namespace

std::optional<std::vector<std::uint64_t>> MakeDictionary(std::span<const std::uint64_t> numbers) {
  const std::size_t most = numbers.size() / kRepeats;
  NumberTable table(most);
  std::size_t distinct = 0;
  for (const std::uint64_t number : numbers) {
    NumberTable::Slot& slot = table.Find(number);
    if (slot.count == 0 && ++distinct > most) return std::nullopt;
    slot.number = number;
    ++slot.count;
  }
  std::vector<NumberTable::Slot> used;
  std::ranges::copy_if(table.GetSlots(), std::back_inserter(used),
                       [](const NumberTable::Slot& slot) { return slot.count != 0; });
  std::ranges::sort(used, [](const NumberTable::Slot& a, const NumberTable::Slot& b) {
    return a.count != b.count ? a.count > b.count : a.number < b.number;
  });
  std::vector<std::uint64_t> dictionary;
  dictionary.reserve(used.size());
  for (const NumberTable::Slot& slot : used) dictionary.push_back(slot.number);
  return dictionary;
}

void ReplaceByPlaces(std::span<const std::uint64_t> dictionary, std::span<std::uint64_t> numbers) {
  NumberTable table(dictionary.size());
  for (std::size_t place = 0; place < dictionary.size(); ++place) {
    table.Find(dictionary[place]) = {dictionary[place], 1, static_cast<std::uint32_t>(place)};
  }
  for (std::uint64_t& number : numbers) number = table.Find(number).place;
}

}  // namespace oocpc
