// The reader of query texts against the grammar that it explains: the same tables, random
// mutations of valid texts, and a table of diagnoses.
#include <OOCPointCloud/ResultCodes.h>
#include <OOCPointCloudTarn/TarnOOCStringQueryExpression.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <random>

#include "host/select/QueryText.h"
#include "tests/OOCPointCloudTarn/query/CaseTable.h"

namespace {

using tarnhost::ClauseKind;
using tarnhost::ClauseType;
using tarnhost::QueryClause;
using tarnhost::QueryDiagnosis;
using ::testing::HasSubstr;
using ::testing::StartsWith;

bool GrammarAccepts(const std::string& text) {
  TarnOOCStringQueryExpression expression;
  expression.SetInputString(text);
  return !oocpc::Failed(expression.ComputeBooleanAST());
}

struct Reading {
  bool accepted = false;
  std::vector<QueryClause> clauses;
  QueryDiagnosis diagnosis;
};

Reading Read(const std::string& text) {
  Reading reading;
  reading.accepted = tarnhost::ReadQueryText(text, reading.clauses, reading.diagnosis);
  return reading;
}

/// Checks one text; true when it is a query.
bool ExpectAgreement(const std::string& text) {
  const Reading reading = Read(text);
  EXPECT_EQ(reading.accepted, GrammarAccepts(text)) << text << "\n" << reading.diagnosis.message;
  if (reading.accepted) {
    for (const QueryClause& clause : reading.clauses) {
      EXPECT_EQ(text.at(clause.position), '#') << text;
      EXPECT_EQ(clause.numbers.size(), clause.values.size()) << text;
    }
  } else {
    EXPECT_LE(reading.diagnosis.position, text.size()) << text;
    EXPECT_FALSE(reading.diagnosis.message.empty()) << text;
    const std::string& hint = reading.diagnosis.hint;
    if (hint.starts_with("write ")) {
      EXPECT_TRUE(GrammarAccepts(hint.substr(6))) << text << "\n" << hint;
    }
  }
  return reading.accepted;
}

std::vector<std::string> AcceptedTexts() {
  std::vector<std::string> texts;
  for (const auto& row : oocpctest::ReadCaseTable("accepted.txt")) texts.push_back(row.first);
  return texts;
}

TEST(QueryTextAgreesWithTheGrammar, OnAllAcceptedTexts) {
  const std::vector<std::string> texts = AcceptedTexts();
  ASSERT_GT(texts.size(), 100u);
  for (const std::string& text : texts) EXPECT_TRUE(ExpectAgreement(text)) << text;
}

TEST(QueryTextAgreesWithTheGrammar, OnAllRejectedTexts) {
  const auto rows = oocpctest::ReadCaseTable("rejected.txt");
  ASSERT_GT(rows.size(), 100u);
  for (const auto& row : rows) EXPECT_FALSE(ExpectAgreement(row.first)) << row.first;
}

/// Changes texts at random: bytes and pieces of the language go, come, and change places.
class Mutator {
 public:
  explicit Mutator(std::vector<std::string> texts) : texts_(std::move(texts)) {}

  std::string Next() {
    std::string text = Any(texts_);
    for (std::size_t edits = Below(4); edits > 0; --edits) Edit(text);
    return text;
  }

 private:
  std::size_t Below(std::size_t bound) { return random_() % bound; }
  const std::string& Any(const std::vector<std::string>& from) { return from[Below(from.size())]; }

  void Edit(std::string& text) {
    static const std::vector<std::string> pieces{"(",
                                                 ")",
                                                 ",",
                                                 "#and(",
                                                 "#or(",
                                                 "#not(",
                                                 "#true()",
                                                 "\"",
                                                 "{type=",
                                                 "}",
                                                 "==",
                                                 ">=",
                                                 "<=>",
                                                 " ",
                                                 "\t",
                                                 "1",
                                                 "-",
                                                 ".",
                                                 "e5",
                                                 "nan",
                                                 "inf",
                                                 "+",
                                                 "=",
                                                 "<",
                                                 "2147483648",
                                                 "4294967296",
                                                 "uint8_t}",
                                                 "string}",
                                                 "\"x\",",
                                                 "\xff",
                                                 ", ",
                                                 "#false()",
                                                 "#distance(",
                                                 "1e999",
                                                 "1.",
                                                 "00000000000000000007",
                                                 "-0",
                                                 "int64",
                                                 "infinity",
                                                 "(#true())",
                                                 std::string(1, 0)};
    const std::size_t at = Below(text.size() + 1);
    const std::size_t length = Below(6) + 1;
    switch (Below(6)) {
      case 0:
        text.erase(at, Below(3) + 1);
        break;
      case 1:
      case 2:
        text.insert(at, Any(pieces));
        break;
      case 3:
        text.replace(at, length, Any(pieces));
        break;
      case 4:
        text.insert(at, text.substr(Below(text.size() + 1), length));
        break;
      default:
        text = Below(2) == 0 ? "#and(" + text + "," + Any(texts_) + ")" : "(" + text + ")";
    }
  }

  std::vector<std::string> texts_;
  std::mt19937 random_{20240611};
};

TEST(QueryTextAgreesWithTheGrammar, OnRandomMutationsOfQueries) {
  Mutator mutator(AcceptedTexts());
  std::size_t accepted = 0;
  std::size_t rejected = 0;
  for (int i = 0; i < 100000 && !HasFailure(); ++i) {
    ++(ExpectAgreement(mutator.Next()) ? accepted : rejected);
  }
  EXPECT_GT(accepted, 10000u);
  EXPECT_GT(rejected, 10000u);
}

std::string Repeated(const std::string& text, std::size_t times) {
  std::string out;
  for (std::size_t i = 0; i < times; ++i) out += text;
  return out;
}

TEST(QueryTextAgreesWithTheGrammar, OnHowDeepParenthesesMayNest) {
  // "#true()" brings one level of its own.
  EXPECT_TRUE(ExpectAgreement(Repeated("(", 999) + "#true()" + Repeated(")", 999)));
  EXPECT_FALSE(ExpectAgreement(Repeated("(", 1000) + "#true()" + Repeated(")", 1000)));
  EXPECT_TRUE(ExpectAgreement(Repeated("#not(", 999) + "#true()" + Repeated(")", 999)));
  EXPECT_FALSE(ExpectAgreement(Repeated("#and(", 100000)));
  EXPECT_THAT(Read(Repeated("(", 1001)).diagnosis.message, HasSubstr("deeper than 1000"));
}

TEST(QueryClauses, TellShapesInTheOrderOfTheText) {
  const Reading reading = Read(
      "#and(#distance(1,2,3,4),(#or(#within{type=oobb}(0,0,0,1,1,1), "
      "#within{type=2dbox}(1,2,3,4))),"
      "#within{type=extrudedAbove}(\"roof\"),#true(),#not(#false()))");
  ASSERT_TRUE(reading.accepted);
  std::vector<ClauseKind> kinds;
  for (const QueryClause& clause : reading.clauses) kinds.push_back(clause.kind);
  EXPECT_EQ(kinds, (std::vector{ClauseKind::kSphere, ClauseKind::kBox, ClauseKind::k2DBox,
                                ClauseKind::kMesh, ClauseKind::kAllPoints, ClauseKind::kNoPoints}));
  EXPECT_EQ(reading.clauses[0].values, (std::vector<double>{1, 2, 3, 4}));
  EXPECT_EQ(reading.clauses[3].name, "roof");
}

TEST(QueryClauses, TellNameAndTypeOfComparisonsAndWhereTheyStand) {
  const std::string text = "#and(#num{type=int64}(\"a b\",==,1),#num{type=float}(\"c\",<>,1,2))";
  const Reading reading = Read(text);
  ASSERT_TRUE(reading.accepted);
  ASSERT_EQ(reading.clauses.size(), 2u);
  EXPECT_EQ(reading.clauses[0].name, "a b");
  EXPECT_EQ(reading.clauses[0].type, ClauseType::kInt) << "int64 is read as int";
  EXPECT_EQ(reading.clauses[1].type, ClauseType::kFloat);
  const auto spanned = [&](tarnhost::TextSpan span) {
    return text.substr(span.begin, span.end - span.begin);
  };
  EXPECT_EQ(spanned(reading.clauses[0].typeSpan), "int64");
  EXPECT_EQ(spanned(reading.clauses[0].nameSpan), "a b");
  EXPECT_EQ(spanned(reading.clauses[1].nameSpan), "c");
}

/// A row of diagnoses.txt: a text, a caret under the place, what is said there, and a hint.
struct DiagnosisCase {
  std::string text;
  std::size_t position = 0;
  std::string message;
  std::string hint;
};

std::vector<DiagnosisCase> ReadDiagnoses() {
  std::ifstream file(std::string(TESTS_SOURCE_DIR) + "/host/select/diagnoses.txt");
  std::vector<DiagnosisCase> cases;
  for (std::string line; std::getline(file, line);) {
    if (line.empty() || line[0] == ';') continue;
    if (line.starts_with("hint: ") && !cases.empty()) {
      cases.back().hint = line.substr(6);
    } else if (const std::size_t caret = line.find_first_not_of(' ');
               line[caret] == '^' && !cases.empty()) {
      cases.back().position = caret;
      cases.back().message = line.substr(caret + 2);
    } else {
      cases.push_back({line, 0, {}, {}});
    }
  }
  return cases;
}

TEST(QueryDiagnoses, PointToThePlaceAndSayWhatWasExpected) {
  const std::vector<DiagnosisCase> cases = ReadDiagnoses();
  ASSERT_GT(cases.size(), 40u);
  for (const DiagnosisCase& expected : cases) {
    SCOPED_TRACE(expected.text);
    const Reading reading = Read(expected.text);
    EXPECT_FALSE(reading.accepted);
    EXPECT_FALSE(GrammarAccepts(expected.text));
    EXPECT_EQ(reading.diagnosis.position, expected.position);
    ASSERT_FALSE(expected.message.empty());
    EXPECT_THAT(reading.diagnosis.message, HasSubstr(expected.message));
    EXPECT_EQ(reading.diagnosis.hint, expected.hint);
  }
}

TEST(QueryDiagnoses, OfAnEmptyTextSayThatAQueryWasExpected) {
  for (const std::string text : {"", "  \t\n"}) {
    const Reading reading = Read(text);
    EXPECT_EQ(reading.diagnosis.position, text.size());
    EXPECT_THAT(reading.diagnosis.message, HasSubstr("ends where a query was expected"));
  }
}

TEST(QueryDiagnoses, PutParenthesesAroundEveryBareCallOfTheUsersOwnText) {
  const Reading reading =
      Read("#and( #or(#true(),#and(#false(),#true())) ,#xor(#true(),#true()) , #not(#true()))");
  EXPECT_EQ(reading.diagnosis.position, 6u);
  EXPECT_EQ(reading.diagnosis.hint,
            "write #and( (#or(#true(),(#and(#false(),#true())))) ,(#xor(#true(),#true())) , "
            "#not(#true()))");
}

TEST(QueryDiagnoses, OfAVeryWideTextWithBareCallsTakeLinearTime) {
  std::string text = "#and(#true()";
  for (int i = 0; i < 50000; ++i) text += ",#or(#true(),#true())";
  const Reading reading = Read(text + ")");
  EXPECT_EQ(reading.diagnosis.position, 13u);
  EXPECT_EQ(reading.diagnosis.hint.size(), std::string("write ").size() + text.size() + 1 + 100000);
}

std::string Moved(const std::string& text, const oocpc::Vector3d& offset) {
  const Reading reading = Read(text);
  EXPECT_TRUE(reading.accepted) << text;
  return tarnhost::MoveIntoLocalFrame(text, reading.clauses, offset);
}

constexpr oocpc::Vector3d kOffset{637000, 849000, 100};

TEST(MovingIntoTheLocalFrame, MovesCentresAndCornersAndLeavesRadii) {
  EXPECT_EQ(Moved("#distance(637100, 849200.5, 110, 25)", kOffset),
            "#distance(100, 200.5, 10, 25)");
  EXPECT_EQ(Moved("#within{type=sphere}(637000,849000,100,1e1)", kOffset),
            "#within{type=sphere}(0,0,0,1e1)");
  EXPECT_EQ(Moved("#within{type=box}(637001,849002,103,637004,849005,106)", kOffset),
            "#within{type=box}(1,2,3,4,5,6)");
  EXPECT_EQ(Moved("#within{ type=oobb } ( 637001 ,849002,103,637004,849005,106)", kOffset),
            "#within{ type=oobb } ( 1 ,2,3,4,5,6)");
  EXPECT_EQ(Moved("#within{type=2dbox}(637001,849002,637004,849005)", kOffset),
            "#within{type=2dbox}(1,2,4,5)");
}

TEST(MovingIntoTheLocalFrame, MovesPlanesByTheirDistanceAlone) {
  // x >= 637010 becomes x >= 10; the other five planes are y, z and their opposites.
  EXPECT_EQ(
      Moved("#within{type=frustum}(1,0,0,-637010, -1,0,0,637020, 0,1,0,-849000, 0,-1,0,849001,"
            " 0,0,1,-100, 0,0,-1,200)",
            kOffset),
      "#within{type=frustum}(1,0,0,-10, -1,0,0,20, 0,1,0,0, 0,-1,0,1, 0,0,1,0, 0,0,-1,100)");
}

TEST(MovingIntoTheLocalFrame, SumsPlanesFromLeftToRightInDoublePrecision) {
  const double a = 0.1;
  const double b = -0.7;
  const double c = 0.3;
  const double d = 1e7;
  const std::string planes = "0.1,-0.7,0.3,1e7";
  const std::string text = "#within{type=frustum}(" + planes + "," + planes + "," + planes + "," +
                           planes + "," + planes + "," + planes + ")";
  const oocpc::Vector3d offset{637123.25, 849321.125, 99.7};
  const Reading moved = Read(Moved(text, offset));
  ASSERT_TRUE(moved.accepted);
  for (std::size_t i = 0; i < 24; i += 4) {
    EXPECT_EQ(moved.clauses[0].values[i], a);
    EXPECT_EQ(moved.clauses[0].values[i + 3], d + a * offset[0] + b * offset[1] + c * offset[2]);
  }
}

TEST(MovingIntoTheLocalFrame, IsExactToTheLastBitOfADouble) {
  const Reading moved =
      Read(Moved("#within{type=2dbox}(637000.1,849000.3,637100.7,849100.9)", kOffset));
  EXPECT_EQ(moved.clauses[0].values,
            (std::vector<double>{637000.1 - 637000.0, 849000.3 - 849000.0, 637100.7 - 637000.0,
                                 849100.9 - 849000.0}));
}

TEST(MovingIntoTheLocalFrame, KeepsWhatIsNoNumberAndWhatIsInfinite) {
  const std::string moved = Moved("#distance(nan,-inf,Infinity,inf)", kOffset);
  EXPECT_EQ(moved, "#distance(nan,-inf,inf,inf)");
  EXPECT_TRUE(GrammarAccepts(moved));
}

TEST(MovingIntoTheLocalFrame, LeavesEverythingElseAlone) {
  const std::string text =
      "#or( #num{type=double}(\"x\",<=>,637000,637001), #within{type=closedMesh}(\"637000\") )";
  EXPECT_EQ(Moved(text, kOffset), text);
  EXPECT_EQ(Moved("#distance(+1.0,2,3,4)", {}), "#distance(+1.0,2,3,4)") << "no offset, no change";
}

TEST(MovingIntoTheLocalFrame, GivesTextsThatTheGrammarAccepts) {
  for (const std::string& text : AcceptedTexts()) {
    EXPECT_TRUE(ExpectAgreement(Moved(text, kOffset))) << text;
  }
}

TEST(ShowingAPosition, PutsACaretUnderTheByte) {
  EXPECT_EQ(tarnhost::ShowPosition("#true() x", 8), "#true() x\n        ^");
  EXPECT_EQ(tarnhost::ShowPosition("", 0), "\n^");
  EXPECT_EQ(tarnhost::ShowPosition("#true", 5), "#true\n     ^");
}

TEST(ShowingAPosition, CountsCodePointsAndShowsControlCharactersAsSpaces) {
  EXPECT_EQ(tarnhost::ShowPosition("\"é€\"x", 7), "\"é€\"x\n    ^");
  EXPECT_EQ(tarnhost::ShowPosition("\t#\n!\x7f?", 3), " # ! ?\n   ^");
}

TEST(ShowingAPosition, WindowsLongTexts) {
  std::string text(1000, '.');
  for (const std::size_t position :
       {0u, 10u, 47u, 48u, 49u, 95u, 96u, 500u, 950u, 998u, 999u, 1000u}) {
    if (position < text.size()) text[position] = 'X';
    const std::string shown = tarnhost::ShowPosition(text, position);
    const std::string line = shown.substr(0, shown.find('\n'));
    const std::size_t caret = shown.size() - shown.find('\n') - 2;
    // An ellipsis is three bytes and one column.
    const std::size_t byte = line.starts_with("…") ? caret + 2 : caret;
    EXPECT_LE(line.size(), 102u);
    if (position < text.size()) {
      EXPECT_EQ(line.at(byte), 'X') << position;
      text[position] = '.';
    } else {
      EXPECT_EQ(byte, line.size());
    }
  }
}

TEST(FindingTheNearestWord, PrefersTheSameWordInOtherCaseThenFewestEdits) {
  const std::vector<std::string> known{"classification", "CLASS", "intensity", "return_number"};
  EXPECT_EQ(tarnhost::FindNearest("Intensity", known), "intensity");
  EXPECT_EQ(tarnhost::FindNearest("class", known), "CLASS");
  EXPECT_EQ(tarnhost::FindNearest("clasification", known), "classification");
  EXPECT_EQ(tarnhost::FindNearest("returnnumber", known), "return_number");
  EXPECT_EQ(tarnhost::FindNearest("x", {"y", "gps_time"}), "y");
}

TEST(FindingTheNearestWord, FindsNothingWhereNothingIsNear) {
  EXPECT_EQ(tarnhost::FindNearest("temperature", {"intensity", "x"}), "");
  EXPECT_EQ(tarnhost::FindNearest("x", {}), "");
}

}  // namespace
