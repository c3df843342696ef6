// A large run of bytes that is filled once and read often: in memory, or in a temporary file.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>

#include "host/common/NamelessFile.h"
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

  /// A place to write the bytes [at, at + count) to, when they are in memory; else null.
  [[nodiscard]] std::uint8_t* GetMemory(std::uint64_t at) {
    return memory_ == nullptr ? nullptr : memory_->GetBytes().data() + at;
  }
  Outcome Write(std::uint64_t at, std::span<const std::uint8_t> bytes);
  /// Nothing is written any more. Any number of them may be kept then, however few files a process
  /// may have open.
  void EndWriting() {
    if (file_ != nullptr) file_->EndWriting();
  }
  [[nodiscard]] const std::uint8_t* Get(std::uint64_t at) const { return bytes_.data() + at; }
  /// Says that these bytes are not needed soon.
  void Forget(std::uint64_t at, std::uint64_t count) const;

 private:
  explicit ScratchBytes(std::filesystem::path path) : path_(std::move(path)) {}
  HRESULT Take(std::uint64_t bytes, bool intoFile, const std::filesystem::path& folder);

  std::unique_ptr<NamelessFile> file_;    ///< null in memory
  std::unique_ptr<ZeroedMemory> memory_;  ///< null in a file
  std::span<const std::uint8_t> bytes_;   ///< of either
  std::filesystem::path path_;
};

}  // namespace tarnhost
