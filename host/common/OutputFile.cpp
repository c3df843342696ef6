// A file that appears under its name only once it is complete.
#include "host/common/OutputFile.h"

#include <cerrno>

#include "OOCPointCloud/repository/FileSystem.h"
#include "OOCPointCloud/support/SystemErrors.h"
#include "host/common/System.h"

namespace tarnhost {

namespace fs = std::filesystem;
using oocpc::detail::FileKind;
using oocpc::detail::GetFileKind;

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
  if (error == EPIPE) {
    return Outcome::Failure(oocpc::result::kIoError, "the reader of this pipe closed it",
                            path.string(), "let it read to the end, or write a file");
  }
  return Outcome::FromCode(oocpc::ResultFromErrno(error), path.string());
}

}  // namespace

OutputFile::OutputFile(fs::path target, fs::path written, std::FILE* file)
    : target_(std::move(target)), written_(std::move(written)), file_(file), buffer_(kBufferBytes) {
  std::setvbuf(file_, buffer_.data(), _IOFBF, buffer_.size());
}

Outcome OutputFile::Create(const fs::path& target, std::unique_ptr<OutputFile>& file) {
  const FileKind kind = GetFileKind(target);
  if (kind == FileKind::kFolder) return FailureOf(EISDIR, target);
  fs::path written = target;
  if (kind != FileKind::kOther) {
    fs::path name = ".";
    name += target.filename();
    name += ".writing-" + std::to_string(GetProcessNumber());
    written.replace_filename(name);
  }
  std::FILE* opened = OpenForWriting(written);
  if (opened == nullptr) return FailureOf(errno, target);
  file.reset(new OutputFile(target, std::move(written), opened));
  return Outcome::Success();
}

OutputFile::~OutputFile() {
  if (file_ == nullptr) return;
  std::fclose(file_);
  RemoveWritten();
}

/// What cannot be removed is in nobody's way.
void OutputFile::RemoveWritten() const {
  if (written_ != target_) static_cast<void>(oocpc::detail::RemoveFile(written_));
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
  if (!SeekTo(file_, offsetBytes)) return Fail(errno);
  if (std::fwrite(bytes.data(), 1, bytes.size(), file_) != bytes.size()) return Fail(errno);
  if (!SeekTo(file_, length_)) return Fail(errno);
  return Outcome::Success();
}

Outcome OutputFile::Commit() {
  if (std::fflush(file_) != 0) return Fail(errno);
  if (std::fclose(std::exchange(file_, nullptr)) != 0) {
    const int error = errno;
    RemoveWritten();
    return Fail(error);
  }
  if (written_ == target_) return Outcome::Success();
  const HRESULT code = oocpc::detail::ReplaceFile(written_, target_);
  if (!oocpc::Failed(code)) return Outcome::Success();
  RemoveWritten();
  return Outcome::FromCode(code, target_.string());
}

Outcome CheckOutput(const fs::path& target, bool overwrite) {
  const FileKind kind = GetFileKind(target);
  if (kind == FileKind::kOther) return Outcome::Success();
  if (kind == FileKind::kFile && !overwrite) {
    return Outcome::Failure(oocpc::result::kAlreadyExists, "there already is a file of that name",
                            target.string(), "choose another name, or replace it with --overwrite");
  }
  std::unique_ptr<OutputFile> file;
  return OutputFile::Create(target, file);
}

}  // namespace tarnhost
