// A file without a name, for what does not fit into memory.
#include "host/common/TemporaryFile.h"

#include <utility>

#include "host/common/WatchedChange.h"

namespace tarnhost {

Outcome TemporaryFile::Create(const std::filesystem::path& folder,
                              std::unique_ptr<TemporaryFile>& file) {
  std::filesystem::path path = folder / "temporary";
  std::unique_ptr<NamelessFile> opened;
  HRESULT code = AskBefore(FileChangeKind::kOpen, path);
  if (!oocpc::Failed(code)) code = NamelessFile::Create(folder, opened);
  if (oocpc::Failed(code)) return Outcome::FromCode(code, path.string());
  file.reset(new TemporaryFile(std::move(opened), std::move(path)));
  return Outcome::Success();
}

Outcome TemporaryFile::OutcomeOf(HRESULT code) const {
  return oocpc::Failed(code) ? Outcome::FromCode(code, path_.string()) : Outcome::Success();
}

Outcome TemporaryFile::Append(std::span<const std::uint8_t> bytes, std::uint64_t& offset) {
  HRESULT code = AskBefore(FileChangeKind::kAppend, path_, bytes);
  if (!oocpc::Failed(code)) code = file_->Write(end_, bytes);
  Outcome outcome = OutcomeOf(code);
  if (outcome.Ok()) offset = std::exchange(end_, end_ + bytes.size());
  return outcome;
}

Outcome TemporaryFile::Read(std::uint64_t offset, std::span<std::uint8_t> out) const {
  return OutcomeOf(file_->Read(offset, out));
}

}  // namespace tarnhost
