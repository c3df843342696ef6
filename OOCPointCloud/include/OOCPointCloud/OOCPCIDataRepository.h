// Where the streams of one stored point cloud come from.
#pragma once

#include <OOCPointCloud/Export.h>
#include <OOCPointCloud/Types.h>

#include <memory>
#include <string_view>

class OOCPCIInputStream;
class OOCPCRepositoryInformation;
class OOCPCStringRepositoryContainer;

/// A set of named byte streams, opened for reading.
///
/// Ownership: the point cloud that a repository is attached to owns it; containers hold plain
/// pointers to it. Thread safety: opening streams is safe from several threads at once; the two
/// Set/Adopt operations belong to attachment and are not.
class OOCPOINTCLOUD_API OOCPCIDataRepository {
 public:
  OOCPCIDataRepository();
  OOCPCIDataRepository(const OOCPCIDataRepository&) = delete;
  OOCPCIDataRepository& operator=(const OOCPCIDataRepository&) = delete;
  virtual ~OOCPCIDataRepository();

  /// Opens the main stream (header and chunks); the caller deletes it. Null when there is none.
  [[nodiscard]] virtual OOCPCIInputStream* CreateInputStream() = 0;
  /// Opens a named stream, cut to its committed length; the caller deletes it. Null when there is
  /// none of that name.
  [[nodiscard]] virtual OOCPCIInputStream* CreateInputStream(std::string_view name) = 0;

  /// Receives what the main stream says about the repository as a whole, once per attachment,
  /// before any other stream is opened. Copies it. A negative result refuses the repository.
  [[nodiscard]] virtual HRESULT SetRepositoryInformation(
      const OOCPCRepositoryInformation* information) = 0;
  /// What SetRepositoryInformation received; default-constructed before.
  [[nodiscard]] virtual const OOCPCRepositoryInformation& GetRepositoryInformation() const = 0;

  /// Takes over the dictionary of the string columns; a former one is deleted.
  void AdoptStringRepository(std::unique_ptr<OOCPCStringRepositoryContainer> strings);
  /// The dictionary, or null. Owned by the repository.
  [[nodiscard]] OOCPCStringRepositoryContainer* GetStringRepository() const;

 private:
  std::unique_ptr<OOCPCStringRepositoryContainer> stringRepository_;
};
