// The writing side of a repository: the one thin layer through which bytes reach the disk.
#pragma once

#include <OOCPointCloud/Export.h>
#include <OOCPointCloud/Types.h>

#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// True for names that a stream may have: 1 to 64 of A-Z, a-z, 0-9, '_', and not "main" in any
/// case. So no name that a file states can lead out of a repository's folder or to its main stream.
[[nodiscard]] OOCPOINTCLOUD_API bool OOCPCIsStreamName(std::string_view name);

/// Appends to named streams and replaces the main stream as a whole. Tests derive from it to make
/// single operations fail. One thread at a time. After a failure the object may only be destroyed.
class OOCPOINTCLOUD_API OOCPCIStreamStore {
 public:
  OOCPCIStreamStore() = default;
  OOCPCIStreamStore(const OOCPCIStreamStore&) = delete;
  OOCPCIStreamStore& operator=(const OOCPCIStreamStore&) = delete;
  virtual ~OOCPCIStreamStore();

  /// The main stream as it was committed last; kNotARepository when there is none.
  [[nodiscard]] virtual HRESULT ReadMain(std::vector<std::uint8_t>& bytes) = 0;
  /// Bytes there are in a stream; 0 when there is none of that name.
  [[nodiscard]] virtual HRESULT GetLength(const std::string& name, std::uint64_t& length) = 0;
  /// Appends at the end, creating the stream when needed (also for no bytes).
  [[nodiscard]] virtual HRESULT Append(const std::string& name,
                                       std::span<const std::uint8_t> bytes) = 0;
  /// Cuts a stream to `length` bytes; kSeekOutOfRange when it has fewer.
  [[nodiscard]] virtual HRESULT Truncate(const std::string& name, std::uint64_t length) = 0;
  /// Returns when everything appended to the stream is on stable storage.
  [[nodiscard]] virtual HRESULT Sync(const std::string& name) = 0;
  /// Replaces the main stream atomically and durably.
  [[nodiscard]] virtual HRESULT ReplaceMain(std::span<const std::uint8_t> bytes) = 0;
};

/// Streams as files of a folder, "main" the main stream. kIoError, kNoSpace, kAccessDenied,
/// kAlreadyExists, kBadStreamName.
///
/// A store holds the lock of its folder as long as it lives: there is one writer at a time, in all
/// processes together. The system lets go of the lock of a process that is killed. Readers need no
/// lock.
class OOCPOINTCLOUD_API OOCPCFolderStreamStore final : public OOCPCIStreamStore {
 public:
  static constexpr const char* kMainFileName = "main";
  /// A copy of the main stream, made after each commit: what `tarn repair` goes back to when the
  /// main stream is lost. It is the newest main stream, or the one before.
  static constexpr const char* kMainCopyFileName = "main.copy";
  /// Empty; writers hold a lock on it. It stays when they are done.
  static constexpr const char* kLockFileName = "writer.lock";

  /// Makes the folder, which must not exist yet (kAlreadyExists); its parent must.
  [[nodiscard]] static HRESULT Create(const std::filesystem::path& folder,
                                      std::unique_ptr<OOCPCFolderStreamStore>& store);
  /// Goes on in a folder that exists. kNotARepository when it does not; kBeingWritten when another
  /// store, of this process or another, holds its lock.
  [[nodiscard]] static HRESULT Open(const std::filesystem::path& folder,
                                    std::unique_ptr<OOCPCFolderStreamStore>& store);
  ~OOCPCFolderStreamStore() override;

  /// The folder stays locked as long as the answer lives, also after the store is gone.
  [[nodiscard]] std::shared_ptr<const void> ShareLock() const;

  [[nodiscard]] HRESULT ReadMain(std::vector<std::uint8_t>& bytes) override;
  [[nodiscard]] HRESULT GetLength(const std::string& name, std::uint64_t& length) override;
  [[nodiscard]] HRESULT Append(const std::string& name,
                               std::span<const std::uint8_t> bytes) override;
  [[nodiscard]] HRESULT Truncate(const std::string& name, std::uint64_t length) override;
  [[nodiscard]] HRESULT Sync(const std::string& name) override;
  [[nodiscard]] HRESULT ReplaceMain(std::span<const std::uint8_t> bytes) override;

 private:
  struct OpenFiles;
  explicit OOCPCFolderStreamStore(std::filesystem::path folder);
  [[nodiscard]] HRESULT ReplaceFileOf(const char* name, std::span<const std::uint8_t> bytes);

  std::filesystem::path folder_;
  std::unique_ptr<OpenFiles> files_;
};

/// The streams of a repository that lives in memory; shared by its writer and its readers.
struct OOCPOINTCLOUD_API OOCPCMemoryStreams {
  std::mutex mutex;
  std::shared_ptr<std::vector<std::uint8_t>> main;
  std::map<std::string, std::shared_ptr<std::vector<std::uint8_t>>, std::less<>> named;
};

/// Streams in memory. Appending never touches bytes that a reader has opened.
class OOCPOINTCLOUD_API OOCPCMemoryStreamStore final : public OOCPCIStreamStore {
 public:
  explicit OOCPCMemoryStreamStore(std::shared_ptr<OOCPCMemoryStreams> streams);

  [[nodiscard]] HRESULT ReadMain(std::vector<std::uint8_t>& bytes) override;
  [[nodiscard]] HRESULT GetLength(const std::string& name, std::uint64_t& length) override;
  [[nodiscard]] HRESULT Append(const std::string& name,
                               std::span<const std::uint8_t> bytes) override;
  [[nodiscard]] HRESULT Truncate(const std::string& name, std::uint64_t length) override;
  [[nodiscard]] HRESULT Sync(const std::string& name) override;
  [[nodiscard]] HRESULT ReplaceMain(std::span<const std::uint8_t> bytes) override;

 private:
  std::shared_ptr<OOCPCMemoryStreams> streams_;
};
