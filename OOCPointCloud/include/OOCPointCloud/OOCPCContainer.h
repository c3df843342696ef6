// What a repository holds: containers, each described by one chunk of the main stream.
#pragma once

#include <OOCPointCloud/Export.h>
#include <OOCPointCloud/Types.h>

#include <string>
#include <string_view>
#include <utility>

class OOCPCIDataRepository;
class OOCPCMetaDataContainer;

/// Base of all containers.
///
/// Ownership: created with new, deleted through the virtual destructor by whoever holds it.
/// A container borrows its repository and must not be read from after the repository is gone;
/// deleting it then is fine. Thread safety: reading a container is for one thread at a time; a
/// Clone() shares no read position with its source.
class OOCPOINTCLOUD_API OOCPCContainer {
 public:
  OOCPCContainer(OOCPCIDataRepository* repository, oocpc::ContainerChunkType chunkType,
                 std::string name);
  OOCPCContainer& operator=(const OOCPCContainer&) = delete;
  virtual ~OOCPCContainer();

  /// Name, NUL-terminated, compared byte by byte. Valid until the next LoadFromChunk.
  [[nodiscard]] const char* GetName() const { return name_.c_str(); }
  [[nodiscard]] oocpc::ContainerChunkType GetChunkType() const { return chunkType_; }
  [[nodiscard]] OOCPCIDataRepository* GetRepository() const { return repository_; }
  /// A container counts as metadata when any of the low 16 bits of its chunk type is set.
  [[nodiscard]] bool IsMetaData() const { return (chunkType_ & 0xFFFFu) != 0; }

  /// Reads the container's description from a chunk's payload. Negative codes leave the container
  /// as it was.
  [[nodiscard]] virtual HRESULT LoadFromChunk(const std::uint8_t* payload, std::uint32_t size) = 0;
  /// A copy with a read position of its own; the caller deletes it. Null when it can't be made.
  [[nodiscard]] virtual OOCPCContainer* Clone() const = 0;

  /// Whether the container has a level-of-detail part, from which level containers can be made.
  [[nodiscard]] virtual bool HasLevelOfDetail() const { return false; }
  /// Makes the container of one level: it delivers the values of the points that a level-of-detail
  /// node names by first point and number of points. A level is the id of a node stream, which is
  /// the index of an update iteration. The caller deletes it. Null when it can't be made.
  [[nodiscard]] virtual OOCPCMetaDataContainer* CreateLevelContainer(std::uint64_t level) const;

 protected:
  OOCPCContainer(const OOCPCContainer&) = default;
  void SetName(std::string name) { name_ = std::move(name); }

 private:
  OOCPCIDataRepository* repository_;
  oocpc::ContainerChunkType chunkType_;
  std::string name_;
};

/// A container with nothing in it: the search key of ordered sets of containers.
class OOCPOINTCLOUD_API OOCPCDummyContainer final : public OOCPCContainer {
 public:
  explicit OOCPCDummyContainer(std::string_view name);
  explicit OOCPCDummyContainer(oocpc::ContainerChunkType chunkType);

  [[nodiscard]] HRESULT LoadFromChunk(const std::uint8_t* payload, std::uint32_t size) override;
  [[nodiscard]] OOCPCContainer* Clone() const override;
};
