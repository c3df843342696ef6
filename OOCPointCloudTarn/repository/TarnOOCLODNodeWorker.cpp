// Loads the nodes of a level-of-detail node cache in the background.
#include "OOCPointCloudTarn/repository/TarnOOCLODNodeWorker.h"

#include <OOCPointCloud/ResultCodes.h>

#include <system_error>
#include <utility>

TarnOOCLODNodeWorker::TarnOOCLODNodeWorker(TarnOOCLODNodeCache& loading,
                                           const OOCPCLODHeader& header,
                                           std::unique_ptr<OOCPCIInputStream> lod,
                                           std::unique_ptr<OOCPCIInputStream> nodes,
                                           std::unique_ptr<OOCPCMetaDataContainer> positions,
                                           std::unique_ptr<OOCPCMetaDataContainer> colors)
    : cache(&loading),
      lodStream(std::move(lod)),
      nodeStream(std::move(nodes)),
      positionContainer(std::move(positions)),
      colorContainer(std::move(colors)),
      headerValue(header.levelCount),
      recordCount(header.recordCount),
      version(header.version) {}

TarnOOCLODNodeWorker::~TarnOOCLODNodeWorker() {
  if (!thread.joinable()) return;
  stopRequested = true;
  thread.join();
}

void TarnOOCLODNodeWorker::Start() {
  thread = std::thread([this] { Run(); });
}

void TarnOOCLODNodeWorker::Join() {
  if (!thread.joinable()) return;
  if (thread.get_id() == std::this_thread::get_id()) {
    throw std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur));
  }
  thread.join();
}

void TarnOOCLODNodeWorker::Run() {
  // What memory that runs out, or the host's stream, may throw must not end the process.
  try {
    ReadRecords();
  } catch (...) {
    status.store(oocpc::result::kFail, std::memory_order_release);
  }
}

void TarnOOCLODNodeWorker::ReadRecords() {
  for (std::uint32_t record = 1; record < recordCount && !stopRequested; ++record) {
    const HRESULT code = cache->ReadNodeRecord(*nodeStream, &mutex);
    if (oocpc::Failed(code)) {
      status.store(code, std::memory_order_release);
      return;
    }
  }
  status.store(kFinished, std::memory_order_release);
}
