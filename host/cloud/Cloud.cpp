// A repository opened by the program: the point cloud, its columns and its sources.
#include "host/cloud/Cloud.h"

#include <algorithm>
#include <utility>

#include "OOCPointCloud/repository/FileSystem.h"
#include "OOCPointCloud/support/Bytes.h"
#include "host/cloud/NodeWalk.h"
#include "host/common/ImportFolders.h"

namespace tarnhost {

namespace result = oocpc::result;

namespace {

constexpr const char* kPositionName = "DEF_POSITION";

/// A failure to attach, with the stream that it is about.
Outcome AttachFailure(HRESULT code, const std::filesystem::path& place, const std::string& stream) {
  Outcome outcome = Outcome::FromCode(code, place.string());
  if (!stream.empty()) {
    outcome.what += ": stream " + stream;
    outcome.where = (place / stream).string();
  }
  return outcome;
}

}  // namespace

Outcome ExplainNoRepository(HRESULT code, const std::filesystem::path& folder) {
  using oocpc::detail::FileKind;
  if (oocpc::detail::GetFileKind(folder) == FileKind::kFile) {
    return Outcome::Failure(result::kNotARepository, "this is a file, not a repository",
                            folder.string(), "make a repository of a scan with tarn import first");
  }
  const std::filesystem::path copy = folder / OOCPCFolderStreamStore::kMainCopyFileName;
  if (code == result::kNotARepository && oocpc::detail::GetFileKind(copy) == FileKind::kFile) {
    return Outcome::Failure(code, "the main stream of the repository is missing", folder.string(),
                            "tarn repair brings it back from its copy");
  }
  if (code == result::kNotARepository && !FindSetAside(folder).empty()) {
    return Outcome::Failure(code, "an import that was to replace this repository was cut short",
                            folder.string(), "tarn repair puts the repository back");
  }
  return Outcome::FromCode(code, folder.string());
}

Outcome Cloud::Open(const std::filesystem::path& folder, std::unique_ptr<Cloud>& cloud) {
  std::unique_ptr<OOCPCFolderRepository> repository;
  const HRESULT code = OOCPCFolderRepository::Open(folder, repository);
  if (oocpc::Failed(code)) return ExplainNoRepository(code, folder);
  return Attach(std::move(repository), folder, cloud);
}

Outcome Cloud::Attach(std::unique_ptr<OOCPCStreamRepository> repository,
                      std::filesystem::path place, std::unique_ptr<Cloud>& cloud) {
  std::unique_ptr<Cloud> opened(new Cloud(std::move(place)));
  Outcome outcome = opened->Load(std::move(repository));
  if (outcome.Ok()) cloud = std::move(opened);
  return outcome;
}

Outcome Cloud::Load(std::unique_ptr<OOCPCStreamRepository> repository) {
  const OOCPCStreamRepository* borrowed = repository.get();
  const HRESULT code = pointCloud_.AttachDataRepository(repository.release());
  if (code != result::kOk) {
    return AttachFailure(oocpc::Failed(code) ? code : result::kBadHeader, path_,
                         borrowed->GetFaultyStream());
  }
  if (Outcome outcome = LoadColumns(); !outcome.Ok()) return outcome;
  return LoadSources();
}

Outcome Cloud::LoadColumns() {
  const auto* positions = dynamic_cast<const OOCPCStaticPositionsContainer*>(
      pointCloud_.GetMetaDataContainer(kPositionName));
  if (positions == nullptr) return Outcome::FromCode(result::kNoPositions, path_.string());
  transform_ = {positions->GetDescription().scale, positions->GetDescription().offset};
  positionsColumnId_ = positions->GetDescription().columnId;
  std::vector<const OOCPCStaticMetaDataContainer*> found;
  for (const std::string& name : pointCloud_.GetMetaDataNames()) {
    const auto* container = dynamic_cast<const OOCPCStaticMetaDataContainer*>(
        pointCloud_.GetMetaDataContainer(name.c_str()));
    if (container != nullptr) found.push_back(container);
  }
  std::ranges::sort(found, {}, [](const OOCPCStaticMetaDataContainer* container) {
    return container->GetDescription().columnId;
  });
  for (const auto* container : found) {
    const OOCPCMetaDataDescription& description = container->GetDescription();
    columns_.push_back(
        {description.name, description.type, description.description, description.columnId});
  }
  return Outcome::Success();
}

Outcome Cloud::LoadSources() {
  const std::string name = FindSourceStream(GetInformation());
  sourceStream_.reset(pointCloud_.GetDataRepository()->CreateInputStream(name));
  if (sourceStream_ == nullptr) return AttachFailure(result::kStreamMissing, path_, name);
  const std::uint64_t length = sourceStream_->GetLength();
  const std::uint8_t* view = sourceStream_->View(0, length);
  if (view == nullptr && length > 0) {
    sourceBytes_.resize(static_cast<std::size_t>(length));
    if (sourceStream_->Read(sourceBytes_.data(), length) != length) {
      return AttachFailure(result::kStreamShort, path_, name);
    }
    view = sourceBytes_.data();
  }
  const HRESULT code = DecodeSourceRecords({view, static_cast<std::size_t>(length)}, sources_);
  return oocpc::Failed(code) ? AttachFailure(code, path_, name) : Outcome::Success();
}

Outcome Cloud::KeepSourcesOf(std::uint64_t iteration) {
  OOCPCUpdateIteration record;
  if (Outcome outcome = ReadIteration(iteration, record); !outcome.Ok()) return outcome;
  if (iteration + 1 == GetIterationCount()) return Outcome::Success();
  std::uint64_t left = record.pointCount;
  auto later = sources_.begin();
  for (; later != sources_.end() && later->pointCount <= left; ++later) left -= later->pointCount;
  sources_.erase(later, sources_.end());
  return Outcome::Success();
}

const OOCPCRepositoryInformation& Cloud::GetInformation() const {
  return pointCloud_.GetDataRepository()->GetRepositoryInformation();
}

const oocpc::Vector3d& Cloud::GetFrameOffset() const { return GetInformation().localFrameOffset; }

std::uint64_t Cloud::GetIterationCount() const { return pointCloud_.GetUpdateIterationCount(); }

Outcome Cloud::ReadIteration(std::uint64_t iteration, OOCPCUpdateIteration& record) const {
  if (iteration >= GetIterationCount()) {
    return Outcome::Failure(
        result::kIndexOutOfRange, "there is no iteration " + std::to_string(iteration),
        path_.string(),
        GetIterationCount() == 0
            ? "the repository holds none"
            : "iterations 0 to " + std::to_string(GetIterationCount() - 1) + " are there");
  }
  const char* name = OOCPCUpdateIterationContainer::kStreamName;
  const std::unique_ptr<OOCPCIInputStream> stream(
      pointCloud_.GetDataRepository()->CreateInputStream(name));
  if (stream == nullptr) return AttachFailure(result::kStreamMissing, path_, name);
  std::array<std::uint8_t, OOCPCUpdateIteration::kRecordBytes> bytes;
  HRESULT code = stream->SetPosition(iteration * bytes.size());
  if (!oocpc::Failed(code) && stream->Read(bytes.data(), bytes.size()) != bytes.size()) {
    code = result::kStreamShort;
  }
  if (!oocpc::Failed(code)) {
    code = record.Unstream(OOCPCUpdateIteration::kStreamVersion, bytes.data(), bytes.size());
  }
  return oocpc::Failed(code) ? AttachFailure(code, path_, name) : Outcome::Success();
}

Outcome Cloud::FindNewestIteration(std::uint64_t& iteration) const {
  if (GetIterationCount() == 0) {
    return Outcome::FromCode(result::kNoUpdateIterations, path_.string());
  }
  iteration = GetIterationCount() - 1;
  return Outcome::Success();
}

Outcome Cloud::FindIterationAt(std::uint64_t time, std::uint64_t& iteration) const {
  // Time points ascend. A record that cannot be read matters only where it may be the one.
  Outcome damage;
  for (std::uint64_t i = GetIterationCount(); i-- > 0;) {
    OOCPCUpdateIteration record;
    Outcome read = ReadIteration(i, record);
    if (!read.Ok()) {
      read.what += ", iteration " + std::to_string(i);
      damage = std::move(read);
    } else if (record.timePoint > time) {
      damage = Outcome::Success();
    } else if (damage.Ok()) {
      iteration = i;
      return Outcome::Success();
    } else {
      break;
    }
  }
  if (!damage.Ok()) return damage;
  return Outcome::Failure(result::kIndexOutOfRange,
                          "the cloud has no iteration of that time or before", path_.string(),
                          "tarn iterations tells the time points");
}

Outcome Cloud::ReadRoot(std::uint64_t iteration, OOCPCOctreeAcceleratorNode& root) {
  OOCPCUpdateIteration record;
  if (Outcome outcome = ReadIteration(iteration, record); !outcome.Ok()) return outcome;
  const HRESULT code = pointCloud_.GetOOCRootNode(iteration, root);
  return oocpc::Failed(code) ? AttachFailure(code, path_, OOCPCAcceleratorContainer::kStreamName)
                             : Outcome::Success();
}

Outcome Cloud::ReadNode(std::uint64_t index, OOCPCOctreeAcceleratorNode& node) const {
  OOCPCOctreeAcceleratorNode read;
  HRESULT code = pointCloud_.GetOOCNode(index, read);
  if (!oocpc::Failed(code) && read.level > kDeepestLevel) code = result::kBadRecord;
  if (!oocpc::Failed(code)) {
    node = read;
    return Outcome::Success();
  }
  Outcome outcome = AttachFailure(code, path_, OOCPCAcceleratorContainer::kStreamName);
  outcome.what += ", node " + std::to_string(index);
  return outcome;
}

Outcome Cloud::WalkNodes(std::uint64_t iteration,
                         const std::function<Descend(const OOCPCOctreeAcceleratorNode&)>& visit) {
  NodeWalk walk(*this);
  if (Outcome outcome = walk.Start(iteration); !outcome.Ok()) return outcome;
  while (true) {
    OOCPCOctreeAcceleratorNode node;
    bool hasNode = false;
    if (Outcome outcome = walk.Next(node, hasNode); !outcome.Ok()) return outcome;
    if (!hasNode) return Outcome::Success();
    const Descend descend = visit(node);
    if (descend == Descend::kStop) return Outcome::Success();
    if (descend == Descend::kPastSubtree) walk.SkipSubtree();
  }
}

Outcome Cloud::ReadStream(const std::string& name, std::vector<std::uint8_t>& bytes) const {
  const std::unique_ptr<OOCPCIInputStream> stream(
      pointCloud_.GetDataRepository()->CreateInputStream(name));
  if (stream == nullptr) return AttachFailure(result::kStreamMissing, path_, name);
  bytes.resize(static_cast<std::size_t>(stream->GetLength()));
  if (stream->Read(bytes.data(), bytes.size()) != bytes.size()) {
    return AttachFailure(result::kStreamShort, path_, name);
  }
  return Outcome::Success();
}

}  // namespace tarnhost
