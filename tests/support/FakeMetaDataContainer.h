// A metadata container without values that tells what is done with it and its level containers.
#pragma once

#include <OOCPointCloud/OOCPCMetaDataContainer.h>
#include <OOCPointCloud/ResultCodes.h>

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace oocpctest {

/// What happened, in order; safe from any thread.
class EventLog {
 public:
  void Add(const std::string& event) {
    const std::lock_guard<std::mutex> lock(mutex_);
    events_.push_back(event);
  }
  [[nodiscard]] std::vector<std::string> Get() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return events_;
  }
  void Clear() {
    const std::lock_guard<std::mutex> lock(mutex_);
    events_.clear();
  }

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> events_;
};

/// How a container and those made from it behave.
struct FakeContainerBehaviour {
  bool hasLevelOfDetail = true;
  bool givesLevelContainers = true;
  /// What SetLevelExtent of a level container answers after it was told; may be null.
  std::function<HRESULT(std::uint64_t level)> onLevelExtent;
};

/// Logs "delete NAME", "delete level NAME", "delete clone NAME", and
/// "extent LEVEL ENTRIES VALUE".
class FakeMetaDataContainer final : public OOCPCMetaDataContainer {
 public:
  using Values = std::vector<std::uint8_t>;

  FakeMetaDataContainer(oocpc::ContainerChunkType chunkType, const std::string& name,
                        std::shared_ptr<EventLog> log,
                        std::shared_ptr<const FakeContainerBehaviour> behaviour =
                            std::make_shared<FakeContainerBehaviour>())
      : OOCPCMetaDataContainer(nullptr, chunkType, name),
        log_(std::move(log)),
        behaviour_(std::move(behaviour)) {}
  ~FakeMetaDataContainer() override { log_->Add("delete " + kind_ + GetName()); }

  [[nodiscard]] HRESULT LoadFromChunk(const std::uint8_t* /*payload*/,
                                      std::uint32_t /*size*/) override {
    return oocpc::result::kFail;
  }
  [[nodiscard]] std::uint16_t GetDataSize() const override { return 2; }
  [[nodiscard]] oocpc::ColumnType GetDeliveredType() const override { return kType; }
  [[nodiscard]] oocpc::ColumnType GetStoredType() const override { return kType; }
  [[nodiscard]] HRESULT GetBlockCount(std::uint64_t& /*count*/) override {
    return oocpc::result::kStreamMissing;
  }
  [[nodiscard]] HRESULT ReadBlockEntry(std::uint64_t /*id*/, oocpc::BlockEntry& /*to*/) override {
    return oocpc::result::kStreamMissing;
  }
  [[nodiscard]] HRESULT ReadStoredBlock(std::uint64_t /*id*/, Values& /*to*/) override {
    return oocpc::result::kStreamMissing;
  }
  [[nodiscard]] HRESULT ReadBlock(std::uint64_t /*id*/, Values& /*to*/) override {
    return oocpc::result::kStreamMissing;
  }
  [[nodiscard]] HRESULT ReadStoredPoints(std::uint64_t /*first*/, std::uint64_t /*count*/,
                                         Values& /*to*/) override {
    return oocpc::result::kStreamMissing;
  }
  [[nodiscard]] HRESULT ReadPoints(std::uint64_t /*first*/, std::uint64_t /*count*/,
                                   Values& /*to*/) override {
    return oocpc::result::kStreamMissing;
  }
  [[nodiscard]] bool HasLevelOfDetail() const override { return behaviour_->hasLevelOfDetail; }
  [[nodiscard]] FakeMetaDataContainer* CreateLevelContainer(std::uint64_t level) const override {
    if (!behaviour_->givesLevelContainers) return nullptr;
    FakeMetaDataContainer* const made = Copy("level ");
    made->SetLevel(level);
    return made;
  }
  HRESULT SetLevelExtent(std::uint32_t nodeEntryCount, std::uint64_t value) override {
    const HRESULT code = OOCPCMetaDataContainer::SetLevelExtent(nodeEntryCount, value);
    if (oocpc::Failed(code)) return code;
    log_->Add("extent " + std::to_string(*GetLevel()) + " " + std::to_string(nodeEntryCount) + " " +
              std::to_string(value));
    return behaviour_->onLevelExtent == nullptr ? code : behaviour_->onLevelExtent(*GetLevel());
  }
  [[nodiscard]] FakeMetaDataContainer* Clone() const override { return Copy("clone "); }

 private:
  static constexpr oocpc::ColumnType kType{oocpc::ValueType::kUInt16, 1};

  [[nodiscard]] FakeMetaDataContainer* Copy(const std::string& kind) const {
    auto copy =
        std::make_unique<FakeMetaDataContainer>(GetChunkType(), GetName(), log_, behaviour_);
    copy->CopyLevel(*this);
    copy->kind_ = kind;
    return copy.release();
  }

  std::shared_ptr<EventLog> log_;
  std::shared_ptr<const FakeContainerBehaviour> behaviour_;
  std::string kind_;
};

}  // namespace oocpctest
