// The streams of a repository's folder under a main stream of one's own, and with further ones.
#pragma once

#include <OOCPointCloud/Repositories.h>

#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <utility>

#include "host/repair/EarlierState.h"

namespace tarnhost {

/// What a repository would be if it were in a state.
class RepairView final : public OOCPCStreamRepository {
 public:
  /// Keeps a reference to the state.
  RepairView(std::filesystem::path folder, const RepositoryState& state)
      : folder_(std::move(folder)), state_(state) {}

 protected:
  [[nodiscard]] HRESULT OpenSource(std::string_view name,
                                   std::shared_ptr<const OOCPCByteSource>& source) override {
    const auto added = state_.added.find(std::string(name));
    if (name.empty()) {
      source = std::make_shared<OwnedBytes>(state_.main);
    } else if (added == state_.added.end()) {
      return OOCPCMapFile(folder_ / name, source);
    } else {
      return OpenLengthened(folder_ / name, added->second, source);
    }
    return oocpc::result::kOk;
  }

 private:
  class OwnedBytes final : public OOCPCByteSource {
   public:
    explicit OwnedBytes(std::vector<std::uint8_t> bytes) : bytes_(std::move(bytes)) {}
    [[nodiscard]] std::span<const std::uint8_t> GetBytes() const override { return bytes_; }

   private:
    std::vector<std::uint8_t> bytes_;
  };

  /// What there is of a stream, and what is added to it. Such streams are small.
  static HRESULT OpenLengthened(const std::filesystem::path& file, const AddedBytes& added,
                                std::shared_ptr<const OOCPCByteSource>& source) {
    std::vector<std::uint8_t> bytes;
    if (added.position > 0) {
      std::shared_ptr<const OOCPCByteSource> there;
      const HRESULT code = OOCPCMapFile(file, there);
      if (oocpc::Failed(code)) return code;
      if (there->GetBytes().size() < added.position) return oocpc::result::kStreamShort;
      const auto kept = there->GetBytes().first(static_cast<std::size_t>(added.position));
      bytes.assign(kept.begin(), kept.end());
    }
    bytes.insert(bytes.end(), added.bytes.begin(), added.bytes.end());
    source = std::make_shared<OwnedBytes>(std::move(bytes));
    return oocpc::result::kOk;
  }

  std::filesystem::path folder_;
  const RepositoryState& state_;
};

}  // namespace tarnhost
