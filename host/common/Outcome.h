// How the host layers report failure: a code, and the facts from which a message is made.
#pragma once

#include <OOCPointCloud/ResultCodes.h>

#include <string>
#include <utility>

namespace tarnhost {

/// Result of a fallible operation. A success carries nothing else.
struct [[nodiscard]] Outcome {
  HRESULT code = oocpc::result::kOk;
  std::string what;    ///< what went wrong, a sentence without final stop
  std::string where;   ///< file, stream, block or place in the text; may be empty
  std::string remedy;  ///< what the user can do; may be empty

  [[nodiscard]] bool Ok() const { return code >= 0; }

  static Outcome Success() { return {}; }
  static Outcome Failure(HRESULT code, std::string what, std::string where = {},
                         std::string remedy = {}) {
    return {code, std::move(what), std::move(where), std::move(remedy)};
  }
  /// A failure described by the code's own meaning and remedy.
  static Outcome FromCode(HRESULT code, std::string where = {}) {
    const oocpc::ResultCodeInfo* info = oocpc::FindResultCode(code);
    if (info == nullptr) return Failure(code, "unknown failure", std::move(where));
    return Failure(code, info->meaning, std::move(where), info->remedy);
  }
};

/// Told now and then how far a long operation is; answering false asks it to stop.
struct ProgressReport {
  const char* stage = "";   ///< "reading", "building", "writing", …
  std::uint64_t done = 0;   ///< points handled in this stage
  std::uint64_t total = 0;  ///< points in this stage
  const char* unit = "";    ///< of both, where they are no points: "bytes"
};

}  // namespace tarnhost
