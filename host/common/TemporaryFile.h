// A file without a name, for what does not fit into memory.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>

#include "host/common/NamelessFile.h"
#include "host/common/Outcome.h"

namespace tarnhost {

/// Written from start to end by one thread at a time; what was written may be read from several
/// threads at once. Its bytes are gone with the object, however the process ends.
class TemporaryFile {
 public:
  /// Errors: kNoSpace, kAccessDenied, kIoError, ...
  static Outcome Create(const std::filesystem::path& folder, std::unique_ptr<TemporaryFile>& file);
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  /// Appends bytes and tells where they are.
  Outcome Append(std::span<const std::uint8_t> bytes, std::uint64_t& offset);
  /// Reads as many bytes as `out` has room for.
  Outcome Read(std::uint64_t offset, std::span<std::uint8_t> out) const;

  /// Says that these bytes are going to be read soon.
  void ReadAhead(std::uint64_t offset, std::uint64_t bytes) const {
    file_->ReadAhead(offset, bytes);
  }

  /// What messages call it.
  [[nodiscard]] const std::filesystem::path& GetPath() const { return path_; }

 private:
  TemporaryFile(std::unique_ptr<NamelessFile> file, std::filesystem::path path)
      : file_(std::move(file)), path_(std::move(path)) {}
  [[nodiscard]] Outcome OutcomeOf(HRESULT code) const;

  std::unique_ptr<NamelessFile> file_;
  std::filesystem::path path_;
  std::uint64_t end_ = 0;
};

}  // namespace tarnhost
