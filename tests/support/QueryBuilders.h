// Short ways to write queries, positions and probes in tests.
#pragma once

#include <OOCPointCloud/GeometricQueries.h>
#include <OOCPointCloud/OOCPCBooleanAST.h>

#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace oocpctest {

inline constexpr OOCPCIQuery::BitwiseOperator kAnd = OOCPCIQuery::BitwiseOperator::kAnd;
inline constexpr OOCPCIQuery::BitwiseOperator kOr = OOCPCIQuery::BitwiseOperator::kOr;
inline constexpr OOCPCIQuery::BitwiseOperator kXor = OOCPCIQuery::BitwiseOperator::kXor;
inline constexpr OOCPCIQuery::BitwiseOperator kNot = OOCPCIQuery::BitwiseOperator::kNot;

/// The bytes of some values, one behind the other.
template <typename... T>
std::string BytesOfValues(const T&... values) {
  std::string bytes;
  (bytes.append(reinterpret_cast<const char*>(&values), sizeof(values)), ...);
  return bytes;
}

/// Satisfy with one record of one metadata.
inline bool SatisfiesRecord(const OOCPCIQuery& query, const std::string& bytes) {
  // A second pointer that nobody follows: the compiler looks ahead into the two-name branch.
  const char* const records[] = {bytes.c_str(), nullptr};
  const unsigned sizes[] = {static_cast<unsigned>(bytes.size())};
  return query.Satisfy(records, sizes);
}

inline OOCPointCloudNode NodeOf(const oocpc::Vector3d& min, const oocpc::Vector3d& max) {
  OOCPointCloudNode node;
  node.box = {min, max};
  return node;
}

/// A query that writes its letter into a log whenever it is asked, and counts the living.
class ProbeQuery final : public OOCPCIQuery {
 public:
  using OOCPCIQuery::Satisfy;
  ProbeQuery(char letter, bool answer, std::string* log, std::vector<QelUnicodeString> names = {},
             bool singleAnswer = false)
      : OOCPCIQuery(std::move(names), kAnd),
        letter_(letter),
        answer_(answer),
        singleAnswer_(singleAnswer),
        log_(log) {
    ++Living();
  }
  ~ProbeQuery() override { --Living(); }
  [[nodiscard]] bool Satisfy(const char* const*, const unsigned*) const override {
    if (log_ != nullptr) log_->push_back(letter_);
    return answer_;
  }
  [[nodiscard]] bool Satisfy(const char*, unsigned) const override { return singleAnswer_; }
  static int& Living() {
    static int living = 0;
    return living;
  }

 private:
  char letter_;
  bool answer_;
  bool singleAnswer_;
  std::string* log_;
};

}  // namespace oocpctest
