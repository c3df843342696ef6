// A file that appears under its name only once it is complete.
#pragma once

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "host/common/Outcome.h"

namespace tarnhost {

/// Writes to a temporary name beside the target and renames at Commit(); destroyed without a
/// Commit, it removes what it wrote. A target that exists and is no regular file (a pipe, a device)
/// is written to directly. One thread at a time.
class OutputFile {
 public:
  static Outcome Create(const std::filesystem::path& target, std::unique_ptr<OutputFile>& file);
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;
  ~OutputFile();

  Outcome Write(std::span<const std::uint8_t> bytes);
  Outcome Write(std::string_view text);
  /// Replaces bytes that were written before; the position goes back to the end.
  Outcome Overwrite(std::uint64_t offsetBytes, std::span<const std::uint8_t> bytes);
  [[nodiscard]] std::uint64_t GetLength() const { return length_; }
  [[nodiscard]] const std::filesystem::path& GetTarget() const { return target_; }
  Outcome Commit();

 private:
  OutputFile(std::filesystem::path target, std::filesystem::path written, std::FILE* file);
  Outcome Fail(int error) const;
  void RemoveWritten() const;

  std::filesystem::path target_;
  std::filesystem::path written_;  ///< equal to target_ when written to directly
  std::FILE* file_;
  std::vector<char> buffer_;
  std::uint64_t length_ = 0;
};

/// Whether a file can be written there, to be asked before long work; leaves nothing. What is there
/// and no regular file (a pipe, a device) can. kAlreadyExists for a folder, and unless `overwrite`
/// for a file; otherwise the failures of OutputFile::Create.
Outcome CheckOutput(const std::filesystem::path& target, bool overwrite);

}  // namespace tarnhost
