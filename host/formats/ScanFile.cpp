// Opens a scan by what it is, not by its name.
#include "host/formats/ScanFile.h"

#include <cstring>
#include <string_view>

#include "OOCPointCloud/repository/FileSystem.h"
#include "host/formats/LasScan.h"
#include "host/formats/e57/E57Decoder.h"
#include "host/formats/e57/E57Pages.h"
#include "host/formats/laz/LazScan.h"
#include "host/formats/pcd/PcdDecoder.h"
#include "host/formats/pcd/PcdHeader.h"
#include "host/formats/ply/PlyDecoder.h"
#include "host/formats/ply/PlyHeader.h"
#include "host/formats/text/TextDecoder.h"

namespace tarnhost {

namespace {

bool IsLas(std::span<const std::uint8_t> file) {
  return file.size() >= 4 && std::memcmp(file.data(), "LASF", 4) == 0;
}

/// Text files are left out but for those that hold points by their ending: others may be anything.
constexpr std::array<std::string_view, 7> kEndings{".las", ".laz", ".ply", ".pcd",
                                                   ".e57", ".xyz", ".pts"};

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
  if (oocpc::detail::GetFileKind(path) == oocpc::detail::FileKind::kFolder) {
    return Outcome::Failure(oocpc::result::kScanNotRecognised, "this is a folder, not a scan",
                            path.string(), "name the scan files themselves");
  }
  const HRESULT code = OOCPCMapFile(path, bytes);
  if (code == oocpc::result::kStreamMissing) {
    return Outcome::Failure(oocpc::result::kIoError, "there is no such file", path.string(),
                            "check the path");
  }
  return oocpc::Failed(code) ? Outcome::FromCode(code, path.string()) : Outcome::Success();
}

Outcome OpenScan(const std::filesystem::path& path, const ScanOptions& options,
                 std::unique_ptr<ScanFile>& scan) {
  std::shared_ptr<const OOCPCByteSource> bytes;
  if (Outcome outcome = MapScan(path, bytes); !outcome.Ok()) return outcome;
  if (bytes->GetBytes().empty()) {
    return Outcome::Failure(oocpc::result::kScanNotRecognised, "the file is empty", path.string(),
                            "copy or download it again");
  }
  if (E57Pages::IsE57(bytes->GetBytes())) return OpenE57(path, std::move(bytes), options, scan);
  const bool isLas = IsLas(bytes->GetBytes());
  if (!isLas && (!options.columns.empty() || HasTextEnding(path)) && !IsPly(bytes->GetBytes()) &&
      !IsPcd(bytes->GetBytes())) {
    return OpenText(path, std::move(bytes), options, scan);
  }
  if (IsPly(bytes->GetBytes())) return OpenPly(path, std::move(bytes), options, scan);
  if (IsPcd(bytes->GetBytes())) return OpenPcd(path, std::move(bytes), options, scan);
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
