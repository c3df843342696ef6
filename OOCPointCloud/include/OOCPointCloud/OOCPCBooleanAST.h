// The boolean expression tree.
#pragma once

#include <OOCPointCloud/Export.h>
#include <OOCPointCloud/OOCPCIQuery.h>
#include <OOCPointCloud/Types.h>

#include <memory>
#include <vector>

/// What an evaluator attaches to a query leaf; owned by the leaf. Owns an accelerator.
class OOCPOINTCLOUD_API NodeAcceleratorHolder {
 public:
  explicit NodeAcceleratorHolder(OOCPCIQuery::NodeAccelerator* accelerator);
  NodeAcceleratorHolder(const NodeAcceleratorHolder&) = delete;
  NodeAcceleratorHolder& operator=(const NodeAcceleratorHolder&) = delete;
  /// Deletes the accelerator.
  virtual ~NodeAcceleratorHolder();

  OOCPCIQuery::NodeAccelerator* m_accelerator;  ///< owned, may be null
};

/// Value of a constant node; any value but kTrue counts as false.
enum class OOCPCBooleanValue : std::uint32_t { kFalse = 0, kTrue = 1 };

/// A node of a boolean expression tree.
///
/// Ownership: a node owns its children; a leaf owns its query (shared with copies of the leaf:
/// queries are immutable) and every binding that was ever attached to it. Thread safety: none;
/// separate trees are independent.
class OOCPOINTCLOUD_API OOCPCBooleanAST {
 public:
  static constexpr std::uint32_t kConstant = 0;
  static constexpr std::uint32_t kQueryLeaf = 1;
  static constexpr std::uint32_t kNegation = 2;
  static constexpr std::uint32_t kBinaryOperator = 3;

  OOCPCBooleanAST(const OOCPCBooleanAST&) = delete;
  OOCPCBooleanAST& operator=(const OOCPCBooleanAST&) = delete;

  // The four predicates stand side by side in this order in the virtual table.
  [[nodiscard]] virtual bool IsSimpleVal() const;
  [[nodiscard]] virtual bool IsQueryVal() const;
  [[nodiscard]] virtual bool IsNot() const;
  [[nodiscard]] virtual bool IsBinaryOp() const;
  /// A deep copy without bindings; the caller deletes it.
  [[nodiscard]] virtual OOCPCBooleanAST* Clone() const = 0;
  virtual ~OOCPCBooleanAST();

  /// Estimated cost of a test: constants 0, comparisons 1, boxes and spheres 2, frustum 6, strings
  /// 8; an operator the sum of its operands.
  std::int32_t weight;
  std::uint32_t kind;
  OOCPCBooleanAST* first = nullptr;  ///< operand of a negation, left operand of a binary operator
  union {
    OOCPCBooleanAST* second = nullptr;  ///< right operand of a binary operator
    NodeAcceleratorHolder* binding;     ///< of a query leaf: what the evaluator attached last
  };

 protected:
  OOCPCBooleanAST(std::uint32_t nodeKind, std::int32_t nodeWeight);
};

/// A constant.
class OOCPOINTCLOUD_API OOCPCBooleanASTSimpleVal final : public OOCPCBooleanAST {
 public:
  explicit OOCPCBooleanASTSimpleVal(OOCPCBooleanValue value);
  [[nodiscard]] bool IsSimpleVal() const override;
  [[nodiscard]] OOCPCBooleanAST* Clone() const override;
  [[nodiscard]] OOCPCBooleanValue GetValue() const { return value_; }

 private:
  OOCPCBooleanValue value_;
};

/// A query leaf.
class OOCPOINTCLOUD_API OOCPCBooleanASTQueryVal final : public OOCPCBooleanAST {
 public:
  /// Takes the query over; null is allowed and evaluates to false.
  explicit OOCPCBooleanASTQueryVal(OOCPCIQuery* query);
  explicit OOCPCBooleanASTQueryVal(std::shared_ptr<OOCPCIQuery> query);
  ~OOCPCBooleanASTQueryVal() override;
  [[nodiscard]] bool IsQueryVal() const override;
  [[nodiscard]] OOCPCBooleanAST* Clone() const override;
  [[nodiscard]] OOCPCIQuery* GetQuery() const { return query_.get(); }
  /// Makes `newBinding` the leaf's binding and takes it over. The binding that it replaces stays
  /// alive until the leaf is deleted, so pointers to it stay valid.
  void SetBinding(std::unique_ptr<NodeAcceleratorHolder> newBinding);

 private:
  std::shared_ptr<OOCPCIQuery> query_;
  std::vector<std::unique_ptr<NodeAcceleratorHolder>> ownedBindings_;
};

/// A negation; its operand is in `first`.
class OOCPOINTCLOUD_API OOCPCBooleanASTNot final : public OOCPCBooleanAST {
 public:
  /// Takes the operand over.
  explicit OOCPCBooleanASTNot(OOCPCBooleanAST* operand);
  ~OOCPCBooleanASTNot() override;
  [[nodiscard]] bool IsNot() const override;
  [[nodiscard]] OOCPCBooleanAST* Clone() const override;
};

/// "and", "or" or "exclusive or" of two operands.
class OOCPOINTCLOUD_API OOCPCBooleanASTBinaryOp final : public OOCPCBooleanAST {
 public:
  /// Takes both operands over.
  OOCPCBooleanASTBinaryOp(OOCPCIQuery::BitwiseOperator op, OOCPCBooleanAST* left,
                          OOCPCBooleanAST* right);
  ~OOCPCBooleanASTBinaryOp() override;
  [[nodiscard]] bool IsBinaryOp() const override;
  [[nodiscard]] OOCPCBooleanAST* Clone() const override;
  [[nodiscard]] OOCPCIQuery::BitwiseOperator GetOperator() const { return operator_; }
  void GetChildren(OOCPCBooleanAST*& left, OOCPCBooleanAST*& right) const {
    left = first;
    right = second;
  }

 private:
  OOCPCIQuery::BitwiseOperator operator_;
};
