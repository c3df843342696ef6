// The actions by themselves: codes that the grammar never hands over, ownership, own operators.
#include <OOCPointCloud/ResultCodes.h>
#include <gtest/gtest.h>

#include "tests/support/QueryBuilders.h"
#include "tests/support/ReversePolishText.h"

namespace {

struct Accumulation {
  TarOOCExpressionAccumulator actions{
      nullptr, std::make_unique<OOCPCQueryReversePolishExpression>(), nullptr};
  [[nodiscard]] std::string Form() const { return oocpctest::WrittenForm(*actions.expression); }
};

TEST(Accumulator, StartsWithStatusZeroAndAnEmptyForm) {
  const Accumulation accumulation;
  EXPECT_EQ(accumulation.actions.status, 0);
  EXPECT_EQ(accumulation.Form(), "");
}

TEST(Accumulator, PushesNothingForComparisonCodesThatDoNotExist) {
  for (const int code : {6, 7, -1, std::numeric_limits<int>::min()}) {
    Accumulation accumulation;
    accumulation.actions.PushIntComparison({"n", code, 1});
    accumulation.actions.PushUInt8Comparison({"n", code, 1});
    accumulation.actions.PushFloatComparison({"n", code, 1});
    accumulation.actions.PushDoubleComparison({"n", code, 1});
    accumulation.actions.PushStringComparison({"n", code, "a"});
    EXPECT_EQ(accumulation.Form(), "") << code;
  }
}

TEST(Accumulator, PushesNothingForRangeCodesThatDoNotExist) {
  for (const int code : {2, 3, -1}) {
    Accumulation accumulation;
    accumulation.actions.PushIntRange({"n", code, 1, 3});
    accumulation.actions.PushUInt8Range({"n", code, 1, 3});
    accumulation.actions.PushFloatRange({"n", code, 1, 3});
    accumulation.actions.PushDoubleRange({"n", code, 1, 3});
    EXPECT_EQ(accumulation.Form(), "") << code;
  }
}

TEST(Accumulator, MissingOperandMakesTheFormUnbalanced) {
  Accumulation accumulation;
  accumulation.actions.PushAllPoints();
  accumulation.actions.PushIntComparison({"n", 6, 1});
  accumulation.actions.PushAnd();
  EXPECT_EQ(accumulation.actions.expression->ComputeBooleanAST(), oocpc::result::kFail);
}

TEST(Accumulator, GivesEveryQueryTheOperatorZeroAndMetadataQueriesOneName) {
  Accumulation accumulation;
  accumulation.actions.PushAllPoints();
  accumulation.actions.PushSphere({1, 2, 3, 4});
  accumulation.actions.PushIntRange({"n", 0, 1, 3});
  accumulation.actions.PushStringComparison({"s", 0, "a"});
  accumulation.actions.PushMeshPlaceholder();
  int names = 0;
  for (const auto& element : accumulation.actions.expression->GetElements()) {
    const auto* const query = std::get_if<std::shared_ptr<OOCPCIQuery>>(&element);
    if (query == nullptr) continue;
    EXPECT_EQ((*query)->GetBitwiseOperator(), oocpctest::kAnd);
    names += static_cast<int>((*query)->GetNumberOfMetadata());
  }
  EXPECT_EQ(names, 4);
  EXPECT_EQ(accumulation.Form(), "all sphere[1,2,3;4] int[n>1] int[n<3] and string[s=='a'] all");
}

TEST(Accumulator, PushesOperatorsWithTheirValues) {
  Accumulation accumulation;
  accumulation.actions.PushAnd();
  accumulation.actions.PushOr();
  accumulation.actions.PushXor();
  accumulation.actions.PushNot();
  std::uint32_t expected = 0;
  for (const auto& element : accumulation.actions.expression->GetElements()) {
    EXPECT_EQ(static_cast<std::uint32_t>(std::get<OOCPCIQuery::BitwiseOperator>(element)),
              expected++);
  }
  EXPECT_EQ(expected, 4u);
}

}  // namespace
