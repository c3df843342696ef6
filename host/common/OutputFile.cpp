// A file that appears under its name only once it is complete.
#include "host/common/OutputFile.h"

#include <unistd.h>

#include <cerrno>

#include "OOCPointCloud/support/SystemErrors.h"

namespace tarnhost {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kBufferBytes = std::size_t{1} << 20;

Outcome FailureOf(int error, const fs::path& path) {
  if (error == ENOENT || error == ENOTDIR) {
    return Outcome::Failure(oocpc::result::kIoError, "there is no folder to write this file into",
                            path.string(), "make the folder first, or choose another place");
  }
  if (error == EISDIR) {
    return Outcome::Failure(oocpc::result::kAlreadyExists, "there is a folder of that name",
                            path.string(), "choose another name");
  }
  return Outcome::FromCode(oocpc::ResultFromErrno(error), path.string());
}

}  // namespace

OutputFile::OutputFile(fs::path target, fs::path written, std::FILE* file)
    : target_(std::move(target)), written_(std::move(written)), file_(file), buffer_(kBufferBytes) {
  std::setvbuf(file_, buffer_.data(), _IOFBF, buffer_.size());
}

Outcome OutputFile::Create(const fs::path& target, std::unique_ptr<OutputFile>& file) {
  std::error_code ignored;
  const fs::file_status status = fs::status(target, ignored);
  if (fs::is_directory(status)) return FailureOf(EISDIR, target);
  fs::path written = target;
  if (!fs::exists(status) || fs::is_regular_file(status)) {
    std::string name = target.filename().string();
    name.insert(0, 1, '.').append(".writing-").append(std::to_string(::getpid()));
    written.replace_filename(name);
  }
  std::FILE* opened = std::fopen(written.c_str(), "wb");
  if (opened == nullptr) return FailureOf(errno, target);
  file.reset(new OutputFile(target, std::move(written), opened));
  return Outcome::Success();
}

OutputFile::~OutputFile() {
  if (file_ == nullptr) return;
  std::fclose(file_);
  std::error_code ignored;
  if (written_ != target_) fs::remove(written_, ignored);
}

Outcome OutputFile::Fail(int error) const { return FailureOf(error, target_); }

Outcome OutputFile::Write(std::span<const std::uint8_t> bytes) {
  if (bytes.empty()) return Outcome::Success();  // an empty span may be null, fwrite takes no null
  if (std::fwrite(bytes.data(), 1, bytes.size(), file_) != bytes.size()) return Fail(errno);
  length_ += bytes.size();
  return Outcome::Success();
}

Outcome OutputFile::Write(std::string_view text) {
  if (text.empty()) return Outcome::Success();
  if (std::fwrite(text.data(), 1, text.size(), file_) != text.size()) return Fail(errno);
  length_ += text.size();
  return Outcome::Success();
}

Outcome OutputFile::Overwrite(std::uint64_t offsetBytes, std::span<const std::uint8_t> bytes) {
  if (::fseeko(file_, static_cast<off_t>(offsetBytes), SEEK_SET) != 0) return Fail(errno);
  if (std::fwrite(bytes.data(), 1, bytes.size(), file_) != bytes.size()) return Fail(errno);
  if (::fseeko(file_, 0, SEEK_END) != 0) return Fail(errno);
  return Outcome::Success();
}

Outcome OutputFile::Commit() {
  if (std::fflush(file_) != 0) return Fail(errno);
  if (std::fclose(std::exchange(file_, nullptr)) != 0) {
    const int error = errno;
    std::error_code ignored;
    if (written_ != target_) fs::remove(written_, ignored);
    return Fail(error);
  }
  if (written_ == target_) return Outcome::Success();
  std::error_code error;
  fs::rename(written_, target_, error);
  if (!error) return Outcome::Success();
  std::error_code ignored;
  fs::remove(written_, ignored);
  return Fail(error.value());
}

}  // namespace tarnhost
