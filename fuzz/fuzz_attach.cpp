// Attaches a repository of arbitrary bytes and then calls every operation that reads: nothing may
// crash, leak or read out of bounds, whatever the streams say.
//
// The input: two bytes with the length of the main stream, the main stream, and the bytes that all
// named streams hold. The main stream is tried as it is and with every chunk's payload sealed anew,
// so that altered payloads get past their checksums.
#include <OOCPointCloudTarn/TarnOOCPointCloud.h>

#include "FuzzSupport.h"

using namespace oocpcfuzz;

namespace {

class TwoStreamsRepository final : public OOCPCIDataRepository {
 public:
  TwoStreamsRepository(Bytes main, Bytes named)
      : main_(std::move(main)), named_(std::move(named)) {}
  [[nodiscard]] OOCPCIInputStream* CreateInputStream() override { return new OneStream(main_); }
  [[nodiscard]] OOCPCIInputStream* CreateInputStream(std::string_view /*name*/) override {
    return new OneStream(named_);
  }
  [[nodiscard]] HRESULT SetRepositoryInformation(
      const OOCPCRepositoryInformation* information) override {
    information_ = *information;
    return oocpc::result::kOk;
  }
  [[nodiscard]] const OOCPCRepositoryInformation& GetRepositoryInformation() const override {
    return information_;
  }

 private:
  Bytes main_;
  Bytes named_;
  OOCPCRepositoryInformation information_;
};

Bytes WithSealedChunks(Bytes main) {
  constexpr std::size_t kHead = OOCIndexChunk::kHeadBytes;
  for (std::size_t at = OOCPointCloudFileHeader::kBytes;
       at <= main.size() && main.size() - at >= kHead;) {
    const auto size = oocpc::LoadLittleEndian<std::uint32_t>(main.data() + at + 4);
    at += kHead;
    if (size > main.size() - at) break;
    const auto begin = main.begin() + static_cast<std::ptrdiff_t>(at);
    if (size >= 4) {
      const Bytes sealed = SealedAnew(Bytes(begin, begin + static_cast<std::ptrdiff_t>(size)));
      std::copy(sealed.begin(), sealed.end(), begin);
    }
    at += size;
  }
  return main;
}

void ReadContainers(TarnOOCPointCloud& cloud) {
  for (const std::string& name : cloud.GetMetaDataNames()) {
    OOCPCMetaDataContainer* const container = cloud.GetMetaDataContainer(name.c_str());
    Require(container != nullptr && cloud.GetContainer(name.c_str()) == container);
    OOCPCMetaDataContainer* clone = nullptr;
    Require(cloud.CloneContainer(name, clone) == oocpc::result::kOk && clone != nullptr);
    std::uint64_t blocks = 0;
    std::vector<std::uint8_t> values;
    if (clone->GetBlockCount(blocks) == oocpc::result::kOk && blocks > 0) {
      static_cast<void>(clone->ReadBlock(0, values));
      static_cast<void>(clone->ReadBlock(blocks - 1, values));
    }
    Require(cloud.IsRegistered(name.c_str()));
    Require(cloud.GetMetaDataSize(name.c_str()) == container->GetDataSize());
    delete clone;
  }
}

void ReadIterations(TarnOOCPointCloud& cloud) {
  const std::uint64_t count = cloud.GetUpdateIterationCount();
  for (const std::uint64_t i : {std::uint64_t{0}, count / 2, count - 1, count}) {
    std::uint64_t time = 0;
    static_cast<void>(cloud.GetTimePoint(i, time));
    OOCPCOctreeAcceleratorNode node;
    static_cast<void>(cloud.GetOOCRootNode(i, node));
    static_cast<void>(cloud.GetOOCNode(i, node));
    double origin[3];
    const HRESULT code = cloud.GetOrigin(i, origin);
    Require(IsOneOf(code, {oocpc::result::kOk, oocpc::result::kFail}));
  }
  std::vector<unsigned long long> times;
  static_cast<void>(cloud.GetTimePoints(0, std::min<std::uint64_t>(count, 100), times));
}

void ReadEverything(TarnOOCPointCloud& cloud) {
  ReadContainers(cloud);
  ReadIterations(cloud);
}

void Attach(const Bytes& main, const Bytes& named) {
  TarnOOCPointCloud copy;
  {
    TarnOOCPointCloud cloud;
    const HRESULT code = cloud.AttachDataRepository(new TwoStreamsRepository(main, named));
    Require(code <= oocpc::result::kNothingDone);
    ReadEverything(cloud);
    copy = cloud;
    Require(cloud.AttachDataRepository(nullptr) == oocpc::result::kNothingDone);
    ReadEverything(cloud);
  }
  ReadEverything(copy);
  static_cast<void>(copy.AttachDataRepository(new TwoStreamsRepository(named, main)));
  ReadEverything(copy);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  const std::size_t length = std::min<std::size_t>(data[0] + data[1] * 256u, size - 2);
  const Bytes main(data + 2, data + 2 + length);
  const Bytes named(data + 2 + length, data + size);
  Attach(main, named);
  Attach(WithSealedChunks(main), named);
  return 0;
}
