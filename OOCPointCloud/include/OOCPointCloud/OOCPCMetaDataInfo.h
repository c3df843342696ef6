// The metadata catalogue: where each metadata lies in a point record.
#pragma once

#include <OOCPointCloud/Export.h>
#include <OOCPointCloud/Types.h>
#include <QelSysTS/QelUnicodeString.h>

#include <map>
#include <string>

/// Metadata names with their offset and size in a point record, in bytes. Value semantics; thread
/// safety as std::map.
class OOCPOINTCLOUD_API OOCPCMetaDataInfo {
 public:
  /// Enters a name; a second entry under the same name is ignored with kNameRegistered.
  HRESULT RegisterMetaData(const QelUnicodeString& name, std::uint32_t offset, std::uint32_t size);
  [[nodiscard]] bool IsRegistered(const QelUnicodeString& name) const;
  /// Size of one value, 0 for an unknown name.
  [[nodiscard]] std::uint32_t GetMetaDataSize(const QelUnicodeString& name) const;
  /// Offset of the value in a record, 0 for an unknown name.
  [[nodiscard]] std::uint32_t GetMetaDataOffset(const QelUnicodeString& name) const;
  /// Sum of all sizes.
  [[nodiscard]] std::uint32_t GetTotalMetaDataSize() const { return totalSize_; }
  void Clear();

 private:
  struct Place {
    std::uint32_t offset;
    std::uint32_t size;
  };
  std::map<std::string, Place> places_;
  std::uint32_t totalSize_ = 0;
};

/// Settings of a point cloud that its host reads and writes. Plain data, copied with the cloud.
struct OOCPointCloudSettings {
  /// Points a host wishes to show at most; the library itself does not read it.
  std::uint64_t pointBudget = 3'000'000;
};
