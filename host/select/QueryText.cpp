// Reads query texts for people: recursive descent over the prefix notation. Every alternative
// begins with a word of its own, so the first mismatch is where the text stops making sense.
#include "host/select/QueryText.h"

#include <algorithm>
#include <array>
#include <boost/spirit/include/qi_numeric.hpp>
#include <boost/spirit/include/qi_parse.hpp>
#include <cstdio>
#include <optional>

#include "OOCPointCloudTarn/query/RealNumbers.h"

namespace tarnhost {

namespace {

/// Parentheses may nest this deep, as in the query grammar.
constexpr std::size_t kDeepestNesting = 1000;

const std::vector<std::string> kKeywords{"#and",      "#or",  "#xor",  "#not",  "#within",
                                         "#distance", "#num", "#true", "#false"};
const std::vector<std::string> kShapes{
    "sphere",  "box",        "oobb",          "2dbox",
    "frustum", "closedMesh", "extrudedAbove", "orientedMeshPartitioning"};
const std::vector<std::string> kTypes{"int", "int64", "float", "double", "uint8_t", "string"};
const std::vector<std::string> kComparisons{"==", ">", ">=", "<", "<=", "!="};
const std::vector<std::string> kRanges{"<>", "<=>"};

bool Contains(const std::vector<std::string>& words, const std::string& word) {
  return std::ranges::find(words, word) != words.end();
}

bool IsSpace(char byte) {
  return std::string_view(" \t\n\v\f\r").find(byte) != std::string_view::npos;
}

bool IsWordByte(char byte) {
  return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
         (byte >= '0' && byte <= '9') || byte == '_';
}

std::string Quoted(const std::string& word) { return "\"" + word + "\""; }

std::string Listed(const std::vector<std::string>& words) {
  std::string list;
  for (std::size_t i = 0; i < words.size(); ++i) {
    if (i > 0) list += i + 1 == words.size() ? " or " : ", ";
    list += words[i];
  }
  return list;
}

/// Reads one text. Functions that read answer whether they could; the first that could not has
/// filled in the diagnosis.
class Reader {
 public:
  /// `lenient`: calls of #and, #or and #xor may be operands; where they begin and end is noted.
  Reader(std::string_view text, bool lenient) : text_(text), lenient_(lenient) {}

  bool ReadAll() {
    if (!ReadQuery()) return false;
    SkipSpace();
    if (at_ == text_.size()) return true;
    if (text_[at_] == ')') return Fail("there is a \")\" too many");
    return Fail("the query is complete before this; nothing may follow",
                "combine queries with #and(…, …) or #or(…, …)");
  }

  std::vector<QueryClause> clauses;
  QueryDiagnosis diagnosis;
  std::vector<TextSpan> bareCalls;  ///< in lenient mode

 private:
  bool Fail(std::string message, std::string hint = {}) {
    return FailAt(at_, std::move(message), std::move(hint));
  }

  bool FailAt(std::size_t position, std::string message, std::string hint = {}) {
    diagnosis = {position, std::move(message), std::move(hint)};
    return false;
  }

  void SkipSpace() {
    while (at_ < text_.size() && IsSpace(text_[at_])) ++at_;
  }

  [[nodiscard]] bool Sees(std::string_view literal) {
    SkipSpace();
    return text_.substr(at_).starts_with(literal);
  }

  bool Expect(char byte, const std::string& where) {
    SkipSpace();
    if (at_ < text_.size() && text_[at_] == byte) {
      ++at_;
      return true;
    }
    return Fail(std::string("\"") + byte + "\" was expected " + where);
  }

  bool Open(const std::string& after) {
    SkipSpace();
    if (at_ < text_.size() && text_[at_] == '(' && depth_ == kDeepestNesting) {
      return Fail("parentheses nest deeper than " + std::to_string(kDeepestNesting) + " here");
    }
    if (!Expect('(', "after " + after)) return false;
    ++depth_;
    return true;
  }

  bool Close(const std::string& what) {
    if (!Expect(')', "at the end of " + what)) return false;
    --depth_;
    return true;
  }

  /// "#" and the letters after it.
  std::string PeekKeyword() {
    SkipSpace();
    if (at_ >= text_.size() || text_[at_] != '#') return {};
    std::size_t end = at_ + 1;
    while (end < text_.size() && IsWordByte(text_[end])) ++end;
    return std::string(text_.substr(at_, end - at_));
  }

  std::string PeekWord() {
    SkipSpace();
    std::size_t end = at_;
    while (end < text_.size() && IsWordByte(text_[end])) ++end;
    return std::string(text_.substr(at_, end - at_));
  }

  static bool IsCall(const std::string& keyword) {
    return keyword == "#and" || keyword == "#or" || keyword == "#xor";
  }

  bool ReadQuery() {
    const std::string keyword = PeekKeyword();
    return IsCall(keyword) ? ReadCall(keyword) : ReadOperand();
  }

  bool ReadOperand() {
    const std::string keyword = PeekKeyword();
    if (IsCall(keyword)) {
      const std::size_t begin = at_;
      if (!lenient_) {
        return Fail(keyword + " as an operand needs parentheses of its own around it");
      }
      if (!ReadCall(keyword)) return false;
      bareCalls.push_back({begin, at_});
      return true;
    }
    if (Sees("(")) return Open("this") && ReadQuery() && Close("the parenthesised query");
    if (keyword == "#not") return ReadNot();
    if (Contains(kKeywords, keyword)) return ReadClause(keyword);
    if (at_ == text_.size()) return Fail("the text ends where a query was expected");
    if (keyword.empty()) {
      const std::string word = "#" + PeekWord();
      const std::string example = text_.find('#') == std::string_view::npos
                                      ? "for instance #num{type=double}(\"z\", >, 100)"
                                      : "";
      return Fail("a query was expected: " + Listed(kKeywords) + ", or a query in parentheses",
                  Contains(kKeywords, word) ? "did you mean " + Quoted(word) + "?" : example);
    }
    const std::string nearest = FindNearest(keyword, kKeywords);
    return Fail(
        Quoted(keyword) + " is no word of the query language; known are " + Listed(kKeywords),
        nearest.empty() ? "" : "did you mean " + Quoted(nearest) + "?");
  }

  bool ReadCall(const std::string& keyword) {
    at_ += keyword.size();
    if (!Open(keyword) || !ReadOperand()) return false;
    if (Sees(")")) {
      return Fail(keyword + " needs at least two operands, with a \",\" between them");
    }
    do {
      if (!Expect(',', "between the operands of " + keyword) || !ReadOperand()) return false;
      SkipSpace();
    } while (at_ < text_.size() && text_[at_] == ',');
    return Close(keyword);
  }

  bool ReadNot() {
    at_ += std::string_view("#not").size();
    if (!Open("#not") || !ReadOperand()) return false;
    if (Sees(",")) return Fail("#not has exactly one operand");
    return Close("#not");
  }

  bool ReadClause(const std::string& keyword) {
    QueryClause clause;
    clause.position = at_;
    at_ += keyword.size();
    bool read = false;
    if (keyword == "#true" || keyword == "#false") {
      clause.kind = keyword == "#true" ? ClauseKind::kAllPoints : ClauseKind::kNoPoints;
      read = Open(keyword + ": write " + keyword + "()") && Close(keyword);
    } else if (keyword == "#distance") {
      clause.kind = ClauseKind::kSphere;
      read = Open(keyword) && ReadNumbers(clause, 4, "#distance: x, y, z, radius");
    } else if (keyword == "#within") {
      read = ReadWithin(clause);
    } else {
      clause.kind = ClauseKind::kMetaData;
      read = ReadMetaData(clause);
    }
    if (read) clauses.push_back(std::move(clause));
    return read;
  }

  /// "{type=WORD}" with one of the words given.
  bool ReadType(const std::string& keyword, const std::vector<std::string>& words,
                std::string& word, TextSpan& span) {
    if (!Expect('{', "after " + keyword + ": write " + keyword + "{type=" + words[0] + "}(…)")) {
      return false;
    }
    if (!Sees("type")) return Fail("\"type\" was expected after \"{\"");
    at_ += std::string_view("type").size();
    if (!Expect('=', "after \"type\"")) return false;
    word = PeekWord();
    if (!Contains(words, word)) {
      const std::string nearest = FindNearest(word, words);
      return Fail((word.empty() ? "a type" : Quoted(word) + " is no type of " + keyword + "; one") +
                      " of " + Listed(words) + " was expected",
                  nearest.empty() || word.empty() ? "" : "did you mean " + Quoted(nearest) + "?");
    }
    span = {at_, at_ + word.size()};
    at_ += word.size();
    return Expect('}', "after the type");
  }

  bool ReadWithin(QueryClause& clause) {
    std::string shape;
    TextSpan span;
    if (!ReadType("#within", kShapes, shape, span)) return false;
    if (!Open("the type")) return false;
    if (shape == "sphere") {
      clause.kind = ClauseKind::kSphere;
      return ReadNumbers(clause, 4, "the sphere: x, y, z, radius");
    }
    if (shape == "box" || shape == "oobb") {
      clause.kind = ClauseKind::kBox;
      return ReadNumbers(clause, 6, "the box: two corners");
    }
    if (shape == "2dbox") {
      clause.kind = ClauseKind::k2DBox;
      return ReadNumbers(clause, 4, "the 2D box: two corners");
    }
    if (shape == "frustum") {
      clause.kind = ClauseKind::kFrustum;
      return ReadNumbers(clause, 24, "the frustum: six planes a, b, c, d");
    }
    clause.kind = ClauseKind::kMesh;
    return ReadMesh(clause, shape == "extrudedAbove");
  }

  bool ReadMesh(QueryClause& clause, bool hasFlag) {
    if (!ReadQuotedText(clause.name, clause.nameSpan, "the mesh's name")) return false;
    if (hasFlag && Sees(",")) {
      ++at_;
      const std::string flag = PeekWord();
      if (flag != "keepUndeterminedBlocks" && flag != "doNotKeepUndeterminedBlocks") {
        return Fail("keepUndeterminedBlocks or doNotKeepUndeterminedBlocks was expected");
      }
      at_ += flag.size();
    }
    return Close("the clause");
  }

  bool ReadNumbers(QueryClause& clause, std::size_t count, const std::string& what) {
    for (std::size_t i = 0; i < count; ++i) {
      if (i > 0 && !Sees(",")) {
        return Fail(std::to_string(count) + " numbers were expected for " + what + "; there are " +
                    std::to_string(i) + " (\",\" stands between them)");
      }
      if (i > 0) ++at_;
      TextSpan span;
      double value = 0;
      if (!ReadReal(span, value)) return false;
      clause.numbers.push_back(span);
      clause.values.push_back(value);
    }
    if (Sees(",")) {
      return Fail("no more than " + std::to_string(count) + " numbers were expected for " + what);
    }
    return Close("the clause");
  }

  /// Reads with one of Spirit's number parsers, which the grammar is made of.
  template <typename Parser, typename Value>
  bool ReadWith(const Parser& parser, TextSpan& span, Value& value, const std::string& expected,
                const std::string& hint = {}) {
    SkipSpace();
    const auto* begin = text_.data() + at_;
    const auto* position = begin;
    if (!boost::spirit::qi::parse(position, text_.data() + text_.size(), parser, value)) {
      return Fail(expected + " was expected", hint);
    }
    span = {at_, at_ + static_cast<std::size_t>(position - begin)};
    at_ = span.end;
    return true;
  }

  bool ReadReal(TextSpan& span, double& value) {
    if (!ReadWith(tarn::RealNumberParser<double>(), span, value, "a number")) return false;
    value = tarn::NearestNumber(text_.substr(span.begin, span.end - span.begin), value);
    return true;
  }

  bool ReadQuotedText(std::string& text, TextSpan& span, const std::string& what) {
    SkipSpace();
    if (at_ >= text_.size() || text_[at_] != '"') {
      return Fail(what + " was expected, in double quotes");
    }
    const std::size_t end = text_.find('"', at_ + 1);
    if (end == std::string_view::npos) return Fail("this quoted text has no closing \"");
    if (end == at_ + 1) return Fail(what + " must not be empty");
    span = {at_ + 1, end};
    text = std::string(text_.substr(span.begin, end - span.begin));
    at_ = end + 1;
    return true;
  }

  bool ReadMetaData(QueryClause& clause) {
    std::string word;
    if (!ReadType("#num", kTypes, word, clause.typeSpan)) return false;
    clause.type = word == "uint8_t"  ? ClauseType::kUInt8
                  : word == "float"  ? ClauseType::kFloat
                  : word == "double" ? ClauseType::kDouble
                  : word == "string" ? ClauseType::kString
                                     : ClauseType::kInt;
    if (!Open("the type") || !ReadQuotedText(clause.name, clause.nameSpan, "a metadata name") ||
        !Expect(',', "after the name")) {
      return false;
    }
    std::string op;
    if (!ReadOperator(clause.type, op)) return false;
    if (!ReadValue(clause.type, word)) return false;
    if (Contains(kRanges, op)) {
      if (!Expect(',', "between the two values of " + op) || !ReadValue(clause.type, word)) {
        return false;
      }
    } else if (Sees(",")) {
      return Fail(op + " compares with one value; a range is written with <> or <=>");
    }
    return Close("the comparison");
  }

  bool ReadOperator(ClauseType type, std::string& op) {
    SkipSpace();
    std::size_t end = at_;
    while (end < text_.size() &&
           std::string_view("=<>!").find(text_[end]) != std::string_view::npos) {
      ++end;
    }
    op = std::string(text_.substr(at_, end - at_));
    const bool range = Contains(kRanges, op);
    if (!range && !Contains(kComparisons, op)) {
      return Fail(
          "an operator was expected: " + Listed(kComparisons) + ", or for a range <> or <=>",
          op == "=" ? "did you mean \"==\"?" : "");
    }
    if (range && type == ClauseType::kString) {
      return Fail("strings have no ranges; one of " + Listed(kComparisons) + " was expected");
    }
    at_ = end;
    return Expect(',', "after the operator " + op);
  }

  bool ReadValue(ClauseType type, const std::string& word) {
    namespace qi = boost::spirit::qi;
    TextSpan span;
    std::string text;
    int whole = 0;
    unsigned natural = 0;
    float single = 0;
    double real = 0;
    switch (type) {
      case ClauseType::kInt:
        return ReadWith(qi::int_, span, whole,
                        "a whole number from -2147483648 to 2147483647" +
                            std::string(word == "int64" ? " (int64 too)" : ""),
                        StartsNumber() ? kUseDouble : "") &&
               EndsWholeNumber(word);
      case ClauseType::kUInt8:
        return ReadWith(qi::uint_, span, natural, "a whole number without sign",
                        StartsNumber() ? "numbers with a sign are compared as {type=int}" : "") &&
               EndsWholeNumber(word);
      case ClauseType::kFloat:
        return ReadWith(tarn::RealNumberParser<float>(), span, single, "a number");
      case ClauseType::kDouble:
        return ReadWith(tarn::RealNumberParser<double>(), span, real, "a number");
      case ClauseType::kString:
        return ReadQuotedText(text, span, "a text to compare with");
    }
    return false;
  }

  static constexpr const char* kUseDouble = "compare larger numbers and fractions as {type=double}";

  [[nodiscard]] bool StartsNumber() {
    SkipSpace();
    const std::size_t digit =
        at_ < text_.size() && (text_[at_] == '-' || text_[at_] == '+') ? at_ + 1 : at_;
    return digit < text_.size() && text_[digit] >= '0' && text_[digit] <= '9';
  }

  /// False, with a diagnosis, when a whole number goes on as a fraction.
  bool EndsWholeNumber(const std::string& word) {
    if (at_ >= text_.size() || (text_[at_] != '.' && text_[at_] != 'e' && text_[at_] != 'E')) {
      return true;
    }
    return Fail("numbers of type " + word + " end before this", kUseDouble);
  }

  std::string_view text_;
  bool lenient_;
  std::size_t at_ = 0;
  std::size_t depth_ = 0;
};

/// The text with parentheses around each call that stands bare as an operand.
std::string WithParentheses(std::string_view text, const std::vector<TextSpan>& calls) {
  std::vector<std::pair<std::size_t, char>> added;
  for (const TextSpan& call : calls) {
    added.emplace_back(call.begin, '(');
    added.emplace_back(call.end, ')');
  }
  std::ranges::sort(added);
  std::string mended;
  std::size_t copied = 0;
  for (const auto& [at, parenthesis] : added) {
    mended.append(text.substr(copied, at - copied)).push_back(parenthesis);
    copied = at;
  }
  return mended.append(text.substr(copied));
}

}  // namespace

const char* ClauseTypeWord(ClauseType type) {
  switch (type) {
    case ClauseType::kInt:
      return "int";
    case ClauseType::kUInt8:
      return "uint8_t";
    case ClauseType::kFloat:
      return "float";
    case ClauseType::kDouble:
      return "double";
    case ClauseType::kString:
      return "string";
  }
  return "";
}

bool ReadQueryText(std::string_view text, std::vector<QueryClause>& clauses,
                   QueryDiagnosis& diagnosis) {
  Reader reader(text, false);
  if (reader.ReadAll()) {
    clauses = std::move(reader.clauses);
    return true;
  }
  diagnosis = reader.diagnosis;
  Reader lenient(text, true);
  if (lenient.ReadAll() && !lenient.bareCalls.empty()) {
    diagnosis.hint = "write " + WithParentheses(text, lenient.bareCalls);
  }
  return false;
}

std::string MoveIntoLocalFrame(std::string_view text, const std::vector<QueryClause>& clauses,
                               const oocpc::Vector3d& frameOffset) {
  if (frameOffset == oocpc::Vector3d{}) return std::string(text);
  std::string moved;
  std::size_t copied = 0;
  const auto replace = [&](const TextSpan& span, double value) {
    std::array<char, 40> digits;
    std::snprintf(digits.data(), digits.size(), "%.17g", value);
    moved.append(text.substr(copied, span.begin - copied)).append(digits.data());
    copied = span.end;
  };
  for (const QueryClause& clause : clauses) {
    const std::size_t axes = clause.kind == ClauseKind::k2DBox ? 2 : 3;
    for (std::size_t i = 0; i < clause.numbers.size(); ++i) {
      if (clause.kind == ClauseKind::kFrustum) {
        if (i % 4 != 3) continue;
        const double* plane = clause.values.data() + (i - 3);
        replace(clause.numbers[i], plane[3] + plane[0] * frameOffset[0] +
                                       plane[1] * frameOffset[1] + plane[2] * frameOffset[2]);
      } else if (clause.kind != ClauseKind::kSphere || i < 3) {
        replace(clause.numbers[i], clause.values[i] - frameOffset[i % axes]);
      }
    }
  }
  return moved.append(text.substr(copied));
}

std::string ShowPosition(std::string_view text, std::size_t position) {
  constexpr std::size_t kColumns = 96;
  std::vector<std::string> letters;  // one code point each
  std::size_t column = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    if (i == position) column = letters.size();
    if ((byte & 0xC0u) == 0x80u && !letters.empty()) {
      letters.back() += text[i];
    } else {
      letters.emplace_back(1, byte < 0x20 || byte == 0x7F ? ' ' : text[i]);
    }
  }
  if (position >= text.size()) column = letters.size();
  const std::size_t begin = column > kColumns / 2 && letters.size() > kColumns
                                ? std::min(column - kColumns / 2, letters.size() - kColumns + 1)
                                : 0;
  const std::size_t end = std::min(letters.size(), begin + kColumns);
  std::string line = begin > 0 ? "…" : "";
  for (std::size_t i = begin; i < end; ++i) line += letters[i];
  if (end < letters.size()) line += "…";
  const std::size_t indent = column - begin + (begin > 0 ? 1 : 0);
  return line + "\n" + std::string(indent, ' ') + "^";
}

}  // namespace tarnhost
