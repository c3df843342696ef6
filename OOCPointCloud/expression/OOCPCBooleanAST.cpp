// The nodes of the boolean tree.
#include <OOCPointCloud/OOCPCBooleanAST.h>

#include <algorithm>
#include <limits>
#include <utility>

#include "OOCPointCloud/expression/TreeWalks.h"

namespace {

std::int32_t WeightOf(const OOCPCIQuery* query) {
  return query == nullptr ? 0 : OOCPCIQuery::CostOf(query->GetDescriptor());
}

std::int32_t WeightOf(const OOCPCBooleanAST* node) { return node == nullptr ? 0 : node->weight; }

std::int32_t SumOfWeights(const OOCPCBooleanAST* left, const OOCPCBooleanAST* right) {
  const std::int64_t sum = std::int64_t{WeightOf(left)} + WeightOf(right);
  constexpr std::int64_t kMost = std::numeric_limits<std::int32_t>::max();
  constexpr std::int64_t kLeast = std::numeric_limits<std::int32_t>::min();
  return static_cast<std::int32_t>(std::min(kMost, std::max(kLeast, sum)));
}

}  // namespace

NodeAcceleratorHolder::NodeAcceleratorHolder(OOCPCIQuery::NodeAccelerator* accelerator)
    : m_accelerator(accelerator) {}

NodeAcceleratorHolder::~NodeAcceleratorHolder() { delete std::exchange(m_accelerator, nullptr); }

OOCPCBooleanAST::OOCPCBooleanAST(std::uint32_t nodeKind, std::int32_t nodeWeight)
    : weight(nodeWeight), kind(nodeKind) {}

OOCPCBooleanAST::~OOCPCBooleanAST() = default;

bool OOCPCBooleanAST::IsSimpleVal() const { return false; }
bool OOCPCBooleanAST::IsQueryVal() const { return false; }
bool OOCPCBooleanAST::IsNot() const { return false; }
bool OOCPCBooleanAST::IsBinaryOp() const { return false; }

OOCPCBooleanASTSimpleVal::OOCPCBooleanASTSimpleVal(OOCPCBooleanValue value)
    : OOCPCBooleanAST(kConstant, 0), value_(value) {}

bool OOCPCBooleanASTSimpleVal::IsSimpleVal() const { return true; }

OOCPCBooleanAST* OOCPCBooleanASTSimpleVal::Clone() const {
  auto copy = std::make_unique<OOCPCBooleanASTSimpleVal>(value_);
  copy->weight = weight;
  copy->kind = kind;
  return copy.release();
}

OOCPCBooleanASTQueryVal::OOCPCBooleanASTQueryVal(OOCPCIQuery* query)
    : OOCPCBooleanASTQueryVal(std::shared_ptr<OOCPCIQuery>(query)) {}

OOCPCBooleanASTQueryVal::OOCPCBooleanASTQueryVal(std::shared_ptr<OOCPCIQuery> query)
    : OOCPCBooleanAST(kQueryLeaf, WeightOf(query.get())), query_(std::move(query)) {
  binding = nullptr;
}

OOCPCBooleanASTQueryVal::~OOCPCBooleanASTQueryVal() = default;

bool OOCPCBooleanASTQueryVal::IsQueryVal() const { return true; }

OOCPCBooleanAST* OOCPCBooleanASTQueryVal::Clone() const {
  auto copy = std::make_unique<OOCPCBooleanASTQueryVal>(query_);
  copy->weight = weight;
  copy->kind = kind;
  return copy.release();
}

void OOCPCBooleanASTQueryVal::SetBinding(std::unique_ptr<NodeAcceleratorHolder> newBinding) {
  ownedBindings_.push_back(std::move(newBinding));
  binding = ownedBindings_.back().get();
}

OOCPCBooleanASTNot::OOCPCBooleanASTNot(OOCPCBooleanAST* operand)
    : OOCPCBooleanAST(kNegation, WeightOf(operand)) {
  first = operand;
}

OOCPCBooleanASTNot::~OOCPCBooleanASTNot() { oocpc::DeleteTree(first); }

bool OOCPCBooleanASTNot::IsNot() const { return true; }

OOCPCBooleanAST* OOCPCBooleanASTNot::Clone() const { return oocpc::CloneTree(*this); }

OOCPCBooleanASTBinaryOp::OOCPCBooleanASTBinaryOp(OOCPCIQuery::BitwiseOperator op,
                                                 OOCPCBooleanAST* left, OOCPCBooleanAST* right)
    : OOCPCBooleanAST(kBinaryOperator, SumOfWeights(left, right)), operator_(op) {
  first = left;
  second = right;
}

OOCPCBooleanASTBinaryOp::~OOCPCBooleanASTBinaryOp() {
  oocpc::DeleteTree(first);
  oocpc::DeleteTree(second);
}

bool OOCPCBooleanASTBinaryOp::IsBinaryOp() const { return true; }

OOCPCBooleanAST* OOCPCBooleanASTBinaryOp::Clone() const { return oocpc::CloneTree(*this); }
