// Small things that each operating system has a way of its own for.
#pragma once

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string_view>

namespace tarnhost {

/// The path that a text in UTF-8 names. On systems whose paths are bytes, these very bytes.
[[nodiscard]] std::filesystem::path PathOf(std::string_view text);

/// A number that no other process has meanwhile.
[[nodiscard]] std::uint64_t GetProcessNumber();

/// Bytes of main memory that the machine has.
[[nodiscard]] std::uint64_t GetMachineMemoryBytes();

/// Makes a process of many threads give back to the system what it frees. Costs time; does nothing
/// where there are few processors, or the system's library has no such choice.
void KeepLittleFreedMemory();

/// Opens a file for writing bytes, cutting one that is there; null with `errno` set on failure. The
/// caller closes it.
[[nodiscard]] std::FILE* OpenForWriting(const std::filesystem::path& path);

/// Moves to an offset from the start of a file, also one beyond 4 GiB; false with `errno` set on
/// failure.
[[nodiscard]] bool SeekTo(std::FILE* file, std::uint64_t offsetBytes);

}  // namespace tarnhost
