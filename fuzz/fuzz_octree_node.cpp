// Feeds arbitrary bytes to the accelerator chunk and, as a stream of nodes, to the node record.
#include <OOCPointCloud/OOCPCAcceleratorContainer.h>

#include "FuzzSupport.h"

using namespace oocpcfuzz;
using Node = OOCPCOctreeAcceleratorNode;

namespace {

constexpr std::size_t kChecksumAt = 108;
constexpr std::size_t kBehindChecksum = 112;

void SealNode(std::uint8_t* record) {
  const std::uint32_t sum =
      oocpc::Crc32c({record + kBehindChecksum, Node::kBytes - kBehindChecksum},
                    oocpc::Crc32c({record, kChecksumAt}));
  std::memcpy(record + kChecksumAt, &sum, sizeof(sum));
}

void ReadAll(const Bytes& stream) {
  OneStreamRepository repository(stream);
  OOCPCAcceleratorContainer container(oocpc::chunk_type::kAccelerator1, &repository);
  const std::uint64_t count = stream.size() / Node::kBytes;
  for (std::uint64_t index = 0; index < count; ++index) {
    Node node;
    const HRESULT code = container.ReadNode(index, &node);
    Require(IsOneOf(
        code, {oocpc::result::kOk, oocpc::result::kBadRecord, oocpc::result::kChecksumMismatch}));
    if (code != oocpc::result::kOk) continue;
    for (const std::uint64_t child : node.children)
      Require(child == Node::kNoChild || child < index);
    Bytes again;
    node.Encode(again);
    Require(std::memcmp(again.data(), stream.data() + index * Node::kBytes, Node::kBytes) == 0);
  }
  Node node;
  Require(container.ReadNode(count, &node) == oocpc::result::kIndexOutOfRange);
  Require(container.ReadNode(~std::uint64_t{0}, &node) == oocpc::result::kIndexOutOfRange);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  DecodeAndEncodeChunk<OOCPCAcceleratorDescription>(data, size);
  Bytes stream(data, data + size);
  ReadAll(stream);
  for (std::size_t at = 0; at + Node::kBytes <= size; at += Node::kBytes) {
    SealNode(stream.data() + at);
  }
  ReadAll(stream);
  return 0;
}
