// The facts of a repository or of a scan file as text and as JSON.
#pragma once

#include <string>

#include "host/cloud/Checksums.h"
#include "host/cloud/CloudFacts.h"

namespace tarnapp {

/// What to tell besides the summary.
struct InfoParts {
  bool schema = false;
  bool statistics = false;
  bool metadata = false;
};

void PrintInfoText(const std::string& repository, const tarnhost::CloudFacts& facts,
                   const InfoParts& parts);
/// The same of a scan file, with all that its header and its records say.
void PrintScanText(const std::string& scan, const tarnhost::CloudFacts& facts,
                   const InfoParts& parts);
void PrintScanJson(const std::string& scan, const tarnhost::CloudFacts& facts);
/// Checksums, without the name of what they are of, so that outputs can be compared.
void PrintChecksumsText(const tarnhost::Checksums& sums);
void PrintChecksumsJson(const tarnhost::Checksums& sums);
void PrintInfoJson(const std::string& repository, const tarnhost::CloudFacts& facts);

}  // namespace tarnapp
