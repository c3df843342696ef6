// A repository in a folder: one mapped file per stream.
#include <OOCPointCloud/Repositories.h>
#include <OOCPointCloud/ResultCodes.h>

#include <utility>

OOCPCFolderRepository::OOCPCFolderRepository(std::filesystem::path folder)
    : folder_(std::move(folder)) {}

OOCPCFolderRepository::~OOCPCFolderRepository() = default;

HRESULT OOCPCFolderRepository::Open(const std::filesystem::path& folder,
                                    std::unique_ptr<OOCPCFolderRepository>& repository) {
  repository.reset();
  std::unique_ptr<OOCPCFolderRepository> opened(new OOCPCFolderRepository(folder));
  std::shared_ptr<const OOCPCByteSource> main;
  const HRESULT found = opened->FindSource({}, main);
  if (found == oocpc::result::kStreamMissing) return oocpc::result::kNotARepository;
  if (oocpc::Failed(found)) return found;
  repository = std::move(opened);
  return oocpc::result::kOk;
}

HRESULT OOCPCFolderRepository::OpenSource(std::string_view name,
                                          std::shared_ptr<const OOCPCByteSource>& source) {
  const char* mainName = OOCPCFolderStreamStore::kMainFileName;
  return OOCPCMapFile(folder_ / (name.empty() ? std::string_view(mainName) : name), source);
}
