// Construction of the evaluator, and the steps before the first record: which metadata a tree
// reads, where they lie in a record, and binding the leaves to that.
#include <OOCPointCloud/ResultCodes.h>
#include <OOCPointCloudTarn/TarnOOCBooleanExpressionEvaluator.h>

#include <algorithm>
#include <utility>

#include "OOCPointCloudTarn/evaluation/MetaDataBinding.h"
#include "OOCPointCloudTarn/evaluation/WalkLeaves.h"

TarnOOCBooleanExpressionEvaluator::TarnOOCBooleanExpressionEvaluator(TarnOOCPointCloud* cloud,
                                                                     OOCPCBooleanAST* ast)
    : m_pointCloud(cloud), m_ast(ast) {}

TarnOOCBooleanExpressionEvaluator::TarnOOCBooleanExpressionEvaluator(
    const TarnOOCBooleanExpressionEvaluator& other) = default;

TarnOOCBooleanExpressionEvaluator& TarnOOCBooleanExpressionEvaluator::operator=(
    const TarnOOCBooleanExpressionEvaluator& other) = default;

TarnOOCBooleanExpressionEvaluator::~TarnOOCBooleanExpressionEvaluator() {
  m_pointCloud = nullptr;
  m_ast = nullptr;
}

HRESULT TarnOOCBooleanExpressionEvaluator::CompleteMetaDatas(OOCPCBooleanAST* node) {
  const auto collect = [this](const OOCPCBooleanASTQueryVal& /*leaf*/, const OOCPCIQuery& query) {
    const auto count = static_cast<std::uint32_t>(query.GetNumberOfMetadata());
    for (std::uint32_t i = 0; i < count; ++i) {
      std::string name = query.GetMetaName(i).ConvertToChar();
      const auto found = std::find(m_metaDataNames.begin(), m_metaDataNames.end(), name);
      if (found == m_metaDataNames.end()) m_metaDataNames.push_back(std::move(name));
    }
    return oocpc::result::kOk;
  };
  return tarn::WalkLeaves(node, tarn::ChildOrder::kLeftFirst, collect);
}

void TarnOOCBooleanExpressionEvaluator::GetMetaDatas(std::vector<std::string>& names) const {
  names = m_metaDataNames;
}

HRESULT TarnOOCBooleanExpressionEvaluator::CompleteBufferMetaDatas(std::vector<std::string> names,
                                                                   std::vector<unsigned> sizes,
                                                                   std::vector<unsigned> offsets) {
  if (names.size() != sizes.size() || names.size() != offsets.size()) return oocpc::result::kFail;
  m_bufferMetaDataNames = std::move(names);
  m_bufferMetaDataSizes = std::move(sizes);
  m_bufferMetaDataOffsets = std::move(offsets);
  return oocpc::result::kOk;
}

HRESULT TarnOOCBooleanExpressionEvaluator::InitializeQueries() { return InitializeQueries(m_ast); }

HRESULT TarnOOCBooleanExpressionEvaluator::InitializeQueries(OOCPCBooleanAST* node) {
  const RecordLayout layout{m_bufferMetaDataNames, m_bufferMetaDataSizes, m_bufferMetaDataOffsets};
  const auto bind = [this, &layout](OOCPCBooleanASTQueryVal& leaf, const OOCPCIQuery& query) {
    leaf.SetBinding(std::make_unique<MetaDataBinding>(m_pointCloud, &query, nullptr, layout));
    return oocpc::result::kOk;
  };
  return tarn::WalkLeaves(node, tarn::ChildOrder::kRightFirst, bind);
}
