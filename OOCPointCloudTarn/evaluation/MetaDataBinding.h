// Where the metadata of one query leaf lie in the host's records.
#pragma once

#include <OOCPointCloud/OOCPCBooleanAST.h>

#include <string>
#include <vector>

#include "OOCPointCloudTarn/evaluation/NumberTest.h"

class TarnOOCPointCloud;

/// A record's layout: index-parallel names, sizes and offsets, the latter two in bytes.
struct RecordLayout {
  const std::vector<std::string>& names;
  const std::vector<unsigned>& sizes;
  const std::vector<unsigned>& offsets;
};

/// The evaluator's binding of a leaf. The three vectors have one entry for each metadata of the
/// leaf's query, in the query's order, and none at all when there was no query or no point cloud.
class MetaDataBinding final : public NodeAcceleratorHolder {
 public:
  /// Takes the accelerator over. A name that the layout lacks gets size 0 and offset 0.
  MetaDataBinding(const TarnOOCPointCloud* pointCloud, const OOCPCIQuery* query,
                  OOCPCIQuery::NodeAccelerator* accelerator, const RecordLayout& layout);
  ~MetaDataBinding() override;

  std::vector<const char*> m_recordPointers;  ///< scratch: set anew for each point
  std::vector<unsigned> m_sizes;              ///< in bytes
  std::vector<unsigned> m_offsets;            ///< in bytes from the start of a record
  tarn::NumberTest m_numberTest;              ///< of the query, when it is one
};
