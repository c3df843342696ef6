// A repository that lets a test act, or hold a thread, when its streams are opened, read, deleted.
#pragma once

#include <functional>

#include "tests/support/TestRepositories.h"

namespace oocpctest {

/// What to call; set it up before streams are used by several threads. Shared with the streams,
/// which may outlive their repository.
struct StreamHooks {
  std::function<void(const std::string& name)> onOpen;
  /// With the number of the Read call of that stream, from 0.
  std::function<void(const std::string& name, std::uint64_t number)> onRead;
  std::function<void(const std::string& name)> onDelete;
};

class HookedStream final : public OOCPCIInputStream {
 public:
  HookedStream(std::string name, std::unique_ptr<OOCPCIInputStream> stream,
               std::shared_ptr<const StreamHooks> hooks)
      : name_(std::move(name)), stream_(std::move(stream)), hooks_(std::move(hooks)) {}
  ~HookedStream() override {
    if (hooks_->onDelete != nullptr) hooks_->onDelete(name_);
  }

  std::uint64_t Read(void* destination, const std::uint64_t& length) override {
    if (hooks_->onRead != nullptr) hooks_->onRead(name_, reads_++);
    return stream_->Read(destination, length);
  }
  [[nodiscard]] std::uint64_t GetPosition() const override { return stream_->GetPosition(); }
  [[nodiscard]] HRESULT SetPosition(const std::uint64_t& position) override {
    return stream_->SetPosition(position);
  }
  [[nodiscard]] std::uint64_t GetLength() const override { return stream_->GetLength(); }
  [[nodiscard]] bool IsUsable() const override { return stream_->IsUsable(); }

 private:
  std::string name_;
  std::unique_ptr<OOCPCIInputStream> stream_;
  std::shared_ptr<const StreamHooks> hooks_;
  std::uint64_t reads_ = 0;
};

/// Forwards to another repository; hooks the named streams, not the main one.
class HookedRepository final : public OOCPCIDataRepository {
 public:
  explicit HookedRepository(std::unique_ptr<FakeRepository> repository)
      : repository_(std::move(repository)) {}

  [[nodiscard]] FakeRepository& GetInner() { return *repository_; }
  [[nodiscard]] const std::shared_ptr<StreamHooks>& GetHooks() const { return hooks_; }

  [[nodiscard]] OOCPCIInputStream* CreateInputStream() override {
    return repository_->CreateInputStream();
  }
  [[nodiscard]] OOCPCIInputStream* CreateInputStream(std::string_view name) override {
    const std::string text(name);
    if (hooks_->onOpen != nullptr) hooks_->onOpen(text);
    std::unique_ptr<OOCPCIInputStream> stream(repository_->CreateInputStream(name));
    return stream == nullptr ? nullptr : new HookedStream(text, std::move(stream), hooks_);
  }
  [[nodiscard]] HRESULT SetRepositoryInformation(
      const OOCPCRepositoryInformation* information) override {
    return repository_->SetRepositoryInformation(information);
  }
  [[nodiscard]] const OOCPCRepositoryInformation& GetRepositoryInformation() const override {
    return repository_->GetRepositoryInformation();
  }

 private:
  std::unique_ptr<FakeRepository> repository_;
  std::shared_ptr<StreamHooks> hooks_ = std::make_shared<StreamHooks>();
};

}  // namespace oocpctest
