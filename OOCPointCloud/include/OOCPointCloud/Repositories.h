// The repositories of this library: a folder of files, and memory.
#pragma once

#include <OOCPointCloud/OOCPCIDataRepository.h>
#include <OOCPointCloud/OOCPCRepositoryInformation.h>
#include <OOCPointCloud/StreamStore.h>

#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <span>
#include <string>

/// A read-only, contiguous run of bytes that streams share: a mapped file or a vector.
class OOCPOINTCLOUD_API OOCPCByteSource {
 public:
  OOCPCByteSource() = default;
  OOCPCByteSource(const OOCPCByteSource&) = delete;
  OOCPCByteSource& operator=(const OOCPCByteSource&) = delete;
  virtual ~OOCPCByteSource();
  [[nodiscard]] virtual std::span<const std::uint8_t> GetBytes() const = 0;
};

/// Maps a whole file read-only. kStreamMissing, kAccessDenied, kIoError. The file must not be cut
/// while it is mapped.
[[nodiscard]] OOCPOINTCLOUD_API HRESULT OOCPCMapFile(const std::filesystem::path& file,
                                                     std::shared_ptr<const OOCPCByteSource>& bytes);

/// Whether a part of a file is read again before long.
enum class OOCPCNextUse { kLikely, kUnlikely };

/// Lets go of the memory that a part of a mapped file takes in this process; reading it again
/// brings it back. Of what is not likely to be read again, the system's own copy is the first to
/// give way when others need the room. A hint: what cannot be let go of stays.
OOCPOINTCLOUD_API void OOCPCForgetPages(std::span<const std::uint8_t> mapped,
                                        OOCPCNextUse next = OOCPCNextUse::kLikely);

/// Common part: checks the seal of the main stream and cuts streams to their committed lengths.
/// Each stream's bytes are opened once and shared by all its input streams, so that a commit which
/// happens meanwhile does not show; open a new repository to see it.
class OOCPOINTCLOUD_API OOCPCStreamRepository : public OOCPCIDataRepository {
 public:
  [[nodiscard]] OOCPCIInputStream* CreateInputStream() override;
  [[nodiscard]] OOCPCIInputStream* CreateInputStream(std::string_view name) override;
  /// kNoRepositoryInformation when the main stream had none (or null is given); kCatalogueMismatch
  /// when the main stream is not the one that was sealed; kStreamMissing or kStreamShort when a
  /// listed stream is not there in its committed length.
  [[nodiscard]] HRESULT SetRepositoryInformation(
      const OOCPCRepositoryInformation* information) override;
  [[nodiscard]] const OOCPCRepositoryInformation& GetRepositoryInformation() const override {
    return information_;
  }
  /// Name of the stream that the last refusal was about; empty when it was the main stream.
  [[nodiscard]] const std::string& GetFaultyStream() const { return faultyStream_; }

 protected:
  /// The bytes of a stream, kStreamMissing when there is none; "" is the main stream. Called by
  /// one thread at a time.
  [[nodiscard]] virtual HRESULT OpenSource(std::string_view name,
                                           std::shared_ptr<const OOCPCByteSource>& source) = 0;

  /// As OpenSource, but opens each stream once.
  [[nodiscard]] HRESULT FindSource(std::string_view name,
                                   std::shared_ptr<const OOCPCByteSource>& source);

 private:
  std::mutex mutex_;
  std::map<std::string, std::shared_ptr<const OOCPCByteSource>, std::less<>> sources_;
  OOCPCRepositoryInformation information_;
  std::string faultyStream_;
};

/// A folder NAME.tarn with one file per stream, memory-mapped.
class OOCPOINTCLOUD_API OOCPCFolderRepository final : public OOCPCStreamRepository {
 public:
  /// kNotARepository when there is no such folder or no main stream in it; kAccessDenied; kIoError.
  [[nodiscard]] static HRESULT Open(const std::filesystem::path& folder,
                                    std::unique_ptr<OOCPCFolderRepository>& repository);
  ~OOCPCFolderRepository() override;

 protected:
  [[nodiscard]] HRESULT OpenSource(std::string_view name,
                                   std::shared_ptr<const OOCPCByteSource>& source) override;

 private:
  explicit OOCPCFolderRepository(std::filesystem::path folder);
  std::filesystem::path folder_;
};

/// Streams in memory, as OOCPCMemoryStreamStore wrote them.
class OOCPOINTCLOUD_API OOCPCMemoryRepository final : public OOCPCStreamRepository {
 public:
  explicit OOCPCMemoryRepository(std::shared_ptr<OOCPCMemoryStreams> streams);
  ~OOCPCMemoryRepository() override;

 protected:
  [[nodiscard]] HRESULT OpenSource(std::string_view name,
                                   std::shared_ptr<const OOCPCByteSource>& source) override;

 private:
  std::shared_ptr<OOCPCMemoryStreams> streams_;
};
