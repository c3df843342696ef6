// Opens a scan by what it is, not by its name.
#include "host/formats/ScanFile.h"

#include "OOCPointCloud/repository/FileSystem.h"
#include "host/formats/LasScan.h"
#include "host/formats/laz/LazScan.h"

namespace tarnhost {

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
