// The streams of a repository's folder under a main stream of one's own.
#pragma once

#include <OOCPointCloud/Repositories.h>

#include <filesystem>
#include <utility>
#include <vector>

namespace tarnhost {

/// What a repository would be if `main` were its main stream.
class RepairView final : public OOCPCStreamRepository {
 public:
  RepairView(std::filesystem::path folder, std::vector<std::uint8_t> main)
      : folder_(std::move(folder)), main_(std::make_shared<MainBytes>(std::move(main))) {}

 protected:
  [[nodiscard]] HRESULT OpenSource(std::string_view name,
                                   std::shared_ptr<const OOCPCByteSource>& source) override {
    if (!name.empty()) return OOCPCMapFile(folder_ / name, source);
    source = main_;
    return oocpc::result::kOk;
  }

 private:
  class MainBytes final : public OOCPCByteSource {
   public:
    explicit MainBytes(std::vector<std::uint8_t> bytes) : bytes_(std::move(bytes)) {}
    [[nodiscard]] std::span<const std::uint8_t> GetBytes() const override { return bytes_; }

   private:
    std::vector<std::uint8_t> bytes_;
  };

  std::filesystem::path folder_;
  std::shared_ptr<const MainBytes> main_;
};

}  // namespace tarnhost
