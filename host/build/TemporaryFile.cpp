// A file without a name, for what does not fit into memory.
#include "host/build/TemporaryFile.h"

#include <utility>

namespace tarnhost {

Outcome TemporaryFile::Create(const std::filesystem::path& folder,
                              std::unique_ptr<TemporaryFile>& file) {
  std::filesystem::path path = folder / "temporary";
  std::unique_ptr<NamelessFile> opened;
  const HRESULT code = NamelessFile::Create(folder, opened);
  if (oocpc::Failed(code)) return Outcome::FromCode(code, path.string());
  file.reset(new TemporaryFile(std::move(opened), std::move(path)));
  return Outcome::Success();
}

Outcome TemporaryFile::OutcomeOf(HRESULT code) const {
  return oocpc::Failed(code) ? Outcome::FromCode(code, path_.string()) : Outcome::Success();
}

Outcome TemporaryFile::Append(std::span<const std::uint8_t> bytes, std::uint64_t& offset) {
  Outcome outcome = OutcomeOf(file_->Write(end_, bytes));
  if (outcome.Ok()) offset = std::exchange(end_, end_ + bytes.size());
  return outcome;
}

Outcome TemporaryFile::Read(std::uint64_t offset, std::span<std::uint8_t> out) const {
  return OutcomeOf(file_->Read(offset, out));
}

}  // namespace tarnhost
