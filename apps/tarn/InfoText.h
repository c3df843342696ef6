// The facts of a repository as text and as JSON.
#pragma once

#include <string>

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
void PrintInfoJson(const std::string& repository, const tarnhost::CloudFacts& facts);

}  // namespace tarnapp
