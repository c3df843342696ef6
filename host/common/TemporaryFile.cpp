// A file without a name, for what does not fit into memory.
#include "host/common/TemporaryFile.h"

#include <unistd.h>

#include <cerrno>
#include <utility>

#include "OOCPointCloud/support/SystemErrors.h"
#include "host/common/NamelessFile.h"
#include "host/common/WatchedChange.h"

namespace tarnhost {

Outcome TemporaryFile::Create(const std::filesystem::path& folder,
                              std::unique_ptr<TemporaryFile>& file) {
  const std::filesystem::path path = folder / "temporary";
  if (const HRESULT asked = AskBefore(FileChangeKind::kOpen, path); oocpc::Failed(asked)) {
    return Outcome::FromCode(asked, path.string());
  }
  const int opened = OpenNamelessFile(folder);
  if (opened < 0) return Outcome::FromCode(oocpc::ResultFromErrno(errno), path.string());
  file.reset(new TemporaryFile(opened, path));
  return Outcome::Success();
}

TemporaryFile::TemporaryFile(int file, std::filesystem::path path)
    : file_(file), path_(std::move(path)) {}

TemporaryFile::~TemporaryFile() { ::close(file_); }

Outcome TemporaryFile::Fail(int error) const {
  return Outcome::FromCode(oocpc::ResultFromErrno(error), path_.string());
}

Outcome TemporaryFile::Append(std::span<const std::uint8_t> bytes, std::uint64_t& offset) {
  if (const HRESULT asked = AskBefore(FileChangeKind::kAppend, path_, bytes);
      oocpc::Failed(asked)) {
    return Outcome::FromCode(asked, path_.string());
  }
  for (std::size_t done = 0; done < bytes.size();) {
    const ssize_t written = ::write(file_, bytes.data() + done, bytes.size() - done);
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return Fail(errno);
    done += static_cast<std::size_t>(written);
  }
  offset = std::exchange(end_, end_ + bytes.size());
  return Outcome::Success();
}

Outcome TemporaryFile::Read(std::uint64_t offset, std::span<std::uint8_t> out) const {
  for (std::size_t done = 0; done < out.size();) {
    const ssize_t read =
        ::pread(file_, out.data() + done, out.size() - done, static_cast<off_t>(offset + done));
    if (read < 0 && errno == EINTR) continue;
    if (read <= 0) return Fail(read < 0 ? errno : EIO);
    done += static_cast<std::size_t>(read);
  }
  return Outcome::Success();
}

}  // namespace tarnhost
