// A large run of bytes that is filled once and read often: in memory, or in a temporary file.
#include "host/common/ScratchBytes.h"

#include <OOCPointCloud/Repositories.h>

#include <algorithm>

#include "host/common/WatchedChange.h"

namespace tarnhost {

Outcome ScratchBytes::Create(std::uint64_t bytes, std::uint64_t memoryBytes,
                             const std::filesystem::path& folder,
                             std::unique_ptr<ScratchBytes>& scratch) {
  std::unique_ptr<ScratchBytes> made(new ScratchBytes(folder / "scratch"));
  HRESULT code = oocpc::result::kOk;
  if (bytes > memoryBytes) code = AskBefore(FileChangeKind::kOpen, made->path_);
  if (!oocpc::Failed(code)) code = made->Take(bytes, bytes > memoryBytes, folder);
  if (oocpc::Failed(code)) return Outcome::FromCode(code, made->path_.string());
  scratch = std::move(made);
  return Outcome::Success();
}

HRESULT ScratchBytes::Take(std::uint64_t bytes, bool intoFile,
                           const std::filesystem::path& folder) {
  if (!intoFile) {
    const HRESULT taken = ZeroedMemory::Take(bytes, memory_);
    if (!oocpc::Failed(taken)) bytes_ = memory_->GetBytes();
    return taken;
  }
  HRESULT code = NamelessFile::Create(folder, file_);
  if (!oocpc::Failed(code)) code = file_->Map(bytes);
  if (!oocpc::Failed(code)) bytes_ = file_->GetMapped();
  return code;
}

Outcome ScratchBytes::Write(std::uint64_t at, std::span<const std::uint8_t> bytes) {
  if (at > bytes_.size() || bytes.size() > bytes_.size() - at) {
    return Outcome::FromCode(oocpc::result::kIndexOutOfRange, path_.string());
  }
  if (file_ == nullptr) {
    std::copy(bytes.begin(), bytes.end(), GetMemory(at));
    return Outcome::Success();
  }
  HRESULT code = AskBefore(FileChangeKind::kAppend, path_, bytes);
  if (!oocpc::Failed(code)) code = file_->Write(at, bytes);
  return oocpc::Failed(code) ? Outcome::FromCode(code, path_.string()) : Outcome::Success();
}

void ScratchBytes::Forget(std::uint64_t at, std::uint64_t count) const {
  // Memory would be lost; a file keeps what its pages drop.
  if (file_ != nullptr) OOCPCForgetPages(bytes_.subspan(at, count));
}

}  // namespace tarnhost
