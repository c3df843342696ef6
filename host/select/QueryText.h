// Reads query texts for people: what the clauses say and where, or where a text stops making sense.
#pragma once

#include <OOCPointCloud/Types.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tarnhost {

enum class ClauseKind : std::uint8_t {
  kSphere,  ///< "#within{type=sphere}" and "#distance"
  kBox,     ///< "box" and "oobb"
  k2DBox,
  kFrustum,
  kMesh,
  kAllPoints,
  kNoPoints,
  kMetaData,
};

/// Value type that a metadata clause names; "int64" is read as "int".
enum class ClauseType : std::uint8_t { kInt, kUInt8, kFloat, kDouble, kString };

/// The word of the query language for a type: "int", "uint8_t", "float", "double", "string".
[[nodiscard]] const char* ClauseTypeWord(ClauseType type);

/// A run of bytes of the text.
struct TextSpan {
  std::size_t begin = 0;
  std::size_t end = 0;
};

struct QueryClause {
  ClauseKind kind = ClauseKind::kAllPoints;
  std::size_t position = 0;       ///< of its "#", in bytes
  std::vector<TextSpan> numbers;  ///< of the constants of geometric clauses
  std::vector<double> values;     ///< the same as numbers
  // Of metadata clauses:
  std::string name;
  TextSpan nameSpan;  ///< without the quotes
  ClauseType type = ClauseType::kInt;
  TextSpan typeSpan;
};

/// Where a text stops making sense.
struct QueryDiagnosis {
  std::size_t position = 0;  ///< byte in the text; its length when the end came too early
  std::string message;       ///< what was expected there, or what is wrong
  std::string hint;          ///< what would work; may be empty
};

/// Reads a text exactly as the query grammar does. True: `clauses` are those of the text in their
/// order. False: `diagnosis` tells why not.
[[nodiscard]] bool ReadQueryText(std::string_view text, std::vector<QueryClause>& clauses,
                                 QueryDiagnosis& diagnosis);

/// The text with the constants of its geometric clauses moved from source coordinates into the
/// local frame, in double precision: corners and centres minus the offset, and for a plane
/// d + a * x + b * y + c * z of the offset, summed from left to right. Radii stay.
[[nodiscard]] std::string MoveIntoLocalFrame(std::string_view text,
                                             const std::vector<QueryClause>& clauses,
                                             const oocpc::Vector3d& frameOffset);

/// Two lines: the text (or the part of it around the position) and a caret under the position.
/// Control characters are shown as spaces; columns are counted in code points.
[[nodiscard]] std::string ShowPosition(std::string_view text, std::size_t position);

/// The entry of `known` nearest to `word` (fewest single-letter edits, letter case counting half),
/// or empty when none is near.
[[nodiscard]] std::string FindNearest(const std::string& word,
                                      const std::vector<std::string>& known);

}  // namespace tarnhost
