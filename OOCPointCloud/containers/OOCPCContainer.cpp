// The base of all containers, and the empty container that serves as a search key.
#include <OOCPointCloud/OOCPCContainer.h>
#include <OOCPointCloud/ResultCodes.h>

OOCPCContainer::OOCPCContainer(OOCPCIDataRepository* repository,
                               oocpc::ContainerChunkType chunkType, std::string name)
    : repository_(repository), chunkType_(chunkType), name_(std::move(name)) {}

OOCPCContainer::~OOCPCContainer() = default;

OOCPCMetaDataContainer* OOCPCContainer::CreateLevelContainer(std::uint64_t /*level*/) const {
  return nullptr;
}

OOCPCDummyContainer::OOCPCDummyContainer(std::string_view name)
    : OOCPCContainer(nullptr, 0, std::string(name)) {}

OOCPCDummyContainer::OOCPCDummyContainer(oocpc::ContainerChunkType chunkType)
    : OOCPCContainer(nullptr, chunkType, std::string()) {}

HRESULT OOCPCDummyContainer::LoadFromChunk(const std::uint8_t* /*payload*/,
                                           std::uint32_t /*size*/) {
  return oocpc::result::kFail;
}

OOCPCContainer* OOCPCDummyContainer::Clone() const { return new OOCPCDummyContainer(*this); }
