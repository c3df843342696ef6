// A large run of bytes that is filled once and read often: in memory, or in a temporary file.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>

#include "host/common/Outcome.h"

namespace tarnhost {

/// Writing different stretches, and reading after that, is safe from several threads at once.
class ScratchBytes {
 public:
  /// Of `bytes` bytes, all zero; in memory when they are no more than `memoryBytes`, else in a file
  /// without a name below `folder`, which is gone with the process however that ends. kNoSpace,
  /// kAccessDenied, kIoError, kOutOfMemory.
  static Outcome Create(std::uint64_t bytes, std::uint64_t memoryBytes,
                        const std::filesystem::path& folder,
                        std::unique_ptr<ScratchBytes>& scratch);
  ScratchBytes(const ScratchBytes&) = delete;
  ScratchBytes& operator=(const ScratchBytes&) = delete;
  ~ScratchBytes();

  /// A place to write the bytes [at, at + count) to, when they are in memory; else null.
  [[nodiscard]] std::uint8_t* GetMemory(std::uint64_t at) {
    return file_ < 0 ? mapped_ + at : nullptr;
  }
  Outcome Write(std::uint64_t at, std::span<const std::uint8_t> bytes);
  [[nodiscard]] const std::uint8_t* Get(std::uint64_t at) const { return mapped_ + at; }
  /// Says that these bytes are not needed soon.
  void Forget(std::uint64_t at, std::uint64_t count) const;

 private:
  ScratchBytes(std::uint8_t* mapped, std::uint64_t bytes, int file, std::filesystem::path path)
      : mapped_(mapped), bytes_(bytes), file_(file), path_(std::move(path)) {}

  std::uint8_t* mapped_;
  std::uint64_t bytes_;
  int file_;  ///< -1 in memory
  std::filesystem::path path_;
};

}  // namespace tarnhost
