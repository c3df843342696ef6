// Writes a repository: appends to its streams, and commits a new catalogue.
#pragma once

#include <OOCPointCloud/ColumnBlocks.h>
#include <OOCPointCloud/Export.h>
#include <OOCPointCloud/OOCPCRepositoryInformation.h>
#include <OOCPointCloud/OOCPointCloudFileHeader.h>
#include <OOCPointCloud/StreamStore.h>

#include <array>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <vector>

/// Everything that a main stream says, less what the writer itself knows (stream lengths, seal).
struct OOCPCCatalogue {
  OOCPointCloudFileHeader header;
  /// Identity of the repository, 16 bytes.
  std::array<std::uint8_t, 16> identity{};
  /// Six doubles: the least and the greatest corner of the octree's root cube, local frame.
  std::array<double, 6> mortonSeed{};
  /// Container chunks in the order in which they are written.
  std::vector<OOCIndexChunk> chunks;
  /// The writer fills in `streams`, `catalogueBytes` and `catalogueChecksum`.
  OOCPCRepositoryInformation information;

  /// Puts a payload in the place of that of the first chunk of a type, or appends a chunk.
  OOCPOINTCLOUD_API void SetChunk(oocpc::ContainerChunkType type,
                                  std::vector<std::uint8_t> payload);
};

/// Appends, then commits: nothing that was appended exists for a reader before a Commit, and a
/// Commit is atomic. One thread at a time. After a failure every further call answers the code of
/// that failure and does nothing; the last committed state stays readable. Errors are those of the
/// store.
class OOCPOINTCLOUD_API OOCPCRepositoryWriter {
 public:
  explicit OOCPCRepositoryWriter(std::unique_ptr<OOCPCIStreamStore> store);
  /// Opens a repository to append to it: reads and checks the main stream that was committed last,
  /// gives it as `committed`, and goes on at the committed lengths as Resume does. The next Commit
  /// takes `committed` again, with what the appended bytes change in it. Errors: those of the
  /// store, of OOCPCDecodeMainStream and of Resume.
  [[nodiscard]] static HRESULT OpenExisting(std::unique_ptr<OOCPCIStreamStore> store,
                                            OOCPCCatalogue& committed,
                                            std::unique_ptr<OOCPCRepositoryWriter>& writer);
  ~OOCPCRepositoryWriter();
  OOCPCRepositoryWriter(const OOCPCRepositoryWriter&) = delete;
  OOCPCRepositoryWriter& operator=(const OOCPCRepositoryWriter&) = delete;

  /// Goes on from what a repository's main stream states: cuts what lies behind the committed
  /// lengths, as an interrupted writer may leave it. Once, before the first Append. kStreamShort
  /// when a stream has fewer bytes than were committed.
  [[nodiscard]] HRESULT Resume(const OOCPCRepositoryInformation& committed);
  /// Appends bytes to a stream; `position` receives where they begin. Without Resume, streams that
  /// the store already has are continued at their end.
  [[nodiscard]] HRESULT Append(const std::string& stream, std::span<const std::uint8_t> bytes,
                               std::uint64_t& position);
  /// Appends one block to a column: its bytes to the data stream, its entry to the table.
  /// `firstValue` is the number of values that the column has in the blocks before.
  [[nodiscard]] HRESULT AppendBlock(std::uint32_t columnId, const oocpc::EncodedBlock& block,
                                    std::uint64_t firstValue);
  /// Length of a stream in bytes, with what Append added; 0 for a stream not known to the writer.
  [[nodiscard]] std::uint64_t GetLength(const std::string& stream) const;
  /// Sum of the lengths of all streams that the writer knows.
  [[nodiscard]] std::uint64_t GetTotalBytes() const;
  /// Syncs every stream that grew, then replaces the main stream.
  [[nodiscard]] HRESULT Commit(const OOCPCCatalogue& catalogue);

 private:
  struct Stream {
    std::uint64_t bytes = 0;
    bool unsynced = false;
  };
  [[nodiscard]] HRESULT FindStream(const std::string& name, Stream*& stream);

  std::unique_ptr<OOCPCIStreamStore> store_;
  std::map<std::string, Stream> streams_;
  bool resumed_ = false;
  HRESULT failure_ = 0;  // the first negative code, which then stays
};

/// The bytes of a main stream: header, identity, seed, chunks, and the information chunk that seals
/// them. `streams` are the committed lengths.
[[nodiscard]] OOCPOINTCLOUD_API std::vector<std::uint8_t> OOCPCEncodeMainStream(
    const OOCPCCatalogue& catalogue, std::vector<OOCPCStreamLength> streams);

/// Takes apart what OOCPCEncodeMainStream put together, after checking the seal. Chunks of unknown
/// types are kept. kBadHeader, kChunkPayloadShort, kNoRepositoryInformation, kCatalogueMismatch,
/// kBadRecord and the errors of the information chunk; `catalogue` is then left as it was.
[[nodiscard]] OOCPOINTCLOUD_API HRESULT OOCPCDecodeMainStream(std::span<const std::uint8_t> bytes,
                                                              OOCPCCatalogue& catalogue);

/// True when a main stream is, byte for byte, a catalogue that `information` seals, and the chunk
/// that `information` was loaded from.
[[nodiscard]] OOCPOINTCLOUD_API bool OOCPCIsSealedMainStream(
    std::span<const std::uint8_t> main, const OOCPCRepositoryInformation& information);
