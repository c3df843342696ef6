// The query language against its two tables, and what a table cannot hold.
#include <OOCPointCloud/ResultCodes.h>
#include <OOCPointCloudTarn/TarnOOCStringQueryExpression.h>
#include <gtest/gtest.h>

#include "OOCPointCloudTarn/query/NestingLimit.h"
#include "tests/OOCPointCloudTarn/query/CaseTable.h"
#include "tests/support/ReversePolishText.h"

namespace {

/// The reverse-polish form of a text that must parse to its end.
std::string FormOf(const std::string& text) {
  TarOOCExpressionAccumulator accumulator(
      nullptr, std::make_unique<OOCPCQueryReversePolishExpression>(), nullptr);
  auto position = text.begin();
  if (!tarn::ParseQuery(text, accumulator, position)) return "does not parse";
  return oocpctest::WrittenForm(*accumulator.expression);
}

HRESULT ResultOf(const std::string& text) {
  TarnOOCStringQueryExpression expression;
  expression.SetInputString(text);
  return expression.ComputeBooleanAST();
}

std::string Repeated(const std::string& text, std::size_t times) {
  std::string out;
  for (std::size_t i = 0; i < times; ++i) out += text;
  return out;
}

TEST(Grammar, AcceptsTheTableAndEmitsTheExactReversePolishOrder) {
  const auto rows = oocpctest::ReadCaseTable("accepted.txt");
  ASSERT_GT(rows.size(), 100u);
  for (const auto& [text, form] : rows) {
    EXPECT_EQ(FormOf(text), form) << text;
    TarnOOCStringQueryExpression expression;
    expression.SetInputString(text);
    EXPECT_EQ(expression.ComputeBooleanAST(), oocpc::result::kOk) << text;
    EXPECT_NE(expression.GetBooleanAST(), nullptr) << text;
    EXPECT_EQ(expression.GetErrorIterator(), nullptr) << text;
  }
}

TEST(Grammar, RejectsTheTableAndNamesTheUnparsedText) {
  const auto rows = oocpctest::ReadCaseTable("rejected.txt");
  ASSERT_GT(rows.size(), 100u);
  for (const auto& [text, error] : rows) {
    TarnOOCStringQueryExpression expression;
    expression.SetInputString(text);
    EXPECT_EQ(expression.ComputeBooleanAST(), oocpc::result::kFail) << text;
    EXPECT_EQ(expression.GetBooleanAST(), nullptr) << text;
    ASSERT_NE(expression.GetErrorIterator(), nullptr) << text;
    ASSERT_EQ(expression.GetErrorIterator()->GetCount(), 1u) << text;
    const auto* const record = expression.GetErrorIterator()->Next();
    EXPECT_EQ(record->GetCode(), 0) << text;
    EXPECT_EQ(record->GetText(), error == "*" ? text : error) << text;
  }
}

TEST(Grammar, LeavesWhatRanInsideAFailedCallInTheForm) {
  TarOOCExpressionAccumulator accumulator(
      nullptr, std::make_unique<OOCPCQueryReversePolishExpression>(), nullptr);
  const std::string text = "#and(#true(), #false(), bogus)";
  auto position = text.begin();
  EXPECT_FALSE(tarn::ParseQuery(text, accumulator, position));
  EXPECT_EQ(position, text.begin());
  EXPECT_EQ(oocpctest::WrittenForm(*accumulator.expression), "all none and");
}

TEST(Grammar, StopsBehindTheLongestQuery) {
  TarOOCExpressionAccumulator accumulator(
      nullptr, std::make_unique<OOCPCQueryReversePolishExpression>(), nullptr);
  const std::string text = "#true() rest";
  auto position = text.begin();
  EXPECT_TRUE(tarn::ParseQuery(text, accumulator, position));
  EXPECT_EQ(std::string(position, text.end()).find_first_not_of(' '),
            std::string(position, text.end()).find('r'));
}

TEST(Grammar, AcceptsEveryByteButAQuoteInAQuotedText) {
  for (int byte = 0; byte < 256; ++byte) {
    if (byte == '"') continue;
    const std::string name = "a" + std::string(1, static_cast<char>(byte)) + "b";
    EXPECT_EQ(FormOf("#num{type=int}(\"" + name + "\",==,1)"), "int[" + name + "==1]") << byte;
    EXPECT_EQ(FormOf("#num{type=string}(\"s\",<,\"" + name + "\")"), "string[s<'" + name + "']")
        << byte;
    EXPECT_EQ(FormOf("#within{type=closedMesh}(\"" + name + "\")"), "all") << byte;
  }
}

TEST(Grammar, SkipsNoByteButAsciiWhiteSpace) {
  for (int byte = 0; byte < 256; ++byte) {
    const bool isSpace = byte == ' ' || (byte >= '\t' && byte <= '\r');
    const std::string text = "#true(" + std::string(1, static_cast<char>(byte)) + ")";
    EXPECT_EQ(ResultOf(text), isSpace ? oocpc::result::kOk : oocpc::result::kFail) << byte;
  }
}

TEST(Grammar, FollowsAThousandNestedParentheses) {
  EXPECT_EQ(FormOf(Repeated("(", 999) + "#true()" + Repeated(")", 999)), "all");
  EXPECT_EQ(ResultOf(Repeated("#not(", 999) + "#true()" + Repeated(")", 999)), oocpc::result::kOk);
}

TEST(Grammar, RefusesDeeperNestingAsATextThatDoesNotParse) {
  for (const std::string opening : {"(", "#not(", "#and(#true(),(", "#or(("}) {
    for (const std::size_t depth : {1000u, 1000000u}) {
      TarnOOCStringQueryExpression expression;
      const std::string text = Repeated(opening, depth) + "#true()" + Repeated(")", depth);
      expression.SetInputString(text);
      EXPECT_EQ(expression.ComputeBooleanAST(), oocpc::result::kFail);
      EXPECT_EQ(expression.GetErrorIterator()->Next()->GetText(), text);
    }
  }
}

TEST(Grammar, IsNotMisledAboutTheNestingByWhatFollowsANan) {
  for (const std::string payload : {"(\")", "(\"", "(abc)", "(()"}) {
    for (const std::size_t depth : {1001u, 1000000u}) {
      TarnOOCStringQueryExpression expression;
      const std::string text = "#and(#distance(0,0,0,nan" + payload + ")," + Repeated("(", depth) +
                               "#true()" + Repeated(")", depth) + ")";
      expression.SetInputString(text);
      EXPECT_EQ(expression.ComputeBooleanAST(), oocpc::result::kFail);
      EXPECT_EQ(expression.GetErrorIterator()->Next()->GetText(), text);
    }
  }
  EXPECT_EQ(ResultOf("#distance(0,0,0,nan" + Repeated("(", 2000) + ")"), oocpc::result::kFail);
}

TEST(Grammar, DoesNotCountParenthesesInQuotedTextsOrBehindTheQuery) {
  const std::string many = Repeated("(", 2000);
  EXPECT_EQ(ResultOf("#num{type=int}(\"" + many + "\",==,1)"), oocpc::result::kOk);
  TarnOOCStringQueryExpression expression;
  expression.SetInputString("#true() " + many);
  EXPECT_EQ(expression.ComputeBooleanAST(), oocpc::result::kFail);
  EXPECT_EQ(expression.GetErrorIterator()->Next()->GetText(), many);
}

TEST(Grammar, FindsTheFirstParenthesisThatNestsTooDeep) {
  const std::string text = "(()((\"((\"(";
  EXPECT_EQ(tarn::FindTooDeepNesting(text, 2) - text.begin(), 4);
  EXPECT_EQ(tarn::FindTooDeepNesting(text, 3) - text.begin(), 9);
  EXPECT_EQ(tarn::FindTooDeepNesting(text, 4), text.end());
  const std::string closed = ")((((";
  EXPECT_EQ(tarn::FindTooDeepNesting(closed, 1), closed.end());
}

TEST(Grammar, TakesAHundredThousandOperands) {
  const std::string operands = "#true()" + Repeated(",#false()", 100000);
  for (const char* const keyword : {"#and(", "#or(", "#xor("}) {
    TarnOOCStringQueryExpression expression;
    expression.SetInputString(keyword + operands + ")");
    ASSERT_EQ(expression.ComputeBooleanAST(), oocpc::result::kOk);
    EXPECT_TRUE(expression.GetBooleanAST()->IsBinaryOp());
  }
}

TEST(Numbers, AreThoseNearestToTheirText) {
  const char* const texts[] = {"0.1",
                               "1234567.8901234",
                               "3.141592653589793",
                               "2.2250738585072014e-308",
                               "179769313486231.57e294",
                               "299792458.123456",
                               "6.02214076e23"};
  for (const char* const text : texts) {
    EXPECT_EQ(FormOf(std::string("#num{type=double}(\"x\",==,") + text + ")"),
              "double[x==" + oocpctest::Written(std::strtod(text, nullptr)) + "]");
  }
  for (const char* const text :
       {"0.1", "123456.789", "16777219", "1.17549435e-38", "3.4028235e38"}) {
    EXPECT_EQ(FormOf(std::string("#num{type=float}(\"x\",==,") + text + ")"),
              "float[x==" + oocpctest::Written(std::strtof(text, nullptr)) + "]");
  }
}

TEST(Numbers, OfTooManyZerosBehindThePointAreZero) {
  for (const std::size_t zeros : {75u, 400u, 613u, 614u, 615u, 700u, 100000u}) {
    const std::string tiny = "0." + Repeated("0", zeros) + "1";
    EXPECT_EQ(FormOf("#num{type=float}(\"x\",==,-" + tiny + ")"), "float[x==-0]") << zeros;
    if (zeros > 400) {
      EXPECT_EQ(FormOf("#num{type=double}(\"x\",==," + tiny + ")"), "double[x==0]") << zeros;
    }
    EXPECT_EQ(FormOf("#num{type=double}(\"x\",==," + tiny + "e)"), "does not parse") << zeros;
    const std::string exponent = "e" + std::to_string(zeros + 1);
    EXPECT_EQ(FormOf("#distance(0,0,0," + tiny + exponent + ")"), "sphere[0,0,0;1]") << zeros;
  }
}

}  // namespace
