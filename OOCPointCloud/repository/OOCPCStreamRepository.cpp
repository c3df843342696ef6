// Opening a repository's streams: the seal of the main stream, and committed lengths.
#include <OOCPointCloud/OOCPCRepositoryWriter.h>
#include <OOCPointCloud/Repositories.h>
#include <OOCPointCloud/ResultCodes.h>

#include "OOCPointCloud/streams/OOCPCByteSourceStream.h"

OOCPCIInputStream* OOCPCStreamRepository::CreateInputStream() {
  std::shared_ptr<const OOCPCByteSource> source;
  if (oocpc::Failed(FindSource({}, source))) return nullptr;
  const std::uint64_t length = source->GetBytes().size();
  return new OOCPCByteSourceStream(std::move(source), length);
}

OOCPCIInputStream* OOCPCStreamRepository::CreateInputStream(std::string_view name) {
  if (!OOCPCIsStreamName(name)) return nullptr;
  const OOCPCStreamLength* listed = information_.FindStream(name);
  if (information_.IsLoaded() && listed == nullptr) return nullptr;
  std::shared_ptr<const OOCPCByteSource> source;
  if (oocpc::Failed(FindSource(name, source))) return nullptr;
  std::uint64_t length = source->GetBytes().size();
  if (listed != nullptr) {
    if (length < listed->committedBytes) return nullptr;
    length = listed->committedBytes;
  }
  return new OOCPCByteSourceStream(std::move(source), length);
}

HRESULT OOCPCStreamRepository::SetRepositoryInformation(
    const OOCPCRepositoryInformation* information) {
  faultyStream_.clear();
  if (information == nullptr || !information->IsLoaded()) {
    return oocpc::result::kNoRepositoryInformation;
  }
  std::shared_ptr<const OOCPCByteSource> source;
  const HRESULT mainFound = FindSource({}, source);
  if (oocpc::Failed(mainFound)) return mainFound;
  if (!OOCPCIsSealedMainStream(source->GetBytes(), *information)) {
    return oocpc::result::kCatalogueMismatch;
  }
  for (const OOCPCStreamLength& stream : information->streams) {
    HRESULT found = FindSource(stream.name, source);
    if (!oocpc::Failed(found) && source->GetBytes().size() < stream.committedBytes) {
      found = oocpc::result::kStreamShort;
    }
    if (oocpc::Failed(found)) {
      faultyStream_ = stream.name;
      return found;
    }
  }
  information_ = *information;
  return oocpc::result::kOk;
}

HRESULT OOCPCStreamRepository::FindSource(std::string_view name,
                                          std::shared_ptr<const OOCPCByteSource>& source) {
  const std::lock_guard lock(mutex_);
  const auto known = sources_.find(name);
  if (known != sources_.end()) {
    source = known->second;
    return oocpc::result::kOk;
  }
  const HRESULT opened = OpenSource(name, source);
  if (oocpc::Failed(opened)) return opened;
  sources_.emplace(name, source);
  return oocpc::result::kOk;
}
