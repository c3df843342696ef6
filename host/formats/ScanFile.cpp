// Opens a scan by what it is, not by its name.
#include "host/formats/ScanFile.h"

#include <cstring>
#include <string_view>

#include "host/formats/LasScan.h"
#include "host/formats/laz/LazScan.h"

namespace tarnhost {

namespace {

constexpr std::array<std::string_view, 2> kEndings{".las", ".laz"};

}  // namespace

void ScanFile::ExtractStrided(std::size_t dimension, const std::uint8_t* records,
                              std::size_t stride, std::size_t count, std::uint8_t* out) const {
  const std::size_t bytes = GetRecordBytes();
  std::vector<std::uint8_t> dense(count * bytes);
  for (std::size_t i = 0; i < count; ++i) {
    std::memcpy(dense.data() + i * bytes, records + i * stride, bytes);
  }
  ExtractDimension(dimension, dense.data(), count, out);
}

bool HasScanEnding(const std::filesystem::path& path) {
  std::string ending = path.extension().string();
  std::ranges::transform(ending, ending.begin(), [](char letter) {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
  });
  return std::ranges::find(kEndings, ending) != kEndings.end();
}

Outcome MapScan(const std::filesystem::path& path, std::shared_ptr<const OOCPCByteSource>& bytes) {
  // What the system will not say of a path it says again, as an error, when the file is mapped.
  std::error_code ignored;
  const std::filesystem::file_status status = std::filesystem::status(path, ignored);
  if (status.type() == std::filesystem::file_type::not_found) {
    return Outcome::Failure(oocpc::result::kIoError, "there is no such file", path.string(),
                            "check the path");
  }
  if (std::filesystem::is_directory(status)) {
    return Outcome::Failure(oocpc::result::kScanNotRecognised, "this is a folder, not a scan",
                            path.string(), "name the scan files themselves");
  }
  const HRESULT code = OOCPCMapFile(path, bytes);
  return oocpc::Failed(code) ? Outcome::FromCode(code, path.string()) : Outcome::Success();
}

Outcome OpenScan(const std::filesystem::path& path, std::unique_ptr<ScanFile>& scan) {
  std::shared_ptr<const OOCPCByteSource> bytes;
  if (Outcome outcome = MapScan(path, bytes); !outcome.Ok()) return outcome;
  if (LazScan::IsCompressed(bytes->GetBytes())) {
    std::unique_ptr<LazScan> laz;
    Outcome outcome = LazScan::Open(path, std::move(bytes), laz);
    if (outcome.Ok()) scan = std::move(laz);
    return outcome;
  }
  std::unique_ptr<LasScan> las;
  Outcome outcome = LasScan::Open(path, std::move(bytes), las);
  if (outcome.Ok()) scan = std::move(las);
  return outcome;
}

}  // namespace tarnhost
