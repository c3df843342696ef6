// A file that no name leads to, and memory beside it: what the system gives for passing use.
#pragma once

#include <OOCPointCloud/Types.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>

namespace tarnhost {

/// Gone when it is closed, however the process ends. Reading and writing are safe from several
/// threads at once where they do not overlap. Errors are kNoSpace, kAccessDenied, kOutOfMemory and
/// kIoError.
class NamelessFile {
 public:
  /// Makes an empty file below `folder`.
  [[nodiscard]] static HRESULT Create(const std::filesystem::path& folder,
                                      std::unique_ptr<NamelessFile>& file);
  NamelessFile(const NamelessFile&) = delete;
  NamelessFile& operator=(const NamelessFile&) = delete;
  ~NamelessFile();

  /// Gives the file a length and maps it for reading; once, before anything is written.
  [[nodiscard]] HRESULT Map(std::uint64_t bytes);
  /// The bytes of a mapped file.
  [[nodiscard]] std::span<const std::uint8_t> GetMapped() const { return mapped_; }

  [[nodiscard]] HRESULT Write(std::uint64_t offset, std::span<const std::uint8_t> bytes);
  /// Reads as many bytes as `out` has room for; kIoError when there are fewer.
  [[nodiscard]] HRESULT Read(std::uint64_t offset, std::span<std::uint8_t> out) const;
  /// From here on a mapped file is used through its mapping alone, and takes none of the files that
  /// the system lets a process have open, where a mapping does not need one.
  void EndWriting();
  /// Says that these bytes are going to be read soon: the system may begin to fetch them.
  void ReadAhead(std::uint64_t offset, std::uint64_t bytes) const;

 private:
  explicit NamelessFile(std::intptr_t handle) : handle_(handle) {}

  std::intptr_t handle_;
  std::span<std::uint8_t> mapped_;
};

/// Memory full of zeros, which takes up room only where it is written to. Not for small things.
class ZeroedMemory {
 public:
  /// kOutOfMemory.
  [[nodiscard]] static HRESULT Take(std::uint64_t bytes, std::unique_ptr<ZeroedMemory>& memory);
  ZeroedMemory(const ZeroedMemory&) = delete;
  ZeroedMemory& operator=(const ZeroedMemory&) = delete;
  ~ZeroedMemory();

  [[nodiscard]] std::span<std::uint8_t> GetBytes() const { return bytes_; }

 private:
  explicit ZeroedMemory(std::span<std::uint8_t> bytes) : bytes_(bytes) {}
  std::span<std::uint8_t> bytes_;
};

}  // namespace tarnhost
