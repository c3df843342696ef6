// Repositories for tests: a main stream put together byte by byte, and a repository over raw bytes
// whose streams can be told to misbehave. Nothing here checks the seal of the main stream.
#pragma once

#include <OOCPointCloud/OOCPCIDataRepository.h>
#include <OOCPointCloud/OOCPCIInputStream.h>
#include <OOCPointCloud/OOCPCRepositoryInformation.h>
#include <OOCPointCloud/OOCPointCloudFileHeader.h>
#include <OOCPointCloud/ResultCodes.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <limits>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace oocpctest {

using Bytes = std::vector<std::uint8_t>;

/// The 67 bytes of a header.
inline Bytes HeaderBytes(const OOCPointCloudFileHeader& header = {}) {
  Bytes bytes(OOCPointCloudFileHeader::kBytes);
  std::memcpy(bytes.data(), &header, bytes.size());
  return bytes;
}

/// Puts a main stream together: a header (none after NoHeader()), then what is asked for in order.
///   MainStreamBuilder().Chunk(chunk_type::kValue16, value).ChunkHead(2, 100).Raw({1, 2}).Bytes()
class MainStreamBuilder {
 public:
  explicit MainStreamBuilder(const OOCPointCloudFileHeader& header = {})
      : bytes_(HeaderBytes(header)) {}
  [[nodiscard]] static MainStreamBuilder NoHeader() {
    MainStreamBuilder builder;
    builder.bytes_.clear();
    return builder;
  }

  /// A whole chunk.
  MainStreamBuilder& Chunk(oocpc::ContainerChunkType type,
                           std::span<const std::uint8_t> payload = {}) {
    return ChunkHead(type, static_cast<std::uint32_t>(payload.size())).Raw(payload);
  }
  MainStreamBuilder& Chunk(oocpc::ContainerChunkType type,
                           std::initializer_list<std::uint8_t> payload) {
    return Chunk(type, std::span(payload.begin(), payload.size()));
  }
  /// The 8 bytes in front of a payload, announcing any size.
  MainStreamBuilder& ChunkHead(oocpc::ContainerChunkType type, std::uint32_t size) {
    Number(type);
    return Number(size);
  }
  MainStreamBuilder& Raw(std::span<const std::uint8_t> bytes) {
    bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
    return *this;
  }
  MainStreamBuilder& Raw(std::initializer_list<std::uint8_t> bytes) {
    return Raw(std::span(bytes.begin(), bytes.size()));
  }
  [[nodiscard]] std::vector<std::uint8_t> Bytes() const { return bytes_; }

 private:
  MainStreamBuilder& Number(std::uint32_t value) {
    for (int shift = 0; shift < 32; shift += 8) {
      bytes_.push_back(static_cast<std::uint8_t>(value >> shift));
    }
    return *this;
  }

  std::vector<std::uint8_t> bytes_;
};

/// What happened to a FakeRepository and its streams; outlives them.
struct FakeRepositoryLog {
  std::atomic<std::uint64_t> opened{0};
  std::atomic<std::uint64_t> destroyed{0};
  /// Read calls over all streams.
  std::atomic<std::uint64_t> reads{0};
  std::atomic<std::uint64_t> informationCalls{0};
  std::atomic<bool> repositoryDestroyed{false};

  /// True when every stream that was opened has been deleted.
  [[nodiscard]] bool AllStreamsDestroyed() const { return opened == destroyed; }
};

/// How the streams of one name behave.
struct FakeStreamBehaviour {
  static constexpr std::uint64_t kNever = std::numeric_limits<std::uint64_t>::max();

  /// CreateInputStream gives null though the bytes are there.
  bool absent = false;
  bool usable = true;
  /// SetPosition answers this code and moves nothing when it is negative.
  HRESULT setPositionResult = oocpc::result::kOk;
  /// The n-th Read call of a stream (from 0) gives half of what it should.
  std::uint64_t shortRead = kNever;
  /// Where a stream stands when it is opened.
  std::uint64_t startPosition = 0;
};

/// Reads from bytes that it shares with its repository; never gives a view.
class FakeInputStream final : public OOCPCIInputStream {
 public:
  FakeInputStream(std::shared_ptr<const Bytes> bytes, FakeStreamBehaviour behaviour,
                  std::shared_ptr<FakeRepositoryLog> log, std::uint64_t shortReadOverAll)
      : bytes_(std::move(bytes)),
        behaviour_(behaviour),
        log_(std::move(log)),
        shortReadOverAll_(shortReadOverAll),
        position_(behaviour.startPosition) {
    ++log_->opened;
  }
  ~FakeInputStream() override { ++log_->destroyed; }

  std::uint64_t Read(void* destination, const std::uint64_t& length) override {
    const std::uint64_t numberOverAll = log_->reads++;
    const std::uint64_t number = reads_++;
    const std::uint64_t rest = bytes_->size() - std::min<std::uint64_t>(position_, bytes_->size());
    std::uint64_t count = std::min(length, rest);
    if (number == behaviour_.shortRead || numberOverAll == shortReadOverAll_) count /= 2;
    if (!behaviour_.usable) count = 0;
    if (count > 0) std::memcpy(destination, bytes_->data() + position_, count);
    position_ += count;
    return count;
  }
  [[nodiscard]] std::uint64_t GetPosition() const override { return position_; }
  [[nodiscard]] HRESULT SetPosition(const std::uint64_t& position) override {
    if (oocpc::Failed(behaviour_.setPositionResult)) return behaviour_.setPositionResult;
    if (position > bytes_->size()) return oocpc::result::kSeekOutOfRange;
    position_ = position;
    return behaviour_.setPositionResult;
  }
  [[nodiscard]] std::uint64_t GetLength() const override { return bytes_->size(); }
  [[nodiscard]] bool IsUsable() const override { return behaviour_.usable; }

 private:
  std::shared_ptr<const Bytes> bytes_;
  FakeStreamBehaviour behaviour_;
  std::shared_ptr<FakeRepositoryLog> log_;
  std::uint64_t shortReadOverAll_;
  std::uint64_t position_;
  std::uint64_t reads_ = 0;
};

/// A repository over raw bytes. Set it up before it is attached; opening streams is then safe from
/// several threads.
class FakeRepository final : public OOCPCIDataRepository {
 public:
  explicit FakeRepository(Bytes main, std::map<std::string, Bytes> streams = {}) {
    Add("", std::move(main));
    for (auto& [name, bytes] : streams) Add(name, std::move(bytes));
  }
  ~FakeRepository() override { log_->repositoryDestroyed = true; }

  FakeRepository& Add(const std::string& name, Bytes bytes) {
    streams_[name] = std::make_shared<const Bytes>(std::move(bytes));
    return *this;
  }
  /// How streams of a name behave that are opened from now on; "" is the main stream.
  [[nodiscard]] FakeStreamBehaviour& Behaviour(const std::string& name = {}) {
    return behaviours_[name];
  }
  /// The n-th Read call over all streams (from 0) gives half of what it should.
  void ShortenRead(std::uint64_t number) { shortReadOverAll_ = number; }
  /// What SetRepositoryInformation answers; negative codes leave the information as it was.
  void AnswerInformationWith(HRESULT code) { informationResult_ = code; }
  [[nodiscard]] std::shared_ptr<const FakeRepositoryLog> GetLog() const { return log_; }

  [[nodiscard]] OOCPCIInputStream* CreateInputStream() override { return Open(""); }
  [[nodiscard]] OOCPCIInputStream* CreateInputStream(std::string_view name) override {
    return name.empty() ? nullptr : Open(name);
  }
  [[nodiscard]] HRESULT SetRepositoryInformation(
      const OOCPCRepositoryInformation* information) override {
    ++log_->informationCalls;
    if (!oocpc::Failed(informationResult_) && information != nullptr) information_ = *information;
    return informationResult_;
  }
  [[nodiscard]] const OOCPCRepositoryInformation& GetRepositoryInformation() const override {
    return information_;
  }

 private:
  [[nodiscard]] OOCPCIInputStream* Open(std::string_view name) const {
    const auto stream = streams_.find(name);
    if (stream == streams_.end()) return nullptr;
    const auto behaviour = behaviours_.find(name);
    const FakeStreamBehaviour how =
        behaviour == behaviours_.end() ? FakeStreamBehaviour{} : behaviour->second;
    if (how.absent) return nullptr;
    return new FakeInputStream(stream->second, how, log_, shortReadOverAll_);
  }

  std::map<std::string, std::shared_ptr<const Bytes>, std::less<>> streams_;
  std::map<std::string, FakeStreamBehaviour, std::less<>> behaviours_;
  std::shared_ptr<FakeRepositoryLog> log_ = std::make_shared<FakeRepositoryLog>();
  std::uint64_t shortReadOverAll_ = FakeStreamBehaviour::kNever;
  HRESULT informationResult_ = oocpc::result::kOk;
  OOCPCRepositoryInformation information_;
};

}  // namespace oocpctest
