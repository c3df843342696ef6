// Containers of per-point values: metadata, positions, and the string dictionary.
#pragma once

#include <OOCPointCloud/ColumnBlocks.h>
#include <OOCPointCloud/OOCPCContainer.h>

#include <memory>
#include <optional>
#include <vector>

/// A container with one value per point, stored as a column of blocks.
///
/// A metadata container *delivers* values of GetDeliveredType(), GetDataSize() bytes each, and
/// *stores* values of GetStoredType(). They differ for positions only. Reading is for one thread
/// at a time; threads work on clones. Points are numbered through in storage order, that is block
/// after block.
class OOCPOINTCLOUD_API OOCPCMetaDataContainer : public OOCPCContainer {
 public:
  ~OOCPCMetaDataContainer() override;

  /// Bytes of one delivered value in a point record.
  [[nodiscard]] virtual std::uint16_t GetDataSize() const = 0;
  [[nodiscard]] virtual oocpc::ColumnType GetDeliveredType() const = 0;
  [[nodiscard]] virtual oocpc::ColumnType GetStoredType() const = 0;
  /// Blocks there are, in all iterations together.
  [[nodiscard]] virtual HRESULT GetBlockCount(std::uint64_t& count) = 0;
  /// Description of a block as stored (minimum and maximum are of stored values).
  [[nodiscard]] virtual HRESULT ReadBlockEntry(std::uint64_t blockId, oocpc::BlockEntry& entry) = 0;
  /// A block's values as stored, value after value.
  [[nodiscard]] virtual HRESULT ReadStoredBlock(std::uint64_t blockId,
                                                std::vector<std::uint8_t>& values) = 0;
  /// A block's values as delivered, value after value.
  [[nodiscard]] virtual HRESULT ReadBlock(std::uint64_t blockId,
                                          std::vector<std::uint8_t>& values) = 0;
  /// The values, as stored, of the points [first, first + count) in storage order, from as many
  /// blocks as hold them. kIndexOutOfRange when there are fewer points.
  [[nodiscard]] virtual HRESULT ReadStoredPoints(std::uint64_t first, std::uint64_t count,
                                                 std::vector<std::uint8_t>& values) = 0;
  /// The same as delivered.
  [[nodiscard]] virtual HRESULT ReadPoints(std::uint64_t first, std::uint64_t count,
                                           std::vector<std::uint8_t>& values) = 0;
  [[nodiscard]] OOCPCMetaDataContainer* Clone() const override = 0;

  /// The level that the container was made for; none for a container of the whole repository.
  [[nodiscard]] std::optional<std::uint64_t> GetLevel() const { return level_; }
  /// Tells the container of a level how many node entries the level-of-detail block of its
  /// iteration states, and a number of the caller's choice, which is only kept. kFail for a
  /// container that is not one of a level.
  virtual HRESULT SetLevelExtent(std::uint32_t nodeEntryCount, std::uint64_t value);
  /// What SetLevelExtent told; 0 before.
  [[nodiscard]] std::uint32_t GetLevelNodeEntryCount() const { return levelNodeEntryCount_; }
  [[nodiscard]] std::uint64_t GetLevelValue() const { return levelValue_; }

 protected:
  using OOCPCContainer::OOCPCContainer;
  OOCPCMetaDataContainer(const OOCPCMetaDataContainer&) = default;
  void SetLevel(std::uint64_t level) { level_ = level; }
  /// Takes over what makes another container one of a level.
  void CopyLevel(const OOCPCMetaDataContainer& other);

 private:
  std::optional<std::uint64_t> level_;
  std::uint32_t levelNodeEntryCount_ = 0;
  std::uint64_t levelValue_ = 0;
};

/// What a static metadata chunk says. See docs/format.md.
struct OOCPOINTCLOUD_API OOCPCMetaDataDescription {
  static constexpr std::uint16_t kVersion = 1;

  std::string name;  ///< bytes, no NUL
  oocpc::ColumnType type;
  std::uint32_t columnId = 0;
  std::string description;  ///< for people: meaning and unit; UTF-8

  [[nodiscard]] std::vector<std::uint8_t> EncodeChunk() const;
  /// kBadRecord, kChecksumMismatch or kUnknownVersion leave the object as it was.
  [[nodiscard]] HRESULT DecodeChunk(const std::uint8_t* payload, std::uint32_t size);
};

/// One attribute of the points, of any column type (chunk type 1).
class OOCPOINTCLOUD_API OOCPCStaticMetaDataContainer final : public OOCPCMetaDataContainer {
 public:
  explicit OOCPCStaticMetaDataContainer(OOCPCIDataRepository* repository);
  ~OOCPCStaticMetaDataContainer() override;

  [[nodiscard]] const OOCPCMetaDataDescription& GetDescription() const { return description_; }
  [[nodiscard]] HRESULT LoadFromChunk(const std::uint8_t* payload, std::uint32_t size) override;
  [[nodiscard]] std::uint16_t GetDataSize() const override;
  [[nodiscard]] oocpc::ColumnType GetDeliveredType() const override;
  [[nodiscard]] oocpc::ColumnType GetStoredType() const override;
  [[nodiscard]] HRESULT GetBlockCount(std::uint64_t& count) override;
  [[nodiscard]] HRESULT ReadBlockEntry(std::uint64_t blockId, oocpc::BlockEntry& entry) override;
  [[nodiscard]] HRESULT ReadStoredBlock(std::uint64_t blockId,
                                        std::vector<std::uint8_t>& values) override;
  [[nodiscard]] HRESULT ReadBlock(std::uint64_t blockId,
                                  std::vector<std::uint8_t>& values) override;
  [[nodiscard]] HRESULT ReadStoredPoints(std::uint64_t first, std::uint64_t count,
                                         std::vector<std::uint8_t>& values) override;
  [[nodiscard]] HRESULT ReadPoints(std::uint64_t first, std::uint64_t count,
                                   std::vector<std::uint8_t>& values) override;
  [[nodiscard]] OOCPCStaticMetaDataContainer* Clone() const override;
  [[nodiscard]] bool HasLevelOfDetail() const override;
  /// Opens the column's streams at once, so that the container can be read from also when the
  /// repository is gone. Null when they are not there.
  [[nodiscard]] OOCPCStaticMetaDataContainer* CreateLevelContainer(
      std::uint64_t level) const override;

 private:
  OOCPCMetaDataDescription description_;
  std::unique_ptr<oocpc::ColumnReader> reader_;
};

/// What a positions chunk says. See docs/format.md.
struct OOCPOINTCLOUD_API OOCPCPositionsDescription {
  static constexpr std::uint16_t kVersion = 1;

  std::string name = "DEF_POSITION";
  std::uint32_t columnId = 0;
  /// source coordinate = stored integer * scale + offset, per axis, in double precision.
  oocpc::Vector3d scale{1, 1, 1};
  oocpc::Vector3d offset{};

  [[nodiscard]] std::vector<std::uint8_t> EncodeChunk() const;
  /// kBadRecord, kChecksumMismatch or kUnknownVersion leave the object as it was.
  [[nodiscard]] HRESULT DecodeChunk(const std::uint8_t* payload, std::uint32_t size);
};

/// The points' positions (chunk type 2): stored as the source's three 32-bit integers, delivered as
/// three doubles in the local frame: (integer * scale + offset) - local frame offset, each
/// operation rounded to double in this order.
class OOCPOINTCLOUD_API OOCPCStaticPositionsContainer final : public OOCPCMetaDataContainer {
 public:
  explicit OOCPCStaticPositionsContainer(OOCPCIDataRepository* repository);
  ~OOCPCStaticPositionsContainer() override;

  [[nodiscard]] const OOCPCPositionsDescription& GetDescription() const { return description_; }
  [[nodiscard]] HRESULT LoadFromChunk(const std::uint8_t* payload, std::uint32_t size) override;
  [[nodiscard]] std::uint16_t GetDataSize() const override;  ///< 24
  [[nodiscard]] oocpc::ColumnType GetDeliveredType() const override;
  [[nodiscard]] oocpc::ColumnType GetStoredType() const override;
  [[nodiscard]] HRESULT GetBlockCount(std::uint64_t& count) override;
  [[nodiscard]] HRESULT ReadBlockEntry(std::uint64_t blockId, oocpc::BlockEntry& entry) override;
  [[nodiscard]] HRESULT ReadStoredBlock(std::uint64_t blockId,
                                        std::vector<std::uint8_t>& values) override;
  [[nodiscard]] HRESULT ReadBlock(std::uint64_t blockId,
                                  std::vector<std::uint8_t>& values) override;
  [[nodiscard]] HRESULT ReadStoredPoints(std::uint64_t first, std::uint64_t count,
                                         std::vector<std::uint8_t>& values) override;
  [[nodiscard]] HRESULT ReadPoints(std::uint64_t first, std::uint64_t count,
                                   std::vector<std::uint8_t>& values) override;
  [[nodiscard]] OOCPCStaticPositionsContainer* Clone() const override;
  [[nodiscard]] bool HasLevelOfDetail() const override;
  /// Opens the column's streams at once, so that the container can be read from also when the
  /// repository is gone. Null when they are not there.
  [[nodiscard]] OOCPCStaticPositionsContainer* CreateLevelContainer(
      std::uint64_t level) const override;

 private:
  OOCPCPositionsDescription description_;
  [[nodiscard]] const oocpc::Vector3d& GetFrameOffset() const;
  void Deliver(std::vector<std::uint8_t>& values) const;

  std::unique_ptr<oocpc::ColumnReader> reader_;
  /// Of a level container, which may outlive its repository.
  std::optional<oocpc::Vector3d> frameOffset_;
  std::vector<std::uint8_t> scratch_;
};

/// The dictionary of the string columns (chunk type 0x20000000), held in memory once loaded.
/// The stream "DEF_STRINGS" holds, string after string: length in bytes (32 bits), the bytes, and
/// the CRC-32C of both. Reading is safe from several threads at once.
class OOCPOINTCLOUD_API OOCPCStringRepositoryContainer final : public OOCPCContainer {
 public:
  static constexpr std::uint16_t kVersion = 1;
  static constexpr const char* kStreamName = "DEF_STRINGS";

  explicit OOCPCStringRepositoryContainer(OOCPCIDataRepository* repository);
  ~OOCPCStringRepositoryContainer() override;

  /// The chunk payload of a dictionary of `count` strings.
  [[nodiscard]] static std::vector<std::uint8_t> EncodeChunk(std::uint64_t count);
  /// One string as the stream holds it.
  static void EncodeString(std::string_view text, std::vector<std::uint8_t>& out);

  [[nodiscard]] HRESULT LoadFromChunk(const std::uint8_t* payload, std::uint32_t size) override;
  [[nodiscard]] std::uint64_t GetCount() const { return strings_.size(); }
  /// kStringNotFound when the index is not below GetCount().
  [[nodiscard]] HRESULT GetString(std::uint64_t index, std::string& text) const;
  [[nodiscard]] OOCPCStringRepositoryContainer* Clone() const override;

 private:
  std::vector<std::string> strings_;
};
