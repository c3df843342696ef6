// What input streams do unless they know better.
#include <OOCPointCloud/OOCPCIInputStream.h>

OOCPCIInputStream::~OOCPCIInputStream() = default;

const std::uint8_t* OOCPCIInputStream::View(std::uint64_t /*offset*/,
                                            std::uint64_t /*length*/) const {
  return nullptr;
}
