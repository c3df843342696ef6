// The container registry and the metadata catalogue.
#include <OOCPointCloud/ResultCodes.h>
#include <OOCPointCloudTarn/TarnOOCPointCloud.h>

#include <algorithm>

namespace {

constexpr oocpc::ContainerChunkType kLowByte = 0xFF;
constexpr oocpc::ContainerChunkType kHighByte = 0xFF00;

// Appends the names of the containers that are equal to a key of the type `bits`, where types count
// as equal when they share a bit and the lower type comes first otherwise.
template <typename Containers>
void AppendNamesOfTypes(const Containers& containers, oocpc::ContainerChunkType bits,
                        std::list<std::string>& names) {
  const auto isBefore = [bits](const OOCPCContainer* container) {
    const oocpc::ContainerChunkType type = container->GetChunkType();
    return (type & bits) == 0 && type < bits;
  };
  auto at = std::partition_point(containers.begin(), containers.end(), isBefore);
  for (; at != containers.end() && ((*at)->GetChunkType() & bits) != 0; ++at) {
    names.emplace_back((*at)->GetName());
  }
}

}  // namespace

HRESULT TarnOOCPointCloud::AddContainer(OOCPCContainer* container) {
  if (container == nullptr) return oocpc::result::kNullContainer;
  if (containersByName.contains(container)) {
    Discard(container);
    return oocpc::result::kNameRegistered;
  }
  if (ownedContainers.contains(container)) {
    Discard(container);
    return oocpc::result::kDuplicateContainer;
  }
  ownership.Own(container);
  ownedContainers.insert(container);
  if (!containersByName.insert(container).second) {
    ownedContainers.erase(container);
    ownership.Release(container);
    return oocpc::result::kNameRegistered;
  }
  return oocpc::result::kOk;
}

void TarnOOCPointCloud::Discard(OOCPCContainer* container) const {
  if (!ownership.Owns(container)) delete container;
}

OOCPCContainer* TarnOOCPointCloud::GetContainer(const char* name) const {
  if (name == nullptr) return nullptr;
  OOCPCDummyContainer key{std::string_view(name)};
  const auto found = containersByName.find(&key);
  return found == containersByName.end() ? nullptr : *found;
}

OOCPCMetaDataContainer* TarnOOCPointCloud::GetMetaDataContainer(const char* name) const {
  OOCPCContainer* const container = GetContainer(name);
  if (container == nullptr || !container->IsMetaData()) return nullptr;
  return dynamic_cast<OOCPCMetaDataContainer*>(container);
}

std::list<std::string> TarnOOCPointCloud::GetMetaDataNames() const {
  std::list<std::string> names;
  AppendNamesOfTypes(ownedContainers, kLowByte, names);
  AppendNamesOfTypes(ownedContainers, kHighByte, names);
  return names;
}

std::uint32_t TarnOOCPointCloud::GetMetaDataSize(const char* name) const {
  return metaDataInfo.GetMetaDataSize(name);
}

bool TarnOOCPointCloud::IsRegistered(const char* name) const {
  return metaDataInfo.IsRegistered(name);
}

HRESULT TarnOOCPointCloud::CloneContainer(const std::string& name,
                                          OOCPCMetaDataContainer*& container) const {
  const OOCPCMetaDataContainer* const found = GetMetaDataContainer(name.c_str());
  if (found == nullptr) return oocpc::result::kContainerNotCloned;
  container = found->Clone();
  return oocpc::result::kOk;
}
