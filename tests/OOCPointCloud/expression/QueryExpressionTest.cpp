// The reverse-polish expression, error records and iterators, and the base of expression objects.
#include <OOCPointCloud/OOCPCQueryExpression.h>
#include <OOCPointCloud/ResultCodes.h>
#include <gtest/gtest.h>

#include "tests/support/QueryBuilders.h"

namespace {

using oocpctest::kAnd;
using oocpctest::kNot;
using oocpctest::kOr;
using oocpctest::kXor;
using oocpctest::ProbeQuery;
namespace result = oocpc::result;

/// Pushes one step for each character: & | ^ ! are operators, 0 a null operand, others queries.
void Push(OOCPCQueryReversePolishExpression& form, const char* steps) {
  for (; *steps != 0; ++steps) {
    switch (*steps) {
      case '&':
        form.PushBackOperator(kAnd);
        break;
      case '|':
        form.PushBackOperator(kOr);
        break;
      case '^':
        form.PushBackOperator(kXor);
        break;
      case '!':
        form.PushBackOperator(kNot);
        break;
      case '?':
        form.PushBackOperator(static_cast<OOCPCIQuery::BitwiseOperator>(4));
        break;
      case '0':
        form.PushBackOperand(nullptr);
        break;
      default:
        form.PushBackOperand(new ProbeQuery(*steps, true, nullptr));
    }
  }
}

HRESULT ResultOf(const char* steps) {
  OOCPCQueryReversePolishExpression form;
  Push(form, steps);
  const HRESULT code = form.ComputeBooleanAST();
  EXPECT_EQ(form.GetBooleanAST() == nullptr, code != result::kOk) << steps;
  return code;
}

/// The tree written out with every operator in parentheses.
std::string Written(OOCPCBooleanAST* node, std::string* log) {
  if (auto* const leaf = dynamic_cast<OOCPCBooleanASTQueryVal*>(node)) {
    static_cast<void>(leaf->GetQuery()->Satisfy(nullptr, nullptr));
    return std::string(1, log->back());
  }
  if (node->IsNot()) return "!" + Written(node->first, log);
  const auto op = dynamic_cast<OOCPCBooleanASTBinaryOp&>(*node).GetOperator();
  const char* const sign = op == kAnd ? "&" : op == kOr ? "|" : "^";
  return "(" + Written(node->first, log) + sign + Written(node->second, log) + ")";
}

TEST(ReversePolish, BuildsTheTreeWithOperandsInTheirOrder) {
  std::string log;
  OOCPCQueryReversePolishExpression form;
  for (const char letter : {'a', 'b'}) form.PushBackOperand(new ProbeQuery(letter, true, &log));
  form.PushBackOperator(kAnd);
  form.PushBackOperand(new ProbeQuery('c', true, &log));
  form.PushBackOperator(kNot);
  form.PushBackOperator(kOr);
  form.PushBackOperand(new ProbeQuery('d', true, &log));
  form.PushBackOperator(kXor);
  ASSERT_EQ(form.ComputeBooleanAST(), result::kOk);
  EXPECT_EQ(Written(form.GetBooleanAST(), &log), "(((a&b)|!c)^d)");
  EXPECT_EQ(form.GetElements().size(), 8u);
}

TEST(ReversePolish, FailsWhenItDoesNotBalance) {
  EXPECT_EQ(ResultOf("a"), result::kOk);
  EXPECT_EQ(ResultOf("ab&"), result::kOk);
  for (const char* const steps : {"", "ab", "&", "a&", "!", "ab&&", "ab&c", "a!!b", "&ab"}) {
    EXPECT_EQ(ResultOf(steps), result::kFail) << steps;
  }
}

TEST(ReversePolish, FailsOnANullOperandAndOnAnUnknownOperator) {
  EXPECT_EQ(ResultOf("0"), result::kFail);
  EXPECT_EQ(ResultOf("a0&"), result::kFail);
  EXPECT_EQ(ResultOf("ab?"), result::kFail);
}

TEST(ReversePolish, FailureTakesAnEarlierTreeAway) {
  OOCPCQueryReversePolishExpression form;
  Push(form, "a");
  ASSERT_EQ(form.ComputeBooleanAST(), result::kOk);
  Push(form, "b");
  EXPECT_EQ(form.ComputeBooleanAST(), result::kFail);
  EXPECT_EQ(form.GetBooleanAST(), nullptr);
}

TEST(ReversePolish, OwnsOperandsUntilTheyAreReleased) {
  ASSERT_EQ(ProbeQuery::Living(), 0);
  {
    OOCPCQueryReversePolishExpression form;
    Push(form, "ab&");
    EXPECT_EQ(ProbeQuery::Living(), 2);
    form.ReleaseOperands();
    EXPECT_EQ(ProbeQuery::Living(), 0);
    EXPECT_TRUE(form.GetElements().empty());
    Push(form, "abc");
    EXPECT_EQ(ProbeQuery::Living(), 3);
  }
  EXPECT_EQ(ProbeQuery::Living(), 0);
}

TEST(ReversePolish, TreeOutlivesReleasedOperands) {
  OOCPCQueryReversePolishExpression form;
  Push(form, "ab&");
  ASSERT_EQ(form.ComputeBooleanAST(), result::kOk);
  form.ReleaseOperands();
  EXPECT_EQ(ProbeQuery::Living(), 2);
}

std::vector<OOCPCQueryExpressionError*> TwoErrors() {
  return {new OOCPCQueryExpressionError(1, "one"), nullptr,
          new OOCPCQueryExpressionError(-2, "two")};
}

TEST(ErrorIterator, WalksFromFirstToLastAndAgain) {
  OOCPCQueryExpressionErrorIterator errors(TwoErrors());
  EXPECT_EQ(errors.GetCount(), 2u);
  const OOCPCQueryExpressionError* error = errors.Next();
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->GetCode(), 1);
  EXPECT_EQ(error->GetText(), "one");
  error = errors.Next();
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->GetCode(), -2);
  EXPECT_EQ(errors.Next(), nullptr);
  EXPECT_EQ(errors.Next(), nullptr);
  errors.Rewind();
  EXPECT_EQ(errors.Next()->GetText(), "one");
}

TEST(ErrorIterator, CopyIsDeepAndKeepsThePosition) {
  auto errors = std::make_unique<OOCPCQueryExpressionErrorIterator>(TwoErrors());
  static_cast<void>(errors->Next());
  OOCPCQueryExpressionErrorIterator copy(*errors);
  errors.reset();
  EXPECT_EQ(copy.Next()->GetText(), "two");
  EXPECT_EQ(copy.Next(), nullptr);
}

/// Makes the tree or the error that it is told to.
class ScriptedExpression final : public OOCPCIQueryExpression {
 public:
  [[nodiscard]] HRESULT ComputeBooleanAST() override {
    SetBooleanAST(new OOCPCBooleanASTQueryVal(new ProbeQuery('p', true, nullptr)));
    return result::kOk;
  }
  void Fail(const char* text) {
    SetErrorIterator(
        new OOCPCQueryExpressionErrorIterator({new OOCPCQueryExpressionError(0, text)}));
  }
  void Clear() { SetBooleanAST(nullptr); }
};

TEST(QueryExpressionBase, StartsWithoutTreeAndErrors) {
  ScriptedExpression expression;
  EXPECT_EQ(expression.GetBooleanAST(), nullptr);
  EXPECT_EQ(expression.GetErrorIterator(), nullptr);
}

TEST(QueryExpressionBase, KeepsReplacedTreesAndErrorsAlive) {
  ASSERT_EQ(ProbeQuery::Living(), 0);
  {
    ScriptedExpression expression;
    ASSERT_EQ(expression.ComputeBooleanAST(), result::kOk);
    OOCPCBooleanAST* const earlier = expression.GetBooleanAST();
    ASSERT_EQ(expression.ComputeBooleanAST(), result::kOk);
    EXPECT_NE(expression.GetBooleanAST(), earlier);
    EXPECT_TRUE(earlier->IsQueryVal());
    expression.Clear();
    EXPECT_EQ(expression.GetBooleanAST(), nullptr);
    EXPECT_EQ(ProbeQuery::Living(), 2);
    expression.Fail("one");
    OOCPCQueryExpressionErrorIterator* const first = expression.GetErrorIterator();
    expression.Fail("two");
    EXPECT_EQ(first->Next()->GetText(), "one");
    EXPECT_EQ(expression.GetErrorIterator()->Next()->GetText(), "two");
  }
  EXPECT_EQ(ProbeQuery::Living(), 0);
}

TEST(QueryExpressionBase, CopiesTreeAndErrorsDeeply) {
  auto original = std::make_unique<ScriptedExpression>();
  ASSERT_EQ(original->ComputeBooleanAST(), result::kOk);
  original->Fail("why");
  ScriptedExpression copy(*original);
  ScriptedExpression assigned;
  assigned.Fail("old");
  assigned = *original;
  EXPECT_NE(copy.GetBooleanAST(), original->GetBooleanAST());
  original.reset();
  for (ScriptedExpression* const each : {&copy, &assigned}) {
    ASSERT_NE(each->GetBooleanAST(), nullptr);
    EXPECT_TRUE(each->GetBooleanAST()->IsQueryVal());
    EXPECT_EQ(each->GetErrorIterator()->Next()->GetText(), "why");
  }
}

TEST(QueryExpressionBase, AssignmentToItselfChangesNothing) {
  ScriptedExpression expression;
  ASSERT_EQ(expression.ComputeBooleanAST(), result::kOk);
  OOCPCBooleanAST* const tree = expression.GetBooleanAST();
  const ScriptedExpression& itself = expression;
  expression = itself;
  EXPECT_EQ(expression.GetBooleanAST(), tree);
}

}  // namespace
