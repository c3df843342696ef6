// A stream store that makes one chosen operation fail: simulates a disk that fills up, goes away or
// refuses in the middle of writing a repository.
#pragma once

#include <OOCPointCloud/ResultCodes.h>
#include <OOCPointCloud/StreamStore.h>

#include <limits>
#include <memory>
#include <utility>

namespace oocpctest {

/// What a FailingStore shares with its test, which outlives the store.
struct StorePlan {
  static constexpr std::uint64_t kNever = std::numeric_limits<std::uint64_t>::max();

  /// Number of the operation that fails, counted from 0 over all operations.
  std::uint64_t failAt = kNever;
  HRESULT code = oocpc::result::kIoError;
  /// When an Append fails: half of its bytes reach the store first, as on a full disk.
  bool tearAppends = false;
  /// Operations asked for so far, the failed ones included.
  std::uint64_t operations = 0;
  /// Operations asked for after the failure; correct callers leave it at 0.
  std::uint64_t afterFailure = 0;
};

/// Forwards everything to another store until the planned operation, which fails without being
/// forwarded; so does everything after it.
class FailingStore final : public OOCPCIStreamStore {
 public:
  FailingStore(std::unique_ptr<OOCPCIStreamStore> store, std::shared_ptr<StorePlan> plan)
      : store_(std::move(store)), plan_(std::move(plan)) {}

  [[nodiscard]] HRESULT ReadMain(std::vector<std::uint8_t>& bytes) override {
    return Fails() ? plan_->code : store_->ReadMain(bytes);
  }
  [[nodiscard]] HRESULT GetLength(const std::string& name, std::uint64_t& length) override {
    return Fails() ? plan_->code : store_->GetLength(name, length);
  }
  [[nodiscard]] HRESULT Append(const std::string& name,
                               std::span<const std::uint8_t> bytes) override {
    if (!Fails()) return store_->Append(name, bytes);
    if (plan_->tearAppends && plan_->afterFailure == 0) {
      const HRESULT torn = store_->Append(name, bytes.first(bytes.size() / 2));
      if (oocpc::Failed(torn)) return torn;
    }
    return plan_->code;
  }
  [[nodiscard]] HRESULT Truncate(const std::string& name, std::uint64_t length) override {
    return Fails() ? plan_->code : store_->Truncate(name, length);
  }
  [[nodiscard]] HRESULT Sync(const std::string& name) override {
    return Fails() ? plan_->code : store_->Sync(name);
  }
  [[nodiscard]] HRESULT ReplaceMain(std::span<const std::uint8_t> bytes) override {
    return Fails() ? plan_->code : store_->ReplaceMain(bytes);
  }

 private:
  [[nodiscard]] bool Fails() {
    const std::uint64_t number = plan_->operations++;
    if (number > plan_->failAt) ++plan_->afterFailure;
    return number >= plan_->failAt;
  }

  std::unique_ptr<OOCPCIStreamStore> store_;
  std::shared_ptr<StorePlan> plan_;
};

}  // namespace oocpctest
