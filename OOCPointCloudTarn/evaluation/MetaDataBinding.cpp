#include "OOCPointCloudTarn/evaluation/MetaDataBinding.h"

#include <algorithm>

MetaDataBinding::MetaDataBinding(const TarnOOCPointCloud* pointCloud, const OOCPCIQuery* query,
                                 OOCPCIQuery::NodeAccelerator* accelerator,
                                 const RecordLayout& layout)
    : NodeAcceleratorHolder(accelerator) {
  if (query == nullptr || pointCloud == nullptr) return;
  const auto count = static_cast<std::uint32_t>(query->GetNumberOfMetadata());
  m_recordPointers.resize(count, nullptr);
  m_sizes.resize(count, 0);
  m_offsets.resize(count, 0);
  for (std::uint32_t i = 0; i < count; ++i) {
    const std::string name = query->GetMetaName(i).ConvertToChar();
    const auto found = std::find(layout.names.begin(), layout.names.end(), name);
    const auto j = static_cast<std::size_t>(found - layout.names.begin());
    if (found == layout.names.end() || j >= layout.sizes.size() || j >= layout.offsets.size()) {
      continue;
    }
    m_sizes[i] = layout.sizes[j];
    m_offsets[i] = layout.offsets[j];
  }
  if (count == 1) m_numberTest = tarn::NumberTest::Of(*query, m_offsets[0]);
}

MetaDataBinding::~MetaDataBinding() = default;
