// What becomes of each type of chunk.
#include "OOCPointCloudTarn/repository/ChunkSorter.h"

#include <OOCPointCloud/OOCPCAcceleratorContainer.h>
#include <OOCPointCloud/OOCPCLODContainer.h>
#include <OOCPointCloud/OOCPCUpdateIteration.h>
#include <OOCPointCloud/ResultCodes.h>

#include <algorithm>
#include <cstring>

namespace chunk_type = oocpc::chunk_type;

namespace {

// Takes the value from the first chunk of its kind. A payload that is too short is taken as far as
// it goes, the rest is zero: an old writer's shorter value then still means the same.
template <typename Value>
void TakeFirstValue(const OOCIndexChunk& chunk, bool& seen, Value* value) {
  if (!seen && value != nullptr && !chunk.IsEmpty()) {
    std::memcpy(value->data(), chunk.payload.data(),
                std::min(sizeof(*value), chunk.payload.size()));
  }
  seen = true;
}

void Append(OOCIndexChunk&& chunk, std::vector<OOCIndexChunk>* list) {
  if (list != nullptr) list->push_back(std::move(chunk));
}

}  // namespace

ChunkSorter::ChunkSorter(const SortedChunks& out) : out_(out) {
  if (out_.value16 != nullptr) out_.value16->fill(0);
  if (out_.mortonSeed != nullptr) out_.mortonSeed->fill(0);
}

void ChunkSorter::Take(OOCIndexChunk&& chunk) {
  switch (chunk.type) {
    case chunk_type::kStaticMetaData:
    case chunk_type::kStaticPositions:
    case chunk_type::kReservedDirect:
      return Append(std::move(chunk), out_.selected);
    case chunk_type::kAccelerator1:
    case chunk_type::kAccelerator2:
    case chunk_type::kAccelerator3:
    case chunk_type::kAccelerator4:
    case chunk_type::kAccelerator5:
      status_ = accelerator_.Enter<OOCPCAcceleratorContainer>(std::move(chunk), out_.other);
      return;
    case chunk_type::kValue16:
      return TakeFirstValue(chunk, value16Seen_, out_.value16);
    case chunk_type::kStringRepository:
      return firstWins_.EnterFirstWins(std::move(chunk), out_.other);
    case chunk_type::kUpdateIterations:
      status_ =
          updateIterations_.Enter<OOCPCUpdateIterationContainer>(std::move(chunk), out_.other);
      return;
    case chunk_type::kMortonSeed:
      return TakeFirstValue(chunk, mortonSeedSeen_, out_.mortonSeed);
    case chunk_type::kLevelOfDetail:
      status_ = levelOfDetail_.Enter<OOCPCLODContainer>(std::move(chunk), out_.other);
      return;
    case chunk_type::kRepositoryInformation:
      return TakeRepositoryInformation(chunk);
    default:
      return Append(std::move(chunk), out_.other);
  }
}

void ChunkSorter::TakeRepositoryInformation(const OOCIndexChunk& chunk) {
  if (informationSeen_) {
    status_ = oocpc::result::kSecondRepositoryInformation;
    return;
  }
  informationSeen_ = true;
  if (out_.information != nullptr) {
    status_ = out_.information->LoadFromChunk(chunk.payload.data(), chunk.size);
  }
}

HRESULT ChunkSorter::Finish() {
  if (accelerator_.GetKept().IsEmpty() && !HasFailed()) status_ = oocpc::result::kNoAccelerator;
  if (out_.selected != nullptr) {
    // The accelerator has its place even when there is none.
    out_.selected->push_back(accelerator_.TakeKept());
    for (ChunkCompetition* const kind : {&firstWins_, &updateIterations_, &levelOfDetail_}) {
      if (!kind->GetKept().IsEmpty()) out_.selected->push_back(kind->TakeKept());
    }
  }
  return status_;
}
