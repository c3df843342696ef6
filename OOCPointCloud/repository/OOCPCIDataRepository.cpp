// The part of a repository that does not depend on where its streams are: the dictionary.
#include <OOCPointCloud/OOCPCIDataRepository.h>
#include <OOCPointCloud/OOCPCMetaDataContainer.h>

#include <utility>

OOCPCIDataRepository::OOCPCIDataRepository() = default;
OOCPCIDataRepository::~OOCPCIDataRepository() = default;

void OOCPCIDataRepository::AdoptStringRepository(
    std::unique_ptr<OOCPCStringRepositoryContainer> strings) {
  stringRepository_ = std::move(strings);
}

OOCPCStringRepositoryContainer* OOCPCIDataRepository::GetStringRepository() const {
  return stringRepository_.get();
}
