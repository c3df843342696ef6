// Numbers that turn up again and again, by how often they do.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace oocpc {

/// The distinct ones among `numbers`, the most frequent first, equally frequent ones in ascending
/// order; nothing when more than an eighth of the numbers are distinct.
[[nodiscard]] std::optional<std::vector<std::uint64_t>> MakeDictionary(
    std::span<const std::uint64_t> numbers);

/// Replaces each number by its place in the dictionary that MakeDictionary made of them.
void ReplaceByPlaces(std::span<const std::uint64_t> dictionary, std::span<std::uint64_t> numbers);

}  // namespace oocpc
