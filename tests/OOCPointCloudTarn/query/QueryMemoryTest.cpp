// What becomes of a query text when there is no memory for one of its query objects.
#include <OOCPointCloud/ResultCodes.h>
#include <OOCPointCloudTarn/TarnOOCStringQueryExpression.h>
#include <gtest/gtest.h>

#include "OOCPointCloudTarn/query/ExpressionAccumulator.h"
#include "tests/support/NothrowAllocation.h"

namespace {

using oocpctest::nothrowAllocationsLeft;
using Accumulator = TarOOCExpressionAccumulator;
using Action = void (*)(Accumulator&);

/// What an action appends while only so many query objects can be made: 'q' for a query, '0' for a
/// null operand, 'o' for an operator.
std::string Appended(Action action, int allocations) {
  Accumulator accumulator(nullptr, std::make_unique<OOCPCQueryReversePolishExpression>(), nullptr);
  nothrowAllocationsLeft = allocations;
  action(accumulator);
  nothrowAllocationsLeft = -1;
  std::string appended;
  for (const auto& element : accumulator.expression->GetElements()) {
    const auto* const query = std::get_if<std::shared_ptr<OOCPCIQuery>>(&element);
    appended += query == nullptr ? 'o' : *query == nullptr ? '0' : 'q';
  }
  return appended;
}

TEST(QueryMemory, WithoutItConstantsAndShapesAppendANullOperand) {
  const Action actions[] = {
      [](Accumulator& to) { to.PushAllPoints(); },
      [](Accumulator& to) { to.PushNoPoints(); },
      [](Accumulator& to) {
        to.PushSphere({1, 2, 3, 4});
      },
      [](Accumulator& to) {
        to.PushBox({1, 2, 3, 4, 5, 6});
      },
      [](Accumulator& to) {
        to.Push2DBox({1, 2, 3, 4});
      },
      [](Accumulator& to) { to.PushFrustum(std::vector<double>(24, 1.0)); },
  };
  for (const Action& action : actions) {
    EXPECT_EQ(Appended(action, 0), "0") << &action - actions;
    EXPECT_EQ(Appended(action, 1), "q") << &action - actions;
  }
}

TEST(QueryMemory, WithoutItMeshClausesAndComparisonsAppendNothing) {
  const Action mesh = [](Accumulator& to) { to.PushMeshPlaceholder(); };
  EXPECT_EQ(Appended(mesh, 0), "");
  EXPECT_EQ(Appended(mesh, 1), "q");
  static int code;
  const Action comparisons[] = {
      [](Accumulator& to) {
        to.PushIntComparison({"n", code, 1});
      },
      [](Accumulator& to) {
        to.PushUInt8Comparison({"n", code, 1});
      },
      [](Accumulator& to) {
        to.PushFloatComparison({"n", code, 1});
      },
      [](Accumulator& to) {
        to.PushDoubleComparison({"n", code, 1});
      },
      [](Accumulator& to) {
        to.PushStringComparison({"n", code, "a"});
      },
  };
  for (code = 0; code < 6; ++code) {
    for (const Action& comparison : comparisons) {
      EXPECT_EQ(Appended(comparison, 0), "") << &comparison - comparisons << " " << code;
      EXPECT_EQ(Appended(comparison, 1), "q") << &comparison - comparisons << " " << code;
    }
  }
}

TEST(QueryMemory, RangesAppendNothingUnlessTheyHaveBothObjects) {
  static int code;
  const Action ranges[] = {
      [](Accumulator& to) {
        to.PushIntRange({"n", code, 1, 5});
      },
      [](Accumulator& to) {
        to.PushUInt8Range({"n", code, 1, 5});
      },
      [](Accumulator& to) {
        to.PushFloatRange({"n", code, 1, 5});
      },
      [](Accumulator& to) {
        to.PushDoubleRange({"n", code, 1, 5});
      },
  };
  for (code = 0; code < 2; ++code) {
    for (const Action& range : ranges) {
      EXPECT_EQ(Appended(range, 0), "") << &range - ranges << " " << code;
      EXPECT_EQ(Appended(range, 1), "") << &range - ranges << " " << code;
      EXPECT_EQ(Appended(range, 2), "qqo") << &range - ranges << " " << code;
    }
  }
}

/// Computes with memory for so many query objects.
HRESULT ComputeWith(TarnOOCStringQueryExpression& expression, int allocations) {
  nothrowAllocationsLeft = allocations;
  const HRESULT code = expression.ComputeBooleanAST();
  nothrowAllocationsLeft = -1;
  return code;
}

TEST(QueryMemory, WithoutItNoTextHasATreeAndNoErrorIsRecorded) {
  const std::pair<const char*, int> textsAndQueries[] = {
      {"#true()", 1},
      {"#not(#false())", 1},
      {"#within{type=closedMesh}(\"m\")", 1},
      {"#num{type=int}(\"n\",==,1)", 1},
      {"#num{type=double}(\"n\",<=>,1,5)", 2},
      {"#and(#true(),#num{type=int}(\"n\",<>,1,5),#distance(0,0,0,1))", 4},
      {"#or((#xor(#false(),#within{type=closedMesh}(\"m\"))),#num{type=string}(\"s\",<,\"a\"))", 3},
      {"#and(#within{type=box}(0,0,0,1,1,1),#within{type=2dbox}(0,0,1,1),#not(#true()))", 3},
  };
  for (const auto& [text, queries] : textsAndQueries) {
    TarnOOCStringQueryExpression expression;
    expression.SetInputString(text);
    for (int allocations = 0; allocations < queries; ++allocations) {
      EXPECT_EQ(ComputeWith(expression, allocations), oocpc::result::kFail)
          << text << " " << allocations;
      EXPECT_EQ(expression.GetBooleanAST(), nullptr) << text << " " << allocations;
      EXPECT_EQ(expression.GetErrorIterator(), nullptr) << text << " " << allocations;
    }
    EXPECT_EQ(ComputeWith(expression, queries), oocpc::result::kOk) << text;
    EXPECT_NE(expression.GetBooleanAST(), nullptr) << text;
  }
}

TEST(QueryMemory, WithoutItTheFormsFailureReplacesAnEarlierTreeByNull) {
  TarnOOCStringQueryExpression expression;
  expression.SetInputString("#not(#true())");
  ASSERT_EQ(expression.ComputeBooleanAST(), oocpc::result::kOk);
  const OOCPCBooleanAST* const earlier = expression.GetBooleanAST();
  ASSERT_NE(earlier, nullptr);
  EXPECT_EQ(ComputeWith(expression, 0), oocpc::result::kFail);
  EXPECT_EQ(expression.GetBooleanAST(), nullptr);
  EXPECT_EQ(expression.GetErrorIterator(), nullptr);
  EXPECT_TRUE(earlier->IsNot()) << "it stays alive";
}

}  // namespace
