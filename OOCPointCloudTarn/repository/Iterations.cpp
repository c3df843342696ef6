// Update iterations, their times and payloads, each read once.
#include <OOCPointCloud/ResultCodes.h>
#include <OOCPointCloudTarn/TarnOOCPointCloud.h>

HRESULT TarnOOCPointCloud::GetIteration(std::uint64_t iterationIndex,
                                        std::shared_ptr<OOCPCUpdateIteration>& iteration) {
  const auto known = iterationCache.find(iterationIndex);
  if (known != iterationCache.end()) {
    iteration = known->second;
    return oocpc::result::kOk;
  }
  auto read = std::make_shared<OOCPCUpdateIteration>();
  const HRESULT code = ReadIteration(iterationIndex, *read);
  if (oocpc::Failed(code)) return code;
  // Where another thread was faster, the cache keeps that thread's object and this caller gets its
  // own, which is equal.
  const auto [place, added] = iterationCache.insert({iterationIndex, read});
  iteration = added ? place->second : std::move(read);
  return code;
}

HRESULT TarnOOCPointCloud::ReadIteration(std::uint64_t iterationIndex,
                                         OOCPCUpdateIteration& iteration) const {
  if (updateIterationContainer == nullptr) return oocpc::result::kNoUpdateIterations;
  if (!IsReadable(*updateIterationContainer)) return oocpc::result::kNoRepository;
  const std::uint16_t recordBytes = updateIterationContainer->GetRecordSize();
  std::vector<std::uint8_t> record(recordBytes);
  const HRESULT code = updateIterationContainer->ReadUpdateIterations(
      iterationIndex, updateIterationContainer->GetIterationCount(), record.data());
  if (oocpc::Failed(code)) return code;
  // A record that was read is an iteration, whatever it says; what it does not say stays 0.
  static_cast<void>(
      iteration.Unstream(updateIterationContainer->GetStreamVersion(), record.data(), recordBytes));
  return code;
}

HRESULT TarnOOCPointCloud::GetPayload(std::uint64_t iterationIndex,
                                      OOCPCUpdItrAcceleratorPayload& payload) {
  std::shared_ptr<OOCPCUpdateIteration> iteration;
  const HRESULT code = GetIteration(iterationIndex, iteration);
  if (!oocpc::Failed(code)) iteration->GetAcceleratorPayload(payload);
  return code;
}

HRESULT TarnOOCPointCloud::GetLODPayload(std::uint64_t iterationIndex,
                                         OOCPCUpdItrLODPayload& payload) {
  std::shared_ptr<OOCPCUpdateIteration> iteration;
  const HRESULT code = GetIteration(iterationIndex, iteration);
  if (!oocpc::Failed(code)) iteration->GetLODPayload(payload);
  return code;
}

HRESULT TarnOOCPointCloud::GetTimePoint(std::uint64_t iterationIndex, std::uint64_t& timePoint) {
  std::shared_ptr<OOCPCUpdateIteration> iteration;
  const HRESULT code = GetIteration(iterationIndex, iteration);
  if (!oocpc::Failed(code)) timePoint = iteration->timePoint;
  return code;
}

HRESULT TarnOOCPointCloud::GetTimePoints(std::uint64_t first, std::uint64_t end,
                                         std::vector<unsigned long long>& timePoints) {
  HRESULT code = oocpc::result::kOk;
  for (std::uint64_t index = first; index < end; ++index) {
    std::uint64_t timePoint = 0;
    code = GetTimePoint(index, timePoint);
    if (oocpc::Failed(code)) return code;
    timePoints.push_back(timePoint);
  }
  return code;
}

std::uint64_t TarnOOCPointCloud::GetUpdateIterationCount() const {
  return updateIterationContainer == nullptr ? 0 : updateIterationContainer->GetIterationCount();
}
