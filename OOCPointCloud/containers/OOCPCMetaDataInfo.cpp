// The metadata catalogue.
#include <OOCPointCloud/OOCPCMetaDataInfo.h>
#include <OOCPointCloud/ResultCodes.h>

HRESULT OOCPCMetaDataInfo::RegisterMetaData(const QelUnicodeString& name, std::uint32_t offset,
                                            std::uint32_t size) {
  const bool added = places_.try_emplace(name.ConvertToChar(), Place{offset, size}).second;
  if (!added) return oocpc::result::kNameRegistered;
  totalSize_ += size;
  return oocpc::result::kOk;
}

bool OOCPCMetaDataInfo::IsRegistered(const QelUnicodeString& name) const {
  return places_.contains(name.ConvertToChar());
}

std::uint32_t OOCPCMetaDataInfo::GetMetaDataSize(const QelUnicodeString& name) const {
  const auto found = places_.find(name.ConvertToChar());
  return found == places_.end() ? 0 : found->second.size;
}

std::uint32_t OOCPCMetaDataInfo::GetMetaDataOffset(const QelUnicodeString& name) const {
  const auto found = places_.find(name.ConvertToChar());
  return found == places_.end() ? 0 : found->second.offset;
}

void OOCPCMetaDataInfo::Clear() {
  places_.clear();
  totalSize_ = 0;
}
