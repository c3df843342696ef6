// The expression object: results, errors, recomputing and copies.
#include <OOCPointCloud/ResultCodes.h>
#include <OOCPointCloudTarn/TarnOOCStringQueryExpression.h>
#include <gtest/gtest.h>

#include <memory>

namespace {

namespace result = oocpc::result;

TEST(StringQueryExpression, FailsOnTheEmptyTextItStartsWith) {
  TarnOOCStringQueryExpression expression;
  EXPECT_EQ(expression.GetBooleanAST(), nullptr);
  EXPECT_EQ(expression.GetErrorIterator(), nullptr);
  EXPECT_EQ(expression.ComputeBooleanAST(), result::kFail);
  EXPECT_EQ(expression.GetErrorIterator()->Next()->GetText(), "");
  EXPECT_EQ(expression.GetErrorIterator()->Next(), nullptr);
}

TEST(StringQueryExpression, AllowsWhiteSpaceAroundTheQuery) {
  TarnOOCStringQueryExpression expression;
  expression.SetInputString("  #true()  ");
  EXPECT_EQ(expression.ComputeBooleanAST(), result::kOk);
  ASSERT_NE(expression.GetBooleanAST(), nullptr);
  EXPECT_TRUE(expression.GetBooleanAST()->IsQueryVal());
}

TEST(StringQueryExpression, FailureAfterSuccessKeepsTheEarlierTree) {
  TarnOOCStringQueryExpression expression;
  expression.SetInputString("#not(#true())");
  ASSERT_EQ(expression.ComputeBooleanAST(), result::kOk);
  OOCPCBooleanAST* const tree = expression.GetBooleanAST();
  expression.SetInputString("#true() x");
  EXPECT_EQ(expression.ComputeBooleanAST(), result::kFail);
  EXPECT_EQ(expression.GetBooleanAST(), tree);
  EXPECT_TRUE(tree->IsNot());
  EXPECT_EQ(expression.GetErrorIterator()->Next()->GetText(), "x");
}

TEST(StringQueryExpression, SuccessAfterFailureKeepsTheEarlierErrors) {
  TarnOOCStringQueryExpression expression;
  expression.SetInputString("bogus");
  ASSERT_EQ(expression.ComputeBooleanAST(), result::kFail);
  auto* const errors = expression.GetErrorIterator();
  expression.SetInputString("#true()");
  EXPECT_EQ(expression.ComputeBooleanAST(), result::kOk);
  EXPECT_EQ(expression.GetErrorIterator(), errors);
  EXPECT_EQ(errors->Next()->GetText(), "bogus");
}

TEST(StringQueryExpression, RecomputingReplacesTreeAndErrors) {
  TarnOOCStringQueryExpression expression;
  for (const char* const text : {"one", "two"}) {
    expression.SetInputString(text);
    EXPECT_EQ(expression.ComputeBooleanAST(), result::kFail);
    EXPECT_EQ(expression.GetErrorIterator()->Next()->GetText(), text);
  }
  for (const char* const text : {"#true()", "#not(#true())"}) {
    expression.SetInputString(text);
    EXPECT_EQ(expression.ComputeBooleanAST(), result::kOk);
    EXPECT_EQ(expression.GetBooleanAST()->IsNot(), text[1] == 'n');
  }
}

TEST(StringQueryExpression, CopiesTextTreeAndErrors) {
  auto original = std::make_unique<TarnOOCStringQueryExpression>();
  original->SetInputString("#true()");
  ASSERT_EQ(original->ComputeBooleanAST(), result::kOk);
  original->SetInputString("#false() tail");
  ASSERT_EQ(original->ComputeBooleanAST(), result::kFail);
  TarnOOCStringQueryExpression copy(*original);
  TarnOOCStringQueryExpression assigned;
  assigned = *original;
  EXPECT_NE(copy.GetBooleanAST(), original->GetBooleanAST());
  original.reset();
  for (TarnOOCStringQueryExpression* const each : {&copy, &assigned}) {
    EXPECT_TRUE(each->GetBooleanAST()->IsQueryVal());
    TarnOOCStringQueryExpressionErrorIterator* const errors = each->GetErrorIterator();
    EXPECT_NE(dynamic_cast<TarnOOCStringQueryExpressionErrorIterator*>(
                  static_cast<OOCPCQueryExpressionErrorIterator*>(errors)),
              nullptr);
    EXPECT_EQ(errors->Next()->GetText(), "tail");
    EXPECT_EQ(each->ComputeBooleanAST(), result::kFail);
    EXPECT_EQ(each->GetErrorIterator()->Next()->GetText(), "tail");
  }
}

TEST(StringQueryExpression, AssignmentToItselfChangesNothing) {
  TarnOOCStringQueryExpression expression;
  expression.SetInputString("#true()");
  ASSERT_EQ(expression.ComputeBooleanAST(), result::kOk);
  OOCPCBooleanAST* const tree = expression.GetBooleanAST();
  const TarnOOCStringQueryExpression& itself = expression;
  expression = itself;
  EXPECT_EQ(expression.GetBooleanAST(), tree);
  EXPECT_EQ(expression.ComputeBooleanAST(), result::kOk);
}

TEST(StringQueryExpression, ServesThroughItsBase) {
  std::unique_ptr<OOCPCIQueryExpression> expression =
      std::make_unique<TarnOOCStringQueryExpression>();
  EXPECT_EQ(expression->ComputeBooleanAST(), result::kFail);
  ASSERT_NE(expression->GetErrorIterator(), nullptr);
  EXPECT_EQ(expression->GetErrorIterator()->GetCount(), 1u);
}

}  // namespace
