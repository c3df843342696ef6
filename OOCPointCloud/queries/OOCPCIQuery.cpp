// The base of all queries: names of metadata, and the answers that stand where a query knows no
// better.
#include <OOCPointCloud/OOCPCIQuery.h>
#include <OOCPointCloud/ResultCodes.h>

#include <utility>

OOCPCIQuery::NodeAccelerator::~NodeAccelerator() = default;

OOCPCIQuery::OOCPCIQuery(std::vector<QelUnicodeString> metaDataNames, BitwiseOperator op)
    : metaDataNames_(std::move(metaDataNames)), operator_(op) {}

OOCPCIQuery::~OOCPCIQuery() = default;

HRESULT OOCPCIQuery::Reset() { return oocpc::result::kOk; }

OOCPCIQuery::Descriptor OOCPCIQuery::GetDescriptor() const { return kDefaultDescriptor; }

bool OOCPCIQuery::Satisfy(const char* /*record*/, unsigned /*size*/) const { return false; }

bool OOCPCIQuery::Satisfy(const char* const* /*records*/, const unsigned* /*sizes*/) const {
  return false;
}

OOCPCIQuery::ClassifyResult OOCPCIQuery::ClassifyNode(const double* /*min*/,
                                                      const double* /*max*/) const {
  return ClassifyResult::kSome;
}

OOCPCIQuery::ClassifyResult OOCPCIQuery::ClassifyNode(const OOCPointCloudNode& node) const {
  return ClassifyNode(node.box.min.data(), node.box.max.data());
}

OOCPCIQuery::NodeAccelerator* OOCPCIQuery::MakeNodeAccelerator(
    const OOCPointCloudNode& /*node*/) const {
  return nullptr;
}

QelUnicodeString OOCPCIQuery::GetMetaName(std::uint64_t index) const {
  if (index >= metaDataNames_.size()) return {};
  return metaDataNames_[static_cast<std::size_t>(index)];
}
